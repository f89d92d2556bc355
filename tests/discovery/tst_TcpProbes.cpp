#include "NvxQtCommon/discovery/CTcpSocProc.h"
#include "NvxQtCommon/discovery/CTcpSocThread.h"
#include "tests/discovery/ProbeFixture.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include <QEventLoop>
#include <QPointer>
#include <QSemaphore>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTimer>

#include <atomic>

namespace {

const QString kPeerAddress = QStringLiteral("127.63.3.1");
const QString kOtherAddress = QStringLiteral("127.63.3.2");
const QHostAddress kAbsentAddress(QStringLiteral("127.63.3.3"));
constexpr int kSilenceMs = 50;

qsizetype keptSockets(const HydMarcoAdapter& adapter)
{
    return adapter.findChildren<CTcpSocProc*>().size();
}

} // namespace

/// The adapter's probes, one by one.
class tst_TcpProbes : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_threads = threadCount();
    }
    void cleanup() { QTRY_COMPARE(threadCount(), m_threads); }

    // --- happy flows
    void probeFindsADevice_data();
    void probeFindsADevice();
    void probeOnThisThreadIsAChild();
    void threadedProbeReportsOnItsThread();
    void regimeCountsWhenAProbeIsConnected();
    void receiverOnAnotherThreadGetsItQueued();
    void foreignSocketIsConnected_data();
    void foreignSocketIsConnected();
    void clearingDropsEarlierProbes();
    void withoutClearingEarlierProbesGoOn();
    void threadedProbeClearsNothing();
    // --- rainy day flows
    void failureIsReported_data();
    void failureIsReported();
    void immediateFailureIsReported();
    void silentPeerKeepsAThreadedProbe();
    void clearingInsideItsOwnSignal_data();
    void clearingInsideItsOwnSignal();
    void deletionInsideALoopOfASlot();
    void probesOutliveTheAdapterInSilence();
    void probeThatStartsLateMeetsAClosedGate();
    void destructorWaitsForADirectSlot();
    void aboutToQuitEndsThreadedProbes();
    void noDescriptorsForAThreadedProbe();
    void nullSocketIsNotConnected();
    void thousandProbesInARow();

private:
    qsizetype m_threads = 0;
};

void tst_TcpProbes::probeFindsADevice_data()
{
    QTest::addColumn<bool>("threaded");
    QTest::addColumn<bool>("regime");
    QTest::newRow("here") << false << false;
    QTest::newRow("here, TCP regime") << false << true;
    QTest::newRow("on a thread") << true << false;
    QTest::newRow("on a thread, TCP regime") << true << true;
}

void tst_TcpProbes::probeFindsADevice()
{
    QFETCH(const bool, threaded);
    QFETCH(const bool, regime);
    ProbedPeer peer(kPeerAddress, enquireReply(77));
    QVERIFY(peer.listens());
    HydMarcoAdapter adapter;
    adapter.setTcpRegime(regime);
    const ProbeReports reports(adapter);
    QSignalSpy gone(&peer, &ControlPeer::disconnected);
    if (!threaded)
        QTest::ignoreMessage(QtDebugMsg,
                             QRegularExpression(QStringLiteral("^TcpSocket got: peer: .*, local: ")));
    adapter.netEnquireTCPIPAddr(peer.host(), false, threaded);
    const auto& found = regime ? reports.m_foundIp : reports.m_found;
    QTRY_COMPARE(found.size(), 1);
    QCOMPARE(reports.m_found.size() + reports.m_foundIp.size(), 1);
    QCOMPARE(found.first()->serial(), uint16_t(77));
    QCOMPARE(found.first()->netHostInfo().ipAddress().toString(), kPeerAddress.toStdString());
    QCOMPARE(found.first()->ifaceAddr().toString(), std::string("127.0.0.1"));
    QTRY_COMPARE(gone.size(), 1);
    QCOMPARE(peer.letters(), QByteArray("E"));
    QCOMPARE(reports.m_errors.size(), 0);
}

void tst_TcpProbes::probeOnThisThreadIsAChild()
{
    ProbedPeer peer(kPeerAddress);
    HydMarcoAdapter adapter;
    adapter.netEnquireTCPIPAddr(peer.host(), true, false);
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    QCOMPARE(keptSockets(adapter), 1);
    QCOMPARE(threadCount(), m_threads);
    adapter.netEnquireTCPIPAddr(peer.host(), false, true);
    QTRY_COMPARE(peer.connections(), 2);
    QCOMPARE(keptSockets(adapter), 1);
    peer.close();
}

