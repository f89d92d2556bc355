#include "ReplayParts.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"

#include <QPointer>
#include <QSignalSpy>

#include <memory>

namespace {

const HydDeviceId kDevice(DevTypeWavFile, 7);

std::shared_ptr<HydEventKeyChunk const> keyOf(uint32_t time)
{
    stKEY_CHUNK_V1 record;
    record.time = time;
    return std::make_shared<HydEventKeyChunkV1>(&record);
}

std::shared_ptr<HydStreamEventHeaderPayload> headerAt(std::shared_ptr<HydEventKeyChunk const> key)
{
    return std::make_shared<HydStreamEventHeaderPayload>(
        std::move(key), std::vector<std::shared_ptr<HydDeviceInfoChunk const>>(),
        std::vector<std::shared_ptr<HydStreamStatusChunk const>>(), HydStreamSetupContainer(),
        std::vector<std::shared_ptr<HydAmplScalingChunk const>>(), uint8_t{1}, nullptr);
}

std::shared_ptr<HydStreamDataPayload> dataAt(std::shared_ptr<HydEventKeyChunk const> key)
{
    return std::make_shared<HydStreamDataPayload>(std::move(key), nullptr);
}

} // namespace

/// A replay with a reader: what it passes on, how it is controlled, how it ends.
class tst_NvxDataFileReplay : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    // --- happy flows
    void payloadsPassThrough();
    void theTimeFollowsBehindThePayload();
    void theReaderTakesThePeriod();
    void nothingComesAheadOfTheFirstPeriod();
    void aNewPeriodReachesTheReader_data();
    void aNewPeriodReachesTheReader();
    void aPeriodOf0CountsOnlyUnderWay();
    void pausesAndResumes();
    void endsInItsOrder_data();
    void endsInItsOrder();
    void aSecondReplayOfTheSameObject();

    // --- rainy day flows
    void aPayloadWithoutAKeySetsTheTimeTo0();
    void theSamePeriodAndASecondResumeLeaveTheReaderAlone();
    void controlOfAFinishedReader();
    void aPauseAheadOfTheTicksIsLost();
    void stopsTwice();
    void aReaderThatWasLetGoReportsNothing_data();
    void aReaderThatWasLetGoReportsNothing();
    void deletedWhileItPlays();
    void deletedBeforeTheReaderHasBegun();
    void deletedByItsOwnSignal_data();
    void deletedByItsOwnSignal();

private:
    std::unique_ptr<CountingFile> m_file;
};

void tst_NvxDataFileReplay::init()
{
    failOnUnexpectedWarnings();
    m_file = std::make_unique<CountingFile>();
}

void tst_NvxDataFileReplay::cleanup()
{
    const QPointer<CountingThread> reader = m_file ? m_file->reader() : nullptr;
    m_file.reset();
    QTRY_VERIFY_WITH_TIMEOUT(reader.isNull(), 20000);
}

void tst_NvxDataFileReplay::payloadsPassThrough()
{
    CountingThread* const reader = m_file->make();
    QSignalSpy headers(m_file.get(), &NvxDataFile::streamHeaderReady);
    QSignalSpy data(m_file.get(), &NvxDataFile::streamDataReady);
    QSignalSpy notes(m_file.get(), &NvxDataFile::streamNotify);
    QSignalSpy powers(m_file.get(), &NvxDataFile::signalTotalPower);
    const auto header = headerAt(keyOf(5));
    const auto block = dataAt(keyOf(6));
    const auto note = std::make_shared<HydStreamNotifyPayload>(uint16_t{2});
    const auto device = std::make_shared<HydDevice>(DevTypeWavFile);
    Q_EMIT reader->streamHeaderReady(header, kDevice, device);
    Q_EMIT reader->streamDataReady(block, kDevice);
    Q_EMIT reader->streamNotify(note, kDevice);
    Q_EMIT reader->signalTotalPower(kDevice, 12.5);
    QCOMPARE(headers.size(), 1);
    QCOMPARE(headers[0][0].value<std::shared_ptr<HydStreamEventHeaderPayload>>(), header);
    QCOMPARE(headers[0][1].value<HydDeviceId>(), kDevice);
    QCOMPARE(headers[0][2].value<std::shared_ptr<HydDevice>>(), device);
    QCOMPARE(data.size(), 1);
    QCOMPARE(data[0][0].value<std::shared_ptr<HydStreamDataPayload>>(), block);
    QCOMPARE(data[0][1].value<HydDeviceId>(), kDevice);
    QCOMPARE(notes.size(), 1);
    QCOMPARE(notes[0][0].value<std::shared_ptr<HydStreamNotifyPayload>>(), note);
    QCOMPARE(notes[0][1].value<HydDeviceId>(), kDevice);
    QCOMPARE(powers.size(), 1);
    QCOMPARE(powers[0][0].value<HydDeviceId>(), kDevice);
    QCOMPARE(powers[0][1].toDouble(), 12.5);
    // The last two leave the time alone.
    QCOMPARE(m_file->curTime(), 6);
}

