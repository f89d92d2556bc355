#include "tests/array/ArrayFrames.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"

#include <QPointer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>

using Frame = CZCRWebSocket::ZCR_STREAM_STR;

namespace {

const QString kAddress = QStringLiteral("127.81.1.1");
const QString kTooMuchData =
    QStringLiteral("Array web socket closed for too much data; messages hold at most 1048576 bytes");
constexpr qsizetype kHeader = ZcrFrameHeader::kSize;

/// A web socket of the address above and what it told.
struct Client
{
    Client() { socket->setHAddress(QHostAddress(kAddress)); }

    std::shared_ptr<CZCRWebSocket> socket = CZCRWebSocket::make();
    FrameSpy spy{socket.get()};
    QSignalSpy opened{socket.get(), &CZCRWebSocket::signalWebSocketConnected};
    QSignalSpy closed{socket.get(), &QWebSocket::disconnected};
    QSignalSpy errors{socket.get(), CZCRWebSocket::errorSignal()};
    LogSpy log;
};

/// The server listens and the client is connected to it.
#define CONNECT_TO(server, client)                                                                           \
    do {                                                                                                     \
        const qsizetype before = (client).opened.count();                                                    \
        (client).socket->openConnection();                                                                   \
        QTRY_COMPARE_WITH_TIMEOUT((client).opened.count(), before + 1, 30000);                               \
    } while (false)

} // namespace

/// The web socket against a server in another language.
class tst_CZCRWebSocket : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void beginsUnconnected();
    void recordBeginsWithItsDefaults();
    void opens();
    void portOfTheUrlIsFixed();
    void readsEachField_data();
    void readsEachField();
    void frameKeepsAllItsBytes();
    void readsMessagesInPieces();
    void readsTheLongestMessage();
    void opensAgain();
    void closesNormally();
    // --- rainy day flows
    void everyLength();
    void shortFramesAreLoggedOnceAConnection();
    void longMessagesEndTheConnection_data();
    void longMessagesEndTheConnection();
    void otherMessagesAreIgnored();
    void refusedConnection();
    void noAddress();
    void refusedHandshake_data();
    void refusedHandshake();
    void handshakeThatNeverEnds();
    void closedWhileConnecting();
    void openedTwiceWhileConnecting();
    void closedByThePeer();
    void peerThatDies();
    void unfinishedOperationKeepsTheConnection();
    void otherErrorsEndTheConnection();
    void lastReferenceGoesInsideASignal();
    void deletedWhileConnecting();
};

void tst_CZCRWebSocket::beginsUnconnected()
{
    CZCRWebSocket socket;
    QVERIFY(socket.hAddress().isNull());
    QCOMPARE(socket.webPort(), 51675);
    QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(socket.origin().isEmpty());
    QCOMPARE(socket.version(), QWebSocketProtocol::Version13);
    QObject parent;
    const auto* child = new CZCRWebSocket(QStringLiteral("here"), QWebSocketProtocol::Version13, &parent);
    QCOMPARE(child->origin(), QStringLiteral("here"));
    QCOMPARE(child->parent(), &parent);
    socket.closeConnection();
    QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
}

void tst_CZCRWebSocket::recordBeginsWithItsDefaults()
{
    const Frame frame;
    QCOMPARE(frame.frameSensitivity, -170);
    QCOMPARE(frame.frameChannel, 0);
    QCOMPARE(frame.frameSerial, 0);
    QCOMPARE(frame.frameTemperature, 0);
    QCOMPARE(frame.frameSequence, 0U);
    QCOMPARE(frame.frameBandWidth, 0);
    QCOMPARE(frame.frameFftRef, 0);
    QCOMPARE(frame.frameSampleRate, 0U);
    QCOMPARE(frame.frameReserved, 0);
    QCOMPARE(frame.frameFftAccum, 0);
    QVERIFY(frame.frameBytes.isEmpty());
}

void tst_CZCRWebSocket::opens()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    QCOMPARE(client.socket->hAddress(), QHostAddress(kAddress));
    CONNECT_TO(server, client);
    QCOMPARE(client.socket->state(), QAbstractSocket::ConnectedState);
    QVERIFY(server.waitForLines(QStringLiteral("open"), 1));
    QCOMPARE(server.lines(QStringLiteral("open")).first(),
             QStringList({QStringLiteral("-"), QStringLiteral("13"), QStringLiteral("/")}));
    QVERIFY(client.log.lines().isEmpty());
}

