#include "NvxQtCommon/control/HydCommandAdapter.h"
#include "NvxQtCommon/discovery/HydSerialPortChecker.h"
#include "tests/control/ControlPeer.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SerialPair.h"
#include "tests/support/SpyWait.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <cstdio>
#include <optional>

namespace {

const QList<uint32_t> kRates{19200, 115200, 230400, 460800, 921600};

uint32_t rateOf(speed_t speed)
{
    switch (speed) {
    case B19200:
        return 19200;
    case B115200:
        return 115200;
    case B230400:
        return 230400;
    case B460800:
        return 460800;
    case B921600:
        return 921600;
    default:
        return 0;
    }
}

/// A checker on this thread, with everything that it says, and the other end of its line.
class Fixture
{
public:
    explicit Fixture(const QList<uint32_t>& rates = kRates, const QString& name = {})
        : port(name.isEmpty() ? line.portName() : name),
          checker(std::make_unique<HydSerialPortChecker>(port, rates)),
          answers(checker.get(), &HydSerialPortChecker::enquireResponse),
          nothings(checker.get(), &HydSerialPortChecker::noDeviceResponse),
          adapter(checker->findChild<HydCommandAdapter*>()),
          opened(adapter, &HydCommandAdapter::connectionOpen),
          closed(adapter, &HydCommandAdapter::connectionClosed),
          ready(adapter, &HydCommandAdapter::serialDataReady)
    {
        const auto timers = checker->findChildren<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
        if (timers.size() == 2) {
            writeTimer = timers[0];
            replyTimer = timers[1];
        }
    }

    bool isAsked()
    {
        const bool came =
            QTest::qWaitFor([&] { return (received += line.read()).size() >= enquiry.size(); }, kPatienceMs);
        const bool isEnquiry = came && received == enquiry;
        received.clear();
        return isEnquiry;
    }
    /// Asked, and the time for the answer runs.
    bool waits()
    {
        return isAsked() &&
               QTest::qWaitFor([&] { return replyTimer && replyTimer->isActive(); }, kPatienceMs);
    }
    /// Lets the time of a timer be over.
    static void runOut(QTimer* timer)
    {
        timer->stop();
        QMetaObject::invokeMethod(timer, "timeout", Qt::DirectConnection);
    }
    uint32_t lineRate() const { return rateOf(line.settings().c_ospeed); }
    bool isQuiet() const { return !writeTimer->isActive() && (!replyTimer || !replyTimer->isActive()); }
    uint32_t answeredRate() const { return answers.value(0).value(2).toUInt(); }

    SerialPair line;
    QString port;
    std::unique_ptr<HydSerialPortChecker> checker;
    QSignalSpy answers;
    QSignalSpy nothings;
    HydCommandAdapter* adapter;
    QSignalSpy opened;
    QSignalSpy closed;
    QSignalSpy ready;
    QPointer<QTimer> writeTimer;
    QPointer<QTimer> replyTimer;
    const QByteArray enquiry = frameOf(HydEnquireCmd());
    QByteArray received;
};

} // namespace

/// One serial port asked for a recorder, on pseudo terminals.
class tst_HydSerialPortChecker : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void tellsItsPortOnStandardOutput();
    void isMadeWithTimersAndFirstRate();
    void answeredAtEachRate_data();
    void answeredAtEachRate();
    void asksEveryRateAndGivesUp();
    void answerEndsAllWork();
    void replyCutAtEachByte();
    void namesWithOddCharacters_data();
    void namesWithOddCharacters();
    // --- rainy day flows
    void enquiryThatDoesNotLeave();
    void otherMessagesAreNoAnswer_data();
    void otherMessagesAreNoAnswer();
    void answerBehindJunk();
    void twoAnswersAreTwo();
    void portThatCannotBeOpenedSaysNothing();
    void unknownRateEndsTheWork();
    void refusedRatesArePassedOver();
    void rateTwiceLeadsBack();
    void noRatesAtAll();
    void askedAgainInTheMiddle();
    void askedAgainAfterTheAnswer();
    void lineThatVanishes_data();
    void lineThatVanishes();
    void deletedWhileItWaits();
};

