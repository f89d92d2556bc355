#include "tests/transfer/CurlCase.h"

/// What CFtpProc says to each of libcurl's answers, and what it never asks. No byte leaves the process.
class tst_CFtpProcResults : public CurlCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- rainy day flows
    void noHandle_data();
    void noHandle();
    void failures_data();
    void failures();
    void refusedArguments_data();
    void refusedArguments();
    void unreadableFiles();
    void unwritableFiles();
    void failedDownLoadLeavesTheLocalFile();
    void longListing();
    void devicesThatFail();
    void slotsThatSetAnotherList();
};

void tst_CFtpProcResults::noHandle_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::newRow("upload") << Operation::UpLoad;
    QTest::newRow("download") << Operation::DownLoad;
    QTest::newRow("exists") << Operation::Exists;
    QTest::newRow("list") << Operation::List;
}

void tst_CFtpProcResults::noHandle()
{
    QFETCH(const Operation, operation);
    CurlSpy spy;
    spy.initFails = true;
    CFtpProc proc;
    QSignalSpy errors(&proc, &CFtpProc::signalError);
    QVERIFY(!run(proc, operation));
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors[0][0].toString(), QStringLiteral("curl_easy_init() failed"));
    QVERIFY(spy.performed().empty());
    QCOMPARE(CurlSpy::globalInits(), 1);
    QCOMPARE(CurlSpy::globalCleanups(), 1);
    QCOMPARE(fileBytes(m_local), QByteArray("12345"));
}

void tst_CFtpProcResults::failures_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QStringList>("log");
    const QStringList none;
    QTest::newRow("upload, no connection") << Operation::UpLoad << int(CURLE_COULDNT_CONNECT)
                                           << "curl_easy_perform() failed: Couldn't connect to server\n"
                                           << none;
    QTest::newRow("upload, login") << Operation::UpLoad << int(CURLE_LOGIN_DENIED)
                                   << "curl_easy_perform() failed: Login denied\n"
                                   << none;
    QTest::newRow("download, no connection")
        << Operation::DownLoad << int(CURLE_COULDNT_CONNECT)
        << "Failed to work with the FTP device: Couldn't connect to server"
        << QStringList("curl told us 7\n");
    QTest::newRow("download, partial") << Operation::DownLoad << int(CURLE_PARTIAL_FILE)
                                       << "Failed to work with the FTP device: Transferred a partial file"
                                       << QStringList("curl told us 18\n");
    QTest::newRow("exists, not there") << Operation::Exists << int(CURLE_REMOTE_FILE_NOT_FOUND)
                                       << "Failed to connect to FTP device: Remote file not found" << none;
    QTest::newRow("list, timeout") << Operation::List << int(CURLE_OPERATION_TIMEDOUT)
                                   << "Failed to connect to FTP device: Timeout was reached" << none;
}

void tst_CFtpProcResults::failures()
{
    QFETCH(const Operation, operation);
    QFETCH(const int, result);
    QFETCH(const QString, error);
    QFETCH(const QStringList, log);
    CurlSpy spy;
    spy.perform = [result](const CurlSpy::Options&) { return static_cast<CURLcode>(result); };
    CFtpProc proc;
    QSignalSpy errors(&proc, &CFtpProc::signalError);
    LogSpy lines;
    QVERIFY(!run(proc, operation));
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors[0][0].toString(), error);
    QCOMPARE(lines.lines(), log);
    QCOMPARE(spy.openHandles(), 0);
    QCOMPARE(CurlSpy::globalCleanups(), 1);
}

