#include "NvxQtCommon/settings/CSELSettings.h"
#include "tests/settings/StoredValue.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QString kGroup = QStringLiteral("Detector");

/// A value of the filter within.
template <class Field>
StoredValue<CSELSettings> filterField(const char* key, double standard, Field SIRFilterPar::*field)
{
    const auto get = [field](const CSELSettings& settings) { return settings.filter().*field; };
    const auto set = [field](CSELSettings& settings, auto value) {
        CIRFilterPar filter = settings.filter();
        filter.*field = static_cast<Field>(value);
        settings.setFilter(filter);
    };
    if constexpr (std::is_same_v<Field, bool>)
        return storedBool<CSELSettings>(key, standard != 0.0, get, set);
    else
        return storedNumber<CSELSettings>(key, standard, get, set);
}

StoredValues<CSELSettings> values()
{
    using S = CSELSettings;
    return {
        storedValue("SEOutputDir", expectedFolder(), &S::soundExposureOutputDir,
                    &S::setSoundExposureOutputDir),
        storedValue("SEPrefix", "VESE", &S::SEPrefix, &S::setSEPrefix),
        storedValue("LogSoundExposureMode", "0", &S::logSoundExposureMode, &S::setLogSoundExposureMode),
        storedValue("LogSELength", "1", &S::logSELength, &S::setLogSELength),
        storedValue("SELThreshold", "160", &S::SELThreshold, &S::setSELThreshold),
        storedField<S>("SEtimeInterval", 60, &SSELSettings::timeInterval),
        storedField<S>("SEtimeWindow", 1, &SSELSettings::timeWindow),
        storedField<S>("SEMaxKeepInterv", 24, &SSELSettings::maxKeepInterv),
        storedField<S>("SEInfinitKeepInterv", 0, &SSELSettings::infinitKeepInterv),
        storedField<S>("SEPkThresh", 180, &SSELSettings::pkThresh),
        storedField<S>("SEtimeWindowUnits", 0, &SSELSettings::timeWindowUnits),
        filterField("SEIRFiler/FilterOrder", 4, &SIRFilterPar::order),
        filterField("SEIRFiler/FilterDecRate", 1, &SIRFilterPar::decRate),
        filterField("SEIRFiler/FilterCutOffFreq", 10, &SIRFilterPar::cutOffFreq),
        filterField("SEIRFiler/FilterCenterFreq", 1000, &SIRFilterPar::centerFreq),
        filterField("SEIRFiler/FilterPassBandRipple", 0.1F, &SIRFilterPar::passBandRipple),
        filterField("SEIRFiler/FilterStopBandAtten", 60, &SIRFilterPar::stopBandAtten),
        filterField("SEIRFiler/FilterType", 0, &SIRFilterPar::type),
        filterField("SEIRFiler/FilterBandType", 0, &SIRFilterPar::bandType),
        filterField("SEIRFiler/FilterLength", 0, &SIRFilterPar::length),
        filterField("SEIRFiler/FilterFracSampleOffset", 0, &SIRFilterPar::fracSampleOffset),
        filterField("SEIRFiler/FilterCoefScaleFactor", 1, &SIRFilterPar::coefScaleFactor),
        filterField("SEIRFiler/FilterIRType", 0, &SIRFilterPar::irType),
        filterField("SEIRFiler/SEcutOffFreq", 0, &SIRFilterPar::seCutOffFreq),
        filterField("SEIRFiler/DecRateCros", 0, &SIRFilterPar::decRateCros),
        filterField("SEIRFiler/IsCDBlocker", 0, &SIRFilterPar::isCDBlocker),
    };
}

} // namespace

class tst_CSELSettings : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaults() { checkDefaults(values()); }
    void everyKeyIsWrittenAndRead() { checkRoundTrip(values(), kGroup); }
    void eachValueCounts() { checkEachValueCounts(values()); }

    void peakFlagIsNotStored()
    {
        CSELSettings settings;
        QVERIFY(!settings.isSELP());
        settings.setSELP(true);
        QVERIFY(settings.isSELP());
        IniFile file;
        settings.save(file.store(), kGroup);
        CSELSettings other;
        other.load(file.reopen(), kGroup);
        QVERIFY(!other.isSELP());
    }

    void defaultsOfTheMeasurementComeBack()
    {
        CSELSettings settings;
        setAll(settings, values());
        settings.setDefault();
        QCOMPARE(settings.SELThreshold(), 160);
        QCOMPARE(settings.pkThresh, 180);
        QVERIFY(settings.filter() == CIRFilterPar());
        QVERIFY(settings.SEPrefix() != CSELSettings().SEPrefix());
        QVERIFY(settings.logSELength() != CSELSettings().logSELength());
    }

    // --- rainy day flows
    void missingKeysLoadAsNothing() { checkMissingKeys(values(), kGroup); }

    void emptyTextKeepsTheDefault()
    {
        IniFile file("[Detector]\nSEPrefix=\n");
        CSELSettings settings;
        settings.load(file.store(), kGroup);
        QCOMPARE(settings.SEPrefix(), CSELSettings().SEPrefix());
        QVERIFY(!settings.SEPrefix().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_CSELSettings)
#include "tst_CSELSettings.moc"
