#pragma once

#include "NvxQtSimulator/ArrayCgi.h"
#include "NvxQtSimulator/HttpRequestReader.h"

#include <QTcpServer>
#include <QTcpSocket>

/// The web server of one simulated array controller.
class ArrayHttpService : public QObject
{
    Q_OBJECT

public:
    explicit ArrayHttpService(ArrayState* state);

    /// Listens on the controller's address.
    bool listen(QString* error);
    quint16 port() const { return m_server.serverPort(); }

private:
    void acceptConnections();

    ArrayState* m_state;
    QTcpServer m_server;
};

/// One connection of it: answers requests one after the other. Deletes itself when the connection ends.
class ArrayHttpSession : public QObject
{
    Q_OBJECT

public:
    ArrayHttpSession(QTcpSocket* socket, ArrayState* state, QObject* parent);
    ~ArrayHttpSession() override;

private:
    void readRequests();
    void answer(const HttpRequest& request);
    void send(const ArrayCgi::Reply& reply, bool keepsAlive);
    bool breakWithin(const QByteArray& message);

    QTcpSocket* m_socket;
    ArrayState* m_state;
    ArrayCgi m_scripts;
    HttpRequestReader m_reader;
    bool m_isBusy = false; ///< a reply is held back
};
