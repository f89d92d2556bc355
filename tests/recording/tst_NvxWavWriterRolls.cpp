#include "WavFeeder.h"
#include "WavJudge.h"

#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <memory>

namespace {

constexpr uint32_t kSpan = 600;
constexpr uint32_t kTime = 1709210400; // 2024-02-29 12:40:00 UTC, a whole multiple of 600

struct FileStory
{
    uint32_t timestamp = 0;
    uint64_t startSample = 0;
    qint64 frames = -1;
    QString name;
    QString title;
    QString recordName; ///< in the information record
};

FileStory storyOf(const QString& path)
{
    FileStory story;
    const RiffView view = viewRiff(path);
    const QByteArray record = view.info.value("INVX");
    const std::span bytes(reinterpret_cast<const uint8_t*>(record.constData()), size_t(record.size()));
    std::shared_ptr<NvxWavInfoData> info = NvxWavInfoDataHF::fromBytes(bytes);
    if (!info)
        info = NvxWavInfoDataTMI::fromBytes(bytes);
    if (info) {
        story.timestamp = info->timestamp();
        story.startSample = info->startSample();
        story.recordName = QString::fromStdString(info->fileName());
    }
    const JudgedWav wav = judgeWav(path);
    story.frames = wav.error.isEmpty() ? wav.frames : -1;
    story.title = wav.title;
    story.name = QFileInfo(path).fileName();
    return story;
}

} // namespace

