#include "NvxQtCommon/transfer/QFtp.h"

#include "NvxQtCommon/transfer/FtpCommand.h"
#include "NvxQtCommon/transfer/QFtpPI.h"

#include <QBuffer>
#include <QDebug>
#include <QTimer>

#include <deque>
#include <utility>

namespace {

constexpr quint16 kControlPort = 21;

QString unknownError()
{
    return QStringLiteral("Unknown error");
}

} // namespace

/// The queue of a client and what it knows of its connection.
class QFtpPrivate
{
public:
    explicit QFtpPrivate(QFtp* q) : pi(q) {}

    FtpCommand* running() { return isRunning ? &queue.front() : nullptr; }
    const FtpCommand* running() const { return isRunning ? &queue.front() : nullptr; }

    QString proxiedHost() const
    {
        if (!isProxied)
            return {};
        return port == kControlPort ? host : host + u':' + QString::number(port);
    }

    /// Takes the running command out of the queue; gives its id.
    int takeRunning()
    {
        const int id = queue.front().id;
        queue.pop_front();
        isRunning = false;
        return id;
    }

    QFtpPI pi;
    std::deque<FtpCommand> queue; ///< the running command is the first
    bool isRunning = false;
    bool isScheduled = false;
    bool isDoneDue = false;    ///< a command ended well since the last done()
    bool isHandedOver = false; ///< the running command is with the protocol interpreter
    bool isAborted = false;    ///< before it was handed over
    int lastId = 0;
    QFtp::TransferMode mode = QFtp::Passive;
    QFtp::State state = QFtp::Unconnected;
    QFtp::Error error = QFtp::NoError;
    QString errorString = unknownError();
    QString statusText;
    QString host;
    quint16 port = kControlPort;
    QString proxyHost;
    quint16 proxyPort = 0;
    bool isProxied = false; ///< the connection goes to the proxy
};

QFtp::QFtp(QObject* parent) : QObject(parent), d(std::make_unique<QFtpPrivate>(this))
{
    connect(&d->pi, &QFtpPI::finished, this, &QFtp::_q_piFinished);
    connect(&d->pi, &QFtpPI::error, this, &QFtp::_q_piError);
    connect(&d->pi, &QFtpPI::connectState, this, &QFtp::_q_piConnectState);
    connect(&d->pi, &QFtpPI::rawFtpReply, this, &QFtp::_q_piFtpReply);
    connect(&d->pi.dtp(), &QFtpDTP::readyRead, this, &QFtp::readyRead);
    connect(&d->pi.dtp(), &QFtpDTP::dataTransferProgress, this, &QFtp::dataTransferProgress);
    connect(&d->pi.dtp(), &QFtpDTP::listInfoS, this, &QFtp::listInfoS);
}

QFtp::~QFtp() = default;

int QFtp::enqueue(FtpCommand command)
{
    command.id = ++d->lastId;
    d->queue.push_back(std::move(command));
    if (d->queue.size() == 1)
        scheduleNext();
    return d->lastId;
}

void QFtp::scheduleNext()
{
    if (!std::exchange(d->isScheduled, true))
        QTimer::singleShot(0, this, &QFtp::_q_startNextCommand);
}

int QFtp::connectToHost(const QString& host, quint16 port)
{
    return enqueue({.kind = ConnectToHost, .arguments = {host}, .port = port});
}

int QFtp::login(const QString& user, const QString& password)
{
    return enqueue({.kind = Login, .arguments = {user, password}});
}

int QFtp::close()
{
    return enqueue({.kind = Close});
}

int QFtp::setTransferMode(TransferMode mode)
{
    return enqueue({.kind = SetTransferMode, .mode = mode});
}

int QFtp::setProxy(const QString& host, quint16 port)
{
    return enqueue({.kind = SetProxy, .arguments = {host}, .port = port});
}

int QFtp::list(const QString& dir)
{
    return enqueue({.kind = List, .arguments = {dir}});
}

int QFtp::cd(const QString& dir)
{
    return enqueue({.kind = Cd, .arguments = {dir}});
}

int QFtp::get(const QString& file, QIODevice* dev, TransferType type)
{
    return enqueue(
        {.kind = Get, .arguments = {file}, .type = type, .device = dev, .hasDevice = dev != nullptr});
}

int QFtp::put(QIODevice* dev, const QString& file, TransferType type)
{
    return enqueue({.kind = Put, .arguments = {file}, .type = type, .device = dev, .hasDevice = true});
}

int QFtp::put(const QByteArray& data, const QString& file, TransferType type)
{
    auto buffer = std::make_shared<QBuffer>();
    buffer->setData(data);
    buffer->open(QIODevice::ReadOnly);
    return enqueue({.kind = Put, .arguments = {file}, .type = type, .ownDevice = std::move(buffer)});
}

int QFtp::remove(const QString& file)
{
    return enqueue({.kind = Remove, .arguments = {file}});
}

int QFtp::mkdir(const QString& dir)
{
    return enqueue({.kind = Mkdir, .arguments = {dir}});
}

int QFtp::rmdir(const QString& dir)
{
    return enqueue({.kind = Rmdir, .arguments = {dir}});
}

int QFtp::rename(const QString& oldName, const QString& newName)
{
    return enqueue({.kind = Rename, .arguments = {oldName, newName}});
}

int QFtp::rawCommand(const QString& command)
{
    return enqueue({.kind = RawCommand, .arguments = {command}});
}

