#include "tests/transfer/FtpProcCase.h"

/// CFtpProc against a server that refuses, lies, falls silent or goes.
class tst_CFtpProcFaults : public FtpProcCase
{
    Q_OBJECT

public:
    tst_CFtpProcFaults() : FtpProcCase(QStringLiteral("127.94.2.2")) {}

private Q_SLOTS:
    // --- rainy day flows
    void badEntriesDontStopTheOthers();
    void refusedLogin();
    void noServer();
    void missingDirectory();
    void serverWithoutSizes();
    void refusedUploadCommand();
    void silentServer_data();
    void silentServer();
    void lostConnection_data();
    void lostConnection();
    void sizeThatLies();
    void longFiles_data();
    void longFiles();
    void refusedCommands_data();
    void refusedCommands();
};

void tst_CFtpProcFaults::badEntriesDontStopTheOthers()
{
    serve();
    QVERIFY(makeFile(remote(QStringLiteral("a")), "A"));
    QSignalSpy finished(m_proc.get(), &CFtpProc::signalLoadingFinished);
    m_proc->setDownLoadList({"missing<|>" + local(QStringLiteral("0")), QStringLiteral("a"), QString(),
                             "<|>" + local(QStringLiteral("0")), "a<|>" + local(QStringLiteral("1"))});
    QVERIFY(!m_proc->downLoad());
    QCOMPARE(finished.size(), 5);
    for (int i = 0; i < 4; ++i)
        QCOMPARE(finished[i][0].toBool(), false);
    QCOMPARE(finished[4], QVariantList({true, local(QStringLiteral("1"))}));
    QCOMPARE(m_errors.size(), 4);
    QCOMPARE(QDir(m_client->path()).entryList(QDir::Files), QStringList("1"));

    m_proc->setDownLoadList({local(QStringLiteral("missing")) + "<|>c", local(QStringLiteral("1")),
                             local(QStringLiteral("1")) + "<|>d"});
    QVERIFY(!m_proc->upLoad());
    QCOMPARE(fileBytes(remote(QStringLiteral("d"))), QByteArray("A"));
    QCOMPARE(QDir(m_server->path()).entryList(QDir::Files), QStringList({"a", "d"}));
}

void tst_CFtpProcFaults::refusedLogin()
{
    serve({QStringLiteral("--user"), QStringLiteral("max:good")});
    m_proc->setUser(QStringLiteral("max"), QStringLiteral("bad"));
    QVERIFY(!m_proc->downLoad("x", local(QStringLiteral("x")).toStdString()));
    QCOMPARE(m_errors, QStringList("Failed to work with the FTP device: Login denied"));
}

void tst_CFtpProcFaults::noServer()
{
    std::string listing;
    QVERIFY(!m_proc->getList("Data", listing));
    QVERIFY(!m_proc->getListFTP(nullptr, nullptr, CFtpProc::DevRecorder));
    QCOMPARE(m_errors, QStringList({"Failed to connect to FTP device: Couldn't connect to server",
                                    "Failed to connect to FTP device: Couldn't connect to server"}));
}

void tst_CFtpProcFaults::missingDirectory()
{
    serve();
    m_proc->setBasePath(QStringLiteral("Data"));
    m_proc->setDirList({QStringLiteral("kept")});
    QSignalSpy ready(m_proc.get(), &CFtpProc::signalListReady);
    QStringList files;
    QVERIFY(!m_proc->getListFTP(&files, nullptr, CFtpProc::DevRecorder));
    QCOMPARE(ready.size(), 0);
    QCOMPARE(m_errors.size(), 1);
    QCOMPARE(m_proc->dirList(), QStringList("kept"));
}

void tst_CFtpProcFaults::serverWithoutSizes()
{
    serve({QStringLiteral("--no-size")});
    QVERIFY(makeFile(remote(QStringLiteral("x")), "123"));
    // It can't say whether a file is there, so none is.
    QVERIFY(!m_proc->fileExists("x"));
    QVERIFY(!m_proc->fileExists("y"));
    QVERIFY(m_proc->downLoad("x", local(QStringLiteral("x")).toStdString()));
    QCOMPARE(fileBytes(local(QStringLiteral("x"))), QByteArray("123"));
}

void tst_CFtpProcFaults::refusedUploadCommand()
{
    serve();
    QVERIFY(makeFile(local(QStringLiteral("1")), "new"));
    m_proc->setUploadCommands({QStringLiteral("DELE missing")});
    QVERIFY(!m_proc->upLoad(local(QStringLiteral("1")).toStdString(), "a"));
    QCOMPARE(m_errors.size(), 1);
}

void tst_CFtpProcFaults::silentServer_data()
{
    QTest::addColumn<QString>("command");
    for (const char* command : {"USER", "PASS", "CWD", "EPSV", "SIZE", "RETR"})
        QTest::newRow(command) << QString::fromLatin1(command);
}

