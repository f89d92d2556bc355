// What the diary of a recording holds: which occurrences, and the lines around them.
#include "EpochDiary.h"

#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QScopeGuard>
#include <QSignalSpy>

#include <ctime>

namespace {

const QString kName = QStringLiteral("VEEpoch__1234_20210304_050607.txt");
const QString kEnded = QStringLiteral("2021-03-04 05:06:07, P, 1234, E, 3, Ended, S, 100");

bool isNow(const QDateTime& time)
{
    return time.isValid() && qAbs(time.secsTo(QDateTime::currentDateTimeUtc())) < 120;
}

/// True for a line of the time now, UTC, and this text behind.
bool isLineOfNow(const QString& line, const QString& text)
{
    return isNow(QDateTime::fromString(line.left(19).replace(u' ', u'T') + u'Z', Qt::ISODate)) &&
           line.mid(19) == text;
}

/// The time in the name of a file, taken as UTC.
QDateTime utcOfName(const QString& name)
{
    QDateTime time = QDateTime::fromString(name.section(u'_', 3), QStringLiteral("yyyyMMdd_hhmmss'.txt'"));
    time.setTimeSpec(Qt::UTC);
    return time;
}

} // namespace

class tst_NvxEpochLogger : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void lineOfAProgramTrigger();
    void lineOfADeviceTrigger();
    void linesOfAFileBanner();
    void eachLineIsWithTheSystemAtOnce();
    void openingLine();
    void openingLineGoesIntoAnOpenFile();
    void closingLine();
    void closingTextOfTheApplication();
    void destructorWritesTheClosingLine();
    void stopStreamingComesLater();
    void deleteDelayComesLater();
    void percentageOfAMeasuredEvent_data();
    void percentageOfAMeasuredEvent();
    void wantedOccurrences_data();
    void wantedOccurrences();
    void secondStopInARowIsLeftOut();
    void lastStateOutlivesTheFile();
    void nameBearsTheGivenTime();
    void openingLineOfAnotherDayThanTheDevice();
    void slotsAreReachedByName();
    void threeSignalsNeverFire();
    // --- rainy day flows
    void noOpeningLineWithoutDeviceOccurrences();
    void stopWithoutAFile();
    void stopAloneMakesNoFile();
    void timesThatNoCalendarHas();
    void deletedBeforeItsTimers();
};

void tst_NvxEpochLogger::lineOfAProgramTrigger()
{
    EpochDiary diary;
    QCOMPARE(diary->logPath(), QString());
    diary->handleTrigActive(occurrenceOf(TrigProgram, 2));
    // Two underscores in a row: intended.
    QCOMPARE(diary.files(), QStringList{kName});
    QCOMPARE(diary->logPath(), diary.path(kName));
    QCOMPARE(diary.bytes(kName),
             QByteArray("2021-03-04 05:06:07, P, 1234, E, 3, Started, S, 100, 10-1000 Hz,  > "
                        "5000 uPa, Duration (sec): 30\n"));
}

void tst_NvxEpochLogger::lineOfADeviceTrigger()
{
    // Its time is local, in the name and in the line: the digits that the device wrote.
    EpochDiary diary;
    diary->handleTrigActive(SActiveTrigger(
        QStringLiteral("2021-03-04 05:06:07, SN 1234, Epoch 3, Seq 100, 10-1000 < 5000uPa, 30s"),
        TrigDevice));
    diary->handleTrigActive(
        SActiveTrigger(QStringLiteral("2021-03-04 05:06:37, SN 1234, Epoch 3, Ended"), TrigDevice));
    QCOMPARE(diary.files(), QStringList{kName});
    QCOMPARE(diary.lines(),
             (QStringList{"2021-03-04 05:06:07, U, 1234, E, 3, Started, S, 100, 10-1000 Hz,  < "
                          "5000 uPa, Duration (sec): 30",
                          "2021-03-04 05:06:37, U, 1234, E, 3, Ended"}));
}

