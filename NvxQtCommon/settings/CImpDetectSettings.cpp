#include "NvxQtCommon/settings/CImpDetectSettings.h"

#include "NvxQtCommon/settings/SettingsStore.h"

namespace {

enum Key {
    ImpulseOutputDir,
    ImpulsePrefix,
    ImpulseComment,
    LogImpulseMode,
    LogImpulseLength,
    ImpDetectThresh,
    ImpResetThresh,
    ImpSELThresh,
    ImpPreDetect,
    ImpPostDetect,
    ImpSPLBandThresh,
    ImpUseAmbientLvl,
    ImpAmbientLvl,
    MaxImpTime,
    ImpHistory,
};

const SettingsKeys& keys()
{
    static const SettingsKeys names{
        {ImpulseOutputDir, QStringLiteral("ImpulseOutputDir")},
        {ImpulsePrefix, QStringLiteral("ImpulsePrefix")},
        {ImpulseComment, QStringLiteral("ImpulseComment")},
        {LogImpulseMode, QStringLiteral("LogImpulseMode")},
        {LogImpulseLength, QStringLiteral("LogImpulseLength")},
        {ImpDetectThresh, QStringLiteral("impDetectThresh")},
        {ImpResetThresh, QStringLiteral("impResetThresh")},
        {ImpSELThresh, QStringLiteral("impSELThresh")},
        {ImpPreDetect, QStringLiteral("impPreDetect")},
        {ImpPostDetect, QStringLiteral("impPostDetect")},
        {ImpSPLBandThresh, QStringLiteral("impSPLBandThresh")},
        {ImpUseAmbientLvl, QStringLiteral("impUseAmbientLvl")},
        {ImpAmbientLvl, QStringLiteral("impAmbientLvl")},
        {MaxImpTime, QStringLiteral("maxImpTime")},
        {ImpHistory, QStringLiteral("impHistory")},
    };
    return names;
}

} // namespace

template <class Self, class Each> void CImpDetectSettings::forEachValue(Self& self, const Each& each)
{
    each(ImpulseOutputDir, self.m_outputDir);
    each(ImpulsePrefix, self.m_prefix);
    each(ImpulseComment, self.m_comment);
    each(LogImpulseMode, self.m_logMode);
    each(LogImpulseLength, self.m_logLength);
    each(ImpDetectThresh, self.detectThresh);
    each(ImpResetThresh, self.resetThresh);
    each(ImpPreDetect, self.preDetect);
    each(ImpPostDetect, self.postDetect);
    each(ImpSELThresh, self.selThresh);
    each(ImpSPLBandThresh, self.splBandThresh);
    each(ImpUseAmbientLvl, self.useAmbientLvl);
    each(ImpAmbientLvl, self.ambientLvl);
    each(MaxImpTime, self.maxImpTime);
    each(ImpHistory, self.m_history);
}

void CImpDetectSettings::save(QSettings* store, const QString& group) const
{
    forEachValue(*this, SettingsWriter(store, group, keys()));
}

void CImpDetectSettings::load(QSettings* store, const QString& group)
{
    forEachValue(*this, SettingsReader(store, group, keys()));
}
