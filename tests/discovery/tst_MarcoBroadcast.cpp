#include "tests/discovery/MarcoFixture.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/PeerDevice.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QThread>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

namespace {

constexpr const char* kInsideVariable = "NVX_OWN_NETWORK";
const QString kLink = QStringLiteral("nvx0");
const QString kFirstAddress = QStringLiteral("10.77.0.1");
const QString kSecondAddress = QStringLiteral("10.77.0.2");
const QString kPeerAddress = QStringLiteral("10.77.0.9");
constexpr uint16_t kPeerSerial = 321;

/// Runs a program line to its end; the text that it says when it fails, else nothing.
QString run(const QString& line)
{
    QStringList words = line.split(u' ');
    const QString program = words.takeFirst();
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, words);
    if (process.waitForFinished() && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return {};
    return line + QStringLiteral(": ") + QString::fromUtf8(process.readAll()) + process.errorString();
}

/// Sets the ports that the system chooses from in this namespace.
bool setFreePorts(const QByteArray& range)
{
    QFile file(QStringLiteral("/proc/sys/net/ipv4/ip_local_port_range"));
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(range) == range.size();
}

/// Runs an event loop of its own until a timer of 1 ms has fired this often.
void runLoopFor(int ticks)
{
    QEventLoop loop;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &loop, [&] {
        if (--ticks == 0)
            loop.quit();
    });
    timer.start(1);
    loop.exec();
}

/// A payload that doesn't fit a datagram.
class LargePayload : public HydMarcoCommandPayload
{
public:
    uint8_t kind() const override { return 9; }
    void serialize(ByteStream& out) const override { out.putBytes(std::vector<uint8_t>(1011)); }
    bool deserialize(ByteReader&) override { return false; }
};

/// The interface loses its addresses between the binding and the sending.
class UnpluggingPayload : public HydResetDeviceCmd
{
public:
    void serialize(ByteStream& out) const override
    {
        if (const QString failure = run(QStringLiteral("ip addr flush dev nvx0")); !failure.isEmpty())
            qWarning().noquote() << failure;
        HydResetDeviceCmd::serialize(out);
    }
};

} // namespace

/// Broadcasts between two network namespaces that a veth pair joins: this program's own with two addresses on
/// one interface, and the peer's. No broadcast leaves them; without namespaces nothing here runs.
class tst_MarcoBroadcast : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    // --- happy flows
    void enquiryGoesOutOfEachAddress();
    void enquiryForADeviceCarriesItsRecord();
    void changeIsSentAndAnswered();
    void resetIsSentAndAnswered();
    void socketsAreBoundAndListening();
    void eachBroadcastTakesFreshSockets();
    void timeoutComesOnceForEachSocket();
    void answerStartsAStoppedTimer();
    // --- rainy day flows
    void timeoutComesOnceUnderNestedLoops();
    void nobodyAnswersForAnotherSerial();
    void interfaceWithoutAddressSendsNothing();
    void interfaceThatIsDownSendsNothing();
    void interfaceThatIsNotRunningSendsNothing();
    void ipv6AddressIsLeftOut();
    void addressThatCannotBeBoundIsLeftOut();
    void failingSocketEndsWithoutTimeout();
    void payloadThatDoesNotFitIsNotSent();
    void datagramThatCannotBeSentIsLogged();

private:
    QList<QStringList> datagrams() { return m_peer.lines(QStringLiteral("marco")); }
    bool waitForDatagrams(qsizetype count) { return m_peer.waitForLines(QStringLiteral("marco"), count); }
    QStringList linkUp();
    void expectNothingSent();

    PeerDevice m_peer;
};

void tst_MarcoBroadcast::initTestCase()
{
    if (!qEnvironmentVariableIsSet(kInsideVariable))
        QSKIP("neither \"unshare -rn\" nor \"unshare -n\" makes a network namespace here");
    for (const QNetworkInterface& netInterface : QNetworkInterface::allInterfaces()) {
        if (netInterface.name() != QStringLiteral("lo"))
            QSKIP("this network namespace has an interface already, so it isn't the test's own");
    }
    QCOMPARE(run(QStringLiteral("ip link set lo up")), QString());
    if (const QString failure = run(QStringLiteral("ip link add nvx0 type veth peer name nvx1"));
        !failure.isEmpty())
        QSKIP(qPrintable(QStringLiteral("no veth pair here: ") + failure));
    QVERIFY2(m_peer.start({QStringLiteral("0.0.0.0"), QStringLiteral("--marco-only"),
                           QStringLiteral("--report-address"), kPeerAddress, QStringLiteral("--serial"),
                           QString::number(kPeerSerial)},
                          {QStringLiteral("unshare"), QStringLiteral("-n")}),
             qPrintable(m_peer.errorText()));
    const QString inside = QStringLiteral("nsenter -t %1 -n ip ").arg(m_peer.processId());
    QCOMPARE(run(QStringLiteral("ip link set nvx1 netns %1").arg(m_peer.processId())), QString());
    QCOMPARE(run(inside + QStringLiteral("addr add 10.77.0.9/24 dev nvx1")), QString());
    QCOMPARE(run(inside + QStringLiteral("link set nvx1 up")), QString());
    QCOMPARE(linkUp(), QStringList());
}

