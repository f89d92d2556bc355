// The files that the settings classes write, as a reader in another language sees them.
#include "NvxQtCommon/settings/CChartsSettings.h"
#include "NvxQtCommon/settings/CReferencesSettings.h"
#include "NvxQtCommon/settings/CServerStreamSettings.h"
#include "NvxQtCommon/settings/CSignalPowerSettings.h"
#include "tests/settings/IniFile.h"
#include "tests/support/NvxTestCase.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace {

/// What Python reads from a file; empty where it fails.
QJsonObject readByPython(const QString& path)
{
    QProcess python;
    python.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    python.start(QStringLiteral(NVX_PYTHON), {QStringLiteral("-B"), QStringLiteral(NVX_INI_READER), path});
    if (!python.waitForFinished() || python.exitCode() != 0)
        return {};
    return QJsonDocument::fromJson(python.readAllStandardOutput()).object();
}

} // namespace

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

    const QJsonObject expected{
        {QStringLiteral("SignalPower"),
         QJsonObject{{QStringLiteral("SmplRangeWave"), QStringLiteral("96000")},
                     {QStringLiteral("SmplRangeFFT"), QStringLiteral("64000")},
                     {QStringLiteral("MinFreqWave"), QStringLiteral("100")},
                     {QStringLiteral("MaxFreqWave"), QStringLiteral("48000")},
                     {QStringLiteral("MinFreqFFT"), QStringLiteral("200")},
                     {QStringLiteral("MaxFreqFFT"), QStringLiteral("32000")},
                     {QStringLiteral("FreqResWave"), QStringLiteral("94")},
                     {QStringLiteral("FreqResFFT"), QStringLiteral("63")},
                     {QStringLiteral("Enabled"), QStringLiteral("true")},
                     {QStringLiteral("SameRanges"), QStringLiteral("false")}}},
        {QStringLiteral("Charts"), QJsonObject{{QStringLiteral("lgndAlignment"), QStringLiteral("1")},
                                               {QStringLiteral("chartMarkers"), QStringLiteral("true")},
                                               {QStringLiteral("markerSize"), QStringLiteral("7")}}},
        {QStringLiteral("Server"), QJsonObject{{QStringLiteral("isStreamSgnPower"), QStringLiteral("true")},
                                               {QStringLiteral("isStreamSPLrms"), QStringLiteral("false")},
                                               {QStringLiteral("isStreamPeak"), QStringLiteral("false")},
                                               {QStringLiteral("isStreamSELcum"), QStringLiteral("false")},
                                               {QStringLiteral("isDevAlias"), QStringLiteral("true")},
                                               {QStringLiteral("messageID"), QStringLiteral("PMVE")}}},
        {QStringLiteral("Instance"), QJsonObject{{QStringLiteral("UDPServerPort"), QStringLiteral("54545")}}},
        {QStringLiteral("References"), QJsonObject{{QStringLiteral("dBReference"), QStringLiteral("-170")},
                                                   {QStringLiteral("referenceStep"), QStringLiteral("0")},
                                                   {QStringLiteral("plotGroupMode"), QStringLiteral("0")},
                                                   {QStringLiteral("plotSizeMode"), QStringLiteral("0")},
                                                   {QStringLiteral("gain"), QStringLiteral("-0.25")},
                                                   {QStringLiteral("waveTimeLength"), QStringLiteral("0")}}},
    };
    QCOMPARE(readByPython(file.path()), expected);
}

void tst_settings_file::whatStoodThereBeforeIsReplaced()
{
    IniFile file("[Charts]\nmarkerSize=many\nchartMarkers=perhaps\nother=kept\n");
    CChartsSettings().save(file.store(), QStringLiteral("Charts"));
    file.reopen();
    const QJsonObject charts = readByPython(file.path()).value(QStringLiteral("Charts")).toObject();
    QCOMPARE(charts.value(QStringLiteral("markerSize")).toString(), QStringLiteral("7"));
    QCOMPARE(charts.value(QStringLiteral("chartMarkers")).toString(), QStringLiteral("true"));
    QCOMPARE(charts.value(QStringLiteral("other")).toString(), QStringLiteral("kept"));
}

QTEST_GUILESS_MAIN(tst_settings_file)
#include "tst_settings_file.moc"
