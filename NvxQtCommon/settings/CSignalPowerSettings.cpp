#include "NvxQtCommon/settings/CSignalPowerSettings.h"

#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/settings/SettingsStore.h"

#include <cmath>
#include <limits>

namespace {

enum Key {
    SmplRangeWave,
    SmplRangeFFT,
    MinFreqWave,
    MaxFreqWave,
    MinFreqFFT,
    MaxFreqFFT,
    FreqResWave,
    FreqResFFT,
    Enabled,
    SameRanges,
};

const SettingsKeys& keys()
{
    static const SettingsKeys names{
        {SmplRangeWave, QStringLiteral("SmplRangeWave")},
        {SmplRangeFFT, QStringLiteral("SmplRangeFFT")},
        {MinFreqWave, QStringLiteral("MinFreqWave")},
        {MaxFreqWave, QStringLiteral("MaxFreqWave")},
        {MinFreqFFT, QStringLiteral("MinFreqFFT")},
        {MaxFreqFFT, QStringLiteral("MaxFreqFFT")},
        {FreqResWave, QStringLiteral("FreqResWave")},
        {FreqResFFT, QStringLiteral("FreqResFFT")},
        {Enabled, QStringLiteral("Enabled")},
        {SameRanges, QStringLiteral("SameRanges")},
    };
    return names;
}

/// Truncates, and stays within 32 bits whatever was stored; NaN gives 0.
int toInt(double value)
{
    using Limits = std::numeric_limits<int>;
    if (std::isnan(value))
        return 0;
    if (value <= Limits::min())
        return Limits::min();
    return value >= Limits::max() ? Limits::max() : static_cast<int>(value);
}

template <class Range> void takeRate(Range& range, int rate)
{
    if (rate == range.rate)
        return;
    range.rate = rate;
    range.minFreq = 0;
    range.maxFreq = rate;
}

template <class Range> void fitToBand(Range& range, const FftParams& params)
{
    const double top = range.rate * params.fraction();
    range.dFreqRes = params.numBins() != 0 ? top / params.numBins() : 0.0;
    range.freqRes = toInt(std::round(range.dFreqRes));
    if (top < range.minFreq)
        range.minFreq = 0;
    if (top < range.maxFreq)
        range.maxFreq = toInt(top);
    if (range.maxFreq <= range.minFreq) {
        range.minFreq = 0;
        range.maxFreq = toInt(top);
    }
}

template <class Range> void takeWholeBand(Range& range, const FftParams& params)
{
    range.minFreq = 0;
    range.maxFreq = toInt(range.rate * params.fraction());
}

} // namespace

template <class Self, class Each> void CSignalPowerSettings::forEachValue(Self& self, const Each& each)
{
    each(SmplRangeWave, self.m_wave.rate);
    each(SmplRangeFFT, self.m_fft.rate);
    each(MinFreqWave, self.m_wave.minFreq);
    each(MaxFreqWave, self.m_wave.maxFreq);
    each(MinFreqFFT, self.m_fft.minFreq);
    each(MaxFreqFFT, self.m_fft.maxFreq);
    each(FreqResWave, self.m_wave.freqRes);
    each(FreqResFFT, self.m_fft.freqRes);
    each(Enabled, self.m_enabled);
    each(SameRanges, self.m_sameRanges);
}

void CSignalPowerSettings::save(QSettings* store, const QString& group) const
{
    forEachValue(*this, SettingsWriter(store, group, keys()));
}

void CSignalPowerSettings::load(QSettings* store, const QString& group)
{
    forEachValue(*this, SettingsReader(store, group, keys()));
}

void CSignalPowerSettings::setRates(int waveRate, int fftRate, bool enabled)
{
    takeRate(m_wave, waveRate);
    takeRate(m_fft, fftRate);
    m_enabled = enabled;
    fitToBand(m_wave, FFT_Params_WAV);
    fitToBand(m_fft, FFT_Params_FFT);
    if (waveRate != fftRate) {
        m_sameRanges = false;
    } else if (m_sameRanges && enabled) {
        m_fft.minFreq = m_wave.minFreq;
        m_fft.maxFreq = m_wave.maxFreq;
    }
}

void CSignalPowerSettings::setDefWave()
{
    takeWholeBand(m_wave, FFT_Params_WAV);
}

void CSignalPowerSettings::setDefFFT()
{
    takeWholeBand(m_fft, FFT_Params_FFT);
}

bool CSignalPowerSettings::hasBins(const Range& range) const
{
    constexpr double kLeastWidth = 0.000001;
    return m_enabled && range.dFreqRes > kLeastWidth;
}

int CSignalPowerSettings::minBin(const Range& range) const
{
    return hasBins(range) ? toInt(range.minFreq / range.dFreqRes) : 0;
}

int CSignalPowerSettings::maxBin(const Range& range, int fallback) const
{
    return hasBins(range) ? toInt(range.maxFreq / range.dFreqRes) : fallback;
}
