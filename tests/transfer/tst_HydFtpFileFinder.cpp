#include "NvxQtCommon/transfer/HydFtpFileFinder.h"
#include "tests/support/LogSpy.h"
#include "tests/transfer/FtpCase.h"

#include <QPointer>

#include <vector>

namespace {

const QString kFirst = QStringLiteral("127.94.5.1");
const QString kSecond = QStringLiteral("127.94.5.2");
const QString kNobody = QStringLiteral("127.94.5.99");
const QString kInside = QStringLiteral("REC7_20210304_050607.wav");

QDateTime utc(int hour, int minute, int second)
{
    return QDateTime(QDate(2021, 3, 4), QTime(hour, minute, second), Qt::UTC);
}

QUrlInfo entry(const QString& name, const QDateTime& created, bool isDir = false)
{
    QUrlInfo info;
    info.setName(name);
    info.setCreated(created);
    info.setDir(isDir);
    info.setFile(!isDir);
    return info;
}

QStringList names(const QList<QUrlInfo>& files)
{
    QStringList found;
    for (const QUrlInfo& file : files)
        found << file.name();
    found.sort();
    return found;
}

} // namespace

/// The finder, against packaged servers and on single entries.
class tst_HydFtpFileFinder : public FtpCase
{
    Q_OBJECT

public:
    tst_HydFtpFileFinder() : FtpCase(kFirst) {}

private Q_SLOTS:
    void init();

    // --- happy flows
    void newFinder();
    void filesOfTwoRecorders();
    void whatIsSent();
    void filesOfAnyTime();
    void theNextSearchBeginsAnew();
    void batches();
    void singleEntries_data();
    void singleEntries();
    void silenceCountsFromTheLastBatch();
    void entriesOfEachConnection();
    // --- rainy day flows
    void noAddress();
    void recorderThatIsNotThere();
    void missingDirectory();
    void silentRecorder();
    void timeoutWithoutFiles();
    void lateAnswer();
    void searchWithoutInitialize();
    void dropsASearchUnderWay();
    void deletedByItsOwnSignal_data();
    void deletedByItsOwnSignal();

private:
    /// Tells the finder to be the one of this test and notes its signals.
    void watch(HydFtpFileFinder& finder);
    bool offer(const QString& folder, const QString& name);

    std::unique_ptr<QTemporaryDir> m_other;
    QStringList m_told;
    QDateTime m_start = utc(5, 0, 0);
    QDateTime m_end = utc(6, 0, 0);
};

void tst_HydFtpFileFinder::init()
{
    makeFolders();
    m_other = std::make_unique<QTemporaryDir>();
    m_told.clear();
}

bool tst_HydFtpFileFinder::offer(const QString& folder, const QString& name)
{
    return QDir(folder).mkpath(QStringLiteral("Data")) && makeFile(folder + "/Data/" + name, "123");
}

void tst_HydFtpFileFinder::watch(HydFtpFileFinder& finder)
{
    connect(&finder, &HydFtpFileFinder::filesFound, this,
            [this](QList<QUrlInfo>& files) { m_told << "files " + names(files).join(u' '); });
    connect(&finder, &HydFtpFileFinder::timeout, this, [this] { m_told << QStringLiteral("timeout"); });
}

void tst_HydFtpFileFinder::newFinder()
{
    QObject parent;
    auto* finder = new HydFtpFileFinder(&parent);
    QVERIFY(finder->files().isEmpty());
    QVERIFY(finder->dirs().isEmpty());
    QVERIFY(finder->connections().isEmpty());
    QVERIFY(!finder->collectTimer()->isActive());
}

void tst_HydFtpFileFinder::filesOfTwoRecorders()
{
    for (const char* name :
         {"REC7_20210304_045959.wav", "REC7_20210304_050000.wav", "REC7_20210304_053000.TXT"})
        QVERIFY(offer(m_server->path(), QLatin1String(name)));
    for (const char* name :
         {"REC8_20210304_060000.Wav", "REC8_20210304_060001.wav", "REC8_20210304_053000.log"})
        QVERIFY(offer(m_other->path(), QLatin1String(name)));
    QVERIFY(QDir(m_other->path()).mkdir(QStringLiteral("Data/today")));
    serve();
    FtpPeer second;
    QVERIFY2(second.start(kSecond, m_other->path()), qPrintable(second.errorText()));
    HydFtpFileFinder finder;
    watch(finder);
    finder.initialize(false);
    QList<QString> addresses{kFirst, kSecond};
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    QCOMPARE(finder.connections().size(), 2);
    QCOMPARE(finder.connections()[0]->address(), kFirst);
    QCOMPARE(finder.connections()[1]->address(), kSecond);
    QCOMPARE(finder.collectTimer()->interval(), 30000);
    QVERIFY(finder.collectTimer()->isActive());
    QTRY_COMPARE_WITH_TIMEOUT(m_told.size(), 1, 20000);
    QCOMPARE(m_told,
             QStringList("files REC7_20210304_050000.wav REC7_20210304_053000.TXT REC8_20210304_060000.Wav"));
    QVERIFY(!finder.collectTimer()->isActive());
    QCOMPARE(finder.files().size(), 3);
    // They stay until the next search.
    QCOMPARE(finder.connections().size(), 2);
}

