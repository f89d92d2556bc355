#include "NvxQtCommon/settings/CEpochSettings.h"

#include "NvxQtCommon/settings/SettingsStore.h"

#include <algorithm>

namespace {

enum Key {
    EpochOutDir,
    EpochPrefix,
    LogEpochDevMode,
    LogEpochProgMode,
    MeasEventDur,
    TrigBeepAlarm,
    ShowDevTriggers,
    TrigType,
    TrigNum,
    TrigEnabled,
    TrigDuration,
    TrigEventHold,
    TrigMinFreq,
    TrigMaxFreq,
    TrigThreshType,
    TrigThreshold,
    TrigEffect,
    PreTrigger,
    TrigTestType,
};

/// Stands under "trigType" of each stored trigger.
constexpr int kStoredType = 3;
constexpr int kMaxStoredTriggers = 5;
constexpr uint8_t kFirstOfAllTriggers = 10;
constexpr uint8_t kLastOfAllTriggers = 15;

const SettingsKeys& keys()
{
    static const SettingsKeys names{
        {EpochOutDir, QStringLiteral("EpochOutDir")},
        {EpochPrefix, QStringLiteral("EpochPrefix")},
        {LogEpochDevMode, QStringLiteral("LogEpochDevMode")},
        {LogEpochProgMode, QStringLiteral("LogEpochProgMode")},
        {MeasEventDur, QStringLiteral("measEventDur")},
        {TrigBeepAlarm, QStringLiteral("trigBeepAlarm")},
        {ShowDevTriggers, QStringLiteral("showDevTriggers")},
        {Key::TrigType, QStringLiteral("trigType")},
        {TrigNum, QStringLiteral("trigNum")},
        {TrigEnabled, QStringLiteral("trigEnabled")},
        {TrigDuration, QStringLiteral("trigDuration")},
        {TrigEventHold, QStringLiteral("trigEventHold")},
        {TrigMinFreq, QStringLiteral("trigMinFreq")},
        {TrigMaxFreq, QStringLiteral("trigMaxFreq")},
        {TrigThreshType, QStringLiteral("trigThreshType")},
        {TrigThreshold, QStringLiteral("trigThreshold")},
        {TrigEffect, QStringLiteral("trigEffect")},
        {PreTrigger, QStringLiteral("preTRigger")},
        {TrigTestType, QStringLiteral("trigTestType")},
    };
    return names;
}

/// The names of a trigger's values.
SettingsKeys keysOfTrigger(int index)
{
    SettingsKeys names = keys();
    for (QString& name : names)
        name += QString::number(index);
    return names;
}

void saveTrigger(const HydTrigger_5_6& trigger, const SettingsWriter& write)
{
    write(Key::TrigType, kStoredType);
    write(TrigNum, trigger.trigNum());
    write(TrigEnabled, trigger.enabled());
    write(TrigDuration, trigger.duration());
    write(TrigEventHold, trigger.eventHold());
    write(TrigMinFreq, trigger.minFreq());
    write(TrigMaxFreq, trigger.maxFreq());
    write(TrigThreshType, trigger.threshType());
    write(TrigThreshold, trigger.threshold());
    write(TrigEffect, trigger.effect());
    write(PreTrigger, trigger.preTrigger());
    write(TrigTestType, trigger.testType());
}

template <class T> T valueOf(const SettingsReader& read, Key key)
{
    T value{};
    read(key, value);
    return value;
}

/// Null where no trigger is stored.
std::shared_ptr<HydTrigger> loadTrigger(const SettingsReader& read)
{
    if (valueOf<int>(read, Key::TrigType) != kStoredType)
        return nullptr;
    auto trigger = std::make_shared<HydTrigger_5_6>();
    trigger->setTrigNum(valueOf<uint8_t>(read, TrigNum));
    trigger->setEnabled(valueOf<uint8_t>(read, TrigEnabled));
    trigger->setDuration(valueOf<uint16_t>(read, TrigDuration));
    trigger->setEventHold(valueOf<uint16_t>(read, TrigEventHold));
    trigger->setMinFreq(valueOf<unsigned>(read, TrigMinFreq));
    trigger->setMaxFreq(valueOf<unsigned>(read, TrigMaxFreq));
    trigger->setThreshType(valueOf<uint16_t>(read, TrigThreshType));
    trigger->setThreshold(valueOf<int16_t>(read, TrigThreshold));
    trigger->setEffect(valueOf<uint16_t>(read, TrigEffect));
    trigger->setPreTrigger(valueOf<uint16_t>(read, PreTrigger));
    trigger->setTestType(valueOf<TEST_TYPE>(read, TrigTestType));
    return trigger;
}

std::shared_ptr<HydTrigger> triggerAt(const CEpochSettings::Triggers& triggers, int index)
{
    const auto at = static_cast<size_t>(index);
    return index >= 0 && at < triggers.size() ? triggers[at] : nullptr;
}

void takeRegime(const CEpochSettings::Triggers& triggers, const SActiveTrigger& active)
{
    const bool isForAll = active.state >= kFirstOfAllTriggers && active.state <= kLastOfAllTriggers;
    for (const auto& each : triggers) {
        auto* trigger = dynamic_cast<HydTrigger_5_6*>(each.get());
        if (trigger != nullptr && (isForAll || trigger->trigNum() == active.trigger.trigNum()))
            trigger->eventTrg().regime = active.trigger.trgRegime();
    }
}

} // namespace

