#include "NvxQtCommon/contract/stream/HydStreamMessage.h"

#include <algorithm>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace {

void putChunk(ByteStream& out, const HydStreamChunk& chunk, uint16_t type)
{
    out.putU16(type);
    const size_t lengthAt = out.size();
    out.putU32(0);
    chunk.serialize(out);
    out.patchU32(lengthAt, static_cast<uint32_t>(out.size() - lengthAt - 4));
}

template <class Chunk> void putChunk(ByteStream& out, const std::shared_ptr<Chunk>& chunk)
{
    if (chunk)
        putChunk(out, *chunk, chunk->chunkType());
}

template <class Chunk> const Chunk* at(const std::vector<std::shared_ptr<Chunk>>& chunks, size_t index)
{
    return index < chunks.size() ? chunks[index].get() : nullptr;
}

void putChunks(ByteStream& out, const HydStreamEventHeaderPayload& header)
{
    out.putU16(ChunkEventInfo);
    out.putU32(2);
    out.putU8(header.numChannels());
    out.putU8(header.isAdjacent() ? 1 : 0);
    putChunk(out, header.eventKey());
    if (header.arrayMasterInfo())
        putChunk(out, *header.arrayMasterInfo(), ChunkArrayMaster);
    const size_t count = std::max(header.deviceInfoChunks().size(), header.streamStatusChunks().size());
    for (size_t i = 0; i < count; ++i) {
        if (const auto* device = at(header.deviceInfoChunks(), i))
            putChunk(out, *device, ChunkDeviceInfo);
        if (const auto* status = at(header.streamStatusChunks(), i))
            putChunk(out, *status, ChunkStatus);
    }
    putChunk(out, header.streamSetupChunk()->wavSetup());
    putChunk(out, header.streamSetupChunk()->fftSetup());
    for (const auto& scaling : header.amplScalingChunks())
        putChunk(out, scaling);
}

void putChunks(ByteStream& out, const HydStreamNotifyPayload& notify)
{
    out.putU16(ChunkNotify);
    const size_t lengthAt = out.size();
    out.putU32(0);
    out.putU16(notify.errorCode());
    out.putText(notify.text());
    out.patchU32(lengthAt, static_cast<uint32_t>(out.size() - lengthAt - 4));
}

void putChunks(ByteStream& out, const HydStatusDataPayload& status)
{
    putChunk(out, status.eventKey());
    putChunk(out, status.statusChunk());
    putChunk(out, status.headChunk());
    putChunk(out, status.batteryChunk());
    putChunk(out, status.accMagChunk());
    putChunk(out, status.timeSyncChunk());
    putChunk(out, status.triggerChunk());
}

/// Calls `handle(type, body reader)` for each chunk until it gives false.
template <class Handler> bool eachChunk(std::span<const uint8_t> chunks, Handler handle)
{
    ByteReader in(chunks);
    while (!in.atEnd()) {
        const uint16_t type = in.u16();
        const uint32_t length = in.u32();
        ByteReader body(in.take(length));
        if (!in.ok() || !handle(type, body))
            return false;
    }
    return true;
}

template <class List, class Chunk> bool append(List& list, std::shared_ptr<Chunk> chunk)
{
    if (!chunk || list.size() >= HydStreamMessage::kMaxChannels)
        return false;
    list.push_back(std::move(chunk));
    return true;
}

std::shared_ptr<HydStreamMessagePayload> parseEventHeader(std::span<const uint8_t> chunks)
{
    std::shared_ptr<HydEventKeyChunk const> key;
    std::vector<std::shared_ptr<HydDeviceInfoChunk const>> devices;
    std::vector<std::shared_ptr<HydStreamStatusChunk const>> statuses;
    std::vector<std::shared_ptr<HydAmplScalingChunk const>> scalings;
    std::shared_ptr<HydDeviceInfoChunk const> master;
    HydStreamSetupContainer setup;
    uint8_t channels = 1;
    bool adjacent = false;

    const bool good = eachChunk(chunks, [&](uint16_t type, ByteReader& body) {
        switch (type) {
        case ChunkEventInfo:
            channels = body.u8();
            adjacent = body.u8() != 0;
            return body.ok();
        case ChunkEventKey:
            key = HydEventKeyChunkV1::fromWire(body);
            return key != nullptr;
        case ChunkArrayMaster:
            master = HydDeviceInfoChunkV1::fromWire(body);
            return master != nullptr;
        case ChunkDeviceInfo:
            return append(devices, HydDeviceInfoChunkV1::fromWire(body));
        case ChunkStatus:
            return append(statuses, HydStreamStatusChunkV0::fromWire(body));
        case ChunkAmplScaling:
            return append(scalings, HydAmplScalingChunkV0::fromWire(body));
        case ChunkWavSetup: {
            std::shared_ptr<HydWavSetupChunk const> chunk = HydWavSetupChunk::fromWire(body);
            setup = HydStreamSetupContainer(chunk);
            return chunk != nullptr;
        }
        case ChunkFftSetup: {
            std::shared_ptr<HydFftSetupChunk const> chunk = HydFftSetupChunkV1::fromWire(body);
            setup = HydStreamSetupContainer(chunk);
            return chunk != nullptr;
        }
        default:
            return true;
        }
    });
    if (!good)
        return nullptr;
    auto header = std::make_shared<HydStreamEventHeaderPayload>(
        std::move(key), std::move(devices), std::move(statuses), std::move(setup), std::move(scalings),
        channels, std::move(master));
    header->setAdjacent(adjacent);
    return header;
}