void tst_TcpProbes::threadedProbeReportsOnItsThread()
{
    ProbedPeer peer(kPeerAddress, enquireReply(1));
    HydMarcoAdapter adapter;
    std::atomic<int> far{0};
    const QThread* here = QThread::currentThread();
    const auto count = [&] { far += QThread::currentThread() != here ? 1 : 0; };
    connect(&adapter, &HydMarcoAdapter::deviceFound, &adapter, count, Qt::DirectConnection);
    connect(&adapter, &HydMarcoAdapter::signalSocketError, &adapter, count, Qt::DirectConnection);
    adapter.netEnquireTCPIPAddr(peer.host(), false, true);
    QTRY_COMPARE(far, 1);
    adapter.netEnquireTCPIPAddr(kAbsentAddress, false, true);
    QTRY_COMPARE(far, 2);
}

void tst_TcpProbes::regimeCountsWhenAProbeIsConnected()
{
    ProbedPeer peer(kPeerAddress);
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    adapter.netEnquireTCPIPAddr(peer.host(), true, false);
    adapter.setTcpRegime(true);
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    peer.send(enquireReply(1));
    QTRY_COMPARE(reports.m_found.size(), 1);
    QCOMPARE(reports.m_foundIp.size(), 0);
}

void tst_TcpProbes::receiverOnAnotherThreadGetsItQueued()
{
    ProbedPeer first(kPeerAddress, enquireReply(1));
    ProbedPeer second(kOtherAddress, enquireReply(2));
    QThread thread;
    QObject receiver;
    receiver.moveToThread(&thread);
    HydMarcoAdapter adapter;
    std::atomic<int> right{0};
    connect(&adapter, &HydMarcoAdapter::deviceFound, &receiver,
            [&] { right += QThread::currentThread() == &thread ? 1 : 0; });
    thread.start();
    adapter.netEnquireTCPIPAddr(first.host(), false, false);
    adapter.netEnquireTCPIPAddr(second.host(), false, true);
    QTRY_COMPARE(right, 2);
    thread.quit();
    QVERIFY(thread.wait());
}

void tst_TcpProbes::foreignSocketIsConnected_data()
{
    QTest::addColumn<bool>("isDirect");
    QTest::newRow("directly") << true;
    QTest::newRow("by what fits") << false;
}

void tst_TcpProbes::foreignSocketIsConnected()
{
    QFETCH(const bool, isDirect);
    ProbedPeer peer(kPeerAddress, enquireReply(1));
    QThread thread;
    QObject onThread;
    onThread.moveToThread(&thread);
    thread.start();
    HydMarcoAdapter adapter;
    std::atomic<int> calls{0};
    std::atomic<int> farCalls{0};
    const auto count = [&] {
        farCalls += QThread::currentThread() == &thread ? 1 : 0;
        ++calls;
    };
    connect(&adapter, &HydMarcoAdapter::deviceFound, &adapter, count, Qt::DirectConnection);
    connect(&adapter, &HydMarcoAdapter::signalSocketError, &adapter, count, Qt::DirectConnection);
    std::shared_ptr<CTcpSocProc> socket;
    callOn(onThread, [&] { socket = CTcpSocProc::make(nullptr, peer.host(), 1000, 'E'); });
    adapter.setConnectionTCPIP(socket, isDirect);
    callOn(onThread, [&] { socket->connectIPAddr(); });
    QTRY_COMPARE(calls, 1);
    callOn(onThread, [&] { socket->connectIPAddr(kAbsentAddress, 1000, 'E', true); });
    QTRY_COMPARE(calls, 2);
    QCOMPARE(farCalls, isDirect ? 2 : 0);
    callOn(onThread, [&] { socket.reset(); });
    thread.quit();
    QVERIFY(thread.wait());
}

void tst_TcpProbes::clearingDropsEarlierProbes()
{
    ProbedPeer first(kPeerAddress);
    ProbedPeer second(kOtherAddress, enquireReply(2));
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    QSignalSpy gone(&first, &ControlPeer::disconnected);
    adapter.netEnquireTCPIPAddr(first.host(), false, false);
    QTRY_COMPARE(first.letters(), QByteArray("E"));
    // The answer is on its way.
    first.send(enquireReply(1));
    adapter.netEnquireTCPIPAddr(second.host(), true, false);
    QTRY_COMPARE(gone.size(), 1);
    QTRY_COMPARE(reports.m_found.size(), 1);
    QCOMPARE(reports.m_found.first()->serial(), uint16_t(2));
    QCOMPARE(keptSockets(adapter), 1);
    QCOMPARE(reports.m_errors.size(), 0);
}

