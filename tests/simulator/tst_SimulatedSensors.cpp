#include "NvxQtSimulator/SimulatedRecorder.h"
#include "RawPeer.h"
#include "tests/support/NvxTestCase.h"

#include <QSet>

#include <cmath>
#include <memory>
#include <numbers>

// Sensor streams, seen from a raw socket.

namespace {

constexpr uint8_t kStatus = 4;
constexpr uint16_t kAll = 31;

RecorderSettings sensorSettings(const char* address)
{
    RecorderSettings settings;
    settings.address = QHostAddress(QLatin1String(address));
    settings.sensorPort = 0;
    settings.roles = RoleControl | RoleSensor;
    settings.unpaced = true;
    settings.streamSeconds = 3;
    settings.clockOffset = 1000;
    return settings;
}

QByteArray triggerRequest(int number, bool enabled)
{
    return QByteArray::fromHex("0000050018") + char(number) + char(enabled) + QByteArray(22, '\0');
}

} // namespace

class tst_SimulatedSensors : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<SimulatedRecorder> m_recorder;
    std::unique_ptr<RawPeer> m_peer;

    bool open(const RecorderSettings& settings)
    {
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        m_peer = std::make_unique<RawPeer>();
        return m_recorder->start() && m_peer->open(settings.address, m_recorder->streamPort(StreamSensor));
    }
    RawStreamFrame reading(size_t index) const { return m_peer->streamFrames(kStatus).at(index); }

