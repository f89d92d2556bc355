#include "ScanFixture.h"
#include "tests/control/ControlPeer.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SerialPair.h"
#include "tests/support/SpyWait.h"

#include <QRegularExpression>

#include <functional>

namespace {

using Scan = std::function<void(HydSerialPortScanner&)>;

/// A line that the test itself answers, listed as the port of a name.
class OwnLine
{
public:
    OwnLine(ScanFixture& f, const std::string& name)
    {
        f.ports.addPort({name, m_line.portName().toStdString()});
    }
    /// Enquiries have arrived, this many since it was made.
    bool isAsked(qsizetype times = 1)
    {
        return QTest::qWaitFor(
            [&] { return (m_received += m_line.read()).count(frameOf(HydEnquireCmd())) >= times; },
            kPatienceMs);
    }
    bool answer(uint16_t serial) { return m_line.write(enquireReply(serial)); }
    /// In one piece.
    bool answerTwice(uint16_t serial) { return m_line.write(enquireReply(serial) + enquireReply(serial)); }

private:
    SerialPair m_line;
    QByteArray m_received;
};

class OpenScanner : public HydSerialPortScanner
{
public:
    OpenScanner() : HydSerialPortScanner(QList<uint32_t>({115200}))
    {
        connect(this, &HydSerialPortScanner::startPortChecks, this, &VisibleOrder::pass);
    }
    int startListeners() const { return receivers(SIGNAL(startPortChecks())); }
};

} // namespace

Q_DECLARE_METATYPE(Scan)

/// Scans over ports that the machine doesn't have.
class tst_HydSerialPortScanner : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (const QString reason = ScanFixture::whyNot(); !reason.isEmpty())
            QSKIP(qPrintable(reason));
    }

    // --- happy flows
    void isMadeWithDefaults();
    void findsARecorder();
    void findsRecordersSideBySide();
    void goesThroughTheRates();
    void selectsPorts_data();
    void selectsPorts();
    void logsWhatItSelects();
    void searchesForAType();
    void takesAListOfPorts();
    void scansAgain();
    // --- rainy day flows
    void noPortSelected();
    void noRates();
    void secondScanOnlyLogs();
    void anotherTypeCountsAsAnswered();
    void onePortTwiceInTheList();
    void portsThatKeepTheEndFromComing_data();
    void portsThatKeepTheEndFromComing();
    void cancelStopsNothing();
    void cancelledWhileItLists();
    void rescanWaitsForOldCheckers();
    void rescanOfAPortThatIsStillAsked();
    void endOfARescanEndsOldCheckers();
    void scanFromASlotOfTheEnd();
    void secondAnswerIsNoneOfTheNextScan();
    void endedCheckersHearOfNoOtherScan();
};

void tst_HydSerialPortScanner::isMadeWithDefaults()
{
    QObject parent;
    auto* scanner = new HydSerialPortScanner(&parent);
    QCOMPARE(scanner->parent(), &parent);
    QCOMPARE(scanner->baudRates(), QList<uint32_t>({19200, 115200, 230400, 460800, 921600}));
    QCOMPARE(scanner->searchDevType(), DevTypeAny);
    QVERIFY(!scanner->isScanning());
    scanner->setBaudRates({1200});
    QCOMPARE(scanner->baudRates(), QList<uint32_t>({1200}));
    scanner->setSearchDevType(DevTypeTmi);
    QCOMPARE(scanner->searchDevType(), DevTypeTmi);
    auto* other = new HydSerialPortScanner({300, 600}, &parent);
    QCOMPARE(other->parent(), &parent);
    QCOMPARE(other->baudRates(), QList<uint32_t>({300, 600}));
}

void tst_HydSerialPortScanner::findsARecorder()
{
    ScanFixture f({19200, 115200});
    QVERIFY(f.addRecorder("5", 19200, 4711));
    bool wasScanning = true;
    qsizetype foundBefore = 0;
    connect(f.scanner.get(), &HydSerialPortScanner::scanComplete, this, [&] {
        wasScanning = f.scanner->isScanning();
        foundBefore = f.found.count();
    });
    LogSpy log;
    f.scanner->scanPortsAll();
    QVERIFY(f.scanner->isScanning());
    QVERIFY(f.isComplete());
    QCOMPARE(f.found.count(), 1);
    const auto device = f.found.first()[0].value<std::shared_ptr<HydDevice>>();
    QCOMPARE(device->serial(), uint16_t(4711));
    QCOMPARE(device->devType(), DevTypeRecorderA);
    QCOMPARE(f.found.first()[1].toString(), QStringLiteral("5"));
    QCOMPARE(f.found.first()[2].toUInt(), 19200u);
    QCOMPARE(foundBefore, 1);
    QVERIFY(!wasScanning);
    QVERIFY(!f.scanner->isScanning());
    QCOMPARE(f.starts.count(), 1);
    QVERIFY(f.cancelled.isEmpty());
    const auto lines = log.lines();
    QVERIFY(lines.contains(QStringLiteral("Found device %1 on port 5 at baud rate 19200")
                               .arg(QString::fromStdString(device->friendlyText()))));
    QCOMPARE(lines.last(), QStringLiteral("Scan complete"));
}

