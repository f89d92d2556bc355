#pragma once

#include "NvxQtCommon/discovery/CUdpSocProc.h"
#include "NvxQtCommon/discovery/HydMarcoAdapter.h"
#include "tests/discovery/MarcoBytes.h"
#include "tests/support/Patience.h"

#include <QNetworkDatagram>
#include <QNetworkInterface>
#include <QPointer>
#include <QSignalSpy>

// Both sides of discovery on loopback, for the tests of HydMarcoAdapter.

using Device = std::shared_ptr<HydDevice>;

/// A device's side of discovery: receives what comes to the fixed port on an address of its own.
class MarcoPeer : public QUdpSocket
{
public:
    explicit MarcoPeer(const QHostAddress& address) { m_bound = bind(address, MARCO_PORT); }

    bool isBound() const { return m_bound; }
    bool waitForEnquiry()
    {
        if (!QTest::qWaitFor([this] { return hasPendingDatagrams(); }, kPatienceMs))
            return false;
        m_last = receiveDatagram();
        return true;
    }
    QByteArray lastBytes() const { return m_last.data(); }
    quint16 lastPort() const { return static_cast<quint16>(m_last.senderPort()); }
    void answer(const QByteArray& bytes) { writeDatagram(bytes, m_last.senderAddress(), lastPort()); }

private:
    bool m_bound = false;
    QNetworkDatagram m_last;
};

inline QUdpSocket* unicastSocketOf(const HydMarcoAdapter& adapter)
{
    return adapter.findChild<QUdpSocket*>();
}

/// A socket of the kind that broadcasts use, bound to loopback and read by the adapter, and what feeds it.
class LoopbackSocket
{
public:
    LoopbackSocket(HydMarcoAdapter& adapter, const QHostAddress& address)
        : m_address(address), m_socket(new CUdpSocProc(&adapter))
    {
        m_bound = m_socket->bind(m_address, 0);
        m_socket->setMulticastInterface(loopback());
        QObject::connect(m_socket, SIGNAL(readyRead()), &adapter, SLOT(readUdpSocket()));
    }

    static QNetworkInterface loopback() { return QNetworkInterface::interfaceFromName(QStringLiteral("lo")); }
    bool isBound() const { return m_bound; }
    CUdpSocProc* socket() const { return m_socket; }
    bool send(const QByteArray& bytes)
    {
        return m_sender.writeDatagram(bytes, m_address, m_socket->localPort()) == bytes.size();
    }

private:
    QHostAddress m_address;
    QPointer<CUdpSocProc> m_socket;
    QUdpSocket m_sender;
    bool m_bound = false;
};

inline QByteArray junk(int size)
{
    return QByteArray(size, '\x5A');
}

inline Device deviceOf(const QSignalSpy& spy, int index = 0)
{
    return spy.at(index).at(0).value<Device>();
}
