#pragma once

#include "NvxQtCommon/contract/stream/HydStreamMessage.h"
#include "tests/support/Patience.h"

#include <QTcpSocket>
#include <QtEndian>

#include <zlib.h>

#include <functional>
#include <vector>

/// One frame of the command channel as it stands on the wire.
struct RawControlFrame
{
    char letter = 0;
    QByteArray payload;
    bool checksumFits = false;
};

/// One frame of a stream as it stands on the wire.
struct RawStreamFrame
{
    uint8_t kind = 0;
    QByteArray chunks;
    bool checksumFits = false;

    /// Body of the first chunk of a type; null when there is none.
    QByteArray chunk(uint16_t type) const
    {
        qsizetype at = 0;
        while (at + 6 <= chunks.size()) {
            const auto length = qsizetype(qFromBigEndian<quint32>(chunks.constData() + at + 2));
            if (qFromBigEndian<quint16>(chunks.constData() + at) == type)
                return chunks.mid(at + 6, length);
            at += 6 + length;
        }
        return {};
    }
    int count(uint16_t type) const
    {
        int found = 0;
        for (qsizetype at = 0; at + 6 <= chunks.size();) {
            found += qFromBigEndian<quint16>(chunks.constData() + at) == type;
            at += 6 + qsizetype(qFromBigEndian<quint32>(chunks.constData() + at + 2));
        }
        return found;
    }
    template <class T> static T word(const QByteArray& body, qsizetype offset)
    {
        return qFromBigEndian<T>(body.constData() + offset);
    }
    uint32_t time() const { return word<quint32>(chunk(1), 0); }
    int64_t sequence() const { return word<qint64>(chunk(1), 4); }
    bool isLast() const { return chunk(1).at(14) == 1; }
    uint32_t position() const { return word<quint32>(chunk(9), 0); }
    uint16_t samples() const { return word<quint16>(chunk(9), 6); }
    QByteArray sampleBytes() const { return chunk(9).mid(8); }
    uint32_t waveRate() const { return word<quint32>(chunk(4), 0); }
    uint8_t rollover() const { return uint8_t(chunk(3).at(5)); }
};

/// A client that sees nothing but bytes. It shares the test's thread with the simulator, so it waits by the
/// event loop.
class RawPeer : public QObject
{
public:
    RawPeer()
    {
        connect(&socket, &QTcpSocket::readyRead, this, [this] {
            reads << socket.readAll();
            received += reads.back();
        });
    }

    bool open(const QHostAddress& address, quint16 port)
    {
        socket.connectToHost(address, port);
        return QTest::qWaitFor([this] { return socket.state() == QAbstractSocket::ConnectedState; },
                               kPatienceMs);
    }

    bool waitFor(const std::function<bool()>& condition, int milliseconds = kPatienceMs)
    {
        return QTest::qWaitFor(condition, milliseconds);
    }
    bool waitForBytes(qsizetype count)
    {
        return waitFor([&] { return received.size() >= count; });
    }
    bool waitForEnd()
    {
        return waitFor([this] { return socket.state() == QAbstractSocket::UnconnectedState; });
    }

    // Control channel

    void send(char letter, const QByteArray& payload = {})
    {
        QByteArray frame = QByteArrayLiteral("*") + letter;
        frame += char(payload.size() >> 8);
        frame += char(payload.size());
        frame += payload;
        socket.write(frame + checksum(frame));
    }
    /// The replies in what was received; nothing but whole frames may have come.
    std::vector<RawControlFrame> controlFrames() const
    {
        std::vector<RawControlFrame> frames;
        for (qsizetype at = 0; at + 8 <= received.size() && received[at] == '*';) {
            const auto length = qsizetype(qFromBigEndian<quint16>(received.constData() + at + 2));
            if (at + 8 + length > received.size())
                break;
            frames.push_back({received[at + 1], received.mid(at + 4, length),
                              received.mid(at + 4 + length, 4) == checksum(received.mid(at, 4 + length))});
            at += 8 + length;
        }
        return frames;
    }
    bool waitForReplies(size_t count)
    {
        return waitFor([&] { return controlFrames().size() >= count; });
    }
    /// Sends a request and gives the next reply; letter 0 when none came.
    RawControlFrame ask(char letter, const QByteArray& payload = {})
    {
        received.clear();
        send(letter, payload);
        return waitForReplies(1) ? controlFrames().front() : RawControlFrame{};
    }

    /// Body of a request for an enabled event trigger of 0 to 20000 Hz.
    static QByteArray eventTrigger(int number, int threshold = 1000, int type = 5, int duration = 0,
                                   int hold = 0)
    {
        QByteArray body =
            QByteArray(2, '\0') + char(type) + QByteArray::fromHex("0018") + char(number) + '\1';
        body += QByteArray::fromHex("0000000000004e20");
        for (const int word : {duration, hold, 0, threshold, 0, 0, 0}) {
            body += char(word >> 8);
            body += char(word);
        }
        return body;
    }

    // Streams

    void startStream(uint16_t minutes = 0, uint16_t bits = 0)
    {
        QByteArray message = QByteArrayLiteral("3*\0\4");
        message += char(minutes >> 8);
        message += char(minutes);
        message += char(bits >> 8);
        message += char(bits);
        socket.write(message);
    }
    void stopStream() { socket.write(QByteArrayLiteral("4*\0\0")); }
    /// The frames in what was received, as far as it consists of whole frames.
    std::vector<RawStreamFrame> streamFrames() const
    {
        std::vector<RawStreamFrame> frames;
        for (qsizetype at = 0; at + 12 <= received.size() && received.mid(at, 2) == "0*";) {
            const auto length = qsizetype(qFromBigEndian<quint32>(received.constData() + at + 4));
            if (at + 12 + length > received.size())
                break;
            const auto* bytes = reinterpret_cast<const uint8_t*>(received.constData() + at);
            const uint32_t sum = HydStreamMessage::checksum({bytes, size_t(8 + length)});
            frames.push_back(
                {bytes[2], received.mid(at + 8, length), sum == qFromBigEndian<quint32>(bytes + 8 + length)});
            at += 12 + length;
        }
        return frames;
    }
    std::vector<RawStreamFrame> streamFrames(uint8_t kind) const
    {
        std::vector<RawStreamFrame> frames;
        for (const RawStreamFrame& frame : streamFrames())
            if (frame.kind == kind)
                frames.push_back(frame);
        return frames;
    }
    /// Waits for an event whose time lies before that of the first one; its time less that of the event ahead
    /// of it, or 0 when none comes.
    qint64 backwardStep()
    {
        std::vector<RawStreamFrame> headers;
        waitFor([&] {
            headers = streamFrames(1);
            return headers.size() > 1 && headers.back().time() < headers.front().time();
        });
        for (size_t i = 1; i < headers.size(); ++i) {
            if (headers[i].time() < headers.front().time())
                return qint64(headers[i].time()) - headers[i - 1].time();
        }
        return 0;
    }
    bool waitForFrames(uint8_t kind, size_t count)
    {
        return waitFor([&] { return streamFrames(kind).size() >= count; });
    }

    static QByteArray checksum(const QByteArray& bytes)
    {
        const auto sum =
            quint32(::crc32(0, reinterpret_cast<const Bytef*>(bytes.constData()), uInt(bytes.size())));
        QByteArray out(4, 0);
        qToBigEndian(sum, out.data());
        return out;
    }

    QTcpSocket socket;
    QByteArray received;
    QList<QByteArray> reads;
};
