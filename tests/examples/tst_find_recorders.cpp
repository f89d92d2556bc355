#include "NvxQtSimulator/SimulatedRecorder.h"
#include "find-recorders/RecorderTable.h"
#include "tests/examples/ExampleRun.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"
#include "tests/support/PeerDevice.h"

#include <QCoreApplication>
#include <QNetworkInterface>

namespace {

constexpr const char* kPeerAddress = "10.77.0.9";
constexpr uint32_t kBaudRate = 115200;

/// Runs a program line to its end; the text that it says when it fails, else nothing.
QString run(const QString& line)
{
    QStringList words = line.split(u' ');
    const QString program = words.takeFirst();
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, words);
    if (process.waitForFinished() && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return {};
    return line + QStringLiteral(": ") + QString::fromUtf8(process.readAll()) + process.errorString();
}

HydDevice device(HydDeviceType type, uint16_t serial, const std::string& firmware = {})
{
    HydDevice record(type);
    record.setSerial(serial);
    record.setFirmwareVer(firmware);
    return record;
}

/// The words of the last row of a place in a program's output.
QString rowOf(const QString& output, const QString& place)
{
    QString found;
    for (const QString& line : output.split(u'\n')) {
        if (line.startsWith(place + u' '))
            found = line.simplified();
    }
    return found;
}

} // namespace

/// Runs the program until its output is as wanted, and asks it to end.
template <class Condition> void expectFound(QStringList arguments, Condition isComplete)
{
    arguments << QStringLiteral("--seconds") << QStringLiteral("3600");
    QProcess process;
    process.start(QStringLiteral(NVX_FIND_RECORDERS), arguments);
    QString output;
    const auto hasAll = [&] {
        output += QString::fromUtf8(process.readAllStandardOutput());
        return isComplete(output);
    };
    QVERIFY2(QTest::qWaitFor(hasAll, kPatienceMs), qPrintable(output));
    process.terminate();
    QVERIFY(process.waitForFinished(kPatienceMs));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(QString::fromUtf8(process.readAllStandardError()), QString());
}

/// The program find-recorders beside recorders of all kinds.
class tst_find_recorders : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void tableMergesWhatIsFoundAtAPlace();
    void findsInAllThreeWays();
    void withoutASearchItSimulates();
    // --- rainy day flows
    void nothingIsFound();
    void wrongUse_data();
    void wrongUse();

private:
    static ExampleRun runFinder(const QStringList& arguments)
    {
        return runExample(NVX_FIND_RECORDERS, arguments);
    }
};

void tst_find_recorders::tableMergesWhatIsFoundAtAPlace()
{
    RecorderTable table(false);
    QVERIFY(table.isEmpty());
    const QString ten = QStringLiteral("10.0.0.10");
    const QString nine = QStringLiteral("10.0.0.9");
    table.add(ten, device(DevTypeRecorderA, 7), QStringLiteral("broadcast"));
    table.add(nine, device(DevTypeTmi, 8, "2.0"), QStringLiteral("subnet scan"));
    QVERIFY(!table.isEmpty());
    table.complete(ten, device(DevTypeRecorderA, 7, "1.5"));
    // A way that finds it again counts once, and what a record doesn't say takes nothing away.
    table.add(ten, device(DevTypeRecorderA, 7), QStringLiteral("broadcast"));
    table.add(ten, device(DevTypeRecorderA, 7), QStringLiteral("subnet scan"));
    const QStringList lines = table.text().split(u'\n');
    QCOMPARE(lines.size(), 4);
    QCOMPARE(lines[0].simplified(), QStringLiteral("PLACE TYPE SERIAL FIRMWARE FOUND BY"));
    const auto type = [](HydDeviceType t) { return QString::fromStdString(deviceTypeText(t)); };
    QCOMPARE(lines[1].simplified(), nine + u' ' + type(DevTypeTmi) + QStringLiteral(" 8 2.0 subnet scan"));
    QCOMPARE(lines[2].simplified(),
             ten + u' ' + type(DevTypeRecorderA) + QStringLiteral(" 7 1.5 broadcast, subnet scan"));
    QVERIFY(lines[3].isEmpty());
}

