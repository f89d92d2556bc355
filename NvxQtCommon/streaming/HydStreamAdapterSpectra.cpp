// The part of HydStreamAdapter that looks into spectra.
#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/streaming/HydStreamAdapter.h"

#include <QPointer>

#include <algorithm>
#include <cmath>

namespace {

/// Half dB steps to whole dB, in eight bits: 255 turns into 0. This is intended.
void halve(std::span<unsigned char> values)
{
    for (unsigned char& value : values)
        value = static_cast<unsigned char>(static_cast<unsigned char>(value + 1) >> 1);
}

double levelOf(double power)
{
    constexpr double kLeastPower = 1e-9;
    return power > kLeastPower ? 10 * std::log10(power) : 0.0;
}

} // namespace

void HydStreamAdapter::setDeviceScale(NvxDataScale const& scale)
{
    m_deviceScale = scale;
    m_deviceScale.refType = RefDevice;
}

void HydStreamAdapter::setRefType(eReferenceType /*type*/)
{
    m_deviceScale.refType = RefDevice;
}

void HydStreamAdapter::setSignalPowerSet(CSignalPowerSettings const& settings)
{
    m_signalPowerSet = settings;
    m_minBin = m_signalPowerSet.getMinBinIndFFT();
    m_maxBin = m_signalPowerSet.getMaxBinIndFFT(static_cast<int>(FFT_Params_FFT.numBins()));
}

void HydStreamAdapter::dataProcFFT(std::shared_ptr<HydStreamDataPayload> payload)
{
    if (payload == nullptr)
        return;
    payload->setNoiseFiltered(false);
    const auto& chunk = payload->data();
    const double power = chunk != nullptr ? processBins(*chunk, m_deviceScale.powerOffset()) : 0.0;
    QPointer<HydStreamAdapter> self(this);
    Q_EMIT signalTotalPower(m_device.deviceId(), levelOf(power));
    if (!self.isNull())
        emitData(std::move(payload));
}

/// Brings the bytes to dB in place and gives the sum of the powers of the bins that count.
double HydStreamAdapter::processBins(const HydStreamDataChunk& chunk, float offset)
{
    const auto bytes = chunk.bytes();
    if (bytes == nullptr)
        return 0.0;
    const std::span values(bytes.get(), chunk.numSamples());
    if (m_streamType != StreamSpectrumFile)
        halve(values);
    const PowerTable::Powers& powers = m_powerTable.powers(offset);
    const auto size = static_cast<int64_t>(values.size());
    const int64_t end = std::min({size, int64_t{FFT_Params_FFT.numBins()}, int64_t{m_maxBin} + 1});
    double power = 0.0;
    for (int64_t bin = std::max(0, m_minBin); bin < end; ++bin)
        power += powers[values[static_cast<size_t>(bin)]];
    return power;
}
