#include "tests/array/ArrayController.h"
#include "tests/support/NvxTestCase.h"

#include <QSignalSpy>

#include <functional>
#include <limits>

namespace {

using Step = std::function<void(ArrayController&)>;

constexpr uint32_t kAddress = 0x7F510701;
const QString kNoArray = QStringLiteral("no array");
const QString kErrorStream = QStringLiteral("error stream");

HydJobSettings gainOf(unsigned gain)
{
    HydJobSettings settings;
    settings.setWavGain(gain);
    return settings;
}

} // namespace

Q_DECLARE_METATYPE(Step)

/// What an array controller's controller makes of what its adapter tells.
class tst_ZcrDeviceController : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void ownsAnArrayRecord();
    void takesTheRecordGiven();
    void beginsIdle();
    void adapterSignals_data();
    void adapterSignals();
    void settingsOfTheFirstChannel();
    void fileOpensTheWebSocket();
    void wholeListIsReported();
    void repliesAreHandledLikeOthers();
    void timeReplies_data();
    void timeReplies();
    void othersGetTheirOwnArguments();
    // --- rainy day flows
    void nothingGoesOutOnACommandChannel();
    void baseReachesTheChildByHooks();
    void plainControllerOfAnArrayRecord();
    void noChannels_data();
    void noChannels();
    void sensitivities_data();
    void sensitivities();
    void lastChannelOfAnotherClass_data();
    void lastChannelOfAnotherClass();
    void errorStreamEndsTheReport();
    void filledWithoutChannels();
    void recordOfAnotherClass();
    void withoutARecord();
    void connectionIsNeverToldClosed();
    void ownCloseLeavesTheClock();
};

void tst_ZcrDeviceController::ownsAnArrayRecord()
{
    ZcrDeviceController controller(ConnTcp);
    QCOMPARE(controller.device()->devType(), DevTypeZcr);
    QVERIFY(dynamic_cast<ZcrDevice*>(controller.device()) != nullptr);
    ZcrDeviceController fromNull(nullptr, ConnTcp);
    QCOMPARE(fromNull.device()->devType(), DevTypeZcr);
    QVERIFY(dynamic_cast<ZcrDevice*>(fromNull.device()) != nullptr);
}

void tst_ZcrDeviceController::takesTheRecordGiven()
{
    const auto device = std::make_shared<ZcrDevice>(DevTypeZcr);
    QObject parent;
    auto* controller = new ZcrDeviceController(device, ConnTcp, &parent);
    QCOMPARE(controller->devicePtr(), device);
    QCOMPARE(controller->parent(), &parent);
}

void tst_ZcrDeviceController::beginsIdle()
{
    ZcrDeviceController controller(ConnTcp);
    QVERIFY(controller.isEnabledZcrCgiCon());
    QVERIFY(!controller.isCmdChanOpen());
    QVERIFY(controller.adapter() != nullptr);
    QVERIFY(controller.adapter()->parent() == nullptr);
    QVERIFY(controller.adapter()->manager() == nullptr);
    QVERIFY(controller.adapter()->isUnConnected());
    QVERIFY(controller.adapter()->hydDeviceList().empty());
}

