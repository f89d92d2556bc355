#include "AdapterFixture.h"
#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"

#include <functional>

namespace {

const QString kAddress = QStringLiteral("127.21.1.1");

using Payload = std::shared_ptr<HydControlMsgPayload>;

Payload enquire()
{
    return std::make_shared<HydEnquireCmd>();
}
Payload setTime()
{
    return std::make_shared<HydSetTimeCmd>(1);
}

/// A job setup command whose frame has `size` bytes.
Payload setupOfFrameSize(size_t size)
{
    const auto empty = HydControlMessage::frame(HydJobSetupCmd(
        {{JobTagKey(0x4000), std::make_shared<HydRawTag>(JobTagKey(0x4000))}}, JobSetupDefault));
    return std::make_shared<HydJobSetupCmd>(
        JobTagMap{{JobTagKey(0x4000), std::make_shared<HydRawTag>(
                                          JobTagKey(0x4000), std::vector<uint8_t>(size - empty.size()))}},
        JobSetupDefault);
}

} // namespace

/// Sending, and the counts after which the channel is opened again. TCP.
class tst_HydCommandAdapterSend : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void sendsTheFrame_data();
    void sendsTheFrame();
    void sendsInOrder();
    void seventhSendOpensAgain();
    void openingAgainClearsWhatWasReceived();
    void setTimeOnAWorkingConnectionResetsTheCount();
    // --- rainy day flows
    void tooLongIsNotSent();
    void nothingIsNotSent();
    void sendWithoutConnectionIsAnError();
    void connectingIsNeitherAnErrorNorCounted();
    void openingAgainDoesNotResetTheCount();
    void otherCommandsDoNotResetTheCount();
    void knownPeerCountsSetTimeOnly();
    void peerThatNeverReadsIsGivenUp();
    void writeInAnotherStateIsAnError();
    void writeToAClosingSocketNamesTheAddress();
    void connectedToAnotherAddressIsNotCounted();
};

void tst_HydCommandAdapterSend::sendsTheFrame_data()
{
    QTest::addColumn<Payload>("payload");
    QTest::newRow("enquire") << enquire();
    QTest::newRow("set time") << Payload(std::make_shared<HydSetTimeCmd>(1700000000));
    QTest::newRow("data collect") << Payload(std::make_shared<HydDataCollectCmd>(uint8_t(0x30)));
    QTest::newRow("reset") << Payload(std::make_shared<HydResetCmd>());
    QTest::newRow("letter alone") << Payload(std::make_shared<HydMsgPayload>('V'));
    QTest::newRow("job setup") << Payload(std::make_shared<HydJobSetupCmd>(
        JobTagMap{{JobTagWavRate, std::make_shared<HydWavSampleRateTag>(64000u)}}, JobSetupDefault));
    QTest::newRow("the longest") << setupOfFrameSize(1024);
}

void tst_HydCommandAdapterSend::sendsTheFrame()
{
    QFETCH(Payload, payload);
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QVERIFY(f.adapter.sendCommand(payload));
    QTRY_COMPARE(f.peer.received(), frameOf(*payload));
    QVERIFY(f.errors.isEmpty());
}

void tst_HydCommandAdapterSend::sendsInOrder()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    QByteArray expected;
    for (int i = 0; i < 200; ++i) {
        const auto command = std::make_shared<HydSetTimeCmd>(i);
        expected += frameOf(*command);
        QVERIFY(f.adapter.sendCommand(command));
    }
    QTRY_COMPARE(f.peer.received(), expected);
}

