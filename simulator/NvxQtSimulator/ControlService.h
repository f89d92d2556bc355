#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"
#include "NvxQtCommon/contract/message/HydControlProcessor.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"
#include "NvxQtSimulator/FaultyLink.h"
#include "NvxQtSimulator/RecorderState.h"

#include <QTcpServer>

/// The control device of one recorder: accepts command channels on TCP port 50000 of the recorder's address.
class ControlService : public QObject
{
    Q_OBJECT

public:
    ControlService(RecorderState* state, QObject* parent);

    bool listen(QString* error);
    quint16 port() const { return m_server.serverPort(); }

private:
    void acceptConnections();

    RecorderState* m_state;
    QTcpServer m_server;
};

/// One command channel, over a socket or a serial line: reads requests, answers them. Deletes itself when the
/// channel closes. A client that
/// asks on and on and takes no replies is cut off once kMaxReplyBacklog bytes wait for it.
class ControlSession : public QObject
{
    Q_OBJECT

public:
    /// Bytes of replies that may wait for a client.
    static constexpr qint64 kMaxReplyBacklog = 1024 * 1024;

    /// Takes ownership of `channel`, a QTcpSocket or a device whose closing hangs up.
    ControlSession(QIODevice* channel, RecorderState* state, QObject* parent);
    ~ControlSession() override;

private:
    void readRequests();
    void answer(const HydControlMsgPayload& request);
    void reply(std::shared_ptr<HydControlMsgPayload> payload);
    void answerTime(const HydSetTimeCmd& request);
    void answerJobSetup(const HydJobSetupCmd& request);
    void answerTrigger(const HydTrigger& request);
    void answerCollect(const HydDataCollectCmd& request);
    bool addWaves(HydDataCollectCmd& reply, size_t room);
    size_t addSpectrum(HydDataCollectCmd& reply);
    bool replyOversize(uint8_t letter);

    QIODevice* m_channel;
    RecorderState* m_state;
    FaultyLink m_link;
    CircularByteBuffer m_received;
    HydControlProcessor m_processor;

    // Where data collection stands: the second, and how far into it the last reply came.
    bool m_collecting = false;
    QElapsedTimer m_collectClock;
    uint32_t m_collectRate = 0;
    int64_t m_collectFirst = 0;
    int64_t m_collected = 0;
    uint32_t m_collectTime = 0;
    int64_t m_collectedSpectrum = -1;
};
