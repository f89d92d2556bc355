#include "tests/transfer/CurlCase.h"

#include <atomic>
#include <thread>
#include <vector>

/// What CFtpProc asks of libcurl. No byte leaves the process.
class tst_CFtpProcOptions : public CurlCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void commonOptions_data();
    void commonOptions();
    void upLoadOptions();
    void downLoadOptions();
    void existsOptions();
    void listOptions();
    void timeoutsAreSet();
    void loginOfAUser();
    void urls_data();
    void urls();
    void initConnectSetsAForeignHandle();
    void eachTransferHasItsOwnHandle();
    void everyTransferIsInsideTheGlobalCalls();
    void threadsShareTheGlobalCalls();
    void callbacks();
    void messagesOfSuccess();
};

void tst_CFtpProcOptions::commonOptions_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QByteArray>("url");
    QTest::newRow("upload") << Operation::UpLoad << QByteArray("ftp://127.94.1.1/Data/x");
    QTest::newRow("download") << Operation::DownLoad << QByteArray("ftp://127.94.1.1/Data/x");
    QTest::newRow("exists") << Operation::Exists << QByteArray("ftp://127.94.1.1/Data/x");
    QTest::newRow("list") << Operation::List << QByteArray("ftp://127.94.1.1/Data/x/");
}

void tst_CFtpProcOptions::commonOptions()
{
    QFETCH(const Operation, operation);
    QFETCH(const QByteArray, url);
    CurlSpy spy;
    CFtpProc proc;
    proc.setIpAddr(QStringLiteral("127.94.1.1"));
    run(proc, operation);
    QCOMPARE(spy.performed().size(), size_t(1));
    CurlSpy::Options options = spy.last();
    QCOMPARE(options[CURLOPT_URL].text, url);
    QCOMPARE(options[CURLOPT_PORT].number, 21);
    QCOMPARE(options[CURLOPT_USERPWD].text, QByteArray("anonymous:anonymous@"));
    // Intended: verbose.
    QCOMPARE(options[CURLOPT_VERBOSE].number, 1);
    QCOMPARE(options[CURLOPT_NOSIGNAL].number, 1);
    QCOMPARE(options[CURLOPT_NOPROXY].text, QByteArray("*"));
    QCOMPARE(options[CURLOPT_PATH_AS_IS].number, 1);
    QCOMPARE(options[CURLOPT_CONNECTTIMEOUT].number, 10);
    QCOMPARE(options[CURLOPT_FTP_RESPONSE_TIMEOUT].number, 30);
    QCOMPARE(options[CURLOPT_LOW_SPEED_LIMIT].number, 1);
    QCOMPARE(options[CURLOPT_LOW_SPEED_TIME].number, 30);
    QCOMPARE(options[CURLOPT_BUFFERSIZE].number, 524288);
}

void tst_CFtpProcOptions::upLoadOptions()
{
    CurlSpy spy;
    CFtpProc proc;
    QByteArray uploaded;
    QStringList commands;
    spy.perform = [&](const CurlSpy::Options& options) {
        const auto read = reinterpret_cast<curl_read_callback>(options.at(CURLOPT_READFUNCTION).pointer);
        char piece[3];
        while (const size_t bytes = read(piece, 1, sizeof(piece), options.at(CURLOPT_READDATA).pointer))
            uploaded.append(piece, static_cast<qsizetype>(bytes));
        for (auto* list = static_cast<const curl_slist*>(options.at(CURLOPT_POSTQUOTE).pointer); list;
             list = list->next)
            commands << QString::fromUtf8(list->data);
        return CURLE_OK;
    };
    proc.setUploadCommands({QStringLiteral("RNFR x"), QStringLiteral("RNTO \u00FC")});
    LogSpy log;
    QVERIFY(run(proc, Operation::UpLoad));
    CurlSpy::Options options = spy.last();
    QCOMPARE(options[CURLOPT_UPLOAD].number, 1);
    QCOMPARE(options[CURLOPT_INFILESIZE_LARGE].number, 5);
    QCOMPARE(options[CURLOPT_READFUNCTION].pointer, reinterpret_cast<void*>(&CFtpProc::read_callback));
    QCOMPARE(uploaded, QByteArray("12345"));
    QCOMPARE(commands, QStringList({"RNFR x", u"RNTO \u00FC"_qs}));
    QCOMPARE(log.lines(), QStringList({"*** We read 3 bytes from file\n", "*** We read 2 bytes from file\n",
                                       "*** We read 0 bytes from file\n"}));

    proc.setUploadCommands({});
    QVERIFY(run(proc, Operation::UpLoad));
    QVERIFY(commands.size() == 2);
}

