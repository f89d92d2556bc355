#pragma once

#include "NvxQtCommon/contract/job/HydJobSettingsTag.h"

#include <string>

/// A recorder's job setup: a map of tags with typed access. A getter of a missing tag gives 0; a setter
/// replaces the tag of its key. Rates are in Hz, lengths and times as the device takes them.
class NVXQTCOMMON_EXPORT HydJobSettings
{
public:
    /// What is kept of tags that this library doesn't know (HydRawTag): so many, with so many bytes together.
    /// One that exceeds either isn't taken, and what there was of its key stays; a line of the log, level
    /// debug, counts those of one call.
    static constexpr size_t kMaxUnknownTags = 1024;
    static constexpr size_t kMaxUnknownTagBytes = 262144;

    HydJobSettings() = default;
    /// Null pointers in `map` are left out, here and in setMap() and mergeMap().
    HydJobSettings(const JobTagMap& map);
    HydJobSettings(const HydJobSettings&) = default;
    HydJobSettings& operator=(const HydJobSettings&) = default;
    virtual ~HydJobSettings();

    const JobTagMap& map() const { return m_map; }
    /// Adds the tag, or replaces the one of its key. A null tag is ignored.
    void setTag(std::shared_ptr<HydJobSettingsTag> tag);
    /// Adds the tags of `map`; equal keys are replaced, others stay.
    void mergeMap(const JobTagMap& map);
    /// Seconds between two spectra: accum x overlap / rate, where `overlapLength` is the number of samples
    /// between two transforms. 0 for a rate of 0 or less.
    static float calcFftUpdateRate(float accum, float rate, float overlapLength);

    virtual void setMap(const JobTagMap& map);
    virtual AuxPinFunc auxFunc() const;
    virtual void setAuxFunc(AuxPinFunc value);
    virtual AuxPinMsg auxMsg() const;
    virtual void setAuxMsg(AuxPinMsg value);
    virtual int wavLogStartTime() const;
    virtual void setWavLogStartTime(int value);
    virtual SampRate fftRate() const;
    virtual void setFftRate(SampRate value);
    virtual int fftRef() const;
    virtual void setFftRef(int value);
    virtual unsigned fftPoints() const;
    virtual void setFftPoints(unsigned value);
    virtual unsigned fftPointsBtw() const;
    virtual void setFftPointsBtw(unsigned value);
    virtual HydFftProc fftProcType() const;
    virtual void setFftProcType(HydFftProc value);
    virtual unsigned fftAccum() const;
    virtual void setFftAccum(unsigned value);
    virtual unsigned fftWeight() const;
    virtual void setFftWeight(unsigned value);
    virtual HydLogMode fftLogMode() const;
    virtual void setFftLogMode(HydLogMode value);
    virtual unsigned fftLogLen() const;
    virtual void setFftLogLen(unsigned value);
    virtual unsigned dutyCyclePeriod() const;
    virtual void setDutyCyclePeriod(unsigned value);
    virtual unsigned dutyCycleActive() const;
    virtual void setDutyCycleActive(unsigned value);
    virtual unsigned dutyCycleIgn() const;
    virtual void setDutyCycleIgn(unsigned value);
    virtual SampRate wavRate() const;
    /// The rate at which the device really samples: the same as wavRate().
    virtual SampRate realWavRate() const;
    virtual void setWavRate(SampRate value);
    virtual HydWavDataFormat wavDataFormat() const;
    virtual void setWavDataFormat(HydWavDataFormat value);
    virtual HydWavBitDepth wavBitDepth() const;
    virtual void setWavBitDepth(HydWavBitDepth value);
    virtual HydByteOrder wavByteOrder() const;
    virtual void setWavByteOrder(HydByteOrder value);
    virtual unsigned wavGain() const;
    virtual void setWavGain(unsigned value);
    virtual HydLogMode wavLogMode() const;
    virtual void setWavLogMode(HydLogMode value);
    virtual unsigned wavLogLen() const;
    virtual void setWavLogLen(unsigned value);
    /// All tags in key order, "KEY=value" each, with a line feed between.
    virtual std::string toString() const;
    /// True when `other`, as what a device can do, can run what this setup asks for. Each tag here is looked
    /// at: rates must be above 0 and not above the other's rate, bit depths 16, 24 or 32 and not above the
    /// other's depth, logging modes LogOff or LogOn, byte orders little or big; other tags, and those that
    /// the other misses, set no limit. With `strict` both must have the same tags with the same values. Each
    /// difference is one line of the log, level debug.
    virtual bool checkSetupMap(const HydJobSettings& other, bool strict) const;
    /// The same, with the lines appended to `differences` instead of logged.
    bool checkSetupMap(const HydJobSettings& other, bool strict, std::vector<std::string>& differences) const;

    /// Compares tag counts and then the 22 getters in their order. Tags outside the getters count only
    /// through their number; realWavRate() takes no part. Comparing by getter and width is intended: two
    /// setups whose tags differ only above a getter's width are equal.
    friend NVXQTCOMMON_EXPORT bool operator==(const HydJobSettings& a, const HydJobSettings& b);

private:
    uint32_t number(JobTagKey key) const;
    void setNumber(JobTagKey key, uint32_t value);
    bool put(JobTagKey key, const std::shared_ptr<HydJobSettingsTag>& tag);

    JobTagMap m_map;
    size_t m_unknownTags = 0;
    size_t m_unknownBytes = 0;
};
