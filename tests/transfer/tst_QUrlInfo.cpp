#include "NvxQtCommon/transfer/QUrlInfo.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>

#include <functional>

namespace {

struct Field
{
    const char* name;
    std::function<void(QUrlInfo&)> set;
};

const QDateTime kEarly(QDate(2021, 3, 4), QTime(5, 6, 7), Qt::UTC);
const QDateTime kLate(QDate(2022, 3, 4), QTime(5, 6, 7), Qt::UTC);

const Field kFields[] = {
    {"name", [](QUrlInfo& info) { info.setName(QStringLiteral("a.wav")); }},
    {"permissions", [](QUrlInfo& info) { info.setPermissions(0640); }},
    {"owner", [](QUrlInfo& info) { info.setOwner(QStringLiteral("anna")); }},
    {"group", [](QUrlInfo& info) { info.setGroup(QStringLiteral("sea")); }},
    {"size", [](QUrlInfo& info) { info.setSize(5000000000); }},
    {"lastModified", [](QUrlInfo& info) { info.setLastModified(kEarly); }},
    {"created", [](QUrlInfo& info) { info.setCreated(kEarly); }},
    {"lastRead", [](QUrlInfo& info) { info.setLastRead(kEarly); }},
    {"isDir", [](QUrlInfo& info) { info.setDir(true); }},
    {"isFile", [](QUrlInfo& info) { info.setFile(true); }},
    {"isSymLink", [](QUrlInfo& info) { info.setSymLink(true); }},
    {"isWritable", [](QUrlInfo& info) { info.setWritable(true); }},
    {"isReadable", [](QUrlInfo& info) { info.setReadable(true); }},
    {"isExecutable", [](QUrlInfo& info) { info.setExecutable(true); }},
};

QUrlInfo entry(const QString& name, qint64 size, const QDateTime& time)
{
    QUrlInfo info;
    info.setName(name);
    info.setSize(size);
    info.setLastModified(time);
    return info;
}

} // namespace

class tst_QUrlInfo : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaultsAreInvalidAndEmpty();
    void gettersGiveWhatWasSet();
    void eachFieldMakesItValidAndUnequal_data();
    void eachFieldMakesItValidAndUnequal();
    void copiesAreEqualAndApart();
    void settersAreVirtual();
    void comparesByKey_data();
    void comparesByKey();
    // --- rainy day flows
    void settingTheDefaultMakesItValidToo();
    void equalEntriesAreLessThanEachOther();
    void unknownKeyFindsAllEqual();
};

void tst_QUrlInfo::defaultsAreInvalidAndEmpty()
{
    const QUrlInfo info;
    QVERIFY(!info.isValid());
    QVERIFY(info.name().isEmpty() && info.owner().isEmpty() && info.group().isEmpty());
    QCOMPARE(info.size(), qint64(0));
    QCOMPARE(info.permissions(), 0);
    QVERIFY(!info.lastModified().isValid() && !info.created().isValid() && !info.lastRead().isValid());
    QVERIFY(!info.isDir() && !info.isFile() && !info.isSymLink());
    QVERIFY(!info.isWritable() && !info.isReadable() && !info.isExecutable());
    QVERIFY(info == QUrlInfo());
}

void tst_QUrlInfo::gettersGiveWhatWasSet()
{
    QUrlInfo info;
    for (const Field& field : kFields)
        field.set(info);
    info.setCreated(kLate);
    info.setLastRead(kLate.addDays(1));
    QCOMPARE(info.name(), QStringLiteral("a.wav"));
    QCOMPARE(info.permissions(), 256 + 128 + 32);
    QCOMPARE(info.owner(), QStringLiteral("anna"));
    QCOMPARE(info.group(), QStringLiteral("sea"));
    QCOMPARE(info.size(), qint64(5000000000));
    QCOMPARE(info.lastModified(), kEarly);
    QCOMPARE(info.created(), kLate);
    QCOMPARE(info.lastRead(), kLate.addDays(1));
    QVERIFY(info.isDir() && info.isFile() && info.isSymLink());
    QVERIFY(info.isWritable() && info.isReadable() && info.isExecutable());
}

