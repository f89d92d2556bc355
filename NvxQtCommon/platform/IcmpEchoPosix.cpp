#include "NvxQtCommon/platform/IcmpEcho.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <limits>
#include <netinet/in.h>
#include <poll.h>
#include <random>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>
#ifdef __linux__
#include <linux/icmp.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

constexpr uint8_t kEchoReply = 0;
constexpr uint8_t kEchoRequest = 8;
constexpr size_t kEchoHeaderSize = 8;
constexpr size_t kTypeAt = 0;
constexpr size_t kChecksumAt = 2;
constexpr size_t kIdentifierAt = 4;
constexpr size_t kSequenceAt = 6;
constexpr size_t kLargestIpHeader = 60;

int openRawSocket()
{
    const int descriptor = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
#ifdef ICMP_FILTER
    // It is given everybody's ICMP, also the request itself where the host is this one.
    const icmp_filter others{~(1U << kEchoReply)};
    if (descriptor >= 0)
        setsockopt(descriptor, SOL_RAW, ICMP_FILTER, &others, sizeof others);
#endif
    return descriptor;
}

/// A datagram socket for ICMP, else a raw one; closed at its end.
class EchoSocket
{
public:
    EchoSocket() : m_descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_ICMP))
    {
        if (m_descriptor < 0) {
            m_isRaw = true;
            m_descriptor = openRawSocket();
        }
    }
    ~EchoSocket()
    {
        if (isOpen())
            close(m_descriptor);
    }
    EchoSocket(const EchoSocket&) = delete;
    EchoSocket& operator=(const EchoSocket&) = delete;

    bool isOpen() const { return m_descriptor >= 0; }
    bool isRaw() const { return m_isRaw; }
    int descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
    bool m_isRaw = false;
};

uint16_t internetChecksum(const Bytes& packet)
{
    uint32_t sum = 0;
    for (size_t i = 0; i < packet.size(); ++i)
        sum += i % 2 == 0 ? uint32_t{packet[i]} << 8 : packet[i];
    while (sum > 0xFFFF)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

void putNumber(Bytes& packet, size_t at, uint16_t number)
{
    packet[at] = static_cast<uint8_t>(number >> 8);
    packet[at + 1] = static_cast<uint8_t>(number);
}

/// Identifier and sequence are drawn: a raw socket sees the replies to everybody's echoes.
Bytes echoRequest(std::span<const uint8_t> data)
{
    std::random_device random;
    Bytes packet(kEchoHeaderSize);
    packet[kTypeAt] = kEchoRequest;
    putNumber(packet, kIdentifierAt, static_cast<uint16_t>(random()));
    putNumber(packet, kSequenceAt, static_cast<uint16_t>(random()));
    packet.insert(packet.end(), data.begin(), data.end());
    putNumber(packet, kChecksumAt, internetChecksum(packet));
    return packet;
}

/// A raw socket gives the IP header too. No ICMP message that is looked at begins like one.
std::span<const uint8_t> withoutIpHeader(std::span<const uint8_t> received)
{
    if (received.empty() || received[0] >> 4 != 4)
        return received;
    return received.subspan(std::min<size_t>(received.size(), 4U * (received[0] & 0x0FU)));
}

bool isReplyTo(const Bytes& request, std::span<const uint8_t> reply, bool isRaw)
{
    if (reply.size() != request.size() || reply[kTypeAt] != kEchoReply || reply[kTypeAt + 1] != 0)
        return false;
    // The system puts an identifier of its own into what a datagram socket sends, and looks at it itself.
    const auto begin = static_cast<std::ptrdiff_t>(isRaw ? kIdentifierAt : kSequenceAt);
    return std::equal(request.begin() + begin, request.end(), reply.begin() + begin);
}

/// Milliseconds until `end`, rounded up.
int64_t millisecondsUntil(Clock::time_point end)
{
    return std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
}

/// Waits for the reply to `request`; fills the result.
void awaitReply(const EchoSocket& echo, const Bytes& request, unsigned timeoutMs, EchoResult& result)
{
    const Clock::time_point begin = Clock::now();
    const Clock::time_point end = begin + std::chrono::milliseconds(timeoutMs);
    // One byte more than fits, so that a longer reply is none.
    Bytes buffer(kLargestIpHeader + request.size() + 1);
    int64_t left = 0;
    do {
        left = std::clamp<int64_t>(millisecondsUntil(end), 0, std::numeric_limits<int>::max());
        pollfd waiting{echo.descriptor(), POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(left)) <= 0)
            continue;
        sockaddr_in sender{};
        socklen_t senderSize = sizeof sender;
        const ssize_t size = recvfrom(echo.descriptor(), buffer.data(), buffer.size(), MSG_DONTWAIT,
                                      reinterpret_cast<sockaddr*>(&sender), &senderSize);
        if (size < 0 && errno != EAGAIN && errno != EINTR) {
            result.error = static_cast<uint32_t>(errno);
            return;
        }
        const size_t count = size < 0 ? 0 : static_cast<size_t>(size);
        if (!isReplyTo(request, withoutIpHeader(std::span(buffer).first(count)), echo.isRaw()))
            continue;
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &sender.sin_addr, text, sizeof text);
        result.replyCount = 1;
        result.replier = text;
        result.roundTripMs = static_cast<uint32_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count());
        return;
    } while (left > 0);
    result.error = ETIMEDOUT;
}

} // namespace

EchoResult sendEcho(const std::string& address, std::span<const uint8_t> data, unsigned timeoutMs)
{
    EchoResult result;
    sockaddr_in destination{};
    destination.sin_family = AF_INET;
    destination.sin_addr.s_addr = inet_addr(address.c_str());
    if (destination.sin_addr.s_addr == INADDR_ANY) {
        // The system would take it for its own address and answer.
        result.error = EDESTADDRREQ;
        return result;
    }
    const EchoSocket echo;
    if (!echo.isOpen()) {
        result.error = static_cast<uint32_t>(errno);
        result.isPermitted = errno != EPERM && errno != EACCES;
        return result;
    }
    const Bytes request = echoRequest(data);
    if (sendto(echo.descriptor(), request.data(), request.size(), 0,
               reinterpret_cast<const sockaddr*>(&destination), sizeof destination) < 0) {
        result.error = static_cast<uint32_t>(errno);
        return result;
    }
    awaitReply(echo, request, timeoutMs, result);
    return result;
}
