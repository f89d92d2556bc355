#include "MergeFiles.h"

#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>

namespace {

const QString kStarted = QStringLiteral("------------------ Started building merge plan. ------------------");
const QString kDetails = QStringLiteral("-------------------- MERGE PLAN DETAILS --------------------");
const QString kSummary = QStringLiteral("\t-- Merge Map Summary: --");

QDateTime utc(int hour, int minute, int second = 0)
{
    return QDateTime({2024, 2, 29}, {hour, minute, second}, Qt::UTC);
}

/// A rig for two recorders: 7 is channel 1, 9 is channel 2.
class TwoChannels : public MergeRig
{
public:
    TwoChannels() { merger->setChannels({7, 9}); }
};

} // namespace

/// What is set up, what becomes the plan, and what the log says about it.
class tst_NvxWavMerger : public NvxTestCase
{
    Q_OBJECT

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
        const qint64 now = QDateTime::currentSecsSinceEpoch();
        for (qint64 time = now; time < now + 60; ++time) {
            const std::string name = HydUtil::dateTimeFname(std::string("MERGELOG_"), time) + ".txt";
            QFile file(rig.outputPath(QString::fromStdString(name)));
            QVERIFY(file.open(QIODevice::WriteOnly));
            QVERIFY(file.write("before\n") > 0);
        }
        rig.merger->startMerge();
        const QString path = rig.signalsSeen.first().mid(24);
        QFile file(path);
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
        const QByteArray text = file.readAll();
        QVERIFY2(text.startsWith("before\n["), text.constData());
        QVERIFY(text.endsWith("]: Merge Complete!\n"));
    }

    void theRangeIncludesItsEnds_data()
    {
        QTest::addColumn<QString>("stamp");
        QTest::addColumn<bool>("isIn");
        QTest::newRow("a second before") << QStringLiteral("20240229_123959") << false;
        QTest::newRow("at the start") << QStringLiteral("20240229_124000") << true;
        QTest::newRow("between") << QStringLiteral("20240229_124501") << true;
        QTest::newRow("at the end") << QStringLiteral("20240229_125000") << true;
        QTest::newRow("a second behind") << QStringLiteral("20240229_125001") << false;
        QTest::newRow("without a date") << QStringLiteral("later") << false;
    }
    void theRangeIncludesItsEnds()
    {
        QFETCH(QString, stamp);
        QFETCH(bool, isIn);
        TwoChannels rig;
        MergeFile file;
        file.serial = 7;
        file.stamp = stamp;
        const QString path = rig.add(file);
        rig.merger->startMerge();
        const QString complaint = QStringLiteral("Error building merge plan:: Cannot merge ") + path +
                                  QStringLiteral(". The file is outside of the specified time range.");
        QCOMPARE(rig.logLines().contains(complaint), !isIn);
        QCOMPARE(rig.outputs().size(), isIn ? 1 : 0);
        QCOMPARE(rig.logLines().contains(QStringLiteral("\tTime span:\t1 min")), isIn);
    }

    void theRangeMayBeOfAnotherTimeZone()
    {
        TwoChannels rig;
        rig.merger->setStartTime(utc(12, 40).toOffsetFromUtc(3600));
        rig.merger->setEndTime(utc(12, 50).toOffsetFromUtc(-3600));
        MergeFile file;
        file.serial = 7;
        file.stamp = QStringLiteral("20240229_125000");
        rig.add(file);
        rig.merger->startMerge();
        // The log writes the times as they were given, names are in UTC.
        QVERIFY(rig.logLines().contains(QStringLiteral("\tStart time:\t2024-02-29 13:40:00")));
        QVERIFY(rig.logLines().contains(QStringLiteral("\tEnd time:\t2024-02-29 11:50:00")));
        QVERIFY(rig.logLines().contains(QStringLiteral("\t2024-02-29 13:50:00 (1 channels) ")));
        QCOMPARE(rig.outputs(), QStringList{QStringLiteral("MERGED_20240229_125000.wav")});
    }

    void minutesCountFromTheStartOfTheRange()
    {
        TwoChannels rig;
        rig.merger->setStartTime(utc(12, 40, 30));
        MergeFile file;
        // 12:41:29 is still in the first minute of a range that starts at half past.
        file.serial = 7;
        file.stamp = QStringLiteral("20240229_124100");
        rig.add(file);
        file.serial = 9;
        file.stamp = QStringLiteral("20240229_124129");
        rig.add(file);
        file.stamp = QStringLiteral("20240229_124130");
        rig.add(file);
        rig.merger->startMerge();
        QVERIFY(rig.logLines().contains(QStringLiteral("\t2024-02-29 12:40:30 (2 channels) ")));
        QVERIFY(rig.logLines().contains(QStringLiteral("\t2024-02-29 12:41:30 (1 channels) ")));
        QCOMPARE(rig.outputs(), (QStringList{QStringLiteral("MERGED_20240229_124030.wav"),
                                             QStringLiteral("MERGED_20240229_124130.wav")}));
    }

    void theHeaderNamesTheRecorder()
    {
        TwoChannels rig;
        MergeFile file;
        file.serial = 7;
        const QString path = rig.add(file);
        const QString other = rig.inputDir() + QStringLiteral("/ABC0009_20240229_124000.wav");
        QVERIFY(QFile::rename(path, other));
        rig.merger->addFile(other);
        rig.merger->startMerge();
        // The name says 9.
        QVERIFY(rig.logLines().contains(QStringLiteral("\t\tChannel 1: %1, ").arg(other)));
    }

    void twoFilesOfARecorderAtOneMinute()
    {
        TwoChannels rig;
        MergeFile file;
        file.serial = 7;
        const QString first = rig.add(file);
        file.stamp = QStringLiteral("20240229_124030");
        const QString second = rig.add(file);
        rig.merger->startMerge();
        QVERIFY(rig.logLines().contains(QStringLiteral("\t\tChannel 1: %1, %2, ").arg(first, second)));
        QVERIFY(rig.logLines().contains(QStringLiteral("\t2024-02-29 12:40:00 (1 channels) ")));
        QCOMPARE(rig.outputs(), QStringList{QStringLiteral("MERGED_20240229_124000.wav")});
        file.stamp = QStringLiteral("20240229_124000");
        QCOMPARE(dataOfWav(rig.outputPath(rig.outputs().first())), file.samples());
    }

    void namesAreUnicode()
    {
        TwoChannels rig;
        MergeFile file;
        file.serial = 7;
        file.prefix = QStringLiteral("Ålesund");
        const QString path = rig.add(file);
        rig.merger->startMerge();
        QVERIFY(rig.logLines().contains(QStringLiteral("Adding file to merge plan: ") + path));
        QCOMPARE(rig.outputs().size(), 1);
    }

    // --- rainy day flows
    void recordersOfSeveralChannelsAreUnsupported()
    {
        MergeRig rig;
        rig.merger->setChannels({7});
        MergeFile mono;
        mono.serial = 7;
        const QString path = rig.add(mono);
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        // Two channels, twice the bytes a second, four bytes a frame.
        const QByteArray format("\2\0\xC8\0\0\0\x20\3\0\0\4\0", 12);
        QVERIFY(file.seek(22) && file.write(format) == format.size());
        file.close();
        rig.merger->startMerge();
        QVERIFY(rig.logLines().contains(
            QStringLiteral("Error building merge plan: Wav file is from an unsupported device: ") + path));
        QVERIFY(rig.outputs().isEmpty());
    }

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

    void theSameFileTwiceEndsTheBuild_data()
    {
        QTest::addColumn<bool>("isRelative");
        QTest::newRow("same name") << false;
        QTest::newRow("other way to it") << true;
    }
    void theSameFileTwiceEndsTheBuild()
    {
        QFETCH(bool, isRelative);
        TwoChannels rig;
        MergeFile file;
        file.serial = 7;
        const QString path = rig.add(file);
        const QString before = QDir::currentPath();
        const auto goBack = qScopeGuard([before] { QDir::setCurrent(before); });
        QVERIFY(QDir::setCurrent(rig.inputDir()));
        rig.merger->addFile(isRelative ? QFileInfo(path).fileName() : path);
        file.serial = 9;
        rig.add(file);
        rig.merger->startMerge();
        // No message, no plan, and the merge is complete all the same. This is intended.
        QCOMPARE(rig.signalsAfterLog(),
                 (QStringList{QStringLiteral("status: Building merge plan..."),
                              QStringLiteral("status: Starting Merge."), QStringLiteral("complete")}));
        QCOMPARE(rig.logLines(), (QStringList{kStarted, QStringLiteral("Adding file to merge plan: ") + path,
                                              QStringLiteral("Merge Complete!")}));
        QVERIFY(rig.outputs().isEmpty());
    }

    void recorderWithoutAChannel()
    {
        TwoChannels rig;
        MergeFile file;
        file.serial = 65535;
        const QString path = rig.add(file);
        rig.merger->startMerge();
        QVERIFY(rig.logLines().contains(
            QStringLiteral("Warning: %1 is from a device (65535) that is not assigned to a channel.")
                .arg(path)));
        QVERIFY(rig.logLines().contains(QStringLiteral("\tTime span:\t0 min")));
        QVERIFY(rig.outputs().isEmpty());
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
    }

    void channelZeroIsNone()
    {
        MergeRig rig;
        rig.merger->setChannelDevice(0, 7);
        MergeFile file;
        file.serial = 7;
        rig.add(file);
        rig.merger->startMerge();
        QCOMPARE(rig.logLinesWith(QStringLiteral("not assigned")).size(), 1);
        QVERIFY(rig.outputs().isEmpty());
    }

    void outOfRangeComesBeforeUnassigned()
    {
        TwoChannels rig;
        MergeFile file;
        file.serial = 8;
        file.stamp = QStringLiteral("20240229_113000");
        rig.add(file);
        rig.merger->startMerge();
        QCOMPARE(rig.logLinesWith(QStringLiteral("outside")).size(), 1);
        QVERIFY(rig.logLinesWith(QStringLiteral("not assigned")).isEmpty());
    }

    void fileOfAnotherLength_data()
    {
        QTest::addColumn<unsigned>("seconds");
        QTest::newRow("a second too short") << 59U;
        QTest::newRow("a second too long") << 61U;
        QTest::newRow("twice") << 120U;
    }
    void fileOfAnotherLength()
    {
        QFETCH(unsigned, seconds);
        TwoChannels rig;
        MergeFile file;
        file.serial = 7;
        file.seconds = seconds;
        const QString path = rig.add(file);
        rig.merger->startMerge();
        // The entry without a channel counts in the time span. This is intended.
        QCOMPARE(
            rig.logLines(),
            (QStringList{kStarted, QStringLiteral("Adding file to merge plan: ") + path,
                         QStringLiteral("Error building merge plan: File length %1 doesn't match merge file "
                                        "length. %2")
                             .arg(seconds)
                             .arg(path),
                         kDetails, QStringLiteral("\tTime span:\t1 min"),
                         QStringLiteral("\tFile length (minutes):\t1"),
                         QStringLiteral("\tStart time:\t2024-02-29 12:40:00"),
                         QStringLiteral("\tEnd time:\t2024-02-29 12:50:00"), kSummary,
                         QStringLiteral("\t2024-02-29 12:40:00 (0 channels) "),
                         QStringLiteral("No channel to merge at 2024-02-29 12:40:00."),
                         QStringLiteral("Merge Complete!")}));
        QVERIFY(rig.outputs().isEmpty());
    }

    void hugeFileLength()
    {
        TwoChannels rig;
        // Times 60 that is 60 in 32 bits.
        rig.merger->setFileLength((1 << 30) + 1);
        MergeFile file;
        file.serial = 7;
        rig.add(file);
        rig.merger->startMerge();
        QCOMPARE(rig.logLinesWith(QStringLiteral("doesn't match")).size(), 1);
    }

    void rangeThatWasNotSet_data()
    {
        QTest::addColumn<bool>("hasStart");
        QTest::addColumn<bool>("hasEnd");
        QTest::newRow("neither") << false << false;
        QTest::newRow("start only") << true << false;
        QTest::newRow("end only") << false << true;
    }
    void rangeThatWasNotSet()
    {
        QFETCH(bool, hasStart);
        QFETCH(bool, hasEnd);
        TwoChannels rig;
        if (!hasStart)
            rig.merger->setStartTime({});
        if (!hasEnd)
            rig.merger->setEndTime({});
        MergeFile file;
        file.serial = 7;
        rig.add(file);
        rig.merger->startMerge();
        QCOMPARE(rig.logLinesWith(QStringLiteral("outside of the specified time range")).size(), 1);
        QVERIFY(rig.outputs().isEmpty());
    }

    void namesWithoutADateAreOutOfEveryRange()
    {
        TwoChannels rig;
        rig.merger->setStartTime(QDateTime({1960, 1, 1}, {0, 0}, Qt::UTC));
        MergeFile file;
        file.serial = 7;
        file.stamp = QStringLiteral("later");
        rig.add(file);
        rig.merger->startMerge();
        QCOMPARE(rig.logLinesWith(QStringLiteral("outside of the specified time range")).size(), 1);
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

    void logWithoutAMerge()
    {
        NvxWavMerger merger;
        merger.log(QStringLiteral("nobody hears this"));
        merger.logMergePlan();
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
