#include "NvxQtCommon/logging/WavBlockEvent.h"

#include "NvxQtCommon/logging/WavEventKey.h"

namespace {

unsigned long long sequenceOf(const HydStreamDataPayload& payload)
{
    const unsigned long long sequence = WavEventKey(payload.eventKey()).eventSequence();
    return payload.streamType == StreamWaveScan ? sequence - payload.data()->sampleNum() : sequence;
}

} // namespace

WavBlockEvent::WavBlockEvent(const HydStreamDataPayload& payload)
    : WavStreamEvent(&m_chunk, WavEventKey(payload.eventKey()).eventTime(), sequenceOf(payload)),
      m_samples(payload.data()->bytes())
{
    const HydStreamDataChunk& data = *payload.data();
    m_chunk.setBitDepth(data.bitDepth());
    m_chunk.setBigEndian(data.isBigEndian());
    m_chunk.setNumChannels(data.numChannels());
    m_chunk.setNumSamples(data.numSamples());
    m_chunk.setSampleNum(data.sampleNum());
    m_chunk.setData(m_samples.get());
}

WavBlockEvent::~WavBlockEvent() = default;
