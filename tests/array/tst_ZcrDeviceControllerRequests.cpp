#include "tests/array/ArrayController.h"
#include "tests/array/CannedManager.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include <functional>

namespace {

using Operation = std::function<void(const ZcrDeviceController&)>;

constexpr uint32_t kAddress = 0x7F510702;
const QString kEnquiry = QStringLiteral("127.81.7.2/cgi-bin/DataCollection.cgi?");
const QString kStatusEnquiry = QStringLiteral("127.81.7.2/cgi-bin/Status.cgi?");
const QString kConfiguration = QStringLiteral("DataCollection.cgi");
const QString kStatus = QStringLiteral("Status.cgi");
const QString kNoManagerLine = QStringLiteral("nullptr == m_manager - HydZcrCommandAdapter::sendSetTime");

JobTagMap gainTags()
{
    HydJobSettings settings;
    settings.setWavGain(6);
    return settings.map();
}

} // namespace

Q_DECLARE_METATYPE(Operation)

/// What an array controller's controller asks for and sends by CGI.
class tst_ZcrDeviceControllerRequests : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void enquiries_data();
    void enquiries();
    void enquiryOfAFreshController();
    void setsTheTime();
    void writesAJobSetup_data();
    void writesAJobSetup();
    // --- rainy day flows
    void enquiryWithoutAManager_data();
    void enquiryWithoutAManager();
    void enquiryWhileDisabled_data();
    void enquiryWhileDisabled();
    void managersThatAreThereStay();
    void timeGoesByTheManagerGivenOnly();
    void setupOfARecordWithoutChannels();
    void setupIsPendingWhetherSentOrNot_data();
    void setupIsPendingWhetherSentOrNot();
    void statusIsAskedAgainAndAgain();
    void disablingDropsReplies();
    void closingBringsRepliesBack();
    void nothingIsAskedWhileTheWebSocketIsOpen();
};

void tst_ZcrDeviceControllerRequests::enquiries_data()
{
    QTest::addColumn<Operation>("enquire");
    const auto row = [](const char* name, const Operation& enquire) { QTest::newRow(name) << enquire; };
    row("sendZcrEnquire", [](const ZcrDeviceController& c) { c.sendZcrEnquire(); });
    row("startUpProc", [](const NvxDeviceController& c) { c.startUpProc(); });
    row("zcrProcEnquire", [](const NvxDeviceController& c) { c.zcrProcEnquire(); });
}

void tst_ZcrDeviceControllerRequests::enquiries()
{
    QFETCH(Operation, enquire);
    CannedManager manager;
    MuteArrayController array(kAddress);
    array.controller.setNetworkAccessManager(&manager);
    QVERIFY(array.adapter.manager() == nullptr);
    enquire(array.controller);
    QCOMPARE(manager.asked, QStringList{kEnquiry});
    QCOMPARE(array.adapter.manager(), &manager);
    QCOMPARE(array.told(), QStringList());
}

void tst_ZcrDeviceControllerRequests::enquiryOfAFreshController()
{
    CannedManager manager;
    manager.bodies[kConfiguration] = R"("serialNumber":600,"wavSampRate":96000,"currentTime":5)";
    manager.bodies[kStatus] = R"("serialNumber":600,{"devSerial":12,{"devSerial":13)";
    MuteArrayController array(kAddress);
    array.controller.setNetworkAccessManager(&manager);
    array.controller.startUpProc();
    QTRY_COMPARE(manager.open, 0);
    QCOMPARE(manager.asked, QStringList({kEnquiry, kStatusEnquiry}));
    // The configuration came without channels, and the status with the first alone: the time is all to tell.
    QCOMPARE(array.told(), QStringList{QStringLiteral("own time 5")});
    QCOMPARE(array.adapter.devIdList().size(), size_t(1));
    QCOMPARE(array.device->jobSettings().wavRate(), SampRate{96000});
    QVERIFY(array.device->devList().empty());
}

void tst_ZcrDeviceControllerRequests::setsTheTime()
{
    CannedManager manager;
    MuteArrayController array(kAddress);
    array.controller.sendSetZcrTime(1700000000, &manager);
    array.controller.sendSetZcrTime(0, nullptr);
    QCOMPARE(manager.asked,
             QStringList({QStringLiteral("127.81.7.2/cgi-bin/Operation.cgi?data=%7B%22action%22:%22synctime"
                                         "%22,%22newtime%22:1700000000%7D"),
                          QStringLiteral("127.81.7.2/cgi-bin/Operation.cgi")}));
    QCOMPARE(array.adapter.manager(), &manager);
}

void tst_ZcrDeviceControllerRequests::writesAJobSetup_data()
{
    QTest::addColumn<bool>("isDelayed");
    QTest::addColumn<bool>("byTheBase");
    QTest::newRow("at once") << false << false;
    QTest::newRow("delayed") << true << false;
    QTest::newRow("at once, handed over by the base class") << false << true;
    QTest::newRow("delayed, handed over by the base class") << true << true;
}

