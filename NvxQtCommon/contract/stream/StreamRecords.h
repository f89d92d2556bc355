#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstddef>
#include <cstdint>

// Raw records that chunks are built from. Fields that no comment explains are kept and not interpreted. Every
// record is zeroed before it is filled; the first four bytes stay zero. The records of sensor chunks are
// exported because a hidden template argument hides the chunk class made of it.

struct stKEY_CHUNK_V1
{
    uint8_t head[4] = {};
    uint32_t time = 0; ///< seconds since the epoch
    uint32_t seqHigh = 0;
    uint32_t seqLow = 0;
    uint8_t reserved16 = 0;
    uint8_t trigNum = 0;   ///< epoch payloads only
    uint8_t trigState = 0; ///< epoch payloads only
    uint8_t lastEvent = 0; ///< 1 on the block that closes a second of samples or a file
};
static_assert(sizeof(stKEY_CHUNK_V1) == 20 && offsetof(stKEY_CHUNK_V1, time) == 4 &&
              offsetof(stKEY_CHUNK_V1, seqHigh) == 8 && offsetof(stKEY_CHUNK_V1, seqLow) == 12 &&
              offsetof(stKEY_CHUNK_V1, trigNum) == 17 && offsetof(stKEY_CHUNK_V1, trigState) == 18);

struct stDEVICE_CHUNK_V1
{
    uint8_t head[4] = {};
    uint8_t devType = 0;
    uint8_t reserved5 = 0;
    uint16_t hostDevNo = 0;
    uint16_t serial = 0;
    int16_t sensitivity = 0; ///< tenths of a dB re 1 V/µPa
    uint8_t one = 1;         ///< always 1
    uint8_t reserved13[3] = {};
};
static_assert(sizeof(stDEVICE_CHUNK_V1) == 16 && offsetof(stDEVICE_CHUNK_V1, devType) == 4 &&
              offsetof(stDEVICE_CHUNK_V1, serial) == 8 && offsetof(stDEVICE_CHUNK_V1, sensitivity) == 10 &&
              offsetof(stDEVICE_CHUNK_V1, one) == 12);

struct stSTATUS_CHUNK_V0
{
    uint8_t head[4] = {};
    int16_t temperature = 0; ///< tenths of a degree Celsius
    int16_t humidity = 0;    ///< tenths of a percent
    uint8_t extra = 0;       ///< third value of the status
    uint8_t rollover = 0;    ///< counts the recorder's own file changes; 0 means none
    uint16_t flags = 0;      ///< 256 on array streams
    uint8_t reserved12[12] = {};
};
static_assert(sizeof(stSTATUS_CHUNK_V0) == 24 && offsetof(stSTATUS_CHUNK_V0, temperature) == 4 &&
              offsetof(stSTATUS_CHUNK_V0, humidity) == 6 && offsetof(stSTATUS_CHUNK_V0, flags) == 10);

struct stFFT_SETUP_CHUNK_V1
{
    uint8_t head[4] = {};
    uint32_t sampleRate = 0; ///< Hz
    uint16_t points = 0;
    int16_t refLevel = 0; ///< dB, signed
    uint16_t procType = 0;
    uint16_t pointsBtw = 0;
    uint16_t accum = 0;
    uint16_t weight = 0;
    uint8_t one = 1; ///< always 1
    uint8_t reserved21[3] = {};
};
static_assert(sizeof(stFFT_SETUP_CHUNK_V1) == 24 && offsetof(stFFT_SETUP_CHUNK_V1, sampleRate) == 4 &&
              offsetof(stFFT_SETUP_CHUNK_V1, points) == 8 && offsetof(stFFT_SETUP_CHUNK_V1, refLevel) == 10 &&
              offsetof(stFFT_SETUP_CHUNK_V1, procType) == 12 &&
              offsetof(stFFT_SETUP_CHUNK_V1, pointsBtw) == 14 &&
              offsetof(stFFT_SETUP_CHUNK_V1, accum) == 16 && offsetof(stFFT_SETUP_CHUNK_V1, weight) == 18 &&
              offsetof(stFFT_SETUP_CHUNK_V1, one) == 20);

