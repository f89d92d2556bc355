// What CSignalPowerSettings keeps and stores; tst_CSignalPowerBins has its arithmetic.
#include "NvxQtCommon/settings/CSignalPowerSettings.h"
#include "tests/settings/IniFile.h"
#include "tests/support/NvxTestCase.h"

#include <limits>

namespace {

const QString kGroup = QStringLiteral("SignalPower");

/// All ten keys with values of their own.
const QByteArray kFile = "[SignalPower]\nSmplRangeWave=1\nSmplRangeFFT=2\nMinFreqWave=3\nMaxFreqWave=4\n"
                         "MinFreqFFT=5\nMaxFreqFFT=6\nFreqResWave=7\nFreqResFFT=8\nEnabled=false\n"
                         "SameRanges=false\n";

CSignalPowerSettings loaded(const QByteArray& text)
{
    IniFile file(text);
    CSignalPowerSettings settings;
    settings.load(file.store(), kGroup);
    return settings;
}

} // namespace

class tst_CSignalPowerSettings : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaults();
    void setters();
    void everyKeyIsWritten();
    void everyKeyIsRead();
    void exactWidthsAreNotStored();
    void copiesAreEqual();
    void eachValueCounts_data();
    void eachValueCounts();
    // --- rainy day flows
    void missingKeysLoadAsNothing();
    void strangeValues();
    void withoutAStoreNothingHappens();
};

void tst_CSignalPowerSettings::defaults()
{
    const CSignalPowerSettings settings;
    QCOMPARE(settings.smplRangeWave(), 0);
    QCOMPARE(settings.smplRangeFFT(), 0);
    QCOMPARE(settings.minFreqWave(), 0);
    QCOMPARE(settings.maxFreqWave(), 0);
    QCOMPARE(settings.minFreqFFT(), 0);
    QCOMPARE(settings.maxFreqFFT(), 0);
    QCOMPARE(settings.freqResWave(), 0);
    QCOMPARE(settings.freqResFFT(), 0);
    QVERIFY(settings.dFreqResWave() == 0.0);
    QVERIFY(settings.dFreqResFFT() == 0.0);
    QVERIFY(settings.isEnabled());
    QVERIFY(settings.isSameRanges());
}

void tst_CSignalPowerSettings::setters()
{
    CSignalPowerSettings settings;
    settings.setMinFreqWave(1);
    settings.setMaxFreqWave(2);
    settings.setMinFreqFFT(3);
    settings.setMaxFreqFFT(4);
    settings.setEnabled(false);
    settings.setSameRanges(false);
    const CSignalPowerSettings copy = settings;
    QCOMPARE(copy.minFreqWave(), 1);
    QCOMPARE(copy.maxFreqWave(), 2);
    QCOMPARE(copy.minFreqFFT(), 3);
    QCOMPARE(copy.maxFreqFFT(), 4);
    QVERIFY(!copy.isEnabled());
    QVERIFY(!copy.isSameRanges());
    settings.minFreqWave() += 10;
    settings.maxFreqWave() += 10;
    settings.minFreqFFT() += 10;
    settings.maxFreqFFT() += 10;
    QCOMPARE(settings.minFreqWave(), 11);
    QCOMPARE(settings.maxFreqWave(), 12);
    QCOMPARE(settings.minFreqFFT(), 13);
    QCOMPARE(settings.maxFreqFFT(), 14);
}

void tst_CSignalPowerSettings::everyKeyIsWritten()
{
    IniFile file;
    loaded(kFile).save(file.store(), kGroup);
    QCOMPARE(file.store()->group(), QString());
    file.reopen();
    const QList<QPair<const char*, const char*>> expected{
        {"SmplRangeWave", "1"}, {"SmplRangeFFT", "2"},  {"MinFreqWave", "3"}, {"MaxFreqWave", "4"},
        {"MinFreqFFT", "5"},    {"MaxFreqFFT", "6"},    {"FreqResWave", "7"}, {"FreqResFFT", "8"},
        {"Enabled", "false"},   {"SameRanges", "false"}};
    QCOMPARE(file.keys().size(), expected.size());
    for (const auto& [key, value] : expected)
        QCOMPARE(file.value(kGroup + u'/' + QLatin1String(key)).toString(), QLatin1String(value));
}

