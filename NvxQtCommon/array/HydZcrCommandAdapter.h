#pragma once

#include "NvxQtCommon/array/CZCRWebSocket.h"
#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/message/ZcrCgiReply.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>

#include <memory>
#include <vector>

/// Speaks with one array controller: by HTTP with its CGI scripts, by web socket with its channels. Owned by
/// whoever made it; lives on the thread that made it, as does the network access manager, which the
/// application owns and may delete at any time. May be deleted from inside one of its signals.
///
/// The signals with arguments by reference are for direct connections only.
class NVXQTCOMMON_EXPORT HydZcrCommandAdapter : public QObject
{
    Q_OBJECT

public:
    /// Bytes; a longer reply to a request of this adapter is aborted, which a line of the log says.
    static constexpr qint64 kMaxReplySize = ZcrCgiReply::kMaxSize;

    /// Where a configuration came from.
    enum EnquireZcr : int {
        EnquireFile = 0,
        EnquireCgi = 1,
    };

    /// The type of the connection isn't looked at.
    explicit HydZcrCommandAdapter(HydConnectionType connType, QObject* parent = nullptr);
    ~HydZcrCommandAdapter() override;

    /// Address of the array controller, for all that follows.
    void setNetHostInfo(const NvxNetHostInfo& info);
    const NvxNetHostInfo& netHostInfo() const { return m_hostInfo; }
    /// Null until one is set, and when it is gone.
    QNetworkAccessManager* manager() const { return m_manager; }
    /// Takes the first manager for good. All its replies come by handleNetWorkReplay(), those to other users
    /// too: an adapter tells by the serial number in a reply whom it is about. The adapter deletes no reply;
    /// that is the manager's owner's part, for one by setAutoDeleteReplies().
    void setNetworkAccessManager(QNetworkAccessManager* manager);
    /// The channels' identities and records, to be changed by their owner.
    std::vector<HydDeviceId>& devIdList() { return m_devIdList; }
    std::vector<std::shared_ptr<HydDevice>>& hydDeviceList() { return m_deviceList; }
    void clearLists();
    /// Serial number of the array controller, 0 until set.
    void setSerial(unsigned short serial) { m_serial = serial; }
    /// With false no request goes out and replies are dropped. True until openConnection().
    void enableNetWork(bool enabled) { m_networkEnabled = enabled; }

    /// True while the web socket is closed.
    bool isUnConnected() const;
    /// Opens the web socket, and ends requests until closeConnection().
    void openConnection();
    void closeConnection();

    // Requests. Each does nothing while they are disabled; without a manager it is one line of the log, the
    // same for all of them. This is intended.

    /// Asks for the configuration.
    void getCgiZcrConfig();
    /// Empties the lists and asks for the channels.
    void getCgiZcrArray();
    /// Sets the controller's clock, seconds since the epoch; for 0 the script is called without a time.
    void sendSetTime(long long time) const;
    /// Merges the tags into the adapter's settings and writes these to the controller.
    void cgiWriteJobSetup(const JobTagMap& tags);

    /// Hands the adapter's settings to all channels, and to the array controller's record where the first
    /// channel knows it; then reports signalZcrConfigRead. A configuration by CGI without channels asks for
    /// them instead.
    void updateDevSetConfigRead(EnquireZcr enquire);
    /// Appends a record for each identity; the list isn't emptied before. This is intended.
    void fillSkiffList();

Q_SIGNALS:
    void connectionOpen();
    /// Emitted nowhere. This is intended.
    void connectionClosed();
    /// The channels have their settings; false when these came by CGI.
    void signalZcrConfigRead(bool bConfFile);
    /// Each frame of the web socket emits it once no channel misses its first one; at once with no channels.
    void signalZcrDevListFilled();
    /// A reply told the time of any controller, in seconds since the epoch.
    void signalZcrTime(int serial, long long time);
    /// Emitted nowhere in this version.
    void signalResetZCR(HydDeviceId const& devId);
    /// A reply told the settings of another controller.
    void signalZCRSetConfigRead(HydJobSettings& jobSettings, int serialZCR);
    /// A reply told the channels of another controller.
    void signalZCRArrayRead(std::vector<HydDeviceId>& devIdList, int serialZCR);

public Q_SLOTS:
    /// Completes the record of the frame's channel, where it is listed and had no frame before.
    void FillDevIdList(CZCRWebSocket::ZCR_STREAM_STR const& zcrStream);
    /// One reply of the manager. An error is one line of the log, and nothing is asked again.
    void handleNetWorkReplay(QNetworkReply* reply);

private:
    bool mayRequest() const;
    void request(const std::string& url) const;
    void takeChannels(const ZcrCgiReply& reply);
    void takeSettings(const ZcrCgiReply& reply);
    void takeFrame(HydDevice& device, const ZcrFrameHeader& frame) const;

    std::vector<std::shared_ptr<HydDevice>> m_deviceList;
    std::vector<HydDeviceId> m_devIdList;
    std::shared_ptr<CZCRWebSocket> m_webSocket;
    NvxNetHostInfo m_hostInfo;
    HydJobSettings m_jobSettings;
    QPointer<QNetworkAccessManager> m_manager;
    unsigned short m_serial = 0;
    bool m_networkEnabled = true;
};
