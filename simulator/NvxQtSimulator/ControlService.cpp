#include "NvxQtSimulator/ControlService.h"

#include "NvxQtSimulator/SpectrumMaker.h"

#include <QPointer>

#include <algorithm>
#include <array>
#include <utility>

namespace {

// A recorder takes commands of at most 1024 bytes; four of them may wait.
constexpr size_t kCommandBufferSize = 4096;
// Samples and bins of a collect reply, which has to stay under 64 KiB.
constexpr size_t kCollectBytes = 60000;
constexpr size_t kBurstSamples = 16;
constexpr uint16_t kPlainRefusal = 1;
constexpr uint16_t kThresholdRefusal = 3;

/// A payload of any bytes, for replies that no correct device makes.
class RawReply : public HydControlMsgPayload
{
public:
    RawReply(uint8_t letter, std::vector<uint8_t> bytes) : m_letter(letter), m_bytes(std::move(bytes)) {}

    uint8_t msgType() const override { return m_letter; }
    void serialize(ByteStream& out) const override { out.putBytes(m_bytes); }
    bool deserialize(ByteReader&) override { return false; }

private:
    uint8_t m_letter;
    std::vector<uint8_t> m_bytes;
};

} // namespace

ControlService::ControlService(RecorderState* state, QObject* parent) : QObject(parent), m_state(state)
{
    connect(&m_server, &QTcpServer::newConnection, this, &ControlService::acceptConnections);
}

bool ControlService::listen(QString* error)
{
    if (m_server.listen(m_state->settings().address, PortControl))
        return true;
    *error = QStringLiteral("TCP port %1 of %2: %3")
                 .arg(PortControl)
                 .arg(m_state->settings().address.toString(), m_server.errorString());
    return false;
}

void ControlService::acceptConnections()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        if (m_state->strike(FaultOnControl, Fault::Refuse)) {
            FaultyLink::refuse(socket);
            continue;
        }
        new ControlSession(socket, m_state, this);
    }
}

ControlSession::ControlSession(QIODevice* channel, RecorderState* state, QObject* parent)
    : QObject(parent), m_channel(channel), m_state(state), m_link(channel, state, FaultOnControl, this),
      m_received(kCommandBufferSize)
{
    m_channel->setParent(this);
    connect(m_channel, &QIODevice::readyRead, this, &ControlSession::readRequests);
    if (auto* socket = qobject_cast<QTcpSocket*>(m_channel)) {
        connect(socket, &QTcpSocket::disconnected, this, &QObject::deleteLater);
        connect(m_state, &RecorderState::restarted, socket, &QTcpSocket::disconnectFromHost);
    } else {
        // The cable of a recorder that restarts stays where it is.
        connect(m_channel, &QIODevice::aboutToClose, this, &QObject::deleteLater);
    }
}

ControlSession::~ControlSession()
{
    FaultyLink::retire(m_channel);
}

void ControlSession::readRequests()
{
    const QPointer<ControlSession> self(this);
    std::array<unsigned char, kCommandBufferSize> piece;
    while (m_channel->bytesAvailable() > 0) {
        // A command that fills the whole buffer and still isn't whole is no command.
        if (m_received.freeSpace() == 0)
            m_received.skip(1);
        const qint64 count = m_channel->read(reinterpret_cast<char*>(piece.data()),
                                             static_cast<qint64>(m_received.freeSpace()));
        if (count <= 0)
            return;
        m_received.write(piece.data(), static_cast<unsigned long long>(count));
        ControlResponseEvent event(m_received);
        m_processor.setOutOfData(false);
        do {
            m_processor.dispatch(&event);
            if (!m_processor.isAtEndState() || !m_processor.message())
                continue;
            ++m_state->counters.commands;
            if (const auto payload = m_processor.message()->payload())
                answer(*payload);
            else
                ++m_state->counters.badCommands;
            if (self.isNull())
                return;
        } while (!m_processor.outOfData());
    }
}

