#include "ReplayParts.h"
#include "tests/support/NvxTestCase.h"

using Lines = QList<QString>;
using Log = NvxDataFile::EpochLog;

Q_DECLARE_METATYPE(Log)

namespace {

const HydDeviceId kFirst(DevTypeWavFile, 1);
const HydDeviceId kSecond(DevTypeWavFile, 2);
const HydDeviceId kOther(DevTypeWavFile, 9);

} // namespace

/// The pace of a replay, its devices and its lines of text: all that needs no reader.
class tst_NvxDataFile : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void aFreshFile();
    void thePeriod_data();
    void thePeriod();
    void theShortPeriod_data();
    void theShortPeriod();
    void setReplayVelComputesThePeriod();
    void setAdjacentComputesThePeriod();
    void devicesAreFoundByTheirIdentity();
    void linesAreCollected();
    void linesAreCarriedIntoAnAdjacentFile();
    void linesOfNoAdjacentFileAreThrownAway_data();
    void linesOfNoAdjacentFileAreThrownAway();
    void theListsAreCopies();
    void clearEpochLogEmptiesBoth();

    // --- rainy day flows
    void aVelocityOutsideOfTheEnumerationChangesNothing();
    void aPeriodBeyondAllBoundsIsCut();
    void devIdLooksNothingUp_data();
    void devIdLooksNothingUp();
    void controlWithoutAReader();
    void connectionsWithoutAReader();
    void linesOfAnUnknownDeviceAreDropped();
    void carryingWithoutLists_data();
    void carryingWithoutLists();
};

void tst_NvxDataFile::aFreshFile()
{
    QObject parent;
    CountingFile file(&parent);
    QCOMPARE(file.parent(), &parent);
    QCOMPARE(file.timerTime(), 500);
    QCOMPARE(file.m_baseTime, 500);
    QCOMPARE(file.replayVel(), ReplayNormal);
    QCOMPARE(file.curTime(), 0);
    QVERIFY(file.epochLogLists().isEmpty());
    QVERIFY(file.m_epochCarry.isEmpty());
    QVERIFY(file.channelDevices().isEmpty());
    QCOMPARE(file.hostDevId(), HydDeviceId());
    QVERIFY(!file.isAdjacent());
    QCOMPARE(file.m_ticksPerSecond, 1);
    file.setParent(nullptr);
}

void tst_NvxDataFile::thePeriod_data()
{
    QTest::addColumn<int>("velocity");
    QTest::addColumn<int>("ticksPerSecond");
    QTest::addColumn<int>("channels");
    QTest::addColumn<qint64>("baseTime");
    QTest::addColumn<qint64>("period");

    QTest::newRow("real time") << 0 << 1 << 1 << qint64(1000) << qint64(1000);
    QTest::newRow("twice") << 1 << 1 << 1 << qint64(1000) << qint64(500);
    QTest::newRow("four times") << 2 << 1 << 1 << qint64(1000) << qint64(250);
    QTest::newRow("channels count") << 0 << 1 << 8 << qint64(125) << qint64(1000);
    QTest::newRow("two ticks") << 0 << 2 << 1 << qint64(1000) << qint64(500);
    QTest::newRow("four ticks") << 0 << 4 << 1 << qint64(1000) << qint64(250);
    QTest::newRow("four ticks, four times") << 2 << 4 << 2 << qint64(500) << qint64(62);
    QTest::newRow("three ticks count as one") << 0 << 3 << 1 << qint64(1000) << qint64(1000);
    QTest::newRow("negative ticks count as one") << 1 << -4 << 1 << qint64(1000) << qint64(500);
    QTest::newRow("no ticks leave the channels out") << 1 << 0 << 8 << qint64(125) << qint64(62);
    QTest::newRow("truncated") << 2 << 1 << 3 << qint64(333) << qint64(249);
    QTest::newRow("one millisecond at twice") << 1 << 1 << 1 << qint64(1) << qint64(0);
    QTest::newRow("no channels") << 0 << 1 << 0 << qint64(1000) << qint64(0);
    QTest::newRow("beyond 32 bits") << 0 << 1 << 2147483647 << qint64(500) << qint64(1073741823500);
}

