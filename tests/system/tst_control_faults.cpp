#include "RoadRig.h"

#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

#include <QDateTime>
#include <QSignalSpy>
#include <QUdpSocket>

// What goes wrong on the command channel and in discovery: each fault has its signal or log line, and the
// next good message works.

class tst_control_faults : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<RoadRig> m_rig;
    std::unique_ptr<QSignalSpy> m_identified;
    std::unique_ptr<QSignalSpy> m_errors;
    std::unique_ptr<QSignalSpy> m_texts;
    std::unique_ptr<QSignalSpy> m_closed;

    NvxDeviceController& controller() { return *m_rig->controller; }

    /// A command channel is open to a recorder that has this fault from now on.
    bool open(const QByteArray& rule)
    {
        RecorderSettings settings = RoadRig::settingsAt("127.97.0.1");
        settings.roles = RoleControl | RoleDiscovery;
        m_rig = std::make_unique<RoadRig>(settings);
        if (!m_rig->prepare())
            return false;
        m_rig->recorder.setFaults(RoadRig::planOf(rule + ",on=control"));
        m_identified = std::make_unique<QSignalSpy>(&controller(), &NvxDeviceController::enquireResponse);
        m_errors = std::make_unique<QSignalSpy>(&controller(), &NvxDeviceController::error);
        m_texts = std::make_unique<QSignalSpy>(&controller(), &NvxDeviceController::signalErrorMes);
        m_closed = std::make_unique<QSignalSpy>(&controller(), &NvxDeviceController::channelClosed);
        return true;
    }
    /// Waits until the recorder has read that many commands.
    bool waitForCommands(uint64_t count)
    {
        return QTest::qWaitFor([&] { return m_rig->recorder.counters().commands >= count; }, kPatienceMs);
    }

