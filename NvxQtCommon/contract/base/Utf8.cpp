#include "NvxQtCommon/contract/base/Utf8.h"

#include <cstdint>

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isSurrogate(char32_t code)
{
    return code >= 0xD800 && code <= 0xDFFF;
}

void appendUtf8(std::string& out, char32_t code)
{
    const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(static_cast<uint8_t>(byte))); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xC0 | (code >> 6));
        put(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        put(0xE0 | (code >> 12));
        put(0x80 | ((code >> 6) & 0x3F));
        put(0x80 | (code & 0x3F));
    } else {
        put(0xF0 | (code >> 18));
        put(0x80 | ((code >> 12) & 0x3F));
        put(0x80 | ((code >> 6) & 0x3F));
        put(0x80 | (code & 0x3F));
    }
}

/// Reads one character at `position` and moves it on; by one byte where there is none.
char32_t takeUtf8(std::string_view text, size_t& position)
{
    const auto lead = static_cast<uint8_t>(text[position++]);
    if (lead < 0x80)
        return lead;
    const size_t extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    if (lead < 0xC2 || lead > 0xF4 || text.size() - position < extra)
        return kReplacement;
    char32_t code = lead & (0x3FU >> extra);
    for (size_t i = 0; i < extra; ++i) {
        const auto byte = static_cast<uint8_t>(text[position + i]);
        if ((byte & 0xC0U) != 0x80U)
            return kReplacement;
        code = (code << 6) | (byte & 0x3FU);
    }
    const bool overlong = (extra == 2 && code < 0x800) || (extra == 3 && code < 0x10000);
    if (overlong || isSurrogate(code) || code > 0x10FFFF)
        return kReplacement;
    position += extra;
    return code;
}

} // namespace

std::string toUtf8(std::wstring_view text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t code = static_cast<char32_t>(text[i]);
        if (code >= 0xD800 && code <= 0xDBFF && i + 1 < text.size()) {
            const auto low = static_cast<char32_t>(text[i + 1]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        appendUtf8(out, isSurrogate(code) || code > 0x10FFFF ? kReplacement : code);
    }
    return out;
}

std::wstring fromUtf8(std::string_view text)
{
    std::wstring out;
    out.reserve(text.size());
    for (size_t position = 0; position < text.size();) {
        const char32_t code = takeUtf8(text, position);
        if (sizeof(wchar_t) == 2 && code >= 0x10000) {
            out.push_back(static_cast<wchar_t>(0xD800 + ((code - 0x10000) >> 10)));
            out.push_back(static_cast<wchar_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
        } else {
            out.push_back(static_cast<wchar_t>(code));
        }
    }
    return out;
}

std::string_view cutUtf8(std::string_view text, size_t size)
{
    if (text.size() <= size)
        return text;
    while (size > 0 && (static_cast<uint8_t>(text[size]) & 0xC0U) == 0x80U)
        --size;
    return text.substr(0, size);
}
