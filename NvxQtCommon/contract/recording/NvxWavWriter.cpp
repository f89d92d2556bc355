#include "NvxQtCommon/contract/recording/NvxWavWriter.h"

#include "NvxQtCommon/contract/base/NvxLog.h"
#include "NvxQtCommon/contract/base/Utf8.h"
#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/WavStreamEvent.h"

#include <array>
#include <span>

namespace {

constexpr uint64_t kRiffHeadBytes = 8;
constexpr std::chrono::seconds kSizesInterval{1};
constexpr std::array<uint8_t, 1> kPadding{0};

bool eventHasKey(const WavStreamEvent& event)
{
    return event.timeStamp() != 0 || event.sequence() != 0;
}

template <size_t Width> void reverseEach(std::span<const uint8_t> from, uint8_t* to)
{
    for (size_t i = 0; i + Width <= from.size(); i += Width) {
        for (size_t k = 0; k < Width; ++k)
            to[i + k] = from[i + Width - 1 - k];
    }
}

void swapSamples(std::span<const uint8_t> from, std::vector<uint8_t>& to, unsigned width)
{
    to.resize(from.size());
    switch (width) {
    case 2:
        return reverseEach<2>(from, to.data());
    case 3:
        return reverseEach<3>(from, to.data());
    default:
        return reverseEach<4>(from, to.data());
    }
}

WavWriteErr errorOf(RecordingFile::Failure failure)
{
    switch (failure) {
    case RecordingFile::Failure::None:
        return WavErrNone;
    case RecordingFile::Failure::CannotOpen:
        return WavErrCannotOpen;
    case RecordingFile::Failure::DiskFull:
        return WavErrDiskFull;
    case RecordingFile::Failure::WriteFailed:
        break;
    }
    return WavErrWriteFailed;
}

} // namespace

NvxWavWriter::NvxWavWriter(unsigned int maxLength, std::wstring path)
    : m_maxLength(maxLength), m_directory(std::move(path))
{
}

NvxWavWriter::~NvxWavWriter()
{
    completeFile();
}

std::string NvxWavWriter::errorStr(const WavWriteErr& error)
{
    switch (error) {
    case WavErrNone:
        return {};
    case WavErrCannotOpen:
        return "The wave file cannot be created in the recording directory.";
    case WavErrWriteFailed:
        return "The samples cannot be written to the wave file.";
    case WavErrDiskFull:
        return "The disk is full.";
    case WavErrHeaderUpdate:
        return "The header of the wave file cannot be updated.";
    case WavErrBadFormat:
        return "The format of the samples does not fit the wave file.";
    }
    return "The wave file has an unknown error.";
}

unsigned int NvxWavWriter::length() const
{
    return m_file.isOpen() ? static_cast<unsigned>(m_samples / m_fmt.sampleRate()) : 0;
}

void NvxWavWriter::finishFile()
{
    if (m_stopped) {
        m_error = WavErrNone;
        m_info.reset();
    }
    m_reopening = false;
    completeFile();
}

int NvxWavWriter::currentState() const
{
    // finishFile() closes the file outside of all states, so they follow from what is open.
    return m_file.isOpen() ? Recording : m_reopening ? Reopening : Idle;
}

int NvxWavWriter::handleEvent(int state, StateEvent& event)
{
    auto* wavEvent = dynamic_cast<WavStreamEvent*>(&event);
    if (wavEvent == nullptr)
        return state;
    m_newFile = false;
    if (m_stopped || m_error != WavErrNone) {
        wavEvent->consume();
        return Idle;
    }

    const int from = currentState();
    if (const auto* chunk = dynamic_cast<const NvxWavDataChunk*>(wavEvent->data()))
        handleData(from, *chunk, *wavEvent);
    else if (const auto* info = dynamic_cast<const NvxWavInfoData*>(wavEvent->data()))
        handleInfo(from, *info, *wavEvent);
    else if (const auto* setup = dynamic_cast<const NvxWavSetupData*>(wavEvent->data()))
        handleSetup(from, *setup, *wavEvent);

    // Only an event that has just ended a file stays; it comes again in another state.
    const int next = currentState();
    if (from != Recording || next != Reopening)
        wavEvent->consume();
    refreshSizes();
    return next;
}

void NvxWavWriter::handleInfo(int state, const NvxWavInfoData& info, const WavStreamEvent& event)
{
    const bool isRepeated =
        static_cast<uint32_t>(event.timeStamp()) == m_headerTime && info.startSample() == m_headerStart;
    const bool mayClose = eventHasKey(event) && !isRepeated;
    if (state == Recording && mayClose) {
        const bool isOtherStream =
            info.numChannels() != m_fmt.numChannels() || info.startSample() != nextSample();
        if (isInOtherSpan(event) || isOtherStream)
            return endForReopening(event, info.startSample());
    }
    keepInfo(info, event, state != Recording || mayClose);
    // The file waits for the setup, which may tell of another format.
    if (state == Reopening && eventHasKey(event))
        setReopening(event, info.startSample());
}

