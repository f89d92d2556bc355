// Records one recorder: finds it, opens its command channel, reads setup and clock, starts its streams and
// writes wave files, and text files of its spectra and sensor readings. Without an address it records from a
// simulated recorder in this process.

#include "record-waves/Recording.h"
#include "shared/InterruptWatch.h"

#include "NvxQtSimulator/SimulatedRecorder.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QTextStream>
#include <QTimer>

#include <memory>

namespace {

int fail(Recording::Outcome outcome, const QString& sentence)
{
    QTextStream(stderr) << "record-waves: " << sentence << Qt::endl;
    return outcome;
}

/// A recorder on the first loopback address whose ports are free; empty when there is none.
std::unique_ptr<SimulatedRecorder> startSimulator()
{
    constexpr uint32_t kFirst = 0x7F000002; // 127.0.0.2
    constexpr uint32_t kAddresses = 50;
    RecorderSettings settings;
    settings.sampleRate = 48000;
    settings.wavePort = settings.spectrumPort = settings.sensorPort = settings.epochPort = 0;
    settings.signal.kind = SignalSettings::Sweep;
    settings.signal.frequency = 500.0;
    settings.signal.endFrequency = 20000.0;
    for (uint32_t i = 0; i < kAddresses; ++i) {
        settings.address = QHostAddress(kFirst + i);
        auto recorder = std::make_unique<SimulatedRecorder>(settings);
        if (recorder->start())
            return recorder;
    }
    return nullptr;
}

/// Reads the options; the complaint is empty when they make sense.
QString readOrder(const QCommandLineParser& parser, RecordingOrder& order)
{
    bool ok = false;
    order.seconds = parser.value(QStringLiteral("seconds")).toInt(&ok);
    if (!ok || order.seconds < 1)
        return QStringLiteral("--seconds takes a number from 1 on.");
    order.fileSeconds = parser.value(QStringLiteral("file-seconds")).toInt(&ok);
    if (!ok || order.fileSeconds < 1)
        return QStringLiteral("--file-seconds takes a number from 1 on.");
    order.patienceMs = parser.value(QStringLiteral("patience")).toInt(&ok) * 1000;
    if (!ok || order.patienceMs < 1000 || order.patienceMs > 3600000)
        return QStringLiteral("--patience takes a number from 1 to 3600.");
    order.wavePort = parser.value(QStringLiteral("port")).toUShort(&ok);
    if (!ok || order.wavePort == 0)
        return QStringLiteral("--port takes a number from 1 to 65535.");
    order.side.spectrumPort = parser.value(QStringLiteral("spectrum-port")).toUShort(&ok);
    if (!ok)
        return QStringLiteral("--spectrum-port takes a number from 0 to 65535.");
    order.side.sensorPort = parser.value(QStringLiteral("sensor-port")).toUShort(&ok);
    if (!ok)
        return QStringLiteral("--sensor-port takes a number from 0 to 65535.");
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
    QCoreApplication::setApplicationName(QStringLiteral("record-waves"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Records one recorder: waves into wave files, spectra and sensor readings into text files. Without "
        "--address it records from a simulated recorder in this process.\nExit codes: 0 done, 1 wrong use, 2 "
        "nothing found, 3 refused, 4 no data, "
        "5 "
        "files can't be written."));
    parser.addHelpOption();
    const auto option = [&parser](const char* name, const char* text, const char* value,
                                  const char* standard) {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(text), QString::fromLatin1(value),
                          QString::fromLatin1(standard)});
    };
    option("seconds", "Length of the recording.", "N", "10");
    option("out", "Directory of the files; it is made if need be.", "DIR", "recordings");
    option("address", "IPv4 address of the recorder.", "A", "");
    option("port", "TCP port of its wave stream.", "PORT", "51001");
    option("spectrum-port", "TCP port of its spectrum stream; 0 records no spectra.", "PORT", "51002");
    option("sensor-port", "TCP port of its sensor stream; 0 records no readings.", "PORT", "51003");
    option("file-seconds",
           "A wave file ends at each whole multiple of this many seconds, a text file at one of its minutes.",
           "N", "60");
    option("patience", "Seconds to wait for an answer, or for samples.", "N", "5");
    parser.process(app);

    RecordingOrder order;
    if (const QString complaint = readOrder(parser, order); !complaint.isEmpty())
        return fail(Recording::WrongUse, complaint);
    if (!QDir().mkpath(order.directory))
        return fail(Recording::DiskError,
                    QStringLiteral("the directory %1 can't be made.").arg(order.directory));

    std::unique_ptr<SimulatedRecorder> simulator;
    if (order.address.isNull()) {
        simulator = startSimulator();
        if (!simulator)
            return fail(Recording::NothingFound,
                        QStringLiteral("the simulated recorder finds no free ports."));
        order.address = simulator->settings().address;
        order.wavePort = simulator->streamPort(StreamWave);
        order.side = {simulator->streamPort(StreamSpectrum), simulator->streamPort(StreamSensor)};
        QTextStream(stdout) << "Simulating a recorder at " << order.address.toString() << Qt::endl;
    }

    Recording recording(order);
    QObject::connect(&recording, &Recording::finished, &app, &QCoreApplication::exit, Qt::QueuedConnection);
    QTimer::singleShot(0, &recording, &Recording::start);

    // Ctrl-C completes the files.
    InterruptWatch interruptWatch;
    QObject::connect(&interruptWatch, &InterruptWatch::interrupted, &recording, &Recording::stop);
    return QCoreApplication::exec();
}
