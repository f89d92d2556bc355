#include "NvxQtCommon/contract/identity/HydEnums.h"

#include "NvxQtCommon/contract/job/HydJobEnums.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"
#include "NvxQtCommon/contract/message/HydTrigger.h"
#include "tests/support/NvxTestCase.h"

class tst_HydEnums : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void numbersAreFixed_data();
    void numbersAreFixed();
    void widthsAreFixed_data();
    void widthsAreFixed();
    void portIsItsNumber();
    // --- rainy day flows
    void numbersWithoutANameAreCarried();
};

void tst_HydEnums::numbersAreFixed_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<int>("number");
    const auto row = [](const char* name, auto value, int number) {
        QTest::newRow(name) << static_cast<int>(value) << number;
    };
    row("DevTypeAny", DevTypeAny, 0);
    row("DevTypeRecorderA", DevTypeRecorderA, 5);
    row("DevTypeRecorderB", DevTypeRecorderB, 7);
    row("DevTypeTmi", DevTypeTmi, 8);
    row("DevTypeTdRec", DevTypeTdRec, 13);
    row("DevTypeSkiff", DevTypeSkiff, 15);
    row("DevTypeZcr", DevTypeZcr, 16);
    row("DevTypeSpecFile", DevTypeSpecFile, 67);
    row("DevTypeWavFile", DevTypeWavFile, 68);
    row("ConnTcp", ConnTcp, 0);
    row("ConnSerial", ConnSerial, 1);
    row("ChanCommand", ChanCommand, 0);
    row("PortMarco", PortMarco, 62726);
    row("PortControl", PortControl, 50000);
    row("PortUnavailable", PortUnavailable, 1);
    row("PortReachable", PortReachable, 2);
    row("PortConnected", PortConnected, 3);
    row("HostReachable", HostReachable, 0);
    row("HostUnreachable", HostUnreachable, 1);
    row("HostNoAddress", HostNoAddress, 2);
    row("PingOk", PingOk, 1);
    row("PingFailed", PingFailed, 3);
    row("ConfigNone", ConfigNone, 0);
    row("ConfigPending", ConfigPending, 1);
    row("ConfigConfirmed", ConfigConfirmed, 2);
    row("ConfigRejected", ConfigRejected, 3);
    row("BattUnknown", BattUnknown, 0);
    row("BattDischarging", BattDischarging, 1);
    row("BattCharging", BattCharging, 2);
    row("BattFull", BattFull, 3);
    row("BattExternal", BattExternal, 4);
    row("AddrStatic", AddrStatic, 0);
    row("AddrDhcp", AddrDhcp, 1);
    row("AddrLinkLocal", AddrLinkLocal, 2);
    row("JobSetupDefault", JobSetupDefault, 20);
    row("JobTagAuxFunc", JobTagAuxFunc, 0);
    row("JobTagWavLogStartTime", JobTagWavLogStartTime, 1);
    row("JobTagFftRate", JobTagFftRate, 2);
    row("JobTagFftRef", JobTagFftRef, 3);
    row("JobTagFftPoints", JobTagFftPoints, 4);
    row("JobTagFftPointsBtw", JobTagFftPointsBtw, 5);
    row("JobTagFftProcType", JobTagFftProcType, 6);
    row("JobTagFftAccum", JobTagFftAccum, 7);
    row("JobTagFftWeight", JobTagFftWeight, 8);
    row("JobTagFftLogMode", JobTagFftLogMode, 9);
    row("JobTagFftLogLen", JobTagFftLogLen, 10);
    row("JobTagDutyCyclePeriod", JobTagDutyCyclePeriod, 11);
    row("JobTagDutyCycleActive", JobTagDutyCycleActive, 12);
    row("JobTagDutyCycleIgn", JobTagDutyCycleIgn, 13);
    row("JobTagWavRate", JobTagWavRate, 14);
    row("JobTagWavDataFormat", JobTagWavDataFormat, 15);
    row("JobTagWavBitDepth", JobTagWavBitDepth, 16);
    row("JobTagWavGain", JobTagWavGain, 17);
    row("JobTagWavByteOrder", JobTagWavByteOrder, 18);
    row("JobTagWavLogMode", JobTagWavLogMode, 19);
    row("JobTagWavLogLen", JobTagWavLogLen, 20);
    row("JobTagAuxMsg", JobTagAuxMsg, 21);
    row("JobTagDeviceList", JobTagDeviceList, 0x8000);
    row("LogOff", LogOff, 0);
    row("LogOn", LogOn, 1);
    row("OrderLittleEndian", OrderLittleEndian, 0);
    row("OrderBigEndian", OrderBigEndian, 1);
    row("TestTypeNone", TestTypeNone, 0);
    row("TestTypeAbove", TestTypeAbove, 5);
    row("TestTypeBelow", TestTypeBelow, 6);
    row("DataCollSpec", DataCollSpec, 16);
    row("DataCollWav", DataCollWav, 32);
    row("DataCollSpecTime", DataCollSpecTime, 4096);
    row("DataCollWavTime", DataCollWavTime, 8192);
    row("kMoreData", HydDataCollectCmd::kMoreData, 0x80);
}

