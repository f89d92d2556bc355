#include "NvxQtCommon/control/NvxPingHelper.h"
#include "NvxQtCommon/platform/IcmpEcho.h"
#include "tests/platform/EchoPeer.h"
#include "tests/support/EchoNetwork.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>

#include <atomic>
#include <cerrno>
#include <optional>
#include <thread>

namespace {

const QString kPeer = QStringLiteral("127.62.24.1");
const QString kOtherPeer = QStringLiteral("127.62.24.2");
const std::vector<uint8_t> kData{'D', 'a', 't', 'a', 0, 0, 0, 0};
constexpr unsigned kShortMs = 60;

using Bytes = EchoPeer::Bytes;
using Packets = std::vector<Bytes>;

EchoResult echoTo(const QString& address, unsigned timeoutMs, std::span<const uint8_t> data = kData)
{
    return sendEcho(address.toStdString(), data, timeoutMs);
}

qsizetype openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::System).size();
}

enum Socket { DatagramSocket, RawSocket, NoSocket };

/// Lets the calling thread have the one kind of socket and no other.
class OnlySocket
{
public:
    explicit OnlySocket(Socket kind)
    {
        if (kind != RawSocket)
            m_noRawSockets.emplace();
        // A namespace of an ordinary user knows one group alone, and can't take it out of the range again.
        if (!writeIpv4Setting("ping_group_range", kind == DatagramSocket ? "0 2147483647" : "1 0"))
            writeIpv4Setting("ping_group_range", "0 0");
        m_isDone =
            mayHave(SOCK_DGRAM) == (kind == DatagramSocket) && mayHave(SOCK_RAW) == (kind == RawSocket);
    }
    bool isDone() const { return m_isDone; }

private:
    static bool mayHave(int type)
    {
        const int descriptor = socket(AF_INET, type | SOCK_CLOEXEC, IPPROTO_ICMP);
        if (descriptor >= 0)
            close(descriptor);
        return descriptor >= 0;
    }

    std::optional<NoRawSockets> m_noRawSockets;
    bool m_isDone = false;
};

#define REQUIRE_SOCKET(only)                                                                                 \
    if (!(only).isDone())                                                                                    \
    QSKIP("the network namespace of an ordinary user doesn't tell the kinds of sockets apart")

struct Reply
{
    const char* name;
    EchoPeer::Answer answer;
    bool isReply;
};

Bytes changed(Bytes packet, size_t at)
{
    packet[at] = static_cast<uint8_t>(packet[at] ^ 0x5A);
    return packet;
}
Bytes resized(Bytes packet, int by)
{
    packet.resize(size_t(int(packet.size()) + by));
    return packet;
}
Bytes hostUnreachable(const Bytes& request)
{
    // Of the IP header that belongs in there, its length and protocol and the addresses.
    Bytes packet{3, 1, 0, 0,   0, 0, 0, 0,   0x45, 0,  0, uint8_t(20 + request.size()), 0, 0, 0, 0, 64,
                 1, 0, 0, 127, 0, 0, 1, 127, 62,   24, 1};
    packet.insert(packet.end(), request.begin(), request.end());
    return packet;
}

std::vector<Reply> replies()
{
    const auto good = [](const Bytes& request) { return EchoPeer::replyTo(request); };
    return {
        {"as it is", [=](const Bytes& r) { return Packets{good(r)}; }, true},
        {"wrong ones first",
         [=](const Bytes& r) {
             return Packets{changed(good(r), 7), resized(good(r), 1), good(r)};
         },
         true},
        {"twice",
         [=](const Bytes& r) {
             return Packets{good(r), good(r)};
         },
         true},
        {"none", [](const Bytes&) { return Packets(); }, false},
        {"other identifier", [=](const Bytes& r) { return Packets{changed(good(r), 4)}; }, false},
        {"other sequence", [=](const Bytes& r) { return Packets{changed(good(r), 7)}; }, false},
        {"other data", [=](const Bytes& r) { return Packets{changed(good(r), 8)}; }, false},
        {"other code", [=](const Bytes& r) { return Packets{changed(good(r), 1)}; }, false},
        {"a byte less", [=](const Bytes& r) { return Packets{resized(good(r), -1)}; }, false},
        {"a byte more", [=](const Bytes& r) { return Packets{resized(good(r), 1)}; }, false},
        {"many bytes more", [=](const Bytes& r) { return Packets{resized(good(r), 1000)}; }, false},
        {"no data", [=](const Bytes& r) { return Packets{resized(good(r), -int(kData.size()))}; }, false},
        {"the request", [](const Bytes& r) { return Packets{changed(r, 6)}; }, false},
        {"host unreachable", [](const Bytes& r) { return Packets{hostUnreachable(r)}; }, false},
    };
}

} // namespace

