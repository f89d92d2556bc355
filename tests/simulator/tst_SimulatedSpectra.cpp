#include "NvxQtSimulator/SimulatedRecorder.h"
#include "NvxQtSimulator/SpectrumMaker.h"
#include "RawPeer.h"
#include "tests/support/NvxTestCase.h"

#include <QElapsedTimer>
#include <QSignalSpy>

#include <cmath>
#include <complex>
#include <memory>
#include <numbers>
#include <utility>

// Spectrum streams, seen from a raw socket, against the signal that they are of.

namespace {

constexpr uint8_t kHeader = 1;
constexpr uint8_t kData = 2;

// Keys of the job setup.
constexpr quint16 kFftRate = 2;
constexpr quint16 kFftRef = 3;
constexpr quint16 kFftPoints = 4;
constexpr quint16 kFftPointsBtw = 5;
constexpr quint16 kFftAccum = 7;
constexpr quint16 kWavGain = 17;

/// Effective voltage of a sine wave of full scale, dB re 1 V.
const double kFullScale = 20.0 * std::log10(3.0 / std::numbers::sqrt2);

RecorderSettings noiseSettings(const char* address, uint32_t seconds = 3)
{
    RecorderSettings settings;
    settings.address = QHostAddress(QLatin1String(address));
    settings.spectrumPort = 0;
    settings.roles = RoleControl | RoleSpectrum;
    settings.sampleRate = 8000;
    settings.firstSequence = 123456789;
    settings.signal.kind = SignalSettings::Noise;
    settings.unpaced = true;
    settings.streamSeconds = seconds;
    return settings;
}

QByteArray asBytes(const std::vector<uint8_t>& bins)
{
    return QByteArray(reinterpret_cast<const char*>(bins.data()), qsizetype(bins.size()));
}

} // namespace

class tst_SimulatedSpectra : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<SimulatedRecorder> m_recorder;
    std::unique_ptr<RawPeer> m_peer;
    std::unique_ptr<RawPeer> m_control;

    bool open(const RecorderSettings& settings)
    {
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        m_peer = std::make_unique<RawPeer>();
        m_control = std::make_unique<RawPeer>();
        return m_recorder->start() && m_control->open(settings.address, 50000) &&
               m_peer->open(settings.address, m_recorder->streamPort(StreamSpectrum));
    }
    bool writeSetup(std::initializer_list<std::pair<quint16, qint32>> tags)
    {
        QByteArray request = QByteArray::fromHex("00140000") + QByteArray(1, '\0') + char(tags.size());
        for (const auto& [key, value] : tags) {
            QByteArray tag = QByteArray::fromHex("0000000400000000");
            qToBigEndian(key, tag.data());
            qToBigEndian(value, tag.data() + 4);
            request += tag;
        }
        return m_control->ask('D', request).payload.left(4) == QByteArray::fromHex("00140000");
    }
    std::vector<RawStreamFrame> spectra() const { return m_peer->streamFrames(kData); }

