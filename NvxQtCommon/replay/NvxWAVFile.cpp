#include "NvxQtCommon/replay/NvxWAVFile.h"

#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/NvxWavHeaderProcessor.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"
#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/replay/NvxWAVDataThread.h"

#include <QFileInfo>
#include <QPointer>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace {

constexpr qint64 kPieceBytes = 1025;
constexpr qint64 kTailBytes = 1026;
constexpr qint64 kMinTailFileBytes = 1276;
constexpr quint32 kChunkHeadBytes = 8;
constexpr qint64 kFirstChunkOffset = 12;
constexpr int kMaxPlainSensitivity = 999;
constexpr int kMaxWholeSensitivity = 1000;
constexpr int32_t kFullScaleMicrovolts = 3000000;
constexpr uint32_t kMinFftLength = 8;
constexpr HydFftProc kProcType{4};

/// Dispatches what is in the buffer until the processor ends or asks for more.
void dispatchAll(NvxWavHeaderProcessor& processor, CircularByteBuffer& buffer)
{
    WavReadEvent event(&buffer);
    do
        processor.dispatch(&event);
    while (!processor.isAtEndState() && !processor.outOfData());
}

void feed(NvxWavHeaderProcessor& processor, CircularByteBuffer& buffer, QByteArrayView bytes)
{
    bool ended = false;
    while (!bytes.isEmpty() && !ended) {
        const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
        const auto taken = buffer.write(data, static_cast<unsigned long long>(bytes.size()));
        bytes = bytes.sliced(static_cast<qsizetype>(taken));
        dispatchAll(processor, buffer);
        ended = processor.isAtEndState();
    }
}

/// Whether the header has more samples behind `ahead` bytes than the file.
bool promisesTooMuch(const NvxWavHeader& header, qint64 fileSize, qint64 ahead)
{
    return qint64{header.dataSize()} + ahead > fileSize;
}

/// Truncated, to the nearest that a word can hold.
uint32_t toWord(double value)
{
    return value > 0 ? static_cast<uint32_t>(std::min(value, double{std::numeric_limits<uint32_t>::max()}))
                     : 0;
}

double ffts(uint32_t sampleRate)
{
    return std::ceil(sampleRate / static_cast<double>(FFT_Params_WAV.fftLength()));
}

qint8 ticksFor(double fftsPerSecond)
{
    const auto count = static_cast<int64_t>(fftsPerSecond);
    if (count < 4)
        return count > 1 && count % 2 == 0 ? 2 : 1;
    if (count % 4 == 0)
        return 4;
    return count % 2 != 0 ? 1 : 2;
}

unsigned char channelNumber(int index)
{
    return static_cast<unsigned char>(index + 1);
}

stKEY_CHUNK_V1 keyOf(const NvxWavInfoData& info)
{
    stKEY_CHUNK_V1 key;
    key.time = info.timestamp();
    key.seqHigh = static_cast<uint32_t>(info.startSample() >> 32);
    key.seqLow = static_cast<uint32_t>(info.startSample());
    return key;
}

stDEVICE_CHUNK_V1 deviceOf(const NvxWavInfoData& info, int channel)
{
    stDEVICE_CHUNK_V1 device;
    // Always those of the first channel; this is intended.
    device.serial = info.serialNo(1);
    device.devType = HydUtil::deviceType(info.deviceType(1));
    const int sensitivity = info.sensitivity(channelNumber(channel));
    // Another limit than the one that the record is filled by; this is intended.
    const bool isTenths = std::abs(sensitivity) > kMaxWholeSensitivity;
    device.sensitivity = static_cast<int16_t>(isTenths ? sensitivity : sensitivity * 10);
    return device;
}

stWAVE_SETUP_CHUNK_V0 setupOf(const NvxWavFmtData& fmt)
{
    stWAVE_SETUP_CHUNK_V0 setup;
    setup.sampleRate = fmt.sampleRate();
    setup.format = static_cast<uint8_t>((fmt.bitsPerSamp() & 128) | ((fmt.bitsPerSamp() / 8) & 15));
    return setup;
}

stAMPLITUDE_CHUNK_V0 scalingOf(const NvxWavFmtData& fmt)
{
    stAMPLITUDE_CHUNK_V0 scaling;
    const auto bits = static_cast<uint8_t>(fmt.bitsPerSamp() & 127);
    const int64_t half = int64_t{1} << (bits - 1);
    scaling.bitsPerSample = bits;
    scaling.maxValue = static_cast<int32_t>(half - 1);
    scaling.minValue = static_cast<int32_t>(-half);
    // 3 V whatever the recorder's range was; this is intended.
    scaling.maxMicrovolts = kFullScaleMicrovolts;
    scaling.minMicrovolts = -kFullScaleMicrovolts;
    return scaling;
}

} // namespace

