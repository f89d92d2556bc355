#include "NvxQtCommon/contract/base/Crc32.h"

#include <algorithm>

#include <zlib.h>

uint32_t crc32Of(std::span<const uint8_t> bytes, uint32_t start)
{
    return static_cast<uint32_t>(crc32_z(start, bytes.data(), bytes.size()));
}

uint32_t crc32Of(const CircularByteBuffer& ring, unsigned long long offset, unsigned long long size)
{
    uint32_t crc = 0;
    while (size > 0) {
        auto piece = ring.piece(offset);
        if (piece.empty())
            break;
        piece = piece.first(static_cast<size_t>(std::min<unsigned long long>(piece.size(), size)));
        crc = crc32Of(piece, crc);
        offset += piece.size();
        size -= piece.size();
    }
    return crc;
}
