#include "NvxQtSimulator/ArrayState.h"

#include "NvxQtCommon/contract/job/ZcrConfigFile.h"

#include <QDateTime>

#include <algorithm>
#include <bit>

namespace {

constexpr uint32_t kMaxArrayRate = 512000;
constexpr uint16_t kFewestPoints = 128;
constexpr uint16_t kMostPoints = 16384;

ArraySettings arrayWithinLimits(ArraySettings settings)
{
    settings.channels.resize(std::min(settings.channels.size(), ArraySettings::kMaxChannels));
    settings.sampleRate = std::clamp<uint32_t>(settings.sampleRate, 1, kMaxArrayRate);
    settings.points = std::bit_floor(std::clamp(settings.points, kFewestPoints, kMostPoints));
    settings.framesPerSecond = std::clamp<unsigned>(settings.framesPerSecond, 1, 1000);
    return settings;
}

HydJobSettings initialArrayJob(const ArraySettings& settings)
{
    const unsigned step = settings.points / 2U;
    HydJobSettings job;
    job.setWavRate(SampRate{settings.sampleRate});
    job.setWavBitDepth(HydWavBitDepth{24});
    job.setWavByteOrder(OrderLittleEndian);
    job.setWavLogMode(LogOn);
    job.setWavLogLen(5);
    job.setFftRate(SampRate{settings.sampleRate});
    job.setFftRef(settings.referenceDb);
    job.setFftPoints(settings.points);
    job.setFftPointsBtw(step);
    job.setFftProcType(HydFftProc{4});
    job.setFftAccum(std::max(1U, settings.sampleRate / step / settings.framesPerSecond));
    job.setFftWeight(1);
    job.setFftLogMode(LogOn);
    job.setFftLogLen(5);
    return job;
}

std::string_view viewOf(const QByteArray& bytes)
{
    return {bytes.constData(), static_cast<size_t>(bytes.size())};
}

} // namespace

ArrayState::ArrayState(const ArraySettings& settings, QObject* parent)
    : QObject(parent), m_settings(arrayWithinLimits(settings)), m_job(initialArrayJob(m_settings)),
      m_clockOffset(settings.clockOffset)
{
    const std::string file =
        editedZcrConfig("; Setup of a simulated array controller\n[*]\n", m_job, serials());
    m_file = QByteArray::fromStdString(file);
    setFaults(m_settings.faults);
}

std::vector<uint16_t> ArrayState::serials() const
{
    std::vector<uint16_t> list;
    for (const ArrayChannel& channel : m_settings.channels)
        list.push_back(channel.serial);
    return list;
}

int64_t ArrayState::deviceTime() const
{
    return QDateTime::currentSecsSinceEpoch() + m_clockOffset;
}

void ArrayState::setDeviceTime(int64_t time)
{
    m_clockOffset = time - QDateTime::currentSecsSinceEpoch();
}

void ArrayState::mergeJob(const JobTagMap& tags)
{
    m_job.mergeMap(tags);
    m_file = QByteArray::fromStdString(editedZcrConfig(viewOf(m_file), m_job, serials()));
}

bool ArrayState::setConfigFile(const QByteArray& file)
{
    if (file.size() > kMaxFileSize)
        return false;
    m_file = file;
    readZcrConfig(viewOf(m_file), m_job);
    return true;
}

void ArrayState::noteTarget(const QByteArray& target)
{
    if (m_targets.size() == kMaxTargets)
        m_targets.pop_front();
    m_targets.push_back(target);
}

void ArrayState::setFaults(const FaultPlan& plan)
{
    m_settings.faults = plan;
    for (const FaultChannel channel : {FaultOnHttp, FaultOnFtp, FaultOnFrames})
        m_dice[channel] = FaultDice(plan, channel);
    if (!plan.isEmpty())
        qInfo("Simulated array controller %u: the seed of its faults is %llu", m_settings.serial,
              static_cast<unsigned long long>(plan.seed()));
}

std::optional<int64_t> ArrayState::strike(FaultChannel channel, Fault fault)
{
    const auto value = m_dice[channel].strike(fault);
    if (value)
        ++counters.faults;
    return value;
}
