#include "find-recorders/RecorderSearch.h"

#include "NvxQtCommon/discovery/HydSerialPortChecker.h"

namespace {

QString addressOf(const HydDevice& device)
{
    return QString::fromStdString(device.netHostInfo().ipAddress().toString());
}

} // namespace

RecorderSearch::RecorderSearch(const SearchOrder& order, RecorderTable& table, QObject* parent)
    : QObject(parent), m_order(order), m_table(table), m_ports(order.baudRates)
{
    m_time.setSingleShot(true);
    connect(&m_time, &QTimer::timeout, this, &RecorderSearch::finished);
}

RecorderSearch::~RecorderSearch() = default;

void RecorderSearch::start()
{
    m_time.start(m_order.seconds * 1000);
    if (m_order.broadcast)
        broadcast();
    scanSubnets();
    if (m_order.listedPorts)
        scanListedPorts();
    for (const QString& path : m_order.serialPaths)
        checkSerialPath(path);
}

void RecorderSearch::stop()
{
    m_time.stop();
    Q_EMIT finished();
}

void RecorderSearch::broadcast()
{
    connect(&m_broadcasts, &HydMarcoAdapter::deviceFound, this,
            [this](const std::shared_ptr<HydDevice>& device) {
                m_table.add(addressOf(*device), *device, QStringLiteral("broadcast"));
                askForDetails(*device);
            });
    // So that answers to the questions come by another signal than those to the broadcasts.
    m_broadcasts.setTcpRegime(true);
    connect(
        &m_broadcasts, &HydMarcoAdapter::deviceFoundIP, this,
        [this](const std::shared_ptr<HydDevice>& device) { m_table.complete(addressOf(*device), *device); });
    m_broadcasts.netEnquire(DevTypeAny, 0);
}

void RecorderSearch::askForDetails(const HydDevice& device)
{
    const QString address = addressOf(device);
    if (m_detailed.contains(address))
        return;
    m_detailed.insert(address);
    m_broadcasts.netEnquireTCPIPAddr(QHostAddress(address), false, false);
}

void RecorderSearch::scanSubnets()
{
    // Probes report on their own threads; this object's slots are called on this one.
    connect(&m_scans, &HydMarcoAdapter::deviceFound, this, [this](const std::shared_ptr<HydDevice>& device) {
        m_table.add(addressOf(*device), *device, QStringLiteral("subnet scan"));
    });
    for (const QString& prefix : m_order.prefixes)
        m_scans.scanNetWork(prefix, m_scans.timeWait());
}

void RecorderSearch::scanListedPorts()
{
    connect(&m_ports, &HydSerialPortScanner::deviceFound, this,
            [this](const std::shared_ptr<HydDevice>& device, const QString& port, uint32_t baudRate) {
                m_table.add(port, *device, QStringLiteral("serial port, %1 bit/s").arg(baudRate));
            });
    m_ports.scanPortsAll();
}

void RecorderSearch::checkSerialPath(const QString& path)
{
    m_checkers.push_back(std::make_unique<HydSerialPortChecker>(path, m_order.baudRates));
    HydSerialPortChecker* checker = m_checkers.back().get();
    connect(
        checker, &HydSerialPortChecker::enquireResponse, this,
        [this](const std::shared_ptr<const HydEnquireCmd>& response, const QString& port, uint32_t baudRate) {
            const auto device = HydDevice::createDevice(response->devType());
            device->updateFromEnquire(*response);
            m_table.add(port, *device, QStringLiteral("serial port, %1 bit/s").arg(baudRate));
        });
    checker->enquireAllRates();
}
