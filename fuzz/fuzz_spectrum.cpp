// Spectrum files: a header and a record that were read are written and read again without a change. What a
// replay takes for the first record when it prepares is the first that it plays.

#include "FuzzTarget.h"

#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"
#include "NvxQtCommon/contract/recording/RecordText.h"

#include <sstream>
#include <string>

namespace {

std::string textOf(const NvxSpectrumFileHeader& header)
{
    std::string text;
    header.appendLines(text, NvxSpectrumFileData());
    return text;
}

std::string textOf(const NvxSpectrumFileData& record)
{
    std::string line;
    record.appendLine(line);
    return line;
}

void checkHeader(const NvxSpectrumFileHeader& header)
{
    const std::string text = textOf(header);
    std::istringstream in(text);
    NvxSpectrumFileHeader again;
    require(again.deserialise(in) == static_cast<long long>(text.size()), "a written header reads back");
    require(textOf(again) == text, "a header reads back as it was");
}

void checkRecord(NvxSpectrumFileData& record, const NvxSpectrumFileHeader& header)
{
    require(record.numBins() <= 65535, "bins are bounded");
    std::string line = textOf(record);
    NvxSpectrumFileData again;
    require(again.deserialise(line, header.startDt(), header.startDate()), "a written record reads back");
    require(textOf(again) == line, "a record reads back as it was");
    std::string titles;
    record.appendTitles(titles, header);
    require(!again.deserialise(titles, header.startDt(), header.startDate()), "titles are no record");
}

/// Goes to where the lines behind the header begin.
void seekBehindHeader(std::istream& in, long long position)
{
    in.clear();
    in.seekg(position < 0 ? 0 : static_cast<std::streamoff>(position));
}

/// The first record as the preparation of a replay looks for it: in four lines behind the titles, the first
/// that isn't empty.
std::string preparedRecord(std::istream& in, const NvxSpectrumFileHeader& header)
{
    std::string line;
    if (!RecordText::readLine(in, line) || !RecordText::isTitleLine(line))
        return {};
    for (int count = 0; count < 4 && RecordText::readLine(in, line); ++count) {
        if (line.empty())
            continue;
        NvxSpectrumFileData record;
        return record.deserialise(line, header.startDt(), header.startDate()) ? textOf(record)
                                                                              : std::string();
    }
    return {};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    NvxSpectrumFileHeader header;
    const long long position = header.deserialise(in);
    require(position >= -1 && position <= static_cast<long long>(size), "the position lies in the file");
    if (position >= 0)
        checkHeader(header);
    seekBehindHeader(in, position);
    std::string prepared = preparedRecord(in, header);
    seekBehindHeader(in, position);
    NvxSpectrumFileData record;
    std::string line;
    while (RecordText::readLine(in, line)) {
        if (!record.deserialise(line, header.startDt(), header.startDate()))
            continue;
        checkRecord(record, header);
        require(prepared.empty() || prepared == textOf(record), "the prepared record is the first one");
        prepared.clear();
    }
    require(prepared.empty(), "the prepared record is played");
    return 0;
}
