#include "array-spectra/ArrayRun.h"

#include "shared/FileReport.h"

#include "NvxQtCommon/contract/device/SkiffDevice.h"

#include <QDateTime>
#include <QNetworkReply>
#include <QTextStream>

namespace {

constexpr int kArrayWatchMs = 100;
constexpr int kArrayProgressMs = 1000;

QTextStream& arrayOut()
{
    static QTextStream stream(stdout);
    return stream;
}

} // namespace

ArrayRun::ArrayRun(const ArrayOrder& order, QObject* parent)
    : QObject(parent), m_order(order), m_device(std::make_shared<ZcrDevice>(DevTypeZcr)),
      m_files(order.directory)
{
    m_manager.setAutoDeleteReplies(true);
    m_device->setSerial(order.serial);
    m_device->setNetHostInfo(NvxNetHostInfo(order.address.toIPv4Address()));
    m_timeout.setSingleShot(true);
    m_watch.setInterval(kArrayWatchMs);
    connect(&m_watch, &QTimer::timeout, this, &ArrayRun::watchStream);
}

ArrayRun::~ArrayRun() = default;

// --- Step 1: the list of channels, by FTP, and a frame of each.

void ArrayRun::start()
{
    m_controller = std::dynamic_pointer_cast<ZcrDeviceController>(
        NvxDeviceController::createController(m_device, ConnTcp));
    ZcrDeviceController* controller = m_controller.get();
    controller->setNetworkAccessManager(&m_manager);
    connect(controller, &NvxDeviceController::enquireResponse, this, &ArrayRun::takeChannels);
    connect(controller, &NvxDeviceController::timeChanged, this, &ArrayRun::takeSettings);
    connect(controller, &ZcrDeviceController::signalZCRnoArray, this, [this] {
        if (m_step == Step::Channels)
            finish(NothingFound, QStringLiteral("the array controller has no channels."));
    });
    connect(controller, &ZcrDeviceController::signalZCRErrorStream, this, [this] {
        if (m_step != Step::Channels)
            return;
        arrayOut() << "Not all channels send spectra" << Qt::endl;
        takeChannels();
    });
    // The controller itself tells nothing of a request that fails.
    connect(&m_manager, &QNetworkAccessManager::finished, this, [this](const QNetworkReply* reply) {
        if (m_step == Step::Settings && reply->error() != QNetworkReply::NoError)
            finish(Refused, QStringLiteral("the array controller doesn't tell its settings by HTTP: %1.")
                                .arg(reply->errorString()));
    });
    connect(&m_timeout, &QTimer::timeout, this, [this] {
        if (m_step == Step::Channels)
            finish(NothingFound, QStringLiteral("no array controller gives its list of channels at %1.")
                                     .arg(m_order.address.toString()));
        else
            finish(Refused, QStringLiteral("the array controller doesn't tell its settings by HTTP."));
    });
    arrayOut() << "Looking for an array controller at " << m_order.address.toString() << Qt::endl;
    m_timeout.start(m_order.patienceMs);
    controller->checkStatus(&m_manager);
}

// --- Step 2: its settings and its clock, by HTTP.

void ArrayRun::takeChannels()
{
    if (m_step != Step::Channels)
        return;
    m_step = Step::Settings;
    printChannels();
    m_timeout.start(m_order.patienceMs);
    m_controller->sendZcrEnquire();
}

void ArrayRun::takeSettings()
{
    if (m_step != Step::Settings)
        return;
    m_timeout.stop();
    const HydJobSettings& setup = m_device->jobSettings();
    arrayOut() << "Setup       " << setup.wavRate() << " Hz, " << setup.wavBitDepth() << " bit, spectra of "
               << setup.fftPoints() << " points, " << setup.fftRef() << " dB re 1 V" << Qt::endl
               << "Clock       " << m_controller->deviceTimeUtc().toString(Qt::ISODate) << Qt::endl;
    // The stream begins when the slots of this signal are through.
    QTimer::singleShot(0, this, &ArrayRun::startStream);
    m_step = Step::Spectra;
}

