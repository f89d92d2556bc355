// Writes one file of each kind through the loggers, and what it sent them as JSON, for a reader in another
// language to compare: spectrum_file_maker DIRECTORY

#include "NvxQtCommon/logging/NvxClickLogger.h"
#include "NvxQtCommon/logging/NvxImpLogger.h"
#include "NvxQtCommon/logging/NvxSensorsLogger.h"
#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "NvxQtCommon/logging/NvxWavStatsLogger.h"
#include "SpectrumStream.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <random>

namespace {

constexpr uint32_t kTime = 1709210096; // 2024-02-29 12:34:56 UTC
constexpr int kRecords = 50;
constexpr size_t kBins = 513;
const HydDeviceId kDevice(DevTypeRecorderB, 77);

/// A logger's file and what went into it.
class Account
{
public:
    template <class Logger> explicit Account(Logger& logger)
    {
        QObject::connect(&logger, &Logger::newFileCreated, &logger,
                         [this](const QString& name) { m_file = name; });
    }
    void add(const QJsonArray& values) { m_records.append(values); }
    QJsonObject json() const { return {{"file", m_file}, {"records", m_records}}; }

private:
    QString m_file;
    QJsonArray m_records;
};

double anyLevel(std::mt19937& random)
{
    return std::uniform_real_distribution<double>(-30.0, 190.0)(random);
}

enum class Spectra {
    Plain,
    Filtered,
    Noise,
};

QJsonObject writeSpectra(const QString& folder, std::mt19937& random, Spectra kind)
{
    const bool filtered = kind == Spectra::Filtered;
    NvxSpecLogger logger(0, folder, filtered ? QStringLiteral("Filtered") : QStringLiteral("Spec"), nullptr);
    Account account(logger);
    logger.setComment(QStringLiteral("\"quoted\", with a comma; Ünïcödé"));
    if (kind == Spectra::Noise) {
        logger.setDevId(kDevice);
        logger.setFFTMode(FftModeNoise);
    }
    SpectrumStream stream;
    stream.serial = 77;
    for (int i = 0; i < kRecords; ++i) {
        const uint32_t time = kTime + static_cast<uint32_t>(i);
        stream.temperature = static_cast<int16_t>(i - 20);
        logger.handleEventHdr(stream.header(time, 1000LL * i), kDevice, nullptr);
        QJsonArray values{qint64(time), (i - 20) / 10.0, 45.6, qint64(1000LL * i + 7)};
        if (filtered) {
            std::vector<double> levels(kBins);
            for (double& level : levels)
                values.append(level = anyLevel(random));
            logger.handleData(stream.filtered(time, levels), kDevice);
            values[3] = 0;
        } else {
            std::vector<uint8_t> bytes(kBins);
            for (uint8_t& byte : bytes)
                values.append(byte = static_cast<uint8_t>(random()));
            logger.handleData(stream.spectrum(time, 1000LL * i, 7, bytes), kDevice);
        }
        account.add(values);
    }
    logger.stopLogging();
    return account.json();
}

template <class Statistics> void fillEvent(Statistics& event, int i, std::mt19937& random, QJsonArray& values)
{
    event.time = kTime + static_cast<uint32_t>(i);
    event.devId = kDevice;
    event.startSample = 1000000ULL * static_cast<unsigned>(i);
    event.peakSample = event.startSample + 10;
    event.endSample = event.startSample + 99;
    event.duration = anyLevel(random);
    event.duration90 = anyLevel(random);
    event.splRms = static_cast<float>(anyLevel(random));
    event.splPeak = static_cast<float>(anyLevel(random));
    event.splPeakToPeak = static_cast<float>(anyLevel(random));
    event.sel = static_cast<float>(anyLevel(random));
    values = {qint64(event.time),        77,
              qint64(event.startSample), qint64(event.peakSample),
              qint64(event.endSample),   event.duration,
              event.duration90,          double{event.splRms},
              double{event.splPeak},     double{event.splPeakToPeak},
              double{event.sel}};
}

QJsonObject writeImpulses(const QString& folder, std::mt19937& random)
{
    NvxImpLogger logger(0, folder, QStringLiteral("Impulse"), nullptr);
    Account account(logger);
    for (int i = 0; i < kRecords; ++i) {
        SImpulseStatistics impulse;
        QJsonArray values;
        fillEvent(impulse, i, random, values);
        account.add(values);
        logger.handleImpReady(std::make_shared<SImpulseStatistics>(impulse), kDevice);
    }
    return account.json();
}

QJsonObject writeClicks(const QString& folder, std::mt19937& random)
{
    NvxClickLogger logger(0, folder, QStringLiteral("Click"), nullptr);
    Account account(logger);
    for (int i = 0; i < kRecords; ++i) {
        SClickStatistics click;
        QJsonArray values;
        fillEvent(click, i, random, values);
        click.peakFrequency = static_cast<float>(anyLevel(random) * 1000.0);
        values.append(double{click.peakFrequency});
        account.add(values);
        logger.handleClickReady(std::make_shared<SClickStatistics>(click), kDevice);
    }
    return account.json();
}

QJsonObject writeStatistics(const QString& folder, std::mt19937& random)
{
    NvxWavStatsLogger logger(0, folder, QStringLiteral("Stats"), nullptr);
    Account account(logger);
    for (int i = 0; i < kRecords; ++i) {
        SWavStatistics statistics = makeStatistics(kTime + static_cast<uint32_t>(i));
        statistics.splRms = static_cast<float>(anyLevel(random));
        statistics.selCumulative = static_cast<float>(anyLevel(random));
        account.add({qint64(statistics.time), 77, qint64(statistics.startSample), statistics.duration,
                     double{statistics.splRms}, double{statistics.splPeak}, double{statistics.splPeakToPeak},
                     double{statistics.sel}, double{statistics.selCumulative}});
        logger.handleStatsReady(std::make_shared<SWavStatistics>(statistics), kDevice);
    }
    return account.json();
}

int16_t anyWord(std::mt19937& random)
{
    return static_cast<int16_t>(random());
}

QJsonObject writeSensors(const QString& folder, std::mt19937& random, SENSOR_LOG_TYPE type)
{
    NvxSensorsLogger logger(
        0, folder, type == SensorLogAccMag ? QStringLiteral("AccMag") : QStringLiteral("Battery"), nullptr);
    Account account(logger);
    logger.setDevId(kDevice);
    logger.setReady(true);
    logger.setLogParams(type, 0, folder);
    HydDevice device(DevTypeRecorderB);
    device.setSerial(77);
    for (int i = 0; i < kRecords; ++i) {
        device.setTimeUtc(static_cast<int>(kTime) + i);
        logger.setDevice(device);
        const auto payload = makeSensorStatus();
        stACC_MAG_CHUNK_V0 accMag;
        stHEADING_CHUNK_V0 heading;
        stBATTERY_CHUNK_V0 battery;
        QJsonArray values{qint64(kTime) + i, 77};
        if (type == SensorLogAccMag) {
            for (int16_t& axis : accMag.acceleration)
                values.append((axis = anyWord(random)) / 1000.0);
            for (int16_t& axis : accMag.magnetic)
                values.append((axis = anyWord(random)) / 10.0);
            heading.heading = static_cast<uint16_t>(random() % 3600);
            heading.pitch = anyWord(random);
            heading.roll = anyWord(random);
            for (const double tenths : {double(heading.heading), double(heading.pitch), double(heading.roll)})
                values.append(tenths / 10.0);
            payload->setAccMagChunk(std::make_shared<HydAccMagChunk>(&accMag));
            payload->setHeadChunk(std::make_shared<HydStreamHeadStatusChunkV0>(&heading));
        } else {
            battery.millivolts = static_cast<uint16_t>(random());
            battery.milliamperes = anyWord(random);
            battery.percent = static_cast<uint8_t>(random() % 101);
            battery.state = static_cast<uint8_t>(random() % 4);
            battery.temperature = anyWord(random);
            for (const double value :
                 {battery.millivolts / 1000.0, battery.milliamperes / 1000.0, double(battery.percent),
                  double(battery.state), battery.temperature / 10.0})
                values.append(value);
            payload->setBatteryChunk(std::make_shared<HydBatteryChunk>(&battery));
        }
        account.add(values);
        logger.handleDataReady(payload, kDevice);
    }
    return account.json();
}

QJsonObject writeTiming(const QString& folder)
{
    NvxWavLogger logger(0, folder, QStringLiteral("unused"));
    logger.setWavTimeLog(LogOn);
    Account account(logger);
    QJsonArray values;
    QObject::connect(
        &logger, &NvxWavLogger::testDataReady, &logger, [&values](const NvxWavTestInfoData& info) {
            values = {qint64(info.time), info.serialNo, qint64(info.curTime), qint64(info.seqNum)};
        });
    const SpectrumStream stream;
    for (int i = 0; i < kRecords; ++i) {
        logger.handleWavEventHdr(stream.header(kTime + static_cast<uint32_t>(i), 48000LL * (i + 1)), kDevice,
                                 nullptr);
        account.add(values);
    }
    return account.json();
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    if (argc != 2)
        return 2;
    const QString folder = QString::fromLocal8Bit(argv[1]);
    std::mt19937 random(20240229);
    const QJsonObject all{{"spectrum", writeSpectra(folder, random, Spectra::Plain)},
                          {"filtered", writeSpectra(folder, random, Spectra::Filtered)},
                          {"noise", writeSpectra(folder, random, Spectra::Noise)},
                          {"impulse", writeImpulses(folder, random)},
                          {"click", writeClicks(folder, random)},
                          {"statistics", writeStatistics(folder, random)},
                          {"accmag", writeSensors(folder, random, SensorLogAccMag)},
                          {"battery", writeSensors(folder, random, SensorLogBattery)},
                          {"timing", writeTiming(folder)}};
    QFile file(folder + QStringLiteral("/sent.json"));
    const QByteArray text = QJsonDocument(all).toJson();
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() ? 0 : 1;
}
