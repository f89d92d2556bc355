#include "NvxQtCommon/transfer/QFtpPI.h"

#include "NvxQtCommon/transfer/QFtp.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr qint64 kControlBlock = 65536;
const QString kPassiveLine = QStringLiteral("PASV\r\n");
const QString kActiveLine = QStringLiteral("PORT\r\n");

QString connectionClosed()
{
    return QStringLiteral("Connection closed");
}

} // namespace

QFtpPI::QFtpPI(QObject* parent) : QObject(parent), m_socket(this), m_dtp(this), m_inactivity(this)
{
    m_socket.setObjectName(QStringLiteral("QFtpPI_socket"));
    m_inactivity.setSingleShot(true);
    connect(&m_inactivity, &QTimer::timeout, this, &QFtpPI::handleInactivity);
    connect(&m_socket, &QTcpSocket::hostFound, this, [this] { Q_EMIT connectState(QFtp::Connecting); });
    connect(&m_socket, &QTcpSocket::connected, this, &QFtpPI::handleConnected);
    connect(&m_socket, &QTcpSocket::disconnected, this, &QFtpPI::handleDisconnected);
    connect(&m_socket, &QTcpSocket::readyRead, this, &QFtpPI::readReplies);
    connect(&m_socket, &QTcpSocket::errorOccurred, this, &QFtpPI::handleSocketError);
    connect(&m_dtp, &QFtpDTP::connected, this, [this] {
        if (std::exchange(m_isWaitingForData, false))
            sendNext({});
    });
    connect(&m_dtp, &QFtpDTP::closed, this, &QFtpPI::handleDataClosed);
    connect(&m_dtp, &QFtpDTP::failed, this, &QFtpPI::handleDataFailed);
    connect(&m_dtp, &QFtpDTP::active, this, &QFtpPI::touch);
}

QFtpPI::~QFtpPI()
{
    // The members that report end after this object's own part.
    m_socket.disconnect(this);
    m_dtp.disconnect(this);
    m_socket.abort();
}

void QFtpPI::connectToHost(const QString& host, quint16 port)
{
    m_isBusy = false;
    giveUp(QFtp::NoError, {});
    m_host = host;
    m_isBusy = true;
    m_isUp = true;
    m_hasStood = false;
    m_isExtendedRefused = false;
    m_isAbortedReplyDue = false;
    m_state = Begin;
    const quint64 connection = ++m_connection;
    touch();
    Q_EMIT connectState(QFtp::HostLookup);
    // The slot may have given it up again.
    if (connection == m_connection)
        m_socket.connectToHost(host, port);
}

bool QFtpPI::isConnected() const
{
    return m_isUp && m_socket.state() == QAbstractSocket::ConnectedState;
}

void QFtpPI::sendCommands(const QStringList& lines)
{
    m_isBusy = true;
    m_pending = lines;
    sendNext({});
}

void QFtpPI::abort()
{
    m_pending.clear();
    if (m_abort != Abort::None || !m_isBusy)
        return;
    if (!isConnected() || m_state == Begin) {
        // There is nobody yet whom to ask.
        giveUp(QFtp::UnknownError, connectionClosed());
        return;
    }
    m_abort = Abort::Started;
    // The line under way is answered, and so is the ABOR itself.
    m_abortReplies = m_line.isEmpty() || m_isHeld ? 1 : 2;
    m_isHeld = false;
    if (isLine(u"STOR ")) {
        m_dtp.clearData();
        m_dtp.abortConnection();
    }
    if (std::exchange(m_isWaitingForData, false))
        m_dtp.abortConnection();
    m_socket.write("ABOR\r\n");
    touch();
    m_dtp.setAborting(true);
}

void QFtpPI::setInactivityLimit(int milliseconds)
{
    m_inactivity.setInterval(std::max(milliseconds, 0));
    touch();
}

void QFtpPI::touch()
{
    if (m_isBusy && m_inactivity.interval() > 0)
        m_inactivity.start();
    else
        m_inactivity.stop();
}

void QFtpPI::handleInactivity()
{
    // What the caller doesn't take, or give, is no fault of the server.
    if (isTransfer() && m_dtp.isWaitingForCaller())
        touch();
    else if (m_isBusy)
        giveUp(QFtp::UnknownError, QStringLiteral("Connection timed out to host %1").arg(m_host));
}

void QFtpPI::handleConnected()
{
    m_hasStood = true;
    // Commands are short, and each waits for its reply.
    m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_socket.setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    touch();
    Q_EMIT connectState(QFtp::Connected);
}

void QFtpPI::handleSocketError(QAbstractSocket::SocketError socketError)
{
    // The end of a connection that stood is told by disconnected().
    if (m_hasStood)
        return;
    switch (socketError) {
    case QAbstractSocket::HostNotFoundError:
        lost(QFtp::HostNotFound, QStringLiteral("Host %1 not found").arg(m_host));
        return;
    case QAbstractSocket::ConnectionRefusedError:
        lost(QFtp::ConnectionRefused, QStringLiteral("Connection refused to host %1").arg(m_host));
        return;
    case QAbstractSocket::SocketTimeoutError:
        lost(QFtp::UnknownError, QStringLiteral("Connection timed out to host %1").arg(m_host));
        return;
    default:
        lost(QFtp::UnknownError, m_socket.errorString());
    }
}

