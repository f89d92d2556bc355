#pragma once

#include "NvxQtCommon/contract/job/HydJobSettingsTag.h"
#include "NvxQtCommon/settings/CClickDetectSettings.h"
#include "NvxQtCommon/settings/CEpochSettings.h"
#include "NvxQtCommon/settings/CImpDetectSettings.h"
#include "NvxQtCommon/settings/CLogSettings.h"
#include "NvxQtCommon/settings/CSELSettings.h"
#include "NvxQtCommon/settings/CServerStreamSettings.h"
#include "NvxQtCommon/settings/VelaDeviceSettings.h"
#include "NvxQtCommon/settings/VelaJobDetails.h"

#include <QList>
#include <QSettings>

#include <utility>

/// One of each class that is stored, each in a group of its own.
struct AllSettings
{
    CLogSettings logs;
    VelaDeviceSettings device;
    VelaJobDetails details;
    CImpDetectSettings impulses;
    CClickDetectSettings clicks;
    CSELSettings exposure;
    CIRFilterPar filter;
    CEpochSettings epochs;
    CServerStreamSettings server;

    void save(QSettings* store) const
    {
        logs.save(store, QStringLiteral("Logs"));
        store->beginGroup(QStringLiteral("Device"));
        device.save(store);
        store->endGroup();
        device.saveJobMap(store, QStringLiteral("Tags"));
        details.save(store, QStringLiteral("Details"));
        impulses.save(store, QStringLiteral("Impulses"));
        clicks.save(store, QStringLiteral("Clicks"));
        exposure.save(store, QStringLiteral("Exposure"));
        filter.save(store, QStringLiteral("Filter"), QStringLiteral("Filter"));
        epochs.save(store, QStringLiteral("Epoch"));
        server.save(store, QStringLiteral("Server"));
    }
    void load(QSettings* store)
    {
        logs.load(store, QStringLiteral("Logs"));
        store->beginGroup(QStringLiteral("Device"));
        device.load(store);
        store->endGroup();
        device.loadJobMap(store, QStringLiteral("Tags"));
        details.load(store, QStringLiteral("Details"));
        impulses.load(store, QStringLiteral("Impulses"));
        clicks.load(store, QStringLiteral("Clicks"));
        exposure.load(store, QStringLiteral("Exposure"));
        filter.load(store, QStringLiteral("Filter"), QStringLiteral("Filter"));
        epochs.load(store, QStringLiteral("Epoch"));
        server.load(store, QStringLiteral("Server"));
    }
    void setTexts(const QString& text)
    {
        logs.setWavPrefix(text);
        logs.setFftPrefix(text);
        logs.setFftComment(text);
        logs.setWavOutputDir(text);
        logs.setFftOutputDir(text);
        logs.setScreenshotDir(text);
        logs.setAccMagOutputDir(text);
        logs.setBatteryDir(text);
        details.setJobName(text);
        details.setClient(text);
        details.setPersonnel(text);
        details.setDescription(text);
        details.setOperatorName(text);
        impulses.setImpulseOutputDir(text);
        impulses.setImpulsePrefix(text);
        impulses.setImpulseComment(text);
        clicks.setClickOutputDir(text);
        clicks.setClickPrefix(text);
        clicks.setClickComment(text);
        exposure.setSoundExposureOutputDir(text);
        exposure.setSEPrefix(text);
        epochs.setEpochOutputDir(text);
        epochs.setEpochPrefix(text);
        server.setMessageID(text.toStdString());
    }
    void setTagsAndTriggers()
    {
        for (int key = 0; key <= JobTagAuxMsg; ++key)
            device.setTag(HydJobSettingsTag::fromString(HydJobSettingsTag::keyName(JobTagKey(key)) + "=1"));
        device.setTag(std::make_shared<TmiDeviceListTag>(std::vector<uint16_t>{1, 70, 65535}));
        epochs.setTriggers({std::make_shared<HydTrigger_5_6>(), std::make_shared<HydTrigger_5_6>()});
    }
};

