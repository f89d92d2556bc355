#include "NvxQtSimulator/SimulatedRecorder.h"

#include "NvxQtSimulator/ControlService.h"
#include "NvxQtSimulator/DiscoveryService.h"
#include "NvxQtSimulator/RecorderState.h"
#include "NvxQtSimulator/SerialService.h"
#include "NvxQtSimulator/StreamService.h"
#include "NvxQtSimulator/TriggerWatch.h"

SimulatedRecorder::SimulatedRecorder(const RecorderSettings& settings, QObject* parent)
    : QObject(parent), m_state(new RecorderState(settings, this))
{
    new TriggerWatch(m_state);
    connect(m_state, &RecorderState::commandReceived, this, &SimulatedRecorder::commandReceived);
    // Through the event loop: who hears of it may stop the recorder, or delete it.
    connect(m_state, &RecorderState::enquiryAnswered, this, &SimulatedRecorder::enquiryAnswered,
            Qt::QueuedConnection);
    connect(m_state, &RecorderState::streamStarted, this, &SimulatedRecorder::streamStarted,
            Qt::QueuedConnection);
    connect(m_state, &RecorderState::streamStopped, this, &SimulatedRecorder::streamStopped,
            Qt::QueuedConnection);
}

SimulatedRecorder::~SimulatedRecorder()
{
    stop();
}

bool SimulatedRecorder::start()
{
    if (m_listening)
        return true;
    m_error.clear();
    m_listening = startServices();
    if (!m_listening)
        stop();
    return m_listening;
}

bool SimulatedRecorder::startServices()
{
    const RecorderSettings& settings = m_state->settings();
    if (settings.roles & RoleControl) {
        m_control = std::make_unique<ControlService>(m_state, nullptr);
        if (!m_control->listen(&m_error))
            return false;
    }
    if (settings.roles & RoleDiscovery) {
        m_discovery = std::make_unique<DiscoveryService>(m_state, nullptr);
        if (!m_discovery->listen(&m_error))
            return false;
    }
    if (settings.serialRate != 0) {
        m_serial = std::make_unique<SerialService>(m_state, nullptr);
        if (!m_serial->open(&m_error))
            return false;
    }
    struct StreamRole
    {
        RecorderRole role;
        HydStreamType type;
        uint16_t port;
    };
    for (const StreamRole& stream : {StreamRole{RoleWave, StreamWave, settings.wavePort},
                                     StreamRole{RoleSpectrum, StreamSpectrum, settings.spectrumPort},
                                     StreamRole{RoleSensor, StreamSensor, settings.sensorPort},
                                     StreamRole{RoleEpoch, StreamEpoch, settings.epochPort}}) {
        if (!(settings.roles & stream.role))
            continue;
        auto service = std::make_unique<StreamService>(m_state, stream.type, nullptr);
        if (!service->listen(stream.port, &m_error))
            return false;
        m_streams[stream.type] = std::move(service);
    }
    return true;
}

void SimulatedRecorder::stop()
{
    m_streams.clear();
    m_serial.reset();
    m_discovery.reset();
    m_control.reset();
    m_listening = false;
}

const RecorderSettings& SimulatedRecorder::settings() const
{
    return m_state->settings();
}

HydDeviceId SimulatedRecorder::deviceId() const
{
    return {m_state->identity().type, m_state->identity().serial, m_state->netInfo()};
}

quint16 SimulatedRecorder::streamPort(HydStreamType type) const
{
    const auto found = m_streams.find(type);
    return found == m_streams.end() ? quint16{0} : found->second->port();
}

QString SimulatedRecorder::serialPortName() const
{
    return m_serial ? m_serial->portName() : QString();
}

QStringList SimulatedRecorder::listeningTexts() const
{
    const QString address = m_state->settings().address.toString();
    QStringList lines;
    if (m_control)
        lines << QStringLiteral("control    TCP %1:%2").arg(address).arg(m_control->port());
    if (m_discovery)
        lines << QStringLiteral("discovery  UDP %1:%2").arg(address).arg(PortMarco);
    if (m_serial)
        lines << QStringLiteral("serial     %1 at %2 bit/s")
                     .arg(m_serial->portName())
                     .arg(m_state->settings().serialRate);
    for (const auto& [type, service] : m_streams)
        lines << QStringLiteral("%1 TCP %2:%3")
                     .arg(QString::fromStdString(streamTypeText(type)).toLower(), -10)
                     .arg(address)
                     .arg(service->port());
    return lines;
}

const HydJobSettings& SimulatedRecorder::jobSettings() const
{
    return m_state->jobSettings();
}

int64_t SimulatedRecorder::deviceTime() const
{
    return m_state->deviceTime();
}

RecorderCounters SimulatedRecorder::counters() const
{
    return m_state->counters;
}

std::vector<std::shared_ptr<HydTrigger>> SimulatedRecorder::triggers() const
{
    return m_state->triggers();
}

std::vector<CommandArrival> SimulatedRecorder::commandArrivals() const
{
    return {m_state->arrivals().begin(), m_state->arrivals().end()};
}

void SimulatedRecorder::setFaults(const FaultPlan& plan)
{
    m_state->setFaults(plan);
}

void SimulatedRecorder::setRollover(uint8_t value)
{
    m_state->setRollover(value);
}

void SimulatedRecorder::notify(uint16_t code, const QString& text)
{
    Q_EMIT m_state->notification(code, text.toUtf8());
}

void SimulatedRecorder::restart()
{
    m_state->restart();
}
