#pragma once

#include "NvxQtSimulator/SimulatedArray.h"

#include <QThread>

/// A simulated array controller on a thread of its own, so that it answers whatever the program's own thread
/// does. It ends with this object.
class ArrayThread
{
public:
    ArrayThread() = default;
    ~ArrayThread();
    ArrayThread(const ArrayThread&) = delete;
    ArrayThread& operator=(const ArrayThread&) = delete;

    /// Once for an object. Empty when it listens, else why it doesn't.
    QString start(const ArraySettings& settings);

private:
    QThread m_thread;
};
