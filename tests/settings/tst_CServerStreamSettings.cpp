#include "NvxQtCommon/settings/CServerStreamSettings.h"
#include "tests/settings/IniFile.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QString kGroup = QStringLiteral("Server");

using Set = void (CServerStreamSettings::*)(bool);
using Get = bool (CServerStreamSettings::*)() const;

} // namespace

class tst_CServerStreamSettings : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaults();
    void flags_data();
    void flags();
    void messageIdIsKept();
    void portIsStoredApart_data();
    void portIsStoredApart();
    void setupIsStoredWithoutThePort();
    void eachValueCounts();
    // --- rainy day flows
    void missingKeysLoadAsNothing();
    void ports_data();
    void ports();
    void withoutAStoreNothingHappens();
};

void tst_CServerStreamSettings::defaults()
{
    const CServerStreamSettings settings;
    QCOMPARE(settings.UDPServerPort(), quint16{54545});
    QVERIFY(settings.isStreamSgnPower());
    QVERIFY(!settings.isStreamSPLrms());
    QVERIFY(!settings.isStreamPeak());
    QVERIFY(!settings.isStreamSELcum());
    QVERIFY(settings.isUseDevAlias());
    QCOMPARE(settings.messageID(), std::string("PMVE"));
    QVERIFY(settings.isStream());
    QVERIFY(!settings.isStatsStream());
}

void tst_CServerStreamSettings::flags_data()
{
    QTest::addColumn<Set>("set");
    QTest::addColumn<Get>("get");
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("isStream");
    QTest::addColumn<bool>("isStatsStream");
    using C = CServerStreamSettings;
    const auto row = [](const char* key, Set set, Get get, bool isStream, bool isStats) {
        QTest::newRow(key) << set << get << QString::fromLatin1(key) << isStream << isStats;
    };
    row("isStreamSgnPower", &C::setStreamSgnPower, &C::isStreamSgnPower, true, false);
    row("isStreamSPLrms", &C::setStreamSPLrms, &C::isStreamSPLrms, true, true);
    row("isStreamPeak", &C::setStreamPeak, &C::isStreamPeak, true, true);
    row("isStreamSELcum", &C::setStreamSELcum, &C::isStreamSELcum, true, true);
    row("isDevAlias", &C::setUseDevAlias, &C::isUseDevAlias, false, false);
}

void tst_CServerStreamSettings::flags()
{
    QFETCH(Set, set);
    QFETCH(Get, get);
    QFETCH(QString, key);
    QFETCH(bool, isStream);
    QFETCH(bool, isStatsStream);
    CServerStreamSettings settings;
    settings.setStreamSgnPower(false);
    settings.setUseDevAlias(false);
    QVERIFY(!settings.isStream());
    QVERIFY(!settings.isStatsStream());
    QVERIFY(!(settings.*get)());
    (settings.*set)(true);
    QVERIFY((settings.*get)());
    QCOMPARE(settings.isStream(), isStream);
    QCOMPARE(settings.isStatsStream(), isStatsStream);

    IniFile file;
    settings.save(file.store(), kGroup);
    CServerStreamSettings other;
    other.load(file.reopen(), kGroup);
    QVERIFY(other == settings);
    for (const char* name :
         {"isStreamSgnPower", "isStreamSPLrms", "isStreamPeak", "isStreamSELcum", "isDevAlias"})
        QCOMPARE(file.value(kGroup + u'/' + QLatin1String(name)).toString(),
                 key == QLatin1String(name) ? QStringLiteral("true") : QStringLiteral("false"));
}

void tst_CServerStreamSettings::messageIdIsKept()
{
    CServerStreamSettings settings;
    const std::string id = "two words, \xC3\xA9";
    settings.setMessageID(id);
    IniFile file;
    settings.save(file.store(), kGroup);
    CServerStreamSettings other;
    other.load(file.reopen(), kGroup);
    QCOMPARE(other.messageID(), id);
    QCOMPARE(file.value(QStringLiteral("Server/messageID")).toString(), QString::fromStdString(id));
}

void tst_CServerStreamSettings::portIsStoredApart_data()
{
    QTest::addColumn<bool>("withGroup");
    QTest::addColumn<QString>("key");
    QTest::newRow("in its group") << true << QStringLiteral("caller/Server/UDPServerPort");
    QTest::newRow("in the caller's") << false << QStringLiteral("caller/UDPServerPort");
}

