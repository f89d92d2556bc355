#pragma once

#include <QColor>

/// The colours of levels: 100 dB below a top, from dark blue over violet and red to yellow, in even steps of
/// brightness.
class LevelColours
{
public:
    static constexpr float kRangeDb = 100.0F;
    /// What nothing is known of.
    static constexpr QRgb kUnknown = qRgb(225, 225, 225);

    /// `top` is the level of the brightest colour, `range` where the darkest one is below it; both in dB.
    explicit LevelColours(float top, float range = kRangeDb) : m_top(top), m_range(range) {}

    float top() const { return m_top; }
    float range() const { return m_range; }
    QRgb at(float level) const;

private:
    float m_top;
    float m_range;
};
