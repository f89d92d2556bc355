#include "NvxQtCommon/logging/NvxSpecLogger.h"
#include "SpecLoggerCase.h"

#include <cmath>

namespace {

const HydDeviceId kDevice(DevTypeRecorderA, 42);

} // namespace

/// The mode in which a spectrum logger collects a noise filter.
class tst_NvxSpecLoggerNoise : public SpecLoggerCase<NvxSpecLogger>
{
    Q_OBJECT

private Q_SLOTS:
    void init() { makeLogger(QStringLiteral("Spec")); }
    void cleanup() { dropLogger(); }

    // --- happy flows
    void noiseModeMakesItsFilterOnce()
    {
        m_logger->setDevId(kDevice);
        m_logger->setFFTMode(FftModeNoise);
        const auto filter = m_logger->noiseFilter();
        QVERIFY(filter != nullptr);
        QVERIFY(filter->devId() == kDevice);
        QCOMPARE(filter->folderName(), m_dir->path());
        QCOMPARE(filter->rate(), SampRate{2000});
        m_logger->setFFTMode(FftModeNoise);
        QVERIFY(m_logger->noiseFilter() == filter);
    }

    void noiseFileHasTheFiltersName_data()
    {
        QTest::addColumn<bool>("deviceFft");
        QTest::addColumn<QString>("name");
        QTest::newRow("of the device") << true << "F_CAL_42_DEV.txt";
        QTest::newRow("of the computer") << false << "F_CAL_42_PROG.txt";
    }
    void noiseFileHasTheFiltersName()
    {
        QFETCH(bool, deviceFft);
        QFETCH(QString, name);
        m_logger->setDevId(kDevice);
        m_logger->setFFTMode(FftModeNoise);
        m_logger->setIfDeviceFFT(deviceFft);
        header();
        data(kTime);
        QCOMPARE(newFile(0), path(name));
        m_logger->stopLogging();
        QCOMPARE(files(), QStringList{name});
        QCOMPARE(SpectrumText::of(path(name)).entry("Type"), QByteArray("10"));
    }

    void noiseModeWithoutAFilterSetsNoName()
    {
        m_logger->setTypeMode(FftModeNoise);
        header();
        data(kTime);
        QCOMPARE(newFile(0), path("Noise_20240229_123456.txt"));
        m_logger->prepareNoiseLog();
        m_logger->stopLogging();
        QVERIFY(m_logger->noiseFilter() == nullptr);
    }

    void noiseIsCollectedAndAveraged()
    {
        m_logger->setDevId(kDevice);
        m_logger->setFFTMode(FftModeNoise);
        header();
        QCOMPARE(m_logger->noiseFilter()->dateTime(), QDateTime::fromSecsSinceEpoch(kTime, Qt::UTC));
        data(kTime);
        data(kTime);
        QCOMPARE(m_logger->noiseFilter()->count(), 2);
        QVERIFY(m_logger->noiseFilter()->data() == (std::vector<float>{2, 4, 6}));
        m_logger->stopLogging();
        QCOMPARE(m_logger->noiseFilter()->count(), 1);
        // (sum + half the count + 1) / count is 2, 3, 4 dB; half the power of each neighbour comes in, less 3
        // dB.
        const auto smoothed = [](std::initializer_list<double> weightedLevels) {
            double power = 0.0;
            double weight = 1.0;
            for (const double level : weightedLevels) {
                power += weight * std::pow(10.0, level / 10.0);
                weight = 0.5;
            }
            return static_cast<float>(10.0 * std::log10(power) + 0.5) - 3.0F;
        };
        const std::vector<float> expected{smoothed({2, 3}), smoothed({3, 2, 4}), smoothed({4, 3})};
        QCOMPARE(m_logger->noiseFilter()->data().size(), expected.size());
        for (size_t bin = 0; bin < expected.size(); ++bin)
            QVERIFY(std::abs(m_logger->noiseFilter()->data()[bin] - expected[bin]) < 1e-5F);
    }

    void filteredSpectraAreCollectedAsDecimals()
    {
        m_logger->setFFTMode(FftModeNoise);
        header();
        m_logger->handleData(m_stream.filtered(kTime, {1.5, 2.5}), kDevice);
        QVERIFY(m_logger->noiseFilter()->data() == (std::vector<float>{1.5F, 2.5F}));
    }

    void noiseStartsAnew()
    {
        m_logger->setFFTMode(FftModeNoise);
        header();
        data(kTime);
        m_logger->prepareNoiseLog();
        QCOMPARE(m_logger->noiseFilter()->count(), 0);
        QVERIFY(m_logger->noiseFilter()->data().empty());
    }

    void newDeviceReachesTheFilter()
    {
        m_logger->setFFTMode(FftModeNoise);
        m_logger->setDevId(kDevice);
        QVERIFY(m_logger->noiseFilter()->devId() == kDevice);
    }

    void otherModesLeaveTheFilterAlone()
    {
        m_logger->setFFTMode(FftModeNoise);
        const auto filter = m_logger->noiseFilter();
        m_logger->setFFTMode(FftModeSpectrum);
        m_logger->setDevId(kDevice);
        m_logger->setIfDeviceFFT(false);
        header();
        data(kTime);
        m_logger->prepareNoiseLog();
        QCOMPARE(filter->count(), 0);
        QVERIFY(filter->devId() == HydDeviceId());
        QVERIFY(filter->ifDeviceFFT());
        QVERIFY(!filter->dateTime().isValid());
        QCOMPARE(newFile(0), path("Spec_20240229_123456.txt"));
    }

private:
    void header() { m_logger->handleEventHdr(m_stream.header(kTime, 0), kDevice, nullptr); }
    void data(uint32_t time) { m_logger->handleData(m_stream.spectrum(time, 0, 0, {1, 2, 3}), kDevice); }
};

QTEST_GUILESS_MAIN(tst_NvxSpecLoggerNoise)
#include "tst_NvxSpecLoggerNoise.moc"
