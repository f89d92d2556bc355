#include "NvxQtCommon/logging/NvxWavLogger.h"

#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"
#include "NvxQtCommon/contract/recording/NvxWavTimeData.h"
#include "NvxQtCommon/contract/recording/SpecStreamEvent.h"
#include "NvxQtCommon/contract/recording/WavStreamEvent.h"
#include "NvxQtCommon/logging/WavBlockEvent.h"
#include "NvxQtCommon/logging/WavEventKey.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFileInfo>
#include <QPointer>

#include <algorithm>
#include <iostream>

namespace {

constexpr int kTenthsPerDb = 10;
constexpr int kScanFactor = 10;
constexpr float kMicrovoltsToPeak = 2000000.0F;

QDateTime utc(const WavEventKey& key)
{
    return QDateTime::fromSecsSinceEpoch(key.time, Qt::UTC);
}

const HydStreamStatusChunk* statusOf(const HydStreamEventHeaderPayload& header, size_t index)
{
    const auto& chunks = header.streamStatusChunks();
    return index < chunks.size() ? chunks[index].get() : nullptr;
}

const HydDeviceInfoChunk* deviceInfoOf(const HydStreamEventHeaderPayload& header, size_t index)
{
    const auto& chunks = header.deviceInfoChunks();
    return index < chunks.size() ? chunks[index].get() : nullptr;
}

void setIdentity(NvxWavInfoData& info, const HydDeviceInfoChunk* chunk, unsigned char channel)
{
    if (chunk == nullptr)
        return;
    info.setDeviceType(chunk->devType(), channel);
    info.setSerialNo(chunk->serialNo(), channel);
}

void setDeviceInfo(NvxWavInfoData& info, const HydDeviceInfoChunk* chunk, unsigned char channel)
{
    setIdentity(info, chunk, channel);
    if (chunk != nullptr)
        info.setSensitivity(static_cast<int16_t>(chunk->sensitivity() / kTenthsPerDb), channel);
}

void setStatus(NvxWavInfoData& info, const HydStreamStatusChunk* chunk, unsigned char channel)
{
    if (chunk == nullptr)
        return;
    info.setTemperature(chunk->temperature(), channel);
    info.setHumidity(chunk->humidity(), channel);
    info.setStatusExtra(chunk->statusExtra(), channel);
}

void scaleScanStatus(NvxWavInfoData& info, unsigned char from, unsigned char to)
{
    info.setTemperature(static_cast<int16_t>(info.temperature(from) * kScanFactor), to);
    info.setHumidity(static_cast<int16_t>(info.humidity(from) * kScanFactor), to);
    info.setStatusExtra(static_cast<uint8_t>(info.statusExtra(from) * kScanFactor), to);
}

int32_t fullScaleOf(uint8_t bitDepth)
{
    return bitDepth >= 1 && bitDepth <= 32 ? static_cast<int32_t>(1U << (bitDepth - 1)) : 0;
}

} // namespace

NvxWavLogger::NvxWavLogger(int maxLength, QString logPath, QString filePrefix)
    : m_writer(static_cast<unsigned>(std::max(maxLength, 0)), logPath.toStdWString()),
      m_filePrefix(std::move(filePrefix)), m_maxLength(static_cast<uint32_t>(std::max(maxLength, 0))),
      m_logPath(std::move(logPath)), m_timeWriter(maxLength, m_logPath.toStdWString())
{
    registerNvxMetaTypes();
    m_timeWriter.currHeader()->setTypeMode(FftModeWavTime);
}

NvxWavLogger::~NvxWavLogger() = default;

void NvxWavLogger::handleWavEventHdr(std::shared_ptr<HydStreamEventHeaderPayload> header, HydDeviceId devId,
                                     std::shared_ptr<HydDevice> device)
{
    if (!header)
        return;
    if (m_wavTimeLog == LogOn) {
        handleTimingHdr(*header, devId);
        return;
    }
    if (!header->streamSetupChunk()->wavSetup()) {
        std::cout << "WARNING: Event header contains no wav setup chunk. Wav Logger may be connected to the "
                     "wrong stream.\n"
                  << std::flush;
        return;
    }
    const QPointer<NvxWavLogger> self(this);
    if (header->isArray())
        handleArrayHdr(*header);
    else
        handleRecorderHdr(*header, device.get());
    if (self)
        handleSetup(*header);
}

