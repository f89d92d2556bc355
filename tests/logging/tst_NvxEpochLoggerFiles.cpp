// Which file a diary's lines go to, and what comes of a file that can't be had.
#include "EpochDiary.h"

#include "tests/support/Buried.h"
#include "tests/support/NvxTestCase.h"

#include <QScopeGuard>
#include <QSignalSpy>

#include <csignal>
#include <functional>
#include <sys/resource.h>
#include <unistd.h>

namespace {

const QString kName = QStringLiteral("VEEpoch__1234_20210304_050607.txt");
const QString kLater = QStringLiteral("2021-03-04T23:00:00");
const QString kNextDay = QStringLiteral("2021-03-05T00:00:01");
const QString kFailure = QStringLiteral(
    "Please ensure that there is space on the disk and that you have permission to write to the "
    "destination directory.");

SActiveTrigger ended(const QString& utc = QStringLiteral("2021-03-04T05:06:07"))
{
    return occurrenceOf(TrigProgram, 6, utc);
}

QString lineOf(const QString& utc)
{
    return QString(utc).replace(u'T', u' ') + QStringLiteral(", P, 1234, E, 3, Ended, S, 100");
}

/// Nobody in particular while it lives, where this runs as the superuser, whom no permission holds back.
class Nobody
{
public:
    Nobody() : m_isTaken(geteuid() != 0 || seteuid(65534) == 0) {}
    ~Nobody()
    {
        if (getuid() == 0 && seteuid(0) != 0)
            qFatal("the superuser's rights didn't come back");
    }
    Nobody(const Nobody&) = delete;
    Nobody& operator=(const Nobody&) = delete;
    bool isTaken() const { return m_isTaken; }

private:
    bool m_isTaken;
};

/// What a logger says of an operation, in order.
class Said
{
public:
    explicit Said(const NvxEpochLogger* logger)
    {
        QObject::connect(logger, &NvxEpochLogger::loggingStarted, logger, [this] { m_words << "started"; });
        QObject::connect(logger, &NvxEpochLogger::loggingStopped, logger, [this] { m_words << "stopped"; });
        QObject::connect(logger, &NvxEpochLogger::loggingFailed, logger,
                         [this](const QString& text) { m_words << text; });
    }
    const QStringList& words() const { return m_words; }

private:
    QStringList m_words;
};

const QStringList kWriteError{kFailure, QStringLiteral("stopped")};

using BuriedLogger = Buried<NvxEpochLogger>;
using Connect = std::function<void(NvxEpochLogger*, const std::function<void()>&)>;
using Operation = std::function<void(NvxEpochLogger*)>;

template <class Signal> Connect under(Signal signal)
{
    return [signal](NvxEpochLogger* logger, const std::function<void()>& slot) {
        QObject::connect(logger, signal, logger, [slot] { slot(); });
    };
}

} // namespace

Q_DECLARE_METATYPE(Connect)
Q_DECLARE_METATYPE(Operation)

class tst_NvxEpochLoggerFiles : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR); }
    // --- happy flows
    void sameDayGoesOn();
    void nextDayBeginsAFile();
    void openFileIsKeptAcrossMidnight();
    void eachSerialNumberHasItsFile();
    void fileThatGoesOn_data();
    void fileThatGoesOn();
    void oneOfSeveralFilesGoesOn();
    void prefixes_data();
    void prefixes();
    // --- rainy day flows
    void fileThatMayNotBeWritten();
    void newFileTakesANumberWhereItsNameExists();
    void directoryThatMayNotBeWritten();
    void directoryThatIsNotThere();
    void directoryThatVanishes();
    void prefixesThatAreNoNames_data();
    void prefixesThatAreNoNames();
    void fullDiskLosesLinesWithoutAWord();
    void heldLinesFollowOnceThereIsRoom();
    void shortenedLineIsGoneOnWith();
    void deletedByASlot_data();
    void deletedByASlot();
};

void tst_NvxEpochLoggerFiles::sameDayGoesOn()
{
    EpochDiary diary;
    diary->handleTrigActive(ended());
    diary->stopLogging();
    diary->handleTrigActive(ended(kLater));
    QCOMPARE(diary.files(), QStringList{kName});
    QCOMPARE(diary.lines().size(), 3);
    QCOMPARE(diary.lines().first(), lineOf(QStringLiteral("2021-03-04T05:06:07")));
    QCOMPARE(diary.lines().last(), lineOf(kLater));
    // As does another program of that day.
    diary.end();
    NvxEpochLogger again(0, diary.path(), 0, nullptr);
    again.setLogProgMode(LogOn);
    again.handleTrigActive(ended(kLater));
    QCOMPARE(diary.files(), QStringList{kName});
    QCOMPARE(diary.lines().size(), 5);
}