void tst_TcpProbes::withoutClearingEarlierProbesGoOn()
{
    ProbedPeer first(kPeerAddress);
    ProbedPeer second(kOtherAddress, enquireReply(2));
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    adapter.netEnquireTCPIPAddr(first.host(), true, false);
    QTRY_COMPARE(first.letters(), QByteArray("E"));
    adapter.netEnquireTCPIPAddr(second.host(), false, false);
    QTRY_COMPARE(reports.m_found.size(), 1);
    first.send(enquireReply(1));
    QTRY_COMPARE(reports.m_found.size(), 2);
    // What has ended is kept too, until it is dropped.
    QCOMPARE(keptSockets(adapter), 2);
}

void tst_TcpProbes::threadedProbeClearsNothing()
{
    ProbedPeer peer(kPeerAddress);
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    adapter.netEnquireTCPIPAddr(peer.host(), true, false);
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    adapter.netEnquireTCPIPAddr(kAbsentAddress, true, true);
    QTRY_COMPARE(reports.m_errors.size(), 1);
    peer.send(enquireReply(1));
    QTRY_COMPARE(reports.m_found.size(), 1);
}

void tst_TcpProbes::failureIsReported_data()
{
    QTest::addColumn<bool>("threaded");
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QAbstractSocket::SocketError>("error");
    for (const bool threaded : {false, true}) {
        const char* where = threaded ? "on a thread" : "here";
        QTest::addRow("%s, refuses", where)
            << threaded << QStringLiteral("refuse") << QAbstractSocket::ConnectionRefusedError;
        QTest::addRow("%s, closes", where)
            << threaded << QStringLiteral("close") << QAbstractSocket::RemoteHostClosedError;
        QTest::addRow("%s, resets", where)
            << threaded << QStringLiteral("reset") << QAbstractSocket::RemoteHostClosedError;
        QTest::addRow("%s, no address", where)
            << threaded << QStringLiteral("null") << QAbstractSocket::HostNotFoundError;
    }
}

void tst_TcpProbes::failureIsReported()
{
    QFETCH(const bool, threaded);
    QFETCH(const QString, failure);
    QFETCH(const QAbstractSocket::SocketError, error);
    ProbedPeer peer(kPeerAddress);
    connect(&peer, &ControlPeer::requestArrived, this,
            [&] { failure == QStringLiteral("close") ? peer.close() : peer.reset(); });
    QHostAddress address = peer.host();
    if (failure == QStringLiteral("refuse"))
        address = kAbsentAddress;
    else if (failure == QStringLiteral("null"))
        address = QHostAddress();
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("^HydMarcoAdapter: socketError: ")));
    adapter.netEnquireTCPIPAddr(address, false, threaded);
    QTRY_COMPARE(reports.m_errors.size(), 1);
    QCOMPARE(reports.m_errors.first(), error);
    QCOMPARE(reports.m_errorAddresses.first(), address.toString());
    QTRY_COMPARE(threadCount(), m_threads);
    // Once, and nothing is tried again.
    QCOMPARE(reports.m_errors.size(), 1);
    QVERIFY(peer.connections() <= 1);
    QCOMPARE(reports.m_found.size(), 0);
}

void tst_TcpProbes::immediateFailureIsReported()
{
    // No socket can be opened, which connecting says before it returns.
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    {
        const DescriptorLimit none(0);
        adapter.netEnquireTCPIPAddr(kAbsentAddress, false, false);
    }
    QTRY_COMPARE(reports.m_errors.size(), 1);
    QCOMPARE(reports.m_errorAddresses.first(), kAbsentAddress.toString());
}

