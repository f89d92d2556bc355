#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"

#include "NvxQtCommon/contract/identity/HydDeviceId.h"

std::string NvxWavInfoDataHF::deviceType(unsigned char channel) const
{
    return deviceTypeText(m_readFromFile && channel == 0 ? m_hostType : m_slot.deviceType);
}

void NvxWavInfoDataHF::setDeviceType(HydDeviceType type, unsigned char channel)
{
    (m_readFromFile && channel == 0 ? m_hostType : m_slot.deviceType) = type;
}

std::unique_ptr<NvxWavInfoData> NvxWavInfoDataHF::clone() const
{
    return std::make_unique<NvxWavInfoDataHF>(*this);
}

std::vector<uint8_t> NvxWavInfoDataHF::fileBytes() const
{
    ByteStream out;
    serialize(out);
    return out.take();
}

void NvxWavInfoDataHF::serialize(ByteStream& out) const
{
    NvxWavInfoFields::putCommon(out, NvxWavInfoFields::Kind::OneRecorder, *this);
    NvxWavInfoFields::putSlot(out, m_slot);
    out.putU8(m_headStatus ? 1 : 0);
    if (m_headStatus) {
        const stHEADING_CHUNK_V0& heading = m_headStatus->record();
        out.putU32(heading.time);
        out.putU16(heading.heading);
        out.putU16(static_cast<uint16_t>(heading.pitch));
        out.putU16(static_cast<uint16_t>(heading.roll));
    }
}

bool NvxWavInfoDataHF::deserialize(ByteReader& in)
{
    if (!NvxWavInfoFields::takeCommon(in, NvxWavInfoFields::Kind::OneRecorder, *this))
        return false;
    NvxWavInfoFields::takeSlot(in, m_slot);
    m_headStatus.reset();
    if (in.u8() != 0) {
        stHEADING_CHUNK_V0 heading;
        heading.time = in.u32();
        heading.heading = in.u16();
        heading.pitch = in.i16();
        heading.roll = in.i16();
        m_headStatus = std::make_shared<HydStreamHeadStatusChunkV0>(&heading);
    }
    m_readFromFile = true;
    m_hostType = m_slot.deviceType;
    return in.ok();
}