/// The echo by sockets, in a network namespace of its own where rights and replies are as a test wants them.
class tst_IcmpEcho : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    // --- happy flows
    void eitherSocket_data();
    void eitherSocket();
    void dataOfAnySize_data();
    void dataOfAnySize();
    void replyOfAnotherHost();
    void roundTrip();
    void severalThreads_data();
    void severalThreads();
    // --- rainy day flows
    void notPermitted();
    void replies_data();
    void replies();
    void floodOfOtherReplies();
    void nobodyAnswers();
    void badAddresses_data();
    void badAddresses();
    void noTimeAtAll();
    void socketsAreClosed();
};

void tst_IcmpEcho::initTestCase()
{
    if (!isInOwnNetwork())
        QSKIP("neither \"unshare -n\" nor \"unshare -rn\" makes a network namespace here");
    if (!writeIpv4Setting("icmp_echo_ignore_all", "0"))
        QSKIP("the settings of the network namespace can't be written here");
}

void tst_IcmpEcho::cleanup()
{
    if (isInOwnNetwork())
        writeIpv4Setting("icmp_echo_ignore_all", "0");
}

void tst_IcmpEcho::eitherSocket_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("datagram") << int(DatagramSocket);
    QTest::newRow("raw") << int(RawSocket);
}

void tst_IcmpEcho::eitherSocket()
{
    QFETCH(int, kind);
    const OnlySocket only{Socket(kind)};
    REQUIRE_SOCKET(only);
    const EchoResult result = echoTo(kPeer, kPatienceMs);
    QCOMPARE(result.replyCount, 1U);
    QCOMPARE(result.replier, kPeer.toStdString());
    QCOMPARE(result.status, 0U);
    QCOMPARE(result.error, 0U);
    QVERIFY(result.isPermitted);
}

void tst_IcmpEcho::dataOfAnySize_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("size");
    for (const int size : {0, 1, 31, 32, 1400, 20000}) {
        QTest::addRow("datagram, %d", size) << int(DatagramSocket) << size;
        QTest::addRow("raw, %d", size) << int(RawSocket) << size;
    }
}

void tst_IcmpEcho::dataOfAnySize()
{
    QFETCH(int, kind);
    QFETCH(int, size);
    const OnlySocket only{Socket(kind)};
    REQUIRE_SOCKET(only);
    QCOMPARE(echoTo(kPeer, kPatienceMs, std::vector<uint8_t>(size_t(size), 0xAB)).replyCount, 1U);
}

void tst_IcmpEcho::replyOfAnotherHost()
{
    writeIpv4Setting("icmp_echo_ignore_all", "1");
    const EchoPeer peer(kPeer, kOtherPeer,
                        [](const Bytes& request) { return Packets{EchoPeer::replyTo(request)}; });
    const EchoResult result = echoTo(kPeer, kPatienceMs);
    QCOMPARE(result.replyCount, 1U);
    QCOMPARE(result.replier, kOtherPeer.toStdString());
}

void tst_IcmpEcho::roundTrip()
{
    writeIpv4Setting("icmp_echo_ignore_all", "1");
    constexpr int kDelayMs = 30;
    const EchoPeer peer(kPeer, kPeer, [](const Bytes& request) {
        poll(nullptr, 0, kDelayMs);
        return Packets{EchoPeer::replyTo(request)};
    });
    QElapsedTimer clock;
    clock.start();
    const EchoResult result = echoTo(kPeer, kPatienceMs);
    const qint64 elapsed = clock.elapsed();
    QCOMPARE(result.replyCount, 1U);
    QVERIFY2(result.roundTripMs >= kDelayMs - 1 && result.roundTripMs <= elapsed,
             qPrintable(QString::number(result.roundTripMs)));
}

void tst_IcmpEcho::severalThreads_data()
{
    eitherSocket_data();
}

void tst_IcmpEcho::severalThreads()
{
    QFETCH(int, kind);
    const OnlySocket only{Socket(kind)};
    REQUIRE_SOCKET(only);
    constexpr int kThreads = 8;
    constexpr int kEchoes = 20;
    std::atomic<int> good = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&good, thread] {
            const QString address = QStringLiteral("127.62.25.%1").arg(thread);
            for (int i = 0; i < kEchoes; ++i)
                good += echoTo(address, kPatienceMs).replier == address.toStdString() ? 1 : 0;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    QCOMPARE(good.load(), kThreads * kEchoes);
}

