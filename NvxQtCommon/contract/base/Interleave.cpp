#include "NvxQtCommon/contract/base/Interleave.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

namespace {

using Channels = std::span<const unsigned char* const>;

/// Moves `Moved` bytes for each sample of `Width`. More than a sample's own may be moved wherever others
/// follow: what is too much is overwritten by the next sample.
template <size_t Width, size_t Moved>
unsigned char* weave(Channels channels, size_t first, size_t end, unsigned char* out)
{
    for (size_t i = first; i < end; ++i) {
        for (const unsigned char* channel : channels) {
            std::memcpy(out, channel + i * Width, Moved);
            out += Width;
        }
    }
    return out;
}

/// Frames of samples of three bytes, where another frame follows. Two samples are one store of eight bytes.
template <size_t Pairs> unsigned char* weavePairs(Channels channels, size_t end, unsigned char* out)
{
    constexpr size_t kWidth = 3;
    // Of these the compiler knows that no store to `out` changes them.
    std::array<const unsigned char*, 2 * Pairs> from;
    std::copy_n(channels.begin(), from.size(), from.begin());
    for (size_t at = 0; at < end * kWidth; at += kWidth) {
        for (size_t c = 0; c < from.size(); c += 2) {
            uint32_t first = 0;
            uint32_t second = 0;
            std::memcpy(&first, from[c] + at, sizeof first);
            std::memcpy(&second, from[c + 1] + at, sizeof second);
            const uint64_t both = (first & 0xFFFFFFU) | uint64_t{second} << 24U;
            std::memcpy(out, &both, sizeof both);
            out += 2 * kWidth;
        }
    }
    return out;
}

unsigned char* weaveWide(Channels channels, size_t end, unsigned char* out)
{
    if constexpr (std::endian::native == std::endian::little) {
        switch (channels.size()) {
        case 2:
            return weavePairs<1>(channels, end, out);
        case 4:
            return weavePairs<2>(channels, end, out);
        case 6:
            return weavePairs<3>(channels, end, out);
        case 8:
            return weavePairs<4>(channels, end, out);
        default:
            break;
        }
    }
    return weave<3, 4>(channels, 0, end, out);
}

/// Three bytes at once would be three moves for the processor.
void weaveThreeBytes(Channels channels, size_t samples, unsigned char* out)
{
    if (samples == 0)
        return;
    const size_t last = samples - 1;
    out = weaveWide(channels, last, out);
    weave<3, 3>(channels, last, samples, out);
}

} // namespace

void interleaveSamples(Channels channels, size_t samples, unsigned width, unsigned char* out)
{
    switch (width) {
    case 1:
        weave<1, 1>(channels, 0, samples, out);
        return;
    case 2:
        weave<2, 2>(channels, 0, samples, out);
        return;
    case 3:
        weaveThreeBytes(channels, samples, out);
        return;
    case 4:
        weave<4, 4>(channels, 0, samples, out);
        return;
    default:
        return;
    }
}
