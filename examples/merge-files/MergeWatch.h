#pragma once

#include "NvxQtCommon/merge/NvxWavMerger.h"

#include <QObject>
#include <QStringList>
#include <QTimer>

#include <cstdint>
#include <optional>

/// Serial number of the recorder of a file, as its header tells it; none for a file that isn't one of a
/// single recorder with one channel. Names hold four digits of it.
std::optional<uint16_t> recorderOf(const QString& path);

/// Whether the file is one of a recorder that the merger has a channel for.
bool hasChannel(const NvxWavMerger& merger, const QString& path);

/// Shows on the terminal what a merger does. The merger processes events between blocks, so a timer gets
/// through.
class MergeWatch : public QObject
{
    Q_OBJECT

public:
    explicit MergeWatch(NvxWavMerger& merger);

    bool isAborted() const { return m_isAborted; }
    bool isFailed() const { return m_isFailed; }
    /// Output files that were begun.
    int fileCount() const { return m_fileCount; }

private:
    void showStatus(const QString& status);
    void showProgress();
    qint64 outputBytes() const;

    NvxWavMerger& m_merger;
    QTimer m_timer;
    qint64 m_bytesBefore = 0;   ///< in the output directory ahead of the merge
    qint64 m_bytesExpected = 0; ///< what the merge will add
    int m_fileCount = 0;
    bool m_isAborted = false;
    bool m_isFailed = false;
};
