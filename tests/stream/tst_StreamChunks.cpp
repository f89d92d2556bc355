#include "NvxQtCommon/contract/stream/StreamChunks.h"
#include "tests/stream/StreamBytes.h"
#include "tests/stream/VirtualOrder.h"
#include "tests/support/NvxTestCase.h"

#include <functional>
#include <optional>

class tst_StreamChunks : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void keyReadsItsRecord();
    void virtualFunctionsOfTheKeyKeepTheirPlaces();
    void eventIdIsTheTimeAsAnUnsignedNumber_data();
    void eventIdIsTheTimeAsAnUnsignedNumber();
    void sequenceIsTwoWordsInHostOrder_data();
    void sequenceIsTwoWordsInHostOrder();
    void lastEventIsAByteOfTheKey();
    void deviceInfoReadsItsRecord();
    void statusReadsItsRecord();
    void wavSetupReadsItsRecord();
    void bit7OfAWavSetupMeansBigEndian_data();
    void bit7OfAWavSetupMeansBigEndian();
    void fftSetupReadsItsRecord();
    void scalingReadsItsRecord();
    void headingReadsItsRecord();
    void headingIsAssignedInPlace();
    void sensorChunksReadTheirRecords();
    void chunksKeepACopyOfTheRecord();
    void freshRecordsAreZeroButForTheOnes();
    void chunksHaveTheirTypeNumbers();
    void bodiesGoOverTheWireAndBack_data() { chunkRows(); }
    void bodiesGoOverTheWireAndBack();
    void aLongerBodyIsAccepted_data() { chunkRows(); }
    void aLongerBodyIsAccepted();
    void containerHoldsOneSetup();
    // --- rainy day flows
    void aBodyCutAtAnyByteIsRefused_data() { chunkRows(); }
    void aBodyCutAtAnyByteIsRefused();
    void negativeValuesKeepTheirSign();
    void anEmptyContainerGivesNull();

private:
    void chunkRows();
};

namespace {

/// Reads a body as one kind of chunk and writes it again; empty when it doesn't read.
using Transcribe = std::function<std::optional<Bytes>(const Bytes&)>;

template <class Chunk> Transcribe transcriber()
{
    return [](const Bytes& body) -> std::optional<Bytes> {
        const auto chunk = chunkFromWire<Chunk>(body);
        return chunk ? std::optional(wireOf(*chunk)) : std::nullopt;
    };
}

} // namespace

void tst_StreamChunks::chunkRows()
{
    QTest::addColumn<Transcribe>("transcribe");
    QTest::addColumn<QByteArray>("body");
    const auto row = [](const char* name, const Transcribe& transcribe, const char* hex) {
        QTest::newRow(name) << transcribe << QByteArray::fromHex(hex);
    };
    row("key", transcriber<HydEventKeyChunkV1>(), "80000001 fedcba98 76543210 11 12 01 00");
    row("device", transcriber<HydDeviceInfoChunkV1>(), "0f 00 8123 8456 f94a");
    row("status", transcriber<HydStreamStatusChunkV0>(), "ff38 01f4 81 82 0100");
    row("wave setup", transcriber<HydWavSetupChunk>(), "0007d000 fffd 83 01");
    row("spectrum setup", transcriber<HydFftSetupChunkV1>(), "8007d000 8400 ff4c 8004 8200 8001 8002 01 00");
    row("scaling", transcriber<HydAmplScalingChunkV0>(), "01 18 0000 007fffff ff800000 002dc6c0 ffd23940");
    row("heading", transcriber<HydStreamHeadStatusChunkV0>(), "80000001 0e0f fff6 ff38 0000");
    row("battery", transcriber<HydBatteryChunk>(), "80000001 8fff fc18 64 03 ff38");
    row("motion", transcriber<HydAccMagChunk>(), "0001 fffe 03e8 8000 7fff ffff");
    row("clock", transcriber<HydTimeSyncChunk>(), "80000001 fffffc18 8123 02 00");
    row("trigger", transcriber<HydTriggerChunk>(), "80000001 81 02 0000");
}

void tst_StreamChunks::keyReadsItsRecord()
{
    const auto record = RawRecord<stKEY_CHUNK_V1>()
                            .put(4, uint32_t{1700000000})
                            .put(8, uint32_t{2})
                            .put(12, uint32_t{3})
                            .put(17, uint8_t{200})
                            .put(18, uint8_t{2})
                            .record();
    const HydEventKeyChunkV1 key(&record);
    QCOMPARE(key.time(), 1700000000U);
    QCOMPARE(key.sequence(), (int64_t{2} << 32) + 3);
    QCOMPARE(key.trigNum(), uint8_t(200));
    QCOMPARE(key.trigState(), uint8_t(2));
    QVERIFY(!key.isLastEvent());
}

