#include "NvxQtCommon/contract/job/HydJobSettingsTag.h"
#include "NvxQtCommon/contract/recording/DetectorData.h"
#include "NvxQtCommon/contract/recording/SpecStreamEvent.h"
#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/logging/NvxSpecLogger.h"
#include "SpecLoggerCase.h"
#include "tests/support/LogSpy.h"

#include <QPointer>

#include <limits>

namespace {

const HydDeviceId kDevice(DevTypeRecorderA, 42);

std::shared_ptr<HydDevice> makeDevice()
{
    auto device = std::make_shared<HydDevice>(DevTypeRecorderA);
    device->setSerial(42);
    device->setModelString("Model X");
    device->setFirmwareRel("Release 2");
    device->setTemperature(20.0F);
    device->setHumidity(50.0F);
    return device;
}

} // namespace

class tst_NvxSpecLogger : public SpecLoggerCase<NvxSpecLogger>
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        makeLogger(QStringLiteral("Spec"));
        m_savedParams = FFT_Params_WAV;
    }
    void cleanup()
    {
        FFT_Params_WAV = m_savedParams;
        dropLogger();
    }

    // --- happy flows
    void streamLandsInAFile()
    {
        QSignalSpy dataTime(m_logger.get(), &NvxSpecLogger::dataTime);
        header();
        QCOMPARE(dataTime.size(), 1);
        QCOMPARE(dataTime.first().first().toDateTime(), QDateTime::fromSecsSinceEpoch(kTime, Qt::UTC));
        QCOMPARE(dataTime.first().first().toDateTime().timeSpec(), Qt::UTC);
        QVERIFY(files().isEmpty());
        data(kTime, 0x200000000, 512);
        QCOMPARE(m_newFiles->size(), 1);
        QCOMPARE(newFile(0), path("Spec_20240229_123456.txt"));
        const SpectrumText text = SpectrumText::of(newFile(0));
        QCOMPARE(text.records.size(), 1);
        QCOMPARE(text.records[0],
                 (QList<QByteArray>{"2024-02-29 12:34:56", "", "12.3", "45.6", "8589935104", "1", "2", "3"}));
    }

    void fileStatesWhatTheLoggerKnows()
    {
        m_logger->fileHeader()->setComputerName("computer");
        m_logger->fileHeader()->setUserName("user");
        m_logger->fileHeader()->setClientName("client");
        m_logger->fileHeader()->setJobName("job");
        m_logger->fileHeader()->setPersonnel("people");
        m_logger->setAdjacentT(kTime - 60);
        m_logger->setIfDeviceFFT(false);
        m_logger->setComment(QStringLiteral("bläu"));
        const auto event = m_stream.header(kTime, 0);
        event->setAdjacent(true);
        m_logger->handleEventHdr(event, kDevice, makeDevice());
        data(kTime);
        const SpectrumText text = SpectrumText::of(newFile(0));
        QCOMPARE(text.entry("Computer"), QByteArray("computer"));
        QCOMPARE(text.entry("User"), QByteArray("user"));
        QCOMPARE(text.entry("Client"), QByteArray("client"));
        QCOMPARE(text.entry("Job"), QByteArray("job"));
        QCOMPARE(text.entry("Personnel"), QByteArray("people"));
        QCOMPARE(text.entry("Model"), QByteArray("Model X"));
        QCOMPARE(text.entry("Firmware"), QByteArray("Release 2"));
        QCOMPARE(text.entry("Continued"), QByteArray("1"));
        QCOMPARE(text.entry("Continued from"), QByteArray("Spec_20240229_123356"));
        QCOMPARE(text.entry("Continued from time"), QByteArray("2024-02-29 12:33:56"));
        QCOMPARE(text.entry("Spectra by"), QByteArray("computer"));
        QCOMPARE(text.entry("Replayed wave file"), QByteArray("0"));
        QCOMPARE(text.records[0][1], QByteArray("bl\xC3\xA4u"));
    }

    void replayedWaveFileIsTold()
    {
        m_logger->handleEventHdr(m_stream.header(kTime, 0), HydDeviceId(DevTypeWavFile, 42), makeDevice());
        data(kTime);
        QCOMPARE(SpectrumText::of(newFile(0)).entry("Replayed wave file"), QByteArray("1"));
        QVERIFY(!SpectrumText::of(newFile(0)).entries.isEmpty());
    }

    void statusOfTheHeaderComesBeforeTheDevices()
    {
        header();
        data(kTime);
        m_stream.withStatus = false;
        header();
        data(kTime);
        const SpectrumText text = SpectrumText::of(newFile(0));
        QCOMPARE(text.records[0].mid(2, 2), (QList<QByteArray>{"12.3", "45.6"}));
        // The record's whole degrees count as tenths.
        QCOMPARE(text.records[1].mid(2, 2), (QList<QByteArray>{"2", "5"}));
    }

    void firstStatusCounts()
    {
        stKEY_CHUNK_V1 key;
        key.time = kTime;
        stSTATUS_CHUNK_V0 first;
        first.temperature = 10;
        first.humidity = 20;
        stSTATUS_CHUNK_V0 second;
        second.temperature = 30;
        second.humidity = 40;
        const auto event = [&key](std::vector<std::shared_ptr<HydStreamStatusChunk const>> statuses) {
            return std::make_shared<HydStreamEventHeaderPayload>(
                std::make_shared<HydEventKeyChunkV1>(&key),
                std::vector<std::shared_ptr<HydDeviceInfoChunk const>>(), std::move(statuses),
                HydStreamSetupContainer(), std::vector<std::shared_ptr<HydAmplScalingChunk const>>(),
                uint8_t{2}, nullptr);
        };
        const auto late = std::make_shared<HydStreamStatusChunkV0>(&second);
        m_logger->handleEventHdr(event({std::make_shared<HydStreamStatusChunkV0>(&first), late}), kDevice,
                                 nullptr);
        data(kTime);
        // A first one that is missing leaves the word to the device.
        m_logger->handleEventHdr(event({nullptr, late}), kDevice, makeDevice());
        data(kTime);
        const SpectrumText text = SpectrumText::of(newFile(0));
        QCOMPARE(text.records.value(0).mid(2, 2), (QList<QByteArray>{"1", "2"}));
        QCOMPARE(text.records.value(1).mid(2, 2), (QList<QByteArray>{"2", "5"}));
    }

    void progressIsRecordsTimesTheirLength()
    {
        // 512 points between, 20 of them in a spectrum, at 48 kHz: 0.2133 s.
        m_logger->setMaxNumRecs(0, false);
        header();
        for (int i = 0; i < 10; ++i)
            data(kTime);
        QCOMPARE(m_progress->size(), 10);
        QCOMPARE(progress(), 2U);
    }

    void noSamplesBetweenCountAsASecond_data()
    {
        QTest::addColumn<int>("pointsBtw");
        QTest::addColumn<int>("accum");
        QTest::newRow("points") << 0 << 20;
        QTest::newRow("accumulations") << 512 << 0;
    }
    void noSamplesBetweenCountAsASecond()
    {
        QFETCH(int, pointsBtw);
        QFETCH(int, accum);
        m_stream.pointsBtw = static_cast<uint16_t>(pointsBtw);
        m_stream.accum = static_cast<uint16_t>(accum);
        header();
        data(kTime, 100, 5);
        data(kTime, 100, 6);
        QCOMPARE(progress(), 2U);
        QCOMPARE(SpectrumText::of(newFile(0)).records[1][4], QByteArray("106"));
    }

    void serialOfNothingTakesAllDevices()
    {
        m_logger->handleEventHdr(m_stream.header(kTime, 0), HydDeviceId(DevTypeRecorderA, 7), nullptr);
        m_logger->handleData(spectrum(kTime), HydDeviceId(DevTypeRecorderB, 8));
        QCOMPARE(SpectrumText::of(newFile(0)).records.size(), 1);
    }

    void serialTakesItsDeviceAlone()
    {
        m_logger->setDevId(kDevice);
        QVERIFY(m_logger->devId() == kDevice);
        QSignalSpy dataTime(m_logger.get(), &NvxSpecLogger::dataTime);
        m_logger->handleEventHdr(m_stream.header(kTime, 0), HydDeviceId(DevTypeRecorderA, 7), nullptr);
        m_logger->handleData(spectrum(kTime), HydDeviceId(DevTypeRecorderA, 7));
        QCOMPARE(dataTime.size(), 0);
        QCOMPARE(m_progress->size(), 0);
        QVERIFY(files().isEmpty());
        // The type isn't looked at.
        m_logger->handleEventHdr(m_stream.header(kTime, 0), HydDeviceId(DevTypeSpecFile, 42), nullptr);
        m_logger->handleData(spectrum(kTime), HydDeviceId(DevTypeSpecFile, 42));
        QCOMPARE(SpectrumText::of(newFile(0)).records.size(), 1);
    }

    void rollsByItsRecords()
    {
        header();
        for (uint32_t i = 0; i < 7; ++i)
            data(kTime + i);
        QCOMPARE(m_newFiles->size(), 3);
        QCOMPARE(newFile(1), path("Spec_20240229_123459.txt"));
    }

    void stopCompletesTheFile()
    {
        QSignalSpy stopped(m_logger.get(), &NvxSpecLogger::loggingStopped);
        header();
        data(kTime);
        m_logger->stopLogging();
        QCOMPARE(stopped.size(), 1);
        data(kTime + 60);
        QCOMPARE(m_newFiles->size(), 2);
    }

    void pathIsOfTheFilesToCome()
    {
        QVERIFY(QDir(m_dir->path()).mkdir("below"));
        m_logger->setLogPath(path("below"));
        QCOMPARE(m_logger->logPath(), path("below"));
        header();
        data(kTime);
        QCOMPARE(newFile(0), path("below/Spec_20240229_123456.txt"));
    }

    void modeIsThatOfTheFiles()
    {
        m_logger->setTypeMode(FFTMode(3));
        QCOMPARE(m_logger->typeMode(), FFTMode(3));
        QCOMPARE(m_logger->fileHeader()->typeMode(), FFTMode(3));
        data(kTime);
        QCOMPARE(SpectrumText::of(newFile(0)).entry("Type"), QByteArray("3"));
        header();
        data(kTime);
        QCOMPARE(SpectrumText::of(newFile(m_newFiles->size() - 1)).entry("Type"), QByteArray("3"));
        QVERIFY(m_logger->noiseFilter() == nullptr);
    }

    void fftModeIsThatOfTheHeadersToCome()
    {
        m_logger->setFFTMode(FFTMode(1));
        QCOMPARE(m_logger->fileHeader()->typeMode(), FftModeSpectrum);
        header();
        data(kTime);
        QCOMPARE(SpectrumText::of(newFile(0)).entry("Type"), QByteArray("1"));
    }

    void settingsOfTheDetectorsAreStated()
    {
        SSELSettings exposure;
        exposure.timeInterval = 61;
        m_logger->setSELSettings(exposure);
        SImpDetectSettings impulse;
        impulse.detectThresh = 171;
        m_logger->setImpSettings(impulse);
        header();
        NvxSpectrumStatsData statistics(makeStatistics(kTime));
        SpecStreamEvent event(&statistics);
        m_logger->processStreamEvent(&event);
        QCOMPARE(SpectrumText::of(newFile(0)).entry("Exposure interval (s)"), QByteArray("61"));
        NvxImpulseData detected(makeImpulse(kTime));
        SpecStreamEvent next(&detected);
        m_logger->processStreamEvent(&next);
        QCOMPARE(SpectrumText::of(newFile(1)).entry("Detect threshold (dB re 1 uPa)"), QByteArray("171"));
    }

    void lengthFollowsTheRateOfSpectra_data()
    {
        QTest::addColumn<unsigned>("accum");
        QTest::addColumn<unsigned>("rate");
        QTest::addColumn<int>("records");
        // accum x 512 / rate seconds each, in one minute.
        QTest::newRow("one a second") << 100U << 51200U << 60;
        QTest::newRow("truncated") << 7U << 1000U << 16;
        QTest::newRow("never less than a record") << 60000U << 1000U << 1;
        QTest::newRow("a rate of nothing counts as one a second") << 100U << 0U << 60;
    }
    void lengthFollowsTheRateOfSpectra()
    {
        QFETCH(unsigned, accum);
        QFETCH(unsigned, rate);
        QFETCH(int, records);
        FFT_Params_WAV.setOverlapLength(512);
        m_logger->setMaxNumRecs(1, false);
        m_logger->calcMaxNumRecs(job(accum, rate), 1);
        header();
        for (int i = 0; i < records; ++i)
            data(kTime);
        QCOMPARE(m_newFiles->size(), 1);
        data(kTime);
        QCOMPARE(m_newFiles->size(), 2);
    }

    void impossibleLengthsAreBounded()
    {
        m_logger->calcMaxNumRecs(job(1, 4000000000U), std::numeric_limits<int>::max());
        m_logger->calcMaxNumRecs(job(1, 4000000000U), std::numeric_limits<int>::min());
        header();
        data(kTime);
        data(kTime);
        QCOMPARE(m_newFiles->size(), 1);
    }

    void lengthKeepsTheTimeTypeAndSetsTheUpdateRate()
    {
        FFT_Params_WAV.setOverlapLength(512);
        m_logger->setMaxNumRecs(1, true);
        m_logger->calcMaxNumRecs(job(100, 51200), 5);
        m_logger->handleEventHdr(m_stream.header(1709210100, 0), kDevice, nullptr);
        data(1709210100);
        data(1709210100 + 299);
        QCOMPARE(m_newFiles->size(), 1);
        data(1709210100 + 300);
        QCOMPARE(m_newFiles->size(), 2);
    }

    // --- rainy day flows
    void headerWithoutAKeyChangesNothing()
    {
        QSignalSpy dataTime(m_logger.get(), &NvxSpecLogger::dataTime);
        m_stream.withKey = false;
        header();
        m_logger->handleEventHdr(nullptr, kDevice, nullptr);
        QCOMPARE(dataTime.size(), 0);
    }

    void dataWithoutAKeyHaveNoSequence()
    {
        header();
        m_stream.withKey = false;
        data(kTime, 77, 5);
        QCOMPARE(SpectrumText::of(newFile(0)).records[0][4], QByteArray("0"));
    }

    void dataAheadOfAnyHeaderHaveNoSequence()
    {
        data(kTime, 77, 5);
        QCOMPARE(newFile(0), path("Spectrum_20240229_123456.txt"));
        QCOMPARE(SpectrumText::of(newFile(0)).records[0][4], QByteArray("0"));
        QCOMPARE(progress(), 0U);
    }

    void payloadWithoutDataIsNone()
    {
        header();
        m_logger->handleData(nullptr, kDevice);
        m_logger->handleData(std::make_shared<HydStreamDataPayload>(nullptr, nullptr), kDevice);
        m_logger->processStreamEvent(nullptr);
        QCOMPARE(m_progress->size(), 0);
    }

    void spectrumWithoutBinsIsLoggedAndEndsNoFile()
    {
        m_logger->setFFTMode(FftModeNoise);
        header();
        data(kTime);
        LogSpy log;
        m_logger->handleData(m_stream.spectrum(kTime, 0, 0, {}), kDevice);
        QCOMPARE(log.count("A spectrum without bins isn't logged."), 1);
        data(kTime);
        QCOMPARE(m_logger->noiseFilter()->count(), 2);
        m_logger->stopLogging();
        QCOMPARE(m_newFiles->size(), 1);
        QCOMPARE(SpectrumText::of(newFile(0)).records.size(), 2);
    }

    void rateOfNothing()
    {
        m_stream.rate = 0;
        header();
        data(kTime);
        QCOMPARE(progress(), 0U);
        QCOMPARE(SpectrumText::of(newFile(0)).records.size(), 1);
    }

    void progressIsComputedInSinglePrecision()
    {
        // 10 x 0.7 is 7 in single precision and less in double.
        m_stream.rate = 10;
        m_stream.pointsBtw = 7;
        m_stream.accum = 1;
        m_logger->setMaxNumRecs(0, false);
        header();
        for (int i = 0; i < 10; ++i)
            data(kTime);
        QCOMPARE(progress(), 7U);
    }

    void hugeProgressIsBounded()
    {
        m_stream.rate = 1;
        m_stream.pointsBtw = 65535;
        m_stream.accum = 65535;
        header();
        data(kTime);
        data(kTime);
        QCOMPARE(progress(), UINT32_MAX);
    }

    void writeErrorIsOnlyLogged()
    {
        QSignalSpy stopped(m_logger.get(), &NvxSpecLogger::loggingStopped);
        QSignalSpy failed(m_logger.get(), &NvxSpecLogger::loggingFailed);
        m_logger->setLogPath(QStringLiteral("/nowhere/at/all"));
        header();
        LogSpy log;
        data(kTime);
        QCOMPARE(log.count("Spectrum Write Error!!!"), 1);
        data(kTime);
        QCOMPARE(log.count("Spectrum Write Error!!!"), 2);
        QCOMPARE(stopped.size(), 0);
        QCOMPARE(failed.size(), 0);
        QCOMPARE(m_progress->size(), 2);
        // Once the recording was ended, the next one has its file again.
        m_logger->setLogPath(m_dir->path());
        m_logger->stopLogging();
        data(kTime);
        QCOMPARE(SpectrumText::of(newFile(0)).records.size(), 1);
    }

    void handledWriteErrorEndsTheRecording()
    {
        m_logger->setFFTMode(FftModeNoise);
        header();
        data(kTime);
        data(kTime);
        QStringList order;
        connect(m_logger.get(), &NvxSpecLogger::loggingFailed, this,
                [&order](const QString& message) { order.append(message); });
        connect(m_logger.get(), &NvxSpecLogger::loggingStopped, this, [&order, this] {
            order.append(QString::number(m_logger->noiseFilter()->count()));
            // The file is complete by now.
            order.append(files());
        });
        m_logger->handleWriteError();
        QCOMPARE(order, (QStringList{
                            "\nPlease ensure that there is space on the disk and that you have permission to "
                            "write to the destination directory.",
                            "2", "F_CAL_0_DEV.txt"}));
        QCOMPARE(m_logger->noiseFilter()->count(), 1);
    }

    void destructorCompletesTheFile()
    {
        m_logger->setFFTMode(FftModeNoise);
        header();
        data(kTime);
        QCOMPARE(files(), QStringList{"F_CAL_0_DEV.txt.part"});
        m_logger.reset();
        QCOMPARE(files(), QStringList{"F_CAL_0_DEV.txt"});
    }

    void deletedByASlot_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("dataTime") << 0;
        QTest::newRow("newFileCreated") << 1;
        QTest::newRow("logProgress") << 2;
        QTest::newRow("loggingStopped") << 3;
        QTest::newRow("loggingFailed") << 4;
    }
    void deletedByASlot()
    {
        QFETCH(int, signal);
        m_newFiles.reset();
        m_progress.reset();
        auto* logger = m_logger.release();
        const QPointer<NvxSpecLogger> alive(logger);
        logger->setFFTMode(FftModeNoise);
        const auto remove = [logger] { delete logger; };
        switch (signal) {
        case 0:
            connect(logger, &NvxSpecLogger::dataTime, this, remove);
            break;
        case 1:
            connect(logger, &NvxSpecLogger::newFileCreated, this, remove);
            break;
        case 2:
            connect(logger, &NvxSpecLogger::logProgress, this, remove);
            break;
        case 3:
            connect(logger, &NvxSpecLogger::loggingStopped, this, remove);
            break;
        default:
            connect(logger, &NvxSpecLogger::loggingFailed, this, remove);
            break;
        }
        logger->handleEventHdr(m_stream.header(kTime, 0), kDevice, nullptr);
        if (alive)
            logger->handleData(spectrum(kTime), kDevice);
        if (alive && signal == 3)
            logger->stopLogging();
        else if (alive)
            logger->handleWriteError();
        QVERIFY(alive.isNull());
    }

private:
    void header() { m_logger->handleEventHdr(m_stream.header(kTime, 0), kDevice, makeDevice()); }
    std::shared_ptr<HydStreamDataPayload> spectrum(uint32_t time, int64_t sequence = 0,
                                                   uint32_t sampleNum = 0)
    {
        return m_stream.spectrum(time, sequence, sampleNum, {1, 2, 3});
    }
    void data(uint32_t time, int64_t sequence = 0, uint32_t sampleNum = 0)
    {
        m_logger->handleData(spectrum(time, sequence, sampleNum), kDevice);
    }
    static HydJobSettings job(unsigned accum, unsigned rate)
    {
        HydJobSettings settings;
        settings.mergeMap({{JobTagKey(7), std::make_shared<HydFftAccumTag>(static_cast<uint16_t>(accum))},
                           {JobTagKey(2), std::make_shared<HydSpecSampRateTag>(rate)}});
        return settings;
    }

    FftParams m_savedParams;
};

QTEST_GUILESS_MAIN(tst_NvxSpecLogger)
#include "tst_NvxSpecLogger.moc"
