#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstdint>
#include <string>

/// Kind of a stream, one byte.
enum HydStreamType : uint8_t {
    StreamWave = 1,
    StreamSpectrum = 2,
    StreamSensor = 3,
    StreamRawWave = 4,
    StreamEpoch = 5,     ///< text lines of trigger events
    StreamWaveScan = 16, ///< wave data out of scan messages, and out of replayed wave files
    StreamSpectrumScan = 17,
    StreamSensorScan = 18,
    StreamWaveFile = 32,
    StreamSpectrumFile = 33,
};

/// Bits that a sensor stream requests.
enum HydSensStreamType : uint16_t {
    SensTempHumidity = 1,
    SensAccMag = 2,
    SensTimeSync = 4,
    SensTimeBattery = 8,
    SensTriggers = 16,
};

/// Text of a stream type, such as "Waveform"; "Unknown" for any other value.
NVXQTCOMMON_EXPORT std::string streamTypeText(HydStreamType type);
/// Texts of the set bits in their fixed order, such as "_Temperature_Humidity_Triggers"; empty for none.
NVXQTCOMMON_EXPORT std::string sensStreamText(uint16_t bits);
/// True for 2, 17 and 33.
constexpr bool isSpectrumLike(HydStreamType type)
{
    return type == StreamSpectrum || type == StreamSpectrumScan || type == StreamSpectrumFile;
}
