#include "tests/transfer/FtpProcCase.h"

#include <QPointer>
#include <QTemporaryFile>
#include <QThread>

namespace {

QByteArray pattern(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = 1;
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

/// What goes to standard error while it lives.
class ErrorOutput
{
public:
    ErrorOutput() : m_saved(dup(STDERR_FILENO))
    {
        if (m_file.open())
            dup2(m_file.handle(), STDERR_FILENO);
    }
    ~ErrorOutput()
    {
        dup2(m_saved, STDERR_FILENO);
        close(m_saved);
    }
    ErrorOutput(const ErrorOutput&) = delete;
    ErrorOutput& operator=(const ErrorOutput&) = delete;

    QByteArray text() { return fileBytes(m_file.fileName()); }

private:
    QTemporaryFile m_file;
    int m_saved;
};

} // namespace

/// CFtpProc against a packaged server on port 21.
class tst_CFtpProc : public FtpProcCase
{
    Q_OBJECT

public:
    tst_CFtpProc() : FtpProcCase(QStringLiteral("127.94.2.1")) {}

private Q_SLOTS:
    // --- happy flows
    void theAddressUntilSet();
    void upAndDown_data();
    void upAndDown();
    void anonymousLogin();
    void loginOfAUser();
    void namesAsTheyAre_data();
    void namesAsTheyAre();
    void listing();
    void listOfTheBasePath();
    void listIntoOneList();
    void existence_data();
    void existence();
    void zcrFiles_data();
    void zcrFiles();
    void preparedDownloads();
    void preparedUploads();
    void uploadedUnderAnotherName();
    void verboseOnStandardError();
    void onAThreadOfItsOwn();
};

void tst_CFtpProc::theAddressUntilSet()
{
    QCOMPARE(CFtpProc().ipAddr(), QStringLiteral("0.0.0.0"));
    QObject parent;
    QCOMPARE(CFtpProc(&parent).parent(), &parent);
}

void tst_CFtpProc::upAndDown_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {0, 1, 1000, 65536, 3000001})
        QTest::addRow("%d", size) << size;
}

void tst_CFtpProc::upAndDown()
{
    QFETCH(const int, size);
    serve();
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Data")));
    const QByteArray bytes = pattern(size);
    QVERIFY(makeFile(local(QStringLiteral("a")), bytes));
    QSignalSpy finished(m_proc.get(), &CFtpProc::signalLoadingFinished);
    QVERIFY(m_proc->upLoad(local(QStringLiteral("a")).toStdString(), "Data/b"));
    QCOMPARE(fileBytes(remote(QStringLiteral("Data/b"))), bytes);
    QVERIFY(m_proc->downLoad("/Data/b", local(QStringLiteral("c")).toStdString()));
    QCOMPARE(fileBytes(local(QStringLiteral("c"))), bytes);
    QCOMPARE(finished.size(), 2);
    QCOMPARE(finished[0], QVariantList({true, local(QStringLiteral("a"))}));
    QCOMPARE(finished[1], QVariantList({true, local(QStringLiteral("c"))}));
    QCOMPARE(m_errors, QStringList());
}

void tst_CFtpProc::anonymousLogin()
{
    serve();
    QVERIFY(makeFile(remote(QStringLiteral("x")), "1"));
    QVERIFY(m_proc->fileExists("x"));
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone")));
    QCOMPARE(m_peer->commands().mid(0, 2), QStringList({"USER anonymous", "PASS anonymous@"}));
}

void tst_CFtpProc::loginOfAUser()
{
    serve({QStringLiteral("--user"), QStringLiteral("max:a:b c")});
    QVERIFY(makeFile(remote(QStringLiteral("x")), "1"));
    m_proc->setUser(QStringLiteral("max"), QStringLiteral("a:b c"));
    QVERIFY(m_proc->fileExists("x"));
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone")));
    QCOMPARE(m_peer->commands().mid(0, 2), QStringList({"USER max", "PASS a:b c"}));
}