void tst_StreamChunks::virtualFunctionsOfTheKeyKeepTheirPlaces()
{
    static_assert(
        std::is_same_v<decltype(&HydEventKeyChunk::eventId), uint64_t (HydEventKeyChunk::*)() const>);
    static_assert(
        std::is_same_v<decltype(&HydEventKeyChunk::sequence), int64_t (HydEventKeyChunk::*)() const>);
    QCOMPARE(virtualPlace(&HydEventKeyChunk::eventId), size_t(5));
    QCOMPARE(virtualPlace(&HydEventKeyChunk::sequence), size_t(6));
}

void tst_StreamChunks::eventIdIsTheTimeAsAnUnsignedNumber_data()
{
    QTest::addColumn<quint32>("time");
    QTest::newRow("0") << 0U;
    QTest::newRow("today") << 1700000000U;
    QTest::newRow("sign bit") << 0x80000000U;
    QTest::newRow("all bits") << 0xFFFFFFFFU;
}

void tst_StreamChunks::eventIdIsTheTimeAsAnUnsignedNumber()
{
    QFETCH(quint32, time);
    const auto record = RawRecord<stKEY_CHUNK_V1>()
                            .put(0, uint32_t{0xFFFFFFFF})
                            .put(4, time)
                            .put(8, uint32_t{0xFFFFFFFF})
                            .record();
    QCOMPARE(HydEventKeyChunkV1(&record).eventId(), uint64_t{time});
}

void tst_StreamChunks::sequenceIsTwoWordsInHostOrder_data()
{
    QTest::addColumn<quint32>("high");
    QTest::addColumn<quint32>("low");
    QTest::addColumn<qint64>("sequence");
    QTest::newRow("low word alone") << 0U << 0xFFFFFFFFU << Q_INT64_C(0xFFFFFFFF);
    QTest::newRow("high word alone") << 1U << 0U << Q_INT64_C(0x100000000);
    QTest::newRow("both") << 0x01234567U << 0x89ABCDEFU << Q_INT64_C(0x0123456789ABCDEF);
    QTest::newRow("negative") << 0xFFFFFFFFU << 0xFFFFFFFEU << Q_INT64_C(-2);
}

void tst_StreamChunks::sequenceIsTwoWordsInHostOrder()
{
    QFETCH(quint32, high);
    QFETCH(quint32, low);
    QFETCH(qint64, sequence);
    const auto record = RawRecord<stKEY_CHUNK_V1>().put(8, high).put(12, low).record();
    QCOMPARE(HydEventKeyChunkV1(&record).sequence(), sequence);
}

void tst_StreamChunks::lastEventIsAByteOfTheKey()
{
    const auto record = RawRecord<stKEY_CHUNK_V1>().put(19, uint8_t{1}).record();
    HydEventKeyChunkV1 key(&record);
    QVERIFY(key.isLastEvent());
    key.setLastEvent(false);
    QVERIFY(!key.isLastEvent());
    QCOMPARE(wireOf(key)[14], uint8_t(0));
    key.setLastEvent(true);
    QVERIFY(key.isLastEvent());
    QCOMPARE(wireOf(key)[14], uint8_t(1));
}

void tst_StreamChunks::deviceInfoReadsItsRecord()
{
    const auto record = RawRecord<stDEVICE_CHUNK_V1>()
                            .put(4, uint8_t{15})
                            .put(6, uint16_t{4321})
                            .put(8, uint16_t{54321})
                            .put(10, int16_t{-1717})
                            .put(12, uint8_t{1})
                            .record();
    const HydDeviceInfoChunkV1 device(&record);
    QCOMPARE(device.devType(), DevTypeSkiff);
    QCOMPARE(device.hostDevNo(), uint16_t(4321));
    QCOMPARE(device.serialNo(), uint16_t(54321));
    QCOMPARE(device.sensitivity(), int16_t(-1717));
}

void tst_StreamChunks::statusReadsItsRecord()
{
    const auto record = RawRecord<stSTATUS_CHUNK_V0>()
                            .put(4, int16_t{-35})
                            .put(6, int16_t{412})
                            .put(8, uint8_t{7})
                            .put(9, uint8_t{255})
                            .put(10, uint16_t{256})
                            .record();
    const HydStreamStatusChunkV0 status(&record);
    QCOMPARE(status.temperature(), int16_t(-35));
    QCOMPARE(status.humidity(), int16_t(412));
    QCOMPARE(status.statusExtra(), uint8_t(7));
    QCOMPARE(status.rollover(), uint8_t(255));
    QCOMPARE(status.flags(), uint16_t(256));
}

