#pragma once

#include <QByteArray>
#include <QString>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

/// A serial line without hardware: a pseudo terminal whose name a serial port opens, and its other end for
/// the test.
class SerialPair
{
public:
    SerialPair()
    {
        int slave = -1;
        char name[128] = {};
        termios raw{};
        cfmakeraw(&raw);
        if (openpty(&m_master, &slave, name, &raw, nullptr) == 0) {
            m_name = QString::fromLocal8Bit(name);
            fcntl(m_master, F_SETFL, O_NONBLOCK);
            // Kept open, so that the line doesn't hang up whenever the port is closed.
            m_slave = slave;
        }
    }
    ~SerialPair() { hangUp(); }
    SerialPair(const SerialPair&) = delete;
    SerialPair& operator=(const SerialPair&) = delete;

    bool isValid() const { return m_master >= 0; }
    /// Full name of the end for the port.
    QString portName() const { return m_name; }

    bool write(const QByteArray& bytes)
    {
        return ::write(m_master, bytes.constData(), static_cast<size_t>(bytes.size())) == bytes.size();
    }
    /// Everything that has arrived since the last call.
    QByteArray read()
    {
        QByteArray all;
        char piece[4096];
        for (ssize_t n = 0; (n = ::read(m_master, piece, sizeof(piece))) > 0;)
            all.append(piece, n);
        return all;
    }
    /// The line's settings as the port left them.
    termios settings() const
    {
        termios now{};
        tcgetattr(m_slave, &now);
        return now;
    }
    /// Makes the port's settings something else than what a recorder needs.
    void spoilSettings() const
    {
        auto now = settings();
        now.c_cflag = (now.c_cflag & ~tcflag_t(CSIZE)) | CS7 | PARENB | CSTOPB | CRTSCTS;
        now.c_iflag |= IXON | IXOFF;
        tcsetattr(m_slave, TCSANOW, &now);
    }
    /// The cable is pulled.
    void hangUp()
    {
        for (int* end : {&m_slave, &m_master}) {
            if (*end >= 0)
                ::close(*end);
            *end = -1;
        }
    }

private:
    int m_master = -1;
    int m_slave = -1;
    QString m_name;
};
