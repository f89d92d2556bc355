#include "NvxQtCommon/contract/stream/HydStreamMessage.h"
#include "tests/stream/StreamBytes.h"
#include "tests/support/NvxTestCase.h"

#include <algorithm>

class tst_HydStreamMessage : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void checksumIsTheLowHalfOfXxh64();
    void headerFrameHasItsChunksInOrder();
    void dataFrameIsExact();
    void notifyFrameIsExact();
    void statusFrameHasItsChunksInOrder();
    void framesReadBackToTheSameBytes_data();
    void framesReadBackToTheSameBytes();
    void chunksOfAHeaderComeInAnyOrder();
    void missingEventInfoMeansOneChannel();
    void payloadsBearTheTypeOfTheStream();
    void unknownChunksAreSkipped();
    void spectrumTypesTakeOneByteABin_data();
    void spectrumTypesTakeOneByteABin();
    // --- rainy day flows
    void nullPayloadMakesNoFrame();
    void frameSizeLimit_data();
    void frameSizeLimit();
    void nullChunksAreLeftOut();
    void longTextsAreCut();
    void unreadableChunksGiveNull_data();
    void unreadableChunksGiveNull();
    void chunksOfAKindAreLimited_data();
    void chunksOfAKindAreLimited();
    void unknownKindsGiveNull();
};

namespace {

const Bytes kDevice = bigEndian(0x0500, 2) + bigEndian(0, 2) + bigEndian(1234, 2) + bigEndian(0xF94A, 2);
const Bytes kMaster = bigEndian(0x1000, 2) + bigEndian(0, 2) + bigEndian(99, 2) + bigEndian(0, 2);
const Bytes kStatus = bigEndian(215, 2) + bigEndian(400, 2) + Bytes{1, 2} + bigEndian(0, 2);
const Bytes kWaveSetup = bigEndian(64000, 4) + bigEndian(6, 2) + Bytes{0x83, 1};
const Bytes kFftSetup = bigEndian(64000, 4) + bigEndian(1024, 2) + bigEndian(0xFF4C, 2) + bigEndian(4, 2) +
                        bigEndian(512, 2) + bigEndian(16, 2) + bigEndian(1, 2) + Bytes{1, 0};
const Bytes kScaling = Bytes{0, 24, 0, 0} + bigEndian(8388607, 4) + bigEndian(0xFF800000, 4) +
                       bigEndian(3000000, 4) + bigEndian(0xFFD23940, 4);
const Bytes kHeading =
    bigEndian(1700000000, 4) + bigEndian(900, 2) + bigEndian(0xFFF6, 2) + bigEndian(5, 2) + bigEndian(0, 2);
const Bytes kBattery =
    bigEndian(1700000000, 4) + bigEndian(3700, 2) + bigEndian(0xFF00, 2) + Bytes{50, 1} + bigEndian(100, 2);
const Bytes kMotion(12, 0x11);
const Bytes kClock = bigEndian(1700000000, 4) + bigEndian(0xFFFFFFFF, 4) + bigEndian(9, 2) + Bytes{2, 0};
const Bytes kTrigger = bigEndian(1700000000, 4) + Bytes{1, 2, 0, 0};

Bytes headerChunks()
{
    return chunkBytes(11, {2, 1}) + chunkBytes(1, keyBody(1700000000, 640000)) + chunkBytes(8, kMaster) +
           chunkBytes(2, kDevice) + chunkBytes(3, kStatus) + chunkBytes(2, kDevice) + chunkBytes(3, kStatus) +
           chunkBytes(4, kWaveSetup) + chunkBytes(6, kScaling) + chunkBytes(6, kScaling);
}

Bytes statusChunks()
{
    return chunkBytes(1, keyBody(5, 6)) + chunkBytes(3, kStatus) + chunkBytes(7, kHeading) +
           chunkBytes(12, kBattery) + chunkBytes(13, kMotion) + chunkBytes(14, kClock) +
           chunkBytes(15, kTrigger);
}

std::shared_ptr<HydStreamMessagePayload> parsed(int kind, const Bytes& chunks,
                                                HydStreamType type = StreamWave)
{
    return HydStreamMessage::parse(static_cast<HydStreamMessage::Kind>(kind), chunks, type);
}

template <class Payload> std::shared_ptr<Payload> parsedAs(int kind, const Bytes& chunks)
{
    return std::dynamic_pointer_cast<Payload>(parsed(kind, chunks));
}

Bytes bytesOf(const char* text)
{
    return {text, text + std::strlen(text)};
}

} // namespace