void tst_StreamChunks::wavSetupReadsItsRecord()
{
    const auto record = RawRecord<stWAVE_SETUP_CHUNK_V0>()
                            .put(4, uint32_t{512000})
                            .put(8, int16_t{-6})
                            .put(10, uint8_t{3})
                            .put(11, uint8_t{1})
                            .record();
    const HydWavSetupChunk setup(&record);
    QCOMPARE(setup.sampleRate(), 512000U);
    QCOMPARE(setup.gain(), int16_t(-6));
    QCOMPARE(setup.bitDepth(), uint8_t(24));
    QVERIFY(!setup.isBigEndian());
}

void tst_StreamChunks::bit7OfAWavSetupMeansBigEndian_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<bool>("bigEndian");
    QTest::addColumn<int>("bitDepth");
    QTest::newRow("16 bit little-endian") << 0x02 << false << 16;
    QTest::newRow("16 bit big-endian") << 0x82 << true << 16;
    QTest::newRow("32 bit big-endian") << 0x84 << true << 32;
    QTest::newRow("bits 4 to 6 say nothing") << 0x73 << false << 24;
    QTest::newRow("largest low bits") << 0x0F << false << 120;
}

void tst_StreamChunks::bit7OfAWavSetupMeansBigEndian()
{
    QFETCH(int, format);
    QFETCH(bool, bigEndian);
    QFETCH(int, bitDepth);
    const auto record = RawRecord<stWAVE_SETUP_CHUNK_V0>().put(10, static_cast<uint8_t>(format)).record();
    const HydWavSetupChunk setup(&record);
    QCOMPARE(setup.isBigEndian(), bigEndian);
    QCOMPARE(int(setup.bitDepth()), bitDepth);
}

void tst_StreamChunks::fftSetupReadsItsRecord()
{
    const auto record = RawRecord<stFFT_SETUP_CHUNK_V1>()
                            .put(4, uint32_t{4000000000})
                            .put(8, uint16_t{1024})
                            .put(10, int16_t{-180})
                            .put(12, uint16_t{4})
                            .put(14, uint16_t{512})
                            .put(16, uint16_t{16})
                            .put(18, uint16_t{2})
                            .put(20, uint8_t{1})
                            .record();
    const HydFftSetupChunkV1 setup(&record);
    QCOMPARE(setup.sampleRate(), 4000000000U);
    QCOMPARE(setup.points(), uint16_t(1024));
    QCOMPARE(setup.refLevel(), int16_t(-180));
    QCOMPARE(setup.procType(), uint16_t(4));
    QCOMPARE(setup.pointsBtw(), uint16_t(512));
    QCOMPARE(setup.accum(), uint16_t(16));
    QCOMPARE(setup.weight(), uint16_t(2));
}

void tst_StreamChunks::scalingReadsItsRecord()
{
    const auto record = RawRecord<stAMPLITUDE_CHUNK_V0>()
                            .put(4, uint8_t{1})
                            .put(7, uint8_t{24})
                            .put(8, int32_t{8388607})
                            .put(12, int32_t{-8388608})
                            .put(16, int32_t{3000000})
                            .put(20, int32_t{-3000000})
                            .record();
    const HydAmplScalingChunkV0 scaling(&record);
    QCOMPARE(scaling.bitsPerSample(), uint8_t(24));
    QCOMPARE(scaling.maxValue(), 8388607);
    QCOMPARE(scaling.minValue(), -8388608);
    QCOMPARE(scaling.maxMicrovolts(), 3000000);
    QCOMPARE(scaling.minMicrovolts(), -3000000);
    QCOMPARE(wireOf(scaling)[0], uint8_t(1));
}

void tst_StreamChunks::headingReadsItsRecord()
{
    const auto record = RawRecord<stHEADING_CHUNK_V0>()
                            .put(4, uint32_t{1700000001})
                            .put(8, uint16_t{3599})
                            .put(10, int16_t{-90})
                            .put(12, int16_t{-180})
                            .record();
    const HydStreamHeadStatusChunkV0 heading(&record);
    QCOMPARE(heading.time(), 1700000001U);
    QCOMPARE(heading.heading(), uint16_t(3599));
    QCOMPARE(heading.pitch(), int16_t(-90));
    QCOMPARE(heading.roll(), int16_t(-180));
}

