#pragma once

#include "NvxQtCommon/replay/NvxDataFile.h"
#include "NvxQtCommon/replay/NvxDataThread.h"

#include <QSemaphore>
#include <QTest>

#include <utility>

/// A reader that counts its ticks instead of reading. With a gate, run() waits there before it begins.
class CountingThread : public NvxDataThread
{
    Q_OBJECT

public:
    explicit CountingThread(QObject* parent = nullptr, QSemaphore* gate = nullptr)
        : NvxDataThread(QStringLiteral("a file.txt"), parent), m_gate(gate)
    {
        connect(m_timer, &QTimer::timeout, this, [this] {
            ++ticks;
            Q_EMIT ticked();
        });
    }

    using NvxDataThread::beginTicks;
    using NvxDataThread::hasBegun;
    QTimer& timer() { return *m_timer; }

    int ticks = 0;

Q_SIGNALS:
    void ticked();

protected:
    void run() override
    {
        if (m_gate != nullptr)
            m_gate->acquire();
        beginTicks();
        exec();
    }

private:
    QSemaphore* m_gate;
};

/// Waits until a timer with a long interval has run for a little, so that a new start would show in what
/// remains of it.
inline bool hasRunDown(const QTimer& timer)
{
    return QTest::qWaitFor([&] { return timer.remainingTime() < timer.interval() - 5; }, 10000);
}

/// A file whose reader is a CountingThread, with what the classes of the kinds of files reach.
class CountingFile : public NvxDataFile
{
    Q_OBJECT

public:
    using NvxDataFile::letGoOfThread;
    using NvxDataFile::m_baseTime;
    using NvxDataFile::m_channelDevices;
    using NvxDataFile::m_curTime;
    using NvxDataFile::m_epochCarry;
    using NvxDataFile::m_epochLog;
    using NvxDataFile::m_hostDevId;
    using NvxDataFile::m_ticksPerSecond;
    using NvxDataFile::NvxDataFile;

    CountingThread* reader() const { return static_cast<CountingThread*>(m_thread); }
    /// Lets go of the reader that there is, and makes one that hasn't been started.
    CountingThread* make(QSemaphore* gate = nullptr)
    {
        letGoOfThread();
        m_thread = new CountingThread(this, gate);
        setConnections();
        return reader();
    }
};