/// Two addresses on the running interface, whatever the function before left.
QStringList tst_MarcoBroadcast::linkUp()
{
    QStringList failures{run(QStringLiteral("nsenter -t %1 -n ip link set nvx1 up").arg(m_peer.processId())),
                         run(QStringLiteral("ip addr flush dev nvx0")),
                         run(QStringLiteral("ip addr add 10.77.0.1/24 dev nvx0")),
                         run(QStringLiteral("ip addr add 10.77.0.2/24 dev nvx0")),
                         run(QStringLiteral("ip link set nvx0 up"))};
    failures.removeAll(QString());
    const bool running = QTest::qWaitFor(
        [] {
            return QNetworkInterface::interfaceFromName(kLink).flags().testFlag(QNetworkInterface::IsRunning);
        },
        kPatienceMs);
    if (!running)
        failures << QStringLiteral("the interface doesn't run");
    return failures;
}

void tst_MarcoBroadcast::cleanup()
{
    if (qEnvironmentVariableIsSet(kInsideVariable))
        QCOMPARE(linkUp(), QStringList());
}

void tst_MarcoBroadcast::enquiryGoesOutOfEachAddress()
{
    const qsizetype before = datagrams().size();
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    QSignalSpy received(&adapter, &HydMarcoAdapter::messageReceived);
    adapter.netEnquire(DevTypeAny, 0);
    QVERIFY(waitForDatagrams(before + 2));
    QTRY_COMPARE(found.size(), 2);
    const QList<QStringList> sent = datagrams().mid(before);
    QCOMPARE(sent.size(), 2);
    QStringList senders{sent[0][0], sent[1][0]};
    senders.sort();
    QCOMPARE(senders, QStringList({kFirstAddress, kSecondAddress}));
    for (const QStringList& datagram : sent)
        QCOMPARE(datagram[2].toLatin1(), marcoBytes(1, QByteArray(22, '\0'), datagram[1].toUShort()).toHex());
    // Each device bears the last address of the interface, by whichever socket it was found.
    for (int index = 0; index < 2; ++index) {
        QCOMPARE(deviceOf(found, index)->serial(), kPeerSerial);
        QCOMPARE(deviceOf(found, index)->devType(), DevTypeRecorderA);
        QCOMPARE(deviceOf(found, index)->netHostInfo().ipAddress().toString(), kPeerAddress.toStdString());
        QCOMPARE(deviceOf(found, index)->ifaceAddr().toString(), kSecondAddress.toStdString());
        QCOMPARE(QHostAddress(received.at(index).at(1).toUInt()), QHostAddress(kSecondAddress));
    }
}

void tst_MarcoBroadcast::enquiryForADeviceCarriesItsRecord()
{
    const qsizetype before = datagrams().size();
    NvxNetHostInfo info(0x7F3E0101);
    info.setSubnetMask(0xFFFF0000);
    info.setGateway(0x0A000001);
    info.setAddressMode(AddrDhcp);
    info.setMacAddress(NvxMacAddr(NvxMacAddr::Bytes{0x02, 0x11, 0x22, 0x33, 0x44, 0x55}));
    const HydDevice device(kPeerSerial, DevTypeRecorderA, info, JobTagMap());
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    adapter.netEnquire(device);
    QTRY_COMPARE(found.size(), 2);
    const QList<QStringList> sent = datagrams().mid(before);
    QCOMPARE(sent.size(), 2);
    for (const QStringList& datagram : sent) {
        const QByteArray body = bigEndian(5, 1) + bigEndian(kPeerSerial, 2) + netRecordBytes(0x7F3E0101);
        QCOMPARE(datagram[2].toLatin1(), marcoBytes(1, body, datagram[1].toUShort()).toHex());
    }
}

