#include "MergeFiles.h"
#include "WavJudge.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>

#include <csignal>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

// The example as its users run it.

namespace {

/// A pipe for the output of a program, which goes on until `room` bytes stand in it, and no further until
/// they are read.
class NarrowPipe
{
public:
    NarrowPipe(QString path, qsizetype room) : m_path(std::move(path))
    {
        const QByteArray name = QFile::encodeName(m_path);
        if (mkfifo(name.constData(), 0600) == 0)
            m_end = open(name.constData(), O_RDWR | O_NONBLOCK);
        m_size = fcntl(m_end, F_SETPIPE_SZ, 1);
        const QByteArray filling(m_size - room, '.');
        m_isReady = write(m_end, filling.constData(), static_cast<size_t>(filling.size())) == filling.size();
    }
    ~NarrowPipe() { close(m_end); }
    NarrowPipe(const NarrowPipe&) = delete;
    NarrowPipe& operator=(const NarrowPipe&) = delete;

    bool isReady() const { return m_isReady; }
    QString path() const { return m_path; }
    bool isFull() const
    {
        int bytes = 0;
        return ioctl(m_end, FIONREAD, &bytes) == 0 && bytes == m_size;
    }
    void drain()
    {
        char bytes[4096];
        while (read(m_end, bytes, sizeof bytes) > 0) {
        }
    }

private:
    QString m_path;
    int m_end = -1;
    int m_size = 0;
    bool m_isReady = false;
};

} // namespace

