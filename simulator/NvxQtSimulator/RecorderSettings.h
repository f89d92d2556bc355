#pragma once

#include "NvxQtCommon/contract/identity/HydEnums.h"
#include "NvxQtCommon/contract/job/HydJobSettings.h"
#include "NvxQtSimulator/FaultPlan.h"
#include "NvxQtSimulator/SignalSource.h"

#include <QHostAddress>

#include <cstdint>
#include <string>

/// Who a simulated recorder says it is.
struct RecorderIdentity
{
    HydDeviceType type = DevTypeRecorderA;
    uint16_t serial = 1234;
    std::string model = "Simulated recorder";
    std::string firmwareVersion = "1.0";
    std::string firmwareRelease = "2021-03-04";
    int16_t sensitivity = -1700; ///< tenths of a dB re 1 V/µPa
    int16_t temperature = 123;   ///< tenths of a degree Celsius
    uint16_t humidity = 255;     ///< tenths of a percent
    HydBattStatus batteryState = BattDischarging;
    uint8_t batteryPercent = 87;
};

/// Parts that a simulated recorder plays, as bits.
enum RecorderRole : uint8_t {
    RoleControl = 1,
    RoleDiscovery = 2,
    RoleWave = 4,
    RoleSpectrum = 8,
    RoleSensor = 16,
    RoleEpoch = 32,
    RoleAll = 63,
};

/// All that a SimulatedRecorder is made of. A plain record: fill it, hand it over.
struct RecorderSettings
{
    /// Stream ports of a recorder that nobody told otherwise.
    static constexpr uint16_t kWavePort = 51001;
    static constexpr uint16_t kSpectrumPort = 51002;
    static constexpr uint16_t kSensorPort = 51003;
    static constexpr uint16_t kEpochPort = 51004;
    /// Voltage at full scale, in each direction.
    static constexpr int32_t kFullScaleMicrovolts = 3000000;

    RecorderIdentity identity;
    /// The recorder's own address. Control and discovery ports are fixed by the protocol, so each recorder
    /// on a host needs an address of its own in 127.0.0.0/8.
    QHostAddress address = QHostAddress(QStringLiteral("127.0.0.2"));
    uint8_t roles = RoleAll; ///< RecorderRole bits

    /// Stream ports; 0 takes any free one, which SimulatedRecorder::streamPort() tells.
    uint16_t wavePort = kWavePort;
    uint16_t spectrumPort = kSpectrumPort;
    uint16_t sensorPort = kSensorPort;
    uint16_t epochPort = kEpochPort;

    /// The rate in bit/s at which the recorder also answers commands on a serial line, a pseudo terminal that
    /// it opens; 0 for no line. One of the usual rates from 1200 to 2000000; it hears nothing at others.
    uint32_t serialRate = 0;

    uint32_t sampleRate = 48000; ///< Hz, 1 to 512000
    unsigned bitDepth = 24;      ///< 16, 24 or 32
    HydByteOrder byteOrder = OrderLittleEndian;
    unsigned channels = 1; ///< 1 to 8
    SignalSettings signal;

    /// Device time minus host time in seconds.
    int64_t clockOffset = 0;
    /// Running sample number of the first sample after start().
    int64_t firstSequence = 0;
    /// Rollover byte of the status.
    uint8_t rollover = 1;
    /// Wave blocks a second: 1 to 1000.
    unsigned blocksPerSecond = 25;
    /// Send streams as fast as the reader takes them, not by the clock.
    bool unpaced = false;
    /// Seconds of samples or readings after which each wave, spectrum and sensor stream has sent all it had;
    /// 0 for no end.
    uint32_t streamSeconds = 0;
    /// Bytes that may wait for a slow reader on one stream. A paced stream drops blocks beyond it and counts
    /// them, an unpaced one stops producing.
    int64_t backlogLimit = 4 * 1024 * 1024;
    /// Seconds of samples, at least 1, that wait for the next data collect request; what is older is lost.
    unsigned scanMemorySeconds = 4;
    FaultPlan faults;
};
