#include "NvxQtCommon/contract/job/HydJobSettingsTag.h"

#include "tests/contract/ContractSupport.h"
#include "tests/support/NvxTestCase.h"

class tst_HydJobSettingsTag : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void everyKeyHasItsName_data();
    void everyKeyHasItsName();
    void namedTagsReadBack_data();
    void namedTagsReadBack();
    void valuesAsText_data();
    void valuesAsText();
    void serialLists_data();
    void serialLists();
    void classesOfTheirOwn();
    void foreignTagsKeepTheirBytes();
    void listOfTagsOnTheWire();
    void emptyListOfTags();
    void nullTagsStayAtHome();
    // --- rainy day flows
    void keysWithoutAName();
    void textsThatAreNoTag_data();
    void textsThatAreNoTag();
    void valuesThatAreNoNumberCountAsZero_data();
    void valuesThatAreNoNumberCountAsZero();
    void valueOfTheWrongLength_data();
    void valueOfTheWrongLength();
    void listCutAtAnyByte();
    void malformedLists_data();
    void malformedLists();
    void equalKeysOnTheWireKeepTheLast();
    void listsAroundTheLimit_data();
    void listsAroundTheLimit();
};

namespace {

JobTagMap wireTags()
{
    return {
        {JobTagWavRate, std::make_shared<HydWavSampleRateTag>(96000U)},
        {JobTagFftRef, std::make_shared<HydNumberTag>(JobTagFftRef, 0xFFFFFFF4U)},
        {JobTagDeviceList, std::make_shared<TmiDeviceListTag>(std::vector<uint16_t>{1, 0x0203})},
        {static_cast<JobTagKey>(500),
         std::make_shared<HydRawTag>(static_cast<JobTagKey>(500), Bytes{9, 8, 7})},
    };
}

constexpr char kWireTags[] = "0004"
                             "00030004fffffff4"
                             "000e000400017700"
                             "01f40003090807"
                             "8000000400010203";

Bytes tagListBytes(const JobTagMap& map)
{
    ByteStream out;
    serializeTags(map, out);
    return out.take();
}

struct NamedKey
{
    int key;
    const char* name;
};

constexpr NamedKey kNames[] = {
    {0, "AUX_PIN"},
    {1, "LOG_START_TIME"},
    {2, "FFT_SAMPLE_RATE"},
    {3, "FFT_REF_LEVEL"},
    {4, "FFT_POINTS"},
    {5, "FFT_POINTS_BTW"},
    {6, "FFT_TYPE"},
    {7, "FFT_ACCUM"},
    {8, "FFT_WEIGHT"},
    {9, "FFT_LOG_MODE"},
    {10, "FFT_LOG_LENGTH"},
    {11, "DUTY_CYCLE_TIME"},
    {12, "DUTY_RUN_TIME"},
    {13, "DUTY_IGNORE_TIME_CHANGE"},
    {14, "WAVE_SAMPLE_RATE"},
    {15, "WAVE_FORMAT"},
    {16, "WAVE_BIT_DEPTH"},
    {17, "WAVE_GAIN"},
    {18, "WAVE_ENDIAN"},
    {19, "WAVE_LOG_MODE"},
    {20, "WAVE_LOG_LENGTH"},
    {21, "AUX_MSG"},
    {0x8000, "ARRAY_SERIALS"},
};

} // namespace

void tst_HydJobSettingsTag::everyKeyHasItsName_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<QByteArray>("name");
    for (const auto& [key, name] : kNames)
        QTest::newRow(name) << key << QByteArray(name);
}

void tst_HydJobSettingsTag::everyKeyHasItsName()
{
    QFETCH(int, key);
    QFETCH(QByteArray, name);
    QCOMPARE(QByteArray::fromStdString(HydJobSettingsTag::keyName(static_cast<JobTagKey>(key))), name);
}

void tst_HydJobSettingsTag::namedTagsReadBack_data()
{
    everyKeyHasItsName_data();
}

void tst_HydJobSettingsTag::namedTagsReadBack()
{
    QFETCH(int, key);
    QFETCH(QByteArray, name);
    for (const char* start : {"$", ""}) {
        const auto tag = HydJobSettingsTag::fromString((start + name + "=123").toStdString());
        QVERIFY(tag);
        QCOMPARE(static_cast<int>(tag->key()), key);
        QCOMPARE(QByteArray::fromStdString(tag->toString()), name + "=123");
    }
}

void tst_HydJobSettingsTag::valuesAsText_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<qint64>("number");
    QTest::newRow("zero") << QByteArray("$WAVE_GAIN=0") << qint64{0};
    QTest::newRow("largest") << QByteArray("$WAVE_GAIN=4294967295") << qint64{4294967295};
    QTest::newRow("negative level") << QByteArray("$FFT_REF_LEVEL=-160") << qint64{-160};
    QTest::newRow("lowest level") << QByteArray("$FFT_REF_LEVEL=-2147483648") << qint64{-2147483648};
    QTest::newRow("negative time") << QByteArray("$LOG_START_TIME=-1") << qint64{-1};
    QTest::newRow("blanks around it") << QByteArray("$WAVE_GAIN= \t12\r\n") << qint64{12};
    QTest::newRow("leading zeros") << QByteArray("$WAVE_GAIN=007") << qint64{7};
}

