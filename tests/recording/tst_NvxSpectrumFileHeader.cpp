#include "NvxQtCommon/contract/recording/DetectorData.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"
#include "SpectrumStream.h"
#include "tests/support/NvxTestCase.h"

#include <QFile>
#include <QTemporaryDir>

namespace {

constexpr uint32_t kTime = 1709210096; // 2024-02-29 12:34:56 UTC

std::shared_ptr<HydDevice> makeDevice()
{
    auto device = std::make_shared<HydDevice>(DevTypeRecorderB);
    device->setSerial(99);
    device->setFirmwareRel("Release 2");
    device->setSensitivity(-165.5F);
    return device;
}

NvxSpectrumFileHeader makeHeader()
{
    const SpectrumStream stream;
    NvxSpectrumFileHeader header =
        *NvxSpectrumFileHeader::fromEventHdr(*stream.header(kTime, 0x123456789), makeDevice(), FftModeNoise);
    header.setFname(L"Näme");
    header.setAdjFname(L"Before");
    header.setComputerName("computer");
    header.setUserName("user");
    header.setClientName("client");
    header.setJobName("job");
    header.setPersonnel("people");
    header.setDevModel("model");
    header.setWavFile(true);
    header.setAdjacent(true);
    header.setAdjacentT(kTime - 60);
    header.setIfDeviceFFT(false);
    return header;
}

} // namespace

