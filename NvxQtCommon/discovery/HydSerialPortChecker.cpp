#include "NvxQtCommon/discovery/HydSerialPortChecker.h"

#include "NvxQtCommon/control/HydCommandAdapter.h"

#include <QDebug>

#include <iostream>
#include <utility>

HydSerialPortChecker::HydSerialPortChecker(QString port, QList<uint32_t> baudRates, QObject* parent)
    : QObject(parent), m_adapter(new HydCommandAdapter(ConnSerial, this)), m_port(std::move(port)),
      m_baudRates(std::move(baudRates)), m_writeTimer(new QTimer(this)), m_replyTimer(new QTimer(this))
{
    std::cout << "Checking serial port: " << m_port.toLocal8Bit().constData() << std::endl;
    m_writeTimer->setSingleShot(true);
    m_writeTimer->setInterval(kWriteTimeoutMs);
    m_replyTimer->setSingleShot(true);
    if (!m_baudRates.isEmpty())
        m_adapter->setBaudRate(m_baudRates.first());
    m_adapter->setSerialPortName(m_port);

    connect(m_adapter, &HydCommandAdapter::connectionOpen, this, &HydSerialPortChecker::handleOpen);
    // Whatever comes is taken for the answer, junk too: intended.
    connect(m_adapter, &HydCommandAdapter::serialDataReady, this, [this] {
        if (m_replyTimer)
            m_replyTimer->stop();
    });
    connect(m_adapter, &HydCommandAdapter::serialDataWritten, this, &HydSerialPortChecker::handleWritten);
    connect(m_adapter, &HydCommandAdapter::commandResponse, this, &HydSerialPortChecker::handleResponse);
    connect(m_writeTimer, &QTimer::timeout, this, &HydSerialPortChecker::tryNextRate);
    connect(m_replyTimer, &QTimer::timeout, this, &HydSerialPortChecker::tryNextRate);
}

HydSerialPortChecker::~HydSerialPortChecker()
{
    m_adapter->disconnect(this);
}

void HydSerialPortChecker::enquireAllRates()
{
    if (!m_baudRates.isEmpty())
        m_adapter->setBaudRate(m_baudRates.first());
    m_adapter->setSerialPortName(m_port);
    m_adapter->openConnection();
}

void HydSerialPortChecker::handleOpen()
{
    if (m_replyTimer)
        m_replyTimer->setInterval(kReplyTimeoutMs);
    qDebug().nospace().noquote() << "START SCAN: ENQUIRE PORT " << m_port << "@ " << m_adapter->baudRate();
    enquire();
}

void HydSerialPortChecker::enquire()
{
    m_adapter->sendCommand(std::make_shared<HydEnquireCmd>());
    if (m_writeTimer)
        m_writeTimer->start();
}

void HydSerialPortChecker::handleWritten()
{
    if (m_writeTimer)
        m_writeTimer->stop();
    if (m_replyTimer && !m_replyTimer->isActive())
        m_replyTimer->start();
}

void HydSerialPortChecker::handleResponse(const std::shared_ptr<const HydControlMsgPayload>& payload)
{
    const auto response = std::dynamic_pointer_cast<const HydEnquireCmd>(payload);
    if (!response)
        return;
    if (m_replyTimer) {
        m_replyTimer->stop();
        m_replyTimer->deleteLater();
    }
    m_adapter->closeConnection();
    Q_EMIT enquireResponse(response, m_port, m_adapter->baudRate());
}

void HydSerialPortChecker::tryNextRate()
{
    if (!setNextRate()) {
        if (m_replyTimer)
            m_replyTimer->stop();
        qDebug().nospace().noquote() << "Nothing found on " << m_port;
        Q_EMIT noDeviceResponse(m_port);
        m_adapter->closeConnection();
        return;
    }
    if (m_replyTimer)
        m_replyTimer->setInterval(kReplyTimeoutMs);
    qDebug().nospace().noquote() << "ENQUIRE PORT " << m_port << "@ " << m_adapter->baudRate();
    enquire();
}

/// Sets the rate behind the current one; false where there is none, or where the current one isn't of the
/// list.
bool HydSerialPortChecker::setNextRate()
{
    const auto current = m_baudRates.indexOf(m_adapter->baudRate());
    if (current < 0)
        return false;
    for (const uint32_t rate : m_baudRates.sliced(current + 1)) {
        m_adapter->setBaudRate(rate);
        // A port keeps its rate where it refuses another: asked on from there, the list would have no end.
        if (m_adapter->baudRate() == rate)
            return true;
    }
    return false;
}
