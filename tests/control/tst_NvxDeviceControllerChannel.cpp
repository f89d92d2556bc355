#include "ControlPeer.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SerialPair.h"

#include "NvxQtCommon/contract/message/HydTrigger.h"
#include "NvxQtCommon/control/NvxDeviceController.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSemaphore>
#include <QSignalSpy>

#include <functional>
#include <random>

namespace {

const QString kAddress = QStringLiteral("127.22.0.1");

/// Adapters' threads of this process.
int adapterThreads()
{
    int count = 0;
    for (const auto& task :
         QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile name(QStringLiteral("/proc/self/task/%1/comm").arg(task));
        count += name.open(QIODevice::ReadOnly) && name.readAll().trimmed() == "NvxCommand";
    }
    return count;
}

using Command = std::function<void(const NvxDeviceController&)>;

/// A controller and the recorder at the other end, with the adapter's thread between them.
class ControllerFixture
{
public:
    ControllerFixture()
        : peer(kAddress), controller(std::make_unique<NvxDeviceController>(
                              std::make_shared<HydDevice>(uint16_t(12), DevTypeRecorderA,
                                                          NvxNetHostInfo(peer.ipAddr().toInt()), JobTagMap()),
                              ConnTcp)),
          opened(controller.get(), &NvxDeviceController::channelOpen),
          closed(controller.get(), &NvxDeviceController::channelClosed),
          errors(controller.get(), &NvxDeviceController::error)
    {
    }
    bool open()
    {
        if (!peer.listen())
            return false;
        controller->openChannel(ChanCommand);
        return QTest::qWaitFor([this] { return !opened.isEmpty() && peer.isConnected(); }, kPatienceMs);
    }

    ControlPeer peer;
    std::unique_ptr<NvxDeviceController> controller;
    QSignalSpy opened;
    QSignalSpy closed;
    QSignalSpy errors;
};

QSemaphore g_isReading;
QSemaphore g_goOn;

/// Holds up the thread that logs a message without payload: the adapter's, in the middle of its reading.
void holdUpTheReader(QtMsgType, const QMessageLogContext&, const QString& text)
{
    if (text.startsWith(QStringLiteral("nullptr == spPayload"))) {
        g_isReading.release();
        g_goOn.acquire();
    }
}

} // namespace

Q_DECLARE_METATYPE(Command)

/// A controller with its adapter and thread: the channel, commands on the wire, the end at any moment.
class tst_NvxDeviceControllerChannel : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void opensAndClosesTheChannel();
    void opensOverASerialLine();
    void requestsCarryAddressPortAndRate();
    void startUpAsksInOrder();
    void commandsOnTheWire_data();
    void commandsOnTheWire();
    void repliesUpdateTheRecord();
    void textsOfTheDeviceArrive();
    void closeAllClosesAndStopsTheClock();
    void adapterHasAThreadOfItsOwn();
    void disconnectingTheBaseConnections();
    void disconnectingLeavesTheOtherConnections();
    // --- rainy day flows
    void otherChannelsAreIgnored();
    void otherConnectionTypesOpenNothing();
    void refusedConnectionIsReported();
    void peerThatClosesIsReported();
    void commandWithoutChannelIsAnError();
    void silentPeerIsHeardWhenItSpeaks();
    void destroyedWithTrafficAtAnyMoment();
    void destroyedInAReplyOfTheWire();
    void destroyedWhileConnecting();
    void destructorClosesTheChannel();
    void commandsBeforeTheEndStillLeave();
};