void tst_HydSerialPortScanner::findsRecordersSideBySide()
{
    ScanFixture f;
    for (int i = 0; i < 20; ++i)
        QVERIFY(f.addRecorder(std::to_string(10 + i), 115200, static_cast<uint16_t>(500 + i)));
    f.scanner->scanPortsAll();
    QVERIFY(f.isComplete());
    QCOMPARE(f.found.count(), 20);
    for (const auto& arguments : f.found) {
        QCOMPARE(arguments[0].value<std::shared_ptr<HydDevice>>()->serial(),
                 uint16_t(490 + arguments[1].toInt()));
    }
}

void tst_HydSerialPortScanner::goesThroughTheRates()
{
    // Two seconds for each rate: both at the same time.
    ScanFixture f({19200, 115200});
    QVERIFY(f.addRecorder("2", 115200));
    QVERIFY(f.addRecorder("3", 115200, 100, 0, "silence:on=control"));
    HydSerialPortScanner other(QList<uint32_t>({115200}));
    connect(&other, &HydSerialPortScanner::startPortChecks, this, &VisibleOrder::pass);
    QSignalSpy otherFound(&other, &HydSerialPortScanner::deviceFound);
    QSignalSpy otherCompleted(&other, &HydSerialPortScanner::scanComplete);
    LogSpy log;
    f.scanner->scanPortName(QStringLiteral("2"));
    other.scanPortName(QStringLiteral("3"));
    QVERIFY(f.isComplete());
    QCOMPARE(f.foundPorts(), QStringList(QStringLiteral("2")));
    QCOMPARE(f.found.first()[2].toUInt(), 115200u);
    QTRY_COMPARE(otherCompleted.count(), 1);
    QVERIFY(otherFound.isEmpty());
    QCOMPARE(log.count(QStringLiteral("Nothing found on 3")), 1);
    // A blank more than behind an answer: intended.
    QCOMPARE(log.count(QStringLiteral("Scan complete ")), 1);
    QCOMPARE(log.count(QStringLiteral("Scan complete")), 1);
}

void tst_HydSerialPortScanner::selectsPorts_data()
{
    const QString wildcard = QRegularExpression::wildcardToRegularExpression(QStringLiteral("[^\\d]"));
    const QStringList all{QStringLiteral("-3"),    QStringLiteral("2"),
                          QStringLiteral("3"),     wildcard + u'8',
                          QStringLiteral("99"),    QStringLiteral("100"),
                          QStringLiteral("65538"), QStringLiteral("COM3"),
                          QStringLiteral("ttyS7"), QStringLiteral("4") + wildcard};
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<Scan>("scan");
    QTest::addColumn<QStringList>("expected");
    const auto range = [](uint16_t from, uint16_t to) {
        return Scan([from, to](HydSerialPortScanner& scanner) { scanner.scanComPortRange(from, to); });
    };
    QTest::newRow("all") << all << Scan([](HydSerialPortScanner& s) { s.scanPortsAll(); }) << all;
    QTest::newRow("by name") << all
                             << Scan([](HydSerialPortScanner& s) { s.scanPortName(QStringLiteral("COM3")); })
                             << QStringList(QStringLiteral("COM3"));
    // A name with a letter prefix counts as 0, and the text of the wildcard itself goes away: both intended.
    // A number below 0 is a large one from below: it passes too.
    QTest::newRow("2 to 99") << all << range(2, 99)
                             << QStringList{all[0], all[1], all[2], all[3], all[4], all[9]};
    QTest::newRow("only 3") << all << range(3, 3) << QStringList{all[0], all[2]};
    QTest::newRow("from 0") << all << range(0, 2) << QStringList{all[0], all[1], all[7], all[8]};
    QTest::newRow("to the largest") << all << range(100, 65535) << QStringList{all[0], all[5]};
    QTest::newRow("upside down") << all << range(99, 2) << QStringList{all[0]};
    QTest::newRow("by vendor") << all << Scan([](HydSerialPortScanner& s) { s.scanPortVid(0x0403); })
                               << QStringList{all[1], all[3], all[5], all[7], all[9]};
    QTest::newRow("without vendor") << all << Scan([](HydSerialPortScanner& s) { s.scanPortVid(0); })
                                    << QStringList{all[0], all[2], all[4], all[6], all[8]};
}

