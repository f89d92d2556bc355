#pragma once

#include "NvxQtCommon/contract/base/DeserializationFactory.h"
#include "NvxQtCommon/contract/base/ISerializable.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoData.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoFields.h"

#include <vector>

/// Description of a file of an array: a slot for each channel, and slot 0 for the master.
class NVXQTCOMMON_EXPORT NvxWavInfoDataTMI : public NvxWavInfoData,
                                             public ISerializable,
                                             public DeserializationFactory<NvxWavInfoDataTMI>
{
public:
    explicit NvxWavInfoDataTMI(unsigned char numChannels = 0) : m_slots(numChannels + size_t{1}) {}

    /// Channels beyond the new count are forgotten, new ones are empty.
    void setNumChannels(unsigned char numChannels) { m_slots.resize(numChannels + size_t{1}); }

    std::string deviceType(unsigned char channel) const override;
    void setDeviceType(HydDeviceType type, unsigned char channel) override;
    uint16_t serialNo(unsigned char channel) const override;
    void setSerialNo(uint16_t serial, unsigned char channel) override;
    std::string deviceText(unsigned char channel) const override;
    void setDeviceText(const std::string& text, unsigned char channel) override;
    int16_t sensitivity(unsigned char channel) const override;
    void setSensitivity(int16_t sensitivity, unsigned char channel) override;
    int16_t temperature(unsigned char channel) const override;
    void setTemperature(int16_t temperature, unsigned char channel) override;
    int16_t humidity(unsigned char channel) const override;
    void setHumidity(int16_t humidity, unsigned char channel) override;
    uint8_t statusExtra(unsigned char channel) const override;
    void setStatusExtra(uint8_t value, unsigned char channel) override;
    std::string hwRelease(unsigned char channel) const override;
    void setHwRelease(const std::string& text, unsigned char channel) override;
    unsigned char numChannels() const override { return static_cast<unsigned char>(m_slots.size() - 1); }
    std::unique_ptr<NvxWavInfoData> clone() const override;
    std::vector<uint8_t> fileBytes() const override;

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    const NvxWavInfoSlot& slot(unsigned char channel) const;
    template <class T> void set(T NvxWavInfoSlot::*field, const T& value, unsigned char channel);

    std::vector<NvxWavInfoSlot> m_slots;
};
