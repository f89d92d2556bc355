#include "NvxQtCommon/merge/NvxWavMerger.h"

#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/merge/WavMergeInput.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSet>

#include <algorithm>
#include <limits>

namespace {

constexpr int kSerialDigits = 4;

QString stampText(const QDateTime& time)
{
    return time.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

} // namespace

NvxWavMerger::NvxWavMerger() = default;

NvxWavMerger::~NvxWavMerger() = default;

void NvxWavMerger::setChannels(const QList<uint16_t>& serials)
{
    m_channelMap.clear();
    const auto count = std::min<qsizetype>(serials.size(), std::numeric_limits<uint8_t>::max());
    for (qsizetype i = 0; i < count; ++i)
        setChannelDevice(static_cast<uint8_t>(i + 1), serials.at(i));
}

void NvxWavMerger::removeFile(const QString& name)
{
    const QString path = QFileInfo(name).absoluteFilePath();
    // The name as it was added is what counts: one that isn't absolute is never found. This is intended.
    const auto found = std::ranges::find(m_wavFiles, path, &WavMergeInput::name);
    if (found != m_wavFiles.end())
        m_wavFiles.erase(found);
}

int NvxWavMerger::serialFromFname(const QString& name)
{
    return name.section(QLatin1Char('_'), 0, 0).right(kSerialDigits).toInt();
}

QDateTime NvxWavMerger::datetimeFromFname(const QString& name)
{
    const QStringList fields = name.split(QLatin1Char('_'));
    if (fields.size() < 3)
        return {};
    const QDate date = QDate::fromString(fields.at(1), QStringLiteral("yyyyMMdd"));
    const QTime time = QTime::fromString(fields.at(2), QStringLiteral("hhmmss"));
    return date.isValid() && time.isValid() ? QDateTime(date, time, Qt::UTC) : QDateTime();
}

void NvxWavMerger::startMerge()
{
    if (m_isRunning) {
        log(QStringLiteral("A merge is already running."));
        return;
    }
    const QPointer<NvxWavMerger> alive(this);
    m_isRunning = true;
    // Each step runs whatever came of the one before. This is intended.
    initLog();
    if (alive)
        buildMergePlan();
    if (alive)
        runMergePlan();
    if (alive)
        m_isRunning = false;
}

void NvxWavMerger::initLog()
{
    m_logStream.setDevice(nullptr);
    const std::string name =
        HydUtil::dateTimeFname(std::string("MERGELOG_"), QDateTime::currentSecsSinceEpoch()) + ".txt";
    const QString path =
        QDir::toNativeSeparators(m_outputDir + QLatin1Char('/') + QString::fromStdString(name));
    m_logFile = std::make_unique<QFile>(path);
    // Without a log the merge goes on all the same. This is intended.
    if (m_logFile->open(QIODevice::Append | QIODevice::Text))
        m_logStream.setDevice(m_logFile.get());
    Q_EMIT mergeStatusMsg(QStringLiteral("Merge Log File: ") + path);
}

void NvxWavMerger::log(const QString& message)
{
    if (m_logStream.device() == nullptr)
        return;
    m_logStream << '[' << stampText(QDateTime::currentDateTime()) << "]: " << message << '\n';
    flushLog();
}

void NvxWavMerger::flushLog()
{
    m_logStream.flush();
    // A stream that has failed once would take no more, though the disk may have room again.
    m_logStream.resetStatus();
}

void NvxWavMerger::buildMergePlan()
{
    const QPointer<NvxWavMerger> alive(this);
    log(QStringLiteral("------------------ Started building merge plan. ------------------"));
    Q_EMIT mergeStatusMsg(QStringLiteral("Building merge plan..."));
    // A file that was named twice ends the build without a word. This is intended.
    if (!alive || !openFiles())
        return;
    if (m_wavFiles.empty()) {
        Q_EMIT mergeFailed(QStringLiteral("No files were found that matched the merge criteria."));
        return;
    }
    m_planStart = m_mergeStart;
    for (const InputPtr& file : m_wavFiles)
        planFile(file);
    logMergePlan();
}

bool NvxWavMerger::openFiles()
{
    QSet<QString> known;
    for (const InputPtr& file : m_wavFiles)
        known.insert(file->absolutePath());
    for (const QString& name : m_fileNames) {
        auto file = std::make_shared<WavMergeInput>(name);
        const QString path = file->absolutePath();
        if (known.contains(path))
            return false;
        known.insert(path);
        log(QStringLiteral("Adding file to merge plan: ") + name);
        m_wavFiles.push_back(std::move(file));
    }
    return true;
}

void NvxWavMerger::planFile(const InputPtr& file)
{
    const QDateTime time = datetimeFromFname(QFileInfo(file->name()).baseName());
    const auto recorder = file->recorder();
    if (!recorder) {
        log(QStringLiteral("Error building merge plan: Wav file is from an unsupported device: ") +
            file->name());
        return;
    }
    const uint16_t serial = recorder->serialNo(1);
    const uint8_t channel = deviceChannel(serial);
    const bool canCompare = time.isValid() && m_mergeStart.isValid() && m_mergeEnd.isValid();
    if (!canCompare || time < m_mergeStart || time > m_mergeEnd) {
        // The double colon is intended.
        log(QStringLiteral("Error building merge plan:: Cannot merge ") + file->name() +
            QStringLiteral(". The file is outside of the specified time range."));
        return;
    }
    if (channel == 0) {
        log(QStringLiteral("Warning: ") + file->name() + QStringLiteral(" is from a device (") +
            QString::number(serial) + QStringLiteral(") that is not assigned to a channel."));
        return;
    }
    // A file of another length leaves an entry that counts in the time span. This is intended.
    Entry& entry = m_mergePlan[m_planStart.secsTo(time) / kSecondsPerMinute];
    if (file->seconds() != int64_t{m_fileLength} * kSecondsPerMinute) {
        log(QStringLiteral("Error building merge plan: File length ") + QString::number(file->seconds()) +
            QStringLiteral(" doesn't match merge file length. ") + file->name());
        return;
    }
    entry[channel].push_back(file);
}

QString NvxWavMerger::timeText(int64_t minute) const
{
    return stampText(m_planStart.addSecs(minute * kSecondsPerMinute));
}

void NvxWavMerger::logMergePlan()
{
    log(QStringLiteral("-------------------- MERGE PLAN DETAILS --------------------"));
    if (m_logStream.device() == nullptr)
        return;
    m_logStream << "\tTime span:\t" << m_mergePlan.size() << " min\n"
                << "\tFile length (minutes):\t" << m_fileLength << "\n"
                << "\tStart time:\t" << stampText(m_mergeStart) << "\n"
                << "\tEnd time:\t" << stampText(m_mergeEnd) << "\n"
                << "\t-- Merge Map Summary: --\n";
    for (const auto& [minute, entry] : m_mergePlan) {
        m_logStream << '\t' << timeText(minute) << " (" << entry.size() << " channels) \n";
        for (const auto& [channel, files] : entry) {
            m_logStream << "\t\tChannel " << int{channel} << ": ";
            for (const InputPtr& file : files)
                m_logStream << file->name() << ", ";
            m_logStream << '\n';
        }
    }
    flushLog();
}
