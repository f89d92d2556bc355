#include "WavFeeder.h"
#include "WavJudge.h"

#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTemporaryDir>

#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr uint32_t kTime = 1709210400;

/// No file of this process may grow beyond `bytes` while this lives: a disk that is full at any byte we like.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &m_before);
        set(bytes);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    void set(rlim_t bytes) const
    {
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }

private:
    rlimit m_before{};
};

QStringList filesOf(const QTemporaryDir& dir)
{
    return QDir(dir.path()).entryList(QDir::Files, QDir::Name);
}

qint64 headerSizeFor(WavFeeder& feeder)
{
    return feeder.header(kTime, 0) ? viewRiff(feeder.newFiles.first()).headerSize() : -1;
}

} // namespace

class tst_NvxWavWriterFaults : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR); }

    // --- rainy day flows
    void diskFullInTheHeader_data()
    {
        QTest::addColumn<int>("room");
        for (int room : {0, 1, 4, 11, 20, 35, 36, 44, 100, 300})
            QTest::addRow("%d bytes", room) << room;
        QTest::newRow("all but the last byte") << -1;
    }
    void diskFullInTheHeader()
    {
        QFETCH(int, room);
        QTemporaryDir dir;
        QTemporaryDir other;
        NvxWavWriter measure(600, other.path().toStdWString());
        WavFeeder measured(measure);
        const qint64 headerSize = headerSizeFor(measured);
        QVERIFY(headerSize > 300);

        NvxWavWriter writer(600, dir.path().toStdWString());
        WavFeeder feeder(writer);
        QVERIFY(feeder.second(kTime, 0));
        writer.finishFile();
        {
            const FileSizeLimit full(static_cast<rlim_t>(room < 0 ? headerSize - 1 : room));
            QVERIFY(feeder.header(kTime + 1, 1000));
        }
        QCOMPARE(writer.errorCode(), WavErrDiskFull);
        QVERIFY(!writer.isNewFile());
        QCOMPARE(feeder.newFiles.size(), 1);
        // The half header is gone, the file before it is whole.
        QCOMPARE(filesOf(dir).size(), 1);
        QCOMPARE(wholeFileObjection(feeder.newFiles.first()), QString());
        QCOMPARE(judgeWav(feeder.newFiles.first()).frames, 1000);
    }

    void diskFullInTheSamples_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<int>("room"); // bytes behind the header
        for (int bits : {16, 24, 32}) {
            for (int room :
                 {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 300, 301, 302, 303, 599, 600, 601, 1000, 1001, 1202})
                QTest::addRow("%d bits, room for %d bytes", bits, room) << bits << room;
        }
    }
    void diskFullInTheSamples()
    {
        QFETCH(int, bits);
        QFETCH(int, room);
        QTemporaryDir dir;
        NvxWavWriter writer(600, dir.path().toStdWString());
        WavFeeder feeder(writer);
        feeder.bits = static_cast<unsigned char>(bits);
        const qint64 headerSize = headerSizeFor(feeder);
        QVERIFY(headerSize > 0);
        {
            const FileSizeLimit full(static_cast<rlim_t>(headerSize + room));
            qint64 given = 0;
            while (writer.errorCode() == WavErrNone && given < 5000) {
                QVERIFY(feeder.block(kTime, 0, 101));
                given += 101;
            }
            // The full disk is noticed a second of audio later at most, and never before.
            QVERIFY(given * bits / 8 > room);
            QVERIFY(given - room / (bits / 8) <= 1000 + 101);
            QCOMPARE(writer.errorCode(), WavErrDiskFull);
            writer.setStopLogging(true);
            writer.finishFile();
        }
        QCOMPARE(writer.errorCode(), WavErrNone);
        const QString path = feeder.newFiles.first();
        // Every whole frame that found room is there, and nothing else but the padding where that has room.
        const qint64 frames = room / (bits / 8);
        const qint64 bytes = frames * bits / 8;
        const bool isPadded = bytes % 2 != 0 && bytes < room;
        const RiffView view = viewRiff(path);
        QCOMPARE(view.fileSize, headerSize + bytes + (isPadded ? 1 : 0));
        QCOMPARE(qint64{view.chunk("data")->size}, bytes);
        QCOMPARE(qint64{view.riffSize} + 8, view.fileSize);
        if (isPadded) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadOnly));
            QCOMPARE(file.readAll().back(), '\0');
        }
        if (view.fileSize % 2 == 0)
            QCOMPARE(wholeFileObjection(path), QString());
        QCOMPARE(soxObjection(path), QString());
        const JudgedWav wav = judgeWav(path);
        QCOMPARE(wav.error, QString());
        QCOMPARE(wav.frames, frames);
        for (size_t i = 0; i < wav.samples.size(); ++i)
            QCOMPARE(wav.samples[i], feeder.rampValue(i, 0));
    }

    void largeBlockIsRefusedAtOnce()
    {
        QTemporaryDir dir;
        NvxWavWriter writer(600, dir.path().toStdWString());
        WavFeeder feeder(writer);
        feeder.bits = 32;
        feeder.rate = 512000;
        const qint64 headerSize = headerSizeFor(feeder);
        QVERIFY(feeder.block(kTime, 0, 1000));
        QVERIFY(feeder.block(kTime, 0, 1000));
        {
            const FileSizeLimit full(static_cast<rlim_t>(headerSize + 50001));
            QVERIFY(feeder.block(kTime, 0, 65535));
        }
        QCOMPARE(writer.errorCode(), WavErrDiskFull);
        const JudgedWav wav = judgeWav(feeder.newFiles.first());
        QCOMPARE(wav.frames, 12500);
        for (size_t i = 0; i < wav.samples.size(); ++i)
            QCOMPARE(wav.samples[i], feeder.rampValue(i, 0));
    }

    void fullDiskIsNoticedBeforeMuchIsGathered()
    {
        QTemporaryDir dir;
        NvxWavWriter writer(600, dir.path().toStdWString());
        WavFeeder feeder(writer);
        feeder.rate = 512000;
        const qint64 headerSize = headerSizeFor(feeder);
        {
            const FileSizeLimit full(static_cast<rlim_t>(headerSize + 2000));
            qint64 given = 0;
            while (writer.errorCode() == WavErrNone && given < 1000000) {
                QVERIFY(feeder.block(kTime, 0, 1000));
                given += 2000;
            }
            QVERIFY2(given <= 2000 + 65536 + 2000, qPrintable(QString::number(given)));
        }
        QCOMPARE(writer.errorCode(), WavErrDiskFull);
    }

    void diskFullAtTheRoll()
    {
        QTemporaryDir dir;
        NvxWavWriter writer(600, dir.path().toStdWString());
        WavFeeder feeder(writer);
        QVERIFY(feeder.header(kTime, 0));
        QVERIFY(feeder.block(kTime, 0, 1000));
        {
            const FileSizeLimit full(50);
            QVERIFY(feeder.block(kTime + 600, 0, 10));
        }
        QCOMPARE(writer.errorCode(), WavErrDiskFull);
        QCOMPARE(filesOf(dir).size(), 1);
        QCOMPARE(wholeFileObjection(feeder.newFiles.first()), QString());
        QCOMPARE(judgeWav(feeder.newFiles.first()).frames, 1000);
    }

    void diskFullAtThePaddingIsLoggedAndKept()
    {
        QTemporaryDir dir;
        NvxWavWriter writer(600, dir.path().toStdWString());
        WavFeeder feeder(writer);
        feeder.bits = 24;
        const qint64 headerSize = headerSizeFor(feeder);
        QVERIFY(feeder.block(kTime, 0, 101));
        QTest::ignoreMessage(
            QtWarningMsg, QRegularExpression(
                              QStringLiteral("NvxWavWriter: .*\\.wav is not complete: The disk is full\\.")));
        {
            const FileSizeLimit full(static_cast<rlim_t>(headerSize + 303));
            writer.finishFile();
        }
        QCOMPARE(writer.errorCode(), WavErrDiskFull);
        QCOMPARE(judgeWav(feeder.newFiles.first()).frames, 101);
        QCOMPARE(soxObjection(feeder.newFiles.first()), QString());
        const RiffView view = viewRiff(feeder.newFiles.first());
        QCOMPARE(view.fileSize, headerSize + 303);
        QCOMPARE(qint64{view.riffSize} + 8, view.fileSize);
    }

    void badFormatOnAFullDisk()
    {
        QTemporaryDir dir;
        NvxWavWriter writer(600, dir.path().toStdWString());
        WavFeeder feeder(writer);
        const qint64 headerSize = headerSizeFor(feeder);
        QVERIFY(feeder.block(kTime, 0, 100));
        QVERIFY(feeder.block(kTime, 0, 10));
        feeder.bits = 24;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("is not complete")));
        {
            // Two of the gathered samples find room, and a half.
            const FileSizeLimit full(static_cast<rlim_t>(headerSize + 205));
            QVERIFY(feeder.block(kTime, 0, 10));
        }
        QCOMPARE(writer.errorCode(), WavErrBadFormat);
        QCOMPARE(wholeFileObjection(feeder.newFiles.first()), QString());
        QCOMPARE(judgeWav(feeder.newFiles.first()).frames, 102);
    }

    void failureOfFinishFileAfterStopIsKept()
    {
        QTemporaryDir dir;
        NvxWavWriter writer(600, dir.path().toStdWString());
        WavFeeder feeder(writer);
        feeder.bits = 24;
        const qint64 headerSize = headerSizeFor(feeder);
        QVERIFY(feeder.block(kTime, 0, 101));
        writer.setStopLogging(true);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("is not complete")));
        {
            const FileSizeLimit full(static_cast<rlim_t>(headerSize + 303));
            writer.finishFile();
        }
        QCOMPARE(writer.errorCode(), WavErrDiskFull);
        writer.finishFile();
        QCOMPARE(writer.errorCode(), WavErrNone);
    }

    void directoryThatIsNotThere_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("missing") << QStringLiteral("/nowhere/at/all");
        QTest::newRow("a file") << QStringLiteral("/dev/null");
        QTest::newRow("where nobody may make a file") << QStringLiteral("/proc");
        QTest::newRow("name too long") << QDir::tempPath() + "/" + QString(300, QLatin1Char('x'));
    }
    void directoryThatIsNotThere()
    {
        QFETCH(QString, path);
        NvxWavWriter writer(600, path.toStdWString());
        WavFeeder feeder(writer);
        QVERIFY(feeder.header(kTime, 0));
        QCOMPARE(writer.errorCode(), WavErrCannotOpen);
        QCOMPARE(NvxWavWriter::errorStr(writer.errorCode()),
                 std::string("The wave file cannot be created in the recording directory."));
        QVERIFY(!writer.isNewFile());
        QVERIFY(!QFileInfo(path).isDir() || path == QLatin1String("/proc"));
        QVERIFY(feeder.block(kTime, 0, 10));
        QCOMPARE(writer.errorCode(), WavErrCannotOpen);
    }

    void directoryWithoutPermission()
    {
        if (geteuid() == 0 && seteuid(65534) != 0)
            QSKIP("the superuser may write anywhere, and no other user can be taken on");
        const auto back = qScopeGuard([] {
            if (getuid() == 0)
                QCOMPARE(seteuid(0), 0);
        });
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        QVERIFY(QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::ExeOwner));
        NvxWavWriter writer(600, dir.path().toStdWString());
        WavFeeder feeder(writer);
        QVERIFY(feeder.header(kTime, 0));
        QCOMPARE(writer.errorCode(), WavErrCannotOpen);
        QVERIFY(QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(filesOf(dir).isEmpty());
    }

    void directoryRemovedWhileRecording()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("gone"));
        QVERIFY(QDir().mkdir(path));
        NvxWavWriter writer(600, path.toStdWString());
        WavFeeder feeder(writer);
        QVERIFY(feeder.second(kTime, 0));
        QVERIFY(QDir(path).removeRecursively());
        QVERIFY(feeder.second(kTime + 600, 1000));
        QCOMPARE(writer.errorCode(), WavErrCannotOpen);
        QVERIFY(!QFileInfo::exists(path));
    }

    void noMoreDescriptors()
    {
        QTemporaryDir dir;
        NvxWavWriter writer(600, dir.path().toStdWString());
        WavFeeder feeder(writer);
        rlimit before{};
        QCOMPARE(getrlimit(RLIMIT_NOFILE, &before), 0);
        const rlimit none{3, before.rlim_max};
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &none), 0);
        const bool consumed = feeder.header(kTime, 0);
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &before), 0);
        QVERIFY(consumed);
        QCOMPARE(writer.errorCode(), WavErrCannotOpen);
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavWriterFaults)
#include "tst_NvxWavWriterFaults.moc"
