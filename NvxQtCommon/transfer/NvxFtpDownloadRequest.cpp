#include "NvxQtCommon/transfer/NvxFtpDownloadRequest.h"

#include "NvxQtCommon/transfer/LocalName.h"

#include <QDir>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>

NvxFtpDownloadRequest::NvxFtpDownloadRequest(const NvxNetHostInfo& host, const QString& remoteName,
                                             const QString& remoteDir, const QString& localDir,
                                             const QString& localName, const QString& remoteDate, qint64 size,
                                             QObject* parent)
    : QObject(parent), m_ftp(host), m_remoteDir(remoteDir), m_remoteName(remoteName),
      m_localName(localName.isEmpty() ? remoteName : localName), m_localDir(localDir),
      m_remoteDate(remoteDate), m_fileSize(size)
{
    connect(&m_ftp, &QFtp::commandFinished, this, &NvxFtpDownloadRequest::handleCommandFinished);
    connect(&m_ftp, &QFtp::stateChanged, this, &NvxFtpDownloadRequest::handleStateChange);
    connect(&m_ftp, &QFtp::dataTransferProgress, this, &NvxFtpDownloadRequest::handleDownloadProgress);
    connect(&m_ftp, &QFtp::readyRead, this, &NvxFtpDownloadRequest::readyRead);
}

int32_t NvxFtpDownloadRequest::getNextId()
{
    static std::atomic<int32_t> s_next = 1;
    return s_next++;
}

QString NvxFtpDownloadRequest::localPath() const
{
    return m_localDir + QDir::separator() + m_localName;
}

int NvxFtpDownloadRequest::percentDownloaded() const
{
    if (m_fileSize == 0)
        return 0;
    const double percent =
        std::trunc(static_cast<double>(m_bytesDone) / static_cast<double>(m_fileSize) * 100);
    return static_cast<int>(std::clamp(percent, static_cast<double>(std::numeric_limits<int>::min()),
                                       static_cast<double>(std::numeric_limits<int>::max())));
}

void NvxFtpDownloadRequest::startDownload()
{
    if (!isBareFileName(m_localName)) {
        // Whoever starts it may not yet listen.
        m_isRefusing = true;
        QMetaObject::invokeMethod(this, &NvxFtpDownloadRequest::refuseLocalName, Qt::QueuedConnection);
        return;
    }
    m_ftp.connectToRecorder();
    m_ftp.cd(m_remoteDir);
    m_commandId = static_cast<uint32_t>(m_ftp.get(m_remoteName, nullptr, QFtp::Binary));
    m_ftp.close();
}

void NvxFtpDownloadRequest::startRemove()
{
    m_ftp.connectToRecorder();
    m_ftp.cd(m_remoteDir);
    m_commandId = static_cast<uint32_t>(m_ftp.remove(m_remoteName));
    m_ftp.close();
}

void NvxFtpDownloadRequest::cancel()
{
    m_isRefusing = false;
    m_ftp.clearPendingCommands();
    m_ftp.abort();
    m_commandId = 0;
    Q_EMIT complete(m_requestId, false);
}

void NvxFtpDownloadRequest::refuseLocalName()
{
    if (!m_isRefusing)
        return;
    m_isRefusing = false;
    Q_EMIT failed(m_requestId, QStringLiteral("The local name is not a bare file name, ") + m_remoteName);
    Q_EMIT complete(m_requestId, true);
}

void NvxFtpDownloadRequest::handleDone(bool error)
{
    if (error)
        Q_EMIT failed(m_requestId, m_ftp.errorString());
    Q_EMIT complete(m_requestId, error);
}

void NvxFtpDownloadRequest::handleCommandFinished(int cmdId, bool error)
{
    if (m_commandId == 0 || m_commandId != static_cast<uint32_t>(cmdId))
        return;
    if (error)
        Q_EMIT failed(m_requestId, m_ftp.errorString() + QStringLiteral(", ") + m_remoteName);
    Q_EMIT complete(m_requestId, error);
}

void NvxFtpDownloadRequest::handleDownloadProgress(int64_t done, int64_t total)
{
    m_fileSize = total;
    m_bytesDone = done;
    Q_EMIT progress(m_requestId, done, total);
}

void NvxFtpDownloadRequest::handleStateChange(int state)
{
    Q_EMIT newState(m_requestId, state);
}
