#include "AdapterFixture.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/SerialPair.h"

#include "NvxQtCommon/contract/message/HydControlPayloads.h"

#include <QDeadlineTimer>

#include <dlfcn.h>

#include <cerrno>

namespace {

const QString kAddress = QStringLiteral("127.21.5.1");

// Settings of a line are refused from this call on; 0 for never.
int g_refuseFrom = 0;
int g_settingCalls = 0;
int g_refusal = EINVAL;

} // namespace

/// Stands in front of the C library's function, so that a test can have settings refused.
extern "C" __attribute__((visibility("default"))) int tcsetattr(int fd, int action,
                                                                const termios* settings) noexcept
{
    static const auto real =
        reinterpret_cast<int (*)(int, int, const termios*)>(dlsym(RTLD_NEXT, "tcsetattr"));
    ++g_settingCalls;
    if (g_refuseFrom != 0 && g_settingCalls >= g_refuseFrom) {
        errno = g_refusal;
        return -1;
    }
    return real(fd, action, settings);
}

namespace {

std::shared_ptr<HydControlMsgPayload> enquire()
{
    return std::make_shared<HydEnquireCmd>();
}

/// Adapter on a serial line.
class SerialFixture : public AdapterFixture
{
public:
    SerialFixture() : AdapterFixture(kAddress, ConnSerial)
    {
        adapter.setSerialPortName(line.portName());
        adapter.setBaudRate(115200);
    }
    bool openLine()
    {
        adapter.openConnection();
        return adapter.isConnected();
    }
    /// Lets the adapter have exactly these bytes in one read: a terminal passes long ones on in pieces.
    bool deliverByLine(const QByteArray& bytes)
    {
        port->blockSignals(true);
        const bool arrived =
            line.write(bytes) &&
            QTest::qWaitFor([&] { return port->bytesAvailable() >= bytes.size(); }, kPatienceMs);
        port->blockSignals(false);
        return arrived && QMetaObject::invokeMethod(&adapter, "readStream", Qt::DirectConnection);
    }
    bool receives(const QByteArray& expected)
    {
        QByteArray all;
        return QTest::qWaitFor([&] { return (all += line.read()) == expected; }, kPatienceMs);
    }

    SerialPair line;
};

} // namespace

/// The channel over a serial line, with pseudo terminals.
class tst_HydCommandAdapterSerial : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        g_refuseFrom = 0;
        g_settingCalls = 0;
        g_refusal = EINVAL;
    }

    // --- happy flows
    void opensWithTheSettingsOfARecorder();
    void openSerConnectionTakesNameAndRate();
    void openSerConnectionClearsWhatWasReceived();
    void sendsAndReceives();
    void splitReply();
    void baudRateCanChangeWhileOpen();
    void closingReportsItself();
    void openingTwiceOpensOnce();
    void mirrorFollowsThePort();
    void closesWhenDestroyed();
    void closingLetsAnAcceptedCommandLeave_data();
    void closingLetsAnAcceptedCommandLeave();
    // --- rainy day flows
    void portThatIsNotThere_data();
    void portThatIsNotThere();
    void refusedSettingsAreLoggedOnly();
    void lineThatGoesAwayWhileItIsSetUp_data();
    void lineThatGoesAwayWhileItIsSetUp();
    void openPortCannotBeOpenedAgain();
    void sendOnAClosedPort();
    void seventhSendOpensAgain();
    void setTimeOnAWorkingPortResetsTheCount();
    void shortWrite();
    void hangUpClosesOnce();
    void recoversAfterHangUp();
    void baudRateOfAClosedPortIsKept();
    void junkOnTheLine();
    void collectedOverSerial();
    void withoutKeepConnectionThePortStaysOpen();
    void unreadBytesAreBounded();
};

