#include "NvxQtCommon/contract/stream/HydScanStreamConv.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

template <class Chunk> std::shared_ptr<const Chunk> chunkOf(const HydDataCollectCmd& cmd, DataCollMask mask)
{
    return std::dynamic_pointer_cast<const Chunk>(cmd.getChunk(mask));
}

int16_t tenths(float value)
{
    return static_cast<int16_t>(std::clamp(std::lround(value * 10.0F), -32768L, 32767L));
}

std::shared_ptr<HydEventKeyChunk const> keyOf(uint32_t time, uint64_t sequence)
{
    stKEY_CHUNK_V1 record;
    record.time = time;
    record.seqHigh = static_cast<uint32_t>(sequence >> 32);
    record.seqLow = static_cast<uint32_t>(sequence);
    return std::make_shared<HydEventKeyChunkV1>(&record);
}

/// Running sample number of a second's first sample: scan messages carry none, so that seconds times rate
/// stands in.
uint64_t sequenceOf(const DataCollWavTimeChunk& time, uint32_t rate)
{
    return uint64_t{time.time()} * rate;
}

std::shared_ptr<HydEventKeyChunk const> wavKey(const HydDataCollectCmd& cmd, uint32_t rate)
{
    const auto time = chunkOf<DataCollWavTimeChunk>(cmd, DataCollWavTime);
    return time ? keyOf(time->time(), sequenceOf(*time, rate)) : nullptr;
}

std::shared_ptr<HydEventKeyChunk const> specKey(const HydDataCollectCmd& cmd)
{
    const auto time = chunkOf<DataCollSpecTimeChunk>(cmd, DataCollSpecTime);
    return time ? keyOf(time->time(), time->sequence()) : nullptr;
}

std::shared_ptr<unsigned char[]> copyOf(const std::vector<uint8_t>& bytes)
{
    std::shared_ptr<unsigned char[]> copy(new unsigned char[bytes.size()]);
    if (!bytes.empty())
        std::memcpy(copy.get(), bytes.data(), bytes.size());
    return copy;
}

HydStreamSetupContainer wavSetup(const DataCollWavChunk& data)
{
    stWAVE_SETUP_CHUNK_V0 record;
    record.sampleRate = data.sampleRate;
    record.gain = data.gain;
    // Bit 7 means the opposite on the two chunks.
    record.format = static_cast<uint8_t>(data.format ^ 0x80);
    return HydStreamSetupContainer(
        std::shared_ptr<HydWavSetupChunk const>(std::make_shared<HydWavSetupChunk>(&record)));
}

HydStreamSetupContainer fftSetup(const DataCollSpecChunk& data)
{
    stFFT_SETUP_CHUNK_V1 record;
    record.sampleRate = data.sampleRate;
    record.points = data.points;
    record.refLevel = data.refLevel;
    record.procType = data.procType;
    record.pointsBtw = data.pointsBtw;
    record.accum = data.accum;
    record.weight = data.weight;
    return HydStreamSetupContainer(
        std::shared_ptr<HydFftSetupChunk const>(std::make_shared<HydFftSetupChunkV1>(&record)));
}

} // namespace

