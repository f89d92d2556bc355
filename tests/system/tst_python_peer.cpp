#include "NvxQtCommon/contract/job/HydJobSettings.h"
#include "NvxQtCommon/control/HydDeviceController.h"
#include "NvxQtCommon/discovery/HydMarcoAdapter.h"
#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "NvxQtCommon/streaming/HydEpochStreamAdapter.h"
#include "tests/recording/WavJudge.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/PeerDevice.h"

#include <QDateTime>
#include <QFileInfo>
#include <QHostAddress>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>

namespace {

const QString kAddress = QStringLiteral("127.62.9.1");
constexpr uint16_t kSerial = 4242;
constexpr int kRate = 8000;
/// Event seconds in a file at most.
constexpr int kFileSeconds = 4;

/// A step that fails ends the test function.
#define STEP(call)                                                                                           \
    do {                                                                                                     \
        call;                                                                                                \
        if (QTest::currentTestFailed())                                                                      \
            return;                                                                                          \
    } while (false)

} // namespace

/// The whole road against a recorder that was written in another language from the wire protocol: discovery,
/// commands, stream, wave files.
class tst_python_peer : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    // --- happy flows
    void recordsTheRamp();
    void controllerCommandsAreAnswered();
    void triggersAreKept();
    void occurrencesArriveOnceInOrder();
    // --- rainy day flows
    void stoppedStreamLeavesWholeFiles();
    void vanishedPeerLeavesWholeFiles();
    void absentPeerIsReported();

private:
    void startPeer(const QStringList& options);
    void discover();
    void openCommands();
    void startRecording();
    void compareFilesWithRamp();
    QStringList letters();

    std::unique_ptr<PeerDevice> m_peer;
    std::shared_ptr<HydDevice> m_device;
    std::shared_ptr<NvxDeviceController> m_controller;
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<HydStreamAdapter> m_stream;
    std::unique_ptr<NvxWavLogger> m_logger;
    QStringList m_files;
    qint64 m_firstSecond = 0;
    qint64 m_samples = 0;
};

void tst_python_peer::init()
{
    failOnUnexpectedWarnings();
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
    m_files.clear();
    m_firstSecond = 0;
    m_samples = 0;
}

void tst_python_peer::cleanup()
{
    m_stream.reset();
    m_logger.reset();
    m_controller.reset();
    m_device.reset();
    m_peer.reset();
    m_folder.reset();
}

void tst_python_peer::startPeer(const QStringList& options)
{
    m_peer = std::make_unique<PeerDevice>();
    const QStringList fixed{kAddress, QStringLiteral("--serial"), QString::number(kSerial),
                            QStringLiteral("--rate"), QString::number(kRate)};
    QVERIFY2(m_peer->start(fixed + options), qPrintable(m_peer->errorText()));
}

void tst_python_peer::discover()
{
    HydMarcoAdapter adapter;
    QSignalSpy found(&adapter, &HydMarcoAdapter::deviceFound);
    adapter.netEnquireUDPIPAddr(QHostAddress(kAddress), false, false);
    QTRY_COMPARE(found.size(), 1);
    m_device = found.at(0).at(0).value<std::shared_ptr<HydDevice>>();
    QVERIFY(m_device);
    QCOMPARE(m_device->serial(), kSerial);
    QCOMPARE(m_device->netHostInfo().ipAddress().toString(), kAddress.toStdString());
}

void tst_python_peer::openCommands()
{
    m_controller = NvxDeviceController::createController(m_device, ConnTcp);
    QVERIFY(dynamic_cast<HydDeviceController*>(m_controller.get()));
    QSignalSpy opened(m_controller.get(), &NvxDeviceController::channelOpen);
    m_controller->openChannel(ChanCommand);
    QTRY_COMPARE(opened.size(), 1);
}

void tst_python_peer::startRecording()
{
    m_stream = std::make_unique<HydStreamAdapter>(StreamWave, m_peer->wavePort(), kAddress,
                                                  m_device->deviceId(), 60000, true);
    m_stream->updateDeviceInfo(*m_device);
    m_logger = std::make_unique<NvxWavLogger>(kFileSeconds, m_folder->path(), QStringLiteral("REC4242"));
    connect(m_logger.get(), &NvxWavLogger::newFileCreated, this,
            [this](const QString& name) { m_files << name; });
    connect(m_stream.get(), &HydStreamAdapter::eventHeader, this,
            [this](const std::shared_ptr<HydStreamEventHeaderPayload>& header) {
                if (m_firstSecond == 0)
                    m_firstSecond = static_cast<qint64>(header->eventKey()->eventId());
            });
    connect(m_stream.get(), &HydStreamAdapter::streamDataReady, this,
            [this](const std::shared_ptr<HydStreamDataPayload>& data) {
                m_samples += data->data()->numSamples();
            });
    connect(m_stream.get(), &HydStreamAdapter::eventHeader, m_logger.get(), &NvxWavLogger::handleWavEventHdr);
    connect(m_stream.get(), &HydStreamAdapter::streamDataReady, m_logger.get(), &NvxWavLogger::handleWavData);
    QSignalSpy started(m_stream.get(), &HydStreamAdapter::streamStarted);
    m_stream->startStream();
    QTRY_COMPARE(started.size(), 1);
}