void tst_HydCommandAdapterSend::seventhSendOpensAgain()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.peer.listen());
    LogSpy log;
    qsizetype linesAtTheSignal = -1;
    connect(&f.adapter, &HydCommandAdapter::error, this, [&] { linesAtTheSignal = log.lines().size(); });
    for (int i = 1; i <= 6; ++i) {
        QVERIFY(!f.adapter.sendCommand(enquire()));
        QCOMPARE(f.errorCount(ErrNotConnected), i);
        QCOMPARE(f.errorCount(ErrConnectionLost), 0);
        QCOMPARE(f.socket->state(), QAbstractSocket::UnconnectedState);
    }
    QVERIFY(!f.adapter.sendCommand(enquire()));
    const auto unknown = int(QAbstractSocket::UnknownSocketError);
    QCOMPARE(f.errorList().back(), std::pair(int(ErrConnectionLost), unknown));
    QCOMPARE(f.errorList()[6], std::pair(int(ErrNotConnected), unknown));
    // The signal first, then its line.
    QCOMPARE(log.lines().indexOf(QStringLiteral("The socket is not connected, will be closed: 127.21.1.1 "
                                                "QAbstractSocket::UnknownSocketError")),
             linesAtTheSignal);
    QTRY_COMPARE(f.opened.count(), 1);
    QVERIFY(f.adapter.sendCommand(enquire()));
    QTRY_COMPARE(f.peer.letters(), QByteArray("E"));
}

void tst_HydCommandAdapterSend::openingAgainClearsWhatWasReceived()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    const auto reply = enquireReply(3);
    QVERIFY(f.deliver(reply.first(20)));
    f.peer.close();
    QTRY_COMPARE(f.closed.count(), 1);
    for (int i = 0; i < 7; ++i)
        QVERIFY(!f.adapter.sendCommand(enquire()));
    QTRY_COMPARE(f.peer.connections(), 2);
    QTRY_VERIFY(f.adapter.isConnected());
    QVERIFY(f.deliver(reply.sliced(20) + timeReply(1)));
    QCOMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapterSend::setTimeOnAWorkingConnectionResetsTheCount()
{
    AdapterFixture f(kAddress);
    for (int i = 0; i < 6; ++i)
        f.adapter.sendCommand(enquire());
    QVERIFY(f.open());
    QVERIFY(f.adapter.sendCommand(setTime()));
    QTRY_COMPARE(f.peer.count('A'), 1);
    f.peer.close();
    QTRY_COMPARE(f.closed.count(), 1);
    for (int i = 0; i < 6; ++i)
        f.adapter.sendCommand(enquire());
    QCOMPARE(f.errorCount(ErrConnectionLost), 0);
    f.adapter.sendCommand(enquire());
    QCOMPARE(f.errorCount(ErrConnectionLost), 1);
}

void tst_HydCommandAdapterSend::tooLongIsNotSent()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    LogSpy log;
    QVERIFY(!f.adapter.sendCommand(setupOfFrameSize(1025)));
    QVERIFY(!f.adapter.sendCommand(setupOfFrameSize(70000)));
    QCOMPARE(log.count(QStringLiteral("A command of letter D exceeds 1024 bytes and is not sent.")), 2);
    QVERIFY(f.errors.isEmpty());
    QVERIFY(f.adapter.sendCommand(enquire()));
    QTRY_COMPARE(f.peer.received(), frameOf(*enquire()));
}

void tst_HydCommandAdapterSend::nothingIsNotSent()
{
    AdapterFixture f(kAddress);
    LogSpy log;
    QVERIFY(!f.adapter.sendCommand(nullptr));
    QVERIFY(f.open());
    QVERIFY(!f.adapter.sendCommand(nullptr));
    QCOMPARE(log.count(QStringLiteral("A command without a payload is not sent.")), 2);
    QVERIFY(f.errors.isEmpty());
}

void tst_HydCommandAdapterSend::sendWithoutConnectionIsAnError()
{
    AdapterFixture f(kAddress);
    f.adapter.openConnection();
    QTRY_COMPARE(f.errors.count(), 1);
    QVERIFY(!f.adapter.sendCommand(enquire()));
    // The error of the socket travels along.
    QCOMPARE(f.errorList().back(),
             std::pair(int(ErrNotConnected), int(QAbstractSocket::ConnectionRefusedError)));
    QCOMPARE(f.errors.count(), 2);
}

