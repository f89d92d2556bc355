#include "NvxQtCommon/logging/NvxEpochLogger.h"

#include <QDir>
#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <chrono>

using namespace std::chrono_literals;

namespace {

constexpr uint8_t kMessageState = 3;
constexpr uint8_t kFileCheckState = 8;
constexpr uint8_t kStreamStopped = 14;
constexpr int kMaxSameName = 10000;
const QString kFinished = QStringLiteral("Logging Finished");

QString stampNow()
{
    return QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

/// The system would take a separator for a folder, and a zero character for the end of the name.
bool isFileName(const QString& text)
{
    return std::none_of(text.begin(), text.end(),
                        [](QChar c) { return c == u'/' || c == u'\\' || c == u'\0'; });
}

} // namespace

NvxEpochLogger::NvxEpochLogger(int /*unused*/, QString logPath, int epochPercent, QObject* parent)
    : QObject(parent), m_logPath(std::move(logPath)), m_epochPercent(epochPercent)
{
    registerNvxMetaTypes();
}

NvxEpochLogger::~NvxEpochLogger()
{
    fileClose(kFinished);
}

void NvxEpochLogger::setMeasEventDur(int seconds)
{
    m_measEventDur = seconds;
    if (seconds > 0 && m_epochPercent > 0)
        m_measCount = static_cast<int32_t>(int64_t{seconds} * 100 / m_epochPercent);
}

QString NvxEpochLogger::logPath() const
{
    return m_file.isOpen() ? m_file.fileName() : QString();
}

// --- occurrences

void NvxEpochLogger::handleTrigActive(SActiveTrigger trigger)
{
    const bool isStopAgain = trigger.state == kStreamStopped && m_lastState == kStreamStopped;
    if ((trigger.type == TrigDevice && m_logDevMode == LogOff) ||
        (trigger.type == TrigProgram && m_logProgMode == LogOff) || isStopAgain ||
        trigger.state == kMessageState)
        return;
    const QDateTime time = trigger.logTime();
    if (!fileCheck(trigger, time))
        return;
    m_file.write(trigger.logMes(time, m_epochPercent, m_measEventDur, m_measCount).toUtf8());
    m_file.flush();
    m_lastState = trigger.state;
}

void NvxEpochLogger::startLogging()
{
    if (m_logDevMode == LogOff)
        return;
    SActiveTrigger start;
    start.time = static_cast<uint64_t>(QDateTime::currentSecsSinceEpoch());
    start.state = kFileCheckState;
    start.devId = m_devId;
    start.trigger.eventTrg().type = TrigProgram;
    if (!fileCheck(start, QDateTime::currentDateTimeUtc()))
        return;
    // The first occurrence opens the file again, or that of its local day. This is intended.
    m_file.write((stampNow() + QStringLiteral(", P, Logging Started\n")).toUtf8());
    m_file.close();
    Q_EMIT loggingStarted();
}

void NvxEpochLogger::stopLogging()
{
    fileClose(kFinished);
    Q_EMIT loggingStopped();
}

void NvxEpochLogger::stopStreaming()
{
    QTimer::singleShot(2ms, this, [this] { stopLogging(); });
}

void NvxEpochLogger::deleteDelay()
{
    QTimer::singleShot(200ms, this, &QObject::deleteLater);
}

// --- file

bool NvxEpochLogger::fileCheck(const SActiveTrigger& trigger, const QDateTime& dt)
{
    // The day of an open file isn't looked at: it stays open across midnight. This is intended.
    if (m_file.isOpen())
        return true;
    if (trigger.state == kStreamStopped)
        return false;
    // With the prefix as it is at first two underscores stand in a row. This is intended.
    const QString begin = m_filePrefix + u'_' + QString::number(trigger.devId.serialNo()) + u'_';
    if (isFileName(begin) && (openOfTheDay(begin + dt.toString(QStringLiteral("yyyyMMdd"))) ||
                              openNew(begin + dt.toString(QStringLiteral("yyyyMMdd_hhmmss")))))
        return true;
    handleWriteError();
    return false;
}

/// Which one of several is left to the system.
bool NvxEpochLogger::openOfTheDay(const QString& begin)
{
    // Not by a pattern: what the prefix holds stands for itself.
    QStringList names = QDir(m_logPath).entryList(QDir::Files | QDir::Hidden, QDir::Unsorted);
    names.removeIf([&begin](const QString& name) {
        return !name.startsWith(begin) ||
               !(name.endsWith(QLatin1String(".txt")) || name.endsWith(QLatin1String(".TXT")));
    });
    if (names.isEmpty())
        return false;
    m_file.setFileName(m_logPath + u'/' + names.last());
    return m_file.open(QIODevice::Append);
}

/// Never over a file that is there: that one keeps its name, the new one takes a number.
bool NvxEpochLogger::openNew(const QString& fileName)
{
    for (int number = 1; number <= kMaxSameName; ++number) {
        const QString tail = number == 1 ? QString() : u'_' + QString::number(number);
        m_file.setFileName(m_logPath + u'/' + fileName + tail + QStringLiteral(".txt"));
        if (m_file.open(QIODevice::ReadWrite | QIODevice::NewOnly))
            return true;
        if (!m_file.exists())
            return false;
    }
    return false;
}

void NvxEpochLogger::fileClose(const QString& msg)
{
    if (!m_file.isOpen())
        return;
    m_file.write((stampNow() + QStringLiteral(", P, ") + QString::number(m_devId.serialNo()) +
                  QStringLiteral(", , , ") + msg + u'\n')
                     .toUtf8());
    m_file.close();
}

void NvxEpochLogger::handleWriteError()
{
    const QPointer<NvxEpochLogger> self(this);
    Q_EMIT loggingFailed(
        QStringLiteral("Please ensure that there is space on the disk and that you have permission to "
                       "write to the destination directory."));
    if (!self)
        return;
    fileClose(kFinished);
    Q_EMIT loggingStopped();
}
