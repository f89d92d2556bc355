#pragma once

#include "NvxQtSimulator/ArrayFrameMaker.h"
#include "NvxQtSimulator/ArrayState.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QTcpServer>
#include <QTimer>
#include <QWebSocket>
#include <QWebSocketServer>

#include <vector>

/// The web socket server of one simulated array controller. All clients get the same frames: in each round
/// one of every channel. Rounds run while there are clients.
class ArrayFrameService : public QObject
{
    Q_OBJECT

public:
    explicit ArrayFrameService(ArrayState* state);
    ~ArrayFrameService() override;

    /// Listens on the controller's address.
    bool listen(QString* error);
    quint16 port() const { return m_server.serverPort(); }

private:
    void acceptConnections();
    void answerHandshake(QTcpSocket* socket);
    void acceptClient();
    void sendDueRounds();
    void sendRound();
    void sendFrame(QByteArray frame);
    /// Ends those that make the server write more than frames: pings that they take no answers for.
    void cutGreedyClients();
    void endClients(bool isReset);

    ArrayState* m_state;
    QTcpServer m_server;
    QWebSocketServer m_handshakes;
    std::vector<ArrayFrameMaker> m_makers;
    std::vector<QWebSocket*> m_clients;
    QTimer m_pace;
    QElapsedTimer m_clock;
    uint64_t m_roundsSinceStart = 0;
    uint32_t m_round = 0;       ///< the number that the next frames bear
    int64_t m_longestFrame = 0; ///< bytes, of those sent so far
    QDeadlineTimer m_silentUntil;
};
