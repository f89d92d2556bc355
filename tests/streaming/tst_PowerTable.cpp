// The table of powers, and total power by it, against the plain loop that calls pow for each bin: bit for
// bit.
#include "NvxQtCommon/streaming/PowerTable.h"
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/TestSeed.h"

#include <QRandomGenerator>

#include <bit>
#include <cmath>
#include <limits>

namespace {

/// The formula, a call of pow for each bin.
double plainLoop(const std::vector<unsigned char>& values, float offset)
{
    double power = 0.0;
    for (const unsigned char value : values)
        power += std::pow(10.0, static_cast<double>(static_cast<float>(value) + offset) * 0.1);
    return power > 1e-9 ? 10 * std::log10(power) : 0.0;
}

uint64_t bits(double value)
{
    return std::bit_cast<uint64_t>(value);
}

std::vector<float> manyOffsets(QRandomGenerator& random)
{
    std::vector<float> offsets{0.0F,    -0.0F,  -10.0F, -180.0F, -206.99F, 0.1F,
                               -90.05F, 1e-30F, 1e30F,  -1e30F,  3000.0F};
    while (offsets.size() < 300)
        offsets.push_back(static_cast<float>(random.generateDouble() * 400.0 - 300.0));
    return offsets;
}

} // namespace

class tst_PowerTable : public NvxTestCase
{
    Q_OBJECT

private:
    FftParamsGuard m_params;

private Q_SLOTS:
    void cleanup() { m_params.restore(); }

    // --- happy flows
    void everyEntryIsThePowerOfItsValue();
    void offsetsMayAlternate();
    void totalPowerHasTheBitsOfThePlainLoop();
    // --- rainy day flows
    void offsetsThatAreNoNumbers();
};

void tst_PowerTable::everyEntryIsThePowerOfItsValue()
{
    QRandomGenerator random(4711);
    PowerTable table;
    for (const float offset : manyOffsets(random)) {
        const PowerTable::Powers& powers = table.powers(offset);
        for (size_t value = 0; value < powers.size(); ++value) {
            const float level = static_cast<float>(value) + offset;
            QCOMPARE(bits(powers[value]), bits(std::pow(10.0, static_cast<double>(level) * 0.1)));
        }
    }
}

void tst_PowerTable::offsetsMayAlternate()
{
    PowerTable table;
    for (const float offset : {0.0F, -10.0F, -10.0F, 0.0F, -10.0F})
        QCOMPARE(bits(table.powers(offset)[100]), bits(PowerTable::power(100, offset)));
}

void tst_PowerTable::totalPowerHasTheBitsOfThePlainLoop()
{
    QRandomGenerator random(testSeed());
    FFT_Params_FFT.setNumBins(65535);
    HydStreamAdapter adapter(StreamSpectrumFile, 1, kDevice, kLongPeriod, false);
    double total = 0.0;
    connect(&adapter, &HydStreamAdapter::signalTotalPower, this,
            [&](const HydDeviceId&, double value) { total = value; });
    NvxDataScale scale;
    scale.sensitivityDb = 0.0F;
    for (const float offset : manyOffsets(random)) {
        scale.fullScaleDb = offset;
        adapter.setDeviceScale(scale);
        for (const int count : {1, 2, 512, static_cast<int>(random.bounded(3, 2000))}) {
            std::vector<unsigned char> values(static_cast<size_t>(count));
            for (unsigned char& value : values)
                value = static_cast<unsigned char>(random.bounded(256));
            adapter.dataProcFFT(streamframes::spectrum(values));
            QCOMPARE(bits(total), bits(plainLoop(values, offset)));
        }
    }
}

void tst_PowerTable::offsetsThatAreNoNumbers()
{
    PowerTable table;
    QVERIFY(std::isnan(table.powers(std::numeric_limits<float>::quiet_NaN())[0]));
    QVERIFY(table.powers(std::numeric_limits<float>::infinity())[7] ==
            std::numeric_limits<double>::infinity());
    QVERIFY(table.powers(-std::numeric_limits<float>::infinity())[7] == 0.0);
    QVERIFY(table.powers(0.0F)[10] == 10.0);
}

QTEST_APPLESS_MAIN(tst_PowerTable)
#include "tst_PowerTable.moc"
