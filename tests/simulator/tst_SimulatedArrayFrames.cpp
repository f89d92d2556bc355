#include "NvxQtSimulator/SimulatedArray.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/PythonPeer.h"

#include <QSignalSpy>
#include <QTcpSocket>

#include <map>

// The web socket of a simulated array controller, as Python's websockets sees it.

namespace {

/// Words of a line about a frame, behind the first.
enum Word {
    Length,
    Channel,
    Serial,
    Temperature,
    Sequence,
    BandWidth,
    FftRef,
    Rate,
    Sensitivity,
    Accum,
    Points,
    Bins,
    HighestBin,
    HighestValue
};

class FrameClient : public PythonPeer
{
public:
    FrameClient() : PythonPeer(QStringLiteral("array_client.py")) {}

    bool open(const SimulatedArray& array)
    {
        return start({array.settings().address.toString(), QString::number(array.framePort())});
    }
    QList<QStringList> frames() { return lines(QStringLiteral("frame")); }
    bool waitForFrames(qsizetype count) { return waitForLines(QStringLiteral("frame"), count); }
};

} // namespace

class tst_SimulatedArrayFrames : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<SimulatedArray> m_array;

    static ArraySettings settings(unsigned channels)
    {
        ArraySettings made;
        made.address = QHostAddress(QStringLiteral("127.98.1.3"));
        made.framePort = 0;
        made.roles = ArrayRoleFrames;
        made.channels = ArraySettings::makeChannels(channels, 1001);
        made.framesPerSecond = 50;
        return made;
    }
    void startArray(const ArraySettings& made, const QString& fault = {})
    {
        m_array = std::make_unique<SimulatedArray>(made);
        if (!fault.isEmpty()) {
            FaultPlan plan(1);
            plan.add(FaultRule::fromText(fault).value());
            m_array->setFaults(plan);
        }
        QVERIFY2(m_array->start(), qPrintable(m_array->errorString()));
    }

