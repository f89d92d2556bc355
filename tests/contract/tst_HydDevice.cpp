#include "NvxQtCommon/contract/device/HydDevice.h"

#include "NvxQtCommon/contract/device/DeviceVariants.h"
#include "NvxQtCommon/contract/device/SkiffDevice.h"
#include "NvxQtCommon/contract/device/ZcrDevice.h"
#include "tests/support/NvxTestCase.h"

#include <functional>
#include <typeinfo>

class tst_HydDevice : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void factoryGivesTheClassOfAType_data();
    void factoryGivesTheClassOfAType();
    void freshRecord();
    void constructorTakesEverything();
    void settersAndGetters();
    void identityCarriesTheRecord();
    void replyIsTakenOver();
    void everyReportedFieldIsAChange_data();
    void everyReportedFieldIsAChange();
    void settingsAreMerged();
    void pointsBetweenSpectra_data();
    void pointsBetweenSpectra();
    void triggersAreFoundByNumber();
    void recordsAreEqualByIdentity();
    void copiesAreIndependent();
    void skiffFields();
    void listOfAnArray();
    // --- rainy day flows
    void repeatedReplyIsNoChange();
    void enquiryWithoutABodyChangesNothing();
    void emptyNetworkRecordKeepsTheKnownOne();
    void unknownTimeKeepsTheKnownOne();
    void aliasSurvivesAReply();
    void triggerListWithHoles();
    void triggerOfAnUnknownClassHasNoNumber();
    void arrayThatIsGoneIsNoLongerGiven();
    void deviceThatLeavesAnArrayForgetsIt();
    void emptyListsOfAnArray();
    void listOfAnArrayIsACopy();
};

namespace {

HydEnquireCmd::Report fullReport()
{
    HydEnquireCmd::Report report;
    report.devType = DevTypeRecorderB;
    report.serial = 1234;
    report.hostDevNo = 9;
    report.battStat = BattCharging;
    report.battPercent = 87;
    report.sensitivity = -1705;
    report.temperature = -12;
    report.humidity = 456;
    report.sampleRate = 512000;
    report.timeUtc = 1700000000;
    report.netHostInfo = NvxNetHostInfo(0x0A000005);
    report.model = "model";
    report.firmwareVer = "1.2";
    report.firmwareRel = "r7";
    return report;
}

std::shared_ptr<HydTrigger_5_6> numberedTrigger(uint8_t number)
{
    auto trigger = std::make_shared<HydTrigger_5_6>();
    trigger->setTrigNum(number);
    return trigger;
}

using ReportChange = std::function<void(HydEnquireCmd::Report&)>;

} // namespace

Q_DECLARE_METATYPE(ReportChange)

void tst_HydDevice::factoryGivesTheClassOfAType_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("className");
    const QByteArray plain = typeid(HydDevice).name();
    for (const int type : {0, 1, 5, 7, 67, 68, 99, 255})
        QTest::addRow("type %d is plain", type) << type << plain;
    QTest::newRow("TMI") << 8 << QByteArray(typeid(TmiDevice).name());
    QTest::newRow("TD recorder") << 13 << QByteArray(typeid(TdRecDevice).name());
    QTest::newRow("Skiff") << 15 << QByteArray(typeid(SkiffDevice).name());
    QTest::newRow("array controller") << 16 << QByteArray(typeid(ZcrDevice).name());
}

void tst_HydDevice::factoryGivesTheClassOfAType()
{
    QFETCH(int, type);
    QFETCH(QByteArray, className);
    const auto device = HydDevice::createDevice(static_cast<HydDeviceType>(type));
    QVERIFY(device);
    const auto& record = *device;
    QCOMPARE(QByteArray(typeid(record).name()), className);
    QCOMPARE(static_cast<int>(device->devType()), type);
    QCOMPARE(device->serial(), uint16_t{0});
}

void tst_HydDevice::freshRecord()
{
    const HydDevice device;
    QCOMPARE(device.devType(), DevTypeAny);
    QCOMPARE(device.cmdPortStatus(), PortUnavailable);
    QCOMPARE(device.streamPortStatus(PortControl), PortUnavailable);
    QCOMPARE(device.configStat(), ConfigNone);
    QCOMPARE(device.timeUtc(), 0);
    QVERIFY(!device.timeSync());
    QVERIFY(device.triggers().empty());
    QVERIFY(device.jobSettings().map().empty());
    QCOMPARE(device.netHostInfo().ipAddress().toInt(), 0U);
    QCOMPARE(device.battStat(), BattUnknown);
}

