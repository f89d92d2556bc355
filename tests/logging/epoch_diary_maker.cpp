// Writes a diary of occurrences, for a reader in another language to compare:
//
//     epoch_diary_maker DIRECTORY [die]      reads a JSON list of occurrences from its input
//
// {"line": text} is a line of a device, anything else the fields of a record. With `die` the program is
// killed behind the last one.
#include "NvxQtCommon/logging/NvxEpochLogger.h"
#include "NvxQtCommon/streaming/HydEpochStreamAdapter.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <csignal>
#include <cstdio>

namespace {

SActiveTrigger occurrenceOf(const QJsonObject& fields)
{
    if (fields.contains("line"))
        return SActiveTrigger(fields["line"].toString(), TrigDevice);
    const auto number = [&fields](const char* name) { return fields[QLatin1String(name)].toInteger(); };
    SActiveTrigger active;
    active.time = static_cast<uint64_t>(number("time"));
    active.seq = fields["seq"].toString().toULongLong();
    active.measCount = static_cast<uint32_t>(number("meas"));
    active.trigger.setTrigNum(static_cast<uint8_t>(number("number")));
    active.trigger.setMinFreq(static_cast<unsigned>(number("low")));
    active.trigger.setMaxFreq(static_cast<unsigned>(number("high")));
    active.trigger.setTestType(fields["below"].toBool() ? TestTypeBelow : TestTypeAbove);
    active.trigger.setThreshold(static_cast<int16_t>(number("threshold")));
    active.trigger.setPreTrigger(static_cast<uint16_t>(number("pre")));
    active.trigger.setDuration(static_cast<uint16_t>(number("duration")));
    active.trigger.setEventHold(static_cast<uint16_t>(number("hold")));
    active.devId = HydDeviceId(DevTypeRecorderA, static_cast<uint16_t>(number("serial")));
    active.state = static_cast<uint8_t>(number("state"));
    active.type = static_cast<TrigType>(number("type"));
    active.fileName = fields["file"].toString();
    return active;
}

void logStream(NvxEpochLogger& logger, const QString& address, unsigned short port, int count)
{
    HydEpochStreamAdapter stream(StreamEpoch, port, address, HydDeviceId(DevTypeRecorderA, 1234), 100000,
                                 true);
    QObject::connect(&stream, &HydEpochStreamAdapter::signalTrigActive, &logger,
                     &NvxEpochLogger::handleTrigActive);
    QObject::connect(&stream, &HydEpochStreamAdapter::signalTrigActive, &logger, [&count] {
        std::puts("logged");
        std::fflush(stdout);
        if (--count == 0)
            QCoreApplication::quit();
    });
    stream.startStream();
    QCoreApplication::exec();
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    QFile input;
    if (arguments.size() < 2 || !input.open(stdin, QIODevice::ReadOnly))
        return 2;
    NvxEpochLogger logger(0, arguments[1], 50, nullptr);
    logger.setLogDevMode(LogOn);
    logger.setLogProgMode(LogOn);
    logger.setDevId(HydDeviceId(DevTypeRecorderA, 1234));
    bool hasFailed = false;
    QObject::connect(&logger, &NvxEpochLogger::loggingFailed, &logger, [&hasFailed] { hasFailed = true; });
    if (arguments.size() == 5) {
        logStream(logger, arguments[2], arguments[3].toUShort(), arguments[4].toInt());
        return hasFailed ? 1 : 0;
    }
    for (const QJsonValue occurrence : QJsonDocument::fromJson(input.readAll()).array())
        logger.handleTrigActive(occurrenceOf(occurrence.toObject()));
    if (arguments.contains(QStringLiteral("die")))
        std::raise(SIGKILL);
    return hasFailed ? 1 : 0;
}
