#include "ControlPeer.h"
#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/control/NvxDeviceController.h"
#include "NvxQtCommon/control/TdRecDeviceController.h"

#include <QElapsedTimer>
#include <QSignalSpy>

namespace {

const QString kAddress = QStringLiteral("127.22.1.1");
// Coarse timers may be 5 % early or late.
constexpr double kEarliest = 0.94;
constexpr int kLate = 60;

JobTagMap rateTags(unsigned rate)
{
    return {{JobTagWavRate, std::make_shared<HydWavSampleRateTag>(rate)}};
}

QByteArray setupCommand(unsigned rate)
{
    return frameOf(HydJobSetupCmd(rateTags(rate), JobSetupDefault));
}

/// A controller with an open channel, and when what arrived at the other end.
class PacingFixture
{
public:
    explicit PacingFixture(HydDeviceType type = DevTypeRecorderA)
        : peer(kAddress), device(HydDevice::createDevice(type))
    {
        device->setNetHostInfo(NvxNetHostInfo(peer.ipAddr().toInt()));
        controller = NvxDeviceController::createController(device, ConnTcp);
        QObject::connect(controller.get(), &NvxDeviceController::adapterCmdReady, controller.get(),
                         [this](const std::shared_ptr<HydControlMsgPayload>& command) {
                             letters += static_cast<char>(command->msgType());
                         });
    }
    bool open()
    {
        if (!peer.listen())
            return false;
        QSignalSpy opened(controller.get(), &NvxDeviceController::channelOpen);
        controller->openChannel(ChanCommand);
        return QTest::qWaitFor([&] { return !opened.isEmpty() && peer.isConnected(); }, kPatienceMs);
    }

    /// Keeps what the controller has sent when a wait of `ms` that begins now is over. Timers of one thread
    /// run in the order of their times however late the machine is, so this tells what waits for less.
    void keepLettersAfter(int ms)
    {
        QTimer::singleShot(ms + kLate, Qt::PreciseTimer, controller.get(), [this] { kept << letters; });
    }

    ControlPeer peer;
    std::shared_ptr<HydDevice> device;
    std::shared_ptr<NvxDeviceController> controller;
    QByteArray letters; ///< of the commands so far
    QByteArrayList kept;
};

bool isEarly(qint64 ms, qint64 expected)
{
    return ms < expected * kEarliest;
}

} // namespace

/// When the commands of a job setup write leave, and that none arrives at the recorder ahead of its time.
class tst_NvxDeviceControllerPacing : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void setupAtOnceAndReadBack_data();
    void setupAtOnceAndReadBack();
    void delayedSetup();
    void precedingCommandPassesFirst();
    void setupAtOncePassesADelayedOne();
    // --- rainy day flows
    void secondDelayedSetupReplacesTheFirst();
    void secondDelayedSetupLeavesWhenTheFirstWould();
    void readBackIsVirtual();
    void nothingIsSentAfterTheEnd();
    void queueEmptyWhenItsTimeComes();
};

void tst_NvxDeviceControllerPacing::setupAtOnceAndReadBack_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("recorder") << int(DevTypeRecorderA);
    QTest::newRow("TMI") << int(DevTypeTmi);
    QTest::newRow("TD recorder") << int(DevTypeTdRec);
    QTest::newRow("other") << 99;
}

void tst_NvxDeviceControllerPacing::setupAtOnceAndReadBack()
{
    QFETCH(int, type);
    PacingFixture f{HydDeviceType(type)};
    QVERIFY(f.open());
    const qint64 start = f.peer.now();
    f.controller->sendJobSetup(rateTags(64000), false);
    f.keepLettersAfter(400);
    QCOMPARE(f.letters, QByteArray("D"));
    QCOMPARE(f.device->configStat(), ConfigPending);
    // Sending changes no settings.
    QVERIFY(f.device->jobSettings().map().empty());
    QTRY_COMPARE(f.peer.letters(), QByteArray("DF"));
    QCOMPARE(f.peer.requests()[0].frame, setupCommand(64000));
    QVERIFY(!isEarly(f.peer.requests()[1].ms - start, 400));
    QTRY_COMPARE(f.kept, QByteArrayList{"DF"});
}

void tst_NvxDeviceControllerPacing::delayedSetup()
{
    PacingFixture f;
    QVERIFY(f.open());
    const qint64 start = f.peer.now();
    f.controller->sendEnquire();
    f.controller->sendJobSetup(rateTags(64000), true);
    f.keepLettersAfter(200);
    f.keepLettersAfter(400);
    QCOMPARE(f.device->configStat(), ConfigPending);
    QTRY_COMPARE(f.peer.letters(), QByteArray("EDF"));
    QCOMPARE(f.peer.requests()[1].frame, setupCommand(64000));
    QVERIFY(!isEarly(f.peer.requests()[1].ms - start, 200));
    QVERIFY(!isEarly(f.peer.requests()[2].ms - start, 400));
    QTRY_COMPARE(f.kept, (QByteArrayList{"ED", "EDF"}));
}

