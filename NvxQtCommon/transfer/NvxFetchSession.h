#pragma once

#include "NvxQtCommon/transfer/HydFtpFileFinder.h"
#include "NvxQtCommon/transfer/NvxFetchRecords.h"
#include "NvxQtCommon/transfer/NvxFtpDownloadQueue.h"

#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <chrono>
#include <deque>
#include <memory>
#include <vector>

/// Fetches the recordings of a time range from several recorders into one folder, and says of each file what
/// became of it. It deals with all that HydFtpFileFinder and NvxFtpDownloadQueue leave to their caller: whose
/// a file is, free slots, ends that a request doesn't tell, sizes, second tries, pauses. The application owns
/// it; it lives on the thread that created it. It serves one search; make a new one for the next.
///
/// A file arrives under its name with ".part" behind it and gets its own name when it is whole: as long as
/// the listing said. An older file of that name is replaced. Each file of the listings ends in one
/// fileFinished(), and all in one finished().
class NVXQTCOMMON_EXPORT NvxFetchSession : public QObject
{
    Q_OBJECT

public:
    /// Stands behind the names of files that aren't whole.
    static constexpr const char* kPartSuffix = ".part";
    static constexpr std::chrono::milliseconds kInactivityLimit{60000};
    static constexpr std::chrono::milliseconds kFirstRetryWait{1000};
    /// Waits double with each try up to here.
    static constexpr std::chrono::milliseconds kLongestRetryWait{60000};

    explicit NvxFetchSession(QObject* parent = nullptr);
    ~NvxFetchSession() override;

    // To be set ahead of start().

    /// The folder has to exist; defaultOutputFolder() until set.
    void setDestDir(const QString& directory) { m_queue.setDestDir(directory); }
    /// At least 1; 3 until set.
    void setMaxDownloads(int count);
    /// How often each listing and each file is tried, at least once; 3 times until set.
    void setMaxAttempts(int count);
    /// The wait ahead of the second try.
    void setRetryWait(std::chrono::milliseconds wait);
    /// A connection without a byte for that long fails; 0 is never.
    void setInactivityLimit(std::chrono::milliseconds limit);
    /// Whether data connections go to the recorder's own address, whatever address it names. Off until set.
    void setPassiveToPeer(bool isOn) { m_isPassiveToPeer = isOn; }

    /// IPv4 addresses as dotted texts; the range is inclusive, `all` takes recordings of any time. Once.
    void start(const QStringList& hosts, const QDateTime& begin, const QDateTime& end, bool all);

    bool isPaused() const { return m_isPaused; }
    /// Bytes that have come of all files, and those that the listings promised.
    qint64 bytesDone() const { return m_bytesDone; }
    qint64 bytesInAll() const { return m_bytesInAll; }

public Q_SLOTS:
    /// Stops transfers and starts no others. Listings go on.
    void pause();
    /// Fetches what was stopped again from its first byte, and goes on.
    void resume();
    /// Ends all: files that aren't whole yet are cancelled. finished() comes from the event loop.
    void cancel();

Q_SIGNALS:
    /// A recorder's listing, with the number of its files.
    void hostListed(const QString& host, int count);
    /// A recorder can't be listed; it was the last try.
    void hostFailed(const QString& host, const QString& error);
    void fileStarted(const QString& host, const QString& name, qint64 size);
    /// `size` is what the listing promised.
    void fileProgress(const QString& host, const QString& name, qint64 done, qint64 size);
    /// A try has failed, and there will be another one.
    void fileRetried(const QString& host, const QString& name, const QString& error);
    void fileFinished(const NvxFetchResult& result);
    /// Nothing is left. The last signal.
    void finished(const NvxFetchSummary& summary);

private:
    struct Host;
    struct Job;

    void listHost(Host& host);
    void handleListed(Host& host, const QString& error);
    void addFile(const QString& host, const QUrlInfo& info);
    void enqueue(Job& job);
    void handleAttemptEnd(Job& job, bool error);
    /// Gives a file its name if it is whole; else the reason why not.
    QString takeFile(const Job& job) const;
    void retryOrFail(Job& job, const QString& error);
    void finish(Job& job, NvxFetchResult::Outcome outcome, const QString& error = {});
    void release(Job& job);
    void setBytesDone(Job& job, qint64 bytes);
    void scheduleRefill();
    void refill();
    QString partName(const Job& job) const;
    QString pathOf(const QString& name) const;
    std::chrono::milliseconds waitAfter(int attempts) const;

    NvxFtpDownloadQueue m_queue;
    std::vector<std::unique_ptr<Host>> m_hosts;
    std::vector<std::unique_ptr<Job>> m_jobs;
    std::deque<Job*> m_ready;
    QList<Job*> m_active; // that have a request
    QSet<QString> m_names;
    NvxFetchSummary m_summary;
    QDateTime m_begin;
    QDateTime m_end;
    std::chrono::milliseconds m_retryWait = kFirstRetryWait;
    std::chrono::milliseconds m_inactivityLimit = kInactivityLimit;
    qint64 m_bytesDone = 0;
    qint64 m_bytesInAll = 0;
    qsizetype m_openHosts = 0;
    qsizetype m_openJobs = 0;
    int m_maxAttempts = 3;
    bool m_isAll = false;
    bool m_isPassiveToPeer = false;
    bool m_isPaused = false;
    bool m_isCancelled = false;
    bool m_isFinished = false;
    bool m_isRefillScheduled = false;
};
