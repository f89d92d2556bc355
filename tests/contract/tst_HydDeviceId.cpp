#include "NvxQtCommon/contract/identity/HydDeviceId.h"

#include "tests/support/NvxTestCase.h"

#include <map>

class tst_HydDeviceId : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void constructors();
    void orderIsByTypeThenSerialThenHost_data();
    void orderIsByTypeThenSerialThenHost();
    void orderIsStrictAndWeak();
    void friendlyNameIsTheAliasOrTypeAndSerial();
    void typeTexts_data();
    void typeTexts();
    void everyTypeTextReadsBack();
    void copiesCarryEverything();
    void worksAsAMapKey();
    // --- rainy day flows
    void changedAliasIsStillTheSameKey();
    void whatDoesNotIdentifyIsNotCompared();
    void foreignTypeTexts_data();
    void foreignTypeTexts();
};

namespace {

HydDeviceId idBehindHost(HydDeviceType type, uint16_t serial, uint16_t host)
{
    HydDeviceId id(type, serial);
    id.setHostDevNo(host);
    return id;
}

} // namespace

void tst_HydDeviceId::constructors()
{
    const HydDeviceId none;
    QCOMPARE(none.devType(), DevTypeAny);
    QCOMPARE(none.serialNo(), uint16_t{0});
    QCOMPARE(none.hostDevNo(), uint16_t{0});
    QVERIFY(none.alias().empty());
    QVERIFY(none.devIdList().empty());
    QVERIFY(none.netHostInfo() == NvxNetHostInfo());

    const HydDeviceId plain(DevTypeRecorderA, 65535);
    QCOMPARE(plain.devType(), DevTypeRecorderA);
    QCOMPARE(plain.serialNo(), uint16_t{65535});

    const HydDeviceId located(DevTypeZcr, 7, NvxNetHostInfo(0x0A000001));
    QCOMPARE(located.netHostInfo().ipAddress().toInt(), 0x0A000001U);
    QCOMPARE(located.serialNo(), uint16_t{7});
}

void tst_HydDeviceId::orderIsByTypeThenSerialThenHost_data()
{
    QTest::addColumn<HydDeviceId>("lower");
    QTest::addColumn<HydDeviceId>("higher");
    QTest::newRow("type before all") << idBehindHost(DevTypeRecorderA, 9, 9)
                                     << idBehindHost(DevTypeRecorderB, 1, 1);
    QTest::newRow("serial before host")
        << idBehindHost(DevTypeSkiff, 1, 9) << idBehindHost(DevTypeSkiff, 2, 1);
    QTest::newRow("host last") << idBehindHost(DevTypeSkiff, 2, 1) << idBehindHost(DevTypeSkiff, 2, 2);
    QTest::newRow("serials are unsigned")
        << HydDeviceId(DevTypeSkiff, 0x7FFF) << HydDeviceId(DevTypeSkiff, 0x8000);
    QTest::newRow("types are unsigned")
        << HydDeviceId(DevTypeWavFile, 1) << HydDeviceId(static_cast<HydDeviceType>(200), 1);
}

void tst_HydDeviceId::orderIsByTypeThenSerialThenHost()
{
    QFETCH(HydDeviceId, lower);
    QFETCH(HydDeviceId, higher);
    QVERIFY(lower < higher);
    QVERIFY(!(higher < lower));
    QVERIFY(lower != higher);
    QVERIFY(!(lower == higher));
}

void tst_HydDeviceId::orderIsStrictAndWeak()
{
    std::vector<HydDeviceId> ids;
    for (const auto type : {DevTypeAny, DevTypeSkiff, DevTypeWavFile}) {
        for (const uint16_t serial : {0, 1, 65535}) {
            for (const uint16_t host : {0, 3})
                ids.push_back(idBehindHost(type, serial, host));
        }
    }
    // They were made in their order: each is less than exactly those behind it.
    for (size_t a = 0; a < ids.size(); ++a) {
        for (size_t b = 0; b < ids.size(); ++b) {
            QCOMPARE(ids[a] < ids[b], a < b);
            QCOMPARE(ids[a] == ids[b], a == b);
        }
    }
}

void tst_HydDeviceId::friendlyNameIsTheAliasOrTypeAndSerial()
{
    HydDeviceId id(DevTypeRecorderB, 1234);
    QCOMPARE(id.friendlyName(), std::string("Recorder B 1234"));
    id.setAlias("North mooring");
    QCOMPARE(id.friendlyName(), std::string("North mooring"));
    QCOMPARE(id.alias(), std::string("North mooring"));
    id.setAlias({});
    QCOMPARE(id.friendlyName(), std::string("Recorder B 1234"));
}

