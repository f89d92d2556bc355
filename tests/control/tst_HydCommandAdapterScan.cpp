#include "AdapterFixture.h"
#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"

#include <thread>

namespace {

const QString kAddress = QStringLiteral("127.21.4.1");
// So long that its end never comes in a test.
constexpr int kLongWait = 600000;

void enquire(AdapterFixture& f)
{
    f.adapter.sendCommand(std::make_shared<HydEnquireCmd>());
}

} // namespace

/// The configuration of the data collect poll, its requests and its timer.
class tst_HydCommandAdapterScan : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void configurationStartsTheTimer();
    void configurationClearsWhatWasReceived_data();
    void configurationClearsWhatWasReceived();
    void scanDataAsksWithTheMask_data();
    void scanDataAsksWithTheMask();
    void pollGoesOn();
    void topBitAsksAtOnce();
    void topBitBurst();
    void collectedReplyRestartsTheTimer();
    void firstReplyStartsTheTimer();
    void otherRepliesLeaveARunningTimerAlone();
    // --- rainy day flows
    void secondPositiveConfigurationStopsTheTimer();
    void collectedReplyAloneDoesNotStartAStoppedTimer();
    void zeroEndsThePoll();
    void negativeWaitEndsThePoll();
    void maskZeroSendsNothing();
    void timeoutsWithMaskZeroSendNothing();
    void timeoutWithoutConnectionIsAnError();
    void withoutKeepConnectionTheTimerStaysStopped();
    void withoutKeepConnectionCollectedDataCloseToo_data();
    void withoutKeepConnectionCollectedDataCloseToo();
    void stateIsReadableFromOtherThreads();
};

void tst_HydCommandAdapterScan::configurationStartsTheTimer()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(1234, 0x20);
    QVERIFY(f.scanTimer->isActive());
    QCOMPARE(f.scanTimer->interval(), 1234);
    QVERIFY(f.adapter.isCollectingData());
    QCOMPARE(f.socket->readBufferSize(), qint64(2621440));
}

void tst_HydCommandAdapterScan::configurationClearsWhatWasReceived_data()
{
    QTest::addColumn<int>("wait");
    QTest::newRow("with a poll") << kLongWait;
    QTest::newRow("without a poll") << 0;
}

void tst_HydCommandAdapterScan::configurationClearsWhatWasReceived()
{
    QFETCH(int, wait);
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    const auto reply = enquireReply(7);
    QVERIFY(f.deliver(reply.first(20)));
    f.adapter.setDataScanConf(wait, 0x20);
    QVERIFY(f.deliver(reply.sliced(20) + timeReply(5)));
    QCOMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapterScan::scanDataAsksWithTheMask_data()
{
    QTest::addColumn<int>("mask");
    QTest::newRow("wave") << 0x20;
    QTest::newRow("spectrum") << 0x10;
    QTest::newRow("both") << 0x30;
    QTest::newRow("top bit") << 0x80;
    QTest::newRow("all") << 0xFF;
}

void tst_HydCommandAdapterScan::scanDataAsksWithTheMask()
{
    QFETCH(int, mask);
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(kLongWait, static_cast<signed char>(mask));
    f.adapter.scanData();
    QTRY_COMPARE(f.peer.received(), frameOf(HydDataCollectCmd(static_cast<uint8_t>(mask))));
}

void tst_HydCommandAdapterScan::pollGoesOn()
{
    AdapterFixture f(kAddress);
    f.peer.setScript([](const ControlPeer::Request&) { return collectReply(0x20, 2000); });
    QVERIFY(f.open());
    f.adapter.setDataScanConf(20, 0x20);
    // Each reply is parsed when the next one begins.
    QTRY_VERIFY(f.letters.size() >= 10);
    QVERIFY(f.peer.count('C') > f.letters.size());
    QCOMPARE(QByteArray(f.letters.size(), 'C'), f.letters);
    f.adapter.setDataScanConf(0, 0);
    QVERIFY(!f.scanTimer->isActive());
}

void tst_HydCommandAdapterScan::topBitAsksAtOnce()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(kLongWait, 0x20);
    QVERIFY(f.scanTimer->isActive());
    bool wasActive = true;
    connect(&f.adapter, &HydCommandAdapter::commandResponse, this,
            [&] { wasActive = f.scanTimer->isActive(); });
    QVERIFY(f.deliver(collectReply(0xA0)));
    QVERIFY(f.deliver(collectReply(0x20)));
    QCOMPARE(f.letters, QByteArray("C"));
    QVERIFY(!wasActive);
    QTRY_COMPARE(f.peer.letters(), QByteArray("C"));
    // Only the end of the whole reading starts it again.
    QVERIFY(f.scanTimer->isActive());
}

