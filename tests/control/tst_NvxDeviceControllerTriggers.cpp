#include "ControlPeer.h"
#include "TriggerLists.h"
#include "tests/support/Buried.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"

#include "NvxQtCommon/control/HydDeviceController.h"

#include <QSignalSpy>

namespace {

const QString kAddress = QStringLiteral("127.22.6.1");
constexpr TEST_TYPE kOtherType{9};

JobTagMap rateTags()
{
    return {{JobTagWavRate, std::make_shared<HydWavSampleRateTag>(64000)}};
}

/// A controller without a connection, and the commands that it gives.
class Controlled
{
public:
    explicit Controlled(const TriggerList& held = {}) : controller(ConnTcp)
    {
        controller.device()->setTriggers(held);
        QObject::connect(&controller, &NvxDeviceController::adapterCmdReady, &controller,
                         [this](std::shared_ptr<HydControlMsgPayload> command) {
                             text += static_cast<char>(command->msgType());
                             if (auto trigger = std::dynamic_pointer_cast<HydTrigger_5_6>(command)) {
                                 text += QByteArray::number(trigger->trigNum());
                                 sent.push_back(trigger);
                             }
                         });
    }
    TriggerList record() const { return controller.device()->triggers(); }
    void reply(const TriggerList& list)
    {
        controller.handleAdapterResponse(std::make_shared<HydEnquireTrigger>(list));
    }

    HydDeviceController controller;
    QByteArray text; ///< letters of the commands, with the numbers of triggers
    TriggerList sent;
};

QByteArray triggerBody(const HydTrigger& trigger)
{
    ByteStream out;
    trigger.serializeRecord(out);
    const auto bytes = out.bytes();
    return {reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size())};
}

} // namespace

Q_DECLARE_METATYPE(TriggerList)

/// What a trigger setup sends and keeps, and what an enquiry reply does; tst_TriggerPacing looks at the
/// times.
class tst_NvxDeviceControllerTriggers : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void whatIsSent_data();
    void whatIsSent();
    void recordHoldsTheWishAtOnce();
    void nothingSentLeavesTheRecord();
    void otherTypesStayInTheStoredList();
    void emptyWishLeavesTheRecord();
    void commandsAreCopies();
    void clearAndEnquiryAreVirtual();
    void replyReplacesTheRecord_data();
    void replyReplacesTheRecord();
    void equalReplyIsOnlyTold_data();
    void equalReplyIsOnlyTold();
    void triggerOfTheRecordCompares();
    // --- rainy day flows
    void lookupOfAnotherClassIsSent();
    void secondSetupDropsTheFirst();
    void secondSetupGoesByTheTimersOfTheFirst();
    void setupDropsADelayedJobSetup();
    void delayedJobSetupDropsTheTriggers();
    void nullTriggersAreSkipped();
    void withoutARecordAllIsSent();
    void nothingIsSentAfterTheEnd();
    void replyOfAnotherClassIsStillTold();
    void nullTriggerInTheRecordDiffers();
    void repliesWhoseCountDoesNotFit_data();
    void repliesWhoseCountDoesNotFit();
    void refusalReachesTheApplication();
    void deletedByASlot_data();
    void deletedByASlot();
};