void tst_CFtpProc::namesAsTheyAre_data()
{
    QTest::addColumn<QString>("name");
    for (const char* name : {"a b",
                             "  a",
                             "a%2Fb",
                             "%00",
                             "%0D%0ADELE%20x",
                             "a;type=d",
                             "a;type=a",
                             "a?b",
                             "a#b",
                             "~",
                             "~root",
                             "-rf",
                             "*",
                             "[x]",
                             "a\\b",
                             "\\",
                             "a:b",
                             "C:",
                             "a@b",
                             "a|b",
                             "<|>",
                             "\"q\"",
                             "'q'",
                             "$(x)",
                             "`x`",
                             "a&b",
                             "a=b",
                             "a+b",
                             "{a}",
                             "...",
                             "a..",
                             ".a",
                             "a,b",
                             "CON",
                             "QUIT",
                             "a!b",
                             "(a)",
                             "a^b",
                             "a<b>c",
                             "gr\xC3\xBC\xC3\x9F"
                             "e",
                             "\xF0\x9F\x90\xB3.wav",
                             "TMW7_20210304_050600.wav"})
        QTest::newRow(name) << QString::fromUtf8(name);
    QTest::newRow("longest") << QString(255, u'n');
}

void tst_CFtpProc::namesAsTheyAre()
{
    QFETCH(const QString, name);
    serve();
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Data")));
    const std::string path = ("Data/" + name).toStdString();
    QVERIFY(makeFile(local(QStringLiteral("a")), "first"));
    QVERIFY(m_proc->upLoad(local(QStringLiteral("a")).toStdString(), path));
    QCOMPARE(QDir(remote(QStringLiteral("Data"))).entryList(QDir::Files | QDir::Hidden), QStringList(name));
    QVERIFY(m_proc->fileExists(path));
    QVERIFY(m_proc->downLoad(path, local(QStringLiteral("b")).toStdString()));
    QCOMPARE(fileBytes(local(QStringLiteral("b"))), QByteArray("first"));
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone"), 3));
    QCOMPARE(m_peer->commands(QStringLiteral("RETR")), QStringList("RETR " + name));
    QCOMPARE(m_peer->commands(QStringLiteral("DELE")), QStringList());
}

void tst_CFtpProc::listing()
{
    serve();
    QVERIFY(QDir(m_server->path()).mkpath(QStringLiteral("Data/20210304")));
    QVERIFY(makeFile(remote(QStringLiteral("Data/x.wav")), "123"));
    for (const char* path : {"Data", "/Data", "Data/"}) {
        std::string text;
        QVERIFY(m_proc->getList(path, text));
        const QStringList lines = QString::fromStdString(text).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2);
        QVERIFY(lines.filter(QStringLiteral("drwxr")).value(0).endsWith(QLatin1String(" 20210304")));
        QVERIFY(lines.filter(QStringLiteral("-rw-r")).value(0).endsWith(QLatin1String(" x.wav")));
    }
    std::string root;
    QVERIFY(m_proc->getList("", root));
    QVERIFY(QString::fromStdString(root).endsWith(QLatin1String(" Data\n")));
}

void tst_CFtpProc::listOfTheBasePath()
{
    serve();
    QVERIFY(QDir(m_server->path()).mkpath(QStringLiteral("Data/20210304")));
    for (const char* name :
         {"TMW7_20210304_050600.wav", "TMW7_20210304_050700.wav", "TMW7_20210305_050600.wav"})
        QVERIFY(makeFile(remote(QStringLiteral("Data/") + QLatin1String(name)), "123"));
    m_proc->setBasePath(QStringLiteral("Data"));
    m_proc->setDTBegin(QDateTime(QDate(2021, 3, 4), QTime(5, 7), Qt::UTC));
    m_proc->setDTEnd(QDateTime(QDate(2021, 3, 5), QTime(0, 0), Qt::UTC));
    QStringList files;
    QStringList dirs;
    QString readyFrom;
    QStringList readyFiles;
    connect(m_proc.get(), &CFtpProc::signalListReady, this,
            [&](const QString& address, QStringList* filesList, QStringList* dirsList) {
                readyFrom = address;
                readyFiles = *filesList;
                QCOMPARE(filesList, &files);
                QCOMPARE(dirsList, &dirs);
            });
    QVERIFY(m_proc->getListFTP(&files, &dirs, CFtpProc::DevRecorder));
    QCOMPARE(files, QStringList("TMW7_20210304_050700.wav"));
    QCOMPARE(dirs, QStringList("20210304"));
    QCOMPARE(readyFrom, m_address);
    QCOMPARE(readyFiles, files);
    QCOMPARE(m_proc->dirList(), dirs);
}

