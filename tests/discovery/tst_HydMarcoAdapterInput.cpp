#include "tests/discovery/MarcoFixture.h"
#include "tests/support/NvxTestCase.h"

#include <algorithm>

namespace {

const QHostAddress kOwnAddress(QStringLiteral("127.62.3.1"));

} // namespace

/// What HydMarcoAdapter makes of floods, broken datagrams and an early end.
class tst_HydMarcoAdapterInput : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void fullRingIsParsedBeforeMoreIsRead();
    void floodIsReadInSeveralTurns_data();
    void floodIsReadInSeveralTurns();
    void floodOfTheUnicastSocketIsReadWhole();
    void sizesAroundTheLimit_data();
    void sizesAroundTheLimit();
    // --- rainy day flows
    void truncatedDatagramNeverSwallowsTheNext();
    void brokenDatagramNeverSwallowsTheNext_data();
    void brokenDatagramNeverSwallowsTheNext();
    void endlessJunkLeavesTheAdapterUsable();
    void slotMayRunAnEventLoop();
    void destructionWithOpenSockets();
    void deletedFromASlot();
};

void tst_HydMarcoAdapterInput::fullRingIsParsedBeforeMoreIsRead()
{
    HydMarcoAdapter adapter;
    LoopbackSocket loopback(adapter, kOwnAddress);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    // 40 datagrams wait when reading begins; the ring takes 16 of 1024 bytes.
    for (uint16_t serial = 1; serial <= 40; ++serial) {
        const QByteArray answer = enquiryBytes(5, serial);
        QVERIFY(loopback.send(junk(1024 - int(answer.size())) + answer));
    }
    QTRY_COMPARE(found.size(), 40);
    for (int index = 0; index < 40; ++index)
        QCOMPARE(int(deviceOf(found, index)->serial()), index + 1);
}

void tst_HydMarcoAdapterInput::floodIsReadInSeveralTurns_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<QList<int>>("readings");
    QTest::newRow("limit - 1") << 255 << QList<int>{255};
    QTest::newRow("limit") << 256 << QList<int>{256};
    QTest::newRow("limit + 1") << 257 << QList<int>{256, 1};
    QTest::newRow("twice the limit and more") << 520 << QList<int>{256, 256, 8};
}

void tst_HydMarcoAdapterInput::floodIsReadInSeveralTurns()
{
    QFETCH(const int, count);
    QFETCH(const QList<int>, readings);
    HydMarcoAdapter adapter;
    LoopbackSocket loopback(adapter, kOwnAddress);
    // Room for all of them at once.
    loopback.socket()->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 1 << 20);
    QList<int> serials;
    connect(&adapter, &HydMarcoAdapter::deviceFound, this,
            [&](const Device& device) { serials << device->serial(); });
    // Queued behind the messages of each reading.
    QList<int> foundAfterReading{0};
    connect(
        loopback.socket(), &QUdpSocket::readyRead, this, [&] { foundAfterReading << int(serials.size()); },
        Qt::QueuedConnection);
    for (int serial = 1; serial <= count; ++serial)
        QVERIFY(loopback.send(enquiryBytes(5, static_cast<uint16_t>(serial))));
    QTRY_COMPARE(serials.size(), count);
    QVERIFY(std::ranges::is_sorted(serials));
    QTRY_COMPARE(foundAfterReading.last(), count);
    QList<int> seen;
    for (qsizetype i = 1; i < foundAfterReading.size(); ++i)
        seen << foundAfterReading[i] - foundAfterReading[i - 1];
    QCOMPARE(seen, readings);
}

void tst_HydMarcoAdapterInput::floodOfTheUnicastSocketIsReadWhole()
{
    MarcoPeer peer(kOwnAddress);
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    adapter.netEnquireUDPIPAddr(kOwnAddress, false, false);
    QVERIFY(peer.waitForEnquiry());
    QUdpSocket* socket = unicastSocketOf(adapter);
    socket->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 1 << 20);
    for (int serial = 1; serial <= 300; ++serial)
        peer.answer(enquiryBytes(5, static_cast<uint16_t>(serial)));
    // It isn't closed while something is left to be read.
    QTRY_COMPARE(found.size(), 300);
    QCOMPARE(deviceOf(found, 299)->serial(), uint16_t(300));
    QCOMPARE(socket->state(), QAbstractSocket::UnconnectedState);
}

