#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"
#include "NvxQtCommon/replay/NvxWAVDataThread.h"
#include "NvxQtCommon/replay/NvxWAVFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

// Replay of wave files: what a tick costs beside a plain loop that reads the same bytes and sorts them by
// channels, and how much is played at the highest speed. The files lie on a tmpfs, so that the disk takes no
// part.

namespace {

constexpr uint32_t kRate = 128000;
constexpr unsigned kBytesPerSample = 3;
constexpr unsigned kSeconds = 60;
constexpr int kRepetitions = 9;

QString makeFile(const QTemporaryDir& dir, unsigned channels)
{
    std::shared_ptr<NvxWavInfoData> info;
    if (channels == 1)
        info = std::make_shared<NvxWavInfoDataHF>();
    else
        info = std::make_shared<NvxWavInfoDataTMI>(static_cast<unsigned char>(channels));
    for (unsigned channel = 1; channel <= channels; ++channel)
        info->setSerialNo(static_cast<uint16_t>(channel), static_cast<unsigned char>(channel));
    const auto fmt = std::make_shared<NvxWavFmtData>(static_cast<uint16_t>(channels), kRate,
                                                     static_cast<uint16_t>(8 * kBytesPerSample));
    NvxWavHeader header(fmt, info, false);
    header.setDataSize(kSeconds * fmt->bytesPerSec());
    const std::vector<uint8_t> head = header.fileBytes(0);
    QFile file(dir.filePath(QStringLiteral("%1.wav").arg(channels)));
    if (!file.open(QIODevice::WriteOnly))
        return {};
    file.write(reinterpret_cast<const char*>(head.data()), qint64(head.size()));
    QByteArray second(qsizetype(fmt->bytesPerSec()), '\0');
    for (qsizetype i = 0; i < second.size(); ++i)
        second[i] = char(i * 31);
    for (unsigned i = 0; i < kSeconds; ++i)
        file.write(second);
    return file.fileName();
}

/// Microseconds that a tick of a second takes, without its timer.
double tickCost(NvxWAVFile& file)
{
    file.setReplayVel(ReplayNormal, 0);
    file.processData();
    auto* thread =
        file.findChildren<NvxWAVDataThread*>().last(); // one of before may still await its deletion
    // It can be put to a place as soon as its thread has opened the file.
    while (!thread->seekToSec(0))
        QThread::yieldCurrentThread();
    thread->pause();
    QElapsedTimer timer;
    timer.start();
    for (unsigned i = 0; i < kSeconds; ++i)
        thread->readRecord();
    const double cost = double(timer.nsecsElapsed()) / 1000.0 / kSeconds;
    QEventLoop loop;
    QObject::connect(&file, &NvxDataFile::threadFinished, &loop, &QEventLoop::quit);
    file.processStop();
    loop.exec();
    return cost;
}

/// The same of a loop that reads a block of each channel at once and copies each channel's samples out.
double plainCost(const QString& path, qint64 first, unsigned channels, unsigned blockSamples)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) || !file.seek(first))
        return 0;
    const unsigned step = channels * kBytesPerSample;
    std::vector<unsigned char> frame(size_t{step} * blockSamples);
    QElapsedTimer timer;
    timer.start();
    for (unsigned left = kSeconds * kRate; left > 0;) {
        const unsigned count = std::min({left, blockSamples, kRate});
        file.read(reinterpret_cast<char*>(frame.data()), qint64{step} * count);
        for (unsigned channel = 0; channel < channels; ++channel) {
            const std::unique_ptr<unsigned char[]> block(new unsigned char[size_t{count} * kBytesPerSample]);
            const unsigned char* from = frame.data() + size_t{channel} * kBytesPerSample;
            for (unsigned i = 0; i < count; ++i)
                for (unsigned k = 0; k < kBytesPerSample; ++k)
                    block[size_t{i} * kBytesPerSample + k] = from[size_t{i} * step + k];
        }
        left -= count;
    }
    return double(timer.nsecsElapsed()) / 1000.0 / kSeconds;
}

/// Seconds of samples of one channel that ReplayMax plays in a second.
double playedPerSecond(NvxWAVFile& file, unsigned channels)
{
    file.setReplayVel(ReplayMax, 0);
    QEventLoop loop;
    const auto link = QObject::connect(&file, &NvxDataFile::threadFinished, &loop, &QEventLoop::quit);
    QElapsedTimer timer;
    timer.start();
    file.processData();
    loop.exec();
    QObject::disconnect(link);
    return channels * double(kSeconds) * 1e9 / double(timer.nsecsElapsed());
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    const QTemporaryDir dir(QDir(QStringLiteral("/dev/shm")).exists()
                                ? QStringLiteral("/dev/shm/bench_replay_XXXXXX")
                                : QDir::tempPath() + QStringLiteral("/bench_replay_XXXXXX"));
    std::printf("a tick of one second, %u Hz, 24 bits, blocks of 1024 samples\n", kRate);
    std::printf("channels   tick us  plain us  ratio   ReplayMax channel-s/s\n");
    for (const unsigned channels : {1U, 4U, 8U}) {
        NvxWAVFile file(makeFile(dir, channels));
        if (!file.headerPrepare(true))
            return 1;
        std::vector<double> ticks;
        std::vector<double> plain;
        std::vector<double> played;
        for (int i = 0; i < kRepetitions; ++i) {
            ticks.push_back(tickCost(file));
            plain.push_back(plainCost(file.fileName(), file.headerSize(), channels, 1024));
            played.push_back(playedPerSecond(file, channels));
        }
        std::printf("%8u %9.0f %9.0f %6.2f %23.0f\n", channels, median(ticks), median(plain),
                    median(ticks) / median(plain), median(played));
    }
    return 0;
}