NvxWAVFile::NvxWAVFile(const QString& name, QObject* parent) : NvxDataFile(parent), m_file(name) {}

NvxWAVFile::~NvxWAVFile() = default;

// --- header

bool NvxWAVFile::headerPrepare(bool freshLog)
{
    m_header.reset();
    std::shared_ptr<NvxWavInfoData> info;
    std::shared_ptr<NvxWavFmtData> fmt;
    if (!readHeader() || !headerCheak(info, fmt) || FFT_Params_WAV.fftLength() == 0)
        return false;
    // A slot on the change of the length may delete this, or set the length to what no replay can work with.
    const QPointer<NvxWAVFile> self(this);
    fitFftLength();
    if (!self || FFT_Params_WAV.fftLength() == 0)
        return false;
    const double fftLength = FFT_Params_WAV.fftLength();
    // Without a byte rate the period stays as it was.
    if (fmt->bytesPerSec() != 0) {
        const double ms = (fmt->bitsPerSamp() / 8) * fftLength * 1000.0 / fmt->bytesPerSec();
        m_baseTime = wholeMilliseconds(fmt->sampleRate() * ms / fftLength);
    }
    m_ticksPerSecond = ticksFor(ffts(fmt->sampleRate()));
    calcTimerTime(fmt->numChannels());
    m_curTime = info->timestamp();
    fillChannelDevices(info, fmt->numChannels());
    prepareEpochLog(freshLog);
    return true;
}

int NvxWAVFile::scanChannels()
{
    // Little-endian whatever the file is: a wrong number here does no harm.
    const auto wordAt = [this](qint64 at, qsizetype bytes) -> quint32 {
        const QByteArray word = m_file.seek(at) ? m_file.read(bytes) : QByteArray();
        if (word.size() != bytes)
            return 0;
        return bytes == 2 ? qFromLittleEndian<quint16>(word.constData())
                          : qFromLittleEndian<quint32>(word.constData());
    };
    const auto tagAt = [this](qint64 at) { return m_file.seek(at) ? m_file.read(4) : QByteArray(); };
    qint64 at = kFirstChunkOffset;
    if (tagAt(at) == "LIST")
        at += kChunkHeadBytes + wordAt(at + 4, 4);
    if (tagAt(at) != "fmt ")
        return 1;
    return std::max(1, static_cast<int>(wordAt(at + kChunkHeadBytes + 2, 2)));
}

bool NvxWAVFile::readHeader()
{
    if (!NvxDataThread::openForReading(m_file))
        return false;
    NvxWavHeaderProcessor processor(scanChannels());
    const qint64 fileSize = m_file.size();
    CircularByteBuffer buffer(kPieceBytes);
    m_file.seek(0);
    while (!processor.isAtEndState()) {
        const QByteArray piece = m_file.read(kPieceBytes);
        if (piece.isEmpty())
            break;
        feed(processor, buffer, piece);
    }
    m_file.close();
    if (!processor.isAtEndState())
        return false;

    if (processor.errorCode() == WavHeaderGood) {
        m_dataStart = processor.headerSize();
    } else if (processor.errorCode() != WavHeaderNoInfo) {
        return false;
    } else if (fileSize >= kMinTailFileBytes) {
        // A smaller file begins to play where the file before of this object did, or at its first byte; this
        // is intended.
        if (!readTailList(processor))
            return false;
        const quint32 list = processor.listChunkSize();
        const quint32 tail = list != 0 ? list + kChunkHeadBytes : 0;
        m_dataStart = processor.headerSize() - tail;
        // This takes the list off twice, as intended. Less than nothing is a huge number, which is cut below.
        if (promisesTooMuch(*processor.header(), fileSize, processor.headerSize()))
            processor.header()->setDataSize(static_cast<unsigned>(fileSize - processor.headerSize() - tail));
    }
    m_header = processor.header();
    m_headerLength = processor.headerSize();
    if (promisesTooMuch(*m_header, fileSize, m_headerLength))
        m_header->setDataSize(static_cast<unsigned>(std::max<qint64>(fileSize - m_headerLength, 0)));
    return true;
}

bool NvxWAVFile::readTailList(NvxWavHeaderProcessor& processor)
{
    if (!NvxDataThread::openForReading(m_file))
        return false;
    const qint64 start = m_file.size() - kTailBytes;
    QByteArray tail;
    if (m_file.seek(start))
        tail = m_file.read(kPieceBytes);
    const qsizetype index = tail.indexOf("LIST");
    if (index >= 0 && m_file.seek(start + index)) {
        CircularByteBuffer buffer(kPieceBytes);
        feed(processor, buffer, m_file.read(kTailBytes - index));
    }
    m_file.close();
    return true;
}

