#include "NvxQtSimulator/SignalSource.h"

#include "NvxQtSimulator/SplitMix.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

// Straight lines between 8192 points are within 8e-8 of a sine wave, less than a step of 24-bit samples.
constexpr unsigned kTableBits = 13;
constexpr size_t kTableSize = size_t{1} << kTableBits;

const std::array<double, kTableSize + 1>& sineTable()
{
    static const auto table = [] {
        std::array<double, kTableSize + 1> points{};
        for (size_t i = 0; i <= kTableSize; ++i)
            points[i] = std::sin(2.0 * std::numbers::pi * static_cast<double>(i) / kTableSize);
        return points;
    }();
    return table;
}

inline double sineOfPhase(const double* table, uint64_t phase)
{
    const size_t index = phase >> (64 - kTableBits);
    constexpr double kUnit = 1.0 / 4294967296.0;
    const double fraction = kUnit * static_cast<uint32_t>(phase >> (32 - kTableBits));
    return table[index] + fraction * (table[index + 1] - table[index]);
}

uint64_t phaseUnits(long double cycles)
{
    constexpr long double kCycle = 18446744073709551616.0L;
    const long double fraction = cycles - std::floor(cycles);
    return static_cast<uint64_t>(std::min(fraction * kCycle + 0.5L, kCycle - 4096.0L));
}

inline int32_t roundToSample(double value)
{
    return static_cast<int32_t>(value < 0.0 ? value - 0.5 : value + 0.5);
}

double amplitudeOf(double levelDb)
{
    return std::pow(10.0, std::clamp(levelDb, -200.0, 0.0) / 20.0);
}

/// At least one.
uint64_t samplesOf(long double seconds, long double rate)
{
    constexpr long double kMost = 1e15L;
    return static_cast<uint64_t>(std::fmin(std::fmax(std::round(seconds * rate), 1.0L), kMost));
}

constexpr uint64_t kChannelPhase = uint64_t{1} << 60;

template <unsigned Bytes, bool BigEndian>
void packSamples(const int32_t* values, size_t count, unsigned char* out)
{
    for (size_t i = 0; i < count; ++i) {
        const auto value = static_cast<uint32_t>(values[i]);
        for (unsigned b = 0; b < Bytes; ++b) {
            const unsigned shift = 8 * (BigEndian ? Bytes - 1 - b : b);
            out[i * Bytes + b] = static_cast<unsigned char>(value >> shift);
        }
    }
}

using PackFunction = void (*)(const int32_t*, size_t, unsigned char*);

PackFunction packFunction(const SampleFormat& format)
{
    switch (format.bytesPerSample) {
    case 2:
        return format.bigEndian ? packSamples<2, true> : packSamples<2, false>;
    case 3:
        return format.bigEndian ? packSamples<3, true> : packSamples<3, false>;
    case 4:
        return format.bigEndian ? packSamples<4, true> : packSamples<4, false>;
    default:
        return nullptr;
    }
}

} // namespace

SignalSource::SignalSource(const SignalSettings& settings, uint32_t sampleRate) : m_settings(settings)
{
    const long double rate = std::max<uint32_t>(sampleRate, 1);
    m_amplitude = amplitudeOf(settings.levelDb);
    m_phaseStep = phaseUnits(settings.frequency / rate);
    const long double seconds = std::max<long double>(settings.sweepSeconds, 1.0L / rate);
    m_sweepSamples = std::max<uint64_t>(1, static_cast<uint64_t>(seconds * rate));
    m_phaseStepStep = phaseUnits((static_cast<long double>(settings.endFrequency) - settings.frequency) /
                                 (rate * rate * seconds));
    m_impulseAmplitude = amplitudeOf(settings.impulseLevelDb);
    m_impulsePeriod = samplesOf(settings.impulseSeconds, rate);
    m_impulseSamples = std::min(samplesOf(settings.impulseLength, rate), m_impulsePeriod);
}

int32_t SignalSource::rampValue(uint64_t sampleNumber, unsigned channel, unsigned bits)
{
    const uint64_t wrapped = sampleNumber + (uint64_t{channel} << (bits - 3));
    return static_cast<int32_t>(static_cast<uint32_t>(wrapped) << (32 - bits)) >> (32 - bits);
}

