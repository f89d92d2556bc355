#pragma once

#include "NvxQtSimulator/SignalSource.h"

#include <complex>
#include <cstdint>
#include <vector>

/// Makes the spectra of a simulated recorder out of its signal: power of a Hann-windowed transform, averaged,
/// one byte a bin in half dB above a reference level.
class SpectrumMaker
{
public:
    /// `points`, a power of two from 128 to 16384, and `step` points between transforms.
    SpectrumMaker(const SignalSettings& signal, uint32_t sampleRate, unsigned points, unsigned step);

    /// Points that go into one spectrum; where more are wanted, fewer transforms are spread over their time.
    static constexpr unsigned kMaxPoints = 65536;

    /// points / 2 bins of the samples from `first` on, averaged over `accum` transforms, at least 1. A bin is
    /// 2 x (level in dBFS - `referenceDb`), kept within 0 to 255; a sine wave of full scale has 0 dBFS.
    std::vector<uint8_t> bins(uint64_t first, unsigned accum, double referenceDb);
    /// The same as powers: a sine wave of full scale in the middle of a bin gives that bin 1.
    std::vector<double> powers(uint64_t first, unsigned accum);

private:
    void transform();

    SignalSource m_source;
    unsigned m_points;
    unsigned m_step;
    std::vector<double> m_window;
    std::vector<int32_t> m_samples;
    std::vector<std::complex<double>> m_work;
    std::vector<std::complex<double>> m_turns;
};
