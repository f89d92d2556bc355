#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"

#include <cstdint>
#include <span>
#include <vector>

/// CRC-32 of ISO 3309 over `bytes`. `start` is the result over the bytes in front of them, 0 for none.
NVXQTCOMMON_EXPORT uint32_t crc32Of(std::span<const uint8_t> bytes, uint32_t start = 0);

/// CRC-32 of any piece of a ring. A search that asks for many pieces that overlap costs one pass over the
/// ring and a small fixed amount for each question, however long the pieces are: it keeps the checksum from
/// the front to every 64th byte, and the checksum of a piece follows from those in front of it and up to its
/// end. Nothing is copied. Valid as long as the ring doesn't change.
class NVXQTCOMMON_EXPORT RingCrc32
{
public:
    explicit RingCrc32(const CircularByteBuffer& ring) : m_ring(ring) {}

    /// CRC-32 of `size` bytes from `offset` behind the oldest one on. The piece must lie inside what is held.
    uint32_t of(unsigned long long offset, unsigned long long size);

private:
    uint32_t upTo(unsigned long long end);
    uint32_t extend(uint32_t crc, unsigned long long from, unsigned long long end) const;

    const CircularByteBuffer& m_ring;
    std::vector<uint32_t> m_marks{0};
    unsigned long long m_shiftSize = 0;
    unsigned long m_shift = 0;
};
