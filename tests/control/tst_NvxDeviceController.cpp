#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/control/NvxDeviceController.h"

#include <QSignalSpy>
#include <QTimeZone>

namespace {

using Response = std::shared_ptr<const HydControlMsgPayload>;

JobTagMap rateTags(unsigned rate)
{
    return {{JobTagWavRate, std::make_shared<HydWavSampleRateTag>(rate)}};
}

Response jobSetup(const JobTagMap& tags)
{
    return std::make_shared<HydJobSetupEnq>(tags, JobSetupDefault);
}

/// Every signal of a controller that a reply can cause.
class ReplySpies
{
public:
    explicit ReplySpies(NvxDeviceController& c)
        : enquire(&c, &NvxDeviceController::enquireResponse),
          gotFrom(&c, &NvxDeviceController::jobSetupGotFromDev),
          readFrom(&c, &NvxDeviceController::jobSetupReadFromDev),
          changed(&c, &NvxDeviceController::jobSettingsChanged),
          setupErr(&c, &NvxDeviceController::jobSetupErr), time(&c, &NvxDeviceController::timeChanged),
          timeErr(&c, &NvxDeviceController::timeChangeErr), reset(&c, &NvxDeviceController::signalDevReset),
          timeSync(&c, &NvxDeviceController::enquireResponseTimeSync),
          sent(&c, &NvxDeviceController::jobSetupSentToDev), text(&c, &NvxDeviceController::signalErrorMes),
          triggers(&c, &NvxDeviceController::signalTrigUdated)
    {
    }
    qsizetype total() const
    {
        return enquire.count() + gotFrom.count() + readFrom.count() + changed.count() + setupErr.count() +
               time.count() + timeErr.count() + reset.count() + timeSync.count() + sent.count() +
               text.count() + triggers.count();
    }

    QSignalSpy enquire, gotFrom, readFrom, changed, setupErr, time, timeErr, reset, timeSync, sent, text,
        triggers;
};

HydSetTimeCmd hostTime()
{
    return HydSetTimeCmd(int(QDateTime::currentSecsSinceEpoch()));
}

/// Hands the controller a time reply that equals the host's time when it is looked at.
void replyWithHostTime(NvxDeviceController& controller)
{
    // Far from the end of a second, so that it doesn't pass in between.
    while (QDateTime::currentMSecsSinceEpoch() % 1000 > 300)
        QCoreApplication::processEvents();
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(hostTime()));
}

void replyWithOtherTime(NvxDeviceController& controller)
{
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(hostTime().time() - 1000));
}

} // namespace

/// What a controller makes of replies and what it keeps, without a connection.
class tst_NvxDeviceController : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void freshController();
    void timeReplyIsKept();
    void clockRunsUntilCloseAll();
    void secondTimeReplyLeavesTheTickAlone();
    void twoEqualTimesInARowSetTheSync();
    void acceptedJobSetup();
    void enquireReply();
    void jobSetupRead();
    void settingsReadyFollowsTheReads();
    void resetReplyOfAnyClass();
    void timeSyncReply();
    void errorTextIsPassedOn();
    void virtualHandlersAreCalled();
    void settersKeepTheirValues();
    void deviceTimes();
    void streamStatus();
    void configStatCanBeCleared();
    void mergeSendsNothing();
    void setupIsPendingOnceItIsOnItsWay_data();
    void setupIsPendingOnceItIsOnItsWay();
    // --- rainy day flows
    void failedTimeChangesNothing();
    void oneEqualTimeIsNotEnough();
    void mismatchStartsCountingAnew();
    void syncIsNeverCleared();
    void readingsUnderSyncAreNotCounted();
    void clockAtTheEndOfItsRange();
    void refusedJobSetup();
    void nullResponseIsLogged();
    void replyOfAnotherClassIsDropped_data();
    void replyOfAnotherClassIsDropped();
    void otherLettersAreIgnored_data();
    void otherLettersAreIgnored();
    void nullDeviceInConstructor();
    void withoutARecordNothingHappens();
    void recordReplacedByAReceiver();
    void destroyedByAReceiver_data();
    void destroyedByAReceiver();
};