void tst_ZcrDeviceController::adapterSignals_data()
{
    QTest::addColumn<Step>("emission");
    QTest::addColumn<QStringList>("told");
    const auto row = [](const char* name, const Step& emission, const QStringList& told) {
        QTest::newRow(name) << emission << told;
    };
    row("connection open", [](ArrayController& c) { Q_EMIT c.adapter.connectionOpen(); },
        {QStringLiteral("open 600 0")});
    row("connection closed", [](ArrayController& c) { Q_EMIT c.adapter.connectionClosed(); },
        {QStringLiteral("closed 600 0")});
    row("configuration", [](ArrayController& c) { Q_EMIT c.adapter.signalZcrConfigRead(true); }, {kNoArray});
    row(
        "list filled", [](ArrayController& c) { Q_EMIT c.adapter.signalZcrDevListFilled(); }, wholeReport());
    row("own time", [](ArrayController& c) { Q_EMIT c.adapter.signalZcrTime(600, 7); },
        {QStringLiteral("own time 7")});
    row("time of another", [](ArrayController& c) { Q_EMIT c.adapter.signalZcrTime(601, 7); },
        {QStringLiteral("time 601 7")});
    row("own reset",
        [](ArrayController& c) { Q_EMIT c.adapter.signalResetZCR(HydDeviceId(DevTypeZcr, 600)); },
        {QStringLiteral("reset 600")});
    // The serial number alone decides.
    row("reset of a channel with this serial number",
        [](ArrayController& c) { Q_EMIT c.adapter.signalResetZCR(HydDeviceId(DevTypeSkiff, 600)); },
        {QStringLiteral("reset 600")});
    row("reset of another",
        [](ArrayController& c) { Q_EMIT c.adapter.signalResetZCR(HydDeviceId(DevTypeZcr, 601)); }, {});
    row("settings of another",
        [](ArrayController& c) {
            HydJobSettings settings = gainOf(6);
            Q_EMIT c.adapter.signalZCRSetConfigRead(settings, 601);
        },
        {QStringLiteral("settings 601 6")});
    row("settings, whose ever they are",
        [](ArrayController& c) {
            HydJobSettings settings = gainOf(6);
            Q_EMIT c.adapter.signalZCRSetConfigRead(settings, 600);
        },
        {QStringLiteral("settings 600 6")});
    row("channels of another",
        [](ArrayController& c) {
            std::vector<HydDeviceId> ids(3);
            Q_EMIT c.adapter.signalZCRArrayRead(ids, 601);
        },
        {QStringLiteral("channels 601 3")});
}

void tst_ZcrDeviceController::adapterSignals()
{
    QFETCH(Step, emission);
    QFETCH(QStringList, told);
    MuteArrayController array(kAddress);
    emission(array);
    QCOMPARE(array.told(), told);
}

void tst_ZcrDeviceController::settingsOfTheFirstChannel()
{
    MuteArrayController array(kAddress);
    array.listChannels({0, 0});
    array.adapter.hydDeviceList()[0]->mergeJobSettings(gainOf(6));
    array.adapter.hydDeviceList()[1]->mergeJobSettings(gainOf(9));
    HydJobSettings own;
    own.setFftAccum(20);
    array.device->mergeJobSettings(own);
    Q_EMIT array.adapter.signalZcrConfigRead(false);
    QCOMPARE(array.device->jobSettings().wavGain(), 6U);
    QCOMPARE(array.device->jobSettings().fftAccum(), 20U);
    // A configuration by CGI ends here.
    QVERIFY(array.adapter.isUnConnected());
    QCOMPARE(array.told(), QStringList());
    QVERIFY(array.device->devList().empty());
}

void tst_ZcrDeviceController::fileOpensTheWebSocket()
{
    MuteArrayController array(kAddress);
    array.listChannels({0});
    array.adapter.hydDeviceList()[0]->mergeJobSettings(gainOf(6));
    Q_EMIT array.adapter.signalZcrConfigRead(true);
    QCOMPARE(array.device->jobSettings().wavGain(), 6U);
    QVERIFY(array.socket.waitForHandshake());
    QVERIFY(!array.adapter.isUnConnected());
    QCOMPARE(array.told(), QStringList());
    // The list is complete ahead of the time limit.
    array.adapter.hydDeviceList()[0]->setSensitivity(-165.0F);
    Q_EMIT array.adapter.signalZcrDevListFilled();
    QVERIFY(array.adapter.isUnConnected());
    QCOMPARE(array.told(), wholeReport());
}

