// Random spectra, and what the library makes of them, judged by a reference in another language.
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/TestSeed.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <span>

namespace {

constexpr int kSpectra = 1000;

using Values = std::vector<unsigned char>;

/// A number with all its bits.
QString hex(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%a", value);
    return QString::fromLatin1(text);
}

double fromHex(const QString& text)
{
    return std::strtod(text.toLatin1().constData(), nullptr);
}

template <class Numbers> QJsonArray hexArray(const Numbers& numbers)
{
    QJsonArray array;
    for (const auto number : numbers)
        array << hex(static_cast<double>(number));
    return array;
}

QJsonArray array(const Values& values)
{
    QJsonArray array;
    for (const int value : values)
        array << value;
    return array;
}

} // namespace

class tst_spectrum_reference : public NvxTestCase
{
    Q_OBJECT

private:
    int below(int limit) { return static_cast<int>(m_random.bounded(limit)); }
    float level(double from, double to)
    {
        return static_cast<float>(from + m_random.generateDouble() * (to - from));
    }
    Values randomValues(int count);
    QJsonObject powerCase();
    QJsonObject filterCase(int spectra);
    QString write(const QList<QJsonObject>& cases);
    int judge(const QString& path, QString* said = nullptr);

    FftParamsGuard m_params;
    QTemporaryDir m_folder;
    QRandomGenerator m_random;

private Q_SLOTS:
    void initTestCase();
    void cleanup() { m_params.restore(); }

    // --- happy flows
    void totalPowerAndBins();
    void noiseFilters();
    // --- rainy day flows
    void referenceFindsDifferences_data();
    void referenceFindsDifferences();
};

void tst_spectrum_reference::initTestCase()
{
    QVERIFY(m_folder.isValid());
    m_random = QRandomGenerator(testSeed());
}

Values tst_spectrum_reference::randomValues(int count)
{
    Values values(static_cast<size_t>(count));
    for (unsigned char& value : values)
        value = static_cast<unsigned char>(below(256));
    return values;
}

/// One spectrum through an adapter of random settings.
QJsonObject tst_spectrum_reference::powerCase()
{
    const int bins = 1 + below(600);
    const double fraction = below(4) == 0 ? m_random.generateDouble() : 0.5;
    FFT_Params_FFT.setNumBins(static_cast<uint32_t>(bins));
    FFT_Params_FFT.setFraction(fraction);
    const int rate = below(10) == 0 ? 0 : below(512001);
    const int low = below(std::max(1, rate)) - 1000;
    const int high = below(std::max(1, rate));
    const bool enabled = below(8) != 0;
    CSignalPowerSettings range;
    range.setRates(-1, rate, enabled); // another wave rate, so that the ranges are apart
    range.setMinFreqFFT(low);
    range.setMaxFreqFFT(high);
    range.setRates(-1, rate, enabled);

    const HydStreamType types[] = {StreamSpectrum, StreamSpectrumScan, StreamSpectrumFile};
    const HydStreamType type = types[below(3)];
    HydStreamAdapter adapter(type, 1, kDevice, kLongPeriod, false);
    double total = 0.0;
    connect(&adapter, &HydStreamAdapter::signalTotalPower, this,
            [&total](const HydDeviceId&, double value) { total = value; });
    NvxDataScale scale;
    scale.fullScaleDb = level(-250.0, 0.0);
    scale.sensitivityDb = level(-250.0, 0.0);
    adapter.setDeviceScale(scale);
    adapter.setSignalPowerSet(range);

    const Values values = randomValues(below(700));
    const auto filter = std::make_shared<NvxNoiseFilter>(kDevice, QString(), SampRate{0});
    if (below(2) == 0) {
        for (size_t bin = 0; bin < values.size(); ++bin)
            filter->data().push_back(level(0.0, 130.0));
        adapter.setNoiseFilter(filter);
        adapter.setNoiseFiltMode(NoiseFilterSubtract, {});
    }
    const auto payload = streamframes::spectrum(values);
    adapter.dataProcFFT(payload);
    const auto doubles = payload->data()->doubles();
    const std::span<const double> filtered(doubles.get(), payload->isNoiseFiltered() ? values.size() : 0);

    return {{QStringLiteral("kind"), QStringLiteral("power")},
            {QStringLiteral("type"), int{type}},
            {QStringLiteral("fraction"), hex(fraction)},
            {QStringLiteral("bins"), bins},
            {QStringLiteral("rate"), rate},
            {QStringLiteral("low"), low},
            {QStringLiteral("high"), high},
            {QStringLiteral("enabled"), enabled},
            {QStringLiteral("indices"), QJsonArray{range.getMinBinIndFFT(), range.getMaxBinIndFFT(bins)}},
            {QStringLiteral("values"), array(values)},
            {QStringLiteral("decibels"), array(streamframes::valuesOf(*payload))},
            {QStringLiteral("fullScale"), hex(static_cast<double>(scale.fullScaleDb))},
            {QStringLiteral("sensitivity"), hex(static_cast<double>(scale.sensitivityDb))},
            {QStringLiteral("noise"), hexArray(filter->data())},
            {QStringLiteral("filtered"), hexArray(filtered)},
            {QStringLiteral("total"), hex(total)}};
}

