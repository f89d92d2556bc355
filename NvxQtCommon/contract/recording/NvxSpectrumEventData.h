#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstdint>
#include <string>

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

    /// Titles of the columns of a file of such records, the first one "Time", with tabs between them.
    virtual std::string columnTitles() const = 0;
    /// The record as a line of such a file, with tabs between the columns and without a line end.
    virtual std::string line() const = 0;

protected:
    NvxComSpectrumEventData() = default;
    NvxComSpectrumEventData(const NvxComSpectrumEventData&) = default;
    NvxComSpectrumEventData& operator=(const NvxComSpectrumEventData&) = default;

private:
    std::string m_comment;
    uint64_t m_seqNum = 0;
    uint64_t m_dataTime = 0;
};