void tst_NvxDeviceController::freshController()
{
    NvxDeviceController controller(ConnTcp);
    QVERIFY(controller.device() != nullptr);
    QCOMPARE(controller.device()->devType(), DevTypeAny);
    QCOMPARE(controller.devicePtr().get(), controller.device());
    QVERIFY(!controller.settingsReady());
    QVERIFY(!controller.isCmdChanOpen());
    QCOMPARE(controller.serialPortName(), QString());
    QVERIFY(!controller.findChild<QTimer*>()->isActive());
}

void tst_NvxDeviceController::timeReplyIsKept()
{
    NvxDeviceController controller(ConnTcp);
    ReplySpies spies(controller);
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(1700000000));
    QCOMPARE(controller.device()->timeUtc(), 1700000000);
    QCOMPARE(spies.time.count(), 1);
    QCOMPARE(spies.time[0][0].value<NvxDevice>().timeUtc(), 1700000000);
    QCOMPARE(spies.total(), 1);
    const auto* timer = controller.findChild<QTimer*>();
    QVERIFY(timer->isActive());
    QCOMPARE(timer->interval(), 1000);
}

void tst_NvxDeviceController::clockRunsUntilCloseAll()
{
    NvxDeviceController controller(ConnTcp);
    ReplySpies spies(controller);
    controller.tickDeviceTime();
    QCOMPARE(controller.device()->timeUtc(), 1);
    QCOMPARE(spies.time.count(), 1);

    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(500));
    QTRY_VERIFY(spies.time.count() >= 3);
    QCOMPARE(spies.time[2][0].value<NvxDevice>().timeUtc(), 501);
    controller.closeAll();
    QVERIFY(!controller.findChild<QTimer*>()->isActive());
    controller.closeAll();
}

void tst_NvxDeviceController::secondTimeReplyLeavesTheTickAlone()
{
    NvxDeviceController controller(ConnTcp);
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(500));
    auto* timer = controller.findChild<QTimer*>();
    timer->start(5000);
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(600));
    QCOMPARE(timer->interval(), 5000);
    QCOMPARE(controller.device()->timeUtc(), 600);
}

void tst_NvxDeviceController::twoEqualTimesInARowSetTheSync()
{
    NvxDeviceController controller(ConnTcp);
    replyWithHostTime(controller);
    QVERIFY(!controller.device()->timeSync());
    replyWithHostTime(controller);
    QVERIFY(controller.device()->timeSync());
}

void tst_NvxDeviceController::acceptedJobSetup()
{
    NvxDeviceController controller(ConnTcp);
    controller.device()->mergeJobSettings(HydJobSettings(rateTags(8000)));
    ReplySpies spies(controller);
    controller.handleAdapterResponse(std::make_shared<HydJobSetupCmd>(
        JobTagMap{{JobTagFftAccum, std::make_shared<HydFftAccumTag>(4u)}}, JobSetupDefault));
    QCOMPARE(controller.device()->configStat(), ConfigConfirmed);
    QCOMPARE(controller.device()->jobSettings().fftAccum(), 4u);
    QCOMPARE(unsigned(controller.device()->jobSettings().wavRate()), 8000u);
    QCOMPARE(spies.gotFrom.count(), 1);
    QCOMPARE(spies.gotFrom[0][0].value<NvxDevice>().configStat(), ConfigConfirmed);
    QCOMPARE(spies.total(), 1);
}

void tst_NvxDeviceController::enquireReply()
{
    NvxDeviceController controller(ConnTcp);
    ReplySpies spies(controller);
    HydEnquireCmd::Report report;
    report.devType = DevTypeRecorderB;
    report.serial = 345;
    report.firmwareVer = "1.2";
    const auto reply = std::make_shared<HydEnquireCmd>(report);
    controller.handleAdapterResponse(reply);
    QCOMPARE(spies.enquire.count(), 1);
    QCOMPARE(spies.enquire[0][0].value<NvxDevice>().serial(), uint16_t(345));
    QCOMPARE(spies.enquire[0][1].toBool(), true);
    QCOMPARE(controller.device()->firmwareVer(), std::string("1.2"));
    // The same again changes nothing, and is reported all the same.
    controller.handleAdapterResponse(reply);
    QCOMPARE(spies.enquire.count(), 2);
    QCOMPARE(spies.enquire[1][1].toBool(), false);
    QCOMPARE(spies.total(), 2);
}

