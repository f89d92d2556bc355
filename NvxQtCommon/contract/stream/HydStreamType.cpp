#include "NvxQtCommon/contract/stream/HydStreamType.h"

std::string streamTypeText(HydStreamType type)
{
    switch (type) {
    case StreamWave:
        return "Waveform";
    case StreamSpectrum:
        return "Spectrum";
    case StreamSensor:
        return "Sensor";
    case StreamRawWave:
        return "RawWave";
    case StreamEpoch:
        return "Epoch";
    case StreamWaveScan:
        return "WaveformScan";
    case StreamSpectrumScan:
        return "SpectrumScan";
    case StreamSensorScan:
        return "SensorScan";
    case StreamWaveFile:
        return "WaveformFile";
    case StreamSpectrumFile:
        return "SpectrumFile";
    }
    return "Unknown";
}

std::string sensStreamText(uint16_t bits)
{
    std::string text;
    if ((bits & SensTempHumidity) != 0)
        text += "_Temperature_Humidity";
    if ((bits & SensTriggers) != 0)
        text += "_Triggers";
    if ((bits & SensTimeSync) != 0)
        text += "_Time_Synchronization";
    if ((bits & SensTimeBattery) != 0)
        text += "_Time_Battery";
    if ((bits & SensAccMag) != 0)
        text += "_Accelerometer_Magnetometer";
    return text;
}