/// A filter of random spectra, of bytes or of doubles.
QJsonObject tst_spectrum_reference::filterCase(int spectra)
{
    const int bins = 1 + below(600);
    const bool asDouble = below(2) == 0;
    NvxNoiseFilter filter;
    QJsonArray added;
    for (int i = 0; i < spectra; ++i) {
        Values bytes = randomValues(bins);
        std::vector<double> doubles;
        for (const unsigned char value : bytes)
            doubles.push_back(asDouble ? value + m_random.generateDouble() : value);
        filter.addData(asDouble, bins, asDouble ? doubles.data() : nullptr,
                       asDouble ? nullptr : bytes.data());
        added << hexArray(doubles);
    }
    filter.calcAvg();
    return {{QStringLiteral("kind"), QStringLiteral("filter")},
            {QStringLiteral("spectra"), added},
            {QStringLiteral("filter"), hexArray(filter.data())}};
}

QString tst_spectrum_reference::write(const QList<QJsonObject>& cases)
{
    QFile file(m_folder.filePath(QStringLiteral("cases.txt")));
    if (!file.open(QIODevice::WriteOnly))
        return {};
    for (const QJsonObject& one : cases)
        file.write(QJsonDocument(one).toJson(QJsonDocument::Compact) + '\n');
    return file.fileName();
}

/// Exit code of the reference.
int tst_spectrum_reference::judge(const QString& path, QString* said)
{
    QProcess python;
    if (said == nullptr)
        python.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    python.start(QStringLiteral(NVX_PYTHON),
                 {QStringLiteral("-B"), QStringLiteral(NVX_SPECTRUM_REFERENCE), path});
    if (!python.waitForFinished(-1) || python.exitStatus() != QProcess::NormalExit)
        return -1;
    qInfo("%s", python.readAllStandardOutput().constData());
    if (said != nullptr)
        *said = QString::fromUtf8(python.readAllStandardError());
    return python.exitCode();
}

void tst_spectrum_reference::totalPowerAndBins()
{
    QList<QJsonObject> cases;
    int filtered = 0;
    int silent = 0;
    while (cases.size() < kSpectra) {
        cases << powerCase();
        filtered += cases.last()[u"filtered"].toArray().isEmpty() ? 0 : 1;
        silent += cases.last()[u"total"].toString() == hex(0.0) ? 1 : 0;
    }
    // The cases are worth judging.
    QVERIFY(filtered > kSpectra / 4);
    QVERIFY(silent > 0 && silent < kSpectra / 2);
    QCOMPARE(judge(write(cases)), 0);
}

void tst_spectrum_reference::noiseFilters()
{
    QList<QJsonObject> cases;
    for (int spectra = 0; spectra < kSpectra;) {
        const int count = std::min(kSpectra - spectra, 1 + below(20));
        cases << filterCase(count);
        spectra += count;
    }
    cases << filterCase(1) << filterCase(2) << filterCase(257);
    QCOMPARE(judge(write(cases)), 0);
}

void tst_spectrum_reference::referenceFindsDifferences_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("said");
    QTest::newRow("bins") << QStringLiteral("indices") << QStringLiteral("bins");
    QTest::newRow("values") << QStringLiteral("decibels") << QStringLiteral("other values in dB");
    QTest::newRow("filtered values") << QStringLiteral("filtered") << QStringLiteral("other filtered values");
    QTest::newRow("total power") << QStringLiteral("total") << QStringLiteral("total");
    QTest::newRow("filter") << QStringLiteral("filter") << QStringLiteral("another filter");
}

void tst_spectrum_reference::referenceFindsDifferences()
{
    QFETCH(QString, key);
    QFETCH(QString, said);
    QJsonObject wrong;
    while (wrong.value(key).toString().isEmpty() && wrong.value(key).toArray().isEmpty())
        wrong = key == u"filter" ? filterCase(3) : powerCase();
    if (key == u"total") {
        wrong[key] = hex(fromHex(wrong[key].toString()) + 2e-9);
    } else {
        QJsonArray values = wrong[key].toArray();
        if (values[0].isString()) {
            // The last bit of one float.
            const auto value = static_cast<float>(fromHex(values[0].toString()));
            values[0] = hex(static_cast<double>(std::nextafter(value, 1000.0F)));
        } else {
            values[0] = values[0].toInt() + 1;
        }
        wrong[key] = values;
    }
    QString text;
    QCOMPARE(judge(write({wrong}), &text), 1);
    QVERIFY2(text.contains(said), qPrintable(text));
}

QTEST_GUILESS_MAIN(tst_spectrum_reference)
#include "tst_spectrum_reference.moc"
