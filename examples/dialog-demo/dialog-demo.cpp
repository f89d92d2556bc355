// Opens the dialog that looks for recorders on serial ports, with simulated lines in the place of the
// machine's ports, and prints which recorder was taken.

#include "dialog-demo/DialogPictures.h"
#include "dialog-demo/ScanWatch.h"
#include "dialog-demo/SimulatedLines.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QTextStream>

#include <optional>

namespace {

enum Outcome { Taken = 0, WrongUse = 1, NothingTaken = 2, NoLines = 3, NotSaved = 4 };

int fail(Outcome outcome, const QString& sentence)
{
    QTextStream(stderr) << "dialog-demo: " << sentence << Qt::endl;
    return outcome;
}

/// `port` is taken when the scan has ended; an empty one leaves that to the user.
int runDialog(const QString& port)
{
    NvxSerialConnDialog dialog;
    QObject::connect(&dialog, &NvxSerialConnDialog::deviceAccepted, &dialog,
                     [](const std::shared_ptr<NvxDevice>& device, const QString& portName, uint32_t baud) {
                         QTextStream(stdout) << QString::fromStdString(device->friendlyText()) << " on COM"
                                             << portName << " at " << baud << " bit/s" << Qt::endl;
                     });
    dialog.show();
    dialog.startScan();
    std::optional<ScanWatch> watch;
    if (!port.isEmpty()) {
        watch.emplace(dialog);
        QObject::connect(&*watch, &ScanWatch::scanEnded, &dialog, [&dialog, port] {
            dialog.acceptSelected(port);
            if (dialog.result() != QDialog::Accepted)
                dialog.reject();
        });
    }
    return dialog.exec() == QDialog::Accepted ? Taken
                                              : fail(NothingTaken, QStringLiteral("no recorder was taken."));
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Opens the serial connection dialog with simulated recorders on the ports 5 and 12, and a "
        "line at another baud rate on port 31, where it finds none."));
    parser.addHelpOption();
    parser.addOptions({{QStringLiteral("pictures"),
                        QStringLiteral("Saves four pictures of the dialog in this folder, and ends."),
                        QStringLiteral("folder")},
                       {QStringLiteral("take"),
                        QStringLiteral("Takes the recorder on this port by itself, when the scan has ended."),
                        QStringLiteral("port")}});
    if (!parser.parse(application.arguments()))
        return fail(WrongUse, parser.errorText());
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp();
    if (!parser.positionalArguments().isEmpty())
        return fail(WrongUse, QStringLiteral("there are no arguments but options."));

    SimulatedLines lines;
    if (!lines.addDeafLine() || !lines.areListed())
        return fail(NoLines, QStringLiteral("simulated lines can't be listed as serial ports here."));
    if (parser.isSet(QStringLiteral("pictures"))) {
        const QString complaint = saveDialogPictures(parser.value(QStringLiteral("pictures")), lines);
        return complaint.isEmpty() ? Taken : fail(NotSaved, complaint);
    }
    if (!lines.addRecorders())
        return fail(NoLines, QStringLiteral("there are no more pseudo terminals here."));
    return runDialog(parser.value(QStringLiteral("take")));
}