void tst_NvxEpochLoggerFiles::nextDayBeginsAFile()
{
    EpochDiary diary;
    diary->handleTrigActive(ended());
    diary->stopLogging();
    diary->handleTrigActive(ended(kNextDay));
    const QString next = QStringLiteral("VEEpoch__1234_20210305_000001.txt");
    QCOMPARE(diary.files(), (QStringList{kName, next}));
    QCOMPARE(diary.lines(kName).size(), 2);
    QCOMPARE(diary.lines(next), QStringList{lineOf(kNextDay)});
}

void tst_NvxEpochLoggerFiles::openFileIsKeptAcrossMidnight()
{
    EpochDiary diary;
    diary->handleTrigActive(ended());
    diary->handleTrigActive(ended(kNextDay));
    SActiveTrigger other = ended(kNextDay);
    other.devId = HydDeviceId(DevTypeRecorderA, 7);
    QVERIFY(diary->fileCheck(other, QDateTime::currentDateTimeUtc()));
    QVERIFY(diary->fileCheck(occurrenceOf(TrigProgram, 14), QDateTime::currentDateTimeUtc()));
    QCOMPARE(diary.files(), QStringList{kName});
    QCOMPARE(diary.lines().size(), 2);
}

void tst_NvxEpochLoggerFiles::eachSerialNumberHasItsFile()
{
    EpochDiary diary;
    diary.put(QStringLiteral("VEEpoch__123_20210304_050607.txt"), "123\n");
    diary.put(QStringLiteral("VEEpoch__12345_20210304_050607.txt"), "12345\n");
    diary->handleTrigActive(ended());
    QCOMPARE(diary.files().size(), 3);
    QCOMPARE(diary.lines(kName).size(), 1);
    diary->stopLogging();
    SActiveTrigger other = ended();
    other.devId = HydDeviceId(DevTypeRecorderA, 123);
    diary->handleTrigActive(other);
    QCOMPARE(diary.files().size(), 3);
    QCOMPARE(diary.lines(QStringLiteral("VEEpoch__123_20210304_050607.txt")).size(), 2);
    QCOMPARE(diary.lines(QStringLiteral("VEEpoch__12345_20210304_050607.txt")).size(), 1);
}

void tst_NvxEpochLoggerFiles::fileThatGoesOn_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("goesOn");
    QTest::newRow("of an earlier time") << QStringLiteral("VEEpoch__1234_20210304_000000.txt") << true;
    QTest::newRow("with capitals") << QStringLiteral("VEEpoch__1234_20210304_050607.TXT") << true;
    QTest::newRow("with a number") << QStringLiteral("VEEpoch__1234_20210304_050607_2.txt") << true;
    QTest::newRow("with anything behind") << QStringLiteral("VEEpoch__1234_20210304 (copy).txt") << true;
    QTest::newRow("without a time") << QStringLiteral("VEEpoch__1234_20210304.txt") << true;
    QTest::newRow("of mixed capitals") << QStringLiteral("VEEpoch__1234_20210304_000000.Txt") << false;
    QTest::newRow("of another prefix") << QStringLiteral("veepoch__1234_20210304_000000.txt") << false;
    QTest::newRow("of another day") << QStringLiteral("VEEpoch__1234_20210303_235959.txt") << false;
    QTest::newRow("of another kind") << QStringLiteral("VEEpoch__1234_20210304_000000.txt.bak") << false;
    QTest::newRow("with something before") << QStringLiteral("xVEEpoch__1234_20210304_000000.txt") << false;
}
void tst_NvxEpochLoggerFiles::fileThatGoesOn()
{
    QFETCH(QString, name);
    QFETCH(bool, goesOn);
    EpochDiary diary;
    diary.put(name, "before\n");
    diary->handleTrigActive(ended(kLater));
    QCOMPARE(diary.files().size(), goesOn ? 1 : 2);
    QCOMPARE(diary.lines(name),
             goesOn ? QStringList({"before", lineOf(kLater)}) : QStringList{QStringLiteral("before")});
    QCOMPARE(diary->logPath() == diary.path(name), goesOn);
}

