#include "NvxQtCommon/contract/device/DeviceVariants.h"
#include "NvxQtCommon/contract/device/SkiffDevice.h"
#include "NvxQtCommon/contract/device/ZcrDevice.h"
#include "tests/discovery/MarcoFixture.h"
#include "tests/support/NvxTestCase.h"

#include <QThread>

#include <atomic>
#include <typeinfo>

namespace {

const QHostAddress kPeerAddress(QStringLiteral("127.62.1.1"));
const QHostAddress kOtherAddress(QStringLiteral("127.62.1.2"));
const QHostAddress kAbsentAddress(QStringLiteral("127.62.1.3"));

void expectInvalidInterfaceLog()
{
    QTest::ignoreMessage(QtDebugMsg, "INVALID INTERFACE!");
    QTest::ignoreMessage(QtDebugMsg, "void HydMarcoAdapter::readUdpSocket()");
}

} // namespace

/// Lives on another thread and keeps what arrives there; readable once the thread has ended.
class FarReceiver : public QObject
{
    Q_OBJECT

public:
    std::atomic<int> m_calls{0};
    std::shared_ptr<HydDevice> m_device;
    NvxMacAddr m_mac;
    std::shared_ptr<HydMarcoCommand> m_message;
    uint32_t m_address = 0;
    bool m_isFar = true;

public Q_SLOTS:
    void takeDevice(std::shared_ptr<HydDevice> device)
    {
        m_device = std::move(device);
        count();
    }
    void takeMac(NvxMacAddr mac)
    {
        m_mac = mac;
        count();
    }
    void takeMessage(std::shared_ptr<HydMarcoCommand> message, uint32_t address)
    {
        m_message = std::move(message);
        m_address = address;
        count();
    }

private:
    void count()
    {
        m_isFar = m_isFar && QThread::currentThread() != QCoreApplication::instance()->thread();
        ++m_calls;
    }
};

class tst_HydMarcoAdapter : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaultsAndSetters();
    void enquirySendsTheDocumentedBytes();
    void flagsOfAnEnquiryAreIgnored_data();
    void flagsOfAnEnquiryAreIgnored();
    void answerBecomesADevice_data();
    void answerBecomesADevice();
    void socketWaitsForTheAnswerAndClosesAfterReading();
    void nextEnquiryGivesUpTheOneBefore();
    void enquiryFromASlotIsAnswered();
    void interfaceAddressIsTheLastOfItsEntries();
    void messagesKeepTheirOrder();
    void changedSettingsAreReported();
    void resetIsReported();
    void answersOfTheWireReachTheirSignals();
    void socketErrorIsLoggedAndPassedOn();
    void signalsCarryTheirTypesAcrossThreads();
    // --- rainy day flows
    void refusedChangeHasItsReason_data();
    void refusedChangeHasItsReason();
    void sixthUnansweredEnquiryNamesTheFirewall();
    void refusedEnquiriesCountAsUnanswered();
    void anyDatagramResetsTheCount_data();
    void anyDatagramResetsTheCount();
    void foreignSenderIsLogged();
    void foreignSenderResetsTheCount();
    void enquiryToAnotherPeerAddressIsNotSent();
    void nullAddressSendsNothing();
    void messageWithoutPayloadDoesNothing();
    void nullPayloadIsNotBroadcast();
};

void tst_HydMarcoAdapter::defaultsAndSetters()
{
    HydMarcoAdapter adapter;
    QCOMPARE(MARCO_PORT, uint16_t(62726));
    QVERIFY(!adapter.parent());
    QCOMPARE(adapter.getTimeoutPeriod(), 5000);
    QCOMPARE(adapter.timeWait(), 1000U);
    QVERIFY(!adapter.tcpRegime());
    QVERIFY2(!unicastSocketOf(adapter), "the socket comes with its first use");
    adapter.setTimeoutPeriod(20);
    adapter.setTimeWait(30);
    adapter.setTcpRegime(true);
    QCOMPARE(adapter.getTimeoutPeriod(), 20);
    QCOMPARE(adapter.timeWait(), 30U);
    QVERIFY(adapter.tcpRegime());
}

void tst_HydMarcoAdapter::enquirySendsTheDocumentedBytes()
{
    MarcoPeer peer(kPeerAddress);
    QVERIFY(peer.isBound());
    HydMarcoAdapter adapter;
    adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
    QVERIFY(peer.waitForEnquiry());
    QCOMPARE(peer.lastBytes().toHex(), marcoBytes(1, QByteArray(22, '\0'), peer.lastPort()).toHex());
    QVERIFY(!peer.hasPendingDatagrams());
}

