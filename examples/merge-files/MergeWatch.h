#pragma once

#include "NvxQtCommon/merge/NvxWavMerger.h"

#include <QElapsedTimer>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <atomic>
#include <cstdint>

/// Serial number of the recorder of a file, as its header tells it; 0 for a file without. Names hold four
/// digits of it.
uint16_t recorderOf(const QString& path);

/// Shows on the terminal what a merger does, and aborts it when `interrupted` becomes true. The merger
/// processes events between blocks, so a timer gets through.
class MergeWatch : public QObject
{
    Q_OBJECT

public:
    MergeWatch(NvxWavMerger& merger, const std::atomic<bool>& interrupted);

    bool isAborted() const { return m_isAborted; }
    bool isFailed() const { return m_isFailed; }
    /// Output files that were begun.
    int fileCount() const { return m_fileCount; }

private:
    void showStatus(const QString& status);
    void look();
    void showProgress();
    qint64 outputBytes() const;

    NvxWavMerger& m_merger;
    const std::atomic<bool>& m_interrupted;
    QTimer m_timer;
    QElapsedTimer m_sinceShown;
    qint64 m_bytesBefore = 0;   ///< in the output directory ahead of the merge
    qint64 m_bytesExpected = 0; ///< what the merge will add
    int m_fileCount = 0;
    bool m_isAborted = false;
    bool m_isFailed = false;
};
