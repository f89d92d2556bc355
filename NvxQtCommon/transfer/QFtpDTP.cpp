#include "NvxQtCommon/transfer/QFtpDTP.h"

#include <QTcpSocket>

namespace {

constexpr qint64 kReadBlock = 262144;
/// Bytes that a receiver such as a socket may have waiting before the server has to wait.
constexpr qint64 kMaxReceiverQueue = 1048576;

} // namespace

QFtpDTP::QFtpDTP(QObject* parent) : QObject(parent), m_server(this), m_sender(this)
{
    m_server.setObjectName(QStringLiteral("QFtpDTP active state server"));
    m_server.setMaxPendingConnections(1);
    connect(&m_server, &QTcpServer::newConnection, this, &QFtpDTP::handleNewConnection);
    connect(&m_sender, &FtpDataSender::failed, this, &QFtpDTP::fail);
    connect(&m_sender, &FtpDataSender::progress, this, [this](qint64 done, qint64 total) {
        Q_EMIT active();
        Q_EMIT dataTransferProgress(done, total);
    });
}

QFtpDTP::~QFtpDTP()
{
    abortConnection();
}

void QFtpDTP::setReceiver(QIODevice* device)
{
    if (m_receiver != nullptr)
        m_receiver->disconnect(this);
    m_receiver = device;
    m_hasReceiver = device != nullptr;
    if (device == nullptr || !device->isSequential())
        return;
    // Each of these may end the waiting for a device that is full.
    connect(device, &QIODevice::bytesWritten, this, &QFtpDTP::handleData, Qt::QueuedConnection);
    connect(device, &QIODevice::readChannelFinished, this, &QFtpDTP::handleData, Qt::QueuedConnection);
    connect(device, &QIODevice::aboutToClose, this, &QFtpDTP::handleData, Qt::QueuedConnection);
    connect(device, &QObject::destroyed, this, &QFtpDTP::handleData, Qt::QueuedConnection);
}

void QFtpDTP::setTimeRange(const QDateTime& start, const QDateTime& end, bool all)
{
    m_rangeStart = start;
    m_rangeEnd = end;
    m_isRangeAll = all;
}

void QFtpDTP::setLine(const QString& line)
{
    m_line = line;
    if (isListing())
        m_listing.setTimeRange(m_rangeStart, m_rangeEnd, m_isRangeAll);
}

void QFtpDTP::release()
{
    setReceiver(nullptr);
    m_sender.setDevice(nullptr);
    m_listing.clear();
    m_failure.clear();
    m_total = 0;
    m_hasStartedSending = false;
}

void QFtpDTP::clear()
{
    abortConnection();
    release();
    m_line.clear();
    m_isAborting = false;
}

void QFtpDTP::connectToHost(const FtpAddresses::Endpoint& endpoint)
{
    abortConnection();
    auto* socket = new QTcpSocket(this);
    setSocket(socket, QStringLiteral("QFtpDTP Passive state socket"));
    connect(socket, &QTcpSocket::connected, this, &QFtpDTP::handleConnected);
    connect(socket, &QTcpSocket::errorOccurred, this, [this, socket] {
        // An error of a connection that stood is followed by its end.
        if (socket == m_socket && !m_hasStood) {
            abortConnection();
            Q_EMIT failed();
        }
    });
    socket->connectToHost(endpoint.address, endpoint.port);
}

quint16 QFtpDTP::listen(const QHostAddress& address)
{
    abortConnection();
    return m_server.listen(address) ? m_server.serverPort() : quint16(0);
}

bool QFtpDTP::isOpen()
{
    // The server's connection may have come in without the event loop having had its turn.
    if (m_socket == nullptr && m_server.isListening())
        m_server.waitForNewConnection(0);
    return m_isGone || (m_socket != nullptr && m_socket->state() != QAbstractSocket::UnconnectedState);
}

bool QFtpDTP::isConnecting() const
{
    return m_socket != nullptr && (m_socket->state() == QAbstractSocket::ConnectingState ||
                                   m_socket->state() == QAbstractSocket::HostLookupState);
}

void QFtpDTP::drain()
{
    if (isOpen() && m_socket->state() == QAbstractSocket::ConnectedState)
        m_socket->waitForReadyRead(0);
}

void QFtpDTP::abortConnection()
{
    m_server.close();
    m_sender.stop();
    m_isGone = false;
    if (QTcpSocket* socket = m_socket) {
        m_socket = nullptr;
        socket->disconnect(this);
        socket->abort();
        socket->deleteLater();
    }
}

void QFtpDTP::dropConnection()
{
    if (isOpen())
        abortConnection();
    else
        stopListening();
}

void QFtpDTP::setAborting(bool isAborting)
{
    m_isAborting = isAborting;
    if (isAborting)
        handleData();
}

void QFtpDTP::startSending()
{
    m_hasStartedSending = true;
    sendIfReady();
}

