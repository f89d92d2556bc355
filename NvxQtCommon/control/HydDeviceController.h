#pragma once

#include "NvxQtCommon/control/NvxDeviceController.h"

/// Controller of a recorder (types 5, 7 and 15): adds the collection of wave and spectrum data over the
/// command channel. Lives on the thread that created it.
class NVXQTCOMMON_EXPORT HydDeviceController : public NvxDeviceController
{
    Q_OBJECT

public:
    /// Bits of a scan mask.
    static constexpr uint8_t kScanWave = 0x20;
    static constexpr uint8_t kScanSpectrum = 0x10;

    explicit HydDeviceController(HydConnectionType connType, QObject* parent = nullptr);
    HydDeviceController(std::shared_ptr<HydDevice> device, HydConnectionType connType,
                        QObject* parent = nullptr);

public Q_SLOTS:
    void handleAdapterResponse(std::shared_ptr<const HydControlMsgPayload> resp) override;
    /// Asks for data of the kinds in `scanMask` and lets the adapter go on asking every scanWait()
    /// milliseconds. Where a poll runs already, the call stops its timer and the next reply outside of the
    /// poll starts it again.
    virtual void startDataCollect(uint8_t scanMask);
    /// The same, if `devId` is this controller's device.
    virtual void startDevDataCollect(const HydDeviceId& devId, uint8_t scanMask);
    virtual void stopDataCollect();

public:
    /// Sends one request with the mask of the last startDataCollect().
    void sendDataCollectMsg() const;
    uint8_t scanMask() const { return m_scanMask; }
    /// Poll period in milliseconds for the scan mask and the record's wave rate; 0 for a mask without wave
    /// and spectrum, 1000 for a wave rate of 0.
    uint16_t scanWait() const;

Q_SIGNALS:
    /// After every enquire reply.
    void enquireResponseExt(const HydDevice& device);
    void dataCollected(std::shared_ptr<const HydDataCollectCmd> msg);
    /// Emitted nowhere.
    void timeSyncStatus(const HydDevice& device);
    /// Emitted nowhere.
    void batteryStatus(const HydDevice& device);

private:
    uint8_t m_scanMask = 0;
};
