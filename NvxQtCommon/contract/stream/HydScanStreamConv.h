#pragma once

#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <memory>

/// Turns data collect messages into the payloads of a stream. One converter serves one device and remembers
/// where its wave data ended, so that missing samples are seen.
class NVXQTCOMMON_EXPORT HydScanStreamConv
{
public:
    HydScanStreamConv() = default;

    /// Header for the event that the message belongs to: device values from `device`, format from the
    /// message's data chunk, key from its time chunk (null without one). `type` 1 or 16 looks at wave chunks,
    /// 2 or 17 at spectrum chunks; the payload's stream type is `type`. `withStatus` adds a status chunk with
    /// the device's temperature and humidity. Null when the message holds no data chunk of that kind.
    std::shared_ptr<HydStreamEventHeaderPayload> extractEventHdr(std::shared_ptr<HydDataCollectCmd const> cmd,
                                                                 HydDevice const& device, HydStreamType type,
                                                                 bool withStatus);
    /// The wave samples; `lost` becomes true when they don't follow on the ones before. Null without wave
    /// data.
    std::shared_ptr<HydStreamDataPayload> extractWaveData(std::shared_ptr<HydDataCollectCmd const> cmd,
                                                          HydDevice const& device, bool& lost);
    /// The spectrum. Null without one.
    std::shared_ptr<HydStreamDataPayload> extractSpectrumData(std::shared_ptr<HydDataCollectCmd const> cmd,
                                                              HydDevice const& device);

private:
    bool m_hasEnd = false;
    uint32_t m_endTime = 0;
    uint32_t m_endSample = 0;
    uint32_t m_rate = 0;
};
