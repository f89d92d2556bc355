#pragma once

#include "NvxQtCommon/contract/base/FiniteStateMachine.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"
#include "NvxQtCommon/contract/recording/RecordingFile.h"

#include <string>

class NvxComSpectrumEventData;
class SpecStreamEvent;

/// Writes text files of the spectrum family, one record a line. The only way in is dispatch() of a
/// SpecStreamEvent, again and again until the event is consumed; after each dispatch isNewFile() tells of a
/// new file, after the last one errorCode() of a failure. A header becomes that of the records that follow;
/// the first record opens the file. A file ends after a number of records. Every record is with the operating
/// system when its dispatch ends. It lives on its owner's thread.
class NVXQTCOMMON_EXPORT NvxSpecWriter : public FiniteStateMachine
{
public:
    /// `maxNumRecs` records make a file, 0 and less for no limit; `path` is the target directory, which must
    /// exist.
    NvxSpecWriter(int maxNumRecs, std::wstring path);
    ~NvxSpecWriter() override;

    void setlogPath(std::wstring path) { m_directory = std::move(path); }
    void setMaxNumRecs(int count) { m_maxNumRecs = count; }
    /// A flag that is kept for the caller.
    void setTimeType(bool timeType) { m_timeType = timeType; }
    bool timeType() const { return m_timeType; }
    /// Seconds between records.
    void setUpdateRate(float seconds) { m_updateRate = seconds; }
    float updateRate() const { return m_updateRate; }
    /// The header of the next file, for the caller to fill in place. Never null; stays the writer's.
    NvxSpectrumFileHeader* currHeader() { return &m_header; }
    /// Records in the current file.
    int numRecs() const { return m_numRecs; }
    /// True directly after a dispatch that opened a file.
    bool isNewFile() const { return m_newFile; }
    /// Path of the current file, or of the last one.
    std::wstring outputFileName() const { return m_file.path(); }
    /// Stays until finishFile(). With an error every event is taken and dropped.
    SpecWriteErr errorCode() const { return m_error; }
    /// Completes and closes the current file and clears the error; harmless without a file.
    void finishFile();
    /// Closes the file and leaves the error as it is.
    void closeFile();

protected:
    int handleEvent(int state, StateEvent& event) override;

private:
    enum State : int {
        Idle = kFirstState,
        Recording,
    };

    void open(const NvxComSpectrumEventData& record);
    void writeRecord(const NvxComSpectrumEventData& record);
    void append(const std::string& text);
    void fail(RecordingFile::Failure failure);

    int m_maxNumRecs;
    std::wstring m_directory;
    bool m_timeType = false;
    float m_updateRate = 0.0F;
    NvxSpectrumFileHeader m_header;
    RecordingFile m_file;
    int m_numRecs = 0;
    bool m_newFile = false;
    SpecWriteErr m_error = SpecErrNone;
};
