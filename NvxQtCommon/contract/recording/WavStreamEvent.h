#pragma once

#include "NvxQtCommon/contract/base/StateEvent.h"
#include "NvxQtCommon/contract/recording/NvxWavEventData.h"

/// What an NvxWavWriter is fed with. The data stays the caller's.
class NVXQTCOMMON_EXPORT WavStreamEvent : public StateEvent
{
public:
    /// `time` in whole seconds since the epoch, `seq` the running sample number; both 0 for an event without
    /// a key.
    WavStreamEvent(NvxWavEventData* data, int time, unsigned long long seq)
        : m_data(data), m_time(time), m_seq(seq)
    {
    }
    ~WavStreamEvent() override;

    /// True when the writer has taken the event; else it is to be dispatched again.
    bool isConsumed() const { return m_consumed; }
    int timeStamp() const { return m_time; }
    unsigned long long sequence() const { return m_seq; }
    const NvxWavEventData* data() const { return m_data; }
    /// Called by the writer.
    void consume() { m_consumed = true; }

private:
    NvxWavEventData* m_data;
    int m_time;
    unsigned long long m_seq;
    bool m_consumed = false;
};
