#include "NvxQtCommon/control/IpChecker.h"
#include "tests/platform/EchoPeer.h"
#include "tests/support/EchoNetwork.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"

#include <QCoreApplication>
#include <QPointer>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QThread>
#include <QThreadPool>

#include <atomic>
#include <memory>

namespace {

const NvxNetHostInfo kAnswering(0x7F3E1801); // 127.62.24.1
const QString kAnsweringText = QStringLiteral("127.62.24.1");
/// Far behind what a host has to answer.
constexpr int kLateMs = 3000;
const NvxNetHostInfo kSilent(0xC0000201); // 192.0.2.1, from the block for documentation

HydDevice namedDevice()
{
    HydDevice device(DevTypeRecorderB);
    device.setSerial(4711);
    // Not where the ping goes.
    device.setNetHostInfo(kSilent);
    return device;
}

NvxPingResult resultOf(const QSignalSpy& spy, int index = 0)
{
    return spy.value(index).value(0).value<NvxPingResult>();
}

} // namespace

/// In a network namespace of its own, where every local address answers and there is no way to any other.
class tst_IpChecker : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    // --- happy flows
    void addressInUse();
    void resultComesOnTheCheckersThread();
    // --- rainy day flows
    void nobodyAnswers_data();
    void nobodyAnswers();
    void replyAfterTheTimeout();
    void eachCallConnectsAnew();
    void deletedBeforeTheResult();
    void deletedByItsOwnSignal();
};

void tst_IpChecker::initTestCase()
{
    if (!isInOwnNetwork())
        QSKIP("neither \"unshare -n\" nor \"unshare -rn\" makes a network namespace here");
}

void tst_IpChecker::addressInUse()
{
    const HydDevice device = namedDevice();
    NvxNetHostInfo info = kAnswering;
    info.setGateway(0x01020304);
    IpChecker checker(device, info);
    QSignalSpy spy(&checker, &IpChecker::ipCheckResult);
    const LogSpy log;
    checker.checkIpExistence();
    QVERIFY(spy.isEmpty());
    QTRY_COMPARE(spy.size(), 1);
    QCOMPARE(resultOf(spy), PingOk);
    QCOMPARE(spy[0][1].value<HydDevice>().serial(), 4711);
    QCOMPARE(spy[0][1].value<HydDevice>().devType(), DevTypeRecorderB);
    QVERIFY(spy[0][2].value<NvxNetHostInfo>() == info);
    QVERIFY(log.contains(QStringLiteral("Ping result: 1")));
}

void tst_IpChecker::resultComesOnTheCheckersThread()
{
    IpChecker checker(namedDevice(), kAnswering);
    QThread* thread = nullptr;
    connect(
        &checker, &IpChecker::ipCheckResult, &checker, [&] { thread = QThread::currentThread(); },
        Qt::DirectConnection);
    checker.checkIpExistence();
    QTRY_VERIFY(thread != nullptr);
    QCOMPARE(thread, checker.thread());
}

void tst_IpChecker::nobodyAnswers_data()
{
    QTest::addColumn<uint>("address");
    QTest::newRow("no such host") << kSilent.ipAddress().toInt();
    QTest::newRow("no address") << 0U;
    QTest::newRow("everybody") << 0xFFFFFFFFU;
}

void tst_IpChecker::nobodyAnswers()
{
    QFETCH(uint, address);
    IpChecker checker(namedDevice(), NvxNetHostInfo(address));
    QSignalSpy spy(&checker, &IpChecker::ipCheckResult);
    const LogSpy log;
    checker.checkIpExistence();
    QTRY_COMPARE(spy.size(), 1);
    QCOMPARE(resultOf(spy), PingFailed);
    QVERIFY(log.contains(QStringLiteral("Ping result: 3")));
}

void tst_IpChecker::replyAfterTheTimeout()
{
    if (!writeIpv4Setting("icmp_echo_ignore_all", "1"))
        QSKIP("the settings of the network namespace can't be written here");
    const auto restore = qScopeGuard([] { writeIpv4Setting("icmp_echo_ignore_all", "0"); });
    QCOMPARE(IpChecker::kTimeoutMs, 50U);
    IpChecker checker(namedDevice(), kAnswering);
    QSignalSpy spy(&checker, &IpChecker::ipCheckResult);
    std::atomic<bool> hasResult = false;
    connect(&checker, &IpChecker::ipCheckResult, this, [&] { hasResult = true; });
    const EchoPeer peer(kAnsweringText, kAnsweringText, [&](const EchoPeer::Bytes& request) {
        for (int waited = 0; waited < kLateMs && !hasResult; ++waited)
            poll(nullptr, 0, 1);
        return std::vector<EchoPeer::Bytes>{EchoPeer::replyTo(request)};
    });
    const LogSpy log;
    checker.checkIpExistence();
    QTRY_COMPARE(spy.size(), 1);
    QCOMPARE(resultOf(spy), PingFailed);
    QCOMPARE(log.lines().value(0),
             QStringLiteral("Call to IcmpSendEcho failed.\nIcmpSendEcho returned error: %1").arg(ETIMEDOUT));
}

void tst_IpChecker::eachCallConnectsAnew()
{
    IpChecker checker(namedDevice(), kAnswering);
    QSignalSpy spy(&checker, &IpChecker::ipCheckResult);
    checker.checkIpExistence();
    QTRY_COMPARE(spy.size(), 1);
    checker.checkIpExistence();
    // Intended: the second check reports twice.
    QTRY_COMPARE(spy.size(), 3);
}

void tst_IpChecker::deletedBeforeTheResult()
{
    auto checker = std::make_unique<IpChecker>(namedDevice(), kSilent);
    QSignalSpy spy(checker.get(), &IpChecker::ipCheckResult);
    checker->checkIpExistence();
    checker.reset();
    QVERIFY(QThreadPool::globalInstance()->waitForDone(kPatienceMs));
    QCoreApplication::processEvents();
    QCOMPARE(spy.size(), 0);
}

void tst_IpChecker::deletedByItsOwnSignal()
{
    QPointer<IpChecker> checker = new IpChecker(namedDevice(), kAnswering);
    uint16_t serial = 0;
    NvxNetHostInfo info;
    connect(checker, &IpChecker::ipCheckResult, this,
            [&](NvxPingResult, const HydDevice& device, const NvxNetHostInfo& hostInfo) {
                delete checker;
                serial = device.serial();
                info = hostInfo;
            });
    checker->checkIpExistence();
    QTRY_VERIFY(checker.isNull());
    QCOMPARE(serial, 4711);
    QVERIFY(info == kAnswering);
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    tst_IpChecker test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_IpChecker.moc"
