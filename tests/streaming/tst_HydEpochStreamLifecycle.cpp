// How HydEpochStreamAdapter connects, starts and stops, and what its base does with it.
#include "tests/streaming/EpochFixture.h"
#include "tests/streaming/HangingPort.h"
#include "tests/support/Buried.h"

#include <QGuiApplication>
#include <QThread>

#include <atomic>
#include <functional>

namespace {

const QString kAddress = QStringLiteral("127.41.22.1");
const QString kStarted = QStringLiteral("3 Started 100");

struct Epoch : EpochFixture
{
    explicit Epoch(HydStreamType type = StreamEpoch, int alivePeriodMs = kLongPeriod)
        : EpochFixture(kAddress, kDevice, type, alivePeriodMs)
    {
    }
    HydStreamAdapter& base() { return adapter; }
    /// True when the adapter reads a line that is sent now.
    bool reads()
    {
        const auto before = said.size();
        peer.send(kStartedLine);
        return QTest::qWaitFor([&] { return said.size() == before + 1; }, 10000);
    }
};

using Start = std::function<void(HydEpochStreamAdapter&)>;

/// Stops the reading of a connected stream, and lets lines arrive before the recorder hangs up.
#define LEAVE_LINES(epoch, lines)                                                                            \
    do {                                                                                                     \
        CONNECT_STREAM(epoch);                                                                               \
        (epoch).adapter.startStream();                                                                       \
        (epoch).adapter.stopStream();                                                                        \
        (epoch).peer.send(lines);                                                                            \
        QTRY_COMPARE((epoch).socket->bytesAvailable(), qint64((lines).size()));                              \
        (epoch).peer.socket()->disconnectFromHost();                                                         \
        QTRY_COMPARE((epoch).socket->state(), QAbstractSocket::UnconnectedState);                            \
        QCOMPARE((epoch).socket->bytesAvailable(), qint64((lines).size()));                                  \
    } while (false)

} // namespace

Q_DECLARE_METATYPE(Start)

/// Takes what comes by its name, as applications with older connections do.
class TriggerReceiver : public QObject
{
    Q_OBJECT

public:
    std::atomic<int> m_seq{0};

public Q_SLOTS:
    void take(SActiveTrigger trigger) { m_seq = static_cast<int>(trigger.seq); }
};

class TestHydEpochStreamLifecycle : public NvxTestCase
{
    Q_OBJECT

private:
    static bool startsByTheLastCheck()
    {
        StreamPeer peer(kAddress);
        HangingPort hanging(kAddress);
        HydEpochStreamAdapter adapter(StreamEpoch, hanging.port(), kAddress, kDevice, kLongPeriod, true);
        auto* socket = adapter.findChild<QTcpSocket*>();
        QSignalSpy errors(&adapter, &HydStreamAdapter::streamErrorMsg);
        QSignalSpy started(&adapter, &HydStreamAdapter::streamStarted);
        QSignalSpy occurrences(&adapter, &HydEpochStreamAdapter::signalTrigActive);
        adapter.delayConnectStream(0, true);
        // In between the two checks, 100 and 400 ms after the call.
        QTimer::singleShot(200, &adapter, [&] {
            socket->abort();
            socket->connectToHost(QHostAddress(kAddress), peer.port());
        });
        const auto isOver = [&] { return !errors.isEmpty() || peer.connections() == 1; };
        if (!QTest::qWaitFor(isOver, 10000) || !errors.isEmpty())
            return false;
        peer.send(kStartedLine);
        const auto hasCome = [&] { return !errors.isEmpty() || !occurrences.isEmpty(); };
        return QTest::qWaitFor(hasCome, 10000) && errors.isEmpty() && started.isEmpty() &&
               peer.received().isEmpty();
    }

private Q_SLOTS:
    // --- happy flows

    void startConnectsAndSendsNothing()
    {
        Epoch epoch;
        QSignalSpy connected(&epoch.adapter, &HydStreamAdapter::streamConnected);
        QSignalSpy started(&epoch.adapter, &HydStreamAdapter::streamStarted);
        epoch.adapter.startStream();
        QTRY_COMPARE(connected.count(), 1);
        QTRY_COMPARE(epoch.peer.connections(), qsizetype{1});
        QVERIFY(epoch.reads());
        QCOMPARE(started.count(), 0);
        QVERIFY(!epoch.adapter.isStreaming());
        QVERIFY(epoch.peer.received().isEmpty());
        QCOMPARE(epoch.adapter.streamType(), StreamEpoch);
    }

