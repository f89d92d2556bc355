#include "NvxQtCommon/transfer/QFtp.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/Patience.h"
#include "tests/support/SpyWait.h"
#include "tests/transfer/FtpRun.h"
#include "tests/transfer/ScriptedFtpServer.h"

#include <QTcpServer>

namespace {

using Server = ScriptedFtpServer;

/// RETR sends half of the file and waits for what comes.
void sendHalf(Server& server)
{
    server.handle("RETR", [](Server& s, const QByteArray&) {
        s.reply("150 File\r\n");
        s.withData([&s](QTcpSocket& data) {
            data.write(s.file.first(5));
            data.flush();
        });
    });
}

} // namespace

class tst_QFtpAbort : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    // --- happy flows
    void transferEndsAsFailed_data();
    void transferEndsAsFailed();
    void uploadIsCutAtOnce();
    void lateEndOfTheTransfer_data();
    void lateEndOfTheTransfer();
    void listingIsAborted();
    void plainCommandIsAborted();
    void nextCommandWorks();
    // --- rainy day flows
    void withoutACommandNothingHappens();
    void isSentOnlyOnce();
    void unansweredAbortEndsByTheLimit();
    void connectionLostDuringTheAbort();
    void beforeTheGreeting();
    void dataOfAnAbortedTransferIsThrownAway();
    void fromInsideEachSignal_data();
    void fromInsideEachSignal();
    void pendingCommandsAreDropped();
    void whileTheReplyIsHeld();
    void beforeTheDataConnectionStands();
    void whileTheDataConnectionIsMade();

private:
    bool reach(const QString& words, const QByteArray& line);
    void tryAgain();

    std::unique_ptr<Server> m_server;
    std::unique_ptr<QFtp> m_ftp;
    std::unique_ptr<FtpRun> m_run;
};

void tst_QFtpAbort::init()
{
    failOnUnexpectedWarnings();
    m_server = std::make_unique<Server>(QHostAddress(QStringLiteral("127.62.6.3")));
    m_ftp = std::make_unique<QFtp>();
    m_run = std::make_unique<FtpRun>(*m_ftp, m_server->host(), m_server->port());
}

void tst_QFtpAbort::cleanup()
{
    m_run.reset();
    m_ftp.reset();
    m_server.reset();
}

/// Queues the words and waits until the server got the line.
bool tst_QFtpAbort::reach(const QString& words, const QByteArray& line)
{
    m_run->queue(words);
    QSignalSpy spy(m_server.get(), &Server::lineReceived);
    while (!m_server->lines.contains(line)) {
        if (!spy.wait(10000))
            return false;
    }
    return true;
}

/// A client whose command was aborted works on.
void tst_QFtpAbort::tryAgain()
{
    m_server->reset();
    FtpRun again(*m_ftp, m_server->host(), m_server->port());
    QVERIFY(again.run(QStringLiteral("connect login list get put close")));
    QCOMPARE(again.outcome(), QStringLiteral("connect login list get put close"));
    QCOMPARE(again.received(), m_server->file);
}

void tst_QFtpAbort::transferEndsAsFailed_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<bool>("isDataCut");
    QTest::addColumn<QString>("text");
    QTest::newRow("426 and 226") << QByteArray("426 Cut\r\n226 Aborted\r\n") << true << "Aborted";
    QTest::newRow("226 and 226") << QByteArray("226 Sent\r\n226 Aborted\r\n") << true << "Aborted";
    QTest::newRow("226 and 225") << QByteArray("226 Sent\r\n225 Nothing\r\n") << true << "Nothing";
    QTest::newRow("426 and 225") << QByteArray("426 Cut\r\n225 Nothing\r\n") << true << "Nothing";
    QTest::newRow("451 and 226") << QByteArray("451 Cut\r\n226 Aborted\r\n") << true << "Aborted";
    QTest::newRow("225 alone") << QByteArray("225 Nothing\r\n") << true << "Nothing";
    QTest::newRow("202 alone") << QByteArray("202 What?\r\n") << false << "What?";
    QTest::newRow("502 and then the transfer's end")
        << QByteArray("502 What?\r\n226 Sent\r\n") << true << "Sent";
    QTest::newRow("150 in between") << QByteArray("150 More\r\n426 Cut\r\n150 More\r\n226 Aborted\r\n")
                                    << false << "Aborted";
    QTest::newRow("several lines") << QByteArray("426-Cut\r\n226 no\r\n426 Cut\r\n226 Aborted\r\n") << true
                                   << "Aborted";
}

