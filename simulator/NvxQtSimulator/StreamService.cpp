#include "NvxQtSimulator/StreamService.h"

#include "NvxQtSimulator/EpochStream.h"
#include "NvxQtSimulator/SensorStream.h"
#include "NvxQtSimulator/SpectrumStream.h"
#include "NvxQtSimulator/WaveStream.h"

StreamService::StreamService(RecorderState* state, HydStreamType type, QObject* parent)
    : QObject(parent), m_state(state), m_type(type)
{
    connect(&m_server, &QTcpServer::newConnection, this, &StreamService::acceptConnections);
}

bool StreamService::listen(quint16 port, QString* error)
{
    if (m_server.listen(m_state->settings().address, port))
        return true;
    *error = QStringLiteral("TCP port %1 of %2: %3")
                 .arg(port)
                 .arg(m_state->settings().address.toString(), m_server.errorString());
    return false;
}

void StreamService::acceptConnections()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        if (m_state->strike(StreamSession::faultChannel(m_type), Fault::Refuse)) {
            FaultyLink::refuse(socket);
            continue;
        }
        switch (m_type) {
        case StreamSpectrum:
            new SpectrumStream(socket, m_state, this);
            break;
        case StreamSensor:
            new SensorStream(socket, m_state, this);
            break;
        case StreamEpoch:
            new EpochStream(socket, m_state, this);
            break;
        default:
            new WaveStream(socket, m_state, this);
            break;
        }
    }
}
