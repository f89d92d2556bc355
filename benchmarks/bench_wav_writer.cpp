#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavWriter.h"
#include "NvxQtCommon/contract/recording/WavStreamEvent.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <vector>

// The wave writer against QFile::write of the same bytes, both to the same directory. A run writes one file
// of 64 MiB in blocks of the given size; the file is removed outside of the measured time. The directory is a
// tmpfs, so that the disk takes no part.

namespace {

constexpr uint64_t kFileBytes = 64ULL << 20;
constexpr uint32_t kTime = 1709210400;
constexpr unsigned kRate = 512000;
constexpr unsigned char kBits = 16;

QString targetPattern()
{
    return QDir(QStringLiteral("/dev/shm")).exists() ? QStringLiteral("/dev/shm/bench_wav_writer_XXXXXX")
                                                     : QDir::tempPath() + QStringLiteral("/bench_wav_XXXXXX");
}

// Blocks come from ever other places in memory, as they do from a socket: some alignments of source and
// target copy far slower than others, and one alone would decide the result.
constexpr uint64_t kShift = 64;
constexpr uint64_t kShiftRange = 4096;

size_t shiftOf(uint64_t written, size_t blockSize)
{
    return static_cast<size_t>(written / blockSize * kShift % kShiftRange);
}

std::vector<unsigned char> makeSamples(size_t blockSize)
{
    std::vector<unsigned char> samples(blockSize + kShiftRange);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<unsigned char>(i * 31);
    return samples;
}

void dispatchWhole(NvxWavWriter& writer, NvxWavEventData& data)
{
    WavStreamEvent event(&data, static_cast<int>(kTime), 0);
    while (!event.isConsumed())
        writer.dispatch(&event);
}

void writeByWriter(benchmark::State& state, bool swap)
{
    const auto blockSize = static_cast<size_t>(state.range(0));
    std::vector<unsigned char> samples = makeSamples(blockSize);
    for (auto _ : state) {
        state.PauseTiming();
        QTemporaryDir dir(targetPattern());
        {
            NvxWavWriter writer(0, dir.path().toStdWString());
            NvxWavInfoDataHF info;
            info.setTimestamp(kTime);
            info.applyFileName("bench");
            NvxWavSetupData setup;
            setup.setBitDepth(kBits);
            setup.setSampleRate(kRate);
            state.ResumeTiming();
            dispatchWhole(writer, info);
            dispatchWhole(writer, setup);
            for (uint64_t written = 0; written < kFileBytes; written += blockSize) {
                NvxWavDataChunk chunk;
                chunk.setBitDepth(kBits);
                chunk.setBigEndian(swap);
                chunk.setNumSamples(static_cast<unsigned short>(blockSize / (kBits / 8)));
                chunk.setData(samples.data() + shiftOf(written, blockSize));
                dispatchWhole(writer, chunk);
            }
            writer.finishFile();
            state.PauseTiming();
            if (writer.errorCode() != WavErrNone)
                state.SkipWithError(NvxWavWriter::errorStr(writer.errorCode()).c_str());
        }
        dir.remove();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileBytes));
}

void wavWriter(benchmark::State& state)
{
    writeByWriter(state, false);
}

void wavWriterSwapping(benchmark::State& state)
{
    writeByWriter(state, true);
}

void qFile(benchmark::State& state)
{
    const auto blockSize = static_cast<size_t>(state.range(0));
    const std::vector<unsigned char> samples = makeSamples(blockSize);
    for (auto _ : state) {
        state.PauseTiming();
        QTemporaryDir dir(targetPattern());
        {
            QFile file(dir.filePath(QStringLiteral("bench.raw")));
            state.ResumeTiming();
            bool good = file.open(QIODevice::WriteOnly | QIODevice::NewOnly);
            for (uint64_t written = 0; written < kFileBytes; written += blockSize) {
                const auto* block =
                    reinterpret_cast<const char*>(samples.data() + shiftOf(written, blockSize));
                good = file.write(block, qint64(blockSize)) == qint64(blockSize) && good;
            }
            file.close();
            state.PauseTiming();
            if (!good)
                state.SkipWithError("QFile could not write");
        }
        dir.remove();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFileBytes));
}

} // namespace

BENCHMARK(wavWriter)
    ->Arg(1024)
    ->Arg(4096)
    ->Arg(16384)
    ->Arg(65536)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(qFile)->Arg(1024)->Arg(4096)->Arg(16384)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(wavWriterSwapping)->Arg(4096)->Arg(65536)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
