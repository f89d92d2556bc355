#include "NvxQtCommon/control/NvxDeviceController.h"

#include <QDebug>
#include <QPointer>
#include <QThread>

#include <algorithm>
#include <chrono>

namespace {

using namespace std::chrono_literals;

constexpr auto kDelayedCommandWait = 200ms;
constexpr auto kReadBackWait = 400ms;
constexpr auto kClockTick = 1000ms;
constexpr int kFailedTime = -1;
constexpr uint32_t kMatchesForSync = 1;

} // namespace

NvxDeviceController::NvxDeviceController(HydConnectionType connType, QObject* parent)
    : NvxDeviceController(nullptr, connType, parent)
{
}

NvxDeviceController::NvxDeviceController(std::shared_ptr<HydDevice> device, HydConnectionType connType,
                                         QObject* parent)
    : QObject(parent), m_device(device ? std::move(device) : std::make_shared<HydDevice>(DevTypeAny)),
      m_connType(connType)
{
    registerNvxMetaTypes();
    if (m_device->devType() != DevTypeZcr) {
        m_adapter = new HydCommandAdapter(m_connType);
        m_adapter->setIpAddr(m_device->netHostInfo().ipAddress());
    }
    createBaseConnections();
}

NvxDeviceController::~NvxDeviceController()
{
    m_device.reset();
    if (m_adapter != nullptr) {
        disConnectBaseConnections();
        // Nothing of this object is touched by the adapter's end on the other thread.
        disconnect(this, nullptr, m_adapter, nullptr);
    }
    m_deviceTimer.stop();
    if (m_adapterThread != nullptr) {
        // Behind the commands that wait in the adapter's queue: they still leave.
        QMetaObject::invokeMethod(m_adapter, [thread = m_adapterThread] { thread->quit(); });
        m_adapterThread->wait();
        m_adapterThread->deleteLater();
    }
}

void NvxDeviceController::createBaseConnections()
{
    if (m_adapter != nullptr) {
        m_adapterThread = new QThread;
        m_adapterThread->setObjectName(QStringLiteral("NvxCommand"));
        m_adapter->moveToThread(m_adapterThread);
        connect(this, qOverload<QString>(&NvxDeviceController::requestOpenAdapter), m_adapter,
                &HydCommandAdapter::openIpConnection);
        connect(this, qOverload<QString, uint32_t>(&NvxDeviceController::requestOpenAdapter), m_adapter,
                &HydCommandAdapter::openSerConnection);
        connect(this, &NvxDeviceController::requestCloseAdapter, m_adapter,
                &HydCommandAdapter::closeConnection);
        connect(this, &NvxDeviceController::signalStopCollect, m_adapter,
                &HydCommandAdapter::setDataScanConf);
        connect(this, &NvxDeviceController::adapterCmdReady, m_adapter, &HydCommandAdapter::sendCommand);
        m_baseConnections = {
            connect(m_adapter, &HydCommandAdapter::commandResponse, this,
                    &NvxDeviceController::handleAdapterResponse),
            connect(m_adapter, &HydCommandAdapter::signalErrorResponse, this,
                    &NvxDeviceController::handleErrorResponse),
            connect(m_adapter, &HydCommandAdapter::connectionOpen, this,
                    &NvxDeviceController::handleAdapterConnection),
            connect(m_adapter, &HydCommandAdapter::connectionClosed, this,
                    &NvxDeviceController::handleAdapterClosed),
            connect(this, &NvxDeviceController::setDataScanConf, m_adapter,
                    &HydCommandAdapter::setDataScanConf),
        };
        connect(m_adapter, &HydCommandAdapter::error, this, &NvxDeviceController::error);
        connect(m_adapter, &QObject::destroyed, this, &NvxDeviceController::disConnectBaseConnections);
        connect(this, &QObject::destroyed, m_adapterThread, &QThread::quit);
        connect(m_adapterThread, &QThread::finished, m_adapterThread, &QObject::deleteLater);
        connect(m_adapterThread, &QThread::finished, m_adapter, &QObject::deleteLater);
    }
    connect(&m_deviceTimer, &QTimer::timeout, this, &NvxDeviceController::tickDeviceTime);
    if (m_adapterThread != nullptr)
        m_adapterThread->start();
}

void NvxDeviceController::disConnectBaseConnections()
{
    for (const auto& connection : m_baseConnections)
        disconnect(connection);
}

// --- the channel

void NvxDeviceController::openChannel(HydChannel chan)
{
    if (chan != ChanCommand)
        return;
    if (m_connType == ConnSerial)
        Q_EMIT requestOpenAdapter(m_serialPortName, m_baudRate);
    else if (m_connType == ConnTcp)
        Q_EMIT requestOpenAdapter(QString::fromStdString(m_address.toString()));
}