void tst_QFtpAbort::transferEndsAsFailed()
{
    QFETCH(QByteArray, answer);
    QFETCH(bool, isDataCut);
    QFETCH(QString, text);
    sendHalf(*m_server);
    m_server->handle("ABOR", [answer, isDataCut](Server& s, const QByteArray&) {
        if (isDataCut)
            s.withData([](QTcpSocket& data) { data.disconnectFromHost(); });
        s.reply(answer);
    });
    connect(m_ftp.get(), &QFtp::dataTransferProgress, m_ftp.get(), &QFtp::abort);
    QVERIFY(m_run->run(QStringLiteral("connect login get cd")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login get!"));
    QCOMPARE(m_run->doneCount, 1);
    QCOMPARE(m_ftp->error(), QFtp::UnknownError);
    QCOMPARE(m_run->errorText, QStringLiteral("Downloading file failed:\n") + text);
    QCOMPARE(m_server->lines.last(), QByteArray("ABOR"));
    QCOMPARE(m_ftp->state(), QFtp::LoggedIn);
    m_ftp->disconnect(m_ftp.get());
    tryAgain();
}

void tst_QFtpAbort::uploadIsCutAtOnce()
{
    // Answers only when the data connection has ended.
    m_server->handle("ABOR", [](Server& s, const QByteArray&) {
        s.withData([&s](QTcpSocket& data) {
            data.disconnect(&s);
            QObject::connect(&data, &QTcpSocket::readyRead, &s,
                             [&s, &data] { s.uploaded += data.readAll(); });
            QObject::connect(&data, &QTcpSocket::disconnected, &s,
                             [&s] { s.reply("426 Cut\r\n226 Aborted\r\n"); });
            data.setReadBufferSize(0);
            s.uploaded += data.readAll();
        });
    });
    m_server->handle("STOR", [](Server& s, const QByteArray&) {
        s.reply("150 Come\r\n");
        // Takes a little, and then lets the client wait.
        s.withData([&s](QTcpSocket& data) {
            data.setReadBufferSize(1000);
            QObject::connect(&data, &QTcpSocket::readyRead, &s, [&s, &data] {
                if (s.uploaded.isEmpty())
                    s.uploaded = data.readAll();
            });
        });
    });
    m_run->toPut = QByteArray(64 << 20, 'u');
    connect(m_ftp.get(), &QFtp::dataTransferProgress, m_ftp.get(), &QFtp::abort);
    QVERIFY(m_run->run(QStringLiteral("connect login put")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login put!"));
    QVERIFY(m_server->uploaded.size() < m_run->toPut.size());
    QCOMPARE(m_run->errorText, QStringLiteral("Uploading file failed:\nAborted"));
    m_ftp->disconnect(m_ftp.get());
    tryAgain();
}

void tst_QFtpAbort::lateEndOfTheTransfer_data()
{
    QTest::addColumn<QByteArray>("abort");
    QTest::addColumn<QByteArray>("next");
    QTest::addColumn<QString>("words");
    const QByteArray good = "250 Here\r\n";
    QTest::newRow("426") << QByteArray("225 Nothing\r\n") << "426 Cut\r\n" + good << "cd cd";
    QTest::newRow("226") << QByteArray("202 What?\r\n") << "226 Sent\r\n" + good << "cd cd";
    QTest::newRow("none") << QByteArray("225 Nothing\r\n") << good << "cd get cd";
    QTest::newRow("none ahead of a transfer") << QByteArray("225 Nothing\r\n") << good << "get cd";
    // What came with the answer isn't due any more.
    QTest::newRow("all in time") << QByteArray("426 Cut\r\n225 Nothing\r\n") << good << "raw:SITE cd";
}

void tst_QFtpAbort::lateEndOfTheTransfer()
{
    QFETCH(QByteArray, abort);
    QFETCH(QByteArray, next);
    QFETCH(QString, words);
    sendHalf(*m_server);
    m_server->answer("ABOR", abort);
    m_server->answer("SITE", "226 Fine\r\n");
    QVERIFY(reach(QStringLiteral("connect login get"), "RETR a.wav"));
    m_ftp->abort();
    QVERIFY(m_run->waitForDone());
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login get!"));
    m_server->handle("RETR", [](Server& s, const QByteArray&) { s.behave("RETR"); });
    bool isFirst = true;
    m_server->handle("CWD", [next, &isFirst](Server& s, const QByteArray&) {
        s.reply(std::exchange(isFirst, false) ? next : QByteArray("250 Here\r\n"));
    });
    FtpRun again(*m_ftp, m_server->host(), m_server->port());
    QVERIFY(again.run(words));
    QCOMPARE(again.outcome(), words);
    QVERIFY(again.replies == QStringList() || again.replies == QStringList("226 Fine"));
}

void tst_QFtpAbort::listingIsAborted()
{
    m_server->handle("LIST", [](Server& s, const QByteArray&) {
        s.reply("150 Listing\r\n");
        s.withData([&s](QTcpSocket& data) { data.write(s.listing); });
    });
    connect(m_ftp.get(), &QFtp::listInfoS, m_ftp.get(), &QFtp::abort);
    QVERIFY(m_run->run(QStringLiteral("connect login list")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login list!"));
    QCOMPARE(m_run->errorText, QStringLiteral("Listing directory failed:\nAbort done"));
    m_ftp->disconnect(m_ftp.get());
    tryAgain();
}

void tst_QFtpAbort::plainCommandIsAborted()
{
    m_server->answer("CWD", "");
    m_server->answer("ABOR", "250 Here after all\r\n225 Nothing\r\n");
    QVERIFY(reach(QStringLiteral("connect login cd"), "CWD Data"));
    m_ftp->abort();
    QVERIFY(m_run->waitForDone());
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login cd!"));
    tryAgain();
}

void tst_QFtpAbort::nextCommandWorks()
{
    sendHalf(*m_server);
    QVERIFY(reach(QStringLiteral("connect login get"), "RETR a.wav"));
    m_ftp->abort();
    QVERIFY(m_run->waitForDone());
    // On the same connection.
    m_server->handle("RETR", [](Server& s, const QByteArray&) { s.behave("RETR"); });
    FtpRun again(*m_ftp, m_server->host(), m_server->port());
    QVERIFY(again.run(QStringLiteral("get list cd")));
    QCOMPARE(again.outcome(), QStringLiteral("get list cd"));
    QCOMPARE(again.received(), m_server->file);
    QCOMPARE(m_server->connections, 1);
}

void tst_QFtpAbort::withoutACommandNothingHappens()
{
    m_ftp->abort();
    QVERIFY(m_run->run(QStringLiteral("connect login")));
    m_ftp->abort();
    // A command that waits for its turn isn't running yet.
    m_run->queue(QStringLiteral("cd"));
    m_ftp->abort();
    QVERIFY(m_run->waitForDone(2));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login cd"));
    QVERIFY(!m_server->lines.contains("ABOR"));
}

void tst_QFtpAbort::isSentOnlyOnce()
{
    sendHalf(*m_server);
    QVERIFY(reach(QStringLiteral("connect login get"), "RETR a.wav"));
    m_ftp->abort();
    m_ftp->abort();
    QVERIFY(m_run->waitForDone());
    m_ftp->abort();
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login get!"));
    QCOMPARE(m_server->lines.count("ABOR"), 1);
}

void tst_QFtpAbort::unansweredAbortEndsByTheLimit()
{
    sendHalf(*m_server);
    m_server->answer("ABOR", "");
    QVERIFY(reach(QStringLiteral("connect login get"), "RETR a.wav"));
    m_ftp->setInactivityLimit(200);
    m_ftp->abort();
    QVERIFY(m_run->waitForDone());
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login get!"));
    QCOMPARE(m_run->errorText, QStringLiteral("Connection timed out to host 127.62.6.3"));
    m_ftp->setInactivityLimit(0);
    tryAgain();
}

void tst_QFtpAbort::connectionLostDuringTheAbort()
{
    sendHalf(*m_server);
    m_server->handle("ABOR", [](Server& s, const QByteArray&) { s.closeControl(); });
    QVERIFY(reach(QStringLiteral("connect login get"), "RETR a.wav"));
    m_ftp->abort();
    QVERIFY(m_run->waitForDone());
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login get!"));
    QCOMPARE(m_run->errorText, QStringLiteral("Connection closed"));
    tryAgain();
}

void tst_QFtpAbort::beforeTheGreeting()
{
    m_server->greeting.clear();
    m_run->queue(QStringLiteral("connect login"));
    QSignalSpy states(m_ftp.get(), &QFtp::stateChanged);
    while (m_ftp->state() != QFtp::Connected)
        QVERIFY(states.wait(10000));
    m_ftp->abort();
    QVERIFY(m_run->waitForDone());
    QCOMPARE(m_run->outcome(), QStringLiteral("connect!"));
    QCOMPARE(m_ftp->state(), QFtp::Unconnected);
    tryAgain();
}

void tst_QFtpAbort::dataOfAnAbortedTransferIsThrownAway()
{
    // A server that looks at ABOR only when it has sent all.
    m_server->file = QByteArray(8 << 20, 'f');
    m_server->answer("ABOR", "225 Nothing\r\n");
    m_server->handle("RETR", [](Server& s, const QByteArray&) {
        s.reply("150 File\r\n");
        s.sendFile(s.file, "");
    });
    connect(m_ftp.get(), &QFtp::readyRead, m_ftp.get(), &QFtp::abort);
    qsizetype reads = 0;
    connect(m_ftp.get(), &QFtp::readyRead, m_ftp.get(), [&reads] { ++reads; });
    QVERIFY(m_run->run(QStringLiteral("connect login read")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login read!"));
    QCOMPARE(reads, 1);
    QVERIFY(m_run->received().size() < m_server->file.size());
    QCOMPARE(m_ftp->bytesAvailable(), 0);
    m_ftp->disconnect(m_ftp.get());
    tryAgain();
}

void tst_QFtpAbort::fromInsideEachSignal_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<QString>("outcome");
    QTest::newRow("commandStarted") << 0 << "connect!";
    QTest::newRow("commandFinished") << 1 << "connect login list read put raw:NOOP close";
    QTest::newRow("stateChanged, host look-up") << 2 << "connect!";
    QTest::newRow("stateChanged, connecting") << 3 << "connect!";
    QTest::newRow("stateChanged, connected") << 4 << "connect!";
    QTest::newRow("stateChanged, logged in") << 5 << "connect login!";
    QTest::newRow("stateChanged, closing") << 6 << "connect login list read put raw:NOOP close!";
    QTest::newRow("stateChanged, unconnected") << 7 << "connect login list read put raw:NOOP close";
    QTest::newRow("listInfoS") << 8 << "connect login list!";
    QTest::newRow("readyRead") << 9 << "connect login list read!";
    QTest::newRow("progress") << 10 << "connect login list read!";
    QTest::newRow("rawCommandReply") << 11 << "connect login list read put raw:NOOP!";
    QTest::newRow("done") << 12 << "connect login list read put raw:NOOP close";
}

void tst_QFtpAbort::fromInsideEachSignal()
{
    QFETCH(int, signal);
    QFETCH(QString, outcome);
    QFtp* ftp = m_ftp.get();
    const auto abortAt = [ftp](QFtp::State wanted) {
        return [ftp, wanted](int state) {
            if (state == wanted)
                ftp->abort();
        };
    };
    switch (signal) {
    case 0:
        connect(ftp, &QFtp::commandStarted, ftp, &QFtp::abort);
        break;
    case 1:
        connect(ftp, &QFtp::commandFinished, ftp, &QFtp::abort);
        break;
    case 2:
        connect(ftp, &QFtp::stateChanged, ftp, abortAt(QFtp::HostLookup));
        break;
    case 3:
        connect(ftp, &QFtp::stateChanged, ftp, abortAt(QFtp::Connecting));
        break;
    case 4:
        connect(ftp, &QFtp::stateChanged, ftp, abortAt(QFtp::Connected));
        break;
    case 5:
        connect(ftp, &QFtp::stateChanged, ftp, abortAt(QFtp::LoggedIn));
        break;
    case 6:
        connect(ftp, &QFtp::stateChanged, ftp, abortAt(QFtp::Closing));
        break;
    case 7:
        connect(ftp, &QFtp::stateChanged, ftp, abortAt(QFtp::Unconnected));
        break;
    case 8:
        connect(ftp, &QFtp::listInfoS, ftp, &QFtp::abort);
        break;
    case 9:
        connect(ftp, &QFtp::readyRead, ftp, &QFtp::abort);
        break;
    case 10:
        connect(ftp, &QFtp::dataTransferProgress, ftp, &QFtp::abort);
        break;
    case 11:
        connect(ftp, &QFtp::rawCommandReply, ftp, &QFtp::abort);
        break;
    default:
        connect(ftp, &QFtp::done, ftp, &QFtp::abort);
    }
    // The end of what a connection sends has come when the ABOR is read.
    m_server->handle("ABOR", [](Server& s, const QByteArray&) { s.reply("225 Nothing\r\n"); });
    QVERIFY(m_run->run(QStringLiteral("connect login list read put raw:NOOP close")));
    QCOMPARE(m_run->outcome(), outcome);
    QCOMPARE(m_run->doneCount, 1);
    QCOMPARE(m_run->started.size(), m_run->finished.size());
    ftp->disconnect(ftp);
    tryAgain();
}

void tst_QFtpAbort::pendingCommandsAreDropped()
{
    sendHalf(*m_server);
    QVERIFY(reach(QStringLiteral("connect login get cd list close"), "RETR a.wav"));
    QVERIFY(m_ftp->hasPendingCommands());
    m_ftp->clearPendingCommands();
    QVERIFY(!m_ftp->hasPendingCommands());
    QCOMPARE(m_ftp->currentCommand(), QFtp::Get);
    m_ftp->abort();
    QVERIFY(m_run->waitForDone());
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login get!"));
}

void tst_QFtpAbort::whileTheReplyIsHeld()
{
    m_server->handle("RETR", [](Server& s, const QByteArray&) {
        s.reply("150 File\r\n226 Sent\r\n");
        s.withData([&s](QTcpSocket& data) { data.write(s.file); });
    });
    m_server->answer("ABOR", "226 Aborted\r\n");
    connect(m_ftp.get(), &QFtp::dataTransferProgress, m_server.get(), [this] {
        // Behind what the server has written at once.
        QTimer::singleShot(100, m_ftp.get(), &QFtp::abort);
    });
    QVERIFY(m_run->run(QStringLiteral("connect login get")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login get!"));
    tryAgain();
}

void tst_QFtpAbort::beforeTheDataConnectionStands()
{
    m_server->handle("PASV", [](Server& s, const QByteArray&) {
        s.reply("227 (" + s.endpoint(s.listenForData()) + ")\r\n");
    });
    m_server->answer("ABOR", "225 Nothing\r\n");
    QVERIFY(reach(QStringLiteral("connect login get"), "PASV"));
    m_ftp->abort();
    QVERIFY(m_run->waitForDone());
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login get!"));
    tryAgain();
}

void tst_QFtpAbort::whileTheDataConnectionIsMade()
{
    // A port whose backlog is full doesn't answer.
    QTcpServer full;
    full.setListenBacklogSize(1);
    QVERIFY(full.listen(QHostAddress(QStringLiteral("127.62.6.3"))));
    full.pauseAccepting();
    QTcpSocket waiting[2];
    for (QTcpSocket& socket : waiting) {
        socket.connectToHost(full.serverAddress(), full.serverPort());
        QVERIFY(socket.waitForConnected(kPatienceMs));
    }
    m_server->handle("PASV", [&full](Server& s, const QByteArray&) {
        s.reply("227 (" + s.endpoint(full.serverPort()) + ")\r\n");
    });
    m_server->answer("ABOR", "225 Nothing\r\n");
    const auto isConnecting = [this] {
        const auto* socket = m_ftp->findChild<QTcpSocket*>(QStringLiteral("QFtpDTP Passive state socket"));
        return socket != nullptr && socket->state() == QAbstractSocket::ConnectingState;
    };
    m_run->queue(QStringLiteral("connect login get"));
    QTRY_VERIFY(isConnecting());
    m_ftp->abort();
    // Were it to stand after all, the command would end well.
    QVERIFY(!isConnecting());
    QVERIFY(m_run->waitForDone());
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login get!"));
    QCOMPARE(m_run->errorText, QStringLiteral("Downloading file failed:\nNothing"));
    tryAgain();
}

QTEST_GUILESS_MAIN(tst_QFtpAbort)
#include "tst_QFtpAbort.moc"
