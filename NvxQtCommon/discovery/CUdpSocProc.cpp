#include "NvxQtCommon/discovery/CUdpSocProc.h"

CUdpSocProc::CUdpSocProc(QObject* parent) : QUdpSocket(parent), m_timer(this)
{
    m_timer.setInterval(kLifetimeMs);
    connect(&m_timer, &QTimer::timeout, this, &QObject::deleteLater);
    connect(this, &QAbstractSocket::disconnected, this, &QObject::deleteLater);
    connect(this, &QAbstractSocket::errorOccurred, this, &QObject::deleteLater);
    m_timer.start();
}

void CUdpSocProc::StartTimer()
{
    if (!m_timer.isActive())
        m_timer.start();
}
