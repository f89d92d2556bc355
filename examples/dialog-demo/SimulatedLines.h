#pragma once

#include "NvxQtSimulator/ListedPorts.h"
#include "NvxQtSimulator/SimulatedRecorder.h"

#include <memory>
#include <string>
#include <vector>

/// Serial lines of this process in the place of the machine's ports, with simulated recorders at their ends.
class SimulatedLines
{
public:
    /// A line on port 31 whose recorder hears nothing at the dialog's rate. As all that add, false where the
    /// system has no pseudo terminals.
    bool addDeafLine() { return add("31", DevTypeRecorderA, 1240, 19200); }
    /// Recorders on the ports 5 and 12.
    bool addRecorders()
    {
        return add("5", DevTypeRecorderA, 1234, 115200) && add("12", DevTypeTdRec, 77, 115200);
    }
    /// True when Qt lists these lines, and not the machine's ports.
    bool areListed() const;

private:
    bool add(const std::string& port, HydDeviceType type, uint16_t serial, uint32_t baudRate);

    ListedPorts m_ports;
    std::vector<std::unique_ptr<SimulatedRecorder>> m_recorders;
};