void tst_NvxDeviceControllerTriggers::whatIsSent_data()
{
    QTest::addColumn<TriggerList>("held");
    QTest::addColumn<TriggerList>("wanted");
    QTest::addColumn<bool>("enquire");
    QTest::addColumn<QByteArray>("text");
    const auto one = eventTrigger(1);
    const auto two = eventTrigger(2);
    const auto other = plainTrigger(9);
    // Of the class of event triggers, with another test type.
    const auto strange = eventTrigger(1, 5000, kOtherType);

    QTest::newRow("nothing held") << TriggerList{} << TriggerList{one, two} << true << QByteArray("S1S2R");
    QTest::newRow("no enquiry") << TriggerList{} << TriggerList{one, two} << false << QByteArray("S1S2");
    QTest::newRow("in the order of the wish")
        << TriggerList{} << TriggerList{two, one} << true << QByteArray("S2S1R");
    QTest::newRow("equal") << TriggerList{one, two} << TriggerList{eventTrigger(1), eventTrigger(2)} << true
                           << QByteArray("R");
    QTest::newRow("equal in another order")
        << TriggerList{one, two} << TriggerList{two, one} << true << QByteArray("R");
    QTest::newRow("second changed") << TriggerList{one, two} << TriggerList{one, eventTrigger(2, 7)} << true
                                    << QByteArray("S2R");
    QTest::newRow("other test") << TriggerList{one} << TriggerList{eventTrigger(1, 5000, TestTypeBelow)}
                                << true << QByteArray("S1R");
    QTest::newRow("one more") << TriggerList{one} << TriggerList{one, two} << true << QByteArray("S2R");
    QTest::newRow("first gone") << TriggerList{one, two} << TriggerList{two} << true << QByteArray("US2R");
    QTest::newRow("one below gone") << TriggerList{eventTrigger(1, 5, TestTypeBelow), two} << TriggerList{two}
                                    << true << QByteArray("US2R");
    QTest::newRow("gone, without enquiry")
        << TriggerList{one, two} << TriggerList{eventTrigger(3), two} << false << QByteArray("US3S2");
    QTest::newRow("empty wish") << TriggerList{one} << TriggerList{} << false << QByteArray("U");
    QTest::newRow("empty wish, with enquiry")
        << TriggerList{one} << TriggerList{} << true << QByteArray("UR");
    QTest::newRow("nothing held, empty wish") << TriggerList{} << TriggerList{} << false << QByteArray("U");
    QTest::newRow("other types aren't sent")
        << TriggerList{} << TriggerList{other, strange, two} << true << QByteArray("S2R");
    QTest::newRow("of another class with a known type")
        << TriggerList{} << TriggerList{plainTrigger(5), two} << true << QByteArray("S2R");
    QTest::newRow("other types that go clear nothing")
        << TriggerList{other, strange, plainTrigger(6), two} << TriggerList{two} << true << QByteArray("R");
    QTest::newRow("only other types wanted")
        << TriggerList{one} << TriggerList{other} << true << QByteArray("UR");
    QTest::newRow("number held with another type")
        << TriggerList{strange} << TriggerList{one} << true << QByteArray("S1R");
    QTest::newRow("number wanted with another type")
        << TriggerList{one} << TriggerList{strange} << true << QByteArray("R");
}

void tst_NvxDeviceControllerTriggers::whatIsSent()
{
    QFETCH(TriggerList, held);
    QFETCH(TriggerList, wanted);
    QFETCH(bool, enquire);
    QFETCH(QByteArray, text);
    Controlled c(held);
    c.controller.setupTriggers(wanted, enquire);
    // A clear leaves at once, all else waits.
    QCOMPARE(c.text, text.startsWith('U') ? QByteArray("U") : QByteArray());
    QTRY_COMPARE(c.text, text);
    for (const auto& sent : c.sent) {
        const auto same =
            std::find_if(wanted.begin(), wanted.end(), [&](const auto& w) { return w->compare(sent.get()); });
        QVERIFY(same != wanted.end());
    }
    // Nothing comes behind.
    QSignalSpy more(&c.controller, &NvxDeviceController::adapterCmdReady);
    QVERIFY(spyStaysEmpty(more, 250));
}

void tst_NvxDeviceControllerTriggers::recordHoldsTheWishAtOnce()
{
    Controlled c(TriggerList{eventTrigger(1), eventTrigger(2)});
    const TriggerList wanted{eventTrigger(1), eventTrigger(2, 7)};
    c.controller.setupTriggers(wanted, false);
    // Although nothing was sent yet, and the device may refuse: intended.
    QVERIFY(c.text.isEmpty());
    QVERIFY(c.record() == wanted);
}

void tst_NvxDeviceControllerTriggers::nothingSentLeavesTheRecord()
{
    const TriggerList held{eventTrigger(1), eventTrigger(2)};
    Controlled c(held);
    c.controller.setupTriggers({eventTrigger(2), eventTrigger(1), plainTrigger(9)}, false);
    QVERIFY(c.record() == held);
    // Also where the list of the device is cleared.
    c.controller.setupTriggers({plainTrigger(9)}, false);
    QCOMPARE(c.text, QByteArray("U"));
    QVERIFY(c.record() == held);
}

