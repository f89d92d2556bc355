#include "NvxQtSimulator/FaultPlan.h"
#include "NvxQtSimulator/SignalSource.h"
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
    QString m_summary;

    void start(const QStringList& arguments)
    {
        m_program.start(QStringLiteral(NVX_RECORDER_SIMULATOR), arguments);
        QVERIFY(m_program.waitForStarted());
    }
    QString startAndRead(const QString& arguments)
    {
        return startAndRead(arguments.split(QLatin1Char(' '), Qt::SkipEmptyParts));
    }
    /// Starts one recorder on free ports and connects to its wave stream.
    bool openWaves(RawPeer& peer, const QString& arguments)
    {
        const QString address = QStringLiteral("127.98.0.6");
        const QString output =
            startAndRead(QStringLiteral("--address ") + address + QStringLiteral(" --ports 0 ") + arguments);
        const auto match =
            QRegularExpression(QStringLiteral("waveform   TCP 127.98.0.6:(\\d+)")).match(output);
        return match.hasMatch() && peer.open(QHostAddress(address), match.captured(1).toUShort());
    }
    /// Ends the program; what it says of all that it did.
    QString summary()
    {
        m_program.terminate();
        m_program.waitForFinished();
        return m_summary = QString::fromUtf8(m_program.readAllStandardOutput());
    }
    /// Its output up to the line "ready"; empty when that didn't come.
    QString startAndRead(const QStringList& arguments)
    {
        start(arguments);
        QByteArray output;
        while (!output.contains("ready\n")) {
            if (!m_program.waitForReadyRead(kPatienceMs))
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
        for (const char* option : {"--address",      "--count",       "--serial",          "--rate",
                                   "--depth",        "--order",       "--channels",        "--signal",
                                   "--fault",        "--seed",        "--ports",           "--duration",
                                   "--type",         "--frequency",   "--end-frequency",   "--level",
                                   "--blocks",       "--backlog",     "--unpaced",         "--stream-seconds",
                                   "--no-discovery", "--serial-rate", "--impulse-seconds", "--impulse-length",
                                   "--impulse-level"})
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

    void waveOptionsReachTheStream_data()
    {
        QTest::addColumn<QString>("options");
        QTest::addColumn<SignalSettings>("signal");
        QTest::addColumn<int>("bits");
        QTest::addColumn<bool>("bigEndian");
        QTest::addColumn<int>("channels");
        const auto row = [](const char* name, const char* options, SignalSettings::Kind kind,
                            double frequency, double endFrequency, double level, int bits = 24,
                            bool bigEndian = false, int channels = 1) {
            SignalSettings signal;
            signal.kind = kind;
            signal.frequency = frequency;
            signal.endFrequency = endFrequency;
            signal.levelDb = level;
            signal.seed = 5;
            QTest::newRow(name) << QString::fromLatin1(options) << signal << bits << bigEndian << channels;
        };
        row("as it comes", "", SignalSettings::Tone, 1000.0, 8000.0, -20.0);
        row("frequency", "--frequency 437.5", SignalSettings::Tone, 437.5, 8000.0, -20.0);
        row("level", "--level -3.5", SignalSettings::Tone, 1000.0, 8000.0, -3.5);
        row("sweep", "--signal sweep --frequency 100 --end-frequency 3000", SignalSettings::Sweep, 100.0,
            3000.0, -20.0);
        row("noise", "--signal noise", SignalSettings::Noise, 1000.0, 8000.0, -20.0);
        row("impulses", "--signal impulses", SignalSettings::Impulses, 1000.0, 8000.0, -20.0);
        SignalSettings bursts;
        bursts.kind = SignalSettings::Impulses;
        bursts.seed = 5;
        bursts.impulseSeconds = 0.05;
        bursts.impulseLength = 0.025;
        bursts.impulseLevelDb = -1.5;
        QTest::newRow("bursts") << QStringLiteral("--signal impulses --impulse-seconds 0.05 --impulse-length "
                                                  "0.025 --impulse-level -1.5")
                                << bursts << 24 << false << 1;
        row("depth 16", "--depth 16", SignalSettings::Tone, 1000.0, 8000.0, -20.0, 16);
        row("depth 32", "--depth 32", SignalSettings::Tone, 1000.0, 8000.0, -20.0, 32);
        row("order", "--order big", SignalSettings::Tone, 1000.0, 8000.0, -20.0, 24, true);
        row("channels", "--channels 3 --order little", SignalSettings::Tone, 1000.0, 8000.0, -20.0, 24, false,
            3);
    }
    void waveOptionsReachTheStream()
    {
        QFETCH(QString, options);
        QFETCH(SignalSettings, signal);
        QFETCH(int, bits);
        QFETCH(bool, bigEndian);
        QFETCH(int, channels);
        RawPeer peer;
        QVERIFY(openWaves(peer, options + QStringLiteral(" --rate 8000 --seed 5")));
        peer.startStream();
        QVERIFY(peer.waitForFrames(2, 2));
        const RawStreamFrame header = peer.streamFrames(1).front();
        QCOMPARE(header.waveRate(), 8000U);
        QCOMPARE(uchar(header.chunk(4).at(6)), uchar(bits / 8 + (bigEndian ? 0x80 : 0)));
        QCOMPARE(int(header.chunk(11).at(0)), channels);
        const SampleFormat format{unsigned(bits) / 8, bigEndian, unsigned(channels)};
        const SignalSource source(signal, 8000);
        for (const RawStreamFrame& frame : peer.streamFrames(2)) {
            QByteArray expected(qsizetype(frame.samples()) * channels * bits / 8, 0);
            source.fill(uint64_t(frame.sequence()) + frame.position(), frame.samples(), format,
                        reinterpret_cast<unsigned char*>(expected.data()));
            QCOMPARE(frame.sampleBytes(), expected);
        }
    }

    void typeReachesTheReport_data()
    {
        QTest::addColumn<int>("type");
        for (const int type : {5, 7, 15})
            QTest::addRow("%d", type) << type;
    }
    void typeReachesTheReport()
    {
        QFETCH(int, type);
        QVERIFY(
            !startAndRead(QStringLiteral("--address 127.98.0.5 --ports 0 --type %1").arg(type)).isEmpty());
        RawPeer control;
        QVERIFY(control.open(QHostAddress(QStringLiteral("127.98.0.5")), 50000));
        QCOMPARE(int(uchar(control.ask('E').payload.at(0))), type);
    }

    void blocksAreAsManyASecond()
    {
        RawPeer peer;
        QVERIFY(openWaves(peer, QStringLiteral("--rate 8000 --blocks 50")));
        peer.startStream();
        QVERIFY(peer.waitForFrames(2, 3));
        for (const RawStreamFrame& frame : peer.streamFrames(2))
            QCOMPARE(int(frame.samples()), 160);
    }

    void unpacedStreamHasSoManySeconds()
    {
        RawPeer peer;
        QVERIFY(openWaves(peer, QStringLiteral("--rate 100 --blocks 1 --unpaced --stream-seconds 300")));
        peer.startStream();
        // By the clock it would take five minutes.
        QVERIFY(peer.waitForFrames(2, 300));
        QVERIFY2(summary().contains(QStringLiteral("samples sent 30000, dropped 0, withheld 0, ")),
                 qPrintable(m_summary));
        QCOMPARE(peer.streamFrames(1).size(), size_t{300});
        QCOMPARE(peer.streamFrames(2).size(), size_t{300});
    }

    void backlogDecidesWhatASlowReaderLoses_data()
    {
        QTest::addColumn<QString>("backlog");
        QTest::addColumn<bool>("loses");
        QTest::newRow("small") << QStringLiteral("10000") << true;
        QTest::newRow("large") << QStringLiteral("1000000000") << false;
    }
    void backlogDecidesWhatASlowReaderLoses()
    {
        QFETCH(QString, backlog);
        QFETCH(bool, loses);
        // 16 MB a second against a reader that takes nothing. A busy machine is given more time.
        bool lost = false;
        for (int duration = 1; duration <= 8 && !lost; duration *= 2) {
            RawPeer peer;
            QVERIFY(openWaves(peer, QStringLiteral("--rate 512000 --depth 32 --channels 8 --signal ramp "
                                                   "--duration %1 --backlog %2")
                                        .arg(duration)
                                        .arg(backlog)));
            peer.socket.setReadBufferSize(1);
            peer.socket.disconnect(&peer);
            peer.startStream();
            peer.socket.flush();
            QVERIFY(m_program.waitForFinished());
            lost =
                !QString::fromUtf8(m_program.readAllStandardOutput()).contains(QStringLiteral(" dropped 0,"));
            if (!loses)
                break;
        }
        QCOMPARE(lost, loses);
    }

    void discoveryCanBeLeftOut()
    {
        const QString output = startAndRead(QStringLiteral("--address 127.98.0.7 --ports 0 --no-discovery"));
        QVERIFY(output.contains(QStringLiteral("control    TCP 127.98.0.7:50000")));
        QVERIFY2(!output.contains(QStringLiteral("discovery")), qPrintable(output));
    }

    // --- rainy day flows
    void wrongOptionsAreNamed_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("complaint");
        const auto row = [](const char* option, const char* value, const char* complaint) {
            QTest::addRow("%s %s", option, value)
                << QStringList{QLatin1String(option), QLatin1String(value)}
                << QStringLiteral("recorder-simulator: ") + QLatin1String(complaint);
        };
        row("--type", "6", "--type takes one of: 5, 7, 15.");
        row("--serial", "0", "--serial takes a number from 1 to 65535.");
        row("--serial", "65536", "--serial takes a number from 1 to 65535.");
        row("--rate", "0", "--rate takes a number from 1 to 512000.");
        row("--rate", "512001", "--rate takes a number from 1 to 512000.");
        row("--depth", "20", "--depth takes one of: 16, 24, 32.");
        row("--order", "odd", "--order takes one of: little, big.");
        row("--channels", "0", "--channels takes a number from 1 to 8.");
        row("--channels", "9", "--channels takes a number from 1 to 8.");
        row("--blocks", "0", "--blocks takes a number from 1 to 1000.");
        row("--blocks", "1001", "--blocks takes a number from 1 to 1000.");
        row("--backlog", "-1", "--backlog takes a number from 0 to 1099511627776.");
        row("--backlog", "1099511627777", "--backlog takes a number from 0 to 1099511627776.");
        row("--stream-seconds", "-1", "--stream-seconds takes a number from 0 to 4294967295.");
        row("--stream-seconds", "4294967296", "--stream-seconds takes a number from 0 to 4294967295.");
        row("--duration", "x", "--duration takes a number from 0 to 2000000.");
        row("--seed", "x", "--seed takes a number from 0 to 18446744073709551615.");
        row("--frequency", "high", "--frequency takes a number.");
        row("--frequency", "nan", "--frequency takes a number.");
        row("--end-frequency", "1k", "--end-frequency takes a number.");
        row("--end-frequency", "inf", "--end-frequency takes a number.");
        row("--signal", "song", "--signal takes one of: tone, sweep, noise, ramp, impulses.");
        row("--impulse-seconds", "x", "--impulse-seconds takes a number.");
        row("--impulse-length", "x", "--impulse-length takes a number.");
        row("--impulse-level", "x", "--impulse-level takes a number.");
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
