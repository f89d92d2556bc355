// Scan messages that the application hands to HydStreamAdapter.
#include "tests/streaming/StreamFixture.h"
#include "tests/support/Buried.h"

namespace {

std::shared_ptr<HydDataCollectCmd> waveScan(uint32_t time, uint32_t sampsIntoSec, uint16_t count,
                                            uint8_t mask = DataCollWav)
{
    auto cmd = std::make_shared<HydDataCollectCmd>(mask);
    cmd->setChunk(DataCollWavTime, std::make_shared<DataCollWavTimeChunk>(time, sampsIntoSec));
    auto wave = std::make_shared<DataCollWavChunk>();
    wave->sampleRate = 100;
    wave->format = 0x82;
    wave->count = count;
    wave->samples.resize(count * size_t{2});
    cmd->setChunk(DataCollWav, wave);
    return cmd;
}

std::shared_ptr<HydDataCollectCmd> spectrumScan(uint32_t time, uint8_t mask = DataCollSpec,
                                                bool withTime = true)
{
    auto cmd = std::make_shared<HydDataCollectCmd>(mask);
    if (withTime)
        cmd->setChunk(DataCollSpecTime, std::make_shared<DataCollSpecTimeChunk>(time, 1));
    auto spectrum = std::make_shared<DataCollSpecChunk>();
    spectrum->sampleRate = 100;
    spectrum->points = 8;
    spectrum->bins = {1, 2, 3, 4};
    cmd->setChunk(DataCollSpec, spectrum);
    return cmd;
}

/// An adapter without a socket, and what it emits.
struct Scan
{
    explicit Scan(HydStreamType type) : adapter(type, 1, kDevice, kLongPeriod, false) {}

    void feed(const std::shared_ptr<HydDataCollectCmd>& cmd) { adapter.handleDataCollectMessage(cmd); }

    HydStreamAdapter adapter;
    QSignalSpy headers{&adapter, &HydStreamAdapter::eventHeader};
    QSignalSpy data{&adapter, &HydStreamAdapter::streamDataReady};
    QSignalSpy lost{&adapter, &HydStreamAdapter::streamDataLost};
};

} // namespace