void tst_HydStreamMessage::checksumIsTheLowHalfOfXxh64()
{
    // XXH64 with seed 0: "" is EF46DB3751D8E999, "a" D24EC4F1A98C6E5B, "abc" 44BC2CF5AD770999.
    QCOMPARE(HydStreamMessage::checksum({}), 0x51D8E999U);
    QCOMPARE(HydStreamMessage::checksum(bytesOf("a")), 0xA98C6E5BU);
    QCOMPARE(HydStreamMessage::checksum(bytesOf("abc")), 0xAD770999U);
}

void tst_HydStreamMessage::headerFrameHasItsChunksInOrder()
{
    const auto device = chunkFromWire<HydDeviceInfoChunkV1>(kDevice);
    const auto status = chunkFromWire<HydStreamStatusChunkV0>(kStatus);
    const auto scaling = chunkFromWire<HydAmplScalingChunkV0>(kScaling);
    const std::shared_ptr<HydWavSetupChunk const> setup = chunkFromWire<HydWavSetupChunk>(kWaveSetup);
    const auto header = std::make_shared<HydStreamEventHeaderPayload>(
        chunkFromWire<HydEventKeyChunkV1>(keyBody(1700000000, 640000)),
        std::vector<std::shared_ptr<HydDeviceInfoChunk const>>{device, device},
        std::vector<std::shared_ptr<HydStreamStatusChunk const>>{status, status},
        HydStreamSetupContainer(setup),
        std::vector<std::shared_ptr<HydAmplScalingChunk const>>{scaling, scaling}, 2,
        chunkFromWire<HydDeviceInfoChunkV1>(kMaster));
    header->setAdjacent(true);
    QVERIFY(HydStreamMessage(header).frame() == frameBytes(1, headerChunks()));
}

void tst_HydStreamMessage::dataFrameIsExact()
{
    const Bytes body = rampBody(300, 100, 300);
    ByteReader in(body);
    const HydStreamMessage message(
        std::make_shared<HydStreamDataPayload>(chunkFromWire<HydEventKeyChunkV1>(keyBody(1700000000, 5000)),
                                               HydStreamDataChunkV0::fromWire(in, false)));
    const Bytes expected =
        frameBytes(2, chunkBytes(1, keyBody(1700000000, 5000)) + chunkBytes(9, rampBody(300, 100, 300)));
    QVERIFY(message.frame() == expected);
}

void tst_HydStreamMessage::notifyFrameIsExact()
{
    const HydStreamMessage message(std::make_shared<HydStreamNotifyPayload>(0x0102, "bye"));
    QVERIFY(message.frame() == notifyFrame(0x0102, "bye"));
}

void tst_HydStreamMessage::statusFrameHasItsChunksInOrder()
{
    const auto payload = std::make_shared<HydStatusDataPayload>();
    payload->setTriggerChunk(chunkFromWire<HydTriggerChunk>(kTrigger));
    payload->setTimeSyncChunk(chunkFromWire<HydTimeSyncChunk>(kClock));
    payload->setAccMagChunk(chunkFromWire<HydAccMagChunk>(kMotion));
    payload->setBatteryChunk(chunkFromWire<HydBatteryChunk>(kBattery));
    payload->setHeadChunk(chunkFromWire<HydStreamHeadStatusChunkV0>(kHeading));
    payload->setStatusChunk(chunkFromWire<HydStreamStatusChunkV0>(kStatus));
    payload->setEventKey(chunkFromWire<HydEventKeyChunkV1>(keyBody(5, 6)));
    QVERIFY(HydStreamMessage(payload).frame() == frameBytes(4, statusChunks()));
}