void tst_find_recorders::findsInAllThreeWays()
{
    if (!isInOwnNetwork())
        QSKIP("no network namespace here, and broadcasts must not leave the machine");
    if (const QString failure = run(QStringLiteral("ip link add nvx0 type veth peer name nvx1"));
        !failure.isEmpty())
        QSKIP(qPrintable(QStringLiteral("no veth pair here: ") + failure));
    PeerDevice peer;
    QVERIFY2(peer.start({QStringLiteral("0.0.0.0"), QStringLiteral("--report-address"),
                         QLatin1String(kPeerAddress), QStringLiteral("--serial"), QStringLiteral("321")},
                        {QStringLiteral("unshare"), QStringLiteral("-n")}),
             qPrintable(peer.errorText()));
    const QString inside = QStringLiteral("nsenter -t %1 -n ip ").arg(peer.processId());
    QCOMPARE(run(QStringLiteral("ip link set nvx1 netns %1").arg(peer.processId())), QString());
    QCOMPARE(run(inside + QStringLiteral("addr add %1/24 dev nvx1").arg(QLatin1String(kPeerAddress))),
             QString());
    QCOMPARE(run(inside + QStringLiteral("link set nvx1 up")), QString());
    QCOMPARE(run(QStringLiteral("ip addr add 10.77.0.1/24 dev nvx0")), QString());
    QCOMPARE(run(QStringLiteral("ip link set nvx0 up")), QString());
    const auto flags = [] { return QNetworkInterface::interfaceFromName(QStringLiteral("nvx0")).flags(); };
    QTRY_VERIFY(flags().testFlag(QNetworkInterface::IsRunning));

    RecorderSettings settings;
    settings.address = QHostAddress(QStringLiteral("10.77.0.1"));
    settings.roles = RoleControl;
    settings.serialRate = kBaudRate;
    settings.identity.serial = 555;
    settings.identity.firmwareVersion = "3.1";
    SimulatedRecorder simulated(settings);
    QVERIFY(simulated.start());

    const QString type = QString::fromStdString(deviceTypeText(DevTypeRecorderA));
    const QString peerStart = QStringLiteral("%1 %2 321 2.7.1 ").arg(QLatin1String(kPeerAddress), type);
    const QString simulatedRow = QStringLiteral("10.77.0.1 %1 555 3.1 subnet scan").arg(type);
    const QString serialRow =
        QStringLiteral("%1 %2 555 3.1 serial port, 115200 bit/s").arg(simulated.serialPortName(), type);
    const auto hasAll = [&](const QString& output) {
        const QString peerRow = rowOf(output, QLatin1String(kPeerAddress));
        return peerRow.startsWith(peerStart) && peerRow.contains(QStringLiteral("broadcast")) &&
               peerRow.contains(QStringLiteral("subnet scan")) &&
               rowOf(output, QStringLiteral("10.77.0.1")) == simulatedRow &&
               rowOf(output, simulated.serialPortName()) == serialRow;
    };
    expectFound({QStringLiteral("--broadcast"), QStringLiteral("--subnet"), QStringLiteral("10.77.0."),
                 QStringLiteral("--serial"), simulated.serialPortName(), QStringLiteral("--baud"),
                 QString::number(kBaudRate)},
                hasAll);
}

void tst_find_recorders::withoutASearchItSimulates()
{
    expectFound({}, [](const QString& output) {
        return output.startsWith(QStringLiteral("Simulating 3 recorders in 127.88.0.0 to 255")) &&
               rowOf(output, QStringLiteral("127.88.0.9"))
                   .endsWith(QStringLiteral(" 1009 1.0 subnet scan")) &&
               rowOf(output, QStringLiteral("127.88.0.20"))
                   .endsWith(QStringLiteral(" 1020 2.4 subnet scan")) &&
               rowOf(output, QStringLiteral("127.88.0.120"))
                   .endsWith(QStringLiteral(" 1120 1.7 subnet scan"));
    });
}

void tst_find_recorders::nothingIsFound()
{
    const auto result = runFinder({QStringLiteral("--seconds"), QStringLiteral("1"),
                                   QStringLiteral("--subnet"), QStringLiteral("127.89.7."),
                                   QStringLiteral("--serial"), QStringLiteral("/dev/no-such-line")});
    QCOMPARE(result.code, 2);
    QVERIFY2(!result.output.contains(QStringLiteral("Recorder")), qPrintable(result.output));
}

void tst_find_recorders::wrongUse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("complaint");
    const auto row = [](const char* name, const char* option, const char* value, const char* complaint) {
        QTest::newRow(name) << QStringList{QLatin1String(option), QLatin1String(value)}
                            << QString::fromLatin1(complaint);
    };
    row("no time", "--seconds", "0", "--seconds takes a number from 1 to 3600.");
    row("too long a time", "--seconds", "3601", "--seconds takes a number from 1 to 3600.");
    row("a subnet without its last point", "--subnet", "10.0.0",
        "--subnet takes three numbers and their points, like 192.168.7. or 10.0.0.");
    row("a subnet of four numbers", "--subnet", "10.0.0.1.",
        "--subnet takes three numbers and their points, like 192.168.7. or 10.0.0.");
    row("a subnet of other text", "--subnet", "here.",
        "--subnet takes three numbers and their points, like 192.168.7. or 10.0.0.");
    row("no rate", "--baud", "fast", "--baud takes a number of bit/s, each once.");
    row("rate 0", "--baud", "0", "--baud takes a number of bit/s, each once.");
    QTest::newRow("a rate twice") << QStringList{QStringLiteral("--baud"), QStringLiteral("9600"),
                                                 QStringLiteral("--baud"), QStringLiteral("9600")}
                                  << QStringLiteral("--baud takes a number of bit/s, each once.");
}

void tst_find_recorders::wrongUse()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, complaint);
    const auto result = runFinder(arguments);
    QCOMPARE(result.code, 1);
    QCOMPARE(result.errors.trimmed(), QStringLiteral("find-recorders: ") + complaint);
    QVERIFY(result.output.isEmpty());
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    tst_find_recorders test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_find_recorders.moc"
