// Why blocks of samples are copied in pieces: the time of a copy may hang on how far apart both addresses lie
// within their pages.
#include "NvxQtCommon/contract/base/CopyBytes.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <memory>

namespace {

constexpr size_t kPage = 4096;
constexpr size_t kBlock = 20400;

void atOnce(unsigned char* to, const unsigned char* from, size_t size)
{
    std::memcpy(to, from, size);
}

/// The argument is where in its page the copy begins; the source begins at byte 44 of one.
template <void (*copy)(unsigned char*, const unsigned char*, size_t)>
void copyOfABlock(benchmark::State& state)
{
    struct alignas(kPage) Room
    {
        std::array<unsigned char, 16 * kPage> bytes{};
    };
    const auto room = std::make_unique<Room>();
    unsigned char* to = room->bytes.data() + state.range(0);
    const unsigned char* from = room->bytes.data() + 8 * kPage + 44;
    for (auto _ : state) {
        copy(to, from, kBlock);
        benchmark::DoNotOptimize(to);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBlock));
}

void places(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(16)->Arg(48)->Arg(64)->Arg(96)->Arg(2048);
}

BENCHMARK_TEMPLATE(copyOfABlock, atOnce)->Apply(places);
BENCHMARK_TEMPLATE(copyOfABlock, copyBytes)->Apply(places);

} // namespace

BENCHMARK_MAIN();
