#include "NvxQtSimulator/ArrayFtpService.h"

#include "NvxQtSimulator/ArrayListener.h"
#include "NvxQtSimulator/FaultyLink.h"

#include <QDir>
#include <QTimer>

#include <algorithm>

namespace {

const QString kConfigFolder = QStringLiteral("/Config");
const QString kConfigFile = QStringLiteral("/Config/JOBSETUP.CFG");
constexpr int kFtpRefusal = 550;

} // namespace

ArrayFtpService::ArrayFtpService(ArrayState* state) : m_state(state)
{
    connect(&m_server, &QTcpServer::newConnection, this, &ArrayFtpService::acceptConnections);
}

bool ArrayFtpService::listen(QString* error)
{
    return listenForArray(m_server, m_state->settings().address, m_state->settings().ftpPort, error);
}

void ArrayFtpService::acceptConnections()
{
    while (QTcpSocket* socket =
               takeArrayConnection(m_server, *m_state, FaultOnFtp, findChildren<ArrayFtpSession*>().size()))
        new ArrayFtpSession(socket, m_state, this);
}

ArrayFtpSession::ArrayFtpSession(QTcpSocket* control, ArrayState* state, QObject* parent)
    : QObject(parent), m_control(control), m_state(state)
{
    m_control->setParent(this);
    m_control->setReadBufferSize(kMaxLine);
    connect(m_control, &QTcpSocket::readyRead, this, &ArrayFtpSession::readCommands);
    connect(m_control, &QTcpSocket::bytesWritten, this, &ArrayFtpSession::readCommands, Qt::QueuedConnection);
    connect(m_control, &QTcpSocket::disconnected, this, &QObject::deleteLater);
    reply(220, "Simulated array controller");
}

ArrayFtpSession::~ArrayFtpSession()
{
    dropData();
    FaultyLink::retire(m_control);
}

// --- commands

void ArrayFtpSession::readCommands()
{
    while (!m_isBusy && m_control->bytesToWrite() <= ArrayState::kMaxUnsent) {
        const qsizetype end = m_input.indexOf('\n');
        if (end > kMaxLine || (end < 0 && m_input.size() >= kMaxLine)) {
            reply(500, "Line too long");
            m_control->disconnectFromHost();
            return;
        }
        if (end >= 0) {
            const QByteArray line = m_input.first(end).trimmed();
            m_input.remove(0, end + 1);
            obey(line);
            continue;
        }
        // The socket takes more from the system only behind a read that empties it.
        const QByteArray bytes = m_control->readAll();
        if (bytes.isEmpty())
            return;
        m_input += bytes;
    }
}

void ArrayFtpSession::obey(const QByteArray& line)
{
    if (m_state->strike(FaultOnFtp, Fault::Silence))
        return;
    const qsizetype blank = line.indexOf(' ');
    const QByteArray verb = line.first(blank < 0 ? line.size() : blank).toUpper();
    const QByteArray argument = blank < 0 ? QByteArray() : line.mid(blank + 1);
    const auto delay = m_state->strike(FaultOnFtp, Fault::Slow);
    if (!delay) {
        answer(verb, argument);
        return;
    }
    m_isBusy = true;
    QTimer::singleShot(arrayDelayMs(*delay), this, [this, verb, argument] {
        m_isBusy = false;
        answer(verb, argument);
        readCommands();
    });
}

void ArrayFtpSession::answer(const QByteArray& verb, const QByteArray& argument)
{
    if (verb == "USER") {
        reply(331, "Any password will do");
    } else if (verb == "PASS") {
        m_isLoggedIn = true;
        reply(230, "Welcome");
    } else if (verb == "QUIT") {
        reply(221, "Goodbye");
        m_control->disconnectFromHost();
    } else if (!m_isLoggedIn) {
        reply(530, "Log in first");
    } else if (verb == "SYST") {
        reply(215, "UNIX Type: L8");
    } else if (verb == "NOOP") {
        reply(200, "Nothing done");
    } else if (verb == "PWD") {
        reply(257, '"' + m_folder.toUtf8() + '"');
    } else if (verb == "CWD") {
        changeFolder(argument);
    } else if (verb == "TYPE") {
        const QByteArray type = argument.left(1).toUpper();
        reply(type == "A" || type == "I" ? 200 : 504, "Type " + type);
    } else if (verb == "PASV" || verb == "EPSV") {
        openPassive(verb == "EPSV");
    } else if (verb == "SIZE") {
        if (isFile(argument))
            reply(213, QByteArray::number(m_state->configFile().size()));
        else
            reply(kFtpRefusal, "No such file");
    } else if (verb == "RETR") {
        begin(Transfer::Read, argument);
    } else if (verb == "STOR") {
        begin(Transfer::Write, argument);
    } else if (verb == "ABOR") {
        dropData();
        reply(226, "Aborted");
    } else {
        reply(502, "Not here");
    }
}

void ArrayFtpSession::reply(int code, const QByteArray& text)
{
    if (m_control->state() == QAbstractSocket::ConnectedState)
        m_control->write(QByteArray::number(code) + ' ' + text + "\r\n");
}

