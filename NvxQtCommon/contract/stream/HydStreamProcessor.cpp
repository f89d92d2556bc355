#include "NvxQtCommon/contract/stream/HydStreamProcessor.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint8_t kMark0 = '0';
constexpr uint8_t kMark1 = '*';

/// Index of the first place in `window` where a frame can begin: "0*", or a "0" that is the last byte.
size_t frameStart(std::span<const uint8_t> window)
{
    size_t from = 0;
    while (from < window.size()) {
        const void* found = std::memchr(window.data() + from, kMark0, window.size() - from);
        if (found == nullptr)
            return window.size();
        const auto index = static_cast<size_t>(static_cast<const uint8_t*>(found) - window.data());
        if (index + 1 == window.size() || window[index + 1] == kMark1)
            return index;
        from = index + 1;
    }
    return window.size();
}

uint32_t bigEndian32(std::span<const uint8_t> bytes)
{
    return ByteReader(bytes).u32();
}

} // namespace

HydStreamProcessor::HydStreamProcessor(HydStreamType type) : m_type(type) {}

void HydStreamProcessor::notifyDataAvailable()
{
    m_outOfData = false;
}

void HydStreamProcessor::reset()
{
    skipped(m_pending.size() - m_pendingStart);
    m_pending.clear();
    m_pendingStart = 0;
    m_message.reset();
    m_outOfData = true;
}

void HydStreamProcessor::skipped(size_t count)
{
    m_skippedBytes += count;
    m_skippedSinceBad += count;
    if (m_skippedSinceBad > HydStreamMessage::kMaxFrameSize)
        m_badFrames = 0;
}

HydStreamProcessor::Look HydStreamProcessor::look(std::span<const uint8_t> window)
{
    if (const size_t start = frameStart(window); start != 0) {
        skipped(start);
        return {.consumed = start};
    }
    if (window.size() < HydStreamMessage::kHeaderSize)
        return {.needed = HydStreamMessage::kHeaderSize};

    const uint8_t kind = window[2];
    const uint32_t length = bigEndian32(window.subspan(4));
    if (kind < HydStreamMessage::KindEventHeader || kind > HydStreamMessage::KindStatus ||
        window[3] != HydStreamMessage::kVersion || length > HydStreamMessage::kMaxChunkBytes) {
        skipped(1);
        return {.consumed = 1};
    }
    const size_t frameSize = HydStreamMessage::kHeaderSize + length + HydStreamMessage::kChecksumSize;
    if (window.size() < frameSize)
        return {.needed = frameSize};
    return lookAtFrame(window.first(frameSize), static_cast<HydStreamMessage::Kind>(kind));
}

HydStreamProcessor::Look HydStreamProcessor::lookAtFrame(std::span<const uint8_t> frame,
                                                         HydStreamMessage::Kind kind)
{
    const auto checked = frame.first(frame.size() - HydStreamMessage::kChecksumSize);
    const auto chunks = checked.subspan(HydStreamMessage::kHeaderSize);
    if (!HydStreamMessage::isChunkRow(chunks) ||
        HydStreamMessage::checksum(checked) != bigEndian32(frame.last(HydStreamMessage::kChecksumSize))) {
        if (m_badFrames == 0)
            m_skippedSinceBad = 0;
        const size_t count = m_badFrames < kMaxBadFrames ? 1 : frame.size();
        ++m_badFrames;
        skipped(count);
        return {.consumed = count};
    }

    m_badFrames = 0;
    auto payload = HydStreamMessage::parse(kind, chunks, m_type);
    if (!payload) {
        // A correct frame whose content makes no sense: nothing inside it can be a frame of its own.
        skipped(frame.size());
        return {.consumed = frame.size()};
    }
    m_message = std::make_shared<HydStreamMessage>(std::move(payload));
    return {.consumed = frame.size(), .good = true};
}

void HydStreamProcessor::fillPending(CircularByteBuffer& buffer, size_t needed)
{
    // Moving the rest to the front only now and then keeps this linear, and the memory at two frames.
    if (m_pendingStart >= HydStreamMessage::kMaxFrameSize || m_pendingStart == m_pending.size()) {
        m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(m_pendingStart));
        m_pendingStart = 0;
    }
    while (m_pending.size() - m_pendingStart < needed && !buffer.isEmpty()) {
        const auto piece = buffer.front();
        const size_t count = std::min(piece.size(), needed - (m_pending.size() - m_pendingStart));
        m_pending.insert(m_pending.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(count));
        buffer.skip(count);
    }
}

int HydStreamProcessor::handleEvent(int /*state*/, StateEvent& event)
{
    m_message.reset();
    auto* input = dynamic_cast<StreamInputEvent*>(&event);
    if (input == nullptr) {
        m_outOfData = true;
        return kFirstState;
    }

    CircularByteBuffer& buffer = input->buffer();
    while (!m_outOfData || !buffer.isEmpty()) {
        const bool fromPending = m_pendingStart < m_pending.size();
        const auto window =
            fromPending ? std::span<const uint8_t>(m_pending).subspan(m_pendingStart) : buffer.front();
        if (window.empty())
            break;
        const Look found = look(window);
        if (fromPending)
            m_pendingStart += found.consumed;
        else
            buffer.skip(found.consumed);
        if (found.good) {
            m_outOfData = buffer.isEmpty() && m_pendingStart == m_pending.size();
            return kEndState;
        }
        if (found.needed > 0) {
            fillPending(buffer, found.needed);
            if (m_pending.size() - m_pendingStart < found.needed)
                break;
        }
    }
    m_outOfData = true;
    return kFirstState;
}