void tst_ZcrDeviceController::wholeListIsReported()
{
    MuteArrayController array(kAddress);
    array.listChannels({-165.0F, -170.0F, -175.0F});
    array.controller.setSettingsReady(true);
    array.adapter.enableNetWork(false);
    connect(&array.controller, &NvxDeviceController::jobSettingsChanged, this, [&array] {
        QVERIFY(!array.controller.settingsReady());
        QCOMPARE(array.device->devList().size(), size_t(3));
    });
    Q_EMIT array.adapter.signalZcrDevListFilled();
    QCOMPARE(array.told(), wholeReport());
    QCOMPARE(array.device->devList(), array.adapter.hydDeviceList());
    QCOMPARE(array.device->deviceId().devIdList().size(), size_t(3));
    QCOMPARE(array.device->deviceId().devIdList()[2].serialNo(), 13);
    for (const auto& channel : array.device->devList())
        QCOMPARE(dynamic_cast<SkiffDevice&>(*channel).ZCR_NVX_Dev(), array.device);
    QCOMPARE(array.device->sensitivity(), -175.0F);
    QVERIFY(!array.controller.settingsReady());
    // A list that the adapter makes anew leaves the record's alone.
    array.adapter.clearLists();
    QCOMPARE(array.device->devList().size(), size_t(3));
}

void tst_ZcrDeviceController::repliesAreHandledLikeOthers()
{
    MuteArrayController array(kAddress);
    array.controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(9));
    QCOMPARE(array.told(), QStringList{QStringLiteral("own time 9")});
    auto* clock = array.controller.findChild<QTimer*>();
    QVERIFY(clock->isActive());
    static_cast<NvxDeviceController&>(array.controller).closeAll();
    QVERIFY(!clock->isActive());
}

void tst_ZcrDeviceController::timeReplies_data()
{
    QTest::addColumn<int>("serial");
    QTest::addColumn<qint64>("time");
    QTest::addColumn<QString>("told");
    QTest::addColumn<int>("timeUtc");
    QTest::newRow("own") << 600 << qint64(1700000000) << QStringLiteral("own time 1700000000") << 1700000000;
    QTest::newRow("own, more than 32 bits")
        << 600 << qint64(0x100000005) << QStringLiteral("own time 5") << 5;
    QTest::newRow("own, 2^31") << 600 << qint64(0x80000000) << QStringLiteral("own time -2147483648")
                               << std::numeric_limits<int>::min();
    QTest::newRow("another") << 601 << qint64(0x100000005) << QStringLiteral("time 601 4294967301") << 3;
    QTest::newRow("600 in 16 bits") << 66136 << qint64(7) << QStringLiteral("time 66136 7") << 3;
    QTest::newRow("600 below 0") << -64936 << qint64(7) << QStringLiteral("time -64936 7") << 3;
}

void tst_ZcrDeviceController::timeReplies()
{
    QFETCH(int, serial);
    QFETCH(qint64, time);
    QFETCH(QString, told);
    QFETCH(int, timeUtc);
    MuteArrayController array(kAddress);
    array.device->setTimeUtc(3);
    array.controller.handleZcrTime(serial, time);
    QCOMPARE(array.told(), QStringList{told});
    QCOMPARE(array.device->timeUtc(), timeUtc);
    // The running copy of the clock is for replies of the command channel.
    QVERIFY(!array.controller.findChild<QTimer*>()->isActive());
}

void tst_ZcrDeviceController::othersGetTheirOwnArguments()
{
    MuteArrayController array(kAddress);
    connect(&array.controller, &ZcrDeviceController::signalZCRSetConfigRead, this,
            [](HydJobSettings& settings) { settings.setWavGain(12); });
    connect(&array.controller, &ZcrDeviceController::signalZCRArrayRead, this,
            [](std::vector<HydDeviceId>& ids) { ids.clear(); });
    HydJobSettings settings = gainOf(6);
    std::vector<HydDeviceId> ids(3);
    Q_EMIT array.adapter.signalZCRSetConfigRead(settings, 601);
    Q_EMIT array.adapter.signalZCRArrayRead(ids, 601);
    // By reference all the way.
    QCOMPARE(settings.wavGain(), 12U);
    QVERIFY(ids.empty());
    QVERIFY(array.device->jobSettings().map().empty());
}

