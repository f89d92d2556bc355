#pragma once

#include "NvxQtCommon/contract/message/HydCommandPayload.h"

#include <cstdint>
#include <memory>
#include <vector>

/// One framed message of the command channel: "*", letter, payload length (2), payload, CRC-32 (4).
class NVXQTCOMMON_EXPORT HydControlMessage
{
public:
    static constexpr size_t kHeaderSize = 4;
    static constexpr size_t kFrameOverhead = 8;
    /// Largest frame there is: a payload length of 65535.
    static constexpr size_t kMaxFrameSize = 65535 + kFrameOverhead;
    /// Size of the buffer that serialize() writes to.
    static constexpr size_t kSendBufferSize = 1024;

    explicit HydControlMessage(std::shared_ptr<HydControlMsgPayload> payload) : m_payload(std::move(payload))
    {
    }

    /// Null for a well-formed frame whose letter or payload is unknown.
    std::shared_ptr<HydControlMsgPayload> payload() const { return m_payload; }
    /// Writes the frame to `buffer`, which holds kSendBufferSize bytes, and its size to `size`. A frame that
    /// doesn't fit writes nothing and gives size 0.
    void serialize(unsigned long long* size, unsigned char* buffer) const;
    /// The whole frame whatever its size; empty without a payload or when the payload exceeds 65535 bytes.
    std::vector<uint8_t> frame() const;
    /// The same for a payload that someone else holds.
    static std::vector<uint8_t> frame(const HydControlMsgPayload& payload);

private:
    std::shared_ptr<HydControlMsgPayload> m_payload;
};