void tst_NvxDataFileReplay::theTimeFollowsBehindThePayload()
{
    QList<qint64> times;
    const auto note = [&] { times << m_file->curTime(); };
    connect(m_file.get(), &NvxDataFile::streamHeaderReady, this, note);
    connect(m_file.get(), &NvxDataFile::streamDataReady, this, note);
    m_file->m_curTime = 1;
    m_file->handleHdrReady(headerAt(keyOf(4294967295)), kDevice, nullptr);
    m_file->handleDataReady(dataAt(keyOf(7)), kDevice);
    QCOMPARE(times, (QList<qint64>{1, 4294967295}));
    QCOMPARE(m_file->curTime(), 7);
}

void tst_NvxDataFileReplay::theReaderTakesThePeriod()
{
    m_file->setReplayVel(ReplayMax, 1);
    CountingThread* const reader = m_file->make();
    QCOMPARE(reader->timerTime(), 5);
    reader->start();
    QTRY_VERIFY_WITH_TIMEOUT(reader->ticks > 2, 20000);
}

void tst_NvxDataFileReplay::nothingComesAheadOfTheFirstPeriod()
{
    m_file->m_baseTime = 100000;
    m_file->calcTimerTime(1);
    CountingThread* const reader = m_file->make();
    reader->start();
    QTRY_VERIFY_WITH_TIMEOUT(reader->timer().isActive(), 20000);
    QVERIFY(reader->timer().remainingTime() > 0);
    QCOMPARE(reader->ticks, 0);
}

void tst_NvxDataFileReplay::aNewPeriodReachesTheReader_data()
{
    QTest::addColumn<bool>("bySpeed");

    QTest::newRow("by the speed") << true;
    QTest::newRow("by the adjacent flag") << false;
}

void tst_NvxDataFileReplay::aNewPeriodReachesTheReader()
{
    QFETCH(bool, bySpeed);
    CountingThread* const reader = m_file->make();
    m_file->m_baseTime = 100000;
    m_file->setReplayVel(ReplayNormal, 1);
    reader->start();
    QTRY_VERIFY_WITH_TIMEOUT(reader->timer().isActive(), 20000);
    QCOMPARE(reader->timer().interval(), 100000);
    m_file->m_baseTime = 10;
    if (bySpeed)
        m_file->setReplayVel(ReplayDouble, 1);
    else
        m_file->setAdjacent(true, 1);
    QCOMPARE(reader->timerTime(), bySpeed ? 5 : 10);
    QTRY_VERIFY_WITH_TIMEOUT(reader->ticks > 2, 20000);
}

void tst_NvxDataFileReplay::aPeriodOf0CountsOnlyUnderWay()
{
    // A timer that was never started has an interval of 0, so that one is taken for no change: intended.
    m_file->m_baseTime = 0;
    m_file->setReplayVel(ReplayNormal, 1);
    CountingThread* const reader = m_file->make();
    QCOMPARE(reader->timerTime(), 500);
    reader->start();
    QTRY_VERIFY_WITH_TIMEOUT(reader->timer().isActive(), 20000);
    QCOMPARE(reader->timer().interval(), 500);
    m_file->setReplayVel(ReplayMax, 1);
    QCOMPARE(reader->timer().interval(), 5);
    m_file->setReplayVel(ReplayNormal, 1);
    QCOMPARE(reader->timerTime(), 0);
    QCOMPARE(reader->timer().interval(), 0);
    const int ticks = reader->ticks;
    QTRY_VERIFY_WITH_TIMEOUT(reader->ticks > ticks + 2, 20000);
}

void tst_NvxDataFileReplay::pausesAndResumes()
{
    m_file->setReplayVel(ReplayMax, 1);
    CountingThread* const reader = m_file->make();
    reader->start();
    QTRY_VERIFY_WITH_TIMEOUT(reader->ticks > 0, 20000);
    for (const bool other : {false, true}) {
        other ? m_file->pauseThread() : m_file->processPause();
        QVERIFY(!reader->timer().isActive());
        QVERIFY(reader->isRunning());
        const int ticks = reader->ticks;
        QSignalSpy ticked(reader, &CountingThread::ticked);
        QVERIFY(spyStaysEmpty(ticked, 30));
        other ? m_file->resumeThread() : m_file->processResume();
        QTRY_VERIFY_WITH_TIMEOUT(reader->ticks > ticks, 20000);
    }
}

