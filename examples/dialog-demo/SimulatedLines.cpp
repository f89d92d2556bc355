#include "dialog-demo/SimulatedLines.h"

#include <QSerialPortInfo>

bool SimulatedLines::add(const std::string& port, HydDeviceType type, uint16_t serial, uint32_t baudRate)
{
    RecorderSettings settings;
    settings.roles = 0;
    settings.serialRate = baudRate;
    settings.identity.type = type;
    settings.identity.serial = serial;
    auto recorder = std::make_unique<SimulatedRecorder>(settings);
    if (!recorder->start())
        return false;
    m_ports.addPort({port, recorder->serialPortName().toStdString()});
    m_recorders.push_back(std::move(recorder));
    return true;
}

bool SimulatedLines::areListed() const
{
    const auto& lines = m_ports.ports();
    const auto listed = QSerialPortInfo::availablePorts();
    return !lines.empty() && size_t(listed.size()) == lines.size() &&
           listed.first().portName().toStdString() == lines.front().name;
}
