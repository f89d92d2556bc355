#include "ExampleRun.h"
#include "tests/recording/SpectrumStream.h"
#include "tests/recording/WavJudge.h"
#include "tests/replay/WavFiles.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <csignal>
#include <memory>

// The replay of files as its users run it, of files that Python wrote.

namespace {

constexpr int kFirstSecond = 1709210096; // 2024-02-29 12:34:56
constexpr int kBins = 513;

} // namespace

class tst_replay_file : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_folder;

    QString path(const QString& name) const { return m_folder->filePath(name); }
    QString out() const { return path(QStringLiteral("some/where")); }
    QStringList files() const { return QDir(out()).entryList(QDir::Files, QDir::Name); }
    QString write(const QString& name, const QStringList& what) const
    {
        QStringList arguments{QStringLiteral(NVX_FILE_WRITER), what.first(), path(name)};
        arguments << what.mid(1);
        const ExampleRun ended = runExample(NVX_PYTHON, arguments);
        return ended.code == 0 ? path(name) : ended.errors;
    }
    QString writeWaves(const QString& name, int channels, int seconds, int rate) const
    {
        return write(name, {QStringLiteral("waves"), QString::number(channels), QString::number(seconds),
                            QString::number(rate)});
    }
    QString writeSpectra(const QString& name, int serial, int start, int records) const
    {
        return write(name, {QStringLiteral("spectra"), QString::number(serial), QString::number(start),
                            QString::number(records)});
    }
    /// Three seconds of a recorder.
    QString writeRecording(const QString& name, int serial, uint32_t start) const
    {
        const auto info = makeInfo(1);
        info->setSerialNo(static_cast<uint16_t>(serial), 1);
        info->setTimestamp(start);
        QFile file(path(name));
        const QByteArray bytes = waveFile(*info, {.rate = 16000}, 3 * 2 * 16000);
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() ? file.fileName()
                                                                                    : QString();
    }
    /// Plays at full speed.
    ExampleRun replay(const QStringList& arguments) const
    {
        return runExample(NVX_REPLAY_FILE,
                          QStringList{QStringLiteral("--speed"), QStringLiteral("max")} + arguments);
    }
    ExampleRun replayInto(const QStringList& arguments) const
    {
        return replay(QStringList{QStringLiteral("--out"), out()} + arguments);
    }
    /// True when the records are those that Python wrote, from `first` on.
    static bool areSpectra(const QList<QList<QByteArray>>& records, int first, int count, int start)
    {
        for (int r = 0; r < count; ++r) {
            const QList<QByteArray> record = records.value(first + r);
            if (record.size() != 5 + kBins ||
                record[0] != QDateTime::fromSecsSinceEpoch(start + r, Qt::UTC)
                                 .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))
                                 .toUtf8())
                return false;
            for (int b = 0; b < kBins; ++b) {
                if (record[5 + b] != QByteArray::number((7 * r + b) % 256))
                    return false;
            }
        }
        return true;
    }

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
    }
    void cleanup() { m_folder.reset(); }

    // --- happy flows
    void playsSpectraOfPython()
    {
        const QString file = writeSpectra(QStringLiteral("spectra.txt"), 77, kFirstSecond, 4);
        const ExampleRun ended = replayInto({file});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        QCOMPARE(ended.errors, QString());
        QVERIFY2(ended.output.contains(
                     QStringLiteral("Playing spectra.txt: serial 77, 1 channel, from 2024-02-29 12:34:56")),
                 qPrintable(ended.output));
        // The 512 bins that a device's spectra have of the last record: twice all bytes in their order.
        QVERIFY2(ended.output.contains(
                     QStringLiteral("2024-02-29 12:34:59         4 blocks  total power 254.9 dB")),
                 qPrintable(ended.output));
        QCOMPARE(files(), QStringList{QStringLiteral("SPC0077_20240229_123456.txt")});
        QVERIFY(ended.output.contains(QStringLiteral("  SPC0077_20240229_123456.txt")));
        const SpectrumText text = SpectrumText::of(out() + u'/' + files().first());
        QCOMPARE(text.records.size(), 4);
        QVERIFY(areSpectra(text.records, 0, 4, kFirstSecond));
        QCOMPARE(text.entry("Serial"), QByteArray("77"));
        QCOMPARE(text.entry("Device type"), QByteArray("5"));
        QCOMPARE(text.entry("Firmware"), QByteArray("1.0"));
        QCOMPARE(text.entry("Accumulations"), QByteArray("94"));
        QCOMPARE(text.entry("Reference level (dB re 1 V)"), QByteArray("-180"));
        QCOMPARE(text.entry("Sensitivity (dB re 1 V/uPa)"), QByteArray("-170"));
    }

    void filesThatFollowEachOtherBecomeOne()
    {
        const QString first = writeSpectra(QStringLiteral("1.txt"), 77, kFirstSecond, 3);
        const QString second = writeSpectra(QStringLiteral("2.txt"), 77, kFirstSecond + 3, 2);
        const ExampleRun ended = replayInto({first, second});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        QCOMPARE(files().size(), 1);
        const SpectrumText text = SpectrumText::of(out() + u'/' + files().first());
        QCOMPARE(text.records.size(), 5);
        QVERIFY(areSpectra(text.records, 0, 3, kFirstSecond));
        QVERIFY(areSpectra(text.records, 3, 2, kFirstSecond + 3));
    }

    void wavesThatGoOnFromTheFileBefore_data()
    {
        QTest::addColumn<int>("serial");
        QTest::addColumn<int>("start");
        QTest::addColumn<bool>("goesOn");

        // The last block of the file before begins in its third second.
        QTest::newRow("right behind") << 77 << 3 << true;
        QTest::newRow("the last block's second") << 77 << 2 << true;
        QTest::newRow("two seconds behind the last block") << 77 << 4 << true;
        QTest::newRow("three seconds behind it") << 77 << 5 << false;
        QTest::newRow("ahead of it") << 77 << 1 << false;
        QTest::newRow("another device") << 78 << 3 << false;
    }
    void wavesThatGoOnFromTheFileBefore()
    {
        QFETCH(int, serial);
        QFETCH(int, start);
        QFETCH(bool, goesOn);
        const QString first = writeRecording(QStringLiteral("1.wav"), 77, kTime);
        const QString second =
            writeRecording(QStringLiteral("2.wav"), serial, kTime + static_cast<uint32_t>(start));
        const ExampleRun ended = replay({first, second});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        const QStringList lines = ended.output.split(u'\n').filter(QStringLiteral("Playing "));
        QCOMPARE(lines.size(), 2);
        const QString tail = QStringLiteral(", going on from the file before");
        QVERIFY2(!lines[0].endsWith(tail), qPrintable(lines[0]));
        QVERIFY2(lines[1].endsWith(tail) == goesOn, qPrintable(lines[1]));
    }

    void eachDeviceHasItsFile()
    {
        const QString first = writeSpectra(QStringLiteral("1.txt"), 1, kFirstSecond, 2);
        const QString second = writeSpectra(QStringLiteral("2.txt"), 2, kFirstSecond, 2);
        QCOMPARE(replayInto({first, second}).code, 0);
        QCOMPARE(files(), (QStringList{QStringLiteral("SPC0001_20240229_123456.txt"),
                                       QStringLiteral("SPC0002_20240229_123456.txt")}));
    }

    void withoutADirectoryNothingIsWritten()
    {
        const QString file = writeSpectra(QStringLiteral("spectra.txt"), 77, kFirstSecond, 2);
        const ExampleRun ended = replay({file});
        QCOMPARE(ended.code, 0);
        QVERIFY(ended.output.contains(QStringLiteral(" 2 blocks")));
        QVERIFY(!ended.output.contains(QStringLiteral("Files in")));
        QCOMPARE(QDir(m_folder->path()).entryList(QDir::Files), QStringList{QStringLiteral("spectra.txt")});
    }

    void playsWavesOfPython()
    {
        const QString file = writeWaves(QStringLiteral("waves.wav"), 1, 3, 16000);
        const ExampleRun ended = replayInto({file});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        QVERIFY(!files().isEmpty());
        std::vector<int32_t> samples;
        for (const QString& name : files()) {
            QVERIFY2(name.startsWith(QStringLiteral("REC0000_")), qPrintable(name));
            const JudgedWav judged = judgeWav(out() + u'/' + name);
            samples.insert(samples.end(), judged.samples.begin(), judged.samples.end());
        }
        // All but what fills no tick of a quarter of a second.
        QVERIFY2(samples.size() > 3 * 16000 - 2 * 4000, qPrintable(QString::number(samples.size())));
        for (size_t i = 0; i < samples.size(); ++i)
            QCOMPARE(samples[i], static_cast<int32_t>(i % 32768));
    }

    void aFileOfALowRateLeavesTheNextOneAlone()
    {
        const QString slow = writeWaves(QStringLiteral("slow.wav"), 1, 2, 500);
        const QString file = writeWaves(QStringLiteral("waves.wav"), 1, 2, 16000);
        const auto lastLine = [](const ExampleRun& run) { return run.output.trimmed().section(u'\n', -1); };
        const ExampleRun alone = replay({file});
        const ExampleRun behind = replay({slow, file});
        QCOMPARE(behind.code, 0);
        QVERIFY2(lastLine(alone).endsWith(QStringLiteral(" blocks")), qPrintable(alone.output));
        QCOMPARE(lastLine(behind), lastLine(alone));
    }

    void speeds_data()
    {
        QTest::addColumn<QString>("speed");

        for (const char* speed : {"normal", "double", "quad", "max"})
            QTest::newRow(speed) << QString::fromLatin1(speed);
    }
    void speeds()
    {
        QFETCH(QString, speed);
        const QString file = writeSpectra(QStringLiteral("spectra.txt"), 77, kFirstSecond, 1);
        const ExampleRun ended = runExample(NVX_REPLAY_FILE, {file, QStringLiteral("--speed"), speed});
        QCOMPARE(ended.code, 0);
        QVERIFY(ended.output.contains(QStringLiteral(" 1 blocks")));
    }

    void interruptionCompletesTheFiles()
    {
        const QString file = writeSpectra(QStringLiteral("spectra.txt"), 77, kFirstSecond, 2000);
        QProcess process;
        process.start(
            QStringLiteral(NVX_REPLAY_FILE),
            {QStringLiteral("--out"), out(), QStringLiteral("--speed"), QStringLiteral("quad"), file, file});
        // The file alone may not have a record yet.
        QTRY_VERIFY(!files().isEmpty() &&
                    !SpectrumText::of(out() + u'/' + files().first()).records.isEmpty());
        ::kill(pid_t(process.processId()), SIGINT);
        QTRY_COMPARE(process.state(), QProcess::NotRunning);
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
        QVERIFY(process.readAllStandardOutput().contains("Files in "));
        const SpectrumText text = SpectrumText::of(out() + u'/' + files().first());
        QVERIFY(text.complete);
        QVERIFY(!text.records.isEmpty() && text.records.size() < 2000);
    }

    // --- rainy day flows
    void filesThatArentOnesAreToldAndPassedOver()
    {
        const QString file = writeSpectra(QStringLiteral("spectra.txt"), 77, kFirstSecond, 2);
        const ExampleRun ended = replayInto(
            {path(QStringLiteral("missing.wav")), file, QStringLiteral(NVX_FILE_WRITER), m_folder->path()});
        QCOMPARE(ended.code, 2);
        for (const QString& name :
             {path(QStringLiteral("missing.wav")), QStringLiteral(NVX_FILE_WRITER), m_folder->path()})
            QVERIFY2(ended.errors.contains(
                         name + QStringLiteral(" is no wave or spectrum file that can be played.")),
                     qPrintable(ended.errors));
        QCOMPARE(files().size(), 1);
    }

    void channelsThatCantBeToldApartArentWritten()
    {
        const QString file = writeWaves(QStringLiteral("waves.wav"), 2, 1, 16000);
        const ExampleRun ended = replayInto({file});
        QCOMPARE(ended.code, 2);
        QVERIFY2(ended.errors.contains(QStringLiteral("channels of the same serial number aren't written.")),
                 qPrintable(ended.errors));
        QVERIFY(ended.output.contains(QStringLiteral("2 channels")));
        QCOMPARE(files(), QStringList());
    }

    void wrongUse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("code");

        QTest::newRow("no files") << QStringList() << 1;
        QTest::newRow("an unknown speed")
            << QStringList{QStringLiteral("x.txt"), QStringLiteral("--speed"), QStringLiteral("half")} << 1;
        QTest::newRow("a directory that can't be made")
            << QStringList{QStringLiteral("x.txt"), QStringLiteral("--out"), QStringLiteral("/dev/null/x")}
            << 5;
    }
    void wrongUse()
    {
        QFETCH(QStringList, arguments);
        const ExampleRun ended = runExample(NVX_REPLAY_FILE, arguments);
        QTEST(ended.code, "code");
        QVERIFY(ended.errors.startsWith(QStringLiteral("replay-file: ")));
    }

    void aDirectoryThatTakesNoFiles()
    {
        const QString file = writeSpectra(QStringLiteral("spectra.txt"), 77, kFirstSecond, 2);
        const ExampleRun ended = replay({QStringLiteral("--out"), QStringLiteral("/proc/self"), file});
        QCOMPARE(ended.code, 5);
        QVERIFY2(ended.errors.contains(QStringLiteral("files can't be written to /proc/self.")),
                 qPrintable(ended.errors));
    }
};

QTEST_GUILESS_MAIN(tst_replay_file)
#include "tst_replay_file.moc"
