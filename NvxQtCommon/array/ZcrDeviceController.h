#pragma once

#include "NvxQtCommon/array/HydZcrCommandAdapter.h"
#include "NvxQtCommon/contract/device/ZcrDevice.h"
#include "NvxQtCommon/control/NvxDeviceController.h"

#include <QNetworkAccessManager>
#include <QPointer>
#include <QTimer>

#include <memory>
#include <vector>

/// Controller of an array controller (type 16): one device with a list of channels. It has no command channel
/// of the ordinary kind, so no command adapter and no thread are made for it; it drives a
/// HydZcrCommandAdapter of its own instead. Lives on the thread that created it, as does the network access
/// manager, which the application owns and may delete at any time. May be deleted from inside one of its
/// signals.
///
/// Without a device record (setDevice(nullptr)) what replies tell of others is passed on, and nothing else is
/// reported.
class NVXQTCOMMON_EXPORT ZcrDeviceController : public NvxDeviceController
{
    Q_OBJECT

public:
    explicit ZcrDeviceController(HydConnectionType connType, QObject* parent = nullptr);
    /// A null device counts as a fresh record of type 16.
    ZcrDeviceController(std::shared_ptr<ZcrDevice> device, HydConnectionType connType,
                        QObject* parent = nullptr);

    /// The full start-up read: fetches the list of channels by FTP, and completes it by the web socket. One
    /// of enquireResponse(), signalZCRnoArray() and signalZCRErrorStream() tells how it ended, and nothing
    /// does where the file can't be had. Keeps `manager` for sendZcrEnquire() unless this controller or its
    /// adapter has one. Nothing without a device record. Call closeAll() ahead of
    /// another one: the wait of a read before goes on otherwise, and may report success without a channel.
    /// This is intended.
    void checkStatus(QNetworkAccessManager* manager);
    /// Sets the clock of the array controller: seconds since the epoch; 0 or less asks for its time alone.
    /// `manager` is the one that the adapter keeps, where it has none yet. Nothing while CGI traffic is
    /// disabled.
    void sendSetZcrTime(long long time, QNetworkAccessManager* manager);
    /// Asks for the configuration by CGI, and for the channels where none are known. Nothing while CGI
    /// traffic is disabled or without a manager of this controller.
    void sendZcrEnquire() const;
    /// Writes a job setup by CGI, to be seen as pending from then on, sent or not: this is intended. Nothing
    /// for a record without channels. `bDelayed` isn't looked at.
    void sendJobSetup(const JobTagMap& tags, bool bDelayed) override;
    /// Ends the collection of channels and closes the web socket. The base class's closeAll() does so too,
    /// and stops the running copy of the device's clock, which this one leaves alone: this is intended.
    void closeAll();

    /// Keeps the first manager, for sendZcrEnquire().
    void setNetworkAccessManager(QNetworkAccessManager* manager);
    /// With false nothing is asked or sent by CGI, and replies are dropped. The adapter forgets of it with
    /// the next closing of the web socket, open or not, and reads late replies again: this is intended. True
    /// from the start.
    void setEnabledZcrCgiCon(bool enabled);
    bool isEnabledZcrCgiCon() const { return m_enabledZcrCgiCon; }
    /// For what this class doesn't pass on. Never empty; it may outlive the controller.
    std::shared_ptr<HydZcrCommandAdapter> adapter() const { return m_adapter; }

Q_SIGNALS:
    // Those with arguments by reference are for direct connections only.

    /// A reply told the time of another array controller, in seconds since the epoch.
    void signalZcrTime(int serial, long long time);
    /// The configuration file was written, and this array controller is to be reset.
    void signalResetZCR(HydDeviceId const& devId);
    /// There are no channels. Ends the report.
    void signalZCRnoArray(std::shared_ptr<NvxDevice> device);
    /// At least one channel sent no frame in time. The record holds the list all the same; no other report
    /// follows.
    void signalZCRErrorStream(std::shared_ptr<NvxDevice> device);
    /// A reply told the settings of another array controller.
    void signalZCRSetConfigRead(HydJobSettings& jobSettings, int serialZCR);
    /// A reply told the channels of another array controller.
    void signalZCRArrayRead(std::vector<HydDeviceId>& devIdList, int serialZCR);

public Q_SLOTS:
    /// The channels of the adapter have their settings. For those of the file it opens the web socket, and
    /// waits 2 s from the last such call for a frame of each. Each call adds a report to those that the end
    /// of this time brings, for good, and a call from inside such a report has no time limit at all: this is
    /// intended.
    void handleZcrConfigRead(bool bConfFile);
    /// Hands the channels to the record and reports it.
    void handleZcrDevListFilled();
    void handleZcrTime(int serial, long long time);
    void handleResetZCR(HydDeviceId const& devId);
    void handleZCRSetConfigRead(HydJobSettings& jobSettings, int serialZCR);
    void handleZCRArrayRead(std::vector<HydDeviceId>& devIdList, int serialZCR);

protected:
    bool sendArrayJobSetup(const JobTagMap& tags, bool bDelayed) override;
    void sendArrayEnquire() const override;
    void closeArrayChannel() override;

private:
    void init();
    void createConnections();
    std::shared_ptr<ZcrDevice> arrayDevice() const;
    bool takeDevList(const std::shared_ptr<ZcrDevice>& array);

    QTimer m_listTimer;
    std::shared_ptr<HydZcrCommandAdapter> m_adapter;
    QPointer<QNetworkAccessManager> m_networkManager;
    bool m_enabledZcrCgiCon = true;
};
