#include "RoadRig.h"

#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"
#include "NvxQtCommon/contract/recording/RecordText.h"
#include "NvxQtCommon/logging/NvxSensorsLogger.h"
#include "NvxQtCommon/logging/NvxSpecLogger.h"
#include "NvxQtSimulator/SpectrumMaker.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

#include <QFile>
#include <QSignalSpy>

#include <cmath>
#include <fstream>
#include <numbers>

// The library against the simulated recorder: spectra, sensor readings and scans, held against the signal.

namespace {

constexpr int kReference = -120; // dB re 1 V, of a setup that nobody wrote
const double kReferenceDbfs = kReference - 20.0 * std::log10(3.0 / std::numbers::sqrt2);

RecorderSettings spectraAt(const char* address, SignalSettings::Kind kind)
{
    RecorderSettings settings = RoadRig::settingsAt(address);
    settings.roles = RoleControl | RoleDiscovery | RoleSpectrum | RoleSensor;
    settings.signal.kind = kind;
    return settings;
}

/// What the adapter makes of the bins that the simulator's signal has from `first` on: whole dB.
std::vector<unsigned char> expectedBins(const RecorderSettings& settings, const HydJobSettings& job,
                                        uint64_t first)
{
    SpectrumMaker maker(settings.signal, job.fftRate(), job.fftPoints(), job.fftPointsBtw());
    std::vector<unsigned char> bins = maker.bins(first, job.fftAccum(), kReferenceDbfs);
    for (unsigned char& bin : bins)
        bin = static_cast<unsigned char>((bin + 1) / 2);
    return bins;
}

struct ReadFile
{
    NvxSpectrumFileHeader header;
    std::vector<NvxSpectrumFileData> records;
    int oddLines = 0;
};

std::optional<ReadFile> readSpectra(const QString& path)
{
    ReadFile file;
    const long long titles = file.header.deserialise(path.toStdWString());
    std::ifstream in(QFile::encodeName(path).constData(), std::ios::binary);
    std::string line;
    if (titles < 0 || !in.seekg(titles) || !RecordText::readLine(in, line) || !RecordText::isTitleLine(line))
        return std::nullopt;
    NvxSpectrumFileData record;
    while (RecordText::readLine(in, line)) {
        if (record.deserialise(line, file.header.startDt(), file.header.startDate()))
            file.records.push_back(record);
        else
            ++file.oddLines;
    }
    return file;
}

/// The lines behind the titles of a file of the family, in columns.
QList<QByteArrayList> readColumns(const QString& path)
{
    QFile file(path);
    QList<QByteArrayList> rows;
    if (!file.open(QIODevice::ReadOnly))
        return rows;
    while (!file.atEnd() && !file.readLine().startsWith("Time\t"))
        continue;
    while (!file.atEnd())
        rows << file.readLine().chopped(1).split('\t');
    return rows;
}

} // namespace

class tst_spectra : public NvxTestCase
{
    Q_OBJECT

private:
    FftParamsGuard m_params;

    static std::unique_ptr<HydStreamAdapter> streamOf(const RoadRig& rig, HydStreamType type)
    {
        auto stream = std::make_unique<HydStreamAdapter>(type, rig.recorder.streamPort(type),
                                                         rig.recorder.settings().address.toString(),
                                                         rig.device->deviceId(), 60000, true);
        stream->updateDeviceInfo(*rig.device);
        return stream;
    }
    static void log(HydStreamAdapter* stream, NvxSpecLogger* logger)
    {
        connect(stream, &HydStreamAdapter::eventHeader, logger, &NvxSpecLogger::handleEventHdr);
        connect(stream, &HydStreamAdapter::streamDataReady, logger, &NvxSpecLogger::handleData);
    }

private Q_SLOTS:
    void cleanup() { m_params.restore(); }

