#pragma once

#include "MergeFiles.h"

#include <QFile>
#include <QMetaObject>
#include <QObject>

#include <csignal>
#include <functional>
#include <sys/resource.h>

// What the tests of merges have in common.

/// Samples of a block of a merge.
constexpr qint64 kBlock = 4096;
/// The output of inputs with the standard stamp.
inline const QString kOutput = QStringLiteral("MERGED_20240229_124000.wav");

// Lines of the log.
inline const QString kStarted =
    QStringLiteral("------------------ Started building merge plan. ------------------");
inline const QString kDetails =
    QStringLiteral("-------------------- MERGE PLAN DETAILS --------------------");
inline const QString kSummary = QStringLiteral("\t-- Merge Map Summary: --");

/// What follows on the reason of a failure.
inline const QString kAdvice =
    QStringLiteral("\nPlease ensure that there is space on the disk and that you have permission to write to "
                   "the destination directory.");

/// A time of the day of all inputs.
inline QDateTime utc(int hour, int minute, int second = 0)
{
    return QDateTime({2024, 2, 29}, {hour, minute, second}, Qt::UTC);
}

/// A rig for two recorders: 7 is channel 1, 9 is channel 2.
class TwoChannels : public MergeRig
{
public:
    explicit TwoChannels(std::unique_ptr<NvxWavMerger> own = std::make_unique<NvxWavMerger>())
        : MergeRig(std::move(own))
    {
        merger->setChannels({7, 9});
    }

    /// Calls `step` once, between plan and merge.
    void beforeMerging(const std::function<void()>& step)
    {
        QObject::connect(merger.get(), &NvxWavMerger::mergeStatusMsg, merger.get(),
                         [step](const QString& status) {
                             if (status == QLatin1String("Starting Merge."))
                                 step();
                         });
    }
};

/// Both recorders have a file.
class TwoFiles : public TwoChannels
{
public:
    explicit TwoFiles(const MergeFile& like = {},
                      std::unique_ptr<NvxWavMerger> own = std::make_unique<NvxWavMerger>())
        : TwoChannels(std::move(own))
    {
        first = second = like;
        first.serial = 7;
        second.serial = 9;
        firstPath = add(first);
        secondPath = add(second);
    }
    QByteArray merged() const { return dataOfWav(outputPath(kOutput)); }

    MergeFile first;
    MergeFile second;
    QString firstPath;
    QString secondPath;
};

/// Files of ten samples, which a merge of length 0 takes.
inline MergeFile tinyFile()
{
    MergeFile file;
    file.seconds = 0;
    file.moreFrames = 10;
    return file;
}

/// Calls `step` again and again for as long as events are processed: once for each block of a merge.
inline void keepCalling(QObject* context, const std::function<void()>& step)
{
    QMetaObject::invokeMethod(
        context,
        [context, step] {
            step();
            keepCalling(context, step);
        },
        Qt::QueuedConnection);
}

/// No file of this process may grow beyond `bytes` while this lives: a disk that is full at any byte we like.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        // Or the process would be ended instead of the write.
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_before{};
};
