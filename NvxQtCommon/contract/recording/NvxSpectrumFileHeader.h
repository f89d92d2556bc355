#pragma once

#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumEventData.h"
#include "NvxQtCommon/contract/recording/RecordingEnums.h"

#include <cstdint>
#include <string>

/// Header of a file of the spectrum family. A copyable value; texts are UTF-8.
class NVXQTCOMMON_EXPORT NvxSpectrumFileHeader : public NvxSpectrumEventData
{
public:
    ~NvxSpectrumFileHeader() override;

    /// Name of the file without directory and ending; while it is empty the writer makes one of the mode and
    /// the start.
    void setFname(const std::wstring& name) { m_fname = name; }
    const std::wstring& fname() const { return m_fname; }
    void setComputerName(const std::string& name) { m_computerName = name; }
    const std::string& computerName() const { return m_computerName; }
    void setUserName(const std::string& name) { m_userName = name; }
    const std::string& userName() const { return m_userName; }
    void setClientName(const std::string& name) { m_clientName = name; }
    const std::string& clientName() const { return m_clientName; }
    void setJobName(const std::string& name) { m_jobName = name; }
    const std::string& jobName() const { return m_jobName; }
    void setPersonnel(const std::string& names) { m_personnel = names; }
    const std::string& personnel() const { return m_personnel; }
    void setFirmware(const std::string& firmware) { m_firmware = firmware; }
    const std::string& firmware() const { return m_firmware; }
    void setDevModel(const std::string& model) { m_devModel = model; }
    const std::string& devModel() const { return m_devModel; }
    void setDeviceId(const HydDeviceId& id) { m_devId = id; }
    const HydDeviceId& devId() const { return m_devId; }
    void setTypeMode(FFTMode mode) { m_typeMode = mode; }
    FFTMode typeMode() const { return m_typeMode; }
    /// Seconds since the epoch.
    void setStartDt(unsigned long long time) { m_startDt = time; }
    unsigned long long startDt() const { return m_startDt; }
    /// Date of the start as text.
    std::string startDate() const;

    /// The header's lines, each ended by a line feed.
    std::string text() const;

private:
    std::wstring m_fname;
    std::string m_computerName;
    std::string m_userName;
    std::string m_clientName;
    std::string m_jobName;
    std::string m_personnel;
    std::string m_firmware;
    std::string m_devModel;
    HydDeviceId m_devId;
    FFTMode m_typeMode = FftModeSpectrum;
    uint64_t m_startDt = 0;
};
