#pragma once

#include <cstdint>

/// A control message that arrived: when, in milliseconds since the recorder was made, by a steady clock.
struct CommandArrival
{
    char letter = 0;
    int64_t ms = 0;
};

/// What a simulated recorder has done so far, over all its connections.
struct RecorderCounters
{
    uint64_t commands = 0;        ///< control messages received
    uint64_t badCommands = 0;     ///< control messages that didn't read, or that a recorder has no answer to
    uint64_t channelsCut = 0;     ///< command channels reset, since a client took no replies
    uint64_t enquiries = 0;       ///< discovery datagrams answered
    uint64_t streamStarts = 0;    ///< start messages received, connections on the epoch port
    uint64_t bytesSent = 0;       ///< stream bytes handed to sockets
    uint64_t samplesSent = 0;     ///< wave samples of each channel handed to sockets
    uint64_t samplesDropped = 0;  ///< wave samples of each channel not sent, since a reader was too slow
    uint64_t framesDropped = 0;   ///< stream frames not sent, since a reader was too slow
    uint64_t faults = 0;          ///< faults that struck
    uint64_t samplesWithheld = 0; ///< wave samples of each channel that a loss or silence kept back or spoilt
};