void NvxDeviceController::closeChannel(HydChannel chan)
{
    if (chan == ChanCommand)
        Q_EMIT requestCloseAdapter();
}

void NvxDeviceController::closeAll()
{
    const QPointer<NvxDeviceController> self(this);
    Q_EMIT requestCloseAdapter();
    if (!self)
        return;
    if (m_device && m_device->devType() == DevTypeZcr)
        closeArrayChannel();
    m_deviceTimer.stop();
}

bool NvxDeviceController::isCmdChanOpen() const
{
    return m_adapter != nullptr && m_adapter->isChannelOpen();
}

void NvxDeviceController::handleAdapterConnection()
{
    if (!m_device)
        return;
    m_device->setCmdPortStatus(PortConnected);
    Q_EMIT channelOpen(m_device->deviceId(), ChanCommand);
}

void NvxDeviceController::handleAdapterClosed()
{
    if (!m_device)
        return;
    m_device->setCmdPortStatus(PortReachable);
    Q_EMIT channelClosed(m_device->deviceId(), ChanCommand);
}

void NvxDeviceController::handleErrorResponse(const std::string& errorMes)
{
    Q_EMIT signalErrorMes(errorMes);
}

// --- commands

void NvxDeviceController::sendEnquire() const
{
    Q_EMIT adapterCmdReady(std::make_shared<HydEnquireCmd>());
}

void NvxDeviceController::enquireJobSetup() const
{
    Q_EMIT adapterCmdReady(std::make_shared<HydJobSetupEnq>(JobTagMap(), JobSetupDefault));
}

void NvxDeviceController::sendSetTime(long long time) const
{
    // The time 0 can't be set: it asks for the time, which is intended.
    Q_EMIT adapterCmdReady(std::make_shared<HydSetTimeCmd>(time == 0 ? -1 : static_cast<int>(time)));
}

void NvxDeviceController::resetDevice() const
{
    Q_EMIT adapterCmdReady(std::make_shared<HydResetCmd>());
}

void NvxDeviceController::resetPassword() const
{
    Q_EMIT adapterCmdReady(std::make_shared<HydMsgPayload>('V'));
}

void NvxDeviceController::enquireTriggers() const
{
    Q_EMIT adapterCmdReady(std::make_shared<HydMsgPayload>('R'));
}

void NvxDeviceController::clearTriggers() const
{
    Q_EMIT adapterCmdReady(std::make_shared<HydMsgPayload>('U'));
}

void NvxDeviceController::enquireTimeSync() const
{
    Q_EMIT adapterCmdReady(std::make_shared<HydMsgPayload>('['));
}

void NvxDeviceController::startUpProc() const
{
    if (m_device && m_device->devType() == DevTypeZcr) {
        sendArrayEnquire();
        return;
    }
    const QPointer<const NvxDeviceController> self(this);
    sendEnquire();
    if (self)
        enquireJobSetup();
    if (self)
        enquireTriggers();
}

void NvxDeviceController::zcrProcEnquire() const
{
    if (m_device && m_device->devType() == DevTypeZcr)
        sendArrayEnquire();
}

void NvxDeviceController::sendJobSetup(const JobTagMap& tags, bool bDelayed)
{
    if (m_device && m_device->devType() == DevTypeZcr && sendArrayJobSetup(tags, bDelayed))
        return;
    auto command = std::make_shared<HydJobSetupCmd>(tags, JobSetupDefault);
    if (bDelayed) {
        m_pendingCommands.clear();
        m_pendingCommands.push_back(std::move(command));
        QTimer::singleShot(kDelayedCommandWait, this, &NvxDeviceController::sendFrontOfQueue);
    } else {
        const QPointer<NvxDeviceController> self(this);
        Q_EMIT adapterCmdReady(command);
        if (!self)
            return;
    }
    QTimer::singleShot(kReadBackWait, this, [this] { enquireJobSetup(); });
    if (m_device)
        m_device->setConfigStat(ConfigPending);
}

void NvxDeviceController::sendFrontOfQueue()
{
    if (m_pendingCommands.empty())
        return;
    const auto command = m_pendingCommands.front();
    m_pendingCommands.pop_front();
    Q_EMIT adapterCmdReady(command);
}

void NvxDeviceController::mergeJobSettings(const JobTagMap& tags)
{
    if (m_device)
        m_device->mergeJobSettings(HydJobSettings(tags));
}

bool NvxDeviceController::sendArrayJobSetup(const JobTagMap&, bool)
{
    return false;
}

void NvxDeviceController::sendArrayEnquire() const {}

void NvxDeviceController::closeArrayChannel() {}

