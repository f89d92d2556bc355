#include "NvxQtCommon/streaming/NvxDataScale.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

#include <cmath>

class tst_NvxDataScale : public NvxTestCase
{
    Q_OBJECT

private:
    FftParamsGuard m_params;

private Q_SLOTS:
    void cleanup() { m_params.restore(); }

    // --- happy flows
    void defaults();
    void widthsFollowTheParameters();
    void offsets_data();
    void offsets();
    void offsetsAreInSinglePrecision();
    // --- rainy day flows
    void lengthsOfZero();
};

void tst_NvxDataScale::defaults()
{
    const NvxDataScale scale;
    QVERIFY(scale.gainDb == 3.0F);
    QVERIFY(scale.sensitivityDb == -170.0F);
    QVERIFY(scale.fullScaleDb == -180.0F);
    QVERIFY(scale.binWidthDb == static_cast<float>(10.0 * std::log10(500.0)));
    QVERIFY(scale.powerCorrDb == static_cast<float>(10.0 * std::log10(409.6) + 10.0 * std::log10(500.0)));
    QCOMPARE(static_cast<int>(scale.refType), 0);
}

void tst_NvxDataScale::widthsFollowTheParameters()
{
    FFT_Params_WAV.setFftLength(51200);
    FFT_Params_WAV.setOverlapLength(125);
    // The device's own spectra have no part in it.
    FFT_Params_FFT.setFftLength(1);
    FFT_Params_FFT.setOverlapLength(1);
    const NvxDataScale scale;
    QVERIFY(scale.binWidthDb == 10.0F);
    QVERIFY(scale.powerCorrDb == 30.0F);
}

void tst_NvxDataScale::offsets_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<double>("offset");
    QTest::newRow("0") << 0 << 170.0 - 180.0;
    QTest::newRow("1") << 1 << 170.0 - 180.0;
    QTest::newRow("2") << 2 << 170.0 - 180.0 - 27.0;
    QTest::newRow("3") << 3 << -180.0;
    QTest::newRow("4") << 4 << -180.0 - 27.0;
    QTest::newRow("5") << 5 << -180.0;
    QTest::newRow("-1") << -1 << -180.0;
}

void tst_NvxDataScale::offsets()
{
    QFETCH(int, type);
    QFETCH(double, offset);
    NvxDataScale scale;
    scale.binWidthDb = 27.0F;
    scale.refType = static_cast<eReferenceType>(type);
    QVERIFY(scale.powerOffset() == offset);
    // The other two words have no part in it.
    scale.gainDb = 99.0F;
    scale.powerCorrDb = 99.0F;
    QVERIFY(scale.powerOffset() == offset);
}

void tst_NvxDataScale::offsetsAreInSinglePrecision()
{
    NvxDataScale scale;
    scale.fullScaleDb = -180.1F;
    scale.sensitivityDb = -169.7F;
    scale.binWidthDb = 26.9F;
    scale.refType = RefPressureDensity;
    const float difference = -180.1F - -169.7F;
    QVERIFY(scale.powerOffset() == difference - 26.9F);
    QVERIFY(static_cast<double>(scale.powerOffset()) !=
            static_cast<double>(-180.1F) - static_cast<double>(-169.7F) - static_cast<double>(26.9F));
}

void tst_NvxDataScale::lengthsOfZero()
{
    FFT_Params_WAV.setFftLength(0);
    FFT_Params_WAV.setOverlapLength(0);
    const NvxDataScale scale;
    QVERIFY(scale.binWidthDb == static_cast<float>(10.0 * std::log10(512000.0)));
    QVERIFY(std::isfinite(scale.powerCorrDb));
}

QTEST_APPLESS_MAIN(tst_NvxDataScale)
#include "tst_NvxDataScale.moc"
