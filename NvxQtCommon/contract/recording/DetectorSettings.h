#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstdint>

// Settings of the detectors, as plain records. Levels are whole dB re 1 µPa (sound exposure levels dB re 1
// µPa²s).

/// How impulses are found.
struct NVXQTCOMMON_EXPORT SImpDetectSettings
{
    int32_t detectThresh = 160;  ///< peak level that begins an impulse
    int32_t resetThresh = 150;   ///< peak level under which it is over
    int32_t preDetect = 50;      ///< ms kept from before the beginning
    int32_t postDetect = 200;    ///< ms kept from behind the end
    int32_t selThresh = 140;     ///< sound exposure level under which an impulse is not reported
    int32_t splBandThresh = 120; ///< level in the band under which an impulse is not reported
    bool useAmbientLvl = false;  ///< the thresholds count from the ambient level
    int32_t ambientLvl = 100;    ///< the ambient level
    int32_t maxImpTime = 1000;   ///< ms, the longest impulse

    friend bool operator==(const SImpDetectSettings&, const SImpDetectSettings&) = default;
};

/// A recursive or finite filter in front of a detector.
struct NVXQTCOMMON_EXPORT SIRFilterPar
{
    int32_t irType = 0; ///< 0 infinite, 1 finite impulse response
    uint32_t order = 4;
    uint32_t decRate = 1;          ///< decimation
    float cutOffFreq = 10.0F;      ///< Hz
    float centerFreq = 1000.0F;    ///< Hz
    float passBandRipple = 0.1F;   ///< dB
    float stopBandAtten = 60.0F;   ///< dB
    int32_t type = 0;              ///< kind of the design
    int32_t bandType = 0;          ///< low, high or band pass
    int32_t length = 0;            ///< taps of a finite response
    float fracSampleOffset = 0.0F; ///< samples
    float coefScaleFactor = 1.0F;  ///< on all coefficients
    int32_t seCutOffFreq = 0;      ///< Hz
    bool decRateCros = false;      ///< the decimation follows the crossover
    bool isCDBlocker = false;      ///< a filter against the constant part is on

    friend bool operator==(const SIRFilterPar&, const SIRFilterPar&) = default;
};

/// How sound exposure is measured.
struct NVXQTCOMMON_EXPORT SSELSettings
{
    int32_t timeInterval = 60;      ///< s between two figures
    int32_t timeWindow = 1;         ///< length of the window, in timeWindowUnits
    int32_t maxKeepInterv = 24;     ///< hours that are summed
    bool infinitKeepInterv = false; ///< summed without end
    int32_t pkThresh = 180;         ///< peak level that is counted
    int32_t timeWindowUnits = 0;    ///< 0 seconds, 1 minutes, 2 hours

    void setDefault() { *this = SSELSettings(); }

    friend bool operator==(const SSELSettings&, const SSELSettings&) = default;
};
