#include "NvxQtSimulator/ArraySettings.h"

namespace {

// Hz: all tones lie below half of the standard sample rate.
constexpr double kLowestTone = 1000.0;
constexpr double kToneRange = 19200.0;

} // namespace

std::vector<ArrayChannel> ArraySettings::makeChannels(unsigned count, uint16_t firstSerial)
{
    std::vector<ArrayChannel> channels(count);
    for (unsigned i = 0; i < count; ++i) {
        ArrayChannel& channel = channels[i];
        channel.serial = static_cast<uint16_t>(firstSerial + i);
        channel.number = static_cast<uint8_t>(i + 1);
        channel.signal.kind = SignalSettings::Impulses;
        channel.signal.frequency = kLowestTone + kToneRange * i / count;
        channel.signal.levelDb = -78.0;
        channel.signal.impulseLevelDb = -55.0;
        channel.signal.impulseSeconds = 2.0;
        channel.signal.impulseLength = 1.5;
        channel.signal.seed = i + 1;
    }
    return channels;
}
