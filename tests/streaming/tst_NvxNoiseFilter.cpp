// The arithmetic of NvxNoiseFilter; tst_NvxNoiseFilterFile has its reading.
#include "NvxQtCommon/streaming/NvxNoiseFilter.h"
#include "tests/streaming/NoiseFile.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

#include <cmath>

namespace {

const HydDeviceId kDevice{DevTypeRecorderA, 1234};

void add(NvxNoiseFilter& filter, std::vector<unsigned char> values)
{
    filter.addData(false, static_cast<int>(values.size()), nullptr, values.data());
}

void add(NvxNoiseFilter& filter, std::vector<double> values)
{
    filter.addData(true, static_cast<int>(values.size()), values.data(), nullptr);
}

/// Level of a sum of powers, as the filter keeps it.
float level(double power)
{
    return static_cast<float>(10.0 * std::log10(power) + 0.5) - 3.0F;
}

double power(float value)
{
    return std::pow(10.0, static_cast<double>(value) / 10.0);
}

} // namespace

class tst_NvxNoiseFilter : public NvxTestCase
{
    Q_OBJECT

private:
    FftParamsGuard m_params;

private Q_SLOTS:
    void cleanup() { m_params.restore(); }

    // --- happy flows
    void defaults();
    void settersAreRead();
    void names_data();
    void names();
    void bytesAreSummed();
    void doublesAreSummed();
    void averageIsRoundedUp_data();
    void averageIsRoundedUp();
    void neighboursAreAddedInPower();
    void copiesShareNothing();
    // --- rainy day flows
    void otherNumberOfPointsClears();
    void otherSizeThrowsTheSumAway();
    void resizing_data();
    void resizing();
    void singleSpectrumStaysRaw();
    void averageOfNothing();
    void averageTwiceStays();
    void twoBinsHaveOneNeighbourEach();
    void oneBinHasNone();
    void arraysThatAreNull();
    void doublesOfAnyKind();
};

void tst_NvxNoiseFilter::defaults()
{
    FFT_Params_WAV.setFftLength(4096);
    const NvxNoiseFilter none;
    QVERIFY(none.devId() == HydDeviceId());
    QCOMPARE(none.folderName(), QString());
    QCOMPARE(none.rate(), SampRate{0});
    QCOMPARE(none.numPts(), 4096U);
    QVERIFY(!none.dateTime().isValid());
    QVERIFY(none.ifDeviceFFT());
    QVERIFY(none.data().empty());
    QCOMPARE(none.count(), 0);

    const NvxNoiseFilter filter(kDevice, QStringLiteral("folder"), SampRate{2000});
    QVERIFY(filter.devId() == kDevice);
    QCOMPARE(filter.folderName(), QStringLiteral("folder"));
    QCOMPARE(filter.rate(), SampRate{2000});
    QCOMPARE(filter.numPts(), 4096U);
}

void tst_NvxNoiseFilter::settersAreRead()
{
    NvxNoiseFilter filter;
    filter.setDevId(kDevice);
    filter.setFolderName(QStringLiteral("folder"));
    filter.setRate(SampRate{96000});
    const QDateTime time = QDateTime::fromSecsSinceEpoch(1000, Qt::UTC);
    filter.setDateTime(time);
    filter.setIfDeviceFFT(false);
    filter.setNumPts(2048);
    filter.data() = {1.0F, 2.0F};
    const NvxNoiseFilter& read = filter;
    QVERIFY(read.devId() == kDevice);
    QCOMPARE(read.folderName(), QStringLiteral("folder"));
    QCOMPARE(read.rate(), SampRate{96000});
    QCOMPARE(read.dateTime(), time);
    QVERIFY(!read.ifDeviceFFT());
    QCOMPARE(read.numPts(), 2048U);
    QCOMPARE(read.data(), (std::vector<float>{1.0F, 2.0F}));
}

void tst_NvxNoiseFilter::names_data()
{
    QTest::addColumn<int>("serial");
    QTest::addColumn<bool>("deviceFft");
    QTest::addColumn<QString>("name");
    QTest::newRow("device") << 1234 << true << QStringLiteral("F_CAL_1234_DEV");
    QTest::newRow("program") << 1234 << false << QStringLiteral("F_CAL_1234_PROG");
    QTest::newRow("serial 0") << 0 << true << QStringLiteral("F_CAL_0_DEV");
    QTest::newRow("largest serial") << 65535 << false << QStringLiteral("F_CAL_65535_PROG");
}

void tst_NvxNoiseFilter::names()
{
    QFETCH(int, serial);
    QFETCH(bool, deviceFft);
    QFETCH(QString, name);
    NvxNoiseFilter filter(HydDeviceId(DevTypeRecorderA, static_cast<uint16_t>(serial)), {}, SampRate{1});
    filter.setIfDeviceFFT(deviceFft);
    QCOMPARE(filter.fileNameForm(), name);
}

