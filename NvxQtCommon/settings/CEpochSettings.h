#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/job/HydJobEnums.h"
#include "NvxQtCommon/control/SActiveTrigger.h"
#include "NvxQtCommon/settings/OutputFolder.h"

#include <QList>
#include <QString>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

class QSettings;

/// How the epoch diary is kept, and the triggers of the program: those that the application itself watches
/// for on the data of devices. Copies share their triggers; setTriggers() and load() part them.
class NVXQTCOMMON_EXPORT CEpochSettings
{
public:
    using Triggers = std::vector<std::shared_ptr<HydTrigger>>;

    /// Folder of the diary's files.
    const QString& epochOutputDir() const { return m_outputDir; }
    void setEpochOutputDir(const QString& value) { m_outputDir = value; }
    /// Prefix of their names.
    const QString& epochPrefix() const { return m_prefix; }
    void setEpochPrefix(const QString& value) { m_prefix = value; }
    /// Occurrences that devices report are logged.
    HydLogMode logEpochDevMode() const { return m_logDevMode; }
    void setLogEpochDevMode(HydLogMode value) { m_logDevMode = value; }
    /// Occurrences that the program sees are logged.
    HydLogMode logEpochProgMode() const { return m_logProgMode; }
    void setLogEpochProgMode(HydLogMode value) { m_logProgMode = value; }
    /// Seconds of a measured event, -1 where events aren't measured.
    int32_t measEventDur() const { return m_measEventDur; }
    void setMeasEventDur(int32_t value) { m_measEventDur = value; }
    /// A trigger that starts beeps.
    bool trigBeepAlarm() const { return m_beepAlarm; }
    void setTrigBeepAlarm(bool value) { m_beepAlarm = value; }
    /// The triggers of devices are shown.
    bool showDevTriggers() const { return m_showDevTriggers; }
    void setShowDevTriggers(bool value) { m_showDevTriggers = value; }

    /// The program's triggers. Those that aren't a HydTrigger_5_6 are kept, and neither stored nor watched.
    const Triggers& triggers() const { return m_triggers; }
    void setTriggers(Triggers triggers) { m_triggers = std::move(triggers); }
    /// The program's trigger at a position from 0 on; null beyond.
    std::shared_ptr<HydTrigger> trigger(int index) const;
    /// The copies that reloadProgTriggers() made for a device; none for one that it wasn't given.
    Triggers triggersByDevId(const HydDeviceId& devId) const;
    /// One of them by its position from 0 on; null beyond.
    std::shared_ptr<HydTrigger> triggerByDevId(const HydDeviceId& devId, int index) const;
    /// True when these are the program's triggers, equal one by one; see HydTrigger::compare().
    bool compareTriggers(const Triggers& triggers) const;
    /// True when one of the program's triggers is enabled.
    bool hasActiveTriggers() const;
    /// Gives each of these devices its own copies of the program's triggers; other devices keep theirs.
    void reloadProgTriggers(const QList<HydDeviceId>& devIds);
    /// Takes an occurrence's regime over into the program's trigger of its number and into that of its
    /// device; that of a stream (states 10 to 15) into all of them.
    void handleTrigActive(const SActiveTrigger& active);

    /// Empties the group first, whatever else stands there and in groups within. With an empty name that is
    /// the group that the store is in, and the whole store where it is in none.
    void save(QSettings* store, const QString& group) const;
    /// Without the group nothing changes. Else a number or bool that is missing loads as 0 or false, a text
    /// that is missing or empty stays, and the program's triggers become those of the group, of which the
    /// first five are read: the others are gone with the next save(). The group is looked for right below the
    /// one that the store is in, so an empty name and one with "/" are saved and not found again.
    void load(QSettings* store, const QString& group);

private:
    template <class Self, class Each> static void forEachValue(Self& self, const Each& each);

    HydLogMode m_logDevMode = LogOff;
    HydLogMode m_logProgMode = LogOff;
    Triggers m_triggers;
    std::map<HydDeviceId, Triggers> m_triggersByDevId;
    QString m_outputDir = defaultOutputFolder();
    QString m_prefix = QStringLiteral("Epoch");
    int32_t m_measEventDur = -1;
    bool m_beepAlarm = true;
    bool m_showDevTriggers = true;
};
