#pragma once

#include "NvxQtCommon/array/CZCRWebSocket.h"
#include "NvxQtCommon/streaming/HydStreamAdapter.h"

/// The spectra of all channels of one array controller, by the signals of any other stream: each frame of the
/// web socket is an eventHeader and a streamDataReady under the identity of its channel, stamped with the
/// time of its arrival. Made and owned by the application; works on the thread that it lives on, which must
/// run an event loop. May be deleted from inside one of its signals.
///
/// There is no alive timer and no reconnection here, and no total power: the bins come as they are, halved
/// towards zero. The functions below shadow those of the base, which aren't virtual: call them through this
/// class.
class NVXQTCOMMON_EXPORT ZcrStreamAdapter : public HydStreamAdapter
{
    Q_OBJECT

public:
    /// An adapter without an address: see setIpAddr(). `deviceId` is that of the array controller. `port` is
    /// kept and not used: array controllers have one port.
    ZcrStreamAdapter(HydStreamType streamType, unsigned short port, HydDeviceId deviceId, int alivePeriodMs);
    /// `ipAddress` is a numeric address; any other text leaves the address null, and connecting fails.
    ZcrStreamAdapter(HydStreamType streamType, unsigned short port, QString ipAddress, HydDeviceId deviceId,
                     int alivePeriodMs);
    /// Closes the connection; streamStopped isn't emitted.
    ~ZcrStreamAdapter() override;

    /// Wires the web socket to this adapter; makes no connection twice. The constructors do it.
    void createConnections();
    /// True while the web socket is connected, whoever started it.
    bool isStreaming() const;
    /// Takes effect at the next connection, as setHostAddress() does.
    void setIpAddr(QString ipAddress);

public Q_SLOTS:
    /// Connects; frames come at once. Closes a connection that there is.
    void connectStream();
    /// Closes the connection without streamStopped.
    void disconnectStream();
    /// Connects and emits streamStarted(false), before the connection stands. This is intended.
    void startStream();
    /// Closes the connection and emits streamStopped.
    void stopStream();
    /// One frame of any channel. The data hold one byte a bin, as many as the band width says and at least as
    /// many as the frame has; what the frame lacks is 0.
    void readStream(CZCRWebSocket::ZCR_STREAM_STR const& zcrStream);

private:
    std::shared_ptr<HydEventKeyChunk const> eventKey(const ZcrFrameHeader& frame) const;
    std::shared_ptr<HydFftSetupChunk const> fftSetup(const ZcrFrameHeader& frame) const;
    std::shared_ptr<HydStreamEventHeaderPayload> header(const ZcrFrameHeader& frame) const;
    std::shared_ptr<HydStreamDataPayload> data(const CZCRWebSocket::ZCR_STREAM_STR& frame) const;

    std::shared_ptr<CZCRWebSocket> m_webSocket;
};
