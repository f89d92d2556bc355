#pragma once

#include <QObject>
#include <QTcpSocket>
#include <QTimer>

/// A fresh connection to the web socket of a simulated array controller, until the head of its request is
/// whole: what is too slow or too long ends there. Deletes itself.
class ArrayHandshake : public QObject
{
    Q_OBJECT

public:
    /// Bytes of a head.
    static constexpr qint64 kMaxHead = 16384;
    static constexpr int kTimeoutMs = 10000;

    ArrayHandshake(QTcpSocket* socket, QObject* parent);
    ~ArrayHandshake() override;

Q_SIGNALS:
    /// The head is there to be read; who takes the socket owns it.
    void received(QTcpSocket* socket);

private:
    void look();

    QTcpSocket* m_socket;
    QTimer m_patience;
};
