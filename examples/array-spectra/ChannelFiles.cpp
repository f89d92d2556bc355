#include "array-spectra/ChannelFiles.h"

#include "shared/FilePrefix.h"

#include <algorithm>

ChannelFiles::ChannelFiles(const QString& directory, QObject* parent)
    : QObject(parent), m_directory(directory)
{
}

ChannelFiles::~ChannelFiles() = default;

ChannelFiles::Channel* ChannelFiles::channelOf(const HydDeviceId& id)
{
    // A file for each serial number that comes would be up to 65536 open files.
    const auto found = m_channels.find(id.serialNo());
    if (found == m_channels.end())
        return nullptr;
    Channel& channel = found->second;
    if (!channel.logger) {
        // One file a channel, however long it gets.
        channel.logger =
            std::make_unique<NvxSpecLogger>(0, m_directory, filePrefix("SPC", id.serialNo()), nullptr);
        connect(channel.logger.get(), &NvxSpecLogger::newFileCreated, this,
                [&channel](const QString& name) { channel.files << name; });
        connect(channel.logger.get(), &NvxSpecLogger::loggingFailed, this, &ChannelFiles::failed);
    }
    return &channel;
}

size_t ChannelFiles::channels() const
{
    return static_cast<size_t>(std::count_if(m_channels.begin(), m_channels.end(), [](const auto& entry) {
        return entry.second.logger != nullptr;
    }));
}

void ChannelFiles::takeHeader(const std::shared_ptr<HydStreamEventHeaderPayload>& header,
                              const HydDeviceId& channel, const std::shared_ptr<HydDevice>& device)
{
    if (const Channel* known = channelOf(channel))
        known->logger->handleEventHdr(header, channel, device);
}

void ChannelFiles::takeData(const std::shared_ptr<HydStreamDataPayload>& payload, const HydDeviceId& channel)
{
    Channel* known = channelOf(channel);
    if (known == nullptr) {
        ++m_foreign;
        return;
    }
    const int64_t sequence = payload->eventKey()->sequence();
    if (known->nextSequence >= 0 && sequence > known->nextSequence)
        m_lost += static_cast<uint64_t>(sequence - known->nextSequence);
    known->nextSequence = sequence + 1;
    ++m_spectra;
    known->logger->handleData(payload, channel);
}

void ChannelFiles::stop()
{
    for (auto& [serial, channel] : m_channels)
        if (channel.logger)
            channel.logger->stopLogging();
}

QStringList ChannelFiles::files() const
{
    QStringList names;
    for (const auto& [serial, channel] : m_channels)
        names << channel.files;
    return names;
}
