#include "NvxQtCommon/transfer/FtpReplyParser.h"
#include "tests/support/NvxTestCase.h"

namespace {

/// "code text" of each reply of `bytes`, offered in pieces; "broken" last where the parser gave up.
QStringList repliesOf(const QByteArray& bytes, qsizetype piece)
{
    FtpReplyParser parser;
    QStringList replies;
    for (qsizetype at = 0; at < bytes.size(); at += piece) {
        QByteArrayView input = QByteArrayView(bytes).sliced(at, qMin(piece, bytes.size() - at));
        while (const auto reply = parser.next(input))
            replies << QString::number(reply->code) + u' ' + reply->text;
    }
    if (parser.isBroken())
        replies << QStringLiteral("broken");
    return replies;
}

} // namespace

class tst_FtpReplyParser : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void findsReplies_data();
    void findsReplies();
    // --- rainy day flows
    void keepsFourKilobytesOfText();
    void textIsNotCutInsideALetter();
    void lineAtAndOverTheBound();
    void replyThatNeverEnds();
    void junkThatNeverEnds();
    void clearForgetsAll();
};

void tst_FtpReplyParser::findsReplies_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("replies");
    QTest::newRow("one") << QByteArray("220 Ready\r\n") << QStringList{"220 Ready"};
    QTest::newRow("two") << QByteArray("150 Here\r\n226 Done\r\n") << QStringList{"150 Here", "226 Done"};
    QTest::newRow("LF alone") << QByteArray("220 Ready\n") << QStringList{"220 Ready"};
    QTest::newRow("without text") << QByteArray("220\r\n220 \r\n") << QStringList{"220 ", "220 "};
    QTest::newRow("without a blank") << QByteArray("220Ready\r\n") << QStringList{"220 Ready"};
    QTest::newRow("unfinished") << QByteArray("220 Ready") << QStringList();
    QTest::newRow("several lines") << QByteArray("220-Hello\r\n220-there\r\n220 end\r\n")
                                   << QStringList{"220 Hello\nthere\nend"};
    QTest::newRow("bare lines inside") << QByteArray("211-Features\r\n SIZE\r\n\r\nEPSV\r\n211 End\r\n")
                                       << QStringList{"211 Features\n SIZE\n\nEPSV\nEnd"};
    QTest::newRow("other digits inside") << QByteArray("211-A\r\n226 no end\r\n2110 no end\r\n211 End\r\n")
                                         << QStringList{"211 A\n226 no end\n2110 no end\nEnd"};
    QTest::newRow("end without text")
        << QByteArray("211-A\r\n211\r\n226 B\r\n") << QStringList{"211 A", "226 B"};
    QTest::newRow("longer one without end") << QByteArray("211-A\r\nB\r\n") << QStringList();
    QTest::newRow("junk between") << QByteArray("hello\r\n\r\n22 x\r\n 220 x\r\n220 A\r\n-\r\n221 B\r\n")
                                  << QStringList{"220 A", "221 B"};
    QTest::newRow("any code") << QByteArray("000 a\r\n999 b\r\n") << QStringList{"0 a", "999 b"};
    QTest::newRow("UTF-8") << QByteArray("550 m\xc3\xa9r\r\n") << QStringList{QStringLiteral("550 m\u00e9r")};
    QTest::newRow("Latin-1") << QByteArray("550 m\xe9r\r\n") << QStringList{QStringLiteral("550 m\u00e9r")};
    QTest::newRow("NUL") << QByteArray("550 a\0b\r\n", 9) << QStringList{QString::fromLatin1("550 a\0b", 7)};
}

void tst_FtpReplyParser::findsReplies()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, replies);
    for (qsizetype piece = 1; piece <= bytes.size(); ++piece)
        QCOMPARE(repliesOf(bytes, piece), replies);
}

