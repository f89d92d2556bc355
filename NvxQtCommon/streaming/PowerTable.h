#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <array>

/// The powers of all byte values above one offset, so that a spectrum costs no power function a bin. Belongs
/// to one stream adapter.
class NVXQTCOMMON_EXPORT PowerTable
{
public:
    using Powers = std::array<double, 256>;

    /// pow(10, (value + offset) / 10) of one byte value; the sum is in single precision, all else in double.
    static double power(unsigned char value, float offset);
    /// The powers above `offset` (dB), by byte value. They hold until the next call, which makes them anew
    /// only for another offset.
    const Powers& powers(float offset);

private:
    Powers m_powers{};
    float m_offset = 0.0F;
    bool m_isMade = false;
};
