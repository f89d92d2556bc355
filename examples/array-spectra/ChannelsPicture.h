#pragma once

#include "shared/LevelColours.h"
#include "shared/LevelGrid.h"

#include <QImage>
#include <QPainter>
#include <QString>

#include <vector>

/// What one channel of an array shows.
struct ChannelStrip
{
    QString name;
    LevelGrid grid;
};

/// Draws the spectra of all channels of an array as one picture: a strip for each, over the same time, from
/// frequency 0 at its lower edge to the highest one at its upper edge.
class ChannelsPicture
{
public:
    static constexpr int kStripWidth = 1000;

    /// There is a strip at least, and each has bins; they outlive the picture.
    explicit ChannelsPicture(const std::vector<ChannelStrip>& strips);

    QImage draw(const QString& title) const;
    /// Pixels from one strip to the next, a white one between among them.
    int stripHeight() const { return m_stripHeight; }

private:
    void drawStrip(QPainter& painter, const ChannelStrip& strip, int top) const;
    void drawTimeAxis(QPainter& painter, int top) const;
    void drawScale(QPainter& painter) const;

    const std::vector<ChannelStrip>& m_strips;
    LevelColours m_colours;
    int m_stripHeight;
    double m_seconds = 0.0; ///< of the longest strip
};
