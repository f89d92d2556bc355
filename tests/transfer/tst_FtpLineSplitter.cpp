#include "NvxQtCommon/transfer/FtpLineSplitter.h"
#include "tests/support/NvxTestCase.h"

namespace {

constexpr qsizetype kMax = 8;

/// The lines of `bytes`, offered in pieces of `piece` bytes; "!" for one that is too long.
QList<QByteArray> linesOf(const QByteArray& bytes, qsizetype piece)
{
    FtpLineSplitter splitter(kMax);
    QList<QByteArray> lines;
    for (qsizetype at = 0; at < bytes.size(); at += piece) {
        QByteArrayView input = QByteArrayView(bytes).sliced(at, qMin(piece, bytes.size() - at));
        while (const auto line = splitter.next(input))
            lines << (line->isTooLong ? QByteArray("!") : line->bytes.toByteArray());
        if (!input.isEmpty())
            return {"input is left"};
    }
    return lines;
}

} // namespace

class tst_FtpLineSplitter : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void cutsLines_data();
    void cutsLines();
    void readsText_data();
    void readsText();
    // --- rainy day flows
    void clearForgetsTheBeginning();
};

void tst_FtpLineSplitter::cutsLines_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QList<QByteArray>>("lines");
    using Lines = QList<QByteArray>;
    QTest::newRow("none") << QByteArray("abc") << Lines();
    QTest::newRow("two") << QByteArray("ab\r\nc\n") << Lines{"ab\r\n", "c\n"};
    QTest::newRow("unfinished") << QByteArray("ab\r\nc") << Lines{"ab\r\n"};
    QTest::newRow("empty lines") << QByteArray("\n\r\n\n") << Lines{"\n", "\r\n", "\n"};
    QTest::newRow("NUL inside") << QByteArray("a\0b\n", 4) << Lines{QByteArray("a\0b\n", 4)};
    QTest::newRow("lone CR") << QByteArray("a\rb\r\n") << Lines{"a\rb\r\n"};
    QTest::newRow("at the limit") << QByteArray("1234567\nx\n") << Lines{"1234567\n", "x\n"};
    QTest::newRow("over the limit") << QByteArray("12345678\nx\n") << Lines{"!", "x\n"};
    QTest::newRow("far over the limit") << QByteArray(100, 'y') + "\nx\n" + QByteArray(20, 'z') + "\nx\n"
                                        << Lines{"!", "x\n", "!", "x\n"};
}

void tst_FtpLineSplitter::cutsLines()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QList<QByteArray>, lines);
    for (qsizetype piece = 1; piece <= bytes.size(); ++piece)
        QCOMPARE(linesOf(bytes, piece), lines);
}

void tst_FtpLineSplitter::readsText_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("text");
    QTest::newRow("ASCII") << QByteArray("abc\r\n") << "abc";
    QTest::newRow("LF alone") << QByteArray("abc\n") << "abc";
    QTest::newRow("one end only") << QByteArray("abc\r\r\n") << "abc\r";
    QTest::newRow("UTF-8") << QByteArray("m\xc3\xa9r\r\n") << QStringLiteral("m\u00e9r");
    QTest::newRow("Latin-1") << QByteArray("m\xe9r\r\n") << QStringLiteral("m\u00e9r");
    QTest::newRow("cut UTF-8") << QByteArray("m\xc3\r\n") << QStringLiteral("m\u00c3");
    QTest::newRow("over-long UTF-8") << QByteArray("\xc0\xaf\n") << QStringLiteral("\u00c0\u00af");
    QTest::newRow("surrogate as UTF-8")
        << QByteArray("\xed\xa0\x80\n") << QStringLiteral("\u00ed\u00a0\u0080");
    QTest::newRow("nothing") << QByteArray() << "";
}

void tst_FtpLineSplitter::readsText()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, text);
    QCOMPARE(FtpLineSplitter::textOf(line), text);
}

void tst_FtpLineSplitter::clearForgetsTheBeginning()
{
    for (const QByteArray& begin : {QByteArray("abc"), QByteArray(100, 'x')}) {
        FtpLineSplitter splitter(kMax);
        QByteArrayView input(begin);
        QVERIFY(!splitter.next(input));
        splitter.clear();
        input = "d\n";
        const auto line = splitter.next(input);
        QVERIFY(line && !line->isTooLong);
        QCOMPARE(line->bytes.toByteArray(), QByteArray("d\n"));
    }
}

QTEST_APPLESS_MAIN(tst_FtpLineSplitter)
#include "tst_FtpLineSplitter.moc"
