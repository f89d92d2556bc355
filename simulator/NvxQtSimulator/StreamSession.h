#pragma once

#include "NvxQtCommon/contract/stream/HydStreamType.h"
#include "NvxQtSimulator/FaultyLink.h"
#include "NvxQtSimulator/RecorderState.h"

#include <QTcpSocket>
#include <QTimer>

#include <memory>

class HydStreamMessagePayload;

/// One reader of a stream port: takes its start and stop messages and calls the kind of stream that derives
/// from it at regular times in between. Deletes itself when the reader leaves.
class StreamSession : public QObject
{
    Q_OBJECT

public:
    StreamSession(QTcpSocket* socket, RecorderState* state, HydStreamType type, QObject* parent);
    ~StreamSession() override;

    static FaultChannel faultChannel(HydStreamType type);

protected:
    /// The stream starts: the session sets its pace by setPace().
    virtual void begin() = 0;
    /// The time for more has come, or the reader took something.
    virtual void proceed() = 0;

    /// Milliseconds between two calls of proceed(); 0 for one whenever the reader has taken something.
    void setPace(int milliseconds);
    /// Calls proceed() from the event loop: a reader may take bytes in the middle of sending.
    void proceedSoon();
    void start(uint16_t minutes, uint16_t requestedBits);
    void stop();
    bool isRunning() const { return m_running; }
    uint16_t requestedBits() const { return m_requestedBits; }
    /// Sends a message through the faults; false when a fault or a slow reader kept it back.
    bool sendFrame(const QByteArray& frame);
    bool sendPayload(std::shared_ptr<HydStreamMessagePayload> payload);
    bool isReaderSlow() const { return m_link.backlog() > m_state->settings().backlogLimit; }
    FaultyLink& link() { return m_link; }
    RecorderState& state() { return *m_state; }
    const RecorderState& state() const { return *m_state; }

private:
    void readMessages();
    void sendNotification(quint16 code, const QByteArray& text);

    QTcpSocket* m_socket;
    RecorderState* m_state;
    HydStreamType m_type;
    FaultyLink m_link;
    QTimer m_pace;
    QTimer m_end;
    QByteArray m_received;
    uint16_t m_requestedBits = 0;
    bool m_running = false;
    bool m_onDemand = false;
    bool m_proceedPending = false;
};