void tst_HydStreamMessage::framesReadBackToTheSameBytes_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<Bytes>("chunks");
    const auto row = [](const char* name, int kind, const Bytes& chunks) {
        QTest::newRow(name) << kind << chunks;
    };
    row("header of an array", 1, headerChunks());
    row("header of a recorder", 1,
        chunkBytes(11, {1, 0}) + chunkBytes(1, keyBody(1, 2)) + chunkBytes(2, kDevice) +
            chunkBytes(3, kStatus) + chunkBytes(4, kWaveSetup) + chunkBytes(6, kScaling));
    row("header of a spectrum", 1,
        chunkBytes(11, {1, 0}) + chunkBytes(2, kDevice) + chunkBytes(5, kFftSetup));
    row("empty header", 1, chunkBytes(11, {1, 0}));
    row("more statuses than devices", 1,
        chunkBytes(11, {1, 0}) + chunkBytes(2, kDevice) + chunkBytes(3, kStatus) + chunkBytes(3, kStatus));
    row("data", 2, chunkBytes(1, keyBody(1, 2, true)) + chunkBytes(9, rampBody(3, 4)));
    row("data without key", 2, chunkBytes(9, rampBody(3, 4)));
    row("empty block", 2, chunkBytes(9, rampBody(3, 0)));
    row("notification", 3, chunkBytes(10, Bytes{0, 3, 4} + bytesOf("stop")));
    row("status", 4, statusChunks());
    row("empty status", 4, {});
    row("heading alone", 4, chunkBytes(7, kHeading));
}

void tst_HydStreamMessage::framesReadBackToTheSameBytes()
{
    QFETCH(int, kind);
    QFETCH(Bytes, chunks);
    const auto payload = parsed(kind, chunks);
    QVERIFY(payload);
    QVERIFY(HydStreamMessage(payload).frame() == frameBytes(static_cast<uint8_t>(kind), chunks));
}

void tst_HydStreamMessage::chunksOfAHeaderComeInAnyOrder()
{
    const auto header = parsedAs<HydStreamEventHeaderPayload>(
        1, chunkBytes(6, kScaling) + chunkBytes(4, kWaveSetup) + chunkBytes(3, kStatus) +
               chunkBytes(2, kDevice) + chunkBytes(8, kMaster) + chunkBytes(1, keyBody(7, 8)) +
               chunkBytes(11, {3, 1}));
    QVERIFY(header);
    QCOMPARE(header->eventKey()->sequence(), int64_t(8));
    QCOMPARE(header->deviceInfoChunks().at(0)->serialNo(), uint16_t(1234));
    QCOMPARE(header->streamStatusChunks().at(0)->temperature(), int16_t(215));
    QCOMPARE(header->streamSetupChunk()->wavSetup()->sampleRate(), 64000U);
    QCOMPARE(header->amplScalingChunks().at(0)->maxMicrovolts(), 3000000);
    QCOMPARE(header->arrayMasterInfo()->serialNo(), uint16_t(99));
    QCOMPARE(int(header->numChannels()), 3);
    QVERIFY(header->isAdjacent());
}

void tst_HydStreamMessage::missingEventInfoMeansOneChannel()
{
    const auto header = parsedAs<HydStreamEventHeaderPayload>(1, chunkBytes(2, kDevice));
    QVERIFY(header);
    QCOMPARE(int(header->numChannels()), 1);
    QVERIFY(!header->isAdjacent());
    QVERIFY(!header->isArray());
    QVERIFY(!header->eventKey());
}

void tst_HydStreamMessage::payloadsBearTheTypeOfTheStream()
{
    for (const HydStreamType type : {StreamWave, StreamSensor, StreamWaveScan}) {
        QCOMPARE(parsed(1, headerChunks(), type)->streamType, type);
        QCOMPARE(parsed(2, chunkBytes(9, rampBody(0, 1)), type)->streamType, type);
        QCOMPARE(parsed(3, chunkBytes(10, {0, 3, 0}), type)->streamType, type);
        QCOMPARE(parsed(4, statusChunks(), type)->streamType, type);
    }
}

