// The arithmetic of CSignalPowerSettings: rates to ranges, ranges to bins.
#include "NvxQtCommon/settings/CSignalPowerSettings.h"
#include "tests/settings/IniFile.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

#include <limits>

class tst_CSignalPowerBins : public NvxTestCase
{
    Q_OBJECT

private:
    FftParamsGuard m_params;

private Q_SLOTS:
    void cleanup() { m_params.restore(); }

    // --- happy flows
    void newRateTakesTheWholeBand();
    void sameRateKeepsTheRange();
    void eachSideHasItsParameters();
    void widthsAreRoundedHalvesAway_data();
    void widthsAreRoundedHalvesAway();
    void lowerRateClipsTheRange();
    void fftFollowsWave_data();
    void fftFollowsWave();
    void wholeBandOnRequest();
    void bins_data();
    void bins();
    // --- rainy day flows
    void rateOfZero();
    void rangeAboveTheBandIsReset_data();
    void rangeAboveTheBandIsReset();
    void withoutBinsThereIsNoWidth();
    void disabledGivesTheFallback();
    void tinyWidthGivesTheFallback();
    void extremesStayIn32Bits();
    void negativeRates();
};

void tst_CSignalPowerBins::newRateTakesTheWholeBand()
{
    CSignalPowerSettings settings;
    settings.setRates(96000, 64000, true);
    QCOMPARE(settings.smplRangeWave(), 96000);
    QCOMPARE(settings.smplRangeFFT(), 64000);
    QCOMPARE(settings.minFreqWave(), 0);
    QCOMPARE(settings.maxFreqWave(), 48000);
    QCOMPARE(settings.minFreqFFT(), 0);
    QCOMPARE(settings.maxFreqFFT(), 32000);
    QVERIFY(settings.dFreqResWave() == 93.75);
    QVERIFY(settings.dFreqResFFT() == 62.5);
    QCOMPARE(settings.freqResWave(), 94);
    QCOMPARE(settings.freqResFFT(), 63);
    QVERIFY(settings.isEnabled());

    settings.setMinFreqWave(100);
    settings.setMinFreqFFT(100);
    settings.setRates(192000, 64000, false);
    QCOMPARE(settings.minFreqWave(), 0);
    QCOMPARE(settings.maxFreqWave(), 96000);
    QCOMPARE(settings.minFreqFFT(), 100);
    QVERIFY(!settings.isEnabled());
}

void tst_CSignalPowerBins::sameRateKeepsTheRange()
{
    CSignalPowerSettings settings;
    settings.setRates(96000, 64000, true);
    settings.setMinFreqWave(1000);
    settings.setMaxFreqWave(20000);
    settings.setMinFreqFFT(500);
    settings.setMaxFreqFFT(32000);
    const CSignalPowerSettings before = settings;
    settings.setRates(96000, 64000, true);
    QVERIFY(settings == before);
}

void tst_CSignalPowerBins::eachSideHasItsParameters()
{
    FFT_Params_WAV.setFraction(0.4);
    FFT_Params_WAV.setNumBins(100);
    FFT_Params_FFT.setFraction(0.25);
    FFT_Params_FFT.setNumBins(10);
    CSignalPowerSettings settings;
    settings.setRates(1000, 2000, true);
    QCOMPARE(settings.maxFreqWave(), 400);
    QCOMPARE(settings.maxFreqFFT(), 500);
    QVERIFY(settings.dFreqResWave() == 4.0);
    QVERIFY(settings.dFreqResFFT() == 50.0);
    QCOMPARE(settings.freqResWave(), 4);
    QCOMPARE(settings.freqResFFT(), 50);
}

void tst_CSignalPowerBins::widthsAreRoundedHalvesAway_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("width");
    // 512 bins over half the rate.
    QTest::newRow("0.4990...") << 511 << 0;
    QTest::newRow("0.5") << 512 << 1;
    QTest::newRow("1.5") << 1536 << 2;
    QTest::newRow("2.5") << 2560 << 3;
    QTest::newRow("2.499") << 2559 << 2;
    QTest::newRow("-2.5") << -2560 << -3;
}