void tst_CServerStreamSettings::portIsStoredApart()
{
    QFETCH(bool, withGroup);
    QFETCH(QString, key);
    CServerStreamSettings settings;
    settings.setUDPServerPort(65535);
    IniFile file;
    file.store()->beginGroup(QStringLiteral("caller"));
    settings.saveInstance(file.store(), kGroup, withGroup);
    QCOMPARE(file.store()->group(), QStringLiteral("caller"));
    file.reopen();
    QCOMPARE(file.keys(), QStringList(key));
    QCOMPARE(file.value(key).toString(), QStringLiteral("65535"));

    CServerStreamSettings other;
    other.setStreamSPLrms(true);
    file.store()->beginGroup(QStringLiteral("caller"));
    other.loadInstance(file.store(), kGroup, withGroup);
    QCOMPARE(file.store()->group(), QStringLiteral("caller"));
    QCOMPARE(other.UDPServerPort(), quint16{65535});
    QVERIFY(other.isStreamSPLrms());
    QVERIFY(other.isUseDevAlias());
    other.loadInstance(file.store(), kGroup, !withGroup);
    QCOMPARE(other.UDPServerPort(), quint16{0});
}

void tst_CServerStreamSettings::setupIsStoredWithoutThePort()
{
    CServerStreamSettings settings;
    IniFile file;
    settings.save(file.store(), kGroup);
    file.reopen();
    QCOMPARE(file.keys().size(), 6);
    QVERIFY(!file.value(QStringLiteral("Server/UDPServerPort")).isValid());
    settings.setUDPServerPort(7);
    settings.load(file.store(), kGroup);
    QCOMPARE(settings.UDPServerPort(), quint16{7});
}

void tst_CServerStreamSettings::eachValueCounts()
{
    CServerStreamSettings settings;
    settings.setUDPServerPort(7);
    QVERIFY(!(settings == CServerStreamSettings()));
    settings = {};
    settings.setMessageID("other");
    QVERIFY(!(settings == CServerStreamSettings()));
    settings = {};
    QVERIFY(settings == CServerStreamSettings());
}

void tst_CServerStreamSettings::missingKeysLoadAsNothing()
{
    CServerStreamSettings settings;
    IniFile file;
    settings.load(file.store(), kGroup);
    settings.loadInstance(file.store(), kGroup, true);
    QVERIFY(!settings.isStreamSgnPower());
    QVERIFY(!settings.isUseDevAlias());
    QCOMPARE(settings.UDPServerPort(), quint16{0});
    QCOMPARE(settings.messageID(), std::string("PMVE"));
}

void tst_CServerStreamSettings::ports_data()
{
    QTest::addColumn<QByteArray>("stored");
    QTest::addColumn<int>("port");
    QTest::newRow("largest") << QByteArray("65535") << 65535;
    QTest::newRow("one more") << QByteArray("65536") << 0;
    QTest::newRow("two more") << QByteArray("65537") << 1;
    QTest::newRow("negative") << QByteArray("-1") << 65535;
    QTest::newRow("no number") << QByteArray("http") << 0;
    QTest::newRow("wider than 32 bits") << QByteArray("4294967297") << 1;
    QTest::newRow("wider than 64 bits") << QByteArray("18446744073709551617") << 0;
}

void tst_CServerStreamSettings::ports()
{
    QFETCH(QByteArray, stored);
    QFETCH(int, port);
    IniFile file("[Server]\nUDPServerPort=" + stored + '\n');
    CServerStreamSettings settings;
    settings.loadInstance(file.store(), kGroup, true);
    QCOMPARE(static_cast<int>(settings.UDPServerPort()), port);
}

void tst_CServerStreamSettings::withoutAStoreNothingHappens()
{
    CServerStreamSettings settings;
    settings.save(nullptr, kGroup);
    settings.load(nullptr, kGroup);
    settings.saveInstance(nullptr, kGroup, true);
    settings.loadInstance(nullptr, kGroup, true);
    QVERIFY(settings == CServerStreamSettings());
}

QTEST_APPLESS_MAIN(tst_CServerStreamSettings)
#include "tst_CServerStreamSettings.moc"
