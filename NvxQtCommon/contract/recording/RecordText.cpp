#include "NvxQtCommon/contract/recording/RecordText.h"

#include "NvxQtCommon/contract/base/Utf8.h"
#include "NvxQtCommon/contract/recording/HydUtil.h"

#include <algorithm>
#include <chrono>

namespace {

constexpr long long kMinute = 60;
constexpr long long kHour = 60 * kMinute;

/// `count` decimal digits from `start` on.
std::optional<unsigned> digits(std::string_view text, size_t start, size_t count)
{
    const std::string_view part = text.substr(start, count);
    if (!std::all_of(part.begin(), part.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    return RecordText::number<unsigned>(part);
}

} // namespace

void RecordText::appendText(std::string& out, std::string_view text)
{
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    const size_t start = out.size();
    if (std::all_of(text.begin(), text.end(), isAscii))
        out += text;
    else
        out += toUtf8(fromUtf8(text));
    std::replace_if(
        out.begin() + static_cast<std::ptrdiff_t>(start), out.end(),
        [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; }, ' ');
}

void RecordText::appendTime(std::string& out, unsigned long long time)
{
    const auto seconds = static_cast<long long>(time);
    out += HydUtil::specDateStamp(seconds);
    out += ' ';
    out += HydUtil::specTimeStamp(seconds);
}

void RecordText::appendDevice(std::string& out, const HydDeviceId& devId)
{
    out += '\t';
    appendText(out, deviceTypeText(devId.devType()));
    appendField(out, devId.serialNo());
}

std::optional<long long> RecordText::date(std::string_view text)
{
    using namespace std::chrono;
    if (text.size() != 10 || text[4] != '-' || text[7] != '-')
        return std::nullopt;
    const auto yearNumber = digits(text, 0, 4);
    const auto monthNumber = digits(text, 5, 2);
    const auto dayNumber = digits(text, 8, 2);
    if (!yearNumber || !monthNumber || !dayNumber)
        return std::nullopt;
    const year_month_day date{year(static_cast<int>(*yearNumber)), month(*monthNumber), day(*dayNumber)};
    if (!date.ok() || *yearNumber < 1970)
        return std::nullopt;
    return sys_seconds(sys_days(date)).time_since_epoch().count();
}

std::optional<long long> RecordText::timeOfDay(std::string_view text)
{
    if (text.size() != 8 || text[2] != ':' || text[5] != ':')
        return std::nullopt;
    const auto hours = digits(text, 0, 2);
    const auto minutes = digits(text, 3, 2);
    const auto seconds = digits(text, 6, 2);
    if (!hours || !minutes || !seconds || *hours > 23 || *minutes > 59 || *seconds > 59)
        return std::nullopt;
    return *hours * kHour + *minutes * kMinute + *seconds;
}

std::optional<long long> RecordText::dateTime(std::string_view text)
{
    if (text.size() != 19 || text[10] != ' ')
        return std::nullopt;
    const auto day = date(text.substr(0, 10));
    const auto time = timeOfDay(text.substr(11));
    if (!day || !time)
        return std::nullopt;
    return *day + *time;
}

std::string_view RecordText::takeField(std::string_view& rest)
{
    const size_t tab = rest.find('\t');
    const std::string_view field = rest.substr(0, tab);
    rest.remove_prefix(tab == std::string_view::npos ? rest.size() : tab + 1);
    return field;
}

bool RecordText::isTitleLine(std::string_view line)
{
    constexpr std::string_view title = "TIME";
    return line.size() > title.size() && line[title.size()] == '\t' &&
           std::equal(title.begin(), title.end(), line.begin(),
                      [](char upper, char c) { return c == upper || c == upper - 'A' + 'a'; });
}

bool RecordText::readLine(std::istream& in, std::string& line)
{
    line.clear();
    if (!in)
        return false;
    char piece[4096];
    while (line.size() <= kMaxLineLength) {
        in.getline(piece, sizeof piece);
        const auto count = static_cast<size_t>(in.gcount());
        if (in.eof()) {
            line.append(piece, count);
            // A last line without its end is one all the same; the stream stays readable for a seek.
            in.clear(line.empty() ? std::ios::eofbit | std::ios::failbit : std::ios::eofbit);
            return !line.empty();
        }
        if (in.bad())
            return false;
        if (!in.fail()) {
            line.append(piece, count - 1);
            return true;
        }
        // The piece is full, and the line goes on.
        line.append(piece, count);
        in.clear(in.rdstate() & ~std::ios::failbit);
    }
    in.setstate(std::ios::failbit);
    return false;
}
