#pragma once

#include "NvxQtCommon/contract/base/Crc32.h"
#include "NvxQtCommon/contract/message/HydControlProcessor.h"
#include "tests/contract/ContractSupport.h"

#include <QByteArrayList>

#include <algorithm>

/// A control frame with a right checksum around any payload.
inline Bytes controlFrame(char letter, std::span<const uint8_t> payload)
{
    ByteStream out;
    out.putU8('*');
    out.putU8(static_cast<uint8_t>(letter));
    out.putU16(static_cast<uint16_t>(payload.size()));
    out.putBytes(payload);
    out.putU32(crc32Of(out.bytes()));
    return out.take();
}

inline Bytes joined(std::initializer_list<Bytes> pieces)
{
    Bytes all;
    for (const auto& piece : pieces)
        all.insert(all.end(), piece.begin(), piece.end());
    return all;
}

/// Feeds a processor the way a channel does: bytes into the ring, then one run of dispatches.
class ControlParser
{
public:
    explicit ControlParser(unsigned long long capacity = 1 << 20) : ring(capacity) {}

    /// Every message becomes its frame in hexadecimal digits, or "null" where it has no payload.
    void feed(std::span<const uint8_t> bytes)
    {
        writeAll(ring, bytes);
        ControlResponseEvent event(ring);
        processor.setOutOfData(false);
        do {
            processor.dispatch(&event);
            ++dispatches;
            if (processor.isAtEndState())
                found.append(text(processor.message()));
        } while (!processor.outOfData());
    }

    void feedInPieces(std::span<const uint8_t> bytes, size_t size)
    {
        for (size_t at = 0; at < bytes.size(); at += size)
            feed(bytes.subspan(at, std::min(size, bytes.size() - at)));
    }

    CircularByteBuffer ring;
    HydControlProcessor processor;
    QByteArrayList found;
    int dispatches = 0;

private:
    static QByteArray text(const std::shared_ptr<HydControlMessage>& message)
    {
        if (!message)
            return "none";
        return message->payload() ? hexText(message->frame()) : QByteArray("null");
    }
};
