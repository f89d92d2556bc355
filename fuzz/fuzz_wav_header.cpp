// Headers of wave files, with the list at the tail as replay looks for it; and information records by
// themselves.

#include "FuzzTarget.h"

#include "NvxQtCommon/contract/recording/NvxWavHeaderProcessor.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr size_t kBufferBytes = 1025;
constexpr size_t kTailBytes = 1026;

void offer(NvxWavHeaderProcessor& processor, Bytes input, size_t piece)
{
    CircularByteBuffer buffer(kBufferBytes);
    WavReadEvent event(&buffer);
    bool ended = false;
    feed(buffer, input, piece, [&] {
        if (!ended)
            processor.dispatch(&event);
        ended = processor.isAtEndState();
        require(ended || buffer.isEmpty(), "a dispatch takes all that it is offered");
        require(ended != processor.outOfData(), "the processor ends or asks for more");
        buffer.clear();
    });
}

Bytes tailList(Bytes input)
{
    const Bytes tail = input.last(std::min(input.size(), kTailBytes));
    constexpr std::string_view kTag = "LIST";
    return {std::search(tail.begin(), tail.end(), kTag.begin(), kTag.end()), tail.end()};
}

/// Replay adds and takes off these sizes without looking.
void checkSizes(const NvxWavHeaderProcessor& processor, Bytes input)
{
    const uint64_t tail = processor.listChunkSize() == 0 ? 0 : processor.listChunkSize() + 8U;
    require(processor.headerSize() >= tail, "the list at the tail is counted in");
    const uint64_t firstSample = processor.headerSize() - tail;
    require(firstSample <= input.size(), "the first sample lies in the file");
    require(firstSample <= NvxWavHeaderProcessor::kMaxBytesAhead + 8U, "what stands ahead is bounded");
    require(tail <= kTailBytes, "the list was there");
}

void checkWritten(const NvxWavHeader& header)
{
    const NvxWavHeader plain(header.fmt(), header.info(), header.isBigEndian());
    const std::vector<uint8_t> bytes = plain.fileBytes(0);
    NvxWavHeaderProcessor again(0);
    offer(again, bytes, 0);
    require(again.errorCode() == WavHeaderGood && again.headerSize() == bytes.size(),
            "a written header reads back");
    require(again.header()->info()->fileBytes() == header.info()->fileBytes(),
            "its record reads back as it was");
}

void checkSame(const NvxWavHeaderProcessor& a, const NvxWavHeaderProcessor& b)
{
    require(a.isAtEndState() == b.isAtEndState() && a.errorCode() == b.errorCode(),
            "pieces make no difference");
    require(a.headerSize() == b.headerSize() && a.listChunkSize() == b.listChunkSize(), "nor for the sizes");
    require(!a.header() == !b.header(), "nor for the header");
    require(!a.header() || a.header()->info()->fileBytes() == b.header()->info()->fileBytes(),
            "nor for the record");
}

void checkFile(Bytes input)
{
    NvxWavHeaderProcessor whole(1);
    NvxWavHeaderProcessor bytewise(1);
    offer(whole, input, 0);
    offer(bytewise, input, 1);
    checkSame(whole, bytewise);
    if (whole.errorCode() == WavHeaderNoInfo) {
        offer(whole, tailList(input), 0);
        offer(bytewise, tailList(input), 1);
        checkSame(whole, bytewise);
    }
    require((whole.errorCode() == WavHeaderGood || whole.errorCode() == WavHeaderNoInfo) ==
                bool(whole.header()),
            "a header comes with a good code");
    if (!whole.header())
        return;
    checkSizes(whole, input);
    const NvxWavFmtData& fmt = *whole.header()->fmt();
    require(fmt.numChannels() >= 1 && fmt.numChannels() <= NvxWavHeaderProcessor::kMaxChannels,
            "channels are bounded");
    require(fmt.bitsPerSamp() >= 8 && fmt.bitsPerSamp() <= 32 && fmt.sampleRate() > 0,
            "samples can be played");
    if (fmt.isValid())
        checkWritten(*whole.header());
}

template <class Info> void checkRecord(Bytes input)
{
    const auto record = Info::fromBytes(input);
    if (!record)
        return;
    const std::vector<uint8_t> written = record->fileBytes();
    const auto again = Info::fromBytes(written);
    require(again != nullptr, "a written record reads back");
    require(again->fileBytes() == written, "a record reads back as it was");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Bytes input(data, size);
    checkFile(input);
    checkRecord<NvxWavInfoDataHF>(input);
    checkRecord<NvxWavInfoDataTMI>(input);
    return 0;
}
