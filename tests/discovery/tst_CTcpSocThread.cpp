#include "NvxQtCommon/discovery/CTcpSocProc.h"
#include "NvxQtCommon/discovery/CTcpSocThread.h"
#include "tests/discovery/ProbeFixture.h"
#include "tests/support/NvxTestCase.h"

#include <QPointer>
#include <QSignalSpy>

#include <atomic>

namespace {

const QString kPeerAddress = QStringLiteral("127.63.2.1");
const QHostAddress kAbsentAddress(QStringLiteral("127.63.2.3"));
constexpr int kSilenceMs = 50;

/// A probe's thread that makes and connects its socket when it has started, and what it reports. Made by new:
/// a stack that is used again looks like a race to ThreadSanitizer, which doesn't see the wait for the
/// thread.
class ProbeThread
{
public:
    explicit ProbeThread(const QHostAddress& address) : m_thread(nullptr, address, 1000, 'E')
    {
        QObject::connect(
            &m_thread, &QThread::started, &m_thread, [this] { start(); }, Qt::DirectConnection);
        QObject::connect(
            &m_thread, &CTcpSocThread::signalError, &m_thread,
            [this](QAbstractSocket::SocketError error, const QHostAddress& host) {
                m_error = error;
                m_errorAddress = host.toIPv4Address();
                m_errorIsHere = isHere();
                ++m_errors;
            },
            Qt::DirectConnection);
        QObject::connect(
            &m_thread, &CTcpSocThread::deviceFound, &m_thread, [this] { ++m_foundByThread; },
            Qt::DirectConnection);
    }

    std::atomic<bool> m_isOrphanHere{false};
    std::atomic<bool> m_isReleasedHere{false};
    std::atomic<int> m_found{0};
    std::atomic<int> m_foundByThread{0};
    std::atomic<int> m_errors{0};
    std::atomic<bool> m_errorIsHere{false};
    std::atomic<QAbstractSocket::SocketError> m_error{QAbstractSocket::UnknownSocketError};
    std::atomic<uint32_t> m_errorAddress{0};
    CTcpSocThread m_thread;

private:
    bool isHere() const { return QThread::currentThread() == &m_thread; }
    void start()
    {
        m_thread.createSocket();
        CTcpSocProc* socket = m_thread.tcpSocProc().get();
        m_isOrphanHere = isHere() && socket->thread() == &m_thread && socket->parent() == nullptr;
        // A socket that is let go tells nobody: its child sees it go.
        QObject::connect(
            new QObject(socket), &QObject::destroyed, &m_thread, [this] { m_isReleasedHere = isHere(); },
            Qt::DirectConnection);
        QObject::connect(
            socket, &CTcpSocProc::deviceFound, &m_thread, [this] { ++m_found; }, Qt::DirectConnection);
        m_thread.connectIP();
    }
};

} // namespace

class tst_CTcpSocThread : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void socketLivesAndDiesOnTheThread();
    void endsWithItsConnection();
    void withoutSocketNothingHappens();
    void unstartedProbeTakesItsSocketAlong();
    void stackIsSmall();
    // --- rainy day flows
    void errorIsReportedWithItsAddress_data();
    void errorIsReportedWithItsAddress();
    void silentPeerKeepsTheThread();
    void destructorEndsAStartedProbe_data();
    void destructorEndsAStartedProbe();
    void roomFollowsTheLimit();
};

void tst_CTcpSocThread::socketLivesAndDiesOnTheThread()
{
    ProbedPeer peer(kPeerAddress, enquireReply(8));
    const auto probe = std::make_unique<ProbeThread>(peer.host());
    QVERIFY(!probe->m_thread.tcpSocProc());
    QVERIFY(!probe->m_thread.parent());
    probe->m_thread.start();
    QTRY_VERIFY(probe->m_thread.isFinished());
    QVERIFY(probe->m_thread.wait());
    QVERIFY(probe->m_isOrphanHere);
    QCOMPARE(probe->m_found, 1);
    QCOMPARE(probe->m_foundByThread, 0);
    QVERIFY(!probe->m_thread.tcpSocProc());
    QVERIFY(probe->m_isReleasedHere);
}

void tst_CTcpSocThread::endsWithItsConnection()
{
    ProbedPeer peer(kPeerAddress, enquireReply(8));
    const auto probe = std::make_unique<ProbeThread>(peer.host());
    QSignalSpy gone(&peer, &ControlPeer::disconnected);
    probe->m_thread.start();
    QTRY_VERIFY(probe->m_thread.isFinished());
    QTRY_COMPARE(gone.size(), 1);
    QCOMPARE(peer.letters(), QByteArray("E"));
    QCOMPARE(probe->m_errors, 0);
}

void tst_CTcpSocThread::withoutSocketNothingHappens()
{
    CTcpSocThread thread(nullptr, kAbsentAddress, 1000, 'E');
    thread.connectIP();
    thread.disconnected();
    QSignalSpy errors(&thread, &CTcpSocThread::signalError);
    thread.errorHandle(QAbstractSocket::NetworkError);
    QCOMPARE(errors.size(), 1);
    QVERIFY(!thread.isRunning());
}

