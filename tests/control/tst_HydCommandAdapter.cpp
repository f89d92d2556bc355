#include "AdapterFixture.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SpyWait.h"

#include "NvxQtCommon/contract/message/HydControlPayloads.h"

namespace {

const QString kAddress = QStringLiteral("127.21.0.1");
const QString kOtherAddress = QStringLiteral("127.21.0.2");

} // namespace

/// The channel itself: opening, closing, what is known of it. TCP.
class tst_HydCommandAdapter : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void startsUnconnectedWithDefaults();
    void numbersOfTheErrors();
    void sizesOfTheBuffers();
    void opensAndCloses();
    void openSocketHasKeepAlive();
    void openingTwiceConnectsOnce();
    void openingClearsWhatWasReceived();
    void openIpConnectionTakesTheStoredAddress();
    void openIpConnectionClearsWhatWasReceived();
    void addressIsKeptAsText();
    void mirrorFollowsTheChannel();
    void mirrorIsRightInsideTheSignals();
    void closesWhenDestroyed();
    void destructorLetsAnAcceptedCommandLeave();
    void opensAgainAfterClosing();
    // --- rainy day flows
    void connectedOnlyToTheStoredAddress();
    void refusedConnection();
    void noAddress_data();
    void noAddress();
    void peerCloses();
    void peerResets();
    void peerClosesInTheMiddleOfAFrame();
    void typeChangeWhileConnectedIsLogged();
    void unknownTypeDoesNothing();
    void closingWhileUnconnectedIsSilent();
    void destroyedWithMoreToSendThanThePeerTakes();
    void destroyedWhileConnecting();
    void disconnectIsLoggedBySlot();
    void deletedLaterByItsReceiver();
};

void tst_HydCommandAdapter::startsUnconnectedWithDefaults()
{
    AdapterFixture f(kAddress);
    QVERIFY(!f.adapter.isConnected());
    QVERIFY(!f.adapter.isChannelOpen());
    QVERIFY(f.adapter.keepConnection());
    QVERIFY(f.adapter.isCollectingData());
    QCOMPARE(f.adapter.connType(), ConnTcp);
    QVERIFY(!f.scanTimer->isActive());
    QCOMPARE(HydCommandAdapter(ConnSerial).ipAddr().toInt(), 0u);
    QCOMPARE(HydCommandAdapter::CONTROL_PORT, quint16(50000));
}

void tst_HydCommandAdapter::numbersOfTheErrors()
{
    // Applications get the number; 2 is no error of this channel.
    QCOMPARE(int(ErrNotConnected), 0);
    QCOMPARE(int(ErrSocketWrite), 1);
    QCOMPARE(int(ErrSerialWrite), 3);
    QCOMPARE(int(ErrPortFailure), 4);
    QCOMPARE(int(ErrConnectionLost), 5);
}

void tst_HydCommandAdapter::sizesOfTheBuffers()
{
    QCOMPARE(int(HydCommandAdapter::kResponseBufferSize), 262144);
    QCOMPARE(int(HydCommandAdapter::kCollectBufferSize), 262144);
    QCOMPARE(int(HydCommandAdapter::kStagingBufferSize), 65536);
    QCOMPARE(int(HydCommandAdapter::kScratchSize), 262144);
    QCOMPARE(int(HydCommandAdapter::kSocketReadBufferSize), 2621440);
    AdapterFixture f(kAddress);
    QCOMPARE(f.socket->readBufferSize(), 0);
    f.adapter.setDataScanConf(0, 0);
    QCOMPARE(f.socket->readBufferSize(), 2621440);
}

void tst_HydCommandAdapter::opensAndCloses()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QCOMPARE(f.opened.count(), 1);
    QCOMPARE(f.closed.count(), 0);
    QVERIFY(f.errors.isEmpty());

    QSignalSpy peerClosed(&f.peer, &ControlPeer::disconnected);
    f.adapter.closeConnection();
    QTRY_COMPARE(f.closed.count(), 1);
    QVERIFY(!f.adapter.isConnected());
    QTRY_COMPARE(peerClosed.count(), 1);
}

