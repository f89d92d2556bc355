#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"
#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"
#include "NvxQtCommon/contract/stream/HydScanStreamConv.h"
#include "NvxQtCommon/contract/stream/HydStreamMessage.h"
#include "NvxQtCommon/contract/stream/HydStreamProcessor.h"
#include "NvxQtCommon/contract/stream/HydStreamType.h"
#include "NvxQtCommon/control/MetaTypes.h"
#include "NvxQtCommon/settings/CSignalPowerSettings.h"
#include "NvxQtCommon/streaming/NvxDataScale.h"
#include "NvxQtCommon/streaming/NvxNoiseFilter.h"
#include "NvxQtCommon/streaming/PowerTable.h"

#include <QAbstractSocket>
#include <QHostAddress>
#include <QObject>
#include <QString>
#include <QTcpSocket>
#include <QTimer>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

class HydEpochStreamAdapter;

/// One TCP stream of one recorder: one stream type, one port. Connects the socket, sends the start and stop
/// commands, watches the stream with an alive timer, restarts it when it dies, and emits what it delivers.
/// Made and owned by the application; works on the thread that it lives on, which must run an event loop. All
/// functions and slots are called on that thread. Don't delete it from inside one of its signals when others
/// hang on the same signal: use deleteLater().
class NVXQTCOMMON_EXPORT HydStreamAdapter : public QObject
{
    Q_OBJECT

public:
    /// Start and stop of a stream are flushed to the device in these forms; docs/wire-protocol.md explains
    /// them.
    static constexpr std::array<unsigned char, 4> stopStreamMsg{0x34, 0x2A, 0x00, 0x00};
    /// Bytes of the read buffer, of the ring behind it and of the socket's own buffer.
    static constexpr unsigned long long kBufferSize = 3145728;

    /// Seconds since the Unix epoch.
    using Clock = std::function<int64_t()>;

    /// An adapter without an address: see setHostAddress(). `alivePeriodMs` is the period of the alive timer
    /// in milliseconds; anything below 1 counts as 1. With `createSocket` the socket is made at once, but
    /// nothing happens on the network.
    HydStreamAdapter(HydStreamType streamType, unsigned short port, HydDeviceId deviceId, int alivePeriodMs,
                     bool createSocket);
    /// `ipAddress` is a numeric address; any other text leaves the address null, and connecting fails.
    HydStreamAdapter(HydStreamType streamType, unsigned short port, QString ipAddress, HydDeviceId deviceId,
                     int alivePeriodMs, bool createSocket);
    /// Stops the stream (streamStopped is emitted), closes the connection and drops the socket.
    ~HydStreamAdapter() override;

    /// With true, makes the socket and its connections; does nothing when there is a socket.
    void prepare(bool createSocket);
    /// Takes effect at the next connectStream().
    void setHostAddress(const QHostAddress& address) { m_hostAddress = address; }
    const QHostAddress& hostAddress() const { return m_hostAddress; }

    HydStreamType streamType() const { return m_streamType; }
    unsigned short port() const { return m_port; }
    const HydDeviceId& deviceId() const { return m_deviceId; }
    /// Length of the stream in seconds, 0 for continuous.
    unsigned short duration() const { return m_duration; }
    /// Requested sensor bits, HydSensStreamType.
    unsigned short reqData() const { return m_reqData; }
    void setReqData(unsigned short bits) { m_reqData = bits; }
    /// True when every bit of `bits` is requested.
    bool containSensType(HydSensStreamType bits) const { return (m_reqData & bits) == bits; }
    /// A continuous stream is watched by the alive timer, one of limited length is not.
    void setDuration(unsigned short seconds);
    /// True between a start and a stop, while the socket is connected.
    bool isStreaming() const;
    /// Text of the stream type; for a sensor stream with the texts of the requested bits.
    QString strStreamType() const;
    /// The eight bytes of the start command: length in whole minutes and the requested sensor bits.
    std::array<unsigned char, 8> createStartMsg() const;

    /// Connects, and starts with `start`, after `ms` milliseconds.
    void delayConnectStream(int ms, bool start);
    /// Stops the stream after `ms` milliseconds; a sensor stream only while its duration is 1 to 59 s.
    void setTimeToStopStream(int ms);
    /// Wires the socket to this adapter; the alive timer too when the stream is continuous. Does nothing
    /// without a socket, and makes no connection twice.
    void createConnections();
    /// Takes the alive timer, reading and starting on connection off this adapter.
    void disConnectStreamConnections();

