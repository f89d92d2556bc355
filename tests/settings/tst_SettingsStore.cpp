#include "NvxQtCommon/settings/SettingsStore.h"
#include "tests/settings/IniFile.h"
#include "tests/support/NvxTestCase.h"

#include <cstdint>
#include <limits>

namespace {

enum Choice : uint16_t {
    ChoiceNone = 0,
    ChoiceLast = 65535,
};

const SettingsKeys kKeys{{0, QStringLiteral("zero")}, {1, QStringLiteral("one")}};
const QString kGroup = QStringLiteral("Group");

template <class T> T throughFile(T value, T before)
{
    IniFile file;
    SettingsWriter(file.store(), kGroup, kKeys)(0, value);
    SettingsReader(file.reopen(), kGroup, kKeys)(0, before);
    return before;
}

/// What a file that holds `text` under the key gives for a field that held `before`.
template <class T> T fromText(const QByteArray& text, T before)
{
    IniFile file("[Group]\n" + text);
    SettingsReader(file.store(), kGroup, kKeys)(0, before);
    return before;
}

} // namespace

class tst_SettingsStore : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void valuesComeBack();
    void eachNumberHasItsKey();
    void groupIsLeftAgain();
    void emptyGroupIsTheStoresOwn();
    // --- rainy day flows
    void missingValues();
    void numbersThatAreNone_data();
    void numbersThatAreNone();
    void numbersThatAreTooLarge();
    void boolsOfAnyText_data();
    void boolsOfAnyText();
    void textsThatAreNone_data();
    void textsThatAreNone();
    void withoutAStoreNothingHappens();
};

void tst_SettingsStore::valuesComeBack()
{
    QCOMPARE(throughFile(std::numeric_limits<int>::min(), 1), std::numeric_limits<int>::min());
    QCOMPARE(throughFile(std::numeric_limits<unsigned>::max(), 1U), std::numeric_limits<unsigned>::max());
    QCOMPARE(throughFile(uint16_t{65535}, uint16_t{1}), uint16_t{65535});
    QCOMPARE(throughFile(ChoiceLast, ChoiceNone), ChoiceLast);
    QCOMPARE(throughFile(true, false), true);
    QCOMPARE(throughFile(false, true), false);
    QVERIFY(throughFile(0.1F, 1.0F) == 0.1F);
    QVERIFY(throughFile(-1.0 / 3.0, 1.0) == -1.0 / 3.0);
    for (const char* text : {"plain", "a, b; \"c\" = d", "Ab\xC3\xA9", "@at", "line\nbreak", " blanks "}) {
        QCOMPARE(throughFile(std::string(text), std::string("before")), std::string(text));
        QCOMPARE(throughFile(QString::fromUtf8(text), QStringLiteral("before")), QString::fromUtf8(text));
    }
}

void tst_SettingsStore::eachNumberHasItsKey()
{
    IniFile file;
    {
        const SettingsWriter write(file.store(), kGroup, kKeys);
        write(0, 7);
        write(1, true);
    }
    file.reopen();
    QCOMPARE(file.keys(), QStringList({QStringLiteral("Group/one"), QStringLiteral("Group/zero")}));
    QCOMPARE(file.value(QStringLiteral("Group/zero")).toString(), QStringLiteral("7"));
    QCOMPARE(file.value(QStringLiteral("Group/one")).toString(), QStringLiteral("true"));
}

void tst_SettingsStore::groupIsLeftAgain()
{
    IniFile file;
    const SettingsGroup outer(file.store(), QStringLiteral("outer"));
    {
        const SettingsWriter write(file.store(), kGroup, kKeys);
        QCOMPARE(file.store()->group(), QStringLiteral("outer/Group"));
    }
    QCOMPARE(file.store()->group(), QStringLiteral("outer"));
    int value = 0;
    SettingsReader(file.store(), kGroup, kKeys)(0, value);
    QCOMPARE(file.store()->group(), QStringLiteral("outer"));
}

void tst_SettingsStore::emptyGroupIsTheStoresOwn()
{
    IniFile file;
    file.store()->beginGroup(QStringLiteral("caller"));
    SettingsWriter(file.store(), QString(), kKeys)(0, 5);
    QCOMPARE(file.store()->group(), QStringLiteral("caller"));
    file.store()->endGroup();
    QCOMPARE(file.store()->value(QStringLiteral("caller/zero")).toInt(), 5);
}