void tst_NvxEpochLoggerFiles::oneOfSeveralFilesGoesOn()
{
    // Which one is the system's choice; the lines are in one of them, and in no new one.
    EpochDiary diary;
    const QStringList names{QStringLiteral("VEEpoch__1234_20210304_010000.txt"),
                            QStringLiteral("VEEpoch__1234_20210304_020000.txt"),
                            QStringLiteral("VEEpoch__1234_20210304_030000.txt")};
    for (const QString& name : names)
        diary.put(name);
    QVERIFY(QDir().mkdir(diary.path(QStringLiteral("VEEpoch__1234_20210304_040000.txt"))));
    diary->handleTrigActive(ended(kLater));
    QCOMPARE(diary.files().size(), 4);
    QVERIFY(names.contains(QFileInfo(diary->logPath()).fileName()));
    QByteArray all;
    for (const QString& name : names)
        all += diary.bytes(name);
    QCOMPARE(all, lineOf(kLater).toUtf8() + '\n');
}

void tst_NvxEpochLoggerFiles::prefixes_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::newRow("word") << QStringLiteral("Diary");
    QTest::newRow("empty") << QString();
    QTest::newRow("star") << QStringLiteral("*");
    QTest::newRow("question mark") << QStringLiteral("D?");
    QTest::newRow("set") << QStringLiteral("[D]");
    QTest::newRow("open set") << QStringLiteral("[");
    QTest::newRow("set of all but") << QStringLiteral("[!x]*");
    QTest::newRow("of an expression") << QStringLiteral("D.+$(|)^{2}");
    QTest::newRow("hidden") << QStringLiteral(".diary");
    QTest::newRow("blanks") << QStringLiteral(" a b ");
    QTest::newRow("other letters") << QStringLiteral("Tagebuch-Ä-日誌");
    QTest::newRow("percent") << QStringLiteral("%1%2");
    QTest::newRow("line feed") << QStringLiteral("a\nb");
}
void tst_NvxEpochLoggerFiles::prefixes()
{
    QFETCH(QString, prefix);
    EpochDiary diary;
    // What the prefix would match, were it a pattern.
    const QString other = QStringLiteral("Dx_1234_20210304_000000.txt");
    const QString letter = QStringLiteral("D_1234_20210304_000000.txt");
    diary.put(other, "other\n");
    diary.put(letter, "letter\n");
    diary->setFilePrefix(prefix);
    const QString name = prefix + QStringLiteral("_1234_20210304_050607.txt");
    diary->handleTrigActive(ended());
    diary->stopLogging();
    diary->handleTrigActive(ended(kLater));
    QCOMPARE(diary.files().size(), 3);
    QCOMPARE(diary.lines(name).size(), 3);
    QCOMPARE(diary.bytes(other) + diary.bytes(letter), QByteArray("other\nletter\n"));
}

void tst_NvxEpochLoggerFiles::fileThatMayNotBeWritten()
{
    const Nobody nobody;
    if (!nobody.isTaken())
        QSKIP("the superuser may write anywhere, and no other user can be taken on");
    EpochDiary diary;
    diary.put(kName, "before\n");
    QVERIFY(QFile::setPermissions(diary.path(kName), QFile::ReadOwner));
    const Said said(&diary.logger());
    diary->handleTrigActive(ended(kLater));
    const QString fresh = QStringLiteral("VEEpoch__1234_20210304_230000.txt");
    QCOMPARE(diary.files(), (QStringList{kName, fresh}));
    QCOMPARE(diary.lines(kName), QStringList{QStringLiteral("before")});
    QCOMPARE(diary.lines(fresh), QStringList{lineOf(kLater)});
    QCOMPARE(said.words(), QStringList());
}

void tst_NvxEpochLoggerFiles::newFileTakesANumberWhereItsNameExists()
{
    const Nobody nobody;
    if (!nobody.isTaken())
        QSKIP("the superuser may write anywhere, and no other user can be taken on");
    EpochDiary diary;
    diary.put(kName, "before\n");
    QVERIFY(QFile::setPermissions(diary.path(kName), QFile::ReadOwner));
    diary->handleTrigActive(ended());
    const QString second = QStringLiteral("VEEpoch__1234_20210304_050607_2.txt");
    QCOMPARE(diary.files(), (QStringList{kName, second}));
    QCOMPARE(diary.lines(kName), QStringList{QStringLiteral("before")});
    QCOMPARE(diary.lines(second).size(), 1);
    diary.end();
    QVERIFY(QFile::setPermissions(diary.path(second), QFile::ReadOwner));
    NvxEpochLogger again(0, diary.path(), 0, nullptr);
    again.setLogProgMode(LogOn);
    again.handleTrigActive(ended());
    QCOMPARE(again.logPath(), diary.path(QStringLiteral("VEEpoch__1234_20210304_050607_3.txt")));
    QCOMPARE(diary.lines(second).size(), 2);
}

