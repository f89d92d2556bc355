#include "NvxQtCommon/streaming/PowerTable.h"

#include "NvxQtCommon/contract/stream/FftParams.h"

#include <algorithm>
#include <cmath>

double PowerTable::power(unsigned char value, float offset)
{
    const float level = static_cast<float>(value) + offset;
    return std::pow(10.0, static_cast<double>(level) * 0.1);
}

const PowerTable::Powers& PowerTable::powers(float offset)
{
    if (!m_isMade || offset != m_offset) {
        for (size_t value = 0; value < m_powers.size(); ++value)
            m_powers[value] = power(static_cast<unsigned char>(value), offset);
        m_offset = offset;
        m_isMade = true;
    }
    return m_powers;
}

double PowerTable::sum(std::span<const unsigned char> values, float offset, int32_t minBin, int32_t maxBin)
{
    const Powers& table = powers(offset);
    const auto size = static_cast<int64_t>(values.size());
    const int64_t end = std::min({size, int64_t{FFT_Params_FFT.numBins()}, int64_t{maxBin} + 1});
    double power = 0.0;
    for (int64_t bin = std::max(0, minBin); bin < end; ++bin)
        power += table[values[static_cast<size_t>(bin)]];
    return power;
}

double PowerTable::level(double power)
{
    constexpr double kLeastPower = 1e-9;
    return power > kLeastPower ? 10 * std::log10(power) : 0.0;
}