void tst_FtpReplyParser::keepsFourKilobytesOfText()
{
    const QByteArray line = "550 " + QByteArray(17000, 'x') + "\r\n226 Next\r\n";
    const QStringList expected = {"550 " + QString(FtpReplyParser::kMaxText, u'x'), "226 Next"};
    for (const qsizetype piece : {qsizetype(1), qsizetype(1460), line.size()})
        QCOMPARE(repliesOf(line, piece), expected);

    QByteArray lines = "550-A\r\n";
    for (int i = 0; i < 1000; ++i)
        lines += "550-" + QByteArray(20, 'y') + "\r\n";
    const QStringList replies = repliesOf(lines + "550 B\r\n226 Next\r\n", 1460);
    QCOMPARE(replies.size(), 2);
    QCOMPARE(replies.first().size(), 4 + FtpReplyParser::kMaxText);
    QCOMPARE(replies.last(), QStringLiteral("226 Next"));
}

void tst_FtpReplyParser::textIsNotCutInsideALetter()
{
    for (qsizetype ahead = FtpReplyParser::kMaxText - 4; ahead <= FtpReplyParser::kMaxText; ++ahead) {
        const QByteArray line = "550 " + QByteArray(ahead, 'x') + "\xe2\x82\xac\xe2\x82\xac\r\n";
        const QStringList replies = repliesOf(line, line.size());
        QCOMPARE(replies.size(), 1);
        const QString text = replies.first().mid(4);
        QVERIFY(text.startsWith(QString(ahead, u'x')));
        QVERIFY(QStringLiteral("\u20ac\u20ac").startsWith(text.mid(ahead)));
    }
}

void tst_FtpReplyParser::lineAtAndOverTheBound()
{
    const qsizetype text = FtpReplyParser::kMaxLine - 6;
    const QStringList whole = repliesOf("550 " + QByteArray(text, 'x') + "\r\n226 A\r\n", 1000);
    QCOMPARE(whole.size(), 2);
    QCOMPARE(whole.last(), QStringLiteral("226 A"));
    const QByteArray over = "550 " + QByteArray(text + 1, 'x') + "\r\n226 A\r\n";
    for (const qsizetype piece : {qsizetype(1), qsizetype(1000), over.size()})
        QCOMPARE(repliesOf(over, piece), QStringList{"broken"});
}

void tst_FtpReplyParser::replyThatNeverEnds()
{
    FtpReplyParser parser;
    qsizetype taken = 0;
    while (!parser.isBroken() && taken < 2 * FtpReplyParser::kMaxReply) {
        const QByteArray line = "211-more\r\n";
        QByteArrayView input(line);
        QVERIFY(!parser.next(input));
        taken += line.size();
    }
    QVERIFY(parser.isBroken());
    QVERIFY(taken > FtpReplyParser::kMaxReply && taken <= FtpReplyParser::kMaxReply + 10);
    QByteArrayView input("226 A\r\n");
    QVERIFY(!parser.next(input));
}

void tst_FtpReplyParser::junkThatNeverEnds()
{
    QCOMPARE(repliesOf(QByteArray(2 * FtpReplyParser::kMaxReply, '\n'), 65536), QStringList{"broken"});
    // What was passed over ahead of a reply doesn't count for the next one.
    const QByteArray half(FtpReplyParser::kMaxReply / 2, '\n');
    QCOMPARE(repliesOf(half + "226 A\r\n" + half + "226 B\r\n", 65536).size(), 2);
}

void tst_FtpReplyParser::clearForgetsAll()
{
    FtpReplyParser parser;
    QByteArrayView input("211-A\r\n22");
    QVERIFY(!parser.next(input));
    parser.clear();
    input = "220 B\r\n";
    const auto reply = parser.next(input);
    QVERIFY(reply);
    QCOMPARE(reply->code, 220);
    QCOMPARE(reply->text, QStringLiteral("B"));
}

QTEST_APPLESS_MAIN(tst_FtpReplyParser)
#include "tst_FtpReplyParser.moc"
