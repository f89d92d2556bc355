#include "NvxQtCommon/settings/CClickDetectSettings.h"
#include "tests/settings/StoredValue.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QString kGroup = QStringLiteral("Detector");

StoredValues<CClickDetectSettings> values()
{
    using S = CClickDetectSettings;
    return {
        storedValue("ClickOutputDir", expectedFolder(), &S::clickOutputDir, &S::setClickOutputDir),
        storedValue("ClickPrefix", "Click", &S::clickPrefix, &S::setClickPrefix),
        storedValue("ClickComment", "", &S::clickComment, &S::setClickComment),
        storedValue("LogClickMode", "0", &S::logClickMode, &S::setLogClickMode),
        storedValue("LogClickLength", "1000", &S::logClickLength, &S::setLogClickLength),
    };
}

} // namespace

class tst_CClickDetectSettings : public NvxTestCase
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
        IniFile file("[Detector]\nClickPrefix=\n");
        CClickDetectSettings settings;
        settings.load(file.store(), kGroup);
        QCOMPARE(settings.clickPrefix(), CClickDetectSettings().clickPrefix());
        QVERIFY(!settings.clickPrefix().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_CClickDetectSettings)
#include "tst_CClickDetectSettings.moc"
