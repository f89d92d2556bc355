#include "NvxQtCommon/settings/CImpDetectSettings.h"
#include "tests/settings/StoredValue.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QString kGroup = QStringLiteral("Detector");

StoredValues<CImpDetectSettings> values()
{
    using S = CImpDetectSettings;
    return {
        storedValue("ImpulseOutputDir", expectedFolder(), &S::impulseOutputDir, &S::setImpulseOutputDir),
        storedValue("ImpulsePrefix", "Impulse", &S::impulsePrefix, &S::setImpulsePrefix),
        storedValue("ImpulseComment", "", &S::impulseComment, &S::setImpulseComment),
        storedValue("LogImpulseMode", "0", &S::logImpulseMode, &S::setLogImpulseMode),
        storedValue("LogImpulseLength", "1000", &S::logImpulseLength, &S::setLogImpulseLength),
        storedField<S>("impDetectThresh", 160, &SImpDetectSettings::detectThresh),
        storedField<S>("impResetThresh", 150, &SImpDetectSettings::resetThresh),
        storedField<S>("impPreDetect", 50, &SImpDetectSettings::preDetect),
        storedField<S>("impPostDetect", 200, &SImpDetectSettings::postDetect),
        storedField<S>("impSELThresh", 140, &SImpDetectSettings::selThresh),
        storedField<S>("impSPLBandThresh", 120, &SImpDetectSettings::splBandThresh),
        storedField<S>("impUseAmbientLvl", 0, &SImpDetectSettings::useAmbientLvl),
        storedField<S>("impAmbientLvl", 100, &SImpDetectSettings::ambientLvl),
        storedField<S>("maxImpTime", 1000, &SImpDetectSettings::maxImpTime),
        storedValue("impHistory", "true", &S::isImpHistory, &S::setImpHistory),
    };
}

} // namespace

class tst_CImpDetectSettings : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaults() { checkDefaults(values()); }
    void everyKeyIsWrittenAndRead() { checkRoundTrip(values(), kGroup); }
    void eachValueCounts() { checkEachValueCounts(values()); }

    // --- rainy day flows
    void missingKeysLoadAsNothing() { checkMissingKeys(values(), kGroup); }

    void emptyTextKeepsTheDefault()
    {
        IniFile file("[Detector]\nImpulsePrefix=\n");
        CImpDetectSettings settings;
        settings.load(file.store(), kGroup);
        QCOMPARE(settings.impulsePrefix(), CImpDetectSettings().impulsePrefix());
        QVERIFY(!settings.impulsePrefix().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_CImpDetectSettings)
#include "tst_CImpDetectSettings.moc"