void tst_HydDevice::constructorTakesEverything()
{
    const JobTagMap map{{JobTagWavRate, std::make_shared<HydWavSampleRateTag>(64000U)}};
    const HydDevice device(77, DevTypeRecorderA, NvxNetHostInfo(3), map);
    QCOMPARE(device.serial(), uint16_t{77});
    QCOMPARE(device.devType(), DevTypeRecorderA);
    QCOMPARE(device.netHostInfo().ipAddress().toInt(), 3U);
    QCOMPARE(static_cast<unsigned>(device.jobSettings().wavRate()), 64000U);
}

void tst_HydDevice::settersAndGetters()
{
    HydDevice device(DevTypeRecorderA);
    device.setSerial(5);
    device.setDevType(DevTypeRecorderB);
    device.setNetHostInfo(NvxNetHostInfo(6));
    device.setIfaceAddr(NvxIpAddr(7U));
    device.setTimeUtc(-8);
    device.setTimeSync(true);
    device.setCmdPortStatus(PortConnected);
    device.setStreamPortStatus(static_cast<HydPort>(51678), PortReachable);
    device.setStreamPortStatus(static_cast<HydPort>(51679), PortConnected);
    device.setConfigStat(ConfigRejected);
    device.setFirmwareVer("v");
    device.setFirmwareRel("r");
    device.setModelString("m");
    device.setBattStat(BattFull);
    device.setBattPercent(99);
    device.setSensitivity(-170.5F);
    device.setTemperature(-1.5F);
    device.setHumidity(45.5F);
    device.setSampleRate(96000);
    QCOMPARE(device.serial(), uint16_t{5});
    QCOMPARE(device.devType(), DevTypeRecorderB);
    QCOMPARE(device.netHostInfo().ipAddress().toInt(), 6U);
    QCOMPARE(device.ifaceAddr().toInt(), 7U);
    QCOMPARE(device.timeUtc(), -8);
    QVERIFY(device.timeSync());
    QCOMPARE(device.cmdPortStatus(), PortConnected);
    QCOMPARE(device.streamPortStatus(static_cast<HydPort>(51678)), PortReachable);
    QCOMPARE(device.streamPortStatus(static_cast<HydPort>(51679)), PortConnected);
    QCOMPARE(device.streamPortStatus(static_cast<HydPort>(51680)), PortUnavailable);
    QCOMPARE(device.configStat(), ConfigRejected);
    QCOMPARE(device.firmwareVer(), std::string("v"));
    QCOMPARE(device.firmwareRel(), std::string("r"));
    QCOMPARE(device.modelString(), std::string("m"));
    QCOMPARE(device.battStat(), BattFull);
    QCOMPARE(device.battPercent(), uint8_t{99});
    QCOMPARE(device.sensitivity(), -170.5F);
    QCOMPARE(device.temperature(), -1.5F);
    QCOMPARE(device.humidity(), 45.5F);
    QCOMPARE(device.sampleRate(), 96000U);
}

void tst_HydDevice::identityCarriesTheRecord()
{
    HydDevice device(11, DevTypeSkiff, NvxNetHostInfo(3), {});
    device.setHostDevNo(4);
    QCOMPARE(device.friendlyText(), std::string("Skiff 11"));
    device.setAlias("east");
    QCOMPARE(device.friendlyText(), std::string("east"));
    const auto id = device.deviceId();
    QCOMPARE(id.devType(), DevTypeSkiff);
    QCOMPARE(id.serialNo(), uint16_t{11});
    QCOMPARE(id.hostDevNo(), uint16_t{4});
    QCOMPARE(id.alias(), std::string("east"));
    QCOMPARE(id.netHostInfo().ipAddress().toInt(), 3U);
}

void tst_HydDevice::replyIsTakenOver()
{
    HydDevice device;
    QVERIFY(device.updateFromEnquire(HydEnquireCmd(fullReport())));
    QCOMPARE(device.devType(), DevTypeRecorderB);
    QCOMPARE(device.serial(), uint16_t{1234});
    QCOMPARE(device.deviceId().hostDevNo(), uint16_t{9});
    QCOMPARE(device.battStat(), BattCharging);
    QCOMPARE(device.battPercent(), uint8_t{87});
    QCOMPARE(device.sensitivity(), -170.5F);
    QCOMPARE(device.temperature(), -1.2F);
    QCOMPARE(device.humidity(), 45.6F);
    QCOMPARE(device.sampleRate(), 512000U);
    QCOMPARE(device.timeUtc(), 1700000000);
    QCOMPARE(device.netHostInfo().ipAddress().toInt(), 0x0A000005U);
    QCOMPARE(device.modelString(), std::string("model"));
    QCOMPARE(device.firmwareVer(), std::string("1.2"));
    QCOMPARE(device.firmwareRel(), std::string("r7"));
}

