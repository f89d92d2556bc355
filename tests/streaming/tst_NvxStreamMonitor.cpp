#include "NvxQtCommon/streaming/NvxStreamMonitor.h"
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"

#include <memory>

using namespace streamframes;

namespace {

const QString kAddress = QStringLiteral("127.41.8.1");
const HydDeviceId kOther{DevTypeRecorderB, 99};

/// A monitor, a clock in the test's hand and spies on every signal.
struct Watch
{
    Watch()
    {
        monitor.setClock([this] { return now; });
    }

    void header(uint32_t eventId, int64_t sequence, uint32_t rate = 100, const HydDeviceId& devId = kDevice)
    {
        monitor.handleEventHeader(streamframes::header(eventId, sequence, rate), devId, nullptr);
    }
    void block(uint32_t eventId, int64_t sequence, uint32_t start, uint16_t count,
               const HydDeviceId& devId = kDevice)
    {
        monitor.handleStreamData(streamframes::block(eventId, sequence, start, count), devId);
    }
    NvxStreamStats stats(const HydDeviceId& devId = kDevice) const { return monitor.stats(devId); }

    std::chrono::nanoseconds now{1};
    NvxStreamMonitor monitor;
    QSignalSpy gaps{&monitor, &NvxStreamMonitor::gapFound};
    QSignalSpy duplicates{&monitor, &NvxStreamMonitor::duplicateFound};
    QSignalSpy jumps{&monitor, &NvxStreamMonitor::backwardJumpFound};
};

/// The device and the two numbers of one emission.
bool reports(const QList<QVariant>& arguments, const HydDeviceId& devId, qint64 first, qint64 second)
{
    return arguments.size() == 3 && arguments[0].value<HydDeviceId>() == devId &&
           arguments[1].toLongLong() == first && arguments[2].toLongLong() == second;
}

std::shared_ptr<HydStreamDataPayload> spectrum(HydStreamType type, uint16_t bins)
{
    auto chunk = std::make_shared<HydStreamDataChunkV0>(
        0U, static_cast<unsigned char>(1), static_cast<unsigned char>(1), bins, unsigned{bins}, false);
    auto payload = std::make_shared<HydStreamDataPayload>(key(1, 0), chunk);
    payload->streamType = type;
    return payload;
}

} // namespace

