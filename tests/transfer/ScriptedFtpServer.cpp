#include "tests/transfer/ScriptedFtpServer.h"

#include <QTimer>

#include <sys/socket.h>

void ScriptedFtpServer::sendReset(QTcpSocket& socket)
{
    // A socket that may not linger is closed by a reset.
    const linger none{1, 0};
    setsockopt(int(socket.socketDescriptor()), SOL_SOCKET, SO_LINGER, &none, sizeof none);
    socket.abort();
}

ScriptedFtpServer::ScriptedFtpServer(const QHostAddress& address, quint16 port)
{
    connect(&m_server, &QTcpServer::newConnection, this, &ScriptedFtpServer::handleConnection);
    connect(&m_dataServer, &QTcpServer::newConnection, this, &ScriptedFtpServer::handleDataConnection);
    if (!m_server.listen(address, port))
        qFatal("no port to listen on");
    reset();
}

ScriptedFtpServer::~ScriptedFtpServer()
{
    resetControl();
    dropData();
}

void ScriptedFtpServer::reset()
{
    resetControl();
    dropData();
    m_dataServer.close();
    m_handlers.clear();
    greeting = "220 Ready\r\n";
    file = "0123456789";
    listing = "-rw-r--r-- 1 ftp ftp 10 Mar 04 2021 a.wav\r\ndrwxr-xr-x 1 ftp ftp 0 Mar 04 2021 Data\r\n";
    isInSingleBytes = false;
    isCutByReset = false;
    controlLimit = -1;
    dataLimit = -1;
    lines.clear();
    uploaded.clear();
}

void ScriptedFtpServer::answer(const QByteArray& verb, const QByteArray& bytes)
{
    handle(verb, [bytes](ScriptedFtpServer& server, const QByteArray&) { server.reply(bytes); });
}

void ScriptedFtpServer::handleConnection()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        resetControl();
        dropData();
        ++connections;
        m_control = socket;
        m_controlSent = 0;
        m_dataSent = 0;
        m_activePort = 0;
        m_singleBytes.clear();
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(socket, &QTcpSocket::readyRead, this, &ScriptedFtpServer::readLines);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        reply(greeting);
    }
}

void ScriptedFtpServer::readLines()
{
    while (m_control != nullptr && m_control->canReadLine()) {
        const QByteArray line = m_control->readLine();
        lines << (line.endsWith("\r\n") ? line.chopped(2) : line);
        obey(lines.last());
        Q_EMIT lineReceived();
    }
}

void ScriptedFtpServer::obey(const QByteArray& line)
{
    const qsizetype blank = line.indexOf(' ');
    const QByteArray verb = blank < 0 ? line : line.first(blank);
    const QByteArray argument = blank < 0 ? QByteArray() : line.sliced(blank + 1);
    if (const auto found = m_handlers.find(verb); found != m_handlers.end())
        Handler(found->second)(*this, argument);
    else
        behave(verb, argument);
}

void ScriptedFtpServer::behave(const QByteArray& verb, const QByteArray& argument)
{
    static const std::map<QByteArray, QByteArray> s_replies = {
        {"USER", "331 Password\r\n"},   {"PASS", "230 Welcome\r\n"}, {"TYPE", "200 Type\r\n"},
        {"ALLO", "202 Not needed\r\n"}, {"CWD", "250 Here\r\n"},     {"DELE", "250 Gone\r\n"},
        {"MKD", "257 \"x\" made\r\n"},  {"RMD", "250 Gone\r\n"},     {"RNFR", "350 And?\r\n"},
        {"RNTO", "250 Renamed\r\n"},    {"NOOP", "200 Ok\r\n"},
    };
    if (const auto found = s_replies.find(verb); found != s_replies.end()) {
        reply(found->second);
    } else if (verb == "SIZE") {
        reply("213 " + QByteArray::number(file.size()) + "\r\n");
    } else if (verb == "PASV") {
        reply("227 Entering Passive Mode (" + endpoint(listenForData()) + ").\r\n");
    } else if (verb == "EPSV") {
        reply("229 Entering Extended Passive Mode (|||" + QByteArray::number(listenForData()) + "|)\r\n");
    } else if (verb == "PORT") {
        const QList<QByteArray> numbers = argument.split(',');
        const QByteArray address = numbers.mid(0, 4).join('.');
        m_activeAddress = QHostAddress(QString::fromLatin1(address));
        m_activePort = quint16(numbers.value(4).toInt() * 256 + numbers.value(5).toInt());
        reply(numbers.size() == 6 ? "200 Port\r\n" : "501 What port?\r\n");
    } else if (verb == "EPRT") {
        const QList<QByteArray> parts = argument.split('|');
        m_activeAddress = QHostAddress(QString::fromLatin1(parts.value(2)));
        m_activePort = parts.value(3).toUShort();
        reply("200 Port\r\n");
    } else if (verb == "LIST") {
        reply("150 Listing\r\n");
        sendFile(listing, "226 Listed\r\n");
    } else if (verb == "RETR") {
        reply("150 File\r\n");
        sendFile(file, "226 Sent\r\n");
    } else if (verb == "STOR") {
        reply("150 Come\r\n");
        withData([this](QTcpSocket& data) {
            const auto take = [this, &data] { uploaded += data.readAll(); };
            connect(&data, &QTcpSocket::readyRead, this, take);
            connect(&data, &QTcpSocket::disconnected, this, [this] { reply("226 Taken\r\n"); });
            take();
            if (data.state() == QAbstractSocket::UnconnectedState)
                reply("226 Taken\r\n");
        });
    } else if (verb == "ABOR") {
        const bool isTransfer = m_data != nullptr;
        if (isTransfer)
            m_data->disconnect(this);
        dropData();
        reply(isTransfer ? "426 Aborted\r\n226 Abort done\r\n" : "225 Nothing to abort\r\n");
    } else if (verb == "QUIT") {
        reply("221 Bye\r\n");
        closeControl();
    } else {
        reply("502 Unknown\r\n");
    }
}