class tst_NvxSpectrumFileHeader : public NvxTestCase
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
    void eventGivesTheParameters()
    {
        const SpectrumStream stream;
        const auto header = NvxSpectrumFileHeader::fromEventHdr(*stream.header(kTime, 0x123456789),
                                                                makeDevice(), FftModeNoise);
        QCOMPARE(header->typeMode(), FftModeNoise);
        QVERIFY(header->devId() == HydDeviceId(DevTypeRecorderA, 42));
        QCOMPARE(header->sensitivity(), -170.4F);
        QCOMPARE(header->firmware(), std::string("Release 2"));
        QCOMPARE(header->startDt(), 1709210096ULL);
        QCOMPARE(header->startDate(), std::string("2024-02-29"));
        QCOMPARE(header->startSample(), 0x123456789ULL);
        QCOMPARE(header->sampleRate(), 48000U);
        QCOMPARE(header->numPts(), 1024U);
        QCOMPARE(header->numPtsBtw(), 512U);
        QCOMPARE(header->accums(), 20U);
        QCOMPARE(header->powerCalc(), uint16_t{3});
        QCOMPARE(header->refLevelVolts(), int16_t{-180});
        QCOMPARE(header->refLeveluPa(), -180.0F + 170.4F);
        QVERIFY(!header->isAdjacent());
        QVERIFY(header->ifDeviceFFT());
    }

    void recordGivesWhatTheEventLacks()
    {
        SpectrumStream stream;
        stream.withDevice = false;
        const auto header =
            NvxSpectrumFileHeader::fromEventHdr(*stream.header(kTime, 0), makeDevice(), FftModeSpectrum);
        QVERIFY(header->devId() == HydDeviceId(DevTypeRecorderB, 99));
        QCOMPARE(header->sensitivity(), -165.5F);
    }

    void waveEventGivesItsRateAlone()
    {
        stWAVE_SETUP_CHUNK_V0 record;
        record.sampleRate = 96000;
        const HydStreamEventHeaderPayload event(
            nullptr, {}, {},
            HydStreamSetupContainer(
                std::shared_ptr<HydWavSetupChunk const>(std::make_shared<HydWavSetupChunk>(&record))),
            {}, 1, nullptr);
        const auto header = NvxSpectrumFileHeader::fromEventHdr(event, nullptr, FftModeWavStats);
        QCOMPARE(header->sampleRate(), 96000U);
        QCOMPARE(header->numPts(), 0U);
        QCOMPARE(header->startDt(), 0ULL);
    }

    void firstChunkOfADeviceCounts()
    {
        stDEVICE_CHUNK_V1 first;
        first.serial = 1;
        stDEVICE_CHUNK_V1 second;
        second.serial = 2;
        const HydStreamEventHeaderPayload event(
            nullptr,
            {std::make_shared<HydDeviceInfoChunkV1>(&first), std::make_shared<HydDeviceInfoChunkV1>(&second)},
            {}, HydStreamSetupContainer(), {}, 2, nullptr);
        QCOMPARE(NvxSpectrumFileHeader::fromEventHdr(event, nullptr, FftModeSpectrum)->devId().serialNo(),
                 uint16_t{1});
    }

    void formOfTheValuesIsStated()
    {
        const SpectrumStream stream;
        const auto bytes = NvxSpectrumFileData::fromStreamData(*stream.spectrum(kTime, 0, 0, {1, 2}));
        QVERIFY(textOf(NvxSpectrumFileHeader(), *bytes).contains("\nValues\tbytes\n"));
        // Whole numbers are decimals too, once the filter made them.
        const auto decimals = NvxSpectrumFileData::fromStreamData(*stream.filtered(kTime, {1.0, 2.0}));
        QVERIFY(textOf(NvxSpectrumFileHeader(), *decimals).contains("\nValues\tdecimals\n"));
        QVERIFY(!textOf(NvxSpectrumFileHeader(), NvxImpulseData(SImpulseStatistics())).contains("Values"));
    }

    void deviceStandsAsTextAndNumber()
    {
        NvxSpectrumFileHeader header;
        header.setDeviceId(HydDeviceId(DevTypeTdRec, 7));
        const QByteArray text = textOf(header, NvxSpectrumFileData());
        QVERIFY(text.contains("\nDevice\t" + QByteArray::fromStdString(deviceTypeText(DevTypeTdRec)) +
                              "\nDevice type\t13\nSerial\t7\n"));
    }

    void adjacentEventIsTold()
    {
        const SpectrumStream stream;
        const auto event = stream.header(kTime, 0);
        event->setAdjacent(true);
        QVERIFY(NvxSpectrumFileHeader::fromEventHdr(*event, nullptr, FftModeSpectrum)->isAdjacent());
    }

    void writtenHeaderReadsBack()
    {
        const NvxSpectrumFileHeader header = makeHeader();
        const QByteArray text = textOf(header, NvxSpectrumFileData());
        NvxSpectrumFileHeader read;
        QCOMPARE(deserialise(read, text + "Time\tComment\n"), qlonglong(text.size()));
        QCOMPARE(textOf(read, NvxSpectrumFileData()), text);
        // Each value by itself: a text that is the same could lack an entry twice.
        QCOMPARE(read.typeMode(), FftModeNoise);
        QCOMPARE(read.fname(), header.fname());
        QCOMPARE(read.adjFname(), header.adjFname());
        QCOMPARE(read.computerName(), header.computerName());
        QCOMPARE(read.userName(), header.userName());
        QCOMPARE(read.clientName(), header.clientName());
        QCOMPARE(read.jobName(), header.jobName());
        QCOMPARE(read.personnel(), header.personnel());
        QCOMPARE(read.firmware(), header.firmware());
        QCOMPARE(read.devModel(), header.devModel());
        QVERIFY(read.devId() == header.devId());
        QVERIFY(read.isWavFile());
        QVERIFY(read.isAdjacent());
        QCOMPARE(read.adjacentT(), header.adjacentT());
        QVERIFY(!read.ifDeviceFFT());
        QCOMPARE(read.startDt(), header.startDt());
        QCOMPARE(read.startDate(), header.startDate());
        QCOMPARE(read.startSample(), header.startSample());
        QCOMPARE(read.sampleRate(), header.sampleRate());
        QCOMPARE(read.accums(), header.accums());
        QCOMPARE(read.numPts(), header.numPts());
        QCOMPARE(read.numPtsBtw(), header.numPtsBtw());
        QCOMPARE(read.powerCalc(), header.powerCalc());
        QCOMPARE(read.refLevelVolts(), header.refLevelVolts());
        QCOMPARE(read.refLeveluPa(), header.refLeveluPa());
        QCOMPARE(read.sensitivity(), header.sensitivity());
    }

    void headerEndsWhereRecordsBegin_data()
    {
        QTest::addColumn<QByteArray>("rest");
        QTest::newRow("titles") << QByteArray("Time\tComment\tTemperature (C)\tHumidity (%)\tSequence\n");
        QTest::newRow("a record") << QByteArray("2024-02-29 12:34:56\t\t1\t2\t3\n");
        QTest::newRow("a record by time of day") << QByteArray("12:34:56\t\t1\t2\t3\n");
        QTest::newRow("titles of one column") << QByteArray("TIME\t\n");
        QTest::newRow("an empty line") << QByteArray("\nTime\tComment\n");
        QTest::newRow("a line without a tab") << QByteArray("words\nPoints\t7\n");
        QTest::newRow("nothing") << QByteArray();
    }
    void headerEndsWhereRecordsBegin()
    {
        QFETCH(QByteArray, rest);
        const QByteArray text = textOf(makeHeader(), NvxSpectrumFileData());
        NvxSpectrumFileHeader read;
        QCOMPARE(deserialise(read, text + rest), qlonglong(text.size()));
        QCOMPARE(read.numPts(), 1024U);
    }

    void entriesOfLaterVersionsArePassedOver()
    {
        const QByteArray text = textOf(makeHeader(), NvxSpectrumFileData()) + "Colour\tblue\n";
        NvxSpectrumFileHeader read;
        QCOMPARE(deserialise(read, text), qlonglong(text.size()));
    }

    void detectorSettingsStandInTheirFilesOnly()
    {
        NvxSpectrumFileHeader header;
        SImpDetectSettings impulse;
        impulse.detectThresh = 171;
        impulse.resetThresh = 161;
        impulse.preDetect = 51;
        impulse.postDetect = 201;
        impulse.selThresh = 141;
        impulse.splBandThresh = 121;
        impulse.useAmbientLvl = true;
        impulse.ambientLvl = 101;
        impulse.maxImpTime = 1001;
        header.setImpSettings(impulse);
        SSELSettings exposure;
        exposure.timeInterval = 61;
        exposure.timeWindow = 2;
        exposure.maxKeepInterv = 25;
        exposure.infinitKeepInterv = true;
        exposure.pkThresh = 181;
        exposure.timeWindowUnits = 1;
        header.setSELSettings(exposure);

        const QByteArray impulses = textOf(header, NvxImpulseData(SImpulseStatistics()));
        QVERIFY(impulses.contains("Type\t4\n"));
        for (const char* line : {"Detect threshold (dB re 1 uPa)\t171\n",
                                 "Reset threshold (dB re 1 uPa)\t161\n", "Before the impulse (ms)\t51\n",
                                 "After the impulse (ms)\t201\n", "Exposure threshold (dB re 1 uPa2s)\t141\n",
                                 "Band threshold (dB re 1 uPa)\t121\n", "Relative to ambient level\t1\n",
                                 "Ambient level (dB re 1 uPa)\t101\n", "Longest impulse (ms)\t1001\n"})
            QVERIFY2(impulses.contains(line), line);
        QVERIFY(!impulses.contains("Exposure interval"));

        const QByteArray statistics = textOf(header, NvxSpectrumStatsData(SWavStatistics()));
        QVERIFY(statistics.contains("Type\t2\n"));
        for (const char* line :
             {"Exposure interval (s)\t61\n", "Exposure window\t2\n", "Exposure window unit\t1\n",
              "Exposure kept (h)\t25\n", "Exposure kept without end\t1\n",
              "Exposure peak threshold (dB re 1 uPa)\t181\n"})
            QVERIFY2(statistics.contains(line), line);
        QVERIFY(!statistics.contains("Detect threshold"));
        QVERIFY(!textOf(header, NvxSpectrumFileData()).contains("threshold"));
    }

    void defaultsOfTheDetectors()
    {
        const SImpDetectSettings impulse;
        QCOMPARE(impulse.detectThresh, 160);
        QCOMPARE(impulse.resetThresh, 150);
        QCOMPARE(impulse.preDetect, 50);
        QCOMPARE(impulse.postDetect, 200);
        QCOMPARE(impulse.selThresh, 140);
        QCOMPARE(impulse.splBandThresh, 120);
        QVERIFY(!impulse.useAmbientLvl);
        QCOMPARE(impulse.ambientLvl, 100);
        QCOMPARE(impulse.maxImpTime, 1000);
        SSELSettings exposure;
        QCOMPARE(exposure.timeInterval, 60);
        QCOMPARE(exposure.timeWindow, 1);
        QCOMPARE(exposure.maxKeepInterv, 24);
        QVERIFY(!exposure.infinitKeepInterv);
        QCOMPARE(exposure.pkThresh, 180);
        QCOMPARE(exposure.timeWindowUnits, 0);
        exposure.pkThresh = 3;
        exposure.setDefault();
        QVERIFY(exposure == SSELSettings());
        const SIRFilterPar filter;
        QCOMPARE(filter.order, 4U);
        QCOMPARE(filter.decRate, 1U);
        QCOMPARE(filter.cutOffFreq, 10.0F);
        QCOMPARE(filter.centerFreq, 1000.0F);
        QCOMPARE(filter.passBandRipple, 0.1F);
        QCOMPARE(filter.stopBandAtten, 60.0F);
        QCOMPARE(filter.coefScaleFactor, 1.0F);
    }

    // --- rainy day flows
    void eventWithoutAnything()
    {
        const HydStreamEventHeaderPayload event(nullptr, {nullptr}, {}, HydStreamSetupContainer(), {}, 1,
                                                nullptr);
        const auto header = NvxSpectrumFileHeader::fromEventHdr(event, nullptr, FftModeClick);
        QCOMPARE(header->typeMode(), FftModeClick);
        QCOMPARE(header->sampleRate(), 0U);
        QVERIFY(header->devId() == HydDeviceId());
    }

    void textsOfSeveralLinesStayEntries()
    {
        NvxSpectrumFileHeader header;
        header.setClientName("a\nSerial\t9\r\nb");
        NvxSpectrumFileHeader read;
        QVERIFY(deserialise(read, textOf(header, NvxSpectrumFileData())) > 0);
        QCOMPARE(read.clientName(), std::string("a Serial 9  b"));
        QCOMPARE(read.devId().serialNo(), uint16_t{0});
    }

    void noFileOfTheFamily_data()
    {
        QTest::addColumn<QByteArray>("text");
        const QByteArray good = textOf(makeHeader(), NvxSpectrumFileData());
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("junk") << QByteArray("RIFF\x01\x02\x03\n");
        QTest::newRow("next version") << QByteArray(good).replace("file\t1\n", "file\t2\n");
        QTest::newRow("no version") << QByteArray(good).replace("file\t1\n", "file\n");
        QTest::newRow("endless line") << QByteArray(3 * 1024 * 1024, 'x');
        QTest::newRow("endless line behind the signature")
            << "Nerivox spectrum file\t1\n" + QByteArray(3 * 1024 * 1024, 'x');
        QTest::newRow("endless header") << "Nerivox spectrum file\t1\n" + QByteArray("a\tb\n").repeated(300);
        const std::pair<const char*, const char*> lies[] = {
            {"Type\t10", "Type\t256"},
            {"Points\t1024", "Points\tnan"},
            {"Points\t1024", "Points\t"},
            {"Points\t1024", "Points\t-1"},
            {"Accumulations\t20", "Accumulations\t20x"},
            {"Sample rate (Hz)\t48000", "Sample rate (Hz)\t4294967296"},
            {"Serial\t42", "Serial\t65536"},
            {"Device type\t5", "Device type\t300"},
            {"Sensitivity (dB re 1 V/uPa)\t-170.4", "Sensitivity (dB re 1 V/uPa)\tnan"},
            {"Start\t2024-02-29 12:34:56", "Start\tnever"},
            {"Start sample\t4886718345", "Start sample\t1e3"},
            {"Continued\t1", "Continued\tyes"},
            {"Spectra by\tcomputer", "Spectra by\tmagic"},
            {"Reference level (dB re 1 V)\t-180", "Reference level (dB re 1 V)\t40000"},
        };
        for (const auto& [from, to] : lies) {
            const QByteArray text = QByteArray(good).replace(from, to);
            QVERIFY2(text != good, from);
            QTest::newRow(to) << text;
        }
    }
    void noFileOfTheFamily()
    {
        QFETCH(QByteArray, text);
        NvxSpectrumFileHeader read;
        read.setClientName("kept");
        QCOMPARE(deserialise(read, text), -1LL);
        QCOMPARE(read.clientName(), std::string("kept"));
        QCOMPARE(read.numPts(), 0U);
    }

    void pathThatIsNoFile()
    {
        NvxSpectrumFileHeader read;
        QCOMPARE(read.deserialise(m_dir->filePath("missing.txt").toStdWString()), -1LL);
        QCOMPARE(read.deserialise(m_dir->path().toStdWString()), -1LL);
        QCOMPARE(read.deserialise(L""), -1LL);
    }

    void everyTruncationIsAHeaderOrNone()
    {
        const QByteArray good = textOf(makeHeader(), NvxSpectrumFileData());
        for (qsizetype size = 0; size < good.size(); ++size) {
            NvxSpectrumFileHeader read;
            const qlonglong position = deserialise(read, good.first(size));
            QVERIFY2(position >= -1 && position <= size, qPrintable(QString::number(size)));
            // The serial number stands in the middle: known with a position behind it, and without one
            // nothing is.
            QVERIFY2(position >= 0 || read.devId().serialNo() == 0, qPrintable(QString::number(size)));
        }
    }

private:
    static QByteArray textOf(const NvxSpectrumFileHeader& header, const NvxComSpectrumEventData& record)
    {
        std::string text;
        header.appendLines(text, record);
        return QByteArray::fromStdString(text);
    }
    qlonglong deserialise(NvxSpectrumFileHeader& header, const QByteArray& text)
    {
        QFile file(m_dir->filePath("header.txt"));
        if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
            return -2;
        file.close();
        return header.deserialise(file.fileName().toStdWString());
    }

    std::unique_ptr<QTemporaryDir> m_dir;
};

QTEST_GUILESS_MAIN(tst_NvxSpectrumFileHeader)
#include "tst_NvxSpectrumFileHeader.moc"
