#pragma once

#include "NvxQtCommon/streaming/NvxStreamMonitor.h"
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"

/// A monitor, a clock in the test's hand and spies on every signal.
struct Watch
{
    Watch()
    {
        monitor.setClock([this] { return now; });
    }

    void header(uint32_t eventId, int64_t sequence, uint32_t rate = 100, const HydDeviceId& devId = kDevice)
    {
        monitor.handleEventHeader(streamframes::header(eventId, sequence, rate), devId, nullptr);
    }
    void block(uint32_t eventId, int64_t sequence, uint32_t start, uint16_t count,
               const HydDeviceId& devId = kDevice)
    {
        monitor.handleStreamData(streamframes::block(eventId, sequence, start, count), devId);
    }
    NvxStreamStats stats(const HydDeviceId& devId = kDevice) const { return monitor.stats(devId); }

    std::chrono::nanoseconds now{1};
    NvxStreamMonitor monitor;
    QSignalSpy gaps{&monitor, &NvxStreamMonitor::gapFound};
    QSignalSpy duplicates{&monitor, &NvxStreamMonitor::duplicateFound};
    QSignalSpy jumps{&monitor, &NvxStreamMonitor::backwardJumpFound};
};

/// The device and the two numbers of one emission.
inline bool reports(const QList<QVariant>& arguments, const HydDeviceId& devId, qint64 first, qint64 second)
{
    return arguments.size() == 3 && arguments[0].value<HydDeviceId>() == devId &&
           arguments[1].toLongLong() == first && arguments[2].toLongLong() == second;
}
