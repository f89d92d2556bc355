#include "NvxQtCommon/transfer/FtpListingParser.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/TestSeed.h"

#include <QLocale>
#include <QRandomGenerator>
#include <QRegularExpression>

namespace {

QDateTime utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::UTC);
}

const QDateTime kNow = utc(2024, 6, 15, 12);

QString kindOf(const QUrlInfo& info)
{
    return QString(info.isDir() ? "d" : "") + (info.isSymLink() ? "l" : "") + (info.isFile() ? "f" : "");
}

QString rightsOf(const QUrlInfo& info)
{
    return QString(info.isReadable() ? "r" : "-") + (info.isWritable() ? "w" : "-") +
           (info.isExecutable() ? "x" : "-");
}

/// The form of a Unix line, as an expression to compare with.
const QRegularExpression& unixPattern()
{
    static const QRegularExpression s_pattern(
        QStringLiteral("^([\\-dl])([a-zA-Z\\-]{9,9})\\s+\\d+\\s+(\\S*)\\s+(\\S*)\\s+(\\d+)\\s+"
                       "(\\S+\\s+\\S+\\s+\\S+)\\s+(\\S.*)"));
    return s_pattern;
}

const QRegularExpression& dosPattern()
{
    static const QRegularExpression s_pattern(QStringLiteral(
        "^(\\d\\d-\\d\\d-\\d\\d\\d?\\d?\\ \\ \\d\\d:\\d\\d[AP]M)\\s+(<DIR>|\\d+)\\s+(\\S.*)$"));
    return s_pattern;
}

/// The date by the formats of Qt, one after the other.
QDateTime unixTimeByFormats(const QString& text, const QDateTime& now)
{
    for (const char* format :
         {"MMM dd  yyyy", "MMM dd hh:mm", "MMM  d  yyyy", "MMM  d hh:mm", "MMM  d yyyy", "MMM dd yyyy"}) {
        const QString name = QString::fromLatin1(format);
        const auto parse = [](const QString& given, const QString& by) {
            QDateTime time = QLocale::c().toDateTime(given, by);
            time.setTimeSpec(Qt::UTC);
            return time;
        };
        if (name.endsWith(u"yyyy")) {
            if (const QDateTime time = parse(text, name); time.isValid())
                return time;
            continue;
        }
        for (const int year : {now.date().year(), now.date().year() - 1}) {
            const QDateTime time = parse(text + u' ' + QString::number(year), name + QStringLiteral(" yyyy"));
            if (time.isValid() && (year < now.date().year() || now.secsTo(time) <= 86400))
                return time;
        }
    }
    return {};
}

QString pick(QRandomGenerator& random, const QStringList& from)
{
    return from[random.bounded(int(from.size()))];
}

} // namespace

class tst_FtpListingParser : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void readsLines_data();
    void readsLines();
    void dateWithoutYear_data();
    void dateWithoutYear();
    void dosTimes_data();
    void dosTimes();
    void nameOfARecordingOverrulesCreated_data();
    void nameOfARecordingOverrulesCreated();
    void readsWhatTheExpressionsRead();
    void readsDatesAsTheFormatsDo();
    // --- rainy day flows
    void refusesLines_data();
    void refusesLines();
    void longLinesTakeNoLonger();
};

