#include "NvxQtSimulator/SimulatedRecorder.h"
#include "RawPeer.h"
#include "tests/support/NvxTestCase.h"

#include <QDateTime>
#include <QNetworkDatagram>
#include <QSignalSpy>
#include <QUdpSocket>

#include <memory>

// The command channel and the discovery responder, seen from raw sockets.

namespace {

RecorderSettings settingsAt(const char* address)
{
    RecorderSettings settings;
    settings.address = QHostAddress(QLatin1String(address));
    settings.wavePort = settings.spectrumPort = settings.sensorPort = settings.epochPort = 0;
    return settings;
}

QByteArray word16(unsigned value)
{
    QByteArray bytes(2, 0);
    qToBigEndian(quint16(value), bytes.data());
    return bytes;
}

QByteArray word32(quint32 value)
{
    QByteArray bytes(4, 0);
    qToBigEndian(value, bytes.data());
    return bytes;
}

QByteArray numberTag(unsigned key, quint32 value)
{
    return word16(key) + word16(4) + word32(value);
}

/// A job setup request with one tag.
QByteArray setupOf(unsigned key, quint32 value)
{
    return word16(20) + word16(0) + word16(1) + numberTag(key, value);
}

QByteArray discoveryDatagram(int kind, quint16 port, const QByteArray& body)
{
    QByteArray datagram =
        QByteArrayLiteral("NVXM\1") + char(kind) + word16(port) + word16(unsigned(body.size())) + body;
    return datagram + RawPeer::checksum(datagram);
}

QByteArray networkRecord(quint32 address, quint32 mask, quint32 gateway, int mode)
{
    return word32(address) + word32(mask) + word32(gateway) + char(mode) + QByteArray(6, 0);
}

QByteArray triggerRecord(int type, int number, quint32 low, quint32 high)
{
    return QByteArray(1, char(type)) + word16(24) + char(number) + char(1) + word32(low) + word32(high) +
           word16(30) + word16(5) + word16(2) + word16(60) + word16(0) + word16(0) + word16(0);
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

class tst_SimulatedRecorder : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<SimulatedRecorder> m_recorder;
    RawPeer m_peer;

    bool openControl(const RecorderSettings& settings)
    {
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        return m_recorder->start() && m_peer.open(settings.address, 50000);
    }

    /// Sends a datagram and gives the answer; empty when none came in time.
    static QByteArray askDatagram(const QHostAddress& address, const QByteArray& datagram, QUdpSocket& socket)
    {
        socket.writeDatagram(datagram, address, 62726);
        if (!QTest::qWaitFor([&] { return socket.hasPendingDatagrams(); }, kPatienceMs))
            return {};
        QByteArray answer(int(socket.pendingDatagramSize()), 0);
        socket.readDatagram(answer.data(), answer.size());
        return answer;
    }

private Q_SLOTS:
    void cleanup()
    {
        m_peer.socket.abort();
        m_peer.received.clear();
        m_recorder.reset();
    }

    // --- happy flows
    void tellsWhereItListens()
    {
        m_recorder = std::make_unique<SimulatedRecorder>(settingsAt("127.91.0.1"));
        QVERIFY(!m_recorder->isListening());
        QCOMPARE(m_recorder->streamPort(StreamWave), quint16{0});
        QVERIFY(m_recorder->start());
        QVERIFY(m_recorder->isListening());
        const QStringList lines = m_recorder->listeningTexts();
        QCOMPARE(lines.size(), 6);
        QVERIFY(lines.contains(QStringLiteral("control    TCP 127.91.0.1:50000")));
        QVERIFY(lines.contains(QStringLiteral("discovery  UDP 127.91.0.1:62726")));
        for (const HydStreamType type : {StreamWave, StreamSpectrum, StreamSensor, StreamEpoch}) {
            const quint16 port = m_recorder->streamPort(type);
            QVERIFY(port != 0);
            QVERIFY(m_peer.open(m_recorder->settings().address, port));
            m_peer.socket.abort();
        }
        m_recorder->stop();
        QVERIFY(!m_recorder->isListening());
        QCOMPARE(m_recorder->listeningTexts(), QStringList());
    }

    void reportsItsIdentity()
    {
        RecorderSettings settings = settingsAt("127.91.0.2");
        settings.identity.serial = 4711;
        settings.identity.model = "Model A";
        settings.identity.firmwareVersion = "2.1";
        settings.identity.firmwareRelease = "B7";
        settings.sampleRate = 64000;
        QVERIFY(openControl(settings));
        const RawControlFrame reply = m_peer.ask('E');
        QCOMPARE(reply.letter, 'E');
        QVERIFY(reply.checksumFits);
        QCOMPARE(reply.payload.left(7), QByteArray("\5") + word16(4711) + word16(0) + char(1) + char(87));
        QCOMPARE(RawStreamFrame::word<qint16>(reply.payload, 7), qint16{-1700});
        QCOMPARE(RawStreamFrame::word<quint32>(reply.payload, 13), 64000U);
        QCOMPARE(RawStreamFrame::word<quint32>(reply.payload, 21), 0x7F5B0002U);
        QCOMPARE(reply.payload.mid(40), QByteArray("\7Model A\0032.1\2B7"));
    }

    void clockIsReadAndSet()
    {
        QVERIFY(openControl(settingsAt("127.91.0.3")));
        const auto now = QDateTime::currentSecsSinceEpoch();
        const RawControlFrame read = m_peer.ask('A', word32(0xFFFFFFFF));
        const auto time = RawStreamFrame::word<qint32>(read.payload, 0);
        QVERIFY(time >= now - 1 && time <= QDateTime::currentSecsSinceEpoch() + 1);
        const RawControlFrame set = m_peer.ask('A', word32(1000000000));
        QVERIFY(std::abs(RawStreamFrame::word<qint32>(set.payload, 0) - 1000000000) <= 1);
        // A busy machine lets time pass between the two.
        QVERIFY(std::abs(m_recorder->deviceTime() - 1000000000) <= 60);
        const RawControlFrame again = m_peer.ask('A', word32(0xFFFFFFFF));
        QVERIFY(std::abs(RawStreamFrame::word<qint32>(again.payload, 0) - 1000000000) <= 60);
    }

    void clockOffsetCounts()
    {
        RecorderSettings settings = settingsAt("127.91.0.3");
        settings.clockOffset = -86400;
        QVERIFY(openControl(settings));
        const RawControlFrame read = m_peer.ask('A', word32(0xFFFFFFFF));
        QVERIFY(std::abs(RawStreamFrame::word<qint32>(read.payload, 0) - QDateTime::currentSecsSinceEpoch() +
                         86400) <= 60);
    }

    void jobSetupIsReadAndWritten()
    {
        QVERIFY(openControl(settingsAt("127.91.0.4")));
        const RawControlFrame before = m_peer.ask('F', word16(20) + word16(0));
        QCOMPARE(before.letter, 'F');
        QVERIFY(before.payload.contains(numberTag(14, 48000)));
        QVERIFY(before.payload.contains(numberTag(16, 24)));

        const RawControlFrame written = m_peer.ask('D', setupOf(14, 96000));
        QCOMPARE(written.letter, 'D');
        QCOMPARE(written.payload.left(4), word16(20) + word16(0));
        QVERIFY(written.payload.contains(numberTag(14, 96000)));
        QCOMPARE(uint32_t{m_recorder->jobSettings().wavRate()}, 96000U);
        QVERIFY(m_peer.ask('F', word16(20) + word16(0)).payload.contains(numberTag(14, 96000)));
    }

    void triggersAreKept()
    {
        QVERIFY(openControl(settingsAt("127.91.0.5")));
        const QByteArray trigger = triggerRecord(5, 3, 10, 1000);
        const RawControlFrame answer = m_peer.ask('S', word16(0) + trigger);
        QCOMPARE(answer.letter, 'S');
        QCOMPARE(answer.payload, word16(0) + trigger);
        QCOMPARE(m_peer.ask('R').payload, word16(1) + trigger);
        // The same number again replaces it.
        const QByteArray other = triggerRecord(6, 3, 20, 2000);
        QCOMPARE(m_peer.ask('S', word16(0) + other).payload, word16(0) + other);
        QCOMPARE(m_peer.ask('R').payload, word16(1) + other);
        QCOMPARE(m_peer.ask('U').letter, 'U');
        QCOMPARE(m_peer.ask('R').payload, word16(0));
    }

    void plainCommandsAreAnswered()
    {
        QVERIFY(openControl(settingsAt("127.91.0.6")));
        const RawControlFrame password = m_peer.ask('V');
        QCOMPARE(password.letter, 'V');
        QCOMPARE(password.payload, QByteArray());
        const RawControlFrame clock = m_peer.ask('[');
        QCOMPARE(clock.letter, '[');
        QCOMPARE(clock.payload, QByteArray(11, 0));
        QCOMPARE(m_recorder->counters().commands, 2U);
    }

    void restartAnswersAndDropsConnections()
    {
        QVERIFY(openControl(settingsAt("127.91.0.7")));
        QCOMPARE(m_peer.ask('S', word16(0) + triggerRecord(5, 1, 0, 10)).letter, 'S');
        QCOMPARE(m_peer.ask('Y').letter, 'Y');
        QVERIFY(m_peer.waitForEnd());
        QVERIFY(m_peer.open(m_recorder->settings().address, 50000));
        QCOMPARE(m_peer.ask('R').payload, word16(0));
    }

    void severalRequestsInOneReadAreAllAnswered()
    {
        QVERIFY(openControl(settingsAt("127.91.0.8")));
        QSignalSpy spy(m_recorder.get(), &SimulatedRecorder::commandReceived);
        for (int i = 0; i < 50; ++i)
            m_peer.send('E');
        QVERIFY(m_peer.waitForReplies(50));
        QCOMPARE(spy.size(), 50);
        QCOMPARE(spy.first().first().value<char>(), 'E');
    }

    void wavesAreCollected()
    {
        RecorderSettings settings = settingsAt("127.91.0.9");
        settings.signal.kind = SignalSettings::Ramp;
        settings.sampleRate = 64000;
        settings.bitDepth = 16;
        settings.firstSequence = 100;
        settings.scanMemorySeconds = 60;
        QVERIFY(openControl(settings));
        int64_t expected = -1;
        uint32_t intoSecond = 0;
        int samples = 0;
        // Beyond the end of the first second, where a reply ends as well.
        while (samples < 68000) {
            const RawControlFrame reply = m_peer.ask('C', QByteArray(1, 0x20));
            QCOMPARE(reply.letter, 'C');
            QCOMPARE(reply.payload.at(0) & 0x20, 0x20);
            const QByteArray time = collectChunk(reply.payload, 8192);
            const QByteArray data = collectChunk(reply.payload, 32);
            QCOMPARE(time.size(), 8);
            QCOMPARE(RawStreamFrame::word<quint32>(time, 4), intoSecond);
            QCOMPARE(RawStreamFrame::word<quint32>(data, 0), 64000U);
            QCOMPARE(uchar(data.at(6)), uchar{0x82});
            const auto count = RawStreamFrame::word<quint16>(data, 8);
            QCOMPARE(data.size(), 10 + 2 * count);
            for (int i = 0; i < count; ++i) {
                const auto value = qFromLittleEndian<qint16>(data.constData() + 10 + 2 * i);
                if (expected < 0)
                    expected = value;
                QCOMPARE(value, qint16(expected++));
            }
            QVERIFY(intoSecond + count <= 64000);
            intoSecond = (intoSecond + count) % 64000;
            samples += count;
        }
        QVERIFY(expected >= 68100);
    }

    void discoveryAnswersUnicast()
    {
        RecorderSettings settings = settingsAt("127.91.0.11");
        settings.identity.serial = 77;
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        QVERIFY(m_recorder->start());
        QSignalSpy spy(m_recorder.get(), &SimulatedRecorder::enquiryAnswered);
        QUdpSocket socket;
        QVERIFY(socket.bind(QHostAddress(QStringLiteral("127.91.1.11")), 0));
        const QByteArray answer = askDatagram(
            settings.address, discoveryDatagram(1, socket.localPort(), QByteArray(22, 0)), socket);
        QCOMPARE(answer.size(), 14 + 22);
        QCOMPARE(answer.left(10), QByteArrayLiteral("NVXM\1\1\0\0\0\x16"));
        QCOMPARE(answer.mid(10, 3), QByteArray("\5") + word16(77));
        QCOMPARE(RawStreamFrame::word<quint32>(answer, 13), 0x7F5B000BU);
        QCOMPARE(answer.right(4), RawPeer::checksum(answer.chopped(4)));
        QTRY_COMPARE(spy.size(), 1);
    }

    void severalRecordersAnswerForThemselves()
    {
        std::vector<std::unique_ptr<SimulatedRecorder>> recorders;
        for (unsigned i = 0; i < 5; ++i) {
            RecorderSettings settings = settingsAt("127.91.2.0");
            settings.address = QHostAddress(settings.address.toIPv4Address() + 1 + i);
            settings.identity.serial = static_cast<uint16_t>(100 + i);
            recorders.push_back(std::make_unique<SimulatedRecorder>(settings));
            QVERIFY2(recorders.back()->start(), qPrintable(recorders.back()->errorString()));
        }
        QUdpSocket socket;
        QVERIFY(socket.bind(QHostAddress(QStringLiteral("127.91.1.12")), 0));
        for (unsigned i = 0; i < 5; ++i) {
            const QHostAddress address = recorders[i]->settings().address;
            const QByteArray answer =
                askDatagram(address, discoveryDatagram(1, socket.localPort(), QByteArray(22, 0)), socket);
            QCOMPARE(RawStreamFrame::word<quint16>(answer, 11), quint16(100 + i));
            RawPeer peer;
            QVERIFY(peer.open(address, 50000));
            QCOMPARE(RawStreamFrame::word<quint16>(peer.ask('E').payload, 1), quint16(100 + i));
        }
    }

    void broadcastIsAnsweredByAll()
    {
        RecorderSettings settings = settingsAt("127.91.3.1");
        // Of a type that no recorder of another test has, which may run beside this one and would answer too.
        settings.identity.type = DevTypeTmi;
        settings.identity.serial = 301;
        SimulatedRecorder first(settings);
        settings.address = QHostAddress(QStringLiteral("127.91.3.2"));
        settings.identity.serial = 302;
        SimulatedRecorder second(settings);
        QVERIFY(first.start() && second.start());
        // A socket on a loopback address broadcasts on the loopback interface only.
        QUdpSocket socket;
        QVERIFY(socket.bind(QHostAddress(QStringLiteral("127.91.1.15")), 0));
        QMap<int, QHostAddress> answers;
        connect(&socket, &QUdpSocket::readyRead, this, [&] {
            while (socket.hasPendingDatagrams()) {
                const QNetworkDatagram datagram = socket.receiveDatagram();
                answers[RawStreamFrame::word<quint16>(datagram.data(), 11)] = datagram.senderAddress();
            }
        });
        QByteArray body(22, 0);
        body[0] = DevTypeTmi;
        socket.writeDatagram(discoveryDatagram(1, socket.localPort(), body), QHostAddress::Broadcast, 62726);
        QTRY_VERIFY(answers.contains(301) && answers.contains(302));
        QCOMPARE(answers[301], first.settings().address);
        QCOMPARE(answers[302], second.settings().address);
    }

    void networkChangeIsAnswered_data()
    {
        QTest::addColumn<QByteArray>("record");
        QTest::addColumn<int>("code");
        const quint32 mask = 0xFFFFFF00;
        const quint32 address = 0x0A000105;
        QTest::newRow("accepted") << networkRecord(address, mask, 0x0A000101, 0) << 0;
        QTest::newRow("no gateway") << networkRecord(address, mask, 0, 0) << 0;
        QTest::newRow("DHCP") << networkRecord(0, 0, 0, 1) << 0;
        QTest::newRow("no address") << networkRecord(0, mask, 0, 0) << 1;
        QTest::newRow("multicast") << networkRecord(0xE0000001, mask, 0, 0) << 1;
        QTest::newRow("mask with a hole") << networkRecord(address, 0xFF00FF00, 0, 0) << 2;
        QTest::newRow("no mask") << networkRecord(address, 0, 0, 0) << 2;
        QTest::newRow("gateway elsewhere") << networkRecord(address, mask, 0x0A000201, 0) << 3;
        QTest::newRow("broadcast") << networkRecord(0x0A0001FF, mask, 0, 0) << 4;
        QTest::newRow("its own") << networkRecord(0x7F5B000D, 0xFF000000, 0, 0) << 5;
        QTest::newRow("mode") << networkRecord(address, mask, 0, 3) << 6;
    }
    void networkChangeIsAnswered()
    {
        QFETCH(QByteArray, record);
        QFETCH(int, code);
        const RecorderSettings settings = settingsAt("127.91.0.13");
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        QVERIFY(m_recorder->start());
        QUdpSocket socket;
        QVERIFY(socket.bind(QHostAddress(QStringLiteral("127.91.1.13")), 0));
        const QByteArray body = QByteArray("\5") + word16(settings.identity.serial) + word16(0) + record;
        const QByteArray answer =
            askDatagram(settings.address, discoveryDatagram(2, socket.localPort(), body), socket);
        QCOMPARE(answer.size(), 14 + 24);
        QCOMPARE(int(RawStreamFrame::word<quint16>(answer, 13)), code);
        const quint32 told = RawStreamFrame::word<quint32>(answer, 15);
        QCOMPARE(told, code == 0 ? RawStreamFrame::word<quint32>(record, 0) : 0x7F5B000DU);
    }

    void restartByMacAddress()
    {
        const RecorderSettings settings = settingsAt("127.91.0.14");
        QVERIFY(openControl(settings));
        const QByteArray mac = m_peer.ask('E').payload.mid(21 + 13, 6);
        QUdpSocket socket;
        QVERIFY(socket.bind(QHostAddress(QStringLiteral("127.91.1.14")), 0));
        const QByteArray answer =
            askDatagram(settings.address, discoveryDatagram(3, socket.localPort(), mac), socket);
        QCOMPARE(answer.mid(10, 6), mac);
        QVERIFY(m_peer.waitForEnd());
    }

    // --- rainy day flows
    void setupsThatCannotRunAreRefused_data()
    {
        QTest::addColumn<unsigned>("key");
        QTest::addColumn<unsigned>("value");
        QTest::addColumn<int>("code");
        QTest::newRow("rate 0") << 14U << 0U << 1;
        QTest::newRow("rate too high") << 14U << 512001U << 1;
        QTest::newRow("depth") << 16U << 20U << 2;
        QTest::newRow("order") << 18U << 2U << 3;
        QTest::newRow("odd points") << 4U << 1000U << 4;
        QTest::newRow("too many points") << 4U << 32768U << 4;
        QTest::newRow("step above points") << 5U << 2048U << 4;
        QTest::newRow("spectrum rate") << 2U << 0U << 5;
        QTest::newRow("no accumulation") << 7U << 0U << 5;
    }
    void setupsThatCannotRunAreRefused()
    {
        QFETCH(unsigned, key);
        QFETCH(unsigned, value);
        QFETCH(int, code);
        QVERIFY(openControl(settingsAt("127.91.0.15")));
        const HydJobSettings before = m_recorder->jobSettings();
        const RawControlFrame answer = m_peer.ask('D', setupOf(key, value));
        QCOMPARE(answer.letter, 'D');
        QCOMPARE(int(RawStreamFrame::word<quint16>(answer.payload, 2)), code);
        QVERIFY(m_recorder->jobSettings() == before);
    }

    void triggersThatMakeNoSenseAreRefused_data()
    {
        QTest::addColumn<QByteArray>("record");
        QTest::addColumn<int>("code");
        QTest::newRow("band") << triggerRecord(5, 1, 100, 50) << 2;
        QTest::newRow("type") << triggerRecord(9, 1, 0, 50) << 4;
    }
    void triggersThatMakeNoSenseAreRefused()
    {
        QFETCH(QByteArray, record);
        QFETCH(int, code);
        QVERIFY(openControl(settingsAt("127.91.0.16")));
        const RawControlFrame answer = m_peer.ask('S', word16(0) + record);
        QCOMPARE(int(RawStreamFrame::word<quint16>(answer.payload, 0)), code);
        QCOMPARE(answer.payload.mid(2), record);
        QCOMPARE(m_peer.ask('R').payload, word16(0));
    }

    void triggerListIsBounded()
    {
        QVERIFY(openControl(settingsAt("127.91.0.16")));
        for (int i = 0; i < 65; ++i) {
            const RawControlFrame answer = m_peer.ask('S', word16(0) + triggerRecord(5, i, 0, 10));
            QCOMPARE(int(RawStreamFrame::word<quint16>(answer.payload, 0)), i < 64 ? 0 : 5);
        }
    }

    void junkBetweenRequestsIsPassedOver()
    {
        QVERIFY(openControl(settingsAt("127.91.0.17")));
        m_peer.socket.write(QByteArray(10000, '*'));
        m_peer.socket.write(QByteArrayLiteral("*E\0\0wrng"));
        // A length of 65535 that can't become a command; the recorder takes at most 4096 bytes.
        m_peer.socket.write(QByteArrayLiteral("*D\xFF\xFF") + QByteArray(9000, 'x'));
        QCOMPARE(m_peer.ask('E').letter, 'E');
    }

    void unknownCommandsAreCountedAndNotAnswered()
    {
        QVERIFY(openControl(settingsAt("127.91.0.18")));
        m_peer.send('Q');
        m_peer.send('A', QByteArrayLiteral("xy"));
        QCOMPARE(m_peer.ask('V').letter, 'V');
        QCOMPARE(m_peer.controlFrames().size(), size_t{1});
        QCOMPARE(m_recorder->counters().badCommands, 2U);
        QCOMPARE(m_recorder->counters().commands, 3U);
    }

    void datagramsForOthersAreIgnored_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QByteArray>("body");
        const QByteArray record = networkRecord(0x0A000105, 0xFFFFFF00, 0, 0);
        QTest::newRow("other type") << 1 << QByteArray("\7") + word16(0) + record;
        QTest::newRow("other serial") << 1 << QByteArray(1, 0) + word16(9) + record;
        QTest::newRow("change of another") << 2 << QByteArray("\5") + word16(9) + word16(0) + record;
        QTest::newRow("restart of another") << 3 << QByteArray(6, 1);
        QTest::newRow("unknown kind") << 9 << QByteArray();
    }
    void datagramsForOthersAreIgnored()
    {
        QFETCH(int, kind);
        QFETCH(QByteArray, body);
        const RecorderSettings settings = settingsAt("127.91.0.19");
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        QVERIFY(m_recorder->start());
        QUdpSocket socket;
        QVERIFY(socket.bind(QHostAddress(QStringLiteral("127.91.1.19")), 0));
        socket.writeDatagram(discoveryDatagram(kind, socket.localPort(), body), settings.address, 62726);
        QByteArray broken = discoveryDatagram(1, socket.localPort(), QByteArray(22, 0));
        broken[20] = 'x';
        socket.writeDatagram(broken, settings.address, 62726);
        // The answer to a good enquiry sent last is the only one.
        const QByteArray answer = askDatagram(
            settings.address, discoveryDatagram(1, socket.localPort(), QByteArray(22, 0)), socket);
        QCOMPARE(int(answer.at(5)), 1);
        QCOMPARE(m_recorder->counters().enquiries, 1U);
        QVERIFY(!socket.hasPendingDatagrams());
    }