void tst_CSignalPowerBins::widthsAreRoundedHalvesAway()
{
    QFETCH(int, rate);
    QFETCH(int, width);
    CSignalPowerSettings settings;
    settings.setRates(rate, rate, true);
    QCOMPARE(settings.freqResWave(), width);
    QCOMPARE(settings.freqResFFT(), width);
}

void tst_CSignalPowerBins::lowerRateClipsTheRange()
{
    // The fraction of the band that is covered may fall while the rate stays.
    CSignalPowerSettings settings;
    settings.setRates(96000, 64000, true);
    settings.setMinFreqWave(1000);
    settings.setMinFreqFFT(2000);
    FFT_Params_WAV.setFraction(0.25001);
    FFT_Params_FFT.setFraction(0.25001);
    settings.setRates(96000, 64000, true);
    QCOMPARE(settings.minFreqWave(), 1000);
    QCOMPARE(settings.maxFreqWave(), 24000);
    QCOMPARE(settings.minFreqFFT(), 2000);
    QCOMPARE(settings.maxFreqFFT(), 16000);
    // A new rate sets the range anew and clips it to its band.
    settings.setRates(48000, 32000, true);
    QCOMPARE(settings.minFreqWave(), 0);
    QCOMPARE(settings.maxFreqWave(), 12000);
    QCOMPARE(settings.minFreqFFT(), 0);
    QCOMPARE(settings.maxFreqFFT(), 8000);
}

void tst_CSignalPowerBins::fftFollowsWave_data()
{
    QTest::addColumn<int>("fftRate");
    QTest::addColumn<bool>("same");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<bool>("follows");
    QTest::addColumn<bool>("sameAfter");
    QTest::newRow("same rates") << 96000 << true << true << true << true;
    QTest::newRow("not wanted") << 96000 << false << true << false << false;
    QTest::newRow("disabled") << 96000 << true << false << false << true;
    QTest::newRow("other rates") << 64000 << true << true << false << false;
    QTest::newRow("other rates, disabled") << 64000 << true << false << false << false;
}

void tst_CSignalPowerBins::fftFollowsWave()
{
    QFETCH(int, fftRate);
    QFETCH(bool, same);
    QFETCH(bool, enabled);
    QFETCH(bool, follows);
    QFETCH(bool, sameAfter);
    CSignalPowerSettings settings;
    settings.setRates(96000, fftRate, true);
    settings.setMinFreqWave(1000);
    settings.setMaxFreqWave(9000);
    settings.setMinFreqFFT(2000);
    settings.setMaxFreqFFT(3000);
    settings.setSameRanges(same);
    settings.setRates(96000, fftRate, enabled);
    QCOMPARE(settings.minFreqFFT(), follows ? 1000 : 2000);
    QCOMPARE(settings.maxFreqFFT(), follows ? 9000 : 3000);
    QCOMPARE(settings.isSameRanges(), sameAfter);
    QCOMPARE(settings.minFreqWave(), 1000);
    QCOMPARE(settings.maxFreqWave(), 9000);
}

void tst_CSignalPowerBins::wholeBandOnRequest()
{
    FFT_Params_FFT.setFraction(0.33333);
    CSignalPowerSettings settings;
    settings.setRates(96000, 64000, true);
    for (const int frequency : {1000, 2000}) {
        settings.setMinFreqWave(frequency);
        settings.setMaxFreqWave(frequency);
        settings.setMinFreqFFT(frequency);
        settings.setMaxFreqFFT(frequency);
        settings.setDefWave();
        QCOMPARE(settings.minFreqWave(), 0);
        QCOMPARE(settings.maxFreqWave(), 48000);
        QCOMPARE(settings.minFreqFFT(), frequency);
        QCOMPARE(settings.maxFreqFFT(), frequency);
        settings.setMinFreqWave(frequency);
        settings.setDefFFT();
        QCOMPARE(settings.minFreqFFT(), 0);
        QCOMPARE(settings.maxFreqFFT(), 21333); // 21333.12
        QCOMPARE(settings.minFreqWave(), frequency);
    }
}

