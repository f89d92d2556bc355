#include "NvxQtCommon/streaming/NvxStreamMonitor.h"

#include "NvxQtCommon/streaming/HydStreamAdapter.h"

#include <algorithm>

namespace {

std::chrono::nanoseconds steadyNow()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

// Numbers come from outside: sums and differences wrap instead of overflowing.
int64_t samplePlus(int64_t sample, uint64_t count)
{
    return static_cast<int64_t>(static_cast<uint64_t>(sample) + count);
}

int64_t samplesBetween(int64_t from, int64_t to)
{
    return static_cast<int64_t>(static_cast<uint64_t>(to) - static_cast<uint64_t>(from));
}

bool holdsSamples(const HydStreamMessagePayload& payload, bool isSpectrumChannel)
{
    // Payloads that were made by hand may bear the type of a wave stream although they hold spectra: the
    // setup of their header knows better.
    const HydStreamType type = payload.streamType;
    return !isSpectrumChannel &&
           (type == StreamWave || type == StreamRawWave || type == StreamWaveScan || type == StreamWaveFile);
}

} // namespace

NvxStreamMonitor::NvxStreamMonitor(QObject* parent) : QObject(parent), m_clock(steadyNow) {}

NvxStreamMonitor::~NvxStreamMonitor() = default;

void NvxStreamMonitor::setClock(Clock clock)
{
    m_clock = clock ? std::move(clock) : Clock(steadyNow);
}

void NvxStreamMonitor::attach(HydStreamAdapter* adapter)
{
    if (adapter == nullptr || m_links.contains(adapter))
        return;
    // The connections hang on an object of their own, so that detaching leaves those alone that others made.
    auto* link = (m_links[adapter] = std::make_unique<QObject>()).get();
    connect(adapter, &HydStreamAdapter::eventHeader, link,
            [this, adapter](const std::shared_ptr<HydStreamEventHeaderPayload>& header,
                            const HydDeviceId& devId) {
                if (header != nullptr)
                    takeHeader(*header, devId, adapter);
            });
    connect(adapter, &HydStreamAdapter::streamDataReady, link,
            [this, adapter](const std::shared_ptr<HydStreamDataPayload>& data, const HydDeviceId& devId) {
                if (data != nullptr)
                    takeData(*data, devId, adapter);
            });
    connect(adapter, &HydStreamAdapter::streamDataLost, link,
            [this, adapter](const HydDeviceId& devId) { ++channel(devId, adapter).counts.lossReports; });
    connect(adapter, &HydStreamAdapter::streamConnected, link,
            [this, adapter] { takeConnected(adapter->deviceId(), adapter); });
    // Another object may get the same address later.
    connect(adapter, &QObject::destroyed, link, [this](QObject* source) { forget(source); });
}

void NvxStreamMonitor::detach(HydStreamAdapter* adapter)
{
    forget(adapter);
}

void NvxStreamMonitor::forget(const QObject* source)
{
    const auto found = m_links.find(source);
    if (found == m_links.end())
        return;
    // One of the link's own connections may be what leads here.
    QObject* link = found->second.release();
    disconnect(source, nullptr, link, nullptr);
    link->deleteLater();
    m_links.erase(found);
    orphan(source);
}

/// What a source counted stays, and the next new source of the device goes on from there.
void NvxStreamMonitor::orphan(const QObject* source)
{
    for (auto& [devId, channels] : m_devices)
        for (Channel& channel : channels)
            if (channel.source == source)
                channel.source = nullptr;
}

std::vector<HydDeviceId> NvxStreamMonitor::devices() const
{
    std::vector<HydDeviceId> ids;
    ids.reserve(m_devices.size());
    for (const auto& [devId, channels] : m_devices)
        ids.push_back(devId);
    return ids;
}

NvxStreamStats NvxStreamMonitor::stats(const HydDeviceId& devId) const
{
    NvxStreamStats sum;
    if (const auto found = m_devices.find(devId); found != m_devices.end())
        addStats(sum, found->second);
    return sum;
}

NvxStreamStats NvxStreamMonitor::statsOf(const Channel& channel) const
{
    NvxStreamStats stats = channel.counts;
    if (stats.blocks != 0)
        stats.lastBlockAge = m_clock() - channel.lastBlock;
    const std::chrono::duration<double> span = channel.lastBlock - channel.firstBlock;
    if (channel.measuredBlocks > 1 && span.count() > 0.0)
        stats.actualRate =
            static_cast<double>(stats.samplesReceived - channel.samplesAtFirstBlock) / span.count();
    return stats;
}