void tst_NvxNoiseFilter::bytesAreSummed()
{
    NvxNoiseFilter filter;
    add(filter, std::vector<unsigned char>{0, 128, 255});
    QCOMPARE(filter.data(), (std::vector<float>{0, 128, 255}));
    QCOMPARE(filter.count(), 1);
    add(filter, std::vector<unsigned char>{1, 127, 255});
    QCOMPARE(filter.data(), (std::vector<float>{1, 255, 510}));
    QCOMPARE(filter.count(), 2);
}

void tst_NvxNoiseFilter::doublesAreSummed()
{
    NvxNoiseFilter filter;
    add(filter, std::vector<double>{0.1, -7.25});
    add(filter, std::vector<double>{0.2, 0.25});
    QVERIFY(filter.data()[0] == static_cast<float>(static_cast<double>(0.1F) + 0.2));
    QVERIFY(filter.data()[1] == -7.0F);
    add(filter, std::vector<unsigned char>{10, 10});
    QVERIFY(filter.data()[1] == 3.0F);
    QCOMPARE(filter.count(), 3);
}

void tst_NvxNoiseFilter::averageIsRoundedUp_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<float>("average");
    // Of a value of 100 each: half the count and 1 are added before the division.
    QTest::newRow("2") << 2 << (200.0F + 1.0F + 1.0F) / 2.0F;
    QTest::newRow("3") << 3 << (300.0F + 1.0F + 1.0F) / 3.0F;
    QTest::newRow("4") << 4 << (400.0F + 2.0F + 1.0F) / 4.0F;
    QTest::newRow("101") << 101 << (10100.0F + 50.0F + 1.0F) / 101.0F;
}

void tst_NvxNoiseFilter::averageIsRoundedUp()
{
    QFETCH(int, count);
    QFETCH(float, average);
    NvxNoiseFilter filter;
    for (int i = 0; i < count; ++i)
        add(filter, std::vector<unsigned char>{100});
    QCOMPARE(filter.count(), count);
    filter.calcAvg();
    // One bin has no neighbours: only its own power is left.
    QVERIFY(filter.data()[0] == level(power(average)));
    QCOMPARE(filter.count(), 1);
}

void tst_NvxNoiseFilter::neighboursAreAddedInPower()
{
    NvxNoiseFilter filter;
    for (int i = 0; i < 2; ++i)
        add(filter, std::vector<unsigned char>{10, 60, 20, 30});
    filter.calcAvg();
    const float a = 11.0F;
    const float b = 61.0F;
    const float c = 21.0F;
    const float d = 31.0F;
    const std::vector<float> expected{
        level(power(a) + 0.5 * power(b)), level(power(b) + 0.5 * power(a) + 0.5 * power(c)),
        level(power(c) + 0.5 * power(b) + 0.5 * power(d)), level(power(d) + 0.5 * power(c))};
    QCOMPARE(filter.data(), expected);
}

void tst_NvxNoiseFilter::copiesShareNothing()
{
    NoiseFile file;
    file.write(QStringLiteral("F_CAL_1234_PROG.txt"),
               NoiseFile::text(2000, {{10, 20}, {20, 30}}).replace("Points\t1024", "Points\t4096"));
    NvxNoiseFilter filter(kDevice, file.folder(), SampRate{0});
    filter.setIfDeviceFFT(false);
    QVERIFY(filter.read(2000));
    NvxNoiseFilter copy;
    add(copy, std::vector<unsigned char>{1, 2, 3});
    copy = filter;
    const NvxNoiseFilter second(filter);
    for (const NvxNoiseFilter* other : {&std::as_const(copy), &second}) {
        QVERIFY(other->devId() == kDevice);
        QCOMPARE(other->folderName(), file.folder());
        QCOMPARE(other->rate(), SampRate{2000});
        QCOMPARE(other->numPts(), 4096U);
        QCOMPARE(other->dateTime(), filter.dateTime());
        QVERIFY(!other->ifDeviceFFT());
        QCOMPARE(other->data(), (std::vector<float>{30, 50}));
        QCOMPARE(other->count(), 2);
    }
    copy.clearData();
    QCOMPARE(filter.count(), 2);
    QVERIFY(!copy.readRecord());
    QVERIFY(copy.read(2000));
    QCOMPARE(copy.data(), filter.data());
    copy = *&copy;
    QCOMPARE(copy.data(), filter.data());
}

void tst_NvxNoiseFilter::otherNumberOfPointsClears()
{
    NvxNoiseFilter filter;
    filter.setNumPts(2048);
    add(filter, std::vector<unsigned char>{1, 2});
    filter.setNumPts(2048);
    QCOMPARE(filter.data().size(), size_t{2});
    QCOMPARE(filter.count(), 1);
    filter.setNumPts(1024);
    QVERIFY(filter.data().empty());
    QCOMPARE(filter.count(), 0);
}

void tst_NvxNoiseFilter::otherSizeThrowsTheSumAway()
{
    NvxNoiseFilter filter;
    add(filter, std::vector<unsigned char>{1, 2, 3});
    add(filter, std::vector<unsigned char>{1, 2, 3});
    add(filter, std::vector<unsigned char>{10, 20});
    QCOMPARE(filter.data(), (std::vector<float>{10, 20}));
    QCOMPARE(filter.count(), 1);
    add(filter, std::vector<unsigned char>{1, 2, 3});
    QCOMPARE(filter.data(), (std::vector<float>{1, 2, 3}));
    QCOMPARE(filter.count(), 1);
}

