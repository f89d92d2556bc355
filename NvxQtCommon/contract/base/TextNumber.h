#pragma once

#include <charconv>
#include <string_view>

/// The text without the blanks at both ends: blanks, tabs, line ends and page ends of ASCII.
inline std::string_view withoutBlanks(std::string_view text)
{
    constexpr std::string_view kBlanks = " \t\n\v\f\r";
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// The decimal number that a text is, with a sign or without one, whatever such blanks stand around
/// it. 0 where it is none, or none that `Number` holds.
template <class Number> Number textNumber(std::string_view text)
{
    text = withoutBlanks(text);
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);
    Number number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    return fault == std::errc() && end == text.data() + text.size() ? number : Number{0};
}
