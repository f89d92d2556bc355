#include "ReplayParts.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"

#include <QPointer>
#include <QSignalSpy>

#include <memory>

/// The tick timer of a replay, and how its thread ends.
class tst_NvxDataThread : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void aFreshThread();
    void theTimeIsTakenOver_data();
    void theTimeIsTakenOver();
    void aRunningTimerTakesANewTimeAtOnce();
    void pausesAndResumes();
    void resumesWithAWholePeriod();
    void theStartSlotResumes();
    void runBeginsTheTicks();
    void exitThreadEndsBoth();

    // --- rainy day flows
    void theSameTimeLeavesARunningTimerAlone_data();
    void theSameTimeLeavesARunningTimerAlone();
    void aTimeBeyondTheTimer_data();
    void aTimeBeyondTheTimer();
    void pauseAndResumeTwice();
    void ticksBeforeTheThreadHasBegun();
    void aDeletedThreadThatNeverRan();
    void retiresWhileItRuns();
    void retiresBeforeItHasBegun();
    void retiresWithoutEverRunning();
    void retiresWhenItHasFinished();
};

void tst_NvxDataThread::aFreshThread()
{
    QObject parent;
    auto* thread = new CountingThread(&parent);
    QCOMPARE(thread->fileName(), QStringLiteral("a file.txt"));
    QCOMPARE(thread->timerTime(), 500);
    QCOMPARE(thread->parent(), &parent);
    QCOMPARE(thread->timer().parent(), thread);
    QCOMPARE(thread->timer().timerType(), Qt::PreciseTimer);
    QVERIFY(!thread->timer().isActive());
    QVERIFY(!thread->isRunning());
    QVERIFY(!thread->hasBegun());
}

void tst_NvxDataThread::theTimeIsTakenOver_data()
{
    QTest::addColumn<qint64>("ms");
    QTest::addColumn<qint64>("stored");
    QTest::addColumn<int>("interval");

    QTest::newRow("another") << qint64(20) << qint64(20) << 20;
    QTest::newRow("the one stored") << qint64(500) << qint64(500) << 0;
    // Taken for the interval that a fresh timer has: intended.
    QTest::newRow("the timer's own") << qint64(0) << qint64(500) << 0;
}

void tst_NvxDataThread::theTimeIsTakenOver()
{
    QFETCH(qint64, ms);
    CountingThread thread;
    thread.setTimerTime(ms);
    QTEST(thread.timerTime(), "stored");
    QTEST(thread.timer().interval(), "interval");
    QVERIFY(!thread.timer().isActive());
}

void tst_NvxDataThread::aRunningTimerTakesANewTimeAtOnce()
{
    CountingThread thread;
    thread.setTimerTime(100000);
    thread.resume();
    thread.setTimerTime(5);
    QTRY_VERIFY_WITH_TIMEOUT(thread.ticks > 2, 20000);
}

void tst_NvxDataThread::pausesAndResumes()
{
    CountingThread thread;
    thread.setTimerTime(5);
    thread.resume();
    QTRY_VERIFY_WITH_TIMEOUT(thread.ticks > 1, 20000);
    thread.pause();
    QVERIFY(!thread.timer().isActive());
    const int ticks = thread.ticks;
    QSignalSpy ticked(&thread, &CountingThread::ticked);
    QVERIFY(spyStaysEmpty(ticked, 50));
    thread.resume();
    QTRY_VERIFY_WITH_TIMEOUT(thread.ticks > ticks, 20000);
}

void tst_NvxDataThread::resumesWithAWholePeriod()
{
    CountingThread thread;
    thread.setTimerTime(100000);
    thread.resume();
    QVERIFY(hasRunDown(thread.timer()));
    const int remaining = thread.timer().remainingTime();
    thread.pause();
    thread.resume();
    QVERIFY(thread.timer().remainingTime() > remaining);
}

void tst_NvxDataThread::theStartSlotResumes()
{
    CountingThread thread;
    thread.slotStartTimer();
    QVERIFY(thread.timer().isActive());
    QCOMPARE(thread.timer().interval(), 500);
}

void tst_NvxDataThread::runBeginsTheTicks()
{
    const auto thread = std::make_unique<CountingThread>();
    int begun = 0;
    connect(thread.get(), &NvxDataThread::startMTimer, this, [&begun] { ++begun; });
    thread->setTimerTime(5);
    thread->start();
    QTRY_COMPARE_WITH_TIMEOUT(begun, 1, 20000);
    QVERIFY(thread->hasBegun());
    QTRY_VERIFY_WITH_TIMEOUT(thread->ticks > 1, 20000);
    QVERIFY(thread->isRunning());
    thread->exitThread();
    QVERIFY(thread->wait(10000));
}

void tst_NvxDataThread::exitThreadEndsBoth()
{
    const auto thread = std::make_unique<CountingThread>();
    thread->start();
    QTRY_VERIFY_WITH_TIMEOUT(thread->timer().isActive(), 20000);
    thread->exitThread();
    QVERIFY(!thread->timer().isActive());
    QVERIFY(thread->wait(10000));
}

