// The order of what HydStreamAdapter emits, and what it stands at when it does.
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"

#include <QStringList>

using namespace streamframes;

namespace {

const QString kAddress = QStringLiteral("127.41.9.1");

struct Record
{
    QStringList signalsSeen;
};

/// Writes down each signal, and behind it what the adapter stands at: connected, and streaming.
struct Stream : Record, StreamFixture
{
    explicit Stream(HydStreamType type = StreamWave) : StreamFixture(kAddress, type)
    {
        note("connected", &HydStreamAdapter::streamConnected);
        note("started", &HydStreamAdapter::streamStarted);
        note("stopped", &HydStreamAdapter::streamStopped);
        note("notify", &HydStreamAdapter::streamNotify);
        note("disconnected", &HydStreamAdapter::streamDisconnected);
        note("error", &HydStreamAdapter::socketError);
        note("lost", &HydStreamAdapter::streamConnectionLost);
        note("header", &HydStreamAdapter::eventHeader);
        note("data", &HydStreamAdapter::streamDataReady);
        note("status", &HydStreamAdapter::streamStatusData);
        note("header error", &HydStreamAdapter::headerError);
        note("data lost", &HydStreamAdapter::streamDataLost);
        note("continuous", &HydStreamAdapter::streamIsContinuous);
    }
    template <class... Arguments> void note(const char* name, void (HydStreamAdapter::*signal)(Arguments...))
    {
        QObject::connect(&adapter, signal, &adapter, [this, name] {
            QString line = QString::fromLatin1(name);
            if (socket->state() == QAbstractSocket::ConnectedState)
                line += QStringLiteral(" c");
            if (adapter.isStreaming())
                line += QStringLiteral("s");
            signalsSeen << line;
        });
    }
};

} // namespace

