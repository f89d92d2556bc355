// Stream socket to payload signal, and to a wave file, against a bare QTcpSocket reader on the same bytes in
// the same run. The recorder is a process of its own that sends frames made beforehand.
#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "NvxQtCommon/streaming/HydStreamAdapter.h"
#include "NvxQtCommon/streaming/NvxStreamMonitor.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <vector>

namespace {

const char* const kAddress = "127.44.1.1";
constexpr uint32_t kRate = 512000;
constexpr uint8_t kBytesPerSample = 3;

/// What the recorder sends in one round: whole seconds of 24-bit samples at 512 kHz, in blocks of one size.
struct Load
{
    uint16_t blockSamples = 0;
    uint32_t seconds = 0;
    uint64_t blocks() const { return seconds * uint64_t{(kRate + blockSamples - 1U) / blockSamples}; }
    uint64_t sampleBytes() const { return uint64_t{seconds} * kRate * kBytesPerSample; }
};

std::shared_ptr<HydEventKeyChunk const> key(uint32_t second)
{
    stKEY_CHUNK_V1 record;
    record.time = 1700000000 + second;
    const uint64_t sequence = uint64_t{second} * kRate;
    record.seqHigh = static_cast<uint32_t>(sequence >> 32);
    record.seqLow = static_cast<uint32_t>(sequence);
    return std::make_shared<HydEventKeyChunkV1>(&record);
}

std::vector<uint8_t> headerFrame(uint32_t second)
{
    stDEVICE_CHUNK_V1 device;
    device.devType = DevTypeRecorderA;
    device.serial = 1234;
    stSTATUS_CHUNK_V0 status;
    stWAVE_SETUP_CHUNK_V0 setup;
    setup.sampleRate = kRate;
    setup.format = kBytesPerSample;
    stAMPLITUDE_CHUNK_V0 scaling;
    scaling.bitsPerSample = kBytesPerSample * 8;
    return HydStreamMessage(std::make_shared<HydStreamEventHeaderPayload>(
                                key(second),
                                std::vector<std::shared_ptr<HydDeviceInfoChunk const>>{
                                    std::make_shared<HydDeviceInfoChunkV1>(&device)},
                                std::vector<std::shared_ptr<HydStreamStatusChunk const>>{
                                    std::make_shared<HydStreamStatusChunkV0>(&status)},
                                HydStreamSetupContainer(std::shared_ptr<HydWavSetupChunk const>(
                                    std::make_shared<HydWavSetupChunk>(&setup))),
                                std::vector<std::shared_ptr<HydAmplScalingChunk const>>{
                                    std::make_shared<HydAmplScalingChunkV0>(&scaling)},
                                static_cast<unsigned char>(1), nullptr))
        .frame();
}

std::vector<uint8_t> blockFrame(uint32_t second, uint32_t start, uint16_t count)
{
    const size_t size = size_t{count} * kBytesPerSample;
    auto* bytes = new unsigned char[size];
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>((start + i) * 31);
    return HydStreamMessage(
               std::make_shared<HydStreamDataPayload>(
                   key(second), std::make_shared<HydStreamDataChunkV0>(
                                    start, static_cast<unsigned char>(1),
                                    static_cast<unsigned char>(0x80 | kBytesPerSample), count, bytes, false)))
        .frame();
}

std::vector<uint8_t> makeFrames(const Load& load)
{
    std::vector<uint8_t> all;
    all.reserve(load.sampleBytes() + load.blocks() * 64 + load.seconds * 256ULL);
    const auto append = [&all](const std::vector<uint8_t>& frame) {
        all.insert(all.end(), frame.begin(), frame.end());
    };
    for (uint32_t second = 0; second < load.seconds; ++second) {
        append(headerFrame(second));
        for (uint32_t start = 0; start < kRate; start += load.blockSamples)
            append(blockFrame(second, start,
                              static_cast<uint16_t>(std::min<uint32_t>(load.blockSamples, kRate - start))));
    }
    return all;
}

/// The recorder: answers the start message of each connection with all frames.
class Sender
{
public:
    explicit Sender(const Load& load)
    {
        int ready[2] = {-1, -1};
        if (pipe(ready) != 0)
            qFatal("no pipe");
        m_child = fork();
        if (m_child == 0) {
            close(ready[0]);
            serve(load, ready[1]);
        }
        close(ready[1]);
        Announcement announcement;
        if (read(ready[0], &announcement, sizeof announcement) != sizeof announcement)
            qFatal("the sender didn't come up");
        close(ready[0]);
        port = announcement.port;
        wireBytes = announcement.wireBytes;
    }
    ~Sender()
    {
        kill(m_child, SIGTERM);
        waitpid(m_child, nullptr, 0);
    }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    quint16 port = 0;
    uint64_t wireBytes = 0;

private:
    struct Announcement
    {
        uint64_t wireBytes = 0;
        quint16 port = 0;
    };

