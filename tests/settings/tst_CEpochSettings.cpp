#include "NvxQtCommon/settings/CEpochSettings.h"
#include "tests/settings/StoredValue.h"
#include "tests/support/NvxTestCase.h"

namespace {

using Triggers = CEpochSettings::Triggers;

const QString kGroup = QStringLiteral("Epoch");
const HydDeviceId kDevice(DevTypeRecorderA, 1234);
const HydDeviceId kOther(DevTypeRecorderA, 77);

StoredValues<CEpochSettings> values()
{
    using S = CEpochSettings;
    return {
        storedValue("EpochOutDir", expectedFolder(), &S::epochOutputDir, &S::setEpochOutputDir),
        storedValue("EpochPrefix", "Epoch", &S::epochPrefix, &S::setEpochPrefix),
        storedValue("LogEpochDevMode", "0", &S::logEpochDevMode, &S::setLogEpochDevMode),
        storedValue("LogEpochProgMode", "0", &S::logEpochProgMode, &S::setLogEpochProgMode),
        storedValue("measEventDur", "-1", &S::measEventDur, &S::setMeasEventDur),
        storedValue("trigBeepAlarm", "true", &S::trigBeepAlarm, &S::setTrigBeepAlarm),
        storedValue("showDevTriggers", "true", &S::showDevTriggers, &S::setShowDevTriggers),
    };
}

/// A trigger with another value in each field; `number` is added to all.
std::shared_ptr<HydTrigger_5_6> makeTrigger(uint8_t number)
{
    auto trigger = std::make_shared<HydTrigger_5_6>();
    trigger->setTrigNum(number);
    trigger->setEnabled(1);
    trigger->setDuration(static_cast<uint16_t>(1000 + number));
    trigger->setEventHold(static_cast<uint16_t>(2000 + number));
    trigger->setMinFreq(3000000U + number);
    trigger->setMaxFreq(4000000000U + number);
    trigger->setThreshType(static_cast<uint16_t>(5000 + number));
    trigger->setThreshold(static_cast<int16_t>(-6000 - number));
    trigger->setEffect(static_cast<uint16_t>(7000 + number));
    trigger->setPreTrigger(static_cast<uint16_t>(60000 + number));
    trigger->setTestType(TestTypeBelow);
    return trigger;
}

Triggers makeTriggers(int count)
{
    Triggers triggers;
    for (int i = 0; i < count; ++i)
        triggers.push_back(makeTrigger(static_cast<uint8_t>(i)));
    return triggers;
}

/// What comes back of these triggers through a file.
CEpochSettings throughFile(const Triggers& triggers)
{
    CEpochSettings settings;
    settings.setTriggers(triggers);
    IniFile file;
    settings.save(file.store(), kGroup);
    CEpochSettings other;
    other.load(file.reopen(), kGroup);
    return other;
}

const HydTrigger_5_6* fieldsOf(const std::shared_ptr<HydTrigger>& trigger)
{
    return dynamic_cast<const HydTrigger_5_6*>(trigger.get());
}

QList<int> regimesOf(const Triggers& triggers)
{
    QList<int> regimes;
    for (const auto& trigger : triggers)
        regimes << (fieldsOf(trigger) != nullptr ? fieldsOf(trigger)->trgRegime() : -1);
    return regimes;
}

SActiveTrigger occurrence(uint8_t state, uint8_t number, const HydDeviceId& devId, uint8_t regime = 2)
{
    SActiveTrigger active;
    active.state = state;
    active.devId = devId;
    active.trigger.setTrigNum(number);
    active.trigger.eventTrg().regime = regime;
    return active;
}

/// The text of a stored trigger.
QByteArray storedTrigger(int index, int type = 3)
{
    return QStringLiteral("trigType%1=%2\ntrigNum%1=%1\n").arg(index).arg(type).toUtf8();
}

} // namespace