void tst_NvxEpochLoggerFiles::directoryThatMayNotBeWritten()
{
    const Nobody nobody;
    if (!nobody.isTaken())
        QSKIP("the superuser may write anywhere, and no other user can be taken on");
    EpochDiary diary;
    diary.put(kName, "before\n");
    QVERIFY(QFile::setPermissions(diary.path(), QFile::ReadOwner | QFile::ExeOwner));
    const auto back = qScopeGuard([&diary] {
        QFile::setPermissions(diary.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    });
    const Said said(&diary.logger());
    // A file that is there may be gone on with, a new one can't be made.
    diary->handleTrigActive(ended());
    QCOMPARE(diary.lines().size(), 2);
    diary->fileClose(QStringLiteral("end"));
    QCOMPARE(said.words(), QStringList());
    diary->handleTrigActive(ended(kNextDay));
    QCOMPARE(said.words(), kWriteError);
    QCOMPARE(diary.files(), QStringList{kName});
}

void tst_NvxEpochLoggerFiles::directoryThatIsNotThere()
{
    const QTemporaryDir dir;
    NvxEpochLogger logger(0, dir.filePath(QStringLiteral("none")), 0, nullptr);
    logger.setLogProgMode(LogOn);
    logger.setLogDevMode(LogOn);
    const Said said(&logger);
    logger.handleTrigActive(ended());
    QCOMPARE(said.words(), kWriteError);
    QCOMPARE(logger.logPath(), QString());
    logger.startLogging();
    QCOMPARE(said.words(), kWriteError + kWriteError);
    QVERIFY(!logger.fileCheck(ended(), QDateTime::currentDateTimeUtc()));
    QCOMPARE(said.words(), kWriteError + kWriteError + kWriteError);
    QVERIFY(QDir(dir.path()).isEmpty());
}

void tst_NvxEpochLoggerFiles::directoryThatVanishes()
{
    const QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("diary"));
    QVERIFY(QDir().mkdir(path));
    NvxEpochLogger logger(0, path, 0, nullptr);
    logger.setLogProgMode(LogOn);
    const Said said(&logger);
    logger.handleTrigActive(ended());
    QVERIFY(QDir(path).removeRecursively());
    // As given, no result of writing is looked at: an open file takes lines that nobody will see.
    logger.handleTrigActive(ended());
    QCOMPARE(said.words(), QStringList());
    logger.stopLogging();
    QCOMPARE(said.words(), QStringList{QStringLiteral("stopped")});
    logger.handleTrigActive(ended());
    QCOMPARE(said.words(), QStringList{QStringLiteral("stopped")} + kWriteError);
    QVERIFY(!QFileInfo::exists(path));
    // Where it is back, the diary is.
    QVERIFY(QDir().mkdir(path));
    logger.handleTrigActive(ended());
    QCOMPARE(logger.logPath(), path + '/' + kName);
}

void tst_NvxEpochLoggerFiles::prefixesThatAreNoNames_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::newRow("folder") << QStringLiteral("inner/VEEpoch_");
    QTest::newRow("upwards") << QStringLiteral("../VEEpoch_");
    QTest::newRow("root") << QStringLiteral("/VEEpoch_");
    QTest::newRow("separator of another system") << QStringLiteral("inner\\VEEpoch_");
    QTest::newRow("zero") << QStringLiteral("VE") + QChar(0) + QStringLiteral("Epoch_");
    QTest::newRow("too long") << QString(300, u'x');
}
void tst_NvxEpochLoggerFiles::prefixesThatAreNoNames()
{
    QFETCH(QString, prefix);
    EpochDiary diary;
    QVERIFY(QDir().mkdir(diary.path(QStringLiteral("inner"))));
    const Said said(&diary.logger());
    diary->setFilePrefix(prefix);
    diary->handleTrigActive(ended());
    diary->startLogging();
    QCOMPARE(said.words(), kWriteError + kWriteError);
    QCOMPARE(diary.files(), QStringList{QStringLiteral("inner")});
    QVERIFY(QDir(diary.path(QStringLiteral("inner"))).isEmpty());
    diary->setFilePrefix(QStringLiteral("VEEpoch_"));
    diary->handleTrigActive(ended());
    QCOMPARE(diary.lines(kName).size(), 1);
}