void tst_CFtpProcOptions::downLoadOptions()
{
    CurlSpy spy;
    CFtpProc proc;
    spy.perform = [](const CurlSpy::Options& options) { return deliver(options, "abcdefg"); };
    QVERIFY(run(proc, Operation::DownLoad));
    CurlSpy::Options options = spy.last();
    QCOMPARE(options[CURLOPT_WRITEFUNCTION].pointer, reinterpret_cast<void*>(&CFtpProc::ftpFWrite));
    QVERIFY(!options.contains(CURLOPT_NOBODY) && !options.contains(CURLOPT_UPLOAD));
    QCOMPARE(fileBytes(m_local), QByteArray("abcdefg"));
}

void tst_CFtpProcOptions::existsOptions()
{
    CurlSpy spy;
    CFtpProc proc;
    spy.perform = [](const CurlSpy::Options& options) { return deliver(options, "Content-Length: 5\r\n"); };
    run(proc, Operation::Exists);
    CurlSpy::Options options = spy.last();
    QCOMPARE(options[CURLOPT_NOBODY].number, 1);
    QCOMPARE(options[CURLOPT_HEADER].number, 1);
    QCOMPARE(options[CURLOPT_WRITEFUNCTION].pointer,
             reinterpret_cast<void*>(&CFtpProc::WriteInStringCallback));
}

void tst_CFtpProcOptions::listOptions()
{
    CurlSpy spy;
    CFtpProc proc;
    spy.perform = [](const CurlSpy::Options& options) {
        const CURLcode first = deliver(options, "one\r\n");
        return first == CURLE_OK ? deliver(options, "two\r\n") : first;
    };
    std::string listing = "old";
    QVERIFY(proc.getList("Data", listing));
    QCOMPARE(listing, std::string("one\r\ntwo\r\n"));
    CurlSpy::Options options = spy.last();
    QVERIFY(options.contains(CURLOPT_UPLOAD));
    QCOMPARE(options[CURLOPT_UPLOAD].number, 0);
    QCOMPARE(options[CURLOPT_SSL_VERIFYHOST].number, 2);
    QCOMPARE(options[CURLOPT_SSL_VERIFYPEER].number, 1);
    QCOMPARE(options[CURLOPT_WRITEFUNCTION].pointer,
             reinterpret_cast<void*>(&CFtpProc::WriteInStringCallback));
}

void tst_CFtpProcOptions::timeoutsAreSet()
{
    CurlSpy spy;
    CFtpProc proc;
    proc.setTimeouts(std::chrono::seconds(3), std::chrono::seconds(4));
    run(proc, Operation::List);
    CurlSpy::Options options = spy.last();
    QCOMPARE(options[CURLOPT_CONNECTTIMEOUT].number, 3);
    QCOMPARE(options[CURLOPT_FTP_RESPONSE_TIMEOUT].number, 4);
    QCOMPARE(options[CURLOPT_LOW_SPEED_TIME].number, 4);
    // None at all would be none for ever.
    proc.setTimeouts(std::chrono::seconds(0), std::chrono::seconds(-1));
    run(proc, Operation::List);
    options = spy.last();
    QCOMPARE(options[CURLOPT_CONNECTTIMEOUT].number, 1);
    QCOMPARE(options[CURLOPT_FTP_RESPONSE_TIMEOUT].number, 1);
    QCOMPARE(options[CURLOPT_LOW_SPEED_TIME].number, 1);
}

