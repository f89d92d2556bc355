#pragma once

#include "NvxQtCommon/contract/recording/DetectorRecords.h"
#include "NvxQtCommon/logging/NvxSpecLogger.h"

/// Writes impulses that the application detects, of whatever device. Owner and thread as NvxSpecLogger.
class NVXQTCOMMON_EXPORT NvxImpLogger : public NvxSpecLogger
{
    Q_OBJECT

public:
    NvxImpLogger(int maxNumRecs, QString logPath, QString filePrefix, QObject* parent);
    ~NvxImpLogger() override;

    void setTimeType(bool timeType) { writer().setTimeType(timeType); }
    void setMaxNumRecs(int maxNumRecs) { writer().setMaxNumRecs(maxNumRecs); }

public Q_SLOTS:
    void handleImpReady(std::shared_ptr<SImpulseStatistics> statistics, HydDeviceId devId);
    /// The settings that the headers of the files to come state.
    void handleImpDetectChanged(SImpDetectSettings settings) { setImpSettings(settings); }
};