void ControlSession::answer(const HydControlMsgPayload& request)
{
    const uint8_t letter = request.msgType();
    const QPointer<ControlSession> self(this);
    m_state->noteArrival(static_cast<char>(letter));
    Q_EMIT m_state->commandReceived(static_cast<char>(letter));
    // Who hears of a command may stop the recorder, or delete it.
    if (self.isNull())
        return;
    switch (letter) {
    case 'A':
        if (const auto* time = dynamic_cast<const HydSetTimeCmd*>(&request))
            answerTime(*time);
        break;
    case 'C':
        if (const auto* collect = dynamic_cast<const HydDataCollectCmd*>(&request))
            answerCollect(*collect);
        break;
    case 'D':
        if (const auto* setup = dynamic_cast<const HydJobSetupCmd*>(&request))
            answerJobSetup(*setup);
        break;
    case 'E':
        reply(std::make_shared<HydEnquireCmd>(m_state->report()));
        break;
    case 'F':
        if (!replyOversize(letter))
            reply(std::make_shared<HydJobSetupEnq>(m_state->jobSettings().map(), JobSetupDefault));
        break;
    case 'R':
        if (!replyOversize(letter))
            reply(std::make_shared<HydEnquireTrigger>(m_state->triggers()));
        break;
    case 'S':
        if (const auto* trigger = dynamic_cast<const HydTrigger*>(&request))
            answerTrigger(*trigger);
        break;
    case 'U':
        m_state->clearTriggers();
        reply(std::make_shared<HydMsgPayload>(letter));
        break;
    case 'V':
        reply(std::make_shared<HydMsgPayload>(letter));
        break;
    case 'Y':
        reply(std::make_shared<HydResetCmd>());
        m_state->restart();
        break;
    case '[':
        reply(std::make_shared<HydEnquireTimeSync>(uint8_t{0}, uint16_t{0}, 0, 0U));
        break;
    default:
        ++m_state->counters.badCommands;
        break;
    }
}

void ControlSession::reply(std::shared_ptr<HydControlMsgPayload> payload)
{
    if (m_link.backlog() > kMaxReplyBacklog) {
        ++m_state->counters.channelsCut;
        qInfo("Simulated recorder %u: a client that takes no replies is cut off",
              unsigned{m_state->identity().serial});
        FaultyLink::resetConnection(m_channel);
        return;
    }
    const std::vector<uint8_t> frame = HydControlMessage(std::move(payload)).frame();
    m_link.send(
        QByteArray(reinterpret_cast<const char*>(frame.data()), static_cast<qsizetype>(frame.size())));
}

bool ControlSession::replyOversize(uint8_t letter)
{
    if (!m_link.strike(Fault::Oversize))
        return false;
    ByteStream body;
    if (letter == 'F')
        body.putU16(JobSetupDefault);
    body.putU16(0xFFFF);
    reply(std::make_shared<RawReply>(letter, body.take()));
    return true;
}

void ControlSession::answerTime(const HydSetTimeCmd& request)
{
    if (m_link.strike(Fault::TimeFailure)) {
        reply(std::make_shared<HydSetTimeCmd>(-1));
        return;
    }
    if (request.time() != -1)
        m_state->setDeviceTime(request.time());
    reply(std::make_shared<HydSetTimeCmd>(static_cast<int>(m_state->deviceTime())));
}

void ControlSession::answerJobSetup(const HydJobSetupCmd& request)
{
    uint16_t code = 0;
    if (const auto refusal = m_link.strike(Fault::RefuseSetup))
        code = *refusal > 0 ? static_cast<uint16_t>(*refusal) : kPlainRefusal;
    else
        code = m_state->writeJobSetup(request.jobSetup());
    if (code != 0)
        reply(std::make_shared<HydJobSetupCmd>(request.jobSetup(), request.type(), code));
    else
        reply(std::make_shared<HydJobSetupCmd>(m_state->jobSettings().map(), request.type()));
}

void ControlSession::answerTrigger(const HydTrigger& request)
{
    // The record is read back from its bytes, so that the reply is of the same class as the request.
    ByteStream bytes;
    request.serialize(bytes);
    const auto trigger = HydTrigger::fromBytes(bytes.bytes());
    if (!trigger)
        return;
    const auto refusal = m_link.strike(Fault::RefuseTrigger);
    const uint16_t code = !refusal       ? m_state->writeTrigger(trigger)
                          : *refusal > 0 ? static_cast<uint16_t>(*refusal)
                                         : kThresholdRefusal;
    const auto answered = HydTrigger::fromBytes(bytes.bytes());
    answered->setErrorCode(code);
    reply(answered);
}

