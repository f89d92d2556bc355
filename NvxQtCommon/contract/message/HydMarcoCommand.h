#pragma once

#include "NvxQtCommon/contract/message/HydMarcoPayloads.h"

#include <array>
#include <memory>

/// One discovery datagram: magic "NVXM", version, kind, response port (2), body length (2), body, CRC-32 (4).
class NVXQTCOMMON_EXPORT HydMarcoCommand
{
public:
    static constexpr size_t kHeaderSize = 10;
    static constexpr size_t kFrameOverhead = 14;
    /// No datagram is longer, header and checksum included; serialize() writes to a buffer of this size.
    static constexpr size_t kMaxDatagramSize = 1024;
    static constexpr std::array<uint8_t, 4> kMagic{'N', 'V', 'X', 'M'};
    static constexpr uint8_t kVersion = 1;
    /// Where the body's length stands in a datagram.
    static constexpr size_t kLengthOffset = 8;

    explicit HydMarcoCommand(std::shared_ptr<HydMarcoCommandPayload> payload) : m_payload(std::move(payload))
    {
    }

    std::shared_ptr<HydMarcoCommandPayload> payload() const { return m_payload; }
    /// Writes the datagram to `buffer`, which holds kMaxDatagramSize bytes, and its size to `size`; size 0
    /// and nothing written without a payload or with one that doesn't fit.
    void serialize(unsigned long long* size, unsigned char* buffer) const;

private:
    std::shared_ptr<HydMarcoCommandPayload> m_payload;
};
