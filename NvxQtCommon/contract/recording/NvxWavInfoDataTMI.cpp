#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"

#include "NvxQtCommon/contract/identity/HydDeviceId.h"

const NvxWavInfoSlot& NvxWavInfoDataTMI::slot(unsigned char channel) const
{
    static const NvxWavInfoSlot kNoSlot;
    return channel < m_slots.size() ? m_slots[channel] : kNoSlot;
}

template <class T>
void NvxWavInfoDataTMI::set(T NvxWavInfoSlot::*field, const T& value, unsigned char channel)
{
    if (channel < m_slots.size())
        m_slots[channel].*field = value;
}

std::string NvxWavInfoDataTMI::deviceType(unsigned char channel) const
{
    return deviceTypeText(slot(channel).deviceType);
}

void NvxWavInfoDataTMI::setDeviceType(HydDeviceType type, unsigned char channel)
{
    set(&NvxWavInfoSlot::deviceType, type, channel);
}

uint16_t NvxWavInfoDataTMI::serialNo(unsigned char channel) const
{
    return slot(channel).serialNo;
}

void NvxWavInfoDataTMI::setSerialNo(uint16_t serial, unsigned char channel)
{
    set(&NvxWavInfoSlot::serialNo, serial, channel);
}

std::string NvxWavInfoDataTMI::deviceText(unsigned char channel) const
{
    return slot(channel).deviceText;
}

void NvxWavInfoDataTMI::setDeviceText(const std::string& text, unsigned char channel)
{
    set(&NvxWavInfoSlot::deviceText, text, channel);
}

int16_t NvxWavInfoDataTMI::sensitivity(unsigned char channel) const
{
    return slot(channel).sensitivity;
}

void NvxWavInfoDataTMI::setSensitivity(int16_t sensitivity, unsigned char channel)
{
    set(&NvxWavInfoSlot::sensitivity, sensitivity, channel);
}

int16_t NvxWavInfoDataTMI::temperature(unsigned char channel) const
{
    return slot(channel).temperature;
}

void NvxWavInfoDataTMI::setTemperature(int16_t temperature, unsigned char channel)
{
    set(&NvxWavInfoSlot::temperature, temperature, channel);
}

int16_t NvxWavInfoDataTMI::humidity(unsigned char channel) const
{
    return slot(channel).humidity;
}

void NvxWavInfoDataTMI::setHumidity(int16_t humidity, unsigned char channel)
{
    set(&NvxWavInfoSlot::humidity, humidity, channel);
}

uint8_t NvxWavInfoDataTMI::statusExtra(unsigned char channel) const
{
    return slot(channel).statusExtra;
}

void NvxWavInfoDataTMI::setStatusExtra(uint8_t value, unsigned char channel)
{
    set(&NvxWavInfoSlot::statusExtra, value, channel);
}

std::string NvxWavInfoDataTMI::hwRelease(unsigned char channel) const
{
    return slot(channel).hwRelease;
}

void NvxWavInfoDataTMI::setHwRelease(const std::string& text, unsigned char channel)
{
    set(&NvxWavInfoSlot::hwRelease, text, channel);
}

std::unique_ptr<NvxWavInfoData> NvxWavInfoDataTMI::clone() const
{
    return std::make_unique<NvxWavInfoDataTMI>(*this);
}

std::vector<uint8_t> NvxWavInfoDataTMI::fileBytes() const
{
    ByteStream out;
    serialize(out);
    return out.take();
}

void NvxWavInfoDataTMI::serialize(ByteStream& out) const
{
    NvxWavInfoFields::putCommon(out, NvxWavInfoFields::Kind::Array, *this);
    out.putU8(numChannels());
    for (const NvxWavInfoSlot& each : m_slots)
        NvxWavInfoFields::putSlot(out, each);
}

bool NvxWavInfoDataTMI::deserialize(ByteReader& in)
{
    if (!NvxWavInfoFields::takeCommon(in, NvxWavInfoFields::Kind::Array, *this))
        return false;
    setNumChannels(in.u8());
    for (NvxWavInfoSlot& each : m_slots)
        NvxWavInfoFields::takeSlot(in, each);
    return in.ok();
}
