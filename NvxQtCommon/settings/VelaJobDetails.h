#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <QString>

class QSettings;

/// The five texts of a job. A plain value.
class NVXQTCOMMON_EXPORT VelaJobDetails
{
public:
    const QString& jobName() const { return m_jobName; }
    void setJobName(const QString& text) { m_jobName = text; }
    const QString& client() const { return m_client; }
    void setClient(const QString& text) { m_client = text; }
    const QString& personnel() const { return m_personnel; }
    void setPersonnel(const QString& text) { m_personnel = text; }
    const QString& description() const { return m_description; }
    void setDescription(const QString& text) { m_description = text; }
    const QString& operatorName() const { return m_operatorName; }
    void setOperatorName(const QString& text) { m_operatorName = text; }

    /// Client, job and personnel as a line for titles.
    QString getTtitles() const;

    void save(QSettings* store, const QString& group) const;
    /// Reads all five texts: one that is missing or empty becomes empty. Without the group nothing changes.
    /// It is looked for right below the group that the store is in, so an empty name and one with "/" are
    /// saved and not found again.
    void load(QSettings* store, const QString& group);

    bool operator==(const VelaJobDetails&) const = default;

private:
    template <class Self, class Each> static void forEachValue(Self& self, const Each& each);

    QString m_jobName;
    QString m_client;
    QString m_personnel;
    QString m_description;
    QString m_operatorName;
};
