// HydControlProcessor: whatever comes, whole and byte by byte give the same messages, and a message that was
// read is read again from what it is written to. What data collect messages become as payloads of a stream
// has the sizes that it says. Triggers and lists of them are written as they were read.

#include "FuzzTarget.h"

#include "NvxQtCommon/contract/message/HydControlProcessor.h"
#include "NvxQtCommon/contract/stream/HydScanStreamConv.h"
#include "NvxQtCommon/contract/stream/HydStreamMessage.h"

#include <algorithm>
#include <vector>

namespace {

using Messages = std::vector<std::shared_ptr<HydControlMessage>>;
using Frames = std::vector<std::vector<uint8_t>>;

Messages messages(Bytes input, size_t piece)
{
    Messages found;
    // Room for a whole frame of the largest size behind anything that a frame's search may keep.
    CircularByteBuffer buffer(2 * HydControlMessage::kMaxFrameSize);
    HydControlProcessor processor;
    feed(buffer, input, piece, [&] {
        ControlResponseEvent event(buffer);
        processor.setOutOfData(false);
        while (!processor.outOfData()) {
            processor.dispatch(&event);
            if (processor.isAtEndState() && processor.message())
                found.push_back(processor.message());
        }
    });
    return found;
}

Frames framesOf(const Messages& list)
{
    Frames frames;
    for (const auto& message : list)
        frames.push_back(message->frame());
    return frames;
}

void checkHeader(HydScanStreamConv& converter, const std::shared_ptr<HydDataCollectCmd>& collected,
                 HydStreamType type, bool isExpected)
{
    const auto header = converter.extractEventHdr(collected, HydDevice(), type, true);
    require((header != nullptr) == isExpected, "a header comes with data of its kind alone");
    if (header)
        require(header->streamType == type, "a header has the type that was asked for");
}

void checkData(const std::shared_ptr<HydStreamDataPayload>& payload, size_t size)
{
    require(payload->data()->byteSize() == size, "a block has the size of what came");
    // Reads all of it.
    require(HydStreamMessage(payload).frame().size() > size, "a block can be written");
}

void checkScan(HydScanStreamConv& converter, const std::shared_ptr<HydDataCollectCmd>& collected)
{
    const auto wave = std::dynamic_pointer_cast<const DataCollWavChunk>(collected->getChunk(DataCollWav));
    const auto spectrum =
        std::dynamic_pointer_cast<const DataCollSpecChunk>(collected->getChunk(DataCollSpec));
    for (const HydStreamType type : {StreamWave, StreamWaveScan})
        checkHeader(converter, collected, type, wave != nullptr);
    for (const HydStreamType type : {StreamSpectrum, StreamSpectrumScan})
        checkHeader(converter, collected, type, spectrum != nullptr);
    bool lost = false;
    if (const auto data = converter.extractWaveData(collected, HydDevice(), lost))
        checkData(data, wave->samples.size());
    else
        require(lost || !wave, "samples that aren't passed on are lost");
    const auto data = converter.extractSpectrumData(collected, HydDevice());
    require((data != nullptr) == (spectrum != nullptr), "a spectrum is passed on");
    if (data)
        checkData(data, spectrum->bins.size());
}

/// The body of a trigger enquiry's reply, and that of a single trigger's.
void checkTriggers(Bytes body)
{
    HydEnquireTrigger list;
    ByteReader reader(body);
    if (list.deserialize(reader)) {
        ByteStream out;
        list.serialize(out);
        HydEnquireTrigger again;
        ByteReader writtenList(out.bytes());
        require(again.deserialize(writtenList) && writtenList.atEnd(), "a written list reads back");
        const auto read = list.triggers();
        require(std::ranges::equal(read, again.triggers(),
                                   [](const auto& l, const auto& r) { return l->compare(r.get()); }),
                "a list reads back as it was");
    }
    if (const auto trigger = HydTrigger::fromBytes(body)) {
        ByteStream out;
        trigger->serialize(out);
        require(std::ranges::equal(out.bytes(), body), "a trigger is written as it was read");
        require(trigger->errorMes(true).empty() == (trigger->errorCode() == 0), "a refusal has a text");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Bytes input(data, std::min(size, HydControlMessage::kMaxFrameSize));
    const Messages found = messages(input, 0);
    const Frames whole = framesOf(found);
    require(whole == framesOf(messages(input, 1)), "single bytes give the same messages");
    for (const auto& frame : whole) {
        if (!frame.empty())
            require(framesOf(messages(frame, 0)) == Frames{frame}, "a written message reads back");
    }
    HydScanStreamConv converter;
    for (const auto& message : found) {
        if (const auto collected = std::dynamic_pointer_cast<HydDataCollectCmd>(message->payload()))
            checkScan(converter, collected);
    }
    // The same bytes without a frame, whose checksum a fuzzer hardly ever gets right.
    checkTriggers(input);
    const auto bare = std::make_shared<HydDataCollectCmd>();
    ByteReader reader(input);
    if (bare->deserialize(reader))
        checkScan(converter, bare);
    return 0;
}
