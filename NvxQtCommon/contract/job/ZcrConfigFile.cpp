#include "NvxQtCommon/contract/job/ZcrConfigFile.h"

#include "NvxQtCommon/contract/base/TextNumber.h"

#include <algorithm>
#include <array>
#include <bitset>

namespace {

constexpr int kArrayType = 16;

using ConfigReader = void (*)(HydJobSettings&, int32_t);
using ConfigWriter = int64_t (*)(const HydJobSettings&);

struct ConfigKey
{
    std::string_view key;
    ConfigReader read; ///< null for a key that is ignored
    ConfigWriter write;
};

template <auto Setter> void set(HydJobSettings& settings, int32_t value)
{
    const auto call = [&settings, value]<class T>(void (HydJobSettings::*setter)(T)) {
        (settings.*setter)(static_cast<T>(value));
    };
    call(Setter);
}

template <auto Getter> int64_t get(const HydJobSettings& settings)
{
    return (settings.*Getter)();
}

template <int64_t Value> int64_t constant(const HydJobSettings& /*settings*/)
{
    return Value;
}

using J = HydJobSettings;

/// In the order in which missing ones are appended. What is read under one name and written under two, and
/// the message that goes to the pin's function, are intended.
constexpr std::array kConfigKeys{
    ConfigKey{"$AUX_PIN", nullptr, constant<0>},
    ConfigKey{"$LOG_START_TIME", set<&J::setWavLogStartTime>, get<&J::wavLogStartTime>},
    ConfigKey{"$FFT_SAMPLE_RATE", set<&J::setFftRate>, get<&J::fftRate>},
    ConfigKey{"$FFT_REF_LEVEL", set<&J::setFftRef>, get<&J::fftRef>},
    ConfigKey{"$FFT_TYPE", set<&J::setFftProcType>, get<&J::fftProcType>},
    ConfigKey{"$FFT_ACCUM", set<&J::setFftAccum>, get<&J::fftAccum>},
    ConfigKey{"$FFT_WEIGHT", set<&J::setFftWeight>, get<&J::fftWeight>},
    ConfigKey{"$FFT_LOG_MODE", nullptr, constant<0>},
    ConfigKey{"$FFT_LOG_LENGTH", nullptr, constant<1>},
    ConfigKey{"$DUTY_CYCLE_TIME", set<&J::setDutyCyclePeriod>, get<&J::dutyCyclePeriod>},
    ConfigKey{"$DUTY_RUN_TIME", nullptr, constant<0>},
    ConfigKey{"$DUTY_IGNORE_TIME_CHANGE", set<&J::setDutyCycleIgn>, constant<0>},
    ConfigKey{"$WAVE_SAMPLE_RATE", set<&J::setWavRate>, get<&J::wavRate>},
    ConfigKey{"$WAVE_BIT_DEPTH", set<&J::setWavBitDepth>, get<&J::wavBitDepth>},
    ConfigKey{"$WAVE_GAIN", set<&J::setWavGain>, get<&J::wavGain>},
    ConfigKey{"$WAVE_ENDIAN", set<&J::setWavByteOrder>, get<&J::wavByteOrder>},
    ConfigKey{"$WAVE_LOG_MODE", nullptr, get<&J::wavLogMode>},
    ConfigKey{"$WAVE_LOG_LENGTH", nullptr, get<&J::wavLogLen>},
    ConfigKey{"$AUX_MSG", set<&J::setAuxFunc>, get<&J::auxFunc>},
    ConfigKey{"$ARRAY_DEV_TYPE", nullptr, constant<kArrayType>},
    ConfigKey{"$ARRAY_CTRL_MODE", nullptr, constant<1>},
    ConfigKey{"$ARRAY_WAVE_LOG_MODE", set<&J::setWavLogMode>, get<&J::wavLogMode>},
    ConfigKey{"$ARRAY_FFT_LOG_MODE", set<&J::setFftLogMode>, get<&J::fftLogMode>},
    ConfigKey{"$ARRAY_EPOCH_LOG_MODE", nullptr, constant<0>},
    ConfigKey{"$ARRAY_WAVE_LOG_LENGTH", set<&J::setWavLogLen>, get<&J::wavLogLen>},
    ConfigKey{"$ARRAY_FFT_LOG_LENGTH", set<&J::setFftLogLen>, get<&J::fftLogLen>},
    ConfigKey{"$ARRAY_NETMASK", nullptr, constant<0>},
    ConfigKey{"$ARRAY_GATEWAY", nullptr, constant<0>},
    ConfigKey{"$ARRAY_DNS", nullptr, constant<0>},
    ConfigKey{"$ARRAY_CONSERVE_BATT", nullptr, constant<0>},
    ConfigKey{"$ARRAY_LOG_START_TIME", set<&J::setWavLogStartTime>, get<&J::wavLogStartTime>},
    ConfigKey{"$ARRAY_DUTY_CYCLE_TIME", set<&J::setDutyCyclePeriod>, get<&J::dutyCyclePeriod>},
    ConfigKey{"$ARRAY_DUTY_RUN_TIME", nullptr, constant<0>},
    ConfigKey{"$ARRAY_DUTY_DATA_TYPE", nullptr, constant<0>},
    ConfigKey{"$ARRAY_LOG_STOP_TIME", nullptr, constant<0>},
};

/// The list of channels has the number behind those of the settings.
constexpr int kSerialsNumber = static_cast<int>(kConfigKeys.size());

bool isSetting(int number)
{
    return number >= 0 && number < kSerialsNumber;
}

/// Takes the first line off `rest`, with its line feed where it has one.
std::string_view takeLine(std::string_view& rest)
{
    const auto length = std::min(rest.find('\n'), rest.size() - 1) + 1;
    const auto line = rest.substr(0, length);
    rest.remove_prefix(length);
    return line;
}

std::string_view withoutFeed(std::string_view line)
{
    if (line.ends_with('\n'))
        line.remove_suffix(1);
    return line;
}

constexpr std::string_view kSection = "[*]";

bool hasLiteralSection(std::string_view file)
{
    for (size_t at = 0; (at = file.find(kSection, at)) != std::string_view::npos;) {
        const size_t begin = file.rfind('\n', at) + 1;
        at = std::min(file.find('\n', at), file.size());
        if (withoutBlanks(file.substr(begin, at - begin)) == kSection)
            return true;
    }
    return false;
}

} // namespace

