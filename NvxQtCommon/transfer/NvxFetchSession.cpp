#include "NvxQtCommon/transfer/NvxFetchSession.h"

#include "NvxQtCommon/transfer/LocalName.h"

#include <QFile>
#include <QTimer>

#include <algorithm>

namespace {

int inMilliseconds(std::chrono::milliseconds time)
{
    return static_cast<int>(time.count());
}

} // namespace

struct NvxFetchSession::Host
{
    QString address;
    std::unique_ptr<HydFtpFileFinder> finder;
    int attempts = 0;
    bool isDone = false;
};

struct NvxFetchSession::Job
{
    /// Requests are let go from inside their own signals.
    struct LaterDeleter
    {
        void operator()(QObject* object) const { object->deleteLater(); }
    };
    enum class State {
        Ready, // or waits for its next try
        Running,
        Stopping, // an abort is under way
        Stopped,
        Done
    };

    QString host;
    QString name;
    qint64 size = 0;
    std::unique_ptr<NvxFtpDownloadRequest, LaterDeleter> request;
    State state = State::Ready;
    qint64 bytesDone = 0;
    int attempts = 0;
    /// The request's own word on the attempt under way; a resumed one has none.
    bool hasSucceeded = false;
    bool isResumed = false;
    QString error;
};

NvxFetchSession::NvxFetchSession(QObject* parent) : QObject(parent) {}

NvxFetchSession::~NvxFetchSession() = default;

void NvxFetchSession::setMaxDownloads(int count)
{
    m_queue.setMaxDownloads(std::max(count, 1));
}

void NvxFetchSession::setMaxAttempts(int count)
{
    m_maxAttempts = std::max(count, 1);
}

void NvxFetchSession::setRetryWait(std::chrono::milliseconds wait)
{
    m_retryWait = std::clamp(wait, std::chrono::milliseconds(0), kLongestRetryWait);
}

void NvxFetchSession::setInactivityLimit(std::chrono::milliseconds limit)
{
    m_inactivityLimit = limit;
}

std::chrono::milliseconds NvxFetchSession::waitAfter(int attempts) const
{
    constexpr int kMostDoublings = 16;
    return std::min(m_retryWait * (1 << std::clamp(attempts - 1, 0, kMostDoublings)), kLongestRetryWait);
}

void NvxFetchSession::start(const QStringList& hosts, const QDateTime& begin, const QDateTime& end, bool all)
{
    m_begin = begin;
    m_end = end;
    m_isAll = all;
    QStringList addresses = hosts;
    addresses.removeDuplicates();
    for (const QString& address : std::as_const(addresses)) {
        m_hosts.push_back(std::make_unique<Host>());
        m_hosts.back()->address = address;
    }
    m_openHosts = addresses.size();
    for (const auto& host : m_hosts)
        listHost(*host);
    scheduleRefill();
}

void NvxFetchSession::listHost(Host& host)
{
    ++host.attempts;
    host.finder = std::make_unique<HydFtpFileFinder>();
    HydFtpFileFinder* const finder = host.finder.get();
    finder->initialize(m_isAll);
    QList<QString> addresses{host.address};
    finder->findFilesInTimeRange(addresses, m_begin, m_end);
    NvxFtp* const ftp = finder->connections().first();
    ftp->setInactivityLimit(inMilliseconds(m_inactivityLimit));
    ftp->setPassiveToPeer(m_isPassiveToPeer);
    // Both from the event loop, since the finder goes there, and another one may have come meanwhile.
    connect(
        ftp, &QFtp::done, this,
        [this, &host, finder, ftp](bool error) {
            if (host.finder.get() == finder)
                handleListed(host, error ? ftp->errorString() : QString());
        },
        Qt::QueuedConnection);
    connect(
        finder, &HydFtpFileFinder::timeout, this,
        [this, &host, finder] {
            if (host.finder.get() == finder)
                handleListed(host, QStringLiteral("No answer"));
        },
        Qt::QueuedConnection);
}

void NvxFetchSession::handleListed(Host& host, const QString& error)
{
    const std::unique_ptr<HydFtpFileFinder> finder = std::move(host.finder);
    if (!error.isEmpty() && host.attempts < m_maxAttempts) {
        QTimer::singleShot(waitAfter(host.attempts), this, [this, &host] {
            if (!host.isDone)
                listHost(host);
        });
        return;
    }
    host.isDone = true;
    --m_openHosts;
    if (error.isEmpty()) {
        for (const QUrlInfo& info : finder->files())
            m_bytesInAll += info.size();
        Q_EMIT hostListed(host.address, static_cast<int>(finder->files().size()));
        for (const QUrlInfo& info : finder->files())
            addFile(host.address, info);
    } else {
        m_summary.failedHosts << host.address + QStringLiteral(": ") + error;
        Q_EMIT hostFailed(host.address, error);
    }
    scheduleRefill();
}

