#include "NvxQtSimulator/FaultPlan.h"
#include "RawPeer.h"
#include "tests/support/NvxTestCase.h"

#include <QProcess>
#include <QRegularExpression>

// The program recorder-simulator as a process of its own.

class tst_recorder_simulator : public NvxTestCase
{
    Q_OBJECT

private:
    QProcess m_program;

    void start(const QStringList& arguments)
    {
        m_program.start(QStringLiteral(NVX_RECORDER_SIMULATOR), arguments);
        QVERIFY(m_program.waitForStarted());
    }
    /// Its output up to the line "ready"; empty when that didn't come.
    QString startAndRead(const QStringList& arguments)
    {
        start(arguments);
        QByteArray output;
        while (!output.contains("ready\n")) {
            if (!m_program.waitForReadyRead(10000))
                return {};
            output += m_program.readAllStandardOutput();
        }
        return QString::fromUtf8(output);
    }

private Q_SLOTS:
    void cleanup()
    {
        m_program.kill();
        m_program.waitForFinished();
    }

    // --- happy flows
    void helpNamesEveryFault()
    {
        start({QStringLiteral("--help")});
        QVERIFY(m_program.waitForFinished());
        QCOMPARE(m_program.exitCode(), 0);
        // Help is broken into lines.
        const QString help = QString::fromUtf8(m_program.readAllStandardOutput()).simplified();
        for (const QString& name : FaultRule::names())
            QVERIFY2(help.contains(name), qPrintable(name));
        for (const char* option : {"--address", "--count", "--serial", "--rate", "--depth", "--order",
                                   "--channels", "--signal", "--fault", "--seed", "--ports", "--duration"})
            QVERIFY2(help.contains(QLatin1String(option)), option);
    }

    void tellsWhereItListensAndStopsWhenTold()
    {
        const QString output = startAndRead(
            {QStringLiteral("--address"), QStringLiteral("127.98.0.1"), QStringLiteral("--count"),
             QStringLiteral("2"), QStringLiteral("--serial"), QStringLiteral("700"),
             QStringLiteral("--ports"), QStringLiteral("0"), QStringLiteral("--rate"),
             QStringLiteral("96000"), QStringLiteral("--signal"), QStringLiteral("ramp"),
             QStringLiteral("--fault"), QStringLiteral("loss:after=1000000"), QStringLiteral("--seed"),
             QStringLiteral("99")});
        QVERIFY2(output.contains(
                     QStringLiteral("recorder 700\n  control    TCP 127.98.0.1:50000\n"
                                    "  discovery  UDP 127.98.0.1:62726\n  waveform   TCP 127.98.0.1:")),
                 qPrintable(output));
        QVERIFY(output.contains(QStringLiteral("recorder 701\n  control    TCP 127.98.0.2:50000\n")));
        QVERIFY(output.contains(QStringLiteral("seed 99\n")));

        const auto match =
            QRegularExpression(QStringLiteral("waveform   TCP 127.98.0.2:(\\d+)")).match(output);
        RawPeer peer;
        QVERIFY(peer.open(QHostAddress(QStringLiteral("127.98.0.2")), match.captured(1).toUShort()));
        peer.startStream();
        QVERIFY(peer.waitForFrames(2, 3));
        QCOMPARE(peer.streamFrames(1).front().waveRate(), 96000U);
        m_program.terminate();
        QVERIFY(m_program.waitForFinished());
        QCOMPARE(m_program.exitStatus(), QProcess::NormalExit);
        QCOMPARE(m_program.exitCode(), 0);
        const QString summary = QString::fromUtf8(m_program.readAllStandardOutput());
        QVERIFY2(summary.contains(QStringLiteral("streams 1, ")), qPrintable(summary));
    }

    void endsAfterItsDuration()
    {
        QVERIFY(!startAndRead({QStringLiteral("--address"), QStringLiteral("127.98.0.3"),
                               QStringLiteral("--duration"), QStringLiteral("1")})
                     .isEmpty());
        QVERIFY(m_program.waitForFinished());
        QCOMPARE(m_program.exitCode(), 0);
    }

    // --- rainy day flows
    void wrongOptionsAreNamed_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("complaint");
        const auto row = [](const char* option, const char* value, const char* complaint) {
            QTest::newRow(option) << QStringList{QLatin1String(option), QLatin1String(value)}
                                  << QStringLiteral("recorder-simulator: ") + QLatin1String(complaint);
        };
        row("--rate", "512001", "--rate takes a number from 1 to 512000.");
        row("--depth", "20", "--depth takes one of: 16, 24, 32.");
        row("--order", "odd", "--order takes one of: little, big.");
        row("--channels", "9", "--channels takes a number from 1 to 8.");
        row("--signal", "song", "--signal takes one of: tone, sweep, noise, ramp.");
        row("--level", "loud", "--level takes a number.");
        row("--address", "somewhere", "--address takes an IPv4 address.");
        row("--ports", "1,2,3", "--ports takes four numbers with commas between, or a single 0.");
        row("--ports", "1,2,3,70000", "\"70000\" is no port.");
        row("--fault", "thunder", "There is no fault \"thunder\".");
        row("--count", "0", "--count takes a number from 1 to 4096.");
    }
    void wrongOptionsAreNamed()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, complaint);
        start(arguments);
        QVERIFY(m_program.waitForFinished());
        QCOMPARE(m_program.exitCode(), 1);
        QCOMPARE(QString::fromUtf8(m_program.readAllStandardError()), complaint + QLatin1Char('\n'));
    }

    void takenAddressIsNamed()
    {
        QVERIFY(!startAndRead({QStringLiteral("--address"), QStringLiteral("127.98.0.4")}).isEmpty());
        QProcess second;
        second.start(QStringLiteral(NVX_RECORDER_SIMULATOR),
                     {QStringLiteral("--address"), QStringLiteral("127.98.0.4")});
        QVERIFY(second.waitForFinished());
        QCOMPARE(second.exitCode(), 1);
        QVERIFY(
            second.readAllStandardError().startsWith("recorder-simulator: TCP port 50000 of 127.98.0.4: "));
    }
};

QTEST_GUILESS_MAIN(tst_recorder_simulator)
#include "tst_recorder_simulator.moc"
