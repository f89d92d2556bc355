#pragma once

#include "NvxQtCommon/contract/base/DeserializationFactory.h"
#include "NvxQtCommon/contract/base/ISerializable.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoData.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoFields.h"
#include "NvxQtCommon/contract/stream/StreamChunks.h"

/// Description of a file of a single recorder. It holds one slot, so the channel makes no difference; but
/// once the record was read from a file, the device type of the host (index 0) stands apart from the
/// recorder's.
class NVXQTCOMMON_EXPORT NvxWavInfoDataHF : public NvxWavInfoData,
                                            public ISerializable,
                                            public DeserializationFactory<NvxWavInfoDataHF>
{
public:
    std::string deviceType(unsigned char channel) const override;
    void setDeviceType(HydDeviceType type, unsigned char channel) override;
    uint16_t serialNo(unsigned char) const override { return m_slot.serialNo; }
    void setSerialNo(uint16_t serial, unsigned char) override { m_slot.serialNo = serial; }
    std::string deviceText(unsigned char) const override { return m_slot.deviceText; }
    void setDeviceText(const std::string& text, unsigned char) override { m_slot.deviceText = text; }
    int16_t sensitivity(unsigned char) const override { return m_slot.sensitivity; }
    void setSensitivity(int16_t sensitivity, unsigned char) override { m_slot.sensitivity = sensitivity; }
    int16_t temperature(unsigned char) const override { return m_slot.temperature; }
    void setTemperature(int16_t temperature, unsigned char) override { m_slot.temperature = temperature; }
    int16_t humidity(unsigned char) const override { return m_slot.humidity; }
    void setHumidity(int16_t humidity, unsigned char) override { m_slot.humidity = humidity; }
    uint8_t statusExtra(unsigned char) const override { return m_slot.statusExtra; }
    void setStatusExtra(uint8_t value, unsigned char) override { m_slot.statusExtra = value; }
    std::string hwRelease(unsigned char) const override { return m_slot.hwRelease; }
    void setHwRelease(const std::string& text, unsigned char) override { m_slot.hwRelease = text; }
    unsigned char numChannels() const override { return 1; }
    std::unique_ptr<NvxWavInfoData> clone() const override;
    std::vector<uint8_t> fileBytes() const override;

    void setHwRelease(const std::string& text) { m_slot.hwRelease = text; }
    /// Shares the chunk: a heading that changes afterwards is the record's too. Null for none.
    void setHeadStatus(std::shared_ptr<HydStreamHeadStatusChunk> status) { m_headStatus = std::move(status); }
    const std::shared_ptr<HydStreamHeadStatusChunk>& headStatus() const { return m_headStatus; }

    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    NvxWavInfoSlot m_slot;
    bool m_readFromFile = false;
    HydDeviceType m_hostType = DevTypeAny;
    std::shared_ptr<HydStreamHeadStatusChunk> m_headStatus;
};