void ArrayRun::printChannels() const
{
    arrayOut() << "Array       serial number " << m_device->serial() << ", " << m_device->devList().size()
               << " channels" << Qt::endl;
    for (const auto& device : m_device->devList()) {
        const auto* channel = dynamic_cast<const SkiffDevice*>(device.get());
        if (channel == nullptr)
            continue;
        arrayOut() << "  " << channel->serial() << "  channel " << channel->zcrChannel() << ", "
                   << channel->bandWidth() << " bins, " << channel->temperature() << " °C, sensitivity "
                   << channel->sensitivity() << " dB re 1 V/µPa" << Qt::endl;
    }
}

// --- Step 3: the spectra of all channels into files.

void ArrayRun::startStream()
{
    if (m_step != Step::Spectra)
        return;
    m_stream = std::make_unique<ZcrStreamAdapter>(StreamSpectrum, CZCRWebSocket::kPort,
                                                  m_order.address.toString(), m_device->deviceId(), 0);
    m_stream->updateDeviceInfo(*m_device);
    connect(m_stream.get(), &HydStreamAdapter::eventHeader, &m_files, &ChannelFiles::takeHeader);
    connect(m_stream.get(), &HydStreamAdapter::streamDataReady, &m_files, &ChannelFiles::takeData);
    connect(m_stream.get(), &HydStreamAdapter::streamDataReady, this, [this] {
        m_sinceSpectrum.start();
        if (!m_sinceStart.isValid())
            m_sinceStart.start();
    });
    // Queued: the run ends the connection, which a slot on it must not.
    connect(
        m_stream.get(), &HydStreamAdapter::socketError, this,
        [this] { finish(Refused, QStringLiteral("the connection for spectra is refused or lost.")); },
        Qt::QueuedConnection);
    connect(
        &m_files, &ChannelFiles::failed, this, [this](const QString& message) { finish(DiskError, message); },
        Qt::QueuedConnection);
    for (const auto& channel : m_device->devList())
        m_files.expect(channel->serial());
    arrayOut() << "Recording " << m_order.seconds << " s" << Qt::endl;
    m_sinceSpectrum.start();
    m_watch.start();
    m_stream->startStream();
}

void ArrayRun::watchStream()
{
    const qint64 elapsed = m_sinceStart.isValid() ? m_sinceStart.elapsed() : 0;
    // The timer is coarse: it may skip any window of a fixed length.
    if (const qint64 second = elapsed / kArrayProgressMs; second > m_secondPrinted) {
        m_secondPrinted = second;
        printProgress();
    }
    if (m_sinceSpectrum.elapsed() > m_order.patienceMs)
        finish(NoData, QStringLiteral("no spectra came for %1 s.").arg(m_order.patienceMs / 1000));
    else if (elapsed >= m_order.seconds * 1000LL)
        stop();
}

void ArrayRun::printProgress() const
{
    arrayOut() << QStringLiteral("%1 s  %2 channels  %3 spectra  %4 lost")
                      .arg(double(m_sinceStart.elapsed()) / 1000.0, 8, 'f', 1)
                      .arg(m_files.channels(), 4)
                      .arg(m_files.spectra(), 8)
                      .arg(m_files.lost())
               << Qt::endl;
}

// --- Step 4: stop, close, report.

void ArrayRun::stop()
{
    finish(m_files.spectra() > 0 ? Done : NoData, QStringLiteral("stopped before any spectra came."));
}

void ArrayRun::finish(Outcome outcome, const QString& complaint)
{
    if (m_step == Step::Over)
        return;
    m_step = Step::Over;
    m_timeout.stop();
    m_watch.stop();
    if (m_stream)
        m_stream->stopStream();
    m_files.stop();
    if (m_controller)
        m_controller->closeAll();
    if (m_files.foreign() > 0)
        arrayOut() << "Left out " << m_files.foreign() << " spectra of channels that aren't in the list"
                   << Qt::endl;
    const QStringList files = m_files.files();
    if (!files.isEmpty())
        arrayOut() << "Files in " << m_order.directory << ':' << Qt::endl;
    for (const QString& file : files)
        arrayOut() << "  " << describeTextFile(file) << Qt::endl;
    if (outcome != Done)
        QTextStream(stderr) << "array-spectra: " << complaint << Qt::endl;
    Q_EMIT finished(outcome);
}
