#include "shared/LevelColours.h"

#include <algorithm>
#include <array>

QRgb LevelColours::at(float level) const
{
    static constexpr std::array<std::array<float, 3>, 6> kStops{
        {{0, 0, 20}, {45, 10, 100}, {130, 25, 120}, {210, 60, 80}, {250, 145, 40}, {255, 250, 180}}};
    const float place = std::clamp((level - m_top) / m_range + 1.0F, 0.0F, 1.0F) * (kStops.size() - 1);
    const size_t stop = std::min(size_t(place), kStops.size() - 2);
    const float part = place - float(stop);
    const auto mix = [&](size_t c) {
        return int(kStops[stop][c] + part * (kStops[stop + 1][c] - kStops[stop][c]));
    };
    return qRgb(mix(0), mix(1), mix(2));
}
