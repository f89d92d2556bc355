#include "NvxQtCommon/contract/job/HydJobSettings.h"

#include "NvxQtCommon/contract/base/NvxLog.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array kJobRates{JobTagFftRate, JobTagWavRate};
constexpr std::array kJobSwitches{JobTagFftLogMode, JobTagWavLogMode, JobTagWavByteOrder};

template <class Keys> bool isOneOf(const Keys& keys, JobTagKey key)
{
    for (const auto candidate : keys) {
        if (candidate == key)
            return true;
    }
    return false;
}

/// Why a tag can't be run by a device whose tag of that key is `limit` (null where it sets none); empty when
/// it can.
std::string setupFault(const HydJobSettingsTag& wanted, const HydJobSettingsTag* limit)
{
    const auto number = wanted.number();
    const bool isDepth = wanted.key() == JobTagWavBitDepth;
    if (isOneOf(kJobRates, wanted.key()) && number <= 0)
        return wanted.toString() + " is no rate";
    if (isDepth && number != 16 && number != 24 && number != 32)
        return wanted.toString() + " is no bit depth";
    if (isOneOf(kJobSwitches, wanted.key()) && number > 1)
        return wanted.toString() + " is no known mode";
    const bool hasLimit = isDepth || isOneOf(kJobRates, wanted.key());
    if (hasLimit && limit != nullptr && number > limit->number())
        return wanted.toString() + " exceeds " + limit->toString();
    return {};
}

std::string strictSetupFault(const HydJobSettingsTag& wanted, const HydJobSettingsTag* given)
{
    if (given == nullptr)
        return wanted.toString() + " is missing";
    ByteStream wantedBytes;
    ByteStream givenBytes;
    wanted.serialize(wantedBytes);
    given->serialize(givenBytes);
    if (std::ranges::equal(wantedBytes.bytes(), givenBytes.bytes()))
        return {};
    return wanted.toString() + " differs from " + given->toString();
}

} // namespace

HydJobSettings::HydJobSettings(const JobTagMap& map)
{
    mergeMap(map);
}

HydJobSettings::~HydJobSettings() = default;

void HydJobSettings::setTag(std::shared_ptr<HydJobSettingsTag> tag)
{
    if (tag)
        mergeMap({{tag->key(), tag}});
}

void HydJobSettings::mergeMap(const JobTagMap& map)
{
    size_t dropped = 0;
    for (const auto& [key, tag] : map) {
        if (tag && !put(key, tag))
            ++dropped;
    }
    if (dropped > 0)
        nvxLog(NvxLogLevel::Debug,
               "A job setup takes no more unknown tags, dropped: " + std::to_string(dropped));
}

bool HydJobSettings::put(JobTagKey key, const std::shared_ptr<HydJobSettingsTag>& tag)
{
    const auto found = m_map.find(key);
    const auto* old = found == m_map.end() ? nullptr : dynamic_cast<const HydRawTag*>(found->second.get());
    const auto* unknown = dynamic_cast<const HydRawTag*>(tag.get());
    const auto tags = m_unknownTags - (old != nullptr ? 1 : 0) + (unknown != nullptr ? 1 : 0);
    const auto bytes =
        m_unknownBytes - (old != nullptr ? old->size() : 0) + (unknown != nullptr ? unknown->size() : 0);
    if (unknown != nullptr && (tags > kMaxUnknownTags || bytes > kMaxUnknownTagBytes))
        return false;
    m_map[key] = tag;
    m_unknownTags = tags;
    m_unknownBytes = bytes;
    return true;
}

float HydJobSettings::calcFftUpdateRate(float accum, float rate, float overlapLength)
{
    return rate > 0.0F ? accum * overlapLength / rate : 0.0F;
}

uint32_t HydJobSettings::number(JobTagKey key) const
{
    const auto found = m_map.find(key);
    return found == m_map.end() ? 0U : static_cast<uint32_t>(found->second->number());
}

void HydJobSettings::setNumber(JobTagKey key, uint32_t value)
{
    put(key, std::make_shared<HydNumberTag>(key, value));
}

