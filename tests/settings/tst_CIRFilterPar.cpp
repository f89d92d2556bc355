#include "NvxQtCommon/settings/CIRFilterPar.h"
#include "tests/settings/StoredValue.h"
#include "tests/support/NvxTestCase.h"

namespace {

StoredValues<CIRFilterPar> values()
{
    using S = CIRFilterPar;
    return {
        storedField<S>("FilterOrder", 4, &SIRFilterPar::order),
        storedField<S>("FilterDecRate", 1, &SIRFilterPar::decRate),
        storedField<S>("FilterCutOffFreq", 10, &SIRFilterPar::cutOffFreq),
        storedField<S>("FilterCenterFreq", 1000, &SIRFilterPar::centerFreq),
        storedField<S>("FilterPassBandRipple", 0.1F, &SIRFilterPar::passBandRipple),
        storedField<S>("FilterStopBandAtten", 60, &SIRFilterPar::stopBandAtten),
        storedField<S>("FilterType", 0, &SIRFilterPar::type),
        storedField<S>("FilterBandType", 0, &SIRFilterPar::bandType),
        storedField<S>("FilterLength", 0, &SIRFilterPar::length),
        storedField<S>("FilterFracSampleOffset", 0, &SIRFilterPar::fracSampleOffset),
        storedField<S>("FilterCoefScaleFactor", 1, &SIRFilterPar::coefScaleFactor),
        storedField<S>("FilterIRType", 0, &SIRFilterPar::irType),
        storedField<S>("SEcutOffFreq", 0, &SIRFilterPar::seCutOffFreq),
        storedField<S>("DecRateCros", 0, &SIRFilterPar::decRateCros),
        storedField<S>("IsCDBlocker", 0, &SIRFilterPar::isCDBlocker),
    };
}

} // namespace

class tst_CIRFilterPar : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaults() { checkDefaults(values()); }
    void eachValueCounts() { checkEachValueCounts(values()); }

    void takesARecordOver()
    {
        SIRFilterPar record;
        record.order = 8;
        record.decRateCros = true;
        const CIRFilterPar filter(record);
        QCOMPARE(filter.order, 8U);
        QVERIFY(filter.decRateCros);
    }

    void everyKeyIsWrittenAndRead_data()
    {
        QTest::addColumn<QString>("other");
        QTest::addColumn<QString>("prefix");
        QTest::newRow("of sound itself") << "Filter"
                                         << "Audio";
        QTest::newRow("of a measurement") << "Exposure"
                                          << "";
    }
    void everyKeyIsWrittenAndRead()
    {
        QFETCH(QString, other);
        QFETCH(QString, prefix);
        CIRFilterPar filter;
        setAll(filter, values());
        IniFile file;
        filter.save(file.store(), QStringLiteral("Filter"), other);
        CIRFilterPar read;
        read.load(file.reopen(), QStringLiteral("Filter"), other);
        QVERIFY(read == filter);
        QCOMPARE(file.keys().size(), values().size());
        for (const auto& value : values())
            QCOMPARE(file.value("Filter/" + prefix + value.key).toString(), value.other);
    }

    // --- rainy day flows
    void keysOfTheOtherKindAreMissing()
    {
        CIRFilterPar filter;
        setAll(filter, values());
        IniFile file;
        filter.save(file.store(), QStringLiteral("Filter"), QStringLiteral("Filter"));
        filter.load(file.reopen(), QStringLiteral("Filter"), QStringLiteral("Exposure"));
        for (const auto& value : values())
            QCOMPARE(value.get(filter), value.missing);
    }

    void numbersThatAreNone()
    {
        IniFile file(
            "[Filter]\nFilterOrder=4000000000\nFilterCutOffFreq=nan\nFilterCenterFreq=1e999\nFilterType=x\n");
        CIRFilterPar filter;
        filter.load(file.store(), QStringLiteral("Filter"), QString());
        QCOMPARE(filter.order, 4000000000U);
        QCOMPARE(filter.cutOffFreq, 0.0F);
        QCOMPARE(filter.centerFreq, 0.0F);
        QCOMPARE(filter.type, 0);
    }

    void withoutAStoreNothingHappens()
    {
        CIRFilterPar filter;
        filter.save(nullptr, QString(), QString());
        filter.load(nullptr, QString(), QString());
        QVERIFY(filter == CIRFilterPar());
    }
};

QTEST_APPLESS_MAIN(tst_CIRFilterPar)
#include "tst_CIRFilterPar.moc"
