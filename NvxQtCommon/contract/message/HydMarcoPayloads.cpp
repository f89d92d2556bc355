#include "NvxQtCommon/contract/message/HydMarcoPayloads.h"

#include <algorithm>

std::string HydChangeNetworkCmd::errorReason(uint16_t error)
{
    switch (error) {
    case 0xFFFF:
        return "An error occured in the device."; // The spelling is intended: a fixed text.
    case 1:
        return "The IP address was invalid.";
    case 2:
        return "The subnet was invalid.";
    case 3:
        return "The gateway address was invalid.";
    case 4:
        return "The IP address was a broadcast address.";
    case 5:
        return "The IP address given was the same as the device's existing address.";
    case 6:
        return "The address acquisition mode was invalid.";
    default:
        return {};
    }
}

void HydNetworkEnqireCmd::serialize(ByteStream& out) const
{
    out.putU8(m_deviceType);
    out.putU16(m_serialNo);
    m_netInfo.serialize(out);
}

bool HydNetworkEnqireCmd::deserialize(ByteReader& in)
{
    m_deviceType = static_cast<HydDeviceType>(in.u8());
    m_serialNo = in.u16();
    return m_netInfo.deserialize(in);
}

void HydChangeNetworkCmd::serialize(ByteStream& out) const
{
    out.putU8(m_deviceType);
    out.putU16(m_serialNo);
    out.putU16(m_error);
    m_netInfo.serialize(out);
}

bool HydChangeNetworkCmd::deserialize(ByteReader& in)
{
    m_deviceType = static_cast<HydDeviceType>(in.u8());
    m_serialNo = in.u16();
    m_error = in.u16();
    return m_netInfo.deserialize(in);
}

void HydResetDeviceCmd::serialize(ByteStream& out) const
{
    out.putBytes(m_mac.bytes());
}

bool HydResetDeviceCmd::deserialize(ByteReader& in)
{
    const auto bytes = in.take(NvxMacAddr::Bytes().size());
    NvxMacAddr::Bytes mac{};
    std::ranges::copy(bytes, mac.begin());
    m_mac = NvxMacAddr(mac);
    return in.ok();
}