bool NvxWAVFile::headerCheak(std::shared_ptr<NvxWavInfoData>& info, std::shared_ptr<NvxWavFmtData>& fmt)
{
    if (!m_header)
        return false;
    const auto record = m_header->info();
    const bool isKnown = std::dynamic_pointer_cast<NvxWavInfoDataHF>(record) ||
                         std::dynamic_pointer_cast<NvxWavInfoDataTMI>(record);
    fmt = m_header->fmt();
    if (!isKnown || !fmt)
        return false;
    info = record;
    info->applyFileName(fileName().toStdString());
    info->setDeviceType(DevTypeWavFile, 0);
    return true;
}

void NvxWAVFile::fitFftLength()
{
    FftParams& params = FFT_Params_WAV;
    const double rate = sampleRate();
    const double accum = params.numAccum();
    if (rate >= params.fftLength() * accum)
        return;
    while (params.fftLength() > kMinFftLength &&
           params.fftLength() * accum > accum * (params.fftLength() / 1024.0 * 24) + rate) {
        const uint32_t length = params.fftLength() / 2;
        const uint32_t overlap = toWord(params.overlapRatio() * length);
        params.setFftLength(length);
        params.setOverlapTotal(toWord(accum * length * params.overlapRatio()));
        params.setOverlapLength(overlap);
        params.setOverlapLength2(overlap);
        params.setOverlapLength3(overlap);
        params.setFreshLength(length - overlap);
        params.setNumBins(toWord(std::ceil(length / params.binDivisor())));
    }
    // Also where nothing was halved; this is intended.
    Q_EMIT signalFWFFTLenChanged();
}

void NvxWAVFile::fillChannelDevices(const std::shared_ptr<NvxWavInfoData>& info, int channels)
{
    m_hostDevId = HydDeviceId(DevTypeWavFile, channels > 1 ? info->serialNo(0) : uint16_t{0});
    m_channelDevices.clear();
    for (int channel = 0; channel < channels; ++channel) {
        const unsigned char number = channelNumber(channel);
        HydDeviceId id(DevTypeWavFile, info->serialNo(number));
        if (channels > 1)
            id.setHostDevNo(m_hostDevId.serialNo());
        m_channelDevices.append(id);
        if (std::abs(info->sensitivity(number)) > kMaxPlainSensitivity)
            info->setSensitivity(static_cast<int16_t>(info->sensitivity(number) / 10), number);
    }
}

void NvxWAVFile::prepareEpochLog(bool freshLog)
{
    if (freshLog)
        clearEpochLog();
    for (const HydDeviceId& id : std::as_const(m_channelDevices)) {
        m_epochLog[id];
        if (freshLog)
            m_epochCarry[id];
    }
}

// --- replay

bool NvxWAVFile::headerEventPrepare()
{
    std::shared_ptr<NvxWavInfoData> info;
    std::shared_ptr<NvxWavFmtData> fmt;
    if (!headerCheak(info, fmt))
        return false;
    const QPointer<NvxWAVFile> self(this);
    for (int channel = 0; channel < fmt->numChannels() && self; ++channel)
        emitChannelHeader(*info, *fmt, channel);
    return true;
}

void NvxWAVFile::emitChannelHeader(const NvxWavInfoData& info, const NvxWavFmtData& fmt, int channel)
{
    const auto key = keyOf(info);
    const auto device = deviceOf(info, channel);
    const auto setup = setupOf(fmt);
    const auto scaling = scalingOf(fmt);
    HydStreamEventHeaderPayload header(
        std::make_shared<HydEventKeyChunkV1>(&key), {std::make_shared<HydDeviceInfoChunkV1>(&device)}, {},
        HydStreamSetupContainer(std::make_shared<HydWavSetupChunk const>(&setup)),
        {std::make_shared<HydAmplScalingChunkV0>(&scaling)}, 1, nullptr);
    header.streamType = StreamWaveScan;
    header.setAdjacent(isAdjacent());

    const auto record = formDev(channel);
    const HydDeviceId id = *devId(channel);
    const QPointer<NvxWAVFile> self(this);
    if (record)
        Q_EMIT signalDeviceReady(*record);
    if (self)
        Q_EMIT streamHeaderReady(std::make_shared<HydStreamEventHeaderPayload>(header), id, record);
}

