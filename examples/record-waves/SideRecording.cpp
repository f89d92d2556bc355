#include "record-waves/SideRecording.h"

#include "shared/FilePrefix.h"

#include <QTextStream>

#include <algorithm>

namespace {

constexpr int kSideAlivePeriodMs = 1000;
constexpr int kSecondsPerMinute = 60;

} // namespace

SideRecording::SideRecording(const SideOrder& order, const QHostAddress& address, const HydDevice& device,
                             const QString& directory, int fileSeconds)
    : m_device(device)
{
    const int minutes = std::max(1, fileSeconds / kSecondsPerMinute);
    if (order.spectrumPort != 0)
        addSpectra(addStream(StreamSpectrum, order.spectrumPort, address), directory, minutes);
    if (order.sensorPort != 0)
        addSensors(addStream(StreamSensor, order.sensorPort, address), directory, minutes);
}

SideRecording::~SideRecording() = default;

HydStreamAdapter* SideRecording::addStream(HydStreamType type, quint16 port, const QHostAddress& address)
{
    m_streams.push_back(std::make_unique<HydStreamAdapter>(type, port, address.toString(),
                                                           m_device.deviceId(), kSideAlivePeriodMs, true));
    HydStreamAdapter* stream = m_streams.back().get();
    stream->updateDeviceInfo(m_device);
    connect(stream, &HydStreamAdapter::streamDisconnected, this, [type, port] {
        QTextStream(stdout) << "The recorder refuses its "
                            << QString::fromStdString(streamTypeText(type)).toLower() << " stream on port "
                            << port << ", which is left out" << Qt::endl;
    });
    // Later connections start by themselves for as long as the stream is on.
    connect(stream, &HydStreamAdapter::streamConnected, stream, &HydStreamAdapter::startStream,
            static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::SingleShotConnection));
    return stream;
}

void SideRecording::addSpectra(HydStreamAdapter* stream, const QString& directory, int minutes)
{
    auto logger =
        std::make_unique<NvxSpecLogger>(0, directory, filePrefix("SPC", m_device.serial()), nullptr);
    logger->setMaxNumRecs(0, true);
    logger->calcMaxNumRecs(m_device.jobSettings(), minutes);
    connect(stream, &HydStreamAdapter::eventHeader, logger.get(), &NvxSpecLogger::handleEventHdr);
    connect(stream, &HydStreamAdapter::streamDataReady, logger.get(), &NvxSpecLogger::handleData);
    connect(stream, &HydStreamAdapter::streamDataReady, this, [this] { ++m_spectra; });
    keepFiles(logger.get());
    m_loggers.push_back(std::move(logger));
}

void SideRecording::addSensors(HydStreamAdapter* stream, const QString& directory, int minutes)
{
    stream->setReqData(SensAccMag | SensTimeBattery);
    struct Kind
    {
        SENSOR_LOG_TYPE type;
        const char* letters;
        int length; ///< minutes of motion, readings of the battery
    };
    for (const Kind& kind : {Kind{SensorLogAccMag, "ACC", minutes},
                             Kind{SensorLogBattery, "BAT", minutes * kSecondsPerMinute}}) {
        auto logger = std::make_unique<NvxSensorsLogger>(
            0, directory, filePrefix(kind.letters, m_device.serial()), nullptr);
        logger->setLogParams(kind.type, kind.length, directory);
        logger->setDevId(m_device.deviceId());
        logger->setDevice(m_device);
        logger->setReady(true);
        connect(stream, &HydStreamAdapter::streamStatusData, logger.get(),
                [this, logger = logger.get()](const std::shared_ptr<HydStatusDataPayload>& payload,
                                              const HydDeviceId& id) {
                    // The clock that the record will bear: that of the reading.
                    if (payload->eventKey())
                        m_device.setTimeUtc(static_cast<uint32_t>(payload->eventKey()->eventId()));
                    logger->devTimeUpdated(m_device);
                    logger->handleDataReady(payload, id);
                });
        keepFiles(logger.get());
        m_loggers.push_back(std::move(logger));
    }
    connect(stream, &HydStreamAdapter::streamStatusData, this, [this] { ++m_readings; });
}

void SideRecording::keepFiles(NvxSpecLogger* logger)
{
    connect(logger, &NvxSpecLogger::newFileCreated, this, [this](const QString& name) { m_files << name; });
}

void SideRecording::start()
{
    for (const auto& stream : m_streams)
        stream->connectStream();
}

void SideRecording::stop()
{
    for (const auto& stream : m_streams)
        stream->stopStream();
    for (const auto& logger : m_loggers)
        logger->stopLogging();
    for (const auto& stream : m_streams)
        stream->disconnectStream();
}

QString SideRecording::progress() const
{
    QString text;
    if (m_spectra > 0)
        text += QStringLiteral("  %1 spectra").arg(m_spectra);
    if (m_readings > 0)
        text += QStringLiteral("  %1 readings").arg(m_readings);
    return text;
}
