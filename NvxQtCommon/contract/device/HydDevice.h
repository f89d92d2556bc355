#pragma once

#include "NvxQtCommon/contract/device/NvxDevice.h"

/// Record of one recorder.
class NVXQTCOMMON_EXPORT HydDevice : public NvxDevice
{
public:
    explicit HydDevice(HydDeviceType type = DevTypeAny) : NvxDevice(type) {}
    HydDevice(uint16_t serial, HydDeviceType type, const NvxNetHostInfo& info, const JobTagMap& map);

    /// The record class of a type: 8 TmiDevice, 13 TdRecDevice, 15 SkiffDevice, 16 ZcrDevice, else HydDevice.
    static std::shared_ptr<HydDevice> createDevice(HydDeviceType type);

    bool updateFromEnquire(const HydEnquireCmd& reply) override;

    HydBattStatus battStat() const { return m_battStat; }
    void setBattStat(HydBattStatus status) { m_battStat = status; }
    uint8_t battPercent() const { return m_battPercent; }
    void setBattPercent(const uint8_t& percent) { m_battPercent = percent; }
    /// dB re 1 V/µPa.
    float sensitivity() const { return m_sensitivity; }
    void setSensitivity(float sensitivity) { m_sensitivity = sensitivity; }
    const std::string& modelString() const { return m_model; }
    void setModelString(const std::string& model) { m_model = model; }
    const std::string& firmwareRel() const { return m_firmwareRel; }
    void setFirmwareRel(const std::string& release) { m_firmwareRel = release; }
    /// Degrees Celsius.
    virtual float temperature() const { return m_temperature; }
    virtual void setTemperature(float temperature) { m_temperature = temperature; }
    /// Percent.
    virtual float humidity() const { return m_humidity; }
    virtual void setHumidity(float humidity) { m_humidity = humidity; }
    /// Hz, as the device reports it.
    virtual uint32_t sampleRate() const { return m_sampleRate; }
    virtual void setSampleRate(uint32_t rate) { m_sampleRate = rate; }

private:
    HydBattStatus m_battStat = BattUnknown;
    uint8_t m_battPercent = 0;
    float m_sensitivity = 0.0F;
    std::string m_model;
    std::string m_firmwareRel;
    float m_temperature = 0.0F;
    float m_humidity = 0.0F;
    uint32_t m_sampleRate = 0;
};
