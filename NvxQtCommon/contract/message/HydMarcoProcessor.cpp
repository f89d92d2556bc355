#include "NvxQtCommon/contract/message/HydMarcoProcessor.h"

#include "NvxQtCommon/contract/base/Crc32.h"

#include <algorithm>
#include <array>
#include <optional>

namespace {

using Offset = unsigned long long;

/// Length of the body that a kind must have; empty for an unknown kind.
std::optional<size_t> marcoBodySize(uint8_t kind)
{
    switch (kind) {
    case HydNetworkEnqireCmd::kKind:
        return HydNetworkEnqireCmd::kBodySize;
    case HydChangeNetworkCmd::kKind:
        return HydChangeNetworkCmd::kBodySize;
    case HydResetDeviceCmd::kKind:
        return HydResetDeviceCmd::kBodySize;
    default:
        return std::nullopt;
    }
}

constexpr size_t kLargestDatagram =
    HydMarcoCommand::kFrameOverhead +
    std::max({HydNetworkEnqireCmd::kBodySize, HydChangeNetworkCmd::kBodySize, HydResetDeviceCmd::kBodySize});

enum class Fit {
    No,    ///< no datagram starts here
    Short, ///< one may start here, once more bytes have come
    Whole, ///< one starts here and is all there, its checksum not looked at
};

/// What can be said of `bytes` as the beginning of a datagram; `size` is its size when it is whole.
Fit fitDatagram(std::span<const uint8_t> bytes, size_t& size)
{
    const auto& magic = HydMarcoCommand::kMagic;
    const auto known = std::min(bytes.size(), magic.size());
    if (!std::equal(magic.begin(), magic.begin() + static_cast<std::ptrdiff_t>(known), bytes.begin()))
        return Fit::No;
    ByteReader in(bytes);
    in.take(magic.size());
    const auto version = in.u8();
    if (in.ok() && version != HydMarcoCommand::kVersion)
        return Fit::No;
    const auto bodySize = marcoBodySize(in.u8());
    if (in.ok() && !bodySize)
        return Fit::No;
    in.u16();
    const auto length = in.u16();
    if (!in.ok())
        return Fit::Short;
    if (length != *bodySize)
        return Fit::No;
    size = HydMarcoCommand::kFrameOverhead + length;
    return size <= bytes.size() ? Fit::Whole : Fit::Short;
}

/// The message of a whole datagram; empty when its checksum is wrong.
std::shared_ptr<HydMarcoCommand> readDatagram(std::span<const uint8_t> bytes)
{
    const auto covered = bytes.first(bytes.size() - sizeof(uint32_t));
    ByteReader checksum(bytes.last(sizeof(uint32_t)));
    if (crc32Of(covered) != checksum.u32())
        return nullptr;
    ByteReader in(covered);
    in.take(HydMarcoCommand::kMagic.size() + 1);
    const auto kind = in.u8();
    const auto responsePort = in.u16();
    const auto body = in.take(in.u16());
    std::shared_ptr<HydMarcoCommandPayload> payload;
    if (kind == HydNetworkEnqireCmd::kKind)
        payload = HydNetworkEnqireCmd::fromBytes(body);
    else if (kind == HydChangeNetworkCmd::kKind)
        payload = HydChangeNetworkCmd::fromBytes(body);
    else
        payload = HydResetDeviceCmd::fromBytes(body);
    if (!payload)
        return nullptr;
    payload->setResponsePort(responsePort);
    return std::make_shared<HydMarcoCommand>(std::move(payload));
}

} // namespace

int HydMarcoProcessor::handleEvent(int, StateEvent& event)
{
    m_message.reset();
    auto* marco = dynamic_cast<MarcoMessageEvent*>(&event);
    if (marco == nullptr) {
        m_outOfData = true;
        return kFirstState;
    }
    constexpr auto kMagicStart = HydMarcoCommand::kMagic[0];
    auto& buffer = marco->buffer();
    auto keepFrom = buffer.byteCount();
    Offset messageStart = 0;
    Offset messageEnd = buffer.byteCount() + 1;
    std::array<uint8_t, kLargestDatagram> bytes{};
    for (auto offset = buffer.find(kMagicStart, 0); offset < std::min(buffer.byteCount(), messageEnd);
         offset = buffer.find(kMagicStart, offset + 1)) {
        const std::span<const uint8_t> held(bytes.data(), buffer.peek(bytes.data(), bytes.size(), offset));
        size_t size = 0;
        const auto fit = fitDatagram(held, size);
        if (fit == Fit::Short)
            keepFrom = std::min(keepFrom, offset);
        if (fit != Fit::Whole || offset + size >= messageEnd)
            continue;
        if (auto message = readDatagram(held.first(size))) {
            m_message = std::move(message);
            messageStart = offset;
            messageEnd = offset + size;
        }
    }
    m_skippedBytes += m_message ? messageStart : keepFrom;
    buffer.skip(m_message ? messageEnd : keepFrom);
    m_outOfData = !m_message || buffer.isEmpty();
    return m_message ? kEndState : kFirstState;
}