void tst_HydEnums::numbersAreFixed()
{
    QFETCH(int, value);
    QFETCH(int, number);
    QCOMPARE(value, number);
}

void tst_HydEnums::widthsAreFixed_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("expected");
    const auto row = [](const char* name, size_t width, int expected) {
        QTest::newRow(name) << static_cast<int>(width) << expected;
    };
    row("HydDeviceType", sizeof(HydDeviceType), 1);
    row("HydConnectionType", sizeof(HydConnectionType), 1);
    row("HydChannel", sizeof(HydChannel), 1);
    row("HydPort", sizeof(HydPort), 2);
    row("HydPortConnStatus", sizeof(HydPortConnStatus), 1);
    row("HydNetworkStatus", sizeof(HydNetworkStatus), 1);
    row("NvxPingResult", sizeof(NvxPingResult), 1);
    row("HydConfigStat", sizeof(HydConfigStat), 1);
    row("HydBattStatus", sizeof(HydBattStatus), 1);
    row("NvxAddrMode", sizeof(NvxAddrMode), 1);
    row("JobSetupType", sizeof(JobSetupType), 2);
    row("TEST_TYPE", sizeof(TEST_TYPE), 1);
    row("DataCollMask", sizeof(DataCollMask), 2);
    row("JobTagKey", sizeof(JobTagKey), 2);
    row("AuxPinFunc", sizeof(AuxPinFunc), 2);
    row("AuxPinMsg", sizeof(AuxPinMsg), 4);
    row("SampRate", sizeof(SampRate), 4);
    row("HydFftProc", sizeof(HydFftProc), 2);
    row("HydLogMode", sizeof(HydLogMode), 2);
    row("HydWavDataFormat", sizeof(HydWavDataFormat), 1);
    row("HydWavBitDepth", sizeof(HydWavBitDepth), 1);
    row("HydByteOrder", sizeof(HydByteOrder), 1);
}

void tst_HydEnums::widthsAreFixed()
{
    QFETCH(int, width);
    QFETCH(int, expected);
    QCOMPARE(width, expected);
}

void tst_HydEnums::portIsItsNumber()
{
    for (const unsigned number : {1U, 51678U, 65535U})
        QCOMPARE(static_cast<unsigned>(static_cast<HydPort>(number)), number);
}

void tst_HydEnums::numbersWithoutANameAreCarried()
{
    QCOMPARE(static_cast<int>(static_cast<HydDeviceType>(99)), 99);
    QCOMPARE(static_cast<int>(static_cast<HydBattStatus>(200)), 200);
    QCOMPARE(static_cast<int>(static_cast<HydLogMode>(65535)), 65535);
}

QTEST_APPLESS_MAIN(tst_HydEnums)
#include "tst_HydEnums.moc"
