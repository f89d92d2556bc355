#include "NvxQtCommon/settings/VelaJobDetails.h"

#include "NvxQtCommon/settings/SettingsStore.h"

namespace {

enum Key {
    JobName,
    Client,
    Personnel,
    Description,
    OperatorName,
};

const SettingsKeys& keys()
{
    static const SettingsKeys names{
        {JobName, QStringLiteral("JobName")},           {Client, QStringLiteral("Client")},
        {Personnel, QStringLiteral("Personnel")},       {Description, QStringLiteral("Description")},
        {OperatorName, QStringLiteral("OperatorName")},
    };
    return names;
}

} // namespace

template <class Self, class Each> void VelaJobDetails::forEachValue(Self& self, const Each& each)
{
    each(JobName, self.m_jobName);
    each(Client, self.m_client);
    each(Personnel, self.m_personnel);
    each(Description, self.m_description);
    each(OperatorName, self.m_operatorName);
}

QString VelaJobDetails::getTtitles() const
{
    return QStringLiteral("Client: %1;  \tJob: %2;  \tPersonnel: %3").arg(m_client, m_jobName, m_personnel);
}

void VelaJobDetails::save(QSettings* store, const QString& group) const
{
    forEachValue(*this, SettingsWriter(store, group, keys()));
}

void VelaJobDetails::load(QSettings* store, const QString& group)
{
    if (store == nullptr || !store->childGroups().contains(group))
        return;
    // The reader leaves a text as it is where none is stored; here an empty one counts.
    *this = VelaJobDetails();
    forEachValue(*this, SettingsReader(store, group, keys()));
}
