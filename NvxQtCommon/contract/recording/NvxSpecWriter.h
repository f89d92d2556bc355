#pragma once

#include "NvxQtCommon/contract/base/FiniteStateMachine.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"
#include "NvxQtCommon/contract/recording/RecordingFile.h"

#include <cstdint>
#include <string>

class NvxComSpectrumEventData;
class SpecStreamEvent;

/// Writes text files of the spectrum family, one record a line. The only way in is dispatch() of a
/// SpecStreamEvent, again and again until the event is consumed; after each dispatch isNewFile() tells of a
/// new file, after the last one errorCode() of a failure. Every record is with the operating system when its
/// dispatch ends. It lives on its owner's thread.
///
/// A header opens nothing: it is kept, and the first record opens the file, under the header's name and
/// start. The kind and the columns that the file states follow from the record. Where no header came since
/// the last file, name and start of the next one follow from its first record. A file ends, and the next
/// record begins another,
/// - by time: when a record lies in another whole multiple of the count of records times the update rate,
///   rounded to whole seconds; by count: after that many records;
/// - when rate, points, accumulations or mode of the header changed;
/// - when the record doesn't fit the columns: another kind, count of bins, or form of the values.
/// A file of mode FftModeNoise isn't ended by time or count. Where the header gives its name, it has exactly
/// that name and takes the place of an older one once it is complete; until then it is a file of that name
/// with
/// ".part" behind. A file that is gone when it is closed, with its directory, is logged and an error.
class NVXQTCOMMON_EXPORT NvxSpecWriter : public FiniteStateMachine
{
public:
    /// `maxNumRecs` records make a file, 0 and less for no limit; `path` is the target directory, which must
    /// exist.
    NvxSpecWriter(int maxNumRecs, std::wstring path);
    /// As closeFile().
    ~NvxSpecWriter() override;

    void setlogPath(std::wstring path) { m_directory = std::move(path); }
    void setMaxNumRecs(int count) { m_maxNumRecs = count; }
    int maxNumRecs() const { return m_maxNumRecs; }
    /// True: files end by time; false, the default: by count.
    void setTimeType(bool timeType) { m_timeType = timeType; }
    bool timeType() const { return m_timeType; }
    /// Seconds between records, 60 at first; 0 and less count as 1.
    void setUpdateRate(float seconds) { m_updateRate = seconds; }
    float updateRate() const { return m_updateRate; }
    /// The header of the next file, for the caller to fill in place. Never null; stays the writer's.
    NvxSpectrumFileHeader* currHeader() { return &m_header; }
    /// Records in the current file.
    int numRecs() const { return m_numRecs; }
    /// True directly after a dispatch that opened a file.
    bool isNewFile() const { return m_newFile; }
    /// Path of the current file, or of the last one, that it has or will have when it is complete.
    std::wstring outputFileName() const { return m_path; }
    /// Stays until finishFile(). With an error every event is taken and dropped.
    SpecWriteErr errorCode() const { return m_error; }
    /// Completes and closes the current file and clears the error; harmless without a file. A failure of the
    /// completion itself is logged.
    void finishFile();
    /// Completes and closes the file; an earlier error stays.
    void closeFile();

protected:
    int handleEvent(int state, StateEvent& event) override;

private:
    enum State : int {
        Idle = kFirstState,
        Recording,
    };

    bool endsBefore(const NvxComSpectrumEventData& record) const;
    uint64_t secondsPerFile() const;
    void open(const NvxComSpectrumEventData& record);
    void writeRecord(const NvxComSpectrumEventData& record);
    bool append(const std::string& text);
    void fail(RecordingFile::Failure failure);

    int m_maxNumRecs;
    std::wstring m_directory;
    bool m_timeType = false;
    float m_updateRate = 60.0F;
    NvxSpectrumFileHeader m_header;     ///< of the next file
    NvxSpectrumFileHeader m_fileHeader; ///< of the current file, as it was when the file was opened
    FFTMode m_fileKind = FftModeSpectrum;
    uint32_t m_columnLayout = 0;
    uint64_t m_firstTime = 0;  ///< of the current file's first record
    bool m_headerCame = false; ///< since the current file was opened
    bool m_replaces = false;   ///< the current file takes the place of an older one
    RecordingFile m_file;
    std::wstring m_path;
    std::string m_text; ///< the line in work, kept for its memory
    int m_numRecs = 0;
    bool m_newFile = false;
    SpecWriteErr m_error = SpecErrNone;
};
