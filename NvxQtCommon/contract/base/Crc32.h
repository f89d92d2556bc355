#pragma once

#include "NvxQtCommon/contract/base/CircularByteBuffer.h"

#include <cstdint>
#include <span>

/// CRC-32 of ISO 3309 over `bytes`. `start` is the result over the bytes in front of them, 0 for none.
NVXQTCOMMON_EXPORT uint32_t crc32Of(std::span<const uint8_t> bytes, uint32_t start = 0);
/// The same over the oldest `size` bytes of a ring from `offset` on, without copying them. What the ring
/// doesn't hold is left out.
NVXQTCOMMON_EXPORT uint32_t crc32Of(const CircularByteBuffer& ring, unsigned long long offset,
                                    unsigned long long size);
