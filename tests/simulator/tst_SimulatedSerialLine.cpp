#include "NvxQtCommon/control/HydCommandAdapter.h"
#include "NvxQtSimulator/SimulatedRecorder.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"

#include <QFile>
#include <QSignalSpy>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {

/// A recorder on a serial line alone, or on an address of its own too.
RecorderSettings settingsOf(uint32_t rate, const char* fault = nullptr)
{
    RecorderSettings settings;
    settings.roles = 0;
    settings.serialRate = rate;
    settings.identity.serial = 321;
    if (fault != nullptr) {
        FaultPlan plan(1);
        QString error;
        plan.add(FaultRule::fromText(QString::fromLatin1(fault), &error).value());
        settings.faults = plan;
    }
    return settings;
}

/// Whoever asks it.
class Client
{
public:
    bool open(const SimulatedRecorder& recorder, unsigned rate)
    {
        adapter.openSerConnection(recorder.serialPortName(), rate);
        return adapter.isConnected();
    }
    template <class Reply> std::shared_ptr<const Reply> ask(std::shared_ptr<HydControlMsgPayload> request)
    {
        replies.clear();
        adapter.sendCommand(std::move(request));
        if (!QTest::qWaitFor([this] { return !replies.isEmpty(); }, kPatienceMs))
            return nullptr;
        return std::dynamic_pointer_cast<const Reply>(
            replies.first().first().value<std::shared_ptr<const HydControlMsgPayload>>());
    }
    uint16_t askedSerial()
    {
        const auto reply = ask<HydEnquireCmd>(std::make_shared<HydEnquireCmd>());
        return reply ? reply->report().serial : uint16_t(0);
    }

    HydCommandAdapter adapter{ConnSerial};
    QSignalSpy replies{&adapter, &HydCommandAdapter::commandResponse};
    QSignalSpy ready{&adapter, &HydCommandAdapter::serialDataReady};
    QSignalSpy closed{&adapter, &HydCommandAdapter::connectionClosed};
};

} // namespace

/// Commands to a simulated recorder on a serial line.
class tst_SimulatedSerialLine : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void answersAtItsRate_data();
    void answersAtItsRate();
    void portsComeAndGo();
    void tellsItsLine();
    void eachRecorderHasALine();
    void restartLeavesTheLine();
    void startsAgainOnAnotherLine();
    // --- rainy day flows
    void isDeafAtOtherRates();
    void ratesThatNoLineHas_data();
    void ratesThatNoLineHas();
    void mute();
    void junk();
    void vanishes_data();
    void vanishes();
    void vanishesWhenStopped();
    void clientThatTakesNoRepliesIsCutOff();
};

void tst_SimulatedSerialLine::answersAtItsRate_data()
{
    QTest::addColumn<uint32_t>("rate");
    for (const uint32_t rate : {1200, 9600, 19200, 115200, 230400, 460800, 921600})
        QTest::addRow("%u", rate) << rate;
}

void tst_SimulatedSerialLine::answersAtItsRate()
{
    QFETCH(uint32_t, rate);
    SimulatedRecorder recorder(settingsOf(rate));
    QVERIFY2(recorder.start(), qPrintable(recorder.errorString()));
    Client client;
    QVERIFY(client.open(recorder, rate));
    QCOMPARE(client.askedSerial(), uint16_t(321));
    const auto time = client.ask<HydSetTimeCmd>(std::make_shared<HydSetTimeCmd>(1700000000));
    QVERIFY(time);
    QVERIFY(time->time() - 1700000000 < 60);
    const auto setup =
        client.ask<HydJobSetupEnq>(std::make_shared<HydJobSetupEnq>(JobTagMap(), JobSetupDefault));
    QVERIFY(setup);
    QVERIFY(!setup->jobSetup().empty());
    QCOMPARE(recorder.counters().commands, uint64_t(3));
}

void tst_SimulatedSerialLine::portsComeAndGo()
{
    SimulatedRecorder recorder(settingsOf(115200));
    QVERIFY(recorder.start());
    for (int i = 0; i < 3; ++i) {
        Client client;
        QVERIFY(client.open(recorder, 115200));
        QCOMPARE(client.askedSerial(), uint16_t(321));
    }
}

void tst_SimulatedSerialLine::tellsItsLine()
{
    SimulatedRecorder recorder(settingsOf(230400));
    QCOMPARE(recorder.serialPortName(), QString());
    QVERIFY(recorder.start());
    QVERIFY(QFile::exists(recorder.serialPortName()));
    QCOMPARE(recorder.listeningTexts(),
             QStringList(QStringLiteral("serial     %1 at 230400 bit/s").arg(recorder.serialPortName())));
    SimulatedRecorder other(settingsOf(0));
    QVERIFY(other.start());
    QCOMPARE(other.serialPortName(), QString());
}

void tst_SimulatedSerialLine::eachRecorderHasALine()
{
    SimulatedRecorder first(settingsOf(115200));
    auto settings = settingsOf(115200);
    settings.identity.serial = 5;
    SimulatedRecorder second(settings);
    QVERIFY(first.start() && second.start());
    Client a;
    Client b;
    QVERIFY(a.open(first, 115200) && b.open(second, 115200));
    QCOMPARE(b.askedSerial(), uint16_t(5));
    QCOMPARE(a.askedSerial(), uint16_t(321));
}

void tst_SimulatedSerialLine::restartLeavesTheLine()
{
    SimulatedRecorder recorder(settingsOf(115200));
    QVERIFY(recorder.start());
    Client client;
    QVERIFY(client.open(recorder, 115200));
    QVERIFY(client.ask<HydResetCmd>(std::make_shared<HydResetCmd>()));
    recorder.restart();
    QCOMPARE(client.askedSerial(), uint16_t(321));
    QVERIFY(client.closed.isEmpty());
}