void tst_CZCRWebSocket::portOfTheUrlIsFixed()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    client.socket->setWebPort(80);
    QCOMPARE(client.socket->webPort(), 80);
    CONNECT_TO(server, client);
    QCOMPARE(client.socket->requestUrl(), QUrl(QStringLiteral("ws://127.81.1.1:51675")));
}

void tst_CZCRWebSocket::readsEachField_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QList<qint64>>("fields");
    // The fields in the order of the record.
    QTest::newRow("typical") << QByteArray(
                                    "frame first=9 channel=3 serial=1234 temperature=215 sequence=70000 "
                                    "bandwidth=1024 fftref=-120 samplerate=96000 sensitivity=-165 "
                                    "reserved=7 accum=20 unread=8 extra=11 points=2048")
                             << QList<qint64>{3, 1234, 215, 70000, 1024, -120, 96000, -165, 7, 20, 11, 2048};
    QTest::newRow("zero") << QByteArray("frame") << QList<qint64>(12, 0);
    QTest::newRow("largest")
        << QByteArray("frame channel=255 serial=65535 temperature=65535 sequence=4294967295 bandwidth=65535 "
                      "fftref=2147483647 samplerate=4294967295 sensitivity=32767 reserved=65535 accum=65535 "
                      "extra=65535 points=65535")
        << QList<qint64>{255,        65535, 65535, 4294967295, 65535, 2147483647,
                         4294967295, 32767, 65535, 65535,      65535, 65535};
    QTest::newRow("smallest") << QByteArray("frame fftref=-2147483648 sensitivity=-32768")
                              << QList<qint64>{0, 0, 0, 0, 0, -2147483648LL, 0, -32768, 0, 0, 0, 0};
    // Each byte another one: no two fields may be mixed up, nor the bytes of one.
    QByteArray digits;
    for (int at = 0; at < kHeader; ++at)
        digits += QByteArray::number(0x80 + at, 16);
    QTest::newRow("each byte its own")
        << QByteArray("raw " + digits)
        << QList<qint64>{0x81,       0x8382,         0x8584, 0x89888786, 0x8B8A, qint32(0x8F8E8D8C),
                         0x93929190, qint16(0x9594), 0x9796, 0x9998,     0x9D9C, 0x9F9E};
}

void tst_CZCRWebSocket::readsEachField()
{
    QFETCH(QByteArray, command);
    QFETCH(QList<qint64>, fields);
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    server.command(command);
    QTRY_COMPARE_WITH_TIMEOUT(client.spy.frames.size(), 1, 30000);
    const Frame& frame = client.spy.frames.first();
    QCOMPARE(
        (QList<qint64>{frame.frameChannel, frame.frameSerial, frame.frameTemperature, frame.frameSequence,
                       frame.frameBandWidth, frame.frameFftRef, frame.frameSampleRate, frame.frameSensitivity,
                       frame.frameReserved, frame.frameFftAccum, frame.frameExtra, frame.frameNumPts}),
        fields);
    QCOMPARE(frame.frameBytes.size(), kHeader);
}

void tst_CZCRWebSocket::frameKeepsAllItsBytes()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    server.command("frame channel=5 bandwidth=4 bins=00ff7f80");
    QTRY_COMPARE_WITH_TIMEOUT(client.spy.frames.size(), 1, 30000);
    const QByteArray& bytes = client.spy.frames.first().frameBytes;
    QCOMPARE(bytes.size(), kHeader + 4);
    QCOMPARE(bytes.at(1), char(5));
    QCOMPARE(bytes.mid(kHeader), QByteArray::fromHex("00ff7f80"));
}

void tst_CZCRWebSocket::readsMessagesInPieces()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    server.command("pieces 100 1");
    QTRY_COMPARE_WITH_TIMEOUT(client.spy.frames.size(), 1, 30000);
    QCOMPARE(client.spy.frames.first().frameBytes, QByteArray(100, '\0'));
}

