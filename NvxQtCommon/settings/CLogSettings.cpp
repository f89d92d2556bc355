#include "NvxQtCommon/settings/CLogSettings.h"

#include "NvxQtCommon/settings/SettingsStore.h"

#include <QMap>

namespace {

enum Key {
    WavPrefix,
    FftPrefix,
    FftComment,
    LogWAVEMode,
    LogFftMode,
    WavOutDir,
    FftOutDir,
    LogWAVELength,
    LogFftLength,
    LogWAVETime,
    FftFromWAVE,
    ScreenshotDir,
    ScreenshotMode,
    ScreenshotTime,
    LogAccMagDir,
    LogAccMagMode,
    LogAccMagLength,
    LogBatteryDir,
    LogBatteryMode,
    LogBatteryLength,
    LogBatteryInterv,
};

enum Part {
    LogPathData,
    Screenshot,
    AccelrMagntr,
    Battery,
};

const SettingsKeys& keys()
{
    static const SettingsKeys names{
        {WavPrefix, QStringLiteral("WavPrefix")},
        {FftPrefix, QStringLiteral("FftPrefix")},
        {FftComment, QStringLiteral("FftComment")},
        {LogWAVEMode, QStringLiteral("LogWAVEMode")},
        {LogFftMode, QStringLiteral("LogFftMode")},
        {WavOutDir, QStringLiteral("WavOutDir")},
        {FftOutDir, QStringLiteral("FftOutDir")},
        {LogWAVELength, QStringLiteral("LogWAVELength")},
        {LogFftLength, QStringLiteral("LogFftLength")},
        {LogWAVETime, QStringLiteral("LogWAVETime")},
        {FftFromWAVE, QStringLiteral("fftFromWAVE")},
        {ScreenshotDir, QStringLiteral("screenshotDir")},
        {ScreenshotMode, QStringLiteral("screenshotMode")},
        {ScreenshotTime, QStringLiteral("screenshotTime")},
        {LogAccMagDir, QStringLiteral("logAccMagDir")},
        {LogAccMagMode, QStringLiteral("logAccMagMode")},
        {LogAccMagLength, QStringLiteral("logAccMagLength")},
        {LogBatteryDir, QStringLiteral("logBatteryDir")},
        {LogBatteryMode, QStringLiteral("logBatteryMode")},
        {LogBatteryLength, QStringLiteral("logBatteryLength")},
        {LogBatteryInterv, QStringLiteral("logBatteryInterv")},
    };
    return names;
}

const QMap<int, QString>& partNames()
{
    static const QMap<int, QString> names{
        {LogPathData, QStringLiteral("LogPathData")},
        {Screenshot, QStringLiteral("Screenshot")},
        {AccelrMagntr, QStringLiteral("AccelrMagntr")},
        {Battery, QStringLiteral("Battery")},
    };
    return names;
}

} // namespace

/// The order within "LogPathData" is not that of the numbers, and meant so.
template <class Self, class Each> void CLogSettings::forEachValue(Self& self, int part, const Each& each)
{
    switch (part) {
    case LogPathData:
        each(FftOutDir, self.m_fftOutputDir);
        each(WavOutDir, self.m_wavOutputDir);
        each(FftPrefix, self.m_fftPrefix);
        each(FftComment, self.m_fftComment);
        each(WavPrefix, self.m_wavPrefix);
        each(LogWAVEMode, self.m_logWaveMode);
        each(LogFftMode, self.m_logFftMode);
        each(FftFromWAVE, self.m_fftFromWave);
        each(LogWAVELength, self.m_logWaveLength);
        each(LogFftLength, self.m_logFftLength);
        each(LogWAVETime, self.m_wavTimeLog);
        break;
    case Screenshot:
        each(ScreenshotDir, self.m_screenshotDir);
        each(ScreenshotMode, self.m_screenshotMode);
        each(ScreenshotTime, self.m_screenshotTime);
        break;
    case AccelrMagntr:
        each(LogAccMagDir, self.m_accMagOutputDir);
        each(LogAccMagMode, self.m_logAccMagMode);
        each(LogAccMagLength, self.m_logAccMagLength);
        break;
    case Battery:
        each(LogBatteryDir, self.m_batteryDir);
        each(LogBatteryMode, self.m_logBatteryMode);
        each(LogBatteryLength, self.m_logBatteryLength);
        each(LogBatteryInterv, self.m_logBatteryInterv);
        break;
    default:
        break;
    }
}

template <class Visitor, class Self>
void CLogSettings::visit(Self& self, QSettings* store, const QString& group)
{
    const SettingsGroup whole(store, group);
    for (auto part = partNames().cbegin(); part != partNames().cend(); ++part)
        forEachValue(self, part.key(), Visitor(store, part.value(), keys()));
}

void CLogSettings::save(QSettings* store, const QString& group) const
{
    visit<SettingsWriter>(*this, store, group);
}

void CLogSettings::load(QSettings* store, const QString& group)
{
    visit<SettingsReader>(*this, store, group);
}