std::shared_ptr<HydStreamMessagePayload> parseData(std::span<const uint8_t> chunks, bool spectrum)
{
    std::shared_ptr<HydEventKeyChunk const> key;
    std::shared_ptr<HydStreamDataChunk const> data;
    const bool good = eachChunk(chunks, [&](uint16_t type, ByteReader& body) {
        switch (type) {
        case ChunkEventKey:
            key = HydEventKeyChunkV1::fromWire(body);
            return key != nullptr;
        case ChunkData:
            // A second data chunk would replace the first and lose it.
            if (data)
                return false;
            data = HydStreamDataChunkV0::fromWire(body, spectrum);
            return data != nullptr;
        default:
            return true;
        }
    });
    if (!good || !data)
        return nullptr;
    return std::make_shared<HydStreamDataPayload>(std::move(key), std::move(data));
}

std::shared_ptr<HydStreamMessagePayload> parseNotify(std::span<const uint8_t> chunks)
{
    std::shared_ptr<HydStreamMessagePayload> payload;
    const bool good = eachChunk(chunks, [&](uint16_t type, ByteReader& body) {
        if (type != ChunkNotify)
            return true;
        const uint16_t code = body.u16();
        std::string text = body.text();
        payload = std::make_shared<HydStreamNotifyPayload>(code, std::move(text));
        return body.ok();
    });
    return good ? payload : nullptr;
}

std::shared_ptr<HydStreamMessagePayload> parseStatus(std::span<const uint8_t> chunks)
{
    auto status = std::make_shared<HydStatusDataPayload>();
    const bool good = eachChunk(chunks, [&](uint16_t type, ByteReader& body) {
        switch (type) {
        case ChunkEventKey:
            status->setEventKey(HydEventKeyChunkV1::fromWire(body));
            return status->eventKey() != nullptr;
        case ChunkStatus:
            status->setStatusChunk(HydStreamStatusChunkV0::fromWire(body));
            return status->statusChunk() != nullptr;
        case ChunkHeadStatus:
            status->setHeadChunk(HydStreamHeadStatusChunkV0::fromWire(body));
            return status->headChunk() != nullptr;
        case ChunkBattery:
            status->setBatteryChunk(HydBatteryChunk::fromWire(body));
            return status->batteryChunk() != nullptr;
        case ChunkAccMag:
            status->setAccMagChunk(HydAccMagChunk::fromWire(body));
            return status->accMagChunk() != nullptr;
        case ChunkTimeSync:
            status->setTimeSyncChunk(HydTimeSyncChunk::fromWire(body));
            return status->timeSyncChunk() != nullptr;
        case ChunkTrigger:
            status->setTriggerChunk(HydTriggerChunk::fromWire(body));
            return status->triggerChunk() != nullptr;
        default:
            return true;
        }
    });
    return good ? status : nullptr;
}

} // namespace

HydStreamMessage::~HydStreamMessage() = default;

std::vector<uint8_t> HydStreamMessage::frame() const
{
    ByteStream out;
    out.putU8('0');
    out.putU8('*');
    out.putU8(0);
    out.putU8(kVersion);
    out.putU32(0);

    uint8_t kind = 0;
    if (const auto* header = dynamic_cast<const HydStreamEventHeaderPayload*>(payload.get())) {
        kind = KindEventHeader;
        putChunks(out, *header);
    } else if (const auto* data = dynamic_cast<const HydStreamDataPayload*>(payload.get())) {
        kind = KindData;
        putChunk(out, data->eventKey());
        putChunk(out, data->data());
    } else if (const auto* notify = dynamic_cast<const HydStreamNotifyPayload*>(payload.get())) {
        kind = KindNotify;
        putChunks(out, *notify);
    } else if (const auto* status = dynamic_cast<const HydStatusDataPayload*>(payload.get())) {
        kind = KindStatus;
        putChunks(out, *status);
    } else {
        return {};
    }

    const size_t chunkBytes = out.size() - kHeaderSize;
    if (chunkBytes > kMaxChunkBytes)
        return {};
    out.patchU32(4, static_cast<uint32_t>(chunkBytes));
    out.patchU16(2, static_cast<uint16_t>((kind << 8) | kVersion));
    out.putU32(checksum(out.bytes()));
    return out.take();
}

std::shared_ptr<HydStreamMessagePayload> HydStreamMessage::parse(Kind kind, std::span<const uint8_t> chunks,
                                                                 HydStreamType type)
{
    std::shared_ptr<HydStreamMessagePayload> payload;
    switch (kind) {
    case KindEventHeader:
        payload = parseEventHeader(chunks);
        break;
    case KindData:
        payload = parseData(chunks, isSpectrumLike(type));
        break;
    case KindNotify:
        payload = parseNotify(chunks);
        break;
    case KindStatus:
        payload = parseStatus(chunks);
        break;
    }
    if (payload)
        payload->streamType = type;
    return payload;
}

uint32_t HydStreamMessage::checksum(std::span<const uint8_t> bytes)
{
    return static_cast<uint32_t>(XXH64(bytes.data(), bytes.size(), 0));
}
