#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/job/HydJobEnums.h"
#include "NvxQtCommon/settings/OutputFolder.h"

#include <QString>

#include <cstdint>

class QSettings;

/// How clicks are logged. A copyable value.
class NVXQTCOMMON_EXPORT CClickDetectSettings
{
public:
    /// Folder of click files.
    const QString& clickOutputDir() const { return m_outputDir; }
    void setClickOutputDir(const QString& value) { m_outputDir = value; }
    /// Prefix of their names.
    const QString& clickPrefix() const { return m_prefix; }
    void setClickPrefix(const QString& value) { m_prefix = value; }
    /// Comment of each record.
    const QString& clickComment() const { return m_comment; }
    void setClickComment(const QString& value) { m_comment = value; }
    /// Clicks are logged.
    HydLogMode logClickMode() const { return m_logMode; }
    void setLogClickMode(HydLogMode value) { m_logMode = value; }
    /// Records of a file.
    uint16_t logClickLength() const { return m_logLength; }
    void setLogClickLength(uint16_t value) { m_logLength = value; }

    void save(QSettings* store, const QString& group) const;
    /// A number or bool that is missing loads as 0 or false; a text that is missing or empty stays.
    void load(QSettings* store, const QString& group);

    bool operator==(const CClickDetectSettings&) const = default;

private:
    template <class Self, class Each> static void forEachValue(Self& self, const Each& each);

    QString m_outputDir = defaultOutputFolder();
    QString m_prefix = QStringLiteral("Click");
    QString m_comment;
    HydLogMode m_logMode = LogOff;
    uint16_t m_logLength = 1000;
};