void tst_HydFtpFileFinder::whatIsSent()
{
    QVERIFY(offer(m_server->path(), kInside));
    serve();
    HydFtpFileFinder finder;
    watch(finder);
    finder.initialize(false);
    QList<QString> addresses{kFirst};
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    QTRY_COMPARE_WITH_TIMEOUT(m_told.size(), 1, 20000);
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone")));
    const QStringList commands = m_peer->commands();
    QCOMPARE(commands.mid(0, 2), QStringList({"USER anonymous", "PASS anonymous@"}));
    QCOMPARE(commands.mid(commands.size() - 2), QStringList({"LIST Data", "QUIT"}));
}

void tst_HydFtpFileFinder::filesOfAnyTime()
{
    QVERIFY(offer(m_server->path(), QStringLiteral("REC7_19990304_050000.wav")));
    QVERIFY(offer(m_server->path(), QStringLiteral("REC7_19990304_050000.log")));
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Data/today")));
    serve();
    HydFtpFileFinder finder;
    watch(finder);
    finder.initialize(true);
    QList<QString> addresses{kFirst};
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    QTRY_COMPARE_WITH_TIMEOUT(m_told.size(), 1, 20000);
    // Intended: any time, but still by the ending.
    QCOMPARE(m_told, QStringList("files REC7_19990304_050000.wav"));
    QCOMPARE(finder.dirs(), QList<QString>({"today"}));
}

void tst_HydFtpFileFinder::theNextSearchBeginsAnew()
{
    QVERIFY(offer(m_server->path(), kInside));
    serve();
    HydFtpFileFinder finder;
    watch(finder);
    QList<QString> addresses{kFirst};
    for (int search = 1; search <= 2; ++search) {
        finder.initialize(false);
        QVERIFY(finder.files().isEmpty());
        QVERIFY(finder.connections().isEmpty());
        QVERIFY(!finder.collectTimer()->isActive());
        finder.findFilesInTimeRange(addresses, m_start, m_end);
        QTRY_COMPARE_WITH_TIMEOUT(m_told.size(), search, 20000);
        QCOMPARE(m_told.last(), "files " + kInside);
    }
}

void tst_HydFtpFileFinder::batches()
{
    HydFtpFileFinder finder;
    finder.initialize(false);
    // The client has filtered them.
    finder.handleListInfoS({entry(QStringLiteral("a.wav"), utc(1, 0, 0)),
                            entry(QStringLiteral("d"), utc(1, 0, 0), true),
                            entry(QStringLiteral("b"), utc(1, 0, 0))});
    QCOMPARE(names(finder.files()), QStringList({"a.wav", "b"}));
    QCOMPARE(finder.dirs(), QList<QString>({"d"}));
    QVERIFY(finder.collectTimer()->isActive());
}

void tst_HydFtpFileFinder::singleEntries_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QTime>("time");
    QTest::addColumn<bool>("isDir");
    QTest::addColumn<bool>("all");
    QTest::addColumn<bool>("taken");
    QTest::addColumn<bool>("noted");
    QTest::addColumn<bool>("restarts");
    const QTime in(5, 30);
    const QTime out(7, 0);
    QTest::newRow("wave") << "a.wav" << in << false << false << true << false << true;
    QTest::newRow("text") << "a.txt" << in << false << false << true << false << true;
    QTest::newRow("capitals") << "a.WaV" << in << false << false << true << false << true;
    QTest::newRow("at the start") << "a.wav" << QTime(5, 0) << false << false << true << false << true;
    QTest::newRow("before the start")
        << "a.wav" << QTime(4, 59, 59) << false << false << false << false << true;
    QTest::newRow("at the end") << "a.wav" << QTime(6, 0) << false << false << true << false << true;
    QTest::newRow("behind the end") << "a.wav" << QTime(6, 0, 1) << false << false << false << false << true;
    QTest::newRow("any time") << "a.wav" << out << false << true << true << false << true;
    QTest::newRow("directory inside") << "d" << in << true << false << true << true << true;
    QTest::newRow("directory outside") << "d" << out << true << false << false << true << true;
    QTest::newRow("directory, any time") << "d" << out << true << true << true << true << true;
    QTest::newRow("directory with the ending") << "d.wav" << in << true << false << true << false << true;
    QTest::newRow("another ending") << "a.log" << in << false << false << false << false << false;
    QTest::newRow("another ending, any time") << "a.log" << in << false << true << false << false << false;
    QTest::newRow("ending in the middle") << "a.wav.gz" << in << false << true << false << false << false;
}