void NvxWavWriter::handleSetup(int state, const NvxWavSetupData& setup, const WavStreamEvent& event)
{
    const bool belongsToInfo =
        static_cast<uint32_t>(event.timeStamp()) == m_headerTime && event.sequence() == m_headerStart;
    const bool mayClose = eventHasKey(event) && (!belongsToInfo || m_headerMayClose);
    if (state == Recording && mayClose && (isInOtherSpan(event) || isOtherFormat(setup)))
        return endForReopening(event, nextSample());
    m_setup = std::make_shared<NvxWavSetupData>(setup);
    if (state == Reopening)
        openNext();
    else if (state == Idle && m_info)
        open(static_cast<uint32_t>(event.timeStamp()));
}

void NvxWavWriter::handleData(int state, const NvxWavDataChunk& chunk, const WavStreamEvent& event)
{
    if (state == Idle)
        return dropData();
    if (state == Recording) {
        // A block that alone is too large for a file must not end one file after another.
        const bool isFull = m_samples > 0 && m_headerSize + dataBytes() + chunk.byteSize() >= m_maxFileBytes;
        if (isInOtherSpan(event) || isFull)
            return endForReopening(event, nextSample());
    } else {
        openNext();
    }
    if (m_error == WavErrNone)
        writeBlock(chunk);
}

void NvxWavWriter::keepInfo(const NvxWavInfoData& info, const WavStreamEvent& event, bool mayClose)
{
    m_info = info.clone();
    m_headerMayClose = mayClose;
    if (eventHasKey(event)) {
        m_headerTime = static_cast<uint32_t>(event.timeStamp());
        m_headerStart = info.startSample();
    }
}

void NvxWavWriter::dropData()
{
    if (!m_warnedOfDroppedData)
        nvxLog(NvxLogLevel::Warning, "NvxWavWriter: samples before any header are dropped");
    m_warnedOfDroppedData = true;
}

void NvxWavWriter::writeBlock(const NvxWavDataChunk& chunk)
{
    const size_t size = chunk.byteSize();
    if (chunk.bitDepth() != m_fmt.bitsPerSamp() || chunk.numChannels() != m_fmt.numChannels() ||
        (chunk.data() == nullptr && size > 0)) {
        completeFile();
        fail(WavErrBadFormat);
        return;
    }
    std::span<const uint8_t> bytes(chunk.data(), size);
    if (chunk.isBigEndian() != m_fileBigEndian) {
        swapSamples(bytes, m_swapped, m_fmt.bitsPerSamp() / 8U);
        bytes = m_swapped;
    }
    const auto failure = m_file.append(bytes);
    countSamples();
    if (failure != RecordingFile::Failure::None)
        fail(errorOf(failure));
}

void NvxWavWriter::open(uint32_t eventTime)
{
    m_reopening = false;
    m_fmt = NvxWavFmtData(m_info->numChannels(), m_setup->sampleRate(), m_setup->bitDepth());
    if (!m_fmt.isValid()) {
        fail(WavErrBadFormat);
        return;
    }
    m_fileBigEndian = m_bigEndian;
    m_fileGain = m_setup->gain();
    m_fileTime = m_info->timestamp();
    m_fileStart = m_info->startSample();
    m_openEventTime = eventTime;
    m_samples = 0;
    m_sizesWritten = false;
    m_samplesInHeader = 0;
    m_warnedOfDroppedData = false;

    const std::string name = m_info->fileName();
    auto failure =
        m_file.create(m_directory, name.empty() ? HydUtil::dateTimeFname(name, m_fileTime) : name, ".wav");
    if (failure == RecordingFile::Failure::None) {
        const std::vector<uint8_t> bytes = headerBytes();
        m_headerSize = bytes.size();
        failure = m_file.append(bytes);
        if (failure == RecordingFile::Failure::None)
            failure = m_file.flush();
        // A file without a whole header is of no use to anybody.
        if (failure != RecordingFile::Failure::None)
            m_file.discard();
    }
    if (failure != RecordingFile::Failure::None)
        fail(errorOf(failure));
    else
        m_newFile = true;
}

std::vector<uint8_t> NvxWavWriter::headerBytes() const
{
    // The file tells its own name; the kept one, without a number, names the next file.
    const std::shared_ptr<NvxWavInfoData> info = m_info->clone();
    info->applyFileName(m_file.name());
    return NvxWavHeader(std::make_shared<NvxWavFmtData>(m_fmt), info, m_fileBigEndian).fileBytes(m_fileGain);
}