    void addressCanComeLater()
    {
        StreamPeer peer(kAddress);
        HydEpochStreamAdapter adapter(StreamEpoch, peer.port(), kDevice, kLongPeriod, true);
        QSignalSpy occurrences(&adapter, &HydEpochStreamAdapter::signalTrigActive);
        adapter.setHostAddress(QHostAddress(kAddress));
        adapter.startStream();
        QTRY_COMPARE(peer.connections(), qsizetype{1});
        peer.send(kStartedLine);
        QTRY_COMPARE(occurrences.count(), 1);
    }

    void connectionAloneReadsNothing()
    {
        Epoch epoch;
        CONNECT_STREAM(epoch);
        epoch.peer.send(kStartedLine);
        QTRY_COMPARE(epoch.socket->bytesAvailable(), qint64(kStartedLine.size()));
        QVERIFY(epoch.said.isEmpty());
    }

    void startedTwiceReadsOnce()
    {
        Epoch epoch;
        epoch.adapter.startStream();
        // Connecting by now: it isn't begun anew.
        QVERIFY(epoch.socket->state() != QAbstractSocket::UnconnectedState);
        epoch.adapter.startStream();
        QTRY_COMPARE(epoch.peer.connections(), qsizetype{1});
        epoch.adapter.startStream();
        QVERIFY(epoch.reads());
        epoch.peer.send(kEndedLine);
        QTRY_COMPARE(epoch.said.size(), 2);
        QCOMPARE(epoch.peer.connections(), qsizetype{1});
        // One stop ends what several starts began.
        epoch.adapter.stopStream();
        epoch.peer.send(kStartedLine);
        QTRY_COMPARE(epoch.socket->bytesAvailable(), qint64(kStartedLine.size()));
        QCOMPARE(epoch.said.size(), 2);
    }

    void stopOnlyEndsTheReading()
    {
        Epoch epoch;
        QSignalSpy stopped(&epoch.adapter, &HydStreamAdapter::streamStopped);
        CONNECT_STREAM(epoch);
        epoch.adapter.startStream();
        QVERIFY(epoch.reads());
        epoch.adapter.stopStream();
        epoch.peer.send(kStartedLine);
        QTRY_COMPARE(epoch.socket->bytesAvailable(), qint64(kStartedLine.size()));
        QCOMPARE(epoch.said.size(), 1);
        // What waited comes with the next start, which sends nothing.
        epoch.adapter.startStream();
        QTRY_COMPARE(epoch.said.size(), 2);
        QVERIFY(epoch.reads());
        QCOMPARE(epoch.peer.connections(), qsizetype{1});
        QCOMPARE(stopped.count(), 0);
        QVERIFY(epoch.peer.received().isEmpty());
        // Again, and without a start before.
        epoch.adapter.stopStream();
        epoch.adapter.stopStream();
        QCOMPARE(epoch.socket->state(), QAbstractSocket::ConnectedState);
    }

    void startOfThisDevice()
    {
        Epoch epoch;
        CONNECT_STREAM(epoch);
        // At once where it is connected, whatever the delay.
        epoch.adapter.startStreamDevId(kDevice, 60000);
        QVERIFY(epoch.reads());
        QVERIFY(epoch.peer.received().isEmpty());
    }

    void startOfThisDeviceWhileConnecting()
    {
        Epoch epoch;
        epoch.adapter.connectStream();
        QCOMPARE(epoch.socket->state(), QAbstractSocket::ConnectingState);
        epoch.adapter.startStreamDevId(kDevice, 60000);
        QTRY_COMPARE(epoch.peer.connections(), qsizetype{1});
        QVERIFY(epoch.reads());
        QCOMPARE(epoch.peer.connections(), qsizetype{1});
    }

    void delayedStartOfThisDevice()
    {
        Epoch epoch;
        QElapsedTimer elapsed;
        elapsed.start();
        QSignalSpy connected(&epoch.adapter, &HydStreamAdapter::streamConnected);
        epoch.adapter.startStreamDevId(kDevice, 60);
        QVERIFY(connected.wait());
        QVERIFY(elapsed.elapsed() >= 50);
        // By the first check after the connection.
        QTRY_COMPARE(epoch.peer.connections(), qsizetype{1});
        QVERIFY(epoch.reads());
        QVERIFY(epoch.peer.received().isEmpty());
    }

