#include "NvxQtCommon/contract/base/NvxLog.h"

#include <QDebug>
#include <QString>

namespace {

void writeToQtLog(NvxLogLevel level, const std::string& text)
{
    if (level == NvxLogLevel::Warning)
        qWarning().noquote() << QString::fromStdString(text);
    else
        qDebug().noquote() << QString::fromStdString(text);
}

// Whoever loads the library gets the lines of the contract room in Qt's log.
const NvxLogSink kSinkBefore = setNvxLogSink(writeToQtLog);

} // namespace
