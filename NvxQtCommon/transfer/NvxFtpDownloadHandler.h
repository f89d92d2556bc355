#pragma once

#include "NvxQtCommon/transfer/NvxFtpDownloadRequest.h"

#include <QFile>
#include <QObject>

#include <cstdint>
#include <memory>

/// Writes what one request brings into its local file. The queue makes and owns it when it starts the
/// request, which outlives it. It lives on the thread that created it.
///
/// The directory has to exist. A file that can't be opened or written gives one warning in the log and the
/// request's fileErrorString(), and nothing else: the request goes on and completes without an error.
class NVXQTCOMMON_EXPORT NvxFtpDownloadHandler : public QObject
{
    Q_OBJECT

public:
    /// With DownloadWork the local file is made anew, unless isBareFileName() refuses its name.
    explicit NvxFtpDownloadHandler(NvxFtpDownloadRequest* request, QObject* parent = nullptr);

    int32_t requestId() const { return m_request->requestId(); }
    NvxFtpDownloadRequest* request() const { return m_request; }
    bool isPaused() const { return m_isPaused; }
    bool isCancelled() const { return m_isCancelled; }

    void cancel();
    /// Ends the transfer and keeps the connection. The request reports the transfer as failed, then as
    /// complete with an error, which the handler passes over.
    void pause();
    /// Fetches the file again, from its first byte. Nobody is told how that ends but by ftp().done(). Before
    /// the pause's done(true) it is lost with the commands that an abort drops. It is fetched from the
    /// directory that the pause left the connection in, which is the login's where that came first. With
    /// RemoveWork too, by design: nothing is removed, and a file of more than 1 MiB, which nobody reads,
    /// holds the connection until cancel().
    void resume();

public Q_SLOTS:
    void readFtpData();
    void handleDownloadComplete(int32_t id, bool error);
    void handleRemoveComplete(int32_t id, bool error);

Q_SIGNALS:
    /// Never emitted.
    void fileError();

private:
    void openFile();
    void warnOnce(const char* what);
    void finish(const char* work, bool error);

    NvxFtpDownloadRequest* const m_request;
    std::unique_ptr<QFile> m_file;
    bool m_isPaused = false;
    bool m_isCancelled = false;
    bool m_hasWarned = false;
};
