#pragma once

#include <algorithm>
#include <cmath>

/// A step of 1, 2 or 5 times a power of ten that divides `range` into at most `most` parts.
inline double axisStep(double range, int most)
{
    const double step = std::pow(10.0, std::floor(std::log10(std::max(range, 1e-6) / most)));
    for (const double factor : {1.0, 2.0, 5.0, 10.0})
        if (range / (step * factor) <= most)
            return step * factor;
    return step * 10.0;
}
