#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/settings/eReferenceType.h"

/// How the byte values of a device's spectra become levels: six 32-bit words. A plain value.
struct NVXQTCOMMON_EXPORT NvxDataScale
{
    /// Takes the width of a bin and the correction from FFT_Params_WAV.
    NvxDataScale();

    /// What is added to a byte value for total power, in dB; for a reference type that is none of the five,
    /// full scale alone.
    float powerOffset() const;

    /// dB.
    float gainDb = 3.0F;
    /// dB re 1 V/µPa.
    float sensitivityDb = -170.0F;
    /// Level of byte value 0, dB.
    float fullScaleDb = -180.0F;
    /// dB re 1 Hz.
    float binWidthDb;
    /// dB.
    float powerCorrDb;
    eReferenceType refType = RefDevice;
};