void HydJobSettings::setMap(const JobTagMap& map)
{
    HydJobSettings fresh(map);
    m_map.swap(fresh.m_map);
    m_unknownTags = fresh.m_unknownTags;
    m_unknownBytes = fresh.m_unknownBytes;
}

AuxPinFunc HydJobSettings::auxFunc() const
{
    return static_cast<AuxPinFunc>(number(JobTagAuxFunc));
}

void HydJobSettings::setAuxFunc(AuxPinFunc value)
{
    setNumber(JobTagAuxFunc, value);
}

AuxPinMsg HydJobSettings::auxMsg() const
{
    return static_cast<AuxPinMsg>(number(JobTagAuxMsg));
}

void HydJobSettings::setAuxMsg(AuxPinMsg value)
{
    setNumber(JobTagAuxMsg, value);
}

int HydJobSettings::wavLogStartTime() const
{
    return static_cast<int>(number(JobTagWavLogStartTime));
}

void HydJobSettings::setWavLogStartTime(int value)
{
    setNumber(JobTagWavLogStartTime, static_cast<uint32_t>(value));
}

SampRate HydJobSettings::fftRate() const
{
    return static_cast<SampRate>(number(JobTagFftRate));
}

void HydJobSettings::setFftRate(SampRate value)
{
    setNumber(JobTagFftRate, value);
}

int HydJobSettings::fftRef() const
{
    return static_cast<int>(number(JobTagFftRef));
}

void HydJobSettings::setFftRef(int value)
{
    setNumber(JobTagFftRef, static_cast<uint32_t>(value));
}

unsigned HydJobSettings::fftPoints() const
{
    return number(JobTagFftPoints);
}

void HydJobSettings::setFftPoints(unsigned value)
{
    setNumber(JobTagFftPoints, value);
}

unsigned HydJobSettings::fftPointsBtw() const
{
    return number(JobTagFftPointsBtw);
}

void HydJobSettings::setFftPointsBtw(unsigned value)
{
    setNumber(JobTagFftPointsBtw, value);
}

HydFftProc HydJobSettings::fftProcType() const
{
    return static_cast<HydFftProc>(number(JobTagFftProcType));
}

void HydJobSettings::setFftProcType(HydFftProc value)
{
    setNumber(JobTagFftProcType, value);
}

unsigned HydJobSettings::fftAccum() const
{
    return number(JobTagFftAccum);
}

void HydJobSettings::setFftAccum(unsigned value)
{
    setNumber(JobTagFftAccum, value);
}

unsigned HydJobSettings::fftWeight() const
{
    return number(JobTagFftWeight);
}

void HydJobSettings::setFftWeight(unsigned value)
{
    setNumber(JobTagFftWeight, value);
}

HydLogMode HydJobSettings::fftLogMode() const
{
    return static_cast<HydLogMode>(number(JobTagFftLogMode));
}

void HydJobSettings::setFftLogMode(HydLogMode value)
{
    setNumber(JobTagFftLogMode, value);
}

unsigned HydJobSettings::fftLogLen() const
{
    return number(JobTagFftLogLen);
}

void HydJobSettings::setFftLogLen(unsigned value)
{
    setNumber(JobTagFftLogLen, value);
}

unsigned HydJobSettings::dutyCyclePeriod() const
{
    return number(JobTagDutyCyclePeriod);
}

void HydJobSettings::setDutyCyclePeriod(unsigned value)
{
    setNumber(JobTagDutyCyclePeriod, value);
}

unsigned HydJobSettings::dutyCycleActive() const
{
    return number(JobTagDutyCycleActive);
}

void HydJobSettings::setDutyCycleActive(unsigned value)
{
    setNumber(JobTagDutyCycleActive, value);
}

unsigned HydJobSettings::dutyCycleIgn() const
{
    return number(JobTagDutyCycleIgn);
}

void HydJobSettings::setDutyCycleIgn(unsigned value)
{
    setNumber(JobTagDutyCycleIgn, value);
}

SampRate HydJobSettings::wavRate() const
{
    return static_cast<SampRate>(number(JobTagWavRate));
}

SampRate HydJobSettings::realWavRate() const
{
    return wavRate();
}

void HydJobSettings::setWavRate(SampRate value)
{
    setNumber(JobTagWavRate, value);
}

