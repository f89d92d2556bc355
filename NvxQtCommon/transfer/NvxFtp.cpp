#include "NvxQtCommon/transfer/NvxFtp.h"

namespace {

constexpr quint16 kRecorderFtpPort = 21;

} // namespace

NvxFtp::NvxFtp(const NvxNetHostInfo& host, QObject* parent) : QFtp(parent), m_hostInfo(host) {}

NvxFtp::NvxFtp(const QString& address, QObject* parent) : QFtp(parent)
{
    m_hostInfo.setIpAddress(NvxIpAddr(address.toStdString()).toInt());
}

QString NvxFtp::address() const
{
    return QString::fromStdString(m_hostInfo.ipAddress().toString());
}

void NvxFtp::connectToRecorder()
{
    connectToHost(address(), kRecorderFtpPort);
    login(QString(), QString());
}
