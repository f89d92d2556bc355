#pragma once

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

    int columns() const { return int(m_levels.size()); }
    /// Bins of a column, from 0 Hz to half of the sample rate.
    int bins() const { return int(m_length / 2); }
    /// dBFS in a bin; a sine wave of full scale has 0.
    float level(int column, int bin) const { return m_levels[size_t(column)][size_t(bin)]; }
    float highestLevel() const;

private:
    void addTransform(const std::vector<float>& samples, std::vector<double>& power);
    void transform();

    size_t m_length;
    std::vector<double> m_window;
    std::vector<std::complex<double>> m_turns;
    std::vector<std::complex<double>> m_work;
    std::vector<std::vector<float>> m_levels;
};
