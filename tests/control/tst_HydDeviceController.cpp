#include "ControlPeer.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/control/HydDeviceController.h"

#include <QSignalSpy>

namespace {

const QString kAddress = QStringLiteral("127.22.2.1");

std::shared_ptr<HydDevice> recorder(unsigned rate = 0)
{
    JobTagMap tags;
    if (rate != 0)
        tags[JobTagWavRate] = std::make_shared<HydWavSampleRateTag>(rate);
    return std::make_shared<HydDevice>(uint16_t(12), DevTypeRecorderA,
                                       NvxNetHostInfo(NvxIpAddr(kAddress.toStdString()).toInt()), tags);
}

/// A recorder's controller with an open channel.
class CollectFixture
{
public:
    explicit CollectFixture(unsigned rate = 0)
        : peer(kAddress), controller(recorder(rate), ConnTcp),
          collected(&controller, &HydDeviceController::dataCollected),
          scanConf(&controller, &NvxDeviceController::setDataScanConf),
          commands(&controller, &NvxDeviceController::adapterCmdReady)
    {
    }
    bool open()
    {
        if (!peer.listen())
            return false;
        QSignalSpy opened(&controller, &NvxDeviceController::channelOpen);
        controller.openChannel(ChanCommand);
        return QTest::qWaitFor([&] { return !opened.isEmpty() && peer.isConnected(); }, kPatienceMs);
    }

    ControlPeer peer;
    HydDeviceController controller;
    QSignalSpy collected;
    QSignalSpy scanConf;
    QSignalSpy commands;
};

} // namespace

/// Data collection of a recorder's controller.
class tst_HydDeviceController : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void constructors();
    void scanWait_data();
    void scanWait();
    void startSendsConfigurationAndRequest();
    void collectedDataArrive();
    void pollAsksWithTheWholeMask();
    void pollGoesOnUntilStopped();
    void topBitBurstComesAtOnce();
    void startForADevice();
    void enquireReplyIsReportedTwice();
    void secondReportIsOfTheRecordOfThatMoment_data();
    void secondReportIsOfTheRecordOfThatMoment();
    void otherRepliesGoToTheBase();
    void startIsVirtual();
    // --- rainy day flows
    void startForAnotherDeviceIsSilent();
    void collectedOfAnotherClassIsDropped();
    void collectedDoesNotReachTheBase();
    void nullResponseIsLogged();
    void secondStartWaitsForAReply();
    void stopWithoutStart();
    void withoutARecord();
    void destroyedByAReceiver();
};

void tst_HydDeviceController::constructors()
{
    HydDeviceController fresh(ConnTcp);
    QCOMPARE(fresh.device()->devType(), DevTypeAny);
    QCOMPARE(fresh.scanMask(), uint8_t(0));
    const auto device = recorder();
    HydDeviceController controller(device, ConnTcp);
    QCOMPARE(controller.devicePtr(), device);
}

void tst_HydDeviceController::scanWait_data()
{
    QTest::addColumn<int>("mask");
    QTest::addColumn<unsigned>("rate");
    QTest::addColumn<int>("expected");
    QTest::newRow("8 kHz") << 0x20 << 8000u << 125;
    QTest::newRow("16 kHz") << 0x20 << 16000u << 63;
    QTest::newRow("32 kHz") << 0x20 << 32000u << 32;
    QTest::newRow("just above 32 kHz") << 0x20 << 32001u << 128;
    QTest::newRow("64 kHz") << 0x20 << 64000u << 64;
    QTest::newRow("256 kHz") << 0x20 << 256000u << 16;
    QTest::newRow("just below 512 kHz") << 0x20 << 511999u << 8;
    QTest::newRow("512 kHz") << 0x20 << 512000u << 30;
    QTest::newRow("far above") << 0x20 << 4294967295u << 30;
    QTest::newRow("wave and spectrum") << 0x30 << 8000u << 125;
    QTest::newRow("wave and other bits") << 0xE1 << 8000u << 125;
    QTest::newRow("spectrum") << 0x10 << 8000u << 250;
    QTest::newRow("spectrum and other bits") << 0xDF << 8000u << 250;
    QTest::newRow("spectrum without a rate") << 0x10 << 0u << 250;
    QTest::newRow("no mask") << 0 << 8000u << 0;
    QTest::newRow("other bits only") << 0xCF << 8000u << 0;
    QTest::newRow("rate 0") << 0x20 << 0u << 1000;
    QTest::newRow("1 Hz leaves 16 bits") << 0x20 << 1u << 65535;
    QTest::newRow("15 Hz leaves 16 bits") << 0x20 << 15u << 65535;
    QTest::newRow("16 Hz") << 0x20 << 16u << 62500;
}

