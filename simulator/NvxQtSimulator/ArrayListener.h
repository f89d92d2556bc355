#pragma once

#include "NvxQtSimulator/ArrayState.h"

#include <QTcpServer>
#include <QTcpSocket>

// What the services of a simulated array controller do alike.

/// Listens, or says in `error` which port isn't to be had.
bool listenForArray(QTcpServer& server, const QHostAddress& address, quint16 port, QString* error);

/// The next connection to serve, which the caller owns; null when none waits. Those that the fault Refuse
/// strikes are reset, and those beyond ArrayState::kMaxConnections closed.
QTcpSocket* takeArrayConnection(QTcpServer& server, ArrayState& state, FaultChannel channel,
                                qsizetype served);

/// The first `keep` bytes, half of them for 0.
QByteArray cutArrayBytes(const QByteArray& bytes, int64_t keep);

/// Milliseconds that the fault Slow holds something back.
int arrayDelayMs(int64_t value);