void tst_HydCommandAdapterScan::topBitBurst()
{
    AdapterFixture f(kAddress);
    int left = 20;
    f.peer.setScript(
        [&left](const ControlPeer::Request&) { return collectReply(left-- > 0 ? 0xA0 : 0x20, 5000); });
    QVERIFY(f.open());
    f.adapter.setDataScanConf(kLongWait, 0x20);
    f.adapter.scanData();
    QTRY_COMPARE(f.peer.count('C'), 1);
    f.adapter.scanData();
    // No timer comes in between: the replies themselves ask for the next ones.
    QTRY_COMPARE(f.letters.size(), 21);
    QCOMPARE(f.peer.count('C'), 22);
}

void tst_HydCommandAdapterScan::collectedReplyRestartsTheTimer()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(kLongWait, 0x20);
    f.scanTimer->start(5000);
    bool wasActive = false;
    int interval = 0;
    connect(&f.adapter, &HydCommandAdapter::commandResponse, this, [&] {
        wasActive = f.scanTimer->isActive();
        interval = f.scanTimer->interval();
    });
    QVERIFY(f.deliver(collectReply(0x20)));
    QVERIFY(f.deliver(collectReply(0x20)));
    QVERIFY(wasActive);
    QCOMPARE(interval, kLongWait);
    enquire(f);
    QTRY_COMPARE(f.peer.letters(), QByteArray("E"));
}

void tst_HydCommandAdapterScan::firstReplyStartsTheTimer()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(!f.scanTimer->isActive());
    QVERIFY(f.deliver(timeReply(1)));
    QVERIFY(f.scanTimer->isActive());
    QCOMPARE(f.scanTimer->interval(), 1000);
}

void tst_HydCommandAdapterScan::otherRepliesLeaveARunningTimerAlone()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(kLongWait, 0x20);
    f.scanTimer->start(5000);
    QVERIFY(f.deliver(timeReply(1)));
    QCOMPARE(f.letters, QByteArray("A"));
    QCOMPARE(f.scanTimer->interval(), 5000);
}

void tst_HydCommandAdapterScan::secondPositiveConfigurationStopsTheTimer()
{
    // Intended: only the next reply starts it again.
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(kLongWait, 0x20);
    QVERIFY(f.scanTimer->isActive());
    f.adapter.setDataScanConf(5000, 0x20);
    QVERIFY(!f.scanTimer->isActive());
    QVERIFY(f.adapter.isCollectingData());
    QVERIFY(f.deliver(timeReply(1)));
    QVERIFY(f.scanTimer->isActive());
    QCOMPARE(f.scanTimer->interval(), 5000);

    f.adapter.setDataScanConf(5000, 0x20);
    QVERIFY(!f.scanTimer->isActive());
    f.adapter.setDataScanConf(4000, 0x20);
    QVERIFY(f.scanTimer->isActive());
    QCOMPARE(f.scanTimer->interval(), 4000);
}

void tst_HydCommandAdapterScan::collectedReplyAloneDoesNotStartAStoppedTimer()
{
    // Intended: a collected reply is only staged until another one begins.
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(kLongWait, 0x20);
    f.adapter.setDataScanConf(kLongWait, 0x20);
    QVERIFY(f.deliver(collectReply(0x20)));
    QVERIFY(!f.scanTimer->isActive());
    QVERIFY(f.deliver(collectReply(0x20)));
    QVERIFY(f.scanTimer->isActive());
}

void tst_HydCommandAdapterScan::zeroEndsThePoll()
{
    AdapterFixture f(kAddress);
    f.peer.setScript([](const ControlPeer::Request& request) {
        return request.letter == 'C' ? collectReply(0xA0) : enquireReply(1);
    });
    QVERIFY(f.open());
    f.adapter.setDataScanConf(10, 0x20);
    QTRY_VERIFY(f.peer.count('C') > 3);
    f.adapter.setDataScanConf(0, 0);
    QVERIFY(!f.scanTimer->isActive());
    QVERIFY(!f.adapter.isCollectingData());
    // What was on its way has arrived when the enquiry is answered; after that nobody asks for data.
    enquire(f);
    QTRY_VERIFY(f.letters.contains('E'));
    f.peer.forget();
    QVERIFY(!f.scanTimer->isActive());
    f.adapter.scanData();
    enquire(f);
    QTRY_COMPARE(f.peer.letters(), QByteArray("E"));
}