void tst_HydDevice::everyReportedFieldIsAChange_data()
{
    QTest::addColumn<ReportChange>("change");
    const auto row = [](const char* name, const ReportChange& change) { QTest::newRow(name) << change; };
    row("type", [](auto& report) { report.devType = DevTypeRecorderA; });
    row("serial", [](auto& report) { report.serial = 1; });
    row("host", [](auto& report) { report.hostDevNo = 1; });
    row("battery state", [](auto& report) { report.battStat = BattFull; });
    row("battery percent", [](auto& report) { report.battPercent = 1; });
    row("sensitivity", [](auto& report) { report.sensitivity = 1; });
    row("temperature", [](auto& report) { report.temperature = 1; });
    row("humidity", [](auto& report) { report.humidity = 1; });
    row("sample rate", [](auto& report) { report.sampleRate = 1; });
    row("time", [](auto& report) { report.timeUtc = 1; });
    row("network record", [](auto& report) { report.netHostInfo = NvxNetHostInfo(1); });
    row("gateway alone", [](auto& report) { report.netHostInfo.setGateway(1); });
    row("model", [](auto& report) { report.model = "x"; });
    row("firmware version", [](auto& report) { report.firmwareVer = "x"; });
    row("firmware release", [](auto& report) { report.firmwareRel = "x"; });
}

void tst_HydDevice::everyReportedFieldIsAChange()
{
    QFETCH(ReportChange, change);
    HydDevice device;
    device.updateFromEnquire(HydEnquireCmd(fullReport()));
    auto report = fullReport();
    change(report);
    QVERIFY(device.updateFromEnquire(HydEnquireCmd(report)));
    QVERIFY(!device.updateFromEnquire(HydEnquireCmd(report)));
}

void tst_HydDevice::settingsAreMerged()
{
    HydDevice device(1, DevTypeRecorderA, {},
                     {{JobTagWavGain, std::make_shared<HydNumberTag>(JobTagWavGain, 6U)}});
    HydJobSettings more;
    more.setWavRate(static_cast<SampRate>(96000));
    device.mergeJobSettings(more);
    more.setWavRate(static_cast<SampRate>(48000));
    device.mergeJobSettings(more);
    QCOMPARE(device.jobSettings().wavGain(), 6U);
    QCOMPARE(static_cast<unsigned>(device.jobSettings().wavRate()), 48000U);
    QCOMPARE(device.jobSettings().map().size(), size_t{2});
}

void tst_HydDevice::pointsBetweenSpectra_data()
{
    QTest::addColumn<unsigned>("between");
    QTest::addColumn<unsigned>("points");
    QTest::addColumn<unsigned>("expected");
    QTest::newRow("own value") << 300U << 1024U << 300U;
    QTest::newRow("own value without points") << 300U << 0U << 300U;
    QTest::newRow("half of the points") << 0U << 2048U << 1024U;
    QTest::newRow("half of an odd number") << 0U << 5U << 2U;
    QTest::newRow("one point has no half") << 0U << 1U << 512U;
    QTest::newRow("nothing known") << 0U << 0U << 512U;
}

void tst_HydDevice::pointsBetweenSpectra()
{
    QFETCH(unsigned, between);
    QFETCH(unsigned, points);
    QFETCH(unsigned, expected);
    HydJobSettings settings;
    if (between != 0)
        settings.setFftPointsBtw(between);
    if (points != 0)
        settings.setFftPoints(points);
    HydDevice device;
    device.mergeJobSettings(settings);
    QCOMPARE(device.getNumPtsFft(), expected);
}

void tst_HydDevice::triggersAreFoundByNumber()
{
    HydDevice device;
    const auto third = numberedTrigger(3);
    device.setTriggers({numberedTrigger(1), third, numberedTrigger(200)});
    QCOMPARE(device.trigger(3), std::shared_ptr<HydTrigger>(third));
    QCOMPARE(device.trigger(200)->trigNum(), uint8_t{200});
    QVERIFY(!device.trigger(2));
    QCOMPARE(device.triggers().size(), size_t{3});
}