void tst_CFtpProc::listIntoOneList()
{
    serve();
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("20210304")));
    QVERIFY(m_proc->getListFTP(nullptr, nullptr, CFtpProc::DevArray));
    // What an earlier listing had is forgotten.
    QVERIFY(m_proc->getListFTP(nullptr, nullptr, CFtpProc::DevArray));
    QCOMPARE(m_proc->dirList(), QStringList("20210304"));
}

void tst_CFtpProc::existence_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("exists");
    QTest::newRow("there") << "Data/x" << true;
    QTest::newRow("there, from the root") << "/Data/x" << true;
    QTest::newRow("empty file") << "Data/empty" << true;
    QTest::newRow("missing") << "Data/y" << false;
    QTest::newRow("missing directory") << "Doto/x" << false;
    QTest::newRow("a directory") << "Data" << false;
}

void tst_CFtpProc::existence()
{
    QFETCH(const QString, path);
    QFETCH(const bool, exists);
    serve();
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Data")));
    QVERIFY(makeFile(remote(QStringLiteral("Data/x")), "123"));
    QVERIFY(makeFile(remote(QStringLiteral("Data/empty")), ""));
    QSignalSpy told(m_proc.get(), &CFtpProc::signalFileExists);
    QCOMPARE(m_proc->fileExists(path.toStdString(), 7), exists);
    QCOMPARE(told.size(), 1);
    QCOMPARE(told[0][0].toBool(), exists);
    QCOMPARE(told[0][1].value<std::string>(), path.toStdString());
    QCOMPARE(told[0][2].toString(), m_address);
    QCOMPARE(told[0][3].toInt(), 7);
    QCOMPARE(m_errors.isEmpty(), exists);
}

void tst_CFtpProc::zcrFiles_data()
{
    QTest::addColumn<QStringList>("dirs");
    QTest::addColumn<QTime>("time");
    QTest::addColumn<QString>("asked");
    const QTime there(5, 6, 0);
    QTest::newRow("there") << QStringList{"20210303", "20210304"} << there
                           << "20210304/TMW7_20210304_050600.wav";
    QTest::newRow("seconds are 00") << QStringList{"20210304"} << QTime(5, 6, 59)
                                    << "20210304/TMW7_20210304_050600.wav";
    QTest::newRow("another minute") << QStringList{"20210304"} << QTime(5, 7)
                                    << "20210304/TMW7_20210304_050700.wav";
    QTest::newRow("afternoon") << QStringList{"20210304"} << QTime(17, 6)
                               << "20210304/TMW7_20210304_170600.wav";
    QTest::newRow("the day within a name")
        << QStringList{"REC_20210304_A"} << there << "REC_20210304_A/TMW7_20210304_050600.wav";
    QTest::newRow("only the first one is asked")
        << QStringList{"A20210304", "20210304"} << there << "A20210304/TMW7_20210304_050600.wav";
    QTest::newRow("no such day") << QStringList{"20210303", "2021-03-04"} << there << "";
    QTest::newRow("no directories") << QStringList{} << there << "";
}

void tst_CFtpProc::zcrFiles()
{
    QFETCH(const QStringList, dirs);
    QFETCH(const QTime, time);
    QFETCH(const QString, asked);
    serve();
    for (const char* dir : {"Data/20210304", "Data/REC_20210304_A"}) {
        QVERIFY(QDir(m_server->path()).mkpath(QLatin1String(dir)));
        QVERIFY(makeFile(remote(QLatin1String(dir) + QStringLiteral("/TMW7_20210304_050600.wav")), "1"));
    }
    m_proc->setBasePath(QStringLiteral("Data"));
    m_proc->setDirList(dirs);
    QSignalSpy told(m_proc.get(), &CFtpProc::signalFileExists);
    const bool exists = m_proc->fileZCRExists(QStringLiteral("7"), QDateTime(QDate(2021, 3, 4), time));
    QCOMPARE(exists, QFile::exists(remote(QStringLiteral("Data/") + asked)) && !asked.isEmpty());
    QCOMPARE(told.size(), asked.isEmpty() ? 0 : 1);
    if (!asked.isEmpty()) {
        QCOMPARE(told[0][1].value<std::string>(), ("Data/" + asked).toStdString());
        QCOMPARE(told[0][0].toBool(), exists);
    }
}

