#include "NvxQtCommon/contract/stream/ZcrFrameHeader.h"

void ZcrFrameHeader::readFrom(std::span<const uint8_t, kSize> bytes)
{
    const auto u16 = [bytes](size_t at) { return static_cast<uint16_t>(bytes[at] | (bytes[at + 1] << 8)); };
    const auto u32 = [u16](size_t at) { return u16(at) | (uint32_t{u16(at + 2)} << 16); };
    // The bytes 0, 26 and 27 are not read. This is intended.
    frameChannel = bytes[1];
    frameSerial = u16(2);
    frameTemperature = u16(4);
    frameSequence = u32(6);
    frameBandWidth = u16(10);
    frameFftRef = static_cast<int32_t>(u32(12));
    frameSampleRate = u32(16);
    frameSensitivity = static_cast<int16_t>(u16(20));
    frameReserved = u16(22);
    frameFftAccum = u16(24);
    frameExtra = u16(28);
    frameNumPts = u16(30);
}
