#include "NvxQtCommon/transfer/QFtp.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/Patience.h"
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

constexpr qint64 kFull = 1 << 20;

/// A socket whose other end isn't read.
struct SlowReceiver
{
    SlowReceiver()
    {
        if (!m_sink.listen(QHostAddress(QStringLiteral("127.62.6.6"))))
            qFatal("no port to listen on");
        receiver->connectToHost(m_sink.serverAddress(), m_sink.serverPort());
        if (!m_sink.waitForNewConnection(kPatienceMs) || !receiver->waitForConnected(kPatienceMs))
            qFatal("no connection");
        end = m_sink.nextPendingConnection();
        end->setReadBufferSize(1000);
        // The system keeps little, so that the receiver is full soon and stays so.
        receiver->setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, 65536);
        end->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 65536);
    }

    std::unique_ptr<QTcpSocket> receiver = std::make_unique<QTcpSocket>();
    QTcpSocket* end = nullptr;

private:
    QTcpServer m_sink;
};

/// A device that has what a test gives it, and more to come.
class SlowSender : public QIODevice
{
public:
    SlowSender() { open(QIODevice::ReadOnly | QIODevice::Unbuffered); }
    bool isSequential() const override { return true; }
    void give(const QByteArray& bytes)
    {
        m_bytes += bytes;
        Q_EMIT readyRead();
    }
    void end()
    {
        m_isAtEnd = true;
        Q_EMIT readChannelFinished();
    }

protected:
    qint64 readData(char* data, qint64 size) override
    {
        const qint64 count = qMin<qint64>(size, m_bytes.size());
        std::copy_n(m_bytes.cbegin(), count, data);
        m_bytes.remove(0, count);
        return count == 0 && m_isAtEnd ? -1 : count;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    QByteArray m_bytes;
    bool m_isAtEnd = false;
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
    void fullReceiverThatGoes_data();
    void fullReceiverThatGoes();
    void senderThatCannotBeRead();
    void senderThatIsDeleted();
    void slowSenderThatGoes_data();
    void slowSenderThatGoes();
    void senderThatIsSlowStopsTheClock();
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
    const SlowReceiver slow;
    m_server->file = someBytes(16 << 20);
    m_run->queue(QStringLiteral("connect login"));
    m_ftp->get(QStringLiteral("a.wav"), slow.receiver.get());
    QTRY_VERIFY(slow.receiver->bytesToWrite() > kFull);
    // What the system took of that has made room for a little more.
    QSignalSpy written(slow.receiver.get(), &QTcpSocket::bytesWritten);
    while (written.wait(300))
        written.clear();
    QVERIFY(slow.receiver->bytesToWrite() > kFull);
    // A limit that is long over while the receiver takes nothing.
    m_ftp->setInactivityLimit(300);
    QSignalSpy done(m_ftp.get(), &QFtp::done);
    QVERIFY(spyStaysEmpty(done, 1000));
    QVERIFY2(slow.receiver->bytesToWrite() <= 2 * kFull,
             qPrintable(QString::number(slow.receiver->bytesToWrite())));
    m_ftp->setInactivityLimit(0);
    QByteArray received;
    slow.end->setReadBufferSize(0);
    connect(slow.end, &QTcpSocket::readyRead, this, [&] { received += slow.end->readAll(); });
    received += slow.end->readAll();
    QVERIFY(m_run->waitForDone());
    QVERIFY2(!m_run->doneError, qPrintable(m_run->errorText));
    slow.receiver->disconnectFromHost();
    QTRY_COMPARE(slow.end->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(received == m_server->file);
}

void tst_QFtpDevices::callerThatDoesNotReadLetsTheServerWait()
{
    QFtp ftp;
    m_server->file = someBytes(16 << 20);
    ftp.connectToHost(m_server->host(), m_server->port());
    ftp.get(QStringLiteral("a.wav"));
    QSignalSpy done(&ftp, &QFtp::done);
    QTRY_COMPARE(ftp.bytesAvailable(), kFull);
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

void tst_QFtpDevices::fullReceiverThatGoes_data()
{
    using Go = std::function<void(SlowReceiver&)>;
    QTest::addColumn<Go>("go");
    QTest::newRow("deleted") << Go([](SlowReceiver& slow) { slow.receiver.reset(); });
    QTest::newRow("aborted") << Go([](SlowReceiver& slow) { slow.receiver->abort(); });
    QTest::newRow("cut by its other end") << Go([](SlowReceiver& slow) { slow.end->abort(); });
}

void tst_QFtpDevices::fullReceiverThatGoes()
{
    using Go = std::function<void(SlowReceiver&)>;
    QFETCH(Go, go);
    SlowReceiver slow;
    m_server->file = someBytes(16 << 20);
    m_run->queue(QStringLiteral("connect login"));
    const int get = m_ftp->get(QStringLiteral("a.wav"), slow.receiver.get());
    QTRY_VERIFY(slow.receiver->bytesToWrite() > kFull);
    QCOMPARE(m_ftp->currentId(), get);
    go(slow);
    QVERIFY(m_run->waitForDone());
    QVERIFY2(m_run->errorText.startsWith(u"Downloading file failed:\n"), qPrintable(m_run->errorText));
    m_server->file = "short";
    QVERIFY(m_run->run(QStringLiteral("get")));
    QCOMPARE(m_run->received(), m_server->file);
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

void tst_QFtpDevices::slowSenderThatGoes_data()
{
    using Go = std::function<void(std::unique_ptr<SlowSender>&)>;
    QTest::addColumn<Go>("go");
    QTest::newRow("deleted") << Go([](std::unique_ptr<SlowSender>& sender) { sender.reset(); });
    QTest::newRow("closed") << Go([](std::unique_ptr<SlowSender>& sender) { sender->close(); });
}

void tst_QFtpDevices::slowSenderThatGoes()
{
    using Go = std::function<void(std::unique_ptr<SlowSender>&)>;
    QFETCH(Go, go);
    auto sender = std::make_unique<SlowSender>();
    sender->give("begin");
    m_run->queue(QStringLiteral("connect login"));
    m_ftp->put(sender.get(), QStringLiteral("b.wav"));
    QTRY_COMPARE(m_server->uploaded, QByteArray("begin"));
    go(sender);
    QVERIFY(m_run->waitForDone());
    QCOMPARE(m_run->errorText, QStringLiteral("Uploading file failed:\nThe device to send is gone"));
    QCOMPARE(m_server->uploaded, QByteArray("begin"));
    QVERIFY(m_run->run(QStringLiteral("cd")));
    QVERIFY(!m_run->doneError);
}

void tst_QFtpDevices::senderThatIsSlowStopsTheClock()
{
    SlowSender sender;
    sender.give("begin");
    m_run->queue(QStringLiteral("connect login"));
    m_ftp->put(&sender, QStringLiteral("b.wav"));
    QTRY_COMPARE(m_server->uploaded, QByteArray("begin"));
    m_ftp->setInactivityLimit(100);
    QSignalSpy done(m_ftp.get(), &QFtp::done);
    QVERIFY(spyStaysEmpty(done, 500));
    m_ftp->setInactivityLimit(0);
    sender.give(" and end");
    sender.end();
    QVERIFY(m_run->waitForDone());
    QVERIFY2(!m_run->doneError, qPrintable(m_run->errorText));
    QCOMPARE(m_server->uploaded, QByteArray("begin and end"));
}

void tst_QFtpDevices::callerThatDoesNotReadStopsTheClock()
{
    QFtp ftp;
    m_server->file = someBytes(8 << 20);
    ftp.connectToHost(m_server->host(), m_server->port());
    ftp.get(QStringLiteral("a.wav"));
    QSignalSpy done(&ftp, &QFtp::done);
    QTRY_COMPARE(ftp.bytesAvailable(), kFull);
    ftp.setInactivityLimit(100);
    QVERIFY(spyStaysEmpty(done, 500));
    ftp.setInactivityLimit(0);
    connect(&ftp, &QFtp::readyRead, this, [&] { ftp.readAll(); });
    ftp.readAll();
    QVERIFY(done.wait(30000));
    QCOMPARE(done[0][0].toBool(), false);
}

QTEST_GUILESS_MAIN(tst_QFtpDevices)
#include "tst_QFtpDevices.moc"
