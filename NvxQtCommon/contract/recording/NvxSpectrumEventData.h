#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/recording/RecordingEnums.h"

#include <cstdint>
#include <string>

class NvxSpectrumFileHeader;

/// Base of everything that a SpecStreamEvent can carry. Made by the caller, dispatched, and deleted by the
/// caller: whoever wants to keep it copies it.
class NVXQTCOMMON_EXPORT NvxSpectrumEventData
{
public:
    virtual ~NvxSpectrumEventData() = 0;

protected:
    NvxSpectrumEventData() = default;
    NvxSpectrumEventData(const NvxSpectrumEventData&) = default;
    NvxSpectrumEventData& operator=(const NvxSpectrumEventData&) = default;
};

/// What all data records of the spectrum family share.
class NVXQTCOMMON_EXPORT NvxComSpectrumEventData : public NvxSpectrumEventData
{
public:
    ~NvxComSpectrumEventData() override;

    /// Free text of the user, UTF-8.
    void setComment(const std::string& comment) { m_comment = comment; }
    const std::string& comment() const { return m_comment; }
    /// Running sample number.
    void setSeqNum(const unsigned long long& number) { m_seqNum = number; }
    unsigned long long seqNum() const { return m_seqNum; }
    /// Seconds since the epoch.
    void setDataTime(unsigned long long time) { m_dataTime = time; }
    unsigned long long dataTime() const { return m_dataTime; }

    /// Kind of the files that hold such records, whatever the header says; spectra are of the kind that a
    /// header asks for, as far as it is one of spectra.
    virtual FFTMode fileKind(FFTMode headerMode) const = 0;
    /// Tells records of one kind apart that don't fit the same columns.
    virtual uint32_t columnLayout() const { return 0; }
    /// Appends what the header of its file states beside the header's own entries: lines of a key, a tab and
    /// a value. Nothing for most kinds.
    virtual void appendEntries(std::string& out) const;
    /// Appends the titles of the columns, the first one "Time", with tabs between them.
    virtual void appendTitles(std::string& out, const NvxSpectrumFileHeader& header) const = 0;
    /// Appends the record as a line of its file, with tabs between the columns and without a line end.
    virtual void appendLine(std::string& out) const = 0;

protected:
    NvxComSpectrumEventData() = default;
    NvxComSpectrumEventData(const NvxComSpectrumEventData&) = default;
    NvxComSpectrumEventData& operator=(const NvxComSpectrumEventData&) = default;

    /// Appends the first two columns of every kind, time and comment.
    void appendTimeAndComment(std::string& out) const;

private:
    std::string m_comment;
    uint64_t m_seqNum = 0;
    uint64_t m_dataTime = 0;
};
