#include "NvxQtCommon/discovery/CTcpSocProc.h"
#include "NvxQtCommon/discovery/CTcpSocThread.h"
#include "tests/discovery/ProbeFixture.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/TestSeed.h"

#include <QEventLoop>
#include <QPointer>
#include <QProcess>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTimer>

namespace {

const QString kPrefix = QStringLiteral("127.63.4.");
constexpr int kAddresses = 256;

QString addressOf(int number)
{
    return kPrefix + QString::number(number);
}

} // namespace

/// Scans of 256 loopback addresses.
class tst_ScanNetWork : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_threads = threadCount();
    }
    void cleanup() { QTRY_COMPARE(threadCount(), m_threads); }

    // --- happy flows
    void probesEachAddress();
    void stepsComeAheadOfEachProbe();
    void findsWhatAnswers_data();
    void findsWhatAnswers();
    void waitTimeHoldsForTheScan();
    void dropsTheProbesThatAreKept();
    // --- rainy day flows
    void prefixThatMakesNoAddress_data();
    void prefixThatMakesNoAddress();
    void descriptorsThatDoNotSuffice();
    void secondScanBesideTheFirst();
    void adapterGoesInTheMiddle_data();
    void adapterGoesInTheMiddle();
    void manyScansInARow();
    void quittingAtAnyMoment();

private:
    qsizetype m_threads = 0;
};

void tst_ScanNetWork::probesEachAddress()
{
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    adapter.scanNetWork(kPrefix, 1000);
    QTRY_COMPARE(reports.m_errors.size(), kAddresses);
    QStringList expected;
    for (int number = 0; number < kAddresses; ++number)
        expected << addressOf(number);
    QStringList told = reports.m_errorAddresses;
    told.sort();
    expected.sort();
    QCOMPARE(told, expected);
    QCOMPARE(reports.m_errors.count(QAbstractSocket::ConnectionRefusedError), kAddresses);
    QCOMPARE(reports.m_found.size(), 0);
}

void tst_ScanNetWork::stepsComeAheadOfEachProbe()
{
    HydMarcoAdapter adapter;
    QList<double> steps;
    bool isScanning = true;
    bool allInside = true;
    connect(&adapter, &HydMarcoAdapter::scanNetWorkStep, this, [&](double step) {
        steps << step;
        allInside = allInside && isScanning;
    });
    const ProbeReports reports(adapter);
    adapter.scanNetWork(kPrefix, 1000);
    isScanning = false;
    QCOMPARE(steps.size(), kAddresses);
    for (int i = 0; i < kAddresses; ++i)
        QCOMPARE(steps.at(i), (i + 1) / 256.0);
    QTRY_COMPARE(reports.m_errors.size(), kAddresses);
    QVERIFY(allInside);
    QCOMPARE(steps.size(), kAddresses);
}

void tst_ScanNetWork::findsWhatAnswers_data()
{
    QTest::addColumn<bool>("regime");
    QTest::newRow("as found") << false;
    QTest::newRow("as found by IP") << true;
}

void tst_ScanNetWork::findsWhatAnswers()
{
    QFETCH(const bool, regime);
    ProbedPeer first(addressOf(0), enquireReply(100));
    ProbedPeer second(addressOf(77), enquireReply(177));
    ProbedPeer last(addressOf(255), enquireReply(355));
    QVERIFY(first.listens() && second.listens() && last.listens());
    HydMarcoAdapter adapter;
    adapter.setTcpRegime(regime);
    const ProbeReports reports(adapter);
    adapter.scanNetWork(kPrefix, 1000);
    const auto& found = regime ? reports.m_foundIp : reports.m_found;
    QTRY_COMPARE(found.size(), 3);
    QTRY_COMPARE(reports.m_errors.size(), kAddresses - 3);
    QCOMPARE(reports.m_found.size() + reports.m_foundIp.size(), 3);
    QStringList told;
    for (const Device& device : found)
        told << QStringLiteral("%1 %2")
                    .arg(device->serial())
                    .arg(QString::fromStdString(device->netHostInfo().ipAddress().toString()));
    told.sort();
    QCOMPARE(told, QStringList({QStringLiteral("100 127.63.4.0"), QStringLiteral("177 127.63.4.77"),
                                QStringLiteral("355 127.63.4.255")}));
    for (const ProbedPeer* peer : {&first, &second, &last})
        QCOMPARE(peer->letters(), QByteArray("E"));
}

void tst_ScanNetWork::waitTimeHoldsForTheScan()
{
    HydMarcoAdapter adapter;
    adapter.setTimeWait(321);
    QList<unsigned> waits;
    connect(&adapter, &HydMarcoAdapter::scanNetWorkStep, this, [&] { waits << adapter.timeWait(); });
    adapter.scanNetWork(kPrefix, 5);
    QCOMPARE(waits.count(5), kAddresses);
    QCOMPARE(adapter.timeWait(), 321U);
}

void tst_ScanNetWork::dropsTheProbesThatAreKept()
{
    ProbedPeer peer(QStringLiteral("127.63.5.1"));
    HydMarcoAdapter adapter;
    adapter.netEnquireTCPIPAddr(peer.host(), false, false);
    QTRY_COMPARE(peer.letters(), QByteArray("E"));
    QSignalSpy gone(&peer, &ControlPeer::disconnected);
    adapter.scanNetWork(kPrefix, 1000);
    QTRY_COMPARE(gone.size(), 1);
    QTRY_VERIFY(adapter.findChildren<CTcpSocProc*>().isEmpty());
}

