#pragma once

#include "NvxQtCommon/contract/base/Export.h"

class QSettings;
class QString;

/// Frequency range of the signal power figure, for spectra made from waves and for those that the device
/// makes, and the bins that it covers. Rates and frequencies are in Hz; any 32-bit number is taken. A plain
/// value of the application, and of each stream that was handed one; it reads the process-wide FFT_Params_WAV
/// and FFT_Params_FFT.
class NVXQTCOMMON_EXPORT CSignalPowerSettings
{
public:
    int smplRangeWave() const { return m_wave.rate; }
    int smplRangeFFT() const { return m_fft.rate; }
    int minFreqWave() const { return m_wave.minFreq; }
    int& minFreqWave() { return m_wave.minFreq; }
    void setMinFreqWave(int frequency) { m_wave.minFreq = frequency; }
    int maxFreqWave() const { return m_wave.maxFreq; }
    int& maxFreqWave() { return m_wave.maxFreq; }
    void setMaxFreqWave(int frequency) { m_wave.maxFreq = frequency; }
    int minFreqFFT() const { return m_fft.minFreq; }
    int& minFreqFFT() { return m_fft.minFreq; }
    void setMinFreqFFT(int frequency) { m_fft.minFreq = frequency; }
    int maxFreqFFT() const { return m_fft.maxFreq; }
    int& maxFreqFFT() { return m_fft.maxFreq; }
    void setMaxFreqFFT(int frequency) { m_fft.maxFreq = frequency; }
    /// Width of a bin, rounded to the nearest whole Hz.
    int freqResWave() const { return m_wave.freqRes; }
    int freqResFFT() const { return m_fft.freqRes; }
    /// Exact width of a bin. Not stored: 0 until setRates().
    double dFreqResWave() const { return m_wave.dFreqRes; }
    double dFreqResFFT() const { return m_fft.dFreqRes; }
    bool isEnabled() const { return m_enabled; }
    void setEnabled(bool enabled) { m_enabled = enabled; }
    /// True when both ranges are to be the same wherever both rates are.
    bool isSameRanges() const { return m_sameRanges; }
    void setSameRanges(bool same) { m_sameRanges = same; }

    /// Takes the sample rates: a changed one resets its range to the whole band, one whose band ends below
    /// the range clips it.
    void setRates(int waveRate, int fftRate, bool enabled);
    /// Sets the range to the whole band of the rate.
    void setDefWave();
    void setDefFFT();

    /// First bin of the range; 0 while disabled or without setRates().
    int getMinBinIndWave() const { return minBin(m_wave); }
    /// Last bin of the range; `fallback` while disabled or without setRates().
    int getMaxBinIndWave(int fallback) const { return maxBin(m_wave, fallback); }
    int getMinBinIndFFT() const { return minBin(m_fft); }
    int getMaxBinIndFFT(int fallback) const { return maxBin(m_fft, fallback); }

    void save(QSettings* store, const QString& group) const;
    /// A value that is missing loads as 0 or false.
    void load(QSettings* store, const QString& group);

    bool operator==(const CSignalPowerSettings&) const = default;

private:
    struct Range
    {
        int rate = 0;
        int minFreq = 0;
        int maxFreq = 0;
        int freqRes = 0;
        double dFreqRes = 0.0;

        bool operator==(const Range&) const = default;
    };

    template <class Self, class Each> static void forEachValue(Self& self, const Each& each);
    int minBin(const Range& range) const;
    int maxBin(const Range& range, int fallback) const;
    bool hasBins(const Range& range) const;

    Range m_wave;
    Range m_fft;
    bool m_enabled = true;
    bool m_sameRanges = true;
};
