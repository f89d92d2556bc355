#include "NvxQtCommon/control/NvxPingHelper.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"

#include <QCoreApplication>
#include <QMetaMethod>
#include <QProcess>
#include <QSignalSpy>

#include <cerrno>

namespace {

/// Of the system's ping, one echo: true when it says that somebody answered.
bool systemPing(const QString& address)
{
    QProcess ping;
    ping.start(QStringLiteral("ping"),
               {QStringLiteral("-n"), QStringLiteral("-c1"), QStringLiteral("-W1"), address});
    if (!ping.waitForFinished(kPatienceMs) || ping.exitStatus() != QProcess::NormalExit)
        qFatal("the system's ping doesn't run: %s", qPrintable(ping.errorString()));
    return ping.exitCode() == 0;
}

bool run(const char* line)
{
    return std::system((std::string(line) + " >/dev/null 2>&1").c_str()) == 0;
}

} // namespace

/// In a network namespace of its own: a link without a peer, 10.77.0.1/24, and the local addresses.
class tst_NvxPingHelper : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    // --- happy flows
    void agreesWithTheSystemsPing_data();
    void agreesWithTheSystemsPing();
    void reportOfAReply();
    void declaredAndNeverEmitted();
    // --- rainy day flows
    void reportOfAFailure_data();
    void reportOfAFailure();

private:
    bool m_hasLink = false;
};

void tst_NvxPingHelper::initTestCase()
{
    if (!isInOwnNetwork())
        QSKIP("neither \"unshare -n\" nor \"unshare -rn\" makes a network namespace here");
    m_hasLink = run("ip link add nvx0 type veth peer name nvx1") &&
                run("ip addr add 10.77.0.1/24 dev nvx0") && run("ip link set nvx0 up") &&
                run("ip link set nvx1 up");
}

void tst_NvxPingHelper::agreesWithTheSystemsPing_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<bool>("answers");
    QTest::addColumn<bool>("isOnTheLink");
    QTest::newRow("localhost") << "127.0.0.1" << true << false;
    QTest::newRow("another local address") << "127.62.24.1" << true << false;
    QTest::newRow("own address on the link") << "10.77.0.1" << true << true;
    QTest::newRow("no host") << "10.77.0.9" << false << true;
    QTest::newRow("no route") << "192.0.2.1" << false << false;
}

void tst_NvxPingHelper::agreesWithTheSystemsPing()
{
    QFETCH(QString, address);
    QFETCH(bool, answers);
    QFETCH(bool, isOnTheLink);
    if (isOnTheLink && !m_hasLink)
        QSKIP("no veth pair here");
    QCOMPARE(systemPing(address), answers);
    const unsigned timeoutMs = answers ? kPatienceMs : 1000;
    QCOMPARE(NvxPingHelper::pingHost(NvxIpAddr(address.toStdString()), timeoutMs),
             answers ? PingOk : PingFailed);
}

void tst_NvxPingHelper::reportOfAReply()
{
    const LogSpy log;
    QCOMPARE(NvxPingHelper::pingHost(NvxIpAddr("127.62.24.1"), kPatienceMs), PingOk);
    QCOMPARE(log.lines().size(), 1);
    // Intended: these line breaks and no others.
    const QRegularExpression report(
        QStringLiteral("\\ASent icmp message to 127\\.62\\.24\\.1\n"
                       "Received 1 icmp message response \n"
                       "Information from the first response: Received from 127\\.62\\.24\\.1\n"
                       "Status = 0Roundtrip time = \\d+ milliseconds \n\\z"));
    QVERIFY2(report.match(log.lines()[0]).hasMatch(), qPrintable(log.lines()[0]));
}

void tst_NvxPingHelper::declaredAndNeverEmitted()
{
    NvxPingHelper helper;
    QSignalSpy spy(&helper, &NvxPingHelper::pingResult);
    QVERIFY(QMetaObject::invokeMethod(&helper, "handlePingFinished"));
    QCOMPARE(spy.size(), 0);
}

void tst_NvxPingHelper::reportOfAFailure_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<int>("error");
    QTest::newRow("no route") << "192.0.2.1" << ENETUNREACH;
    // The system would answer itself.
    QTest::newRow("no address") << "0.0.0.0" << EDESTADDRREQ;
    QTest::newRow("everybody") << "255.255.255.255" << ENETUNREACH;
}

void tst_NvxPingHelper::reportOfAFailure()
{
    QFETCH(QString, address);
    QFETCH(int, error);
    const LogSpy log;
    QCOMPARE(NvxPingHelper::pingHost(NvxIpAddr(address.toStdString()), kPatienceMs), PingFailed);
    QCOMPARE(log.lines(), QStringList{QStringLiteral("Call to IcmpSendEcho failed.\n"
                                                     "IcmpSendEcho returned error: %1")
                                          .arg(error)});
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    tst_NvxPingHelper test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_NvxPingHelper.moc"
