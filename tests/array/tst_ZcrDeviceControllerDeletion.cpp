#include "tests/array/ArrayController.h"
#include "tests/support/Buried.h"
#include "tests/support/NvxTestCase.h"

#include <functional>

using Adapter = HydZcrCommandAdapter;
using Emission = std::function<void(Adapter&)>;

Q_DECLARE_METATYPE(Emission)

/// A slot may delete an array controller's controller directly, under each of its signals.
class tst_ZcrDeviceControllerDeletion : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- rainy day flows
    void deletedByItsOwnSignal_data();
    void deletedByItsOwnSignal();
    void adapterOutlivesItsController();
};

void tst_ZcrDeviceControllerDeletion::deletedByItsOwnSignal_data()
{
    QTest::addColumn<Emission>("emission");
    QTest::addColumn<bool>("hasChannel");
    QTest::addColumn<QByteArray>("signal");
    const auto row = [](const char* signal, const Emission& emission, bool hasChannel = false) {
        QTest::newRow(signal) << emission << hasChannel << QByteArray(signal);
    };
    const Emission filled = [](Adapter& a) { Q_EMIT a.signalZcrDevListFilled(); };
    row("signalZCRnoArray", [](Adapter& a) { Q_EMIT a.signalZcrConfigRead(false); });
    row("signalZCRErrorStream", filled, true);
    row("jobSettingsChanged", filled);
    row("enquireResponse", filled);
    row("timeChanged", [](Adapter& a) { Q_EMIT a.signalZcrTime(600, 7); });
    row("signalZcrTime", [](Adapter& a) { Q_EMIT a.signalZcrTime(601, 7); });
    row("signalResetZCR", [](Adapter& a) { Q_EMIT a.signalResetZCR(HydDeviceId(DevTypeZcr, 600)); });
    row("channelOpen", [](Adapter& a) { Q_EMIT a.connectionOpen(); });
    row("channelClosed", [](Adapter& a) { Q_EMIT a.connectionClosed(); });
    row("signalZCRSetConfigRead", [](Adapter& a) {
        HydJobSettings settings;
        Q_EMIT a.signalZCRSetConfigRead(settings, 601);
    });
    row("signalZCRArrayRead", [](Adapter& a) {
        std::vector<HydDeviceId> ids;
        Q_EMIT a.signalZCRArrayRead(ids, 601);
    });
}

void tst_ZcrDeviceControllerDeletion::deletedByItsOwnSignal()
{
    QFETCH(Emission, emission);
    QFETCH(bool, hasChannel);
    QFETCH(QByteArray, signal);
    using Grave = Buried<ZcrDeviceController>;
    QObject context;
    const auto device = std::make_shared<ZcrDevice>(DevTypeZcr);
    device->setSerial(600);
    auto* controller = new Grave(device, ConnTcp);
    // One that sent no frame.
    if (hasChannel)
        controller->adapter()->hydDeviceList().push_back(std::make_shared<HydDevice>(DevTypeSkiff));
    QByteArray deletedBy;
    const auto endBy = [&](auto member, const char* name) {
        connect(controller, member, &context, [&, name] {
            if (signal != name)
                return;
            deletedBy = name;
            delete controller;
        });
    };
    using C = ZcrDeviceController;
    endBy(&C::signalZCRnoArray, "signalZCRnoArray");
    endBy(&C::signalZCRErrorStream, "signalZCRErrorStream");
    endBy(&C::jobSettingsChanged, "jobSettingsChanged");
    endBy(&C::enquireResponse, "enquireResponse");
    endBy(&C::timeChanged, "timeChanged");
    endBy(&C::signalZcrTime, "signalZcrTime");
    endBy(&C::signalResetZCR, "signalResetZCR");
    endBy(&C::channelOpen, "channelOpen");
    endBy(&C::channelClosed, "channelClosed");
    endBy(&C::signalZCRSetConfigRead, "signalZCRSetConfigRead");
    endBy(&C::signalZCRArrayRead, "signalZCRArrayRead");
    // By the adapter, whose last reference goes with its controller.
    Adapter* adapter = controller->adapter().get();
    emission(*adapter);
    QCOMPARE(deletedBy, signal);
    QVERIFY(Grave::isGone());
    QVERIFY(Grave::isUntouched());
}

void tst_ZcrDeviceControllerDeletion::adapterOutlivesItsController()
{
    std::shared_ptr<Adapter> adapter;
    {
        ArrayController array(0x7F510705);
        adapter = array.controller.adapter();
    }
    Q_EMIT adapter->connectionOpen();
    Q_EMIT adapter->signalZcrConfigRead(true);
    Q_EMIT adapter->signalZcrTime(600, 7);
    QCOMPARE(adapter.use_count(), 1L);
}

QTEST_GUILESS_MAIN(tst_ZcrDeviceControllerDeletion)
#include "tst_ZcrDeviceControllerDeletion.moc"
