#include "RoadRig.h"

#include "tests/recording/WavJudge.h"

#include <QDateTime>
#include <QDebug>
#include <QSignalSpy>
#include <QTest>

RecorderSettings RoadRig::settingsAt(const char* address)
{
    RecorderSettings settings;
    settings.address = QHostAddress(QLatin1String(address));
    settings.roles = RoleControl | RoleDiscovery | RoleWave;
    settings.wavePort = settings.spectrumPort = settings.sensorPort = settings.epochPort = 0;
    settings.sampleRate = 8000;
    settings.bitDepth = 16;
    settings.signal.kind = SignalSettings::Ramp;
    settings.firstSequence = kFirstSequence;
    settings.clockOffset = kDeviceTime - QDateTime::currentSecsSinceEpoch();
    settings.unpaced = true;
    settings.streamSeconds = 4;
    return settings;
}

FaultPlan RoadRig::planOf(const QByteArray& rule)
{
    FaultPlan plan(4711);
    plan.add(FaultRule::fromText(QString::fromLatin1(rule)).value());
    return plan;
}

RoadRig::RoadRig(const RecorderSettings& settings) : recorder(settings) {}

RoadRig::~RoadRig() = default;

bool RoadRig::startRecorder()
{
    if (recorder.start())
        return true;
    qInfo().noquote() << recorder.errorString();
    return false;
}

bool RoadRig::discover()
{
    HydMarcoAdapter marco;
    connect(&marco, &HydMarcoAdapter::deviceFound, this,
            [this](const std::shared_ptr<HydDevice>& found) { device = found; });
    marco.netEnquireUDPIPAddr(recorder.settings().address, false, false);
    return QTest::qWaitFor([this] { return device != nullptr; }, kPatienceMs);
}

bool RoadRig::openCommands()
{
    controller = NvxDeviceController::createController(device, ConnTcp);
    QSignalSpy opened(controller.get(), &NvxDeviceController::channelOpen);
    controller->openChannel(ChanCommand);
    return QTest::qWaitFor([&] { return !opened.isEmpty(); }, kPatienceMs);
}

bool RoadRig::startUp()
{
    QSignalSpy identified(controller.get(), &NvxDeviceController::enquireResponse);
    QSignalSpy setUp(controller.get(), &NvxDeviceController::jobSetupReadFromDev);
    QSignalSpy clocked(controller.get(), &NvxDeviceController::timeChanged);
    controller->startUpProc();
    controller->sendSetTime(0);
    return QTest::qWaitFor([&] { return !identified.isEmpty() && !setUp.isEmpty() && !clocked.isEmpty(); },
                           kPatienceMs);
}

bool RoadRig::prepare()
{
    return startRecorder() && discover() && openCommands() && startUp();
}

void RoadRig::makeStream(int fileSeconds, int alivePeriodMs)
{
    stream = std::make_unique<HydStreamAdapter>(StreamWave, recorder.streamPort(StreamWave),
                                                recorder.settings().address.toString(), device->deviceId(),
                                                alivePeriodMs, true);
    stream->updateDeviceInfo(*device);
    logger = std::make_unique<NvxWavLogger>(fileSeconds, folder.path(), QStringLiteral("REC1234"));
    monitor.attach(stream.get());
    connect(stream.get(), &HydStreamAdapter::streamDataReady, this,
            [this](const std::shared_ptr<HydStreamDataPayload>& payload) {
                const HydStreamDataChunk& data = *payload->data();
                m_blocks.push_back({payload->eventKey()->sequence() + data.sampleNum(), data.numSamples(),
                                    data.numChannels(), data.bitDepth()});
            });
    connect(stream.get(), &HydStreamAdapter::eventHeader, logger.get(), &NvxWavLogger::handleWavEventHdr);
    connect(stream.get(), &HydStreamAdapter::streamDataReady, logger.get(), &NvxWavLogger::handleWavData);
    connect(logger.get(), &NvxWavLogger::newFileCreated, this,
            [this](const QString& name) { files << name; });
}

bool RoadRig::startStream()
{
    QSignalSpy started(stream.get(), &HydStreamAdapter::streamStarted);
    stream->startStream();
    return QTest::qWaitFor([&] { return !started.isEmpty(); }, kPatienceMs);
}

bool RoadRig::waitForSamples(uint64_t count, int milliseconds)
{
    return QTest::qWaitFor(
        [&] {
            const NvxStreamStats stats = monitor.total();
            return stats.samplesReceived + stats.samplesMissing >= count;
        },
        milliseconds);
}

void RoadRig::stopRecording()
{
    stream->stopStream();
    logger->stopLogging();
    stream->disconnectStream();
}

bool RoadRig::record(int fileSeconds)
{
    if (!prepare())
        return false;
    makeStream(fileSeconds);
    const RecorderSettings settings = recorder.settings();
    if (!startStream() || !waitForSamples(uint64_t{settings.sampleRate} * settings.streamSeconds, 30000))
        return false;
    stopRecording();
    return fileObjection().isEmpty();
}

QString RoadRig::fileObjection() const
{
    std::vector<int32_t> written;
    for (const QString& path : files) {
        if (const QString objection = wholeFileObjection(path); !objection.isEmpty())
            return path + QStringLiteral(": ") + objection;
        const JudgedWav file = judgeWav(path);
        written.insert(written.end(), file.samples.begin(), file.samples.end());
    }
    size_t at = 0;
    for (const Block& block : m_blocks) {
        for (int64_t i = 0; i < block.count; ++i) {
            for (unsigned c = 0; c < block.channels; ++c, ++at) {
                const int32_t expected =
                    SignalSource::rampValue(static_cast<uint64_t>(block.first + i), c, block.bits);
                if (at >= written.size())
                    return QStringLiteral("the files end ahead of sample %1").arg(block.first + i);
                if (written[at] != expected)
                    return QStringLiteral("sample %1 of channel %2 is %3 instead of %4")
                        .arg(block.first + i)
                        .arg(c)
                        .arg(written[at])
                        .arg(expected);
            }
        }
    }
    return at == written.size() ? QString() : QStringLiteral("the files hold more than what came");
}

QList<int> RoadRig::fileRates() const
{
    QList<int> rates;
    for (const QString& path : files)
        rates << judgeWav(path).rate;
    return rates;
}
