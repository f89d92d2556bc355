#include "ScanFixture.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/PythonPeer.h"
#include "tests/support/TestSeed.h"

#include <QDir>
#include <QThreadPool>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

/// Without the threads that the pool keeps for a while, and what they hold.
qsizetype entriesOf(const QString& folder)
{
    QThreadPool::globalInstance()->waitForDone(kPatienceMs);
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

qsizetype threadCount()
{
    return entriesOf(QStringLiteral("/proc/self/task"));
}

qsizetype descriptorCount()
{
    return entriesOf(QStringLiteral("/proc/self/fd"));
}

/// Bytes in use; 0 where nobody can tell.
size_t heapBytes()
{
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    return mallinfo2().uordblks;
#else
    return 0;
#endif
}

/// Keeps the lines of thousands of scans out of the test's output, but not its warnings.
class QuietLog
{
public:
    QuietLog() { s_previous = qInstallMessageHandler(&QuietLog::take); }
    ~QuietLog() { qInstallMessageHandler(s_previous); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;

private:
    static void take(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        if (type != QtDebugMsg)
            s_previous(type, context, text);
    }
    static inline QtMessageHandler s_previous = nullptr;
};

/// The long test does more of them.
int scansToDo()
{
    bool given = false;
    const int count = qEnvironmentVariableIntValue("NVX_SCANS", &given);
    return given ? count : 100;
}

} // namespace

/// Scans in numbers, cut short, and of recorders that others wrote.
class tst_SerialScans : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (const QString reason = ScanFixture::whyNot(); !reason.isEmpty())
            QSKIP(qPrintable(reason));
        // What the first scan of a process leaves open for good is not what these tests count.
        const QuietLog quiet;
        ScanFixture f;
        QVERIFY(f.addRecorder("2"));
        f.scanner->scanPortsAll();
        QVERIFY(f.isComplete());
    }

    // --- happy flows
    void recorderInAnotherLanguage_data();
    void recorderInAnotherLanguage();
    void scansInARow();
    // --- rainy day flows
    void endsAtAnyMoment();
    void endsBeforeItScans();
    void endsWithCheckersOfManyScans();
};

void tst_SerialScans::recorderInAnotherLanguage_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("cut");
    for (const int rate : {19200, 115200, 230400, 460800, 921600})
        QTest::addRow("%d", rate) << rate << 0;
    QTest::newRow("in two pieces") << 115200 << 9;
}

void tst_SerialScans::recorderInAnotherLanguage()
{
    QFETCH(int, rate);
    QFETCH(int, cut);
    PythonPeer peer(QStringLiteral("peer_serial.py"));
    QVERIFY2(peer.start({QStringLiteral("--baud"), QString::number(rate), QStringLiteral("--cut"),
                         QString::number(cut), QStringLiteral("--serial"), QStringLiteral("4243")}),
             qPrintable(peer.errorText()));
    ScanFixture f({static_cast<uint32_t>(rate)});
    f.ports.addPort({"12", peer.lines(QStringLiteral("port")).first().first().toStdString()});
    f.scanner->scanComPortRange(12, 12);
    QVERIFY(f.isComplete());
    QCOMPARE(f.found.count(), 1);
    const auto device = f.found.first()[0].value<std::shared_ptr<HydDevice>>();
    QCOMPARE(device->serial(), uint16_t(4243));
    QCOMPARE(device->devType(), DevTypeRecorderA);
    QCOMPARE(f.found.first()[2].toInt(), rate);
    QCOMPARE(peer.lines(QStringLiteral("command")).size(), 1);
}

void tst_SerialScans::scansInARow()
{
    const QuietLog quiet;
    const int scans = scansToDo();
    ScanFixture f;
    QVERIFY(f.addRecorder("2") && f.addRecorder("3"));
    qsizetype threads = 0;
    qsizetype descriptors = 0;
    size_t heap = 0;
    for (int i = 1; i <= scans; ++i) {
        f.scanner->scanPortsAll();
        QVERIFY(f.isComplete());
        QCOMPARE(f.found.count(), 2);
        f.found.clear();
        f.starts.clear();
        f.completed.clear();
        if (i == scans / 10) {
            threads = threadCount();
            descriptors = descriptorCount();
            heap = heapBytes();
        }
    }
    // The last checkers go when their thread comes to it; what two of them hold may be there or not.
    QTRY_VERIFY(descriptorCount() <= descriptors);
    QTRY_VERIFY(threadCount() <= threads);
    constexpr size_t kTwoCheckers = 4 * 1024 * 1024;
    QVERIFY2(heapBytes() <= heap + kTwoCheckers,
             qPrintable(QStringLiteral("from %1 to %2 bytes").arg(heap).arg(heapBytes())));
}

void tst_SerialScans::endsAtAnyMoment()
{
    QRandomGenerator random(testSeed());
    const QuietLog quiet;
    const qsizetype threads = threadCount();
    const qsizetype descriptors = descriptorCount();
    for (int i = 0; i < 50; ++i) {
        ScanFixture f;
        QVERIFY(f.addRecorder("2") && f.addRecorder("3", 115200, 9, 0, "silence:on=control") &&
                f.addRecorder("4", 115200, 9, 0, "bad-checksum:on=control"));
        f.scanner->scanPortsAll();
        // It never comes: this is where the scan is cut short.
        QVERIFY(!f.completed.wait(random.bounded(20)));
        f.scanner.reset();
    }
    QTRY_VERIFY(descriptorCount() <= descriptors);
    QTRY_VERIFY(threadCount() <= threads);
}

void tst_SerialScans::endsBeforeItScans()
{
    const qsizetype threads = threadCount();
    for (int i = 0; i < 100; ++i)
        const HydSerialPortScanner scanner;
    QTRY_VERIFY(threadCount() <= threads);
}

void tst_SerialScans::endsWithCheckersOfManyScans()
{
    const QuietLog quiet;
    const qsizetype descriptors = descriptorCount();
    {
        ScanFixture f;
        QVERIFY(f.addRecorder("2", 115200, 9, 0, "silence:on=control"));
        for (int i = 1; i <= 10; ++i) {
            f.scanner->scanPortsAll();
            QTRY_COMPARE(f.starts.count(), i);
            f.scanner->cancelSearch();
        }
        QVERIFY(f.found.isEmpty());
    }
    QTRY_VERIFY(descriptorCount() <= descriptors);
}

QTEST_GUILESS_MAIN(tst_SerialScans)
#include "tst_SerialScans.moc"
