#include "NvxQtCommon/settings/OutputFolder.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>

QString defaultOutputFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + QStringLiteral("/Nerivox/") +
           QFileInfo(QCoreApplication::applicationFilePath()).baseName();
}
