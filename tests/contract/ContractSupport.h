#pragma once

#include "NvxQtCommon/contract/base/ByteStream.h"
#include "NvxQtCommon/contract/base/CircularByteBuffer.h"
#include "NvxQtCommon/contract/base/ISerializable.h"

#include <QByteArray>

#include <cstdint>
#include <span>
#include <vector>

using Bytes = std::vector<uint8_t>;

/// Hexadecimal text of bytes, so that a failed comparison shows them.
inline QByteArray hexText(std::span<const uint8_t> bytes)
{
    return QByteArray(reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size()))
        .toHex();
}

inline Bytes bytesOfHex(const QByteArray& hex)
{
    const auto bytes = QByteArray::fromHex(hex);
    return {bytes.begin(), bytes.end()};
}

/// What an object writes of itself.
inline Bytes serialized(const ISerializable& object)
{
    ByteStream out;
    object.serialize(out);
    return out.take();
}

/// `size` bytes that repeat only after `2^32` ones and look like noise; the same seed gives the same bytes.
inline Bytes noiseBytes(size_t size, uint32_t seed)
{
    Bytes bytes(size);
    uint32_t state = seed * 2654435761U + 1U;
    for (auto& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

inline unsigned long long writeAll(CircularByteBuffer& ring, std::span<const uint8_t> bytes)
{
    return ring.write(bytes.data(), bytes.size());
}

/// Takes everything out of a ring.
inline Bytes drained(CircularByteBuffer& ring)
{
    Bytes bytes(ring.byteCount());
    ring.read(bytes.data(), bytes.size());
    return bytes;
}
