#pragma once

#include "NvxQtCommon/transfer/NvxFtpDownloadHandler.h"

#include <QList>
#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>

/// Runs requests, a bounded number of them at once. The application owns the queue and the requests; a
/// request that is deleted leaves it. All lives on the thread that created it.
///
/// The queue starts requests in startQueuedRequests() alone: a slot that gets free stays free until the next
/// call, which a slot of complete() makes by a queued connection, since the queue lets go of a request only
/// after that one's other slots. There is no second try.
class NVXQTCOMMON_EXPORT NvxFtpDownloadQueue : public QObject
{
    Q_OBJECT

public:
    explicit NvxFtpDownloadQueue(QObject* parent = nullptr);

    void push_back(NvxFtpDownloadRequest* request);
    /// Takes a pending request out, without deleting it or renumbering the others. Nothing for an unknown id.
    void remove(int id);
    /// By its queueInd() or id: null where there is none.
    NvxFtpDownloadRequest* requestAtPos(int position) const;
    NvxFtpDownloadRequest* requestById(int id) const;
    /// The request's queueInd(), or -1.
    int positionOf(int id) const;

    int numRequests() const { return numInProgress() + numPending(); }
    int numInProgress() const { return static_cast<int>(m_inProgress.size()); }
    int numPending() const { return static_cast<int>(m_pending.size()); }
    bool isInProgress(int id) const;
    bool isRunning() const { return m_isRunning; }
    /// Nothing is in progress.
    bool downloadTaskComplete() const { return m_inProgress.isEmpty(); }
    /// A pending request has something to do.
    bool isAllQueueHasWork() const;
    /// A negative number renumbers what is pending from 0 on; any other lowers each queueInd() above it by 1.
    void setQueueIndexes(int removed);
    /// 3 until set.
    int maxDownloads() const { return m_maxDownloads; }
    void setMaxDownloads(int count) { m_maxDownloads = count; }
    /// Where the files go, defaultOutputFolder() until set. It has to exist.
    const QString& destDir() const { return m_destDir; }
    void setDestDir(const QString& directory) { m_destDir = directory; }

    /// Resumes what pause() stopped, and starts pending requests that have work while slots are free.
    void startQueuedRequests();
    /// Starts one pending request, or passes over one without work.
    void startNext();
    /// Stops what is in progress; it keeps its slots and connections.
    void pause();
    /// Cancels all. What is pending stays so.
    void cancelAll();
    /// Does nothing, by design.
    void cancel(int id);

public Q_SLOTS:
    void handleDownloadComplete(int32_t id, bool error);
    void handleRemoveComplete(int32_t id, bool error);

Q_SIGNALS:
    void requestQueued(int32_t id);
    void requestRemoved(int32_t id);
    /// Nothing is in progress and nothing pending has work; `len` requests are pending.
    void signalProcTaskComplete(int32_t len);
    // These are never emitted; the requests' own signals tell it.
    void downloadStarted(int32_t id);
    void downloadComplete(int32_t id);
    void progress(int32_t id);
    void error(int32_t id);

private:
    using Handler = std::shared_ptr<NvxFtpDownloadHandler>;

    void release(int32_t id);
    void forget(QObject* request);

    QList<NvxFtpDownloadRequest*> m_pending;
    QList<Handler> m_inProgress;
    bool m_isRunning = false;
    int m_maxDownloads = 3;
    int m_cursor = 0;
    QString m_destDir;
};
