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
/// HydStreamMessage::kMaxFrameSize bytes, is kept here. After junk or a bad frame it looks for the next "0*"
/// and counts what it skipped.
class NVXQTCOMMON_EXPORT HydStreamProcessor : public FiniteStateMachine
{
public:
    /// Frames that fail their check within kMaxFrameSize bytes of junk before a failing frame is skipped
    /// whole instead of by one byte. It bounds the work on hostile bytes to this multiple of their number.
    static constexpr size_t kMaxBadFrames = 16;

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
    /// Forgets a message that isn't whole, for a new connection.
    void reset();

protected:
    int handleEvent(int state, StateEvent& event) override;

private:
    /// What a look at the first bytes of a window found.
    struct Look
    {
        size_t consumed = 0; ///< bytes that are done with
        size_t needed = 0;   ///< when above 0: bytes that the window must hold before the next look
        bool good = false;   ///< `consumed` bytes were a good message, now in m_message
    };

    Look look(std::span<const uint8_t> window);
    Look lookAtFrame(std::span<const uint8_t> frame, HydStreamMessage::Kind kind);
    void skipped(size_t count);
    void fillPending(CircularByteBuffer& buffer, size_t needed);

    HydStreamType m_type;
    std::shared_ptr<HydStreamMessage> m_message;
    std::vector<uint8_t> m_pending;
    size_t m_pendingStart = 0; ///< bytes of m_pending that are done with
    uint64_t m_skippedBytes = 0;
    size_t m_badFrames = 0;
    size_t m_skippedSinceBad = 0;
    bool m_outOfData = true;
};
