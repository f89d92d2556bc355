// The alive timer of HydStreamAdapter: when it runs, and what each of its rounds finds and does.
#include "NvxQtCommon/contract/stream/FftParams.h"
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"

using namespace streamframes;

namespace {

const QString kAddress = QStringLiteral("127.41.3.1");

struct Stream : StreamFixture
{
    explicit Stream(HydStreamType type = StreamWave, int alivePeriodMs = kLongPeriod)
        : StreamFixture(kAddress, type, alivePeriodMs)
    {
        adapter.setClock([this] { return now; });
    }

    int64_t now = 1000000;
};

/// A device whose spectra come every accum x 512 / rate seconds.
HydDevice spectrumDevice(unsigned accum, uint32_t rate)
{
    HydJobSettings settings;
    settings.setFftAccum(accum);
    settings.setFftRate(static_cast<SampRate>(rate));
    return {kDevice.serialNo(), kDevice.devType(), {}, settings.map()};
}

} // namespace

/// Lets the adapter read one good message.
#define FEED_STREAM(stream)                                                                                  \
    do {                                                                                                     \
        QSignalSpy arrived(&(stream).adapter, &HydStreamAdapter::streamStatusData);                          \
        (stream).peer.send(frame(status(1)));                                                                \
        QTRY_COMPARE(arrived.size(), 1);                                                                     \
    } while (false)

/// Clears the mark that good bytes came: a short read that begins no message.
#define SPOIL_STREAM(stream)                                                                                 \
    do {                                                                                                     \
        const uint64_t before = (stream).adapter.droppedReads();                                             \
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("Dropped a short stream read"))); \
        (stream).peer.send("abc");                                                                           \
        QTRY_COMPARE((stream).adapter.droppedReads(), before + 1);                                           \
    } while (false)

/// The peer has got nothing so far: what is sent now comes first.
#define NOTHING_SENT(stream)                                                                                 \
    do {                                                                                                     \
        (stream).adapter.stopStream();                                                                       \
        QTRY_COMPARE((stream).peer.received(), kStop);                                                       \
    } while (false)