HydWavDataFormat HydJobSettings::wavDataFormat() const
{
    return static_cast<HydWavDataFormat>(number(JobTagWavDataFormat));
}

void HydJobSettings::setWavDataFormat(HydWavDataFormat value)
{
    setNumber(JobTagWavDataFormat, value);
}

HydWavBitDepth HydJobSettings::wavBitDepth() const
{
    return static_cast<HydWavBitDepth>(number(JobTagWavBitDepth));
}

void HydJobSettings::setWavBitDepth(HydWavBitDepth value)
{
    setNumber(JobTagWavBitDepth, value);
}

HydByteOrder HydJobSettings::wavByteOrder() const
{
    return static_cast<HydByteOrder>(number(JobTagWavByteOrder));
}

void HydJobSettings::setWavByteOrder(HydByteOrder value)
{
    setNumber(JobTagWavByteOrder, value);
}

unsigned HydJobSettings::wavGain() const
{
    return number(JobTagWavGain);
}

void HydJobSettings::setWavGain(unsigned value)
{
    setNumber(JobTagWavGain, value);
}

HydLogMode HydJobSettings::wavLogMode() const
{
    return static_cast<HydLogMode>(number(JobTagWavLogMode));
}

void HydJobSettings::setWavLogMode(HydLogMode value)
{
    setNumber(JobTagWavLogMode, value);
}

unsigned HydJobSettings::wavLogLen() const
{
    return number(JobTagWavLogLen);
}

void HydJobSettings::setWavLogLen(unsigned value)
{
    setNumber(JobTagWavLogLen, value);
}

std::string HydJobSettings::toString() const
{
    std::string text;
    for (const auto& [key, tag] : m_map) {
        if (!text.empty())
            text += '\n';
        text += tag->toString();
    }
    return text;
}

bool HydJobSettings::checkSetupMap(const HydJobSettings& other, bool strict) const
{
    std::vector<std::string> differences;
    const bool canRun = HydJobSettings::checkSetupMap(other, strict, differences);
    for (const auto& difference : differences)
        nvxLog(NvxLogLevel::Debug, difference);
    return canRun;
}

bool HydJobSettings::checkSetupMap(const HydJobSettings& other, bool strict,
                                   std::vector<std::string>& differences) const
{
    const auto before = differences.size();
    for (const auto& [key, wanted] : m_map) {
        const auto found = other.m_map.find(key);
        const auto* given = found == other.m_map.end() ? nullptr : found->second.get();
        auto fault = strict ? strictSetupFault(*wanted, given) : setupFault(*wanted, given);
        if (!fault.empty())
            differences.push_back(std::move(fault));
    }
    for (const auto& [key, given] : other.m_map) {
        if (strict && !m_map.contains(key))
            differences.push_back(given->toString() + " is not asked for");
    }
    return differences.size() == before;
}

bool operator==(const HydJobSettings& a, const HydJobSettings& b)
{
    return a.m_map.size() == b.m_map.size() && a.auxFunc() == b.auxFunc() && a.auxMsg() == b.auxMsg() &&
           a.wavLogStartTime() == b.wavLogStartTime() && a.fftRate() == b.fftRate() &&
           a.fftRef() == b.fftRef() && a.fftPoints() == b.fftPoints() &&
           a.fftPointsBtw() == b.fftPointsBtw() && a.fftProcType() == b.fftProcType() &&
           a.fftAccum() == b.fftAccum() && a.fftWeight() == b.fftWeight() &&
           a.fftLogMode() == b.fftLogMode() && a.fftLogLen() == b.fftLogLen() &&
           a.dutyCyclePeriod() == b.dutyCyclePeriod() && a.dutyCycleActive() == b.dutyCycleActive() &&
           a.dutyCycleIgn() == b.dutyCycleIgn() && a.wavRate() == b.wavRate() &&
           a.wavDataFormat() == b.wavDataFormat() && a.wavBitDepth() == b.wavBitDepth() &&
           a.wavByteOrder() == b.wavByteOrder() && a.wavGain() == b.wavGain() &&
           a.wavLogMode() == b.wavLogMode() && a.wavLogLen() == b.wavLogLen();
}
