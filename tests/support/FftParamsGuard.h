#pragma once

#include "NvxQtCommon/contract/stream/FftParams.h"

/// Puts the process-wide parameters of the spectra back to what they were when it was made.
class FftParamsGuard
{
public:
    FftParamsGuard() = default;
    ~FftParamsGuard() { restore(); }
    FftParamsGuard(const FftParamsGuard&) = delete;
    FftParamsGuard& operator=(const FftParamsGuard&) = delete;

    void restore() const
    {
        FFT_Params_WAV = m_wave;
        FFT_Params_FFT = m_fft;
    }

private:
    FftParams m_wave = FFT_Params_WAV;
    FftParams m_fft = FFT_Params_FFT;
};
