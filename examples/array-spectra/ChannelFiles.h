#pragma once

#include "NvxQtCommon/logging/NvxSpecLogger.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <map>
#include <memory>

/// The spectrum files of all channels of one array controller, and the account of what came: each channel of
/// its list has a logger of its own from its first frame on.
class ChannelFiles : public QObject
{
    Q_OBJECT

public:
    /// `directory` exists.
    explicit ChannelFiles(const QString& directory, QObject* parent = nullptr);
    ~ChannelFiles() override;

    /// Takes a serial number into the list of channels; frames of others are only counted.
    void expect(uint16_t serial) { m_channels.try_emplace(serial); }
    /// Completes the files.
    void stop();
    /// Those that sent a frame.
    size_t channels() const;
    uint64_t spectra() const { return m_spectra; }
    /// Frames that the sequence numbers show to be missing.
    uint64_t lost() const { return m_lost; }
    /// Spectra of channels that the list doesn't have.
    uint64_t foreign() const { return m_foreign; }
    /// In the order of the channels' serial numbers.
    QStringList files() const;

public Q_SLOTS:
    void takeHeader(const std::shared_ptr<HydStreamEventHeaderPayload>& header, const HydDeviceId& channel,
                    const std::shared_ptr<HydDevice>& device);
    void takeData(const std::shared_ptr<HydStreamDataPayload>& payload, const HydDeviceId& channel);

Q_SIGNALS:
    /// A file can't be written.
    void failed(const QString& message);

private:
    struct Channel
    {
        std::unique_ptr<NvxSpecLogger> logger;
        QStringList files;
        int64_t nextSequence = -1;
    };

    /// Null for one that the list doesn't have.
    Channel* channelOf(const HydDeviceId& id);

    QString m_directory;
    std::map<uint16_t, Channel> m_channels;
    uint64_t m_spectra = 0;
    uint64_t m_lost = 0;
    uint64_t m_foreign = 0;
};
