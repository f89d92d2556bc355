#pragma once

#include <QString>

#include <cstdint>

/// How the examples name the files of a recorder: three letters and the serial number, in four digits or
/// more.
inline QString filePrefix(const char* letters, uint16_t serial)
{
    return QStringLiteral("%1%2").arg(QLatin1String(letters)).arg(serial, 4, 10, QLatin1Char('0'));
}
