#pragma once

#include "NvxQtCommon/contract/recording/DetectorRecords.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumEventData.h"

#include <memory>
#include <string>

/// Levels of one span of time as a line of a file.
class NVXQTCOMMON_EXPORT NvxSpectrumStatsData : public NvxComSpectrumEventData
{
public:
    explicit NvxSpectrumStatsData(const SWavStatistics& statistics);
    ~NvxSpectrumStatsData() override;
    /// A new record with time and sequence of `statistics`; null for null.
    static std::unique_ptr<NvxSpectrumStatsData>
    fromStreamData(const std::shared_ptr<SWavStatistics>& statistics);

    FFTMode fileKind(FFTMode headerMode) const override;
    void appendTitles(std::string& out, const NvxSpectrumFileHeader& header) const override;
    void appendLine(std::string& out) const override;

private:
    SWavStatistics m_statistics;
};

/// One impulse as a line of a file.
class NVXQTCOMMON_EXPORT NvxImpulseData : public NvxComSpectrumEventData
{
public:
    explicit NvxImpulseData(const SImpulseStatistics& statistics);
    ~NvxImpulseData() override;
    /// A new record with time and sequence of `statistics`; null for null.
    static std::unique_ptr<NvxImpulseData>
    fromStreamData(const std::shared_ptr<SImpulseStatistics>& statistics);

    FFTMode fileKind(FFTMode headerMode) const override;
    void appendTitles(std::string& out, const NvxSpectrumFileHeader& header) const override;
    void appendLine(std::string& out) const override;

private:
    SImpulseStatistics m_statistics;
};

/// One click as a line of a file.
class NVXQTCOMMON_EXPORT NvxClickData : public NvxComSpectrumEventData
{
public:
    explicit NvxClickData(const SClickStatistics& statistics);
    ~NvxClickData() override;
    /// A new record with time and sequence of `statistics`; null for null.
    static std::unique_ptr<NvxClickData> fromStreamData(const std::shared_ptr<SClickStatistics>& statistics);

    FFTMode fileKind(FFTMode headerMode) const override;
    void appendTitles(std::string& out, const NvxSpectrumFileHeader& header) const override;
    void appendLine(std::string& out) const override;

private:
    SClickStatistics m_statistics;
};