void tst_MarcoBroadcast::changeIsSentAndAnswered()
{
    const qsizetype before = datagrams().size();
    HydMarcoAdapter adapter;
    QSignalSpy changed(&adapter, &HydMarcoAdapter::deviceChanged);
    adapter.changeNetSettings(kPeerSerial, DevTypeRecorderA, NvxNetHostInfo(0x0A4D0063));
    QTRY_COMPARE(changed.size(), 2);
    QCOMPARE(deviceOf(changed)->serial(), kPeerSerial);
    QCOMPARE(deviceOf(changed)->netHostInfo().ipAddress().toInt(), 0x0A4D0063U);
    const QStringList datagram = datagrams().value(before);
    const QByteArray body = bigEndian(5, 1) + bigEndian(kPeerSerial, 2) + bigEndian(0, 2) +
                            bigEndian(0x0A4D0063, 4) + QByteArray(15, '\0');
    QCOMPARE(datagram.value(2).toLatin1(), marcoBytes(2, body, datagram.value(1).toUShort()).toHex());
}

void tst_MarcoBroadcast::resetIsSentAndAnswered()
{
    const qsizetype before = datagrams().size();
    const NvxMacAddr mac(NvxMacAddr::Bytes{1, 2, 3, 4, 5, 6});
    HydMarcoAdapter adapter;
    QSignalSpy reset(&adapter, &HydMarcoAdapter::deviceReset);
    adapter.resetDevice(mac);
    QTRY_COMPARE(reset.size(), 2);
    QVERIFY(reset.at(0).at(0).value<NvxMacAddr>() == mac);
    const QStringList datagram = datagrams().value(before);
    QCOMPARE(datagram.value(2).toLatin1(),
             marcoBytes(3, QByteArray("\1\2\3\4\5\6"), datagram.value(1).toUShort()).toHex());
}

void tst_MarcoBroadcast::socketsAreBoundAndListening()
{
    HydMarcoAdapter adapter;
    adapter.setTimeoutPeriod(77);
    const QList<CUdpSocProc*> sockets = adapter.getUdpSockets();
    QCOMPARE(sockets.size(), 2);
    QStringList addresses;
    for (CUdpSocProc* socket : sockets) {
        addresses << socket->localAddress().toString();
        QVERIFY(socket->localPort() != 0);
        QVERIFY(socket->localPort() != MARCO_PORT);
        QCOMPARE(socket->parent(), &adapter);
        QCOMPARE(socket->multicastInterface().name(), kLink);
        QVERIFY(socket->timer()->isActive());
        QCOMPARE(socket->timer()->interval(), 10000);
    }
    QCOMPARE(addresses, QStringList({kFirstAddress, kSecondAddress}));
}

void tst_MarcoBroadcast::eachBroadcastTakesFreshSockets()
{
    HydMarcoAdapter adapter;
    adapter.setTimeoutPeriod(77);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    adapter.netEnquire(DevTypeAny, 0);
    adapter.netEnquire(DevTypeAny, 0);
    const QList<CUdpSocProc*> sockets = adapter.findChildren<CUdpSocProc*>();
    QCOMPARE(sockets.size(), 4);
    QTRY_COMPARE(found.size(), 4);
    // The running timer keeps its 10 s; the timeout period would only count for a stopped one.
    for (CUdpSocProc* socket : sockets)
        QCOMPARE(socket->timer()->interval(), 10000);
}

void tst_MarcoBroadcast::timeoutComesOnceForEachSocket()
{
    HydMarcoAdapter adapter;
    QSignalSpy timeout(&adapter, &HydMarcoAdapter::timeout);
    QSignalSpy timeoutIp(&adapter, &HydMarcoAdapter::timeoutIP);
    adapter.netEnquire(DevTypeAny, 0);
    const QList<CUdpSocProc*> sockets = adapter.findChildren<CUdpSocProc*>();
    QCOMPARE(sockets.size(), 2);
    sockets[0]->timer()->start(1);
    QTRY_COMPARE(timeout.size(), 1);
    QTRY_COMPARE(adapter.findChildren<CUdpSocProc*>().size(), 1);
    sockets[1]->timer()->start(1);
    QTRY_VERIFY(adapter.findChildren<CUdpSocProc*>().isEmpty());
    QCOMPARE(timeout.size(), 2);
    QCOMPARE(timeoutIp.size(), 0);
}

