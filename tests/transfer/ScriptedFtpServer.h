#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>
#include <map>

/// An FTP server whose answers a test writes. Until it does, the server behaves well: it takes any user, has
/// one listing and one file, keeps what is uploaded, and serves one client at a time. Lives on the event loop
/// of the test.
class ScriptedFtpServer : public QObject
{
    Q_OBJECT

public:
    /// What to do for a line, given what stands behind its verb.
    using Handler = std::function<void(ScriptedFtpServer&, const QByteArray& argument)>;
    using DataUse = std::function<void(QTcpSocket& data)>;

    /// Port 0 is any.
    explicit ScriptedFtpServer(const QHostAddress& address, quint16 port = 0);
    ~ScriptedFtpServer() override;

    QString host() const { return m_server.serverAddress().toString(); }
    quint16 port() const { return m_server.serverPort(); }

    /// Forgets all that a test has set, and what came; a connection that stands is cut.
    void reset();
    /// Answers lines with this verb by these bytes, and does nothing else.
    void answer(const QByteArray& verb, const QByteArray& bytes);
    void handle(const QByteArray& verb, Handler handler) { m_handlers[verb] = std::move(handler); }
    /// What it would have done for this verb.
    void behave(const QByteArray& verb, const QByteArray& argument = {});

    void reply(const QByteArray& bytes);
    void closeControl();
    void resetControl();
    /// Ends a connection by a reset.
    static void sendReset(QTcpSocket& socket);
    /// Runs as soon as the data connection stands, now if it does.
    void withData(DataUse use);
    /// Opens a port for data; gives its number.
    quint16 listenForData();
    void stopListeningForData() { m_dataServer.close(); }
    /// "h1,h2,h3,h4,p1,p2" of this port.
    QByteArray endpoint(quint16 port) const;
    /// Sends bytes on the data connection, closes it, and replies when it has gone.
    void sendFile(const QByteArray& bytes, const QByteArray& lastReply);

    QByteArray greeting;
    QByteArray file;
    QByteArray listing;
    /// Control bytes leave one by one.
    bool isInSingleBytes = false;
    /// After this many bytes of control or data since the connection the connection is closed; -1 is never.
    qint64 controlLimit = -1;
    qint64 dataLimit = -1;

    /// The cut by controlLimit is a reset.
    bool isCutByReset = false;

    /// Bytes of control since the connection.
    qint64 controlSent() const { return m_controlSent; }
    /// The lines that came, without their ends.
    QList<QByteArray> lines;
    QByteArray uploaded;
    int connections = 0;

Q_SIGNALS:
    void lineReceived();

private:
    void handleConnection();
    void handleDataConnection();
    void readLines();
    void obey(const QByteArray& line);
    void connectData(const QHostAddress& address, quint16 port);
    void useData(QTcpSocket* socket);
    void writeSingleByte();
    void dropData();

    QTcpServer m_server;
    QTcpServer m_dataServer;
    QPointer<QTcpSocket> m_control;
    QPointer<QTcpSocket> m_data;
    QHostAddress m_activeAddress;
    quint16 m_activePort = 0;
    std::map<QByteArray, Handler> m_handlers;
    DataUse m_use;
    QByteArray m_singleBytes;
    qint64 m_controlSent = 0;
    qint64 m_dataSent = 0;
};