void NvxWavLogger::handleTimingHdr(const HydStreamEventHeaderPayload& header, const HydDeviceId& devId)
{
    const WavEventKey key(header.eventKey());
    auto info = std::make_shared<NvxWavTestInfoData>();
    info->curTime = QDateTime::currentMSecsSinceEpoch();
    info->time = key.time;
    info->seqNum = key.eventSequence();
    info->deviceType = devId.devType();
    info->serialNo = devId.serialNo();
    info->filename = HydUtil::dateTimeFname(L"Test_Time_", key.time);
    const QPointer<NvxWavLogger> self(this);
    Q_EMIT testDataReady(*info);
    if (!self)
        return;

    m_timeWriter.currHeader()->setStartDt(key.time);
    m_timeWriter.currHeader()->setDeviceId(devId);
    const auto record = NvxWavTimeData::fromWavTestData(info);
    if (m_lastSeq > 0) {
        record->setSizeData(static_cast<int32_t>(key.sequence - m_lastSeq));
        record->setProcTime(static_cast<int32_t>(info->curTime - m_lastCurTime));
    }
    m_lastSeq = key.sequence;
    m_lastCurTime = info->curTime;
    SpecStreamEvent event(record.get());
    processSStreamEvent(&event);
}

void NvxWavLogger::fillCommonInfo(NvxWavInfoData& info, const HydStreamEventHeaderPayload& header) const
{
    const WavEventKey key(header.eventKey());
    info.setTimestamp(key.time);
    const QString program = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    info.setSoftware("Nerivox' " + program.toStdString());
    info.applyFileName(HydUtil::dateTimeFname(m_filePrefix.toStdString() + "_", key.time));
    if (!header.amplScalingChunks().empty() && header.amplScalingChunks().front()) {
        const auto& scaling = *header.amplScalingChunks().front();
        const int64_t range = int64_t{scaling.maxMicrovolts()} - scaling.minMicrovolts();
        info.setPeakVolts(static_cast<float>(range) / kMicrovoltsToPeak);
    }
    info.setStartSample(key.eventSequence());
}

void NvxWavLogger::handleArrayHdr(const HydStreamEventHeaderPayload& header)
{
    const WavEventKey key(header.eventKey());
    NvxWavInfoDataTMI info(header.numChannels());
    info.setNumChannels(header.numChannels());
    fillCommonInfo(info, header);
    const QPointer<NvxWavLogger> self(this);
    Q_EMIT dataTime(utc(key));
    if (!self)
        return;
    for (unsigned channel = 1; channel <= header.numChannels(); ++channel) {
        const auto index = static_cast<unsigned char>(channel);
        setDeviceInfo(info, deviceInfoOf(header, channel - 1), index);
        setStatus(info, statusOf(header, channel - 1), index);
        if (header.streamType == StreamWaveScan)
            scaleScanStatus(info, index, index);
    }
    // An array without a master counts as one that the first channel speaks for.
    setIdentity(info, header.arrayMasterInfo() ? header.arrayMasterInfo().get() : deviceInfoOf(header, 0), 0);
    WavStreamEvent event(&info, key.eventTime(), key.eventSequence());
    processWavStreamEvent(&event);
}

void NvxWavLogger::followRollover(const HydStreamEventHeaderPayload& header)
{
    const bool isLive = header.streamType == StreamWave || header.streamType == StreamSpectrum;
    const HydStreamStatusChunk* status = statusOf(header, 0);
    if (!isLive || status == nullptr)
        return;
    // Only a rise ends the file, and that is intended.
    const bool hasRisen = m_lastStatusValue != 0 && status->rollover() > m_lastStatusValue;
    m_lastStatusValue = status->rollover();
    if (hasRisen)
        m_writer.finishFile();
}

