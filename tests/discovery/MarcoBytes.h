#pragma once

#include <QByteArray>
#include <cstdint>

// Discovery datagrams made by hand from docs/wire-protocol.md, for tests that must not trust the library's
// own serialiser.

inline QByteArray bigEndian(uint32_t value, int width)
{
    QByteArray bytes;
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        bytes.append(static_cast<char>(value >> shift));
    return bytes;
}

inline uint32_t crc32Of(const QByteArray& bytes)
{
    uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes) {
        crc ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
    }
    return ~crc;
}

inline QByteArray marcoBytes(uint8_t kind, const QByteArray& body, uint16_t responsePort = 0)
{
    const QByteArray head = QByteArray("NVXM\x01") + bigEndian(kind, 1) + bigEndian(responsePort, 2) +
                            bigEndian(static_cast<uint32_t>(body.size()), 2) + body;
    return head + bigEndian(crc32Of(head), 4);
}

inline QByteArray netRecordBytes(uint32_t address)
{
    return bigEndian(address, 4) + bigEndian(0xFFFF0000, 4) + bigEndian(0x0A000001, 4) + bigEndian(1, 1) +
           QByteArray("\x02\x11\x22\x33\x44\x55", 6);
}

inline QByteArray enquiryBytes(uint8_t type, uint16_t serial, uint32_t address = 0x7F3E0101)
{
    return marcoBytes(1, bigEndian(type, 1) + bigEndian(serial, 2) + netRecordBytes(address));
}

inline QByteArray changeBytes(uint8_t type, uint16_t serial, uint16_t error)
{
    return marcoBytes(2, bigEndian(type, 1) + bigEndian(serial, 2) + bigEndian(error, 2) +
                             netRecordBytes(0x7F3E0101));
}
