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
    if (adapter == nullptr || std::find(m_sources.begin(), m_sources.end(), adapter) != m_sources.end())
        return;
    m_sources.push_back(adapter);
    connect(adapter, &HydStreamAdapter::eventHeader, this,
            [this, adapter](const std::shared_ptr<HydStreamEventHeaderPayload>& header,
                            const HydDeviceId& devId) {
                if (header != nullptr)
                    takeHeader(*header, devId, adapter);
            });
    connect(adapter, &HydStreamAdapter::streamDataReady, this,
            [this, adapter](const std::shared_ptr<HydStreamDataPayload>& data, const HydDeviceId& devId) {
                if (data != nullptr)
                    takeData(*data, devId, adapter);
            });
    connect(adapter, &HydStreamAdapter::streamDataLost, this, &NvxStreamMonitor::handleStreamDataLost);
    connect(adapter, &HydStreamAdapter::streamConnected, this,
            [this, adapter] { takeConnected(adapter->deviceId(), adapter); });
    connect(adapter, &QObject::destroyed, this, [this](QObject* source) {
        // Another object may get the same address later.
        std::erase(m_sources, source);
        for (auto& [devId, channel] : m_channels)
            if (channel.source == source)
                channel.source = nullptr;
    });
}

void NvxStreamMonitor::detach(HydStreamAdapter* adapter)
{
    if (adapter == nullptr || std::erase(m_sources, adapter) == 0)
        return;
    disconnect(adapter, nullptr, this, nullptr);
}

std::vector<HydDeviceId> NvxStreamMonitor::devices() const
{
    std::vector<HydDeviceId> ids;
    ids.reserve(m_channels.size());
    for (const auto& [devId, channel] : m_channels)
        ids.push_back(devId);
    return ids;
}

NvxStreamStats NvxStreamMonitor::stats(const HydDeviceId& devId) const
{
    const auto found = m_channels.find(devId);
    return found == m_channels.end() ? NvxStreamStats{} : statsOf(found->second);
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
    for (const auto& [devId, channel] : m_channels) {
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
    return sum;
}

void NvxStreamMonitor::reset()
{
    m_channels.clear();
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
    ++m_channels[devId].counts.lossReports;
}

void NvxStreamMonitor::handleStreamConnected(const HydDeviceId& devId)
{
    takeConnected(devId, nullptr);
}

NvxStreamMonitor::Channel& NvxStreamMonitor::channel(const HydDeviceId& devId, const QObject* source)
{
    Channel& channel = m_channels[devId];
    if (source != nullptr && channel.source != source) {
        channel.source = source;
        channel.wasConnected = true;
    }
    return channel;
}

void NvxStreamMonitor::takeConnected(const HydDeviceId& devId, const QObject* source)
{
    Channel& own = m_channels[devId];
    const auto connected = [](Channel& channel) {
        if (channel.wasConnected)
            ++channel.counts.reconnects;
        channel.wasConnected = true;
        channel.measuredBlocks = 0;
    };
    connected(own);
    if (source == nullptr)
        return;
    own.source = source;
    // One connection may carry the streams of several devices.
    for (auto& [otherId, other] : m_channels)
        if (&other != &own && other.source == source)
            connected(other);
}

void NvxStreamMonitor::takeHeader(const HydStreamEventHeaderPayload& header, const HydDeviceId& devId,
                                  const QObject* source)
{
    Channel& channel = this->channel(devId, source);
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
    ++channel.counts.blocks;
    channel.counts.bytes += chunk->byteSize();
    channel.lastBlock = m_clock();
    if (!holdsSamples(data, channel.holdsSpectra))
        return;
    const Finding finding = accountSamples(channel, data.eventKey().get(), *chunk);
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

NvxStreamMonitor::Finding NvxStreamMonitor::accountSamples(Channel& channel, const HydEventKeyChunk* key,
                                                           const HydStreamDataChunk& chunk)
{
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

    const Event event{key->eventId(), key->sequence()};
    const int64_t position = samplePlus(event.sequence, chunk.sampleNum());
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
