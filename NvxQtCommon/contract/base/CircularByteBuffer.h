#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstdint>
#include <memory>
#include <span>

/// Ring of bytes with a fixed capacity, allocated once. It never overwrites: write() says what fitted.
/// Not thread-safe; it lives on its owner's thread.
class NVXQTCOMMON_EXPORT CircularByteBuffer
{
public:
    explicit CircularByteBuffer(unsigned long long capacity);

    CircularByteBuffer(const CircularByteBuffer&) = delete;
    CircularByteBuffer& operator=(const CircularByteBuffer&) = delete;

    /// Appends up to `size` bytes and returns how many fitted.
    unsigned long long write(const unsigned char* data, unsigned long long size);
    /// Moves what fits out of `other` (behind what is here) and returns the count; the rest stays in `other`.
    unsigned long long write(CircularByteBuffer* other);
    /// Copies up to `size` of the oldest bytes out and removes them; returns the count.
    unsigned long long read(unsigned char* data, unsigned long long size);
    /// Copies without removing, from `offset` bytes behind the oldest one; returns the count.
    unsigned long long peek(unsigned char* data, unsigned long long size,
                            unsigned long long offset = 0) const;
    /// Removes up to `size` of the oldest bytes; returns the count.
    unsigned long long skip(unsigned long long size);
    void clear();

    /// The oldest bytes that lie in one piece of memory; valid until the next change. Empty when nothing is
    /// held.
    std::span<const unsigned char> front() const { return piece(0); }
    /// The bytes from `offset` behind the oldest one on that lie in one piece; empty when nothing is held
    /// there.
    std::span<const unsigned char> piece(unsigned long long offset) const;
    /// Offset of the first `value` from `offset` on; byteCount() when there is none.
    unsigned long long find(unsigned char value, unsigned long long offset) const;
    /// Byte at `offset` behind the oldest one; `offset` must be below byteCount().
    unsigned char at(unsigned long long offset) const;

    unsigned long long byteCount() const { return m_count; }
    unsigned long long capacity() const { return m_capacity; }
    unsigned long long freeSpace() const { return m_capacity - m_count; }
    bool isEmpty() const { return m_count == 0; }
    /// How many bytes have left the ring since it was made: the place of the oldest byte in all that passed
    /// through.
    unsigned long long takenCount() const { return m_taken; }

private:
    std::unique_ptr<unsigned char[]> m_bytes;
    unsigned long long m_capacity;
    unsigned long long m_head = 0;
    unsigned long long m_count = 0;
    unsigned long long m_taken = 0;
};