class tst_merge_files : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_folder;

    struct Ended
    {
        int code = -1;
        QString output;
        QString errors;
    };

    static Ended endOf(QProcess& process)
    {
        if (!QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, kPatienceMs))
            return {};
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }
    Ended merge(const QStringList& arguments) const
    {
        QProcess process;
        process.start(QStringLiteral(NVX_MERGE_FILES),
                      QStringList{QStringLiteral("--out"), out()} + arguments);
        return endOf(process);
    }
    QString in() const { return m_folder->filePath(QStringLiteral("in")); }
    QString out() const { return m_folder->filePath(QStringLiteral("some/where")); }
    QStringList outputs() const
    {
        return QDir(out()).entryList({QStringLiteral("*.wav")}, QDir::Files, QDir::Name);
    }
    QString pathOf(int index) const { return out() + QLatin1Char('/') + outputs().at(index); }
    /// Two recorders, a file each at every one of the given minutes of 12 o'clock.
    void makeInputs(const QStringList& minutes) const
    {
        for (const QString& minute : minutes) {
            for (uint16_t serial : {7, 9})
                QVERIFY(!writeMergeFile(in(), fileAt(serial, minute)).isEmpty());
        }
    }
    /// Five minutes of nothing, which are long to merge and take no room on the disk.
    void makeLongInput(uint16_t serial) const
    {
        MergeFile file = fileAt(serial, QStringLiteral("40"));
        file.seconds = 0;
        file.rate = 512000;
        file.bits = 32;
        QFile wave(writeMergeFile(in(), file));
        const qint64 header = wave.size();
        const qint64 data = qint64{300} * file.rate * 4;
        QVERIFY(wave.open(QIODevice::ReadWrite) && wave.resize(header + data));
        const auto putSize = [&wave](qint64 offset, qint64 size) {
            uchar bytes[4];
            qToLittleEndian(static_cast<quint32>(size), bytes);
            return wave.seek(offset) && wave.write(reinterpret_cast<char*>(bytes), 4) == 4;
        };
        QVERIFY(putSize(4, header + data - 8) && putSize(header - 4, data));
    }
    static MergeFile fileAt(uint16_t serial, const QString& minute)
    {
        MergeFile file;
        file.serial = serial;
        file.stamp = QStringLiteral("20240229_12") + minute + QStringLiteral("00");
        return file;
    }

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
        QVERIFY(QDir().mkpath(in()));
    }
    void cleanup() { m_folder.reset(); }

    // --- happy flows
    void mergesADirectory()
    {
        makeInputs({QStringLiteral("40"), QStringLiteral("41")});
        const Ended ended = merge({in()});
        QCOMPARE(ended.errors, QString());
        QCOMPARE(ended.code, 0);
        QCOMPARE(outputs(), (QStringList{QStringLiteral("MERGED_20240229_124000.wav"),
                                         QStringLiteral("MERGED_20240229_124100.wav")}));
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(wholeFileObjection(pathOf(i)), QString());
            const QString minute = QString::number(40 + i);
            QVERIFY(dataOfWav(pathOf(i)) ==
                    woven({fileAt(7, minute).samples(), fileAt(9, minute).samples()}, 2));
        }
        for (const char* line : {"Merge Log File: ", "Merging file: MERGED_20240229_124000\n",
                                 "Merging file: MERGED_20240229_124100\n", "Merge complete.\n"})
            QVERIFY2(ended.output.contains(QLatin1String(line)), qPrintable(ended.output));
    }

    void putsRecordersOnChannels()
    {
        makeInputs({QStringLiteral("40")});
        const Ended ended = merge({QStringLiteral("--channel"), QStringLiteral("2=7"),
                                   QStringLiteral("--channel"), QStringLiteral("1=9"), in()});
        QCOMPARE(ended.code, 0);
        const QString minute = QStringLiteral("40");
        QVERIFY(dataOfWav(pathOf(0)) == woven({fileAt(9, minute).samples(), fileAt(7, minute).samples()}, 2));
    }

    void leavesRecordersOut()
    {
        makeInputs({QStringLiteral("40")});
        const Ended ended = merge({QStringLiteral("--channel"), QStringLiteral("1=9"), in()});
        QCOMPARE(ended.code, 0);
        QCOMPARE(ended.errors,
                 QStringLiteral("merge-files: 1 of 2 files were left out; the log says why.\n"));
        QVERIFY(dataOfWav(pathOf(0)) == fileAt(9, QStringLiteral("40")).samples());
    }

    void rangeOfFilesThatAreMerged_data()
    {
        QTest::addColumn<QString>("kind");
        for (const char* kind : {"recorder without a channel", "no wave file", "several channels"})
            QTest::newRow(kind) << QString::fromLatin1(kind);
    }
    void rangeOfFilesThatAreMerged()
    {
        QFETCH(QString, kind);
        makeInputs({QStringLiteral("40")});
        // The range would begin half a minute earlier, and with it each minute.
        MergeFile early;
        early.serial = 8;
        early.stamp = QStringLiteral("20240229_123930");
        const QString path = in() + QLatin1Char('/') + early.baseName() + QStringLiteral(".wav");
        if (kind == QLatin1String("recorder without a channel")) {
            QCOMPARE(writeMergeFile(in(), early), path);
        } else if (kind == QLatin1String("no wave file")) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write("no wave file") > 0);
        } else {
            QCOMPARE(merge({in()}).code, 0);
            QVERIFY(QFile::rename(pathOf(0), path));
        }
        const Ended ended = merge({QStringLiteral("--channel"), QStringLiteral("1=7"),
                                   QStringLiteral("--channel"), QStringLiteral("2=9"), in()});
        QCOMPARE(ended.code, 0);
        QCOMPARE(outputs(), QStringList{QStringLiteral("MERGED_20240229_124000.wav")});
        QCOMPARE(ended.errors,
                 QStringLiteral("merge-files: 1 of 3 files were left out; the log says why.\n"));
    }

    void keepsToTheTimeRange_data()
    {
        QTest::addColumn<QString>("offset");
        QTest::newRow("UTC") << QString();
        QTest::newRow("UTC, told") << QStringLiteral("Z");
    }
    void keepsToTheTimeRange()
    {
        QFETCH(QString, offset);
        makeInputs({QStringLiteral("40"), QStringLiteral("41"), QStringLiteral("42"), QStringLiteral("43")});
        const Ended ended =
            merge({QStringLiteral("--start"), QStringLiteral("2024-02-29T12:41:00") + offset,
                   QStringLiteral("--end"), QStringLiteral("2024-02-29T12:42:00") + offset, in()});
        QCOMPARE(ended.code, 0);
        QCOMPARE(outputs(), (QStringList{QStringLiteral("MERGED_20240229_124100.wav"),
                                         QStringLiteral("MERGED_20240229_124200.wav")}));
    }

    void offsetOfTheTimeRangeCounts()
    {
        makeInputs({QStringLiteral("40"), QStringLiteral("41"), QStringLiteral("42")});
        const Ended ended =
            merge({QStringLiteral("--start"), QStringLiteral("2024-02-29T14:41:00+02:00"), in()});
        QCOMPARE(ended.code, 0);
        QCOMPARE(outputs(), (QStringList{QStringLiteral("MERGED_20240229_124100.wav"),
                                         QStringLiteral("MERGED_20240229_124200.wav")}));
        QDir(out()).removeRecursively();
        QCOMPARE(merge({QStringLiteral("--end"), QStringLiteral("2024-02-29T14:40:00+02:00"), in()}).code, 0);
        QCOMPARE(outputs(), QStringList{QStringLiteral("MERGED_20240229_124000.wav")});
    }

    void recordersOfFiveDigits()
    {
        for (const uint16_t serial : {12345, 2345})
            QVERIFY(!writeMergeFile(in(), fileAt(serial, QStringLiteral("40"))).isEmpty());
        const Ended ended = merge({in()});
        QCOMPARE(ended.code, 0);
        QCOMPARE(outputs(), QStringList{QStringLiteral("MERGED_20240229_124000.wav")});
        QCOMPARE(judgeWav(pathOf(0)).channels, 2);
        // And alone, on a channel of its own choice.
        QDir(out()).removeRecursively();
        const Ended alone = merge({QStringLiteral("--channel"), QStringLiteral("1=12345"), in()});
        QCOMPARE(alone.code, 0);
        QCOMPARE(judgeWav(pathOf(0)).channels, 1);
    }

    void takesFilesOfTheLengthThatItIsTold()
    {
        MergeFile file;
        file.serial = 7;
        file.seconds = 120;
        writeMergeFile(in(), file);
        QCOMPARE(merge({in()}).code, 2);
        const Ended ended = merge({QStringLiteral("--minutes"), QStringLiteral("2"), in()});
        QCOMPARE(ended.code, 0);
        QVERIFY(dataOfWav(pathOf(0)) == file.samples());
    }

    void filesThatAreNamedTwiceCountOnce()
    {
        makeInputs({QStringLiteral("40")});
        const QString file = in() + QStringLiteral("/ABC0007_20240229_124000.wav");
        QCOMPARE(merge({file, in(), file}).code, 0);
        QCOMPARE(judgeWav(pathOf(0)).channels, 2);
    }

    void writesIntoMergedByDefault()
    {
        makeInputs({QStringLiteral("40")});
        QProcess process;
        process.setWorkingDirectory(m_folder->path());
        process.start(QStringLiteral(NVX_MERGE_FILES), {in()});
        QCOMPARE(endOf(process).code, 0);
        const QDir merged(m_folder->filePath(QStringLiteral("merged")));
        QCOMPARE(merged.entryList({QStringLiteral("*.wav")}, QDir::Files),
                 QStringList{QStringLiteral("MERGED_20240229_124000.wav")});
        QCOMPARE(merged.entryList({QStringLiteral("MERGELOG_*.txt")}, QDir::Files).size(), 1);
    }

    void showsProgress_data()
    {
        QTest::addColumn<QString>("others");
        for (const char* others : {"none", "outputs", "recorder without a channel", "outside of the range"})
            QTest::newRow(others) << QString::fromLatin1(others);
    }
    void showsProgress()
    {
        QFETCH(QString, others);
        const QStringList minutes{QStringLiteral("40"), QStringLiteral("41"), QStringLiteral("42"),
                                  QStringLiteral("43")};
        makeInputs(minutes);
        if (others == QLatin1String("outputs"))
            QCOMPARE(merge({in()}).code, 0);
        if (others == QLatin1String("outside of the range"))
            makeInputs({QStringLiteral("39"), QStringLiteral("44")});
        if (others == QLatin1String("recorder without a channel"))
            for (const QString& minute : minutes)
                QVERIFY(!writeMergeFile(in(), fileAt(8, minute)).isEmpty());
        const Ended ended =
            merge({QStringLiteral("--channel"), QStringLiteral("1=7"), QStringLiteral("--channel"),
                   QStringLiteral("2=9"), QStringLiteral("--start"), QStringLiteral("2024-02-29T12:40:00"),
                   QStringLiteral("--end"), QStringLiteral("2024-02-29T12:43:00"), in()});
        QCOMPARE(ended.code, 0);
        // What was written, as a part of what goes in.
        for (const char* line : {"124000\n  0 %\r", "124100\n 24 %\r", "124200\n 49 %\r", "124300\n 74 %\r"})
            QVERIFY2(ended.output.contains(QLatin1String(line)), qPrintable(ended.output));
    }

    void stopsWhenAsked_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("Ctrl-C") << SIGINT;
        QTest::newRow("SIGTERM") << SIGTERM;
    }
    void stopsWhenAsked()
    {
        QFETCH(int, signal);
        for (uint16_t serial : {7, 9})
            makeLongInput(serial);
        // It can't say more than this, so it waits between the beginning of the file and the first block.
        const QString said = QStringLiteral("Merge Log File: %1/MERGELOG_20240229_124000.txt\n"
                                            "Building merge plan...\nStarting Merge.\n"
                                            "Merging file: MERGED_20240229_124000\n")
                                 .arg(out());
        NarrowPipe terminal(m_folder->filePath(QStringLiteral("terminal")), said.toUtf8().size());
        QVERIFY(terminal.isReady());
        QProcess process;
        process.setStandardOutputFile(terminal.path());
        process.start(QStringLiteral(NVX_MERGE_FILES), {QStringLiteral("--minutes"), QStringLiteral("5"),
                                                        QStringLiteral("--out"), out(), in()});
        QTRY_VERIFY(terminal.isFull());
        QCOMPARE(::kill(static_cast<pid_t>(process.processId()), signal), 0);
        terminal.drain();
        const Ended ended = endOf(process);
        QVERIFY2(ended.code == 3, qPrintable(ended.errors));
        QVERIFY(ended.errors.contains(QStringLiteral("merge-files: aborted; the last file is short.")));
        // What is there is whole.
        QCOMPARE(wholeFileObjection(pathOf(0)), QString());
        const JudgedWav wav = judgeWav(pathOf(0));
        QCOMPARE(wav.channels, 2);
        QVERIFY(wav.frames > 0 && wav.frames < 300 * 512000);
    }

    // --- rainy day flows
    void nothingFits()
    {
        makeInputs({QStringLiteral("40")});
        const Ended ended = merge({QStringLiteral("--channel"), QStringLiteral("1=8"), in()});
        QCOMPARE(ended.code, 2);
        QVERIFY(ended.errors.contains(QStringLiteral("merge-files: there was nothing to merge")));
        QVERIFY(outputs().isEmpty());
    }

    void directoryThatCannotBeMade()
    {
        makeInputs({QStringLiteral("40")});
        QFile file(m_folder->filePath(QStringLiteral("some")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        const Ended ended = merge({in()});
        QCOMPARE(ended.code, 5);
        QCOMPARE(ended.errors, QStringLiteral("merge-files: the directory %1 can't be made.\n").arg(out()));
    }

    void fullDisk()
    {
        makeInputs({QStringLiteral("40")});
        // No file of the program may pass 20 kB; as on a full disk, its writes fail from there on.
        const QString command = QStringLiteral("trap '' XFSZ; ulimit -f 20; exec \"$0\" \"$@\"");
        QProcess process;
        process.start(QStringLiteral("bash"), {QStringLiteral("-c"), command, QStringLiteral(NVX_MERGE_FILES),
                                               QStringLiteral("--out"), out(), in()});
        const Ended ended = endOf(process);
        QCOMPARE(ended.code, 5);
        QVERIFY2(ended.errors.contains(QStringLiteral("merge-files: The disk is full.")),
                 qPrintable(ended.errors));
        QVERIFY(judgeWav(pathOf(0)).frames > 0);
    }

    void wrongUse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("complaint");
        const QString channel = QStringLiteral("--channel takes");
        for (const char* value : {"7", "1=", "=7", "0=7", "256=7", "1=70000", "1=7=8", "a=b"})
            QTest::newRow(value) << QStringList{QStringLiteral("--channel"), QLatin1String(value)} << channel;
        for (const char* value : {"0", "-1", "x"})
            QTest::addRow("%s minutes", value)
                << QStringList{QStringLiteral("--minutes"), QLatin1String(value)}
                << QStringLiteral("--minutes takes");
        QTest::newRow("start") << QStringList{QStringLiteral("--start"), QStringLiteral("noon")}
                               << QStringLiteral("--start takes");
        QTest::newRow("end") << QStringList{QStringLiteral("--end"), QStringLiteral("12:40")}
                             << QStringLiteral("--end takes");
    }
    void wrongUse()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, complaint);
        const Ended ended = merge(arguments + QStringList{QStringLiteral("a.wav")});
        QCOMPARE(ended.code, 1);
        QVERIFY2(ended.errors.startsWith(QStringLiteral("merge-files: ") + complaint),
                 qPrintable(ended.errors));
    }

    void noFiles()
    {
        const Ended ended = merge({});
        QCOMPARE(ended.code, 1);
        QCOMPARE(ended.errors, QStringLiteral("merge-files: no files to merge.\n"));
    }
};

QTEST_GUILESS_MAIN(tst_merge_files)
#include "tst_merge_files.moc"
