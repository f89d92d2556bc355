#include "NvxQtCommon/transfer/QFtp.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"
#include "tests/transfer/FtpRun.h"
#include "tests/transfer/ScriptedFtpServer.h"

#include <QTcpServer>
#include <QTemporaryFile>

namespace {

using Server = ScriptedFtpServer;

/// Takes a number of bytes and then no more.
class FullDevice : public QIODevice
{
public:
    explicit FullDevice(qint64 room) : m_room(room) {}
    qint64 taken() const { return m_taken; }

protected:
    qint64 readData(char*, qint64) override { return -1; }
    qint64 writeData(const char*, qint64 size) override
    {
        const qint64 count = qMin(size, m_room - m_taken);
        m_taken += count;
        if (count < size)
            setErrorString(QStringLiteral("No room"));
        return count;
    }

private:
    qint64 m_room;
    qint64 m_taken = 0;
};

/// Says that it holds more than can be read of it.
class BrokenDevice : public QIODevice
{
public:
    qint64 size() const override { return 1000; }

protected:
    qint64 readData(char* data, qint64 size) override
    {
        if (std::exchange(m_wasRead, true)) {
            setErrorString(QStringLiteral("Bad block"));
            return -1;
        }
        const qint64 count = qMin<qint64>(size, 10);
        std::fill_n(data, count, 'b');
        return count;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    bool m_wasRead = false;
};

QByteArray someBytes(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        bytes[i] = char(i * 31 + i / 256);
    return bytes;
}

} // namespace

class tst_QFtpDevices : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    // --- happy flows
    void getStreamsIntoAFile();
    void putStreamsAFile();
    void putBeginsWhereTheDeviceStands();
    void sequentialDeviceIsSentToItsEnd();
    void receiverThatIsSlowLetsTheServerWait();
    void callerThatDoesNotReadLetsTheServerWait();
    void currentDevice();
    // --- rainy day flows
    void deviceThatIsNotOpen();
    void receiverThatIsFull_data();
    void receiverThatIsFull();
    void receiverThatIsDeleted();
    void receiverThatIsClosed();
    void senderThatCannotBeRead();
    void senderThatIsDeleted();
    void callerThatDoesNotReadStopsTheClock();

private:
    QString connectAnd(std::function<void()> queue);

    std::unique_ptr<Server> m_server;
    std::unique_ptr<QFtp> m_ftp;
    std::unique_ptr<FtpRun> m_run;
};

void tst_QFtpDevices::init()
{
    failOnUnexpectedWarnings();
    m_server = std::make_unique<Server>(QHostAddress(QStringLiteral("127.62.6.6")));
    m_ftp = std::make_unique<QFtp>();
    m_run = std::make_unique<FtpRun>(*m_ftp, m_server->host(), m_server->port());
}

void tst_QFtpDevices::cleanup()
{
    m_run.reset();
    m_ftp.reset();
    m_server.reset();
}

/// Connects and runs what is queued; gives the error text, empty where all went well.
QString tst_QFtpDevices::connectAnd(std::function<void()> queue)
{
    const int count = m_run->doneCount + 1;
    m_run->queue(QStringLiteral("connect login"));
    queue();
    if (!m_run->waitForDone(count))
        return QStringLiteral("it never ended");
    return m_run->doneError ? m_run->errorText : QString();
}

void tst_QFtpDevices::getStreamsIntoAFile()
{
    m_server->file = someBytes(5000000);
    QTemporaryFile file;
    QVERIFY(file.open());
    QCOMPARE(connectAnd([&] { m_ftp->get(QStringLiteral("a.wav"), &file); }), QString());
    QCOMPARE(file.pos(), m_server->file.size());
    file.seek(0);
    QVERIFY(file.readAll() == m_server->file);
}

void tst_QFtpDevices::putStreamsAFile()
{
    const QByteArray bytes = someBytes(5000000);
    QTemporaryFile file;
    QVERIFY(file.open());
    file.write(bytes);
    file.seek(0);
    QCOMPARE(connectAnd([&] { m_ftp->put(&file, QStringLiteral("b.wav")); }), QString());
    QVERIFY(m_server->uploaded == bytes);
    QVERIFY(m_server->lines.contains("ALLO 5000000"));
    QVERIFY(file.isOpen());
}

void tst_QFtpDevices::putBeginsWhereTheDeviceStands()
{
    QBuffer buffer;
    buffer.setData("0123456789");
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    buffer.seek(4);
    QCOMPARE(connectAnd([&] { m_ftp->put(&buffer, QStringLiteral("b.wav")); }), QString());
    QCOMPARE(m_server->uploaded, QByteArray("456789"));
    QVERIFY(m_server->lines.contains("ALLO 6"));
    // At its end there is nothing to send.
    m_server->uploaded.clear();
    QCOMPARE(connectAnd([&] { m_ftp->put(&buffer, QStringLiteral("b.wav")); }), QString());
    QCOMPARE(m_server->uploaded, QByteArray());
}

