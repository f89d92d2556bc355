#pragma once

#include "NvxQtCommon/contract/stream/HydStreamType.h"
#include "NvxQtSimulator/RecorderState.h"

#include <QTcpServer>

/// One stream port of one recorder: accepts readers and gives each a session of the port's kind.
class StreamService : public QObject
{
    Q_OBJECT

public:
    StreamService(RecorderState* state, HydStreamType type, QObject* parent);

    /// Listens on the recorder's address; port 0 takes any free one.
    bool listen(quint16 port, QString* error);
    quint16 port() const { return m_server.serverPort(); }
    HydStreamType type() const { return m_type; }

private:
    void acceptConnections();

    RecorderState* m_state;
    HydStreamType m_type;
    QTcpServer m_server;
};
