#include "NvxQtCommon/control/SActiveTrigger.h"

#include <QList>
#include <QStringTokenizer>
#include <QStringView>

#include <algorithm>

namespace {

constexpr uint8_t kStarted = 2;
constexpr uint8_t kEnded = 6;
constexpr uint8_t kFirstStreamState = 9;
constexpr uint8_t kLastStreamState = 15;
constexpr uint8_t kIdle = 0;
constexpr uint8_t kActive = 2;
constexpr qsizetype kMaxTimeText = 64;
constexpr qsizetype kFields = 6;
const QString kTimeFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss");

/// The parts of `text` between separators, empty ones too, but no more than the first `most`: a hostile line
/// has millions.
QList<QStringView> firstParts(QStringView text, QChar separator, qsizetype most)
{
    QList<QStringView> parts;
    for (const QStringView part : qTokenize(text, separator)) {
        if (parts.size() == most)
            break;
        parts << part;
    }
    return parts;
}

/// What begins with the first digit, of any script.
QStringView fromFirstDigit(QStringView text)
{
    const auto digit = std::find_if(text.begin(), text.end(), [](QChar c) { return c.isDigit(); });
    return text.sliced(digit - text.begin());
}

/// What ends with the last digit.
QStringView toLastDigit(QStringView text)
{
    const auto behind = std::find_if(text.rbegin(), text.rend(), [](QChar c) { return c.isDigit(); }).base();
    return text.first(behind - text.begin()).trimmed();
}

/// A time in the hour that the clocks skip, which no local time has: by the offset of the day before, as a
/// device means it whose clock goes on. Invalid where the text is no time at all.
QDateTime skippedTime(QStringView text)
{
    if (text.size() != kTimeFormat.size() || text[10] != u' ')
        return {};
    const QDate date = QDate::fromString(text.left(10).toString(), kTimeFormat.left(10));
    const QTime time = QTime::fromString(text.mid(11).toString(), kTimeFormat.mid(11));
    if (!date.isValid() || !time.isValid())
        return {};
    const QDateTime before(date.addDays(-1), time);
    return QDateTime(date, time, Qt::UTC).addSecs(-before.offsetFromUtc()).toLocalTime();
}

QDateTime localTime(QStringView text)
{
    // Longer ones can't be a time, and reading them takes long.
    if (text.size() > kMaxTimeText)
        return {};
#if QT_VERSION >= QT_VERSION_CHECK(6, 7, 0)
    const QDateTime stamp = QDateTime::fromString(text.toString(), kTimeFormat, 1900);
#else
    // Years have four digits, so a base year would change nothing.
    const QDateTime stamp = QDateTime::fromString(text.toString(), kTimeFormat);
#endif
    return stamp.isValid() ? stamp : skippedTime(text);
}

} // namespace

SActiveTrigger::SActiveTrigger(const QString& line, TrigType lineType)
{
    read(line, lineType);
}

SActiveTrigger::SActiveTrigger(const QByteArray& line, TrigType /*type*/)
    : type(line.isEmpty() ? TrigInvalid : TrigProgram)
{
}

void SActiveTrigger::read(const QString& line, TrigType lineType)
{
    type = TrigInvalid;
    const QList<QStringView> fields = firstParts(line, QLatin1Char(','), kFields);
    if (fields.size() < 4 || !fields[2].contains(QLatin1String("Epoch"))) {
        trigger.eventTrg().regime = kIdle;
        return;
    }
    const QDateTime stamp = localTime(fields[0].trimmed());
    time = stamp.isValid() ? static_cast<uint64_t>(stamp.toSecsSinceEpoch()) : 0;
    devId = HydDeviceId(DevTypeAny, static_cast<uint16_t>(fromFirstDigit(fields[1]).toInt()));
    trigger.setTrigNum(static_cast<uint8_t>(fromFirstDigit(fields[2]).toInt()));
    if (fields[3].contains(QLatin1String("Ended"))) {
        state = kEnded;
        trigger.eventTrg().regime = kIdle;
    } else {
        if (!fields[3].contains(QLatin1String("Seq")))
            return;
        if (fields.size() < kFields) {
            trigger.eventTrg().regime = kIdle;
            return;
        }
        seq = fromFirstDigit(fields[3]).toULongLong();
        const QList<QStringView> parts = firstParts(fields[4], QLatin1Char(' '), 4);
        const QList<QStringView> edges = firstParts(parts.value(1), QLatin1Char('-'), 2);
        trigger.setMinFreq(edges.value(0).toUInt());
        trigger.setMaxFreq(edges.value(1).toUInt());
        trigger.setTestType(parts.value(2).contains(QLatin1Char('<')) ? TestTypeBelow : TestTypeAbove);
        trigger.setThreshold(static_cast<int16_t>(toLastDigit(parts.value(3)).toInt()));
        trigger.setDuration(static_cast<uint16_t>(toLastDigit(fields[5]).toInt()));
        state = kStarted;
        trigger.eventTrg().regime = kActive;
    }
    type = lineType;
    trigger.eventTrg().type = lineType;
}

