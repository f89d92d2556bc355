#pragma once

#include "NvxQtCommon/logging/NvxEpochLogger.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

/// Seconds since the epoch of a time in UTC.
inline uint64_t utcSeconds(const QString& text)
{
    return static_cast<uint64_t>(QDateTime::fromString(text + u'Z', Qt::ISODate).toSecsSinceEpoch());
}

/// An occurrence of serial number 1234, at 2021-03-04 05:06:07 UTC where no other time is given: trigger 2,
/// sequence number 100, 10 to 1000 Hz over 5000 uPa for 30 s.
inline SActiveTrigger occurrenceOf(TrigType type, uint8_t state,
                                   const QString& utc = QStringLiteral("2021-03-04T05:06:07"))
{
    SActiveTrigger active;
    active.time = utcSeconds(utc);
    active.seq = 100;
    active.trigger.setTrigNum(2);
    active.trigger.setMinFreq(10);
    active.trigger.setMaxFreq(1000);
    active.trigger.setThreshold(5000);
    active.trigger.setDuration(30);
    active.devId = HydDeviceId(DevTypeRecorderA, 1234);
    active.state = state;
    active.type = type;
    return active;
}

/// A logger that takes all occurrences, and the directory of its files.
class EpochDiary
{
public:
    explicit EpochDiary(int percent = 0) : m_logger(new NvxEpochLogger(0, m_dir.path(), percent, nullptr))
    {
        m_logger->setLogDevMode(LogOn);
        m_logger->setLogProgMode(LogOn);
        m_logger->setDevId(HydDeviceId(DevTypeRecorderA, 1234));
    }

    NvxEpochLogger& logger() { return *m_logger; }
    NvxEpochLogger* operator->() { return m_logger.get(); }
    /// Ends the recording as an application does that quits.
    void end() { m_logger.reset(); }

    QString path(const QString& name = {}) const
    {
        return name.isEmpty() ? m_dir.path() : m_dir.filePath(name);
    }
    QStringList files() const
    {
        return QDir(m_dir.path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    }
    void put(const QString& name, const QByteArray& text = {}) const
    {
        QFile file(path(name));
        if (file.open(QIODevice::WriteOnly))
            file.write(text);
    }
    QByteArray bytes(const QString& name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("no such file");
    }
    /// The lines of a file, each without its end; a last one without an end is marked.
    QStringList lines(const QString& name) const
    {
        QStringList lines = QString::fromUtf8(bytes(name)).split(u'\n');
        if (lines.last().isEmpty())
            lines.removeLast();
        else
            lines.last() += QStringLiteral(" (no end)");
        return lines;
    }
    /// The lines of the only file.
    QStringList lines() const
    {
        const QStringList names = files();
        return names.size() == 1 ? lines(names.first()) : QStringList{"files: " + names.join(u' ')};
    }

private:
    QTemporaryDir m_dir;
    std::unique_ptr<NvxEpochLogger> m_logger;
};
