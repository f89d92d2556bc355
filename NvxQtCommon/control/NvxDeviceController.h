#pragma once

#include "NvxQtCommon/control/HydCommandAdapter.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QTimer>

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

class QThread;

/// The application's handle on one device: owns the device record and, but for an array controller, a command
/// adapter on a thread of its own; turns calls into commands, replies into updates of the record and signals,
/// and keeps a running copy of the device's clock. Lives on the thread that created it and is destroyed
/// there; the record is written on that thread only.
class NVXQTCOMMON_EXPORT NvxDeviceController : public QObject
{
    Q_OBJECT

public:
    /// Makes the controller class of the device's type, without a parent; the last reference goes on the
    /// thread of this call. An empty pointer when `device` is null.
    static std::shared_ptr<NvxDeviceController> createController(std::shared_ptr<HydDevice> device,
                                                                 HydConnectionType connType);

    explicit NvxDeviceController(HydConnectionType connType, QObject* parent = nullptr);
    /// A null device counts as a fresh record of type 0.
    NvxDeviceController(std::shared_ptr<HydDevice> device, HydConnectionType connType,
                        QObject* parent = nullptr);
    /// Ends the adapter and its thread, and waits for it. Commands sent just before still leave where the
    /// channel is open and the system takes them at once; nobody hears of those that don't. What is held back
    /// (a delayed job setup, a read-back) is dropped.
    ~NvxDeviceController() override;

    // The order of the virtual operations is part of the interface.
    virtual void sendEnquire() const;
    /// Writes a job setup, and reads it back 400 ms later. `bDelayed` holds the command back for 200 ms, so
    /// that a preceding one passes first, and drops what else is held back.
    virtual void sendJobSetup(const JobTagMap& tags, bool bDelayed);
    virtual void enquireJobSetup() const;
    /// `time` in seconds since the epoch, cut to 32 bits; 0 asks for the device's time without setting it.
    virtual void sendSetTime(long long time) const;
    virtual void resetDevice() const;
    /// Called by the application when the channel is open: enquires for identity, job setup and triggers.
    virtual void startUpProc() const;
    virtual void resetPassword() const;
    virtual void enquireTriggers() const;
    virtual void clearTriggers() const;
    virtual void enquireTimeSync() const;
    /// Brings the device's trigger list in line with `triggers` by sending what differs from the record, 200
    /// ms between two commands; where a trigger of the record isn't wanted, the device's list is cleared
    /// first. An empty list clears. `bEnquire` asks for the list 200 ms after the last command. Only triggers
    /// of test types 5 and 6 are sent. As soon as there is something to send, the record holds `triggers`
    /// itself, whatever the device will answer, so don't change them afterwards: hand over new ones. Null
    /// pointers are skipped. What else is held back, such as a delayed job setup, is dropped.
    virtual void setupTriggers(std::vector<std::shared_ptr<HydTrigger>> triggers, bool bEnquire);
    /// Merges the tags into the record; nothing is sent.
    virtual void mergeJobSettings(const JobTagMap& tags);
public Q_SLOTS:
    virtual void handleAdapterResponse(std::shared_ptr<const HydControlMsgPayload> resp);
    virtual void handleErrorResponse(const std::string& errorMes);

protected:
    // How an array controller takes part: each of these does nothing here.
    /// True when the setup was taken over and nothing is to be sent on the command channel.
    virtual bool sendArrayJobSetup(const JobTagMap& tags, bool bDelayed);
    /// Enquires by the array controller's own means, where they are enabled.
    virtual void sendArrayEnquire() const;
    /// Ends what the array controller has running.
    virtual void closeArrayChannel();

public:
    /// Opens the command channel; any channel but ChanCommand is ignored.
    void openChannel(HydChannel chan);
    void closeChannel(HydChannel chan);
    /// Closes the command channel and stops the running copy of the device's clock.
    void closeAll();
    /// State of the command channel as last seen by the adapter; false without one.
    bool isCmdChanOpen() const;
    /// Enquiry of an array controller; nothing for other devices.
    void zcrProcEnquire() const;

