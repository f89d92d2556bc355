#include "NvxQtCommon/contract/stream/HydScanStreamConv.h"
#include "tests/support/NvxTestCase.h"

#include <algorithm>
#include <limits>
#include <optional>

class tst_HydScanStreamConv : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void waveHeaderTakesDeviceAndFormat_data();
    void waveHeaderTakesDeviceAndFormat();
    void byteOrderOfASetup_data();
    void byteOrderOfASetup();
    void statusUnits_data();
    void statusUnits();
    void spectrumHeaderTakesItsFields_data();
    void spectrumHeaderTakesItsFields();
    void waveDataTakesTheSamples();
    void spectrumDataTakesTheBins();
    void samplesThatFollowAreNotLost_data();
    void samplesThatFollowAreNotLost();
    void theBlockThatClosesASecondIsTheLast();
    void eachConverterRemembersForItself();
    // --- rainy day flows
    void samplesThatDontFollowAreLost_data();
    void samplesThatDontFollowAreLost();
    void lossIsReportedOnce();
    void lostIsNeverCleared();
    void nullMessagesGiveNull();
    void missingChunksGiveNull_data();
    void missingChunksGiveNull();
    void missingTimeChunksLeaveTheKeyOut();
    void blocksWithoutTimeCountOn();
    void samplesThatDontFitTheFormatAreLost();
    void chunksOfAnotherClassAreNotTaken();
    void deviceValuesStayInTheirFields_data();
    void deviceValuesStayInTheirFields();
    void moreBinsThanABlockHoldsGiveNull();
    void aRateOfZeroIsSurvived();
};

namespace {

HydDevice makeScanDevice()
{
    HydDevice device(4321, DevTypeRecorderB, NvxNetHostInfo(), JobTagMap());
    device.setHostDevNo(77);
    device.setSensitivity(-171.7F);
    device.setTemperature(21.5F);
    device.setHumidity(40.0F);
    return device;
}

struct Position
{
    uint32_t time = 0;
    uint32_t samples = 0;
};

std::shared_ptr<HydDataCollectCmd> waveScanOf(std::optional<Position> position, uint16_t count,
                                              uint32_t rate = 1000, uint8_t format = 0x82,
                                              uint8_t channels = 1)
{
    auto wave = std::make_shared<DataCollWavChunk>();
    wave->sampleRate = rate;
    wave->gain = -6;
    wave->format = format;
    wave->channels = channels;
    wave->count = count;
    wave->samples.resize(size_t{count} * channels * (format & 0x0FU));
    for (size_t i = 0; i < wave->samples.size(); ++i)
        wave->samples[i] = static_cast<uint8_t>(i);
    auto cmd = std::make_shared<HydDataCollectCmd>(uint8_t{32});
    cmd->setChunk(DataCollWav, wave);
    if (position)
        cmd->setChunk(DataCollWavTime,
                      std::make_shared<DataCollWavTimeChunk>(position->time, position->samples));
    return cmd;
}

std::shared_ptr<HydDataCollectCmd> spectrumScanOf(std::optional<Position> position, size_t bins = 5)
{
    auto spectrum = std::make_shared<DataCollSpecChunk>();
    spectrum->sampleRate = 64000;
    spectrum->points = 1024;
    spectrum->refLevel = -180;
    spectrum->procType = 4;
    spectrum->pointsBtw = 512;
    spectrum->accum = 16;
    spectrum->weight = 2;
    for (size_t i = 0; i < bins; ++i)
        spectrum->bins.push_back(static_cast<uint8_t>(250 + i));
    auto cmd = std::make_shared<HydDataCollectCmd>(uint8_t{16});
    cmd->setChunk(DataCollSpec, spectrum);
    if (position)
        cmd->setChunk(DataCollSpecTime,
                      std::make_shared<DataCollSpecTimeChunk>(position->time, position->samples));
    return cmd;
}

/// Positions and counts of blocks, with the sample rate of each.
struct Block
{
    Position position;
    uint16_t count;
    uint32_t rate = 1000;
};

/// What the converter says of the last of some blocks.
bool lostAfter(const QList<Block>& blocks)
{
    HydScanStreamConv converter;
    bool lost = false;
    for (const Block& block : blocks) {
        lost = false;
        converter.extractWaveData(waveScanOf(block.position, block.count, block.rate), makeScanDevice(),
                                  lost);
    }
    return lost;
}

} // namespace

