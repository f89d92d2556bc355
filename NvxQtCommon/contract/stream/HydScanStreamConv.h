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
    /// message's data chunk, key from its time chunk (null without one). `type` 1 or 16 looks at the wave
    /// chunks, 2 or 17 at the spectrum chunks; the payload's stream type is `type` as it was passed in, so
    /// that the headers of a stream of type 1 or 2 bear 1 or 2 and its data 16 or 17. A wave key's sequence
    /// is seconds times sample rate, since scan messages carry no running number; a spectrum's is its running
    /// number. `withStatus` adds a status chunk with the device's temperature and humidity: tenths, but whole
    /// units for type 16, whose readers multiply them by ten. Null when the message holds no data chunk of
    /// that kind, and for any other type.
    std::shared_ptr<HydStreamEventHeaderPayload> extractEventHdr(std::shared_ptr<HydDataCollectCmd const> cmd,
                                                                 HydDevice const& device, HydStreamType type,
                                                                 bool withStatus);
    /// The wave samples as stream type 16: the chunk's sample number is the place in the second, the key's
    /// sequence the running number of the block's own first sample, as on replayed blocks. The block that
    /// closes a second is marked as last. `lost` becomes true when the samples don't follow on the ones
    /// before, and when they don't fit the format that the message gives for them; it is never cleared. Null
    /// without wave data and for samples that don't fit.
    std::shared_ptr<HydStreamDataPayload> extractWaveData(std::shared_ptr<HydDataCollectCmd const> cmd,
                                                          HydDevice const& device, bool& lost);
    /// The spectrum as stream type 17. Null without one, and for more than 65535 bins.
    std::shared_ptr<HydStreamDataPayload> extractSpectrumData(std::shared_ptr<HydDataCollectCmd const> cmd,
                                                              HydDevice const& device);

private:
    bool m_hasEnd = false;
    uint32_t m_endTime = 0;
    uint32_t m_endSample = 0;
    uint32_t m_rate = 0;
};