void tst_NvxDeviceControllerChannel::opensAndClosesTheChannel()
{
    ControllerFixture f;
    QCOMPARE(f.controller->device()->cmdPortStatus(), PortUnavailable);
    QVERIFY(!f.controller->isCmdChanOpen());
    QVERIFY(f.open());
    QCOMPARE(f.opened.count(), 1);
    QCOMPARE(f.opened[0][0].value<HydDeviceId>(), f.controller->device()->deviceId());
    QCOMPARE(f.opened[0][1].value<HydChannel>(), ChanCommand);
    QCOMPARE(f.controller->device()->cmdPortStatus(), PortConnected);
    QVERIFY(f.controller->isCmdChanOpen());

    f.controller->closeChannel(ChanCommand);
    QTRY_COMPARE(f.closed.count(), 1);
    QCOMPARE(f.closed[0][0].value<HydDeviceId>(), f.controller->device()->deviceId());
    QCOMPARE(f.closed[0][1].value<HydChannel>(), ChanCommand);
    QCOMPARE(f.controller->device()->cmdPortStatus(), PortReachable);
    QVERIFY(!f.controller->isCmdChanOpen());
    QVERIFY(f.errors.isEmpty());
}

void tst_NvxDeviceControllerChannel::opensOverASerialLine()
{
    SerialPair line;
    QVERIFY(line.isValid());
    NvxDeviceController controller(std::make_shared<HydDevice>(DevTypeRecorderA), ConnSerial);
    QSignalSpy opened(&controller, &NvxDeviceController::channelOpen);
    QSignalSpy closed(&controller, &NvxDeviceController::channelClosed);
    QSignalSpy enquired(&controller, &NvxDeviceController::enquireResponse);
    controller.setSerialPortName(line.portName());
    controller.setBaudRate(230400);
    controller.openChannel(ChanCommand);
    QTRY_COMPARE(opened.count(), 1);
    QVERIFY(controller.isCmdChanOpen());
    const auto settings = line.settings();
    QCOMPARE(cfgetospeed(&settings), speed_t(B230400));

    controller.sendEnquire();
    QByteArray received;
    QTRY_VERIFY((received += line.read()) == frameOf(HydEnquireCmd()));
    QVERIFY(line.write(enquireReply(55)));
    QTRY_COMPARE(enquired.count(), 1);
    QCOMPARE(controller.device()->serial(), uint16_t(55));
    controller.closeChannel(ChanCommand);
    QTRY_COMPARE(closed.count(), 1);
}

void tst_NvxDeviceControllerChannel::requestsCarryAddressPortAndRate()
{
    {
        NvxDeviceController controller(std::make_shared<HydDevice>(DevTypeRecorderA), ConnTcp);
        QSignalSpy requests(&controller, qOverload<QString>(&NvxDeviceController::requestOpenAdapter));
        QSignalSpy errors(&controller, &NvxDeviceController::error);
        controller.openChannel(ChanCommand);
        // The controller's own address is never written; the adapter has the record's and ignores this one.
        QCOMPARE(requests.count(), 1);
        QCOMPARE(requests[0][0].toString(), QStringLiteral("0.0.0.0"));
        QTRY_COMPARE(errors.count(), 1);
    }
    {
        NvxDeviceController controller(std::make_shared<HydDevice>(DevTypeRecorderA), ConnSerial);
        QSignalSpy requests(&controller,
                            qOverload<QString, uint32_t>(&NvxDeviceController::requestOpenAdapter));
        controller.setSerialPortName(QStringLiteral("nvx-no-port"));
        controller.setBaudRate(19200);
        controller.openChannel(ChanCommand);
        QCOMPARE(requests.count(), 1);
        QCOMPARE(requests[0][0].toString(), QStringLiteral("nvx-no-port"));
        QCOMPARE(requests[0][1].toUInt(), 19200u);
    }
}

void tst_NvxDeviceControllerChannel::startUpAsksInOrder()
{
    ControllerFixture f;
    f.peer.setScript([](const ControlPeer::Request& request) {
        switch (request.letter) {
        case 'E':
            return enquireReply(99);
        case 'F':
            return jobSetupReply(40);
        default:
            return frameOf(HydEnquireTrigger());
        }
    });
    QSignalSpy enquired(f.controller.get(), &NvxDeviceController::enquireResponse);
    QSignalSpy setupRead(f.controller.get(), &NvxDeviceController::jobSetupReadFromDev);
    QVERIFY(f.open());
    f.controller->startUpProc();
    QTRY_COMPARE(f.peer.letters(), QByteArray("EFR"));
    QTRY_COMPARE(setupRead.count(), 1);
    QCOMPARE(enquired.count(), 1);
    QCOMPARE(f.controller->device()->serial(), uint16_t(99));
    QVERIFY(f.controller->settingsReady());
}

