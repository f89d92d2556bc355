#include "NvxQtCommon/control/HydConnectionChecker.h"
#include "tests/streaming/HangingPort.h"
#include "tests/support/DeletionWatch.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QNetworkProxy>
#include <QScopeGuard>
#include <QTcpServer>
#include <QTimer>
#include <QUdpSocket>

#include <cstdlib>
#include <functional>
#include <memory>

namespace {

const QString kOwnAddress = QStringLiteral("127.62.24.1");
constexpr int kShortMs = 50;

HydDevice deviceAt(const QString& address, HydDeviceType type = DevTypeRecorderA, uint16_t serial = 1)
{
    HydDevice device(type);
    device.setSerial(serial);
    device.setNetHostInfo(NvxNetHostInfo(QHostAddress(address).toIPv4Address()));
    return device;
}

QStringList hostAndPort(int serial, int port, HydNetworkStatus host, HydPortConnStatus status)
{
    return {QStringLiteral("host %1:%2 %3").arg(serial).arg(port).arg(host),
            QStringLiteral("port %1:%2 %3").arg(serial).arg(port).arg(status)};
}
QStringList reachable(int port, int serial = 1)
{
    return hostAndPort(serial, port, HostReachable, PortReachable);
}
QStringList unreachable(int port, int serial = 1)
{
    return hostAndPort(serial, port, HostUnreachable, PortUnavailable);
}
QStringList addressless(int port, int serial = 1)
{
    return hostAndPort(serial, port, HostNoAddress, PortUnavailable);
}

/// A checker whose signals are kept in their order.
class CheckRun
{
public:
    explicit CheckRun(int timeoutMs = kPatienceMs)
    {
        m_checker->setConnectionTimeout(timeoutMs);
        QObject::connect(
            m_checker.get(), &HydConnectionChecker::netHostStatus, &m_context,
            [this](const HydDevice& device, HydPort port, HydNetworkStatus status) {
                m_lines << QStringLiteral("host %1:%2 %3").arg(device.serial()).arg(port).arg(status);
                if (m_onHost)
                    m_onHost();
            });
        QObject::connect(
            m_checker.get(), &HydConnectionChecker::portStatus, &m_context,
            [this](const HydDevice& device, HydPort port, HydPortConnStatus status) {
                m_lines << QStringLiteral("port %1:%2 %3").arg(device.serial()).arg(port).arg(status);
                if (m_onPort)
                    m_onPort();
            });
    }

    void setTimeout(int milliseconds) { m_checker->setConnectionTimeout(milliseconds); }
    void check(const HydDevice& device, int port)
    {
        m_checker->checkPort(device, static_cast<HydPort>(port));
    }
    void deleteChecker() { m_checker.reset(); }
    bool hasChecker() const { return m_checker != nullptr; }
    const QStringList& lines() const { return m_lines; }

    std::function<void()> m_onHost;
    std::function<void()> m_onPort;

private:
    QObject m_context;
    std::unique_ptr<HydConnectionChecker> m_checker = std::make_unique<HydConnectionChecker>();
    QStringList m_lines;
};

class OpenPort
{
public:
    explicit OpenPort(const QString& address = kOwnAddress)
    {
        if (!m_server.listen(QHostAddress(address)))
            qFatal("no open port");
    }
    int port() const { return m_server.serverPort(); }
    bool waitForConnection()
    {
        return QTest::qWaitFor([this] { return m_server.hasPendingConnections(); }, kPatienceMs);
    }
    bool hasConnection() const { return m_server.hasPendingConnections(); }

private:
    QTcpServer m_server;
};

/// A port that was free a moment ago.
int closedPort()
{
    return OpenPort().port();
}

/// Runs an event loop of its own until a timer of 1 ms has fired this often.
void runLoop(int ticks = 20)
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

qsizetype openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System).size();
}

enum Way { NoAddress, Refused, Answered, TimedOut, Datagrams };

} // namespace

class tst_HydConnectionChecker : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void timeoutIsFourSeconds();
    void portThatAnswers_data();
    void portThatAnswers();
    void arrayControllerIsCheckedByUdp();
    void noProxyIsAsked_data();
    void noProxyIsAsked();
    void severalAtOnce();
    void reportsCarryACopy();
    void nothingStays();
    // --- rainy day flows
    void noAddress_data();
    void noAddress();
    void refusedPortReportsTwice();
    void silentPortReportsAtTheTimeout();
    void lateAnswerIsReportedToo();
    void lateRefusalIsReportedToo();
    void noWayToTheHost_data();
    void noWayToTheHost();
    void negativeTimeoutCountsAsZero();
    void checkerThatGoesTakesItsChecks();
    void deletedInASlot_data();
    void deletedInASlot();
    void eventLoopInASlot_data();
    void eventLoopInASlot();
};

