// The whole road of a recording: simulated recorders, their files, the files' replay into files of minutes,
// the merge of these, and its replay. Each sample tells its number, so that none is lost or moved.
#include "Relogger.h"
#include "RoadRig.h"

#include "NvxQtCommon/merge/NvxWavMerger.h"
#include "tests/recording/WavJudge.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>

namespace {

constexpr uint32_t kRate = 500;
constexpr uint32_t kTickFrames = kRate; ///< one tick a second at such a rate
constexpr uint32_t kMinute = 60;
/// Recorders begin as far apart as this machine is slow. Even if that is all the time that a test has, they
/// have a whole minute in common.
constexpr uint32_t kLongRecording = 240;

/// What one recorder recorded, and what came of it when it was replayed into files of a minute.
struct Recorder
{
    uint16_t serial = 0;
    uint32_t start = 0;       ///< seconds since the epoch, of the first sample
    uint64_t startSample = 0; ///< its number
    qint64 frames = 0;        ///< replayed
    QStringList minutes;      ///< files

    /// Number of the first sample of a second.
    uint64_t sampleAt(uint32_t time) const { return startSample + uint64_t{time - start} * kRate; }
    /// Whole minutes that were replayed from `time` on.
    uint32_t minutesFrom(uint32_t time) const
    {
        const uint32_t end = start + static_cast<uint32_t>(frames / kRate);
        return end > time ? (end - time) / kMinute : 0;
    }
};

uint32_t nextMinute(uint32_t time)
{
    return (time + kMinute - 1) / kMinute * kMinute;
}

QStringList mergedFiles(const QString& folder)
{
    const QDir directory(folder);
    QStringList paths;
    for (const QString& name : directory.entryList({QStringLiteral("MERGED_*.wav")}, QDir::Files, QDir::Name))
        paths << directory.filePath(name);
    return paths;
}

} // namespace

class tst_merge_road : public NvxTestCase
{
    Q_OBJECT

    FftParamsGuard m_fftParams;

    /// Records `seconds`, cuts `cut` frames off the end of the file, and replays it into `folder`.
    static void relog(const RecorderSettings& settings, int cut, const QString& folder, Recorder& result);
    /// Merges so many files of minutes of all, from `start` on, into the folder.
    static QStringList merge(const std::vector<Recorder>& recorders, uint32_t start, uint32_t minutes,
                             const QString& folder);

private Q_SLOTS:
    void cleanup() { m_fftParams.restore(); }

    // --- happy flows
    void everySampleGetsToTheEnd_data();
    void everySampleGetsToTheEnd();
    void arrayGetsThereByItsFirstChannel();
};

void tst_merge_road::relog(const RecorderSettings& settings, int cut, const QString& folder, Recorder& result)
{
    RoadRig rig(settings);
    QVERIFY(rig.record());
    QCOMPARE(rig.files.size(), 1);
    const JudgedWav live = judgeWav(rig.files.front());
    QCOMPARE(live.isBigEndian, settings.byteOrder == OrderBigEndian);
    QCOMPARE(live.frames, qint64{settings.streamSeconds} * kRate);
    const auto info = infoOf(rig.files.front());
    QVERIFY(info);
    result.serial = info->serialNo(1);
    result.start = info->timestamp();
    result.startSample = info->startSample();

    QFile file(rig.files.front());
    QVERIFY(file.resize(file.size() - qint64{cut} * settings.channels * (settings.bitDepth / 8)));
    Relogger relogger(folder, kMinute);
    QVERIFY(relogger.play(rig.files.front()));
    relogger.stop();
    QCOMPARE(relogger.files.size(), size_t{settings.channels});
    // What is left behind the last whole tick isn't played.
    result.frames = (live.frames - cut) / kTickFrames * kTickFrames;
    for (const auto& [id, files] : relogger.files) {
        qint64 frames = 0;
        for (const QString& path : files) {
            const auto minute = infoOf(path);
            QVERIFY(minute);
            QCOMPARE(minute->timestamp(), static_cast<uint32_t>(result.start + frames / kRate));
            QVERIFY(frames == 0 || minute->timestamp() % kMinute == 0);
            QCOMPARE(minute->startSample(), result.startSample + static_cast<uint64_t>(frames));
            const JudgedWav wav = judgeWav(path);
            QVERIFY(!wav.isBigEndian);
            QCOMPARE(wav.bits, int(settings.bitDepth));
            frames += wav.frames;
        }
        QCOMPARE(frames, result.frames);
        result.minutes << files;
    }
}

QStringList tst_merge_road::merge(const std::vector<Recorder>& recorders, uint32_t start, uint32_t minutes,
                                  const QString& folder)
{
    NvxWavMerger merger;
    for (size_t i = 0; i < recorders.size(); ++i) {
        merger.setChannelDevice(static_cast<uint8_t>(i + 1), recorders[i].serial);
        for (const QString& path : recorders[i].minutes)
            merger.addFile(path);
    }
    merger.setFileLength(1);
    merger.setStartTime(QDateTime::fromSecsSinceEpoch(start, Qt::UTC));
    merger.setEndTime(merger.startTime().addSecs(qint64{minutes - 1} * kMinute));
    merger.setOutputDir(folder);
    QSignalSpy complete(&merger, &NvxWavMerger::mergeComplete);
    merger.startMerge();
    return complete.size() == 1 ? mergedFiles(folder) : QStringList();
}

