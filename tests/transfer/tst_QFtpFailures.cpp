#include "NvxQtCommon/transfer/QFtp.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"
#include "tests/transfer/FtpRun.h"
#include "tests/transfer/ScriptedFtpServer.h"

#include <QTcpServer>

namespace {

using Server = ScriptedFtpServer;
using Lines = QList<QByteArray>;

} // namespace

class tst_QFtpFailures : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    // --- rainy day flows
    void notConnected_data();
    void notConnected();
    void connectFailures();
    void failureDropsTheRest();
    void retryFromTheSlotOfAFailure();
    void errorLastsUntilTheNextCommand();
    void framesOfErrors_data();
    void framesOfErrors();
    void lineBreaksAreRefused_data();
    void lineBreaksAreRefused();
    void bareActiveLineOverIpv6();
    void clearPendingCommands();
    void lostBetweenCommands();
    void errorWithoutACommandWarns();
    void destroyedInMidTransfer_data();
    void destroyedInMidTransfer();
    void limitIsOffUntilSet();

private:
    std::unique_ptr<Server> m_server;
    std::unique_ptr<QFtp> m_ftp;
    std::unique_ptr<FtpRun> m_run;
};

void tst_QFtpFailures::init()
{
    failOnUnexpectedWarnings();
    m_server = std::make_unique<Server>(QHostAddress(QStringLiteral("127.62.6.7")));
    m_ftp = std::make_unique<QFtp>();
    m_run = std::make_unique<FtpRun>(*m_ftp, m_server->host(), m_server->port());
}

void tst_QFtpFailures::cleanup()
{
    m_run.reset();
    m_ftp.reset();
    m_server.reset();
}

void tst_QFtpFailures::notConnected_data()
{
    QTest::addColumn<QString>("word");
    for (const char* word : {"login", "list", "cd", "get", "read", "put", "remove", "mkdir", "rmdir",
                             "rename", "raw:NOOP", "close"})
        QTest::newRow(word) << QString::fromLatin1(word);
}

void tst_QFtpFailures::notConnected()
{
    QFETCH(QString, word);
    QVERIFY(m_run->run(QStringLiteral("active passive ") + word + QStringLiteral(" cd")));
    QCOMPARE(m_run->outcome(), QStringLiteral("active passive ") + word + u'!');
    QCOMPARE(m_ftp->error(), QFtp::NotConnected);
    QCOMPARE(m_run->errorText, QStringLiteral("Not connected"));
    QVERIFY(m_run->doneError);
}

void tst_QFtpFailures::connectFailures()
{
    QTcpServer none;
    QVERIFY(none.listen(QHostAddress(QStringLiteral("127.62.6.7"))));
    const quint16 port = none.serverPort();
    none.close();
    m_ftp->connectToHost(QStringLiteral("127.62.6.7"), port);
    QVERIFY(m_run->waitForDone());
    QCOMPARE(m_ftp->error(), QFtp::ConnectionRefused);
    QCOMPARE(m_run->errorText, QStringLiteral("Connection refused to host 127.62.6.7"));
    QCOMPARE(m_run->states, QList<int>({1, 2, 0}));

    m_run->states.clear();
    m_ftp->connectToHost(QStringLiteral("no..such..host"), 21);
    QVERIFY(m_run->waitForDone(2));
    QCOMPARE(m_ftp->error(), QFtp::HostNotFound);
    QCOMPARE(m_run->errorText, QStringLiteral("Host no..such..host not found"));
    QCOMPARE(m_run->states, QList<int>({1, 0}));
    QVERIFY(m_run->run(QStringLiteral("connect login close")));
    QVERIFY(!m_run->doneError);
}

