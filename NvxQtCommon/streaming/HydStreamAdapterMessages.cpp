// The half of HydStreamAdapter from the moment bytes leave the socket to the moment a payload is emitted.
#include "NvxQtCommon/streaming/HydStreamAdapter.h"

#include <QDebug>
#include <QPointer>

namespace {

constexpr qint64 kMaxShortRead = 8;

/// Difference that wraps like the numbers on the wire do.
int64_t sequenceDelta(int64_t to, int64_t from)
{
    return static_cast<int64_t>(static_cast<uint64_t>(to) - static_cast<uint64_t>(from));
}

QString deltaText()
{
    return QStringLiteral("Sequence delta is not equal the sample rate!");
}

} // namespace

void HydStreamAdapter::readStream()
{
    if (m_socket == nullptr)
        return;
    const qint64 count = m_socket->read(reinterpret_cast<char*>(m_readBuffer.get()),
                                        static_cast<qint64>(m_rxBuffer.capacity()));
    if (count < 0)
        return;
    // A short read that doesn't begin a message is dropped, even when it is the rest of one. This is
    // intended.
    if (count <= kMaxShortRead && (m_readBuffer[0] != '0' || m_readBuffer[1] != '*')) {
        m_dataAlive = false;
        if (count > 0) {
            ++m_droppedReads;
            qDebug() << "Dropped a short stream read of" << count << "bytes," << strStreamType()
                     << m_deviceId.serialNo();
        }
        return;
    }
    m_lastReadSecs = m_clock();
    m_dataAlive = true;

    const uint64_t skippedBefore = m_processor.skippedBytes();
    const auto size = static_cast<unsigned long long>(count);
    // All of it fits but for a read out of a slot: each round of the processor empties the ring.
    const auto written = m_rxBuffer.write(m_readBuffer.get(), size);
    m_processor.notifyDataAvailable();
    StreamInputEvent event(m_rxBuffer);
    QPointer<HydStreamAdapter> self(this);
    do {
        m_processor.dispatch(&event);
        if (!m_processor.isAtEndState())
            continue;
        if (auto message = m_processor.message()) {
            handleStreamMessage(std::move(message));
            if (self.isNull())
                return;
        }
    } while (!m_processor.outOfData());

    logSkipped(m_processor.skippedBytes() - skippedBefore + (size - written));
    // The socket says nothing more of bytes that came while a slot ran an event loop of its own.
    if (m_socket != nullptr && m_socket->bytesAvailable() > 0)
        QMetaObject::invokeMethod(this, &HydStreamAdapter::readRest, Qt::QueuedConnection);
}

void HydStreamAdapter::readRest()
{
    // A read of nothing would count as one that begins no message.
    if (m_socket != nullptr && m_socket->bytesAvailable() > 0)
        readStream();
}

void HydStreamAdapter::logSkipped(uint64_t skipped) const
{
    if (skipped != 0)
        qDebug() << "Skipped" << skipped << "bytes that belong to no stream message," << strStreamType()
                 << m_deviceId.serialNo();
}

void HydStreamAdapter::handleStreamMessage(std::shared_ptr<HydStreamMessage> msg)
{
    if (msg == nullptr)
        return;
    if (auto header = std::dynamic_pointer_cast<HydStreamEventHeaderPayload>(msg->payload))
        handleHeader(std::move(header));
    else if (auto data = std::dynamic_pointer_cast<HydStreamDataPayload>(msg->payload))
        handleData(std::move(data));
    else if (auto notify = std::dynamic_pointer_cast<HydStreamNotifyPayload>(msg->payload))
        notifyProc(std::move(notify));
    else if (auto status = std::dynamic_pointer_cast<HydStatusDataPayload>(msg->payload))
        Q_EMIT streamStatusData(std::move(status), m_deviceId);
}

void HydStreamAdapter::handleStreamMessagePayload(std::shared_ptr<HydStreamMessagePayload> payload)
{
    if (auto header = std::dynamic_pointer_cast<HydStreamEventHeaderPayload>(payload)) {
        emitHeader(std::move(header));
    } else if (auto data = std::dynamic_pointer_cast<HydStreamDataPayload>(payload)) {
        if (m_streamType == StreamSpectrum || m_streamType == StreamSpectrumFile)
            dataProcFFT(std::move(data));
        else
            emitData(std::move(data));
    } else if (auto notify = std::dynamic_pointer_cast<HydStreamNotifyPayload>(payload)) {
        notifyProc(std::move(notify));
    } else if (auto status = std::dynamic_pointer_cast<HydStatusDataPayload>(payload)) {
        Q_EMIT streamStatusData(std::move(status), m_deviceId);
    } else {
        qDebug() << "handleStreamMessagePayload"
                 << "Got an unknown payload type.";
    }
}

void HydStreamAdapter::emitHeader(std::shared_ptr<HydStreamEventHeaderPayload> header)
{
    Q_EMIT eventHeader(std::move(header), m_deviceId, std::make_shared<HydDevice>(m_device));
}

void HydStreamAdapter::emitData(std::shared_ptr<HydStreamDataPayload> data)
{
    Q_EMIT streamDataReady(std::move(data), m_deviceId);
}

// --- headers

