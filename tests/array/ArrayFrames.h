#pragma once

#include "NvxQtCommon/array/CZCRWebSocket.h"
#include "tests/support/PythonPeer.h"

/// The web socket server of an array controller on an address of its own.
class ArrayFrames : public PythonPeer
{
public:
    ArrayFrames() : PythonPeer(QStringLiteral("array_frames.py")) {}

    bool listen(const QString& address, const QStringList& options = {})
    {
        return start(QStringList{QStringLiteral("--address"), address} + options);
    }
};

/// The parsed frames of one web socket, in their order.
class FrameSpy
{
public:
    explicit FrameSpy(CZCRWebSocket* socket)
    {
        QObject::connect(
            socket, &CZCRWebSocket::signalWebSocBinMesReceived, &m_context,
            [this](const CZCRWebSocket::ZCR_STREAM_STR& frame) { frames << frame; }, Qt::DirectConnection);
    }

    QList<CZCRWebSocket::ZCR_STREAM_STR> frames;

private:
    QObject m_context;
};
