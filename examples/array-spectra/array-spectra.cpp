// Records the spectra of all channels behind one array controller: fetches the list of channels, reads its
// settings and its clock, and writes a text file of spectra for each channel. Without an address it records
// from a simulated array controller in this process.

#include "array-spectra/ArrayRun.h"
#include "array-spectra/ArrayThread.h"
#include "shared/InterruptWatch.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QLoggingCategory>
#include <QTextStream>
#include <QTimer>

namespace {

int arrayFailure(ArrayRun::Outcome outcome, const QString& sentence)
{
    QTextStream(stderr) << "array-spectra: " << sentence << Qt::endl;
    return outcome;
}

/// Reads the options; the complaint is empty when they make sense.
QString readOrder(const QCommandLineParser& parser, ArrayOrder& order, ArraySettings& simulated)
{
    bool ok = false;
    order.seconds = parser.value(QStringLiteral("seconds")).toInt(&ok);
    if (!ok || order.seconds < 1 || order.seconds > 1000000)
        return QStringLiteral("--seconds takes a number from 1 to 1000000.");
    order.patienceMs = parser.value(QStringLiteral("patience")).toInt(&ok) * 1000;
    if (!ok || order.patienceMs < 1000 || order.patienceMs > 3600000)
        return QStringLiteral("--patience takes a number from 1 to 3600.");
    order.serial = parser.value(QStringLiteral("serial")).toUShort(&ok);
    if (!ok || order.serial == 0)
        return QStringLiteral("--serial takes a number from 1 to 65535.");
    const unsigned channels = parser.value(QStringLiteral("channels")).toUInt(&ok);
    if (!ok || channels < 1 || channels > ArraySettings::kMaxChannels)
        return QStringLiteral("--channels takes a number from 1 to %1.").arg(ArraySettings::kMaxChannels);
    simulated.channels = ArraySettings::makeChannels(channels);
    simulated.serial = order.serial;
    if (parser.isSet(QStringLiteral("address")) &&
        (!order.address.setAddress(parser.value(QStringLiteral("address"))) ||
         order.address.protocol() != QAbstractSocket::IPv4Protocol))
        return QStringLiteral("--address takes an IPv4 address.");
    order.directory = parser.value(QStringLiteral("out"));
    return {};
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("array-spectra"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Records the spectra of all channels behind one array controller, a text file for each. Without "
        "--address it records from a simulated one in this process.\nExit codes: 0 done, 1 wrong use, 2 "
        "nothing found, 3 refused, 4 no data, 5 files can't be written, 6 the ports of a simulated array "
        "controller (80, 21 and 51675) are not to be had."));
    parser.addHelpOption();
    const auto option = [&parser](const char* name, const char* text, const char* value,
                                  const char* standard) {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(text), QString::fromLatin1(value),
                          QString::fromLatin1(standard)});
    };
    option("seconds", "Length of the recording.", "N", "10");
    option("out", "Directory of the files; it is made if need be.", "DIR", "recordings");
    option("address", "IPv4 address of the array controller.", "A", "");
    option("serial", "Serial number of the array controller.", "N", "600");
    option("channels", "Channels of the simulated array controller, 1 to 64.", "N", "16");
    option("patience", "Seconds to wait for an answer, or for spectra.", "N", "5");
    parser.process(app);

    // The library logs the whole configuration file.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    ArrayOrder order;
    ArraySettings simulated;
    if (const QString complaint = readOrder(parser, order, simulated); !complaint.isEmpty())
        return arrayFailure(ArrayRun::WrongUse, complaint);
    if (!QDir().mkpath(order.directory))
        return arrayFailure(ArrayRun::DiskError,
                            QStringLiteral("the directory %1 can't be made.").arg(order.directory));

    ArrayThread simulator;
    if (order.address.isNull()) {
        if (const QString objection = simulator.start(simulated); !objection.isEmpty())
            return arrayFailure(ArrayRun::NoPorts, objection);
        order.address = simulated.address;
        QTextStream(stdout) << "Simulating an array controller at " << order.address.toString() << Qt::endl;
    }

    ArrayRun run(order);
    QObject::connect(&run, &ArrayRun::finished, &app, &QCoreApplication::exit, Qt::QueuedConnection);
    QTimer::singleShot(0, &run, &ArrayRun::start);

    // Ctrl-C completes the files.
    InterruptWatch interruptWatch;
    QObject::connect(&interruptWatch, &InterruptWatch::interrupted, &run, &ArrayRun::stop);
    return QCoreApplication::exec();
}
