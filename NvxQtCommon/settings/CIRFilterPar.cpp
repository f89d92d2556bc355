#include "NvxQtCommon/settings/CIRFilterPar.h"

#include "NvxQtCommon/settings/SettingsStore.h"

namespace {

enum Key {
    FilterIRType,
    FilterOrder,
    FilterDecRate,
    FilterCutOffFreq,
    FilterCenterFreq,
    FilterPassBandRipple,
    FilterStopBandAtten,
    FilterType,
    FilterBandType,
    FilterLength,
    FilterFracSampleOffset,
    FilterCoefScaleFactor,
    SEcutOffFreq,
    DecRateCros,
    IsCDBlocker,
};

SettingsKeys keys(const QString& prefix)
{
    const std::pair<Key, const char*> names[] = {
        {FilterIRType, "FilterIRType"},
        {FilterOrder, "FilterOrder"},
        {FilterDecRate, "FilterDecRate"},
        {FilterCutOffFreq, "FilterCutOffFreq"},
        {FilterCenterFreq, "FilterCenterFreq"},
        {FilterPassBandRipple, "FilterPassBandRipple"},
        {FilterStopBandAtten, "FilterStopBandAtten"},
        {FilterType, "FilterType"},
        {FilterBandType, "FilterBandType"},
        {FilterLength, "FilterLength"},
        {FilterFracSampleOffset, "FilterFracSampleOffset"},
        {FilterCoefScaleFactor, "FilterCoefScaleFactor"},
        {SEcutOffFreq, "SEcutOffFreq"},
        {DecRateCros, "DecRateCros"},
        {IsCDBlocker, "IsCDBlocker"},
    };
    SettingsKeys keys;
    for (const auto& [key, name] : names)
        keys.insert(key, prefix + QLatin1String(name));
    return keys;
}

/// The filter of sound itself is told by its name from that of a measurement.
QString prefixOf(const QString& group, const QString& other)
{
    return group == other ? QStringLiteral("Audio") : QString();
}

} // namespace

template <class Self, class Each> void CIRFilterPar::forEachValue(Self& self, const Each& each)
{
    each(FilterOrder, self.order);
    each(FilterDecRate, self.decRate);
    each(FilterCutOffFreq, self.cutOffFreq);
    each(FilterCenterFreq, self.centerFreq);
    each(FilterPassBandRipple, self.passBandRipple);
    each(FilterStopBandAtten, self.stopBandAtten);
    each(FilterType, self.type);
    each(FilterBandType, self.bandType);
    each(FilterLength, self.length);
    each(FilterFracSampleOffset, self.fracSampleOffset);
    each(FilterCoefScaleFactor, self.coefScaleFactor);
    each(FilterIRType, self.irType);
    each(SEcutOffFreq, self.seCutOffFreq);
    each(DecRateCros, self.decRateCros);
    each(IsCDBlocker, self.isCDBlocker);
}

void CIRFilterPar::save(QSettings* store, const QString& group, const QString& other) const
{
    forEachValue(*this, SettingsWriter(store, group, keys(prefixOf(group, other))));
}

void CIRFilterPar::load(QSettings* store, const QString& group, const QString& other)
{
    forEachValue(*this, SettingsReader(store, group, keys(prefixOf(group, other))));
}
