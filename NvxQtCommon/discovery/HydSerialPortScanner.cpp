#include "NvxQtCommon/discovery/HydSerialPortScanner.h"

#include "NvxQtCommon/discovery/HydSerialPortChecker.h"

#include <QDebug>
#include <QRegularExpression>
#include <QThread>
#include <QtConcurrentRun>

#include <utility>

HydSerialPortScanner::HydSerialPortScanner(QObject* parent) : QObject(parent), m_worker(new QThread)
{
    registerNvxMetaTypes();
    // Ahead of the slots of others, so that one of them can start the next scan.
    connect(this, &HydSerialPortScanner::scanComplete, this, &HydSerialPortScanner::handleScanComplete,
            Qt::DirectConnection);
    connect(&m_watcher, &QFutureWatcherBase::finished, this,
            [this] { handlePortInfoList(m_watcher.result()); });
    m_worker->start();
}

HydSerialPortScanner::HydSerialPortScanner(const QList<uint32_t>& baudRates, QObject* parent)
    : HydSerialPortScanner(parent)
{
    m_baudRates = baudRates;
}

HydSerialPortScanner::~HydSerialPortScanner()
{
    m_watcher.disconnect(this);
    // Its checkers delete themselves on it.
    m_worker->exit(0);
    m_worker->wait();
    m_worker->deleteLater();
}

// --- selecting ports

void HydSerialPortScanner::scanPortsAll()
{
    scan([](const QSerialPortInfo&) { return true; });
}

void HydSerialPortScanner::scanPortVid(uint16_t vid)
{
    scan([vid](const QSerialPortInfo& port) {
        const QString name = port.portName();
        qDebug().nospace().noquote() << "Found a port with name: " << name;
        const bool isWanted = port.vendorIdentifier() == vid;
        qDebug().nospace().noquote() << (isWanted ? "Success, using port with name: "
                                                  : "Skipping port with name: ")
                                     << name;
        return isWanted;
    });
}

void HydSerialPortScanner::scanPortName(QString name)
{
    scan([name = std::move(name)](const QSerialPortInfo& port) { return port.portName() == name; });
}

void HydSerialPortScanner::scanComPortRange(uint16_t from, uint16_t to)
{
    scan([from, to](const QSerialPortInfo& port) {
        const QString name = port.portName();
        QString digits = name;
        // The text of the expression, not what it would match, goes out of the name: intended.
        digits.replace(QRegularExpression::wildcardToRegularExpression(QStringLiteral("[^\\d]")), QString());
        const int number = digits.toInt();
        if (static_cast<uint16_t>(number) >= from && number <= to && !port.isNull())
            return true;
        qDebug().nospace().noquote() << "Skipping port " << number << " - Str: " << name;
        return false;
    });
}

/// `isWanted` is called on a thread of the pool.
void HydSerialPortScanner::scan(Selection isWanted)
{
    if (m_isScanning) {
        qDebug() << "Scan already in progress!";
        return;
    }
    if (m_baudRates.isEmpty()) {
        Q_EMIT scanComplete();
        return;
    }
    m_isScanning = true;
    m_watcher.setFuture(QtConcurrent::run([isWanted = std::move(isWanted)] {
        QList<QSerialPortInfo> wanted;
        for (const QSerialPortInfo& port : QSerialPortInfo::availablePorts()) {
            if (isWanted(port))
                wanted << port;
        }
        return wanted;
    }));
}

void HydSerialPortScanner::cancelSearch()
{
    m_isScanning = false;
    Q_EMIT scanCancelled();
}

// --- asking ports

void HydSerialPortScanner::handlePortInfoList(QList<QSerialPortInfo> ports)
{
    if (ports.isEmpty()) {
        Q_EMIT scanComplete();
        return;
    }
    for (const QSerialPortInfo& port : std::as_const(ports))
        addChecker(port.portName());
    Q_EMIT startPortChecks();
}

void HydSerialPortScanner::addChecker(const QString& port)
{
    auto* checker = new HydSerialPortChecker(port, m_baudRates, nullptr);
    checker->moveToThread(m_worker);
    m_pending.insert(port, checker);
    m_checkers.append(checker);
    // A checker may report once more, and what is under way when the scan ends isn't of the next one.
    connect(checker, &HydSerialPortChecker::enquireResponse, this,
            [this, end = m_ends](const std::shared_ptr<const HydEnquireCmd>& response, const QString& name,
                                 uint32_t baudRate) {
                if (end == m_ends)
                    handleEnquireResponse(response, name, baudRate);
            });
    connect(checker, &HydSerialPortChecker::noDeviceResponse, this,
            [this, end = m_ends](const QString& name) {
                if (end == m_ends)
                    handleNoDeviceResponse(name);
            });
    connect(this, &HydSerialPortScanner::startPortChecks, checker, &HydSerialPortChecker::enquireAllRates);
    connect(this, &HydSerialPortScanner::scanComplete, checker, &QObject::deleteLater);
    connect(m_worker, &QThread::finished, checker, &QObject::deleteLater);
}

void HydSerialPortScanner::handleScanComplete()
{
    m_isScanning = false;
    ++m_ends;
    m_pending.clear();
    // They end when their thread comes to it. Until then they must not take the ports from the next scan.
    for (auto* checker : std::exchange(m_checkers, {}))
        disconnect(this, &HydSerialPortScanner::startPortChecks, checker, nullptr);
}

void HydSerialPortScanner::handleEnquireResponse(const std::shared_ptr<const HydEnquireCmd>& response,
                                                 const QString& port, uint32_t baudRate)
{
    // A recorder of another type counts as an answer all the same: intended.
    if (m_searchDevType == DevTypeAny || response->devType() == m_searchDevType) {
        const auto device = HydDevice::createDevice(response->devType());
        device->updateFromEnquire(*response);
        Q_EMIT deviceFound(device, port, baudRate);
        qDebug().nospace().noquote() << "Found device " << QString::fromStdString(device->friendlyText())
                                     << " on port " << port << " at baud rate " << baudRate;
    }
    m_pending.remove(port);
    if (m_pending.isEmpty()) {
        qDebug() << "Scan complete";
        Q_EMIT scanComplete();
    }
}

void HydSerialPortScanner::handleNoDeviceResponse(const QString& port)
{
    m_pending.remove(port);
    if (m_pending.isEmpty()) {
        qDebug() << "Scan complete ";
        Q_EMIT scanComplete();
    }
}
