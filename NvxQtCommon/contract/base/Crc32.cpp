#include "NvxQtCommon/contract/base/Crc32.h"

#include <algorithm>

#include <zlib.h>

namespace {

constexpr unsigned long long kMarkDistance = 64;
thread_local uint64_t t_crcBytes = 0;

} // namespace

uint32_t crc32Of(std::span<const uint8_t> bytes, uint32_t start)
{
    t_crcBytes += bytes.size();
    return static_cast<uint32_t>(crc32_z(start, bytes.data(), bytes.size()));
}

uint64_t crc32ByteCount()
{
    return t_crcBytes;
}

uint32_t RingCrc32::of(unsigned long long offset, unsigned long long size)
{
    // zlib's combination of checksums never ends for a shift by nothing.
    if (size == 0)
        return 0;
    if (m_ring.takenCount() != m_front)
        restartAt(m_ring.takenCount());
    if (m_shiftSize != size) {
        m_shiftSize = size;
        m_shift = crc32_combine_gen(static_cast<z_off_t>(size));
    }
    const auto start = m_front + offset;
    return upTo(start + size) ^ static_cast<uint32_t>(crc32_combine_op(upTo(start), 0, m_shift));
}

void RingCrc32::leave(unsigned long long count)
{
    const auto place = m_ring.takenCount() + count;
    const auto known = m_firstMark + m_marks.size() * kMarkDistance;
    if (m_ring.takenCount() != m_front || place >= known) {
        restartAt(place);
        return;
    }
    m_frontCrc = upTo(place);
    m_front = place;
    while (!m_marks.empty() && m_firstMark < place) {
        m_marks.pop_front();
        m_firstMark += kMarkDistance;
    }
}

void RingCrc32::restartAt(unsigned long long place)
{
    m_front = place;
    m_frontCrc = 0;
    m_firstMark = (place + kMarkDistance - 1) / kMarkDistance * kMarkDistance;
    m_marks.clear();
}

uint32_t RingCrc32::upTo(unsigned long long place)
{
    if (place < m_firstMark)
        return extend(m_frontCrc, m_front, place);
    if (m_marks.empty())
        m_marks.push_back(extend(m_frontCrc, m_front, m_firstMark));
    const auto mark = static_cast<size_t>((place - m_firstMark) / kMarkDistance);
    while (m_marks.size() <= mark) {
        const auto end = m_firstMark + m_marks.size() * kMarkDistance;
        m_marks.push_back(extend(m_marks.back(), end - kMarkDistance, end));
    }
    return extend(m_marks[mark], m_firstMark + mark * kMarkDistance, place);
}

uint32_t RingCrc32::extend(uint32_t crc, unsigned long long from, unsigned long long end) const
{
    while (from < end) {
        auto piece = m_ring.piece(from - m_front);
        if (piece.empty())
            break;
        piece = piece.first(static_cast<size_t>(std::min<unsigned long long>(piece.size(), end - from)));
        crc = crc32Of(piece, crc);
        from += piece.size();
    }
    return crc;
}
