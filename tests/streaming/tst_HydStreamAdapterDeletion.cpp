// A receiver deletes the HydStreamAdapter whose signal it hears.
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"
#include "tests/support/Buried.h"

#include <QPointer>

#include <functional>

#include <poll.h>

using namespace streamframes;

namespace {

const QString kAddress = QStringLiteral("127.41.12.1");
/// A connection to it fails inside the call, and nothing leaves the machine: TCP has no broadcast.
const QHostAddress kUnreachable(QHostAddress::Broadcast);

using BuriedAdapter = Buried<HydStreamAdapter>;
using Action = std::function<void(HydStreamAdapter&)>;
using Connect = std::function<void(HydStreamAdapter*)>;

/// A connection that deletes the adapter under `signal`.
template <class... Arguments> Connect under(void (HydStreamAdapter::*signal)(Arguments...))
{
    return [signal](HydStreamAdapter* adapter) {
        QObject::connect(
            adapter, signal, adapter, [adapter] { delete adapter; }, Qt::SingleShotConnection);
    };
}

/// A device whose settings make the sequence checks run, at `rate`.
HydDevice waveDevice(uint32_t rate)
{
    HydJobSettings settings;
    settings.setWavRate(static_cast<SampRate>(rate));
    return {kDevice.serialNo(), kDevice.devType(), {}, settings.map()};
}

} // namespace

Q_DECLARE_METATYPE(Action)
Q_DECLARE_METATYPE(Connect)

