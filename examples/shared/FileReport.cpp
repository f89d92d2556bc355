#include "shared/FileReport.h"

#include "shared/SpectrumFile.h"
#include "shared/WaveFile.h"

#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cmath>
#include <numbers>

namespace {

constexpr qint64 kPiece = 65536;

double effectiveValue(WaveFile& file, unsigned channel)
{
    double sum = 0.0;
    for (qint64 first = 0; first < file.frames(); first += kPiece)
        for (const float sample : file.read(first, kPiece, channel))
            sum += double(sample) * double(sample);
    return std::sqrt(sum / double(std::max<qint64>(1, file.frames())));
}

/// Lines behind that of the titles.
int countReadings(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    while (!file.atEnd() && !file.readLine().startsWith("Time\t"))
        continue;
    int lines = 0;
    for (; !file.atEnd(); ++lines)
        file.readLine();
    return lines;
}

} // namespace

QString describeWaveFile(const QString& path, const std::optional<SoundScale>& scale)
{
    WaveFile file;
    if (!file.open(path))
        return file.error();
    QStringList levels;
    for (unsigned channel = 0; channel < file.channels(); ++channel) {
        const double effective = effectiveValue(file, channel);
        if (effective == 0.0) {
            levels << QStringLiteral("silence");
            continue;
        }
        QString level =
            QStringLiteral("%1 dBFS").arg(20.0 * std::log10(effective * std::numbers::sqrt2), 0, 'f', 1);
        if (scale && scale->fullScaleVolts > 0.0)
            level += QStringLiteral(" = %1 dB re 1 µPa")
                         .arg(20.0 * std::log10(effective * scale->fullScaleVolts) - scale->gainDb -
                                  scale->sensitivityDb,
                              0, 'f', 1);
        levels << level;
    }
    return QStringLiteral("%1  %2 s  %3 Hz  %4 bit  %5 channel%6  %7")
        .arg(QFileInfo(path).fileName())
        .arg(file.seconds(), 0, 'f', 3)
        .arg(file.sampleRate())
        .arg(file.bitsPerSample())
        .arg(file.channels())
        .arg(file.channels() == 1 ? QString() : QStringLiteral("s"), levels.join(QStringLiteral(", ")));
}

QString describeTextFile(const QString& path)
{
    const QString name = QFileInfo(path).fileName();
    SpectrumFile file;
    if (!file.open(path) || !file.next())
        return QStringLiteral("%1  %2 readings").arg(name).arg(countReadings(path));
    int spectra = 0;
    int highestBin = 0;
    double highest = file.level(0);
    do {
        ++spectra;
        for (int bin = 0; bin < file.record().numBins(); ++bin) {
            if (file.level(bin) > highest) {
                highest = file.level(bin);
                highestBin = bin;
            }
        }
    } while (file.next());
    return QStringLiteral("%1  %2 spectra  %3 bins of %4 Hz  at most %5 dB re 1 µPa, at %6 Hz")
        .arg(name)
        .arg(spectra)
        .arg(file.record().numBins())
        .arg(file.binWidth(), 0, 'g', 6)
        .arg(highest, 0, 'f', 1)
        .arg(highestBin * file.binWidth(), 0, 'f', 0);
}
