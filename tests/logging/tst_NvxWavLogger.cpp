#include "LogStream.h"
#include "WavJudge.h"

#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/WavStreamEvent.h"
#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMetaMethod>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTemporaryFile>

#include <iostream>
#include <memory>
#include <unistd.h>

namespace {

constexpr uint32_t kTime = 1709210400; // 2024-02-29 12:40:00 UTC, a whole multiple of 600
const HydDeviceId kDeviceId(DevTypeRecorderA, 42);

const QString kAdvice = QStringLiteral("\nPlease ensure that there is space on the disk and that you have "
                                       "permission to write to the destination directory.");

/// What is written to the standard output while this lives.
class OutputCapture
{
public:
    OutputCapture() : m_saved(dup(STDOUT_FILENO))
    {
        fflush(stdout);
        std::cout.flush();
        if (m_file.open())
            dup2(m_file.handle(), STDOUT_FILENO);
    }
    ~OutputCapture() { finish(); }
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;
    QByteArray finish()
    {
        if (m_saved < 0)
            return {};
        fflush(stdout);
        std::cout.flush();
        dup2(m_saved, STDOUT_FILENO);
        close(m_saved);
        m_saved = -1;
        m_file.seek(0);
        return m_file.readAll();
    }

private:
    QTemporaryFile m_file;
    int m_saved;
};

} // namespace

