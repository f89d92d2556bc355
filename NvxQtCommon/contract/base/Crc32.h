#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"

#include <cstdint>
#include <deque>
#include <span>

/// CRC-32 of ISO 3309 over `bytes`. `start` is the result over the bytes in front of them, 0 for none.
NVXQTCOMMON_EXPORT uint32_t crc32Of(std::span<const uint8_t> bytes, uint32_t start = 0);
/// Bytes that crc32Of() went over on the calling thread so far: the cost of a search, for who measures one.
NVXQTCOMMON_EXPORT uint64_t crc32ByteCount();

/// CRC-32 of any piece of a ring. A search that asks for many pieces that overlap costs one pass over the
/// ring and a small fixed amount for each question, however long the pieces are: it keeps the checksum up to
/// every 64th byte, and the checksum of a piece follows from those up to its two ends. Nothing is copied.
/// Bytes may be added to the ring at any time; leave() keeps what is known when bytes go, else it is
/// forgotten.
class NVXQTCOMMON_EXPORT RingCrc32
{
public:
    explicit RingCrc32(const CircularByteBuffer& ring) : m_ring(ring) {}

    /// CRC-32 of `size` bytes from `offset` behind the oldest one on. The piece must lie inside what is held.
    uint32_t of(unsigned long long offset, unsigned long long size);
    /// To be called right before the oldest `count` bytes, all of them held, are taken out of the ring.
    void leave(unsigned long long count);

private:
    void restartAt(unsigned long long place);
    uint32_t upTo(unsigned long long place);
    uint32_t extend(uint32_t crc, unsigned long long from, unsigned long long end) const;

    // Places are counted as the ring's takenCount() does, so that they stay the same when bytes leave.
    const CircularByteBuffer& m_ring;
    unsigned long long m_front = 0;
    uint32_t m_frontCrc = 0;
    unsigned long long m_firstMark = 0;
    std::deque<uint32_t> m_marks;
    unsigned long long m_shiftSize = 0;
    unsigned long m_shift = 0;
};
