#include "MergeFiles.h"

#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavWriter.h"
#include "NvxQtCommon/contract/recording/WavStreamEvent.h"
#include "WavJudge.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QtEndian>

#include <algorithm>

namespace {

constexpr qint64 kBlockSamples = 8192;

void dispatchWhole(NvxWavWriter& writer, NvxWavEventData& data, uint32_t time, uint64_t sample)
{
    WavStreamEvent event(&data, static_cast<int>(time), sample);
    while (!event.isConsumed())
        writer.dispatch(&event);
}

} // namespace

QString MergeFile::baseName() const
{
    return QStringLiteral("%1%2_%3").arg(prefix).arg(serial, 4, 10, QLatin1Char('0')).arg(stamp);
}

QByteArray MergeFile::samples() const
{
    const qsizetype width = bits / 8;
    QByteArray bytes(frames() * width, Qt::Uninitialized);
    for (qint64 i = 0; i < frames(); ++i) {
        const auto value = static_cast<uint32_t>(serial * 2654435761U + static_cast<uint32_t>(i) * 40503U);
        for (qsizetype k = 0; k < width; ++k)
            bytes[i * width + (bigEndian ? width - 1 - k : k)] = static_cast<char>(value >> (8 * k));
    }
    return bytes;
}

QString writeMergeFile(const QString& directory, const MergeFile& file)
{
    const auto time =
        static_cast<uint32_t>(QDateTime::fromString(file.stamp, QStringLiteral("yyyyMMdd_hhmmss")).isValid()
                                  ? NvxWavMerger::datetimeFromFname(file.baseName()).toSecsSinceEpoch()
                                  : 0);
    NvxWavWriter writer(0, directory.toStdWString());
    writer.setBigEndian(file.bigEndian);
    NvxWavInfoDataHF info;
    info.applyFileName(file.baseName().toStdString());
    info.setTimestamp(time);
    info.setStartSample(file.startSample);
    info.setDeviceType(file.deviceType, 0);
    info.setSerialNo(file.serial, 0);
    info.setSensitivity(file.sensitivity, 0);
    info.setTemperature(file.temperature, 0);
    info.setHumidity(file.humidity, 0);
    NvxWavSetupData setup;
    setup.setBitDepth(file.bits);
    setup.setSampleRate(file.rate);
    dispatchWhole(writer, info, time, file.startSample);
    dispatchWhole(writer, setup, time, file.startSample);
    QByteArray samples = file.samples();
    for (qint64 first = 0; first < file.frames(); first += kBlockSamples) {
        NvxWavDataChunk chunk;
        chunk.setBitDepth(file.bits);
        chunk.setBigEndian(file.bigEndian);
        chunk.setNumSamples(static_cast<unsigned short>(std::min(kBlockSamples, file.frames() - first)));
        chunk.setData(reinterpret_cast<unsigned char*>(samples.data()) + first * (file.bits / 8));
        dispatchWhole(writer, chunk, time, file.startSample);
    }
    writer.finishFile();
    return writer.errorCode() == WavErrNone ? QString::fromStdWString(writer.outputFileName()) : QString();
}

QByteArray takeListOut(const QString& path)
{
    const RiffView view = viewRiff(path);
    const RiffChunk* list = view.chunk("LIST");
    QFile file(path);
    if (list == nullptr || !file.open(QIODevice::ReadWrite))
        return {};
    QByteArray bytes = file.readAll();
    const qsizetype at = list->offset - 8;
    const qsizetype size = 8 + list->size + list->size % 2;
    const QByteArray taken = bytes.mid(at, size);
    bytes.remove(at, size);
    const auto riffSize = static_cast<quint32>(bytes.size() - 8);
    if (view.isBigEndian)
        qToBigEndian(riffSize, bytes.data() + 4);
    else
        qToLittleEndian(riffSize, bytes.data() + 4);
    const bool isWritten = file.resize(0) && file.seek(0) && file.write(bytes) == bytes.size();
    return isWritten ? taken : QByteArray();
}