void tst_HydMarcoAdapter::flagsOfAnEnquiryAreIgnored_data()
{
    QTest::addColumn<bool>("first");
    QTest::addColumn<bool>("second");
    QTest::newRow("first") << true << false;
    QTest::newRow("second") << false << true;
    QTest::newRow("both") << true << true;
}

void tst_HydMarcoAdapter::flagsOfAnEnquiryAreIgnored()
{
    QFETCH(const bool, first);
    QFETCH(const bool, second);
    MarcoPeer peer(kPeerAddress);
    HydMarcoAdapter adapter;
    adapter.netEnquireUDPIPAddr(kPeerAddress, first, second);
    QVERIFY(peer.waitForEnquiry());
    QCOMPARE(peer.lastBytes().toHex(), marcoBytes(1, QByteArray(22, '\0'), peer.lastPort()).toHex());
}

void tst_HydMarcoAdapter::answerBecomesADevice_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("className");
    QTest::newRow("any") << 0 << QByteArray(typeid(HydDevice).name());
    QTest::newRow("recorder A") << 5 << QByteArray(typeid(HydDevice).name());
    QTest::newRow("recorder B") << 7 << QByteArray(typeid(HydDevice).name());
    QTest::newRow("TMI") << 8 << QByteArray(typeid(TmiDevice).name());
    QTest::newRow("TD recorder") << 13 << QByteArray(typeid(TdRecDevice).name());
    QTest::newRow("behind an array") << 15 << QByteArray(typeid(SkiffDevice).name());
    QTest::newRow("array controller") << 16 << QByteArray(typeid(ZcrDevice).name());
    QTest::newRow("unknown type") << 200 << QByteArray(typeid(HydDevice).name());
}

void tst_HydMarcoAdapter::answerBecomesADevice()
{
    QFETCH(const int, type);
    QFETCH(const QByteArray, className);
    MarcoPeer peer(kPeerAddress);
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    QSignalSpy received(&adapter, &HydMarcoAdapter::messageReceived);
    adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
    QVERIFY(peer.waitForEnquiry());
    // The socket of an enquiry to one address was never given an interface.
    expectInvalidInterfaceLog();
    peer.answer(enquiryBytes(static_cast<uint8_t>(type), 4711, 0x7F3E0101));
    QTRY_COMPARE(found.size(), 1);
    QCOMPARE(received.size(), 1);
    QCOMPARE(received.at(0).at(1).value<uint32_t>(), 0U);
    const Device device = deviceOf(found);
    const HydDevice& record = *device;
    QCOMPARE(QByteArray(typeid(record).name()), className);
    QCOMPARE(int(record.devType()), type);
    QCOMPARE(record.serial(), uint16_t(4711));
    QCOMPARE(record.netHostInfo().ipAddress().toString(), std::string("127.62.1.1"));
    QCOMPARE(record.netHostInfo().subnetMask().toInt(), 0xFFFF0000U);
    QCOMPARE(record.netHostInfo().addressMode(), AddrDhcp);
    QCOMPARE(record.netHostInfo().macAddress().toString(), std::string("02:11:22:33:44:55"));
    QCOMPARE(record.ifaceAddr().toInt(), 0U);
}

