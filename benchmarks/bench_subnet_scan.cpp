// Scans of a subnet of loopback addresses whose control ports are all closed: how long until each probe has
// reported, and what they take of the process.
#include "NvxQtCommon/discovery/HydMarcoAdapter.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTextStream>

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace {

constexpr int kAddresses = HydMarcoAdapter::kScannedAddresses;
const QString kPrefix = QStringLiteral("127.63.8.");

qsizetype entriesOf(const char* folder)
{
    return QDir(QLatin1String(folder))
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}

double cpuMs()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto value = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) * 1e-3;
    };
    return value(usage.ru_utime) + value(usage.ru_stime);
}

/// KiB that this process had in memory at most.
qint64 peakKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

/// Counts threads and descriptors over and over, on a thread of its own.
class PeakWatch
{
public:
    PeakWatch()
        : m_thread([this] {
              while (!m_isOver) {
                  m_threads = std::max(m_threads, entriesOf("/proc/self/task"));
                  m_descriptors = std::max(m_descriptors, entriesOf("/proc/self/fd"));
              }
          })
    {
    }
    /// Threads and descriptors at the peak, without those that the watch itself takes.
    std::pair<qsizetype, qsizetype> stop()
    {
        m_isOver = true;
        m_thread.join();
        return {m_threads - 1, m_descriptors - 1};
    }

private:
    std::atomic<bool> m_isOver{false};
    qsizetype m_threads = 0;
    qsizetype m_descriptors = 0;
    std::thread m_thread;
};

/// Scans once and returns when every address was reported.
void scan(HydMarcoAdapter& adapter)
{
    QEventLoop loop;
    int reports = 0;
    const auto context = QObject::connect(
        &adapter, &HydMarcoAdapter::signalSocketError, &loop, [&](QAbstractSocket::SocketError error) {
            if (error != QAbstractSocket::ConnectionRefusedError)
                qFatal("a probe failed otherwise than by a refusal: %d", error);
            if (++reports == kAddresses)
                loop.quit();
        });
    adapter.scanNetWork(kPrefix, 1000);
    loop.exec();
    QObject::disconnect(context);
}

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_LOGGING_RULES", "*.debug=false");
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOption({QStringLiteral("scans"), QStringLiteral("Scans to time, from 1 on."),
                      QStringLiteral("N"), QStringLiteral("20")});
    parser.process(app);
    const int scans = std::max(1, parser.value(QStringLiteral("scans")).toInt());

    HydMarcoAdapter adapter;
    const qsizetype threadsBefore = entriesOf("/proc/self/task");
    const qsizetype descriptorsBefore = entriesOf("/proc/self/fd");
    const qint64 before = peakKiB();
    std::vector<double> times;
    const double cpuBefore = cpuMs();
    for (int i = 0; i < scans; ++i) {
        QElapsedTimer clock;
        clock.start();
        scan(adapter);
        times.push_back(static_cast<double>(clock.nsecsElapsed()) * 1e-6);
    }
    const double cpu = (cpuMs() - cpuBefore) / scans;
    std::sort(times.begin(), times.end());

    // Watched scans are slower, so these are not timed.
    PeakWatch watch;
    for (int i = 0; i < scans; ++i)
        scan(adapter);
    const auto [threads, descriptors] = watch.stop();

    QTextStream(stdout) << scans << " scans of " << kAddresses << " closed ports: median "
                        << times[times.size() / 2] << " ms, fastest " << times.front() << " ms, slowest "
                        << times.back() << " ms, " << cpu << " ms of processor time each\n"
                        << "peak memory " << peakKiB() / 1024.0 << " MiB, of which " << before / 1024.0
                        << " MiB before the first scan\n"
                        << "at the peak " << threads - threadsBefore << " threads and "
                        << descriptors - descriptorsBefore << " descriptors more than before\n";
    return 0;
}