const ZcrConfigKeys& zcrConfigKeys()
{
    static const ZcrConfigKeys s_keys = [] {
        ZcrConfigKeys keys;
        for (int number = 0; number < kSerialsNumber; ++number)
            keys.emplace(number, kConfigKeys[static_cast<size_t>(number)].key);
        keys.emplace(kSerialsNumber, "$ARRAY_SERIALS");
        return keys;
    }();
    return s_keys;
}

std::vector<uint16_t> zcrConfigSerials(std::string_view file, const ZcrConfigKeys& keys)
{
    const auto key = keys.find(kSerialsNumber);
    if (key == keys.end())
        return {};
    std::vector<uint16_t> serials;
    std::bitset<65536> taken;
    while (!file.empty()) {
        const auto line = withoutFeed(takeLine(file));
        // Wherever the key stands, the value begins at a fixed place. This is intended.
        if (line.find(key->second) == std::string_view::npos || line.size() <= key->second.size())
            continue;
        auto pieces = line.substr(key->second.size() + 1);
        while (!pieces.empty()) {
            const auto length = std::min(pieces.find(','), pieces.size());
            const auto serial = static_cast<uint16_t>(textNumber<uint32_t>(pieces.substr(0, length)));
            pieces.remove_prefix(std::min(length + 1, pieces.size()));
            if (!taken[serial])
                serials.push_back(serial);
            taken.set(serial);
        }
    }
    return serials;
}

void readZcrConfig(std::string_view file, HydJobSettings& settings, const ZcrConfigKeys& keys)
{
    while (!file.empty()) {
        const auto line = withoutFeed(takeLine(file));
        const auto equals = line.find('=');
        if (equals == std::string_view::npos)
            continue;
        const auto found =
            std::ranges::find(keys, line.substr(0, equals), &ZcrConfigKeys::value_type::second);
        if (found == keys.end() || !isSetting(found->first))
            continue;
        if (const auto read = kConfigKeys[static_cast<size_t>(found->first)].read)
            read(settings, textNumber<int32_t>(line.substr(equals + 1)));
    }
}

std::string editedZcrConfig(std::string_view file, const HydJobSettings& settings,
                            const std::vector<uint16_t>& serials, const ZcrConfigKeys& keys)
{
    std::string list;
    for (const uint16_t serial : serials) {
        if (!list.empty())
            list += ',';
        list += std::to_string(serial);
    }
    std::vector<std::pair<std::string_view, std::string>> values;
    for (const auto& [number, key] : keys) {
        if (isSetting(number))
            values.emplace_back(key,
                                std::to_string(kConfigKeys[static_cast<size_t>(number)].write(settings)));
        else if (number == kSerialsNumber)
            values.emplace_back(key, list);
    }
    std::vector<bool> done(values.size());

    // The section: from behind a line "[*]", or from the file's beginning, to the next line with "[".
    const auto isHeader = [](std::string_view line) { return withoutBlanks(line).starts_with('['); };
    bool inside = !hasLiteralSection(file);

    std::string edited;
    edited.reserve(file.size() + 2048);
    bool ended = false;
    std::string feed = "\n";
    const auto appendMissing = [&] {
        ended = true;
        if (std::ranges::find(done, false) == done.end())
            return;
        if (!edited.empty() && !edited.ends_with('\n'))
            edited += feed;
        for (size_t i = 0; i < values.size(); ++i) {
            if (!done[i])
                edited += std::string(values[i].first) + '=' + values[i].second + feed;
        }
    };
    while (!file.empty()) {
        const auto line = takeLine(file);
        const bool startsSection = isHeader(line);
        if (startsSection) {
            if (inside)
                appendMissing();
            inside = !ended && withoutBlanks(line) == kSection;
        }
        const auto equals = line.find('=');
        const bool isKey = inside && !startsSection && equals != std::string_view::npos;
        const auto found = isKey ? std::ranges::find(values, line.substr(0, equals),
                                                     [](const auto& value) { return value.first; })
                                 : values.end();
        const auto index = static_cast<size_t>(found - values.begin());
        if (line.ends_with("\r\n"))
            feed = "\r\n";
        if (index == values.size() || done[index]) {
            edited += line;
            continue;
        }
        done[index] = true;
        const auto body = line.find_last_not_of("\r\n") + 1;
        edited += std::string(line.substr(0, equals + 1)) + found->second;
        edited += line.substr(body);
    }
    if (!ended)
        appendMissing();
    return edited;
}
