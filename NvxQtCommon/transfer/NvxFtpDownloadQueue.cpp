#include "NvxQtCommon/transfer/NvxFtpDownloadQueue.h"

#include "NvxQtCommon/settings/OutputFolder.h"

#include <algorithm>
#include <ranges>

namespace {

bool requestHasWork(const NvxFtpDownloadRequest* request)
{
    return request->workRegime() != NvxFtpDownloadRequest::NoWork;
}

} // namespace

NvxFtpDownloadQueue::NvxFtpDownloadQueue(QObject* parent) : QObject(parent), m_destDir(defaultOutputFolder())
{
}

void NvxFtpDownloadQueue::push_back(NvxFtpDownloadRequest* request)
{
    request->setQueueInd(numPending());
    m_pending.append(request);
    connect(request, &QObject::destroyed, this, &NvxFtpDownloadQueue::forget);
    Q_EMIT requestQueued(request->requestId());
}

void NvxFtpDownloadQueue::forget(QObject* request)
{
    m_pending.removeIf([request](const NvxFtpDownloadRequest* other) { return other == request; });
    m_inProgress.removeIf([request](const Handler& handler) { return handler->request() == request; });
}

void NvxFtpDownloadQueue::remove(int id)
{
    if (m_pending.removeIf([id](const auto* request) { return request->requestId() == id; }) > 0)
        Q_EMIT requestRemoved(id);
}

NvxFtpDownloadRequest* NvxFtpDownloadQueue::requestAtPos(int position) const
{
    for (const Handler& handler : m_inProgress) {
        if (handler->request()->queueInd() == position)
            return handler->request();
    }
    const auto found = std::ranges::find_if(
        m_pending, [position](const auto* request) { return request->queueInd() == position; });
    return found == m_pending.cend() ? nullptr : *found;
}

NvxFtpDownloadRequest* NvxFtpDownloadQueue::requestById(int id) const
{
    for (const Handler& handler : m_inProgress) {
        if (handler->requestId() == id)
            return handler->request();
    }
    const auto found =
        std::ranges::find_if(m_pending, [id](const auto* request) { return request->requestId() == id; });
    return found == m_pending.cend() ? nullptr : *found;
}

int NvxFtpDownloadQueue::positionOf(int id) const
{
    const NvxFtpDownloadRequest* const request = requestById(id);
    return request == nullptr ? -1 : request->queueInd();
}

bool NvxFtpDownloadQueue::isInProgress(int id) const
{
    return std::ranges::any_of(m_inProgress,
                               [id](const Handler& handler) { return handler->requestId() == id; });
}

bool NvxFtpDownloadQueue::isAllQueueHasWork() const
{
    return std::ranges::any_of(m_pending, requestHasWork);
}

void NvxFtpDownloadQueue::setQueueIndexes(int removed)
{
    if (removed < 0) {
        for (int i = 0; i < numPending(); ++i)
            m_pending[i]->setQueueInd(i);
        return;
    }
    const auto lower = [removed](NvxFtpDownloadRequest* request) {
        if (request->queueInd() > removed)
            request->setQueueInd(request->queueInd() - 1);
    };
    for (const Handler& handler : std::as_const(m_inProgress))
        lower(handler->request());
    for (NvxFtpDownloadRequest* request : std::as_const(m_pending))
        lower(request);
}

void NvxFtpDownloadQueue::startQueuedRequests()
{
    if (!m_isRunning) {
        m_isRunning = true;
        const QList<Handler> handlers = m_inProgress;
        for (const Handler& handler : handlers)
            handler->resume();
    }
    m_cursor = 0;
    while (m_cursor < numPending() && numInProgress() < m_maxDownloads)
        startNext();
}

void NvxFtpDownloadQueue::startNext()
{
    if (!m_isRunning || m_cursor >= numPending())
        return;
    NvxFtpDownloadRequest* const request = m_pending[m_cursor];
    if (!requestHasWork(request)) {
        ++m_cursor;
        return;
    }
    m_pending.removeAt(m_cursor);
    request->setDestDir(m_destDir);
    const auto handler = std::make_shared<NvxFtpDownloadHandler>(request);
    m_inProgress.append(handler);
    if (request->workRegime() == NvxFtpDownloadRequest::DownloadWork) {
        connect(request, &NvxFtpDownloadRequest::complete, handler.get(),
                &NvxFtpDownloadHandler::handleDownloadComplete);
        connect(request, &NvxFtpDownloadRequest::complete, this,
                &NvxFtpDownloadQueue::handleDownloadComplete);
        request->startDownload();
    } else {
        connect(request, &NvxFtpDownloadRequest::complete, handler.get(),
                &NvxFtpDownloadHandler::handleRemoveComplete);
        connect(request, &NvxFtpDownloadRequest::complete, this, &NvxFtpDownloadQueue::handleRemoveComplete);
        request->startRemove();
    }
}

void NvxFtpDownloadQueue::handleDownloadComplete(int32_t id, bool)
{
    release(id);
}

void NvxFtpDownloadQueue::handleRemoveComplete(int32_t id, bool)
{
    release(id);
}

void NvxFtpDownloadQueue::release(int32_t id)
{
    // Intended: the slot stays free until the next startQueuedRequests().
    if (m_isRunning) {
        for (qsizetype i = m_inProgress.size() - 1; i >= 0; --i) {
            if (m_inProgress[i]->requestId() == id)
                m_inProgress.removeAt(i);
        }
    }
    if (m_inProgress.isEmpty() && !isAllQueueHasWork())
        Q_EMIT signalProcTaskComplete(numPending());
}

void NvxFtpDownloadQueue::pause()
{
    m_isRunning = false;
    const QList<Handler> handlers = m_inProgress;
    for (const Handler& handler : handlers)
        handler->pause();
}

void NvxFtpDownloadQueue::cancelAll()
{
    m_cursor = 0;
    // A slot may take requests away.
    for (int i = numPending() - 1; i >= 0; --i) {
        if (i < numPending())
            m_pending[i]->cancel();
    }
    // A cancelled handler leaves the list inside its own call: the copy keeps it alive.
    const QList<Handler> handlers = m_inProgress;
    for (const Handler& handler : std::views::reverse(handlers))
        handler->cancel();
}

void NvxFtpDownloadQueue::cancel(int) {}
