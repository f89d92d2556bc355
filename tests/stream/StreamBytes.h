#pragma once

#include "NvxQtCommon/contract/base/ByteStream.h"
#include "NvxQtCommon/contract/stream/HydStreamMessage.h"

#include <cstring>
#include <initializer_list>
#include <memory>
#include <type_traits>
#include <vector>

// Bytes and records that the tests of this folder write by hand, so that they don't lean on what they test.

using Bytes = std::vector<uint8_t>;

using Frames = std::vector<Bytes>;

/// A raw record, filled byte for byte as those who build chunks by hand do.
template <class Record> class RawRecord
{
public:
    template <class Value> RawRecord& put(size_t offset, Value value)
    {
        std::memcpy(m_bytes + offset, &value, sizeof value);
        return *this;
    }
    Record record() const
    {
        static_assert(std::is_trivially_copyable_v<Record>);
        Record result;
        std::memcpy(static_cast<void*>(&result), m_bytes, sizeof result);
        return result;
    }

private:
    unsigned char m_bytes[sizeof(Record)] = {};
};

inline Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

inline Bytes bigEndian(uint64_t value, int width)
{
    Bytes bytes;
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    return bytes;
}

inline Bytes chunkBytes(uint16_t type, const Bytes& body)
{
    return bigEndian(type, 2) + bigEndian(body.size(), 4) + body;
}

/// Header and chunks with the right checksum behind them, whatever they are.
inline Bytes sealed(Bytes bytes)
{
    return bytes + bigEndian(HydStreamMessage::checksum(bytes), 4);
}

inline Bytes frameBytes(uint8_t kind, const Bytes& chunks, uint8_t version = 1)
{
    return sealed(Bytes{'0', '*', kind, version} + bigEndian(chunks.size(), 4) + chunks);
}

/// Body of a data chunk: one channel of 16 bits in little-endian order, `count` samples from `first` on.
inline Bytes rampBody(uint32_t start, uint16_t count, uint16_t first = 0)
{
    Bytes body = bigEndian(start, 4) + Bytes{1, 0x82} + bigEndian(count, 2);
    for (unsigned i = 0; i < count; ++i) {
        body.push_back(static_cast<uint8_t>(first + i));
        body.push_back(static_cast<uint8_t>((first + i) >> 8));
    }
    return body;
}

inline Bytes keyBody(uint32_t time, uint64_t sequence, bool last = false)
{
    return bigEndian(time, 4) + bigEndian(sequence, 8) + Bytes{0, 0, static_cast<uint8_t>(last ? 1 : 0), 0};
}

inline Bytes dataFrame(uint32_t start, uint16_t count = 100)
{
    return frameBytes(2, chunkBytes(1, keyBody(1700000000, 5000)) + chunkBytes(9, rampBody(start, count)));
}

inline Bytes notifyFrame(uint16_t code, const char* text = "")
{
    Bytes body = bigEndian(code, 2) + Bytes{static_cast<uint8_t>(std::strlen(text))};
    body.insert(body.end(), text, text + std::strlen(text));
    return frameBytes(3, chunkBytes(10, body));
}

template <class Chunk> std::shared_ptr<Chunk> chunkFromWire(const Bytes& body)
{
    ByteReader in(body);
    return Chunk::fromWire(in);
}

template <class Chunk> Bytes wireOf(const Chunk& chunk)
{
    ByteStream out;
    chunk.serialize(out);
    return out.take();
}