void tst_HydCommandAdapterSerial::opensWithTheSettingsOfARecorder()
{
    SerialFixture f;
    QVERIFY(f.line.isValid());
    f.line.spoilSettings();
    LogSpy log;
    QVERIFY(f.openLine());
    QCOMPARE(f.opened.count(), 1);
    QVERIFY(f.errors.isEmpty());
    const auto settings = f.line.settings();
    QCOMPARE(settings.c_cflag & tcflag_t(CSIZE), tcflag_t(CS8));
    QCOMPARE(settings.c_cflag & tcflag_t(PARENB | CSTOPB | CRTSCTS), tcflag_t(0));
    QCOMPARE(settings.c_iflag & tcflag_t(IXON | IXOFF), tcflag_t(0));
    QCOMPARE(cfgetospeed(&settings), speed_t(B115200));
    QCOMPARE(cfgetispeed(&settings), speed_t(B115200));
    const auto name = f.adapter.serialPortName();
    const auto lines = log.lines();
    QVERIFY(lines.indexOf(QStringLiteral("opening port ") + name) >= 0);
    QVERIFY(lines.indexOf(name + QStringLiteral(" claims to be open")) >
            lines.indexOf(QStringLiteral("opening port ") + name));
}

void tst_HydCommandAdapterSerial::openSerConnectionTakesNameAndRate()
{
    AdapterFixture f(kAddress, ConnSerial);
    SerialPair line;
    f.adapter.openSerConnection(line.portName(), 19200);
    QCOMPARE(f.opened.count(), 1);
    QCOMPARE(f.adapter.baudRate(), 19200u);
    QVERIFY(line.portName().endsWith(f.adapter.serialPortName()));
    const auto settings = line.settings();
    QCOMPARE(cfgetospeed(&settings), speed_t(B19200));
    QCOMPARE(cfgetispeed(&settings), speed_t(B19200));
}

void tst_HydCommandAdapterSerial::openSerConnectionClearsWhatWasReceived()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    const auto reply = enquireReply(3);
    QSignalSpy ready(&f.adapter, &HydCommandAdapter::serialDataReady);
    QVERIFY(f.line.write(reply.first(20)));
    QTRY_VERIFY(ready.count() > 0 && f.port->bytesAvailable() == 0);
    f.adapter.closeConnection();
    f.adapter.openSerConnection(f.line.portName(), 115200);
    QVERIFY(f.line.write(reply.sliced(20) + timeReply(1)));
    QTRY_COMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapterSerial::sendsAndReceives()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    QSignalSpy written(&f.adapter, &HydCommandAdapter::serialDataWritten);
    QSignalSpy ready(&f.adapter, &HydCommandAdapter::serialDataReady);
    QVERIFY(f.adapter.sendCommand(enquire()));
    QVERIFY(f.receives(frameOf(*enquire())));
    QTRY_VERIFY(written.count() >= 1);
    QVERIFY(f.line.write(enquireReply(4) + timeReply(1)));
    QTRY_COMPARE(f.letters, QByteArray("EA"));
    QVERIFY(ready.count() >= 1);
    QVERIFY(f.errors.isEmpty());
}

void tst_HydCommandAdapterSerial::splitReply()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    const auto reply = enquireReply(4);
    QSignalSpy ready(&f.adapter, &HydCommandAdapter::serialDataReady);
    for (qsizetype at = 1; at < reply.size(); at += 5) {
        ready.clear();
        f.forget();
        QVERIFY(f.line.write(reply.first(at)));
        QTRY_VERIFY(ready.count() > 0);
        QVERIFY(f.line.write(reply.sliced(at)));
        QTRY_COMPARE(f.letters, QByteArray("E"));
    }
}

void tst_HydCommandAdapterSerial::baudRateCanChangeWhileOpen()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    // Bytes that wait at the old rate are dropped with the change.
    QVERIFY(f.line.write(enquireReply(1)));
    f.adapter.setBaudRate(460800);
    const auto settings = f.line.settings();
    QCOMPARE(cfgetospeed(&settings), speed_t(B460800));
    QVERIFY(f.line.write(timeReply(1)));
    QTRY_COMPARE(f.letters, QByteArray("A"));
    QVERIFY(f.errors.isEmpty());
}

