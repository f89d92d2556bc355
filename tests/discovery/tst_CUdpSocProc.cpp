#include "NvxQtCommon/discovery/CUdpSocProc.h"
#include "tests/support/NvxTestCase.h"

#include <QPointer>
#include <QSignalSpy>

namespace {

const QHostAddress kOwnAddress(QStringLiteral("127.62.2.1"));

} // namespace

class tst_CUdpSocProc : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void timerRunsFromTheStart();
    void startTimerStartsAStoppedTimer();
    void startTimerLeavesARunningTimerAlone();
    void receivesDatagrams();
    // --- rainy day flows
    void timerEndsTheSocket();
    void unboundSocketEndsToo();
    void disconnectEndsTheSocket();
    void errorEndsTheSocket();
    void parentTakesTheSocketAlong();
};

void tst_CUdpSocProc::timerRunsFromTheStart()
{
    CUdpSocProc socket;
    QVERIFY(socket.timer()->isActive());
    QCOMPARE(socket.timer()->interval(), 10000);
}

void tst_CUdpSocProc::startTimerStartsAStoppedTimer()
{
    CUdpSocProc socket;
    socket.timer()->stop();
    socket.timer()->setInterval(1234);
    socket.StartTimer();
    QVERIFY(socket.timer()->isActive());
    QCOMPARE(socket.timer()->interval(), 1234);
}

void tst_CUdpSocProc::startTimerLeavesARunningTimerAlone()
{
    CUdpSocProc socket;
    // Coarse timers of nearly the same start end together.
    socket.timer()->setTimerType(Qt::PreciseTimer);
    socket.timer()->start();
    QTRY_VERIFY(socket.timer()->remainingTime() < 9990);
    const int before = socket.timer()->remainingTime();
    socket.StartTimer();
    QVERIFY(socket.timer()->remainingTime() <= before);
}

void tst_CUdpSocProc::receivesDatagrams()
{
    CUdpSocProc socket;
    QVERIFY(socket.bind(kOwnAddress, 0));
    QSignalSpy readyRead(&socket, &QUdpSocket::readyRead);
    QUdpSocket peer;
    QCOMPARE(peer.writeDatagram("abc", kOwnAddress, socket.localPort()), 3);
    QTRY_COMPARE(readyRead.size(), 1);
    QCOMPARE(socket.pendingDatagramSize(), 3);
}

void tst_CUdpSocProc::timerEndsTheSocket()
{
    QPointer<CUdpSocProc> socket = new CUdpSocProc;
    QVERIFY(socket->bind(kOwnAddress, 0));
    socket->timer()->start(1);
    QTRY_VERIFY(socket.isNull());
}

void tst_CUdpSocProc::unboundSocketEndsToo()
{
    QPointer<CUdpSocProc> socket = new CUdpSocProc;
    // An address of no local interface, from the block for documentation: nothing can be bound to it.
    QVERIFY(!socket->bind(QHostAddress(QStringLiteral("192.0.2.1")), 0));
    QVERIFY(socket->timer()->isActive());
    socket->timer()->start(1);
    QTRY_VERIFY(socket.isNull());
}

void tst_CUdpSocProc::disconnectEndsTheSocket()
{
    QPointer<CUdpSocProc> socket = new CUdpSocProc;
    socket->connectToHost(kOwnAddress, 9);
    QTRY_COMPARE(socket->state(), QAbstractSocket::ConnectedState);
    socket->disconnectFromHost();
    QTRY_VERIFY(socket.isNull());
}

void tst_CUdpSocProc::errorEndsTheSocket()
{
    QPointer<CUdpSocProc> socket = new CUdpSocProc;
    QVERIFY(socket->bind(kOwnAddress, 0));
    // One byte more than IPv4 carries.
    QCOMPARE(socket->writeDatagram(QByteArray(65508, 'x'), kOwnAddress, 9), -1);
    QTRY_VERIFY(socket.isNull());
}

void tst_CUdpSocProc::parentTakesTheSocketAlong()
{
    auto parent = std::make_unique<QObject>();
    QPointer<CUdpSocProc> socket = new CUdpSocProc(parent.get());
    QVERIFY(socket->bind(kOwnAddress, 0));
    parent.reset();
    QVERIFY(socket.isNull());
}

QTEST_GUILESS_MAIN(tst_CUdpSocProc)
#include "tst_CUdpSocProc.moc"
