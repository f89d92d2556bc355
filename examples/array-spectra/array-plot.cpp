// Draws the spectrum files of the channels of an array as one picture: array-plot FILE.txt ... OUT.png

#include "array-spectra/ChannelsPicture.h"
#include "shared/SpectrumLevels.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QGuiApplication>
#include <QTextStream>

namespace {

constexpr qsizetype kMostFiles = 256;

int arrayPlotFailure(const QString& sentence)
{
    QTextStream(stderr) << "array-plot: " << sentence << Qt::endl;
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
    parser.setApplicationDescription(
        QStringLiteral("Draws text files of spectra, one of each channel of an array, as one picture.\n"
                       "Exit codes: 0 done, 1 wrong use, no spectrum file, or no picture written."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("FILE.txt ..."),
                                 QStringLiteral("The spectra, 1 to 256 files."));
    parser.addPositionalArgument(QStringLiteral("OUT.png"), QStringLiteral("The picture to write."));
    parser.process(app);
    QStringList names = parser.positionalArguments();
    if (names.size() < 2 || names.size() > kMostFiles + 1)
        return arrayPlotFailure(
            QStringLiteral("give 1 to %1 spectrum files and the name of the picture.").arg(kMostFiles));
    const QString target = names.takeLast();

    std::vector<ChannelStrip> strips;
    for (const QString& name : names) {
        SpectrumLevels levels = readSpectrumLevels(name, ChannelsPicture::kStripWidth);
        if (!levels.error.isEmpty())
            return arrayPlotFailure(levels.error);
        strips.push_back({QFileInfo(name).completeBaseName().section(u'_', 0, 0), std::move(levels.grid)});
    }
    const QString title = QStringLiteral("%1 channels, each from 0 to %2 kHz")
                              .arg(strips.size())
                              .arg(strips.front().grid.kilohertz);
    if (!ChannelsPicture(strips).draw(title).save(target, "PNG"))
        return arrayPlotFailure(target + QStringLiteral(": the picture can't be written."));
    return 0;
}
