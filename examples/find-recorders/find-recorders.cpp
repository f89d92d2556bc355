// Looks for recorders by broadcast, by a scan of whole subnets and on serial ports, and shows a table of what
// it finds while it looks. Without anything to search it scans a subnet of simulated recorders in this
// process.

#include "find-recorders/RecorderSearch.h"
#include "find-recorders/RecorderTable.h"
#include "shared/InterruptWatch.h"

#include "NvxQtSimulator/SimulatedRecorder.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QTextStream>
#include <QTimer>

#include <cstdio>
#include <memory>
#include <vector>

#ifdef _WIN32
#include <io.h>
#define isatty _isatty
#define fileno _fileno
#else
#include <unistd.h>
#endif

namespace {

/// Exit codes of the program.
enum Outcome {
    Found = 0,
    WrongUse = 1,
    NothingFound = 2,
};

constexpr int kLongestSearch = 3600;
const QString kSimulatedPrefix = QStringLiteral("127.88.0.");

/// Reads the options; the complaint is empty when they make sense.
QString readSearch(const QCommandLineParser& parser, SearchOrder& order)
{
    bool ok = false;
    order.seconds = parser.value(QStringLiteral("seconds")).toInt(&ok);
    if (!ok || order.seconds < 1 || order.seconds > kLongestSearch)
        return QStringLiteral("--seconds takes a number from 1 to %1.").arg(kLongestSearch);
    order.broadcast = parser.isSet(QStringLiteral("broadcast"));
    order.listedPorts = parser.isSet(QStringLiteral("ports"));
    order.serialPaths = parser.values(QStringLiteral("serial"));
    for (const QString& prefix : parser.values(QStringLiteral("subnet"))) {
        const QHostAddress first(prefix + u'0');
        if (!prefix.endsWith(u'.') || first.protocol() != QAbstractSocket::IPv4Protocol ||
            first.toString() != prefix + u'0')
            return QStringLiteral(
                "--subnet takes three numbers and their points, like 192.168.7. or 10.0.0.");
        order.prefixes << prefix;
    }
    if (parser.isSet(QStringLiteral("baud")))
        order.baudRates.clear();
    for (const QString& text : parser.values(QStringLiteral("baud"))) {
        const uint32_t rate = text.toUInt(&ok);
        if (!ok || rate == 0 || order.baudRates.contains(rate))
            return QStringLiteral("--baud takes a number of bit/s, each once.");
        order.baudRates << rate;
    }
    return {};
}

/// Recorders on some addresses of the subnet that is scanned without a better one.
std::vector<std::unique_ptr<SimulatedRecorder>> startSimulators()
{
    std::vector<std::unique_ptr<SimulatedRecorder>> recorders;
    const auto start = [&recorders](int number, HydDeviceType type, const char* firmware) {
        RecorderSettings settings;
        settings.address = QHostAddress(kSimulatedPrefix + QString::number(number));
        settings.identity.type = type;
        settings.identity.serial = static_cast<uint16_t>(1000 + number);
        settings.identity.firmwareVersion = firmware;
        settings.roles = RoleControl;
        auto recorder = std::make_unique<SimulatedRecorder>(settings);
        if (recorder->start())
            recorders.push_back(std::move(recorder));
    };
    start(9, DevTypeRecorderA, "1.0");
    start(20, DevTypeRecorderB, "2.4");
    start(120, DevTypeTmi, "1.7");
    return recorders;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("find-recorders"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Looks for recorders and shows a table of them. Without anything to search it scans a subnet of "
        "simulated recorders in this process.\nExit codes: 0 found, 1 wrong use, 2 nothing found."));
    parser.addHelpOption();
    const auto option = [&parser](const char* name, const char* text, const char* value = "",
                                  const char* standard = "") {
        parser.addOption({QString::fromLatin1(name), QString::fromLatin1(text), QString::fromLatin1(value),
                          QString::fromLatin1(standard)});
    };
    option("broadcast", "Ask everybody on the local networks.");
    option("subnet", "Ask all addresses that begin like this, such as 192.168.7.; may come again.", "PREFIX");
    option("ports", "Ask on all serial ports that the machine lists.");
    option("serial", "Ask on this serial line; may come again.", "PATH");
    option("baud", "Ask at this rate on serial lines, in bit/s, and not at the usual ones; may come again.",
           "RATE");
    option("seconds", "How long to look.", "N", "12");
    parser.process(app);
    // A scan logs each address that refuses.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));

    SearchOrder order;
    if (const QString complaint = readSearch(parser, order); !complaint.isEmpty()) {
        QTextStream(stderr) << "find-recorders: " << complaint << Qt::endl;
        return WrongUse;
    }
    std::vector<std::unique_ptr<SimulatedRecorder>> simulators;
    if (!order.broadcast && order.prefixes.isEmpty() && !order.listedPorts && order.serialPaths.isEmpty()) {
        simulators = startSimulators();
        order.prefixes << kSimulatedPrefix;
        QTextStream(stdout) << "Simulating " << simulators.size() << " recorders in " << kSimulatedPrefix
                            << "0 to 255" << Qt::endl;
    }

    RecorderTable table(isatty(fileno(stdout)) != 0);
    RecorderSearch search(order, table);
    QObject::connect(&search, &RecorderSearch::finished, &app, &QCoreApplication::quit, Qt::QueuedConnection);
    QTimer::singleShot(0, &search, &RecorderSearch::start);
    InterruptWatch interruptWatch;
    QObject::connect(&interruptWatch, &InterruptWatch::interrupted, &search, &RecorderSearch::stop);
    QCoreApplication::exec();
    table.finish();
    return table.isEmpty() ? NothingFound : Found;
}
