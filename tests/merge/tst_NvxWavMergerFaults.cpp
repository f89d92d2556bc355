#include "FileSwap.h"
#include "MergeParts.h"

#include "WavJudge.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTimer>
#include <QtEndian>

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr quint32 kMaxInt = 0x7FFFFFFF;
constexpr quint32 kHigh = 0x80000000;
constexpr quint32 kMax = 0xFFFFFFFF;

QByteArray bytesOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool replaceBy(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

/// Bytes that are allocated now. An AddressSanitizer, which keeps what was freed, has a heap of its own.
qint64 allocatedBytes()
{
    const auto heap = mallinfo2();
    return static_cast<qint64>(heap.uordblks + heap.hblkhd);
}

/// Bytes of this process that lie in memory now.
qint64 residentBytes()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    return file.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE);
}

} // namespace

/// Inputs and disks that do what nobody wants. CTest ends a test that doesn't end by itself.
class tst_NvxWavMergerFaults : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void memoryDoesNotGrowWithTheFiles()
    {
        MergeRig rig;
        QList<uint16_t> serials;
        for (uint16_t serial = 1; serial <= 4; ++serial) {
            MergeFile file;
            file.serial = serial;
            file.bits = 24;
            file.rate = 32000;
            rig.add(file);
            serials << serial;
        }
        rig.merger->setChannels(serials);
        const qint64 before = residentBytes();
        qint64 most = before;
        int blocks = 0;
        keepCalling(rig.merger.get(), [&] {
            ++blocks;
            if (blocks % 16 == 0)
                most = std::max(most, residentBytes());
        });
        rig.merger->startMerge();
        QCOMPARE(blocks, 469);
        QVERIFY(QFileInfo(rig.outputPath(kOutput)).size() > 23040000);
        QVERIFY2(most - before < (8 << 20), qPrintable(QString::number(most - before)));
    }

    void memoryDoesNotGrowWithTheirNumber()
    {
        // Sixteen KiB are read of each of 1000 entries.
        MergeRig rig;
        rig.merger->setChannels({7});
        rig.merger->setFileLength(0);
        rig.merger->setEndTime(utc(12, 40).addSecs(60 * 1000));
        MergeFile file;
        file.serial = 7;
        file.bits = 32;
        file.rate = 8000;
        file.seconds = 0;
        file.moreFrames = kBlock;
        const QByteArray wave = bytesOf(writeMergeFile(rig.inputDir(), file));
        for (int minute = 0; minute < 1000; ++minute) {
            file.stamp = utc(12, 40).addSecs(60 * minute).toString(QStringLiteral("yyyyMMdd_hhmmss"));
            const QString path = rig.inputDir() + QLatin1Char('/') + file.baseName();
            QVERIFY(replaceBy(path, wave));
            rig.merger->addFile(path);
        }
        QList<qint64> allocated;
        keepCalling(rig.merger.get(), [&allocated] { allocated << allocatedBytes(); });
        rig.merger->startMerge();
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
        QCOMPARE(allocated.size(), 1000);
        const qint64 growth = allocated.last() - allocated.first();
        QVERIFY2(growth < (1 << 20), qPrintable(QString::number(growth)));
    }

    // --- rainy day flows
    void inputsThatAreNoWaveFiles_data()
    {
        QTest::addColumn<QString>("kind");
        for (const char* kind : {"missing", "directory", "empty", "text", "device without an end",
                                 "device without bytes", "pipe", "dangling link"})
            QTest::newRow(kind) << QString::fromLatin1(kind);
    }
    void inputsThatAreNoWaveFiles()
    {
        QFETCH(QString, kind);
        TwoFiles rig;
        const QString path = rig.inputDir() + QStringLiteral("/ABC0007_20240229_124500.wav");
        if (kind == QLatin1String("directory"))
            QVERIFY(QDir().mkpath(path));
        else if (kind == QLatin1String("empty"))
            QVERIFY(replaceBy(path, {}));
        else if (kind == QLatin1String("text"))
            QVERIFY(replaceBy(path, "no wave file"));
        else if (kind == QLatin1String("device without an end"))
            QVERIFY(QFile::link(QStringLiteral("/dev/zero"), path));
        else if (kind == QLatin1String("device without bytes"))
            QVERIFY(QFile::link(QStringLiteral("/dev/null"), path));
        else if (kind == QLatin1String("pipe"))
            QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        else if (kind == QLatin1String("dangling link"))
            QVERIFY(QFile::link(QStringLiteral("nowhere"), path));
        rig.merger->addFile(path);
        rig.merger->startMerge();
        QCOMPARE(rig.logLinesWith(QStringLiteral("unsupported device")),
                 QStringList{
                     QStringLiteral("Error building merge plan: Wav file is from an unsupported device: ") +
                     path});
        // The others are merged all the same.
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
        QVERIFY(rig.merged() == woven({rig.first.samples(), rig.second.samples()}, 2));
    }

    void everyTruncation()
    {
        const TwoFiles whole(tinyFile());
        const QByteArray firstBytes = bytesOf(whole.firstPath);
        const QByteArray bytes = bytesOf(whole.secondPath);
        const qint64 header = viewRiff(whole.secondPath).headerSize();
        QCOMPARE(bytes.size(), header + 20);
        // One merge with a minute for each size.
        TwoChannels rig;
        rig.merger->setFileLength(0);
        rig.merger->setEndTime(utc(12, 40).addSecs(60 * bytes.size()));
        QStringList stamps;
        QStringList seconds;
        for (qsizetype size = 0; size <= bytes.size(); ++size) {
            stamps << utc(12, 40).addSecs(60 * size).toString(QStringLiteral("yyyyMMdd_hhmmss"));
            const QString first = rig.inputDir() + QStringLiteral("/ABC0007_") + stamps.last();
            seconds << rig.inputDir() + QStringLiteral("/ABC0009_") + stamps.last();
            QVERIFY(replaceBy(first, firstBytes) && replaceBy(seconds.last(), bytes.left(size)));
            rig.merger->addFile(first);
            rig.merger->addFile(seconds.last());
        }
        rig.merger->startMerge();
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
        QCOMPARE(rig.outputs().size(), stamps.size());
        const QStringList unsupported = rig.logLinesWith(QStringLiteral("unsupported device"));
        QCOMPARE(unsupported.size(), qsizetype{header});
        for (qsizetype size = 0; size <= bytes.size(); ++size) {
            const QString path =
                rig.outputPath(QStringLiteral("MERGED_") + stamps.at(size) + QStringLiteral(".wav"));
            if (size < header) {
                QVERIFY(unsupported.at(size).endsWith(seconds.at(size)));
                QVERIFY(dataOfWav(path) == whole.first.samples());
                continue;
            }
            QCOMPARE(wholeFileObjection(path), QString());
            // The sum of both channels, in whole samples, is shared out evenly.
            const qint64 frames = (20 + size - header) / 2 / 2;
            QByteArray second = whole.second.samples().left((size - header) / 2 * 2);
            second = second.leftJustified(frames * 2, '\0', true);
            QVERIFY(dataOfWav(path) == woven({whole.first.samples().left(frames * 2), second}, 2));
        }
    }

    void sizesThatCannotBe_data()
    {
        QTest::addColumn<int>("offset");
        QTest::addColumn<int>("width");
        QTest::addColumn<quint32>("value");
        QTest::addColumn<QString>("end");
        // What is told of the file; nothing when it is merged.
        const QString merged;
        const QString unsupported = QStringLiteral("unsupported device");
        const QString unassigned = QStringLiteral("from a device (0)");
        const QString length = QStringLiteral("doesn't match merge file length");
        const QString refused = QStringLiteral("refused");
        const struct
        {
            const char* name;
            int offset; // below 0: from the samples on backwards
            int width;
            QString end;
            QMap<quint32, QString> others;
        } fields[] = {
            {"RIFF size", 4, 4, merged, {}},
            {"format size", 16, 4, unsupported, {}},
            {"format tag", 20, 2, unsupported, {{1, merged}}},
            {"channels", 22, 2, unsupported, {{1, merged}}},
            {"rate",
             24,
             4,
             merged,
             {{0, unsupported}, {kMaxInt, refused}, {kHigh, refused}, {kMax, refused}}},
            // Ten samples are 20 seconds of one byte each, and two of eight.
            {"bytes per second", 28, 4, merged, {{1, length}, {8, length}}},
            {"bytes of a frame", 32, 2, unsupported, {}},
            {"bits", 34, 2, unsupported, {}},
            {"list size", 40, 4, unsupported, {}},
            {"size of the first entry", 52, 4, unassigned, {{64, merged}}},
            // Samples go to the end of the file.
            {"data size", -4, 4, merged, {}},
        };
        for (const auto& field : fields) {
            for (quint32 value : {0U, 1U, 8U, 64U, 65535U, kMaxInt, kHigh, kMax}) {
                if (field.width == 4 || value <= 65535)
                    QTest::addRow("%s %u", field.name, value)
                        << field.offset << field.width << value << field.others.value(value, field.end);
            }
        }
    }
    void sizesThatCannotBe()
    {
        QFETCH(int, offset);
        QFETCH(int, width);
        QFETCH(quint32, value);
        QFETCH(QString, end);
        for (const bool isFirst : {true, false}) {
            TwoFiles rig(tinyFile());
            rig.merger->setFileLength(0);
            const QString path = isFirst ? rig.firstPath : rig.secondPath;
            const auto at =
                static_cast<qsizetype>(offset < 0 ? viewRiff(path).headerSize() + offset : offset);
            QByteArray bytes = bytesOf(path);
            QByteArray field(4, '\0');
            qToLittleEndian(value, field.data());
            bytes.replace(at, width, field.left(width));
            QVERIFY(replaceBy(path, bytes));
            rig.merger->startMerge();
            // The first channel's format is that of the output, which the writer may not take.
            if (end == QLatin1String("refused") && isFirst) {
                QCOMPARE(rig.signalsSeen.last(),
                         QStringLiteral("failed: The format of the samples does not fit the wave file.") +
                             kAdvice);
                QVERIFY(rig.outputs().isEmpty());
                continue;
            }
            QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
            if (end.isEmpty() || end == QLatin1String("refused")) {
                QVERIFY(rig.merged() == woven({rig.first.samples(), rig.second.samples()}, 2));
                continue;
            }
            QCOMPARE(rig.logLinesWith(end).filter(path).size(), 1);
            QVERIFY(rig.merged() == (isFirst ? rig.second : rig.first).samples());
        }
    }

    void inputsThatVanishAheadOfTheMerge_data()
    {
        QTest::addColumn<QString>("kind");
        for (const char* kind : {"missing", "directory", "empty", "device without an end", "pipe"})
            QTest::newRow(kind) << QString::fromLatin1(kind);
    }
    void inputsThatVanishAheadOfTheMerge()
    {
        QFETCH(QString, kind);
        TwoFiles rig;
        rig.beforeMerging([&rig, kind] {
            QVERIFY(QFile::remove(rig.secondPath));
            if (kind == QLatin1String("directory"))
                QVERIFY(QDir().mkpath(rig.secondPath));
            else if (kind == QLatin1String("empty"))
                QVERIFY(replaceBy(rig.secondPath, {}));
            else if (kind == QLatin1String("device without an end"))
                QVERIFY(QFile::link(QStringLiteral("/dev/zero"), rig.secondPath));
            else if (kind == QLatin1String("pipe"))
                QCOMPARE(mkfifo(QFile::encodeName(rig.secondPath).constData(), 0600), 0);
        });
        rig.merger->startMerge();
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
        // A block with nothing from one channel is half as long, and the last one.
        const qint64 bytes = kBlock / 2 * 2;
        QVERIFY(rig.merged() == woven({rig.first.samples().left(bytes), QByteArray(bytes, '\0')}, 2));
    }

    void inputsThatAllVanish()
    {
        TwoFiles rig;
        rig.beforeMerging([&rig] {
            QVERIFY(QFile::remove(rig.firstPath));
            QVERIFY(QFile::remove(rig.secondPath));
        });
        rig.merger->startMerge();
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
        QCOMPARE(wholeFileObjection(rig.outputPath(kOutput)), QString());
        QVERIFY(rig.merged().isEmpty());
    }

    void inputThatCannotBeReadAnyMore_data()
    {
        QTest::addColumn<bool>("isDirectory");
        QTest::newRow("a directory") << true;
        QTest::newRow("its size says that there is more") << false;
    }
    void inputThatCannotBeReadAnyMore()
    {
        QFETCH(bool, isDirectory);
        TwoFiles rig;
        // A file that is as long as the input, but open for writing only.
        const QString copy = rig.inputDir() + QStringLiteral("/copy");
        QVERIFY(QFile::copy(rig.secondPath, copy));
        const int other = isDirectory ? open("/", O_RDONLY | O_DIRECTORY)
                                      : open(QFile::encodeName(copy).constData(), O_WRONLY);
        const auto closeIt = qScopeGuard([other] { close(other); });
        bool isSwapped = false;
        QTimer::singleShot(0, rig.merger.get(), [&] { isSwapped = swapOpenFile(rig.secondPath, other); });
        rig.merger->startMerge();
        QVERIFY(isSwapped);
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
        // The first block is whole, the next one has only the first channel.
        const qint64 frames = kBlock + kBlock / 2;
        QVERIFY(rig.merged() == woven({rig.first.samples().left(frames * 2),
                                       rig.second.samples().left(kBlock * 2) + QByteArray(kBlock, '\0')},
                                      2));
    }

    void inputThatShrinks()
    {
        TwoFiles rig;
        bool isCut = false;
        QTimer::singleShot(0, rig.merger.get(), [&] { isCut = QFile::resize(rig.secondPath, 1000); });
        rig.merger->startMerge();
        QVERIFY(isCut);
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
        QCOMPARE(wholeFileObjection(rig.outputPath(kOutput)), QString());
        QCOMPARE(judgeWav(rig.outputPath(kOutput)).frames, kBlock + kBlock / 2);
    }

    void fullDisk_data()
    {
        QTest::addColumn<qint64>("room");
        QTest::newRow("in the header") << qint64{200};
        QTest::newRow("in the first block") << qint64{10001};
        QTest::newRow("in the second block") << qint64{60003};
        QTest::newRow("for all but the padding") << qint64{-1};
    }
    void fullDisk()
    {
        QFETCH(qint64, room);
        MergeFile like;
        like.bits = 24;
        like.moreFrames = 1;
        qint64 size = 0;
        {
            MergeRig one;
            one.merger->setChannels({7});
            like.serial = 7;
            one.add(like);
            one.merger->startMerge();
            size = QFileInfo(one.outputPath(kOutput)).size();
            QVERIFY(size > 36000);
        }
        MergeRig rig;
        rig.merger->setChannels({7});
        rig.add(like);
        like.stamp = QStringLiteral("20240229_124100");
        rig.add(like);
        qint64 seen = 0;
        {
            if (room < 0)
                QTest::ignoreMessage(QtWarningMsg,
                                     QRegularExpression(QStringLiteral(
                                         "MERGED_20240229_124000.wav is not complete: The disk")));
            const FileSizeLimit full(static_cast<rlim_t>(room < 0 ? size - 1 : std::min(room, size - 5000)));
            rig.merger->startMerge();
            seen = rig.outputs().isEmpty() ? 0 : QFileInfo(rig.outputPath(kOutput)).size();
        }
        // One signal, and nothing behind it: no line of the log, no further file.
        QCOMPARE(rig.signalsAfterLog(),
                 (QStringList{QStringLiteral("status: Building merge plan..."),
                              QStringLiteral("status: Starting Merge."),
                              QStringLiteral("status: Merging file: MERGED_20240229_124000"),
                              QStringLiteral("failed: The disk is full.") + kAdvice}));
        QVERIFY(rig.logLinesWith(QStringLiteral("merged.")).isEmpty());
        QVERIFY(rig.logLinesWith(QStringLiteral("Complete")).isEmpty());
        if (room == 200) {
            QVERIFY(rig.outputs().isEmpty());
            return;
        }
        QCOMPARE(rig.outputs(), QStringList{kOutput});
        if (room > 0)
            QVERIFY(descriptorOf(rig.merger->fileList().first()) >= 0); // intended
        // What found room can be played.
        const JudgedWav wav = judgeWav(rig.outputPath(kOutput));
        QCOMPARE(wav.error, QString());
        QVERIFY(wav.frames > 0);
        QVERIFY(seen - qint64(dataOfWav(rig.outputPath(kOutput)).size()) < 1000);
    }

    void depthsThatCannotBeWritten_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<bool>("isFirst");
        for (const int bits : {8, 12, 20}) {
            QTest::addRow("%d bits, first channel", bits) << bits << true;
            QTest::addRow("%d bits, second channel", bits) << bits << false;
        }
    }
    void depthsThatCannotBeWritten()
    {
        QFETCH(int, bits);
        QFETCH(bool, isFirst);
        MergeFile like;
        like.bits = bits > 16 ? 24 : 16;
        TwoFiles rig(like);
        MergeFile later = like;
        later.serial = 7;
        later.stamp = QStringLiteral("20240229_124100");
        rig.add(later);
        QFile file(isFirst ? rig.firstPath : rig.secondPath);
        QVERIFY(file.open(QIODevice::ReadWrite));
        if (bits == 8) {
            // As many bytes, twice as many samples a second: 400 Hz.
            const QByteArray format("\x90\1\0\0\x90\1\0\0\1\0", 10);
            QVERIFY(file.seek(24) && file.write(format) == format.size());
        }
        QVERIFY(file.seek(34) && file.putChar(static_cast<char>(bits)));
        file.close();
        rig.merger->startMerge();
        if (!isFirst) {
            // Its bytes are read by the first channel's format.
            QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
            QVERIFY(rig.merged() == woven({rig.first.samples(), rig.second.samples()}, like.bits / 8));
            return;
        }
        // The plan takes it, the writer doesn't, and that ends the merge. This is intended.
        QCOMPARE(rig.logLinesWith(QStringLiteral("\tChannel 1: ")).size(), 2);
        QCOMPARE(rig.signalsSeen.last(),
                 QStringLiteral("failed: The format of the samples does not fit the wave file.") + kAdvice);
        QVERIFY(rig.outputs().isEmpty());
    }

    void noDirectoryForTheOutput()
    {
        TwoFiles rig;
        rig.merger->setOutputDir(rig.outputDir() + QStringLiteral("/missing"));
        rig.merger->startMerge();
        QCOMPARE(rig.signalsSeen.last(),
                 QStringLiteral("failed: The wave file cannot be created in the recording directory.") +
                     kAdvice);
        QVERIFY(!rig.signalsSeen.contains(QStringLiteral("complete")));
    }

    void directoryThatVanishesAheadOfTheMerge()
    {
        TwoFiles rig;
        rig.beforeMerging(
            [&rig] { QVERIFY(QDir().rename(rig.outputDir(), rig.outputDir() + QStringLiteral("-gone"))); });
        rig.merger->startMerge();
        QCOMPARE(rig.signalsSeen.last(),
                 QStringLiteral("failed: The wave file cannot be created in the recording directory.") +
                     kAdvice);
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavMergerFaults)
#include "tst_NvxWavMergerFaults.moc"
