#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/job/HydJobEnums.h"
#include "NvxQtCommon/contract/recording/DetectorSettings.h"
#include "NvxQtCommon/settings/CIRFilterPar.h"
#include "NvxQtCommon/settings/OutputFolder.h"

#include <QString>

#include <cstdint>

class QSettings;

/// How sound exposure is measured and logged. A copyable value.
class NVXQTCOMMON_EXPORT CSELSettings : public SSELSettings
{
public:
    /// Folder of the files of statistics.
    const QString& soundExposureOutputDir() const { return m_outputDir; }
    void setSoundExposureOutputDir(const QString& value) { m_outputDir = value; }
    /// Prefix of their names.
    const QString& SEPrefix() const { return m_prefix; }
    void setSEPrefix(const QString& value) { m_prefix = value; }
    /// Statistics are logged.
    HydLogMode logSoundExposureMode() const { return m_logMode; }
    void setLogSoundExposureMode(HydLogMode value) { m_logMode = value; }
    /// Length of a file.
    uint16_t logSELength() const { return m_logLength; }
    void setLogSELength(uint16_t value) { m_logLength = value; }
    /// Exposure level that raises an alarm, dB re 1 µPa²s.
    int32_t SELThreshold() const { return m_selThreshold; }
    void setSELThreshold(int32_t value) { m_selThreshold = value; }
    /// The filter ahead of the measurement.
    const CIRFilterPar& filter() const { return m_filter; }
    void setFilter(const CIRFilterPar& filter) { m_filter = filter; }
    /// True when the peak level is shown too. It isn't stored.
    bool isSELP() const { return m_selp; }
    void setSELP(bool selp) { m_selp = selp; }
    /// Puts back how exposure is measured: threshold, intervals and filter; where it is logged stays.
    void setDefault();

    void save(QSettings* store, const QString& group) const;
    /// A number or bool that is missing loads as 0 or false; a text that is missing or empty stays.
    void load(QSettings* store, const QString& group);

    bool operator==(const CSELSettings&) const = default;

private:
    template <class Self, class Each> static void forEachValue(Self& self, const Each& each);

    QString m_outputDir = defaultOutputFolder();
    QString m_prefix = QStringLiteral("VESE");
    HydLogMode m_logMode = LogOff;
    uint16_t m_logLength = 1;
    int32_t m_selThreshold = 160;
    bool m_selp = false;
    CIRFilterPar m_filter;
};