/// The files hold all samples received, in order, each with the value that is its number, and each file but
/// the last goes up to a whole multiple of the length.
void tst_python_peer::compareFilesWithRamp()
{
    qint64 number = 0;
    qint64 second = m_firstSecond;
    for (const QString& path : std::as_const(m_files)) {
        const JudgedWav file = judgeWav(path);
        QVERIFY2(file.error.isEmpty(), qPrintable(path + u' ' + file.error));
        QCOMPARE(file.channels, 1);
        QCOMPARE(file.rate, kRate);
        QCOMPARE(file.bits, 24);
        QVERIFY(!file.isBigEndian);
        const QString time = QDateTime::fromSecsSinceEpoch(second, Qt::UTC).toString(u"yyyyMMdd_HHmmss");
        QCOMPARE(QFileInfo(path).fileName(), QStringLiteral("REC4242_%1.wav").arg(time));
        for (const int32_t sample : file.samples) {
            if (sample != number)
                QFAIL(qPrintable(QStringLiteral("%1: %2 instead of %3").arg(path).arg(sample).arg(number)));
            ++number;
        }
        const qint64 lengthToMultiple = (kFileSeconds - second % kFileSeconds) * kRate;
        if (path != m_files.last())
            QCOMPARE(file.frames, lengthToMultiple);
        QVERIFY(file.frames > 0 && file.frames <= lengthToMultiple);
        second += kFileSeconds - second % kFileSeconds;
    }
    QCOMPARE(number, m_samples);
}

/// Letters of the commands that reached the peer.
QStringList tst_python_peer::letters()
{
    QStringList found;
    for (const QStringList& line : m_peer->lines(QStringLiteral("command")))
        found << line.value(0);
    return found;
}

void tst_python_peer::recordsTheRamp()
{
    constexpr int kSeconds = 12;
    STEP(startPeer({QStringLiteral("--seconds"), QString::number(kSeconds), QStringLiteral("--pace"),
                    QStringLiteral("8")}));
    STEP(discover());
    STEP(openCommands());
    QSignalSpy enquired(m_controller.get(), &NvxDeviceController::enquireResponse);
    QSignalSpy setupRead(m_controller.get(), &NvxDeviceController::jobSetupReadFromDev);
    QSignalSpy clock(m_controller.get(), &NvxDeviceController::timeChanged);
    m_controller->startUpProc();
    QTRY_COMPARE(enquired.size(), 1);
    QTRY_COMPARE(setupRead.size(), 1);
    m_controller->sendSetTime(0);
    QTRY_VERIFY(!clock.isEmpty());
    QVERIFY(qAbs(m_device->timeUtc() - QDateTime::currentSecsSinceEpoch()) <= 60);
    QCOMPARE(m_device->modelString(), std::string("Peer"));
    QCOMPARE(m_device->firmwareVer(), std::string("2.7.1"));
    QCOMPARE(m_device->firmwareRel(), std::string("2024a"));
    QCOMPARE(m_device->battPercent(), uint8_t(87));
    QCOMPARE(m_device->sensitivity(), -170.5F);
    QCOMPARE(m_device->temperature(), 12.3F);
    QCOMPARE(m_device->jobSettings().wavRate(), kRate);

    STEP(startRecording());
    QSignalSpy headerError(m_stream.get(), &HydStreamAdapter::headerError);
    QVERIFY(m_peer->waitForLines(QStringLiteral("stream-end"), 1));
    QTRY_COMPARE(m_samples, qint64(kSeconds) * kRate);
    m_stream->stopStream();
    m_logger->stopLogging();
    QVERIFY(m_peer->waitForLines(QStringLiteral("stream-message"), 2));
    const QList<QStringList> messages = m_peer->lines(QStringLiteral("stream-message"));
    QCOMPARE(messages.at(0).value(0), QStringLiteral("332a000400000000"));
    QCOMPARE(messages.at(1).value(0), QStringLiteral("342a0000"));
    QCOMPARE(headerError.size(), 0);
    QVERIFY(m_files.size() >= kSeconds / kFileSeconds);
    STEP(compareFilesWithRamp());
}

