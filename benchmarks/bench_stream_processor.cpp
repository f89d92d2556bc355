// The road of stream bytes from a socket's read buffer through the ring and the processor to payloads,
// against a plain copy of the same bytes; and what hostile bytes cost.
#include "NvxQtCommon/contract/stream/HydStreamProcessor.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kRingCapacity = 3145728;
constexpr unsigned short kSamples = 6800; // of 24 bits: a frame of 20 KiB
constexpr size_t kFrames = 100;

Bytes waveFrames()
{
    Bytes stream;
    for (size_t i = 0; i < kFrames; ++i) {
        stKEY_CHUNK_V1 key;
        key.time = 1700000000;
        auto block = std::make_shared<HydStreamDataChunkV0>(
            static_cast<unsigned>(i * kSamples), static_cast<unsigned char>(1),
            static_cast<unsigned char>(0x83), kSamples, kSamples * 3U, false);
        for (size_t at = 0; at < block->byteSize(); ++at)
            block->bytes()[at] = static_cast<unsigned char>(at * i);
        const HydStreamMessage message(
            std::make_shared<HydStreamDataPayload>(std::make_shared<HydEventKeyChunkV1>(&key), block));
        const Bytes frame = message.frame();
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    return stream;
}

void putBigEndian(Bytes& out, uint64_t value, int width)
{
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        out.push_back(static_cast<uint8_t>(value >> shift));
}

/// A false frame begins every 14 bytes, with chunks that fill it exactly; all end at the same byte.
Bytes nestedFrames()
{
    constexpr size_t kStep = 14;
    constexpr size_t kLevels = HydStreamMessage::kMaxChunkBytes / kStep;
    Bytes nest;
    for (size_t level = 0; level < kLevels; ++level) {
        const size_t rest = (kLevels - 1 - level) * kStep;
        nest.insert(nest.end(), {'0', '*', HydStreamMessage::KindData, HydStreamMessage::kVersion});
        putBigEndian(nest, rest + 6, 4);
        putBigEndian(nest, 99, 2);
        putBigEndian(nest, rest, 4);
    }
    putBigEndian(nest, 0, 4);
    return nest;
}

Bytes marks()
{
    Bytes bytes;
    while (bytes.size() < 2000000)
        bytes.insert(bytes.end(), {'0', '*'});
    return bytes;
}

/// Feeds `stream` in pieces of at most `piece` bytes, as reads of a socket bring them; gives the messages'
/// number.
size_t feed(HydStreamProcessor& processor, CircularByteBuffer& ring, const Bytes& stream, size_t piece)
{
    size_t messages = 0;
    for (size_t at = 0; at < stream.size();) {
        at += ring.write(stream.data() + at, std::min(piece, stream.size() - at));
        processor.notifyDataAvailable();
        StreamInputEvent event(ring);
        do {
            processor.dispatch(&event);
            if (processor.isAtEndState() && processor.message()) {
                benchmark::DoNotOptimize(processor.message()->payload.get());
                ++messages;
            }
        } while (!processor.outOfData());
    }
    return messages;
}

void waveFramesByProcessor(benchmark::State& state)
{
    const Bytes stream = waveFrames();
    CircularByteBuffer ring(kRingCapacity);
    HydStreamProcessor processor(StreamWave);
    size_t messages = 0;
    for (auto _ : state)
        messages += feed(processor, ring, stream, static_cast<size_t>(state.range(0)));
    if (messages != kFrames * static_cast<size_t>(state.iterations()) || processor.skippedBytes() != 0)
        state.SkipWithError("frames were lost");
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(stream.size()));
}

void waveFramesByCopy(benchmark::State& state)
{
    const Bytes stream = waveFrames();
    const auto piece = static_cast<size_t>(state.range(0));
    Bytes buffer(std::min(piece, stream.size()));
    for (auto _ : state) {
        for (size_t at = 0; at < stream.size(); at += piece) {
            std::memcpy(buffer.data(), stream.data() + at, std::min(piece, stream.size() - at));
            benchmark::DoNotOptimize(buffer.data());
            benchmark::ClobberMemory();
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(stream.size()));
}

template <Bytes (*make)()> void hostileBytesByProcessor(benchmark::State& state)
{
    const Bytes stream = make();
    CircularByteBuffer ring(kRingCapacity);
    HydStreamProcessor processor(StreamWave);
    for (auto _ : state)
        benchmark::DoNotOptimize(feed(processor, ring, stream, 65536));
    const auto fed = state.iterations() * static_cast<int64_t>(stream.size());
    state.counters["examined"] = static_cast<double>(processor.examinedBytes()) / static_cast<double>(fed);
    state.SetBytesProcessed(fed);
}

void pieceSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(4096)->Arg(65536)->Arg(1048576);
}

BENCHMARK(waveFramesByProcessor)->Apply(pieceSizes);
BENCHMARK(waveFramesByCopy)->Apply(pieceSizes);
BENCHMARK_TEMPLATE(hostileBytesByProcessor, nestedFrames);
BENCHMARK_TEMPLATE(hostileBytesByProcessor, marks);

} // namespace

BENCHMARK_MAIN();
