#include "NvxQtSimulator/SimulatedRecorder.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>
#include <QTimer>

#include <array>
#include <atomic>
#include <cmath>
#include <csignal>
#include <memory>
#include <vector>

// Runs simulated recorders as a process of their own until it is told to stop.

namespace {

std::atomic<bool> g_stopRequested = false;

extern "C" void requestStop(int)
{
    g_stopRequested = true;
}

QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

int fail(const QString& sentence)
{
    QTextStream(stderr) << "recorder-simulator: " << sentence << Qt::endl;
    return 1;
}

const QString kFaultHelp = QStringLiteral(
    "Adds a fault: NAME[:KEY=NUMBER,...]. Keys: value (depends on the fault), after (occasions that pass "
    "first), times (strikes in all, 0 for no limit), chance (0 to 1), on (control, discovery, wave, "
    "spectrum, "
    "sensor, epoch, streams, all). Names (those from status on are of array controllers): ");

void addOptions(QCommandLineParser& parser)
{
    const RecorderSettings defaults;
    const auto option = [&parser](const char* name, const QString& text, const char* value,
                                  const QString& def) {
        parser.addOption({QString::fromLatin1(name), text, QString::fromLatin1(value), def});
    };
    option("address", QStringLiteral("Address of the first recorder; each further one takes the next."),
           "IPv4", defaults.address.toString());
    option("count", QStringLiteral("Number of recorders."), "N", QStringLiteral("1"));
    option("type", QStringLiteral("Device type: 5, 7 or 15."), "N", QString::number(defaults.identity.type));
    option("serial", QStringLiteral("Serial number of the first recorder; each further one takes the next."),
           "N", QString::number(defaults.identity.serial));
    option("serial-rate",
           QStringLiteral("Baud rate at which each recorder also answers on a serial line, whose name is "
                          "printed; 0 for no line."),
           "bit/s", QString::number(defaults.serialRate));
    option("rate", QStringLiteral("Sample rate, 1 to 512000."), "Hz", QString::number(defaults.sampleRate));
    option("depth", QStringLiteral("Bits of a sample: 16, 24 or 32."), "bits",
           QString::number(defaults.bitDepth));
    option("order", QStringLiteral("Byte order of the samples: little or big."), "order",
           QStringLiteral("little"));
    option("channels", QStringLiteral("Channels, 1 to 8."), "N", QString::number(defaults.channels));
    option("signal",
           QStringLiteral("tone, sweep, noise, ramp (each sample is its sample number), or impulses (noise "
                          "with sine bursts at known samples)."),
           "kind", QStringLiteral("tone"));
    option("frequency", QStringLiteral("Frequency of the tone and of bursts, or where the sweep starts."),
           "Hz", QString::number(defaults.signal.frequency));
    option("end-frequency", QStringLiteral("Where the sweep ends."), "Hz",
           QString::number(defaults.signal.endFrequency));
    option("level", QStringLiteral("Level of the signal; a sine wave of full scale has 0."), "dBFS",
           QString::number(defaults.signal.levelDb));
    option("impulse-seconds", QStringLiteral("Seconds from one burst to the next."), "s",
           QString::number(defaults.signal.impulseSeconds));
    option("impulse-length", QStringLiteral("Seconds that a burst lasts."), "s",
           QString::number(defaults.signal.impulseLength));
    option("impulse-level", QStringLiteral("Level of the sine wave in a burst."), "dBFS",
           QString::number(defaults.signal.impulseLevelDb));
    option("ports",
           QStringLiteral("Ports of the wave, spectrum, sensor and epoch streams. A single 0 takes "
                          "free ones, which are printed."),
           "W,S,N,E", QStringLiteral("51001,51002,51003,51004"));
    option("blocks", QStringLiteral("Wave blocks a second."), "N", QString::number(defaults.blocksPerSecond));
    option("backlog", QStringLiteral("Bytes that wait for a slow reader before blocks are dropped."), "bytes",
           QString::number(defaults.backlogLimit));
    option("duration", QStringLiteral("Seconds after which the program ends; 0 runs until it is stopped."),
           "s", QStringLiteral("0"));
    option("seed", QStringLiteral("Seed of faults and noise; 0 takes one of the moment, which is printed."),
           "N", QStringLiteral("0"));
    option("fault", kFaultHelp + FaultRule::names().join(QStringLiteral(", ")) + QLatin1Char('.'), "fault",
           {});
    parser.addOption({QStringLiteral("unpaced"),
                      QStringLiteral("Send streams as fast as the reader takes them, not by the clock.")});
    parser.addOption(
        {QStringLiteral("stream-seconds"),
         QStringLiteral("Seconds of samples or readings that each wave, spectrum and sensor stream "
                        "has; 0 for no end."),
         QStringLiteral("s"), QStringLiteral("0")});
    parser.addOption({QStringLiteral("no-discovery"), QStringLiteral("Do not answer discovery datagrams.")});
}

/// Reads numbers out of options and keeps the first complaint.
class OptionReader
{
public:
    explicit OptionReader(const QCommandLineParser& parser) : m_parser(parser) {}