void tst_NvxDeviceControllerTriggers::otherTypesStayInTheStoredList()
{
    Controlled c;
    const TriggerList wanted{plainTrigger(9), eventTrigger(1), eventTrigger(2, 5, kOtherType)};
    c.controller.setupTriggers(wanted, false);
    QVERIFY(c.record() == wanted);
}

void tst_NvxDeviceControllerTriggers::emptyWishLeavesTheRecord()
{
    const TriggerList held{eventTrigger(1)};
    Controlled c(held);
    c.controller.setupTriggers({}, false);
    // Intended.
    QVERIFY(c.record() == held);
}

void tst_NvxDeviceControllerTriggers::commandsAreCopies()
{
    Controlled c;
    const auto trigger = eventTrigger(1, 5000);
    c.controller.setupTriggers({trigger}, false);
    trigger->setThreshold(7);
    QTRY_COMPARE(c.text, QByteArray("S1"));
    QCOMPARE(std::static_pointer_cast<HydTrigger_5_6>(c.sent[0])->threshold(), int16_t{5000});
}

void tst_NvxDeviceControllerTriggers::clearAndEnquiryAreVirtual()
{
    class Counting : public NvxDeviceController
    {
    public:
        using NvxDeviceController::NvxDeviceController;
        void clearTriggers() const override { order += 'U'; }
        void enquireTriggers() const override { order += 'R'; }
        mutable QByteArray order;
    };
    Counting controller(ConnTcp);
    controller.setupTriggers({}, true);
    QTRY_COMPARE(controller.order, QByteArray("UR"));
    controller.device()->setTriggers({eventTrigger(1)});
    controller.setupTriggers({eventTrigger(2)}, true);
    QTRY_COMPARE(controller.order, QByteArray("URUR"));
}

void tst_NvxDeviceControllerTriggers::replyReplacesTheRecord_data()
{
    QTest::addColumn<TriggerList>("held");
    QTest::addColumn<TriggerList>("reported");
    QTest::newRow("more") << TriggerList{eventTrigger(1)} << TriggerList{eventTrigger(1), eventTrigger(2)};
    QTest::newRow("fewer") << TriggerList{eventTrigger(1), eventTrigger(2)} << TriggerList{eventTrigger(1)};
    QTest::newRow("none") << TriggerList{eventTrigger(1)} << TriggerList{};
    QTest::newRow("last one differs")
        << TriggerList{eventTrigger(1), eventTrigger(2)} << TriggerList{eventTrigger(1), eventTrigger(2, 7)};
    QTest::newRow("first one differs")
        << TriggerList{eventTrigger(1), eventTrigger(2)} << TriggerList{eventTrigger(1, 7), eventTrigger(2)};
    QTest::newRow("other order") << TriggerList{eventTrigger(1), eventTrigger(2)}
                                 << TriggerList{eventTrigger(2), eventTrigger(1)};
    QTest::newRow("another class") << TriggerList{plainTrigger(5)} << TriggerList{eventTrigger(0)};
}

void tst_NvxDeviceControllerTriggers::replyReplacesTheRecord()
{
    QFETCH(TriggerList, held);
    QFETCH(TriggerList, reported);
    Controlled c(held);
    QByteArray order;
    connect(&c.controller, &NvxDeviceController::signalTrigUdated, this,
            [&](std::shared_ptr<NvxDevice> device) {
                QCOMPARE(device.get(), c.controller.device());
                QVERIFY(device->triggers() == reported);
                order += 'u';
            });
    connect(&c.controller, &NvxDeviceController::signalEnqTrig, this, [&](std::shared_ptr<NvxDevice> device) {
        QCOMPARE(device.get(), c.controller.device());
        order += 'e';
    });
    c.reply(reported);
    QCOMPARE(order, QByteArray("ue"));
    QVERIFY(c.record() == reported);
}

void tst_NvxDeviceControllerTriggers::equalReplyIsOnlyTold_data()
{
    QTest::addColumn<TriggerList>("held");
    QTest::addColumn<TriggerList>("reported");
    QTest::newRow("none") << TriggerList{} << TriggerList{};
    QTest::newRow("two") << TriggerList{eventTrigger(1), eventTrigger(2)}
                         << TriggerList{eventTrigger(1), eventTrigger(2)};
    QTest::newRow("of another type") << TriggerList{plainTrigger(9)} << TriggerList{plainTrigger(9)};
}