class TestHydStreamAdapterDeletion : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- rainy day flows

    void deletedByWhatAStreamBrings_data()
    {
        QTest::addColumn<Connect>("destroyUnder");
        QTest::addColumn<bool>("breaksOff");
        QTest::newRow("header") << under(&HydStreamAdapter::eventHeader) << false;
        QTest::newRow("data") << under(&HydStreamAdapter::streamDataReady) << false;
        QTest::newRow("notification") << under(&HydStreamAdapter::streamNotify) << false;
        QTest::newRow("stopped") << under(&HydStreamAdapter::streamStopped) << false;
        QTest::newRow("started") << under(&HydStreamAdapter::streamStarted) << false;
        QTest::newRow("error") << under(&HydStreamAdapter::socketError) << true;
        QTest::newRow("header error") << under(&HydStreamAdapter::headerError) << false;
    }

    void deletedByWhatAStreamBrings()
    {
        QFETCH(Connect, destroyUnder);
        QFETCH(bool, breaksOff);
        StreamPeer peer(kAddress);
        auto* adapter = new BuriedAdapter(StreamWave, peer.port(), kAddress, kDevice, kLongPeriod, true);
        adapter->updateDeviceInfo(waveDevice(100));
        destroyUnder(adapter);
        adapter->startStream();
        QTRY_COMPARE(peer.connections(), qsizetype{1});
        if (peer.isConnected())
            peer.send(
                frame(header(1, 1000)) + frame(block(1, 1000, 0, 10)) + frame(header(2, 9000)) +
                frame(std::make_shared<HydStreamNotifyPayload>(static_cast<uint16_t>(breaksOff ? 2 : 1))) +
                frame(header(3, 9100)));
        if (breaksOff)
            peer.socket()->disconnectFromHost();
        QTRY_VERIFY(BuriedAdapter::isGone());
        QTRY_VERIFY(!peer.isConnected());
        QVERIFY(BuriedAdapter::isUntouched());
    }

    void deletedByACall_data()
    {
        QTest::addColumn<Action>("call");
        QTest::addColumn<Connect>("destroyUnder");
        const auto disconnected = under(&HydStreamAdapter::streamDisconnected);
        const auto error = under(&HydStreamAdapter::socketError);
        const Action start = &HydStreamAdapter::startStream;
        const Action startLater = &HydStreamAdapter::delayStartStream;
        const Action makeContinuous = [](HydStreamAdapter& adapter) {
            adapter.setDuration(10);
            adapter.startSensorsStreamDevId(kDevice, 0, 0);
        };
        QTest::newRow("no longer limited") << makeContinuous << under(&HydStreamAdapter::streamIsContinuous);
        QTest::newRow("start, disconnected") << start << disconnected;
        QTest::newRow("start, error") << start << error;
        QTest::newRow("late start, disconnected") << startLater << disconnected;
        QTest::newRow("late start, error") << startLater << error;
    }

    void deletedByACall()
    {
        QFETCH(Action, call);
        QFETCH(Connect, destroyUnder);
        auto* adapter = new BuriedAdapter(StreamWave, 1, kDevice, kLongPeriod, true);
        adapter->setHostAddress(kUnreachable);
        destroyUnder(adapter);
        call(*adapter);
        QTRY_VERIFY(BuriedAdapter::isGone());
        QVERIFY(BuriedAdapter::isUntouched());
    }

    void deletedByARefusedConnection_data()
    {
        QTest::addColumn<Connect>("destroyUnder");
        QTest::newRow("disconnected") << under(&HydStreamAdapter::streamDisconnected);
        QTest::newRow("error") << under(&HydStreamAdapter::socketError);
    }

    void deletedByARefusedConnection()
    {
        QFETCH(Connect, destroyUnder);
        StreamPeer peer(kAddress);
        peer.stopListening();
        auto* adapter = new BuriedAdapter(StreamWave, peer.port(), kAddress, kDevice, kLongPeriod, true);
        destroyUnder(adapter);
        adapter->connectStream();
        QTRY_VERIFY(BuriedAdapter::isGone());
        QVERIFY(BuriedAdapter::isUntouched());
    }

    void deletedByAFailedRestart()
    {
        StreamPeer peer(kAddress);
        auto* adapter = new BuriedAdapter(StreamWave, peer.port(), kAddress, kDevice, kLongPeriod, true);
        adapter->startStream();
        QTRY_COMPARE(peer.received(), kStart);
        adapter->findChild<QTcpSocket*>()->abort();
        adapter->setHostAddress(kUnreachable);
        under (&HydStreamAdapter::socketError)(adapter);
        adapter->startStream();
        QVERIFY(BuriedAdapter::isGone());
        QVERIFY(BuriedAdapter::isUntouched());
    }

    void deletedByALinkThatTurnsOutToBeDead_data()
    {
        QTest::addColumn<Action>("call");
        QTest::addColumn<Connect>("destroyUnder");
        const Action notify = [](HydStreamAdapter& adapter) {
            adapter.startStream();
            adapter.notifyProc(std::make_shared<HydStreamNotifyPayload>(uint16_t{3}));
        };
        const Action disconnect = [](HydStreamAdapter& adapter) {
            adapter.startStream();
            adapter.disconnectStream();
        };
        const Action stop = &HydStreamAdapter::stopStream;
        const Action stopAgain = [](HydStreamAdapter& adapter) {
            adapter.startStream();
            adapter.stopStream();
        };
        QTest::newRow("stop") << stop << under(&HydStreamAdapter::streamDisconnected);
        QTest::newRow("stop of a start") << stopAgain << under(&HydStreamAdapter::socketError);
        QTest::newRow("disconnection") << disconnect << under(&HydStreamAdapter::streamDisconnected);
        QTest::newRow("closing notification") << notify << under(&HydStreamAdapter::streamDisconnected);
    }

    void deletedByALinkThatTurnsOutToBeDead()
    {
        QFETCH(Action, call);
        QFETCH(Connect, destroyUnder);
        StreamPeer peer(kAddress);
        auto* adapter = new BuriedAdapter(StreamWave, peer.port(), kAddress, kDevice, kLongPeriod, true);
        adapter->startStream();
        QTRY_COMPARE(peer.received(), kStart);
        peer.socket()->disconnectFromHost();
        // Bytes to a closed end come back as a reset, which only the next write tells of: no event loop runs.
        adapter->stopStream();
        pollfd reset{static_cast<int>(adapter->findChild<QTcpSocket*>()->socketDescriptor()), 0, 0};
        QCOMPARE(poll(&reset, 1, kPatienceMs), 1);
        destroyUnder(adapter);
        call(*adapter);
        QVERIFY(BuriedAdapter::isGone());
        QVERIFY(BuriedAdapter::isUntouched());
    }
};

QTEST_GUILESS_MAIN(TestHydStreamAdapterDeletion)
#include "tst_HydStreamAdapterDeletion.moc"
