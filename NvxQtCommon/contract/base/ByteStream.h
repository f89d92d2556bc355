#pragma once

#include "NvxQtCommon/contract/base/Export.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Growing byte sequence that values are appended to, most significant byte first.
/// A value class without errors; whoever has a size limit checks size() afterwards.
class NVXQTCOMMON_EXPORT ByteStream
{
public:
    void putU8(uint8_t value);
    void putU16(uint16_t value);
    void putU32(uint32_t value);
    void putU64(uint64_t value);
    void putBytes(std::span<const uint8_t> bytes);
    /// Appends one length byte and at most 255 bytes of UTF-8; a longer text is cut at a character's border.
    void putText(std::string_view text);
    /// Overwrites two (four) bytes written earlier, for length fields. `offset` must lie inside what was
    /// written.
    void patchU16(size_t offset, uint16_t value);
    void patchU32(size_t offset, uint32_t value);

    size_t size() const { return m_bytes.size(); }
    std::span<const uint8_t> bytes() const { return m_bytes; }
    std::vector<uint8_t> take() { return std::move(m_bytes); }
    void clear() { m_bytes.clear(); }

private:
    std::vector<uint8_t> m_bytes;
};

/// Cursor over bytes that someone else owns, most significant byte first. It never reads past the end:
/// the first read that doesn't fit clears ok(), and from then on every read gives 0 or nothing.
class NVXQTCOMMON_EXPORT ByteReader
{
public:
    explicit ByteReader(std::span<const uint8_t> bytes) : m_bytes(bytes) {}

    uint8_t u8();
    uint16_t u16();
    uint32_t u32();
    uint64_t u64();
    int16_t i16() { return static_cast<int16_t>(u16()); }
    int32_t i32() { return static_cast<int32_t>(u32()); }
    /// The next `count` bytes as a view into the source; empty (and ok() false) when there are fewer.
    std::span<const uint8_t> take(size_t count);
    /// One length byte and that many bytes of UTF-8.
    std::string text();

    size_t remaining() const { return m_bytes.size() - m_position; }
    bool atEnd() const { return remaining() == 0; }
    bool ok() const { return m_ok; }
    /// Marks the source as malformed, for values that are read whole and make no sense.
    void fail() { m_ok = false; }

private:
    std::span<const uint8_t> m_bytes;
    size_t m_position = 0;
    bool m_ok = true;
};
