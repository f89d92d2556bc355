// Settings files between this library and Python's configparser, both ways.
#include "tests/settings/AllSettings.h"
#include "tests/settings/IniFile.h"
#include "tests/settings/PythonIni.h"
#include "tests/support/NvxTestCase.h"

#include <QRegularExpression>

namespace {

constexpr int kTextKeys = 24;

bool isText(const QString& key)
{
    static const QRegularExpression text(QStringLiteral("(Dir|Prefix|Comment|messageID)$|^Details/"));
    return text.match(key).hasMatch();
}

bool isReal(const QString& key)
{
    static const QRegularExpression real(
        QStringLiteral("Filter(CutOffFreq|CenterFreq|PassBandRipple|StopBandAtten|FracSampleOffset|"
                       "CoefScaleFactor)$"));
    return real.match(key).hasMatch();
}

bool isBool(const QString& text)
{
    return text == QLatin1String("true") || text == QLatin1String("false");
}

/// What Python reads of a file that these settings were saved to.
IniTexts savedTexts(const AllSettings& settings)
{
    IniFile file;
    settings.save(file.store());
    file.reopen();
    return textsByPython(file.path());
}

/// What stands in a file of defaults.
const IniTexts& standardTexts()
{
    static const IniTexts texts = savedTexts(AllSettings());
    return texts;
}

/// The same with all job tags and two triggers.
const IniTexts& fullTexts()
{
    static const IniTexts texts = [] {
        AllSettings settings;
        settings.setTagsAndTriggers();
        return savedTexts(settings);
    }();
    return texts;
}

/// What these texts are after Python has written them, and ours have loaded and saved them.
IniTexts throughOurs(const IniTexts& texts)
{
    IniFile file;
    writeByPython(file.path(), texts);
    AllSettings settings;
    settings.load(file.reopen());
    return savedTexts(settings);
}

/// Another valid value under each key.
IniTexts otherTexts(IniTexts texts)
{
    int number = 100;
    for (auto text = texts.begin(); text != texts.end(); ++text) {
        ++number;
        if (isText(text.key()))
            *text = QStringLiteral("other %1, with = \"ä\" \\ and %2").arg(text.key()).arg(number);
        else if (isBool(*text))
            *text = *text == QLatin1String("true") ? QStringLiteral("false") : QStringLiteral("true");
        else if (isReal(text.key()))
            *text = QString::number(number + 0.5);
        else if (!text.key().contains(QLatin1String("trigType")))
            *text = QString::number(number);
    }
    return texts;
}

/// Where two files differ.
QStringList differences(const IniTexts& actual, const IniTexts& expected)
{
    QStringList lines;
    const QStringList keys = actual.keys() + expected.keys();
    for (const QString& key : keys) {
        if (actual.value(key) != expected.value(key) || actual.contains(key) != expected.contains(key))
            lines << key + QStringLiteral(": is ") + actual.value(key, QStringLiteral("nothing")) +
                         QStringLiteral(", not ") + expected.value(key, QStringLiteral("nothing"));
    }
    return lines;
}

} // namespace

class tst_settings_peer : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void keysOfEachGroup_data();
    void keysOfEachGroup();
    void whatPythonWritesComesBack();
    void foreignKeysArePassedOver();
    // --- rainy day flows
    void hostileTexts_data();
    void hostileTexts();
    void halfOfACharacterIsReplaced();
    void missingKeys_data();
    void missingKeys();
    void wrongTypes_data();
    void wrongTypes();
    void linesThatDoNotEnd_data();
    void linesThatDoNotEnd();
};

void tst_settings_peer::keysOfEachGroup_data()
{
    QTest::addColumn<QString>("group");
    QTest::addColumn<QString>("keys");
    for (const auto& [group, keys] : keysOfGroups())
        QTest::newRow(group) << QString::fromLatin1(group) << QString::fromLatin1(keys);
}
void tst_settings_peer::keysOfEachGroup()
{
    QFETCH(QString, group);
    QFETCH(QString, keys);
    AllSettings settings;
    settings.setTagsAndTriggers();
    IniFile file;
    settings.save(file.store());
    file.reopen();
    QStringList expected = keys.split(u' ');
#ifdef Q_OS_UNIX
    // Here a store sorts its keys; tst_settings_order looks at how they are written.
    expected.sort();
#endif
    QCOMPARE(keysByPython(file.path(), group), expected);
}

void tst_settings_peer::whatPythonWritesComesBack()
{
    const IniTexts& before = fullTexts();
    const IniTexts other = otherTexts(before);
    QCOMPARE(before.size(), 21 + 2 + 23 + 5 + 15 + 5 + 11 + 15 + 15 + 7 + 24 + 6);
    // All but the marks of the two triggers are others.
    QCOMPARE(differences(before, other).size(), 2 * (before.size() - 2));
    QCOMPARE(differences(throughOurs(other), other), QStringList());
}

