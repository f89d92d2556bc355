#pragma once

#include "NvxQtCommon/transfer/FtpReplyParser.h"
#include "NvxQtCommon/transfer/QFtpDTP.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTcpSocket>
#include <QTimer>

/// The protocol interpreter: sends the lines of one command after the other on the control connection, acts
/// on the replies, and ends each command with one finished() or error(). Belongs to the client and lives on
/// its thread.
class QFtpPI : public QObject
{
    Q_OBJECT

public:
    enum State { Begin, Idle, Waiting, Success, Failure };

    explicit QFtpPI(QObject* parent);
    ~QFtpPI() override;

    QFtpDTP& dtp() { return m_dtp; }
    const QFtpDTP& dtp() const { return m_dtp; }

    /// Ends with the greeting of the server. A connection that stands is given up first.
    void connectToHost(const QString& host, quint16 port);
    bool isConnected() const;
    /// Sends these lines, each with its line end, one after the other. isConnected() has to hold.
    void sendCommands(const QStringList& lines);
    /// Asks the server to end what it does. The command ends as failed when the server has answered.
    void abort();
    /// True where the text of the last error() is that of a reply.
    bool isServerText() const { return m_isServerText; }

    /// Milliseconds without a byte in or out after which a command fails and the connection is given up; 0 is
    /// never.
    void setInactivityLimit(int milliseconds);
    int inactivityLimit() const { return m_inactivity.interval(); }
    /// Data connections go to the peer of the control connection instead of to the address in a 227 reply.
    void setPassiveToPeer(bool isOn) { m_isPassiveToPeer = isOn; }
    bool isPassiveToPeer() const { return m_isPassiveToPeer; }

Q_SIGNALS:
    /// A value of QFtp::State.
    void connectState(int state);
    void finished(const QString& text);
    /// `errorCode` is a value of QFtp::Error.
    void error(int errorCode, const QString& text);
    void rawFtpReply(int code, const QString& text);

private:
    enum class Abort { None, Started, WaitForFinish };

    void handleConnected();
    void handleSocketError(QAbstractSocket::SocketError socketError);
    void handleDisconnected();
    void readReplies();
    void handleReply(const FtpReply& reply);
    void handleGreeting(const FtpReply& reply);
    void handleAbortReply(const FtpReply& reply);
    /// True for the late end of a transfer whose abort was answered ahead of it.
    bool isOfAbortedTransfer(const FtpReply& reply);
    /// True when a reply that isn't a failure has to be waited behind, or has failed its line after all.
    bool handleSpecialReply(const FtpReply& reply);
    bool startPassive(const FtpReply& reply);
    void endTransfer(const QString& text);
    void handleDataClosed();
    void handleDataFailed();
    void handleInactivity();

    void sendNext(const QString& text);
    QString lineForFamily(const QString& line);
    void send(const QString& line);
    bool isLine(QStringView begin) const { return m_line.startsWith(begin, Qt::CaseInsensitive); }
    bool isTransfer() const;
    void touch();

    void finish(const QString& text);
    void failByServer(const QString& text);
    void fail(int errorCode, const QString& text);
    void giveUp(int errorCode, const QString& text);
    void lost(int errorCode, const QString& text);

    QTcpSocket m_socket;
    QFtpDTP m_dtp;
    QTimer m_inactivity;
    FtpReplyParser m_replies;
    QString m_host;
    QStringList m_pending; ///< lines that wait
    QString m_line;        ///< the line sent last; empty once it was answered
    QString m_heldText;    ///< of the reply that waits for the end of the data
    State m_state = Begin;
    Abort m_abort = Abort::None;
    int m_abortReplies = 0;   ///< that the abort waits for
    quint64 m_connection = 0; ///< counts connections, so that a reader sees that its own has gone
    bool m_isUp = false;      ///< from the look-up of the host to the end of the connection
    bool m_hasStood = false;  ///< was connected at some time
    bool m_isBusy = false;    ///< a command runs
    bool m_isHeld = false;
    bool m_isWaitingForData = false; ///< until the passive connection stands
    bool m_isAbortedReplyDue = false;
    bool m_isExtendedRefused = false;
    bool m_isPassiveToPeer = false;
    bool m_isServerText = false;
};