class TestHydStreamAdapterOrder : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void connectionIsToldAheadOfThePostponedStart()
    {
        Stream stream;
        stream.adapter.startStream();
        QTRY_COMPARE(stream.peer.received(), kStart);
        QCOMPARE(stream.signalsSeen,
                 (QStringList{QStringLiteral("connected c"), QStringLiteral("started cs")}));
    }

    void connectionIsToldAheadOfTheRestart()
    {
        Stream stream;
        START_STREAM(stream);
        stream.signalsSeen.clear();
        stream.peer.socket()->disconnectFromHost();
        QTRY_COMPARE(stream.peer.received(), kStart);
        QCOMPARE(stream.signalsSeen,
                 (QStringList{QStringLiteral("error cs"), QStringLiteral("error cs"),
                              QStringLiteral("connected cs"), QStringLiteral("started cs")}));
    }

    void startIsWrittenAheadOfItsSignal()
    {
        Stream stream;
        CONNECT_STREAM(stream);
        qint64 written = -1;
        connect(&stream.adapter, &HydStreamAdapter::streamStarted, this,
                [&] { written = stream.socket->bytesToWrite(); });
        stream.adapter.startStream();
        QCOMPARE(written, qint64{kStart.size()});
    }

    void causeOfAStartIsForgottenBehindItsSignal()
    {
        Stream stream;
        START_STREAM(stream);
        QList<bool> causes;
        connect(&stream.adapter, &HydStreamAdapter::streamStarted, this, [&](bool isAliveTimeOut) {
            causes << isAliveTimeOut;
            if (causes.size() == 1)
                stream.adapter.startStream();
        });
        stream.adapter.streamAliveTimeOut();
        stream.adapter.startStream();
        stream.adapter.startStream();
        QCOMPARE(causes, (QList<bool>{true, true, false}));
    }

    void stopIsDoneAheadOfItsSignal()
    {
        Stream stream;
        START_STREAM(stream);
        stream.signalsSeen.clear();
        qint64 waiting = -1;
        connect(
            &stream.adapter, &HydStreamAdapter::streamStopped, this,
            [&] { waiting = stream.socket->bytesToWrite(); }, Qt::SingleShotConnection);
        stream.adapter.stopStream();
        QCOMPARE(stream.signalsSeen, QStringList{QStringLiteral("stopped c")});
        // The message has left: no turn of the event loop was needed.
        QCOMPARE(waiting, qint64{0});
        QTRY_COMPARE(stream.peer.received(), kStop);
    }

    void durationIsTakenAheadOfItsSignal()
    {
        Stream stream;
        stream.adapter.setDuration(10);
        int duration = -1;
        connect(&stream.adapter, &HydStreamAdapter::streamIsContinuous, this,
                [&] { duration = stream.adapter.duration(); });
        stream.adapter.setDuration(0);
        QCOMPARE(duration, 0);
    }

    void notificationIsToldAheadOfTheStop()
    {
        Stream stream;
        START_STREAM(stream);
        stream.signalsSeen.clear();
        stream.peer.send(frame(std::make_shared<HydStreamNotifyPayload>(static_cast<uint16_t>(0))));
        QTRY_COMPARE(stream.socket->state(), QAbstractSocket::UnconnectedState);
        // The connection goes last: who hears of it still finds it.
        QCOMPARE(stream.signalsSeen,
                 (QStringList{QStringLiteral("notify cs"), QStringLiteral("stopped cs")}));
    }

    void blockIsMarkedAheadOfItsSignal()
    {
        Stream stream;
        HydJobSettings settings;
        settings.setWavRate(SampRate{100});
        stream.adapter.updateDeviceInfo({kDevice.serialNo(), kDevice.devType(), {}, settings.map()});
        START_STREAM(stream);
        QList<bool> marks;
        connect(&stream.adapter, &HydStreamAdapter::streamDataReady, this,
                [&](const std::shared_ptr<HydStreamDataPayload>& data) { marks << data->isLastEvent(); });
        stream.peer.send(frame(header(1, 500)) + frame(block(1, 500, 0, 60)) + frame(block(1, 500, 60, 40)));
        QTRY_COMPARE(marks.size(), 2);
        QCOMPARE(marks, (QList<bool>{false, true}));
    }

    void messagesOfOneReadKeepTheirOrder()
    {
        Stream stream;
        HydJobSettings settings;
        settings.setWavRate(SampRate{100});
        stream.adapter.updateDeviceInfo({kDevice.serialNo(), kDevice.devType(), {}, settings.map()});
        START_STREAM(stream);
        stream.signalsSeen.clear();
        stream.peer.send(frame(header(1, 1000)) + frame(block(1, 1000, 0, 100)) + frame(status(1)) +
                         frame(header(2, 1300)) + frame(block(2, 1300, 0, 100)) +
                         frame(std::make_shared<HydStreamNotifyPayload>(static_cast<uint16_t>(2))));
        QTRY_COMPARE(stream.signalsSeen.size(), 8);
        QStringList expected;
        for (const char* name :
             {"header", "data", "status", "header error", "header error", "header", "data", "notify"})
            expected << QString::fromLatin1(name) + QStringLiteral(" cs");
        QCOMPARE(stream.signalsSeen, expected);
    }

    // --- rainy day flows

    void refusalIsADisconnectionAndThenAnError()
    {
        Stream stream;
        stream.peer.stopListening();
        stream.adapter.connectStream();
        QTRY_COMPARE(stream.signalsSeen,
                     (QStringList{QStringLiteral("disconnected"), QStringLiteral("error")}));
    }

    void lostConnectionIsToldBehindTheError()
    {
        Stream stream;
        // No peer is known while the socket looks for its host.
        connect(
            stream.socket, &QTcpSocket::stateChanged, this,
            [&] { stream.adapter.handleStreamSocketError(QAbstractSocket::NetworkError); },
            Qt::SingleShotConnection);
        stream.adapter.connectStream();
        QCOMPARE(stream.signalsSeen, (QStringList{QStringLiteral("disconnected"), QStringLiteral("error"),
                                                  QStringLiteral("lost")}));
    }

    void whatTheDestructorEmitsIsAStopAlone()
    {
        QStringList seen;
        StreamPeer peer(kAddress);
        auto adapter =
            std::make_unique<HydStreamAdapter>(StreamWave, peer.port(), kAddress, kDevice, kLongPeriod, true);
        adapter->startStream();
        QTRY_COMPARE(peer.received(), kStart);
        connect(adapter.get(), &HydStreamAdapter::streamStopped, this,
                [&] { seen << QStringLiteral("stopped"); });
        for (const auto signal : {&HydStreamAdapter::socketError, &HydStreamAdapter::streamDisconnected})
            connect(adapter.get(), signal, this, [&] { seen << QStringLiteral("error"); });
        adapter.reset();
        QCOMPARE(seen, QStringList{QStringLiteral("stopped")});
    }
};

QTEST_GUILESS_MAIN(TestHydStreamAdapterOrder)
#include "tst_HydStreamAdapterOrder.moc"
