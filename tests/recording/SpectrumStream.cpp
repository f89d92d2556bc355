#include "SpectrumStream.h"

#include <QFile>

namespace {

std::shared_ptr<HydEventKeyChunk const> makeKey(uint32_t time, int64_t sequence)
{
    stKEY_CHUNK_V1 record;
    record.time = time;
    record.seqHigh = static_cast<uint32_t>(static_cast<uint64_t>(sequence) >> 32);
    record.seqLow = static_cast<uint32_t>(sequence);
    return std::make_shared<HydEventKeyChunkV1>(&record);
}

void fillEvent(SEventStatistics& event, uint64_t time)
{
    event.time = time;
    event.devId = HydDeviceId(DevTypeRecorderB, 77);
    event.startSample = 5000000001;
    event.peakSample = 5000000011;
    event.endSample = 5000000101;
    event.duration = 0.25;
    event.duration90 = 0.125;
    event.splRms = 150.5F;
    event.splPeak = 170.25F;
    event.splPeakToPeak = 176.1F;
    event.sel = 144.75F;
}

} // namespace

std::shared_ptr<HydStreamEventHeaderPayload> SpectrumStream::header(uint32_t time, int64_t sequence) const
{
    std::vector<std::shared_ptr<HydDeviceInfoChunk const>> devices;
    if (withDevice) {
        stDEVICE_CHUNK_V1 record;
        record.devType = type;
        record.serial = serial;
        record.sensitivity = sensitivity;
        devices.push_back(std::make_shared<HydDeviceInfoChunkV1>(&record));
    }
    std::vector<std::shared_ptr<HydStreamStatusChunk const>> statuses;
    if (withStatus) {
        stSTATUS_CHUNK_V0 record;
        record.temperature = temperature;
        record.humidity = humidity;
        statuses.push_back(std::make_shared<HydStreamStatusChunkV0>(&record));
    }
    HydStreamSetupContainer setup;
    if (withSetup) {
        stFFT_SETUP_CHUNK_V1 record;
        record.sampleRate = rate;
        record.points = points;
        record.pointsBtw = pointsBtw;
        record.accum = accum;
        record.procType = procType;
        record.refLevel = refLevel;
        setup = HydStreamSetupContainer(
            std::shared_ptr<HydFftSetupChunk const>(std::make_shared<HydFftSetupChunkV1>(&record)));
    }
    auto payload = std::make_shared<HydStreamEventHeaderPayload>(
        withKey ? makeKey(time, sequence) : nullptr, devices, statuses, setup,
        std::vector<std::shared_ptr<HydAmplScalingChunk const>>(), uint8_t{1}, nullptr);
    payload->streamType = StreamSpectrum;
    return payload;
}

std::shared_ptr<HydStreamDataPayload> SpectrumStream::spectrum(uint32_t time, int64_t sequence,
                                                               uint32_t sampleNum,
                                                               const std::vector<uint8_t>& bytes) const
{
    auto* copy = new unsigned char[bytes.size() + 1];
    std::copy(bytes.begin(), bytes.end(), copy);
    auto payload = std::make_shared<HydStreamDataPayload>(
        withKey ? makeKey(time, sequence) : nullptr,
        std::make_shared<HydStreamDataChunkV0>(sampleNum, uint8_t{1}, uint8_t{131},
                                               static_cast<uint16_t>(bytes.size()), copy, false));
    payload->streamType = StreamSpectrum;
    return payload;
}

std::shared_ptr<HydStreamDataPayload> SpectrumStream::filtered(uint32_t time,
                                                               const std::vector<double>& values) const
{
    auto payload = spectrum(time, 0, 0, std::vector<uint8_t>(values.size(), 7));
    payload->ResetD(static_cast<unsigned>(values.size()));
    payload->setNoiseFiltered(true);
    std::copy(values.begin(), values.end(), payload->data()->doubles().get());
    return payload;
}

SpectrumText SpectrumText::of(const QString& path)
{
    SpectrumText text;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return text;
    QList<QByteArray> lines = file.readAll().split('\n');
    text.complete = lines.takeLast().isEmpty();
    if (!lines.isEmpty())
        text.signature = lines.takeFirst();
    for (const QByteArray& line : lines) {
        const QList<QByteArray> fields = line.split('\t');
        if (!text.titles.isEmpty())
            text.records.append(fields);
        else if (fields.first() == "Time")
            text.titles = fields;
        else
            text.entries.append(fields);
    }
    return text;
}

QByteArray SpectrumText::entry(const QByteArray& key) const
{
    for (const QList<QByteArray>& fields : entries) {
        if (fields.first() == key)
            return fields.value(1);
    }
    return "missing";
}

std::shared_ptr<HydStatusDataPayload> makeSensorStatus()
{
    auto payload = std::make_shared<HydStatusDataPayload>();
    stACC_MAG_CHUNK_V0 accMag;
    const int16_t acceleration[3] = {12, -34, 1001};
    const int16_t magnetic[3] = {201, -302, 455};
    std::copy(std::begin(acceleration), std::end(acceleration), accMag.acceleration);
    std::copy(std::begin(magnetic), std::end(magnetic), accMag.magnetic);
    payload->setAccMagChunk(std::make_shared<HydAccMagChunk>(&accMag));
    stHEADING_CHUNK_V0 heading;
    heading.heading = 3599;
    heading.pitch = -15;
    heading.roll = 22;
    payload->setHeadChunk(std::make_shared<HydStreamHeadStatusChunkV0>(&heading));
    stBATTERY_CHUNK_V0 battery;
    battery.millivolts = 12345;
    battery.milliamperes = -250;
    battery.percent = 88;
    battery.state = 2;
    battery.temperature = 215;
    payload->setBatteryChunk(std::make_shared<HydBatteryChunk>(&battery));
    return payload;
}

SWavStatistics makeStatistics(uint64_t time)
{
    SWavStatistics statistics;
    statistics.time = time;
    statistics.devId = HydDeviceId(DevTypeRecorderB, 77);
    statistics.startSample = 5000000001;
    statistics.duration = 1.5;
    statistics.splRms = 100.25F;
    statistics.splPeak = 120.5F;
    statistics.splPeakToPeak = 126.1F;
    statistics.sel = 102.75F;
    statistics.selCumulative = 133.0F;
    return statistics;
}

SImpulseStatistics makeImpulse(uint64_t time)
{
    SImpulseStatistics impulse;
    fillEvent(impulse, time);
    return impulse;
}

SClickStatistics makeClick(uint64_t time)
{
    SClickStatistics click;
    fillEvent(click, time);
    click.peakFrequency = 130250.5F;
    return click;
}
