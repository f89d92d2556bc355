#include "NvxQtCommon/settings/CLogSettings.h"
#include "tests/settings/IniFile.h"
#include "tests/support/NvxTestCase.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>

#include <functional>

namespace {

const QString kGroup = QStringLiteral("Logs");

/// One stored value: its key, its default, and how it is read and set.
struct Value
{
    const char* key;
    QString standard;
    std::function<QString(const CLogSettings&)> get;
    std::function<void(CLogSettings&, const QString&)> set;
    bool isText;
};

template <auto Getter, auto Setter> Value text(const char* key, const QString& standard)
{
    return {key, standard, [](const CLogSettings& settings) { return (settings.*Getter)(); },
            [](CLogSettings& settings, const QString& value) { (settings.*Setter)(value); }, true};
}

template <auto Getter, auto Setter> Value number(const char* key, int standard)
{
    using Number = std::invoke_result_t<decltype(Getter), const CLogSettings&>;
    return {
        key, QString::number(standard),
        [](const CLogSettings& settings) { return QString::number(static_cast<int>((settings.*Getter)())); },
        [](CLogSettings& settings, const QString& value) {
            (settings.*Setter)(static_cast<Number>(value.toInt()));
        },
        false};
}

QList<Value> values()
{
    using S = CLogSettings;
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + "/Nerivox/" +
                           QFileInfo(QCoreApplication::applicationFilePath()).baseName();
    return {
        text<&S::wavPrefix, &S::setWavPrefix>("LogPathData/WavPrefix", "VEW"),
        text<&S::fftPrefix, &S::setFftPrefix>("LogPathData/FftPrefix", "VEF"),
        text<&S::fftComment, &S::setFftComment>("LogPathData/FftComment", ""),
        number<&S::logWAVEMode, &S::setLogWAVEMode>("LogPathData/LogWAVEMode", 0),
        number<&S::logFftMode, &S::setLogFftMode>("LogPathData/LogFftMode", 0),
        text<&S::wavOutputDir, &S::setWavOutputDir>("LogPathData/WavOutDir", folder),
        text<&S::fftOutputDir, &S::setFftOutputDir>("LogPathData/FftOutDir", folder),
        number<&S::logWAVELength, &S::setLogWAVELength>("LogPathData/LogWAVELength", 1),
        number<&S::logFftLength, &S::setLogFftLength>("LogPathData/LogFftLength", 1),
        number<&S::wavTimeLog, &S::setWavTimeLog>("LogPathData/LogWAVETime", 0),
        number<&S::fftFromWAVE, &S::setFftFromWAVE>("LogPathData/fftFromWAVE", 0),
        text<&S::screenshotDir, &S::setScreenshotDir>("Screenshot/screenshotDir", folder),
        number<&S::screenshotMode, &S::setScreenshotMode>("Screenshot/screenshotMode", 0),
        number<&S::screenshotTime, &S::setScreenshotTime>("Screenshot/screenshotTime", 1),
        text<&S::accMagOutputDir, &S::setAccMagOutputDir>("AccelrMagntr/logAccMagDir", folder),
        number<&S::logAccMagMode, &S::setLogAccMagMode>("AccelrMagntr/logAccMagMode", 0),
        number<&S::logAccMagLength, &S::setLogAccMagLength>("AccelrMagntr/logAccMagLength", 1),
        text<&S::batteryDir, &S::setBatteryDir>("Battery/logBatteryDir", folder),
        number<&S::logBatteryMode, &S::setLogBatteryMode>("Battery/logBatteryMode", 0),
        number<&S::logBatteryLength, &S::setLogBatteryLength>("Battery/logBatteryLength", 1000),
        number<&S::logBatteryInterv, &S::setLogBatteryInterv>("Battery/logBatteryInterv", 5),
    };
}

/// A value that is neither the default nor that of another key.
QString otherValue(const Value& value, qsizetype index)
{
    return value.isText ? QStringLiteral("text %1, with = and \u00e4").arg(index)
                        : QString::number(100 + index);
}

} // namespace

class tst_CLogSettings : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaults()
    {
        const CLogSettings settings;
        for (const Value& value : values())
            QCOMPARE(value.get(settings), value.standard);
    }

    void everyKeyIsWrittenAndRead()
    {
        const QList<Value> all = values();
        QCOMPARE(all.size(), 21);
        CLogSettings settings;
        for (qsizetype i = 0; i < all.size(); ++i)
            all[i].set(settings, otherValue(all[i], i));
        IniFile file;
        settings.save(file.store(), kGroup);
        CLogSettings other;
        QVERIFY(!(other == settings));
        other.load(file.reopen(), kGroup);
        QVERIFY(other == settings);
        QCOMPARE(file.keys().size(), all.size());
        for (qsizetype i = 0; i < all.size(); ++i) {
            QCOMPARE(file.value(kGroup + '/' + all[i].key).toString(), otherValue(all[i], i));
            QCOMPARE(all[i].get(other), otherValue(all[i], i));
        }
    }

    void eachValueCounts()
    {
        const QList<Value> all = values();
        for (qsizetype i = 0; i < all.size(); ++i) {
            CLogSettings settings;
            all[i].set(settings, otherValue(all[i], i));
            QVERIFY2(!(settings == CLogSettings()), all[i].key);
            CLogSettings copy;
            copy = settings;
            QVERIFY(copy == settings);
        }
    }

    // --- rainy day flows
    void emptyGroupZeroesNumbersAndKeepsTexts()
    {
        const QList<Value> all = values();
        CLogSettings settings;
        for (qsizetype i = 0; i < all.size(); ++i)
            all[i].set(settings, otherValue(all[i], i));
        IniFile file;
        settings.load(file.store(), kGroup);
        for (qsizetype i = 0; i < all.size(); ++i)
            QCOMPARE(all[i].get(settings), all[i].isText ? otherValue(all[i], i) : QStringLiteral("0"));
    }

    void emptyTextKeepsTheDefault()
    {
        IniFile file("[Logs]\nLogPathData\\WavPrefix=\nLogPathData\\FftPrefix=X\n");
        CLogSettings settings;
        settings.load(file.store(), kGroup);
        QCOMPARE(settings.wavPrefix(), QStringLiteral("VEW"));
        QCOMPARE(settings.fftPrefix(), QStringLiteral("X"));
    }

    void numbersThatAreNone()
    {
        IniFile file("[Logs]\nLogPathData\\LogWAVELength=many\nScreenshot\\screenshotTime=-7\n"
                     "Battery\\logBatteryMode=70000\n");
        CLogSettings settings;
        settings.load(file.store(), kGroup);
        QCOMPARE(settings.logWAVELength(), uint16_t{0});
        QCOMPARE(settings.screenshotTime(), -7);
        // The low 16 bits of a number that is wider than its field.
        QCOMPARE(static_cast<int>(settings.logBatteryMode()), 70000 - 65536);
    }

    void withoutAStoreNothingHappens()
    {
        CLogSettings settings;
        settings.save(nullptr, kGroup);
        settings.load(nullptr, kGroup);
        QVERIFY(settings == CLogSettings());
    }

    void storeIsLeftInItsGroup()
    {
        IniFile file;
        const CLogSettings settings;
        settings.save(file.store(), kGroup);
        QVERIFY(file.store()->group().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_CLogSettings)
#include "tst_CLogSettings.moc"
