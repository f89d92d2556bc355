// What HydStreamAdapter makes of spectra: whole dB and total power. tst_PowerTable has the powers bit for
// bit.
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"
#include "tests/support/FftParamsGuard.h"

#include <cmath>
#include <limits>
#include <numeric>

using namespace streamframes;

namespace {

using Values = std::vector<unsigned char>;

/// Every byte value once.
Values allValues()
{
    Values values(256);
    std::iota(values.begin(), values.end(), static_cast<unsigned char>(0));
    return values;
}

/// An adapter without a socket, and what it emits.
struct Spectra
{
    explicit Spectra(HydStreamType type = StreamSpectrum) : adapter(type, 1, kDevice, kLongPeriod, false) {}

    /// Total power of a spectrum with these values.
    double total(const Values& values)
    {
        adapter.dataProcFFT(spectrum(values));
        return powers.last()[1].toDouble();
    }
    /// What the values have become.
    Values processed(const Values& values)
    {
        const auto payload = spectrum(values);
        adapter.dataProcFFT(payload);
        return valuesOf(*payload);
    }
    void setOffset(float offset)
    {
        NvxDataScale scale;
        scale.fullScaleDb = offset;
        scale.sensitivityDb = 0.0F;
        adapter.setDeviceScale(scale);
    }

    HydStreamAdapter adapter;
    QSignalSpy powers{&adapter, &HydStreamAdapter::signalTotalPower};
    QSignalSpy data{&adapter, &HydStreamAdapter::streamDataReady};
};

bool isNear(double value, double expected)
{
    return std::abs(value - expected) < 1e-9;
}

std::shared_ptr<HydDataCollectCmd> spectrumScan(const Values& values)
{
    auto cmd = std::make_shared<HydDataCollectCmd>(uint8_t{DataCollSpec});
    auto chunk = std::make_shared<DataCollSpecChunk>();
    chunk->sampleRate = 100;
    chunk->points = 8;
    chunk->bins.assign(values.begin(), values.end());
    cmd->setChunk(DataCollSpec, chunk);
    return cmd;
}

/// Settings whose range is the bins from `minBin` to `maxBin`, of 1 Hz each.
CSignalPowerSettings binRange(int minBin, int maxBin)
{
    FFT_Params_FFT.setFraction(0.5);
    CSignalPowerSettings settings;
    settings.setRates(0, static_cast<int>(2 * FFT_Params_FFT.numBins()), true);
    settings.setMinFreqFFT(minBin);
    settings.setMaxFreqFFT(maxBin);
    return settings;
}

} // namespace

class tst_HydStreamAdapterSpectra : public NvxTestCase
{
    Q_OBJECT

private:
    FftParamsGuard m_params;

private Q_SLOTS:
    void cleanup() { m_params.restore(); }

    // --- happy flows
    void halfDecibelsBecomeDecibels_data();
    void halfDecibelsBecomeDecibels();
    void waysIn_data();
    void waysIn();
    void scanSpectraAreProcessed();
    void totalPowerComesFirst();
    void totalPowerBearsTheRecordsId();
    void totalPowerOfTheDefaultScale();
    void totalPowerSumsHalvedValues();
    void deviceScaleSetsTheOffset();
    void referenceTypeStaysZero_data();
    void referenceTypeStaysZero();
    void onlyBinsInRangeCount_data();
    void onlyBinsInRangeCount();
    void rangeFollowsTheSettings();
    void numberOfBinsIsReadForEachSpectrum();
    void noSpectrumIsMarkedAsFiltered();
    // --- rainy day flows
    void leastPower_data();
    void leastPower();
    void spectraWithoutValues();
    void fewerBytesThanBins();
    void spectrumOf65535Bins();
    void strangeRanges_data();
    void strangeRanges();
    void scalesThatAreNoNumbers();
    void deletionWithinTotalPower();
};

void tst_HydStreamAdapterSpectra::halfDecibelsBecomeDecibels_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("halves");
    QTest::newRow("spectrum") << 2 << true;
    QTest::newRow("scan spectrum") << 17 << true;
    QTest::newRow("spectrum file") << 33 << false;
    QTest::newRow("waves") << 1 << true;
}