    void delayedStartOnConnectedSocket()
    {
        Epoch epoch;
        QSignalSpy started(&epoch.adapter, &HydStreamAdapter::streamStarted);
        CONNECT_STREAM(epoch);
        epoch.adapter.delayConnectStream(0, true);
        QVERIFY(epoch.reads());
        QCOMPARE(started.count(), 0);
        QVERIFY(epoch.peer.received().isEmpty());
    }

    void startByTheLastCheck()
    {
        // A machine that stalls around one of the checks lets a try fail.
        constexpr int kTries = 8;
        bool started = false;
        for (int i = 0; i < kTries && !started; ++i)
            started = startsByTheLastCheck();
        QVERIFY(started);
    }

    void sensorStartTakesTheDuration()
    {
        Epoch epoch;
        QSignalSpy continuous(&epoch.adapter, &HydStreamAdapter::streamIsContinuous);
        CONNECT_STREAM(epoch);
        epoch.adapter.startSensorsStreamDevId(HydDeviceId(DevTypeRecorderA, 4321), 0, 30);
        QCOMPARE(int(epoch.adapter.duration()), 30);
        epoch.adapter.startSensorsStreamDevId(kDevice, 60000, 0);
        QCOMPARE(continuous.count(), 1);
        QVERIFY(epoch.reads());
        // The same again changes nothing.
        epoch.adapter.startSensorsStreamDevId(kDevice, 60000, 0);
        QCOMPARE(continuous.count(), 1);
    }

    void continuousAgainRestartsByTheAliveTimer()
    {
        Epoch epoch(StreamEpoch, 20);
        epoch.adapter.setDuration(5);
        epoch.adapter.setDuration(0);
        QTRY_COMPARE(epoch.peer.connections(), qsizetype{1});
        QVERIFY(epoch.reads());
        // A lost connection comes back.
        epoch.peer.socket()->disconnectFromHost();
        QTRY_VERIFY(epoch.peer.connections() > 1);
        QTRY_VERIFY(epoch.peer.isConnected());
        QVERIFY(epoch.reads());
        QVERIFY(epoch.peer.received().isEmpty());
    }

    void occurrenceCrossesAThreadByName()
    {
        StreamPeer peer(kAddress);
        auto* adapter =
            new HydEpochStreamAdapter(StreamEpoch, peer.port(), kAddress, kDevice, kLongPeriod, true);
        TriggerReceiver receiver;
        QVERIFY(connect(adapter, SIGNAL(signalTrigActive(SActiveTrigger)), &receiver,
                        SLOT(take(SActiveTrigger)), Qt::QueuedConnection));
        QThread thread;
        adapter->moveToThread(&thread);
        connect(&thread, &QThread::finished, adapter, &QObject::deleteLater);
        thread.start();
        QVERIFY(QMetaObject::invokeMethod(adapter, "startStream", Qt::QueuedConnection));
        QTRY_COMPARE(peer.connections(), qsizetype{1});
        peer.send(kStartedLine);
        QTRY_COMPARE(receiver.m_seq.load(), 100);
        thread.quit();
        QVERIFY(thread.wait());
    }

    // --- rainy day flows

    void alarmWithoutWindows()
    {
        // Qt's own beep would take down this program, which has no windows.
        QVERIFY(qobject_cast<QGuiApplication*>(QCoreApplication::instance()) == nullptr);
        Epoch epoch;
        epoch.adapter.setTrigAlarm(true);
        epoch.adapter.startStream();
        QTRY_COMPARE(epoch.peer.connections(), qsizetype{1});
        QVERIFY(epoch.reads());
        QCoreApplication::sendPostedEvents();
        QVERIFY(epoch.reads());
    }

    void aliveTimerDoesNothing()
    {
        Epoch epoch;
        QSignalSpy timeouts(epoch.timer, &QTimer::timeout);
        epoch.timer->start(1);
        QTRY_VERIFY(timeouts.count() > 20);
        QCOMPARE(epoch.socket->state(), QAbstractSocket::UnconnectedState);
    }