void ArrayFtpSession::changeFolder(const QByteArray& name)
{
    const QString path = pathOf(name);
    if (path != QLatin1String("/") && path != kConfigFolder) {
        reply(kFtpRefusal, "No such folder");
        return;
    }
    m_folder = path;
    reply(250, "Changed");
}

QString ArrayFtpSession::pathOf(const QByteArray& name) const
{
    const QString text = QString::fromUtf8(name);
    return QDir::cleanPath(text.startsWith(u'/') ? text : m_folder + u'/' + text);
}

bool ArrayFtpSession::isFile(const QByteArray& name) const
{
    return pathOf(name) == kConfigFile;
}

// --- transfers

void ArrayFtpSession::openPassive(bool isExtended)
{
    dropData();
    m_passive = std::make_unique<QTcpServer>();
    m_passive->setMaxPendingConnections(1);
    connect(m_passive.get(), &QTcpServer::newConnection, this, &ArrayFtpSession::acceptData);
    const QHostAddress address = m_control->localAddress();
    if (!m_passive->listen(address)) {
        m_passive.reset();
        reply(425, "No data port is free");
        return;
    }
    const QByteArray port = QByteArray::number(m_passive->serverPort());
    if (isExtended) {
        reply(229, "Extended passive mode (|||" + port + "|)");
        return;
    }
    const QByteArray host = address.toString().toUtf8().replace('.', ',');
    reply(227, "Passive mode (" + host + ',' + QByteArray::number(m_passive->serverPort() / 256) + ',' +
                   QByteArray::number(m_passive->serverPort() % 256) + ')');
}

void ArrayFtpSession::begin(Transfer transfer, const QByteArray& name)
{
    if (!m_passive || m_transfer != Transfer::None) {
        reply(425, "Ask for a data port first");
    } else if (const auto code = m_state->strike(FaultOnFtp, Fault::Status)) {
        reply(*code > 0 ? static_cast<int>(std::min<int64_t>(*code, 599)) : kFtpRefusal, "Refused on demand");
    } else if (!isFile(name)) {
        reply(kFtpRefusal, "No such file");
    } else {
        m_transfer = transfer;
        m_upload.clear();
        reply(150, "Here it comes");
        transferData();
    }
}

void ArrayFtpSession::acceptData()
{
    QTcpSocket* socket = m_passive->nextPendingConnection();
    if (socket == nullptr)
        return;
    if (m_data || socket->peerAddress() != m_control->peerAddress()) {
        FaultyLink::retire(socket);
        return;
    }
    m_passive->close();
    m_data = socket;
    m_data->setParent(this);
    connect(m_data, &QTcpSocket::readyRead, this, &ArrayFtpSession::takeUpload);
    connect(m_data, &QTcpSocket::disconnected, this, &ArrayFtpSession::endTransfer);
    transferData();
}

void ArrayFtpSession::transferData()
{
    if (!m_data)
        return;
    if (m_transfer == Transfer::Write) {
        takeUpload();
        if (m_data && m_data->state() == QAbstractSocket::UnconnectedState)
            endTransfer();
    }
    if (m_transfer != Transfer::Read)
        return;
    QByteArray file = m_state->configFile();
    if (m_state->strike(FaultOnFtp, Fault::Empty))
        file.clear();
    if (const auto bytes = m_state->strike(FaultOnFtp, Fault::Malformed))
        file = cutArrayBytes(file, *bytes);
    if (const auto bytes = m_state->strike(FaultOnFtp, Fault::Close)) {
        file = cutArrayBytes(file, *bytes);
        m_breaksOff = true;
    }
    m_data->write(file);
    m_data->disconnectFromHost();
}

void ArrayFtpSession::takeUpload()
{
    if (m_transfer != Transfer::Write)
        return;
    m_upload += m_data->readAll();
    if (m_upload.size() <= ArrayState::kMaxFileSize)
        return;
    dropData();
    reply(552, "Too long");
}

void ArrayFtpSession::endTransfer()
{
    const Transfer ended = m_transfer;
    if (ended == Transfer::Write)
        m_upload += m_data->readAll();
    const bool isWhole = m_upload.size() <= ArrayState::kMaxFileSize;
    dropData();
    if (m_breaksOff) {
        m_control->disconnectFromHost();
        return;
    }
    if (ended == Transfer::None)
        return;
    if (ended == Transfer::Write && !(isWhole && m_state->setConfigFile(m_upload))) {
        reply(552, "Too long");
        return;
    }
    reply(226, "Done");
    m_upload.clear();
    if (ended == Transfer::Read) {
        ++m_state->counters.fileReads;
        Q_EMIT m_state->configFileRead();
    } else {
        ++m_state->counters.fileWrites;
        Q_EMIT m_state->configFileWritten();
    }
}

void ArrayFtpSession::dropData()
{
    m_transfer = Transfer::None;
    m_passive.reset();
    if (m_data)
        FaultyLink::retire(m_data);
    m_data = nullptr;
}