void tst_CZCRWebSocket::readsTheLongestMessage()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    QCOMPARE(CZCRWebSocket::kMaxMessageSize, quint64(1048576));
    server.command("zeros 1048576");
    QTRY_COMPARE_WITH_TIMEOUT(client.spy.frames.size(), 1, 20000);
    QCOMPARE(client.spy.frames.first().frameBytes.size(), qsizetype(1048576));
    QCOMPARE(client.socket->state(), QAbstractSocket::ConnectedState);
}

void tst_CZCRWebSocket::opensAgain()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    QVERIFY(server.waitForLines(QStringLiteral("open"), 1));
    CONNECT_TO(server, client);
    QVERIFY(server.waitForLines(QStringLiteral("open"), 2));
    QVERIFY(server.waitForLines(QStringLiteral("closed"), 1));
    QCOMPARE(server.lines(QStringLiteral("closed")).first(), QStringList{QStringLiteral("1000")});
    server.command("frame serial=7");
    QTRY_COMPARE_WITH_TIMEOUT(client.spy.frames.size(), 1, 30000);
}

void tst_CZCRWebSocket::closesNormally()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    QVERIFY(server.waitForLines(QStringLiteral("open"), 1));
    client.socket->closeConnection();
    QTRY_COMPARE_WITH_TIMEOUT(client.socket->state(), QAbstractSocket::UnconnectedState, 30000);
    QVERIFY(server.waitForLines(QStringLiteral("closed"), 1));
    QCOMPARE(server.lines(QStringLiteral("closed")).first(), QStringList{QStringLiteral("1000")});
    QVERIFY(client.socket->closeReason().isEmpty());
    QVERIFY(client.errors.isEmpty());
}

void tst_CZCRWebSocket::everyLength()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    constexpr int kLongest = 64;
    for (int size = 0; size <= kLongest; ++size)
        server.command("raw " + QByteArray(2 * size, 'f'));
    QTRY_COMPARE_WITH_TIMEOUT(client.spy.frames.size(), kLongest - kHeader + 1, 30000);
    for (qsizetype i = 0; i < client.spy.frames.size(); ++i)
        QCOMPARE(client.spy.frames.at(i).frameBytes, QByteArray(kHeader + i, '\xff'));
    QCOMPARE(client.log.lines(), QStringList{QStringLiteral("Array web socket: frame of 0 bytes dropped")});
}

void tst_CZCRWebSocket::shortFramesAreLoggedOnceAConnection()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    for (int connection = 1; connection <= 2; ++connection) {
        CONNECT_TO(server, client);
        QVERIFY(server.waitForLines(QStringLiteral("open"), connection));
        server.command("zeros 31");
        server.command("zeros 31");
        server.command("zeros 32");
        QTRY_COMPARE_WITH_TIMEOUT(client.spy.frames.size(), connection, 30000);
        QCOMPARE(client.log.lines().size(), connection);
        QCOMPARE(client.log.lines().last(), QStringLiteral("Array web socket: frame of 31 bytes dropped"));
    }
}

void tst_CZCRWebSocket::longMessagesEndTheConnection_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::newRow("one byte too long") << QByteArray("zeros 1048577");
    QTest::newRow("in pieces that are all small enough") << QByteArray("pieces 3 524288");
    QTest::newRow("in more pieces than anyone reads") << QByteArray("pieces 64 1048576");
}

void tst_CZCRWebSocket::longMessagesEndTheConnection()
{
    QFETCH(QByteArray, command);
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    server.command(command);
    QTRY_COMPARE_WITH_TIMEOUT(client.socket->state(), QAbstractSocket::UnconnectedState, 20000);
    QCOMPARE(client.socket->closeCode(), QWebSocketProtocol::CloseCodeTooMuchData);
    QVERIFY(client.spy.frames.isEmpty());
    QCOMPARE(client.log.count(kTooMuchData), 1);
    CONNECT_TO(server, client);
    QVERIFY(server.waitForLines(QStringLiteral("open"), 2));
    server.command("zeros 32");
    QTRY_COMPARE_WITH_TIMEOUT(client.spy.frames.size(), 1, 30000);
    // What ends the next connections is told as what it is.
    client.log.clear();
    server.kill();
    QTRY_COMPARE_WITH_TIMEOUT(client.socket->state(), QAbstractSocket::UnconnectedState, 30000);
    QCOMPARE(client.log.lines(), QStringList{QStringLiteral("The remote host closed the connection")});
    client.log.clear();
    client.socket->openConnection();
    QTRY_COMPARE_WITH_TIMEOUT(client.log.lines(), QStringList{QStringLiteral("Connection refused")}, 30000);
}