class tst_NvxWavWriterRolls : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        // One below the temporary one, so that nothing stays even of a writer that misses its directory.
        m_folder = QDir(m_dir->filePath(QStringLiteral("waves")));
        QVERIFY(m_folder.mkpath(QStringLiteral(".")));
        m_writer = std::make_unique<NvxWavWriter>(kSpan, m_folder.path().toStdWString());
        m_feeder = std::make_unique<WavFeeder>(*m_writer);
    }
    void cleanup()
    {
        m_writer.reset();
        m_dir.reset();
    }

    // --- happy flows
    void rollsAtWholeMultiples_data()
    {
        QTest::addColumn<quint32>("first");
        QTest::addColumn<quint32>("second");
        QTest::addColumn<int>("files");
        QTest::newRow("last second of the span") << kTime << kTime + 599 << 1;
        QTest::newRow("next span") << kTime << kTime + 600 << 2;
        QTest::newRow("first file begins in mid-span, ends with it") << kTime + 400 << kTime + 599 << 1;
        QTest::newRow("first file begins in mid-span") << kTime + 400 << kTime + 600 << 2;
        QTest::newRow("one second apart") << kTime + 599 << kTime + 600 << 2;
        QTest::newRow("many spans later") << kTime << kTime + 86400 << 2;
        QTest::newRow("back into the span before") << kTime << kTime - 1 << 2;
        // Times beyond 2038 have the top bit of 32.
        QTest::newRow("in 2096, same span") << 4000000200U << 4000000799U << 1;
        QTest::newRow("in 2096, next span") << 4000000200U << 4000000800U << 2;
        QTest::newRow("over the end of 31 bits, same span") << 2147483400U << 2147483999U << 1;
        QTest::newRow("over the end of 31 bits, next span") << 2147483400U << 2147484000U << 2;
    }
    void rollsAtWholeMultiples()
    {
        QFETCH(quint32, first);
        QFETCH(quint32, second);
        QFETCH(int, files);
        QVERIFY(m_feeder->second(first, 0));
        QVERIFY(m_feeder->block(second, 0, 100));
        QCOMPARE(m_feeder->newFiles.size(), files);
        QCOMPARE(m_feeder->dispatches, files);
        m_writer->finishFile();
        qint64 frames = 0;
        for (const QString& file : m_feeder->newFiles) {
            QCOMPARE(wholeFileObjection(file), QString());
            frames += judgeWav(file).frames;
        }
        QCOMPARE(frames, 1100);
        QCOMPARE(storyOf(m_feeder->newFiles.first()).timestamp, first);
        if (files == 2 && second > first)
            QCOMPARE(storyOf(m_feeder->newFiles.last()).timestamp, second);
    }

    void anyKindOfEventRolls_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("info") << QStringLiteral("info");
        QTest::newRow("setup") << QStringLiteral("setup");
        QTest::newRow("data") << QStringLiteral("data");
    }
    void anyKindOfEventRolls()
    {
        QFETCH(QString, kind);
        QVERIFY(m_feeder->second(kTime, 7000));
        const uint32_t later = kTime + kSpan;
        if (kind == QLatin1String("info"))
            QVERIFY(m_feeder->info(later, 8000));
        else if (kind == QLatin1String("setup"))
            QVERIFY(m_feeder->setup(later, 8000));
        else
            QVERIFY(m_feeder->block(later, 8000, 100));
        QCOMPARE(m_feeder->dispatches, 2); // it stayed once
        // An info ends the file, and the setup behind it begins the next one.
        QCOMPARE(m_writer->isNewFile(), kind != QLatin1String("info"));
        if (kind == QLatin1String("info")) {
            QVERIFY(m_feeder->setup(later, 8000));
            QCOMPARE(m_feeder->dispatches, 1);
            QVERIFY(m_writer->isNewFile());
        }
        QCOMPARE(m_feeder->newFileTimes, (QList<uint32_t>{kTime, later}));
        m_writer->finishFile();
        const FileStory story = storyOf(m_feeder->newFiles.last());
        QCOMPARE(story.timestamp, later);
        QCOMPARE(story.startSample, uint64_t{8000});
        QCOMPARE(story.name, QStringLiteral("ABC0042_20240229_125000.wav"));
        QCOMPARE(story.title, QStringLiteral("ABC0042_20240229_125000"));
    }

    void rollingLosesNothing()
    {
        m_writer->setMaxLength(3);
        for (uint32_t second = 0; second < 10; ++second)
            QVERIFY(m_feeder->second(kTime + second, 1000 * second));
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles.size(), 4);
        uint64_t next = 0;
        for (const QString& file : m_feeder->newFiles) {
            QCOMPARE(wholeFileObjection(file), QString());
            QCOMPARE(storyOf(file).startSample, next);
            QCOMPARE(storyOf(file).timestamp, kTime + uint32_t(next / 1000));
            for (int32_t sample : judgeWav(file).samples)
                QCOMPARE(sample, m_feeder->rampValue(next++, 0));
        }
        QCOMPARE(next, uint64_t{10000});
    }

    void noLengthNeverRolls()
    {
        m_writer->setMaxLength(0);
        QVERIFY(m_feeder->second(kTime, 0));
        QVERIFY(m_feeder->second(kTime + 100000, 1000));
        m_writer->setMaxLength(-5);
        QVERIFY(m_feeder->second(kTime + 200000, 2000));
        QCOMPARE(m_feeder->newFiles.size(), 1);
    }

    void continuousHeadersStayInTheFile()
    {
        for (uint32_t second = 0; second < 5; ++second)
            QVERIFY(m_feeder->second(kTime + second, 5000 + 1000 * second));
        QCOMPARE(m_feeder->newFiles.size(), 1);
        m_writer->finishFile();
        QCOMPARE(storyOf(m_feeder->newFiles.first()).frames, 5000);
    }

    void dataRollTakesTheKeptInfo()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        m_feeder->prefix = QStringLiteral("XYZ_");
        QVERIFY(m_feeder->second(kTime + 1, 1000));
        QVERIFY(m_feeder->block(kTime + kSpan, 1000, 10));
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles.size(), 2);
        const FileStory story = storyOf(m_feeder->newFiles.last());
        QCOMPARE(story.name, QStringLiteral("XYZ_20240229_125000.wav"));
        QCOMPARE(story.startSample, uint64_t{2000});
        QCOMPARE(story.frames, 10);
    }

    void rollsBeforeTheSizeLimit()
    {
        // Room for the header and 1000 samples, with 100 left over.
        QVERIFY(m_feeder->header(kTime, 0));
        const qint64 headerSize = viewRiff(m_feeder->newFiles.first()).headerSize();
        m_writer->setMaxFileBytes(static_cast<uint64_t>(headerSize) + 2200);
        for (int i = 0; i < 5; ++i)
            QVERIFY(m_feeder->block(kTime, 0, 500));
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles.size(), 3);
        const QList<qint64> frames{1000, 1000, 500};
        uint64_t next = 0;
        for (int i = 0; i < 3; ++i) {
            const FileStory story = storyOf(m_feeder->newFiles[i]);
            QCOMPARE(story.frames, frames[i]);
            QCOMPARE(story.startSample, next);
            // The event's time hasn't moved on, so the audio tells the time.
            QCOMPARE(story.timestamp, kTime + uint32_t(i));
            QVERIFY(QFileInfo(m_feeder->newFiles[i]).size() <= headerSize + 2200);
            for (int32_t sample : judgeWav(m_feeder->newFiles[i]).samples)
                QCOMPARE(sample, m_feeder->rampValue(next++, 0));
        }
        QCOMPARE(QFileInfo(m_feeder->newFiles[1]).fileName(), QStringLiteral("ABC0042_20240229_124001.wav"));
    }

    void sizeLimitWithATimeThatMovedOn()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        const qint64 headerSize = viewRiff(m_feeder->newFiles.first()).headerSize();
        m_writer->setMaxFileBytes(static_cast<uint64_t>(headerSize) + 2600);
        QVERIFY(m_feeder->second(kTime + 7, 1000));
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles.size(), 2);
        QCOMPARE(storyOf(m_feeder->newFiles.last()).timestamp, kTime + 7);
        QCOMPARE(storyOf(m_feeder->newFiles.last()).startSample, uint64_t{1200});
    }

    void sameTimeTwiceGetsNumbers()
    {
        QVERIFY(m_feeder->header(kTime, 0));
        m_writer->setMaxFileBytes(static_cast<uint64_t>(viewRiff(m_feeder->newFiles.first()).headerSize()) +
                                  300);
        for (int i = 0; i < 3; ++i)
            QVERIFY(m_feeder->block(kTime, 0, 100));
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles.size(), 3);
        QCOMPARE(QFileInfo(m_feeder->newFiles[1]).fileName(),
                 QStringLiteral("ABC0042_20240229_124000_2.wav"));
        QCOMPARE(QFileInfo(m_feeder->newFiles[2]).fileName(),
                 QStringLiteral("ABC0042_20240229_124000_3.wav"));
        QCOMPARE(QString::fromStdWString(m_writer->outputFileName()), m_feeder->newFiles[2]);
        // The files know their own names.
        for (const QString& file : m_feeder->newFiles) {
            const FileStory story = storyOf(file);
            QCOMPARE(story.title + QStringLiteral(".wav"), story.name);
            QCOMPARE(story.recordName, story.title);
        }
    }

    // --- rainy day flows
    void blockLargerThanTheLimitIsWrittenAllTheSame()
    {
        m_writer->setMaxFileBytes(10);
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 100));
        QVERIFY(m_feeder->block(kTime, 0, 100));
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        QCOMPARE(m_feeder->newFiles.size(), 2);
    }

    void headerClosesForARealReason_data()
    {
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("bits");
        QTest::addColumn<quint32>("rate");
        QTest::addColumn<int>("gain");
        QTest::addColumn<quint64>("start");
        QTest::addColumn<int>("files");
        QTest::newRow("nothing changed") << 1 << 16 << 1000U << 12 << quint64{1000} << 1;
        QTest::newRow("channels") << 2 << 16 << 1000U << 12 << quint64{1000} << 2;
        QTest::newRow("depth") << 1 << 24 << 1000U << 12 << quint64{1000} << 2;
        QTest::newRow("rate") << 1 << 16 << 2000U << 12 << quint64{1000} << 2;
        QTest::newRow("gain") << 1 << 16 << 1000U << 6 << quint64{1000} << 2;
        QTest::newRow("lost samples") << 1 << 16 << 1000U << 12 << quint64{1001} << 2;
        QTest::newRow("samples again") << 1 << 16 << 1000U << 12 << quint64{999} << 2;
        QTest::newRow("count started over") << 1 << 16 << 1000U << 12 << quint64{0} << 2;
        QTest::newRow("channels, depth and start at once") << 4 << 32 << 4000U << 0 << quint64{77} << 2;
    }
    void headerClosesForARealReason()
    {
        QFETCH(int, channels);
        QFETCH(int, bits);
        QFETCH(quint32, rate);
        QFETCH(int, gain);
        QFETCH(quint64, start);
        QFETCH(int, files);
        QVERIFY(m_feeder->second(kTime, 0));
        m_feeder->channels = static_cast<unsigned>(channels);
        m_feeder->bits = static_cast<unsigned char>(bits);
        m_feeder->rate = rate;
        m_feeder->gain = static_cast<short>(gain);
        m_feeder->nextRamp = 0;
        QVERIFY(m_feeder->second(kTime + 1, start));
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles.size(), files);
        QCOMPARE(m_feeder->newFileTimes.last(), files == 1 ? kTime : kTime + 1);
        QCOMPARE(m_folder.entryList(QDir::Files).size(), files);
        const QString last = m_feeder->newFiles.last();
        for (const QString& file : m_feeder->newFiles)
            QCOMPARE(wholeFileObjection(file), QString());
        if (files == 2) {
            QCOMPARE(storyOf(m_feeder->newFiles.first()).frames, 1000);
            QCOMPARE(storyOf(last).startSample, start);
            QCOMPARE(storyOf(last).timestamp, kTime + 1);
            QCOMPARE(storyOf(last).name, QStringLiteral("ABC0042_20240229_124001.wav"));
            const JudgedWav wav = judgeWav(last);
            QCOMPARE(wav.channels, channels);
            QCOMPARE(wav.bits, bits);
            QCOMPARE(wav.rate, int(rate));
            QVERIFY(wav.comment.contains(QStringLiteral("gain %1 dB").arg(gain)));
        }
        QCOMPARE(judgeWav(last).frames, qint64{files == 1 ? 2000 : rate});
    }

    void dataNeverClosesForItsSequence()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 999999, 100));
        QVERIFY(m_feeder->block(kTime + 1, 0, 100));
        QCOMPARE(m_feeder->newFiles.size(), 1);
    }

    void fileEndsWithTheSecondOfTheLoss()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        QVERIFY(m_feeder->header(kTime + 1, 1000));
        QVERIFY(m_feeder->block(kTime + 1, 1000, 300)); // 700 are lost
        QVERIFY(m_feeder->second(kTime + 2, 2000));
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles.size(), 2);
        QCOMPARE(storyOf(m_feeder->newFiles.first()).frames, 1300);
        const FileStory next = storyOf(m_feeder->newFiles.last());
        QCOMPARE(next.frames, 1000);
        QCOMPARE(next.startSample, uint64_t{2000});
        QCOMPARE(next.timestamp, kTime + 2);
        QCOMPARE(next.name, QStringLiteral("ABC0042_20240229_124002.wav"));
    }

    void repeatedHeaderNeverCloses()
    {
        QVERIFY(m_feeder->second(kTime, 5000));
        QVERIFY(m_feeder->header(kTime, 5000));
        QVERIFY(m_feeder->block(kTime, 5000, 100));
        // Nor when it tells of another format.
        m_feeder->rate = 2000;
        QVERIFY(m_feeder->header(kTime, 5000));
        QCOMPARE(m_feeder->newFiles.size(), 1);
        // The latest header is what counts, not the one that opened the file.
        m_feeder->rate = 1000;
        QVERIFY(m_feeder->header(kTime + 1, 6100));
        QVERIFY(m_feeder->block(kTime + 1, 6100, 100));
        QVERIFY(m_feeder->header(kTime + 1, 6100));
        QCOMPARE(m_feeder->newFiles.size(), 1);
        QVERIFY(m_feeder->header(kTime, 5000));
        QCOMPARE(m_feeder->newFiles.size(), 2);
    }

    void headerWithoutKeyNeverCloses()
    {
        QVERIFY(m_feeder->second(kTime, 5000));
        QVERIFY(m_feeder->header(0, 0));
        m_feeder->channels = 2;
        m_feeder->rate = 2000;
        QVERIFY(m_feeder->header(0, 0));
        QCOMPARE(m_feeder->newFiles.size(), 1);
        QCOMPARE(m_feeder->dispatches, 1);
        // It isn't the current header either: that one again is still a repetition.
        m_feeder->channels = 1;
        m_feeder->rate = 1000;
        QVERIFY(m_feeder->header(kTime, 5000));
        QCOMPARE(m_feeder->newFiles.size(), 1);
        // And the true header behind it still fits.
        QVERIFY(m_feeder->second(kTime + 1, 6000));
        QCOMPARE(m_feeder->newFiles.size(), 1);
    }

    void streamWithoutKeysRollsByItsAudio()
    {
        m_writer->setMaxLength(2);
        QVERIFY(m_feeder->header(0, 0));
        for (int i = 0; i < 50; ++i)
            QVERIFY(m_feeder->block(0, 0, 100));
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles.size(), 3);
        const QList<qint64> frames{2000, 2000, 1000};
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(storyOf(m_feeder->newFiles[i]).frames, frames[i]);
            QCOMPARE(storyOf(m_feeder->newFiles[i]).timestamp, uint32_t(2 * i));
            QCOMPARE(storyOf(m_feeder->newFiles[i]).startSample, uint64_t(2000 * i));
        }
    }

    void keylessDataInAKeyedFileDoesNotRollAtEachBlock()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        for (int i = 0; i < 20; ++i)
            QVERIFY(m_feeder->block(0, 0, 100));
        QCOMPARE(m_feeder->newFiles.size(), 1);
    }

    void clockSetBackEndsOneFileOnly()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        for (uint32_t second = 0; second < 5; ++second)
            QVERIFY(m_feeder->second(kTime - 5000 + second, 1000 + 1000 * second));
        QCOMPARE(m_feeder->newFiles.size(), 2);
        // The time didn't move on, so the old file and its audio tell it; the next file has the new clock's.
        QVERIFY(m_feeder->second(kTime - 4200, 6000));
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles.size(), 3);
        QCOMPARE(storyOf(m_feeder->newFiles[1]).timestamp, kTime + 1);
        QCOMPARE(storyOf(m_feeder->newFiles[2]).timestamp, kTime - 4200);
    }

    void newFormatAtTheBoundaryLeavesNoEmptyFile()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        m_feeder->bits = 24;
        m_feeder->rate = 2000;
        QVERIFY(m_feeder->second(kTime + kSpan, 1000));
        m_writer->finishFile();
        const QStringList files{m_folder.filePath(QStringLiteral("ABC0042_20240229_124000.wav")),
                                m_folder.filePath(QStringLiteral("ABC0042_20240229_125000.wav"))};
        QCOMPARE(m_feeder->newFiles, files);
        QCOMPARE(m_folder.entryList(QDir::Files).size(), 2);
        const JudgedWav wav = judgeWav(m_feeder->newFiles.last());
        QCOMPARE(wav.bits, 24);
        QCOMPARE(wav.rate, 2000);
        QCOMPARE(wav.frames, 2000);
    }

    void infoThatEndsAFileOpensNone()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        QVERIFY(m_feeder->info(kTime + 1, 1500));
        QVERIFY(!m_writer->isNewFile());
        QCOMPARE(m_writer->length(), 0U);
        QCOMPARE(wholeFileObjection(m_feeder->newFiles.first()), QString());
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        QCOMPARE(m_feeder->newFiles.size(), 1);
        QCOMPARE(m_folder.entryList(QDir::Files).size(), 1);
        // What was finished takes no more blocks.
        QTest::ignoreMessage(QtWarningMsg, "NvxWavWriter: samples before any header are dropped");
        QVERIFY(m_feeder->block(kTime + 1, 1500, 10));
        QCOMPARE(m_feeder->newFiles.size(), 1);
    }

    void dataBehindAnInfoThatEndedAFileOpensTheNext_data()
    {
        QTest::addColumn<quint32>("time");
        QTest::newRow("lost samples") << kTime + 1;
        QTest::newRow("next span") << kTime + kSpan;
    }
    void dataBehindAnInfoThatEndedAFileOpensTheNext()
    {
        QFETCH(quint32, time);
        QVERIFY(m_feeder->second(kTime, 0));
        QVERIFY(m_feeder->info(time, 1500));
        QVERIFY(m_feeder->block(time, 1500, 10));
        QCOMPARE(m_feeder->dispatches, 1);
        QCOMPARE(m_feeder->newFileTimes, (QList<uint32_t>{kTime, time}));
        m_writer->finishFile();
        const FileStory story = storyOf(m_feeder->newFiles.last());
        QCOMPARE(story.startSample, uint64_t{1500});
        QCOMPARE(story.timestamp, time);
        QCOMPARE(story.frames, 10);
    }

    void latestInfoBeforeTheSetupCounts()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        QVERIFY(m_feeder->info(kTime + 1, 1500));
        QVERIFY(m_feeder->info(kTime + 2, 2500));
        QCOMPARE(m_feeder->dispatches, 1);
        QVERIFY(m_feeder->setup(kTime + 2, 2500));
        QVERIFY(m_feeder->block(kTime + 2, 2500, 10));
        QCOMPARE(m_feeder->newFiles.size(), 2);
        m_writer->finishFile();
        const FileStory story = storyOf(m_feeder->newFiles.last());
        QCOMPARE(story.startSample, uint64_t{2500});
        QCOMPARE(story.timestamp, kTime + 2);
        QCOMPARE(story.name, QStringLiteral("ABC0042_20240229_124002.wav"));
    }

    void setupAloneEndsTheFileBehindItsLastSample()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        QVERIFY(m_feeder->info(kTime + 1, 1000));
        QVERIFY(m_feeder->block(kTime + 1, 1000, 300));
        m_feeder->rate = 2000;
        QVERIFY(m_feeder->setup(kTime + 2, 1000));
        QVERIFY(m_feeder->block(kTime + 2, 1000, 10));
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles.size(), 2);
        QCOMPARE(storyOf(m_feeder->newFiles.first()).frames, 1300);
        QCOMPARE(storyOf(m_feeder->newFiles.last()).startSample, uint64_t{1300});
    }

    void keylessInfoBeforeTheSetupLeavesTimeAndStart()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        QVERIFY(m_feeder->info(kTime + 1, 1500));
        QVERIFY(m_feeder->header(0, 0));
        QVERIFY(m_feeder->block(kTime + 1, 1500, 10));
        QCOMPARE(m_feeder->newFiles.size(), 2);
        m_writer->finishFile();
        const FileStory story = storyOf(m_feeder->newFiles.last());
        QCOMPARE(story.startSample, uint64_t{1500});
        QCOMPARE(story.timestamp, kTime + 1);
    }

    void rollIntoAFormatThatNoFileHolds()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        m_feeder->bits = 8;
        QVERIFY(m_feeder->header(kTime + kSpan, 1000));
        QCOMPARE(m_writer->errorCode(), WavErrBadFormat);
        QCOMPARE(storyOf(m_feeder->newFiles.first()).frames, 1000);
    }

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QDir m_folder;
    std::unique_ptr<NvxWavWriter> m_writer;
    std::unique_ptr<WavFeeder> m_feeder;
};

QTEST_GUILESS_MAIN(tst_NvxWavWriterRolls)
#include "tst_NvxWavWriterRolls.moc"