void tst_HydConnectionChecker::timeoutIsFourSeconds()
{
    HydConnectionChecker checker;
    QCOMPARE(checker.connectionTimeout(), 4000);
    checker.setConnectionTimeout(1);
    QCOMPARE(checker.connectionTimeout(), 1);
}

void tst_HydConnectionChecker::portThatAnswers_data()
{
    QTest::addColumn<int>("type");
    for (const HydDeviceType type :
         {DevTypeAny, DevTypeRecorderA, DevTypeRecorderB, DevTypeTmi, DevTypeTdRec, DevTypeSkiff})
        QTest::addRow("type %d", type) << int(type);
}

void tst_HydConnectionChecker::portThatAnswers()
{
    QFETCH(int, type);
    OpenPort peer;
    const DeletionWatch deletions;
    CheckRun run;
    run.check(deviceAt(kOwnAddress, HydDeviceType(type)), peer.port());
    QTRY_COMPARE(run.lines(), reachable(peer.port()));
    QVERIFY(peer.waitForConnection());
    QTRY_COMPARE(deletions.count("QTcpSocket"), 1);
    QTRY_COMPARE(deletions.count("QTimer"), 1);
    QCOMPARE(run.lines(), reachable(peer.port()));
}

void tst_HydConnectionChecker::arrayControllerIsCheckedByUdp()
{
    OpenPort peer;
    QUdpSocket udpPeer;
    QVERIFY(udpPeer.bind(QHostAddress(kOwnAddress), quint16(peer.port())));
    const DeletionWatch deletions;
    CheckRun run;
    run.check(deviceAt(kOwnAddress, DevTypeZcr), peer.port());
    // Intended: connected without any exchange with the host.
    QCOMPARE(run.lines(), reachable(peer.port()));
    const int nobodys = closedPort();
    run.check(deviceAt(kOwnAddress, DevTypeZcr), nobodys);
    QCOMPARE(run.lines(), reachable(peer.port()) + reachable(nobodys));
    QTRY_COMPARE(deletions.count("QUdpSocket"), 2);
    QTRY_COMPARE(deletions.count("QTimer"), 2);
    QVERIFY(!udpPeer.hasPendingDatagrams());
    QVERIFY(!peer.hasConnection());
    QCOMPARE(run.lines().size(), 4);
}

void tst_HydConnectionChecker::noProxyIsAsked_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("recorder") << int(DevTypeRecorderA);
    QTest::newRow("array controller") << int(DevTypeZcr);
}

void tst_HydConnectionChecker::noProxyIsAsked()
{
    QFETCH(int, type);
    if (!isInOwnNetwork() || std::system("ip address replace 198.51.100.1/32 dev lo") != 0)
        QSKIP("no address can be added to the loopback interface here");
    // For a loopback address Qt asks no proxy anyhow.
    const QString address = QStringLiteral("198.51.100.1");
    OpenPort peer(address);
    const auto restore = qScopeGuard([] { QNetworkProxy::setApplicationProxy(QNetworkProxy::NoProxy); });
    QNetworkProxy::setApplicationProxy(
        QNetworkProxy(QNetworkProxy::HttpProxy, kOwnAddress, quint16(closedPort())));
    CheckRun run;
    run.check(deviceAt(address, HydDeviceType(type)), peer.port());
    QTRY_COMPARE(run.lines(), reachable(peer.port()));
}

void tst_HydConnectionChecker::severalAtOnce()
{
    OpenPort first;
    OpenPort second;
    HangingPort silent(kOwnAddress);
    CheckRun run(kShortMs);
    run.check(deviceAt(kOwnAddress, DevTypeRecorderA, 3), silent.port());
    run.setTimeout(kPatienceMs);
    run.check(deviceAt(kOwnAddress, DevTypeRecorderA, 1), first.port());
    run.check(deviceAt(kOwnAddress, DevTypeRecorderB, 2), second.port());
    QTRY_COMPARE(run.lines().size(), 6);
    for (const QStringList& report :
         {reachable(first.port(), 1), reachable(second.port(), 2), unreachable(silent.port(), 3)}) {
        const qsizetype at = run.lines().indexOf(report[0]);
        QVERIFY2(at >= 0, qPrintable(report[0]));
        QCOMPARE(run.lines().value(at + 1), report[1]);
    }
}

void tst_HydConnectionChecker::reportsCarryACopy()
{
    OpenPort peer;
    CheckRun run;
    HydDevice device = deviceAt(kOwnAddress, DevTypeRecorderA, 77);
    run.check(device, peer.port());
    device.setSerial(78);
    QTRY_COMPARE(run.lines(), reachable(peer.port(), 77));
}

