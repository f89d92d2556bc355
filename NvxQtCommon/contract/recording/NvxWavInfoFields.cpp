#include "NvxQtCommon/contract/recording/NvxWavInfoFields.h"

#include "NvxQtCommon/contract/base/Utf8.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoData.h"

#include <bit>

void NvxWavInfoFields::putText(ByteStream& out, const std::string& text)
{
    out.putText(cutUtf8(text, kMaxText));
}

void NvxWavInfoFields::putCommon(ByteStream& out, Kind kind, const NvxWavInfoData& info)
{
    out.putU16(kVersion);
    out.putU8(static_cast<uint8_t>(kind));
    out.putU32(info.m_timestamp);
    out.putU64(info.m_startSample);
    out.putU32(std::bit_cast<uint32_t>(info.m_peakVolts));
    out.putU32(static_cast<uint32_t>(info.m_fullScaleCount));
    putText(out, info.m_fileName);
    putText(out, info.m_software);
}

bool NvxWavInfoFields::takeCommon(ByteReader& in, Kind kind, NvxWavInfoData& info)
{
    if (in.u16() != kVersion || in.u8() != static_cast<uint8_t>(kind))
        return false;
    info.m_timestamp = in.u32();
    info.m_startSample = in.u64();
    info.m_peakVolts = std::bit_cast<float>(in.u32());
    info.m_fullScaleCount = in.i32();
    info.m_fileName = in.text();
    info.m_software = in.text();
    return in.ok();
}

void NvxWavInfoFields::putSlot(ByteStream& out, const NvxWavInfoSlot& slot)
{
    out.putU8(slot.deviceType);
    out.putU16(slot.serialNo);
    out.putU16(static_cast<uint16_t>(slot.sensitivity));
    out.putU16(static_cast<uint16_t>(slot.temperature));
    out.putU16(static_cast<uint16_t>(slot.humidity));
    out.putU8(slot.statusExtra);
    putText(out, slot.deviceText);
    putText(out, slot.hwRelease);
}

void NvxWavInfoFields::takeSlot(ByteReader& in, NvxWavInfoSlot& slot)
{
    slot.deviceType = static_cast<HydDeviceType>(in.u8());
    slot.serialNo = in.u16();
    slot.sensitivity = in.i16();
    slot.temperature = in.i16();
    slot.humidity = in.i16();
    slot.statusExtra = in.u8();
    slot.deviceText = in.text();
    slot.hwRelease = in.text();
}