void tst_HydDeviceController::scanWait()
{
    QFETCH(int, mask);
    QFETCH(unsigned, rate);
    QFETCH(int, expected);
    HydDeviceController controller(recorder(rate), ConnTcp);
    QSignalSpy scanConf(&controller, &NvxDeviceController::setDataScanConf);
    controller.startDataCollect(uint8_t(mask));
    QCOMPARE(controller.scanMask(), uint8_t(mask));
    QCOMPARE(int(controller.scanWait()), expected);
    QCOMPARE(scanConf.count(), 1);
    QCOMPARE(scanConf[0][0].value<uint16_t>(), uint16_t(expected));
    QCOMPARE(scanConf[0][1].value<uint8_t>(), uint8_t(mask));
}

void tst_HydDeviceController::startSendsConfigurationAndRequest()
{
    CollectFixture f(8000);
    QVERIFY(f.open());
    f.controller.startDataCollect(0x30);
    QCOMPARE(f.scanConf.count(), 1);
    QCOMPARE(f.commands.count(), 1);
    const auto command = f.commands[0][0].value<std::shared_ptr<HydControlMsgPayload>>();
    QCOMPARE(frameOf(*command), frameOf(HydDataCollectCmd(0x30)));
    QTRY_VERIFY(f.peer.count('C') >= 1);
    QCOMPARE(f.peer.requests()[0].frame, frameOf(HydDataCollectCmd(0x30)));
}

void tst_HydDeviceController::collectedDataArrive()
{
    CollectFixture f(512000);
    uint8_t number = 0;
    f.peer.setScript([&number](const ControlPeer::Request&) {
        return collectReply(uint8_t(0x20 | (++number & 0xF)), 3000);
    });
    QVERIFY(f.open());
    f.controller.startDataCollect(0x20);
    QTRY_VERIFY(f.collected.count() >= 5);
    for (int i = 0; i < 5; ++i) {
        const auto reply = f.collected[i][0].value<std::shared_ptr<const HydDataCollectCmd>>();
        QCOMPARE(frameOf(*reply), collectReply(uint8_t(0x20 | (i + 1)), 3000));
    }
}

void tst_HydDeviceController::pollAsksWithTheWholeMask()
{
    // The top bit is the mask's sign on its way to the poll.
    CollectFixture f(512000);
    f.peer.setScript([](const ControlPeer::Request&) { return collectReply(0x20); });
    QVERIFY(f.open());
    f.controller.startDataCollect(0xA0);
    QTRY_VERIFY(f.peer.count('C') >= 3);
    for (int i = 0; i < 3; ++i)
        QCOMPARE(f.peer.requests()[i].frame, frameOf(HydDataCollectCmd(0xA0)));
}

void tst_HydDeviceController::pollGoesOnUntilStopped()
{
    CollectFixture f(512000);
    f.peer.setScript([](const ControlPeer::Request& request) {
        return request.letter == 'C' ? collectReply(0x20) : enquireReply(12);
    });
    QVERIFY(f.open());
    f.controller.startDataCollect(0x20);
    QTRY_VERIFY(f.peer.count('C') >= 8);
    f.controller.stopDataCollect();
    // Queued behind the stop: when it is answered, no poll is on its way any more.
    QSignalSpy enquired(&f.controller, &HydDeviceController::enquireResponseExt);
    f.controller.sendEnquire();
    QTRY_COMPARE(enquired.count(), 1);
    QCOMPARE(f.peer.letters().back(), 'E');
    // A start while a poll runs would stop its timer: that this one polls without any reply shows that none
    // ran.
    f.peer.setScript({});
    f.peer.forget();
    f.controller.startDataCollect(0x20);
    QTRY_VERIFY(f.peer.count('C') >= 4);
}

