#include "NvxQtCommon/contract/recording/NvxSpecWriter.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"
#include "NvxQtCommon/contract/recording/SpecStreamEvent.h"

#include <QDir>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

// Rows of spectrum files beside bare loops: written, from a payload to the file, against std::to_chars for
// each bin and one unbuffered write a row; read, from a line to a record, against std::from_chars for each
// bin. The directory is a tmpfs, so that the disk takes no part.

namespace {

constexpr size_t kBins = 1025;
constexpr int kRowsPerFile = 2000;
constexpr uint32_t kTime = 1709210096;

QString targetPattern()
{
    return QDir(QStringLiteral("/dev/shm")).exists()
               ? QStringLiteral("/dev/shm/bench_rows_XXXXXX")
               : QDir::tempPath() + QStringLiteral("/bench_rows_XXXXXX");
}

std::vector<uint8_t> makeBytes()
{
    std::mt19937 random(1);
    std::vector<uint8_t> bytes(kBins);
    for (uint8_t& byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

std::vector<double> makeValues()
{
    std::mt19937 random(2);
    std::vector<double> values(kBins);
    for (double& value : values)
        value =
            static_cast<double>(random() % 128) - std::uniform_real_distribution<float>(0.0F, 90.0F)(random);
    return values;
}

HydStreamDataPayload makePayload(bool filtered)
{
    stKEY_CHUNK_V1 key;
    key.time = kTime;
    const std::vector<uint8_t> bytes = makeBytes();
    auto* copy = new unsigned char[kBins];
    std::copy(bytes.begin(), bytes.end(), copy);
    HydStreamDataPayload payload(std::make_shared<HydEventKeyChunkV1>(&key),
                                 std::make_shared<HydStreamDataChunkV0>(0U, uint8_t{1}, uint8_t{131},
                                                                        static_cast<uint16_t>(kBins), copy,
                                                                        false));
    if (filtered) {
        payload.ResetD(kBins);
        payload.setNoiseFiltered(true);
        const std::vector<double> values = makeValues();
        std::copy(values.begin(), values.end(), payload.data()->doubles().get());
    }
    return payload;
}

void dispatchWhole(NvxSpecWriter& writer, NvxSpectrumEventData& data)
{
    SpecStreamEvent event(&data);
    while (!event.isConsumed())
        writer.dispatch(&event);
}

void writeByWriter(benchmark::State& state, bool filtered)
{
    const HydStreamDataPayload payload = makePayload(filtered);
    for (auto _ : state) {
        state.PauseTiming();
        QTemporaryDir dir(targetPattern());
        {
            NvxSpecWriter writer(0, dir.path().toStdWString());
            state.ResumeTiming();
            for (int row = 0; row < kRowsPerFile; ++row) {
                const auto record = NvxSpectrumFileData::fromStreamData(payload);
                dispatchWhole(writer, *record);
            }
            writer.closeFile();
            state.PauseTiming();
            if (writer.errorCode() != SpecErrNone)
                state.SkipWithError("the writer failed");
        }
        dir.remove();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kRowsPerFile);
}

template <class Value> void writeBare(benchmark::State& state, const std::vector<Value>& values)
{
    for (auto _ : state) {
        state.PauseTiming();
        QTemporaryDir dir(targetPattern());
        {
            std::FILE* file = std::fopen(qPrintable(dir.filePath(QStringLiteral("rows.txt"))), "wb");
            std::setvbuf(file, nullptr, _IONBF, 0);
            std::vector<char> row(kBins * 32);
            bool good = true;
            state.ResumeTiming();
            for (int i = 0; i < kRowsPerFile; ++i) {
                char* end = row.data();
                for (const Value value : values) {
                    end = std::to_chars(end, row.data() + row.size(), value).ptr;
                    *end++ = '\t';
                }
                end[-1] = '\n';
                const auto size = static_cast<size_t>(end - row.data());
                good = std::fwrite(row.data(), 1, size, file) == size && good;
            }
            std::fclose(file);
            state.PauseTiming();
            if (!good)
                state.SkipWithError("the bare loop could not write");
        }
        dir.remove();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kRowsPerFile);
}

void rowsOfBytes(benchmark::State& state)
{
    writeByWriter(state, false);
}

void rowsOfBytesBare(benchmark::State& state)
{
    writeBare(state, makeBytes());
}

void rowsOfDecimals(benchmark::State& state)
{
    writeByWriter(state, true);
}

void rowsOfDecimalsBare(benchmark::State& state)
{
    writeBare(state, makeValues());
}

std::string makeLine(bool filtered)
{
    std::string line;
    NvxSpectrumFileData::fromStreamData(makePayload(filtered))->appendLine(line);
    return line;
}

void readByRecord(benchmark::State& state, bool filtered)
{
    std::string line = makeLine(filtered);
    NvxSpectrumFileData record;
    for (auto _ : state) {
        if (!record.deserialise(line, kTime, "2024-02-29") || record.numBins() != static_cast<int>(kBins))
            state.SkipWithError("the line is no record");
    }
    state.SetItemsProcessed(state.iterations());
}

template <class Value> void readBare(benchmark::State& state, bool filtered)
{
    const std::string line = makeLine(filtered);
    // Behind the five columns that are no bins.
    size_t start = 0;
    for (int column = 0; column < 5; ++column)
        start = line.find('\t', start) + 1;
    std::vector<Value> values(kBins);
    for (auto _ : state) {
        const char* next = line.data() + start;
        const char* const end = line.data() + line.size();
        for (Value& value : values)
            next = std::from_chars(next, end, value).ptr + 1;
        if (next != end + 1)
            state.SkipWithError("the bare loop missed a bin");
        benchmark::DoNotOptimize(values.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

void readBytes(benchmark::State& state)
{
    readByRecord(state, false);
}

void readBytesBare(benchmark::State& state)
{
    readBare<uint8_t>(state, false);
}

void readDecimals(benchmark::State& state)
{
    readByRecord(state, true);
}

void readDecimalsBare(benchmark::State& state)
{
    readBare<double>(state, true);
}

} // namespace

BENCHMARK(rowsOfBytes)->Unit(benchmark::kMillisecond);
BENCHMARK(rowsOfBytesBare)->Unit(benchmark::kMillisecond);
BENCHMARK(rowsOfDecimals)->Unit(benchmark::kMillisecond);
BENCHMARK(rowsOfDecimalsBare)->Unit(benchmark::kMillisecond);
BENCHMARK(readBytes)->Unit(benchmark::kMicrosecond);
BENCHMARK(readBytesBare)->Unit(benchmark::kMicrosecond);
BENCHMARK(readDecimals)->Unit(benchmark::kMicrosecond);
BENCHMARK(readDecimalsBare)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
