#include "NvxQtCommon/contract/message/ZcrCgiReply.h"
#include "tests/support/NvxTestCase.h"

#include <QStringList>

namespace {

using Field = int32_t ZcrCgiReply::*;

ZcrCgiReply parsed(const QByteArray& text)
{
    return ZcrCgiReply::parse({text.constData(), static_cast<size_t>(text.size())});
}

/// A reply with all that is known, and whose numbers have several digits.
const QByteArray kReply =
    R"({"serialNumber":60012,"currentTime":1700000000},"configuration":{"a":0,"wavSampRate":96000,"startTime":1600000000,)"
    R"("wavBitDepth":16,"wavGain":12,"wavEndian":1,"wavLogMode":10,"wavLogLen":61,"fftSampRate":48000,"fftRef":-118,)"
    R"("fftPts":2048,"fftSampsBtwn":1000,"fftProcType":14,"fftAccum":20,"fftWeight":13,"fftLogMode":11,)"
    R"("fftLogLen":62,"tmiDevType":16,"x":{"devSerial":123})";

struct NamedField
{
    const char* key;
    Field field;
};

const NamedField kFields[] = {
    {"wavSampRate", &ZcrCgiReply::wavRate},     {"startTime", &ZcrCgiReply::startTime},
    {"wavBitDepth", &ZcrCgiReply::wavBitDepth}, {"wavGain", &ZcrCgiReply::wavGain},
    {"wavLogMode", &ZcrCgiReply::wavLogMode},   {"wavLogLen", &ZcrCgiReply::wavLogLen},
    {"fftSampRate", &ZcrCgiReply::fftSampRate}, {"fftRef", &ZcrCgiReply::fftRef},
    {"fftPts", &ZcrCgiReply::fftPts},           {"fftSampsBtwn", &ZcrCgiReply::fftSampsBtwn},
    {"fftProcType", &ZcrCgiReply::fftProcType}, {"fftAccum", &ZcrCgiReply::fftAccum},
    {"fftWeight", &ZcrCgiReply::fftWeight},     {"fftLogMode", &ZcrCgiReply::fftLogMode},
    {"fftLogLen", &ZcrCgiReply::fftLogLen},     {"serialNumber", &ZcrCgiReply::serial},
    {"currentTime", &ZcrCgiReply::currentTime},
};

} // namespace

Q_DECLARE_METATYPE(Field)

/// Replies of the CGI scripts, piece by piece.
class tst_ZcrCgiReply : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void beginsWithItsDefaults();
    void readsEachKey_data();
    void readsEachKey();
    void readsAll();
    void settingsOfAReply();
    void settingsWithoutAnything();
    // --- rainy day flows
    void numberOfAPiece_data();
    void numberOfAPiece();
    void orderOfTheKeys();
    void bracesBehindNumbers();
    void numbersAsQtReadsThem_data();
    void numbersAsQtReadsThem();
    void firstKeyDecides_data();
    void firstKeyDecides();
    void firstChannelCounts_data();
    void firstChannelCounts();
    void everyTruncation();
    void manyPieces();
    void anyBytes();
};

void tst_ZcrCgiReply::beginsWithItsDefaults()
{
    for (const ZcrCgiReply& reply : {ZcrCgiReply(), parsed({}), parsed(","), parsed(",,,,")}) {
        QCOMPARE(reply.serial, 0);
        QCOMPARE(reply.currentTime, 0);
        QCOMPARE(reply.wavRate, 0);
        QCOMPARE(reply.startTime, 0);
        QCOMPARE(reply.wavBitDepth, 24);
        QCOMPARE(reply.wavGain, 0);
        QCOMPARE(reply.wavLogMode, 0);
        QCOMPARE(reply.wavLogLen, 0);
        QCOMPARE(reply.fftSampRate, 0);
        QCOMPARE(reply.fftRef, -120);
        QCOMPARE(reply.fftPts, 1024);
        QCOMPARE(reply.fftSampsBtwn, 512);
        QCOMPARE(reply.fftProcType, 4);
        QCOMPARE(reply.fftAccum, 0);
        QCOMPARE(reply.fftWeight, 1);
        QCOMPARE(reply.fftLogMode, 0);
        QCOMPARE(reply.fftLogLen, 0);
        QVERIFY(!reply.firstDevSerial);
        QVERIFY(!reply.rateSeen);
    }
}

