#pragma once

#include <QMetaType>
#include <QString>
#include <QStringList>

/// What became of one file of a NvxFetchSession.
struct NvxFetchResult
{
    enum Outcome : int { Fetched, Failed, Cancelled };

    /// IPv4 address of the recorder, as dotted text.
    QString host;
    /// The server's name of the file, which may be anything.
    QString name;
    /// Where the file is, if it was fetched.
    QString localPath;
    /// Bytes that the listing promised.
    qint64 size = 0;
    Outcome outcome = Failed;
    /// Tries that were made for it, without those that a pause ended; 0 for a file that was refused before.
    int attempts = 0;
    /// A sentence that says why it failed; empty otherwise.
    QString error;
};

/// What became of a whole NvxFetchSession.
struct NvxFetchSummary
{
    int fetched = 0;
    int failed = 0;
    int cancelled = 0;
    /// Of the fetched files.
    qint64 bytes = 0;
    /// Each recorder that wasn't listed, with the reason: "10.0.0.5: Cancelled".
    QStringList failedHosts;

    int files() const { return fetched + failed + cancelled; }
    bool isWhole() const { return failed == 0 && cancelled == 0 && failedHosts.isEmpty(); }
};

Q_DECLARE_METATYPE(NvxFetchResult)
Q_DECLARE_METATYPE(NvxFetchSummary)
