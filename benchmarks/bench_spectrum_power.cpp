// What a spectrum costs on its way through the stream adapter, beside a bare loop that does the same
// arithmetic with a call of pow for each bin.
#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/streaming/HydStreamAdapter.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace {

constexpr float kOffset = -10.0F;

std::vector<unsigned char> randomSpectrum(size_t bins)
{
    std::mt19937 random(4711);
    std::vector<unsigned char> values(bins);
    for (unsigned char& value : values)
        value = static_cast<unsigned char>(random());
    return values;
}

void sayTimeOfABin(benchmark::State& state)
{
    state.counters["bin"] =
        benchmark::Counter(static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// The values come back for each round, since both halve them in place.
void powOfEachBin(benchmark::State& state)
{
    const auto values = randomSpectrum(static_cast<size_t>(state.range(0)));
    std::vector<unsigned char> work(values.size());
    for (auto _ : state) {
        std::memcpy(work.data(), values.data(), values.size());
        double power = 0.0;
        for (unsigned char& value : work) {
            value = static_cast<unsigned char>(static_cast<unsigned char>(value + 1) >> 1);
            power += std::pow(10.0, static_cast<double>(static_cast<float>(value) + kOffset) * 0.1);
        }
        double total = power > 1e-9 ? 10.0 * std::log10(power) : 0.0;
        benchmark::DoNotOptimize(total);
        benchmark::ClobberMemory();
    }
    sayTimeOfABin(state);
}

void adapterWith(benchmark::State& state, bool filtering)
{
    const auto values = randomSpectrum(static_cast<size_t>(state.range(0)));
    FFT_Params_FFT.setNumBins(static_cast<uint32_t>(values.size()));
    HydStreamAdapter adapter(StreamSpectrum, 1, HydDeviceId(DevTypeRecorderA, 1), 1000, false);
    double total = 0.0;
    QObject::connect(&adapter, &HydStreamAdapter::signalTotalPower, &adapter,
                     [&total](const HydDeviceId&, double value) { total = value; });
    if (filtering) {
        const auto filter = std::make_shared<NvxNoiseFilter>();
        filter->data().assign(values.size(), 40.5F);
        adapter.setNoiseFilter(filter);
        adapter.setNoiseFiltMode(NoiseFilterSubtract, {});
    }
    const auto payload = std::make_shared<HydStreamDataPayload>(
        nullptr, std::make_shared<HydStreamDataChunkV0>(
                     0U, static_cast<unsigned char>(1), static_cast<unsigned char>(131),
                     static_cast<uint16_t>(values.size()), static_cast<unsigned>(values.size()), false));
    for (auto _ : state) {
        std::memcpy(payload->data()->bytes().get(), values.data(), values.size());
        adapter.dataProcFFT(payload);
        benchmark::DoNotOptimize(total);
        benchmark::ClobberMemory();
    }
    if (filtering != payload->isNoiseFiltered())
        state.SkipWithError("the filter is not what was asked for");
    sayTimeOfABin(state);
}

void adapter(benchmark::State& state)
{
    adapterWith(state, false);
}

void adapterWithNoiseFilter(benchmark::State& state)
{
    adapterWith(state, true);
}

void sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(128)->Arg(512)->Arg(1025)->Arg(8193);
}

BENCHMARK(powOfEachBin)->Apply(sizes);
BENCHMARK(adapter)->Apply(sizes);
BENCHMARK(adapterWithNoiseFilter)->Apply(sizes);

} // namespace

BENCHMARK_MAIN();
