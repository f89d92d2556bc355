#include "NvxQtSimulator/SpectrumStream.h"

#include <algorithm>

namespace {

constexpr int64_t kNanosecondsASecond = 1000000000;
// A process that slept longer doesn't send what it missed.
constexpr int64_t kMaxSecondsBehind = 5;
// Looks at the clock in the time of one spectrum.
constexpr int64_t kLooks = 4;
constexpr int64_t kLongestPaceMs = 250;

} // namespace

SpectrumStream::SpectrumStream(QTcpSocket* socket, RecorderState* state, QObject* parent)
    : StreamSession(socket, state, StreamSpectrum, parent)
{
}

void SpectrumStream::begin()
{
    m_job = state().jobSettings();
    m_rate = m_job.fftRate();
    m_step = int64_t{m_job.fftAccum()} * m_job.fftPointsBtw();
    m_maker.emplace(state().settings().signal, m_job.fftRate(), m_job.fftPoints(), m_job.fftPointsBtw());
    m_hostStart = state().deviceTime() - state().clockOffset();
    m_startSample = state().currentSample(m_job.fftRate());
    m_spectra = 0;
    m_event = -1;
    m_clock.start();
    const int64_t paceMs = m_step * 1000 / m_rate / kLooks;
    setPace(state().settings().unpaced ? 0
                                       : static_cast<int>(std::clamp<int64_t>(paceMs, 1, kLongestPaceMs)));
}

void SpectrumStream::proceed()
{
    if (!isRunning())
        return;
    if (state().settings().unpaced)
        proceedUnpaced();
    else
        proceedPaced();
}

bool SpectrumStream::isFinished() const
{
    const int64_t limit = state().settings().streamSeconds;
    return limit != 0 && (m_spectra + 1) * m_step > limit * m_rate;
}

int64_t SpectrumStream::spectraDue() const
{
    const int64_t elapsed = m_clock.nsecsElapsed();
    return (elapsed / kNanosecondsASecond * m_rate +
            elapsed % kNanosecondsASecond * m_rate / kNanosecondsASecond) /
               m_step -
           m_spectra;
}

void SpectrumStream::proceedPaced()
{
    const int64_t most = kMaxSecondsBehind * m_rate / m_step + 1;
    m_spectra += std::max<int64_t>(0, spectraDue() - most);
    while (isRunning() && !isFinished() && spectraDue() > 0)
        sendNext();
}

void SpectrumStream::proceedUnpaced()
{
    if (isFinished() || isReaderSlow())
        return;
    sendNext();
    proceedSoon();
}

void SpectrumStream::sendNext()
{
    if (const int64_t event = m_spectra * m_step / m_rate; event != m_event) {
        m_event = event;
        m_eventTime = m_hostStart + event + state().clockOffset();
        sendHeader();
    }
    sendSpectrum();
    ++m_spectra;
}

std::shared_ptr<HydEventKeyChunkV1> SpectrumStream::eventKey() const
{
    const auto sequence = static_cast<uint64_t>(m_startSample + m_event * m_rate);
    stKEY_CHUNK_V1 key;
    key.time = static_cast<uint32_t>(m_eventTime);
    key.seqHigh = static_cast<uint32_t>(sequence >> 32);
    key.seqLow = static_cast<uint32_t>(sequence);
    return std::make_shared<HydEventKeyChunkV1>(&key);
}

void SpectrumStream::sendHeader()
{
    const RecorderIdentity& who = state().identity();
    stDEVICE_CHUNK_V1 device;
    device.devType = who.type;
    device.serial = who.serial;
    device.sensitivity = who.sensitivity;
    stSTATUS_CHUNK_V0 status;
    status.temperature = who.temperature;
    status.humidity = static_cast<int16_t>(who.humidity);
    status.rollover = state().rollover();
    stFFT_SETUP_CHUNK_V1 setup;
    setup.sampleRate = m_job.fftRate();
    setup.points = static_cast<uint16_t>(m_job.fftPoints());
    setup.refLevel = static_cast<int16_t>(m_job.fftRef());
    setup.procType = m_job.fftProcType();
    setup.pointsBtw = static_cast<uint16_t>(m_job.fftPointsBtw());
    setup.accum = static_cast<uint16_t>(m_job.fftAccum());
    setup.weight = static_cast<uint16_t>(m_job.fftWeight());
    stAMPLITUDE_CHUNK_V0 scaling;
    scaling.bitsPerSample = 8;
    scaling.maxValue = 255;
    scaling.maxMicrovolts = RecorderSettings::kFullScaleMicrovolts;
    scaling.minMicrovolts = -RecorderSettings::kFullScaleMicrovolts;
    sendPayload(std::make_shared<HydStreamEventHeaderPayload>(
        eventKey(),
        std::vector<std::shared_ptr<HydDeviceInfoChunk const>>{
            std::make_shared<HydDeviceInfoChunkV1>(&device)},
        std::vector<std::shared_ptr<HydStreamStatusChunk const>>{
            std::make_shared<HydStreamStatusChunkV0>(&status)},
        HydStreamSetupContainer(
            std::shared_ptr<HydFftSetupChunk const>(std::make_shared<HydFftSetupChunkV1>(&setup))),
        std::vector<std::shared_ptr<HydAmplScalingChunk const>>{
            std::make_shared<HydAmplScalingChunkV0>(&scaling)},
        static_cast<unsigned char>(1), nullptr));
}

void SpectrumStream::sendSpectrum()
{
    const int64_t position = m_spectra * m_step;
    const std::vector<uint8_t> bins = m_maker->bins(static_cast<uint64_t>(m_startSample + position),
                                                    m_job.fftAccum(), state().spectrumReference(m_job));
    std::shared_ptr<unsigned char[]> bytes(new unsigned char[bins.size()]);
    std::copy(bins.begin(), bins.end(), bytes.get());
    auto payload = std::make_shared<HydStreamDataPayload>(
        eventKey(),
        std::make_shared<HydStreamDataChunkV0>(static_cast<uint32_t>(position - m_event * m_rate),
                                               static_cast<unsigned char>(1), static_cast<unsigned char>(1),
                                               static_cast<unsigned short>(bins.size()), bytes, bins.size()));
    payload->streamType = StreamSpectrum;
    sendPayload(payload);
}
