#include "NvxQtCommon/logging/NvxClickLogger.h"

#include "NvxQtCommon/contract/recording/DetectorData.h"

NvxClickLogger::NvxClickLogger(int maxNumRecs, QString logPath, QString filePrefix, QObject* parent)
    : NvxSpecLogger(maxNumRecs, std::move(logPath), std::move(filePrefix), parent)
{
    // Not the mode of the event headers: theirs stays 0, and the records alone tell the kind of the file.
    fileHeader()->setTypeMode(FftModeClick);
    setTimeType(false);
}

NvxClickLogger::~NvxClickLogger() = default;

void NvxClickLogger::handleClickReady(std::shared_ptr<SClickStatistics> statistics, HydDeviceId /*devId*/)
{
    const auto record = NvxClickData::fromStreamData(statistics);
    if (!record)
        return;
    record->setComment(commentText());
    logRecord(*record);
}
