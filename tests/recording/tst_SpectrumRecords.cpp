#include "NvxQtCommon/contract/recording/DetectorData.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"
#include "NvxQtCommon/contract/recording/NvxWavTimeData.h"
#include "NvxQtCommon/contract/recording/SensorData.h"
#include "SpectrumStream.h"
#include "tests/support/NvxTestCase.h"

#include <limits>
#include <type_traits>

namespace {

constexpr uint32_t kTime = 1709210096; // 2024-02-29 12:34:56 UTC

using Fields = QList<QByteArray>;

Fields fieldsOf(const NvxComSpectrumEventData& record)
{
    std::string line;
    record.appendLine(line);
    return QByteArray::fromStdString(line).split('\t');
}

Fields titlesOf(const NvxComSpectrumEventData& record)
{
    std::string line;
    record.appendTitles(line, NvxSpectrumFileHeader());
    return QByteArray::fromStdString(line).split('\t');
}

} // namespace

class tst_SpectrumRecords : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void statistics()
    {
        const auto record =
            NvxSpectrumStatsData::fromStreamData(std::make_shared<SWavStatistics>(makeStatistics(kTime)));
        QCOMPARE(record->fileKind(FftModeSpectrum), FftModeWavStats);
        QCOMPARE(record->dataTime(), 1709210096ULL);
        QCOMPARE(record->seqNum(), 5000000001ULL);
        record->setComment("c");
        QCOMPARE(
            fieldsOf(*record),
            (Fields{"2024-02-29 12:34:56", "c", QByteArray::fromStdString(deviceTypeText(DevTypeRecorderB)),
                    "77", "5000000001", "1.5", "100.25", "120.5", "126.1", "102.75", "133"}));
        QCOMPARE(titlesOf(*record),
                 (Fields{"Time", "Comment", "Device", "Serial", "First sample", "Duration (s)",
                         "RMS (dB re 1 uPa)", "Peak (dB re 1 uPa)", "Peak to peak (dB re 1 uPa)",
                         "SEL (dB re 1 uPa2s)", "Cumulative SEL (dB re 1 uPa2s)"}));
    }

    void impulse()
    {
        const auto record =
            NvxImpulseData::fromStreamData(std::make_shared<SImpulseStatistics>(makeImpulse(kTime)));
        QCOMPARE(record->fileKind(FftModeSpectrum), FftModeImpulse);
        QCOMPARE(record->seqNum(), 5000000001ULL);
        record->setComment("c");
        QCOMPARE(fieldsOf(*record),
                 (Fields{"2024-02-29 12:34:56", "c",
                         QByteArray::fromStdString(deviceTypeText(DevTypeRecorderB)), "77", "5000000001",
                         "5000000011", "5000000101", "0.25", "0.125", "150.5", "170.25", "176.1", "144.75"}));
        QCOMPARE(titlesOf(*record),
                 (Fields{"Time", "Comment", "Device", "Serial", "First sample", "Peak sample",
                         "Sample behind", "Duration (s)", "90 % duration (s)", "RMS (dB re 1 uPa)",
                         "Peak (dB re 1 uPa)", "Peak to peak (dB re 1 uPa)", "SEL (dB re 1 uPa2s)"}));
    }

    void click()
    {
        const auto record =
            NvxClickData::fromStreamData(std::make_shared<SClickStatistics>(makeClick(kTime)));
        QCOMPARE(record->fileKind(FftModeSpectrum), FftModeClick);
        QCOMPARE(record->dataTime(), 1709210096ULL);
        QCOMPARE(fieldsOf(*record).size(), titlesOf(*record).size());
        QCOMPARE(fieldsOf(*record).value(12), QByteArray("144.75"));
        QCOMPARE(fieldsOf(*record).last(), QByteArray("130250.5"));
        QCOMPARE(titlesOf(*record).last(), QByteArray("Peak frequency (Hz)"));
    }

    void accelerometerAndMagnetometer()
    {
        const auto record = NvxAccMagData::fromStreamData(makeSensorStatus());
        record->setDevInfo(HydDeviceId(DevTypeRecorderA, 42));
        QVERIFY(record->devInfo() == HydDeviceId(DevTypeRecorderA, 42));
        record->setDataTime(kTime);
        record->setComment("c");
        QCOMPARE(record->fileKind(FftModeSpectrum), FftModeAccMag);
        QCOMPARE(
            fieldsOf(*record),
            (Fields{"2024-02-29 12:34:56", "c", QByteArray::fromStdString(deviceTypeText(DevTypeRecorderA)),
                    "42", "0.012", "-0.034", "1.001", "20.1", "-30.2", "45.5", "359.9", "-1.5", "2.2"}));
        QCOMPARE(titlesOf(*record),
                 (Fields{"Time", "Comment", "Device", "Serial", "Acceleration x (g)", "Acceleration y (g)",
                         "Acceleration z (g)", "Magnetic field x (uT)", "Magnetic field y (uT)",
                         "Magnetic field z (uT)", "Heading (deg)", "Pitch (deg)", "Roll (deg)"}));
    }

    void battery()
    {
        const auto record = NvxBatteryData::fromStreamData(makeSensorStatus());
        record->setDevInfo(HydDeviceId(DevTypeRecorderA, 42));
        QVERIFY(record->devInfo() == HydDeviceId(DevTypeRecorderA, 42));
        record->setDataTime(kTime);
        QCOMPARE(record->fileKind(FftModeSpectrum), FftModeBattery);
        QCOMPARE(fieldsOf(*record), (Fields{"2024-02-29 12:34:56", "",
                                            QByteArray::fromStdString(deviceTypeText(DevTypeRecorderA)), "42",
                                            "12.345", "-0.25", "88", "2", "21.5"}));
        QCOMPARE(titlesOf(*record),
                 (Fields{"Time", "Comment", "Device", "Serial", "Voltage (V)", "Current (A)", "Charge (%)",
                         "State", "Battery temperature (C)"}));
    }

    void timing()
    {
        auto info = std::make_shared<NvxWavTestInfoData>();
        info->time = kTime;
        info->curTime = 1709210096123;
        info->seqNum = 5;
        info->filename = L"Test_Time_\u00e4";
        info->deviceType = DevTypeRecorderA;
        info->serialNo = 4711;
        const auto record = NvxWavTimeData::fromWavTestData(info);
        QVERIFY(!record->sizeData() && !record->procTime());
        QCOMPARE(record->fileKind(FftModeSpectrum), FftModeWavTime);
        const QByteArray device = QByteArray::fromStdString(deviceTypeText(DevTypeRecorderA));
        QCOMPARE(fieldsOf(*record), (Fields{"2024-02-29 12:34:56", "", device, "4711", "1709210096123", "5",
                                            "", "", "Test_Time_\xC3\xA4"}));
        record->setSizeData(-7);
        record->setProcTime(1001);
        record->setComment("quiet");
        QCOMPARE(fieldsOf(*record), (Fields{"2024-02-29 12:34:56", "quiet", device, "4711", "1709210096123",
                                            "5", "-7", "1001", "Test_Time_\xC3\xA4"}));
        QCOMPARE(titlesOf(*record), (Fields{"Time", "Comment", "Device", "Serial", "Computer time (ms)",
                                            "Sequence", "Samples", "Elapsed (ms)", "Name"}));
    }

    void basesAreThoseOfTheFamily()
    {
        QVERIFY((std::is_base_of_v<NvxSpectrumEventData, NvxSpectrumFileHeader>));
        QVERIFY((std::is_base_of_v<NvxSpectrumEventData, NvxComSpectrumEventData>));
        QVERIFY((std::is_base_of_v<NvxComSpectrumEventData, NvxSpectrumStatsData>));
        QVERIFY((std::is_base_of_v<NvxComSpectrumEventData, NvxBatteryData>));
        QVERIFY((std::has_virtual_destructor_v<NvxSpectrumEventData>));
    }

    // --- rainy day flows
    void nothingGivesNoRecord()
    {
        QVERIFY(NvxSpectrumStatsData::fromStreamData(nullptr) == nullptr);
        QVERIFY(NvxImpulseData::fromStreamData(nullptr) == nullptr);
        QVERIFY(NvxClickData::fromStreamData(nullptr) == nullptr);
        QVERIFY(NvxAccMagData::fromStreamData(nullptr) == nullptr);
        QVERIFY(NvxBatteryData::fromStreamData(nullptr) == nullptr);
        QVERIFY(NvxWavTimeData::fromWavTestData(nullptr) == nullptr);
    }

    void missingChunksLeaveEmptyColumns()
    {
        const auto empty = std::make_shared<HydStatusDataPayload>();
        const auto accMag = NvxAccMagData::fromStreamData(empty);
        QCOMPARE(fieldsOf(*accMag).size(), titlesOf(*accMag).size());
        QCOMPARE(fieldsOf(*accMag).mid(4), Fields(9));
        const auto battery = NvxBatteryData::fromStreamData(empty);
        QCOMPARE(fieldsOf(*battery).size(), titlesOf(*battery).size());
        QCOMPARE(fieldsOf(*battery).mid(4), Fields(5));
    }

    void silenceHasItsLevel()
    {
        SWavStatistics statistics = makeStatistics(kTime);
        statistics.splRms = -std::numeric_limits<float>::infinity();
        QCOMPARE(fieldsOf(NvxSpectrumStatsData(statistics)).value(6), QByteArray("-inf"));
    }

    void breaksInACommentStayInIt()
    {
        NvxImpulseData record(makeImpulse(kTime));
        record.setComment("a\tb\nc");
        QCOMPARE(fieldsOf(record).value(1), QByteArray("a b c"));
        QCOMPARE(fieldsOf(record).size(), titlesOf(record).size());
    }
};

QTEST_GUILESS_MAIN(tst_SpectrumRecords)
#include "tst_SpectrumRecords.moc"