void tst_FtpListingParser::readsLines_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("permissions");
    QTest::addColumn<QString>("rights");
    QTest::addColumn<QString>("owner");
    QTest::addColumn<QString>("group");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QDateTime>("time");
    const auto row = [](const char* tag, const char* line, const char* name, const char* kind,
                        int permissions, const char* rights, const char* owner, const char* group,
                        qint64 size, QDateTime time) {
        QTest::newRow(tag) << QString::fromUtf8(line) << QString::fromUtf8(name) << kind << permissions
                           << rights << owner << group << size << time;
    };
    // Embedded Linux of a recorder, with and without a year.
    row("Unix, time", "-rw-r--r--    1 ftp      ftp       1234567 Mar 04 05:06 REC.wav", "REC.wav", "f", 0644,
        "rw-", "ftp", "ftp", 1234567, utc(2024, 3, 4, 5, 6));
    row("Unix, year", "-rw-r--r--    1 ftp      ftp       1234567 Mar 04  2021 REC.wav", "REC.wav", "f", 0644,
        "rw-", "ftp", "ftp", 1234567, utc(2021, 3, 4));
    row("Unix, one digit day", "drwxr-xr-x 2 root root 4096 Mar  4 05:06 Data", "Data", "d", 0755, "rwx",
        "root", "root", 4096, utc(2024, 3, 4, 5, 6));
    row("Unix, one digit day and year", "drwxr-xr-x 2 root root 4096 Mar  4  2021 Data", "Data", "d", 0755,
        "rwx", "root", "root", 4096, utc(2021, 3, 4));
    row("Unix, one blank ahead of the year", "drwxr-xr-x 2 root root 4096 Mar  4 2021 Data", "Data", "d",
        0755, "rwx", "root", "root", 4096, utc(2021, 3, 4));
    row("Unix, large", "-rw------- 1 1000 1000 5000000000000 Dec 31 2023 a b.txt", "a b.txt", "f", 0600,
        "rw-", "1000", "1000", 5000000000000, utc(2023, 12, 31));
    row("Unix, UTF-8 name", "-rw-r--r-- 1 a b 1 Mar 04 2021 m\xc3\xa9r.wav", "m\xc3\xa9r.wav", "f", 0644,
        "rw-", "a", "b", 1, utc(2021, 3, 4));
    row("Unix, blanks in and behind the name", "-rw-r--r-- 1 a b 1 Mar 04 2021   x  y ", "x  y ", "f", 0644,
        "rw-", "a", "b", 1, utc(2021, 3, 4));
    // vsftpd: fixed columns, numbers for names.
    row("vsftpd", "-rw-r--r--    1 0        0               0 Nov 21 2023 empty.wav", "empty.wav", "f", 0644,
        "rw-", "0", "0", 0, utc(2023, 11, 21));
    row("vsftpd, special bits", "drwxrwsrwt    3 1001     1001         4096 Jun 15 11:59 pub", "pub", "d",
        0777, "rwx", "1001", "1001", 4096, utc(2024, 6, 15, 11, 59));
    row("special bits without execution", "-rwSr-Sr-T 1 a b 1 Mar 04 2021 odd", "odd", "f", 0644, "rw-", "a",
        "b", 1, utc(2021, 3, 4));
    // Link, of BSD and others.
    row("link", "lrwxrwxrwx 1 root wheel 11 Mar 04 2021 latest.wav -> Data/x.wav", "latest.wav", "l", 0777,
        "rwx", "root", "wheel", 11, utc(2021, 3, 4));
    row("link to a name with an arrow", "lrwxrwxrwx 1 a b 11 Mar 04 2021 l -> a -> b", "l", "l", 0777, "rwx",
        "a", "b", 11, utc(2021, 3, 4));
    row("link without a target", "lrwxrwxrwx 1 a b 11 Mar 04 2021 l->x", "l->x", "l", 0777, "rwx", "a", "b",
        11, utc(2021, 3, 4));
    row("arrow in a file's name", "-rw-r--r-- 1 a b 11 Mar 04 2021 x -> y", "x -> y", "f", 0644, "rw-", "a",
        "b", 11, utc(2021, 3, 4));
    // NetBSD and old Unix: no group, or neither, where the gap is wide enough for them.
    row("NetBSD, no group", "-rw-r--r--  1 operator    512 Mar 04 2021 log.txt", "log.txt", "f", 0644, "rw-",
        "operator", "", 512, utc(2021, 3, 4));
    row("NetBSD, both", "drwxr-xr-x  14 root  wheel    512 Mar 04 2021 etc", "etc", "d", 0755, "rwx", "root",
        "wheel", 512, utc(2021, 3, 4));
    row("no owner", "-rw-r--r-- 1  staff 512 Mar 04 2021 log.txt", "log.txt", "f", 0644, "rw-", "", "staff",
        512, utc(2021, 3, 4));
    row("neither owner nor group", "-rw-r--r-- 1   512 Mar 04 2021 log.txt", "log.txt", "f", 0644, "rw-", "",
        "", 512, utc(2021, 3, 4));
    row("digits for an owner", "-rw-r--r-- 1 77 88 99 Mar 04 2021 5 6 7", "5 6 7", "f", 0644, "rw-", "77",
        "88", 99, utc(2021, 3, 4));
    // Odd blanks: tabs, wide columns.
    row("odd blanks", "-rw-r--r--\t1\tanna \t  sea\t  42   Mar 04 2021\t\tx.wav", "x.wav", "f", 0644, "rw-",
        "anna", "sea", 42, utc(2021, 3, 4));
    row("date that can't be read", "-rw-r--r-- 1 a b 42 2021 03 04 x.wav", "x.wav", "f", 0644, "rw-", "a",
        "b", 42, {});
    row("date in a form of its own", "-rw-r--r-- 1 a b 42 Mar 4 2021 x.wav", "x.wav", "f", 0644, "rw-", "a",
        "b", 42, {});
    row("no rights", "---------- 1 a b 42 Mar 04 2021 x", "x", "f", 0, "---", "a", "b", 42, utc(2021, 3, 4));
    row("rights of others alone", "-------rwx 1 a b 42 Mar 04 2021 x", "x", "f", 07, "rwx", "a", "b", 42,
        utc(2021, 3, 4));
    row("size beyond 64 bits", "-rw-r--r-- 1 a b 99999999999999999999 Mar 04 2021 x", "x", "f", 0644, "rw-",
        "a", "b", 0, utc(2021, 3, 4));
    // MS-DOS style, of Windows servers.
    row("MS-DOS file", "03-04-21  05:06AM              1234567 REC.wav", "REC.wav", "f", 0, "rw-", "", "",
        1234567, utc(2021, 3, 4, 5, 6));
    row("MS-DOS directory", "12-31-99  11:59PM       <DIR>          Data", "Data", "d", 0, "rw-", "", "", 0,
        utc(1999, 12, 31, 23, 59));
    row("MS-DOS link", "03-04-21  12:00AM                  512 Data.LNK", "Data.LNK", "l", 0, "rw-", "", "",
        512, utc(2021, 3, 4));
    row("MS-DOS directory with a link's name", "12-31-99  11:59PM  <DIR>  Data.lnk", "Data.lnk", "dl", 0,
        "rw-", "", "", 0, utc(1999, 12, 31, 23, 59));
    row("MS-DOS name with blanks", "03-04-21  12:30PM  5 a  b.txt ", "a  b.txt ", "f", 0, "rw-", "", "", 5,
        utc(2021, 3, 4, 12, 30));
    // White space that isn't ASCII belongs to the name.
    row("Unix, name behind a no-break space", "-rw-r--r-- 1 a b 1 Mar 04 2021 \xc2\xa0x.wav", "\xc2\xa0x.wav",
        "f", 0644, "rw-", "a", "b", 1, utc(2021, 3, 4));
    row("MS-DOS name behind a wide space", "03-04-21  12:30PM  5 \xe3\x80\x80x.txt", "\xe3\x80\x80x.txt", "f",
        0, "rw-", "", "", 5, utc(2021, 3, 4, 12, 30));
    // The form is known, but its date is read with two digits for the year.
    row("MS-DOS, four digit year", "03-04-2021  05:06AM  5 a.txt", "a.txt", "f", 0, "rw-", "", "", 5, {});
}