void tst_CFtpProcFaults::silentServer()
{
    QFETCH(const QString, command);
    serve({QStringLiteral("--silent"), command});
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Data")));
    QVERIFY(makeFile(remote(QStringLiteral("Data/x")), "123"));
    m_proc->setTimeouts(std::chrono::seconds(5), std::chrono::seconds(1));
    QVERIFY(!m_proc->downLoad("Data/x", local(QStringLiteral("x")).toStdString()));
    QCOMPARE(m_errors.size(), 1);
    QVERIFY(!QFile::exists(local(QStringLiteral("x"))));
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone")));
}

void tst_CFtpProcFaults::lostConnection_data()
{
    QTest::addColumn<QString>("command");
    for (const char* command : {"USER", "PASS", "CWD", "EPSV", "SIZE", "RETR"})
        QTest::newRow(command) << QString::fromLatin1(command);
}

void tst_CFtpProcFaults::lostConnection()
{
    QFETCH(const QString, command);
    serve({QStringLiteral("--drop"), command});
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Data")));
    QVERIFY(makeFile(remote(QStringLiteral("Data/x")), "123"));
    m_proc->setTimeouts(std::chrono::seconds(5), std::chrono::seconds(5));
    QVERIFY(!m_proc->downLoad("Data/x", local(QStringLiteral("x")).toStdString()));
    QCOMPARE(m_errors.size(), 1);
    QVERIFY(!QFile::exists(local(QStringLiteral("x"))));
}

void tst_CFtpProcFaults::sizeThatLies()
{
    serve({QStringLiteral("--size-plus"), QStringLiteral("5")});
    QVERIFY(makeFile(remote(QStringLiteral("x")), "123"));
    QVERIFY(makeFile(local(QStringLiteral("x")), "old"));
    QVERIFY(!m_proc->downLoad("x", local(QStringLiteral("x")).toStdString()));
    QCOMPARE(m_errors, QStringList("Failed to work with the FTP device: Transferred a partial file"));
    QCOMPARE(fileBytes(local(QStringLiteral("x"))), QByteArray("old"));
}

void tst_CFtpProcFaults::longFiles_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("bytes");
    QTest::addColumn<bool>("succeeds");
    const QString noSize = QStringLiteral("--no-size");
    QTest::newRow("as long as it may be") << QStringList() << 100000 << true;
    QTest::newRow("one byte more") << QStringList() << 100001 << false;
    QTest::newRow("as long as it may be, without a size") << QStringList{noSize} << 100000 << true;
    QTest::newRow("one byte more, without a size") << QStringList{noSize} << 100001 << false;
    QTest::newRow("endless") << QStringList{noSize, QStringLiteral("--endless")} << 1 << false;
}

void tst_CFtpProcFaults::longFiles()
{
    QFETCH(const QStringList, options);
    QFETCH(const int, bytes);
    QFETCH(const bool, succeeds);
    serve(options);
    const QByteArray file(bytes, 'y');
    QVERIFY(makeFile(remote(QStringLiteral("x")), file));
    QVERIFY(makeFile(local(QStringLiteral("x")), "old"));
    m_proc->setDownLoadLimit(100000);
    QCOMPARE(m_proc->downLoad("x", local(QStringLiteral("x")).toStdString()), succeeds);
    QCOMPARE(fileBytes(local(QStringLiteral("x"))), succeeds ? file : QByteArray("old"));
    QCOMPARE(QDir(m_client->path()).entryList(QDir::Files), QStringList("x"));
    const QStringList tooLong("Failed to work with the FTP device: Maximum file size exceeded");
    QCOMPARE(m_errors, succeeds ? QStringList() : tooLong);
    if (options.size() > 1)
        return;
    m_proc->setDownLoadLimit(0);
    QVERIFY(m_proc->downLoad("x", local(QStringLiteral("x")).toStdString()));
    QCOMPARE(fileBytes(local(QStringLiteral("x"))), file);
}

void tst_CFtpProcFaults::refusedCommands_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("succeeds");
    QTest::newRow("USER") << "USER" << false;
    QTest::newRow("CWD") << "CWD" << false;
    // Then by PASV.
    QTest::newRow("EPSV") << "EPSV" << true;
    QTest::newRow("RETR") << "RETR" << false;
    QTest::newRow("QUIT") << "QUIT" << true;
}

void tst_CFtpProcFaults::refusedCommands()
{
    QFETCH(const QString, command);
    QFETCH(const bool, succeeds);
    serve({QStringLiteral("--refuse"), command});
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Data")));
    QVERIFY(makeFile(remote(QStringLiteral("Data/x")), "123"));
    QCOMPARE(m_proc->downLoad("Data/x", local(QStringLiteral("x")).toStdString()), succeeds);
    QCOMPARE(m_errors.isEmpty(), succeeds);
}

int main(int argc, char* argv[])
{
    return runFtpTest<tst_CFtpProcFaults>(argc, argv);
}

#include "tst_CFtpProcFaults.moc"
