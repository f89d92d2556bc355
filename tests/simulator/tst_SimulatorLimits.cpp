#include "NvxQtSimulator/ControlService.h"
#include "NvxQtSimulator/EpochStream.h"
#include "NvxQtSimulator/SimulatedRecorder.h"
#include "RawPeer.h"
#include "tests/support/NvxTestCase.h"

#include <QNetworkDatagram>
#include <QSignalSpy>
#include <QTcpServer>
#include <QUdpSocket>

#include <functional>
#include <memory>

// What a simulated recorder bounds, and what its users may do to it in the middle of its work.

namespace {

RecorderSettings settingsAt(const char* address)
{
    RecorderSettings settings;
    settings.address = QHostAddress(QLatin1String(address));
    settings.wavePort = settings.spectrumPort = settings.sensorPort = settings.epochPort = 0;
    settings.sampleRate = 8000;
    settings.signal.kind = SignalSettings::Ramp;
    return settings;
}

QByteArray word16(size_t value)
{
    QByteArray bytes(2, 0);
    qToBigEndian(quint16(value), bytes.data());
    return bytes;
}

/// A job setup request with tags that are made already.
QByteArray setupOf(int count, const QByteArray& tags)
{
    return word16(20) + word16(0) + word16(size_t(count)) + tags;
}

/// Body of one chunk of a data collect reply.
QByteArray collectChunk(const QByteArray& payload, int wanted)
{
    for (qsizetype at = 1; at + 4 <= payload.size();) {
        const auto length = RawStreamFrame::word<quint16>(payload, at + 2);
        if (RawStreamFrame::word<quint16>(payload, at) == wanted)
            return payload.mid(at + 4, length);
        at += 4 + length;
    }
    return {};
}

} // namespace

/// What a slot does to the recorder.
using Deed = std::function<void(std::unique_ptr<SimulatedRecorder>&)>;

class tst_SimulatorLimits : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<SimulatedRecorder> m_recorder;
    RawPeer m_peer;

    bool start(const RecorderSettings& settings)
    {
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        return m_recorder->start();
    }
    bool openControl(const RecorderSettings& settings)
    {
        return start(settings) && m_peer.open(settings.address, 50000);
    }

    static void addDeeds()
    {
        QTest::addColumn<Deed>("deed");
        QTest::newRow("stop") << Deed([](std::unique_ptr<SimulatedRecorder>& recorder) { recorder->stop(); });
        QTest::newRow("stop and start") << Deed([](std::unique_ptr<SimulatedRecorder>& recorder) {
            recorder->stop();
            QVERIFY(recorder->start());
        });
        QTest::newRow("delete") << Deed(
            [](std::unique_ptr<SimulatedRecorder>& recorder) { recorder.reset(); });
    }

