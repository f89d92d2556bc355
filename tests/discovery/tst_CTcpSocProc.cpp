#include "NvxQtCommon/contract/device/DeviceVariants.h"
#include "NvxQtCommon/contract/device/SkiffDevice.h"
#include "NvxQtCommon/contract/device/ZcrDevice.h"
#include "NvxQtCommon/discovery/CTcpSocProc.h"
#include "tests/discovery/MarcoBytes.h"
#include "tests/discovery/ProbeFixture.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"

#include <QEventLoop>
#include <QNetworkProxy>
#include <QPointer>
#include <QSignalSpy>
#include <QThread>
#include <QTimer>

#include <typeinfo>

namespace {

const QString kPeerAddress = QStringLiteral("127.63.1.1");
const QString kOtherAddress = QStringLiteral("127.63.1.2");
const QHostAddress kAbsentAddress(QStringLiteral("127.63.1.3"));
constexpr int kSilenceMs = 50;

/// The enquiry as it stands on the wire, made by hand.
QByteArray enquiryFrame(char letter = 'E')
{
    const QByteArray head = QByteArray("*") + letter + QByteArray(2, '\0');
    return head + bigEndian(crc32Of(head), 4);
}

/// An answer to it, made by hand: who it is, no network record, three texts.
QByteArray enquiryAnswer(uint8_t type, uint16_t serial)
{
    const QByteArray body = bigEndian(type, 1) + bigEndian(serial, 2) + QByteArray(18, '\0') +
                            netRecordBytes(0x0A0B0C0D) + QByteArray("\3Rec\0051.2.3\1x", 12);
    const QByteArray head = QByteArray("*E") + bigEndian(static_cast<uint32_t>(body.size()), 2) + body;
    return head + bigEndian(crc32Of(head), 4);
}

QList<Device> devicesOf(const QSignalSpy& spy)
{
    QList<Device> devices;
    for (const QList<QVariant>& arguments : spy)
        devices << arguments.at(0).value<Device>();
    return devices;
}

} // namespace

class tst_CTcpSocProc : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void sendsTheCommandAndNothingElse_data();
    void sendsTheCommandAndNothingElse();
    void answerBecomesADevice_data();
    void answerBecomesADevice();
    void dataCollectGivesTypeZero();
    void eachMessageOfTheReadGivesADevice();
    void readsOnceAndCloses();
    void storedValuesAreUsed();
    void newConnectionGivesUpTheOneBefore();
    // --- rainy day flows
    void otherMessagesGiveNothing_data();
    void otherMessagesGiveNothing();
    void replyCutAtEachByte();
    void repliesAroundTheLimit_data();
    void repliesAroundTheLimit();
    void replyInTwoPiecesIsLost();
    void waitTimeHasNoEffect();
    void connectionToAnotherAddressIsClosedUnheard();
    void writingNeedsAnOpenSocket();
    void noProxyIsAsked();
    void failuresAreReportedOnce_data();
    void failuresAreReportedOnce();
    void lastReferenceInsideItsOwnSignal_data();
    void lastReferenceInsideItsOwnSignal();
    void parentMayBeQuicker();
    void lastReferenceOnAnotherThread_data();
    void lastReferenceOnAnotherThread();

private:
    static std::shared_ptr<CTcpSocProc> probe(const QHostAddress& address, uint8_t letter = 'E')
    {
        return CTcpSocProc::make(nullptr, address, 1000, letter);
    }
};

void tst_CTcpSocProc::sendsTheCommandAndNothingElse_data()
{
    QTest::addColumn<char>("letter");
    QTest::newRow("enquiry") << 'E';
    QTest::newRow("data collect") << 'C';
}

