#pragma once

#include "NvxQtCommon/contract/identity/NvxNetRecords.h"
#include "NvxQtCommon/contract/message/HydCommandPayload.h"

#include <cstdint>
#include <string>

/// Root of the payloads of discovery datagrams.
class NVXQTCOMMON_EXPORT HydMarcoCommandPayload : public HydCommandPayload
{
public:
    /// Kind byte of the datagram.
    virtual uint8_t kind() const = 0;
    /// UDP port at which the sender waits for the answer; travels in the datagram's header.
    uint16_t responsePort() const { return m_responsePort; }
    void setResponsePort(uint16_t port) { m_responsePort = port; }

private:
    uint16_t m_responsePort = 0;
};

/// Kind 1: "who is there" with wildcards (type 0, serial 0), and the answer with a device's own values.
class NVXQTCOMMON_EXPORT HydNetworkEnqireCmd : public HydMarcoCommandPayload,
                                               public DeserializationFactory<HydNetworkEnqireCmd>
{
public:
    static constexpr uint8_t kKind = 1;
    /// Length of the body in bytes.
    static constexpr size_t kBodySize = 22;

    uint8_t kind() const override { return kKind; }
    HydDeviceType deviceType() const { return m_deviceType; }
    void setDeviceType(HydDeviceType type) { m_deviceType = type; }
    uint16_t serialNo() const { return m_serialNo; }
    void setSerialNo(uint16_t serial) { m_serialNo = serial; }
    const NvxNetHostInfo& netInfo() const { return m_netInfo; }
    void setNetInfo(const NvxNetHostInfo& info) { m_netInfo = info; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    HydDeviceType m_deviceType = DevTypeAny;
    uint16_t m_serialNo = 0;
    NvxNetHostInfo m_netInfo;
};

/// Kind 2: gives a device new network settings; the answer carries an error code.
class NVXQTCOMMON_EXPORT HydChangeNetworkCmd : public HydMarcoCommandPayload,
                                               public DeserializationFactory<HydChangeNetworkCmd>
{
public:
    static constexpr uint8_t kKind = 2;
    /// Length of the body in bytes.
    static constexpr size_t kBodySize = 24;

    HydChangeNetworkCmd() = default;
    HydChangeNetworkCmd(uint8_t devType, uint16_t serial, const NvxNetHostInfo& info)
        : m_deviceType(static_cast<HydDeviceType>(devType)), m_serialNo(serial), m_netInfo(info)
    {
    }

    uint8_t kind() const override { return kKind; }
    HydDeviceType deviceType() const { return m_deviceType; }
    uint16_t serialNo() const { return m_serialNo; }
    const NvxNetHostInfo& netInfo() const { return m_netInfo; }
    /// The device's answer: 0 accepted, 0xFFFF and 1 to 6 refused (errorReason()).
    uint16_t error() const { return m_error; }
    void setError(uint16_t error) { m_error = error; }
    /// Text of an answer's code; empty for 0 and for codes without a text.
    static std::string errorReason(uint16_t error);

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    HydDeviceType m_deviceType = DevTypeAny;
    uint16_t m_serialNo = 0;
    uint16_t m_error = 0;
    NvxNetHostInfo m_netInfo;
};

/// Kind 3: restarts the device of a MAC address; the answer is the same record.
class NVXQTCOMMON_EXPORT HydResetDeviceCmd : public HydMarcoCommandPayload,
                                             public DeserializationFactory<HydResetDeviceCmd>
{
public:
    static constexpr uint8_t kKind = 3;
    /// Length of the body in bytes.
    static constexpr size_t kBodySize = 6;

    HydResetDeviceCmd() = default;
    explicit HydResetDeviceCmd(const NvxMacAddr& mac) : m_mac(mac) {}

    uint8_t kind() const override { return kKind; }
    const NvxMacAddr& macAddress() const { return m_mac; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    NvxMacAddr m_mac;
};