std::shared_ptr<HydStreamEventHeaderPayload>
HydScanStreamConv::extractEventHdr(std::shared_ptr<HydDataCollectCmd const> cmd, HydDevice const& device,
                                   HydStreamType type, bool withStatus)
{
    if (!cmd)
        return nullptr;
    const bool spectrum = isSpectrumLike(type);
    const auto wav = spectrum ? nullptr : chunkOf<DataCollWavChunk>(*cmd, DataCollWav);
    const auto spec = spectrum ? chunkOf<DataCollSpecChunk>(*cmd, DataCollSpec) : nullptr;
    if (!wav && !spec)
        return nullptr;

    stDEVICE_CHUNK_V1 deviceRecord;
    deviceRecord.devType = device.devType();
    deviceRecord.serial = device.serial();
    deviceRecord.hostDevNo = device.deviceId().hostDevNo();
    deviceRecord.sensitivity = tenths(device.sensitivity());
    stAMPLITUDE_CHUNK_V0 scaling;
    if (wav) {
        scaling.bitsPerSample = static_cast<uint8_t>((wav->format & 0x0F) * 8);
        const auto half =
            scaling.bitsPerSample == 0 ? 0 : int64_t{1} << (std::min<int>(scaling.bitsPerSample, 32) - 1);
        scaling.maxValue = static_cast<int32_t>(std::max<int64_t>(half - 1, 0));
        scaling.minValue = static_cast<int32_t>(-half);
    } else {
        scaling.bitsPerSample = 8;
        scaling.maxValue = 255;
    }
    std::vector<std::shared_ptr<HydStreamStatusChunk const>> statuses;
    if (withStatus) {
        stSTATUS_CHUNK_V0 status;
        status.temperature = tenths(device.temperature());
        status.humidity = tenths(device.humidity());
        statuses.push_back(std::make_shared<HydStreamStatusChunkV0>(&status));
    }
    auto header = std::make_shared<HydStreamEventHeaderPayload>(
        wav ? wavKey(*cmd, wav->sampleRate) : specKey(*cmd),
        std::vector<std::shared_ptr<HydDeviceInfoChunk const>>{
            std::make_shared<HydDeviceInfoChunkV1>(&deviceRecord)},
        std::move(statuses), wav ? wavSetup(*wav) : fftSetup(*spec),
        std::vector<std::shared_ptr<HydAmplScalingChunk const>>{
            std::make_shared<HydAmplScalingChunkV0>(&scaling)},
        wav ? wav->channels : uint8_t{1}, nullptr);
    header->streamType = type;
    return header;
}

std::shared_ptr<HydStreamDataPayload>
HydScanStreamConv::extractWaveData(std::shared_ptr<HydDataCollectCmd const> cmd, HydDevice const& /*device*/,
                                   bool& lost)
{
    const auto data = cmd ? chunkOf<DataCollWavChunk>(*cmd, DataCollWav) : nullptr;
    if (!data)
        return nullptr;
    const auto time = chunkOf<DataCollWavTimeChunk>(*cmd, DataCollWavTime);
    const uint32_t start = time ? time->sampsIntoSec() : 0;
    if (time) {
        // Counting from the start of the message before, over the whole seconds between: a message that
        // begins where that one ended follows on it, however the second is written.
        if (m_hasEnd && m_rate == data->sampleRate) {
            const int64_t passed =
                (int64_t{time->time()} - m_endTime) * data->sampleRate + start - int64_t{m_endSample};
            lost = lost || passed != 0;
        }
        m_hasEnd = true;
        m_endTime = time->time();
        m_endSample = start + data->count;
        m_rate = data->sampleRate;
    }
    auto payload = std::make_shared<HydStreamDataPayload>(
        wavKey(*cmd, data->sampleRate),
        std::make_shared<HydStreamDataChunkV0>(start, data->channels, data->format, data->count,
                                               copyOf(data->samples), data->samples.size()));
    payload->streamType = StreamWaveScan;
    return payload;
}

std::shared_ptr<HydStreamDataPayload>
HydScanStreamConv::extractSpectrumData(std::shared_ptr<HydDataCollectCmd const> cmd,
                                       HydDevice const& /*device*/)
{
    const auto data = cmd ? chunkOf<DataCollSpecChunk>(*cmd, DataCollSpec) : nullptr;
    if (!data)
        return nullptr;
    auto payload = std::make_shared<HydStreamDataPayload>(
        specKey(*cmd), std::make_shared<HydStreamDataChunkV0>(0, uint8_t{1}, uint8_t{0x81},
                                                              static_cast<uint16_t>(data->bins.size()),
                                                              copyOf(data->bins), data->bins.size()));
    payload->streamType = StreamSpectrumScan;
    return payload;
}