void tst_HydStreamMessage::unknownChunksAreSkipped()
{
    const Bytes strange = chunkBytes(16, Bytes(50, 1)) + chunkBytes(0, {}) + chunkBytes(0xFFFF, {1});
    QVERIFY(HydStreamMessage(parsed(1, strange + headerChunks() + strange)).frame() ==
            frameBytes(1, headerChunks()));
    const Bytes data = chunkBytes(9, rampBody(3, 4));
    QVERIFY(HydStreamMessage(parsed(2, strange + data + chunkBytes(2, kDevice))).frame() ==
            frameBytes(2, data));
    const Bytes notify = chunkBytes(10, {0, 3, 0});
    QVERIFY(HydStreamMessage(parsed(3, strange + notify + strange)).frame() == frameBytes(3, notify));
    QVERIFY(HydStreamMessage(parsed(4, strange + statusChunks() + data)).frame() ==
            frameBytes(4, statusChunks()));
}

void tst_HydStreamMessage::spectrumTypesTakeOneByteABin_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("oneByte");
    for (int type : {1, 3, 4, 5, 16, 18, 32})
        QTest::addRow("%d", type) << type << false;
    for (int type : {2, 17, 33})
        QTest::addRow("%d", type) << type << true;
}

void tst_HydStreamMessage::spectrumTypesTakeOneByteABin()
{
    QFETCH(int, type);
    QFETCH(bool, oneByte);
    const auto streamType = static_cast<HydStreamType>(type);
    const Bytes head = bigEndian(0, 4) + Bytes{1, 0x82} + bigEndian(10, 2);
    QCOMPARE(parsed(2, chunkBytes(9, head + Bytes(10, 1)), streamType) != nullptr, oneByte);
    QCOMPARE(parsed(2, chunkBytes(9, head + Bytes(20, 1)), streamType) != nullptr, !oneByte);
}

void tst_HydStreamMessage::nullPayloadMakesNoFrame()
{
    QVERIFY(HydStreamMessage(nullptr).frame().empty());
}

void tst_HydStreamMessage::frameSizeLimit_data()
{
    QTest::addColumn<int>("samples");
    QTest::addColumn<bool>("fits");
    // Data chunk header, fixed fields, then four channels of 4 bytes.
    const int most = (int(HydStreamMessage::kMaxChunkBytes) - 6 - 8) / 16;
    QTest::newRow("most") << most << true;
    QTest::newRow("one more") << most + 1 << false;
}

void tst_HydStreamMessage::frameSizeLimit()
{
    QFETCH(int, samples);
    QFETCH(bool, fits);
    const size_t size = size_t(samples) * 16;
    const auto data = std::make_shared<HydStreamDataChunkV0>(
        0U, static_cast<unsigned char>(4), static_cast<unsigned char>(4),
        static_cast<unsigned short>(samples), static_cast<unsigned>(size), false);
    const Bytes frame = HydStreamMessage(std::make_shared<HydStreamDataPayload>(nullptr, data)).frame();
    QCOMPARE(frame.size(), fits ? size + 8 + 6 + 8 + 4 : size_t(0));
}

void tst_HydStreamMessage::nullChunksAreLeftOut()
{
    const HydStreamMessage data(std::make_shared<HydStreamDataPayload>(nullptr, nullptr));
    QVERIFY(data.frame() == frameBytes(2, {}));
    const HydStreamMessage header(std::make_shared<HydStreamEventHeaderPayload>(
        nullptr, std::vector<std::shared_ptr<HydDeviceInfoChunk const>>{nullptr},
        std::vector<std::shared_ptr<HydStreamStatusChunk const>>{nullptr, nullptr}, HydStreamSetupContainer(),
        std::vector<std::shared_ptr<HydAmplScalingChunk const>>{nullptr}, 7, nullptr));
    QVERIFY(header.frame() == frameBytes(1, chunkBytes(11, {7, 0})));
}

void tst_HydStreamMessage::longTextsAreCut()
{
    const HydStreamMessage message(std::make_shared<HydStreamNotifyPayload>(1, std::string(300, 'x')));
    const Bytes expected = frameBytes(3, chunkBytes(10, Bytes{0, 1, 255} + Bytes(255, 'x')));
    QVERIFY(message.frame() == expected);
}

