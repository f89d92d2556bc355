#include "NvxQtSimulator/RecorderState.h"

#include <QDateTime>

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

namespace {

constexpr uint32_t kMaxSampleRate = 512000;
constexpr size_t kMaxTriggers = 64;
constexpr size_t kMaxArrivals = 4096;
constexpr uint16_t kFftPoints = 1024;
// dB re 1 V. A sine wave of full scale gives a byte of 253, the least that is told from nothing is -126 dBFS.
constexpr int kFftRef = -120;

// Answers to a job setup that the recorder can't run.
enum SetupRefusal : uint16_t {
    SetupAccepted = 0,
    SetupBadWaveRate = 1,
    SetupBadBitDepth = 2,
    SetupBadByteOrder = 3,
    SetupBadFftPoints = 4,
    SetupBadFftRate = 5,
};

// Answers to a trigger, as the wire has them.
enum TriggerRefusal : uint16_t {
    TriggerAccepted = 0,
    TriggerBadBand = 2,
    TriggerBadType = 4,
    TriggerListFull = 5,
};

RecorderSettings withinLimits(RecorderSettings settings)
{
    settings.sampleRate = std::clamp<uint32_t>(settings.sampleRate, 1, kMaxSampleRate);
    settings.channels = std::clamp<unsigned>(settings.channels, 1, SignalSource::kMaxChannels);
    if (settings.bitDepth != 16 && settings.bitDepth != 32)
        settings.bitDepth = 24;
    settings.blocksPerSecond = std::clamp<unsigned>(settings.blocksPerSecond, 1, 1000);
    settings.scanMemorySeconds = std::max(settings.scanMemorySeconds, 1U);
    return settings;
}

HydJobSettings initialJob(const RecorderSettings& settings)
{
    HydJobSettings job;
    job.setWavRate(SampRate{settings.sampleRate});
    job.setWavBitDepth(HydWavBitDepth{static_cast<uint8_t>(settings.bitDepth)});
    job.setWavByteOrder(settings.byteOrder);
    job.setWavGain(0);
    job.setWavLogMode(LogOff);
    job.setWavLogLen(5);
    job.setFftRate(SampRate{settings.sampleRate});
    job.setFftPoints(kFftPoints);
    job.setFftPointsBtw(kFftPoints / 2);
    job.setFftAccum(std::max<uint32_t>(1, settings.sampleRate / (kFftPoints / 2) / 4));
    job.setFftRef(kFftRef);
    return job;
}

} // namespace

RecorderState::RecorderState(const RecorderSettings& settings, QObject* parent)
    : QObject(parent), m_settings(withinLimits(settings)), m_job(initialJob(m_settings)),
      m_clockOffset(settings.clockOffset), m_baseSample(settings.firstSequence),
      m_highestSample(settings.firstSequence), m_rollover(settings.rollover)
{
    const uint32_t address = m_settings.address.toIPv4Address();
    const uint16_t serial = m_settings.identity.serial;
    m_netInfo.setIpAddress(address);
    m_netInfo.setSubnetMask(0xFF000000);
    m_netInfo.setMacAddress(
        NvxMacAddr({0x02, 0x4E, static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address),
                    static_cast<uint8_t>(serial >> 8), static_cast<uint8_t>(serial)}));
    m_sinceBase.start();
    m_sinceMade.start();
    setFaults(m_settings.faults);
}

HydEnquireCmd::Report RecorderState::report() const
{
    const RecorderIdentity& who = m_settings.identity;
    HydEnquireCmd::Report report;
    report.devType = who.type;
    report.serial = who.serial;
    report.battStat = who.batteryState;
    report.battPercent = who.batteryPercent;
    report.sensitivity = who.sensitivity;
    report.temperature = who.temperature;
    report.humidity = who.humidity;
    report.sampleRate = waveRate();
    report.timeUtc = static_cast<int32_t>(deviceTime());
    report.netHostInfo = m_netInfo;
    report.model = who.model;
    report.firmwareVer = who.firmwareVersion;
    report.firmwareRel = who.firmwareRelease;
    return report;
}

uint16_t RecorderState::writeJobSetup(const JobTagMap& tags)
{
    HydJobSettings wanted = m_job;
    wanted.mergeMap(tags);
    if (wanted.wavRate() == 0 || wanted.wavRate() > kMaxSampleRate)
        return SetupBadWaveRate;
    if (wanted.wavBitDepth() != 16 && wanted.wavBitDepth() != 24 && wanted.wavBitDepth() != 32)
        return SetupBadBitDepth;
    if (wanted.wavByteOrder() != OrderLittleEndian && wanted.wavByteOrder() != OrderBigEndian)
        return SetupBadByteOrder;
    if (!std::has_single_bit(wanted.fftPoints()) || wanted.fftPoints() < 128 || wanted.fftPoints() > 16384 ||
        wanted.fftPointsBtw() == 0 || wanted.fftPointsBtw() > wanted.fftPoints())
        return SetupBadFftPoints;
    if (wanted.fftRate() == 0 || wanted.fftRate() > kMaxSampleRate || wanted.fftAccum() == 0)
        return SetupBadFftRate;
    if (wanted.wavRate() != m_job.wavRate())
        rebaseSampleCounter();
    m_job = wanted;
    return SetupAccepted;
}

