#include "NvxQtCommon/contract/base/CircularByteBuffer.h"

#include "NvxQtCommon/contract/base/CopyBytes.h"

#include <algorithm>

CircularByteBuffer::CircularByteBuffer(unsigned long long capacity)
    : m_bytes(std::make_unique_for_overwrite<unsigned char[]>(capacity)), m_capacity(capacity)
{
}

unsigned long long CircularByteBuffer::write(const unsigned char* data, unsigned long long size)
{
    const auto count = std::min(size, freeSpace());
    if (count == 0)
        return 0;
    const auto tail = (m_head + m_count) % m_capacity;
    const auto first = std::min(count, m_capacity - tail);
    copyBytes(m_bytes.get() + tail, data, first);
    copyBytes(m_bytes.get(), data + first, count - first);
    m_count += count;
    return count;
}

unsigned long long CircularByteBuffer::write(CircularByteBuffer* other)
{
    if (other == nullptr || other == this)
        return 0;
    unsigned long long moved = 0;
    // At most two pieces: a ring's content wraps once.
    while (!other->isEmpty() && freeSpace() > 0) {
        const auto piece = other->front();
        const auto count = write(piece.data(), piece.size());
        other->skip(count);
        moved += count;
    }
    return moved;
}

unsigned long long CircularByteBuffer::read(unsigned char* data, unsigned long long size)
{
    return skip(peek(data, size));
}

unsigned long long CircularByteBuffer::peek(unsigned char* data, unsigned long long size,
                                            unsigned long long offset) const
{
    if (offset >= m_count)
        return 0;
    const auto count = std::min(size, m_count - offset);
    if (count == 0)
        return 0;
    const auto start = (m_head + offset) % m_capacity;
    const auto first = std::min(count, m_capacity - start);
    copyBytes(data, m_bytes.get() + start, first);
    copyBytes(data + first, m_bytes.get(), count - first);
    return count;
}

unsigned long long CircularByteBuffer::skip(unsigned long long size)
{
    const auto count = std::min(size, m_count);
    m_count -= count;
    m_taken += count;
    // An empty ring starts over at the front, so that what comes next lies in one piece.
    m_head = m_count == 0 ? 0 : (m_head + count) % m_capacity;
    return count;
}

void CircularByteBuffer::clear()
{
    skip(m_count);
}

std::span<const unsigned char> CircularByteBuffer::piece(unsigned long long offset) const
{
    if (offset >= m_count)
        return {};
    const auto start = (m_head + offset) % m_capacity;
    return {m_bytes.get() + start, static_cast<size_t>(std::min(m_count - offset, m_capacity - start))};
}

unsigned long long CircularByteBuffer::find(unsigned char value, unsigned long long offset) const
{
    while (offset < m_count) {
        const auto bytes = piece(offset);
        const auto found = std::ranges::find(bytes, value);
        offset += static_cast<unsigned long long>(found - bytes.begin());
        if (found != bytes.end())
            return offset;
    }
    return m_count;
}

unsigned char CircularByteBuffer::at(unsigned long long offset) const
{
    return m_bytes[(m_head + offset) % m_capacity];
}
