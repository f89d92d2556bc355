#pragma once

#include <QNetworkReply>

#include <algorithm>
#include <cstring>

/// A finished reply with these bytes, or with an error.
class CannedReply : public QNetworkReply
{
public:
    explicit CannedReply(const QByteArray& bytes) : m_bytes(bytes)
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
        setFinished(true);
    }
    CannedReply(const QByteArray& bytes, NetworkError error, const QString& text) : CannedReply(bytes)
    {
        setError(error, text);
    }

    void abort() override {}
    qint64 bytesAvailable() const override { return m_bytes.size() - m_at; }
    /// Bytes that nobody has read.
    QByteArray rest() const { return m_bytes.mid(m_at); }

protected:
    qint64 readData(char* data, qint64 maxSize) override
    {
        const qint64 size = std::min<qint64>(maxSize, m_bytes.size() - m_at);
        std::memcpy(data, m_bytes.constData() + m_at, static_cast<size_t>(size));
        m_at += size;
        return size;
    }

private:
    QByteArray m_bytes;
    qint64 m_at = 0;
};
