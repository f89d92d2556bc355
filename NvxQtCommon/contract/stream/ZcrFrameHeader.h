#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstddef>
#include <cstdint>
#include <span>

/// The header of a frame that an array controller pushes over its web socket: one spectrum of one channel.
/// docs/wire-protocol.md has the table. A plain record.
struct NVXQTCOMMON_EXPORT ZcrFrameHeader
{
    /// Bytes of the header; the bins follow it, one signed byte each.
    static constexpr size_t kSize = 32;

    uint8_t frameChannel = 0;        ///< channel number
    uint16_t frameSerial = 0;        ///< serial number of the channel's hydrophone
    uint16_t frameTemperature = 0;   ///< tenths of a degree Celsius
    uint32_t frameSequence = 0;      ///< running number of the frame
    uint16_t frameBandWidth = 0;     ///< bins of the spectrum
    int32_t frameFftRef = 0;         ///< reference level in dB
    uint32_t frameSampleRate = 0;    ///< Hz
    int16_t frameSensitivity = -170; ///< dB re 1 V/µPa
    uint16_t frameReserved = 0;      ///< kept and not interpreted
    uint16_t frameFftAccum = 0;      ///< accumulations
    uint16_t frameExtra = 0;         ///< kept and not interpreted
    uint16_t frameNumPts = 0;        ///< points of the transform

    /// Takes all fields from the first bytes of a frame, least significant byte first.
    void readFrom(std::span<const uint8_t, kSize> bytes);
};
