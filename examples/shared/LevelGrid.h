#pragma once

#include <QString>

#include <vector>

/// Levels over time and frequency, in columns of equal length in time.
struct LevelGrid
{
    /// One level a bin, from the lowest frequency on; a column without any stands for a time of which nothing
    /// is known.
    std::vector<std::vector<float>> columns;
    int bins = 0;
    double seconds = 0.0;   ///< of all columns
    double kilohertz = 0.0; ///< where the highest bin ends
    QString unit;           ///< of the levels
};
