#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/WavStreamEvent.h"
#include "NvxQtCommon/merge/NvxWavMerger.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <sys/resource.h>

// One merge, or what a peer of the same process would take for it, once; compare_merge.py calls it in turns
// with programs of others. It prints the wall time and the CPU time in seconds, and the most memory that the
// process ever had in MiB.

namespace {

constexpr qint64 kBlockSamples = 4096;
constexpr unsigned char kBits = 24;
constexpr size_t kWidth = kBits / 8;
constexpr uint32_t kTime = 1709210400;
constexpr uint16_t kFirstSerial = 101;

QString inputName(int channel)
{
    return QStringLiteral("REC0%1_20240229_124000").arg(kFirstSerial + channel);
}

QStringList inputsOf(const QString& directory)
{
    QStringList paths;
    for (const QFileInfo& file :
         QDir(directory).entryInfoList({QStringLiteral("REC*.wav")}, QDir::Files, QDir::Name))
        paths << file.absoluteFilePath();
    return paths;
}

void dispatchWhole(NvxWavWriter& writer, NvxWavEventData& data)
{
    WavStreamEvent event(&data, static_cast<int>(kTime), 0);
    while (!event.isConsumed())
        writer.dispatch(&event);
}

bool makeInput(const QString& directory, int channel, unsigned rate, qint64 frames)
{
    NvxWavWriter writer(0, directory.toStdWString());
    NvxWavInfoDataHF info;
    info.applyFileName(inputName(channel).toStdString());
    info.setTimestamp(kTime);
    info.setDeviceType(DevTypeRecorderA, 0);
    info.setSerialNo(static_cast<uint16_t>(kFirstSerial + channel), 0);
    NvxWavSetupData setup;
    setup.setBitDepth(kBits);
    setup.setSampleRate(rate);
    dispatchWhole(writer, info);
    dispatchWhole(writer, setup);
    std::mt19937 random(static_cast<unsigned>(channel));
    std::vector<unsigned char> noise(size_t{kBlockSamples} * 64 * kWidth);
    for (unsigned char& byte : noise)
        byte = static_cast<unsigned char>(random());
    for (qint64 first = 0; first < frames; first += kBlockSamples) {
        NvxWavDataChunk chunk;
        chunk.setBitDepth(kBits);
        chunk.setNumSamples(static_cast<unsigned short>(std::min(kBlockSamples, frames - first)));
        chunk.setData(noise.data() + static_cast<size_t>(first % (kBlockSamples * 64)) * kWidth);
        dispatchWhole(writer, chunk);
    }
    writer.finishFile();
    return writer.errorCode() == WavErrNone;
}

bool mergeByMerger(const QStringList& inputs, const QString& output, int minutes)
{
    NvxWavMerger merger;
    bool isComplete = false;
    QObject::connect(&merger, &NvxWavMerger::mergeComplete, &merger, [&isComplete] { isComplete = true; });
    QList<uint16_t> serials;
    for (int i = 0; i < inputs.size(); ++i)
        serials << static_cast<uint16_t>(kFirstSerial + i);
    merger.setChannels(serials);
    for (const QString& input : inputs)
        merger.addFile(input);
    merger.setFileLength(minutes);
    merger.setStartTime(QDateTime::fromSecsSinceEpoch(kTime, Qt::UTC));
    merger.setEndTime(merger.startTime());
    merger.setOutputDir(output);
    merger.startMerge();
    return isComplete;
}

/// Puts the file to its first sample.
bool skipHeader(std::FILE* file)
{
    char head[1024];
    const std::string text(head, std::fread(head, 1, sizeof head, file));
    const size_t data = text.find("data");
    return data != std::string::npos && std::fseek(file, static_cast<long>(data + 8), SEEK_SET) == 0;
}

/// Blocks of the same size, woven sample by sample and byte by byte, with the C library's own streams and
/// nothing else around it: no header, no checks, no events.
bool mergeByPlainLoop(const QStringList& inputs, const QString& output)
{
    const auto channels = static_cast<size_t>(inputs.size());
    const size_t blockBytes = size_t{kBlockSamples} * kWidth;
    std::vector<std::FILE*> files;
    for (const QString& input : inputs)
        files.push_back(std::fopen(QFile::encodeName(input).constData(), "rb"));
    std::FILE* out = std::fopen(QFile::encodeName(output + QStringLiteral("/plain.raw")).constData(), "wb");
    std::vector<std::vector<unsigned char>> blocks(channels, std::vector<unsigned char>(blockBytes));
    std::vector<unsigned char> woven(blockBytes * channels);
    bool isGood = out != nullptr && std::ranges::all_of(files, skipHeader);
    for (bool isAtEnd = false; isGood && !isAtEnd;) {
        size_t bytes = blockBytes;
        for (size_t c = 0; c < channels; ++c)
            bytes = std::min(bytes, std::fread(blocks[c].data(), 1, blockBytes, files[c]));
        isAtEnd = bytes < blockBytes;
        const size_t samples = bytes / kWidth;
        unsigned char* to = woven.data();
        for (size_t i = 0; i < samples; ++i) {
            for (size_t c = 0; c < channels; ++c) {
                for (size_t k = 0; k < kWidth; ++k)
                    *to++ = blocks[c][i * kWidth + k];
            }
        }
        const size_t size = samples * kWidth * channels;
        isGood = std::fwrite(woven.data(), 1, size, out) == size;
    }
    for (std::FILE* file : files)
        std::fclose(file);
    return isGood && std::fclose(out) == 0;
}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Not that of getrusage(), which counts what the process was before it ran this program.
double peakMiB()
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return 0.0;
    const QByteArray text = file.readAll();
    return text.mid(text.indexOf("VmHWM:") + 6).trimmed().split(' ').first().toDouble() / 1024.0;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("what"), QStringLiteral("make, merger or plain"));
    parser.addPositionalArgument(QStringLiteral("in"), QStringLiteral("Directory of the inputs"));
    parser.addPositionalArgument(QStringLiteral("out"), QStringLiteral("Directory of the output"));
    parser.addOption({QStringLiteral("channels"), {}, QStringLiteral("N"), QStringLiteral("4")});
    parser.addOption({QStringLiteral("minutes"), {}, QStringLiteral("N"), QStringLiteral("10")});
    parser.addOption({QStringLiteral("rate"), {}, QStringLiteral("HZ"), QStringLiteral("128000")});
    parser.addHelpOption();
    parser.process(app);
    const QString what = parser.positionalArguments().value(0);
    const QString in = parser.positionalArguments().value(1);
    const QString out = parser.positionalArguments().value(2);
    const int minutes = parser.value(QStringLiteral("minutes")).toInt();
    const unsigned rate = parser.value(QStringLiteral("rate")).toUInt();

    if (what == QLatin1String("make")) {
        const int channels = parser.value(QStringLiteral("channels")).toInt();
        for (int channel = 0; channel < channels; ++channel) {
            if (!makeInput(in, channel, rate, qint64{rate} * minutes * 60))
                return 1;
        }
        return 0;
    }
    const QStringList inputs = inputsOf(in);
    const double cpuBefore = cpuSeconds();
    QElapsedTimer timer;
    timer.start();
    const bool isGood =
        !inputs.isEmpty() && (what == QLatin1String("merger") ? mergeByMerger(inputs, out, minutes)
                                                              : mergeByPlainLoop(inputs, out));
    std::printf("%.4f %.4f %.1f\n", double(timer.nsecsElapsed()) / 1e9, cpuSeconds() - cpuBefore, peakMiB());
    return isGood ? 0 : 1;
}
