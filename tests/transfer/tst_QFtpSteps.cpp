#include "NvxQtCommon/transfer/QFtp.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/Patience.h"
#include "tests/transfer/FtpRun.h"
#include "tests/transfer/ScriptedFtpServer.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

namespace {

using Server = ScriptedFtpServer;
using Lines = QList<QByteArray>;

const QString kAddress = QStringLiteral("127.62.6.8");
const QDateTime kStart(QDate(2020, 1, 1), QTime(0, 0), Qt::UTC);

/// Sends a listing in blocks, as fast as the client takes them.
class LongListing : public QObject
{
public:
    LongListing(Server& server, QByteArray block, int blocks)
        : QObject(&server), m_block(std::move(block)), m_left(blocks)
    {
        server.handle("LIST", [this](Server& s, const QByteArray&) {
            s.reply("150 Listing\r\n");
            s.withData([this, &s](QTcpSocket& data) {
                connect(&data, &QTcpSocket::bytesWritten, this, [this, &data] { feed(data); });
                connect(&data, &QTcpSocket::disconnected, &s, [&s] { s.reply("226 Listed\r\n"); });
                feed(data);
            });
        });
    }

private:
    void feed(QTcpSocket& data)
    {
        while (m_left > 0 && data.bytesToWrite() < m_block.size()) {
            --m_left;
            data.write(m_block);
        }
        if (m_left == 0 && data.bytesToWrite() == 0)
            data.disconnectFromHost();
    }

    QByteArray m_block;
    int m_left;
};

} // namespace

/// What goes on between commands, and what one of them leaves to the next.
class tst_QFtpSteps : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    // --- happy flows
    void noPasswordWhereNoneIsAskedFor();
    void extendedFormIsAskedAgainOnANewConnection();
    void rawTransferLeavesDevicesAlone();
    void rawTransferBehindACutListing();
    void rawSizeIsTheTotal();
    void rawListingInSmallLetters();
    void rangeIsThatOfTheListingsBegin();
    void proxyIsThatOfTheConnection_data();
    void proxyIsThatOfTheConnection();
    void doneComesWhereTheRestIsDropped_data();
    void doneComesWhereTheRestIsDropped();
    void longListing();
    // --- rainy day flows
    void rawUploadHasNothingToSend();
    void dataWithoutACommandIsRefused();
    void unreadBytesOutliveTheConnection();
    void unreadBytesDontStopTheClock_data();
    void unreadBytesDontStopTheClock();

private:
    std::unique_ptr<Server> m_server;
    std::unique_ptr<QFtp> m_ftp;
    std::unique_ptr<FtpRun> m_run;
};

void tst_QFtpSteps::init()
{
    failOnUnexpectedWarnings();
    m_server = std::make_unique<Server>(QHostAddress(kAddress));
    m_ftp = std::make_unique<QFtp>();
    m_run = std::make_unique<FtpRun>(*m_ftp, m_server->host(), m_server->port());
}

void tst_QFtpSteps::cleanup()
{
    m_run.reset();
    m_ftp.reset();
    m_server.reset();
}

