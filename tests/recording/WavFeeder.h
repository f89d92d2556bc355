#pragma once

#include "NvxQtCommon/contract/recording/NvxWavWriter.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <vector>

class NvxWavEventData;

/// Drives a wave writer as the loggers do and keeps what it reports. The samples are a ramp: each one's value
/// is its running number, cut to the bit depth, plus the channel's number in the upper half of its bits.
class WavFeeder
{
public:
    explicit WavFeeder(NvxWavWriter& writer) : m_writer(writer) {}

    // What the stream is like; tests change it as they go.
    QString prefix = QStringLiteral("ABC0042_");
    unsigned channels = 1;
    unsigned rate = 1000;
    unsigned char bits = 16;
    bool blocksBigEndian = false;
    short gain = 12;

    /// Dispatches one event until it is consumed, at most `limit` times. False when it wasn't.
    bool process(NvxWavEventData& data, uint32_t time, uint64_t sequence, int limit = 10);
    bool info(uint32_t time, uint64_t startSample);
    bool setup(uint32_t time, uint64_t startSample);
    bool header(uint32_t time, uint64_t startSample);
    /// A block of `count` samples a channel; the ramp goes on from where the block before ended.
    bool block(uint32_t time, uint64_t sequence, unsigned short count);
    /// A second of the stream: header and `rate` samples in ten blocks.
    bool second(uint32_t time, uint64_t startSample);
    /// The sample that the ramp has for a running number.
    int32_t rampValue(uint64_t number, unsigned channel) const;

    uint64_t nextRamp = 0;
    QStringList newFiles;         ///< path of each new file, in order
    QList<uint32_t> newFileTimes; ///< time of the event at which it came
    int dispatches = 0;           ///< of the last event

private:
    NvxWavWriter& m_writer;
    std::vector<unsigned char> m_block;
};
