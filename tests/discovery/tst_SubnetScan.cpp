#include "tests/discovery/ProbeFixture.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"
#include "tests/support/PeerDevice.h"

#include <QCoreApplication>
#include <QNetworkInterface>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <array>

namespace {

constexpr const char* kPeerMac = "02:00:00:00:77:02";
const QString kPrefix = QStringLiteral("10.77.0.");
constexpr int kAddresses = 256;
constexpr int kOwn = 1;
/// Recorders, and the serial number that each one has is its address's last number and this.
constexpr std::array kRecorders{10, 20, 254};
constexpr int kFirstSerial = 1000;
/// The peer has these addresses, and nobody listens there.
constexpr int kFirstRefusing = 40;
constexpr int kLastRefusing = 45;
/// Nobody has these, and the network says so.
constexpr int kFirstAbsent = 200;
constexpr int kLastAbsent = 203;

/// Runs a program line to its end; the text that it says when it fails, else nothing.
QString run(const QString& line, const QByteArray& input = {})
{
    QStringList words = line.split(u' ');
    const QString program = words.takeFirst();
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, words);
    process.write(input);
    process.closeWriteChannel();
    if (process.waitForFinished() && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return {};
    return line + QStringLiteral(": ") + QString::fromUtf8(process.readAll()) + process.errorString();
}

bool isRecorder(int number)
{
    return std::find(kRecorders.begin(), kRecorders.end(), number) != kRecorders.end();
}

bool isRefusing(int number)
{
    return number == kOwn || (number >= kFirstRefusing && number <= kLastRefusing);
}

bool isAbsent(int number)
{
    return number >= kFirstAbsent && number <= kLastAbsent;
}

/// The address of the network itself, and the one for all of its hosts.
bool isNoHost(int number)
{
    return number == 0 || number == kAddresses - 1;
}

int silentCount()
{
    int count = 0;
    for (int number = 0; number < kAddresses; ++number) {
        if (!isRecorder(number) && !isRefusing(number) && !isAbsent(number) && !isNoHost(number))
            ++count;
    }
    return count;
}

} // namespace

/// A scan of a whole subnet between two network namespaces that a veth pair joins: three recorders in Python,
/// some hosts that refuse, some addresses that nobody has, and the rest silent.
class tst_SubnetScan : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    // --- happy flows
    void findsTheRecorders();
    // --- rainy day flows
    void silentAddressesKeepTheirThreadsUntilTheEnd();

private:
    void startNetwork();
    void startRecorders();

    /// Holds the other namespace.
    QProcess m_holder;
    qsizetype m_threads = 0;
    std::array<PeerDevice, kRecorders.size()> m_recorders;
};

void tst_SubnetScan::initTestCase()
{
    if (!isInOwnNetwork())
        QSKIP("neither \"unshare -rn\" nor \"unshare -n\" makes a network namespace here");
    for (const QNetworkInterface& netInterface : QNetworkInterface::allInterfaces()) {
        if (netInterface.name() != QStringLiteral("lo"))
            QSKIP("this network namespace has an interface already, so it isn't the test's own");
    }
    if (const QString failure = run(QStringLiteral("ip link add nvx0 type veth peer name nvx1"));
        !failure.isEmpty())
        QSKIP(qPrintable(QStringLiteral("no veth pair here: ") + failure));
    startNetwork();
    if (!QTest::currentTestFailed())
        startRecorders();
}

void tst_SubnetScan::init()
{
    failOnUnexpectedWarnings();
    m_threads = threadCount();
}

void tst_SubnetScan::cleanup()
{
    // Nothing else ends the probes of silent addresses.
    QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
    QTRY_COMPARE(threadCount(), m_threads);
}

void tst_SubnetScan::cleanupTestCase()
{
    m_holder.closeWriteChannel();
    if (m_holder.state() != QProcess::NotRunning)
        QVERIFY(m_holder.waitForFinished(kPatienceMs));
}

