// The noise filter of HydStreamAdapter: its modes, and what becomes of spectra.
#include "tests/streaming/NoiseFile.h"
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"
#include "tests/support/FftParamsGuard.h"

#include <cmath>

using namespace streamframes;

namespace {

using Values = std::vector<unsigned char>;

const char* const kOtherRate = "The device FFT sample rate isn't equal to the noise filter sample rate.";
const char* const kOtherRate2000 =
    "The device FFT sample rate isn't equal to the noise filter sample rate., noise filter has: 2000";
const char* const kNoFilter =
    "There is no FFT ambient noise filter file or the device FFT sample rate isn't equal "
    "to the noise filter sample rate.";
const QString kName = QStringLiteral("F_CAL_1234_DEV.txt");

HydDevice deviceWith(unsigned fftRate, unsigned wavRate = 0)
{
    HydJobSettings settings;
    settings.setFftRate(SampRate{fftRate});
    settings.setWavRate(SampRate{wavRate});
    return HydDevice(kDevice.serialNo(), kDevice.devType(), {}, settings.map());
}

std::shared_ptr<NvxNoiseFilter> filterWith(std::vector<float> values, unsigned rate)
{
    auto filter =
        std::make_shared<NvxNoiseFilter>(HydDeviceId(DevTypeRecorderA, 1), QString(), SampRate{rate});
    filter->data() = std::move(values);
    return filter;
}

/// An adapter without a socket, and what it emits.
struct Noise
{
    explicit Noise(HydStreamType type = StreamSpectrum, unsigned fftRate = 2000)
        : adapter(type, 1, kDevice, kLongPeriod, false)
    {
        adapter.updateDeviceInfo(deviceWith(fftRate, fftRate));
    }

    int mode() const { return adapter.noiseFiltMode(); }
    void setMode(int mode, const QString& folder = {})
    {
        adapter.setNoiseFiltMode(static_cast<NOISE_FILTER_MODE>(mode), folder);
    }
    /// The texts so far, and none from here on.
    QStringList takeMessages()
    {
        QStringList texts;
        for (const auto& arguments : messages) {
            texts << QString::fromStdString(arguments[0].value<std::string>());
            if (!(arguments[1].value<HydDeviceId>() == kDevice))
                texts << QStringLiteral("of another device");
        }
        messages.clear();
        return texts;
    }
    std::shared_ptr<HydStreamDataPayload> process(const Values& values)
    {
        auto payload = spectrum(values);
        adapter.dataProcFFT(payload);
        return payload;
    }

    HydStreamAdapter adapter;
    QSignalSpy messages{&adapter, &HydStreamAdapter::signalNoNoiseFltr};
    QSignalSpy powers{&adapter, &HydStreamAdapter::signalTotalPower};
};

std::vector<double> doublesOf(const HydStreamDataPayload& payload)
{
    const auto doubles = payload.data()->doubles();
    return doubles == nullptr
               ? std::vector<double>{}
               : std::vector<double>(doubles.get(), doubles.get() + payload.data()->numSamples());
}

} // namespace

class tst_HydStreamAdapterNoise : public NvxTestCase
{
    Q_OBJECT

private:
    FftParamsGuard m_params;

private Q_SLOTS:
    void cleanup() { m_params.restore(); }

    // --- happy flows
    void noiseIsSubtracted();
    void differencesAreInSinglePrecision();
    void totalPowerIsThatOfTheBytes();
    void largerFilterSubtracts();
    void onlyModeTwoSubtracts_data();
    void onlyModeTwoSubtracts();
    void streamTypes_data();
    void streamTypes();
    void filterIsReadFromTheFile();
    void fileIsReadOnce();
    void filterIsCopied();
    void sameRateKeepsTheMode_data();
    void sameRateKeepsTheMode();
    // --- rainy day flows
    void smallerFilterDoesNotSubtract();
    void spectraWithoutValues();
    void withoutAFile_data();
    void withoutAFile();
    void failedFilterStays();
    void fileOfAnotherRate();
    void fileWithoutSpectra();
    void filterOfAnotherRate_data();
    void filterOfAnotherRate();
    void newRateGivesTheFilterUp_data();
    void newRateGivesTheFilterUp();
    void headerNoticesTheNewRate();
    void rateWithoutAFilter_data();
    void rateWithoutAFilter();
    void noFilterToSet();
    void strangeModesAreOff_data();
    void strangeModesAreOff();
    void deletionWithinTheMessage_data();
    void deletionWithinTheMessage();
};

