#include "NvxQtCommon/logging/NvxClickLogger.h"
#include "NvxQtCommon/logging/NvxImpLogger.h"
#include "NvxQtCommon/logging/NvxWavStatsLogger.h"
#include "SpectrumStream.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include <QSignalSpy>
#include <QTemporaryDir>

namespace {

constexpr uint32_t kTime = 1709210096; // 2024-02-29 12:34:56 UTC
const HydDeviceId kDevice(DevTypeRecorderB, 77);

} // namespace

/// Statistics, impulses and clicks land in their files.
class tst_DetectorLoggers : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        NvxTestCase::failOnUnexpectedWarnings();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
    }

    // --- happy flows
    void statistics()
    {
        NvxWavStatsLogger logger(2, m_dir->path(), QStringLiteral("Stats"), nullptr);
        QCOMPARE(logger.fileHeader()->typeMode(), FftModeWavStats);
        SSELSettings settings;
        settings.timeInterval = 61;
        logger.handleSEChanged(settings);
        QVERIFY(logger.selSettings() == settings);
        QSignalSpy newFile(&logger, &NvxSpecLogger::newFileCreated);
        QSignalSpy progress(&logger, &NvxSpecLogger::logProgress);
        logger.setComment(QStringLiteral("not for statistics"));
        header(logger);
        logger.handleStatsReady(std::make_shared<SWavStatistics>(makeStatistics(kTime)), kDevice);
        QCOMPARE(progress.size(), 1);
        // Without spectra a record counts as a second.
        QCOMPARE(progress.first().first().toUInt(), 1U);
        const SpectrumText text = textOf(newFile);
        QCOMPARE(text.entry("Type"), QByteArray("2"));
        QCOMPARE(text.entry("Name"), QByteArray("Stats_20240229_123456"));
        QCOMPARE(text.entry("Exposure interval (s)"), QByteArray("61"));
        QCOMPARE(text.records[0][1], QByteArray());
        QCOMPARE(text.records[0][6], QByteArray("100.25"));
    }

    void impulses()
    {
        NvxImpLogger logger(2, m_dir->path(), QStringLiteral("Imp"), nullptr);
        QCOMPARE(logger.fileHeader()->typeMode(), FftModeImpulse);
        SImpDetectSettings settings;
        settings.detectThresh = 171;
        logger.handleImpDetectChanged(settings);
        QVERIFY(logger.impSettings() == settings);
        QSignalSpy newFile(&logger, &NvxSpecLogger::newFileCreated);
        QSignalSpy progress(&logger, &NvxSpecLogger::logProgress);
        logger.setComment(QStringLiteral("bang"));
        header(logger);
        for (int i = 0; i < 3; ++i)
            logger.handleImpReady(std::make_shared<SImpulseStatistics>(makeImpulse(kTime)), kDevice);
        QCOMPARE(progress.size(), 3);
        QCOMPARE(newFile.size(), 2);
        const SpectrumText text = textOf(newFile);
        QCOMPARE(text.entry("Type"), QByteArray("4"));
        QCOMPARE(text.entry("Detect threshold (dB re 1 uPa)"), QByteArray("171"));
        QCOMPARE(text.records[0][1], QByteArray("bang"));
        QCOMPARE(text.records[0][10], QByteArray("170.25"));
    }

    void clicks()
    {
        NvxClickLogger logger(2, m_dir->path(), QStringLiteral("Click"), nullptr);
        QCOMPARE(logger.fileHeader()->typeMode(), FftModeClick);
        QSignalSpy newFile(&logger, &NvxSpecLogger::newFileCreated);
        QSignalSpy progress(&logger, &NvxSpecLogger::logProgress);
        logger.setComment(QStringLiteral("tick"));
        header(logger);
        for (int i = 0; i < 3; ++i)
            logger.handleClickReady(std::make_shared<SClickStatistics>(makeClick(kTime)), kDevice);
        QCOMPARE(progress.size(), 3);
        QCOMPARE(newFile.size(), 2);
        const SpectrumText text = textOf(newFile);
        QCOMPARE(text.entry("Type"), QByteArray("9"));
        QCOMPARE(text.records[0][1], QByteArray("tick"));
        QCOMPARE(text.records[0].last(), QByteArray("130250.5"));
    }

    void headersCarryModeZero_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("statistics") << 0;
        QTest::newRow("impulses") << 1;
        QTest::newRow("clicks") << 2;
    }
    void headersCarryModeZero()
    {
        // The modes stand on the logger's own header only; those made from events keep 0.
        QFETCH(int, kind);
        std::unique_ptr<NvxSpecLogger> logger;
        if (kind == 0)
            logger = std::make_unique<NvxWavStatsLogger>(2, m_dir->path(), QStringLiteral("Any"), nullptr);
        else if (kind == 1)
            logger = std::make_unique<NvxImpLogger>(2, m_dir->path(), QStringLiteral("Any"), nullptr);
        else
            logger = std::make_unique<NvxClickLogger>(2, m_dir->path(), QStringLiteral("Any"), nullptr);
        QCOMPARE(logger->typeMode(), FftModeSpectrum);
        QSignalSpy newFile(logger.get(), &NvxSpecLogger::newFileCreated);
        header(*logger);
        const SpectrumStream stream;
        logger->handleData(stream.spectrum(kTime, 0, 0, {1, 2}), kDevice);
        QCOMPARE(textOf(newFile).entry("Type"), QByteArray("0"));
    }

    void lengthsAreTheWriters()
    {
        NvxImpLogger impulses(1, m_dir->path(), QStringLiteral("Imp"), nullptr);
        impulses.setMaxNumRecs(2);
        NvxClickLogger clicks(1, m_dir->path(), QStringLiteral("Click"), nullptr);
        clicks.setMaxNumRecs(2);
        clicks.setTimeType(true);
        QSignalSpy impulseFile(&impulses, &NvxSpecLogger::newFileCreated);
        QSignalSpy clickFile(&clicks, &NvxSpecLogger::newFileCreated);
        header(impulses);
        header(clicks);
        for (int i = 0; i < 3; ++i) {
            impulses.handleImpReady(std::make_shared<SImpulseStatistics>(makeImpulse(kTime)), kDevice);
            clicks.handleClickReady(std::make_shared<SClickStatistics>(makeClick(kTime)), kDevice);
        }
        QCOMPARE(impulseFile.size(), 2);
        QCOMPARE(clickFile.size(), 1);
        impulses.setTimeType(true);
        impulses.handleImpReady(std::make_shared<SImpulseStatistics>(makeImpulse(kTime + 600)), kDevice);
        QCOMPARE(impulseFile.size(), 3);
    }

    void noDeviceIsRefused()
    {
        const HydDeviceId other(DevTypeRecorderA, 1);
        NvxWavStatsLogger statistics(2, m_dir->path(), QStringLiteral("Stats"), nullptr);
        NvxImpLogger impulses(2, m_dir->path(), QStringLiteral("Imp"), nullptr);
        NvxClickLogger clicks(2, m_dir->path(), QStringLiteral("Click"), nullptr);
        QList<uint32_t> progress;
        for (NvxSpecLogger* logger :
             {static_cast<NvxSpecLogger*>(&statistics), static_cast<NvxSpecLogger*>(&impulses),
              static_cast<NvxSpecLogger*>(&clicks)}) {
            logger->setDevId(other);
            connect(logger, &NvxSpecLogger::logProgress, this,
                    [&progress](uint32_t secs) { progress.append(secs); });
        }
        statistics.handleStatsReady(std::make_shared<SWavStatistics>(makeStatistics(kTime)), kDevice);
        impulses.handleImpReady(std::make_shared<SImpulseStatistics>(makeImpulse(kTime)), kDevice);
        clicks.handleClickReady(std::make_shared<SClickStatistics>(makeClick(kTime)), kDevice);
        // No header ever told how long a record lasts.
        QCOMPARE(progress, (QList<uint32_t>{0, 0, 0}));
    }

    void recordsCrossThreads()
    {
        NvxClickLogger logger(2, m_dir->path(), QStringLiteral("Click"), nullptr);
        QSignalSpy progress(&logger, &NvxSpecLogger::logProgress);
        QVERIFY(QMetaObject::invokeMethod(
            &logger, "handleClickReady", Qt::QueuedConnection,
            Q_ARG(std::shared_ptr<SClickStatistics>, std::make_shared<SClickStatistics>(makeClick(kTime))),
            Q_ARG(HydDeviceId, kDevice)));
        QCOMPARE(progress.size(), 0);
        QVERIFY(progress.wait(kPatienceMs));
    }

    // --- rainy day flows
    void nothingIsNoRecord()
    {
        NvxWavStatsLogger statistics(2, m_dir->path(), QStringLiteral("Stats"), nullptr);
        NvxImpLogger impulses(2, m_dir->path(), QStringLiteral("Imp"), nullptr);
        NvxClickLogger clicks(2, m_dir->path(), QStringLiteral("Click"), nullptr);
        statistics.handleStatsReady(nullptr, kDevice);
        impulses.handleImpReady(nullptr, kDevice);
        clicks.handleClickReady(nullptr, kDevice);
        QVERIFY(QDir(m_dir->path()).isEmpty());
    }

    void writeErrorIsOnlyLogged()
    {
        NvxImpLogger logger(2, QStringLiteral("/nowhere/at/all"), QStringLiteral("Imp"), nullptr);
        QSignalSpy stopped(&logger, &NvxSpecLogger::loggingStopped);
        LogSpy log;
        logger.handleImpReady(std::make_shared<SImpulseStatistics>(makeImpulse(kTime)), kDevice);
        QCOMPARE(log.count("Spectrum Write Error!!!"), 1);
        QCOMPARE(stopped.size(), 0);
    }

private:
    static void header(NvxSpecLogger& logger)
    {
        stWAVE_SETUP_CHUNK_V0 record;
        record.sampleRate = 48000;
        stKEY_CHUNK_V1 key;
        key.time = kTime;
        logger.handleEventHdr(
            std::make_shared<HydStreamEventHeaderPayload>(
                std::make_shared<HydEventKeyChunkV1>(&key),
                std::vector<std::shared_ptr<HydDeviceInfoChunk const>>(),
                std::vector<std::shared_ptr<HydStreamStatusChunk const>>(),
                HydStreamSetupContainer(
                    std::shared_ptr<HydWavSetupChunk const>(std::make_shared<HydWavSetupChunk>(&record))),
                std::vector<std::shared_ptr<HydAmplScalingChunk const>>(), uint8_t{1}, nullptr),
            kDevice, nullptr);
    }
    static SpectrumText textOf(const QSignalSpy& newFile)
    {
        return SpectrumText::of(newFile.value(0).value(0).toString());
    }

    std::unique_ptr<QTemporaryDir> m_dir;
};

QTEST_GUILESS_MAIN(tst_DetectorLoggers)
#include "tst_DetectorLoggers.moc"