void tst_NvxEpochLogger::linesOfAFileBanner()
{
    EpochDiary diary;
    SActiveTrigger start = occurrenceOf(TrigProgram, 12);
    start.fileName = QStringLiteral("Wäl %1.wav");
    diary->handleTrigActive(start);
    QCOMPARE(diary.bytes(kName),
             QByteArray(
                 "2021-03-04 05:06:07, P, 1234, , ,  *************** File: W\xC3\xA4l %1.wav *************** "
                 "\n2021-03-04 05:06:07, P, 1234, , , File WAV Streaming is Started\n"));
}

void tst_NvxEpochLogger::eachLineIsWithTheSystemAtOnce()
{
    EpochDiary diary;
    for (int i = 1; i <= 3; ++i) {
        diary->handleTrigActive(occurrenceOf(TrigProgram, 6));
        QCOMPARE(diary.lines().size(), i);
    }
}

void tst_NvxEpochLogger::openingLine()
{
    EpochDiary diary;
    const QSignalSpy started(&diary.logger(), &NvxEpochLogger::loggingStarted);
    QString today;
    // Once more where midnight came in between.
    do {
        today = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd"));
        diary->startLogging();
    } while (today != QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd")));
    QVERIFY(started.size() >= 1);
    // It is closed again, and the next occurrence goes on with it.
    QCOMPARE(diary->logPath(), QString());
    const QString name = diary.files().last();
    QVERIFY(name.startsWith("VEEpoch__1234_" + today + '_'));
    QVERIFY(isNow(utcOfName(name)));
    QVERIFY(isLineOfNow(diary.lines(name).last(), QStringLiteral(", P, Logging Started")));
    const auto before = diary.lines(name).size();
    SActiveTrigger active = occurrenceOf(TrigProgram, 6);
    active.time = utcSeconds(today.left(4) + '-' + today.mid(4, 2) + '-' + today.right(2) + "T23:59:59");
    diary->handleTrigActive(active);
    QCOMPARE(diary.lines(name).size(), before + 1);
    QVERIFY(diary.lines(name).last().endsWith(", P, 1234, E, 3, Ended, S, 100"));
}

void tst_NvxEpochLogger::openingLineGoesIntoAnOpenFile()
{
    EpochDiary diary;
    diary->handleTrigActive(occurrenceOf(TrigProgram, 6));
    diary->startLogging();
    QCOMPARE(diary->logPath(), QString());
    QCOMPARE(diary.lines().size(), 2);
    QVERIFY(isLineOfNow(diary.lines().last(), QStringLiteral(", P, Logging Started")));
}

void tst_NvxEpochLogger::closingLine()
{
    EpochDiary diary;
    diary->setDevId(HydDeviceId(DevTypeRecorderA, 77));
    const QSignalSpy stopped(&diary.logger(), &NvxEpochLogger::loggingStopped);
    diary->handleTrigActive(occurrenceOf(TrigProgram, 6));
    QCOMPARE(stopped.size(), 0);
    diary->stopLogging();
    QCOMPARE(stopped.size(), 1);
    QCOMPARE(diary->logPath(), QString());
    QCOMPARE(diary.lines().size(), 2);
    QCOMPARE(diary.lines().first(), kEnded);
    // Of the logger's device, whatever device the file is of.
    QVERIFY(isLineOfNow(diary.lines().last(), QStringLiteral(", P, 77, , , Logging Finished")));
}

void tst_NvxEpochLogger::closingTextOfTheApplication()
{
    EpochDiary diary;
    diary->handleTrigActive(occurrenceOf(TrigProgram, 6));
    diary->fileClose(QStringLiteral("Pause für %1"));
    QVERIFY(isLineOfNow(diary.lines().last(), QStringLiteral(", P, 1234, , , Pause für %1")));
    diary->fileClose(QStringLiteral("again"));
    QCOMPARE(diary.lines().size(), 2);
}

void tst_NvxEpochLogger::destructorWritesTheClosingLine()
{
    EpochDiary diary;
    const QSignalSpy stopped(&diary.logger(), &NvxEpochLogger::loggingStopped);
    diary->handleTrigActive(occurrenceOf(TrigProgram, 6));
    diary.end();
    QVERIFY(isLineOfNow(diary.lines().last(), QStringLiteral(", P, 1234, , , Logging Finished")));
    QCOMPARE(stopped.size(), 0);
}

void tst_NvxEpochLogger::stopStreamingComesLater()
{
    EpochDiary diary;
    QSignalSpy stopped(&diary.logger(), &NvxEpochLogger::loggingStopped);
    diary->handleTrigActive(occurrenceOf(TrigProgram, 6));
    diary->stopStreaming();
    QCOMPARE(stopped.size(), 0);
    QVERIFY(!diary->logPath().isEmpty());
    QTRY_COMPARE_WITH_TIMEOUT(stopped.size(), 1, 10000);
    QCOMPARE(diary->logPath(), QString());
    QVERIFY(isLineOfNow(diary.lines().last(), QStringLiteral(", P, 1234, , , Logging Finished")));
}

void tst_NvxEpochLogger::deleteDelayComesLater()
{
    const QTemporaryDir dir;
    const QPointer<NvxEpochLogger> logger(new NvxEpochLogger(0, dir.path(), 0, nullptr));
    QElapsedTimer clock;
    clock.start();
    QVERIFY(QMetaObject::invokeMethod(logger.data(), "deleteDelay"));
    QVERIFY(!logger.isNull());
    QTRY_VERIFY_WITH_TIMEOUT(logger.isNull(), 10000);
    // A coarse timer may be early by a twentieth.
    QVERIFY(clock.elapsed() >= 180);
}

void tst_NvxEpochLogger::percentageOfAMeasuredEvent_data()
{
    QTest::addColumn<int>("percent");
    QTest::addColumn<QList<int>>("durations"); // that were set, one after the other
    QTest::addColumn<unsigned>("measCount");
    QTest::addColumn<QString>("end");
    const QList<int> none;
    QTest::newRow("at first, 1 of 4") << 50 << none << 1U << ", 25%";
    QTest::newRow("3 s at 50 %, 3 of 6") << 50 << QList<int>{3} << 3U << ", 50%";
    QTest::newRow("7 s at 30 %, 23 and a part") << 30 << QList<int>{7} << 23U << ", 100%";
    QTest::newRow("1 of 6") << 50 << QList<int>{3} << 1U << ", 16.6667%";
    QTest::newRow("no duration") << 50 << QList<int>{0} << 1U << "";
    QTest::newRow("a duration below 0") << 50 << QList<int>{-1} << 1U << "";
    QTest::newRow("no duration leaves the count") << 50 << QList<int>{3, 0} << 3U << "";
    QTest::newRow("the longest at 1 %") << 1 << QList<int>{INT_MAX} << 3U << "";
    QTest::newRow("99 percent") << 99 << none << 1U << ", 25%";
    QTest::newRow("100 percent") << 100 << none << 1U << "";
    QTest::newRow("more percent") << 1000 << QList<int>{3} << 1U << "";
    QTest::newRow("0 percent") << 0 << QList<int>{3} << 1U << "";
    QTest::newRow("percent below 0") << -50 << QList<int>{3} << 1U << "";
    QTest::newRow("no count in the record") << 50 << none << 0U << "";
}
void tst_NvxEpochLogger::percentageOfAMeasuredEvent()
{
    QFETCH(int, percent);
    QFETCH(QList<int>, durations);
    QFETCH(unsigned, measCount);
    QFETCH(QString, end);
    EpochDiary diary(percent);
    for (const int duration : durations)
        diary->setMeasEventDur(duration);
    SActiveTrigger active = occurrenceOf(TrigProgram, 6);
    active.measCount = measCount;
    diary->handleTrigActive(active);
    QCOMPARE(diary.lines(), QStringList{kEnded + end});
}

void tst_NvxEpochLogger::wantedOccurrences_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("state");
    QTest::addColumn<int>("devMode");
    QTest::addColumn<int>("progMode");
    QTest::addColumn<QString>("line"); // without the time; empty for none
    const auto row = [](const char* name, int type, int state, int devMode, int progMode, const char* line) {
        QTest::newRow(name) << type << state << devMode << progMode << QString::fromLatin1(line);
    };
    row("program, wanted", 0, 6, 0, 1, ", P, 1234, E, 3, Ended, S, 100");
    row("program, wanted by any number", 0, 6, 0, 7, ", P, 1234, E, 3, Ended, S, 100");
    row("program, not wanted", 0, 6, 1, 0, "");
    row("device, wanted", 1, 6, 1, 0, ", U, 1234, E, 2, Ended");
    row("device, wanted by any number", 1, 6, 65535, 0, ", U, 1234, E, 2, Ended");
    row("device, not wanted", 1, 6, 0, 1, "");
    row("invalid, whatever is wanted", 2, 6, 0, 0, ", U, 1234, E, 2");
    row("stream of a program, not wanted", 0, 9, 1, 0, "");
    row("stream of a device, not wanted", 1, 9, 0, 1, "");
    row("stream of a device", 1, 9, 1, 0, ", D, 1234, , , Streaming is Started");
    row("message, never", 0, 3, 1, 1, "");
    row("message of a device, never", 1, 3, 1, 1, "");
    row("message of nobody, never", 2, 3, 1, 1, "");
    row("message 8", 0, 8, 1, 1, ", P, 1234, E, 3, Trigger's message, S, 10030");
    row("unknown message", 0, 200, 1, 1, ", P, 1234, E, 3, Trigger's message, S, 10030");
}
void tst_NvxEpochLogger::wantedOccurrences()
{
    QFETCH(int, type);
    QFETCH(int, state);
    QFETCH(int, devMode);
    QFETCH(int, progMode);
    QFETCH(QString, line);
    EpochDiary diary;
    diary->setLogDevMode(HydLogMode(devMode));
    diary->setLogProgMode(HydLogMode(progMode));
    const SActiveTrigger active = occurrenceOf(TrigType(type), static_cast<uint8_t>(state));
    diary->handleTrigActive(active);
    if (line.isEmpty())
        QCOMPARE(diary.files(), QStringList());
    else
        QCOMPARE(diary.lines(), QStringList{active.logTime().toString("yyyy-MM-dd hh:mm:ss") + line});
}

