#pragma once

#include "tests/support/PythonPeer.h"

/// The recorder written in Python (peer_device.py) as a process of its own.
class PeerDevice : public PythonPeer
{
public:
    PeerDevice() : PythonPeer(QStringLiteral("peer_device.py")) {}

    /// Port of the wave stream.
    quint16 wavePort()
    {
        const QList<QStringList> found = lines(QStringLiteral("wave-port"));
        return found.isEmpty() ? quint16(0) : found.first().value(0).toUShort();
    }
};