int32_t HydStreamAdapter::rateOf(const HydJobSettings& settings) const
{
    return static_cast<int32_t>(m_streamType == StreamWave ? settings.wavRate() : settings.fftRate());
}

void HydStreamAdapter::handleHeader(std::shared_ptr<HydStreamEventHeaderPayload> header)
{
    const HydJobSettings& settings = m_device.jobSettings();
    if (m_sampleRate != rateOf(settings)) {
        QPointer<HydStreamAdapter> self(this);
        setSampleRate(settings);
        if (self.isNull())
            return;
    }
    if (const auto& key = header->eventKey(); key != nullptr && !checkSequence(*key))
        return;
    emitHeader(std::move(header));
}

/// False when a receiver of the report deleted this adapter.
bool HydStreamAdapter::checkSequence(const HydEventKeyChunk& key)
{
    const int64_t rate = m_sampleRate;
    const int64_t seq = key.sequence();
    const uint64_t id = key.eventId();
    const auto& tags = m_device.jobSettings().map();
    const bool isWave = (m_streamType == StreamWave || m_streamType == StreamWaveScan) &&
                        tags.find(JobTagWavRate) != tags.end();
    QPointer<HydStreamAdapter> self(this);
    const auto report = [&](int64_t delta) {
        Q_EMIT headerError(deltaText(), m_deviceId, static_cast<uint>(rate), static_cast<uint>(delta));
        return !self.isNull();
    };

    if (isWave) {
        const int64_t delta = sequenceDelta(seq, m_lastHeaderSeq);
        if (m_lastHeaderSeq != 0 && delta != rate && seq != 0 && !report(delta))
            return false;
        m_lastHeaderSeq = seq;
    }
    if (id != m_lastEventId)
        m_eventSamples = 0;
    // A jump forwards reports here a second time. This is intended.
    if (const int64_t delta = sequenceDelta(seq, m_lastGapSeq);
        m_lastGapSeq != 0 && rate < delta && isWave && !report(delta))
        return false;
    m_lastGapSeq = seq;
    m_lastEventId = id;
    return true;
}

// --- data

void HydStreamAdapter::handleData(std::shared_ptr<HydStreamDataPayload> data)
{
    if (const auto& key = data->eventKey(); key != nullptr) {
        if (key->eventId() != m_lastEventId)
            m_eventSamples = 0;
        if (data->data() != nullptr)
            m_eventSamples += data->data()->numSamples();
        if ((m_streamType == StreamWave || m_streamType == StreamWaveScan) &&
            static_cast<uint32_t>(m_sampleRate) <= static_cast<uint32_t>(m_eventSamples))
            data->setLastEvent(true);
    }
    if (m_streamType == StreamSpectrum)
        dataProcFFT(std::move(data));
    else
        emitData(std::move(data));
}

void HydStreamAdapter::notifyProc(std::shared_ptr<HydStreamNotifyPayload> payload)
{
    if (payload == nullptr)
        return;
    constexpr uint16_t kInformation = 2;
    constexpr uint16_t kCloseConnection = 3;
    constexpr uint16_t kMoreInformation = 4;
    const uint16_t code = payload->errorCode();
    QPointer<HydStreamAdapter> self(this);
    Q_EMIT streamNotify(std::move(payload), m_deviceId);
    if (self.isNull() || code == kInformation || code == kMoreInformation)
        return;
    if (code != kCloseConnection)
        Q_EMIT streamStopped();
    if (!self.isNull() && m_socket != nullptr)
        dropConnection();
}

void HydStreamAdapter::handleDataCollectMessage(std::shared_ptr<HydDataCollectCmd const> cmd)
{
    if (cmd == nullptr)
        return;
    QPointer<HydStreamAdapter> self(this);
    if (m_streamType == StreamWave && (cmd->scanMask() & DataCollWav) != 0) {
        const auto time =
            std::dynamic_pointer_cast<DataCollWavTimeChunk const>(cmd->getChunk(DataCollWavTime));
        if (time != nullptr && time->sampsIntoSec() == 0) {
            if (auto header = m_scanConv.extractEventHdr(cmd, m_device, m_streamType, true))
                emitHeader(std::move(header));
        }
        if (self.isNull())
            return;
        bool lost = false;
        if (auto data = m_scanConv.extractWaveData(cmd, m_device, lost))
            emitData(std::move(data));
        if (!self.isNull() && lost)
            Q_EMIT streamDataLost(m_deviceId);
    } else if (m_streamType == StreamSpectrum && (cmd->scanMask() & DataCollSpec) != 0) {
        const auto time =
            std::dynamic_pointer_cast<DataCollSpecTimeChunk const>(cmd->getChunk(DataCollSpecTime));
        if (time != nullptr) {
            const bool isNewTime = time->time() != m_lastSpecTime;
            m_lastSpecTime = time->time();
            if (isNewTime) {
                if (auto header = m_scanConv.extractEventHdr(cmd, m_device, m_streamType, true))
                    emitHeader(std::move(header));
            }
        }
        if (self.isNull())
            return;
        if (auto data = m_scanConv.extractSpectrumData(cmd, m_device))
            dataProcFFT(std::move(data));
    }
}

void HydStreamAdapter::updateDeviceInfo(HydDevice dev)
{
    if (dev.deviceId() != m_deviceId)
        return;
    m_device = dev;
    setSampleRate(m_device.jobSettings());
}
