#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

/// Largest piece that copyBytes() hands to the C library at once.
inline constexpr size_t kCopyPiece = 2048;

/// Copies `size` bytes between buffers that don't overlap, for blocks of samples. Longer copies than
/// kCopyPiece make some C libraries use the processor's string instructions, and on some processors those are
/// up to twenty times slower when the two addresses lie close behind each other within their pages.
/// bench_copy shows it.
inline void copyBytes(unsigned char* to, const unsigned char* from, size_t size)
{
    while (size > 0) {
        const size_t count = std::min(size, kCopyPiece);
        // Not memcpy: compilers replace one of a bounded size by the very instructions to be avoided.
        std::memmove(to, from, count);
        to += count;
        from += count;
        size -= count;
    }
}
