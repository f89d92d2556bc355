#include "NvxQtCommon/discovery/CTcpSocThread.h"

#include "NvxQtCommon/discovery/CTcpSocProc.h"
#include "NvxQtCommon/platform/FreeDescriptors.h"

#include <QCoreApplication>
#include <QDebug>
#include <QPointer>

#include <algorithm>
#include <set>

namespace {

// Sanitizers need the stack of other threads.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
constexpr unsigned kProbeStackSize = 512 * 1024;
#else
constexpr unsigned kProbeStackSize = 0;
#endif

/// The threads of all probes there are.
class ProbeThreads
{
public:
    static ProbeThreads& all()
    {
        static ProbeThreads threads;
        return threads;
    }

    void add(CTcpSocThread* thread)
    {
        const std::lock_guard lock(m_mutex);
        m_threads.insert(thread);
        QCoreApplication* app = QCoreApplication::instance();
        if (app == nullptr || app == m_app)
            return;
        m_app = app;
        QObject::connect(app, &QCoreApplication::aboutToQuit, app, &ProbeThreads::end, Qt::DirectConnection);
        // An application whose event loop never ran is never about to quit.
        qAddPostRoutine(&ProbeThreads::end);
    }
    void remove(CTcpSocThread* thread)
    {
        const std::lock_guard lock(m_mutex);
        m_threads.erase(thread);
    }
    template <class Condition> size_t count(Condition condition) const
    {
        const std::lock_guard lock(m_mutex);
        return static_cast<size_t>(std::count_if(m_threads.begin(), m_threads.end(), condition));
    }

private:
    /// The threads stay in the list: it is their destructors that take them out, and those wait meanwhile.
    static void end()
    {
        ProbeThreads& threads = all();
        const std::lock_guard lock(threads.m_mutex);
        for (CTcpSocThread* thread : threads.m_threads)
            thread->quit();
        for (CTcpSocThread* thread : threads.m_threads)
            thread->wait();
    }

    mutable std::mutex m_mutex;
    std::set<CTcpSocThread*> m_threads;
    QPointer<QCoreApplication> m_app;
};

} // namespace

size_t CTcpSocThread::roomForProbes()
{
    // Those that were started and have opened nothing so far take theirs out of what is free now.
    const size_t owed = ProbeThreads::all().count(
        [](const CTcpSocThread* thread) { return thread->isRunning() && !thread->m_holdsDescriptors; });
    const size_t free = freeDescriptors();
    const size_t room = (free - std::min(free, kSpareDescriptors)) / kDescriptors;
    return room - std::min(room, owed);
}

CTcpSocThread::CTcpSocThread(QObject* parent, QHostAddress address, unsigned timeWait, uint8_t cmd)
    : QThread(parent), m_hostAddress(address), m_timeWait(timeWait), m_cmd(cmd)
{
    registerNvxMetaTypes();
    setStackSize(kProbeStackSize);
    ProbeThreads::all().add(this);
}

CTcpSocThread::~CTcpSocThread()
{
    quit();
    wait();
    ProbeThreads::all().remove(this);
}

std::shared_ptr<CTcpSocProc> CTcpSocThread::tcpSocProc() const
{
    const std::lock_guard lock(m_mutex);
    return m_socket;
}

void CTcpSocThread::createSocket()
{
    auto socket = CTcpSocProc::make(nullptr, m_hostAddress, m_timeWait, m_cmd);
    const std::lock_guard lock(m_mutex);
    m_socket.swap(socket);
}

void CTcpSocThread::connectIP()
{
    const std::shared_ptr<CTcpSocProc> socket = tcpSocProc();
    if (!socket)
        return;
    const auto once = static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::UniqueConnection);
    connect(socket.get(), &QAbstractSocket::disconnected, this, &CTcpSocThread::disconnected, once);
    connect(socket.get(), &QAbstractSocket::errorOccurred, this, &CTcpSocThread::errorHandle, once);
    socket->connectIPAddr(m_hostAddress, m_timeWait, m_cmd, false);
    m_holdsDescriptors = true;
}

void CTcpSocThread::run()
{
    exec();
    std::shared_ptr<CTcpSocProc> socket;
    const std::lock_guard lock(m_mutex);
    m_socket.swap(socket);
}

void CTcpSocThread::closeSocket()
{
    if (const std::shared_ptr<CTcpSocProc> socket = tcpSocProc())
        socket->closePerform();
}

void CTcpSocThread::disconnected()
{
    closeSocket();
    exit(0);
}

void CTcpSocThread::errorHandle(QAbstractSocket::SocketError socketError)
{
    qDebug().nospace().noquote() << "CTcpSocThread: socketError: " << socketError;
    Q_EMIT signalError(socketError, m_hostAddress);
    closeSocket();
    exit(0);
}