void tst_NvxEpochLogger::secondStopInARowIsLeftOut()
{
    EpochDiary diary;
    const QString begin = QStringLiteral("2021-03-04 05:06:07, P, 1234, , , ");
    diary->handleTrigActive(occurrenceOf(TrigProgram, 9));
    diary->handleTrigActive(occurrenceOf(TrigProgram, 14));
    diary->handleTrigActive(occurrenceOf(TrigProgram, 14));
    diary->handleTrigActive(occurrenceOf(TrigDevice, 14));
    // Neither do occurrences that are left out themselves count as between.
    diary->handleTrigActive(occurrenceOf(TrigProgram, 3));
    diary->handleTrigActive(occurrenceOf(TrigProgram, 14));
    const QStringList once{begin + "Streaming is Started", begin + "Streaming is Stopped"};
    QCOMPARE(diary.lines(), once);
    diary->handleTrigActive(occurrenceOf(TrigProgram, 15));
    diary->handleTrigActive(occurrenceOf(TrigProgram, 15));
    diary->handleTrigActive(occurrenceOf(TrigProgram, 14));
    QCOMPARE(diary.lines(),
             once + QStringList({begin + "File Streaming is Stopped", begin + "File Streaming is Stopped",
                                 begin + "Streaming is Stopped"}));
}