void tst_CTcpSocProc::sendsTheCommandAndNothingElse()
{
    QFETCH(const char, letter);
    ProbedPeer peer(kPeerAddress);
    QVERIFY(peer.listens());
    const auto socket = probe(peer.host(), static_cast<uint8_t>(letter));
    QSignalSpy arrived(&peer, &ControlPeer::requestArrived);
    QVERIFY(socket->connectIPAddr());
    QVERIFY(arrived.wait(kPatienceMs));
    QCOMPARE(socket->peerPort(), quint16(50000));
    QVERIFY(!arrived.wait(kSilenceMs));
    QCOMPARE(peer.connections(), 1);
    QCOMPARE(peer.received().toHex(), enquiryFrame(letter).toHex());
}

void tst_CTcpSocProc::answerBecomesADevice_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("className");
    QTest::newRow("any") << 0 << QByteArray(typeid(HydDevice).name());
    QTest::newRow("recorder A") << 5 << QByteArray(typeid(HydDevice).name());
    QTest::newRow("TMI") << 8 << QByteArray(typeid(TmiDevice).name());
    QTest::newRow("TD recorder") << 13 << QByteArray(typeid(TdRecDevice).name());
    QTest::newRow("behind an array") << 15 << QByteArray(typeid(SkiffDevice).name());
    QTest::newRow("array controller") << 16 << QByteArray(typeid(ZcrDevice).name());
    QTest::newRow("unknown type") << 200 << QByteArray(typeid(HydDevice).name());
}

void tst_CTcpSocProc::answerBecomesADevice()
{
    QFETCH(const int, type);
    QFETCH(const QByteArray, className);
    ProbedPeer peer(kPeerAddress, enquiryAnswer(static_cast<uint8_t>(type), 4711));
    const auto socket = probe(peer.host());
    QSignalSpy found(socket.get(), &CTcpSocProc::deviceFound);
    QSignalSpy errors(socket.get(), &CTcpSocProc::signalSocketError);
    socket->connectIPAddr();
    QTRY_COMPARE(found.size(), 1);
    const Device device = devicesOf(found).first();
    const HydDevice& record = *device;
    QCOMPARE(QByteArray(typeid(record).name()), className);
    QCOMPARE(int(record.devType()), type);
    QCOMPARE(record.serial(), uint16_t(4711));
    QCOMPARE(record.modelString(), std::string("Rec"));
    QCOMPARE(record.firmwareVer(), std::string("1.2.3"));
    // The addresses are those of the connection, whatever the answer says; nothing else of the network stays.
    QVERIFY(record.netHostInfo() == NvxNetHostInfo(0x7F3F0101));
    QCOMPARE(record.ifaceAddr().toInt(), 0x7F000001U);
    QCOMPARE(errors.size(), 0);
}

void tst_CTcpSocProc::dataCollectGivesTypeZero()
{
    ProbedPeer peer(kPeerAddress, collectReply(5));
    const auto socket = probe(peer.host());
    QSignalSpy found(socket.get(), &CTcpSocProc::deviceFound);
    socket->connectIPAddr();
    QTRY_COMPARE(found.size(), 1);
    const Device device = devicesOf(found).first();
    QCOMPARE(int(device->devType()), 0);
    QCOMPARE(device->serial(), uint16_t(0));
    QVERIFY(device->modelString().empty());
    QVERIFY(device->netHostInfo() == NvxNetHostInfo(0x7F3F0101));
    QCOMPARE(device->ifaceAddr().toInt(), 0x7F000001U);
}

void tst_CTcpSocProc::eachMessageOfTheReadGivesADevice()
{
    ProbedPeer peer(kPeerAddress, "junk*" + enquiryAnswer(5, 1) + timeReply(7) + "***" + collectReply(1) +
                                      enquiryAnswer(7, 2));
    const auto socket = probe(peer.host());
    QSignalSpy found(socket.get(), &CTcpSocProc::deviceFound);
    socket->connectIPAddr();
    QTRY_COMPARE(found.size(), 3);
    QStringList told;
    for (const Device& device : devicesOf(found))
        told << QStringLiteral("%1/%2").arg(int(device->devType())).arg(device->serial());
    QCOMPARE(told.join(u' '), QStringLiteral("5/1 0/0 7/2"));
}

