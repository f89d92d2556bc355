#pragma once

#include <QByteArray>
#include <QtEndian>

/// Builds the bytes of a wave file by hand, right or wrong ones.
class WavBytes
{
public:
    explicit WavBytes(bool bigEndian = false) : m_bigEndian(bigEndian) {}

    /// Fields of a format chunk.
    struct Format
    {
        quint16 tag = 1;
        quint16 channels = 1;
        quint32 rate = 48000;
        quint16 bits = 16;
        int blockAlign = -1;       ///< -1: what fits
        qint64 bytesPerSec = -1;   ///< -1: what fits
        QByteArray extension = {}; ///< behind the sixteen bytes
    };

    WavBytes& raw(const QByteArray& content)
    {
        bytes += content;
        return *this;
    }
    WavBytes& head() { return raw(m_bigEndian ? "RIFX" : "RIFF").raw(u32(0)).raw("WAVE"); }
    /// Content with its name and size, padded; `claimed` is the size to tell where it isn't -1.
    WavBytes& chunk(const QByteArray& name, const QByteArray& content, qint64 claimed = -1)
    {
        raw(name).raw(u32(quint32(claimed < 0 ? content.size() : claimed))).raw(content);
        return content.size() % 2 != 0 ? raw(QByteArray(1, '\0')) : *this;
    }
    WavBytes& format(const Format& fmt) { return chunk("fmt ", formatContent(fmt)); }
    /// An INFO list of a readable entry of others, and `record` as the entry of our own unless it is empty.
    WavBytes& list(const QByteArray& record) { return chunk("LIST", listContent(record)); }
    WavBytes& data(const QByteArray& samples, qint64 claimed = -1) { return chunk("data", samples, claimed); }

    QByteArray formatContent(const Format& fmt) const
    {
        const int align = fmt.blockAlign >= 0 ? fmt.blockAlign : fmt.channels * ((fmt.bits + 7) / 8);
        const qint64 perSecond = fmt.bytesPerSec >= 0 ? fmt.bytesPerSec : qint64(fmt.rate) * align;
        return u16(fmt.tag) + u16(fmt.channels) + u32(fmt.rate) + u32(quint32(perSecond)) +
               u16(quint16(align)) + u16(fmt.bits) + fmt.extension;
    }
    /// The extension of an extensible format whose samples are of the kind `tag`.
    QByteArray extensible(quint32 tag, quint16 validBits) const
    {
        return u16(22) + u16(validBits) + u32(0) + u32(tag) + u16(0) + u16(0x10) +
               QByteArray::fromHex("800000aa00389b71");
    }
    QByteArray listContent(const QByteArray& record) const
    {
        WavBytes entries(m_bigEndian);
        entries.raw("INFO").chunk("IART", "abc");
        if (!record.isEmpty())
            entries.chunk("INVX", record);
        return entries.bytes;
    }
    QByteArray u16(quint16 value) const { return number(value); }
    QByteArray u32(quint32 value) const { return number(value); }

    QByteArray bytes;

private:
    template <class T> QByteArray number(T value) const
    {
        QByteArray out(sizeof(T), '\0');
        m_bigEndian ? qToBigEndian(value, out.data()) : qToLittleEndian(value, out.data());
        return out;
    }

    bool m_bigEndian;
};
