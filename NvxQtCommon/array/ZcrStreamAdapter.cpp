#include "NvxQtCommon/array/ZcrStreamAdapter.h"

#include <QPointer>

#include <algorithm>

namespace {

constexpr unsigned char kSpectrumFormat = 131;
constexpr int16_t kHumidity = 200;
constexpr uint16_t kArrayFlags = 256;
constexpr int32_t kMaxBinValue = 255;

/// Halves a bin towards zero.
unsigned char halved(char bin)
{
    return static_cast<unsigned char>(static_cast<int8_t>(bin) / 2);
}

} // namespace

ZcrStreamAdapter::ZcrStreamAdapter(HydStreamType streamType, unsigned short port, HydDeviceId deviceId,
                                   int alivePeriodMs)
    : ZcrStreamAdapter(streamType, port, QString(), std::move(deviceId), alivePeriodMs)
{
}

ZcrStreamAdapter::ZcrStreamAdapter(HydStreamType streamType, unsigned short port, QString ipAddress,
                                   HydDeviceId deviceId, int alivePeriodMs)
    : HydStreamAdapter(streamType, port, ipAddress, std::move(deviceId), alivePeriodMs, false),
      m_webSocket(CZCRWebSocket::make())
{
    // As a child it follows this adapter to another thread.
    m_webSocket->setParent(this);
    m_webSocket->setHAddress(QHostAddress(ipAddress));
    createConnections();
}

ZcrStreamAdapter::~ZcrStreamAdapter()
{
    // A function of this adapter further up the stack may still hold it.
    m_webSocket->setParent(nullptr);
}

void ZcrStreamAdapter::createConnections()
{
    constexpr auto kDirectOnce = static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::UniqueConnection);
    CZCRWebSocket* socket = m_webSocket.get();
    connect(socket, &CZCRWebSocket::signalWebSocketConnected, this, &ZcrStreamAdapter::streamConnected,
            kDirectOnce);
    connect(socket, CZCRWebSocket::errorSignal(), this, &ZcrStreamAdapter::socketError, kDirectOnce);
    connect(socket, &CZCRWebSocket::signalWebSocBinMesReceived, this, &ZcrStreamAdapter::readStream,
            kDirectOnce);
}

bool ZcrStreamAdapter::isStreaming() const
{
    return m_webSocket->state() == QAbstractSocket::ConnectedState;
}

void ZcrStreamAdapter::setIpAddr(QString ipAddress)
{
    setHostAddress(QHostAddress(ipAddress));
    m_webSocket->setHAddress(hostAddress());
}

void ZcrStreamAdapter::connectStream()
{
    // A refusal may come at once, and its receiver may delete this adapter.
    const auto socket = m_webSocket;
    // It may have been set by the base.
    socket->setHAddress(hostAddress());
    socket->openConnection();
}

void ZcrStreamAdapter::disconnectStream()
{
    const auto socket = m_webSocket;
    socket->closeConnection();
}

void ZcrStreamAdapter::startStream()
{
    QPointer<ZcrStreamAdapter> self(this);
    connectStream();
    if (!self.isNull())
        Q_EMIT streamStarted(false);
}

void ZcrStreamAdapter::stopStream()
{
    QPointer<ZcrStreamAdapter> self(this);
    disconnectStream();
    if (!self.isNull())
        Q_EMIT streamStopped();
}

// --- frames

void ZcrStreamAdapter::readStream(CZCRWebSocket::ZCR_STREAM_STR const& zcrStream)
{
    HydDeviceId channel(DevTypeSkiff, zcrStream.frameSerial);
    channel.setHostDevNo(m_deviceId.serialNo());
    channel.setNetHostInfo(m_deviceId.netHostInfo());
    QPointer<ZcrStreamAdapter> self(this);
    Q_EMIT eventHeader(
        header(zcrStream), channel,
        std::make_shared<HydDevice>(zcrStream.frameSerial, DevTypeSkiff, NvxNetHostInfo(), JobTagMap()));
    if (!self.isNull())
        Q_EMIT streamDataReady(data(zcrStream), channel);
}

std::shared_ptr<HydEventKeyChunk const> ZcrStreamAdapter::eventKey(const ZcrFrameHeader& frame) const
{
    stKEY_CHUNK_V1 record;
    record.time = static_cast<uint32_t>(now());
    record.seqLow = frame.frameSequence;
    return std::make_shared<HydEventKeyChunkV1>(&record);
}

std::shared_ptr<HydFftSetupChunk const> ZcrStreamAdapter::fftSetup(const ZcrFrameHeader& frame) const
{
    const HydJobSettings& settings = m_device.jobSettings();
    stFFT_SETUP_CHUNK_V1 record;
    record.sampleRate = frame.frameSampleRate;
    record.points = frame.frameNumPts;
    record.refLevel = static_cast<int16_t>(frame.frameFftRef);
    record.procType = settings.fftProcType();
    record.pointsBtw = static_cast<uint16_t>(m_device.getNumPtsFft());
    record.accum = frame.frameFftAccum;
    record.weight = static_cast<uint16_t>(settings.fftWeight());
    return std::make_shared<HydFftSetupChunkV1>(&record);
}

std::shared_ptr<HydStreamEventHeaderPayload> ZcrStreamAdapter::header(const ZcrFrameHeader& frame) const
{
    stDEVICE_CHUNK_V1 device;
    device.devType = DevTypeSkiff;
    device.serial = frame.frameSerial;
    device.sensitivity = static_cast<int16_t>(frame.frameSensitivity * 10);
    stSTATUS_CHUNK_V0 status;
    status.temperature = static_cast<int16_t>(frame.frameTemperature);
    status.humidity = kHumidity;
    status.flags = kArrayFlags;
    stAMPLITUDE_CHUNK_V0 scaling;
    scaling.isArray = 1;
    scaling.bitsPerSample = 1;
    scaling.maxValue = kMaxBinValue;

    using Devices = std::vector<std::shared_ptr<HydDeviceInfoChunk const>>;
    using Statuses = std::vector<std::shared_ptr<HydStreamStatusChunk const>>;
    using Scalings = std::vector<std::shared_ptr<HydAmplScalingChunk const>>;
    auto payload = std::make_shared<HydStreamEventHeaderPayload>(
        eventKey(frame), Devices{std::make_shared<HydDeviceInfoChunkV1>(&device)},
        Statuses{std::make_shared<HydStreamStatusChunkV0>(&status)}, HydStreamSetupContainer(fftSetup(frame)),
        Scalings{std::make_shared<HydAmplScalingChunkV0>(&scaling)}, uint8_t{1}, nullptr);
    payload->streamType = StreamSpectrum;
    return payload;
}

std::shared_ptr<HydStreamDataPayload> ZcrStreamAdapter::data(const CZCRWebSocket::ZCR_STREAM_STR& frame) const
{
    constexpr auto kHeaderSize = static_cast<qsizetype>(ZcrFrameHeader::kSize);
    const qsizetype size = frame.frameBytes.size();
    const qsizetype bins = std::max<qsizetype>(0, size - kHeaderSize);
    const auto count = std::max<qsizetype>(bins, frame.frameBandWidth);
    auto chunk = std::make_shared<HydStreamDataChunkV0>(0U, uint8_t{1}, kSpectrumFormat, frame.frameBandWidth,
                                                        static_cast<unsigned>(count), false);
    const char* first = frame.frameBytes.constData() + (size - bins);
    std::transform(first, first + bins, chunk->bytes().get(), halved);
    auto payload = std::make_shared<HydStreamDataPayload>(eventKey(frame), std::move(chunk));
    payload->streamType = StreamSpectrum;
    return payload;
}
