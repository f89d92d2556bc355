#include "NvxQtCommon/contract/message/HydMarcoCommand.h"

#include "NvxQtCommon/contract/base/Crc32.h"

#include <algorithm>

void HydMarcoCommand::serialize(unsigned long long* size, unsigned char* buffer) const
{
    *size = 0;
    if (!m_payload)
        return;
    ByteStream out;
    out.putBytes(kMagic);
    out.putU8(kVersion);
    out.putU8(m_payload->kind());
    out.putU16(m_payload->responsePort());
    out.putU16(0);
    m_payload->serialize(out);
    const auto length = out.size() - kHeaderSize;
    if (length > kMaxDatagramSize - kFrameOverhead)
        return;
    out.patchU16(kLengthOffset, static_cast<uint16_t>(length));
    out.putU32(crc32Of(out.bytes()));
    *size = out.size();
    std::ranges::copy(out.bytes(), buffer);
}
