// Triggers from the controller over a simulated recorder to the diary.
#include "NvxQtCommon/logging/NvxEpochLogger.h"
#include "NvxQtCommon/streaming/HydEpochStreamAdapter.h"
#include "RoadRig.h"
#include "tests/control/TriggerLists.h"
#include "tests/support/DiaryLines.h"
#include "tests/support/NvxTestCase.h"

#include <QSignalSpy>

#include <algorithm>

namespace {

constexpr qint64 kStep = 200;
constexpr int kTries = 8;

RecorderSettings settingsAt(const char* address, const char* fault = "")
{
    RecorderSettings settings = RoadRig::settingsAt(address);
    settings.roles = RoleControl | RoleDiscovery | RoleEpoch;
    settings.epochPort = 0;
    settings.sampleRate = 48000;
    // Bursts of 500 Hz at 21000 µPa, silence in between. Louder ones would be heard in other bands where they
    // begin and end.
    settings.signal.kind = SignalSettings::Impulses;
    settings.signal.frequency = 500.0;
    settings.signal.levelDb = -140.0;
    settings.signal.impulseLevelDb = -90.0;
    settings.signal.impulseSeconds = 2.0;
    settings.signal.impulseLength = 1.0;
    settings.clockOffset = 0;
    if (*fault != 0)
        settings.faults = RoadRig::planOf(fault);
    return settings;
}

bool prepare(RoadRig& rig)
{
    return rig.startRecorder() && rig.discover() && rig.openCommands() && rig.startUp();
}

} // namespace

class tst_trigger_road : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void commandsArriveInSteps()
    {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        QSKIP("sanitizers stretch the times");
#endif
        RoadRig rig(settingsAt("127.62.20.1"));
        QVERIFY(prepare(rig));
        QSignalSpy enquired(rig.controller.get(), &NvxDeviceController::signalEnqTrig);
        // A machine that stalls lets a try fail: each gap has to be right in one of them.
        QList<bool> right(4, false);
        for (int i = 0; i < kTries && right.contains(false); ++i) {
            const auto before = rig.recorder.commandArrivals().size();
            enquired.clear();
            rig.controller->device()->setTriggers({eventTrigger(9)});
            rig.controller->setupTriggers({eventTrigger(1), eventTrigger(2), eventTrigger(3)}, true);
            QTRY_COMPARE_WITH_TIMEOUT(enquired.count(), 1, 15000);
            const auto arrivals = rig.recorder.commandArrivals();
            QCOMPARE(arrivals.size(), before + 5);
            QByteArray letters;
            for (size_t k = before; k < arrivals.size(); ++k)
                letters += arrivals[k].letter;
            QCOMPARE(letters, QByteArray("USSSR"));
            for (int k = 0; k < 4; ++k) {
                const qint64 gap = arrivals[before + size_t(k) + 1].ms - arrivals[before + size_t(k)].ms;
                const qint64 due = k == 0 ? 2 * kStep : kStep;
                right[k] = right[k] || (gap >= due - 10 && gap <= due + 150);
            }
        }
        QVERIFY(!right.contains(false));
    }

    void firesIntoTheDiary()
    {
        RoadRig rig(settingsAt("127.62.20.2"));
        QVERIFY(prepare(rig));
        HydEpochStreamAdapter epochs(StreamEpoch, rig.recorder.streamPort(StreamEpoch),
                                     QStringLiteral("127.62.20.2"), rig.recorder.deviceId(), 60000, true);
        NvxEpochLogger diary(0, rig.folder.path(), 0, nullptr);
        diary.setDevId(rig.recorder.deviceId());
        diary.setLogDevMode(LogOn);
        QStringList expected;
        connect(&epochs, &HydEpochStreamAdapter::signalTrigActive, &diary, &NvxEpochLogger::handleTrigActive);
        connect(&epochs, &HydEpochStreamAdapter::signalTrigActive, this, [&](const SActiveTrigger& trigger) {
            QCOMPARE(int(trigger.trigger.trigNum()), 1);
            expected << trigger.logMes(0, 0, 0).trimmed();
        });
        QSignalSpy started(&rig.recorder, &SimulatedRecorder::streamStarted);
        epochs.startStream();
        QTRY_VERIFY(!started.isEmpty());
        diary.startLogging();
        const auto quiet = eventTrigger(2);
        quiet->setMinFreq(5000);
        quiet->setMaxFreq(6000);
        rig.controller->setupTriggers({eventTrigger(1), quiet}, true);
        QTRY_VERIFY_WITH_TIMEOUT(expected.size() >= 4, 20000);
        epochs.stopStream();
        diary.stopLogging();

        QStringList lines = diaryLines(rig.folder.path());
        QVERIFY(lines.size() >= 2);
        QVERIFY(lines.takeFirst().endsWith("Logging Started"));
        QVERIFY(lines.takeLast().endsWith("Logging Finished"));
        QCOMPARE(lines, expected);
        QVERIFY(expected[0].contains("E, 1, Started, S, 1, 10-1000 Hz,  > 5000 uPa"));
        QVERIFY(expected[1].endsWith("E, 1, Ended"));
        QVERIFY(expected[2].contains("E, 1, Started, S, 2, "));
    }

    void onlyWhatDiffersIsSentAgain()
    {
        RoadRig rig(settingsAt("127.62.20.3"));
        QVERIFY(prepare(rig));
        QSignalSpy enquired(rig.controller.get(), &NvxDeviceController::signalEnqTrig);
        QSignalSpy updated(rig.controller.get(), &NvxDeviceController::signalTrigUdated);
        rig.controller->setupTriggers({eventTrigger(1), eventTrigger(2)}, true);
        QTRY_COMPARE(rig.recorder.triggers().size(), size_t(2));
        QTRY_VERIFY(!enquired.isEmpty() && rig.recorder.commandArrivals().back().letter == 'R');
        enquired.clear();
        const auto before = rig.recorder.commandArrivals().size();
        rig.controller->setupTriggers({eventTrigger(1), eventTrigger(2, 7)}, true);
        QTRY_COMPARE(enquired.count(), 1);
        QCOMPARE(rig.recorder.commandArrivals().size(), before + 2);
        QVERIFY(rig.recorder.triggers()[1]->compare(eventTrigger(2, 7).get()));
        // What was read back was what the record had.
        QCOMPARE(updated.count(), 0);
        QVERIFY(rig.controller->device()->trigger(2)->compare(eventTrigger(2, 7).get()));
    }

    // --- rainy day flows
    void refusalIsCorrectedByTheEnquiry()
    {
        RoadRig rig(settingsAt("127.62.20.4", "refuse-trigger:value=5,after=1,times=1"));
        QVERIFY(prepare(rig));
        QSignalSpy texts(rig.controller.get(), &NvxDeviceController::signalErrorMes);
        QSignalSpy updated(rig.controller.get(), &NvxDeviceController::signalTrigUdated);
        rig.controller->setupTriggers({eventTrigger(1), eventTrigger(2), eventTrigger(3)}, true);
        QCOMPARE(rig.controller->device()->triggers().size(), size_t(3));
        QTRY_COMPARE(updated.count(), 1);
        QCOMPARE(texts.count(), 1);
        QCOMPARE(texts[0][0].value<std::string>(), std::string("Trigger 2: The trigger list is full."));
        const auto held = rig.controller->device()->triggers();
        QCOMPARE(held.size(), size_t(2));
        QVERIFY(!rig.controller->device()->trigger(2));
    }
};

QTEST_GUILESS_MAIN(tst_trigger_road)
#include "tst_trigger_road.moc"
