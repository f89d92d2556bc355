#pragma once

#include <QDateTime>
#include <QString>

/// A time like 2024-02-29T12:40:00. Without an offset it is UTC, as names of files are. Invalid for what is
/// none.
inline QDateTime utcTimeOf(const QString& text)
{
    QDateTime time = QDateTime::fromString(text, Qt::ISODate);
    if (time.timeSpec() == Qt::LocalTime)
        time.setTimeSpec(Qt::UTC);
    return time.toUTC();
}
