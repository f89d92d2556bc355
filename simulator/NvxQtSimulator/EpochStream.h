#pragma once

#include "NvxQtSimulator/StreamSession.h"

#include <QTimer>

#include <deque>

/// The epoch stream of one reader: text lines of trigger events from the connection on, without a start
/// message. Each line is one write, and the next one leaves after a pause, so that a reader sees whole lines.
class EpochStream : public StreamSession
{
    Q_OBJECT

public:
    EpochStream(QTcpSocket* socket, RecorderState* state, QObject* parent);

protected:
    void begin() override {}
    void proceed() override;

private:
    void take(const QByteArray& line);

    QTimer m_pause;
    std::deque<QByteArray> m_waiting;
};
