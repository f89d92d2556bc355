#include "NvxQtSimulator/SimulatedArray.h"

#include "NvxQtSimulator/ArrayFrameService.h"
#include "NvxQtSimulator/ArrayFtpService.h"
#include "NvxQtSimulator/ArrayHttpService.h"

SimulatedArray::SimulatedArray(const ArraySettings& settings, QObject* parent)
    : QObject(parent), m_state(new ArrayState(settings, this))
{
    // Through the event loop: who hears of it may stop the array controller, or delete it.
    connect(m_state, &ArrayState::requestReceived, this, &SimulatedArray::requestReceived,
            Qt::QueuedConnection);
    connect(m_state, &ArrayState::configFileRead, this, &SimulatedArray::configFileRead,
            Qt::QueuedConnection);
    connect(m_state, &ArrayState::configFileWritten, this, &SimulatedArray::configFileWritten,
            Qt::QueuedConnection);
    connect(m_state, &ArrayState::frameClientOpened, this, &SimulatedArray::frameClientOpened,
            Qt::QueuedConnection);
    connect(m_state, &ArrayState::frameClientClosed, this, &SimulatedArray::frameClientClosed,
            Qt::QueuedConnection);
}

SimulatedArray::~SimulatedArray()
{
    stop();
}

template <class Service> bool SimulatedArray::startService(std::unique_ptr<Service>& service, ArrayRole role)
{
    if (!(m_state->settings().roles & role))
        return true;
    service = std::make_unique<Service>(m_state);
    return service->listen(&m_error);
}

bool SimulatedArray::start()
{
    if (m_listening)
        return true;
    m_error.clear();
    m_listening = startService(m_http, ArrayRoleHttp) && startService(m_ftp, ArrayRoleFtp) &&
                  startService(m_frames, ArrayRoleFrames);
    if (!m_listening)
        stop();
    return m_listening;
}

void SimulatedArray::stop()
{
    m_frames.reset();
    m_ftp.reset();
    m_http.reset();
    m_listening = false;
}

const ArraySettings& SimulatedArray::settings() const
{
    return m_state->settings();
}

quint16 SimulatedArray::httpPort() const
{
    return m_http ? m_http->port() : quint16{0};
}

quint16 SimulatedArray::ftpPort() const
{
    return m_ftp ? m_ftp->port() : quint16{0};
}

quint16 SimulatedArray::framePort() const
{
    return m_frames ? m_frames->port() : quint16{0};
}

QStringList SimulatedArray::listeningTexts() const
{
    QStringList lines;
    const auto add = [&lines, this](const char* name, quint16 port) {
        if (port != 0)
            lines << QStringLiteral("%1 TCP %2:%3")
                         .arg(QLatin1String(name), -10)
                         .arg(settings().address.toString())
                         .arg(port);
    };
    add("http", httpPort());
    add("ftp", ftpPort());
    add("frames", framePort());
    return lines;
}

const HydJobSettings& SimulatedArray::jobSettings() const
{
    return m_state->jobSettings();
}

int64_t SimulatedArray::deviceTime() const
{
    return m_state->deviceTime();
}

const QByteArray& SimulatedArray::configFile() const
{
    return m_state->configFile();
}

bool SimulatedArray::setConfigFile(const QByteArray& file)
{
    return m_state->setConfigFile(file);
}

ArrayCounters SimulatedArray::counters() const
{
    return m_state->counters;
}

std::vector<QByteArray> SimulatedArray::targets() const
{
    return {m_state->targets().begin(), m_state->targets().end()};
}

void SimulatedArray::setFaults(const FaultPlan& plan)
{
    m_state->setFaults(plan);
}
