#pragma once

#include "NvxQtSimulator/StreamSession.h"

class HydStatusDataPayload;

/// The sensor stream of one reader: one message for each second, the first at once, with what the last start
/// message asked for. The recorder turns by a degree each second, and its magnetometer with it.
class SensorStream : public StreamSession
{
    Q_OBJECT

public:
    SensorStream(QTcpSocket* socket, RecorderState* state, QObject* parent);

protected:
    void begin() override;
    void proceed() override;

private:
    void sendReading();
    bool isFinished() const;
    void addMotion(HydStatusDataPayload& payload, uint32_t time) const;
    void addBattery(HydStatusDataPayload& payload, uint32_t time) const;
    void addTrigger(HydStatusDataPayload& payload, uint32_t time) const;

    int64_t m_hostStart = 0; ///< seconds since the epoch by the host's clock
    uint32_t m_messages = 0;
};