void tst_HydStreamAdapterNoise::noiseIsSubtracted()
{
    Noise noise;
    noise.adapter.setNoiseFilter(filterWith({1.5F, 0.0F, 60.25F}, 2000));
    noise.setMode(2);
    QCOMPARE(noise.mode(), 2);
    const auto payload = noise.process({20, 200, 255});
    QVERIFY(payload->isNoiseFiltered());
    QCOMPARE(valuesOf(*payload), (Values{10, 100, 0}));
    QCOMPARE(doublesOf(*payload), (std::vector<double>{8.5, 100.0, -60.25}));
    QCOMPARE(noise.takeMessages(), QStringList());
}

void tst_HydStreamAdapterNoise::differencesAreInSinglePrecision()
{
    Noise noise;
    noise.adapter.setNoiseFilter(filterWith({0.1F}, 2000));
    noise.setMode(2);
    const auto payload = noise.process({200});
    QVERIFY(doublesOf(*payload)[0] == static_cast<double>(100.0F - 0.1F));
    QVERIFY(doublesOf(*payload)[0] != 100.0 - static_cast<double>(0.1F));
}

void tst_HydStreamAdapterNoise::totalPowerIsThatOfTheBytes()
{
    Noise noise;
    noise.process({200});
    QVERIFY(std::abs(noise.powers.last()[1].toDouble() - 90.0) < 1e-9);
    noise.adapter.setNoiseFilter(filterWith({30.0F}, 2000));
    noise.setMode(2);
    noise.process({200});
    // Neither the filter nor the device's scale is in it.
    QVERIFY(std::abs(noise.powers.last()[1].toDouble() - 100.0) < 1e-9);
    noise.setMode(0);
    noise.process({200});
    QVERIFY(std::abs(noise.powers.last()[1].toDouble() - 90.0) < 1e-9);
}

void tst_HydStreamAdapterNoise::largerFilterSubtracts()
{
    Noise noise;
    noise.adapter.setNoiseFilter(filterWith({1.0F, 2.0F, 3.0F}, 2000));
    noise.setMode(2);
    const auto payload = noise.process({20, 20});
    QCOMPARE(doublesOf(*payload), (std::vector<double>{9.0, 8.0}));
}

void tst_HydStreamAdapterNoise::onlyModeTwoSubtracts_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("filters");
    QTest::newRow("0") << 0 << false;
    QTest::newRow("1") << 1 << false;
    QTest::newRow("2") << 2 << true;
    QTest::newRow("3") << 3 << false;
}

void tst_HydStreamAdapterNoise::onlyModeTwoSubtracts()
{
    QFETCH(int, mode);
    QFETCH(bool, filters);
    Noise noise;
    noise.adapter.setNoiseFilter(filterWith({1.0F}, 2000));
    noise.setMode(mode);
    auto payload = spectrum(Values{20});
    payload->setNoiseFiltered(true);
    noise.adapter.dataProcFFT(payload);
    QCOMPARE(payload->isNoiseFiltered(), filters);
    QCOMPARE(doublesOf(*payload).size(), filters ? size_t{1} : size_t{0});
    QCOMPARE(noise.adapter.ifNoiseFilterSuitable(), mode == 1 || mode == 2);
}

void tst_HydStreamAdapterNoise::streamTypes_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("filters");
    for (const int type : {1, 3, 16, 18, 32})
        QTest::addRow("%d", type) << type << false;
    for (const int type : {2, 17, 33})
        QTest::addRow("%d", type) << type << true;
}

void tst_HydStreamAdapterNoise::streamTypes()
{
    QFETCH(int, type);
    QFETCH(bool, filters);
    Noise noise(static_cast<HydStreamType>(type));
    noise.adapter.setNoiseFilter(filterWith({1.0F}, 2000));
    QVERIFY(!noise.adapter.ifNoiseFilterSuitable());
    noise.setMode(2);
    QCOMPARE(noise.mode(), 2);
    QCOMPARE(noise.adapter.ifNoiseFilterSuitable(), filters);
    const auto payload = noise.process({20});
    QCOMPARE(payload->isNoiseFiltered(), filters);
    if (filters)
        QCOMPARE(doublesOf(*payload)[0], type == 33 ? 19.0 : 9.0);
}