void tst_CSignalPowerSettings::everyKeyIsRead()
{
    const CSignalPowerSettings settings = loaded(kFile);
    QCOMPARE(settings.smplRangeWave(), 1);
    QCOMPARE(settings.smplRangeFFT(), 2);
    QCOMPARE(settings.minFreqWave(), 3);
    QCOMPARE(settings.maxFreqWave(), 4);
    QCOMPARE(settings.minFreqFFT(), 5);
    QCOMPARE(settings.maxFreqFFT(), 6);
    QCOMPARE(settings.freqResWave(), 7);
    QCOMPARE(settings.freqResFFT(), 8);
    QVERIFY(!settings.isEnabled());
    QVERIFY(!settings.isSameRanges());
}

void tst_CSignalPowerSettings::exactWidthsAreNotStored()
{
    CSignalPowerSettings settings;
    settings.setRates(96000, 64000, true);
    IniFile file;
    settings.save(file.store(), kGroup);
    CSignalPowerSettings other;
    other.load(file.reopen(), kGroup);
    QCOMPARE(other.freqResWave(), settings.freqResWave());
    QVERIFY(other.dFreqResWave() == 0.0);
    QVERIFY(other.dFreqResFFT() == 0.0);
    QCOMPARE(other.getMaxBinIndFFT(77), 77);
    // The rates are known already, so the range that was stored stays.
    settings.setMaxFreqFFT(10000);
    settings.save(file.store(), kGroup);
    other.load(file.store(), kGroup);
    other.setRates(96000, 64000, true);
    QVERIFY(other == settings);
}

void tst_CSignalPowerSettings::copiesAreEqual()
{
    CSignalPowerSettings settings = loaded(kFile);
    settings.setRates(96000, 64000, true);
    CSignalPowerSettings other;
    QVERIFY(!(other == settings));
    other = settings;
    QVERIFY(other == settings);
    QVERIFY(other.dFreqResWave() == settings.dFreqResWave());
}

void tst_CSignalPowerSettings::eachValueCounts_data()
{
    QTest::addColumn<QByteArray>("line");
    for (const QByteArray& line : kFile.split('\n').mid(1)) {
        if (!line.isEmpty())
            QTest::newRow(line.constData()) << line;
    }
}

void tst_CSignalPowerSettings::eachValueCounts()
{
    QFETCH(QByteArray, line);
    QByteArray without = kFile;
    without.replace(line + '\n', line.endsWith("false") ? line.split('=').first() + "=true\n" : QByteArray());
    QVERIFY(without != kFile);
    QVERIFY(!(loaded(without) == loaded(kFile)));
    QVERIFY(loaded(kFile) == loaded(kFile));
}

void tst_CSignalPowerSettings::missingKeysLoadAsNothing()
{
    CSignalPowerSettings settings;
    settings.setRates(96000, 64000, true);
    IniFile file("[Other]\nMinFreqWave=3\n");
    settings.load(file.store(), kGroup);
    QCOMPARE(file.store()->group(), QString());
    QCOMPARE(settings.smplRangeWave(), 0);
    QCOMPARE(settings.smplRangeFFT(), 0);
    QCOMPARE(settings.maxFreqWave(), 0);
    QCOMPARE(settings.maxFreqFFT(), 0);
    QCOMPARE(settings.freqResWave(), 0);
    QCOMPARE(settings.freqResFFT(), 0);
    QVERIFY(!settings.isEnabled());
    QVERIFY(!settings.isSameRanges());
}

void tst_CSignalPowerSettings::strangeValues()
{
    CSignalPowerSettings settings =
        loaded("[SignalPower]\nSmplRangeWave=many\nMinFreqFFT=-2147483648\n"
               "MaxFreqFFT=2147483647\nMaxFreqWave=4294967301\nEnabled=perhaps\n");
    QCOMPARE(settings.smplRangeWave(), 0);
    QCOMPARE(settings.maxFreqWave(), 5);
    QCOMPARE(settings.minFreqFFT(), std::numeric_limits<int>::min());
    QCOMPARE(settings.maxFreqFFT(), std::numeric_limits<int>::max());
    QVERIFY(settings.isEnabled());
}

void tst_CSignalPowerSettings::withoutAStoreNothingHappens()
{
    CSignalPowerSettings settings;
    settings.setMinFreqFFT(7);
    settings.save(nullptr, kGroup);
    settings.load(nullptr, kGroup);
    QCOMPARE(settings.minFreqFFT(), 7);
    QVERIFY(settings.isEnabled());
}

QTEST_APPLESS_MAIN(tst_CSignalPowerSettings)
#include "tst_CSignalPowerSettings.moc"