void tst_HydCommandAdapterScan::negativeWaitEndsThePoll()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(kLongWait, 0x20);
    f.adapter.setDataScanConf(-5, 0x20);
    QVERIFY(!f.scanTimer->isActive());
    QVERIFY(!f.adapter.isCollectingData());
    QVERIFY(f.deliver(timeReply(1)));
    QVERIFY(!f.scanTimer->isActive());
    QCOMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapterScan::maskZeroSendsNothing()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.scanData();
    f.adapter.setDataScanConf(kLongWait, 0);
    f.adapter.scanData();
    enquire(f);
    QTRY_COMPARE(f.peer.letters(), QByteArray("E"));
}

void tst_HydCommandAdapterScan::timeoutsWithMaskZeroSendNothing()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(5, 0);
    QSignalSpy timeouts(f.scanTimer, &QTimer::timeout);
    QTRY_VERIFY(timeouts.count() >= 5);
    enquire(f);
    QTRY_COMPARE(f.peer.letters(), QByteArray("E"));
    QVERIFY(f.errors.isEmpty());
}

void tst_HydCommandAdapterScan::timeoutWithoutConnectionIsAnError()
{
    AdapterFixture f(kAddress);
    f.adapter.setDataScanConf(5, 0x20);
    QTRY_VERIFY(f.errorCount(ErrNotConnected) >= 2);
    QVERIFY(f.letters.isEmpty());
}

void tst_HydCommandAdapterScan::withoutKeepConnectionTheTimerStaysStopped()
{
    AdapterFixture f(kAddress);
    f.adapter.setKeepConnection(false);
    QVERIFY(f.open());
    QVERIFY(f.deliver(timeReply(1)));
    QCOMPARE(f.letters, QByteArray("A"));
    QVERIFY(!f.scanTimer->isActive());
}

void tst_HydCommandAdapterScan::withoutKeepConnectionCollectedDataCloseToo_data()
{
    QTest::addColumn<int>("mask");
    QTest::newRow("all of the data") << 0x20;
    QTest::newRow("more to come") << 0xA0;
}

void tst_HydCommandAdapterScan::withoutKeepConnectionCollectedDataCloseToo()
{
    QFETCH(int, mask);
    AdapterFixture f(kAddress);
    f.adapter.setKeepConnection(false);
    QVERIFY(f.open());
    f.adapter.setDataScanConf(kLongWait, 0x20);
    f.scanTimer->start(5000);
    const auto reply = collectReply(static_cast<uint8_t>(mask));
    QVERIFY(f.deliver(reply));
    QCOMPARE(f.closed.count(), 0);
    QVERIFY(f.deliver(reply));
    QCOMPARE(f.letters, QByteArray("C"));
    QTRY_COMPARE(f.closed.count(), 1);
    // The message itself starts the timer, but for one that asks at once; the request still leaves.
    const bool isMore = (mask & 0x80) != 0;
    QCOMPARE(f.scanTimer->isActive(), !isMore);
    QCOMPARE(f.scanTimer->interval(), isMore ? 5000 : kLongWait);
    QTRY_VERIFY(!f.peer.isConnected());
    QCOMPARE(f.peer.letters(), isMore ? QByteArray("C") : QByteArray());
}

void tst_HydCommandAdapterScan::stateIsReadableFromOtherThreads()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    std::atomic<bool> stop{false};
    std::atomic<bool> sawCollecting{false};
    std::atomic<bool> sawOpen{false};
    std::thread reader([&] {
        while (!stop) {
            sawCollecting = f.adapter.isCollectingData();
            sawOpen = f.adapter.isChannelOpen();
        }
    });
    bool sawAll = true;
    const auto expect = [&](const std::atomic<bool>& seen, bool value) {
        sawAll = sawAll && QTest::qWaitFor([&] { return seen == value; }, kPatienceMs);
    };
    for (int i = 0; i < 20; ++i) {
        f.adapter.setDataScanConf(0, 0x20);
        expect(sawCollecting, false);
        f.adapter.setDataScanConf(kLongWait, 0x20);
        expect(sawCollecting, true);
    }
    expect(sawOpen, true);
    f.adapter.closeConnection();
    expect(sawOpen, false);
    stop = true;
    reader.join();
    QVERIFY(sawAll);
}

QTEST_GUILESS_MAIN(tst_HydCommandAdapterScan)
#include "tst_HydCommandAdapterScan.moc"
