#pragma once

#include "NvxQtCommon/contract/recording/DetectorRecords.h"
#include "NvxQtCommon/logging/NvxSpecLogger.h"

/// Writes statistics of waves that the application computes, of whatever device. Owner and thread as
/// NvxSpecLogger.
class NVXQTCOMMON_EXPORT NvxWavStatsLogger : public NvxSpecLogger
{
    Q_OBJECT

public:
    NvxWavStatsLogger(int maxNumRecs, QString logPath, QString filePrefix, QObject* parent);
    ~NvxWavStatsLogger() override;

public Q_SLOTS:
    void handleStatsReady(std::shared_ptr<SWavStatistics> statistics, HydDeviceId devId);
    /// The settings that the headers of the files to come state.
    void handleSEChanged(SSELSettings settings) { setSELSettings(settings); }
};
