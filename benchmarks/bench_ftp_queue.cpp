// Fetches files of the directory "Data" of a server on port 21 through the download queue, three at once,
// for compare_ftp_queue.py: bench_ftp_queue HOST INTO NAME... Prints seconds from the first request to the
// last end, CPU seconds of the process, and the most memory that it had, in MiB.

#include "NvxQtCommon/transfer/NvxFtpDownloadQueue.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>
#include <sys/resource.h>

namespace {

double seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 4) {
        std::fputs("usage: bench_ftp_queue HOST INTO NAME...\n", stderr);
        return 2;
    }
    const NvxNetHostInfo host(NvxIpAddr(arguments[1].toStdString()).toInt());
    NvxFtpDownloadQueue queue;
    queue.setDestDir(arguments[2]);
    QElapsedTimer clock;
    clock.start();
    qsizetype failed = 0;
    for (const QString& name : arguments.mid(3)) {
        auto* request = new NvxFtpDownloadRequest(host, name, QStringLiteral("Data"), QString(), QString(),
                                                  QString(), 0, &queue);
        request->setWorkRegime(NvxFtpDownloadRequest::DownloadWork);
        QObject::connect(request, &NvxFtpDownloadRequest::complete, &queue,
                         [&failed](int32_t, bool error) { failed += error ? 1 : 0; });
        QObject::connect(request, &NvxFtpDownloadRequest::complete, &queue,
                         &NvxFtpDownloadQueue::startQueuedRequests, Qt::QueuedConnection);
        QObject::connect(&request->ftp(), &QFtp::done, request, &QObject::deleteLater);
        queue.push_back(request);
    }
    QObject::connect(&queue, &NvxFtpDownloadQueue::signalProcTaskComplete, &app, [&] {
        const double elapsed = static_cast<double>(clock.nsecsElapsed()) * 1e-9;
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        const double cpu = seconds(usage.ru_utime) + seconds(usage.ru_stime);
        std::printf("%.6f %.6f %.1f\n", elapsed, cpu, static_cast<double>(usage.ru_maxrss) / 1024);
        QCoreApplication::exit(failed == 0 ? 0 : 1);
    });
    queue.startQueuedRequests();
    return QCoreApplication::exec();
}