void tst_FtpListingParser::readsLines()
{
    QFETCH(QString, line);
    const auto info = FtpListingParser(kNow).parse(line);
    QVERIFY(info);
    QVERIFY(info->isValid());
    QTEST(info->name(), "name");
    QTEST(kindOf(*info), "kind");
    QTEST(info->permissions(), "permissions");
    QTEST(rightsOf(*info), "rights");
    QTEST(info->owner(), "owner");
    QTEST(info->group(), "group");
    QTEST(info->size(), "size");
    QTEST(info->lastModified(), "time");
    QTEST(info->created(), "time");
    QVERIFY(!info->lastRead().isValid());
}

void tst_FtpListingParser::dateWithoutYear_data()
{
    QTest::addColumn<QDateTime>("now");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QDateTime>("time");
    QTest::newRow("past") << kNow << "Jun 15 11:59" << utc(2024, 6, 15, 11, 59);
    QTest::newRow("a day ahead") << kNow << "Jun 16 12:00" << utc(2024, 6, 16, 12);
    QTest::newRow("more than a day ahead") << kNow << "Jun 16 12:01" << utc(2023, 6, 16, 12, 1);
    QTest::newRow("end of last year") << kNow << "Dec 31 23:59" << utc(2023, 12, 31, 23, 59);
    QTest::newRow("new year's eve, a clock ahead")
        << utc(2023, 12, 31, 23) << "Jan  1 01:00" << utc(2023, 1, 1, 1);
    QTest::newRow("leap day this year") << kNow << "Feb 29 10:00" << utc(2024, 2, 29, 10);
    QTest::newRow("leap day last year") << utc(2025, 1, 10) << "Feb 29 10:00" << utc(2024, 2, 29, 10);
    QTest::newRow("leap day still to come") << utc(2024, 1, 10) << "Feb 29 10:00" << QDateTime();
    QTest::newRow("no leap day at all") << utc(2023, 6, 1) << "Feb 29 10:00" << QDateTime();
    QTest::newRow("local now") << utc(2024, 1, 1, 0, 30).toOffsetFromUtc(-3600) << "Jan  1 00:10"
                               << utc(2024, 1, 1, 0, 10);
}