struct stWAVE_SETUP_CHUNK_V0
{
    uint8_t head[4] = {};
    uint32_t sampleRate = 0; ///< Hz
    int16_t gain = 0;        ///< dB
    uint8_t format = 0;      ///< low four bits bytes per sample, bit 7 set for big-endian
    uint8_t one = 1;         ///< always 1
};
static_assert(sizeof(stWAVE_SETUP_CHUNK_V0) == 12 && offsetof(stWAVE_SETUP_CHUNK_V0, sampleRate) == 4 &&
              offsetof(stWAVE_SETUP_CHUNK_V0, format) == 10 && offsetof(stWAVE_SETUP_CHUNK_V0, one) == 11);

struct stAMPLITUDE_CHUNK_V0
{
    uint8_t byte4Head[4] = {};
    uint8_t isArray = 0; ///< 1 where the array stream fills it
    uint8_t reserved5[2] = {};
    uint8_t bitsPerSample = 0;
    int32_t maxValue = 0;      ///< largest sample value
    int32_t minValue = 0;      ///< smallest sample value
    int32_t maxMicrovolts = 0; ///< voltage at the largest value
    int32_t minMicrovolts = 0; ///< voltage at the smallest value
};
static_assert(sizeof(stAMPLITUDE_CHUNK_V0) == 24 && offsetof(stAMPLITUDE_CHUNK_V0, isArray) == 4 &&
              offsetof(stAMPLITUDE_CHUNK_V0, bitsPerSample) == 7 &&
              offsetof(stAMPLITUDE_CHUNK_V0, maxValue) == 8 &&
              offsetof(stAMPLITUDE_CHUNK_V0, minValue) == 12 &&
              offsetof(stAMPLITUDE_CHUNK_V0, maxMicrovolts) == 16 &&
              offsetof(stAMPLITUDE_CHUNK_V0, minMicrovolts) == 20);

struct stHEADING_CHUNK_V0
{
    uint8_t head[4] = {};
    uint32_t time = 0;    ///< seconds since the epoch
    uint16_t heading = 0; ///< tenths of a degree, 0 to 3599
    int16_t pitch = 0;    ///< tenths of a degree
    int16_t roll = 0;     ///< tenths of a degree
    uint8_t reserved14[2] = {};
};
static_assert(sizeof(stHEADING_CHUNK_V0) == 16);

/// Battery state in a sensor message.
struct NVXQTCOMMON_EXPORT stBATTERY_CHUNK_V0
{
    uint8_t head[4] = {};
    uint32_t time = 0; ///< seconds since the epoch
    uint16_t millivolts = 0;
    int16_t milliamperes = 0; ///< negative while charging
    uint8_t percent = 0;      ///< 0 to 100
    uint8_t state = 0;        ///< HydBattStatus
    int16_t temperature = 0;  ///< tenths of a degree Celsius
};
static_assert(sizeof(stBATTERY_CHUNK_V0) == 16);

/// Accelerometer and magnetometer in a sensor message.
struct NVXQTCOMMON_EXPORT stACC_MAG_CHUNK_V0
{
    uint8_t head[4] = {};
    int16_t acceleration[3] = {}; ///< x, y, z in thousandths of g
    int16_t magnetic[3] = {};     ///< x, y, z in tenths of a microtesla
};
static_assert(sizeof(stACC_MAG_CHUNK_V0) == 16);

/// Clock state in a sensor message.
struct NVXQTCOMMON_EXPORT stTIME_SYNC_CHUNK_V0
{
    uint8_t head[4] = {};
    uint32_t time = 0;    ///< seconds since the epoch
    int32_t offsetNs = 0; ///< offset to the time source
    uint16_t master = 0;  ///< serial number of the time source
    uint8_t state = 0;    ///< 0 free running, 1 synchronising, 2 locked
    uint8_t reserved15 = 0;
};
static_assert(sizeof(stTIME_SYNC_CHUNK_V0) == 16);

/// State of one trigger in a sensor message.
struct NVXQTCOMMON_EXPORT stTRIGGER_CHUNK_V0
{
    uint8_t head[4] = {};
    uint32_t time = 0; ///< seconds since the epoch
    uint8_t trigNum = 0;
    uint8_t trigState = 0;
    uint8_t reserved10[2] = {};
};
static_assert(sizeof(stTRIGGER_CHUNK_V0) == 12);
