#pragma once

#include "NvxQtCommon/contract/job/HydJobSettings.h"
#include "NvxQtCommon/contract/recording/RecordingEnums.h"
#include "NvxQtCommon/settings/eReferenceType.h"

#include <cstdint>
#include <map>

class QSettings;
class QString;

/// The job settings of a device, and the choices of the application about it. A copyable value. The
/// comparison is that of the job settings: two that differ in the choices alone are equal.
class NVXQTCOMMON_EXPORT VelaDeviceSettings : public HydJobSettings
{
public:
    /// Where the device's clock comes from.
    enum SyncType : int32_t {
        SyncNone = 0,
        SyncComputer = 1, ///< this computer's clock
        SyncDevice = 2,   ///< the clock of the device of syncMaster()
    };
    /// What the device streams.
    enum JobDevStreamRegime : int32_t {
        StreamRegimeSpectra = 0,
        StreamRegimeWaves = 1,
        StreamRegimeNone = 2,
    };

    VelaDeviceSettings() = default;
    explicit VelaDeviceSettings(const HydJobSettings& job) : HydJobSettings(job) {}
    ~VelaDeviceSettings() override;

    SyncType timeSyncType() const { return m_syncType; }
    void setTimeSyncType(SyncType type) { m_syncType = type; }
    /// Serial number of the device whose clock the others follow.
    uint16_t syncMaster() const { return m_syncMaster; }
    void setSyncMaster(uint16_t serial) { m_syncMaster = serial; }
    JobDevStreamRegime regStream() const { return m_streamReg; }
    void setStreamReg(JobDevStreamRegime regime) { m_streamReg = regime; }
    FFTMode regFFTMode() const { return m_regFFTMode; }
    void setRegFFTMode(FFTMode mode) { m_regFFTMode = mode; }
    WAVEMode regWAVEMode() const { return m_regWAVEMode; }
    void setRegWAVEMode(WAVEMode mode) { m_regWAVEMode = mode; }
    eReferenceType refType() const { return m_refType; }
    void setRefType(eReferenceType type) { m_refType = type; }
    bool chartDisp() const { return m_chartDisp; }
    void setChartDisp(bool shown) { m_chartDisp = shown; }
    /// True for a serial number that nothing was set for.
    bool chartDisp(unsigned short serial) const;
    void setChartDisp(bool shown, unsigned short serial) { m_chartDispBySerial[serial] = shown; }
    /// The mode of the waves, 0 or 1, as far as waves stream and the mode is one of these; 0 where another
    /// mode asks for spectra of a kind that is made of waves; else 2: nobody wants them.
    int checkWAVEReg() const;

    /// Time sync type and sync master, in the group that the store is in.
    void save(QSettings* store) const;
    /// What is missing loads as 0; of a larger number than a serial number the low 16 bits count.
    void load(QSettings* store);
    /// The job tags, as key and value each. Only the part of a value behind its last "=" is kept; a tag that
    /// the library doesn't know has no name and isn't stored.
    void saveJobMap(QSettings* store, const QString& group) const;
    /// Adds the tags that stand in the group, and replaces those of equal keys; a key that no tag has is
    /// passed over, and a value that is no number counts as 0. Without the group nothing changes. It is
    /// looked for right below the one that the store is in, so an empty name and one with "/" are saved and
    /// not found again.
    void loadJobMap(QSettings* store, const QString& group);

private:
    template <class Self, class Each> static void forEachValue(Self& self, const Each& each);

    SyncType m_syncType = SyncNone;
    uint16_t m_syncMaster = 0;
    JobDevStreamRegime m_streamReg = StreamRegimeSpectra;
    FFTMode m_regFFTMode = FftModeSpectrum;
    WAVEMode m_regWAVEMode = WaveModeOff;
    eReferenceType m_refType{};
    bool m_chartDisp = true;
    std::map<uint16_t, bool> m_chartDispBySerial;
};
