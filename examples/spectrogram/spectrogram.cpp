// Draws the spectrogram of a wave file: spectrogram FILE.wav OUT.png

#include "spectrogram/Spectrogram.h"
#include "shared/LevelPicture.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QGuiApplication>
#include <QTextStream>

namespace {

int spectrogramFailure(const QString& sentence)
{
    QTextStream(stderr) << "spectrogram: " << sentence << Qt::endl;
    return 1;
}

} // namespace

int main(int argc, char* argv[])
{
    // No window is shown, so no display is needed.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Draws the spectrogram of a wave file."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("FILE.wav"), QStringLiteral("The recording."));
    parser.addPositionalArgument(QStringLiteral("OUT.png"), QStringLiteral("The picture to write."));
    parser.addOption({QStringLiteral("channel"), QStringLiteral("Channel to draw, from 1."),
                      QStringLiteral("N"), QStringLiteral("1")});
    parser.process(app);
    const QStringList names = parser.positionalArguments();
    if (names.size() != 2)
        return spectrogramFailure(QStringLiteral("give a wave file and the name of the picture to write."));

    WaveFile file;
    if (!file.open(names[0]))
        return spectrogramFailure(file.error());
    if (file.frames() == 0)
        return spectrogramFailure(names[0] + QStringLiteral(": there are no samples in it."));
    const unsigned channel = parser.value(QStringLiteral("channel")).toUInt();
    if (channel < 1 || channel > file.channels())
        return spectrogramFailure(
            QStringLiteral("%1: the channels are 1 to %2.").arg(names[0]).arg(file.channels()));

    const Spectrogram spectrogram(file, channel - 1, LevelPicture::kPlotWidth);
    const LevelPicture picture(spectrogram.levels());
    const QString title = QStringLiteral("%1    %2 Hz, %3 bit, channel %4 of %5")
                              .arg(QFileInfo(names[0]).fileName())
                              .arg(file.sampleRate())
                              .arg(file.bitsPerSample())
                              .arg(channel)
                              .arg(file.channels());
    if (!picture.draw(title).save(names[1], "PNG"))
        return spectrogramFailure(names[1] + QStringLiteral(": the picture can't be written."));
    return 0;
}