void tst_NvxDataFile::thePeriod()
{
    QFETCH(int, velocity);
    QFETCH(int, ticksPerSecond);
    QFETCH(int, channels);
    QFETCH(qint64, baseTime);
    CountingFile file;
    file.m_baseTime = baseTime;
    file.m_ticksPerSecond = static_cast<qint8>(ticksPerSecond);
    file.setReplayVel(static_cast<ReplayFILEVelocity>(velocity), channels);
    QTEST(file.timerTime(), "period");
}

void tst_NvxDataFile::theShortPeriod_data()
{
    QTest::addColumn<int>("spectra");
    QTest::addColumn<int>("waves");
    QTest::addColumn<bool>("adjacent");
    QTest::addColumn<qint64>("period");

    QTest::newRow("no mode") << 0 << 0 << false << qint64(5);
    QTest::newRow("adjacent is slower: intended") << 0 << 0 << true << qint64(20);
    QTest::newRow("spectra in mode 3") << 3 << 0 << false << qint64(50);
    QTest::newRow("spectra in mode 3, adjacent") << 3 << 0 << true << qint64(50);
    QTest::newRow("waves in mode 1") << 0 << 1 << false << qint64(50);
    QTest::newRow("waves in mode 1, adjacent") << 0 << 1 << true << qint64(50);
    QTest::newRow("both") << 3 << 1 << false << qint64(50);
    QTest::newRow("the other's numbers") << 1 << 3 << false << qint64(5);
    QTest::newRow("other modes, adjacent") << 2 << 2 << true << qint64(20);
}

void tst_NvxDataFile::theShortPeriod()
{
    QFETCH(int, spectra);
    QFETCH(int, waves);
    QFETCH(bool, adjacent);
    CountingFile file;
    // Neither counts at this velocity.
    file.m_baseTime = 7000;
    file.m_ticksPerSecond = 0;
    file.setRegFFTMode(static_cast<FFTMode>(spectra));
    file.setRegWAVEMode(static_cast<WAVEMode>(waves));
    file.setReplayVel(ReplayMax, 4);
    file.setAdjacent(adjacent, 4);
    QTEST(file.timerTime(), "period");
}

void tst_NvxDataFile::setReplayVelComputesThePeriod()
{
    CountingFile file;
    file.setReplayVel(ReplayQuad, 2);
    QCOMPARE(file.replayVel(), ReplayQuad);
    QCOMPARE(file.timerTime(), 250);
    file.calcTimerTime(4);
    QCOMPARE(file.timerTime(), 500);
}

void tst_NvxDataFile::setAdjacentComputesThePeriod()
{
    CountingFile file;
    file.setAdjacent(true, 3);
    QVERIFY(file.isAdjacent());
    QCOMPARE(file.timerTime(), 1500);
    file.setAdjacent(false, 1);
    QVERIFY(!file.isAdjacent());
    QCOMPARE(file.timerTime(), 500);
}

void tst_NvxDataFile::devicesAreFoundByTheirIdentity()
{
    CountingFile file;
    file.m_channelDevices = {kFirst, kSecond};
    HydDeviceId named(DevTypeWavFile, 2);
    named.setAlias("a name that takes no part");
    QVERIFY(file.containsDevId(named));
    named.setHostDevNo(5);
    QVERIFY(!file.containsDevId(named));
    QVERIFY(!file.containsDevId(HydDeviceId(DevTypeSpecFile, 2)));
    QCOMPARE(file.channelDevices().size(), 2);
}

void tst_NvxDataFile::linesAreCollected()
{
    CountingFile file;
    file.m_channelDevices = {kFirst, kSecond};
    file.m_epochLog = {{kFirst, {}}, {kSecond, {}}};
    file.handleTrigActiveStr(QStringLiteral("one"), kFirst);
    file.addEpochMessg(kFirst, {QStringLiteral("two"), QStringLiteral("three")});
    file.handleTrigActiveStr(QStringLiteral("four"), kSecond);
    const Log lists = file.epochLogLists();
    QCOMPARE(lists.value(kFirst),
             (Lines{QStringLiteral("one"), QStringLiteral("two"), QStringLiteral("three")}));
    QCOMPARE(lists.value(kSecond), Lines{QStringLiteral("four")});
}

