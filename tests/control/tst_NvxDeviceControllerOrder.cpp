#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/control/HydDeviceController.h"

#include <QSignalSpy>

namespace {

JobTagMap rateTags(unsigned rate)
{
    return {{JobTagWavRate, std::make_shared<HydWavSampleRateTag>(rate)}};
}

JobTagMap unknownTag(uint8_t value)
{
    const auto key = JobTagKey(0x4000);
    return {{key, std::make_shared<HydRawTag>(key, std::vector<uint8_t>{value})}};
}

void readSetup(NvxDeviceController& controller, const JobTagMap& tags)
{
    controller.handleAdapterResponse(std::make_shared<HydJobSetupEnq>(tags, JobSetupDefault));
}

} // namespace

/// What a controller has done and what it hasn't when a signal of it comes, and in which order they come.
class tst_NvxDeviceControllerOrder : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void portStateStandsAtTheSignal();
    void timeStandsAtTheSignalAndTheTickStartsAfterIt();
    void changeIsToldAheadOfTheReading();
    void readyFlagStandsAtTheChange();
    void setupIsTakenAtTheSignal();
    void delayedSetupIsACopy();
    void collectIsConfiguredAheadOfTheRequest();
    // --- rainy day flows
    void refusalIsToldAheadOfItsLine();
    void setupThatComparesEqualLeavesTheRecord();
};

void tst_NvxDeviceControllerOrder::portStateStandsAtTheSignal()
{
    NvxDeviceController controller(ConnTcp);
    std::vector<HydPortConnStatus> states;
    const auto note = [&] { states.push_back(controller.device()->cmdPortStatus()); };
    connect(&controller, &NvxDeviceController::channelOpen, this, note);
    connect(&controller, &NvxDeviceController::channelClosed, this, note);
    controller.handleAdapterConnection();
    controller.handleAdapterClosed();
    QCOMPARE(states, (std::vector{PortConnected, PortReachable}));
}

void tst_NvxDeviceControllerOrder::timeStandsAtTheSignalAndTheTickStartsAfterIt()
{
    NvxDeviceController controller(ConnTcp);
    const auto* timer = controller.findChild<QTimer*>();
    int time = 0;
    bool isTicking = true;
    connect(&controller, &NvxDeviceController::timeChanged, this, [&] {
        time = controller.device()->timeUtc();
        isTicking = timer->isActive();
    });
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(500));
    QCOMPARE(time, 500);
    QVERIFY(!isTicking);
    QVERIFY(timer->isActive());
    controller.tickDeviceTime();
    QCOMPARE(time, 501);
}

void tst_NvxDeviceControllerOrder::changeIsToldAheadOfTheReading()
{
    NvxDeviceController controller(ConnTcp);
    QByteArray order;
    connect(&controller, &NvxDeviceController::jobSettingsChanged, this, [&] { order += 'c'; });
    connect(&controller, &NvxDeviceController::jobSetupReadFromDev, this, [&] { order += 'r'; });
    readSetup(controller, rateTags(8000));
    readSetup(controller, rateTags(8000));
    readSetup(controller, rateTags(16000));
    QCOMPARE(order, QByteArray("crrcr"));
}

void tst_NvxDeviceControllerOrder::readyFlagStandsAtTheChange()
{
    NvxDeviceController controller(ConnTcp);
    QList<bool> flags;
    QList<unsigned> rates;
    connect(&controller, &NvxDeviceController::jobSettingsChanged, this, [&] {
        flags << controller.settingsReady();
        rates << unsigned(controller.device()->jobSettings().wavRate());
    });
    readSetup(controller, rateTags(8000));
    readSetup(controller, rateTags(16000));
    QCOMPARE(flags, (QList<bool>{true, false}));
    QCOMPARE(rates, (QList<unsigned>{8000, 16000}));
    // The flag says what the record held before, whatever the application made of it.
    controller.setSettingsReady(true);
    readSetup(controller, rateTags(16000));
    QVERIFY(controller.settingsReady());
    readSetup(controller, rateTags(32000));
    QVERIFY(!controller.settingsReady());
}

void tst_NvxDeviceControllerOrder::setupIsTakenAtTheSignal()
{
    NvxDeviceController controller(ConnTcp);
    HydConfigStat state = ConfigNone;
    unsigned rate = 0;
    connect(&controller, &NvxDeviceController::jobSetupGotFromDev, this, [&] {
        state = controller.device()->configStat();
        rate = unsigned(controller.device()->jobSettings().wavRate());
    });
    controller.handleAdapterResponse(std::make_shared<HydJobSetupCmd>(rateTags(8000), JobSetupDefault));
    QCOMPARE(state, ConfigConfirmed);
    QCOMPARE(rate, 8000U);
}

void tst_NvxDeviceControllerOrder::delayedSetupIsACopy()
{
    NvxDeviceController controller(ConnTcp);
    QSignalSpy commands(&controller, &NvxDeviceController::adapterCmdReady);
    auto tags = rateTags(8000);
    controller.sendJobSetup(tags, true);
    tags = rateTags(16000);
    QTRY_VERIFY(!commands.isEmpty());
    const auto command = std::dynamic_pointer_cast<HydJobSetupCmd>(
        commands[0][0].value<std::shared_ptr<HydControlMsgPayload>>());
    QVERIFY(command);
    QCOMPARE(command->jobSetup().at(JobTagWavRate)->number(), int64_t{8000});
    QCOMPARE(int(command->type()), 20);
}

void tst_NvxDeviceControllerOrder::collectIsConfiguredAheadOfTheRequest()
{
    HydDeviceController controller(ConnTcp);
    QByteArray order;
    uint8_t mask = 0;
    connect(&controller, &NvxDeviceController::setDataScanConf, this, [&] {
        order += 'c';
        mask = controller.scanMask();
    });
    connect(&controller, &NvxDeviceController::adapterCmdReady, this, [&] { order += 's'; });
    controller.startDataCollect(0x30);
    QCOMPARE(order, QByteArray("cs"));
    QCOMPARE(mask, uint8_t(0x30));
}

void tst_NvxDeviceControllerOrder::refusalIsToldAheadOfItsLine()
{
    NvxDeviceController controller(ConnTcp);
    LogSpy log;
    qsizetype lines = -1;
    HydConfigStat state = ConfigNone;
    connect(&controller, &NvxDeviceController::jobSetupErr, this, [&] {
        lines = log.lines().size();
        state = controller.device()->configStat();
    });
    controller.handleAdapterResponse(
        std::make_shared<HydJobSetupCmd>(rateTags(8000), JobSetupDefault, uint16_t(7)));
    QCOMPARE(lines, 0);
    QCOMPARE(state, ConfigRejected);
    QCOMPARE(log.lines(), QStringList{QStringLiteral("JOB SETUP ERROR CODE: 7")});
}

void tst_NvxDeviceControllerOrder::setupThatComparesEqualLeavesTheRecord()
{
    // Tags without a getter count by their number only, so that their new values aren't taken over. Intended.
    NvxDeviceController controller(ConnTcp);
    readSetup(controller, unknownTag(1));
    QSignalSpy changed(&controller, &NvxDeviceController::jobSettingsChanged);
    QSignalSpy read(&controller, &NvxDeviceController::jobSetupReadFromDev);
    readSetup(controller, unknownTag(2));
    QCOMPARE(changed.count(), 0);
    QCOMPARE(read.count(), 1);
    QCOMPARE(controller.device()->jobSettings().toString(), std::string("TAG_16384=1"));
}

QTEST_GUILESS_MAIN(tst_NvxDeviceControllerOrder)
#include "tst_NvxDeviceControllerOrder.moc"