void QFtpPI::handleDisconnected()
{
    const quint64 connection = m_connection;
    readReplies();
    if (connection == m_connection)
        lost(QFtp::UnknownError, connectionClosed());
}

void QFtpPI::readReplies()
{
    const quint64 connection = m_connection;
    while (connection == m_connection && m_socket.bytesAvailable() > 0) {
        const QByteArray bytes = m_socket.read(kControlBlock);
        QByteArrayView rest(bytes);
        touch();
        while (connection == m_connection && !rest.isEmpty() && !m_replies.isBroken()) {
            if (const auto reply = m_replies.next(rest))
                handleReply(*reply);
        }
        if (connection == m_connection && m_replies.isBroken()) {
            giveUp(QFtp::UnknownError, QStringLiteral("The server's reply is too long"));
            return;
        }
    }
}

void QFtpPI::handleReply(const FtpReply& reply)
{
    static constexpr std::array<State, 6> kNextState = {Failure, Waiting, Success, Idle, Failure, Failure};
    const auto group = static_cast<size_t>(reply.code / 100);
    const State next = group < kNextState.size() ? kNextState[group] : Failure;
    // The slot may give the connection up.
    const quint64 connection = m_connection;
    Q_EMIT rawFtpReply(reply.code, reply.text);
    if (connection != m_connection)
        return;
    if (isOfAbortedTransfer(reply))
        return;
    if (m_abort != Abort::None) {
        handleAbortReply(reply);
        return;
    }
    if (m_state == Begin) {
        if (next != Waiting)
            handleGreeting(reply);
        return;
    }
    // What nobody has asked for.
    if (m_line.isEmpty() || m_isHeld)
        return;

    m_state = next;
    if (m_state == Waiting) {
        if (isLine(u"STOR "))
            m_dtp.startSending();
    } else if (m_state == Failure) {
        if (isLine(u"EPSV") || isLine(u"EPRT")) {
            m_isExtendedRefused = true;
            m_pending.prepend(isLine(u"EPSV") ? kPassiveLine : kActiveLine);
            sendNext({});
        } else {
            // What the server said on the data connection may be the better text.
            m_dtp.drain();
            if (m_abort == Abort::None && connection == m_connection)
                failByServer(reply.text);
        }
    } else if (!handleSpecialReply(reply)) {
        sendNext(reply.text);
    }
}

void QFtpPI::handleGreeting(const FtpReply& reply)
{
    if (reply.code / 100 == 2 || reply.code / 100 == 3) {
        m_state = Idle;
        finish(QStringLiteral("Connected to host %1").arg(m_host));
        return;
    }
    m_isServerText = true;
    giveUp(QFtp::UnknownError, reply.text);
}

bool QFtpPI::handleSpecialReply(const FtpReply& reply)
{
    if (m_line == kPassiveLine || m_line == u"EPSV\r\n")
        return startPassive(reply);
    if (reply.code == 230) {
        if (isLine(u"USER ") && !m_pending.isEmpty() && m_pending.first().startsWith(u"PASS "))
            m_pending.removeFirst();
        m_line.clear();
        Q_EMIT connectState(QFtp::LoggedIn);
        // The slot may abort, and then the command ends by the answer to that.
        return m_abort != Abort::None || !m_isBusy;
    }
    if (reply.code == 213 && isLine(u"SIZE ")) {
        m_dtp.setTotal(std::max<qint64>(QStringView(reply.text).trimmed().toLongLong(), 0));
        return false;
    }
    if (isLine(u"QUIT")) {
        // What follows finishes the command, here or when the server has closed.
        m_socket.disconnectFromHost();
        return true;
    }
    if (!isTransfer())
        return false;
    if (isLine(u"STOR ") && !m_dtp.hasStartedSending()) {
        failByServer(reply.text);
        return true;
    }
    m_heldText = reply.text;
    m_isHeld = m_dtp.isOpen();
    if (!m_isHeld)
        endTransfer(reply.text);
    return true;
}

bool QFtpPI::startPassive(const FtpReply& reply)
{
    std::optional<FtpAddresses::Endpoint> endpoint;
    if (m_line == kPassiveLine && reply.code == 227)
        endpoint = FtpAddresses::passive(reply.text);
    if (m_line != kPassiveLine && reply.code == 229) {
        if (const auto port = FtpAddresses::extendedPassive(reply.text))
            endpoint = {m_socket.peerAddress(), *port};
    }
    if (!endpoint) {
        failByServer(reply.text);
        return true;
    }
    if (m_isPassiveToPeer)
        endpoint->address = m_socket.peerAddress();
    m_line.clear();
    m_isWaitingForData = true;
    m_dtp.connectToHost(*endpoint);
    return true;
}

