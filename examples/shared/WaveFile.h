#pragma once

#include <QFile>
#include <QString>

#include <cstdint>
#include <vector>

/// Reads wave files (RIFF, and RIFX with the most significant byte first) of 16, 24 or 32 bits. A file that
/// was cut off is read as far as it goes.
class WaveFile
{
public:
    /// False when this is no wave file that the class can read; error() says why.
    bool open(const QString& path);
    const QString& error() const { return m_error; }

    unsigned sampleRate() const { return m_sampleRate; } ///< Hz
    unsigned bitsPerSample() const { return m_bits; }
    unsigned channels() const { return m_channels; }
    /// Samples of each channel.
    qint64 frames() const { return m_frames; }
    double seconds() const { return double(m_frames) / m_sampleRate; }

    /// Samples of one channel (from 0) from frame `first` on, scaled to -1 to 1. Fewer than `count` at the
    /// end of the file.
    std::vector<float> read(qint64 first, qint64 count, unsigned channel);

private:
    bool fail(const QString& sentence);
    bool readFormat(const QByteArray& body);
    uint32_t number(const QByteArray& bytes, int offset, int width) const;

    QFile m_file;
    QString m_error;
    bool m_bigEndian = false;
    unsigned m_sampleRate = 0;
    unsigned m_bits = 0;
    unsigned m_channels = 0;
    qint64 m_frames = 0;
    qint64 m_dataOffset = 0;
};