void tst_NvxDeviceControllerChannel::commandsOnTheWire_data()
{
    QTest::addColumn<Command>("command");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("sendEnquire") << Command(&NvxDeviceController::sendEnquire) << frameOf(HydEnquireCmd());
    QTest::newRow("resetDevice") << Command(&NvxDeviceController::resetDevice) << rawFrame('Y', {});
    QTest::newRow("resetPassword") << Command(&NvxDeviceController::resetPassword) << rawFrame('V', {});
    QTest::newRow("clearTriggers") << Command(&NvxDeviceController::clearTriggers) << rawFrame('U', {});
    QTest::newRow("enquireTriggers") << Command(&NvxDeviceController::enquireTriggers) << rawFrame('R', {});
    QTest::newRow("enquireTimeSync") << Command(&NvxDeviceController::enquireTimeSync) << rawFrame('[', {});
    QTest::newRow("enquireJobSetup") << Command(&NvxDeviceController::enquireJobSetup)
                                     << rawFrame('F', QByteArray("\0\24\0\0", 4));
    const auto setTime = [](long long time) {
        return Command([time](const NvxDeviceController& c) { c.sendSetTime(time); });
    };
    QTest::newRow("set a time") << setTime(1700000000) << rawFrame('A', QByteArray::fromHex("6553F100"));
    // The time 0 asks only: intended.
    QTest::newRow("set time 0") << setTime(0) << rawFrame('A', QByteArray::fromHex("FFFFFFFF"));
    QTest::newRow("set time -1") << setTime(-1) << rawFrame('A', QByteArray::fromHex("FFFFFFFF"));
    QTest::newRow("time beyond 32 bits")
        << setTime(0x1234567890LL) << rawFrame('A', QByteArray::fromHex("34567890"));
    QTest::newRow("time whose 32 bits are 0")
        << setTime(0x100000000LL) << rawFrame('A', QByteArray::fromHex("00000000"));
}

void tst_NvxDeviceControllerChannel::commandsOnTheWire()
{
    QFETCH(Command, command);
    QFETCH(QByteArray, expected);
    ControllerFixture f;
    QVERIFY(f.open());
    command(*f.controller);
    QTRY_COMPARE(f.peer.received(), expected);
}

void tst_NvxDeviceControllerChannel::repliesUpdateTheRecord()
{
    ControllerFixture f;
    QSignalSpy time(f.controller.get(), &NvxDeviceController::timeChanged);
    QSignalSpy timeErr(f.controller.get(), &NvxDeviceController::timeChangeErr);
    QSignalSpy refused(f.controller.get(), &NvxDeviceController::jobSetupErr);
    QSignalSpy reset(f.controller.get(), &NvxDeviceController::signalDevReset);
    QVERIFY(f.open());
    // Looked at when it comes: the clock of the record goes on by itself.
    QList<int> times;
    connect(f.controller.get(), &NvxDeviceController::timeChangeErr, this,
            [&] { times << int(time.count()) << f.controller->device()->timeUtc(); });
    f.peer.send(timeReply(1000) + timeReply(-1));
    QTRY_COMPARE(timeErr.count(), 1);
    QCOMPARE(times, (QList<int>{1, 1000}));
    f.peer.send(frameOf(HydJobSetupCmd({}, JobSetupDefault, 3)) + rawFrame('Y', {}));
    QTRY_COMPARE(reset.count(), 1);
    QCOMPARE(refused.count(), 1);
    QCOMPARE(f.controller->device()->configStat(), ConfigRejected);
}

