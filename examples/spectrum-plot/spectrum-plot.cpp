// Draws a text file of spectra as a picture: spectrum-plot FILE.txt [OUT.png]

#include "shared/LevelPicture.h"
#include "shared/SpectrumLevels.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QGuiApplication>
#include <QTextStream>

namespace {

int spectrumPlotFailure(const QString& sentence)
{
    QTextStream(stderr) << "spectrum-plot: " << sentence << Qt::endl;
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
        QStringLiteral("Draws a text file of spectra: time, frequency and level.\n"
                       "Exit codes: 0 done, 1 wrong use, no spectrum file, or no picture written."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("FILE.txt"), QStringLiteral("The spectra."));
    parser.addPositionalArgument(QStringLiteral("OUT.png"),
                                 QStringLiteral("The picture to write; FILE.png if it isn't given."),
                                 QStringLiteral("[OUT.png]"));
    parser.process(app);
    const QStringList names = parser.positionalArguments();
    if (names.isEmpty() || names.size() > 2)
        return spectrumPlotFailure(
            QStringLiteral("give a spectrum file, and the name of the picture to write if need be."));
    const QFileInfo source(names[0]);
    const QString target = names.size() == 2 ? names[1]
                                             : source.path() + QLatin1Char('/') + source.completeBaseName() +
                                                   QStringLiteral(".png");

    const SpectrumLevels levels = readSpectrumLevels(names[0], LevelPicture::kPlotWidth);
    if (!levels.error.isEmpty())
        return spectrumPlotFailure(levels.error);
    if (levels.oddLines > 0)
        QTextStream(stderr) << "spectrum-plot: " << names[0] << ": " << levels.oddLines
                            << " lines hold no spectrum like the others." << Qt::endl;
    if (!LevelPicture(levels.grid).draw(levels.title).save(target, "PNG"))
        return spectrumPlotFailure(target + QStringLiteral(": the picture can't be written."));
    return 0;
}