void tst_settings_peer::foreignKeysArePassedOver()
{
    const IniTexts other = otherTexts(fullTexts());
    IniTexts crowded = other;
    for (const char* group : {"Logs", "Logs/LogPathData", "Device", "Tags", "Details", "Impulses", "Clicks",
                              "Exposure", "Exposure/SEIRFiler", "Filter", "Epoch", "Server", "Stranger"}) {
        for (int i = 0; i < 2000; ++i)
            crowded.insert(QStringLiteral("%1/foreign%2").arg(QLatin1String(group)).arg(i),
                           QStringLiteral("text, %1 = ä").arg(i));
    }
    QCOMPARE(differences(throughOurs(crowded), other), QStringList());
}

void tst_settings_peer::hostileTexts_data()
{
    QTest::addColumn<QString>("text");
    const auto row = [](const char* name, const QString& text) { QTest::newRow(name) << text; };
    row("quotes", QStringLiteral("\"a\" 'b' \""));
    row("backslashes", QStringLiteral("C:\\new\\text\\x41\\"));
    row("list", QStringLiteral("a, b,c"));
    row("assignment", QStringLiteral("key = value"));
    row("comment", QStringLiteral("; a # b"));
    row("number sign", QStringLiteral("# a"));
    row("section", QStringLiteral("[Logs]"));
    row("section on a line of its own", QStringLiteral("a\n[Logs]\nWavPrefix=x\n"));
    row("blanks around", QStringLiteral("  a \t "));
    row("line ends", QStringLiteral("\r\n a \n\n\r"));
    row("control characters", QStringLiteral("\x01\x02"
                                             "f\x1f"
                                             "0\x7f\b\f\v\a"));
    row("zero", QStringLiteral("a%1b%11").arg(QChar(0)));
    row("percent", QStringLiteral("%1 %(a)s %% %U0041 %n"));
    row("interpolation", QStringLiteral("${a:b} $a"));
    row("at sign", QStringLiteral("@a"));
    row("two at signs", QStringLiteral("@@a"));
    row("invalid value", QStringLiteral("@Invalid()"));
    row("bytes", QStringLiteral("@ByteArray(x)"));
    row("variant", QStringLiteral("@Variant(\\0\\0\\0\\x2\\0)"));
    row("string", QStringLiteral("@String(a)"));
    row("other scripts", QStringLiteral("日誌 \U0001F433 e\u0301 \u202Eabc\u202C \uFEFF \u2028 a"));
    row("no character", QStringLiteral("a\uFFFEb\uFFFF"));
    row("number", QStringLiteral("12345678901234567890"));
    row("word of a bool", QStringLiteral("false"));
    row("64 KiB", QStringLiteral("a\\ä\"").repeated(16384));
}
void tst_settings_peer::hostileTexts()
{
    QFETCH(QString, text);
    AllSettings settings;
    settings.setTexts(text);
    const IniTexts saved = savedTexts(settings);
    int count = 0;
    for (auto each = saved.begin(); each != saved.end(); ++each) {
        if (!isText(each.key()))
            continue;
        ++count;
        QVERIFY2(each.value() == text, qPrintable(each.key() + ": " + each.value().left(100)));
    }
    QCOMPARE(count, kTextKeys);
    // And ours read what they wrote.
    IniFile file;
    settings.save(file.store());
    AllSettings loaded;
    loaded.load(file.reopen());
    QCOMPARE(loaded.logs.wavPrefix(), text);
    IniFile again;
    loaded.save(again.store());
    again.reopen();
    QCOMPARE(again.bytes(), file.bytes());
}

void tst_settings_peer::halfOfACharacterIsReplaced()
{
    AllSettings settings;
    settings.setTexts(QStringLiteral("a") + QChar(0xD800) + QStringLiteral("b"));
    const IniTexts saved = savedTexts(settings);
    // The first half of a pair alone is no character, and UTF-8 can't hold it.
    QCOMPARE(saved.value(QStringLiteral("Details/Client")), QStringLiteral("a\uFFFDb"));
}

void tst_settings_peer::missingKeys_data()
{
    QTest::addColumn<int>("rest");
    QTest::addColumn<int>("divisor");
    QTest::newRow("the even ones") << 0 << 2;
    QTest::newRow("the odd ones") << 1 << 2;
    for (int rest = 0; rest < 3; ++rest)
        QTest::addRow("all but each third from %d on", rest) << rest << -3;
}
void tst_settings_peer::missingKeys()
{
    QFETCH(int, rest);
    QFETCH(int, divisor);
    const IniTexts& before = standardTexts();
    IniTexts expected = otherTexts(before);
    IniTexts cut;
    int number = 0;
    for (auto text = expected.begin(); text != expected.end(); ++text, ++number) {
        const bool isKept = divisor > 0 ? number % divisor != rest : number % -divisor == rest;
        const QString standard = before.value(text.key());
        if (isKept)
            cut.insert(text.key(), text.value());
        else
            *text = isText(text.key()) ? standard
                    : isBool(standard) ? QStringLiteral("false")
                                       : QStringLiteral("0");
    }
    QVERIFY(cut.size() < expected.size() && !cut.isEmpty());
    QCOMPARE(differences(throughOurs(cut), expected), QStringList());
}