void tst_HydCommandAdapterSend::connectingIsNeitherAnErrorNorCounted()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.peer.listen());
    f.adapter.openConnection();
    QCOMPARE(f.socket->state(), QAbstractSocket::ConnectingState);
    for (int i = 0; i < 40; ++i)
        QVERIFY(!f.adapter.sendCommand(i % 2 == 0 ? enquire() : setTime()));
    QVERIFY(f.errors.isEmpty());
    QTRY_COMPARE(f.opened.count(), 1);

    QTRY_VERIFY(f.peer.isConnected());
    f.peer.close();
    QTRY_COMPARE(f.closed.count(), 1);
    f.adapter.sendCommand(enquire());
    QCOMPARE(f.errorCount(ErrConnectionLost), 0);
}

void tst_HydCommandAdapterSend::openingAgainDoesNotResetTheCount()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.peer.listen());
    for (int i = 0; i < 7; ++i)
        f.adapter.sendCommand(enquire());
    QTRY_VERIFY(f.peer.isConnected());
    f.peer.close();
    QTRY_COMPARE(f.closed.count(), 1);
    QCOMPARE(f.errorCount(ErrConnectionLost), 1);
    f.adapter.sendCommand(enquire());
    QCOMPARE(f.errorCount(ErrConnectionLost), 2);
    QTRY_COMPARE(f.opened.count(), 2);
}

void tst_HydCommandAdapterSend::otherCommandsDoNotResetTheCount()
{
    AdapterFixture f(kAddress);
    for (int i = 0; i < 6; ++i)
        f.adapter.sendCommand(enquire());
    QVERIFY(f.open());
    QVERIFY(f.adapter.sendCommand(enquire()));
    QTRY_COMPARE(f.peer.count('E'), 1);
    f.peer.close();
    QTRY_COMPARE(f.closed.count(), 1);
    f.adapter.sendCommand(enquire());
    QCOMPARE(f.errorCount(ErrConnectionLost), 1);
}

void tst_HydCommandAdapterSend::knownPeerCountsSetTimeOnly()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    // A socket that closes with bytes still to be written knows its peer and is not connected.
    QVERIFY(f.adapter.sendCommand(enquire()));
    f.adapter.closeConnection();
    QCOMPARE(f.socket->state(), QAbstractSocket::ClosingState);
    QVERIFY(!f.socket->peerAddress().isNull());
    // Opening takes an unconnected socket only: what was accepted still leaves.
    f.adapter.openConnection();
    f.adapter.openIpConnection(kAddress);
    QCOMPARE(f.socket->state(), QAbstractSocket::ClosingState);

    for (int i = 0; i < 40; ++i)
        QVERIFY(!f.adapter.sendCommand(enquire()));
    QCOMPARE(f.errorCount(ErrNotConnected), 40);
    QCOMPARE(f.errorCount(ErrConnectionLost), 0);
    for (int i = 0; i < 16; ++i)
        QVERIFY(!f.adapter.sendCommand(setTime()));
    QCOMPARE(f.errorCount(ErrConnectionLost), 0);
    QVERIFY(!f.adapter.sendCommand(setTime()));
    QCOMPARE(f.errorCount(ErrConnectionLost), 1);
    QCOMPARE(f.errorCount(ErrNotConnected), 57);
    QTRY_COMPARE(f.closed.count(), 1);
}

