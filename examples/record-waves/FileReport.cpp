#include "record-waves/FileReport.h"

#include "shared/WaveFile.h"

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