void tst_FtpListingParser::dateWithoutYear()
{
    QFETCH(QDateTime, now);
    QFETCH(QString, text);
    QTEST(FtpListingParser(now).unixTime(text), "time");
}

void tst_FtpListingParser::dosTimes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QDateTime>("time");
    QTest::newRow("midnight") << "01-02-03  12:00AM" << utc(2003, 1, 2);
    QTest::newRow("noon") << "01-02-03  12:00PM" << utc(2003, 1, 2, 12);
    QTest::newRow("1970 is 2070") << "01-02-70  01:00AM" << utc(2070, 1, 2, 1);
    QTest::newRow("1971") << "01-02-71  01:00AM" << utc(1971, 1, 2, 1);
    // --- rainy day flows
    QTest::newRow("hour 13") << "01-02-03  13:00PM" << QDateTime();
    QTest::newRow("hour 0") << "01-02-03  00:00AM" << QDateTime();
    QTest::newRow("minute 60") << "01-02-03  01:60AM" << QDateTime();
    QTest::newRow("month 13") << "13-02-03  01:00AM" << QDateTime();
    QTest::newRow("29 February 2003") << "02-29-03  01:00AM" << QDateTime();
    QTest::newRow("four digits") << "01-02-2003  01:00AM" << QDateTime();
    QTest::newRow("nothing") << "" << QDateTime();
}

void tst_FtpListingParser::dosTimes()
{
    QFETCH(QString, text);
    QTEST(FtpListingParser::dosTime(text), "time");
}

void tst_FtpListingParser::nameOfARecordingOverrulesCreated_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QDateTime>("created");
    const QDateTime server = utc(2021, 3, 4);
    QTest::newRow("recording") << "REC1234_20200229_123456.wav" << utc(2020, 2, 29, 12, 34, 56);
    QTest::newRow("spectra") << "SPC1234_20200229_123456.txt" << utc(2020, 2, 29, 12, 34, 56);
    QTest::newRow("shortest prefix") << "ABC1_20200229_123456.wav" << utc(2020, 2, 29, 12, 34, 56);
    QTest::newRow("points behind") << "REC1234_20200229_000000.part.wav" << utc(2020, 2, 29);
    // --- rainy day flows
    QTest::newRow("prefix too short") << "REC_20200229_123456.wav" << server;
    QTest::newRow("prefix not of letters") << "12345_20200229_123456.wav" << server;
    QTest::newRow("no such day") << "REC1234_20210229_123456.wav" << server;
    QTest::newRow("no such time") << "REC1234_20200229_246060.wav" << server;
    QTest::newRow("date too short") << "REC1234_2020022_123456.wav" << server;
    QTest::newRow("date too long") << "REC1234_202002290_123456.wav" << server;
    QTest::newRow("time too short") << "REC1234_20200229_12345.wav" << server;
    QTest::newRow("number behind the time") << "REC1234_20200229_123456_1.wav" << server;
    QTest::newRow("no time") << "REC1234_20200229.wav" << server;
    QTest::newRow("no ending") << "REC1234_20200229_123456" << server;
    QTest::newRow("a sign") << "REC1234_+2020229_123456.wav" << server;
    QTest::newRow("underscores") << "____." << server;
}