void tst_NvxDataFile::linesAreCarriedIntoAnAdjacentFile()
{
    CountingFile file;
    file.m_channelDevices = {kFirst, kSecond};
    file.m_epochLog = {{kFirst, {QStringLiteral("new")}}};
    file.m_epochCarry = {{kFirst, {QStringLiteral("old 1"), QStringLiteral("old 2")}},
                         {kSecond, {QStringLiteral("alone")}},
                         {kOther, {QStringLiteral("of no channel")}}};
    file.setAdjacent(true, 2);
    const Log expected{{kFirst, {QStringLiteral("new"), QStringLiteral("old 1"), QStringLiteral("old 2")}},
                       {kSecond, {QStringLiteral("alone")}}};
    QCOMPARE(file.m_epochLog, expected);
    const Log left{{kFirst, {}}, {kSecond, {}}, {kOther, {QStringLiteral("of no channel")}}};
    QCOMPARE(file.m_epochCarry, left);
    // An empty list makes no entry.
    file.m_epochLog.clear();
    file.setAdjacent(true, 2);
    QVERIFY(file.m_epochLog.isEmpty());
}

void tst_NvxDataFile::linesOfNoAdjacentFileAreThrownAway_data()
{
    QTest::addColumn<Log>("current");
    QTest::addColumn<Log>("carry");
    QTest::addColumn<Log>("left");

    const Lines lines{QStringLiteral("line")};
    QTest::newRow("all devices have lists")
        << Log{{kFirst, {}}, {kSecond, {}}} << Log{{kFirst, lines}, {kSecond, lines}}
        << Log{{kFirst, {}}, {kSecond, {}}};
    QTest::newRow("the second device has none")
        << Log{{kFirst, {}}} << Log{{kFirst, lines}, {kSecond, lines}} << Log{};
    QTest::newRow("the first device has none")
        << Log{{kSecond, {}}} << Log{{kFirst, lines}, {kSecond, lines}} << Log{};
    QTest::newRow("fewer carried than channels")
        << Log{{kFirst, {}}, {kSecond, {}}} << Log{{kFirst, lines}} << Log{};
    QTest::newRow("more carried than channels")
        << Log{{kFirst, {}}, {kSecond, {}}} << Log{{kFirst, lines}, {kSecond, lines}, {kOther, lines}}
        << Log{};
    QTest::newRow("as many carried, of another device")
        << Log{{kFirst, {}}, {kSecond, {}}} << Log{{kFirst, lines}, {kOther, lines}}
        << Log{{kFirst, {}}, {kOther, lines}};
    QTest::newRow("nothing carried") << Log{} << Log{} << Log{};
}

void tst_NvxDataFile::linesOfNoAdjacentFileAreThrownAway()
{
    QFETCH(Log, current);
    QFETCH(Log, carry);
    CountingFile file;
    file.m_channelDevices = {kFirst, kSecond};
    file.m_epochLog = current;
    file.m_epochCarry = carry;
    file.setAdjacent(false, 2);
    QCOMPARE(file.m_epochLog, current);
    QTEST(file.m_epochCarry, "left");
}

void tst_NvxDataFile::theListsAreCopies()
{
    CountingFile file;
    file.m_channelDevices = {kFirst, kSecond};
    file.m_epochLog = {{kFirst, {QStringLiteral("kept")}}, {kOther, {QStringLiteral("of no channel")}}};
    Log lists = file.epochLogLists();
    const Log expected{{kFirst, {QStringLiteral("kept")}}};
    QCOMPARE(lists, expected);
    lists[kFirst].clear();
    QCOMPARE(file.epochLogLists(), expected);
}