private Q_SLOTS:
    void cleanup()
    {
        m_peer.socket.abort();
        m_peer.received.clear();
        m_recorder.reset();
    }

    // --- happy flows
    void collectReplyLeavesForTheNextWhatDoesNotFit()
    {
        // 8192 bins beside as many samples as a reply can hold.
        RecorderSettings settings = settingsAt("127.90.0.1");
        settings.sampleRate = 512000;
        settings.bitDepth = 32;
        settings.channels = 8;
        settings.byteOrder = OrderBigEndian;
        settings.firstSequence = 100;
        settings.scanMemorySeconds = 60;
        QVERIFY(openControl(settings));
        // A spectrum each millisecond, so that there is a new one for nearly each request.
        QCOMPARE(m_peer.ask('D', setupOf(2, QByteArray::fromHex("00040004000040000007000400000001"))).letter,
                 'D');
        int64_t expected = -1;
        int full = 0;
        while (full < 3) {
            const RawControlFrame reply = m_peer.ask('C', QByteArray(1, 0x30));
            QCOMPARE(reply.letter, 'C');
            const bool hasSpectrum = (reply.payload.at(0) & 0x10) != 0;
            QCOMPARE(collectChunk(reply.payload, 16).size(), hasSpectrum ? 16 + 8192 : 0);
            const QByteArray waves = collectChunk(reply.payload, 32);
            const int count = RawStreamFrame::word<quint16>(waves, 8);
            for (int i = 0; i < count; ++i) {
                const auto value = RawStreamFrame::word<qint32>(waves, 10 + qsizetype(i) * 32);
                if (expected >= 0)
                    QCOMPARE(value, SignalSource::rampValue(uint64_t(expected), 0, 32));
                expected = value + 1;
            }
            full += hasSpectrum && (uchar(reply.payload.at(0)) & 0x80) != 0 && count > 1000;
        }
    }

    void spectrumHeaderTellsItsSetup()
    {
        RecorderSettings settings = settingsAt("127.90.0.2");
        settings.identity.serial = 321;
        settings.sampleRate = 64000;
        settings.firstSequence = (int64_t{1} << 33) + 5;
        settings.rollover = 6;
        settings.clockOffset = 1000;
        QVERIFY(start(settings));
        RawPeer control;
        QVERIFY(control.open(settings.address, 50000));
        // 2048 points, 700 between spectra, 20 of them averaged, type 3, weight 2, reference -100 dB: more
        // than four spectra a second.
        const QByteArray tags = QByteArray::fromHex("0004000400000800"
                                                    "00050004000002bc"
                                                    "0007000400000014"
                                                    "0006000400000003"
                                                    "0008000400000002"
                                                    "00030004ffffff9c");
        const RawControlFrame answer = control.ask('D', setupOf(6, tags));
        QCOMPARE(answer.payload.left(4), word16(20) + word16(0));
        QVERIFY(m_peer.open(settings.address, m_recorder->streamPort(StreamSpectrum)));
        const qint64 before = m_recorder->deviceTime();
        m_peer.startStream();
        QVERIFY(m_peer.waitForFrames(1, 2));
        const auto frames = m_peer.streamFrames();
        QCOMPARE(int(frames.front().kind), 1);

        int64_t second = -1;
        RawStreamFrame header;
        int64_t next = frames.front().sequence();
        for (const RawStreamFrame& frame : frames) {
            QVERIFY(frame.checksumFits);
            if (frame.kind == 2) {
                // Spectra bear the key of their event and the place of their first sample in it.
                QCOMPARE(frame.sequence(), header.sequence());
                QCOMPARE(frame.time(), header.time());
                QCOMPARE(frame.sequence() + frame.position(), next);
                next += 20 * 700;
                QCOMPARE(frame.samples(), quint16{1024});
                QCOMPARE(frame.sampleBytes().size(), 1024);
                continue;
            }
            QCOMPARE(int(frame.kind), 1);
            for (const uint16_t type : {1, 2, 3, 5, 6, 11})
                QCOMPARE(frame.count(type), 1);
            QCOMPARE(frame.count(4), 0);
            QCOMPARE(frame.count(8), 0);
            QCOMPARE(RawStreamFrame::word<quint16>(frame.chunk(2), 4), quint16{321});
            QCOMPARE(int(frame.rollover()), 6);
            const QByteArray setup = frame.chunk(5);
            QCOMPARE(RawStreamFrame::word<quint32>(setup, 0), 64000U);
            QCOMPARE(RawStreamFrame::word<quint16>(setup, 4), quint16{2048});
            QCOMPARE(RawStreamFrame::word<qint16>(setup, 6), qint16{-100});
            QCOMPARE(RawStreamFrame::word<quint16>(setup, 8), quint16{3});
            QCOMPARE(RawStreamFrame::word<quint16>(setup, 10), quint16{700});
            QCOMPARE(RawStreamFrame::word<quint16>(setup, 12), quint16{20});
            QCOMPARE(RawStreamFrame::word<quint16>(setup, 14), quint16{2});
            QCOMPARE(int(frame.chunk(6).at(1)), 8);
            QCOMPARE(RawStreamFrame::word<qint32>(frame.chunk(6), 4), 255);
            QCOMPARE(int(frame.chunk(11).at(0)), 1);
            if (second < 0) {
                QVERIFY(frame.time() >= before && frame.time() <= m_recorder->deviceTime());
                QVERIFY(frame.sequence() >= settings.firstSequence);
            } else {
                // A header for each second: as many seconds, as many times the rate.
                const int64_t seconds = int64_t(frame.time()) - header.time();
                QVERIFY(seconds >= 1);
                QCOMPARE(frame.sequence(), header.sequence() + seconds * 64000);
            }
            second = frame.time();
            header = frame;
        }
    }

    // --- rainy day flows
    void clientThatTakesNoRepliesIsCutOff()
    {
        // Long texts make replies much longer than requests.
        RecorderSettings settings = settingsAt("127.90.0.3");
        settings.identity.model = settings.identity.firmwareVersion = settings.identity.firmwareRelease =
            std::string(255, 'x');
        QVERIFY(start(settings));
        RawPeer deaf;
        QVERIFY(deaf.open(settings.address, 50000));
        deaf.socket.setReadBufferSize(1);
        deaf.socket.disconnect(&deaf);
        QVERIFY(deaf.waitFor([&] {
            for (int i = 0; i < 100 && deaf.socket.state() == QAbstractSocket::ConnectedState; ++i)
                deaf.send('E');
            return m_recorder->counters().channelsCut > 0;
        }));
        QVERIFY(m_recorder->counters().commands * 805 > uint64_t(ControlSession::kMaxReplyBacklog));
        QCOMPARE(m_recorder->counters().channelsCut, 1U);
        // The recorder goes on with others.
        RawPeer second;
        QVERIFY(second.open(settings.address, 50000));
        QCOMPARE(second.ask('V').letter, 'V');
    }

    void breakComesBehindWhatIsHeldBack_data()
    {
        QTest::addColumn<QString>("held");
        QTest::addColumn<QString>("broken");
        for (const char* held : {"slow:value=200,after=1,times=1", "split:value=5,after=1,times=1"})
            for (const char* broken : {"close:value=3,after=2,times=1", "reset:value=3,after=2,times=1"})
                QTest::addRow("%.5s, %.5s", held, broken)
                    << QString::fromLatin1(held) << QString::fromLatin1(broken);
    }
    void breakComesBehindWhatIsHeldBack()
    {
        QFETCH(QString, held);
        QFETCH(QString, broken);
        const RecorderSettings settings = settingsAt("127.90.0.4");
        QVERIFY(openControl(settings));
        FaultPlan plan(1);
        plan.add(FaultRule::fromText(held).value());
        plan.add(FaultRule::fromText(broken).value());
        m_recorder->setFaults(plan);
        for (const char letter : {'V', 'U', '['})
            m_peer.send(letter);
        QVERIFY(m_peer.waitForEnd());
        const auto replies = m_peer.controlFrames();
        QCOMPARE(replies.size(), size_t{2});
        QCOMPARE(replies[0].letter, 'V');
        QCOMPARE(replies[1].letter, 'U');
        QVERIFY(replies[1].checksumFits);
        QCOMPARE(m_peer.received.mid(16), QByteArrayLiteral("*[\0"));
    }

    void slotOnACommandMayEndTheRecorder_data() { addDeeds(); }
    void slotOnACommandMayEndTheRecorder()
    {
        QFETCH(Deed, deed);
        QVERIFY(openControl(settingsAt("127.90.0.5")));
        // The slot takes the recorder away under a reader that has more requests.
        connect(
            m_recorder.get(), &SimulatedRecorder::commandReceived, this, [&] { deed(m_recorder); },
            Qt::SingleShotConnection);
        for (int i = 0; i < 3; ++i)
            m_peer.send('E');
        QVERIFY(m_peer.waitForEnd());
        QCOMPARE(m_peer.received, QByteArray());
        if (!m_recorder || !m_recorder->isListening())
            return;
        QCOMPARE(m_recorder->counters().commands, 1U);
        QVERIFY(m_peer.open(m_recorder->settings().address, 50000));
        QCOMPARE(m_peer.ask('E').letter, 'E');
    }

    void slotOnAStreamMayEndTheRecorder_data() { addDeeds(); }
    void slotOnAStreamMayEndTheRecorder()
    {
        QFETCH(Deed, deed);
        struct Case
        {
            HydStreamType type;
            const char* fault;
            bool onStop;
        };
        // Start of either kind of stream, and the ends that a notification and a broken connection bring.
        for (const Case& each : {Case{StreamWave, "", false}, Case{StreamEpoch, "", false},
                                 Case{StreamWave, "notify:value=3,after=2,times=1", true},
                                 Case{StreamWave, "close:after=2,times=1", true}}) {
            RecorderSettings settings = settingsAt("127.90.0.6");
            settings.unpaced = true;
            if (*each.fault != 0) {
                FaultPlan plan(1);
                plan.add(FaultRule::fromText(QLatin1String(each.fault)).value());
                settings.faults = plan;
            }
            QVERIFY(start(settings));
            QVERIFY(m_peer.open(settings.address, m_recorder->streamPort(each.type)));
            bool done = false;
            connect(
                m_recorder.get(),
                each.onStop ? &SimulatedRecorder::streamStopped : &SimulatedRecorder::streamStarted, this,
                [&] {
                    done = true;
                    deed(m_recorder);
                },
                Qt::SingleShotConnection);
            if (each.type != StreamEpoch)
                m_peer.startStream();
            QVERIFY(m_peer.waitForEnd());
            QTRY_VERIFY(done);
            cleanup();
        }
    }

    void slotOnAnEnquiryMayEndTheRecorder_data() { addDeeds(); }
    void slotOnAnEnquiryMayEndTheRecorder()
    {
        QFETCH(Deed, deed);
        const RecorderSettings settings = settingsAt("127.90.0.7");
        QVERIFY(start(settings));
        bool done = false;
        connect(
            m_recorder.get(), &SimulatedRecorder::enquiryAnswered, this,
            [&] {
                done = true;
                deed(m_recorder);
            },
            Qt::SingleShotConnection);
        QUdpSocket socket;
        QVERIFY(socket.bind(QHostAddress(QStringLiteral("127.90.1.7")), 0));
        QByteArray enquiry =
            QByteArrayLiteral("NVXM\1\1") + word16(socket.localPort()) + word16(22) + QByteArray(22, 0);
        enquiry += RawPeer::checksum(enquiry);
        for (int i = 0; i < 3; ++i)
            socket.writeDatagram(enquiry, settings.address, 62726);
        QTRY_VERIFY(done);
        QTRY_VERIFY(socket.hasPendingDatagrams());
    }

    void waitingEpochLinesAreBounded()
    {
        constexpr int kWaiting = 1024;
        constexpr int kTooMany = 76;
        const RecorderSettings settings = settingsAt("127.90.0.40");
        RecorderState state(settings, nullptr);
        QTcpServer server;
        QVERIFY(server.listen(settings.address));
        RawPeer reader;
        QVERIFY(reader.open(settings.address, server.serverPort()));
        QVERIFY(QTest::qWaitFor([&] { return server.hasPendingConnections(); }, 10000));
        EpochStream stream(server.nextPendingConnection(), &state, nullptr);
        // Nobody reads it yet.
        Q_EMIT state.epochLine("too early\n");
        QTRY_COMPARE(state.counters.streamStarts, uint64_t{1});
        for (int i = 0; i < kWaiting + kTooMany; ++i)
            Q_EMIT state.epochLine(QByteArray::number(i) + '\n');
        QCOMPARE(state.counters.framesDropped, uint64_t{kTooMany});
        // One leaves, one more fits.
        QVERIFY(reader.waitFor([&] { return reader.received.startsWith("0\n"); }));
        Q_EMIT state.epochLine("fits\n");
        QCOMPARE(state.counters.framesDropped, uint64_t{kTooMany});
    }
};

QTEST_GUILESS_MAIN(tst_SimulatorLimits)
#include "tst_SimulatorLimits.moc"
