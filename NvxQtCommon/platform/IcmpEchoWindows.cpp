#include "NvxQtCommon/platform/IcmpEcho.h"

// What the system's headers need has to stand before them, and these in this order.
#define _WINSOCK_DEPRECATED_NO_WARNINGS
// clang-format off
#include <winsock2.h>
#include <iphlpapi.h>
#include <icmpapi.h>
// clang-format on

namespace {

constexpr DWORD kReplySize = 72;

} // namespace

EchoResult sendEcho(const std::string& address, std::span<const uint8_t> data, unsigned timeoutMs)
{
    EchoResult result;
    alignas(ICMP_ECHO_REPLY) char reply[kReplySize] = {};
    const IPAddr destination = inet_addr(address.c_str());
    // Intended: the handle is not closed.
    const HANDLE handle = IcmpCreateFile();
    result.replyCount = IcmpSendEcho(handle, destination, const_cast<uint8_t*>(data.data()),
                                     static_cast<WORD>(data.size()), nullptr, reply, kReplySize, timeoutMs);
    if (result.replyCount == 0) {
        result.error = GetLastError();
        return result;
    }
    const auto* first = reinterpret_cast<const ICMP_ECHO_REPLY*>(reply);
    in_addr replier{};
    replier.s_addr = first->Address;
    if (const char* text = inet_ntoa(replier))
        result.replier = text;
    result.status = first->Status;
    result.roundTripMs = first->RoundTripTime;
    return result;
}