NvxStreamStats NvxStreamMonitor::total() const
{
    NvxStreamStats sum;
    for (const auto& [devId, channels] : m_devices)
        addStats(sum, channels);
    return sum;
}

void NvxStreamMonitor::addStats(NvxStreamStats& sum, const std::vector<Channel>& channels) const
{
    for (const Channel& channel : channels) {
        const NvxStreamStats one = statsOf(channel);
        sum.headers += one.headers;
        sum.blocks += one.blocks;
        sum.bytes += one.bytes;
        sum.samplesReceived += one.samplesReceived;
        sum.samplesMissing += one.samplesMissing;
        sum.samplesRepeated += one.samplesRepeated;
        sum.gaps += one.gaps;
        sum.backwardJumps += one.backwardJumps;
        sum.lossReports += one.lossReports;
        sum.reconnects += one.reconnects;
        sum.nominalRate += one.nominalRate;
        sum.actualRate += one.actualRate;
        if (one.lastBlockAge)
            sum.lastBlockAge =
                sum.lastBlockAge ? std::min(*sum.lastBlockAge, *one.lastBlockAge) : *one.lastBlockAge;
    }
}

void NvxStreamMonitor::reset()
{
    m_devices.clear();
}

void NvxStreamMonitor::handleEventHeader(const std::shared_ptr<HydStreamEventHeaderPayload>& header,
                                         const HydDeviceId& devId, const std::shared_ptr<HydDevice>&)
{
    if (header != nullptr)
        takeHeader(*header, devId, nullptr);
}

void NvxStreamMonitor::handleStreamData(const std::shared_ptr<HydStreamDataPayload>& data,
                                        const HydDeviceId& devId)
{
    if (data != nullptr)
        takeData(*data, devId, nullptr);
}

void NvxStreamMonitor::handleStreamDataLost(const HydDeviceId& devId)
{
    ++channel(devId, nullptr).counts.lossReports;
}

void NvxStreamMonitor::handleStreamConnected(const HydDeviceId& devId)
{
    takeConnected(devId, nullptr);
}

NvxStreamMonitor::Channel& NvxStreamMonitor::channel(const HydDeviceId& devId, const QObject* source)
{
    std::vector<Channel>& channels = m_devices[devId];
    // Its own channel, else one that no source holds any more. A call without source takes what there is.
    auto found = std::ranges::find(channels, source, &Channel::source);
    if (found == channels.end())
        found = source != nullptr ? std::ranges::find(channels, nullptr, &Channel::source) : channels.begin();
    if (found == channels.end())
        found = channels.insert(found, Channel{});
    if (source != nullptr)
        found->source = source;
    return *found;
}

void NvxStreamMonitor::takeConnected(const HydDeviceId& devId, const QObject* source)
{
    const auto connected = [](Channel& channel) {
        if (channel.wasConnected)
            ++channel.counts.reconnects;
        channel.wasConnected = true;
        channel.measuredBlocks = 0;
    };
    Channel& own = channel(devId, source);
    connected(own);
    if (source == nullptr)
        return;
    // One connection may carry the streams of several devices.
    for (auto& [otherId, channels] : m_devices)
        for (Channel& other : channels)
            if (&other != &own && other.source == source)
                connected(other);
}

void NvxStreamMonitor::takeHeader(const HydStreamEventHeaderPayload& header, const HydDeviceId& devId,
                                  const QObject* source)
{
    Channel& channel = this->channel(devId, source);
    channel.wasConnected = channel.wasConnected || source != nullptr;
    ++channel.counts.headers;
    if (const auto setup = header.streamSetupChunk()->wavSetup();
        setup != nullptr && setup->sampleRate() != channel.counts.nominalRate) {
        channel.counts.nominalRate = setup->sampleRate();
        channel.measuredBlocks = 0;
    }
    channel.holdsSpectra = header.streamSetupChunk()->fftSetup() != nullptr;
    if (const auto& key = header.eventKey(); key != nullptr && holdsSamples(header, channel.holdsSpectra))
        report(beginEvent(channel, {key->eventId(), key->sequence()}), devId);
}