void tst_SubnetScan::startNetwork()
{
    // It says so once it is there, and ends with this program.
    m_holder.start(QStringLiteral("unshare"), {QStringLiteral("-n"), QStringLiteral("sh"),
                                               QStringLiteral("-c"), QStringLiteral("echo here; exec cat")});
    QVERIFY2(QTest::qWaitFor([this] { return m_holder.canReadLine(); }, kPatienceMs),
             qPrintable(m_holder.errorString()));
    const auto id = m_holder.processId();
    QByteArray there = QByteArray("link set nvx1 address ") + kPeerMac + "\nlink set nvx1 up\n";
    QByteArray here("addr add 10.77.0.1/24 dev nvx0\nlink set nvx0 up\n");
    for (int number = 2; number < kAddresses - 1; ++number) {
        const QByteArray address = (kPrefix + QString::number(number)).toLatin1();
        if (isRecorder(number) || isRefusing(number))
            there += "addr add " + address + "/24 dev nvx1\n";
        // What the peer is sent and isn't for it goes nowhere: silence.
        if (!isAbsent(number))
            here += "neigh add " + address + " lladdr " + kPeerMac + " dev nvx0 nud permanent\n";
    }
    QCOMPARE(run(QStringLiteral("ip link set nvx1 netns %1").arg(id)), QString());
    QCOMPARE(run(QStringLiteral("nsenter -t %1 -n ip -batch -").arg(id), there), QString());
    QCOMPARE(run(QStringLiteral("ip -batch -"), here), QString());
    // Where it may be set, the network says sooner that nobody has an address.
    for (const char* setting : {"mcast_solicit=1", "retrans_time_ms=50"})
        run(QStringLiteral("sysctl -qw net.ipv4.neigh.nvx0.") + QLatin1String(setting));
    const auto isRunning = [] {
        return QNetworkInterface::interfaceFromName(QStringLiteral("nvx0"))
            .flags()
            .testFlag(QNetworkInterface::IsRunning);
    };
    QTRY_VERIFY(isRunning());
}

void tst_SubnetScan::startRecorders()
{
    for (size_t i = 0; i < kRecorders.size(); ++i) {
        const QString address = kPrefix + QString::number(kRecorders[i]);
        QVERIFY2(m_recorders[i].start({address, QStringLiteral("--serial"),
                                       QString::number(kFirstSerial + kRecorders[i]),
                                       QStringLiteral("--report-address"), QStringLiteral("192.0.2.1")},
                                      {QStringLiteral("nsenter"), QStringLiteral("-t"),
                                       QString::number(m_holder.processId()), QStringLiteral("-n")}),
                 qPrintable(m_recorders[i].errorText()));
    }
}

void tst_SubnetScan::findsTheRecorders()
{
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    adapter.scanNetWork(kPrefix, 1000);
    QTRY_COMPARE(reports.m_found.size(), qsizetype(kRecorders.size()));
    for (const Device& device : reports.m_found) {
        const int number = device->serial() - kFirstSerial;
        QVERIFY(isRecorder(number));
        QCOMPARE(device->netHostInfo().ipAddress().toInt(), 0x0A4D0000U + static_cast<uint32_t>(number));
        QCOMPARE(device->ifaceAddr().toString(), std::string("10.77.0.1"));
        QCOMPARE(device->modelString(), std::string("Peer"));
        QCOMPARE(device->firmwareVer(), std::string("2.7.1"));
    }

    QStringList expected;
    for (int number = 0; number < kAddresses; ++number) {
        const QString address = kPrefix + QString::number(number);
        if (isRefusing(number) || isAbsent(number) || isNoHost(number))
            expected << address;
    }
    QTRY_COMPARE(reports.m_errors.size(), expected.size());
    QStringList told = reports.m_errorAddresses;
    told.sort();
    expected.sort();
    QCOMPARE(told, expected);
    for (qsizetype i = 0; i < told.size(); ++i) {
        const int number = reports.m_errorAddresses.at(i).section(u'.', 3).toInt();
        QCOMPARE(reports.m_errors.at(i) == QAbstractSocket::ConnectionRefusedError, isRefusing(number));
    }
    QTRY_COMPARE(threadCount(), m_threads + silentCount());
}

void tst_SubnetScan::silentAddressesKeepTheirThreadsUntilTheEnd()
{
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    adapter.scanNetWork(kPrefix, 1000);
    QTRY_COMPARE(reports.m_found.size() + reports.m_errors.size(), kAddresses - silentCount());
    QTRY_COMPARE(threadCount(), m_threads + silentCount());

    QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
    QVERIFY(becomesTrueWithoutEvents([this] { return threadCount() == m_threads; }));
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    tst_SubnetScan test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_SubnetScan.moc"
