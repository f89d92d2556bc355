#include "NvxQtCommon/contract/recording/HydUtil.h"

#include "NvxQtCommon/contract/identity/HydDeviceId.h"

#include <algorithm>
#include <chrono>
#include <string_view>

namespace {

constexpr std::string_view kNamePattern = "00000000_000000";

void putNumber(std::string& out, unsigned value, size_t digits)
{
    const std::string text = std::to_string(value);
    out.append(digits - std::min(digits, text.size()), '0');
    out.append(text);
}

std::string dateText(long long time, const char* separator)
{
    using namespace std::chrono;
    const sys_seconds moment{seconds{std::clamp<long long>(time, 0, HydUtil::kLastSecondOf9999)}};
    const year_month_day date{floor<days>(moment)};
    std::string out;
    putNumber(out, static_cast<unsigned>(static_cast<int>(date.year())), 4);
    out += separator;
    putNumber(out, static_cast<unsigned>(date.month()), 2);
    out += separator;
    putNumber(out, static_cast<unsigned>(date.day()), 2);
    return out;
}

std::string timeText(long long time, const char* separator)
{
    const auto second =
        static_cast<unsigned>(std::clamp<long long>(time, 0, HydUtil::kLastSecondOf9999) % 86400);
    std::string out;
    putNumber(out, second / 3600, 2);
    out += separator;
    putNumber(out, second / 60 % 60, 2);
    out += separator;
    putNumber(out, second % 60, 2);
    return out;
}

} // namespace

std::string HydUtil::dateTimeFname(const std::string& prefix, const long long& time)
{
    return prefix + dateText(time, "") + "_" + timeText(time, "");
}

std::wstring HydUtil::dateTimeFname(const std::wstring& prefix, const long long& time)
{
    const std::string stamp = dateTimeFname(std::string(), time);
    return prefix + std::wstring(stamp.begin(), stamp.end());
}

std::string HydUtil::replaceDateTime(const std::string& name, long long time)
{
    if (name.size() < kNamePattern.size())
        return name;
    const size_t start = name.size() - kNamePattern.size();
    for (size_t i = 0; i < kNamePattern.size(); ++i) {
        const char c = name[start + i];
        const bool fits = kNamePattern[i] == '_' ? c == '_' : c >= '0' && c <= '9';
        if (!fits)
            return name;
    }
    return dateTimeFname(name.substr(0, start), time);
}

std::string HydUtil::specDateStamp(long long time)
{
    return dateText(time, "-");
}

std::string HydUtil::specTimeStamp(long long time)
{
    return timeText(time, ":");
}

HydDeviceType HydUtil::deviceType(const std::string& text)
{
    return deviceTypeFromText(text);
}