void tst_QFtpDevices::sequentialDeviceIsSentToItsEnd()
{
    QTcpServer source;
    QVERIFY(source.listen(QHostAddress(QStringLiteral("127.62.6.6"))));
    QTcpSocket socket;
    socket.connectToHost(source.serverAddress(), source.serverPort());
    QVERIFY(source.waitForNewConnection(10000));
    QVERIFY(socket.waitForConnected(10000));
    QTcpSocket* writer = source.nextPendingConnection();
    const QByteArray bytes = someBytes(2000000);
    writer->write(bytes.first(1000));
    // The rest comes when the upload has begun to wait for it.
    connect(m_ftp.get(), &QFtp::dataTransferProgress, this, [&](qlonglong done, qlonglong total) {
        QCOMPARE(total, 0);
        if (done == 1000) {
            writer->write(bytes.sliced(1000));
            writer->disconnectFromHost();
        }
    });
    QCOMPARE(connectAnd([&] { m_ftp->put(&socket, QStringLiteral("b.wav")); }), QString());
    QVERIFY(m_server->uploaded == bytes);
    for (const QByteArray& line : m_server->lines)
        QVERIFY(!line.startsWith("ALLO"));
}

void tst_QFtpDevices::receiverThatIsSlowLetsTheServerWait()
{
    // A socket whose other end isn't read.
    QTcpServer sink;
    QVERIFY(sink.listen(QHostAddress(QStringLiteral("127.62.6.6"))));
    QTcpSocket receiver;
    receiver.connectToHost(sink.serverAddress(), sink.serverPort());
    QVERIFY(sink.waitForNewConnection(10000));
    QVERIFY(receiver.waitForConnected(10000));
    QTcpSocket* end = sink.nextPendingConnection();
    end->setReadBufferSize(1000);
    m_server->file = someBytes(16 << 20);
    m_run->queue(QStringLiteral("connect login"));
    m_ftp->get(QStringLiteral("a.wav"), &receiver);
    // Until nothing moves any more.
    QSignalSpy progress(m_ftp.get(), &QFtp::dataTransferProgress);
    QVERIFY(progress.wait(10000));
    do {
        progress.clear();
    } while (progress.wait(500));
    QCOMPARE(m_run->doneCount, 0);
    QVERIFY2(receiver.bytesToWrite() <= 2 << 20, qPrintable(QString::number(receiver.bytesToWrite())));
    QByteArray received;
    end->setReadBufferSize(0);
    connect(end, &QTcpSocket::readyRead, this, [&] { received += end->readAll(); });
    received += end->readAll();
    QVERIFY(m_run->waitForDone());
    QVERIFY2(!m_run->doneError, qPrintable(m_run->errorText));
    receiver.disconnectFromHost();
    QSignalSpy closed(end, &QTcpSocket::disconnected);
    QVERIFY(!closed.isEmpty() || end->state() == QAbstractSocket::UnconnectedState || closed.wait(10000));
    QVERIFY(received == m_server->file);
}

void tst_QFtpDevices::callerThatDoesNotReadLetsTheServerWait()
{
    QFtp ftp;
    m_server->file = someBytes(16 << 20);
    ftp.connectToHost(m_server->host(), m_server->port());
    ftp.get(QStringLiteral("a.wav"));
    QSignalSpy done(&ftp, &QFtp::done);
    QTRY_COMPARE_WITH_TIMEOUT(ftp.bytesAvailable(), 1 << 20, 30000);
    QSignalSpy ready(&ftp, &QFtp::readyRead);
    QVERIFY(spyStaysEmpty(ready, 300));
    QVERIFY(done.isEmpty());
    QCOMPARE(ftp.bytesAvailable(), 1 << 20);
    QByteArray received = ftp.readAll();
    connect(&ftp, &QFtp::readyRead, this, [&] { received += ftp.readAll(); });
    QVERIFY(!done.isEmpty() || done.wait(30000));
    received += ftp.readAll();
    QVERIFY(received == m_server->file);
}

void tst_QFtpDevices::currentDevice()
{
    QBuffer in;
    QVERIFY(in.open(QIODevice::WriteOnly));
    QBuffer out;
    QVERIFY(out.open(QIODevice::ReadOnly));
    QList<QIODevice*> devices;
    connect(m_ftp.get(), &QFtp::commandStarted, this, [&] { devices << m_ftp->currentDevice(); });
    QCOMPARE(connectAnd([&] {
                 m_ftp->get(QStringLiteral("a.wav"), &in);
                 m_ftp->put(&out, QStringLiteral("b.wav"));
                 m_ftp->get(QStringLiteral("a.wav"));
                 m_ftp->put(QByteArray(), QStringLiteral("b.wav"));
             }),
             QString());
    QCOMPARE(devices, QList<QIODevice*>({nullptr, nullptr, &in, &out, nullptr, nullptr}));
}

