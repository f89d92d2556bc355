#include "NvxQtSimulator/SignalSource.h"
#include "tests/support/NvxTestCase.h"

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace {

constexpr uint32_t kRate = 48000;

/// Level in dBFS of one frequency in `samples`; a sine wave of full scale has 0.
double levelAt(const std::vector<int32_t>& samples, double frequency, double rate, unsigned bits)
{
    std::complex<double> sum;
    for (size_t i = 0; i < samples.size(); ++i)
        sum += double(samples[i]) *
               std::polar(1.0, -2.0 * std::numbers::pi * std::fmod(frequency / rate * double(i), 1.0));
    const double amplitude = 2.0 * std::abs(sum) / double(samples.size());
    return 20.0 * std::log10(amplitude / std::ldexp(1.0, int(bits) - 1));
}

double effectiveLevel(const std::vector<int32_t>& samples, unsigned bits)
{
    double sum = 0.0;
    for (const int32_t sample : samples)
        sum += double(sample) * sample;
    const double effective = std::sqrt(sum / double(samples.size()));
    return 20.0 * std::log10(effective * std::numbers::sqrt2 / std::ldexp(1.0, int(bits) - 1));
}

std::vector<int32_t> samplesOf(const SignalSettings& settings, uint64_t first, size_t count, unsigned bits,
                               uint32_t rate = kRate)
{
    std::vector<int32_t> samples(count);
    SignalSource(settings, rate).values(first, count, 1, bits, samples.data());
    return samples;
}

/// Reads one packed sample back.
int32_t unpacked(const unsigned char* at, const SampleFormat& format)
{
    uint32_t value = 0;
    for (unsigned b = 0; b < format.bytesPerSample; ++b) {
        const unsigned from = format.bigEndian ? b : format.bytesPerSample - 1 - b;
        value = (value << 8) | at[from];
    }
    const unsigned spare = 32 - 8 * format.bytesPerSample;
    return int32_t(value << spare) >> spare;
}

} // namespace