void NvxStreamMonitor::takeData(const HydStreamDataPayload& data, const HydDeviceId& devId,
                                const QObject* source)
{
    const HydStreamDataChunk* chunk = data.data().get();
    if (chunk == nullptr)
        return;
    Channel& channel = this->channel(devId, source);
    channel.wasConnected = channel.wasConnected || source != nullptr;
    ++channel.counts.blocks;
    channel.counts.bytes += chunk->byteSize();
    channel.lastBlock = m_clock();
    if (!holdsSamples(data, channel.holdsSpectra))
        return;
    const Finding finding = accountSamples(channel, data);
    // The first block of a measurement only marks its beginning: its samples were taken before it.
    if (channel.measuredBlocks++ == 0) {
        channel.firstBlock = channel.lastBlock;
        channel.samplesAtFirstBlock = channel.counts.samplesReceived;
    }
    report(finding, devId);
}

/// A header says where the numbering goes on. One that was there before says nothing.
NvxStreamMonitor::Finding NvxStreamMonitor::beginEvent(Channel& channel, const Event& event)
{
    if (event == channel.event || event == channel.eventBefore)
        return {};
    channel.eventBefore = channel.event;
    channel.event = event;
    return jumpTo(channel, event.sequence);
}

/// Moves the numbering to `sample` and counts what lies between.
NvxStreamMonitor::Finding NvxStreamMonitor::jumpTo(Channel& channel, int64_t sample)
{
    const int64_t expected = channel.nextSample.value_or(sample);
    channel.nextSample = sample;
    const int64_t distance = samplesBetween(expected, sample);
    if (distance > 0) {
        ++channel.counts.gaps;
        channel.counts.samplesMissing += static_cast<uint64_t>(distance);
        return {Finding::Kind::Gap, expected, distance};
    }
    if (distance < 0) {
        ++channel.counts.backwardJumps;
        return {Finding::Kind::BackwardJump, expected, sample};
    }
    return {};
}

NvxStreamMonitor::Finding NvxStreamMonitor::accountSamples(Channel& channel, const HydStreamDataPayload& data)
{
    const HydEventKeyChunk* key = data.eventKey().get();
    const HydStreamDataChunk& chunk = *data.data();
    const uint64_t count = chunk.numSamples();
    if (key == nullptr) {
        // A block that doesn't say where it belongs is taken to follow on the one before.
        channel.counts.samplesReceived += count;
        if (channel.nextSample)
            channel.nextSample = samplePlus(*channel.nextSample, count);
        return {};
    }

    if (count == 0)
        return {};

    // The key of a block out of scan messages or files bears the block's own first sample, that of a live
    // block the first sample of its event.
    const bool isOwnSequence = data.streamType == StreamWaveScan;
    const int64_t position = isOwnSequence ? key->sequence() : samplePlus(key->sequence(), chunk.sampleNum());
    const Event event{key->eventId(),
                      isOwnSequence ? samplePlus(position, -uint64_t{chunk.sampleNum()}) : key->sequence()};
    const int64_t behind = samplesBetween(position, channel.nextSample.value_or(position));
    const bool isCurrent = event == channel.event;
    // Blocks of this event or of earlier ones may come twice. Only a new event takes the numbering back.
    const bool isKnown =
        isCurrent || event == channel.eventBefore || (channel.event && event.id < channel.event->id);
    if (behind > 0 && isKnown) {
        const uint64_t repeated = std::min(count, static_cast<uint64_t>(behind));
        channel.counts.samplesRepeated += repeated;
        channel.counts.samplesReceived += count - repeated;
        channel.nextSample = samplePlus(*channel.nextSample, count - repeated);
        return {Finding::Kind::Duplicate, position, static_cast<int64_t>(repeated)};
    }
    if (!isCurrent) {
        // The header of this event got lost.
        channel.eventBefore = channel.event;
        channel.event = event;
    }
    const Finding finding = jumpTo(channel, position);
    channel.counts.samplesReceived += count;
    channel.nextSample = samplePlus(position, count);
    return finding;
}

void NvxStreamMonitor::report(const Finding& finding, const HydDeviceId& devId)
{
    switch (finding.kind) {
    case Finding::Kind::None:
        break;
    case Finding::Kind::Gap:
        Q_EMIT gapFound(devId, finding.first, finding.second);
        break;
    case Finding::Kind::Duplicate:
        Q_EMIT duplicateFound(devId, finding.first, finding.second);
        break;
    case Finding::Kind::BackwardJump:
        Q_EMIT backwardJumpFound(devId, finding.first, finding.second);
        break;
    }
}