void tst_HydDeviceController::topBitBurstComesAtOnce()
{
    // A poll of 1000 ms would need 30 s for these.
    CollectFixture f;
    int left = 30;
    f.peer.setScript(
        [&left](const ControlPeer::Request&) { return collectReply(left-- > 0 ? 0xA0 : 0x20, 1000); });
    QVERIFY(f.open());
    f.controller.startDataCollect(0x20);
    f.controller.sendDataCollectMsg();
    QTRY_VERIFY(f.collected.count() >= 30);
    QVERIFY(f.peer.count('C') >= 31);
}

void tst_HydDeviceController::startForADevice()
{
    CollectFixture f(8000);
    f.controller.startDevDataCollect(HydDeviceId(DevTypeRecorderA, 12), 0x10);
    QCOMPARE(f.controller.scanMask(), uint8_t(0x10));
    QCOMPARE(f.scanConf.count(), 1);
    QCOMPARE(f.commands.count(), 1);
}

void tst_HydDeviceController::enquireReplyIsReportedTwice()
{
    HydDeviceController controller(recorder(), ConnTcp);
    QByteArray order;
    std::string model;
    connect(&controller, &NvxDeviceController::enquireResponse, this, [&] { order += '1'; });
    connect(&controller, &HydDeviceController::enquireResponseExt, this, [&](const HydDevice& device) {
        order += '2';
        model = device.modelString();
    });
    HydEnquireCmd::Report report;
    report.devType = DevTypeRecorderA;
    report.serial = 12;
    report.model = "Model";
    controller.handleAdapterResponse(std::make_shared<HydEnquireCmd>(report));
    controller.handleAdapterResponse(std::make_shared<HydEnquireCmd>(report));
    QCOMPARE(order, QByteArray("1212"));
    QCOMPARE(model, std::string("Model"));
}

void tst_HydDeviceController::secondReportIsOfTheRecordOfThatMoment_data()
{
    QTest::addColumn<std::shared_ptr<HydDevice>>("replacement");
    QTest::addColumn<QList<const HydDevice*>>("reported");
    const auto other = recorder(8000);
    QTest::newRow("another record") << other << QList<const HydDevice*>{other.get()};
    QTest::newRow("none") << std::shared_ptr<HydDevice>() << QList<const HydDevice*>();
}

void tst_HydDeviceController::secondReportIsOfTheRecordOfThatMoment()
{
    QFETCH(std::shared_ptr<HydDevice>, replacement);
    QFETCH(QList<const HydDevice*>, reported);
    HydDeviceController controller(recorder(), ConnTcp);
    connect(&controller, &NvxDeviceController::enquireResponse, this,
            [&] { controller.setDevice(replacement); });
    QList<const HydDevice*> seen;
    connect(&controller, &HydDeviceController::enquireResponseExt, this,
            [&](const HydDevice& device) { seen << &device; });
    controller.handleAdapterResponse(std::make_shared<HydEnquireCmd>());
    QCOMPARE(seen, reported);
}

void tst_HydDeviceController::otherRepliesGoToTheBase()
{
    HydDeviceController controller(recorder(), ConnTcp);
    QSignalSpy time(&controller, &NvxDeviceController::timeChanged);
    QSignalSpy reset(&controller, &NvxDeviceController::signalDevReset);
    QSignalSpy setup(&controller, &NvxDeviceController::jobSetupReadFromDev);
    QSignalSpy ext(&controller, &HydDeviceController::enquireResponseExt);
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(5));
    controller.handleAdapterResponse(std::make_shared<HydResetCmd>());
    controller.handleAdapterResponse(std::make_shared<HydJobSetupEnq>(JobTagMap(), JobSetupDefault));
    QCOMPARE(time.count(), 1);
    QCOMPARE(reset.count(), 1);
    QCOMPARE(setup.count(), 1);
    QCOMPARE(ext.count(), 0);
}

void tst_HydDeviceController::startIsVirtual()
{
    class Counting : public HydDeviceController
    {
    public:
        using HydDeviceController::HydDeviceController;
        void startDataCollect(uint8_t mask) override { masks << mask; }
        QList<int> masks;
    };
    Counting controller(recorder(), ConnTcp);
    controller.startDevDataCollect(HydDeviceId(DevTypeRecorderA, 12), 0x20);
    QCOMPARE(controller.masks, QList<int>{0x20});
}

