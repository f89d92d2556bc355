#include "NvxQtCommon/contract/message/HydControlProcessor.h"

#include "NvxQtCommon/contract/base/Crc32.h"
#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"
#include "NvxQtCommon/contract/message/HydTrigger.h"

#include <algorithm>

namespace {

constexpr unsigned char kFrameStart = '*';

void skipToFrameStart(CircularByteBuffer& buffer)
{
    while (!buffer.isEmpty()) {
        const auto piece = buffer.front();
        const auto found = std::ranges::find(piece, kFrameStart);
        buffer.skip(static_cast<unsigned long long>(found - piece.begin()));
        if (found != piece.end())
            return;
    }
}

/// Size of the frame at the buffer's front, 0 while its header isn't whole.
unsigned long long frameSizeAtFront(const CircularByteBuffer& buffer)
{
    if (buffer.byteCount() < HydControlMessage::kHeaderSize)
        return 0;
    return HydControlMessage::kFrameOverhead + (unsigned{buffer.at(2)} << 8 | buffer.at(3));
}

uint32_t checksumAt(const CircularByteBuffer& buffer, unsigned long long offset)
{
    uint32_t checksum = 0;
    for (unsigned i = 0; i < sizeof(checksum); ++i)
        checksum = checksum << 8 | buffer.at(offset + i);
    return checksum;
}

std::shared_ptr<HydControlMsgPayload> controlPayload(uint8_t letter, std::span<const uint8_t> bytes)
{
    switch (letter) {
    case 'A':
        return HydSetTimeCmd::fromBytes(bytes);
    case 'C':
        return HydDataCollectCmd::fromBytes(bytes);
    case 'D':
        return HydJobSetupCmd::fromBytes(bytes);
    case 'E':
        return HydEnquireCmd::fromBytes(bytes);
    case 'F':
        return HydJobSetupEnq::fromBytes(bytes);
    case 'R':
        return HydEnquireTrigger::fromBytes(bytes);
    case 'S':
        return HydTrigger::fromBytes(bytes);
    case 'U':
    case 'V':
        return bytes.empty() ? std::make_shared<HydMsgPayload>(letter) : nullptr;
    case 'Y':
        return HydResetCmd::fromBytes(bytes);
    case '[':
        return HydEnquireTimeSync::fromBytes(bytes);
    default:
        return nullptr;
    }
}

} // namespace

bool HydControlProcessor::checkL(ControlResponseEvent* event)
{
    if (event == nullptr)
        return false;
    auto& buffer = event->buffer();
    skipToFrameStart(buffer);
    const auto size = frameSizeAtFront(buffer);
    return size != 0 && size <= buffer.byteCount();
}

int HydControlProcessor::handleEvent(int, StateEvent& event)
{
    m_message.reset();
    auto* response = dynamic_cast<ControlResponseEvent*>(&event);
    if (response == nullptr) {
        m_outOfData = true;
        return kFirstState;
    }
    auto& buffer = response->buffer();
    skipToFrameStart(buffer);
    const auto size = frameSizeAtFront(buffer);
    // A frame that the buffer can never hold would wait for ever.
    const bool canBecomeWhole = size <= buffer.capacity();
    if (canBecomeWhole && (size == 0 || size > buffer.byteCount())) {
        m_outOfData = true;
        return kFirstState;
    }
    const auto covered = size - sizeof(uint32_t);
    if (!canBecomeWhole || crc32Of(buffer, 0, covered) != checksumAt(buffer, covered)) {
        buffer.skip(1);
        skipToFrameStart(buffer);
        m_outOfData = buffer.isEmpty();
        return kFirstState;
    }
    m_frame.resize(static_cast<size_t>(size));
    buffer.read(m_frame.data(), size);
    const auto payload = std::span<const uint8_t>(m_frame).subspan(
        HydControlMessage::kHeaderSize, m_frame.size() - HydControlMessage::kFrameOverhead);
    m_message = std::make_shared<HydControlMessage>(controlPayload(m_frame[1], payload));
    m_outOfData = buffer.isEmpty();
    return kEndState;
}
