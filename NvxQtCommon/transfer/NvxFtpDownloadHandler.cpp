#include "NvxQtCommon/transfer/NvxFtpDownloadHandler.h"

#include "NvxQtCommon/transfer/LocalName.h"

#include <QDebug>

NvxFtpDownloadHandler::NvxFtpDownloadHandler(NvxFtpDownloadRequest* request, QObject* parent)
    : QObject(parent), m_request(request)
{
    if (request->workRegime() == NvxFtpDownloadRequest::DownloadWork &&
        isBareFileName(request->localName())) {
        m_file = std::make_unique<QFile>(request->localPath());
        openFile();
    }
    connect(request, &NvxFtpDownloadRequest::readyRead, this, &NvxFtpDownloadHandler::readFtpData);
}

void NvxFtpDownloadHandler::openFile()
{
    if (!m_file->open(QIODevice::WriteOnly))
        warnOnce("open");
}

void NvxFtpDownloadHandler::warnOnce(const char* what)
{
    m_request->setFileErrorString(m_file->errorString());
    if (!m_hasWarned)
        qWarning().noquote() << QStringLiteral("NvxFtpDownloadHandler: can't %1 %2 - %3")
                                    .arg(QLatin1String(what), m_file->fileName(), m_file->errorString());
    m_hasWarned = true;
}

void NvxFtpDownloadHandler::readFtpData()
{
    if (m_isCancelled || m_isPaused || !m_file ||
        m_request->workRegime() != NvxFtpDownloadRequest::DownloadWork)
        return;
    const QByteArray bytes = m_request->ftp().readAll();
    if (m_file->isOpen() && (m_file->write(bytes) != bytes.size() || !m_file->flush()))
        warnOnce("write");
}

void NvxFtpDownloadHandler::pause()
{
    if (m_isPaused)
        return;
    m_isPaused = true;
    m_request->ftp().clearPendingCommands();
    m_request->ftp().abort();
    if (m_file)
        m_file->close();
}

void NvxFtpDownloadHandler::resume()
{
    if (!m_isPaused)
        return;
    m_isPaused = false;
    // Intended: from the first byte, and by a command whose end the request doesn't know.
    m_request->ftp().get(m_request->remoteName(), nullptr, QFtp::Binary);
    m_request->ftp().close();
    if (m_file && m_request->workRegime() == NvxFtpDownloadRequest::DownloadWork)
        openFile();
}

void NvxFtpDownloadHandler::cancel()
{
    m_request->cancel();
    m_isCancelled = true;
    if (m_file)
        m_file->close();
}

void NvxFtpDownloadHandler::handleDownloadComplete(int32_t, bool error)
{
    finish("Download", error);
}

void NvxFtpDownloadHandler::handleRemoveComplete(int32_t, bool error)
{
    finish("Remove", error);
}

void NvxFtpDownloadHandler::finish(const char* work, bool error)
{
    if (m_isPaused)
        return;
    if (error)
        qDebug().noquote() << QLatin1String(work) + QLatin1String(" Error: ") +
                                  m_request->ftp().errorString();
    if (m_file)
        m_file->close();
}