void NvxFetchSession::addFile(const QString& host, const QUrlInfo& info)
{
    m_jobs.push_back(std::make_unique<Job>());
    Job& job = *m_jobs.back();
    job.host = host;
    job.name = info.name();
    job.size = info.size();
    ++m_openJobs;
    const QString key = job.name.toCaseFolded();
    if (m_isCancelled)
        finish(job, NvxFetchResult::Cancelled);
    else if (!isBareFileName(job.name) || !isBareFileName(partName(job)))
        finish(job, NvxFetchResult::Failed, QStringLiteral("The name is not a bare file name"));
    else if (m_names.contains(key))
        finish(job, NvxFetchResult::Failed, QStringLiteral("Another file has the same name"));
    else
        m_ready.push_back(&job);
    m_names.insert(key);
}

QString NvxFetchSession::partName(const Job& job) const
{
    return job.name + QLatin1String(kPartSuffix);
}

QString NvxFetchSession::pathOf(const QString& name) const
{
    return m_queue.destDir() + u'/' + name;
}

void NvxFetchSession::enqueue(Job& job)
{
    if (QFile part(pathOf(partName(job))); !part.open(QIODevice::WriteOnly)) {
        finish(job, NvxFetchResult::Failed, part.errorString());
        return;
    }
    const NvxNetHostInfo host(NvxIpAddr(job.host.toStdString()).toInt());
    job.state = Job::State::Running;
    job.hasSucceeded = false;
    job.isResumed = false;
    job.error.clear();
    ++job.attempts;
    job.request.reset(new NvxFtpDownloadRequest(host, job.name, QStringLiteral("Data"), QString(),
                                                partName(job), QString(), job.size));
    NvxFtpDownloadRequest* const request = job.request.get();
    request->setWorkRegime(NvxFtpDownloadRequest::DownloadWork);
    request->ftp().setInactivityLimit(inMilliseconds(m_inactivityLimit));
    request->ftp().setPassiveToPeer(m_isPassiveToPeer);
    connect(request, &NvxFtpDownloadRequest::failed, this,
            [&job](int32_t, const QString& text) { job.error = text; });
    connect(request, &NvxFtpDownloadRequest::complete, this,
            [&job](int32_t, bool error) { job.hasSucceeded = !error; });
    connect(request, &NvxFtpDownloadRequest::progress, this, [this, &job](int32_t, int64_t done, int64_t) {
        setBytesDone(job, done);
        Q_EMIT fileProgress(job.host, job.name, done, job.size);
    });
    // Each attempt ends here, whatever its request tells. From the event loop, since the request goes then.
    connect(
        &request->ftp(), &QFtp::done, this,
        [this, &job, request](bool error) {
            if (job.request.get() == request)
                handleAttemptEnd(job, error);
        },
        Qt::QueuedConnection);
    m_active.append(&job);
    m_queue.push_back(request);
    Q_EMIT fileStarted(job.host, job.name, job.size);
}

void NvxFetchSession::setBytesDone(Job& job, qint64 bytes)
{
    m_bytesDone += bytes - job.bytesDone;
    job.bytesDone = bytes;
}

void NvxFetchSession::handleAttemptEnd(Job& job, bool error)
{
    if (job.state == Job::State::Stopping) {
        job.state = Job::State::Stopped;
        scheduleRefill();
        return;
    }
    if (job.state != Job::State::Running)
        return;
    NvxFtpDownloadRequest& request = *job.request;
    const QString reason = job.error.isEmpty() ? request.ftp().errorString() : job.error;
    const bool isFetched = job.isResumed ? !error : job.hasSucceeded;
    // A request whose end its queue doesn't know still has its slot, and its file open.
    m_queue.handleDownloadComplete(request.requestId(), !isFetched);
    const QString problem = isFetched ? takeFile(job) : reason;
    if (problem.isEmpty())
        finish(job, NvxFetchResult::Fetched);
    else
        retryOrFail(job, problem);
    scheduleRefill();
}

QString NvxFetchSession::takeFile(const Job& job) const
{
    QFile part(pathOf(partName(job)));
    if (part.size() != job.size)
        return QStringLiteral("%1 bytes came instead of %2").arg(part.size()).arg(job.size);
    QFile::remove(pathOf(job.name));
    return part.rename(pathOf(job.name)) ? QString() : part.errorString();
}

