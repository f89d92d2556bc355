#include "NvxQtCommon/replay/NvxFFTDataThread.h"

#include "NvxQtCommon/contract/recording/RecordText.h"
#include "NvxQtCommon/contract/recording/RecordingFile.h"
#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/settings/CSignalPowerSettings.h"

#include <QFileInfo>
#include <QPointer>

#include <algorithm>
#include <limits>

namespace {

constexpr unsigned char kSpectrumFormat = 131;
constexpr double kTenthsPerDb = 10.0;

/// Truncates to a whole number, of which the low 16 bits count.
int16_t toInt16(double value)
{
    using Limits = std::numeric_limits<int32_t>;
    const double inside = std::clamp<double>(value, Limits::min(), Limits::max());
    return static_cast<int16_t>(static_cast<int32_t>(inside));
}

} // namespace

NvxFFTDataThread::NvxFFTDataThread(const QString& name, qint64 dataPos, QObject* parent)
    : NvxDataThread(name, parent), m_record(std::make_shared<NvxSpectrumFileData>()), m_dataPos(dataPos)
{
    setSignalPowerSet(CSignalPowerSettings());
    connect(m_timer, &QTimer::timeout, this, &NvxFFTDataThread::readRecord);
}

NvxFFTDataThread::~NvxFFTDataThread()
{
    // Until then the file is run()'s. Asking makes what run() did to the file known to the deleting thread.
    if (hasBegun())
        m_file.close();
}

void NvxFFTDataThread::setSignalPowerSet(const CSignalPowerSettings& settings)
{
    m_minBin = settings.getMinBinIndFFT();
    m_maxBin = settings.getMaxBinIndFFT(static_cast<int>(FFT_Params_FFT.numBins()));
}

void NvxFFTDataThread::run()
{
    // Opening a pipe would wait for its writer.
    if (QFileInfo(fileName()).isFile())
        m_file.open(RecordingFile::systemPath(fileName().toStdWString()), std::ios::binary);
    if (!m_file.is_open())
        exit(0);
    beginTicks();
    exec();
}

void NvxFFTDataThread::readRecord()
{
    runTick([this] { readLine(); });
}

void NvxFFTDataThread::readLine()
{
    if (m_file.tellg() != m_dataPos)
        m_file.seekg(m_dataPos);
    const bool isLine = RecordText::readLine(m_file, m_line);
    if (!isLine)
        exitThread();
    // Ahead of the signals, since a slot that runs an event loop may see this object deleted.
    m_dataPos = m_file.tellg();
    if (isLine && m_header && m_record->deserialise(m_line, m_header->startDt(), m_header->startDate()))
        formSignalReady();
}

void NvxFFTDataThread::formSignalReady()
{
    if (!m_header || !m_record)
        return;
    const HydDeviceId devId(DevTypeSpecFile, m_header->devId().serialNo());
    const std::span<const unsigned char> bins(m_record->spectrum(), static_cast<size_t>(m_record->numBins()));
    auto* const bytes = new unsigned char[bins.size()];
    const auto chunk = std::make_shared<HydStreamDataChunkV0>(
        0U, uint8_t{1}, kSpectrumFormat, static_cast<uint16_t>(bins.size()), bytes, false);
    std::copy(bins.begin(), bins.end(), bytes);
    const auto data = std::make_shared<HydStreamDataPayload>(makeKey(), chunk);
    data->streamType = StreamSpectrum;

    const QPointer<NvxFFTDataThread> self(this);
    Q_EMIT streamHeaderReady(makeHeader(), devId, makeDevice());
    if (!self)
        return;
    const double power =
        m_powerTable.sum({bytes, chunk->numSamples()}, m_header->refLeveluPa(), m_minBin, m_maxBin);
    Q_EMIT signalTotalPower(devId, PowerTable::level(power));
    if (self)
        Q_EMIT streamDataReady(data, devId);
}

std::shared_ptr<HydEventKeyChunk const> NvxFFTDataThread::makeKey() const
{
    stKEY_CHUNK_V1 key;
    key.time = static_cast<uint32_t>(m_record->dataTime());
    // The start of the file, in every record. This is intended.
    key.seqHigh = static_cast<uint32_t>(m_header->startSample() >> 32);
    key.seqLow = static_cast<uint32_t>(m_header->startSample());
    return std::make_shared<HydEventKeyChunkV1>(&key);
}

std::shared_ptr<HydStreamEventHeaderPayload> NvxFFTDataThread::makeHeader() const
{
    stDEVICE_CHUNK_V1 device;
    device.devType = m_header->devId().devType();
    device.serial = m_header->devId().serialNo();
    device.sensitivity = toInt16(static_cast<double>(m_header->sensitivity()) * kTenthsPerDb);
    stFFT_SETUP_CHUNK_V1 setup;
    setup.sampleRate = m_header->sampleRate();
    setup.points = static_cast<uint16_t>(m_header->numPts());
    setup.refLevel = m_header->refLevelVolts();
    setup.procType = m_header->powerCalc();
    setup.pointsBtw = static_cast<uint16_t>(m_header->numPtsBtw());
    setup.accum = static_cast<uint16_t>(m_header->accums());
    // Whole units where a live stream has tenths. This is intended.
    stSTATUS_CHUNK_V0 status;
    status.temperature = toInt16(static_cast<double>(m_record->temperature()));
    status.humidity = toInt16(static_cast<double>(m_record->humidity()));
    auto header = std::make_shared<HydStreamEventHeaderPayload>(
        makeKey(),
        std::vector<std::shared_ptr<HydDeviceInfoChunk const>>{
            std::make_shared<HydDeviceInfoChunkV1>(&device)},
        std::vector<std::shared_ptr<HydStreamStatusChunk const>>{
            std::make_shared<HydStreamStatusChunkV0>(&status)},
        HydStreamSetupContainer(
            std::shared_ptr<HydFftSetupChunk const>(std::make_shared<HydFftSetupChunkV1>(&setup))),
        std::vector<std::shared_ptr<HydAmplScalingChunk const>>(), uint8_t{1}, nullptr);
    header->streamType = StreamSpectrum;
    return header;
}

std::shared_ptr<HydDevice> NvxFFTDataThread::makeDevice() const
{
    const HydDeviceId& id = m_header->devId();
    auto device = std::make_shared<HydDevice>(id.serialNo(), id.devType(), NvxNetHostInfo(), JobTagMap());
    device->setSensitivity(m_header->sensitivity());
    device->setFirmwareVer(m_header->firmware());
    device->setFirmwareRel(m_header->firmware());
    device->setHumidity(m_record->humidity());
    device->setTemperature(m_record->temperature());
    device->mergeJobSettings(
        JobTagMap{{JobTagFftRate, std::make_shared<HydSpecSampRateTag>(m_header->sampleRate())},
                  {JobTagWavRate, std::make_shared<HydWavSampleRateTag>(m_header->sampleRate())},
                  {JobTagFftAccum, std::make_shared<HydFftAccumTag>(m_header->accums())}});
    return device;
}
