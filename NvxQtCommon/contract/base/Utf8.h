#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <string>
#include <string_view>

/// UTF-8 of a wide text, whether its characters are 16 or 32 bits wide. What is no character becomes U+FFFD.
NVXQTCOMMON_EXPORT std::string toUtf8(std::wstring_view text);
/// Wide text of UTF-8. What is no valid UTF-8 becomes U+FFFD.
NVXQTCOMMON_EXPORT std::wstring fromUtf8(std::string_view text);
/// The longest beginning of `text` of at most `size` bytes that doesn't cut a character.
NVXQTCOMMON_EXPORT std::string_view cutUtf8(std::string_view text, size_t size);