void tst_NvxNoiseFilter::resizing_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("sizeAfter");
    QTest::addColumn<int>("countAfter");
    QTest::newRow("same") << 2 << 2 << 1;
    QTest::newRow("larger") << 3 << 3 << 0;
    QTest::newRow("smaller") << 1 << 1 << 0;
    QTest::newRow("0") << 0 << 0 << 0;
    QTest::newRow("negative") << -1 << 0 << 0;
}

void tst_NvxNoiseFilter::resizing()
{
    QFETCH(int, size);
    QFETCH(int, sizeAfter);
    QFETCH(int, countAfter);
    NvxNoiseFilter filter;
    add(filter, std::vector<unsigned char>{7, 7});
    filter.resizeData(size);
    QCOMPARE(filter.data(),
             std::vector<float>(static_cast<size_t>(sizeAfter), countAfter == 1 ? 7.0F : 0.0F));
    QCOMPARE(filter.count(), countAfter);
}

void tst_NvxNoiseFilter::singleSpectrumStaysRaw()
{
    NvxNoiseFilter filter;
    add(filter, std::vector<unsigned char>{10, 60, 20});
    filter.calcAvg();
    QCOMPARE(filter.data(), (std::vector<float>{10, 60, 20}));
    QCOMPARE(filter.count(), 1);
}

void tst_NvxNoiseFilter::averageOfNothing()
{
    NvxNoiseFilter filter;
    filter.calcAvg();
    QVERIFY(filter.data().empty());
    QCOMPARE(filter.count(), 1);
    filter.clearData();
    QCOMPARE(filter.count(), 0);
    // Spectra without bins count, and there is nothing to average.
    add(filter, std::vector<unsigned char>{});
    add(filter, std::vector<unsigned char>{});
    QCOMPARE(filter.count(), 2);
    filter.calcAvg();
    QCOMPARE(filter.count(), 1);
}

void tst_NvxNoiseFilter::averageTwiceStays()
{
    NvxNoiseFilter filter;
    for (int i = 0; i < 5; ++i)
        add(filter, std::vector<unsigned char>{10, 60, 20});
    filter.calcAvg();
    const std::vector<float> once = filter.data();
    filter.calcAvg();
    QCOMPARE(filter.data(), once);
}

void tst_NvxNoiseFilter::twoBinsHaveOneNeighbourEach()
{
    NvxNoiseFilter filter;
    add(filter, std::vector<unsigned char>{40, 50});
    add(filter, std::vector<unsigned char>{40, 50});
    filter.calcAvg();
    QCOMPARE(filter.data(), (std::vector<float>{level(power(41.0F) + 0.5 * power(51.0F)),
                                                level(power(51.0F) + 0.5 * power(41.0F))}));
}

void tst_NvxNoiseFilter::oneBinHasNone()
{
    NvxNoiseFilter filter;
    add(filter, std::vector<unsigned char>{40});
    add(filter, std::vector<unsigned char>{40});
    filter.calcAvg();
    // 41 + 0.5 - 3: an end comes out lower than the 41.5 of a middle bin among equals.
    QVERIFY(std::abs(filter.data()[0] - 38.5F) < 1e-4F);
    filter.clearData();
    for (int i = 0; i < 2; ++i)
        add(filter, std::vector<unsigned char>{40, 40, 40});
    filter.calcAvg();
    QVERIFY(std::abs(filter.data()[1] - 41.5103F) < 1e-4F);
    QVERIFY(filter.data()[0] < filter.data()[1]);
    QVERIFY(filter.data()[0] == filter.data()[2]);
}

void tst_NvxNoiseFilter::arraysThatAreNull()
{
    NvxNoiseFilter filter;
    add(filter, std::vector<unsigned char>{7, 7});
    double values[2] = {1.0, 1.0};
    unsigned char bytes[2] = {1, 1};
    filter.addData(true, 2, nullptr, bytes);
    filter.addData(false, 2, values, nullptr);
    filter.addData(false, 3, nullptr, nullptr);
    QCOMPARE(filter.data(), (std::vector<float>{7, 7}));
    QCOMPARE(filter.count(), 1);
    filter.addData(false, -5, nullptr, nullptr);
    QVERIFY(filter.data().empty());
    QCOMPARE(filter.count(), 1);
}

void tst_NvxNoiseFilter::doublesOfAnyKind()
{
    NvxNoiseFilter filter;
    for (int i = 0; i < 2; ++i)
        add(filter, std::vector<double>{NAN, 0.0, -1e30, INFINITY});
    filter.calcAvg();
    QCOMPARE(filter.data().size(), size_t{4});
    QVERIFY(std::isnan(filter.data()[0]));
    QVERIFY(std::isnan(filter.data()[1]));
    QVERIFY(std::isinf(filter.data()[3]));
}

QTEST_APPLESS_MAIN(tst_NvxNoiseFilter)
#include "tst_NvxNoiseFilter.moc"