void tst_HydCommandAdapter::openSocketHasKeepAlive()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QCOMPARE(f.socket->socketOption(QAbstractSocket::KeepAliveOption).toInt(), 1);
}

void tst_HydCommandAdapter::openingTwiceConnectsOnce()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.openConnection();
    f.adapter.openConnection();
    QVERIFY(f.adapter.sendCommand(std::make_shared<HydEnquireCmd>()));
    QTRY_COMPARE(f.peer.letters(), QByteArray("E"));
    QCOMPARE(f.peer.connections(), 1);
    QCOMPARE(f.opened.count(), 1);
}

void tst_HydCommandAdapter::openingClearsWhatWasReceived()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    const auto reply = enquireReply(7);
    QVERIFY(f.deliver(reply.first(20)));
    f.adapter.openConnection();
    QVERIFY(f.deliver(reply.sliced(20) + timeReply(5)));
    QCOMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapter::openIpConnectionTakesTheStoredAddress()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.peer.listen());
    ControlPeer other(kOtherAddress);
    QVERIFY(other.listen());
    // The argument is ignored on purpose.
    f.adapter.openIpConnection(kOtherAddress);
    QTRY_COMPARE(f.opened.count(), 1);
    QVERIFY(f.adapter.isConnected());
    QTRY_COMPARE(f.peer.connections(), 1);
    QCOMPARE(other.connections(), 0);

    f.adapter.openIpConnection(kAddress);
    QVERIFY(f.adapter.sendCommand(std::make_shared<HydEnquireCmd>()));
    QTRY_COMPARE(f.peer.count('E'), 1);
    QCOMPARE(f.peer.connections(), 1);
}

void tst_HydCommandAdapter::openIpConnectionClearsWhatWasReceived()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    const auto reply = enquireReply(7);
    QVERIFY(f.deliver(reply.first(20)));
    f.adapter.openIpConnection(kAddress);
    QVERIFY(f.deliver(reply.sliced(20) + timeReply(5)));
    QCOMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapter::addressIsKeptAsText()
{
    AdapterFixture f(kAddress);
    QCOMPARE(f.adapter.ipAddr().toInt(), 0x7F150001u);
    f.adapter.setIpAddr(NvxIpAddr(0x7F150002));
    QCOMPARE(f.adapter.ipAddr().toString(), kOtherAddress.toStdString());
}

void tst_HydCommandAdapter::mirrorFollowsTheChannel()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.adapter.isChannelOpen());
    f.adapter.setIpAddr(NvxIpAddr(0x7F150002));
    QVERIFY(!f.adapter.isChannelOpen());
    f.adapter.setIpAddr(f.peer.ipAddr());
    QVERIFY(f.adapter.isChannelOpen());
    f.adapter.setConnType(ConnSerial);
    QVERIFY(!f.adapter.isChannelOpen());
    f.adapter.setConnType(ConnTcp);
    QVERIFY(f.adapter.isChannelOpen());
    f.adapter.closeConnection();
    QVERIFY(!f.adapter.isChannelOpen());
}

void tst_HydCommandAdapter::mirrorIsRightInsideTheSignals()
{
    QList<bool> seen;
    AdapterFixture f(kAddress);
    connect(&f.adapter, &HydCommandAdapter::connectionOpen, this, [&] { seen << f.adapter.isChannelOpen(); });
    connect(&f.adapter, &HydCommandAdapter::connectionClosed, this,
            [&] { seen << f.adapter.isChannelOpen(); });
    QVERIFY(f.open());
    f.peer.close();
    QTRY_COMPARE(f.closed.count(), 1);
    QCOMPARE(seen, QList<bool>({true, false}));
}

void tst_HydCommandAdapter::closesWhenDestroyed()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QSignalSpy peerClosed(&f.peer, &ControlPeer::disconnected);
    f.owned.reset();
    QCOMPARE(f.closed.count(), 1);
    QTRY_COMPARE(peerClosed.count(), 1);
}

