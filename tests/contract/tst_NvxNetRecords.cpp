#include "NvxQtCommon/contract/identity/NvxNetRecords.h"

#include "tests/contract/ContractSupport.h"
#include "tests/support/NvxTestCase.h"

class tst_NvxNetRecords : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void addresses_data();
    void addresses();
    void macAddress();
    void hostInfoConstructors();
    void hostInfoTravelsWhole();
    // --- rainy day flows
    void textsThatAreNoAddress_data();
    void textsThatAreNoAddress();
    void everyFieldCountsInAComparison_data();
    void everyFieldCountsInAComparison();
    void cutHostInfoIsRefused();
};

namespace {

NvxNetHostInfo fullHostInfo()
{
    NvxNetHostInfo info(0xC0A80105);
    info.setSubnetMask(0xFFFFFF00);
    info.setGateway(0xC0A80101);
    info.setAddressMode(AddrLinkLocal);
    info.setMacAddress(NvxMacAddr({0x00, 0x1B, 0xC5, 0xFE, 0x09, 0xA0}));
    return info;
}

} // namespace

void tst_NvxNetRecords::addresses_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<quint32>("number");
    QTest::newRow("none") << QByteArray("0.0.0.0") << 0U;
    QTest::newRow("first part is the highest byte") << QByteArray("192.168.1.5") << 0xC0A80105U;
    QTest::newRow("all ones") << QByteArray("255.255.255.255") << 0xFFFFFFFFU;
    QTest::newRow("lowest bit") << QByteArray("0.0.0.1") << 1U;
}

void tst_NvxNetRecords::addresses()
{
    QFETCH(QByteArray, text);
    QFETCH(quint32, number);
    QCOMPARE(NvxIpAddr(text.toStdString()).toInt(), number);
    QCOMPARE(QByteArray::fromStdString(NvxIpAddr(number).toString()), text);
    QVERIFY(NvxIpAddr(text.toStdString()) == NvxIpAddr(number));
    QVERIFY(NvxIpAddr(number) != NvxIpAddr(number + 1));
}

void tst_NvxNetRecords::macAddress()
{
    const NvxMacAddr none;
    const NvxMacAddr mac({0x00, 0x1B, 0xC5, 0xFE, 0x09, 0xA0});
    QCOMPARE(none.toString(), std::string("00:00:00:00:00:00"));
    QCOMPARE(mac.toString(), std::string("00:1b:c5:fe:09:a0"));
    const NvxMacAddr copy(mac);
    QVERIFY(copy == mac);
    QVERIFY(!(copy == none));
}

void tst_NvxNetRecords::hostInfoConstructors()
{
    QCOMPARE(NvxNetHostInfo().ipAddress().toInt(), 0U);
    NvxNetHostInfo info(0x01020304);
    QCOMPARE(info.ipAddress().toString(), std::string("1.2.3.4"));
    info.setIpAddress(0x05060708);
    QCOMPARE(info.ipAddress().toString(), std::string("5.6.7.8"));
    QCOMPARE(info.subnetMask().toInt(), 0U);
    QCOMPARE(info.gateway().toInt(), 0U);
    QCOMPARE(info.addressMode(), AddrStatic);
}

void tst_NvxNetRecords::hostInfoTravelsWhole()
{
    const auto bytes = serialized(fullHostInfo());
    QCOMPARE(hexText(bytes), "c0a80105ffffff00c0a8010102001bc5fe09a0");
    NvxNetHostInfo read;
    ByteReader in(bytes);
    QVERIFY(read.deserialize(in));
    QVERIFY(in.atEnd());
    QVERIFY(read == fullHostInfo());
}

void tst_NvxNetRecords::textsThatAreNoAddress_data()
{
    QTest::addColumn<QByteArray>("text");
    for (const char* text : {"", "1", "1.2.3", "1.2.3.", ".1.2.3", "1.2.3.4.", "1.2.3.4.5", "1..2.3",
                             "256.1.1.1", "1.1.1.999", "-1.2.3.4", "+1.2.3.4", " 1.2.3.4", "1.2.3.4 ",
                             "1.2.3.4x", "a.b.c.d", "0x1.2.3.4", "0001.2.3.4", "::1"})
        QTest::addRow("'%s'", text) << QByteArray(text);
}

void tst_NvxNetRecords::textsThatAreNoAddress()
{
    QFETCH(QByteArray, text);
    QCOMPARE(NvxIpAddr(text.toStdString()).toInt(), 0U);
}

void tst_NvxNetRecords::everyFieldCountsInAComparison_data()
{
    QTest::addColumn<int>("byte");
    for (int byte = 0; byte < 19; ++byte)
        QTest::addRow("byte %d", byte) << byte;
}

void tst_NvxNetRecords::everyFieldCountsInAComparison()
{
    QFETCH(int, byte);
    auto bytes = serialized(fullHostInfo());
    bytes[static_cast<size_t>(byte)] = static_cast<uint8_t>(bytes[static_cast<size_t>(byte)] + 1);
    NvxNetHostInfo other;
    ByteReader in(bytes);
    QVERIFY(other.deserialize(in));
    QVERIFY(!(other == fullHostInfo()));
    QVERIFY(other != fullHostInfo());
}

void tst_NvxNetRecords::cutHostInfoIsRefused()
{
    const auto bytes = serialized(fullHostInfo());
    for (size_t size = 0; size < bytes.size(); ++size) {
        NvxNetHostInfo read;
        ByteReader in{std::span(bytes).first(size)};
        QVERIFY(!read.deserialize(in));
    }
}

QTEST_APPLESS_MAIN(tst_NvxNetRecords)
#include "tst_NvxNetRecords.moc"