void tst_NvxDataFileReplay::endsInItsOrder_data()
{
    QTest::addColumn<int>("way");

    QTest::newRow("the reader's own end") << 0;
    QTest::newRow("processStop") << 1;
    QTest::newRow("quitThread") << 2;
}

void tst_NvxDataFileReplay::endsInItsOrder()
{
    QFETCH(int, way);
    QStringList order;
    connect(m_file.get(), &NvxDataFile::streamFileFinished, this, [&](qint64 time) {
        QCOMPARE(m_file->reader(), nullptr);
        order << QStringLiteral("file %1").arg(time);
    });
    connect(m_file.get(), &NvxDataFile::threadFinished, this, [&] { order << QStringLiteral("thread"); });
    const QPointer<CountingThread> reader = m_file->make();
    reader->start();
    QTRY_VERIFY_WITH_TIMEOUT(reader->timer().isActive(), 20000);
    m_file->handleDataReady(dataAt(keyOf(1709210096)), kDevice);
    if (way == 0)
        reader->exitThread();
    else if (way == 1)
        m_file->processStop();
    else
        m_file->quitThread();
    // A stop from outside leaves the timer running until the object goes: intended.
    QCOMPARE(reader->timer().isActive(), way != 0);
    QTRY_COMPARE_WITH_TIMEOUT(
        order, (QStringList{QStringLiteral("file 1709210096"), QStringLiteral("thread")}), 20000);
    QTRY_VERIFY_WITH_TIMEOUT(reader.isNull(), 20000);
}

void tst_NvxDataFileReplay::aSecondReplayOfTheSameObject()
{
    QSignalSpy finished(m_file.get(), &NvxDataFile::threadFinished);
    for (int count = 1; count <= 2; ++count) {
        m_file->make()->start();
        m_file->processStop();
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), count, 20000);
    }
}

void tst_NvxDataFileReplay::aPayloadWithoutAKeySetsTheTimeTo0()
{
    m_file->m_curTime = 5;
    m_file->handleDataReady(dataAt(nullptr), kDevice);
    QCOMPARE(m_file->curTime(), 0);
    m_file->m_curTime = 5;
    m_file->handleHdrReady(headerAt(nullptr), kDevice, nullptr);
    QCOMPARE(m_file->curTime(), 0);
    m_file->m_curTime = 5;
    m_file->handleDataReady(nullptr, kDevice);
    QCOMPARE(m_file->curTime(), 0);
}

void tst_NvxDataFileReplay::theSamePeriodAndASecondResumeLeaveTheReaderAlone()
{
    m_file->m_baseTime = 100000;
    m_file->calcTimerTime(1);
    CountingThread* const reader = m_file->make();
    reader->start();
    QTRY_VERIFY_WITH_TIMEOUT(reader->timer().isActive(), 20000);
    QVERIFY(hasRunDown(reader->timer()));
    const int remaining = reader->timer().remainingTime();
    m_file->setReplayVel(ReplayNormal, 1);
    m_file->setAdjacent(true, 1);
    m_file->processResume();
    QVERIFY(reader->timer().remainingTime() <= remaining);
}

void tst_NvxDataFileReplay::controlOfAFinishedReader()
{
    CountingThread* const reader = m_file->make();
    reader->start();
    reader->quit();
    QVERIFY(reader->wait(10000));
    // No event has told the file so far.
    QCOMPARE(m_file->reader(), reader);
    m_file->processResume();
    QVERIFY(!reader->timer().isActive());
    m_file->processPause();
    m_file->processStop();
    m_file->setReplayVel(ReplayMax, 1);
    QCOMPARE(reader->timerTime(), 500);
    QSignalSpy finished(m_file.get(), &NvxDataFile::threadFinished);
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
    QCOMPARE(m_file->reader(), nullptr);
}

void tst_NvxDataFileReplay::aPauseAheadOfTheTicksIsLost()
{
    // There is no timer to stop yet, and nothing keeps the wish: intended.
    m_file->setReplayVel(ReplayMax, 1);
    QSemaphore gate;
    CountingThread* const reader = m_file->make(&gate);
    reader->start();
    m_file->processPause();
    gate.release();
    QTRY_VERIFY_WITH_TIMEOUT(reader->ticks > 0, 20000);
}

