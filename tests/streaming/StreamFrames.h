#pragma once

#include "NvxQtCommon/contract/stream/HydStreamMessage.h"

#include <QByteArray>

#include <algorithm>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

/// Stream payloads as a recorder makes them, and their frames.
namespace streamframes {

inline std::shared_ptr<HydEventKeyChunkV1> key(uint32_t eventId, int64_t sequence)
{
    stKEY_CHUNK_V1 record;
    record.time = eventId;
    record.seqHigh = static_cast<uint32_t>(static_cast<uint64_t>(sequence) >> 32);
    record.seqLow = static_cast<uint32_t>(sequence);
    return std::make_shared<HydEventKeyChunkV1>(&record);
}

inline HydStreamSetupContainer waveSetup(uint32_t rate)
{
    stWAVE_SETUP_CHUNK_V0 record;
    record.sampleRate = rate;
    record.format = 2;
    return HydStreamSetupContainer(
        std::shared_ptr<HydWavSetupChunk const>(std::make_shared<HydWavSetupChunk>(&record)));
}

inline HydStreamSetupContainer spectrumSetup(uint32_t rate)
{
    stFFT_SETUP_CHUNK_V1 record;
    record.sampleRate = rate;
    return HydStreamSetupContainer(
        std::shared_ptr<HydFftSetupChunk const>(std::make_shared<HydFftSetupChunkV1>(&record)));
}

inline std::shared_ptr<HydStreamEventHeaderPayload>
headerWith(std::shared_ptr<HydEventKeyChunk const> eventKey, HydStreamSetupContainer setup)
{
    using Headers = HydStreamEventHeaderPayload;
    return std::make_shared<Headers>(
        std::move(eventKey), std::vector<std::shared_ptr<HydDeviceInfoChunk const>>{},
        std::vector<std::shared_ptr<HydStreamStatusChunk const>>{}, std::move(setup),
        std::vector<std::shared_ptr<HydAmplScalingChunk const>>{}, 1, nullptr);
}

inline std::shared_ptr<HydStreamEventHeaderPayload> header(uint32_t eventId, int64_t sequence,
                                                           uint32_t rate = 100)
{
    return headerWith(key(eventId, sequence), waveSetup(rate));
}

/// One channel of 16-bit samples, each with the low 16 bits of its sample number.
inline std::shared_ptr<HydStreamDataChunkV0> samples(uint32_t start, uint16_t count)
{
    auto* bytes = new unsigned char[count * size_t{2}];
    for (uint32_t i = 0; i < count; ++i) {
        const auto value = static_cast<uint16_t>(start + i);
        std::memcpy(bytes + i * size_t{2}, &value, sizeof value);
    }
    return std::make_shared<HydStreamDataChunkV0>(start, static_cast<unsigned char>(1),
                                                  static_cast<unsigned char>(0x82), count, bytes, false);
}

inline std::shared_ptr<HydStreamDataPayload> block(uint32_t eventId, int64_t sequence, uint32_t start,
                                                   uint16_t count)
{
    return std::make_shared<HydStreamDataPayload>(key(eventId, sequence), samples(start, count));
}

/// A spectrum with these byte values.
inline std::shared_ptr<HydStreamDataPayload> spectrum(std::span<const unsigned char> values,
                                                      uint32_t eventId = 1)
{
    auto bytes = std::make_shared<unsigned char[]>(values.size());
    std::copy(values.begin(), values.end(), bytes.get());
    return std::make_shared<HydStreamDataPayload>(
        key(eventId, 0), std::make_shared<HydStreamDataChunkV0>(
                             0U, static_cast<unsigned char>(1), static_cast<unsigned char>(131),
                             static_cast<uint16_t>(values.size()), std::move(bytes), values.size()));
}

/// The byte values of a payload.
inline std::vector<unsigned char> valuesOf(const HydStreamDataPayload& payload)
{
    const auto bytes = payload.data()->bytes();
    return {bytes.get(), bytes.get() + payload.data()->numSamples()};
}

inline std::shared_ptr<HydStatusDataPayload> status(int16_t temperature)
{
    stSTATUS_CHUNK_V0 record;
    record.temperature = temperature;
    auto payload = std::make_shared<HydStatusDataPayload>();
    payload->setStatusChunk(std::make_shared<HydStreamStatusChunkV0>(&record));
    return payload;
}

inline QByteArray frame(std::shared_ptr<HydStreamMessagePayload> payload)
{
    const auto bytes = HydStreamMessage(std::move(payload)).frame();
    return {reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size())};
}

} // namespace streamframes
