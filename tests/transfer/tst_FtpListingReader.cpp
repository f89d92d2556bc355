#include "NvxQtCommon/transfer/FtpListingReader.h"
#include "tests/support/NvxTestCase.h"

namespace {

QDateTime utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::UTC);
}

QByteArray line(const QByteArray& name, char type = '-')
{
    return type + QByteArray("rw-r--r-- 1 ftp ftp 42 Mar 04 2021 ") + name + "\r\n";
}

QStringList namesOf(const QList<QUrlInfo>& entries)
{
    QStringList names;
    for (const QUrlInfo& info : entries)
        names << info.name();
    return names;
}

QStringList namesIn(FtpListingReader& reader, const QByteArray& bytes)
{
    reader.write(bytes);
    return namesOf(reader.takeBatch());
}

} // namespace

class tst_FtpListingReader : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void keepsRecordingsAndDirectories();
    void rangeHoldsBothEnds_data();
    void rangeHoldsBothEnds();
    void batchIsWhatCameSince();
    void bytesInPieces();
    void namesInBothEncodings();
    // --- rainy day flows
    void nameOverrulesTheServersDate();
    void undatedNameIsJudgedByTheServersDate();
    void entryWithoutAnyDateIsInNoRange();
    void missingDirectory_data();
    void missingDirectory();
    void linesThatAreNone();
    void longLineIsLeftOut();
    void manyLines();
    void everyByteInAName();
};

void tst_FtpListingReader::keepsRecordingsAndDirectories()
{
    const QByteArray listing =
        line("a.wav") + line("b.WAV") + line("c.Txt") + line("d.flac") + line("wav") + line("e.wav.part") +
        line("Data", 'd') + line("f.zip", 'd') + line("g.wav", 'l') + line("h", 'l') +
        "03-04-21  05:06AM 5 i.wav\r\n03-04-21  05:06AM <DIR> Old\r\n03-04-21  05:06AM 5 j.exe\r\n";
    const QStringList kept = {"a.wav", "b.WAV", "c.Txt", "Data", "f.zip", "g.wav", "i.wav", "Old"};
    FtpListingReader reader;
    QCOMPARE(namesIn(reader, listing), kept);
    reader.setTimeRange(utc(2030, 1, 1), utc(2031, 1, 1), true);
    QCOMPARE(namesIn(reader, listing), kept);
    reader.setTimeRange(utc(2021, 1, 1), utc(2022, 1, 1), false);
    QCOMPARE(namesIn(reader, listing), kept);
    reader.setTimeRange(utc(2030, 1, 1), utc(2031, 1, 1), false);
    QCOMPARE(namesIn(reader, listing), QStringList());
}

void tst_FtpListingReader::rangeHoldsBothEnds_data()
{
    QTest::addColumn<QDateTime>("start");
    QTest::addColumn<QDateTime>("end");
    QTest::addColumn<bool>("isIn");
    const QDateTime time = utc(2020, 2, 29, 12, 34, 56);
    QTest::newRow("inside") << time.addDays(-1) << time.addDays(1) << true;
    QTest::newRow("at the start") << time << time.addDays(1) << true;
    QTest::newRow("at the end") << time.addDays(-1) << time << true;
    QTest::newRow("both") << time << time << true;
    QTest::newRow("right before") << time.addSecs(1) << time.addDays(1) << false;
    QTest::newRow("right behind") << time.addDays(-1) << time.addSecs(-1) << false;
    QTest::newRow("turned round") << time.addDays(1) << time.addDays(-1) << false;
    QTest::newRow("in another zone") << time.toOffsetFromUtc(7200) << time.toOffsetFromUtc(-7200) << true;
}

void tst_FtpListingReader::rangeHoldsBothEnds()
{
    QFETCH(QDateTime, start);
    QFETCH(QDateTime, end);
    QFETCH(bool, isIn);
    FtpListingReader reader;
    reader.setTimeRange(start, end, false);
    QCOMPARE(!namesIn(reader, line("REC1234_20200229_123456.wav")).isEmpty(), isIn);
}

void tst_FtpListingReader::batchIsWhatCameSince()
{
    FtpListingReader reader;
    reader.write(line("a.wav"));
    reader.write(line("b.wav"));
    QCOMPARE(namesOf(reader.takeBatch()), QStringList({"a.wav", "b.wav"}));
    QVERIFY(reader.takeBatch().isEmpty());
    QCOMPARE(namesIn(reader, line("c.wav")), QStringList("c.wav"));
}

void tst_FtpListingReader::bytesInPieces()
{
    const QByteArray listing = line("a.wav") + line("Data", 'd') + "total 5\r\n" + line("b.txt");
    for (qsizetype piece = 1; piece < listing.size(); ++piece) {
        FtpListingReader reader;
        for (qsizetype at = 0; at < listing.size(); at += piece)
            reader.write(QByteArrayView(listing).sliced(at, qMin(piece, listing.size() - at)));
        QCOMPARE(namesOf(reader.takeBatch()), QStringList({"a.wav", "Data", "b.txt"}));
    }
}

