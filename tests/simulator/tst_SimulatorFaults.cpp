#include "NvxQtSimulator/SimulatedRecorder.h"
#include "RawPeer.h"
#include "tests/support/NvxTestCase.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QUdpSocket>

#include <memory>

// Each fault switch, seen from raw sockets.

namespace {

constexpr uint8_t kHeader = 1;
constexpr uint8_t kData = 2;
constexpr uint8_t kNotification = 3;

const QByteArray kReadTime = QByteArray::fromHex("ffffffff");

RecorderSettings faultSettings(const char* address)
{
    RecorderSettings settings;
    settings.address = QHostAddress(QLatin1String(address));
    settings.wavePort = settings.spectrumPort = settings.sensorPort = settings.epochPort = 0;
    settings.sampleRate = 8000;
    settings.bitDepth = 16;
    settings.signal.kind = SignalSettings::Ramp;
    // The first event header has a sequence number other than 0.
    settings.firstSequence = 100000;
    return settings;
}

FaultRule ruleOf(const char* text)
{
    return FaultRule::fromText(QLatin1String(text)).value();
}

} // namespace

class tst_SimulatorFaults : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<SimulatedRecorder> m_recorder;
    std::unique_ptr<RawPeer> m_peer;

    bool openRecorder(RecorderSettings settings, const char* rule, uint64_t seed = 11)
    {
        FaultPlan plan(seed);
        plan.add(ruleOf(rule));
        settings.faults = plan;
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        m_peer = std::make_unique<RawPeer>();
        return m_recorder->start();
    }
    bool openControl(RecorderSettings settings, const char* rule, uint64_t seed = 11)
    {
        settings.roles = RoleControl;
        return openRecorder(settings, rule, seed) && m_peer->open(settings.address, 50000);
    }
    /// An unpaced wave stream of three seconds.
    bool openStream(RecorderSettings settings, const char* rule, uint64_t seed = 11)
    {
        settings.roles = RoleWave;
        settings.unpaced = true;
        settings.streamSeconds = 3;
        if (!openRecorder(settings, rule, seed) ||
            !m_peer->open(settings.address, m_recorder->streamPort(StreamWave)))
            return false;
        m_peer->startStream();
        return true;
    }
    /// All samples of the three seconds were dealt with and what was sent arrived.
    bool waitForAll(qint64 moreBytes = 0)
    {
        return m_peer->waitFor([this] {
            const RecorderCounters counters = m_recorder->counters();
            return counters.samplesSent + counters.samplesWithheld >= 24000;
        }) && m_peer->waitForBytes(qsizetype(m_recorder->counters().bytesSent) + moreBytes);
    }

