// Lists the triggers of one recorder, sets or clears them, and keeps a diary of what they do. Without an
// address it works on a simulated recorder in this process.

#include "shared/InterruptWatch.h"
#include "triggers/TriggerText.h"
#include "triggers/TriggerWork.h"

#include "NvxQtSimulator/SimulatedRecorder.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QTextStream>
#include <QTimer>

#include <memory>

namespace {

int fail(TriggerWork::Outcome outcome, const QString& sentence)
{
    QTextStream(stderr) << "triggers: " << sentence << Qt::endl;
    return outcome;
}

/// A recorder on the first loopback address whose ports are free, with a tone of 4000 Hz that comes and goes;
/// empty when there is none.
std::unique_ptr<SimulatedRecorder> startSimulator()
{
    constexpr uint32_t kFirst = 0x7F000002; // 127.0.0.2
    constexpr uint32_t kAddresses = 50;
    RecorderSettings settings;
    settings.wavePort = settings.spectrumPort = settings.sensorPort = settings.epochPort = 0;
    settings.signal.kind = SignalSettings::Impulses;
    settings.signal.frequency = 4000.0;
    settings.signal.levelDb = -140.0;
    // 21000 µPa, so that the beginning and the end of a burst stay quiet in other bands.
    settings.signal.impulseLevelDb = -90.0;
    settings.signal.impulseSeconds = 3.0;
    settings.signal.impulseLength = 1.5;
    for (uint32_t i = 0; i < kAddresses; ++i) {
        settings.address = QHostAddress(kFirst + i);
        auto recorder = std::make_unique<SimulatedRecorder>(settings);
        if (recorder->start())
            return recorder;
    }
    return nullptr;
}

/// Reads the options; the complaint is empty when they make sense.
QString readOrder(const QCommandLineParser& parser, TriggerOrder& order)
{
    bool ok = false;
    order.watchSeconds = parser.value(QStringLiteral("watch")).toInt(&ok);
    if (!ok || order.watchSeconds < 0 || order.watchSeconds > 1000000)
        return QStringLiteral("--watch takes a number from 0 to 1000000.");
    order.patienceMs = parser.value(QStringLiteral("patience")).toInt(&ok) * 1000;
    if (!ok || order.patienceMs < 1000 || order.patienceMs > 3600000)
        return QStringLiteral("--patience takes a number from 1 to 3600.");
    order.epochPort = parser.value(QStringLiteral("epoch-port")).toUShort(&ok);
    if (!ok || order.epochPort == 0)
        return QStringLiteral("--epoch-port takes a number from 1 to 65535.");
    if (parser.isSet(QStringLiteral("address")) &&
        (!order.address.setAddress(parser.value(QStringLiteral("address"))) ||
         order.address.protocol() != QAbstractSocket::IPv4Protocol))
        return QStringLiteral("--address takes an IPv4 address.");
    order.directory = parser.value(QStringLiteral("out"));

    const QStringList wanted = parser.values(QStringLiteral("set"));
    if (parser.isSet(QStringLiteral("clear"))) {
        if (!wanted.isEmpty())
            return QStringLiteral("--clear and --set exclude each other.");
        order.wish.emplace();
    }
    for (const QString& text : wanted) {
        auto trigger = triggerFromText(text);
        if (!trigger)
            return QStringLiteral("\"%1\" is no trigger.").arg(text);
        if (!order.wish)
            order.wish.emplace();
        for (const auto& other : *order.wish)
            if (other->trigNum() == trigger->trigNum())
                return QStringLiteral("trigger %1 is there twice.").arg(trigger->trigNum());
        order.wish->push_back(std::move(trigger));
    }
    return {};
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("triggers"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Lists the triggers of one recorder, sets or clears them, and keeps a diary of what they do. Without "
        "--address it works on a simulated recorder in this process, whose tone of 4000 Hz comes and goes.\n"
        "Exit codes: 0 done, 1 wrong use, 2 nothing found, 3 refused, 5 the diary can't be written."));
    parser.addHelpOption();
    const auto option = [&parser](const char* name, const char* text, const char* value,
                                  const char* standard) {
        parser.addOption({QString::fromLatin1(name), QString::fromUtf8(text), QString::fromLatin1(value),
                          QString::fromLatin1(standard)});
    };
    option("set",
           "Sets NUMBER,LOW-HIGH,above|below,THRESHOLD[,DURATION[,HOLD]]: Hz, µPa, seconds. Once for each "
           "trigger; those that aren't named go.",
           "TRIGGER", "");
    parser.addOption({QStringLiteral("clear"), QStringLiteral("Takes all triggers away.")});
    option("watch", "Seconds to watch what the triggers do.", "N", "0");
    option("out", "Directory of the diary; it is made if need be.", "DIR", "recordings");
    option("address", "IPv4 address of the recorder.", "A", "");
    option("epoch-port", "TCP port of its epoch stream.", "PORT", "51004");
    option("patience", "Seconds to wait for an answer.", "N", "5");
    parser.process(app);

    TriggerOrder order;
    if (const QString complaint = readOrder(parser, order); !complaint.isEmpty())
        return fail(TriggerWork::WrongUse, complaint);
    if (order.watchSeconds > 0 && !QDir().mkpath(order.directory))
        return fail(TriggerWork::DiskError,
                    QStringLiteral("the directory %1 can't be made.").arg(order.directory));

    std::unique_ptr<SimulatedRecorder> simulator;
    if (order.address.isNull()) {
        simulator = startSimulator();
        if (!simulator)
            return fail(TriggerWork::NothingFound,
                        QStringLiteral("the simulated recorder finds no free ports."));
        order.address = simulator->settings().address;
        order.epochPort = simulator->streamPort(StreamEpoch);
        QTextStream(stdout) << "Simulating a recorder at " << order.address.toString() << Qt::endl;
    }

    TriggerWork work(order);
    QObject::connect(&work, &TriggerWork::finished, &app, &QCoreApplication::exit, Qt::QueuedConnection);
    QTimer::singleShot(0, &work, &TriggerWork::start);

    // Ctrl-C closes the diary.
    InterruptWatch interruptWatch;
    QObject::connect(&interruptWatch, &InterruptWatch::interrupted, &work, &TriggerWork::stop);
    return QCoreApplication::exec();
}