void tst_QFtpFailures::failureDropsTheRest()
{
    m_server->answer("CWD", "550 No\r\n");
    QVERIFY(m_run->run(QStringLiteral("connect login cd list get close")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect login cd!"));
    QCOMPARE(m_run->started.size(), 3);
    QVERIFY(!m_ftp->hasPendingCommands());
    QCOMPARE(m_server->lines.last(), QByteArray("CWD Data"));
    QCOMPARE(m_ftp->state(), QFtp::LoggedIn);
}

void tst_QFtpFailures::retryFromTheSlotOfAFailure()
{
    m_server->answer("CWD", "550 No\r\n");
    bool isAgain = false;
    connect(m_ftp.get(), &QFtp::commandFinished, this, [&](int, bool error) {
        if (error && !std::exchange(isAgain, true))
            m_run->queue(QStringLiteral("raw:NOOP"));
    });
    QVERIFY(m_run->run(QStringLiteral("connect cd list")));
    QVERIFY(m_run->waitForDone(2));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect cd! raw:NOOP"));
    QVERIFY(!m_run->doneError);
}

void tst_QFtpFailures::errorLastsUntilTheNextCommand()
{
    m_server->answer("CWD", "550 No\r\n");
    QVERIFY(m_run->run(QStringLiteral("connect cd")));
    QCOMPARE(m_ftp->error(), QFtp::UnknownError);
    QCOMPARE(m_ftp->errorString(), QStringLiteral("Changing directory failed:\nNo"));
    QVERIFY(m_run->run(QStringLiteral("raw:NOOP")));
    QCOMPARE(m_ftp->error(), QFtp::NoError);
    QCOMPARE(m_ftp->errorString(), QStringLiteral("Unknown error"));
}

void tst_QFtpFailures::framesOfErrors_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QByteArray>("verb");
    QTest::addColumn<QString>("frame");
    QTest::newRow("login") << "login" << QByteArray("USER") << "Login failed:\n";
    QTest::newRow("list") << "list" << QByteArray("LIST") << "Listing directory failed:\n";
    QTest::newRow("cd") << "cd" << QByteArray("CWD") << "Changing directory failed:\n";
    QTest::newRow("get") << "get" << QByteArray("RETR") << "Downloading file failed:\n";
    QTest::newRow("put") << "put" << QByteArray("STOR") << "Uploading file failed:\n";
    QTest::newRow("remove") << "remove" << QByteArray("DELE") << "Removing file failed:\n";
    QTest::newRow("mkdir") << "mkdir" << QByteArray("MKD") << "Creating directory failed:\n";
    QTest::newRow("rmdir") << "rmdir" << QByteArray("RMD") << "Removing directory failed:\n";
    QTest::newRow("rename") << "rename" << QByteArray("RNTO") << "";
    QTest::newRow("raw") << "raw:NOOP" << QByteArray("NOOP") << "";
    QTest::newRow("close") << "close" << QByteArray("QUIT") << "";
}

void tst_QFtpFailures::framesOfErrors()
{
    QFETCH(QString, word);
    QFETCH(QByteArray, verb);
    QFETCH(QString, frame);
    m_server->answer(verb, "450-No %1\r\n450 at all\r\n");
    QVERIFY(m_run->run(QStringLiteral("connect ") + word));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect ") + word + u'!');
    QCOMPARE(m_run->errorText, frame + QStringLiteral("No %1\nat all"));
    QCOMPARE(m_ftp->error(), QFtp::UnknownError);
}

void tst_QFtpFailures::lineBreaksAreRefused_data()
{
    QTest::addColumn<std::function<void(QFtp&, QString)>>("queue");
    QTest::addColumn<QString>("text");
    using Queue = std::function<void(QFtp&, QString)>;
    const QList<std::pair<const char*, Queue>> commands = {
        {"host", [](QFtp& ftp, const QString& bad) { ftp.connectToHost(bad, 21); }},
        {"proxy", [](QFtp& ftp, const QString& bad) { ftp.setProxy(bad, 21); }},
        {"user", [](QFtp& ftp, const QString& bad) { ftp.login(bad, QStringLiteral("x")); }},
        {"password", [](QFtp& ftp, const QString& bad) { ftp.login(QStringLiteral("x"), bad); }},
        {"list", [](QFtp& ftp, const QString& bad) { ftp.list(bad); }},
        {"cd", [](QFtp& ftp, const QString& bad) { ftp.cd(bad); }},
        {"get", [](QFtp& ftp, const QString& bad) { ftp.get(bad); }},
        {"put", [](QFtp& ftp, const QString& bad) { ftp.put(QByteArray("x"), bad); }},
        {"remove", [](QFtp& ftp, const QString& bad) { ftp.remove(bad); }},
        {"mkdir", [](QFtp& ftp, const QString& bad) { ftp.mkdir(bad); }},
        {"rmdir", [](QFtp& ftp, const QString& bad) { ftp.rmdir(bad); }},
        {"old name", [](QFtp& ftp, const QString& bad) { ftp.rename(bad, QStringLiteral("x")); }},
        {"new name", [](QFtp& ftp, const QString& bad) { ftp.rename(QStringLiteral("x"), bad); }},
        {"raw", [](QFtp& ftp, const QString& bad) { ftp.rawCommand(bad); }},
    };
    const QList<std::pair<const char*, QString>> texts = {{"CR LF", QStringLiteral("a\r\nDELE b")},
                                                          {"LF", QStringLiteral("a\nDELE b")},
                                                          {"CR", QStringLiteral("a\rb")},
                                                          {"NUL", QStringLiteral("a") + QChar(0) + u'b'},
                                                          {"LF at the end", QStringLiteral("a\n")}};
    for (const auto& [command, queue] : commands) {
        for (const auto& [name, text] : texts)
            QTest::addRow("%s, %s", command, name) << queue << text;
    }
}

void tst_QFtpFailures::lineBreaksAreRefused()
{
    using Queue = std::function<void(QFtp&, QString)>;
    QFETCH(Queue, queue);
    QFETCH(QString, text);
    QVERIFY(m_run->run(QStringLiteral("connect")));
    queue(*m_ftp, text);
    m_ftp->rawCommand(QStringLiteral("NOOP"));
    QVERIFY(m_run->waitForDone(2));
    QVERIFY(m_run->doneError);
    QCOMPARE(m_run->errorText, QStringLiteral("Line break or NUL in an argument"));
    QVERIFY(m_run->run(QStringLiteral("cd")));
    QCOMPARE(m_server->lines, Lines({"CWD Data"}));
}

void tst_QFtpFailures::bareActiveLineOverIpv6()
{
    // There are no six numbers for such an address.
    if (!QTcpServer().listen(QHostAddress::LocalHostIPv6))
        QSKIP("this machine has no IPv6 loopback");
    Server server(QHostAddress(QHostAddress::LocalHostIPv6));
    server.answer("EPRT", "522 No\r\n");
    FtpRun run(*m_ftp, server.host(), server.port());
    QVERIFY(run.run(QStringLiteral("connect active get")));
    QCOMPARE(run.outcome(), QStringLiteral("connect active get!"));
    QCOMPARE(run.errorText, QStringLiteral("Downloading file failed:\nWhat port?"));
    QCOMPARE(server.lines.last(), QByteArray("PORT"));
}

void tst_QFtpFailures::clearPendingCommands()
{
    m_run->queue(QStringLiteral("connect cd"));
    m_ftp->clearPendingCommands();
    QVERIFY(!m_ftp->hasPendingCommands());
    connect(m_ftp.get(), &QFtp::commandStarted, m_ftp.get(), [this] {
        if (m_run->started.last() == u"cd")
            m_ftp->clearPendingCommands();
    });
    QVERIFY(m_run->run(QStringLiteral("connect cd list close")));
    QCOMPARE(m_run->outcome(), QStringLiteral("connect cd"));
    QCOMPARE(m_run->doneCount, 1);
    QVERIFY(!m_run->doneError);
}

void tst_QFtpFailures::lostBetweenCommands()
{
    QVERIFY(m_run->run(QStringLiteral("connect login")));
    QSignalSpy states(m_ftp.get(), &QFtp::stateChanged);
    m_server->closeControl();
    QVERIFY(states.wait(10000));
    QCOMPARE(m_ftp->state(), QFtp::Unconnected);
    QCOMPARE(m_ftp->error(), QFtp::NoError);
    QCOMPARE(m_run->doneCount, 1);
    QVERIFY(m_run->run(QStringLiteral("cd")));
    QCOMPARE(m_ftp->error(), QFtp::NotConnected);
}

void tst_QFtpFailures::errorWithoutACommandWarns()
{
    QTest::ignoreMessage(QtWarningMsg, "QFtpPrivate::_q_piError was called without pending command!");
    QVERIFY(QMetaObject::invokeMethod(m_ftp.get(), "_q_piError", Q_ARG(int, 1),
                                      Q_ARG(QString, QStringLiteral("x"))));
    QCOMPARE(m_run->doneCount, 0);
    QCOMPARE(m_ftp->error(), QFtp::NoError);
}

void tst_QFtpFailures::destroyedInMidTransfer_data()
{
    QTest::addColumn<QByteArray>("verb");
    for (const char* verb : {"USER", "TYPE", "SIZE", "PASV", "RETR", "STOR", "LIST", "QUIT"})
        QTest::newRow(verb) << QByteArray(verb);
}

void tst_QFtpFailures::destroyedInMidTransfer()
{
    QFETCH(QByteArray, verb);
    bool isReached = false;
    m_server->handle(verb, [&](Server& s, const QByteArray& argument) {
        isReached = true;
        s.behave(verb, argument);
        m_ftp.reset();
    });
    QSignalSpy done(m_ftp.get(), &QFtp::done);
    QPointer<QFtp> ftp = m_ftp.get();
    m_run->queue(QStringLiteral("connect login list get put close"));
    QSignalSpy lines(m_server.get(), &Server::lineReceived);
    while (!isReached)
        QVERIFY(lines.wait(10000));
    QVERIFY(ftp.isNull());
    QVERIFY(done.isEmpty());
    lines.clear();
    QVERIFY(spyStaysEmpty(lines, 20));
}

void tst_QFtpFailures::limitIsOffUntilSet()
{
    QCOMPARE(m_ftp->inactivityLimit(), 0);
    m_ftp->setInactivityLimit(-5);
    QCOMPARE(m_ftp->inactivityLimit(), 0);
    m_ftp->setInactivityLimit(100);
    QCOMPARE(m_ftp->inactivityLimit(), 100);
    // A connection without a command may be silent. Around it no limit, for machines that are slow.
    m_ftp->setInactivityLimit(0);
    QVERIFY(m_run->run(QStringLiteral("connect login")));
    m_ftp->setInactivityLimit(100);
    QSignalSpy states(m_ftp.get(), &QFtp::stateChanged);
    QVERIFY(spyStaysEmpty(states, 300));
    m_ftp->setInactivityLimit(0);
    QVERIFY(m_run->run(QStringLiteral("cd")));
    QVERIFY(!m_run->doneError);
}

QTEST_GUILESS_MAIN(tst_QFtpFailures)
#include "tst_QFtpFailures.moc"
