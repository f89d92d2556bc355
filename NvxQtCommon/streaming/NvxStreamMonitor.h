#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <QObject>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

class HydStreamAdapter;

/// What a stream monitor knows of one device. Samples are counted per channel.
struct NVXQTCOMMON_EXPORT NvxStreamStats
{
    uint64_t headers = 0;
    /// Blocks of samples or spectra, repeated ones included.
    uint64_t blocks = 0;
    /// Bytes of samples or of spectrum bins in these blocks.
    uint64_t bytes = 0;
    uint64_t samplesReceived = 0;
    /// Samples that the numbering skipped.
    uint64_t samplesMissing = 0;
    /// Samples that came although they had come before; not in samplesReceived.
    uint64_t samplesRepeated = 0;
    uint64_t gaps = 0;
    /// Times that the numbering went back and went on from there, a restart at 0 among them.
    uint64_t backwardJumps = 0;
    /// Losses that the stream itself reported (scan messages); how much is lost is not known.
    uint64_t lossReports = 0;
    /// Connections after the first.
    uint64_t reconnects = 0;
    /// Hz, from the last wave setup; 0 before one.
    uint32_t nominalRate = 0;
    /// Samples received in a second, on average since the first block, the last reconnection or the last
    /// change of the nominal rate; 0 before two blocks came since.
    double actualRate = 0.0;
    /// Time since the last block; empty before one.
    std::optional<std::chrono::nanoseconds> lastBlockAge;
};

/// Accounts for every sample of the streams that it is attached to, device by device, from the sequence and
/// sample numbers of headers and blocks: what came, what is missing, what came twice. Works for stream
/// adapters and for whatever else has their signals, such as replays. Owned by the application; it and its
/// sources live on one thread. Blocks of spectra are counted, without samples. A block costs no allocation.
class NVXQTCOMMON_EXPORT NvxStreamMonitor : public QObject
{
    Q_OBJECT

public:
    /// A clock that never goes back.
    using Clock = std::function<std::chrono::nanoseconds()>;

    explicit NvxStreamMonitor(QObject* parent = nullptr);
    ~NvxStreamMonitor() override;

    /// Listens to the adapter until it is deleted or detached. Attaching twice is the same as once.
    void attach(HydStreamAdapter* adapter);
    /// What was counted stays.
    void detach(HydStreamAdapter* adapter);

    /// Devices that anything is known of, in their order.
    std::vector<HydDeviceId> devices() const;
    /// All 0 for a device that nothing is known of.
    NvxStreamStats stats(const HydDeviceId& devId) const;
    /// Sums of the counts over all devices; rates are summed too, the age is that of the newest block.
    NvxStreamStats total() const;
    /// Forgets all counts and numberings; attached sources stay attached.
    void reset();

    /// Replaces the steady clock.
    void setClock(Clock clock);

Q_SIGNALS:
    /// The samples `firstMissing` to `firstMissing + count - 1` of the device's numbering didn't come.
    void gapFound(HydDeviceId devId, qint64 firstMissing, qint64 count);
    /// The samples `first` to `first + count - 1` came once more.
    void duplicateFound(HydDeviceId devId, qint64 first, qint64 count);
    /// The numbering went on at `found` where `expected`, a larger number, was due.
    void backwardJumpFound(HydDeviceId devId, qint64 expected, qint64 found);

public Q_SLOTS:
    void handleEventHeader(const std::shared_ptr<HydStreamEventHeaderPayload>& header,
                           const HydDeviceId& devId, const std::shared_ptr<HydDevice>& dev);
    void handleStreamData(const std::shared_ptr<HydStreamDataPayload>& data, const HydDeviceId& devId);
    void handleStreamDataLost(const HydDeviceId& devId);
    /// The device's stream is connected; all but the first time count as reconnections.
    void handleStreamConnected(const HydDeviceId& devId);

private:
    struct Event
    {
        uint64_t id = 0;
        int64_t sequence = 0;
        friend bool operator==(const Event&, const Event&) = default;
    };
    /// One stream of a device: what one source says of it.
    struct Channel
    {
        NvxStreamStats counts;
        const QObject* source = nullptr;
        bool wasConnected = false;
        bool holdsSpectra = false;
        std::optional<Event> event;
        std::optional<Event> eventBefore;
        std::optional<int64_t> nextSample;
        std::chrono::nanoseconds firstBlock{};
        std::chrono::nanoseconds lastBlock{};
        uint64_t measuredBlocks = 0;
        uint64_t samplesAtFirstBlock = 0;
    };

    /// What the numbers of a header or block show; reported once the counts are up to date.
    struct Finding
    {
        enum class Kind { None, Gap, Duplicate, BackwardJump };
        Kind kind = Kind::None;
        int64_t first = 0;
        int64_t second = 0;
    };

    Channel& channel(const HydDeviceId& devId, const QObject* source);
    void forget(const QObject* source);
    void orphan(const QObject* source);
    void takeHeader(const HydStreamEventHeaderPayload& header, const HydDeviceId& devId,
                    const QObject* source);
    void takeData(const HydStreamDataPayload& data, const HydDeviceId& devId, const QObject* source);
    void takeConnected(const HydDeviceId& devId, const QObject* source);
    static Finding beginEvent(Channel& channel, const Event& event);
    static Finding jumpTo(Channel& channel, int64_t sample);
    static Finding accountSamples(Channel& channel, const HydStreamDataPayload& data);
    void report(const Finding& finding, const HydDeviceId& devId);
    NvxStreamStats statsOf(const Channel& channel) const;
    void addStats(NvxStreamStats& sum, const std::vector<Channel>& channels) const;

    std::map<HydDeviceId, std::vector<Channel>> m_devices;
    std::map<const QObject*, std::unique_ptr<QObject>> m_links;
    Clock m_clock;
};