void tst_NvxDeviceControllerChannel::textsOfTheDeviceArrive()
{
    ControllerFixture f;
    QSignalSpy texts(f.controller.get(), &NvxDeviceController::signalErrorMes);
    QVERIFY(f.open());
    HydTrigger_5_6 trigger;
    trigger.setTrigNum(3);
    trigger.setErrorCode(1);
    f.peer.send(frameOf(trigger) + rawFrame('Q', {}));
    QTRY_COMPARE(texts.count(), 2);
    QCOMPARE(texts[0][0].value<std::string>(), trigger.errorMes(true));
    QCOMPARE(texts[1][0].value<std::string>(),
             std::string("Incorrect response from device because of wrong request."));
}

void tst_NvxDeviceControllerChannel::closeAllClosesAndStopsTheClock()
{
    ControllerFixture f;
    QSignalSpy peerClosed(&f.peer, &ControlPeer::disconnected);
    QVERIFY(f.open());
    f.peer.send(timeReply(1000));
    auto* timer = f.controller->findChild<QTimer*>();
    QTRY_VERIFY(timer->isActive());
    f.controller->closeAll();
    QVERIFY(!timer->isActive());
    QTRY_COMPARE(f.closed.count(), 1);
    QTRY_COMPARE(peerClosed.count(), 1);
    // It can be opened again.
    f.controller->openChannel(ChanCommand);
    QTRY_COMPARE(f.opened.count(), 2);
}

void tst_NvxDeviceControllerChannel::adapterHasAThreadOfItsOwn()
{
    QTRY_COMPARE(adapterThreads(), 0);
    {
        NvxDeviceController first(std::make_shared<HydDevice>(DevTypeRecorderA), ConnTcp);
        QTRY_COMPARE(adapterThreads(), 1);
        NvxDeviceController second(ConnSerial);
        QTRY_COMPARE(adapterThreads(), 2);
        // An array controller has no adapter and so no thread.
        NvxDeviceController array(std::make_shared<ZcrDevice>(DevTypeZcr), ConnTcp);
        QVERIFY(!array.isCmdChanOpen());
        NvxDeviceController third(ConnTcp);
        QTRY_COMPARE(adapterThreads(), 3);
    }
    // The destructors have waited for the threads; the system may still list one for a moment.
    QTRY_COMPARE(adapterThreads(), 0);
}

void tst_NvxDeviceControllerChannel::disconnectingTheBaseConnections()
{
    ControllerFixture f;
    QSignalSpy enquired(f.controller.get(), &NvxDeviceController::enquireResponse);
    QSignalSpy texts(f.controller.get(), &NvxDeviceController::signalErrorMes);
    QVERIFY(f.open());
    f.controller->disConnectBaseConnections();
    f.controller->disConnectBaseConnections();
    // Commands still go out, faults still come in; replies, texts and the state of the channel don't.
    f.controller->sendEnquire();
    QTRY_COMPARE(f.peer.letters(), QByteArray("E"));
    f.peer.send(enquireReply(5) + rawFrame('Q', {}));
    f.peer.close();
    QTRY_COMPARE(f.errors.count(), 1);
    QTRY_VERIFY(!f.controller->isCmdChanOpen());
    f.controller->sendEnquire();
    QTRY_COMPARE(f.errors.count(), 2);
    QCOMPARE(enquired.count() + texts.count() + f.closed.count(), 0);
}

void tst_NvxDeviceControllerChannel::disconnectingLeavesTheOtherConnections()
{
    ControllerFixture f;
    QVERIFY(f.open());
    Q_EMIT f.controller->setDataScanConf(20, 0x20);
    QTRY_VERIFY(f.peer.count('C') >= 2);
    f.controller->disConnectBaseConnections();
    // The start of a poll is one of the five, its end isn't: this second configuration, which would stop the
    // poll, goes nowhere.
    Q_EMIT f.controller->setDataScanConf(20, 0x20);
    f.peer.forget();
    QTRY_VERIFY(f.peer.count('C') >= 3);
    Q_EMIT f.controller->signalStopCollect(0, 0);
    f.controller->sendEnquire();
    QTRY_VERIFY(f.peer.letters().endsWith('E'));
    // Closing and opening go on too; that the channel opened is no longer told.
    f.controller->closeChannel(ChanCommand);
    QTRY_VERIFY(!f.controller->isCmdChanOpen());
    f.controller->openChannel(ChanCommand);
    QTRY_VERIFY(f.controller->isCmdChanOpen() && f.peer.connections() == 2);
    f.peer.forget();
    f.controller->sendEnquire();
    QTRY_COMPARE(f.peer.letters(), QByteArray("E"));
    QCoreApplication::sendPostedEvents(f.controller.get());
    QCOMPARE(f.opened.count(), 1);
    QCOMPARE(f.closed.count(), 0);
}