private Q_SLOTS:
    void cleanup()
    {
        m_identified.reset();
        m_errors.reset();
        m_texts.reset();
        m_closed.reset();
        m_rig.reset();
    }

    // --- happy flows
    void splitRepliesAreReadWhole_data()
    {
        QTest::addColumn<int>("cut");
        for (const int cut : {1, 2, 3, 4, 5, 6, 7, 8, 20, 40, 60})
            QTest::addRow("behind byte %d", cut) << cut;
    }
    void splitRepliesAreReadWhole()
    {
        QFETCH(int, cut);
        QVERIFY(open("split:value=" + QByteArray::number(cut)));
        controller().sendEnquire();
        QTRY_COMPARE(m_identified->size(), 1);
        QCOMPARE(m_texts->size(), 0);
        QCOMPARE(m_rig->device->modelString(), std::string("Simulated recorder"));
    }

    void mergedRepliesAreBothRead()
    {
        QVERIFY(open("merge:times=1"));
        QSignalSpy clocked(&controller(), &NvxDeviceController::timeChanged);
        controller().sendEnquire();
        controller().sendSetTime(0);
        QTRY_COMPARE(m_identified->size(), 1);
        QTRY_VERIFY(!clocked.isEmpty());
        QCOMPARE(m_texts->size(), 0);
    }

    void doubledReplyComesTwice()
    {
        QVERIFY(open("duplicate:times=1"));
        controller().sendEnquire();
        QTRY_COMPARE(m_identified->size(), 2);
        controller().sendEnquire();
        QTRY_COMPARE(m_identified->size(), 3);
    }

    void lateReplyIsRead()
    {
        QVERIFY(open("slow:value=1500,times=1"));
        const uint64_t before = m_rig->recorder.counters().commands;
        controller().sendEnquire();
        QVERIFY(waitForCommands(before + 1));
        QCOMPARE(m_identified->size(), 0);
        QTRY_COMPARE(m_identified->size(), 1);
    }

    // --- rainy day flows
    void repliesAfterJunkAreRead_data()
    {
        QTest::addColumn<int>("count");
        for (const int count : {1, 7, 100, 5000})
            QTest::addRow("%d bytes", count) << count;
    }
    void repliesAfterJunkAreRead()
    {
        QFETCH(int, count);
        QVERIFY(open("junk:times=2,value=" + QByteArray::number(count)));
        // Junk may look like the head of a message of up to 64 KiB: what comes is kept until that many bytes
        // have shown that it was none. Nothing of it is lost.
        int asked = 0;
        while (m_identified->size() < 3 && asked < 3000) {
            for (int i = 0; i < 50; ++i, ++asked)
                controller().sendEnquire();
            m_identified->wait(20);
        }
        QCOMPARE(m_rig->recorder.counters().faults, uint64_t{2});
        QTRY_COMPARE(m_identified->size(), asked);
        QCOMPARE(m_closed->size(), 0);
    }

    void newChannelForgetsJunk()
    {
        QVERIFY(open("junk:value=5000,times=1"));
        controller().sendEnquire();
        QVERIFY(waitForCommands(5));
        controller().closeChannel(ChanCommand);
        QTRY_COMPARE(m_closed->size(), 1);
        QSignalSpy opened(&controller(), &NvxDeviceController::channelOpen);
        controller().openChannel(ChanCommand);
        QTRY_COMPARE(opened.size(), 1);
        m_identified->clear();
        controller().sendEnquire();
        QTRY_COMPARE(m_identified->size(), 1);
    }

    void spoiltReplyIsPassedOver_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::newRow("bad checksum") << QByteArray("bad-checksum:times=1");
        QTest::newRow("lost") << QByteArray("loss:times=1");
    }
    void spoiltReplyIsPassedOver()
    {
        QFETCH(QByteArray, rule);
        QVERIFY(open(rule));
        QSignalSpy clocked(&controller(), &NvxDeviceController::timeChanged);
        controller().sendEnquire();
        QVERIFY(waitForCommands(5));
        QCOMPARE(m_rig->recorder.counters().faults, uint64_t{1});
        controller().sendEnquire();
        controller().sendSetTime(0);
        QTRY_COMPARE(m_identified->size(), 1);
        // The good reply is the second one: what the first gave would have come ahead of this one.
        QTRY_COMPARE(clocked.size(), 1);
        QCOMPARE(m_texts->size(), 0);
        QCOMPARE(m_identified->size(), 1);
    }

    void refusedSetupIsReported()
    {
        QVERIFY(open("refuse-setup:value=9,times=1"));
        QSignalSpy refused(&controller(), &NvxDeviceController::jobSetupErr);
        QSignalSpy taken(&controller(), &NvxDeviceController::jobSetupGotFromDev);
        HydJobSettings wanted;
        wanted.setWavRate(SampRate{16000});
        LogSpy log;
        controller().sendJobSetup(wanted.map(), false);
        QTRY_COMPARE(refused.size(), 1);
        QCOMPARE(int(refused.first().at(1).value<std::shared_ptr<HydJobSetupErr>>()->errorCode()), 9);
        QCOMPARE(m_rig->device->configStat(), ConfigRejected);
        QCOMPARE(uint32_t{m_rig->device->jobSettings().wavRate()}, 8000U);
        QVERIFY(!log.lines().filter(QStringLiteral("JOB SETUP ERROR CODE: ")).isEmpty());
        controller().sendJobSetup(wanted.map(), false);
        QTRY_COMPARE(taken.size(), 1);
        QCOMPARE(uint32_t{m_rig->device->jobSettings().wavRate()}, 16000U);
    }

    void setupThatCannotRunIsRefused()
    {
        QVERIFY(open("loss:after=1000"));
        QSignalSpy refused(&controller(), &NvxDeviceController::jobSetupErr);
        HydJobSettings wanted;
        wanted.setWavBitDepth(HydWavBitDepth{20});
        controller().sendJobSetup(wanted.map(), false);
        QTRY_COMPARE(refused.size(), 1);
        QCOMPARE(int(refused.first().at(1).value<std::shared_ptr<HydJobSetupErr>>()->errorCode()), 2);
    }

    void failedTimeReplyIsReported()
    {
        QVERIFY(open("time-failure:times=1"));
        QSignalSpy failed(&controller(), &NvxDeviceController::timeChangeErr);
        controller().sendSetTime(1234567890);
        QTRY_COMPARE(failed.size(), 1);
        QVERIFY(m_rig->device->timeUtc() >= RoadRig::kDeviceTime);
        QVERIFY(std::abs(m_rig->recorder.deviceTime() - RoadRig::kDeviceTime) < 60);
        controller().sendSetTime(1234567890);
        QTRY_VERIFY(std::abs(m_rig->device->timeUtc() - 1234567890) <= 2);
    }

    void unreadableReplyIsReported()
    {
        QVERIFY(open("oversize:times=1"));
        QSignalSpy setUp(&controller(), &NvxDeviceController::jobSetupReadFromDev);
        LogSpy log;
        controller().enquireJobSetup();
        QTRY_COMPARE(m_texts->size(), 1);
        QCOMPARE(m_texts->first().first().value<std::string>(),
                 std::string("Incorrect response from device because of wrong request."));
        QVERIFY(!log.lines().filter(QStringLiteral("nullptr == spPayload: ")).isEmpty());
        QCOMPARE(setUp.size(), 0);
        controller().enquireJobSetup();
        QTRY_COMPARE(setUp.size(), 1);
    }

    void burstOfDataIsCollectedAtOnce()
    {
        QVERIFY(open("scan-burst:times=20"));
        auto& recorder = dynamic_cast<HydDeviceController&>(controller());
        QSignalSpy collected(&recorder, &HydDeviceController::dataCollected);
        recorder.stopDataCollect();
        recorder.startDataCollect(0x20);
        QTRY_VERIFY(collected.size() >= 22);
        recorder.stopDataCollect();
        int bursts = 0;
        for (const auto& arguments : collected) {
            const auto message = arguments.first().value<std::shared_ptr<const HydDataCollectCmd>>();
            bursts += (message->scanMask() & HydDataCollectCmd::kMoreData) != 0;
        }
        QVERIFY2(bursts >= 19, qPrintable(QString::number(bursts)));
    }

    void brokenChannelIsReportedAndOpensAgain_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::newRow("closed within a reply") << QByteArray("close:value=20,times=1");
        QTest::newRow("closed within the head of a reply") << QByteArray("close:value=2,times=1");
        QTest::newRow("reset within a reply") << QByteArray("reset:value=20,times=1");
    }
    void brokenChannelIsReportedAndOpensAgain()
    {
        QFETCH(QByteArray, rule);
        QVERIFY(open(rule));
        controller().sendEnquire();
        QTRY_COMPARE(m_closed->size(), 1);
        QTRY_VERIFY(!m_errors->isEmpty());
        QCOMPARE(m_errors->first().at(0).value<HydControlError>(), ErrNotConnected);
        QCOMPARE(m_errors->first().at(1).toInt(), int(QAbstractSocket::RemoteHostClosedError));
        QCOMPARE(m_rig->device->cmdPortStatus(), PortReachable);
        QTRY_VERIFY(!controller().isCmdChanOpen());
        // Opening clears what the broken reply left behind.
        QSignalSpy opened(&controller(), &NvxDeviceController::channelOpen);
        controller().openChannel(ChanCommand);
        QTRY_COMPARE(opened.size(), 1);
        controller().sendEnquire();
        QTRY_COMPARE(m_identified->size(), 1);
    }

    void refusedChannelOpensAtTheNextTry()
    {
        QVERIFY(open("refuse:times=1"));
        controller().closeChannel(ChanCommand);
        QTRY_COMPARE(m_closed->size(), 1);
        controller().openChannel(ChanCommand);
        QTRY_COMPARE(m_closed->size(), 2);
        QTRY_VERIFY(!m_errors->isEmpty());
        QSignalSpy opened(&controller(), &NvxDeviceController::channelOpen);
        controller().openChannel(ChanCommand);
        QTRY_COMPARE(opened.size(), 1);
        controller().sendEnquire();
        QTRY_COMPARE(m_identified->size(), 1);
    }

    void silentRecorderIsHeardAgain()
    {
        QVERIFY(open("silence:value=200,times=1"));
        QSignalSpy clocked(&controller(), &NvxDeviceController::timeChanged);
        int asked = 0;
        while (m_identified->isEmpty() && asked < 3000) {
            controller().sendEnquire();
            ++asked;
            m_identified->wait(20);
        }
        // What is answered at all is answered ahead of this one.
        controller().sendSetTime(0);
        QTRY_VERIFY(!clocked.isEmpty());
        // The answers that were kept back don't come later either: one would be ahead of this one's.
        const auto heard = m_identified->size();
        QVERIFY(heard > 0);
        QVERIFY2(heard < asked, qPrintable(QString::number(asked)));
        controller().sendEnquire();
        QTRY_COMPARE(m_identified->size(), heard + 1);
        QCOMPARE(m_closed->size(), 0);
    }

    void restartedRecorderClosesTheChannel()
    {
        QVERIFY(open("loss:after=1000"));
        QSignalSpy reset(&controller(), &NvxDeviceController::signalDevReset);
        controller().resetDevice();
        QTRY_COMPARE(reset.size(), 1);
        QTRY_COMPARE(m_closed->size(), 1);
    }

    void discoveryFaultsCostOneAnswerAtMost_data()
    {
        QTest::addColumn<QByteArray>("rule");
        QTest::addColumn<int>("enquiries");
        QTest::newRow("lost") << QByteArray("loss:times=1") << 2;
        QTest::newRow("bad checksum") << QByteArray("bad-checksum:times=1") << 2;
        QTest::newRow("doubled") << QByteArray("duplicate:times=1") << 1;
    }
    void discoveryFaultsCostOneAnswerAtMost()
    {
        QFETCH(QByteArray, rule);
        QFETCH(int, enquiries);
        RecorderSettings settings = RoadRig::settingsAt("127.97.0.2");
        settings.roles = RoleDiscovery;
        settings.faults = RoadRig::planOf(rule);
        m_rig = std::make_unique<RoadRig>(settings);
        QVERIFY(m_rig->startRecorder());
        HydMarcoAdapter marco;
        QSignalSpy found(&marco, &HydMarcoAdapter::deviceFound);
        for (int asked = 1; asked < enquiries; ++asked) {
            marco.netEnquireUDPIPAddr(settings.address, false, false);
            QTRY_COMPARE(m_rig->recorder.counters().faults, uint64_t(asked));
            // An answer that is no message closes the socket when it is read.
            if (rule.startsWith("bad"))
                QTRY_COMPARE(marco.findChild<QUdpSocket*>()->state(), QAbstractSocket::UnconnectedState);
            QVERIFY(found.isEmpty());
        }
        marco.netEnquireUDPIPAddr(settings.address, false, false);
        QTRY_VERIFY(!found.isEmpty());
        QCOMPARE(m_rig->recorder.counters().faults, uint64_t{1});
        QCOMPARE(found.first().first().value<std::shared_ptr<HydDevice>>()->serial(), uint16_t{1234});
    }
};

QTEST_GUILESS_MAIN(tst_control_faults)
#include "tst_control_faults.moc"