void tst_HydSerialPortChecker::tellsItsPortOnStandardOutput()
{
    std::fflush(stdout);
    const int kept = dup(STDOUT_FILENO);
    int ends[2];
    QCOMPARE(pipe(ends), 0);
    dup2(ends[1], STDOUT_FILENO);
    const HydSerialPortChecker checker(QStringLiteral("/dev/nvx-no-such-port"), kRates);
    dup2(kept, STDOUT_FILENO);
    close(ends[1]);
    char text[200];
    const auto size = read(ends[0], text, sizeof text);
    close(ends[0]);
    close(kept);
    QCOMPARE(QByteArray(text, size), QByteArray("Checking serial port: /dev/nvx-no-such-port\n"));
}

void tst_HydSerialPortChecker::isMadeWithTimersAndFirstRate()
{
    Fixture f;
    QCOMPARE(f.adapter->parent(), f.checker.get());
    QCOMPARE(f.adapter->connType(), ConnSerial);
    QCOMPARE(f.adapter->baudRate(), 19200u);
    QVERIFY(f.port.endsWith(f.adapter->serialPortName()));
    QVERIFY(f.writeTimer->isSingleShot());
    QCOMPARE(f.writeTimer->interval(), 1000);
    QVERIFY(f.replyTimer->isSingleShot());
    QVERIFY(f.isQuiet());
    QVERIFY(!f.adapter->isConnected());
}

void tst_HydSerialPortChecker::answeredAtEachRate_data()
{
    QTest::addColumn<uint32_t>("rate");
    for (const auto rate : kRates)
        QTest::addRow("%u", rate) << rate;
}

void tst_HydSerialPortChecker::answeredAtEachRate()
{
    QFETCH(uint32_t, rate);
    Fixture f;
    LogSpy log;
    QStringList expected;
    f.checker->enquireAllRates();
    for (const auto tried : kRates) {
        QVERIFY(f.waits());
        QCOMPARE(f.lineRate(), tried);
        QVERIFY(!f.writeTimer->isActive());
        QCOMPARE(f.replyTimer->interval(), 2000);
        expected << QStringLiteral("%1ENQUIRE PORT %2@ %3")
                        .arg(tried == kRates.first() ? QStringLiteral("START SCAN: ") : QString(), f.port)
                        .arg(tried);
        if (tried == rate)
            break;
        Fixture::runOut(f.replyTimer);
    }
    QVERIFY(f.line.write(enquireReply(77)));
    QTRY_COMPARE(f.answers.count(), 1);
    const auto said = f.answers.first();
    QCOMPARE(said[0].value<std::shared_ptr<const HydEnquireCmd>>()->report().serial, uint16_t(77));
    QCOMPARE(said[1].toString(), f.port);
    QCOMPARE(said[2].toUInt(), rate);
    QCOMPARE(log.lines().filter(QStringLiteral("ENQUIRE PORT")), expected);
    QCOMPARE(f.opened.count(), 1);
    QCOMPARE(f.closed.count(), 1);
    QVERIFY(f.nothings.isEmpty());
}

void tst_HydSerialPortChecker::asksEveryRateAndGivesUp()
{
    Fixture f;
    std::optional<bool> wasOpen;
    connect(f.checker.get(), &HydSerialPortChecker::noDeviceResponse, this,
            [&] { wasOpen = f.adapter->isConnected(); });
    LogSpy log;
    f.checker->enquireAllRates();
    for (const auto rate : kRates) {
        QVERIFY(f.waits());
        QCOMPARE(f.lineRate(), rate);
        QVERIFY(f.nothings.isEmpty());
        Fixture::runOut(f.replyTimer);
    }
    QTRY_COMPARE(f.nothings.count(), 1);
    QCOMPARE(f.nothings.first().first().toString(), f.port);
    QCOMPARE(log.count(QStringLiteral("Nothing found on ") + f.port), 1);
    // The signal first, then the port.
    QVERIFY(wasOpen.value());
    QVERIFY(!f.adapter->isConnected());
    QVERIFY(f.isQuiet());
    QCOMPARE(f.opened.count(), 1);
    QCOMPARE(f.closed.count(), 1);
    QVERIFY(f.answers.isEmpty());
}