void tst_MarcoBroadcast::answerStartsAStoppedTimer()
{
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    adapter.netEnquire(DevTypeAny, 0);
    const QList<CUdpSocProc*> sockets = adapter.findChildren<CUdpSocProc*>();
    for (CUdpSocProc* socket : sockets)
        socket->timer()->stop();
    QTRY_COMPARE(found.size(), 2);
    for (CUdpSocProc* socket : sockets)
        QTRY_VERIFY(socket->timer()->isActive());
}

void tst_MarcoBroadcast::timeoutComesOnceUnderNestedLoops()
{
    HydMarcoAdapter adapter;
    QSignalSpy timeout(&adapter, &HydMarcoAdapter::timeout);
    int closed = 0;
    // Dialogs, say, one over the other: the timers of the sockets run out meanwhile, and go on.
    connect(&adapter, &HydMarcoAdapter::deviceFound, this, [&] {
        for (CUdpSocProc* socket : adapter.findChildren<CUdpSocProc*>())
            socket->timer()->start(1);
        runLoopFor(20);
        ++closed;
    });
    connect(&adapter, &HydMarcoAdapter::timeout, this, [] { runLoopFor(3); });
    adapter.netEnquire(DevTypeAny, 0);
    // Both answers are there before the first is read: a socket whose time has run out takes none.
    const auto sockets = adapter.findChildren<CUdpSocProc*>();
    const QDeadlineTimer end(kPatienceMs);
    while (!end.hasExpired() && !std::all_of(sockets.begin(), sockets.end(),
                                             [](CUdpSocProc* s) { return s->hasPendingDatagrams(); }))
        QThread::yieldCurrentThread();
    QTRY_COMPARE(closed, 2);
    QTRY_VERIFY(adapter.findChildren<CUdpSocProc*>().isEmpty());
    QCOMPARE(timeout.size(), 2);
}

void tst_MarcoBroadcast::nobodyAnswersForAnotherSerial()
{
    const qsizetype before = datagrams().size();
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    adapter.netEnquire(DevTypeAny, kPeerSerial + 1);
    adapter.netEnquire(DevTypeRecorderB, 0);
    QVERIFY(waitForDatagrams(before + 4));
    adapter.netEnquire(DevTypeRecorderA, kPeerSerial);
    QTRY_COMPARE(found.size(), 2);
    QCOMPARE(datagrams().size(), before + 6);
}

/// Broadcasts nothing now; once the interface is back, exactly one broadcast's datagrams and timeouts come.
void tst_MarcoBroadcast::expectNothingSent()
{
    const qsizetype before = datagrams().size();
    HydMarcoAdapter adapter;
    QSignalSpy timeout(&adapter, &HydMarcoAdapter::timeout);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    adapter.netEnquire(DevTypeAny, 0);
    QVERIFY(adapter.getUdpSockets().isEmpty());
    QVERIFY(adapter.findChildren<CUdpSocProc*>().isEmpty());
    QCOMPARE(linkUp(), QStringList());
    adapter.netEnquire(DevTypeAny, 0);
    QTRY_COMPARE(found.size(), 2);
    for (CUdpSocProc* socket : adapter.findChildren<CUdpSocProc*>())
        socket->timer()->start(1);
    QTRY_VERIFY(adapter.findChildren<CUdpSocProc*>().isEmpty());
    QCOMPARE(timeout.size(), 2);
    QCOMPARE(datagrams().size(), before + 2);
}

void tst_MarcoBroadcast::interfaceWithoutAddressSendsNothing()
{
    QCOMPARE(run(QStringLiteral("ip addr flush dev nvx0")), QString());
    expectNothingSent();
}

void tst_MarcoBroadcast::interfaceThatIsDownSendsNothing()
{
    QCOMPARE(run(QStringLiteral("ip link set nvx0 down")), QString());
    expectNothingSent();
}

void tst_MarcoBroadcast::interfaceThatIsNotRunningSendsNothing()
{
    QCOMPARE(run(QStringLiteral("nsenter -t %1 -n ip link set nvx1 down").arg(m_peer.processId())),
             QString());
    const auto flags = [] { return QNetworkInterface::interfaceFromName(kLink).flags(); };
    QTRY_VERIFY(!flags().testFlag(QNetworkInterface::IsRunning));
    QVERIFY(flags().testFlag(QNetworkInterface::IsUp));
    expectNothingSent();
}