bool NvxWAVFile::processData()
{
    letGoOfThread();
    auto* thread = new NvxWAVDataThread(fileName(), this);
    m_thread = thread;
    thread->setFileHeader(m_header, m_headerLength, static_cast<int>(m_dataStart), m_ticksPerSecond);
    setConnections();
    connect(thread, &NvxWAVDataThread::signalForHeader, this, &NvxWAVFile::headerEventPrepare);
    thread->start();
    const QPointer<NvxWAVFile> self(this);
    headerEventPrepare();
    if (self)
        Q_EMIT streamFileStarted(fileName(), curTime());
    return true;
}

std::shared_ptr<HydDevice> NvxWAVFile::formDev(int index)
{
    if (!m_header || !m_header->info() || !m_header->fmt())
        return nullptr;
    const NvxWavInfoData& info = *m_header->info();
    const NvxWavFmtData& fmt = *m_header->fmt();
    const auto id = devId(index);
    auto device = std::make_shared<HydDevice>(id->serialNo(), id->devType(), NvxNetHostInfo(), JobTagMap());
    const unsigned char channel = channelNumber(index);
    device->setFirmwareVer(info.deviceText(channel));
    device->setFirmwareRel(info.software(channel));
    device->setModelString(info.hwRelease(channel));
    const int sensitivity = info.sensitivity(channel);
    const bool isTenths = std::abs(sensitivity) > kMaxWholeSensitivity;
    device->setSensitivity(static_cast<float>(sensitivity) * (isTenths ? 0.1F : 1.0F));
    device->setHumidity(info.humidity(channel));
    device->setTemperature(info.temperature(channel));
    // Whatever the index; this is intended.
    if (fmt.numChannels() == 1)
        device->setSerial(devId(0)->serialNo());
    HydJobSettings settings{JobTagMap()};
    settings.setWavRate(SampRate{fmt.sampleRate()});
    settings.setFftRate(SampRate{fmt.sampleRate()});
    // The bytes of a frame, not the bits of a sample; this is intended.
    settings.setWavBitDepth(HydWavBitDepth{static_cast<uint8_t>(fmt.blockAlign())});
    settings.setFftProcType(kProcType);
    device->mergeJobSettings(settings);
    return device;
}

std::shared_ptr<HydDeviceId> NvxWAVFile::devId(int index) const
{
    return std::make_shared<HydDeviceId>(m_channelDevices.value(index, HydDeviceId(DevTypeWavFile, 0)));
}

unsigned NvxWAVFile::length() const
{
    const bool isKnown = m_header && m_header->fmt() && m_header->fmt()->bytesPerSec() != 0;
    return isKnown ? m_header->dataSize() / m_header->fmt()->bytesPerSec() : 0;
}

unsigned NvxWAVFile::sampleRate() const
{
    return m_header && m_header->fmt() ? m_header->fmt()->sampleRate() : 0;
}

unsigned NvxWAVFile::timestamp() const
{
    return m_header && m_header->info() ? m_header->info()->timestamp() : 0;
}

bool NvxWAVFile::seekToSec(unsigned sec)
{
    if (!m_file.isOpen() || !m_header || !m_header->fmt())
        return false;
    return m_file.seek(qint64{m_dataStart} + qint64{sec} * m_header->fmt()->bytesPerSec());
}

int NvxWAVFile::channelsOr(int channels) const
{
    return m_header && m_header->fmt() ? m_header->fmt()->numChannels() : channels;
}

void NvxWAVFile::setReplayVel(ReplayFILEVelocity vel, int channels)
{
    NvxDataFile::setReplayVel(vel, channelsOr(channels));
}

void NvxWAVFile::setAdjacent(bool adjacent, int channels)
{
    NvxDataFile::setAdjacent(adjacent, channelsOr(channels));
}

void NvxWAVFile::handleImp(std::shared_ptr<SImpulseStatistics> imps, HydDeviceId devId)
{
    if (!imps)
        return;
    const auto time = static_cast<long long>(imps->time);
    const QString line =
        QString::fromStdString(HydUtil::specDateStamp(time) + ' ' + HydUtil::specTimeStamp(time)) +
        QString::asprintf(", Impulse: SEL (dB)=%f, SPL (dB)=%f, Pk (dB)=%f", double{imps->sel},
                          double{imps->splRms}, double{imps->splPeak}) +
        QStringLiteral(", Duration (smpls)=%1, Duration 90%=%2, Sequence in second:%3\n")
            .arg(imps->endSample - imps->startSample)
            .arg(imps->end90Sample - imps->start90Sample)
            .arg(imps->startSample);
    addEpochMessg(devId, {line});
}
