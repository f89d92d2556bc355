#include "NvxQtCommon/transfer/LocalName.h"
#include "tests/support/NvxTestCase.h"

/// Which names may become files.
class tst_LocalName : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void bareNames_data();
    void bareNames();
    // --- rainy day flows
    void refusedNames_data();
    void refusedNames();
    void everyControlCharacter();
};

void tst_LocalName::bareNames_data()
{
    QTest::addColumn<QString>("name");
    for (const char* name : {"REC1234_20210304_050607.wav",
                             "a",
                             "a b",
                             " a",
                             ".hidden",
                             "..a",
                             "...a",
                             "a..b",
                             "-rf",
                             "~",
                             "%2e%2e%2f",
                             "COM",
                             "COMA",
                             "COM12",
                             "COMPANY.txt",
                             "NULL",
                             "CONSOLE",
                             "AUXILIARY.wav",
                             "LPT",
                             "con1",
                             "a.con",
                             "gr\xC3\xBC\xC3\x9F"
                             "e.wav",
                             "\xF0\x9F\x90\xB3.wav",
                             "$HOME",
                             "`id`",
                             "*?\"<>|",
                             "\xEF\xBC\x8F"})
        QTest::newRow(name) << QString::fromUtf8(name);
    QTest::newRow("255 bytes") << QString(255, u'n');
    QTest::newRow("255 bytes of two each and one") << QString(127, u'\u00FC') + u'n';
}

void tst_LocalName::bareNames()
{
    QFETCH(const QString, name);
    QVERIFY(isBareFileName(name));
}

void tst_LocalName::refusedNames_data()
{
    QTest::addColumn<QString>("name");
    for (const char* name : {"",
                             ".",
                             "..",
                             "...",
                             ". .",
                             ".. ",
                             " ",
                             "a.",
                             "a ",
                             "/",
                             "\\",
                             "/a",
                             "\\a",
                             "a/",
                             "a\\",
                             "a/b",
                             "a\\b",
                             "../a",
                             "..\\a",
                             "C:",
                             "C:a",
                             "C:\\a",
                             "a:b",
                             "a.wav::$DATA",
                             "CON",
                             "con",
                             "Con.wav",
                             "PRN",
                             "AUX.txt",
                             "NUL",
                             "nul.tar.gz",
                             "COM1",
                             "com9.wav",
                             "LPT1",
                             "lpt0",
                             "LPT1 .wav",
                             "CONIN$",
                             "conout$.txt",
                             "COM\xC2\xB9",
                             "LPT\xC2\xB2.wav",
                             "COM\xC2\xB3",
                             "a\xE2\x80\xAE"
                             "b",
                             "a\xE2\x80\x8B"
                             "b",
                             "a\xE2\x80\xA8"
                             "b",
                             "a\xE2\x80\xA9"
                             "b",
                             "a\xC2\x85"
                             "b"})
        QTest::addRow("\"%s\"", name) << QString::fromUtf8(name);
    QTest::newRow("256 bytes") << QString(256, u'n');
    QTest::newRow("256 bytes of two each") << QString(128, u'\u00FC');
    QTest::newRow("a megabyte") << QString(1 << 20, u'n');
    QTest::newRow("half of a pair") << QString(QChar(0xD83D));
    QTest::newRow("NUL inside") << QString::fromLatin1("a\0b", 3);
}

void tst_LocalName::refusedNames()
{
    QFETCH(const QString, name);
    QVERIFY(!isBareFileName(name));
}

void tst_LocalName::everyControlCharacter()
{
    for (int code = 0; code < 0xA0; ++code) {
        if (code < 0x20 || code >= 0x7F)
            QVERIFY2(!isBareFileName(u'a' + QString(QChar(code)) + u'b'), qPrintable(QString::number(code)));
    }
}

QTEST_GUILESS_MAIN(tst_LocalName)
#include "tst_LocalName.moc"
