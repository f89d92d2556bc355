#pragma once

#include <QSignalSpy>

/// True when the signal doesn't come within `ms` milliseconds. Gives up at the first one.
inline bool spyStaysEmpty(QSignalSpy& spy, int ms)
{
    return spy.isEmpty() && !spy.wait(ms) && spy.isEmpty();
}