void tst_HydStreamAdapterSpectra::halfDecibelsBecomeDecibels()
{
    QFETCH(int, type);
    QFETCH(bool, halves);
    Spectra spectra(static_cast<HydStreamType>(type));
    const Values values = spectra.processed(allValues());
    QCOMPARE(values.size(), size_t{256});
    for (int value = 0; value < 255; ++value)
        QCOMPARE(static_cast<int>(values[static_cast<size_t>(value)]), halves ? (value + 1) / 2 : value);
    QCOMPARE(static_cast<int>(values[255]), halves ? 0 : 255);
}

void tst_HydStreamAdapterSpectra::waysIn_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("byMessage");
    QTest::addColumn<bool>("byPayload");
    QTest::newRow("waves") << 1 << false << false;
    QTest::newRow("spectrum") << 2 << true << true;
    QTest::newRow("sensor") << 3 << false << false;
    QTest::newRow("scan waves") << 16 << false << false;
    QTest::newRow("scan spectrum") << 17 << false << false;
    QTest::newRow("wave file") << 32 << false << false;
    QTest::newRow("spectrum file") << 33 << false << true;
}

void tst_HydStreamAdapterSpectra::waysIn()
{
    QFETCH(int, type);
    QFETCH(bool, byMessage);
    QFETCH(bool, byPayload);
    Spectra spectra(static_cast<HydStreamType>(type));
    const auto message = spectrum(Values{10});
    spectra.adapter.handleStreamMessage(std::make_shared<HydStreamMessage>(message));
    QCOMPARE(spectra.powers.size(), byMessage ? 1 : 0);
    QCOMPARE(static_cast<int>(valuesOf(*message)[0]), byMessage ? 5 : 10);
    spectra.powers.clear();
    spectra.adapter.handleStreamMessagePayload(spectrum(Values{10}));
    QCOMPARE(spectra.powers.size(), byPayload ? 1 : 0);
    QCOMPARE(spectra.data.size(), 2);
}

void tst_HydStreamAdapterSpectra::scanSpectraAreProcessed()
{
    Spectra spectra;
    spectra.adapter.handleDataCollectMessage(spectrumScan({0, 100, 255}));
    QCOMPARE(spectra.powers.size(), 1);
    QCOMPARE(spectra.data.size(), 1);
    const auto payload = spectra.data[0][0].value<std::shared_ptr<HydStreamDataPayload>>();
    QCOMPARE(valuesOf(*payload), (Values{0, 50, 0}));
}

void tst_HydStreamAdapterSpectra::totalPowerComesFirst()
{
    Spectra spectra;
    QStringList order;
    connect(&spectra.adapter, &HydStreamAdapter::streamDataReady, this,
            [&] { order << QStringLiteral("data"); });
    connect(&spectra.adapter, &HydStreamAdapter::signalTotalPower, this,
            [&] { order << QStringLiteral("power"); });
    const auto payload = spectrum(Values{10});
    spectra.adapter.dataProcFFT(payload);
    QCOMPARE(order, QStringList({QStringLiteral("power"), QStringLiteral("data")}));
    QCOMPARE(spectra.data[0][0].value<std::shared_ptr<HydStreamDataPayload>>(), payload);
    QVERIFY(spectra.data[0][1].value<HydDeviceId>() == kDevice);
}

void tst_HydStreamAdapterSpectra::totalPowerBearsTheRecordsId()
{
    Spectra spectra;
    spectra.total({10});
    QVERIFY(spectra.powers[0][0].value<HydDeviceId>() == HydDevice().deviceId());
    HydDevice device(kDevice.serialNo(), kDevice.devType(), {}, {});
    device.setAlias("deep one");
    spectra.adapter.updateDeviceInfo(device);
    spectra.total({10});
    QVERIFY(spectra.powers[1][0].value<HydDeviceId>() == kDevice);
    QCOMPARE(spectra.powers[1][0].value<HydDeviceId>().alias(), std::string("deep one"));
}

