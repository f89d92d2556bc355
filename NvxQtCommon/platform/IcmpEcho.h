#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstdint>
#include <span>
#include <string>

/// What became of one ICMP echo.
struct EchoResult
{
    uint32_t replyCount = 0; ///< 0: nobody answered, or nothing could be sent
    std::string replier; ///< dotted address of the first reply's sender; may be another one than was asked
    uint32_t status = 0; ///< of the first reply, as the system gives it; 0 is success
    uint32_t roundTripMs = 0; ///< milliseconds, rounded down
    uint32_t error = 0;       ///< the system's error code when there is no reply
    bool isPermitted = true;  ///< false: the system lets this program send no echo at all
};

/// Sends one ICMP echo with `data` to a dotted IPv4 address and waits at most `timeoutMs` milliseconds for
/// the reply, blocking the calling thread; from any thread, also from several at once. On Windows by the
/// system's own echo service. Elsewhere by a datagram socket, or where this program may have none, by a raw
/// one; only an echo reply with the same data counts, and address 0 is nobody's.
NVXQTCOMMON_EXPORT EchoResult sendEcho(const std::string& address, std::span<const uint8_t> data,
                                       unsigned timeoutMs);
