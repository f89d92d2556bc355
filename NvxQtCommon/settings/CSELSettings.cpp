#include "NvxQtCommon/settings/CSELSettings.h"

#include "NvxQtCommon/settings/SettingsStore.h"

namespace {

enum Key {
    SEOutputDir,
    SEPrefix,
    LogSoundExposureMode,
    LogSELength,
    SELThreshold,
    SEtimeInterval,
    SEtimeWindow,
    SEMaxKeepInterv,
    SEInfinitKeepInterv,
    SEPkThresh,
    SEtimeWindowUnits,
};

const SettingsKeys& keys()
{
    static const SettingsKeys names{
        {SEOutputDir, QStringLiteral("SEOutputDir")},
        {Key::SEPrefix, QStringLiteral("SEPrefix")},
        {LogSoundExposureMode, QStringLiteral("LogSoundExposureMode")},
        {LogSELength, QStringLiteral("LogSELength")},
        {SELThreshold, QStringLiteral("SELThreshold")},
        {SEtimeInterval, QStringLiteral("SEtimeInterval")},
        {SEtimeWindow, QStringLiteral("SEtimeWindow")},
        {SEMaxKeepInterv, QStringLiteral("SEMaxKeepInterv")},
        {SEInfinitKeepInterv, QStringLiteral("SEInfinitKeepInterv")},
        {SEPkThresh, QStringLiteral("SEPkThresh")},
        {SEtimeWindowUnits, QStringLiteral("SEtimeWindowUnits")},
    };
    return names;
}

QString filterGroup()
{
    return QStringLiteral("SEIRFiler");
}

} // namespace

template <class Self, class Each> void CSELSettings::forEachValue(Self& self, const Each& each)
{
    each(SEOutputDir, self.m_outputDir);
    each(Key::SEPrefix, self.m_prefix);
    each(LogSoundExposureMode, self.m_logMode);
    each(LogSELength, self.m_logLength);
    each(Key::SELThreshold, self.m_selThreshold);
    each(SEtimeInterval, self.timeInterval);
    each(SEtimeWindow, self.timeWindow);
    each(SEMaxKeepInterv, self.maxKeepInterv);
    each(SEInfinitKeepInterv, self.infinitKeepInterv);
    each(SEPkThresh, self.pkThresh);
    each(SEtimeWindowUnits, self.timeWindowUnits);
}

void CSELSettings::setDefault()
{
    const CSELSettings fresh;
    SSELSettings::setDefault();
    m_selThreshold = fresh.m_selThreshold;
    m_filter = fresh.m_filter;
}

void CSELSettings::save(QSettings* store, const QString& group) const
{
    forEachValue(*this, SettingsWriter(store, group, keys()));
    const SettingsGroup whole(store, group);
    m_filter.save(store, filterGroup(), group);
}

void CSELSettings::load(QSettings* store, const QString& group)
{
    forEachValue(*this, SettingsReader(store, group, keys()));
    const SettingsGroup whole(store, group);
    m_filter.load(store, filterGroup(), group);
}