class TestHydStreamAdapterAlive : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_fftParams = FFT_Params_WAV;
    }
    void cleanup() { FFT_Params_WAV = m_fftParams; }

    // --- happy flows

    void continuousStreamStartsTimer()
    {
        Stream stream(StreamWave, 12345);
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        QVERIFY(!stream.timer->isActive());
        QTRY_VERIFY(stream.timer->isActive());
        QCOMPARE(stream.timer->interval(), 12345);
    }

    void secondStartLeavesTimerRunning()
    {
        Stream stream;
        START_STREAM(stream);
        QTRY_VERIFY(stream.timer->isActive());
        const int id = stream.timer->timerId();
        stream.adapter.startStream();
        QTRY_COMPARE(stream.peer.received(), kStart);
        QCOMPARE(stream.timer->timerId(), id);
    }

    void limitedStreamHasNoTimer()
    {
        Stream stream;
        stream.adapter.setDuration(120);
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        QSignalSpy timeouts(stream.timer, &QTimer::timeout);
        QVERIFY(spyStaysEmpty(timeouts, 30));
        QVERIFY(!stream.timer->isActive());
    }

    void limitedStreamNeverReconnectsByTimer()
    {
        Stream stream(StreamWave, 20);
        stream.adapter.setDuration(120);
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        QTRY_COMPARE(stream.peer.received().size(), 8);
        stream.socket->abort();
        QSignalSpy connected(&stream.adapter, &HydStreamAdapter::streamConnected);
        QVERIFY(spyStaysEmpty(connected, 150));
    }

    void removedConnectionsLeaveNoTimer()
    {
        Stream stream;
        stream.adapter.disConnectStreamConnections();
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        QSignalSpy timeouts(stream.timer, &QTimer::timeout);
        QVERIFY(spyStaysEmpty(timeouts, 30));
        QVERIFY(!stream.timer->isActive());
        QVERIFY(!drivesAdapter(stream));
    }

    void limitingStopsTimer()
    {
        Stream stream;
        START_STREAM(stream);
        QTRY_VERIFY(stream.timer->isActive());
        stream.adapter.setDuration(120);
        QVERIFY(stream.timer->isActive());
        QTRY_VERIFY(!stream.timer->isActive());
        QVERIFY(!drivesAdapter(stream));
    }

    void becomingContinuousStartsTimerLater()
    {
        Stream stream;
        stream.adapter.setDuration(120);
        QSignalSpy continuous(&stream.adapter, &HydStreamAdapter::streamIsContinuous);
        QElapsedTimer elapsed;
        elapsed.start();
        stream.adapter.setDuration(0);
        QCOMPARE(continuous.size(), 1);
        QVERIFY(!stream.timer->isActive());
        QTRY_VERIFY(stream.timer->isActive());
        QVERIFY(elapsed.elapsed() >= 480);
    }

    void becomingContinuousStartsStreamByItself()
    {
        Stream stream(StreamWave, 30);
        stream.adapter.setDuration(120);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.setDuration(0);
        QTRY_VERIFY(!started.isEmpty());
        QCOMPARE(started[0][0].toBool(), true);
        QTRY_VERIFY(stream.peer.received().startsWith(kStart));
    }

    void sameDurationChangesNothing()
    {
        Stream stream;
        QSignalSpy continuous(&stream.adapter, &HydStreamAdapter::streamIsContinuous);
        stream.adapter.setDuration(0);
        QCOMPARE(continuous.size(), 0);
        QSignalSpy timeouts(stream.timer, &QTimer::timeout);
        QVERIFY(spyStaysEmpty(timeouts, 10));
        QVERIFY(!stream.timer->isActive());
    }

    void lostLinkIsRestoredByTimer()
    {
        Stream stream(StreamWave, 40);
        START_STREAM(stream);
        QTRY_VERIFY(stream.timer->isActive());
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        // Aborting raises no socket error, so only the timer can notice.
        stream.socket->abort();
        QTRY_COMPARE(started.size(), 1);
        QCOMPARE(started[0][0].toBool(), true);
        QTRY_COMPARE(stream.peer.received(), kStart);
        QCOMPARE(stream.peer.connections(), qsizetype{2});
    }

    void restartFlagStaysUntilNextStart()
    {
        Stream stream;
        START_STREAM(stream);
        FEED_STREAM(stream);
        stream.adapter.streamAliveTimeOut();
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStream();
        stream.adapter.startStream();
        QCOMPARE(started.size(), 2);
        QCOMPARE(started[0][0].toBool(), true);
        QCOMPARE(started[1][0].toBool(), false);
    }

    void neverStartedContinuousStreamStartsAfterAShortWait()
    {
        Stream stream;
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(stream.socket->state(), QAbstractSocket::UnconnectedState);
        QTRY_COMPARE(started.size(), 1);
        QCOMPARE(started[0][0].toBool(), true);
        QTRY_COMPARE(stream.peer.received(), kStart);
    }

    void connectedButNotStartedContinuousStreamStarts()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 0);
        QTRY_COMPARE(started.size(), 1);
        QTRY_COMPARE(stream.peer.received(), kStart);
    }

    void streamWithoutAnyDataYetIsLeftAlone()
    {
        Stream stream;
        START_STREAM(stream);
        stream.now += 1000;
        stream.adapter.streamAliveTimeOut();
        NOTHING_SENT(stream);
    }

    void livingStreamIsLeftAlone()
    {
        Stream stream;
        START_STREAM(stream);
        FEED_STREAM(stream);
        stream.adapter.streamAliveTimeOut();
        NOTHING_SENT(stream);
    }

    void staleness_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("accum");
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("lastGood");
        const auto row = [](const char* name, int type, int accum, int rate, int lastGood) {
            QTest::newRow(name) << type << accum << rate << lastGood;
        };
        row("wave", 1, 0, 0, 2);
        row("wave, long update interval", 1, 10, 1000, 2);
        row("sensor", 3, 10, 1000, 2);
        // 10 x 512 / 1000 = 5.12 s, twice that is 10.24 s.
        row("spectrum, long update interval", 2, 10, 1000, 10);
        row("scan spectrum, long update interval", 17, 10, 1000, 10);
        row("spectrum file", 33, 10, 1000, 2);
        row("spectrum, short update interval", 2, 1, 512000, 2);
        row("spectrum, interval just above", 2, 3, 1000, 3);
        row("spectrum without settings", 2, 0, 0, 2);
        row("spectrum, endless interval", 2, 2147483647, 1, 1000000000);
    }

    void staleness()
    {
        QFETCH(int, type);
        QFETCH(int, accum);
        QFETCH(int, rate);
        QFETCH(int, lastGood);
        Stream stream(static_cast<HydStreamType>(type));
        stream.adapter.updateDeviceInfo(
            spectrumDevice(static_cast<unsigned>(accum), static_cast<uint32_t>(rate)));
        START_STREAM(stream);
        FEED_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.now += lastGood;
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 0);
        stream.now += 1;
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 1);
        QCOMPARE(started[0][0].toBool(), true);
        QTRY_COMPARE(stream.peer.received(), kStart);
    }

    void stalenessReadsOverlapOfWaveSpectra()
    {
        FFT_Params_WAV.setOverlapLength(1024);
        Stream stream(StreamSpectrum);
        stream.adapter.updateDeviceInfo(spectrumDevice(10, 1000));
        START_STREAM(stream);
        FEED_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.now += 20;
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 0);
        stream.now += 1;
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 1);
    }

    // --- rainy day flows

    void startRightBehindAStopLosesTheTimer()
    {
        Stream stream;
        START_STREAM(stream);
        QTRY_VERIFY(stream.timer->isActive());
        stream.adapter.stopStream();
        stream.adapter.startStream();
        QVERIFY(stream.timer->isActive());
        QTRY_VERIFY(!stream.timer->isActive());
        QVERIFY(stream.adapter.isStreaming());
    }

    void stopRightBehindAFirstStartLeavesTheTimer()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        stream.adapter.stopStream();
        QVERIFY(!stream.timer->isActive());
        QTRY_VERIFY(stream.timer->isActive());
        QVERIFY(!stream.adapter.isStreaming());
    }

    void staleStreamIsStartedAgainUntilDataCome()
    {
        Stream stream;
        START_STREAM(stream);
        FEED_STREAM(stream);
        stream.now += 3;
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 1);
        // Still dead, whatever the clock says.
        stream.now -= 3;
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 2);
        FEED_STREAM(stream);
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 2);
    }

    void clockThatWentBackIsNotStale()
    {
        Stream stream;
        START_STREAM(stream);
        FEED_STREAM(stream);
        stream.now -= 100000;
        stream.adapter.streamAliveTimeOut();
        NOTHING_SENT(stream);
    }

    void junkStartsAgain()
    {
        Stream stream;
        START_STREAM(stream);
        FEED_STREAM(stream);
        SPOIL_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 1);
        QTRY_COMPARE(stream.peer.received(), kStart);
        QCOMPARE(stream.peer.connections(), qsizetype{1});
    }

    void junkOnAStoppedLimitedStreamStartsNothing()
    {
        Stream stream;
        stream.adapter.setDuration(120);
        CONNECT_STREAM(stream);
        SPOIL_STREAM(stream);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.streamAliveTimeOut();
        QVERIFY(spyStaysEmpty(started, 30));
        NOTHING_SENT(stream);
    }

    void silenceOfAStoppedLimitedStreamIsForgotten()
    {
        Stream stream;
        stream.adapter.setDuration(120);
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        FEED_STREAM(stream);
        stream.adapter.stopStream();
        // It is silent since it was stopped: that says nothing about the next stream.
        stream.now += 3;
        stream.adapter.streamAliveTimeOut();
        stream.now -= 3;
        stream.adapter.startStream();
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.streamAliveTimeOut();
        QVERIFY(spyStaysEmpty(started, 30));
    }

    void limitedStreamThatIsStillAliveIsLeftAlone()
    {
        Stream stream;
        stream.adapter.setDuration(120);
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        QTRY_COMPARE(stream.peer.received().size(), 8);
        FEED_STREAM(stream);
        stream.socket->abort();
        QSignalSpy connected(&stream.adapter, &HydStreamAdapter::streamConnected);
        stream.adapter.streamAliveTimeOut();
        QVERIFY(spyStaysEmpty(connected, 30));
    }

    void limitedStreamWithoutLinkReconnects_data()
    {
        QTest::addColumn<bool>("isConnecting");
        QTest::newRow("unconnected") << false;
        QTest::newRow("connecting") << true;
    }

    void limitedStreamWithoutLinkReconnects()
    {
        QFETCH(bool, isConnecting);
        Stream stream;
        stream.adapter.setDuration(120);
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        QTRY_COMPARE(stream.peer.received().size(), 8);
        SPOIL_STREAM(stream);
        stream.socket->abort();
        if (isConnecting)
            stream.adapter.connectStream();
        QTest::ignoreMessage(QtDebugMsg,
                             QRegularExpression(QStringLiteral("Attempt to start stream.*%1.*true")
                                                    .arg(isConnecting ? QStringLiteral("ConnectingState")
                                                                      : QStringLiteral("UnconnectedState"))));
        stream.adapter.streamAliveTimeOut();
        QTRY_COMPARE(stream.peer.received().size(), 16);
        QVERIFY(stream.adapter.isStreaming());
    }

    void staleLimitedStreamStartsAgain()
    {
        Stream stream;
        stream.adapter.setDuration(120);
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        FEED_STREAM(stream);
        stream.now += 3;
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(started.size(), 1);
    }

    void deadStreamOnAClosingSocketIsReportedLost()
    {
        Stream stream;
        stream.adapter.setDuration(120);
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        SPOIL_STREAM(stream);
        // A socket that had an error before and is neither connecting nor unconnected.
        stream.peer.stopListening();
        QSignalSpy lost(&stream.adapter, &HydStreamAdapter::streamConnectionLost);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        bool asked = false;
        connect(stream.socket, &QTcpSocket::stateChanged, this, [&](QAbstractSocket::SocketState state) {
            if (state != QAbstractSocket::HostLookupState || asked)
                return;
            asked = true;
            QVERIFY(stream.socket->peerAddress().isNull());
            stream.adapter.streamAliveTimeOut();
        });
        stream.socket->abort();
        stream.peer.listen();
        stream.adapter.connectStream();
        QVERIFY(asked);
        QCOMPARE(lost.size(), 1);
        QVERIFY(lost[0][1].value<HydDeviceId>() == kDevice);
        QCOMPARE(lost[0][0].value<QAbstractSocket::SocketError>(), stream.socket->error());
        QCOMPARE(started.size(), 0);
    }

    void deadStreamOnASocketWithErrorIsReportedLost()
    {
        Stream stream;
        START_STREAM(stream);
        FEED_STREAM(stream);
        SPOIL_STREAM(stream);
        QSignalSpy lost(&stream.adapter, &HydStreamAdapter::streamConnectionLost);
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        // The error of this call stays with the socket, the link stands.
        QVERIFY(!stream.socket->waitForReadyRead(1));
        QCOMPARE(stream.socket->error(), QAbstractSocket::SocketTimeoutError);
        stream.adapter.streamAliveTimeOut();
        QCOMPARE(lost.size(), 1);
        QCOMPARE(lost[0][0].value<QAbstractSocket::SocketError>(), QAbstractSocket::SocketTimeoutError);
        QVERIFY(lost[0][1].value<HydDeviceId>() == kDevice);
        QCOMPARE(started.size(), 0);
        NOTHING_SENT(stream);
    }

    void periodOfNothingIsTakenAsTheShortest_data()
    {
        QTest::addColumn<int>("period");
        QTest::newRow("zero") << 0;
        QTest::newRow("negative") << -5;
    }

    void periodOfNothingIsTakenAsTheShortest()
    {
        QFETCH(int, period);
        Stream stream(StreamWave, period);
        CONNECT_STREAM(stream);
        stream.adapter.startStream();
        QTRY_VERIFY(stream.timer->isActive());
        QCOMPARE(stream.timer->interval(), 1);
    }

    void limitingRightAfterBecomingContinuousLeavesATimerThatDrivesNothing()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        stream.adapter.setDuration(120);
        stream.adapter.setDuration(0);
        stream.adapter.setDuration(120);
        QTRY_VERIFY(stream.timer->isActive());
        QVERIFY(!drivesAdapter(stream));
    }

    void limitedBeforeItsSocketExistsHasNoTimer()
    {
        StreamPeer peer(kAddress);
        HydStreamAdapter adapter(StreamWave, peer.port(), kAddress, kDevice, kLongPeriod, false);
        adapter.setDuration(120);
        adapter.prepare(true);
        auto* timer = adapter.findChild<QTimer*>();
        QSignalSpy timeouts(timer, &QTimer::timeout);
        timer->start(1);
        QVERIFY(timeouts.wait(kPatienceMs));
        timer->stop();
        QSignalSpy started(&adapter, &HydStreamAdapter::streamStarted);
        adapter.startStream();
        QTRY_COMPARE(started.size(), 1);
        QCOMPARE(started[0][0].toBool(), false);
    }

private:
    /// True when a round of the alive timer leaves its mark on the next start.
    static bool drivesAdapter(Stream& stream)
    {
        QSignalSpy timeouts(stream.timer, &QTimer::timeout);
        stream.timer->start(1);
        const bool hasTicked = timeouts.wait(kPatienceMs);
        stream.timer->stop();
        QSignalSpy started(&stream.adapter, &HydStreamAdapter::streamStarted);
        stream.adapter.startStream();
        return !hasTicked || started.size() != 1 || started[0][0].toBool();
    }

    FftParams m_fftParams;
};

QTEST_GUILESS_MAIN(TestHydStreamAdapterAlive)
#include "tst_HydStreamAdapterAlive.moc"