void tst_HydCommandAdapterSerial::closingReportsItself()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    f.adapter.closeConnection();
    QCOMPARE(f.closed.count(), 1);
    QVERIFY(!f.adapter.isConnected());
    // Each call reports, and closing what is closed is no error.
    f.adapter.closeConnection();
    QCOMPARE(f.closed.count(), 2);
    QVERIFY(f.errors.isEmpty());
}

void tst_HydCommandAdapterSerial::openingTwiceOpensOnce()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    f.adapter.openConnection();
    QCOMPARE(f.opened.count(), 1);
    QVERIFY(f.errors.isEmpty());
}

void tst_HydCommandAdapterSerial::mirrorFollowsThePort()
{
    // Outlives the adapter, whose end is one more signal.
    QList<bool> seen;
    SerialFixture f;
    QVERIFY(!f.adapter.isChannelOpen());
    connect(&f.adapter, &HydCommandAdapter::connectionOpen, this, [&] { seen << f.adapter.isChannelOpen(); });
    connect(&f.adapter, &HydCommandAdapter::connectionClosed, this,
            [&] { seen << f.adapter.isChannelOpen(); });
    QVERIFY(f.openLine());
    f.adapter.closeConnection();
    QCOMPARE(seen, QList<bool>({true, false}));
}

void tst_HydCommandAdapterSerial::closesWhenDestroyed()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    f.owned.reset();
    QCOMPARE(f.closed.count(), 1);
    QVERIFY(f.errors.isEmpty());
}

void tst_HydCommandAdapterSerial::closingLetsAnAcceptedCommandLeave_data()
{
    QTest::addColumn<bool>("byDestructor");
    QTest::newRow("closed") << false;
    QTest::newRow("destroyed") << true;
}

void tst_HydCommandAdapterSerial::closingLetsAnAcceptedCommandLeave()
{
    QFETCH(bool, byDestructor);
    SerialFixture f;
    QVERIFY(f.openLine());
    QVERIFY(f.adapter.sendCommand(std::make_shared<HydResetCmd>()));
    if (byDestructor)
        f.owned.reset();
    else
        f.adapter.closeConnection();
    QCOMPARE(f.closed.count(), 1);
    QVERIFY(f.receives(frameOf(HydResetCmd())));
}

void tst_HydCommandAdapterSerial::portThatIsNotThere_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("no such file") << QStringLiteral("/dev/nvx-there-is-no-such-port");
    QTest::newRow("no terminal") << QStringLiteral("/dev/null");
    QTest::newRow("no name") << QString();
}

void tst_HydCommandAdapterSerial::portThatIsNotThere()
{
    QFETCH(QString, name);
    for (const bool isByOpenSer : {false, true}) {
        AdapterFixture f(kAddress, ConnSerial);
        LogSpy log;
        QString lineAtTheLastError;
        connect(&f.adapter, &HydCommandAdapter::error, this,
                [&] { lineAtTheLastError = log.lines().last(); });
        if (isByOpenSer) {
            f.adapter.openSerConnection(name, 115200);
        } else {
            f.adapter.setSerialPortName(name);
            f.adapter.openConnection();
        }
        QVERIFY(!f.adapter.isConnected());
        QVERIFY(!f.adapter.isChannelOpen());
        QVERIFY(f.opened.isEmpty());
        const auto line = QStringLiteral("Failed to open port ") + f.adapter.serialPortName();
        QCOMPARE(log.count(line), 1);
        // The line first, then its signal.
        QCOMPARE(lineAtTheLastError, line);
        // The port's own reports, and that of the failed opening.
        const auto reports = log.lines().filter(
            QStringLiteral("Serial port error on %1 QSerialPort::").arg(f.adapter.serialPortName()));
        QVERIFY(!reports.isEmpty());
        QCOMPARE(f.errors.count(), reports.size() + 1);
        QCOMPARE(f.errorCount(ErrPortFailure), f.errors.count());
        QVERIFY(f.errorList().back().second != int(QSerialPort::NoError));
    }
}