void tst_ZcrCgiReply::readsEachKey_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<Field>("field");
    for (const auto& [key, field] : kFields)
        QTest::newRow(key) << QByteArray(key) << field;
}

void tst_ZcrCgiReply::readsEachKey()
{
    QFETCH(QByteArray, key);
    QFETCH(Field, field);
    const ZcrCgiReply reply = parsed("\"a\":1,\"" + key + "\":7431,\"b\":2");
    QCOMPARE(reply.*field, 7431);
    QCOMPARE(reply.rateSeen, key == "wavSampRate");
    QVERIFY(!reply.firstDevSerial);
    // No other field took it.
    for (const auto& [otherKey, other] : kFields) {
        if (other != field)
            QCOMPARE(reply.*other, ZcrCgiReply().*other);
    }
    // A key of other letters is another one, and the last value counts.
    QCOMPARE(parsed('"' + key.toUpper() + "\":7").*field, ZcrCgiReply().*field);
    QCOMPARE(parsed('"' + key + "\":7,\"" + key + "\":8").*field, 8);
    // A number that doesn't convert is 0, not the default.
    QCOMPARE(parsed('"' + key + "\":x").*field, 0);
}

void tst_ZcrCgiReply::readsAll()
{
    const ZcrCgiReply reply = parsed(kReply);
    QList<int32_t> values;
    for (const auto& [key, field] : kFields)
        values << reply.*field;
    QCOMPARE(values, (QList<int32_t>{96000, 1600000000, 16, 12, 10, 61, 48000, -118, 2048, 1000, 14, 20, 13,
                                     11, 62, 60012, 1700000000}));
    QVERIFY(reply.rateSeen);
    // Two colons and a brace stand in its piece.
    QCOMPARE(reply.firstDevSerial, std::optional<int32_t>(0));
}

void tst_ZcrCgiReply::settingsOfAReply()
{
    const HydJobSettings settings = parsed(kReply).settings();
    QCOMPARE(settings.map().size(), size_t(15));
    QCOMPARE(settings.wavLogStartTime(), 1600000000);
    QCOMPARE(settings.wavRate(), SampRate{96000});
    QCOMPARE(settings.wavBitDepth(), HydWavBitDepth{16});
    QCOMPARE(settings.wavGain(), 12U);
    QCOMPARE(settings.wavLogMode(), HydLogMode{10});
    QCOMPARE(settings.wavLogLen(), 61U);
    QCOMPARE(settings.fftRate(), SampRate{48000});
    QCOMPARE(settings.fftRef(), -118);
    QCOMPARE(settings.fftPoints(), 2048U);
    QCOMPARE(settings.fftPointsBtw(), 1000U);
    QCOMPARE(settings.fftProcType(), HydFftProc{14});
    QCOMPARE(settings.fftAccum(), 20U);
    QCOMPARE(settings.fftWeight(), 13U);
    QCOMPARE(settings.fftLogMode(), HydLogMode{11});
    QCOMPARE(settings.fftLogLen(), 62U);
}

void tst_ZcrCgiReply::settingsWithoutAnything()
{
    const HydJobSettings settings = ZcrCgiReply().settings();
    QCOMPARE(settings.map().size(), size_t(15));
    QCOMPARE(settings.wavBitDepth(), HydWavBitDepth{24});
    QCOMPARE(settings.fftRef(), -120);
    QCOMPARE(settings.fftPoints(), 1024U);
    QCOMPARE(settings.fftPointsBtw(), 512U);
    QCOMPARE(settings.fftProcType(), HydFftProc{4});
    QCOMPARE(settings.fftWeight(), 1U);
}

