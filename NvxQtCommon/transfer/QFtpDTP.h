#pragma once

#include "NvxQtCommon/transfer/FtpAddresses.h"
#include "NvxQtCommon/transfer/FtpDataSender.h"
#include "NvxQtCommon/transfer/FtpListingReader.h"

#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTcpServer>

#include <memory>

class QIODevice;
class QTcpSocket;

/// The data connection: made by us (passive) or by the server (active), for one listing or one file in one
/// direction. What it takes depends on the line that setLine() names. Holds at most kReadBuffer bytes that
/// nobody has taken yet, and then lets the server wait. Belongs to the protocol interpreter and lives on its
/// thread.
class QFtpDTP : public QObject
{
    Q_OBJECT

public:
    /// Bytes that wait in the socket at most.
    static constexpr qint64 kReadBuffer = 1048576;

    explicit QFtpDTP(QObject* parent);
    ~QFtpDTP() override;

    /// Null: what comes waits for read() and readAll(). The device stays with its owner.
    void setReceiver(QIODevice* device);
    /// The device whose bytes startSending() sends; stays with its owner.
    void setSender(QIODevice* device) { m_sender.setDevice(device); }
    void clearData() { m_sender.setDevice(nullptr); }
    /// For listings whose line is set behind this call.
    void setTimeRange(const QDateTime& start, const QDateTime& end, bool all);
    /// Bytes of the file that comes; 0 where unknown.
    void setTotal(qint64 total) { m_total = total; }
    /// Forgets devices and figures of a transfer that has ended. Unread bytes stay.
    void release();
    /// Forgets what the last command left behind, its unread bytes too.
    void clear();

    /// connected() or failed() follows.
    void connectToHost(const FtpAddresses::Endpoint& endpoint);
    /// Waits on this address for one connection; gives its port, 0 where the system refuses.
    quint16 listen(const QHostAddress& address);
    /// Takes no connection of the server any more; one that stands stays.
    void stopListening() { m_server.close(); }
    /// A connection stands, is being made, or has come in and waits to be taken.
    bool isOpen();
    bool isConnecting() const;
    /// Takes what has come in without the event loop having had its turn.
    void drain();
    /// Closes without a signal. What it has brought and nobody has read is lost.
    void abortConnection();
    /// The same for one that stands; what one that has ended brought still waits for read().
    void dropConnection();

    /// The line whose data comes; empty when no command runs.
    void setLine(const QString& line);
    /// During an abort all that comes is thrown away.
    void setAborting(bool isAborting);
    /// Sends the sender's device once the connection stands.
    void startSending();
    bool hasStartedSending() const { return m_hasStartedSending; }
    bool isAllSent() const { return m_sender.isComplete(); }

    /// Why the transfer has to fail although the server knows of nothing; empty where it hasn't.
    QString failureText() const { return m_failure.isEmpty() ? m_listing.errorText() : m_failure; }

    qint64 bytesAvailable() const;
    qint64 read(char* data, qint64 size);
    QByteArray readAll();
    /// True while a transfer can't go on before the caller reads, its receiver takes more, or its sender has
    /// more.
    bool isWaitingForCaller() const;

Q_SIGNALS:
    void connected();
    /// It ended, from either side; all that came was taken or waits for read().
    void closed();
    /// The connection couldn't be made.
    void failed();
    /// Bytes came or left.
    void active();
    void readyRead();
    void dataTransferProgress(qlonglong done, qlonglong total);
    void listInfoS(const QList<QUrlInfo>& entries);

private:
    void setSocket(QTcpSocket* socket, const QString& name);
    void handleNewConnection();
    void handleConnected();
    void handleDisconnected();
    void handleData();
    void readListing();
    void readIntoReceiver();
    bool isReceiverFull() const;
    bool isListing() const { return m_line.startsWith(u"LIST", Qt::CaseInsensitive); }
    void discard();
    void fail(const QString& text);
    void closeNow();
    /// Connected by the server, or nothing.
    void sendIfReady();

    QPointer<QTcpSocket> m_socket;
    QTcpServer m_server;
    FtpDataSender m_sender;
    FtpListingReader m_listing;
    QDateTime m_rangeStart;
    QDateTime m_rangeEnd;
    bool m_isRangeAll = true;
    QPointer<QIODevice> m_receiver;
    std::unique_ptr<char[]> m_block;
    QString m_line;
    QString m_failure;
    qint64 m_done = 0;
    qint64 m_total = 0;
    bool m_hasReceiver = false;
    bool m_hasStartedSending = false;
    bool m_isAborting = false;
    bool m_hasStood = false; ///< was connected at some time
    bool m_isGone = false;   ///< disconnected, but not all was taken yet
};
