#pragma once

#include "NvxQtCommon/contract/base/Export.h"
#include "NvxQtCommon/contract/identity/HydDeviceId.h"

#include <charconv>
#include <cmath>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

/// How the text files of the spectrum family write and read their fields: columns are separated by tabs,
/// lines end with a line feed, texts are UTF-8, times UTC, numbers as C writes them whatever the locale.
namespace RecordText {

/// Longest line that a reader takes: 65535 bins of the longest decimal number, and room for the texts.
inline constexpr size_t kMaxLineLength = size_t{2} * 1024 * 1024;

/// Appends a free text; control characters in it, tabs and line breaks among them, become blanks, and what is
/// no UTF-8 becomes U+FFFD.
NVXQTCOMMON_EXPORT void appendText(std::string& out, std::string_view text);
/// Appends seconds since the epoch as "yyyy-MM-dd HH:mm:ss".
NVXQTCOMMON_EXPORT void appendTime(std::string& out, unsigned long long time);

/// Appends a number in the shortest form that reads back to the same one.
template <class Number> void appendNumber(std::string& out, Number value)
{
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, value);
    out.append(digits, end.ptr);
}

/// Appends a tab and a number.
template <class Number> void appendField(std::string& out, Number value)
{
    out += '\t';
    appendNumber(out, value);
}
/// Appends two columns: the text of the device's type, and its serial number.
NVXQTCOMMON_EXPORT void appendDevice(std::string& out, const HydDeviceId& devId);

/// The whole of `text` as a number; empty for anything else, NaN and infinity among it.
template <class Number> std::optional<Number> number(std::string_view text)
{
    Number value{};
    const auto end = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end.ec != std::errc() || end.ptr != text.data() + text.size())
        return std::nullopt;
    if constexpr (std::is_floating_point_v<Number>) {
        if (!std::isfinite(value))
            return std::nullopt;
    }
    return value;
}

/// Seconds since the epoch of "yyyy-MM-dd"; empty for what is no date of the years 1970 to 9999.
NVXQTCOMMON_EXPORT std::optional<long long> date(std::string_view text);
/// Seconds since midnight of "HH:mm:ss".
NVXQTCOMMON_EXPORT std::optional<long long> timeOfDay(std::string_view text);
/// Seconds since the epoch of "yyyy-MM-dd HH:mm:ss".
NVXQTCOMMON_EXPORT std::optional<long long> dateTime(std::string_view text);

/// Takes the text up to the next tab off the front of `rest`, and the tab; all of it where there is none.
NVXQTCOMMON_EXPORT std::string_view takeField(std::string_view& rest);
/// True for the line of the column titles: its first field is "Time", in any case of its letters, and a tab
/// follows.
NVXQTCOMMON_EXPORT bool isTitleLine(std::string_view line);

/// Reads a line without its end, as std::getline does, but none longer than kMaxLineLength: that counts as a
/// failed read, since no writer makes such a line. False at the end of the file.
NVXQTCOMMON_EXPORT bool readLine(std::istream& in, std::string& line);

} // namespace RecordText
