#pragma once

#include <QDir>
#include <QFile>

/// The lines of all diaries in a folder, those behind the opening line first: where the day in UTC is another
/// one than that of the device, that line has a file of its own.
inline QStringList diaryLines(const QString& folder)
{
    QStringList lines;
    for (const QFileInfo& info : QDir(folder).entryInfoList({QStringLiteral("VEEpoch_*.txt")}, QDir::Files)) {
        QFile file(info.filePath());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        const QStringList more =
            QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        const bool isOpening = !more.isEmpty() && more.first().endsWith(QStringLiteral("Logging Started"));
        lines = isOpening ? more + lines : lines + more;
    }
    return lines;
}