void tst_ZcrDeviceController::nothingGoesOutOnACommandChannel()
{
    MuteArrayController array(kAddress);
    NvxDeviceController& controller = array.controller;
    QVERIFY(!controller.isCmdChanOpen());
    controller.openChannel(ChanCommand);
    controller.startUpProc();
    controller.zcrProcEnquire();
    controller.sendJobSetup({}, false);
    controller.sendJobSetup({}, true);
    controller.closeChannel(ChanCommand);
    controller.closeAll();
    QCOMPARE(array.told(), QStringList());
    QVERIFY(!controller.isCmdChanOpen());
    QCOMPARE(controller.device()->configStat(), ConfigNone);
}

void tst_ZcrDeviceController::baseReachesTheChildByHooks()
{
    class Counting : public ZcrDeviceController
    {
    public:
        using ZcrDeviceController::ZcrDeviceController;
        mutable QByteArray calls;

    protected:
        bool sendArrayJobSetup(const JobTagMap&, bool) override
        {
            calls += 's';
            return true;
        }
        void sendArrayEnquire() const override { calls += 'e'; }
        void closeArrayChannel() override { calls += 'c'; }
    };
    Counting controller(ConnTcp);
    NvxDeviceController& base = controller;
    const auto callAll = [&base] {
        base.startUpProc();
        base.zcrProcEnquire();
        base.NvxDeviceController::sendJobSetup({}, false);
        base.closeAll();
    };
    callAll();
    QCOMPARE(controller.calls, QByteArray("eesc"));
    // Only for an array record.
    controller.setDevice(std::make_shared<HydDevice>(DevTypeRecorderA));
    callAll();
    QCOMPARE(controller.calls, QByteArray("eesc"));
}

void tst_ZcrDeviceController::plainControllerOfAnArrayRecord()
{
    // Of the type, but no array controller: no enquiries, and a setup goes the ordinary way to nobody.
    NvxDeviceController controller(std::make_shared<ZcrDevice>(DevTypeZcr), ConnTcp);
    QSignalSpy commands(&controller, &NvxDeviceController::adapterCmdReady);
    controller.startUpProc();
    controller.zcrProcEnquire();
    controller.closeAll();
    QVERIFY(commands.isEmpty());
    controller.sendJobSetup({}, false);
    QCOMPARE(commands.count(), 1);
    QCOMPARE(controller.device()->configStat(), ConfigPending);
}

void tst_ZcrDeviceController::noChannels_data()
{
    QTest::addColumn<bool>("isFile");
    QTest::newRow("in the file") << true;
    QTest::newRow("by CGI") << false;
}

void tst_ZcrDeviceController::noChannels()
{
    QFETCH(bool, isFile);
    MuteArrayController array(kAddress);
    // A collection is under way, which this ends.
    array.listChannels({0});
    Q_EMIT array.adapter.signalZcrConfigRead(true);
    QVERIFY(array.socket.waitForHandshake());
    QVERIFY(!array.adapter.isUnConnected());
    array.adapter.clearLists();
    Q_EMIT array.adapter.signalZcrConfigRead(isFile);
    QCOMPARE(array.told(), QStringList{kNoArray});
    QVERIFY(array.adapter.isUnConnected());
    // Without one, it opens nothing.
    Q_EMIT array.adapter.signalZcrConfigRead(isFile);
    QCOMPARE(array.told(), QStringList{kNoArray});
    QVERIFY(array.adapter.isUnConnected());
}