void tst_NvxDeviceControllerTriggers::equalReplyIsOnlyTold()
{
    QFETCH(TriggerList, held);
    QFETCH(TriggerList, reported);
    Controlled c(held);
    QSignalSpy updated(&c.controller, &NvxDeviceController::signalTrigUdated);
    QSignalSpy enquired(&c.controller, &NvxDeviceController::signalEnqTrig);
    c.reply(reported);
    QCOMPARE(updated.count(), 0);
    QCOMPARE(enquired.count(), 1);
    QVERIFY(c.record() == held);
}

void tst_NvxDeviceControllerTriggers::triggerOfTheRecordCompares()
{
    class Noting : public HydTrigger_5_6
    {
    public:
        bool compare(const HydTrigger* other) const override
        {
            others.push_back(other);
            return true;
        }
        mutable std::vector<const HydTrigger*> others;
    };
    const auto held = std::make_shared<Noting>();
    const auto reported = std::make_shared<Noting>();
    Controlled c({held});
    c.reply({reported});
    QCOMPARE(held->others, (std::vector<const HydTrigger*>{reported.get()}));
    QVERIFY(reported->others.empty());
    QVERIFY(c.record() == TriggerList{held});
}

void tst_NvxDeviceControllerTriggers::lookupOfAnotherClassIsSent()
{
    class Strange : public HydDevice
    {
    public:
        std::shared_ptr<HydTrigger> trigger(uint8_t) const override { return plainTrigger(5); }
    };
    Controlled c;
    c.controller.setDevice(std::make_shared<Strange>());
    c.controller.setupTriggers({eventTrigger(1)}, true);
    QTRY_COMPARE(c.text, QByteArray("S1R"));
}

void tst_NvxDeviceControllerTriggers::secondSetupDropsTheFirst()
{
    Controlled c;
    c.controller.setupTriggers({eventTrigger(1), eventTrigger(2), eventTrigger(3)}, false);
    // All are in the record by now, so that only the new one is sent, when the first one would have been.
    c.controller.setupTriggers({eventTrigger(1), eventTrigger(2), eventTrigger(3), eventTrigger(4)}, false);
    QTRY_COMPARE(c.text, QByteArray("S4"));
    QSignalSpy more(&c.controller, &NvxDeviceController::adapterCmdReady);
    QVERIFY(spyStaysEmpty(more, 550));
}

void tst_NvxDeviceControllerTriggers::secondSetupGoesByTheTimersOfTheFirst()
{
    Controlled c;
    c.controller.setupTriggers({eventTrigger(1), eventTrigger(2)}, true);
    TriggerList wanted;
    for (uint8_t number = 1; number <= 8; ++number)
        wanted.push_back(eventTrigger(number));
    c.controller.setupTriggers(wanted, true);
    // The first setup's timers take two of the second's commands, and its read-back leaves after two steps
    // with two commands each, ahead of the last one: intended.
    QTRY_VERIFY_WITH_TIMEOUT(c.text.count('R') == 2, 15000);
    QCOMPARE(QByteArray(c.text).replace("R", ""), QByteArray("S3S4S5S6S7S8"));
    QVERIFY(c.text.indexOf('R') > c.text.indexOf("S6"));
    QVERIFY(c.text.indexOf('R') < c.text.indexOf("S8"));
    QVERIFY(c.text.endsWith('R'));
    QSignalSpy more(&c.controller, &NvxDeviceController::adapterCmdReady);
    QVERIFY(spyStaysEmpty(more, 250));
}

void tst_NvxDeviceControllerTriggers::setupDropsADelayedJobSetup()
{
    Controlled c;
    c.controller.sendJobSetup(rateTags(), true);
    c.controller.setupTriggers({eventTrigger(1)}, false);
    // The trigger leaves when the job setup would have, and the read-back comes as announced.
    QTRY_COMPARE(c.text, QByteArray("S1F"));
    // So does an empty wish, and one that needs nothing.
    c.text.clear();
    c.controller.sendJobSetup(rateTags(), true);
    c.controller.setupTriggers({}, false);
    QTRY_COMPARE(c.text, QByteArray("UF"));
    c.text.clear();
    c.controller.sendJobSetup(rateTags(), true);
    c.controller.setupTriggers({eventTrigger(1)}, false);
    QTRY_COMPARE(c.text, QByteArray("F"));
}