class TestNvxStreamMonitor : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void knowsNothingAtFirst()
    {
        const NvxStreamMonitor monitor;
        QVERIFY(monitor.devices().empty());
        const NvxStreamStats stats = monitor.stats(kDevice);
        QCOMPARE(stats.blocks, quint64{0});
        QCOMPARE(stats.samplesReceived, quint64{0});
        QCOMPARE(stats.actualRate, 0.0);
        QVERIFY(!stats.lastBlockAge);
        QVERIFY(!monitor.total().lastBlockAge);
    }

    void countsACleanStream()
    {
        Watch watch;
        for (uint32_t second = 0; second < 5; ++second) {
            watch.header(1000 + second, second * 100);
            watch.block(1000 + second, second * 100, 0, 60);
            watch.block(1000 + second, second * 100, 60, 40);
        }
        const NvxStreamStats stats = watch.stats();
        QCOMPARE(stats.headers, quint64{5});
        QCOMPARE(stats.blocks, quint64{10});
        QCOMPARE(stats.bytes, quint64{1000});
        QCOMPARE(stats.samplesReceived, quint64{500});
        QCOMPARE(stats.samplesMissing, quint64{0});
        QCOMPARE(stats.samplesRepeated, quint64{0});
        QCOMPARE(stats.nominalRate, 100U);
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty() && watch.jumps.isEmpty());
    }

    void channelsCountAsOneSample()
    {
        Watch watch;
        auto chunk = std::make_shared<HydStreamDataChunkV0>(0U, static_cast<unsigned char>(8),
                                                            static_cast<unsigned char>(0x83),
                                                            static_cast<unsigned short>(10), 240U, false);
        watch.monitor.handleStreamData(std::make_shared<HydStreamDataPayload>(key(1, 0), chunk), kDevice);
        QCOMPARE(watch.stats().samplesReceived, quint64{10});
        QCOMPARE(watch.stats().bytes, quint64{240});
    }

    void numberingMayBeginAnywhere()
    {
        Watch watch;
        watch.block(1000, 5000, 70, 30);
        watch.header(1001, 5100);
        watch.block(1001, 5100, 0, 100);
        QCOMPARE(watch.stats().samplesReceived, quint64{130});
        QCOMPARE(watch.stats().samplesMissing, quint64{0});
        QCOMPARE(watch.gaps.size(), 0);
    }

    void numbersBeyond32BitsAreExact()
    {
        Watch watch;
        const int64_t start = (int64_t{1} << 40) + 7;
        watch.header(1, start);
        watch.block(1, start, 0, 100);
        watch.header(2, start + 150);
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kDevice, start + 100, 50));
    }

    void devicesAreKeptApart()
    {
        Watch watch;
        watch.header(1, 0, 100);
        watch.header(1, 7000, 200, kOther);
        watch.block(1, 0, 0, 100);
        watch.block(1, 7000, 0, 200, kOther);
        watch.header(2, 100, 100);
        watch.header(2, 7210, 200, kOther);
        QCOMPARE(watch.monitor.devices().size(), size_t{2});
        QCOMPARE(watch.stats().samplesReceived, quint64{100});
        QCOMPARE(watch.stats().samplesMissing, quint64{0});
        QCOMPARE(watch.stats(kOther).samplesReceived, quint64{200});
        QCOMPARE(watch.stats(kOther).samplesMissing, quint64{10});
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kOther, 7200, 10));
        const NvxStreamStats total = watch.monitor.total();
        QCOMPARE(total.samplesReceived, quint64{300});
        QCOMPARE(total.samplesMissing, quint64{10});
        QCOMPARE(total.gaps, quint64{1});
        QCOMPARE(total.headers, quint64{4});
        QCOMPARE(total.blocks, quint64{2});
        QCOMPARE(total.bytes, quint64{600});
        QCOMPARE(total.nominalRate, 300U);
    }

    void changedAliasIsTheSameDevice()
    {
        Watch watch;
        HydDeviceId named = kDevice;
        named.setAlias("deep one");
        watch.block(1, 0, 0, 50);
        watch.block(1, 0, 50, 50, named);
        QCOMPARE(watch.monitor.devices().size(), size_t{1});
        QCOMPARE(watch.stats().samplesReceived, quint64{100});
    }

    void rateChangeIsNoGap()
    {
        Watch watch;
        watch.header(1, 0, 100);
        watch.block(1, 0, 0, 100);
        watch.header(2, 100, 400);
        watch.block(2, 100, 0, 400);
        QCOMPARE(watch.stats().nominalRate, 400U);
        QCOMPARE(watch.stats().samplesReceived, quint64{500});
        QCOMPARE(watch.gaps.size(), 0);
        QCOMPARE(watch.jumps.size(), 0);
    }

    void actualRateFollowsTheClock()
    {
        using namespace std::chrono_literals;
        Watch watch;
        watch.header(1, 0, 100);
        watch.block(1, 0, 0, 50);
        QCOMPARE(watch.stats().actualRate, 0.0);
        watch.now += 500ms;
        watch.block(1, 0, 50, 50);
        QCOMPARE(watch.stats().actualRate, 100.0);
        watch.now += 1500ms;
        watch.block(1, 0, 100, 110);
        QCOMPARE(watch.stats().actualRate, 80.0);
        // Repeated samples are no new ones.
        watch.block(1, 0, 100, 110);
        QCOMPARE(watch.stats().actualRate, 80.0);
        // A new nominal rate begins a new measurement.
        watch.header(2, 210, 1000);
        QCOMPARE(watch.stats().actualRate, 0.0);
        watch.block(2, 210, 0, 10);
        watch.now += 1s;
        watch.block(2, 210, 10, 900);
        QCOMPARE(watch.stats().actualRate, 900.0);
    }

    void ageOfTheLastBlock()
    {
        using namespace std::chrono_literals;
        Watch watch;
        watch.header(1, 0);
        QVERIFY(!watch.stats().lastBlockAge);
        watch.block(1, 0, 0, 10);
        QCOMPARE(*watch.stats().lastBlockAge, std::chrono::nanoseconds(0));
        watch.now += 1234ms;
        QCOMPARE(*watch.stats().lastBlockAge, std::chrono::nanoseconds(1234ms));
        watch.block(1, 0, 0, 10, kOther);
        watch.now += 1ms;
        QCOMPARE(*watch.stats().lastBlockAge, std::chrono::nanoseconds(1235ms));
        QCOMPARE(*watch.monitor.total().lastBlockAge, std::chrono::nanoseconds(1ms));
    }

    void spectraAreCountedAsBlocks_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("headerSaysSo");
        QTest::newRow("spectrum") << 2 << false;
        QTest::newRow("scan spectrum") << 17 << false;
        QTest::newRow("spectrum file") << 33 << false;
        QTest::newRow("sensor") << 3 << false;
        QTest::newRow("type of a wave, header of spectra") << 1 << true;
    }

    void spectraAreCountedAsBlocks()
    {
        QFETCH(int, type);
        QFETCH(bool, headerSaysSo);
        Watch watch;
        for (uint32_t i = 0; i < 3; ++i) {
            auto head = headerWith(key(10 + i, 1000 * i),
                                   headerSaysSo ? spectrumSetup(50) : HydStreamSetupContainer{});
            head->streamType = static_cast<HydStreamType>(type);
            watch.monitor.handleEventHeader(head, kDevice, nullptr);
            watch.monitor.handleStreamData(spectrum(static_cast<HydStreamType>(type), 512), kDevice);
        }
        const NvxStreamStats stats = watch.stats();
        QCOMPARE(stats.headers, quint64{3});
        QCOMPARE(stats.blocks, quint64{3});
        QCOMPARE(stats.bytes, quint64{1536});
        QCOMPARE(stats.samplesReceived, quint64{0});
        QCOMPARE(stats.samplesMissing, quint64{0});
        QVERIFY(stats.lastBlockAge.has_value());
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty() && watch.jumps.isEmpty());
    }

    void listensToAnAdapter()
    {
        StreamFixture stream(kAddress);
        Watch watch;
        watch.monitor.attach(&stream.adapter);
        watch.monitor.attach(&stream.adapter);
        START_STREAM(stream);
        stream.peer.send(frame(streamframes::header(1, 0)) + frame(streamframes::block(1, 0, 0, 50)) +
                         frame(streamframes::block(1, 0, 70, 30)));
        QTRY_COMPARE(watch.stats().blocks, quint64{2});
        QCOMPARE(watch.stats().headers, quint64{1});
        QCOMPARE(watch.stats().samplesReceived, quint64{80});
        QCOMPARE(watch.stats().samplesMissing, quint64{20});
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kDevice, 50, 20));
        QCOMPARE(watch.stats().reconnects, quint64{0});
        Q_EMIT stream.adapter.streamDataLost(kDevice);
        QCOMPARE(watch.stats().lossReports, quint64{1});
        watch.monitor.detach(&stream.adapter);
        stream.adapter.handleStreamMessagePayload(streamframes::block(1, 0, 100, 10));
        QCOMPARE(watch.stats().blocks, quint64{2});
        watch.monitor.attach(&stream.adapter);
        stream.adapter.handleStreamMessagePayload(streamframes::block(1, 0, 100, 10));
        QCOMPARE(watch.stats().blocks, quint64{3});
    }

    void reconnectionsShowWhatTheyCost()
    {
        StreamFixture stream(kAddress);
        Watch watch;
        watch.monitor.attach(&stream.adapter);
        START_STREAM(stream);
        stream.peer.send(frame(streamframes::header(1, 0)) + frame(streamframes::block(1, 0, 0, 100)));
        QTRY_COMPARE(watch.stats().blocks, quint64{1});
        stream.peer.socket()->disconnectFromHost();
        QTRY_COMPARE(watch.stats().reconnects, quint64{1});
        QTRY_COMPARE(stream.peer.connections(), qsizetype{2});
        stream.peer.send(frame(streamframes::header(4, 300)) + frame(streamframes::block(4, 300, 0, 100)));
        QTRY_COMPARE(watch.stats().blocks, quint64{2});
        QCOMPARE(watch.stats().samplesMissing, quint64{200});
        QVERIFY(reports(watch.gaps.at(0), kDevice, 100, 200));
        // The rate is measured over the new connection alone.
        QCOMPARE(watch.stats().actualRate, 0.0);
    }

    void reconnectionCountsForEveryDeviceOfTheAdapter()
    {
        HydStreamAdapter adapter(StreamWave, 1, kDevice, kLongPeriod, false);
        Watch watch;
        watch.monitor.attach(&adapter);
        Q_EMIT adapter.streamConnected();
        Q_EMIT adapter.streamDataReady(streamframes::block(1, 0, 0, 10), kDevice);
        Q_EMIT adapter.streamDataReady(streamframes::block(1, 0, 0, 10), kOther);
        watch.block(1, 0, 0, 10, HydDeviceId(DevTypeRecorderB, 100));
        QCOMPARE(watch.monitor.total().reconnects, quint64{0});
        Q_EMIT adapter.streamConnected();
        QCOMPARE(watch.stats().reconnects, quint64{1});
        QCOMPARE(watch.stats(kOther).reconnects, quint64{1});
        QCOMPARE(watch.stats(HydDeviceId(DevTypeRecorderB, 100)).reconnects, quint64{0});
    }

    void connectionsOfOtherSourcesAreToldByDevice()
    {
        Watch watch;
        watch.monitor.handleStreamConnected(kDevice);
        QCOMPARE(watch.stats().reconnects, quint64{0});
        watch.monitor.handleStreamConnected(kDevice);
        watch.monitor.handleStreamConnected(kDevice);
        QCOMPARE(watch.stats().reconnects, quint64{2});
        QCOMPARE(watch.stats(kOther).reconnects, quint64{0});
    }

    void resetForgetsCountsAndNumbering()
    {
        StreamFixture stream(kAddress);
        Watch watch;
        watch.monitor.attach(&stream.adapter);
        watch.header(1, 0);
        watch.block(1, 0, 0, 100);
        watch.monitor.reset();
        QVERIFY(watch.monitor.devices().empty());
        watch.block(9, 9000, 0, 100);
        QCOMPARE(watch.gaps.size(), 0);
        QCOMPARE(watch.stats().samplesReceived, quint64{100});
        stream.adapter.handleStreamMessagePayload(streamframes::block(9, 9000, 100, 100));
        QCOMPARE(watch.stats().samplesReceived, quint64{200});
    }

    // --- rainy day flows

    void lostBlock()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 30);
        watch.block(1, 0, 60, 40);
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kDevice, 30, 30));
        QCOMPARE(watch.stats().samplesMissing, quint64{30});
        QCOMPARE(watch.stats().samplesReceived, quint64{70});
        QCOMPARE(watch.stats().gaps, quint64{1});
    }

    void lostLastBlockShowsAtTheNextHeader()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 60);
        watch.header(2, 100);
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kDevice, 60, 40));
        watch.block(2, 100, 0, 100);
        QCOMPARE(watch.gaps.size(), 1);
    }

    void lostFirstBlockShowsAgainstTheHeader()
    {
        Watch watch;
        watch.header(1, 500);
        watch.block(1, 500, 10, 90);
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kDevice, 500, 10));
    }

    void lostHeaderIsNoGap()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 100);
        watch.block(2, 100, 0, 100);
        watch.header(3, 200);
        watch.block(3, 200, 0, 100);
        QCOMPARE(watch.gaps.size(), 0);
        QCOMPARE(watch.stats().samplesReceived, quint64{300});
    }

    void lostHeaderAndBlockIsOneGap()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 100);
        watch.block(2, 100, 50, 50);
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kDevice, 100, 50));
    }

    void everyLossOfASecondIsExact_data()
    {
        QTest::addColumn<int>("lost");
        for (int lost = 0; lost < 1024; lost += 37)
            QTest::addRow("frames %x", lost) << lost;
    }

    void everyLossOfASecondIsExact()
    {
        // Ten frames of two seconds, any of them lost, and a complete third second behind them.
        QFETCH(int, lost);
        Watch watch;
        watch.header(99, 900);
        watch.block(99, 900, 0, 100);
        uint64_t missing = 0;
        int bit = 0;
        for (uint32_t second = 0; second < 2; ++second) {
            const int64_t sequence = 1000 + second * 100;
            if ((lost >> bit++ & 1) == 0)
                watch.header(100 + second, sequence);
            for (uint32_t part = 0; part < 4; ++part) {
                if ((lost >> bit++ & 1) == 0)
                    watch.block(100 + second, sequence, part * 25, 25);
                else
                    missing += 25;
            }
        }
        watch.header(102, 1200);
        watch.block(102, 1200, 0, 100);
        QCOMPARE(watch.stats().samplesMissing, missing);
        QCOMPARE(watch.stats().samplesReceived, 400 - missing);
        uint64_t reported = 0;
        for (const auto& gap : watch.gaps)
            reported += gap[2].toULongLong();
        QCOMPARE(reported, missing);
        QVERIFY(watch.duplicates.isEmpty() && watch.jumps.isEmpty());
    }

    void repeatedBlock()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 60);
        watch.block(1, 0, 20, 40);
        watch.block(1, 0, 60, 40);
        QCOMPARE(watch.duplicates.size(), 1);
        QVERIFY(reports(watch.duplicates[0], kDevice, 20, 40));
        QCOMPARE(watch.stats().samplesReceived, quint64{100});
        QCOMPARE(watch.stats().samplesRepeated, quint64{40});
        QCOMPARE(watch.stats().blocks, quint64{3});
        QVERIFY(watch.gaps.isEmpty() && watch.jumps.isEmpty());
    }

    void overlappingBlockCountsOnlyItsNewSamples()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 60);
        watch.block(1, 0, 50, 50);
        QVERIFY(reports(watch.duplicates.at(0), kDevice, 50, 10));
        QCOMPARE(watch.stats().samplesReceived, quint64{100});
        watch.header(2, 100);
        QVERIFY(watch.gaps.isEmpty());
    }

    void repeatedHeaderSaysNothing()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 60);
        watch.header(1, 0);
        watch.block(1, 0, 60, 40);
        watch.header(2, 100);
        watch.header(1, 0);
        watch.block(2, 100, 0, 100);
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty() && watch.jumps.isEmpty());
        QCOMPARE(watch.stats().samplesReceived, quint64{200});
        QCOMPARE(watch.stats().headers, quint64{4});
    }

    void lateBlockOfAnEarlierEventIsRepeated()
    {
        Watch watch;
        for (uint32_t second = 0; second < 3; ++second) {
            watch.header(10 + second, second * 100);
            watch.block(10 + second, second * 100, 0, 100);
        }
        watch.block(11, 100, 50, 50);
        watch.block(10, 0, 0, 100);
        watch.block(12, 200, 100, 20);
        QCOMPARE(watch.duplicates.size(), 2);
        QVERIFY(reports(watch.duplicates[0], kDevice, 150, 50));
        QVERIFY(reports(watch.duplicates[1], kDevice, 0, 100));
        QCOMPARE(watch.stats().samplesReceived, quint64{320});
        QVERIFY(watch.gaps.isEmpty() && watch.jumps.isEmpty());
    }

    void numberingThatRestartsIsABackwardJump()
    {
        Watch watch;
        watch.header(1, 5000);
        watch.block(1, 5000, 0, 100);
        watch.header(2, 0);
        watch.block(2, 0, 0, 100);
        watch.header(3, 100);
        QCOMPARE(watch.jumps.size(), 1);
        QVERIFY(reports(watch.jumps[0], kDevice, 5100, 0));
        QCOMPARE(watch.stats().backwardJumps, quint64{1});
        QCOMPARE(watch.stats().samplesReceived, quint64{200});
        QCOMPARE(watch.stats().samplesMissing, quint64{0});
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty());
    }

    void restartWithoutItsHeaderIsABackwardJump()
    {
        Watch watch;
        watch.header(1, 5000);
        watch.block(1, 5000, 0, 100);
        watch.block(2, 0, 10, 90);
        watch.block(2, 0, 100, 10);
        QVERIFY(reports(watch.jumps.at(0), kDevice, 5100, 10));
        QCOMPARE(watch.stats().samplesReceived, quint64{200});
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty());
    }

    void restartWithinASecondIsABackwardJump()
    {
        Watch watch;
        watch.header(1, 5000);
        watch.block(1, 5000, 0, 100);
        watch.header(1, 0);
        watch.block(1, 0, 0, 100);
        QVERIFY(reports(watch.jumps.at(0), kDevice, 5100, 0));
        QCOMPARE(watch.stats().samplesReceived, quint64{200});
    }

    void clockThatIsSetBackIsNoRepetition()
    {
        Watch watch;
        watch.header(100, 5000);
        watch.block(100, 5000, 0, 100);
        watch.header(50, 5100);
        watch.block(50, 5100, 0, 100);
        watch.block(51, 5200, 0, 100);
        watch.block(40, 5300, 0, 100);
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty() && watch.jumps.isEmpty());
        QCOMPARE(watch.stats().samplesReceived, quint64{400});
    }

    void blocksWithoutKeyFollowOn()
    {
        Watch watch;
        watch.monitor.handleStreamData(std::make_shared<HydStreamDataPayload>(nullptr, samples(0, 10)),
                                       kDevice);
        watch.header(1, 0);
        watch.block(1, 0, 0, 50);
        watch.monitor.handleStreamData(std::make_shared<HydStreamDataPayload>(nullptr, samples(0, 50)),
                                       kDevice);
        watch.header(2, 100);
        QCOMPARE(watch.stats().samplesReceived, quint64{110});
        QVERIFY(watch.gaps.isEmpty());
    }

    void emptyPayloadsAreSurvived()
    {
        Watch watch;
        watch.monitor.handleEventHeader(nullptr, kDevice, nullptr);
        watch.monitor.handleStreamData(nullptr, kDevice);
        watch.monitor.handleStreamData(std::make_shared<HydStreamDataPayload>(key(1, 0), nullptr), kDevice);
        watch.monitor.handleEventHeader(headerWith(nullptr, {}), kDevice, nullptr);
        watch.block(1, 0, 0, 100);
        watch.block(1, 0, 50, 0);
        watch.monitor.attach(nullptr);
        watch.monitor.detach(nullptr);
        QCOMPARE(watch.stats().headers, quint64{1});
        QCOMPARE(watch.stats().blocks, quint64{2});
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty() && watch.jumps.isEmpty());
    }

    void extremeNumbersWrap()
    {
        Watch watch;
        constexpr int64_t kLargest = 0x7FFFFFFFFFFFFFFF;
        watch.header(1, kLargest);
        watch.block(1, kLargest, 0xFFFFFFFF, 65535);
        watch.header(2, -5);
        watch.block(2, -5, 0, 10);
        QCOMPARE(watch.stats().samplesReceived, quint64{65545});
        QCOMPARE(watch.stats().blocks, quint64{2});
    }

    void adapterMayGoFirst()
    {
        Watch watch;
        auto adapter = std::make_unique<HydStreamAdapter>(StreamWave, 1, kDevice, kLongPeriod, false);
        watch.monitor.attach(adapter.get());
        Q_EMIT adapter->streamDataReady(streamframes::block(1, 0, 0, 10), kDevice);
        adapter.reset();
        HydStreamAdapter second(StreamWave, 1, kDevice, kLongPeriod, false);
        watch.monitor.attach(&second);
        Q_EMIT second.streamConnected();
        Q_EMIT second.streamDataReady(streamframes::block(1, 0, 10, 10), kDevice);
        QCOMPARE(watch.stats().samplesReceived, quint64{20});
        QCOMPARE(watch.stats().reconnects, quint64{1});
    }

    void slotMayResetTheMonitor()
    {
        Watch watch;
        connect(&watch.monitor, &NvxStreamMonitor::gapFound, this, [&] { watch.monitor.reset(); });
        watch.block(1, 0, 0, 10);
        watch.block(1, 0, 20, 10);
        QVERIFY(watch.monitor.devices().empty());
        watch.block(1, 0, 30, 10);
        watch.header(2, 100);
        QVERIFY(watch.monitor.devices().empty());
        QCOMPARE(watch.gaps.size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestNvxStreamMonitor)
#include "tst_NvxStreamMonitor.moc"
