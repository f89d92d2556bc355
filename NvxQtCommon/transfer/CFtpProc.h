#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/control/MetaTypes.h"

#include <QDateTime>
#include <QIODevice>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>

class QFileDevice;

/// Blocking FTP to one device, on port 21: uploads, downloads, listings and the test whether a file is there.
/// Each operation returns when it has ended, so the object belongs on a thread of its own; it lives on the
/// thread that created it, and the application owns it. It reports by results and by the signals; progress
/// goes to the debug stream, and libcurl tells on standard error what it does, by design.
///
/// Remote paths are UTF-8, absolute or not, with "/" between their parts; they are percent-encoded here. An
/// address, path, user or command with a control character in it fails the operation before anything is sent.
class NVXQTCOMMON_EXPORT CFtpProc : public QObject
{
    Q_OBJECT

public:
    /// Which device a listing is of. Files of devices below DevArray are chosen by the time in their names,
    /// those of the others by the date of the listing.
    enum DEV_TYPE : int { DevRecorder = 0, DevArrayChannel = 1, DevArray = 2 };
    Q_ENUM(DEV_TYPE)

    /// Stands between the two names of an entry of the list of files.
    static constexpr const char* kListSeparator = "<|>";
    /// A longer listing fails, a longer line of a listing is passed over.
    static constexpr size_t kMaxListingBytes = size_t{256} << 20;
    static constexpr qsizetype kMaxLineBytes = 8192;
    static constexpr std::chrono::seconds kConnectTimeout{10};
    static constexpr std::chrono::seconds kSilenceTimeout{30};

    explicit CFtpProc(QObject* parent = nullptr);

    /// An IPv4 or IPv6 address or a host name; "0.0.0.0" until set.
    const QString& ipAddr() const { return m_ipAddr; }
    void setIpAddr(const QString& address) { m_ipAddr = address; }
    /// Anonymous until set. The user has no colon in it.
    void setUser(const QString& user, const QString& password);
    /// How long a connection may take to stand, and how long one may bring and take nothing until the
    /// operation fails. At least a second each.
    void setTimeouts(std::chrono::seconds connect, std::chrono::seconds silence);

    /// The files that downLoad() and upLoad() without arguments go through: remote, "<|>", local for
    /// downloads, local, "<|>", remote for uploads.
    void setDownLoadList(const QList<QString>& list) { m_downLoadList = list; }
    /// Bytes; a longer file fails its download, at once where the server tells its size, otherwise when more
    /// than that has come. 0 is no limit, as it is until set.
    void setDownLoadLimit(qint64 bytes) { m_downLoadLimit = std::max<qint64>(bytes, 0); }
    /// The remote directory that getListFTP() reads and that fileZCRExists() looks in.
    void setBasePath(const QString& path) { m_basePath = path; }
    /// The directories that fileZCRExists() looks through; getListFTP() sets them too.
    void setDirList(const QList<QString>& names) { m_dirList = names; }
    const QList<QString>& dirList() const { return m_dirList; }
    /// The bounds of the time range, both inclusive. Until both are set getListFTP() takes no file.
    void setDTBegin(const QDateTime& begin);
    void setDTEnd(const QDateTime& end);
    /// Commands that the server gets behind each upload, in the directory of the uploaded file: RNFR and
    /// RNTO, say, to give the file its name when it is whole. One that the server refuses fails the upload.
    void setUploadCommands(const QStringList& commands) { m_uploadCommands = commands; }

    /// Each file ends in one signalLoadingFinished() with its local name. A failed one gives false and a
    /// signalError(). The forms without arguments go through the whole list and are true if every file was
    /// loaded.
    bool upLoad(const std::string& local, const std::string& remote);
    bool upLoad();
    /// The local file is replaced when the download is whole; a failed one leaves it as it was.
    /// setDownLoadLimit() bounds its size; nothing bounds its time while bytes come.
    bool downLoad(const std::string& remote, const std::string& local);
    bool downLoad();

    /// The server's listing of a directory, its lines ended by LF. False, with a signalError(), if it can't
    /// be had.
    bool getList(const std::string& path, std::string& listing);
    /// Appends the names that a listing of the base path has to the two lists (either may be null), as
    /// parseList() does, and emits signalListReady() with them. False, with a signalError(), if there is no
    /// listing.
    bool getListFTP(QList<QString>* files, QList<QString>* dirs, DEV_TYPE type);
    /// What getListFTP() makes of a listing: each directory, and of the files those that the time range and
    /// the kind of device ask for. Names are the server's and may be anything; a text of a listing that isn't
    /// UTF-8 is read as Latin-1, line by line.
    void parseList(const std::string& listing, QList<QString>* files, QList<QString>* dirs,
                   DEV_TYPE type) const;

    /// Emits signalFileExists() with the path and `ind`. A file exists if the server tells its size.
    bool fileExists(const std::string& path, int ind = 0);
    /// Looks for the wave file that the array channel `id` began in the minute of `time`, in the first of the
    /// directories whose name has the day in it. `time` is taken as it is, without conversion.
    bool fileZCRExists(const QString& id, const QDateTime& time);

    /// Options that all operations share, for one path. `curl` is a handle of libcurl's easy interface.
    void initConnect(void* curl, const std::string& path) const;

    /// Callbacks of libcurl. `stream` is a QIODevice, `text` a std::string that grows to kMaxListingBytes at
    /// most.
    static size_t ftpFWrite(void* buffer, size_t size, size_t count, void* stream);
    static size_t read_callback(char* buffer, size_t size, size_t count, void* stream);
    static size_t WriteInStringCallback(void* buffer, size_t size, size_t count, void* text);

Q_SIGNALS:
    /// The lists are those that were handed to getListFTP(), good until it returns.
    void signalListReady(QString ipAddr, QStringList* filesList, QStringList* dirsList);
    void signalLoadingFinished(bool succeed, QString fileName);
    void signalFileExists(bool succeed, std::string fileName, QString ipAddr, int ind);
    void signalError(QString error);

private:
    bool upLoadFile(const std::string& local, const std::string& remote);
    bool downLoadFile(const std::string& remote, const std::string& local);
    bool askForSize(const std::string& path);
    bool isInRange(const QString& name, const QStringList& fields, DEV_TYPE type) const;
    bool isSafe(const std::string& path) const;
    std::string url(const std::string& path) const;
    bool reportConnection(int result);
    bool openLocal(QFileDevice& file, const std::string& local, QIODevice::OpenMode mode);
    /// Sets a handle up for a path and hands it to `use`, which performs it; gives the result of that,
    /// or nothing where there is no handle and the error is told.
    template <typename Use> std::optional<int> perform(const std::string& path, Use use);
    template <typename Load> bool loadAll(Load load);

    QString m_ipAddr = QStringLiteral("0.0.0.0");
    QString m_user;
    QString m_password;
    std::chrono::seconds m_connectTimeout = kConnectTimeout;
    std::chrono::seconds m_silenceTimeout = kSilenceTimeout;
    QList<QString> m_downLoadList;
    qint64 m_downLoadLimit = 0;
    QList<QString> m_dirList;
    QString m_basePath;
    QString m_lowerBound;
    QString m_upperBound;
    QDateTime m_begin;
    QDateTime m_end;
    QStringList m_uploadCommands;
};
