#include "NvxQtSimulator/SpectrumMaker.h"

#include <algorithm>
#include <cmath>
#include <numbers>

SpectrumMaker::SpectrumMaker(const SignalSettings& signal, uint32_t sampleRate, unsigned points,
                             unsigned step)
    : m_source(signal, sampleRate), m_points(points), m_step(step), m_window(points), m_samples(points),
      m_work(points), m_turns(points / 2)
{
    for (unsigned i = 0; i < points; ++i)
        m_window[i] = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * i / points);
    for (unsigned i = 0; i < points / 2; ++i)
        m_turns[i] = std::polar(1.0, -2.0 * std::numbers::pi * i / points);
}

std::vector<double> SpectrumMaker::powers(uint64_t first, unsigned accum)
{
    constexpr unsigned kBits = 24;
    constexpr double kFullScale = 1 << (kBits - 1);
    const unsigned transforms = std::min(accum, kMaxPoints / m_points);
    std::vector<double> power(m_points / 2, 0.0);
    for (unsigned t = 0; t < transforms; ++t) {
        m_source.values(first + uint64_t{t} * accum / transforms * m_step, m_points, 1, kBits,
                        m_samples.data());
        for (unsigned i = 0; i < m_points; ++i)
            m_work[i] = m_window[i] * m_samples[i] / kFullScale;
        transform();
        for (unsigned i = 0; i < m_points / 2; ++i)
            power[i] += std::norm(m_work[i]);
    }
    // A sine wave of amplitude 1 in the middle of a bin gives points / 4 through a Hann window.
    const double unit = transforms * (m_points / 4.0) * (m_points / 4.0);
    for (double& bin : power)
        bin /= unit;
    return power;
}

std::vector<uint8_t> SpectrumMaker::bins(uint64_t first, unsigned accum, double referenceDb)
{
    const std::vector<double> power = powers(first, accum);
    std::vector<uint8_t> levels(power.size());
    std::transform(power.begin(), power.end(), levels.begin(), [referenceDb](double bin) {
        const double db = 10.0 * std::log10(std::max(bin, 1e-30));
        return static_cast<uint8_t>(std::clamp(std::round(2.0 * (db - referenceDb)), 0.0, 255.0));
    });
    return levels;
}

void SpectrumMaker::transform()
{
    for (unsigned i = 1, j = 0; i < m_points; ++i) {
        unsigned bit = m_points >> 1;
        for (; j & bit; bit >>= 1)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap(m_work[i], m_work[j]);
    }
    for (unsigned length = 2; length <= m_points; length *= 2) {
        const unsigned stride = m_points / length;
        for (unsigned start = 0; start < m_points; start += length) {
            for (unsigned k = 0; k < length / 2; ++k) {
                const auto even = m_work[start + k];
                const auto odd = m_work[start + k + length / 2] * m_turns[k * stride];
                m_work[start + k] = even + odd;
                m_work[start + k + length / 2] = even - odd;
            }
        }
    }
}