void NvxWavWriter::openNext()
{
    const uint32_t time = m_nextEventTime > m_openEventTime ? m_nextEventTime : timeByAudio();
    m_info->setTimestamp(time);
    m_info->setStartSample(m_nextStart);
    m_info->applyFileName(HydUtil::replaceDateTime(m_info->fileName(), time));
    open(m_nextEventTime);
}

void NvxWavWriter::endForReopening(const WavStreamEvent& event, uint64_t startSample)
{
    completeFile();
    setReopening(event, startSample);
}

void NvxWavWriter::setReopening(const WavStreamEvent& event, uint64_t startSample)
{
    m_reopening = true;
    m_nextEventTime = static_cast<uint32_t>(event.timeStamp());
    m_nextStart = startSample;
}

void NvxWavWriter::completeFile()
{
    if (!m_file.isOpen())
        return;
    const bool isOdd = needsPadding();
    auto failure = isOdd ? m_file.append(kPadding) : RecordingFile::Failure::None;
    if (failure == RecordingFile::Failure::None)
        failure = m_file.flush();
    WavWriteErr error = errorOf(failure);
    if (error != WavErrNone) {
        fail(error);
    } else {
        const bool isBehind = isOdd || m_samples != m_samplesInHeader;
        if (isBehind && writeSizes(isOdd) != RecordingFile::Failure::None)
            error = WavErrHeaderUpdate;
        const auto closed = m_file.close();
        if (error == WavErrNone)
            error = errorOf(closed);
    }
    if (error != WavErrNone) {
        nvxLog(NvxLogLevel::Warning,
               "NvxWavWriter: " + toUtf8(m_file.path()) + " is not complete: " + errorStr(error));
        m_error = error;
    }
}

void NvxWavWriter::countSamples()
{
    m_samples = (m_file.size() - m_headerSize) / m_fmt.blockAlign();
}

void NvxWavWriter::refreshSizes()
{
    if (!m_file.isOpen() || m_samples == m_samplesInHeader)
        return;
    const auto now = m_clock();
    const bool isDue = !m_sizesWritten || m_samples - m_samplesInHeader >= m_fmt.sampleRate() ||
                       now - m_sizesTime >= kSizesInterval;
    if (!isDue)
        return;
    m_sizesWritten = true;
    m_samplesInHeader = m_samples;
    m_sizesTime = now;
    // The samples go first: the header never promises what isn't there.
    const auto failure = m_file.flush();
    if (failure != RecordingFile::Failure::None)
        fail(errorOf(failure));
    else if (writeSizes(false) != RecordingFile::Failure::None)
        fail(WavErrHeaderUpdate);
}

RecordingFile::Failure NvxWavWriter::writeSizes(bool padded)
{
    const uint64_t data = dataBytes();
    const uint64_t whole = m_headerSize - kRiffHeadBytes + data + (padded ? 1 : 0);
    const auto failure = m_file.overwrite(
        m_headerSize - 4, NvxWavHeader::sizeField(static_cast<uint32_t>(data), m_fileBigEndian));
    if (failure != RecordingFile::Failure::None)
        return failure;
    return m_file.overwrite(NvxWavHeader::kRiffSizeOffset,
                            NvxWavHeader::sizeField(static_cast<uint32_t>(whole), m_fileBigEndian));
}

void NvxWavWriter::fail(WavWriteErr error)
{
    m_error = error;
    if (!m_file.isOpen())
        return;
    // What got onto the disk stays a whole file: everything up to the last whole frame. The padding takes the
    // place of a frame's beginning; only where not one byte is free behind the last whole frame it is
    // missing.
    countSamples();
    const uint64_t end = m_headerSize + dataBytes();
    const bool padded = needsPadding() && m_file.overwrite(end, kPadding) == RecordingFile::Failure::None;
    writeSizes(padded);
    m_file.closeCutTo(padded ? end + 1 : end);
}

uint32_t NvxWavWriter::timeByAudio() const
{
    return m_fileTime + (m_fmt.sampleRate() > 0 ? static_cast<uint32_t>(m_samples / m_fmt.sampleRate()) : 0);
}

bool NvxWavWriter::isInOtherSpan(const WavStreamEvent& event) const
{
    if (m_maxLength == 0)
        return false;
    // Without a key there is no event time, and the audio tells how the time went on.
    const auto spanOf = [this](uint32_t time) { return time / m_maxLength; };
    const uint32_t opened = m_openEventTime != 0 ? m_openEventTime : m_fileTime;
    const auto eventTime = static_cast<uint32_t>(event.timeStamp());
    return spanOf(eventTime != 0 ? eventTime : timeByAudio()) != spanOf(opened);
}

bool NvxWavWriter::isOtherFormat(const NvxWavSetupData& setup) const
{
    // The gain stands in the file, so it has to hold for all of it.
    return setup.bitDepth() != m_fmt.bitsPerSamp() || setup.sampleRate() != m_fmt.sampleRate() ||
           setup.gain() != m_fileGain;
}