void QFtpDTP::sendIfReady()
{
    if (m_hasStartedSending && !m_sender.hasStarted() && m_socket != nullptr &&
        m_socket->state() == QAbstractSocket::ConnectedState)
        m_sender.start(m_socket);
}

qint64 QFtpDTP::bytesAvailable() const
{
    return m_socket != nullptr ? m_socket->bytesAvailable() : 0;
}

qint64 QFtpDTP::read(char* data, qint64 size)
{
    const qint64 count = m_socket != nullptr ? m_socket->read(data, size) : 0;
    m_done += qMax<qint64>(count, 0);
    return count;
}

QByteArray QFtpDTP::readAll()
{
    const QByteArray all = m_socket != nullptr ? m_socket->readAll() : QByteArray();
    m_done += all.size();
    return all;
}

void QFtpDTP::setSocket(QTcpSocket* socket, const QString& name)
{
    m_socket = socket;
    m_done = 0;
    m_hasStood = false;
    m_isGone = false;
    socket->setObjectName(name);
    socket->setReadBufferSize(kReadBuffer);
    connect(socket, &QTcpSocket::readyRead, this, &QFtpDTP::handleData);
    connect(socket, &QTcpSocket::disconnected, this, &QFtpDTP::handleDisconnected);
}

void QFtpDTP::handleNewConnection()
{
    QTcpSocket* socket = m_server.nextPendingConnection();
    if (socket == nullptr)
        return;
    // One connection is what was asked for.
    m_server.close();
    socket->setParent(this);
    setSocket(socket, QStringLiteral("QFtpDTP Active state socket"));
    handleConnected();
    if (socket == m_socket && socket->state() == QAbstractSocket::UnconnectedState)
        handleDisconnected();
}

void QFtpDTP::handleConnected()
{
    m_hasStood = true;
    Q_EMIT active();
    sendIfReady();
    Q_EMIT connected();
}

void QFtpDTP::handleDisconnected()
{
    m_sender.stop();
    m_isGone = true;
    handleData();
}

void QFtpDTP::handleData()
{
    if (m_socket == nullptr)
        return;
    const QPointer<QTcpSocket> socket = m_socket;
    if (socket->bytesAvailable() > 0) {
        Q_EMIT active();
        if (m_line.isEmpty() && !m_isAborting)
            closeNow();
        else if (m_isAborting)
            discard();
        else if (isListing())
            readListing();
        else if (m_hasReceiver)
            readIntoReceiver();
        else {
            Q_EMIT dataTransferProgress(m_done + socket->bytesAvailable(), m_total);
            if (socket != nullptr && socket == m_socket && socket->bytesAvailable() > 0)
                Q_EMIT readyRead();
        }
    }
    const bool isTaken = !m_hasReceiver || bytesAvailable() == 0;
    if (socket != nullptr && socket == m_socket && m_isGone && isTaken) {
        m_isGone = false;
        Q_EMIT closed();
    }
}

void QFtpDTP::readListing()
{
    while (bytesAvailable() > 0)
        m_listing.write(m_socket->read(kReadBlock));
    const QList<QUrlInfo> batch = m_listing.takeBatch();
    if (!batch.isEmpty())
        Q_EMIT listInfoS(batch);
}

void QFtpDTP::readIntoReceiver()
{
    if (m_block == nullptr)
        m_block = std::make_unique_for_overwrite<char[]>(kReadBlock);
    const QPointer<QTcpSocket> socket = m_socket;
    while (socket != nullptr && socket == m_socket && socket->bytesAvailable() > 0) {
        if (m_isAborting) {
            discard();
            return;
        }
        if (m_receiver == nullptr || !m_receiver->isWritable()) {
            fail(QStringLiteral("The device for the file is gone"));
            return;
        }
        if (isReceiverFull())
            return;
        const qint64 count = socket->read(m_block.get(), kReadBlock);
        if (count <= 0)
            return;
        if (m_receiver->write(m_block.get(), count) != count) {
            fail(m_receiver->errorString());
            return;
        }
        m_done += count;
        Q_EMIT dataTransferProgress(m_done, m_total);
    }
}

bool QFtpDTP::isReceiverFull() const
{
    return m_receiver != nullptr && m_receiver->isSequential() &&
           m_receiver->bytesToWrite() > kMaxReceiverQueue;
}

bool QFtpDTP::isWaitingForCaller() const
{
    if (m_hasReceiver)
        return bytesAvailable() > 0 && isReceiverFull();
    if (m_sender.isWaitingForDevice())
        return true;
    // Once the server has closed nothing more can come, and the caller may read when it likes.
    return m_socket != nullptr && m_socket->state() == QAbstractSocket::ConnectedState &&
           bytesAvailable() >= kReadBuffer;
}

void QFtpDTP::discard()
{
    while (bytesAvailable() > 0)
        m_socket->skip(bytesAvailable());
}

void QFtpDTP::fail(const QString& text)
{
    m_failure = text;
    closeNow();
}

void QFtpDTP::closeNow()
{
    abortConnection();
    Q_EMIT closed();
}
