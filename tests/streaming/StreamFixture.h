#pragma once

#include "NvxQtCommon/streaming/HydStreamAdapter.h"
#include "tests/streaming/StreamPeer.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"

#include <QElapsedTimer>
#include <QSignalSpy>

inline const HydDeviceId kDevice{DevTypeRecorderA, 1234};
inline constexpr int kLongPeriod = 60000;
inline const QByteArray kStart("\x33\x2A\x00\x04\x00\x00\x00\x00", 8);
inline const QByteArray kStop("\x34\x2A\x00\x00", 4);

/// An adapter and the recorder that it streams from. The alive timer is out of the way unless a test wants
/// it.
struct StreamFixture
{
    explicit StreamFixture(const QString& address, HydStreamType type = StreamWave,
                           int alivePeriodMs = kLongPeriod)
        : peer(address), adapter(type, peer.port(), address, kDevice, alivePeriodMs, true),
          socket(adapter.findChild<QTcpSocket*>()), timer(adapter.findChild<QTimer*>())
    {
    }

    StreamPeer peer;
    HydStreamAdapter adapter;
    QTcpSocket* socket;
    QTimer* timer;
};

/// Connects both sides; nothing is started.
#define CONNECT_STREAM(stream)                                                                               \
    do {                                                                                                     \
        const qsizetype before = (stream).peer.connections();                                                \
        (stream).adapter.connectStream();                                                                    \
        QTRY_COMPARE((stream).socket->state(), QAbstractSocket::ConnectedState);                             \
        QTRY_COMPARE((stream).peer.connections(), before + 1);                                               \
    } while (false)

/// Connects both sides and starts; the start message has arrived.
#define START_STREAM(stream)                                                                                 \
    do {                                                                                                     \
        CONNECT_STREAM(stream);                                                                              \
        (stream).adapter.startStream();                                                                      \
        QTRY_VERIFY((stream).peer.received().endsWith(kStart));                                              \
        (stream).peer.takeReceived();                                                                        \
    } while (false)
