#pragma once

#include <QString>

#include <optional>

/// What turns samples into sound pressure: voltage at full scale, gain and the hydrophone's sensitivity.
struct SoundScale
{
    double fullScaleVolts = 0.0;
    double gainDb = 0.0;
    double sensitivityDb = 0.0; ///< dB re 1 V/µPa
};

/// One line about a finished wave file: name, length, rate, format and the level of each channel. The level
/// is the effective value in dBFS, where a sine wave of full scale has 0, and in dB re 1 µPa if `scale` is
/// known. Starts with the reason when the file can't be read.
QString describeWaveFile(const QString& path, const std::optional<SoundScale>& scale);

/// One line about a finished text file: of spectra their number, their bins and the highest level with its
/// frequency, of others the number of readings.
QString describeTextFile(const QString& path);