void tst_HydScanStreamConv::waveHeaderTakesDeviceAndFormat_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("wave") << 1;
    QTest::newRow("wave scan") << 16;
}

void tst_HydScanStreamConv::waveHeaderTakesDeviceAndFormat()
{
    QFETCH(int, type);
    const auto streamType = static_cast<HydStreamType>(type);
    const auto header = HydScanStreamConv().extractEventHdr(
        waveScanOf(Position{1700000000, 0}, 10, 64000, 0x83, 2), makeScanDevice(), streamType, false);
    QVERIFY(header);
    QCOMPARE(header->streamType, streamType);
    QCOMPARE(header->eventKey()->time(), 1700000000U);
    QCOMPARE(header->eventKey()->sequence(), int64_t(1700000000) * 64000);
    QCOMPARE(header->deviceInfoChunks().size(), size_t(1));
    const auto& device = *header->deviceInfoChunks()[0];
    QCOMPARE(device.devType(), DevTypeRecorderB);
    QCOMPARE(device.serialNo(), uint16_t(4321));
    QCOMPARE(device.hostDevNo(), uint16_t(77));
    QCOMPARE(device.sensitivity(), int16_t(-1717));
    QVERIFY(header->streamStatusChunks().empty());
    const auto setup = header->streamSetupChunk()->wavSetup();
    QVERIFY(setup);
    QCOMPARE(setup->sampleRate(), 64000U);
    QCOMPARE(setup->gain(), int16_t(-6));
    QCOMPARE(setup->bitDepth(), uint8_t(24));
    QCOMPARE(int(header->numChannels()), 2);
    QVERIFY(!header->arrayMasterInfo());
    QCOMPARE(header->amplScalingChunks().size(), size_t(1));
    const auto& scaling = *header->amplScalingChunks()[0];
    QCOMPARE(scaling.bitsPerSample(), uint8_t(24));
    QCOMPARE(scaling.maxValue(), 8388607);
    QCOMPARE(scaling.minValue(), -8388608);
    QCOMPARE(scaling.maxMicrovolts(), 3000000);
    QCOMPARE(scaling.minMicrovolts(), -3000000);
}

void tst_HydScanStreamConv::byteOrderOfASetup_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<bool>("bigEndian");
    QTest::addColumn<int>("largest");
    QTest::newRow("16 bit little-endian") << 0x82 << false << 32767;
    QTest::newRow("16 bit big-endian") << 0x02 << true << 32767;
    QTest::newRow("32 bit big-endian") << 0x04 << true << 2147483647;
    QTest::newRow("8 bit") << 0x81 << false << 127;
    QTest::newRow("no width") << 0x80 << false << 0;
    QTest::newRow("120 bit") << 0x8F << false << 2147483647;
}

void tst_HydScanStreamConv::byteOrderOfASetup()
{
    QFETCH(int, format);
    QFETCH(bool, bigEndian);
    QFETCH(int, largest);
    const auto cmd = waveScanOf(Position{1, 0}, 10, 1000, static_cast<uint8_t>(format));
    HydScanStreamConv converter;
    const auto header = converter.extractEventHdr(cmd, makeScanDevice(), StreamWave, true);
    bool lost = false;
    const auto data = converter.extractWaveData(cmd, makeScanDevice(), lost);
    QCOMPARE(header->streamSetupChunk()->wavSetup()->isBigEndian(), bigEndian);
    QCOMPARE(int(header->streamSetupChunk()->wavSetup()->bitDepth()), (format & 15) * 8);
    QCOMPARE(data->data()->isBigEndian(), bigEndian);
    QCOMPARE(int(data->data()->sampleFormat()), format);
    QCOMPARE(header->amplScalingChunks()[0]->maxValue(), largest);
}

