#include "NvxQtCommon/transfer/FtpListingParser.h"

#include <algorithm>
#include <array>

namespace {

constexpr qint64 kSecondsAhead = 86400;
constexpr int kFirstDosYear = 1971;

// Columns are of ASCII: any other white space belongs to a name.

bool isBlank(QChar c)
{
    return c == u' ' || (c >= u'\t' && c <= u'\r');
}

bool isListingDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

bool isDigits(QStringView text)
{
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), isListingDigit);
}

bool isLetter(QChar c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

/// A number of exactly `digits` ASCII digits; nothing otherwise.
std::optional<int> number(QStringView text, qsizetype digits)
{
    if (text.size() != digits || !isDigits(text))
        return {};
    return text.toInt();
}

/// Takes the blanks off the front; gives how many they were.
qsizetype takeBlanks(QStringView& text)
{
    const auto end = std::find_if_not(text.begin(), text.end(), isBlank);
    const qsizetype count = end - text.begin();
    text = text.mid(count);
    return count;
}

QStringView takeWord(QStringView& text)
{
    const auto end = std::find_if(text.begin(), text.end(), isBlank);
    const QStringView word = text.first(end - text.begin());
    text = text.mid(word.size());
    return word;
}

/// What stands behind the permissions of a Unix line.
struct UnixColumns
{
    QStringView owner;
    QStringView group;
    QStringView size;
    QStringView date;
    QStringView name;
};

/// Size, date and name, all of which have to be there.
bool readTail(QStringView text, UnixColumns& columns)
{
    columns.size = takeWord(text);
    if (!isDigits(columns.size))
        return false;
    takeBlanks(text);
    const QStringView from = text;
    for (int part = 0; part < 3; ++part) {
        if (takeWord(text).isEmpty())
            return false;
        columns.date = from.first(from.size() - text.size());
        takeBlanks(text);
    }
    columns.name = text;
    return !text.isEmpty();
}

/// Reads "links owner group size date name". Owner and group may be missing where wide enough a gap stands
/// for them; what is there is read as owner first.
bool readColumns(QStringView text, UnixColumns& columns)
{
    if (takeBlanks(text) == 0 || !isDigits(takeWord(text)))
        return false;
    const qsizetype ownerGap = takeBlanks(text);
    QStringView behindFirst = text;
    const QStringView first = takeWord(behindFirst);
    const qsizetype groupGap = takeBlanks(behindFirst);
    QStringView behindSecond = behindFirst;
    const QStringView second = takeWord(behindSecond);
    takeBlanks(behindSecond);

    columns.owner = first;
    columns.group = second;
    if (readTail(behindSecond, columns))
        return true;
    columns.group = {};
    if (groupGap >= 2 && readTail(behindFirst, columns))
        return true;
    columns.owner = {};
    columns.group = first;
    if (ownerGap >= 2 && readTail(behindFirst, columns))
        return true;
    columns.group = {};
    return ownerGap >= 3 && readTail(text, columns);
}

int permissionBits(QStringView letters)
{
    int bits = 0;
    for (const QChar letter : letters) {
        // Capital S and T stand for a special bit without the right to execute.
        constexpr QStringView kGranted = u"rwxst";
        bits = bits << 1 | int(kGranted.contains(letter));
    }
    return bits;
}

int monthNumber(QStringView name)
{
    static constexpr std::array<QStringView, 12> kMonths = {u"Jan", u"Feb", u"Mar", u"Apr", u"May", u"Jun",
                                                            u"Jul", u"Aug", u"Sep", u"Oct", u"Nov", u"Dec"};
    const auto found = std::find_if(kMonths.begin(), kMonths.end(), [name](QStringView month) {
        return name.compare(month, Qt::CaseInsensitive) == 0;
    });
    return found == kMonths.end() ? 0 : int(found - kMonths.begin()) + 1;
}

QDateTime utc(QDate date, QTime time)
{
    return date.isValid() && time.isValid() ? QDateTime(date, time, Qt::UTC) : QDateTime();
}

/// "dd-dd-dd  dd:ddAM" or "...PM", where the year may have two more digits.
bool hasDosShape(QStringView text)
{
    constexpr QStringView kShape = u"dd-dd-dd  dd:dd?M";
    constexpr qsizetype kYearEnd = 8;
    if (text.size() < kShape.size() || text.size() > kShape.size() + 2)
        return false;
    const qsizetype extra = text.size() - kShape.size();
    for (qsizetype i = 0; i < text.size(); ++i) {
        const bool isYear = i >= kYearEnd && i < kYearEnd + extra;
        const QChar wanted = isYear ? QChar(u'd') : kShape[i < kYearEnd ? i : i - extra];
        const QChar c = text[i];
        if (wanted == u'd' ? !isListingDigit(c) : wanted == u'?' ? c != u'A' && c != u'P' : c != wanted)
            return false;
    }
    return true;
}

void setTimes(QUrlInfo& info, const QDateTime& time)
{
    if (time.isValid()) {
        info.setLastModified(time);
        info.setCreated(time);
    }
    const QDateTime recorded = FtpListingParser::recordingTime(info.name());
    if (recorded.isValid())
        info.setCreated(recorded);
}

} // namespace

FtpListingParser::FtpListingParser(const QDateTime& now) : m_now(now.toUTC()) {}

std::optional<QUrlInfo> FtpListingParser::parse(QStringView line) const
{
    const auto info = parseUnix(line);
    return info ? info : parseDos(line);
}

