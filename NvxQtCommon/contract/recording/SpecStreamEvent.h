#pragma once

#include "NvxQtCommon/contract/base/StateEvent.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumEventData.h"
#include "NvxQtCommon/contract/recording/RecordingEnums.h"

/// What an NvxSpecWriter is fed with. The data stays the caller's.
class NVXQTCOMMON_EXPORT SpecStreamEvent : public StateEvent
{
public:
    explicit SpecStreamEvent(NvxSpectrumEventData* data) : m_data(data) {}
    ~SpecStreamEvent() override;

    /// True when the writer has taken the event; else it is to be dispatched again.
    bool isConsumed() const { return m_consumed; }
    void setLogType(SENSOR_LOG_TYPE type) { m_logType = type; }
    SENSOR_LOG_TYPE logType() const { return m_logType; }
    const NvxSpectrumEventData* data() const { return m_data; }
    /// Called by the writer.
    void consume() { m_consumed = true; }

private:
    NvxSpectrumEventData* m_data;
    SENSOR_LOG_TYPE m_logType = SensorLogAccMag;
    bool m_consumed = false;
};
