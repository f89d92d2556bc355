#include "NvxQtCommon/control/HydCommandAdapter.h"

#include "NvxQtCommon/contract/message/HydControlMessage.h"

#include <QDebug>
#include <QHostAddress>

#include <array>

namespace {

// Reads of this size or less are never looked at for what they begin with.
constexpr size_t kLargestUnclassifiedRead = 6;
constexpr uint32_t kSerialSendLimit = 5;
constexpr uint32_t kTcpSendLimitUnknownPeer = 5;
constexpr uint32_t kTcpSendLimitKnownPeer = 15;

// Log lines whose fixed text ends with a blank take what follows as it is.
QDebug plainLog()
{
    return qDebug().nospace().noquote();
}

} // namespace

HydCommandAdapter::HydCommandAdapter(HydConnectionType connType, QObject* parent)
    : QObject(parent), m_scratch(std::make_unique<char[]>(kScratchSize)), m_connType(connType)
{
    registerNvxMetaTypes();
    m_socket.setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    // Without a poll the port is not drained once the staging buffer is full, and would take memory for ever.
    m_serialPort.setReadBufferSize(kSocketReadBufferSize);

    // Ahead of the signals that others see, so that the state is right when they come.
    connect(&m_socket, &QTcpSocket::stateChanged, this, &HydCommandAdapter::updateChannelOpen);
    // Qt sets options on a live socket only: what was asked for above takes effect here.
    connect(&m_socket, &QTcpSocket::connected, this,
            [this] { m_socket.setSocketOption(QAbstractSocket::KeepAliveOption, 1); });

    connect(&m_socket, &QTcpSocket::readyRead, this, &HydCommandAdapter::readStream);
    connect(&m_socket, &QTcpSocket::disconnected, this, &HydCommandAdapter::connectionClosed);
    connect(&m_socket, &QTcpSocket::connected, this, &HydCommandAdapter::connectionOpen);
    connect(&m_socket, &QTcpSocket::errorOccurred, this,
            [this](QAbstractSocket::SocketError socketError) { Q_EMIT error(ErrNotConnected, socketError); });
    connect(&m_serialPort, &QSerialPort::readyRead, this, &HydCommandAdapter::serialDataReady);
    connect(&m_serialPort, &QSerialPort::readyRead, this, &HydCommandAdapter::readStream);
    connect(&m_serialPort, &QSerialPort::bytesWritten, this, &HydCommandAdapter::serialDataWritten);
    connect(&m_serialPort, &QSerialPort::errorOccurred, this, &HydCommandAdapter::handlePortError);
    connect(&m_scanTimer, &QTimer::timeout, this, &HydCommandAdapter::scanData);
}

HydCommandAdapter::~HydCommandAdapter()
{
    m_scanTimer.stop();
    disconnect(&m_socket, &QTcpSocket::readyRead, this, nullptr);
    disconnect(&m_socket, &QTcpSocket::connected, this, nullptr);
    disconnect(&m_socket, &QTcpSocket::errorOccurred, this, nullptr);
    disconnect(&m_serialPort, nullptr, this, nullptr);

    closeConnection();
    // A command that was accepted still leaves if the system takes it; the close is then complete, and its
    // signal comes while there is somebody to emit it.
    m_socket.flush();
    m_socket.abort();
    disconnect(&m_socket, nullptr, this, nullptr);
}

// --- the channel

bool HydCommandAdapter::isConnected() const
{
    if (m_connType == ConnTcp)
        return m_socket.isOpen() && m_socket.peerAddress() == QHostAddress(m_ipAddr);
    if (m_connType == ConnSerial)
        return m_serialPort.isOpen();
    return false;
}

void HydCommandAdapter::updateChannelOpen()
{
    // The socket still knows its peer while it reports that the connection ended.
    const bool isUsable = m_connType != ConnTcp || m_socket.state() == QAbstractSocket::ConnectedState;
    m_channelOpen.store(isUsable && isConnected(), std::memory_order_release);
}

void HydCommandAdapter::setConnType(const HydConnectionType& connType)
{
    if (isConnected()) {
        qDebug()
            << "Warning HydCommandAdapter::setConnType called to changethe connection type while already "
               "connected. This can haveundefined consequences!";
    }
    m_connType = connType;
    updateChannelOpen();
}

unsigned HydCommandAdapter::baudRate() const
{
    return static_cast<unsigned>(m_serialPort.baudRate());
}

void HydCommandAdapter::setBaudRate(unsigned baudRate)
{
    // A closed port has nothing to clear and would report an error.
    if (m_serialPort.isOpen())
        m_serialPort.clear(QSerialPort::AllDirections);
    m_serialPort.setBaudRate(static_cast<qint32>(baudRate), QSerialPort::AllDirections);
}

