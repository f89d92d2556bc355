#include "NvxQtCommon/contract/stream/HydScanStreamConv.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

/// Voltage at full scale in microvolts, the same that replayed wave files state.
constexpr int32_t kFullScaleMicrovolts = 3'000'000;
constexpr uint8_t kLittleEndianData = 0x80;
constexpr uint8_t kBigEndianSetup = 0x80;

template <class Chunk>
std::shared_ptr<Chunk const> scanChunk(const std::shared_ptr<HydDataCollectCmd const>& cmd, DataCollMask mask)
{
    return cmd ? std::dynamic_pointer_cast<Chunk const>(cmd->getChunk(mask)) : nullptr;
}

std::shared_ptr<HydEventKeyChunkV1> makeScanKey(uint32_t time, uint64_t sequence)
{
    stKEY_CHUNK_V1 record;
    record.time = time;
    record.seqHigh = static_cast<uint32_t>(sequence >> 32);
    record.seqLow = static_cast<uint32_t>(sequence);
    return std::make_shared<HydEventKeyChunkV1>(&record);
}

/// `value` times `factor` as a field of a record takes it; 0 for what isn't a number.
int16_t toField(float value, float factor)
{
    using Limits = std::numeric_limits<int16_t>;
    const float scaled = std::round(value * factor);
    if (std::isnan(scaled))
        return 0;
    return static_cast<int16_t>(std::clamp<float>(scaled, Limits::min(), Limits::max()));
}

std::shared_ptr<HydDeviceInfoChunk const> makeDeviceInfo(const HydDevice& device)
{
    stDEVICE_CHUNK_V1 record;
    record.devType = device.devType();
    record.hostDevNo = device.deviceId().hostDevNo();
    record.serial = device.serial();
    record.sensitivity = toField(device.sensitivity(), 10.0F);
    return std::make_shared<HydDeviceInfoChunkV1>(&record);
}

std::shared_ptr<HydStreamStatusChunk const> makeStatus(const HydDevice& device, HydStreamType type)
{
    // Consumers take the values of a header of type 16 times ten.
    const float factor = type == StreamWaveScan ? 1.0F : 10.0F;
    stSTATUS_CHUNK_V0 record;
    record.temperature = toField(device.temperature(), factor);
    record.humidity = toField(device.humidity(), factor);
    return std::make_shared<HydStreamStatusChunkV0>(&record);
}

HydStreamSetupContainer makeWavSetup(const DataCollWavChunk& wave)
{
    stWAVE_SETUP_CHUNK_V0 record;
    record.sampleRate = wave.sampleRate;
    record.gain = wave.gain;
    const bool bigEndian = (wave.format & kLittleEndianData) == 0;
    record.format = static_cast<uint8_t>((wave.format & 0x0F) | (bigEndian ? kBigEndianSetup : 0));
    return HydStreamSetupContainer(std::make_shared<HydWavSetupChunk const>(&record));
}

HydStreamSetupContainer makeFftSetup(const DataCollSpecChunk& spectrum)
{
    stFFT_SETUP_CHUNK_V1 record;
    record.sampleRate = spectrum.sampleRate;
    record.points = spectrum.points;
    record.refLevel = spectrum.refLevel;
    record.procType = spectrum.procType;
    record.pointsBtw = spectrum.pointsBtw;
    record.accum = spectrum.accum;
    record.weight = spectrum.weight;
    return HydStreamSetupContainer(std::make_shared<HydFftSetupChunkV1 const>(&record));
}

std::shared_ptr<HydAmplScalingChunk const> makeWaveScaling(uint8_t format)
{
    stAMPLITUDE_CHUNK_V0 record;
    record.bitsPerSample = static_cast<uint8_t>((format & 0x0F) * 8);
    // Depths beyond 32 bits have no largest value in the record.
    const int64_t half =
        record.bitsPerSample == 0 ? 0 : int64_t{1} << (std::min<int>(record.bitsPerSample, 32) - 1);
    record.maxValue = static_cast<int32_t>(std::max<int64_t>(half - 1, 0));
    record.minValue = static_cast<int32_t>(-half);
    record.maxMicrovolts = kFullScaleMicrovolts;
    record.minMicrovolts = -kFullScaleMicrovolts;
    return std::make_shared<HydAmplScalingChunkV0>(&record);
}

std::shared_ptr<HydAmplScalingChunk const> makeSpectrumScaling()
{
    stAMPLITUDE_CHUNK_V0 record;
    record.bitsPerSample = 8;
    record.maxValue = 255;
    return std::make_shared<HydAmplScalingChunkV0>(&record);
}

/// Running number of a second's first sample: scan messages carry none, so that seconds times rate stands in.
uint64_t sequenceOfSecond(const DataCollWavTimeChunk& place, const DataCollWavChunk& wave)
{
    return uint64_t{place.time()} * wave.sampleRate;
}

std::shared_ptr<unsigned char[]> copyOf(const std::vector<uint8_t>& bytes)
{
    if (bytes.empty())
        return nullptr;
    auto copy = std::make_shared_for_overwrite<unsigned char[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return copy;
}

} // namespace

