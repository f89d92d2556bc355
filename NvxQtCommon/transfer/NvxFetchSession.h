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
/// it; it lives on the thread that created it. It serves one search; make a new one for the next. From a slot
/// of its signals it is deleted by deleteLater(); deleted ahead of finished() it leaves the ".part" files of
/// what was under way.
///
/// A file arrives under its name with ".part" behind it and gets its own name when it is whole: as long as
/// the listing said. An older file of that name is replaced. Each file of the listings ends in one
/// fileFinished(), and all in one finished(). What the local disk refuses fails at once, all else is tried
/// again; a whole file that can't get its name stays under that with ".part".
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
    /// A server that has brought all that was asked for has this long to take leave, or the inactivity limit
    /// where that is shorter.
    static constexpr std::chrono::milliseconds kGoodbyeLimit{5000};

    explicit NvxFetchSession(QObject* parent = nullptr);
    ~NvxFetchSession() override;

    // To be set ahead of start().

    /// The folder has to exist; defaultOutputFolder() until set.
    void setDestDir(const QString& directory) { m_queue.setDestDir(directory); }
    /// At least 1; 3 until set.
    void setMaxDownloads(int count);
    /// How often each listing and each file is tried, at least once; 3 times until set.
    void setMaxAttempts(int count);
    /// The wait ahead of the second try; kFirstRetryWait until set.
    void setRetryWait(std::chrono::milliseconds wait);
    /// How long to wait behind the n-th try, from 1 on, where the first wait is `first`.
    static std::chrono::milliseconds waitAfter(std::chrono::milliseconds first, int attempts);
    /// A connection without a byte for that long fails; 0 is never.
    void setInactivityLimit(std::chrono::milliseconds limit);
    /// Whether data connections go to the recorder's own address, whatever address it names. Off until set.
    void setPassiveToPeer(bool isOn) { m_isPassiveToPeer = isOn; }

    /// IPv4 addresses as dotted texts; the range is inclusive, `all` takes recordings of any time. A second
    /// call, or one behind cancel(), does nothing.
    void start(const QStringList& hosts, const QDateTime& begin, const QDateTime& end, bool all);

    bool isPaused() const { return m_isPaused; }
    /// Bytes that have come of all files, and those that the listings promised, without refused names.
    qint64 bytesDone() const { return m_bytesDone; }
    qint64 bytesInAll() const { return m_bytesInAll; }

public Q_SLOTS:
    /// Stops transfers and starts no others. Listings go on.
    void pause();
    /// Fetches what was stopped again from its first byte, and goes on. What a pause has cost is no try.
    void resume();
    /// Ends all: files that aren't whole yet are cancelled, recorders that aren't listed yet fail. finished()
    /// comes from the event loop.
    void cancel();

Q_SIGNALS:
    /// A recorder's listing, with the number of its files.
    void hostListed(const QString& host, int count);
    /// A try to list a recorder has failed, and there will be another one in `waitMs` milliseconds.
    void hostRetried(const QString& host, const QString& error, int waitMs);
    /// A recorder can't be listed; it was the last try.
    void hostFailed(const QString& host, const QString& error);
    /// A try begins.
    void fileStarted(const QString& host, const QString& name, qint64 size);
    /// `size` is what the listing promised.
    void fileProgress(const QString& host, const QString& name, qint64 done, qint64 size);
    /// A try has failed, and there will be another one in `waitMs` milliseconds.
    void fileRetried(const QString& host, const QString& name, const QString& error, int waitMs);
    void fileFinished(const NvxFetchResult& result);
    /// Nothing is left. The last signal.
    void finished(const NvxFetchSummary& summary);

private:
    struct Host;
    struct Job;
    struct Attempt;

    std::shared_ptr<Attempt> follow(NvxFtp& ftp, QFtp::Command work);
    void listHost(Host& host);
    void handleListed(Host& host, const QString& error);
    void failHost(Host& host, const QString& error);
    void addFile(const QString& host, const QUrlInfo& info);
    void enqueue(Job& job);
    void handleProgress(Job& job, qint64 done);
    void handleAttemptEnd(Job& job);
    /// Gives a file its name if it is whole.
    void takeFile(Job& job);
    void retryOrFail(Job& job, const QString& error);
    void finish(Job& job, NvxFetchResult::Outcome outcome, const QString& error = {});
    void release(Job& job);
    void setBytesDone(Job& job, qint64 bytes);
    void scheduleRefill();
    void refill();
    void startQueued();
    QString partName(const Job& job) const;
    QString pathOf(const QString& name) const;

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
    bool m_isStarted = false;
    bool m_isPassiveToPeer = false;
    bool m_isPaused = false;
    bool m_isCancelled = false;
    bool m_isFinished = false;
    bool m_isRefillScheduled = false;
};
