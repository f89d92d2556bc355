// The files that the settings classes write, as a reader in another language sees them.
#include "NvxQtCommon/settings/CChartsSettings.h"
#include "NvxQtCommon/settings/CReferencesSettings.h"
#include "NvxQtCommon/settings/CServerStreamSettings.h"
#include "NvxQtCommon/settings/CSignalPowerSettings.h"
#include "tests/settings/IniFile.h"
#include "tests/settings/PythonIni.h"
#include "tests/support/NvxTestCase.h"

class tst_settings_file : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void pythonReadsEveryValue();
    // --- rainy day flows
    void whatStoodThereBeforeIsReplaced();
};

void tst_settings_file::pythonReadsEveryValue()
{
    CSignalPowerSettings power;
    power.setRates(96000, 64000, true);
    power.setMinFreqWave(100);
    power.setMinFreqFFT(200);
    CChartsSettings charts;
    CServerStreamSettings server;
    CReferencesSettings references;
    references.setDBReference(-170);
    references.setGain(-0.25);

    IniFile file;
    power.save(file.store(), QStringLiteral("SignalPower"));
    charts.save(file.store(), QStringLiteral("Charts"));
    server.save(file.store(), QStringLiteral("Server"));
    server.saveInstance(file.store(), QStringLiteral("Instance"), true);
    references.save(file.store(), QStringLiteral("References"));
    file.reopen();

    const IniTexts expected{{"SignalPower/SmplRangeWave", "96000"},
                            {"SignalPower/SmplRangeFFT", "64000"},
                            {"SignalPower/MinFreqWave", "100"},
                            {"SignalPower/MaxFreqWave", "48000"},
                            {"SignalPower/MinFreqFFT", "200"},
                            {"SignalPower/MaxFreqFFT", "32000"},
                            {"SignalPower/FreqResWave", "94"},
                            {"SignalPower/FreqResFFT", "63"},
                            {"SignalPower/Enabled", "true"},
                            {"SignalPower/SameRanges", "false"},
                            {"Charts/lgndAlignment", "1"},
                            {"Charts/chartMarkers", "true"},
                            {"Charts/markerSize", "7"},
                            {"Server/isStreamSgnPower", "true"},
                            {"Server/isStreamSPLrms", "false"},
                            {"Server/isStreamPeak", "false"},
                            {"Server/isStreamSELcum", "false"},
                            {"Server/isDevAlias", "true"},
                            {"Server/messageID", "PMVE"},
                            {"Instance/UDPServerPort", "54545"},
                            {"References/dBReference", "-170"},
                            {"References/referenceStep", "0"},
                            {"References/plotGroupMode", "0"},
                            {"References/plotSizeMode", "0"},
                            {"References/gain", "-0.25"},
                            {"References/waveTimeLength", "0"}};
    QCOMPARE(textsByPython(file.path()), expected);
}

void tst_settings_file::whatStoodThereBeforeIsReplaced()
{
    IniFile file("[Charts]\nmarkerSize=many\nchartMarkers=perhaps\nother=kept\n");
    CChartsSettings().save(file.store(), QStringLiteral("Charts"));
    file.reopen();
    const IniTexts charts = textsByPython(file.path());
    QCOMPARE(charts.value(QStringLiteral("Charts/markerSize")), QStringLiteral("7"));
    QCOMPARE(charts.value(QStringLiteral("Charts/chartMarkers")), QStringLiteral("true"));
    QCOMPARE(charts.value(QStringLiteral("Charts/other")), QStringLiteral("kept"));
}

QTEST_GUILESS_MAIN(tst_settings_file)
#include "tst_settings_file.moc"