void tst_MarcoBroadcast::ipv6AddressIsLeftOut()
{
    const QString failure = run(QStringLiteral("ip -6 addr add fd77::1/64 dev nvx0 nodad"));
    if (!failure.isEmpty())
        QSKIP(qPrintable(QStringLiteral("no IPv6 here: ") + failure));
    HydMarcoAdapter adapter;
    QCOMPARE(adapter.getUdpSockets().size(), 2);
    QCOMPARE(adapter.findChildren<CUdpSocProc*>().size(), 2);
}

void tst_MarcoBroadcast::addressThatCannotBeBoundIsLeftOut()
{
    // One port is left to choose from, and the first address has it in use.
    if (!setFreePorts("61000 61000"))
        QSKIP("the range of free ports can't be set in this namespace");
    QUdpSocket occupant;
    const bool occupied = occupant.bind(QHostAddress(kFirstAddress), 61000);
    HydMarcoAdapter adapter;
    QSignalSpy timeout(&adapter, &HydMarcoAdapter::timeout);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    adapter.netEnquire(DevTypeAny, 0);
    QVERIFY(setFreePorts("32768 60999"));
    QVERIFY(occupied);
    QTRY_COMPARE(found.size(), 1);
    // The socket without an address ends by its error, if not by its timer, and in silence.
    for (CUdpSocProc* socket : adapter.findChildren<CUdpSocProc*>())
        socket->timer()->start(1);
    QTRY_VERIFY(adapter.findChildren<CUdpSocProc*>().isEmpty());
    QCOMPARE(timeout.size(), 1);
}

void tst_MarcoBroadcast::failingSocketEndsWithoutTimeout()
{
    HydMarcoAdapter adapter;
    QSignalSpy timeout(&adapter, &HydMarcoAdapter::timeout);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    adapter.netEnquire(DevTypeAny, 0);
    QTRY_COMPARE(found.size(), 2);
    for (CUdpSocProc* socket : adapter.findChildren<CUdpSocProc*>())
        QCOMPARE(socket->writeDatagram(QByteArray(65508, 'x'), QHostAddress(kPeerAddress), 9), -1);
    QTRY_VERIFY(adapter.findChildren<CUdpSocProc*>().isEmpty());
    QCOMPARE(timeout.size(), 0);
}

void tst_MarcoBroadcast::payloadThatDoesNotFitIsNotSent()
{
    const qsizetype before = datagrams().size();
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    for (int socket = 0; socket < 2; ++socket)
        QTest::ignoreMessage(QtDebugMsg,
                             "HydMarcoAdapter::bcastCommand: nothing to send for a payload of kind 9");
    adapter.bcastCommand(std::make_shared<LargePayload>());
    adapter.netEnquire(DevTypeAny, 0);
    QTRY_COMPARE(found.size(), 2);
    QCOMPARE(datagrams().size(), before + 2);
}

void tst_MarcoBroadcast::datagramThatCannotBeSentIsLogged()
{
    const qsizetype before = datagrams().size();
    HydMarcoAdapter adapter;
    QSignalSpy timeout(&adapter, &HydMarcoAdapter::timeout);
    for (const QString& address : {kFirstAddress, kSecondAddress}) {
        const QString line = QStringLiteral("^HydMarcoAdapter::bcastCommand: not sent from %1 - .+");
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(line.arg(QRegularExpression::escape(address))));
    }
    adapter.bcastCommand(std::make_shared<UnpluggingPayload>());
    // A socket that failed ends at once and in silence.
    QTRY_VERIFY(adapter.findChildren<CUdpSocProc*>().isEmpty());
    QCOMPARE(timeout.size(), 0);
    QCOMPARE(datagrams().size(), before);
}

int main(int argc, char* argv[])
{
    if (!qEnvironmentVariableIsSet(kInsideVariable)) {
        for (const char* option : {"-rn", "-n"}) {
            const std::string probe = std::string("unshare ") + option + " ip link set lo up >/dev/null 2>&1";
            if (std::system(probe.c_str()) != 0)
                continue;
            qputenv(kInsideVariable, "1");
            const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
            std::vector<const char*> words{"unshare", option, "--", self.c_str()};
            words.insert(words.end(), argv + 1, argv + argc);
            words.push_back(nullptr);
            execvp(words[0], const_cast<char* const*>(words.data()));
            qunsetenv(kInsideVariable);
        }
    }
    QCoreApplication application(argc, argv);
    tst_MarcoBroadcast test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_MarcoBroadcast.moc"
