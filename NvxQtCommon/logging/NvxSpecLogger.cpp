#include "NvxQtCommon/logging/NvxSpecLogger.h"

#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"
#include "NvxQtCommon/contract/recording/SpecStreamEvent.h"
#include "NvxQtCommon/contract/stream/FftParams.h"

#include <QDebug>
#include <QPointer>

#include <algorithm>
#include <limits>

namespace {

constexpr double kPerTenth = 0.1;
constexpr SampRate kNoiseRate{2000};
constexpr double kSecondsPerMinute = 60.0;

} // namespace

NvxSpecLogger::NvxSpecLogger(int maxNumRecs, QString logPath, QString filePrefix, QObject* parent)
    : QObject(parent), m_specWriter(maxNumRecs, logPath.toStdWString()), m_filePrefix(std::move(filePrefix)),
      m_logPath(std::move(logPath))
{
    registerNvxMetaTypes();
}

NvxSpecLogger::~NvxSpecLogger()
{
    m_specWriter.closeFile();
}

bool NvxSpecLogger::takesDevice(HydDeviceId const& devId) const
{
    return m_devId.serialNo() == 0 || m_devId.serialNo() == devId.serialNo();
}

std::wstring NvxSpecLogger::fileNameAt(unsigned long long time) const
{
    return HydUtil::dateTimeFname(m_filePrefix.toStdWString() + L"_", static_cast<long long>(time));
}

// --- data

void NvxSpecLogger::handleEventHdr(std::shared_ptr<HydStreamEventHeaderPayload> header, HydDeviceId devId,
                                   std::shared_ptr<HydDevice> device)
{
    if (!header || !takesDevice(devId) || !header->eventKey())
        return;
    const auto fileHeader = NvxSpectrumFileHeader::fromEventHdr(*header, device, m_typeMode);
    const uint64_t time = header->eventKey()->eventId();
    if (hasNoiseFilter())
        fileHeader->setFname(m_noiseFilter->fileNameForm().toStdWString());
    else if (m_typeMode != FftModeNoise)
        fileHeader->setFname(fileNameAt(time));
    fileHeader->setComputerName(m_fileHeader.computerName());
    fileHeader->setUserName(m_fileHeader.userName());
    fileHeader->setClientName(m_fileHeader.clientName());
    fileHeader->setJobName(m_fileHeader.jobName());
    fileHeader->setPersonnel(m_fileHeader.personnel());
    fileHeader->setTypeMode(m_typeMode);
    fileHeader->setWavFile(devId.devType() == DevTypeWavFile);
    fileHeader->setAdjacent(header->isAdjacent());
    fileHeader->setAdjacentT(m_adjacentT);
    fileHeader->setAdjFname(fileNameAt(m_adjacentT));
    fileHeader->setSELSettings(m_selSettings);
    fileHeader->setImpSettings(m_impSettings);
    if (device)
        fileHeader->setDevModel(device->modelString());
    fileHeader->setIfDeviceFFT(m_ifDeviceFFT);
    takeStatus(*header, device.get());
    m_sampsPerRec = fileHeader->numPtsBtw() * fileHeader->accums();
    if (m_sampsPerRec == 0)
        m_sampsPerRec = fileHeader->sampleRate();
    m_secsPerRec = fileHeader->sampleRate() == 0
                       ? 0.0F
                       : static_cast<float>(m_sampsPerRec) / static_cast<float>(fileHeader->sampleRate());

    const QDateTime utc = QDateTime::fromSecsSinceEpoch(static_cast<qint64>(time), Qt::UTC);
    const QPointer<NvxSpecLogger> self(this);
    Q_EMIT dataTime(utc);
    if (!self)
        return;
    SpecStreamEvent event(fileHeader.get());
    processStreamEvent(&event);
    if (self && hasNoiseFilter())
        m_noiseFilter->setDateTime(utc);
}

void NvxSpecLogger::takeStatus(const HydStreamEventHeaderPayload& header, const HydDevice* device)
{
    const auto& chunks = header.streamStatusChunks();
    if (!chunks.empty() && chunks.front()) {
        m_temperature = chunks.front()->temperature();
        m_humidity = chunks.front()->humidity();
    } else if (device != nullptr) {
        // The record's whole units count as tenths; that is how the interface has it.
        m_temperature = device->temperature();
        m_humidity = device->humidity();
    }
}