/// Each group of all settings with its keys, in the order in which they are written.
inline QList<std::pair<const char*, const char*>> keysOfGroups()
{
    return {
        // Not the order of the numbers, nor is it of impulses and filters: intended.
        {"Logs",
         "LogPathData/FftOutDir LogPathData/WavOutDir LogPathData/FftPrefix LogPathData/FftComment "
         "LogPathData/WavPrefix LogPathData/LogWAVEMode LogPathData/LogFftMode LogPathData/fftFromWAVE "
         "LogPathData/LogWAVELength LogPathData/LogFftLength LogPathData/LogWAVETime "
         "Screenshot/screenshotDir Screenshot/screenshotMode Screenshot/screenshotTime "
         "AccelrMagntr/logAccMagDir AccelrMagntr/logAccMagMode AccelrMagntr/logAccMagLength "
         "Battery/logBatteryDir Battery/logBatteryMode Battery/logBatteryLength Battery/logBatteryInterv"},
        {"Device", "TimeSyncType SyncMaster"},
        {"Tags", "AUX_PIN LOG_START_TIME FFT_SAMPLE_RATE FFT_REF_LEVEL FFT_POINTS FFT_POINTS_BTW FFT_TYPE "
                 "FFT_ACCUM FFT_WEIGHT FFT_LOG_MODE FFT_LOG_LENGTH DUTY_CYCLE_TIME DUTY_RUN_TIME "
                 "DUTY_IGNORE_TIME_CHANGE WAVE_SAMPLE_RATE WAVE_FORMAT WAVE_BIT_DEPTH WAVE_GAIN WAVE_ENDIAN "
                 "WAVE_LOG_MODE WAVE_LOG_LENGTH AUX_MSG ARRAY_SERIALS"},
        {"Details", "JobName Client Personnel Description OperatorName"},
        {"Impulses", "ImpulseOutputDir ImpulsePrefix ImpulseComment LogImpulseMode LogImpulseLength "
                     "impDetectThresh impResetThresh impPreDetect impPostDetect impSELThresh "
                     "impSPLBandThresh impUseAmbientLvl impAmbientLvl maxImpTime impHistory"},
        {"Clicks", "ClickOutputDir ClickPrefix ClickComment LogClickMode LogClickLength"},
        {"Exposure",
         "SEOutputDir SEPrefix LogSoundExposureMode LogSELength SELThreshold SEtimeInterval SEtimeWindow "
         "SEMaxKeepInterv SEInfinitKeepInterv SEPkThresh SEtimeWindowUnits SEIRFiler/FilterOrder "
         "SEIRFiler/FilterDecRate SEIRFiler/FilterCutOffFreq SEIRFiler/FilterCenterFreq "
         "SEIRFiler/FilterPassBandRipple SEIRFiler/FilterStopBandAtten SEIRFiler/FilterType "
         "SEIRFiler/FilterBandType SEIRFiler/FilterLength SEIRFiler/FilterFracSampleOffset "
         "SEIRFiler/FilterCoefScaleFactor SEIRFiler/FilterIRType SEIRFiler/SEcutOffFreq "
         "SEIRFiler/DecRateCros SEIRFiler/IsCDBlocker"},
        {"Filter", "AudioFilterOrder AudioFilterDecRate AudioFilterCutOffFreq AudioFilterCenterFreq "
                   "AudioFilterPassBandRipple AudioFilterStopBandAtten AudioFilterType AudioFilterBandType "
                   "AudioFilterLength AudioFilterFracSampleOffset AudioFilterCoefScaleFactor "
                   "AudioFilterIRType AudioSEcutOffFreq AudioDecRateCros AudioIsCDBlocker"},
        {"Epoch", "EpochOutDir EpochPrefix LogEpochDevMode LogEpochProgMode measEventDur trigBeepAlarm "
                  "showDevTriggers trigType0 trigNum0 trigEnabled0 trigDuration0 trigEventHold0 trigMinFreq0 "
                  "trigMaxFreq0 trigThreshType0 trigThreshold0 trigEffect0 preTRigger0 trigTestType0 "
                  "trigType1 trigNum1 trigEnabled1 trigDuration1 trigEventHold1 trigMinFreq1 trigMaxFreq1 "
                  "trigThreshType1 trigThreshold1 trigEffect1 preTRigger1 trigTestType1"},
        {"Server", "isStreamSgnPower isStreamSPLrms isStreamPeak isStreamSELcum isDevAlias messageID"},
    };
}
