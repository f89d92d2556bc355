// Delayed starts of HydStreamAdapter with their retries, and what socket errors lead to.
#include "tests/streaming/HangingPort.h"
#include "tests/streaming/StreamFixture.h"

namespace {

const QString kAddress = QStringLiteral("127.41.4.1");

struct Stream : StreamFixture
{
    explicit Stream(HydStreamType type = StreamWave) : StreamFixture(kAddress, type) {}
};

quint16 closedPort()
{
    QTcpServer server;
    server.listen(QHostAddress(kAddress));
    return server.serverPort();
}

} // namespace

class TestHydStreamAdapterRetry : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void delayedStartOnConnectedSocketStarts()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.delayConnectStream(0, true);
        QCOMPARE(started.size(), 0);
        QTRY_COMPARE(started.size(), 1);
        QTRY_COMPARE(stream.peer.received(), kStart);
        // No retry check follows: a second start would show ahead of the stop.
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::streamErrorMsg);
        QVERIFY(spyStaysEmpty(errors, 150));
        stream.adapter.stopStream();
        QTRY_COMPARE(stream.peer.received(), kStart + kStop);
    }

    void delayedStartConnectsThenStarts()
    {
        Stream stream;
        QElapsedTimer elapsed;
        elapsed.start();
        QSignalSpy connected(&stream.adapter, &HydStreamAdapter::streamConnected);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        bool startedByThen = true;
        connect(&stream.adapter, &HydStreamAdapter::streamConnected, this,
                [&] { startedByThen = !started.isEmpty(); });
        stream.adapter.delayConnectStream(0, true);
        QVERIFY(connected.wait(kPatienceMs));
        QVERIFY(!startedByThen);
        QTRY_COMPARE(started.size(), 1);
        QVERIFY(elapsed.elapsed() >= 90);
        QTRY_COMPARE(stream.peer.received(), kStart);
    }

    void delayedConnectionWithoutStartOnlyConnects()
    {
        Stream stream;
        QSignalSpy connected(&stream.adapter, &HydStreamAdapter::streamConnected);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::streamErrorMsg);
        QElapsedTimer elapsed;
        elapsed.start();
        stream.adapter.delayConnectStream(60, false);
        QVERIFY(connected.wait(kPatienceMs));
        QVERIFY(elapsed.elapsed() >= 50);
        QVERIFY(spyStaysEmpty(started, 150));
        QCOMPARE(errors.size(), 0);
    }

    void delayStartWaitsAndStarts()
    {
        Stream stream;
        QElapsedTimer elapsed;
        elapsed.start();
        QSignalSpy connected(&stream.adapter, &HydStreamAdapter::streamConnected);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.delayStartStream();
        QVERIFY(connected.wait(kPatienceMs));
        QVERIFY(elapsed.elapsed() >= 90);
        QTRY_COMPARE(started.size(), 1);
        QVERIFY(elapsed.elapsed() >= 190);
    }

    void connectionInLastMomentStillStarts()
    {
        StreamPeer peer(kAddress);
        HangingPort hanging(kAddress);
        HydStreamAdapter adapter(StreamWave, hanging.port(), kAddress, kDevice, kLongPeriod, true);
        auto* socket = adapter.findChild<QTcpSocket*>();
        QSignalSpy started(&adapter, &HydStreamAdapter::streamStarted);
        QSignalSpy errors(&adapter, &HydStreamAdapter::streamErrorMsg);
        QElapsedTimer elapsed;
        elapsed.start();
        // The first check, after 100 ms, finds the socket connecting and leaves it another 300 ms. A timer
        // that starts with the first attempt comes in between whatever the machine does, since timers run in
        // the order of their times.
        bool connectedAtOnce = false;
        bool startedByThen = true;
        const auto connectInBetween = [&] {
            socket->abort();
            socket->connectToHost(QHostAddress(kAddress), peer.port());
            connectedAtOnce = socket->waitForConnected(kPatienceMs);
            startedByThen = !started.isEmpty();
        };
        connect(
            socket, &QTcpSocket::stateChanged, this, [&] { QTimer::singleShot(200, this, connectInBetween); },
            Qt::SingleShotConnection);
        adapter.delayConnectStream(0, true);
        QTRY_COMPARE(started.size(), 1);
        QVERIFY(connectedAtOnce);
        QVERIFY(!startedByThen);
        QVERIFY(elapsed.elapsed() >= 380);
        QTRY_COMPARE(peer.received(), kStart);
        QCOMPARE(errors.size(), 0);
    }

    // --- rainy day flows

    void refusedStartIsReportedAfterFirstCheck()
    {
        HydDeviceId named = kDevice;
        named.setAlias("deep one");
        HydStreamAdapter adapter(StreamSensor, closedPort(), kAddress, named, kLongPeriod, true);
        adapter.setReqData(1);
        QSignalSpy errors(&adapter, &HydStreamAdapter::streamErrorMsg);
        QSignalSpy disconnected(&adapter, &HydStreamAdapter::streamDisconnected);
        QElapsedTimer elapsed;
        elapsed.start();
        adapter.delayConnectStream(0, true);
        QTRY_COMPARE(errors.size(), 1);
        QVERIFY(elapsed.elapsed() >= 90);
        QCOMPARE(errors[0][0].toString(),
                 QStringLiteral("Streaming start failed: Sensor_Temperature_Humidity, deep one"));
        QCOMPARE(disconnected.size(), 1);
        // Nothing more follows.
        errors.clear();
        QVERIFY(spyStaysEmpty(errors, 350));
    }

    void hangingStartIsReportedAfterLastCheck()
    {
        HangingPort hanging(kAddress);
        HydStreamAdapter adapter(StreamWave, hanging.port(), kAddress, kDevice, kLongPeriod, true);
        QSignalSpy errors(&adapter, &HydStreamAdapter::streamErrorMsg);
        QElapsedTimer elapsed;
        elapsed.start();
        adapter.delayConnectStream(0, true);
        QTRY_COMPARE(errors.size(), 1);
        QVERIFY(elapsed.elapsed() >= 380);
        QCOMPARE(errors[0][0].toString(), QStringLiteral("Streaming start failed: Waveform, ") +
                                              QString::fromStdString(kDevice.friendlyName()));
    }

    void delayedStartWithoutSocketIsReported()
    {
        HydStreamAdapter adapter(StreamWave, 1, kAddress, kDevice, kLongPeriod, false);
        QSignalSpy errors(&adapter, &HydStreamAdapter::streamErrorMsg);
        adapter.delayConnectStream(0, true);
        QTRY_COMPARE(errors.size(), 1);
    }

    void negativeDelaysCountAsNone()
    {
        Stream stream;
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStreamDevId(kDevice, -1);
        QTRY_COMPARE(started.size(), 1);
    }

    void refusalWhileNotStreaming()
    {
        HydStreamAdapter adapter(StreamWave, closedPort(), kAddress, kDevice, kLongPeriod, true);
        QSignalSpy disconnected(&adapter, &HydStreamAdapter::streamDisconnected);
        QSignalSpy errors(&adapter, &HydStreamAdapter::socketError);
        QSignalSpy lost(&adapter, &HydStreamAdapter::streamConnectionLost);
        adapter.connectStream();
        QTRY_COMPARE(disconnected.size(), 1);
        QCOMPARE(disconnected[0][0].value<QAbstractSocket::SocketError>(),
                 QAbstractSocket::ConnectionRefusedError);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(errors[0][0].value<QAbstractSocket::SocketError>(), QAbstractSocket::ConnectionRefusedError);
        // No further attempt.
        QVERIFY(spyStaysEmpty(lost, 30));
        QCOMPARE(disconnected.size(), 1);
    }

    void errorWhileStreamingIsReportedTwiceAndReconnects()
    {
        Stream stream;
        START_STREAM(stream);
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::socketError);
        QSignalSpy disconnected(&stream.adapter, &HydStreamAdapter::streamDisconnected);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.peer.socket()->disconnectFromHost();
        QTRY_COMPARE(started.size(), 1);
        QCOMPARE(errors.size(), 2);
        for (const auto& error : errors)
            QCOMPARE(error[0].value<QAbstractSocket::SocketError>(), QAbstractSocket::RemoteHostClosedError);
        QCOMPARE(disconnected.size(), 0);
        QTRY_COMPARE(stream.peer.received(), kStart);
    }

    void errorWhileStreamingReconnectsThroughTheEventLoop()
    {
        Stream stream;
        START_STREAM(stream);
        stream.socket->abort();
        stream.adapter.handleSocketError();
        QCOMPARE(stream.socket->state(), QAbstractSocket::UnconnectedState);
        QTRY_COMPARE(stream.peer.received(), kStart);
    }

    void errorClearsTheMarkOfGoodData()
    {
        Stream stream;
        START_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 0);
        stream.adapter.handleSocketError();
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 1);
    }

    void attemptsRepeatUntilTheRecorderIsBack()
    {
        Stream stream;
        START_STREAM(stream);
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::socketError);
        stream.peer.stopListening();
        stream.peer.socket()->abort();
        QTRY_VERIFY(errors.size() > 10);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.peer.listen();
        QTRY_COMPARE(started.size(), 1);
        QTRY_COMPARE(stream.peer.received(), kStart);
        QVERIFY(stream.adapter.isStreaming());
    }

    void stopEndsTheAttempts()
    {
        Stream stream;
        START_STREAM(stream);
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::socketError);
        stream.peer.stopListening();
        stream.peer.socket()->abort();
        QTRY_VERIFY(errors.size() > 4);
        stream.adapter.disconnectStream();
        // One attempt may have been queued already: it begins now, and is refused.
        QCoreApplication::sendPostedEvents(&stream.adapter);
        QTRY_COMPARE(stream.socket->state(), QAbstractSocket::UnconnectedState);
        errors.clear();
        QVERIFY(spyStaysEmpty(errors, 50));
    }

    void errorWithoutPeerIsAConnectionLost()
    {
        Stream stream;
        QSignalSpy lost(&stream.adapter, &HydStreamAdapter::streamConnectionLost);
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::socketError);
        bool asked = false;
        connect(stream.socket, &QTcpSocket::stateChanged, this, [&](QAbstractSocket::SocketState state) {
            if (state != QAbstractSocket::HostLookupState || asked)
                return;
            asked = true;
            stream.adapter.handleStreamSocketError(QAbstractSocket::NetworkError);
        });
        stream.adapter.connectStream();
        QVERIFY(asked);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(errors[0][0].value<QAbstractSocket::SocketError>(), QAbstractSocket::NetworkError);
        QCOMPARE(lost.size(), 1);
        QCOMPARE(lost[0][0].value<QAbstractSocket::SocketError>(), stream.socket->error());
        QVERIFY(lost[0][1].value<HydDeviceId>() == kDevice);
    }

    void errorOnALivingLinkIsNoConnectionLost()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        QSignalSpy lost(&stream.adapter, &HydStreamAdapter::streamConnectionLost);
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::socketError);
        stream.adapter.handleStreamSocketError(QAbstractSocket::NetworkError);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(lost.size(), 0);
    }

    void errorWhileConnectingOrUnconnectedIsNoConnectionLost()
    {
        Stream stream;
        QSignalSpy lost(&stream.adapter, &HydStreamAdapter::streamConnectionLost);
        stream.adapter.handleStreamSocketError(QAbstractSocket::NetworkError);
        stream.adapter.connectStream();
        QCOMPARE(stream.socket->state(), QAbstractSocket::ConnectingState);
        stream.adapter.handleStreamSocketError(QAbstractSocket::NetworkError);
        QCOMPARE(lost.size(), 0);
    }

    void errorWithoutSocketIsPassedOn()
    {
        HydStreamAdapter adapter(StreamWave, 1, kAddress, kDevice, kLongPeriod, false);
        QSignalSpy errors(&adapter, &HydStreamAdapter::socketError);
        adapter.handleStreamSocketError(QAbstractSocket::NetworkError);
        QCOMPARE(errors.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestHydStreamAdapterRetry)
#include "tst_HydStreamAdapterRetry.moc"
