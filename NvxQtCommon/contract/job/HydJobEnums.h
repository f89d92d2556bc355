#pragma once

#include <cstdint>

/// Key of a job tag. The numbers follow the order of the getters of HydJobSettings.
enum JobTagKey : uint16_t {
    JobTagAuxFunc = 0,
    JobTagWavLogStartTime = 1,
    JobTagFftRate = 2,
    JobTagFftRef = 3,
    JobTagFftPoints = 4,
    JobTagFftPointsBtw = 5,
    JobTagFftProcType = 6,
    JobTagFftAccum = 7,
    JobTagFftWeight = 8,
    JobTagFftLogMode = 9,
    JobTagFftLogLen = 10,
    JobTagDutyCyclePeriod = 11,
    JobTagDutyCycleActive = 12,
    JobTagDutyCycleIgn = 13,
    JobTagWavRate = 14,
    JobTagWavDataFormat = 15,
    JobTagWavBitDepth = 16,
    JobTagWavGain = 17,
    JobTagWavByteOrder = 18,
    JobTagWavLogMode = 19,
    JobTagWavLogLen = 20,
    JobTagAuxMsg = 21,
    JobTagDeviceList = 0x8000,
};

/// A sample rate in Hz. Any number is a value; the enumeration gives the type its width.
enum SampRate : uint32_t {};
/// Function of the auxiliary pin, device's own numbers.
enum AuxPinFunc : uint16_t {};
/// Message on the auxiliary pin, device's own numbers.
enum AuxPinMsg : uint32_t {};
/// Kind of spectrum processing, device's own numbers.
enum HydFftProc : uint16_t {};
enum HydLogMode : uint16_t {
    LogOff = 0,
    LogOn = 1,
};
/// Format of the samples, device's own numbers.
enum HydWavDataFormat : uint8_t {};
/// Bits of a sample: 16, 24 or 32.
enum HydWavBitDepth : uint8_t {};
enum HydByteOrder : uint8_t {
    OrderLittleEndian = 0,
    OrderBigEndian = 1,
};
/// What a job setup message is about, as a number that passes through unread.
enum JobSetupType : uint16_t {
    JobSetupDefault = 20,
};