void tst_HydCommandAdapterSerial::refusedSettingsAreLoggedOnly()
{
    int firstOfTheLastFour = 0;
    {
        SerialFixture f;
        g_settingCalls = 0;
        QVERIFY(f.openLine());
        firstOfTheLastFour = g_settingCalls - 3;
    }
    QVERIFY(firstOfTheLastFour > 0);
    SerialFixture f;
    LogSpy log;
    g_settingCalls = 0;
    g_refuseFrom = firstOfTheLastFour;
    QVERIFY(f.openLine());
    QCOMPARE(f.opened.count(), 1);
    const auto lines = log.lines();
    for (const char* setting : {"setDataBits", "setParity", "setStopBits", "setFlowControl"}) {
        const auto text = QStringLiteral("Serial port (%1): ").arg(QLatin1String(setting));
        const auto found = lines.filter(text);
        QCOMPARE(found.size(), 1);
        QVERIFY(found[0].startsWith(text) && found[0].size() > text.size());
    }
    QVERIFY(log.contains(f.adapter.serialPortName() + QStringLiteral(" claims to be open")));
}

void tst_HydCommandAdapterSerial::lineThatGoesAwayWhileItIsSetUp_data()
{
    QTest::addColumn<int>("settingsBefore");
    for (const int settingsBefore : {0, 1, 2, 3})
        QTest::addRow("after %d settings", settingsBefore) << settingsBefore;
}

void tst_HydCommandAdapterSerial::lineThatGoesAwayWhileItIsSetUp()
{
    QFETCH(int, settingsBefore);
    int firstOfTheLastFour = 0;
    {
        SerialFixture f;
        g_settingCalls = 0;
        QVERIFY(f.openLine());
        firstOfTheLastFour = g_settingCalls - 3;
    }
    SerialFixture f;
    LogSpy log;
    g_settingCalls = 0;
    g_refuseFrom = firstOfTheLastFour + settingsBefore;
    g_refusal = EIO;
    QVERIFY(!f.openLine());
    QVERIFY(f.opened.isEmpty());
    QCOMPARE(f.closed.count(), 1);
    QVERIFY(!f.adapter.isChannelOpen());
    QCOMPARE(log.lines().filter(QStringLiteral("claims to be open")).size(), 0);
    QCOMPARE(log.count(QStringLiteral("Failed to open port ") + f.adapter.serialPortName()), 1);
    QCOMPARE(f.errorList().front(), std::pair(int(ErrPortFailure), int(QSerialPort::ResourceError)));
    QCOMPARE(f.errorCount(ErrPortFailure), f.errors.count());
    // The line is back.
    g_refuseFrom = 0;
    QVERIFY(f.openLine());
    QCOMPARE(f.opened.count(), 1);
}

void tst_HydCommandAdapterSerial::openPortCannotBeOpenedAgain()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    LogSpy log;
    f.adapter.openSerConnection(f.line.portName(), 115200);
    QCOMPARE(f.opened.count(), 1);
    QVERIFY(f.errorCount(ErrPortFailure) >= 1);
    QCOMPARE(f.errorList().back(), std::pair(int(ErrPortFailure), int(QSerialPort::OpenError)));
    QVERIFY(f.adapter.isConnected());
    QVERIFY(f.line.write(timeReply(1)));
    QTRY_COMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapterSerial::sendOnAClosedPort()
{
    SerialFixture f;
    QVERIFY(!f.adapter.sendCommand(enquire()));
    QCOMPARE(f.errorList(), (std::vector{std::pair(int(ErrNotConnected), int(QSerialPort::NoError))}));
}