void tst_HydSerialPortScanner::selectsPorts()
{
    QFETCH(QStringList, names);
    QFETCH(Scan, scan);
    QFETCH(QStringList, expected);
    ScanFixture f;
    for (qsizetype i = 0; i < names.size(); ++i)
        QVERIFY(f.addRecorder(names[i].toStdString(), 115200, 100, i % 2 == 1 ? 0x0403 : 0));
    scan(*f.scanner);
    QVERIFY(f.isComplete());
    expected.sort();
    QCOMPARE(f.foundPorts(), expected);
}

void tst_HydSerialPortScanner::logsWhatItSelects()
{
    ScanFixture f;
    f.ports.setPorts({{"ttyS7", "/dev/null", 0x1234}, {"100", "/dev/null"}});
    LogSpy log;
    f.scanner->scanComPortRange(2, 99);
    QVERIFY(f.isComplete());
    QCOMPARE(log.lines(), QStringList({QStringLiteral("Skipping port 0 - Str: ttyS7"),
                                       QStringLiteral("Skipping port 100 - Str: 100")}));
    log.clear();
    f.scanner->scanPortVid(0x1234);
    QTRY_COMPARE(f.starts.count(), 1);
    QCOMPARE(log.lines().first(4), QStringList({QStringLiteral("Found a port with name: ttyS7"),
                                                QStringLiteral("Success, using port with name: ttyS7"),
                                                QStringLiteral("Found a port with name: 100"),
                                                QStringLiteral("Skipping port with name: 100")}));
}

void tst_HydSerialPortScanner::searchesForAType()
{
    ScanFixture f;
    f.scanner->setSearchDevType(DevTypeRecorderA);
    QVERIFY(f.addRecorder("2"));
    f.scanner->scanPortsAll();
    QVERIFY(f.isComplete());
    QCOMPARE(f.foundPorts(), QStringList(QStringLiteral("2")));
}

void tst_HydSerialPortScanner::takesAListOfPorts()
{
    ScanFixture f;
    QVERIFY(f.addRecorder("2"));
    f.scanner->handlePortInfoList(QSerialPortInfo::availablePorts());
    QVERIFY(!f.scanner->isScanning());
    QVERIFY(f.isComplete());
    QCOMPARE(f.found.count(), 1);
}

void tst_HydSerialPortScanner::scansAgain()
{
    ScanFixture f;
    QVERIFY(f.addRecorder("2"));
    for (int i = 1; i <= 3; ++i) {
        f.scanner->scanPortsAll();
        QVERIFY(f.isComplete(i));
        QCOMPARE(f.found.count(), i);
    }
    // Only the checkers of its own scan started.
    QCOMPARE(f.recorders.front()->counters().commands, uint64_t(3));
}

void tst_HydSerialPortScanner::noPortSelected()
{
    ScanFixture f;
    QVERIFY(f.addRecorder("2"));
    f.scanner->scanPortName(QStringLiteral("none"));
    QVERIFY(f.scanner->isScanning());
    QVERIFY(f.isComplete());
    QVERIFY(!f.scanner->isScanning());
    QVERIFY(f.starts.isEmpty());
    f.scanner->handlePortInfoList({});
    QCOMPARE(f.completed.count(), 2);
}

void tst_HydSerialPortScanner::noRates()
{
    ScanFixture f{QList<uint32_t>()};
    QVERIFY(f.addRecorder("2"));
    bool wasScanning = false;
    connect(f.scanner.get(), &HydSerialPortScanner::scanComplete, this,
            [&] { wasScanning |= f.scanner->isScanning(); });
    f.scanner->scanPortsAll();
    f.scanner->scanPortVid(0);
    f.scanner->scanPortName(QStringLiteral("2"));
    f.scanner->scanComPortRange(2, 99);
    // At once, without the event loop.
    QCOMPARE(f.completed.count(), 4);
    QVERIFY(!wasScanning && !f.scanner->isScanning());
    QVERIFY(f.starts.isEmpty());
}