void tst_CTcpSocProc::readsOnceAndCloses()
{
    ProbedPeer peer(kPeerAddress, enquiryAnswer(5, 1));
    const auto socket = probe(peer.host());
    QSignalSpy found(socket.get(), &CTcpSocProc::deviceFound);
    QSignalSpy gone(&peer, &ControlPeer::disconnected);
    QAbstractSocket::SocketState state = QAbstractSocket::UnconnectedState;
    connect(socket.get(), &CTcpSocProc::deviceFound, this, [&] { state = socket->state(); });
    socket->connectIPAddr();
    QTRY_COMPARE(gone.size(), 1);
    QCOMPARE(found.size(), 1);
    QCOMPARE(state, QAbstractSocket::ConnectedState);
    QCOMPARE(socket->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(!socket->isOpen());

    socket->connectIPAddr();
    QTRY_COMPARE(found.size(), 2);
}

void tst_CTcpSocProc::storedValuesAreUsed()
{
    ProbedPeer first(kPeerAddress);
    ProbedPeer second(kOtherAddress);
    const auto socket = probe(first.host());
    QVERIFY(socket->connectIPAddr(second.host(), 5, 'C', true));
    QTRY_COMPARE(second.letters(), QByteArray("C"));
    QVERIFY(socket->connectIPAddr());
    QTRY_COMPARE(second.letters(), QByteArray("CC"));
    QCOMPARE(first.connections(), 0);

    // What isn't stored doesn't count: the letter of the first connection is sent.
    QVERIFY(socket->connectIPAddr(second.host(), 5, 'E', false));
    QTRY_COMPARE(second.letters(), QByteArray("CCC"));
}

void tst_CTcpSocProc::newConnectionGivesUpTheOneBefore()
{
    ProbedPeer peer(kPeerAddress);
    const auto socket = probe(peer.host());
    QSignalSpy errors(socket.get(), &CTcpSocProc::signalSocketError);
    socket->connectIPAddr();
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    QSignalSpy closed(socket.get(), &QAbstractSocket::disconnected);
    socket->connectIPAddr();
    QCOMPARE(closed.size(), 1);
    // In the middle of connecting.
    socket->connectIPAddr();
    QTRY_VERIFY(peer.letters().size() >= 2);
    QCOMPARE(socket->state(), QAbstractSocket::ConnectedState);
    QCOMPARE(errors.size(), 0);
}

void tst_CTcpSocProc::otherMessagesGiveNothing_data()
{
    QTest::addColumn<QByteArray>("reply");
    QByteArray broken = enquiryAnswer(5, 1);
    broken[10] = static_cast<char>(broken[10] ^ 1);
    QTest::newRow("time") << timeReply(7);
    QTest::newRow("job setup") << jobSetupReply(20);
    QTest::newRow("unknown letter") << rawFrame('Z', "abc");
    QTest::newRow("enquiry answer whose body doesn't read") << rawFrame('E', "abc");
    QTest::newRow("data collect whose body doesn't read") << rawFrame('C', QByteArray());
    QTest::newRow("wrong checksum") << broken;
    QTest::newRow("junk") << QByteArray(100, '\x5A');
    QTest::newRow("stars") << QByteArray(4096, '*');
    QTest::newRow("one byte") << QByteArray(1, '*');
    QTest::newRow("longest length") << QByteArray("*E\xFF\xFF", 4) + QByteArray(200, 'a');
}

void tst_CTcpSocProc::otherMessagesGiveNothing()
{
    QFETCH(const QByteArray, reply);
    ProbedPeer peer(kPeerAddress, reply);
    const auto socket = probe(peer.host());
    QSignalSpy found(socket.get(), &CTcpSocProc::deviceFound);
    QSignalSpy closed(socket.get(), &QAbstractSocket::disconnected);
    QSignalSpy errors(socket.get(), &CTcpSocProc::signalSocketError);
    socket->connectIPAddr();
    QTRY_COMPARE(closed.size(), 1);
    QCOMPARE(found.size(), 0);
    QCOMPARE(errors.size(), 0);
    QCOMPARE(peer.connections(), 1);
}

void tst_CTcpSocProc::replyCutAtEachByte()
{
    const QByteArray whole = enquiryAnswer(5, 1);
    QByteArray reply;
    ControlPeer peer(kPeerAddress);
    peer.setScript([&](const ControlPeer::Request&) { return reply; });
    QVERIFY(peer.listen());
    const auto socket = probe(QHostAddress(kPeerAddress));
    QSignalSpy found(socket.get(), &CTcpSocProc::deviceFound);
    QSignalSpy closed(socket.get(), &QAbstractSocket::disconnected);
    for (qsizetype size = 1; size <= whole.size(); ++size) {
        reply = whole.left(size);
        socket->connectIPAddr();
        QTRY_COMPARE(closed.size(), size);
        QCOMPARE(found.size(), size == whole.size() ? 1 : 0);
    }
}

void tst_CTcpSocProc::repliesAroundTheLimit_data()
{
    const qsizetype size = enquiryAnswer(5, 1).size();
    QTest::addColumn<qsizetype>("junkAhead");
    QTest::addColumn<qsizetype>("junkBehind");
    QTest::addColumn<bool>("isFound");
    QTest::newRow("ends at the limit") << 4096 - size << qsizetype(0) << true;
    QTest::newRow("4097 bytes, the last is needed") << 4097 - size << qsizetype(0) << false;
    QTest::newRow("4097 bytes, the last is not needed") << qsizetype(0) << 4097 - size << true;
    QTest::newRow("behind the limit") << qsizetype(4096) << qsizetype(0) << false;
    QTest::newRow("a flood behind it") << qsizetype(0) << qsizetype(3000000) << true;
    QTest::newRow("a flood ahead of it") << qsizetype(3000000) << qsizetype(0) << false;
}

void tst_CTcpSocProc::repliesAroundTheLimit()
{
    QFETCH(const qsizetype, junkAhead);
    QFETCH(const qsizetype, junkBehind);
    QFETCH(const bool, isFound);
    ProbedPeer peer(kPeerAddress,
                    QByteArray(junkAhead, 'j') + enquiryAnswer(5, 1) + QByteArray(junkBehind, 'j'));
    const auto socket = probe(peer.host());
    QSignalSpy found(socket.get(), &CTcpSocProc::deviceFound);
    QSignalSpy closed(socket.get(), &QAbstractSocket::disconnected);
    qint64 held = 0;
    connect(socket.get(), &CTcpSocProc::deviceFound, this, [&] { held = socket->bytesAvailable(); });
    socket->connectIPAddr();
    QTRY_COMPARE(closed.size(), 1);
    QCOMPARE(found.size(), isFound ? 1 : 0);
    QVERIFY2(held <= 4096, "no more than another read is held");
}

void tst_CTcpSocProc::replyInTwoPiecesIsLost()
{
    const QByteArray whole = enquiryAnswer(5, 1);
    ProbedPeer peer(kPeerAddress, whole.left(20));
    const auto socket = probe(peer.host());
    QSignalSpy found(socket.get(), &CTcpSocProc::deviceFound);
    QSignalSpy closed(socket.get(), &QAbstractSocket::disconnected);
    connect(socket.get(), &QAbstractSocket::disconnected, &peer, [&] { peer.send(whole.mid(20)); });
    socket->connectIPAddr();
    QTRY_COMPARE(closed.size(), 1);
    QVERIFY(spyStaysEmpty(found, kSilenceMs));
}

void tst_CTcpSocProc::waitTimeHasNoEffect()
{
    ProbedPeer peer(kPeerAddress);
    const auto socket = CTcpSocProc::make(nullptr, peer.host(), 0, 'E');
    QSignalSpy closed(socket.get(), &QAbstractSocket::disconnected);
    QSignalSpy errors(socket.get(), &CTcpSocProc::signalSocketError);
    socket->connectIPAddr(peer.host(), 1, 'E', true);
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    QVERIFY(spyStaysEmpty(closed, kSilenceMs));
    QCOMPARE(errors.size(), 0);
    QCOMPARE(socket->state(), QAbstractSocket::ConnectedState);
}

void tst_CTcpSocProc::connectionToAnotherAddressIsClosedUnheard()
{
    ProbedPeer peer(kPeerAddress, enquiryAnswer(5, 1));
    const auto socket = probe(kAbsentAddress);
    QSignalSpy found(socket.get(), &CTcpSocProc::deviceFound);
    QSignalSpy closed(socket.get(), &QAbstractSocket::disconnected);
    QVERIFY(socket->connectIPAddr(peer.host(), 1000, 'E', false));
    QTRY_COMPARE(closed.size(), 1);
    QTRY_COMPARE(peer.connections(), 1);
    QVERIFY(spyStaysEmpty(found, kSilenceMs));
    QVERIFY(peer.received().isEmpty());
}

void tst_CTcpSocProc::writingNeedsAnOpenSocket()
{
    ProbedPeer peer(kPeerAddress);
    const auto socket = probe(peer.host());
    QVERIFY(!socket->writeTcpSocket('E'));
    socket->closePerform();
    socket->connectIPAddr();
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    QVERIFY(socket->writeTcpSocket('A'));
    QTRY_COMPARE(peer.letters(), QByteArray("EA"));
    socket->closePerform();
    QVERIFY(!socket->writeTcpSocket('E'));
}

void tst_CTcpSocProc::noProxyIsAsked()
{
    const auto socket = probe(kAbsentAddress);
    QCOMPARE(socket->proxy().type(), QNetworkProxy::NoProxy);
}

void tst_CTcpSocProc::failuresAreReportedOnce_data()
{
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QAbstractSocket::SocketError>("error");
    QTest::newRow("refuses") << QStringLiteral("refuse") << QAbstractSocket::ConnectionRefusedError;
    QTest::newRow("closes") << QStringLiteral("close") << QAbstractSocket::RemoteHostClosedError;
    QTest::newRow("resets") << QStringLiteral("reset") << QAbstractSocket::RemoteHostClosedError;
    QTest::newRow("no address") << QStringLiteral("null") << QAbstractSocket::HostNotFoundError;
}

void tst_CTcpSocProc::failuresAreReportedOnce()
{
    QFETCH(const QString, failure);
    QFETCH(const QAbstractSocket::SocketError, error);
    ProbedPeer peer(kPeerAddress);
    QHostAddress address = peer.host();
    if (failure == QStringLiteral("refuse"))
        address = kAbsentAddress;
    else if (failure == QStringLiteral("null"))
        address = QHostAddress();
    connect(&peer, &ControlPeer::requestArrived, this,
            [&] { failure == QStringLiteral("close") ? peer.close() : peer.reset(); });
    const auto socket = probe(address);
    QSignalSpy errors(socket.get(), &CTcpSocProc::signalSocketError);
    QSignalSpy found(socket.get(), &CTcpSocProc::deviceFound);
    const QString line = QStringLiteral("^CTcpSocProc: socketError: .*%1.* %2$");
    const QString name = QVariant::fromValue(error).toString();
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression(line.arg(name, address.toString())));
    QVERIFY(socket->connectIPAddr());
    QTRY_COMPARE(errors.size(), 1);
    QCOMPARE(errors.first().at(0).value<QAbstractSocket::SocketError>(), error);
    QCOMPARE(errors.first().at(1).value<QHostAddress>(), address);
    QCOMPARE(socket->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(!socket->writeTcpSocket('E'));
    // Nothing is tried again.
    QVERIFY(!errors.wait(kSilenceMs));
    QVERIFY(peer.connections() <= 1);
    QCOMPARE(found.size(), 0);
}

void tst_CTcpSocProc::lastReferenceInsideItsOwnSignal_data()
{
    QTest::addColumn<bool>("hasParent");
    QTest::addColumn<bool>("loopInside");
    QTest::addColumn<bool>("fails");
    for (const bool hasParent : {false, true}) {
        for (const bool loopInside : {false, true}) {
            for (const bool fails : {false, true}) {
                QTest::addRow("%s, %s, %s", hasParent ? "with a parent" : "without a parent",
                              loopInside ? "an event loop in the slot" : "no event loop",
                              fails ? "refused" : "answered")
                    << hasParent << loopInside << fails;
            }
        }
    }
}

void tst_CTcpSocProc::lastReferenceInsideItsOwnSignal()
{
    QFETCH(const bool, hasParent);
    QFETCH(const bool, loopInside);
    QFETCH(const bool, fails);
    ProbedPeer peer(kPeerAddress, enquiryAnswer(5, 1) + enquiryAnswer(5, 2));
    QObject parent;
    auto socket =
        CTcpSocProc::make(hasParent ? &parent : nullptr, fails ? kAbsentAddress : peer.host(), 1000, 'E');
    const QPointer<CTcpSocProc> guard(socket.get());
    int calls = 0;
    const auto drop = [&] {
        ++calls;
        // From inside the inner loop, which so carries out what is to be deleted there.
        if (loopInside) {
            QEventLoop loop;
            QTimer::singleShot(0, &loop, [&] { socket.reset(); });
            QTimer::singleShot(20, &loop, &QEventLoop::quit);
            loop.exec();
        } else {
            socket.reset();
        }
        QVERIFY(guard);
        QCOMPARE(guard->state(), QAbstractSocket::UnconnectedState);
    };
    connect(socket.get(), &CTcpSocProc::deviceFound, this, drop);
    connect(socket.get(), &CTcpSocProc::signalSocketError, this, drop);
    socket->connectIPAddr();
    QTRY_VERIFY(calls > 0 && !guard);
    QCOMPARE(calls, 1);
    QVERIFY(!socket);
}

void tst_CTcpSocProc::parentMayBeQuicker()
{
    ProbedPeer peer(kPeerAddress);
    auto parent = std::make_unique<QObject>();
    auto socket = CTcpSocProc::make(parent.get(), peer.host(), 1000, 'E');
    const QPointer<CTcpSocProc> guard(socket.get());
    QSignalSpy gone(&peer, &ControlPeer::disconnected);
    socket->connectIPAddr();
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    parent.reset();
    QVERIFY(!guard);
    socket.reset();
    QTRY_COMPARE(gone.size(), 1);
}

void tst_CTcpSocProc::lastReferenceOnAnotherThread_data()
{
    QTest::addColumn<bool>("threadHasEnded");
    QTest::newRow("the socket's thread runs") << false;
    QTest::newRow("the socket's thread has ended") << true;
}

void tst_CTcpSocProc::lastReferenceOnAnotherThread()
{
    QFETCH(const bool, threadHasEnded);
    QThread thread;
    QObject onThread;
    onThread.moveToThread(&thread);
    thread.start();
    std::shared_ptr<CTcpSocProc> socket;
    QPointer<CTcpSocProc> guard;
    callOn(onThread, [&] { socket = probe(kAbsentAddress); });
    guard = socket.get();
    if (threadHasEnded) {
        thread.quit();
        QVERIFY(thread.wait());
    }
    socket.reset();
    thread.quit();
    QVERIFY(thread.wait());
    QVERIFY(!guard);
}

QTEST_GUILESS_MAIN(tst_CTcpSocProc)
#include "tst_CTcpSocProc.moc"