void tst_HydMarcoAdapter::socketWaitsForTheAnswerAndClosesAfterReading()
{
    MarcoPeer peer(kPeerAddress);
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
    QVERIFY(peer.waitForEnquiry());
    QUdpSocket* socket = unicastSocketOf(adapter);
    QVERIFY(socket);
    QCOMPARE(socket->state(), QAbstractSocket::ConnectedState);
    peer.answer(enquiryBytes(5, 1));
    QTRY_COMPARE(found.size(), 1);
    QCOMPARE(socket->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(!socket->isOpen());

    adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
    QVERIFY(peer.waitForEnquiry());
    QCOMPARE(unicastSocketOf(adapter), socket);
    peer.answer(enquiryBytes(5, 2));
    QTRY_COMPARE(found.size(), 2);
    QCOMPARE(deviceOf(found, 1)->serial(), uint16_t(2));
}

void tst_HydMarcoAdapter::nextEnquiryGivesUpTheOneBefore()
{
    MarcoPeer first(kPeerAddress);
    MarcoPeer second(kOtherAddress);
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
    QVERIFY(first.waitForEnquiry());
    adapter.netEnquireUDPIPAddr(kOtherAddress, false, false);
    QVERIFY(second.waitForEnquiry());
    first.answer(enquiryBytes(5, 1));
    second.answer(enquiryBytes(5, 2));
    QTRY_COMPARE(found.size(), 1);
    QCOMPARE(deviceOf(found)->serial(), uint16_t(2));
}

void tst_HydMarcoAdapter::enquiryFromASlotIsAnswered()
{
    MarcoPeer first(kPeerAddress);
    MarcoPeer second(kOtherAddress);
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    connect(&adapter, &HydMarcoAdapter::deviceFound, &adapter, [&](const Device& device) {
        if (device->serial() == 1)
            adapter.netEnquireUDPIPAddr(kOtherAddress, false, false);
    });
    adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
    QVERIFY(first.waitForEnquiry());
    first.answer(enquiryBytes(5, 1));
    QVERIFY(second.waitForEnquiry());
    second.answer(enquiryBytes(5, 2));
    QTRY_COMPARE(found.size(), 2);
    QCOMPARE(deviceOf(found, 1)->serial(), uint16_t(2));
}

void tst_HydMarcoAdapter::interfaceAddressIsTheLastOfItsEntries()
{
    HydMarcoAdapter adapter;
    LoopbackSocket loopback(adapter, kPeerAddress);
    QVERIFY(loopback.isBound());
    uint32_t expected = 0;
    for (const QNetworkAddressEntry& entry : LoopbackSocket::loopback().addressEntries()) {
        if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol)
            expected = entry.ip().toIPv4Address();
    }
    QVERIFY(expected != 0);
    QSignalSpy received(&adapter, &HydMarcoAdapter::messageReceived);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    QVERIFY(loopback.send(enquiryBytes(5, 9)));
    QTRY_COMPARE(found.size(), 1);
    QCOMPARE(received.at(0).at(1).value<uint32_t>(), expected);
    QCOMPARE(deviceOf(found)->ifaceAddr().toInt(), expected);
    QVERIFY(loopback.send(enquiryBytes(5, 10)));
    QTRY_COMPARE(found.size(), 2);
    QVERIFY2(loopback.socket()->isValid(), "a broadcast's socket stays open for more answers");
}

void tst_HydMarcoAdapter::messagesKeepTheirOrder()
{
    HydMarcoAdapter adapter;
    LoopbackSocket loopback(adapter, kPeerAddress);
    QStringList order;
    connect(&adapter, &HydMarcoAdapter::deviceFound, this,
            [&](const Device& device) { order << QString::number(device->serial()); });
    connect(&adapter, &HydMarcoAdapter::deviceReset, this, [&] { order << QStringLiteral("reset"); });
    connect(&adapter, &HydMarcoAdapter::deviceChanged, this, [&] { order << QStringLiteral("changed"); });
    QVERIFY(loopback.send(enquiryBytes(5, 3)));
    QVERIFY(loopback.send(changeBytes(5, 3, 0)));
    QVERIFY(loopback.send(enquiryBytes(5, 1)));
    QVERIFY(loopback.send(marcoBytes(3, QByteArray(6, '\x01'))));
    QVERIFY(loopback.send(enquiryBytes(5, 2)));
    QTRY_COMPARE(order.size(), 5);
    QCOMPARE(order.join(u' '), QStringLiteral("3 changed 1 reset 2"));
}

void tst_HydMarcoAdapter::changedSettingsAreReported()
{
    HydMarcoAdapter adapter;
    QSignalSpy changed(&adapter, &HydMarcoAdapter::deviceChanged);
    QSignalSpy error(&adapter, &HydMarcoAdapter::error);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    const NvxNetHostInfo info(0x0A0B0C0D);
    adapter.handleMarcoMsg(
        std::make_shared<HydMarcoCommand>(std::make_shared<HydChangeNetworkCmd>(7, 99, info)), 0x7F000001);
    QCOMPARE(changed.size(), 1);
    QCOMPARE(error.size(), 0);
    QCOMPARE(found.size(), 0);
    QCOMPARE(deviceOf(changed)->serial(), uint16_t(99));
    QCOMPARE(deviceOf(changed)->devType(), DevTypeRecorderB);
    QCOMPARE(deviceOf(changed)->netHostInfo().ipAddress().toInt(), 0x0A0B0C0DU);
    QVERIFY(deviceOf(changed)->jobSettings().map().empty());
}

