#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"
#include "NvxQtCommon/contract/base/FiniteStateMachine.h"
#include "NvxQtCommon/contract/base/StateEvent.h"
#include "NvxQtCommon/contract/message/HydMarcoCommand.h"

#include <memory>

/// Offers a buffer of datagram bytes to HydMarcoProcessor. The buffer stays the caller's.
class NVXQTCOMMON_EXPORT MarcoMessageEvent : public StateEvent
{
public:
    explicit MarcoMessageEvent(CircularByteBuffer& buffer) : m_buffer(buffer) {}
    CircularByteBuffer& buffer() const { return m_buffer; }

private:
    CircularByteBuffer& m_buffer;
};

/// Finds discovery messages in a byte buffer. Anything that isn't a whole, correct datagram of a known kind
/// is skipped; a broken one never swallows the next: while the bytes at the front wait for more, a whole
/// message behind them is found. Of two that overlap the one that ends first counts, so that the order of
/// arrival alone decides. A dispatch without a message has looked at all bytes and sets outOfData; what is
/// kept then is shorter than one datagram.
class NVXQTCOMMON_EXPORT HydMarcoProcessor : public FiniteStateMachine
{
public:
    HydMarcoProcessor() = default;

    /// The message found by the last dispatch that reached the end state, else empty.
    std::shared_ptr<HydMarcoCommand> message() const { return m_message; }
    /// True when the buffer holds nothing more to parse for now.
    bool outOfData() const { return m_outOfData; }
    void setOutOfData(bool outOfData) { m_outOfData = outOfData; }
    /// Bytes dropped over the object's life because they belonged to no message.
    uint64_t skippedBytes() const { return m_skippedBytes; }

protected:
    int handleEvent(int state, StateEvent& event) override;

private:
    std::shared_ptr<HydMarcoCommand> m_message;
    uint64_t m_skippedBytes = 0;
    bool m_outOfData = false;
};