void tst_ZcrCgiReply::numberOfAPiece_data()
{
    QTest::addColumn<QByteArray>("piece");
    QTest::addColumn<QByteArray>("prefix");
    QTest::addColumn<char>("terminator");
    QTest::addColumn<int>("number");
    const char none = '\0';
    QTest::newRow("plain") << QByteArray("\"a\":12") << QByteArray() << none << 12;
    QTest::newRow("quotes go") << QByteArray("\"a\":\"12\"") << QByteArray() << none << 12;
    QTest::newRow("quotes in the number go") << QByteArray("a:1\"2") << QByteArray() << none << 12;
    QTest::newRow("no colon") << QByteArray("12") << QByteArray() << none << 12;
    QTest::newRow("first colon of two") << QByteArray("a:b:12") << QByteArray() << none << 0;
    QTest::newRow("brace behind") << QByteArray("a:12}") << QByteArray() << none << 0;
    QTest::newRow("braces taken out") << QByteArray("{a:1}2}") << QByteArray() << '}' << 12;
    QTest::newRow("other prefix") << QByteArray("a:12}") << QByteArray("devs:[{") << '}' << 0;
    QTest::newRow("prefix with terminator")
        << QByteArray("\"devs\":[{x},\"a\":12") << QByteArray("devs:[{") << '}' << 12;
    QTest::newRow("prefix without terminator")
        << QByteArray("\"devs\":[{\"devSerial\":12") << QByteArray("devs:[{") << '}' << 0;
    QTest::newRow("no prefix there") << QByteArray("{\"devSerial\":13") << QByteArray("devs:[{") << '}' << 13;
    QTest::newRow("up to the first terminator")
        << QByteArray("devs:[{}5}6") << QByteArray("devs:[{") << '}' << 0;
    QTest::newRow("what is behind it alone") << QByteArray("devs:[{}5") << QByteArray("devs:[{") << '}' << 5;
    QTest::newRow("blanks around") << QByteArray("a: \t\r\n12 ") << QByteArray() << none << 12;
    QTest::newRow("blank within") << QByteArray("a:1 2") << QByteArray() << none << 0;
    QTest::newRow("blank behind the sign") << QByteArray("a:- 12") << QByteArray() << none << 0;
    QTest::newRow("plus") << QByteArray("a:+12") << QByteArray() << none << 12;
    QTest::newRow("plus and minus") << QByteArray("a:+-12") << QByteArray() << none << 0;
    QTest::newRow("two plus") << QByteArray("a:++12") << QByteArray() << none << 0;
    QTest::newRow("minus") << QByteArray("a:-12") << QByteArray() << none << -12;
    QTest::newRow("sign alone") << QByteArray("a:-") << QByteArray() << none << 0;
    QTest::newRow("fraction") << QByteArray("a:1.5") << QByteArray() << none << 0;
    QTest::newRow("hexadecimal") << QByteArray("a:0x12") << QByteArray() << none << 0;
    QTest::newRow("leading zeros") << QByteArray("a:0012") << QByteArray() << none << 12;
    QTest::newRow("largest") << QByteArray("a:2147483647") << QByteArray() << none << 2147483647;
    QTest::newRow("too large") << QByteArray("a:2147483648") << QByteArray() << none << 0;
    QTest::newRow("smallest") << QByteArray("a:-2147483648") << QByteArray() << none << -2147483647 - 1;
    QTest::newRow("too small") << QByteArray("a:-2147483649") << QByteArray() << none << 0;
    QTest::newRow("very large") << "a:" + QByteArray(10000, '9') << QByteArray() << none << 0;
    QTest::newRow("nothing behind the colon") << QByteArray("a:") << QByteArray() << none << 0;
    QTest::newRow("nothing") << QByteArray() << QByteArray() << none << 0;
    QTest::newRow("null") << QByteArray("a:null") << QByteArray() << none << 0;
    QTest::newRow("NUL byte") << QByteArray("a:1\0002", 5) << QByteArray() << none << 0;
}

void tst_ZcrCgiReply::numberOfAPiece()
{
    QFETCH(QByteArray, piece);
    QFETCH(QByteArray, prefix);
    QFETCH(char, terminator);
    QFETCH(int, number);
    QCOMPARE(ZcrCgiReply::extractField(piece.toStdString(), prefix.toStdString(), terminator), number);
}

