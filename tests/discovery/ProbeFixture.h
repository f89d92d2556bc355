#pragma once

#include "NvxQtCommon/discovery/HydMarcoAdapter.h"
#include "tests/control/ControlPeer.h"
#include "tests/support/Patience.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QList>
#include <QString>
#include <QThread>

#include <fcntl.h>
#include <mutex>
#include <sys/resource.h>

// What the tests of TCP probes share.

using Device = std::shared_ptr<HydDevice>;

inline qsizetype entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

/// Threads of this process.
inline qsizetype threadCount()
{
    return entriesOf(QStringLiteral("/proc/self/task"));
}

/// Files and sockets that this process has open; one of them is the listing's.
inline qsizetype descriptorCount()
{
    return entriesOf(QStringLiteral("/proc/self/fd"));
}

/// Calls on the thread of `there` and waits. The lock tells ThreadSanitizer, which doesn't see into Qt, what
/// comes after what.
template <class Call> void callOn(QObject& there, Call call)
{
    static std::mutex order;
    {
        const std::lock_guard lock(order);
    }
    QMetaObject::invokeMethod(
        &there,
        [&call] {
            const std::lock_guard lock(order);
            call();
        },
        Qt::BlockingQueuedConnection);
    const std::lock_guard lock(order);
}

/// Waits for what comes without any event loop of this thread.
template <class Condition> bool becomesTrueWithoutEvents(Condition condition)
{
    const QDeadlineTimer end(kPatienceMs);
    while (!condition() && !end.hasExpired())
        QThread::yieldCurrentThread();
    return condition();
}

/// Descriptors in use whose numbers are below `limit`; a shell may have left some with higher ones open,
/// which don't count under that limit.
inline size_t descriptorsBelow(size_t limit)
{
    size_t used = 0;
    for (size_t number = 0; number < limit; ++number)
        used += fcntl(static_cast<int>(number), F_GETFD) != -1 ? 1 : 0;
    return used;
}

/// Lowers the process's limit of open files and sockets while it lives.
class DescriptorLimit
{
public:
    explicit DescriptorLimit(size_t limit)
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit lowered{limit, m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &lowered);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &m_before); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit m_before{};
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif

/// Bytes by which memory may grow that doesn't grow; sanitizers keep for a while what was freed.
inline constexpr qint64 kLittleMemory = (kIsSanitized ? 512 : 8) * qint64(1024 * 1024);

/// Bytes that this process has in memory.
inline qint64 residentBytes()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    constexpr qint64 kPage = 4096;
    return file.readAll().split(' ').value(1).toLongLong() * kPage;
}

/// A peer on the control port that answers each request alike; it says nothing for an empty answer.
class ProbedPeer : public ControlPeer
{
public:
    explicit ProbedPeer(const QString& address, const QByteArray& answer = {}) : ControlPeer(address)
    {
        setScript([answer](const Request&) { return answer; });
        m_listens = listen();
    }
    bool listens() const { return m_listens; }
    QHostAddress host() const { return QHostAddress(address()); }

private:
    bool m_listens = false;
};

/// Keeps what an adapter reports, on the thread that created it, whatever thread it is reported from.
class ProbeReports : public QObject
{
public:
    explicit ProbeReports(const HydMarcoAdapter& adapter)
    {
        connect(&adapter, &HydMarcoAdapter::deviceFound, this, [this](const Device& d) { m_found << d; });
        connect(&adapter, &HydMarcoAdapter::deviceFoundIP, this, [this](const Device& d) { m_foundIp << d; });
        connect(&adapter, &HydMarcoAdapter::signalSocketError, this,
                [this](QAbstractSocket::SocketError error, const QHostAddress& address) {
                    m_errors << error;
                    m_errorAddresses << address.toString();
                });
    }

    QList<Device> m_found;
    QList<Device> m_foundIp;
    QList<QAbstractSocket::SocketError> m_errors;
    QStringList m_errorAddresses;
};
