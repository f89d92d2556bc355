#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/transfer/QUrlInfo.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>

#include <memory>

class QFtpPrivate;
class QIODevice;
struct FtpCommand;

/// An FTP client: takes commands, runs them one after the other, and reports by signals. Each command has an
/// id and ends in one commandFinished(), but for those that wait behind one that fails: they are dropped,
/// and done(true) says so. Everything lives on the creating thread's event loop; nothing blocks. From a slot
/// of its own signals it is deleted by deleteLater().
///
/// Text arguments leave as UTF-8. A command fails, and nothing of it is sent, when one of them holds a line
/// break or a NUL.
class NVXQTCOMMON_EXPORT QFtp : public QObject
{
    Q_OBJECT

public:
    enum Command : int {
        None = 0,
        SetTransferMode = 1,
        SetProxy = 2,
        ConnectToHost = 3,
        Login = 4,
        Close = 5,
        List = 6,
        Cd = 7,
        Get = 8,
        Put = 9,
        Remove = 10,
        Mkdir = 11,
        Rmdir = 12,
        Rename = 13,
        RawCommand = 14,
    };
    Q_ENUM(Command)
    enum TransferType : int { Binary = 0, Ascii = 1 };
    enum TransferMode : int { Active, Passive };
    enum State : int {
        Unconnected = 0,
        HostLookup = 1,
        Connecting = 2,
        Connected = 3,
        LoggedIn = 4,
        Closing = 5,
    };
    Q_ENUM(State)
    enum Error : int { NoError, UnknownError, HostNotFound, ConnectionRefused, NotConnected };
    Q_ENUM(Error)

    explicit QFtp(QObject* parent = nullptr);
    /// Ends what is under way, without a signal.
    ~QFtp() override;

    // Each of these is queued and gives the command's id, which is never 0.

    int connectToHost(const QString& host, quint16 port = 21);
    /// A null user is "anonymous", a null password "anonymous@".
    int login(const QString& user = {}, const QString& password = {});
    int close();
    /// Passive until this is called.
    int setTransferMode(TransferMode mode);
    /// For the connections that follow: they go to the proxy, and login names the host behind it as
    /// user\@host, with :port where that isn't 21. An empty host is no proxy.
    int setProxy(const QString& host, quint16 port);
    /// The entries come by listInfoS().
    int list(const QString& dir = {});
    int cd(const QString& dir);
    /// Writes the file to `dev`, which is open for writing and stays with the caller; a device that takes no
    /// more, or is deleted, fails the command. Without a device the bytes come by readyRead() and wait for
    /// read() or readAll(), at most 1 MiB of them, while the server waits.
    int get(const QString& file, QIODevice* dev = nullptr, TransferType type = Binary);
    /// Sends `dev`, from where it stands, which is open for reading and stays with the caller. The size is
    /// told to the server unless the device is sequential.
    int put(QIODevice* dev, const QString& file, TransferType type = Binary);
    int put(const QByteArray& data, const QString& file, TransferType type = Binary);
    int remove(const QString& file);
    int mkdir(const QString& dir);
    int rmdir(const QString& dir);
    int rename(const QString& oldName, const QString& newName);
    /// The replies come by rawCommandReply(). A raw LIST is reported like that of list(), what any other
    /// brings waits for read(), and a raw STOR fails: there is nothing to send.
    int rawCommand(const QString& command);

    // These act at once.

    /// Which entries of the listings that follow are reported: recordings and directories whose created()
    /// lies between the two, both included, or with `all` those of any time. It is `all` until this is
    /// called. A listing that has begun keeps the range that it began with.
    void setTimeRange(QDateTime start, QDateTime end, bool all);
    /// Milliseconds without a byte in or out after which the running command fails and its connection is
    /// given up; 0, which is the default, is never. The clock stands while a transfer waits for the caller: a
    /// full MiB waits for read(), or a sequential device takes no more or has no more to send.
    void setInactivityLimit(int milliseconds);
    int inactivityLimit() const;
    /// Where on, passive data connections go to the peer of the control connection, whatever address a server
    /// names. Off by default.
    void setPassiveToPeer(bool isOn);
    bool isPassiveToPeer() const;

    /// Bytes of the file that wait for read(). They stay readable after the command's end until the next
    /// transfer or the failure of a command, also when the connection has ended.
    qint64 bytesAvailable() const;
    /// Like QIODevice::read().
    qint64 read(char* data, qint64 maxSize);
    QByteArray readAll();

    /// True when commands wait that haven't begun.
    bool hasPendingCommands() const;
    /// Drops all but the running command. done(false) follows where some command has ended well since the
    /// last done() and none is left.
    void clearPendingCommands();

    State state() const;
    /// Of the last command that failed; starts anew with each command.
    Error error() const;
    QString errorString() const;
    /// What the last command that ended well said: "Connected to host 10.0.0.5".
    QString statusText() const;
    /// 0 when no command runs.
    int currentId() const;
    /// None when no command runs.
    Command currentCommand() const;
    /// That of the running get() or put(); null where there is none.
    QIODevice* currentDevice() const;

public Q_SLOTS:
    /// Asks the server to end the running command, which then ends as failed; without one it does nothing.
    /// While no server has greeted yet, the connection is given up instead. Commands that wait are dropped.
    void abort();

Q_SIGNALS:
    void stateChanged(int state);
    /// Not emitted: entries come by listInfoS().
    void listInfo(const QUrlInfo& info);
    /// What one piece of a listing brought; never empty.
    void listInfoS(QList<QUrlInfo> ilst);
    /// Only for get() without a device, and never without bytes.
    void readyRead();
    /// Bytes so far, of how many; the second is 0 where unknown.
    void dataTransferProgress(qlonglong done, qlonglong total);
    /// Each reply to a rawCommand().
    void rawCommandReply(int code, QString text);
    void commandStarted(int id);
    void commandFinished(int id, bool error);
    /// The queue is empty: all went well, or one failed and the others were dropped.
    void done(bool error);

private Q_SLOTS:
    void _q_startNextCommand();
    void _q_piFinished(const QString& text);
    void _q_piError(int errorCode, const QString& text);
    void _q_piConnectState(int state);
    void _q_piFtpReply(int code, const QString& text);

private:
    int enqueue(FtpCommand command);
    void scheduleNext();
    void handOver(const FtpCommand& command);

    std::unique_ptr<QFtpPrivate> d;
};
