#include "FileSwap.h"
#include "MergeParts.h"

#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"
#include "NvxQtCommon/replay/NvxWAVFile.h"
#include "WavJudge.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QTimer>

namespace {

/// The array record of an output file.
std::shared_ptr<NvxWavInfoDataTMI> recordOf(const QString& path)
{
    const QByteArray bytes = viewRiff(path).info.value("INVX");
    return NvxWavInfoDataTMI::fromBytes(
        std::span(reinterpret_cast<const uint8_t*>(bytes.constData()), size_t(bytes.size())));
}

bool appendTo(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::Append) && file.write(bytes) == bytes.size();
}

} // namespace

/// What a plan becomes: the output files, their records, and their end.
class tst_NvxWavMergerRun : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void samplesOfEachChannel_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<int>("channels");
        QTest::addColumn<unsigned>("rate");
        for (int bits : {16, 24, 32}) {
            for (int channels : {1, 2, 3, 4, 8})
                QTest::addRow("%d bits, %d channels", bits, channels) << bits << channels << 201U;
        }
        QTest::newRow("files of whole blocks") << 24 << 3 << 1024U;
        QTest::newRow("an odd number of bytes behind whole blocks") << 24 << 1 << 1025U;
        QTest::newRow("an odd number of bytes in each input") << 24 << 2 << 1025U;
        QTest::newRow("less than a block") << 16 << 2 << 50U;
        QTest::newRow("40 channels") << 16 << 40 << 70U;
        QTest::newRow("as many channels as there are numbers") << 24 << 255 << 70U;
    }
    void samplesOfEachChannel()
    {
        QFETCH(int, bits);
        QFETCH(int, channels);
        QFETCH(unsigned, rate);
        MergeRig rig;
        QList<QByteArray> blocks;
        QList<uint16_t> serials;
        for (int channel = 0; channel < channels; ++channel) {
            MergeFile file;
            file.serial = static_cast<uint16_t>(50 + channel);
            file.bits = static_cast<unsigned char>(bits);
            file.rate = rate;
            file.moreFrames = rate == 1025 ? 5 : rate == 201 ? 1 : 0;
            rig.add(file);
            blocks << file.samples();
            serials << file.serial;
        }
        rig.merger->setChannels(serials);
        rig.merger->startMerge();
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
        QCOMPARE(rig.outputs(), QStringList{kOutput});
        const QString path = rig.outputPath(kOutput);
        QCOMPARE(wholeFileObjection(path), QString());
        QVERIFY(dataOfWav(path) == woven(blocks, bits / 8));
        const JudgedWav wav = judgeWav(path);
        QCOMPARE(wav.channels, channels);
        QCOMPARE(recordOf(path)->serialNo(static_cast<unsigned char>(channels)), serials.last());
        QCOMPARE(wav.bits, bits);
        QCOMPARE(wav.rate, int(rate));
    }

    void channelsComeInTheirOrder()
    {
        // Neither the order of the files nor that of the serial numbers counts.
        MergeRig rig;
        rig.merger->setChannelDevice(1, 30);
        rig.merger->setChannelDevice(2, 10);
        rig.merger->setChannelDevice(3, 20);
        QList<QByteArray> blocks(3);
        for (uint16_t serial : {10, 20, 30}) {
            MergeFile file;
            file.serial = serial;
            rig.add(file);
            blocks[serial == 30 ? 0 : serial == 10 ? 1 : 2] = file.samples();
        }
        rig.merger->startMerge();
        QVERIFY(dataOfWav(rig.outputPath(kOutput)) == woven(blocks, 2));
    }

    void theRecordOfTheOutput()
    {
        MergeRig rig;
        rig.merger->setChannels({7, 9});
        MergeFile file;
        file.serial = 7;
        file.deviceType = DevTypeRecorderA;
        file.sensitivity = -171;
        file.temperature = 123;
        file.humidity = 456;
        file.startSample = 987654321;
        rig.add(file);
        file.serial = 9;
        file.deviceType = DevTypeSkiff;
        file.sensitivity = -165;
        file.temperature = -20;
        file.humidity = 0;
        rig.add(file);
        rig.merger->startMerge();
        const auto record = recordOf(rig.outputPath(kOutput));
        QVERIFY(record);
        QCOMPARE(record->numChannels(), static_cast<unsigned char>(2));
        QCOMPARE(record->fileName(), std::string("MERGED_20240229_124000"));
        QCOMPARE(record->peakVolts(), 3.0F);
        QCOMPARE(record->timestamp(), 1709210400U);
        QCOMPARE(record->software(), std::string("NvxWavMergerV0  "));
        QCOMPARE(record->startSample(), uint64_t{0});
        NvxWavInfoDataTMI expected(2);
        expected.setDeviceType(static_cast<HydDeviceType>(8), 0);
        expected.setDeviceType(DevTypeRecorderA, 1);
        expected.setDeviceType(DevTypeSkiff, 2);
        for (unsigned char channel : {0, 1, 2})
            QCOMPARE(record->deviceType(channel), expected.deviceType(channel));
        QCOMPARE(record->serialNo(0), uint16_t{0});
        QCOMPARE(record->serialNo(1), uint16_t{7});
        QCOMPARE(record->serialNo(2), uint16_t{9});
        QCOMPARE(record->sensitivity(1), int16_t{-171});
        QCOMPARE(record->sensitivity(2), int16_t{-165});
        QCOMPARE(record->temperature(1), int16_t{123});
        QCOMPARE(record->temperature(2), int16_t{-20});
        QCOMPARE(record->humidity(1), int16_t{456});
        QCOMPARE(record->humidity(2), int16_t{0});
    }

    void sensitivitiesInTenthsBecomeWhole()
    {
        MergeRig rig;
        rig.merger->setChannels({7, 9});
        MergeFile file;
        file.serial = 7;
        file.sensitivity = -1704;
        rig.add(file);
        file.serial = 9;
        file.sensitivity = -999;
        rig.add(file);
        rig.merger->startMerge();
        const auto record = recordOf(rig.outputPath(kOutput));
        QVERIFY(record);
        QCOMPARE(record->sensitivity(1), int16_t{-170});
        QCOMPARE(record->sensitivity(2), int16_t{-999});
    }

    void readingLowRatesHalvesTheFftLength()
    {
        MergeRig rig;
        const auto before = FFT_Params_WAV.fftLength();
        MergeFile file;
        file.rate = 100;
        rig.add(file);
        rig.merger->startMerge();
        // It stays so for the process. This is intended.
        QVERIFY(FFT_Params_WAV.fftLength() < before);
    }

    void theOutputReplays()
    {
        MergeRig rig;
        rig.merger->setChannels({7, 9});
        MergeFile file;
        for (uint16_t serial : {7, 9}) {
            file.serial = serial;
            rig.add(file);
        }
        rig.merger->startMerge();
        NvxWAVFile replay(rig.outputPath(kOutput));
        QVERIFY(replay.headerPrepare(true));
        QCOMPARE(replay.length(), 60U);
        QCOMPARE(replay.timestamp(), 1709210400U);
        QCOMPARE(replay.channelDevices().size(), 2);
        QCOMPARE(replay.channelDevices().at(0).serialNo(), uint16_t{7});
        QCOMPARE(replay.channelDevices().at(1).serialNo(), uint16_t{9});
    }

    void theDirectoryMayHaveAnyName()
    {
        TwoFiles rig;
        const QString other = rig.outputDir() + QStringLiteral("/Ålesund 海");
        QVERIFY(QDir().mkpath(other));
        rig.merger->setOutputDir(other);
        rig.merger->startMerge();
        QVERIFY(dataOfWav(other + QLatin1Char('/') + kOutput) ==
                woven({rig.first.samples(), rig.second.samples()}, 2));
        QCOMPARE(QDir(other).entryList({QStringLiteral("MERGELOG_*.txt")}, QDir::Files).size(), 1);
    }

    void namesThatExistAreNumbered()
    {
        MergeRig rig;
        rig.merger->setChannels({7});
        MergeFile file;
        file.serial = 7;
        rig.add(file);
        QVERIFY(appendTo(rig.outputPath(kOutput), "here before"));
        rig.merger->startMerge();
        // What was going to be made is told before, what was made is logged.
        QVERIFY(rig.signalsSeen.contains(QStringLiteral("status: Merging file: MERGED_20240229_124000")));
        QCOMPARE(rig.logLinesWith(QStringLiteral("MERGED_")),
                 (QStringList{QStringLiteral("Created file: MERGED_20240229_124000_2"),
                              QStringLiteral("MERGED_20240229_124000_2 merged.")}));
        QVERIFY(dataOfWav(rig.outputPath(QStringLiteral("MERGED_20240229_124000_2.wav"))) == file.samples());
    }

    void outputsThatGetTooLargeAreCut()
    {
        MergeRig rig;
        rig.merger->setChannels({7});
        MergeFile file;
        file.serial = 7;
        file.rate = 1000;
        rig.add(file);
        rig.merger->setMaxFileBytes(50000);
        rig.merger->startMerge();
        const QStringList names{QStringLiteral("MERGED_20240229_124000"),
                                QStringLiteral("MERGED_20240229_124024"),
                                QStringLiteral("MERGED_20240229_124048")};
        QByteArray samples;
        QStringList lines;
        for (const QString& name : names) {
            const QString path = rig.outputPath(name + QStringLiteral(".wav"));
            QCOMPARE(wholeFileObjection(path), QString());
            QVERIFY(QFile(path).size() < 50000);
            samples += dataOfWav(path);
            lines << QStringLiteral("Created file: ") + name << name + QStringLiteral(" merged.");
        }
        QCOMPARE(rig.outputs().size(), names.size());
        QVERIFY(samples == file.samples());
        QCOMPARE(rig.logLinesWith(QStringLiteral("MERGED_")), lines);
    }

    void withoutATimeTheAudioEndsAFile()
    {
        // At the epoch itself an event has no time, so the writer goes by the audio: a minute is a file.
        MergeRig rig;
        rig.merger->setChannels({7});
        rig.merger->setStartTime(QDateTime::fromSecsSinceEpoch(0, Qt::UTC));
        rig.merger->setEndTime(rig.merger->startTime());
        MergeFile file;
        file.serial = 7;
        file.stamp = QStringLiteral("19700101_000000");
        file.rate = 1024; // a minute is 15 blocks
        file.moreFrames = 1000;
        rig.add(file);
        rig.merger->startMerge();
        QCOMPARE(rig.outputs(), (QStringList{QStringLiteral("MERGED_19700101_000000.wav"),
                                             QStringLiteral("MERGED_19700101_000100.wav")}));
        QCOMPARE(judgeWav(rig.outputPath(rig.outputs().first())).frames, qint64{60 * 1024});
        QCOMPARE(judgeWav(rig.outputPath(rig.outputs().last())).frames, qint64{1000});
    }

    void inputsAreOpenOnlyWhileTheyAreMerged()
    {
        MergeRig rig;
        rig.merger->setChannels({7});
        MergeFile file;
        file.serial = 7;
        QStringList paths;
        for (const char* stamp : {"20240229_124000", "20240229_124100"}) {
            file.stamp = QLatin1String(stamp);
            paths << rig.add(file);
        }
        QStringList open;
        keepCalling(rig.merger.get(), [&] {
            for (const QString& path : paths) {
                if (descriptorOf(path) >= 0)
                    open << path;
            }
        });
        rig.merger->startMerge();
        // Three blocks each.
        QCOMPARE(open, (QStringList{paths[0], paths[0], paths[0], paths[1], paths[1], paths[1]}));
        QCOMPARE(descriptorOf(paths[1]), -1);
    }

    void theStartOfTheRangeMayChangeMeanwhile()
    {
        MergeRig rig;
        rig.merger->setChannels({7});
        MergeFile file;
        file.serial = 7;
        for (const char* stamp : {"20240229_124000", "20240229_124100"}) {
            file.stamp = QLatin1String(stamp);
            rig.add(file);
        }
        QTimer::singleShot(0, rig.merger.get(), [&rig] { rig.merger->setStartTime(utc(18, 0)); });
        rig.merger->startMerge();
        QCOMPARE(rig.merger->startTime(), utc(18, 0));
        QCOMPARE(rig.outputs(), (QStringList{kOutput, QStringLiteral("MERGED_20240229_124100.wav")}));
        const auto record = recordOf(rig.outputPath(rig.outputs().last()));
        QVERIFY(record);
        QCOMPARE(record->timestamp(), static_cast<uint32_t>(utc(12, 41).toSecsSinceEpoch()));
    }

    void filesThatWereMergedAreCounted()
    {
        TwoFiles rig;
        MergeFile file;
        file.serial = 7;
        rig.add(file); // the second one of its minute
        file.stamp = QStringLiteral("20240229_124100");
        rig.add(file);
        file.serial = 8; // not assigned
        rig.add(file);
        QCOMPARE(rig.merger->numMerged(), 0);
        rig.merger->startMerge();
        QCOMPARE(rig.merger->numFiles(), 5);
        QCOMPARE(rig.merger->numMerged(), 3);
    }

    void withoutADirectoryItIsTheWorkingOne()
    {
        TwoFiles rig;
        const QString before = QDir::currentPath();
        const auto goBack = qScopeGuard([before] { QDir::setCurrent(before); });
        QVERIFY(QDir::setCurrent(rig.outputDir()));
        rig.merger->setOutputDir({});
        rig.merger->startMerge();
        QVERIFY(rig.merged() == woven({rig.first.samples(), rig.second.samples()}, 2));
        // The log goes to the root of the file system, where few may write. This is intended.
        const QString log = rig.signalsSeen.first();
        QFile::remove(log.mid(24));
        QVERIFY2(log.startsWith(QStringLiteral("status: Merge Log File: /MERGELOG_")), qPrintable(log));
        QVERIFY(rig.logPaths().isEmpty());
    }

    void eventsAreProcessedAfterEachBlock()
    {
        MergeRig rig;
        rig.merger->setChannels({7});
        MergeFile file;
        file.serial = 7;
        file.rate = 1024; // 15 blocks
        rig.add(file);
        int calls = 0;
        keepCalling(rig.merger.get(), [&calls] { ++calls; });
        rig.merger->startMerge();
        QCOMPARE(calls, 15);
        QVERIFY(rig.signalsSeen.filter(QStringLiteral("progress")).isEmpty());
    }

    // --- rainy day flows
    void channelNumbersBeyondTheirCount()
    {
        MergeRig rig;
        rig.merger->setChannelDevice(1, 7);
        rig.merger->setChannelDevice(3, 9);
        MergeFile file;
        file.serial = 7;
        rig.add(file);
        const QByteArray first = file.samples();
        file.serial = 9;
        rig.add(file);
        rig.merger->startMerge();
        QVERIFY(dataOfWav(rig.outputPath(kOutput)) == woven({first, file.samples()}, 2));
        // The record has two channels, and none of them is called 3. This is intended.
        const auto record = recordOf(rig.outputPath(kOutput));
        QVERIFY(record);
        QCOMPARE(record->numChannels(), static_cast<unsigned char>(2));
        QCOMPARE(record->serialNo(1), uint16_t{7});
        QCOMPARE(record->serialNo(2), uint16_t{0});
    }

    void theFirstChannelTellsTheFormat()
    {
        MergeRig rig;
        rig.merger->setChannels({7, 9});
        MergeFile file;
        file.serial = 7;
        file.rate = 300;
        rig.add(file);
        const QByteArray first = file.samples();
        file.serial = 9;
        file.bits = 24;
        file.rate = 200;
        rig.add(file);
        // As many bytes, read with another width.
        QCOMPARE(file.samples().size(), first.size());
        rig.merger->startMerge();
        const JudgedWav wav = judgeWav(rig.outputPath(kOutput));
        QCOMPARE(wav.bits, 16);
        QCOMPARE(wav.rate, 300);
        QVERIFY(dataOfWav(rig.outputPath(kOutput)) == woven({first, file.samples()}, 2));
    }

    void bigEndianIsCopiedByteForByte_data()
    {
        QTest::addColumn<int>("bits");
        for (int bits : {16, 24, 32})
            QTest::addRow("%d bits", bits) << bits;
    }
    void bigEndianIsCopiedByteForByte()
    {
        QFETCH(int, bits);
        MergeRig rig;
        rig.merger->setChannels({7, 9});
        MergeFile file;
        file.serial = 7;
        file.bigEndian = true;
        file.bits = static_cast<unsigned char>(bits);
        rig.add(file);
        const QByteArray first = file.samples();
        file.serial = 9;
        rig.add(file);
        rig.merger->startMerge();
        // A little-endian file with big-endian samples. This is intended.
        QVERIFY(!viewRiff(rig.outputPath(kOutput)).isBigEndian);
        QVERIFY(dataOfWav(rig.outputPath(kOutput)) == woven({first, file.samples()}, bits / 8));
    }

    void theShortestChannelEndsTheOutput()
    {
        MergeRig rig;
        rig.merger->setChannels({7, 9});
        MergeFile file;
        file.serial = 7;
        file.rate = 1023;
        rig.add(file);
        const QByteArray first = file.samples();
        file.serial = 9;
        file.moreFrames = 1000; // still 60 whole seconds
        rig.add(file);
        const QByteArray second = file.samples();
        rig.merger->startMerge();
        // 14 whole blocks; of the 15th the first channel has 4036 samples and the second one all 4096, so it
        // gets 4066, the first channel's last 30 of which are zero.
        const qint64 frames = 14 * kBlock + 4066;
        QVERIFY(dataOfWav(rig.outputPath(kOutput)) ==
                woven({first + QByteArray(60, 0), second.left(frames * 2)}, 2));
    }

    void shortestChannelThatEndsWithABlock()
    {
        MergeRig rig;
        rig.merger->setChannels({7, 9});
        MergeFile file;
        file.serial = 7;
        file.rate = 1024;
        file.moreFrames = 1000;
        rig.add(file);
        const QByteArray first = file.samples();
        file.serial = 9;
        file.moreFrames = 0;
        rig.add(file);
        rig.merger->startMerge();
        QVERIFY(dataOfWav(rig.outputPath(kOutput)) ==
                woven({first.left(file.samples().size()), file.samples()}, 2));
    }

    void aListBehindTheSamplesIsReadAsSamples()
    {
        MergeRig rig;
        rig.merger->setChannels({7, 9});
        const QByteArray list("LIST\x10\0\0\0INFOINAM\4\0\0\0abc\0", 24);
        MergeFile file;
        file.serial = 7;
        QVERIFY(appendTo(rig.add(file), list));
        const QByteArray first = file.samples();
        file.serial = 9;
        QVERIFY(appendTo(rig.add(file), list));
        rig.merger->startMerge();
        // Blocks go to the end of the file. This is intended.
        QVERIFY(dataOfWav(rig.outputPath(kOutput)) == woven({first + list, file.samples() + list}, 2));
    }

    void aRecordBehindTheSamplesCounts()
    {
        TwoFiles rig;
        const QByteArray list = takeListOut(rig.secondPath);
        QVERIFY(list.contains("INVX") && appendTo(rig.secondPath, list));
        rig.merger->startMerge();
        // It says whose file it is, and its bytes are merged as samples as far as the other channel has a
        // half of them.
        const qint64 half = list.size() / 4 * 2;
        QVERIFY(
            rig.merged() ==
            woven({rig.first.samples() + QByteArray(half, '\0'), rig.second.samples() + list.left(half)}, 2));
        const auto record = recordOf(rig.outputPath(kOutput));
        QVERIFY(record);
        QCOMPARE(record->serialNo(2), uint16_t{9});
    }

    void partOfASample_data()
    {
        // Bytes "x" behind the samples of each of two channels, and what becomes of them.
        QTest::addColumn<int>("bits");
        QTest::addColumn<int>("firstMore");
        QTest::addColumn<int>("secondMore");
        QTest::addColumn<QByteArray>("firstEnd");
        QTest::addColumn<QByteArray>("secondEnd");
        const QByteArray none;
        // Eight bytes are one sample of each channel, but the first one has it only in part: it is zero.
        QTest::newRow("32 bits, 3 and 5 bytes") << 32 << 3 << 5 << QByteArray(4, '\0') << QByteArray(4, 'x');
        QTest::newRow("16 bits, 3 bytes and 1") << 16 << 3 << 1 << QByteArray(2, 'x') << QByteArray(2, '\0');
        QTest::newRow("24 bits, 1 byte and 5") << 24 << 1 << 5 << QByteArray(3, '\0') << QByteArray(3, 'x');
        // The bytes of both are no whole sample for each.
        QTest::newRow("16 bits, a byte each") << 16 << 1 << 1 << none << none;
        QTest::newRow("16 bits, a byte in one") << 16 << 0 << 1 << none << none;
        QTest::newRow("24 bits, a sample in one") << 24 << 3 << 2 << none << none;
    }
    void partOfASample()
    {
        QFETCH(int, bits);
        QFETCH(int, firstMore);
        QFETCH(int, secondMore);
        QFETCH(QByteArray, firstEnd);
        QFETCH(QByteArray, secondEnd);
        MergeFile like;
        like.bits = static_cast<unsigned char>(bits);
        TwoFiles rig(like);
        QVERIFY(appendTo(rig.firstPath, QByteArray(firstMore, 'x')));
        QVERIFY(appendTo(rig.secondPath, QByteArray(secondMore, 'x')));
        rig.merger->startMerge();
        QVERIFY(rig.merged() ==
                woven({rig.first.samples() + firstEnd, rig.second.samples() + secondEnd}, bits / 8));
        QCOMPARE(wholeFileObjection(rig.outputPath(kOutput)), QString());
    }

    void entriesWithoutAChannelAreSkipped()
    {
        MergeRig rig;
        rig.merger->setChannels({7});
        MergeFile file;
        file.serial = 7;
        file.seconds = 59;
        rig.add(file);
        file.seconds = 60;
        file.stamp = QStringLiteral("20240229_124100");
        rig.add(file);
        rig.merger->startMerge();
        QVERIFY(rig.logLines().contains(QStringLiteral("No channel to merge at 2024-02-29 12:40:00.")));
        QCOMPARE(rig.outputs(), QStringList{QStringLiteral("MERGED_20240229_124100.wav")});
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavMergerRun)
#include "tst_NvxWavMergerRun.moc"
