// The pace of a replay: the mean period of its ticks at each speed, beside a bare timer in the same event
// loop, and what a tick costs.
#include "NvxQtCommon/replay/NvxFFTFile.h"
#include "NvxQtCommon/replay/NvxWAVFile.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>
#include <QtEndian>

#include <algorithm>
#include <ctime>
#include <utility>

namespace {

constexpr int kMeasuredMs = 5000;
constexpr int kBins = 513;
constexpr quint32 kWaveRate = 512000;
constexpr int kWaveSeconds = 400;

/// Moments of something that comes again and again.
struct Ticks
{
    QElapsedTimer clock;
    qint64 count = 0;
    qint64 first = 0;
    qint64 last = 0;
    qint64 worst = 0;

    void note()
    {
        const qint64 now = clock.nsecsElapsed();
        if (count++ == 0)
            first = now;
        else
            worst = std::max(worst, now - last);
        last = now;
    }
    double meanMs() const
    {
        return count > 1 ? static_cast<double>(last - first) / static_cast<double>(count - 1) / 1e6 : 0.0;
    }
    double worstMs() const { return static_cast<double>(worst) / 1e6; }
};

/// Spectra of 0.2 s each.
bool writeSpectra(const QString& path)
{
    QByteArray text = "Nerivox spectrum file\t1\nSample rate (Hz)\t48000\nPoints\t1024\nAccumulations\t9\n"
                      "Time\tComment\tTemperature (C)\tHumidity (%)\tSequence\n";
    QByteArray record = "2024-02-29 12:34:56\t\t1\t2\t3";
    for (int bin = 0; bin < kBins; ++bin)
        record += '\t' + QByteArray::number(bin % 256);
    text += (record + '\n').repeated(2 * kMeasuredMs / 5);
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

/// Silence of one channel, 24 bits; the file has no blocks on the disk.
bool writeWaves(const QString& path)
{
    constexpr quint32 dataSize = kWaveRate * 3 * kWaveSeconds;
    QByteArray head("RIFF");
    const auto put = [&head](auto value) {
        const auto little = qToLittleEndian(value);
        head.append(reinterpret_cast<const char*>(&little), sizeof little);
    };
    put(quint32{36 + dataSize});
    head += "WAVEfmt ";
    put(quint32{16});
    put(quint16{1});
    put(quint16{1});
    put(kWaveRate);
    put(quint32{kWaveRate * 3});
    put(quint16{3});
    put(quint16{24});
    head += "data";
    put(dataSize);
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(head) == head.size() &&
           file.resize(qint64{44} + dataSize);
}

template <class File>
bool measure(const QString& path, const char* kind, const char* name, ReplayFILEVelocity speed)
{
    File file(path, nullptr);
    if (!file.headerPrepare(true))
        return false;
    file.setReplayVel(speed, 1);
    Ticks ticks;
    Ticks bare;
    ticks.clock.start();
    bare.clock.start();
    // Blocks of one tick come together and count as one.
    bool isNoted = false;
    QObject::connect(&file, &NvxDataFile::streamDataReady, &file, [&] {
        if (std::exchange(isNoted, true))
            return;
        ticks.note();
        QMetaObject::invokeMethod(
            &file, [&isNoted] { isNoted = false; }, Qt::QueuedConnection);
    });
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, &timer, [&bare] { bare.note(); });
    timer.start(static_cast<int>(file.timerTime()));
    const std::clock_t before = std::clock();
    file.processData();
    QEventLoop loop;
    QTimer::singleShot(kMeasuredMs, &loop, &QEventLoop::quit);
    loop.exec();
    const double cpuMs = static_cast<double>(std::clock() - before) * 1e3 / CLOCKS_PER_SEC;
    QTextStream(stdout) << "| " << kind << " | " << name << " | " << file.timerTime() << " | "
                        << QString::number(ticks.meanMs(), 'f', 3) << " | "
                        << QString::number(bare.meanMs(), 'f', 3) << " | "
                        << QString::number(ticks.worstMs(), 'f', 1) << " | "
                        << QString::number(bare.worstMs(), 'f', 1) << " | " << ticks.count << " | "
                        << QString::number(cpuMs / static_cast<double>(std::max<qint64>(ticks.count, 1)), 'f',
                                           2)
                        << " |" << Qt::endl;
    return ticks.count > 1;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QTemporaryDir folder;
    const QString spectra = folder.filePath(QStringLiteral("spectra.txt"));
    const QString waves = folder.filePath(QStringLiteral("waves.wav"));
    if (!writeSpectra(spectra) || !writeWaves(waves)) {
        QTextStream(stderr) << "the files to play can't be written" << Qt::endl;
        return 1;
    }
    QTextStream(stdout) << "| file | speed | due ms | mean ms | bare timer | longest ms | bare timer | ticks "
                           "| CPU ms a tick |\n"
                           "|---|---|---|---|---|---|---|---|---|"
                        << Qt::endl;
    const char* const names[] = {"normal", "double", "quad", "max"};
    bool good = true;
    for (int speed = ReplayNormal; speed <= ReplayMax; ++speed)
        good &= measure<NvxFFTFile>(spectra, "spectra", names[speed], static_cast<ReplayFILEVelocity>(speed));
    for (int speed = ReplayNormal; speed <= ReplayMax; ++speed)
        good &= measure<NvxWAVFile>(waves, "waves", names[speed], static_cast<ReplayFILEVelocity>(speed));
    return good ? 0 : 1;
}
