#include "WavFeeder.h"
#include "WavJudge.h"

#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavTestInfoData.h"
#include "NvxQtCommon/contract/recording/WavStreamEvent.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <chrono>
#include <memory>

namespace {

constexpr uint32_t kTime = 1709210000; // 2024-02-29 12:33:20 UTC

QStringList filesIn(const QTemporaryDir& dir)
{
    return QDir(dir.path()).entryList(QDir::Files, QDir::Name);
}

const QString kFirstName = QStringLiteral("ABC0042_20240229_123320.wav");

} // namespace

class tst_NvxWavWriter : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_writer = std::make_unique<NvxWavWriter>(600, m_dir->path().toStdWString());
        m_now = std::chrono::steady_clock::time_point(std::chrono::hours(1));
        m_writer->setClock([this] { return m_now; });
        m_feeder = std::make_unique<WavFeeder>(*m_writer);
    }
    void cleanup()
    {
        m_writer.reset();
        m_dir.reset();
    }

    // --- happy flows
    void setupOpensTheFile()
    {
        QVERIFY(m_feeder->info(kTime, 5000));
        QVERIFY(!m_writer->isNewFile());
        QVERIFY(filesIn(*m_dir).isEmpty());
        QVERIFY(m_feeder->setup(kTime, 5000));
        QVERIFY(m_writer->isNewFile());
        QCOMPARE(filesIn(*m_dir), QStringList{kFirstName});
        QCOMPARE(QString::fromStdWString(m_writer->outputFileName()), m_dir->filePath(kFirstName));
        QCOMPARE(m_feeder->newFileTimes, QList<uint32_t>{kTime});
    }

    void newFileIsSaidOnce()
    {
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_writer->isNewFile());
        QVERIFY(m_feeder->block(kTime, 0, 10));
        QVERIFY(!m_writer->isNewFile());
    }

    void samplesLandInTheFile()
    {
        QVERIFY(m_feeder->second(kTime, 5000));
        QVERIFY(m_feeder->second(kTime + 1, 6000));
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        QCOMPARE(m_feeder->newFiles.size(), 1);
        const QString path = m_feeder->newFiles.first();
        QCOMPARE(wholeFileObjection(path), QString());
        const JudgedWav wav = judgeWav(path);
        QCOMPARE(wav.frames, 2000);
        QCOMPARE(wav.rate, 1000);
        for (size_t i = 0; i < wav.samples.size(); ++i)
            QCOMPARE(wav.samples[i], m_feeder->rampValue(i, 0));
    }

    void fileCarriesItsStory()
    {
        QVERIFY(m_feeder->second(kTime, 5000));
        m_writer->finishFile();
        const JudgedWav wav = judgeWav(m_feeder->newFiles.first());
        QCOMPARE(wav.title, QStringLiteral("ABC0042_20240229_123320"));
        QCOMPARE(wav.software, QStringLiteral("Nerivox' test"));
        QCOMPARE(wav.date, QStringLiteral("2024-02-29T12:33:20Z"));
        QVERIFY2(wav.comment.contains(QStringLiteral("serial 43")), qPrintable(wav.comment));
        QVERIFY2(wav.comment.contains(QStringLiteral("sensitivity -170 dB")), qPrintable(wav.comment));
        QVERIFY2(wav.comment.contains(QStringLiteral("gain 12 dB")), qPrintable(wav.comment));
        const RiffView view = viewRiff(m_feeder->newFiles.first());
        QCOMPARE(view.chunks.size(), 3);
        QCOMPARE(view.chunks[0].name, QByteArray("fmt "));
        QCOMPARE(view.chunks[1].name, QByteArray("LIST"));
        QVERIFY(view.headerSize() < 900);
        const QByteArray record = view.info.value("INVX");
        const auto info = NvxWavInfoDataHF::fromBytes(
            {reinterpret_cast<const uint8_t*>(record.constData()), size_t(record.size())});
        QVERIFY(info);
        QCOMPARE(info->timestamp(), kTime);
        QCOMPARE(info->startSample(), uint64_t{5000});
        QCOMPARE(info->serialNo(1), uint16_t{43});
    }

    void lengthCountsWholeSeconds()
    {
        QCOMPARE(m_writer->length(), 0U);
        QVERIFY(m_feeder->header(kTime, 0));
        QCOMPARE(m_writer->length(), 0U);
        QVERIFY(m_feeder->block(kTime, 0, 999));
        QCOMPARE(m_writer->length(), 0U);
        QVERIFY(m_feeder->block(kTime, 0, 1));
        QCOMPARE(m_writer->length(), 1U);
        QVERIFY(m_feeder->block(kTime, 0, 2500));
        QCOMPARE(m_writer->length(), 3U);
    }

    void writerWithoutPathTakesItLater()
    {
        NvxWavWriter writer;
        writer.setPath(m_dir->path().toStdWString());
        writer.setMaxLength(60);
        WavFeeder feeder(writer);
        QVERIFY(feeder.second(kTime, 0));
        QVERIFY(feeder.block(kTime + 60, 0, 10));
        QCOMPARE(feeder.newFiles.size(), 2);
        QVERIFY(feeder.newFiles.first().startsWith(m_dir->path()));
    }

    void foreignLettersInPathAndName()
    {
        const QString path = m_dir->filePath(QStringLiteral("Mäßig 海"));
        QVERIFY(QDir().mkdir(path));
        m_writer->setPath(path.toStdWString());
        m_feeder->prefix = QStringLiteral("Wal ä海_");
        QVERIFY(m_feeder->second(kTime, 0));
        m_writer->finishFile();
        const QString file = path + QStringLiteral("/Wal ä海_20240229_123320.wav");
        QVERIFY(QFile::exists(file));
        QCOMPARE(QString::fromStdWString(m_writer->outputFileName()), file);
        QCOMPARE(judgeWav(file).title, QStringLiteral("Wal ä海_20240229_123320"));
    }

    void nameWithoutADateStays()
    {
        NvxWavInfoDataHF info;
        info.setTimestamp(kTime);
        info.applyFileName("MyRecording");
        QVERIFY(m_feeder->process(info, kTime, 0));
        QVERIFY(m_feeder->setup(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 10));
        QVERIFY(m_feeder->block(kTime + 600, 0, 10));
        QVERIFY(m_feeder->block(kTime + 1200, 0, 10));
        QCOMPARE(filesIn(*m_dir), (QStringList{"MyRecording.wav", "MyRecording_2.wav", "MyRecording_3.wav"}));
        m_writer->finishFile();
        QCOMPARE(judgeWav(m_feeder->newFiles.last()).title, QStringLiteral("MyRecording_3"));
    }

    void noNameGivesTheTime()
    {
        NvxWavInfoDataHF info;
        info.setTimestamp(kTime);
        QVERIFY(m_feeder->process(info, kTime, 0));
        QVERIFY(m_feeder->setup(kTime, 0));
        QCOMPARE(filesIn(*m_dir), QStringList{"20240229_123320.wav"});
        m_writer->finishFile();
        QCOMPARE(judgeWav(m_feeder->newFiles.first()).title, QStringLiteral("20240229_123320"));
    }

    void existingNamesAreNeverOverwritten()
    {
        QFile existing(m_dir->filePath(kFirstName));
        QVERIFY(existing.open(QIODevice::WriteOnly));
        existing.write("precious");
        existing.close();
        QVERIFY(m_feeder->second(kTime, 0));
        m_writer->finishFile();
        QVERIFY(m_feeder->second(kTime, 0));
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles,
                 (QStringList{m_dir->filePath(QStringLiteral("ABC0042_20240229_123320_2.wav")),
                              m_dir->filePath(QStringLiteral("ABC0042_20240229_123320_3.wav"))}));
        QVERIFY(existing.open(QIODevice::ReadOnly));
        QCOMPARE(existing.readAll(), QByteArray("precious"));
    }

    void finishFileWithoutAFileIsHarmless()
    {
        m_writer->finishFile();
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        QVERIFY(m_writer->outputFileName().empty());
        QVERIFY(m_feeder->header(kTime, 0));
        m_writer->finishFile();
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        QCOMPARE(wholeFileObjection(m_feeder->newFiles.first()), QString());
    }

    void destructorCompletesTheFile()
    {
        m_feeder->bits = 24;
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 333));
        m_writer.reset();
        const QString path = m_dir->filePath(kFirstName);
        QCOMPARE(wholeFileObjection(path), QString());
        QCOMPARE(judgeWav(path).frames, 333);
    }

    void oddNumberOfBytesIsPadded()
    {
        m_feeder->bits = 24;
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 1));
        m_writer->finishFile();
        const RiffView view = viewRiff(m_feeder->newFiles.first());
        QCOMPARE(view.chunk("data")->size, 3U);
        QCOMPARE(view.fileSize, view.headerSize() + 4);
        QCOMPARE(wholeFileObjection(m_feeder->newFiles.first()), QString());
    }

    void sizesAreRightAfterTheFirstBlock()
    {
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 100));
        QCOMPARE(viewRiff(m_feeder->newFiles.first()).chunk("data")->size, 200U);
        QCOMPARE(judgeWav(m_feeder->newFiles.first()).frames, 100);
    }

    void eachFileBeginsAnew()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        QVERIFY(m_feeder->header(kTime + 600, 1000));
        QCOMPARE(m_feeder->newFiles.size(), 2);
        const QString path = m_feeder->newFiles.last();
        QCOMPARE(m_writer->length(), 0U);
        QCOMPARE(viewRiff(path).chunk("data")->size, 0U);
        // The first block shows at once in this file, too.
        QVERIFY(m_feeder->block(kTime + 600, 1000, 100));
        QCOMPARE(viewRiff(path).chunk("data")->size, 200U);
    }

    void sizesFollowEachSecondOfAudio()
    {
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 100));
        QVERIFY(m_feeder->block(kTime, 0, 999));
        QCOMPARE(dataSize(), 200U);
        QVERIFY(m_feeder->block(kTime, 0, 1));
        const RiffView view = viewRiff(m_feeder->newFiles.first());
        QCOMPARE(view.chunk("data")->size, 2200U);
        QCOMPARE(qint64{view.riffSize} + 8, view.headerSize() + 2200);
    }

    void sizesFollowEachSecondOfWallTime()
    {
        m_feeder->rate = 512000;
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 100));
        QCOMPARE(dataSize(), 200U);
        m_now += std::chrono::milliseconds(999);
        QVERIFY(m_feeder->block(kTime, 0, 100));
        QCOMPARE(dataSize(), 200U);
        // Any event does, even one that brings nothing.
        m_now += std::chrono::milliseconds(1);
        NvxWavTestInfoData nothing;
        QVERIFY(m_feeder->process(nothing, kTime, 0));
        QCOMPARE(dataSize(), 400U);
        // The second counts from then on.
        m_now += std::chrono::milliseconds(999);
        QVERIFY(m_feeder->block(kTime, 0, 100));
        QCOMPARE(dataSize(), 400U);
        m_now += std::chrono::milliseconds(1);
        QVERIFY(m_feeder->block(kTime, 0, 100));
        QCOMPARE(dataSize(), 800U);
    }

    void bigEndianFileOfBigEndianBlocks()
    {
        m_writer->setBigEndian(true);
        m_feeder->blocksBigEndian = true;
        QVERIFY(m_feeder->second(kTime, 0));
        m_writer->finishFile();
        QFile file(m_feeder->newFiles.first());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        QVERIFY(bytes.startsWith("RIFX"));
        QCOMPARE(bytes.right(4), QByteArray("\x03\xE6\x03\xE7", 4));
    }

    void writerFlagDecidesTheFileAndTheBlocksTheirSwap_data()
    {
        QTest::addColumn<bool>("fileBig");
        QTest::addColumn<bool>("blocksBig");
        QTest::addColumn<int>("bits");
        for (int bits : {16, 24, 32}) {
            for (bool file : {false, true}) {
                for (bool blocks : {false, true})
                    QTest::addRow("%d bits, %s file, %s blocks", bits, file ? "big" : "little",
                                  blocks ? "big" : "little")
                        << file << blocks << bits;
            }
        }
    }
    void writerFlagDecidesTheFileAndTheBlocksTheirSwap()
    {
        QFETCH(bool, fileBig);
        QFETCH(bool, blocksBig);
        QFETCH(int, bits);
        m_writer->setBigEndian(fileBig);
        m_feeder->blocksBigEndian = blocksBig;
        m_feeder->bits = static_cast<unsigned char>(bits);
        m_feeder->nextRamp = 0x7FFFF0; // all bytes of a sample differ
        QVERIFY(m_feeder->second(kTime, 0));
        m_writer->finishFile();
        QCOMPARE(viewRiff(m_feeder->newFiles.first()).isBigEndian, fileBig);
        const JudgedWav wav = judgeWav(m_feeder->newFiles.first());
        QCOMPARE(wav.frames, 1000);
        for (size_t i = 0; i < wav.samples.size(); ++i)
            QCOMPARE(wav.samples[i], m_feeder->rampValue(0x7FFFF0 + i, 0));
    }

    void byteOrderChangesOnlyWithTheNextFile()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        m_writer->setBigEndian(true);
        QVERIFY(m_feeder->second(kTime + 1, 1000));
        m_writer->finishFile();
        QCOMPARE(m_feeder->newFiles.size(), 1);
        QVERIFY(!viewRiff(m_feeder->newFiles.first()).isBigEndian);
        const JudgedWav wav = judgeWav(m_feeder->newFiles.first());
        for (size_t i = 0; i < wav.samples.size(); ++i)
            QCOMPARE(wav.samples[i], m_feeder->rampValue(i, 0));
    }

    void emptyBlockChangesNothing()
    {
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 0));
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        QCOMPARE(judgeWav(m_feeder->newFiles.first()).frames, 0);
    }

    void restartAfterStop()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        m_writer->setStopLogging(true);
        m_writer->finishFile();
        m_writer->setStopLogging(false);
        QVERIFY(m_feeder->second(kTime + 1, 1000));
        QCOMPARE(m_feeder->newFiles.size(), 2);
        QCOMPARE(m_writer->errorCode(), WavErrNone);
    }

    void everyErrorHasItsSentence()
    {
        QVERIFY(NvxWavWriter::errorStr(WavErrNone).empty());
        QStringList sentences;
        for (int code = WavErrCannotOpen; code <= WavErrBadFormat; ++code)
            sentences.append(QString::fromStdString(NvxWavWriter::errorStr(static_cast<WavWriteErr>(code))));
        QCOMPARE(sentences.size(), 5);
        QCOMPARE(sentences.removeDuplicates(), 0);
        for (const QString& sentence : sentences)
            QVERIFY(sentence.endsWith(QLatin1Char('.')) && sentence.size() > 10);
    }

    // --- rainy day flows
    void dataBeforeAnyHeaderIsDroppedWithOneWarning()
    {
        QTest::ignoreMessage(QtWarningMsg, "NvxWavWriter: samples before any header are dropped");
        QVERIFY(m_feeder->block(kTime, 0, 10));
        QVERIFY(m_feeder->block(kTime, 0, 10));
        QVERIFY(filesIn(*m_dir).isEmpty());
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        // With an info alone there is no format yet.
        QVERIFY(m_feeder->info(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 10));
        QVERIFY(filesIn(*m_dir).isEmpty());
    }

    void dataAfterFinishFileIsDroppedWithOneWarning()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        m_writer->finishFile();
        QTest::ignoreMessage(QtWarningMsg, "NvxWavWriter: samples before any header are dropped");
        QVERIFY(m_feeder->block(kTime, 0, 10));
        QVERIFY(m_feeder->block(kTime, 0, 10));
        QCOMPARE(filesIn(*m_dir).size(), 1);
        QCOMPARE(judgeWav(m_feeder->newFiles.first()).frames, 1000);
    }

    void eachRecordingHasItsOwnWarning()
    {
        for (uint32_t i = 0; i < 2; ++i) {
            QVERIFY(m_feeder->header(kTime + i, 1000 * i));
            m_writer->finishFile();
            QTest::ignoreMessage(QtWarningMsg, "NvxWavWriter: samples before any header are dropped");
            QVERIFY(m_feeder->block(kTime + i, 1000 * i, 10));
        }
    }

    void blockThatDoesNotFitARolledFileIsTakenAtOnce()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        QVERIFY(m_feeder->block(kTime + 600, 0, 100));
        m_feeder->bits = 24;
        QVERIFY(m_feeder->block(kTime + 600, 0, 100));
        QCOMPARE(m_feeder->dispatches, 1);
        QCOMPARE(m_writer->errorCode(), WavErrBadFormat);
    }

    void setupWithoutInfoOpensNothing()
    {
        QVERIFY(m_feeder->setup(kTime, 0));
        QVERIFY(filesIn(*m_dir).isEmpty());
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        QVERIFY(m_feeder->header(kTime, 0));
        QCOMPARE(filesIn(*m_dir).size(), 1);
    }

    void foreignEventsAreTaken()
    {
        NvxWavTestInfoData data;
        QVERIFY(m_feeder->process(data, kTime, 0));
        QCOMPARE(m_feeder->dispatches, 1);
        WavStreamEvent empty(nullptr, int(kTime), 0);
        m_writer->dispatch(&empty);
        QVERIFY(empty.isConsumed());
        m_writer->dispatch(nullptr);
        class Other : public StateEvent
        {
        } other;
        m_writer->dispatch(&other);
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        QVERIFY(m_feeder->second(kTime, 0));
        // Neither does one end a file, as a block of that time would.
        QVERIFY(m_feeder->process(data, kTime + 600, 1000));
        QCOMPARE(m_feeder->dispatches, 1);
        QVERIFY(m_feeder->second(kTime + 1, 1000));
        QCOMPARE(filesIn(*m_dir), QStringList{kFirstName});
    }

    void blockThatDoesNotFitIsBadFormat_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<int>("channels");
        QTest::addColumn<bool>("withData");
        QTest::newRow("depth") << 24 << 1 << true;
        QTest::newRow("channels") << 16 << 2 << true;
        QTest::newRow("no channels") << 16 << 0 << true;
        QTest::newRow("no samples behind the pointer") << 16 << 1 << false;
    }
    void blockThatDoesNotFitIsBadFormat()
    {
        QFETCH(int, bits);
        QFETCH(int, channels);
        QFETCH(bool, withData);
        QVERIFY(m_feeder->second(kTime, 0));
        std::vector<unsigned char> samples(1000);
        NvxWavDataChunk chunk;
        chunk.setBitDepth(static_cast<unsigned char>(bits));
        chunk.setNumChannels(static_cast<unsigned char>(channels));
        chunk.setNumSamples(10);
        chunk.setData(withData ? samples.data() : nullptr);
        QVERIFY(m_feeder->process(chunk, kTime, 0));
        QCOMPARE(m_writer->errorCode(), WavErrBadFormat);
        // What was recorded before is whole.
        QCOMPARE(wholeFileObjection(m_feeder->newFiles.first()), QString());
        QCOMPARE(judgeWav(m_feeder->newFiles.first()).frames, 1000);
    }

    void badFormatLeavesAnOddFilePadded()
    {
        m_feeder->bits = 24;
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 101));
        m_feeder->bits = 16;
        QVERIFY(m_feeder->block(kTime, 0, 101));
        QCOMPARE(m_writer->errorCode(), WavErrBadFormat);
        QCOMPARE(wholeFileObjection(m_feeder->newFiles.first()), QString());
    }

    void formatThatNoFileHoldsIsBadFormat_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<quint32>("rate");
        QTest::newRow("8 bits") << 8 << 1000U;
        QTest::newRow("0 bits") << 0 << 1000U;
        QTest::newRow("120 bits") << 120 << 1000U;
        QTest::newRow("no rate") << 16 << 0U;
    }
    void formatThatNoFileHoldsIsBadFormat()
    {
        QFETCH(int, bits);
        QFETCH(quint32, rate);
        m_feeder->bits = static_cast<unsigned char>(bits);
        m_feeder->rate = rate;
        QVERIFY(m_feeder->header(kTime, 0));
        QCOMPARE(m_writer->errorCode(), WavErrBadFormat);
        QVERIFY(!m_writer->isNewFile());
        QVERIFY(filesIn(*m_dir).isEmpty());
        QCOMPARE(m_writer->length(), 0U);
    }

    void errorSticksUntilFinishFileAfterStop()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        m_feeder->bits = 24;
        QVERIFY(m_feeder->block(kTime, 0, 10));
        QCOMPARE(m_writer->errorCode(), WavErrBadFormat);
        // Everything is taken and dropped, and the error stays.
        QVERIFY(m_feeder->second(kTime + 1, 1000));
        QCOMPARE(m_writer->errorCode(), WavErrBadFormat);
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), WavErrBadFormat);
        m_writer->setStopLogging(true);
        QCOMPARE(m_writer->errorCode(), WavErrBadFormat);
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        // And from now on events go in silence, without a warning.
        QVERIFY(m_feeder->second(kTime + 2, 2000));
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        QCOMPARE(filesIn(*m_dir).size(), 1);
    }

    void stopRefusesDataBeforeTheFileIsFinished()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        m_writer->setStopLogging(true);
        QVERIFY(m_feeder->second(kTime + 1, 1000));
        m_writer->finishFile();
        QCOMPARE(judgeWav(m_feeder->newFiles.first()).frames, 1000);
        QCOMPARE(m_feeder->newFiles.size(), 1);
    }

    void restartNeedsANewHeader()
    {
        QVERIFY(m_feeder->second(kTime, 0));
        m_writer->setStopLogging(true);
        m_writer->finishFile();
        m_writer->setStopLogging(false);
        // The setup alone would open a file under the name of the recording before.
        QVERIFY(m_feeder->setup(kTime + 1, 1000));
        QCOMPARE(m_feeder->newFiles.size(), 1);
    }

private:
    quint32 dataSize() const { return viewRiff(m_feeder->newFiles.first()).chunk("data")->size; }

    std::chrono::steady_clock::time_point m_now; ///< the writer's wall time; moves only in tests
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<NvxWavWriter> m_writer;
    std::unique_ptr<WavFeeder> m_feeder;
};

QTEST_GUILESS_MAIN(tst_NvxWavWriter)
#include "tst_NvxWavWriter.moc"
