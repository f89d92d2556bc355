#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QSocketNotifier>
#include <QString>

#include <cstdint>
#include <memory>

/// A serial line without hardware: the recorder's end of a pseudo terminal, whose other end a serial port
/// opens by portName(). It hears only what is sent at its own baud rate, and takes what it sends without
/// regard to the rate. Closing it is as pulling the cable. Where the system has no pseudo terminals, open()
/// fails and says so. Lives on the thread that opens it, which needs an event loop.
class PseudoTerminal : public QIODevice
{
    Q_OBJECT

public:
    /// Bytes that wait to be read; what comes beyond stays with the sender.
    static constexpr qint64 kMaxUnread = 65536;

    /// `baudRate` in bit/s: one of the rates that termios names from 1200 on.
    explicit PseudoTerminal(uint32_t baudRate, QObject* parent = nullptr);
    ~PseudoTerminal() override;

    bool open(OpenMode mode) override;
    void close() override;
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return m_unread.size() + QIODevice::bytesAvailable(); }
    qint64 bytesToWrite() const override { return m_unsent.size(); }
    /// Path of the end for the port; empty while the line isn't open.
    QString portName() const { return m_name; }
    /// The rate that the port set, in bit/s; 0 where it set none of those known.
    uint32_t portBaudRate() const;

protected:
    qint64 readData(char* data, qint64 maxSize) override;
    qint64 writeData(const char* data, qint64 size) override;

private:
    void receive();
    void sendWaiting();

    uint32_t m_baudRate;
    int m_ownEnd = -1;
    /// Kept open too, so that the line doesn't hang up whenever the port is closed.
    int m_portEnd = -1;
    QString m_name;
    QByteArray m_unread;
    QByteArray m_unsent;
    std::unique_ptr<QSocketNotifier> m_readable;
    std::unique_ptr<QSocketNotifier> m_writable;
};
