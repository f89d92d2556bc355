#pragma once

#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoData.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

struct LogStatus
{
    int16_t temperature = 0;
    int16_t humidity = 0;
    uint8_t extra = 0;
    uint8_t rollover = 0;
};

struct LogDevice
{
    HydDeviceType type = DevTypeRecorderA;
    uint16_t serial = 42;
    int16_t sensitivity = -1704; ///< tenths of a dB
};

/// What the payloads of a wave stream are made of; tests change the fields as they go. The samples are a ramp
/// of running numbers.
struct LogStream
{
    HydStreamType streamType = StreamWave;
    bool withKey = true;
    uint8_t channels = 1;
    uint8_t bits = 16;
    uint32_t rate = 1000;
    int16_t gain = 12;
    bool bigEndian = false;
    bool withWavSetup = true;
    std::vector<LogDevice> devices{LogDevice{}};
    std::vector<LogStatus> statuses{LogStatus{}};
    std::optional<LogDevice> master;
    bool withScaling = true;
    int32_t maxMicrovolts = 2500000;
    int32_t minMicrovolts = -2500000;
    uint64_t nextRamp = 0;

    std::shared_ptr<HydStreamEventHeaderPayload> header(uint32_t time, int64_t sequence) const;
    /// A block of `count` samples a channel, all channels with the same values.
    std::shared_ptr<HydStreamDataPayload> block(uint32_t time, int64_t sequence, uint32_t sampleNum,
                                                uint16_t count);
};

std::shared_ptr<HydEventKeyChunk const> makeLogKey(uint32_t time, int64_t sequence);
std::shared_ptr<HydDevice> makeLogDevice();
std::shared_ptr<HydStatusDataPayload> makeHeading(uint16_t heading);
/// The information record of a wave file; null when it has none that can be read.
std::shared_ptr<NvxWavInfoData> infoOfFile(const QString& path);