void tst_QFtpSteps::noPasswordWhereNoneIsAskedFor()
{
    m_server->answer("USER", "230 No password needed\r\n");
    QVERIFY(m_run->run(QStringLiteral("connect login cd")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login cd"));
    QCOMPARE(m_server->lines, Lines({"USER anonymous", "CWD Data"}));
    QCOMPARE(m_run->states, QList<int>({1, 2, 3, 4}));
}

void tst_QFtpSteps::extendedFormIsAskedAgainOnANewConnection()
{
    if (!QTcpServer().listen(QHostAddress::LocalHostIPv6))
        QSKIP("this machine has no IPv6 loopback");
    Server server(QHostAddress(QHostAddress::LocalHostIPv6));
    server.answer("EPSV", "500 No\r\n");
    server.answer("PASV", "502 Neither\r\n");
    FtpRun run(*m_ftp, server.host(), server.port());
    QVERIFY(run.run(QStringLiteral("connect list")));
    QVERIFY(run.run(QStringLiteral("list")));
    QCOMPARE(server.lines, Lines({"TYPE A", "EPSV", "PASV", "TYPE A", "PASV"}));
    server.reset();
    QVERIFY(run.run(QStringLiteral("connect list")));
    QVERIFY2(!run.doneError, qPrintable(run.errorText));
    QCOMPARE(server.lines, Lines({"TYPE A", "EPSV", "LIST Data"}));
}

void tst_QFtpSteps::rawTransferLeavesDevicesAlone()
{
    QVERIFY(m_run->run(QStringLiteral("connect login")));
    QBuffer device;
    QVERIFY(device.open(QIODevice::WriteOnly));
    m_ftp->get(QStringLiteral("a.wav"), &device);
    QVERIFY(m_run->waitForDone(2));
    QCOMPARE(device.data(), m_server->file);
    m_server->file = "other bytes";
    m_run->progress.clear();
    QVERIFY(m_run->run(QStringLiteral("raw:PASV raw:RETR_other")));
    QCOMPARE(device.data(), QByteArray("0123456789"));
    QCOMPARE(m_run->received(), m_server->file);
    // Nobody has asked for the size.
    QCOMPARE(m_run->progress, (QList<std::pair<qlonglong, qlonglong>>{{11, 0}}));
}

void tst_QFtpSteps::rawTransferBehindACutListing()
{
    m_server->listing += "-rw-r--r-- 1 ftp ftp 10 Mar 04 2021 cut";
    QVERIFY(m_run->run(QStringLiteral("connect login list raw:PASV raw:LIST")));
    QCOMPARE(m_run->entries, QStringList({"a.wav", "Data", "a.wav", "Data"}));
}

void tst_QFtpSteps::rawSizeIsTheTotal()
{
    QVERIFY(m_run->run(QStringLiteral("connect login raw:SIZE_x raw:PASV raw:RETR_x")));
    QCOMPARE(m_run->progress, (QList<std::pair<qlonglong, qlonglong>>{{10, 10}}));
}

void tst_QFtpSteps::rawListingInSmallLetters()
{
    m_server->handle("list", [](Server& s, const QByteArray& argument) { s.behave("LIST", argument); });
    QVERIFY(m_run->run(QStringLiteral("connect login raw:PASV raw:list")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login raw:PASV raw:list"));
    QCOMPARE(m_run->entries, QStringList({"a.wav", "Data"}));
    QCOMPARE(m_run->received(), QByteArray());
}

void tst_QFtpSteps::rangeIsThatOfTheListingsBegin()
{
    m_server->handle("LIST", [](Server& s, const QByteArray&) {
        s.reply("150 Listing\r\n");
        s.withData([&s](QTcpSocket& data) {
            data.write(s.listing);
            data.flush();
        });
    });
    QSignalSpy batches(m_ftp.get(), &QFtp::listInfoS);
    connect(m_ftp.get(), &QFtp::listInfoS, m_server.get(), [this, &batches] {
        m_ftp->setTimeRange(kStart, kStart.addDays(1), false);
        if (batches.size() == 1)
            m_server->sendFile(m_server->listing, "226 Listed\r\n");
    });
    QVERIFY(m_run->run(QStringLiteral("connect list")));
    QCOMPARE(m_run->entries, QStringList({"a.wav", "Data", "a.wav", "Data"}));
    m_server->handle("LIST", [](Server& s, const QByteArray&) { s.behave("LIST"); });
    QVERIFY(m_run->run(QStringLiteral("list")));
    QCOMPARE(m_run->entryCount, 4);
}

void tst_QFtpSteps::proxyIsThatOfTheConnection_data()
{
    QTest::addColumn<bool>("isBefore");
    QTest::addColumn<QByteArray>("user");
    QTest::newRow("taken away behind the connection") << true << QByteArray("USER anonymous@recorder");
    QTest::newRow("given behind the connection") << false << QByteArray("USER anonymous");
}

void tst_QFtpSteps::proxyIsThatOfTheConnection()
{
    QFETCH(bool, isBefore);
    QFETCH(QByteArray, user);
    if (isBefore) {
        m_ftp->setProxy(m_server->host(), m_server->port());
        m_ftp->connectToHost(QStringLiteral("recorder"), 21);
        m_ftp->setProxy(QString(), 0);
    } else {
        m_ftp->connectToHost(m_server->host(), m_server->port());
        m_ftp->setProxy(QStringLiteral("gate"), 2121);
    }
    m_ftp->login();
    QVERIFY(m_run->waitForDone());
    QVERIFY2(!m_run->doneError, qPrintable(m_run->errorText));
    QCOMPARE(m_server->lines.first(), user);
}

void tst_QFtpSteps::doneComesWhereTheRestIsDropped_data()
{
    QTest::addColumn<QString>("next");
    QTest::newRow("nothing follows") << QString();
    QTest::newRow("another command in its place") << QStringLiteral("raw:NOOP");
}

void tst_QFtpSteps::doneComesWhereTheRestIsDropped()
{
    QFETCH(QString, next);
    // Between the end of one command and the begin of the next.
    connect(m_ftp.get(), &QFtp::commandFinished, m_ftp.get(), [this, next] {
        if (m_run->finished.size() == 1)
            QTimer::singleShot(0, m_ftp.get(), [this, next] {
                QCOMPARE(m_ftp->currentId(), 0);
                m_ftp->clearPendingCommands();
                m_ftp->abort();
                m_run->queue(next);
            });
    });
    QVERIFY(m_run->run(QStringLiteral("connect cd list")));
    QCOMPARE(m_run->outcome(), (QStringLiteral("connect ") + next).trimmed());
    QVERIFY(!m_run->doneError);
    // There is no second one to come.
    QVERIFY(m_run->run(QStringLiteral("cd")));
    QCOMPARE(m_run->doneCount, 2);
    QCOMPARE(m_run->finished.last(), QStringLiteral("cd"));
}

void tst_QFtpSteps::longListing()
{
    constexpr int kLines = 1000;
    const int blocks = qEnvironmentVariableIntValue("NVX_LISTING_LINES") / kLines;
    QVERIFY(blocks > 1);
    constexpr qsizetype kReadAtOnce = 1 << 20;
    QByteArray block;
    for (int i = 0; i < kLines; ++i)
        block += "-rw-r--r--    1 ftp      ftp       1234567 Mar 04  2021 REC1234_20210304_" +
                 QByteArray::number(100000 + i) + ".wav\r\n";
    new LongListing(*m_server, block, blocks);
    QFtp ftp;
    qsizetype count = 0;
    qsizetype most = 0;
    QString last;
    connect(&ftp, &QFtp::listInfoS, this, [&](const QList<QUrlInfo>& batch) {
        count += batch.size();
        most = qMax(most, batch.size());
        last = batch.last().name();
    });
    QSignalSpy done(&ftp, &QFtp::done);
    ftp.connectToHost(m_server->host(), m_server->port());
    ftp.list();
    QVERIFY(done.wait(120000));
    QCOMPARE(done[0][0].toBool(), false);
    QCOMPARE(count, qsizetype(blocks) * kLines);
    QCOMPARE(last, QStringLiteral("REC1234_20210304_100999.wav"));
    // What the client holds is what one look at the socket brings, however long the listing is.
    QVERIFY2(most <= 2 * kReadAtOnce / (block.size() / kLines), qPrintable(QString::number(most)));
}

void tst_QFtpSteps::rawUploadHasNothingToSend()
{
    QVERIFY(m_run->run(QStringLiteral("connect login put raw:PASV raw:STOR_x")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login put raw:PASV raw:STOR_x!"));
    QCOMPARE(m_run->errorText, QStringLiteral("There is nothing to send"));
    QVERIFY(m_run->run(QStringLiteral("put")));
    QVERIFY2(!m_run->doneError, qPrintable(m_run->errorText));
}

void tst_QFtpSteps::dataWithoutACommandIsRefused()
{
    QVERIFY(m_run->run(QStringLiteral("connect login raw:PASV")));
    bool isClosed = false;
    m_server->withData([&](QTcpSocket& data) {
        connect(&data, &QTcpSocket::disconnected, this, [&] { isClosed = true; });
        data.write("early");
    });
    QTRY_VERIFY(isClosed);
    QCOMPARE(m_ftp->bytesAvailable(), 0);
    QVERIFY(m_run->run(QStringLiteral("get")));
    QCOMPARE(m_run->received(), m_server->file);
}

void tst_QFtpSteps::unreadBytesOutliveTheConnection()
{
    QFtp ftp;
    QSignalSpy done(&ftp, &QFtp::done);
    ftp.connectToHost(m_server->host(), m_server->port());
    ftp.get(QStringLiteral("a.wav"));
    QVERIFY(done.wait(kPatienceMs));
    m_server->closeControl();
    QTRY_COMPARE(ftp.state(), QFtp::Unconnected);
    QCOMPARE(ftp.bytesAvailable(), m_server->file.size());
    char first = 0;
    QCOMPARE(ftp.read(&first, 1), 1);
    ftp.connectToHost(m_server->host(), m_server->port());
    ftp.connectToHost(m_server->host(), m_server->port());
    QVERIFY(done.wait(kPatienceMs));
    QCOMPARE(ftp.readAll(), m_server->file.sliced(1));
}

void tst_QFtpSteps::unreadBytesDontStopTheClock_data()
{
    QTest::addColumn<QString>("words");
    QTest::addColumn<QByteArray>("silent");
    QTest::newRow("the rest of the file") << "get" << QByteArray("RETR");
    QTest::newRow("next command") << "get cd" << QByteArray("CWD");
    QTest::newRow("close") << "get close" << QByteArray("QUIT");
}

void tst_QFtpSteps::unreadBytesDontStopTheClock()
{
    QFETCH(QString, words);
    QFETCH(QByteArray, silent);
    m_server->file = QByteArray(100000, 'f');
    m_server->handle(silent, [silent](Server& s, const QByteArray&) {
        if (silent == "RETR") {
            s.reply("150 File\r\n");
            s.withData([&s](QTcpSocket& data) { data.write(s.file); });
        }
    });
    QFtp ftp;
    QSignalSpy done(&ftp, &QFtp::done);
    connect(&ftp, &QFtp::commandStarted, &ftp, [&ftp] {
        if (!ftp.hasPendingCommands())
            ftp.setInactivityLimit(300);
    });
    ftp.connectToHost(m_server->host(), m_server->port());
    ftp.get(QStringLiteral("a.wav"));
    if (words.endsWith(u"cd"))
        ftp.cd(QStringLiteral("Data"));
    if (words.endsWith(u"close"))
        ftp.close();
    QVERIFY(done.wait(kPatienceMs));
    QCOMPARE(done[0][0].toBool(), true);
    QCOMPARE(ftp.errorString(), QStringLiteral("Connection timed out to host ") + kAddress);
    QCOMPARE(ftp.state(), QFtp::Unconnected);
}

QTEST_GUILESS_MAIN(tst_QFtpSteps)
#include "tst_QFtpSteps.moc"
