#include "NvxQtCommon/control/SActiveTrigger.h"
#include "tests/support/NvxTestCase.h"

#include <QScopeGuard>

#include <ctime>

namespace {

constexpr qint64 kTime = 1614837967; // 2021-03-04 06:06:07 UTC
const QString kLine =
    QStringLiteral("2021-03-04 05:06:07, SN 1234, Epoch 3, Seq 100, 10-1000 > 5000uPa, 30s");

SActiveTrigger parsed(const QString& line, TrigType type = TrigDevice)
{
    return SActiveTrigger(line, type);
}

SActiveTrigger occurrence(TrigType type, uint8_t state)
{
    SActiveTrigger active = parsed(kLine, type);
    active.type = type;
    active.state = state;
    active.trigger.setPreTrigger(7);
    active.trigger.setEventHold(9);
    return active;
}

QString lineOf(const SActiveTrigger& active, int percent = 0, int measDur = 0, int measCount = 0)
{
    return active.logMes(QDateTime(QDate(2021, 3, 4), QTime(5, 6, 7)), percent, measDur, measCount);
}

} // namespace

class tst_SActiveTrigger : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void freshRecord()
    {
        const SActiveTrigger active;
        QCOMPARE(active.time, uint64_t{0});
        QCOMPARE(active.seq, uint64_t{0});
        QCOMPARE(active.count, 0U);
        QCOMPARE(active.measCount, 0U);
        QCOMPARE(int(active.state), 0);
        QCOMPARE(active.type, TrigProgram);
        QVERIFY(active.fileName.isEmpty());
        QVERIFY(active.devId == HydDeviceId());
        QCOMPARE((QList<int>{TrigProgram, TrigDevice, TrigInvalid}), (QList<int>{0, 1, 2}));
    }

    void startedLine()
    {
        const SActiveTrigger active = parsed(kLine);
        QCOMPARE(active.type, TrigDevice);
        QCOMPARE(int(active.trigger.eventTrg().type), int(TrigDevice));
        QCOMPARE(int(active.trigger.trgRegime()), 2);
        QCOMPARE(int(active.state), 2);
        QCOMPARE(QDateTime::fromSecsSinceEpoch(qint64(active.time)),
                 QDateTime(QDate(2021, 3, 4), QTime(5, 6, 7)));
        QCOMPARE(active.devId.serialNo(), uint16_t{1234});
        QCOMPARE(int(active.trigger.trigNum()), 3);
        QCOMPARE(active.seq, uint64_t{100});
        QCOMPARE(active.trigger.minFreq(), 10U);
        QCOMPARE(active.trigger.maxFreq(), 1000U);
        QCOMPARE(active.trigger.testType(), TestTypeAbove);
        QCOMPARE(active.trigger.threshold(), int16_t{5000});
        QCOMPARE(active.trigger.duration(), uint16_t{30});
    }

    void endedLine()
    {
        const SActiveTrigger active = parsed(QStringLiteral("2021-03-04 05:06:37, SN 1234, Epoch 3, Ended"));
        QCOMPARE(active.type, TrigDevice);
        QCOMPARE(int(active.trigger.eventTrg().type), int(TrigDevice));
        QCOMPARE(int(active.state), 6);
        QCOMPARE(int(active.trigger.trgRegime()), 0);
        QCOMPARE(active.devId.serialNo(), uint16_t{1234});
        QCOMPARE(int(active.trigger.trigNum()), 3);
        QCOMPARE(active.seq, uint64_t{0});
    }

    void belowAThreshold()
    {
        const SActiveTrigger active = parsed(QString(kLine).replace('>', '<'));
        QCOMPARE(active.trigger.testType(), TestTypeBelow);
    }

    void largestSequence()
    {
        QCOMPARE(parsed(QString(kLine).replace("100,", "18446744073709551615,")).seq, uint64_t{UINT64_MAX});
    }

    void texts_data()
    {
        QTest::addColumn<int>("state");
        QTest::addColumn<QString>("text");
        const char* const texts[] = {"Inactive",
                                     "Pre-Event",
                                     "Started",
                                     "Trigger's message",
                                     "Active",
                                     "Post-Event",
                                     "Ended",
                                     "Active",
                                     "Trigger's message",
                                     "Streaming is Started",
                                     "WAV Streaming is Started",
                                     "FFT Streaming is Started",
                                     "File WAV Streaming is Started",
                                     "File FFT Streaming is Started",
                                     "Streaming is Stopped",
                                     "File Streaming is Stopped",
                                     "Trigger's message"};
        int state = 0;
        for (const char* text : texts) {
            QTest::addRow("%d", state) << state << QString::fromLatin1(text);
            ++state;
        }
        QTest::newRow("255") << 255 << QStringLiteral("Trigger's message");
    }
    void texts()
    {
        QFETCH(int, state);
        QFETCH(QString, text);
        SActiveTrigger active;
        active.state = static_cast<uint8_t>(state);
        QCOMPARE(active.mes(false), text);
        QCOMPARE(active.mes(true), text);
    }

    void lines_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("state");
        QTest::addColumn<QString>("line");
        const QString band = QStringLiteral(", S, 100, 10-1000 Hz,  > 5000 uPa, Duration (sec): ");
        const auto row = [](const char* name, TrigType type, int state, const QString& line) {
            QTest::newRow(name) << int(type) << state
                                << QStringLiteral("2021-03-04 05:06:07, ") + line + '\n';
        };
        row("program, pre-event", TrigProgram, 1, "P, 1234, E, 4, Pre-Event" + band + "7");
        row("program, started", TrigProgram, 2, "P, 1234, E, 4, Started" + band + "30");
        row("program, post-event", TrigProgram, 5, "P, 1234, E, 4, Post-Event" + band + "9");
        row("program, ended", TrigProgram, 6, "P, 1234, E, 4, Ended, S, 100");
        // The digits run together: intended.
        row("program, active", TrigProgram, 4, "P, 1234, E, 4, Active, S, 10030");
        row("program, inactive", TrigProgram, 0, "P, 1234, E, 4, Inactive, S, 10030");
        row("program, message", TrigProgram, 8, "P, 1234, E, 4, Trigger's message, S, 10030");
        row("program, unknown", TrigProgram, 16, "P, 1234, E, 4, Trigger's message, S, 10030");
        row("device, started", TrigDevice, 2, "U, 1234, E, 3, Started" + band + "30");
        row("device, ended", TrigDevice, 6, "U, 1234, E, 3, Ended");
        row("device, active", TrigDevice, 4, "U, 1234, E, 3");
        row("invalid, started", TrigInvalid, 2, "U, 1234, E, 3");
        row("stream of a program", TrigProgram, 9, "P, 1234, , , Streaming is Started");
        row("waves of a device", TrigDevice, 10, "D, 1234, , , WAV Streaming is Started");
        row("spectra of a device", TrigDevice, 11, "D, 1234, , , FFT Streaming is Started");
        row("wave file", TrigProgram, 12,
            "P, 1234, , ,  *************** File: a.wav *************** \n2021-03-04 05:06:07, P, 1234, , , "
            "File WAV Streaming is Started");
        row("spectrum file", TrigDevice, 13,
            "D, 1234, , ,  *************** File: a.wav *************** \n2021-03-04 05:06:07, D, 1234, , , "
            "File FFT Streaming is Started");
        row("stop", TrigDevice, 14, "D, 1234, , , Streaming is Stopped");
        row("stop of a file", TrigInvalid, 15, "D, 1234, , , File Streaming is Stopped");
    }
    void lines()
    {
        QFETCH(int, type);
        QFETCH(int, state);
        QFETCH(QString, line);
        SActiveTrigger active = occurrence(TrigType(type), static_cast<uint8_t>(state));
        active.fileName = QStringLiteral("a.wav");
        QCOMPARE(lineOf(active), line);
    }

    void lineBelowAThreshold()
    {
        SActiveTrigger active = occurrence(TrigProgram, 2);
        active.trigger.setTestType(TestTypeBelow);
        QVERIFY(lineOf(active).contains(" Hz,  < 5000 uPa"));
    }

    void percentage_data()
    {
        QTest::addColumn<int>("percent");
        QTest::addColumn<int>("measDur");
        QTest::addColumn<int>("wholeCount");
        QTest::addColumn<unsigned>("measCount");
        QTest::addColumn<QString>("end");
        QTest::newRow("a third") << 50 << 1 << 3 << 1U << ", 33.3333%";
        QTest::newRow("all") << 99 << 1 << 4 << 4U << ", 100%";
        QTest::newRow("more than all") << 1 << 1 << 4 << 6U << ", 150%";
        QTest::newRow("0 percent") << 0 << 1 << 4 << 4U << "";
        QTest::newRow("100 percent") << 100 << 1 << 4 << 4U << "";
        QTest::newRow("no count of the record") << 50 << 1 << 4 << 0U << "";
        QTest::newRow("no duration") << 50 << 0 << 4 << 4U << "";
        QTest::newRow("no count") << 50 << 1 << 0 << 4U << "";
        QTest::newRow("a count below 0") << 50 << 1 << -4 << 4U << "";
    }
    void percentage()
    {
        QFETCH(int, percent);
        QFETCH(int, measDur);
        QFETCH(int, wholeCount);
        QFETCH(unsigned, measCount);
        QFETCH(QString, end);
        SActiveTrigger active = occurrence(TrigProgram, 6);
        active.measCount = measCount;
        QCOMPARE(lineOf(active, percent, measDur, wholeCount),
                 "2021-03-04 05:06:07, P, 1234, E, 4, Ended, S, 100" + end + '\n');
        // Not for a device.
        active.type = TrigDevice;
        QVERIFY(!lineOf(active, percent, measDur, wholeCount).contains('%'));
    }

    void timeOfTheLine()
    {
        SActiveTrigger active = occurrence(TrigProgram, 6);
        active.time = kTime;
        QCOMPARE(active.logTime(), QDateTime::fromSecsSinceEpoch(kTime));
        QCOMPARE(active.logTime().timeSpec(), Qt::UTC);
        QVERIFY(active.logMes(0, 0, 0).startsWith("2021-03-04 06:06:07, P"));
        active.type = TrigDevice;
        QCOMPARE(active.logTime().timeSpec(), Qt::LocalTime);
        // The digits of a device's line come back, wherever the computer stands.
        QVERIFY(parsed(kLine).logMes(0, 0, 0).startsWith("2021-03-04 05:06:07, U"));
    }

    void blanksAroundTheTime()
    {
        const uint64_t time = parsed(kLine).time;
        QVERIFY(time != 0);
        QCOMPARE(parsed(QStringLiteral("  \t") + kLine).time, time);
        QCOMPARE(parsed(QString(kLine).replace("05:06:07,", "05:06:07 \t ,")).time, time);
    }

    // --- rainy day flows
    void linesThatAreNone_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<int>("regime");
        QTest::newRow("empty") << QString() << 0;
        QTest::newRow("three fields") << QStringLiteral("2021-03-04 05:06:07, SN 1234, Epoch 3") << 0;
        QTest::newRow("no epoch") << QString(kLine).replace("Epoch", "Era") << 0;
        QTest::newRow("epoch in another case") << QString(kLine).replace("Epoch", "epoch") << 0;
        QTest::newRow("no sequence") << QString(kLine).replace("Seq", "Number") << 0;
        QTest::newRow("four fields") << QStringLiteral("2021-03-04 05:06:07, SN 1234, Epoch 3, Seq 100") << 0;
        QTest::newRow("five fields") << QStringLiteral(
                                            "2021-03-04 05:06:07, SN 1234, Epoch 3, Seq 100, 10-1000 > 5uPa")
                                     << 0;
    }
    void linesThatAreNone()
    {
        QFETCH(QString, line);
        QFETCH(int, regime);
        const SActiveTrigger active = parsed(line);
        QCOMPARE(active.type, TrigInvalid);
        QCOMPARE(int(active.trigger.trgRegime()), regime);
        QCOMPARE(int(active.state), 0);
    }

    void hostileFields_data()
    {
        QTest::addColumn<QString>("line");
        const QString begin = QStringLiteral("2021-03-04 05:06:07, ");
        QTest::newRow("no digits") << begin + "SN, Epoch, Seq, , ";
        QTest::newRow("40 digits") << begin + "SN " + QString(40, '9') + ", Epoch " + QString(40, '9') +
                                          ", Seq " + QString(40, '9') + ", " + QString(40, '9') + "-" +
                                          QString(40, '9') + " > " + QString(40, '9') + "uPa, " +
                                          QString(40, '9') + "s";
        QTest::newRow("digits of another script")
            << begin + QStringLiteral(
                           "SN \u0661\u0662, Epoch \u0661, Seq \u0661, \u0661-\u0662 > \u0661uPa, \u0661s");
        QTest::newRow("words") << begin + "SN 1x, Epoch 1x, Seq 1x, a b c d, e";
        QTest::newRow("NUL") << begin + QString(QChar(0)) + ", Epoch, Seq, , ";
    }
    void hostileFields()
    {
        QFETCH(QString, line);
        const SActiveTrigger active = parsed(line);
        QCOMPARE(active.type, TrigDevice);
        QCOMPARE(int(active.state), 2);
        QCOMPARE(active.devId.serialNo(), uint16_t{0});
        QCOMPARE(int(active.trigger.trigNum()), 0);
        QCOMPARE(active.seq, uint64_t{0});
        QCOMPARE(active.trigger.minFreq(), 0U);
        QCOMPARE(active.trigger.maxFreq(), 0U);
        QCOMPARE(active.trigger.threshold(), int16_t{0});
        QCOMPARE(active.trigger.duration(), uint16_t{0});
        QCOMPARE(active.trigger.testType(), TestTypeAbove);
    }

    void digitsOfAnotherScriptCount()
    {
        // They begin and end a number, which then can't be read: intended.
        const SActiveTrigger active =
            parsed(QStringLiteral("2021-03-04 05:06:07, SN \u066177, Epoch \u09663, Seq \uFF15100, 10-1000 > "
                                  "5000uPa\u0661, 30s\u0E51"));
        QCOMPARE(active.type, TrigDevice);
        QCOMPARE(active.devId.serialNo(), uint16_t{0});
        QCOMPARE(int(active.trigger.trigNum()), 0);
        QCOMPARE(active.seq, uint64_t{0});
        QCOMPARE(active.trigger.threshold(), int16_t{0});
        QCOMPARE(active.trigger.duration(), uint16_t{0});
        QCOMPARE(active.trigger.maxFreq(), 1000U);
        // Digits that are no decimals are passed over like letters.
        QCOMPARE(parsed(QString(kLine).replace("SN 1234", "SN \u00B2\u21621234")).devId.serialNo(),
                 uint16_t{1234});
    }

    void numbersThatAreTooWide_data()
    {
        QTest::addColumn<QString>("number");
        QTest::addColumn<int>("serial");
        QTest::addColumn<int>("trigNum");
        QTest::addColumn<int>("threshold");
        QTest::addColumn<int>("duration");
        QTest::addColumn<uint>("maxFreq");
        const auto row = [](const char* number, int serial, int trigNum, int threshold, int duration,
                            uint maxFreq) {
            QTest::newRow(number) << QString::fromLatin1(number) << serial << trigNum << threshold << duration
                                  << maxFreq;
        };
        // The low bits of what 32 bits hold, and 0 beyond.
        row("300", 300, 44, 300, 300, 300);
        row("40000", 40000, 64, 40000 - 65536, 40000, 40000);
        row("65536", 0, 0, 0, 0, 65536);
        row("70000", 4464, 112, 4464, 4464, 70000);
        row("2147483647", 65535, 255, -1, 65535, 2147483647);
        row("2147483648", 0, 0, 0, 0, 2147483648);
        row("4294967295", 0, 0, 0, 0, 4294967295);
        row("4294967296", 0, 0, 0, 0, 0);
    }
    void numbersThatAreTooWide()
    {
        QFETCH(QString, number);
        QFETCH(int, serial);
        QFETCH(int, trigNum);
        QFETCH(int, threshold);
        QFETCH(int, duration);
        QFETCH(uint, maxFreq);
        const SActiveTrigger active = parsed(
            QStringLiteral("2021-03-04 05:06:07, SN %1, Epoch %1, Seq %1, 10-%1 > %1uPa, %1s").arg(number));
        QCOMPARE(int(active.devId.serialNo()), serial);
        QCOMPARE(int(active.trigger.trigNum()), trigNum);
        QCOMPARE(active.seq, number.toULongLong());
        QCOMPARE(active.trigger.maxFreq(), maxFreq);
        QCOMPARE(int(active.trigger.threshold()), threshold);
        QCOMPARE(int(active.trigger.duration()), duration);
    }

    void wrongTimeIsTheEpoch()
    {
        QCOMPARE(parsed(QString(kLine).replace("2021-03-04", "2021-02-30")).time, uint64_t{0});
        QCOMPARE(parsed(QString(kLine).replace("2021-03-04", "yesterday")).type, TrigDevice);
        QCOMPARE(parsed(QString(kLine).replace("04 05", "04T05")).time, uint64_t{0});
        QCOMPARE(parsed(QString(kLine).replace("05:06:07", "05:06:60")).time, uint64_t{0});
        QCOMPARE(parsed(QString(kLine).replace("05:06:07", "05:06:07 ?")).time, uint64_t{0});
    }

    void timeThatTheClocksSkip_data()
    {
        QTest::addColumn<QString>("written");
        QTest::addColumn<QString>("utc");
        QTest::newRow("before") << "01:59:59"
                                << "09:59:59";
        QTest::newRow("first") << "02:00:00"
                               << "10:00:00";
        QTest::newRow("last") << "02:59:59"
                              << "10:59:59";
        QTest::newRow("behind") << "03:00:00"
                                << "10:00:00";
    }
    void timeThatTheClocksSkip()
    {
        QFETCH(QString, written);
        QFETCH(QString, utc);
        const QByteArray zone = qgetenv("TZ");
        const auto back = qScopeGuard([&zone] {
            zone.isNull() ? qunsetenv("TZ") : qputenv("TZ", zone);
            tzset();
        });
        qputenv("TZ", "America/Vancouver");
        tzset();
        const SActiveTrigger active =
            parsed(QString(kLine).replace("2021-03-04 05:06:07", "2021-03-14 " + written));
        QCOMPARE(QDateTime::fromSecsSinceEpoch(qint64(active.time), Qt::UTC).toString("hh:mm:ss"), utc);
    }

    void bytesAreNotRead()
    {
        const SActiveTrigger active(kLine.toUtf8(), TrigDevice);
        QCOMPARE(active.type, TrigProgram);
        QCOMPARE(active.time, uint64_t{0});
        QCOMPARE(active.devId.serialNo(), uint16_t{0});
        QCOMPARE(SActiveTrigger(QByteArray(), TrigDevice).type, TrigInvalid);
    }
};

QTEST_APPLESS_MAIN(tst_SActiveTrigger)
#include "tst_SActiveTrigger.moc"