    qulonglong number(const char* name, qulonglong low, qulonglong high)
    {
        bool ok = false;
        const qulonglong value = m_parser.value(QLatin1String(name)).toULongLong(&ok);
        if (!ok || value < low || value > high)
            complain(QStringLiteral("--%1 takes a number from %2 to %3.")
                         .arg(QLatin1String(name))
                         .arg(low)
                         .arg(high));
        return value;
    }

    double real(const char* name)
    {
        bool ok = false;
        const double value = m_parser.value(QLatin1String(name)).toDouble(&ok);
        if (!ok || !std::isfinite(value))
            complain(QStringLiteral("--%1 takes a number.").arg(QLatin1String(name)));
        return value;
    }

    /// Position of the option's value in `choices`.
    int choice(const char* name, const QStringList& choices)
    {
        const auto position = static_cast<int>(choices.indexOf(m_parser.value(QLatin1String(name))));
        if (position < 0)
            complain(QStringLiteral("--%1 takes one of: %2.")
                         .arg(QLatin1String(name), choices.join(QStringLiteral(", "))));
        return position;
    }

    void complain(const QString& sentence)
    {
        if (m_complaint.isEmpty())
            m_complaint = sentence;
    }
    const QString& complaint() const { return m_complaint; }

private:
    const QCommandLineParser& m_parser;
    QString m_complaint;
};

void readPorts(const QString& text, RecorderSettings& settings, OptionReader& reader)
{
    QStringList parts = text.split(QLatin1Char(','));
    while (parts.size() < 4 && parts.first() == QLatin1String("0"))
        parts << QStringLiteral("0");
    if (parts.size() != 4) {
        reader.complain(QStringLiteral("--ports takes four numbers with commas between, or a single 0."));
        return;
    }
    uint16_t* const ports[] = {&settings.wavePort, &settings.spectrumPort, &settings.sensorPort,
                               &settings.epochPort};
    for (int i = 0; i < 4; ++i) {
        bool ok = false;
        *ports[i] = parts[i].toUShort(&ok);
        if (!ok)
            reader.complain(QStringLiteral("\"%1\" is no port.").arg(parts[i]));
    }
}

RecorderSettings readSettings(const QCommandLineParser& parser, OptionReader& reader)
{
    RecorderSettings settings;
    if (!settings.address.setAddress(parser.value(QStringLiteral("address"))) ||
        settings.address.protocol() != QAbstractSocket::IPv4Protocol)
        reader.complain(QStringLiteral("--address takes an IPv4 address."));
    constexpr std::array kTypes{DevTypeRecorderA, DevTypeRecorderB, DevTypeSkiff};
    if (const int type =
            reader.choice("type", {QStringLiteral("5"), QStringLiteral("7"), QStringLiteral("15")});
        type >= 0)
        settings.identity.type = kTypes[static_cast<size_t>(type)];
    settings.identity.serial = static_cast<uint16_t>(reader.number("serial", 1, 65535));
    settings.serialRate = static_cast<uint32_t>(reader.number("serial-rate", 0, 2000000));
    settings.sampleRate = static_cast<uint32_t>(reader.number("rate", 1, 512000));
    const int depth =
        reader.choice("depth", {QStringLiteral("16"), QStringLiteral("24"), QStringLiteral("32")});
    settings.bitDepth = static_cast<unsigned>(16 + 8 * depth);
    settings.byteOrder = reader.choice("order", {QStringLiteral("little"), QStringLiteral("big")}) == 1
                             ? OrderBigEndian
                             : OrderLittleEndian;
    settings.channels = static_cast<unsigned>(reader.number("channels", 1, SignalSource::kMaxChannels));
    settings.signal.kind = static_cast<SignalSettings::Kind>(
        reader.choice("signal", {QStringLiteral("tone"), QStringLiteral("sweep"), QStringLiteral("noise"),
                                 QStringLiteral("ramp"), QStringLiteral("impulses")}));
    settings.signal.frequency = reader.real("frequency");
    settings.signal.endFrequency = reader.real("end-frequency");
    settings.signal.levelDb = reader.real("level");
    settings.signal.impulseSeconds = reader.real("impulse-seconds");
    settings.signal.impulseLength = reader.real("impulse-length");
    settings.signal.impulseLevelDb = reader.real("impulse-level");
    readPorts(parser.value(QStringLiteral("ports")), settings, reader);
    settings.blocksPerSecond = static_cast<unsigned>(reader.number("blocks", 1, 1000));
    settings.backlogLimit = static_cast<int64_t>(reader.number("backlog", 0, 1ULL << 40));
    settings.unpaced = parser.isSet(QStringLiteral("unpaced"));
    settings.streamSeconds = static_cast<uint32_t>(reader.number("stream-seconds", 0, 0xFFFFFFFF));
    if (parser.isSet(QStringLiteral("no-discovery")))
        settings.roles = static_cast<uint8_t>(settings.roles & ~RoleDiscovery);
    FaultPlan plan(reader.number("seed", 0, ~0ULL));
    for (const QString& text : parser.values(QStringLiteral("fault"))) {
        QString error;
        if (const auto rule = FaultRule::fromText(text, &error))
            plan.add(*rule);
        else
            reader.complain(error);
    }
    settings.faults = plan;
    settings.signal.seed = plan.seed();
    return settings;
}

void printSummary(const std::vector<std::unique_ptr<SimulatedRecorder>>& recorders)
{
    RecorderCounters sum;
    for (const auto& recorder : recorders) {
        const RecorderCounters counters = recorder->counters();
        sum.commands += counters.commands;
        sum.enquiries += counters.enquiries;
        sum.streamStarts += counters.streamStarts;
        sum.bytesSent += counters.bytesSent;
        sum.samplesSent += counters.samplesSent;
        sum.samplesDropped += counters.samplesDropped;
        sum.samplesWithheld += counters.samplesWithheld;
        sum.faults += counters.faults;
    }
    out() << "commands " << sum.commands << ", enquiries " << sum.enquiries << ", streams "
          << sum.streamStarts << ", bytes " << sum.bytesSent << ", samples sent " << sum.samplesSent
          << ", dropped " << sum.samplesDropped << ", withheld " << sum.samplesWithheld << ", faults "
          << sum.faults << Qt::endl;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("recorder-simulator"));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Simulated underwater acoustic recorders: control device, discovery responder and "
                       "streams, each on an "
                       "address of its own. Prints where each listens, then \"ready\"."));
    parser.addHelpOption();
    addOptions(parser);
    parser.process(app);

    OptionReader reader(parser);
    const RecorderSettings first = readSettings(parser, reader);
    const auto count = static_cast<unsigned>(reader.number("count", 1, 4096));
    const auto duration = static_cast<int>(reader.number("duration", 0, 2000000));
    if (!reader.complaint().isEmpty())
        return fail(reader.complaint());

    std::vector<std::unique_ptr<SimulatedRecorder>> recorders;
    for (unsigned i = 0; i < count; ++i) {
        RecorderSettings settings = first;
        settings.address = QHostAddress(first.address.toIPv4Address() + i);
        settings.identity.serial = static_cast<uint16_t>(first.identity.serial + i);
        recorders.push_back(std::make_unique<SimulatedRecorder>(settings));
        if (!recorders.back()->start())
            return fail(recorders.back()->errorString());
        out() << "recorder " << settings.identity.serial << '\n';
        for (const QString& line : recorders.back()->listeningTexts())
            out() << "  " << line << '\n';
    }
    if (!first.faults.isEmpty())
        out() << "seed " << first.faults.seed() << '\n';
    out() << "ready" << Qt::endl;

    std::signal(SIGINT, requestStop);
    std::signal(SIGTERM, requestStop);
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, &app, [] {
        if (g_stopRequested)
            QCoreApplication::quit();
    });
    watch.start(100);
    if (duration > 0)
        QTimer::singleShot(duration * 1000, &app, &QCoreApplication::quit);
    const int result = QCoreApplication::exec();
    printSummary(recorders);
    return result;
}