void tst_HydMarcoAdapter::resetIsReported()
{
    HydMarcoAdapter adapter;
    QSignalSpy reset(&adapter, &HydMarcoAdapter::deviceReset);
    const NvxMacAddr mac(NvxMacAddr::Bytes{2, 4, 6, 8, 10, 12});
    adapter.handleMarcoMsg(std::make_shared<HydMarcoCommand>(std::make_shared<HydResetDeviceCmd>(mac)), 0);
    QCOMPARE(reset.size(), 1);
    QVERIFY(reset.at(0).at(0).value<NvxMacAddr>() == mac);
}

void tst_HydMarcoAdapter::answersOfTheWireReachTheirSignals()
{
    HydMarcoAdapter adapter;
    LoopbackSocket loopback(adapter, kPeerAddress);
    QSignalSpy received(&adapter, &HydMarcoAdapter::messageReceived);
    QSignalSpy changed(&adapter, &HydMarcoAdapter::deviceChanged);
    QSignalSpy reset(&adapter, &HydMarcoAdapter::deviceReset);
    QSignalSpy error(&adapter, &HydMarcoAdapter::error);
    QVERIFY(loopback.send(changeBytes(5, 3, 0)));
    QVERIFY(loopback.send(changeBytes(5, 4, 2)));
    QVERIFY(loopback.send(marcoBytes(3, QByteArray("\x02\x11\x22\x33\x44\x55", 6))));
    QTRY_COMPARE(received.size(), 3);
    QCOMPARE(changed.size(), 1);
    QCOMPARE(deviceOf(changed)->serial(), uint16_t(3));
    QCOMPARE(error.size(), 1);
    QVERIFY(error.at(0).at(0).toString().endsWith(QStringLiteral("Reason: The subnet was invalid.")));
    QCOMPARE(reset.size(), 1);
    QCOMPARE(reset.at(0).at(0).value<NvxMacAddr>().toString(), std::string("02:11:22:33:44:55"));
}

void tst_HydMarcoAdapter::socketErrorIsLoggedAndPassedOn()
{
    HydMarcoAdapter adapter;
    QSignalSpy spy(&adapter, &HydMarcoAdapter::signalSocketError);
    QTest::ignoreMessage(QtDebugMsg,
                         QRegularExpression(QStringLiteral(
                             "^HydMarcoAdapter: socketError: .*HostNotFoundError.*127\\.62\\.1\\.3")));
    adapter.errorHandle(QAbstractSocket::HostNotFoundError, kAbsentAddress);
    QCOMPARE(spy.size(), 1);
    QCOMPARE(spy.at(0).at(0).value<QAbstractSocket::SocketError>(), QAbstractSocket::HostNotFoundError);
    QCOMPARE(spy.at(0).at(1).value<QHostAddress>(), kAbsentAddress);
}

void tst_HydMarcoAdapter::signalsCarryTheirTypesAcrossThreads()
{
    HydMarcoAdapter adapter;
    FarReceiver receiver;
    QThread thread;
    receiver.moveToThread(&thread);
    thread.start();
    // By name, as applications may: the slots' types are looked up by theirs.
    QVERIFY(connect(&adapter, SIGNAL(deviceFound(std::shared_ptr<HydDevice>)), &receiver,
                    SLOT(takeDevice(std::shared_ptr<HydDevice>))));
    QVERIFY(connect(&adapter, SIGNAL(deviceReset(NvxMacAddr)), &receiver, SLOT(takeMac(NvxMacAddr))));
    QVERIFY(connect(&adapter, SIGNAL(messageReceived(std::shared_ptr<HydMarcoCommand>, uint32_t)), &receiver,
                    SLOT(takeMessage(std::shared_ptr<HydMarcoCommand>, uint32_t))));
    const auto mac = NvxMacAddr(NvxMacAddr::Bytes{1, 2, 3, 4, 5, 6});
    const auto message = std::make_shared<HydMarcoCommand>(std::make_shared<HydResetDeviceCmd>(mac));
    const auto device = std::make_shared<HydDevice>(DevTypeRecorderA);
    Q_EMIT adapter.deviceFound(device);
    Q_EMIT adapter.messageReceived(message, 77);
    QTRY_COMPARE(receiver.m_calls, 3);
    thread.quit();
    thread.wait();
    QCOMPARE(receiver.m_device, device);
    QVERIFY(receiver.m_mac == mac);
    QCOMPARE(receiver.m_message, message);
    QCOMPARE(receiver.m_address, 77U);
    QVERIFY(receiver.m_isFar);
}

