#pragma once

#include "spectrogram/Spectrogram.h"

#include <QImage>
#include <QPainter>
#include <QRect>
#include <QString>

/// Draws a spectrogram with its axes: time in seconds, frequency in kHz, level in dBFS.
class SpectrogramPicture
{
public:
    static constexpr int kPlotWidth = 1000;
    static constexpr int kPlotHeight = 480;

    SpectrogramPicture(const Spectrogram& spectrogram, double seconds, double highestKilohertz);

    QImage draw(const QString& title) const;

private:
    QRgb colour(float level) const;
    void drawLevels(QPainter& painter) const;
    void drawTimeAxis(QPainter& painter) const;
    void drawFrequencyAxis(QPainter& painter) const;
    void drawScale(QPainter& painter) const;

    const Spectrogram& m_spectrogram;
    double m_seconds;
    double m_kilohertz;
    float m_top;
};
