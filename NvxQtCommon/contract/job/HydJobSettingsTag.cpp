#include "NvxQtCommon/contract/job/HydJobSettingsTag.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace {

enum class TagForm { Unsigned, Signed, SerialList };

struct TagName
{
    JobTagKey key;
    std::string_view text;
    TagForm form = TagForm::Unsigned;
};

constexpr std::array kTagNames{
    TagName{JobTagAuxFunc, "AUX_PIN"},
    TagName{JobTagWavLogStartTime, "LOG_START_TIME", TagForm::Signed},
    TagName{JobTagFftRate, "FFT_SAMPLE_RATE"},
    TagName{JobTagFftRef, "FFT_REF_LEVEL", TagForm::Signed},
    TagName{JobTagFftPoints, "FFT_POINTS"},
    TagName{JobTagFftPointsBtw, "FFT_POINTS_BTW"},
    TagName{JobTagFftProcType, "FFT_TYPE"},
    TagName{JobTagFftAccum, "FFT_ACCUM"},
    TagName{JobTagFftWeight, "FFT_WEIGHT"},
    TagName{JobTagFftLogMode, "FFT_LOG_MODE"},
    TagName{JobTagFftLogLen, "FFT_LOG_LENGTH"},
    TagName{JobTagDutyCyclePeriod, "DUTY_CYCLE_TIME"},
    TagName{JobTagDutyCycleActive, "DUTY_RUN_TIME"},
    TagName{JobTagDutyCycleIgn, "DUTY_IGNORE_TIME_CHANGE"},
    TagName{JobTagWavRate, "WAVE_SAMPLE_RATE"},
    TagName{JobTagWavDataFormat, "WAVE_FORMAT"},
    TagName{JobTagWavBitDepth, "WAVE_BIT_DEPTH"},
    TagName{JobTagWavGain, "WAVE_GAIN"},
    TagName{JobTagWavByteOrder, "WAVE_ENDIAN"},
    TagName{JobTagWavLogMode, "WAVE_LOG_MODE"},
    TagName{JobTagWavLogLen, "WAVE_LOG_LENGTH"},
    TagName{JobTagAuxMsg, "AUX_MSG"},
    TagName{JobTagDeviceList, "ARRAY_SERIALS", TagForm::SerialList},
};

const TagName* findTag(JobTagKey key)
{
    const auto found = std::ranges::find(kTagNames, key, &TagName::key);
    return found == kTagNames.end() ? nullptr : &*found;
}

std::string tagTextName(JobTagKey key)
{
    const auto* tag = findTag(key);
    return tag == nullptr ? "TAG_" + std::to_string(key) : std::string(tag->text);
}

/// The number that `text` is, blanks around it aside; 0 for anything else and for what T can't hold.
template <class T> T tagNumber(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r\n";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return 0;
    text = text.substr(first, text.find_last_not_of(blanks) - first + 1);
    T number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    return fault == std::errc() && end == text.data() + text.size() ? number : T{0};
}

std::vector<uint16_t> tagSerialList(std::string_view text)
{
    std::vector<uint16_t> serials;
    while (!text.empty()) {
        const auto length = std::min(text.find(','), text.size());
        serials.push_back(tagNumber<uint16_t>(text.substr(0, length)));
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return serials;
}

template <class List> std::string joinNumbers(std::string text, const List& list)
{
    bool first = true;
    for (const auto value : list) {
        if (!first)
            text += ',';
        first = false;
        text += std::to_string(value);
    }
    return text;
}

} // namespace