void tst_ZcrDeviceControllerRequests::writesAJobSetup()
{
    QFETCH(bool, isDelayed);
    QFETCH(bool, byTheBase);
    CannedManager manager;
    MuteArrayController array(kAddress);
    array.adapter.setNetworkAccessManager(&manager);
    array.listChannels({-165.0F});
    array.controller.handleZcrDevListFilled();
    array.told();
    if (byTheBase)
        array.controller.NvxDeviceController::sendJobSetup(gainTags(), isDelayed);
    else
        array.controller.sendJobSetup(gainTags(), isDelayed);
    // At once in each case.
    QCOMPARE(manager.asked.size(), 1);
    QVERIFY(manager.asked.first().startsWith(kEnquiry + QStringLiteral("data=")));
    QVERIFY(manager.asked.first().contains(QStringLiteral("%22wavGain%22:6,")));
    QCOMPARE(array.device->configStat(), ConfigPending);
    // The record has it when it is read back.
    QVERIFY(array.device->jobSettings().map().empty());
    QCOMPARE(array.told(), QStringList());
}

void tst_ZcrDeviceControllerRequests::enquiryWithoutAManager_data()
{
    enquiries_data();
}

void tst_ZcrDeviceControllerRequests::enquiryWithoutAManager()
{
    QFETCH(Operation, enquire);
    CannedManager manager;
    LogSpy log;
    MuteArrayController array(kAddress);
    enquire(array.controller);
    // The adapter's isn't the controller's.
    array.adapter.setNetworkAccessManager(&manager);
    enquire(array.controller);
    auto gone = std::make_unique<CannedManager>();
    array.controller.setNetworkAccessManager(gone.get());
    gone.reset();
    enquire(array.controller);
    QCOMPARE(manager.asked, QStringList());
    QCOMPARE(log.lines(), QStringList());
    array.controller.setNetworkAccessManager(&manager);
    enquire(array.controller);
    QCOMPARE(manager.asked, QStringList{kEnquiry});
}

void tst_ZcrDeviceControllerRequests::enquiryWhileDisabled_data()
{
    enquiries_data();
}

void tst_ZcrDeviceControllerRequests::enquiryWhileDisabled()
{
    QFETCH(Operation, enquire);
    CannedManager manager;
    LogSpy log;
    MuteArrayController array(kAddress);
    array.controller.setNetworkAccessManager(&manager);
    array.controller.setEnabledZcrCgiCon(false);
    QVERIFY(!array.controller.isEnabledZcrCgiCon());
    enquire(array.controller);
    array.controller.sendSetZcrTime(5, &manager);
    // Whatever the adapter would do.
    array.adapter.enableNetWork(true);
    enquire(array.controller);
    array.controller.sendSetZcrTime(5, &manager);
    QCOMPARE(manager.asked, QStringList());
    QVERIFY(array.adapter.manager() == nullptr);
    QCOMPARE(log.lines(), QStringList());
    array.controller.setEnabledZcrCgiCon(true);
    QVERIFY(array.controller.isEnabledZcrCgiCon());
    enquire(array.controller);
    array.controller.sendSetZcrTime(5, &manager);
    QCOMPARE(manager.asked.size(), 2);
}

void tst_ZcrDeviceControllerRequests::managersThatAreThereStay()
{
    CannedManager first;
    CannedManager second;
    MuteArrayController array(kAddress);
    array.controller.setNetworkAccessManager(nullptr);
    array.controller.setNetworkAccessManager(&first);
    array.controller.setNetworkAccessManager(&second);
    array.controller.setNetworkAccessManager(nullptr);
    array.controller.sendZcrEnquire();
    array.controller.sendSetZcrTime(5, &second);
    QCOMPARE(first.asked.size(), 2);
    // The adapter's is the one that it got first, whoever gave it.
    ArrayController other(kAddress);
    other.controller.sendSetZcrTime(5, &second);
    other.controller.setNetworkAccessManager(&first);
    other.controller.sendZcrEnquire();
    QCOMPARE(first.asked.size(), 2);
    QCOMPARE(second.asked.size(), 2);
}

void tst_ZcrDeviceControllerRequests::timeGoesByTheManagerGivenOnly()
{
    CannedManager manager;
    LogSpy log;
    MuteArrayController array(kAddress);
    array.controller.setNetworkAccessManager(&manager);
    array.controller.sendSetZcrTime(5, nullptr);
    QCOMPARE(manager.asked, QStringList());
    QCOMPARE(log.lines(), QStringList{kNoManagerLine});
}

void tst_ZcrDeviceControllerRequests::setupOfARecordWithoutChannels()
{
    CannedManager manager;
    LogSpy log;
    MuteArrayController array(kAddress);
    array.adapter.setNetworkAccessManager(&manager);
    // The record's list counts, not the adapter's.
    array.listChannels({-165.0F});
    for (const bool isDelayed : {false, true})
        array.controller.sendJobSetup(gainTags(), isDelayed);
    QCOMPARE(manager.asked, QStringList());
    QCOMPARE(log.lines(), QStringList());
    QCOMPARE(array.device->configStat(), ConfigNone);
}