void tst_ZcrCgiReply::firstKeyDecides_data()
{
    QTest::addColumn<QByteArray>("piece");
    QTest::addColumn<QByteArray>("field");
    // A piece with several keys: the order of the keys decides, not that of the piece.
    QTest::newRow("serial before time")
        << QByteArray("currentTime serialNumber:5") << QByteArray("serialNumber");
    QTest::newRow("time before channel")
        << QByteArray("devSerial currentTime:5") << QByteArray("currentTime");
    QTest::newRow("rate before start") << QByteArray("startTime wavSampRate:5") << QByteArray("wavSampRate");
    QTest::newRow("gain before byte order") << QByteArray("wavEndian wavGain:5") << QByteArray("wavGain");
    QTest::newRow("byte order is dropped") << QByteArray("wavLogMode wavEndian:5") << QByteArray();
    QTest::newRow("part of a longer key") << QByteArray("my_fftPts_2:5") << QByteArray("fftPts");
    for (const char* dropped : {"tmiDevType", "tmiControl", "tmiWavLogMode", "tmiFFTLogMode", "tmiWavLogLen",
                                "tmiFFTLogLen", "stopTime", "isdLoggingEnabled", "wavEndian", "unknown"})
        QTest::newRow(dropped) << QByteArray(dropped) + ":5" << QByteArray();
}

void tst_ZcrCgiReply::orderOfTheKeys()
{
    // Of each two keys in one piece the same one decides, wherever they stand in it.
    const QList<QByteArray> keys{"serialNumber", "currentTime", "devSerial",  "wavSampRate",  "startTime",
                                 "wavBitDepth",  "wavGain",     "wavEndian",  "wavLogMode",   "wavLogLen",
                                 "fftSampRate",  "fftRef",      "fftPts",     "fftSampsBtwn", "fftProcType",
                                 "fftAccum",     "fftWeight",   "fftLogMode", "fftLogLen"};
    for (qsizetype first = 0; first < keys.size(); ++first) {
        for (qsizetype second = first + 1; second < keys.size(); ++second) {
            const QByteArray reversed = keys[second] + ' ' + keys[first] + ":5";
            const ZcrCgiReply alone = parsed(keys[first] + ":5");
            const ZcrCgiReply both = parsed(reversed);
            for (const auto& [key, field] : kFields)
                QVERIFY2(both.*field == alone.*field, reversed + ": " + key);
            QVERIFY2(both.firstDevSerial == alone.firstDevSerial, reversed);
            QVERIFY2(both.rateSeen == alone.rateSeen, reversed);
        }
    }
}

void tst_ZcrCgiReply::bracesBehindNumbers()
{
    // Braces are taken out of the time alone.
    for (const auto& [key, field] : kFields) {
        const ZcrCgiReply reply = parsed(QByteArray(key) + ":7}");
        QVERIFY2(reply.*field == (QByteArray(key) == "currentTime" ? 7 : 0), key);
    }
}

void tst_ZcrCgiReply::numbersAsQtReadsThem_data()
{
    QTest::addColumn<QByteArray>("text");
    for (const char* blank :
         {"\u0085", "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005",
          "\u2006", "\u2007", "\u2008", "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F",
          "\u3000", "\u200B", "\uFEFF", "\u180E", "\x1c",   "\x1f",   "\x0b",   " "}) {
        const QByteArray label = QByteArray(blank).toHex();
        QTest::newRow("ahead of it, " + label) << QByteArray(blank) + "12";
        QTest::newRow("behind it, " + label) << "-12" + QByteArray(blank) + blank;
        QTest::newRow("alone, " + label) << QByteArray(blank);
    }
    for (const char* text : {"\u0661\u0662", "\uFF11", "\u22125",
                             "\xFF"
                             "5",
                             "5\xC2", "1,000", "1e3", "--5", "+ 5"})
        QTest::newRow("as it is, " + QByteArray(text).toHex()) << QByteArray(text);
}