void tst_CSignalPowerBins::bins_data()
{
    QTest::addColumn<int>("minFreq");
    QTest::addColumn<int>("maxFreq");
    QTest::addColumn<int>("minBin");
    QTest::addColumn<int>("maxBin");
    // Bins of 93.75 Hz.
    QTest::newRow("whole band") << 0 << 48000 << 0 << 512;
    QTest::newRow("below the first border") << 93 << 93 << 0 << 0;
    QTest::newRow("just over it") << 94 << 187 << 1 << 1;
    QTest::newRow("on borders") << 375 << 750 << 4 << 8;
    QTest::newRow("negative") << -94 << -93 << -1 << 0;
    QTest::newRow("upside down") << 750 << 375 << 8 << 4;
}

void tst_CSignalPowerBins::bins()
{
    QFETCH(int, minFreq);
    QFETCH(int, maxFreq);
    QFETCH(int, minBin);
    QFETCH(int, maxBin);
    for (const bool fft : {false, true}) {
        CSignalPowerSettings settings;
        // The other side has bins of another width.
        settings.setRates(fft ? 1000 : 96000, fft ? 96000 : 1000, true);
        (fft ? settings.minFreqFFT() : settings.minFreqWave()) = minFreq;
        (fft ? settings.maxFreqFFT() : settings.maxFreqWave()) = maxFreq;
        QCOMPARE(fft ? settings.getMinBinIndFFT() : settings.getMinBinIndWave(), minBin);
        QCOMPARE(fft ? settings.getMaxBinIndFFT(-7) : settings.getMaxBinIndWave(-7), maxBin);
    }
}

void tst_CSignalPowerBins::rateOfZero()
{
    CSignalPowerSettings settings;
    settings.setRates(0, 0, true);
    QVERIFY(settings.dFreqResWave() == 0.0);
    QVERIFY(settings.dFreqResFFT() == 0.0);
    QCOMPARE(settings.freqResWave(), 0);
    QCOMPARE(settings.getMinBinIndWave(), 0);
    QCOMPARE(settings.getMaxBinIndWave(512), 512);
    QCOMPARE(settings.getMinBinIndFFT(), 0);
    QCOMPARE(settings.getMaxBinIndFFT(-1), -1);
}

void tst_CSignalPowerBins::rangeAboveTheBandIsReset_data()
{
    QTest::addColumn<int>("minFreq");
    QTest::addColumn<int>("maxFreq");
    QTest::addColumn<int>("minAfter");
    QTest::addColumn<int>("maxAfter");
    QTest::newRow("above") << 50000 << 60000 << 0 << 48000;
    QTest::newRow("minimum at the top") << 48000 << 60000 << 0 << 48000;
    QTest::newRow("minimum just below the top") << 47999 << 60000 << 47999 << 48000;
    QTest::newRow("minimum above, maximum within") << 50000 << 10000 << 0 << 10000;
    QTest::newRow("empty") << 1000 << 1000 << 0 << 48000;
    QTest::newRow("upside down") << 2000 << 1000 << 0 << 48000;
    QTest::newRow("maximum 0") << 0 << 0 << 0 << 48000;
    QTest::newRow("negative minimum") << -5 << 1000 << -5 << 1000;
}

void tst_CSignalPowerBins::rangeAboveTheBandIsReset()
{
    QFETCH(int, minFreq);
    QFETCH(int, maxFreq);
    QFETCH(int, minAfter);
    QFETCH(int, maxAfter);
    CSignalPowerSettings settings;
    settings.setSameRanges(false);
    settings.setRates(96000, 96000, true);
    settings.setMinFreqWave(minFreq);
    settings.setMaxFreqWave(maxFreq);
    settings.setMinFreqFFT(minFreq);
    settings.setMaxFreqFFT(maxFreq);
    settings.setRates(96000, 96000, true);
    QCOMPARE(settings.minFreqWave(), minAfter);
    QCOMPARE(settings.maxFreqWave(), maxAfter);
    QCOMPARE(settings.minFreqFFT(), minAfter);
    QCOMPARE(settings.maxFreqFFT(), maxAfter);
}