void tst_HydSerialPortChecker::answerEndsAllWork()
{
    Fixture f;
    std::optional<bool> wasOpen;
    connect(f.checker.get(), &HydSerialPortChecker::enquireResponse, this,
            [&] { wasOpen = f.adapter->isConnected(); });
    f.checker->enquireAllRates();
    QVERIFY(f.waits());
    QVERIFY(f.line.write(enquireReply(1)));
    QTRY_COMPARE(f.answers.count(), 1);
    // Here the port first.
    QVERIFY(!wasOpen.value());
    QVERIFY(f.isQuiet());
    QTRY_VERIFY(f.replyTimer.isNull());
    QVERIFY(f.line.read().isEmpty());
}

void tst_HydSerialPortChecker::replyCutAtEachByte()
{
    const auto reply = enquireReply(9);
    for (qsizetype at = 1; at < reply.size(); ++at) {
        Fixture f({115200});
        f.checker->enquireAllRates();
        QVERIFY(f.waits());
        QVERIFY(f.line.write(reply.first(at)));
        QTRY_VERIFY(f.ready.count() > 0);
        // The first byte ends the time for the rest.
        QVERIFY(f.isQuiet());
        QVERIFY(f.answers.isEmpty());
        QVERIFY(f.line.write(reply.sliced(at)));
        QTRY_COMPARE(f.answers.count(), 1);
    }
}

void tst_HydSerialPortChecker::namesWithOddCharacters_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("blanks") << QStringLiteral("  two  blanks ");
    QTest::newRow("place markers") << QStringLiteral("%1 %2 %n %%");
    QTest::newRow("other letters") << QString::fromUtf8("Bøye-№7 海");
    QTest::newRow("quotes and backslashes") << QStringLiteral("'\"\\[^\\d]");
    QTest::newRow("line break") << QStringLiteral("a\nb\tc");
}

void tst_HydSerialPortChecker::namesWithOddCharacters()
{
    QFETCH(QString, name);
    const QTemporaryDir folder;
    const QString path = folder.filePath(name);
    const SerialPair line;
    QVERIFY(QFile::link(line.portName(), path));
    Fixture f({115200}, path);
    LogSpy log;
    f.checker->enquireAllRates();
    QCOMPARE(f.opened.count(), 1);
    QCOMPARE(log.count(QStringLiteral("START SCAN: ENQUIRE PORT ") + path + QStringLiteral("@ 115200")), 1);
    Fixture::runOut(f.replyTimer);
    QTRY_COMPARE(f.nothings.count(), 1);
    QCOMPARE(f.nothings.first().first().toString(), path);
}

void tst_HydSerialPortChecker::enquiryThatDoesNotLeave()
{
    Fixture f({19200, 115200});
    const int other = open(f.port.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    QVERIFY(other >= 0);
    // The line takes nothing.
    QCOMPARE(tcflow(other, TCOOFF), 0);
    f.checker->enquireAllRates();
    QVERIFY(f.writeTimer->isActive());
    QVERIFY(!f.replyTimer->isActive());
    QCOMPARE(f.writeTimer->interval(), 1000);
    Fixture::runOut(f.writeTimer);
    QCOMPARE(f.lineRate(), 115200u);
    QVERIFY(f.writeTimer->isActive());
    QVERIFY(!f.replyTimer->isActive());
    Fixture::runOut(f.writeTimer);
    QCOMPARE(f.nothings.count(), 1);
    QVERIFY(f.line.read().isEmpty());
    close(other);
}

void tst_HydSerialPortChecker::otherMessagesAreNoAnswer_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("another message") << timeReply(5);
    QTest::newRow("one byte") << QByteArray("x");
    QTest::newRow("noise") << QByteArray(3000, '\xf0');
    QTest::newRow("half an answer") << enquireReply(3).first(20);
    auto spoilt = enquireReply(3);
    spoilt[20] = static_cast<char>(spoilt[20] ^ 1);
    QTest::newRow("answer that doesn't check") << spoilt;
}

