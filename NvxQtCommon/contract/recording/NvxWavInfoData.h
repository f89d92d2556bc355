#pragma once

#include "NvxQtCommon/contract/identity/HydEnums.h"
#include "NvxQtCommon/contract/recording/NvxWavEventData.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// What describes a wave file: identity, time, scaling, status. Operations with a channel address the host
/// (the single recorder, or the array's master) by 0 and the channels from 1; on a channel that the record
/// doesn't have, getters give 0 or an empty text and setters do nothing.
class NVXQTCOMMON_EXPORT NvxWavInfoData : public NvxWavEventData
{
public:
    ~NvxWavInfoData() override;

    /// Time of the first sample, seconds since the epoch.
    virtual uint32_t timestamp() const;
    virtual void setTimestamp(uint32_t time);
    /// Running sample count at the start of the file, per channel.
    virtual uint64_t startSample() const;
    virtual void setStartSample(uint64_t sample);
    /// The device type as text; HydUtil::deviceType() turns it back.
    virtual std::string deviceType(unsigned char channel) const = 0;
    virtual void setDeviceType(HydDeviceType type, unsigned char channel) = 0;
    virtual uint16_t serialNo(unsigned char channel) const = 0;
    virtual void setSerialNo(uint16_t serial, unsigned char channel) = 0;
    /// Firmware version of the device.
    virtual std::string deviceText(unsigned char channel) const = 0;
    virtual void setDeviceText(const std::string& text, unsigned char channel) = 0;
    /// Name of the file without directory and ending, UTF-8.
    virtual std::string fileName() const;
    virtual void applyFileName(const std::string& name);
    /// The program that recorded; the same for every channel.
    virtual std::string software(unsigned char channel = 0) const;
    virtual void setSoftware(const std::string& text);
    /// Half of the voltage range, volts.
    virtual void setPeakVolts(float volts);
    /// Whole dB re 1 V/µPa.
    virtual int16_t sensitivity(unsigned char channel) const = 0;
    virtual void setSensitivity(int16_t sensitivity, unsigned char channel) = 0;
    /// As the status chunk gives them: tenths of a degree Celsius and tenths of a percent.
    virtual int16_t temperature(unsigned char channel) const = 0;
    virtual void setTemperature(int16_t temperature, unsigned char channel) = 0;
    virtual int16_t humidity(unsigned char channel) const = 0;
    virtual void setHumidity(int16_t humidity, unsigned char channel) = 0;
    virtual uint8_t statusExtra(unsigned char channel) const = 0;
    virtual void setStatusExtra(uint8_t value, unsigned char channel) = 0;
    /// Model and firmware release of the device, with a blank between them.
    virtual std::string hwRelease(unsigned char channel) const = 0;
    virtual void setHwRelease(const std::string& text, unsigned char channel) = 0;
    /// Sample value that one full scale has.
    virtual void setFullScaleCount(int32_t count);

    /// Channels of the file.
    virtual unsigned char numChannels() const = 0;
    virtual std::unique_ptr<NvxWavInfoData> clone() const = 0;
    /// The record's bytes as they stand in the file's private sub-chunk.
    virtual std::vector<uint8_t> fileBytes() const = 0;

    float peakVolts() const { return m_peakVolts; }
    int32_t fullScaleCount() const { return m_fullScaleCount; }

protected:
    NvxWavInfoData() = default;
    NvxWavInfoData(const NvxWavInfoData&) = default;
    NvxWavInfoData& operator=(const NvxWavInfoData&) = default;

private:
    friend class NvxWavInfoFields;

    uint32_t m_timestamp = 0;
    uint64_t m_startSample = 0;
    std::string m_fileName;
    std::string m_software;
    float m_peakVolts = 0.0F;
    int32_t m_fullScaleCount = 0;
};