void tst_HydMarcoAdapterInput::sizesAroundTheLimit_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("taken");
    QTest::newRow("empty") << 0 << false;
    QTest::newRow("one byte") << 1 << false;
    QTest::newRow("one byte short of an answer") << 35 << false;
    QTest::newRow("an answer") << 36 << true;
    QTest::newRow("below the limit") << 1023 << true;
    QTest::newRow("limit") << 1024 << true;
    QTest::newRow("above the limit") << 1025 << false;
    QTest::newRow("largest") << 65507 << false;
}

void tst_HydMarcoAdapterInput::sizesAroundTheLimit()
{
    QFETCH(const int, size);
    QFETCH(const bool, taken);
    HydMarcoAdapter adapter;
    LoopbackSocket loopback(adapter, kOwnAddress);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    // An answer at the end, so that a datagram that is taken shows.
    QVERIFY(loopback.send((junk(size) + enquiryBytes(5, 1)).right(size)));
    QVERIFY(loopback.send(enquiryBytes(5, 2)));
    QTRY_VERIFY(!found.isEmpty() && deviceOf(found, int(found.size()) - 1)->serial() == 2);
    QCOMPARE(found.size(), taken ? 2 : 1);
    QCOMPARE(deviceOf(found)->serial(), uint16_t(taken ? 1 : 2));
}

void tst_HydMarcoAdapterInput::truncatedDatagramNeverSwallowsTheNext()
{
    HydMarcoAdapter adapter;
    LoopbackSocket loopback(adapter, kOwnAddress);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    const QByteArray whole = enquiryBytes(5, 1);
    for (int size = 0; size < whole.size(); ++size) {
        found.clear();
        QVERIFY(loopback.send(whole.left(size)));
        QVERIFY(loopback.send(enquiryBytes(5, static_cast<uint16_t>(100 + size))));
        QTRY_COMPARE(found.size(), 1);
        QCOMPARE(int(deviceOf(found)->serial()), 100 + size);
    }
}

void tst_HydMarcoAdapterInput::brokenDatagramNeverSwallowsTheNext_data()
{
    QTest::addColumn<QByteArray>("broken");
    const auto withByte = [](int offset, char value) {
        QByteArray bytes = enquiryBytes(5, 1);
        bytes[offset] = value;
        return bytes;
    };
    const auto withLength = [](uint16_t length) {
        QByteArray bytes = enquiryBytes(5, 1);
        bytes.replace(8, 2, bigEndian(length, 2));
        return bytes;
    };
    const QByteArray body(22, '\0');
    QTest::newRow("magic") << withByte(0, 'X');
    QTest::newRow("version 0") << withByte(4, 0);
    QTest::newRow("version 2") << withByte(4, 2);
    QTest::newRow("body byte") << withByte(12, 'X');
    QTest::newRow("checksum") << withByte(35, 'X');
    QTest::newRow("length 0") << withLength(0);
    QTest::newRow("length 1") << withLength(1);
    QTest::newRow("length limit - 1") << withLength(1009);
    QTest::newRow("length limit") << withLength(1010);
    QTest::newRow("length limit + 1") << withLength(1011);
    QTest::newRow("length largest") << withLength(65535);
    QTest::newRow("kind 0") << marcoBytes(0, body);
    QTest::newRow("kind 4") << marcoBytes(4, body);
    QTest::newRow("kind 255") << marcoBytes(255, body);
    QTest::newRow("body too short") << marcoBytes(1, body.left(21));
    QTest::newRow("body empty") << marcoBytes(1, QByteArray());
    QTest::newRow("body too long") << marcoBytes(1, body + 'x');
    QTest::newRow("change without error code") << marcoBytes(2, body);
    QTest::newRow("short MAC") << marcoBytes(3, QByteArray(5, '\1'));
    QTest::newRow("magic over and over") << QByteArray("NVXM").repeated(256);
    QTest::newRow("zeros") << QByteArray(1024, '\0');
    QTest::newRow("all bits") << QByteArray(1024, '\xFF');
}

void tst_HydMarcoAdapterInput::brokenDatagramNeverSwallowsTheNext()
{
    QFETCH(const QByteArray, broken);
    HydMarcoAdapter adapter;
    LoopbackSocket loopback(adapter, kOwnAddress);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    QSignalSpy changed(&adapter, &HydMarcoAdapter::deviceChanged);
    QSignalSpy reset(&adapter, &HydMarcoAdapter::deviceReset);
    QSignalSpy error(&adapter, &HydMarcoAdapter::error);
    // Once ahead in the same reading, and once as the only one of a reading.
    for (const bool sameReading : {true, false}) {
        found.clear();
        QSignalSpy readyRead(loopback.socket(), &QUdpSocket::readyRead);
        QVERIFY(loopback.send(broken));
        if (!sameReading)
            QTRY_COMPARE(readyRead.size(), 1);
        QVERIFY(loopback.send(enquiryBytes(5, 7)));
        QTRY_COMPARE(found.size(), 1);
        QCOMPARE(deviceOf(found)->serial(), uint16_t(7));
    }
    QCOMPARE(changed.size() + reset.size() + error.size(), 0);
}

