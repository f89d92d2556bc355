#pragma once

#include <cstdint>

/// What the levels of spectra refer to.
enum eReferenceType : int32_t {
    RefDevice = 0,
    /// dB re 1 µPa.
    RefPressure = 1,
    /// dB re 1 µPa²/Hz.
    RefPressureDensity = 2,
    /// dB re 1 V.
    RefVolts = 3,
    /// dB re 1 V²/Hz.
    RefVoltsDensity = 4,
};
