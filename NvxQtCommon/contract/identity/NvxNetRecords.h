#pragma once

#include "NvxQtCommon/contract/base/ISerializable.h"
#include "NvxQtCommon/contract/identity/HydEnums.h"

#include <array>
#include <cstdint>
#include <string>

/// An IPv4 address; 0 means that there is none. The number's most significant byte is the first of the dotted
/// text.
class NVXQTCOMMON_EXPORT NvxIpAddr
{
public:
    NvxIpAddr() = default;
    NvxIpAddr(uint32_t address) : m_address(address) {}
    /// Four decimal numbers from 0 to 255 with dots between; any other text gives the address 0.
    NvxIpAddr(const std::string& dotted);

    uint32_t toInt() const { return m_address; }
    std::string toString() const;

    friend bool operator==(const NvxIpAddr&, const NvxIpAddr&) = default;

private:
    uint32_t m_address = 0;
};

/// A MAC address; all zero until set.
class NVXQTCOMMON_EXPORT NvxMacAddr
{
public:
    using Bytes = std::array<uint8_t, 6>;

    NvxMacAddr() = default;
    explicit NvxMacAddr(const Bytes& bytes) : m_bytes(bytes) {}

    const Bytes& bytes() const { return m_bytes; }
    /// Six pairs of lower-case hexadecimal digits with colons between.
    std::string toString() const;

    friend bool operator==(const NvxMacAddr&, const NvxMacAddr&) = default;

private:
    Bytes m_bytes{};
};

/// Network identity of a host: address, subnet mask, gateway, how the address is acquired, and its MAC
/// address.
class NVXQTCOMMON_EXPORT NvxNetHostInfo : public ISerializable
{
public:
    NvxNetHostInfo() = default;
    explicit NvxNetHostInfo(uint32_t address) : m_ipAddress(address) {}

    const NvxIpAddr& ipAddress() const { return m_ipAddress; }
    void setIpAddress(uint32_t address) { m_ipAddress = NvxIpAddr(address); }
    const NvxIpAddr& subnetMask() const { return m_subnetMask; }
    void setSubnetMask(uint32_t mask) { m_subnetMask = NvxIpAddr(mask); }
    const NvxIpAddr& gateway() const { return m_gateway; }
    void setGateway(uint32_t gateway) { m_gateway = NvxIpAddr(gateway); }
    NvxAddrMode addressMode() const { return m_addressMode; }
    void setAddressMode(NvxAddrMode mode) { m_addressMode = mode; }
    const NvxMacAddr& macAddress() const { return m_macAddress; }
    void setMacAddress(const NvxMacAddr& mac) { m_macAddress = mac; }

    /// 19 bytes: address, mask, gateway (4 each), mode (1), MAC (6).
    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

    friend NVXQTCOMMON_EXPORT bool operator==(const NvxNetHostInfo& a, const NvxNetHostInfo& b);

private:
    NvxIpAddr m_ipAddress;
    NvxIpAddr m_subnetMask;
    NvxIpAddr m_gateway;
    NvxAddrMode m_addressMode = AddrStatic;
    NvxMacAddr m_macAddress;
};
