#pragma once

#include "NvxQtCommon/contract/recording/DetectorRecords.h"
#include "NvxQtCommon/contract/stream/StreamPayloads.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

/// What the payloads of a spectrum stream are made of; tests change the fields as they go.
struct SpectrumStream
{
    bool withKey = true;
    bool withDevice = true;
    bool withStatus = true;
    bool withSetup = true;
    HydDeviceType type = DevTypeRecorderA;
    uint16_t serial = 42;
    int16_t sensitivity = -1704; ///< tenths of a dB
    int16_t temperature = 123;   ///< tenths of a degree
    int16_t humidity = 456;      ///< tenths of a percent
    uint32_t rate = 48000;
    uint16_t points = 1024;
    uint16_t pointsBtw = 512;
    uint16_t accum = 20;
    uint16_t procType = 3;
    int16_t refLevel = -180;

    std::shared_ptr<HydStreamEventHeaderPayload> header(uint32_t time, int64_t sequence) const;
    std::shared_ptr<HydStreamDataPayload> spectrum(uint32_t time, int64_t sequence, uint32_t sampleNum,
                                                   const std::vector<uint8_t>& bytes) const;
    /// A spectrum with noise-filtered values; the bytes are all 7.
    std::shared_ptr<HydStreamDataPayload> filtered(uint32_t time, const std::vector<double>& values) const;
};

/// Fields of the text file at `path`: its header's entries, its column titles, and its records.
struct SpectrumText
{
    QByteArray signature;
    QList<QList<QByteArray>> entries;
    QList<QByteArray> titles;
    QList<QList<QByteArray>> records;
    bool complete = false; ///< the last line has its end

    static SpectrumText of(const QString& path);
    /// The value of a header entry; "missing" where there is none.
    QByteArray entry(const QByteArray& key) const;
};

std::shared_ptr<HydStatusDataPayload> makeSensorStatus();
SWavStatistics makeStatistics(uint64_t time);
SImpulseStatistics makeImpulse(uint64_t time);
SClickStatistics makeClick(uint64_t time);
