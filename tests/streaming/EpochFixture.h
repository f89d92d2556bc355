#pragma once

#include "NvxQtCommon/streaming/HydEpochStreamAdapter.h"
#include "tests/streaming/StreamFixture.h"

inline const QByteArray kStartedLine =
    "2021-03-04 05:06:07, SN 1234, Epoch 3, Seq 100, 10-1000 > 5000uPa, 30s\n";
inline const QByteArray kEndedLine = "2021-03-04 05:06:37, SN 1234, Epoch 3, Ended\n";

/// An epoch adapter, the recorder that it reads, and what it said: one text for each occurrence.
struct EpochFixture
{
    explicit EpochFixture(const QString& address, HydDeviceId id = kDevice, HydStreamType type = StreamEpoch,
                          int alivePeriodMs = kLongPeriod)
        : peer(address), adapter(type, peer.port(), address, id, alivePeriodMs, true),
          socket(adapter.findChild<QTcpSocket*>()), timer(adapter.findChild<QTimer*>())
    {
        QObject::connect(&adapter, &HydEpochStreamAdapter::signalTrigActive, &adapter,
                         [this](const SActiveTrigger& trigger) {
                             occurrences << trigger;
                             said << QStringLiteral("%1 %2 %3")
                                         .arg(trigger.trigger.trigNum())
                                         .arg(trigger.mes(false))
                                         .arg(trigger.seq);
                         });
    }

    /// Lets the adapter have exactly these bytes in one read. False when they don't arrive.
    bool deliver(const QByteArray& bytes)
    {
        const auto before = socket->bytesAvailable();
        socket->blockSignals(true);
        peer.send(bytes);
        const bool arrived =
            QTest::qWaitFor([&] { return socket->bytesAvailable() >= before + bytes.size(); }, 20000);
        socket->blockSignals(false);
        adapter.readStream();
        return arrived;
    }

    StreamPeer peer;
    HydEpochStreamAdapter adapter;
    QTcpSocket* socket;
    QTimer* timer;
    QList<SActiveTrigger> occurrences;
    QStringList said;
};
