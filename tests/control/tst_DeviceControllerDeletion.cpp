#include "tests/support/Buried.h"
#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/control/HydDeviceController.h"

#include <functional>

namespace {

using BuriedController = Buried<HydDeviceController>;
using Action = std::function<void(HydDeviceController&)>;
using Connect = std::function<void(HydDeviceController*, const std::function<void()>&)>;

/// A connection of a slot to the first emission of `signal`.
template <class Signal> Connect under(Signal signal)
{
    return [signal](HydDeviceController* controller, const std::function<void()>& slot) {
        QObject::connect(controller, signal, controller, [slot] { slot(); });
    };
}

} // namespace

Q_DECLARE_METATYPE(Action)
Q_DECLARE_METATYPE(Connect)

/// A slot may delete the controller directly, under the signals of its own calls.
class tst_DeviceControllerDeletion : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- rainy day flows
    void deletedByASlot_data();
    void deletedByASlot();
};

void tst_DeviceControllerDeletion::deletedByASlot_data()
{
    QTest::addColumn<Action>("call");
    QTest::addColumn<Connect>("connectSlot");
    QTest::addColumn<int>("commands"); // up to the one that deletes
    using C = HydDeviceController;
    const Connect first = under(&C::adapterCmdReady);
    const auto atCommand = [](int number) {
        return [number](HydDeviceController* controller, const std::function<void()>& slot) {
            QObject::connect(controller, &C::adapterCmdReady, controller, [slot, left = number]() mutable {
                if (--left == 0)
                    slot();
            });
        };
    };
    const Action startUp = [](C& controller) { controller.startUpProc(); };
    const Action setup = [](C& controller) { controller.sendJobSetup({}, false); };
    const Action collect = [](C& controller) { controller.startDataCollect(0x20); };
    const Action close = [](C& controller) { controller.closeAll(); };
    QTest::newRow("first command of a start-up") << startUp << first << 1;
    QTest::newRow("second command of a start-up") << startUp << Connect(atCommand(2)) << 2;
    QTest::newRow("third command of a start-up") << startUp << Connect(atCommand(3)) << 3;
    QTest::newRow("job setup") << setup << first << 1;
    QTest::newRow("scan configuration") << collect << under(&C::setDataScanConf) << 0;
    QTest::newRow("scan request") << collect << first << 1;
    QTest::newRow("closing") << close << under(&C::requestCloseAdapter) << 0;
}

void tst_DeviceControllerDeletion::deletedByASlot()
{
    QFETCH(Action, call);
    QFETCH(Connect, connectSlot);
    QFETCH(int, commands);
    auto* controller = new BuriedController(ConnTcp);
    int sent = 0;
    connect(controller, &NvxDeviceController::adapterCmdReady, this, [&] { ++sent; });
    connectSlot(controller, [controller] { delete controller; });
    call(*controller);
    QVERIFY(BuriedController::isGone());
    QVERIFY(BuriedController::isUntouched());
    QCOMPARE(sent, commands);
}

QTEST_GUILESS_MAIN(tst_DeviceControllerDeletion)
#include "tst_DeviceControllerDeletion.moc"
