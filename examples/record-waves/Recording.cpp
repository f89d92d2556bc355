#include "record-waves/Recording.h"

#include "shared/FilePrefix.h"

#include <QDateTime>
#include <QTextStream>

#include <utility>

namespace {

constexpr int kEnquiries = 3;
constexpr int kWatchMs = 100;
constexpr int kProgressMs = 1000;
constexpr int kAlivePeriodMs = 1000;

QTextStream& recordingOut()
{
    static QTextStream stream(stdout);
    return stream;
}

} // namespace

Recording::Recording(const RecordingOrder& order, QObject* parent) : QObject(parent), m_order(order)
{
    m_timeout.setSingleShot(true);
    m_watch.setInterval(kWatchMs);
    connect(&m_watch, &QTimer::timeout, this, &Recording::watchStream);
}

Recording::~Recording() = default;

// --- Step 1: find the recorder.

void Recording::start()
{
    connect(&m_marco, &HydMarcoAdapter::deviceFound, this, &Recording::openDevice);
    connect(&m_timeout, &QTimer::timeout, this, &Recording::enquire);
    recordingOut() << "Looking for a recorder at " << m_order.address.toString() << Qt::endl;
    enquire();
}

void Recording::enquire()
{
    if (m_enquiries++ == kEnquiries) {
        finish(NothingFound, QStringLiteral("no recorder answers at %1.").arg(m_order.address.toString()));
        return;
    }
    m_marco.netEnquireUDPIPAddr(m_order.address, false, false);
    m_timeout.start(m_order.patienceMs / kEnquiries);
}

// --- Step 2: open its command channel and ask for identity, setup and clock.

void Recording::openDevice(std::shared_ptr<HydDevice> device)
{
    if (m_controller)
        return;
    m_timeout.stop();
    m_timeout.disconnect(this);
    connect(&m_timeout, &QTimer::timeout, this, [this] {
        finish(Refused, QStringLiteral("the recorder doesn't answer on its command channel."));
    });
    m_timeout.start(m_order.patienceMs);

    m_controller = NvxDeviceController::createController(std::move(device), ConnTcp);
    NvxDeviceController* controller = m_controller.get();
    connect(controller, &NvxDeviceController::channelOpen, this, [this] {
        m_controller->startUpProc();
        // A time of 0 reads the clock without setting it.
        m_controller->sendSetTime(0);
    });
    connect(controller, &NvxDeviceController::error, this, [this](HydControlError, int socketError) {
        if (!m_stream)
            finish(Refused, QStringLiteral("the recorder refuses the command channel (socket error %1).")
                                .arg(socketError));
    });
    connect(controller, &NvxDeviceController::enquireResponse, this, [this] { noteAnswer(m_identityKnown); });
    connect(controller, &NvxDeviceController::jobSetupReadFromDev, this,
            [this] { noteAnswer(m_setupKnown); });
    connect(controller, &NvxDeviceController::timeChanged, this, [this] { noteAnswer(m_clockKnown); });
    connect(controller, &NvxDeviceController::timeChangeErr, this, [this] { noteAnswer(m_clockKnown); });
    controller->openChannel(ChanCommand);
}

void Recording::noteAnswer(bool& answer)
{
    answer = true;
    if (m_finished || m_stream || !m_identityKnown || !m_setupKnown || !m_clockKnown)
        return;
    m_timeout.stop();
    printDevice();
    startStream();
}

void Recording::printDevice() const
{
    const HydDevice& device = *m_controller->device();
    const HydJobSettings& setup = device.jobSettings();
    QTextStream& out = recordingOut();
    out << "Recorder    " << QString::fromStdString(device.friendlyText()) << ", "
        << QString::fromStdString(device.modelString()) << Qt::endl;
    out << "Firmware    " << QString::fromStdString(device.firmwareVer()) << " of "
        << QString::fromStdString(device.firmwareRel()) << Qt::endl;
    out << "Condition   battery " << device.battPercent() << " %, " << device.temperature() << " °C, "
        << device.humidity() << " % humidity, sensitivity " << device.sensitivity() << " dB re 1 V/µPa"
        << Qt::endl;
    out << "Setup       " << setup.wavRate() << " Hz, " << setup.wavBitDepth() << " bit, "
        << (setup.wavByteOrder() == OrderBigEndian ? "big-endian" : "little-endian") << ", gain "
        << setup.wavGain() << " dB" << Qt::endl;
    if (device.timeUtc() == 0)
        out << "Clock       unknown" << Qt::endl;
    else
        out << "Clock       " << m_controller->deviceTimeUtc().toString(Qt::ISODate) << ", "
            << device.timeUtc() - QDateTime::currentSecsSinceEpoch() << " s ahead of this computer"
            << Qt::endl;
}

// --- Step 3: connect the stream to the monitor and to the logger, and start it.