void tst_HydScanStreamConv::statusUnits_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("temperature");
    QTest::addColumn<int>("humidity");
    QTest::newRow("wave: tenths") << 1 << 215 << 400;
    // Those who read a header of type 16 multiply by ten.
    QTest::newRow("wave scan: whole units") << 16 << 22 << 40;
    QTest::newRow("spectrum: tenths") << 2 << 215 << 400;
    QTest::newRow("spectrum scan: tenths") << 17 << 215 << 400;
}

void tst_HydScanStreamConv::statusUnits()
{
    QFETCH(int, type);
    QFETCH(int, temperature);
    QFETCH(int, humidity);
    const auto streamType = static_cast<HydStreamType>(type);
    const auto cmd =
        isSpectrumLike(streamType) ? spectrumScanOf(Position{1, 0}) : waveScanOf(Position{1, 0}, 10);
    HydScanStreamConv converter;
    const auto with = converter.extractEventHdr(cmd, makeScanDevice(), streamType, true);
    QCOMPARE(with->streamStatusChunks().size(), size_t(1));
    QCOMPARE(int(with->streamStatusChunks()[0]->temperature()), temperature);
    QCOMPARE(int(with->streamStatusChunks()[0]->humidity()), humidity);
    QCOMPARE(int(with->streamStatusChunks()[0]->rollover()), 0);
    const auto without = converter.extractEventHdr(cmd, makeScanDevice(), streamType, false);
    QVERIFY(without->streamStatusChunks().empty());
}

void tst_HydScanStreamConv::spectrumHeaderTakesItsFields_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("spectrum") << 2;
    QTest::newRow("spectrum scan") << 17;
}

void tst_HydScanStreamConv::spectrumHeaderTakesItsFields()
{
    QFETCH(int, type);
    const auto streamType = static_cast<HydStreamType>(type);
    const auto header = HydScanStreamConv().extractEventHdr(spectrumScanOf(Position{1700000000, 42}),
                                                            makeScanDevice(), streamType, true);
    QVERIFY(header);
    QCOMPARE(header->streamType, streamType);
    QCOMPARE(header->eventKey()->eventId(), uint64_t(1700000000));
    QCOMPARE(header->eventKey()->sequence(), int64_t(42));
    QVERIFY(!header->streamSetupChunk()->wavSetup());
    const auto setup = header->streamSetupChunk()->fftSetup();
    QVERIFY(setup);
    QCOMPARE(setup->sampleRate(), 64000U);
    QCOMPARE(setup->points(), uint16_t(1024));
    QCOMPARE(setup->refLevel(), int16_t(-180));
    QCOMPARE(setup->procType(), uint16_t(4));
    QCOMPARE(setup->pointsBtw(), uint16_t(512));
    QCOMPARE(setup->accum(), uint16_t(16));
    QCOMPARE(setup->weight(), uint16_t(2));
    QCOMPARE(int(header->numChannels()), 1);
    QVERIFY(!header->isArray());
    QCOMPARE(header->amplScalingChunks().at(0)->maxValue(), 255);
    QCOMPARE(header->deviceInfoChunks().at(0)->serialNo(), uint16_t(4321));
}

