// Stopping, disconnecting and the end of HydStreamAdapter.
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"

#include <QPointer>

using namespace streamframes;

namespace {

const QString kAddress = QStringLiteral("127.41.2.1");

struct Stream : StreamFixture
{
    explicit Stream(HydStreamType type = StreamWave, int alivePeriodMs = kLongPeriod)
        : StreamFixture(kAddress, type, alivePeriodMs)
    {
    }
};

/// A device whose settings make the sequence checks run, at `rate`.
HydDevice waveDevice(uint32_t rate)
{
    HydJobSettings settings;
    settings.setWavRate(static_cast<SampRate>(rate));
    return {kDevice.serialNo(), kDevice.devType(), {}, settings.map()};
}

void feed(HydStreamAdapter& adapter, std::shared_ptr<HydStreamMessagePayload> payload)
{
    adapter.handleStreamMessage(std::make_shared<HydStreamMessage>(std::move(payload)));
}

/// True when the block is marked as the last one of its second.
bool closesSecond(HydStreamAdapter& adapter, uint32_t eventId, uint16_t count)
{
    auto data = block(eventId, 0, 0, count);
    feed(adapter, data);
    return data->isLastEvent();
}

} // namespace

class TestHydStreamAdapterStop : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void stopSendsStopAndKeepsConnection()
    {
        Stream stream;
        START_STREAM(stream);
        QSignalSpy stopped(&stream.adapter, &HydStreamAdapter::streamStopped);
        stream.adapter.stopStream();
        QCOMPARE(stopped.size(), 1);
        QVERIFY(!stream.adapter.isStreaming());
        QTRY_COMPARE(stream.peer.received(), kStop);
        QCOMPARE(stream.socket->state(), QAbstractSocket::ConnectedState);
    }

    void stopMessageIsPublic()
    {
        const QByteArray message(reinterpret_cast<const char*>(HydStreamAdapter::stopStreamMsg.data()),
                                 static_cast<qsizetype>(HydStreamAdapter::stopStreamMsg.size()));
        QCOMPARE(message, kStop);
    }

    void stopEndsAliveTimer()
    {
        Stream stream;
        START_STREAM(stream);
        QTRY_VERIFY(stream.timer->isActive());
        stream.adapter.stopStream();
        QVERIFY(stream.timer->isActive());
        QTRY_VERIFY(!stream.timer->isActive());
    }

    void stopWithdrawsPostponedStart()
    {
        Stream stream;
        stream.adapter.startStream();
        stream.adapter.stopStream();
        QTRY_COMPARE(stream.peer.received(), kStop);
        QCOMPARE(stream.socket->state(), QAbstractSocket::ConnectedState);
        QVERIFY(!stream.adapter.isStreaming());
    }

    void stopForgetsThatAliveTimerRestarts()
    {
        Stream stream;
        START_STREAM(stream);
        stream.adapter.streamAliveTimeOut();
        stream.adapter.stopStream();
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStream();
        QCOMPARE(started.size(), 1);
        QCOMPARE(started[0][0].toBool(), false);
    }

    void startFromTheSignalOfAStopHolds()
    {
        Stream stream;
        START_STREAM(stream);
        stream.adapter.streamAliveTimeOut();
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        connect(&stream.adapter, &HydStreamAdapter::streamStopped, &stream.adapter,
                &HydStreamAdapter::startStream, Qt::SingleShotConnection);
        stream.adapter.stopStream();
        QVERIFY(stream.adapter.isStreaming());
        QCOMPARE(started.size(), 1);
        // That the alive timer asked for a start was over before.
        QCOMPARE(started[0][0].toBool(), false);
        QTRY_COMPARE(stream.peer.received(), kStop + kStart);
    }

    void postponedStartFromTheSignalOfAStopHolds()
    {
        Stream stream;
        connect(&stream.adapter, &HydStreamAdapter::streamStopped, &stream.adapter,
                &HydStreamAdapter::startStream, Qt::SingleShotConnection);
        stream.adapter.stopStream();
        QTRY_COMPARE(stream.peer.received(), kStart);
        QVERIFY(stream.adapter.isStreaming());
    }

    void disconnectLetsAnAcceptedStartLeave()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        stream.adapter.disconnectStream();
        QTRY_VERIFY(!stream.peer.isConnected());
        QCOMPARE(stream.peer.received(), kStart);
    }

    void stopDevIdStopsOwnDevice()
    {
        Stream stream;
        START_STREAM(stream);
        stream.adapter.stopStreamDevId(kDevice);
        QTRY_COMPARE(stream.peer.received(), kStop);
    }

    void disconnectClosesWithoutStop()
    {
        Stream stream;
        START_STREAM(stream);
        QSignalSpy stopped(&stream.adapter, &HydStreamAdapter::streamStopped);
        stream.adapter.disconnectStream();
        QVERIFY(!stream.adapter.isStreaming());
        QTRY_VERIFY(!stream.peer.isConnected());
        QCOMPARE(stream.socket->state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(stream.peer.received(), QByteArray());
        QCOMPARE(stopped.size(), 0);
    }

    void disconnectEndsAliveTimer()
    {
        Stream stream;
        START_STREAM(stream);
        QTRY_VERIFY(stream.timer->isActive());
        stream.adapter.disconnectStream();
        QVERIFY(stream.timer->isActive());
        QTRY_VERIFY(!stream.timer->isActive());
    }

    void disconnectWithdrawsPostponedStart()
    {
        Stream stream;
        stream.adapter.startStream();
        stream.adapter.disconnectStream();
        QTRY_COMPARE(stream.socket->state(), QAbstractSocket::UnconnectedState);
        QTRY_COMPARE(stream.peer.connections(), qsizetype{1});
        CONNECT_STREAM(stream);
        QVERIFY(!stream.adapter.isStreaming());
        stream.adapter.stopStream();
        QTRY_COMPARE(stream.peer.received(), kStop);
    }

    void disconnectForgetsThatAliveTimerRestarts()
    {
        Stream stream;
        START_STREAM(stream);
        stream.adapter.streamAliveTimeOut();
        stream.adapter.disconnectStream();
        CONNECT_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStream();
        QCOMPARE(started.size(), 1);
        QCOMPARE(started[0][0].toBool(), false);
    }

    void disconnectWithUnsentBytesAborts()
    {
        Stream stream;
        START_STREAM(stream);
        stream.socket->write(QByteArray(64 << 20, 'x'));
        stream.adapter.disconnectStream();
        QCOMPARE(stream.socket->state(), QAbstractSocket::UnconnectedState);
        QTRY_VERIFY(!stream.peer.isConnected());
    }

    void endingForgetsSequences_data()
    {
        QTest::addColumn<int>("way");
        QTest::addColumn<int>("reports");
        QTest::newRow("stop") << 0 << 0;
        QTest::newRow("disconnect") << 1 << 0;
        // The gap check's sequence stays over a restart: one report. Intended.
        QTest::newRow("start again") << 2 << 1;
    }

    void endingForgetsSequences()
    {
        QFETCH(int, way);
        QFETCH(int, reports);
        Stream stream;
        stream.adapter.updateDeviceInfo(waveDevice(100));
        START_STREAM(stream);
        feed(stream.adapter, header(7, 1000));
        QSignalSpy errors(&stream.adapter, &HydStreamAdapter::headerError);
        QVERIFY(!closesSecond(stream.adapter, 7, 60));
        if (way == 0)
            stream.adapter.stopStream();
        else if (way == 1)
            stream.adapter.disconnectStream();
        else
            stream.adapter.startStream();
        // The samples of the second are forgotten, the event's identity isn't: blocks of event 7 go on
        // counting.
        QVERIFY(!closesSecond(stream.adapter, 7, 60));
        QVERIFY(closesSecond(stream.adapter, 7, 60));
        feed(stream.adapter, header(8, 5000));
        QCOMPARE(errors.size(), reports);
    }

    void streamOfLimitedTimeIsStopped()
    {
        Stream wave;
        Stream sensor(StreamSensor);
        wave.adapter.setDuration(60);
        sensor.adapter.setDuration(30);
        QSignalSpy waveStopped(&wave.adapter, &HydStreamAdapter::streamStopped);
        QSignalSpy sensorStopped(&sensor.adapter, &HydStreamAdapter::streamStopped);
        wave.adapter.setTimeToStopStream(1);
        sensor.adapter.setTimeToStopStream(1);
        QTRY_COMPARE(waveStopped.size(), 1);
        QTRY_COMPARE(sensorStopped.size(), 1);
    }

    void shortSensorStreamStopsByItself()
    {
        Stream sensor(StreamSensor);
        Stream wave;
        Stream continued(StreamSensor);
        for (Stream* stream : {&sensor, &wave, &continued}) {
            stream->adapter.setDuration(1);
            CONNECT_STREAM(*stream);
        }
        QElapsedTimer elapsed;
        elapsed.start();
        QSignalSpy sensorStopped(&sensor.adapter, &HydStreamAdapter::streamStopped);
        QSignalSpy waveStopped(&wave.adapter, &HydStreamAdapter::streamStopped);
        QSignalSpy continuedStopped(&continued.adapter, &HydStreamAdapter::streamStopped);
        continued.adapter.startStream();
        wave.adapter.startStream();
        sensor.adapter.startStream();
        continued.adapter.setDuration(60);
        QTRY_COMPARE(sensorStopped.size(), 1);
        QVERIFY(elapsed.elapsed() >= 950);
        QTRY_VERIFY(sensor.peer.received().endsWith(kStop));
        // Only sensor streams end so, and only while their duration is still under a minute.
        QVERIFY(spyStaysEmpty(waveStopped, 50));
        QCOMPARE(continuedStopped.size(), 0);
    }

    void destructorStopsAndCloses()
    {
        StreamPeer peer(kAddress);
        auto adapter =
            std::make_unique<HydStreamAdapter>(StreamWave, peer.port(), kAddress, kDevice, kLongPeriod, true);
        QPointer<QTcpSocket> socket = adapter->findChild<QTcpSocket*>();
        QSignalSpy started(adapter.get(), &HydStreamAdapter::streamStarted);
        adapter->startStream();
        QTRY_COMPARE(started.size(), 1);
        QTRY_COMPARE(peer.received(), kStart);
        int stopped = 0;
        int disconnected = 0;
        connect(adapter.get(), &HydStreamAdapter::streamStopped, this, [&] { ++stopped; });
        connect(adapter.get(), &HydStreamAdapter::streamDisconnected, this, [&] { ++disconnected; });
        adapter.reset();
        QCOMPARE(stopped, 1);
        QCOMPARE(disconnected, 0);
        QTRY_COMPARE(peer.received(), kStart + kStop);
        QTRY_VERIFY(!peer.isConnected());
        QTRY_VERIFY(socket.isNull());
    }

    void destructorWithoutSocketIsSilent()
    {
        int stopped = 0;
        {
            HydStreamAdapter adapter(StreamWave, 1, kAddress, kDevice, kLongPeriod, false);
            connect(&adapter, &HydStreamAdapter::streamStopped, this, [&] { ++stopped; });
        }
        QCOMPARE(stopped, 0);
    }

    // --- rainy day flows

    void stopWhenClosedSendsNothingButReports()
    {
        Stream stream;
        QSignalSpy stopped(&stream.adapter, &HydStreamAdapter::streamStopped);
        stream.adapter.stopStream();
        QCOMPARE(stopped.size(), 1);
        CONNECT_STREAM(stream);
        stream.adapter.disconnectStream();
        QTRY_VERIFY(!stream.peer.isConnected());
        QCOMPARE(stream.peer.received(), QByteArray());
    }

    void stopDevIdIgnoresOthersAndUnconnected()
    {
        Stream stream;
        QSignalSpy stopped(&stream.adapter, &HydStreamAdapter::streamStopped);
        stream.adapter.stopStreamDevId(kDevice);
        START_STREAM(stream);
        stream.adapter.stopStreamDevId(HydDeviceId(DevTypeRecorderA, 1));
        QCOMPARE(stopped.size(), 0);
        QVERIFY(stream.adapter.isStreaming());
    }

    void sensorStreamWithoutShortDurationIsNotStopped_data()
    {
        QTest::addColumn<int>("duration");
        QTest::newRow("continuous") << 0;
        QTest::newRow("a minute") << 60;
    }

    void sensorStreamWithoutShortDurationIsNotStopped()
    {
        QFETCH(int, duration);
        Stream sensor(StreamSensor);
        sensor.adapter.setDuration(static_cast<quint16>(duration));
        QSignalSpy stopped(&sensor.adapter, &HydStreamAdapter::streamStopped);
        sensor.adapter.setTimeToStopStream(1);
        QVERIFY(spyStaysEmpty(stopped, 30));
    }

    void stopInAnswerToALostLinkSendsNothing()
    {
        Stream stream;
        START_STREAM(stream);
        QSignalSpy stopped(&stream.adapter, &HydStreamAdapter::streamStopped);
        connect(&stream.adapter, &HydStreamAdapter::socketError, &stream.adapter,
                &HydStreamAdapter::stopStream, Qt::SingleShotConnection);
        stream.peer.socket()->disconnectFromHost();
        QTRY_COMPARE(stopped.size(), 1);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        // The reconnection was under way already, but it starts nothing.
        QVERIFY(spyStaysEmpty(started, 50));
        QCOMPARE(stream.peer.received(), QByteArray());
    }

    void pendingDelaysDieWithAdapter()
    {
        StreamPeer peer(kAddress);
        auto adapter =
            std::make_unique<HydStreamAdapter>(StreamWave, peer.port(), kAddress, kDevice, kLongPeriod, true);
        adapter->delayStartStream();
        adapter->delayConnectStream(1, true);
        adapter->setTimeToStopStream(1);
        adapter->startStreamDevId(kDevice, 1);
        adapter->setDuration(1);
        adapter->setDuration(0);
        adapter.reset();
        HydStreamAdapter later(StreamWave, peer.port(), kAddress, kDevice, kLongPeriod, true);
        QSignalSpy connected(&later, &HydStreamAdapter::streamConnected);
        later.delayConnectStream(700, false);
        QVERIFY(connected.wait(kPatienceMs));
        QTRY_COMPARE(peer.connections(), qsizetype{1});
    }
};

QTEST_GUILESS_MAIN(TestHydStreamAdapterStop)
#include "tst_HydStreamAdapterStop.moc"