void tst_IcmpEcho::notPermitted()
{
    const OnlySocket none(NoSocket);
    REQUIRE_SOCKET(none);
    const EchoResult result = echoTo(kPeer, kPatienceMs);
    QCOMPARE(result.replyCount, 0U);
    QCOMPARE(result.error, uint32_t(EPERM));
    QVERIFY(!result.isPermitted);
    const LogSpy log;
    QCOMPARE(NvxPingHelper::pingHost(NvxIpAddr(kPeer.toStdString()), kPatienceMs), PingFailed);
    QCOMPARE(log.lines(), QStringList{QStringLiteral("Call to IcmpSendEcho failed.\n"
                                                     "IcmpSendEcho returned error: %1\n"
                                                     "ICMP echo is not permitted to this program.")
                                          .arg(EPERM)});
}

void tst_IcmpEcho::replies_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("index");
    const auto all = ::replies();
    for (int index = 0; index < int(all.size()); ++index) {
        QTest::addRow("datagram, %s", all[size_t(index)].name) << int(DatagramSocket) << index;
        QTest::addRow("raw, %s", all[size_t(index)].name) << int(RawSocket) << index;
    }
}

void tst_IcmpEcho::replies()
{
    QFETCH(int, kind);
    QFETCH(int, index);
    const Reply reply = ::replies()[size_t(index)];
    writeIpv4Setting("icmp_echo_ignore_all", "1");
    const EchoPeer peer(kPeer, kPeer, reply.answer);
    const OnlySocket only{Socket(kind)};
    REQUIRE_SOCKET(only);
    const EchoResult result = echoTo(kPeer, reply.isReply ? kPatienceMs : kShortMs);
    QCOMPARE(result.replyCount, reply.isReply ? 1U : 0U);
    QCOMPARE(result.error, reply.isReply ? 0U : uint32_t(ETIMEDOUT));
    QTRY_VERIFY(peer.answered() > 0);
}

void tst_IcmpEcho::floodOfOtherReplies()
{
    const OnlySocket only(RawSocket);
    REQUIRE_SOCKET(only);
    writeIpv4Setting("icmp_echo_ignore_all", "1");
    std::atomic<bool> isOver = false;
    // It floods until the echo has ended.
    const EchoPeer peer(kPeer, kPeer, [&isOver](const Bytes& request) {
        const Packets others(100, changed(EchoPeer::replyTo(request), 7));
        return isOver ? Packets() : others;
    });
    std::thread flood([&isOver] {
        while (!isOver)
            echoTo(kPeer, 0);
    });
    const EchoResult result = echoTo(kPeer, kShortMs);
    isOver = true;
    flood.join();
    QCOMPARE(result.replyCount, 0U);
    QCOMPARE(result.error, uint32_t(ETIMEDOUT));
}

void tst_IcmpEcho::nobodyAnswers()
{
    writeIpv4Setting("icmp_echo_ignore_all", "1");
    QElapsedTimer clock;
    clock.start();
    const EchoResult result = echoTo(kPeer, kShortMs);
    QCOMPARE(result.error, uint32_t(ETIMEDOUT));
    QVERIFY(clock.elapsed() >= kShortMs);
    QVERIFY(result.isPermitted);
}

void tst_IcmpEcho::badAddresses_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<uint>("error");
    QTest::newRow("none") << "0.0.0.0" << uint(EDESTADDRREQ);
    QTest::newRow("no route") << "192.0.2.1" << uint(ENETUNREACH);
    QTest::newRow("broadcast") << "127.255.255.255" << uint(EACCES);
    QTest::newRow("no text of an address") << "recorder" << uint(ENETUNREACH);
    QTest::newRow("empty") << "" << uint(ENETUNREACH);
}

void tst_IcmpEcho::badAddresses()
{
    QFETCH(QString, address);
    QFETCH(uint, error);
    const EchoResult result = echoTo(address, kPatienceMs);
    QCOMPARE(result.replyCount, 0U);
    QCOMPARE(result.error, error);
    QVERIFY(result.isPermitted);
}

void tst_IcmpEcho::noTimeAtAll()
{
    writeIpv4Setting("icmp_echo_ignore_all", "1");
    QCOMPARE(echoTo(kPeer, 0).error, uint32_t(ETIMEDOUT));
}

void tst_IcmpEcho::socketsAreClosed()
{
    const qsizetype before = openDescriptors();
    for (const Socket kind : {DatagramSocket, RawSocket, NoSocket}) {
        const OnlySocket only(kind);
        for (int i = 0; i < 50; ++i) {
            echoTo(kPeer, 0);
            echoTo(QStringLiteral("192.0.2.1"), 0);
        }
    }
    QCOMPARE(openDescriptors(), before);
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    tst_IcmpEcho test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_IcmpEcho.moc"