void tst_HydDeviceId::typeTexts_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("any") << 0 << QByteArray("Unknown device");
    QTest::newRow("recorder A") << 5 << QByteArray("Recorder A");
    QTest::newRow("recorder B") << 7 << QByteArray("Recorder B");
    QTest::newRow("TMI") << 8 << QByteArray("TMI");
    QTest::newRow("TD recorder") << 13 << QByteArray("TD recorder");
    QTest::newRow("Skiff") << 15 << QByteArray("Skiff");
    QTest::newRow("array controller") << 16 << QByteArray("Array controller");
    QTest::newRow("spectrum file") << 67 << QByteArray("Spectrum file");
    QTest::newRow("wave file") << 68 << QByteArray("Wave file");
    QTest::newRow("nameless") << 99 << QByteArray("Device 99");
}

void tst_HydDeviceId::typeTexts()
{
    QFETCH(int, type);
    QFETCH(QByteArray, text);
    QCOMPARE(QByteArray::fromStdString(deviceTypeText(static_cast<HydDeviceType>(type))), text);
}

void tst_HydDeviceId::everyTypeTextReadsBack()
{
    for (int number = 0; number < 256; ++number) {
        const auto type = static_cast<HydDeviceType>(number);
        QCOMPARE(static_cast<int>(deviceTypeFromText(deviceTypeText(type))), number);
    }
}

void tst_HydDeviceId::copiesCarryEverything()
{
    HydDeviceId id(DevTypeZcr, 16, NvxNetHostInfo(5));
    id.setAlias("array");
    id.setHostDevNo(3);
    id.devIdList() = {HydDeviceId(DevTypeSkiff, 1), HydDeviceId(DevTypeSkiff, 2)};
    const HydDeviceId copy(id);
    HydDeviceId assigned;
    assigned = id;
    id.devIdList().clear();
    for (const auto* other : {&copy, static_cast<const HydDeviceId*>(&assigned)}) {
        QVERIFY(*other == id);
        QCOMPARE(other->alias(), std::string("array"));
        QCOMPARE(other->hostDevNo(), uint16_t{3});
        QCOMPARE(other->netHostInfo().ipAddress().toInt(), 5U);
        QCOMPARE(other->devIdList().size(), size_t{2});
    }
}

void tst_HydDeviceId::worksAsAMapKey()
{
    std::map<HydDeviceId, int> counts;
    for (const uint16_t serial : {3, 1, 2, 3, 1, 3})
        ++counts[HydDeviceId(DevTypeRecorderA, serial)];
    QCOMPARE(counts.size(), size_t{3});
    QCOMPARE(counts[HydDeviceId(DevTypeRecorderA, 3)], 3);
    QCOMPARE(counts[HydDeviceId(DevTypeRecorderA, 2)], 1);
}

void tst_HydDeviceId::changedAliasIsStillTheSameKey()
{
    HydDeviceId id(DevTypeRecorderA, 12);
    std::map<HydDeviceId, int> stored{{id, 1}};
    id.setAlias("renamed");
    QVERIFY(stored.contains(id));
    stored[id] = 2;
    QCOMPARE(stored.size(), size_t{1});
    QCOMPARE(stored.begin()->second, 2);
}

void tst_HydDeviceId::whatDoesNotIdentifyIsNotCompared()
{
    const HydDeviceId plain(DevTypeZcr, 12);
    HydDeviceId dressed = plain;
    dressed.setAlias("x");
    dressed.setNetHostInfo(NvxNetHostInfo(77));
    dressed.devIdList().emplace_back(DevTypeSkiff, uint16_t{1});
    QVERIFY(plain == dressed);
    QVERIFY(!(plain != dressed));
    QVERIFY(!(plain < dressed));
    QVERIFY(!(dressed < plain));
}

void tst_HydDeviceId::foreignTypeTexts_data()
{
    QTest::addColumn<QByteArray>("text");
    for (const char* text : {"", "skiff", "Skiff ", "Device", "Device ", "Device x", "Device 099",
                             "Device 99 ", "Device 256", "Device -1", "Device 15", "99"})
        QTest::addRow("'%s'", text) << QByteArray(text);
}

void tst_HydDeviceId::foreignTypeTexts()
{
    QFETCH(QByteArray, text);
    QCOMPARE(deviceTypeFromText(text.toStdString()), DevTypeAny);
}

QTEST_APPLESS_MAIN(tst_HydDeviceId)
#include "tst_HydDeviceId.moc"