std::shared_ptr<HydJobSettingsTag> HydJobSettingsTag::fromString(const std::string& text)
{
    std::string_view name = text;
    if (name.starts_with('$'))
        name.remove_prefix(1);
    const auto border = name.find('=');
    if (border == std::string_view::npos)
        return nullptr;
    const auto value = name.substr(border + 1);
    name = name.substr(0, border);
    const auto found = std::ranges::find(kTagNames, name, &TagName::text);
    if (found == kTagNames.end())
        return nullptr;
    switch (found->form) {
    case TagForm::Signed:
        return std::make_shared<HydNumberTag>(found->key, static_cast<uint32_t>(tagNumber<int32_t>(value)));
    case TagForm::SerialList:
        return std::make_shared<TmiDeviceListTag>(tagSerialList(value));
    case TagForm::Unsigned:
        break;
    }
    return std::make_shared<HydNumberTag>(found->key, tagNumber<uint32_t>(value));
}

std::string HydJobSettingsTag::keyName(JobTagKey key)
{
    const auto* tag = findTag(key);
    return tag == nullptr ? std::string() : std::string(tag->text);
}

std::shared_ptr<HydJobSettingsTag> HydJobSettingsTag::fromBytes(JobTagKey key, std::span<const uint8_t> value)
{
    std::shared_ptr<HydJobSettingsTag> tag;
    const auto* known = findTag(key);
    if (known == nullptr)
        tag = std::make_shared<HydRawTag>(key);
    else if (known->form == TagForm::SerialList)
        tag = std::make_shared<TmiDeviceListTag>();
    else
        tag = std::make_shared<HydNumberTag>(key, 0);
    ByteReader reader(value);
    return tag->deserialize(reader) && reader.atEnd() ? tag : nullptr;
}

int64_t HydNumberTag::number() const
{
    const auto* tag = findTag(key());
    if (tag != nullptr && tag->form == TagForm::Signed)
        return static_cast<int32_t>(m_value);
    return m_value;
}

std::string HydNumberTag::toString() const
{
    return tagTextName(key()) + '=' + std::to_string(number());
}

void HydNumberTag::serialize(ByteStream& out) const
{
    out.putU32(m_value);
}

bool HydNumberTag::deserialize(ByteReader& in)
{
    m_value = in.u32();
    return in.ok();
}

std::string TmiDeviceListTag::toString() const
{
    return joinNumbers(tagTextName(key()) + '=', m_devices);
}

void TmiDeviceListTag::serialize(ByteStream& out) const
{
    for (const uint16_t device : m_devices)
        out.putU16(device);
}

bool TmiDeviceListTag::deserialize(ByteReader& in)
{
    m_devices.clear();
    m_devices.reserve(in.remaining() / 2);
    while (in.ok() && !in.atEnd())
        m_devices.push_back(in.u16());
    return in.ok();
}

std::string HydRawTag::toString() const
{
    return joinNumbers(tagTextName(key()) + '=', m_bytes);
}

void HydRawTag::serialize(ByteStream& out) const
{
    out.putBytes(m_bytes);
}

bool HydRawTag::deserialize(ByteReader& in)
{
    const auto bytes = in.take(in.remaining());
    m_bytes.assign(bytes.begin(), bytes.end());
    return in.ok();
}

void serializeTags(const JobTagMap& map, ByteStream& out)
{
    const auto countAt = out.size();
    uint16_t count = 0;
    out.putU16(0);
    for (const auto& [key, tag] : map) {
        if (!tag)
            continue;
        ++count;
        out.putU16(key);
        const auto lengthAt = out.size();
        out.putU16(0);
        tag->serialize(out);
        // A length or count that exceeds 16 bits belongs to a payload that no frame takes.
        out.patchU16(lengthAt, static_cast<uint16_t>(out.size() - lengthAt - 2));
    }
    out.patchU16(countAt, count);
}

bool deserializeTags(ByteReader& in, JobTagMap& map)
{
    const unsigned count = in.u16();
    if (count > kMaxTagsOfAMessage)
        return false;
    for (unsigned left = count; left > 0; --left) {
        const auto key = static_cast<JobTagKey>(in.u16());
        const auto value = in.take(in.u16());
        if (!in.ok())
            return false;
        auto tag = HydJobSettingsTag::fromBytes(key, value);
        if (!tag)
            return false;
        map[key] = std::move(tag);
    }
    return in.ok();
}
