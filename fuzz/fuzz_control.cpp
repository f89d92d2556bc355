// HydControlProcessor: whatever comes, whole and byte by byte give the same messages, and a message that was
// read is read again from what it is written to.

#include "FuzzTarget.h"

#include "NvxQtCommon/contract/message/HydControlProcessor.h"

#include <algorithm>
#include <vector>

namespace {

using Frames = std::vector<std::vector<uint8_t>>;

Frames messages(Bytes input, size_t piece)
{
    Frames frames;
    // Room for a whole frame of the largest size behind anything that a frame's search may keep.
    CircularByteBuffer buffer(2 * HydControlMessage::kMaxFrameSize);
    HydControlProcessor processor;
    feed(buffer, input, piece, [&] {
        ControlResponseEvent event(buffer);
        processor.setOutOfData(false);
        while (!processor.outOfData()) {
            processor.dispatch(&event);
            if (processor.isAtEndState() && processor.message())
                frames.push_back(processor.message()->frame());
        }
    });
    return frames;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Bytes input(data, std::min(size, HydControlMessage::kMaxFrameSize));
    const Frames whole = messages(input, 0);
    require(whole == messages(input, 1), "single bytes give the same messages");
    for (const auto& frame : whole) {
        if (!frame.empty())
            require(messages(frame, 0) == Frames{frame}, "a written message reads back");
    }
    return 0;
}
