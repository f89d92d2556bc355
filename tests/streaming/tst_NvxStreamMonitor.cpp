// What NvxStreamMonitor counts, and what it is attached to.
#include "tests/streaming/StreamWatch.h"

#include <memory>

using namespace streamframes;

namespace {

const QString kAddress = QStringLiteral("127.41.8.1");
const HydDeviceId kOther{DevTypeRecorderB, 99};

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

    void scanBlocksBearTheirOwnSequence()
    {
        Watch watch;
        watch.header(1, 5000);
        for (uint32_t start = 0; start < 300; start += 100) {
            auto payload = std::make_shared<HydStreamDataPayload>(key(1, 5000 + start), samples(start, 100));
            payload->streamType = StreamWaveScan;
            watch.monitor.handleStreamData(payload, kDevice);
        }
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty() && watch.jumps.isEmpty());
        QCOMPARE(watch.stats().samplesReceived, quint64{300});
        auto late = std::make_shared<HydStreamDataPayload>(key(1, 5350), samples(350, 100));
        late->streamType = StreamWaveScan;
        watch.monitor.handleStreamData(late, kDevice);
        QCOMPARE(watch.gaps.size(), 1);
        QCOMPARE(watch.stats().samplesMissing, quint64{50});
    }

    void wavesAndSpectraOfOneDeviceAreKeptApart()
    {
        HydStreamAdapter waves(StreamWave, 1, kDevice, 1000, false);
        HydStreamAdapter spectra(StreamSpectrum, 2, kDevice, 1000, false);
        NvxStreamMonitor monitor;
        monitor.attach(&waves);
        monitor.attach(&spectra);
        Q_EMIT waves.streamConnected();
        Q_EMIT spectra.streamConnected();
        waves.handleStreamMessagePayload(header(1, 0));
        auto first = std::make_shared<HydStreamDataPayload>(key(1, 0), samples(0, 50));
        waves.handleStreamMessagePayload(first);
        spectra.handleStreamMessagePayload(headerWith(key(1, 0), spectrumSetup(100)));
        auto second = std::make_shared<HydStreamDataPayload>(key(1, 0), samples(60, 40));
        waves.handleStreamMessagePayload(second);
        const NvxStreamStats stats = monitor.stats(kDevice);
        QCOMPARE(stats.samplesReceived, quint64{90});
        QCOMPARE(stats.samplesMissing, quint64{10});
        QCOMPARE(stats.reconnects, quint64{0});
        QCOMPARE(stats.headers, quint64{2});
    }

    void detachingLeavesForeignConnections()
    {
        HydStreamAdapter adapter(StreamWave, 1, kDevice, 1000, false);
        NvxStreamMonitor monitor;
        connect(&adapter, &HydStreamAdapter::streamDataLost, &monitor,
                &NvxStreamMonitor::handleStreamDataLost);
        monitor.attach(&adapter);
        monitor.detach(&adapter);
        adapter.handleStreamMessagePayload(header(1, 0));
        QCOMPARE(monitor.total().headers, quint64{0});
        Q_EMIT adapter.streamDataLost(kDevice);
        QCOMPARE(monitor.total().lossReports, quint64{1});
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
