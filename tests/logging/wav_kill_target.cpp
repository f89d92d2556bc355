#include "KillPage.h"
#include "LogStream.h"

#include "NvxQtCommon/logging/NvxWavLogger.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>
#include <QTimer>

// Logs a ramp through the wave logger, as fast as a recorder would send it, until somebody kills it.
// Arguments: directory, page for the number of samples handed over, rate, bits, big-endian (0 or 1).
int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 6)
        return 2;
    KillPage page(arguments[2].toLocal8Bit().constData());
    if (!page.isValid())
        return 3;

    constexpr uint32_t kTime = 1709210400;
    constexpr uint16_t kBlocksPerSecond = 50;
    constexpr int kMaxLength = 2;
    LogStream stream;
    stream.rate = arguments[3].toUInt();
    stream.bits = static_cast<uint8_t>(arguments[4].toUInt());
    stream.bigEndian = arguments[5] == QLatin1String("1");
    const auto blockSize = static_cast<uint16_t>(stream.rate / kBlocksPerSecond);

    NvxWavLogger logger(kMaxLength, arguments[1], QStringLiteral("KILL"));
    QObject::connect(&logger, &NvxWavLogger::loggingFailed, &app, [] { QCoreApplication::exit(4); });
    uint64_t blocks = 0;
    const auto handOver = [&] {
        const auto second = static_cast<uint32_t>(blocks / kBlocksPerSecond);
        const auto inSecond = static_cast<uint32_t>(blocks % kBlocksPerSecond);
        const int64_t start = int64_t{second} * blockSize * kBlocksPerSecond;
        if (inSecond == 0)
            logger.handleWavEventHdr(stream.header(kTime + second, start), HydDeviceId(DevTypeRecorderA, 42),
                                     makeLogDevice());
        logger.handleWavData(stream.block(kTime + second, start, inSecond * blockSize, blockSize));
        page.store(++blocks * blockSize);
    };

    QElapsedTimer clock;
    clock.start();
    QTimer pace;
    QObject::connect(&pace, &QTimer::timeout, &app, [&] {
        const auto due = static_cast<uint64_t>(clock.elapsed()) * kBlocksPerSecond / 1000;
        while (blocks <= due)
            handOver();
    });
    handOver();
    pace.start(5);
    QTextStream(stdout) << "recording" << Qt::endl;
    return QCoreApplication::exec();
}
