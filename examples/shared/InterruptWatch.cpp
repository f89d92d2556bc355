#include "shared/InterruptWatch.h"

#include <atomic>
#include <csignal>

namespace {

// Short, since a merge writes tens of megabytes meanwhile.
constexpr int kWatchMs = 20;

std::atomic<bool> g_interrupted = false;

extern "C" void noteInterrupt(int)
{
    g_interrupted = true;
}

} // namespace

InterruptWatch::InterruptWatch(QObject* parent) : QObject(parent)
{
    // A signal handler may do next to nothing, so a timer looks at its mark.
    std::signal(SIGINT, noteInterrupt);
    std::signal(SIGTERM, noteInterrupt);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        if (g_interrupted)
            Q_EMIT interrupted();
    });
    m_timer.start(kWatchMs);
}
