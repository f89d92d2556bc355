#pragma once

#include "NvxQtCommon/contract/stream/HydStreamProcessor.h"
#include "tests/stream/StreamBytes.h"

#include <QTest>

#include <algorithm>

/// Drives a processor as a stream adapter does and keeps what came out, written as frames again. Each round
/// checks what holds for any bytes: the ring is empty, no byte is lost without being counted, and what is
/// kept and examined stays within its limits.
class StreamFeeder
{
public:
    explicit StreamFeeder(HydStreamType type = StreamWave, unsigned long long capacity = 3145728)
        : ring(capacity), processor(type)
    {
    }

    /// Feeds `bytes` in pieces of at most `piece` bytes.
    void feed(const Bytes& bytes, size_t piece = SIZE_MAX)
    {
        for (size_t at = 0; at < bytes.size();) {
            const size_t count = std::min(piece, bytes.size() - at);
            at += ring.write(bytes.data() + at, count);
            round();
        }
        fed += bytes.size();
        QVERIFY2(fed == goodBytes + processor.skippedBytes() + processor.pendingBytes(),
                 "a byte was lost without being counted");
        QVERIFY(processor.examinedBytes() <= HydStreamProcessor::kExaminationReserve +
                                                 fed * (HydStreamProcessor::kExaminationsPerByte + 1));
    }

    void round()
    {
        processor.notifyDataAvailable();
        StreamInputEvent event(ring);
        do {
            processor.dispatch(&event);
            if (!processor.isAtEndState())
                continue;
            QVERIFY(processor.message());
            QVERIFY2(processor.message() == processor.message(), "asked twice, the message is the same");
            type = processor.message()->payload->streamType;
            frames.push_back(processor.message()->frame());
            goodBytes += frames.back().size();
        } while (!processor.outOfData());
        QVERIFY2(ring.isEmpty(), "a round takes every byte");
        QVERIFY(processor.pendingBytes() <= HydStreamMessage::kMaxFrameSize);
    }

    CircularByteBuffer ring;
    HydStreamProcessor processor;
    Frames frames;
    HydStreamType type = HydStreamType(0); ///< of the last message
    uint64_t fed = 0;
    uint64_t goodBytes = 0;
};
