#include "WavReplay.h"

#include <QTest>

Watchdog::Watchdog(std::chrono::seconds limit)
    : m_thread([this, limit] {
          std::unique_lock lock(m_mutex);
          if (!m_done.wait_for(lock, limit, [this] { return m_isDone; }))
              qFatal("the test doesn't end");
      })
{
}

Watchdog::~Watchdog()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isDone = true;
    }
    m_done.notify_one();
    m_thread.join();
}

WavReplay::WavReplay(const QString& path) : file(path)
{
    connect(&file, &NvxDataFile::signalDeviceReady, this, [this](const HydDevice& device) {
        devices.push_back(device);
        events << QStringLiteral("device");
    });
    connect(&file, &NvxDataFile::streamHeaderReady, this,
            [this](std::shared_ptr<HydStreamEventHeaderPayload> payload, HydDeviceId devId,
                   std::shared_ptr<HydDevice> device) {
                headers.push_back({std::move(payload), std::move(devId), std::move(device)});
                events << QStringLiteral("header");
            });
    connect(&file, &NvxDataFile::streamDataReady, this,
            [this](std::shared_ptr<HydStreamDataPayload> payload, HydDeviceId devId) {
                blocks.push_back({std::move(payload), std::move(devId)});
                events << QStringLiteral("data");
            });
    connect(&file, &NvxDataFile::streamFileStarted, this, [this] { events << QStringLiteral("started"); });
    connect(&file, &NvxDataFile::streamFileFinished, this, [this] { events << QStringLiteral("finished"); });
    connect(&file, &NvxDataFile::threadFinished, this,
            [this] { events << QStringLiteral("thread finished"); });
    connect(&file, &NvxWAVFile::signalFWFFTLenChanged, this, [this] { ++fftChanges; });
}

bool WavReplay::play()
{
    const auto ends = events.count(QStringLiteral("thread finished"));
    file.setReplayVel(ReplayMax, 0);
    return file.processData() &&
           QTest::qWaitFor([&] { return events.count(QStringLiteral("thread finished")) > ends; }, 30000);
}

std::vector<int32_t> samplesOf(const HydStreamDataChunk& data)
{
    std::vector<int32_t> samples;
    const unsigned width = data.bytesPerSample();
    const auto bytes = data.bytes();
    for (unsigned i = 0; i < data.numSamples(); ++i) {
        uint32_t value = 0;
        for (unsigned k = 0; k < width; ++k)
            value = value << 8 | bytes[i * width + (data.isBigEndian() ? k : width - 1 - k)];
        samples.push_back(static_cast<int32_t>(value << (32 - 8 * width)) >> (32 - 8 * width));
    }
    return samples;
}

std::vector<int32_t> WavReplay::samples(int channel) const
{
    std::vector<int32_t> all;
    const auto channels = static_cast<size_t>(file.channelDevices().size());
    for (size_t i = static_cast<size_t>(channel); i < blocks.size(); i += channels) {
        const auto part = samplesOf(blocks[i].data());
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

QStringList WavReplay::order() const
{
    QStringList order;
    for (const QString& event : events) {
        if (order.isEmpty() || order.last() != event)
            order << event;
    }
    return order;
}
