#include "FileSwap.h"
#include "WavFeeder.h"
#include "WavJudge.h"

#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <memory>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <utility>
#include <vector>

namespace {

constexpr uint32_t kTime = 1709210400; // 2024-02-29 12:40:00 UTC
const QString kFirstName = QStringLiteral("ABC0042_20240229_124000.wav");

QRegularExpression incomplete(const char* reason)
{
    return QRegularExpression(QStringLiteral("NvxWavWriter: .*\\.wav is not complete: ") +
                              QRegularExpression::escape(QLatin1String(reason)));
}

/// Mounts an empty file system over `path`, for this process alone. False where nobody lets us.
bool mountOver(const char* path, const char* options)
{
    const bool alone = unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
    return alone && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", path, "tmpfs", 0, options) == 0;
}

/// Runs `work` in a process of its own and gives what it returns; -1 when it died.
template <class Work> int inChild(const Work& work)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(work());
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

constexpr int kNotAllowed = 200; ///< result of a child that may not mount

} // namespace

/// What the operating system can do to a file in work, other than taking no more of it, and the limits on
/// names and sizes.
class tst_NvxWavWriterErrors : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_writer = std::make_unique<NvxWavWriter>(600, m_dir->path().toStdWString());
        m_feeder = std::make_unique<WavFeeder>(*m_writer);
    }
    void cleanup()
    {
        m_writer.reset();
        m_dir.reset();
        if (m_readEnd >= 0)
            close(std::exchange(m_readEnd, -1));
    }

    // --- happy flows
    void filesEndBelowFourGigabytes_data()
    {
        QTest::addColumn<int>("left"); // bytes that the last block leaves below the limit
        QTest::addColumn<int>("files");
        QTest::newRow("two bytes left for the size and the padding") << 2 << 1;
        QTest::newRow("none left") << 0 << 2;
    }
    void filesEndBelowFourGigabytes()
    {
        QFETCH(int, left);
        QFETCH(int, files);
        constexpr qint64 kLimit = 0xFFFFFFFE;
        constexpr qint64 kFrame = 2;
        m_feeder->rate = 48000000; // few renewals of the header
        QVERIFY(m_feeder->header(kTime, 0));
        const QString path = m_feeder->newFiles.first();
        const qint64 headerSize = viewRiff(path).headerSize();
        QVERIFY(swapOpenFile(path, "/dev/null", O_WRONLY));
        const qint64 frames = (kLimit - headerSize - left) / kFrame;
        QVERIFY(silence(frames));
        QCOMPARE(m_feeder->newFiles.size(), files);
        QCOMPARE(m_writer->errorCode(), WavErrNone);
        if (files == 1) {
            QCOMPARE(m_writer->length(), unsigned(frames / 48000000));
            QVERIFY(silence(1));
            QCOMPARE(m_feeder->newFiles.size(), 2);
        }
        m_writer->finishFile();
        const QByteArray record = viewRiff(m_feeder->newFiles.last()).info.value("INVX");
        const auto info = NvxWavInfoDataHF::fromBytes(
            {reinterpret_cast<const uint8_t*>(record.constData()), size_t(record.size())});
        QVERIFY(info);
        QCOMPARE(qint64(info->startSample()) + judgeWav(m_feeder->newFiles.last()).frames,
                 frames + (files == 1 ? 1 : 0));
    }

    void namesThatLinksAndFoldersHaveAreTaken()
    {
        QVERIFY(QFile::link(QStringLiteral("/nowhere"), m_dir->filePath(kFirstName)));
        QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("ABC0042_20240229_124000_2.wav")));
        QVERIFY(m_feeder->second(kTime, 0));
        QCOMPARE(m_feeder->newFiles,
                 QStringList{m_dir->filePath(QStringLiteral("ABC0042_20240229_124000_3.wav"))});
    }

    // --- rainy day flows
    void tooManyFilesOfOneName()
    {
        for (int number = 1; number < 10000; ++number) {
            const QString tail = number == 1 ? QString() : QStringLiteral("_%1").arg(number);
            QFile file(m_dir->filePath(QStringLiteral("ABC0042_20240229_124000%1.wav").arg(tail)));
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
        QVERIFY(m_feeder->header(kTime, 0));
        QCOMPARE(m_feeder->newFiles,
                 QStringList{m_dir->filePath(QStringLiteral("ABC0042_20240229_124000_10000.wav"))});
        m_writer->finishFile();
        QVERIFY(m_feeder->header(kTime, 0));
        QCOMPARE(m_writer->errorCode(), WavErrCannotOpen);
        QCOMPARE(m_feeder->newFiles.size(), 1);
        QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files).size(), 10000);
    }

    void failedWrite_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<int>("error");
        QTest::newRow("of a disk that answers no more")
            << QStringLiteral("/dev/null") << int(WavErrWriteFailed);
        QTest::newRow("on a full disk") << QStringLiteral("/dev/full") << int(WavErrDiskFull);
    }
    void failedWrite()
    {
        QFETCH(QString, device);
        QFETCH(int, error);
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 101));
        const QString path = m_feeder->newFiles.first();
        const int descriptor = descriptorOf(path);
        QVERIFY(isOpenDescriptor(descriptor));
        // A file that may only be read refuses each write.
        const int mode = error == WavErrWriteFailed ? O_RDONLY : O_WRONLY;
        QVERIFY(swapOpenFile(path, qPrintable(device), mode));
        QVERIFY(m_feeder->block(kTime, 0, 10000));
        QCOMPARE(int(m_writer->errorCode()), error);
        QVERIFY(!isOpenDescriptor(descriptor));
        // What was on the disk before is whole.
        QCOMPARE(wholeFileObjection(path), QString());
        QCOMPARE(judgeWav(path).frames, 101);
    }

    void failedWriteOfGatheredBlocks()
    {
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 101));
        const QString path = m_feeder->newFiles.first();
        const int descriptor = descriptorOf(path);
        QVERIFY(isOpenDescriptor(descriptor));
        QVERIFY(m_feeder->block(kTime, 0, 10));
        QVERIFY(swapOpenFile(path, "/dev/null", O_RDONLY));
        QTest::ignoreMessage(QtWarningMsg, incomplete("The samples cannot be written to the wave file."));
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), WavErrWriteFailed);
        QVERIFY(!isOpenDescriptor(descriptor));
        QCOMPARE(judgeWav(path).frames, 101);
    }

    void headerThatCannotBeUpdated()
    {
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 100));
        const QString path = m_feeder->newFiles.first();
        const int descriptor = descriptorOf(path);
        QVERIFY(isOpenDescriptor(descriptor));
        QVERIFY(swapWithPipe(path));
        // The samples go through, but nobody gets back to the header.
        QVERIFY(m_feeder->block(kTime, 0, 1000));
        QCOMPARE(m_writer->errorCode(), WavErrHeaderUpdate);
        QVERIFY(!isOpenDescriptor(descriptor));
        QCOMPARE(wholeFileObjection(path), QString());
        QCOMPARE(judgeWav(path).frames, 100);
    }

    void headerThatCannotBeUpdatedAtTheEnd()
    {
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 100));
        const QString path = m_feeder->newFiles.first();
        const int descriptor = descriptorOf(path);
        QVERIFY(isOpenDescriptor(descriptor));
        QVERIFY(m_feeder->block(kTime, 0, 10));
        QVERIFY(swapWithPipe(path));
        QTest::ignoreMessage(QtWarningMsg, incomplete("The header of the wave file cannot be updated."));
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), WavErrHeaderUpdate);
        QVERIFY(!isOpenDescriptor(descriptor));
        QCOMPARE(judgeWav(path).frames, 100);
    }

    void fileThatCannotBeClosed()
    {
        QVERIFY(m_feeder->header(kTime, 0));
        QVERIFY(m_feeder->block(kTime, 0, 100));
        const QString path = m_feeder->newFiles.first();
        QCOMPARE(close(descriptorOf(path)), 0);
        QTest::ignoreMessage(QtWarningMsg, incomplete("The samples cannot be written to the wave file."));
        m_writer->finishFile();
        QCOMPARE(m_writer->errorCode(), WavErrWriteFailed);
        QCOMPARE(wholeFileObjection(path), QString());
    }

    void diskWithoutRoomForAnotherFile()
    {
        const QByteArray path = QFile::encodeName(m_dir->path());
        const int result = inChild([&] {
            // The directory and one file.
            if (!mountOver(path.constData(), "size=1m,nr_inodes=2"))
                return kNotAllowed;
            const bool first = m_feeder->second(kTime, 0) && m_writer->errorCode() == WavErrNone;
            const bool consumed = m_feeder->second(kTime + 600, 1000);
            const QString file = m_feeder->newFiles.value(0);
            const RiffView view = viewRiff(file);
            const bool isWhole = m_feeder->newFiles.size() == 1 && view.isValid &&
                                 view.chunk("data")->size == 2000 &&
                                 qint64{view.riffSize} + 8 == view.fileSize;
            return first && consumed && isWhole ? int(m_writer->errorCode()) : kNotAllowed + 1;
        });
        if (result == kNotAllowed)
            QSKIP("no file system can be mounted here, not even in a namespace of our own");
        QCOMPARE(result, int(WavErrDiskFull));
    }

    void diskThatIsFullForEverybody_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<int>("prefixLength"); // shifts where the disk ends among the frames
        for (int bits : {16, 24, 32}) {
            for (int length = 1; length <= 6; ++length)
                QTest::addRow("%d bits, prefix of %d", bits, length) << bits << length;
        }
    }
    void diskThatIsFullForEverybody()
    {
        QFETCH(int, bits);
        QFETCH(int, prefixLength);
        constexpr int kDiskBytes = 0x10000;
        const QByteArray path = QFile::encodeName(m_dir->path());
        m_feeder->bits = static_cast<unsigned char>(bits);
        m_feeder->prefix = QString(prefixLength, QLatin1Char('P'));
        const int result = inChild([&] {
            if (!mountOver(path.constData(), "size=64k"))
                return kNotAllowed;
            m_feeder->header(kTime, 0);
            for (int i = 0; i < 1000 && m_writer->errorCode() == WavErrNone; ++i)
                m_feeder->block(kTime, 0, 101);
            // No byte more than a frame is given away, and the file is whole.
            const RiffView view = viewRiff(m_feeder->newFiles.value(0));
            const bool isWhole = view.isValid && qint64{view.riffSize} + 8 == view.fileSize &&
                                 view.fileSize % 2 == 0 && view.fileSize > kDiskBytes - bits / 8 - 1 &&
                                 view.chunk("data")->size % unsigned(bits / 8) == 0;
            return isWhole ? int(m_writer->errorCode()) : kNotAllowed + 1;
        });
        if (result == kNotAllowed)
            QSKIP("no file system can be mounted here, not even in a namespace of our own");
        QCOMPARE(result, int(WavErrDiskFull));
    }

private:
    /// Dispatches `frames` samples of silence in the largest blocks there are.
    bool silence(qint64 frames)
    {
        constexpr qint64 kMost = 0xFFFF;
        static std::vector<unsigned char> zeros(kMost * 2);
        NvxWavDataChunk chunk;
        chunk.setBitDepth(16);
        chunk.setData(zeros.data());
        bool consumed = true;
        for (; frames > 0 && consumed; frames -= kMost) {
            chunk.setNumSamples(static_cast<unsigned short>(qMin(frames, kMost)));
            consumed = m_feeder->process(chunk, kTime, 0);
        }
        return consumed;
    }

    /// A pipe takes what is written, but nobody can go back in it.
    bool swapWithPipe(const QString& path)
    {
        int ends[2] = {-1, -1};
        if (pipe(ends) != 0)
            return false;
        m_readEnd = ends[0];
        const bool done = swapOpenFile(path, ends[1]);
        close(ends[1]);
        return done;
    }

    int m_readEnd = -1;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<NvxWavWriter> m_writer;
    std::unique_ptr<WavFeeder> m_feeder;
};

QTEST_GUILESS_MAIN(tst_NvxWavWriterErrors)
#include "tst_NvxWavWriterErrors.moc"