void tst_HydSerialPortScanner::secondScanOnlyLogs()
{
    ScanFixture f;
    QVERIFY(f.addRecorder("2"));
    f.scanner->scanPortsAll();
    LogSpy log;
    f.scanner->scanPortsAll();
    f.scanner->scanPortVid(0);
    f.scanner->scanPortName(QStringLiteral("2"));
    f.scanner->scanComPortRange(2, 99);
    // Without rates too: they are looked at behind the flag.
    f.scanner->setBaudRates({});
    f.scanner->scanPortsAll();
    QCOMPARE(log.count(QStringLiteral("Scan already in progress!")), 5);
    QVERIFY(f.completed.isEmpty());
    f.scanner->setBaudRates({115200});
    QVERIFY(f.isComplete());
    QCOMPARE(f.starts.count(), 1);
    QCOMPARE(f.found.count(), 1);
}

void tst_HydSerialPortScanner::anotherTypeCountsAsAnswered()
{
    ScanFixture f;
    f.scanner->setSearchDevType(DevTypeTmi);
    QVERIFY(f.addRecorder("2"));
    LogSpy log;
    f.scanner->scanPortsAll();
    QVERIFY(f.isComplete());
    QVERIFY(f.found.isEmpty());
    QVERIFY(log.lines().filter(QStringLiteral("Found device")).isEmpty());
    QCOMPARE(log.count(QStringLiteral("Scan complete")), 1);
}

void tst_HydSerialPortScanner::onePortTwiceInTheList()
{
    ScanFixture f;
    QVERIFY(f.addRecorder("2"));
    const auto port = QSerialPortInfo::availablePorts().first();
    f.scanner->handlePortInfoList({port, port});
    // Whoever answers first takes the name from the list.
    QTRY_VERIFY(f.completed.count() >= 1);
    QVERIFY(f.found.count() >= 1);
}

void tst_HydSerialPortScanner::portsThatKeepTheEndFromComing_data()
{
    QTest::addColumn<QByteArray>("fault");
    QTest::newRow("port that can't be opened") << QByteArray();
    QTest::newRow("junk") << QByteArray("bad-checksum:on=control");
    QTest::newRow("cable pulled within the answer") << QByteArray("close:on=control,value=20");
}

void tst_HydSerialPortScanner::portsThatKeepTheEndFromComing()
{
    QFETCH(QByteArray, fault);
    ScanFixture f;
    QVERIFY(f.addRecorder("2"));
    if (fault.isEmpty())
        f.ports.addPort({"3", "/dev/nvx-no-such-port"});
    else
        QVERIFY(f.addRecorder("3", 115200, 7, 0, fault.constData()));
    f.scanner->scanPortsAll();
    QTRY_COMPARE(f.found.count(), 1);
    // Intended: only cancelling ends it.
    QVERIFY(spyStaysEmpty(f.completed, 50));
    QVERIFY(f.scanner->isScanning());
    f.scanner->cancelSearch();
    QCOMPARE(f.cancelled.count(), 1);
    QVERIFY(!f.scanner->isScanning());
    QVERIFY(f.completed.isEmpty());
}

void tst_HydSerialPortScanner::cancelStopsNothing()
{
    ScanFixture f;
    OwnLine line(f, "2");
    f.scanner->scanPortsAll();
    QVERIFY(line.isAsked());
    f.scanner->cancelSearch();
    f.scanner->cancelSearch();
    QCOMPARE(f.cancelled.count(), 2);
    QVERIFY(!f.scanner->isScanning());
    QVERIFY(line.answer(12));
    QVERIFY(f.isComplete());
    QCOMPARE(f.foundPorts(), QStringList(QStringLiteral("2")));
}

void tst_HydSerialPortScanner::cancelledWhileItLists()
{
    ScanFixture f;
    QVERIFY(f.addRecorder("2"));
    f.scanner->scanPortsAll();
    f.scanner->cancelSearch();
    QVERIFY(!f.scanner->isScanning());
    QVERIFY(f.isComplete());
    QCOMPARE(f.found.count(), 1);
    // The listing that a new scan replaces is heard no more.
    f.scanner->scanPortsAll();
    f.scanner->cancelSearch();
    f.scanner->scanPortName(QStringLiteral("none"));
    QVERIFY(f.isComplete(2));
    QCOMPARE(f.found.count(), 1);
    QCOMPARE(f.starts.count(), 1);
}

