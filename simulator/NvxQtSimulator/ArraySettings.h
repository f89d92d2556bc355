#pragma once

#include "NvxQtSimulator/FaultPlan.h"
#include "NvxQtSimulator/SignalSource.h"

#include <QHostAddress>

#include <cstdint>
#include <vector>

/// One hydrophone behind a simulated array controller.
struct ArrayChannel
{
    uint16_t serial = 0;
    uint8_t number = 0;         ///< channel number in its frames
    int16_t sensitivity = -170; ///< dB re 1 V/µPa
    uint16_t temperature = 123; ///< tenths of a degree Celsius
    SignalSettings signal;
};

/// Parts that a simulated array controller plays, as bits; what it doesn't play refuses connections.
enum ArrayRole : uint8_t {
    ArrayRoleHttp = 1,
    ArrayRoleFtp = 2,
    ArrayRoleFrames = 4,
    ArrayRoleAll = 7,
};

/// All that a SimulatedArray is made of. A plain record: fill it, hand it over.
struct ArraySettings
{
    static constexpr size_t kMaxChannels = 64;
    static constexpr uint16_t kHttpPort = 80;
    static constexpr uint16_t kFtpPort = 21;
    static constexpr uint16_t kFramePort = 51675;

    uint16_t serial = 600; ///< of the controller itself
    /// The controller's own address: its ports are fixed by the protocol.
    QHostAddress address = QHostAddress(QStringLiteral("127.0.0.60"));
    uint8_t roles = ArrayRoleAll; ///< ArrayRole bits

    // 0 takes any free port, for clients that can be told one.
    uint16_t httpPort = kHttpPort;
    uint16_t ftpPort = kFtpPort;
    uint16_t framePort = kFramePort;

    /// At most kMaxChannels; what is more is left out.
    std::vector<ArrayChannel> channels = makeChannels(8);
    uint32_t sampleRate = 48000;   ///< Hz, 1 to 512000
    uint16_t points = 1024;        ///< of a spectrum, a power of two from 128 to 16384; half as many bins
    int32_t referenceDb = -100;    ///< dB re 1 V: level of the bin value 0
    unsigned framesPerSecond = 10; ///< of each channel, 1 to 1000
    /// Controller time minus host time in seconds.
    int64_t clockOffset = 0;
    /// Bytes that may wait for a slow reader of frames; frames beyond it are dropped and counted.
    int64_t backlogLimit = 4 * 1024 * 1024;
    FaultPlan faults;

    /// Channels with the serial numbers from `firstSerial` on: each has a tone of its own above some noise,
    /// which comes and goes. The tones are spread from 1000 to 20200 Hz, the last one left out.
    static std::vector<ArrayChannel> makeChannels(unsigned count, uint16_t firstSerial = 1001);
};

/// What a simulated array controller has done so far, over all its connections.
struct ArrayCounters
{
    uint64_t requests = 0;       ///< HTTP requests
    uint64_t badRequests = 0;    ///< those among them that were refused, and heads that were too long
    uint64_t fileReads = 0;      ///< whole configuration files sent
    uint64_t fileWrites = 0;     ///< whole configuration files received
    uint64_t connectionsCut = 0; ///< connections that were too many, or asked too much
    uint64_t frameClients = 0;   ///< web sockets opened
    uint64_t framesSent = 0;
    uint64_t framesDropped = 0; ///< frames not sent, since a reader was too slow
    uint64_t faults = 0;        ///< faults that struck
};