std::shared_ptr<HydStreamEventHeaderPayload>
HydScanStreamConv::extractEventHdr(std::shared_ptr<HydDataCollectCmd const> cmd, HydDevice const& device,
                                   HydStreamType type, bool withStatus)
{
    std::shared_ptr<HydEventKeyChunk const> key;
    HydStreamSetupContainer setup;
    std::vector<std::shared_ptr<HydAmplScalingChunk const>> scalings;
    uint8_t channels = 1;
    if (type == StreamWave || type == StreamWaveScan) {
        const auto wave = scanChunk<DataCollWavChunk>(cmd, DataCollWav);
        if (!wave)
            return nullptr;
        if (const auto place = scanChunk<DataCollWavTimeChunk>(cmd, DataCollWavTime))
            key = makeScanKey(place->time(), sequenceOfSecond(*place, *wave));
        setup = makeWavSetup(*wave);
        scalings.push_back(makeWaveScaling(wave->format));
        channels = wave->channels;
    } else if (type == StreamSpectrum || type == StreamSpectrumScan) {
        const auto spectrum = scanChunk<DataCollSpecChunk>(cmd, DataCollSpec);
        if (!spectrum)
            return nullptr;
        if (const auto place = scanChunk<DataCollSpecTimeChunk>(cmd, DataCollSpecTime))
            key = makeScanKey(place->time(), place->sequence());
        setup = makeFftSetup(*spectrum);
        scalings.push_back(makeSpectrumScaling());
    } else {
        return nullptr;
    }
    std::vector<std::shared_ptr<HydStreamStatusChunk const>> statuses;
    if (withStatus)
        statuses.push_back(makeStatus(device, type));
    auto header = std::make_shared<HydStreamEventHeaderPayload>(
        std::move(key), std::vector{makeDeviceInfo(device)}, std::move(statuses), std::move(setup),
        std::move(scalings), channels, nullptr);
    header->streamType = type;
    return header;
}

std::shared_ptr<HydStreamDataPayload>
HydScanStreamConv::extractWaveData(std::shared_ptr<HydDataCollectCmd const> cmd, HydDevice const&, bool& lost)
{
    const auto wave = scanChunk<DataCollWavChunk>(cmd, DataCollWav);
    if (!wave)
        return nullptr;
    if (wave->samples.size() != size_t{wave->count} * wave->channels * (wave->format & 0x0FU)) {
        lost = true;
        return nullptr;
    }
    const uint32_t rate = wave->sampleRate;
    uint32_t start = m_endSample;
    std::shared_ptr<HydEventKeyChunkV1> key;
    if (const auto place = scanChunk<DataCollWavTimeChunk>(cmd, DataCollWavTime)) {
        start = place->sampsIntoSec();
        // Both rates count, so that a change at the border of a second isn't taken for a loss.
        if (m_hasEnd &&
            (place->time() != m_endTime || uint64_t{start} * m_rate != uint64_t{m_endSample} * rate))
            lost = true;
        key = makeScanKey(place->time(), sequenceOfSecond(*place, *wave) + start);
        m_endTime = place->time();
        m_hasEnd = true;
    }
    m_rate = rate;
    const uint64_t end = uint64_t{start} + wave->count;
    const bool closesSecond = rate > 0 && end >= rate;
    m_endTime += closesSecond ? static_cast<uint32_t>(end / rate) : 0;
    m_endSample = static_cast<uint32_t>(closesSecond ? end % rate : end);
    if (key)
        key->setLastEvent(closesSecond);
    auto data = std::make_shared<HydStreamDataChunkV0>(start, wave->channels, wave->format, wave->count,
                                                       copyOf(wave->samples), wave->samples.size());
    auto payload = std::make_shared<HydStreamDataPayload>(std::move(key), std::move(data));
    payload->streamType = StreamWaveScan;
    return payload;
}

std::shared_ptr<HydStreamDataPayload>
HydScanStreamConv::extractSpectrumData(std::shared_ptr<HydDataCollectCmd const> cmd, HydDevice const&)
{
    const auto spectrum = scanChunk<DataCollSpecChunk>(cmd, DataCollSpec);
    if (!spectrum || spectrum->bins.size() > std::numeric_limits<uint16_t>::max())
        return nullptr;
    std::shared_ptr<HydEventKeyChunk const> key;
    if (const auto place = scanChunk<DataCollSpecTimeChunk>(cmd, DataCollSpecTime))
        key = makeScanKey(place->time(), place->sequence());
    auto data = std::make_shared<HydStreamDataChunkV0>(
        0U, static_cast<unsigned char>(1), static_cast<unsigned char>(1 | kLittleEndianData),
        static_cast<unsigned short>(spectrum->bins.size()), copyOf(spectrum->bins), spectrum->bins.size());
    auto payload = std::make_shared<HydStreamDataPayload>(std::move(key), std::move(data));
    payload->streamType = StreamSpectrumScan;
    return payload;
}