void tst_HydCommandAdapterSerial::seventhSendOpensAgain()
{
    SerialFixture f;
    LogSpy log;
    qsizetype linesAtTheLoss = -1;
    connect(&f.adapter, &HydCommandAdapter::error, this, [&](HydControlError err) {
        if (err == ErrConnectionLost)
            linesAtTheLoss = log.lines().size();
    });
    for (int i = 1; i <= 6; ++i) {
        QVERIFY(!f.adapter.sendCommand(enquire()));
        QCOMPARE(f.errorCount(ErrNotConnected), i);
        QCOMPARE(f.errorCount(ErrConnectionLost), 0);
    }
    QVERIFY(!f.adapter.sendCommand(enquire()));
    QCOMPARE(f.errorCount(ErrNotConnected), 7);
    QCOMPARE(f.errorCount(ErrConnectionLost), 1);
    QCOMPARE(f.closed.count(), 1);
    QCOMPARE(f.opened.count(), 1);
    // The signal first, then its line, then the port.
    const auto line = QStringLiteral("The port is not connected, will be closed: %1 QSerialPort::NoError")
                          .arg(f.adapter.serialPortName());
    QCOMPARE(log.count(line), 1);
    QCOMPARE(log.lines().indexOf(line), linesAtTheLoss);
    QVERIFY(log.lines().indexOf(QStringLiteral("opening port ") + f.adapter.serialPortName()) >
            linesAtTheLoss);
    QVERIFY(f.adapter.sendCommand(enquire()));
    QVERIFY(f.receives(frameOf(*enquire())));

    // The count isn't set back by opening: the next send without a port opens at once.
    f.adapter.closeConnection();
    QVERIFY(!f.adapter.sendCommand(enquire()));
    QCOMPARE(f.errorCount(ErrConnectionLost), 2);
    QVERIFY(f.adapter.isConnected());
}

void tst_HydCommandAdapterSerial::setTimeOnAWorkingPortResetsTheCount()
{
    SerialFixture f;
    for (int i = 0; i < 6; ++i)
        f.adapter.sendCommand(enquire());
    QVERIFY(f.openLine());
    QVERIFY(f.adapter.sendCommand(std::make_shared<HydSetTimeCmd>(1)));
    f.adapter.closeConnection();
    for (int i = 0; i < 6; ++i)
        f.adapter.sendCommand(enquire());
    QCOMPARE(f.errorCount(ErrConnectionLost), 0);
    f.adapter.sendCommand(enquire());
    QCOMPARE(f.errorCount(ErrConnectionLost), 1);
}

void tst_HydCommandAdapterSerial::shortWrite()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    // A port that takes no bytes.
    f.port->close();
    QVERIFY(f.port->open(QIODevice::ReadOnly));
    f.forget();
    LogSpy log;
    const auto line = QStringLiteral("Error writing bytes. ") + f.adapter.serialPortName();
    bool wasLogged = false;
    connect(&f.adapter, &HydCommandAdapter::error, this, [&] { wasLogged = log.contains(line); });
    QTest::ignoreMessage(QtWarningMsg, "QIODevice::write (QSerialPort): ReadOnly device");
    QVERIFY(!f.adapter.sendCommand(enquire()));
    QCOMPARE(f.errorList(), (std::vector{std::pair(int(ErrSerialWrite), int(QSerialPort::NoError))}));
    QCOMPARE(log.count(line), 1);
    // Here the line first.
    QVERIFY(wasLogged);
}

void tst_HydCommandAdapterSerial::hangUpClosesOnce()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    LogSpy log;
    f.line.hangUp();
    QTRY_COMPARE(f.closed.count(), 1);
    QVERIFY(!f.adapter.isConnected());
    QVERIFY(!f.adapter.isChannelOpen());
    const auto said = log.lines().filter(
        QStringLiteral("Serial port error on %1 QSerialPort::").arg(f.adapter.serialPortName()));
    QCOMPARE(said.size(), f.errors.count());
    QVERIFY(f.errors.count() >= 1);
    QCOMPARE(f.errorCount(ErrPortFailure), f.errors.count());
    // The system repeats the error for as long as the port is open: in each turn of the event loop.
    f.forget();
    SerialPair back;
    f.adapter.openSerConnection(back.portName(), 115200);
    QVERIFY(back.write(timeReply(1)));
    QTRY_COMPARE(f.letters, QByteArray("A"));
    QVERIFY(f.errors.isEmpty());
    QVERIFY(f.closed.isEmpty());
}

