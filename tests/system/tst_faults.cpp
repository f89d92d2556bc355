#include "RoadRig.h"

#include "tests/recording/WavJudge.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include <QDateTime>
#include <QFileInfo>
#include <QSignalSpy>

// What goes wrong on a stream: each fault has its signal or log line, nothing received is lost, the next good
// message works, and the monitor accounts for what is missing.

namespace {

constexpr int64_t kBlock = 320;
constexpr qsizetype kBlockFrame = 8 + 6 + 16 + 6 + 8 + 2 * kBlock + 4;

QDateTime timeInName(const QString& path)
{
    return QDateTime::fromString(QFileInfo(path).completeBaseName().right(15),
                                 QStringLiteral("yyyyMMdd_HHmmss"));
}

} // namespace

class tst_faults : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<RoadRig> m_rig;
    std::unique_ptr<QSignalSpy> m_headerErrors;
    std::unique_ptr<QSignalSpy> m_gaps;
    std::unique_ptr<LogSpy> m_log;
    int64_t m_firstSample = -1;

    /// A recording is about to start whose recorder has this fault on its wave stream.
    bool prepare(const QByteArray& rule, RecorderSettings settings = RoadRig::settingsAt("127.96.0.1"),
                 int alivePeriodMs = 60000)
    {
        m_rig = std::make_unique<RoadRig>(settings);
        if (!m_rig->prepare())
            return false;
        m_rig->recorder.setFaults(RoadRig::planOf(rule + ",on=wave"));
        m_rig->makeStream(3600, alivePeriodMs);
        m_headerErrors = std::make_unique<QSignalSpy>(m_rig->stream.get(), &HydStreamAdapter::headerError);
        m_gaps = std::make_unique<QSignalSpy>(&m_rig->monitor, &NvxStreamMonitor::gapFound);
        m_firstSample = -1;
        connect(m_rig->stream.get(), &HydStreamAdapter::eventHeader, this,
                [this](const std::shared_ptr<HydStreamEventHeaderPayload>& header) {
                    if (m_firstSample < 0)
                        m_firstSample = header->eventKey()->sequence();
                });
        m_log = std::make_unique<LogSpy>();
        return true;
    }
    /// The same, and the four seconds of the stream are over.
    bool record(const QByteArray& rule, RecorderSettings settings = RoadRig::settingsAt("127.96.0.1"))
    {
        if (!prepare(rule, settings) || !m_rig->startStream() || !m_rig->waitForSamples(32000))
            return false;
        m_rig->stopRecording();
        return true;
    }
    NvxStreamStats stats() const { return m_rig->monitor.total(); }
    bool logHas(const QString& text) const { return !m_log->lines().filter(text).isEmpty(); }