    // --- happy flows
    void spectraLandInAFile_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("tone") << int(SignalSettings::Tone);
        QTest::newRow("sweep") << int(SignalSettings::Sweep);
        QTest::newRow("noise") << int(SignalSettings::Noise);
        QTest::newRow("impulses") << int(SignalSettings::Impulses);
    }
    void spectraLandInAFile()
    {
        QFETCH(int, kind);
        const RecorderSettings settings = spectraAt("127.94.2.1", SignalSettings::Kind(kind));
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        const auto stream = streamOf(rig, StreamSpectrum);
        NvxSpecLogger logger(0, rig.folder.path(), QStringLiteral("SPC"), nullptr);
        logger.setComment(QStringLiteral("off the pier"));
        log(stream.get(), &logger);
        QSignalSpy spectra(stream.get(), &HydStreamAdapter::streamDataReady);
        QSignalSpy files(&logger, &NvxSpecLogger::newFileCreated);
        stream->startStream();
        // Four seconds hold twenty whole spectra of 3 x 512 samples.
        QTRY_COMPARE(spectra.size(), 20);
        logger.stopLogging();
        QCOMPARE(files.size(), 1);

        auto file = readSpectra(files.first().first().toString());
        QVERIFY(file.has_value());
        QCOMPARE(file->oddLines, 0);
        QCOMPARE(file->header.devId().serialNo(), uint16_t{1234});
        QCOMPARE(file->header.sampleRate(), 8000U);
        QCOMPARE(file->header.numPts(), 1024U);
        QCOMPARE(file->header.numPtsBtw(), 512U);
        QCOMPARE(file->header.accums(), 3U);
        QCOMPARE(file->header.refLevelVolts(), int16_t{kReference});
        QCOMPARE(file->header.refLeveluPa(), 50.0F);
        QVERIFY(file->header.startSample() >= uint64_t{RoadRig::kFirstSequence});
        QVERIFY(std::abs(int64_t(file->header.startDt()) - RoadRig::kDeviceTime) <= 60);
        QCOMPARE(file->records.size(), size_t{20});
        uint64_t next = file->header.startSample();
        for (NvxSpectrumFileData& record : file->records) {
            QCOMPARE(record.seqNum(), next);
            QCOMPARE(record.dataTime(), file->header.startDt() + (next - file->header.startSample()) / 8000);
            QCOMPARE(record.temperature(), 12.3F);
            QCOMPARE(record.humidity(), 25.5F);
            QCOMPARE(record.comment(), std::string("off the pier"));
            QVERIFY(!record.isDSpectrum());
            const std::vector<unsigned char> bins(record.spectrum(), record.spectrum() + record.numBins());
            QCOMPARE(bins, expectedBins(settings, rig.device->jobSettings(), next));
            next += 3 * 512;
        }
    }

    void totalPowerIsTheLevelOfTheTone()
    {
        RecorderSettings settings = spectraAt("127.94.2.2", SignalSettings::Tone);
        settings.signal.levelDb = -30.0;
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        const auto stream = streamOf(rig, StreamSpectrum);
        NvxDataScale scale;
        scale.fullScaleDb = kReference;
        scale.sensitivityDb = rig.device->sensitivity();
        stream->setDeviceScale(scale);
        QList<double> levels;
        connect(stream.get(), &HydStreamAdapter::signalTotalPower, this,
                [&](const HydDeviceId&, double level) { levels << level; });
        stream->startStream();
        QTRY_COMPARE(levels.size(), 20);
        // -30 dBFS are 146.5 dB re 1 µPa; the window spreads the tone over bins that sum up to 1.76 dB more.
        for (const double level : levels)
            QVERIFY2(std::abs(level - 146.53 - 1.76) < 0.6, qPrintable(QString::number(level)));
    }

    void sensorReadingsLandInFiles()
    {
        RecorderSettings settings = spectraAt("127.94.2.3", SignalSettings::Tone);
        settings.streamSeconds = 90;
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        const auto stream = streamOf(rig, StreamSensor);
        stream->setReqData(SensTempHumidity | SensAccMag | SensTimeSync | SensTimeBattery | SensTriggers);
        NvxSensorsLogger motion(0, rig.folder.path(), QStringLiteral("ACC"), nullptr);
        NvxSensorsLogger battery(0, rig.folder.path(), QStringLiteral("BAT"), nullptr);
        motion.setLogParams(SensorLogAccMag, 1000, rig.folder.path());
        battery.setLogParams(SensorLogBattery, 1000, rig.folder.path());
        HydDevice device = *rig.device;
        for (NvxSensorsLogger* logger : {&motion, &battery}) {
            logger->setDevId(device.deviceId());
            logger->setDevice(device);
            logger->setReady(true);
        }
        QSignalSpy motionFiles(&motion, &NvxSpecLogger::newFileCreated);
        QSignalSpy batteryFiles(&battery, &NvxSpecLogger::newFileCreated);
        int readings = 0;
        int whole = 0;
        connect(stream.get(), &HydStreamAdapter::streamStatusData, this,
                [&](const std::shared_ptr<HydStatusDataPayload>& payload, const HydDeviceId& id) {
                    ++readings;
                    whole += payload->statusChunk() && payload->headChunk() && payload->accMagChunk() &&
                             payload->timeSyncChunk() && payload->batteryChunk() && payload->triggerChunk();
                    device.setTimeUtc(static_cast<uint32_t>(payload->eventKey()->eventId()));
                    for (NvxSensorsLogger* logger : {&motion, &battery}) {
                        logger->devTimeUpdated(device);
                        logger->handleDataReady(payload, id);
                    }
                });
        stream->startStream();
        QTRY_COMPARE(readings, 90);
        QCOMPARE(whole, 90);
        motion.stopLogging();
        battery.stopLogging();
        QVERIFY(!motionFiles.isEmpty() && batteryFiles.size() == 1);
        QList<QByteArrayList> rows;
        for (const auto& name : motionFiles)
            rows += readColumns(name.first().toString());
        QCOMPARE(rows.size(), 90);
        QByteArray time;
        for (int i = 0; i < 90; ++i) {
            QVERIFY(rows[i][0] > time);
            time = rows[i][0];
            QCOMPARE(rows[i].mid(2, 5), (QByteArrayList{"Recorder A", "1234", "0.026", "-0.035", "0.999"}));
            // A degree each second, by the heading and by the magnetometer.
            QCOMPARE(rows[i].mid(10), (QByteArrayList{QByteArray::number(i), "1.5", "-2"}));
            const double heading = std::atan2(-rows[i][8].toDouble(), rows[i][7].toDouble());
            QVERIFY(std::abs(heading * 180.0 / std::numbers::pi - i) < 0.3);
            QCOMPARE(rows[i][9], QByteArray("43"));
        }
        rows = readColumns(batteryFiles.first().first().toString());
        QCOMPARE(rows.size(), 90);
        for (const QByteArrayList& row : rows)
            QCOMPARE(row.mid(2), (QByteArrayList{"Recorder A", "1234", "7.4", "0.12", "87", "1", "12.3"}));
    }

    void scansAreTheSignal()
    {
        // Waves and spectra come in the same messages, to an adapter each.
        RecorderSettings settings = spectraAt("127.94.2.4", SignalSettings::Ramp);
        settings.bitDepth = 24;
        settings.channels = 2;
        settings.byteOrder = OrderBigEndian;
        settings.scanMemorySeconds = 60;
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        auto* controller = dynamic_cast<HydDeviceController*>(rig.controller.get());
        QVERIFY(controller);
        HydStreamAdapter waves(StreamWave, 1, rig.device->deviceId(), 60000, false);
        HydStreamAdapter spectra(StreamSpectrum, 1, rig.device->deviceId(), 60000, false);
        for (HydStreamAdapter* scan : {&waves, &spectra}) {
            scan->updateDeviceInfo(*rig.device);
            connect(controller, &HydDeviceController::dataCollected, scan,
                    &HydStreamAdapter::handleDataCollectMessage);
        }
        QSignalSpy lost(&waves, &HydStreamAdapter::streamDataLost);
        int64_t expected = -1;
        int64_t samples = 0;
        QString objection;
        connect(&waves, &HydStreamAdapter::streamDataReady, this,
                [&](const std::shared_ptr<HydStreamDataPayload>& payload) {
                    const HydStreamDataChunk& data = *payload->data();
                    const unsigned char* at = data.bytes().get();
                    for (int i = 0; i < data.numSamples(); ++i, ++samples, ++expected) {
                        for (unsigned c = 0; c < 2; ++c, at += 3) {
                            const uint32_t top =
                                uint32_t(at[0]) << 24 | uint32_t(at[1]) << 16 | uint32_t(at[2]) << 8;
                            const int32_t value = int32_t(top) >> 8;
                            if (expected < 0)
                                expected = value;
                            if (value != SignalSource::rampValue(uint64_t(expected), c, 24) &&
                                objection.isEmpty())
                                objection = QStringLiteral("sample %1 is %2").arg(expected).arg(value);
                        }
                    }
                });
        QList<int64_t> numbers;
        int headers = 0;
        connect(&spectra, &HydStreamAdapter::eventHeader, this,
                [&](const std::shared_ptr<HydStreamEventHeaderPayload>& header) {
                    const auto setup = header->streamSetupChunk()->fftSetup();
                    headers += setup && setup->sampleRate() == 8000 && setup->refLevel() == kReference;
                });
        connect(&spectra, &HydStreamAdapter::streamDataReady, this,
                [&](const std::shared_ptr<HydStreamDataPayload>& payload) {
                    const HydStreamDataChunk& data = *payload->data();
                    numbers << payload->eventKey()->sequence();
                    const std::vector<unsigned char> bins(data.bytes().get(),
                                                          data.bytes().get() + data.numSamples());
                    if (bins !=
                        expectedBins(settings, rig.device->jobSettings(), uint64_t(numbers.back()) * 3 * 512))
                        objection = QStringLiteral("spectrum %1 differs").arg(numbers.back());
                });
        // The poll's timer runs since the first reply, and a positive configuration would stop it: intended.
        controller->stopDataCollect();
        controller->startDataCollect(DataCollWav | DataCollSpec);
        QTRY_VERIFY2(samples > 8000 && numbers.size() >= 4, qPrintable(objection));
        controller->stopDataCollect();
        QCOMPARE(objection, QString());
        QCOMPARE(lost.size(), 0);
        QVERIFY(headers >= 1);
        for (qsizetype i = 1; i < numbers.size(); ++i)
            QVERIFY(numbers[i] > numbers[i - 1]);
    }

    void quietSpectraFilterTheLiveOnes()
    {
        RecorderSettings settings = spectraAt("127.94.2.5", SignalSettings::Noise);
        settings.signal.levelDb = -60.0;
        settings.streamSeconds = 40;
        RoadRig rig(settings);
        QVERIFY(rig.prepare());

        // Quiet: 208 spectra make the filter's file.
        NvxSpecLogger quiet(0, rig.folder.path(), QStringLiteral("SPC"), nullptr);
        quiet.setDevId(rig.device->deviceId());
        quiet.setFFTMode(FftModeNoise);
        {
            const auto stream = streamOf(rig, StreamSpectrum);
            log(stream.get(), &quiet);
            QSignalSpy spectra(stream.get(), &HydStreamAdapter::streamDataReady);
            stream->startStream();
            QTRY_COMPARE(spectra.size(), 208);
        }
        quiet.stopLogging();
        QVERIFY(QFile::exists(rig.folder.filePath(QStringLiteral("F_CAL_1234_DEV.txt"))));

        // Live, by an adapter that never saw them.
        const auto stream = streamOf(rig, StreamSpectrum);
        QSignalSpy given(stream.get(), &HydStreamAdapter::signalNoNoiseFltr);
        stream->setNoiseFiltMode(NoiseFilterSubtract, rig.folder.path());
        QCOMPARE(given.size(), 0);
        QCOMPARE(stream->noiseFiltMode(), NoiseFilterSubtract);
        NvxSpecLogger logger(0, rig.folder.path(), QStringLiteral("LIV"), nullptr);
        log(stream.get(), &logger);
        QSignalSpy files(&logger, &NvxSpecLogger::newFileCreated);
        std::vector<std::vector<double>> sent;
        connect(stream.get(), &HydStreamAdapter::streamDataReady, this,
                [&](const std::shared_ptr<HydStreamDataPayload>& payload) {
                    const HydStreamDataChunk& data = *payload->data();
                    if (payload->isNoiseFiltered())
                        sent.emplace_back(data.doubles().get(), data.doubles().get() + data.numSamples());
                });
        stream->startStream();
        QTRY_COMPARE(sent.size(), size_t{208});
        logger.stopLogging();
        // The mean of decibels of few transforms lies below the mean of power, and the filter is rounded up.
        double sum = 0.0;
        for (const auto& spectrum : sent)
            for (const double value : spectrum)
                sum += value;
        const double mean = sum / double(sent.size() * sent.front().size());
        QVERIFY2(std::abs(mean) < 2.0, qPrintable(QString::number(mean)));

        QCOMPARE(files.size(), 1);
        auto file = readSpectra(files.first().first().toString());
        QVERIFY(file.has_value());
        QCOMPARE(file->records.size(), sent.size());
        for (size_t i = 0; i < sent.size(); ++i) {
            QVERIFY(file->records[i].isDSpectrum());
            const double* values = file->records[i].dSpectrum();
            QCOMPARE(std::vector<double>(values, values + file->records[i].numBins()), sent[i]);
        }
    }

    // --- rainy day flows
    void lostScansAreReported()
    {
        RecorderSettings settings = spectraAt("127.94.2.6", SignalSettings::Ramp);
        settings.scanMemorySeconds = 4;
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        auto* controller = dynamic_cast<HydDeviceController*>(rig.controller.get());
        QVERIFY(controller);
        HydStreamAdapter scan(StreamWave, 1, rig.device->deviceId(), 60000, false);
        scan.updateDeviceInfo(*rig.device);
        connect(controller, &HydDeviceController::dataCollected, &scan,
                &HydStreamAdapter::handleDataCollectMessage);
        QSignalSpy lost(&scan, &HydStreamAdapter::streamDataLost);
        QSignalSpy headers(&scan, &HydStreamAdapter::eventHeader);
        int64_t samples = 0;
        connect(&scan, &HydStreamAdapter::streamDataReady, this,
                [&](const std::shared_ptr<HydStreamDataPayload>& payload) {
                    samples += payload->data()->numSamples();
                });
        controller->stopDataCollect();
        controller->startDataCollect(DataCollWav);
        QTRY_VERIFY(samples > 400);
        QCOMPARE(lost.size(), 0);
        // Nobody asks for longer than the recorder remembers.
        controller->stopDataCollect();
        const int64_t stopped = rig.recorder.deviceTime();
        QTRY_VERIFY(rig.recorder.deviceTime() >= stopped + 6);
        const auto before = headers.size();
        controller->startDataCollect(DataCollWav);
        QTRY_COMPARE(lost.size(), 1);
        // It goes on with the beginning of a second, and without another loss.
        QVERIFY(headers.size() > before);
        const int64_t sofar = samples;
        controller->startDataCollect(DataCollWav);
        QTRY_VERIFY(samples > sofar);
        controller->stopDataCollect();
        QCOMPARE(lost.size(), 1);
    }

    void filterOfAnotherRateIsGivenUp()
    {
        const RecorderSettings settings = spectraAt("127.94.2.7", SignalSettings::Noise);
        RoadRig rig(settings);
        QVERIFY(rig.prepare());
        NvxSpecLogger quiet(0, rig.folder.path(), QStringLiteral("SPC"), nullptr);
        quiet.setDevId(rig.device->deviceId());
        quiet.setFFTMode(FftModeNoise);
        {
            const auto stream = streamOf(rig, StreamSpectrum);
            log(stream.get(), &quiet);
            QSignalSpy spectra(stream.get(), &HydStreamAdapter::streamDataReady);
            stream->startStream();
            QTRY_COMPARE(spectra.size(), 20);
        }
        quiet.stopLogging();
        QSignalSpy taken(rig.controller.get(), &NvxDeviceController::jobSetupGotFromDev);
        HydJobSettings wanted;
        wanted.setFftRate(SampRate{4000});
        rig.controller->sendJobSetup(wanted.map(), false);
        QTRY_COMPARE(taken.size(), 1);

        const auto stream = streamOf(rig, StreamSpectrum);
        QSignalSpy given(stream.get(), &HydStreamAdapter::signalNoNoiseFltr);
        stream->setNoiseFiltMode(NoiseFilterSubtract, rig.folder.path());
        QCOMPARE(given.size(), 1);
        QCOMPARE(stream->noiseFiltMode(), NoiseFilterOff);
        // The stream goes on without it.
        bool filtered = false;
        int spectra = 0;
        connect(stream.get(), &HydStreamAdapter::streamDataReady, this,
                [&](const std::shared_ptr<HydStreamDataPayload>& payload) {
                    ++spectra;
                    filtered = filtered || payload->isNoiseFiltered();
                });
        stream->startStream();
        QTRY_VERIFY(spectra > 0);
        QVERIFY(!filtered);
    }
};

QTEST_GUILESS_MAIN(tst_spectra)
#include "tst_spectra.moc"
