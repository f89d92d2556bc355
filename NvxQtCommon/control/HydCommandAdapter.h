#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"
#include "NvxQtCommon/contract/message/HydControlProcessor.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QObject>
#include <QSerialPort>
#include <QString>
#include <QTcpSocket>
#include <QTimer>

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

/// The command channel to one recorder, over TCP or a serial line: sends control payloads, turns the bytes
/// that come back into control messages, and runs the periodic data collect poll. Owned by a device
/// controller, which moves it to a thread of its own and talks to it by signals only, or by whoever uses it
/// directly on one thread. All functions belong to the adapter's thread but those that say otherwise. A
/// receiver of its signals that wants to be rid of the adapter calls deleteLater().
class NVXQTCOMMON_EXPORT HydCommandAdapter : public QObject
{
    Q_OBJECT

public:
    /// TCP port of the command channel.
    static constexpr quint16 CONTROL_PORT = PortControl;
    static constexpr int kResponseBufferSize = 262144;
    static constexpr int kCollectBufferSize = 262144;
    static constexpr int kStagingBufferSize = 65536;
    static constexpr int kScratchSize = 262144;
    /// What the socket holds unread once a scan was configured, and the serial port at any time.
    static constexpr int kSocketReadBufferSize = 2621440;
    static constexpr int kDefaultScanWaitMs = 1000;

    /// Unconnected until one of the open functions is called.
    explicit HydCommandAdapter(HydConnectionType connType, QObject* parent = nullptr);
    /// Closes the channel; connectionClosed may come once more on the way.
    ~HydCommandAdapter() override;

    /// TCP: the socket is open and its peer is the stored address. Serial: the port is open. Other types:
    /// false.
    bool isConnected() const;
    /// State of the channel as last seen by the adapter, for other threads. Any thread.
    bool isChannelOpen() const { return m_channelOpen.load(std::memory_order_acquire); }
    /// True while a scan wait above 0 is configured, which it is from the start. Any thread.
    bool isCollectingData() const { return m_scanWait.load() > 0; }

    HydConnectionType connType() const { return m_connType; }
    /// Changing the type of a connected adapter is logged and done all the same.
    void setConnType(const HydConnectionType& connType);
    unsigned baudRate() const;
    /// Drops what the port's buffers hold, then sets the rate for both directions.
    void setBaudRate(unsigned baudRate);
    QString serialPortName() const { return m_serialPort.portName(); }
    void setSerialPortName(const QString& name) { m_serialPort.setPortName(name); }
    /// The address that the next TCP connection goes to; 0 for none, with which opening is an error.
    NvxIpAddr ipAddr() const { return NvxIpAddr(m_ipAddr.toStdString()); }
    void setIpAddr(NvxIpAddr address);
    /// False closes the socket after each message received. True at first.
    bool keepConnection() const { return m_keepConnection; }
    void setKeepConnection(bool keep) { m_keepConnection = keep; }

public Q_SLOTS:
    /// Opens the channel of the adapter's type; does nothing when it is connected already.
    void openConnection();
    /// Connects to the address given by setIpAddr(). The argument is not used, by design.
    void openIpConnection(QString address);
    void openSerConnection(QString port, unsigned baudRate);
    /// Opens the port with 8 data bits, no parity, one stop bit and no flow control; false when it can't be
    /// opened or goes away meanwhile. A refused setting is logged only.
    bool connectSerial();
    /// Closes the channel once what was accepted has left. A peer that doesn't read keeps a TCP channel
    /// closing, and opening does nothing then; the recovery by counted sends ends it.
    void closeConnection();
    /// Sends one payload. False, with an error signal or a log line, when it was not handed to the channel
    /// whole: no connection, a failed write, no payload, or a frame of more than 1024 bytes, of which nothing
    /// is sent. Sends without a connection count towards closing and opening the channel again, which drops
    /// what the peer hasn't taken.
    bool sendCommand(std::shared_ptr<HydControlMsgPayload> payload);
    /// Sets the poll: `scanWait` in milliseconds between a reply and the next request, 0 or below for none;
    /// `scanMask` the data asked for, 0 for none. Drops what was received and not parsed. A second call with
    /// a positive wait while the poll runs stops its timer; the next reply outside of the poll starts it.
    void setDataScanConf(int scanWait, signed char scanMask);
    /// Asks for data once; does nothing with a scan mask of 0.
    void scanData();
    void handleSocketDisconnect();

Q_SIGNALS:
    void connectionOpen();
    void connectionClosed();
    /// `serr` is the QAbstractSocket::SocketError or QSerialPort::SerialPortError.
    void error(HydControlError err, int serr);
    void serialDataReady();
    void serialDataWritten();
    /// One for each message received whose letter and payload are known.
    void commandResponse(std::shared_ptr<const HydControlMsgPayload> resp);
    /// A text of the device, or about a message that could not be read.
    void signalErrorResponse(const std::string& errorMes);

private Q_SLOTS:
    void readStream();

private:
    void connectSocket();
    void openSerialAndReport();
    void clearReceived();
    void updateChannelOpen();
    void handlePortError(QSerialPort::SerialPortError portError);
    bool writeToSocket(const unsigned char* bytes, qint64 size);
    bool writeToPort(const unsigned char* bytes, qint64 size);
    void countFailedSend(bool isSetTime);
    qint64 readToScratch(int scanWait);
    bool hasUnread() const;
    void classify(std::span<const uint8_t> bytes, int scanWait);
    void store(std::span<const uint8_t> bytes);
    void parse(CircularByteBuffer& buffer);
    void handleMessage(const HydControlMessage& message);
    void stage(std::span<const uint8_t> bytes);

    CircularByteBuffer m_responseBuffer{kResponseBufferSize};
    CircularByteBuffer m_collectBuffer{kCollectBufferSize};
    CircularByteBuffer m_stagingBuffer{kStagingBufferSize};
    std::unique_ptr<char[]> m_scratch;
    HydControlProcessor m_processor;
    QTcpSocket m_socket{this};
    QString m_ipAddr;
    bool m_keepConnection = true;
    HydConnectionType m_connType;
    QSerialPort m_serialPort{this};
    std::atomic<signed char> m_scanMask{0};
    std::atomic<int> m_scanWait{kDefaultScanWaitMs};
    QTimer m_scanTimer{this};
    uint32_t m_failedSends = 0;
    bool m_collecting = false;
    std::atomic<bool> m_channelOpen{false};
    bool m_isReading = false;
};
