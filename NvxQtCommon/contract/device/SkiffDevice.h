#pragma once

#include "NvxQtCommon/contract/device/HydDevice.h"

class ZcrDevice;

/// Record of a recorder behind an array controller.
class NVXQTCOMMON_EXPORT SkiffDevice : public HydDevice
{
public:
    SkiffDevice(uint16_t serial, HydDeviceType type, const NvxNetHostInfo& info, const JobTagMap& map)
        : HydDevice(serial, type, info, map)
    {
    }

    unsigned bandWidth() const { return m_bandWidth; }
    void setBandWidth(unsigned bandWidth) { m_bandWidth = bandWidth; }
    /// Channel number at the array controller. The setter's spelling is part of the interface.
    uint8_t zcrChannel() const { return m_zcrChannel; }
    void setZcrChanhel(uint8_t channel) { m_zcrChannel = channel; }
    /// Reference level of the spectra in dB.
    float spectrumVRef() const { return m_spectrumVRef; }
    void setSpectrumVRef(float level) { m_spectrumVRef = level; }
    /// The array controller's record; empty when it is gone or was never set.
    std::shared_ptr<ZcrDevice> ZCR_NVX_Dev() const { return m_zcrDevice.lock(); }

private:
    friend class ZcrDevice;

    unsigned m_bandWidth = 0;
    uint8_t m_zcrChannel = 0;
    float m_spectrumVRef = 0.0F;
    std::weak_ptr<ZcrDevice> m_zcrDevice;
};
