#include "ExampleRun.h"
#include "NvxQtSimulator/SimulatedRecorder.h"
#include "tests/support/DiaryLines.h"
#include "tests/support/NvxTestCase.h"

#include "NvxQtCommon/contract/message/HydTrigger.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <csignal>

// The example triggers as its users run it.

class tst_triggers : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<SimulatedRecorder> m_recorder;

    /// A recorder with a tone of 1000 Hz; the arguments that lead to it follow by at().
    bool startRecorder(const char* address, const char* fault = "")
    {
        RecorderSettings settings;
        settings.address = QHostAddress(QLatin1String(address));
        settings.wavePort = settings.spectrumPort = settings.sensorPort = settings.epochPort = 0;
        if (*fault != 0) {
            FaultPlan plan(1);
            plan.add(FaultRule::fromText(QLatin1String(fault)).value());
            settings.faults = plan;
        }
        m_recorder = std::make_unique<SimulatedRecorder>(settings);
        return m_recorder->start();
    }
    QStringList at() const
    {
        return {QStringLiteral("--address"), m_recorder->settings().address.toString(),
                QStringLiteral("--epoch-port"), QString::number(m_recorder->streamPort(StreamEpoch))};
    }
    QString out() const { return m_folder->filePath(QStringLiteral("some/where")); }
    ExampleRun run(const QStringList& arguments)
    {
        return runExample(NVX_TRIGGERS, QStringList{QStringLiteral("--out"), out()} + arguments);
    }
    static QStringList set(const QStringList& triggers)
    {
        QStringList arguments;
        for (const QString& trigger : triggers)
            arguments << QStringLiteral("--set") << trigger;
        return arguments;
    }
    /// Letters of the commands that came since the last call.
    QByteArray newLetters()
    {
        const auto arrivals = m_recorder->commandArrivals();
        QByteArray letters;
        for (size_t i = m_seen; i < arrivals.size(); ++i)
            letters += arrivals[i].letter;
        m_seen = arrivals.size();
        return letters;
    }
    QStringList diary() const { return diaryLines(out()); }
    size_t m_seen = 0;

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_folder = std::make_unique<QTemporaryDir>();
        QVERIFY(m_folder->isValid());
        m_seen = 0;
    }
    void cleanup()
    {
        m_recorder.reset();
        m_folder.reset();
    }

    // --- happy flows
    void worksOnARecorderOfItsOwn()
    {
        const ExampleRun ended = run({});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        QVERIFY(ended.output.contains(QStringLiteral("Simulating a recorder at 127.0.0.")));
        QVERIFY(ended.output.endsWith(QStringLiteral("Triggers of the recorder: none\n")));
        // Nothing was watched.
        QVERIFY(!QDir(out()).exists());
    }

    void setsListsAndClears()
    {
        QVERIFY(startRecorder("127.99.5.1"));
        const ExampleRun first =
            run(at() + set({"1,10-2000,above,5000,30,5", "200,0-4294967295,below,-32768"}));
        QVERIFY2(first.code == 0, qPrintable(first.errors));
        const QString list =
            QStringLiteral("  trigger 1  10-2000 Hz above 5000 µPa for 30 s, held 5 s\n"
                           "  trigger 200  0-4294967295 Hz below -32768 µPa for 0 s, held 0 s\n");
        QCOMPARE(first.output, "Triggers of the recorder: none\nTriggers from now on:\n" + list);
        QCOMPARE(newLetters(), QByteArray("EFRSSR"));
        const auto held = m_recorder->triggers();
        QCOMPARE(held.size(), size_t(2));
        const auto one = std::dynamic_pointer_cast<HydTrigger_5_6>(held[0]);
        QCOMPARE(one->minFreq(), 10U);
        QCOMPARE(one->maxFreq(), 2000U);
        QCOMPARE(int(one->threshold()), 5000);
        QCOMPARE(int(one->duration()), 30);
        QCOMPARE(int(one->eventHold()), 5);
        QCOMPARE(int(one->enabled()), 1);
        QCOMPARE(one->testType(), TestTypeAbove);
        QCOMPARE(held[1]->testType(), TestTypeBelow);

        const ExampleRun listed = run(at());
        QCOMPARE(listed.code, 0);
        QCOMPARE(listed.output, "Triggers of the recorder:\n" + list);
        QCOMPARE(newLetters(), QByteArray("EFR"));

        // Only what differs is sent.
        const ExampleRun changed =
            run(at() + set({"1,10-2000,above,6000,30,5", "200,0-4294967295,below,-32768"}));
        QCOMPARE(changed.code, 0);
        QVERIFY(changed.output.endsWith("from now on:\n" + QString(list).replace("5000", "6000")));
        QCOMPARE(newLetters(), QByteArray("EFRSR"));

        const ExampleRun cleared = run(at() + QStringList{"--clear"});
        QCOMPARE(cleared.code, 0);
        QVERIFY(cleared.output.endsWith("Triggers from now on: none\n"));
        QCOMPARE(newLetters(), QByteArray("EFRUR"));
        QVERIFY(m_recorder->triggers().empty());
    }

    void watchesAndKeepsADiary()
    {
        QVERIFY(startRecorder("127.99.5.2"));
        const ExampleRun ended = run(at() + set({"1,900-1100,above,5000", "2,5000-6000,above,5000"}) +
                                     QStringList{"--watch", "2"});
        QVERIFY2(ended.code == 0, qPrintable(ended.errors));
        QVERIFY2(ended.output.contains(QRegularExpression("\\d\\d:\\d\\d:\\d\\d  trigger 1: Started\n")),
                 qPrintable(ended.output));
        QVERIFY(!ended.output.contains("trigger 2: Started"));
        QVERIFY(ended.output.contains("Diary: " + out() + "/VEEpoch_"));
        const QStringList lines = diary();
        QCOMPARE(lines.size(), 3);
        QVERIFY(lines[0].endsWith(", P, Logging Started"));
        QVERIFY(
            lines[1].endsWith(", U, 1234, E, 1, Started, S, 1, 900-1100 Hz,  > 5000 uPa, Duration (sec): 0"));
        QVERIFY(lines[2].endsWith(", P, 1234, , , Logging Finished"));
    }

    void watchesWhatIsSetAlready()
    {
        QVERIFY(startRecorder("127.99.5.3"));
        QCOMPARE(run(at() + set({"7,5000-6000,above,5000"})).code, 0);
        newLetters();
        const ExampleRun ended = run(at() + QStringList{"--watch", "1"});
        QCOMPARE(ended.code, 0);
        QVERIFY(ended.output.contains("Watching for 1 s\nNo trigger fired.\n"));
        QCOMPARE(newLetters(), QByteArray("EFR"));
        QCOMPARE(m_recorder->triggers().size(), size_t(1));
    }

    // --- rainy day flows
    void refusedTriggers()
    {
        QVERIFY(startRecorder("127.99.5.4", "refuse-trigger:after=1"));
        const ExampleRun ended = run(at() + set({"1,10-100,above,5", "2,10-100,above,5"}));
        QCOMPARE(ended.code, 3);
        QVERIFY2(ended.output.contains("The recorder says: Trigger 2: The threshold is out of range.\n"),
                 qPrintable(ended.output));
        QVERIFY(
            ended.output.endsWith("from now on:\n  trigger 1  10-100 Hz above 5 µPa for 0 s, held 0 s\n"));
        QVERIFY2(ended.errors.endsWith(QStringLiteral("triggers: the recorder didn't take all triggers.\n")),
                 qPrintable(ended.errors));
    }

    void silentRecorder()
    {
        QVERIFY(startRecorder("127.99.5.5", "silence:on=control"));
        const ExampleRun ended = run(at() + QStringList{"--patience", "1"});
        QCOMPARE(ended.code, 3);
        QVERIFY2(ended.errors.endsWith(
                     QStringLiteral("triggers: the recorder doesn't answer on its command channel.\n")),
                 qPrintable(ended.errors));
    }

    void nobodyThere()
    {
        const ExampleRun ended = run({"--address", "127.99.5.6", "--patience", "1"});
        QCOMPARE(ended.code, 2);
        QVERIFY2(ended.errors.endsWith(QStringLiteral("triggers: no recorder answers at 127.99.5.6.\n")),
                 qPrintable(ended.errors));
    }

    void epochStreamIsRefused()
    {
        QVERIFY(startRecorder("127.99.5.7"));
        const ExampleRun ended =
            run({"--address", "127.99.5.7", "--epoch-port", "1", "--watch", "1", "--set", "1,1-2,above,3"});
        QCOMPARE(ended.code, 3);
        QVERIFY2(ended.errors.endsWith(
                     QStringLiteral("triggers: the recorder refuses its epoch stream on port 1.\n")),
                 qPrintable(ended.errors));
        QVERIFY(m_recorder->triggers().empty());
    }

    void epochStreamIsLost()
    {
        QVERIFY(startRecorder("127.99.5.9", "close:on=epoch"));
        const ExampleRun ended = run(at() + set({"1,900-1100,above,5000"}) + QStringList{"--watch", "60"});
        QCOMPARE(ended.code, 3);
        QVERIFY2(ended.errors.endsWith(QStringLiteral("triggers: the recorder's epoch stream was lost.\n")),
                 qPrintable(ended.errors));
    }

    void diaryCannotBeWritten()
    {
        const QString path = m_folder->filePath(QStringLiteral("file"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        const ExampleRun ended =
            runExample(NVX_TRIGGERS, {"--watch", "1", "--out", path + QStringLiteral("/below")});
        QCOMPARE(ended.code, 5);
        QVERIFY(ended.errors.contains("can't be made."));
    }

    void interruptionClosesTheDiary()
    {
        QVERIFY(startRecorder("127.99.5.8"));
        QProcess process;
        process.start(QStringLiteral(NVX_TRIGGERS),
                      QStringList{"--out", out(), "--watch", "1000"} + at() + set({"1,900-1100,above,5000"}));
        QByteArray output;
        QVERIFY(QTest::qWaitFor(
            [&] {
                return (output += process.readAllStandardOutput()).contains("trigger 1: Started") &&
                       output.contains("Watching");
            },
            15000));
        ::kill(pid_t(process.processId()), SIGINT);
        QVERIFY(QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, 15000));
        QCOMPARE(process.exitCode(), 0);
        QVERIFY(!diary().isEmpty());
        QVERIFY(diary().last().endsWith("Logging Finished"));
    }

    void wrongUse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("no number") << QStringList{"--set", "x,1-2,above,3"};
        QTest::newRow("number too large") << QStringList{"--set", "256,1-2,above,3"};
        QTest::newRow("frequency too large") << QStringList{"--set", "1,1-4294967296,above,3"};
        QTest::newRow("threshold too large") << QStringList{"--set", "1,1-2,above,32768"};
        QTest::newRow("threshold too small") << QStringList{"--set", "1,1-2,above,-32769"};
        QTest::newRow("duration too large") << QStringList{"--set", "1,1-2,above,3,65536"};
        QTest::newRow("hold too large") << QStringList{"--set", "1,1-2,above,3,1,65536"};
        QTest::newRow("40 digits") << QStringList{"--set", "1,1-2,above," + QString(40, '9')};
        QTest::newRow("neither above nor below") << QStringList{"--set", "1,1-2,near,3"};
        QTest::newRow("too much") << QStringList{"--set", "1,1-2,above,3,4,5,6"};
        QTest::newRow("twice") << QStringList{"--set", "1,1-2,above,3", "--set", "1,1-2,above,4"};
        QTest::newRow("set and clear") << QStringList{"--set", "1,1-2,above,3", "--clear"};
        QTest::newRow("watch") << QStringList{"--watch", "-1"};
        QTest::newRow("patience") << QStringList{"--patience", "0"};
        QTest::newRow("port") << QStringList{"--epoch-port", "0"};
        QTest::newRow("address") << QStringList{"--address", "here"};
    }
    void wrongUse()
    {
        QFETCH(QStringList, arguments);
        const ExampleRun ended = run(arguments);
        QCOMPARE(ended.code, 1);
        QVERIFY(ended.errors.startsWith("triggers: "));
        QVERIFY(ended.output.isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_triggers)
#include "tst_triggers.moc"
