#pragma once

#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// One message of a stream: "0*", kind, version, length (4), chunks (type 2, length 4, body), checksum (4).
class NVXQTCOMMON_EXPORT HydStreamMessage
{
public:
    static constexpr size_t kHeaderSize = 8;
    static constexpr size_t kChecksumSize = 4;
    /// Largest length field: bytes of all chunks of a message.
    static constexpr size_t kMaxChunkBytes = 1024 * 1024;
    static constexpr size_t kMaxFrameSize = kHeaderSize + kMaxChunkBytes + kChecksumSize;
    static constexpr uint8_t kVersion = 1;
    /// Channels of an event, and so device, status and scaling chunks of a header, at most.
    static constexpr size_t kMaxChannels = 255;

    enum Kind : uint8_t {
        KindEventHeader = 1,
        KindData = 2,
        KindNotify = 3,
        KindStatus = 4,
    };

    explicit HydStreamMessage(std::shared_ptr<HydStreamMessagePayload> content) : payload(std::move(content))
    {
    }
    virtual ~HydStreamMessage();

    /// The whole frame as a recorder sends it; empty for a null payload or one that exceeds kMaxChunkBytes.
    std::vector<uint8_t> frame() const;
    /// Reads the chunks of a frame of `kind`. `type` is the stream's and goes into the payload; it tells wave
    /// blocks from spectra. Chunks of unknown type are skipped. Null when a chunk doesn't read, for more than
    /// kMaxChannels chunks of one type, a data message without exactly one data chunk, a notification without
    /// its chunk, and any other `kind`.
    static std::shared_ptr<HydStreamMessagePayload> parse(Kind kind, std::span<const uint8_t> chunks,
                                                          HydStreamType type);
    /// Checksum over header and chunks: the low 32 bits of XXH64 with seed 0.
    static uint32_t checksum(std::span<const uint8_t> bytes);

    /// Read directly by the stream adapter.
    std::shared_ptr<HydStreamMessagePayload> payload;
};