void tst_NvxDeviceController::jobSetupRead()
{
    NvxDeviceController controller(ConnTcp);
    ReplySpies spies(controller);
    controller.handleAdapterResponse(jobSetup(rateTags(64000)));
    QCOMPARE(unsigned(controller.device()->jobSettings().wavRate()), 64000u);
    QCOMPARE(spies.changed.count(), 1);
    QCOMPARE(spies.changed[0][0].value<std::shared_ptr<NvxDevice>>().get(), controller.device());
    QCOMPARE(spies.readFrom.count(), 1);
    controller.handleAdapterResponse(jobSetup(rateTags(64000)));
    QCOMPARE(spies.changed.count(), 1);
    QCOMPARE(spies.readFrom.count(), 2);
    QCOMPARE(spies.total(), 3);
}

void tst_NvxDeviceController::settingsReadyFollowsTheReads()
{
    NvxDeviceController controller(ConnTcp);
    controller.handleAdapterResponse(jobSetup({}));
    QVERIFY(!controller.settingsReady());
    controller.handleAdapterResponse(jobSetup(rateTags(64000)));
    QVERIFY(controller.settingsReady());
    controller.handleAdapterResponse(jobSetup(rateTags(64000)));
    QVERIFY(controller.settingsReady());
    controller.handleAdapterResponse(jobSetup(rateTags(32000)));
    QVERIFY(!controller.settingsReady());
    controller.handleAdapterResponse(jobSetup(rateTags(32000)));
    QVERIFY(!controller.settingsReady());
}

void tst_NvxDeviceController::resetReplyOfAnyClass()
{
    NvxDeviceController controller(ConnTcp);
    ReplySpies spies(controller);
    controller.handleAdapterResponse(std::make_shared<HydResetCmd>());
    controller.handleAdapterResponse(std::make_shared<HydMsgPayload>('Y'));
    QCOMPARE(spies.reset.count(), 2);
    QCOMPARE(spies.total(), 2);
}

void tst_NvxDeviceController::timeSyncReply()
{
    NvxDeviceController controller(ConnTcp);
    ReplySpies spies(controller);
    const auto reply = std::make_shared<HydEnquireTimeSync>(2, 7, -40, 99);
    controller.handleAdapterResponse(reply);
    QCOMPARE(spies.timeSync.count(), 1);
    QCOMPARE(spies.timeSync[0][0].value<std::shared_ptr<const HydEnquireTimeSync>>(), reply);
    QCOMPARE(spies.timeSync[0][1].value<std::shared_ptr<HydDevice>>(), controller.devicePtr());
    QCOMPARE(spies.total(), 1);
}

void tst_NvxDeviceController::errorTextIsPassedOn()
{
    NvxDeviceController controller(ConnTcp);
    ReplySpies spies(controller);
    controller.handleErrorResponse("the text");
    QCOMPARE(spies.text.count(), 1);
    QCOMPARE(spies.text[0][0].value<std::string>(), std::string("the text"));
}

void tst_NvxDeviceController::virtualHandlersAreCalled()
{
    class Counting : public NvxDeviceController
    {
    public:
        using NvxDeviceController::NvxDeviceController;
        void sendEnquire() const override { order += 'E'; }
        void enquireJobSetup() const override { order += 'F'; }
        void enquireTriggers() const override { order += 'R'; }
        mutable QByteArray order;
    };
    Counting controller(ConnTcp);
    controller.startUpProc();
    QCOMPARE(controller.order, QByteArray("EFR"));
}

void tst_NvxDeviceController::settersKeepTheirValues()
{
    NvxDeviceController controller(ConnSerial);
    controller.setBaudRate(460800);
    controller.setSerialPortName(QStringLiteral("ttyS9"));
    controller.setSettingsReady(true);
    QCOMPARE(controller.baudRate(), 460800u);
    QCOMPARE(controller.serialPortName(), QStringLiteral("ttyS9"));
    QVERIFY(controller.settingsReady());
    const auto device = std::make_shared<HydDevice>(DevTypeRecorderA);
    controller.setDevice(device);
    QCOMPARE(controller.devicePtr(), device);
    QCOMPARE(controller.device(), device.get());
}