void tst_HydStreamAdapterSpectra::totalPowerOfTheDefaultScale()
{
    Spectra spectra(StreamSpectrumFile);
    QVERIFY(isNear(spectra.total({100}), 90.0));
    QVERIFY(isNear(spectra.total({100, 100}), 90.0 + 10 * std::log10(2.0)));
    QVERIFY(isNear(spectra.total({0, 10, 20}), 10 * std::log10(0.1 + 1.0 + 10.0)));
}

void tst_HydStreamAdapterSpectra::totalPowerSumsHalvedValues()
{
    Spectra spectra;
    QVERIFY(isNear(spectra.total({200}), 90.0));
    QVERIFY(isNear(spectra.total({255, 200}), 10 * std::log10(0.1 + 1e9)));
    QVERIFY(isNear(spectra.total({254}), 117.0));
}

void tst_HydStreamAdapterSpectra::deviceScaleSetsTheOffset()
{
    Spectra spectra(StreamSpectrumFile);
    NvxDataScale scale;
    scale.fullScaleDb = -100.0F;
    scale.sensitivityDb = -160.0F;
    scale.gainDb = 50.0F;
    scale.binWidthDb = 50.0F;
    scale.powerCorrDb = 50.0F;
    spectra.adapter.setDeviceScale(scale);
    QVERIFY(isNear(spectra.total({20}), 80.0));
}

void tst_HydStreamAdapterSpectra::referenceTypeStaysZero_data()
{
    QTest::addColumn<int>("type");
    for (const int type : {0, 1, 2, 3, 4, 5})
        QTest::addRow("%d", type) << type;
}

void tst_HydStreamAdapterSpectra::referenceTypeStaysZero()
{
    QFETCH(int, type);
    Spectra spectra(StreamSpectrumFile);
    spectra.adapter.setRefType(static_cast<eReferenceType>(type));
    QVERIFY(isNear(spectra.total({100}), 90.0));
    NvxDataScale scale;
    scale.refType = static_cast<eReferenceType>(type);
    spectra.adapter.setDeviceScale(scale);
    QVERIFY(isNear(spectra.total({100}), 90.0));
}

void tst_HydStreamAdapterSpectra::onlyBinsInRangeCount_data()
{
    QTest::addColumn<int>("numBins");
    QTest::addColumn<int>("minBin");
    QTest::addColumn<int>("maxBin");
    QTest::addColumn<double>("power");
    // Five bins with the powers 1, 10, 100, 1000, 10000.
    QTest::newRow("all") << 5 << 0 << 5 << 11111.0;
    QTest::newRow("both ends count") << 5 << 1 << 3 << 1110.0;
    QTest::newRow("one bin") << 5 << 2 << 2 << 100.0;
    QTest::newRow("fewer bins known") << 4 << 1 << 4 << 1110.0;
    QTest::newRow("the last known bin") << 3 << 2 << 3 << 100.0;
    QTest::newRow("range behind the spectrum") << 100 << 3 << 90 << 11000.0;
}

void tst_HydStreamAdapterSpectra::onlyBinsInRangeCount()
{
    QFETCH(int, numBins);
    QFETCH(int, minBin);
    QFETCH(int, maxBin);
    QFETCH(double, power);
    FFT_Params_FFT.setNumBins(static_cast<uint32_t>(numBins));
    Spectra spectra;
    spectra.setOffset(0.0F);
    spectra.adapter.setSignalPowerSet(binRange(minBin, maxBin));
    QVERIFY(isNear(spectra.total({0, 20, 40, 60, 80}), 10 * std::log10(power)));
    // The bins outside are brought to dB all the same.
    QCOMPARE(spectra.processed({20, 20, 20, 20, 20}), Values(5, 10));
}