void tst_FtpListingParser::nameOfARecordingOverrulesCreated()
{
    QFETCH(QString, name);
    const FtpListingParser parser(kNow);
    for (const QString& line :
         {QStringLiteral("-rw-r--r-- 1 a b 1 Mar 04 2021 "), QStringLiteral("03-04-21  12:00AM 1 ")}) {
        const auto info = parser.parse(line + name);
        QVERIFY(info);
        QTEST(info->created(), "created");
        QCOMPARE(info->lastModified(), utc(2021, 3, 4));
    }
    // Without a date of the server's, the name's is the only one.
    const auto undated = parser.parse(u"-rw-r--r-- 1 a b 1 x y z REC1234_20200229_123456.wav");
    QVERIFY(undated && !undated->lastModified().isValid());
    QCOMPARE(undated->created(), utc(2020, 2, 29, 12, 34, 56));
}

void tst_FtpListingParser::readsWhatTheExpressionsRead()
{
    QRandomGenerator random(testSeed());
    const QStringList words = {"1",   "22",  "512",     "4096",    "7",       "22",    "x",
                               "Mar", "04",  "2021",    "05:06",   "a.wav",   "->",    "<DIR>",
                               "-",   "9_9", "\u00a0a", "\u0085b", "\u3000c", "\u0665"};
    const QStringList gaps = {" ", " ", "  ", "   ", "\t", "", "\v"};
    const FtpListingParser parser(kNow);
    int matches = 0;
    for (int round = 0; round < 15000; ++round) {
        QString line;
        if (random.bounded(4) > 0)
            line = pick(random,
                        {"-rw-r--r--", "drwxrwxrwx", "lrwxrwxrwx", "-rw-r--r-", "brw-r--r--", "-rw-r--r--+"});
        else
            line = pick(random,
                        {"03-04-21  05:06AM", "03-04-021  05:06PM", "03-04-2021  05:06AM", "03-04-21 05:06AM",
                         "03-04-21  05:06XM", "03/04/21  05:06AM", "03-04-2\u0661  05:06AM"});
        const int count = 3 + random.bounded(8);
        for (int word = 0; word < count; ++word)
            line += pick(random, gaps) + pick(random, words);
        const auto unixMatch = unixPattern().match(line);
        const auto dosMatch = dosPattern().match(line);
        const auto info = parser.parse(line);
        QVERIFY2(info.has_value() == (unixMatch.hasMatch() || dosMatch.hasMatch()), qPrintable(line));
        if (!info)
            continue;
        ++matches;
        if (unixMatch.hasMatch()) {
            QString name = unixMatch.captured(7);
            if (line.front() == u'l' && name.contains(u" ->"))
                name.truncate(name.indexOf(u" ->"));
            const QStringList expected = {unixMatch.captured(3), unixMatch.captured(4), unixMatch.captured(5),
                                          name};
            const QStringList found = {info->owner(), info->group(), QString::number(info->size()),
                                       info->name()};
            QVERIFY2(QString::number(expected[2].toLongLong()) == found[2], qPrintable(line));
            QVERIFY2(expected[0] == found[0] && expected[1] == found[1] && expected[3] == found[3],
                     qPrintable(line));
            QVERIFY2(info->lastModified() == unixTimeByFormats(unixMatch.captured(6), kNow),
                     qPrintable(line));
        } else {
            QCOMPARE(info->name(), dosMatch.captured(3));
            QCOMPARE(info->isDir(), dosMatch.captured(2) == u"<DIR>");
        }
    }
    QVERIFY2(matches > 500, qPrintable(QString::number(matches)));
}

