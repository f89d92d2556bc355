#include "NvxQtSimulator/EpochStream.h"

#include <QDateTime>

#include <algorithm>

namespace {

constexpr int kEpochPaceMs = 1000;

} // namespace

EpochStream::EpochStream(QTcpSocket* socket, RecorderState* state, QObject* parent)
    : StreamSession(socket, state, StreamEpoch, parent)
{
    // Not before it is whole.
    QMetaObject::invokeMethod(
        this, [this] { start(0, 0); }, Qt::QueuedConnection);
}

void EpochStream::begin()
{
    setPace(kEpochPaceMs);
    proceed();
}

void EpochStream::proceed()
{
    const unsigned period = state().settings().epochPeriod;
    const unsigned length = std::min(state().settings().epochSeconds, period - 1);
    if (m_seconds % period == 0) {
        ++m_epoch;
        sendLine(true);
    } else if (m_seconds % period == length) {
        sendLine(false);
    }
    ++m_seconds;
}

void EpochStream::sendLine(bool started)
{
    QString line = QStringLiteral("%1, SN %2, Epoch %3, ")
                       .arg(QDateTime::fromSecsSinceEpoch(state().deviceTime(), Qt::UTC)
                                .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")))
                       .arg(state().identity().serial)
                       .arg(m_epoch);
    if (started)
        line += QStringLiteral("Seq %1, 10-1000 > 5000uPa, %2s\n")
                    .arg(m_lines++)
                    .arg(state().settings().epochSeconds);
    else
        line += QStringLiteral("Ended\n");
    sendFrame(line.toUtf8());
}
