#include "NvxQtCommon/control/NvxPingHelper.h"
#include "NvxQtCommon/platform/IcmpEcho.h"
#include "tests/platform/windows/WindowsCalls.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include <algorithm>

/// The source for Windows against played system calls. What only a real Windows shows, its linking and its
/// network, isn't tested here.
class tst_IcmpEchoWindows : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    // --- happy flows
    void whatIsAsked();
    void aHandleForEachCall();
    void report_data();
    void report();
    // --- rainy day flows
    void failure_data();
    void failure();
    void replierWithoutText();
};

void tst_IcmpEchoWindows::init()
{
    failOnUnexpectedWarnings();
    windowsCalls = WindowsCalls();
}

void tst_IcmpEchoWindows::whatIsAsked()
{
    QCOMPARE(NvxPingHelper::pingHost(NvxIpAddr("10.77.3.200"), 1234), PingOk);
    std::vector<uint8_t> data(32);
    std::ranges::copy(std::string("Data Buffer"), data.begin());
    QVERIFY(windowsCalls.m_data == data);
    QCOMPARE(windowsCalls.m_handle, WindowsCalls::kHandle);
    QCOMPARE(windowsCalls.m_destination, 0x0A4D03C8U);
    QVERIFY(!windowsCalls.m_hasOptions);
    QCOMPARE(windowsCalls.m_replySize, 72U);
    QCOMPARE(windowsCalls.m_timeoutMs, 1234U);
    QCOMPARE(windowsCalls.m_echoes, 1);
}

void tst_IcmpEchoWindows::aHandleForEachCall()
{
    for (int call = 1; call <= 3; ++call) {
        NvxPingHelper::pingHost(NvxIpAddr("10.77.3.200"), 50);
        QCOMPARE(windowsCalls.m_handlesMade, call);
    }
}

void tst_IcmpEchoWindows::report_data()
{
    QTest::addColumn<uint>("count");
    QTest::addColumn<QString>("line");
    QTest::newRow("one") << 1U << "Received 1 icmp message response \n";
    QTest::newRow("two") << 2U << "Received 2 icmp message responses \n";
}

void tst_IcmpEchoWindows::report()
{
    QFETCH(uint, count);
    QFETCH(QString, line);
    windowsCalls.m_replyCount = count;
    windowsCalls.m_replier = 0x0A4D0301;
    windowsCalls.m_status = 11003;
    windowsCalls.m_roundTripMs = 17;
    const LogSpy log;
    // Intended: any status of a reply is fine.
    QCOMPARE(NvxPingHelper::pingHost(NvxIpAddr("10.77.3.200"), 50), PingOk);
    QCOMPARE(log.lines(), QStringList{QStringLiteral("Sent icmp message to 10.77.3.200\n") + line +
                                      QStringLiteral("Information from the first response: "
                                                     "Received from 10.77.3.1\n"
                                                     "Status = 11003Roundtrip time = 17 milliseconds \n")});
}

void tst_IcmpEchoWindows::failure_data()
{
    QTest::addColumn<uint>("error");
    QTest::newRow("timed out") << 11010U;
    QTest::newRow("invalid handle") << 6U;
}

void tst_IcmpEchoWindows::failure()
{
    QFETCH(uint, error);
    windowsCalls.m_replyCount = 0;
    windowsCalls.m_error = error;
    const LogSpy log;
    QCOMPARE(NvxPingHelper::pingHost(NvxIpAddr("10.77.3.200"), 50), PingFailed);
    QCOMPARE(log.lines(), QStringList{QStringLiteral("Call to IcmpSendEcho failed.\n"
                                                     "IcmpSendEcho returned error: %1")
                                          .arg(error)});
}

void tst_IcmpEchoWindows::replierWithoutText()
{
    windowsCalls.m_hasAddressText = false;
    const EchoResult result = sendEcho("10.77.3.200", {}, 50);
    QCOMPARE(result.replyCount, 1U);
    QCOMPARE(result.replier, std::string());
}

QTEST_GUILESS_MAIN(tst_IcmpEchoWindows)
#include "tst_IcmpEchoWindows.moc"