void tst_HydCommandAdapterSerial::recoversAfterHangUp()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    f.line.hangUp();
    QTRY_COMPARE(f.closed.count(), 1);
    SerialPair back;
    f.adapter.setSerialPortName(back.portName());
    for (int i = 0; i < 7; ++i)
        f.adapter.sendCommand(enquire());
    QCOMPARE(f.errorCount(ErrConnectionLost), 1);
    QCOMPARE(f.opened.count(), 2);
    QVERIFY(back.write(timeReply(1)));
    QTRY_COMPARE(f.letters, QByteArray("A"));
}

void tst_HydCommandAdapterSerial::baudRateOfAClosedPortIsKept()
{
    SerialFixture f;
    f.adapter.setBaudRate(921600);
    QCOMPARE(f.adapter.baudRate(), 921600u);
    QVERIFY(f.errors.isEmpty());
    QVERIFY(f.openLine());
    const auto settings = f.line.settings();
    QCOMPARE(cfgetospeed(&settings), speed_t(B921600));
}

void tst_HydCommandAdapterSerial::junkOnTheLine()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    QVERIFY(f.line.write(QByteArray(3000, '\xff')));
    QVERIFY(f.line.write(enquireReply(8)));
    QTRY_COMPARE(f.letters, QByteArray("E"));
    QVERIFY(f.errors.isEmpty());
}

void tst_HydCommandAdapterSerial::collectedOverSerial()
{
    SerialFixture f;
    QVERIFY(f.openLine());
    QVERIFY(f.deliverByLine(collectReply(0x20, 500)));
    QVERIFY(f.letters.isEmpty());
    QVERIFY(f.line.write(collectReply(0x10)));
    QTRY_COMPARE(f.letters, QByteArray("C"));
    QCOMPARE(frameOf(*f.responses[0]), collectReply(0x20, 500));
}

void tst_HydCommandAdapterSerial::withoutKeepConnectionThePortStaysOpen()
{
    // Only a socket is closed after a message; the poll isn't set going all the same. Intended.
    SerialFixture f;
    f.adapter.setKeepConnection(false);
    QVERIFY(f.openLine());
    QVERIFY(f.line.write(timeReply(1)));
    QTRY_COMPARE(f.letters, QByteArray("A"));
    QVERIFY(!f.scanTimer->isActive());
    QVERIFY(f.line.write(enquireReply(4)));
    QTRY_COMPARE(f.letters, QByteArray("AE"));
    QVERIFY(f.adapter.isConnected());
    QVERIFY(f.closed.isEmpty());
}

void tst_HydCommandAdapterSerial::unreadBytesAreBounded()
{
    constexpr qint64 kMost = 2621440;
    SerialFixture f;
    QCOMPARE(f.port->readBufferSize(), kMost);
    // Without a poll nothing is read once the staging buffer is full.
    f.adapter.setDataScanConf(0, 0);
    QVERIFY(f.openLine());
    const QByteArray block(4096, 'x');
    const auto fillLine = [&] {
        while (f.line.write(block)) {
        }
    };
    // Some 4 KiB go over a pseudo terminal at a time.
    for (const QDeadlineTimer end(kPatienceMs); f.port->bytesAvailable() < kMost && !end.hasExpired();) {
        fillLine();
        QCoreApplication::processEvents();
    }
    QCOMPARE(f.port->bytesAvailable(), kMost);
    for (int i = 0; i < 20; ++i) {
        fillLine();
        QCoreApplication::processEvents();
    }
    QCOMPARE(f.port->bytesAvailable(), kMost);
    QVERIFY(f.errors.isEmpty());
}

QTEST_GUILESS_MAIN(tst_HydCommandAdapterSerial)
#include "tst_HydCommandAdapterSerial.moc"