void tst_NvxDeviceControllerTriggers::delayedJobSetupDropsTheTriggers()
{
    Controlled c;
    c.controller.setupTriggers({eventTrigger(1), eventTrigger(2)}, true);
    c.controller.sendJobSetup(rateTags(), true);
    QTRY_VERIFY(c.text.contains('R'));
    QCOMPARE(c.text.count('S'), 0);
    QCOMPARE(c.text.count('D'), 1);
    QCOMPARE(c.text.at(0), 'D');
}

void tst_NvxDeviceControllerTriggers::nullTriggersAreSkipped()
{
    Controlled c(TriggerList{nullptr, eventTrigger(1)});
    c.controller.setupTriggers({nullptr, eventTrigger(1), eventTrigger(2)}, true);
    QTRY_COMPARE(c.text, QByteArray("S2R"));
}

void tst_NvxDeviceControllerTriggers::withoutARecordAllIsSent()
{
    Controlled c;
    c.controller.setDevice(nullptr);
    c.controller.setupTriggers({eventTrigger(1)}, true);
    QTRY_COMPARE(c.text, QByteArray("S1R"));
}

void tst_NvxDeviceControllerTriggers::nothingIsSentAfterTheEnd()
{
    auto controller = std::make_unique<NvxDeviceController>(ConnTcp);
    QSignalSpy commands(controller.get(), &NvxDeviceController::adapterCmdReady);
    controller->setupTriggers({eventTrigger(1)}, true);
    controller.reset();
    QVERIFY(spyStaysEmpty(commands, 450));
}

void tst_NvxDeviceControllerTriggers::replyOfAnotherClassIsStillTold()
{
    const TriggerList held{eventTrigger(1)};
    Controlled c(held);
    QSignalSpy updated(&c.controller, &NvxDeviceController::signalTrigUdated);
    QSignalSpy enquired(&c.controller, &NvxDeviceController::signalEnqTrig);
    // Intended.
    c.controller.handleAdapterResponse(std::make_shared<HydMsgPayload>('R'));
    QCOMPARE(enquired.count(), 1);
    QCOMPARE(enquired[0][0].value<std::shared_ptr<NvxDevice>>().get(), c.controller.device());
    QCOMPARE(updated.count(), 0);
    QVERIFY(c.record() == held);
}

void tst_NvxDeviceControllerTriggers::nullTriggerInTheRecordDiffers()
{
    Controlled c(TriggerList{nullptr});
    QSignalSpy updated(&c.controller, &NvxDeviceController::signalTrigUdated);
    c.reply({eventTrigger(1)});
    QCOMPARE(updated.count(), 1);
}

void tst_NvxDeviceControllerTriggers::repliesWhoseCountDoesNotFit_data()
{
    QTest::addColumn<QByteArray>("body");
    const QByteArray record = triggerBody(*eventTrigger(1));
    QTest::newRow("one too many") << QByteArray("\0\2", 2) + record;
    QTest::newRow("one too few") << QByteArray("\0\1", 2) + record + record;
    QTest::newRow("none, and one follows") << QByteArray("\0\0", 2) + record;
    QTest::newRow("65535") << QByteArray("\xFF\xFF", 2) + record;
    QTest::newRow("half a count") << QByteArray("\0", 1);
    QTest::newRow("cut record") << QByteArray("\0\1", 2) + record.chopped(1);
    QTest::newRow("record that is longer than its reply")
        << QByteArray("\0\1", 2) + record.left(1) + QByteArray("\xFF\xFF", 2) + record.mid(3);
}