void tst_QUrlInfo::eachFieldMakesItValidAndUnequal_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < int(std::size(kFields)); ++i)
        QTest::newRow(kFields[i].name) << i;
}

void tst_QUrlInfo::eachFieldMakesItValidAndUnequal()
{
    QFETCH(int, index);
    QUrlInfo valid;
    valid.setPermissions(0);
    QUrlInfo info = valid;
    QVERIFY(info == valid);
    kFields[index].set(info);
    QVERIFY(!(info == valid));

    QUrlInfo alone;
    kFields[index].set(alone);
    QVERIFY(alone.isValid());
    kFields[index].set(valid);
    QVERIFY(info == valid);
}

void tst_QUrlInfo::copiesAreEqualAndApart()
{
    const QUrlInfo original = entry(QStringLiteral("a"), 1, kEarly);
    QUrlInfo copy(original);
    QUrlInfo assigned;
    assigned = original;
    QVERIFY(copy == original && assigned == original);
    copy.setName(QStringLiteral("b"));
    QCOMPARE(original.name(), QStringLiteral("a"));
    QCOMPARE(QVariant::fromValue(original).value<QUrlInfo>(), original);
}

void tst_QUrlInfo::settersAreVirtual()
{
    struct Renamed : QUrlInfo
    {
        void setName(const QString& name) override { QUrlInfo::setName(name.toUpper()); }
    };
    Renamed renamed;
    QUrlInfo& info = renamed;
    info.setName(QStringLiteral("a.wav"));
    QCOMPARE(info.name(), QStringLiteral("A.WAV"));
}

void tst_QUrlInfo::comparesByKey_data()
{
    QTest::addColumn<int>("key");
    QTest::newRow("name") << int(QDir::Name);
    QTest::newRow("time") << int(QDir::Time);
    QTest::newRow("size") << int(QDir::Size);
}

void tst_QUrlInfo::comparesByKey()
{
    QFETCH(int, key);
    // Each of the two is the greater one by other keys than the one that counts.
    QUrlInfo small = entry(QStringLiteral("z"), 9, kLate);
    QUrlInfo great = entry(QStringLiteral("a"), 1, kEarly);
    if (key == QDir::Name)
        qSwap(small, great), small.setName(QStringLiteral("a")), great.setName(QStringLiteral("b"));
    if (key == QDir::Time)
        small.setLastModified(kEarly), great.setLastModified(kLate);
    if (key == QDir::Size)
        small.setSize(1), great.setSize(5000000000);
    QVERIFY(QUrlInfo::greaterThan(great, small, key));
    QVERIFY(!QUrlInfo::greaterThan(small, great, key));
    QVERIFY(QUrlInfo::lessThan(small, great, key));
    QVERIFY(!QUrlInfo::lessThan(great, small, key));
    QVERIFY(!QUrlInfo::equal(small, great, key));
    QVERIFY(!QUrlInfo::equal(great, small, key));
    QVERIFY(QUrlInfo::equal(great, great, key));
}

void tst_QUrlInfo::settingTheDefaultMakesItValidToo()
{
    QUrlInfo info;
    info.setDir(false);
    QVERIFY(info.isValid());
    QVERIFY(!(info == QUrlInfo()));
}

void tst_QUrlInfo::equalEntriesAreLessThanEachOther()
{
    const QUrlInfo info = entry(QStringLiteral("a"), 1, kEarly);
    for (const int key : {QDir::Name, QDir::Time, QDir::Size}) {
        QVERIFY(!QUrlInfo::greaterThan(info, info, key));
        QVERIFY(QUrlInfo::lessThan(info, info, key));
    }
}

void tst_QUrlInfo::unknownKeyFindsAllEqual()
{
    const QUrlInfo small = entry(QStringLiteral("a"), 1, kEarly);
    const QUrlInfo great = entry(QStringLiteral("b"), 2, kLate);
    for (const int key : {-1, 3, 77}) {
        QVERIFY(!QUrlInfo::greaterThan(great, small, key));
        QVERIFY(QUrlInfo::lessThan(great, small, key));
        QVERIFY(QUrlInfo::equal(great, small, key));
    }
}

QTEST_APPLESS_MAIN(tst_QUrlInfo)
#include "tst_QUrlInfo.moc"