void tst_ZcrDeviceControllerRequests::setupIsPendingWhetherSentOrNot_data()
{
    QTest::addColumn<bool>("isEnabled");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("no manager") << true << QStringList{kNoManagerLine};
    QTest::newRow("disabled") << false << QStringList();
}

void tst_ZcrDeviceControllerRequests::setupIsPendingWhetherSentOrNot()
{
    QFETCH(bool, isEnabled);
    QFETCH(QStringList, lines);
    CannedManager manager;
    LogSpy log;
    MuteArrayController array(kAddress);
    if (!isEnabled)
        array.adapter.setNetworkAccessManager(&manager);
    array.listChannels({-165.0F});
    array.controller.handleZcrDevListFilled();
    array.controller.setEnabledZcrCgiCon(isEnabled);
    array.controller.sendJobSetup(gainTags(), false);
    QCOMPARE(manager.asked, QStringList());
    QCOMPARE(log.lines(), lines);
    QCOMPARE(array.device->configStat(), ConfigPending);
}

void tst_ZcrDeviceControllerRequests::statusIsAskedAgainAndAgain()
{
    CannedManager manager;
    manager.bodies[kConfiguration] = R"("serialNumber":600,"wavSampRate":96000,"x":0)";
    manager.bodies[kStatus] = R"("serialNumber":600,{"devSerial":12,"x":0)";
    MuteArrayController array(kAddress);
    array.controller.setNetworkAccessManager(&manager);
    array.listChannels({-165.0F});
    array.adapter.clearLists();
    array.controller.startUpProc();
    // An adapter that held channels takes none of a status, and asks again: this is intended.
    QTRY_VERIFY(manager.asked.size() >= 20);
    QCOMPARE(manager.asked.count(kEnquiry), 1);
    QCOMPARE(manager.asked.count(kStatusEnquiry), manager.asked.size() - 1);
    QCOMPARE(array.told(), QStringList());
    QCOMPARE(manager.open, 1);
    const qsizetype asked = manager.asked.size();
    array.controller.setEnabledZcrCgiCon(false);
    QTRY_COMPARE(manager.open, 0);
    QCOMPARE(manager.asked.size(), asked);
    // Nothing asks by itself when it is enabled again.
    array.controller.setEnabledZcrCgiCon(true);
    QCoreApplication::processEvents();
    QCOMPARE(manager.asked.size(), asked);
}

void tst_ZcrDeviceControllerRequests::disablingDropsReplies()
{
    CannedManager manager;
    manager.bodies[kConfiguration] = R"("serialNumber":600,"currentTime":5)";
    MuteArrayController array(kAddress);
    array.controller.setNetworkAccessManager(&manager);
    array.controller.sendZcrEnquire();
    array.controller.setEnabledZcrCgiCon(false);
    QTRY_COMPARE(manager.open, 0);
    QCOMPARE(array.told(), QStringList());
    array.controller.setEnabledZcrCgiCon(true);
    array.controller.sendZcrEnquire();
    QTRY_COMPARE(manager.open, 0);
    QCOMPARE(array.told(), QStringList{QStringLiteral("own time 5")});
}

void tst_ZcrDeviceControllerRequests::closingBringsRepliesBack()
{
    CannedManager manager;
    manager.bodies[kConfiguration] = R"("serialNumber":600,"currentTime":5)";
    MuteArrayController array(kAddress);
    array.controller.setNetworkAccessManager(&manager);
    array.controller.sendZcrEnquire();
    array.controller.setEnabledZcrCgiCon(false);
    array.controller.closeAll();
    // The adapter doesn't know of the controller's flag: intended.
    QTRY_COMPARE(manager.open, 0);
    QCOMPARE(array.told(), QStringList{QStringLiteral("own time 5")});
    QVERIFY(!array.controller.isEnabledZcrCgiCon());
    array.controller.sendZcrEnquire();
    QCOMPARE(manager.asked.size(), 1);
}

void tst_ZcrDeviceControllerRequests::nothingIsAskedWhileTheWebSocketIsOpen()
{
    CannedManager manager;
    manager.bodies[kConfiguration] = R"("serialNumber":600,"currentTime":5)";
    MuteArrayController array(kAddress);
    array.controller.setNetworkAccessManager(&manager);
    array.listChannels({-165.0F});
    array.controller.sendZcrEnquire();
    array.controller.handleZcrConfigRead(true);
    QVERIFY(array.socket.waitForHandshake());
    array.controller.sendZcrEnquire();
    array.controller.sendSetZcrTime(5, nullptr);
    QCOMPARE(manager.asked, QStringList{kEnquiry});
    array.controller.handleZcrDevListFilled();
    QCOMPARE(array.told(), wholeReport());
    array.controller.sendZcrEnquire();
    QCOMPARE(manager.asked.size(), 2);
}

QTEST_GUILESS_MAIN(tst_ZcrDeviceControllerRequests)
#include "tst_ZcrDeviceControllerRequests.moc"