std::optional<QUrlInfo> FtpListingParser::parseUnix(QStringView line) const
{
    constexpr qsizetype kModeLetters = 10;
    if (line.size() < kModeLetters)
        return {};
    const QChar type = line.front();
    const QStringView rights = line.mid(1, kModeLetters - 1);
    if ((type != u'-' && type != u'd' && type != u'l') ||
        !std::all_of(rights.begin(), rights.end(), [](QChar c) { return isLetter(c) || c == u'-'; }))
        return {};
    UnixColumns columns;
    if (!readColumns(line.mid(kModeLetters), columns))
        return {};

    QUrlInfo info;
    info.setDir(type == u'd');
    info.setSymLink(type == u'l');
    info.setFile(type == u'-');
    const int bits = permissionBits(rights);
    info.setPermissions(bits);
    info.setReadable((bits & 0444) != 0);
    info.setWritable((bits & 0222) != 0);
    info.setExecutable((bits & 0111) != 0);
    info.setOwner(columns.owner.toString());
    info.setGroup(columns.group.toString());
    info.setSize(columns.size.toLongLong());
    if (const qsizetype arrow = columns.name.indexOf(u" ->"); info.isSymLink() && arrow >= 0)
        columns.name.truncate(arrow);
    info.setName(columns.name.toString());
    setTimes(info, unixTime(columns.date));
    return info;
}

std::optional<QUrlInfo> FtpListingParser::parseDos(QStringView line)
{
    constexpr QStringView kLinkEnding = u".lnk";
    const QStringView whole = line;
    // Date and time are two words with two blanks between, which hasDosShape() looks at.
    takeWord(line);
    takeBlanks(line);
    takeWord(line);
    const QStringView date = whole.first(whole.size() - line.size());
    if (!hasDosShape(date) || takeBlanks(line) == 0)
        return {};
    const QStringView size = takeWord(line);
    const bool isDir = size == u"<DIR>";
    if ((!isDir && !isDigits(size)) || takeBlanks(line) == 0 || line.isEmpty())
        return {};

    QUrlInfo info;
    info.setName(line.toString());
    info.setDir(isDir);
    info.setSymLink(line.endsWith(kLinkEnding, Qt::CaseInsensitive));
    info.setFile(!isDir && !info.isSymLink());
    info.setReadable(true);
    info.setWritable(true);
    info.setSize(isDir ? 0 : size.toLongLong());
    setTimes(info, dosTime(date));
    return info;
}

QDateTime FtpListingParser::unixTime(QStringView text) const
{
    // Columns may be parted by any white space, the words of a date by plain blanks alone.
    if (std::any_of(text.begin(), text.end(), [](QChar c) { return isBlank(c) && c != u' '; }))
        return {};
    const int month = monthNumber(takeWord(text));
    const qsizetype dayGap = takeBlanks(text);
    const QStringView dayText = takeWord(text);
    const qsizetype restGap = takeBlanks(text);
    std::optional<int> day = number(dayText, 2);
    if (!day && dayGap == 2)
        day = number(dayText, 1);
    if (month == 0 || !day || dayGap < 1 || dayGap > 2)
        return {};

    if (const auto year = number(text, 4))
        return restGap <= 2 ? utc(QDate(*year, month, *day), QTime(0, 0)) : QDateTime();
    const auto hour = number(text.first(std::min<qsizetype>(text.size(), 2)), 2);
    const auto minute = number(text.mid(std::min<qsizetype>(text.size(), 3)), 2);
    if (restGap != 1 || !hour || !minute || text[2] != u':')
        return {};
    const int year = m_now.date().year();
    const QDateTime thisYear = utc(QDate(year, month, *day), QTime(*hour, *minute));
    // A 29 February that this year doesn't have is last year's.
    if (thisYear.isValid() && m_now.secsTo(thisYear) <= kSecondsAhead)
        return thisYear;
    return utc(QDate(year - 1, month, *day), QTime(*hour, *minute));
}

QDateTime FtpListingParser::dosTime(QStringView text)
{
    constexpr qsizetype kLength = 17;
    if (text.size() != kLength || !hasDosShape(text))
        return {};
    const auto twoDigits = [text](qsizetype at) { return number(text.mid(at, 2), 2).value_or(-1); };
    const int hour = twoDigits(10);
    if (hour < 1 || hour > 12)
        return {};
    int year = 1900 + twoDigits(6);
    if (year < kFirstDosYear)
        year += 100;
    const int hourOfDay = hour % 12 + (text[15] == u'P' ? 12 : 0);
    return utc(QDate(year, twoDigits(0), twoDigits(3)), QTime(hourOfDay, twoDigits(13)));
}

QDateTime FtpListingParser::recordingTime(QStringView name)
{
    constexpr qsizetype kMinPrefix = 4;
    constexpr qsizetype kLetters = 3;
    const qsizetype behindPrefix = name.indexOf(u'_');
    if (behindPrefix < kMinPrefix || !std::all_of(name.begin(), name.begin() + kLetters, isLetter))
        return {};
    const qsizetype behindDate = name.indexOf(u'_', behindPrefix + 1);
    const qsizetype behindTime = behindDate < 0 ? -1 : name.indexOf(u'.', behindDate + 1);
    if (behindTime < 0)
        return {};
    const auto date = number(name.mid(behindPrefix + 1, behindDate - behindPrefix - 1), 8);
    const auto time = number(name.mid(behindDate + 1, behindTime - behindDate - 1), 6);
    if (!date || !time)
        return {};
    return utc(QDate(*date / 10000, *date / 100 % 100, *date % 100),
               QTime(*time / 10000, *time / 100 % 100, *time % 100));
}