void tst_NvxDeviceController::deviceTimes()
{
    NvxDeviceController controller(ConnTcp);
    controller.device()->setTimeUtc(1700000000);
    const QDateTime expected(QDate(2023, 11, 14), QTime(22, 13, 20), Qt::UTC);
    QCOMPARE(controller.deviceTimeUtc(), expected);
    QCOMPARE(controller.deviceTimeUtc().timeSpec(), Qt::UTC);
    QCOMPARE(controller.deviceTimeLocal(), expected);
    QCOMPARE(controller.deviceTimeLocal().timeSpec(), Qt::LocalTime);
}

void tst_NvxDeviceController::streamStatus()
{
    NvxDeviceController controller(ConnTcp);
    controller.updateStreamStatus(HydPort(51000), PortConnected);
    controller.updateStreamStatus(HydPort(51001), PortReachable);
    QCOMPARE(controller.device()->streamPortStatus(HydPort(51000)), PortConnected);
    QCOMPARE(controller.device()->streamPortStatus(HydPort(51001)), PortReachable);
}

void tst_NvxDeviceController::configStatCanBeCleared()
{
    NvxDeviceController controller(ConnTcp);
    controller.device()->setConfigStat(ConfigRejected);
    controller.clearConfigStat();
    QCOMPARE(controller.device()->configStat(), ConfigNone);
}

void tst_NvxDeviceController::mergeSendsNothing()
{
    NvxDeviceController controller(ConnTcp);
    QSignalSpy commands(&controller, &NvxDeviceController::adapterCmdReady);
    controller.mergeJobSettings(rateTags(96000));
    QCOMPARE(unsigned(controller.device()->jobSettings().wavRate()), 96000u);
    QCOMPARE(controller.device()->configStat(), ConfigNone);
    QVERIFY(commands.isEmpty());
}

void tst_NvxDeviceController::setupIsPendingOnceItIsOnItsWay_data()
{
    QTest::addColumn<bool>("isDelayed");
    QTest::newRow("at once") << false;
    QTest::newRow("delayed") << true;
}

void tst_NvxDeviceController::setupIsPendingOnceItIsOnItsWay()
{
    QFETCH(bool, isDelayed);
    NvxDeviceController controller(ConnTcp);
    std::vector<HydConfigStat> states;
    connect(&controller, &NvxDeviceController::adapterCmdReady, this,
            [&] { states.push_back(controller.device()->configStat()); });
    controller.sendJobSetup(rateTags(8000), isDelayed);
    // One that leaves at once does so ahead of the change of state; a delayed one waits.
    QCOMPARE(states.size(), size_t(isDelayed ? 0 : 1));
    QCOMPARE(controller.device()->configStat(), ConfigPending);
    // The command and its reading back.
    QTRY_COMPARE(states.size(), size_t{2});
    QCOMPARE(states, (std::vector{isDelayed ? ConfigPending : ConfigNone, ConfigPending}));
}

void tst_NvxDeviceController::failedTimeChangesNothing()
{
    NvxDeviceController controller(ConnTcp);
    controller.device()->setTimeUtc(77);
    ReplySpies spies(controller);
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(-1));
    QCOMPARE(spies.timeErr.count(), 1);
    QCOMPARE(spies.total(), 1);
    QCOMPARE(controller.device()->timeUtc(), 77);
    QVERIFY(!controller.findChild<QTimer*>()->isActive());
    // Every other number is a time.
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(-2));
    QCOMPARE(controller.device()->timeUtc(), -2);
}

void tst_NvxDeviceController::oneEqualTimeIsNotEnough()
{
    NvxDeviceController controller(ConnTcp);
    replyWithHostTime(controller);
    QVERIFY(!controller.device()->timeSync());
    QCOMPARE(controller.findChild<QTimer*>()->isActive(), true);
}

void tst_NvxDeviceController::mismatchStartsCountingAnew()
{
    NvxDeviceController controller(ConnTcp);
    for (int i = 0; i < 5; ++i) {
        replyWithHostTime(controller);
        QVERIFY(!controller.device()->timeSync());
        replyWithOtherTime(controller);
        QVERIFY(!controller.device()->timeSync());
    }
    replyWithHostTime(controller);
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(-1));
    // A failed time is no reading: the one before still counts.
    replyWithHostTime(controller);
    QVERIFY(controller.device()->timeSync());
}

