#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Serial ports that this process finds though the machine has none: while one of these lives,
/// QSerialPortInfo lists its ports and no others, and QSerialPort opens each by its name. Pseudo terminals,
/// which nothing lists, so stand under any name and vendor number. Who has one open keeps others from the
/// line, not from the name. One at a time; any thread.
///
/// This works on Linux, in programs that link the library NvxQtCommon::ListedPorts: functions of libudev and
/// of the C library are then called through this program's own, which pass on what isn't about these ports. A
/// Qt that loads libudev by itself, or not at all, doesn't see them: look at what
/// QSerialPortInfo::availablePorts() gives.
class ListedPorts
{
public:
    struct Port
    {
        std::string name;       ///< as QSerialPortInfo::portName() gives it; it opens as "/dev/" and the name
        std::string path;       ///< of what is opened instead; QSerialPortInfo::systemLocation()
        uint16_t vendorId = 0;  ///< of USB; 0 for none
        uint16_t productId = 0; ///< of USB; 0 for none
        std::string manufacturer{}; ///< empty for none
        std::string description{};  ///< empty for none
    };

    /// Without ports at first: for as long as none is set, Qt looks for the machine's own in other places.
    ListedPorts();
    ~ListedPorts();
    ListedPorts(const ListedPorts&) = delete;
    ListedPorts& operator=(const ListedPorts&) = delete;

    /// A listing that runs goes on with what it began with.
    void setPorts(std::vector<Port> ports);
    void addPort(const Port& port);
    const std::vector<Port>& ports() const { return m_ports; }

private:
    std::vector<Port> m_ports;
};
