#include "MergeParts.h"

#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>

/// Which files become the plan, and what the log says of the others.
class tst_NvxWavMergerPlan : public NvxTestCase
{
    Q_OBJECT

    /// Makes a single recorder's file of 200 Hz and 16 bits state two channels.
    static void makeStereo(const QString& path)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        // Two channels, twice the bytes a second, four bytes a frame.
        const QByteArray format("\2\0\xC8\0\0\0\x20\3\0\0\4\0", 12);
        QVERIFY(file.seek(22) && file.write(format) == format.size());
    }

private Q_SLOTS:
    // --- happy flows
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

    void filesWithoutARecordAreThoseOfRecorderZero_data()
    {
        QTest::addColumn<bool>("hasList");
        QTest::addColumn<bool>("isAssigned");
        QTest::newRow("no list, not assigned") << false << false;
        QTest::newRow("list of another program, not assigned") << true << false;
        QTest::newRow("no list, assigned") << false << true;
        QTest::newRow("list of another program, assigned") << true << true;
    }
    void filesWithoutARecordAreThoseOfRecorderZero()
    {
        QFETCH(bool, hasList);
        QFETCH(bool, isAssigned);
        TwoChannels rig;
        if (isAssigned)
            rig.merger->setChannelDevice(2, 0);
        MergeFile file;
        file.serial = 7;
        const QString path = rig.add(file);
        const QByteArray list = takeListOut(path);
        QVERIFY(list.contains("INVX"));
        if (hasList) {
            QFile wave(path);
            QVERIFY(wave.open(QIODevice::ReadWrite));
            const QByteArray head = wave.read(12);
            const QByteArray rest = wave.readAll();
            QVERIFY(wave.seek(0));
            wave.write(head + QByteArray(list).replace("INVX", "ISRF") + rest);
        }
        rig.merger->startMerge();
        QCOMPARE(rig.logLines().contains(
                     QStringLiteral("Warning: %1 is from a device (0) that is not assigned to a channel.")
                         .arg(path)),
                 !isAssigned);
        QCOMPARE(rig.outputs(), isAssigned ? QStringList{kOutput} : QStringList());
        if (isAssigned)
            QVERIFY(dataOfWav(rig.outputPath(kOutput)) == file.samples());
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
        makeStereo(path);
        rig.merger->startMerge();
        QVERIFY(rig.logLines().contains(
            QStringLiteral("Error building merge plan: Wav file is from an unsupported device: ") + path));
        QVERIFY(rig.outputs().isEmpty());
    }

    void headersThatCannotBePreparedAreUnsupported()
    {
        TwoFiles rig;
        // No replay can work with that, so the header is read but not prepared.
        FFT_Params_WAV.setFftLength(0);
        rig.merger->startMerge();
        QCOMPARE(rig.logLinesWith(
                     QStringLiteral("Error building merge plan: Wav file is from an unsupported device: ")),
                 (QStringList{
                     QStringLiteral("Error building merge plan: Wav file is from an unsupported device: ") +
                         rig.firstPath,
                     QStringLiteral("Error building merge plan: Wav file is from an unsupported device: ") +
                         rig.secondPath}));
        QVERIFY(rig.outputs().isEmpty());
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
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

    void theFirstFaultIsTheOneThatIsTold_data()
    {
        QTest::addColumn<bool>("isUnsupported");
        QTest::addColumn<QString>("stamp");
        QTest::addColumn<int>("serial");
        QTest::addColumn<int>("seconds");
        QTest::addColumn<QString>("told");
        QTest::addColumn<int>("entries");
        const QString in = QStringLiteral("20240229_124000");
        const QString out = QStringLiteral("20240229_113000");
        const QString unsupported = QStringLiteral("unsupported device");
        const QString outside = QStringLiteral("outside of the specified time range");
        const QString unassigned = QStringLiteral("not assigned to a channel");
        const QString length = QStringLiteral("doesn't match merge file length");
        QTest::newRow("all of them") << true << out << 8 << 59 << unsupported << 0;
        QTest::newRow("unsupported, outside") << true << out << 7 << 60 << unsupported << 0;
        QTest::newRow("unsupported, unassigned") << true << in << 8 << 60 << unsupported << 0;
        QTest::newRow("unsupported, length") << true << in << 7 << 59 << unsupported << 0;
        QTest::newRow("outside, unassigned, length") << false << out << 8 << 59 << outside << 0;
        QTest::newRow("outside, unassigned") << false << out << 8 << 60 << outside << 0;
        QTest::newRow("outside, length") << false << out << 7 << 59 << outside << 0;
        QTest::newRow("unassigned, length") << false << in << 8 << 59 << unassigned << 0;
        // Only this one leaves an entry.
        QTest::newRow("length") << false << in << 7 << 59 << length << 1;
    }
    void theFirstFaultIsTheOneThatIsTold()
    {
        QFETCH(bool, isUnsupported);
        QFETCH(QString, stamp);
        QFETCH(int, serial);
        QFETCH(int, seconds);
        QFETCH(QString, told);
        QFETCH(int, entries);
        TwoChannels rig;
        MergeFile file;
        file.serial = static_cast<uint16_t>(serial);
        file.stamp = stamp;
        file.seconds = static_cast<unsigned>(seconds);
        const QString path = rig.add(file);
        if (isUnsupported)
            makeStereo(path);
        rig.merger->startMerge();
        const QStringList lines = rig.logLines().filter(path);
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines.first(), QStringLiteral("Adding file to merge plan: ") + path);
        QVERIFY2(lines.last().contains(told), qPrintable(lines.last()));
        QVERIFY(rig.logLines().contains(QStringLiteral("\tTime span:\t%1 min").arg(entries)));
        QVERIFY(rig.outputs().isEmpty());
        QCOMPARE(rig.signalsSeen.last(), QStringLiteral("complete"));
    }

    void filesThatFallOutStayOpened()
    {
        TwoChannels rig;
        MergeFile file;
        file.serial = 8;
        rig.add(file);
        rig.merger->startMerge();
        rig.merger->startMerge();
        // The second build meets a file that it has already. This is intended.
        QCOMPARE(rig.logLinesWith(QStringLiteral("Adding file to merge plan")).size(), 1);
        QCOMPARE(rig.logLinesWith(QStringLiteral("not assigned")).size(), 1);
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

    void filesOfArraysAreUnsupported()
    {
        TwoFiles rig;
        rig.merger->startMerge();
        MergeRig again;
        again.merger->setChannels({7, 9});
        const QString path = rig.outputPath(kOutput);
        again.merger->addFile(path);
        again.merger->startMerge();
        QVERIFY(again.logLines().contains(
            QStringLiteral("Error building merge plan: Wav file is from an unsupported device: ") + path));
        QVERIFY(again.outputs().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavMergerPlan)
#include "tst_NvxWavMergerPlan.moc"
