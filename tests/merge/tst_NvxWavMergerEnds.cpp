#include "FileSwap.h"
#include "MergeParts.h"

#include "WavJudge.h"
#include "tests/support/Buried.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTimer>

#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace {

using BuriedMerger = Buried<NvxWavMerger>;

} // namespace

/// Merges that don't go on to their end: aborted ones, and mergers that change or are gone in the middle.
class tst_NvxWavMergerEnds : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void abortBetweenBlocks()
    {
        MergeRig rig;
        rig.merger->setChannels({7, 9});
        MergeFile file;
        file.bits = 24;
        file.rate = 300;
        for (const char* stamp : {"20240229_124000", "20240229_124100"}) {
            for (uint16_t serial : {7, 9}) {
                file.stamp = QLatin1String(stamp);
                file.serial = serial;
                rig.add(file);
            }
        }
        QTimer::singleShot(0, rig.merger.get(), [&rig] { rig.merger->abortMerge(); });
        rig.merger->startMerge();
        QCOMPARE(rig.signalsSeen.mid(rig.signalsSeen.size() - 2),
                 (QStringList{QStringLiteral("status: Merging file: MERGED_20240229_124000"),
                              QStringLiteral("aborted")}));
        // The short file is complete, and counts as merged. This is intended.
        QCOMPARE(rig.logLines().mid(rig.logLines().size() - 3),
                 (QStringList{QStringLiteral("Created file: MERGED_20240229_124000"),
                              QStringLiteral("MERGED_20240229_124000 merged."),
                              QStringLiteral("Merge Aborted!")}));
        QCOMPARE(rig.outputs(), QStringList{kOutput});
        QCOMPARE(wholeFileObjection(rig.outputPath(kOutput)), QString());
        file.stamp = QStringLiteral("20240229_124000");
        file.serial = 7;
        const QByteArray first = file.samples();
        file.serial = 9;
        QVERIFY(dataOfWav(rig.outputPath(kOutput)) ==
                woven({first.left(kBlock * 3), file.samples().left(kBlock * 3)}, 3));
    }

    void abortAheadOfTheFirstBlock()
    {
        MergeRig rig;
        rig.merger->setChannels({7});
        MergeFile file;
        file.serial = 7;
        rig.add(file);
        NvxWavMerger* const merger = rig.merger.get();
        connect(merger, &NvxWavMerger::mergeStatusMsg, merger, [merger](const QString& status) {
            if (status.startsWith(QLatin1String("Merging file")))
                std::thread([merger] { merger->abortMerge(); }).join();
        });
        rig.merger->startMerge();
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("aborted"));
        QCOMPARE(wholeFileObjection(rig.outputPath(kOutput)), QString());
        QCOMPARE(judgeWav(rig.outputPath(kOutput)).frames, qint64{0});
        QVERIFY(rig.logLines().contains(QStringLiteral("MERGED_20240229_124000 merged.")));
    }

    void abortWhileABlockIsRead()
    {
        MergeFile like;
        like.bits = 32;
        TwoFiles rig(like);
        // From the second block on the first input is a pipe. Somebody who fills it knows by a write that
        // ends that the merger is reading, and lets it go on when it has been told to abort.
        int ends[2];
        QCOMPARE(pipe(ends), 0);
        const QByteArray page(fcntl(ends[1], F_SETPIPE_SZ, 4096), 'x');
        QCOMPARE(write(ends[1], page.constData(), size_t(page.size())), page.size());
        bool isSwapped = false;
        bool isRead = false;
        std::thread writer;
        QTimer::singleShot(0, rig.merger.get(), [&] {
            isSwapped = swapOpenFile(rig.firstPath, ends[0]);
            close(ends[0]);
            writer = std::thread([&] {
                isRead = write(ends[1], page.constData(), size_t(page.size())) == page.size();
                rig.merger->abortMerge();
                close(ends[1]);
            });
        });
        rig.merger->startMerge();
        QVERIFY(writer.joinable());
        writer.join();
        QVERIFY(isSwapped && isRead);
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("aborted"));
        // The block that was read is dropped.
        QVERIFY(rig.merged() ==
                woven({rig.first.samples().left(kBlock * 4), rig.second.samples().left(kBlock * 4)}, 4));
        QVERIFY(rig.logLines().contains(QStringLiteral("MERGED_20240229_124000 merged.")));
    }

    void abortStays()
    {
        TwoFiles rig;
        rig.merger->abortMerge();
        for (int i = 0; i < 2; ++i) {
            rig.signalsSeen.clear();
            rig.merger->startMerge();
            // Nothing takes it back: an object serves one merge. This is intended.
            QCOMPARE(rig.signalsSeen.last(), QStringLiteral("aborted"));
            QVERIFY(rig.outputs().isEmpty());
        }
    }

    void abortAheadOfTheMerge()
    {
        MergeRig rig;
        rig.merger->setChannels({7});
        MergeFile file;
        file.serial = 7;
        rig.add(file);
        rig.merger->abortMerge();
        rig.merger->startMerge();
        QVERIFY(rig.outputs().isEmpty());
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("aborted"));
        QCOMPARE(rig.logLines().last(), QStringLiteral("Merge Aborted!"));
        QVERIFY(!rig.signalsSeen.contains(QStringLiteral("complete")));
    }

    // --- rainy day flows
    void aSecondStartIsIgnored()
    {
        TwoFiles rig;
        NvxWavMerger* const merger = rig.merger.get();
        QTimer::singleShot(0, merger, [merger] { merger->startMerge(); });
        connect(merger, &NvxWavMerger::mergeComplete, merger, [merger] { merger->startMerge(); });
        qsizetype statuses = 0;
        connect(merger, &NvxWavMerger::mergeStatusMsg, merger, [&] { ++statuses, merger->startMerge(); });
        merger->startMerge();
        QCOMPARE(rig.logLinesWith(QStringLiteral("A merge is already running.")).size(), 2 + statuses);
        QCOMPARE(rig.signalsSeen.filter(QStringLiteral("Merge Log File")).size(), 1);
        QCOMPARE(rig.signalsSeen.count(QStringLiteral("complete")), 1);
        QCOMPARE(rig.outputs(), QStringList{kOutput});
        QVERIFY(rig.merged() == woven({rig.first.samples(), rig.second.samples()}, 2));
    }

    void removingFilesInTheMiddle_data()
    {
        QTest::addColumn<bool>("inEvents");
        QTest::newRow("between blocks") << true;
        QTest::newRow("ahead of the first block") << false;
    }
    void removingFilesInTheMiddle()
    {
        QFETCH(bool, inEvents);
        TwoFiles rig;
        const auto removeAll = [&rig] {
            for (int i = 0; i < 2; ++i) {
                rig.merger->removeFile(rig.firstPath);
                rig.merger->removeFile(rig.secondPath);
            }
        };
        if (inEvents)
            QTimer::singleShot(0, rig.merger.get(), removeAll);
        else
            rig.beforeMerging(removeAll);
        rig.merger->startMerge();
        // The plan stands.
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
        QVERIFY(rig.merged() == woven({rig.first.samples(), rig.second.samples()}, 2));
        QCOMPARE(rig.merger->numFiles(), 2);
        // They are no longer among the opened ones: a second build takes them for new.
        rig.merger->startMerge();
        QCOMPARE(rig.logLinesWith(QStringLiteral("Adding file to merge plan")).size(), 4);
    }

    void removedByItsAbsolutePathOnly_data()
    {
        QTest::addColumn<bool>("isAbsolute");
        QTest::addColumn<bool>("removesAbsolute");
        QTest::addColumn<bool>("isRemoved");
        QTest::newRow("both absolute") << true << true << true;
        QTest::newRow("removed by a relative name") << true << false << true;
        QTest::newRow("added by a relative name") << false << true << false;
        QTest::newRow("both relative") << false << false << false;
    }
    void removedByItsAbsolutePathOnly()
    {
        QFETCH(bool, isAbsolute);
        QFETCH(bool, removesAbsolute);
        QFETCH(bool, isRemoved);
        MergeRig rig;
        const QString before = QDir::currentPath();
        const auto goBack = qScopeGuard([before] { QDir::setCurrent(before); });
        QVERIFY(QDir::setCurrent(rig.inputDir()));
        const QString path = writeMergeFile(rig.inputDir(), {});
        const QString name = QFileInfo(path).fileName();
        rig.merger->addFile(isAbsolute ? path : name);
        rig.merger->startMerge();
        rig.merger->removeFile(removesAbsolute ? path : name);
        rig.merger->startMerge();
        QCOMPARE(rig.logLinesWith(QStringLiteral("Adding file to merge plan")).size(), isRemoved ? 2 : 1);
    }

    void deletionUnderASignal_data()
    {
        QTest::addColumn<QString>("trigger");
        for (const char* trigger :
             {"status: Merge Log File: ", "status: Building", "status: Starting", "status: Merging",
              "complete", "aborted", "failed: No files", "failed: The"})
            QTest::newRow(trigger) << QString::fromLatin1(trigger);
    }
    void deletionUnderASignal()
    {
        QFETCH(QString, trigger);
        TwoChannels rig(std::make_unique<BuriedMerger>());
        NvxWavMerger* const victim = rig.merger.get();
        MergeFile file;
        file.serial = 7;
        if (!trigger.startsWith(QLatin1String("failed: No")))
            rig.add(file);
        if (trigger == QLatin1String("aborted"))
            victim->abortMerge();
        if (trigger == QLatin1String("failed: The"))
            victim->setOutputDir(QStringLiteral("/nowhere"));
        const auto look = [&rig, trigger] {
            if (!rig.signalsSeen.isEmpty() && rig.signalsSeen.last().startsWith(trigger))
                rig.merger.reset();
        };
        connect(victim, &NvxWavMerger::mergeStatusMsg, victim, look);
        connect(victim, &NvxWavMerger::mergeFailed, victim, look);
        connect(victim, &NvxWavMerger::mergeAborted, victim, look);
        connect(victim, &NvxWavMerger::mergeComplete, victim, look);
        victim->startMerge();
        QVERIFY(BuriedMerger::isGone() && BuriedMerger::isUntouched());
        QVERIFY(rig.signalsSeen.last().startsWith(trigger));
    }

    void deletionWhenTheDiskIsFull_data()
    {
        QTest::addColumn<int>("missing");
        QTest::addColumn<bool>("isWarned");
        QTest::newRow("in a block") << 6000 << false;
        // Its header and all samples found room, but the byte that makes their number even didn't.
        QTest::newRow("at the end of the file") << 1 << true;
    }
    void deletionWhenTheDiskIsFull()
    {
        QFETCH(int, missing);
        QFETCH(bool, isWarned);
        MergeFile like;
        like.bits = 24;
        like.serial = 7;
        like.moreFrames = 1;
        MergeRig whole;
        whole.merger->setChannels({7});
        whole.add(like);
        whole.merger->startMerge();
        const qint64 size = QFileInfo(whole.outputPath(kOutput)).size();
        QVERIFY(size > 36000);

        TwoChannels rig(std::make_unique<BuriedMerger>());
        rig.add(like);
        NvxWavMerger* const victim = rig.merger.get();
        connect(victim, &NvxWavMerger::mergeFailed, victim, [&rig] { rig.merger.reset(); });
        if (isWarned)
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression(QStringLiteral("is not complete: The disk")));
        {
            const FileSizeLimit full(static_cast<rlim_t>(size - missing));
            victim->startMerge();
        }
        QVERIFY(BuriedMerger::isGone() && BuriedMerger::isUntouched());
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("failed: The disk is full.") + kAdvice);
        QVERIFY(rig.logLinesWith(QStringLiteral("merged.")).isEmpty());
        // What found room can be played.
        QCOMPARE(judgeWav(rig.outputPath(kOutput)).error, QString());
        QVERIFY(judgeWav(rig.outputPath(kOutput)).frames > kBlock);
    }

    void deletionBetweenBlocks_data()
    {
        QTest::addColumn<int>("block");
        QTest::newRow("first") << 1;
        QTest::newRow("second") << 2;
        QTest::newRow("last") << 3;
    }
    void deletionBetweenBlocks()
    {
        QFETCH(int, block);
        TwoFiles rig({}, std::make_unique<BuriedMerger>());
        NvxWavMerger* const merger = rig.merger.get();
        int calls = 0;
        QObject context;
        keepCalling(&context, [&] {
            if (++calls == block)
                rig.merger.reset();
        });
        merger->startMerge();
        QCOMPARE(calls, block);
        QVERIFY(BuriedMerger::isGone() && BuriedMerger::isUntouched());
        // The file in work is completed.
        QCOMPARE(wholeFileObjection(rig.outputPath(kOutput)), QString());
        QCOMPARE(judgeWav(rig.outputPath(kOutput)).frames, std::min<qint64>(block * kBlock, 12000));
        QVERIFY(rig.logLinesWith(QStringLiteral("merged.")).isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavMergerEnds)
#include "tst_NvxWavMergerEnds.moc"