void tst_NvxDeviceControllerChannel::otherChannelsAreIgnored()
{
    ControllerFixture f;
    QVERIFY(f.peer.listen());
    QSignalSpy openRequests(f.controller.get(), qOverload<QString>(&NvxDeviceController::requestOpenAdapter));
    QSignalSpy closeRequests(f.controller.get(), &NvxDeviceController::requestCloseAdapter);
    for (const int channel : {1, 2, 255}) {
        f.controller->openChannel(HydChannel(channel));
        f.controller->closeChannel(HydChannel(channel));
    }
    QVERIFY(openRequests.isEmpty());
    QVERIFY(closeRequests.isEmpty());
}

void tst_NvxDeviceControllerChannel::otherConnectionTypesOpenNothing()
{
    NvxDeviceController controller(std::make_shared<HydDevice>(DevTypeRecorderA), HydConnectionType(7));
    QSignalSpy tcp(&controller, qOverload<QString>(&NvxDeviceController::requestOpenAdapter));
    QSignalSpy serial(&controller, qOverload<QString, uint32_t>(&NvxDeviceController::requestOpenAdapter));
    controller.openChannel(ChanCommand);
    QVERIFY(tcp.isEmpty());
    QVERIFY(serial.isEmpty());
}

void tst_NvxDeviceControllerChannel::refusedConnectionIsReported()
{
    ControllerFixture f;
    f.controller->openChannel(ChanCommand);
    QTRY_COMPARE(f.errors.count(), 1);
    QCOMPARE(f.errors[0][0].value<HydControlError>(), ErrNotConnected);
    QCOMPARE(f.errors[0][1].toInt(), int(QAbstractSocket::ConnectionRefusedError));
    QVERIFY(f.opened.isEmpty());
    QVERIFY(!f.controller->isCmdChanOpen());
    QVERIFY(f.open());
}

void tst_NvxDeviceControllerChannel::peerThatClosesIsReported()
{
    ControllerFixture f;
    QVERIFY(f.open());
    f.peer.send(enquireReply(3).first(15));
    f.peer.reset();
    QTRY_COMPARE(f.closed.count(), 1);
    QCOMPARE(f.errors.count(), 1);
    QCOMPARE(f.controller->device()->cmdPortStatus(), PortReachable);
    QVERIFY(!f.controller->isCmdChanOpen());
    f.controller->openChannel(ChanCommand);
    QTRY_COMPARE(f.opened.count(), 2);
}

void tst_NvxDeviceControllerChannel::commandWithoutChannelIsAnError()
{
    ControllerFixture f;
    QVERIFY(f.peer.listen());
    for (int i = 0; i < 7; ++i)
        f.controller->sendEnquire();
    // Seven reports, the eighth of a lost connection, and the channel opens by itself.
    QTRY_COMPARE(f.opened.count(), 1);
    QCOMPARE(f.errors.count(), 8);
    QCOMPARE(f.errors.last()[0].value<HydControlError>(), ErrConnectionLost);
}

void tst_NvxDeviceControllerChannel::silentPeerIsHeardWhenItSpeaks()
{
    ControllerFixture f;
    QSignalSpy enquired(f.controller.get(), &NvxDeviceController::enquireResponse);
    QSignalSpy setupRead(f.controller.get(), &NvxDeviceController::jobSetupReadFromDev);
    QVERIFY(f.open());
    f.controller->startUpProc();
    QTRY_COMPARE(f.peer.letters(), QByteArray("EFR"));
    // No deadline: an answer counts whenever it comes, and in any order.
    f.peer.send(jobSetupReply(40));
    QTRY_COMPARE(setupRead.count(), 1);
    QCOMPARE(enquired.count(), 0);
    QVERIFY(f.controller->isCmdChanOpen());
    f.peer.send(enquireReply(5));
    QTRY_COMPARE(enquired.count(), 1);
    QVERIFY(f.errors.isEmpty());
    QVERIFY(f.closed.isEmpty());
}