void tst_CTcpSocThread::unstartedProbeTakesItsSocketAlong()
{
    ProbedPeer peer(kPeerAddress);
    auto thread = std::make_unique<CTcpSocThread>(nullptr, peer.host(), 1000, 'E');
    thread->createSocket();
    const QPointer<CTcpSocProc> guard(thread->tcpSocProc().get());
    thread->connectIP();
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    QSignalSpy gone(&peer, &ControlPeer::disconnected);
    thread.reset();
    QTRY_VERIFY(!guard);
    QTRY_COMPARE(gone.size(), 1);
}

void tst_CTcpSocThread::stackIsSmall()
{
    const CTcpSocThread thread(nullptr, kAbsentAddress, 1000, 'E');
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    QCOMPARE(thread.stackSize(), 0U);
#else
    QCOMPARE(thread.stackSize(), 512U * 1024);
#endif
}

void tst_CTcpSocThread::errorIsReportedWithItsAddress_data()
{
    QTest::addColumn<bool>("refuses");
    QTest::addColumn<QAbstractSocket::SocketError>("error");
    QTest::newRow("refuses") << true << QAbstractSocket::ConnectionRefusedError;
    QTest::newRow("resets") << false << QAbstractSocket::RemoteHostClosedError;
}

void tst_CTcpSocThread::errorIsReportedWithItsAddress()
{
    QFETCH(const bool, refuses);
    QFETCH(const QAbstractSocket::SocketError, error);
    ProbedPeer peer(kPeerAddress);
    connect(&peer, &ControlPeer::requestArrived, this, [&] { peer.reset(); });
    const QHostAddress address = refuses ? kAbsentAddress : peer.host();
    const auto probe = std::make_unique<ProbeThread>(address);
    const QString line = QStringLiteral("^CTcpSocThread: socketError: .*%1");
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression(line.arg(QVariant::fromValue(error).toString())));
    probe->m_thread.start();
    QTRY_VERIFY(probe->m_thread.isFinished());
    QVERIFY(probe->m_thread.wait());
    QCOMPARE(probe->m_errors, 1);
    QCOMPARE(probe->m_error.load(), error);
    QCOMPARE(probe->m_errorAddress.load(), address.toIPv4Address());
    QVERIFY(probe->m_errorIsHere);
    QVERIFY(probe->m_isReleasedHere);
}

void tst_CTcpSocThread::silentPeerKeepsTheThread()
{
    ProbedPeer peer(kPeerAddress);
    const auto probe = std::make_unique<ProbeThread>(peer.host());
    probe->m_thread.start();
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    QVERIFY(!QTest::qWaitFor([&] { return probe->m_thread.isFinished(); }, kSilenceMs));
    QVERIFY(probe->m_thread.isRunning());
    QVERIFY(probe->m_thread.tcpSocProc());
    peer.close();
    QTRY_VERIFY(probe->m_thread.isFinished());
    QVERIFY(probe->m_thread.wait());
    QCOMPARE(probe->m_error.load(), QAbstractSocket::RemoteHostClosedError);
}

void tst_CTcpSocThread::destructorEndsAStartedProbe_data()
{
    QTest::addColumn<bool>("waitForTheEnquiry");
    QTest::newRow("right after its start") << false;
    QTest::newRow("while its peer says nothing") << true;
}

void tst_CTcpSocThread::destructorEndsAStartedProbe()
{
    QFETCH(const bool, waitForTheEnquiry);
    ProbedPeer peer(kPeerAddress);
    const qsizetype threads = threadCount();
    const qsizetype descriptors = descriptorCount();
    for (int round = 0; round < (waitForTheEnquiry ? 5 : 50); ++round) {
        const auto probe = std::make_unique<ProbeThread>(peer.host());
        peer.forget();
        probe->m_thread.start();
        if (waitForTheEnquiry)
            QTRY_COMPARE(peer.letters(), QByteArray("E"));
    }
    QTRY_COMPARE(threadCount(), threads);
    // The latest connection at the peer's side ends with the next one.
    QTRY_VERIFY(descriptorCount() <= descriptors + 1);
}

void tst_CTcpSocThread::roomFollowsTheLimit()
{
    constexpr size_t kWanted = 10;
    constexpr size_t kTopLimit = 100;
    const size_t used = descriptorsBelow(kTopLimit);
    QVERIFY(used + CTcpSocThread::kSpareDescriptors + kWanted * CTcpSocThread::kDescriptors < kTopLimit);
    const auto room = [&](size_t limit) {
        const DescriptorLimit lowered(limit);
        return CTcpSocThread::roomForProbes();
    };
    const size_t least = used + CTcpSocThread::kSpareDescriptors;
    QCOMPARE(room(least + kWanted * CTcpSocThread::kDescriptors), kWanted);
    QCOMPARE(room(least + kWanted * CTcpSocThread::kDescriptors - 1), kWanted - 1);
    QCOMPARE(room(least + 1), size_t(0));
    QCOMPARE(room(used), size_t(0));
    QCOMPARE(room(0), size_t(0));
    QVERIFY(CTcpSocThread::roomForProbes() > kWanted);
}

QTEST_GUILESS_MAIN(tst_CTcpSocThread)
#include "tst_CTcpSocThread.moc"