void tst_NvxEpochLoggerFiles::fullDiskLosesLinesWithoutAWord()
{
    EpochDiary diary;
    const Said said(&diary.logger());
    diary->handleTrigActive(ended());
    diary->handleTrigActive(ended());
    const auto size = static_cast<rlim_t>(diary.bytes(kName).size());
    rlimit before{};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit full{size + 10, before.rlim_max};
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &full), 0);
    for (int i = 0; i < 1000; ++i)
        diary->handleTrigActive(ended(kLater));
    diary->stopLogging();
    diary->startLogging();
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &before), 0);
    QCOMPARE(said.words(), (QStringList{QStringLiteral("stopped"), QStringLiteral("started")}));
    const QStringList whole(2, lineOf(QStringLiteral("2021-03-04T05:06:07")));
    QCOMPARE(diary.lines(kName), whole + QStringList{lineOf(kLater).left(10) + QStringLiteral(" (no end)")});
}

void tst_NvxEpochLoggerFiles::heldLinesFollowOnceThereIsRoom()
{
    const auto numbered = [](uint64_t seq) {
        SActiveTrigger active = ended();
        active.seq = seq;
        return active;
    };
    const auto lineOfNumber = [](uint64_t seq) {
        return QStringLiteral("2021-03-04 05:06:07, P, 1234, E, 3, Ended, S, %1").arg(seq);
    };
    constexpr uint64_t first = 10000;
    constexpr uint64_t last = 11000;
    EpochDiary diary;
    diary->handleTrigActive(numbered(first));
    const auto size = static_cast<rlim_t>(diary.bytes(kName).size());
    rlimit before{};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit full{size + 10, before.rlim_max};
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &full), 0);
    for (uint64_t seq = first + 1; seq < last; ++seq)
        diary->handleTrigActive(numbered(seq));
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &before), 0);
    QCOMPARE(diary.bytes(kName).size(), qsizetype(size) + 10);
    // The file is open still: the cut line gets its end, what was held follows, and behind the gap of what
    // was not the next line.
    diary->handleTrigActive(numbered(last));
    QStringList lines = diary.lines();
    QCOMPARE(lines.takeLast(), lineOfNumber(last));
    uint64_t seq = first;
    for (const QString& line : std::as_const(lines))
        QCOMPARE(line, lineOfNumber(seq++));
    const auto held = (lines.size() - 1) * static_cast<qsizetype>(size);
    QVERIFY2(held > 16384 - 2 * qsizetype(size) && held <= 16384 + 10, qPrintable(QString::number(held)));
}

void tst_NvxEpochLoggerFiles::shortenedLineIsGoneOnWith()
{
    // The last line of a file that was cut by a full disk: nothing ends it, the next one stands behind it.
    EpochDiary diary;
    diary.put(kName, "whole\n2021-03-04");
    diary->handleTrigActive(ended(kLater));
    QCOMPARE(diary.lines(), (QStringList{"whole", "2021-03-04" + lineOf(kLater)}));
}

void tst_NvxEpochLoggerFiles::deletedByASlot_data()
{
    QTest::addColumn<Connect>("connectSlot");
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<bool>("hasDirectory");
    const Operation handle = [](NvxEpochLogger* logger) { logger->handleTrigActive(ended()); };
    const Operation start = [](NvxEpochLogger* logger) { logger->startLogging(); };
    const Operation stop = [](NvxEpochLogger* logger) {
        logger->handleTrigActive(ended());
        logger->stopLogging();
    };
    QTest::newRow("failed") << under(&NvxEpochLogger::loggingFailed) << handle << false;
    QTest::newRow("failed at the start") << under(&NvxEpochLogger::loggingFailed) << start << false;
    QTest::newRow("stopped after a failure") << under(&NvxEpochLogger::loggingStopped) << handle << false;
    QTest::newRow("started") << under(&NvxEpochLogger::loggingStarted) << start << true;
    QTest::newRow("stopped") << under(&NvxEpochLogger::loggingStopped) << stop << true;
}
void tst_NvxEpochLoggerFiles::deletedByASlot()
{
    QFETCH(Connect, connectSlot);
    QFETCH(Operation, operation);
    QFETCH(bool, hasDirectory);
    const QTemporaryDir dir;
    auto* logger =
        new BuriedLogger(0, hasDirectory ? dir.path() : dir.filePath(QStringLiteral("none")), 0, nullptr);
    logger->setLogDevMode(LogOn);
    logger->setLogProgMode(LogOn);
    int calls = 0;
    connectSlot(logger, [logger, &calls] {
        ++calls;
        delete logger;
    });
    operation(logger);
    QCOMPARE(calls, 1);
    QVERIFY(BuriedLogger::isGone());
    QVERIFY(BuriedLogger::isUntouched());
}

QTEST_GUILESS_MAIN(tst_NvxEpochLoggerFiles)
#include "tst_NvxEpochLoggerFiles.moc"