void tst_merge_road::everySampleGetsToTheEnd_data()
{
    QTest::addColumn<unsigned>("bits");
    QTest::addColumn<bool>("firstIsBigEndian");
    // Files that follow on each other play slowly, so one row of them is enough.
    QTest::addColumn<bool>("isAdjacent");
    QTest::newRow("16 bit, the first recorder big-endian") << 16U << true << false;
    QTest::newRow("24 bit, the second recorder big-endian") << 24U << false << true;
    QTest::newRow("32 bit, the first recorder big-endian") << 32U << true << false;
}

void tst_merge_road::everySampleGetsToTheEnd()
{
    QFETCH(unsigned, bits);
    QFETCH(bool, firstIsBigEndian);
    QFETCH(bool, isAdjacent);
    QTemporaryDir folder;
    std::vector<Recorder> recorders(2);
    for (size_t i = 0; i < recorders.size(); ++i) {
        RecorderSettings settings = RoadRig::settingsAt(i == 0 ? "127.94.10.1" : "127.94.10.2");
        settings.identity.serial = static_cast<uint16_t>(4321 + i);
        settings.bitDepth = bits;
        settings.byteOrder = firstIsBigEndian == (i == 0) ? OrderBigEndian : OrderLittleEndian;
        settings.sampleRate = kRate;
        settings.firstSequence = static_cast<int64_t>(1000000 * (i + 1));
        // They begin inside of a minute.
        settings.streamSeconds = kLongRecording;
        relog(settings, 123, folder.path(), recorders[i]);
        if (QTest::currentTestFailed())
            return;
        QCOMPARE(recorders[i].serial, settings.identity.serial);
        QCOMPARE(recorders[i].frames, qint64{(kLongRecording - 1) * kRate});
    }

    const uint32_t start = nextMinute(std::max(recorders[0].start, recorders[1].start));
    const uint32_t minutes = std::min({2U, recorders[0].minutesFrom(start), recorders[1].minutesFrom(start)});
    QVERIFY(minutes > 0);
    const QStringList merged = merge(recorders, start, minutes, folder.path());
    QCOMPARE(merged.size(), qsizetype{minutes});
    Relogger relogger(folder.filePath(QStringLiteral(".")));
    for (qsizetype i = 0; i < merged.size(); ++i) {
        const JudgedWav wav = judgeWav(merged[i]);
        QCOMPARE(wholeFileObjection(merged[i]), QString());
        QCOMPARE(wav.channels, 2);
        QCOMPARE(wav.bits, int(bits));
        QCOMPARE(wav.frames, qint64{kMinute * kRate});
        const auto info = infoOf(merged[i]);
        QVERIFY(info);
        QCOMPARE(info->timestamp(), static_cast<uint32_t>(start + kMinute * i));
        for (unsigned channel = 0; channel < 2; ++channel)
            QCOMPARE(info->serialNo(static_cast<unsigned char>(channel + 1)), recorders[channel].serial);
        QVERIFY(relogger.play(merged[i], isAdjacent && i > 0));
    }
    relogger.stop();

    QCOMPARE(relogger.files.size(), recorders.size());
    for (const auto& [id, files] : relogger.files) {
        const Recorder& recorder = recorders.at(id.serialNo() - recorders[0].serial);
        QCOMPARE(id.serialNo(), recorder.serial);
        uint64_t number = recorder.sampleAt(start);
        for (const QString& path : files) {
            for (const int32_t sample : judgeWav(path).samples)
                QCOMPARE(sample, SignalSource::rampValue(number++, 0, bits));
        }
        // Minutes are whole ticks: nothing is left.
        QCOMPARE(number, recorder.sampleAt(start + minutes * kMinute));
    }
}

void tst_merge_road::arrayGetsThereByItsFirstChannel()
{
    RecorderSettings settings = RoadRig::settingsAt("127.94.10.3");
    settings.channels = 3;
    settings.sampleRate = kRate;
    // Wherever it begins, a whole minute is in it.
    settings.streamSeconds = 2 * kMinute;
    QTemporaryDir folder;
    std::vector<Recorder> array(1);
    relog(settings, 0, folder.path(), array[0]);
    if (QTest::currentTestFailed())
        return;
    const uint32_t start = nextMinute(array[0].start);
    const QStringList merged = merge(array, start, 1, folder.path());
    // The files of all channels bear the first one's serial number, so they are three of one recorder, of
    // which the first is taken.
    QCOMPARE(merged.size(), 1);
    const JudgedWav wav = judgeWav(merged.front());
    QCOMPARE(wav.channels, 1);
    QCOMPARE(wav.frames, qint64{kMinute * kRate});
    uint64_t number = array[0].sampleAt(start);
    for (const int32_t sample : wav.samples)
        QCOMPARE(sample, SignalSource::rampValue(number++, 0, 16));
}

QTEST_GUILESS_MAIN(tst_merge_road)
#include "tst_merge_road.moc"
