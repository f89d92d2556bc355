#include "array-spectra/ChannelFiles.h"

#include "shared/FilePrefix.h"

ChannelFiles::ChannelFiles(const QString& directory, QObject* parent)
    : QObject(parent), m_directory(directory)
{
}

ChannelFiles::~ChannelFiles() = default;

ChannelFiles::Channel& ChannelFiles::channelOf(const HydDeviceId& id)
{
    Channel& channel = m_channels[id.serialNo()];
    if (!channel.logger) {
        // One file a channel, however long it gets.
        channel.logger =
            std::make_unique<NvxSpecLogger>(0, m_directory, filePrefix("SPC", id.serialNo()), nullptr);
        connect(channel.logger.get(), &NvxSpecLogger::newFileCreated, this,
                [&channel](const QString& name) { channel.files << name; });
        connect(channel.logger.get(), &NvxSpecLogger::loggingFailed, this, &ChannelFiles::failed);
    }
    return channel;
}

void ChannelFiles::takeHeader(const std::shared_ptr<HydStreamEventHeaderPayload>& header,
                              const HydDeviceId& channel, const std::shared_ptr<HydDevice>& device)
{
    channelOf(channel).logger->handleEventHdr(header, channel, device);
}

void ChannelFiles::takeData(const std::shared_ptr<HydStreamDataPayload>& payload, const HydDeviceId& channel)
{
    Channel& known = channelOf(channel);
    const int64_t sequence = payload->eventKey()->sequence();
    if (known.nextSequence >= 0 && sequence > known.nextSequence)
        m_lost += static_cast<uint64_t>(sequence - known.nextSequence);
    known.nextSequence = sequence + 1;
    ++m_spectra;
    known.logger->handleData(payload, channel);
}

void ChannelFiles::stop()
{
    for (auto& [serial, channel] : m_channels)
        channel.logger->stopLogging();
}

QStringList ChannelFiles::files() const
{
    QStringList names;
    for (const auto& [serial, channel] : m_channels)
        names << channel.files;
    return names;
}