    void stopIsUndoneByTheAliveTimer()
    {
        Epoch epoch(StreamEpoch, 20);
        epoch.adapter.setDuration(1);
        epoch.adapter.setDuration(0);
        QTRY_COMPARE_WITH_TIMEOUT(epoch.peer.connections(), qsizetype{1}, 10000);
        QVERIFY(epoch.reads());
        // The next period starts it again, since the timer goes by the base's streaming flag: intended.
        epoch.adapter.stopStream();
        QVERIFY(epoch.reads());
        // Without the timer a stop lasts.
        epoch.adapter.setDuration(1);
        QTRY_VERIFY_WITH_TIMEOUT(!epoch.timer->isActive(), 10000);
        // The last period's start is due within 10 ms; a stop ahead of it would be undone as well.
        QSignalSpy more(&epoch.adapter, &HydEpochStreamAdapter::signalTrigActive);
        QVERIFY(spyStaysEmpty(more, 100));
        epoch.adapter.stopStream();
        epoch.peer.send(kStartedLine);
        QTRY_COMPARE(epoch.socket->bytesAvailable(), qint64(kStartedLine.size()));
        QVERIFY(spyStaysEmpty(more, 100));
    }

    void stopRightBehindAStartReadsNothing()
    {
        Epoch epoch;
        CONNECT_STREAM(epoch);
        epoch.peer.send(kStartedLine);
        QTRY_COMPARE(epoch.socket->bytesAvailable(), qint64(kStartedLine.size()));
        epoch.adapter.startStream();
        epoch.adapter.stopStream();
        QCoreApplication::sendPostedEvents();
        QVERIFY(epoch.said.isEmpty());
        QCOMPARE(epoch.socket->bytesAvailable(), qint64(kStartedLine.size()));
    }

    void lostConnectionIsToldAndStaysLost()
    {
        Epoch epoch;
        QSignalSpy disconnected(&epoch.adapter, &HydStreamAdapter::streamDisconnected);
        QSignalSpy errors(&epoch.adapter, &HydStreamAdapter::socketError);
        CONNECT_STREAM(epoch);
        epoch.adapter.startStream();
        epoch.peer.socket()->disconnectFromHost();
        QTRY_COMPARE(disconnected.count(), 1);
        QCOMPARE(errors.count(), 1);
        // A new start reads again, though the reading was never stopped.
        epoch.adapter.startStream();
        QTRY_COMPARE(epoch.peer.connections(), qsizetype{2});
        QVERIFY(epoch.reads());
    }