void ScriptedFtpServer::reply(const QByteArray& bytes)
{
    if (m_control == nullptr)
        return;
    if (isInSingleBytes) {
        const bool isIdle = m_singleBytes.isEmpty();
        m_singleBytes += bytes;
        if (isIdle)
            writeSingleByte();
        return;
    }
    const qint64 left =
        controlLimit < 0 ? bytes.size() : qMin<qint64>(bytes.size(), controlLimit - m_controlSent);
    m_control->write(bytes.constData(), left);
    m_control->flush();
    m_controlSent += left;
    if (m_controlSent == controlLimit) {
        if (isCutByReset)
            resetControl();
        else
            closeControl();
        dropData();
    }
}

void ScriptedFtpServer::writeSingleByte()
{
    if (m_control == nullptr || m_singleBytes.isEmpty())
        return;
    m_control->write(m_singleBytes.constData(), 1);
    m_control->flush();
    m_singleBytes.remove(0, 1);
    QTimer::singleShot(0, this, &ScriptedFtpServer::writeSingleByte);
}

void ScriptedFtpServer::closeControl()
{
    if (QTcpSocket* socket = m_control; socket != nullptr && !isInSingleBytes) {
        m_control = nullptr;
        socket->disconnect(this);
        socket->disconnectFromHost();
    }
}

void ScriptedFtpServer::resetControl()
{
    if (QTcpSocket* socket = m_control) {
        m_control = nullptr;
        socket->disconnect(this);
        sendReset(*socket);
        socket->deleteLater();
    }
}

quint16 ScriptedFtpServer::listenForData()
{
    dropData();
    m_dataServer.close();
    if (!m_dataServer.listen(m_server.serverAddress()))
        qFatal("no port for data");
    return m_dataServer.serverPort();
}

QByteArray ScriptedFtpServer::endpoint(quint16 port) const
{
    const QByteArray address = host().toLatin1().replace('.', ',');
    return address + ',' + QByteArray::number(port >> 8) + ',' + QByteArray::number(port & 255);
}

void ScriptedFtpServer::withData(DataUse use)
{
    if (m_data != nullptr) {
        use(*m_data);
        return;
    }
    m_use = std::move(use);
    if (m_activePort != 0)
        connectData(m_activeAddress, m_activePort);
}

void ScriptedFtpServer::connectData(const QHostAddress& address, quint16 port)
{
    auto* socket = new QTcpSocket(this);
    connect(socket, &QTcpSocket::connected, this, [this, socket] { useData(socket); });
    socket->connectToHost(address, port);
}

void ScriptedFtpServer::handleDataConnection()
{
    if (QTcpSocket* socket = m_dataServer.nextPendingConnection()) {
        socket->setParent(this);
        useData(socket);
    }
}

void ScriptedFtpServer::useData(QTcpSocket* socket)
{
    m_data = socket;
    if (const DataUse use = std::exchange(m_use, nullptr))
        use(*socket);
}

void ScriptedFtpServer::sendFile(const QByteArray& bytes, const QByteArray& lastReply)
{
    withData([this, bytes, lastReply](QTcpSocket& data) {
        const qint64 left = dataLimit < 0 ? bytes.size() : qMin<qint64>(bytes.size(), dataLimit - m_dataSent);
        m_dataSent += left;
        connect(&data, &QTcpSocket::disconnected, this, [this, lastReply] {
            dropData();
            reply(lastReply);
        });
        data.write(bytes.constData(), left);
        data.disconnectFromHost();
    });
}

void ScriptedFtpServer::dropData()
{
    m_use = nullptr;
    if (QTcpSocket* socket = m_data) {
        m_data = nullptr;
        socket->disconnect(this);
        socket->abort();
        socket->deleteLater();
    }
}
