#include "shared/WaveFile.h"

#include <QByteArray>

#include <algorithm>

namespace {

constexpr int kChunkHead = 8;
constexpr uint32_t kSmallestFormat = 16;
constexpr unsigned kPcm = 1;
constexpr unsigned kExtensible = 0xFFFE;

} // namespace

bool WaveFile::fail(const QString& sentence)
{
    m_error = m_file.fileName() + QStringLiteral(": ") + sentence;
    return false;
}

uint32_t WaveFile::number(const QByteArray& bytes, int offset, int width) const
{
    uint32_t value = 0;
    for (int i = 0; i < width; ++i)
        value = (value << 8) | uint8_t(bytes[offset + (m_bigEndian ? i : width - 1 - i)]);
    return value;
}

bool WaveFile::open(const QString& path)
{
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::ReadOnly))
        return fail(m_file.errorString());
    const QByteArray head = m_file.read(12);
    m_bigEndian = head.startsWith("RIFX");
    if (head.size() < 12 || (!head.startsWith("RIFF") && !m_bigEndian) || head.mid(8, 4) != "WAVE")
        return fail(QStringLiteral("this is no wave file."));

    while (true) {
        const QByteArray chunk = m_file.read(kChunkHead);
        if (chunk.size() < kChunkHead)
            return fail(QStringLiteral("there are no samples in it."));
        const uint32_t size = number(chunk, 4, 4);
        if (chunk.startsWith("fmt ")) {
            if (size < kSmallestFormat || size > 1024 || !readFormat(m_file.read(size)))
                return fail(QStringLiteral("samples of this format can't be read."));
        } else if (chunk.startsWith("data")) {
            if (m_channels == 0)
                return fail(QStringLiteral("the format of the samples is missing."));
            m_dataOffset = m_file.pos();
            const qint64 bytes = std::min<qint64>(size, m_file.size() - m_dataOffset);
            m_frames = bytes / (m_channels * m_bits / 8);
            return true;
        } else {
            m_file.seek(m_file.pos() + size);
        }
        // Chunks begin at even places.
        m_file.seek(m_file.pos() + m_file.pos() % 2);
    }
}

bool WaveFile::readFormat(const QByteArray& body)
{
    if (uint32_t(body.size()) < kSmallestFormat)
        return false;
    const uint32_t kind = number(body, 0, 2);
    m_sampleRate = number(body, 4, 4);
    m_bits = number(body, 14, 2);
    const unsigned channels = number(body, 2, 2);
    if ((kind != kPcm && kind != kExtensible) || m_sampleRate == 0 || channels == 0 ||
        (m_bits != 16 && m_bits != 24 && m_bits != 32))
        return false;
    m_channels = channels;
    return true;
}

std::vector<float> WaveFile::read(qint64 first, qint64 count, unsigned channel)
{
    if (first < 0 || first >= m_frames || channel >= m_channels)
        return {};
    count = std::min(count, m_frames - first);
    const int width = int(m_bits / 8);
    const qint64 frameBytes = qint64(width) * m_channels;
    m_file.seek(m_dataOffset + first * frameBytes);
    const QByteArray bytes = m_file.read(count * frameBytes);
    std::vector<float> samples(size_t(bytes.size() / frameBytes));
    for (size_t i = 0; i < samples.size(); ++i) {
        const uint32_t value = number(bytes, int(qint64(i) * frameBytes + channel * width), width);
        // Shifted to the top of 32 bits, so that the sign is where it belongs.
        samples[i] = float(int32_t(value << (32 - m_bits))) / 2147483648.0F;
    }
    return samples;
}