void tst_HydConnectionChecker::nothingStays()
{
    OpenPort peer;
    const int closed = closedPort();
    CheckRun run(1);
    const qsizetype before = openDescriptors();
    constexpr int kChecks = 100;
    const DeletionWatch deletions;
    for (int i = 0; i < kChecks; ++i) {
        run.check(deviceAt(kOwnAddress), closed);
        run.check(deviceAt(kOwnAddress, DevTypeZcr), closed);
    }
    QTRY_COMPARE(deletions.count("QTcpSocket"), kChecks);
    QTRY_COMPARE(deletions.count("QUdpSocket"), kChecks);
    QTRY_COMPARE(deletions.count("QTimer"), 2 * kChecks);
    QCOMPARE(openDescriptors(), before);
}

void tst_HydConnectionChecker::noAddress_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("recorder") << int(DevTypeRecorderA);
    QTest::newRow("array controller") << int(DevTypeZcr);
}

void tst_HydConnectionChecker::noAddress()
{
    QFETCH(int, type);
    const auto device = HydDevice::createDevice(HydDeviceType(type));
    NvxNetHostInfo info;
    info.setSubnetMask(0xFFFFFF00);
    device->setNetHostInfo(info);
    device->setSerial(5);
    const DeletionWatch deletions;
    const qsizetype before = openDescriptors();
    CheckRun run(1);
    run.check(*device, PortControl);
    QCOMPARE(run.lines(), addressless(PortControl, 5));
    QCOMPARE(openDescriptors(), before);
    runLoop();
    QCOMPARE(run.lines(), addressless(PortControl, 5));
    QCOMPARE(deletions.count("QTcpSocket") + deletions.count("QUdpSocket") + deletions.count("QTimer"), 0);
}

void tst_HydConnectionChecker::refusedPortReportsTwice()
{
    const int port = closedPort();
    const DeletionWatch deletions;
    CheckRun patient;
    patient.check(deviceAt(kOwnAddress), port);
    QTRY_COMPARE(patient.lines(), unreachable(port));
    QTRY_COMPARE(deletions.count("QTcpSocket"), 1);
    QCOMPARE(deletions.count("QTimer"), 0);
    QCOMPARE(patient.lines(), unreachable(port));

    // Intended: once at once, once at the timeout.
    CheckRun hasty(kShortMs);
    hasty.check(deviceAt(kOwnAddress), port);
    QTRY_COMPARE(hasty.lines(), unreachable(port) + unreachable(port));
    QTRY_COMPARE(deletions.count("QTimer"), 1);
    runLoop();
    QCOMPARE(hasty.lines().size(), 4);
}

void tst_HydConnectionChecker::silentPortReportsAtTheTimeout()
{
    HangingPort silent(kOwnAddress);
    const DeletionWatch deletions;
    CheckRun run(kShortMs);
    run.check(deviceAt(kOwnAddress), silent.port());
    QVERIFY(run.lines().isEmpty());
    QTRY_COMPARE(deletions.count("QTimer"), 1);
    QCOMPARE(run.lines(), unreachable(silent.port()));
    QCOMPARE(deletions.count("QTcpSocket"), 0);
}

void tst_HydConnectionChecker::lateAnswerIsReportedToo()
{
    HangingPort slow(kOwnAddress);
    const DeletionWatch deletions;
    CheckRun run(kShortMs);
    run.check(deviceAt(kOwnAddress), slow.port());
    QTRY_COMPARE(run.lines(), unreachable(slow.port()));
    const auto isReported = [&] {
        while (slow.letIn())
            ;
        return run.lines().size() > 2;
    };
    QVERIFY(QTest::qWaitFor(isReported, kPatienceMs));
    // Intended: unreachable first, then reachable after all.
    QCOMPARE(run.lines(), unreachable(slow.port()) + reachable(slow.port()));
    QTRY_COMPARE(deletions.count("QTcpSocket"), 1);
    QCOMPARE(deletions.count("QTimer"), 1);
}

void tst_HydConnectionChecker::lateRefusalIsReportedToo()
{
    HangingPort slow(kOwnAddress);
    const DeletionWatch deletions;
    CheckRun run(kShortMs);
    run.check(deviceAt(kOwnAddress), slow.port());
    QTRY_COMPARE(run.lines(), unreachable(slow.port()));
    slow.shut();
    QTRY_COMPARE(run.lines(), unreachable(slow.port()) + unreachable(slow.port()));
    QTRY_COMPARE(deletions.count("QTcpSocket"), 1);
}

void tst_HydConnectionChecker::noWayToTheHost_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("recorder") << int(DevTypeRecorderA);
    QTest::newRow("array controller") << int(DevTypeZcr);
}

void tst_HydConnectionChecker::noWayToTheHost()
{
    QFETCH(int, type);
    if (!isInOwnNetwork())
        QSKIP("neither \"unshare -n\" nor \"unshare -rn\" makes a network namespace here");
    CheckRun run(kShortMs * 10);
    // From the block for documentation; in the namespace there is no route to it.
    run.check(deviceAt(QStringLiteral("192.0.2.1"), HydDeviceType(type)), PortControl);
    QCOMPARE(run.lines(), unreachable(PortControl));
    QTRY_COMPARE(run.lines(), unreachable(PortControl) + unreachable(PortControl));
}

