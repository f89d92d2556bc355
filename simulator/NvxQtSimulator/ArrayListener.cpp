#include "NvxQtSimulator/ArrayListener.h"

#include "NvxQtSimulator/FaultyLink.h"

#include <algorithm>

namespace {

constexpr int kArrayDelayMs = 200;
constexpr int64_t kLongestArrayDelayMs = 60000;

} // namespace

bool listenForArray(QTcpServer& server, const QHostAddress& address, quint16 port, QString* error)
{
    if (server.listen(address, port))
        return true;
    *error = QStringLiteral("TCP port %1 of %2: %3").arg(port).arg(address.toString(), server.errorString());
    return false;
}

QTcpSocket* takeArrayConnection(QTcpServer& server, ArrayState& state, FaultChannel channel, qsizetype served)
{
    while (QTcpSocket* socket = server.nextPendingConnection()) {
        if (state.strike(channel, Fault::Refuse)) {
            FaultyLink::refuse(socket);
        } else if (served >= ArrayState::kMaxConnections) {
            ++state.counters.connectionsCut;
            FaultyLink::retire(socket);
        } else {
            socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            return socket;
        }
    }
    return nullptr;
}

QByteArray cutArrayBytes(const QByteArray& bytes, int64_t keep)
{
    return bytes.first(keep > 0 ? std::min<qsizetype>(keep, bytes.size()) : bytes.size() / 2);
}

int arrayDelayMs(int64_t value)
{
    return value > 0 ? static_cast<int>(std::min(value, kLongestArrayDelayMs)) : kArrayDelayMs;
}