class tst_SignalSource : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void toneHasItsFrequencyAndLevel_data()
    {
        QTest::addColumn<double>("frequency");
        QTest::addColumn<double>("level");
        QTest::addColumn<unsigned>("bits");
        QTest::newRow("1 kHz, -20 dB, 24 bit") << 1000.0 << -20.0 << 24U;
        QTest::newRow("full scale, 16 bit") << 440.0 << 0.0 << 16U;
        QTest::newRow("quiet, 32 bit") << 12345.0 << -80.0 << 32U;
    }
    void toneHasItsFrequencyAndLevel()
    {
        QFETCH(double, frequency);
        QFETCH(double, level);
        QFETCH(unsigned, bits);
        SignalSettings settings;
        settings.frequency = frequency;
        settings.levelDb = level;
        // Samples of a whole second: every whole frequency lies in the middle of its bin.
        const auto samples = samplesOf(settings, 0, kRate, bits);
        QVERIFY(std::abs(levelAt(samples, frequency, kRate, bits) - level) < 0.01);
        QVERIFY(levelAt(samples, frequency + 50.0, kRate, bits) < level - 60.0);
    }

    void toneStaysInPhaseAfterYears()
    {
        SignalSettings settings;
        settings.frequency = 1000.0;
        const uint64_t years = uint64_t{3} * 365 * 86400 * kRate;
        const auto late = samplesOf(settings, years, 4800, 24);
        const auto early = samplesOf(settings, 0, 4800, 24);
        for (size_t i = 0; i < late.size(); ++i)
            QVERIFY(std::abs(late[i] - early[i]) <= 5);
    }

    void sampleDependsOnItsNumberAlone_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("tone") << int(SignalSettings::Tone);
        QTest::newRow("sweep") << int(SignalSettings::Sweep);
        QTest::newRow("noise") << int(SignalSettings::Noise);
        QTest::newRow("ramp") << int(SignalSettings::Ramp);
        QTest::newRow("impulses") << int(SignalSettings::Impulses);
    }
    void sampleDependsOnItsNumberAlone()
    {
        QFETCH(int, kind);
        SignalSettings settings;
        settings.kind = SignalSettings::Kind(kind);
        settings.sweepSeconds = 0.05;
        settings.impulseSeconds = 0.05;
        const auto whole = samplesOf(settings, 1000, 9000, 24);
        for (const size_t from : {size_t{1}, size_t{1399}, size_t{1400}, size_t{1401}, size_t{8999}}) {
            const auto part = samplesOf(settings, 1000 + from, whole.size() - from, 24);
            QCOMPARE(part, std::vector<int32_t>(whole.begin() + std::ptrdiff_t(from), whole.end()));
        }
    }

    void sweepPassesItsFrequenciesInTurn()
    {
        SignalSettings settings;
        settings.kind = SignalSettings::Sweep;
        settings.frequency = 1000.0;
        settings.endFrequency = 9000.0;
        settings.sweepSeconds = 4.0;
        settings.levelDb = -6.0;
        // After half of the sweep it is half way up; 10 ms hold 80 Hz of it.
        const auto middle = samplesOf(settings, 2 * kRate - kRate / 200, kRate / 100, 24);
        QVERIFY(levelAt(middle, 5000.0, kRate, 24) > -7.0);
        QVERIFY(levelAt(middle, 1000.0, kRate, 24) < -25.0);
        const auto again = samplesOf(settings, 4 * kRate, 100, 24);
        QCOMPARE(again, samplesOf(settings, 0, 100, 24));
    }

    void fallingSweepFalls()
    {
        SignalSettings settings;
        settings.kind = SignalSettings::Sweep;
        settings.frequency = 9000.0;
        settings.endFrequency = 1000.0;
        settings.sweepSeconds = 4.0;
        settings.levelDb = -6.0;
        const auto late = samplesOf(settings, 3 * kRate - kRate / 200, kRate / 100, 24);
        QVERIFY(levelAt(late, 3000.0, kRate, 24) > -7.0);
    }

    void noiseHasItsLevelAndNoTone()
    {
        SignalSettings settings;
        settings.kind = SignalSettings::Noise;
        settings.levelDb = -30.0;
        const auto samples = samplesOf(settings, 0, kRate, 24);
        QVERIFY(std::abs(effectiveLevel(samples, 24) + 30.0) < 0.1);
        for (const double frequency : {100.0, 1000.0, 10000.0})
            QVERIFY(levelAt(samples, frequency, kRate, 24) < -60.0);
    }

    void noiseRepeatsBySeedOnly()
    {
        SignalSettings settings;
        settings.kind = SignalSettings::Noise;
        settings.seed = 5;
        const auto first = samplesOf(settings, 7, 1000, 24);
        QCOMPARE(samplesOf(settings, 7, 1000, 24), first);
        settings.seed = 6;
        QVERIFY(samplesOf(settings, 7, 1000, 24) != first);
    }

    void burstsStandAtTheirSamples()
    {
        SignalSettings settings;
        settings.kind = SignalSettings::Impulses;
        settings.levelDb = -40.0;
        settings.frequency = 1000.0;
        settings.impulseSeconds = 0.5;
        settings.impulseLength = 0.02;
        settings.impulseLevelDb = -6.0;
        const SignalSource source(settings, kRate);
        QCOMPARE(source.impulsePeriod(), uint64_t{24000});
        QCOMPARE(source.impulseSamples(), uint64_t{960});
        // Two bursts and the noise between them, from a sample number on that is no multiple of the period.
        constexpr uint64_t kFirst = uint64_t{1000} * 24000 - 5000;
        const auto samples = samplesOf(settings, kFirst, 48000, 24);
        settings.kind = SignalSettings::Noise;
        const auto noise = samplesOf(settings, kFirst, 48000, 24);
        settings.kind = SignalSettings::Tone;
        settings.levelDb = -6.0;
        const auto tone = samplesOf(settings, 0, 960, 24);
        for (size_t i = 0; i < samples.size(); ++i) {
            const size_t position = (kFirst + i) % 24000;
            QCOMPARE(samples[i], position < 960 ? tone[position] : noise[i]);
        }
    }

    void burstsAreTheSameOnAllChannels()
    {
        SignalSettings settings;
        settings.kind = SignalSettings::Impulses;
        std::vector<int32_t> frames(3 * 480);
        SignalSource(settings, kRate).values(48000, 480, 3, 24, frames.data());
        const auto burst = samplesOf(settings, 48000, 480, 24);
        for (size_t i = 0; i < frames.size(); ++i)
            QCOMPARE(frames[i], burst[i / 3]);
    }

    void burstHasItsLevelPeakAndExposure()
    {
        SignalSettings settings;
        settings.kind = SignalSettings::Impulses;
        const SignalSource source(settings, kRate);
        // The figures that the guide gives for the signal as it comes.
        QCOMPARE(source.impulsePeriod(), uint64_t{48000});
        QCOMPARE(source.impulseSamples(), uint64_t{480});
        auto burst = samplesOf(settings, 3 * 48000, 480, 24);
        QVERIFY(std::abs(effectiveLevel(burst, 24) + 6.0) < 0.001);
        const auto peak = double(*std::max_element(burst.begin(), burst.end())) / std::ldexp(1.0, 23);
        QVERIFY(std::abs(20.0 * std::log10(peak) + 6.0) < 0.001);
        // 3 V at full scale and -170 dB re 1 V/µPa: exposure in dB re 1 µPa²s.
        double energy = 0.0;
        for (const int32_t sample : burst)
            energy += std::pow(double(sample) / std::ldexp(1.0, 23) * 3.0, 2) / kRate;
        QVERIFY(std::abs(10.0 * std::log10(energy) + 170.0 - 150.53) < 0.01);
        const auto between = samplesOf(settings, 3 * 48000 + 480, 48000 - 480, 24);
        QVERIFY(std::abs(effectiveLevel(between, 24) + 20.0) < 0.1);
    }

    void rampIsTheSampleNumber_data()
    {
        QTest::addColumn<unsigned>("bits");
        QTest::addColumn<quint64>("number");
        QTest::addColumn<int>("value");
        QTest::newRow("first") << 24U << quint64{0} << 0;
        QTest::newRow("largest of 24 bits") << 24U << quint64{8388607} << 8388607;
        QTest::newRow("wraps at 24 bits") << 24U << quint64{8388608} << -8388608;
        QTest::newRow("last before the start") << 24U << quint64{16777215} << -1;
        QTest::newRow("starts over") << 24U << quint64{16777216} << 0;
        QTest::newRow("largest of 16 bits") << 16U << quint64{32767} << 32767;
        QTest::newRow("wraps at 16 bits") << 16U << quint64{32768} << -32768;
        QTest::newRow("32 bits") << 32U << quint64{16777216} << 16777216;
        QTest::newRow("wraps at 32 bits") << 32U << quint64{0x1'8000'0001} << int(0x80000001U);
    }
    void rampIsTheSampleNumber()
    {
        QFETCH(unsigned, bits);
        QFETCH(quint64, number);
        QFETCH(int, value);
        QCOMPARE(SignalSource::rampValue(number, 0, bits), value);
        SignalSettings settings;
        settings.kind = SignalSettings::Ramp;
        QCOMPARE(samplesOf(settings, number, 1, bits).front(), value);
    }

    void channelsDiffer_data() { sampleDependsOnItsNumberAlone_data(); }
    void channelsDiffer()
    {
        QFETCH(int, kind);
        SignalSettings settings;
        settings.kind = SignalSettings::Kind(kind);
        const SignalSource source(settings, kRate);
        std::vector<int32_t> frames(8 * 64);
        // Between two bursts.
        source.values(1000, 64, 8, 24, frames.data());
        for (unsigned a = 0; a < 8; ++a) {
            for (unsigned b = a + 1; b < 8; ++b) {
                int equal = 0;
                for (unsigned i = 0; i < 64; ++i)
                    equal += frames[i * 8 + a] == frames[i * 8 + b];
                QVERIFY2(equal < 8, qPrintable(QStringLiteral("channels %1 and %2").arg(a).arg(b)));
            }
        }
    }

    void samplesArePacked_data()
    {
        QTest::addColumn<unsigned>("bytes");
        QTest::addColumn<bool>("bigEndian");
        QTest::addColumn<unsigned>("channels");
        for (const unsigned bytes : {2U, 3U, 4U})
            for (const bool bigEndian : {false, true})
                for (const unsigned channels : {1U, 2U, 3U, 8U})
                    QTest::addRow("%u bytes, %s, %u channels", bytes, bigEndian ? "big" : "little", channels)
                        << bytes << bigEndian << channels;
    }
    void samplesArePacked()
    {
        QFETCH(unsigned, bytes);
        QFETCH(bool, bigEndian);
        QFETCH(unsigned, channels);
        SignalSettings settings;
        settings.kind = SignalSettings::Ramp;
        const SampleFormat format{bytes, bigEndian, channels};
        constexpr size_t kFrames = 1300;
        std::vector<unsigned char> packed(kFrames * channels * bytes + 1, 0xA5);
        SignalSource(settings, kRate).fill(65000, kFrames, format, packed.data());
        for (size_t i = 0; i < kFrames; ++i)
            for (unsigned c = 0; c < channels; ++c)
                QCOMPARE(unpacked(packed.data() + (i * channels + c) * bytes, format),
                         SignalSource::rampValue(65000 + i, c, 8 * bytes));
        QCOMPARE(packed.back(), uchar{0xA5});
    }

    // --- rainy day flows
    void formatsOutOfRangeWriteNothing_data()
    {
        QTest::addColumn<unsigned>("bytes");
        QTest::addColumn<unsigned>("channels");
        QTest::newRow("one byte") << 1U << 1U;
        QTest::newRow("five bytes") << 5U << 1U;
        QTest::newRow("no channel") << 3U << 0U;
        QTest::newRow("nine channels") << 3U << 9U;
    }
    void formatsOutOfRangeWriteNothing()
    {
        QFETCH(unsigned, bytes);
        QFETCH(unsigned, channels);
        std::vector<unsigned char> packed(1000, 0xA5);
        SignalSource(SignalSettings{}, kRate).fill(0, 10, {bytes, false, channels}, packed.data());
        QCOMPARE(packed, std::vector<unsigned char>(1000, 0xA5));
    }

    void impulseTimesOutOfRangeAreBroughtInside_data()
    {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<double>("length");
        QTest::addColumn<quint64>("period");
        QTest::addColumn<quint64>("samples");
        QTest::newRow("longer than the period") << 0.5 << 2.0 << quint64{24000} << quint64{24000};
        QTest::newRow("nothing") << 0.0 << 0.0 << quint64{1} << quint64{1};
        QTest::newRow("negative") << -1.0 << -1.0 << quint64{1} << quint64{1};
        QTest::newRow("no number") << std::nan("") << std::nan("") << quint64{1} << quint64{1};
        QTest::newRow("endless") << HUGE_VAL << 0.01 << quint64{1000000000000000} << quint64{480};
    }
    void impulseTimesOutOfRangeAreBroughtInside()
    {
        QFETCH(double, seconds);
        QFETCH(double, length);
        SignalSettings settings;
        settings.kind = SignalSettings::Impulses;
        settings.impulseSeconds = seconds;
        settings.impulseLength = length;
        const SignalSource source(settings, kRate);
        QTEST(quint64(source.impulsePeriod()), "period");
        QTEST(quint64(source.impulseSamples()), "samples");
        QCOMPARE(samplesOf(settings, 1, 100, 24).size(), size_t{100});
    }

    void levelsAboveFullScaleAreHeldThere()
    {
        SignalSettings settings;
        settings.levelDb = 40.0;
        for (const auto kind : {SignalSettings::Tone, SignalSettings::Noise}) {
            settings.kind = kind;
            for (const int32_t sample : samplesOf(settings, 0, 20000, 16))
                QVERIFY(sample >= -32768 && sample <= 32767);
        }
    }

    void sampleRateZeroIsHarmless()
    {
        const auto samples = samplesOf(SignalSettings{}, 0, 100, 24, 0);
        for (const int32_t sample : samples)
            QVERIFY(std::abs(sample) <= 838861);
    }
};

QTEST_GUILESS_MAIN(tst_SignalSource)
#include "tst_SignalSource.moc"
