#pragma once

#include "NvxQtCommon/contract/recording/NvxSpectrumEventData.h"
#include "NvxQtCommon/contract/recording/NvxWavTestInfoData.h"

#include <memory>
#include <optional>

/// One timing record of a wave stream as a line of a file.
class NVXQTCOMMON_EXPORT NvxWavTimeData : public NvxComSpectrumEventData
{
public:
    ~NvxWavTimeData() override;

    /// A new record with the fields of `info`; null for a null `info`.
    static std::unique_ptr<NvxWavTimeData> fromWavTestData(const std::shared_ptr<NvxWavTestInfoData>& info);

    /// Samples since the record before; unset on the first record.
    void setSizeData(int samples) { m_sizeData = samples; }
    std::optional<int> sizeData() const { return m_sizeData; }
    /// Milliseconds on the computer since the record before; unset on the first record.
    void setProcTime(int milliseconds) { m_procTime = milliseconds; }
    std::optional<int> procTime() const { return m_procTime; }
    const NvxWavTestInfoData& info() const { return m_info; }

    FFTMode fileKind(FFTMode headerMode) const override;
    void appendTitles(std::string& out, const NvxSpectrumFileHeader& header) const override;
    void appendLine(std::string& out) const override;

private:
    NvxWavTestInfoData m_info;
    std::optional<int> m_sizeData;
    std::optional<int> m_procTime;
};