void tst_NvxDataFile::clearEpochLogEmptiesBoth()
{
    CountingFile file;
    file.m_epochLog = {{kFirst, {QStringLiteral("one")}}};
    file.m_epochCarry = {{kFirst, {QStringLiteral("two")}}};
    file.clearEpochLog();
    QVERIFY(file.m_epochLog.isEmpty());
    QVERIFY(file.m_epochCarry.isEmpty());
}

void tst_NvxDataFile::aVelocityOutsideOfTheEnumerationChangesNothing()
{
    CountingFile file;
    file.setReplayVel(ReplayDouble, 1);
    for (const int velocity : {4, 255}) {
        file.setReplayVel(static_cast<ReplayFILEVelocity>(velocity), 3);
        QCOMPARE(int{file.replayVel()}, velocity);
        QCOMPARE(file.timerTime(), 250);
    }
}

void tst_NvxDataFile::aPeriodBeyondAllBoundsIsCut()
{
    CountingFile file;
    file.m_baseTime = std::numeric_limits<qint64>::max();
    file.calcTimerTime(std::numeric_limits<int>::max());
    QCOMPARE(file.timerTime(), qint64(1) << 62);
    file.calcTimerTime(std::numeric_limits<int>::min());
    QCOMPARE(file.timerTime(), -(qint64(1) << 62));
}

void tst_NvxDataFile::devIdLooksNothingUp_data()
{
    QTest::addColumn<int>("index");

    for (const int index : {-1, 0, 1, 2, 3, 1000000})
        QTest::addRow("%d", index) << index;
}

void tst_NvxDataFile::devIdLooksNothingUp()
{
    QFETCH(int, index);
    CountingFile file;
    QCOMPARE(file.devId(index), HydDeviceId());
    file.m_channelDevices = {kFirst, kSecond};
    QCOMPARE(file.devId(index), HydDeviceId());
}

void tst_NvxDataFile::controlWithoutAReader()
{
    CountingFile file;
    file.processPause();
    file.processResume();
    file.processStop();
    file.setReplayVel(ReplayMax, 1);
    file.setAdjacent(true, 1);
    file.letGoOfThread();
    QCOMPARE(file.timerTime(), 20);
}

void tst_NvxDataFile::connectionsWithoutAReader()
{
    CountingFile file;
    file.setConnections();
    QCOMPARE(file.reader(), nullptr);
}

void tst_NvxDataFile::linesOfAnUnknownDeviceAreDropped()
{
    CountingFile file;
    file.m_channelDevices = {kFirst, kOther};
    file.m_epochLog = {{kFirst, {}}};
    file.handleTrigActiveStr(QStringLiteral("one"), kOther);
    file.addEpochMessg(kOther, {QStringLiteral("two")});
    const Log expected{{kFirst, {}}};
    QCOMPARE(file.m_epochLog, expected);
}

void tst_NvxDataFile::carryingWithoutLists_data()
{
    QTest::addColumn<bool>("hasCurrent");
    QTest::addColumn<bool>("hasCarry");
    QTest::addColumn<bool>("adjacent");
    QTest::addColumn<Log>("left");

    const Log carried{{kFirst, {QStringLiteral("line")}}};
    QTest::newRow("no current list, adjacent") << false << true << true << carried;
    QTest::newRow("no current list") << false << true << false << Log{};
    QTest::newRow("no carried list, adjacent") << true << false << true << carried;
    QTest::newRow("no carried list") << true << false << false << carried;
    QTest::newRow("neither, adjacent") << false << false << true << carried;
    QTest::newRow("neither") << false << false << false << carried;
}

void tst_NvxDataFile::carryingWithoutLists()
{
    QFETCH(bool, hasCurrent);
    QFETCH(bool, hasCarry);
    QFETCH(bool, adjacent);
    CountingFile file;
    file.m_channelDevices = {kFirst};
    Log current{{kSecond, {}}};
    Log carry{{kFirst, {QStringLiteral("line")}}};
    file.writeEpochBuff(hasCurrent ? &current : nullptr, hasCarry ? &carry : nullptr, adjacent);
    QTEST(carry, "left");
    QCOMPARE(current.size(), 1);
}

QTEST_GUILESS_MAIN(tst_NvxDataFile)
#include "tst_NvxDataFile.moc"