private Q_SLOTS:
    void cleanup()
    {
        m_peer.reset();
        m_recorder.reset();
    }

    // --- happy flows
    void sensorsAnswerWhatWasAsked_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<QList<int>>("chunks");
        QTest::newRow("temperature and humidity") << 1 << QList<int>{3};
        QTest::newRow("motion") << 2 << QList<int>{7, 13};
        QTest::newRow("clock") << 4 << QList<int>{14};
        QTest::newRow("battery") << 8 << QList<int>{12};
        QTest::newRow("triggers") << 16 << QList<int>{15};
        QTest::newRow("all") << 31 << QList<int>{3, 7, 12, 13, 14, 15};
        QTest::newRow("nothing") << 0 << QList<int>{};
    }
    void sensorsAnswerWhatWasAsked()
    {
        QFETCH(int, bits);
        QFETCH(QList<int>, chunks);
        QVERIFY(open(sensorSettings("127.92.3.1")));
        m_peer->startStream(0, uint16_t(bits));
        QVERIFY(m_peer->waitForFrames(kStatus, 1));
        const RawStreamFrame frame = m_peer->streamFrames(kStatus).front();
        QVERIFY(frame.checksumFits);
        QCOMPARE(frame.count(1), 1);
        for (const int type : {3, 7, 12, 13, 14, 15})
            QCOMPARE(frame.count(uint16_t(type)), chunks.contains(type) ? 1 : 0);
    }

    void readingsAreThoseOfTheRecorder()
    {
        RecorderSettings settings = sensorSettings("127.92.3.2");
        settings.identity.temperature = -15;
        settings.identity.humidity = 987;
        settings.identity.batteryPercent = 42;
        settings.rollover = 9;
        QVERIFY(open(settings));
        const int64_t before = m_recorder->deviceTime();
        m_peer->startStream(0, kAll);
        QVERIFY(m_peer->waitForFrames(kStatus, 1));
        const RawStreamFrame frame = reading(0);
        QVERIFY(frame.time() >= before - 1 && frame.time() <= m_recorder->deviceTime() + 1);
        const QByteArray status = frame.chunk(3);
        QCOMPARE(RawStreamFrame::word<qint16>(status, 0), qint16{-15});
        QCOMPARE(RawStreamFrame::word<qint16>(status, 2), qint16{987});
        QCOMPARE(int(status.at(5)), 9);
        const QByteArray battery = frame.chunk(12);
        QCOMPARE(RawStreamFrame::word<quint32>(battery, 0), frame.time());
        QCOMPARE(RawStreamFrame::word<quint16>(battery, 4), quint16{7400});
        QCOMPARE(RawStreamFrame::word<qint16>(battery, 6), qint16{120});
        QCOMPARE(int(battery.at(8)), 42);
        QCOMPARE(int(battery.at(9)), int(BattDischarging));
        QCOMPARE(RawStreamFrame::word<qint16>(battery, 10), qint16{-15});
        const QByteArray sync = frame.chunk(14);
        QCOMPARE(RawStreamFrame::word<quint32>(sync, 0), frame.time());
        // Offset, source and state as the command channel has them: free running.
        QCOMPARE(sync.mid(4), QByteArray(8, '\0'));
    }

    void recorderTurnsAndItsMagnetometerWithIt()
    {
        RecorderSettings settings = sensorSettings("127.92.3.3");
        settings.streamSeconds = 400;
        QVERIFY(open(settings));
        m_peer->startStream(0, SensAccMag);
        QVERIFY(m_peer->waitForFrames(kStatus, 400));
        const auto frames = m_peer->streamFrames(kStatus);
        for (size_t i = 0; i < 400; ++i) {
            QCOMPARE(frames[i].time(), frames[0].time() + uint32_t(i));
            QCOMPARE(frames[i].sequence(), int64_t(i));
            const QByteArray heading = frames[i].chunk(7);
            QCOMPARE(RawStreamFrame::word<quint32>(heading, 0), frames[i].time());
            const int degrees = RawStreamFrame::word<quint16>(heading, 4) / 10;
            QCOMPARE(degrees, int(i % 360));
            const QByteArray motion = frames[i].chunk(13);
            // Pitch 1.5 and roll -2 degrees by the heading, and by what gravity does to the accelerometer.
            QCOMPARE(RawStreamFrame::word<qint16>(heading, 6), qint16{15});
            QCOMPARE(RawStreamFrame::word<qint16>(heading, 8), qint16{-20});
            const double down = RawStreamFrame::word<qint16>(motion, 4);
            const auto degreesOf = [down](int value) {
                return std::atan(value / down) * 180.0 / std::numbers::pi;
            };
            QVERIFY(std::abs(degreesOf(RawStreamFrame::word<qint16>(motion, 0)) - 1.5) < 0.05);
            QVERIFY(std::abs(degreesOf(RawStreamFrame::word<qint16>(motion, 2)) + 2.0) < 0.05);
            const double north = RawStreamFrame::word<qint16>(motion, 6);
            const double east = -RawStreamFrame::word<qint16>(motion, 8);
            const double measured = std::atan2(east, north) * 180.0 / std::numbers::pi;
            QVERIFY(std::abs(std::remainder(measured - degrees, 360.0)) < 0.2);
            QVERIFY(std::abs(std::hypot(north, east) - 200.0) < 1.0);
            QCOMPARE(RawStreamFrame::word<qint16>(motion, 10), qint16{430});
        }
    }

    void chargingBatteryTakesCurrent()
    {
        RecorderSettings settings = sensorSettings("127.92.3.4");
        settings.identity.batteryState = BattCharging;
        QVERIFY(open(settings));
        m_peer->startStream(0, SensTimeBattery);
        QVERIFY(m_peer->waitForFrames(kStatus, 1));
        QVERIFY(RawStreamFrame::word<qint16>(reading(0).chunk(12), 6) < 0);
        QCOMPARE(int(reading(0).chunk(12).at(9)), int(BattCharging));
    }

    void triggerIsActiveWhileItFires()
    {
        RecorderSettings settings = sensorSettings("127.92.3.5");
        settings.unpaced = false;
        settings.streamSeconds = 0;
        QVERIFY(open(settings));
        RawPeer control;
        QVERIFY(control.open(settings.address, 50000));
        m_peer->startStream(0, SensTriggers);
        QVERIFY(m_peer->waitForFrames(kStatus, 1));
        const auto ask = [&](int number, bool enabled) {
            return control.ask('S', triggerRequest(number, enabled)).payload.left(2) == QByteArray(2, '\0');
        };
        const auto states = [this] {
            QSet<QPair<int, int>> seen;
            for (const auto& frame : m_peer->streamFrames(kStatus))
                seen << qMakePair(int(frame.chunk(15).at(4)), int(frame.chunk(15).at(5)));
            return seen;
        };
        QCOMPARE(states(), (QSet<QPair<int, int>>{{0, 0}}));
        // The enabled one of the lowest number; any level is above a threshold of 0.
        QVERIFY(ask(7, true) && ask(3, false) && ask(5, true));
        QVERIFY(m_peer->waitFor([&] { return states().contains({5, 1}); }));
        QCOMPARE(RawStreamFrame::word<quint32>(reading(1).chunk(15), 0), reading(1).time());
        QVERIFY(ask(5, false));
        QVERIFY(m_peer->waitFor([&] { return states().contains({7, 1}); }));
        QCOMPARE(control.ask('U').letter, 'U');
        m_peer->received.clear();
        QVERIFY(m_peer->waitForFrames(kStatus, 1));
        QCOMPARE(states(), (QSet<QPair<int, int>>{{0, 0}}));
    }

    void withoutATriggerNoneIsActive()
    {
        QVERIFY(open(sensorSettings("127.92.3.6")));
        m_peer->startStream(0, SensTriggers);
        QVERIFY(m_peer->waitForFrames(kStatus, 1));
        QCOMPARE(reading(0).chunk(15).mid(4, 2), QByteArray(2, '\0'));
    }

    void laterStartChangesWhatIsAsked()
    {
        RecorderSettings settings = sensorSettings("127.92.3.7");
        settings.unpaced = false;
        QVERIFY(open(settings));
        m_peer->startStream(0, SensTempHumidity);
        QVERIFY(m_peer->waitForFrames(kStatus, 1));
        QCOMPARE(reading(0).count(12), 0);
        m_peer->startStream(0, SensTimeBattery);
        // A busy machine may have sent another one of the first kind by then.
        QVERIFY(m_peer->waitFor([this] { return m_peer->streamFrames(kStatus).back().count(12) == 1; }));
        QCOMPARE(m_peer->streamFrames(kStatus).back().count(3), 0);
    }

    // --- rainy day flows
    void bitsThatMeanNothingAreIgnored()
    {
        QVERIFY(open(sensorSettings("127.92.3.8")));
        m_peer->startStream(0, 0xFFE0);
        QVERIFY(m_peer->waitForFrames(kStatus, 1));
        for (const int type : {3, 7, 12, 13, 14, 15})
            QCOMPARE(reading(0).count(uint16_t(type)), 0);
    }
};

QTEST_GUILESS_MAIN(tst_SimulatedSensors)
#include "tst_SimulatedSensors.moc"