void NvxWavLogger::handleRecorderHdr(const HydStreamEventHeaderPayload& header, const HydDevice* device)
{
    followRollover(header);
    const auto setup = header.streamSetupChunk()->wavSetup();
    const WavEventKey key(header.eventKey());
    NvxWavInfoDataHF info;
    fillCommonInfo(info, header);
    setDeviceInfo(info, deviceInfoOf(header, 0), 0);
    if (device != nullptr) {
        info.setHwRelease(device->modelString() + " " + device->firmwareRel());
        info.setDeviceText(device->firmwareVer(), 1);
    }
    setStatus(info, statusOf(header, 0), 0);
    // Read at index 1 and set at index 0: intended.
    if (header.streamType == StreamWaveScan)
        scaleScanStatus(info, 1, 0);
    info.setFullScaleCount(fullScaleOf(setup->bitDepth()));
    info.setHeadStatus(m_headStatus);
    WavStreamEvent event(&info, key.eventTime(), key.eventSequence());
    const QPointer<NvxWavLogger> self(this);
    Q_EMIT dataTime(utc(key));
    if (!self)
        return;
    // The array's path leaves the writer's byte order alone: intended.
    m_writer.setBigEndian(setup->isBigEndian());
    processWavStreamEvent(&event);
}

void NvxWavLogger::handleSetup(const HydStreamEventHeaderPayload& header)
{
    const auto chunk = header.streamSetupChunk()->wavSetup();
    const WavEventKey key(header.eventKey());
    NvxWavSetupData setup;
    setup.setBitDepth(chunk->bitDepth());
    setup.setGain(chunk->gain());
    setup.setSampleRate(chunk->sampleRate());
    setup.setBigEndian(chunk->isBigEndian());
    WavStreamEvent event(&setup, key.eventTime(), key.eventSequence());
    processWavStreamEvent(&event);
}

void NvxWavLogger::handleWavData(std::shared_ptr<HydStreamDataPayload> payload)
{
    if (m_wavTimeLog == LogOn || !payload || !payload->data())
        return;
    WavBlockEvent event(*payload);
    const QPointer<NvxWavLogger> self(this);
    processWavStreamEvent(&event);
    if (!self)
        return;
    // 0 is not allowed as a maximum length, and still must not end the program.
    const uint32_t maxLength = m_maxLength > 0 ? m_maxLength - m_fileStartTime % m_maxLength : 0;
    Q_EMIT logProgress(m_writer.length(), maxLength);
}

void NvxWavLogger::handleStreamStatusData(std::shared_ptr<HydStatusDataPayload> payload, HydDeviceId)
{
    if (!payload || !payload->headChunk())
        return;
    if (!m_headStatus) {
        const stHEADING_CHUNK_V0 fresh;
        m_headStatus = std::make_shared<HydStreamHeadStatusChunkV0>(&fresh);
    }
    m_headStatus->assign(*payload->headChunk());
}

void NvxWavLogger::processWavStreamEvent(WavStreamEvent* event)
{
    if (m_wavTimeLog == LogOn || event == nullptr)
        return;
    const QPointer<NvxWavLogger> self(this);
    while (!event->isConsumed()) {
        m_writer.dispatch(event);
        if (m_writer.isNewFile()) {
            m_fileStartTime = static_cast<uint32_t>(event->timeStamp());
            Q_EMIT newFileCreated(QString::fromStdWString(m_writer.outputFileName()));
            if (!self)
                return;
        }
    }
    if (m_writer.errorCode() != WavErrNone)
        handleWriteError();
}

void NvxWavLogger::processSStreamEvent(SpecStreamEvent* event)
{
    if (event == nullptr)
        return;
    const QPointer<NvxWavLogger> self(this);
    while (!event->isConsumed()) {
        m_timeWriter.dispatch(event);
        if (m_timeWriter.isNewFile()) {
            Q_EMIT newFileCreated(QString::fromStdWString(m_timeWriter.outputFileName()));
            if (!self)
                return;
        }
    }
    if (m_timeWriter.errorCode() != SpecErrNone)
        qDebug() << "Spectrum from Wave Write Error!!!";
}

void NvxWavLogger::stopLogging()
{
    m_writer.setStopLogging(true);
    m_writer.finishFile();
    if (m_wavTimeLog == LogOn) {
        m_timeWriter.finishFile();
        m_lastSeq = 0;
        m_lastCurTime = 0;
    }
    Q_EMIT loggingStopped();
}

void NvxWavLogger::handleWriteError()
{
    const QString reason = QString::fromStdString(NvxWavWriter::errorStr(m_writer.errorCode()));
    const QPointer<NvxWavLogger> self(this);
    Q_EMIT loggingFailed(reason +
                         QStringLiteral("\nPlease ensure that there is space on the disk and that you "
                                        "have permission to write to the destination directory."));
    if (self)
        stopLogging();
}
