#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <QTimer>
#include <QUdpSocket>

/// The short-lived UDP socket of one broadcast on one local address. It deletes itself when its timer ends
/// (10 seconds after construction), when it is disconnected and when it fails. It has a parent or none, and
/// lives on the thread that created it.
class NVXQTCOMMON_EXPORT CUdpSocProc : public QUdpSocket
{
    Q_OBJECT

public:
    /// Milliseconds that a socket stays open for replies.
    static constexpr int kLifetimeMs = 10000;

    explicit CUdpSocProc(QObject* parent = nullptr);

    /// The timer that ends the socket; it runs from construction on and stays the socket's.
    QTimer* timer() { return &m_timer; }

public Q_SLOTS:
    /// Starts the timer with its interval if it is not running.
    void StartTimer();

private:
    QTimer m_timer;
};
