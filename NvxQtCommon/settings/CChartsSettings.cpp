#include "NvxQtCommon/settings/CChartsSettings.h"

#include "NvxQtCommon/settings/SettingsStore.h"

namespace {

enum Key {
    LgndAlignment,
    ChartMarkers,
    MarkerSize,
};

const SettingsKeys& keys()
{
    static const SettingsKeys names{
        {LgndAlignment, QStringLiteral("lgndAlignment")},
        {ChartMarkers, QStringLiteral("chartMarkers")},
        {MarkerSize, QStringLiteral("markerSize")},
    };
    return names;
}

} // namespace

template <class Self, class Each> void CChartsSettings::forEachValue(Self& self, const Each& each)
{
    each(LgndAlignment, self.m_lgndAlignment);
    each(ChartMarkers, self.m_chartMarkers);
    each(MarkerSize, self.m_markerSize);
}

void CChartsSettings::save(QSettings* store, const QString& group) const
{
    forEachValue(*this, SettingsWriter(store, group, keys()));
}

void CChartsSettings::load(QSettings* store, const QString& group)
{
    forEachValue(*this, SettingsReader(store, group, keys()));
    // The enumeration has no number for other bits.
    constexpr int kAlignmentBits = Qt::AlignHorizontal_Mask | Qt::AlignVertical_Mask;
    if ((m_lgndAlignment & ~kAlignmentBits) != 0)
        m_lgndAlignment = 0;
}