void tst_HydSerialPortChecker::otherMessagesAreNoAnswer()
{
    QFETCH(QByteArray, bytes);
    Fixture f({19200, 115200});
    f.checker->enquireAllRates();
    QVERIFY(f.waits());
    QVERIFY(f.line.write(bytes));
    QTRY_VERIFY(f.ready.count() > 0);
    // The time for the answer is over for good, and nothing follows: intended.
    QVERIFY(f.isQuiet());
    QVERIFY(spyStaysEmpty(f.answers, 50));
    QVERIFY(f.nothings.isEmpty());
    QVERIFY(f.isQuiet());
    QCOMPARE(f.lineRate(), 19200u);
    QVERIFY(f.adapter->isConnected());
}

void tst_HydSerialPortChecker::answerBehindJunk()
{
    Fixture f({115200});
    f.checker->enquireAllRates();
    QVERIFY(f.waits());
    QVERIFY(f.line.write(QByteArray(900, '\xf0') + timeReply(1) + enquireReply(6)));
    QTRY_COMPARE(f.answers.count(), 1);
    QCOMPARE(f.answeredRate(), 115200u);
}

void tst_HydSerialPortChecker::twoAnswersAreTwo()
{
    Fixture f({115200});
    f.checker->enquireAllRates();
    QVERIFY(f.waits());
    QVERIFY(f.line.write(enquireReply(6) + enquireReply(7)));
    QTRY_COMPARE(f.answers.count(), 2);
    QTRY_VERIFY(f.replyTimer.isNull());
}

void tst_HydSerialPortChecker::portThatCannotBeOpenedSaysNothing()
{
    Fixture f(kRates, QStringLiteral("/dev/nvx-no-such-port"));
    LogSpy log;
    f.checker->enquireAllRates();
    QCOMPARE(log.count(QStringLiteral("Failed to open port nvx-no-such-port")), 1);
    // No answer and no end: intended.
    QVERIFY(f.isQuiet());
    QVERIFY(spyStaysEmpty(f.nothings, 50));
    QVERIFY(f.answers.isEmpty());
    QVERIFY(f.opened.isEmpty());
}

void tst_HydSerialPortChecker::unknownRateEndsTheWork()
{
    Fixture f({115200, 19200});
    f.checker->enquireAllRates();
    QVERIFY(f.waits());
    f.adapter->setBaudRate(4800);
    Fixture::runOut(f.replyTimer);
    QTRY_COMPARE(f.nothings.count(), 1);
    QVERIFY(!f.adapter->isConnected());
    QVERIFY(f.line.read().isEmpty());
}

void tst_HydSerialPortChecker::refusedRatesArePassedOver()
{
    Fixture f({19200, 0, 0xFFFFFFFF, 115200, 0});
    f.checker->enquireAllRates();
    QVERIFY(f.waits());
    Fixture::runOut(f.replyTimer);
    QVERIFY(f.waits());
    QCOMPARE(f.lineRate(), 115200u);
    QVERIFY(f.adapter->isConnected());
    Fixture::runOut(f.replyTimer);
    QTRY_COMPARE(f.nothings.count(), 1);
}

void tst_HydSerialPortChecker::rateTwiceLeadsBack()
{
    Fixture f({19200, 115200, 19200, 230400});
    f.checker->enquireAllRates();
    for (const uint32_t rate : {19200, 115200, 19200, 115200, 19200}) {
        QVERIFY(f.waits());
        QCOMPARE(f.lineRate(), rate);
        Fixture::runOut(f.replyTimer);
    }
    QVERIFY(f.nothings.isEmpty());
}

void tst_HydSerialPortChecker::noRatesAtAll()
{
    Fixture f(QList<uint32_t>{});
    f.checker->enquireAllRates();
    QVERIFY(f.waits());
    Fixture::runOut(f.replyTimer);
    QTRY_COMPARE(f.nothings.count(), 1);
}

