#pragma once

#include "NvxQtCommon/transfer/NvxFtp.h"
#include "NvxQtCommon/transfer/QUrlInfo.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

/// Asks recorders which recordings they hold in a time range: lists the directory "Data" of each at the same
/// time, and waits for all of them, or for 30 s of silence. The application owns it and calls initialize()
/// before each search. It lives on the thread that created it.
///
/// An entry doesn't say whose it is; a finder for each recorder does.
class NVXQTCOMMON_EXPORT HydFtpFileFinder : public QObject
{
    Q_OBJECT

public:
    /// Milliseconds of silence after which a search ends.
    static constexpr int kSilenceMs = 30000;

    explicit HydFtpFileFinder(QObject* parent = nullptr);
    /// Connections end with it.
    ~HydFtpFileFinder() override;

    /// Drops connections and files of the search before. With `all` the next one takes recordings of any
    /// time.
    void initialize(bool all);
    /// IPv4 addresses as dotted texts; the range is inclusive. Each recorder's end counts as its answer, also
    /// if it failed.
    void findFilesInTimeRange(QList<QString>& addresses, QDateTime start, QDateTime end);

    const QList<QUrlInfo>& files() const { return m_files; }
    /// Names of the directories that the listings held.
    const QList<QString>& dirs() const { return m_dirs; }
    /// Those of the search, for their settings; they stay the finder's.
    const QList<NvxFtp*>& connections() const { return m_connections; }
    QTimer* collectTimer() { return &m_collectTimer; }

public Q_SLOTS:
    void handleListInfo(QUrlInfo info);
    void handleListInfoS(QList<QUrlInfo> ilst);
    void handleFileListDone(bool error);
    void handleCollectTimeout();

Q_SIGNALS:
    /// All have answered, or the time is over and there are files. The list is the finder's own and good
    /// until the next search. An answer behind the end of the time can emit it once more.
    void filesFound(QList<QUrlInfo>& files);
    /// The silence lasted too long; behind filesFound(), where there are files.
    void timeout();

private:
    void dropConnections();

    QList<QUrlInfo> m_files;
    int m_doneCount = 0;
    QTimer m_collectTimer;
    QDateTime m_startTime;
    QDateTime m_endTime;
    QList<NvxFtp*> m_connections;
    QList<QString> m_dirs;
    bool m_allFiles = false;
};