void tst_CSignalPowerBins::withoutBinsThereIsNoWidth()
{
    FFT_Params_WAV.setNumBins(0);
    FFT_Params_FFT.setNumBins(0);
    CSignalPowerSettings settings;
    settings.setRates(96000, 64000, true);
    QVERIFY(settings.dFreqResWave() == 0.0);
    QCOMPARE(settings.freqResFFT(), 0);
    QCOMPARE(settings.maxFreqFFT(), 32000);
    QCOMPARE(settings.getMaxBinIndFFT(9), 9);
}

void tst_CSignalPowerBins::disabledGivesTheFallback()
{
    CSignalPowerSettings settings;
    settings.setRates(96000, 64000, true);
    settings.setMinFreqWave(1000);
    settings.setMinFreqFFT(1000);
    QCOMPARE(settings.getMinBinIndWave(), 10);
    QCOMPARE(settings.getMinBinIndFFT(), 16);
    settings.setEnabled(false);
    QCOMPARE(settings.getMinBinIndWave(), 0);
    QCOMPARE(settings.getMinBinIndFFT(), 0);
    QCOMPARE(settings.getMaxBinIndWave(3), 3);
    QCOMPARE(settings.getMaxBinIndFFT(4), 4);
}

void tst_CSignalPowerBins::tinyWidthGivesTheFallback()
{
    FFT_Params_FFT.setFraction(0.5e-6);
    FFT_Params_FFT.setNumBins(1);
    CSignalPowerSettings settings;
    settings.setRates(0, 2, true); // bins of exactly 0.000001 Hz
    settings.setMaxFreqFFT(1);
    QCOMPARE(settings.getMaxBinIndFFT(9), 9);
    settings.setRates(0, 4, true);
    settings.setMaxFreqFFT(1);
    QCOMPARE(settings.getMaxBinIndFFT(9), 500000);
}

void tst_CSignalPowerBins::extremesStayIn32Bits()
{
    constexpr int kMost = std::numeric_limits<int>::max();
    constexpr int kLeast = std::numeric_limits<int>::min();
    FFT_Params_FFT.setFraction(1e-9);
    FFT_Params_FFT.setNumBins(1);
    FFT_Params_WAV.setFraction(1e300);
    CSignalPowerSettings settings;
    settings.setRates(kMost, 10000, true);
    QCOMPARE(settings.freqResWave(), kMost);
    QCOMPARE(settings.maxFreqWave(), kMost);
    settings.setMinFreqFFT(kLeast);
    settings.setMaxFreqFFT(kMost);
    QCOMPARE(settings.getMinBinIndFFT(), kLeast);
    QCOMPARE(settings.getMaxBinIndFFT(1), kMost);
    settings.setDefWave();
    QCOMPARE(settings.maxFreqWave(), kMost);

    FFT_Params_WAV.setFraction(std::numeric_limits<double>::quiet_NaN());
    settings.setRates(1000, 1000, true);
    QCOMPARE(settings.freqResWave(), 0);
    QCOMPARE(settings.getMaxBinIndWave(5), 5);
    settings.setDefWave();
    QCOMPARE(settings.maxFreqWave(), 0);
}

void tst_CSignalPowerBins::negativeRates()
{
    CSignalPowerSettings settings;
    settings.setRates(-96000, -96000, true);
    QCOMPARE(settings.minFreqWave(), 0);
    QCOMPARE(settings.maxFreqWave(), -48000);
    QCOMPARE(settings.getMinBinIndWave(), 0);
    QCOMPARE(settings.getMaxBinIndWave(5), 5);
}

QTEST_APPLESS_MAIN(tst_CSignalPowerBins)
#include "tst_CSignalPowerBins.moc"