void tst_CFtpProcOptions::loginOfAUser()
{
    CurlSpy spy;
    CFtpProc proc;
    proc.setUser(QStringLiteral("m\u00E4x"), QStringLiteral("a:b@c/%20"));
    run(proc, Operation::List);
    QCOMPARE(CurlSpy::Options(spy.last())[CURLOPT_USERPWD].text, QByteArray("m\xC3\xA4x:a:b@c/%20"));
    proc.setUser(QString(), QStringLiteral("unused"));
    run(proc, Operation::List);
    QCOMPARE(CurlSpy::Options(spy.last())[CURLOPT_USERPWD].text, QByteArray("anonymous:anonymous@"));
}

void tst_CFtpProcOptions::urls_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("url");
    const QString v4 = QStringLiteral("1.2.3.4");
    QTest::newRow("no slash") << v4 << QByteArray("a") << QByteArray("ftp://1.2.3.4/a");
    QTest::newRow("a slash") << v4 << QByteArray("/a") << QByteArray("ftp://1.2.3.4/a");
    QTest::newRow("two slashes") << v4 << QByteArray("//a") << QByteArray("ftp://1.2.3.4//a");
    QTest::newRow("default") << "0.0.0.0" << QByteArray("a") << QByteArray("ftp://0.0.0.0/a");
    QTest::newRow("name") << "Recorder-1.ship" << QByteArray("a") << QByteArray("ftp://Recorder-1.ship/a");
    QTest::newRow("IPv6") << "::1" << QByteArray("a") << QByteArray("ftp://[::1]/a");
    QTest::newRow("scope") << "fe80::1%eth0" << QByteArray("a") << QByteArray("ftp://[fe80::1%25eth0]/a");
    QTest::newRow("blank") << v4 << QByteArray("a b") << QByteArray("ftp://1.2.3.4/a%20b");
    QTest::newRow("percent") << v4 << QByteArray("a%2Fb") << QByteArray("ftp://1.2.3.4/a%252Fb");
    QTest::newRow("type") << v4 << QByteArray("a;type=d") << QByteArray("ftp://1.2.3.4/a%3Btype%3Dd");
    QTest::newRow("marks") << v4 << QByteArray("a?b#c@d:e") << QByteArray("ftp://1.2.3.4/a%3Fb%23c%40d%3Ae");
    QTest::newRow("8 bit") << v4 << QByteArray("\xC3\xBC\xFF") << QByteArray("ftp://1.2.3.4/%C3%BC%FF");
    QTest::newRow("unreserved") << v4 << QByteArray("aZ09-._~/b") << QByteArray("ftp://1.2.3.4/aZ09-._~/b");
    QTest::newRow("up") << v4 << QByteArray("a/../b") << QByteArray("ftp://1.2.3.4/a/../b");
}

void tst_CFtpProcOptions::urls()
{
    QFETCH(const QString, address);
    QFETCH(const QByteArray, path);
    QFETCH(const QByteArray, url);
    CurlSpy spy;
    CFtpProc proc;
    if (address != QLatin1String("0.0.0.0"))
        proc.setIpAddr(address);
    QCOMPARE(proc.ipAddr(), address);
    for (const auto operation : {Operation::UpLoad, Operation::DownLoad, Operation::Exists}) {
        run(proc, operation, path.toStdString());
        QCOMPARE(CurlSpy::Options(spy.last())[CURLOPT_URL].text, url);
    }
    run(proc, Operation::List, path.toStdString());
    QCOMPARE(CurlSpy::Options(spy.last())[CURLOPT_URL].text, url + '/');
    run(proc, Operation::List, path.toStdString() + '/');
    QCOMPARE(CurlSpy::Options(spy.last())[CURLOPT_URL].text, url + '/');
}

void tst_CFtpProcOptions::initConnectSetsAForeignHandle()
{
    CurlSpy spy;
    CFtpProc proc;
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL* const curl = curl_easy_init();
    proc.initConnect(curl, "a b");
    QCOMPARE(spy.optionsOf(curl)[CURLOPT_URL].text, QByteArray("ftp://0.0.0.0/a%20b"));
    QCOMPARE(spy.optionsOf(curl)[CURLOPT_PORT].number, 21);
    curl_easy_cleanup(curl);
    curl_global_cleanup();
}

