#pragma once

#include "NvxQtCommon/contract/identity/HydDeviceId.h"

#include <cstdint>

// What detectors find in a wave stream, as plain records that the application fills in. Levels are dB re 1
// µPa, sound exposure levels dB re 1 µPa²s; silence has the level -infinity. Sample numbers run per channel
// over the whole stream, like the sequence of an event.

/// Levels of one span of time.
struct SWavStatistics
{
    uint64_t time = 0; ///< begin of the span, seconds since the epoch
    HydDeviceId devId;
    uint64_t startSample = 0;   ///< first sample of the span
    double duration = 0.0;      ///< s
    float splRms = 0.0F;        ///< level RMS
    float splPeak = 0.0F;       ///< highest absolute pressure
    float splPeakToPeak = 0.0F; ///< highest less lowest pressure
    float sel = 0.0F;           ///< sound exposure level of the span
    float selCumulative = 0.0F; ///< sound exposure level since the sum began
};

/// What impulses and clicks have in common.
struct SEventStatistics
{
    uint64_t time = 0; ///< begin, seconds since the epoch
    HydDeviceId devId;
    uint64_t startSample = 0;   ///< first sample of the event
    uint64_t peakSample = 0;    ///< sample of the highest absolute pressure
    uint64_t endSample = 0;     ///< first sample behind the event
    double duration = 0.0;      ///< s, from the first to the last sample
    double duration90 = 0.0;    ///< s, holding the middle 90 % of the energy
    float splRms = 0.0F;        ///< level RMS over the 90 % duration
    float splPeak = 0.0F;       ///< highest absolute pressure
    float splPeakToPeak = 0.0F; ///< highest less lowest pressure
    float sel = 0.0F;           ///< sound exposure level
    uint64_t start90Sample = 0; ///< where the middle 90 % of the energy begin
    uint64_t end90Sample = 0;   ///< first sample behind them
};

/// One impulse.
struct SImpulseStatistics : SEventStatistics
{
};

/// One click: an impulse of a source that is told by its spectrum.
struct SClickStatistics : SEventStatistics
{
    float peakFrequency = 0.0F; ///< Hz, of the highest bin
};
