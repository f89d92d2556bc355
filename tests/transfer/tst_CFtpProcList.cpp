#include "NvxQtCommon/transfer/CFtpProc.h"
#include "tests/support/NvxTestCase.h"

namespace {

struct Found
{
    QStringList files;
    QStringList dirs;
};

Found parsed(const CFtpProc& proc, const std::string& listing, CFtpProc::DEV_TYPE type)
{
    Found found;
    proc.parseList(listing, &found.files, &found.dirs, type);
    return found;
}

int thisYear()
{
    return QDateTime::currentDateTimeUtc().date().year();
}

QDateTime utc(int year, int month, int day, int hour, int minute, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::UTC);
}

std::string fileLine(const std::string& date, const std::string& name)
{
    return "-rw-r--r-- 1 ftp ftp 100 " + date + " " + name + "\r\n";
}

} // namespace

/// What CFtpProc makes of the text of a listing.
class tst_CFtpProcList : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void theLastFieldIsTheName();
    void timesInNames_data();
    void timesInNames();
    void datesOfTheListing_data();
    void datesOfTheListing();
    void dateThatTheLocalClockLeavesOut();
    void boundsOfAnotherZone();
    void eitherListMayBeNull();
    void textsThatAreNoUtf8();
    // --- rainy day flows
    void shortLinesAreSkipped();
    void linesWithoutBounds();
    void lineEnds_data();
    void lineEnds();
    void lineLengths_data();
    void lineLengths();
    void manyLines();
};

void tst_CFtpProcList::theLastFieldIsTheName()
{
    CFtpProc proc;
    proc.setDTBegin(utc(2021, 1, 1, 0, 0));
    proc.setDTEnd(utc(2021, 12, 31, 0, 0));
    const Found found = parsed(proc,
                               "drwxr-xr-x 2 ftp ftp 4096 Mar 04 05:06 20210304\r\n"
                               "-rw-r--r--   1 ftp  ftp   10 Mar 04 05:06   TMW7_20210304_050600.wav\r\n"
                               "-rw-r--r-- 1 ftp ftp 10 Mar 04 05:06 two words_20210304_050600.wav\r\n"
                               "drwx------ 2 ftp ftp 4096 Mar 04 05:06 private\r\n"
                               "lrwxrwxrwx 1 ftp ftp 10 Mar 04 05:06 drwxr_20210304_050600\r\n",
                               CFtpProc::DevRecorder);
    QCOMPARE(found.files, QStringList({"TMW7_20210304_050600.wav", "words_20210304_050600.wav"}));
    // Intended: what has "drwxr" in it is a directory, wherever that stands, and nothing else is one.
    QCOMPARE(found.dirs, QStringList({"20210304", "drwxr_20210304_050600"}));
}

void tst_CFtpProcList::timesInNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("taken");
    QTest::newRow("inside") << "TMW7_20210304_050700.wav" << true;
    QTest::newRow("at the lower bound") << "TMW7_20210304_050607.wav" << true;
    QTest::newRow("below the lower bound") << "TMW7_20210304_050606.wav" << false;
    QTest::newRow("at the upper bound") << "TMW7_20210304_070809.wav" << true;
    QTest::newRow("above the upper bound") << "TMW7_20210304_070810.wav" << false;
    QTest::newRow("a text that goes on") << "TMW7_20210304_050607_2.wav" << true;
    QTest::newRow("goes on behind the upper bound") << "TMW7_20210304_070809_2.wav" << false;
    QTest::newRow("part of a text") << "TMW7_20210304_06.wav" << true;
    QTest::newRow("a text, not a time") << "TMW7_20210304_06xy.wav" << true;
    QTest::newRow("to the first point") << "TMW7_20210304_060000.part.wav" << true;
    QTest::newRow("nothing between") << "TMW7_.wav" << false;
    QTest::newRow("no line below") << "TMW7.wav" << false;
    QTest::newRow("no point") << "TMW7_20210304_060000" << false;
    QTest::newRow("point ahead") << "TMW.7_20210304_060000" << false;
    QTest::newRow("only a line below") << "_" << false;
    QTest::newRow("no prefix") << "_20210304_060000.wav" << true;
    QTest::newRow("another ending") << "TMW7_20210304_060000.log" << true;
}

void tst_CFtpProcList::timesInNames()
{
    QFETCH(const QString, name);
    QFETCH(const bool, taken);
    CFtpProc proc;
    proc.setDTBegin(utc(2021, 3, 4, 5, 6, 7));
    proc.setDTEnd(utc(2021, 3, 4, 7, 8, 9));
    // The date of the listing counts for nothing here.
    const std::string listing = fileLine("Jan 01 1999", name.toStdString());
    for (const auto type : {CFtpProc::DevRecorder, CFtpProc::DevArrayChannel}) {
        const Found found = parsed(proc, listing, type);
        QCOMPARE(found.files, taken ? QStringList(name) : QStringList());
        QCOMPARE(found.dirs, QStringList());
    }
}

