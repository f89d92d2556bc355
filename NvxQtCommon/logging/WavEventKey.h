#pragma once

#include "NvxQtCommon/contract/stream/StreamChunks.h"

#include <cstdint>
#include <memory>

/// Time and sequence of an event as the loggers read them from its key chunk; both 0 without one. A value.
struct WavEventKey
{
    explicit WavEventKey(const std::shared_ptr<HydEventKeyChunk const>& chunk)
        : time(chunk ? static_cast<uint32_t>(chunk->eventId()) : 0), sequence(chunk ? chunk->sequence() : 0)
    {
    }

    int eventTime() const { return static_cast<int>(time); }
    unsigned long long eventSequence() const { return static_cast<unsigned long long>(sequence); }

    uint32_t time;    ///< seconds since the epoch
    int64_t sequence; ///< running sample number of the event's first sample
};
