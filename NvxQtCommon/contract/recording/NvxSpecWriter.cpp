#include "NvxQtCommon/contract/recording/NvxSpecWriter.h"

#include "NvxQtCommon/contract/base/Utf8.h"
#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/SpecStreamEvent.h"

namespace {

const char* unnamedFilePrefix(FFTMode mode)
{
    return mode == FftModeWavTime ? "Test_Time_" : "Spectrum_";
}

} // namespace

NvxSpecWriter::NvxSpecWriter(int maxNumRecs, std::wstring path)
    : m_maxNumRecs(maxNumRecs), m_directory(std::move(path))
{
}

NvxSpecWriter::~NvxSpecWriter() = default;

void NvxSpecWriter::finishFile()
{
    closeFile();
    m_error = SpecErrNone;
}

void NvxSpecWriter::closeFile()
{
    m_file.close();
    m_numRecs = 0;
}

int NvxSpecWriter::handleEvent(int state, StateEvent& event)
{
    auto* specEvent = dynamic_cast<SpecStreamEvent*>(&event);
    if (specEvent == nullptr)
        return state;
    m_newFile = false;
    specEvent->consume();
    if (m_error != SpecErrNone)
        return Idle;
    if (const auto* header = dynamic_cast<const NvxSpectrumFileHeader*>(specEvent->data())) {
        closeFile();
        m_header = *header;
    } else if (const auto* record = dynamic_cast<const NvxComSpectrumEventData*>(specEvent->data())) {
        if (m_maxNumRecs > 0 && m_numRecs >= m_maxNumRecs)
            closeFile();
        if (!m_file.isOpen())
            open(*record);
        if (m_error == SpecErrNone)
            writeRecord(*record);
    }
    return m_file.isOpen() ? Recording : Idle;
}

void NvxSpecWriter::open(const NvxComSpectrumEventData& record)
{
    std::string name = toUtf8(m_header.fname());
    if (name.empty())
        name = HydUtil::dateTimeFname(std::string(unnamedFilePrefix(m_header.typeMode())),
                                      static_cast<long long>(m_header.startDt()));
    const auto failure = m_file.create(m_directory, name, ".txt");
    if (failure != RecordingFile::Failure::None) {
        fail(failure);
        return;
    }
    m_numRecs = 0;
    m_newFile = true;
    append(m_header.text() + record.columnTitles() + "\n");
}

void NvxSpecWriter::writeRecord(const NvxComSpectrumEventData& record)
{
    append(record.line() + "\n");
    ++m_numRecs;
}

void NvxSpecWriter::append(const std::string& text)
{
    const uint64_t before = m_file.size();
    auto failure = m_file.append({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    if (failure == RecordingFile::Failure::None)
        failure = m_file.flush();
    if (failure == RecordingFile::Failure::None)
        return;
    // Half a line is worth nothing, and a file without a record neither.
    if (m_numRecs == 0)
        m_file.discard();
    else
        m_file.closeCutTo(before);
    fail(failure);
}

void NvxSpecWriter::fail(RecordingFile::Failure failure)
{
    switch (failure) {
    case RecordingFile::Failure::None:
        m_error = SpecErrNone;
        break;
    case RecordingFile::Failure::CannotOpen:
        m_error = SpecErrCannotOpen;
        break;
    case RecordingFile::Failure::WriteFailed:
        m_error = SpecErrWriteFailed;
        break;
    case RecordingFile::Failure::DiskFull:
        m_error = SpecErrDiskFull;
        break;
    }
    m_newFile = false;
}
