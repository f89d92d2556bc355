// The part of HydStreamAdapter that looks into spectra.
#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/streaming/HydStreamAdapter.h"

#include <QPointer>

#include <algorithm>

namespace {

/// Rate of a filter that hasn't got one of a file yet, Hz.
constexpr SampRate kFirstRate{2000};

const std::string kOtherRate = "The device FFT sample rate isn't equal to the noise filter sample rate.";
const std::string kNoFilter = "There is no FFT ambient noise filter file or the device FFT sample rate isn't "
                              "equal to the noise filter sample rate.";

/// Half dB steps to whole dB, in eight bits: 255 turns into 0. This is intended.
void halve(std::span<unsigned char> values)
{
    for (unsigned char& value : values)
        value = static_cast<unsigned char>(static_cast<unsigned char>(value + 1) >> 1);
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
    const HydStreamDataChunk* chunk = payload->data().get();
    const bool filtering = filters(chunk);
    payload->setNoiseFiltered(filtering);
    if (filtering)
        payload->ResetD(chunk->numSamples());
    const double power = chunk != nullptr ? processBins(*chunk, filtering) : 0.0;
    QPointer<HydStreamAdapter> self(this);
    Q_EMIT signalTotalPower(m_device.deviceId(), PowerTable::level(power));
    if (!self.isNull())
        emitData(std::move(payload));
}

/// Brings the bytes to dB in place, subtracts the noise and gives the sum of the powers of the bins that
/// count: of the bytes, without an offset while filtering. This is intended.
double HydStreamAdapter::processBins(const HydStreamDataChunk& chunk, bool filtering)
{
    const auto bytes = chunk.bytes();
    if (bytes == nullptr)
        return 0.0;
    const std::span values(bytes.get(), std::min<size_t>(chunk.numSamples(), chunk.byteSize()));
    if (m_streamType != StreamSpectrumFile)
        halve(values);
    if (filtering) {
        const auto doubles = chunk.doubles();
        const std::vector<float>& noise = m_noiseFilter->data();
        for (size_t bin = 0; bin < values.size(); ++bin)
            doubles[static_cast<std::ptrdiff_t>(bin)] = static_cast<float>(values[bin]) - noise[bin];
    }
    return m_powerTable.sum(values, filtering ? 0.0F : m_deviceScale.powerOffset(), m_minBin, m_maxBin);
}

// --- noise filter

bool HydStreamAdapter::isSpectrumLike() const
{
    return m_streamType == StreamSpectrum || m_streamType == StreamSpectrumScan ||
           m_streamType == StreamSpectrumFile;
}

bool HydStreamAdapter::isNoiseFiltOn() const
{
    return m_noiseFiltMode == NoiseFilterReady || m_noiseFiltMode == NoiseFilterSubtract;
}

bool HydStreamAdapter::ifNoiseFilterSuitable() const
{
    return isSpectrumLike() && isNoiseFiltOn();
}

bool HydStreamAdapter::filters(const HydStreamDataChunk* chunk) const
{
    return chunk != nullptr && isSpectrumLike() && m_noiseFiltMode == NoiseFilterSubtract &&
           m_noiseFilter != nullptr && m_noiseFilter->data().size() >= chunk->numSamples();
}

void HydStreamAdapter::giveUpNoiseFilter(const std::string& reason)
{
    QPointer<HydStreamAdapter> self(this);
    Q_EMIT signalNoNoiseFltr(reason, m_deviceId);
    if (!self.isNull())
        m_noiseFiltMode = NoiseFilterOff;
}

void HydStreamAdapter::setSampleRate(const HydJobSettings& settings)
{
    m_sampleRate = rateOf(settings);
    if (m_noiseFilter == nullptr) {
        if (m_noiseFiltMode == NoiseFilterSubtract)
            giveUpNoiseFilter(kNoFilter);
    } else if (ifNoiseFilterSuitable() && static_cast<int32_t>(m_noiseFilter->rate()) != m_sampleRate) {
        giveUpNoiseFilter(kOtherRate + ", noise filter has: " + std::to_string(m_noiseFilter->rate()));
    }
}

void HydStreamAdapter::setNoiseFiltMode(NOISE_FILTER_MODE mode, QString folder)
{
    m_noiseFiltMode = mode;
    if (!ifNoiseFilterSuitable())
        return;
    const SampRate rate = m_device.jobSettings().fftRate();
    if (m_noiseFilter == nullptr) {
        m_noiseFilter = std::make_shared<NvxNoiseFilter>(m_deviceId, std::move(folder), kFirstRate);
        m_noiseFilter->setIfDeviceFFT(true);
        if (!m_noiseFilter->read(static_cast<int>(rate))) {
            giveUpNoiseFilter(kNoFilter);
            return;
        }
        m_noiseFilter->calcAvg();
    }
    if (rate != m_noiseFilter->rate())
        giveUpNoiseFilter(kOtherRate);
}

void HydStreamAdapter::setNoiseFilter(std::shared_ptr<NvxNoiseFilter> filter)
{
    if (m_noiseFilter == nullptr)
        m_noiseFilter = std::make_shared<NvxNoiseFilter>(m_deviceId, QString(), kFirstRate);
    if (filter != nullptr)
        *m_noiseFilter = *filter;
}