void tst_HydSerialPortChecker::askedAgainInTheMiddle()
{
    Fixture f;
    f.checker->enquireAllRates();
    QVERIFY(f.waits());
    Fixture::runOut(f.replyTimer);
    QVERIFY(f.waits());
    QCOMPARE(f.lineRate(), 115200u);
    // The port is open: no new enquiry, but the first rate. It is passed over at the timeout: intended.
    f.checker->enquireAllRates();
    QCOMPARE(f.lineRate(), 19200u);
    QVERIFY(f.line.read().isEmpty());
    QCOMPARE(f.opened.count(), 1);
    Fixture::runOut(f.replyTimer);
    QVERIFY(f.waits());
    QCOMPARE(f.lineRate(), 115200u);
}

void tst_HydSerialPortChecker::askedAgainAfterTheAnswer()
{
    Fixture f;
    f.checker->enquireAllRates();
    QVERIFY(f.waits());
    QVERIFY(f.line.write(enquireReply(1)));
    QTRY_COMPARE(f.answers.count(), 1);
    QTRY_VERIFY(f.replyTimer.isNull());
    // Without a reply timer it waits for ever, and takes an answer still.
    f.checker->enquireAllRates();
    QVERIFY(f.isAsked());
    QCOMPARE(f.opened.count(), 2);
    QVERIFY(f.line.write(enquireReply(2)));
    QTRY_COMPARE(f.answers.count(), 2);
    QVERIFY(!f.adapter->isConnected());
    // The same where only the time for the writing ends.
    f.checker->enquireAllRates();
    QVERIFY(f.isAsked());
    QTRY_VERIFY(!f.writeTimer->isActive());
    for (qsizetype i = 1; i < kRates.size(); ++i) {
        Fixture::runOut(f.writeTimer);
        QVERIFY(f.isAsked());
        QCOMPARE(f.lineRate(), kRates[i]);
    }
    Fixture::runOut(f.writeTimer);
    QTRY_COMPARE(f.nothings.count(), 1);
}

void tst_HydSerialPortChecker::lineThatVanishes_data()
{
    QTest::addColumn<int>("step");
    QTest::addColumn<bool>("isReported");
    QTest::newRow("before it is opened") << 0 << false;
    QTest::newRow("while the enquiry leaves") << 1 << true;
    QTest::newRow("while it waits") << 2 << true;
    QTest::newRow("at a later rate") << 3 << true;
    QTest::newRow("behind half an answer") << 4 << false;
    QTest::newRow("behind the answer") << 5 << false;
}

void tst_HydSerialPortChecker::lineThatVanishes()
{
    QFETCH(int, step);
    QFETCH(bool, isReported);
    Fixture f;
    if (step == 0)
        f.line.hangUp();
    f.checker->enquireAllRates();
    if (step >= 2)
        QVERIFY(f.waits());
    if (step == 3) {
        Fixture::runOut(f.replyTimer);
        QVERIFY(f.waits());
    }
    if (step == 4) {
        QVERIFY(f.line.write(enquireReply(1).first(30)));
        QTRY_VERIFY(f.ready.count() > 0);
    }
    if (step == 5) {
        QVERIFY(f.line.write(enquireReply(1)));
        QTRY_COMPARE(f.answers.count(), 1);
    }
    f.line.hangUp();
    if (step > 0)
        QTRY_VERIFY(f.closed.count() > 0 && !f.adapter->isConnected());
    // Its timers go on through the rates; where none runs, nothing comes any more: intended.
    QCOMPARE(!f.isQuiet(), isReported);
    for (qsizetype left = kRates.size(); isReported && f.nothings.isEmpty() && left > 0; --left) {
        Fixture::runOut(f.writeTimer->isActive() ? f.writeTimer : f.replyTimer);
    }
    QCOMPARE(f.nothings.count(), isReported ? 1 : 0);
    QVERIFY(f.isQuiet());
    QCOMPARE(f.answers.count(), step == 5 ? 1 : 0);
}

void tst_HydSerialPortChecker::deletedWhileItWaits()
{
    Fixture f;
    f.checker->enquireAllRates();
    QVERIFY(f.waits());
    f.checker.reset();
    QCOMPARE(f.closed.count(), 1);
    QVERIFY(f.nothings.isEmpty());
    QVERIFY(f.answers.isEmpty());
}

QTEST_GUILESS_MAIN(tst_HydSerialPortChecker)
#include "tst_HydSerialPortChecker.moc"
