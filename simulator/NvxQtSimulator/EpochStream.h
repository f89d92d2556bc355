#pragma once

#include "NvxQtSimulator/StreamSession.h"

/// The epoch stream of one reader: text lines of trigger events from the connection on, without a start
/// message.
class EpochStream : public StreamSession
{
    Q_OBJECT

public:
    EpochStream(QTcpSocket* socket, RecorderState* state, QObject* parent);

protected:
    void begin() override;
    void proceed() override;

private:
    void sendLine(bool started);

    uint64_t m_seconds = 0;
    uint64_t m_epoch = 0;
    uint64_t m_lines = 0;
};