QString SActiveTrigger::mes(bool /*unused*/) const
{
    switch (state) {
    case 0:
        return QStringLiteral("Inactive");
    case 1:
        return QStringLiteral("Pre-Event");
    case kStarted:
        return QStringLiteral("Started");
    case 4:
    case 7:
        return QStringLiteral("Active");
    case 5:
        return QStringLiteral("Post-Event");
    case kEnded:
        return QStringLiteral("Ended");
    case 9:
        return QStringLiteral("Streaming is Started");
    case 10:
        return QStringLiteral("WAV Streaming is Started");
    case 11:
        return QStringLiteral("FFT Streaming is Started");
    case 12:
        return QStringLiteral("File WAV Streaming is Started");
    case 13:
        return QStringLiteral("File FFT Streaming is Started");
    case 14:
        return QStringLiteral("Streaming is Stopped");
    case 15:
        return QStringLiteral("File Streaming is Stopped");
    default:
        return QStringLiteral("Trigger's message");
    }
}

QDateTime SActiveTrigger::logTime() const
{
    QDateTime local;
    local.setSecsSinceEpoch(static_cast<qint64>(time));
    return type == TrigProgram ? local.toUTC() : local;
}

QString SActiveTrigger::logMes(int percent, int measDur, int wholeCount) const
{
    return logMes(logTime(), percent, measDur, wholeCount);
}

QString SActiveTrigger::logMes(const QDateTime& dt, int percent, int measDur, int wholeCount) const
{
    const QString begin = dt.toString(kTimeFormat);
    const QString serial = QString::number(devId.serialNo());
    const bool isProgram = type == TrigProgram;
    if (state >= kFirstStreamState && state <= kLastStreamState) {
        const QString head = begin + (isProgram ? QStringLiteral(", P, ") : QStringLiteral(", D, ")) +
                             serial + QStringLiteral(", , , ");
        QString lines;
        if (state == 12 || state == 13)
            lines = head + QStringLiteral(" *************** File: ") + fileName +
                    QStringLiteral(" *************** \n");
        return lines + head + mes(false) + QLatin1Char('\n');
    }
    QString line = begin + (isProgram ? QStringLiteral(", P, ") : QStringLiteral(", U, ")) + serial +
                   QStringLiteral(", E, ") + QString::number(trigger.trigNum() + (isProgram ? 1 : 0));
    if (isProgram) {
        line += details();
        if (percent >= 1 && percent <= 99 && measCount != 0 && measDur > 0 && wholeCount > 0)
            line += QStringLiteral(", ") +
                    QString::number(static_cast<double>(measCount) / wholeCount * 100.0) + QLatin1Char('%');
    } else if (type == TrigDevice && state == kEnded) {
        line += QStringLiteral(", Ended");
    } else if (type == TrigDevice && state == kStarted) {
        line += details();
    }
    return line + QLatin1Char('\n');
}

QString SActiveTrigger::details() const
{
    const QString text = QStringLiteral(", ") + mes(false) + QStringLiteral(", S, ") + QString::number(seq);
    switch (state) {
    case 1:
        return text + band() + QString::number(trigger.preTrigger());
    case kStarted:
        return text + band() + QString::number(trigger.duration());
    case 5:
        return text + band() + QString::number(trigger.eventHold());
    case kEnded:
        return text;
    default:
        // Directly behind the sequence number; this is intended.
        return text + QString::number(trigger.duration());
    }
}

QString SActiveTrigger::band() const
{
    const bool isBelow = trigger.testType() == TestTypeBelow;
    return QStringLiteral(", ") + QString::number(trigger.minFreq()) + QLatin1Char('-') +
           QString::number(trigger.maxFreq()) + QStringLiteral(" Hz, ") +
           (isBelow ? QStringLiteral(" < ") : QStringLiteral(" > ")) + QString::number(trigger.threshold()) +
           QStringLiteral(" uPa, Duration (sec): ");
}
