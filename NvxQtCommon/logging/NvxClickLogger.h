#pragma once

#include "NvxQtCommon/contract/recording/DetectorRecords.h"
#include "NvxQtCommon/logging/NvxSpecLogger.h"

/// Writes clicks that the application detects, of whatever device. Owner and thread as NvxSpecLogger.
class NVXQTCOMMON_EXPORT NvxClickLogger : public NvxSpecLogger
{
    Q_OBJECT

public:
    NvxClickLogger(int maxNumRecs, QString logPath, QString filePrefix, QObject* parent);
    ~NvxClickLogger() override;

    void setTimeType(bool timeType) { writer().setTimeType(timeType); }
    void setMaxNumRecs(int maxNumRecs) { writer().setMaxNumRecs(maxNumRecs); }

public Q_SLOTS:
    void handleClickReady(std::shared_ptr<SClickStatistics> statistics, HydDeviceId devId);
};
