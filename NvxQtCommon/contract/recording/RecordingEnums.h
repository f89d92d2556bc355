#pragma once

#include <cstdint>

/// Kind of a file of the spectrum family, one byte.
enum FFTMode : uint8_t {
    FftModeSpectrum = 0,
    FftModeWavStats = 2,
    FftModeImpulse = 4,
    FftModeAccMag = 6,
    FftModeBattery = 7,
    FftModeWavTime = 8, ///< timing records of a wave stream
    FftModeClick = 9,
    FftModeNoise = 10, ///< calibration spectra of the noise filter
};

/// Wave logging mode of the application, one byte.
enum WAVEMode : uint8_t {
    WaveModeOff = 0,
    WaveModeLog = 1,
};

/// What a sensor log holds.
enum SENSOR_LOG_TYPE : uint8_t {
    SensorLogAccMag = 0,
    SensorLogBattery = 1,
};

/// Error of a wave writer; 0 is health.
enum WavWriteErr : uint8_t {
    WavErrNone = 0,
    WavErrCannotOpen = 1,   ///< the file could not be made in the directory
    WavErrWriteFailed = 2,  ///< samples could not be written
    WavErrDiskFull = 3,     ///< there was no room for the samples or the header
    WavErrHeaderUpdate = 4, ///< the sizes in the header could not be brought up to date
    WavErrBadFormat = 5,    ///< samples that don't fit the file, or a format that no wave file holds
};

/// What reading the header of a wave file came to; 0 is good.
enum WavHeaderErr : uint8_t {
    WavHeaderGood = 0,
    WavHeaderNoWave = 1,    ///< not a wave file
    WavHeaderNoInfo = 2,    ///< no information chunk ahead of the samples; the header is there nevertheless
    WavHeaderTruncated = 3, ///< it isn't whole, or nothing was read so far
    WavHeaderBadFormat = 4, ///< samples that can't be played
    WavHeaderBadSize = 5,   ///< sizes that can't be
};

/// Error of a spectrum writer; 0 is health.
enum SpecWriteErr : uint8_t {
    SpecErrNone = 0,
    SpecErrCannotOpen = 1,
    SpecErrWriteFailed = 2,
    SpecErrDiskFull = 3,
};