private Q_SLOTS:
    void cleanup()
    {
        m_peer.reset();
        m_recorder.reset();
    }

    // --- happy flows
    void seedIsPrinted()
    {
        FaultPlan plan(123456789);
        plan.add({Fault::Loss});
        RecorderSettings settings = faultSettings("127.93.0.1");
        settings.faults = plan;
        QTest::ignoreMessage(QtInfoMsg, "Simulated recorder 1234: the seed of its faults is 123456789");
        SimulatedRecorder recorder(settings);
        QCOMPARE(recorder.settings().faults.seed(), uint64_t{123456789});
    }

    void sameSeedGivesTheSameFaults()
    {
        QStringList outcomes;
        for (const uint64_t seed : {5, 5, 6}) {
            FaultPlan plan(seed);
            for (const char* rule : {"loss:chance=0.1", "junk:chance=0.1", "duplicate:chance=0.1",
                                     "bad-checksum:chance=0.1", "sequence-gap:chance=0.3"})
                plan.add(ruleOf(rule));
            RecorderSettings settings = faultSettings("127.93.0.2");
            settings.faults = plan;
            settings.roles = RoleWave;
            settings.unpaced = true;
            settings.streamSeconds = 5;
            SimulatedRecorder recorder(settings);
            QVERIFY(recorder.start());
            RawPeer peer;
            QVERIFY(peer.open(settings.address, recorder.streamPort(StreamWave)));
            peer.startStream();
            QVERIFY(peer.waitFor([&] {
                return recorder.counters().samplesSent + recorder.counters().samplesWithheld >= 40000;
            }));
            const RecorderCounters counters = recorder.counters();
            QVERIFY(counters.faults > 10);
            recorder.stop();
            QVERIFY(peer.waitForEnd());
            outcomes << QStringLiteral("%1 faults, %2 samples withheld, %3 bytes")
                            .arg(counters.faults)
                            .arg(counters.samplesWithheld)
                            .arg(peer.received.size());
        }
        QCOMPARE(outcomes[1], outcomes[0]);
        QVERIFY2(outcomes[2] != outcomes[0], qPrintable(outcomes[2]));
    }

    void faultsAreReplacedWhileItRuns()
    {
        QVERIFY(openControl(faultSettings("127.93.0.3"), "time-failure"));
        QCOMPARE(m_peer->ask('A', kReadTime).payload, kReadTime);
        m_recorder->setFaults(FaultPlan());
        QVERIFY(m_peer->ask('A', kReadTime).payload != kReadTime);
    }

    // --- rainy day flows
    void splitCutsAReplyAtAnyByte_data()
    {
        QTest::addColumn<int>("cut");
        for (int cut = 1; cut < 12; ++cut)
            QTest::addRow("behind byte %d", cut) << cut;
    }
    void splitCutsAReplyAtAnyByte()
    {
        QFETCH(int, cut);
        const QByteArray rule = "split:value=" + QByteArray::number(cut);
        QVERIFY(openControl(faultSettings("127.93.0.4"), rule.constData()));
        m_peer->send('A', kReadTime);
        QVERIFY(m_peer->waitForReplies(1));
        QCOMPARE(m_peer->reads.size(), 2);
        QCOMPARE(m_peer->reads[0].size(), qsizetype(cut));
        QCOMPARE(m_peer->received.size(), 12);
        QVERIFY(m_peer->controlFrames().front().checksumFits);
    }

    void splitKeepsTheOrderOfAStream()
    {
        QVERIFY(openStream(faultSettings("127.93.0.5"), "split:chance=0.2"));
        QVERIFY(waitForAll());
        uint32_t position = 8000;
        for (const RawStreamFrame& frame : m_peer->streamFrames()) {
            QVERIFY(frame.checksumFits);
            if (frame.kind == kData)
                QCOMPARE(frame.position(), position);
            position = frame.kind == kData ? position + frame.samples() : 0;
        }
        QCOMPARE(m_recorder->counters().samplesSent, 24000U);
        QVERIFY(m_recorder->counters().faults > 0);
    }

    void mergeSendsTwoMessagesInOneWrite()
    {
        QVERIFY(openControl(faultSettings("127.93.0.6"), "merge:times=1"));
        // The first reply waits a fifth of a second for the next one, which a busy machine may let pass.
        m_peer->send('V');
        m_peer->send('U');
        QVERIFY(m_peer->waitForReplies(2));
        QCOMPARE(m_peer->reads.size(), 1);
        QCOMPARE(m_peer->controlFrames()[0].letter, 'V');
        QCOMPARE(m_peer->controlFrames()[1].letter, 'U');
    }

    void mergedMessageComesAloneWhenNoneFollows()
    {
        QVERIFY(openControl(faultSettings("127.93.0.7"), "merge:times=1"));
        QCOMPARE(m_peer->ask('V').letter, 'V');
    }

    void junkComesAheadOfAMessage()
    {
        QVERIFY(openControl(faultSettings("127.93.0.8"), "junk:value=37,times=1"));
        m_peer->send('V');
        QVERIFY(m_peer->waitForBytes(37 + 8));
        QCOMPARE(m_peer->received.mid(37, 2), QByteArray("*V"));
        QCOMPARE(m_peer->ask('V').letter, 'V');
    }

    void badChecksumSpoilsAMessage()
    {
        QVERIFY(openControl(faultSettings("127.93.0.9"), "bad-checksum:times=1"));
        QVERIFY(!m_peer->ask('V').checksumFits);
        QVERIFY(m_peer->ask('V').checksumFits);
        QVERIFY(openStream(faultSettings("127.93.0.9"), "bad-checksum:after=2,times=1"));
        QVERIFY(waitForAll());
        int bad = 0;
        for (const RawStreamFrame& frame : m_peer->streamFrames())
            bad += !frame.checksumFits;
        QCOMPARE(bad, 1);
        QCOMPARE(m_recorder->counters().samplesWithheld, 320U);
    }

    void setupIsRefused()
    {
        QVERIFY(openControl(faultSettings("127.93.0.10"), "refuse-setup:value=9,times=1"));
        const QByteArray request = QByteArray::fromHex("001400000001000e000400003e80");
        QCOMPARE(m_peer->ask('D', request).payload.mid(2, 2), QByteArray::fromHex("0009"));
        QCOMPARE(uint32_t{m_recorder->jobSettings().wavRate()}, 8000U);
        QCOMPARE(m_peer->ask('D', request).payload.mid(2, 2), QByteArray::fromHex("0000"));
        QCOMPARE(uint32_t{m_recorder->jobSettings().wavRate()}, 16000U);
    }

    void timeReplyFails()
    {
        QVERIFY(openControl(faultSettings("127.93.0.11"), "time-failure:after=1,times=1"));
        QVERIFY(m_peer->ask('A', kReadTime).payload != kReadTime);
        QCOMPARE(m_peer->ask('A', kReadTime).payload, kReadTime);
        QVERIFY(m_peer->ask('A', kReadTime).payload != kReadTime);
    }

    void scanBurstSetsTheTopBit()
    {
        QVERIFY(openControl(faultSettings("127.93.0.12"), "scan-burst:times=3"));
        const QByteArray mask(1, 0x20);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(uchar(m_peer->ask('C', mask).payload.at(0)), uchar{0xA0});
        QCOMPARE(uchar(m_peer->ask('C', mask).payload.at(0)), uchar{0x20});
    }

    void fastWavesFillRepliesToTheTopBit()
    {
        RecorderSettings settings = faultSettings("127.93.0.13");
        settings.sampleRate = 512000;
        settings.bitDepth = 32;
        settings.channels = 8;
        QVERIFY(openControl(settings, "loss:on=wave"));
        const QByteArray mask(1, 0x20);
        QCOMPARE(m_peer->ask('C', mask).letter, 'C');
        QVERIFY(m_peer->waitFor([&] { return uchar(m_peer->ask('C', mask).payload.at(0)) == 0xA0; }));
        // A frame and its head stay under 64 KiB.
        QVERIFY(m_peer->received.size() < 65536);
        QVERIFY(m_peer->received.size() > 50000);
    }

    void silenceOfAStreamEndsWithAStart()
    {
        QVERIFY(openStream(faultSettings("127.93.0.14"), "silence:after=10,times=1"));
        QVERIFY(waitForAll());
        QCOMPARE(m_peer->streamFrames().size(), size_t{10});
        QVERIFY(m_recorder->counters().samplesWithheld > 0);
        QCOMPARE(m_peer->socket.state(), QAbstractSocket::ConnectedState);
        m_peer->stopStream();
        m_peer->received.clear();
        m_peer->startStream();
        QVERIFY(m_peer->waitForFrames(kData, 5));
    }

    void silenceOfAControlChannelEndsByTime()
    {
        QVERIFY(openControl(faultSettings("127.93.0.15"), "silence:value=300,times=1"));
        QElapsedTimer clock;
        clock.start();
        m_peer->send('V');
        QVERIFY(m_peer->waitFor([this] { return m_recorder->counters().commands == 1; }));
        // Replies in the silence are lost, not late.
        QVERIFY(m_peer->waitFor([this] {
            m_peer->send('E');
            return !m_peer->controlFrames().empty();
        }));
        QVERIFY(clock.elapsed() >= 200);
        QCOMPARE(m_peer->controlFrames().front().letter, 'E');
        QVERIFY(m_peer->controlFrames().size() < m_recorder->counters().commands);
    }

    void closeComesWithinAFrame_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::newRow("close") << QByteArray("close:value=5,after=1,times=1");
        QTest::newRow("reset") << QByteArray("reset:value=5,after=1,times=1");
    }
    void closeComesWithinAFrame()
    {
        QFETCH(QByteArray, rule);
        QVERIFY(openControl(faultSettings("127.93.0.16"), rule.constData()));
        m_peer->send('V');
        QVERIFY(m_peer->waitForReplies(1));
        m_peer->send('V');
        QVERIFY(m_peer->waitForEnd());
        QCOMPARE(m_peer->received.size(), 8 + 5);
        QCOMPARE(m_peer->socket.error(), QAbstractSocket::RemoteHostClosedError);
        QVERIFY(m_peer->open(m_recorder->settings().address, 50000));
        QCOMPARE(m_peer->ask('V').letter, 'V');
    }

    void streamBreaksWithinAFrame()
    {
        for (const char* rule : {"close:after=5,times=1", "reset:after=5,times=1"}) {
            QVERIFY(openStream(faultSettings("127.93.0.17"), rule));
            QVERIFY(m_peer->waitForEnd());
            QCOMPARE(m_peer->streamFrames().size(), size_t{5});
            qsizetype whole = 0;
            for (const RawStreamFrame& frame : m_peer->streamFrames())
                whole += 12 + frame.chunks.size();
            QVERIFY(m_peer->received.size() > whole);
        }
    }

    void sequenceJumps_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::addColumn<int>("delta");
        QTest::newRow("gap of a second") << QByteArray("sequence-gap:times=1") << 16000;
        QTest::newRow("gap") << QByteArray("sequence-gap:value=123,times=1") << 8123;
        QTest::newRow("back a second") << QByteArray("sequence-back:times=1") << 0;
        QTest::newRow("back") << QByteArray("sequence-back:value=10000,times=1") << -2000;
    }
    void sequenceJumps()
    {
        QFETCH(QByteArray, rule);
        QFETCH(int, delta);
        QVERIFY(openStream(faultSettings("127.93.0.18"), rule.constData()));
        QVERIFY(waitForAll());
        const auto headers = m_peer->streamFrames(kHeader);
        QCOMPARE(headers.size(), size_t{3});
        QCOMPARE(headers[1].sequence() - headers[0].sequence(), int64_t{delta});
        QCOMPARE(headers[1].time(), headers[0].time() + 1);
        QCOMPARE(headers[2].sequence() - headers[1].sequence(), int64_t{8000});
    }

    void newEventBeginsWithinASecond()
    {
        QVERIFY(openStream(faultSettings("127.93.0.19"), "new-event:value=100,after=10,times=1"));
        QVERIFY(m_peer->waitForFrames(kHeader, 2));
        const auto headers = m_peer->streamFrames(kHeader);
        QCOMPARE(headers[1].sequence(), headers[0].sequence() + 10 * 320);
        QCOMPARE(headers[1].time(), headers[0].time() + 100);
        QVERIFY(m_peer->waitForFrames(kData, 12));
        QCOMPARE(m_peer->streamFrames(kData)[10].position(), 0U);
        QCOMPARE(m_peer->streamFrames(kData)[10].sequence(), headers[1].sequence());
    }

    void rateChanges_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::addColumn<unsigned>("rate");
        QTest::newRow("to half") << QByteArray("rate-change:times=1") << 4000U;
        QTest::newRow("to a given rate") << QByteArray("rate-change:value=16000,times=1") << 16000U;
    }
    void rateChanges()
    {
        QFETCH(QByteArray, rule);
        QFETCH(unsigned, rate);
        QVERIFY(openStream(faultSettings("127.93.0.20"), rule.constData()));
        QVERIFY(m_peer->waitForFrames(kHeader, 3));
        const auto headers = m_peer->streamFrames(kHeader);
        QCOMPARE(headers[0].waveRate(), 8000U);
        QCOMPARE(headers[1].waveRate(), rate);
        QCOMPARE(headers[2].sequence() - headers[1].sequence(), int64_t{rate});
        QCOMPARE(uint32_t{m_recorder->jobSettings().wavRate()}, rate);
    }

    void notificationsCarryTheirCode_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<bool>("goesOn");
        QTest::newRow("0") << 0 << false;
        QTest::newRow("2") << 2 << true;
        QTest::newRow("3") << 3 << false;
        QTest::newRow("4") << 4 << true;
    }
    void notificationsCarryTheirCode()
    {
        QFETCH(int, code);
        QFETCH(bool, goesOn);
        const QByteArray rule = "notify:after=5,times=1,value=" + QByteArray::number(code);
        QVERIFY(openStream(faultSettings("127.93.0.21"), rule.constData()));
        QVERIFY(m_peer->waitForFrames(kNotification, 1));
        QCOMPARE(RawStreamFrame::word<quint16>(m_peer->streamFrames(kNotification).front().chunk(10), 0),
                 quint16(code));
        if (goesOn) {
            QVERIFY(waitForAll());
            QCOMPARE(m_recorder->counters().samplesSent, 24000U);
        } else {
            QVERIFY(m_peer->waitForBytes(qsizetype(m_recorder->counters().bytesSent)));
            QCOMPARE(m_peer->streamFrames(kData).size(), size_t{5});
        }
    }

    void countsAreTooLarge()
    {
        QVERIFY(openStream(faultSettings("127.93.0.22"), "oversize:after=3,times=1"));
        QVERIFY(waitForAll());
        const RawStreamFrame frame = m_peer->streamFrames(kData)[3];
        QVERIFY(frame.checksumFits);
        QCOMPARE(frame.samples(), quint16{65535});
        QCOMPARE(frame.sampleBytes().size(), 640);
        QCOMPARE(m_recorder->counters().samplesWithheld, 320U);

        QVERIFY(openStream(faultSettings("127.93.0.22"), "oversize:value=1,after=3,times=1"));
        QVERIFY(waitForAll());
        QCOMPARE(m_peer->streamFrames().size(), size_t{4});
        QVERIFY(m_peer->received.contains(QByteArray::fromHex("302a0201ffffffff")));
    }

    void controlCountsAreTooLarge()
    {
        QVERIFY(openControl(faultSettings("127.93.0.23"), "oversize:times=2"));
        const RawControlFrame setup = m_peer->ask('F', QByteArray::fromHex("00140000"));
        QVERIFY(setup.checksumFits);
        QCOMPARE(setup.payload, QByteArray::fromHex("0014ffff"));
        QCOMPARE(m_peer->ask('R').payload, QByteArray::fromHex("ffff"));
        QCOMPARE(m_peer->ask('R').payload, QByteArray::fromHex("0000"));
    }

    void rolloverByteMoves_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::addColumn<int>("value");
        QTest::newRow("up") << QByteArray("rollover-up:times=1") << 21;
        QTest::newRow("up by 4") << QByteArray("rollover-up:value=4,times=1") << 24;
        QTest::newRow("down") << QByteArray("rollover-down:times=1") << 19;
        QTest::newRow("down by 4") << QByteArray("rollover-down:value=4,times=1") << 16;
    }
    void rolloverByteMoves()
    {
        QFETCH(QByteArray, rule);
        QFETCH(int, value);
        RecorderSettings settings = faultSettings("127.93.0.24");
        settings.rollover = 20;
        QVERIFY(openStream(settings, rule.constData()));
        QVERIFY(m_peer->waitForFrames(kHeader, 3));
        const auto headers = m_peer->streamFrames(kHeader);
        QCOMPARE(int(headers[0].rollover()), 20);
        QCOMPARE(int(headers[1].rollover()), value);
        QCOMPARE(int(headers[2].rollover()), value);
    }

    void lossLeavesAGap()
    {
        QVERIFY(openStream(faultSettings("127.93.0.25"), "loss:after=4,times=2"));
        QVERIFY(waitForAll());
        const auto frames = m_peer->streamFrames(kData);
        QCOMPARE(frames[3].position(), frames[2].position() + 3 * 320);
        QCOMPARE(m_recorder->counters().samplesWithheld, 640U);
        QCOMPARE(m_recorder->counters().samplesSent, 24000U - 640U);
    }

    void duplicateComesTwice()
    {
        QVERIFY(openStream(faultSettings("127.93.0.26"), "duplicate:after=4,times=1"));
        QVERIFY(waitForAll(8 + 6 + 16 + 6 + 8 + 640 + 4));
        const auto frames = m_peer->streamFrames(kData);
        QCOMPARE(frames[4].chunks, frames[3].chunks);
        QCOMPARE(frames[5].position(), frames[4].position() + 320);
    }

    void slowHoldsMessagesBack()
    {
        QVERIFY(openControl(faultSettings("127.93.0.27"), "slow:value=400,times=1"));
        QElapsedTimer clock;
        clock.start();
        m_peer->send('V');
        m_peer->send('U');
        QVERIFY(m_peer->waitForReplies(2));
        QVERIFY(clock.elapsed() >= 350);
        QCOMPARE(m_peer->controlFrames()[0].letter, 'V');
        QCOMPARE(m_peer->controlFrames()[1].letter, 'U');
    }

    void refusedConnectionsAreReset()
    {
        RecorderSettings settings = faultSettings("127.93.0.28");
        settings.roles = RoleControl | RoleWave;
        QVERIFY(openRecorder(settings, "refuse:times=1"));
        for (const quint16 port : {quint16{50000}, m_recorder->streamPort(StreamWave)}) {
            RawPeer peer;
            peer.socket.connectToHost(settings.address, port);
            QVERIFY(
                peer.waitFor([&] { return peer.socket.error() == QAbstractSocket::RemoteHostClosedError; }));
            QCOMPARE(peer.received, QByteArray());
            QVERIFY(peer.open(settings.address, port));
            if (port == 50000)
                peer.send('V');
            else
                peer.startStream();
            QVERIFY(peer.waitForBytes(8));
        }
    }

    void discoveryFaults_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::addColumn<QList<int>>("sizes");
        QTest::addColumn<bool>("spoilt");
        QTest::newRow("loss") << QByteArray("loss:times=1") << QList<int>{36} << false;
        QTest::newRow("duplicate") << QByteArray("duplicate:times=1") << QList<int>{36, 36, 36} << false;
        QTest::newRow("junk") << QByteArray("junk:times=1") << QList<int>{32, 36, 36} << false;
        QTest::newRow("checksum") << QByteArray("bad-checksum:times=1") << QList<int>{36, 36} << true;
    }
    void discoveryFaults()
    {
        QFETCH(QByteArray, rule);
        QFETCH(QList<int>, sizes);
        QFETCH(bool, spoilt);
        RecorderSettings settings = faultSettings("127.93.0.29");
        settings.roles = RoleDiscovery;
        QVERIFY(openRecorder(settings, rule.constData()));
        QUdpSocket socket;
        QVERIFY(socket.bind(QHostAddress(QStringLiteral("127.93.1.29")), 0));
        QByteArray enquiry = QByteArrayLiteral("NVXM\1\1");
        enquiry += char(socket.localPort() >> 8);
        enquiry += char(socket.localPort());
        enquiry += QByteArray::fromHex("0016") + QByteArray(22, 0);
        enquiry += RawPeer::checksum(enquiry);
        QList<QByteArray> answers;
        connect(&socket, &QUdpSocket::readyRead, this, [&] {
            while (socket.hasPendingDatagrams()) {
                QByteArray answer(int(socket.pendingDatagramSize()), 0);
                socket.readDatagram(answer.data(), answer.size());
                answers << answer;
            }
        });
        socket.writeDatagram(enquiry, settings.address, 62726);
        socket.writeDatagram(enquiry, settings.address, 62726);
        QTRY_COMPARE(answers.size(), sizes.size());
        for (int i = 0; i < sizes.size(); ++i)
            QCOMPARE(int(answers[i].size()), sizes[i]);
        QCOMPARE(answers.first().right(4) != RawPeer::checksum(answers.first().chopped(4)),
                 spoilt || sizes.first() == 32);
        QCOMPARE(answers.last().right(4), RawPeer::checksum(answers.last().chopped(4)));
    }

    void networkChangeIsRefused()
    {
        RecorderSettings settings = faultSettings("127.93.0.30");
        settings.roles = RoleDiscovery;
        QVERIFY(openRecorder(settings, "refuse:value=3"));
        QUdpSocket socket;
        QVERIFY(socket.bind(QHostAddress(QStringLiteral("127.93.1.30")), 0));
        QByteArray request = QByteArrayLiteral("NVXM\1\2");
        request += char(socket.localPort() >> 8);
        request += char(socket.localPort());
        request += QByteArray::fromHex("0018"
                                       "05"
                                       "04d2"
                                       "0000"
                                       "0a000105ffffff0000000000"
                                       "00000000000000");
        request += RawPeer::checksum(request);
        socket.writeDatagram(request, settings.address, 62726);
        QTRY_VERIFY(socket.hasPendingDatagrams());
        QByteArray answer(int(socket.pendingDatagramSize()), 0);
        socket.readDatagram(answer.data(), answer.size());
        QCOMPARE(answer.mid(13, 2), QByteArray::fromHex("0003"));
    }

    void faultsKeepToTheirChannel()
    {
        RecorderSettings settings = faultSettings("127.93.0.31");
        settings.roles = RoleControl | RoleSensor | RoleSpectrum | RoleEpoch;
        QVERIFY(openRecorder(settings, "loss:on=sensor"));
        QVERIFY(m_peer->open(settings.address, 50000));
        QCOMPARE(m_peer->ask('V').letter, 'V');
        RawPeer sensor, spectrum, epoch;
        QVERIFY(sensor.open(settings.address, m_recorder->streamPort(StreamSensor)));
        QVERIFY(spectrum.open(settings.address, m_recorder->streamPort(StreamSpectrum)));
        sensor.startStream(0, 1);
        spectrum.startStream();
        QVERIFY(epoch.open(settings.address, m_recorder->streamPort(StreamEpoch)));
        QVERIFY(spectrum.waitForFrames(kData, 1));
        QCOMPARE(m_peer->ask('S', RawPeer::eventTrigger(1)).letter, 'S');
        QVERIFY(epoch.waitFor([&] { return epoch.received.contains('\n'); }));
        QVERIFY(m_recorder->counters().faults > 0);
        QCOMPARE(sensor.received, QByteArray());
    }
};

QTEST_GUILESS_MAIN(tst_SimulatorFaults)
#include "tst_SimulatorFaults.moc"
