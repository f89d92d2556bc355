#include "NvxQtCommon/settings/CChartsSettings.h"
#include "tests/settings/IniFile.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QString kGroup = QStringLiteral("Charts");

} // namespace

class tst_CChartsSettings : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaults();
    void everyKeyIsWrittenAndRead();
    void eachValueCounts();
    // --- rainy day flows
    void missingKeysLoadAsNothing();
    void alignments_data();
    void alignments();
    void withoutAStoreNothingHappens();
};

void tst_CChartsSettings::defaults()
{
    const CChartsSettings settings;
    QCOMPARE(static_cast<int>(settings.lgndAlignment()), 1);
    QVERIFY(settings.isChartMarkers());
    QCOMPARE(settings.markerSize(), 7);
}

void tst_CChartsSettings::everyKeyIsWrittenAndRead()
{
    CChartsSettings settings;
    settings.setLgndAlignment(Qt::AlignBottom);
    settings.setIsChartMarkers(false);
    settings.setMarkerSize(-3);
    IniFile file;
    settings.save(file.store(), kGroup);
    CChartsSettings other;
    other.load(file.reopen(), kGroup);
    QCOMPARE(file.keys(),
             QStringList({QStringLiteral("Charts/chartMarkers"), QStringLiteral("Charts/lgndAlignment"),
                          QStringLiteral("Charts/markerSize")}));
    QCOMPARE(file.value(QStringLiteral("Charts/lgndAlignment")).toString(), QStringLiteral("64"));
    QCOMPARE(file.value(QStringLiteral("Charts/chartMarkers")).toString(), QStringLiteral("false"));
    QCOMPARE(file.value(QStringLiteral("Charts/markerSize")).toString(), QStringLiteral("-3"));
    QVERIFY(other == settings);
    QCOMPARE(other.lgndAlignment(), Qt::AlignBottom);
    QVERIFY(!other.isChartMarkers());
    QCOMPARE(other.markerSize(), -3);
}

void tst_CChartsSettings::eachValueCounts()
{
    const CChartsSettings settings;
    CChartsSettings other;
    other.setLgndAlignment(Qt::AlignRight);
    QVERIFY(!(other == settings));
    other = settings;
    other.setIsChartMarkers(false);
    QVERIFY(!(other == settings));
    other = settings;
    other.setMarkerSize(8);
    QVERIFY(!(other == settings));
    other = settings;
    QVERIFY(other == settings);
}

void tst_CChartsSettings::missingKeysLoadAsNothing()
{
    CChartsSettings settings;
    IniFile file;
    settings.load(file.store(), kGroup);
    QCOMPARE(static_cast<int>(settings.lgndAlignment()), 0);
    QVERIFY(!settings.isChartMarkers());
    QCOMPARE(settings.markerSize(), 0);
}

void tst_CChartsSettings::alignments_data()
{
    QTest::addColumn<QByteArray>("stored");
    QTest::addColumn<int>("alignment");
    QTest::newRow("right") << QByteArray("2") << 2;
    QTest::newRow("baseline") << QByteArray("256") << 256;
    QTest::newRow("two bits") << QByteArray("36") << 36;
    QTest::newRow("every bit") << QByteArray("511") << 511;
    QTest::newRow("one bit too high") << QByteArray("512") << 0;
    QTest::newRow("negative") << QByteArray("-1") << 0;
    QTest::newRow("largest") << QByteArray("2147483647") << 0;
    QTest::newRow("no number") << QByteArray("left") << 0;
}

void tst_CChartsSettings::alignments()
{
    QFETCH(QByteArray, stored);
    QFETCH(int, alignment);
    IniFile file("[Charts]\nlgndAlignment=" + stored + '\n');
    CChartsSettings settings;
    settings.load(file.store(), kGroup);
    QCOMPARE(static_cast<int>(settings.lgndAlignment()), alignment);
}

void tst_CChartsSettings::withoutAStoreNothingHappens()
{
    CChartsSettings settings;
    settings.save(nullptr, kGroup);
    settings.load(nullptr, kGroup);
    QVERIFY(settings == CChartsSettings());
}

QTEST_APPLESS_MAIN(tst_CChartsSettings)
#include "tst_CChartsSettings.moc"
