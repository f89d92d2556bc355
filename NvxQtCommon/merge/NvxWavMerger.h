#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/recording/NvxWavWriter.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QTextStream>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

class NvxWavInfoDataTMI;
class QFile;
class WavMergeInput;

/// Merges the single-channel wave files of several recorders into multi-channel files: one output file for
/// each minute at which input files begin. The application says which recorder is which channel, names a time
/// range and the length of the files, adds the files and calls startMerge(), which returns when all is done.
/// An object serves one merge; it belongs to the application and lives on its thread, whose events are
/// processed between blocks of 4096 samples. A slot may abort the merge or delete the merger meanwhile.
/// Headers are read as NvxWAVFile reads them, which may halve the FFT length of FFT_Params_WAV for the
/// process.
///
/// Input files are those of single recorders, with one channel. A file whose record is that of an array, or
/// whose format has several channels, is left out with the log line of an unsupported device, as is one whose
/// header can't be prepared. A file of one channel without any record of ours is one of recorder 0: it is
/// merged only where the application puts serial number 0 on a channel.
///
/// Names of input files are fields with "_" between them: the first ends with the recorder's serial number,
/// the second is the date as yyyyMMdd, the third the time as hhmmss, in UTC.
class NVXQTCOMMON_EXPORT NvxWavMerger : public QObject
{
    Q_OBJECT

public:
    NvxWavMerger();
    ~NvxWavMerger() override;

    /// Channels count from 1; files of a recorder on channel 0 are not merged.
    void setChannelDevice(uint8_t channel, uint16_t serial) { m_channelMap[channel] = serial; }
    /// Forgets all channels; the first serial number goes to channel 1 and so on. Those behind the 255th are
    /// dropped.
    void setChannels(const QList<uint16_t>& serials);
    /// The serial numbers in the order of their channels.
    QList<uint16_t> getChannels() const { return m_channelMap.values(); }
    /// The first channel of this recorder, or 0.
    uint8_t deviceChannel(uint16_t serial) const { return m_channelMap.key(serial, 0); }

    void addFile(const QString& name) { m_fileNames.append(name); }
    QList<QString> fileList() const { return m_fileNames; }
    int numFiles() const { return static_cast<int>(m_fileNames.size()); }
    /// Lets go of the first opened file whose name, as it was added, is the absolute path of `name`. The list
    /// of names stays, and so does what is planned already.
    void removeFile(const QString& name);

    /// Minutes, of the input and the output files.
    int fileLength() const { return m_fileLength; }
    void setFileLength(int minutes) { m_fileLength = minutes; }
    /// Start of the time range, inclusive. Until both ends are set, every file is out of the range. What the
    /// plan holds keeps its time when the start is changed afterwards.
    QDateTime startTime() const { return m_mergeStart; }
    void setStartTime(const QDateTime& time) { m_mergeStart = time; }
    /// End of the time range, inclusive. It is compared with the times at which files begin.
    QDateTime endTime() const { return m_mergeEnd; }
    void setEndTime(const QDateTime& time) { m_mergeEnd = time; }
    /// Directory of the output files and of the log, which must exist. Empty, as it is at first, it stands
    /// for the working directory, but for the log for the root of the file system.
    QString outputDir() const { return m_outputDir; }
    void setOutputDir(const QString& path) { m_outputDir = path; }

    /// Largest size of an output file in bytes; what doesn't fit goes into a further file. What it is without
    /// this is the most that a wave file can hold.
    void setMaxFileBytes(uint64_t bytes) { m_writer.setMaxFileBytes(bytes); }

    /// Serial number out of a file name: the last four characters of its first field as a decimal number, or
    /// 0.
    static int serialFromFname(const QString& name);
    /// Time out of a file name without its ending, UTC; invalid where the name has none.
    static QDateTime datetimeFromFname(const QString& name);

    /// Merges all files and returns when that is done, aborted or failed. Ignored, with a line in the log,
    /// while a merge runs.
    void startMerge();
    /// Input files that went into output files, short ones of an aborted merge among them. The others were
    /// left out; the log says why.
    int numMerged() const { return m_numMerged; }
    /// Ends the merge ahead of its next block. The file in work is completed and stays. Any thread.
    void abortMerge() { m_abort = true; }

    /// Puts a line with the local time into the merge log; lost where the log couldn't be made. On a full
    /// disk up to 16 KiB of lines wait for room, and what comes on top is lost.
    void log(const QString& message);
    /// Describes the plan in the log.
    void logMergePlan();
    /// Emits mergeFailed() with the writer's error.
    void handleWriteError();

Q_SIGNALS:
    /// All output files are complete; also when there was nothing to merge.
    void mergeComplete();
    void mergeAborted();
    /// What is being done, for people.
    void mergeStatusMsg(QString status);
    /// No files, or an output file can't be written; in the latter case nothing follows.
    void mergeFailed(QString reason);
    /// Part of the interface; never emitted here.
    void mergeProgress(uint8_t percent);

private:
    static constexpr int64_t kSecondsPerMinute = 60;

    using InputPtr = std::shared_ptr<WavMergeInput>;
    using Entry = std::map<uint8_t, std::vector<InputPtr>>;

    void initLog();
    void flushLog();
    void buildMergePlan();
    bool openFiles();
    void planFile(const InputPtr& file);
    void runMergePlan();
    // These are false when the merge has failed or a slot has deleted the merger: return at once.
    bool mergeEntry(int64_t minute, const Entry& entry);
    bool mergeBlocks(const std::vector<InputPtr>& inputs, NvxWavInfoDataTMI& record,
                     const NvxWavSetupData& setup);
    bool write(NvxWavEventData& data, NvxWavInfoDataTMI& record);
    void noteNewFile(NvxWavInfoDataTMI& record);
    QString timeText(int64_t minute) const;

    std::map<int64_t, Entry> m_mergePlan; ///< by minutes from m_planStart
    QDateTime m_planStart;                ///< start of the range when the plan was made
    int m_numMerged = 0;
    QList<QString> m_fileNames;
    std::vector<InputPtr> m_wavFiles;
    QMap<uint8_t, uint16_t> m_channelMap;
    NvxWavWriter m_writer;
    int32_t m_fileLength = 0;
    QString m_outputDir;
    std::unique_ptr<QFile> m_logFile;
    QTextStream m_logStream;
    QDateTime m_mergeStart;
    QDateTime m_mergeEnd;
    std::atomic<bool> m_abort = false;
    bool m_isRunning = false;
    bool m_hasOutput = false; ///< the entry in work has a file
};
