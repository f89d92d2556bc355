#pragma once

#include "NvxQtCommon/contract/identity/NvxNetRecords.h"
#include "NvxQtCommon/transfer/QFtp.h"

/// The FTP client of one recorder: it remembers whose it is. It lives on the thread that created it.
class NVXQTCOMMON_EXPORT NvxFtp : public QFtp
{
    Q_OBJECT

public:
    explicit NvxFtp(const NvxNetHostInfo& host, QObject* parent = nullptr);
    /// An IPv4 address as dotted text; any other text gives the address 0.
    explicit NvxFtp(const QString& address, QObject* parent = nullptr);

    const NvxNetHostInfo& hostInfo() const { return m_hostInfo; }
    void setHostInfo(const NvxNetHostInfo& host) { m_hostInfo = host; }
    /// The host's IPv4 address as dotted text.
    QString address() const;

    /// Connects to the FTP port of the host and logs in as anonymous.
    void connectToRecorder();

private:
    NvxNetHostInfo m_hostInfo;
};