void tst_HydDevice::recordsAreEqualByIdentity()
{
    HydDevice a(5, DevTypeRecorderA, NvxNetHostInfo(1), {});
    HydDevice b(5, DevTypeRecorderA, NvxNetHostInfo(2), {});
    b.setAlias("other name");
    QVERIFY(a == b);
    b.setSerial(6);
    QVERIFY(!(a == b));
    b.setSerial(5);
    b.setHostDevNo(1);
    QVERIFY(a != b);
}

void tst_HydDevice::copiesAreIndependent()
{
    HydDevice device(5, DevTypeRecorderA, NvxNetHostInfo(1), {});
    device.setModelString("m");
    device.setTriggers({numberedTrigger(1)});
    HydJobSettings settings;
    settings.setWavGain(6);
    device.mergeJobSettings(settings);
    const HydDevice copy(device);
    HydDevice assigned;
    assigned = device;
    device.setModelString("changed");
    device.setTriggers({});
    settings.setWavGain(12);
    device.mergeJobSettings(settings);
    for (const auto* other : {&copy, static_cast<const HydDevice*>(&assigned)}) {
        QCOMPARE(other->serial(), uint16_t{5});
        QCOMPARE(other->modelString(), std::string("m"));
        QCOMPARE(other->triggers().size(), size_t{1});
        QCOMPARE(other->jobSettings().wavGain(), 6U);
    }
}

void tst_HydDevice::skiffFields()
{
    SkiffDevice skiff(3, DevTypeSkiff, NvxNetHostInfo(9), {});
    QCOMPARE(skiff.serial(), uint16_t{3});
    skiff.setBandWidth(20000);
    skiff.setZcrChanhel(7);
    skiff.setSpectrumVRef(-3.5F);
    const SkiffDevice copy(skiff);
    QCOMPARE(copy.bandWidth(), 20000U);
    QCOMPARE(copy.zcrChannel(), uint8_t{7});
    QCOMPARE(copy.spectrumVRef(), -3.5F);
    QVERIFY(!copy.ZCR_NVX_Dev());
}

void tst_HydDevice::listOfAnArray()
{
    const auto array = std::make_shared<ZcrDevice>(DevTypeZcr);
    const auto skiff =
        std::make_shared<SkiffDevice>(uint16_t{1}, DevTypeSkiff, NvxNetHostInfo(), JobTagMap());
    skiff->setAlias("bow");
    const auto plain = std::make_shared<HydDevice>(DevTypeRecorderA);
    std::vector<std::shared_ptr<HydDevice>> list{skiff, plain};
    array->setDevList(&list, array);
    QCOMPARE(array->devList(), list);
    QCOMPARE(skiff->ZCR_NVX_Dev(), array);
    const auto ids = array->deviceId().devIdList();
    QCOMPARE(ids.size(), size_t{2});
    QVERIFY(ids[0] == skiff->deviceId());
    QCOMPARE(ids[0].alias(), std::string("bow"));
    QVERIFY(ids[1] == plain->deviceId());
}

void tst_HydDevice::repeatedReplyIsNoChange()
{
    HydDevice device;
    const HydEnquireCmd reply(fullReport());
    QVERIFY(device.updateFromEnquire(reply));
    QVERIFY(!device.updateFromEnquire(reply));
}

void tst_HydDevice::enquiryWithoutABodyChangesNothing()
{
    HydDevice device(5, DevTypeRecorderA, NvxNetHostInfo(1), {});
    device.setModelString("m");
    QVERIFY(!device.updateFromEnquire(HydEnquireCmd()));
    QCOMPARE(device.devType(), DevTypeRecorderA);
    QCOMPARE(device.serial(), uint16_t{5});
    QCOMPARE(device.modelString(), std::string("m"));
}

void tst_HydDevice::emptyNetworkRecordKeepsTheKnownOne()
{
    HydDevice device;
    device.updateFromEnquire(HydEnquireCmd(fullReport()));
    auto report = fullReport();
    report.netHostInfo = NvxNetHostInfo();
    QVERIFY(!device.updateFromEnquire(HydEnquireCmd(report)));
    QCOMPARE(device.netHostInfo().ipAddress().toInt(), 0x0A000005U);
}