void tst_HydJobSettingsTag::valuesAsText()
{
    QFETCH(QByteArray, text);
    QFETCH(qint64, number);
    const auto tag = HydJobSettingsTag::fromString(text.toStdString());
    QVERIFY(tag);
    QCOMPARE(static_cast<qint64>(tag->number()), number);
    QVERIFY(tag->toString().ends_with('=' + std::to_string(number)));
}

void tst_HydJobSettingsTag::serialLists_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QList<int>>("serials");
    QTest::newRow("empty") << QByteArray() << QList<int>{};
    QTest::newRow("one") << QByteArray("12") << QList<int>{12};
    QTest::newRow("several") << QByteArray("1,65535,3") << QList<int>{1, 65535, 3};
    QTest::newRow("blanks") << QByteArray(" 1 , 2 ") << QList<int>{1, 2};
    QTest::newRow("words count as 0") << QByteArray("1,x,65536,3") << QList<int>{1, 0, 0, 3};
}

void tst_HydJobSettingsTag::serialLists()
{
    QFETCH(QByteArray, value);
    QFETCH(QList<int>, serials);
    const auto tag = HydJobSettingsTag::fromString("$ARRAY_SERIALS=" + value.toStdString());
    const auto list = std::dynamic_pointer_cast<TmiDeviceListTag>(tag);
    QVERIFY(list);
    QCOMPARE(QList<int>(list->deviceList().begin(), list->deviceList().end()), serials);
    QCOMPARE(list->number(), int64_t{0});
    const auto again = HydJobSettingsTag::fromString(list->toString());
    QCOMPARE(hexText(serialized(*again)), hexText(serialized(*list)));
}

void tst_HydJobSettingsTag::classesOfTheirOwn()
{
    QCOMPARE(HydFftAccumTag(5).key(), JobTagFftAccum);
    QCOMPARE(HydSpecSampRateTag(6).key(), JobTagFftRate);
    QCOMPARE(HydWavSampleRateTag(7).key(), JobTagWavRate);
    QCOMPARE(HydFftAccumTag(5).value(), 5U);
    QCOMPARE(HydSpecSampRateTag(6).number(), int64_t{6});
    QCOMPARE(HydWavSampleRateTag(7).toString(), std::string("WAVE_SAMPLE_RATE=7"));
}

void tst_HydJobSettingsTag::foreignTagsKeepTheirBytes()
{
    const auto bytes = bytesOfHex("00ff10");
    const auto tag = HydJobSettingsTag::fromBytes(static_cast<JobTagKey>(500), bytes);
    QVERIFY(tag);
    QCOMPARE(static_cast<int>(tag->key()), 500);
    QCOMPARE(hexText(serialized(*tag)), "00ff10");
    QCOMPARE(tag->toString(), std::string("TAG_500=0,255,16"));
    QCOMPARE(tag->number(), int64_t{0});
    QCOMPARE(serialized(*HydJobSettingsTag::fromBytes(static_cast<JobTagKey>(500), {})).size(), size_t{0});
}

void tst_HydJobSettingsTag::listOfTagsOnTheWire()
{
    QCOMPARE(hexText(tagListBytes(wireTags())), kWireTags);
    const auto bytes = bytesOfHex(kWireTags);
    ByteReader in(bytes);
    JobTagMap map;
    QVERIFY(deserializeTags(in, map));
    QVERIFY(in.atEnd());
    QCOMPARE(map.size(), size_t{4});
    QCOMPARE(map.at(JobTagFftRef)->number(), int64_t{-12});
    QCOMPARE(hexText(tagListBytes(map)), kWireTags);
}

void tst_HydJobSettingsTag::emptyListOfTags()
{
    QCOMPARE(hexText(tagListBytes({})), "0000");
    const auto bytes = bytesOfHex("0000");
    ByteReader in(bytes);
    JobTagMap map;
    QVERIFY(deserializeTags(in, map));
    QVERIFY(map.empty());
}

void tst_HydJobSettingsTag::nullTagsStayAtHome()
{
    QCOMPARE(hexText(tagListBytes(
                 {{JobTagWavGain, nullptr}, {JobTagWavRate, std::make_shared<HydWavSampleRateTag>(1U)}})),
             "0001000e000400000001");
}

void tst_HydJobSettingsTag::keysWithoutAName()
{
    for (const int key : {22, 500, 0x7FFF, 0x8001, 0xFFFF})
        QVERIFY(HydJobSettingsTag::keyName(static_cast<JobTagKey>(key)).empty());
    QCOMPARE(HydNumberTag(static_cast<JobTagKey>(22), 4).toString(), std::string("TAG_22=4"));
}

void tst_HydJobSettingsTag::textsThatAreNoTag_data()
{
    QTest::addColumn<QByteArray>("text");
    for (const char* text :
         {"", "$", "=", "$=", "$=5", "$WAVE_GAIN", "WAVE_GAIN 5", "$wave_gain=5", "$WAVE_GAIN =5",
          " $WAVE_GAIN=5", "$$WAVE_GAIN=5", "$NO_SUCH_KEY=5", "$TAG_500=1"})
        QTest::addRow("'%s'", text) << QByteArray(text);
}

