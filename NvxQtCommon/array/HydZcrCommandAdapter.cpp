#include "NvxQtCommon/array/HydZcrCommandAdapter.h"

#include "NvxQtCommon/contract/device/SkiffDevice.h"
#include "NvxQtCommon/contract/device/ZcrDevice.h"
#include "NvxQtCommon/contract/message/ZcrCgiRequest.h"
#include "NvxQtCommon/transfer/CFtpProc.h"
#include "NvxQtCommon/transfer/QFtp.h"

#include <QDebug>
#include <QNetworkRequest>
#include <QUrl>

#include <algorithm>
#include <cmath>

namespace {

/// Marks the requests of all adapters.
constexpr auto kIsOfAnAdapter = static_cast<QNetworkRequest::Attribute>(QNetworkRequest::User + 5167);

/// A sensitivity of 0, or a fraction above it, is that of a channel without a frame yet. One just below 0 is
/// not. This is intended.
bool isUnfilled(const std::shared_ptr<HydDevice>& device)
{
    return std::floor(device->sensitivity()) == 0.0F;
}

} // namespace

HydZcrCommandAdapter::HydZcrCommandAdapter(HydConnectionType /*connType*/, QObject* parent)
    : QObject(parent), m_webSocket(CZCRWebSocket::make())
{
    registerNvxMetaTypes();
    m_webSocket->setParent(this);
    connect(m_webSocket.get(), &CZCRWebSocket::signalWebSocketConnected, this,
            &HydZcrCommandAdapter::connectionOpen);
    connect(m_webSocket.get(), &CZCRWebSocket::signalWebSocBinMesReceived, this,
            &HydZcrCommandAdapter::FillDevIdList);
    makeFtp();
}

HydZcrCommandAdapter::~HydZcrCommandAdapter()
{
    // Functions of this adapter or of theirs may still hold them further up the stack.
    m_webSocket->setParent(nullptr);
    m_ftp->setParent(nullptr);
}

void HydZcrCommandAdapter::setNetHostInfo(const NvxNetHostInfo& info)
{
    m_hostInfo = info;
    const uint32_t address = info.ipAddress().toInt();
    m_webSocket->setHAddress(address != 0 ? QHostAddress(address) : QHostAddress());
}

void HydZcrCommandAdapter::setNetworkAccessManager(QNetworkAccessManager* manager)
{
    if (!m_manager.isNull() || manager == nullptr)
        return;
    m_manager = manager;
    connect(manager, &QNetworkAccessManager::finished, this, &HydZcrCommandAdapter::handleNetWorkReplay);
}

void HydZcrCommandAdapter::clearLists()
{
    m_deviceList.clear();
    m_devIdList.clear();
}

bool HydZcrCommandAdapter::isUnConnected() const
{
    return m_webSocket->state() == QAbstractSocket::UnconnectedState;
}

void HydZcrCommandAdapter::openConnection()
{
    m_networkEnabled = false;
    // A refusal may come at once, and its receiver may delete this adapter.
    const auto socket = m_webSocket;
    socket->openConnection();
}

void HydZcrCommandAdapter::closeConnection()
{
    m_networkEnabled = true;
    const auto socket = m_webSocket;
    socket->closeConnection();
}

// --- requests

bool HydZcrCommandAdapter::mayRequest() const
{
    if (!m_networkEnabled)
        return false;
    // The text names one of the four requests only. This is intended.
    if (m_manager.isNull())
        qDebug() << "nullptr == m_manager - HydZcrCommandAdapter::sendSetTime";
    return !m_manager.isNull();
}

void HydZcrCommandAdapter::request(const std::string& url) const
{
    QNetworkRequest request(QUrl(QString::fromStdString(url), QUrl::TolerantMode));
    request.setAttribute(kIsOfAnAdapter, true);
    // A manager has few connections to a host: requests that are never answered would hold up all others.
    if (m_manager->transferTimeout() == 0)
        request.setTransferTimeout(kReplySilenceMs);
    QNetworkReply* reply = m_manager->get(request);
    connect(reply, &QNetworkReply::readyRead, reply, [reply] {
        if (reply->bytesAvailable() <= kMaxReplySize)
            return;
        qDebug() << "Reply of an array controller aborted: more than" << kMaxReplySize << "bytes";
        reply->abort();
    });
}

void HydZcrCommandAdapter::getCgiZcrConfig()
{
    if (mayRequest())
        request(zcrConfigurationUrl(m_hostInfo.ipAddress()));
}

void HydZcrCommandAdapter::getCgiZcrArray()
{
    if (!mayRequest())
        return;
    clearLists();
    request(zcrStatusUrl(m_hostInfo.ipAddress()));
}

void HydZcrCommandAdapter::sendSetTime(long long time) const
{
    if (mayRequest())
        request(zcrSetTimeUrl(m_hostInfo.ipAddress(), time));
}

void HydZcrCommandAdapter::cgiWriteJobSetup(const JobTagMap& tags)
{
    if (!mayRequest())
        return;
    m_jobSettings.mergeMap(tags);
    request(zcrJobSetupUrl(m_hostInfo.ipAddress(), m_jobSettings));
}

// --- replies