void tst_HydStreamAdapterNoise::filterIsReadFromTheFile()
{
    NoiseFile file;
    file.write(kName, NoiseFile::text(2000, {{40, 40, 40}, {40, 40, 40}}));
    file.write(QStringLiteral("F_CAL_1234_PROG.txt"), NoiseFile::text(2000, {{1, 1, 1}}));
    for (const int mode : {1, 2}) {
        Noise noise;
        noise.setMode(mode, file.folder());
        QCOMPARE(noise.takeMessages(), QStringList());
        QCOMPARE(noise.mode(), mode);
        noise.setMode(2);
        const std::vector<double> values = doublesOf(*noise.process({80, 80, 80}));
        // Averaged and smoothed: 41.5 in the middle, less at the ends.
        QVERIFY(std::abs(values[1] - (40.0 - 41.5103)) < 1e-4);
        QVERIFY(values[0] > values[1]);
    }
}

void tst_HydStreamAdapterNoise::fileIsReadOnce()
{
    NoiseFile file;
    file.write(kName, NoiseFile::text(2000, {{40}}));
    Noise noise;
    noise.setMode(2, file.folder());
    file.write(kName, NoiseFile::text(2000, {{10}}));
    noise.setMode(0, file.folder());
    noise.setMode(2, file.folder());
    QCOMPARE(doublesOf(*noise.process({80})), (std::vector<double>{0.0}));
}

void tst_HydStreamAdapterNoise::filterIsCopied()
{
    Noise noise;
    const auto filter = filterWith({1.0F}, 2000);
    noise.adapter.setNoiseFilter(filter);
    filter->data()[0] = 5.0F;
    noise.setMode(2);
    QCOMPARE(doublesOf(*noise.process({20})), (std::vector<double>{9.0}));
    noise.adapter.setNoiseFilter(filter);
    QCOMPARE(doublesOf(*noise.process({20})), (std::vector<double>{5.0}));
    noise.adapter.setNoiseFilter(nullptr);
    QCOMPARE(doublesOf(*noise.process({20})), (std::vector<double>{5.0}));
}

void tst_HydStreamAdapterNoise::sameRateKeepsTheMode_data()
{
    QTest::addColumn<int>("mode");
    for (const int mode : {0, 1, 2})
        QTest::addRow("%d", mode) << mode;
}

void tst_HydStreamAdapterNoise::sameRateKeepsTheMode()
{
    QFETCH(int, mode);
    Noise noise;
    noise.adapter.setNoiseFilter(filterWith({1.0F}, 2000));
    noise.setMode(mode);
    noise.adapter.updateDeviceInfo(deviceWith(2000));
    noise.adapter.setSampleRate(deviceWith(2000).jobSettings());
    QCOMPARE(noise.mode(), mode);
    QCOMPARE(noise.takeMessages(), QStringList());
}

void tst_HydStreamAdapterNoise::smallerFilterDoesNotSubtract()
{
    Noise noise;
    noise.adapter.setNoiseFilter(filterWith({1.0F, 2.0F}, 2000));
    noise.setMode(2);
    const auto payload = noise.process({20, 20, 200});
    QVERIFY(!payload->isNoiseFiltered());
    QVERIFY(payload->data()->doubles() == nullptr);
    QCOMPARE(valuesOf(*payload), (Values{10, 10, 100}));
    // The scale is in the power again, and the mode stays for the next spectrum.
    QVERIFY(std::abs(noise.powers.last()[1].toDouble() - 90.0) < 1e-6);
    QCOMPARE(noise.mode(), 2);
    QVERIFY(noise.process({20, 20})->isNoiseFiltered());
}

void tst_HydStreamAdapterNoise::spectraWithoutValues()
{
    Noise noise;
    noise.adapter.setNoiseFilter(filterWith({1.0F}, 2000));
    noise.setMode(2);
    const auto empty = noise.process({});
    QVERIFY(empty->isNoiseFiltered());
    const auto noChunk = std::make_shared<HydStreamDataPayload>(key(1, 0), nullptr);
    noise.adapter.dataProcFFT(noChunk);
    QVERIFY(!noChunk->isNoiseFiltered());
    const auto noBytes = std::make_shared<HydStreamDataPayload>(
        key(1, 0),
        std::make_shared<HydStreamDataChunkV0>(0U, static_cast<unsigned char>(1),
                                               static_cast<unsigned char>(131), uint16_t{1}, 0U, false));
    noise.adapter.dataProcFFT(noBytes);
    QCOMPARE(noise.powers.size(), 3);
    QVERIFY(noise.powers.last()[1].toDouble() == 0.0);
}

void tst_HydStreamAdapterNoise::withoutAFile_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("fails");
    QTest::newRow("off") << 0 << 2 << false;
    QTest::newRow("ready") << 1 << 2 << true;
    QTest::newRow("subtract") << 2 << 2 << true;
    QTest::newRow("other mode") << 3 << 2 << false;
    QTest::newRow("scan spectra") << 2 << 17 << true;
    QTest::newRow("spectrum file") << 1 << 33 << true;
    QTest::newRow("waves") << 2 << 1 << false;
}