void tst_SimulatedSerialLine::startsAgainOnAnotherLine()
{
    SimulatedRecorder recorder(settingsOf(115200));
    QVERIFY(recorder.start());
    recorder.stop();
    QCOMPARE(recorder.serialPortName(), QString());
    QVERIFY(recorder.start());
    Client client;
    QVERIFY(client.open(recorder, 115200));
    QCOMPARE(client.askedSerial(), uint16_t(321));
}

void tst_SimulatedSerialLine::isDeafAtOtherRates()
{
    SimulatedRecorder recorder(settingsOf(460800));
    QVERIFY(recorder.start());
    Client client;
    QVERIFY(client.open(recorder, 19200));
    for (const unsigned rate : {19200u, 115200u, 230400u, 921600u}) {
        client.adapter.setBaudRate(rate);
        QVERIFY(client.adapter.sendCommand(std::make_shared<HydEnquireCmd>()));
        QVERIFY(spyStaysEmpty(client.ready, 30));
    }
    QCOMPARE(recorder.counters().commands, uint64_t(0));
    client.adapter.setBaudRate(460800);
    QCOMPARE(client.askedSerial(), uint16_t(321));
}

void tst_SimulatedSerialLine::ratesThatNoLineHas_data()
{
    QTest::addColumn<uint32_t>("rate");
    QTest::newRow("odd") << uint32_t(12345);
    QTest::newRow("large") << uint32_t(0xFFFFFFFF);
}

void tst_SimulatedSerialLine::ratesThatNoLineHas()
{
    QFETCH(uint32_t, rate);
    SimulatedRecorder recorder(settingsOf(rate));
    QVERIFY(!recorder.start());
    QCOMPARE(recorder.errorString(),
             QStringLiteral("Serial line: %1 bit/s is no rate of a serial line.").arg(rate));
    QVERIFY(!recorder.isListening());
    QCOMPARE(recorder.serialPortName(), QString());
}

void tst_SimulatedSerialLine::mute()
{
    SimulatedRecorder recorder(settingsOf(115200, "silence:on=control"));
    QVERIFY(recorder.start());
    Client client;
    QVERIFY(client.open(recorder, 115200));
    QVERIFY(client.adapter.sendCommand(std::make_shared<HydEnquireCmd>()));
    QTRY_COMPARE(recorder.counters().commands, uint64_t(1));
    QVERIFY(spyStaysEmpty(client.ready, 50));
}

void tst_SimulatedSerialLine::junk()
{
    SimulatedRecorder recorder(settingsOf(115200, "bad-checksum:on=control,times=1"));
    QVERIFY(recorder.start());
    Client client;
    QVERIFY(client.open(recorder, 115200));
    QVERIFY(client.adapter.sendCommand(std::make_shared<HydEnquireCmd>()));
    QTRY_VERIFY(!client.ready.isEmpty());
    QVERIFY(client.replies.isEmpty());
    QCOMPARE(client.askedSerial(), uint16_t(321));
}

void tst_SimulatedSerialLine::vanishes_data()
{
    QTest::addColumn<QByteArray>("fault");
    QTest::newRow("at once") << QByteArray("reset:on=control");
    QTest::newRow("within an answer") << QByteArray("close:on=control,value=20");
}

void tst_SimulatedSerialLine::vanishes()
{
    QFETCH(QByteArray, fault);
    SimulatedRecorder recorder(settingsOf(115200, fault.constData()));
    QVERIFY(recorder.start());
    Client client;
    QVERIFY(client.open(recorder, 115200));
    QVERIFY(client.adapter.sendCommand(std::make_shared<HydEnquireCmd>()));
    QTRY_COMPARE(client.closed.count(), 1);
    QVERIFY(client.replies.isEmpty());
    QCOMPARE(recorder.serialPortName(), QString());
    QVERIFY(recorder.isListening());
}

void tst_SimulatedSerialLine::vanishesWhenStopped()
{
    SimulatedRecorder recorder(settingsOf(115200));
    QVERIFY(recorder.start());
    Client client;
    QVERIFY(client.open(recorder, 115200));
    recorder.stop();
    QTRY_COMPARE(client.closed.count(), 1);
}

void tst_SimulatedSerialLine::clientThatTakesNoRepliesIsCutOff()
{
    SimulatedRecorder recorder(settingsOf(115200));
    QVERIFY(recorder.start());
    const int port =
        ::open(recorder.serialPortName().toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    QVERIFY(port >= 0);
    termios settings{};
    tcgetattr(port, &settings);
    cfsetspeed(&settings, B115200);
    QCOMPARE(tcsetattr(port, TCSANOW, &settings), 0);
    const auto frame = HydControlMessage(std::make_shared<HydEnquireCmd>()).frame();
    std::vector<uint8_t> many;
    for (int i = 0; i < 100; ++i)
        many.insert(many.end(), frame.begin(), frame.end());
    const bool isCut = QTest::qWaitFor(
        [&] {
            [[maybe_unused]] const auto size = ::write(port, many.data(), many.size());
            return recorder.counters().channelsCut > 0;
        },
        kPatienceMs);
    ::close(port);
    QVERIFY(isCut);
    QCOMPARE(recorder.serialPortName(), QString());
}

QTEST_GUILESS_MAIN(tst_SimulatedSerialLine)
#include "tst_SimulatedSerialLine.moc"
