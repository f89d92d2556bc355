#include "NvxQtCommon/streaming/PowerTable.h"

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