void tst_HydStreamAdapterNoise::withoutAFile()
{
    QFETCH(int, mode);
    QFETCH(int, type);
    QFETCH(bool, fails);
    NoiseFile file;
    Noise noise(static_cast<HydStreamType>(type));
    noise.setMode(mode, file.folder());
    QCOMPARE(noise.mode(), fails ? 0 : mode);
    QCOMPARE(noise.takeMessages(), fails ? QStringList(QString::fromLatin1(kNoFilter)) : QStringList());
    // Spectra pass unfiltered.
    QVERIFY(!noise.process({20})->isNoiseFiltered());
}

void tst_HydStreamAdapterNoise::failedFilterStays()
{
    NoiseFile file;
    Noise noise;
    noise.setMode(2, file.folder());
    QCOMPARE(noise.takeMessages(), QStringList(QString::fromLatin1(kNoFilter)));
    // The file that is there now isn't read: the filter of 2000 Hz and no values is in place.
    file.write(kName, NoiseFile::text(2000, {{1, 1}}));
    noise.setMode(2, file.folder());
    QCOMPARE(noise.takeMessages(), QStringList());
    QCOMPARE(noise.mode(), 2);
    QVERIFY(!noise.process({20, 20})->isNoiseFiltered());
}

void tst_HydStreamAdapterNoise::fileOfAnotherRate()
{
    NoiseFile file;
    file.write(kName, NoiseFile::text(4000, {{1, 1}}));
    Noise noise;
    noise.setMode(2, file.folder());
    QCOMPARE(noise.takeMessages(), QStringList(QString::fromLatin1(kNoFilter)));
    QCOMPARE(noise.mode(), 0);
    // The filter that stays has taken the file's rate.
    noise.setMode(2, file.folder());
    QCOMPARE(noise.takeMessages(), QStringList(QString::fromLatin1(kOtherRate)));
    noise.adapter.updateDeviceInfo(deviceWith(4000));
    noise.setMode(2, file.folder());
    QCOMPARE(noise.takeMessages(), QStringList());
    QCOMPARE(noise.mode(), 2);
}

void tst_HydStreamAdapterNoise::fileWithoutSpectra()
{
    NoiseFile file;
    file.write(kName, NoiseFile::text(2000, {}));
    Noise noise;
    noise.setMode(2, file.folder());
    QCOMPARE(noise.takeMessages(), QStringList());
    QCOMPARE(noise.mode(), 2);
    QVERIFY(!noise.process({20})->isNoiseFiltered());
}

void tst_HydStreamAdapterNoise::filterOfAnotherRate_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("ready") << 1;
    QTest::newRow("subtract") << 2;
}

void tst_HydStreamAdapterNoise::filterOfAnotherRate()
{
    QFETCH(int, mode);
    Noise noise;
    noise.adapter.setNoiseFilter(filterWith({1.0F}, 2001));
    noise.setMode(mode);
    QCOMPARE(noise.takeMessages(), QStringList(QString::fromLatin1(kOtherRate)));
    QCOMPARE(noise.mode(), 0);
}

void tst_HydStreamAdapterNoise::newRateGivesTheFilterUp_data()
{
    filterOfAnotherRate_data();
}

void tst_HydStreamAdapterNoise::newRateGivesTheFilterUp()
{
    QFETCH(int, mode);
    Noise noise;
    noise.adapter.setNoiseFilter(filterWith({1.0F}, 2000));
    noise.setMode(mode);
    noise.adapter.updateDeviceInfo(deviceWith(4000));
    QCOMPARE(noise.takeMessages(), QStringList(QString::fromLatin1(kOtherRate2000)));
    QCOMPARE(noise.mode(), 0);
    QVERIFY(!noise.process({20})->isNoiseFiltered());
    // The mode is off now, so there is nothing more to tell.
    noise.adapter.updateDeviceInfo(deviceWith(8000));
    QCOMPARE(noise.takeMessages(), QStringList());
}

void tst_HydStreamAdapterNoise::headerNoticesTheNewRate()
{
    Noise noise;
    noise.adapter.setNoiseFilter(filterWith({1.0F}, 2000));
    noise.setMode(2);
    // The rate as told by somebody else doesn't fit the device's: the next header sets it right.
    QSignalSpy headers(&noise.adapter, &HydStreamAdapter::eventHeader);
    noise.adapter.setSampleRate(deviceWith(4000).jobSettings());
    QCOMPARE(noise.takeMessages(), QStringList(QString::fromLatin1(kOtherRate2000)));
    noise.setMode(2);
    noise.adapter.handleStreamMessage(std::make_shared<HydStreamMessage>(header(1, 0)));
    QCOMPARE(noise.takeMessages(), QStringList());
    QCOMPARE(noise.mode(), 2);
    QCOMPARE(headers.size(), 1);
}