void tst_CZCRWebSocket::otherMessagesAreIgnored()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    server.command("text " + QByteArray(100, 'x'));
    server.command("zeros 32");
    QTRY_COMPARE_WITH_TIMEOUT(client.spy.frames.size(), 1, 30000);
    QCOMPARE(client.spy.frames.first().frameBytes.size(), kHeader);
}

void tst_CZCRWebSocket::refusedConnection()
{
    Client client;
    client.socket->setHAddress(QHostAddress(QStringLiteral("127.81.1.99")));
    client.socket->openConnection();
    QTRY_COMPARE_WITH_TIMEOUT(client.errors.count(), 1, 30000);
    QCOMPARE(client.errors.first().first().value<QAbstractSocket::SocketError>(),
             QAbstractSocket::ConnectionRefusedError);
    QCOMPARE(client.socket->state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(client.log.lines(), QStringList{QStringLiteral("Connection refused")});
    QVERIFY(client.opened.isEmpty());
}

void tst_CZCRWebSocket::noAddress()
{
    Client client;
    client.socket->setHAddress(QHostAddress());
    client.socket->openConnection();
    QTRY_COMPARE_WITH_TIMEOUT(client.errors.count(), 1, 30000);
    QTRY_COMPARE_WITH_TIMEOUT(client.socket->state(), QAbstractSocket::UnconnectedState, 30000);
    QCOMPARE(client.log.lines().size(), 1);
}

void tst_CZCRWebSocket::refusedHandshake_data()
{
    QTest::addColumn<QString>("status");
    QTest::newRow("404") << QStringLiteral("404");
    QTest::newRow("500") << QStringLiteral("500");
    QTest::newRow("200") << QStringLiteral("200");
}

void tst_CZCRWebSocket::refusedHandshake()
{
    QFETCH(QString, status);
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress, {QStringLiteral("--status"), status}), qPrintable(server.errorText()));
    Client client;
    client.socket->openConnection();
    QTRY_COMPARE_WITH_TIMEOUT(client.errors.count(), 1, 30000);
    QCOMPARE(client.socket->state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(client.log.lines().size(), 1);
    QVERIFY2(client.log.lines().first().contains(status), qPrintable(client.log.lines().first()));
    QVERIFY(client.opened.isEmpty());
    // The next attempt isn't held up by the one that was refused.
    client.socket->openConnection();
    QTRY_COMPARE_WITH_TIMEOUT(client.errors.count(), 2, 30000);
}

void tst_CZCRWebSocket::handshakeThatNeverEnds()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress, {QStringLiteral("--mute")}), qPrintable(server.errorText()));
    Client client;
    client.socket->openConnection();
    QVERIFY(server.waitForLines(QStringLiteral("muted"), 1));
    QCOMPARE(client.socket->state(), QAbstractSocket::ConnectingState);
    client.socket->closeConnection();
    QTRY_COMPARE_WITH_TIMEOUT(client.socket->state(), QAbstractSocket::UnconnectedState, 30000);
    QVERIFY(client.opened.isEmpty());
    client.socket->openConnection();
    QVERIFY(server.waitForLines(QStringLiteral("muted"), 2));
}

void tst_CZCRWebSocket::closedWhileConnecting()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    client.socket->openConnection();
    QCOMPARE(client.socket->state(), QAbstractSocket::ConnectingState);
    // Qt says so itself when a close message can't leave.
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("QNativeSocketEngine::write.*")));
    client.socket->closeConnection();
    QCOMPARE(client.socket->state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(client.errors.count(), 1);
    QCOMPARE(client.errors.first().first().value<QAbstractSocket::SocketError>(),
             QAbstractSocket::UnfinishedSocketOperationError);
    QVERIFY(spyStaysEmpty(client.opened, 100));
    CONNECT_TO(server, client);
}

void tst_CZCRWebSocket::openedTwiceWhileConnecting()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    client.socket->openConnection();
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("QNativeSocketEngine::write.*")));
    client.socket->openConnection();
    QTRY_COMPARE_WITH_TIMEOUT(client.opened.count(), 1, 30000);
    server.command("zeros 32");
    QTRY_COMPARE_WITH_TIMEOUT(client.spy.frames.size(), 1, 30000);
}

