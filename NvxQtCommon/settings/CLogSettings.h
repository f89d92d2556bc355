#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/job/HydJobEnums.h"
#include "NvxQtCommon/settings/OutputFolder.h"

#include <QString>

#include <cstdint>

class QSettings;

/// Where and how each kind of data is logged. A plain value.
class NVXQTCOMMON_EXPORT CLogSettings
{
public:
    /// Prefix of wave files.
    const QString& wavPrefix() const { return m_wavPrefix; }
    void setWavPrefix(const QString& value) { m_wavPrefix = value; }
    /// Prefix of spectrum files.
    const QString& fftPrefix() const { return m_fftPrefix; }
    void setFftPrefix(const QString& value) { m_fftPrefix = value; }
    /// Comment of each spectrum record.
    const QString& fftComment() const { return m_fftComment; }
    void setFftComment(const QString& value) { m_fftComment = value; }
    /// Waves are logged.
    HydLogMode logWAVEMode() const { return m_logWaveMode; }
    void setLogWAVEMode(HydLogMode value) { m_logWaveMode = value; }
    /// Spectra are logged.
    HydLogMode logFftMode() const { return m_logFftMode; }
    void setLogFftMode(HydLogMode value) { m_logFftMode = value; }
    /// Folder of wave files.
    const QString& wavOutputDir() const { return m_wavOutputDir; }
    void setWavOutputDir(const QString& value) { m_wavOutputDir = value; }
    /// Folder of spectrum files.
    const QString& fftOutputDir() const { return m_fftOutputDir; }
    void setFftOutputDir(const QString& value) { m_fftOutputDir = value; }
    /// Length of wave files, minutes.
    uint16_t logWAVELength() const { return m_logWaveLength; }
    void setLogWAVELength(uint16_t value) { m_logWaveLength = value; }
    /// Length of spectrum files, minutes.
    uint16_t logFftLength() const { return m_logFftLength; }
    void setLogFftLength(uint16_t value) { m_logFftLength = value; }
    /// Timing records are logged instead of waves.
    HydLogMode wavTimeLog() const { return m_wavTimeLog; }
    void setWavTimeLog(HydLogMode value) { m_wavTimeLog = value; }
    /// Spectra are computed from waves.
    HydLogMode fftFromWAVE() const { return m_fftFromWave; }
    void setFftFromWAVE(HydLogMode value) { m_fftFromWave = value; }
    /// Folder of screenshots.
    const QString& screenshotDir() const { return m_screenshotDir; }
    void setScreenshotDir(const QString& value) { m_screenshotDir = value; }
    /// Screenshots are taken.
    HydLogMode screenshotMode() const { return m_screenshotMode; }
    void setScreenshotMode(HydLogMode value) { m_screenshotMode = value; }
    /// Minutes between screenshots.
    int screenshotTime() const { return m_screenshotTime; }
    void setScreenshotTime(int value) { m_screenshotTime = value; }
    /// Folder of accelerometer and magnetometer files.
    const QString& accMagOutputDir() const { return m_accMagOutputDir; }
    void setAccMagOutputDir(const QString& value) { m_accMagOutputDir = value; }
    /// Accelerometer and magnetometer are logged.
    HydLogMode logAccMagMode() const { return m_logAccMagMode; }
    void setLogAccMagMode(HydLogMode value) { m_logAccMagMode = value; }
    /// Length of these files, minutes.
    int logAccMagLength() const { return m_logAccMagLength; }
    void setLogAccMagLength(int value) { m_logAccMagLength = value; }
    /// Folder of battery files.
    const QString& batteryDir() const { return m_batteryDir; }
    void setBatteryDir(const QString& value) { m_batteryDir = value; }
    /// Battery readings are logged.
    HydLogMode logBatteryMode() const { return m_logBatteryMode; }
    void setLogBatteryMode(HydLogMode value) { m_logBatteryMode = value; }
    /// Records of a battery file.
    int logBatteryLength() const { return m_logBatteryLength; }
    void setLogBatteryLength(int value) { m_logBatteryLength = value; }
    /// Seconds between battery records.
    int logBatteryInterv() const { return m_logBatteryInterv; }
    void setLogBatteryInterv(int value) { m_logBatteryInterv = value; }

    void save(QSettings* store, const QString& group) const;
    /// A number that is missing loads as 0; a text that is missing or empty stays.
    void load(QSettings* store, const QString& group);

    bool operator==(const CLogSettings&) const = default;

private:
    template <class Self, class Each> static void forEachValue(Self& self, int part, const Each& each);
    template <class Visitor, class Self>
    static void visit(Self& self, QSettings* store, const QString& group);

    QString m_wavPrefix = QStringLiteral("VEW");
    QString m_fftPrefix = QStringLiteral("VEF");
    QString m_fftComment;
    HydLogMode m_logWaveMode = LogOff;
    HydLogMode m_logFftMode = LogOff;
    QString m_wavOutputDir = defaultOutputFolder();
    QString m_fftOutputDir = defaultOutputFolder();
    uint16_t m_logWaveLength = 1;
    uint16_t m_logFftLength = 1;
    HydLogMode m_wavTimeLog = LogOff;
    HydLogMode m_fftFromWave = LogOff;
    QString m_screenshotDir = defaultOutputFolder();
    HydLogMode m_screenshotMode = LogOff;
    int m_screenshotTime = 1;
    QString m_accMagOutputDir = defaultOutputFolder();
    HydLogMode m_logAccMagMode = LogOff;
    int m_logAccMagLength = 1;
    QString m_batteryDir = defaultOutputFolder();
    HydLogMode m_logBatteryMode = LogOff;
    int m_logBatteryLength = 1000;
    int m_logBatteryInterv = 5;
};