void tst_HydFtpFileFinder::singleEntries()
{
    QFETCH(const QString, name);
    QFETCH(const QTime, time);
    QFETCH(const bool, isDir);
    QFETCH(const bool, all);
    QFETCH(const bool, taken);
    QFETCH(const bool, noted);
    QFETCH(const bool, restarts);
    HydFtpFileFinder finder;
    finder.initialize(all);
    QList<QString> nobody;
    finder.findFilesInTimeRange(nobody, m_start, m_end);
    finder.collectTimer()->stop();
    finder.handleListInfo(entry(name, QDateTime(QDate(2021, 3, 4), time, Qt::UTC), isDir));
    QCOMPARE(names(finder.files()), taken ? QStringList(name) : QStringList());
    QCOMPARE(finder.dirs(), noted ? QList<QString>({name}) : QList<QString>());
    QCOMPARE(finder.collectTimer()->isActive(), restarts);
}

void tst_HydFtpFileFinder::silenceCountsFromTheLastBatch()
{
    HydFtpFileFinder finder;
    watch(finder);
    finder.initialize(false);
    QList<QString> nobody;
    finder.findFilesInTimeRange(nobody, m_start, m_end);
    finder.collectTimer()->setTimerType(Qt::PreciseTimer);
    finder.collectTimer()->start();
    QTRY_VERIFY(finder.collectTimer()->remainingTime() < 29000);
    const int left = finder.collectTimer()->remainingTime();
    finder.handleListInfoS({});
    QVERIFY(finder.collectTimer()->remainingTime() > left);
}

void tst_HydFtpFileFinder::entriesOfEachConnection()
{
    HydFtpFileFinder finder;
    finder.initialize(false);
    QList<QString> addresses{kNobody, kNobody};
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    // The client of this library tells batches alone, but whatever it tells is heard.
    Q_EMIT finder.connections()[0]->listInfo(entry(QStringLiteral("a.wav"), utc(5, 0, 0)));
    Q_EMIT finder.connections()[1]->listInfo(entry(QStringLiteral("b.wav"), utc(5, 0, 0)));
    Q_EMIT finder.connections()[1]->listInfoS({entry(QStringLiteral("c.wav"), utc(5, 0, 0))});
    QCOMPARE(names(finder.files()), QStringList({"a.wav", "b.wav", "c.wav"}));
}

void tst_HydFtpFileFinder::noAddress()
{
    HydFtpFileFinder finder;
    watch(finder);
    finder.initialize(false);
    QList<QString> nobody;
    finder.findFilesInTimeRange(nobody, m_start, m_end);
    QVERIFY(finder.collectTimer()->isActive());
    finder.collectTimer()->start(1);
    QTRY_COMPARE(m_told, QStringList("timeout"));
    QVERIFY(!finder.collectTimer()->isActive());
}

void tst_HydFtpFileFinder::recorderThatIsNotThere()
{
    QVERIFY(offer(m_server->path(), kInside));
    serve();
    HydFtpFileFinder finder;
    watch(finder);
    finder.initialize(false);
    QList<QString> addresses{kNobody, kFirst};
    LogSpy log;
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    QTRY_COMPARE_WITH_TIMEOUT(m_told, QStringList("files " + kInside), 20000);
    QCOMPARE(log.count(QStringLiteral("List info error!!")), 1);
}

void tst_HydFtpFileFinder::missingDirectory()
{
    serve();
    HydFtpFileFinder finder;
    watch(finder);
    finder.initialize(false);
    QList<QString> addresses{kFirst};
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    // An answer without files is one.
    QTRY_COMPARE_WITH_TIMEOUT(m_told, QStringList("files "), 20000);
}

