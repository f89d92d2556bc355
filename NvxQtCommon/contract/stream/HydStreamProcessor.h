#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"
#include "NvxQtCommon/contract/base/FiniteStateMachine.h"
#include "NvxQtCommon/contract/base/StateEvent.h"
#include "NvxQtCommon/contract/stream/HydStreamMessage.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// Offers the receive buffer of a stream to HydStreamProcessor, once for a whole round. The buffer stays the
/// caller's.
class NVXQTCOMMON_EXPORT StreamInputEvent : public StateEvent
{
public:
    explicit StreamInputEvent(CircularByteBuffer& buffer) : m_buffer(buffer) {}
    CircularByteBuffer& buffer() const { return m_buffer; }

private:
    CircularByteBuffer& m_buffer;
};

/// Turns the bytes of a stream socket into messages. By the end of a round (outOfData()) it has taken every
/// byte out of the buffer; the part of a message that isn't whole yet, at most
/// HydStreamMessage::kMaxFrameSize bytes, is kept here (storage: at most twice that). After junk or a bad
/// frame it looks for the next "0*" one byte further on and counts what it skipped.
///
/// That search may examine the same bytes again and again, since bytes can be made so that a frame seems to
/// begin every few bytes. It is therefore paid for: every byte that leaves the stream earns
/// kExaminationsPerByte examined bytes, with kExaminationReserve to begin with and as the limit. A frame that
/// fails when this is used up is skipped as far as it was examined. So n bytes of whatever content cost at
/// most kExaminationReserve + n x (kExaminationsPerByte + 1) examined bytes.
class NVXQTCOMMON_EXPORT HydStreamProcessor : public FiniteStateMachine
{
public:
    static constexpr uint64_t kExaminationsPerByte = 4;
    static constexpr uint64_t kExaminationReserve = 2 * HydStreamMessage::kMaxFrameSize;

    explicit HydStreamProcessor(HydStreamType type);

    /// Clears out-of-data; called after new bytes were written to the buffer.
    void notifyDataAvailable();
    /// The message found by the last dispatch that reached the end state; the same until the next dispatch.
    /// Null when there is none.
    std::shared_ptr<HydStreamMessage> message() const { return m_message; }
    /// False sends the caller back to dispatch().
    bool outOfData() const { return m_outOfData; }
    /// Bytes dropped so far because they belonged to no good message.
    uint64_t skippedBytes() const { return m_skippedBytes; }
    /// Frames dropped so far whose checksum was right and whose content didn't read; their bytes are among
    /// the skipped ones.
    uint64_t unreadableFrames() const { return m_unreadableFrames; }
    /// Bytes looked at so far as parts of a frame, the good ones among them.
    uint64_t examinedBytes() const { return m_examinedBytes; }
    /// Bytes kept until the rest of their message arrives.
    size_t pendingBytes() const { return m_pending.size() - m_pendingStart; }
    /// Forgets a message that isn't whole, for a new connection; its bytes count as skipped.
    void reset();

protected:
    int handleEvent(int state, StateEvent& event) override;

private:
    /// What the bytes at hand are: Junk to drop, a Partial frame that needs `size` bytes to be judged
    /// further, or a whole Frame of `size` bytes.
    struct Finding
    {
        enum class Verdict { Junk, Partial, Frame } verdict;
        size_t size;
    };

    bool step(CircularByteBuffer& ring);
    Finding examine(std::span<const uint8_t> bytes);
    Finding giveUp(size_t examined);
    void take(std::span<const uint8_t> frame);
    void consume(CircularByteBuffer& ring, bool fromPending, size_t count);
    void keep(CircularByteBuffer& ring, size_t count);

    HydStreamType m_type;
    std::shared_ptr<HydStreamMessage> m_message;
    /// Bytes out of the ring that await the rest of their frame; those ahead of m_pendingStart are done with.
    std::vector<uint8_t> m_pending;
    size_t m_pendingStart = 0;
    /// How far the chunks of the frame at hand have been walked, so that no round walks them twice.
    size_t m_walked = HydStreamMessage::kHeaderSize;
    uint64_t m_credit = kExaminationReserve;
    uint64_t m_examinedBytes = 0;
    uint64_t m_skippedBytes = 0;
    uint64_t m_unreadableFrames = 0;
    bool m_outOfData = true;
};