void tst_NvxDeviceControllerPacing::precedingCommandPassesFirst()
{
    PacingFixture f;
    QVERIFY(f.open());
    f.controller->sendJobSetup(rateTags(64000), true);
    f.controller->sendSetTime(5);
    QTRY_COMPARE(f.peer.letters(), QByteArray("ADF"));
}

void tst_NvxDeviceControllerPacing::setupAtOncePassesADelayedOne()
{
    PacingFixture f;
    QVERIFY(f.open());
    f.controller->sendJobSetup(rateTags(8000), true);
    f.controller->sendJobSetup(rateTags(16000), false);
    QTRY_COMPARE(f.peer.letters(), QByteArray("DDFF"));
    QCOMPARE(f.peer.requests()[0].frame, setupCommand(16000));
    QCOMPARE(f.peer.requests()[1].frame, setupCommand(8000));
}

void tst_NvxDeviceControllerPacing::secondDelayedSetupLeavesWhenTheFirstWould()
{
    // The first wait sends what stands in front of the queue by then. Intended.
    PacingFixture f;
    QVERIFY(f.open());
    const qint64 start = f.peer.now();
    f.controller->sendEnquire();
    f.controller->sendJobSetup(rateTags(8000), true);
    f.keepLettersAfter(200);
    QTimer::singleShot(120, f.controller.get(), [&] { f.controller->sendJobSetup(rateTags(16000), true); });
    QTRY_COMPARE(f.peer.letters(), QByteArray("EDFF"));
    QCOMPARE(f.peer.requests()[1].frame, setupCommand(16000));
    QVERIFY(!isEarly(f.peer.requests()[1].ms - start, 200));
    QTRY_COMPARE(f.kept, QByteArrayList{"ED"});
}

void tst_NvxDeviceControllerPacing::secondDelayedSetupReplacesTheFirst()
{
    PacingFixture f;
    QVERIFY(f.open());
    f.controller->sendJobSetup(rateTags(8000), true);
    f.controller->sendJobSetup(rateTags(16000), true);
    // Both read-backs come; the second wait finds nothing left to send.
    QTRY_COMPARE(f.peer.letters(), QByteArray("DFF"));
    QCOMPARE(f.peer.requests()[0].frame, setupCommand(16000));
}

void tst_NvxDeviceControllerPacing::readBackIsVirtual()
{
    class Counting : public NvxDeviceController
    {
    public:
        using NvxDeviceController::NvxDeviceController;
        void enquireJobSetup() const override { ++count; }
        mutable int count = 0;
    };
    Counting controller(ConnTcp);
    QElapsedTimer clock;
    clock.start();
    controller.sendJobSetup({}, true);
    int countInTime = 0;
    QTimer::singleShot(400 + kLate, Qt::PreciseTimer, &controller, [&] { countInTime = controller.count; });
    QCOMPARE(controller.count, 0);
    QTRY_COMPARE(controller.count, 1);
    QVERIFY(!isEarly(clock.elapsed(), 400));
    QTRY_COMPARE(countInTime, 1);
}

void tst_NvxDeviceControllerPacing::nothingIsSentAfterTheEnd()
{
    PacingFixture f;
    QVERIFY(f.open());
    QSignalSpy closed(&f.peer, &ControlPeer::disconnected);
    f.controller->sendJobSetup(rateTags(8000), true);
    f.controller.reset();
    QTRY_COMPARE(closed.count(), 1);
    // A later controller's commands arrive after the first one's would have.
    PacingFixture later;
    f.peer.stopListening();
    QVERIFY(later.open());
    later.controller->sendJobSetup(rateTags(8000), true);
    QTRY_COMPARE(later.peer.letters(), QByteArray("DF"));
    QVERIFY(f.peer.received().isEmpty());
}

void tst_NvxDeviceControllerPacing::queueEmptyWhenItsTimeComes()
{
    PacingFixture f;
    QVERIFY(f.open());
    QSignalSpy commands(f.controller.get(), &NvxDeviceController::adapterCmdReady);
    for (int i = 0; i < 5; ++i)
        f.controller->sendJobSetup(rateTags(unsigned(i)), true);
    QTRY_COMPARE(f.peer.count('F'), 5);
    QCOMPARE(f.peer.count('D'), 1);
    QCOMPARE(commands.count(), 6);
}

QTEST_GUILESS_MAIN(tst_NvxDeviceControllerPacing)
#include "tst_NvxDeviceControllerPacing.moc"
