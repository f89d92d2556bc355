#include "NvxQtCommon/contract/recording/NvxSpecWriter.h"

#include "NvxQtCommon/contract/base/NvxLog.h"
#include "NvxQtCommon/contract/base/Utf8.h"
#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/SpecStreamEvent.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>

namespace {

constexpr const char* kExtension = ".txt";
constexpr const char* kUnfinishedExtension = ".txt.part";

/// What begins the name of a file whose header names none.
const char* unnamedFilePrefix(FFTMode kind)
{
    switch (kind) {
    case FftModeSpectrum:
        break;
    case FftModeWavStats:
        return "Stats_";
    case FftModeImpulse:
        return "Impulse_";
    case FftModeAccMag:
        return "AccMag_";
    case FftModeBattery:
        return "Battery_";
    case FftModeWavTime:
        return "Time_";
    case FftModeClick:
        return "Click_";
    case FftModeNoise:
        return "Noise_";
    }
    return "Spectrum_";
}

SpecWriteErr specErrorOf(RecordingFile::Failure failure)
{
    switch (failure) {
    case RecordingFile::Failure::None:
        break;
    case RecordingFile::Failure::CannotOpen:
        return SpecErrCannotOpen;
    case RecordingFile::Failure::WriteFailed:
        return SpecErrWriteFailed;
    case RecordingFile::Failure::DiskFull:
        return SpecErrDiskFull;
    }
    return SpecErrNone;
}

} // namespace

NvxSpecWriter::NvxSpecWriter(int maxNumRecs, std::wstring path)
    : m_maxNumRecs(maxNumRecs), m_directory(std::move(path))
{
}

NvxSpecWriter::~NvxSpecWriter()
{
    closeFile();
}

void NvxSpecWriter::finishFile()
{
    closeFile();
    m_error = SpecErrNone;
}

void NvxSpecWriter::closeFile()
{
    m_numRecs = 0;
    if (!m_file.isOpen())
        return;
    auto failure = m_replaces ? m_file.closeAs(m_path) : m_file.close();
    std::error_code ignored;
    if (failure == RecordingFile::Failure::None &&
        !std::filesystem::exists(RecordingFile::systemPath(m_path), ignored))
        failure = RecordingFile::Failure::WriteFailed;
    if (failure == RecordingFile::Failure::None)
        return;
    nvxLog(NvxLogLevel::Warning, "A file could not be completed: " + toUtf8(m_file.path()));
    fail(failure);
}

int NvxSpecWriter::handleEvent(int state, StateEvent& event)
{
    auto* specEvent = dynamic_cast<SpecStreamEvent*>(&event);
    if (specEvent == nullptr)
        return state;
    m_newFile = false;
    specEvent->consume();
    if (const auto* header = dynamic_cast<const NvxSpectrumFileHeader*>(specEvent->data())) {
        m_header = *header;
        m_headerCame = true;
    } else if (m_error != SpecErrNone) {
        return Idle;
    } else if (const auto* record = dynamic_cast<const NvxComSpectrumEventData*>(specEvent->data())) {
        if (m_file.isOpen() && endsBefore(*record))
            closeFile();
        if (m_error == SpecErrNone && !m_file.isOpen())
            open(*record);
        if (m_error == SpecErrNone)
            writeRecord(*record);
    }
    return m_file.isOpen() ? Recording : Idle;
}

bool NvxSpecWriter::endsBefore(const NvxComSpectrumEventData& record) const
{
    if (!m_header.fitsFileOf(m_fileHeader) || record.fileKind(m_header.typeMode()) != m_fileKind ||
        record.columnLayout() != m_columnLayout) {
        if (m_fileKind == FftModeNoise)
            nvxLog(NvxLogLevel::Warning,
                   "The parameters of the noise spectra changed, the file ends: " + toUtf8(m_path));
        return true;
    }
    if (m_fileKind == FftModeNoise || m_maxNumRecs <= 0)
        return false;
    if (!m_timeType)
        return m_numRecs >= m_maxNumRecs;
    return record.dataTime() / secondsPerFile() != m_firstTime / secondsPerFile();
}

uint64_t NvxSpecWriter::secondsPerFile() const
{
    const double perRecord = m_updateRate > 0.0F ? double{m_updateRate} : 1.0;
    const double seconds = std::round(m_maxNumRecs * perRecord);
    constexpr double longest = 1e12;
    return static_cast<uint64_t>(std::clamp(seconds, 1.0, longest));
}

void NvxSpecWriter::open(const NvxComSpectrumEventData& record)
{
    // Who fills the header in place tells by that that it is a new one.
    const bool sameHeader = !m_headerCame && m_header.fname() == m_fileHeader.fname() &&
                            m_header.startDt() == m_fileHeader.startDt();
    m_headerCame = false;
    m_fileHeader = m_header;
    NvxSpectrumFileHeader stated = m_header;
    if (sameHeader) {
        stated.setStartDt(record.dataTime());
        stated.setStartSample(record.seqNum());
        stated.setFname(fromUtf8(
            HydUtil::replaceDateTime(toUtf8(m_header.fname()), static_cast<long long>(record.dataTime()))));
    }
    m_fileKind = record.fileKind(m_header.typeMode());
    m_columnLayout = record.columnLayout();
    m_firstTime = record.dataTime();
    m_replaces = m_fileKind == FftModeNoise && !stated.fname().empty();
    if (stated.fname().empty())
        stated.setFname(fromUtf8(HydUtil::dateTimeFname(std::string(unnamedFilePrefix(m_fileKind)),
                                                        static_cast<long long>(stated.startDt()))));
    const std::string name = toUtf8(stated.fname());
    const auto failure = m_file.create(m_directory, name, m_replaces ? kUnfinishedExtension : kExtension);
    if (failure != RecordingFile::Failure::None) {
        fail(failure);
        return;
    }
    m_path = m_replaces ? RecordingFile::joined(m_directory, name, kExtension) : m_file.path();
    m_numRecs = 0;
    m_text.clear();
    stated.appendLines(m_text, record);
    record.appendTitles(m_text, stated);
    m_text += '\n';
    m_newFile = append(m_text);
}

void NvxSpecWriter::writeRecord(const NvxComSpectrumEventData& record)
{
    m_text.clear();
    record.appendLine(m_text);
    m_text += '\n';
    if (append(m_text))
        ++m_numRecs;
}

/// After a failure the file is closed without what found no room: half a line is worth nothing, and no file
/// is left where not even the header did.
bool NvxSpecWriter::append(const std::string& text)
{
    const uint64_t before = m_file.size();
    auto failure = m_file.append({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    if (failure == RecordingFile::Failure::None)
        failure = m_file.flush();
    if (failure == RecordingFile::Failure::None)
        return true;
    if (m_numRecs == 0)
        m_file.discard();
    else
        m_file.closeCutTo(before);
    fail(failure);
    return false;
}

void NvxSpecWriter::fail(RecordingFile::Failure failure)
{
    m_error = specErrorOf(failure);
    m_newFile = false;
    m_numRecs = 0;
}