    [[noreturn]] static void serve(const Load& load, int ready)
    {
        const std::vector<uint8_t> frames = makeFrames(load);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(QHostAddress(QLatin1String(kAddress)).toIPv4Address());
        socklen_t size = sizeof address;
        auto* where = reinterpret_cast<sockaddr*>(&address);
        const int listener = socket(AF_INET, SOCK_STREAM, 0);
        if (bind(listener, where, size) != 0 || listen(listener, 1) != 0 ||
            getsockname(listener, where, &size) != 0)
            _exit(1);
        const Announcement announcement{frames.size(), ntohs(address.sin_port)};
        if (write(ready, &announcement, sizeof announcement) != sizeof announcement)
            _exit(1);
        while (true) {
            const int link = accept(listener, nullptr, nullptr);
            char start[8];
            if (recv(link, start, sizeof start, MSG_WAITALL) == sizeof start) {
                size_t sent = 0;
                while (sent < frames.size()) {
                    const ssize_t count =
                        send(link, frames.data() + sent, frames.size() - sent, MSG_NOSIGNAL);
                    if (count <= 0)
                        break;
                    sent += static_cast<size_t>(count);
                }
                // Wait for the receiver to go.
                while (recv(link, start, sizeof start, 0) > 0) {
                }
            }
            close(link);
        }
    }

    pid_t m_child = -1;
};

struct Cost
{
    double seconds = 0;
    double cpuSeconds = 0;
};

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto value = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return value(usage.ru_utime) + value(usage.ru_stime);
}

/// Runs the event loop from `start` until done() is called.
class Stopwatch
{
public:
    Cost run(const std::function<void()>& start)
    {
        const double cpuBefore = cpuSeconds();
        m_clock.start();
        start();
        m_loop.exec();
        return {static_cast<double>(m_nanoseconds) * 1e-9, cpuSeconds() - cpuBefore};
    }
    void done()
    {
        m_nanoseconds = m_clock.nsecsElapsed();
        m_loop.quit();
    }

private:
    QElapsedTimer m_clock;
    qint64 m_nanoseconds = 0;
    QEventLoop m_loop;
};

QString tmpfsPattern()
{
    return QStringLiteral("/dev/shm/bench_stream_XXXXXX");
}