void tst_python_peer::controllerCommandsAreAnswered()
{
    STEP(startPeer({}));
    STEP(discover());
    STEP(openCommands());
    QSignalSpy setupSent(m_controller.get(), &NvxDeviceController::jobSetupGotFromDev);
    QSignalSpy setupRead(m_controller.get(), &NvxDeviceController::jobSetupReadFromDev);
    QSignalSpy clock(m_controller.get(), &NvxDeviceController::timeChanged);
    QSignalSpy reset(m_controller.get(), &NvxDeviceController::signalDevReset);
    QSignalSpy timeSync(m_controller.get(), &NvxDeviceController::enquireResponseTimeSync);
    QSignalSpy complaint(m_controller.get(), &NvxDeviceController::signalErrorMes);

    HydJobSettings wanted;
    wanted.setWavRate(static_cast<SampRate>(16000));
    m_controller->sendJobSetup(wanted.map(), false);
    QTRY_COMPARE(setupSent.size(), 1);
    QCOMPARE(m_device->configStat(), ConfigConfirmed);
    // The setup is read back by itself.
    QTRY_COMPARE(setupRead.size(), 1);
    QCOMPARE(m_device->jobSettings().wavRate(), 16000);

    m_controller->sendSetTime(1700000000);
    QTRY_VERIFY(!clock.isEmpty());
    QVERIFY(m_device->timeUtc() >= 1700000000 && m_device->timeUtc() <= 1700000060);

    m_controller->enquireTimeSync();
    QTRY_COMPARE(timeSync.size(), 1);

    m_controller->clearTriggers();
    m_controller->resetPassword();
    m_controller->enquireTriggers();
    m_controller->resetDevice();
    QTRY_COMPARE(reset.size(), 1);
    QVERIFY(m_peer->waitForLines(QStringLiteral("command"), 8));
    QCOMPARE(letters().join(QString()), QStringLiteral("DFA[UVRY"));
    QCOMPARE(complaint.size(), 0);
}

void tst_python_peer::triggersAreKept()
{
    STEP(startPeer({}));
    HydCommandAdapter adapter(ConnTcp, nullptr);
    adapter.setIpAddr(NvxIpAddr(kAddress.toStdString()));
    QSignalSpy opened(&adapter, &HydCommandAdapter::connectionOpen);
    QSignalSpy replies(&adapter, &HydCommandAdapter::commandResponse);
    QSignalSpy complaint(&adapter, &HydCommandAdapter::signalErrorResponse);
    adapter.openConnection();
    QTRY_COMPARE(opened.size(), 1);

    auto trigger = std::make_shared<HydTrigger_5_6>();
    trigger->setTrigNum(3);
    trigger->setThreshold(-120);
    using Reply = std::shared_ptr<const HydControlMsgPayload>;
    const auto triggersOfReply = [&replies](int index) {
        const auto reply =
            std::dynamic_pointer_cast<const HydEnquireTrigger>(replies.at(index).at(0).value<Reply>());
        return reply ? reply->triggers() : std::vector<std::shared_ptr<HydTrigger>>(99);
    };
    QVERIFY(adapter.sendCommand(trigger));
    QVERIFY(adapter.sendCommand(std::make_shared<HydMsgPayload>('R')));
    QTRY_COMPARE(replies.size(), 2);
    QCOMPARE(triggersOfReply(1).size(), size_t(1));
    QVERIFY(triggersOfReply(1).front()->compare(trigger.get()));
    QVERIFY(adapter.sendCommand(std::make_shared<HydMsgPayload>('U')));
    QVERIFY(adapter.sendCommand(std::make_shared<HydMsgPayload>('R')));
    QTRY_COMPARE(replies.size(), 4);
    QVERIFY(triggersOfReply(3).empty());
    QCOMPARE(complaint.size(), 0);
}