bool QFtpPI::isTransfer() const
{
    return isLine(u"RETR") || isLine(u"LIST") || isLine(u"STOR") || isLine(u"NLST") || isLine(u"MLSD") ||
           isLine(u"APPE") || isLine(u"STOU");
}

void QFtpPI::endTransfer(const QString& text)
{
    m_dtp.stopListening();
    const bool isCut = isLine(u"STOR ") && !m_dtp.isAllSent();
    if (isCut)
        failByServer(QStringLiteral("The data connection was closed before all was sent"));
    else if (!m_dtp.failureText().isEmpty())
        failByServer(text);
    else {
        m_dtp.release();
        sendNext(text);
    }
}

void QFtpPI::handleDataClosed()
{
    touch();
    if (std::exchange(m_isHeld, false))
        endTransfer(m_heldText);
}

void QFtpPI::handleDataFailed()
{
    if (std::exchange(m_isWaitingForData, false))
        fail(QFtp::ConnectionRefused, QStringLiteral("Connection refused for data connection"));
}

void QFtpPI::handleAbortReply(const FtpReply& reply)
{
    if (reply.code / 100 == 1)
        return;
    m_abort = Abort::WaitForFinish;
    // 225 and 202 answer the ABOR itself, whatever became of the transfer's own reply.
    if (--m_abortReplies > 0 && reply.code != 225 && reply.code != 202)
        return;
    m_isAbortedReplyDue = m_abortReplies > 0;
    failByServer(reply.text);
}

bool QFtpPI::isOfAbortedTransfer(const FtpReply& reply)
{
    // It would come ahead of any other reply, and no command begins with a line that is answered so.
    const bool wasDue = std::exchange(m_isAbortedReplyDue, false);
    return wasDue && (reply.code == 226 || reply.code == 426);
}

void QFtpPI::sendNext(const QString& text)
{
    m_line.clear();
    if (m_pending.isEmpty()) {
        finish(text);
        return;
    }
    const QString line = lineForFamily(m_pending.takeFirst());
    if (!line.isEmpty())
        send(line);
}

QString QFtpPI::lineForFamily(const QString& line)
{
    const bool isExtended = FtpAddresses::isIpv6(m_socket.peerAddress()) && !m_isExtendedRefused;
    if (line == kPassiveLine)
        return isExtended ? QStringLiteral("EPSV\r\n") : line;
    if (line != kActiveLine)
        return line;
    const quint16 port = m_dtp.listen(m_socket.localAddress());
    if (port == 0) {
        fail(QFtp::ConnectionRefused, QStringLiteral("Connection refused for data connection"));
        return {};
    }
    // Without the extended form there are no numbers for an IPv6 address: the server refuses the bare line.
    const bool isBare = FtpAddresses::isIpv6(m_socket.localAddress()) && m_isExtendedRefused;
    return isBare ? line : FtpAddresses::activeLine({m_socket.localAddress(), port});
}

void QFtpPI::send(const QString& line)
{
    m_line = line;
    m_state = Waiting;
    m_dtp.setLine(line);
    m_socket.write(line.toUtf8());
    touch();
    if (isLine(u"QUIT"))
        Q_EMIT connectState(QFtp::Closing);
}

void QFtpPI::finish(const QString& text)
{
    m_state = Idle;
    m_isBusy = false;
    m_line.clear();
    m_dtp.setLine({});
    touch();
    Q_EMIT finished(text);
}

void QFtpPI::failByServer(const QString& text)
{
    const QString local = m_dtp.failureText();
    m_isServerText = true;
    if (isLine(u"QUIT"))
        giveUp(QFtp::UnknownError, text);
    else
        fail(QFtp::UnknownError, local.isEmpty() ? text : local);
}

void QFtpPI::fail(int errorCode, const QString& text)
{
    const bool isServerText = std::exchange(m_isServerText, false);
    m_state = Idle;
    m_pending.clear();
    m_line.clear();
    m_abort = Abort::None;
    m_isHeld = false;
    m_isWaitingForData = false;
    const bool wasBusy = std::exchange(m_isBusy, false);
    if (wasBusy)
        m_dtp.clear();
    else
        m_dtp.dropConnection();
    touch();
    m_isServerText = isServerText;
    if (wasBusy)
        Q_EMIT error(errorCode, text);
    m_isServerText = false;
}

void QFtpPI::giveUp(int errorCode, const QString& text)
{
    if (!m_isUp)
        return;
    // Its own signals would come first otherwise, with another text.
    const QSignalBlocker blocker(m_socket);
    m_socket.abort();
    // Only a server that closes ends a QUIT well.
    m_line.clear();
    lost(errorCode, text);
}

void QFtpPI::lost(int errorCode, const QString& text)
{
    if (!std::exchange(m_isUp, false))
        return;
    ++m_connection;
    m_replies.clear();
    const bool isQuit = isLine(u"QUIT") && m_abort == Abort::None;
    Q_EMIT connectState(QFtp::Unconnected);
    if (isQuit)
        finish(text);
    else
        fail(errorCode, text);
}