void tst_TcpProbes::silentPeerKeepsAThreadedProbe()
{
    ProbedPeer peer(kPeerAddress);
    HydMarcoAdapter adapter;
    adapter.setTimeWait(1);
    const ProbeReports reports(adapter);
    adapter.netEnquireTCPIPAddr(peer.host(), false, true);
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    QSignalSpy gone(&peer, &ControlPeer::disconnected);
    QVERIFY(!gone.wait(kSilenceMs));
    QCOMPARE(threadCount(), m_threads + 1);
    QCOMPARE(reports.m_errors.size(), 0);
    // Only an error ends it.
    peer.reset();
    QTRY_COMPARE(threadCount(), m_threads);
    QTRY_COMPARE(reports.m_errors.size(), 1);
}

void tst_TcpProbes::clearingInsideItsOwnSignal_data()
{
    QTest::addColumn<bool>("loopInside");
    QTest::newRow("right there") << false;
    QTest::newRow("inside an event loop of the slot") << true;
}

void tst_TcpProbes::clearingInsideItsOwnSignal()
{
    QFETCH(const bool, loopInside);
    ProbedPeer first(kPeerAddress, enquireReply(1) + enquireReply(9));
    ProbedPeer second(kOtherAddress, enquireReply(2));
    HydMarcoAdapter adapter;
    QStringList serials;
    connect(&adapter, &HydMarcoAdapter::deviceFound, this, [&](const Device& device) {
        serials << QString::number(device->serial());
        if (device->serial() != 1)
            return;
        const auto clear = [&] { adapter.netEnquireTCPIPAddr(second.host(), true, false); };
        if (!loopInside)
            return clear();
        QEventLoop loop;
        QTimer::singleShot(0, &loop, clear);
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.exec();
    });
    adapter.netEnquireTCPIPAddr(first.host(), true, false);
    // The second message of a probe that was dropped is not told.
    QTRY_COMPARE(serials, QStringList({QStringLiteral("1"), QStringLiteral("2")}));
    QTRY_COMPARE(keptSockets(adapter), 1);
}

void tst_TcpProbes::deletionInsideALoopOfASlot()
{
    ProbedPeer peer(kPeerAddress, enquireReply(1) + enquireReply(2));
    const QPointer adapter(new HydMarcoAdapter);
    int calls = 0;
    connect(adapter, &HydMarcoAdapter::deviceFound, this, [&] {
        ++calls;
        QEventLoop loop;
        QTimer::singleShot(0, &loop, [&] { adapter->deleteLater(); });
        connect(adapter, &QObject::destroyed, &loop, &QEventLoop::quit);
        loop.exec();
    });
    adapter->netEnquireTCPIPAddr(peer.host(), true, false);
    QSignalSpy gone(&peer, &ControlPeer::disconnected);
    QTRY_COMPARE(gone.size(), 1);
    QVERIFY(!adapter);
    QCOMPARE(calls, 1);
}

void tst_TcpProbes::probesOutliveTheAdapterInSilence()
{
    ProbedPeer peer(kPeerAddress);
    ProbedPeer other(kOtherAddress);
    auto adapter = std::make_unique<HydMarcoAdapter>();
    const ProbeReports reports(*adapter);
    adapter->netEnquireTCPIPAddr(peer.host(), false, true);
    adapter->netEnquireTCPIPAddr(other.host(), false, false);
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    QTRY_COMPARE(other.letters(), QByteArray("E"));
    QSignalSpy gone(&peer, &ControlPeer::disconnected);
    QSignalSpy otherGone(&other, &ControlPeer::disconnected);
    adapter.reset();
    // A probe on the adapter's own thread goes with it.
    QTRY_COMPARE(otherGone.size(), 1);
    QCOMPARE(gone.size(), 0);
    peer.send(enquireReply(1));
    QTRY_COMPARE(gone.size(), 1);
    QTRY_COMPARE(threadCount(), m_threads);
    QCOMPARE(reports.m_found.size() + reports.m_errors.size(), 0);
}

void tst_TcpProbes::probeThatStartsLateMeetsAClosedGate()
{
    ProbedPeer peer(kPeerAddress, enquireReply(1));
    // Some of them have begun by then, some have not.
    for (int round = 0; round < 50; ++round) {
        HydMarcoAdapter adapter;
        adapter.netEnquireTCPIPAddr(peer.host(), false, true);
    }
    QTRY_COMPARE(threadCount(), m_threads);
}

