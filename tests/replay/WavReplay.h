#pragma once

#include "NvxQtCommon/replay/NvxWAVFile.h"

#include <QStringList>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

/// Ends the program when the test that holds it doesn't come to its end: an endless loop fails at once, and
/// not with all of CTest's patience.
class Watchdog
{
public:
    explicit Watchdog(std::chrono::seconds limit = std::chrono::seconds(30));
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    std::mutex m_mutex;
    std::condition_variable m_done;
    bool m_isDone = false;
    std::thread m_thread;
};

/// Plays a wave file and keeps all that it reports, in its order.
class WavReplay : public QObject
{
    Q_OBJECT

public:
    struct Header
    {
        std::shared_ptr<HydStreamEventHeaderPayload> payload;
        HydDeviceId devId;
        std::shared_ptr<HydDevice> device;
    };
    struct Block
    {
        std::shared_ptr<HydStreamDataPayload> payload;
        HydDeviceId devId;

        const HydStreamDataChunk& data() const { return *payload->data(); }
        const HydEventKeyChunk& key() const { return *payload->eventKey(); }
    };

    explicit WavReplay(const QString& path);

    /// Reads the header; false where that failed.
    bool prepare() { return file.headerPrepare(true); }
    /// Plays to the end, as fast as it can; false when there is no end within half a minute.
    bool play();
    /// Samples of a channel, from 0, in the order in which they came; as numbers with the sign that the width
    /// gives them.
    std::vector<int32_t> samples(int channel) const;
    /// "device", "header", "started", "data", "finished", "thread finished"; repeated ones once.
    QStringList order() const;

    NvxWAVFile file;
    std::vector<HydDevice> devices;
    std::vector<Header> headers;
    std::vector<Block> blocks;
    QStringList events; ///< one for each signal
    int fftChanges = 0;
};

/// The samples of a block.
std::vector<int32_t> samplesOf(const HydStreamDataChunk& data);
