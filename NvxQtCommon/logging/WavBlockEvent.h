#pragma once

#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/WavStreamEvent.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <memory>

/// One block of a wave stream as the wave writer takes it. Time and sequence are those of the block's key,
/// both 0 without one; in a scan or a replay the sequence is less by the block's sample number. Holds on to
/// the samples, whatever happens to the payload.
class NVXQTCOMMON_EXPORT WavBlockEvent : public WavStreamEvent
{
public:
    /// `payload` must have a data chunk.
    explicit WavBlockEvent(const HydStreamDataPayload& payload);
    ~WavBlockEvent() override;
    WavBlockEvent(const WavBlockEvent&) = delete;
    WavBlockEvent& operator=(const WavBlockEvent&) = delete;

    const NvxWavDataChunk& chunk() const { return m_chunk; }

private:
    NvxWavDataChunk m_chunk;
    std::shared_ptr<unsigned char[]> m_samples;
};