void tst_CZCRWebSocket::closedByThePeer()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    server.command("close 1001");
    QTRY_COMPARE_WITH_TIMEOUT(client.closed.count(), 1, 30000);
    QCOMPARE(client.socket->state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(client.socket->closeCode(), QWebSocketProtocol::CloseCodeGoingAway);
    QVERIFY(!client.log.contains(kTooMuchData));
    // Nothing opens it again but its user.
    QVERIFY(!client.opened.wait(100));
    CONNECT_TO(server, client);
}

void tst_CZCRWebSocket::peerThatDies()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    server.kill();
    QTRY_COMPARE_WITH_TIMEOUT(client.socket->state(), QAbstractSocket::UnconnectedState, 30000);
    QVERIFY(client.log.contains(QStringLiteral("The remote host closed the connection")));
}

void tst_CZCRWebSocket::unfinishedOperationKeepsTheConnection()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    QCOMPARE(int(QAbstractSocket::UnfinishedSocketOperationError), 11);
    Q_EMIT(client.socket.get()->*CZCRWebSocket::errorSignal())
    (QAbstractSocket::UnfinishedSocketOperationError);
    QCOMPARE(client.socket->state(), QAbstractSocket::ConnectedState);
    QCOMPARE(client.log.lines(), QStringList{client.socket->errorString()});
    server.command("zeros 32");
    QTRY_COMPARE_WITH_TIMEOUT(client.spy.frames.size(), 1, 30000);
}

void tst_CZCRWebSocket::otherErrorsEndTheConnection()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    Client client;
    CONNECT_TO(server, client);
    const QString text = client.socket->errorString();
    Q_EMIT(client.socket.get()->*CZCRWebSocket::errorSignal())(QAbstractSocket::NetworkError);
    QTRY_COMPARE_WITH_TIMEOUT(client.socket->state(), QAbstractSocket::UnconnectedState, 30000);
    QCOMPARE(client.log.lines(), QStringList{text});
    QVERIFY(server.waitForLines(QStringLiteral("closed"), 1));
    QCOMPARE(server.lines(QStringLiteral("closed")).first(), QStringList{QStringLiteral("1000")});
}

void tst_CZCRWebSocket::lastReferenceGoesInsideASignal()
{
    ArrayFrames server;
    QVERIFY2(server.listen(kAddress), qPrintable(server.errorText()));
    QObject context;
    auto socket = CZCRWebSocket::make();
    socket->setHAddress(QHostAddress(kAddress));
    QSignalSpy destroyed(socket.get(), &QObject::destroyed);
    int frames = 0;
    connect(socket.get(), &CZCRWebSocket::signalWebSocketConnected, &context, [&server] {
        server.command("pieces 2 32"), server.command("zeros 32"), server.command("zeros 32");
    });
    QSignalSpy opened(socket.get(), &CZCRWebSocket::signalWebSocketConnected);
    QPointer<CZCRWebSocket> watched(socket.get());
    connect(socket.get(), &CZCRWebSocket::signalWebSocBinMesReceived, &context, [&](const Frame&) {
        ++frames;
        socket.reset();
        // Alive until its own code is through, and deaf.
        QVERIFY(!watched.isNull());
    });
    socket->openConnection();
    QTRY_VERIFY_WITH_TIMEOUT(watched.isNull(), 30000);
    QCOMPARE(frames, 1);
    QVERIFY(server.waitForLines(QStringLiteral("closed"), 1));
    QCOMPARE(server.lines(QStringLiteral("closed")).first(), QStringList{QStringLiteral("1000")});
}

void tst_CZCRWebSocket::deletedWhileConnecting()
{
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress(kAddress), CZCRWebSocket::kPort));
    auto socket = CZCRWebSocket::make();
    socket->setHAddress(QHostAddress(kAddress));
    socket->openConnection();
    QPointer<CZCRWebSocket> watched(socket.get());
    socket.reset();
    QTRY_VERIFY_WITH_TIMEOUT(watched.isNull(), 30000);
}

QTEST_GUILESS_MAIN(tst_CZCRWebSocket)
#include "tst_CZCRWebSocket.moc"