void tst_HydStreamAdapterSpectra::rangeFollowsTheSettings()
{
    FFT_Params_FFT.setNumBins(4);
    Spectra spectra(StreamSpectrumFile);
    spectra.setOffset(0.0F);
    const Values values{10, 20, 30, 40};
    QVERIFY(isNear(spectra.total(values), 10 * std::log10(11110.0)));
    CSignalPowerSettings settings = binRange(1, 2);
    spectra.adapter.setSignalPowerSet(settings);
    QVERIFY(isNear(spectra.total(values), 10 * std::log10(1100.0)));
    settings.setMaxFreqFFT(1);
    QVERIFY(isNear(spectra.total(values), 10 * std::log10(1100.0)));
    spectra.adapter.setSignalPowerSet(settings);
    QVERIFY(isNear(spectra.total(values), 20.0));
    settings.setEnabled(false);
    spectra.adapter.setSignalPowerSet(settings);
    QVERIFY(isNear(spectra.total(values), 10 * std::log10(11110.0)));
}

void tst_HydStreamAdapterSpectra::numberOfBinsIsReadForEachSpectrum()
{
    FFT_Params_FFT.setNumBins(4);
    Spectra spectra(StreamSpectrumFile);
    spectra.setOffset(0.0F);
    const Values values{10, 20, 30, 40, 50, 60, 70};
    FFT_Params_FFT.setNumBins(2);
    QVERIFY(isNear(spectra.total(values), 10 * std::log10(110.0)));
    // The last bin of the range was taken from the 4 of before, and it counts too.
    FFT_Params_FFT.setNumBins(7);
    QVERIFY(isNear(spectra.total(values), 10 * std::log10(111110.0)));
    spectra.adapter.setSignalPowerSet({});
    QVERIFY(isNear(spectra.total(values), 10 * std::log10(11111110.0)));
}

void tst_HydStreamAdapterSpectra::noSpectrumIsMarkedAsFiltered()
{
    Spectra spectra;
    const auto payload = spectrum(Values{10});
    payload->setNoiseFiltered(true);
    spectra.adapter.dataProcFFT(payload);
    QVERIFY(!payload->isNoiseFiltered());
    QVERIFY(payload->data()->doubles() == nullptr);
}

void tst_HydStreamAdapterSpectra::leastPower_data()
{
    QTest::addColumn<double>("offset");
    QTest::addColumn<double>("total");
    QTest::newRow("above 1e-9") << -89.9 << -89.9;
    QTest::newRow("1e-9") << -90.0 << 0.0;
    QTest::newRow("below") << -90.1 << 0.0;
    QTest::newRow("none") << -1e30 << 0.0;
    QTest::newRow("1") << 0.0 << 0.0;
}

void tst_HydStreamAdapterSpectra::leastPower()
{
    QFETCH(double, offset);
    QFETCH(double, total);
    Spectra spectra;
    spectra.setOffset(static_cast<float>(offset));
    // -89.9 is no float.
    QVERIFY(std::abs(spectra.total({0}) - total) < 1e-5);
    if (total == 0.0)
        QVERIFY(spectra.total({0}) == 0.0);
}

void tst_HydStreamAdapterSpectra::spectraWithoutValues()
{
    Spectra spectra;
    spectra.adapter.dataProcFFT(nullptr);
    QCOMPARE(spectra.powers.size(), 0);
    QCOMPARE(spectra.data.size(), 0);

    const auto noBytes = std::make_shared<HydStreamDataPayload>(
        key(1, 0),
        std::make_shared<HydStreamDataChunkV0>(0U, static_cast<unsigned char>(1),
                                               static_cast<unsigned char>(131), uint16_t{8}, 0U, false));
    const std::initializer_list<std::shared_ptr<HydStreamDataPayload>> payloads{
        spectrum({}), std::make_shared<HydStreamDataPayload>(key(1, 0), nullptr),
        std::make_shared<HydStreamDataPayload>(nullptr, nullptr), noBytes};
    for (const auto& payload : payloads) {
        spectra.adapter.dataProcFFT(payload);
        QCOMPARE(spectra.data.last()[0].value<std::shared_ptr<HydStreamDataPayload>>(), payload);
        QVERIFY(spectra.powers.last()[1].toDouble() == 0.0);
    }
    QCOMPARE(spectra.powers.size(), 4);
    QCOMPARE(spectra.data.size(), 4);
}

