#pragma once

#include <QHostAddress>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

/// A port that lets connections hang: it listens, but its queue is full.
class HangingPort
{
public:
    explicit HangingPort(const QString& text)
    {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(QHostAddress(text).toIPv4Address());
        m_listener = newSocket();
        socklen_t size = sizeof m_address;
        if (bind(m_listener, address(), size) != 0 || listen(m_listener, 0) != 0 ||
            getsockname(m_listener, address(), &size) != 0)
            qFatal("no hanging port");
        for (int i = 0; i < 4; ++i)
            connect(newSocket(), address(), size);
    }
    ~HangingPort()
    {
        for (int socket : m_sockets)
            close(socket);
    }
    HangingPort(const HangingPort&) = delete;
    HangingPort& operator=(const HangingPort&) = delete;

    quint16 port() const { return ntohs(m_address.sin_port); }
    /// Takes one connection out of the queue, which then has room for one that hung; false if there was none.
    bool letIn()
    {
        const int accepted = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted >= 0)
            m_sockets.push_back(accepted);
        return accepted >= 0;
    }
    /// From now on the port refuses.
    void shut()
    {
        std::erase(m_sockets, m_listener);
        close(m_listener);
    }

private:
    sockaddr* address() { return reinterpret_cast<sockaddr*>(&m_address); }
    int newSocket()
    {
        m_sockets.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        return m_sockets.back();
    }

    sockaddr_in m_address{};
    std::vector<int> m_sockets;
    int m_listener = -1;
};