class tst_CEpochSettings : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void defaults();
    void everyKeyIsWrittenAndRead();
    void everyFieldOfATriggerHasItsKey();
    void triggersComeBackInOrder();
    void loadReplacesTheTriggers();
    void savedTriggersThatAreGoneAreRemoved();
    void triggersByPosition();
    void devicesGetCopies();
    void comparedOneByOne();
    void activeWhenOneIsEnabled();
    void regimeOfAnOccurrence_data();
    void regimeOfAnOccurrence();
    void copiesShareTheirTriggers();
    // --- rainy day flows
    void otherTriggersAreNotStored();
    void atMostFiveTriggersAreRead();
    void readingStopsAtTheFirstOtherType_data();
    void readingStopsAtTheFirstOtherType();
    void withoutTheGroupNothingChanges();
    void missingKeysOfTheGroup();
    void missingFieldsOfATrigger();
    void numbersThatDoNotFit();
    void emptyTextsStay();
    void emptyGroupIsTheStoresOwn();
    void emptyGroupOfTheRootEmptiesTheStore();
    void groupsThatAreNotFoundAgain_data();
    void groupsThatAreNotFoundAgain();
    void noTriggersAndNullTriggers();
    void withoutAStoreNothingHappens();
};

void tst_CEpochSettings::defaults()
{
    checkDefaults(values());
    const CEpochSettings settings;
    QVERIFY(settings.triggers().empty());
    QVERIFY(!settings.hasActiveTriggers());
    QVERIFY(settings.compareTriggers({}));
}

void tst_CEpochSettings::everyKeyIsWrittenAndRead()
{
    CEpochSettings settings;
    setAll(settings, values());
    IniFile file;
    settings.save(file.store(), kGroup);
    QVERIFY(file.store()->group().isEmpty());
    CEpochSettings other;
    other.load(file.reopen(), kGroup);
    QVERIFY(file.store()->group().isEmpty());
    QCOMPARE(file.keys().size(), values().size());
    for (const auto& value : values()) {
        QCOMPARE(file.value(kGroup + '/' + value.key).toString(), value.other);
        QCOMPARE(value.get(other), value.other);
    }
}

void tst_CEpochSettings::everyFieldOfATriggerHasItsKey()
{
    CEpochSettings settings;
    settings.setTriggers({makeTrigger(0), makeTrigger(9)});
    IniFile file;
    settings.save(file.store(), kGroup);
    file.reopen();
    const QList<std::pair<const char*, const char*>> fields{{"trigType", "3"},
                                                            {"trigNum", "9"},
                                                            {"trigEnabled", "1"},
                                                            {"trigDuration", "1009"},
                                                            {"trigEventHold", "2009"},
                                                            {"trigMinFreq", "3000009"},
                                                            {"trigMaxFreq", "4000000009"},
                                                            {"trigThreshType", "5009"},
                                                            {"trigThreshold", "-6009"},
                                                            {"trigEffect", "7009"},
                                                            {"preTRigger", "60009"},
                                                            {"trigTestType", "6"}};
    QCOMPARE(file.keys().size(), values().size() + 2 * fields.size());
    for (const auto& [key, text] : fields)
        QCOMPARE(file.value(kGroup + '/' + key + '1').toString(), QString::fromLatin1(text));
}

void tst_CEpochSettings::triggersComeBackInOrder()
{
    const Triggers triggers = makeTriggers(5);
    const CEpochSettings other = throughFile(triggers);
    QVERIFY(other.compareTriggers(triggers));
    for (int i = 0; i < 5; ++i) {
        const auto* trigger = fieldsOf(other.trigger(i));
        QVERIFY(trigger != nullptr);
        QCOMPARE(int(trigger->trigNum()), i);
        QCOMPARE(int(trigger->enabled()), 1);
        QCOMPARE(int(trigger->duration()), 1000 + i);
        QCOMPARE(int(trigger->eventHold()), 2000 + i);
        QCOMPARE(trigger->minFreq(), 3000000U + unsigned(i));
        QCOMPARE(trigger->maxFreq(), 4000000000U + unsigned(i));
        QCOMPARE(int(trigger->threshType()), 5000 + i);
        QCOMPARE(int(trigger->threshold()), -6000 - i);
        QCOMPARE(int(trigger->effect()), 7000 + i);
        QCOMPARE(int(trigger->preTrigger()), 60000 + i);
        QCOMPARE(trigger->testType(), TestTypeBelow);
    }
}

void tst_CEpochSettings::loadReplacesTheTriggers()
{
    CEpochSettings stored;
    stored.setTriggers({makeTrigger(7)});
    IniFile file;
    stored.save(file.store(), kGroup);
    CEpochSettings settings;
    settings.setTriggers(makeTriggers(3));
    settings.reloadProgTriggers({kDevice});
    settings.load(file.reopen(), kGroup);
    QVERIFY(settings.compareTriggers({makeTrigger(7)}));
    // Those of devices wait for the next reload.
    QCOMPARE(settings.triggersByDevId(kDevice).size(), size_t{3});
}