void tst_HydSerialPortScanner::rescanWaitsForOldCheckers()
{
    ScanFixture f;
    OwnLine line(f, "2");
    f.scanner->scanPortName(QStringLiteral("2"));
    QVERIFY(line.isAsked());
    f.scanner->cancelSearch();
    QVERIFY(f.addRecorder("3"));
    f.scanner->scanPortName(QStringLiteral("3"));
    QTRY_COMPARE(f.foundPorts(), QStringList(QStringLiteral("3")));
    // The old port still counts, and its answer is one of this scan.
    QVERIFY(f.completed.isEmpty());
    QVERIFY(f.scanner->isScanning());
    QVERIFY(line.answer(12));
    QVERIFY(f.isComplete());
    QCOMPARE(f.foundPorts(), QStringList({QStringLiteral("2"), QStringLiteral("3")}));
}

void tst_HydSerialPortScanner::rescanOfAPortThatIsStillAsked()
{
    ScanFixture f;
    OwnLine line(f, "2");
    f.scanner->scanPortsAll();
    QVERIFY(line.isAsked());
    f.scanner->cancelSearch();
    LogSpy log;
    f.scanner->scanPortsAll();
    // Two checkers on one port, or one where the system keeps the port for the first.
    QTRY_VERIFY(log.contains(QStringLiteral("START SCAN: ENQUIRE PORT 2@ 115200")) ||
                log.contains(QStringLiteral("Failed to open port 2")));
    QVERIFY(line.answer(12));
    QTRY_VERIFY(f.completed.count() >= 1);
    QCOMPARE(f.foundPorts().first(), QStringLiteral("2"));
    // All checkers are gone: a clean start.
    f.found.clear();
    f.completed.clear();
    QVERIFY(f.addRecorder("4"));
    f.scanner->scanPortName(QStringLiteral("4"));
    QVERIFY(f.isComplete());
    QCOMPARE(f.foundPorts(), QStringList(QStringLiteral("4")));
}

void tst_HydSerialPortScanner::endOfARescanEndsOldCheckers()
{
    ScanFixture f;
    OwnLine line(f, "2");
    f.scanner->scanPortName(QStringLiteral("2"));
    QVERIFY(line.isAsked());
    f.scanner->cancelSearch();
    f.scanner->scanPortName(QStringLiteral("none"));
    QVERIFY(f.isComplete());
    // Nothing of the first scan is waited for.
    QVERIFY(f.addRecorder("3"));
    f.scanner->scanPortName(QStringLiteral("3"));
    QVERIFY(f.isComplete(2));
    QCOMPARE(f.foundPorts(), QStringList(QStringLiteral("3")));
}

void tst_HydSerialPortScanner::scanFromASlotOfTheEnd()
{
    ScanFixture f;
    QVERIFY(f.addRecorder("2"));
    connect(
        f.scanner.get(), &HydSerialPortScanner::scanComplete, this, [&] { f.scanner->scanPortsAll(); },
        Qt::SingleShotConnection);
    f.scanner->scanPortsAll();
    QTRY_COMPARE(f.completed.count(), 2);
    QCOMPARE(f.found.count(), 2);
}

void tst_HydSerialPortScanner::secondAnswerIsNoneOfTheNextScan()
{
    ScanFixture f;
    OwnLine line(f, "2");
    connect(
        f.scanner.get(), &HydSerialPortScanner::scanComplete, this, [&] { f.scanner->scanPortsAll(); },
        Qt::SingleShotConnection);
    f.scanner->scanPortsAll();
    QVERIFY(line.isAsked());
    QVERIFY(line.answerTwice(12));
    QVERIFY(line.isAsked(2));
    QCOMPARE(f.completed.count(), 1);
    QCOMPARE(f.found.count(), 1);
    QVERIFY(f.scanner->isScanning());
    QVERIFY(line.answer(13));
    QVERIFY(f.isComplete(2));
    QCOMPARE(f.found.count(), 2);
}

void tst_HydSerialPortScanner::endedCheckersHearOfNoOtherScan()
{
    ScanFixture f;
    OwnLine line(f, "2");
    OpenScanner scanner;
    QSignalSpy completed(&scanner, &HydSerialPortScanner::scanComplete);
    scanner.scanPortsAll();
    QVERIFY(line.isAsked());
    // Beside the test's own. Those of a cancelled scan stay connected: intended.
    scanner.cancelSearch();
    QCOMPARE(scanner.startListeners(), 2);
    // Others would open their ports once more ahead of the checkers of the next scan, which then never
    // report.
    QVERIFY(line.answer(1));
    QVERIFY(completed.wait(kPatienceMs));
    QCOMPARE(scanner.startListeners(), 1);
}

QTEST_GUILESS_MAIN(tst_HydSerialPortScanner)
#include "tst_HydSerialPortScanner.moc"
