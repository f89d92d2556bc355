#include "NvxQtSimulator/ArrayFrameMaker.h"

#include <QtEndian>

#include <algorithm>
#include <cmath>

namespace {

constexpr qsizetype kFrameHeader = 32;
// dB re 1 V of a sine wave of full scale, which is 3 V.
constexpr double kFullScaleDb = 6.53;
// Readers take bins below 0 for the highest ones.
constexpr double kHighestBin = 127.0;

template <class T> void putLittle(QByteArray& frame, qsizetype at, T value)
{
    qToLittleEndian(value, frame.data() + at);
}

} // namespace

ArrayFrameMaker::ArrayFrameMaker(const ArrayState* state, size_t channel)
    : m_state(state), m_channel(state->settings().channels[channel]),
      m_spectra(m_channel.signal, state->settings().sampleRate, state->settings().points,
                state->settings().points / 2U)
{
}

QByteArray ArrayFrameMaker::frame(uint32_t round)
{
    const ArraySettings& settings = m_state->settings();
    const HydJobSettings& job = m_state->jobSettings();
    const uint64_t first = uint64_t{round} * settings.sampleRate / settings.framesPerSecond;
    // One transform stands for all that are accumulated: 64 channels have to keep up with their clock.
    const std::vector<double> powers = m_spectra.powers(first, 1);
    QByteArray frame(kFrameHeader + static_cast<qsizetype>(powers.size()), '\0');
    putLittle(frame, 1, m_channel.number);
    putLittle(frame, 2, m_channel.serial);
    putLittle(frame, 4, m_channel.temperature);
    putLittle(frame, 6, round);
    putLittle(frame, 10, static_cast<uint16_t>(powers.size()));
    putLittle(frame, 12, static_cast<int32_t>(job.fftRef()));
    putLittle(frame, 16, settings.sampleRate);
    putLittle(frame, 20, m_channel.sensitivity);
    putLittle(frame, 24, static_cast<uint16_t>(job.fftAccum()));
    putLittle(frame, 30, settings.points);
    std::transform(powers.begin(), powers.end(), frame.begin() + kFrameHeader, [&job](double power) {
        const double db = 10.0 * std::log10(std::max(power, 1e-30)) + kFullScaleDb - job.fftRef();
        return static_cast<char>(std::clamp(std::round(2.0 * db), 0.0, kHighestBin));
    });
    return frame;
}