void RecorderState::setWaveRate(uint32_t rate)
{
    rebaseSampleCounter();
    m_job.setWavRate(SampRate{std::clamp<uint32_t>(rate, 1, kMaxSampleRate)});
}

SampleFormat RecorderState::sampleFormat() const
{
    return {m_job.wavBitDepth() / 8U, m_job.wavByteOrder() == OrderBigEndian, m_settings.channels};
}

double RecorderState::spectrumReference(const HydJobSettings& job)
{
    constexpr double kVolts = RecorderSettings::kFullScaleMicrovolts / 1e6;
    // A sine wave of full scale has 0 dBFS, and this effective voltage.
    const double fullScale = 20.0 * std::log10(kVolts / std::numbers::sqrt2);
    return job.fftRef() - fullScale + job.wavGain();
}

int64_t RecorderState::deviceTime() const
{
    return QDateTime::currentSecsSinceEpoch() + m_clockOffset;
}

void RecorderState::setDeviceTime(int64_t seconds)
{
    m_clockOffset = seconds - QDateTime::currentSecsSinceEpoch();
}

int64_t RecorderState::currentSample() const
{
    const int64_t nanoseconds = m_sinceBase.nsecsElapsed();
    constexpr int64_t kSecond = 1000000000;
    const int64_t rate = waveRate();
    const int64_t taken = nanoseconds / kSecond * rate + nanoseconds % kSecond * rate / kSecond;
    return std::max(m_baseSample + taken, m_highestSample);
}

int64_t RecorderState::currentSample(uint32_t rate) const
{
    const int64_t sample = currentSample();
    const int64_t own = waveRate();
    return sample / own * rate + sample % own * rate / own;
}

void RecorderState::rebaseSampleCounter()
{
    m_baseSample = currentSample();
    m_sinceBase.restart();
}

std::vector<std::shared_ptr<HydTrigger>> RecorderState::triggers() const
{
    std::vector<std::shared_ptr<HydTrigger>> list;
    for (const auto& entry : m_triggers)
        list.push_back(entry.second);
    return list;
}

uint16_t RecorderState::writeTrigger(const std::shared_ptr<HydTrigger>& trigger)
{
    const auto known = std::dynamic_pointer_cast<HydTrigger_5_6>(trigger);
    if (!known)
        return TriggerBadType;
    if (known->minFreq() > known->maxFreq())
        return TriggerBadBand;
    if (m_triggers.size() >= kMaxTriggers && !m_triggers.contains(known->trigNum()))
        return TriggerListFull;
    m_triggers[known->trigNum()] = known;
    Q_EMIT triggersChanged();
    return TriggerAccepted;
}

void RecorderState::clearTriggers()
{
    m_triggers.clear();
    Q_EMIT triggersChanged();
}

void RecorderState::setTriggerActive(uint8_t number, bool active)
{
    if (active)
        m_activeTriggers.insert(number);
    else
        m_activeTriggers.erase(number);
}

void RecorderState::noteArrival(char letter)
{
    if (m_arrivals.size() == kMaxArrivals)
        m_arrivals.pop_front();
    m_arrivals.push_back({letter, m_sinceMade.elapsed()});
}

void RecorderState::setFaults(const FaultPlan& plan)
{
    m_settings.faults = plan;
    for (const FaultChannel channel :
         {FaultOnControl, FaultOnDiscovery, FaultOnWave, FaultOnSpectrum, FaultOnSensor, FaultOnEpoch})
        m_dice[channel] = FaultDice(plan, channel);
    if (!plan.isEmpty())
        qInfo("Simulated recorder %u: the seed of its faults is %llu", m_settings.identity.serial,
              static_cast<unsigned long long>(plan.seed()));
}

std::optional<int64_t> RecorderState::strike(FaultChannel channel, Fault fault)
{
    const auto value = m_dice[channel].strike(fault);
    if (value)
        ++counters.faults;
    return value;
}

void RecorderState::restart()
{
    clearTriggers();
    m_baseSample = m_settings.firstSequence;
    m_highestSample = m_settings.firstSequence;
    m_sinceBase.restart();
    Q_EMIT restarted();
}