private Q_SLOTS:
    void cleanup()
    {
        m_control.reset();
        m_peer.reset();
        m_recorder.reset();
    }

    // --- happy flows
    void spectraFollowOneAnotherAndAreOfTheirSamples_data()
    {
        QTest::addColumn<int>("points");
        QTest::addColumn<int>("between");
        QTest::addColumn<int>("accum");
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("expected");
        // As many as three seconds hold whole.
        QTest::newRow("as it comes") << 1024 << 512 << 3 << 8000 << 15;
        QTest::newRow("small and many") << 128 << 64 << 5 << 8000 << 75;
        QTest::newRow("a gap in each") << 256 << 200 << 1 << 8000 << 120;
        QTest::newRow("another rate than the waves") << 512 << 512 << 2 << 16000 << 46;
        QTest::newRow("longer than a second") << 1024 << 1000 << 12 << 8000 << 2;
    }
    void spectraFollowOneAnotherAndAreOfTheirSamples()
    {
        QFETCH(int, points);
        QFETCH(int, between);
        QFETCH(int, accum);
        QFETCH(int, rate);
        QFETCH(int, expected);
        const RecorderSettings settings = noiseSettings("127.92.2.1");
        QVERIFY(open(settings));
        QVERIFY(writeSetup(
            {{kFftPoints, points}, {kFftPointsBtw, between}, {kFftAccum, accum}, {kFftRate, rate}}));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, size_t(expected)));

        SpectrumMaker maker(settings.signal, uint32_t(rate), unsigned(points), unsigned(between));
        RawStreamFrame header;
        int64_t next = 0;
        for (const RawStreamFrame& frame : m_peer->streamFrames()) {
            QVERIFY(frame.checksumFits);
            if (frame.kind == kHeader) {
                if (next == 0) {
                    next = frame.sequence();
                    QVERIFY(next >= settings.firstSequence * rate / 8000);
                } else {
                    const int64_t seconds = int64_t(frame.time()) - header.time();
                    QVERIFY(seconds >= 1);
                    QCOMPARE(frame.sequence(), header.sequence() + seconds * rate);
                }
                header = frame;
                continue;
            }
            QCOMPARE(frame.sequence(), header.sequence());
            QCOMPARE(frame.time(), header.time());
            QCOMPARE(frame.sequence() + frame.position(), next);
            QVERIFY(int(frame.position()) < rate);
            QCOMPARE(frame.samples(), quint16(points / 2));
            QCOMPARE(frame.sampleBytes(),
                     asBytes(maker.bins(uint64_t(next), unsigned(accum), -120.0 - kFullScale)));
            next += int64_t{between} * accum;
        }
        QCOMPARE(spectra().size(), size_t(expected));
    }

    void binsAreThoseOfATransformByItsDefinition()
    {
        const RecorderSettings settings = noiseSettings("127.92.2.2", 1);
        QVERIFY(open(settings));
        QVERIFY(writeSetup({{kFftPoints, 256}, {kFftPointsBtw, 128}, {kFftAccum, 10}}));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 6));
        const RawStreamFrame spectrum = spectra().back();
        std::vector<int32_t> samples(9 * 128 + 256);
        SignalSource(settings.signal, 8000)
            .values(uint64_t(spectrum.sequence()) + spectrum.position(), samples.size(), 1, 24,
                    samples.data());
        for (int bin = 0; bin < 128; ++bin) {
            double power = 0.0;
            for (int t = 0; t < 10; ++t) {
                std::complex<double> sum;
                for (int i = 0; i < 256; ++i) {
                    const double turn = 2.0 * std::numbers::pi * i / 256.0;
                    sum += (0.5 - 0.5 * std::cos(turn)) * samples[size_t(t * 128 + i)] / 8388608.0 *
                           std::polar(1.0, -turn * bin);
                }
                power += std::norm(sum) / 10.0;
            }
            // A sine wave of amplitude 1 gives 64 through this window.
            const double level = 10.0 * std::log10(power / 64.0 / 64.0) + kFullScale;
            const int value = uchar(spectrum.sampleBytes().at(bin));
            QVERIFY2(std::abs(value - 2.0 * (level + 120.0)) < 0.51, qPrintable(QString::number(bin)));
        }
    }

    void referenceLevelIsThatOfTheSetup_data()
    {
        QTest::addColumn<int>("reference");
        QTest::addColumn<int>("gain");
        QTest::addColumn<int>("expected");
        // -20 dBFS are -13.5 dB re 1 V, less the gain.
        QTest::newRow("as it comes") << -120 << 0 << 213;
        QTest::newRow("higher") << -100 << 0 << 173;
        QTest::newRow("gain") << -120 << 20 << 173;
        QTest::newRow("above the level") << 0 << 0 << 0;
        QTest::newRow("so low that the byte is full") << -160 << 0 << 255;
    }
    void referenceLevelIsThatOfTheSetup()
    {
        QFETCH(int, reference);
        QFETCH(int, gain);
        QFETCH(int, expected);
        RecorderSettings settings = noiseSettings("127.92.2.3", 1);
        settings.signal.kind = SignalSettings::Tone;
        settings.signal.frequency = 2000.0;
        QVERIFY(open(settings));
        QVERIFY(writeSetup({{kFftRef, reference}, {kWavGain, gain}}));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 1));
        QCOMPARE(RawStreamFrame::word<qint16>(m_peer->streamFrames(kHeader).front().chunk(5), 6),
                 qint16(reference));
        QCOMPARE(int(uchar(spectra().front().sampleBytes().at(256))), expected);
    }

    void longAveragesAreSpreadOverTheirTime()
    {
        // Of 512 transforms of 1024 points 64 are made. The tone sounds in the second half alone.
        SignalSettings signal;
        signal.kind = SignalSettings::Impulses;
        signal.levelDb = -200.0;
        signal.frequency = 2000.0;
        signal.impulseSeconds = 64.0;
        signal.impulseLength = 32.0;
        SpectrumMaker maker(signal, 8000, 1024, 512);
        const auto silence = maker.bins(32 * 8000 + 8000, 1, -120.0);
        QCOMPARE(int(silence[256]), 0);
        // Half of the power is 3 dB less than the 114 dB of a whole tone.
        const auto half = maker.bins(32 * 8000 + 512 * 256, 512, -120.0);
        QCOMPARE(int(half[256]), 2 * (114 - 3));
    }

    void pacedSpectraFollowTheClock()
    {
        RecorderSettings settings = noiseSettings("127.92.2.4", 0);
        settings.unpaced = false;
        QVERIFY(open(settings));
        QVERIFY(writeSetup({{kFftPoints, 128}, {kFftPointsBtw, 80}, {kFftAccum, 2}}));
        QElapsedTimer clock;
        qint64 begun = 0;
        connect(m_recorder.get(), &SimulatedRecorder::streamStarted, this, [&] { begun = clock.elapsed(); });
        clock.start();
        m_peer->startStream();
        // One each 20 ms, however late the machine is: never ahead of the clock.
        QVERIFY(m_peer->waitForFrames(kData, 50));
        const qint64 reached = clock.elapsed();
        const size_t sofar = spectra().size();
        QVERIFY(qint64(sofar) * 20 <= reached + 1);
        // And once the stream had its turn, not far behind the time at which it came to it.
        QVERIFY(m_peer->waitForFrames(kData, sofar + 1));
        QVERIFY(qint64(spectra().size()) * 40 >= reached - begun);
    }

    void writtenSetupTakesEffectWithTheNextStart()
    {
        RecorderSettings settings = noiseSettings("127.92.2.5", 0);
        settings.unpaced = false;
        QVERIFY(open(settings));
        QVERIFY(writeSetup({{kFftPoints, 128}, {kFftPointsBtw, 64}, {kFftAccum, 20}}));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 1));
        QVERIFY(writeSetup({{kFftPoints, 256}, {kFftAccum, 1}, {kFftRef, -90}}));
        QVERIFY(m_peer->waitForFrames(kHeader, 2));
        const QByteArray setup = m_peer->streamFrames(kHeader).back().chunk(5);
        QCOMPARE(RawStreamFrame::word<quint16>(setup, 4), quint16{128});
        QCOMPARE(RawStreamFrame::word<qint16>(setup, 6), qint16{-120});
        QCOMPARE(spectra().back().samples(), quint16{64});
        QSignalSpy stopped(m_recorder.get(), &SimulatedRecorder::streamStopped);
        m_peer->stopStream();
        QTRY_COMPARE(stopped.size(), 1);
        QVERIFY(m_peer->waitForBytes(qsizetype(m_recorder->counters().bytesSent)));
        m_peer->received.clear();
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 1));
        QCOMPARE(RawStreamFrame::word<quint16>(m_peer->streamFrames(kHeader).front().chunk(5), 4),
                 quint16{256});
        QCOMPARE(spectra().front().samples(), quint16{128});
    }

    void writtenTimeMovesTheEvents()
    {
        RecorderSettings settings = noiseSettings("127.92.2.6", 0);
        settings.unpaced = false;
        QVERIFY(open(settings));
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kHeader, 1));
        QByteArray time(4, 0);
        qToBigEndian(quint32(m_recorder->deviceTime() - 3600), time.data());
        QCOMPARE(m_control->ask('A', time).letter, 'A');
        const qint64 shift = m_peer->backwardStep();
        // A busy machine lets time pass between the reading of the clock and its writing.
        QVERIFY2(shift >= -3660 && shift <= -3598, qPrintable(QString::number(shift)));
    }

    // --- rainy day flows
    void slowReaderOfAnUnpacedStreamStopsIt()
    {
        RecorderSettings settings = noiseSettings("127.92.2.7", 0);
        settings.sampleRate = 512000;
        settings.backlogLimit = 64 * 1024;
        QVERIFY(open(settings));
        QVERIFY(writeSetup({{kFftPoints, 16384}, {kFftPointsBtw, 16384}, {kFftAccum, 1}}));
        m_peer->socket.setReadBufferSize(1);
        m_peer->socket.disconnect(m_peer.get());
        m_peer->startStream();
        uint64_t before = 0;
        QVERIFY(m_peer->waitFor([&] {
            const uint64_t sent = m_recorder->counters().bytesSent;
            return sent > 0 && sent == std::exchange(before, sent);
        }));
        QCOMPARE(m_recorder->counters().framesDropped, 0U);
    }

    void secondsTooShortForASpectrumHoldNone()
    {
        QVERIFY(open(noiseSettings("127.92.2.8", 1)));
        QVERIFY(writeSetup({{kFftAccum, 100}}));
        m_peer->startStream();
        QTRY_COMPARE(m_recorder->counters().streamStarts, 1U);
        QCOMPARE(m_control->ask('V').letter, 'V');
        QCOMPARE(m_peer->received, QByteArray());
    }
};

QTEST_GUILESS_MAIN(tst_SimulatedSpectra)
#include "tst_SimulatedSpectra.moc"