void tst_HydScanStreamConv::waveDataTakesTheSamples()
{
    const auto cmd = waveScanOf(Position{1700000000, 250}, 100, 1000, 0x83, 2);
    bool lost = false;
    const auto payload = HydScanStreamConv().extractWaveData(cmd, makeScanDevice(), lost);
    QVERIFY(payload);
    QVERIFY2(!lost, "there is nothing before the first block");
    QCOMPARE(payload->streamType, StreamWaveScan);
    QCOMPARE(payload->eventKey()->time(), 1700000000U);
    QCOMPARE(payload->eventKey()->sequence(), int64_t(1700000000) * 1000 + 250);
    const auto& data = *payload->data();
    QCOMPARE(data.sampleNum(), 250U);
    QCOMPARE(int(data.numChannels()), 2);
    QCOMPARE(int(data.sampleFormat()), 0x83);
    QCOMPARE(data.numSamples(), uint16_t(100));
    QCOMPARE(data.byteSize(), size_t(600));
    for (unsigned i = 0; i < 600; ++i)
        QCOMPARE(data.bytes()[i], static_cast<unsigned char>(i));
}

void tst_HydScanStreamConv::spectrumDataTakesTheBins()
{
    const auto payload = HydScanStreamConv().extractSpectrumData(spectrumScanOf(Position{1700000000, 42}, 6),
                                                                 makeScanDevice());
    QVERIFY(payload);
    QCOMPARE(payload->streamType, StreamSpectrumScan);
    QCOMPARE(payload->eventKey()->time(), 1700000000U);
    QCOMPARE(payload->eventKey()->sequence(), int64_t(42));
    QCOMPARE(payload->data()->numSamples(), uint16_t(6));
    QCOMPARE(payload->data()->byteSize(), size_t(6));
    QCOMPARE(payload->data()->bytes()[5], static_cast<unsigned char>(255));
    payload->data()->bytes()[5] = 1;
    QCOMPARE(payload->data()->bytes()[5], static_cast<unsigned char>(1));
}

void tst_HydScanStreamConv::samplesThatFollowAreNotLost_data()
{
    QTest::addColumn<QList<Block>>("blocks");
    const auto row = [](const char* name, const QList<Block>& blocks) { QTest::newRow(name) << blocks; };
    row("first block in mid-second", {{{10, 700}, 100}});
    row("within a second", {{{10, 0}, 400}, {{10, 400}, 100}});
    row("an empty block", {{{10, 0}, 400}, {{10, 400}, 0}, {{10, 400}, 100}});
    row("to the border of a second", {{{10, 600}, 400}, {{11, 0}, 400}});
    row("over the border of a second", {{{10, 900}, 300}, {{11, 200}, 400}});
    row("over several seconds", {{{10, 900}, 3300}, {{14, 200}, 400}});
    row("a second in one block", {{{10, 0}, 1000}, {{11, 0}, 1000}, {{12, 0}, 1000}});
    row("a new rate at the border of a second",
        {{{10, 0}, 1000}, {{11, 0}, 500, 2000}, {{11, 500}, 500, 2000}});
    row("a new rate at the same instant", {{{10, 0}, 500}, {{10, 1000}, 500, 2000}});
    row("the largest time wraps", {{{0xFFFFFFFF, 0}, 1000}, {{0, 0}, 1000}});
    row("the largest rate", {{{10, 4000000000}, 60000, 4294967295U}, {{10, 4000060000}, 1, 4294967295U}});
}

void tst_HydScanStreamConv::samplesThatFollowAreNotLost()
{
    QFETCH(QList<Block>, blocks);
    QVERIFY(!lostAfter(blocks));
}

void tst_HydScanStreamConv::theBlockThatClosesASecondIsTheLast()
{
    HydScanStreamConv converter;
    bool lost = false;
    QList<bool> last;
    for (uint32_t start = 0; start < 2000; start += 250) {
        const auto payload = converter.extractWaveData(
            waveScanOf(Position{10 + start / 1000, start % 1000}, 250), makeScanDevice(), lost);
        last << payload->isLastEvent();
    }
    QCOMPARE(last, (QList<bool>{false, false, false, true, false, false, false, true}));
    QVERIFY(!lost);
}

