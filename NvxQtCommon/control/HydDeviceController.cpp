#include "NvxQtCommon/control/HydDeviceController.h"

#include <QPointer>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr uint16_t kSpectrumScanWaitMs = 250;
constexpr uint16_t kUnknownRateScanWaitMs = 1000;
constexpr uint16_t kFastestScanWaitMs = 30;

uint16_t waveScanWait(uint32_t rate)
{
    if (rate == 0)
        return kUnknownRateScanWaitMs;
    if (rate > 511999)
        return kFastestScanWaitMs;
    double wait = std::ceil(1.0 / (rate / 1000.0) * 1000.0);
    if (rate > 32000)
        wait *= 4;
    return static_cast<uint16_t>(std::min<double>(wait, std::numeric_limits<uint16_t>::max()));
}

} // namespace

HydDeviceController::HydDeviceController(HydConnectionType connType, QObject* parent)
    : NvxDeviceController(connType, parent)
{
}

HydDeviceController::HydDeviceController(std::shared_ptr<HydDevice> device, HydConnectionType connType,
                                         QObject* parent)
    : NvxDeviceController(std::move(device), connType, parent)
{
}

void HydDeviceController::handleAdapterResponse(std::shared_ptr<const HydControlMsgPayload> resp)
{
    const uint8_t letter = resp ? resp->msgType() : 0;
    if (letter == 'C') {
        if (const auto reply = std::dynamic_pointer_cast<const HydDataCollectCmd>(resp))
            Q_EMIT dataCollected(reply);
        return;
    }
    const QPointer<HydDeviceController> self(this);
    NvxDeviceController::handleAdapterResponse(resp);
    if (!self || letter != 'E')
        return;
    // The record of this moment, which a receiver may have replaced, kept for as long as receivers see it.
    if (const auto record = devicePtr())
        Q_EMIT enquireResponseExt(*record);
}

void HydDeviceController::startDataCollect(uint8_t scanMask)
{
    m_scanMask = scanMask;
    const QPointer<HydDeviceController> self(this);
    Q_EMIT setDataScanConf(scanWait(), scanMask);
    if (self)
        sendDataCollectMsg();
}

void HydDeviceController::startDevDataCollect(const HydDeviceId& devId, uint8_t scanMask)
{
    if (device() != nullptr && devId == device()->deviceId())
        startDataCollect(scanMask);
}

void HydDeviceController::stopDataCollect()
{
    Q_EMIT signalStopCollect(0, 0);
}

void HydDeviceController::sendDataCollectMsg() const
{
    Q_EMIT adapterCmdReady(std::make_shared<HydDataCollectCmd>(m_scanMask));
}

uint16_t HydDeviceController::scanWait() const
{
    if ((m_scanMask & kScanWave) != 0)
        return waveScanWait(device() != nullptr ? device()->jobSettings().wavRate() : SampRate{});
    return (m_scanMask & kScanSpectrum) != 0 ? kSpectrumScanWaitMs : 0;
}