void NvxFetchSession::release(Job& job)
{
    m_active.removeOne(&job);
    job.request.reset();
}

void NvxFetchSession::retryOrFail(Job& job, const QString& error)
{
    // A connection that didn't outlive a pause is nobody's fault.
    if (job.isResumed)
        --job.attempts;
    if (job.attempts >= m_maxAttempts) {
        finish(job, NvxFetchResult::Failed, error);
        return;
    }
    release(job);
    job.state = Job::State::Ready;
    setBytesDone(job, 0);
    QTimer::singleShot(waitAfter(job.attempts), this, [this, &job] {
        if (job.state != Job::State::Ready)
            return;
        m_ready.push_back(&job);
        scheduleRefill();
    });
    Q_EMIT fileRetried(job.host, job.name, error);
}

void NvxFetchSession::finish(Job& job, NvxFetchResult::Outcome outcome, const QString& error)
{
    const bool isFetched = outcome == NvxFetchResult::Fetched;
    release(job);
    job.state = Job::State::Done;
    --m_openJobs;
    setBytesDone(job, isFetched ? job.size : 0);
    if (!isFetched && job.attempts > 0)
        QFile::remove(pathOf(partName(job)));
    m_summary.fetched += isFetched ? 1 : 0;
    m_summary.failed += outcome == NvxFetchResult::Failed ? 1 : 0;
    m_summary.cancelled += outcome == NvxFetchResult::Cancelled ? 1 : 0;
    m_summary.bytes += isFetched ? job.size : 0;
    Q_EMIT fileFinished({job.host, job.name, isFetched ? pathOf(job.name) : QString(), job.size, outcome,
                         job.attempts, error});
}

void NvxFetchSession::scheduleRefill()
{
    // The queue lets go of a request behind the request's other slots, so not at once.
    if (!m_isRefillScheduled)
        QMetaObject::invokeMethod(this, &NvxFetchSession::refill, Qt::QueuedConnection);
    m_isRefillScheduled = true;
}

void NvxFetchSession::refill()
{
    m_isRefillScheduled = false;
    if (m_isFinished)
        return;
    // What a resume would ask of a connection whose abort is under way would be dropped.
    const auto isStopping = [](const Job* job) { return job->state == Job::State::Stopping; };
    if (!m_isPaused && std::ranges::none_of(m_active, isStopping)) {
        for (Job* job : std::as_const(m_active)) {
            if (job->state == Job::State::Stopped) {
                job->state = Job::State::Running;
                job->isResumed = true;
                setBytesDone(*job, 0);
            }
        }
        // A slot of a signal may pause or cancel.
        while (!m_isPaused && !m_ready.empty() && m_active.size() < m_queue.maxDownloads()) {
            Job* const job = m_ready.front();
            m_ready.pop_front();
            enqueue(*job);
        }
        if (!m_isPaused)
            m_queue.startQueuedRequests();
    }
    if (m_openHosts == 0 && m_openJobs == 0) {
        m_isFinished = true;
        Q_EMIT finished(m_summary);
    }
}

void NvxFetchSession::pause()
{
    if (m_isPaused || m_isFinished)
        return;
    m_isPaused = true;
    for (Job* job : std::as_const(m_active)) {
        // One that the queue has let go of has its end behind it, and one that it hasn't begun waits.
        if (job->state == Job::State::Running && m_queue.isInProgress(job->request->requestId()))
            job->state = Job::State::Stopping;
    }
    m_queue.pause();
    for (Job* job : std::as_const(m_active)) {
        // Nothing runs on its connection, so no end of an abort will come.
        if (job->state == Job::State::Stopping && job->request->ftp().currentId() == 0)
            job->state = Job::State::Stopped;
    }
}

void NvxFetchSession::resume()
{
    m_isPaused = false;
    scheduleRefill();
}

void NvxFetchSession::cancel()
{
    if (m_isCancelled || m_isFinished)
        return;
    m_isCancelled = true;
    m_queue.cancelAll();
    for (const auto& host : m_hosts) {
        host->isDone = true;
        host->finder.reset();
    }
    m_openHosts = 0;
    m_ready.clear();
    for (size_t i = 0; i < m_jobs.size(); ++i) {
        Job& job = *m_jobs[i];
        if (job.state == Job::State::Done)
            continue;
        if (job.request)
            m_queue.remove(job.request->requestId());
        finish(job, NvxFetchResult::Cancelled);
    }
    scheduleRefill();
}