void tst_CFtpProcResults::refusedArguments_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("command");
    const QString good = QStringLiteral("1.2.3.4");
    for (const char c : {'\0', '\r', '\n', '\t', '\x1B', '\x7F', '\x01'}) {
        const QByteArray text = QByteArray("a") + c + "b";
        const QString shown = QString::fromLatin1(text);
        const auto row = [c](const char* what) -> QTestData& { return QTest::addRow("%s %d", what, c); };
        row("path") << good << text << ""
                    << ""
                    << "";
        row("address") << shown << QByteArray("x") << ""
                       << ""
                       << "";
        row("user") << good << QByteArray("x") << shown << ""
                    << "";
        row("password") << good << QByteArray("x") << "u" << shown << "";
        row("command") << good << QByteArray("x") << ""
                       << "" << shown;
    }
    QTest::newRow("path with a command") << good << QByteArray("x\r\nDELE y") << ""
                                         << ""
                                         << "";
    QTest::newRow("user with a colon") << good << QByteArray("x") << "a:b"
                                       << ""
                                       << "";
    for (const char* address : {"", "1.2.3.4/x", "1.2.3.4:80", "u@1.2.3.4", "1.2.3.4#", "1.2.3.4?", "[::1]",
                                "a b", "h\xC3\xBC", "1.2.3.4\\x", "%31"})
        QTest::addRow("address \"%s\"", address) << QString::fromUtf8(address) << QByteArray("x") << ""
                                                 << ""
                                                 << "";
}

void tst_CFtpProcResults::refusedArguments()
{
    QFETCH(const QString, address);
    QFETCH(const QByteArray, path);
    QFETCH(const QString, user);
    QFETCH(const QString, password);
    QFETCH(const QString, command);
    CurlSpy spy;
    CFtpProc proc;
    proc.setIpAddr(address);
    proc.setUser(user, password);
    proc.setUploadCommands({command});
    QSignalSpy errors(&proc, &CFtpProc::signalError);
    const QString text = QString::fromUtf8(curl_easy_strerror(CURLE_URL_MALFORMAT));
    QStringList expected;
    for (const auto operation : {Operation::UpLoad, Operation::DownLoad, Operation::Exists, Operation::List})
        QVERIFY(!run(proc, operation, path.toStdString()));
    QCOMPARE(errors.size(), 4);
    QCOMPARE(errors[0][0].toString(), QStringLiteral("curl_easy_perform() failed: ") + text + u'\n');
    QCOMPARE(errors[1][0].toString(), QStringLiteral("Failed to work with the FTP device: ") + text);
    QCOMPARE(errors[2][0].toString(), QStringLiteral("Failed to connect to FTP device: ") + text);
    QCOMPARE(errors[3][0].toString(), QStringLiteral("Failed to connect to FTP device: ") + text);
    QVERIFY(spy.performed().empty());
    QCOMPARE(spy.handlesMade(), 0);
    QCOMPARE(fileBytes(m_local), QByteArray("12345"));
}

void tst_CFtpProcResults::unreadableFiles()
{
    CurlSpy spy;
    CFtpProc proc;
    QSignalSpy errors(&proc, &CFtpProc::signalError);
    QSignalSpy finished(&proc, &CFtpProc::signalLoadingFinished);
    const QString missing = m_dir->filePath(QStringLiteral("missing"));
    QVERIFY(!proc.upLoad(missing.toStdString(), "x"));
    QCOMPARE(errors.takeFirst()[0].toString(),
             QStringLiteral("Couldn't open '%1': No such file or directory\n").arg(missing));
    for (const std::string& local : {std::string(), m_dir->path().toStdString(), std::string("a\0b", 3)}) {
        QVERIFY(!proc.upLoad(local, "x"));
        QVERIFY(errors.takeFirst()[0].toString().startsWith(QLatin1String("Couldn't open '")));
    }
    // A directory can't be uploaded to.
    for (const char* remote : {"", "/", "dir/"}) {
        QVERIFY(!proc.upLoad(m_local.toStdString(), remote));
        QVERIFY(errors.takeFirst()[0].toString().startsWith(QLatin1String("curl_easy_perform() failed: ")));
    }
    QCOMPARE(errors.size(), 0);
    QCOMPARE(finished.size(), 7);
    QCOMPARE(finished[0][0].toBool(), false);
    QCOMPARE(finished[0][1].toString(), missing);
    QVERIFY(spy.performed().empty());
}

