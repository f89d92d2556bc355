// How NvxStreamMonitor tells losses, repetitions and backward jumps apart.
#include "tests/streaming/StreamWatch.h"

using namespace streamframes;

class TestNvxStreamMonitorLoss : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void numberingMayBeginAnywhere()
    {
        Watch watch;
        watch.block(1000, 5000, 70, 30);
        watch.header(1001, 5100);
        watch.block(1001, 5100, 0, 100);
        QCOMPARE(watch.stats().samplesReceived, quint64{130});
        QCOMPARE(watch.stats().samplesMissing, quint64{0});
        QCOMPARE(watch.gaps.size(), 0);
    }

    void numbersBeyond32BitsAreExact()
    {
        Watch watch;
        const int64_t start = (int64_t{1} << 40) + 7;
        watch.header(1, start);
        watch.block(1, start, 0, 100);
        watch.header(2, start + 150);
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kDevice, start + 100, 50));
    }

    void rateChangeIsNoGap()
    {
        Watch watch;
        watch.header(1, 0, 100);
        watch.block(1, 0, 0, 100);
        watch.header(2, 100, 400);
        watch.block(2, 100, 0, 400);
        QCOMPARE(watch.stats().nominalRate, 400U);
        QCOMPARE(watch.stats().samplesReceived, quint64{500});
        QCOMPARE(watch.gaps.size(), 0);
        QCOMPARE(watch.jumps.size(), 0);
    }

    void clockThatIsSetBackIsNoRepetition()
    {
        Watch watch;
        watch.header(100, 5000);
        watch.block(100, 5000, 0, 100);
        watch.header(50, 5100);
        watch.block(50, 5100, 0, 100);
        watch.block(51, 5200, 0, 100);
        watch.block(40, 5300, 0, 100);
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty() && watch.jumps.isEmpty());
        QCOMPARE(watch.stats().samplesReceived, quint64{400});
    }

    // --- rainy day flows

    void lostBlock()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 30);
        watch.block(1, 0, 60, 40);
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kDevice, 30, 30));
        QCOMPARE(watch.stats().samplesMissing, quint64{30});
        QCOMPARE(watch.stats().samplesReceived, quint64{70});
        QCOMPARE(watch.stats().gaps, quint64{1});
    }

    void lostLastBlockShowsAtTheNextHeader()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 60);
        watch.header(2, 100);
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kDevice, 60, 40));
        watch.block(2, 100, 0, 100);
        QCOMPARE(watch.gaps.size(), 1);
    }

    void lostFirstBlockShowsAgainstTheHeader()
    {
        Watch watch;
        watch.header(1, 500);
        watch.block(1, 500, 10, 90);
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kDevice, 500, 10));
    }

    void lostHeaderIsNoGap()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 100);
        watch.block(2, 100, 0, 100);
        watch.header(3, 200);
        watch.block(3, 200, 0, 100);
        QCOMPARE(watch.gaps.size(), 0);
        QCOMPARE(watch.stats().samplesReceived, quint64{300});
    }

    void lostHeaderAndBlockIsOneGap()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 100);
        watch.block(2, 100, 50, 50);
        QCOMPARE(watch.gaps.size(), 1);
        QVERIFY(reports(watch.gaps[0], kDevice, 100, 50));
    }

    void everyLossOfASecondIsExact_data()
    {
        QTest::addColumn<int>("lost");
        for (int lost = 0; lost < 1024; lost += 37)
            QTest::addRow("frames %x", lost) << lost;
    }

    void everyLossOfASecondIsExact()
    {
        // Ten frames of two seconds, any of them lost, and a complete third second behind them.
        QFETCH(int, lost);
        Watch watch;
        watch.header(99, 900);
        watch.block(99, 900, 0, 100);
        uint64_t missing = 0;
        int bit = 0;
        for (uint32_t second = 0; second < 2; ++second) {
            const int64_t sequence = 1000 + second * 100;
            if ((lost >> bit++ & 1) == 0)
                watch.header(100 + second, sequence);
            for (uint32_t part = 0; part < 4; ++part) {
                if ((lost >> bit++ & 1) == 0)
                    watch.block(100 + second, sequence, part * 25, 25);
                else
                    missing += 25;
            }
        }
        watch.header(102, 1200);
        watch.block(102, 1200, 0, 100);
        QCOMPARE(watch.stats().samplesMissing, missing);
        QCOMPARE(watch.stats().samplesReceived, 400 - missing);
        uint64_t reported = 0;
        for (const auto& gap : watch.gaps)
            reported += gap[2].toULongLong();
        QCOMPARE(reported, missing);
        QVERIFY(watch.duplicates.isEmpty() && watch.jumps.isEmpty());
    }

    void repeatedBlock()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 60);
        watch.block(1, 0, 20, 40);
        watch.block(1, 0, 60, 40);
        QCOMPARE(watch.duplicates.size(), 1);
        QVERIFY(reports(watch.duplicates[0], kDevice, 20, 40));
        QCOMPARE(watch.stats().samplesReceived, quint64{100});
        QCOMPARE(watch.stats().samplesRepeated, quint64{40});
        QCOMPARE(watch.stats().blocks, quint64{3});
        QVERIFY(watch.gaps.isEmpty() && watch.jumps.isEmpty());
    }

    void overlappingBlockCountsOnlyItsNewSamples()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 60);
        watch.block(1, 0, 50, 50);
        QVERIFY(reports(watch.duplicates.at(0), kDevice, 50, 10));
        QCOMPARE(watch.stats().samplesReceived, quint64{100});
        watch.header(2, 100);
        QVERIFY(watch.gaps.isEmpty());
    }

    void repeatedHeaderSaysNothing()
    {
        Watch watch;
        watch.header(1, 0);
        watch.block(1, 0, 0, 60);
        watch.header(1, 0);
        watch.block(1, 0, 60, 40);
        watch.header(2, 100);
        watch.header(1, 0);
        watch.block(2, 100, 0, 100);
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty() && watch.jumps.isEmpty());
        QCOMPARE(watch.stats().samplesReceived, quint64{200});
        QCOMPARE(watch.stats().headers, quint64{4});
    }

    void lateBlockOfAnEarlierEventIsRepeated()
    {
        Watch watch;
        for (uint32_t second = 0; second < 3; ++second) {
            watch.header(10 + second, second * 100);
            watch.block(10 + second, second * 100, 0, 100);
        }
        watch.block(11, 100, 50, 50);
        watch.block(10, 0, 0, 100);
        watch.block(12, 200, 100, 20);
        QCOMPARE(watch.duplicates.size(), 2);
        QVERIFY(reports(watch.duplicates[0], kDevice, 150, 50));
        QVERIFY(reports(watch.duplicates[1], kDevice, 0, 100));
        QCOMPARE(watch.stats().samplesReceived, quint64{320});
        QVERIFY(watch.gaps.isEmpty() && watch.jumps.isEmpty());
    }

    void numberingThatRestartsIsABackwardJump()
    {
        Watch watch;
        watch.header(1, 5000);
        watch.block(1, 5000, 0, 100);
        watch.header(2, 0);
        watch.block(2, 0, 0, 100);
        watch.header(3, 100);
        QCOMPARE(watch.jumps.size(), 1);
        QVERIFY(reports(watch.jumps[0], kDevice, 5100, 0));
        QCOMPARE(watch.stats().backwardJumps, quint64{1});
        QCOMPARE(watch.stats().samplesReceived, quint64{200});
        QCOMPARE(watch.stats().samplesMissing, quint64{0});
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty());
    }

    void restartWithoutItsHeaderIsABackwardJump()
    {
        Watch watch;
        watch.header(1, 5000);
        watch.block(1, 5000, 0, 100);
        watch.block(2, 0, 10, 90);
        watch.block(2, 0, 100, 10);
        QVERIFY(reports(watch.jumps.at(0), kDevice, 5100, 10));
        QCOMPARE(watch.stats().samplesReceived, quint64{200});
        QVERIFY(watch.gaps.isEmpty() && watch.duplicates.isEmpty());
    }

    void restartWithinASecondIsABackwardJump()
    {
        Watch watch;
        watch.header(1, 5000);
        watch.block(1, 5000, 0, 100);
        watch.header(1, 0);
        watch.block(1, 0, 0, 100);
        QVERIFY(reports(watch.jumps.at(0), kDevice, 5100, 0));
        QCOMPARE(watch.stats().samplesReceived, quint64{200});
    }
};

QTEST_GUILESS_MAIN(TestNvxStreamMonitorLoss)
#include "tst_NvxStreamMonitorLoss.moc"