void tst_NvxDataThread::theSameTimeLeavesARunningTimerAlone_data()
{
    QTest::addColumn<qint64>("ms");
    QTest::addColumn<bool>("isSet");

    QTest::newRow("the same") << qint64(100000) << false;
    QTest::newRow("another") << qint64(100001) << true;
}

void tst_NvxDataThread::theSameTimeLeavesARunningTimerAlone()
{
    QFETCH(qint64, ms);
    QFETCH(bool, isSet);
    CountingThread thread;
    thread.setTimerTime(100000);
    thread.resume();
    QVERIFY(hasRunDown(thread.timer()));
    // Setting the interval of a running timer starts it anew.
    const int remaining = thread.timer().remainingTime();
    thread.setTimerTime(ms);
    QCOMPARE(thread.timer().remainingTime() > remaining, isSet);
}

void tst_NvxDataThread::aTimeBeyondTheTimer_data()
{
    QTest::addColumn<qint64>("ms");
    QTest::addColumn<int>("interval");

    QTest::newRow("above 32 bits") << (qint64(1) << 32) + 40 << 40;
    QTest::newRow("the longest") << qint64(2147483647) << 2147483647;
    QTest::newRow("one more") << qint64(2147483648) << 2147483647;
    QTest::newRow("all low bits") << qint64(4294967295) << 2147483647;
    QTest::newRow("negative") << qint64(-7) << 2147483647;
}

void tst_NvxDataThread::aTimeBeyondTheTimer()
{
    QFETCH(qint64, ms);
    CountingThread thread;
    thread.setTimerTime(ms);
    QCOMPARE(thread.timerTime(), ms);
    QTEST(thread.timer().interval(), "interval");
    thread.resume();
    QVERIFY(thread.timer().isActive());
    QTEST(thread.timer().interval(), "interval");
}

void tst_NvxDataThread::pauseAndResumeTwice()
{
    CountingThread thread;
    thread.pause();
    QVERIFY(!thread.timer().isActive());
    thread.setTimerTime(100000);
    thread.resume();
    QVERIFY(hasRunDown(thread.timer()));
    const int remaining = thread.timer().remainingTime();
    thread.resume();
    QVERIFY(thread.timer().remainingTime() <= remaining);
    thread.pause();
    thread.pause();
    QVERIFY(!thread.timer().isActive());
}

void tst_NvxDataThread::ticksBeforeTheThreadHasBegun()
{
    QSemaphore gate;
    const auto thread = std::make_unique<CountingThread>(nullptr, &gate);
    thread->setTimerTime(1);
    thread->start();
    thread->resume();
    QTRY_VERIFY_WITH_TIMEOUT(thread->ticks > 0, 20000);
    QVERIFY(!thread->hasBegun());
    gate.release();
    QTRY_VERIFY_WITH_TIMEOUT(thread->hasBegun(), 20000);
    thread->exitThread();
    QVERIFY(thread->wait(10000));
}

void tst_NvxDataThread::aDeletedThreadThatNeverRan()
{
    QPointer<CountingThread> thread = new CountingThread;
    thread->resume();
    delete thread;
    QVERIFY(thread.isNull());
}

void tst_NvxDataThread::retiresWhileItRuns()
{
    QObject parent;
    QPointer<CountingThread> thread = new CountingThread(&parent);
    int ticks = 0;
    connect(thread, &CountingThread::ticked, &parent, [&ticks] { ++ticks; });
    thread->setTimerTime(1);
    thread->start();
    QTRY_VERIFY_WITH_TIMEOUT(ticks > 0, 20000);
    thread->retire();
    const int before = ticks;
    QCOMPARE(thread->parent(), nullptr);
    thread->resume();
    QTRY_VERIFY_WITH_TIMEOUT(thread.isNull(), 20000);
    QCOMPARE(ticks, before);
}

void tst_NvxDataThread::retiresBeforeItHasBegun()
{
    QObject parent;
    QSemaphore gate;
    QPointer<CountingThread> thread = new CountingThread(&parent, &gate);
    int ticks = 0;
    connect(thread, &CountingThread::ticked, &parent, [&ticks] { ++ticks; });
    thread->setTimerTime(1);
    thread->start();
    thread->retire();
    QVERIFY(!thread->isFinished());
    // The start of the timer comes on its way behind the retirement.
    gate.release();
    QTRY_VERIFY_WITH_TIMEOUT(thread.isNull(), 20000);
    QCOMPARE(ticks, 0);
}

void tst_NvxDataThread::retiresWithoutEverRunning()
{
    QPointer<CountingThread> thread = new CountingThread;
    thread->retire();
    QVERIFY(!thread.isNull());
    QTRY_VERIFY_WITH_TIMEOUT(thread.isNull(), 20000);
}

void tst_NvxDataThread::retiresWhenItHasFinished()
{
    QPointer<CountingThread> thread = new CountingThread;
    thread->start();
    thread->quit();
    QVERIFY(thread->wait(10000));
    thread->retire();
    QTRY_VERIFY_WITH_TIMEOUT(thread.isNull(), 20000);
}

QTEST_GUILESS_MAIN(tst_NvxDataThread)
#include "tst_NvxDataThread.moc"
