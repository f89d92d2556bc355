#include "ExampleRun.h"
#include "NvxQtSimulator/SimulatedRecorder.h"
#include "tests/recording/WavJudge.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

#include <csignal>

// The examples as their users run them.

class tst_record_waves : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<SimulatedRecorder> m_recorder;

    /// A recorder of 16000 Hz that gives this many seconds of samples at once.
    static RecorderSettings recorderAt(const char* address, uint32_t seconds = 1)
    {
        RecorderSettings settings;
        settings.address = QHostAddress(QLatin1String(address));
        settings.spectrumPort = settings.sensorPort = settings.epochPort = 0;
        settings.sampleRate = 16000;
        settings.unpaced = true;
        settings.streamSeconds = seconds;
        return settings;
    }
    bool startRecorder(const RecorderSettings& settings)
    {
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        return m_recorder->start();
    }
    ExampleRun record(const QStringList& arguments)
    {
        return runExample(NVX_RECORD_WAVES, QStringList{QStringLiteral("--out"), out(),
                                                        QStringLiteral("--patience"), QStringLiteral("20")} +
                                                arguments);
    }
    QString out() const { return m_folder->filePath(QStringLiteral("some/where")); }
    QStringList files(const char* pattern = "*.wav") const
    {
        return QDir(out()).entryList({QLatin1String(pattern)}, QDir::Files, QDir::Name);
    }
    QString pathOf(int file) const { return out() + QLatin1Char('/') + files().at(file); }
    /// Sum of a row of a picture whose plot is 1000 x 480 at 70, 40.
    static qint64 brightness(const QImage& image, int row)
    {
        qint64 sum = 0;
        for (int x = 100; x < 1000; ++x)
            sum += qGray(image.pixel(x, row));
        return sum;
    }
    static int brightestRow(const QImage& image)
    {
        int brightest = 41;
        for (int row = 41; row < 519; ++row)
            if (brightness(image, row) > brightness(image, brightest))
                brightest = row;
        return brightest;
    }

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
    }
    void cleanup()
    {
        m_recorder.reset();
        m_folder.reset();
    }

    // --- happy flows
    void recordsFromARecorderOfItsOwn()
    {
        const ExampleRun ended = record({QStringLiteral("--seconds"), QStringLiteral("1")});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        QVERIFY2(ended.output.contains(QStringLiteral("Simulating a recorder at 127.0.0.")),
                 qPrintable(ended.output));
        QVERIFY(!files().isEmpty());
        qint64 frames = 0;
        for (int i = 0; i < files().size(); ++i) {
            QCOMPARE(wholeFileObjection(pathOf(i)), QString());
            frames += judgeWav(pathOf(i)).frames;
        }
        QVERIFY2(frames >= 48000, qPrintable(QString::number(frames)));
    }

    void spectraAndReadingsAreRecordedBesideTheWaves()
    {
        RecorderSettings settings = recorderAt("127.99.0.12", 0);
        settings.unpaced = false;
        settings.spectrumPort = RecorderSettings::kSpectrumPort;
        settings.sensorPort = RecorderSettings::kSensorPort;
        settings.identity.serial = 77;
        settings.signal.frequency = 4000.0;
        QVERIFY(startRecorder(settings));
        const ExampleRun ended = record({QStringLiteral("--seconds"), QStringLiteral("2"),
                                         QStringLiteral("--address"), QStringLiteral("127.99.0.12")});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        // The bin of the tone has the level that the wave file has, in whole dB rounded up.
        for (const char* line :
             {"0 samples lost  [1-9]\\d* spectra  [1-9]\\d* readings\n",
              "REC0077_\\S+\\.wav .* 156\\.5 dB re 1 µPa\n",
              "SPC0077_\\S+\\.txt  \\d+ spectra  512 bins of 15\\.625 Hz  at most 157\\.0 dB re 1 µPa, at "
              "4000 Hz\n",
              "ACC0077_\\S+\\.txt  [1-9]\\d* readings\n", "BAT0077_\\S+\\.txt  [1-9]\\d* readings\n"})
            QVERIFY2(ended.output.contains(QRegularExpression(QString::fromUtf8(line))),
                     qPrintable(ended.output));
        QVERIFY(!ended.output.contains(QStringLiteral("refuses")));
        QStringList named;
        for (const char* pattern : {"SPC0077_2*.txt", "ACC0077_2*.txt", "BAT0077_2*.txt"})
            named += files(pattern);
        QCOMPARE(named.size(), files("*.txt").size());
        for (const QString& name : named)
            QVERIFY2(ended.output.contains(QStringLiteral("\n  ") + name), qPrintable(name));

        // Its picture: the row of the bin, half way up to 8 kHz, is the brightest.
        const QString picture = m_folder->filePath(QStringLiteral("spectra.png"));
        const ExampleRun drawn =
            runExample(NVX_SPECTRUM_PLOT, {out() + QLatin1Char('/') + files("SPC*.txt").first(), picture});
        QVERIFY2(drawn.code == 0, qPrintable(drawn.errors));
        const int brightest = brightestRow(QImage(picture));
        QVERIFY2(std::abs(brightest - (40 + 240)) <= 3, qPrintable(QString::number(brightest)));
    }

    void streamsThatAreNotWantedAreLeftOut()
    {
        RecorderSettings settings = recorderAt("127.99.0.13");
        settings.spectrumPort = RecorderSettings::kSpectrumPort;
        settings.sensorPort = RecorderSettings::kSensorPort;
        QVERIFY(startRecorder(settings));
        const ExampleRun ended =
            record({QStringLiteral("--seconds"), QStringLiteral("1"), QStringLiteral("--address"),
                    QStringLiteral("127.99.0.13"), QStringLiteral("--spectrum-port"), QStringLiteral("0"),
                    QStringLiteral("--sensor-port"), QStringLiteral("0")});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        QCOMPARE(m_recorder->counters().streamStarts, 1U);
        QCOMPARE(files("*.txt"), QStringList());
        QVERIFY(!ended.output.contains(QStringLiteral("refuses")));
    }

    void printsWhatItFound()
    {
        RecorderSettings settings = recorderAt("127.99.0.1");
        settings.identity.serial = 77;
        settings.identity.model = "Model A";
        settings.signal.levelDb = -12.0;
        QVERIFY(startRecorder(settings));
        const ExampleRun ended = record({QStringLiteral("--seconds"), QStringLiteral("1"),
                                         QStringLiteral("--address"), QStringLiteral("127.99.0.1")});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        for (const char* text :
             {"Recorder A 77, Model A", "1.0 of 2021-03-04", "16000 Hz, 24 bit, little-endian"})
            QVERIFY2(ended.output.contains(QString::fromUtf8(text)), qPrintable(ended.output));
        for (const char* line :
             {"Z, -?\\d s ahead of this computer\n", "\n +1\\.00 s +48000 bytes +\\d+ Hz  0 samples lost\n"})
            QVERIFY2(ended.output.contains(QRegularExpression(QString::fromUtf8(line))),
                     qPrintable(ended.output));
        // Three letters and the serial number in four digits. A file may end at a whole minute.
        for (const QString& name : files())
            QVERIFY2(name.startsWith(QStringLiteral("REC0077_2")), qPrintable(name));
        // 0.251 of 3 V at full scale is -15.0 dBV effective, with -170 dB re 1 V/µPa.
        QVERIFY2(ended.output.contains(QStringLiteral("-12.0 dBFS = 164.5 dB re 1 µPa")),
                 qPrintable(ended.output));
        QVERIFY(ended.output.contains(QStringLiteral("16000 Hz  24 bit  1 channel  ")));
    }

    void filesEndAtTheirLength()
    {
        QVERIFY(startRecorder(recorderAt("127.99.0.2", 2)));
        const ExampleRun ended =
            record({QStringLiteral("--seconds"), QStringLiteral("2"), QStringLiteral("--address"),
                    QStringLiteral("127.99.0.2"), QStringLiteral("--file-seconds"), QStringLiteral("1")});
        QCOMPARE(ended.code, 0);
        QVERIFY(files().size() >= 2);
        QCOMPARE(judgeWav(pathOf(0)).frames, qint64{16000});
        QCOMPARE(judgeWav(pathOf(1)).frames, qint64{16000});
    }

    void severalChannelsHaveTheirLevels()
    {
        RecorderSettings settings = recorderAt("127.99.0.3");
        settings.channels = 2;
        settings.bitDepth = 16;
        QVERIFY(startRecorder(settings));
        const ExampleRun ended = record({QStringLiteral("--seconds"), QStringLiteral("1"),
                                         QStringLiteral("--address"), QStringLiteral("127.99.0.3")});
        QCOMPARE(ended.code, 0);
        QVERIFY2(ended.output.contains(
                     QStringLiteral("16 bit  2 channels  -20.0 dBFS = 156.5 dB re 1 µPa, -20.0 dBFS")),
                 qPrintable(ended.output));
    }

    void interruptionCompletesTheFiles()
    {
        RecorderSettings settings = recorderAt("127.99.0.4", 0);
        settings.unpaced = false;
        QVERIFY(startRecorder(settings));
        QProcess process;
        process.start(QStringLiteral(NVX_RECORD_WAVES),
                      {QStringLiteral("--out"), out(), QStringLiteral("--seconds"), QStringLiteral("600"),
                       QStringLiteral("--address"), QStringLiteral("127.99.0.4"),
                       QStringLiteral("--patience"), QStringLiteral("20")});
        QTRY_VERIFY(!files().isEmpty() && QFileInfo(pathOf(0)).size() > 24000);
        ::kill(pid_t(process.processId()), SIGINT);
        QTRY_COMPARE(process.state(), QProcess::NotRunning);
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
        QVERIFY(process.readAllStandardOutput().contains("Files in "));
        QVERIFY(judgeWav(pathOf(0)).frames > 0);
        QCOMPARE(wholeFileObjection(pathOf(0)), QString());
    }

    void lostSamplesAreCounted()
    {
        RecorderSettings settings = recorderAt("127.99.0.5");
        FaultPlan plan(1);
        plan.add(FaultRule::fromText(QStringLiteral("loss:after=10,times=1,on=wave")).value());
        settings.faults = plan;
        QVERIFY(startRecorder(settings));
        const ExampleRun ended = record({QStringLiteral("--seconds"), QStringLiteral("1"),
                                         QStringLiteral("--address"), QStringLiteral("127.99.0.5")});
        QCOMPARE(ended.code, 0);
        QVERIFY2(ended.output.contains(QStringLiteral("Lost 640 samples from number ")),
                 qPrintable(ended.output));
        QVERIFY(ended.output.contains(QStringLiteral("  640 samples lost")));
    }

    void spectrogramShowsTheTone()
    {
        RecorderSettings settings = recorderAt("127.99.0.6");
        settings.signal.frequency = 4000.0;
        QVERIFY(startRecorder(settings));
        QCOMPARE(record({QStringLiteral("--seconds"), QStringLiteral("1"), QStringLiteral("--address"),
                         QStringLiteral("127.99.0.6")})
                     .code,
                 0);
        const QString picture = m_folder->filePath(QStringLiteral("tone.png"));
        const ExampleRun drawn = runExample(NVX_SPECTROGRAM, {pathOf(0), picture});
        QVERIFY2(drawn.code == 0, qPrintable(drawn.errors));
        const QImage image(picture);
        QVERIFY(image.width() > 1000 && image.height() > 480);
        // Its brightest row is the one of the tone, half way up to 8 kHz.
        const int brightest = brightestRow(image);
        QVERIFY2(std::abs(brightest - (40 + 240)) <= 3, qPrintable(QString::number(brightest)));
        QVERIFY(brightness(image, 100) * 5 < brightness(image, brightest));
        // Axis labels: something dark stands left of the plot and under it.
        const auto isDark = [&](const QRect& area) {
            for (int y = area.top(); y <= area.bottom(); ++y)
                for (int x = area.left(); x <= area.right(); ++x)
                    if (qGray(image.pixel(x, y)) < 100)
                        return true;
            return false;
        };
        QVERIFY(isDark({0, 200, 20, 150}));
        QVERIFY(isDark({30, 40, 30, 480}));
        QVERIFY(isDark({70, 528, 1000, 20}));
    }

    // --- rainy day flows
    void nothingFound()
    {
        const ExampleRun ended = record({QStringLiteral("--address"), QStringLiteral("127.99.9.9"),
                                         QStringLiteral("--patience"), QStringLiteral("1")});
        QCOMPARE(ended.code, 2);
        QCOMPARE(ended.errors.trimmed().split(QLatin1Char('\n')).last(),
                 QStringLiteral("record-waves: no recorder answers at 127.99.9.9."));
    }

    void refusedCommands()
    {
        RecorderSettings settings = recorderAt("127.99.0.7");
        settings.roles = RoleDiscovery;
        QVERIFY(startRecorder(settings));
        const ExampleRun ended = record({QStringLiteral("--address"), QStringLiteral("127.99.0.7")});
        QCOMPARE(ended.code, 3);
        QVERIFY(
            ended.errors.contains(QStringLiteral("record-waves: the recorder refuses the command channel")));
    }

    void refusedStream()
    {
        RecorderSettings settings = recorderAt("127.99.0.8");
        settings.roles = RoleDiscovery | RoleControl;
        QVERIFY(startRecorder(settings));
        const ExampleRun ended = record({QStringLiteral("--address"), QStringLiteral("127.99.0.8")});
        QCOMPARE(ended.code, 3);
        QVERIFY(ended.errors.contains(
            QStringLiteral("record-waves: the recorder refuses its wave stream on port 51001.")));
    }

    void refusedSideStreamsAreToldAndLeftOut()
    {
        RecorderSettings settings = recorderAt("127.99.0.14", 0);
        settings.unpaced = false;
        settings.roles = RoleDiscovery | RoleControl | RoleWave;
        QVERIFY(startRecorder(settings));
        const ExampleRun ended =
            record({QStringLiteral("--seconds"), QStringLiteral("1"), QStringLiteral("--address"),
                    QStringLiteral("127.99.0.14"), QStringLiteral("--sensor-port"), QStringLiteral("51009")});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        for (const char* line :
             {"The recorder refuses its spectrum stream on port 51002, which is left out\n",
              "The recorder refuses its sensor stream on port 51009, which is left out\n"})
            QVERIFY2(ended.output.count(QString::fromUtf8(line)) == 1, qPrintable(ended.output));
        QCOMPARE(files().size(), 1);
        QCOMPARE(files("*.txt"), QStringList());
    }

    void noData()
    {
        RecorderSettings settings = recorderAt("127.99.0.9");
        FaultPlan plan(1);
        plan.add(FaultRule::fromText(QStringLiteral("loss:on=wave")).value());
        settings.faults = plan;
        QVERIFY(startRecorder(settings));
        const ExampleRun ended = record({QStringLiteral("--address"), QStringLiteral("127.99.0.9"),
                                         QStringLiteral("--patience"), QStringLiteral("1")});
        QCOMPARE(ended.code, 4);
        QVERIFY(ended.errors.contains(QStringLiteral("record-waves: no samples came for 1 s.")));
        QVERIFY(files().isEmpty());
    }

    void rateThatNobodyKnows()
    {
        // The one header gets lost: blocks come, but no file can be opened and no second counted.
        RecorderSettings settings = recorderAt("127.99.0.11");
        FaultPlan plan(1);
        plan.add(FaultRule::fromText(QStringLiteral("loss:times=1,on=wave")).value());
        settings.faults = plan;
        QVERIFY(startRecorder(settings));
        const ExampleRun ended = record({QStringLiteral("--address"), QStringLiteral("127.99.0.11"),
                                         QStringLiteral("--patience"), QStringLiteral("3")});
        QCOMPARE(ended.code, 4);
        QVERIFY2(ended.output.contains(QRegularExpression(QStringLiteral("\n       \\? s +48000 bytes +"))),
                 qPrintable(ended.output));
        QVERIFY(files().isEmpty());
    }

    void directoryThatCannotBeMade()
    {
        QFile file(m_folder->filePath(QStringLiteral("some")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        const ExampleRun ended = record({});
        QCOMPARE(ended.code, 5);
        QCOMPARE(ended.errors, QStringLiteral("record-waves: the directory %1 can't be made.\n").arg(out()));
    }

    void fullDisk()
    {
        QVERIFY(startRecorder(recorderAt("127.99.0.10", 10)));
        // No file of the program may pass 40 kB; as on a full disk, its writes fail from there on.
        const QString command = QStringLiteral("trap '' XFSZ; ulimit -f 40; exec \"$0\" \"$@\"");
        const ExampleRun ended = runExample(
            "bash", {QStringLiteral("-c"), command, QStringLiteral(NVX_RECORD_WAVES), QStringLiteral("--out"),
                     out(), QStringLiteral("--address"), QStringLiteral("127.99.0.10"),
                     QStringLiteral("--patience"), QStringLiteral("20")});
        QCOMPARE(ended.code, 5);
        QVERIFY2(ended.errors.contains(QStringLiteral("Please ensure that there is space on the disk")),
                 qPrintable(ended.errors));
        QVERIFY(judgeWav(pathOf(0)).frames > 0);
    }

    void wrongUse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("seconds") << QStringList{QStringLiteral("--seconds"), QStringLiteral("0")};
        QTest::newRow("file seconds") << QStringList{QStringLiteral("--file-seconds"), QStringLiteral("x")};
        QTest::newRow("patience") << QStringList{QStringLiteral("--patience"), QStringLiteral("0")};
        QTest::newRow("port") << QStringList{QStringLiteral("--port"), QStringLiteral("70000")};
        QTest::newRow("spectrum port")
            << QStringList{QStringLiteral("--spectrum-port"), QStringLiteral("65536")};
        QTest::newRow("sensor port") << QStringList{QStringLiteral("--sensor-port"), QStringLiteral("-1")};
        QTest::newRow("address") << QStringList{QStringLiteral("--address"), QStringLiteral("here")};
    }
    void wrongUse()
    {
        QFETCH(QStringList, arguments);
        const ExampleRun ended = record(arguments);
        QCOMPARE(ended.code, 1);
        QVERIFY(ended.errors.startsWith(QStringLiteral("record-waves: ") + arguments.first()));
    }

    void spectrogramSaysWhatItCannotRead_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("complaint");
        const QByteArray head("RIFF\0\0\0\0WAVE", 12);
        const QByteArray format = QByteArray::fromHex("666d742010000000010001008 03e0000007d000002001000");
        const QByteArray eightBits = QByteArray::fromHex("666d74201000000001000100803e0000803e000001000800");
        QTest::newRow("empty") << QByteArray() << "this is no wave file.";
        QTest::newRow("text") << QByteArray("RIFF but nothing else") << "this is no wave file.";
        QTest::newRow("no chunks") << head << "there are no samples in it.";
        QTest::newRow("no format") << head + QByteArray("data\4\0\0\0abcd", 12)
                                   << "the format of the samples is missing.";
        QTest::newRow("8 bits") << head + eightBits << "samples of this format can't be read.";
        QTest::newRow("no data") << head + format << "there are no samples in it.";
        QTest::newRow("no samples") << head + format + QByteArray("data\0\0\0\0", 8)
                                    << "there are no samples in it.";
    }
    void spectrogramSaysWhatItCannotRead()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, complaint);
        const QString path = m_folder->filePath(QStringLiteral("odd.wav"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        file.close();
        const ExampleRun ended =
            runExample(NVX_SPECTROGRAM, {path, m_folder->filePath(QStringLiteral("odd.png"))});
        QCOMPARE(ended.code, 1);
        QVERIFY2(ended.errors.contains(QStringLiteral("spectrogram: %1: %2").arg(path, complaint)),
                 qPrintable(ended.errors));
        QVERIFY(!QFile::exists(m_folder->filePath(QStringLiteral("odd.png"))));
    }
};

QTEST_GUILESS_MAIN(tst_record_waves)
#include "tst_record_waves.moc"
