#include "NvxQtSimulator/SimulatedRecorder.h"
#include "RawPeer.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"

#include "NvxQtCommon/contract/message/HydTrigger.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QSignalSpy>

#include <algorithm>
#include <cmath>
#include <memory>

// Triggers of a simulated recorder and the lines of its epoch stream, seen from raw sockets.

namespace {

constexpr int kAbove = 5;
constexpr int kBelow = 6;
/// Of a sine wave of full scale with the sensitivity of the settings: 3 V / sqrt(2) at -170 dB re 1 V/µPa.
const double kFullScaleMicropascal = 3.0 / std::sqrt(2.0) * std::pow(10.0, 170.0 / 20.0);

RecorderSettings settingsAt(const char* address)
{
    RecorderSettings settings;
    settings.address = QHostAddress(QLatin1String(address));
    settings.epochPort = 0;
    settings.roles = RoleControl | RoleEpoch;
    settings.sampleRate = 48000;
    return settings;
}

/// Bursts far above 1000 µPa with silence far below in between.
RecorderSettings burstsAt(const char* address, double period, double length)
{
    RecorderSettings settings = settingsAt(address);
    settings.signal.kind = SignalSettings::Impulses;
    settings.signal.levelDb = -140.0;
    settings.signal.impulseSeconds = period;
    settings.signal.impulseLength = length;
    return settings;
}

} // namespace

class tst_SimulatedTriggers : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<SimulatedRecorder> m_recorder;
    std::unique_ptr<RawPeer> m_control;
    std::unique_ptr<RawPeer> m_epochs;

    bool open(const RecorderSettings& settings)
    {
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        m_control = std::make_unique<RawPeer>();
        m_epochs = std::make_unique<RawPeer>();
        return m_recorder->start() && m_control->open(settings.address, 50000) && openEpochs(*m_epochs);
    }
    /// Connected, and known to the recorder.
    bool openEpochs(RawPeer& peer)
    {
        QSignalSpy started(m_recorder.get(), &SimulatedRecorder::streamStarted);
        return peer.open(m_recorder->settings().address, m_recorder->streamPort(StreamEpoch)) &&
               QTest::qWaitFor([&] { return !started.isEmpty(); });
    }
    bool set(const QByteArray& trigger)
    {
        return m_control->ask('S', trigger).payload.left(2) == QByteArray(2, '\0');
    }
    QStringList lines() const
    {
        return QString::fromUtf8(m_epochs->received).split('\n', Qt::SkipEmptyParts);
    }
    /// The lines without their times.
    QStringList events() const
    {
        QStringList list;
        for (const QString& line : lines())
            list << line.section(QStringLiteral(", "), 1);
        return list;
    }
    bool waitForLines(qsizetype count)
    {
        return m_epochs->waitFor([&] { return m_epochs->received.count('\n') >= count; }, 15000);
    }