void tst_NvxEpochLogger::lastStateOutlivesTheFile()
{
    EpochDiary diary;
    diary->handleTrigActive(occurrenceOf(TrigProgram, 9));
    diary->handleTrigActive(occurrenceOf(TrigProgram, 14));
    diary->stopLogging();
    QVERIFY(diary->fileCheck(occurrenceOf(TrigProgram, 6), occurrenceOf(TrigProgram, 6).logTime()));
    diary->handleTrigActive(occurrenceOf(TrigProgram, 14));
    diary->stopLogging();
    const QStringList lines = diary.lines();
    QCOMPARE(lines.size(), 4);
    QVERIFY(lines[0].endsWith(", P, 1234, , , Streaming is Started"));
    QVERIFY(lines[1].endsWith(", P, 1234, , , Streaming is Stopped"));
    QVERIFY(lines[2].endsWith(", P, 1234, , , Logging Finished"));
    QVERIFY(lines[3].endsWith(", P, 1234, , , Logging Finished"));
}

void tst_NvxEpochLogger::nameBearsTheGivenTime()
{
    // As it is given, whatever the time of the occurrence and in whatever zone.
    const QString name = QStringLiteral("VEEpoch__1234_20220102_030405.txt");
    EpochDiary diary;
    const SActiveTrigger active = occurrenceOf(TrigProgram, 6);
    QVERIFY(diary->fileCheck(active, QDateTime(QDate(2022, 1, 2), QTime(3, 4, 5))));
    QCOMPARE(diary->logPath(), diary.path(name));
    diary->fileClose(QStringLiteral("end"));
    QVERIFY(diary->fileCheck(active, QDateTime(QDate(2022, 1, 2), QTime(23, 4, 5), Qt::UTC)));
    QCOMPARE(diary->logPath(), diary.path(name));
    diary->fileClose(QStringLiteral("end"));
    QVERIFY(diary->fileCheck(active, active.logTime()));
    QCOMPARE(diary.files(), (QStringList{kName, name}));
}

