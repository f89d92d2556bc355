#pragma once

#include "shared/LevelGrid.h"

#include <QString>

/// What was found in a spectrum file.
struct SpectrumLevels
{
    LevelGrid grid;
    QString title;
    int oddLines = 0; ///< lines that hold no spectrum like the others
    QString error;    ///< why there is nothing; empty when all is well
};

/// Reads a spectrum file into `columns` columns of equal length in time; each is the mean power of the
/// spectra that fall into it. Where no spectrum was recorded columns are empty.
SpectrumLevels readSpectrumLevels(const QString& path, int columns);
