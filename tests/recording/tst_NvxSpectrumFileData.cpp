#include "NvxQtCommon/contract/recording/NvxSpectrumFileData.h"
#include "NvxQtCommon/contract/recording/NvxSpectrumFileHeader.h"
#include "SpectrumStream.h"
#include "tests/support/NvxTestCase.h"

#include <numeric>
#include <random>

namespace {

constexpr uint32_t kTime = 1709210096; // 2024-02-29 12:34:56 UTC
constexpr const char* kDate = "2024-02-29";

QByteArray lineOf(const NvxComSpectrumEventData& record)
{
    std::string line;
    record.appendLine(line);
    return QByteArray::fromStdString(line);
}

bool read(NvxSpectrumFileData& record, const QByteArray& text, unsigned long long start = kTime)
{
    std::string line = text.toStdString();
    return record.deserialise(line, start, kDate);
}

std::vector<uint8_t> bytesOf(NvxSpectrumFileData& record)
{
    return {record.spectrum(), record.spectrum() + record.numBins()};
}

std::vector<double> valuesOf(NvxSpectrumFileData& record)
{
    return {record.dSpectrum(), record.dSpectrum() + record.numBins()};
}

} // namespace

class tst_NvxSpectrumFileData : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void payloadGivesTimeAndBytes()
    {
        const SpectrumStream stream;
        const std::vector<uint8_t> bytes{0, 1, 9, 10, 99, 100, 255};
        const auto record = NvxSpectrumFileData::fromStreamData(*stream.spectrum(kTime, 7, 8, bytes));
        QCOMPARE(record->dataTime(), 1709210096ULL);
        QCOMPARE(record->numBins(), 7);
        QVERIFY(bytesOf(*record) == bytes);
        QVERIFY(!record->isDSpectrum());
        QVERIFY(record->dSpectrum() == nullptr);
        record->setComment("quiet\tsea\nhere");
        record->setTemperature(12.3F);
        record->setHumidity(45.6F);
        record->setSeqNum(5000000001);
        QCOMPARE(lineOf(*record), QByteArray("2024-02-29 12:34:56\tquiet sea here\t12.3\t45.6\t5000000001"
                                             "\t0\t1\t9\t10\t99\t100\t255"));
    }

    void recordIsACopy()
    {
        const SpectrumStream stream;
        const auto payload = stream.spectrum(kTime, 0, 0, {1, 2, 3});
        const auto record = NvxSpectrumFileData::fromStreamData(*payload);
        payload->data()->bytes()[1] = 200;
        QVERIFY(bytesOf(*record) == (std::vector<uint8_t>{1, 2, 3}));
    }

    void filteredPayloadGivesDecimals()
    {
        const SpectrumStream stream;
        const auto record =
            NvxSpectrumFileData::fromStreamData(*stream.filtered(kTime, {1.5, -0.1, 1.0 / 3.0}));
        QVERIFY(record->isDSpectrum());
        QCOMPARE(lineOf(*record),
                 QByteArray("2024-02-29 12:34:56\t\t0\t0\t0\t1.5\t-0.1\t0.3333333333333333"));
        NvxSpectrumFileData back;
        QVERIFY(read(back, lineOf(*record)));
        QVERIFY(valuesOf(back) == (std::vector<double>{1.5, -0.1, 1.0 / 3.0}));
    }

    void valuesWithoutTheMarkAreBytes()
    {
        const SpectrumStream stream;
        const auto payload = stream.filtered(kTime, {1.5, 2.5});
        payload->setNoiseFiltered(false);
        const auto record = NvxSpectrumFileData::fromStreamData(*payload);
        QVERIFY(!record->isDSpectrum());
        QVERIFY(bytesOf(*record) == (std::vector<uint8_t>{7, 7}));
    }

    void everyByteReadsBack()
    {
        std::vector<uint8_t> bytes(256);
        std::iota(bytes.begin(), bytes.end(), uint8_t{0});
        const SpectrumStream stream;
        const auto record = NvxSpectrumFileData::fromStreamData(*stream.spectrum(kTime, 0, 0, bytes));
        record->setComment("a \"quoted\" comment, with a comma");
        record->setTemperature(-1.25F);
        record->setHumidity(99.9F);
        record->setSeqNum(UINT64_MAX);
        NvxSpectrumFileData back;
        QVERIFY(read(back, lineOf(*record)));
        QVERIFY(bytesOf(back) == bytes);
        QVERIFY(!back.isDSpectrum());
        QCOMPARE(back.dataTime(), record->dataTime());
        QCOMPARE(back.comment(), record->comment());
        QCOMPARE(back.temperature(), -1.25F);
        QCOMPARE(back.humidity(), 99.9F);
        QCOMPARE(back.seqNum(), static_cast<unsigned long long>(UINT64_MAX));
    }

    void everyDoubleReadsBackToTheBit()
    {
        std::mt19937_64 random(20240229);
        std::vector<double> values;
        for (int i = 0; i < 1000; ++i)
            values.push_back(
                std::ldexp(static_cast<double>(random()) - 9.2e18, static_cast<int>(random() % 64) - 90));
        const SpectrumStream stream;
        const auto record = NvxSpectrumFileData::fromStreamData(*stream.filtered(kTime, values));
        NvxSpectrumFileData back;
        QVERIFY(read(back, lineOf(*record)));
        QVERIFY(valuesOf(back) == values);
    }

    void decimalsFillTheBytesToo()
    {
        NvxSpectrumFileData record;
        QVERIFY(read(record, "2024-02-29 12:34:56\t\t0\t0\t0\t-3.2\t0.49\t0.5\t254.5\t999"));
        QVERIFY(record.isDSpectrum());
        QVERIFY(bytesOf(record) == (std::vector<uint8_t>{0, 0, 1, 255, 255}));
        QVERIFY(valuesOf(record) == (std::vector<double>{-3.2, 0.49, 0.5, 254.5, 999.0}));
    }

    void recordIsUsedForOneLineAfterTheOther()
    {
        NvxSpectrumFileData record;
        QVERIFY(read(record, "2024-02-29 12:34:56\tx\t1\t2\t3\t4.5\t6"));
        QVERIFY(read(record, "2024-02-29 12:34:57\t\t1\t2\t3\t7\t8\t9"));
        QVERIFY(!record.isDSpectrum());
        QVERIFY(bytesOf(record) == (std::vector<uint8_t>{7, 8, 9}));
        QVERIFY(read(record, "2024-02-29 12:34:58\t\t1\t2\t3"));
        QCOMPARE(record.numBins(), 0);
        QVERIFY(record.spectrum() == nullptr);
    }

    void timeOfDayCountsFromTheHeader_data()
    {
        QTest::addColumn<QByteArray>("time");
        QTest::addColumn<qlonglong>("expected");
        QTest::newRow("start") << QByteArray("12:34:56") << qlonglong(kTime);
        QTest::newRow("later") << QByteArray("12:35:00") << qlonglong(kTime) + 4;
        QTest::newRow("most of a day later")
            << QByteArray("11:30:00") << qlonglong(kTime) - 45296 + 86400 + 41400;
        QTest::newRow("a second before the start") << QByteArray("12:34:55") << qlonglong(kTime) - 1;
        QTest::newRow("over midnight") << QByteArray("00:00:10") << qlonglong(kTime) - 45296 + 86400 + 10;
    }
    void timeOfDayCountsFromTheHeader()
    {
        QFETCH(QByteArray, time);
        QFETCH(qlonglong, expected);
        NvxSpectrumFileData record;
        QVERIFY(read(record, time + "\t\t1\t2\t3\t4"));
        QCOMPARE(qlonglong(record.dataTime()), expected);
    }

    void timeOfDayRollsOverEveryMidnight()
    {
        NvxSpectrumFileData record;
        const qlonglong midnight = qlonglong(kTime) - 45296;
        for (int hour = 13; hour < 13 + 72; ++hour) {
            const QByteArray time = QByteArray::number(hour % 24).rightJustified(2, '0') + ":00:00";
            QVERIFY(read(record, time + "\t\t1\t2\t3\t4"));
            QCOMPARE(qlonglong(record.dataTime()), midnight + 3600LL * hour);
        }
        // Another file begins at its own start.
        QVERIFY(read(record, "13:00:00\t\t1\t2\t3\t4", kTime + 1));
        QCOMPARE(qlonglong(record.dataTime()), midnight + 3600LL * 13);
    }

    void timeOfDayFollowsOnALongPause()
    {
        NvxSpectrumFileData record;
        const qlonglong midnight = qlonglong(kTime) - 45296;
        QVERIFY(read(record, "08:00:00\t\t1\t2\t3\t4", static_cast<unsigned long long>(midnight) + 8 * 3600));
        QVERIFY(read(record, "21:00:00\t\t1\t2\t3\t4", static_cast<unsigned long long>(midnight) + 8 * 3600));
        QCOMPARE(qlonglong(record.dataTime()), midnight + 21 * 3600);
        QVERIFY(read(record, "10:00:00\t\t1\t2\t3\t4", static_cast<unsigned long long>(midnight) + 8 * 3600));
        QCOMPARE(qlonglong(record.dataTime()), midnight + 34 * 3600);
    }

    void timeOfDayOfAnImpossibleStart()
    {
        NvxSpectrumFileData record;
        std::string line = "12:35:00\t\t1\t2\t3\t4";
        QVERIFY(record.deserialise(line, UINT64_MAX, "no date"));
        QVERIFY(record.dataTime() > 253402200000ULL);
    }

    void timeOfDayWithoutADateTakesTheStart()
    {
        NvxSpectrumFileData record;
        std::string line = "12:35:00\t\t1\t2\t3\t4";
        QVERIFY(record.deserialise(line, kTime, "no date"));
        QCOMPARE(qlonglong(record.dataTime()), qlonglong(kTime) + 4);
    }

    void titlesAreFrequencies()
    {
        const SpectrumStream stream;
        const auto header =
            NvxSpectrumFileHeader::fromEventHdr(*stream.header(kTime, 0), nullptr, FftModeSpectrum);
        const auto record = NvxSpectrumFileData::fromStreamData(*stream.spectrum(kTime, 0, 0, {1, 2, 3, 4}));
        QCOMPARE(
            titles(*record, *header),
            QByteArray("Time\tComment\tTemperature (C)\tHumidity (%)\tSequence\t0\t46.875\t93.75\t140.625"));
        NvxSpectrumFileHeader without;
        without.setSampleRate(8000);
        QVERIFY(titles(*record, without).endsWith("\t0\t1000\t2000\t3000"));
        without.setNumPts(1024);
        without.setSampleRate(1024 * 100000);
        QVERIFY(titles(*record, without).endsWith("\t0\t100000\t200000\t300000"));
        NvxSpectrumFileHeader empty;
        QVERIFY(titles(*record, empty).endsWith("\t0\t0\t0\t0"));
        QCOMPARE(titles(NvxSpectrumFileData(), empty),
                 QByteArray("Time\tComment\tTemperature (C)\tHumidity (%)\tSequence"));
    }

    void kindFollowsTheHeaderAsFarAsItIsOneOfSpectra()
    {
        const NvxSpectrumFileData record;
        QCOMPARE(record.fileKind(FftModeSpectrum), FftModeSpectrum);
        QCOMPARE(record.fileKind(FftModeNoise), FftModeNoise);
        QCOMPARE(int(record.fileKind(FFTMode(3))), 3);
        for (const FFTMode mode :
             {FftModeWavStats, FftModeImpulse, FftModeAccMag, FftModeBattery, FftModeWavTime, FftModeClick})
            QCOMPARE(record.fileKind(mode), FftModeSpectrum);
    }

    void layoutTellsCountAndForm()
    {
        const SpectrumStream stream;
        const auto layout = [](const std::shared_ptr<HydStreamDataPayload>& payload) {
            return NvxSpectrumFileData::fromStreamData(*payload)->columnLayout();
        };
        const uint32_t three = layout(stream.spectrum(kTime, 0, 0, {1, 2, 3}));
        QCOMPARE(layout(stream.spectrum(kTime + 1, 5, 0, {4, 5, 6})), three);
        QVERIFY(layout(stream.spectrum(kTime, 0, 0, {1, 2})) != three);
        QVERIFY(layout(stream.filtered(kTime, {1, 2, 3})) != three);
    }

    // --- rainy day flows
    void payloadWithoutData()
    {
        const auto record = NvxSpectrumFileData::fromStreamData(HydStreamDataPayload(nullptr, nullptr));
        QCOMPARE(record->numBins(), 0);
        QCOMPARE(record->dataTime(), 0ULL);
        const HydStreamDataPayload empty(
            nullptr, std::make_shared<HydStreamDataChunkV0>(0U, uint8_t{1}, uint8_t{131}, uint16_t{9},
                                                            static_cast<unsigned char*>(nullptr), false));
        QCOMPARE(NvxSpectrumFileData::fromStreamData(empty)->numBins(), 0);
    }

    void countThatTheBytesDontHold()
    {
        const HydStreamDataPayload payload(
            nullptr,
            std::make_shared<HydStreamDataChunkV0>(0U, uint8_t{1}, uint8_t{131}, uint16_t{65535}, 4U, false));
        QCOMPARE(NvxSpectrumFileData::fromStreamData(payload)->numBins(), 4);
    }

    void formatByteWithoutBytes()
    {
        const HydStreamDataPayload payload(
            nullptr, std::make_shared<HydStreamDataChunkV0>(0U, uint8_t{1}, uint8_t{0}, uint16_t{3},
                                                            new unsigned char[3]{1, 2, 3}, false));
        QCOMPARE(NvxSpectrumFileData::fromStreamData(payload)->numBins(), 3);
    }

    void mostBins()
    {
        const SpectrumStream stream;
        const auto record = NvxSpectrumFileData::fromStreamData(
            *stream.spectrum(kTime, 0, 0, std::vector<uint8_t>(65535, 200)));
        NvxSpectrumFileData back;
        QVERIFY(read(back, lineOf(*record)));
        QCOMPARE(back.numBins(), 65535);
        QVERIFY(!read(back, lineOf(*record) + "\t1"));
        QCOMPARE(back.numBins(), 65535);
    }

    void whatIsNoRecord_data()
    {
        QTest::addColumn<QByteArray>("line");
        const QByteArray good = "2024-02-29 12:34:56\tx\t1.5\t2.5\t3";
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("titles") << QByteArray("Time\tComment\tTemperature (C)\tHumidity (%)\tSequence\t0\t1");
        QTest::newRow("four columns") << QByteArray("2024-02-29 12:34:56\tx\t1.5\t2.5");
        QTest::newRow("time alone") << QByteArray("2024-02-29 12:34:56");
        QTest::newRow("wrong date") << QByteArray("2024-02-30 12:34:56\tx\t1.5\t2.5\t3\t4");
        QTest::newRow("before 1970") << QByteArray("1969-02-28 12:34:56\tx\t1.5\t2.5\t3\t4");
        QTest::newRow("temperature") << QByteArray("2024-02-29 12:34:56\tx\twarm\t2.5\t3\t4");
        QTest::newRow("temperature is no number") << QByteArray("2024-02-29 12:34:56\tx\tnan\t2.5\t3\t4");
        QTest::newRow("humidity") << QByteArray("2024-02-29 12:34:56\tx\t1.5\tinf\t3\t4");
        QTest::newRow("sequence") << QByteArray("2024-02-29 12:34:56\tx\t1.5\t2.5\t-3\t4");
        QTest::newRow("empty bin") << good + "\t4\t\t5";
        QTest::newRow("empty last bin") << good + "\t4\t";
        QTest::newRow("word") << good + "\t4\tfive";
        QTest::newRow("no number") << good + "\t4\tnan";
        QTest::newRow("infinite") << good + "\t4.5\t-inf";
        QTest::newRow("too great") << good + "\t4\t1e999";
        QTest::newRow("blank") << good + "\t4\t 5";
        QTest::newRow("NUL") << good + "\t4\t5" + QByteArray(1, '\0');
    }
    void whatIsNoRecord()
    {
        QFETCH(QByteArray, line);
        NvxSpectrumFileData record;
        QVERIFY(read(record, "2024-02-29 12:34:50\tkept\t1\t2\t3\t4\t5"));
        QVERIFY(!read(record, line));
        QCOMPARE(record.comment(), std::string("kept"));
        QCOMPARE(record.dataTime(), 1709210090ULL);
        QVERIFY(bytesOf(record) == (std::vector<uint8_t>{4, 5}));
    }

    void cutLineHasTheBinsThatAreLeft()
    {
        NvxSpectrumFileData record;
        QVERIFY(read(record, "2024-02-29 12:34:56\tx\t1.5\t2.5\t3\t4\t5"));
        QCOMPARE(record.numBins(), 2);
        QVERIFY(read(record, "2024-02-29 12:34:56\tx\t1.5\t2.5\t3\t4\t5\r"));
        QCOMPARE(record.numBins(), 2);
    }

private:
    static QByteArray titles(const NvxSpectrumFileData& record, const NvxSpectrumFileHeader& header)
    {
        std::string text;
        record.appendTitles(text, header);
        return QByteArray::fromStdString(text);
    }
};

QTEST_GUILESS_MAIN(tst_NvxSpectrumFileData)
#include "tst_NvxSpectrumFileData.moc"