std::shared_ptr<HydTrigger> CEpochSettings::trigger(int index) const
{
    return triggerAt(m_triggers, index);
}

CEpochSettings::Triggers CEpochSettings::triggersByDevId(const HydDeviceId& devId) const
{
    const auto entry = m_triggersByDevId.find(devId);
    return entry == m_triggersByDevId.end() ? Triggers() : entry->second;
}

std::shared_ptr<HydTrigger> CEpochSettings::triggerByDevId(const HydDeviceId& devId, int index) const
{
    return triggerAt(triggersByDevId(devId), index);
}

bool CEpochSettings::compareTriggers(const Triggers& triggers) const
{
    return std::equal(m_triggers.begin(), m_triggers.end(), triggers.begin(), triggers.end(),
                      [](const auto& a, const auto& b) { return a ? a->compare(b.get()) : !b; });
}

bool CEpochSettings::hasActiveTriggers() const
{
    return std::any_of(m_triggers.begin(), m_triggers.end(), [](const auto& each) {
        const auto* trigger = dynamic_cast<const HydTrigger_5_6*>(each.get());
        return trigger != nullptr && trigger->enabled() != 0;
    });
}

void CEpochSettings::reloadProgTriggers(const QList<HydDeviceId>& devIds)
{
    for (const HydDeviceId& devId : devIds) {
        Triggers copies;
        for (const auto& each : m_triggers) {
            if (const auto* trigger = dynamic_cast<const HydTrigger_5_6*>(each.get()))
                copies.push_back(std::make_shared<HydTrigger_5_6>(*trigger));
        }
        m_triggersByDevId[devId] = std::move(copies);
    }
}

void CEpochSettings::handleTrigActive(const SActiveTrigger& active)
{
    takeRegime(m_triggers, active);
    takeRegime(triggersByDevId(active.devId), active);
}

template <class Self, class Each> void CEpochSettings::forEachValue(Self& self, const Each& each)
{
    each(EpochOutDir, self.m_outputDir);
    each(EpochPrefix, self.m_prefix);
    each(LogEpochDevMode, self.m_logDevMode);
    each(LogEpochProgMode, self.m_logProgMode);
    each(MeasEventDur, self.m_measEventDur);
    each(TrigBeepAlarm, self.m_beepAlarm);
    each(ShowDevTriggers, self.m_showDevTriggers);
}

void CEpochSettings::save(QSettings* store, const QString& group) const
{
    if (store == nullptr)
        return;
    const SettingsGroup whole(store, group);
    // Whatever the group is, and be it the whole store. This is intended.
    store->remove(QString());
    forEachValue(*this, SettingsWriter(store, QString(), keys()));
    int index = 0;
    for (const auto& each : m_triggers) {
        if (const auto* trigger = dynamic_cast<const HydTrigger_5_6*>(each.get()))
            saveTrigger(*trigger, SettingsWriter(store, QString(), keysOfTrigger(index++)));
    }
}

void CEpochSettings::load(QSettings* store, const QString& group)
{
    if (store == nullptr || !store->childGroups().contains(group))
        return;
    const SettingsGroup whole(store, group);
    forEachValue(*this, SettingsReader(store, QString(), keys()));
    m_triggers.clear();
    for (int index = 0; index < kMaxStoredTriggers; ++index) {
        auto trigger = loadTrigger(SettingsReader(store, QString(), keysOfTrigger(index)));
        if (!trigger)
            break;
        m_triggers.push_back(std::move(trigger));
    }
}