void NvxSpecLogger::handleData(std::shared_ptr<HydStreamDataPayload> payload, HydDeviceId devId)
{
    if (!payload || !payload->data() || !takesDevice(devId))
        return;
    const auto record = NvxSpectrumFileData::fromStreamData(*payload);
    if (record->numBins() == 0) {
        qDebug("A spectrum without bins isn't logged.");
        return;
    }
    record->setTemperature(static_cast<float>(m_temperature * kPerTenth));
    record->setHumidity(static_cast<float>(m_humidity * kPerTenth));
    record->setComment(commentText());
    uint64_t sequence = 0;
    if (payload->eventKey() && m_sampsPerRec != 0)
        sequence = static_cast<uint64_t>(payload->eventKey()->sequence()) + payload->data()->sampleNum();
    record->setSeqNum(sequence);
    if (hasNoiseFilter())
        m_noiseFilter->addData(record->isDSpectrum(), record->numBins(), record->dSpectrum(),
                               record->spectrum());
    logRecord(*record);
}

bool NvxSpecLogger::logRecord(NvxComSpectrumEventData& record, SENSOR_LOG_TYPE logType)
{
    SpecStreamEvent event(&record);
    event.setLogType(logType);
    const QPointer<NvxSpecLogger> self(this);
    processStreamEvent(&event);
    if (!self)
        return false;
    const float seconds = static_cast<float>(m_specWriter.numRecs()) * m_secsPerRec;
    constexpr uint32_t longest = std::numeric_limits<uint32_t>::max();
    Q_EMIT logProgress(seconds < static_cast<float>(longest) ? static_cast<uint32_t>(seconds) : longest);
    return !self.isNull();
}

void NvxSpecLogger::processStreamEvent(SpecStreamEvent* event)
{
    if (event == nullptr)
        return;
    const QPointer<NvxSpecLogger> self(this);
    while (!event->isConsumed()) {
        m_specWriter.dispatch(event);
        if (!m_specWriter.isNewFile())
            continue;
        Q_EMIT newFileCreated(QString::fromStdWString(m_specWriter.outputFileName()));
        if (!self)
            return;
    }
    if (m_specWriter.errorCode() != SpecErrNone)
        qDebug("Spectrum Write Error!!!");
}

// --- ending

void NvxSpecLogger::stopLogging()
{
    endLogging();
}

void NvxSpecLogger::handleWriteError()
{
    const QPointer<NvxSpecLogger> self(this);
    // Without a text of the writer ahead of it: the message begins with the line break, as it is meant.
    Q_EMIT loggingFailed(QStringLiteral(
        "\nPlease ensure that there is space on the disk and that you have permission to write "
        "to the destination directory."));
    if (self)
        endLogging();
}

void NvxSpecLogger::endLogging()
{
    m_specWriter.finishFile();
    const QPointer<NvxSpecLogger> self(this);
    Q_EMIT loggingStopped();
    if (self && hasNoiseFilter())
        m_noiseFilter->calcAvg();
}

// --- settings

void NvxSpecLogger::setLogPath(QString path)
{
    m_specWriter.setlogPath(path.toStdWString());
    m_logPath = std::move(path);
}

void NvxSpecLogger::setDevId(HydDeviceId const& devId)
{
    m_devId = devId;
    if (hasNoiseFilter())
        m_noiseFilter->setDevId(devId);
}

void NvxSpecLogger::setMaxNumRecs(int maxNumRecs, bool timeType)
{
    m_specWriter.setMaxNumRecs(maxNumRecs);
    m_specWriter.setTimeType(timeType);
}

void NvxSpecLogger::calcMaxNumRecs(HydJobSettings const& job, int minutes)
{
    const float rate = HydJobSettings::calcFftUpdateRate(static_cast<float>(job.fftAccum()),
                                                         static_cast<float>(job.fftRate()),
                                                         static_cast<float>(FFT_Params_WAV.overlapLength()));
    const double perRecord = rate > 0.0F ? double{rate} : 1.0;
    constexpr double most = std::numeric_limits<int>::max();
    const double count = std::clamp(minutes * kSecondsPerMinute / perRecord, -most, most);
    // Less than one record a file would be no limit at all.
    const int least = minutes > 0 ? 1 : std::numeric_limits<int>::min();
    setMaxNumRecs(std::max(static_cast<int>(count), least), m_specWriter.timeType());
    m_specWriter.setUpdateRate(rate);
}

void NvxSpecLogger::setIfDeviceFFT(bool deviceFft)
{
    m_ifDeviceFFT = deviceFft;
    if (hasNoiseFilter())
        m_noiseFilter->setIfDeviceFFT(deviceFft);
}

void NvxSpecLogger::setTypeMode(FFTMode mode)
{
    m_typeMode = mode;
    m_fileHeader.setTypeMode(mode);
    m_specWriter.currHeader()->setTypeMode(mode);
}

void NvxSpecLogger::setFFTMode(FFTMode mode)
{
    m_typeMode = mode;
    if (mode == FftModeNoise && !m_noiseFilter)
        m_noiseFilter = std::make_shared<NvxNoiseFilter>(m_devId, m_logPath, kNoiseRate);
}

void NvxSpecLogger::prepareNoiseLog()
{
    if (hasNoiseFilter())
        m_noiseFilter->clearData();
}