void tst_TcpProbes::destructorWaitsForADirectSlot()
{
    ProbedPeer peer(kPeerAddress, enquireReply(1));
    auto adapter = std::make_unique<HydMarcoAdapter>();
    QSemaphore inside;
    QSemaphore goOn;
    std::atomic<bool> isOver{false};
    connect(
        adapter.get(), &HydMarcoAdapter::deviceFound, adapter.get(),
        [&] {
            inside.release();
            goOn.tryAcquire(1, kPatienceMs);
            isOver = true;
        },
        Qt::DirectConnection);
    adapter->netEnquireTCPIPAddr(peer.host(), false, true);
    QTRY_COMPARE(inside.available(), 1);
    std::unique_ptr<QThread> helper(QThread::create([&] { goOn.release(); }));
    helper->start();
    adapter.reset();
    QVERIFY(isOver);
    QVERIFY(helper->wait());
}

void tst_TcpProbes::aboutToQuitEndsThreadedProbes()
{
    constexpr int kProbes = 5;
    QTcpServer silent;
    QVERIFY(silent.listen(QHostAddress(kPeerAddress), PortControl));
    QSignalSpy opened(&silent, &QTcpServer::newConnection);
    HydMarcoAdapter adapter;
    const qsizetype descriptors = descriptorCount();
    for (int probe = 0; probe < kProbes; ++probe)
        adapter.netEnquireTCPIPAddr(silent.serverAddress(), false, true);
    QTRY_COMPARE(opened.size(), kProbes);
    QCOMPARE(threadCount(), m_threads + kProbes);
    // The other ends of the connections are in this process, too.
    QVERIFY(descriptorCount() <= descriptors + kProbes * qsizetype(CTcpSocThread::kDescriptors + 1));
    QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
    // No event loop runs meanwhile: it is the quitting that ended them. The system takes its time to forget.
    QVERIFY(becomesTrueWithoutEvents([this] { return threadCount() == m_threads; }));
}

void tst_TcpProbes::noDescriptorsForAThreadedProbe()
{
    ProbedPeer peer(kPeerAddress, enquireReply(1));
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    LogSpy log;
    {
        const DescriptorLimit low(static_cast<size_t>(descriptorCount()) + 10);
        adapter.netEnquireTCPIPAddr(peer.host(), false, true);
        QCOMPARE(reports.m_errors.size(), 1);
    }
    QCOMPARE(reports.m_errors.first(), QAbstractSocket::SocketResourceError);
    QCOMPARE(reports.m_errorAddresses.first(), kPeerAddress);
    QVERIFY(log.contains(QStringLiteral("HydMarcoAdapter: too few descriptors are left for a probe of ") +
                         kPeerAddress));
    QCOMPARE(threadCount(), m_threads);
    adapter.netEnquireTCPIPAddr(peer.host(), false, true);
    QTRY_COMPARE(reports.m_found.size(), 1);
}

void tst_TcpProbes::nullSocketIsNotConnected()
{
    const HydMarcoAdapter adapter;
    adapter.setConnectionTCPIP(nullptr, true);
    adapter.setConnectionTCPIP(nullptr, false);
    QVERIFY(adapter.findChildren<CTcpSocProc*>().isEmpty());
}

void tst_TcpProbes::thousandProbesInARow()
{
    constexpr int kProbes = 1000;
    constexpr int kWarm = 100;
    ProbedPeer peer(kPeerAddress, enquireReply(1));
    HydMarcoAdapter adapter;
    int found = 0;
    const auto probe = [&] { adapter.netEnquireTCPIPAddr(peer.host(), true, found % 2 == 0); };
    qsizetype descriptors = 0;
    qint64 resident = 0;
    QEventLoop loop;
    connect(
        &adapter, &HydMarcoAdapter::deviceFound, this,
        [&] {
            if (++found == kWarm) {
                descriptors = descriptorCount();
                resident = residentBytes();
            }
            peer.forget();
            if (found == kProbes)
                loop.quit();
            else
                probe();
        },
        Qt::QueuedConnection);
    QTimer::singleShot(kPatienceMs, &loop, &QEventLoop::quit);
    probe();
    loop.exec();
    QCOMPARE(found, kProbes);
    QTRY_COMPARE(threadCount(), m_threads);
    QTRY_VERIFY(descriptorCount() <= descriptors);
    QCOMPARE(keptSockets(adapter), 1);
    const qint64 grown = residentBytes() - resident;
    QVERIFY2(grown < kLittleMemory, qPrintable(QString::number(grown)));
}

QTEST_GUILESS_MAIN(tst_TcpProbes)
#include "tst_TcpProbes.moc"
