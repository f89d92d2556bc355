// Construction, connecting and starting: everything of HydStreamAdapter up to the running stream.
#include "tests/streaming/StreamFixture.h"

namespace {

const QString kAddress = QStringLiteral("127.41.1.1");

QByteArray startBytes(const HydStreamAdapter& adapter)
{
    const auto message = adapter.createStartMsg();
    return {reinterpret_cast<const char*>(message.data()), static_cast<qsizetype>(message.size())};
}

struct Stream : StreamFixture
{
    explicit Stream(HydStreamType type = StreamWave) : StreamFixture(kAddress, type) {}
};

} // namespace

class TestHydStreamAdapterLifecycle : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void constructorMakesSocketOnlyOnRequest()
    {
        const HydStreamAdapter with(StreamWave, 1, kAddress, kDevice, kLongPeriod, true);
        const HydStreamAdapter without(StreamWave, 1, kAddress, kDevice, kLongPeriod, false);
        auto* socket = with.findChild<QTcpSocket*>();
        QVERIFY(socket != nullptr);
        QCOMPARE(socket->state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(socket->readBufferSize(), qint64{3145728});
        QVERIFY(without.findChild<QTcpSocket*>() == nullptr);
    }

    void constructorTakesValues()
    {
        const HydStreamAdapter adapter(StreamSensor, 51000, kAddress, kDevice, kLongPeriod, false);
        QCOMPARE(adapter.streamType(), StreamSensor);
        QCOMPARE(adapter.port(), quint16{51000});
        QCOMPARE(adapter.hostAddress(), QHostAddress(kAddress));
        QVERIFY(adapter.deviceId() == kDevice);
        QCOMPARE(adapter.duration(), quint16{0});
        QCOMPARE(adapter.reqData(), quint16{0});
        QVERIFY(!adapter.isStreaming());
        const HydStreamAdapter noAddress(StreamSensor, 51000, kDevice, kLongPeriod, false);
        QVERIFY(noAddress.hostAddress().isNull());
    }

    void prepareMakesSocketOnce()
    {
        StreamPeer peer(kAddress);
        HydStreamAdapter adapter(StreamWave, peer.port(), kAddress, kDevice, kLongPeriod, false);
        adapter.prepare(false);
        QVERIFY(adapter.findChild<QTcpSocket*>() == nullptr);
        adapter.prepare(true);
        auto* socket = adapter.findChild<QTcpSocket*>();
        QVERIFY(socket != nullptr);
        QCOMPARE(socket->readBufferSize(), qint64{3145728});
        adapter.prepare(true);
        QCOMPARE(adapter.findChildren<QTcpSocket*>().size(), 1);
        QSignalSpy connected(&adapter, &HydStreamAdapter::streamConnected);
        adapter.connectStream();
        QVERIFY(connected.wait(kPatienceMs));
    }

    void addressCanBeSetLater()
    {
        StreamPeer peer(kAddress);
        HydStreamAdapter adapter(StreamWave, peer.port(), kDevice, kLongPeriod, true);
        adapter.setHostAddress(QHostAddress(kAddress));
        QCOMPARE(adapter.hostAddress(), QHostAddress(kAddress));
        QSignalSpy connected(&adapter, &HydStreamAdapter::streamConnected);
        adapter.connectStream();
        QVERIFY(connected.wait(kPatienceMs));
        QTRY_VERIFY(peer.isConnected());
    }

    void connectionsAreMadeOnce()
    {
        Stream stream;
        stream.adapter.createConnections();
        stream.adapter.createConnections();
        QSignalSpy connected(&stream.adapter, &HydStreamAdapter::streamConnected);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStream();
        QTRY_COMPARE(started.size(), 1);
        stream.adapter.stopStream();
        QTRY_COMPARE(stream.peer.received().size(), 12);
        QCOMPARE(connected.size(), 1);
        QCOMPARE(started.size(), 1);
    }

    void aliveTimerIsConnectedOnce()
    {
        Stream stream;
        stream.adapter.createConnections();
        stream.adapter.createConnections();
        stream.adapter.setDuration(120);
        // A round of the timer would leave its mark on the next start.
        QSignalSpy rounds(stream.timer, &QTimer::timeout);
        stream.timer->start(1);
        QVERIFY(rounds.wait(kPatienceMs));
        CONNECT_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStream();
        QCOMPARE(started.size(), 1);
        QCOMPARE(started[0][0].toBool(), false);
    }

    void refusalIsToldOnce_data()
    {
        QTest::addColumn<bool>("removes");
        QTest::newRow("connections made again") << false;
        // Errors stay connected.
        QTest::newRow("connections removed") << true;
    }

    void refusalIsToldOnce()
    {
        QFETCH(bool, removes);
        Stream stream;
        stream.peer.stopListening();
        stream.adapter.createConnections();
        stream.adapter.createConnections();
        if (removes)
            stream.adapter.disConnectStreamConnections();
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::socketError);
        QSignalSpy disconnected(&stream.adapter, &HydStreamAdapter::streamDisconnected);
        stream.adapter.connectStream();
        QTRY_VERIFY(!errors.isEmpty());
        QCOMPARE(errors.size(), 1);
        QCOMPARE(disconnected.size(), 1);
    }

    void connectingSendsNothing()
    {
        Stream stream;
        QSignalSpy connected(&stream.adapter, &HydStreamAdapter::streamConnected);
        CONNECT_STREAM(stream);
        QCOMPARE(connected.size(), 1);
        QVERIFY(!stream.adapter.isStreaming());
        stream.adapter.disconnectStream();
        QTRY_VERIFY(!stream.peer.isConnected());
        QCOMPARE(stream.peer.received(), QByteArray());
    }

    void connectingTwiceKeepsConnection()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        const quint16 localPort = stream.socket->localPort();
        stream.adapter.connectStream();
        QCOMPARE(stream.socket->state(), QAbstractSocket::ConnectedState);
        QCOMPARE(stream.socket->localPort(), localPort);
    }

    void startMessage_data()
    {
        QTest::addColumn<int>("duration");
        QTest::addColumn<int>("reqData");
        QTest::addColumn<QByteArray>("expected");
        const auto row = [](int duration, int reqData, const char* tail) {
            QTest::addRow("%d s, bits %d", duration, reqData)
                << duration << reqData << QByteArray::fromHex("332A0004") + QByteArray::fromHex(tail);
        };
        row(0, 0, "00000000");
        row(1, 0, "00010000");
        row(30, 0, "00010000");
        row(59, 0, "00010000");
        row(60, 0, "00010000");
        row(119, 0, "00010000");
        row(120, 0, "00020000");
        row(65535, 0, "04440000");
        row(0, 1, "00000001");
        row(0, 31, "0000001F");
        row(120, 0xA55A, "0002A55A");
    }

    void startMessage()
    {
        QFETCH(int, duration);
        QFETCH(int, reqData);
        QFETCH(QByteArray, expected);
        HydStreamAdapter adapter(StreamSensor, 1, kDevice, kLongPeriod, false);
        adapter.setDuration(static_cast<quint16>(duration));
        adapter.setReqData(static_cast<quint16>(reqData));
        QCOMPARE(startBytes(adapter), expected);
        QCOMPARE(adapter.duration(), static_cast<quint16>(duration));
        QCOMPARE(adapter.reqData(), static_cast<quint16>(reqData));
    }

    void typeText_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("bits");
        QTest::addColumn<QString>("text");
        const auto row = [](int type, int bits, const char* text) {
            QTest::addRow("type %d, bits %d", type, bits) << type << bits << QString::fromLatin1(text);
        };
        row(1, 0, "Waveform");
        row(2, 0, "Spectrum");
        row(3, 0, "Sensor");
        row(4, 0, "RawWave");
        row(5, 0, "Epoch");
        row(16, 0, "WaveformScan");
        row(17, 0, "SpectrumScan");
        row(18, 0, "SensorScan");
        row(32, 0, "WaveformFile");
        row(33, 0, "SpectrumFile");
        row(0, 0, "Unknown");
        row(6, 0, "Unknown");
        row(255, 0, "Unknown");
        row(3, 1, "Sensor_Temperature_Humidity");
        row(3, 2, "Sensor_Accelerometer_Magnetometer");
        row(3, 4, "Sensor_Time_Synchronization");
        row(3, 8, "Sensor_Time_Battery");
        row(3, 16, "Sensor_Triggers");
        row(3, 31,
            "Sensor_Temperature_Humidity_Triggers_Time_Synchronization_Time_Battery_Accelerometer_"
            "Magnetometer");
        row(1, 31, "Waveform");
        row(18, 31, "SensorScan");
    }

    void typeText()
    {
        QFETCH(int, type);
        QFETCH(int, bits);
        QFETCH(QString, text);
        HydStreamAdapter adapter(static_cast<HydStreamType>(type), 1, kDevice, kLongPeriod, false);
        adapter.setReqData(static_cast<quint16>(bits));
        QCOMPARE(adapter.strStreamType(), text);
    }

    void sensorBitsAreFoundOnlyTogether()
    {
        HydStreamAdapter adapter(StreamSensor, 1, kDevice, kLongPeriod, false);
        adapter.setReqData(5);
        QVERIFY(adapter.containSensType(SensTempHumidity));
        QVERIFY(adapter.containSensType(SensTimeSync));
        QVERIFY(adapter.containSensType(static_cast<HydSensStreamType>(5)));
        QVERIFY(!adapter.containSensType(SensAccMag));
        QVERIFY(!adapter.containSensType(static_cast<HydSensStreamType>(7)));
    }

    void startOnConnectedSocketSendsStart()
    {
        Stream stream;
        stream.adapter.setReqData(0x0102);
        CONNECT_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStream();
        QCOMPARE(started.size(), 1);
        QCOMPARE(started[0][0].toBool(), false);
        QVERIFY(stream.adapter.isStreaming());
        QTRY_COMPARE(stream.peer.received(), QByteArray("\x33\x2A\x00\x04\x00\x00\x01\x02", 8));
    }

    void startUnconnectedIsPostponedAndLogged()
    {
        Stream stream;
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        QTest::ignoreMessage(QtDebugMsg,
                             QRegularExpression(QStringLiteral(
                                 "Attempt to start stream before port is connected!: .*127\\.41\\.1\\.1"
                                 ".*, .*m_socket->state\\(\\):.*UnconnectedState.*m_socket->error\\(\\):"
                                 ".*UnknownSocketError.*m_isStreamingEnabled:.*false.*Waveform.*1234")));
        stream.adapter.startStream();
        QVERIFY(!stream.adapter.isStreaming());
        QCOMPARE(stream.socket->state(), QAbstractSocket::ConnectingState);
        QTRY_COMPARE(started.size(), 1);
        QCOMPARE(started[0][0].toBool(), false);
        QTRY_COMPARE(stream.peer.received(), kStart);
    }

    void startWhileConnectingWaitsForConnection()
    {
        Stream stream;
        stream.adapter.connectStream();
        QCOMPARE(stream.socket->state(), QAbstractSocket::ConnectingState);
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("ConnectingState.*false")));
        stream.adapter.startStream();
        QCOMPARE(stream.socket->state(), QAbstractSocket::ConnectingState);
        QTRY_COMPARE(stream.peer.received(), kStart);
        QCOMPARE(stream.peer.connections(), qsizetype{1});
    }

    void startWhileClosingAbortsAndConnects()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        stream.socket->write(QByteArray(64 << 20, 'x'));
        stream.socket->disconnectFromHost();
        QCOMPARE(stream.socket->state(), QAbstractSocket::ClosingState);
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("ClosingState.*false")));
        stream.adapter.startStream();
        QCOMPARE(stream.socket->state(), QAbstractSocket::ConnectingState);
        QTRY_COMPARE(stream.peer.connections(), qsizetype{2});
        QTRY_VERIFY(stream.peer.received().endsWith(kStart));
        QVERIFY(stream.adapter.isStreaming());
    }

    void startOnBoundSocketConnects()
    {
        Stream stream;
        QVERIFY(stream.socket->bind(QHostAddress(kAddress)));
        QCOMPARE(stream.socket->state(), QAbstractSocket::BoundState);
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("BoundState.*false")));
        stream.adapter.startStream();
        QTRY_COMPARE(stream.peer.received(), kStart);
    }

    void startWhileEnabledReconnects()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        QTRY_COMPARE(stream.peer.received(), kStart);
        stream.socket->abort();
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("UnconnectedState.*true")));
        stream.adapter.startStream();
        QTRY_COMPARE(stream.peer.connections(), qsizetype{2});
        QTRY_COMPARE(stream.peer.received(), kStart + kStart);
    }

    void startWhileEnabledAndConnectingConnectsAnew()
    {
        Stream stream;
        START_STREAM(stream);
        stream.socket->abort();
        stream.adapter.connectStream();
        QCOMPARE(stream.socket->state(), QAbstractSocket::ConnectingState);
        stream.adapter.startStream();
        QTRY_COMPARE(stream.peer.connections(), qsizetype{3});
        QTRY_COMPARE(stream.peer.received(), kStart);
    }

    void reconnectionWhileStreamingRestarts()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        QTRY_COMPARE(stream.peer.received(), kStart);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.peer.socket()->disconnectFromHost();
        QTRY_COMPARE(started.size(), 1);
        QTRY_COMPARE(stream.peer.received(), kStart + kStart);
    }

    void postponedStartHappensOnce()
    {
        Stream stream;
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStream();
        QTRY_COMPARE(started.size(), 1);
        stream.adapter.disconnectStream();
        CONNECT_STREAM(stream);
        QCOMPARE(started.size(), 1);
        QVERIFY(!stream.adapter.isStreaming());
    }

    void startDevIdOnConnectedSocketStartsAtOnce()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStreamDevId(kDevice, 100000);
        QCOMPARE(started.size(), 1);
    }

    void startDevIdWhileConnectingStartsOnConnection()
    {
        Stream stream;
        stream.adapter.connectStream();
        stream.adapter.startStreamDevId(kDevice, 100000);
        QTRY_COMPARE(stream.peer.received(), kStart);
    }

    void startDevIdUnconnectedWaitsForDelay()
    {
        Stream stream;
        QElapsedTimer elapsed;
        elapsed.start();
        stream.adapter.startStreamDevId(kDevice, 150);
        QCOMPARE(stream.socket->state(), QAbstractSocket::UnconnectedState);
        QTRY_COMPARE(stream.peer.received(), kStart);
        QVERIFY(elapsed.elapsed() >= 140);
    }

    void startSensorsTakesDuration()
    {
        Stream stream(StreamSensor);
        stream.adapter.setReqData(3);
        CONNECT_STREAM(stream);
        stream.adapter.startSensorsStreamDevId(kDevice, 0, 120);
        QCOMPARE(stream.adapter.duration(), quint16{120});
        QTRY_COMPARE(stream.peer.received(), QByteArray("\x33\x2A\x00\x04\x00\x02\x00\x03", 8));
    }

    void startSensorsWithSameDurationAppliesNothing()
    {
        Stream stream(StreamSensor);
        QSignalSpy continuous(&stream.adapter, &HydStreamAdapter::streamIsContinuous);
        CONNECT_STREAM(stream);
        stream.adapter.startSensorsStreamDevId(kDevice, 0, 0);
        QTRY_COMPARE(stream.peer.received(), kStart);
        QCOMPARE(continuous.size(), 0);
    }

    void aliasIsTakenOver()
    {
        Stream stream;
        HydDeviceId named = kDevice;
        named.setAlias("deep one");
        stream.adapter.updateDevAliasInfo(named);
        QCOMPARE(stream.adapter.deviceId().alias(), std::string("deep one"));
        QSignalSpy headers(&stream.adapter, &HydStreamAdapter::eventHeader);
        stream.adapter.handleStreamMessagePayload(std::make_shared<HydStreamEventHeaderPayload>(
            nullptr, std::vector<std::shared_ptr<HydDeviceInfoChunk const>>{},
            std::vector<std::shared_ptr<HydStreamStatusChunk const>>{}, HydStreamSetupContainer{},
            std::vector<std::shared_ptr<HydAmplScalingChunk const>>{}, static_cast<unsigned char>(1),
            nullptr));
        QCOMPARE(headers.size(), 1);
        QCOMPARE(headers[0][1].value<HydDeviceId>().alias(), std::string("deep one"));
        QCOMPARE(headers[0][2].value<std::shared_ptr<HydDevice>>()->deviceId().alias(),
                 std::string("deep one"));
    }

    // --- rainy day flows

    void withoutSocketNothingHappens()
    {
        HydStreamAdapter adapter(StreamWave, 1, kAddress, kDevice, kLongPeriod, false);
        QSignalSpy stopped(&adapter, &HydStreamAdapter::streamStopped);
        QSignalSpy started(&adapter, &HydStreamAdapter::streamStarted);
        QSignalSpy disconnected(&adapter, &HydStreamAdapter::streamDisconnected);
        QSignalSpy errors(&adapter, &HydStreamAdapter::streamErrorMsg);
        adapter.createConnections();
        adapter.disConnectStreamConnections();
        adapter.connectStream();
        adapter.startStream();
        adapter.startStreamDevId(kDevice, 0);
        adapter.handleSocketConnected();
        adapter.handleSocketError();
        adapter.readStream();
        adapter.stopStream();
        adapter.stopStreamDevId(kDevice);
        adapter.disconnectStream();
        QVERIFY(!adapter.isStreaming());
        QVERIFY(spyStaysEmpty(errors, 150));
        QCOMPARE(stopped.size(), 0);
        QCOMPARE(started.size(), 0);
        QCOMPARE(disconnected.size(), 0);
    }

    void startOfOtherDeviceDoesNothing()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStreamDevId(HydDeviceId(DevTypeRecorderA, 1235), 0);
        QVERIFY(spyStaysEmpty(started, 30));
    }

    void startDevIdWhileStreamingDoesNothing()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStreamDevId(kDevice, 0);
        QVERIFY(spyStaysEmpty(started, 30));
        stream.adapter.stopStream();
        QTRY_COMPARE(stream.peer.received().size(), 12);
    }

    void startSensorsOfOtherDeviceTakesOnlyDuration()
    {
        Stream stream(StreamSensor);
        CONNECT_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startSensorsStreamDevId(HydDeviceId(DevTypeRecorderB, 1234), 0, 90);
        QCOMPARE(stream.adapter.duration(), quint16{90});
        QVERIFY(spyStaysEmpty(started, 30));
    }

    void connectingAnewAbortsWhatIsUnderWay()
    {
        Stream stream;
        StreamPeer other(kAddress);
        stream.socket->connectToHost(QHostAddress(kAddress), other.port());
        QCOMPARE(stream.socket->state(), QAbstractSocket::ConnectingState);
        stream.adapter.connectStream();
        QTRY_VERIFY(stream.peer.isConnected());
        QTRY_COMPARE(stream.socket->state(), QAbstractSocket::ConnectedState);
        QCOMPARE(stream.socket->peerPort(), stream.peer.port());
    }

    void connectionWithoutStartRequestDoesNotStart()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        stream.adapter.handleSocketConnected();
        stream.adapter.stopStream();
        QTRY_COMPARE(stream.peer.received(), QByteArray("\x34\x2A\x00\x00", 4));
    }

    void removedConnectionsNoLongerStart()
    {
        Stream stream;
        stream.adapter.disConnectStreamConnections();
        QSignalSpy connected(&stream.adapter, &HydStreamAdapter::streamConnected);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStream();
        QVERIFY(connected.wait(kPatienceMs));
        QVERIFY(spyStaysEmpty(started, 30));
        QTRY_VERIFY(stream.peer.isConnected());
        stream.peer.send("twelve bytes");
        QTRY_COMPARE(stream.socket->bytesAvailable(), qint64{12});
    }

    void addressThatIsNoneFails()
    {
        HydStreamAdapter adapter(StreamWave, 1, QStringLiteral("no.address"), kDevice, kLongPeriod, true);
        QVERIFY(adapter.hostAddress().isNull());
        QSignalSpy disconnected(&adapter, &HydStreamAdapter::streamDisconnected);
        adapter.connectStream();
        QTRY_COMPARE(disconnected.size(), 1);
    }

    void aliasOfOtherDeviceIsIgnored()
    {
        Stream stream;
        HydDeviceId other(DevTypeRecorderA, 7);
        other.setAlias("stranger");
        stream.adapter.updateDevAliasInfo(other);
        QCOMPARE(stream.adapter.deviceId().alias(), std::string());
    }
};

QTEST_GUILESS_MAIN(TestHydStreamAdapterLifecycle)
#include "tst_HydStreamAdapterLifecycle.moc"