    void takenPortIsNamed()
    {
        const RecorderSettings settings = settingsAt("127.91.0.20");
        SimulatedRecorder first(settings);
        QVERIFY(first.start());
        SimulatedRecorder second(settings);
        QVERIFY(!second.start());
        QVERIFY2(second.errorString().startsWith(QStringLiteral("TCP port 50000 of 127.91.0.20: ")),
                 qPrintable(second.errorString()));
        QVERIFY(!second.isListening());
        first.stop();
        QVERIFY(second.start());
        QCOMPARE(second.errorString(), QString());
    }

    void rolesThatAreOffDoNotListen()
    {
        RecorderSettings settings = settingsAt("127.91.0.21");
        settings.roles = RoleWave;
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        QVERIFY(m_recorder->start());
        QCOMPARE(m_recorder->listeningTexts().size(), 1);
        m_peer.socket.connectToHost(settings.address, 50000);
        QTRY_COMPARE(m_peer.socket.error(), QAbstractSocket::ConnectionRefusedError);
    }

    void settingsAreBroughtInsideTheirRanges()
    {
        RecorderSettings settings;
        settings.sampleRate = 10000000;
        settings.bitDepth = 12;
        settings.channels = 99;
        settings.blocksPerSecond = 0;
        const SimulatedRecorder recorder(settings);
        QCOMPARE(recorder.settings().sampleRate, 512000U);
        QCOMPARE(recorder.settings().bitDepth, 24U);
        QCOMPARE(recorder.settings().channels, 8U);
        QCOMPARE(recorder.settings().blocksPerSecond, 1U);
    }
};

QTEST_GUILESS_MAIN(tst_SimulatedRecorder)
#include "tst_SimulatedRecorder.moc"