void tst_NvxDeviceControllerTriggers::repliesWhoseCountDoesNotFit()
{
    QFETCH(QByteArray, body);
    ControlPeer peer(kAddress);
    QVERIFY(peer.listen());
    const auto device = std::make_shared<HydDevice>(DevTypeRecorderA);
    device->setNetHostInfo(NvxNetHostInfo(peer.ipAddr().toInt()));
    const TriggerList held{eventTrigger(7)};
    device->setTriggers(held);
    HydDeviceController controller(device, ConnTcp);
    QSignalSpy opened(&controller, &NvxDeviceController::channelOpen);
    QSignalSpy texts(&controller, &NvxDeviceController::signalErrorMes);
    QSignalSpy enquired(&controller, &NvxDeviceController::signalEnqTrig);
    controller.openChannel(ChanCommand);
    QTRY_VERIFY(!opened.isEmpty() && peer.isConnected());
    peer.setScript([&](const ControlPeer::Request&) { return rawFrame('R', body); });
    controller.enquireTriggers();
    QTRY_COMPARE(texts.count(), 1);
    QCOMPARE(texts[0][0].value<std::string>(),
             std::string("Incorrect response from device because of wrong request."));
    // A good reply still comes through.
    peer.setScript([&](const ControlPeer::Request&) { return frameOf(HydEnquireTrigger(held)); });
    controller.enquireTriggers();
    QTRY_COMPARE(enquired.count(), 1);
    QVERIFY(device->triggers() == held);
}

void tst_NvxDeviceControllerTriggers::refusalReachesTheApplication()
{
    ControlPeer peer(kAddress);
    QVERIFY(peer.listen());
    const auto device = std::make_shared<HydDevice>(DevTypeRecorderA);
    device->setNetHostInfo(NvxNetHostInfo(peer.ipAddr().toInt()));
    HydDeviceController controller(device, ConnTcp);
    QSignalSpy opened(&controller, &NvxDeviceController::channelOpen);
    QSignalSpy texts(&controller, &NvxDeviceController::signalErrorMes);
    QSignalSpy updated(&controller, &NvxDeviceController::signalTrigUdated);
    controller.openChannel(ChanCommand);
    QTRY_VERIFY(!opened.isEmpty() && peer.isConnected());
    peer.setScript([](const ControlPeer::Request& request) {
        if (request.letter == 'R')
            return frameOf(HydEnquireTrigger(TriggerList{}));
        const auto refused = eventTrigger(4);
        refused->setErrorCode(3);
        return frameOf(*refused);
    });
    controller.setupTriggers({eventTrigger(4)}, true);
    QTRY_COMPARE(texts.count(), 1);
    QCOMPARE(texts[0][0].value<std::string>(), std::string("Trigger 4: The threshold is out of range."));
    QCOMPARE(device->triggers().size(), size_t(1));
    // The enquiry that follows corrects the record.
    QTRY_COMPARE(updated.count(), 1);
    QVERIFY(device->triggers().empty());
}

void tst_NvxDeviceControllerTriggers::deletedByASlot_data()
{
    QTest::addColumn<int>("call");
    QTest::newRow("clear of an empty wish") << 0;
    QTest::newRow("clear of a shorter wish") << 1;
    QTest::newRow("new record") << 2;
    QTest::newRow("reply") << 3;
}

void tst_NvxDeviceControllerTriggers::deletedByASlot()
{
    using BuriedController = Buried<HydDeviceController>;
    QFETCH(int, call);
    auto* controller = new BuriedController(ConnTcp);
    controller->device()->setTriggers({eventTrigger(1)});
    QSignalSpy told(controller, &NvxDeviceController::signalEnqTrig);
    const auto end = [controller] { delete controller; };
    connect(controller, &NvxDeviceController::adapterCmdReady, controller, end);
    connect(controller, &NvxDeviceController::signalTrigUdated, controller, end);
    const auto report = [&](const TriggerList& list) {
        const auto reply = std::make_shared<HydEnquireTrigger>(list);
        controller->handleAdapterResponse(reply);
    };
    switch (call) {
    case 0:
        controller->setupTriggers({}, true);
        break;
    case 1:
        controller->setupTriggers({eventTrigger(2)}, true);
        break;
    case 2:
        report({});
        break;
    default:
        connect(controller, &NvxDeviceController::signalEnqTrig, controller, end);
        report({eventTrigger(1)});
        break;
    }
    QVERIFY(BuriedController::isGone());
    QVERIFY(BuriedController::isUntouched());
    QCOMPARE(told.count(), call == 3 ? 1 : 0);
}

QTEST_GUILESS_MAIN(tst_NvxDeviceControllerTriggers)
#include "tst_NvxDeviceControllerTriggers.moc"
