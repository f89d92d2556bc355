#include "NvxQtCommon/contract/recording/SensorData.h"

#include "NvxQtCommon/contract/recording/RecordText.h"

namespace {

constexpr double kPerThousand = 1000.0;
constexpr double kPerTen = 10.0;

/// A tab and the value of a chunk divided by `unit`; the tab alone where the chunk is missing.
template <class Chunk, class Value>
void appendScaled(std::string& out, const Chunk& chunk, double unit, Value value)
{
    out += '\t';
    if (chunk)
        RecordText::appendNumber(out, value(*chunk) / unit);
}

} // namespace

NvxSensorEventData::~NvxSensorEventData() = default;

void NvxSensorEventData::appendOrigin(std::string& out) const
{
    appendTimeAndComment(out);
    RecordText::appendDevice(out, m_devId);
}

NvxAccMagData::~NvxAccMagData() = default;
NvxBatteryData::~NvxBatteryData() = default;

std::unique_ptr<NvxAccMagData>
NvxAccMagData::fromStreamData(const std::shared_ptr<HydStatusDataPayload>& payload)
{
    return payload ? std::make_unique<NvxAccMagData>(*payload) : nullptr;
}

FFTMode NvxAccMagData::fileKind(FFTMode /*headerMode*/) const
{
    return FftModeAccMag;
}

void NvxAccMagData::appendTitles(std::string& out, const NvxSpectrumFileHeader& /*header*/) const
{
    out += "Time\tComment\tDevice\tSerial\tAcceleration x (g)\tAcceleration y (g)\tAcceleration z (g)\t"
           "Magnetic field x (uT)\tMagnetic field y (uT)\tMagnetic field z (uT)\tHeading (deg)\tPitch (deg)\t"
           "Roll (deg)";
}

void NvxAccMagData::appendLine(std::string& out) const
{
    appendOrigin(out);
    const auto& accMag = payload().accMagChunk();
    for (size_t axis = 0; axis < 3; ++axis)
        appendScaled(out, accMag, kPerThousand,
                     [axis](const HydAccMagChunk& chunk) { return chunk.record().acceleration[axis]; });
    for (size_t axis = 0; axis < 3; ++axis)
        appendScaled(out, accMag, kPerTen,
                     [axis](const HydAccMagChunk& chunk) { return chunk.record().magnetic[axis]; });
    const auto& head = payload().headChunk();
    appendScaled(out, head, kPerTen, [](const HydStreamHeadStatusChunk& chunk) { return chunk.heading(); });
    appendScaled(out, head, kPerTen, [](const HydStreamHeadStatusChunk& chunk) { return chunk.pitch(); });
    appendScaled(out, head, kPerTen, [](const HydStreamHeadStatusChunk& chunk) { return chunk.roll(); });
}

std::unique_ptr<NvxBatteryData>
NvxBatteryData::fromStreamData(const std::shared_ptr<HydStatusDataPayload>& payload)
{
    return payload ? std::make_unique<NvxBatteryData>(*payload) : nullptr;
}

FFTMode NvxBatteryData::fileKind(FFTMode /*headerMode*/) const
{
    return FftModeBattery;
}

void NvxBatteryData::appendTitles(std::string& out, const NvxSpectrumFileHeader& /*header*/) const
{
    out += "Time\tComment\tDevice\tSerial\tVoltage (V)\tCurrent (A)\tCharge (%)\tState\t"
           "Battery temperature (C)";
}

void NvxBatteryData::appendLine(std::string& out) const
{
    appendOrigin(out);
    const auto& battery = payload().batteryChunk();
    appendScaled(out, battery, kPerThousand,
                 [](const HydBatteryChunk& chunk) { return chunk.record().millivolts; });
    appendScaled(out, battery, kPerThousand,
                 [](const HydBatteryChunk& chunk) { return chunk.record().milliamperes; });
    appendScaled(out, battery, 1.0, [](const HydBatteryChunk& chunk) { return chunk.record().percent; });
    appendScaled(out, battery, 1.0, [](const HydBatteryChunk& chunk) { return chunk.record().state; });
    appendScaled(out, battery, kPerTen,
                 [](const HydBatteryChunk& chunk) { return chunk.record().temperature; });
}
