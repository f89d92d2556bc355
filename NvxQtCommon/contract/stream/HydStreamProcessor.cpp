#include "NvxQtCommon/contract/stream/HydStreamProcessor.h"

#include "NvxQtCommon/contract/base/CopyBytes.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t kStreamChunkHeader = 6;
constexpr size_t kMaxPendingStorage = 2 * HydStreamMessage::kMaxFrameSize;

uint32_t streamBigEndian32(const uint8_t* bytes)
{
    return (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) | (uint32_t{bytes[2]} << 8) | bytes[3];
}

/// Position of the first "0*" from `from` on, of a "0" at the very end, or behind the bytes where there is
/// neither.
size_t findFrameMark(std::span<const uint8_t> bytes, size_t from)
{
    while (from < bytes.size()) {
        const void* zero = std::memchr(bytes.data() + from, '0', bytes.size() - from);
        if (zero == nullptr)
            break;
        const auto at = static_cast<size_t>(static_cast<const uint8_t*>(zero) - bytes.data());
        if (at + 1 == bytes.size() || bytes[at + 1] == '*')
            return at;
        from = at + 1;
    }
    return bytes.size();
}

/// Judges as much of a frame's header as is there.
bool isFrameHeader(std::span<const uint8_t> bytes)
{
    if (bytes.size() > 2 &&
        (bytes[2] < HydStreamMessage::KindEventHeader || bytes[2] > HydStreamMessage::KindStatus))
        return false;
    if (bytes.size() > 3 && bytes[3] != HydStreamMessage::kVersion)
        return false;
    return bytes.size() < HydStreamMessage::kHeaderSize ||
           streamBigEndian32(&bytes[4]) <= HydStreamMessage::kMaxChunkBytes;
}

/// Bytes ahead of the first place where a frame can begin.
size_t countJunk(std::span<const uint8_t> bytes)
{
    size_t at = findFrameMark(bytes, 0);
    while (at < bytes.size() && !isFrameHeader(bytes.subspan(at)))
        at = findFrameMark(bytes, at + 1);
    return at;
}

} // namespace

HydStreamProcessor::HydStreamProcessor(HydStreamType type) : m_type(type) {}

void HydStreamProcessor::notifyDataAvailable()
{
    m_outOfData = false;
}

void HydStreamProcessor::reset()
{
    m_skippedBytes += pendingBytes();
    m_pending.clear();
    m_pendingStart = 0;
    m_walked = HydStreamMessage::kHeaderSize;
    m_message.reset();
    m_outOfData = true;
}

int HydStreamProcessor::handleEvent(int, StateEvent& event)
{
    m_message.reset();
    m_outOfData = true;
    auto* input = dynamic_cast<StreamInputEvent*>(&event);
    if (input == nullptr)
        return kFirstState;
    while (!m_message && step(input->buffer())) {
    }
    if (!m_message)
        return kFirstState;
    m_outOfData = input->buffer().isEmpty() && pendingBytes() == 0;
    return kEndState;
}

/// Takes the next piece of the stream in; false when it has to wait for more bytes.
bool HydStreamProcessor::step(CircularByteBuffer& ring)
{
    const bool fromPending = pendingBytes() > 0;
    const auto bytes =
        fromPending ? std::span<const uint8_t>(m_pending).subspan(m_pendingStart) : ring.front();
    if (bytes.empty())
        return false;
    const Finding finding = examine(bytes);
    switch (finding.verdict) {
    case Finding::Verdict::Junk:
        m_skippedBytes += finding.size;
        consume(ring, fromPending, finding.size);
        return true;
    case Finding::Verdict::Frame:
        take(bytes.first(finding.size));
        consume(ring, fromPending, finding.size);
        return true;
    case Finding::Verdict::Partial:
        break;
    }
    if (ring.isEmpty())
        return false;
    keep(ring, finding.size - (fromPending ? bytes.size() : 0));
    return true;
}

HydStreamProcessor::Finding HydStreamProcessor::examine(std::span<const uint8_t> bytes)
{
    using Verdict = Finding::Verdict;
    if (const size_t junk = countJunk(bytes); junk > 0)
        return {Verdict::Junk, junk};
    if (bytes.size() < HydStreamMessage::kHeaderSize)
        return {Verdict::Partial, HydStreamMessage::kHeaderSize};

    const size_t end = HydStreamMessage::kHeaderSize + streamBigEndian32(&bytes[4]);
    const size_t total = end + HydStreamMessage::kChecksumSize;
    while (m_walked < end) {
        if (end - m_walked < kStreamChunkHeader)
            return giveUp(std::min(m_walked, bytes.size()));
        if (m_walked + kStreamChunkHeader > bytes.size())
            return {Verdict::Partial, total};
        const size_t body = streamBigEndian32(&bytes[m_walked + 2]);
        if (body > end - m_walked - kStreamChunkHeader)
            return giveUp(m_walked);
        m_walked += kStreamChunkHeader + body;
    }
    if (bytes.size() < total)
        return {Verdict::Partial, total};
    if (HydStreamMessage::checksum(bytes.first(end)) != streamBigEndian32(&bytes[end]))
        return giveUp(total);
    m_examinedBytes += total;
    return {Verdict::Frame, total};
}

/// Decides how much of a frame that failed after `examined` bytes goes.
HydStreamProcessor::Finding HydStreamProcessor::giveUp(size_t examined)
{
    m_examinedBytes += examined;
    if (m_credit < examined)
        return {Finding::Verdict::Junk, examined};
    m_credit -= examined;
    return {Finding::Verdict::Junk, 1};
}

void HydStreamProcessor::take(std::span<const uint8_t> frame)
{
    const auto chunks =
        frame.subspan(HydStreamMessage::kHeaderSize,
                      frame.size() - HydStreamMessage::kHeaderSize - HydStreamMessage::kChecksumSize);
    if (auto payload =
            HydStreamMessage::parse(static_cast<HydStreamMessage::Kind>(frame[2]), chunks, m_type)) {
        m_message = std::make_shared<HydStreamMessage>(std::move(payload));
    } else {
        ++m_unreadableFrames;
        m_skippedBytes += frame.size();
    }
}

void HydStreamProcessor::consume(CircularByteBuffer& ring, bool fromPending, size_t count)
{
    m_walked = HydStreamMessage::kHeaderSize;
    m_credit = std::min(kExaminationReserve, m_credit + kExaminationsPerByte * count);
    if (!fromPending) {
        ring.skip(count);
        return;
    }
    m_pendingStart += count;
    if (pendingBytes() == 0) {
        m_pending.clear();
        m_pendingStart = 0;
    }
}

/// Moves up to `count` bytes from the ring to those that await the rest of their frame.
void HydStreamProcessor::keep(CircularByteBuffer& ring, size_t count)
{
    // What is done with goes once it outweighs what stays, so that moving costs no more than the bytes did.
    if (m_pendingStart > 0 && m_pendingStart >= pendingBytes()) {
        m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(m_pendingStart));
        m_pendingStart = 0;
    }
    count = std::min<size_t>(count, ring.byteCount());
    const size_t needed = m_pending.size() + count;
    if (needed > m_pending.capacity())
        m_pending.reserve(std::min(std::max(needed, 2 * m_pending.capacity()), kMaxPendingStorage));
    while (count > 0) {
        const auto piece = ring.front().first(std::min({count, ring.front().size(), kCopyPiece}));
        m_pending.insert(m_pending.end(), piece.begin(), piece.end());
        ring.skip(piece.size());
        count -= piece.size();
    }
}
