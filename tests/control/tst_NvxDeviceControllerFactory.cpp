#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/array/ZcrDeviceController.h"
#include "NvxQtCommon/control/HydDeviceController.h"
#include "NvxQtCommon/control/TdRecDeviceController.h"
#include "NvxQtCommon/control/TmiDeviceController.h"

#include <QSignalSpy>

/// Which controller belongs to which device, and the controllers of the other families.
class tst_NvxDeviceControllerFactory : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void classByType_data();
    void classByType();
    void addressGoesToTheChannel();
    void otherFamiliesStaySilent();
    // --- rainy day flows
    void nullDevice();
    void recordOfTheWrongClass_data();
    void recordOfTheWrongClass();
    void genericRecordInTwoConstructors();
};

void tst_NvxDeviceControllerFactory::classByType_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("className");
    const QByteArray recorder("HydDeviceController");
    const QByteArray plain("NvxDeviceController");
    QTest::newRow("5") << 5 << recorder;
    QTest::newRow("7") << 7 << recorder;
    QTest::newRow("15") << 15 << recorder;
    QTest::newRow("8") << 8 << QByteArray("TmiDeviceController");
    QTest::newRow("13") << 13 << QByteArray("TdRecDeviceController");
    QTest::newRow("16") << 16 << QByteArray("ZcrDeviceController");
    for (const int type : {0, 1, 6, 9, 14, 17, 67, 68, 255})
        QTest::addRow("%d", type) << type << plain;
}

void tst_NvxDeviceControllerFactory::classByType()
{
    QFETCH(int, type);
    QFETCH(QByteArray, className);
    const auto device = HydDevice::createDevice(HydDeviceType(type));
    for (const auto connType : {ConnTcp, ConnSerial}) {
        const auto controller = NvxDeviceController::createController(device, connType);
        QVERIFY(controller != nullptr);
        QCOMPARE(QByteArray(controller->metaObject()->className()), className);
        QCOMPARE(controller->devicePtr(), device);
        QCOMPARE(controller->parent(), nullptr);
    }
}

void tst_NvxDeviceControllerFactory::addressGoesToTheChannel()
{
    // Nobody listens at the record's address: a refusal, where an adapter without one would find no host.
    const auto device = HydDevice::createDevice(DevTypeTmi);
    device->setNetHostInfo(NvxNetHostInfo(0x7F160301));
    const auto controller = NvxDeviceController::createController(device, ConnTcp);
    QSignalSpy errors(controller.get(), &NvxDeviceController::error);
    controller->openChannel(ChanCommand);
    QTRY_COMPARE(errors.count(), 1);
    QCOMPARE(errors[0][1].toInt(), int(QAbstractSocket::ConnectionRefusedError));
}

void tst_NvxDeviceControllerFactory::otherFamiliesStaySilent()
{
    TmiDeviceController tmi(std::make_shared<TmiDevice>(DevTypeTmi), ConnTcp);
    TdRecDeviceController tdRec(std::make_shared<TdRecDevice>(DevTypeTdRec), ConnTcp);
    QSignalSpy tmiStatus(&tmi, &TmiDeviceController::channelStatus);
    QSignalSpy tdRecStatus(&tdRec, &TdRecDeviceController::channelStatus);
    tmi.createConnections();
    tdRec.createConnections();
    tmi.handleAdapterConnection();
    tdRec.handleAdapterConnection();
    QVERIFY(tmiStatus.isEmpty());
    QVERIFY(tdRecStatus.isEmpty());

    QSignalSpy commands(&tdRec, &NvxDeviceController::adapterCmdReady);
    tdRec.sendJobSetup({}, false);
    QCOMPARE(commands.count(), 1);
    QCOMPARE(tdRec.device()->configStat(), ConfigPending);
}

void tst_NvxDeviceControllerFactory::nullDevice()
{
    QCOMPARE(NvxDeviceController::createController(nullptr, ConnTcp), nullptr);
}

void tst_NvxDeviceControllerFactory::recordOfTheWrongClass_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("className");
    QTest::addColumn<int>("recordType");
    QTest::newRow("8") << 8 << QByteArray("TmiDeviceController") << 0;
    QTest::newRow("13") << 13 << QByteArray("TdRecDeviceController") << 0;
    QTest::newRow("16") << 16 << QByteArray("ZcrDeviceController") << 16;
}

void tst_NvxDeviceControllerFactory::recordOfTheWrongClass()
{
    QFETCH(int, type);
    QFETCH(QByteArray, className);
    QFETCH(int, recordType);
    const auto device = std::make_shared<HydDevice>(HydDeviceType(type));
    const auto controller = NvxDeviceController::createController(device, ConnTcp);
    QCOMPARE(QByteArray(controller->metaObject()->className()), className);
    QVERIFY(controller->devicePtr() != nullptr);
    QVERIFY(controller->devicePtr() != device);
    QCOMPARE(int(controller->device()->devType()), recordType);
}

void tst_NvxDeviceControllerFactory::genericRecordInTwoConstructors()
{
    // The base has made a record before theirs would come: intended.
    TmiDeviceController tmi(ConnTcp);
    QCOMPARE(tmi.device()->devType(), DevTypeAny);
    QVERIFY(dynamic_cast<TmiDevice*>(tmi.device()) == nullptr);
    TdRecDeviceController tdRec(ConnTcp);
    QCOMPARE(tdRec.device()->devType(), DevTypeAny);
    QVERIFY(dynamic_cast<TdRecDevice*>(tdRec.device()) == nullptr);
}

QTEST_GUILESS_MAIN(tst_NvxDeviceControllerFactory)
#include "tst_NvxDeviceControllerFactory.moc"
