#include "NvxQtCommon/streaming/NvxDataScale.h"

#include "NvxQtCommon/contract/stream/FftParams.h"

#include <algorithm>
#include <cmath>

static_assert(sizeof(NvxDataScale) == 6 * sizeof(uint32_t));

namespace {

constexpr double kTopRate = 512000.0;
constexpr double kOverlapShare = 0.8;

/// A length of 0, which nothing keeps out of the parameters, counts as 1.
double lengthOf(uint32_t points)
{
    return std::max(1U, points);
}

} // namespace

NvxDataScale::NvxDataScale()
{
    const double binWidth = 10.0 * std::log10(kTopRate / lengthOf(FFT_Params_WAV.fftLength()));
    binWidthDb = static_cast<float>(binWidth);
    powerCorrDb = static_cast<float>(
        10.0 * std::log10(lengthOf(FFT_Params_WAV.overlapLength()) * kOverlapShare) + binWidth);
}

float NvxDataScale::powerOffset() const
{
    switch (refType) {
    case RefDevice:
    case RefPressure:
        return fullScaleDb - sensitivityDb;
    case RefPressureDensity:
        return fullScaleDb - sensitivityDb - binWidthDb;
    case RefVolts:
        return fullScaleDb;
    case RefVoltsDensity:
        return fullScaleDb - binWidthDb;
    }
    return fullScaleDb;
}
