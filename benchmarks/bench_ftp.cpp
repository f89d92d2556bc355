// Fetches one file by QFtp into a file, for compare_ftp.py: bench_ftp HOST PORT FILE INTO. Prints seconds
// from the first command to the end, CPU seconds of the process, and the most memory that it had, in MiB.

#include "NvxQtCommon/transfer/QFtp.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>

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
    if (arguments.size() != 5) {
        std::fputs("usage: bench_ftp HOST PORT FILE INTO\n", stderr);
        return 2;
    }
    QFile file(arguments[4]);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        std::fprintf(stderr, "%s\n", qPrintable(file.errorString()));
        return 1;
    }
    QFtp ftp;
    QElapsedTimer clock;
    QObject::connect(&ftp, &QFtp::done, &app, [&](bool error) {
        const double elapsed = static_cast<double>(clock.nsecsElapsed()) * 1e-9;
        if (error) {
            std::fprintf(stderr, "%s\n", qPrintable(ftp.errorString()));
            QCoreApplication::exit(1);
            return;
        }
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        const double cpu = seconds(usage.ru_utime) + seconds(usage.ru_stime);
        std::printf("%.6f %.6f %.1f\n", elapsed, cpu, static_cast<double>(usage.ru_maxrss) / 1024);
        QCoreApplication::exit(0);
    });
    clock.start();
    ftp.connectToHost(arguments[1], arguments[2].toUShort());
    ftp.login();
    ftp.get(arguments[3], &file);
    ftp.close();
    return QCoreApplication::exec();
}