void tst_HydMarcoAdapter::refusedChangeHasItsReason_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("reason");
    QTest::newRow("device") << 0xFFFF << QStringLiteral("An error occured in the device.");
    QTest::newRow("address") << 1 << QStringLiteral("The IP address was invalid.");
    QTest::newRow("subnet") << 2 << QStringLiteral("The subnet was invalid.");
    QTest::newRow("gateway") << 3 << QStringLiteral("The gateway address was invalid.");
    QTest::newRow("broadcast") << 4 << QStringLiteral("The IP address was a broadcast address.");
    QTest::newRow("same address")
        << 5 << QStringLiteral("The IP address given was the same as the device's existing address.");
    QTest::newRow("mode") << 6 << QStringLiteral("The address acquisition mode was invalid.");
    QTest::newRow("first unknown") << 7 << QString();
    QTest::newRow("top bit") << 0x8000 << QString();
    QTest::newRow("last unknown") << 0xFFFE << QString();
}

void tst_HydMarcoAdapter::refusedChangeHasItsReason()
{
    QFETCH(const int, code);
    QFETCH(const QString, reason);
    HydMarcoAdapter adapter;
    QSignalSpy changed(&adapter, &HydMarcoAdapter::deviceChanged);
    QSignalSpy error(&adapter, &HydMarcoAdapter::error);
    auto change = std::make_shared<HydChangeNetworkCmd>(5, 1234, NvxNetHostInfo(0x0A000001));
    change->setError(static_cast<uint16_t>(code));
    adapter.handleMarcoMsg(std::make_shared<HydMarcoCommand>(change), 0);
    QCOMPARE(changed.size(), 0);
    QCOMPARE(error.size(), 1);
    const HydDevice device(1234, DevTypeRecorderA, NvxNetHostInfo(), JobTagMap());
    QCOMPARE(error.at(0).at(0).toString(), QStringLiteral("The network configuration was rejected by ") +
                                               QString::fromStdString(device.friendlyText()) +
                                               QStringLiteral(".\n\nReason: ") + reason);
}

void tst_HydMarcoAdapter::sixthUnansweredEnquiryNamesTheFirewall()
{
    MarcoPeer peer(kPeerAddress);
    QVERIFY(peer.isBound());
    HydMarcoAdapter adapter;
    QSignalSpy error(&adapter, &HydMarcoAdapter::error);
    for (int round = 1; round <= 2; ++round) {
        for (int enquiry = 1; enquiry <= 6; ++enquiry) {
            QCOMPARE(error.size(), round - 1);
            adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
            QVERIFY(peer.waitForEnquiry());
        }
        QCOMPARE(error.size(), round);
        QCOMPARE(error.last().at(0).toString(),
                 QStringLiteral("Please, check Windows Defender Firewall permission to access this device "
                                "(127.62.1.1) through network."));
    }
}

void tst_HydMarcoAdapter::refusedEnquiriesCountAsUnanswered()
{
    HydMarcoAdapter adapter;
    QSignalSpy error(&adapter, &HydMarcoAdapter::error);
    for (int enquiry = 1; enquiry <= 6; ++enquiry) {
        QCOMPARE(error.size(), 0);
        // The host's refusal wakes the socket; reading then logs its unknown interface and closes it.
        expectInvalidInterfaceLog();
        adapter.netEnquireUDPIPAddr(kAbsentAddress, false, false);
        QTRY_COMPARE(unicastSocketOf(adapter)->state(), QAbstractSocket::UnconnectedState);
    }
    QCOMPARE(error.size(), 1);
}

void tst_HydMarcoAdapter::anyDatagramResetsTheCount_data()
{
    QTest::addColumn<QByteArray>("datagram");
    QTest::newRow("answer") << enquiryBytes(5, 1);
    QTest::newRow("junk") << junk(20);
    QTest::newRow("oversize") << junk(1025);
    QTest::newRow("empty") << QByteArray();
}

void tst_HydMarcoAdapter::anyDatagramResetsTheCount()
{
    QFETCH(const QByteArray, datagram);
    MarcoPeer peer(kPeerAddress);
    HydMarcoAdapter adapter;
    QSignalSpy error(&adapter, &HydMarcoAdapter::error);
    const auto enquire = [&] {
        adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
        return peer.waitForEnquiry();
    };
    for (int enquiry = 1; enquiry <= 5; ++enquiry)
        QVERIFY(enquire());
    expectInvalidInterfaceLog();
    peer.answer(datagram);
    QTRY_COMPARE(unicastSocketOf(adapter)->state(), QAbstractSocket::UnconnectedState);
    for (int enquiry = 1; enquiry <= 5; ++enquiry)
        QVERIFY(enquire());
    QCOMPARE(error.size(), 0);
    QVERIFY(enquire());
    QCOMPARE(error.size(), 1);
}