void tst_HydMarcoAdapterInput::endlessJunkLeavesTheAdapterUsable()
{
    HydMarcoAdapter adapter;
    LoopbackSocket loopback(adapter, kOwnAddress);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    const QByteArray block = (QByteArray("NVXM\x01\x01", 6) + junk(1024)).left(1024);
    constexpr int kBlocks = 8 * 1024;
    constexpr int kBlocksOfRound = 32;
    for (int round = 0; round < kBlocks / kBlocksOfRound; ++round) {
        for (int i = 0; i < kBlocksOfRound; ++i)
            QVERIFY(loopback.send(block));
        QTRY_VERIFY(!loopback.socket()->hasPendingDatagrams());
    }
    QCOMPARE(found.size(), 0);
    QVERIFY(loopback.send(enquiryBytes(5, 8)));
    QTRY_COMPARE(found.size(), 1);
}

void tst_HydMarcoAdapterInput::slotMayRunAnEventLoop()
{
    HydMarcoAdapter adapter;
    LoopbackSocket loopback(adapter, kOwnAddress);
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    bool ended = false;
    bool inOrder = false;
    connect(&adapter, &HydMarcoAdapter::deviceFound, this, [&](const Device& device) {
        if (device->serial() != 1)
            return;
        // A dialog, say: while it is open the second answer comes and the socket's time runs out.
        loopback.socket()->timer()->start(1);
        inOrder = QTest::qWaitFor([&] { return found.size() == 2; }, kPatienceMs);
        ended = QTest::qWaitFor([&] { return !loopback.socket(); }, kPatienceMs);
    });
    QVERIFY(loopback.send(enquiryBytes(5, 1)));
    QVERIFY(loopback.send(enquiryBytes(5, 2)));
    QTRY_VERIFY(ended);
    QVERIFY(inOrder);
    QCOMPARE(deviceOf(found, 1)->serial(), uint16_t(2));
}

void tst_HydMarcoAdapterInput::destructionWithOpenSockets()
{
    MarcoPeer peer(kOwnAddress);
    auto adapter = std::make_unique<HydMarcoAdapter>();
    int signalCount = 0;
    const auto count = [&signalCount] { ++signalCount; };
    connect(adapter.get(), &HydMarcoAdapter::messageReceived, this, count);
    connect(adapter.get(), &HydMarcoAdapter::timeout, this, count);
    connect(adapter.get(), &HydMarcoAdapter::error, this, count);
    adapter->netEnquireUDPIPAddr(kOwnAddress, false, false);
    QVERIFY(peer.waitForEnquiry());
    LoopbackSocket loopback(*adapter, kOwnAddress);
    QVERIFY(loopback.send(enquiryBytes(5, 1)));
    peer.answer(enquiryBytes(5, 2));
    QPointer<QUdpSocket> unicast = unicastSocketOf(*adapter);
    QPointer<QUdpSocket> broadcast = loopback.socket();
    adapter.reset();
    QVERIFY(unicast.isNull());
    QVERIFY(broadcast.isNull());
    // What the destroyed sockets had waiting would be delivered ahead of this one.
    HydMarcoAdapter other;
    LoopbackSocket otherLoopback(other, kOwnAddress);
    QSignalSpy found(&other, &HydMarcoAdapter::deviceFound);
    QVERIFY(otherLoopback.send(enquiryBytes(5, 3)));
    QTRY_COMPARE(found.size(), 1);
    QCOMPARE(signalCount, 0);
}

void tst_HydMarcoAdapterInput::deletedFromASlot()
{
    QPointer<HydMarcoAdapter> adapter = new HydMarcoAdapter;
    LoopbackSocket loopback(*adapter, kOwnAddress);
    int found = 0;
    connect(adapter, &HydMarcoAdapter::deviceFound, adapter, [&] {
        ++found;
        adapter->deleteLater();
    });
    QVERIFY(loopback.send(enquiryBytes(5, 1)));
    QVERIFY(loopback.send(enquiryBytes(5, 2)));
    QTRY_VERIFY(adapter.isNull());
    QCOMPARE(found, 2);
}

QTEST_GUILESS_MAIN(tst_HydMarcoAdapterInput)
#include "tst_HydMarcoAdapterInput.moc"
