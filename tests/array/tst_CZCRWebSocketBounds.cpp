#include "tests/array/ArrayFrames.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include <QCryptographicHash>
#include <QEventLoop>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <utility>

namespace {

const QString kAddress = QStringLiteral("127.81.1.2");

/// A peer that shakes hands and then sends what it is told. It reads nothing more, so that what the client
/// sends stays with the client.
class DeafPeer : public QTcpServer
{
public:
    bool start() { return listen(QHostAddress(kAddress), CZCRWebSocket::kPort); }
    bool shakeHands()
    {
        if (!waitForConnection())
            return false;
        QByteArray request;
        const bool isWhole = QTest::qWaitFor(
            [&] {
                request += m_client->readAll();
                return request.endsWith("\r\n\r\n");
            },
            kPatienceMs);
        const qsizetype at = request.indexOf("Sec-WebSocket-Key: ") + 19;
        const QByteArray key = request.mid(at, request.indexOf('\r', at) - at);
        const QByteArray hash =
            QCryptographicHash::hash(key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11", QCryptographicHash::Sha1);
        // From here on the little that fits in stays unread.
        m_client->setReadBufferSize(1);
        m_client->write("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                        "Sec-WebSocket-Accept: " +
                        hash.toBase64() + "\r\n\r\n");
        return isWhole;
    }
    QTcpSocket& client() { return *m_client; }

private:
    bool waitForConnection()
    {
        if (!QTest::qWaitFor([this] { return hasPendingConnections(); }, kPatienceMs))
            return false;
        m_client = nextPendingConnection();
        return true;
    }

    QTcpSocket* m_client = nullptr;
};

struct BoundedClient
{
    BoundedClient() { socket->setHAddress(QHostAddress(kAddress)); }

    std::shared_ptr<CZCRWebSocket> socket = CZCRWebSocket::make();
    QSignalSpy opened{socket.get(), &CZCRWebSocket::signalWebSocketConnected};
    QSignalSpy closed{socket.get(), &QWebSocket::disconnected};
    LogSpy log;
};

} // namespace

/// What a peer of the web socket can't do to it.
class tst_CZCRWebSocketBounds : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void manyFrames();
    // --- rainy day flows
    void slotThatTakesItsTime();
    void peerThatOnlyPings();
    void openedWhileClosing();
    void peerThatHadTooMuchData();
};

void tst_CZCRWebSocketBounds::manyFrames()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    BoundedClient client;
    constexpr uint32_t kCount = 100000;
    uint32_t next = 0;
    QObject context;
    connect(client.socket.get(), &CZCRWebSocket::signalWebSocBinMesReceived, &context,
            [&](const CZCRWebSocket::ZCR_STREAM_STR& frame) {
                if (frame.frameSequence == next && frame.frameBytes.size() == 32 + 256)
                    ++next;
            });
    client.socket->openConnection();
    QTRY_COMPARE(client.opened.count(), 1);
    QVERIFY(server.waitForLines(QStringLiteral("open"), 1));
    // 10,000 a second, for ten seconds.
    server.command("stream " + QByteArray::number(kCount) + " 10000 256");
    QTRY_COMPARE_WITH_TIMEOUT(next, kCount, 90000);
    QCOMPARE(client.socket->state(), QAbstractSocket::ConnectedState);
}

void tst_CZCRWebSocketBounds::slotThatTakesItsTime()
{
    DeafPeer peer;
    QVERIFY(peer.start());
    BoundedClient client;
    client.socket->openConnection();
    QVERIFY(peer.shakeHands());
    QTRY_COMPARE(client.opened.count(), 1);
    auto* inner = client.socket->findChild<QTcpSocket*>();
    qint64 most = 0;
    QEventLoop loop;
    QObject context;
    bool isFirst = true;
    connect(client.socket.get(), &CZCRWebSocket::signalWebSocBinMesReceived, &context, [&] {
        if (std::exchange(isFirst, false))
            loop.exec();
    });
    // Frames of 64 KiB, many times more than the bound, while the slot for the first one runs an event loop.
    QByteArray frame(QByteArray::fromHex("827f0000000000010000"));
    frame.append(QByteArray(65536, '\0'));
    constexpr int kFrames = 256;
    for (int i = 0; i < kFrames; ++i)
        peer.client().write(frame);
    QTimer timer;
    qint64 unsent = -1;
    int same = 0;
    connect(&timer, &QTimer::timeout, &context, [&] {
        most = std::max(most, inner->bytesAvailable());
        same = loop.isRunning() && unsent == peer.client().bytesToWrite() ? same + 1 : 0;
        unsent = peer.client().bytesToWrite();
        // Nothing moves any more.
        if (same == 20) {
            timer.stop();
            loop.quit();
        }
    });
    timer.start(10);
    QTRY_VERIFY(!timer.isActive());
    QVERIFY(unsent > 0);
    QVERIFY(most > 0);
    QVERIFY(most <= CZCRWebSocket::kReadBufferSize);
    client.socket->disconnect(&context);
}

void tst_CZCRWebSocketBounds::peerThatOnlyPings()
{
    DeafPeer peer;
    QVERIFY(peer.start());
    BoundedClient client;
    client.socket->openConnection();
    QVERIFY(peer.shakeHands());
    QTRY_COMPARE(client.opened.count(), 1);
    const QByteArray ping = QByteArray::fromHex("897d") + QByteArray(125, 'p');
    QByteArray pings;
    for (int i = 0; i < 1000; ++i)
        pings += ping;
    QObject context;
    // Ever more pings, whose answers nobody takes.
    connect(&peer.client(), &QTcpSocket::bytesWritten, &context, [&] {
        if (peer.client().bytesToWrite() < pings.size())
            peer.client().write(pings);
    });
    peer.client().write(pings);
    QTRY_COMPARE(client.socket->state(), QAbstractSocket::UnconnectedState);
    const QStringList lines = client.log.lines().filter(QStringLiteral("bytes wait to be sent"));
    QCOMPARE(lines.size(), 1);
    QVERIFY(client.socket->bytesToWrite() <= CZCRWebSocket::kMaxUnsent);
}

void tst_CZCRWebSocketBounds::openedWhileClosing()
{
    DeafPeer peer;
    QVERIFY(peer.start());
    BoundedClient client;
    client.socket->openConnection();
    QVERIFY(peer.shakeHands());
    QTRY_COMPARE(client.opened.count(), 1);
    // More than the system takes at once.
    for (int i = 0; i < 64; ++i)
        client.socket->sendBinaryMessage(QByteArray(524288, '\0'));
    client.socket->openConnection();
    // It closes when all is sent, and opens nothing until then.
    QCOMPARE(client.socket->state(), QAbstractSocket::ClosingState);
    QVERIFY(!QTest::qWaitFor([&] { return peer.hasPendingConnections(); }, 100));
    QCOMPARE(client.opened.count(), 1);
}

void tst_CZCRWebSocketBounds::peerThatHadTooMuchData()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    BoundedClient client;
    client.socket->openConnection();
    QTRY_COMPARE(client.opened.count(), 1);
    QVERIFY(server.waitForLines(QStringLiteral("open"), 1));
    server.command("close 1009");
    QTRY_COMPARE(client.closed.count(), 1);
    // The text is true whoever it was.
    QVERIFY(client.log.contains(
        QStringLiteral("Array web socket closed for too much data; messages hold at most 1048576 bytes")));
}

QTEST_GUILESS_MAIN(tst_CZCRWebSocketBounds)
#include "tst_CZCRWebSocketBounds.moc"