void tst_CFtpProcList::datesOfTheListing_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("taken");
    const QString ahead = QStringLiteral("-rw-r--r-- 1 ftp ftp 100 ");
    QTest::newRow("inside") << ahead + "Mar 04 05:07 x" << true;
    QTest::newRow("at the lower bound") << ahead + "Mar 04 05:06 x" << true;
    QTest::newRow("below the lower bound") << ahead + "Mar 04 05:05 x" << false;
    QTest::newRow("at the upper bound") << ahead + "Apr 12 07:08 x" << true;
    QTest::newRow("above the upper bound") << ahead + "Apr 12 07:09 x" << false;
    QTest::newRow("another month") << ahead + "May 04 05:07 x" << false;
    QTest::newRow("another ending, any name") << ahead + "Mar 04 05:07 a.b_c" << true;
    QTest::newRow("name of two words") << ahead + "Mar 04 05:07 two x" << true;
    QTest::newRow("without a group") << "-rw-r--r-- 1 ftp 100 Mar 04 05:07 x" << true;
    // Intended: such dates are none.
    QTest::newRow("day of one digit") << ahead + "Apr 4 05:07 x" << false;
    QTest::newRow("day of one digit, two blanks") << ahead + "Apr  4 05:07 x" << false;
    QTest::newRow("a year") << ahead + "Mar 04 2021 x" << false;
    QTest::newRow("no month") << ahead + "Mrz 04 05:07 x" << false;
    QTest::newRow("no day") << ahead + "Mar 32 05:07 x" << false;
    QTest::newRow("no hour") << ahead + "Mar 04 25:07 x" << false;
    QTest::newRow("day of another month") << ahead + "Mar 0405 05:07 x" << false;
    QTest::newRow("six fields") << "Mar 04 05:07 a b x" << false;
    QTest::newRow("seven fields") << "100 ftp 1 Mar 04 05:07 x" << true;
}

void tst_CFtpProcList::datesOfTheListing()
{
    QFETCH(const QString, line);
    QFETCH(const bool, taken);
    CFtpProc proc;
    proc.setDTBegin(utc(thisYear(), 3, 4, 5, 6));
    proc.setDTEnd(utc(thisYear(), 4, 12, 7, 8));
    const QString name = line.mid(line.lastIndexOf(u' ') + 1);
    for (const auto type : {CFtpProc::DevArray, CFtpProc::DEV_TYPE(3)})
        QCOMPARE(parsed(proc, line.toStdString(), type).files, taken ? QStringList(name) : QStringList());
}

void tst_CFtpProcList::dateThatTheLocalClockLeavesOut()
{
    // The last Sunday of March at 02:30, in the zone that this test runs in.
    QDate sunday(thisYear(), 3, 31);
    sunday = sunday.addDays(-(sunday.dayOfWeek() % 7));
    CFtpProc proc;
    proc.setDTBegin(QDateTime(sunday, QTime(2, 30), Qt::UTC));
    proc.setDTEnd(QDateTime(sunday, QTime(2, 30), Qt::UTC));
    const std::string date = "Mar " + std::to_string(sunday.day()) + " 02:30";
    QCOMPARE(parsed(proc, fileLine(date, "x"), CFtpProc::DevArray).files, QStringList("x"));
}

void tst_CFtpProcList::boundsOfAnotherZone()
{
    CFtpProc proc;
    proc.setDTBegin(QDateTime(QDate(2021, 3, 4), QTime(6, 0), Qt::OffsetFromUTC, 3600));
    proc.setDTEnd(QDateTime(QDate(2021, 3, 4), QTime(7, 0), Qt::OffsetFromUTC, 3600));
    const Found found = parsed(proc,
                               fileLine("Mar 04 05:06", "A_20210304_045959.wav") +
                                   fileLine("Mar 04 05:06", "B_20210304_050000.wav") +
                                   fileLine("Mar 04 05:06", "C_20210304_060000.wav") +
                                   fileLine("Mar 04 05:06", "D_20210304_060001.wav"),
                               CFtpProc::DevRecorder);
    QCOMPARE(found.files, QStringList({"B_20210304_050000.wav", "C_20210304_060000.wav"}));
}

void tst_CFtpProcList::eitherListMayBeNull()
{
    CFtpProc proc;
    proc.setDTBegin(utc(2021, 1, 1, 0, 0));
    proc.setDTEnd(utc(2021, 12, 31, 0, 0));
    const std::string listing =
        "drwxr-xr-x 2 a b 1 Mar 04 05:06 d\r\n" + fileLine("Mar 04 05:06", "A_20210304_050607.wav");
    QStringList names{QStringLiteral("before")};
    proc.parseList(listing, &names, nullptr, CFtpProc::DevRecorder);
    proc.parseList(listing, nullptr, &names, CFtpProc::DevRecorder);
    proc.parseList(listing, nullptr, nullptr, CFtpProc::DevRecorder);
    QCOMPARE(names, QStringList({"before", "A_20210304_050607.wav", "d"}));
}