void tst_NvxEpochLogger::openingLineOfAnotherDayThanTheDevice()
{
    const QByteArray zone = qgetenv("TZ");
    const auto back = qScopeGuard([&zone] {
        zone.isNull() ? qunsetenv("TZ") : qputenv("TZ", zone);
        tzset();
    });
    EpochDiary diary;
    diary->startLogging();
    const QString first = diary.files().value(0);
    const QDateTime time = utcOfName(first);
    QVERIFY(time.isValid());
    // Where the clocks show another day than those in Greenwich.
    qputenv("TZ", time.time().hour() < 12 ? "XYZ+14" : "XYZ-14");
    tzset();
    SActiveTrigger active = occurrenceOf(TrigDevice, 6);
    active.time = static_cast<uint64_t>(time.toSecsSinceEpoch());
    diary->handleTrigActive(active);
    // The opening line is of the day in UTC, that of the device of its local day: intended.
    QCOMPARE(diary.files().size(), 2);
    QCOMPARE(diary.lines(first).size(), 1);
    QVERIFY(diary.lines(first).first().endsWith(", P, Logging Started"));
    const QString local = time.toLocalTime().toString(QStringLiteral("yyyyMMdd_hhmmss"));
    QVERIFY(local.left(8) != time.toString(QStringLiteral("yyyyMMdd")));
    QCOMPARE(diary->logPath(), diary.path("VEEpoch__1234_" + local + ".txt"));
    QCOMPARE(diary.lines(QFileInfo(diary->logPath()).fileName()).size(), 1);
}

