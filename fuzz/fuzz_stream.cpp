// HydStreamProcessor, for wave and for spectrum streams: whole, in single bytes and in pieces of 7 give the
// same messages; every byte is either part of a message, waiting, or counted as skipped; what was read is
// read again.

#include "FuzzTarget.h"

#include "NvxQtCommon/contract/stream/HydStreamProcessor.h"

#include <algorithm>
#include <vector>

namespace {

using Frames = std::vector<std::vector<uint8_t>>;

struct Outcome
{
    Frames frames;
    uint64_t skipped = 0;

    bool operator==(const Outcome&) const = default;
};

Outcome messages(HydStreamType type, Bytes input, size_t piece)
{
    Outcome outcome;
    CircularByteBuffer buffer(65536);
    HydStreamProcessor processor(type);
    feed(buffer, input, piece, [&] {
        processor.notifyDataAvailable();
        StreamInputEvent event(buffer);
        do {
            processor.dispatch(&event);
            if (processor.isAtEndState()) {
                require(processor.message() != nullptr, "an end state has a message");
                outcome.frames.push_back(processor.message()->frame());
            }
        } while (!processor.outOfData());
        require(buffer.isEmpty(), "a round takes every byte");
    });
    // What waits for more is skipped by the reset, so that whole and split inputs can be compared.
    processor.reset();
    outcome.skipped = processor.skippedBytes();
    return outcome;
}

void tryType(HydStreamType type, Bytes input)
{
    const Outcome whole = messages(type, input, 0);
    require(whole == messages(type, input, 1), "single bytes give the same messages");
    require(whole == messages(type, input, 7), "pieces give the same messages");
    require(whole.skipped <= input.size(), "no byte is skipped twice");
    for (const auto& frame : whole.frames)
        require(messages(type, frame, 0) == Outcome{Frames{frame}, 0}, "a written message reads back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Bytes input(data, std::min<size_t>(size, 65536));
    tryType(StreamWave, input);
    tryType(StreamSpectrum, input);
    return 0;
}