void tst_CFtpProcList::textsThatAreNoUtf8()
{
    const CFtpProc proc;
    const Found found = parsed(proc,
                               "drwxr-xr-x 2 a b 1 Mar 04 05:06 gr\xC3\xBC\xC3\x9F"
                               "e\n"
                               "drwxr-xr-x 2 a b 1 Mar 04 05:06 gr\xFC\xDF"
                               "e\n",
                               CFtpProc::DevRecorder);
    QCOMPARE(found.dirs, QStringList({u"gr\u00FC\u00DFe"_qs, u"gr\u00FC\u00DFe"_qs}));
}

void tst_CFtpProcList::shortLinesAreSkipped()
{
    const CFtpProc proc;
    const Found found = parsed(proc,
                               "total 5\r\n"
                               "\r\n"
                               "\n"
                               "   \r\n"
                               "drwxr-xr-x 1 2 3 five\r\n"
                               "drwxr-xr-x 1 2 3 4 six\r\n",
                               CFtpProc::DevArray);
    QCOMPARE(found.dirs, QStringList("six"));
    QCOMPARE(found.files, QStringList());
}

void tst_CFtpProcList::linesWithoutBounds()
{
    const std::string month =
        QLocale::c().toString(QDateTime::currentDateTimeUtc(), QStringLiteral("MMM dd hh:mm")).toStdString();
    const std::string listing = fileLine(month, "A_20210304_050607.wav");
    CFtpProc neither;
    CFtpProc lower;
    lower.setDTBegin(utc(2000, 1, 1, 0, 0));
    CFtpProc upper;
    upper.setDTEnd(utc(2100, 1, 1, 0, 0));
    for (const CFtpProc* proc : {&neither, &lower}) {
        QCOMPARE(parsed(*proc, listing, CFtpProc::DevRecorder).files, QStringList());
        QCOMPARE(parsed(*proc, listing, CFtpProc::DevArray).files, QStringList());
    }
    QCOMPARE(parsed(upper, listing, CFtpProc::DevArray).files, QStringList());
}

void tst_CFtpProcList::lineEnds_data()
{
    QTest::addColumn<QByteArray>("end");
    QTest::addColumn<QString>("name");
    QTest::newRow("CR LF") << QByteArray("\r\n") << "d";
    QTest::newRow("LF") << QByteArray("\n") << "d";
    QTest::newRow("none") << QByteArray() << "d";
    QTest::newRow("CR") << QByteArray("\r") << "d";
    QTest::newRow("one CR alone is removed") << QByteArray("\r\r\n") << "d\r";
    QTest::newRow("blanks") << QByteArray("  \r\n") << "d";
    QTest::newRow("a tab is no blank") << QByteArray("\tx\r\n") << "d\tx";
    QTest::newRow("NUL") << QByteArray("\0\r\n", 3) << QString::fromLatin1("d\0", 2);
}

void tst_CFtpProcList::lineEnds()
{
    QFETCH(const QByteArray, end);
    QFETCH(const QString, name);
    const CFtpProc proc;
    const std::string listing = "drwxr-xr-x 2 a b 1 Mar 04 05:06 d" + end.toStdString();
    QCOMPARE(parsed(proc, listing, CFtpProc::DevRecorder).dirs, QStringList(name));
}

void tst_CFtpProcList::lineLengths_data()
{
    QTest::addColumn<qsizetype>("length");
    QTest::addColumn<bool>("taken");
    QTest::newRow("limit") << CFtpProc::kMaxLineBytes << true;
    QTest::newRow("limit + 1") << CFtpProc::kMaxLineBytes + 1 << false;
    QTest::newRow("a megabyte") << qsizetype(1 << 20) << false;
}

void tst_CFtpProcList::lineLengths()
{
    QFETCH(const qsizetype, length);
    QFETCH(const bool, taken);
    const CFtpProc proc;
    std::string line = "drwxr-xr-x 2 a b 1 Mar 04 05:06 ";
    line.append(static_cast<size_t>(length) - line.size(), 'n');
    const Found found =
        parsed(proc, line + "\ndrwxr-xr-x 2 a b 1 Mar 04 05:06 next\n", CFtpProc::DevRecorder);
    QCOMPARE(found.dirs.size(), taken ? 2 : 1);
    QCOMPARE(found.dirs.last(), QStringLiteral("next"));
}

void tst_CFtpProcList::manyLines()
{
    CFtpProc proc;
    proc.setDTBegin(utc(2021, 1, 1, 0, 0));
    proc.setDTEnd(utc(2021, 12, 31, 0, 0));
    constexpr int kLines = 200000;
    const std::string line = fileLine("Mar 04 05:06", "A_20210304_050607.wav");
    std::string listing;
    for (int i = 0; i < kLines; ++i)
        listing += line;
    QCOMPARE(parsed(proc, listing, CFtpProc::DevRecorder).files.size(), kLines);
}

QTEST_GUILESS_MAIN(tst_CFtpProcList)
#include "tst_CFtpProcList.moc"