void tst_HydFtpFileFinder::silentRecorder()
{
    QVERIFY(offer(m_server->path(), kInside));
    QVERIFY(offer(m_other->path(), kInside));
    serve();
    FtpPeer silent;
    QVERIFY2(silent.start(kSecond, m_other->path(), {QStringLiteral("--silent"), QStringLiteral("LIST")}),
             qPrintable(silent.errorText()));
    HydFtpFileFinder finder;
    watch(finder);
    finder.initialize(false);
    QList<QString> addresses{kFirst, kSecond};
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    QTRY_COMPARE_WITH_TIMEOUT(finder.files().size(), 1, 20000);
    QVERIFY(finder.collectTimer()->isActive());
    QCOMPARE(m_told, QStringList());
    finder.collectTimer()->start(1);
    // Intended: both.
    QTRY_COMPARE(m_told, QStringList({"files " + kInside, "timeout"}));
    QVERIFY(!finder.collectTimer()->isActive());
}

void tst_HydFtpFileFinder::timeoutWithoutFiles()
{
    HydFtpFileFinder finder;
    watch(finder);
    finder.initialize(false);
    finder.collectTimer()->start(30000);
    finder.handleCollectTimeout();
    QCOMPARE(m_told, QStringList("timeout"));
    QVERIFY(!finder.collectTimer()->isActive());
}

void tst_HydFtpFileFinder::lateAnswer()
{
    HydFtpFileFinder finder;
    watch(finder);
    finder.initialize(false);
    QList<QString> addresses{kNobody, kNobody};
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    finder.handleListInfoS({entry(QStringLiteral("a.wav"), utc(5, 0, 0))});
    finder.handleFileListDone(false);
    finder.handleCollectTimeout();
    QCOMPARE(m_told, QStringList({"files a.wav", "timeout"}));
    // Intended: the files come a second time.
    finder.handleFileListDone(false);
    QCOMPARE(m_told, QStringList({"files a.wav", "timeout", "files a.wav"}));
    finder.handleFileListDone(false);
    QCOMPARE(m_told.size(), 3);
}

void tst_HydFtpFileFinder::searchWithoutInitialize()
{
    HydFtpFileFinder finder;
    QList<QString> addresses{kNobody};
    finder.initialize(false);
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    finder.handleListInfoS(
        {entry(QStringLiteral("a.wav"), utc(5, 0, 0)), entry(QStringLiteral("d"), utc(5, 0, 0), true)});
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    // The files and connections of the one before are still there; its directories aren't.
    QCOMPARE(finder.files().size(), 1);
    QCOMPARE(finder.dirs(), QList<QString>());
    QCOMPARE(finder.connections().size(), 2);
}

void tst_HydFtpFileFinder::dropsASearchUnderWay()
{
    QVERIFY(offer(m_server->path(), kInside));
    serve({QStringLiteral("--silent"), QStringLiteral("LIST")});
    HydFtpFileFinder finder;
    watch(finder);
    finder.initialize(false);
    QList<QString> addresses{kFirst};
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    const QPointer<NvxFtp> connection = finder.connections().first();
    QTRY_COMPARE_WITH_TIMEOUT(m_peer->commands(QStringLiteral("LIST")).size(), 1, 20000);
    finder.initialize(false);
    // Not deleted inside of what may be its own signal.
    QVERIFY(!connection.isNull());
    // What it still tells is no answer of the next search.
    finder.findFilesInTimeRange(addresses, m_start, m_end);
    Q_EMIT connection->done(true);
    QCOMPARE(m_told, QStringList());
    QTRY_VERIFY(connection.isNull());
    finder.initialize(false);
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone")));
}

void tst_HydFtpFileFinder::deletedByItsOwnSignal_data()
{
    QTest::addColumn<bool>("byTimeout");
    QTest::newRow("all have answered") << false;
    QTest::newRow("the time is over") << true;
}

void tst_HydFtpFileFinder::deletedByItsOwnSignal()
{
    QFETCH(const bool, byTimeout);
    QVERIFY(offer(m_server->path(), kInside));
    serve();
    auto finder = std::make_unique<HydFtpFileFinder>();
    watch(*finder);
    connect(finder.get(), &HydFtpFileFinder::filesFound, this, [&] { finder.reset(); });
    finder->initialize(false);
    QList<QString> addresses{kFirst};
    if (byTimeout)
        addresses << kNobody;
    finder->findFilesInTimeRange(addresses, m_start, m_end);
    if (byTimeout) {
        finder->handleListInfoS({entry(QStringLiteral("a.wav"), utc(5, 0, 0))});
        finder->collectTimer()->start(0);
    }
    QTRY_VERIFY_WITH_TIMEOUT(finder == nullptr, 20000);
    QCOMPARE(m_told.size(), 1);
}

int main(int argc, char* argv[])
{
    return runFtpTest<tst_HydFtpFileFinder>(argc, argv);
}

#include "tst_HydFtpFileFinder.moc"
