#include "NvxQtCommon/array/CZCRWebSocket.h"

#include "NvxQtCommon/array/DeleteWhenSilent.h"

#include <QDebug>
#include <QTcpSocket>
#include <QUrl>

#include <utility>

namespace {

void deleteWebSocketLater(CZCRWebSocket* socket)
{
    // A refusal or a close that comes at once has nobody to tell.
    socket->disconnect();
    // A close message only leaves where there is a connection.
    if (socket->state() == QAbstractSocket::ConnectedState)
        socket->closeConnection();
    else
        socket->abort();
    deleteWhenSilent(socket);
}

} // namespace

void CZCRWebSocket::ZCR_STREAM_STR::serialize()
{
    readFrom(
        std::span<const uint8_t, kSize>(reinterpret_cast<const uint8_t*>(frameBytes.constData()), kSize));
}

std::shared_ptr<CZCRWebSocket> CZCRWebSocket::make()
{
    return {new CZCRWebSocket, deleteWebSocketLater};
}

CZCRWebSocket::CZCRWebSocket(QString const& origin, QWebSocketProtocol::Version version, QObject* parent)
    : QWebSocket(origin, version, parent)
{
    setMaxAllowedIncomingFrameSize(kMaxMessageSize);
    setMaxAllowedIncomingMessageSize(kMaxMessageSize);
    connect(this, &QWebSocket::connected, this, &CZCRWebSocket::webSocketConnected);
    connect(this, &QWebSocket::disconnected, this, &CZCRWebSocket::handleDisconnected);
    connect(this, errorSignal(), this, &CZCRWebSocket::handleError);
    connect(this, &QWebSocket::binaryMessageReceived, this, &CZCRWebSocket::readWebStream);
}

void CZCRWebSocket::openConnection()
{
    closeConnection();
    if (state() != QAbstractSocket::UnconnectedState)
        return;
    open(QUrl(QStringLiteral("ws://%1:%2").arg(m_hAddress.toString()).arg(kPort)));
    boundBuffers();
}

void CZCRWebSocket::boundBuffers()
{
    // Each connection has a socket of its own.
    setReadBufferSize(kReadBufferSize);
    const auto sockets = findChildren<QTcpSocket*>();
    if (sockets.isEmpty())
        return;
    connect(sockets.last(), &QIODevice::readyRead, this, [this] {
        if (bytesToWrite() <= kMaxUnsent)
            return;
        qDebug() << "Array web socket closed:" << bytesToWrite() << "bytes wait to be sent";
        abort();
    });
}

void CZCRWebSocket::closeConnection()
{
    if (state() != QAbstractSocket::UnconnectedState)
        close(QWebSocketProtocol::CloseCodeNormal, QString());
}

void CZCRWebSocket::webSocketConnected()
{
    m_isOpen = true;
    m_shortFrameLogged = false;
    Q_EMIT signalWebSocketConnected();
}

void CZCRWebSocket::handleDisconnected()
{
    // The code of an earlier connection stays until the next one is closed by a message.
    if (std::exchange(m_isOpen, false) && closeCode() == QWebSocketProtocol::CloseCodeTooMuchData)
        qDebug() << "Array web socket closed for too much data; messages hold at most" << kMaxMessageSize
                 << "bytes";
    closeConnection();
}

void CZCRWebSocket::handleError(QAbstractSocket::SocketError err)
{
    const QString text = errorString();
    if (err != QAbstractSocket::UnfinishedSocketOperationError) {
        m_isOpen = false;
        // A refused handshake leaves the socket connecting for ever, and no message can leave a dead one.
        if (!isValid())
            abort();
        closeConnection();
    }
    qDebug().noquote() << text;
}

void CZCRWebSocket::readWebStream(QByteArray const& message)
{
    if (message.size() < static_cast<qsizetype>(ZcrFrameHeader::kSize)) {
        if (!m_shortFrameLogged)
            qDebug() << "Array web socket: frame of" << message.size() << "bytes dropped";
        m_shortFrameLogged = true;
        return;
    }
    ZCR_STREAM_STR frame;
    frame.frameBytes = message;
    frame.serialize();
    Q_EMIT signalWebSocBinMesReceived(frame);
}