void tst_HydScanStreamConv::eachConverterRemembersForItself()
{
    HydScanStreamConv one;
    HydScanStreamConv other;
    bool lost = false;
    one.extractWaveData(waveScanOf(Position{10, 0}, 100), makeScanDevice(), lost);
    other.extractWaveData(waveScanOf(Position{500, 300}, 100), makeScanDevice(), lost);
    one.extractWaveData(waveScanOf(Position{10, 100}, 100), makeScanDevice(), lost);
    QVERIFY(!lost);
}

void tst_HydScanStreamConv::samplesThatDontFollowAreLost_data()
{
    QTest::addColumn<QList<Block>>("blocks");
    const auto row = [](const char* name, const QList<Block>& blocks) { QTest::newRow(name) << blocks; };
    row("one sample", {{{10, 0}, 400}, {{10, 401}, 100}});
    row("one sample at the border of a second", {{{10, 600}, 400}, {{11, 1}, 400}});
    row("the last sample of a second", {{{10, 600}, 399}, {{11, 0}, 400}});
    row("a second", {{{10, 0}, 1000}, {{12, 0}, 400}});
    row("a year", {{{10, 0}, 1000}, {{31557610, 0}, 400}});
    row("a sample back", {{{10, 0}, 400}, {{10, 399}, 100}});
    row("the same block again", {{{10, 0}, 400}, {{10, 0}, 400}});
    row("a second back", {{{10, 0}, 1000}, {{10, 0}, 1000}});
    row("a new rate in mid-second", {{{10, 0}, 400}, {{11, 0}, 400, 2000}});
    row("a new rate that goes on with the old count", {{{10, 0}, 400}, {{10, 400}, 400, 2000}});
    row("a second at a new rate", {{{10, 0}, 1000}, {{12, 0}, 400, 2000}});
    row("the border of a second written in the old one", {{{10, 600}, 400}, {{10, 1000}, 400}});
}

void tst_HydScanStreamConv::samplesThatDontFollowAreLost()
{
    QFETCH(QList<Block>, blocks);
    QVERIFY(lostAfter(blocks));
}

void tst_HydScanStreamConv::lossIsReportedOnce()
{
    HydScanStreamConv converter;
    bool lost = false;
    converter.extractWaveData(waveScanOf(Position{10, 0}, 100), makeScanDevice(), lost);
    converter.extractWaveData(waveScanOf(Position{10, 500}, 100), makeScanDevice(), lost);
    QVERIFY(lost);
    lost = false;
    converter.extractWaveData(waveScanOf(Position{10, 600}, 100), makeScanDevice(), lost);
    QVERIFY(!lost);
}

void tst_HydScanStreamConv::lostIsNeverCleared()
{
    HydScanStreamConv converter;
    bool lost = true;
    converter.extractWaveData(waveScanOf(Position{10, 0}, 100), makeScanDevice(), lost);
    converter.extractWaveData(waveScanOf(Position{10, 100}, 100), makeScanDevice(), lost);
    QVERIFY(lost);
}

void tst_HydScanStreamConv::nullMessagesGiveNull()
{
    HydScanStreamConv converter;
    bool lost = false;
    for (int type : {1, 2, 16, 17})
        QVERIFY(
            !converter.extractEventHdr(nullptr, makeScanDevice(), static_cast<HydStreamType>(type), true));
    QVERIFY(!converter.extractWaveData(nullptr, makeScanDevice(), lost));
    QVERIFY(!converter.extractSpectrumData(nullptr, makeScanDevice()));
    QVERIFY(!lost);
}

void tst_HydScanStreamConv::missingChunksGiveNull_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("ofWave");
    QTest::addColumn<bool>("ofSpectrum");
    for (int type : {1, 16})
        QTest::addRow("%d", type) << type << true << false;
    for (int type : {2, 17})
        QTest::addRow("%d", type) << type << false << true;
    for (int type : {0, 3, 4, 5, 18, 32, 33, 255})
        QTest::addRow("%d", type) << type << false << false;
}