void tst_CFtpProcResults::unwritableFiles()
{
    CurlSpy spy;
    CFtpProc proc;
    QSignalSpy errors(&proc, &CFtpProc::signalError);
    const QString nowhere = m_dir->filePath(QStringLiteral("missing/x"));
    QVERIFY(!proc.downLoad("x", nowhere.toStdString()));
    QCOMPARE(errors.takeFirst()[0].toString(),
             QStringLiteral("Couldn't open '%1': No such file or directory\n").arg(nowhere));
    for (const std::string& local : {std::string(), m_dir->path().toStdString(), std::string("a\0b", 3)}) {
        QVERIFY(!proc.downLoad("x", local));
        QVERIFY(errors.takeFirst()[0].toString().startsWith(QLatin1String("Couldn't open '")));
    }
    for (const char* remote : {"", "/", "dir/"}) {
        QVERIFY(!proc.downLoad(remote, m_local.toStdString()));
        QVERIFY(errors.takeFirst()[0].toString().startsWith(
            QLatin1String("Failed to work with the FTP device: ")));
        QVERIFY(!proc.fileExists(remote));
        QVERIFY(errors.takeFirst()[0].toString().startsWith(QLatin1String("Failed to connect")));
    }
    QCOMPARE(errors.size(), 0);
    QVERIFY(spy.performed().empty());
    QCOMPARE(fileBytes(m_local), QByteArray("12345"));
}

void tst_CFtpProcResults::failedDownLoadLeavesTheLocalFile()
{
    CurlSpy spy;
    CFtpProc proc;
    spy.perform = [](const CurlSpy::Options& options) {
        deliver(options, "half");
        return CURLE_PARTIAL_FILE;
    };
    QVERIFY(!run(proc, Operation::DownLoad));
    QCOMPARE(fileBytes(m_local), QByteArray("12345"));
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files), QStringList("local"));
}

void tst_CFtpProcResults::longListing()
{
    CurlSpy spy;
    CFtpProc proc;
    constexpr size_t kPiece = size_t{1} << 20;
    size_t delivered = 0;
    spy.perform = [&](const CurlSpy::Options& options) {
        const QByteArray piece(kPiece, 'x');
        while (delivered < 2 * CFtpProc::kMaxListingBytes) {
            if (const CURLcode result = deliver(options, piece); result != CURLE_OK)
                return result;
            delivered += kPiece;
        }
        return CURLE_OK;
    };
    QSignalSpy errors(&proc, &CFtpProc::signalError);
    std::string listing;
    QVERIFY(!proc.getList("Data", listing));
    QCOMPARE(delivered, CFtpProc::kMaxListingBytes);
    QCOMPARE(errors.size(), 1);
}

void tst_CFtpProcResults::devicesThatFail()
{
    QBuffer closed;
    char bytes[4] = {};
    QTest::ignoreMessage(QtWarningMsg, "QIODevice::write (QBuffer): device not open");
    QCOMPARE(CFtpProc::ftpFWrite(bytes, 1, 4, static_cast<QIODevice*>(&closed)), size_t(0));
    QTest::ignoreMessage(QtWarningMsg, "QIODevice::read (QBuffer): device not open");
    QCOMPARE(CFtpProc::read_callback(bytes, 1, 4, static_cast<QIODevice*>(&closed)),
             size_t(CURL_READFUNC_ABORT));
    QFile full(QStringLiteral("/dev/full"));
    QVERIFY(full.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    QCOMPARE(CFtpProc::ftpFWrite(bytes, 1, 4, static_cast<QIODevice*>(&full)), size_t(0));
}

void tst_CFtpProcResults::slotsThatSetAnotherList()
{
    CurlSpy spy;
    CFtpProc proc;
    proc.setDownLoadList({"a<|>" + m_local, "b<|>" + m_local, "c<|>" + m_local});
    connect(&proc, &CFtpProc::signalLoadingFinished, this, [&proc] { proc.setDownLoadList({}); });
    QVERIFY(proc.downLoad());
    // The files of the list that was there when it began.
    QCOMPARE(spy.performed().size(), size_t(3));
    proc.setDownLoadList({m_local + "<|>a", m_local + "<|>b"});
    QVERIFY(proc.upLoad());
    QCOMPARE(spy.performed().size(), size_t(5));
}

QTEST_GUILESS_MAIN(tst_CFtpProcResults)
#include "tst_CFtpProcResults.moc"
