#include "LogStream.h"
#include "WavJudge.h"

#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"

namespace {

std::shared_ptr<HydDeviceInfoChunk const> deviceChunk(const LogDevice& device)
{
    stDEVICE_CHUNK_V1 record;
    record.devType = device.type;
    record.serial = device.serial;
    record.sensitivity = device.sensitivity;
    return std::make_shared<HydDeviceInfoChunkV1>(&record);
}

std::shared_ptr<HydStreamStatusChunk const> statusChunk(const LogStatus& status)
{
    stSTATUS_CHUNK_V0 record;
    record.temperature = status.temperature;
    record.humidity = status.humidity;
    record.extra = status.extra;
    record.rollover = status.rollover;
    return std::make_shared<HydStreamStatusChunkV0>(&record);
}

} // namespace

std::shared_ptr<HydEventKeyChunk const> makeLogKey(uint32_t time, int64_t sequence)
{
    stKEY_CHUNK_V1 record;
    record.time = time;
    record.seqHigh = static_cast<uint32_t>(static_cast<uint64_t>(sequence) >> 32);
    record.seqLow = static_cast<uint32_t>(sequence);
    return std::make_shared<HydEventKeyChunkV1>(&record);
}

std::shared_ptr<HydStreamEventHeaderPayload> LogStream::header(uint32_t time, int64_t sequence) const
{
    HydStreamSetupContainer setup;
    if (withWavSetup) {
        stWAVE_SETUP_CHUNK_V0 record;
        record.sampleRate = rate;
        record.gain = gain;
        record.format = static_cast<uint8_t>((bits / 8) | (bigEndian ? 0x80 : 0));
        setup = HydStreamSetupContainer(
            std::shared_ptr<HydWavSetupChunk const>(std::make_shared<HydWavSetupChunk>(&record)));
    }
    std::vector<std::shared_ptr<HydDeviceInfoChunk const>> deviceChunks;
    for (const LogDevice& device : devices)
        deviceChunks.push_back(deviceChunk(device));
    std::vector<std::shared_ptr<HydStreamStatusChunk const>> statusChunks;
    for (const LogStatus& status : statuses)
        statusChunks.push_back(statusChunk(status));
    std::vector<std::shared_ptr<HydAmplScalingChunk const>> scalings;
    if (withScaling) {
        stAMPLITUDE_CHUNK_V0 record;
        record.maxMicrovolts = maxMicrovolts;
        record.minMicrovolts = minMicrovolts;
        scalings.push_back(std::make_shared<HydAmplScalingChunkV0>(&record));
    }
    auto payload = std::make_shared<HydStreamEventHeaderPayload>(
        withKey ? makeLogKey(time, sequence) : nullptr, deviceChunks, statusChunks, setup, scalings, channels,
        master ? deviceChunk(*master) : nullptr);
    payload->streamType = streamType;
    return payload;
}

std::shared_ptr<HydStreamDataPayload> LogStream::block(uint32_t time, int64_t sequence, uint32_t sampleNum,
                                                       uint16_t count)
{
    const unsigned width = bits / 8U;
    auto* bytes = new unsigned char[size_t{count} * channels * width + 1];
    unsigned char* out = bytes;
    for (unsigned i = 0; i < count; ++i, ++nextRamp) {
        for (unsigned channel = 0; channel < channels; ++channel) {
            for (unsigned k = 0; k < width; ++k)
                *out++ = static_cast<unsigned char>(nextRamp >> (8 * (bigEndian ? width - 1 - k : k)));
        }
    }
    // Bit 7 says little-endian here, the other way round than on the setup chunk.
    const auto format = static_cast<unsigned char>(width | (bigEndian ? 0U : 0x80U));
    auto data = std::make_shared<HydStreamDataChunkV0>(sampleNum, channels, format, count, bytes, false);
    auto payload =
        std::make_shared<HydStreamDataPayload>(withKey ? makeLogKey(time, sequence) : nullptr, data);
    payload->streamType = streamType;
    return payload;
}

std::shared_ptr<HydDevice> makeLogDevice()
{
    auto device = HydDevice::createDevice(DevTypeRecorderA);
    device->setModelString("Model R");
    device->setFirmwareVer("version 3.1");
    device->setFirmwareRel("release 77");
    return device;
}

std::shared_ptr<HydStatusDataPayload> makeHeading(uint16_t heading)
{
    stHEADING_CHUNK_V0 record;
    record.time = 1709210000;
    record.heading = heading;
    record.pitch = -20;
    record.roll = 30;
    auto payload = std::make_shared<HydStatusDataPayload>();
    payload->setHeadChunk(std::make_shared<HydStreamHeadStatusChunkV0>(&record));
    return payload;
}

std::shared_ptr<NvxWavInfoData> infoOfFile(const QString& path)
{
    const QByteArray record = viewRiff(path).info.value("INVX");
    const std::span bytes(reinterpret_cast<const uint8_t*>(record.constData()), size_t(record.size()));
    if (auto recorder = NvxWavInfoDataHF::fromBytes(bytes))
        return recorder;
    return NvxWavInfoDataTMI::fromBytes(bytes);
}
