#pragma once

#include "shared/LevelColours.h"
#include "shared/LevelGrid.h"

#include <QImage>
#include <QPainter>
#include <QRect>
#include <QString>

/// Draws levels with their axes: time in seconds, frequency in kHz, and the colours of the levels. Times of
/// which nothing is known are grey.
class LevelPicture
{
public:
    static constexpr int kPlotWidth = 1000;
    static constexpr int kPlotHeight = 480;

    /// `grid` has bins, a length in time and a highest frequency, and outlives the picture.
    explicit LevelPicture(const LevelGrid& grid);

    QImage draw(const QString& title) const;

private:
    void drawLevels(QPainter& painter) const;
    void drawTimeAxis(QPainter& painter) const;
    void drawFrequencyAxis(QPainter& painter) const;
    void drawScale(QPainter& painter) const;

    const LevelGrid& m_grid;
    LevelColours m_colours;
};
