#include "NvxQtCommon/logging/NvxImpLogger.h"

#include "NvxQtCommon/contract/recording/DetectorData.h"

NvxImpLogger::NvxImpLogger(int maxNumRecs, QString logPath, QString filePrefix, QObject* parent)
    : NvxSpecLogger(maxNumRecs, std::move(logPath), std::move(filePrefix), parent)
{
    // Not the mode of the event headers: theirs stays 0, and the records alone tell the kind of the file.
    fileHeader()->setTypeMode(FftModeImpulse);
    setTimeType(false);
}

NvxImpLogger::~NvxImpLogger() = default;

void NvxImpLogger::handleImpReady(std::shared_ptr<SImpulseStatistics> statistics, HydDeviceId /*devId*/)
{
    const auto record = NvxImpulseData::fromStreamData(statistics);
    if (!record)
        return;
    record->setComment(commentText());
    logRecord(*record);
}