void tst_FtpListingReader::namesInBothEncodings()
{
    FtpListingReader reader;
    QCOMPARE(namesIn(reader, line("m\xc3\xa9r.wav") + line("m\xe9r.wav")),
             QStringList({QStringLiteral("m\u00e9r.wav"), QStringLiteral("m\u00e9r.wav")}));
}

void tst_FtpListingReader::nameOverrulesTheServersDate()
{
    FtpListingReader reader;
    reader.setTimeRange(utc(2021, 3, 1), utc(2021, 3, 31), false);
    QCOMPARE(namesIn(reader, line("REC1234_20200229_123456.wav") + line("notes.txt")),
             QStringList("notes.txt"));
}

void tst_FtpListingReader::undatedNameIsJudgedByTheServersDate()
{
    FtpListingReader reader;
    reader.setTimeRange(utc(2021, 3, 4), utc(2021, 3, 4), false);
    QCOMPARE(namesIn(reader, line("notes.txt") + line("REC1234_20211399_123456.wav")),
             QStringList({"notes.txt", "REC1234_20211399_123456.wav"}));
}

void tst_FtpListingReader::entryWithoutAnyDateIsInNoRange()
{
    FtpListingReader reader;
    reader.setTimeRange(QDateTime(), utc(2100, 1, 1), false);
    const QByteArray undated = "-rw-r--r-- 1 ftp ftp 42 x y z a.wav\r\n";
    QCOMPARE(namesIn(reader, undated), QStringList());
    reader.setTimeRange(QDateTime(), QDateTime(), true);
    QCOMPARE(namesIn(reader, undated), QStringList("a.wav"));
}

void tst_FtpListingReader::missingDirectory_data()
{
    QTest::addColumn<QByteArray>("listing");
    QTest::addColumn<QString>("text");
    QTest::newRow("line") << QByteArray("ls: Data: No such file or directory\r\n")
                          << "ls: Data: No such file or directory";
    QTest::newRow("among others") << line("a.wav") + "No such file or directory\r\n" + line("b.wav")
                                  << "No such file or directory";
    QTest::newRow("LF alone") << QByteArray("ls: Data: No such file or directory\n") << "";
    QTest::newRow("more behind") << QByteArray("No such file or directory!\r\n") << "";
    QTest::newRow("a file of that name") << line("No such file or directory") << "";
    QTest::newRow("unfinished") << QByteArray("No such file or directory") << "";
}

void tst_FtpListingReader::missingDirectory()
{
    QFETCH(QByteArray, listing);
    QFETCH(QString, text);
    FtpListingReader reader;
    reader.write(listing);
    QCOMPARE(reader.errorText(), text);
    reader.clear();
    QCOMPARE(reader.errorText(), QString());
    QVERIFY(reader.takeBatch().isEmpty());
}

void tst_FtpListingReader::linesThatAreNone()
{
    FtpListingReader reader;
    QCOMPARE(namesIn(reader, "\r\n\n\r\ntotal 5\r\n" + QByteArray(100, '\0') + "\n" + line("a.wav") +
                                 "-rw-r--r-- 1 ftp ft"),
             QStringList("a.wav"));
    // The line goes on where it was cut, and a last one without an end never is one.
    QCOMPARE(namesIn(reader, "p 42 Mar 04 2021 b.wav\r\n-rw-r--r-- 1 ftp ftp 42 Mar 04 2021 c.wav"),
             QStringList("b.wav"));
    QCOMPARE(namesIn(reader, {}), QStringList());
}

void tst_FtpListingReader::longLineIsLeftOut()
{
    const QByteArray frame = line("");
    const QByteArray longest(FtpListingReader::kMaxLine - frame.size() - 4, 'x');
    FtpListingReader reader;
    QCOMPARE(namesIn(reader, line(longest + ".wav") + line("a.wav")).size(), 2);
    QCOMPARE(namesIn(reader, line(longest + "x.wav") + line("a.wav")), QStringList("a.wav"));
    for (int i = 0; i < 1000; ++i)
        reader.write(QByteArray(100000, 'y'));
    QCOMPARE(namesIn(reader, "\n" + line("a.wav")), QStringList("a.wav"));
}

void tst_FtpListingReader::manyLines()
{
    constexpr int kLines = 100000;
    constexpr int kBatch = 1000;
    FtpListingReader reader;
    QByteArray piece;
    for (int i = 0; i < kBatch; ++i)
        piece += line("REC1234_20200229_123456.wav");
    qsizetype count = 0;
    for (int i = 0; i < kLines / kBatch; ++i) {
        reader.write(piece);
        count += reader.takeBatch().size();
    }
    QCOMPARE(count, qsizetype(kLines));
}

void tst_FtpListingReader::everyByteInAName()
{
    FtpListingReader reader;
    for (int byte = 0; byte < 256; ++byte) {
        if (byte == '\n')
            continue;
        const QStringList names = namesIn(reader, line(QByteArray("a") + char(byte) + "b.wav"));
        QCOMPARE(names.size(), 1);
        QCOMPARE(names.first(), QStringLiteral("a") + QChar(byte) + QStringLiteral("b.wav"));
    }
}

QTEST_APPLESS_MAIN(tst_FtpListingReader)
#include "tst_FtpListingReader.moc"