void tst_ZcrDeviceController::sensitivities_data()
{
    QTest::addColumn<QList<float>>("channels");
    QTest::addColumn<bool>("isWhole");
    QTest::addColumn<float>("ofTheArray");
    const float unchanged = -1.0F;
    QTest::newRow("one") << QList<float>{-165.0F} << true << -165.0F;
    QTest::newRow("the last one's") << QList<float>{-165.0F, -170.0F} << true << -170.0F;
    QTest::newRow("none") << QList<float>{0.0F, 0.0F} << false << unchanged;
    QTest::newRow("the last is missing") << QList<float>{-165.0F, -170.0F, 0.0F} << false << -170.0F;
    QTest::newRow("the first is missing") << QList<float>{0.0F, -170.0F} << false << -170.0F;
    // The adapter takes this one for unfilled, the controller doesn't: intended.
    QTest::newRow("a fraction") << QList<float>{0.5F} << true << 0.5F;
    QTest::newRow("a fraction below 0") << QList<float>{-0.5F} << true << -0.5F;
    QTest::newRow("0 with a sign") << QList<float>{-0.0F} << false << unchanged;
    QTest::newRow("above 0") << QList<float>{3.0F} << true << 3.0F;
}

void tst_ZcrDeviceController::sensitivities()
{
    QFETCH(QList<float>, channels);
    QFETCH(bool, isWhole);
    QFETCH(float, ofTheArray);
    MuteArrayController array(kAddress);
    array.device->setSensitivity(-1.0F);
    array.listChannels({channels.begin(), channels.end()});
    Q_EMIT array.adapter.signalZcrDevListFilled();
    QCOMPARE(array.told(), isWhole ? wholeReport() : QStringList{kErrorStream});
    QCOMPARE(array.device->sensitivity(), ofTheArray);
    // The record holds the list in each case.
    QCOMPARE(array.device->devList().size(), size_t(channels.size()));
}

void tst_ZcrDeviceController::lastChannelOfAnotherClass_data()
{
    QTest::addColumn<bool>("isLast");
    QTest::addColumn<float>("ofTheArray");
    QTest::newRow("the last one") << true << -1.0F;
    QTest::newRow("the one before") << false << -165.0F;
}

void tst_ZcrDeviceController::lastChannelOfAnotherClass()
{
    QFETCH(bool, isLast);
    QFETCH(float, ofTheArray);
    MuteArrayController array(kAddress);
    array.device->setSensitivity(-1.0F);
    array.listChannels({-165.0F});
    const auto other = std::make_shared<HydDevice>(DevTypeSkiff);
    other->setSensitivity(-170.0F);
    auto& channels = array.adapter.hydDeviceList();
    channels.insert(isLast ? channels.end() : channels.begin(), other);
    Q_EMIT array.adapter.signalZcrDevListFilled();
    QCOMPARE(array.told(), wholeReport());
    QCOMPARE(array.device->sensitivity(), ofTheArray);
}

void tst_ZcrDeviceController::errorStreamEndsTheReport()
{
    MuteArrayController array(kAddress);
    array.listChannels({-165.0F, 0.0F});
    array.controller.setSettingsReady(true);
    Q_EMIT array.adapter.signalZcrDevListFilled();
    // Nothing else is told, and the flag stays: intended.
    QCOMPARE(array.told(), QStringList{kErrorStream});
    QVERIFY(array.controller.settingsReady());
    QCOMPARE(array.device->devList(), array.adapter.hydDeviceList());
    QCOMPARE(array.device->deviceId().devIdList().size(), size_t(2));
}

void tst_ZcrDeviceController::filledWithoutChannels()
{
    MuteArrayController array(kAddress);
    array.listChannels({-165.0F});
    Q_EMIT array.adapter.signalZcrDevListFilled();
    array.told();
    array.controller.setSettingsReady(true);
    array.adapter.clearLists();
    Q_EMIT array.adapter.signalZcrDevListFilled();
    // Reported all the same, and the record keeps what it had.
    QCOMPARE(array.told(), wholeReport());
    QVERIFY(!array.controller.settingsReady());
    QCOMPARE(array.device->devList().size(), size_t(1));
    QCOMPARE(array.device->sensitivity(), -165.0F);
}

