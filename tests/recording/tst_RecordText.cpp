#include "NvxQtCommon/contract/recording/RecordText.h"
#include "tests/support/NvxTestCase.h"

#include <clocale>
#include <limits>
#include <sstream>

class tst_RecordText : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void numbersReadBackAsTheyWere()
    {
        for (const double value : {0.0, -0.5, 1.0 / 3.0, 6.02e23, 5e-324, 123456789.125}) {
            std::string text;
            RecordText::appendNumber(text, value);
            QCOMPARE(RecordText::number<double>(text), std::optional<double>(value));
        }
        std::string text;
        RecordText::appendNumber(text, std::numeric_limits<unsigned long long>::max());
        QCOMPARE(text, std::string("18446744073709551615"));
        RecordText::appendField(text, 0.1F);
        QCOMPARE(text, std::string("18446744073709551615\t0.1"));
    }

    void numbersDontDependOnTheLocale()
    {
        // Where the machine has a locale with a decimal comma.
        const std::string before = std::setlocale(LC_NUMERIC, nullptr);
        std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
        std::string text;
        RecordText::appendNumber(text, 1.5);
        const auto read = RecordText::number<double>("1.5");
        std::setlocale(LC_NUMERIC, before.c_str());
        QCOMPARE(text, std::string("1.5"));
        QCOMPARE(read, std::optional<double>(1.5));
    }

    void timesReadBackAsTheyWere_data()
    {
        QTest::addColumn<qlonglong>("time");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("epoch") << 0LL << QByteArray("1970-01-01 00:00:00");
        QTest::newRow("leap day") << 1709210096LL << QByteArray("2024-02-29 12:34:56");
        QTest::newRow("last second") << 253402300799LL << QByteArray("9999-12-31 23:59:59");
    }
    void timesReadBackAsTheyWere()
    {
        QFETCH(qlonglong, time);
        QFETCH(QByteArray, text);
        std::string written;
        RecordText::appendTime(written, static_cast<unsigned long long>(time));
        QCOMPARE(QByteArray::fromStdString(written), text);
        QCOMPARE(RecordText::dateTime(written), std::optional<long long>(time));
    }

    void fieldsAreTakenOneByOne()
    {
        std::string_view rest = "a\t\tb";
        QCOMPARE(RecordText::takeField(rest), std::string_view("a"));
        QCOMPARE(RecordText::takeField(rest), std::string_view(""));
        QCOMPARE(RecordText::takeField(rest), std::string_view("b"));
        QCOMPARE(RecordText::takeField(rest), std::string_view(""));
    }

    void linesComeOneByOne()
    {
        const std::string longer(10000, 'x');
        const std::string piece(4095, 'y');
        std::istringstream in("one\n\n" + longer + "\n" + piece + "\nlast");
        std::string line;
        QStringList lines;
        while (RecordText::readLine(in, line))
            lines.append(QString::fromStdString(line));
        QCOMPARE(lines, (QStringList{"one", "", QString::fromStdString(longer), QString::fromStdString(piece),
                                     "last"}));
        QVERIFY(in.eof());
    }

    void positionsFollowTheLines()
    {
        std::istringstream in("one\ntwo\n");
        std::string line;
        QVERIFY(RecordText::readLine(in, line));
        QCOMPARE(static_cast<long long>(in.tellg()), 4LL);
        QVERIFY(RecordText::readLine(in, line));
        QCOMPARE(static_cast<long long>(in.tellg()), 8LL);
        QVERIFY(!RecordText::readLine(in, line));
    }

    void titleLine_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("isTitle");
        QTest::newRow("as written") << QByteArray("Time\tComment") << true;
        QTest::newRow("upper case") << QByteArray("TIME\t") << true;
        QTest::newRow("lower case") << QByteArray("time\tx") << true;
        QTest::newRow("without a tab") << QByteArray("Time") << false;
        QTest::newRow("longer") << QByteArray("Times\tx") << false;
        QTest::newRow("other") << QByteArray("Tome\tx") << false;
        QTest::newRow("empty") << QByteArray() << false;
    }
    void titleLine()
    {
        QFETCH(QByteArray, line);
        QFETCH(bool, isTitle);
        QCOMPARE(RecordText::isTitleLine(line.toStdString()), isTitle);
    }

    // --- rainy day flows
    void freeTextsStayInTheirField()
    {
        std::string text = "\t";
        RecordText::appendText(text, "a\tb\nc\r\nd");
        QCOMPARE(text, std::string("\ta b c  d"));
        text.clear();
        RecordText::appendText(text, std::string_view("a\0b\x1F"
                                                      "c\x7F",
                                                      6));
        QCOMPARE(text, std::string("a b c "));
    }

    void whatIsNoUtf8IsReplaced()
    {
        std::string text;
        RecordText::appendText(text, "\xC3\xA4 \xFF \xC3");
        QCOMPARE(text, std::string("\xC3\xA4 \xEF\xBF\xBD \xEF\xBF\xBD"));
    }

    void whatIsNoNumber_data()
    {
        QTest::addColumn<QByteArray>("text");
        for (const char* text : {"", " 1", "1 ", "1x", "nan", "inf", "-inf", "1e999", "0x10", "--1"})
            QTest::newRow(text) << QByteArray(text);
    }
    void whatIsNoNumber()
    {
        QFETCH(QByteArray, text);
        QVERIFY(!RecordText::number<double>(text.toStdString()));
        QVERIFY(!RecordText::number<uint8_t>(text.toStdString()));
    }

    void numbersOutsideTheirType()
    {
        QVERIFY(!RecordText::number<uint8_t>("256"));
        QVERIFY(!RecordText::number<uint8_t>("-1"));
        QVERIFY(!RecordText::number<int16_t>("32768"));
        QVERIFY(!RecordText::number<unsigned long long>("18446744073709551616"));
    }

    void whatIsNoTime_data()
    {
        QTest::addColumn<QByteArray>("text");
        for (const char* text :
             {"", "2024-02-30 00:00:00", "2023-02-29 00:00:00", "1969-12-31 23:59:59", "2024-01-01T00:00:00",
              "2024-01-01 24:00:00", "2024-01-01 00:60:00", "2024-01-01 00:00:60", "2024-1-1 00:00:00",
              "2024-01-01 00:00:00 ", "2024-01-01 -1:00:00", "20240101 00:00:0000", "2024-13-01 00:00:00"})
            QTest::newRow(text) << QByteArray(text);
    }
    void whatIsNoTime()
    {
        QFETCH(QByteArray, text);
        QVERIFY(!RecordText::dateTime(text.toStdString()));
    }

    void endlessLineIsAFailedRead()
    {
        std::istringstream in(std::string(RecordText::kMaxLineLength + 5000, 'x') + "\nnext\n");
        std::string line;
        QVERIFY(!RecordText::readLine(in, line));
        QVERIFY(in.fail());
        QVERIFY(line.size() < RecordText::kMaxLineLength + 5000);
        QVERIFY(!RecordText::readLine(in, line));
    }

    void streamThatFailedBefore()
    {
        std::istringstream in("one\n");
        in.setstate(std::ios::failbit);
        std::string line = "old";
        QVERIFY(!RecordText::readLine(in, line));
        QVERIFY(line.empty());
    }
};

QTEST_GUILESS_MAIN(tst_RecordText)
#include "tst_RecordText.moc"