void tst_CFtpProcOptions::eachTransferHasItsOwnHandle()
{
    CurlSpy spy;
    CFtpProc proc;
    const QString entry = QStringLiteral("a<|>") + m_local;
    proc.setDownLoadList({entry, entry, entry});
    QVERIFY(proc.downLoad());
    run(proc, Operation::Exists);
    run(proc, Operation::List);
    QCOMPARE(spy.handlesMade(), 5);
    QCOMPARE(spy.openHandles(), 0);
}

void tst_CFtpProcOptions::everyTransferIsInsideTheGlobalCalls()
{
    CurlSpy spy;
    CFtpProc proc;
    spy.perform = [](const CurlSpy::Options&) {
        return CurlSpy::globalInits() == CurlSpy::globalCleanups() + 1 ? CURLE_OK : CURLE_FAILED_INIT;
    };
    int transfers = 0;
    for (const auto operation :
         {Operation::UpLoad, Operation::DownLoad, Operation::List, Operation::Exists}) {
        QCOMPARE(run(proc, operation), operation != Operation::Exists);
        QCOMPARE(CurlSpy::globalInits(), ++transfers);
        QCOMPARE(CurlSpy::globalCleanups(), transfers);
    }
    QVERIFY(!CurlSpy::isUnbalanced());
}

void tst_CFtpProcOptions::threadsShareTheGlobalCalls()
{
    constexpr int kThreads = 4;
    std::atomic<int> inside = 0;
    std::atomic<int> mostInits = 0;
    std::vector<std::thread> threads;
    {
        // Two transfers that overlap for sure: the inner one begins and ends inside the outer one.
        CurlSpy spy;
        CFtpProc outer;
        CFtpProc inner;
        spy.perform = [&](const CurlSpy::Options&) {
            if (inside++ == 0)
                run(inner, Operation::List);
            mostInits = std::max(mostInits.load(), CurlSpy::globalInits());
            return CURLE_OK;
        };
        QVERIFY(run(outer, Operation::List));
        QCOMPARE(inside.load(), 2);
        QCOMPARE(mostInits.load(), 1);
        QCOMPARE(CurlSpy::globalCleanups(), 1);
        QVERIFY(!CurlSpy::isUnbalanced());
    }
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([] {
            CFtpProc proc;
            // Nothing listens there: refused at once.
            proc.setIpAddr(QStringLiteral("127.94.1.254"));
            for (int n = 0; n < 20; ++n)
                proc.fileExists("x");
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    QVERIFY(!CurlSpy::isUnbalanced());
    QCOMPARE(CurlSpy::globalInits(), CurlSpy::globalCleanups());
}

void tst_CFtpProcOptions::callbacks()
{
    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::ReadWrite));
    QCOMPARE(CFtpProc::ftpFWrite(const_cast<char*>("abcdef"), 2, 3, &buffer), size_t(6));
    QCOMPARE(buffer.data(), QByteArray("abcdef"));
    QVERIFY(buffer.seek(0));
    char bytes[8];
    QTest::ignoreMessage(QtDebugMsg, "*** We read 6 bytes from file\n");
    QCOMPARE(CFtpProc::read_callback(bytes, 4, 2, static_cast<QIODevice*>(&buffer)), size_t(6));
    QCOMPARE(QByteArray(bytes, 6), QByteArray("abcdef"));
    std::string text = "x";
    QCOMPARE(CFtpProc::WriteInStringCallback(const_cast<char*>("abcdef"), 3, 2, &text), size_t(6));
    QCOMPARE(text, std::string("xabcdef"));
}

void tst_CFtpProcOptions::messagesOfSuccess()
{
    CurlSpy spy;
    CFtpProc proc;
    QSignalSpy errors(&proc, &CFtpProc::signalError);
    const auto said = [&](Operation operation) {
        LogSpy log;
        run(proc, operation);
        return log.lines();
    };
    const QStringList connected{QStringLiteral("Connected to FTP server successfully.")};
    QCOMPARE(said(Operation::Exists), connected);
    QCOMPARE(said(Operation::List), connected);
    QCOMPARE(said(Operation::DownLoad), QStringList("curl told us 0\n"));
    QCOMPARE(said(Operation::UpLoad), QStringList());
    QCOMPARE(errors.size(), 0);
}

QTEST_GUILESS_MAIN(tst_CFtpProcOptions)
#include "tst_CFtpProcOptions.moc"