void tst_ZcrDeviceController::recordOfAnotherClass()
{
    MuteArrayController array(kAddress);
    const auto record = std::make_shared<HydDevice>(DevTypeZcr);
    array.controller.setDevice(record);
    array.listChannels({-165.0F});
    array.adapter.hydDeviceList()[0]->mergeJobSettings(gainOf(6));
    Q_EMIT array.adapter.signalZcrConfigRead(false);
    QVERIFY(record->jobSettings().map().empty());
    Q_EMIT array.adapter.signalZcrDevListFilled();
    QCOMPARE(array.told().size(), 2);
    QCOMPARE(record->sensitivity(), 0.0F);
    QVERIFY(record->deviceId().devIdList().empty());
    // The count doesn't need the record.
    array.adapter.hydDeviceList()[0]->setSensitivity(0.0F);
    Q_EMIT array.adapter.signalZcrDevListFilled();
    QCOMPARE(array.told(), QStringList{kErrorStream + QStringLiteral(" of another record")});
}

void tst_ZcrDeviceController::withoutARecord()
{
    MuteArrayController array(kAddress);
    array.controller.setDevice(nullptr);
    Q_EMIT array.adapter.connectionOpen();
    Q_EMIT array.adapter.connectionClosed();
    Q_EMIT array.adapter.signalZcrConfigRead(true);
    array.listChannels({0.0F});
    Q_EMIT array.adapter.signalZcrConfigRead(true);
    QVERIFY(array.socket.waitForHandshake());
    QVERIFY(!array.adapter.isUnConnected());
    Q_EMIT array.adapter.signalZcrDevListFilled();
    QVERIFY(array.adapter.isUnConnected());
    Q_EMIT array.adapter.signalResetZCR(HydDeviceId());
    array.controller.sendJobSetup({}, false);
    array.controller.closeAll();
    QCOMPARE(array.told(), QStringList());
    Q_EMIT array.adapter.signalZcrTime(600, 7);
    QCOMPARE(array.told(), QStringList{QStringLiteral("time 600 7")});
}

void tst_ZcrDeviceController::connectionIsNeverToldClosed()
{
    MuteArrayController array(kAddress);
    Q_EMIT array.adapter.connectionOpen();
    QCOMPARE(array.device->cmdPortStatus(), PortConnected);
    array.listChannels({-165.0F});
    Q_EMIT array.adapter.signalZcrConfigRead(true);
    QVERIFY(array.socket.waitForHandshake());
    Q_EMIT array.adapter.signalZcrDevListFilled();
    array.controller.closeAll();
    static_cast<NvxDeviceController&>(array.controller).closeAll();
    // The adapter never tells it, so the port stays connected: intended.
    QCOMPARE(array.told(), QStringList{QStringLiteral("open 600 0")} + wholeReport());
    QCOMPARE(array.device->cmdPortStatus(), PortConnected);
    Q_EMIT array.adapter.connectionClosed();
    QCOMPARE(array.device->cmdPortStatus(), PortReachable);
}

void tst_ZcrDeviceController::ownCloseLeavesTheClock()
{
    MuteArrayController array(kAddress);
    array.listChannels({0.0F});
    array.controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(9));
    Q_EMIT array.adapter.signalZcrConfigRead(true);
    QVERIFY(array.socket.waitForHandshake());
    QVERIFY(!array.adapter.isUnConnected());
    array.controller.closeAll();
    QVERIFY(array.adapter.isUnConnected());
    // Only the base class's stops it: intended.
    QVERIFY(array.controller.findChild<QTimer*>()->isActive());
    Q_EMIT array.adapter.signalZcrConfigRead(true);
    QVERIFY(array.socket.waitForHandshake());
    static_cast<NvxDeviceController&>(array.controller).closeAll();
    QVERIFY(array.adapter.isUnConnected());
    QVERIFY(!array.controller.findChild<QTimer*>()->isActive());
}

QTEST_GUILESS_MAIN(tst_ZcrDeviceController)
#include "tst_ZcrDeviceController.moc"
