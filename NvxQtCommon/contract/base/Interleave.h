#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstddef>
#include <span>

/// Weaves blocks of single channels into frames: for each instant one sample of each channel, the first
/// channel first. Each of `channels` holds `samples` samples of `width` bytes, 1 to 4; `out` has room for all
/// of them and overlaps none. The bytes of a sample stay as they are. Another width writes nothing.
NVXQTCOMMON_EXPORT void interleaveSamples(std::span<const unsigned char* const> channels, size_t samples,
                                          unsigned width, unsigned char* out);