void tst_CFtpProc::preparedDownloads()
{
    serve();
    QVERIFY(makeFile(remote(QStringLiteral("a")), "A"));
    QVERIFY(makeFile(remote(QStringLiteral("b")), "B"));
    QVERIFY(m_proc->downLoad());
    QSignalSpy finished(m_proc.get(), &CFtpProc::signalLoadingFinished);
    // The local name may have the separator in it.
    m_proc->setDownLoadList({"a<|>" + local(QStringLiteral("1")), "b<|>" + local(QStringLiteral("2<|>3"))});
    QVERIFY(m_proc->downLoad());
    QCOMPARE(fileBytes(local(QStringLiteral("1"))), QByteArray("A"));
    QCOMPARE(fileBytes(local(QStringLiteral("2<|>3"))), QByteArray("B"));
    QCOMPARE(finished.size(), 2);
    QCOMPARE(finished[0], QVariantList({true, local(QStringLiteral("1"))}));
    QCOMPARE(finished[1], QVariantList({true, local(QStringLiteral("2<|>3"))}));
}

void tst_CFtpProc::preparedUploads()
{
    serve();
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Config")));
    QVERIFY(makeFile(local(QStringLiteral("1")), "A"));
    QVERIFY(makeFile(local(QStringLiteral("2")), "B"));
    QVERIFY(m_proc->upLoad());
    m_proc->setDownLoadList(
        {local(QStringLiteral("1")) + "<|>Config/JOBSETUP.CFG", local(QStringLiteral("2")) + "<|>b"});
    QVERIFY(m_proc->upLoad());
    QCOMPARE(fileBytes(remote(QStringLiteral("Config/JOBSETUP.CFG"))), QByteArray("A"));
    QCOMPARE(fileBytes(remote(QStringLiteral("b"))), QByteArray("B"));
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone"), 2));
    QCOMPARE(m_peer->commands(QStringLiteral("STOR")), QStringList({"STOR JOBSETUP.CFG", "STOR b"}));
}

void tst_CFtpProc::uploadedUnderAnotherName()
{
    serve();
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Config")));
    QVERIFY(makeFile(remote(QStringLiteral("Config/a")), "old"));
    QVERIFY(makeFile(local(QStringLiteral("1")), "new"));
    m_proc->setUploadCommands({QStringLiteral("RNFR a.part"), QStringLiteral("RNTO a")});
    QVERIFY(m_proc->upLoad(local(QStringLiteral("1")).toStdString(), "Config/a.part"));
    QCOMPARE(fileBytes(remote(QStringLiteral("Config/a"))), QByteArray("new"));
    QVERIFY(!QFile::exists(remote(QStringLiteral("Config/a.part"))));
}

void tst_CFtpProc::verboseOnStandardError()
{
    serve();
    QVERIFY(makeFile(remote(QStringLiteral("x")), "1"));
    ErrorOutput output;
    QVERIFY(m_proc->fileExists("x"));
    QVERIFY(output.text().contains("> USER anonymous\r\n"));
}

void tst_CFtpProc::onAThreadOfItsOwn()
{
    serve();
    QVERIFY(makeFile(remote(QStringLiteral("x")), "123"));
    QThread thread;
    QPointer<CFtpProc> proc = new CFtpProc;
    proc->setIpAddr(m_address);
    proc->moveToThread(&thread);
    connect(&thread, &QThread::finished, proc.data(), &QObject::deleteLater);
    QSignalSpy told(proc.data(), &CFtpProc::signalFileExists);
    std::string name;
    connect(proc.data(), &CFtpProc::signalFileExists, this,
            [&](bool, const std::string& fileName, const QString&, int) { name = fileName; });
    thread.start();
    QMetaObject::invokeMethod(proc.data(), [&] { proc->fileExists("x"); });
    QTRY_COMPARE_WITH_TIMEOUT(name, std::string("x"), 20000);
    thread.quit();
    QVERIFY(thread.wait(20000));
    QVERIFY(proc.isNull());
}

int main(int argc, char* argv[])
{
    return runFtpTest<tst_CFtpProc>(argc, argv);
}

#include "tst_CFtpProc.moc"