void tst_CEpochSettings::savedTriggersThatAreGoneAreRemoved()
{
    IniFile file("[Other]\ntrigType0=3\n[Epoch]\nforeign=1\ndeeper\\key=2\n");
    CEpochSettings settings;
    settings.setTriggers(makeTriggers(3));
    settings.save(file.store(), kGroup);
    QCOMPARE(file.reopen()->allKeys().size(), 1 + 7 + 3 * 12);
    settings.setTriggers({makeTrigger(8)});
    settings.save(file.store(), kGroup);
    QCOMPARE(file.reopen()->allKeys().size(), 1 + 7 + 12);
    QCOMPARE(file.value(QStringLiteral("Epoch/trigNum0")).toInt(), 8);
    QCOMPARE(file.value(QStringLiteral("Other/trigType0")).toInt(), 3);
}

void tst_CEpochSettings::triggersByPosition()
{
    CEpochSettings settings;
    const Triggers triggers = makeTriggers(2);
    settings.setTriggers(triggers);
    QVERIFY(settings.triggers() == triggers);
    QVERIFY(settings.trigger(0) == triggers[0] && settings.trigger(1) == triggers[1]);
    for (const int index : {-1, 2, INT_MIN, INT_MAX})
        QVERIFY(settings.trigger(index) == nullptr);
    settings.reloadProgTriggers({kDevice});
    QVERIFY(settings.triggerByDevId(kDevice, 1) == settings.triggersByDevId(kDevice)[1]);
    for (const int index : {-1, 2, INT_MIN, INT_MAX})
        QVERIFY(settings.triggerByDevId(kDevice, index) == nullptr);
    QVERIFY(settings.triggerByDevId(kOther, 0) == nullptr);
    QVERIFY(settings.triggersByDevId(kOther).empty());
}

void tst_CEpochSettings::devicesGetCopies()
{
    CEpochSettings settings;
    const auto trigger = makeTrigger(1);
    trigger->eventTrg().regime = 2;
    settings.setTriggers({trigger, std::make_shared<HydTrigger>(), nullptr, makeTrigger(2)});
    settings.reloadProgTriggers({kDevice, kOther});
    for (const HydDeviceId& device : {kDevice, kOther}) {
        const Triggers copies = settings.triggersByDevId(device);
        QCOMPARE(copies.size(), size_t{2});
        QVERIFY(copies[0]->compare(trigger.get()) && copies[0] != trigger);
        QCOMPARE(regimesOf(copies), (QList<int>{2, 0}));
    }
    QVERIFY(settings.triggerByDevId(kDevice, 0) != settings.triggerByDevId(kOther, 0));
    // Other devices keep theirs.
    settings.setTriggers({});
    settings.reloadProgTriggers({kOther});
    QCOMPARE(settings.triggersByDevId(kDevice).size(), size_t{2});
    QVERIFY(settings.triggersByDevId(kOther).empty());
}

void tst_CEpochSettings::comparedOneByOne()
{
    CEpochSettings settings;
    settings.setTriggers(makeTriggers(2));
    QVERIFY(settings.compareTriggers(makeTriggers(2)));
    QVERIFY(!settings.compareTriggers(makeTriggers(1)));
    QVERIFY(!settings.compareTriggers(makeTriggers(3)));
    QVERIFY(!settings.compareTriggers({}));
    QVERIFY(!settings.compareTriggers({makeTrigger(1), makeTrigger(0)}));
    QVERIFY(!settings.compareTriggers({makeTrigger(0), nullptr}));
    QVERIFY(!settings.compareTriggers({makeTrigger(0), std::make_shared<HydTrigger>()}));
    auto other = makeTrigger(1);
    other->setEffect(1);
    QVERIFY(!settings.compareTriggers({makeTrigger(0), other}));
    // How the occurrence stands takes no part.
    other = makeTrigger(1);
    other->eventTrg().regime = 2;
    QVERIFY(settings.compareTriggers({makeTrigger(0), other}));
}