void tst_HydCommandAdapter::destructorLetsAnAcceptedCommandLeave()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.adapter.sendCommand(std::make_shared<HydResetCmd>()));
    f.owned.reset();
    QCOMPARE(f.closed.count(), 1);
    QTRY_COMPARE(f.peer.received(), frameOf(HydResetCmd()));
}

void tst_HydCommandAdapter::opensAgainAfterClosing()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    for (int round = 2; round < 5; ++round) {
        f.adapter.closeConnection();
        QTRY_COMPARE(f.closed.count(), round - 1);
        f.adapter.openConnection();
        QTRY_COMPARE(f.opened.count(), round);
        QTRY_COMPARE(f.peer.connections(), round);
        QVERIFY(f.deliver(enquireReply(uint16_t(round))));
        QCOMPARE(f.letters.size(), round - 1);
    }
}

void tst_HydCommandAdapter::connectedOnlyToTheStoredAddress()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setIpAddr(NvxIpAddr(0x7F150002));
    QVERIFY(!f.adapter.isConnected());
    f.adapter.setIpAddr(f.peer.ipAddr());
    QVERIFY(f.adapter.isConnected());
}

void tst_HydCommandAdapter::refusedConnection()
{
    AdapterFixture f(kAddress);
    f.adapter.openConnection();
    QTRY_COMPARE(f.errors.count(), 1);
    QCOMPARE(f.errorList().front(),
             std::pair(int(ErrNotConnected), int(QAbstractSocket::ConnectionRefusedError)));
    QVERIFY(!f.adapter.isConnected());
    QCOMPARE(f.opened.count(), 0);
    QCOMPARE(f.closed.count(), 0);

    QVERIFY(f.open());
    QVERIFY(f.deliver(enquireReply(1)));
    QCOMPARE(f.letters, QByteArray("E"));
}

void tst_HydCommandAdapter::noAddress_data()
{
    QTest::addColumn<bool>("isSet");
    QTest::newRow("never set") << false;
    QTest::newRow("set to none") << true;
}

void tst_HydCommandAdapter::noAddress()
{
    QFETCH(bool, isSet);
    HydCommandAdapter adapter(ConnTcp);
    if (isSet) {
        adapter.setIpAddr(NvxIpAddr(0x7F150001));
        adapter.setIpAddr(NvxIpAddr(0));
    }
    QCOMPARE(adapter.ipAddr().toInt(), 0u);
    QSignalSpy errors(&adapter, &HydCommandAdapter::error);
    adapter.openConnection();
    QTRY_COMPARE(errors.count(), 1);
    QCOMPARE(errors[0][0].value<HydControlError>(), ErrNotConnected);
    QCOMPARE(errors[0][1].toInt(), int(QAbstractSocket::HostNotFoundError));
    QVERIFY(!adapter.isChannelOpen());
}

void tst_HydCommandAdapter::peerCloses()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.peer.close();
    QTRY_COMPARE(f.closed.count(), 1);
    QCOMPARE(f.errorList(),
             (std::vector{std::pair(int(ErrNotConnected), int(QAbstractSocket::RemoteHostClosedError))}));
    QVERIFY(!f.adapter.isConnected());
    f.adapter.openConnection();
    QTRY_COMPARE(f.opened.count(), 2);
}

void tst_HydCommandAdapter::peerResets()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.peer.reset();
    QTRY_COMPARE(f.closed.count(), 1);
    QCOMPARE(f.errorCount(ErrNotConnected), 1);
    QVERIFY(!f.adapter.isConnected());
    f.adapter.openConnection();
    QTRY_COMPARE(f.opened.count(), 2);
}

void tst_HydCommandAdapter::peerClosesInTheMiddleOfAFrame()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.peer.send(timeReply(1) + enquireReply(9).first(30));
    QTRY_COMPARE(f.letters, QByteArray("A"));
    f.peer.reset();
    QTRY_COMPARE(f.closed.count(), 1);

    f.adapter.openConnection();
    QTRY_COMPARE(f.peer.connections(), 2);
    f.peer.send(enquireReply(10));
    QTRY_COMPARE(f.letters, QByteArray("AE"));
    const auto reply = std::dynamic_pointer_cast<const HydEnquireCmd>(f.responses.back());
    QCOMPARE(reply->report().serial, uint16_t(10));
}