void tst_NvxDeviceControllerChannel::destroyedWithTrafficAtAnyMoment()
{
    std::mt19937 random(7);
    for (int round = 0; round < 25; ++round) {
        ControllerFixture f;
        f.peer.setScript([](const ControlPeer::Request&) {
            return timeReply(5) + enquireReply(1) + jobSetupReply(500) + rawFrame('Q', {}) + timeReply(-1);
        });
        QVERIFY(f.open());
        int replies = 0;
        connect(f.controller.get(), &NvxDeviceController::enquireResponse, this, [&] {
            ++replies;
            f.controller->sendEnquire();
        });
        f.controller->startUpProc();
        f.controller->sendJobSetup({}, true);
        const int enough = int(random() % 40);
        QSignalSpy enquired(f.controller.get(), &NvxDeviceController::enquireResponse);
        while (replies < enough)
            QVERIFY(enquired.wait(kPatienceMs));
        f.controller.reset();
        const int atTheEnd = replies;
        QCoreApplication::processEvents();
        QCOMPARE(replies, atTheEnd);
    }
    QTRY_COMPARE(adapterThreads(), 0);
}

void tst_NvxDeviceControllerChannel::destroyedInAReplyOfTheWire()
{
    ControllerFixture f;
    QVERIFY(f.open());
    connect(f.controller.get(), &NvxDeviceController::timeChanged, this, [&] { f.controller.reset(); });
    f.peer.send(timeReply(1) + timeReply(2) + enquireReply(3));
    QTRY_VERIFY(!f.controller);
    QVERIFY(f.errors.isEmpty());
}

void tst_NvxDeviceControllerChannel::destroyedWhileConnecting()
{
    for (int round = 0; round < 20; ++round) {
        ControllerFixture f;
        QVERIFY(f.peer.listen());
        f.controller->openChannel(ChanCommand);
        f.controller->startUpProc();
        f.controller.reset();
        QCOMPARE(f.opened.count(), 0);
        QCOMPARE(f.errors.count(), 0);
    }
}

void tst_NvxDeviceControllerChannel::destructorClosesTheChannel()
{
    ControllerFixture f;
    QSignalSpy peerClosed(&f.peer, &ControlPeer::disconnected);
    QVERIFY(f.open());
    f.controller.reset();
    QTRY_COMPARE(peerClosed.count(), 1);
}

void tst_NvxDeviceControllerChannel::commandsBeforeTheEndStillLeave()
{
    ControlPeer peer(kAddress);
    QVERIFY(peer.listen());
    // The destructor lets go of the record just before it ends the thread, which reads at that moment.
    std::shared_ptr<HydDevice> device(
        new HydDevice(uint16_t(12), DevTypeRecorderA, NvxNetHostInfo(peer.ipAddr().toInt()), JobTagMap()),
        [](const HydDevice* record) {
            delete record;
            g_goOn.release();
        });
    auto controller = std::make_unique<NvxDeviceController>(std::move(device), ConnTcp);
    controller->openChannel(ChanCommand);
    QTRY_VERIFY(controller->isCmdChanOpen() && peer.isConnected());

    const auto previous = qInstallMessageHandler(holdUpTheReader);
    peer.send(rawFrame('Q', {}));
    const bool isReading = g_isReading.tryAcquire(1, kPatienceMs);
    controller->startUpProc();
    controller->resetDevice();
    controller.reset();
    qInstallMessageHandler(previous);
    QVERIFY(isReading);
    QTRY_COMPARE(peer.letters(), QByteArray("EFRY"));
}

QTEST_GUILESS_MAIN(tst_NvxDeviceControllerChannel)
#include "tst_NvxDeviceControllerChannel.moc"