private Q_SLOTS:
    void cleanup()
    {
        m_log.reset();
        m_gaps.reset();
        m_headerErrors.reset();
        m_rig.reset();
    }

    // --- happy flows
    void harmlessFaultsLoseNothing_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::newRow("split within the head") << QByteArray("split:value=3,after=10,times=3");
        QTest::newRow("split within the samples") << QByteArray("split:value=100,after=10,times=3");
        QTest::newRow("split anywhere that leaves no short rest")
            << QByteArray("split:value=600,after=10,times=3");
        QTest::newRow("two messages in one write") << QByteArray("merge:after=10,times=20");
        QTest::newRow("late") << QByteArray("slow:value=300,after=10,times=1");
        QTest::newRow("information 2") << QByteArray("notify:value=2,after=10,times=1");
        QTest::newRow("information 4") << QByteArray("notify:value=4,after=10,times=1");
    }
    void harmlessFaultsLoseNothing()
    {
        QFETCH(QByteArray, rule);
        QVERIFY(record(rule));
        QVERIFY(m_rig->recorder.counters().faults > 0);
        QCOMPARE(stats().samplesReceived, uint64_t{32000});
        QCOMPARE(stats().samplesMissing, uint64_t{0});
        QCOMPARE(stats().samplesRepeated, uint64_t{0});
        QCOMPARE(m_headerErrors->size(), 0);
        QCOMPARE(m_rig->stream->skippedBytes(), uint64_t{0});
        QCOMPARE(m_rig->files.size(), 1);
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void informationIsPassedOn()
    {
        QVERIFY(prepare("notify:value=4,after=10,times=1"));
        QSignalSpy notes(m_rig->stream.get(), &HydStreamAdapter::streamNotify);
        QSignalSpy stopped(m_rig->stream.get(), &HydStreamAdapter::streamStopped);
        QVERIFY(m_rig->startStream());
        QVERIFY(m_rig->waitForSamples(32000));
        QCOMPARE(notes.size(), 1);
        const auto note = notes.first().first().value<std::shared_ptr<HydStreamNotifyPayload>>();
        QCOMPARE(int(note->errorCode()), 4);
        QCOMPARE(note->text(), std::string("Simulated notification"));
        QCOMPARE(stopped.size(), 0);
        QVERIFY(m_rig->stream->isStreaming());
    }

    // --- rainy day flows
    void lostBlocksAreAGap_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::addColumn<int>("blocks");
        QTest::addColumn<bool>("skips");
        QTest::newRow("not sent") << QByteArray("loss:after=10,times=2") << 2 << false;
        QTest::newRow("bad checksum") << QByteArray("bad-checksum:after=10,times=1") << 1 << true;
        QTest::newRow("more samples than it holds") << QByteArray("oversize:after=9,times=1") << 1 << true;
        QTest::newRow("longer than any frame") << QByteArray("oversize:value=1,after=9,times=1") << 1 << true;
    }
    void lostBlocksAreAGap()
    {
        QFETCH(QByteArray, rule);
        QFETCH(int, blocks);
        QFETCH(bool, skips);
        QVERIFY(record(rule));
        QCOMPARE(m_gaps->size(), 1);
        QCOMPARE(m_gaps->first().at(1).toLongLong(), m_firstSample + 9 * kBlock);
        QCOMPARE(m_gaps->first().at(2).toLongLong(), blocks * kBlock);
        QCOMPARE(stats().samplesMissing, uint64_t(blocks * kBlock));
        QCOMPARE(stats().samplesReceived, uint64_t(32000 - blocks * kBlock));
        // Data loss within a second doesn't show in the headers.
        QCOMPARE(m_headerErrors->size(), 0);
        QCOMPARE(m_rig->stream->skippedBytes() > 0, skips);
        QCOMPARE(logHas(QStringLiteral("bytes that belong to no stream message")), skips);
        // The file ends with the second in which something was lost, and the next one bears its true time.
        QCOMPARE(m_rig->files.size(), 2);
        QCOMPARE(timeInName(m_rig->files[0]).secsTo(timeInName(m_rig->files[1])), qint64{1});
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void junkIsSkippedAndCounted()
    {
        QVERIFY(record("junk:value=1000,after=10,times=3"));
        QCOMPARE(stats().samplesReceived, uint64_t{32000});
        QCOMPARE(stats().samplesMissing, uint64_t{0});
        QCOMPARE(m_rig->stream->skippedBytes(), uint64_t{3000});
        QVERIFY(logHas(QStringLiteral("bytes that belong to no stream message")));
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void shortRestOfAFrameIsDropped()
    {
        // The last four bytes come by themselves, don't begin with "0*", and are dropped: intended.
        RecorderSettings settings = RoadRig::settingsAt("127.96.0.2");
        settings.unpaced = false;
        const QByteArray split = "split:times=1,after=10,value=" + QByteArray::number(kBlockFrame - 4);
        QVERIFY(prepare(split, settings));
        // The block behind them stays behind, however late the recorder is.
        FaultPlan plan = RoadRig::planOf(split + ",on=wave");
        plan.add(FaultRule::fromText(QStringLiteral("slow:times=1,after=11,value=300,on=wave")).value());
        m_rig->recorder.setFaults(plan);
        QVERIFY(m_rig->startStream());
        QVERIFY(m_rig->waitForSamples(8000));
        m_rig->stopRecording();
        QCOMPARE(m_rig->stream->droppedReads(), uint64_t{1});
        QVERIFY(logHas(QStringLiteral("Dropped a short stream read of 4 bytes")));
        QCOMPARE(m_gaps->size(), 1);
        QCOMPARE(m_gaps->first().at(1).toLongLong(), m_firstSample + 9 * kBlock);
        QCOMPARE(stats().samplesMissing, uint64_t(kBlock));
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void doubledBlockIsReported()
    {
        QVERIFY(prepare("duplicate:after=10,times=1"));
        QSignalSpy doubles(&m_rig->monitor, &NvxStreamMonitor::duplicateFound);
        QVERIFY(m_rig->startStream());
        QVERIFY(m_rig->waitForSamples(32000));
        m_rig->stopRecording();
        QCOMPARE(doubles.size(), 1);
        QCOMPARE(doubles.first().at(1).toLongLong(), m_firstSample + 9 * kBlock);
        QCOMPARE(doubles.first().at(2).toLongLong(), qlonglong{kBlock});
        QCOMPARE(stats().samplesReceived, uint64_t{32000});
        QCOMPARE(stats().samplesRepeated, uint64_t(kBlock));
        QCOMPARE(stats().samplesMissing, uint64_t{0});
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void forwardJumpIsReportedTwice()
    {
        QVERIFY(record("sequence-gap:value=1000,times=1"));
        // Once in each of the two checks: intended.
        QCOMPARE(m_headerErrors->size(), 2);
        for (const auto& report : *m_headerErrors) {
            QCOMPARE(report.at(0).toString(), QStringLiteral("Sequence delta is not equal the sample rate!"));
            QCOMPARE(report.at(2).toUInt(), 8000U);
            QCOMPARE(report.at(3).toUInt(), 9000U);
        }
        QCOMPARE(m_gaps->size(), 1);
        QCOMPARE(m_gaps->first().at(1).toLongLong(), m_firstSample + 8000);
        QCOMPARE(m_gaps->first().at(2).toLongLong(), 1000LL);
        QCOMPARE(stats().samplesMissing, uint64_t{1000});
        QCOMPARE(m_rig->files.size(), 2);
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void backwardJumpIsReportedOnce()
    {
        QVERIFY(prepare("sequence-back:value=50000,times=1"));
        QSignalSpy jumps(&m_rig->monitor, &NvxStreamMonitor::backwardJumpFound);
        QVERIFY(m_rig->startStream());
        QTRY_COMPARE(stats().blocks, uint64_t{100});
        m_rig->stopRecording();
        QCOMPARE(m_headerErrors->size(), 1);
        QCOMPARE(m_headerErrors->first().at(3).toUInt(), uint(8000 - 50000));
        QCOMPARE(jumps.size(), 1);
        QCOMPARE(jumps.first().at(1).toLongLong(), m_firstSample + 8000);
        QCOMPARE(jumps.first().at(2).toLongLong(), m_firstSample + 8000 - 50000);
        QCOMPARE(stats().samplesMissing, uint64_t{0});
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void newEventWithinASecondLosesNothing()
    {
        QVERIFY(prepare("new-event:after=30,times=1"));
        QVERIFY(m_rig->startStream());
        QVERIFY(m_rig->waitForSamples(25600));
        m_rig->stopRecording();
        // The header came ahead of its time: 1600 samples behind the one before.
        QCOMPARE(m_headerErrors->size(), 1);
        QCOMPARE(m_headerErrors->first().at(3).toUInt(), 1600U);
        QCOMPARE(stats().samplesMissing, uint64_t{0});
        QCOMPARE(m_rig->files.size(), 1);
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void changedRateOpensAFile()
    {
        QVERIFY(prepare("rate-change:value=16000,times=1"));
        QVERIFY(m_rig->startStream());
        QVERIFY(m_rig->waitForSamples(8000 + 3 * 16000));
        m_rig->stopRecording();
        QCOMPARE(stats().nominalRate, 16000U);
        QCOMPARE(stats().samplesMissing, uint64_t{0});
        // The adapter's copy of the job setup still has the old rate.
        QVERIFY(!m_headerErrors->isEmpty());
        QCOMPARE(m_rig->fileRates(), (QList<int>{8000, 16000}));
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void risingRolloverByteEndsAFile_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::addColumn<int>("files");
        QTest::newRow("up") << QByteArray("rollover-up:times=1") << 2;
        QTest::newRow("down") << QByteArray("rollover-down:times=1") << 1;
        QTest::newRow("always up") << QByteArray("rollover-up:times=3") << 4;
    }
    void risingRolloverByteEndsAFile()
    {
        QFETCH(QByteArray, rule);
        QFETCH(int, files);
        RecorderSettings settings = RoadRig::settingsAt("127.96.0.3");
        settings.rollover = 5;
        QVERIFY(record(rule, settings));
        QCOMPARE(m_rig->files.size(), files);
        QCOMPARE(stats().samplesReceived, uint64_t{32000});
        QCOMPARE(stats().samplesMissing, uint64_t{0});
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void endingNotificationsCloseTheConnection_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<int>("stops");
        QTest::newRow("0 ends the stream") << 0 << 1;
        QTest::newRow("3 closes the connection") << 3 << 0;
        QTest::newRow("77 ends the stream") << 77 << 1;
    }
    void endingNotificationsCloseTheConnection()
    {
        QFETCH(int, code);
        QFETCH(int, stops);
        QVERIFY(prepare("notify:after=10,times=1,value=" + QByteArray::number(code)));
        QSignalSpy notes(m_rig->stream.get(), &HydStreamAdapter::streamNotify);
        QSignalSpy stopped(m_rig->stream.get(), &HydStreamAdapter::streamStopped);
        QSignalSpy ended(&m_rig->recorder, &SimulatedRecorder::streamStopped);
        QVERIFY(m_rig->startStream());
        QTRY_COMPARE(notes.size(), 1);
        QTRY_COMPARE(ended.size(), 1);
        QTRY_VERIFY(!m_rig->stream->isStreaming());
        QCOMPARE(stopped.size(), stops);
        QCOMPARE(m_rig->samplesReceived(), uint64_t(10 * kBlock));
        // The next start works.
        QVERIFY(m_rig->startStream());
        QTRY_VERIFY(m_rig->samplesReceived() >= 32000);
        m_rig->stopRecording();
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void silentStreamIsStartedAgain()
    {
        RecorderSettings settings = RoadRig::settingsAt("127.96.0.4");
        settings.unpaced = false;
        settings.streamSeconds = 0;
        QVERIFY(prepare("silence:after=10,times=1", settings, 50));
        // The adapter's clock stands still until the recorder is silent, and then passes the limit of 2 s.
        int64_t now = 1700000000;
        m_rig->stream->setClock([&now] { return now; });
        QSignalSpy started(m_rig->stream.get(), &HydStreamAdapter::streamStarted);
        QVERIFY(m_rig->startStream());
        QTRY_VERIFY(m_rig->recorder.counters().samplesWithheld > 0);
        QTRY_COMPARE(m_rig->samplesReceived(), uint64_t(9 * kBlock));
        QCOMPARE(started.size(), 1);
        now += 3;
        QTRY_VERIFY(m_rig->samplesReceived() > 9 * uint64_t(kBlock));
        QVERIFY(started.size() >= 2);
        QCOMPARE(started.last().first().toBool(), true);
        // The recorder was silent, not idle: what it took meanwhile is missing.
        QCOMPARE(m_gaps->size(), 1);
        QCOMPARE(m_gaps->first().at(1).toLongLong(), m_firstSample + 9 * kBlock);
        QCOMPARE(stats().samplesMissing, m_rig->recorder.counters().samplesWithheld);
        m_rig->stopRecording();
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void brokenConnectionIsMadeAgain_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::newRow("closed within a frame") << QByteArray("close:after=10,times=1,value=300");
        QTest::newRow("closed within a frame's head") << QByteArray("close:after=10,times=1,value=5");
        QTest::newRow("reset within a frame") << QByteArray("reset:after=10,times=1,value=300");
    }
    void brokenConnectionIsMadeAgain()
    {
        QFETCH(QByteArray, rule);
        QVERIFY(prepare(rule));
        QSignalSpy errors(m_rig->stream.get(), &HydStreamAdapter::socketError);
        QSignalSpy connections(m_rig->stream.get(), &HydStreamAdapter::streamConnected);
        QVERIFY(m_rig->startStream());
        QTRY_COMPARE(connections.size(), 2);
        // While streaming it comes twice for one error: intended.
        QCOMPARE(errors.size(), 2);
        QTRY_VERIFY(m_rig->samplesReceived() >= 32000 + 9 * kBlock);
        m_rig->stopRecording();
        QCOMPARE(stats().reconnects, uint64_t{1});
        QCOMPARE(stats().samplesReceived, uint64_t(32000 + 9 * kBlock));
        QCOMPARE(m_gaps->size(), 1);
        QCOMPARE(m_gaps->first().at(1).toLongLong(), m_firstSample + 9 * kBlock);
        QVERIFY(stats().samplesMissing >= uint64_t(kBlock));
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void refusedConnectionIsTriedAgain()
    {
        QVERIFY(prepare("refuse:times=2", RoadRig::settingsAt("127.96.0.5"), 100));
        QVERIFY(m_rig->startStream());
        QVERIFY(m_rig->waitForSamples(32000));
        m_rig->stopRecording();
        QCOMPARE(m_rig->recorder.counters().faults, uint64_t{2});
        QCOMPARE(stats().samplesReceived, uint64_t{32000});
        QCOMPARE(m_rig->fileObjection(), QString());
    }

    void allAtOnceLeavesWholeFilesAndAFullAccount()
    {
        constexpr uint64_t kStream = 80000;
        RecorderSettings settings = RoadRig::settingsAt("127.96.0.6");
        settings.streamSeconds = 10;
        QVERIFY(prepare("loss:times=1", settings));
        FaultPlan plan(20260101);
        // The first block passes: it tells where the numbering begins.
        for (const char* rule :
             {"loss:chance=0.03,after=2,on=wave", "junk:chance=0.05,on=wave",
              "bad-checksum:chance=0.03,after=2,on=wave", "merge:chance=0.1,on=wave",
              "oversize:chance=0.02,after=1,on=wave", "sequence-gap:chance=0.2,value=777,on=wave"})
            plan.add(FaultRule::fromText(QLatin1String(rule)).value());
        m_rig->recorder.setFaults(plan);
        const auto sent = [this] { return m_rig->recorder.counters().samplesSent; };
        const auto withheld = [this] { return m_rig->recorder.counters().samplesWithheld; };
        QVERIFY(m_rig->startStream());
        QTRY_COMPARE(sent() + withheld(), kStream);
        QTRY_COMPARE(m_rig->samplesReceived(), sent());
        QVERIFY(m_rig->recorder.counters().faults > 20);
        QVERIFY(withheld() > 0);

        // A stream without faults shows where the numbering has come to, and so the loss at the very end.
        m_rig->recorder.setFaults(FaultPlan());
        m_rig->stream->stopStream();
        int64_t next = -1;
        connect(m_rig->stream.get(), &HydStreamAdapter::eventHeader, this,
                [&next](const std::shared_ptr<HydStreamEventHeaderPayload>& header) {
                    if (next < 0)
                        next = header->eventKey()->sequence();
                });
        QVERIFY(m_rig->startStream());
        QTRY_COMPARE(sent() + withheld(), 2 * kStream);
        QTRY_COMPARE(m_rig->samplesReceived(), sent());
        m_rig->stopRecording();

        const auto jumped = uint64_t(next - m_firstSample) - kStream;
        QVERIFY(jumped > 0);
        QCOMPARE(stats().samplesMissing, withheld() + jumped);
        uint64_t written = 0;
        for (const QString& file : m_rig->files)
            written += uint64_t(judgeWav(file).frames);
        QCOMPARE(written + stats().samplesMissing, 2 * kStream + jumped);
        QCOMPARE(m_rig->fileObjection(), QString());
    }
};

QTEST_GUILESS_MAIN(tst_faults)
#include "tst_faults.moc"