void SignalSource::values(uint64_t first, size_t frames, unsigned channels, unsigned bits, int32_t* out) const
{
    const double fullScale = static_cast<double>((uint64_t{1} << (bits - 1)) - 1);
    const double scale = m_amplitude * fullScale;
    switch (m_settings.kind) {
    case SignalSettings::Tone:
        toneValues(first, frames, channels, scale, out);
        break;
    case SignalSettings::Sweep:
        sweepValues(first, frames, channels, scale, out);
        break;
    case SignalSettings::Noise:
        noiseValues(first, frames, channels, scale, out);
        break;
    case SignalSettings::Ramp:
        for (size_t i = 0; i < frames; ++i)
            for (unsigned c = 0; c < channels; ++c)
                *out++ = rampValue(first + i, c, bits);
        break;
    case SignalSettings::Impulses:
        noiseValues(first, frames, channels, scale, out);
        putBursts(first, frames, channels, m_impulseAmplitude * fullScale, out);
        break;
    }
}

void SignalSource::toneValues(uint64_t first, size_t frames, unsigned channels, double scale,
                              int32_t* out) const
{
    const double* table = sineTable().data();
    uint64_t phase = first * m_phaseStep;
    for (size_t i = 0; i < frames; ++i, phase += m_phaseStep)
        for (unsigned c = 0; c < channels; ++c)
            *out++ = roundToSample(scale * sineOfPhase(table, phase + c * kChannelPhase));
}

void SignalSource::sweepValues(uint64_t first, size_t frames, unsigned channels, double scale,
                               int32_t* out) const
{
    const double* table = sineTable().data();
    uint64_t position = first % m_sweepSamples;
    // Sum of the steps up to here. One of two neighbours is even, so the division leaves nothing behind.
    const uint64_t pairs =
        position == 0 ? 0
                      : (position % 2 == 0 ? position / 2 * (position - 1) : (position - 1) / 2 * position);
    uint64_t phase = position * m_phaseStep + pairs * m_phaseStepStep;
    uint64_t step = m_phaseStep + position * m_phaseStepStep;
    for (size_t i = 0; i < frames; ++i) {
        for (unsigned c = 0; c < channels; ++c)
            *out++ = roundToSample(scale * sineOfPhase(table, phase + c * kChannelPhase));
        phase += step;
        step += m_phaseStepStep;
        if (++position == m_sweepSamples) {
            position = 0;
            phase = 0;
            step = m_phaseStep;
        }
    }
}

void SignalSource::noiseValues(uint64_t first, size_t frames, unsigned channels, double scale,
                               int32_t* out) const
{
    // The sum of four 16-bit numbers has mean 131070 and a variance of (65536^2 - 1) / 3. The effective value
    // of a sine wave of the same level is 1/sqrt(2) of its amplitude.
    const double factor = scale / std::numbers::sqrt2 / std::sqrt((65536.0 * 65536.0 - 1.0) / 3.0);
    constexpr double kLimit = std::numeric_limits<int32_t>::max();
    const double fullScale = std::min(kLimit, scale / m_amplitude);
    for (size_t i = 0; i < frames; ++i) {
        for (unsigned c = 0; c < channels; ++c) {
            const uint64_t bits = splitMix64((first + i) * kMaxChannels + c + splitMix64(m_settings.seed));
            const auto sum = static_cast<int32_t>((bits & 0xFFFF) + ((bits >> 16) & 0xFFFF) +
                                                  ((bits >> 32) & 0xFFFF) + (bits >> 48));
            *out++ = roundToSample(std::clamp(factor * (sum - 131070), -fullScale, fullScale));
        }
    }
}

/// Replaces the samples of bursts, and leaves the others as they are.
void SignalSource::putBursts(uint64_t first, size_t frames, unsigned channels, double scale,
                             int32_t* out) const
{
    const double* table = sineTable().data();
    uint64_t position = first % m_impulsePeriod;
    for (size_t i = 0; i < frames; ++i, out += channels) {
        if (position < m_impulseSamples)
            std::fill_n(out, channels, roundToSample(scale * sineOfPhase(table, position * m_phaseStep)));
        if (++position == m_impulsePeriod)
            position = 0;
    }
}

void SignalSource::fill(uint64_t first, size_t frames, const SampleFormat& format, unsigned char* out) const
{
    const PackFunction pack = packFunction(format);
    if (!pack || format.channels == 0 || format.channels > kMaxChannels)
        return;
    constexpr size_t kPieceFrames = 512;
    std::array<int32_t, kPieceFrames * kMaxChannels> piece;
    while (frames > 0) {
        const size_t count = std::min(frames, kPieceFrames);
        values(first, count, format.channels, format.bytesPerSample * 8, piece.data());
        pack(piece.data(), count * format.channels, out);
        out += count * format.channels * format.bytesPerSample;
        first += count;
        frames -= count;
    }
}
