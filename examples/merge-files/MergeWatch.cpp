#include "merge-files/MergeWatch.h"

#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/replay/NvxWAVFile.h"

#include <QDir>
#include <QFileInfo>
#include <QTextStream>

#include <algorithm>

namespace {

constexpr int kShowMs = 100;

} // namespace

std::optional<uint16_t> recorderOf(const QString& path)
{
    NvxWAVFile file(path);
    if (!file.headerPrepare(true) || file.header()->fmt()->numChannels() != 1)
        return {};
    const auto recorder = std::dynamic_pointer_cast<NvxWavInfoDataHF>(file.header()->info());
    return recorder ? std::optional(recorder->serialNo(1)) : std::nullopt;
}

bool hasChannel(const NvxWavMerger& merger, const QString& path)
{
    const auto recorder = recorderOf(path);
    return recorder && merger.deviceChannel(*recorder) != 0;
}

MergeWatch::MergeWatch(NvxWavMerger& merger) : m_merger(merger), m_bytesBefore(outputBytes())
{
    // The merger has no progress of its own: an output is as large as the files that go into it.
    const QStringList names = merger.fileList();
    for (const QString& name : names) {
        const QString base = QFileInfo(name).baseName();
        const QDateTime time = NvxWavMerger::datetimeFromFname(base);
        if (time >= merger.startTime() && time <= merger.endTime() && hasChannel(merger, name))
            m_bytesExpected += QFileInfo(name).size();
    }
    connect(&merger, &NvxWavMerger::mergeStatusMsg, this, &MergeWatch::showStatus);
    connect(&merger, &NvxWavMerger::mergeAborted, this, [this] { m_isAborted = true; });
    connect(&merger, &NvxWavMerger::mergeFailed, this, [this](const QString& reason) {
        m_isFailed = true;
        QTextStream(stderr) << "\nmerge-files: " << reason << Qt::endl;
    });
    connect(&m_timer, &QTimer::timeout, this, &MergeWatch::showProgress);
    m_timer.start(kShowMs);
}

void MergeWatch::showStatus(const QString& status)
{
    QTextStream(stdout) << status << Qt::endl;
    if (!status.startsWith(QLatin1String("Merging file: ")))
        return;
    ++m_fileCount;
    showProgress();
}

void MergeWatch::showProgress()
{
    if (m_bytesExpected <= 0)
        return;
    const qint64 percent = (outputBytes() - m_bytesBefore) * 100 / m_bytesExpected;
    QTextStream(stdout) << QStringLiteral("%1 %\r").arg(std::clamp<qint64>(percent, 0, 100), 3) << Qt::flush;
}

qint64 MergeWatch::outputBytes() const
{
    qint64 bytes = 0;
    const auto files =
        QDir(m_merger.outputDir()).entryInfoList({QStringLiteral("MERGED_*.wav")}, QDir::Files);
    for (const QFileInfo& file : files)
        bytes += file.size();
    return bytes;
}
