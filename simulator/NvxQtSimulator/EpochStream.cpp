#include "NvxQtSimulator/EpochStream.h"

namespace {

constexpr int kPauseMs = 50;
constexpr size_t kMaxWaiting = 1024;

} // namespace

EpochStream::EpochStream(QTcpSocket* socket, RecorderState* state, QObject* parent)
    : StreamSession(socket, state, StreamEpoch, parent)
{
    m_pause.setSingleShot(true);
    m_pause.setTimerType(Qt::PreciseTimer);
    connect(&m_pause, &QTimer::timeout, this, &EpochStream::proceed);
    connect(state, &RecorderState::epochLine, this, &EpochStream::take);
    // Not before it is whole.
    QMetaObject::invokeMethod(
        this, [this] { start(0, 0); }, Qt::QueuedConnection);
}

void EpochStream::take(const QByteArray& line)
{
    if (!isRunning())
        return;
    if (m_waiting.size() >= kMaxWaiting) {
        ++state().counters.framesDropped;
        return;
    }
    m_waiting.push_back(line);
    if (!m_pause.isActive())
        m_pause.start(0);
}

void EpochStream::proceed()
{
    if (!isRunning())
        m_waiting.clear();
    if (m_waiting.empty())
        return;
    const QByteArray line = m_waiting.front();
    m_waiting.pop_front();
    m_pause.start(kPauseMs);
    sendFrame(line);
}
