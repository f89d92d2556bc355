#pragma once

#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"
#include "tests/recording/WavBytes.h"

#include <QFile>
#include <QTemporaryDir>

#include <memory>

// Wave files for replay, made by hand.

inline constexpr uint32_t kTime = 1709210096;
inline constexpr uint64_t kStart = 0x123456789ABC;

inline QByteArray bytesOf(const std::vector<uint8_t>& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), qsizetype(bytes.size())};
}

/// The record of a recording of so many channels: channel c has serial 100 + c and sensitivity -170 - c.
inline std::shared_ptr<NvxWavInfoData> makeInfo(int channels)
{
    std::shared_ptr<NvxWavInfoData> info;
    if (channels == 1)
        info = std::make_shared<NvxWavInfoDataHF>();
    else
        info = std::make_shared<NvxWavInfoDataTMI>(static_cast<unsigned char>(channels));
    info->setTimestamp(kTime);
    info->setStartSample(kStart);
    info->setSoftware("Nerivox' test");
    for (int number = channels == 1 ? 1 : 0; number <= channels; ++number) {
        const auto channel = static_cast<unsigned char>(number);
        info->setDeviceType(number == 0 ? DevTypeTmi : DevTypeSkiff, channel);
        info->setSerialNo(static_cast<uint16_t>(100 + number), channel);
        info->setSensitivity(static_cast<int16_t>(-170 - number), channel);
        info->setDeviceText("version " + std::to_string(number), channel);
        info->setHwRelease("Model " + std::to_string(number), channel);
        info->setTemperature(static_cast<int16_t>(-20 + number), channel);
        info->setHumidity(static_cast<int16_t>(400 + number), channel);
    }
    return info;
}

inline QByteArray waveFile(const NvxWavInfoData& info, const WavBytes::Format& fmt, qsizetype sampleBytes,
                           qint64 claimed = -1)
{
    return WavBytes()
        .head()
        .format(fmt)
        .list(bytesOf(info.fileBytes()))
        .data(QByteArray(sampleBytes, 's'), claimed)
        .bytes;
}

/// A folder that goes with the test.
class WavFolder
{
public:
    /// Path of a new file of these bytes.
    QString write(const QByteArray& bytes)
    {
        const QString path = filePath(QStringLiteral("%1.wav").arg(++m_files));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            qFatal("the test's file can't be written");
        return path;
    }
    QString filePath(const QString& name) const { return m_dir.filePath(name); }
    QString path() const { return m_dir.path(); }

private:
    QTemporaryDir m_dir;
    int m_files = 0;
};
