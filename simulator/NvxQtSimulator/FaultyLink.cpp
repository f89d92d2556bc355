#include "NvxQtSimulator/FaultyLink.h"

#include <QAbstractEventDispatcher>
#include <QtGlobal>

#include <algorithm>
#include <utility>

#ifdef Q_OS_UNIX
#include <sys/socket.h>
#endif

namespace {

constexpr int kSplitDelayMs = 20;
constexpr int kMergeHoldMs = 200;
constexpr int kSlowDelayMs = 200;
constexpr int kRefuseDelayMs = 20;
constexpr int64_t kMaxJunkBytes = 8 * 1024 * 1024;

} // namespace

FaultyLink::FaultyLink(QIODevice* device, RecorderState* state, FaultChannel channel, QObject* parent)
    : QObject(parent), m_device(device), m_state(state), m_channel(channel)
{
    if (auto* socket = qobject_cast<QTcpSocket*>(device))
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_waitTimer.setSingleShot(true);
    m_waitTimer.setTimerType(Qt::PreciseTimer);
    m_heldTimer.setSingleShot(true);
    connect(&m_waitTimer, &QTimer::timeout, this, &FaultyLink::sendWaiting);
    connect(&m_heldTimer, &QTimer::timeout, this, &FaultyLink::releaseHeld);
    connect(m_device, &QIODevice::bytesWritten, this, &FaultyLink::drained);
}

std::optional<int64_t> FaultyLink::strike(Fault fault)
{
    return m_state->strike(m_channel, fault);
}

FaultyLink::Fate FaultyLink::send(QByteArray message)
{
    if (m_closing || !isConnected())
        return Fate::Withheld;
    if (m_state->dice(m_channel).isEmpty()) {
        deliver(message);
        return Fate::Sent;
    }
    if (const auto milliseconds = strike(Fault::Silence)) {
        m_silent = true;
        m_silentUntil = *milliseconds > 0 ? QDeadlineTimer(*milliseconds) : QDeadlineTimer::Forever;
    }
    if (isSilent() || strike(Fault::Loss))
        return Fate::Withheld;
    if (breakWithin(message))
        return Fate::Withheld;

    Fate fate = Fate::Sent;
    if (strike(Fault::BadChecksum)) {
        message.back() = static_cast<char>(message.back() ^ 0x55);
        fate = Fate::Withheld;
    }
    if (strike(Fault::Duplicate))
        message += message;
    if (const auto count = strike(Fault::Junk)) {
        QByteArray junk(*count > 0 ? static_cast<qsizetype>(std::min(*count, kMaxJunkBytes))
                                   : static_cast<qsizetype>(1 + random(64)),
                        Qt::Uninitialized);
        std::generate(junk.begin(), junk.end(), [this] { return static_cast<char>(random(256)); });
        message.prepend(junk);
    }
    if (strike(Fault::Merge)) {
        m_held += message;
        m_heldTimer.start(kMergeHoldMs);
        return fate;
    }
    message.prepend(m_held);
    m_held.clear();
    m_heldTimer.stop();
    if (const auto milliseconds = strike(Fault::Slow))
        queue({{},
               *milliseconds > 0 ? static_cast<int>(std::min<int64_t>(*milliseconds, 60000)) : kSlowDelayMs});
    if (const auto first = strike(Fault::Split); first && message.size() > 1) {
        const auto size = static_cast<uint64_t>(message.size());
        const auto cut =
            static_cast<qsizetype>(*first > 0 ? std::min<uint64_t>(*first, size - 1) : 1 + random(size - 1));
        deliver(message.first(cut));
        queue({message.sliced(cut), kSplitDelayMs});
        return fate;
    }
    deliver(message);
    return fate;
}

bool FaultyLink::isSilent()
{
    m_silent = m_silent && !m_silentUntil.hasExpired();
    return m_silent;
}

void FaultyLink::endSilence()
{
    if (m_silentUntil.isForever())
        m_silent = false;
}

bool FaultyLink::breakWithin(const QByteArray& message)
{
    const auto closeAfter = strike(Fault::Close);
    const auto resetAfter = closeAfter ? std::nullopt : strike(Fault::Reset);
    if (!closeAfter && !resetAfter)
        return false;
    const auto value = static_cast<uint64_t>(std::max<int64_t>(0, closeAfter ? *closeAfter : *resetAfter));
    const auto size = static_cast<uint64_t>(message.size());
    const uint64_t part = value > 0 ? std::min(value, size - 1) : 1 + random(size - 1);
    m_closing = true;
    deliver(std::exchange(m_held, {}) + message.first(static_cast<qsizetype>(part)),
            closeAfter ? Ending::Close : Ending::Reset);
    return true;
}

/// Sends bytes once all that waits has gone.
void FaultyLink::deliver(const QByteArray& bytes, Ending ending)
{
    if (m_waiting.empty())
        write({bytes, 0, ending});
    else
        queue({bytes, 0, ending});
}

void FaultyLink::write(const Piece& piece)
{
    m_device->write(piece.bytes);
    auto* socket = qobject_cast<QTcpSocket*>(m_device);
    if (socket != nullptr && !m_state->dice(m_channel).isEmpty())
        socket->flush();
    if (socket != nullptr && piece.ending == Ending::Close)
        socket->disconnectFromHost();
    else if (piece.ending != Ending::None)
        resetConnection(m_device);
}

void FaultyLink::queue(const Piece& piece)
{
    m_waiting.push_back(piece);
    m_waitingBytes += piece.bytes.size();
    if (!m_waitTimer.isActive())
        m_waitTimer.start(m_waiting.front().delayMs);
}

void FaultyLink::sendWaiting()
{
    while (!m_waiting.empty()) {
        const Piece piece = m_waiting.front();
        m_waiting.pop_front();
        m_waitingBytes -= piece.bytes.size();
        if (isConnected())
            write(piece);
        if (!m_waiting.empty() && m_waiting.front().delayMs > 0) {
            m_waitTimer.start(m_waiting.front().delayMs);
            return;
        }
    }
}

void FaultyLink::releaseHeld()
{
    const QByteArray bytes = std::exchange(m_held, {});
    if (!m_closing && isConnected())
        deliver(bytes);
}

bool FaultyLink::isConnected() const
{
    const auto* socket = qobject_cast<const QTcpSocket*>(m_device);
    return socket != nullptr ? socket->state() == QAbstractSocket::ConnectedState : m_device->isOpen();
}

void FaultyLink::resetConnection(QIODevice* device)
{
    auto* socket = qobject_cast<QTcpSocket*>(device);
    if (socket == nullptr) {
        device->close();
        return;
    }
#ifdef Q_OS_UNIX
    const linger atOnce{1, 0};
    ::setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
#endif
    socket->abort();
}

void FaultyLink::retire(QIODevice* device)
{
    device->disconnect();
    if (auto* socket = qobject_cast<QTcpSocket*>(device))
        socket->abort();
    else
        device->close();
    // Where no event loop runs any more, as at the end of a thread, the dispatcher takes it along.
    device->setParent(QAbstractEventDispatcher::instance(device->thread()));
    device->deleteLater();
}

void FaultyLink::refuse(QTcpSocket* socket)
{
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    QTimer::singleShot(kRefuseDelayMs, socket, [socket] { resetConnection(socket); });
}
