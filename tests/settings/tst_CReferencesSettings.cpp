#include "NvxQtCommon/settings/CReferencesSettings.h"
#include "tests/settings/IniFile.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QString kGroup = QStringLiteral("References");

CReferencesSettings filled()
{
    CReferencesSettings settings;
    settings.setDBReference(-20);
    settings.setReferenceStep(5);
    settings.setPlotGroupMode(CReferencesSettings::GroupByKind);
    settings.setPlotSizeMode(CReferencesSettings::SizeFixed);
    settings.setGain(-0.1);
    settings.setWaveTimeLength(30);
    return settings;
}

} // namespace

class tst_CReferencesSettings : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaults();
    void everyKeyIsWritten_data();
    void everyKeyIsWritten();
    void everyKeyIsRead();
    void eachValueCounts_data();
    void eachValueCounts();
    // --- rainy day flows
    void missingKeysLoadAsNothing();
    void strangeValues();
    void withoutAStoreNothingHappens();
};

void tst_CReferencesSettings::defaults()
{
    const CReferencesSettings settings;
    QCOMPARE(settings.dBReference(), 0);
    QCOMPARE(settings.referenceStep(), 0);
    QCOMPARE(static_cast<int>(settings.plotGroupMode()), 0);
    QCOMPARE(static_cast<int>(settings.plotSizeMode()), 0);
    QVERIFY(settings.gain() == 0.0);
    QCOMPARE(settings.waveTimeLength(), 0);
}

void tst_CReferencesSettings::everyKeyIsWritten_data()
{
    QTest::addColumn<QString>("value");
    QTest::newRow("dBReference") << QStringLiteral("-20");
    QTest::newRow("referenceStep") << QStringLiteral("5");
    QTest::newRow("plotGroupMode") << QStringLiteral("2");
    QTest::newRow("plotSizeMode") << QStringLiteral("1");
    QTest::newRow("gain") << QStringLiteral("-0.1");
    QTest::newRow("waveTimeLength") << QStringLiteral("30");
}

void tst_CReferencesSettings::everyKeyIsWritten()
{
    QFETCH(QString, value);
    IniFile file;
    filled().save(file.store(), kGroup);
    file.reopen();
    QCOMPARE(file.keys().size(), 6);
    QCOMPARE(file.value(kGroup + u'/' + QLatin1String(QTest::currentDataTag())).toString(), value);
}

void tst_CReferencesSettings::everyKeyIsRead()
{
    IniFile file;
    filled().save(file.store(), kGroup);
    CReferencesSettings settings;
    settings.load(file.reopen(), kGroup);
    QVERIFY(settings == filled());
    QCOMPARE(settings.dBReference(), -20);
    QCOMPARE(settings.referenceStep(), 5);
    QCOMPARE(settings.plotGroupMode(), CReferencesSettings::GroupByKind);
    QCOMPARE(settings.plotSizeMode(), CReferencesSettings::SizeFixed);
    QVERIFY(settings.gain() == -0.1);
    QCOMPARE(settings.waveTimeLength(), 30);
}

void tst_CReferencesSettings::eachValueCounts_data()
{
    everyKeyIsWritten_data();
}

void tst_CReferencesSettings::eachValueCounts()
{
    IniFile file;
    filled().save(file.store(), kGroup);
    file.store()->remove(kGroup + u'/' + QLatin1String(QTest::currentDataTag()));
    CReferencesSettings settings;
    settings.load(file.store(), kGroup);
    QVERIFY(!(settings == filled()));
}

void tst_CReferencesSettings::missingKeysLoadAsNothing()
{
    CReferencesSettings settings = filled();
    IniFile file;
    settings.load(file.store(), kGroup);
    QVERIFY(settings == CReferencesSettings());
}

void tst_CReferencesSettings::strangeValues()
{
    IniFile file("[References]\ndBReference=loud\nreferenceStep=1e9\nplotGroupMode=-7\nplotSizeMode=99\n"
                 "gain=nan\nwaveTimeLength=99999999999999999999\n");
    CReferencesSettings settings = filled();
    settings.load(file.store(), kGroup);
    QCOMPARE(settings.dBReference(), 0);
    QCOMPARE(settings.referenceStep(), 0);
    QCOMPARE(static_cast<int>(settings.plotGroupMode()), -7);
    QCOMPARE(static_cast<int>(settings.plotSizeMode()), 99);
    QVERIFY(settings.gain() == 0.0);
    QCOMPARE(settings.waveTimeLength(), 0);
}

void tst_CReferencesSettings::withoutAStoreNothingHappens()
{
    CReferencesSettings settings = filled();
    settings.save(nullptr, kGroup);
    settings.load(nullptr, kGroup);
    QVERIFY(settings == filled());
}

QTEST_APPLESS_MAIN(tst_CReferencesSettings)
#include "tst_CReferencesSettings.moc"