private Q_SLOTS:
    void cleanup()
    {
        m_epochs.reset();
        m_control.reset();
        m_recorder.reset();
    }

    // --- happy flows
    void lineOfAStart()
    {
        RecorderSettings settings = settingsAt("127.92.4.1");
        settings.clockOffset = -86400;
        QVERIFY(open(settings));
        QVERIFY(set(RawPeer::eventTrigger(3, 5000)));
        QVERIFY(waitForLines(1));
        QVERIFY(m_epochs->received.endsWith('\n'));
        QCOMPARE(events(), QStringList{"SN 1234, Epoch 3, Seq 1, 0-20000 > 5000uPa, 0s"});
        const QString stamp = lines().first().section(',', 0, 0);
        QCOMPARE(stamp.size(), 19);
        const QDateTime time = QDateTime::fromString(stamp, QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        QVERIFY(std::abs(QDateTime(time.date(), time.time(), Qt::UTC).toSecsSinceEpoch() -
                         m_recorder->deviceTime()) <= 60);
        QCOMPARE(m_recorder->triggers().size(), size_t(1));
        QCOMPARE(int(m_recorder->triggers().front()->trigNum()), 3);
    }

    void levelDecides_data()
    {
        QTest::addColumn<int>("micropascal");
        QTest::addColumn<int>("threshold");
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("fires");
        QTest::newRow("above, a bit louder") << 5000 << 4800 << kAbove << true;
        QTest::newRow("above, a bit softer") << 5000 << 5200 << kAbove << false;
        QTest::newRow("below, a bit louder") << 5000 << 4800 << kBelow << false;
        QTest::newRow("below, a bit softer") << 5000 << 5200 << kBelow << true;
        QTest::newRow("far above") << 1000000 << 32767 << kAbove << true;
        QTest::newRow("above a negative threshold") << 5000 << -1 << kAbove << true;
        QTest::newRow("below a negative threshold") << 5000 << -1 << kBelow << false;
    }
    void levelDecides()
    {
        QFETCH(int, micropascal);
        QFETCH(int, threshold);
        QFETCH(int, type);
        QFETCH(bool, fires);
        RecorderSettings settings = settingsAt("127.92.4.2");
        settings.signal.levelDb = 20.0 * std::log10(micropascal / kFullScaleMicropascal);
        QVERIFY(open(settings));
        // Number 9 fires whatever comes; both are looked at together, in the order of their numbers.
        QVERIFY(set(RawPeer::eventTrigger(1, threshold, type)));
        QVERIFY(set(RawPeer::eventTrigger(9, 0)));
        QVERIFY(m_epochs->waitFor([&] { return m_epochs->received.contains("Epoch 9"); }));
        QCOMPARE(m_epochs->received.contains("Epoch 1,"), fires);
    }

    void bandDecides_data()
    {
        QTest::addColumn<unsigned>("low");
        QTest::addColumn<unsigned>("high");
        QTest::addColumn<bool>("fires");
        QTest::newRow("around the tone") << 900U << 1100U << true;
        QTest::newRow("narrower than a bin") << 1000U << 1000U << true;
        QTest::newRow("below the tone") << 10U << 800U << false;
        QTest::newRow("above the tone") << 1200U << 24000U << false;
        QTest::newRow("above all that is sampled") << 100000U << 4000000000U << false;
    }
    void bandDecides()
    {
        QFETCH(unsigned, low);
        QFETCH(unsigned, high);
        QFETCH(bool, fires);
        RecorderSettings settings = settingsAt("127.92.4.3");
        settings.signal.levelDb = 20.0 * std::log10(10000 / kFullScaleMicropascal);
        QVERIFY(open(settings));
        HydTrigger_5_6 trigger;
        trigger.setTrigNum(1);
        trigger.setEnabled(1);
        trigger.setMinFreq(low);
        trigger.setMaxFreq(high);
        trigger.setThreshold(1000);
        ByteStream out;
        trigger.serialize(out);
        const auto bytes = out.bytes();
        QVERIFY(set(
            QByteArray(reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size()))));
        QVERIFY(set(RawPeer::eventTrigger(9, 0)));
        QVERIFY(m_epochs->waitFor([&] { return m_epochs->received.contains("Epoch 9"); }));
        QCOMPARE(m_epochs->received.contains("Epoch 1,"), fires);
    }

    void startsAndEndsWithTheSignal()
    {
        QVERIFY(open(burstsAt("127.92.4.4", 1.6, 0.8)));
        QVERIFY(set(RawPeer::eventTrigger(2)));
        QVERIFY(waitForLines(3));
        QCOMPARE(events().first(3),
                 (QStringList{"SN 1234, Epoch 2, Seq 1, 0-20000 > 1000uPa, 0s", "SN 1234, Epoch 2, Ended",
                              "SN 1234, Epoch 2, Seq 2, 0-20000 > 1000uPa, 0s"}));
    }

    void levelHasToHold()
    {
        QVERIFY(open(settingsAt("127.92.4.5")));
        QElapsedTimer elapsed;
        elapsed.start();
        QVERIFY(set(RawPeer::eventTrigger(2, 1000, kAbove, 1)));
        QVERIFY(waitForLines(1));
        QVERIFY(elapsed.elapsed() >= 1000);
        QVERIFY(lines().first().endsWith(", 1s"));
    }

    void eventIsHeld()
    {
        // Bursts come again before the hold is over.
        QVERIFY(open(burstsAt("127.92.4.6", 1.6, 0.8)));
        QVERIFY(set(RawPeer::eventTrigger(1, 1000, kAbove, 0, 2)));
        QVERIFY(set(RawPeer::eventTrigger(2)));
        QVERIFY(m_epochs->waitFor([&] { return m_epochs->received.count("Epoch 2, Seq") >= 3; }, 15000));
        QCOMPARE(m_epochs->received.count("Epoch 1, Seq"), 1);
        QCOMPARE(m_epochs->received.count("Epoch 1, Ended"), 0);
    }

    void eachLineIsAWriteOfItsOwn()
    {
        QVERIFY(open(settingsAt("127.92.4.7")));
        QElapsedTimer clock;
        clock.start();
        QList<qint64> times;
        connect(&m_epochs->socket, &QTcpSocket::readyRead, this, [&] { times << clock.elapsed(); });
        // Where the machine stalls, two lines may be read at once: one of these tries has to go well.
        bool isGood = false;
        for (int i = 0; i < 5 && !isGood; ++i) {
            for (int number = 1; number <= 4; ++number)
                QVERIFY(set(RawPeer::eventTrigger(number)));
            QVERIFY(waitForLines(4));
            isGood = times.size() == 4 && times.last() - times.first() >= 140;
            for (const QByteArray& read : m_epochs->reads)
                QVERIFY(read.endsWith('\n'));
            QCOMPARE(m_control->ask('U').letter, 'U');
            QVERIFY(waitForLines(8));
            times.clear();
            m_epochs->received.clear();
        }
        QVERIFY(isGood);
    }

    void everyReaderGetsWhatComes()
    {
        QVERIFY(open(settingsAt("127.92.4.8")));
        QVERIFY(set(RawPeer::eventTrigger(1)));
        QVERIFY(waitForLines(1));
        RawPeer late;
        QVERIFY(openEpochs(late));
        QVERIFY(set(RawPeer::eventTrigger(2)));
        QVERIFY(waitForLines(2));
        QVERIFY(late.waitFor([&] { return late.received.endsWith('\n'); }));
        QCOMPARE(QString::fromUtf8(late.received).trimmed(), lines().last());
    }

    void arrivalsAreKept()
    {
        QVERIFY(open(settingsAt("127.92.4.9")));
        QVERIFY(m_recorder->commandArrivals().empty());
        QVERIFY(set(RawPeer::eventTrigger(1)));
        QCOMPARE(m_control->ask('R').letter, 'R');
        const auto arrivals = m_recorder->commandArrivals();
        QCOMPARE(arrivals.size(), size_t(2));
        QCOMPARE(arrivals[0].letter, 'S');
        QCOMPARE(arrivals[1].letter, 'R');
        QVERIFY(arrivals[0].ms >= 0 && arrivals[0].ms <= arrivals[1].ms);
    }

    // --- rainy day flows
    void disabledTriggersDoNotFire()
    {
        QVERIFY(open(settingsAt("127.92.4.10")));
        QByteArray disabled = RawPeer::eventTrigger(1, 0);
        disabled[6] = '\0';
        QVERIFY(set(disabled));
        QVERIFY(set(RawPeer::eventTrigger(9, 0)));
        QVERIFY(m_epochs->waitFor([&] { return m_epochs->received.contains("Epoch 9"); }));
        QVERIFY(!m_epochs->received.contains("Epoch 1,"));
    }

    void changeOrClearEndsAnEvent()
    {
        QVERIFY(open(settingsAt("127.92.4.11")));
        QVERIFY(set(RawPeer::eventTrigger(1)));
        QVERIFY(waitForLines(1));
        // The same again changes nothing.
        QVERIFY(set(RawPeer::eventTrigger(1)));
        QVERIFY(set(RawPeer::eventTrigger(1, 32767)));
        QVERIFY(waitForLines(3));
        QCOMPARE(m_control->ask('U').letter, 'U');
        QVERIFY(waitForLines(4));
        QCOMPARE(events(),
                 (QStringList{"SN 1234, Epoch 1, Seq 1, 0-20000 > 1000uPa, 0s", "SN 1234, Epoch 1, Ended",
                              "SN 1234, Epoch 1, Seq 2, 0-20000 > 32767uPa, 0s", "SN 1234, Epoch 1, Ended"}));
        QVERIFY(m_recorder->triggers().empty());
    }

    void restartForgetsTriggers()
    {
        QVERIFY(open(settingsAt("127.92.4.12")));
        QVERIFY(set(RawPeer::eventTrigger(1)));
        QVERIFY(waitForLines(1));
        m_recorder->restart();
        QVERIFY(m_epochs->waitForEnd());
        QVERIFY(m_recorder->triggers().empty());
        RawPeer later;
        QVERIFY(openEpochs(later));
        QSignalSpy more(&later.socket, &QTcpSocket::readyRead);
        QVERIFY(spyStaysEmpty(more, 600));
    }

    void refusedOnDemand_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<int>("code");
        QTest::newRow("plain") << "refuse-trigger:times=1" << 3;
        QTest::newRow("with a code") << "refuse-trigger:value=9,times=1" << 9;
    }
    void refusedOnDemand()
    {
        QFETCH(QString, fault);
        QFETCH(int, code);
        RecorderSettings settings = settingsAt("127.92.4.13");
        FaultPlan plan(1);
        plan.add(FaultRule::fromText(fault).value());
        settings.faults = plan;
        QVERIFY(open(settings));
        const QByteArray request = RawPeer::eventTrigger(1);
        const RawControlFrame answer = m_control->ask('S', request);
        QCOMPARE(answer.payload, QByteArray(1, '\0') + char(code) + request.mid(2));
        QVERIFY(m_recorder->triggers().empty());
        QVERIFY(set(request));
        QCOMPARE(m_recorder->triggers().size(), size_t(1));
    }

    void arrivalsAreBounded()
    {
        QVERIFY(open(settingsAt("127.92.4.14")));
        for (int i = 0; i < 4100; ++i)
            m_control->send(i < 4 ? 'U' : 'V');
        QTRY_COMPARE_WITH_TIMEOUT(m_recorder->counters().commands, uint64_t{4100}, 20000);
        const auto arrivals = m_recorder->commandArrivals();
        QCOMPARE(arrivals.size(), size_t(4096));
        QCOMPARE(arrivals.front().letter, 'V');
    }
};

QTEST_GUILESS_MAIN(tst_SimulatedTriggers)
#include "tst_SimulatedTriggers.moc"