void tst_HydConnectionChecker::negativeTimeoutCountsAsZero()
{
    HangingPort silent(kOwnAddress);
    CheckRun run(-1);
    run.check(deviceAt(kOwnAddress), silent.port());
    QTRY_COMPARE(run.lines(), unreachable(silent.port()));
}

void tst_HydConnectionChecker::checkerThatGoesTakesItsChecks()
{
    HangingPort silent(kOwnAddress);
    OpenPort open;
    const DeletionWatch deletions;
    CheckRun run(1);
    run.check(deviceAt(kOwnAddress), silent.port());
    run.check(deviceAt(kOwnAddress), open.port());
    run.deleteChecker();
    QTRY_COMPARE(deletions.count("QTcpSocket"), 2);
    QTRY_COMPARE(deletions.count("QTimer"), 2);
    runLoop();
    QCOMPARE(run.lines(), QStringList());
}

void tst_HydConnectionChecker::deletedInASlot_data()
{
    QTest::addColumn<int>("way");
    QTest::addColumn<bool>("byTheFirstSignal");
    for (const bool first : {true, false}) {
        QTest::addRow("no address, %d", first) << int(NoAddress) << first;
        QTest::addRow("refused, %d", first) << int(Refused) << first;
        QTest::addRow("answered, %d", first) << int(Answered) << first;
        QTest::addRow("timed out, %d", first) << int(TimedOut) << first;
        QTest::addRow("datagrams, %d", first) << int(Datagrams) << first;
    }
}

void tst_HydConnectionChecker::deletedInASlot()
{
    QFETCH(int, way);
    QFETCH(bool, byTheFirstSignal);
    OpenPort open;
    HangingPort silent(kOwnAddress);
    const DeletionWatch deletions;
    CheckRun run(way == TimedOut ? kShortMs : kPatienceMs);
    // The event loop deletes what is to be deleted while the slot still runs.
    const auto deleteIt = [&] {
        run.deleteChecker();
        runLoop(3);
    };
    (byTheFirstSignal ? run.m_onHost : run.m_onPort) = deleteIt;
    const int port = way == Answered ? open.port() : way == TimedOut ? silent.port() : closedPort();
    const QString address = way == NoAddress ? QStringLiteral("0.0.0.0") : kOwnAddress;
    run.check(deviceAt(address, way == Datagrams ? DevTypeZcr : DevTypeRecorderA), port);
    QTRY_VERIFY(!run.hasChecker());
    const qsizetype made = way == NoAddress ? 0 : 1;
    QTRY_COMPARE(deletions.count("QTcpSocket") + deletions.count("QUdpSocket"), made);
    QTRY_COMPARE(deletions.count("QTimer"), made);
    QCOMPARE(run.lines().size(), byTheFirstSignal ? 1 : 2);
}

void tst_HydConnectionChecker::eventLoopInASlot_data()
{
    QTest::addColumn<int>("way");
    QTest::addColumn<bool>("fromAnEventLoop");
    for (const bool fromAnEventLoop : {false, true}) {
        QTest::addRow("refused, %d", fromAnEventLoop) << int(Refused) << fromAnEventLoop;
        QTest::addRow("answered, %d", fromAnEventLoop) << int(Answered) << fromAnEventLoop;
        QTest::addRow("datagrams, %d", fromAnEventLoop) << int(Datagrams) << fromAnEventLoop;
    }
}

/// A message box in a slot, for example. What was begun inside an event loop isn't deleted by a loop inside
/// that.
void tst_HydConnectionChecker::eventLoopInASlot()
{
    QFETCH(int, way);
    QFETCH(bool, fromAnEventLoop);
    OpenPort open;
    const DeletionWatch deletions;
    CheckRun run(way == Datagrams ? 1 : kPatienceMs);
    run.m_onHost = [] { runLoop(); };
    run.m_onPort = [] { runLoop(); };
    const int port = way == Refused ? closedPort() : open.port();
    const auto check = [&] {
        run.check(deviceAt(kOwnAddress, way == Datagrams ? DevTypeZcr : DevTypeRecorderA), port);
    };
    if (fromAnEventLoop)
        QTimer::singleShot(0, this, check);
    else
        check();
    QTRY_COMPARE(deletions.count(way == Datagrams ? "QUdpSocket" : "QTcpSocket"), 1);
    // The timer of a port that answered doesn't fire into the slot.
    QTRY_COMPARE(run.lines(), way == Refused ? unreachable(port) : reachable(port));
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    tst_HydConnectionChecker test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_HydConnectionChecker.moc"