void tst_SettingsStore::missingValues()
{
    QCOMPARE(fromText("", 7), 0);
    QCOMPARE(fromText("", 7U), 0U);
    QCOMPARE(fromText("", uint16_t{7}), uint16_t{0});
    QCOMPARE(fromText("", ChoiceLast), ChoiceNone);
    QCOMPARE(fromText("", true), false);
    QVERIFY(fromText("", 7.5) == 0.0);
    QVERIFY(fromText("", 7.5F) == 0.0F);
    QCOMPARE(fromText("", std::string("before")), std::string("before"));
    QCOMPARE(fromText("", QStringLiteral("before")), QStringLiteral("before"));
}

void tst_SettingsStore::numbersThatAreNone_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray("zero=");
    QTest::newRow("word") << QByteArray("zero=many");
    QTest::newRow("behind a number") << QByteArray("zero=7x");
    QTest::newRow("hexadecimal") << QByteArray("zero=0x10");
    QTest::newRow("list") << QByteArray("zero=1, 2");
    QTest::newRow("other case") << QByteArray("Zero=7");
    QTest::newRow("infinite") << QByteArray("zero=inf");
    QTest::newRow("not a number") << QByteArray("zero=nan");
    QTest::newRow("very long") << "zero=" + QByteArray(100000, '9');
    QTest::newRow("bytes") << QByteArray("zero=@ByteArray(7)x");
}

void tst_SettingsStore::numbersThatAreNone()
{
    QFETCH(QByteArray, text);
    QCOMPARE(fromText(text, 7), 0);
    QCOMPARE(fromText(text, 7U), 0U);
    QCOMPARE(fromText(text, ChoiceLast), ChoiceNone);
    QVERIFY(fromText(text, 7.5) == 0.0);
    QVERIFY(fromText(text, 7.5F) == 0.0F);
}

void tst_SettingsStore::numbersThatAreTooLarge()
{
    QCOMPARE(fromText("zero=2147483648", 7), std::numeric_limits<int>::min());
    QCOMPARE(fromText("zero=4294967301", 7), 5);
    QCOMPARE(fromText("zero=4294967301", 7U), 5U);
    QCOMPARE(fromText("zero=-1", 7U), std::numeric_limits<unsigned>::max());
    QCOMPARE(fromText("zero=9223372036854775808", 7), 0);
    QCOMPARE(fromText("zero=9223372036854775808", 7U), 0U);
    QCOMPARE(fromText("zero=65537", uint16_t{7}), uint16_t{1});
    QCOMPARE(fromText("zero=65536", ChoiceLast), ChoiceNone);
    QVERIFY(fromText("zero=1e300", 7.5F) == 0.0F);
    QVERIFY(fromText("zero=1e300", 7.5) == 1e300);
}

void tst_SettingsStore::boolsOfAnyText_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("value");
    QTest::newRow("true") << QByteArray("zero=true") << true;
    QTest::newRow("1") << QByteArray("zero=1") << true;
    QTest::newRow("word") << QByteArray("zero=no") << true;
    QTest::newRow("false") << QByteArray("zero=false") << false;
    QTest::newRow("False") << QByteArray("zero=False") << false;
    QTest::newRow("0") << QByteArray("zero=0") << false;
    QTest::newRow("empty") << QByteArray("zero=") << false;
}

void tst_SettingsStore::boolsOfAnyText()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, value);
    QCOMPARE(fromText(text, !value), value);
}

void tst_SettingsStore::textsThatAreNone_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray("zero=");
    QTest::newRow("quoted empty") << QByteArray("zero=\"\"");
    QTest::newRow("list") << QByteArray("zero=a, b");
}

void tst_SettingsStore::textsThatAreNone()
{
    QFETCH(QByteArray, text);
    QCOMPARE(fromText(text, std::string("before")), std::string("before"));
    QCOMPARE(fromText(text, QStringLiteral("before")), QStringLiteral("before"));
}

void tst_SettingsStore::withoutAStoreNothingHappens()
{
    int value = 7;
    SettingsWriter(nullptr, kGroup, kKeys)(0, value);
    SettingsReader(nullptr, kGroup, kKeys)(0, value);
    QCOMPARE(value, 7);
}

QTEST_APPLESS_MAIN(tst_SettingsStore)
#include "tst_SettingsStore.moc"
