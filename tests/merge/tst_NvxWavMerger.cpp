#include "FileSwap.h"
#include "MergeParts.h"

#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

/// What is set up, what names say, and the log.
class tst_NvxWavMerger : public NvxTestCase
{
    Q_OBJECT

    /// Writes all logs that a merge may have as long as this test may last. Of the size, most is a hole.
    static void makeLogs(const MergeRig& rig, const QByteArray& content, qint64 size)
    {
        constexpr int mostSeconds = 300;
        const qint64 now = QDateTime::currentSecsSinceEpoch();
        for (qint64 time = now; time < now + mostSeconds; ++time) {
            const std::string name = HydUtil::dateTimeFname(std::string("MERGELOG_"), time) + ".txt";
            QFile file(rig.outputPath(QString::fromStdString(name)));
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size() &&
                    file.resize(size));
        }
    }

private Q_SLOTS:
    // --- happy flows
    void freshMerger()
    {
        const NvxWavMerger merger;
        QCOMPARE(merger.parent(), nullptr);
        QVERIFY(merger.getChannels().isEmpty());
        QCOMPARE(merger.numFiles(), 0);
        QVERIFY(merger.fileList().isEmpty());
        QCOMPARE(merger.fileLength(), 0);
        QVERIFY(!merger.startTime().isValid());
        QVERIFY(!merger.endTime().isValid());
        QVERIFY(merger.outputDir().isEmpty());
    }

    void plainValues()
    {
        NvxWavMerger merger;
        merger.setFileLength(10);
        merger.setStartTime(utc(12, 0));
        merger.setEndTime(utc(13, 0));
        merger.setOutputDir(QStringLiteral("somewhere"));
        QCOMPARE(merger.fileLength(), 10);
        QCOMPARE(merger.startTime(), utc(12, 0));
        QCOMPARE(merger.endTime(), utc(13, 0));
        QCOMPARE(merger.outputDir(), QStringLiteral("somewhere"));
    }

    void channelsOfRecorders()
    {
        NvxWavMerger merger;
        merger.setChannelDevice(3, 300);
        merger.setChannelDevice(1, 100);
        QCOMPARE(merger.getChannels(), (QList<uint16_t>{100, 300}));
        QCOMPARE(merger.deviceChannel(300), uint8_t{3});
        QCOMPARE(merger.deviceChannel(200), uint8_t{0});
        merger.setChannelDevice(3, 301);
        QCOMPARE(merger.getChannels(), (QList<uint16_t>{100, 301}));

        merger.setChannels({9, 8, 9});
        QCOMPARE(merger.getChannels(), (QList<uint16_t>{9, 8, 9}));
        QCOMPARE(merger.deviceChannel(8), uint8_t{2});
        QCOMPARE(merger.deviceChannel(9), uint8_t{1});
        QCOMPARE(merger.deviceChannel(100), uint8_t{0});
    }

    void listOfFiles()
    {
        NvxWavMerger merger;
        merger.addFile(QStringLiteral("b.wav"));
        merger.addFile(QStringLiteral("a.wav"));
        merger.addFile(QStringLiteral("b.wav"));
        const QList<QString> names{QStringLiteral("b.wav"), QStringLiteral("a.wav"), QStringLiteral("b.wav")};
        QCOMPARE(merger.fileList(), names);
        QCOMPARE(merger.numFiles(), 3);
        // Only opened files can be removed.
        merger.removeFile(QStringLiteral("a.wav"));
        QCOMPARE(merger.fileList(), names);
    }

    void serialNumbersInNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("serial");
        QTest::newRow("three letters") << QStringLiteral("ABC0042_20240229_124000") << 42;
        QTest::newRow("longer number") << QStringLiteral("ABC12345_20240229_124000") << 2345;
        QTest::newRow("five digits") << QStringLiteral("12345_x") << 2345;
        QTest::newRow("four characters") << QStringLiteral("1234_x") << 1234;
        QTest::newRow("three characters") << QStringLiteral("123_x") << 123;
        QTest::newRow("one character") << QStringLiteral("7") << 7;
        QTest::newRow("no separator") << QStringLiteral("ABC0042") << 42;
        QTest::newRow("letters among the last four") << QStringLiteral("ABC042") << 0;
        QTest::newRow("letters only") << QStringLiteral("MERGED_20240229_124000") << 0;
        QTest::newRow("empty first field") << QStringLiteral("_0042_1") << 0;
        QTest::newRow("empty") << QString() << 0;
    }
    void serialNumbersInNames()
    {
        QFETCH(QString, name);
        QFETCH(int, serial);
        QCOMPARE(NvxWavMerger::serialFromFname(name), serial);
    }

    void timesInNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QDateTime>("time");
        QTest::newRow("plain") << QStringLiteral("ABC0042_20240229_124007") << utc(12, 40, 7);
        QTest::newRow("a fourth field") << QStringLiteral("ABC0042_20240229_124007_2") << utc(12, 40, 7);
        QTest::newRow("no first field") << QStringLiteral("_20240229_124007") << utc(12, 40, 7);
        QTest::newRow("no time") << QStringLiteral("ABC0042_20240229") << QDateTime();
        QTest::newRow("no date") << QStringLiteral("ABC0042") << QDateTime();
        QTest::newRow("no such day") << QStringLiteral("ABC0042_20230229_124007") << QDateTime();
        QTest::newRow("no such hour") << QStringLiteral("ABC0042_20240229_244007") << QDateTime();
        QTest::newRow("date and time swapped") << QStringLiteral("ABC0042_124007_20240229") << QDateTime();
        QTest::newRow("short time") << QStringLiteral("ABC0042_20240229_1240") << QDateTime();
        QTest::newRow("with its ending") << QStringLiteral("ABC0042_20240229_124007.wav") << QDateTime();
        QTest::newRow("empty") << QString() << QDateTime();
    }
    void timesInNames()
    {
        QFETCH(QString, name);
        QFETCH(QDateTime, time);
        const QDateTime found = NvxWavMerger::datetimeFromFname(name);
        QCOMPARE(found.isValid(), time.isValid());
        QCOMPARE(found, time);
        if (time.isValid())
            QCOMPARE(found.timeSpec(), Qt::UTC);
    }

    void theWholeLog()
    {
        TwoChannels rig;
        MergeFile file;
        QStringList paths;
        for (const char* stamp : {"20240229_124000", "20240229_124500"}) {
            for (uint16_t serial : {9, 7}) {
                file.serial = serial;
                file.stamp = QLatin1String(stamp);
                paths << rig.add(file);
            }
        }
        rig.merger->startMerge();
        const QStringList expected{
            kStarted,
            QStringLiteral("Adding file to merge plan: ") + paths.at(0),
            QStringLiteral("Adding file to merge plan: ") + paths.at(1),
            QStringLiteral("Adding file to merge plan: ") + paths.at(2),
            QStringLiteral("Adding file to merge plan: ") + paths.at(3),
            kDetails,
            QStringLiteral("\tTime span:\t2 min"),
            QStringLiteral("\tFile length (minutes):\t1"),
            QStringLiteral("\tStart time:\t2024-02-29 12:40:00"),
            QStringLiteral("\tEnd time:\t2024-02-29 12:50:00"),
            kSummary,
            QStringLiteral("\t2024-02-29 12:40:00 (2 channels) "),
            QStringLiteral("\t\tChannel 1: ") + paths.at(1) + QStringLiteral(", "),
            QStringLiteral("\t\tChannel 2: ") + paths.at(0) + QStringLiteral(", "),
            QStringLiteral("\t2024-02-29 12:45:00 (2 channels) "),
            QStringLiteral("\t\tChannel 1: ") + paths.at(3) + QStringLiteral(", "),
            QStringLiteral("\t\tChannel 2: ") + paths.at(2) + QStringLiteral(", "),
            QStringLiteral("Created file: MERGED_20240229_124000"),
            QStringLiteral("MERGED_20240229_124000 merged."),
            QStringLiteral("Created file: MERGED_20240229_124500"),
            QStringLiteral("MERGED_20240229_124500 merged."),
            QStringLiteral("Merge Complete!"),
        };
        QCOMPARE(rig.logLines(), expected);
        QCOMPARE(rig.signalsSeen,
                 (QStringList{QStringLiteral("status: Merge Log File: ") + rig.logPaths().value(0),
                              QStringLiteral("status: Building merge plan..."),
                              QStringLiteral("status: Starting Merge."),
                              QStringLiteral("status: Merging file: MERGED_20240229_124000"),
                              QStringLiteral("status: Merging file: MERGED_20240229_124500"),
                              QStringLiteral("complete")}));
    }

    void theLogIsNamedByItsTime()
    {
        MergeRig rig;
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        rig.merger->startMerge();
        const qint64 after = QDateTime::currentSecsSinceEpoch();
        const QString name = QFileInfo(rig.logPaths().value(0)).baseName();
        QVERIFY2(name.startsWith(QLatin1String("MERGELOG_")), qPrintable(name));
        const qint64 time = NvxWavMerger::datetimeFromFname(name).toSecsSinceEpoch();
        QVERIFY(time >= before && time <= after);
    }

    void logsThatExistAreContinued()
    {
        MergeRig rig;
        makeLogs(rig, "before\n", 7);
        rig.merger->startMerge();
        const QString path = rig.signalsSeen.first().mid(24);
        QFile file(path);
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
        const QByteArray text = file.readAll();
        QVERIFY2(text.startsWith("before\n["), text.constData());
        QVERIFY(text.endsWith("]: Merge Complete!\n"));
    }

    void eachMergeHasItsLog()
    {
        MergeRig rig;
        rig.merger->startMerge();
        const QString first = rig.signalsSeen.first().mid(24);
        const qint64 size = QFileInfo(first).size();
        QVERIFY(size > 0 && descriptorOf(first) >= 0);
        const QString other = rig.outputDir() + QStringLiteral("/other");
        QVERIFY(QDir().mkpath(other));
        rig.merger->setOutputDir(other);
        rig.signalsSeen.clear();
        rig.merger->startMerge();
        const QString second = rig.signalsSeen.first().mid(24);
        QCOMPARE(QFileInfo(second).absolutePath(), other);
        QCOMPARE(QFileInfo(second).size(), size);
        // The first one is closed.
        QCOMPARE(descriptorOf(first), -1);
        QCOMPARE(QFileInfo(first).size(), size);
    }

    // --- rainy day flows
    void moreChannelsThanThereAreNumbers()
    {
        NvxWavMerger merger;
        QList<uint16_t> serials;
        for (uint16_t i = 0; i < 300; ++i)
            serials << static_cast<uint16_t>(1000 + i);
        merger.setChannels(serials);
        QCOMPARE(merger.getChannels(), serials.mid(0, 255));
        QCOMPARE(merger.deviceChannel(1254), uint8_t{255});
        QCOMPARE(merger.deviceChannel(1255), uint8_t{0});
    }

    void noFiles()
    {
        MergeRig rig;
        rig.merger->startMerge();
        // The run follows on the failure. This is intended.
        QCOMPARE(rig.signalsAfterLog(),
                 (QStringList{
                     QStringLiteral("status: Building merge plan..."),
                     QStringLiteral("failed: No files were found that matched the merge criteria."),
                     QStringLiteral("status: Starting Merge."),
                     QStringLiteral("complete"),
                 }));
        QCOMPARE(rig.logLines(), (QStringList{kStarted, QStringLiteral("Merge Complete!")}));
    }

    void logThatCannotBeMade()
    {
        TwoChannels rig;
        rig.merger->setOutputDir(rig.outputDir() + QStringLiteral("/missing"));
        rig.merger->startMerge();
        // Nobody looks at it. This is intended.
        QVERIFY(rig.signalsSeen.first().startsWith(QStringLiteral("status: Merge Log File: ")));
        QVERIFY(!QFile::exists(rig.signalsSeen.first().mid(24)));
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
    }

    void logOnADiskThatIsFull()
    {
        // The logs there may be are as large as any file can get, and the outputs are smaller.
        constexpr qint64 size = 100000;
        TwoFiles rig;
        makeLogs(rig, {}, size);
        {
            const FileSizeLimit full(size);
            rig.merger->startMerge();
        }
        QCOMPARE(QFileInfo(rig.signalsSeen.first().mid(24)).size(), size);
        // Nobody looks at it. This is intended.
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
        QVERIFY(rig.merged() == woven({rig.first.samples(), rig.second.samples()}, 2));
    }

    void logOnADiskThatIsFullForAWhile()
    {
        TwoFiles rig;
        auto full = std::make_unique<FileSizeLimit>(100);
        rig.beforeMerging([&full] { full.reset(); });
        rig.merger->startMerge();
        // Lines that found no room come later.
        const QStringList lines = rig.logLines();
        QCOMPARE(lines.first(), kStarted);
        QCOMPARE(lines.filter(QStringLiteral("Adding file to merge plan: ")).size(), 2);
        QCOMPARE(lines.mid(lines.size() - 4),
                 (QStringList{QStringLiteral("\t\tChannel 2: %1, ").arg(rig.secondPath),
                              QStringLiteral("Created file: MERGED_20240229_124000"),
                              QStringLiteral("MERGED_20240229_124000 merged."),
                              QStringLiteral("Merge Complete!")}));
    }

    void logThatMissesLines()
    {
        TwoFiles rig;
        const QString line(1000, QLatin1Char('x'));
        {
            const FileSizeLimit full(100);
            rig.merger->startMerge();
            for (int i = 0; i < 100; ++i)
                rig.merger->log(line);
        }
        rig.merger->log(QStringLiteral("there is room again"));
        const QStringList lines = rig.logLines();
        QCOMPARE(lines.last(), QStringLiteral("there is room again"));
        const qsizetype kept = lines.count(line);
        QVERIFY2(kept > 0 && kept <= 16, qPrintable(QString::number(kept)));
    }

    void logWithoutAMerge()
    {
        NvxWavMerger merger;
        merger.log(QStringLiteral("nobody hears this"));
        merger.logMergePlan();
    }

    void failureWithoutAnError()
    {
        MergeRig rig;
        rig.merger->handleWriteError();
        QCOMPARE(rig.signalsSeen,
                 QStringList{QStringLiteral("failed: ") +
                             QString::fromUtf8(NvxWavWriter::errorStr(WavErrNone)) + kAdvice});
    }

    void linesOfTheApplication()
    {
        MergeRig rig;
        rig.merger->startMerge();
        rig.merger->log(QStringLiteral("said by the application"));
        QCOMPARE(rig.logLines().last(), QStringLiteral("said by the application"));
        rig.merger->logMergePlan();
        QCOMPARE(rig.logLines().last(), kSummary);
    }

    void anotherMergeOfTheSameObject()
    {
        TwoChannels rig;
        MergeFile file;
        file.serial = 7;
        rig.add(file);
        rig.merger->startMerge();
        rig.signalsSeen.clear();
        rig.merger->startMerge();
        // Plan and files are those of the first merge, which ends the second build at once. This is intended.
        QCOMPARE(rig.signalsAfterLog(),
                 (QStringList{QStringLiteral("status: Building merge plan..."),
                              QStringLiteral("status: Starting Merge."),
                              QStringLiteral("status: Merging file: MERGED_20240229_124000"),
                              QStringLiteral("complete")}));
        QCOMPARE(rig.outputs(), (QStringList{QStringLiteral("MERGED_20240229_124000.wav"),
                                             QStringLiteral("MERGED_20240229_124000_2.wav")}));
        QCOMPARE(dataOfWav(rig.outputPath(rig.outputs().last())), file.samples());
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavMerger)
#include "tst_NvxWavMerger.moc"