void tst_settings_peer::wrongTypes_data()
{
    QTest::addColumn<QString>("given");
    QTest::addColumn<QString>("whole");
    QTest::addColumn<QString>("real");
    QTest::addColumn<QString>("boolean");
    QTest::addColumn<QString>("text"); // empty: the default stays
    const auto row = [](const char* given, const char* whole, const char* real, const char* boolean,
                        const char* text) {
        QTest::newRow(given) << QString::fromUtf8(given) << QString::fromLatin1(whole)
                             << QString::fromLatin1(real) << QString::fromLatin1(boolean)
                             << QString::fromUtf8(text);
    };
    row("bare:many", "0", "0", "true", "many");
    row("many words", "0", "0", "true", "many words");
    row("", "0", "0", "false", "");
    row("bare:", "0", "0", "false", "");
    row("bare:1, 2", "0", "0", "false", "");
    row("bare:1.5", "0", "1.5", "true", "1.5");
    row("bare:1,5", "0", "0", "false", "");
    row("bare:0x10", "0", "0", "true", "0x10");
    row("bare:1e2", "0", "100", "true", "1e2");
    row("bare:nan", "0", "0", "true", "nan");
    row("bare:-inf", "0", "0", "true", "-inf");
    row("bare:1234567890123456789012345678901234567890", "0", "0", "true",
        "1234567890123456789012345678901234567890");
    row("\xD9\xA1\xD9\xA2", "0", "0", "true", "\xD9\xA1\xD9\xA2");
    row("bare:\xC3\xA4", "0", "0", "true", "\xC3\xA4");
    row("bare:@Invalid()", "0", "0", "false", "");
    row("bare:@ByteArray(7)", "7", "7", "true", "7");
    row("bare:@Rect(1 2 3 4)", "0", "0", "false", "");
    row("bare:@Variant(\\0\\0\\0\\x2\\0\\0\\0\\x7)", "7", "7", "true", "7");
    row("bare:@Variant(\\0\\0\\0\\x2\\0)", "0", "0", "false", "0");
    row("bare:@Variant()", "0", "0", "false", "");
}
void tst_settings_peer::wrongTypes()
{
    QFETCH(QString, given);
    QFETCH(QString, whole);
    QFETCH(QString, real);
    QFETCH(QString, boolean);
    QFETCH(QString, text);
    const IniTexts& before = standardTexts();
    IniTexts wrong;
    IniTexts expected;
    for (auto each = before.begin(); each != before.end(); ++each) {
        wrong.insert(each.key(), given);
        if (isText(each.key()))
            expected.insert(each.key(), text.isEmpty() ? each.value() : text);
        else
            expected.insert(each.key(), isBool(each.value()) ? boolean : isReal(each.key()) ? real : whole);
    }
    for (auto each = fullTexts().begin(); each != fullTexts().end(); ++each) {
        if (each.key().startsWith(QLatin1String("Tags/")))
            wrong.insert(each.key(), given);
    }
    IniTexts actual = throughOurs(wrong);
    // A tag holds a number, whatever stood there; the list of serial numbers holds one or none.
    static const QRegularExpression number(QStringLiteral("^-?[0-9]+$"));
    for (auto each = actual.begin(); each != actual.end();) {
        const bool isTag = each.key().startsWith(QLatin1String("Tags/"));
        const bool isNone = each->isEmpty() && each.key() == QLatin1String("Tags/ARRAY_SERIALS");
        QVERIFY2(!isTag || isNone || number.match(*each).hasMatch(), qPrintable(each.key() + ": " + *each));
        each = isTag ? actual.erase(each) : std::next(each);
    }
    QCOMPARE(differences(actual, expected), QStringList());
}

void tst_settings_peer::linesThatDoNotEnd_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<int>("length");
    QTest::addColumn<QString>("comment");
    QTest::newRow("all lines end") << QByteArray("ClickPrefix=a") << "a" << 7 << "c";
    // What follows belongs to the text, as Qt reads it.
    QTest::newRow("open quotation mark")
        << QByteArray("ClickPrefix=\"a") << "a\nLogClickLength=7\nClickComment=c\n"
        << 0 << "";
    QTest::newRow("backslash at the end") << QByteArray("ClickPrefix=a\\") << "aLogClickLength=7" << 0 << "c";
}
void tst_settings_peer::linesThatDoNotEnd()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, prefix);
    QFETCH(int, length);
    QFETCH(QString, comment);
    IniFile file("[Clicks]\n" + line + "\nLogClickLength=7\nClickComment=c\n");
    CClickDetectSettings clicks;
    clicks.load(file.store(), QStringLiteral("Clicks"));
    QCOMPARE(clicks.clickPrefix(), prefix);
    QCOMPARE(int(clicks.logClickLength()), length);
    QCOMPARE(clicks.clickComment(), comment);
}

QTEST_GUILESS_MAIN(tst_settings_peer)
#include "tst_settings_peer.moc"