QByteArray woven(const QList<QByteArray>& blocks, int width)
{
    QByteArray out;
    for (qsizetype at = 0; at < blocks.first().size(); at += width) {
        for (const QByteArray& block : blocks)
            out += block.mid(at, width);
    }
    return out;
}

QByteArray dataOfWav(const QString& path)
{
    const RiffView view = viewRiff(path);
    const RiffChunk* data = view.chunk("data");
    QFile file(path);
    if (data == nullptr || !file.open(QIODevice::ReadOnly) || !file.seek(data->offset))
        return {};
    return file.read(data->size);
}

MergeRig::MergeRig(std::unique_ptr<NvxWavMerger> own) : merger(std::move(own))
{
    QDir().mkpath(inputDir());
    QDir().mkpath(outputDir());
    merger->setOutputDir(outputDir());
    merger->setFileLength(1);
    merger->setStartTime(QDateTime({2024, 2, 29}, {12, 40}, Qt::UTC));
    merger->setEndTime(QDateTime({2024, 2, 29}, {12, 50}, Qt::UTC));
    const NvxWavMerger* const source = merger.get();
    // The context is the merger: a rig may see its merger deleted in the middle of a merge.
    QObject::connect(source, &NvxWavMerger::mergeStatusMsg, source,
                     [this](const QString& status) { signalsSeen << QStringLiteral("status: ") + status; });
    QObject::connect(source, &NvxWavMerger::mergeFailed, source,
                     [this](const QString& reason) { signalsSeen << QStringLiteral("failed: ") + reason; });
    QObject::connect(source, &NvxWavMerger::mergeProgress, source,
                     [this](uint8_t percent) { signalsSeen << QStringLiteral("progress %1").arg(percent); });
    QObject::connect(source, &NvxWavMerger::mergeAborted, source,
                     [this] { signalsSeen << QStringLiteral("aborted"); });
    QObject::connect(source, &NvxWavMerger::mergeComplete, source,
                     [this] { signalsSeen << QStringLiteral("complete"); });
}

QString MergeRig::add(const MergeFile& file)
{
    const QString path = writeMergeFile(inputDir(), file);
    merger->addFile(path);
    return path;
}

QStringList MergeRig::outputs() const
{
    return QDir(outputDir()).entryList({QStringLiteral("*.wav")}, QDir::Files, QDir::Name);
}

QStringList MergeRig::logPaths() const
{
    QStringList paths;
    const QStringList names =
        QDir(outputDir()).entryList({QStringLiteral("MERGELOG_*.txt")}, QDir::Files, QDir::Name);
    for (const QString& name : names)
        paths << outputPath(name);
    return paths;
}

QStringList MergeRig::logLines() const
{
    static const QRegularExpression stamp(
        QStringLiteral("^\\[(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d)\\]: "));
    QStringList lines;
    for (const QString& path : logPaths()) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        lines += QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
        // A log ends with a line feed.
        if (lines.last().isEmpty())
            lines.removeLast();
    }
    for (QString& line : lines) {
        if (line.startsWith(QLatin1Char('\t')))
            continue;
        const auto found = stamp.match(line);
        const QDateTime time =
            QDateTime::fromString(found.captured(1), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        // A line of the wrong time stays as it is, which no test expects.
        if (found.hasMatch() && time.toSecsSinceEpoch() >= m_begin && time <= QDateTime::currentDateTime())
            line.remove(stamp);
    }
    return lines;
}

QStringList MergeRig::logLinesWith(const QString& text) const
{
    return logLines().filter(text);
}

QStringList MergeRig::signalsAfterLog() const
{
    QStringList rest = signalsSeen;
    rest.removeIf([](const QString& line) { return line.startsWith(QLatin1String("status: Merge Log")); });
    return rest;
}