    /// Takes the sample rate from the settings: the wave rate for wave streams, the spectrum rate for others.
    /// A noise filter that doesn't fit it is given up with signalNoNoiseFltr.
    void setSampleRate(const HydJobSettings& settings);
    /// Takes over `dev` as the device of this stream when it has this stream's device id: the whole record,
    /// so that what `dev` doesn't hold, such as job settings or an alias, is forgotten here. The job settings
    /// in it are what sequence checks need: without the tag of the wave sample rate they don't run.
    void updateDeviceInfo(HydDevice dev);
    /// One payload from elsewhere, emitted without any sequence logic.
    void handleStreamMessagePayload(std::shared_ptr<HydStreamMessagePayload> payload);
    /// One scan message, for stream types 1 and 2; others ignore it.
    void handleDataCollectMessage(std::shared_ptr<HydDataCollectCmd const> cmd);
    /// Passes a notification on, and ends the stream unless its code is for information (2 and 4).
    void notifyProc(std::shared_ptr<HydStreamNotifyPayload> payload);
    /// Turns a spectrum's byte values from half dB into dB (unless the stream is a spectrum file), subtracts
    /// the noise filter into its double values, emits signalTotalPower and passes it on. It works in place: a
    /// payload goes through it once. Null is ignored; a spectrum without values has the power 0.
    void dataProcFFT(std::shared_ptr<HydStreamDataPayload> payload);

    /// Takes all words but the reference type, which becomes 0. This is intended.
    void setDeviceScale(NvxDataScale const& scale);
    /// Sets the reference type to 0 whatever it is given. This is intended.
    void setRefType(eReferenceType type);
    /// Copies the filter onto the adapter's own; null changes nothing.
    void setNoiseFilter(std::shared_ptr<NvxNoiseFilter> filter);
    /// What spectra do with the ambient noise. For a mode that is on, where the adapter has no filter yet, it
    /// is read from the device's file in `folder`; a filter that can't be read or whose rate isn't that of
    /// the device is told by signalNoNoiseFltr, and the mode is off. A filter that was made once stays. This
    /// is intended.
    void setNoiseFiltMode(NOISE_FILTER_MODE mode, QString folder);
    NOISE_FILTER_MODE noiseFiltMode() const { return m_noiseFiltMode; }
    /// True for a spectrum-like stream whose mode is on.
    bool ifNoiseFilterSuitable() const;

    /// Which bins count towards total power; all of them until it is called.
    void setSignalPowerSet(CSignalPowerSettings const& settings);

    /// Reads of at most 8 bytes that were dropped because they didn't begin a message, since construction.
    uint64_t droppedReads() const { return m_droppedReads; }
    /// Bytes since construction that belonged to no good message, or that a new connection found unread.
    uint64_t skippedBytes() const { return m_processor.skippedBytes() + m_forgottenBytes; }
    /// Replaces the clock that tells whether the stream is stale, and that stamps what an array stream
    /// delivers; the system clock by default.
    void setClock(Clock clock);

Q_SIGNALS:
    /// `dev` is a copy of its own that the receiver may keep.
    void eventHeader(std::shared_ptr<HydStreamEventHeaderPayload> payload, HydDeviceId devId,
                     std::shared_ptr<HydDevice> dev);
    void streamDataReady(std::shared_ptr<HydStreamDataPayload> payload, HydDeviceId devId);
    /// Samples are missing ahead of a scan message.
    void streamDataLost(HydDeviceId devId);
    void streamNotify(std::shared_ptr<HydStreamNotifyPayload> payload, HydDeviceId devId);
    void streamStatusData(std::shared_ptr<HydStatusDataPayload> payload, HydDeviceId devId);
    void streamStopped();
    /// The start message went out; true when the alive timer caused it.
    void streamStarted(bool isAliveTimeOut);
    void streamConnected();
    /// Socket error while not streaming.
    void streamDisconnected(QAbstractSocket::SocketError err);
    void streamConnectionLost(QAbstractSocket::SocketError err, HydDeviceId devId);
    /// Socket error; twice for one error while streaming, which is intended.
    void socketError(QAbstractSocket::SocketError err);
    /// Headers don't follow on each other: `rate` samples were due, `delta` are between them.
    void headerError(QString errStr, HydDeviceId devId, uint rate, uint delta);
    /// For users; this library never emits it.
    void connectionTimeout();
    /// The duration became 0.
    void streamIsContinuous();
    /// A start attempt failed.
    void streamErrorMsg(QString msg);
    /// Level in dB of the sum of a spectrum's powers, 0 for a sum of 1e-9 or less. `devId` is that of the
    /// device record.
    void signalTotalPower(HydDeviceId const& devId, double val);
    /// The noise filter doesn't fit; spectra pass unfiltered from here on.
    void signalNoNoiseFltr(std::string mes, HydDeviceId devId);

public Q_SLOTS:
    /// Begins a connection unless there is one; anything under way is aborted. What an earlier connection
    /// left unread or unfinished is forgotten, logged and counted in skippedBytes().
    void connectStream();
    /// Closes the connection without a stop message and without streamStopped.
    void disconnectStream();
    /// Sends the start message, or connects first and sends it then.
    void startStream();
    /// Starts when `devId` is this stream's device and it isn't streaming; after `delay` milliseconds where
    /// it isn't connected yet.
    void startStreamDevId(HydDeviceId const& devId, int delay);
    /// The same with a duration in seconds, which is taken over for any `devId`.
    void startSensorsStreamDevId(HydDeviceId const& devId, int delay, uint16_t duration);
    /// Sends the stop message where the socket is open, and emits streamStopped in any case but without a
    /// socket. A connection attempt goes on, and the message leaves when it succeeds; it isn't flushed
    /// before, since that would end the attempt. To a connection that the recorder has just closed nothing is
    /// written.
    void stopStream();
    void stopStreamDevId(HydDeviceId const& devId);
    /// Connects and starts after 100 ms.
    void delayStartStream();
    /// Takes over the alias of `devId` when it is this stream's device.
    void updateDevAliasInfo(HydDeviceId const& devId);
    /// One message out of the processor, with sequence checks; null and unknown payloads are ignored.
    void handleStreamMessage(std::shared_ptr<HydStreamMessage> msg);
    void handleSocketError();
    void readStream();
    void streamAliveTimeOut();
    void handleSocketConnected();
    void handleStreamSocketError(QAbstractSocket::SocketError err);

protected:
    void reconnectAndStart(bool start);
    void applyDuration(uint16_t seconds);
    void dropConnection();
    /// Seconds since the Unix epoch, by the clock of setClock().
    int64_t now() const { return m_clock(); }