void Recording::startStream()
{
    const HydDevice& device = *m_controller->device();
    m_stream = std::make_unique<HydStreamAdapter>(StreamWave, m_order.wavePort, m_order.address.toString(),
                                                  device.deviceId(), kAlivePeriodMs, true);
    // The job setup in the record is what the sequence checks of the adapter need.
    m_stream->updateDeviceInfo(device);

    m_logger = std::make_unique<NvxWavLogger>(m_order.fileSeconds, m_order.directory,
                                              filePrefix("REC", device.serial()));
    m_monitor.attach(m_stream.get());
    connect(m_stream.get(), &HydStreamAdapter::eventHeader, m_logger.get(), &NvxWavLogger::handleWavEventHdr);
    connect(m_stream.get(), &HydStreamAdapter::streamDataReady, m_logger.get(), &NvxWavLogger::handleWavData);
    connect(m_stream.get(), &HydStreamAdapter::eventHeader, this,
            [this](const std::shared_ptr<HydStreamEventHeaderPayload>& header) { noteScale(*header); });
    connect(m_logger.get(), &NvxWavLogger::newFileCreated, this,
            [this](const QString& name) { m_files << name; });
    connect(m_logger.get(), &NvxWavLogger::loggingFailed, this,
            [this](const QString& message) { finish(DiskError, message); });
    connect(m_stream.get(), &HydStreamAdapter::streamDisconnected, this, [this] {
        finish(Refused,
               QStringLiteral("the recorder refuses its wave stream on port %1.").arg(m_order.wavePort));
    });
    connect(m_stream.get(), &HydStreamAdapter::streamNotify, this,
            [](const std::shared_ptr<HydStreamNotifyPayload>& note) {
                recordingOut() << "The recorder says: " << QString::fromStdString(note->text()) << " (code "
                               << note->errorCode() << ')' << Qt::endl;
            });
    connect(&m_monitor, &NvxStreamMonitor::gapFound, this,
            [](const HydDeviceId&, qint64 first, qint64 count) {
                recordingOut() << "Lost " << count << " samples from number " << first << " on" << Qt::endl;
            });

    recordingOut() << "Recording " << m_order.seconds << " s from port " << m_order.wavePort << Qt::endl;
    // Later connections start by themselves for as long as the stream is on.
    connect(m_stream.get(), &HydStreamAdapter::streamConnected, m_stream.get(),
            &HydStreamAdapter::startStream,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::SingleShotConnection));
    m_stream->connectStream();
    m_side = std::make_unique<SideRecording>(m_order.side, m_order.address, device, m_order.directory,
                                             m_order.fileSeconds);
    m_side->start();
    m_sinceStart.start();
    m_watch.start();
}

void Recording::noteScale(const HydStreamEventHeaderPayload& header)
{
    const auto setup = header.streamSetupChunk()->wavSetup();
    if (!setup || header.amplScalingChunks().empty() || header.deviceInfoChunks().empty())
        return;
    const HydAmplScalingChunk& scaling = *header.amplScalingChunks().front();
    const double volts = (double(scaling.maxMicrovolts()) - scaling.minMicrovolts()) / 2e6;
    m_scale =
        SoundScale{volts, double(setup->gain()), header.deviceInfoChunks().front()->sensitivity() / 10.0};
}

void Recording::watchStream()
{
    const NvxStreamStats stats = m_monitor.total();
    const auto elapsed = m_sinceStart.elapsed();
    if (elapsed / kProgressMs != (elapsed - kWatchMs) / kProgressMs)
        printProgress(stats);

    const std::chrono::milliseconds patience(m_order.patienceMs);
    const bool silent = stats.lastBlockAge ? *stats.lastBlockAge > patience : elapsed > m_order.patienceMs;
    if (silent)
        finish(NoData, QStringLiteral("no samples came for %1 s.").arg(m_order.patienceMs / 1000));
    else if (stats.nominalRate > 0 &&
             stats.samplesReceived + stats.samplesMissing >= uint64_t(m_order.seconds) * stats.nominalRate)
        finish(Done);
}

void Recording::printProgress(const NvxStreamStats& stats)
{
    if (stats.blocks == std::exchange(m_printedBlocks, stats.blocks))
        return;
    // Blocks whose header was lost come at a rate that nobody knows yet.
    const QString seconds = stats.nominalRate == 0
                                ? QStringLiteral("?")
                                : QString::number(double(stats.samplesReceived) / stats.nominalRate, 'f', 2);
    recordingOut() << QStringLiteral("%1 s  %2 bytes  %3 Hz  %4 samples lost")
                          .arg(seconds, 8)
                          .arg(stats.bytes, 12)
                          .arg(stats.actualRate, 9, 'f', 0)
                          .arg(stats.samplesMissing)
                   << m_side->progress() << Qt::endl;
}

// --- Step 4: stop, close, report.

void Recording::stop()
{
    finish(m_stream && m_monitor.total().samplesReceived > 0 ? Done : NoData,
           QStringLiteral("stopped before any samples came."));
}

void Recording::finish(Outcome outcome, const QString& complaint)
{
    if (m_finished)
        return;
    m_finished = true;
    m_timeout.stop();
    m_watch.stop();
    if (m_stream) {
        m_stream->stopStream();
        m_logger->stopLogging();
        m_stream->disconnectStream();
        m_side->stop();
        const NvxStreamStats stats = m_monitor.total();
        printProgress(stats);
    }
    if (m_controller)
        m_controller->closeAll();
    printFiles();
    if (outcome != Done)
        QTextStream(stderr) << "record-waves: " << complaint << Qt::endl;
    Q_EMIT finished(outcome);
}

void Recording::printFiles() const
{
    const QStringList texts = m_side ? m_side->files() : QStringList();
    if (m_files.isEmpty() && texts.isEmpty())
        return;
    recordingOut() << "Files in " << m_order.directory << ':' << Qt::endl;
    for (const QString& file : m_files)
        recordingOut() << "  " << describeWaveFile(file, m_scale) << Qt::endl;
    for (const QString& file : texts)
        recordingOut() << "  " << describeTextFile(file) << Qt::endl;
}
