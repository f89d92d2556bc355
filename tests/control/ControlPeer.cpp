#include "ControlPeer.h"

#include "NvxQtCommon/contract/base/Crc32.h"
#include "NvxQtCommon/contract/message/HydControlMessage.h"
#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"

#include <QHostAddress>

#include <sys/socket.h>

namespace {

QByteArray asBytes(std::span<const uint8_t> bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size())};
}

} // namespace

ControlPeer::ControlPeer(const QString& address) : m_address(address)
{
    connect(&m_server, &QTcpServer::newConnection, this, &ControlPeer::accept);
    m_clock.start();
}

bool ControlPeer::listen()
{
    return m_server.listen(QHostAddress(m_address), PortControl);
}

void ControlPeer::accept()
{
    while (auto* socket = m_server.nextPendingConnection()) {
        if (m_socket)
            m_socket->deleteLater();
        m_socket = socket;
        ++m_connections;
        m_buffer.clear();
        connect(socket, &QTcpSocket::readyRead, this, &ControlPeer::read);
        connect(socket, &QTcpSocket::disconnected, this, &ControlPeer::disconnected);
    }
}

void ControlPeer::read()
{
    const auto bytes = m_socket->readAll();
    m_received += bytes;
    m_buffer.write(reinterpret_cast<const unsigned char*>(bytes.constData()),
                   static_cast<unsigned long long>(bytes.size()));
    // Frames are taken apart by hand: this side must see the same bytes that the adapter wrote.
    while (m_buffer.byteCount() >= HydControlMessage::kFrameOverhead && m_buffer.at(0) == '*') {
        const auto size =
            HydControlMessage::kFrameOverhead + (static_cast<size_t>(m_buffer.at(2)) << 8 | m_buffer.at(3));
        if (m_buffer.byteCount() < size)
            break;
        QByteArray frame(static_cast<qsizetype>(size), Qt::Uninitialized);
        m_buffer.read(reinterpret_cast<unsigned char*>(frame.data()), size);
        m_requests.append({frame[1], frame, m_clock.elapsed()});
        const auto answer = m_script ? m_script(m_requests.last()) : QByteArray();
        if (!answer.isEmpty())
            send(answer);
    }
    if (!bytes.isEmpty())
        Q_EMIT requestArrived();
}

void ControlPeer::send(const QByteArray& bytes)
{
    if (m_socket && m_socket->isWritable()) {
        m_socket->write(bytes);
        m_socket->flush();
    }
}

void ControlPeer::stopReading()
{
    if (!m_socket)
        return;
    disconnect(m_socket, &QTcpSocket::readyRead, this, nullptr);
    m_socket->setReadBufferSize(1);
}

void ControlPeer::close()
{
    if (m_socket)
        m_socket->close();
}

void ControlPeer::reset()
{
    if (!m_socket)
        return;
    const linger atOnce{1, 0};
    setsockopt(static_cast<int>(m_socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &atOnce,
               sizeof(atOnce));
    m_socket->abort();
}

QByteArray ControlPeer::letters() const
{
    QByteArray letters;
    for (const auto& request : m_requests)
        letters += request.letter;
    return letters;
}

void ControlPeer::forget()
{
    m_requests.clear();
    m_received.clear();
}

QByteArray frameOf(const HydControlMsgPayload& payload)
{
    return asBytes(HydControlMessage::frame(payload));
}

QByteArray rawFrame(char letter, const QByteArray& body)
{
    ByteStream out;
    out.putU8('*');
    out.putU8(static_cast<uint8_t>(letter));
    out.putU16(static_cast<uint16_t>(body.size()));
    out.putBytes({reinterpret_cast<const uint8_t*>(body.constData()), static_cast<size_t>(body.size())});
    out.putU32(crc32Of(out.bytes()));
    return asBytes(out.bytes());
}

QByteArray enquireReply(uint16_t serial)
{
    HydEnquireCmd::Report report;
    report.devType = DevTypeRecorderA;
    report.serial = serial;
    report.model = "Recorder";
    return frameOf(HydEnquireCmd(report));
}

QByteArray timeReply(int time)
{
    return frameOf(HydSetTimeCmd(time));
}

QByteArray collectReply(uint8_t mask)
{
    return frameOf(HydDataCollectCmd(mask));
}

QByteArray collectReply(uint8_t mask, int size)
{
    auto chunk = std::make_shared<DataCollWavChunk>();
    chunk->format = 2;
    chunk->count = static_cast<uint16_t>(size / 2);
    chunk->samples.assign(static_cast<size_t>(chunk->count) * 2, 0);
    HydDataCollectCmd reply(mask);
    reply.setChunk(DataCollWav, std::move(chunk));
    return frameOf(reply);
}

QByteArray jobSetupReply(int size)
{
    JobTagMap tags;
    tags[JobTagKey(0x4000)] =
        std::make_shared<HydRawTag>(JobTagKey(0x4000), std::vector<uint8_t>(static_cast<size_t>(size), 0));
    return frameOf(HydJobSetupEnq(tags, JobSetupDefault));
}