    HydDevice* device() const { return m_device.get(); }
    std::shared_ptr<HydDevice> devicePtr() const { return m_device; }
    void setDevice(std::shared_ptr<HydDevice> device) { m_device = std::move(device); }
    /// Port name and baud rate that openChannel() uses on a serial line.
    unsigned baudRate() const { return m_baudRate; }
    void setBaudRate(const unsigned& baudRate) { m_baudRate = baudRate; }
    QString serialPortName() const { return m_serialPortName; }
    void setSerialPortName(const QString& name) { m_serialPortName = name; }
    /// True from the first job setup read on a record without tags until a different one is read.
    bool settingsReady() const { return m_settingsReady; }
    void setSettingsReady(bool ready) { m_settingsReady = ready; }
    void clearConfigStat() const;
    QDateTime deviceTimeUtc() const;
    QDateTime deviceTimeLocal() const;

public Q_SLOTS:
    void updateStreamStatus(HydPort port, HydPortConnStatus status);
    /// Lets one second of the device's clock pass.
    void tickDeviceTime();
    void handleAdapterConnection();
    void handleAdapterClosed();
    void disConnectBaseConnections();

Q_SIGNALS:
    void adapterCmdReady(std::shared_ptr<HydControlMsgPayload> payload) const;
    void requestOpenAdapter(QString addr);
    void requestOpenAdapter(QString port, uint32_t baudRate);
    void requestCloseAdapter();
    void signalStopCollect(int32_t scanWait, int8_t scanMask);
    void setDataScanConf(uint16_t scanWait, uint8_t scanMask);
    void channelOpen(HydDeviceId devId, HydChannel chan);
    void channelClosed(HydDeviceId devId, HydChannel chan);
    void enquireResponse(const NvxDevice& device, bool bNeedUpdate = true);
    /// Emitted nowhere.
    void jobSetupSentToDev(const NvxDevice& device);
    void jobSetupGotFromDev(const NvxDevice& device);
    void jobSetupReadFromDev(const NvxDevice& device);
    void jobSettingsChanged(std::shared_ptr<NvxDevice> device);
    void jobSetupErr(std::shared_ptr<NvxDevice> device, std::shared_ptr<HydJobSetupErr> error);
    void timeChanged(const NvxDevice& device);
    void timeChangeErr(const NvxDevice& device);
    void signalDevReset(const NvxDevice& device);
    /// After every trigger enquiry reply.
    void signalEnqTrig(std::shared_ptr<NvxDevice> device);
    /// An enquiry reply replaced the trigger list of the record.
    void signalTrigUdated(std::shared_ptr<NvxDevice> device);
    void error(HydControlError err, int serr);
    void signalErrorMes(const std::string& errorMes);
    void enquireResponseTimeSync(std::shared_ptr<const HydEnquireTimeSync> timeSync,
                                 std::shared_ptr<HydDevice> dev);

private:
    void createBaseConnections();
    void sendFrontOfQueue();
    void handleTimeReply(const HydSetTimeCmd& reply);
    void handleJobSetupReply(const HydJobSetupCmd& reply);
    void handleJobSetupRead(const HydJobSetupEnq& reply);
    void handleTriggerReply(const HydEnquireTrigger* reply);

    std::shared_ptr<HydDevice> m_device;
    HydCommandAdapter* m_adapter = nullptr;
    QThread* m_adapterThread = nullptr;
    QString m_serialPortName;
    uint32_t m_baudRate = 0;
    NvxIpAddr m_address;
    HydConnectionType m_connType;
    uint32_t m_timeMatches = 0;
    uint32_t m_mostTimeMatches = 0;
    std::deque<std::shared_ptr<HydControlMsgPayload>> m_pendingCommands;
    QTimer m_deviceTimer{this};
    bool m_settingsReady = false;
    std::array<QMetaObject::Connection, 5> m_baseConnections;
};