void tst_NvxDataFileReplay::stopsTwice()
{
    QSignalSpy finished(m_file.get(), &NvxDataFile::threadFinished);
    CountingThread* const reader = m_file->make();
    reader->start();
    m_file->processStop();
    m_file->processStop();
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
    m_file->processStop();
    QSignalSpy again(m_file.get(), &NvxDataFile::threadFinished);
    QVERIFY(spyStaysEmpty(again, 20));
}

void tst_NvxDataFileReplay::aReaderThatWasLetGoReportsNothing_data()
{
    QTest::addColumn<bool>("hasEnded");

    QTest::newRow("while it plays") << false;
    QTest::newRow("when it has ended unnoticed") << true;
}

void tst_NvxDataFileReplay::aReaderThatWasLetGoReportsNothing()
{
    QFETCH(bool, hasEnded);
    QSignalSpy finished(m_file.get(), &NvxDataFile::streamFileFinished);
    QSignalSpy data(m_file.get(), &NvxDataFile::streamDataReady);
    const QPointer<CountingThread> first = m_file->make();
    int ticks = 0;
    connect(first, &CountingThread::ticked, this, [&ticks] { ++ticks; });
    first->setTimerTime(1);
    first->start();
    if (hasEnded) {
        first->quit();
        QVERIFY(first->wait(10000));
    } else {
        QTRY_VERIFY_WITH_TIMEOUT(ticks > 0, 20000);
    }
    CountingThread* const second = m_file->make();
    const int before = ticks;
    Q_EMIT first->streamDataReady(dataAt(keyOf(1)), kDevice);
    second->start();
    QTRY_VERIFY_WITH_TIMEOUT(first.isNull(), 20000);
    QCOMPARE(ticks, before);
    QVERIFY(data.isEmpty());
    QVERIFY(finished.isEmpty());
    QCOMPARE(m_file->reader(), second);
    m_file->processStop();
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
}

void tst_NvxDataFileReplay::deletedWhileItPlays()
{
    m_file->setReplayVel(ReplayMax, 1);
    const QPointer<CountingThread> reader = m_file->make();
    reader->start();
    QTRY_VERIFY_WITH_TIMEOUT(reader->ticks > 0, 20000);
    QSignalSpy finished(m_file.get(), &NvxDataFile::streamFileFinished);
    m_file.reset();
    QVERIFY(!reader.isNull());
    QTRY_VERIFY_WITH_TIMEOUT(reader.isNull(), 20000);
    QVERIFY(finished.isEmpty());
}

void tst_NvxDataFileReplay::deletedBeforeTheReaderHasBegun()
{
    QSemaphore gate;
    const QPointer<CountingThread> reader = m_file->make(&gate);
    reader->start();
    m_file.reset();
    QVERIFY(reader->isRunning());
    gate.release();
    QTRY_VERIFY_WITH_TIMEOUT(reader.isNull(), 20000);
}

void tst_NvxDataFileReplay::deletedByItsOwnSignal_data()
{
    QTest::addColumn<int>("signal");

    QTest::newRow("header") << 0;
    QTest::newRow("data") << 1;
    QTest::newRow("file finished") << 2;
}

void tst_NvxDataFileReplay::deletedByItsOwnSignal()
{
    QFETCH(int, signal);
    const QPointer<CountingThread> reader = m_file->make();
    reader->start();
    const auto drop = [this] { m_file.reset(); };
    if (signal == 0)
        connect(m_file.get(), &NvxDataFile::streamHeaderReady, this, drop);
    else if (signal == 1)
        connect(m_file.get(), &NvxDataFile::streamDataReady, this, drop);
    else
        connect(m_file.get(), &NvxDataFile::streamFileFinished, this, drop);
    QSignalSpy threadFinished(m_file.get(), &NvxDataFile::threadFinished);
    if (signal == 0)
        Q_EMIT reader->streamHeaderReady(headerAt(keyOf(1)), kDevice, nullptr);
    else if (signal == 1)
        Q_EMIT reader->streamDataReady(dataAt(keyOf(1)), kDevice);
    else
        m_file->processStop();
    QTRY_VERIFY_WITH_TIMEOUT(m_file == nullptr, 20000);
    QTRY_VERIFY_WITH_TIMEOUT(reader.isNull(), 20000);
    QVERIFY(threadFinished.isEmpty());
}

QTEST_GUILESS_MAIN(tst_NvxDataFileReplay)
#include "tst_NvxDataFileReplay.moc"