class TestHydStreamAdapterScan : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void wavesGiveHeaderAndBlock()
    {
        Scan scan(StreamWave);
        scan.feed(waveScan(1000, 0, 50));
        QCOMPARE(scan.headers.size(), 1);
        const auto header = scan.headers[0][0].value<std::shared_ptr<HydStreamEventHeaderPayload>>();
        // Headers bear the adapter's type, data that of scans. Intended.
        QCOMPARE(header->streamType, StreamWave);
        QCOMPARE(header->streamSetupChunk()->wavSetup()->sampleRate(), 100U);
        QVERIFY(header->streamStatusChunks().size() == 1);
        QVERIFY(scan.headers[0][1].value<HydDeviceId>() == kDevice);
        QVERIFY(scan.headers[0][2].value<std::shared_ptr<HydDevice>>() != nullptr);
        QCOMPARE(scan.data.size(), 1);
        const auto data = scan.data[0][0].value<std::shared_ptr<HydStreamDataPayload>>();
        QCOMPARE(data->streamType, StreamWaveScan);
        QCOMPARE(data->data()->numSamples(), quint16{50});
        QVERIFY(scan.data[0][1].value<HydDeviceId>() == kDevice);
        QCOMPARE(scan.lost.size(), 0);
    }

    void onlyANewSecondGivesAHeader()
    {
        Scan scan(StreamWave);
        scan.feed(waveScan(1000, 0, 50));
        scan.feed(waveScan(1000, 50, 50));
        scan.feed(waveScan(1001, 0, 50));
        QCOMPARE(scan.headers.size(), 2);
        QCOMPARE(scan.data.size(), 3);
        QCOMPARE(scan.lost.size(), 0);
    }

    void moreDataBitChangesNothing()
    {
        Scan scan(StreamWave);
        scan.feed(waveScan(1000, 0, 50, DataCollWav | HydDataCollectCmd::kMoreData));
        QCOMPARE(scan.headers.size(), 1);
        QCOMPARE(scan.data.size(), 1);
    }

    void spectraGiveHeaderAtEachNewTime()
    {
        Scan scan(StreamSpectrum);
        scan.feed(spectrumScan(1000));
        scan.feed(spectrumScan(1000));
        scan.feed(spectrumScan(1001));
        scan.feed(spectrumScan(1000));
        QCOMPARE(scan.headers.size(), 3);
        QCOMPARE(scan.data.size(), 4);
        const auto header = scan.headers[0][0].value<std::shared_ptr<HydStreamEventHeaderPayload>>();
        QCOMPARE(header->streamType, StreamSpectrum);
        QVERIFY(header->streamStatusChunks().size() == 1);
        const auto data = scan.data[0][0].value<std::shared_ptr<HydStreamDataPayload>>();
        QCOMPARE(data->streamType, StreamSpectrumScan);
        QCOMPARE(data->data()->numSamples(), quint16{4});
    }

    // --- rainy day flows

    void missingSamplesAreReportedBehindTheBlock()
    {
        Scan scan(StreamWave);
        scan.feed(waveScan(1000, 0, 50));
        QStringList order;
        connect(&scan.adapter, &HydStreamAdapter::streamDataReady, this,
                [&] { order += QStringLiteral("data"); });
        connect(&scan.adapter, &HydStreamAdapter::streamDataLost, this,
                [&] { order += QStringLiteral("lost"); });
        scan.feed(waveScan(1000, 70, 30));
        QCOMPARE(order, QStringList({QStringLiteral("data"), QStringLiteral("lost")}));
        QVERIFY(scan.lost[0][0].value<HydDeviceId>() == kDevice);
        scan.feed(waveScan(1001, 0, 30));
        QCOMPARE(scan.lost.size(), 1);
    }

    void samplesThatDontFitAreLostWithoutABlock()
    {
        Scan scan(StreamWave);
        const auto cmd = waveScan(1000, 0, 50);
        auto wave = std::make_shared<DataCollWavChunk>(
            *std::dynamic_pointer_cast<DataCollWavChunk const>(cmd->getChunk(DataCollWav)));
        wave->samples.pop_back();
        cmd->setChunk(DataCollWav, wave);
        scan.feed(cmd);
        QCOMPARE(scan.headers.size(), 1);
        QCOMPARE(scan.data.size(), 0);
        QCOMPARE(scan.lost.size(), 1);
    }

    void deletedByASlot_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("signal");
        QTest::newRow("header of waves") << 1 << 0;
        QTest::newRow("header of spectra") << 2 << 0;
        QTest::newRow("block ahead of a loss") << 1 << 1;
        QTest::newRow("spectrum") << 2 << 1;
        QTest::newRow("loss") << 1 << 2;
    }

    void deletedByASlot()
    {
        QFETCH(int, type);
        QFETCH(int, signal);
        using BuriedAdapter = Buried<HydStreamAdapter>;
        auto* adapter = new BuriedAdapter(static_cast<HydStreamType>(type), 1, kDevice, kLongPeriod, false);
        const auto feed = [&](uint32_t time, uint32_t sampsIntoSec) {
            adapter->handleDataCollectMessage(type == 1 ? waveScan(time, sampsIntoSec, 10)
                                                        : spectrumScan(time));
        };
        feed(1000, 0);
        int later = 0;
        const auto destroy = [&] { delete adapter; };
        if (signal == 0)
            connect(adapter, &HydStreamAdapter::eventHeader, this, destroy);
        else if (signal == 1)
            connect(adapter, &HydStreamAdapter::streamDataReady, this, destroy);
        else
            connect(adapter, &HydStreamAdapter::streamDataLost, this, destroy);
        if (signal < 2)
            connect(adapter, &HydStreamAdapter::streamDataLost, this, [&] { ++later; });
        if (signal < 1)
            connect(adapter, &HydStreamAdapter::streamDataReady, this, [&] { ++later; });
        // A second begins, of which the message before has left out the end.
        feed(1001, 0);
        QVERIFY(BuriedAdapter::isGone());
        QVERIFY(BuriedAdapter::isUntouched());
        QCOMPARE(later, 0);
    }

    void spectrumWithoutTimeHasNoHeader()
    {
        Scan scan(StreamSpectrum);
        scan.feed(spectrumScan(1000, DataCollSpec, false));
        QCOMPARE(scan.headers.size(), 0);
        QCOMPARE(scan.data.size(), 1);
        // It didn't change the time of the last one either.
        scan.feed(spectrumScan(1000));
        scan.feed(spectrumScan(1000, DataCollSpec, false));
        scan.feed(spectrumScan(1000));
        QCOMPARE(scan.headers.size(), 1);
    }

    void othersAreIgnored_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("isWave");
        QTest::addColumn<int>("mask");
        QTest::newRow("wave stream, mask without waves") << 1 << true << 0x10;
        QTest::newRow("wave stream, spectrum") << 1 << false << 0x10;
        QTest::newRow("spectrum stream, mask without spectrum") << 2 << false << 0x20;
        QTest::newRow("spectrum stream, waves") << 2 << true << 0x20;
        QTest::newRow("sensor stream") << 3 << true << 0x30;
        QTest::newRow("scan wave stream") << 16 << true << 0x30;
        QTest::newRow("scan spectrum stream") << 17 << false << 0x30;
        QTest::newRow("spectrum file") << 33 << false << 0x30;
    }

    void othersAreIgnored()
    {
        QFETCH(int, type);
        QFETCH(bool, isWave);
        QFETCH(int, mask);
        Scan scan(static_cast<HydStreamType>(type));
        scan.feed(isWave ? waveScan(1000, 0, 50, static_cast<uint8_t>(mask))
                         : spectrumScan(1000, static_cast<uint8_t>(mask)));
        QCOMPARE(scan.headers.size(), 0);
        QCOMPARE(scan.data.size(), 0);
        QCOMPARE(scan.lost.size(), 0);
    }

    void emptyMessagesGiveNoPayloads()
    {
        for (const HydStreamType type : {StreamWave, StreamSpectrum}) {
            Scan scan(type);
            scan.feed(nullptr);
            scan.feed(std::make_shared<HydDataCollectCmd>(uint8_t{0x30}));
            auto timeOnly = std::make_shared<HydDataCollectCmd>(uint8_t{0x30});
            timeOnly->setChunk(DataCollWavTime, std::make_shared<DataCollWavTimeChunk>(1000, 0));
            timeOnly->setChunk(DataCollSpecTime, std::make_shared<DataCollSpecTimeChunk>(1000, 0));
            scan.feed(timeOnly);
            QCOMPARE(scan.headers.size(), 0);
            QCOMPARE(scan.data.size(), 0);
        }
    }
};

QTEST_GUILESS_MAIN(TestHydStreamAdapterScan)
#include "tst_HydStreamAdapterScan.moc"