void tst_HydStreamAdapterNoise::rateWithoutAFilter_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("fails");
    // Only a stream that isn't spectrum-like keeps a mode without a filter.
    QTest::newRow("waves, off") << 1 << 0 << false;
    QTest::newRow("waves, ready") << 1 << 1 << false;
    QTest::newRow("waves, subtract") << 1 << 2 << true;
    QTest::newRow("waves, other mode") << 1 << 3 << false;
    QTest::newRow("sensor, subtract") << 3 << 2 << true;
}

void tst_HydStreamAdapterNoise::rateWithoutAFilter()
{
    QFETCH(int, type);
    QFETCH(int, mode);
    QFETCH(bool, fails);
    Noise noise(static_cast<HydStreamType>(type));
    noise.setMode(mode);
    QCOMPARE(noise.mode(), mode);
    noise.adapter.updateDeviceInfo(deviceWith(2000));
    QCOMPARE(noise.takeMessages(), fails ? QStringList(QString::fromLatin1(kNoFilter)) : QStringList());
    QCOMPARE(noise.mode(), fails ? 0 : mode);
}

void tst_HydStreamAdapterNoise::noFilterToSet()
{
    Noise noise;
    noise.adapter.setNoiseFilter(nullptr);
    // There is a filter of 2000 Hz without values now, so no file is looked for.
    noise.setMode(2);
    QCOMPARE(noise.takeMessages(), QStringList());
    QCOMPARE(noise.mode(), 2);
    QVERIFY(!noise.process({20})->isNoiseFiltered());
    noise.adapter.updateDeviceInfo(deviceWith(4000));
    QCOMPARE(noise.takeMessages(), QStringList(QString::fromLatin1(kOtherRate2000)));
}

void tst_HydStreamAdapterNoise::strangeModesAreOff_data()
{
    QTest::addColumn<int>("mode");
    for (const int mode : {-1, 3, 2147483647})
        QTest::addRow("%d", mode) << mode;
}

void tst_HydStreamAdapterNoise::strangeModesAreOff()
{
    QFETCH(int, mode);
    Noise noise;
    noise.adapter.setNoiseFilter(filterWith({1.0F}, 4000));
    noise.setMode(mode);
    QCOMPARE(noise.mode(), mode);
    QVERIFY(!noise.adapter.ifNoiseFilterSuitable());
    noise.adapter.updateDeviceInfo(deviceWith(2000));
    QVERIFY(!noise.process({20})->isNoiseFiltered());
    QCOMPARE(noise.takeMessages(), QStringList());
}

void tst_HydStreamAdapterNoise::deletionWithinTheMessage_data()
{
    QTest::addColumn<int>("by");
    QTest::newRow("mode") << 0;
    QTest::newRow("device info") << 1;
    QTest::newRow("header") << 2;
}

void tst_HydStreamAdapterNoise::deletionWithinTheMessage()
{
    QFETCH(int, by);
    auto* adapter = new HydStreamAdapter(StreamSpectrum, 1, kDevice, kLongPeriod, false);
    QPointer<HydStreamAdapter> watch(adapter);
    adapter->updateDeviceInfo(deviceWith(2000));
    adapter->setNoiseFilter(filterWith({1.0F}, by == 0 ? 4000 : 2000));
    if (by == 2) {
        // A rate and a filter that fit each other, but not the device.
        adapter->setSampleRate(deviceWith(4000).jobSettings());
        adapter->setNoiseFiltMode(NoiseFilterSubtract, {});
        adapter->setNoiseFilter(filterWith({1.0F}, 4000));
    } else if (by == 1) {
        adapter->setNoiseFiltMode(NoiseFilterSubtract, {});
    }
    connect(adapter, &HydStreamAdapter::signalNoNoiseFltr, this, [adapter] { delete adapter; });
    if (by == 0)
        adapter->setNoiseFiltMode(NoiseFilterSubtract, {});
    else if (by == 1)
        adapter->updateDeviceInfo(deviceWith(4000));
    else
        adapter->handleStreamMessage(std::make_shared<HydStreamMessage>(header(1, 0)));
    QVERIFY(watch.isNull());
}

QTEST_GUILESS_MAIN(tst_HydStreamAdapterNoise)
#include "tst_HydStreamAdapterNoise.moc"