void tst_ScanNetWork::prefixThatMakesNoAddress_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::newRow("empty but for the number's point") << QStringLiteral(".");
    QTest::newRow("text") << QStringLiteral("recorder-");
    QTest::newRow("four numbers already") << QStringLiteral("127.63.4.1.");
    QTest::newRow("too large a number") << QStringLiteral("127.63.444.");
    QTest::newRow("long") << QString(100000, u'1');
    QTest::newRow("null characters") << QString(3, QChar(0));
}

void tst_ScanNetWork::prefixThatMakesNoAddress()
{
    QFETCH(const QString, prefix);
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    adapter.scanNetWork(prefix, 1000);
    QTRY_COMPARE(reports.m_errors.size(), kAddresses);
    QCOMPARE(reports.m_errors.count(QAbstractSocket::HostNotFoundError), kAddresses);
    QCOMPARE(reports.m_errorAddresses.count(QString()), kAddresses);
}

void tst_ScanNetWork::descriptorsThatDoNotSuffice()
{
    constexpr size_t kProbes = 20;
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    LogSpy log;
    int atOnce = 0;
    constexpr size_t kTopLimit = 120;
    const size_t used = descriptorsBelow(kTopLimit);
    QVERIFY(used + CTcpSocThread::kSpareDescriptors + kProbes * CTcpSocThread::kDescriptors <= kTopLimit);
    {
        const DescriptorLimit low(used + CTcpSocThread::kSpareDescriptors +
                                  kProbes * CTcpSocThread::kDescriptors);
        adapter.scanNetWork(kPrefix, 1000);
        atOnce = static_cast<int>(reports.m_errors.count(QAbstractSocket::SocketResourceError));
        QCOMPARE(atOnce, kAddresses - int(kProbes));
        // Those that were started find what they need under the same limit.
        QTRY_COMPARE(reports.m_errors.size(), kAddresses);
    }
    QCOMPARE(reports.m_errors.count(QAbstractSocket::ConnectionRefusedError), kProbes);
    for (int number = kProbes; number < kAddresses; ++number) {
        QVERIFY(reports.m_errorAddresses.contains(addressOf(number)));
        QVERIFY(log.contains(QStringLiteral("HydMarcoAdapter: too few descriptors are left for a probe of ") +
                             addressOf(number)));
    }
}

void tst_ScanNetWork::secondScanBesideTheFirst()
{
    HydMarcoAdapter adapter;
    const ProbeReports reports(adapter);
    adapter.scanNetWork(kPrefix, 1000);
    adapter.scanNetWork(kPrefix, 1000);
    // Each address is told twice, refused or, where the limit allows one scan at a time, for want of
    // descriptors.
    QTRY_COMPARE(reports.m_errors.size(), 2 * kAddresses);
    QCOMPARE(reports.m_errorAddresses.count(addressOf(0)), 2);
    QCOMPARE(reports.m_errorAddresses.count(addressOf(255)), 2);
}

void tst_ScanNetWork::adapterGoesInTheMiddle_data()
{
    QTest::addColumn<int>("steps");
    QTest::newRow("ahead of the first probe") << 1;
    QTest::newRow("in the middle") << 100;
    QTest::newRow("ahead of the last probe") << 256;
}

void tst_ScanNetWork::adapterGoesInTheMiddle()
{
    QFETCH(const int, steps);
    const QPointer adapter(new HydMarcoAdapter);
    int seen = 0;
    connect(adapter, &HydMarcoAdapter::scanNetWorkStep, this, [&] {
        if (++seen < steps)
            return;
        // A slot that keeps its windows alive, and somebody who closes the one that owns the adapter.
        QEventLoop loop;
        QTimer::singleShot(0, &loop, [&] { adapter->deleteLater(); });
        connect(adapter, &QObject::destroyed, &loop, &QEventLoop::quit);
        loop.exec();
    });
    adapter->scanNetWork(kPrefix, 1000);
    QVERIFY(!adapter);
    QCOMPARE(seen, steps);
}

void tst_ScanNetWork::manyScansInARow()
{
    constexpr int kScans = kIsSanitized ? 3 : 6;
    HydMarcoAdapter adapter;
    qsizetype descriptors = 0;
    qint64 resident = 0;
    for (int scan = 0; scan < kScans; ++scan) {
        const ProbeReports reports(adapter);
        adapter.scanNetWork(kPrefix, 1000);
        QTRY_COMPARE(reports.m_errors.size(), kAddresses);
        QTRY_COMPARE(threadCount(), m_threads);
        if (scan == 0) {
            descriptors = descriptorCount();
            resident = residentBytes();
        }
    }
    QCOMPARE(descriptorCount(), descriptors);
    QVERIFY(adapter.children().isEmpty());
    const qint64 grown = residentBytes() - resident;
    QVERIFY2(grown < kLittleMemory, qPrintable(QString::number(grown)));
}

void tst_ScanNetWork::quittingAtAnyMoment()
{
    // Sanitizers stretch a process's start.
    constexpr int kRuns = kIsSanitized ? 10 : 50;
    constexpr quint32 kLastMoment = 320;
    QRandomGenerator random(testSeed());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("*.debug=false"));
    for (int run = 0; run < kRuns; ++run) {
        const QStringList arguments{QString::number(random.bounded(kLastMoment)),
                                    QString::number(random.bounded(3))};
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(NVX_SCAN_QUIT_TARGET), arguments);
        QVERIFY2(process.waitForFinished(kPatienceMs), qPrintable(arguments.join(u' ')));
        const QString errors = QString::fromUtf8(process.readAllStandardError());
        QVERIFY2(errors.isEmpty(), qPrintable(arguments.join(u' ') + u'\n' + errors));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
    }
}

QTEST_GUILESS_MAIN(tst_ScanNetWork)
#include "tst_ScanNetWork.moc"
