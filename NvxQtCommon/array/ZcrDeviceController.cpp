#include "NvxQtCommon/array/ZcrDeviceController.h"

#include "NvxQtCommon/contract/device/SkiffDevice.h"

#include <chrono>

namespace {

using namespace std::chrono_literals;

constexpr auto kListWait = 2000ms;

} // namespace

ZcrDeviceController::ZcrDeviceController(HydConnectionType connType, QObject* parent)
    : ZcrDeviceController(nullptr, connType, parent)
{
}

// The base class has to see the record: for one of another type it makes a command channel.
ZcrDeviceController::ZcrDeviceController(std::shared_ptr<ZcrDevice> device, HydConnectionType connType,
                                         QObject* parent)
    : NvxDeviceController(device ? std::move(device) : std::make_shared<ZcrDevice>(DevTypeZcr), connType,
                          parent)
{
    init();
}

void ZcrDeviceController::init()
{
    m_adapter = std::make_shared<HydZcrCommandAdapter>(ConnTcp, nullptr);
    createConnections();
}

void ZcrDeviceController::createConnections()
{
    using Adapter = HydZcrCommandAdapter;
    using Controller = ZcrDeviceController;
    const Adapter* adapter = m_adapter.get();
    connect(adapter, &Adapter::connectionOpen, this, &Controller::handleAdapterConnection);
    connect(adapter, &Adapter::connectionClosed, this, &Controller::handleAdapterClosed);
    connect(adapter, &Adapter::signalZcrConfigRead, this, &Controller::handleZcrConfigRead);
    connect(adapter, &Adapter::signalZcrDevListFilled, this, &Controller::handleZcrDevListFilled);
    connect(adapter, &Adapter::signalZcrTime, this, &Controller::handleZcrTime);
    connect(adapter, &Adapter::signalResetZCR, this, &Controller::handleResetZCR);
    connect(adapter, &Adapter::signalZCRSetConfigRead, this, &Controller::handleZCRSetConfigRead);
    connect(adapter, &Adapter::signalZCRArrayRead, this, &Controller::handleZCRArrayRead);
}

std::shared_ptr<ZcrDevice> ZcrDeviceController::arrayDevice() const
{
    return std::dynamic_pointer_cast<ZcrDevice>(devicePtr());
}

// --- requests

void ZcrDeviceController::checkStatus(QNetworkAccessManager* manager)
{
    const auto device = devicePtr();
    if (!device)
        return;
    m_adapter->setNetHostInfo(device->netHostInfo());
    m_adapter->setSerial(device->serial());
    m_adapter->clearLists();
    if (m_adapter->manager() == nullptr)
        setNetworkAccessManager(manager);
    m_adapter->getFtpZcrFileConfig();
}

void ZcrDeviceController::sendSetZcrTime(long long time, QNetworkAccessManager* manager)
{
    if (!m_enabledZcrCgiCon)
        return;
    m_adapter->setNetworkAccessManager(manager);
    m_adapter->sendSetTime(time);
}

void ZcrDeviceController::sendZcrEnquire() const
{
    if (!m_enabledZcrCgiCon || m_networkManager.isNull())
        return;
    m_adapter->setNetworkAccessManager(m_networkManager);
    m_adapter->getCgiZcrConfig();
}

void ZcrDeviceController::sendJobSetup(const JobTagMap& tags, bool)
{
    const auto device = devicePtr();
    if (!device || device->deviceId().devIdList().empty())
        return;
    m_adapter->cgiWriteJobSetup(tags);
    // Pending also where nothing could be sent: intended.
    device->setConfigStat(ConfigPending);
}

void ZcrDeviceController::closeAll()
{
    m_listTimer.stop();
    m_adapter->closeConnection();
}

void ZcrDeviceController::setNetworkAccessManager(QNetworkAccessManager* manager)
{
    if (m_networkManager.isNull())
        m_networkManager = manager;
}

void ZcrDeviceController::setEnabledZcrCgiCon(bool enabled)
{
    m_enabledZcrCgiCon = enabled;
    m_adapter->enableNetWork(enabled);
}

// --- what the base class reaches

bool ZcrDeviceController::sendArrayJobSetup(const JobTagMap& tags, bool bDelayed)
{
    sendJobSetup(tags, bDelayed);
    return true;
}

void ZcrDeviceController::sendArrayEnquire() const
{
    if (m_enabledZcrCgiCon)
        sendZcrEnquire();
}

void ZcrDeviceController::closeArrayChannel()
{
    closeAll();
}

// --- reports

void ZcrDeviceController::handleZcrConfigRead(bool bConfFile)
{
    const auto& channels = m_adapter->hydDeviceList();
    if (channels.empty()) {
        closeAll();
        if (const auto device = devicePtr())
            Q_EMIT signalZCRnoArray(device);
        return;
    }
    if (const auto array = arrayDevice())
        array->mergeJobSettings(channels.front()->jobSettings());
    if (!bConfFile)
        return;
    m_adapter->openConnection();
    // A timer that is active begins anew with it.
    m_listTimer.setInterval(kListWait);
    // Added each time and removed never, so that the step is repeated: intended.
    connect(&m_listTimer, &QTimer::timeout, this, [this] {
        const QPointer<ZcrDeviceController> self(this);
        handleZcrDevListFilled();
        if (self)
            m_listTimer.stop();
    });
    if (!m_listTimer.isActive())
        m_listTimer.start();
}

void ZcrDeviceController::handleZcrDevListFilled()
{
    closeAll();
    const auto device = devicePtr();
    if (!device)
        return;
    if (!m_adapter->hydDeviceList().empty() && !takeDevList(arrayDevice())) {
        Q_EMIT signalZCRErrorStream(device);
        return;
    }
    setSettingsReady(false);
    const QPointer<ZcrDeviceController> self(this);
    Q_EMIT jobSettingsChanged(device);
    if (self)
        Q_EMIT enquireResponse(*device, true);
}

/// False where a channel sent no frame. Of the others the last one tells the array's sensitivity.
bool ZcrDeviceController::takeDevList(const std::shared_ptr<ZcrDevice>& array)
{
    auto& channels = m_adapter->hydDeviceList();
    size_t answered = 0;
    const SkiffDevice* last = nullptr;
    for (const auto& channel : channels) {
        if (channel->sensitivity() == 0.0F)
            continue;
        ++answered;
        last = dynamic_cast<const SkiffDevice*>(channel.get());
    }
    if (array) {
        array->setDevList(&channels, array);
        if (last != nullptr)
            array->setSensitivity(last->sensitivity());
    }
    return answered == channels.size();
}

void ZcrDeviceController::handleZcrTime(int serial, long long time)
{
    const auto device = devicePtr();
    if (!device || serial != device->serial()) {
        Q_EMIT signalZcrTime(serial, time);
        return;
    }
    device->setTimeUtc(static_cast<int>(time));
    Q_EMIT timeChanged(*device);
}

void ZcrDeviceController::handleResetZCR(HydDeviceId const& devId)
{
    if (device() != nullptr && devId.serialNo() == device()->serial())
        Q_EMIT signalResetZCR(devId);
}

void ZcrDeviceController::handleZCRSetConfigRead(HydJobSettings& jobSettings, int serialZCR)
{
    Q_EMIT signalZCRSetConfigRead(jobSettings, serialZCR);
}

void ZcrDeviceController::handleZCRArrayRead(std::vector<HydDeviceId>& devIdList, int serialZCR)
{
    Q_EMIT signalZCRArrayRead(devIdList, serialZCR);
}
