#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <array>
#include <cstddef>
#include <cstdint>

/// Process-wide set-up of spectra: 32-bit words that are read by position. Doubles lie over two words (2 and
/// 3, 4 and 5, 6 and 7) in host order. Not guarded: write it before threads read it.
class NVXQTCOMMON_EXPORT FftParams
{
public:
    static constexpr size_t kWordCount = 17;

    /// fftLength 1024, numAccum 1, overlapRatio 0.5, overlap 512, binDivisor 2, fraction 0.5, numBins 512.
    FftParams();

    uint32_t word(size_t index) const { return m_words.at(index); }
    void setWord(size_t index, uint32_t value) { m_words.at(index) = value; }

    double binDivisor() const { return real(2); }
    void setBinDivisor(double value) { setReal(2, value); }
    /// Fraction of the sample rate that the spectrum covers.
    double fraction() const { return real(4); }
    void setFraction(double value) { setReal(4, value); }
    double overlapRatio() const { return real(6); }
    void setOverlapRatio(double value) { setReal(6, value); }
    uint32_t fftLength() const { return word(9); }
    void setFftLength(uint32_t value) { setWord(9, value); }
    uint32_t numAccum() const { return word(10); }
    void setNumAccum(uint32_t value) { setWord(10, value); }
    uint32_t overlapTotal() const { return word(11); }
    void setOverlapTotal(uint32_t value) { setWord(11, value); }
    /// Points between two spectra.
    uint32_t overlapLength() const { return word(12); }
    void setOverlapLength(uint32_t value) { setWord(12, value); }
    uint32_t overlapLength2() const { return word(13); }
    void setOverlapLength2(uint32_t value) { setWord(13, value); }
    uint32_t freshLength() const { return word(14); }
    void setFreshLength(uint32_t value) { setWord(14, value); }
    uint32_t overlapLength3() const { return word(15); }
    void setOverlapLength3(uint32_t value) { setWord(15, value); }
    uint32_t numBins() const { return word(16); }
    void setNumBins(uint32_t value) { setWord(16, value); }

private:
    double real(size_t firstWord) const;
    void setReal(size_t firstWord, double value);

    std::array<uint32_t, kWordCount> m_words{};
};

/// Spectra made from wave data.
extern NVXQTCOMMON_EXPORT FftParams FFT_Params_WAV;
/// Spectra made by the device.
extern NVXQTCOMMON_EXPORT FftParams FFT_Params_FFT;