void tst_ZcrCgiReply::numbersAsQtReadsThem()
{
    QFETCH(QByteArray, text);
    QCOMPARE(ZcrCgiReply::extractField(':' + text.toStdString(), {}, 0),
             QString::fromUtf8(':' + text).mid(1).toInt());
}

void tst_ZcrCgiReply::firstKeyDecides()
{
    QFETCH(QByteArray, piece);
    QFETCH(QByteArray, field);
    const ZcrCgiReply reply = parsed(piece);
    for (const auto& [key, other] : kFields)
        QVERIFY2(reply.*other == (field == key ? 5 : ZcrCgiReply().*other), key);
    QVERIFY(!reply.firstDevSerial);
}

void tst_ZcrCgiReply::firstChannelCounts_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("serial");
    QTest::newRow("alone") << QByteArray(R"("devSerial":13)") << 13;
    QTest::newRow("of three") << QByteArray(R"({"devSerial":13,{"devSerial":14,{"devSerial":15)") << 13;
    QTest::newRow("behind the key of the list")
        << QByteArray(R"("devs":[{"devSerial":12,{"devSerial":13)") << 0;
    QTest::newRow("with its brace") << QByteArray(R"({"devSerial":13})") << 0;
    QTest::newRow("without a number") << QByteArray(R"("devSerial")") << 0;
    // What ends with the first brace goes, where the list begins in the same piece, and nothing otherwise.
    QTest::newRow("behind an empty entry of the list") << QByteArray(R"("devs":[{}"devSerial":12)") << 12;
    QTest::newRow("behind an empty entry of another list") << QByteArray(R"("list":[{}"devSerial":12)") << 0;
    QTest::newRow("below 0") << QByteArray(R"("devSerial":-1)") << -1;
}

void tst_ZcrCgiReply::firstChannelCounts()
{
    QFETCH(QByteArray, text);
    QFETCH(int, serial);
    QCOMPARE(parsed(text).firstDevSerial, std::optional<int32_t>(serial));
}

void tst_ZcrCgiReply::everyTruncation()
{
    const ZcrCgiReply whole = parsed(kReply);
    for (qsizetype size = 0; size <= kReply.size(); ++size) {
        const ZcrCgiReply cut = parsed(kReply.left(size));
        for (const auto& [key, field] : kFields) {
            // The default, 0 where the number is missing, or as many of its digits as came.
            const QString value = QString::number(cut.*field);
            QVERIFY2(cut.*field == ZcrCgiReply().*field || cut.*field == 0 ||
                         QString::number(whole.*field).startsWith(value),
                     qPrintable(QStringLiteral("%1 bytes: %2 is %3").arg(size).arg(key, value)));
        }
    }
}

void tst_ZcrCgiReply::manyPieces()
{
    QByteArray text;
    for (int i = 0; i < 100000; ++i)
        text += "\"devSerial\":" + QByteArray::number(i + 1) + ',';
    text += R"("serialNumber":600)";
    const ZcrCgiReply reply = parsed(text);
    QCOMPARE(reply.firstDevSerial, std::optional<int32_t>(1));
    QCOMPARE(reply.serial, 600);
    QByteArray commas(ZcrCgiReply::kMaxSize, ',');
    QCOMPARE(parsed(commas).serial, 0);
    // One piece without end.
    QByteArray quotes(ZcrCgiReply::kMaxSize, '"');
    quotes.replace(0, 15, "serialNumber:77");
    QCOMPARE(parsed(quotes).serial, 77);
}

void tst_ZcrCgiReply::anyBytes()
{
    QByteArray text;
    for (int byte = 0; byte < 256; ++byte)
        text += static_cast<char>(byte);
    QCOMPARE(parsed(text + ",serialNumber:5," + text).serial, 5);
    QCOMPARE(parsed("serialNumber:5\xff").serial, 0);
    QCOMPARE(parsed("\xef\xbb\xbfserialNumber:5").serial, 5);
}

QTEST_GUILESS_MAIN(tst_ZcrCgiReply)
#include "tst_ZcrCgiReply.moc"