void tst_NvxEpochLogger::slotsAreReachedByName()
{
    EpochDiary diary;
    QVERIFY(QMetaObject::invokeMethod(&diary.logger(), "handleTrigActive", Qt::QueuedConnection,
                                      Q_ARG(SActiveTrigger, occurrenceOf(TrigProgram, 6))));
    QCOMPARE(diary.files(), QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(diary.lines(), QStringList{kEnded}, 10000);
    // The connection of an application that knows the text alone.
    QVERIFY(diary->metaObject()->indexOfSlot("handleWriteError()") >= 0);
}

void tst_NvxEpochLogger::threeSignalsNeverFire()
{
    EpochDiary diary;
    const QSignalSpy newFile(&diary.logger(), &NvxEpochLogger::newFileCreated);
    const QSignalSpy dataTime(&diary.logger(), &NvxEpochLogger::dataTime);
    const QSignalSpy progress(&diary.logger(), &NvxEpochLogger::logProgress);
    QVERIFY(newFile.isValid() && dataTime.isValid() && progress.isValid());
    diary->startLogging();
    for (int state = 0; state <= 16; ++state)
        diary->handleTrigActive(occurrenceOf(TrigProgram, static_cast<uint8_t>(state)));
    diary->stopLogging();
    QVERIFY(diary.files().size() == 2);
    QCOMPARE(newFile.size() + dataTime.size() + progress.size(), 0);
}

void tst_NvxEpochLogger::noOpeningLineWithoutDeviceOccurrences()
{
    EpochDiary diary;
    diary->setLogDevMode(LogOff);
    const QSignalSpy started(&diary.logger(), &NvxEpochLogger::loggingStarted);
    const QSignalSpy failed(&diary.logger(), &NvxEpochLogger::loggingFailed);
    diary->startLogging();
    QCOMPARE(started.size() + failed.size(), 0);
    QCOMPARE(diary.files(), QStringList());
    const QTemporaryDir dir;
    NvxEpochLogger fresh(0, dir.path(), 50, nullptr);
    fresh.startLogging();
    fresh.handleTrigActive(occurrenceOf(TrigProgram, 2));
    fresh.handleTrigActive(occurrenceOf(TrigDevice, 2));
    QVERIFY(dir.isValid() && QDir(dir.path()).isEmpty());
}

void tst_NvxEpochLogger::stopWithoutAFile()
{
    EpochDiary diary;
    const QSignalSpy stopped(&diary.logger(), &NvxEpochLogger::loggingStopped);
    diary->stopLogging();
    diary->stopLogging();
    QCOMPARE(stopped.size(), 2);
    QCOMPARE(diary.files(), QStringList());
}

void tst_NvxEpochLogger::stopAloneMakesNoFile()
{
    EpochDiary diary;
    const QSignalSpy failed(&diary.logger(), &NvxEpochLogger::loggingFailed);
    diary->handleTrigActive(occurrenceOf(TrigProgram, 14));
    QVERIFY(!diary->fileCheck(occurrenceOf(TrigProgram, 14), QDateTime::currentDateTimeUtc()));
    QCOMPARE(diary.files(), QStringList());
    // Nor does it count as the last one: the next stop is written.
    diary->handleTrigActive(occurrenceOf(TrigProgram, 15));
    diary->stopLogging();
    diary->handleTrigActive(occurrenceOf(TrigProgram, 14));
    QVERIFY(diary->fileCheck(occurrenceOf(TrigProgram, 6), QDateTime(QDate(2021, 3, 4), QTime(1, 2, 3))));
    diary->handleTrigActive(occurrenceOf(TrigProgram, 14));
    QCOMPARE(diary.lines().size(), 3);
    QVERIFY(diary.lines().last().endsWith("Streaming is Stopped"));
    QCOMPARE(failed.size(), 0);
}

void tst_NvxEpochLogger::timesThatNoCalendarHas()
{
    // A time beyond what a clock can be is an empty one, in the name and in the line.
    EpochDiary diary;
    SActiveTrigger active = occurrenceOf(TrigProgram, 6);
    active.time = UINT64_MAX / 2;
    diary->handleTrigActive(active);
    QCOMPARE(diary.files(), QStringList{"VEEpoch__1234_.txt"});
    QCOMPARE(diary.lines(), QStringList{", P, 1234, E, 3, Ended, S, 100"});
}

void tst_NvxEpochLogger::deletedBeforeItsTimers()
{
    const QTemporaryDir dir;
    auto logger = std::make_unique<NvxEpochLogger>(0, dir.path(), 0, nullptr);
    logger->stopStreaming();
    logger->deleteDelay();
    QSignalSpy stopped(logger.get(), &NvxEpochLogger::loggingStopped);
    logger.reset();
    QVERIFY(spyStaysEmpty(stopped, 300));
}

QTEST_GUILESS_MAIN(tst_NvxEpochLogger)
#include "tst_NvxEpochLogger.moc"