void tst_CEpochSettings::activeWhenOneIsEnabled()
{
    CEpochSettings settings;
    const Triggers triggers = makeTriggers(2);
    settings.setTriggers({std::make_shared<HydTrigger>(), nullptr, triggers[0], triggers[1]});
    QVERIFY(settings.hasActiveTriggers());
    settings.reloadProgTriggers({kDevice});
    for (const auto& trigger : triggers)
        std::static_pointer_cast<HydTrigger_5_6>(trigger)->setEnabled(0);
    // Those of devices don't count.
    QVERIFY(!settings.hasActiveTriggers());
    std::static_pointer_cast<HydTrigger_5_6>(triggers[1])->setEnabled(255);
    QVERIFY(settings.hasActiveTriggers());
}

void tst_CEpochSettings::regimeOfAnOccurrence_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<int>("number");
    QTest::addColumn<QList<int>>("regimes");
    const QList<int> first{2, -1, 0};
    const QList<int> second{0, -1, 2};
    const QList<int> none{0, -1, 0};
    const QList<int> all{2, -1, 2};
    QTest::newRow("the first") << 2 << 4 << first;
    QTest::newRow("the second") << 6 << 5 << second;
    QTest::newRow("of no number") << 2 << 6 << none;
    QTest::newRow("of no number, of the other class") << 2 << 0 << none;
    QTest::newRow("state 9 is none for all") << 9 << 6 << none;
    for (int state = 10; state <= 15; ++state)
        QTest::addRow("state %d is for all", state) << state << 6 << all;
    QTest::newRow("state 16 is none for all") << 16 << 6 << none;
    QTest::newRow("state 16 goes by number") << 16 << 5 << second;
}
void tst_CEpochSettings::regimeOfAnOccurrence()
{
    QFETCH(int, state);
    QFETCH(int, number);
    QFETCH(QList<int>, regimes);
    CEpochSettings settings;
    settings.setTriggers({makeTrigger(4), std::make_shared<HydTrigger>(), makeTrigger(5)});
    settings.reloadProgTriggers({kDevice, kOther});
    settings.handleTrigActive(occurrence(static_cast<uint8_t>(state), static_cast<uint8_t>(number), kDevice));
    QCOMPARE(regimesOf(settings.triggers()), regimes);
    QCOMPARE(regimesOf(settings.triggersByDevId(kDevice)), (QList<int>{regimes[0], regimes[2]}));
    QCOMPARE(regimesOf(settings.triggersByDevId(kOther)), (QList<int>{0, 0}));
    // And back again.
    settings.handleTrigActive(
        occurrence(static_cast<uint8_t>(state), static_cast<uint8_t>(number), kDevice, 0));
    QCOMPARE(regimesOf(settings.triggers()), (QList<int>{0, -1, 0}));
    QCOMPARE(regimesOf(settings.triggersByDevId(kDevice)), (QList<int>{0, 0}));
    // A device that has no triggers of its own changes the program's alone.
    settings.handleTrigActive(occurrence(static_cast<uint8_t>(state), static_cast<uint8_t>(number),
                                         HydDeviceId(DevTypeRecorderA, 5)));
    QCOMPARE(regimesOf(settings.triggers()), regimes);
    QCOMPARE(regimesOf(settings.triggersByDevId(kDevice)), (QList<int>{0, 0}));
    QVERIFY(settings.triggersByDevId(HydDeviceId(DevTypeRecorderA, 5)).empty());
}

void tst_CEpochSettings::copiesShareTheirTriggers()
{
    CEpochSettings settings;
    setAll(settings, values());
    settings.setTriggers(makeTriggers(2));
    CEpochSettings copied(settings);
    CEpochSettings assigned;
    assigned = settings;
    for (const auto& value : values()) {
        QCOMPARE(value.get(copied), value.other);
        QCOMPARE(value.get(assigned), value.other);
    }
    QVERIFY(copied.triggers() == settings.triggers() && assigned.triggers() == settings.triggers());
    copied.setTriggers({});
    QCOMPARE(settings.triggers().size(), size_t{2});
}

void tst_CEpochSettings::otherTriggersAreNotStored()
{
    const CEpochSettings other =
        throughFile({std::make_shared<HydTrigger>(), makeTrigger(4), nullptr, makeTrigger(5)});
    // And leave no gap: reading would stop at it.
    QVERIFY(other.compareTriggers({makeTrigger(4), makeTrigger(5)}));
}

