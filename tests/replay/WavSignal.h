#pragma once

#include "WavFiles.h"

#include <QByteArray>

#include <cstdint>
#include <vector>

/// Samples without a pattern that a wrong place could repeat.
struct WavSignal
{
    QByteArray bytes; ///< frame by frame
    std::vector<std::vector<int32_t>> channels;
};

inline WavSignal makeSignal(int frames, int channels, int bits, bool bigEndian)
{
    WavSignal signal;
    signal.channels.resize(size_t(channels));
    const int width = bits / 8;
    signal.bytes.resize(qsizetype(frames) * channels * width);
    char* out = signal.bytes.data();
    uint32_t state = 1;
    for (int frame = 0; frame < frames; ++frame) {
        for (int channel = 0; channel < channels; ++channel) {
            state = state * 1664525 + 1013904223;
            const int32_t value = static_cast<int32_t>(state) >> (32 - bits);
            signal.channels[size_t(channel)].push_back(value);
            for (int k = 0; k < width; ++k)
                *out++ = char(value >> (8 * (bigEndian ? width - 1 - k : k)));
        }
    }
    return signal;
}

/// A whole file of these samples, the list ahead of them.
inline QByteArray fileOf(const WavSignal& signal, const WavBytes::Format& fmt, bool bigEndian = false)
{
    const auto info = makeInfo(fmt.channels);
    WavBytes file(bigEndian);
    return file.head().format(fmt).list(bytesOf(info->fileBytes())).data(signal.bytes).bytes;
}