    QHostAddress m_hostAddress;
    HydDeviceId m_deviceId;
    HydDevice m_device;
    HydStreamType m_streamType;
    QTcpSocket* m_socket = nullptr;
    std::atomic<bool> m_isStreamingEnabled{false};
    uint16_t m_duration = 0;

private:
    void startRetryCheck();
    void startRetryFinal();
    void startConnected();
    HydEpochStreamAdapter* asEpochStream();
    void startByType();
    void reportStartFailure();
    void startAliveTimer();
    void stopAliveTimer();
    void stopAliveTimerLater();
    void stopAfterDuration();
    bool isConnected() const;
    bool isStale() const;
    int32_t rateOf(const HydJobSettings& settings) const;
    void resetSequences();
    void readRest();
    /// Says in the log how many bytes were lost; nothing for 0.
    void logSkipped(uint64_t skipped) const;
    void handleHeader(std::shared_ptr<HydStreamEventHeaderPayload> header);
    bool checkSequence(const HydEventKeyChunk& key);
    void handleData(std::shared_ptr<HydStreamDataPayload> data);
    void emitHeader(std::shared_ptr<HydStreamEventHeaderPayload> header);
    void emitData(std::shared_ptr<HydStreamDataPayload> data);
    bool isSpectrumLike() const;
    bool isNoiseFiltOn() const;
    bool filters(const HydStreamDataChunk* chunk) const;
    double processBins(const HydStreamDataChunk& chunk, bool filtering);
    void giveUpNoiseFilter(const std::string& reason);

    CircularByteBuffer m_rxBuffer{kBufferSize};
    std::unique_ptr<unsigned char[]> m_readBuffer;
    HydStreamProcessor m_processor;
    uint16_t m_port;
    QTimer m_aliveTimer{this};
    QMetaObject::Connection m_aliveConnection;
    uint16_t m_reqData = 0;
    std::atomic<bool> m_startOnConnect{false};
    std::atomic<bool> m_aliveRestart{false};
    int m_alivePeriodMs;
    uint32_t m_lastSpecTime = 0;
    HydScanStreamConv m_scanConv;
    bool m_dataAlive = true;
    int64_t m_lastHeaderSeq = 0;
    int64_t m_lastGapSeq = 0;
    int64_t m_eventSamples = 0;
    uint64_t m_lastEventId = 0;
    int32_t m_sampleRate = 0;
    int64_t m_lastReadSecs = 0;
    uint64_t m_droppedReads = 0;
    uint64_t m_forgottenBytes = 0;
    NvxDataScale m_deviceScale;
    CSignalPowerSettings m_signalPowerSet;
    int32_t m_minBin = 0;
    int32_t m_maxBin = 0;
    PowerTable m_powerTable;
    NOISE_FILTER_MODE m_noiseFiltMode = NoiseFilterOff;
    std::shared_ptr<NvxNoiseFilter> m_noiseFilter;
    Clock m_clock;
};
