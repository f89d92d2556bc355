#include "NvxQtCommon/settings/CServerStreamSettings.h"

#include "NvxQtCommon/settings/SettingsStore.h"

namespace {

enum Key {
    ServerPort,
    StreamSgnPower,
    StreamSPLrms,
    StreamPeak,
    StreamSELcum,
    DevAlias,
    MessageId,
};

const SettingsKeys& keys()
{
    static const SettingsKeys names{
        {ServerPort, QStringLiteral("UDPServerPort")},
        {StreamSgnPower, QStringLiteral("isStreamSgnPower")},
        {StreamSPLrms, QStringLiteral("isStreamSPLrms")},
        {StreamPeak, QStringLiteral("isStreamPeak")},
        {StreamSELcum, QStringLiteral("isStreamSELcum")},
        {DevAlias, QStringLiteral("isDevAlias")},
        {MessageId, QStringLiteral("messageID")},
    };
    return names;
}

} // namespace

template <class Self, class Each> void CServerStreamSettings::forEachValue(Self& self, const Each& each)
{
    each(StreamSgnPower, self.m_signalPower);
    each(StreamSPLrms, self.m_splRms);
    each(StreamPeak, self.m_peak);
    each(StreamSELcum, self.m_selCum);
    each(DevAlias, self.m_devAlias);
    each(MessageId, self.m_messageId);
}

void CServerStreamSettings::save(QSettings* store, const QString& group) const
{
    forEachValue(*this, SettingsWriter(store, group, keys()));
}

void CServerStreamSettings::load(QSettings* store, const QString& group)
{
    forEachValue(*this, SettingsReader(store, group, keys()));
}

void CServerStreamSettings::saveInstance(QSettings* store, const QString& group, bool withGroup) const
{
    SettingsWriter(store, withGroup ? group : QString(), keys())(ServerPort, m_port);
}

void CServerStreamSettings::loadInstance(QSettings* store, const QString& group, bool withGroup)
{
    SettingsReader(store, withGroup ? group : QString(), keys())(ServerPort, m_port);
}
