#include "NvxQtCommon/settings/VelaDeviceSettings.h"

#include "NvxQtCommon/contract/job/HydJobSettingsTag.h"
#include "NvxQtCommon/settings/SettingsStore.h"

namespace {

enum Key {
    TimeSyncType,
    SyncMaster,
};

const SettingsKeys& keys()
{
    static const SettingsKeys names{
        {TimeSyncType, QStringLiteral("TimeSyncType")},
        {SyncMaster, QStringLiteral("SyncMaster")},
    };
    return names;
}

/// The result of checkWAVEReg() for waves that nobody wants.
constexpr int kNoWaves = 2;

} // namespace

VelaDeviceSettings::~VelaDeviceSettings() = default;

bool VelaDeviceSettings::chartDisp(unsigned short serial) const
{
    const auto entry = m_chartDispBySerial.find(serial);
    return entry == m_chartDispBySerial.end() || entry->second;
}

int VelaDeviceSettings::checkWAVEReg() const
{
    if (m_streamReg != StreamRegimeWaves)
        return kNoWaves;
    if (m_regWAVEMode == WaveModeOff || m_regWAVEMode == WaveModeLog)
        return m_regWAVEMode;
    switch (static_cast<int>(m_regFFTMode)) {
    case 0:
    case 1:
    case 2:
    case 4:
    case 5:
    case 9:
        return WaveModeOff;
    default:
        return kNoWaves;
    }
}

template <class Self, class Each> void VelaDeviceSettings::forEachValue(Self& self, const Each& each)
{
    each(TimeSyncType, self.m_syncType);
    each(SyncMaster, self.m_syncMaster);
}

void VelaDeviceSettings::save(QSettings* store) const
{
    forEachValue(*this, SettingsWriter(store, QString(), keys()));
}

void VelaDeviceSettings::load(QSettings* store)
{
    forEachValue(*this, SettingsReader(store, QString(), keys()));
}

void VelaDeviceSettings::saveJobMap(QSettings* store, const QString& group) const
{
    if (store == nullptr)
        return;
    const SettingsGroup whole(store, group);
    for (const auto& [key, tag] : map()) {
        const QString name = QString::fromStdString(HydJobSettingsTag::keyName(key));
        if (name.isEmpty())
            continue;
        const QString text = QString::fromStdString(tag->toString());
        store->setValue(name, text.split(QLatin1Char('='), Qt::KeepEmptyParts).last());
    }
}

void VelaDeviceSettings::loadJobMap(QSettings* store, const QString& group)
{
    if (store == nullptr || !store->childGroups().contains(group))
        return;
    const SettingsGroup whole(store, group);
    const QStringList names = store->childKeys();
    for (const QString& name : names) {
        const QString text = QStringLiteral("$%1=%2").arg(name, store->value(name).toString());
        setTag(HydJobSettingsTag::fromString(text.toStdString()));
    }
}
