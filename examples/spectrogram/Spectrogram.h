#pragma once

#include "shared/LevelGrid.h"
#include "shared/WaveFile.h"

#include <complex>
#include <vector>

/// Levels of a recording over time and frequency.
class Spectrogram
{
public:
    /// Transforms one channel of `file` into at most `columns` columns of equal length in time. Each column
    /// is the mean power of Hann-windowed transforms that are spread over its time.
    Spectrogram(WaveFile& file, unsigned channel, int columns);

    /// Levels in dBFS from 0 Hz to half of the sample rate; a sine wave of full scale has 0.
    const LevelGrid& levels() const { return m_levels; }

private:
    void addTransform(const std::vector<float>& samples, std::vector<double>& power);
    void transform();

    size_t m_length;
    std::vector<double> m_window;
    std::vector<std::complex<double>> m_turns;
    std::vector<std::complex<double>> m_work;
    LevelGrid m_levels;
};