void tst_CEpochSettings::atMostFiveTriggersAreRead()
{
    CEpochSettings settings;
    settings.setTriggers(makeTriggers(7));
    IniFile file;
    settings.save(file.store(), kGroup);
    QCOMPARE(file.reopen()->value(QStringLiteral("Epoch/trigNum6")).toInt(), 6);
    settings.load(file.store(), kGroup);
    QVERIFY(settings.compareTriggers(makeTriggers(5)));
    // And no more are left after the next save.
    settings.save(file.store(), kGroup);
    QVERIFY(file.reopen()->contains(QStringLiteral("Epoch/trigNum4")));
    QVERIFY(!file.store()->contains(QStringLiteral("Epoch/trigNum5")));
    QVERIFY(!file.store()->contains(QStringLiteral("Epoch/trigNum6")));
}

void tst_CEpochSettings::readingStopsAtTheFirstOtherType_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("count");
    QTest::newRow("none") << QByteArray("EpochPrefix=x\n") << 0;
    QTest::newRow("not from 0 on") << storedTrigger(1) << 0;
    QTest::newRow("a gap") << storedTrigger(0) + storedTrigger(2) << 1;
    QTest::newRow("another type") << storedTrigger(0) + storedTrigger(1, 4) + storedTrigger(2) << 1;
    QTest::newRow("another type at the front") << storedTrigger(0, 0) + storedTrigger(1) << 0;
    QTest::newRow("no number") << QByteArray("trigType0=three\n") << 0;
    QTest::newRow("with leading zeros") << QByteArray("trigType0=003\ntrigType00=3\n") << 1;
    QTest::newRow("index with leading zeros") << QByteArray("trigType00=3\n") << 0;
    QTest::newRow("of other capitals") << QByteArray("TrigType0=3\n") << 0;
}
void tst_CEpochSettings::readingStopsAtTheFirstOtherType()
{
    QFETCH(QByteArray, text);
    QFETCH(int, count);
    IniFile file("[Epoch]\n" + text);
    CEpochSettings settings;
    settings.setTriggers(makeTriggers(3));
    settings.load(file.store(), kGroup);
    QCOMPARE(int(settings.triggers().size()), count);
}

void tst_CEpochSettings::withoutTheGroupNothingChanges()
{
    IniFile file("[Other]\nEpochPrefix=x\nEpoch\\EpochPrefix=x\n[General]\nEpoch=1\n");
    CEpochSettings settings;
    setAll(settings, values());
    settings.setTriggers(makeTriggers(2));
    settings.load(file.store(), kGroup);
    for (const auto& value : values())
        QCOMPARE(value.get(settings), value.other);
    QVERIFY(settings.compareTriggers(makeTriggers(2)));
}

void tst_CEpochSettings::missingKeysOfTheGroup()
{
    IniFile file("[Epoch]\nforeign=1\n");
    CEpochSettings settings;
    setAll(settings, values());
    settings.setTriggers(makeTriggers(2));
    settings.load(file.store(), kGroup);
    for (const auto& value : values())
        QCOMPARE(value.get(settings), value.missing);
    QVERIFY(settings.triggers().empty());
}

void tst_CEpochSettings::missingFieldsOfATrigger()
{
    IniFile file("[Epoch]\ntrigType0=3\n");
    CEpochSettings settings;
    settings.load(file.store(), kGroup);
    QCOMPARE(settings.triggers().size(), size_t{1});
    HydTrigger_5_6 zeros;
    zeros.setTestType(TestTypeNone);
    QVERIFY(zeros.compare(settings.trigger(0).get()));
    // What is loaded so is stored again, and none of it is a trigger that a device takes.
    QVERIFY(throughFile(settings.triggers()).compareTriggers(settings.triggers()));
}

void tst_CEpochSettings::numbersThatDoNotFit()
{
    IniFile file("[Epoch]\nmeasEventDur=4294967295\nLogEpochDevMode=65537\ntrigType0=4294967299\n"
                 "trigNum0=257\ntrigEnabled0=256\ntrigDuration0=-1\ntrigEventHold0=many\n"
                 "trigMinFreq0=-1\ntrigMaxFreq0=4294967296\ntrigThreshType0=1e3\ntrigThreshold0=40000\n"
                 "trigEffect0=\"1, 2\"\npreTRigger0=99999999999999999999\ntrigTestType0=262\n");
    CEpochSettings settings;
    settings.load(file.store(), kGroup);
    QCOMPARE(settings.measEventDur(), -1);
    QCOMPARE(settings.logEpochDevMode(), LogOn);
    // The low bits of what is too wide, and 0 for what is no number.
    const auto* trigger = fieldsOf(settings.trigger(0));
    QVERIFY(trigger != nullptr);
    QCOMPARE(int(trigger->trigNum()), 1);
    QCOMPARE(int(trigger->enabled()), 0);
    QCOMPARE(trigger->duration(), uint16_t{65535});
    QCOMPARE(trigger->eventHold(), uint16_t{0});
    QCOMPARE(trigger->minFreq(), UINT_MAX);
    QCOMPARE(trigger->maxFreq(), 0U);
    QCOMPARE(trigger->threshType(), uint16_t{0});
    QCOMPARE(int(trigger->threshold()), 40000 - 65536);
    QCOMPARE(trigger->effect(), uint16_t{0});
    QCOMPARE(trigger->preTrigger(), uint16_t{0});
    QCOMPARE(trigger->testType(), TestTypeBelow);
}

