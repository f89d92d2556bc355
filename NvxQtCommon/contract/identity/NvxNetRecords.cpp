#include "NvxQtCommon/contract/identity/NvxNetRecords.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace {

uint32_t parseDottedAddress(std::string_view text)
{
    uint32_t address = 0;
    for (int part = 0; part < 4; ++part) {
        const auto length = std::min(text.find('.'), text.size());
        uint8_t number = 0;
        const auto [end, fault] = std::from_chars(text.data(), text.data() + length, number);
        if (fault != std::errc() || end != text.data() + length || length > 3)
            return 0;
        address = (address << 8) | number;
        text.remove_prefix(length);
        const bool dotFollows = text.starts_with('.');
        if (dotFollows != (part < 3))
            return 0;
        if (dotFollows)
            text.remove_prefix(1);
    }
    return address;
}

} // namespace

NvxIpAddr::NvxIpAddr(const std::string& dotted) : m_address(parseDottedAddress(dotted)) {}

std::string NvxIpAddr::toString() const
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += std::to_string((m_address >> shift) & 0xFFU);
        if (shift > 0)
            text += '.';
    }
    return text;
}

std::string NvxMacAddr::toString() const
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : m_bytes) {
        if (!text.empty())
            text += ':';
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

void NvxNetHostInfo::serialize(ByteStream& out) const
{
    out.putU32(m_ipAddress.toInt());
    out.putU32(m_subnetMask.toInt());
    out.putU32(m_gateway.toInt());
    out.putU8(m_addressMode);
    out.putBytes(m_macAddress.bytes());
}

bool NvxNetHostInfo::deserialize(ByteReader& in)
{
    m_ipAddress = NvxIpAddr(in.u32());
    m_subnetMask = NvxIpAddr(in.u32());
    m_gateway = NvxIpAddr(in.u32());
    m_addressMode = static_cast<NvxAddrMode>(in.u8());
    const auto mac = in.take(NvxMacAddr::Bytes().size());
    NvxMacAddr::Bytes bytes{};
    std::copy(mac.begin(), mac.end(), bytes.begin());
    m_macAddress = NvxMacAddr(bytes);
    return in.ok();
}

bool operator==(const NvxNetHostInfo& a, const NvxNetHostInfo& b)
{
    return a.m_ipAddress == b.m_ipAddress && a.m_subnetMask == b.m_subnetMask && a.m_gateway == b.m_gateway &&
           a.m_addressMode == b.m_addressMode && a.m_macAddress == b.m_macAddress;
}
