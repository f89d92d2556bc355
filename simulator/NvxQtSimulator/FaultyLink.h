#pragma once

#include "NvxQtSimulator/RecorderState.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QTcpSocket>
#include <QTimer>

#include <deque>

/// Sends the messages of one connection, with those faults that only look at bytes: split, merged, spoilt,
/// late, lost or doubled messages, and connections that end. Owned by the session of the connection; lives on
/// its thread.
class FaultyLink : public QObject
{
    Q_OBJECT

public:
    /// What became of a message.
    enum class Fate : uint8_t {
        Sent,     ///< on its way whole and in order
        Withheld, ///< kept back or spoilt by a fault
    };

    /// `device`, a QTcpSocket or a device whose closing hangs up, stays the caller's and must outlive the
    /// link.
    FaultyLink(QIODevice* device, RecorderState* state, FaultChannel channel, QObject* parent);

    Fate send(QByteArray message);
    /// Asks the dice for a fault of the session's own.
    std::optional<int64_t> strike(Fault fault);
    uint64_t random(uint64_t bound) { return m_state->dice(m_channel).random(bound); }
    /// Bytes that the peer has not taken yet.
    qint64 backlog() const { return m_device->bytesToWrite() + m_waitingBytes; }
    /// Ends the connection of a session that goes, even out of one of the device's own signals: the event
    /// loop deletes it. Takes ownership.
    static void retire(QIODevice* device);
    /// Ends a silence that waits for the next start message.
    void endSilence();
    /// Resets the connection: the peer sees an error instead of an end.
    static void resetConnection(QIODevice* device);
    /// Resets a fresh connection that nobody serves, once the peer has had time to notice that it was made (a
    /// reset before that makes some clients try again in silence). Takes ownership.
    static void refuse(QTcpSocket* socket);

Q_SIGNALS:
    /// Bytes left for the peer.
    void drained();

private:
    enum class Ending : uint8_t { None, Close, Reset };
    struct Piece
    {
        QByteArray bytes;
        int delayMs = 0;
        Ending ending = Ending::None; ///< of the connection, behind the bytes
    };

    bool isConnected() const;
    bool isSilent();
    bool breakWithin(const QByteArray& message);
    void deliver(const QByteArray& bytes, Ending ending = Ending::None);
    void queue(const Piece& piece);
    void write(const Piece& piece);
    void sendWaiting();
    void releaseHeld();

    QIODevice* m_device;
    RecorderState* m_state;
    FaultChannel m_channel;
    std::deque<Piece> m_waiting;
    qint64 m_waitingBytes = 0;
    QTimer m_waitTimer;
    QByteArray m_held;
    QTimer m_heldTimer;
    bool m_silent = false;
    QDeadlineTimer m_silentUntil;
    bool m_closing = false;
};
