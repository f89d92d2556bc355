#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/stream/ZcrFrameHeader.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QHostAddress>
#include <QMetaType>
#include <QString>
#include <QWebSocket>

#include <memory>

/// The web socket of one array controller: opens it, reads each binary message as a frame and emits it. Made
/// by make() and owned by an adapter; lives on the thread that made it. Errors are logged and end the
/// connection. It holds at most one message of kMaxMessageSize bytes and kReadBufferSize more of what
/// follows.
class NVXQTCOMMON_EXPORT CZCRWebSocket : public QWebSocket
{
    Q_OBJECT

public:
    /// Bytes; a longer message closes the connection, which a line of the log says.
    static constexpr quint64 kMaxMessageSize = 1048576;
    /// Bytes that wait to be read at most, while a slot takes its time: the peer waits then.
    static constexpr qint64 kReadBufferSize = 1049600;
    /// Bytes; the connection ends where more wait to be sent, to a peer that asks for answers and takes none.
    static constexpr qint64 kMaxUnsent = 1048576;
    /// The port of every array controller.
    static constexpr unsigned short kPort = 51675;

    /// One frame. frameBytes holds all of it, header included; the bins follow the header.
    struct ZCR_STREAM_STR : ZcrFrameHeader
    {
        QByteArray frameBytes;

        /// Fills the fields from frameBytes, which must hold at least kSize bytes: their number isn't tested.
        void serialize();
    };

    using ErrorSignal = void (QWebSocket::*)(QAbstractSocket::SocketError);
    /// The signal on socket errors, whose name depends on the version of Qt.
    static constexpr ErrorSignal errorSignal()
    {
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
        return &QWebSocket::errorOccurred;
#else
        return &QWebSocket::error;
#endif
    }

    /// A socket without an origin, of protocol version 13. Its last reference may go inside one of its own
    /// signals: it is then deaf at once and deleted a little later.
    static std::shared_ptr<CZCRWebSocket> make();

    explicit CZCRWebSocket(QString const& origin = {},
                           QWebSocketProtocol::Version version = QWebSocketProtocol::Version13,
                           QObject* parent = nullptr);

    /// Address of the array controller; null until set. Takes effect at the next openConnection().
    QHostAddress hAddress() const
    {
        return m_hAddress;
    }
    void setHAddress(QHostAddress address)
    {
        m_hAddress = address;
    }
    /// A number that is kept and used nowhere: connections go to kPort. This is intended.
    unsigned short webPort() const
    {
        return m_webPort;
    }
    void setWebPort(unsigned short port)
    {
        m_webPort = port;
    }

    /// Closes what is open or under way and connects. Does nothing more where closing takes its time.
    void openConnection();
    /// Closes with code 1000. Nothing for an unconnected socket.
    void closeConnection();

public Q_SLOTS:
    void webSocketConnected();
    /// One binary message; fewer than ZcrFrameHeader::kSize bytes are dropped, with one line of the log for
    /// each connection.
    void readWebStream(QByteArray const& message);

Q_SIGNALS:
    void signalWebSocketConnected();
    void signalWebSocBinMesReceived(CZCRWebSocket::ZCR_STREAM_STR const& zcrStream);

private:
    void boundBuffers();
    void handleDisconnected();
    void handleError(QAbstractSocket::SocketError err);

    QHostAddress m_hAddress;
    unsigned short m_webPort = kPort;
    bool m_isOpen = false;
    bool m_shortFrameLogged = false;
};

Q_DECLARE_METATYPE(CZCRWebSocket::ZCR_STREAM_STR)