void HydCommandAdapter::setIpAddr(NvxIpAddr address)
{
    // The text of no address is one that can be connected to: it means this machine.
    m_ipAddr = address == NvxIpAddr() ? QString() : QString::fromStdString(address.toString());
    updateChannelOpen();
}

void HydCommandAdapter::openConnection()
{
    clearReceived();
    if (isConnected())
        return;
    if (m_connType == ConnTcp)
        connectSocket();
    else if (m_connType == ConnSerial)
        openSerialAndReport();
}

void HydCommandAdapter::openIpConnection(QString)
{
    clearReceived();
    connectSocket();
}

void HydCommandAdapter::openSerConnection(QString port, unsigned baudRate)
{
    clearReceived();
    m_serialPort.setPortName(port);
    m_serialPort.setBaudRate(static_cast<qint32>(baudRate), QSerialPort::AllDirections);
    openSerialAndReport();
}

void HydCommandAdapter::connectSocket()
{
    if (m_socket.state() == QAbstractSocket::UnconnectedState)
        m_socket.connectToHost(m_ipAddr, CONTROL_PORT, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
}

void HydCommandAdapter::openSerialAndReport()
{
    if (connectSerial()) {
        Q_EMIT connectionOpen();
        return;
    }
    plainLog() << "Failed to open port " << m_serialPort.portName();
    Q_EMIT error(ErrPortFailure, m_serialPort.error());
}

bool HydCommandAdapter::connectSerial()
{
    plainLog() << "opening port " << m_serialPort.portName();
    if (!m_serialPort.open(QIODevice::ReadWrite))
        return false;
    if (!m_serialPort.setDataBits(QSerialPort::Data8))
        plainLog() << "Serial port (setDataBits): " << m_serialPort.errorString();
    if (!m_serialPort.setParity(QSerialPort::NoParity))
        plainLog() << "Serial port (setParity): " << m_serialPort.errorString();
    if (!m_serialPort.setStopBits(QSerialPort::OneStop))
        plainLog() << "Serial port (setStopBits): " << m_serialPort.errorString();
    if (!m_serialPort.setFlowControl(QSerialPort::NoFlowControl))
        plainLog() << "Serial port (setFlowControl): " << m_serialPort.errorString();
    // A line that went away under the settings was closed by its error.
    if (!m_serialPort.isOpen())
        return false;
    plainLog() << m_serialPort.portName() << " claims to be open";
    updateChannelOpen();
    return true;
}

void HydCommandAdapter::closeConnection()
{
    if (m_connType == ConnTcp) {
        if (m_socket.state() != QAbstractSocket::UnconnectedState)
            m_socket.close();
    } else if (m_connType == ConnSerial) {
        // A port writes from the event loop: what was accepted leaves first, as on a socket.
        if (m_serialPort.isOpen() && m_serialPort.error() == QSerialPort::NoError)
            m_serialPort.flush();
        // Closing a closed port would report an error.
        if (m_serialPort.isOpen())
            m_serialPort.close();
        updateChannelOpen();
        Q_EMIT connectionClosed();
    }
}

void HydCommandAdapter::clearReceived()
{
    m_responseBuffer.clear();
    m_collectBuffer.clear();
}

void HydCommandAdapter::handleSocketDisconnect()
{
    plainLog() << "The CNC channel is disconnected for " << m_ipAddr;
}

void HydCommandAdapter::handlePortError(QSerialPort::SerialPortError portError)
{
    if (portError == QSerialPort::NoError)
        return;
    plainLog() << "Serial port error on " << m_serialPort.portName() << " " << portError;
    Q_EMIT error(ErrPortFailure, portError);
    // A line that hung up stays open and repeats its error without end: it is closed once, so that the
    // recovery by counted sends opens it again when it is back.
    const bool isGone = portError == QSerialPort::ResourceError || portError == QSerialPort::ReadError;
    if (isGone && m_connType == ConnSerial && m_serialPort.isOpen())
        closeConnection();
}

// --- sending

bool HydCommandAdapter::sendCommand(std::shared_ptr<HydControlMsgPayload> payload)
{
    if (!payload) {
        qDebug() << "A command without a payload is not sent.";
        return false;
    }
    const bool isSetTime = payload->msgType() == 'A';
    if (!isConnected()) {
        if (m_connType == ConnTcp && m_socket.state() != QAbstractSocket::ConnectingState)
            Q_EMIT error(ErrNotConnected, m_socket.error());
        else if (m_connType == ConnSerial)
            Q_EMIT error(ErrNotConnected, m_serialPort.error());
        countFailedSend(isSetTime);
        return false;
    }

    if (isSetTime)
        m_failedSends = 0;
    std::array<unsigned char, HydControlMessage::kSendBufferSize> bytes{};
    unsigned long long size = 0;
    HydControlMessage(payload).serialize(&size, bytes.data());
    if (size == 0 || size > bytes.size()) {
        plainLog() << "A command of letter " << QChar::fromLatin1(static_cast<char>(payload->msgType()))
                   << " exceeds " << bytes.size() << " bytes and is not sent.";
        return false;
    }
    const auto count = static_cast<qint64>(size);
    return m_connType == ConnTcp ? writeToSocket(bytes.data(), count) : writeToPort(bytes.data(), count);
}

bool HydCommandAdapter::writeToSocket(const unsigned char* bytes, qint64 size)
{
    if (m_socket.state() == QAbstractSocket::ConnectedState &&
        m_socket.write(reinterpret_cast<const char*>(bytes), size) == size)
        return true;
    const auto socketError = m_socket.error();
    const auto state = m_socket.state();
    Q_EMIT error(ErrSocketWrite, socketError);
    qDebug().noquote() << "Socket is not open: m_socket.error():" << socketError
                       << "m_socket.state():" << state << m_ipAddr << "sendCommand";
    return false;
}

bool HydCommandAdapter::writeToPort(const unsigned char* bytes, qint64 size)
{
    if (m_serialPort.write(reinterpret_cast<const char*>(bytes), size) == size)
        return true;
    plainLog() << "Error writing bytes. " << m_serialPort.portName();
    Q_EMIT error(ErrSerialWrite, m_serialPort.error());
    return false;
}

// The counts differ, and neither is set back by opening again: both are intended.
void HydCommandAdapter::countFailedSend(bool isSetTime)
{
    if (m_connType == ConnSerial) {
        if (m_failedSends++ <= kSerialSendLimit)
            return;
        const auto portError = m_serialPort.error();
        Q_EMIT error(ErrConnectionLost, portError);
        plainLog() << "The port is not connected, will be closed: " << m_serialPort.portName() << " "
                   << portError;
        closeConnection();
        openConnection();
    } else if (m_connType == ConnTcp) {
        const auto state = m_socket.state();
        if (state == QAbstractSocket::ConnectingState || state == QAbstractSocket::ConnectedState)
            return;
        const bool isPeerUnknown = m_socket.peerAddress().isNull();
        if (!isPeerUnknown && !isSetTime)
            return;
        if (m_failedSends++ <= (isPeerUnknown ? kTcpSendLimitUnknownPeer : kTcpSendLimitKnownPeer))
            return;
        const auto socketError = m_socket.error();
        Q_EMIT error(ErrConnectionLost, socketError);
        plainLog() << "The socket is not connected, will be closed: " << m_ipAddr << " " << socketError;
        closeConnection();
        // A peer that doesn't read what is still to be written would keep the socket closing for ever.
        m_socket.abort();
        clearReceived();
        connectSocket();
    }
}

// --- the poll

void HydCommandAdapter::setDataScanConf(int scanWait, signed char scanMask)
{
    m_scanWait.exchange(scanWait);
    m_scanMask.exchange(scanMask);
    clearReceived();
    m_socket.setReadBufferSize(kSocketReadBufferSize);
    // A positive wait while the poll runs stops it: intended, the next reply starts it again.
    if (scanWait > 0 && !m_scanTimer.isActive())
        m_scanTimer.start(scanWait);
    else
        m_scanTimer.stop();
}

void HydCommandAdapter::scanData()
{
    const auto mask = m_scanMask.load();
    if (mask != 0)
        sendCommand(std::make_shared<HydDataCollectCmd>(static_cast<uint8_t>(mask)));
}

// --- reading

void HydCommandAdapter::readStream()
{
    // A receiver of a signal below that runs an event loop of its own must not read into the same area.
    if (m_isReading)
        return;
    const int scanWait = m_scanWait.load();
    const qint64 size = readToScratch(scanWait);
    if (size < 0)
        return;

    m_isReading = true;
    const std::span bytes(reinterpret_cast<const uint8_t*>(m_scratch.get()), static_cast<size_t>(size));
    classify(bytes, scanWait);
    store(bytes);
    m_isReading = false;
    // What one read leaves behind would wait for the next arrival, which may never come. A read of nothing,
    // as with a full staging buffer, would repeat itself without end.
    if (size > 0 && hasUnread())
        QMetaObject::invokeMethod(this, &HydCommandAdapter::readStream, Qt::QueuedConnection);
}

bool HydCommandAdapter::hasUnread() const
{
    return (m_connType == ConnTcp && m_socket.bytesAvailable() > 0) ||
           (m_connType == ConnSerial && m_serialPort.bytesAvailable() > 0);
}

/// Returns the count of bytes read, or -1 when there is nothing to go on with.
qint64 HydCommandAdapter::readToScratch(int scanWait)
{
    QIODevice* device = nullptr;
    if (m_connType == ConnTcp)
        device = &m_socket;
    else if (m_connType == ConnSerial)
        device = &m_serialPort;
    if (device == nullptr || !device->isOpen())
        return -1;
    if (scanWait > 0)
        return device->read(m_scratch.get(), kScratchSize);
    // Nothing drains the staging buffer here, so that it fills for good without a poll: intended.
    const qint64 size = device->read(m_scratch.get(), static_cast<qint64>(m_stagingBuffer.freeSpace()));
    if (size > 0)
        stage({reinterpret_cast<const uint8_t*>(m_scratch.get()), static_cast<size_t>(size)});
    return size;
}

void HydCommandAdapter::stage(std::span<const uint8_t> bytes)
{
    const auto written = m_stagingBuffer.write(bytes.data(), bytes.size());
    if (written < bytes.size())
        plainLog() << "The staging buffer is full, bytes dropped: " << bytes.size() - written;
}

void HydCommandAdapter::classify(std::span<const uint8_t> bytes, int scanWait)
{
    if (bytes.size() <= kLargestUnclassifiedRead || bytes[0] != '*')
        return;
    if (scanWait <= 0) {
        if (bytes[1] >= '8' && bytes[1] <= ']')
            m_collecting = false;
    } else if (bytes[1] == 'C') {
        m_collecting = true;
        m_collectBuffer.write(&m_stagingBuffer);
        m_stagingBuffer.clear();
    } else {
        m_collecting = false;
    }
}

/// Stores what was read and parses what can be parsed.
void HydCommandAdapter::store(std::span<const uint8_t> bytes)
{
    if (m_collecting) {
        // Without a poll the bytes are in the staging buffer already and come in twice: intended.
        stage(bytes);
        // A message is parsed when the next one begins: intended.
        if (!m_collectBuffer.isEmpty())
            parse(m_collectBuffer);
        return;
    }
    // A read that doesn't fit behind an unfinished message goes in by pieces.
    do {
        const auto written = m_responseBuffer.write(bytes.data(), bytes.size());
        // Cannot happen here: the parser leaves less than a frame behind, which never fills the buffer.
        if (written == 0 && !bytes.empty()) {
            plainLog() << "The response buffer is full, bytes dropped: " << bytes.size();
            bytes = {};
        }
        bytes = bytes.subspan(written);
        parse(m_responseBuffer);
    } while (!bytes.empty());
}

/// Emits the messages that `buffer` holds.
void HydCommandAdapter::parse(CircularByteBuffer& buffer)
{
    const bool isCollecting = m_collecting;
    const auto skippedBefore = m_processor.skippedBytes();
    ControlResponseEvent event(buffer);
    m_processor.setOutOfData(false);
    do {
        if (isCollecting)
            m_processor.checkL(&event);
        m_processor.dispatch(&event);
        if (!m_processor.isAtEndState())
            continue;
        const auto message = m_processor.message();
        if (message)
            handleMessage(*message);
    } while (!m_processor.outOfData());

    const auto skipped = m_processor.skippedBytes() - skippedBefore;
    if (skipped > 0)
        plainLog() << "Bytes that belong to no message, skipped: " << skipped;
    if (isCollecting && !m_collectBuffer.isEmpty()) {
        plainLog() << "An unfinished data collect message is dropped, bytes: " << m_collectBuffer.byteCount();
        m_collectBuffer.clear();
    }
    const int scanWait = m_scanWait.load();
    if (scanWait > 0 && m_keepConnection && !m_scanTimer.isActive())
        m_scanTimer.start(scanWait);
}

void HydCommandAdapter::handleMessage(const HydControlMessage& message)
{
    if (const auto payload = message.payload()) {
        if (payload->msgType() == 'S') {
            const auto trigger = std::dynamic_pointer_cast<HydTrigger>(payload);
            const std::string text = trigger ? trigger->errorMes(true) : std::string();
            if (!text.empty())
                Q_EMIT signalErrorResponse(text);
        } else if (const auto collected = std::dynamic_pointer_cast<HydDataCollectCmd>(payload)) {
            m_scanTimer.stop();
            const int scanWait = m_scanWait.load();
            if (scanWait > 0 && static_cast<int8_t>(collected->scanMask()) < 0)
                scanData();
            else if (scanWait > 0)
                m_scanTimer.start(scanWait);
        }
        Q_EMIT commandResponse(payload);
    } else {
        Q_EMIT signalErrorResponse("Incorrect response from device because of wrong request.");
        plainLog() << "nullptr == spPayload: "
                   << "readStream";
    }
    if (!m_keepConnection && m_socket.state() != QAbstractSocket::UnconnectedState)
        m_socket.close();
}
