#pragma once

#include "NvxQtCommon/transfer/NvxFtp.h"

#include <QObject>
#include <QString>

#include <cstdint>

/// One remote file to fetch or to delete, with a connection of its own. The application makes and owns it,
/// gives it its regime and puts it into a queue, which starts it. It lives on the thread that created it, and
/// is deleted by deleteLater() from slots of its own signals.
///
/// It ends in complete(), but for a connection, a login or a remote directory that is refused: those show in
/// ftp().done(true) alone. A local name that isBareFileName() refuses ends the download with failed() and
/// complete(id, true), from the event loop, and nothing is sent or written.
class NVXQTCOMMON_EXPORT NvxFtpDownloadRequest : public QObject
{
    Q_OBJECT

public:
    enum WorkRegime : int { NoWork = 0, DownloadWork = 1, RemoveWork = 2 };
    Q_ENUM(WorkRegime)

    /// An empty local name is the remote one. `size` in bytes; each progress report's total replaces it. The
    /// date is kept for the caller.
    NvxFtpDownloadRequest(const NvxNetHostInfo& host, const QString& remoteName, const QString& remoteDir,
                          const QString& localDir, const QString& localName, const QString& remoteDate,
                          qint64 size, QObject* parent = nullptr);

    /// A new id for each call in this process, from 1 on. From any thread.
    static int32_t getNextId();

    int32_t requestId() const { return m_requestId; }
    NvxFtp& ftp() { return m_ftp; }
    const NvxFtp& ftp() const { return m_ftp; }
    const QString& remoteDir() const { return m_remoteDir; }
    const QString& remoteName() const { return m_remoteName; }
    const QString& remoteDate() const { return m_remoteDate; }
    const QString& localDir() const { return m_localDir; }
    const QString& localName() const { return m_localName; }
    /// Local directory and name, with the platform's separator between.
    QString localPath() const;
    qint64 fileSize() const { return m_fileSize; }
    qint64 bytesDone() const { return m_bytesDone; }
    /// Whole percent, cut off; 0 for a size of 0.
    int percentDownloaded() const;
    WorkRegime workRegime() const { return m_workRegime; }
    void setWorkRegime(WorkRegime regime) { m_workRegime = regime; }
    /// Position in the queue, -1 in none.
    int queueInd() const { return m_queueInd; }
    void setQueueInd(int index) { m_queueInd = index; }
    /// Replaces the local directory, as the queue does when it starts the request.
    void setDestDir(const QString& directory) { m_localDir = directory; }
    /// Why the local file couldn't be opened or written, as the handler found; empty where it could.
    const QString& fileErrorString() const { return m_fileErrorString; }
    void setFileErrorString(const QString& text) { m_fileErrorString = text; }

    /// Connects, logs in as anonymous, goes to the directory, fetches the file, and closes. The data come by
    /// readyRead() and wait in ftp().
    void startDownload();
    /// The same, but deletes the remote file.
    void startRemove();
    /// Ends what is under way and emits complete(id, false), started or not.
    void cancel();

    friend bool operator==(const NvxFtpDownloadRequest& a, const NvxFtpDownloadRequest& b)
    {
        return a.m_requestId == b.m_requestId;
    }

Q_SIGNALS:
    void progress(int32_t id, int64_t done, int64_t total);
    void complete(int32_t id, bool error);
    /// A QFtp::State.
    void newState(int32_t id, int state);
    /// Ahead of complete(id, true).
    void failed(int32_t id, QString errStr);
    void readyRead();

private Q_SLOTS:
    /// Connected to nothing: the end of a request is that of its command.
    void handleDone(bool error);
    void handleCommandFinished(int cmdId, bool error);
    void handleDownloadProgress(int64_t done, int64_t total);
    void handleStateChange(int state);

private:
    void refuseLocalName();

    const int32_t m_requestId = getNextId();
    NvxFtp m_ftp;
    QString m_remoteDir;
    QString m_remoteName;
    QString m_localName;
    QString m_localDir;
    QString m_remoteDate;
    QString m_fileErrorString;
    qint64 m_fileSize;
    qint64 m_bytesDone = 0;
    uint32_t m_commandId = 0;
    int m_queueInd = -1;
    WorkRegime m_workRegime = NoWork;
    bool m_isRefusing = false;
};
