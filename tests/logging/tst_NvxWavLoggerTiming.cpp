#include "LogStream.h"
#include "WavJudge.h"

#include "NvxQtCommon/contract/recording/NvxWavTimeData.h"
#include "NvxQtCommon/contract/recording/SpecStreamEvent.h"
#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <memory>

namespace {

constexpr uint32_t kTime = 1709210096; // 2024-02-29 12:34:56 UTC
const HydDeviceId kDeviceId(DevTypeRecorderB, 4711);

struct TimingRow
{
    QByteArray time, comment, device, serial, computerTime, sequence, samples, elapsed, name;
};

QList<TimingRow> rowsOf(const QString& path)
{
    QFile file(path);
    QList<TimingRow> rows;
    if (!file.open(QIODevice::ReadOnly))
        return rows;
    bool afterTitle = false;
    for (const QByteArray& line : file.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split('\t');
        if (afterTitle && fields.size() >= 9)
            rows.append({fields[0], fields[1], fields[2], fields[3], fields[4], fields[5], fields[6],
                         fields[7], fields[8]});
        afterTitle = afterTitle || fields.first() == "Time";
    }
    return rows;
}

} // namespace

/// The mode in which event headers become timing records and no audio is written.
class tst_NvxWavLoggerTiming : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        makeLogger(600, m_dir->path());
        m_stream = LogStream();
    }
    void cleanup()
    {
        m_logger.reset();
        m_dir.reset();
    }

    // --- happy flows
    void signalCarriesEveryField()
    {
        QSignalSpy ready(m_logger.get(), &NvxWavLogger::testDataReady);
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        header(kTime, 0x123456789ALL);
        const qint64 after = QDateTime::currentMSecsSinceEpoch();
        QCOMPARE(ready.size(), 1);
        const auto info = ready.first().first().value<NvxWavTestInfoData>();
        QCOMPARE(info.time, kTime);
        QVERIFY(info.curTime >= before && info.curTime <= after);
        QCOMPARE(info.seqNum, uint64_t{0x123456789A});
        QCOMPARE(QString::fromStdWString(info.filename), QStringLiteral("Test_Time_20240229_123456"));
        // The identity is that of the argument, not of the header's chunks.
        QCOMPARE(info.deviceType, DevTypeRecorderB);
        QCOMPARE(info.serialNo, uint16_t{4711});
    }

    void fileHoldsARecordForEachHeader()
    {
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        QSignalSpy ready(m_logger.get(), &NvxWavLogger::testDataReady);
        header(kTime, 100);
        header(kTime + 1, 1100);
        header(kTime + 2, 1900);
        QCOMPARE(newFile.size(), 1);
        QCOMPARE(newFile.first().first().toString(), firstPath());
        const QList<TimingRow> rows = rowsOf(firstPath());
        QCOMPARE(rows.size(), 3);
        QCOMPARE(rows[0].time, QByteArray("2024-02-29 12:34:56"));
        QCOMPARE(rows[0].sequence, QByteArray("100"));
        QCOMPARE(rows[0].serial, QByteArray("4711"));
        QCOMPARE(rows[0].name, QByteArray("Test_Time_20240229_123456"));
        // The first record has nothing to compare with.
        QCOMPARE(rows[0].samples, QByteArray());
        QCOMPARE(rows[0].elapsed, QByteArray());
        QCOMPARE(rows[1].samples, QByteArray("1000"));
        QCOMPARE(rows[2].samples, QByteArray("800"));
        const auto timeOf = [&ready](int i) { return ready[i].first().value<NvxWavTestInfoData>().curTime; };
        QCOMPARE(rows[1].elapsed, QByteArray::number(timeOf(1) - timeOf(0)));
        QCOMPARE(rows[2].elapsed, QByteArray::number(timeOf(2) - timeOf(1)));
        QCOMPARE(rows[2].computerTime, QByteArray::number(timeOf(2)));
    }

    void fileHeaderTellsModeStartAndDevice()
    {
        header(kTime, 100);
        QFile file(firstPath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray text = file.readAll();
        QVERIFY(text.contains("Type\t8\n"));
        QVERIFY(text.contains("Serial\t4711\n"));
        QVERIFY(text.contains("Start\t2024-02-29 12:34:56\n"));
    }

    void samplesAreTruncatedTo32Bits_data()
    {
        QTest::addColumn<qint64>("first");
        QTest::addColumn<qint64>("second");
        QTest::addColumn<QByteArray>("samples");
        QTest::newRow("2^32 + 5") << qint64{1} << qint64{0x100000006} << QByteArray("5");
        QTest::newRow("2^31") << qint64{1} << qint64{0x80000001} << QByteArray("-2147483648");
        QTest::newRow("backward") << qint64{1000} << qint64{400} << QByteArray("-600");
        QTest::newRow("first of 0") << qint64{0} << qint64{400} << QByteArray();
        QTest::newRow("first below 0") << qint64{-5} << qint64{400} << QByteArray();
    }
    void samplesAreTruncatedTo32Bits()
    {
        QFETCH(qint64, first);
        QFETCH(qint64, second);
        QFETCH(QByteArray, samples);
        header(kTime, first);
        header(kTime + 1, second);
        const QList<TimingRow> rows = rowsOf(firstPath());
        QCOMPARE(rows.size(), 2);
        QCOMPARE(rows[1].samples, samples);
        QCOMPARE(rows[1].elapsed.isEmpty(), samples.isEmpty());
    }

    void noAudioIsWritten()
    {
        QSignalSpy progress(m_logger.get(), &NvxWavLogger::logProgress);
        QSignalSpy dataTime(m_logger.get(), &NvxWavLogger::dataTime);
        header(kTime, 0);
        m_logger->handleWavData(m_stream.block(kTime, 0, 0, 100));
        m_logger->stopLogging();
        QCOMPARE(progress.size(), 0);
        QCOMPARE(dataTime.size(), 0);
        QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files),
                 QStringList{QStringLiteral("Time_20240229_123456.txt")});
    }

    void rollsAfterAsManyRecordsAsTheLengthSays()
    {
        makeLogger(3, m_dir->path());
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        for (uint32_t i = 0; i < 7; ++i)
            header(kTime + i, 1000 * i);
        QCOMPARE(newFile.size(), 3);
        QCOMPARE(newFile[1].first().toString(), m_dir->filePath(QStringLiteral("Time_20240229_123459.txt")));
        QCOMPARE(rowsOf(newFile[1].first().toString()).size(), 3);
    }

    void stopForgetsTheLastHeader()
    {
        QSignalSpy stopped(m_logger.get(), &NvxWavLogger::loggingStopped);
        header(kTime, 100);
        m_logger->stopLogging();
        QCOMPARE(stopped.size(), 1);
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        header(kTime + 60, 1100);
        QCOMPARE(newFile.size(), 1);
        const QList<TimingRow> rows = rowsOf(newFile.first().first().toString());
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows[0].samples, QByteArray());
    }

    void stopInNormalModeKeepsTheTimingFile()
    {
        header(kTime, 100);
        m_logger->setWavTimeLog(LogOff);
        m_logger->stopLogging();
        m_logger->setWavTimeLog(LogOn);
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        header(kTime + 1, 1100);
        QCOMPARE(newFile.size(), 0);
        const QList<TimingRow> rows = rowsOf(firstPath());
        QCOMPARE(rows.size(), 2);
        QCOMPARE(rows[1].samples, QByteArray("1000"));
    }

    void timingHeadersNeedNoWaveSetup()
    {
        m_stream.withWavSetup = false;
        QSignalSpy ready(m_logger.get(), &NvxWavLogger::testDataReady);
        header(kTime, 100);
        QCOMPARE(ready.size(), 1);
    }

    void stopInTimingModeCompletesTheWaveFileToo()
    {
        m_logger->setWavTimeLog(LogOff);
        header(kTime, 0);
        m_logger->handleWavData(m_stream.block(kTime, 0, 0, 100));
        m_logger->handleWavData(m_stream.block(kTime, 0, 100, 100));
        const QString path = m_dir->filePath(QStringLiteral("ABC0042_20240229_123456.wav"));
        m_logger->setWavTimeLog(LogOn);
        m_logger->stopLogging();
        QCOMPARE(wholeFileObjection(path), QString());
        QCOMPARE(judgeWav(path).frames, 200);
    }

    void timingEventByHandNeedsNoTimingMode()
    {
        m_logger->setWavTimeLog(LogOff);
        QSignalSpy newFile(m_logger.get(), &NvxWavLogger::newFileCreated);
        QSignalSpy progress(m_logger.get(), &NvxWavLogger::logProgress);
        header(kTime, 0);
        const auto timing = std::make_shared<NvxWavTestInfoData>();
        timing->time = kTime + 17;
        const auto record = NvxWavTimeData::fromWavTestData(timing);
        SpecStreamEvent event(record.get());
        m_logger->processSStreamEvent(&event);
        QVERIFY(event.isConsumed());
        QCOMPARE(newFile.size(), 2);
        QCOMPARE(rowsOf(newFile.last().first().toString()).size(), 1);
        // The wave file's span is not the timing file's business.
        m_logger->handleWavData(m_stream.block(kTime, 0, 0, 100));
        QCOMPARE(progress.last()[1].value<uint32_t>(), 600 - kTime % 600);
    }

    // --- rainy day flows
    void headerWithoutKeyCountsAsZero()
    {
        m_stream.withKey = false;
        QSignalSpy ready(m_logger.get(), &NvxWavLogger::testDataReady);
        header(kTime, 100);
        QCOMPARE(ready.size(), 1);
        const auto info = ready.first().first().value<NvxWavTestInfoData>();
        QCOMPARE(info.time, 0U);
        QCOMPARE(info.seqNum, uint64_t{0});
        QCOMPARE(QString::fromStdWString(info.filename), QStringLiteral("Test_Time_19700101_000000"));
    }

    void writeErrorIsOnlyLogged()
    {
        makeLogger(600, QStringLiteral("/nowhere/at/all"));
        QSignalSpy failed(m_logger.get(), &NvxWavLogger::loggingFailed);
        QSignalSpy stopped(m_logger.get(), &NvxWavLogger::loggingStopped);
        QSignalSpy ready(m_logger.get(), &NvxWavLogger::testDataReady);
        QTest::ignoreMessage(QtDebugMsg, "Spectrum from Wave Write Error!!!");
        QTest::ignoreMessage(QtDebugMsg, "Spectrum from Wave Write Error!!!");
        header(kTime, 100);
        header(kTime + 1, 1100);
        QCOMPARE(ready.size(), 2);
        QCOMPARE(failed.size(), 0);
        QCOMPARE(stopped.size(), 0);
    }

private:
    void makeLogger(int maxLength, const QString& path)
    {
        m_logger = std::make_unique<NvxWavLogger>(maxLength, path, QStringLiteral("ABC0042"));
        m_logger->setWavTimeLog(LogOn);
    }
    void header(uint32_t time, int64_t sequence)
    {
        m_logger->handleWavEventHdr(m_stream.header(time, sequence), kDeviceId, makeLogDevice());
    }
    QString firstPath() const { return m_dir->filePath(QStringLiteral("Time_20240229_123456.txt")); }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<NvxWavLogger> m_logger;
    LogStream m_stream;
};

QTEST_GUILESS_MAIN(tst_NvxWavLoggerTiming)
#include "tst_NvxWavLoggerTiming.moc"
