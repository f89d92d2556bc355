#include "replay-file/Replay.h"

#include "shared/FileReport.h"

#include "NvxQtCommon/replay/NvxFFTFile.h"
#include "NvxQtCommon/replay/NvxWAVFile.h"

#include <QDateTime>
#include <QFileInfo>
#include <QTextStream>

#include <algorithm>
#include <utility>

namespace {

constexpr int kProgressMs = 1000;
/// A file goes on from the one before when it begins so soon behind that one's last block: the block is told
/// by the whole second that it begins in, and what filled no tick behind it wasn't played.
constexpr qint64 kAdjacentSeconds = 2;

QTextStream& replayOut()
{
    static QTextStream stream(stdout);
    return stream;
}

QString timeText(qint64 seconds)
{
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

} // namespace

Replay::Replay(ReplayOrder order, QObject* parent) : QObject(parent), m_order(std::move(order))
{
    if (!m_order.directory.isEmpty())
        m_log = std::make_unique<ReplayLog>(m_order.directory);
    m_progress.setInterval(kProgressMs);
    connect(&m_progress, &QTimer::timeout, this, &Replay::printProgress);
}

Replay::~Replay() = default;

void Replay::start()
{
    m_progress.start();
    playNext();
}

void Replay::playNext()
{
    while (!m_finished && !m_order.files.isEmpty()) {
        const QString path = m_order.files.takeFirst();
        if (play<NvxFFTFile>(path) || play<NvxWAVFile>(path))
            return;
        complain(NotPlayed, QStringLiteral("%1 is no wave or spectrum file that can be played.").arg(path));
    }
    finish();
}

template <class File> bool Replay::play(const QString& path)
{
    // A file of a low rate leaves shorter blocks behind.
    FFT_Params_WAV = m_fftParams;
    auto file = std::make_unique<File>(path, nullptr);
    if (!file->headerPrepare(true))
        return false;
    File& started = *file;
    m_file = std::move(file);
    m_payloads = 0;
    m_power.reset();
    connectFile();
    const auto channels = static_cast<int>(started.channelDevices().size());
    started.setReplayVel(m_order.speed, channels);
    started.setAdjacent(goesOnFromTheFileBefore(), channels);
    replayOut() << "Playing " << QFileInfo(path).fileName() << ": serial "
                << started.channelDevices().first().serialNo() << ", " << channels
                << (channels == 1 ? " channel" : " channels") << ", from " << timeText(started.curTime())
                << (started.isAdjacent() ? ", going on from the file before" : "") << Qt::endl;
    started.processData();
    return true;
}

bool Replay::goesOnFromTheFileBefore() const
{
    const qint64 gap = m_file->curTime() - m_endBefore;
    return m_file->channelDevices() == m_devicesBefore && gap >= 0 && gap <= kAdjacentSeconds;
}

void Replay::connectFile()
{
    NvxDataFile* const file = m_file.get();
    connect(file, &NvxDataFile::streamDataReady, this, &Replay::takeData);
    connect(file, &NvxDataFile::signalTotalPower, this,
            [this](const HydDeviceId&, double level) { m_power = level; });
    // Queued, since the next file takes the place of the one that signals.
    connect(file, &NvxDataFile::threadFinished, this, &Replay::endFile, Qt::QueuedConnection);
    if (!m_log)
        return;
    const QList<HydDeviceId>& devices = file->channelDevices();
    for (const HydDeviceId& id : devices) {
        if (devices.count(id) > 1) {
            complain(NotPlayed, QStringLiteral("channels of the same serial number aren't written."));
            return;
        }
    }
    connect(file, &NvxDataFile::streamHeaderReady, m_log.get(), &ReplayLog::takeHeader);
    connect(file, &NvxDataFile::streamDataReady, m_log.get(), &ReplayLog::takeData);
}

void Replay::takeData(const std::shared_ptr<HydStreamDataPayload>&, const HydDeviceId&)
{
    ++m_payloads;
}

void Replay::printProgress() const
{
    if (m_payloads == 0)
        return;
    QString line = QStringLiteral("%1  %2 blocks").arg(timeText(m_file->curTime())).arg(m_payloads, 8);
    if (m_power)
        line += QStringLiteral("  total power %1 dB").arg(*m_power, 0, 'f', 1);
    replayOut() << line << Qt::endl;
}

void Replay::endFile()
{
    printProgress();
    m_devicesBefore = m_file->channelDevices();
    m_endBefore = m_file->curTime();
    if (m_log && m_log->hasFailed()) {
        complain(DiskError, QStringLiteral("files can't be written to %1.").arg(m_order.directory));
        finish();
        return;
    }
    playNext();
}

void Replay::stop()
{
    m_order.files.clear();
    // The end of the file that is playing ends the rest.
    if (m_file)
        m_file->processStop();
}

void Replay::complain(Outcome outcome, const QString& sentence)
{
    m_outcome = std::max(m_outcome, outcome);
    QTextStream(stderr) << "replay-file: " << sentence << Qt::endl;
}

void Replay::finish()
{
    if (std::exchange(m_finished, true))
        return;
    m_progress.stop();
    if (m_log) {
        m_log->stop();
        if (!m_log->waveFiles().isEmpty() || !m_log->textFiles().isEmpty())
            replayOut() << "Files in " << m_order.directory << ':' << Qt::endl;
        for (const QString& file : m_log->waveFiles())
            replayOut() << "  " << describeWaveFile(file, std::nullopt) << Qt::endl;
        for (const QString& file : m_log->textFiles())
            replayOut() << "  " << describeTextFile(file) << Qt::endl;
    }
    Q_EMIT finished(m_outcome);
}
