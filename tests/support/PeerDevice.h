#pragma once

#include "tests/support/PythonPeer.h"

/// The recorder written in Python (peer_device.py) as a process of its own.
class PeerDevice : public PythonPeer
{
public:
    PeerDevice() : PythonPeer(QStringLiteral("peer_device.py")) {}

    /// Port of the wave stream.
    quint16 wavePort() { return port(QStringLiteral("wave-port")); }
    /// Port of the epoch stream.
    quint16 epochPort() { return port(QStringLiteral("epoch-port")); }

private:
    quint16 port(const QString& word)
    {
        const QList<QStringList> found = lines(word);
        return found.isEmpty() ? quint16(0) : found.first().value(0).toUShort();
    }
};