// --- replies

void NvxDeviceController::handleAdapterResponse(std::shared_ptr<const HydControlMsgPayload> resp)
{
    if (!resp) {
        qDebug().nospace() << "nullptr == resp: " << __func__;
        return;
    }
    // Kept for the length of this function, whatever the receivers do.
    const auto device = m_device;
    if (!device)
        return;
    switch (resp->msgType()) {
    case 'A':
        if (const auto reply = std::dynamic_pointer_cast<const HydSetTimeCmd>(resp))
            handleTimeReply(*reply);
        break;
    case 'D':
        if (const auto reply = std::dynamic_pointer_cast<const HydJobSetupCmd>(resp))
            handleJobSetupReply(*reply);
        break;
    case 'E':
        if (const auto reply = std::dynamic_pointer_cast<const HydEnquireCmd>(resp)) {
            const bool isUpdateNeeded = device->updateFromEnquire(*reply);
            Q_EMIT enquireResponse(*device, isUpdateNeeded);
        }
        break;
    case 'F':
        if (const auto reply = std::dynamic_pointer_cast<const HydJobSetupEnq>(resp))
            handleJobSetupRead(*reply);
        break;
    case 'R':
        // Any payload counts as an answer: intended.
        handleTriggerReply(dynamic_cast<const HydEnquireTrigger*>(resp.get()));
        break;
    case 'Y':
        Q_EMIT signalDevReset(*device);
        break;
    case '[':
        if (const auto reply = std::dynamic_pointer_cast<const HydEnquireTimeSync>(resp))
            Q_EMIT enquireResponseTimeSync(reply, device);
        break;
    default:
        break;
    }
}

void NvxDeviceController::handleTimeReply(const HydSetTimeCmd& reply)
{
    const auto device = m_device;
    const int time = reply.time();
    if (time == kFailedTime) {
        Q_EMIT timeChangeErr(*device);
        return;
    }
    if (!device->timeSync()) {
        if (time == static_cast<int>(QDateTime::currentSecsSinceEpoch()))
            m_mostTimeMatches = std::max(++m_timeMatches, m_mostTimeMatches);
        else
            m_timeMatches = 0;
        // Two equal readings in a row set the flag, and nothing clears it: intended.
        if (m_mostTimeMatches > kMatchesForSync)
            device->setTimeSync(true);
    }
    device->setTimeUtc(time);
    const QPointer<NvxDeviceController> self(this);
    Q_EMIT timeChanged(*device);
    if (self && !m_deviceTimer.isActive())
        m_deviceTimer.start(kClockTick);
}

void NvxDeviceController::handleJobSetupReply(const HydJobSetupCmd& reply)
{
    const auto device = m_device;
    if (reply.isError()) {
        device->setConfigStat(ConfigRejected);
        Q_EMIT jobSetupErr(device, reply.error());
        qDebug().nospace() << "JOB SETUP ERROR CODE: " << reply.error()->errorCode();
        return;
    }
    device->mergeJobSettings(HydJobSettings(reply.jobSetup()));
    device->setConfigStat(ConfigConfirmed);
    Q_EMIT jobSetupGotFromDev(*device);
}

void NvxDeviceController::handleJobSetupRead(const HydJobSetupEnq& reply)
{
    const auto device = m_device;
    const bool wasEmpty = device->jobSettings().map().empty();
    const HydJobSettings settings(reply.jobSetup());
    const QPointer<NvxDeviceController> self(this);
    if (!(settings == device->jobSettings())) {
        device->mergeJobSettings(settings);
        m_settingsReady = wasEmpty;
        Q_EMIT jobSettingsChanged(device);
    }
    if (self)
        Q_EMIT jobSetupReadFromDev(*device);
}

// --- the record

void NvxDeviceController::updateStreamStatus(HydPort port, HydPortConnStatus status)
{
    if (m_device)
        m_device->setStreamPortStatus(port, status);
}

void NvxDeviceController::tickDeviceTime()
{
    const auto device = m_device;
    if (!device)
        return;
    // A clock at the end of its range goes on like a device's own 32-bit clock.
    device->setTimeUtc(static_cast<int>(static_cast<uint32_t>(device->timeUtc()) + 1U));
    Q_EMIT timeChanged(*device);
}

void NvxDeviceController::clearConfigStat() const
{
    if (m_device)
        m_device->setConfigStat(ConfigNone);
}

QDateTime NvxDeviceController::deviceTimeUtc() const
{
    return QDateTime::fromSecsSinceEpoch(m_device ? m_device->timeUtc() : 0, Qt::UTC);
}

QDateTime NvxDeviceController::deviceTimeLocal() const
{
    return deviceTimeUtc().toLocalTime();
}
