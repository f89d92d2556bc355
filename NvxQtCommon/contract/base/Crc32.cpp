#include "NvxQtCommon/contract/base/Crc32.h"

#include <algorithm>

#include <zlib.h>

namespace {

constexpr unsigned long long kMarkDistance = 64;

} // namespace

uint32_t crc32Of(std::span<const uint8_t> bytes, uint32_t start)
{
    return static_cast<uint32_t>(crc32_z(start, bytes.data(), bytes.size()));
}

uint32_t RingCrc32::of(unsigned long long offset, unsigned long long size)
{
    // zlib's combination of checksums never ends for a shift by nothing.
    if (size == 0)
        return 0;
    const auto crc = upTo(offset + size);
    if (offset == 0)
        return crc;
    if (m_shiftSize != size) {
        m_shiftSize = size;
        m_shift = crc32_combine_gen(static_cast<z_off_t>(size));
    }
    return crc ^ static_cast<uint32_t>(crc32_combine_op(upTo(offset), 0, m_shift));
}

uint32_t RingCrc32::upTo(unsigned long long end)
{
    const auto mark = static_cast<size_t>(end / kMarkDistance);
    while (m_marks.size() <= mark) {
        const auto marked = m_marks.size() * kMarkDistance;
        m_marks.push_back(extend(m_marks.back(), marked - kMarkDistance, marked));
    }
    return extend(m_marks[mark], mark * kMarkDistance, end);
}

uint32_t RingCrc32::extend(uint32_t crc, unsigned long long from, unsigned long long end) const
{
    while (from < end) {
        auto piece = m_ring.piece(from);
        if (piece.empty())
            break;
        piece = piece.first(static_cast<size_t>(std::min<unsigned long long>(piece.size(), end - from)));
        crc = crc32Of(piece, crc);
        from += piece.size();
    }
    return crc;
}
