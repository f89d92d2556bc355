#pragma once

#include <cstdint>

// Enumerations that every room uses. The numbers are fixed: devices, files and callers compare against them.

/// Kind of a device, one byte.
enum HydDeviceType : uint8_t {
    DevTypeAny = 0, ///< wildcard of a search, and the type of a fresh record
    DevTypeRecorderA = 5,
    DevTypeRecorderB = 7,
    DevTypeTmi = 8,
    DevTypeTdRec = 13,
    DevTypeSkiff = 15,    ///< recorder behind an array controller
    DevTypeZcr = 16,      ///< array controller
    DevTypeSpecFile = 67, ///< spectrum file replayed as a stream
    DevTypeWavFile = 68,  ///< wave file replayed as a stream
};

enum HydConnectionType : uint8_t {
    ConnTcp = 0,
    ConnSerial = 1,
};

enum HydChannel : uint8_t {
    ChanCommand = 0,
};

/// A port number itself, 0 to 65535. The two fixed ones are named; stream ports are the application's.
enum HydPort : uint16_t {
    PortMarco = 62726,
    PortControl = 50000,
};

enum HydPortConnStatus : uint8_t {
    PortUnavailable = 1, ///< the port did not answer
    PortReachable = 2,   ///< the port answers, or the channel was closed
    PortConnected = 3,   ///< the command channel is open
};

enum HydNetworkStatus : uint8_t {
    HostReachable = 0,
    HostUnreachable = 1,
    HostNoAddress = 2, ///< the record holds no usable address
};

enum NvxPingResult : uint8_t {
    PingOk = 1,
    PingFailed = 3,
};

/// State of a job setup kept in the device record.
enum HydConfigStat : uint8_t {
    ConfigNone = 0,
    ConfigPending = 1,   ///< a setup has been sent
    ConfigConfirmed = 2, ///< the device accepted it
    ConfigRejected = 3,  ///< the device refused it
};

/// Battery state as the device reports it. The library copies it and compares nothing.
enum HydBattStatus : uint8_t {
    BattUnknown = 0,
    BattDischarging = 1,
    BattCharging = 2,
    BattFull = 3,
    BattExternal = 4,
};

/// How a host gets its address.
enum NvxAddrMode : uint8_t {
    AddrStatic = 0,
    AddrDhcp = 1,
    AddrLinkLocal = 2,
};
