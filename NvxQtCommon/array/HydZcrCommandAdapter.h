#pragma once

#include "NvxQtCommon/array/CZCRWebSocket.h"
#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/job/ZcrConfigFile.h"
#include "NvxQtCommon/contract/message/ZcrCgiReply.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>

#include <memory>
#include <vector>

class CFtpProc;
class QFtp;

/// Speaks with one array controller: by HTTP with its CGI scripts, by FTP with the server that holds its
/// configuration file, by web socket with its channels. Owned by whoever made it; lives on the thread that
/// made it, as does the network access manager, which the application owns and may delete at any time. May be
/// deleted from inside one of its signals.
///
/// The signals with arguments by reference are for direct connections only.
class NVXQTCOMMON_EXPORT HydZcrCommandAdapter : public QObject
{
    Q_OBJECT

public:
    /// Bytes; a longer reply to a request of this adapter is aborted, which a line of the log says.
    static constexpr qint64 kMaxReplySize = ZcrCgiReply::kMaxSize;
    /// Milliseconds of silence after which a request is aborted, where the manager has no limit of its own.
    static constexpr int kReplySilenceMs = 30000;
    /// Bytes; the transfer of a longer configuration file is given up, which a line of the log says, and a
    /// longer copy isn't edited.
    static constexpr qint64 kMaxConfigSize = 16777216;
    /// Bytes of it, at the most, that stand in the log.
    static constexpr qint64 kMaxConfigLogged = 16384;
    /// Milliseconds of silence after which reading the configuration file is given up.
    static constexpr int kFtpSilenceMs = 30000;

    /// Where a configuration came from.
    enum EnquireZcr : int {
        EnquireFile = 0,
        EnquireCgi = 1,
    };

    /// The type of the connection isn't looked at.
    explicit HydZcrCommandAdapter(HydConnectionType connType, QObject* parent = nullptr);
    ~HydZcrCommandAdapter() override;

    /// Address of the array controller, for all that follows. Without one, requests go to this machine, and
    /// the web socket fails.
    void setNetHostInfo(const NvxNetHostInfo& info);
    const NvxNetHostInfo& netHostInfo() const { return m_hostInfo; }
    /// Null until one is set, and when it is gone.
    QNetworkAccessManager* manager() const { return m_manager; }
    /// Takes the first manager for good. All its replies come by handleNetWorkReplay(), those to other users
    /// too: an adapter tells by the serial number in a reply whom it is about. What adapters asked for is
    /// read by the first one of them; replies to other users keep their bytes. The adapter deletes no reply;
    /// that is the manager's owner's part, for one by setAutoDeleteReplies().
    void setNetworkAccessManager(QNetworkAccessManager* manager);
    /// The channels' identities and records, to be changed by their owner.
    std::vector<HydDeviceId>& devIdList() { return m_devIdList; }
    std::vector<std::shared_ptr<HydDevice>>& hydDeviceList() { return m_deviceList; }
    void clearLists();
    /// Serial number of the array controller, 0 until set.
    void setSerial(unsigned short serial) { m_serial = serial; }
    /// With false no request by HTTP goes out and replies are dropped. True until openConnection().
    void enableNetWork(bool enabled) { m_networkEnabled = enabled; }

    /// True while the web socket is closed.
    bool isUnConnected() const;
    /// Opens the web socket, and ends requests until closeConnection(), also where it is refused or lost.
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

    // The configuration file.

    /// Asks for the file, which ftpReadConfig() takes. What fails is not signalled.
    void getFtpZcrFileConfig();
    /// Makes `tags` the adapter's settings and writes them and the channels to the file: fetches it to a
    /// local copy, edits that, and sends it back; signalResetZCR follows if all went well, nothing otherwise.
    /// The channels are those that devIdList() holds at that moment, also where there are none: a read that
    /// is under way has brought none yet. The copy stays. Blocks until then; a server in the same process
    /// needs a thread of its own. See CFtpProc for the time limits.
    void ftpWriteConfig(const JobTagMap& tags);
    /// Edits the local copy in place, unless `ok` is false; true if it was written. A failure leaves the file
    /// as it was.
    bool handleLoadingZCRConfFinished(bool ok, QString const& path);

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
    /// The controller has a new configuration file, which it takes when it starts again.
    void signalResetZCR(HydDeviceId const& devId);
    /// A reply told the settings of another controller.
    void signalZCRSetConfigRead(HydJobSettings& jobSettings, int serialZCR);
    /// A reply told the channels of another controller.
    void signalZCRArrayRead(std::vector<HydDeviceId>& devIdList, int serialZCR);

public Q_SLOTS:
    /// Completes the record of the frame's channel, where it is listed and had no frame before.
    void FillDevIdList(CZCRWebSocket::ZCR_STREAM_STR const& zcrStream);
    /// Does nothing. This is intended.
    void ftpCommandFinished(int id, bool error);
    /// Takes what has come of the configuration file for all of it: its channels replace those listed, its
    /// settings join the adapter's, and signalZcrConfigRead(true) follows.
    void ftpReadConfig();
    /// One reply of the manager. An error is one line of the log, and nothing is asked again.
    void handleNetWorkReplay(QNetworkReply* reply);

private:
    bool mayRequest() const;
    void request(const std::string& url) const;
    void takeChannels(const ZcrCgiReply& reply);
    void takeSettings(const ZcrCgiReply& reply);
    void takeFrame(HydDevice& device, const ZcrFrameHeader& frame) const;
    void makeFtp();

    const ZcrConfigKeys m_keyMap = zcrConfigKeys();
    std::vector<std::shared_ptr<HydDevice>> m_deviceList;
    std::vector<HydDeviceId> m_devIdList;
    std::shared_ptr<CZCRWebSocket> m_webSocket;
    NvxNetHostInfo m_hostInfo;
    std::shared_ptr<QFtp> m_ftp;
    std::shared_ptr<CFtpProc> m_ftpProc; ///< null until the first file is written
    HydJobSettings m_jobSettings;
    QPointer<QNetworkAccessManager> m_manager;
    unsigned short m_serial = 0;
    bool m_networkEnabled = true;
};