/// A plain reader; `toFile` writes what it reads, so that the file system's share of the work shows.
Cost readBare(const Sender& sender, bool toFile)
{
    constexpr qint64 kBuffer = 3145728;
    const auto buffer = std::make_unique_for_overwrite<char[]>(kBuffer);
    // Outlives the measurement: removing the file isn't part of it.
    QTemporaryDir folder(tmpfsPattern());
    QFile file(folder.filePath(QStringLiteral("bare")));
    if (toFile && !file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        qFatal("no file");
    uint64_t received = 0;
    Stopwatch watch;
    QTcpSocket socket;
    QObject::connect(&socket, &QTcpSocket::connected, &socket,
                     [&] { socket.write("\x33\x2A\0\4\0\0\0\0", 8); });
    QObject::connect(&socket, &QTcpSocket::readyRead, &socket, [&] {
        for (qint64 count = 0; (count = socket.read(buffer.get(), kBuffer)) > 0;) {
            received += static_cast<uint64_t>(count);
            if (toFile && file.write(buffer.get(), count) != count)
                qFatal("the file takes no more");
        }
        if (received == sender.wireBytes)
            watch.done();
    });
    return watch.run([&] { socket.connectToHost(QHostAddress(QLatin1String(kAddress)), sender.port); });
}

enum class Consumer { Slot, Monitor, Logger };

Cost readByAdapter(const Sender& sender, const Load& load, Consumer consumer)
{
    const HydDeviceId devId(DevTypeRecorderA, 1234);
    // Outlives the measurement: removing the file isn't part of it.
    QTemporaryDir folder(tmpfsPattern());
    HydStreamAdapter adapter(StreamWave, sender.port, QLatin1String(kAddress), devId, 3600000, true);
    NvxStreamMonitor monitor;
    std::unique_ptr<NvxWavLogger> logger;
    if (consumer == Consumer::Monitor)
        monitor.attach(&adapter);
    if (consumer == Consumer::Logger) {
        logger = std::make_unique<NvxWavLogger>(86400, folder.path(), QStringLiteral("bench"));
        QObject::connect(&adapter, &HydStreamAdapter::eventHeader, logger.get(),
                         &NvxWavLogger::handleWavEventHdr);
        QObject::connect(&adapter, &HydStreamAdapter::streamDataReady, logger.get(),
                         &NvxWavLogger::handleWavData);
        QObject::connect(logger.get(), &NvxWavLogger::loggingFailed, logger.get(),
                         [](const QString& message) { qFatal("%s", qPrintable(message)); });
    }
    uint64_t bytes = 0;
    uint64_t blocks = 0;
    Stopwatch watch;
    QObject::connect(&adapter, &HydStreamAdapter::streamDataReady, &adapter,
                     [&](const std::shared_ptr<HydStreamDataPayload>& payload) {
                         bytes += payload->data()->byteSize();
                         if (++blocks != load.blocks())
                             return;
                         if (logger)
                             logger->stopLogging();
                         watch.done();
                     });
    const Cost cost = watch.run([&] { adapter.startStream(); });
    if (bytes != load.sampleBytes() || adapter.droppedReads() != 0 || adapter.skippedBytes() != 0)
        qFatal("bytes were lost");
    if (consumer == Consumer::Monitor &&
        (monitor.stats(devId).samplesMissing != 0 ||
         monitor.stats(devId).samplesReceived != uint64_t{load.seconds} * kRate))
        qFatal("the monitor misses samples");
    if (consumer == Consumer::Logger) {
        qint64 written = 0;
        for (const QFileInfo& file : QDir(folder.path()).entryInfoList(QDir::Files))
            written += file.size();
        if (written < static_cast<qint64>(load.sampleBytes()))
            qFatal("the file is too short");
    }
    return cost;
}

Cost median(std::vector<Cost> costs)
{
    const auto middle = [&costs](double Cost::*field) {
        std::vector<double> values;
        for (const Cost& cost : costs)
            values.push_back(cost.*field);
        std::sort(values.begin(), values.end());
        return values[values.size() / 2];
    };
    return {middle(&Cost::seconds), middle(&Cost::cpuSeconds)};
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Stream socket to payload signal and to file, against a bare reader."));
    parser.addHelpOption();
    parser.addOption({QStringLiteral("rounds"), QStringLiteral("Rounds; medians are printed."),
                      QStringLiteral("N"), QStringLiteral("7")});
    parser.addOption({QStringLiteral("seconds"), QStringLiteral("Seconds of 512 kHz 24 bit in a round."),
                      QStringLiteral("N"), QStringLiteral("300")});
    parser.addOption({QStringLiteral("only"),
                      QStringLiteral("Runs only the receivers whose name holds this text, for profiling."),
                      QStringLiteral("text")});
    parser.process(app);
    const QString only = parser.value(QStringLiteral("only"));
    const int rounds = std::max(1, parser.value(QStringLiteral("rounds")).toInt());
    const auto seconds = std::max(1U, parser.value(QStringLiteral("seconds")).toUInt());

    QTextStream out(stdout);
    out << "| block | receiver | MB/s | CPU s/GB | of the bare reader's MB/s |\n|---|---|---|---|---|\n";
    for (const uint16_t blockSamples : {1024, 5120, 51200}) {
        const Load load{blockSamples, seconds};
        const Sender sender(load);
        std::vector<std::pair<const char*, std::function<Cost()>>> receivers = {
            {"bare QTcpSocket", [&] { return readBare(sender, false); }},
            {"bare QTcpSocket and file on tmpfs", [&] { return readBare(sender, true); }},
            {"payload signal", [&] { return readByAdapter(sender, load, Consumer::Slot); }},
            {"payload signal and monitor", [&] { return readByAdapter(sender, load, Consumer::Monitor); }},
            {"wave file on tmpfs", [&] { return readByAdapter(sender, load, Consumer::Logger); }},
        };
        std::erase_if(receivers, [&](const auto& one) { return !QLatin1String(one.first).contains(only); });
        if (receivers.empty())
            parser.showHelp(1);
        std::vector<std::vector<Cost>> costs(receivers.size());
        // Taking turns, so that whatever else the machine does hits all alike; the first turn only warms up.
        for (int round = 0; round <= rounds; ++round)
            for (size_t i = 0; i < receivers.size(); ++i)
                if (const Cost cost = receivers[i].second(); round > 0)
                    costs[i].push_back(cost);
        const double bare = median(costs[0]).seconds;
        for (size_t i = 0; i < receivers.size(); ++i) {
            const Cost cost = median(costs[i]);
            const double megabytes = static_cast<double>(sender.wireBytes) * 1e-6;
            out << "| " << blockSamples * kBytesPerSample << " bytes | " << receivers[i].first << " | "
                << qRound(megabytes / cost.seconds) << " | "
                << QString::number(cost.cpuSeconds / megabytes * 1000, 'f', 3) << " | "
                << QString::number(bare / cost.seconds, 'f', 2) << " |" << Qt::endl;
        }
    }
    return 0;
}
