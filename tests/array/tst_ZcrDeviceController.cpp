#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/array/ZcrDeviceController.h"

#include <QSignalSpy>

/// An array controller's controller as far as the base class knows it.
class tst_ZcrDeviceController : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void ownsAnArrayRecord();
    void takesTheRecordGiven();
    void repliesAreHandledLikeOthers();
    // --- rainy day flows
    void nothingGoesOutOnACommandChannel();
    void baseHandsSetupsOver();
    void baseReachesTheChildByHooks();
    void plainControllerOfAnArrayRecord();
};

void tst_ZcrDeviceController::ownsAnArrayRecord()
{
    ZcrDeviceController controller(ConnTcp);
    QCOMPARE(controller.device()->devType(), DevTypeZcr);
    QVERIFY(dynamic_cast<ZcrDevice*>(controller.device()) != nullptr);
    ZcrDeviceController fromNull(nullptr, ConnTcp);
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

void tst_ZcrDeviceController::repliesAreHandledLikeOthers()
{
    ZcrDeviceController controller(ConnTcp);
    QSignalSpy time(&controller, &NvxDeviceController::timeChanged);
    controller.handleAdapterResponse(std::make_shared<HydSetTimeCmd>(9));
    QCOMPARE(time.count(), 1);
    auto* timer = controller.findChild<QTimer*>();
    QVERIFY(timer->isActive());
    controller.closeAll();
    QVERIFY(!timer->isActive());
}

void tst_ZcrDeviceController::nothingGoesOutOnACommandChannel()
{
    ZcrDeviceController controller(ConnTcp);
    QSignalSpy commands(&controller, &NvxDeviceController::adapterCmdReady);
    QVERIFY(!controller.isCmdChanOpen());
    controller.openChannel(ChanCommand);
    controller.startUpProc();
    controller.zcrProcEnquire();
    controller.sendJobSetup({}, false);
    controller.sendJobSetup({}, true);
    controller.closeChannel(ChanCommand);
    controller.closeAll();
    QVERIFY(commands.isEmpty());
    QVERIFY(!controller.isCmdChanOpen());
    QCOMPARE(controller.device()->configStat(), ConfigNone);
}

void tst_ZcrDeviceController::baseHandsSetupsOver()
{
    ZcrDeviceController controller(ConnTcp);
    QSignalSpy commands(&controller, &NvxDeviceController::adapterCmdReady);
    controller.NvxDeviceController::sendJobSetup({}, false);
    QVERIFY(commands.isEmpty());
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
    controller.startUpProc();
    controller.zcrProcEnquire();
    controller.NvxDeviceController::sendJobSetup({}, false);
    controller.closeAll();
    QCOMPARE(controller.calls, QByteArray("eesc"));
    // Only for an array record.
    controller.setDevice(std::make_shared<HydDevice>(DevTypeRecorderA));
    controller.startUpProc();
    controller.zcrProcEnquire();
    controller.NvxDeviceController::sendJobSetup({}, false);
    controller.closeAll();
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

QTEST_GUILESS_MAIN(tst_ZcrDeviceController)
#include "tst_ZcrDeviceController.moc"