    void linesOfALostConnectionAreRead_data()
    {
        QTest::addColumn<Start>("start");
        const auto row = [](const char* name, Start start) { QTest::newRow(name) << start; };
        row("start", [](HydEpochStreamAdapter& adapter) { adapter.startStream(); });
        row("start of this device",
            [](HydEpochStreamAdapter& adapter) { adapter.startStreamDevId(kDevice, 0); });
        row("delayed start", [](HydEpochStreamAdapter& adapter) { adapter.delayConnectStream(0, true); });
    }
    void linesOfALostConnectionAreRead()
    {
        QFETCH(Start, start);
        Epoch epoch;
        LEAVE_LINES(epoch, kStartedLine + kStartedLine);
        // A slot may start it as well: it is one connection all the same.
        connect(&epoch.adapter, &HydEpochStreamAdapter::signalTrigActive, &epoch.adapter,
                &HydEpochStreamAdapter::startStream, Qt::SingleShotConnection);
        start(epoch.adapter);
        QTRY_COMPARE_WITH_TIMEOUT(epoch.said, (QStringList{kStarted, kStarted}), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(epoch.peer.connections() > 1 && epoch.peer.isConnected(), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(epoch.reads(), 10000);
    }

    void deletedOverLinesOfALostConnection_data() { linesOfALostConnectionAreRead_data(); }
    void deletedOverLinesOfALostConnection()
    {
        using BuriedAdapter = Buried<HydEpochStreamAdapter>;
        QFETCH(Start, start);
        StreamPeer peer(kAddress);
        struct
        {
            StreamPeer& peer;
            BuriedAdapter& adapter;
            QTcpSocket* socket;
        } epoch{peer, *new BuriedAdapter(StreamEpoch, peer.port(), kAddress, kDevice, kLongPeriod, true),
                nullptr};
        epoch.socket = epoch.adapter.findChild<QTcpSocket*>();
        LEAVE_LINES(epoch, kStartedLine + kStartedLine);
        auto* adapter = &epoch.adapter;
        connect(adapter, &HydEpochStreamAdapter::signalTrigActive, adapter, [adapter] { delete adapter; });
        start(*adapter);
        QTRY_VERIFY_WITH_TIMEOUT(BuriedAdapter::isGone(), 10000);
        QVERIFY(BuriedAdapter::isUntouched());
        QCOMPARE(peer.connections(), qsizetype{1});
    }

    void startInsideASlotLosesNoLines_data()
    {
        QTest::addColumn<bool>("stops");
        QTest::newRow("start") << false;
        QTest::newRow("start and stop") << true;
    }
    void startInsideASlotLosesNoLines()
    {
        QFETCH(bool, stops);
        Epoch epoch;
        CONNECT_STREAM(epoch);
        epoch.peer.send(kStartedLine);
        QTRY_COMPARE(epoch.socket->bytesAvailable(), qint64(kStartedLine.size()));
        bool isLost = false;
        connect(
            &epoch.adapter, &HydEpochStreamAdapter::signalTrigActive, this,
            [&] {
                epoch.peer.send(kEndedLine);
                epoch.peer.socket()->disconnectFromHost();
                const auto gone = [&] { return epoch.socket->state() == QAbstractSocket::UnconnectedState; };
                isLost = QTest::qWaitFor(gone, 10000) && epoch.socket->bytesAvailable() > 0;
                epoch.adapter.startStream();
                if (stops)
                    epoch.adapter.stopStream();
            },
            Qt::SingleShotConnection);
        epoch.adapter.startStream();
        QTRY_VERIFY_WITH_TIMEOUT(isLost, 10000);
        if (stops) {
            QSignalSpy more(&epoch.adapter, &HydEpochStreamAdapter::signalTrigActive);
            QVERIFY(spyStaysEmpty(more, 100));
            QCOMPARE(epoch.socket->bytesAvailable(), qint64(kEndedLine.size()));
            epoch.adapter.startStream();
        }
        QTRY_COMPARE_WITH_TIMEOUT(epoch.said.size(), 2, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(epoch.peer.connections(), qsizetype{2}, 10000);
        QVERIFY(epoch.reads());
    }

    void startWhileClosingWaits()
    {
        Epoch epoch;
        CONNECT_STREAM(epoch);
        // More than the system takes from a peer that doesn't read.
        epoch.peer.socket()->setReadBufferSize(1);
        epoch.socket->write(QByteArray(32 * 1024 * 1024, 'x'));
        epoch.socket->disconnectFromHost();
        QCOMPARE(epoch.socket->state(), QAbstractSocket::ClosingState);
        epoch.adapter.startStream();
        QCOMPARE(epoch.socket->state(), QAbstractSocket::ClosingState);
        QVERIFY(epoch.socket->bytesToWrite() > 0);
        epoch.socket->abort();
    }

    void otherDeviceIsNotStarted()
    {
        Epoch epoch;
        QSignalSpy errors(&epoch.adapter, &HydStreamAdapter::streamErrorMsg);
        QSignalSpy connected(&epoch.adapter, &HydStreamAdapter::streamConnected);
        epoch.adapter.startStreamDevId(HydDeviceId(DevTypeRecorderA, 4321), 0);
        QVERIFY(spyStaysEmpty(connected, 150));
        QCOMPARE(errors.count(), 0);
    }

    void startedAsABinaryStreamIsNotStartedById()
    {
        Epoch epoch;
        CONNECT_STREAM(epoch);
        epoch.base().startStream();
        QTRY_COMPARE(epoch.peer.received(), kStart);
        epoch.adapter.startStreamDevId(kDevice, 0);
        epoch.peer.send(kStartedLine);
        QTRY_COMPARE(epoch.socket->bytesAvailable(), qint64(kStartedLine.size()));
        QVERIFY(epoch.said.isEmpty());
    }

    void fullBufferIsReadAfterAStart()
    {
        Epoch epoch;
        CONNECT_STREAM(epoch);
        const QByteArray many = kStartedLine.repeated(64 * 1024);
        QVERIFY(many.size() > qsizetype(HydStreamAdapter::kBufferSize));
        epoch.peer.send(many);
        QTRY_COMPARE_WITH_TIMEOUT(epoch.socket->bytesAvailable(), qint64(HydStreamAdapter::kBufferSize),
                                  20000);
        QVERIFY(epoch.said.isEmpty());
        epoch.adapter.startStream();
        // A line at the edge of a read may be lost.
        QTRY_VERIFY_WITH_TIMEOUT(epoch.socket->bytesAvailable() == 0 && epoch.said.size() > 60000, 20000);
        QVERIFY(epoch.reads());
    }

    void failedDelayedStartIsReported()
    {
        Epoch epoch;
        epoch.peer.stopListening();
        QSignalSpy errors(&epoch.adapter, &HydStreamAdapter::streamErrorMsg);
        epoch.adapter.startStreamDevId(kDevice, 0);
        QTRY_COMPARE(errors.count(), 1);
        QCOMPARE(errors[0][0].toString(), QStringLiteral("Streaming start failed: Epoch, ") +
                                              QString::fromStdString(kDevice.friendlyName()));
    }

    void anotherTypeStartsLikeABinaryStream()
    {
        Epoch epoch(StreamWave);
        CONNECT_STREAM(epoch);
        // By the type: intended.
        epoch.adapter.delayConnectStream(0, true);
        QTRY_COMPARE(epoch.peer.received(), kStart);
    }

    void binaryAdapterOfThisTypeStartsAsSuch()
    {
        StreamFixture stream(kAddress, StreamEpoch);
        CONNECT_STREAM(stream);
        stream.adapter.delayConnectStream(0, true);
        QTRY_COMPARE(stream.peer.received(), kStart);
    }

    void stopByIdActsAsTheBaseDoes()
    {
        Epoch epoch;
        QSignalSpy stopped(&epoch.adapter, &HydStreamAdapter::streamStopped);
        CONNECT_STREAM(epoch);
        epoch.adapter.startStream();
        // Intended: it tells, sends, and reads on.
        epoch.adapter.stopStreamDevId(kDevice);
        QCOMPARE(stopped.count(), 1);
        QTRY_COMPARE(epoch.peer.received(), kStop);
        QVERIFY(epoch.reads());
    }

    void prepareWiresAsTheBaseDoes()
    {
        StreamPeer peer(kAddress);
        HydEpochStreamAdapter adapter(StreamEpoch, peer.port(), kAddress, kDevice, kLongPeriod, false);
        QSignalSpy occurrences(&adapter, &HydEpochStreamAdapter::signalTrigActive);
        adapter.prepare(true);
        adapter.startStream();
        QTRY_COMPARE(peer.connections(), qsizetype{1});
        // The base takes the bytes first, as those of a binary stream: intended.
        peer.send(kStartedLine);
        QTRY_COMPARE(adapter.skippedBytes(), uint64_t(kStartedLine.size()));
        QCOMPARE(occurrences.count(), 0);
        adapter.createConnections();
        peer.send(kStartedLine);
        QTRY_COMPARE(occurrences.count(), 1);
    }

    void destructorActsAsTheBaseDoes()
    {
        StreamPeer peer(kAddress);
        auto adapter = std::make_unique<HydEpochStreamAdapter>(StreamEpoch, peer.port(), kAddress, kDevice,
                                                               kLongPeriod, true);
        QSignalSpy stopped(adapter.get(), &HydStreamAdapter::streamStopped);
        adapter->startStream();
        QTRY_COMPARE(peer.connections(), qsizetype{1});
        adapter.reset();
        QCOMPARE(stopped.count(), 1);
        // Intended.
        QTRY_COMPARE(peer.received(), kStop);
    }

    void withoutSocketNothingHappens()
    {
        HydEpochStreamAdapter adapter(StreamEpoch, 1, kAddress, kDevice, kLongPeriod, false);
        QSignalSpy errors(&adapter, &HydStreamAdapter::streamErrorMsg);
        QSignalSpy stopped(&adapter, &HydStreamAdapter::streamStopped);
        QSignalSpy occurrences(&adapter, &HydEpochStreamAdapter::signalTrigActive);
        adapter.createConnections();
        adapter.startStream();
        adapter.startStreamDevId(kDevice, 0);
        adapter.startSensorsStreamDevId(kDevice, 0, 30);
        adapter.readStream();
        adapter.stopStream();
        QCOMPARE(int(adapter.duration()), 0);
        QVERIFY(spyStaysEmpty(errors, 200));
        QCOMPARE(stopped.count(), 0);
        QCOMPARE(occurrences.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestHydEpochStreamLifecycle)
#include "tst_HydEpochStreamLifecycle.moc"
