#include "NvxQtCommon/logging/NvxWavStatsLogger.h"

#include "NvxQtCommon/contract/recording/DetectorData.h"

NvxWavStatsLogger::NvxWavStatsLogger(int maxNumRecs, QString logPath, QString filePrefix, QObject* parent)
    : NvxSpecLogger(maxNumRecs, std::move(logPath), std::move(filePrefix), parent)
{
    // Not the mode of the event headers: theirs stays 0, and the records alone tell the kind of the file.
    fileHeader()->setTypeMode(FftModeWavStats);
}

NvxWavStatsLogger::~NvxWavStatsLogger() = default;

void NvxWavStatsLogger::handleStatsReady(std::shared_ptr<SWavStatistics> statistics, HydDeviceId /*devId*/)
{
    if (const auto record = NvxSpectrumStatsData::fromStreamData(statistics))
        logRecord(*record);
}