void tst_HydScanStreamConv::missingChunksGiveNull()
{
    QFETCH(int, type);
    QFETCH(bool, ofWave);
    QFETCH(bool, ofSpectrum);
    const auto streamType = static_cast<HydStreamType>(type);
    const auto wave = waveScanOf(Position{1, 0}, 10);
    const auto spectrum = spectrumScanOf(Position{1, 0});
    auto timeAlone = std::make_shared<HydDataCollectCmd>(uint8_t{48});
    timeAlone->setChunk(DataCollWavTime, std::make_shared<DataCollWavTimeChunk>(1, 0));
    timeAlone->setChunk(DataCollSpecTime, std::make_shared<DataCollSpecTimeChunk>(1, 0));
    HydScanStreamConv converter;
    const auto device = makeScanDevice();
    QCOMPARE(converter.extractEventHdr(wave, device, streamType, true) != nullptr, ofWave);
    QCOMPARE(converter.extractEventHdr(spectrum, device, streamType, true) != nullptr, ofSpectrum);
    QVERIFY(!converter.extractEventHdr(timeAlone, device, streamType, true));
    bool lost = false;
    QVERIFY(!converter.extractWaveData(spectrum, device, lost));
    QVERIFY(!converter.extractWaveData(timeAlone, device, lost));
    QVERIFY(!converter.extractSpectrumData(wave, device));
    QVERIFY(!converter.extractSpectrumData(timeAlone, device));
    QVERIFY(!lost);
}

void tst_HydScanStreamConv::missingTimeChunksLeaveTheKeyOut()
{
    HydScanStreamConv converter;
    const auto device = makeScanDevice();
    bool lost = false;
    const auto waveHeader = converter.extractEventHdr(waveScanOf(std::nullopt, 10), device, StreamWave, true);
    QVERIFY(waveHeader && !waveHeader->eventKey());
    const auto wave = converter.extractWaveData(waveScanOf(std::nullopt, 10), device, lost);
    QVERIFY(wave && !wave->eventKey());
    QCOMPARE(wave->data()->numSamples(), uint16_t(10));
    const auto spectrumHeader =
        converter.extractEventHdr(spectrumScanOf(std::nullopt), device, StreamSpectrum, true);
    QVERIFY(spectrumHeader && !spectrumHeader->eventKey());
    const auto spectrum = converter.extractSpectrumData(spectrumScanOf(std::nullopt), device);
    QVERIFY(spectrum && !spectrum->eventKey());
    QVERIFY(!lost);
}

void tst_HydScanStreamConv::blocksWithoutTimeCountOn()
{
    HydScanStreamConv converter;
    const auto device = makeScanDevice();
    bool lost = false;
    converter.extractWaveData(waveScanOf(Position{10, 700}, 100), device, lost);
    QCOMPARE(converter.extractWaveData(waveScanOf(std::nullopt, 300), device, lost)->data()->sampleNum(),
             800U);
    converter.extractWaveData(waveScanOf(Position{11, 100}, 100), device, lost);
    QVERIFY2(!lost, "what came without a time counts");
}

void tst_HydScanStreamConv::samplesThatDontFitTheFormatAreLost()
{
    for (int excess : {-1, 1}) {
        auto wave = std::make_shared<DataCollWavChunk>();
        wave->sampleRate = 1000;
        wave->format = 0x82;
        wave->count = 100;
        wave->samples.resize(static_cast<size_t>(200 + excess));
        auto cmd = std::make_shared<HydDataCollectCmd>(uint8_t{32});
        cmd->setChunk(DataCollWav, wave);
        cmd->setChunk(DataCollWavTime, std::make_shared<DataCollWavTimeChunk>(10, 0));
        bool lost = false;
        QVERIFY(!HydScanStreamConv().extractWaveData(cmd, makeScanDevice(), lost));
        QVERIFY(lost);
    }
}

