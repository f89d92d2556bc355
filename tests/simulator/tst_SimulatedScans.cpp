#include "NvxQtSimulator/SimulatedRecorder.h"
#include "NvxQtSimulator/SpectrumMaker.h"
#include "RawPeer.h"
#include "tests/support/NvxTestCase.h"

#include <cmath>
#include <memory>
#include <numbers>

// Data collect replies, seen from a raw socket, against the signal that they are of.

namespace {

constexpr int kSpectrum = 16;
constexpr int kWaves = 32;
constexpr int kSpectrumTime = 4096;
constexpr int kWaveTime = 8192;

RecorderSettings scanSettings(const char* address)
{
    RecorderSettings settings;
    settings.address = QHostAddress(QLatin1String(address));
    settings.roles = RoleControl;
    settings.sampleRate = 8000;
    settings.bitDepth = 16;
    settings.signal.kind = SignalSettings::Noise;
    settings.firstSequence = 1000000;
    settings.clockOffset = 5000;
    return settings;
}

/// Body of one chunk of a data collect reply.
QByteArray collectChunk(const QByteArray& payload, int wanted)
{
    for (qsizetype at = 1; at + 4 <= payload.size();) {
        const auto name = RawStreamFrame::word<quint16>(payload, at);
        const auto length = RawStreamFrame::word<quint16>(payload, at + 2);
        if (name == wanted)
            return payload.mid(at + 4, length);
        at += 4 + length;
    }
    return {};
}

} // namespace

class tst_SimulatedScans : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<SimulatedRecorder> m_recorder;
    std::unique_ptr<RawPeer> m_peer;

    bool open(const RecorderSettings& settings)
    {
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        m_peer = std::make_unique<RawPeer>();
        return m_recorder->start() && m_peer->open(settings.address, 50000);
    }
    QByteArray collect(int mask) { return m_peer->ask('C', QByteArray(1, char(mask))).payload; }
    /// Asks until there is a spectrum in the reply.
    QByteArray collectSpectrum(int mask = kSpectrum)
    {
        QByteArray reply;
        m_peer->waitFor([&] {
            reply = collect(mask);
            return !reply.isEmpty() && (reply.at(0) & kSpectrum) != 0;
        });
        return reply;
    }

private Q_SLOTS:
    void cleanup()
    {
        m_peer.reset();
        m_recorder.reset();
    }

    // --- happy flows
    void spectraAreThoseOfTheirNumbers()
    {
        const RecorderSettings settings = scanSettings("127.91.4.1");
        QVERIFY(open(settings));
        const double fullScale = 20.0 * std::log10(3.0 / std::numbers::sqrt2);
        SpectrumMaker maker(settings.signal, 8000, 1024, 512);
        uint32_t before = 0;
        for (int i = 0; i < 4; ++i) {
            const int64_t asked = m_recorder->deviceTime();
            const QByteArray reply = collectSpectrum();
            QCOMPARE(reply.at(0), char(kSpectrum));
            const QByteArray place = collectChunk(reply, kSpectrumTime);
            QCOMPARE(place.size(), 8);
            const auto time = RawStreamFrame::word<quint32>(place, 0);
            QVERIFY(time >= asked - 1 && time <= m_recorder->deviceTime() + 1);
            const auto number = RawStreamFrame::word<quint32>(place, 4);
            QVERIFY(number > before);
            before = number;
            // Three transforms 512 samples apart make one.
            QVERIFY(number >= 1000000 / 1536);
            const QByteArray body = collectChunk(reply, kSpectrum);
            QCOMPARE(body.left(16), QByteArray::fromHex("00001f40"
                                                        "0400"
                                                        "ff88"
                                                        "0000"
                                                        "0200"
                                                        "0003"
                                                        "0000"));
            const auto bins = maker.bins(uint64_t{number} * 1536, 3, -120.0 - fullScale);
            QCOMPARE(body.mid(16),
                     QByteArray(reinterpret_cast<const char*>(bins.data()), qsizetype(bins.size())));
        }
    }

    void spectrumComesOnceOnly()
    {
        RecorderSettings settings = scanSettings("127.91.4.2");
        settings.sampleRate = 1;
        QVERIFY(open(settings));
        // At one sample a second it lasts for minutes.
        QVERIFY(!collectChunk(collect(kSpectrum), kSpectrum).isEmpty());
        QCOMPARE(collect(kSpectrum), QByteArray(1, '\0'));
        // Who hasn't had it gets it.
        RawPeer other;
        QVERIFY(other.open(settings.address, 50000));
        QCOMPARE(other.ask('C', QByteArray(1, char(kSpectrum))).payload.at(0), char(kSpectrum));
    }

    void bothComeInOneReply()
    {
        QVERIFY(open(scanSettings("127.91.4.3")));
        const QByteArray reply = collectSpectrum(kSpectrum | kWaves);
        QCOMPARE(reply.at(0), char(kSpectrum | kWaves));
        for (const int name : {kSpectrum, kWaves, kSpectrumTime, kWaveTime})
            QVERIFY2(!collectChunk(reply, name).isEmpty(), qPrintable(QString::number(name)));
    }

    void maskWithoutDataGetsNone()
    {
        QVERIFY(open(scanSettings("127.91.4.4")));
        QCOMPARE(collect(0), QByteArray(1, '\0'));
        QCOMPARE(collect(0x4F), QByteArray(1, '\0'));
    }

    // --- rainy day flows
    void lateClientLosesWhatTheMemoryDoesNotHold()
    {
        RecorderSettings settings = scanSettings("127.91.4.5");
        settings.signal.kind = SignalSettings::Ramp;
        settings.bitDepth = 32;
        settings.scanMemorySeconds = 1;
        QVERIFY(open(settings));
        QByteArray first;
        QVERIFY(m_peer->waitFor([&] {
            first = collect(kWaves);
            return RawStreamFrame::word<quint16>(collectChunk(first, kWaves), 8) > 0;
        }));
        const auto sampleOf = [](const QByteArray& reply) {
            return qint64(qFromLittleEndian<qint32>(collectChunk(reply, kWaves).constData() + 10));
        };
        const auto secondOf = [](const QByteArray& reply) {
            return qint64(RawStreamFrame::word<quint32>(collectChunk(reply, kWaveTime), 0));
        };
        const auto placeOf = [](const QByteArray& reply) {
            return qint64(RawStreamFrame::word<quint32>(collectChunk(reply, kWaveTime), 4));
        };
        const qint64 start = m_recorder->deviceTime();
        QVERIFY(m_peer->waitFor([&] { return m_recorder->deviceTime() >= start + 3; }));
        const QByteArray late = collect(kWaves);
        // It goes on with the beginning of a later second, and with the samples of that second.
        const qint64 seconds = secondOf(late) - secondOf(first);
        QVERIFY2(seconds >= 1, qPrintable(QString::number(seconds)));
        QCOMPARE(placeOf(late), qint64{0});
        QVERIFY(RawStreamFrame::word<quint16>(collectChunk(late, kWaves), 8) > 0);
        QCOMPARE(sampleOf(late), sampleOf(first) - placeOf(first) + 8000 * seconds);
    }
};

QTEST_GUILESS_MAIN(tst_SimulatedScans)
#include "tst_SimulatedScans.moc"