void tst_NvxDeviceController::syncIsNeverCleared()
{
    NvxDeviceController controller(ConnTcp);
    replyWithHostTime(controller);
    replyWithHostTime(controller);
    QVERIFY(controller.device()->timeSync());
    for (int i = 0; i < 3; ++i)
        replyWithOtherTime(controller);
    QVERIFY(controller.device()->timeSync());
    // Even where the application clears it, the largest count reached sets it again with any reading.
    controller.device()->setTimeSync(false);
    replyWithOtherTime(controller);
    QVERIFY(controller.device()->timeSync());
}

void tst_NvxDeviceController::readingsUnderSyncAreNotCounted()
{
    NvxDeviceController controller(ConnTcp);
    controller.device()->setTimeSync(true);
    for (int i = 0; i < 5; ++i)
        replyWithHostTime(controller);
    controller.device()->setTimeSync(false);
    // Had they counted, one reading more would do.
    replyWithHostTime(controller);
    QVERIFY(!controller.device()->timeSync());
    controller.device()->setTimeSync(true);
    // Nor does one that differs set the count back.
    replyWithOtherTime(controller);
    controller.device()->setTimeSync(false);
    replyWithHostTime(controller);
    QVERIFY(controller.device()->timeSync());
}

void tst_NvxDeviceController::clockAtTheEndOfItsRange()
{
    NvxDeviceController controller(ConnTcp);
    controller.device()->setTimeUtc(std::numeric_limits<int>::max());
    controller.tickDeviceTime();
    QCOMPARE(controller.device()->timeUtc(), std::numeric_limits<int>::min());
}

void tst_NvxDeviceController::refusedJobSetup()
{
    NvxDeviceController controller(ConnTcp);
    controller.device()->mergeJobSettings(HydJobSettings(rateTags(8000)));
    ReplySpies spies(controller);
    LogSpy log;
    controller.handleAdapterResponse(
        std::make_shared<HydJobSetupCmd>(rateTags(96000), JobSetupDefault, uint16_t(513)));
    QCOMPARE(controller.device()->configStat(), ConfigRejected);
    QCOMPARE(unsigned(controller.device()->jobSettings().wavRate()), 8000u);
    QCOMPARE(spies.setupErr.count(), 1);
    QCOMPARE(spies.setupErr[0][0].value<std::shared_ptr<NvxDevice>>().get(), controller.device());
    QCOMPARE(spies.setupErr[0][1].value<std::shared_ptr<HydJobSetupErr>>()->errorCode(), uint16_t(513));
    QCOMPARE(spies.total(), 1);
    QVERIFY(log.contains(QStringLiteral("JOB SETUP ERROR CODE: 513")));
}

void tst_NvxDeviceController::nullResponseIsLogged()
{
    NvxDeviceController controller(ConnTcp);
    ReplySpies spies(controller);
    LogSpy log;
    controller.handleAdapterResponse(nullptr);
    QVERIFY(log.contains(QStringLiteral("nullptr == resp: handleAdapterResponse")));
    QCOMPARE(spies.total(), 0);
}

void tst_NvxDeviceController::replyOfAnotherClassIsDropped_data()
{
    QTest::addColumn<char>("letter");
    for (const char letter : {'A', 'D', 'E', 'F', '['})
        QTest::newRow(QByteArray(1, letter).constData()) << letter;
}

void tst_NvxDeviceController::replyOfAnotherClassIsDropped()
{
    QFETCH(char, letter);
    NvxDeviceController controller(ConnTcp);
    ReplySpies spies(controller);
    controller.handleAdapterResponse(std::make_shared<HydMsgPayload>(uint8_t(letter)));
    QCOMPARE(spies.total(), 0);
    QCOMPARE(controller.device()->configStat(), ConfigNone);
    QCOMPARE(controller.device()->timeUtc(), 0);
}

void tst_NvxDeviceController::otherLettersAreIgnored_data()
{
    QTest::addColumn<char>("letter");
    for (const char letter : {'C', 'S', 'U', 'V', 'X', '\0'})
        QTest::addRow("%d", letter) << letter;
}

void tst_NvxDeviceController::otherLettersAreIgnored()
{
    QFETCH(char, letter);
    NvxDeviceController controller(ConnTcp);
    ReplySpies spies(controller);
    controller.handleAdapterResponse(std::make_shared<HydMsgPayload>(uint8_t(letter)));
    QCOMPARE(spies.total(), 0);
}

