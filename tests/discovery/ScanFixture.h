#pragma once

#include "NvxQtCommon/discovery/HydSerialPortScanner.h"
#include "NvxQtSimulator/ListedPorts.h"
#include "NvxQtSimulator/SimulatedRecorder.h"
#include "tests/support/Patience.h"

#include <QSerialPortInfo>
#include <QSignalSpy>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

/// Qt's event queue orders the making of a checker and its work on another thread, but ThreadSanitizer
/// doesn't see that. Here it does: by a lock that the start of the checks takes, and then each line of the
/// log, of which a checker's first is about opening its port.
class VisibleOrder
{
public:
    VisibleOrder() : m_previous(qInstallMessageHandler(&VisibleOrder::take)) { s_previous = m_previous; }
    ~VisibleOrder() { qInstallMessageHandler(m_previous); }
    VisibleOrder(const VisibleOrder&) = delete;
    VisibleOrder& operator=(const VisibleOrder&) = delete;

    static void pass() { const std::lock_guard lock(s_mutex); }

private:
    static void take(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        pass();
        s_previous(type, context, text);
    }
    static inline std::mutex s_mutex;
    static inline std::atomic<QtMessageHandler> s_previous = nullptr;
    QtMessageHandler m_previous;
};

/// A scanner with everything that it says, and simulated recorders on serial lines that are listed as the
/// ports of the machine. All but the checkers live on the test's thread.
class ScanFixture
{
public:
    explicit ScanFixture(const QList<uint32_t>& rates = {115200})
        : scanner(std::make_unique<HydSerialPortScanner>(rates)),
          found(scanner.get(), &HydSerialPortScanner::deviceFound),
          starts(scanner.get(), &HydSerialPortScanner::startPortChecks),
          completed(scanner.get(), &HydSerialPortScanner::scanComplete),
          cancelled(scanner.get(), &HydSerialPortScanner::scanCancelled)
    {
        QObject::connect(scanner.get(), &HydSerialPortScanner::startPortChecks, scanner.get(),
                         &VisibleOrder::pass);
    }

    /// Why none of these tests can run here; empty where they can.
    static QString whyNot()
    {
        ListedPorts ports;
        ports.addPort({"7", "/dev/null"});
        const auto list = QSerialPortInfo::availablePorts();
        if (list.size() == 1 && list.first().portName() == QLatin1String("7"))
            return {};
        return QStringLiteral("QSerialPortInfo doesn't ask the libudev of this process.");
    }

    /// A recorder that answers on the port of that name, at one rate. Null when it can't be had.
    SimulatedRecorder* addRecorder(const std::string& name, uint32_t rate = 115200, uint16_t serial = 100,
                                   uint16_t vendor = 0, const char* fault = nullptr)
    {
        RecorderSettings settings;
        settings.roles = 0;
        settings.serialRate = rate;
        settings.identity.serial = serial;
        if (fault != nullptr) {
            FaultPlan plan(1);
            QString error;
            plan.add(FaultRule::fromText(QString::fromLatin1(fault), &error).value());
            settings.faults = plan;
        }
        auto recorder = std::make_unique<SimulatedRecorder>(settings);
        if (!recorder->start())
            return nullptr;
        ports.addPort({name, recorder->serialPortName().toStdString(), vendor});
        recorders.push_back(std::move(recorder));
        return recorders.back().get();
    }

    bool isComplete(qsizetype times = 1)
    {
        while (completed.count() < times) {
            if (!completed.wait(kPatienceMs))
                return false;
        }
        return completed.count() == times;
    }
    /// Names of the ports where recorders were found so far, sorted.
    QStringList foundPorts() const
    {
        QStringList names;
        for (const auto& arguments : found)
            names << arguments[1].toString();
        names.sort();
        return names;
    }

    VisibleOrder order;
    ListedPorts ports;
    std::vector<std::unique_ptr<SimulatedRecorder>> recorders;
    std::unique_ptr<HydSerialPortScanner> scanner;
    QSignalSpy found;
    QSignalSpy starts;
    QSignalSpy completed;
    QSignalSpy cancelled;
};
