#include "NvxQtCommon/settings/CReferencesSettings.h"

#include "NvxQtCommon/settings/SettingsStore.h"

namespace {

enum Key {
    DBReference,
    ReferenceStep,
    PlotGroupMode,
    PlotSize,
    Gain,
    WaveTimeLength,
};

const SettingsKeys& keys()
{
    static const SettingsKeys names{
        {DBReference, QStringLiteral("dBReference")},
        {ReferenceStep, QStringLiteral("referenceStep")},
        {PlotGroupMode, QStringLiteral("plotGroupMode")},
        {PlotSize, QStringLiteral("plotSizeMode")},
        {Gain, QStringLiteral("gain")},
        {WaveTimeLength, QStringLiteral("waveTimeLength")},
    };
    return names;
}

} // namespace

template <class Self, class Each> void CReferencesSettings::forEachValue(Self& self, const Each& each)
{
    each(DBReference, self.m_dBReference);
    each(ReferenceStep, self.m_referenceStep);
    each(PlotGroupMode, self.m_plotGroupMode);
    each(PlotSize, self.m_plotSizeMode);
    each(Gain, self.m_gain);
    each(WaveTimeLength, self.m_waveTimeLength);
}

void CReferencesSettings::save(QSettings* store, const QString& group) const
{
    forEachValue(*this, SettingsWriter(store, group, keys()));
}

void CReferencesSettings::load(QSettings* store, const QString& group)
{
    forEachValue(*this, SettingsReader(store, group, keys()));
}