void tst_HydCommandAdapter::typeChangeWhileConnectedIsLogged()
{
    const auto line =
        QStringLiteral("Warning HydCommandAdapter::setConnType called to changethe connection type while "
                       "already connected. This can haveundefined consequences!");
    AdapterFixture f(kAddress);
    LogSpy log;
    f.adapter.setConnType(ConnSerial);
    f.adapter.setConnType(ConnTcp);
    QVERIFY(!log.contains(line));
    QVERIFY(f.open());
    f.adapter.setConnType(ConnSerial);
    QCOMPARE(log.count(line), 1);
    QCOMPARE(f.adapter.connType(), ConnSerial);
    QVERIFY(!f.adapter.isConnected());
}

void tst_HydCommandAdapter::unknownTypeDoesNothing()
{
    AdapterFixture f(kAddress, HydConnectionType(2));
    QVERIFY(f.peer.listen());
    f.adapter.openConnection();
    QVERIFY(!f.adapter.isConnected());
    QVERIFY(!f.adapter.sendCommand(std::make_shared<HydEnquireCmd>()));
    f.adapter.closeConnection();

    // A connection made later is the first that the peer sees.
    f.adapter.setConnType(ConnTcp);
    f.adapter.openConnection();
    QTRY_COMPARE(f.opened.count(), 1);
    QTRY_COMPARE(f.peer.connections(), 1);
    QVERIFY(f.errors.isEmpty());
    QVERIFY(f.closed.isEmpty());
}

void tst_HydCommandAdapter::closingWhileUnconnectedIsSilent()
{
    AdapterFixture f(kAddress);
    f.adapter.closeConnection();
    QVERIFY(f.open());
    QCOMPARE(f.closed.count(), 0);
    QVERIFY(f.errors.isEmpty());
}

void tst_HydCommandAdapter::destroyedWithMoreToSendThanThePeerTakes()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    // The peer reads nothing while this loop runs, so that the system's buffers are full at the end.
    const auto command = std::make_shared<HydJobSetupCmd>(
        JobTagMap{
            {JobTagKey(0x4000), std::make_shared<HydRawTag>(JobTagKey(0x4000), std::vector<uint8_t>(1000))}},
        JobSetupDefault);
    for (int i = 0; i < 12000; ++i)
        QVERIFY(f.adapter.sendCommand(command));
    f.socket->flush();
    QVERIFY(f.socket->bytesToWrite() > 0);
    f.owned.reset();
    QCOMPARE(f.closed.count(), 1);
    QCOMPARE(f.errors.count(), 0);
}

void tst_HydCommandAdapter::destroyedWhileConnecting()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.peer.listen());
    f.adapter.openConnection();
    QCOMPARE(f.socket->state(), QAbstractSocket::ConnectingState);
    f.owned.reset();
    QCOMPARE(f.opened.count(), 0);
    QCOMPARE(f.closed.count(), 0);
    QCOMPARE(f.errors.count(), 0);
}

void tst_HydCommandAdapter::disconnectIsLoggedBySlot()
{
    AdapterFixture f(kAddress);
    LogSpy log;
    f.adapter.handleSocketDisconnect();
    QVERIFY(log.contains(QStringLiteral("The CNC channel is disconnected for 127.21.0.1")));
}

void tst_HydCommandAdapter::deletedLaterByItsReceiver()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QObject::connect(f.owned.get(), &HydCommandAdapter::commandResponse, f.owned.get(),
                     [&f] { f.owned.release()->deleteLater(); });
    QSignalSpy destroyed(f.owned.get(), &QObject::destroyed);
    f.peer.send(timeReply(1));
    QTRY_COMPARE(destroyed.count(), 1);
    QCOMPARE(f.letters, QByteArray("A"));
    QCOMPARE(f.closed.count(), 1);
}

QTEST_GUILESS_MAIN(tst_HydCommandAdapter)
#include "tst_HydCommandAdapter.moc"
