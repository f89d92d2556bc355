#include "NvxQtSimulator/ArrayHandshake.h"

#include "NvxQtSimulator/FaultyLink.h"

#include <utility>

ArrayHandshake::ArrayHandshake(QTcpSocket* socket, QObject* parent) : QObject(parent), m_socket(socket)
{
    m_socket->setParent(nullptr);
    m_patience.setSingleShot(true);
    connect(&m_patience, &QTimer::timeout, this, &QObject::deleteLater);
    connect(m_socket, &QTcpSocket::disconnected, this, &QObject::deleteLater);
    connect(m_socket, &QTcpSocket::readyRead, this, &ArrayHandshake::look);
    m_patience.start(kTimeoutMs);
}

ArrayHandshake::~ArrayHandshake()
{
    if (m_socket)
        FaultyLink::retire(m_socket);
}

void ArrayHandshake::look()
{
    if (!m_socket)
        return;
    const bool isWhole = m_socket->peek(kMaxHead).contains("\r\n\r\n");
    if (!isWhole && m_socket->bytesAvailable() < kMaxHead)
        return;
    deleteLater();
    if (!isWhole)
        return;
    disconnect(m_socket, nullptr, this, nullptr);
    Q_EMIT received(std::exchange(m_socket, nullptr));
}
