#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/job/HydJobEnums.h"
#include "NvxQtCommon/contract/recording/DetectorSettings.h"
#include "NvxQtCommon/settings/OutputFolder.h"

#include <QString>

#include <cstdint>

class QSettings;

/// How impulses are found, shown and logged. A copyable value.
class NVXQTCOMMON_EXPORT CImpDetectSettings : public SImpDetectSettings
{
public:
    /// Folder of impulse files.
    const QString& impulseOutputDir() const { return m_outputDir; }
    void setImpulseOutputDir(const QString& value) { m_outputDir = value; }
    /// Prefix of their names.
    const QString& impulsePrefix() const { return m_prefix; }
    void setImpulsePrefix(const QString& value) { m_prefix = value; }
    /// Comment of each record.
    const QString& impulseComment() const { return m_comment; }
    void setImpulseComment(const QString& value) { m_comment = value; }
    /// Impulses are logged.
    HydLogMode logImpulseMode() const { return m_logMode; }
    void setLogImpulseMode(HydLogMode value) { m_logMode = value; }
    /// Records of a file.
    uint16_t logImpulseLength() const { return m_logLength; }
    void setLogImpulseLength(uint16_t value) { m_logLength = value; }
    /// The impulses found so far are shown.
    bool isImpHistory() const { return m_history; }
    void setImpHistory(bool value) { m_history = value; }

    void save(QSettings* store, const QString& group) const;
    /// A number or bool that is missing loads as 0 or false; a text that is missing or empty stays.
    void load(QSettings* store, const QString& group);

    bool operator==(const CImpDetectSettings&) const = default;

private:
    template <class Self, class Each> static void forEachValue(Self& self, const Each& each);

    QString m_outputDir = defaultOutputFolder();
    QString m_prefix = QStringLiteral("Impulse");
    QString m_comment;
    HydLogMode m_logMode = LogOff;
    uint16_t m_logLength = 1000;
    bool m_history = true;
};
