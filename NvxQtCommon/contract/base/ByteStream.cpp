#include "NvxQtCommon/contract/base/ByteStream.h"

#include <algorithm>

void ByteStream::putU8(uint8_t value)
{
    m_bytes.push_back(value);
}

void ByteStream::putU16(uint16_t value)
{
    putU8(static_cast<uint8_t>(value >> 8));
    putU8(static_cast<uint8_t>(value));
}

void ByteStream::putU32(uint32_t value)
{
    putU16(static_cast<uint16_t>(value >> 16));
    putU16(static_cast<uint16_t>(value));
}

void ByteStream::putU64(uint64_t value)
{
    putU32(static_cast<uint32_t>(value >> 32));
    putU32(static_cast<uint32_t>(value));
}

void ByteStream::putBytes(std::span<const uint8_t> bytes)
{
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
}

void ByteStream::putText(std::string_view text)
{
    size_t length = std::min<size_t>(text.size(), 255);
    // A continuation byte behind the cut means that the cut went through a character.
    while (length < text.size() && length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U)
        --length;
    putU8(static_cast<uint8_t>(length));
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    putBytes({bytes, length});
}

void ByteStream::patchU16(size_t offset, uint16_t value)
{
    m_bytes.at(offset) = static_cast<uint8_t>(value >> 8);
    m_bytes.at(offset + 1) = static_cast<uint8_t>(value);
}

void ByteStream::patchU32(size_t offset, uint32_t value)
{
    patchU16(offset, static_cast<uint16_t>(value >> 16));
    patchU16(offset + 2, static_cast<uint16_t>(value));
}

std::span<const uint8_t> ByteReader::take(size_t count)
{
    if (!m_ok || count > remaining()) {
        m_ok = false;
        return {};
    }
    const auto piece = m_bytes.subspan(m_position, count);
    m_position += count;
    return piece;
}

uint8_t ByteReader::u8()
{
    const auto piece = take(1);
    return piece.empty() ? uint8_t{0} : piece[0];
}

uint16_t ByteReader::u16()
{
    const auto piece = take(2);
    return piece.empty() ? uint16_t{0} : static_cast<uint16_t>((piece[0] << 8) | piece[1]);
}

uint32_t ByteReader::u32()
{
    const auto piece = take(4);
    if (piece.empty())
        return 0;
    return (uint32_t{piece[0]} << 24) | (uint32_t{piece[1]} << 16) | (uint32_t{piece[2]} << 8) | piece[3];
}

uint64_t ByteReader::u64()
{
    const auto piece = take(8);
    uint64_t value = 0;
    for (uint8_t byte : piece)
        value = (value << 8) | byte;
    return value;
}

std::string ByteReader::text()
{
    const auto piece = take(u8());
    return {piece.begin(), piece.end()};
}
