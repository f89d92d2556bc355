#include "NvxQtCommon/settings/CLogSettings.h"
#include "tests/settings/StoredValue.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QString kGroup = QStringLiteral("Logs");

StoredValues<CLogSettings> values()
{
    using S = CLogSettings;
    return {
        storedValue("LogPathData/WavPrefix", "VEW", &S::wavPrefix, &S::setWavPrefix),
        storedValue("LogPathData/FftPrefix", "VEF", &S::fftPrefix, &S::setFftPrefix),
        storedValue("LogPathData/FftComment", "", &S::fftComment, &S::setFftComment),
        storedValue("LogPathData/LogWAVEMode", "0", &S::logWAVEMode, &S::setLogWAVEMode),
        storedValue("LogPathData/LogFftMode", "0", &S::logFftMode, &S::setLogFftMode),
        storedValue("LogPathData/WavOutDir", expectedFolder(), &S::wavOutputDir, &S::setWavOutputDir),
        storedValue("LogPathData/FftOutDir", expectedFolder(), &S::fftOutputDir, &S::setFftOutputDir),
        storedValue("LogPathData/LogWAVELength", "1", &S::logWAVELength, &S::setLogWAVELength),
        storedValue("LogPathData/LogFftLength", "1", &S::logFftLength, &S::setLogFftLength),
        storedValue("LogPathData/LogWAVETime", "0", &S::wavTimeLog, &S::setWavTimeLog),
        storedValue("LogPathData/fftFromWAVE", "0", &S::fftFromWAVE, &S::setFftFromWAVE),
        storedValue("Screenshot/screenshotDir", expectedFolder(), &S::screenshotDir, &S::setScreenshotDir),
        storedValue("Screenshot/screenshotMode", "0", &S::screenshotMode, &S::setScreenshotMode),
        storedValue("Screenshot/screenshotTime", "1", &S::screenshotTime, &S::setScreenshotTime),
        storedValue("AccelrMagntr/logAccMagDir", expectedFolder(), &S::accMagOutputDir,
                    &S::setAccMagOutputDir),
        storedValue("AccelrMagntr/logAccMagMode", "0", &S::logAccMagMode, &S::setLogAccMagMode),
        storedValue("AccelrMagntr/logAccMagLength", "1", &S::logAccMagLength, &S::setLogAccMagLength),
        storedValue("Battery/logBatteryDir", expectedFolder(), &S::batteryDir, &S::setBatteryDir),
        storedValue("Battery/logBatteryMode", "0", &S::logBatteryMode, &S::setLogBatteryMode),
        storedValue("Battery/logBatteryLength", "1000", &S::logBatteryLength, &S::setLogBatteryLength),
        storedValue("Battery/logBatteryInterv", "5", &S::logBatteryInterv, &S::setLogBatteryInterv),
    };
}

} // namespace

class tst_CLogSettings : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaults()
    {
        QCOMPARE(values().size(), 21);
        checkDefaults(values());
    }
    void everyKeyIsWrittenAndRead() { checkRoundTrip(values(), kGroup); }
    void eachValueCounts() { checkEachValueCounts(values()); }

    // --- rainy day flows
    void emptyGroupZeroesNumbersAndKeepsTexts() { checkMissingKeys(values(), kGroup); }

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
};

QTEST_GUILESS_MAIN(tst_CLogSettings)
#include "tst_CLogSettings.moc"
