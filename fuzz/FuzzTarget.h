#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

// What the fuzz targets share. A target feeds hostile bytes to one parser, in two different ways, and stops
// the program when the two disagree or a bound is broken.

using Bytes = std::span<const uint8_t>;

inline void require(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

/// Offers `input` to `round` in pieces, through `buffer`: whole where `piece` is 0, else in pieces of that
/// size.
template <class Round> void feed(CircularByteBuffer& buffer, Bytes input, size_t piece, Round round)
{
    while (!input.empty()) {
        const size_t wanted = piece == 0 ? input.size() : std::min(piece, input.size());
        const auto taken = static_cast<size_t>(buffer.write(input.data(), wanted));
        require(taken > 0, "the parser leaves room in its buffer");
        input = input.subspan(taken);
        round();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
