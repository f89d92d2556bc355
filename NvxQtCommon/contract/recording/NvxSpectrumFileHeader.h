#pragma once

#include "NvxQtCommon/contract/device/HydDevice.h"
#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/recording/DetectorSettings.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumEventData.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

/// Header of a file of the spectrum family. A copyable value; texts are UTF-8.
class NVXQTCOMMON_EXPORT NvxSpectrumFileHeader : public NvxSpectrumEventData
{
public:
    ~NvxSpectrumFileHeader() override;

    /// A new header of the event: device, rate and spectrum parameters, start time and start sample from its
    /// chunks, firmware and a missing device chunk's values from `device`, which may be null. A wave stream's
    /// header gives the rate and no spectrum parameters.
    static std::unique_ptr<NvxSpectrumFileHeader> fromEventHdr(const HydStreamEventHeaderPayload& event,
                                                               const std::shared_ptr<HydDevice>& device,
                                                               FFTMode mode);
    /// Reads the header of a file. Gives the position in bytes of what follows on it, the line of the
    /// column titles; -1, with this header as it was, for a file that can't be read, isn't of the family, is
    /// of another version or holds a value that is none.
    long long deserialise(const std::wstring& path);
    /// The same from the stream's position on.
    long long deserialise(std::istream& in);

    /// Name of the file without directory and ending; while it is empty the writer makes one of the kind and
    /// the start.
    void setFname(const std::wstring& name) { m_fname = name; }
    const std::wstring& fname() const { return m_fname; }
    /// Name of the file that this one goes on from.
    void setAdjFname(const std::wstring& name) { m_adjFname = name; }
    const std::wstring& adjFname() const { return m_adjFname; }
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
    /// True when the device is a wave file that is replayed.
    void setWavFile(bool wavFile) { m_wavFile = wavFile; }
    bool isWavFile() const { return m_wavFile; }
    /// True when the file goes on from another.
    void setAdjacent(bool adjacent) { m_adjacent = adjacent; }
    bool isAdjacent() const { return m_adjacent; }
    /// Seconds since the epoch.
    void setAdjacentT(unsigned long long time) { m_adjacentT = time; }
    unsigned long long adjacentT() const { return m_adjacentT; }
    /// Start of the file, seconds since the epoch.
    void setStartDt(unsigned long long time) { m_startDt = time; }
    unsigned long long startDt() const { return m_startDt; }
    /// Date of the start, "yyyy-MM-dd" in UTC.
    std::string startDate() const;
    /// Running sample number at the start of the file.
    void setStartSample(unsigned long long number) { m_startSample = number; }
    unsigned long long startSample() const { return m_startSample; }
    /// True when the device made the spectra, false when the computer did.
    void setIfDeviceFFT(bool deviceFft) { m_deviceFft = deviceFft; }
    bool ifDeviceFFT() const { return m_deviceFft; }
    void setSELSettings(const SSELSettings& settings) { m_selSettings = settings; }
    const SSELSettings& selSettings() const { return m_selSettings; }
    void setImpSettings(const SImpDetectSettings& settings) { m_impSettings = settings; }
    const SImpDetectSettings& impSettings() const { return m_impSettings; }

    /// Hz.
    uint32_t sampleRate() const { return m_sampleRate; }
    void setSampleRate(uint32_t rate) { m_sampleRate = rate; }
    /// Spectra that are averaged into one.
    uint32_t accums() const { return m_accums; }
    void setAccums(uint32_t count) { m_accums = count; }
    /// Points of a spectrum.
    uint32_t numPts() const { return m_numPts; }
    void setNumPts(uint32_t count) { m_numPts = count; }
    /// Points between two spectra.
    uint32_t numPtsBtw() const { return m_numPtsBtw; }
    void setNumPtsBtw(uint32_t count) { m_numPtsBtw = count; }
    /// How the device computes the levels.
    uint16_t powerCalc() const { return m_powerCalc; }
    void setPowerCalc(uint16_t type) { m_powerCalc = type; }
    /// Level of the byte value 0, dB re 1 V.
    int16_t refLevelVolts() const { return m_refLevelVolts; }
    void setRefLevelVolts(int16_t level) { m_refLevelVolts = level; }
    /// Level of the byte value 0, dB re 1 µPa: refLevelVolts() less sensitivity().
    float refLeveluPa() const { return static_cast<float>(m_refLevelVolts) - m_sensitivity; }
    /// dB re 1 V/µPa.
    float sensitivity() const { return m_sensitivity; }
    void setSensitivity(float sensitivity) { m_sensitivity = sensitivity; }

    /// Appends the lines that begin a file of records like `record`, the column titles not among them.
    void appendLines(std::string& out, const NvxComSpectrumEventData& record) const;
    /// True when spectra under the other header fit this one's file: rate, points, accumulations and mode
    /// are the same.
    bool fitsFileOf(const NvxSpectrumFileHeader& other) const;

private:
    bool takeEntry(std::string_view key, std::string_view value);

    std::wstring m_fname;
    std::wstring m_adjFname;
    std::string m_computerName;
    std::string m_userName;
    std::string m_clientName;
    std::string m_jobName;
    std::string m_personnel;
    std::string m_firmware;
    std::string m_devModel;
    HydDeviceId m_devId;
    FFTMode m_typeMode = FftModeSpectrum;
    bool m_wavFile = false;
    bool m_adjacent = false;
    uint64_t m_adjacentT = 0;
    uint64_t m_startDt = 0;
    uint64_t m_startSample = 0;
    bool m_deviceFft = true;
    SSELSettings m_selSettings;
    SImpDetectSettings m_impSettings;
    uint32_t m_sampleRate = 0;
    uint32_t m_accums = 0;
    uint32_t m_numPts = 0;
    uint32_t m_numPtsBtw = 0;
    uint16_t m_powerCalc = 0;
    int16_t m_refLevelVolts = 0;
    float m_sensitivity = 0.0F;
};
