#include "NvxQtSimulator/ArrayHttpService.h"

#include "NvxQtSimulator/ArrayListener.h"
#include "NvxQtSimulator/FaultyLink.h"

#include <QPointer>
#include <QTimer>

#include <algorithm>

namespace {

constexpr int kDefaultStatus = 500;

const char* reasonOf(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 400:
        return "Bad Request";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 500:
        return "Internal Server Error";
    default:
        return "On Demand";
    }
}

} // namespace

ArrayHttpService::ArrayHttpService(ArrayState* state) : m_state(state)
{
    connect(&m_server, &QTcpServer::newConnection, this, &ArrayHttpService::acceptConnections);
}

bool ArrayHttpService::listen(QString* error)
{
    return listenForArray(m_server, m_state->settings().address, m_state->settings().httpPort, error);
}

void ArrayHttpService::acceptConnections()
{
    while (QTcpSocket* socket =
               takeArrayConnection(m_server, *m_state, FaultOnHttp, findChildren<ArrayHttpSession*>().size()))
        new ArrayHttpSession(socket, m_state, this);
}

ArrayHttpSession::ArrayHttpSession(QTcpSocket* socket, ArrayState* state, QObject* parent)
    : QObject(parent), m_socket(socket), m_state(state), m_scripts(state)
{
    m_socket->setParent(this);
    // What a client sends while it waits for a reply waits in the system.
    m_socket->setReadBufferSize(HttpRequestReader::kMaxHead);
    connect(m_socket, &QTcpSocket::readyRead, this, &ArrayHttpSession::readRequests);
    // Queued: a flush within a reply would begin the next one.
    connect(m_socket, &QTcpSocket::bytesWritten, this, &ArrayHttpSession::readRequests, Qt::QueuedConnection);
    connect(m_socket, &QTcpSocket::disconnected, this, &QObject::deleteLater);
}

ArrayHttpSession::~ArrayHttpSession()
{
    FaultyLink::retire(m_socket);
}

void ArrayHttpSession::readRequests()
{
    while (!m_isBusy && m_socket->bytesToWrite() <= ArrayState::kMaxUnsent &&
           m_socket->state() == QAbstractSocket::ConnectedState) {
        if (const auto request = m_reader.next()) {
            answer(*request);
            continue;
        }
        if (m_reader.isBroken()) {
            ++m_state->counters.badRequests;
            send({400, {}}, false);
            return;
        }
        const QByteArray bytes = m_socket->readAll();
        if (bytes.isEmpty())
            return;
        m_reader.add(bytes);
    }
}

void ArrayHttpSession::answer(const HttpRequest& request)
{
    ++m_state->counters.requests;
    m_state->noteTarget(request.target);
    Q_EMIT m_state->requestReceived(request.target);
    if (m_state->strike(FaultOnHttp, Fault::Silence)) {
        m_isBusy = true;
        return;
    }
    ArrayCgi::Reply reply =
        request.method == "GET" ? m_scripts.answer(request.target) : ArrayCgi::Reply{405, {}};
    if (const auto status = m_state->strike(FaultOnHttp, Fault::Status))
        reply = {*status > 0 ? static_cast<int>(std::min<int64_t>(*status, 999)) : kDefaultStatus, "no\n"};
    if (m_state->strike(FaultOnHttp, Fault::Empty))
        reply.body.clear();
    if (const auto bytes = m_state->strike(FaultOnHttp, Fault::Malformed))
        reply.body = cutArrayBytes(reply.body, *bytes);
    m_state->counters.badRequests += reply.status >= 400;
    const auto delay = m_state->strike(FaultOnHttp, Fault::Slow);
    if (!delay) {
        send(reply, request.keepsAlive);
        return;
    }
    m_isBusy = true;
    QTimer::singleShot(arrayDelayMs(*delay), this, [this, reply, keepsAlive = request.keepsAlive] {
        m_isBusy = false;
        send(reply, keepsAlive);
        readRequests();
    });
}

void ArrayHttpSession::send(const ArrayCgi::Reply& reply, bool keepsAlive)
{
    QByteArray message =
        "HTTP/1.1 " + QByteArray::number(reply.status) + ' ' + reasonOf(reply.status) +
        "\r\nContent-Type: application/json\r\nContent-Length: " + QByteArray::number(reply.body.size()) +
        (keepsAlive ? "\r\n\r\n" : "\r\nConnection: close\r\n\r\n") + reply.body;
    if (breakWithin(message))
        return;
    m_socket->write(message);
    if (!keepsAlive)
        m_socket->disconnectFromHost();
}

bool ArrayHttpSession::breakWithin(const QByteArray& message)
{
    const auto closeAfter = m_state->strike(FaultOnHttp, Fault::Close);
    const auto resetAfter = closeAfter ? std::nullopt : m_state->strike(FaultOnHttp, Fault::Reset);
    if (!closeAfter && !resetAfter)
        return false;
    m_socket->write(cutArrayBytes(message, closeAfter ? *closeAfter : *resetAfter));
    m_socket->flush();
    if (closeAfter)
        m_socket->disconnectFromHost();
    else
        FaultyLink::resetConnection(m_socket);
    return true;
}