private Q_SLOTS:
    // --- happy flows
    void everyFieldArrives()
    {
        ArraySettings made = settings(2);
        made.channels[1].sensitivity = -211;
        made.channels[1].temperature = 256;
        made.points = 512;
        made.sampleRate = 40000;
        made.referenceDb = -90;
        startArray(made);
        FrameClient client;
        QVERIFY2(client.open(*m_array), qPrintable(client.errorText()));
        QVERIFY(client.waitForFrames(4));
        const QList<QStringList> frames = client.frames();
        for (int i = 0; i < 4; ++i) {
            const QStringList& words = frames[i];
            const bool isSecond = i % 2 == 1;
            QCOMPARE(words[Length], QStringLiteral("288"));
            QCOMPARE(words[Channel], isSecond ? QStringLiteral("2") : QStringLiteral("1"));
            QCOMPARE(words[Serial], isSecond ? QStringLiteral("1002") : QStringLiteral("1001"));
            QCOMPARE(words[Temperature], isSecond ? QStringLiteral("256") : QStringLiteral("123"));
            QCOMPARE(words[Sequence], QString::number(i / 2));
            QCOMPARE(words[BandWidth], QStringLiteral("256"));
            QCOMPARE(words[FftRef], QStringLiteral("-90"));
            QCOMPARE(words[Rate], QStringLiteral("40000"));
            QCOMPARE(words[Sensitivity], isSecond ? QStringLiteral("-211") : QStringLiteral("-170"));
            QCOMPARE(words[Accum], QStringLiteral("3"));
            QCOMPARE(words[Points], QStringLiteral("512"));
            QCOMPARE(words[Bins], QStringLiteral("256"));
        }
    }

    void eachChannelHasItsTone()
    {
        ArraySettings made = settings(64);
        made.framesPerSecond = 4;
        startArray(made);
        FrameClient client;
        QVERIFY2(client.open(*m_array), qPrintable(client.errorText()));
        QVERIFY(client.waitForFrames(128));
        std::map<int, int> counts;
        const QList<QStringList> frames = client.frames();
        for (int i = 0; i < 128; ++i) {
            const int channel = frames[i][Channel].toInt();
            ++counts[channel];
            // The burst begins with the signal: 1 kHz and 300 Hz more for each channel.
            const double bin = (700.0 + 300.0 * channel) / 48000.0 * 1024.0;
            QVERIFY(qAbs(frames[i][HighestBin].toInt() - bin) <= 1.0);
            // -55 dBFS is -48.5 dB re 1 V, in half dB above -100; a tone between two bins has up to 1.5 dB
            // less.
            const int value = frames[i][HighestValue].toInt();
            QVERIFY2(value >= 99 && value <= 104, qPrintable(QString::number(value)));
        }
        QCOMPARE(counts.size(), size_t{64});
        for (const auto& [channel, count] : counts)
            QCOMPARE(count, 2);
    }

    void clientsGetTheSameFrames()
    {
        startArray(settings(2));
        QSignalSpy opened(m_array.get(), &SimulatedArray::frameClientOpened);
        QSignalSpy closed(m_array.get(), &SimulatedArray::frameClientClosed);
        {
            FrameClient first;
            FrameClient second;
            QVERIFY(first.open(*m_array));
            QVERIFY(second.open(*m_array));
            QTRY_COMPARE(opened.size(), 2);
            QVERIFY(second.waitForFrames(6));
            const QStringList frame = second.frames().first();
            QTRY_VERIFY(first.frames().contains(frame));
        }
        QTRY_COMPARE(closed.size(), 2);
        QCOMPARE(m_array->counters().frameClients, 2U);
    }

    void framesFollowTheJobSetup()
    {
        startArray(settings(1));
        QVERIFY(m_array->setConfigFile("$FFT_REF_LEVEL=-70\n$FFT_ACCUM=9\n"));
        FrameClient client;
        QVERIFY(client.open(*m_array));
        QVERIFY(client.waitForFrames(1));
        QCOMPARE(client.frames()[0][FftRef], QStringLiteral("-70"));
        QCOMPARE(client.frames()[0][Accum], QStringLiteral("9"));
    }

    // --- rainy day flows
    void frameFaults_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<int>("word");
        QTest::addColumn<QString>("value");
        for (const int length : {0, 31, 32, 33, 100000})
            QTest::addRow("length %d", length)
                << QStringLiteral("frame-length:value=%1,after=2,times=1").arg(length) << int(Length)
                << QString::number(length);
        QTest::newRow("band width") << QStringLiteral("band-width:value=2000,after=2,times=1")
                                    << int(BandWidth) << QStringLiteral("2000");
        QTest::newRow("every bin") << QStringLiteral("band-width:after=2,times=1") << int(BandWidth)
                                   << QStringLiteral("65535");
        QTest::newRow("foreign") << QStringLiteral("foreign-serial:after=2,times=1") << int(Serial)
                                 << QStringLiteral("65000");
        QTest::newRow("duplicate") << QStringLiteral("duplicate:after=1,times=1") << int(Sequence)
                                   << QStringLiteral("1");
        QTest::newRow("loss") << QStringLiteral("loss:after=2,times=1") << int(Sequence)
                              << QStringLiteral("3");
        QTest::newRow("pause") << QStringLiteral("silence:value=200,after=2,times=1") << int(Channel)
                               << QStringLiteral("1");
    }
    void frameFaults()
    {
        QFETCH(const QString, fault);
        QFETCH(const int, word);
        startArray(settings(1), fault);
        FrameClient client;
        QVERIFY(client.open(*m_array));
        QVERIFY(client.waitForFrames(5));
        const QList<QStringList> frames = client.frames();
        QTEST(frames[2][word], "value");
        QCOMPARE(m_array->counters().faults, 1U);
        QCOMPARE(frames[4][Length], QStringLiteral("544"));
        if (fault.startsWith(u"silence"))
            QVERIFY(frames[2][Sequence].toInt() > 5);
    }

    void channelIsMissing()
    {
        startArray(settings(3), QStringLiteral("missing-channel:value=1,times=3"));
        FrameClient client;
        QVERIFY(client.open(*m_array));
        QVERIFY(client.waitForFrames(9));
        QStringList serials;
        for (const QStringList& frame : client.frames().first(9))
            serials << frame[Serial];
        QCOMPARE(serials.join(u' '), QStringLiteral("1001 1003 1001 1003 1001 1003 1001 1002 1003"));
    }

    void connectionsThatEnd_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("word");
        QTest::newRow("closed") << QStringLiteral("close:after=4,times=1") << QStringLiteral("closed")
                                << QStringLiteral("1000");
        QTest::newRow("reset") << QStringLiteral("reset:after=4,times=1") << QStringLiteral("closed")
                               << QStringLiteral("1006");
        QTest::newRow("404") << QStringLiteral("status:value=404,times=1") << QStringLiteral("refused")
                             << QStringLiteral("404");
        QTest::newRow("500") << QStringLiteral("status:times=1") << QStringLiteral("refused")
                             << QStringLiteral("500");
        QTest::newRow("refused") << QStringLiteral("refuse:times=1") << QStringLiteral("refused")
                                 << QString();
    }
    void connectionsThatEnd()
    {
        QFETCH(const QString, fault);
        QFETCH(const QString, line);
        QFETCH(const QString, word);
        startArray(settings(1), fault);
        FrameClient client;
        QVERIFY(client.open(*m_array));
        QVERIFY(client.waitForLines(line, 1));
        if (!word.isEmpty())
            QCOMPARE(client.lines(line)[0][0], word);
        // The next one is served.
        FrameClient next;
        QVERIFY(next.open(*m_array));
        QVERIFY(next.waitForFrames(1));
    }

    void badHandshakes_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("no upgrade") << QByteArray("GET / HTTP/1.1\r\nHost: x\r\n\r\n");
        QTest::newRow("too long") << QByteArray(20000, 'x');
        QTest::newRow("no lines") << QByteArray("\r\n\r\n");
    }
    void badHandshakes()
    {
        QFETCH(const QByteArray, bytes);
        startArray(settings(1));
        for (int i = 0; i < 70; ++i) {
            QTcpSocket socket;
            socket.connectToHost(m_array->settings().address, m_array->framePort());
            socket.write(bytes);
            QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        }
        FrameClient client;
        QVERIFY(client.open(*m_array));
        QVERIFY(client.waitForFrames(1));
        QCOMPARE(m_array->counters().connectionsCut, 0U);
    }

    void silentConnectionsAreBounded()
    {
        startArray(settings(1));
        std::vector<std::unique_ptr<QTcpSocket>> sockets;
        for (int i = 0; i < 66; ++i) {
            sockets.push_back(std::make_unique<QTcpSocket>());
            sockets.back()->connectToHost(m_array->settings().address, m_array->framePort());
        }
        QTRY_COMPARE(m_array->counters().connectionsCut, 2U);
    }

    void clientThatOnlyPings()
    {
        ArraySettings made = settings(1);
        made.backlogLimit = 20000;
        startArray(made);
        QTcpSocket client;
        client.setReadBufferSize(1000);
        client.connectToHost(made.address, m_array->framePort());
        client.write("GET / HTTP/1.1\r\nHost: x\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                     "Sec-WebSocket-Key: MDEyMzQ1Njc4OWFiY2RlZg==\r\nSec-WebSocket-Version: 13\r\n\r\n");
        QTRY_VERIFY(m_array->counters().framesSent > 0);
        // Masked by zeros.
        const QByteArray pings = (QByteArray::fromHex("89fd00000000") + QByteArray(125, 'p')).repeated(1000);
        QObject context;
        connect(&client, &QTcpSocket::bytesWritten, &context, [&] {
            if (client.bytesToWrite() < pings.size())
                client.write(pings);
        });
        client.write(pings);
        QTRY_COMPARE(m_array->counters().connectionsCut, 1U);
        QTRY_COMPARE(client.state(), QAbstractSocket::UnconnectedState);
    }

    void slowReaderLosesFrames()
    {
        ArraySettings made = settings(4);
        made.backlogLimit = 20000;
        made.framesPerSecond = 200;
        startArray(made, QStringLiteral("frame-length:value=1000000"));
        QTcpSocket reader;
        reader.setReadBufferSize(1000);
        reader.connectToHost(made.address, m_array->framePort());
        reader.write("GET / HTTP/1.1\r\nHost: x\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                     "Sec-WebSocket-Key: MDEyMzQ1Njc4OWFiY2RlZg==\r\nSec-WebSocket-Version: 13\r\n\r\n");
        QTRY_VERIFY(m_array->counters().framesDropped > 20);
        QVERIFY(m_array->counters().framesSent < 30);
    }
};

QTEST_GUILESS_MAIN(tst_SimulatedArrayFrames)
#include "tst_SimulatedArrayFrames.moc"
