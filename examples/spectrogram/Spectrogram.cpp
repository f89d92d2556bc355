#include "spectrogram/Spectrogram.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr size_t kShortest = 256;
constexpr size_t kLongest = 4096;
constexpr qint64 kMaxTransformsOfColumn = 16;
constexpr float kFloor = -200.0F;

/// A power of two that gives about 25 transforms a second, and no more points than there are samples.
size_t transformLength(const WaveFile& file)
{
    size_t length = kShortest;
    while (length < kLongest && length * 25 < file.sampleRate() && qint64(length) * 2 <= file.frames())
        length *= 2;
    return length;
}

} // namespace

Spectrogram::Spectrogram(WaveFile& file, unsigned channel, int columns)
    : m_length(transformLength(file)), m_window(m_length), m_turns(m_length / 2), m_work(m_length)
{
    for (size_t i = 0; i < m_length; ++i)
        m_window[i] = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * double(i) / double(m_length));
    for (size_t i = 0; i < m_length / 2; ++i)
        m_turns[i] = std::polar(1.0, -2.0 * std::numbers::pi * double(i) / double(m_length));

    const auto length = qint64(m_length);
    const qint64 wanted = std::clamp<qint64>(columns, 1, std::max<qint64>(1, file.frames() / (length / 8)));
    const double step = double(file.frames()) / double(wanted);
    // A sine wave of amplitude 1 gives length / 4 through a Hann window.
    const double unit = double(length) / 4.0 * (double(length) / 4.0);
    for (qint64 column = 0; column < wanted; ++column) {
        const qint64 transforms = std::clamp<qint64>(qint64(step) / (length / 2), 1, kMaxTransformsOfColumn);
        std::vector<double> power(m_length / 2, 0.0);
        for (qint64 t = 0; t < transforms; ++t) {
            const double middle = (double(column) + (double(t) + 0.5) / double(transforms)) * step;
            const qint64 first = std::clamp<qint64>(qint64(middle) - length / 2, 0,
                                                    std::max<qint64>(0, file.frames() - length));
            addTransform(file.read(first, length, channel), power);
        }
        std::vector<float> levels(m_length / 2);
        for (size_t bin = 0; bin < levels.size(); ++bin)
            levels[bin] =
                std::max(kFloor, float(10.0 * std::log10(power[bin] / (unit * double(transforms)) + 1e-30)));
        m_levels.columns.push_back(std::move(levels));
    }
    m_levels.bins = int(m_length / 2);
    m_levels.seconds = file.seconds();
    m_levels.kilohertz = file.sampleRate() / 2000.0;
    m_levels.unit = QStringLiteral("dBFS");
}

void Spectrogram::addTransform(const std::vector<float>& samples, std::vector<double>& power)
{
    for (size_t i = 0; i < m_length; ++i)
        m_work[i] = i < samples.size() ? m_window[i] * double(samples[i]) : 0.0;
    transform();
    for (size_t bin = 0; bin < power.size(); ++bin)
        power[bin] += std::norm(m_work[bin]);
}

/// Radix-2 transform in place: bit reversal, then butterflies of growing length.
void Spectrogram::transform()
{
    for (size_t i = 1, j = 0; i < m_length; ++i) {
        size_t bit = m_length / 2;
        for (; j & bit; bit /= 2)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap(m_work[i], m_work[j]);
    }
    for (size_t length = 2; length <= m_length; length *= 2) {
        for (size_t start = 0; start < m_length; start += length) {
            for (size_t k = 0; k < length / 2; ++k) {
                const auto even = m_work[start + k];
                const auto odd = m_work[start + k + length / 2] * m_turns[k * (m_length / length)];
                m_work[start + k] = even + odd;
                m_work[start + k + length / 2] = even - odd;
            }
        }
    }
}
