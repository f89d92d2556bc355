#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

/// Writes a setting of IPv4 in this program's network namespace; false where that isn't allowed.
inline bool writeIpv4Setting(const char* name, const QByteArray& value)
{
    QFile file(QStringLiteral("/proc/sys/net/ipv4/") + QLatin1String(name));
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(value) == value.size();
}

/// Takes the right to raw sockets from the calling thread while it lives.
class NoRawSockets
{
public:
    NoRawSockets()
    {
        __user_cap_data_struct rights[2] = {};
        if (syscall(SYS_capget, &m_header, rights) != 0)
            return;
        m_before = rights[0].effective;
        rights[0].effective &= ~(1U << CAP_NET_RAW);
        m_isDone = syscall(SYS_capset, &m_header, rights) == 0;
    }
    ~NoRawSockets()
    {
        __user_cap_data_struct rights[2] = {};
        if (!m_isDone || syscall(SYS_capget, &m_header, rights) != 0)
            return;
        rights[0].effective = m_before;
        if (syscall(SYS_capset, &m_header, rights) != 0)
            qFatal("the right to raw sockets can't be had back");
    }
    NoRawSockets(const NoRawSockets&) = delete;
    NoRawSockets& operator=(const NoRawSockets&) = delete;

private:
    __user_cap_header_struct m_header{_LINUX_CAPABILITY_VERSION_3, 0};
    uint32_t m_before = 0;
    bool m_isDone = false;
};