void QFtp::setTimeRange(QDateTime start, QDateTime end, bool all)
{
    d->pi.dtp().setTimeRange(start, end, all);
}

void QFtp::setInactivityLimit(int milliseconds)
{
    d->pi.setInactivityLimit(milliseconds);
}

int QFtp::inactivityLimit() const
{
    return d->pi.inactivityLimit();
}

void QFtp::setPassiveToPeer(bool isOn)
{
    d->pi.setPassiveToPeer(isOn);
}

bool QFtp::isPassiveToPeer() const
{
    return d->pi.isPassiveToPeer();
}

qint64 QFtp::bytesAvailable() const
{
    return d->pi.dtp().bytesAvailable();
}

qint64 QFtp::read(char* data, qint64 maxSize)
{
    return d->pi.dtp().read(data, maxSize);
}

QByteArray QFtp::readAll()
{
    return d->pi.dtp().readAll();
}

bool QFtp::hasPendingCommands() const
{
    return d->queue.size() > (d->isRunning ? 1U : 0U);
}

void QFtp::clearPendingCommands()
{
    d->queue.resize(d->isRunning ? 1 : 0);
}

QFtp::State QFtp::state() const
{
    return d->state;
}

QFtp::Error QFtp::error() const
{
    return d->error;
}

QString QFtp::errorString() const
{
    return d->errorString;
}

QString QFtp::statusText() const
{
    return d->statusText;
}

int QFtp::currentId() const
{
    return d->running() != nullptr ? d->running()->id : 0;
}

QFtp::Command QFtp::currentCommand() const
{
    return d->running() != nullptr ? d->running()->kind : None;
}

QIODevice* QFtp::currentDevice() const
{
    return d->running() != nullptr ? d->running()->device.data() : nullptr;
}

void QFtp::abort()
{
    if (!d->isRunning)
        return;
    if (d->isHandedOver)
        d->pi.abort();
    else
        d->isAborted = true;
}

void QFtp::_q_startNextCommand()
{
    d->isScheduled = false;
    if (d->isRunning)
        return;
    if (d->queue.empty()) {
        // What waited was dropped between two commands.
        if (std::exchange(d->isDoneDue, false))
            Q_EMIT done(false);
        return;
    }
    d->isRunning = true;
    d->isHandedOver = false;
    d->isAborted = false;
    d->error = NoError;
    d->errorString = unknownError();
    Q_EMIT commandStarted(d->queue.front().id);

    const FtpCommand& command = d->queue.front();
    const QString argument = command.arguments.value(0);
    const QString flaw = command.flaw();
    if (d->isAborted) {
        _q_piError(UnknownError, QStringLiteral("Aborted"));
    } else if (!flaw.isEmpty()) {
        _q_piError(UnknownError, flaw);
    } else if (command.kind == SetTransferMode) {
        d->mode = command.mode;
        _q_piFinished(QStringLiteral("Transfer mode set"));
    } else if (command.kind == SetProxy) {
        d->proxyHost = argument;
        d->proxyPort = command.port;
        _q_piFinished(QStringLiteral("Proxy set to %1:%2").arg(argument, QString::number(command.port)));
    } else if (command.kind == ConnectToHost) {
        d->host = argument;
        d->port = command.port;
        d->isHandedOver = true;
        d->isProxied = !d->proxyHost.isEmpty();
        if (d->isProxied)
            d->pi.connectToHost(d->proxyHost, d->proxyPort);
        else
            d->pi.connectToHost(d->host, d->port);
    } else if (!d->pi.isConnected()) {
        _q_piError(NotConnected, QStringLiteral("Not connected"));
    } else {
        handOver(command);
    }
}

void QFtp::handOver(const FtpCommand& command)
{
    d->isHandedOver = true;
    if (command.kind == List || command.kind == Get || command.kind == Put)
        d->pi.dtp().clear();
    if (command.kind == Get)
        d->pi.dtp().setReceiver(command.device);
    if (command.kind == Put)
        d->pi.dtp().setSender(command.sender());
    d->pi.sendCommands(command.lines(d->mode, d->proxiedHost()));
}

void QFtp::_q_piFinished(const QString& text)
{
    if (!d->isRunning)
        return;
    d->statusText = text;
    const int id = d->takeRunning();
    d->isDoneDue = true;
    Q_EMIT commandFinished(id, false);
    if (!d->queue.empty())
        scheduleNext();
    else if (std::exchange(d->isDoneDue, false))
        Q_EMIT done(false);
}

void QFtp::_q_piError(int errorCode, const QString& text)
{
    if (!d->isRunning) {
        qWarning("QFtpPrivate::_q_piError was called without pending command!");
        return;
    }
    d->error = Error(errorCode);
    d->errorString = d->isHandedOver && d->pi.isServerText() ? d->queue.front().framed(text) : text;
    const int id = d->takeRunning();
    // What a slot queues from here on is not behind this command.
    d->queue.clear();
    d->isDoneDue = false;
    Q_EMIT commandFinished(id, true);
    Q_EMIT done(true);
}

void QFtp::_q_piConnectState(int state)
{
    if (std::exchange(d->state, State(state)) != state)
        Q_EMIT stateChanged(state);
}

void QFtp::_q_piFtpReply(int code, const QString& text)
{
    if (currentCommand() == RawCommand)
        Q_EMIT rawCommandReply(code, text);
}
