#include "NvxQtCommon/transfer/HydFtpFileFinder.h"

#include <QDebug>
#include <QPointer>

HydFtpFileFinder::HydFtpFileFinder(QObject* parent) : QObject(parent), m_collectTimer(this)
{
    connect(&m_collectTimer, &QTimer::timeout, this, &HydFtpFileFinder::handleCollectTimeout);
}

HydFtpFileFinder::~HydFtpFileFinder()
{
    dropConnections();
}

void HydFtpFileFinder::dropConnections()
{
    for (NvxFtp* connection : std::as_const(m_connections)) {
        connection->disconnect(this);
        // The finder may be in a slot of one of them.
        connection->deleteLater();
    }
    m_connections.clear();
}

void HydFtpFileFinder::initialize(bool all)
{
    dropConnections();
    m_doneCount = 0;
    m_collectTimer.stop();
    m_files.clear();
    m_allFiles = all;
}

void HydFtpFileFinder::findFilesInTimeRange(QList<QString>& addresses, QDateTime start, QDateTime end)
{
    m_doneCount = 0;
    m_dirs.clear();
    m_startTime = start;
    m_endTime = end;
    for (const QString& address : std::as_const(addresses))
        m_connections.append(new NvxFtp(address));
    for (NvxFtp* connection : std::as_const(m_connections)) {
        connect(connection, &QFtp::listInfo, this, &HydFtpFileFinder::handleListInfo);
        connect(connection, &QFtp::listInfoS, this, &HydFtpFileFinder::handleListInfoS);
        connect(connection, &QFtp::done, this, &HydFtpFileFinder::handleFileListDone);
        connection->setTimeRange(start, end, m_allFiles);
        connection->connectToRecorder();
        connection->list(QStringLiteral("Data"));
        connection->close();
    }
    m_collectTimer.setInterval(kSilenceMs);
    m_collectTimer.start();
}

void HydFtpFileFinder::handleListInfoS(QList<QUrlInfo> ilst)
{
    for (const QUrlInfo& info : std::as_const(ilst)) {
        if (info.isDir())
            m_dirs.append(info.name());
        else
            m_files.append(info);
    }
    m_collectTimer.start();
}

void HydFtpFileFinder::handleListInfo(QUrlInfo info)
{
    const QString name = info.name();
    const bool isRecording = name.endsWith(QLatin1String(".wav"), Qt::CaseInsensitive) ||
                             name.endsWith(QLatin1String(".txt"), Qt::CaseInsensitive);
    if (!isRecording) {
        if (!info.isDir())
            return;
        // Intended: such a directory goes on to the files too.
        m_dirs.append(name);
    }
    if (m_allFiles || (info.created() >= m_startTime && info.created() <= m_endTime))
        m_files.append(info);
    m_collectTimer.start();
}

void HydFtpFileFinder::handleFileListDone(bool error)
{
    ++m_doneCount;
    if (error)
        qDebug("List info error!!");
    if (m_doneCount == m_connections.size()) {
        m_collectTimer.stop();
        Q_EMIT filesFound(m_files);
    }
}

void HydFtpFileFinder::handleCollectTimeout()
{
    m_collectTimer.stop();
    const QPointer<HydFtpFileFinder> alive(this);
    if (!m_files.isEmpty())
        Q_EMIT filesFound(m_files);
    // Its slot may have deleted this.
    if (alive)
        Q_EMIT timeout();
}