void tst_StreamChunks::headingIsAssignedInPlace()
{
    const stHEADING_CHUNK_V0 zero;
    stHEADING_CHUNK_V0 record;
    record.time = 5;
    record.heading = 100;
    const HydStreamHeadStatusChunkV0 incoming(&record);
    const std::shared_ptr<HydStreamHeadStatusChunk> kept =
        std::make_shared<HydStreamHeadStatusChunkV0>(&zero);
    kept->assign(incoming);
    QCOMPARE(kept->time(), 5U);
    QCOMPARE(kept->heading(), uint16_t(100));
}

void tst_StreamChunks::sensorChunksReadTheirRecords()
{
    const auto battery =
        chunkFromWire<HydBatteryChunk>(bigEndian(1700000000, 4) + bigEndian(3700, 2) + bigEndian(0xFC18, 2) +
                                       Bytes{64, 2} + bigEndian(0xFF38, 2));
    QVERIFY(battery);
    QCOMPARE(battery->record().time, 1700000000U);
    QCOMPARE(battery->record().millivolts, uint16_t(3700));
    QCOMPARE(battery->record().milliamperes, int16_t(-1000));
    QCOMPARE(battery->record().percent, uint8_t(64));
    QCOMPARE(battery->record().state, uint8_t(BattCharging));
    QCOMPARE(battery->record().temperature, int16_t(-200));

    const auto motion =
        chunkFromWire<HydAccMagChunk>(bigEndian(1, 2) + bigEndian(0xFFFE, 2) + bigEndian(1000, 2) +
                                      bigEndian(0x8000, 2) + bigEndian(500, 2) + bigEndian(6, 2));
    QVERIFY(motion);
    QCOMPARE(motion->record().acceleration[0], int16_t(1));
    QCOMPARE(motion->record().acceleration[1], int16_t(-2));
    QCOMPARE(motion->record().acceleration[2], int16_t(1000));
    QCOMPARE(motion->record().magnetic[0], int16_t(-32768));
    QCOMPARE(motion->record().magnetic[1], int16_t(500));
    QCOMPARE(motion->record().magnetic[2], int16_t(6));

    const auto clock = chunkFromWire<HydTimeSyncChunk>(bigEndian(7, 4) + bigEndian(0xFFFFFFFF, 4) +
                                                       bigEndian(900, 2) + Bytes{2, 0});
    QVERIFY(clock);
    QCOMPARE(clock->record().time, 7U);
    QCOMPARE(clock->record().offsetNs, -1);
    QCOMPARE(clock->record().master, uint16_t(900));
    QCOMPARE(clock->record().state, uint8_t(2));

    const auto trigger = chunkFromWire<HydTriggerChunk>(bigEndian(8, 4) + Bytes{3, 2, 0, 0});
    QVERIFY(trigger);
    QCOMPARE(trigger->record().time, 8U);
    QCOMPARE(trigger->record().trigNum, uint8_t(3));
    QCOMPARE(trigger->record().trigState, uint8_t(2));
}

void tst_StreamChunks::chunksKeepACopyOfTheRecord()
{
    auto record = std::make_unique<stDEVICE_CHUNK_V1>();
    record->serial = 12;
    const HydDeviceInfoChunkV1 device(record.get());
    record->serial = 13;
    record.reset();
    QCOMPARE(device.serialNo(), uint16_t(12));
}

void tst_StreamChunks::freshRecordsAreZeroButForTheOnes()
{
    const auto nonZero = [](const auto& record) {
        Bytes bytes(sizeof record);
        std::memcpy(bytes.data(), &record, sizeof record);
        QList<int> offsets;
        for (size_t i = 0; i < bytes.size(); ++i) {
            if (bytes[i] != 0)
                offsets << int(i);
        }
        return offsets;
    };
    QCOMPARE(nonZero(stKEY_CHUNK_V1()), QList<int>());
    QCOMPARE(nonZero(stDEVICE_CHUNK_V1()), QList<int>{12});
    QCOMPARE(nonZero(stSTATUS_CHUNK_V0()), QList<int>());
    QCOMPARE(nonZero(stFFT_SETUP_CHUNK_V1()), QList<int>{20});
    QCOMPARE(nonZero(stWAVE_SETUP_CHUNK_V0()), QList<int>{11});
    QCOMPARE(nonZero(stAMPLITUDE_CHUNK_V0()), QList<int>());
    QCOMPARE(nonZero(stHEADING_CHUNK_V0()), QList<int>());
}

