#pragma once

#include "NvxQtCommon/contract/base/ISerializable.h"
#include "NvxQtCommon/contract/job/HydJobEnums.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// One entry of a job setup: a key and a value. On the wire: key (2), length of the value (2), value.
/// serialize() and deserialize() are about the value alone; the key is given at construction.
class NVXQTCOMMON_EXPORT HydJobSettingsTag : public ISerializable
{
public:
    JobTagKey key() const { return m_key; }
    /// Text form "KEY=value", the value in decimal; a list has commas between its values. A key without a
    /// name reads "TAG_" and its number.
    virtual std::string toString() const = 0;
    /// The value as a number; 0 for a tag that holds no single number.
    virtual int64_t number() const { return 0; }

    /// Parses text of the form "$KEY=value" (the "$" may be absent). Empty for an unknown key or a text
    /// without
    /// "="; a value that is no number counts as 0.
    static std::shared_ptr<HydJobSettingsTag> fromString(const std::string& text);
    /// Text name of a key without "$", such as "WAVE_SAMPLE_RATE"; empty for a key without a name.
    static std::string keyName(JobTagKey key);
    /// Makes the tag of a key from the bytes of its value. An unknown key gives a tag that carries its bytes
    /// unread, so that reading and writing back loses nothing. Empty when the bytes don't fit the key.
    static std::shared_ptr<HydJobSettingsTag> fromBytes(JobTagKey key, std::span<const uint8_t> value);

protected:
    explicit HydJobSettingsTag(JobTagKey key) : m_key(key) {}

private:
    JobTagKey m_key;
};

/// A tag map as it travels. Copying it copies the pointers: the tags are shared and never changed in place.
using JobTagMap = std::map<JobTagKey, std::shared_ptr<HydJobSettingsTag>>;

/// A tag with one 32-bit number, signed or unsigned by its key.
class NVXQTCOMMON_EXPORT HydNumberTag : public HydJobSettingsTag
{
public:
    HydNumberTag(JobTagKey key, uint32_t value) : HydJobSettingsTag(key), m_value(value) {}

    uint32_t value() const { return m_value; }
    int64_t number() const override;
    std::string toString() const override;
    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    uint32_t m_value;
};

/// Accumulations of a spectrum.
class NVXQTCOMMON_EXPORT HydFftAccumTag : public HydNumberTag
{
public:
    explicit HydFftAccumTag(unsigned value) : HydNumberTag(JobTagFftAccum, value) {}
};

/// Sample rate of the spectrum processing in Hz.
class NVXQTCOMMON_EXPORT HydSpecSampRateTag : public HydNumberTag
{
public:
    explicit HydSpecSampRateTag(unsigned value) : HydNumberTag(JobTagFftRate, value) {}
};

/// Sample rate of the waves in Hz.
class NVXQTCOMMON_EXPORT HydWavSampleRateTag : public HydNumberTag
{
public:
    explicit HydWavSampleRateTag(unsigned value) : HydNumberTag(JobTagWavRate, value) {}
};

/// Serial numbers of the devices of an array.
class NVXQTCOMMON_EXPORT TmiDeviceListTag : public HydJobSettingsTag
{
public:
    explicit TmiDeviceListTag(std::vector<uint16_t> devices = {})
        : HydJobSettingsTag(JobTagDeviceList), m_devices(std::move(devices))
    {
    }

    const std::vector<uint16_t>& deviceList() const { return m_devices; }
    std::string toString() const override;
    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    std::vector<uint16_t> m_devices;
};

/// A tag of a key that this library doesn't know; its bytes are kept.
class NVXQTCOMMON_EXPORT HydRawTag : public HydJobSettingsTag
{
public:
    explicit HydRawTag(JobTagKey key, std::vector<uint8_t> bytes = {})
        : HydJobSettingsTag(key), m_bytes(std::move(bytes))
    {
    }

    /// Bytes of the value.
    size_t size() const { return m_bytes.size(); }
    std::string toString() const override;
    void serialize(ByteStream& out) const override;
    bool deserialize(ByteReader& in) override;

private:
    std::vector<uint8_t> m_bytes;
};

/// Most tags of one list on the wire.
inline constexpr unsigned kMaxTagsOfAMessage = 1024;

/// Appends a count (2) and the tags of `map`, each with key, length and value.
NVXQTCOMMON_EXPORT void serializeTags(const JobTagMap& map, ByteStream& out);
/// Reads what serializeTags() wrote. False when it is malformed or has more than kMaxTagsOfAMessage tags;
/// `map` then holds what was read before.
NVXQTCOMMON_EXPORT bool deserializeTags(ByteReader& in, JobTagMap& map);