void tst_CEpochSettings::emptyTextsStay()
{
    IniFile file("[Epoch]\nEpochPrefix=\nEpochOutDir=\"\"\n");
    CEpochSettings settings;
    settings.load(file.store(), kGroup);
    QCOMPARE(settings.epochPrefix(), QStringLiteral("Epoch"));
    QCOMPARE(settings.epochOutputDir(), expectedFolder());
}

void tst_CEpochSettings::emptyGroupIsTheStoresOwn()
{
    IniFile file("[Epoch]\nforeign=1\n[Other]\nkept=1\n");
    file.store()->beginGroup(kGroup);
    CEpochSettings().save(file.store(), QString());
    QCOMPARE(file.store()->group(), kGroup);
    file.store()->endGroup();
    QCOMPARE(file.reopen()->allKeys().size(), 7 + 1);
    QCOMPARE(file.value(QStringLiteral("Other/kept")).toInt(), 1);
}

void tst_CEpochSettings::emptyGroupOfTheRootEmptiesTheStore()
{
    // Intended: the group is emptied, and here it is the whole store.
    IniFile file("[General]\nEpochPrefix=x\nforeign=1\n[Other]\nlost=1\n");
    CEpochSettings().save(file.store(), QString());
    QCOMPARE(file.reopen()->allKeys().size(), 7);
    QCOMPARE(file.value(QStringLiteral("EpochPrefix")).toString(), QStringLiteral("Epoch"));
    QVERIFY(file.store()->childGroups().isEmpty());
}

void tst_CEpochSettings::groupsThatAreNotFoundAgain_data()
{
    QTest::addColumn<QString>("group");
    QTest::newRow("empty") << QString();
    QTest::newRow("within another") << QStringLiteral("Survey/Epoch");
}
void tst_CEpochSettings::groupsThatAreNotFoundAgain()
{
    QFETCH(QString, group);
    CEpochSettings settings;
    setAll(settings, values());
    settings.setTriggers(makeTriggers(1));
    IniFile file;
    settings.save(file.store(), group);
    QCOMPARE(file.store()->allKeys().size(), 7 + 12);
    CEpochSettings other;
    other.load(file.reopen(), group);
    for (const auto& value : values())
        QCOMPARE(value.get(other), value.standard);
    QVERIFY(other.triggers().empty());
}

void tst_CEpochSettings::noTriggersAndNullTriggers()
{
    QVERIFY(throughFile({}).triggers().empty());
    CEpochSettings settings;
    settings.setTriggers({nullptr, nullptr});
    QVERIFY(throughFile(settings.triggers()).triggers().empty());
    QVERIFY(!settings.hasActiveTriggers());
    QVERIFY(settings.compareTriggers({nullptr, nullptr}));
    QVERIFY(!settings.compareTriggers({nullptr, makeTrigger(0)}));
    settings.reloadProgTriggers({kDevice});
    settings.reloadProgTriggers({});
    settings.handleTrigActive(occurrence(10, 0, kDevice));
    QVERIFY(settings.triggersByDevId(kDevice).empty());
    QVERIFY(settings.trigger(0) == nullptr);
}

void tst_CEpochSettings::withoutAStoreNothingHappens()
{
    CEpochSettings settings;
    settings.setTriggers(makeTriggers(2));
    settings.save(nullptr, kGroup);
    settings.load(nullptr, kGroup);
    QVERIFY(settings.compareTriggers(makeTriggers(2)));
}

QTEST_GUILESS_MAIN(tst_CEpochSettings)
#include "tst_CEpochSettings.moc"
