#include "NvxQtCommon/contract/message/HydControlMessage.h"

#include "NvxQtCommon/contract/base/Crc32.h"

#include <algorithm>

void HydControlMessage::serialize(unsigned long long* size, unsigned char* buffer) const
{
    const auto bytes = frame();
    const bool fits = bytes.size() <= kSendBufferSize;
    *size = fits ? bytes.size() : 0;
    if (fits)
        std::copy(bytes.begin(), bytes.end(), buffer);
}

std::vector<uint8_t> HydControlMessage::frame() const
{
    return m_payload ? frame(*m_payload) : std::vector<uint8_t>();
}

std::vector<uint8_t> HydControlMessage::frame(const HydControlMsgPayload& payload)
{
    ByteStream out;
    out.putU8('*');
    out.putU8(payload.msgType());
    out.putU16(0);
    payload.serialize(out);
    const auto length = out.size() - kHeaderSize;
    if (length > kMaxFrameSize - kFrameOverhead)
        return {};
    out.patchU16(2, static_cast<uint16_t>(length));
    out.putU32(crc32Of(out.bytes()));
    return out.take();
}