void tst_FtpListingParser::readsDatesAsTheFormatsDo()
{
    QRandomGenerator random(testSeed());
    const FtpListingParser parser(kNow);
    int valid = 0;
    for (int round = 0; round < 6000; ++round) {
        const QString month = pick(random, {"Jan", "Feb", "mar", "JUN", "Dec", "Sept", "Mai", ""});
        const QString day = pick(random, {"1", "01", "9", "29", "31", "32", "00", "0", "x", "001"});
        const QString rest = pick(random, {"2021", "2024", "1969", "9999", "21", "12:34", "00:00", "24:00",
                                           "1:02", "12:60", "12.34", "12:345"});
        const QString text = month + pick(random, {" ", "  ", "   ", "\t"}) + day +
                             pick(random, {" ", "  ", "   ", "\t"}) + rest;
        const QDateTime expected = unixTimeByFormats(text, kNow);
        QVERIFY2(parser.unixTime(text) == expected, qPrintable(text));
        valid += int(expected.isValid());
    }
    QVERIFY2(valid > 60, qPrintable(QString::number(valid)));
}

void tst_FtpListingParser::refusesLines_data()
{
    QTest::addColumn<QString>("line");
    for (const char* line : {"",
                             " ",
                             "total 12",
                             "-rw-r--r--",
                             "-rw-r--r-- ",
                             "-rw-r--r-- 1 a b 42 Mar 04 2021",
                             "-rw-r--r-- 1 a b 42 Mar 04 2021 ",
                             "-rw-r--r-- x a b 42 Mar 04 2021 x",
                             "-rw-r--r-- 1 a b x Mar 04 2021 x",
                             "-rw-r--r--+ 1 a b 42 Mar 04 2021 x",
                             "-rw-r--r-1 a b 42 Mar 04 2021 x",
                             "srw-r--r-- 1 a b 42 Mar 04 2021 x",
                             " -rw-r--r-- 1 a b 42 Mar 04 2021 x",
                             "-rw-r--r--1 a b 42 Mar 04 2021 x",
                             "-rw-r--r-- 1 a 42 Mar 04 2021 x",
                             "ls: Data: No such file or directory",
                             "03-04-21 05:06AM 5 a.txt",
                             "03-04-21  05:06 5 a.txt",
                             "03-04-21  05:06AM <dir> a",
                             "03-04-21  05:06AM 5",
                             "03-04-21  05:06AM 5 ",
                             "03-04-21  05:06AM5 a",
                             "03-04-21  05:06AM",
                             "3-4-21  05:06AM 5 a",
                             "03-04-20211  05:06AM 5 a",
                             "+i8388621.48594,m825718503,r,s280,\tx"})
        QTest::newRow(line) << QString::fromUtf8(line);
}

void tst_FtpListingParser::refusesLines()
{
    QFETCH(QString, line);
    QVERIFY(!FtpListingParser(kNow).parse(line));
}

void tst_FtpListingParser::longLinesTakeNoLonger()
{
    // What would make an expression try each way to split a run of blanks.
    const FtpListingParser parser(kNow);
    const QString blanks(100000, u' ');
    for (int round = 0; round < 100; ++round) {
        QVERIFY(!parser.parse(QStringLiteral("-rw-r--r-- 1") + blanks + u'x'));
        QVERIFY(!parser.parse(QStringLiteral("-rw-r--r-- 1") + blanks + QStringLiteral("x") + blanks +
                              QStringLiteral("y") + blanks));
        QVERIFY(!parser.parse(QStringLiteral("03-04-21  05:06AM") + blanks));
    }
}

QTEST_APPLESS_MAIN(tst_FtpListingParser)
#include "tst_FtpListingParser.moc"