void tst_NvxDeviceController::nullDeviceInConstructor()
{
    NvxDeviceController controller(nullptr, ConnTcp);
    QVERIFY(controller.device() != nullptr);
    QCOMPARE(controller.device()->devType(), DevTypeAny);
}

void tst_NvxDeviceController::withoutARecordNothingHappens()
{
    NvxDeviceController controller(ConnTcp);
    controller.setDevice(nullptr);
    ReplySpies spies(controller);
    QSignalSpy opened(&controller, &NvxDeviceController::channelOpen);
    QSignalSpy closed(&controller, &NvxDeviceController::channelClosed);
    controller.handleAdapterConnection();
    controller.handleAdapterClosed();
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(5));
    controller.tickDeviceTime();
    controller.updateStreamStatus(HydPort(1), PortConnected);
    controller.clearConfigStat();
    controller.mergeJobSettings(rateTags(1));
    controller.sendJobSetup(rateTags(1), false);
    controller.startUpProc();
    controller.zcrProcEnquire();
    controller.closeAll();
    QCOMPARE(controller.deviceTimeUtc().toSecsSinceEpoch(), 0);
    QCOMPARE(opened.count() + closed.count() + spies.total(), 0);
}

void tst_NvxDeviceController::recordReplacedByAReceiver()
{
    NvxDeviceController controller(ConnTcp);
    std::weak_ptr<HydDevice> old = controller.devicePtr();
    QList<int> seen;
    for (int receiver = 0; receiver < 2; ++receiver) {
        connect(&controller, &NvxDeviceController::timeChanged, this, [&](const NvxDevice& device) {
            controller.setDevice(std::make_shared<HydDevice>(DevTypeRecorderA));
            // The record of this report lives until all have had it.
            seen << device.timeUtc();
        });
    }
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(500));
    QCOMPARE(seen, QList<int>({500, 500}));
    QVERIFY(old.expired());
    controller.device()->setTimeUtc(70);
    controller.tickDeviceTime();
    QCOMPARE(seen, QList<int>({500, 500, 71, 71}));
}

void tst_NvxDeviceController::destroyedByAReceiver_data()
{
    QTest::addColumn<Response>("reply");
    QTest::newRow("time") << Response(std::make_shared<HydSetTimeCmd>(5));
    QTest::newRow("failed time") << Response(std::make_shared<HydSetTimeCmd>(-1));
    QTest::newRow("accepted setup") << Response(
        std::make_shared<HydJobSetupCmd>(JobTagMap(), JobSetupDefault));
    QTest::newRow("refused setup") << Response(
        std::make_shared<HydJobSetupCmd>(JobTagMap(), JobSetupDefault, uint16_t(1)));
    QTest::newRow("enquiry") << Response(std::make_shared<HydEnquireCmd>());
    QTest::newRow("setup read") << jobSetup(rateTags(4));
    QTest::newRow("reset") << Response(std::make_shared<HydResetCmd>());
    QTest::newRow("time sync") << Response(std::make_shared<HydEnquireTimeSync>());
}

void tst_NvxDeviceController::destroyedByAReceiver()
{
    QFETCH(Response, reply);
    auto controller = std::make_unique<NvxDeviceController>(ConnTcp);
    auto* raw = controller.get();
    int calls = 0;
    const auto destroy = [&] {
        ++calls;
        controller.reset();
    };
    connect(raw, &NvxDeviceController::timeChanged, this, destroy);
    connect(raw, &NvxDeviceController::timeChangeErr, this, destroy);
    connect(raw, &NvxDeviceController::jobSetupGotFromDev, this, destroy);
    connect(raw, &NvxDeviceController::jobSetupErr, this, destroy);
    connect(raw, &NvxDeviceController::enquireResponse, this, destroy);
    connect(raw, &NvxDeviceController::jobSettingsChanged, this, destroy);
    connect(raw, &NvxDeviceController::jobSetupReadFromDev, this, destroy);
    connect(raw, &NvxDeviceController::signalDevReset, this, destroy);
    connect(raw, &NvxDeviceController::enquireResponseTimeSync, this, destroy);
    raw->handleAdapterResponse(reply);
    QCOMPARE(calls, 1);
    QVERIFY(!controller);
}

QTEST_GUILESS_MAIN(tst_NvxDeviceController)
#include "tst_NvxDeviceController.moc"