void tst_QFtpDevices::deviceThatIsNotOpen()
{
    QBuffer closed;
    QBuffer readOnly;
    QVERIFY(readOnly.open(QIODevice::ReadOnly));
    QBuffer writeOnly;
    QVERIFY(writeOnly.open(QIODevice::WriteOnly));
    for (QIODevice* device : {&closed, &readOnly})
        QCOMPARE(connectAnd([&] { m_ftp->get(QStringLiteral("a.wav"), device); }),
                 QStringLiteral("The device isn't open for writing"));
    for (QIODevice* device : {static_cast<QBuffer*>(nullptr), &closed, &writeOnly})
        QCOMPARE(connectAnd([&] { m_ftp->put(device, QStringLiteral("b.wav")); }),
                 QStringLiteral("The device isn't open for reading"));
    // A device that is gone is none that was never given.
    QCOMPARE(connectAnd([&] {
                 QBuffer gone;
                 gone.open(QIODevice::WriteOnly);
                 m_ftp->get(QStringLiteral("a.wav"), &gone);
             }),
             QStringLiteral("The device isn't open for writing"));
    QVERIFY(!m_server->lines.contains("RETR a.wav") && !m_server->lines.contains("STOR b.wav"));
}

void tst_QFtpDevices::receiverThatIsFull_data()
{
    QTest::addColumn<qint64>("room");
    QTest::newRow("no room") << qint64(0);
    QTest::newRow("room for some") << qint64(1000000);
    QTest::newRow("room for all but a byte") << qint64(4999999);
}

void tst_QFtpDevices::receiverThatIsFull()
{
    QFETCH(qint64, room);
    m_server->file = someBytes(5000000);
    FullDevice full(room);
    QVERIFY(full.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    QCOMPARE(connectAnd([&] { m_ftp->get(QStringLiteral("a.wav"), &full); }),
             QStringLiteral("Downloading file failed:\nNo room"));
    QCOMPARE(full.taken(), room);
    // On the same connection.
    QVERIFY(m_run->run(QStringLiteral("get cd")));
    QVERIFY2(!m_run->doneError, qPrintable(m_run->errorText));
    QVERIFY(m_run->received() == m_server->file);
}

void tst_QFtpDevices::receiverThatIsDeleted()
{
    m_server->file = someBytes(5000000);
    auto buffer = std::make_unique<QBuffer>();
    QVERIFY(buffer->open(QIODevice::WriteOnly));
    connect(m_ftp.get(), &QFtp::dataTransferProgress, this, [&] { buffer.reset(); });
    QCOMPARE(connectAnd([&] { m_ftp->get(QStringLiteral("a.wav"), buffer.get()); }),
             QStringLiteral("Downloading file failed:\nThe device for the file is gone"));
}

void tst_QFtpDevices::receiverThatIsClosed()
{
    m_server->file = someBytes(5000000);
    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    connect(m_ftp.get(), &QFtp::dataTransferProgress, this, [&] { buffer.close(); });
    QCOMPARE(connectAnd([&] { m_ftp->get(QStringLiteral("a.wav"), &buffer); }),
             QStringLiteral("Downloading file failed:\nThe device for the file is gone"));
}

void tst_QFtpDevices::senderThatCannotBeRead()
{
    BrokenDevice broken;
    QVERIFY(broken.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    QCOMPARE(connectAnd([&] { m_ftp->put(&broken, QStringLiteral("b.wav")); }),
             QStringLiteral("Uploading file failed:\nBad block"));
}

void tst_QFtpDevices::senderThatIsDeleted()
{
    auto buffer = std::make_unique<QBuffer>();
    buffer->setData(someBytes(5000000));
    QVERIFY(buffer->open(QIODevice::ReadOnly));
    connect(m_ftp.get(), &QFtp::dataTransferProgress, this, [&] { buffer.reset(); });
    QCOMPARE(connectAnd([&] { m_ftp->put(buffer.get(), QStringLiteral("b.wav")); }),
             QStringLiteral("Uploading file failed:\nThe device to send is gone"));
    QVERIFY(m_server->uploaded.size() < 5000000);
}

void tst_QFtpDevices::callerThatDoesNotReadStopsTheClock()
{
    QFtp ftp;
    connect(&ftp, &QFtp::readyRead, this, [&] { ftp.setInactivityLimit(150); });
    m_server->file = someBytes(8 << 20);
    ftp.connectToHost(m_server->host(), m_server->port());
    ftp.get(QStringLiteral("a.wav"));
    QSignalSpy done(&ftp, &QFtp::done);
    QVERIFY(spyStaysEmpty(done, 1000));
    QCOMPARE(ftp.inactivityLimit(), 150);
    ftp.disconnect(this);
    ftp.setInactivityLimit(0);
    connect(&ftp, &QFtp::readyRead, this, [&] { ftp.readAll(); });
    ftp.readAll();
    QVERIFY(done.wait(30000));
    QCOMPARE(done[0][0].toBool(), false);
}

QTEST_GUILESS_MAIN(tst_QFtpDevices)
#include "tst_QFtpDevices.moc"
