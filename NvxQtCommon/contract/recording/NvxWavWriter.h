#pragma once

#include "NvxQtCommon/contract/base/FiniteStateMachine.h"
#include "NvxQtCommon/contract/recording/NvxWavHeader.h"
#include "NvxQtCommon/contract/recording/NvxWavSetupData.h"
#include "NvxQtCommon/contract/recording/RecordingEnums.h"
#include "NvxQtCommon/contract/recording/RecordingFile.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class NvxWavDataChunk;
class WavStreamEvent;

/// Writes wave files. The only way in is dispatch() of a WavStreamEvent, again and again until the event is
/// consumed; after each dispatch isNewFile() tells of a new file, after the last one errorCode() of a
/// failure. Order of events: info, setup, then data; further pairs of info and setup as the stream goes on.
/// It lives on its owner's thread.
///
/// A setup opens a file. A file ends at the next whole multiple of the maximum length in event time, ahead of
/// 4 GiB, and when an info or a setup tells of another format or of lost samples; the writer then goes on in
/// a new file. After an info it waits with that for the setup, or for a block of samples. Small blocks are
/// gathered, at most 64 KiB; at the first dispatch after a second of audio or of wall time all is handed to
/// the operating system and the sizes in the header are renewed, so that a killed program leaves a readable
/// file. An event of any other content is taken and ends no file, whatever its time.
class NVXQTCOMMON_EXPORT NvxWavWriter : public FiniteStateMachine
{
public:
    /// Writes into the working directory, files of any length, until told otherwise.
    NvxWavWriter() = default;
    /// `maxLength` in seconds, 0 for no limit; `path` is the target directory, which must exist.
    NvxWavWriter(unsigned int maxLength, std::wstring path);
    /// Completes an open file.
    ~NvxWavWriter() override;

    void setPath(const std::wstring& path) { m_directory = path; }
    /// Seconds; 0 and less for no limit.
    void setMaxLength(int seconds) { m_maxLength = seconds > 0 ? static_cast<uint32_t>(seconds) : 0; }
    /// Byte order of the next file. Blocks of the other order are swapped.
    void setBigEndian(bool big) { m_bigEndian = big; }
    /// True makes the writer take and drop all events in silence; false lets it record again from the next
    /// info and setup on.
    void setStopLogging(bool stop) { m_stopped = stop; }
    /// Completes and closes the current file; harmless without one. After setStopLogging(true) it also clears
    /// the error. A failure here is logged and kept in errorCode().
    void finishFile();
    /// Whole seconds of audio in the current file, 0 without one.
    unsigned int length() const;
    /// True directly after a dispatch that opened a file.
    bool isNewFile() const { return m_newFile; }
    /// Path of the current file, or of the last one.
    std::wstring outputFileName() const { return m_file.path(); }
    /// Stays until finishFile() after setStopLogging(true). With an error every event is taken and dropped.
    WavWriteErr errorCode() const { return m_error; }
    /// One sentence for people, UTF-8; empty for no error.
    static std::string errorStr(const WavWriteErr& error);

    /// Largest size of a file in bytes; what it is without this is the most that a wave file can hold.
    void setMaxFileBytes(uint64_t bytes) { m_maxFileBytes = bytes; }
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    /// What tells the wall time by which the sizes in the header are renewed; must not be empty.
    void setClock(Clock clock) { m_clock = std::move(clock); }

protected:
    int handleEvent(int state, StateEvent& event) override;

private:
    enum State : int {
        Idle = kFirstState,
        Recording,
        Reopening, ///< an event has ended the file; a setup or a block opens the next one
    };

    int currentState() const;
    void handleInfo(int state, const NvxWavInfoData& info, const WavStreamEvent& event);
    void handleSetup(int state, const NvxWavSetupData& setup, const WavStreamEvent& event);
    void handleData(int state, const NvxWavDataChunk& chunk, const WavStreamEvent& event);
    void keepInfo(const NvxWavInfoData& info, const WavStreamEvent& event, bool mayClose);
    void dropData();
    void writeBlock(const NvxWavDataChunk& chunk);

    void open(uint32_t eventTime);
    std::vector<uint8_t> headerBytes() const;
    void openNext();
    void endForReopening(const WavStreamEvent& event, uint64_t startSample);
    void setReopening(const WavStreamEvent& event, uint64_t startSample);
    void completeFile();
    void countSamples();
    void refreshSizes();
    RecordingFile::Failure writeSizes(bool padded);
    void fail(WavWriteErr error);

    uint64_t dataBytes() const { return m_samples * m_fmt.blockAlign(); }
    bool needsPadding() const { return dataBytes() % 2 != 0; }
    uint64_t nextSample() const { return m_fileStart + m_samples; }
    uint32_t timeByAudio() const;
    bool isInOtherSpan(const WavStreamEvent& event) const;
    bool isOtherFormat(const NvxWavSetupData& setup) const;

    uint32_t m_maxLength = 0;
    std::wstring m_directory = L".";
    bool m_bigEndian = false;
    bool m_stopped = false;
    bool m_newFile = false;
    bool m_warnedOfDroppedData = false;
    WavWriteErr m_error = WavErrNone;
    uint64_t m_maxFileBytes = 0xFFFFFFFEULL;

    // The latest info and setup; a file is opened from them.
    std::shared_ptr<NvxWavInfoData> m_info;
    std::shared_ptr<NvxWavSetupData> m_setup;
    uint32_t m_headerTime = 0;     ///< event time of the latest info that had a key
    uint64_t m_headerStart = 0;    ///< its start sample
    bool m_headerMayClose = false; ///< what holds for the latest info and for the setup that belongs to it

    // A file has ended, and the next one waits for its setup or its first block.
    bool m_reopening = false;
    uint32_t m_nextEventTime = 0; ///< time of the event that it begins with
    uint64_t m_nextStart = 0;     ///< its first sample

    // The current file.
    RecordingFile m_file;
    NvxWavFmtData m_fmt;
    bool m_fileBigEndian = false;
    short m_fileGain = 0;
    uint32_t m_fileTime = 0;      ///< time stamp of the file
    uint64_t m_fileStart = 0;     ///< its first sample
    uint32_t m_openEventTime = 0; ///< time of the event that opened it, 0 for one without a key
    size_t m_headerSize = 0;
    uint64_t m_samples = 0; ///< written, per channel
    bool m_sizesWritten = false;
    uint64_t m_samplesInHeader = 0;
    std::chrono::steady_clock::time_point m_sizesTime;
    Clock m_clock = std::chrono::steady_clock::now;
    std::vector<uint8_t> m_swapped;
};
