#pragma once

#include "NvxQtCommon/contract/message/HydMarcoPayloads.h"
#include "NvxQtSimulator/RecorderState.h"

#include <QUdpSocket>

class QNetworkDatagram;

/// The discovery responder of one recorder on UDP port 62726. One socket hears what is sent to the recorder's
/// own address and sends all answers; the other hears broadcasts, which all recorders on the host get.
class DiscoveryService : public QObject
{
    Q_OBJECT

public:
    DiscoveryService(RecorderState* state, QObject* parent);

    bool listen(QString* error);

private:
    void readOwn();
    void readBroadcasts();
    void answer(const QNetworkDatagram& datagram);
    std::shared_ptr<HydMarcoCommandPayload> answerEnquiry(const HydNetworkEnqireCmd& request) const;
    std::shared_ptr<HydMarcoCommandPayload> answerChange(const HydChangeNetworkCmd& request);
    uint16_t checkNetwork(const NvxNetHostInfo& info) const;

    RecorderState* m_state;
    QUdpSocket m_own;
    QUdpSocket m_broadcasts;
};
