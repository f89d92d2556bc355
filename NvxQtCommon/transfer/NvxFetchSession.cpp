#include "NvxQtCommon/transfer/NvxFetchSession.h"

#include "NvxQtCommon/transfer/LocalName.h"

#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <ranges>
#include <system_error>

namespace {

int inMilliseconds(std::chrono::milliseconds time)
{
    constexpr std::chrono::milliseconds kMost = std::chrono::hours(24 * 20);
    return static_cast<int>(std::min(time, kMost).count());
}

qint64 sumUpToMost(qint64 a, qint64 b)
{
    return a > std::numeric_limits<qint64>::max() - b ? std::numeric_limits<qint64>::max() : a + b;
}

} // namespace

/// How far the command has come that a connection was made for.
struct NvxFetchSession::Attempt
{
    int commandId = 0;
    bool isWhole = false;
};

struct NvxFetchSession::Host
{
    QString address;
    std::unique_ptr<HydFtpFileFinder> finder;
    std::shared_ptr<Attempt> attempt; // null while none is under way
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
    std::shared_ptr<Attempt> attempt; // null while none is under way
    State state = State::Ready;
    qint64 bytesDone = 0;
    int attempts = 0;
    bool isResumed = false;
    bool hasPart = false; // a file that goes with a failure
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

std::chrono::milliseconds NvxFetchSession::waitAfter(std::chrono::milliseconds first, int attempts)
{
    constexpr int kMostDoublings = 16;
    return std::min(first * (1 << std::clamp(attempts - 1, 0, kMostDoublings)), kLongestRetryWait);
}

void NvxFetchSession::start(const QStringList& hosts, const QDateTime& begin, const QDateTime& end, bool all)
{
    if (m_isStarted || m_isCancelled)
        return;
    m_isStarted = true;
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

std::shared_ptr<NvxFetchSession::Attempt> NvxFetchSession::follow(NvxFtp& ftp, QFtp::Command work)
{
    ftp.setInactivityLimit(inMilliseconds(m_inactivityLimit));
    ftp.setPassiveToPeer(m_isPassiveToPeer);
    auto attempt = std::make_shared<Attempt>();
    connect(&ftp, &QFtp::commandStarted, this, [&ftp, work, attempt](int id) {
        if (ftp.currentCommand() == work)
            attempt->commandId = id;
    });
    connect(&ftp, &QFtp::commandFinished, this, [this, &ftp, attempt](int id, bool error) {
        if (id != attempt->commandId || error)
            return;
        attempt->isWhole = true;
        // What is whole doesn't wait long for a server that only has to say goodbye.
        const bool isLimited = m_inactivityLimit.count() > 0;
        ftp.setInactivityLimit(
            inMilliseconds(isLimited ? std::min(m_inactivityLimit, kGoodbyeLimit) : kGoodbyeLimit));
    });
    return attempt;
}

void NvxFetchSession::listHost(Host& host)
{
    if (NvxIpAddr(host.address.toStdString()).toInt() == 0) {
        const auto refuse = [this, &host] {
            if (!host.isDone)
                failHost(host, QStringLiteral("Not an IPv4 address"));
        };
        QMetaObject::invokeMethod(this, refuse, Qt::QueuedConnection);
        return;
    }
    ++host.attempts;
    host.finder = std::make_unique<HydFtpFileFinder>(this);
    host.finder->initialize(m_isAll);
    QList<QString> addresses{host.address};
    host.finder->findFilesInTimeRange(addresses, m_begin, m_end);
    NvxFtp* const ftp = host.finder->connections().first();
    host.attempt = follow(*ftp, QFtp::List);
    // The finder's own time limit doesn't count: only what lies in the range restarts it, and a long listing
    // may have nothing there. From the event loop, since the finder goes there, and another one may have
    // come meanwhile.
    connect(
        ftp, &QFtp::done, this,
        [this, &host, ftp, attempt = host.attempt] {
            if (host.attempt == attempt)
                handleListed(host, ftp->errorString());
        },
        Qt::QueuedConnection);
}

void NvxFetchSession::handleListed(Host& host, const QString& error)
{
    const std::unique_ptr<HydFtpFileFinder> finder = std::move(host.finder);
    const bool isWhole = std::exchange(host.attempt, nullptr)->isWhole;
    if (!isWhole && host.attempts < m_maxAttempts) {
        const auto wait = waitAfter(m_retryWait, host.attempts);
        QTimer::singleShot(wait, this, [this, &host] {
            if (!host.isDone)
                listHost(host);
        });
        Q_EMIT hostRetried(host.address, error, inMilliseconds(wait));
        return;
    }
    if (isWhole) {
        host.isDone = true;
        --m_openHosts;
        Q_EMIT hostListed(host.address, static_cast<int>(finder->files().size()));
        for (const QUrlInfo& info : finder->files())
            addFile(host.address, info);
    } else {
        failHost(host, error);
    }
    scheduleRefill();
}

void NvxFetchSession::failHost(Host& host, const QString& error)
{
    host.finder.reset();
    host.attempt.reset();
    host.isDone = true;
    --m_openHosts;
    m_summary.failedHosts << host.address + QStringLiteral(": ") + error;
    Q_EMIT hostFailed(host.address, error);
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
    else {
        m_bytesInAll = sumUpToMost(m_bytesInAll, job.size);
        m_ready.push_back(&job);
    }
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
    job.hasPart = true;
    const NvxNetHostInfo host(NvxIpAddr(job.host.toStdString()).toInt());
    job.state = Job::State::Running;
    job.isResumed = false;
    ++job.attempts;
    job.request.reset(new NvxFtpDownloadRequest(host, job.name, QStringLiteral("Data"), QString(),
                                                partName(job), QString(), job.size, this));
    NvxFtpDownloadRequest* const request = job.request.get();
    request->setWorkRegime(NvxFtpDownloadRequest::DownloadWork);
    job.attempt = follow(request->ftp(), QFtp::Get);
    connect(request, &NvxFtpDownloadRequest::progress, this,
            [this, &job, attempt = job.attempt](int32_t, int64_t done, int64_t) {
                if (job.attempt == attempt && job.state == Job::State::Running)
                    handleProgress(job, done);
            });
    // The queue doesn't see the end of a resumed download.
    connect(&request->ftp(), &QFtp::commandFinished, this,
            [this, request, attempt = job.attempt](int id, bool error) {
                if (id == attempt->commandId && m_queue.isInProgress(request->requestId()))
                    m_queue.handleDownloadComplete(request->requestId(), error);
            });
    // Each attempt ends here, whatever its request tells. From the event loop, since the request goes then.
    connect(
        &request->ftp(), &QFtp::done, this,
        [this, &job, attempt = job.attempt] {
            if (job.attempt == attempt)
                handleAttemptEnd(job);
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

void NvxFetchSession::handleProgress(Job& job, qint64 done)
{
    const bool isTooLong = done > job.size;
    if (!isTooLong && job.request->fileErrorString().isEmpty()) {
        setBytesDone(job, done);
        Q_EMIT fileProgress(job.host, job.name, done, job.size);
        return;
    }
    // Neither is worth another byte, and a server that goes on sending would never end.
    m_queue.handleDownloadComplete(job.request->requestId(), true);
    if (isTooLong)
        retryOrFail(job, QStringLiteral("More than %1 bytes came").arg(job.size));
    else
        finish(job, NvxFetchResult::Failed, job.request->fileErrorString());
    scheduleRefill();
}

void NvxFetchSession::handleAttemptEnd(Job& job)
{
    if (job.state == Job::State::Stopping)
        job.state = Job::State::Stopped;
    scheduleRefill();
    if (job.state != Job::State::Running)
        return;
    NvxFtpDownloadRequest& request = *job.request;
    const QString fileError = request.fileErrorString();
    // A request whose end its queue doesn't know still has its slot, and its file open.
    m_queue.handleDownloadComplete(request.requestId(), !job.attempt->isWhole);
    if (!job.attempt->isWhole)
        retryOrFail(job, request.ftp().errorString());
    else if (fileError.isEmpty())
        takeFile(job);
    else
        finish(job, NvxFetchResult::Failed, fileError);
}

void NvxFetchSession::takeFile(Job& job)
{
    const QFileInfo part(pathOf(partName(job)));
    if (part.size() != job.size) {
        retryOrFail(job, QStringLiteral("%1 bytes came instead of %2").arg(part.size()).arg(job.size));
        return;
    }
    // What is whole stays, whatever name it gets.
    job.hasPart = false;
    std::error_code error;
    std::filesystem::rename(part.filesystemFilePath(), QFileInfo(pathOf(job.name)).filesystemFilePath(),
                            error);
    if (error)
        finish(
            job, NvxFetchResult::Failed,
            QStringLiteral("It stays %1: %2").arg(part.fileName(), QString::fromStdString(error.message())));
    else
        finish(job, NvxFetchResult::Fetched);
}

void NvxFetchSession::release(Job& job)
{
    m_active.removeOne(&job);
    job.attempt.reset();
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
    const auto wait = waitAfter(m_retryWait, job.attempts);
    QTimer::singleShot(wait, this, [this, &job] {
        if (job.state != Job::State::Ready)
            return;
        m_ready.push_back(&job);
        scheduleRefill();
    });
    Q_EMIT fileRetried(job.host, job.name, error, inMilliseconds(wait));
}

void NvxFetchSession::finish(Job& job, NvxFetchResult::Outcome outcome, const QString& error)
{
    const bool isFetched = outcome == NvxFetchResult::Fetched;
    release(job);
    job.state = Job::State::Done;
    --m_openJobs;
    setBytesDone(job, isFetched ? job.size : 0);
    if (job.hasPart)
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
        // A slot of a signal may pause or cancel.
        while (!m_isPaused && !m_ready.empty() && m_active.size() < m_queue.maxDownloads()) {
            Job* const job = m_ready.front();
            m_ready.pop_front();
            enqueue(*job);
        }
        if (!m_isPaused)
            startQueued();
    }
    if (m_openHosts == 0 && m_openJobs == 0) {
        m_isFinished = true;
        Q_EMIT finished(m_summary);
    }
}

void NvxFetchSession::startQueued()
{
    for (Job* job : std::as_const(m_active)) {
        if (job->state == Job::State::Stopped) {
            job->state = Job::State::Running;
            job->isResumed = true;
            setBytesDone(*job, 0);
        }
    }
    m_queue.startQueuedRequests();
}

void NvxFetchSession::pause()
{
    if (m_isPaused || m_isFinished)
        return;
    m_isPaused = true;
    const QList<Job*> active = m_active;
    for (Job* job : std::views::reverse(active)) {
        // One that the queue has let go of has its end behind it, and one that it hasn't begun waits.
        if (job->state != Job::State::Running || !m_queue.isInProgress(job->request->requestId()))
            continue;
        if (job->request->ftp().currentCommand() == QFtp::Get) {
            job->state = Job::State::Stopping;
            continue;
        }
        // Its connection isn't yet where a resumed download begins, so it starts anew.
        m_queue.handleDownloadComplete(job->request->requestId(), true);
        release(*job);
        job->state = Job::State::Ready;
        --job->attempts;
        m_ready.push_front(job);
    }
    m_queue.pause();
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
        if (!host->isDone)
            failHost(*host, QStringLiteral("Cancelled"));
    }
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
