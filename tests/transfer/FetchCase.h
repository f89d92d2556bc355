#pragma once

#include "NvxQtCommon/transfer/NvxFetchSession.h"
#include "tests/transfer/FtpCase.h"

#include <QPointer>

#include <algorithm>
#include <limits>

/// Name of a recording of this recorder, begun at this minute past five.
inline QString recording(int serial, int minute)
{
    return QStringLiteral("REC%1_20210304_05%2%3.wav")
        .arg(serial)
        .arg(minute, 2, 10, QLatin1Char('0'))
        .arg("00");
}

/// Bytes that differ with the seed.
inline QByteArray pattern(int size, int seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = static_cast<quint32>(seed);
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

/// A session that tries again at once, what it told, and the folder of a second server.
class FetchCase : public FtpCase
{
    Q_OBJECT

protected:
    using FtpCase::FtpCase;

private Q_SLOTS:
    void init() { makeSession(); }

protected:
    /// New folders, and a session that has told nothing yet.
    void makeSession()
    {
        m_session.reset();
        makeFolders();
        m_other = std::make_unique<QTemporaryDir>();
        m_results.clear();
        m_summaries.clear();
        m_hosts.clear();
        m_retries.clear();
        m_started = 0;
        m_session = std::make_unique<NvxFetchSession>();
        m_session->setDestDir(m_client->path());
        m_session->setRetryWait(std::chrono::milliseconds(1));
        m_session->setPassiveToPeer(true);
        NvxFetchSession* const session = m_session.get();
        connect(session, &NvxFetchSession::fileFinished, this,
                [this](const NvxFetchResult& result) { m_results << result; });
        connect(session, &NvxFetchSession::finished, this,
                [this](const NvxFetchSummary& summary) { m_summaries << summary; });
        connect(session, &NvxFetchSession::hostListed, this, [this](const QString& host, int count) {
            m_hosts << QStringLiteral("%1 has %2").arg(host).arg(count);
        });
        connect(session, &NvxFetchSession::hostFailed, this,
                [this](const QString& host, const QString& error) { m_hosts << host + ": " + error; });
        connect(session, &NvxFetchSession::fileRetried, this,
                [this](const QString&, const QString&, const QString& error) { m_retries << error; });
        connect(session, &NvxFetchSession::fileStarted, this, [this] { ++m_started; });
    }

    /// A file that a server has in "Data".
    static bool offer(const QString& folder, const QString& name, const QByteArray& bytes)
    {
        return QDir(folder).mkpath(QStringLiteral("Data")) && makeFile(folder + "/Data/" + name, bytes);
    }
    /// Options of a server that has this listing, whatever its folder holds.
    QStringList withListing(const QByteArray& listing)
    {
        const QString file = m_other->filePath(QStringLiteral("list"));
        return makeFile(file, listing) ? QStringList{QStringLiteral("--listing"), file} : QStringList();
    }
    /// A line of a listing.
    static QByteArray entry(const QByteArray& size, const QString& name)
    {
        return "-rw-r--r-- 1 ftp ftp " + size + " Mar 04 05:01 " + name.toUtf8() + "\r\n";
    }
    /// Fetches what was recorded from five to a minute to six.
    void run(const QStringList& hosts)
    {
        m_session->start(hosts, QDateTime(QDate(2021, 3, 4), QTime(5, 0), Qt::UTC),
                         QDateTime(QDate(2021, 3, 4), QTime(5, 59), Qt::UTC), false);
    }
    const NvxFetchResult* resultOf(const QString& name) const
    {
        const auto found =
            std::ranges::find_if(m_results, [&](const auto& result) { return result.name == name; });
        return found == m_results.cend() ? nullptr : &*found;
    }
    QStringList fetched() const { return QDir(m_client->path()).entryList(QDir::Files | QDir::Hidden); }

    std::unique_ptr<QTemporaryDir> m_other;
    std::unique_ptr<NvxFetchSession> m_session;
    QList<NvxFetchResult> m_results;
    QList<NvxFetchSummary> m_summaries;
    QStringList m_hosts;
    QStringList m_retries;
    int m_started = 0;
};
