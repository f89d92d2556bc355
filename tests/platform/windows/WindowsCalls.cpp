#include "tests/platform/windows/WindowsCalls.h"

#include <icmpapi.h>

#include <bit>
#include <cstdio>
#include <cstring>

WindowsCalls windowsCalls;

namespace {

uint32_t inNetworkOrder(uint32_t number)
{
    return std::endian::native == std::endian::little ? __builtin_bswap32(number) : number;
}

} // namespace

uint32_t inet_addr(const char* text)
{
    unsigned bytes[4] = {};
    if (std::sscanf(text, "%u.%u.%u.%u", &bytes[0], &bytes[1], &bytes[2], &bytes[3]) != 4)
        return 0xFFFFFFFF;
    return inNetworkOrder(bytes[0] << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3]);
}

char* inet_ntoa(in_addr address)
{
    const uint32_t number = inNetworkOrder(address.s_addr);
    windowsCalls.m_addressText = std::to_string(number >> 24) + '.' + std::to_string(number >> 16 & 255) +
                                 '.' + std::to_string(number >> 8 & 255) + '.' + std::to_string(number & 255);
    return windowsCalls.m_hasAddressText ? windowsCalls.m_addressText.data() : nullptr;
}

DWORD GetLastError()
{
    return windowsCalls.m_error;
}

HANDLE IcmpCreateFile()
{
    ++windowsCalls.m_handlesMade;
    return reinterpret_cast<HANDLE>(WindowsCalls::kHandle);
}

DWORD IcmpSendEcho(HANDLE handle, IPAddr destination, void* data, WORD dataSize,
                   IP_OPTION_INFORMATION* options, void* reply, DWORD replySize, DWORD timeoutMs)
{
    WindowsCalls& calls = windowsCalls;
    ++calls.m_echoes;
    calls.m_handle = reinterpret_cast<uintptr_t>(handle);
    calls.m_destination = inNetworkOrder(destination);
    calls.m_data.assign(static_cast<uint8_t*>(data), static_cast<uint8_t*>(data) + dataSize);
    calls.m_hasOptions = options != nullptr;
    calls.m_replySize = replySize;
    calls.m_timeoutMs = timeoutMs;
    if (calls.m_replyCount == 0)
        return 0;
    ICMP_ECHO_REPLY first{};
    first.Address = inNetworkOrder(calls.m_replier);
    first.Status = calls.m_status;
    first.RoundTripTime = calls.m_roundTripMs;
    // All that the caller has room for.
    std::memset(reply, 0, replySize);
    std::memcpy(reply, &first, sizeof first);
    return calls.m_replyCount;
}