void HydZcrCommandAdapter::handleNetWorkReplay(QNetworkReply* reply)
{
    if (!m_networkEnabled || reply == nullptr)
        return;
    if (reply->error() != QNetworkReply::NoError) {
        qDebug().noquote() << reply->errorString();
        return;
    }
    if (!reply->isReadable() || reply->bytesAvailable() > kMaxReplySize)
        return;
    // What another user of the manager asked for stays there for that one to read.
    const bool isOurs = reply->request().attribute(kIsOfAnAdapter).toBool();
    const QByteArray text = isOurs ? reply->readAll() : reply->peek(kMaxReplySize);
    const auto parsed = ZcrCgiReply::parse({text.constData(), static_cast<size_t>(text.size())});
    QPointer<HydZcrCommandAdapter> self(this);
    if (parsed.firstDevSerial && parsed.serial > 0)
        takeChannels(parsed);
    if (!self.isNull() && parsed.rateSeen && parsed.wavRate >= 1 &&
        (parsed.firstDevSerial || parsed.serial > 0))
        takeSettings(parsed);
    if (!self.isNull() && parsed.currentTime >= 1 && parsed.serial > 0)
        Q_EMIT signalZcrTime(parsed.serial, parsed.currentTime);
}

void HydZcrCommandAdapter::takeChannels(const ZcrCgiReply& reply)
{
    // Only an adapter that never held an identity takes one, and then the first alone. This is intended.
    const bool heldNone = m_devIdList.capacity() == 0;
    std::vector<HydDeviceId> ids;
    if (heldNone) {
        ids.emplace_back(DevTypeSkiff, static_cast<uint16_t>(*reply.firstDevSerial));
        ids.back().setHostDevNo(static_cast<uint16_t>(reply.serial));
    }
    if (reply.serial != m_serial) {
        Q_EMIT signalZCRArrayRead(ids, reply.serial);
        return;
    }
    m_devIdList = ids;
    fillSkiffList();
    updateDevSetConfigRead(EnquireCgi);
}

void HydZcrCommandAdapter::takeSettings(const ZcrCgiReply& reply)
{
    HydJobSettings settings = reply.settings();
    if (reply.serial != m_serial) {
        Q_EMIT signalZCRSetConfigRead(settings, reply.serial);
        return;
    }
    m_jobSettings.mergeMap(settings.map());
    updateDevSetConfigRead(EnquireCgi);
}

// --- channels

void HydZcrCommandAdapter::updateDevSetConfigRead(EnquireZcr enquire)
{
    if (!m_deviceList.empty()) {
        const auto* first = dynamic_cast<const SkiffDevice*>(m_deviceList.front().get());
        if (const auto array = first != nullptr ? first->ZCR_NVX_Dev() : nullptr)
            array->mergeJobSettings(m_jobSettings);
        for (const auto& device : m_deviceList)
            device->mergeJobSettings(m_jobSettings);
    }
    if (enquire == EnquireCgi && m_deviceList.empty()) {
        getCgiZcrArray();
        return;
    }
    Q_EMIT signalZcrConfigRead(enquire == EnquireFile);
}

void HydZcrCommandAdapter::fillSkiffList()
{
    for (const HydDeviceId& id : m_devIdList) {
        auto device =
            std::make_shared<SkiffDevice>(id.serialNo(), id.devType(), NvxNetHostInfo(), JobTagMap());
        device->setNetHostInfo(m_hostInfo);
        device->setIfaceAddr(m_hostInfo.ipAddress());
        m_deviceList.push_back(std::move(device));
    }
}

void HydZcrCommandAdapter::FillDevIdList(CZCRWebSocket::ZCR_STREAM_STR const& zcrStream)
{
    HydDeviceId id(DevTypeSkiff, zcrStream.frameSerial);
    id.setHostDevNo(m_serial);
    if (std::ranges::find(m_devIdList, id) != m_devIdList.end()) {
        const auto found = std::ranges::find(m_deviceList, zcrStream.frameSerial, &HydDevice::serial);
        if (found != m_deviceList.end() && isUnfilled(*found))
            takeFrame(**found, zcrStream);
    }
    if (std::ranges::none_of(m_deviceList, isUnfilled))
        Q_EMIT signalZcrDevListFilled();
}

void HydZcrCommandAdapter::takeFrame(HydDevice& device, const ZcrFrameHeader& frame) const
{
    auto* channel = dynamic_cast<SkiffDevice*>(&device);
    if (channel == nullptr)
        return;
    constexpr double kDegreesPerStep = 0.1;
    channel->setZcrChanhel(frame.frameChannel);
    channel->setTemperature(static_cast<float>(frame.frameTemperature * kDegreesPerStep));
    channel->setBandWidth(frame.frameBandWidth);
    channel->setSampleRate(frame.frameSampleRate);
    channel->setSensitivity(static_cast<float>(frame.frameSensitivity));
    channel->setSpectrumVRef(static_cast<float>(frame.frameFftRef));
    HydJobSettings settings;
    settings.setFftRate(static_cast<SampRate>(frame.frameSampleRate));
    settings.setWavRate(static_cast<SampRate>(frame.frameSampleRate));
    settings.setFftAccum(frame.frameFftAccum);
    settings.setFftRef(frame.frameFftRef);
    channel->mergeJobSettings(settings);
}