void tst_HydMarcoAdapter::foreignSenderIsLogged()
{
    HydMarcoAdapter adapter;
    QSignalSpy received(&adapter, &HydMarcoAdapter::messageReceived);
    const char* text =
        "HydMarcoAdapter::readUdpSocket(): WARNING! qobject_cast<QUdpSocket*>(sender() failed. UDP "
        "Socket wasy not read and not get destroyed.";
    QTest::ignoreMessage(QtDebugMsg, text);
    QVERIFY(QMetaObject::invokeMethod(&adapter, "readUdpSocket"));
    QTimer timer;
    connect(&timer, SIGNAL(timeout()), &adapter, SLOT(readUdpSocket()));
    QSignalSpy fired(&timer, &QTimer::timeout);
    QTest::ignoreMessage(QtDebugMsg, text);
    timer.setSingleShot(true);
    timer.start(0);
    QTRY_COMPARE(fired.size(), 1);
    QCOMPARE(received.size(), 0);
}

void tst_HydMarcoAdapter::foreignSenderResetsTheCount()
{
    MarcoPeer peer(kPeerAddress);
    HydMarcoAdapter adapter;
    QSignalSpy error(&adapter, &HydMarcoAdapter::error);
    for (int enquiry = 1; enquiry <= 5; ++enquiry)
        adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("qobject_cast<QUdpSocket")));
    QVERIFY(QMetaObject::invokeMethod(&adapter, "readUdpSocket"));
    for (int enquiry = 1; enquiry <= 5; ++enquiry)
        adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
    QCOMPARE(error.size(), 0);
    adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
    QCOMPARE(error.size(), 1);
}

void tst_HydMarcoAdapter::enquiryToAnotherPeerAddressIsNotSent()
{
    HydMarcoAdapter adapter;
    QSignalSpy error(&adapter, &HydMarcoAdapter::error);
    // The system connects "any address" to the loopback address, so the peer isn't the one enquired.
    for (int enquiry = 1; enquiry <= 7; ++enquiry) {
        adapter.netEnquireUDPIPAddr(QHostAddress(QHostAddress::AnyIPv4), false, false);
        QTRY_COMPARE(unicastSocketOf(adapter)->state(), QAbstractSocket::UnconnectedState);
    }
    QCOMPARE(error.size(), 0);
    MarcoPeer peer(kPeerAddress);
    adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
    QVERIFY2(peer.waitForEnquiry(), "the next enquiry works");
}

void tst_HydMarcoAdapter::nullAddressSendsNothing()
{
    MarcoPeer peer(kPeerAddress);
    HydMarcoAdapter adapter;
    QSignalSpy error(&adapter, &HydMarcoAdapter::error);
    for (int enquiry = 1; enquiry <= 7; ++enquiry)
        adapter.netEnquireUDPIPAddr(QHostAddress(), false, false);
    QCOMPARE(error.size(), 0);
    adapter.netEnquireUDPIPAddr(kPeerAddress, false, false);
    QVERIFY(peer.waitForEnquiry());
    QVERIFY(!peer.hasPendingDatagrams());
}

void tst_HydMarcoAdapter::messageWithoutPayloadDoesNothing()
{
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    QSignalSpy changed(&adapter, &HydMarcoAdapter::deviceChanged);
    QSignalSpy reset(&adapter, &HydMarcoAdapter::deviceReset);
    QSignalSpy error(&adapter, &HydMarcoAdapter::error);
    adapter.handleMarcoMsg(nullptr, 0);
    adapter.handleMarcoMsg(std::make_shared<HydMarcoCommand>(nullptr), 0);
    Q_EMIT adapter.messageReceived(nullptr);
    QCOMPARE(found.size() + changed.size() + reset.size() + error.size(), 0);
}

void tst_HydMarcoAdapter::nullPayloadIsNotBroadcast()
{
    HydMarcoAdapter adapter;
    adapter.bcastCommand(nullptr);
    QVERIFY(adapter.findChildren<CUdpSocProc*>().isEmpty());
}

QTEST_GUILESS_MAIN(tst_HydMarcoAdapter)
#include "tst_HydMarcoAdapter.moc"