void tst_HydDeviceController::startForAnotherDeviceIsSilent()
{
    CollectFixture f(8000);
    f.controller.startDevDataCollect(HydDeviceId(DevTypeRecorderA, 13), 0x20);
    f.controller.startDevDataCollect(HydDeviceId(DevTypeRecorderB, 12), 0x20);
    QCOMPARE(f.controller.scanMask(), uint8_t(0));
    QCOMPARE(f.scanConf.count() + f.commands.count(), 0);
}

void tst_HydDeviceController::collectedOfAnotherClassIsDropped()
{
    CollectFixture f;
    f.controller.handleAdapterResponse(std::make_shared<HydMsgPayload>('C'));
    QVERIFY(f.collected.isEmpty());
    f.controller.handleAdapterResponse(std::make_shared<HydDataCollectCmd>(uint8_t(0x20)));
    QCOMPARE(f.collected.count(), 1);
}

void tst_HydDeviceController::collectedDoesNotReachTheBase()
{
    // The record is not even needed for it.
    CollectFixture f;
    f.controller.setDevice(nullptr);
    f.controller.handleAdapterResponse(std::make_shared<HydDataCollectCmd>(uint8_t(0x20)));
    QCOMPARE(f.collected.count(), 1);
}

void tst_HydDeviceController::nullResponseIsLogged()
{
    HydDeviceController controller(recorder(), ConnTcp);
    LogSpy log;
    controller.handleAdapterResponse(nullptr);
    QVERIFY(log.contains(QStringLiteral("nullptr == resp: handleAdapterResponse")));
}

void tst_HydDeviceController::secondStartWaitsForAReply()
{
    // Intended: the second configuration stops the running poll; a reply outside of it starts it again.
    CollectFixture f(512000);
    QVERIFY(f.open());
    f.controller.startDataCollect(0x20);
    QTRY_VERIFY(f.peer.count('C') >= 4);
    f.controller.startDataCollect(0x20);
    // The poll stands now, since a third start sets it going again; a running one it would stop.
    f.peer.forget();
    f.controller.startDataCollect(0x20);
    QTRY_VERIFY(f.peer.count('C') >= 4);
    f.controller.startDataCollect(0x20);
    f.controller.sendEnquire();
    QTRY_COMPARE(f.peer.letters().back(), 'E');
    f.peer.send(enquireReply(12));
    QTRY_COMPARE(f.peer.letters().back(), 'C');
}

void tst_HydDeviceController::stopWithoutStart()
{
    CollectFixture f;
    QSignalSpy stop(&f.controller, &NvxDeviceController::signalStopCollect);
    f.controller.stopDataCollect();
    QCOMPARE(stop.count(), 1);
    QCOMPARE(stop[0][0].toInt(), 0);
    QCOMPARE(stop[0][1].value<int8_t>(), int8_t(0));
    QVERIFY(f.commands.isEmpty());
}

void tst_HydDeviceController::withoutARecord()
{
    CollectFixture f;
    f.controller.setDevice(nullptr);
    f.controller.startDevDataCollect(HydDeviceId(), 0x20);
    QVERIFY(f.commands.isEmpty());
    f.controller.startDataCollect(0x20);
    QCOMPARE(f.controller.scanWait(), uint16_t(1000));
    f.controller.handleAdapterResponse(std::make_shared<HydEnquireCmd>());
    QCOMPARE(f.commands.count(), 1);
}

void tst_HydDeviceController::destroyedByAReceiver()
{
    auto controller = std::make_unique<HydDeviceController>(recorder(), ConnTcp);
    auto* raw = controller.get();
    int calls = 0;
    const auto destroy = [&] {
        ++calls;
        controller.reset();
    };
    connect(raw, &NvxDeviceController::enquireResponse, this, destroy);
    connect(raw, &HydDeviceController::enquireResponseExt, this, destroy);
    raw->handleAdapterResponse(std::make_shared<HydEnquireCmd>());
    QCOMPARE(calls, 1);
}

QTEST_GUILESS_MAIN(tst_HydDeviceController)
#include "tst_HydDeviceController.moc"