void tst_python_peer::occurrencesArriveOnceInOrder()
{
    constexpr int kOccurrences = 300;
    STEP(startPeer({QStringLiteral("--epochs"), QString::number(kOccurrences)}));
    STEP(discover());
    STEP(openCommands());
    // The peer lets each of its triggers fire in turn.
    std::vector<std::shared_ptr<HydTrigger>> triggers;
    for (const uint8_t number : {uint8_t{1}, uint8_t{2}, uint8_t{200}}) {
        auto trigger = std::make_shared<HydTrigger_5_6>();
        trigger->setTrigNum(number);
        trigger->setMinFreq(10);
        trigger->setMaxFreq(1000U * number);
        trigger->setThreshold(static_cast<int16_t>(-5 * number));
        trigger->setDuration(static_cast<uint16_t>(300 * number));
        triggers.push_back(std::move(trigger));
    }
    QSignalSpy updated(m_controller.get(), &NvxDeviceController::signalTrigUdated);
    QSignalSpy enquired(m_controller.get(), &NvxDeviceController::signalEnqTrig);
    m_controller->setupTriggers(triggers, true);
    QTRY_COMPARE(enquired.size(), 1);
    // The peer's list is the one that was wanted.
    QCOMPARE(updated.size(), 0);

    HydEpochStreamAdapter epochs(StreamEpoch, m_peer->epochPort(), kAddress,
                                 m_controller->device()->deviceId(), 60000, true);
    QList<SActiveTrigger> occurrences;
    connect(&epochs, &HydEpochStreamAdapter::signalTrigActive, this,
            [&](const SActiveTrigger& occurrence) { occurrences << occurrence; });
    QSignalSpy payloads(&epochs, &HydStreamAdapter::streamDataReady);
    epochs.startStream();
    QVERIFY(m_peer->waitForLines(QStringLiteral("epoch-end"), 1, 30000));
    QTRY_COMPARE(occurrences.size(), 2 * kOccurrences);
    QCOMPARE(payloads.size(), 2 * kOccurrences);
    const auto now = QDateTime::currentSecsSinceEpoch();
    for (int i = 0; i < occurrences.size(); ++i) {
        const SActiveTrigger& occurrence = occurrences[i];
        const auto wanted = std::static_pointer_cast<HydTrigger_5_6>(triggers[size_t(i / 2 + 1) % 3]);
        QCOMPARE(occurrence.devId, m_controller->device()->deviceId());
        QCOMPARE(int(occurrence.trigger.trigNum()), int(wanted->trigNum()));
        QCOMPARE(int(occurrence.state), i % 2 == 0 ? 2 : 6);
        // The device's digits are of UTC, and read as local ones.
        const QDateTime digits = occurrence.logTime();
        QVERIFY(std::abs(QDateTime(digits.date(), digits.time(), Qt::UTC).toSecsSinceEpoch() - now) < 60);
        if (i % 2 != 0)
            continue;
        QCOMPARE(occurrence.seq, uint64_t(i / 2 + 1));
        QCOMPARE(occurrence.trigger.maxFreq(), wanted->maxFreq());
        QCOMPARE(occurrence.trigger.threshold(), wanted->threshold());
        QCOMPARE(occurrence.trigger.duration(), wanted->duration());
    }
    // Nothing was said to the peer.
    QVERIFY(m_peer->lines(QStringLiteral("epoch-message")).isEmpty());
}

void tst_python_peer::stoppedStreamLeavesWholeFiles()
{
    STEP(startPeer({QStringLiteral("--pace"), QStringLiteral("8")}));
    STEP(discover());
    STEP(startRecording());
    QTRY_VERIFY(m_samples > 6 * kRate);
    QSignalSpy stopped(m_stream.get(), &HydStreamAdapter::streamStopped);
    m_stream->stopStream();
    QCOMPARE(stopped.size(), 1);
    m_stream->disconnectStream();
    QVERIFY(m_peer->waitForLines(QStringLiteral("stream-closed"), 1));
    m_logger->stopLogging();
    STEP(compareFilesWithRamp());
}

void tst_python_peer::vanishedPeerLeavesWholeFiles()
{
    STEP(startPeer({QStringLiteral("--pace"), QStringLiteral("8")}));
    STEP(discover());
    STEP(openCommands());
    STEP(startRecording());
    QTRY_VERIFY(m_samples > 6 * kRate);
    QSignalSpy closed(m_controller.get(), &NvxDeviceController::channelClosed);
    QSignalSpy socketError(m_stream.get(), &HydStreamAdapter::socketError);
    m_peer.reset();
    QTRY_VERIFY(!socketError.isEmpty());
    QTRY_COMPARE(closed.size(), 1);
    m_stream->stopStream();
    m_stream->disconnectStream();
    m_logger->stopLogging();
    STEP(compareFilesWithRamp());
}

void tst_python_peer::absentPeerIsReported()
{
    STEP(startPeer({}));
    STEP(discover());
    m_peer.reset();
    m_controller = NvxDeviceController::createController(m_device, ConnTcp);
    QSignalSpy error(m_controller.get(), &NvxDeviceController::error);
    QSignalSpy opened(m_controller.get(), &NvxDeviceController::channelOpen);
    m_controller->openChannel(ChanCommand);
    QTRY_COMPARE(error.size(), 1);
    QCOMPARE(error.at(0).at(0).value<HydControlError>(), ErrNotConnected);
    QCOMPARE(opened.size(), 0);
    m_stream =
        std::make_unique<HydStreamAdapter>(StreamWave, 50000, kAddress, m_device->deviceId(), 2000, true);
    QSignalSpy disconnected(m_stream.get(), &HydStreamAdapter::streamDisconnected);
    m_stream->connectStream();
    QTRY_COMPARE(disconnected.size(), 1);
}

QTEST_GUILESS_MAIN(tst_python_peer)
#include "tst_python_peer.moc"
