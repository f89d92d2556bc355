#include "NvxQtCommon/contract/message/HydControlProcessor.h"

#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"
#include "NvxQtCommon/contract/message/HydTrigger.h"

namespace {

constexpr unsigned char kFrameStart = '*';

/// Size of the frame at `offset`, 0 while its header isn't whole.
unsigned long long frameSizeAt(const CircularByteBuffer& buffer, unsigned long long offset)
{
    if (buffer.byteCount() - offset < HydControlMessage::kHeaderSize)
        return 0;
    return HydControlMessage::kFrameOverhead + (unsigned{buffer.at(offset + 2)} << 8 | buffer.at(offset + 3));
}

void dropFront(ControlResponseEvent& event, unsigned long long count)
{
    event.checksums().leave(count);
    event.buffer().skip(count);
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

std::shared_ptr<HydControlMessage> readFrame(std::span<const uint8_t> frame)
{
    const auto payload =
        frame.subspan(HydControlMessage::kHeaderSize, frame.size() - HydControlMessage::kFrameOverhead);
    return std::make_shared<HydControlMessage>(controlPayload(frame[1], payload));
}

} // namespace

bool HydControlProcessor::checkL(ControlResponseEvent* event)
{
    if (event == nullptr)
        return false;
    auto& buffer = event->buffer();
    skipJunk(*event, buffer.find(kFrameStart, 0));
    const auto size = frameSizeAt(buffer, 0);
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
    for (auto start = buffer.find(kFrameStart, 0);; start = buffer.find(kFrameStart, start + 1)) {
        const auto size = frameSizeAt(buffer, start);
        // A frame that the buffer can never hold would wait for ever.
        const bool canBecomeWhole = size <= buffer.capacity();
        if (canBecomeWhole && (size == 0 || size > buffer.byteCount() - start)) {
            skipJunk(*response, start);
            m_outOfData = true;
            return kFirstState;
        }
        const auto covered = size - sizeof(uint32_t);
        if (!canBecomeWhole ||
            response->checksums().of(start, covered) != checksumAt(buffer, start + covered))
            continue;
        m_frame.resize(static_cast<size_t>(size));
        buffer.peek(m_frame.data(), size, start);
        skipJunk(*response, start);
        dropFront(*response, size);
        m_message = readFrame(m_frame);
        m_outOfData = buffer.isEmpty();
        return kEndState;
    }
}

void HydControlProcessor::skipJunk(ControlResponseEvent& event, unsigned long long count)
{
    m_skippedBytes += count;
    dropFront(event, count);
}
