// Receives the frames of an array controller for some seconds and prints one line of JSON: the CPU time of
// this process as a share of a core, and the time from the sender's write to the signal, in ms. By
// ZcrStreamAdapter, or with --bare by a QWebSocket that only counts bytes. The sequence number of each frame
// has to be the low 32 bits of the system's monotonic clock in µs when it was sent; compare_array_stream.py
// sends such frames.
#include "NvxQtCommon/array/ZcrStreamAdapter.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>
#include <QTimer>
#include <QUrl>
#include <QWebSocket>
#include <QtEndian>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace {

constexpr qsizetype kSequenceAt = 6;
constexpr double kMsPerMicrosecond = 0.001;

double processSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto value = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return value(usage.ru_utime) + value(usage.ru_stime);
}

uint32_t microseconds()
{
    using namespace std::chrono;
    return static_cast<uint32_t>(
        duration_cast<std::chrono::microseconds>(steady_clock::now().time_since_epoch()).count());
}

/// What arrived while it measures.
class Account
{
public:
    void take(uint32_t sent, qsizetype bytes)
    {
        if (!m_isMeasuring)
            return;
        m_latencies.push_back(microseconds() - sent);
        m_bytes += bytes;
    }
    void begin()
    {
        m_isMeasuring = true;
        m_cpuBefore = processSeconds();
        m_begin = std::chrono::steady_clock::now();
    }
    QJsonObject end()
    {
        const double cpu = processSeconds() - m_cpuBefore;
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - m_begin).count();
        std::sort(m_latencies.begin(), m_latencies.end());
        const auto quantile = [this](double part) {
            const auto last = static_cast<double>(m_latencies.size() - 1);
            return m_latencies.empty() ? 0.0
                                       : m_latencies[static_cast<size_t>(part * last)] * kMsPerMicrosecond;
        };
        return {{QStringLiteral("frames"), static_cast<qint64>(m_latencies.size())},
                {QStringLiteral("bytes"), m_bytes},
                {QStringLiteral("seconds"), elapsed},
                {QStringLiteral("cpu"), cpu / elapsed},
                {QStringLiteral("median"), quantile(0.5)},
                {QStringLiteral("p99"), quantile(0.99)},
                {QStringLiteral("longest"), quantile(1.0)}};
    }

private:
    std::vector<uint32_t> m_latencies;
    qint64 m_bytes = 0;
    bool m_isMeasuring = false;
    double m_cpuBefore = 0.0;
    std::chrono::steady_clock::time_point m_begin;
};

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOption({QStringLiteral("bare"), QStringLiteral("By a QWebSocket that only counts bytes.")});
    parser.addOption({QStringLiteral("address"), QStringLiteral("IPv4 address of the sender."),
                      QStringLiteral("A"), QStringLiteral("127.62.8.2")});
    parser.addOption({QStringLiteral("seconds"), QStringLiteral("Length of the measurement."),
                      QStringLiteral("s"), QStringLiteral("10")});
    parser.process(app);
    const QString address = parser.value(QStringLiteral("address"));
    const int seconds = parser.value(QStringLiteral("seconds")).toInt();

    Account account;
    ZcrStreamAdapter stream(StreamSpectrum, CZCRWebSocket::kPort, address, HydDeviceId(DevTypeZcr, 600), 0);
    QWebSocket bare;
    if (parser.isSet(QStringLiteral("bare"))) {
        QObject::connect(&bare, &QWebSocket::binaryMessageReceived, &app, [&](const QByteArray& frame) {
            account.take(qFromLittleEndian<uint32_t>(frame.constData() + kSequenceAt), frame.size());
        });
        bare.open(QUrl(QStringLiteral("ws://%1:%2").arg(address).arg(CZCRWebSocket::kPort)));
    } else {
        QObject::connect(&stream, &HydStreamAdapter::streamDataReady, &app,
                         [&](const std::shared_ptr<HydStreamDataPayload>& payload) {
                             account.take(static_cast<uint32_t>(payload->eventKey()->sequence()),
                                          static_cast<qsizetype>(payload->data()->byteSize()));
                         });
        stream.startStream();
    }
    // The first second is the start-up.
    QTimer::singleShot(1000, &app, [&] {
        account.begin();
        QTimer::singleShot(seconds * 1000, Qt::PreciseTimer, &app, &QCoreApplication::quit);
    });
    QCoreApplication::exec();
    const QJsonObject result = account.end();
    QTextStream(stdout) << QJsonDocument(result).toJson(QJsonDocument::Compact) << Qt::endl;
    return result.value(QStringLiteral("frames")).toInt() > 0 ? 0 : 1;
}