void tst_HydStreamAdapterSpectra::fewerBytesThanBins()
{
    Spectra spectra;
    spectra.setOffset(0.0F);
    const auto payload = std::make_shared<HydStreamDataPayload>(
        key(1, 0),
        std::make_shared<HydStreamDataChunkV0>(0U, static_cast<unsigned char>(1),
                                               static_cast<unsigned char>(131), uint16_t{65535}, 2U, false));
    payload->data()->bytes()[0] = 20;
    payload->data()->bytes()[1] = 20;
    spectra.adapter.dataProcFFT(payload);
    QCOMPARE(static_cast<int>(payload->data()->bytes()[1]), 10);
    QVERIFY(isNear(spectra.powers.last()[1].toDouble(), 10 * std::log10(20.0)));
}

void tst_HydStreamAdapterSpectra::spectrumOf65535Bins()
{
    Spectra spectra;
    spectra.setOffset(0.0F);
    QVERIFY(isNear(spectra.total(Values(65535, 20)), 10.0 + 10 * std::log10(512.0)));
    FFT_Params_FFT.setNumBins(std::numeric_limits<uint32_t>::max());
    spectra.adapter.setSignalPowerSet({});
    // The number of bins as a signed number is -1: no bin is in range.
    QVERIFY(spectra.total(Values(65535, 20)) == 0.0);
    QCOMPARE(spectra.processed(Values(65535, 20)), Values(65535, 10));
}

void tst_HydStreamAdapterSpectra::strangeRanges_data()
{
    QTest::addColumn<int>("minBin");
    QTest::addColumn<int>("maxBin");
    QTest::addColumn<double>("power");
    constexpr int kMost = std::numeric_limits<int>::max();
    constexpr int kLeast = std::numeric_limits<int>::min();
    QTest::newRow("upside down") << 2 << 1 << 0.0;
    QTest::newRow("behind the spectrum") << 3 << 4 << 0.0;
    QTest::newRow("negative") << -2 << -1 << 0.0;
    QTest::newRow("from negative") << -2 << 0 << 10.0;
    QTest::newRow("everything") << kLeast << kMost << 1110.0;
    QTest::newRow("nothing, from the top") << kMost << kLeast << 0.0;
}

void tst_HydStreamAdapterSpectra::strangeRanges()
{
    QFETCH(int, minBin);
    QFETCH(int, maxBin);
    QFETCH(double, power);
    FFT_Params_FFT.setNumBins(3);
    Spectra spectra(StreamSpectrumFile);
    spectra.setOffset(0.0F);
    spectra.adapter.setSignalPowerSet(binRange(minBin, maxBin));
    QVERIFY(isNear(spectra.total({10, 20, 30}), power == 0.0 ? 0.0 : 10 * std::log10(power)));
}

void tst_HydStreamAdapterSpectra::scalesThatAreNoNumbers()
{
    Spectra spectra;
    spectra.setOffset(std::numeric_limits<float>::quiet_NaN());
    QVERIFY(spectra.total({20}) == 0.0);
    spectra.setOffset(std::numeric_limits<float>::infinity());
    QVERIFY(std::isinf(spectra.total({20})));
    spectra.setOffset(0.0F);
    QVERIFY(isNear(spectra.total({20}), 10.0));
}

void tst_HydStreamAdapterSpectra::deletionWithinTotalPower()
{
    auto* adapter = new HydStreamAdapter(StreamSpectrum, 1, kDevice, kLongPeriod, false);
    int payloads = 0;
    connect(adapter, &HydStreamAdapter::streamDataReady, this, [&] { ++payloads; });
    connect(adapter, &HydStreamAdapter::signalTotalPower, this, [adapter] { delete adapter; });
    adapter->dataProcFFT(spectrum(Values{10}));
    QCOMPARE(payloads, 0);
}

QTEST_GUILESS_MAIN(tst_HydStreamAdapterSpectra)
#include "tst_HydStreamAdapterSpectra.moc"
