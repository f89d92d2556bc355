#include "NvxQtCommon/contract/stream/FftParams.h"

#include <bit>

FftParams FFT_Params_WAV;
FftParams FFT_Params_FFT;

FftParams::FftParams()
{
    setBinDivisor(2.0);
    setFraction(0.5);
    setOverlapRatio(0.5);
    setFftLength(1024);
    setNumAccum(1);
    setOverlapTotal(512);
    setOverlapLength(512);
    setOverlapLength2(512);
    setFreshLength(512);
    setOverlapLength3(512);
    setNumBins(512);
}

double FftParams::real(size_t firstWord) const
{
    return std::bit_cast<double>(std::array<uint32_t, 2>{m_words.at(firstWord), m_words.at(firstWord + 1)});
}

void FftParams::setReal(size_t firstWord, double value)
{
    const auto words = std::bit_cast<std::array<uint32_t, 2>>(value);
    m_words.at(firstWord) = words[0];
    m_words.at(firstWord + 1) = words[1];
}
