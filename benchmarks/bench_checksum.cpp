// Speed of the checksums that could guard a stream frame, on frames that lie in the cache as they do when the
// processor looks at them.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include <zlib.h>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace {

uint64_t zlibCrc32(const std::vector<uint8_t>& frame)
{
    return crc32(0, frame.data(), static_cast<uInt>(frame.size()));
}

uint64_t xxh32(const std::vector<uint8_t>& frame)
{
    return XXH32(frame.data(), frame.size(), 0);
}

uint64_t xxh64(const std::vector<uint8_t>& frame)
{
    return XXH64(frame.data(), frame.size(), 0);
}

uint64_t xxh3(const std::vector<uint8_t>& frame)
{
    return XXH3_64bits(frame.data(), frame.size());
}

template <uint64_t (*checksum)(const std::vector<uint8_t>&)> void checksumOfAFrame(benchmark::State& state)
{
    std::mt19937 random(1);
    std::vector<uint8_t> frame(static_cast<size_t>(state.range(0)));
    for (uint8_t& byte : frame)
        byte = static_cast<uint8_t>(random());
    for (auto _ : state) {
        benchmark::DoNotOptimize(frame.data());
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(checksum(frame));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void frameSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(4096)->Arg(20480)->Arg(1048576);
}

BENCHMARK_TEMPLATE(checksumOfAFrame, zlibCrc32)->Apply(frameSizes);
BENCHMARK_TEMPLATE(checksumOfAFrame, xxh32)->Apply(frameSizes);
BENCHMARK_TEMPLATE(checksumOfAFrame, xxh64)->Apply(frameSizes);
BENCHMARK_TEMPLATE(checksumOfAFrame, xxh3)->Apply(frameSizes);

} // namespace

BENCHMARK_MAIN();