void tst_HydCommandAdapterSend::peerThatNeverReadsIsGivenUp()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.peer.stopReading();
    // More than the system's buffers take.
    const auto command = setupOfFrameSize(1024);
    for (int i = 0; i < 12000; ++i)
        QVERIFY(f.adapter.sendCommand(command));
    f.socket->flush();
    QVERIFY(f.socket->bytesToWrite() > 0);
    const auto reply = enquireReply(3);
    QVERIFY(f.deliver(reply.first(20)));

    f.adapter.closeConnection();
    QCOMPARE(f.socket->state(), QAbstractSocket::ClosingState);
    for (int i = 0; i < 16; ++i)
        QVERIFY(!f.adapter.sendCommand(setTime()));
    QCOMPARE(f.errorCount(ErrConnectionLost), 0);
    QCOMPARE(f.closed.count(), 0);
    QVERIFY(!f.adapter.sendCommand(setTime()));
    QCOMPARE(f.errorCount(ErrConnectionLost), 1);
    QCOMPARE(f.closed.count(), 1);
    QTRY_COMPARE(f.opened.count(), 2);
    QTRY_COMPARE(f.peer.connections(), 2);
    // Nothing of the old connection is left on either side.
    f.peer.forget();
    QVERIFY(f.adapter.sendCommand(enquire()));
    QTRY_COMPARE(f.peer.received(), frameOf(*enquire()));
    QVERIFY(f.deliver(reply.sliced(20) + timeReply(1)));
    QCOMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapterSend::writeInAnotherStateIsAnError()
{
    // Without an address the unknown peer equals the stored one while the host is looked up.
    HydCommandAdapter adapter(ConnTcp);
    QSignalSpy errors(&adapter, &HydCommandAdapter::error);
    LogSpy log;
    qsizetype linesAtTheSignal = -1;
    connect(&adapter, &HydCommandAdapter::error, this, [&] { linesAtTheSignal = log.lines().size(); });
    adapter.openConnection();
    QVERIFY(adapter.isConnected());
    QVERIFY(!adapter.isChannelOpen());
    QVERIFY(!adapter.sendCommand(enquire()));
    QCOMPARE(errors.count(), 1);
    QCOMPARE(errors[0][0].value<HydControlError>(), ErrSocketWrite);
    QCOMPARE(log.lines(), QStringList{QStringLiteral("Socket is not open: m_socket.error(): "
                                                     "QAbstractSocket::UnknownSocketError m_socket.state(): "
                                                     "QAbstractSocket::HostLookupState  sendCommand")});
    QCOMPARE(linesAtTheSignal, 0);
}

void tst_HydCommandAdapterSend::writeToAClosingSocketNamesTheAddress()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.peer.stopReading();
    // More than the system takes for a peer that doesn't read: the socket can't close yet.
    f.socket->write(QByteArray(32 << 20, 'x'));
    f.socket->disconnectFromHost();
    QCOMPARE(f.socket->state(), QAbstractSocket::ClosingState);
    LogSpy log;
    QVERIFY(!f.adapter.sendCommand(enquire()));
    QCOMPARE(f.errorCount(ErrSocketWrite), 1);
    QCOMPARE(log.lines(), QStringList{QStringLiteral("Socket is not open: m_socket.error(): "
                                                     "QAbstractSocket::UnknownSocketError m_socket.state(): "
                                                     "QAbstractSocket::ClosingState %1 sendCommand")
                                          .arg(kAddress)});
    f.socket->abort();
}

void tst_HydCommandAdapterSend::connectedToAnotherAddressIsNotCounted()
{
    AdapterFixture f(kAddress);
    QVERIFY(f.open());
    f.adapter.setIpAddr(NvxIpAddr(0x7F150102));
    for (int i = 0; i < 30; ++i)
        QVERIFY(!f.adapter.sendCommand(setTime()));
    QCOMPARE(f.errorCount(ErrNotConnected), 30);
    QCOMPARE(f.errorCount(ErrConnectionLost), 0);
    f.adapter.setIpAddr(f.peer.ipAddr());
    QVERIFY(f.adapter.sendCommand(enquire()));
    QTRY_COMPARE(f.peer.letters(), QByteArray("E"));
}

QTEST_GUILESS_MAIN(tst_HydCommandAdapterSend)
#include "tst_HydCommandAdapterSend.moc"
