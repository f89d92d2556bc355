#pragma once

#include <QHostAddress>

#include <atomic>
#include <functional>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

/// Answers the ICMP echo requests to a local address as a test wants it, on a thread of its own. The system
/// has to be told to answer none itself.
class EchoPeer
{
public:
    using Bytes = std::vector<uint8_t>;
    /// What to send for a request, IP header left out; its checksum is set afterwards.
    using Answer = std::function<std::vector<Bytes>(const Bytes& request)>;

    /// Listens at `address` and answers from `source`.
    EchoPeer(const QString& address, const QString& source, Answer answer)
        : m_listener(rawSocket(address)), m_sender(rawSocket(source)), m_answer(std::move(answer)),
          m_thread([this] { run(); })
    {
    }
    ~EchoPeer()
    {
        m_isStopped = true;
        m_thread.join();
        close(m_listener);
        close(m_sender);
    }
    EchoPeer(const EchoPeer&) = delete;
    EchoPeer& operator=(const EchoPeer&) = delete;

    /// Requests that were answered.
    int answered() const { return m_answered; }

    /// The request as the reply to itself.
    static Bytes replyTo(Bytes request)
    {
        request[0] = 0;
        return request;
    }

private:
    static int rawSocket(const QString& text)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(QHostAddress(text).toIPv4Address());
        const int descriptor = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
        if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            qFatal("no raw socket");
        return descriptor;
    }
    static void setChecksum(Bytes& packet)
    {
        packet[2] = packet[3] = 0;
        uint32_t sum = 0;
        for (size_t i = 0; i < packet.size(); ++i)
            sum += uint32_t{packet[i]} << (i % 2 == 0 ? 8 : 0);
        sum = (sum & 0xFFFF) + (sum >> 16);
        sum = ~((sum & 0xFFFF) + (sum >> 16));
        packet[2] = static_cast<uint8_t>(sum >> 8);
        packet[3] = static_cast<uint8_t>(sum);
    }

    void run()
    {
        constexpr size_t kIpHeaderSize = 20;
        constexpr uint8_t kRequest = 8;
        while (!m_isStopped) {
            pollfd waiting{m_listener, POLLIN, 0};
            if (poll(&waiting, 1, 10) <= 0)
                continue;
            Bytes packet(4096);
            sockaddr_in sender{};
            socklen_t size = sizeof sender;
            const ssize_t count = recvfrom(m_listener, packet.data(), packet.size(), 0,
                                           reinterpret_cast<sockaddr*>(&sender), &size);
            if (count < ssize_t(kIpHeaderSize) || packet[kIpHeaderSize] != kRequest)
                continue;
            packet.resize(size_t(count));
            packet.erase(packet.begin(), packet.begin() + kIpHeaderSize);
            for (Bytes& reply : m_answer(packet)) {
                setChecksum(reply);
                sendto(m_sender, reply.data(), reply.size(), 0, reinterpret_cast<const sockaddr*>(&sender),
                       sizeof sender);
            }
            ++m_answered;
        }
    }

    const int m_listener;
    const int m_sender;
    const Answer m_answer;
    std::atomic<bool> m_isStopped = false;
    std::atomic<int> m_answered = 0;
    std::thread m_thread;
};
