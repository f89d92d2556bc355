#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"
#include "NvxQtCommon/contract/base/Crc32.h"
#include "NvxQtCommon/contract/base/FiniteStateMachine.h"
#include "NvxQtCommon/contract/base/StateEvent.h"
#include "NvxQtCommon/contract/message/HydControlMessage.h"

#include <memory>
#include <vector>

/// Offers a buffer of the command channel to HydControlProcessor. The buffer stays the caller's. One event
/// serves a whole parsing run, so that bytes which were looked at in one dispatch cost nothing in the next.
class NVXQTCOMMON_EXPORT ControlResponseEvent : public StateEvent
{
public:
    explicit ControlResponseEvent(CircularByteBuffer& buffer) : m_buffer(buffer), m_checksums(buffer) {}
    CircularByteBuffer& buffer() const { return m_buffer; }
    /// Checksums of the buffer's pieces, kept over the dispatches of a run.
    RingCrc32& checksums() { return m_checksums; }

private:
    CircularByteBuffer& m_buffer;
    RingCrc32 m_checksums;
};

/// Finds control messages in a byte buffer. A dispatch ends with a message (end state), out of data, or both:
/// a bad checksum drops one byte and looks for the next "*", and the bytes of a message that isn't whole yet
/// stay in the buffer. A length field can't be bad by itself: all of its values are allowed. Only a frame
/// that exceeds the buffer's capacity is taken for junk, since it could never become whole.
class NVXQTCOMMON_EXPORT HydControlProcessor : public FiniteStateMachine
{
public:
    HydControlProcessor() = default;

    /// The message found by the last dispatch that reached the end state; its payload is null for an unknown
    /// letter or a payload that doesn't read. Empty when there is none.
    std::shared_ptr<HydControlMessage> message() const { return m_message; }
    /// True when the buffer holds nothing more to parse for now.
    bool outOfData() const { return m_outOfData; }
    /// The caller clears the flag before a parsing run.
    void setOutOfData(bool outOfData) { m_outOfData = outOfData; }
    /// Bytes dropped over the object's life because they belonged to no message. A frame that gives a message
    /// without a payload counts as a message.
    uint64_t skippedBytes() const { return m_skippedBytes; }
    /// Length check ahead of a dispatch in a data collect run: drops what stands in front of the first "*"
    /// and says whether the frame that starts there is whole.
    bool checkL(ControlResponseEvent* event);

protected:
    int handleEvent(int state, StateEvent& event) override;

private:
    void skipJunk(ControlResponseEvent& event, unsigned long long count);

    std::shared_ptr<HydControlMessage> m_message;
    uint64_t m_skippedBytes = 0;
    bool m_outOfData = false;
    std::vector<uint8_t> m_frame;
};