void tst_HydJobSettingsTag::textsThatAreNoTag()
{
    QFETCH(QByteArray, text);
    QVERIFY(!HydJobSettingsTag::fromString(text.toStdString()));
}

void tst_HydJobSettingsTag::valuesThatAreNoNumberCountAsZero_data()
{
    QTest::addColumn<QByteArray>("text");
    for (const char* text :
         {"$WAVE_GAIN=", "$WAVE_GAIN= ", "$WAVE_GAIN=abc", "$WAVE_GAIN=5x", "$WAVE_GAIN=5 6",
          "$WAVE_GAIN=1.5", "$WAVE_GAIN=-1", "$WAVE_GAIN=4294967296", "$WAVE_GAIN=0x10", "$WAVE_GAIN=5=6",
          "$FFT_REF_LEVEL=2147483648", "$FFT_REF_LEVEL=--1"})
        QTest::addRow("'%s'", text) << QByteArray(text);
}

void tst_HydJobSettingsTag::valuesThatAreNoNumberCountAsZero()
{
    QFETCH(QByteArray, text);
    const auto tag = HydJobSettingsTag::fromString(text.toStdString());
    QVERIFY(tag);
    QCOMPARE(tag->number(), int64_t{0});
}

void tst_HydJobSettingsTag::valueOfTheWrongLength_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("size");
    for (const int size : {0, 1, 3, 5, 8})
        QTest::addRow("number of %d bytes", size) << int{JobTagWavRate} << size;
    for (const int size : {1, 3})
        QTest::addRow("serials of %d bytes", size) << int{JobTagDeviceList} << size;
}

void tst_HydJobSettingsTag::valueOfTheWrongLength()
{
    QFETCH(int, key);
    QFETCH(int, size);
    const Bytes value(static_cast<size_t>(size), 1);
    QVERIFY(!HydJobSettingsTag::fromBytes(static_cast<JobTagKey>(key), value));
}

void tst_HydJobSettingsTag::listCutAtAnyByte()
{
    const auto bytes = bytesOfHex(kWireTags);
    for (size_t size = 0; size < bytes.size(); ++size) {
        ByteReader in{std::span(bytes).first(size)};
        JobTagMap map;
        QVERIFY(!deserializeTags(in, map));
    }
}

void tst_HydJobSettingsTag::malformedLists_data()
{
    QTest::addColumn<QByteArray>("hex");
    QTest::addColumn<int>("readBefore");
    QTest::newRow("count without tags") << QByteArray("ffff") << 0;
    QTest::newRow("count too high") << QByteArray("0002000e000400000001") << 1;
    QTest::newRow("length over the end") << QByteArray("0001000effff00000001") << 0;
    QTest::newRow("number too short") << QByteArray("0001000e0003000001") << 0;
    QTest::newRow("number too long") << QByteArray("0001000e00050000000001") << 0;
    QTest::newRow("second tag bad") << QByteArray("0002000e000400000001001100010a") << 1;
}

void tst_HydJobSettingsTag::malformedLists()
{
    QFETCH(QByteArray, hex);
    QFETCH(int, readBefore);
    const auto bytes = bytesOfHex(hex);
    ByteReader in(bytes);
    JobTagMap map;
    QVERIFY(!deserializeTags(in, map));
    QCOMPARE(static_cast<int>(map.size()), readBefore);
}

void tst_HydJobSettingsTag::equalKeysOnTheWireKeepTheLast()
{
    const auto bytes = bytesOfHex("0002000e000400000001000e000400000002");
    ByteReader in(bytes);
    JobTagMap map;
    QVERIFY(deserializeTags(in, map));
    QCOMPARE(map.size(), size_t{1});
    QCOMPARE(map.at(JobTagWavRate)->number(), int64_t{2});
}

void tst_HydJobSettingsTag::listsAroundTheLimit_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("reads");
    QTest::newRow("limit - 1") << 1023 << true;
    QTest::newRow("limit") << 1024 << true;
    QTest::newRow("limit + 1") << 1025 << false;
    QTest::newRow("largest count") << 65535 << false;
}

void tst_HydJobSettingsTag::listsAroundTheLimit()
{
    QFETCH(int, count);
    QFETCH(bool, reads);
    ByteStream out;
    out.putU16(static_cast<uint16_t>(count));
    for (int i = 0; i < count; ++i) {
        out.putU16(static_cast<uint16_t>(0x1000 + i));
        out.putU16(0);
    }
    ByteReader in(out.bytes());
    JobTagMap map;
    QCOMPARE(deserializeTags(in, map), reads);
    QCOMPARE(static_cast<int>(map.size()), reads ? count : 0);
    if (reads)
        QCOMPARE(hexText(tagListBytes(map)), hexText(out.bytes()));
}

QTEST_APPLESS_MAIN(tst_HydJobSettingsTag)
#include "tst_HydJobSettingsTag.moc"
