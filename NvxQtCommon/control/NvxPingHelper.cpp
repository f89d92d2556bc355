#include "NvxQtCommon/control/NvxPingHelper.h"

#include "NvxQtCommon/platform/IcmpEcho.h"

#include <QDebug>

#include <algorithm>
#include <array>
#include <string_view>

namespace {

constexpr std::string_view kEchoText = "Data Buffer";
constexpr size_t kEchoDataSize = 32;

std::array<uint8_t, kEchoDataSize> echoData()
{
    std::array<uint8_t, kEchoDataSize> data{};
    std::ranges::copy(kEchoText, data.begin());
    return data;
}

/// Intended: no line breaks but those that are written here.
std::string echoReport(const std::string& address, const EchoResult& result)
{
    if (result.replyCount == 0) {
        return "Call to IcmpSendEcho failed.\nIcmpSendEcho returned error: " + std::to_string(result.error) +
               (result.isPermitted ? "" : "\nICMP echo is not permitted to this program.");
    }
    return "Sent icmp message to " + address + "\nReceived " + std::to_string(result.replyCount) +
           (result.replyCount == 1 ? " icmp message response \n" : " icmp message responses \n") +
           "Information from the first response: Received from " + result.replier +
           "\nStatus = " + std::to_string(result.status) +
           "Roundtrip time = " + std::to_string(result.roundTripMs) + " milliseconds \n";
}

} // namespace

NvxPingHelper::NvxPingHelper(QObject* parent) : QObject(parent)
{
    registerNvxMetaTypes();
}

NvxPingResult NvxPingHelper::pingHost(const NvxIpAddr& addr, unsigned timeoutMs)
{
    const std::string address = addr.toString();
    const EchoResult result = sendEcho(address, echoData(), timeoutMs);
    qDebug().noquote() << QString::fromStdString(echoReport(address, result));
    return result.replyCount != 0 ? PingOk : PingFailed;
}