void tst_StreamChunks::chunksHaveTheirTypeNumbers()
{
    const stKEY_CHUNK_V1 key;
    const stDEVICE_CHUNK_V1 device;
    const stSTATUS_CHUNK_V0 status;
    const stWAVE_SETUP_CHUNK_V0 wave;
    const stFFT_SETUP_CHUNK_V1 fft;
    const stAMPLITUDE_CHUNK_V0 scaling;
    const stHEADING_CHUNK_V0 heading;
    const stBATTERY_CHUNK_V0 battery;
    const stACC_MAG_CHUNK_V0 motion;
    const stTIME_SYNC_CHUNK_V0 clock;
    const stTRIGGER_CHUNK_V0 trigger;
    const QList<int> types{HydEventKeyChunkV1(&key).chunkType(),
                           HydDeviceInfoChunkV1(&device).chunkType(),
                           HydStreamStatusChunkV0(&status).chunkType(),
                           HydWavSetupChunk(&wave).chunkType(),
                           HydFftSetupChunkV1(&fft).chunkType(),
                           HydAmplScalingChunkV0(&scaling).chunkType(),
                           HydStreamHeadStatusChunkV0(&heading).chunkType(),
                           HydBatteryChunk(&battery).chunkType(),
                           HydAccMagChunk(&motion).chunkType(),
                           HydTimeSyncChunk(&clock).chunkType(),
                           HydTriggerChunk(&trigger).chunkType()};
    QCOMPARE(types, (QList<int>{1, 2, 3, 4, 5, 6, 7, 12, 13, 14, 15}));
}

void tst_StreamChunks::bodiesGoOverTheWireAndBack()
{
    QFETCH(Transcribe, transcribe);
    QFETCH(QByteArray, body);
    const Bytes bytes(body.begin(), body.end());
    QVERIFY(transcribe(bytes) == bytes);
}

void tst_StreamChunks::aLongerBodyIsAccepted()
{
    QFETCH(Transcribe, transcribe);
    QFETCH(QByteArray, body);
    const Bytes bytes(body.begin(), body.end());
    QVERIFY(transcribe(bytes + Bytes{0xAA}) == bytes);
    QVERIFY(transcribe(bytes + Bytes(300, 0xAA)) == bytes);
}

void tst_StreamChunks::aBodyCutAtAnyByteIsRefused()
{
    QFETCH(Transcribe, transcribe);
    QFETCH(QByteArray, body);
    for (qsizetype size = 0; size < body.size(); ++size)
        QVERIFY2(!transcribe(Bytes(body.begin(), body.begin() + size)), qPrintable(QString::number(size)));
}

void tst_StreamChunks::containerHoldsOneSetup()
{
    const stWAVE_SETUP_CHUNK_V0 waveRecord;
    const auto wave = std::make_shared<HydWavSetupChunk const>(&waveRecord);
    const HydStreamSetupContainer ofWave(wave);
    QVERIFY(ofWave.wavSetup() == wave);
    QVERIFY(!ofWave.fftSetup());

    const stFFT_SETUP_CHUNK_V1 fftRecord;
    const std::shared_ptr<HydFftSetupChunk const> fft = std::make_shared<HydFftSetupChunkV1>(&fftRecord);
    const HydStreamSetupContainer ofFft(fft);
    QVERIFY(ofFft.fftSetup() == fft);
    QVERIFY(!ofFft.wavSetup());
}

void tst_StreamChunks::negativeValuesKeepTheirSign()
{
    const auto scaling = chunkFromWire<HydAmplScalingChunkV0>(
        Bytes{0, 32, 0, 0} + bigEndian(0x7FFFFFFF, 4) + bigEndian(0x80000000, 4) + bigEndian(0xFFFFFFFF, 4) +
        bigEndian(0xFFFFFFFE, 4));
    QVERIFY(scaling);
    QCOMPARE(scaling->maxValue(), 2147483647);
    QCOMPARE(scaling->minValue(), std::numeric_limits<int32_t>::min());
    QCOMPARE(scaling->maxMicrovolts(), -1);
    QCOMPARE(scaling->minMicrovolts(), -2);
    const auto key = chunkFromWire<HydEventKeyChunkV1>(keyBody(0xFFFFFFFF, 0x8000000000000000));
    QVERIFY(key);
    QCOMPARE(key->sequence(), std::numeric_limits<int64_t>::min());
    QCOMPARE(key->time(), 0xFFFFFFFFU);
}

void tst_StreamChunks::anEmptyContainerGivesNull()
{
    const HydStreamSetupContainer container;
    QVERIFY(!container.wavSetup());
    QVERIFY(!container.fftSetup());
}

QTEST_APPLESS_MAIN(tst_StreamChunks)
#include "tst_StreamChunks.moc"