void tst_HydDevice::unknownTimeKeepsTheKnownOne()
{
    HydDevice device;
    device.updateFromEnquire(HydEnquireCmd(fullReport()));
    auto report = fullReport();
    report.timeUtc = 0;
    QVERIFY(!device.updateFromEnquire(HydEnquireCmd(report)));
    QCOMPARE(device.timeUtc(), 1700000000);
    report.battPercent = 3;
    QVERIFY(device.updateFromEnquire(HydEnquireCmd(report)));
    QCOMPARE(device.timeUtc(), 1700000000);
}

void tst_HydDevice::aliasSurvivesAReply()
{
    HydDevice device;
    device.setAlias("west");
    device.updateFromEnquire(HydEnquireCmd(fullReport()));
    QCOMPARE(device.friendlyText(), std::string("west"));
}

void tst_HydDevice::triggerListWithHoles()
{
    HydDevice device;
    const auto first = numberedTrigger(4);
    device.setTriggers({nullptr, first, numberedTrigger(4)});
    QCOMPARE(device.trigger(4), std::shared_ptr<HydTrigger>(first));
    QVERIFY(!device.trigger(5));
}

void tst_HydDevice::triggerOfAnUnknownClassHasNoNumber()
{
    HydDevice device;
    device.setTriggers({std::make_shared<HydTrigger>()});
    QVERIFY(!device.trigger(0));
    const auto zero = numberedTrigger(0);
    device.setTriggers({std::make_shared<HydTrigger>(), zero});
    QCOMPARE(device.trigger(0), std::shared_ptr<HydTrigger>(zero));
}

void tst_HydDevice::arrayThatIsGoneIsNoLongerGiven()
{
    auto array = std::make_shared<ZcrDevice>(DevTypeZcr);
    const auto skiff =
        std::make_shared<SkiffDevice>(uint16_t{1}, DevTypeSkiff, NvxNetHostInfo(), JobTagMap());
    std::vector<std::shared_ptr<HydDevice>> list{skiff};
    array->setDevList(&list, array);
    const std::weak_ptr<ZcrDevice> watch = array;
    array.reset();
    // The array holds its recorders; were they to hold it too, neither would ever go.
    QVERIFY(watch.expired());
    QVERIFY(!skiff->ZCR_NVX_Dev());
}

void tst_HydDevice::deviceThatLeavesAnArrayForgetsIt()
{
    const auto array = std::make_shared<ZcrDevice>(DevTypeZcr);
    const auto other = std::make_shared<ZcrDevice>(DevTypeZcr);
    const auto makeSkiff = [](uint16_t serial) {
        return std::make_shared<SkiffDevice>(serial, DevTypeSkiff, NvxNetHostInfo(), JobTagMap());
    };
    const auto stays = makeSkiff(1);
    const auto leaves = makeSkiff(2);
    const auto moves = makeSkiff(3);
    std::vector<std::shared_ptr<HydDevice>> all{stays, leaves, moves};
    array->setDevList(&all, array);
    std::vector<std::shared_ptr<HydDevice>> moved{moves};
    other->setDevList(&moved, other);
    std::vector<std::shared_ptr<HydDevice>> rest{stays};
    array->setDevList(&rest, array);
    QCOMPARE(stays->ZCR_NVX_Dev(), array);
    QVERIFY(!leaves->ZCR_NVX_Dev());
    QCOMPARE(moves->ZCR_NVX_Dev(), other);
    array->setDevList(nullptr, array);
    QVERIFY(!stays->ZCR_NVX_Dev());
}

void tst_HydDevice::emptyListsOfAnArray()
{
    const auto array = std::make_shared<ZcrDevice>(DevTypeZcr);
    std::vector<std::shared_ptr<HydDevice>> list{nullptr, std::make_shared<HydDevice>(DevTypeRecorderA)};
    array->setDevList(&list, array);
    QCOMPARE(array->devList().size(), size_t{1});
    QCOMPARE(array->deviceId().devIdList().size(), size_t{1});
    array->setDevList(nullptr, array);
    QVERIFY(array->devList().empty());
    QVERIFY(array->deviceId().devIdList().empty());
}

void tst_HydDevice::listOfAnArrayIsACopy()
{
    const auto array = std::make_shared<ZcrDevice>(DevTypeZcr);
    {
        std::vector<std::shared_ptr<HydDevice>> list{std::make_shared<HydDevice>(DevTypeRecorderA)};
        array->setDevList(&list, array);
        list.clear();
    }
    QCOMPARE(array->devList().size(), size_t{1});
    QCOMPARE(array->devList()[0]->devType(), DevTypeRecorderA);
}

QTEST_APPLESS_MAIN(tst_HydDevice)
#include "tst_HydDevice.moc"
