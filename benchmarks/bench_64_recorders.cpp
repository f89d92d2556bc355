// Many recorders at once: recorder-simulator, as a process of its own, streams the ramp signal of each
// recorder; this process receives all of them on one thread and accounts for every sample.
#include "NvxQtCommon/streaming/HydStreamAdapter.h"
#include "NvxQtCommon/streaming/NvxStreamMonitor.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTextStream>
#include <QTimer>

#include <sys/resource.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace {

constexpr uint16_t kFirstSerial = 1000;
constexpr quint16 kWavePort = 51001;
constexpr int kBytesPerSample = 3;

double cpuSeconds(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    const auto value = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return value(usage.ru_utime) + value(usage.ru_stime);
}

/// Compares samples with the ramp that they should be: each sample is the low 24 bits of its sample number.
class RampCheck
{
public:
    explicit RampCheck(bool everySample) : m_everySample(everySample) {}

    void operator()(const HydStreamDataPayload& payload)
    {
        const HydStreamDataChunk& chunk = *payload.data();
        const uint32_t count = chunk.numSamples();
        if (count == 0 || payload.eventKey() == nullptr)
            return;
        const auto first = static_cast<uint32_t>(payload.eventKey()->sequence() + chunk.sampleNum());
        const unsigned char* bytes = chunk.bytes().get();
        const uint32_t step = m_everySample ? 1 : std::max(1U, count - 1);
        for (uint32_t i = 0; i < count; i += step) {
            const unsigned char* at = bytes + size_t{i} * kBytesPerSample;
            const uint32_t value = at[0] | uint32_t{at[1]} << 8 | uint32_t{at[2]} << 16;
            if (value != ((first + i) & 0xFFFFFF))
                ++wrongSamples;
        }
    }

    uint64_t wrongSamples = 0;

private:
    bool m_everySample;
};

/// The simulator's process. Ready once it has said so.
class Simulator
{
public:
    Simulator(const QString& program, int count, uint32_t rate)
    {
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.start(program,
                        {QStringLiteral("--address"), QStringLiteral("127.46.0.1"), QStringLiteral("--count"),
                         QString::number(count), QStringLiteral("--serial"), QString::number(kFirstSerial),
                         QStringLiteral("--rate"), QString::number(rate), QStringLiteral("--depth"),
                         QStringLiteral("24"), QStringLiteral("--signal"), QStringLiteral("ramp"),
                         QStringLiteral("--no-discovery")});
        while (!m_output.contains("ready\n")) {
            if (!m_process.waitForReadyRead(30000))
                qFatal("the simulator didn't come up: %s",
                       qPrintable(m_process.errorString() + QString::fromUtf8(m_output)));
            m_output += m_process.readAll();
        }
    }
    /// Ends it and gives its last line, which tells what it sent.
    QByteArray finish()
    {
        m_process.readAll();
        m_process.terminate();
        m_process.waitForFinished();
        return m_process.readAll().trimmed();
    }

private:
    QProcess m_process;
    QByteArray m_output;
};

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Receives the streams of many simulated recorders at once."));
    parser.addHelpOption();
    const auto option = [&parser](const char* name, const char* text, const char* value, const char* def) {
        parser.addOption(
            {QLatin1String(name), QLatin1String(text), QLatin1String(value), QLatin1String(def)});
    };
    option("simulator", "The simulator's program.", "path", NVX_SIMULATOR);
    option("count", "Recorders.", "N", "64");
    option("rate", "Sample rate of each.", "Hz", "512000");
    option("seconds", "Length of the measurement.", "s", "10");
    parser.addOption(
        {QStringLiteral("every-sample"),
         QStringLiteral("Compare every sample with the ramp, not only the first and last of each block.")});
    parser.process(app);
    const int count = parser.value(QStringLiteral("count")).toInt();
    const auto rate = parser.value(QStringLiteral("rate")).toUInt();
    const int seconds = parser.value(QStringLiteral("seconds")).toInt();

    Simulator simulator(parser.value(QStringLiteral("simulator")), count, rate);
    NvxStreamMonitor monitor;
    RampCheck ramp(parser.isSet(QStringLiteral("every-sample")));
    std::vector<std::unique_ptr<HydStreamAdapter>> adapters;
    const uint32_t firstAddress = QHostAddress(QStringLiteral("127.46.0.1")).toIPv4Address();
    for (int i = 0; i < count; ++i) {
        const HydDeviceId devId(DevTypeRecorderA, static_cast<uint16_t>(kFirstSerial + i));
        adapters.push_back(std::make_unique<HydStreamAdapter>(StreamWave, kWavePort, devId, 5000, true));
        HydStreamAdapter& adapter = *adapters.back();
        adapter.setHostAddress(QHostAddress(firstAddress + static_cast<uint32_t>(i)));
        monitor.attach(&adapter);
        QObject::connect(&adapter, &HydStreamAdapter::streamDataReady, &app,
                         [&ramp](const std::shared_ptr<HydStreamDataPayload>& payload) { ramp(*payload); });
        adapter.delayConnectStream(0, true);
    }

    QTextStream out(stdout);
    double cpuBefore = 0;
    uint64_t samplesBefore = 0;
    QElapsedTimer clock;
    // The first two seconds are the start-up.
    QTimer::singleShot(2000, &app, [&] {
        cpuBefore = cpuSeconds(RUSAGE_SELF);
        samplesBefore = monitor.total().samplesReceived;
        clock.start();
        QTimer::singleShot(seconds * 1000, Qt::PreciseTimer, &app, &QCoreApplication::quit);
    });
    QCoreApplication::exec();
    const double elapsed = static_cast<double>(clock.nsecsElapsed()) * 1e-9;
    const double cpu = cpuSeconds(RUSAGE_SELF) - cpuBefore;
    const NvxStreamStats total = monitor.total();
    uint64_t droppedReads = 0;
    uint64_t skippedBytes = 0;
    for (const auto& adapter : adapters) {
        droppedReads += adapter->droppedReads();
        skippedBytes += adapter->skippedBytes();
        adapter->stopStream();
    }
    adapters.clear();
    const QByteArray sent = simulator.finish();
    const double megabytes =
        static_cast<double>(total.samplesReceived - samplesBefore) * kBytesPerSample * 1e-6;
    out << "recorders                  " << count << " at " << rate << " Hz, 24 bit\n"
        << "measured                   " << QString::number(elapsed, 'f', 2) << " s, "
        << QString::number(megabytes / elapsed, 'f', 1) << " MB/s, nominal "
        << QString::number(static_cast<double>(count) * rate * kBytesPerSample * 1e-6, 'f', 1) << " MB/s\n"
        << "CPU of the receiver        " << QString::number(cpu / elapsed, 'f', 3) << " of a core\n"
        << "CPU of the simulator       " << QString::number(cpuSeconds(RUSAGE_CHILDREN), 'f', 1)
        << " s in all\n"
        << "samples received           " << total.samplesReceived << '\n'
        << "samples missing            " << total.samplesMissing << " in " << total.gaps << " gaps\n"
        << "samples that aren't ramp   " << ramp.wrongSamples << '\n'
        << "short reads dropped        " << droppedReads << ", bytes skipped " << skippedBytes << '\n'
        << "simulator                  " << sent << Qt::endl;
    const bool isExplained = total.samplesMissing == 0 || droppedReads > 0;
    return isExplained && ramp.wrongSamples == 0 && total.samplesReceived > 0 ? 0 : 1;
}
