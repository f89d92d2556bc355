#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <array>
#include <cstdint>
#include <span>

/// The powers of all byte values above one offset, so that a spectrum costs no power function a bin. Belongs
/// to one stream, live or replayed.
class NVXQTCOMMON_EXPORT PowerTable
{
public:
    using Powers = std::array<double, 256>;

    /// pow(10, (value + offset) / 10) of one byte value; the sum is in single precision, all else in double.
    static double power(unsigned char value, float offset);
    /// The powers above `offset` (dB), by byte value. They hold until the next call, which makes them anew
    /// only for another offset.
    const Powers& powers(float offset);
    /// The sum of the powers of the values from `minBin` to `maxBin`, as far as there are such bins and
    /// FFT_Params_FFT has them.
    double sum(std::span<const unsigned char> values, float offset, int32_t minBin, int32_t maxBin);
    /// Level of a sum of powers in dB; 0 for 1e-9 or less.
    static double level(double power);

private:
    Powers m_powers{};
    float m_offset = 0.0F;
    bool m_isMade = false;
};