void tst_HydStreamMessage::unreadableChunksGiveNull_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<Bytes>("chunks");
    const auto row = [](const char* name, int kind, const Bytes& chunks) {
        QTest::newRow(name) << kind << chunks;
    };
    const Bytes block = chunkBytes(9, rampBody(0, 4));
    row("data: no chunks", 2, {});
    row("data: no block", 2, chunkBytes(1, keyBody(1, 2)));
    row("data: two blocks", 2, block + block);
    row("data: short key", 2, chunkBytes(1, Bytes(15, 0)) + block);
    row("data: a block of no width", 2, chunkBytes(9, Bytes{0, 0, 0, 0, 1, 0, 0, 5}));
    row("data: bytes behind the samples", 2, chunkBytes(9, rampBody(0, 4) + Bytes{0}));
    row("notification: no chunks", 3, {});
    row("notification: without code", 3, chunkBytes(10, {1}));
    row("notification: without text", 3, chunkBytes(10, {0, 3}));
    row("notification: text longer than the body", 3, chunkBytes(10, {0, 3, 5, 'a', 'b'}));
    for (const auto& [type, size] : std::initializer_list<std::pair<int, int>>{
             {11, 2}, {1, 16}, {8, 8}, {2, 8}, {3, 8}, {4, 8}, {5, 18}, {6, 20}}) {
        row(qPrintable(QStringLiteral("header: short chunk %1").arg(type)), 1,
            chunkBytes(static_cast<uint16_t>(type), Bytes(size_t(size) - 1, 0)));
    }
    for (const auto& [type, size] : std::initializer_list<std::pair<int, int>>{
             {1, 16}, {3, 8}, {7, 12}, {12, 12}, {13, 12}, {14, 12}, {15, 8}}) {
        row(qPrintable(QStringLiteral("status: short chunk %1").arg(type)), 4,
            chunkBytes(static_cast<uint16_t>(type), Bytes(size_t(size) - 1, 0)));
    }
    for (int kind = 1; kind <= 4; ++kind) {
        row(qPrintable(QStringLiteral("kind %1: a piece of a chunk header").arg(kind)), kind,
            block + Bytes{0, 1, 0, 0, 0});
        row(qPrintable(QStringLiteral("kind %1: a chunk longer than the frame").arg(kind)), kind,
            block + Bytes{0, 99, 0xFF, 0xFF, 0xFF, 0xFF});
    }
}

void tst_HydStreamMessage::unreadableChunksGiveNull()
{
    QFETCH(int, kind);
    QFETCH(Bytes, chunks);
    QVERIFY(!parsed(kind, chunks));
}

void tst_HydStreamMessage::chunksOfAKindAreLimited_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<Bytes>("body");
    QTest::newRow("device") << 2 << kDevice;
    QTest::newRow("status") << 3 << kStatus;
    QTest::newRow("scaling") << 6 << kScaling;
}

void tst_HydStreamMessage::chunksOfAKindAreLimited()
{
    QFETCH(int, type);
    QFETCH(Bytes, body);
    Bytes chunks = chunkBytes(11, {255, 0});
    for (int i = 0; i < 255; ++i)
        chunks = chunks + chunkBytes(static_cast<uint16_t>(type), body);
    const auto header = parsedAs<HydStreamEventHeaderPayload>(1, chunks);
    QVERIFY(header);
    QCOMPARE(int(header->numChannels()), 255);
    QCOMPARE(std::max({header->deviceInfoChunks().size(), header->streamStatusChunks().size(),
                       header->amplScalingChunks().size()}),
             size_t(255));
    QVERIFY(!parsed(1, chunks + chunkBytes(static_cast<uint16_t>(type), body)));
}

void tst_HydStreamMessage::unknownKindsGiveNull()
{
    for (int kind : {0, 5, 255})
        QVERIFY(!parsed(kind, statusChunks()));
}

QTEST_APPLESS_MAIN(tst_HydStreamMessage)
#include "tst_HydStreamMessage.moc"