void tst_HydScanStreamConv::chunksOfAnotherClassAreNotTaken()
{
    auto cmd = std::make_shared<HydDataCollectCmd>(uint8_t{48});
    cmd->setChunk(DataCollWav, std::make_shared<DataCollSpecChunk>());
    cmd->setChunk(DataCollSpec, std::make_shared<DataCollWavChunk>());
    HydScanStreamConv converter;
    bool lost = false;
    QVERIFY(!converter.extractEventHdr(cmd, makeScanDevice(), StreamWave, true));
    QVERIFY(!converter.extractEventHdr(cmd, makeScanDevice(), StreamSpectrum, true));
    QVERIFY(!converter.extractWaveData(cmd, makeScanDevice(), lost));
    QVERIFY(!converter.extractSpectrumData(cmd, makeScanDevice()));
}

void tst_HydScanStreamConv::deviceValuesStayInTheirFields_data()
{
    QTest::addColumn<float>("value");
    QTest::addColumn<int>("tenths");
    QTest::newRow("largest") << 1e30F << 32767;
    QTest::newRow("smallest") << -1e30F << -32768;
    QTest::newRow("infinite") << std::numeric_limits<float>::infinity() << 32767;
    QTest::newRow("no number") << std::numeric_limits<float>::quiet_NaN() << 0;
    QTest::newRow("rounded") << -0.26F << -3;
}

void tst_HydScanStreamConv::deviceValuesStayInTheirFields()
{
    QFETCH(float, value);
    QFETCH(int, tenths);
    auto device = makeScanDevice();
    device.setSensitivity(value);
    device.setTemperature(value);
    device.setHumidity(value);
    const auto header =
        HydScanStreamConv().extractEventHdr(waveScanOf(Position{1, 0}, 10), device, StreamWave, true);
    QCOMPARE(int(header->deviceInfoChunks()[0]->sensitivity()), tenths);
    QCOMPARE(int(header->streamStatusChunks()[0]->temperature()), tenths);
    QCOMPARE(int(header->streamStatusChunks()[0]->humidity()), tenths);
}

void tst_HydScanStreamConv::moreBinsThanABlockHoldsGiveNull()
{
    HydScanStreamConv converter;
    const auto most = converter.extractSpectrumData(spectrumScanOf(Position{1, 0}, 65535), makeScanDevice());
    QVERIFY(most);
    QCOMPARE(most->data()->numSamples(), uint16_t(65535));
    QVERIFY(!converter.extractSpectrumData(spectrumScanOf(Position{1, 0}, 65536), makeScanDevice()));
    const auto none = converter.extractSpectrumData(spectrumScanOf(Position{1, 0}, 0), makeScanDevice());
    QVERIFY(none);
    QVERIFY(!none->data()->bytes());
}

void tst_HydScanStreamConv::aRateOfZeroIsSurvived()
{
    HydScanStreamConv converter;
    bool lost = false;
    const auto first = converter.extractWaveData(waveScanOf(Position{10, 0}, 100, 0), makeScanDevice(), lost);
    QVERIFY(first);
    QVERIFY(!first->isLastEvent());
    QCOMPARE(first->eventKey()->sequence(), int64_t(0));
    converter.extractWaveData(waveScanOf(Position{10, 100}, 100, 0), makeScanDevice(), lost);
    QVERIFY(!lost);
    QCOMPARE(
        converter.extractEventHdr(waveScanOf(Position{10, 0}, 100, 0), makeScanDevice(), StreamWave, true)
            ->streamSetupChunk()
            ->wavSetup()
            ->sampleRate(),
        0U);
}

QTEST_APPLESS_MAIN(tst_HydScanStreamConv)
#include "tst_HydScanStreamConv.moc"
