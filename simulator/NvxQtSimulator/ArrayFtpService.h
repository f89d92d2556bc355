#pragma once

#include "NvxQtSimulator/ArrayState.h"

#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

/// The FTP server of one simulated array controller: any user, passive transfers, and one file, which is
/// /Config/JOBSETUP.CFG.
class ArrayFtpService : public QObject
{
    Q_OBJECT

public:
    explicit ArrayFtpService(ArrayState* state);

    /// Listens on the controller's address.
    bool listen(QString* error);
    quint16 port() const { return m_server.serverPort(); }

private:
    void acceptConnections();

    ArrayState* m_state;
    QTcpServer m_server;
};

/// One control connection of it, with one transfer at a time. Deletes itself when the connection ends.
class ArrayFtpSession : public QObject
{
    Q_OBJECT

public:
    /// Bytes of a command line; a longer one ends the connection.
    static constexpr qint64 kMaxLine = 1024;

    ArrayFtpSession(QTcpSocket* control, ArrayState* state, QObject* parent);
    ~ArrayFtpSession() override;

private:
    enum class Transfer : uint8_t { None, Read, Write };

    void readCommands();
    void obey(const QByteArray& line);
    void answer(const QByteArray& verb, const QByteArray& argument);
    void reply(int code, const QByteArray& text);
    void openPassive(bool isExtended);
    void changeFolder(const QByteArray& name);
    bool isFile(const QByteArray& name) const;
    QString pathOf(const QByteArray& name) const;
    /// Begins a transfer, unless the file, the data port or the faults are against it.
    void begin(Transfer transfer, const QByteArray& name);
    void acceptData();
    void transferData();
    void takeUpload();
    void endTransfer();
    void dropData();

    QTcpSocket* m_control;
    ArrayState* m_state;
    std::unique_ptr<QTcpServer> m_passive;
    QPointer<QTcpSocket> m_data;
    Transfer m_transfer = Transfer::None;
    QString m_folder = QStringLiteral("/");
    QByteArray m_input; ///< commands that aren't obeyed yet
    QByteArray m_upload;
    bool m_isLoggedIn = false;
    bool m_isBusy = false;    ///< a reply is held back
    bool m_breaksOff = false; ///< both connections end where the file's bytes do
};