void ControlSession::answerCollect(const HydDataCollectCmd& request)
{
    const bool waves = (request.scanMask() & DataCollWav) != 0;
    const bool spectra = (request.scanMask() & DataCollSpec) != 0;
    const bool burst = m_link.strike(Fault::ScanBurst).has_value();
    uint8_t mask = 0;
    HydDataCollectCmd chunks;
    size_t room = kCollectBytes;
    if (const size_t bins = spectra ? addSpectrum(chunks) : 0) {
        mask |= DataCollSpec;
        room -= bins;
    }
    if (waves) {
        mask |= DataCollWav;
        const SampleFormat format = m_state->sampleFormat();
        const size_t most = burst ? kBurstSamples : room / (format.bytesPerSample * format.channels);
        if (addWaves(chunks, most) || burst)
            mask |= HydDataCollectCmd::kMoreData;
    }
    const auto answer = std::make_shared<HydDataCollectCmd>(mask);
    for (const DataCollMask name : {DataCollWavTime, DataCollSpecTime, DataCollWav, DataCollSpec})
        if (const auto chunk = chunks.getChunk(name))
            answer->setChunk(name, chunk);
    reply(answer);
}

/// Adds at most `room` samples of each channel; true when more are waiting.
bool ControlSession::addWaves(HydDataCollectCmd& reply, size_t room)
{
    const int64_t rate = m_state->waveRate();
    if (!m_collecting || m_collectRate != rate) {
        m_collecting = true;
        m_collectRate = static_cast<uint32_t>(rate);
        m_collectFirst = m_state->currentSample();
        m_collectTime = static_cast<uint32_t>(m_state->deviceTime());
        m_collected = 0;
        m_collectClock.start();
    }
    const int64_t taken = m_collectClock.nsecsElapsed() / 1000 * rate / 1000000;
    // What the recorder can't hold any longer is lost.
    if (taken - m_collected > int64_t{m_state->settings().scanMemorySeconds} * rate)
        m_collected = (taken / rate - 1) * rate;

    const SampleFormat format = m_state->sampleFormat();
    const size_t frameBytes = format.bytesPerSample * format.channels;
    const int64_t intoSecond = m_collected % rate;
    const int64_t waiting = taken - m_collected;
    const int64_t count = std::min({waiting, static_cast<int64_t>(room), rate - intoSecond});

    auto chunk = std::make_shared<DataCollWavChunk>();
    chunk->sampleRate = static_cast<uint32_t>(rate);
    chunk->gain = static_cast<int16_t>(m_state->jobSettings().wavGain());
    chunk->format = static_cast<uint8_t>(format.bytesPerSample | (format.bigEndian ? 0 : 0x80));
    chunk->channels = static_cast<uint8_t>(format.channels);
    chunk->count = static_cast<uint16_t>(count);
    chunk->samples.resize(static_cast<size_t>(count) * frameBytes);
    SignalSource(m_state->settings().signal, m_collectRate)
        .fill(static_cast<uint64_t>(m_collectFirst + m_collected), static_cast<size_t>(count), format,
              chunk->samples.data());
    reply.setChunk(DataCollWavTime, std::make_shared<DataCollWavTimeChunk>(
                                        static_cast<uint32_t>(m_collectTime + m_collected / rate),
                                        static_cast<uint32_t>(intoSecond)));
    reply.setChunk(DataCollWav, chunk);
    m_collected += count;
    return count < waiting;
}

/// Adds the spectrum that the recorder works on, unless this client has it already. Its number says which
/// samples it is of. Gives the number of bins that it added, one byte each.
size_t ControlSession::addSpectrum(HydDataCollectCmd& reply)
{
    const HydJobSettings& job = m_state->jobSettings();
    const int64_t step = int64_t{job.fftAccum()} * job.fftPointsBtw();
    const int64_t number = m_state->currentSample(job.fftRate()) / step;
    if (std::exchange(m_collectedSpectrum, number) == number)
        return 0;
    auto chunk = std::make_shared<DataCollSpecChunk>();
    chunk->sampleRate = job.fftRate();
    chunk->points = static_cast<uint16_t>(job.fftPoints());
    chunk->refLevel = static_cast<int16_t>(job.fftRef());
    chunk->procType = job.fftProcType();
    chunk->pointsBtw = static_cast<uint16_t>(job.fftPointsBtw());
    chunk->accum = static_cast<uint16_t>(job.fftAccum());
    chunk->weight = static_cast<uint16_t>(job.fftWeight());
    SpectrumMaker maker(m_state->settings().signal, job.fftRate(), job.fftPoints(), job.fftPointsBtw());
    chunk->bins = maker.bins(static_cast<uint64_t>(number * step), job.fftAccum(),
                             RecorderState::spectrumReference(job));
    reply.setChunk(DataCollSpecTime,
                   std::make_shared<DataCollSpecTimeChunk>(static_cast<uint32_t>(m_state->deviceTime()),
                                                           static_cast<uint32_t>(number)));
    reply.setChunk(DataCollSpec, chunk);
    return chunk->bins.size();
}