/// The logger's signals, its life and its failures; what lands in the files is tst_NvxWavLoggerFiles.
class tst_NvxWavLogger : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_stream = LogStream();
        makeLogger(600);
    }
    void cleanup()
    {
        m_logger.reset();
        m_dir.reset();
    }

    // --- happy flows
    void firstHeaderStartsTheFirstFile()
    {
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        QSignalSpy dataTime(m_logger.get(), &NvxWavLogger::dataTime);
        header(kTime, 0);
        QCOMPARE(newFile.size(), 1);
        QCOMPARE(newFile.first().first().toString(), firstPath());
        QCOMPARE(dataTime.size(), 1);
        const auto time = dataTime.first().first().toDateTime();
        QCOMPARE(time, QDateTime(QDate(2024, 2, 29), QTime(12, 40), Qt::UTC));
        QCOMPARE(time.timeSpec(), Qt::UTC);
    }

    void dataTimeComesBeforeTheFile_data()
    {
        QTest::addColumn<int>("channels");
        QTest::newRow("one recorder") << 1;
        QTest::newRow("array") << 2;
    }
    void dataTimeComesBeforeTheFile()
    {
        QFETCH(int, channels);
        m_stream.channels = static_cast<uint8_t>(channels);
        QStringList order;
        connect(m_logger.get(), &NvxWavLogger::newFileCreated, this,
                [&order] { order.append(QStringLiteral("file")); });
        connect(m_logger.get(), &NvxWavLogger::dataTime, this,
                [&order] { order.append(QStringLiteral("time")); });
        header(kTime, 0);
        QCOMPARE(order, (QStringList{QStringLiteral("time"), QStringLiteral("file")}));
    }

    void progressOfAFileThatBeginsInMidSpan()
    {
        QSignalSpy progress(m_logger.get(), &NvxWavLogger::logProgress);
        header(1000, 0);
        data(1000, 0, 1000);
        QCOMPARE(progress.size(), 1);
        QCOMPARE(progress.last()[0].value<uint32_t>(), 1U);
        QCOMPARE(progress.last()[1].value<uint32_t>(), 200U);
    }

    void timesBeyond2038()
    {
        constexpr uint32_t kLate = 4000000200U + 100; // in 2096
        QSignalSpy progress(m_logger.get(), &NvxWavLogger::logProgress);
        QSignalSpy dataTime(m_logger.get(), &NvxWavLogger::dataTime);
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        header(kLate, 0);
        data(kLate, 0, 1000);
        QCOMPARE(dataTime.first().first().toDateTime().toSecsSinceEpoch(), qint64{kLate});
        QCOMPARE(progress.first()[1].value<uint32_t>(), 500U);
        QVERIFY(newFile.first().first().toString().contains(QStringLiteral("_20961002_")));
    }

    void progressCountsTheCurrentFile()
    {
        QSignalSpy progress(m_logger.get(), &NvxWavLogger::logProgress);
        for (uint32_t second = 0; second < 3; ++second) {
            header(kTime + 598 + second, 1000 * second);
            data(kTime + 598 + second, 1000 * second, 1000);
        }
        QCOMPARE(progress.size(), 3);
        QCOMPARE(progress[0][0].value<uint32_t>(), 1U);
        QCOMPARE(progress[0][1].value<uint32_t>(), 2U);
        QCOMPARE(progress[1][0].value<uint32_t>(), 2U);
        QCOMPARE(progress[2][0].value<uint32_t>(), 1U);
        QCOMPARE(progress[2][1].value<uint32_t>(), 600U);
    }

    void rollsAtTheReportedSpan()
    {
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        header(1000, 0);
        data(1000, 0, 1000);
        data(1199, 1000, 1000);
        QCOMPARE(newFile.size(), 1);
        data(1200, 2000, 1000);
        QCOMPARE(newFile.size(), 2);
    }

    void rolloverByte_data()
    {
        QTest::addColumn<QList<int>>("bytes");
        QTest::addColumn<int>("files");
        QTest::newRow("steady") << QList<int>{5, 5, 5} << 1;
        QTest::newRow("rises") << QList<int>{5, 6} << 2;
        QTest::newRow("falls") << QList<int>{5, 3} << 1;
        QTest::newRow("falls and rises") << QList<int>{5, 3, 4} << 2;
        QTest::newRow("none seen at first") << QList<int>{0, 9} << 1;
        QTest::newRow("falls to none and comes back") << QList<int>{5, 0, 9} << 1;
        QTest::newRow("wraps") << QList<int>{255, 1, 2} << 2;
        QTest::newRow("rises twice") << QList<int>{1, 2, 200} << 3;
    }
    void rolloverByte()
    {
        QFETCH(QList<int>, bytes);
        QFETCH(int, files);
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        uint32_t second = 0;
        for (int value : bytes) {
            m_stream.statuses[0].rollover = static_cast<uint8_t>(value);
            header(kTime + second, 1000 * second);
            data(kTime + second, 1000 * second, 1000);
            ++second;
        }
        QCOMPARE(newFile.size(), files);
        m_logger->stopLogging();
        qint64 frames = 0;
        for (const auto& file : newFile)
            frames += judgeWav(file.first().toString()).frames;
        QCOMPARE(frames, qint64{1000} * bytes.size());
    }

    void onlyLiveStreamsFollowTheRolloverByte_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("files");
        QTest::newRow("wave") << int(StreamWave) << 1 << 2;
        QTest::newRow("spectrum") << int(StreamSpectrum) << 1 << 2;
        QTest::newRow("scan or replay") << int(StreamWaveScan) << 1 << 1;
        QTest::newRow("raw wave") << int(StreamRawWave) << 1 << 1;
        QTest::newRow("array") << int(StreamWave) << 2 << 1;
    }
    void onlyLiveStreamsFollowTheRolloverByte()
    {
        QFETCH(int, type);
        QFETCH(int, channels);
        QFETCH(int, files);
        m_stream.streamType = static_cast<HydStreamType>(type);
        m_stream.channels = static_cast<uint8_t>(channels);
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        m_stream.statuses[0].rollover = 5;
        header(kTime, 0);
        data(kTime, 0, 1000);
        m_stream.statuses[0].rollover = 6;
        header(kTime + 1, 1000);
        QCOMPARE(newFile.size(), files);
    }

    void stopLoggingCompletesTheFile()
    {
        QSignalSpy stopped(m_logger.get(), &NvxWavLogger::loggingStopped);
        header(kTime, 0);
        data(kTime, 0, 999);
        m_logger->stopLogging();
        QCOMPARE(stopped.size(), 1);
        QCOMPARE(wholeFileObjection(firstPath()), QString());
        QCOMPARE(judgeWav(firstPath()).frames, 999);
        // What comes afterwards is dropped, without a word.
        header(kTime + 1, 1000);
        data(kTime + 1, 1000, 100);
        QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files).size(), 1);
        QCOMPARE(judgeWav(firstPath()).frames, 999);
    }

    void stopLoggingWithoutAFile()
    {
        QSignalSpy stopped(m_logger.get(), &NvxWavLogger::loggingStopped);
        QSignalSpy failed(m_logger.get(), &NvxWavLogger::loggingFailed);
        m_logger->stopLogging();
        QCOMPARE(stopped.size(), 1);
        QCOMPARE(failed.size(), 0);
    }

    void destructorSaysNothing()
    {
        QSignalSpy stopped(m_logger.get(), &NvxWavLogger::loggingStopped);
        header(kTime, 0);
        data(kTime, 0, 555);
        m_logger.reset();
        QCOMPARE(stopped.size(), 0);
        QCOMPARE(wholeFileObjection(firstPath()), QString());
        QCOMPARE(judgeWav(firstPath()).frames, 555);
    }

    void modeIsKept()
    {
        QCOMPARE(int(m_logger->wavTimeLog()), 0);
        m_logger->setWavTimeLog(LogOn);
        QCOMPARE(m_logger->wavTimeLog(), LogOn);
        // Any other value than 1 is normal recording.
        m_logger->setWavTimeLog(static_cast<HydLogMode>(2));
        header(kTime, 0);
        QCOMPARE(QDir(m_dir->path()).entryList({QStringLiteral("*.wav")}, QDir::Files).size(), 1);
    }

    void interfaceHasSignalsAndNoSlots()
    {
        const QMetaObject& meta = NvxWavLogger::staticMetaObject;
        int signalCount = 0;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            QCOMPARE(meta.method(i).methodType(), QMetaMethod::Signal);
            ++signalCount;
        }
        QCOMPARE(signalCount, 7);
        QVERIFY(meta.indexOfSignal("needToAdjustTime(HydDeviceId)") >= 0);
    }

    void adjustingTheTimeIsNeverAskedFor()
    {
        QSignalSpy adjust(m_logger.get(), &NvxWavLogger::needToAdjustTime);
        header(kTime, 0);
        data(kTime, 0, 100);
        header(kTime - 5000, 7);
        m_logger->stopLogging();
        QCOMPARE(adjust.size(), 0);
    }

    // --- rainy day flows
    void headerWithoutWaveSetupChangesNothing()
    {
        header(kTime, 0);
        data(kTime, 0, 500);
        QSignalSpy dataTime(m_logger.get(), &NvxWavLogger::dataTime);
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        LogStream wrong = m_stream;
        wrong.withWavSetup = false;
        OutputCapture capture;
        m_logger->handleWavEventHdr(wrong.header(kTime + 600, 77), kDeviceId, makeLogDevice());
        QCOMPARE(
            capture.finish(),
            QByteArray("WARNING: Event header contains no wav setup chunk. Wav Logger may be connected to "
                       "the wrong stream.\n"));
        QCOMPARE(dataTime.size(), 0);
        QCOMPARE(newFile.size(), 0);
        // The open file goes on.
        data(kTime, 0, 500);
        m_logger->stopLogging();
        QCOMPARE(judgeWav(firstPath()).frames, 1000);
    }

    void headerWithoutWaveSetupLeavesTheRolloverByte()
    {
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        m_stream.statuses[0].rollover = 5;
        header(kTime, 0);
        data(kTime, 0, 1000);
        m_stream.statuses[0].rollover = 9;
        m_stream.withWavSetup = false;
        OutputCapture capture;
        header(kTime + 1, 1000);
        QVERIFY(capture.finish().startsWith("WARNING: "));
        m_stream.withWavSetup = true;
        m_stream.statuses[0].rollover = 6;
        header(kTime + 1, 1000);
        QCOMPARE(newFile.size(), 2);
    }

    void nothingComesOfNothing()
    {
        QSignalSpy progress(m_logger.get(), &NvxWavLogger::logProgress);
        m_logger->handleWavEventHdr(nullptr, kDeviceId, nullptr);
        m_logger->handleWavData(nullptr);
        m_logger->handleWavData(std::make_shared<HydStreamDataPayload>(
            makeLogKey(kTime, 0), std::shared_ptr<HydStreamDataChunk>()));
        m_logger->handleStreamStatusData(nullptr, kDeviceId);
        m_logger->handleStreamStatusData(std::make_shared<HydStatusDataPayload>(), kDeviceId);
        m_logger->processWavStreamEvent(nullptr);
        m_logger->processSStreamEvent(nullptr);
        QCOMPARE(progress.size(), 0);
        QVERIFY(QDir(m_dir->path()).entryList(QDir::Files).isEmpty());
    }

    void headerWithTooFewChunks_data()
    {
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("chunks");
        QTest::addColumn<bool>("withKey");
        for (int channels : {0, 1, 2, 8, 255}) {
            for (int chunks : {0, 1}) {
                for (bool withKey : {true, false})
                    QTest::addRow("%d channels, %d chunks, %s key", channels, chunks, withKey ? "with" : "no")
                        << channels << chunks << withKey;
            }
        }
    }
    void headerWithTooFewChunks()
    {
        QFETCH(int, channels);
        QFETCH(int, chunks);
        QFETCH(bool, withKey);
        m_stream.channels = static_cast<uint8_t>(channels);
        m_stream.devices.resize(size_t(chunks));
        m_stream.statuses.resize(size_t(chunks));
        m_stream.withScaling = false;
        m_stream.withKey = withKey;
        for (int type : {StreamWave, StreamWaveScan}) {
            m_stream.streamType = static_cast<HydStreamType>(type);
            m_logger->handleWavEventHdr(m_stream.header(kTime, 0), kDeviceId, nullptr);
        }
        const QStringList files = QDir(m_dir->path()).entryList(QDir::Files);
        QCOMPARE(files.size(), 1);
        m_logger->stopLogging();
        // A header that counts no channel is one recorder's.
        QCOMPARE(judgeWav(m_dir->filePath(files.first())).channels, qMax(1, channels));
    }

    void arrayWithoutAnyChannelIsBadFormat()
    {
        QSignalSpy failed(m_logger.get(), &NvxWavLogger::loggingFailed);
        m_stream.channels = 0;
        m_stream.master = LogDevice();
        header(kTime, 0);
        QCOMPARE(failed.size(), 1);
        QVERIFY(QDir(m_dir->path()).entryList(QDir::Files).isEmpty());
    }

    void writeErrorIsReportedOnce()
    {
        makeLogger(600, QStringLiteral("/nowhere/at/all"));
        QStringList order;
        connect(m_logger.get(), &NvxWavLogger::loggingFailed, this,
                [&order](const QString& text) { order.append(text); });
        connect(m_logger.get(), &NvxWavLogger::loggingStopped, this,
                [&order] { order.append(QStringLiteral("stopped")); });
        header(kTime, 0);
        const QStringList expected{
            QStringLiteral("The wave file cannot be created in the recording directory.") + kAdvice,
            QStringLiteral("stopped")};
        QCOMPARE(order, expected);
        for (int i = 0; i < 5; ++i)
            data(kTime, 0, 100);
        header(kTime + 1, 1000);
        QCOMPARE(order, expected);
    }

    void badFormatIsReportedOnce()
    {
        QSignalSpy failed(m_logger.get(), &NvxWavLogger::loggingFailed);
        QSignalSpy stopped(m_logger.get(), &NvxWavLogger::loggingStopped);
        header(kTime, 0);
        data(kTime, 0, 500);
        m_stream.bits = 24;
        data(kTime, 0, 500);
        data(kTime, 0, 500);
        QCOMPARE(failed.size(), 1);
        QCOMPARE(failed.first().first().toString(),
                 QStringLiteral("The format of the samples does not fit the wave file.") + kAdvice);
        QCOMPARE(stopped.size(), 1);
        QCOMPARE(wholeFileObjection(firstPath()), QString());
        QCOMPARE(judgeWav(firstPath()).frames, 500);
    }

    void progressComesAfterAFailureToo()
    {
        QStringList order;
        connect(m_logger.get(), &NvxWavLogger::logProgress, this,
                [&order](uint32_t seconds, uint32_t) { order.append(QString::number(seconds)); });
        connect(m_logger.get(), &NvxWavLogger::loggingStopped, this,
                [&order] { order.append(QStringLiteral("stopped")); });
        header(kTime, 0);
        data(kTime, 0, 1000);
        m_stream.bits = 24;
        data(kTime, 0, 1000);
        data(kTime, 0, 1000);
        QCOMPARE(order, (QStringList{QStringLiteral("1"), QStringLiteral("stopped"), QStringLiteral("0"),
                                     QStringLiteral("0")}));
    }

    void headerWithoutKeyHasTheTimeZero_data()
    {
        QTest::addColumn<int>("channels");
        QTest::newRow("one recorder") << 1;
        QTest::newRow("array") << 2;
    }
    void headerWithoutKeyHasTheTimeZero()
    {
        QFETCH(int, channels);
        m_stream.channels = static_cast<uint8_t>(channels);
        m_stream.withKey = false;
        QSignalSpy dataTime(m_logger.get(), &NvxWavLogger::dataTime);
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        header(kTime, 5000);
        QCOMPARE(dataTime.size(), 1);
        QCOMPARE(dataTime.first().first().toDateTime().toSecsSinceEpoch(), 0);
        m_logger->stopLogging();
        QCOMPARE(newFile.size(), 1);
        const auto info = infoOfFile(newFile.first().first().toString());
        QVERIFY(info);
        QCOMPARE(info->timestamp(), 0U);
        QCOMPARE(info->startSample(), uint64_t{0});
        QCOMPARE(info->fileName(), std::string("ABC0042_19700101_000000"));
    }

    void handleWriteErrorByHand()
    {
        QSignalSpy failed(m_logger.get(), &NvxWavLogger::loggingFailed);
        QSignalSpy stopped(m_logger.get(), &NvxWavLogger::loggingStopped);
        header(kTime, 0);
        m_logger->handleWriteError();
        QCOMPARE(failed.size(), 1);
        QCOMPARE(failed.first().first().toString(), kAdvice);
        QCOMPARE(stopped.size(), 1);
        QCOMPARE(wholeFileObjection(firstPath()), QString());
    }

    void stoppingInTheMiddleOfANewFile()
    {
        connect(m_logger.get(), &NvxWavLogger::newFileCreated, m_logger.get(), &NvxWavLogger::stopLogging);
        QSignalSpy stopped(m_logger.get(), &NvxWavLogger::loggingStopped);
        header(kTime, 0);
        data(kTime, 0, 100);
        QCOMPARE(stopped.size(), 1);
        QCOMPARE(wholeFileObjection(firstPath()), QString());
    }

    void dataBeforeAnyHeader()
    {
        QSignalSpy progress(m_logger.get(), &NvxWavLogger::logProgress);
        QTest::ignoreMessage(QtWarningMsg, "NvxWavWriter: samples before any header are dropped");
        data(kTime, 0, 100);
        data(kTime, 0, 100);
        QCOMPARE(progress.size(), 2);
        QCOMPARE(progress.last()[0].value<uint32_t>(), 0U);
        QVERIFY(QDir(m_dir->path()).entryList(QDir::Files).isEmpty());
    }

    void lengthOfZeroDoesNotDivide_data()
    {
        QTest::addColumn<int>("length");
        QTest::newRow("zero") << 0;
        QTest::newRow("below zero") << -1;
    }
    void lengthOfZeroDoesNotDivide()
    {
        QFETCH(int, length);
        makeLogger(length);
        QSignalSpy progress(m_logger.get(), &NvxWavLogger::logProgress);
        header(kTime, 0);
        data(kTime, 0, 1000);
        QCOMPARE(progress.size(), 1);
        QCOMPARE(progress.first()[1].value<uint32_t>(), 0U);
    }

    void eventsInTimingModeAreLeftAlone()
    {
        m_logger->setWavTimeLog(LogOn);
        NvxWavDataChunk chunk;
        WavStreamEvent event(&chunk, int(kTime), 0);
        m_logger->processWavStreamEvent(&event);
        QVERIFY(!event.isConsumed());
    }

private:
    void makeLogger(int maxLength, const QString& path = {})
    {
        m_logger = std::make_unique<NvxWavLogger>(maxLength, path.isEmpty() ? m_dir->path() : path,
                                                  QStringLiteral("ABC0042"));
    }
    void header(uint32_t time, int64_t sequence)
    {
        m_logger->handleWavEventHdr(m_stream.header(time, sequence), kDeviceId, makeLogDevice());
    }
    void data(uint32_t time, int64_t sequence, uint16_t count)
    {
        m_logger->handleWavData(m_stream.block(time, sequence, 0, count));
    }
    QString firstPath() const { return m_dir->filePath(QStringLiteral("ABC0042_20240229_124000.wav")); }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<NvxWavLogger> m_logger;
    LogStream m_stream;
};

QTEST_GUILESS_MAIN(tst_NvxWavLogger)
#include "tst_NvxWavLogger.moc"
