#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>
#include <vector>

/// What can go wrong with a simulated recorder or array controller. An *occasion* is the moment at which a
/// fault may strike: a message that is sent, an event header, a data block, a request or a connection, as
/// each line says. SimulatedArray tells what the faults are to an array controller.
enum class Fault : uint8_t {
    Split,          ///< message cut in two writes 20 ms apart; value: bytes of the first, 0 for any number
    Merge,          ///< message held back and sent in one write with the next one, at most 200 ms later
    Junk,           ///< random bytes ahead of a message; value: how many, 0 for 1 to 64
    BadChecksum,    ///< message with a wrong checksum
    RefuseSetup,    ///< job setup request refused; value: error code, 0 for 1
    RefuseTrigger,  ///< trigger refused; value: error code, 0 for 3
    TimeFailure,    ///< time reply of -1
    ScanBurst,      ///< collect reply cut short to 16 samples with the top bit of its mask set
    Silence,        ///< nothing is sent from this message on; value: milliseconds, 0 until the next start
                    ///< message
    Close,          ///< connection closed within a message; value: bytes sent before, 0 for any number
    Reset,          ///< the same with a reset instead of a close
    SequenceGap,    ///< event header whose sequence jumps forward; value: samples, 0 for one second
    SequenceBack,   ///< event header whose sequence jumps back; value: samples, 0 for one second
    NewEvent,       ///< a new event with another id begins at a data block; value: seconds added, 0 for 1
    RateChange,     ///< event header with another sample rate; value: Hz, 0 for half of the rate
    Notify,         ///< notification ahead of a data block; value: its code
    Oversize,       ///< count larger than what follows: samples of a data block (value 0), length of a frame
                    ///< (value 1), tags or triggers of a reply
    RolloverUp,     ///< rollover byte rises at an event header; value: by how much, 0 for 1
    RolloverDown,   ///< rollover byte falls at an event header; value: by how much, 0 for 1
    Loss,           ///< message not sent
    Duplicate,      ///< message sent twice
    Slow,           ///< message and all behind it held back; value: milliseconds, 0 for 200
    Refuse,         ///< connection reset 20 ms after it is made; change of network settings refused (value:
                    ///< code, 0 for 0xFFFF)
    Status,         ///< reply of an array controller that refuses; value: its code, 0 for 500 or 550
    Empty,          ///< reply or file of an array controller that is empty
    Malformed,      ///< the same cut short; value: bytes that stay, 0 for half of them
    ForeignSerial,  ///< reply or array frame with another's serial number; value: which, 0 for 65000
    MissingChannel, ///< array frames of one channel left out of a round; value: its place in the list, from 0
    FrameLength,    ///< array frame cut, or extended by zeros; value: its bytes
    BandWidth,      ///< array frame that claims other bins than it has; value: how many, 0 for 65535
};

/// Where a fault may strike, as bits.
enum FaultChannel : uint16_t {
    FaultOnControl = 1,
    FaultOnDiscovery = 2,
    FaultOnWave = 4,
    FaultOnSpectrum = 8,
    FaultOnSensor = 16,
    FaultOnEpoch = 32,
    FaultOnStreams = FaultOnWave | FaultOnSpectrum | FaultOnSensor | FaultOnEpoch,
    FaultOnHttp = 64,
    FaultOnFtp = 128,
    FaultOnFrames = 256,
    FaultOnAll = 511,
};

/// One fault and when it strikes.
struct FaultRule
{
    Fault fault = Fault::Loss;
    int64_t value = 0;        ///< meaning as told at Fault
    uint64_t after = 0;       ///< occasions that pass before the first strike
    uint64_t times = 0;       ///< strikes in all; 0 for no limit
    double chance = 1.0;      ///< of striking at an occasion, 0 to 1
    uint16_t on = FaultOnAll; ///< FaultChannel bits

    /// Parses "NAME[:key=value,...]" with the keys value, after, times, chance and on (control, discovery,
    /// wave, spectrum, sensor, epoch, streams, http, ftp, frames or all), such as
    /// "notify:value=3,after=20,times=1". Empty, with a sentence in `error`, for a text of another form.
    static std::optional<FaultRule> fromText(const QString& text, QString* error = nullptr);
    /// Names that fromText() knows, in the order of Fault.
    static QStringList names();
    /// Name of a fault in texts.
    static QString name(Fault fault);
};

/// The faults of one recorder or array controller and the seed that makes them repeatable: the same rules,
/// seed and order of messages give the same faults. A value class.
class FaultPlan
{
public:
    /// Seed 0 stands for a seed of the moment, which seed() then tells.
    explicit FaultPlan(uint64_t seed = 0);

    void add(const FaultRule& rule) { m_rules.push_back(rule); }
    const std::vector<FaultRule>& rules() const { return m_rules; }
    uint64_t seed() const { return m_seed; }
    bool isEmpty() const { return m_rules.empty(); }

private:
    uint64_t m_seed;
    std::vector<FaultRule> m_rules;
};

/// Decides for one channel of either when a fault of the plan strikes, and makes the random numbers that
/// go with it. Counts occasions over all connections of the channel.
class FaultDice
{
public:
    FaultDice() = default;
    FaultDice(const FaultPlan& plan, FaultChannel channel);

    /// True when no rule concerns the channel, so that nobody need ask.
    bool isEmpty() const { return m_rules.empty(); }
    /// Marks an occasion of `fault`: its rule's value when the fault strikes now, else empty.
    std::optional<int64_t> strike(Fault fault);
    /// A number from 0 to bound - 1; 0 for a bound of 0.
    uint64_t random(uint64_t bound);

private:
    struct Watch
    {
        FaultRule rule;
        uint64_t occasions = 0;
        uint64_t strikes = 0;
    };

    uint64_t m_state = 1;
    std::vector<Watch> m_rules;
};
