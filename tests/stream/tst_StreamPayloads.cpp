#include "NvxQtCommon/contract/stream/StreamPayloads.h"
#include "tests/support/NvxTestCase.h"

#include <type_traits>

class tst_StreamPayloads : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void headerGivesItsParts();
    void arrayNeedsAMasterOrMoreThanOneChannel_data();
    void arrayNeedsAMasterOrMoreThanOneChannel();
    void adjacentIsSetLater();
    void payloadsAreToldApartByTheirClass();
    void streamTypeIsWritable();
    void streamTypeStandsAtTheFront();
    void lastEventStandsOnKeyAndPayload_data();
    void lastEventStandsOnKeyAndPayload();
    void noiseFilteredIsAFlag();
    void resetDReadiesTheDoubles();
    void notifyGivesCodeAndText();
    void statusGivesWhatWasSet();
    // --- rainy day flows
    void aHeaderOfNothing();
    void aDataPayloadOfNothing();
    void aFreshStatusIsEmpty();
};

namespace {

std::shared_ptr<HydEventKeyChunkV1> makeKey(bool last = false)
{
    stKEY_CHUNK_V1 record;
    record.lastEvent = last ? 1 : 0;
    return std::make_shared<HydEventKeyChunkV1>(&record);
}

std::shared_ptr<HydDeviceInfoChunk const> makeDevice(uint16_t serial)
{
    stDEVICE_CHUNK_V1 record;
    record.serial = serial;
    return std::make_shared<HydDeviceInfoChunkV1>(&record);
}

HydStreamEventHeaderPayload makeHeader(unsigned char channels,
                                       std::shared_ptr<HydDeviceInfoChunk const> master = nullptr)
{
    return {nullptr, {}, {}, HydStreamSetupContainer(), {}, channels, std::move(master)};
}

} // namespace

void tst_StreamPayloads::headerGivesItsParts()
{
    const stSTATUS_CHUNK_V0 statusRecord;
    const stWAVE_SETUP_CHUNK_V0 setupRecord;
    const stAMPLITUDE_CHUNK_V0 scalingRecord;
    const auto key = makeKey();
    const auto device = makeDevice(1);
    const auto master = makeDevice(2);
    const auto status = std::make_shared<HydStreamStatusChunkV0 const>(&statusRecord);
    const auto setup = std::make_shared<HydWavSetupChunk const>(&setupRecord);
    const auto scaling = std::make_shared<HydAmplScalingChunkV0 const>(&scalingRecord);
    const HydStreamEventHeaderPayload header(key, {device, device}, {status}, HydStreamSetupContainer(setup),
                                             {scaling, scaling, scaling}, 4, master);
    QVERIFY(header.eventKey() == key);
    QCOMPARE(header.deviceInfoChunks().size(), size_t(2));
    QVERIFY(header.deviceInfoChunks()[1] == device);
    QCOMPARE(header.streamStatusChunks().size(), size_t(1));
    QVERIFY(header.streamStatusChunks()[0] == status);
    QVERIFY(header.streamSetupChunk()->wavSetup() == setup);
    QCOMPARE(header.amplScalingChunks().size(), size_t(3));
    QVERIFY(header.amplScalingChunks()[2] == scaling);
    QCOMPARE(int(header.numChannels()), 4);
    QVERIFY(header.arrayMasterInfo() == master);
}

void tst_StreamPayloads::arrayNeedsAMasterOrMoreThanOneChannel_data()
{
    QTest::addColumn<int>("channels");
    QTest::addColumn<bool>("master");
    QTest::addColumn<bool>("isArray");
    QTest::newRow("one recorder") << 1 << false << false;
    QTest::newRow("no channels") << 0 << false << false;
    QTest::newRow("two channels") << 2 << false << true;
    QTest::newRow("255 channels") << 255 << false << true;
    QTest::newRow("one channel of a master") << 1 << true << true;
    QTest::newRow("a master without channels") << 0 << true << true;
}

void tst_StreamPayloads::arrayNeedsAMasterOrMoreThanOneChannel()
{
    QFETCH(int, channels);
    QFETCH(bool, master);
    QFETCH(bool, isArray);
    const auto header = makeHeader(static_cast<unsigned char>(channels), master ? makeDevice(9) : nullptr);
    QCOMPARE(header.isArray(), isArray);
}

void tst_StreamPayloads::adjacentIsSetLater()
{
    auto header = makeHeader(1);
    QVERIFY(!header.isAdjacent());
    header.setAdjacent(true);
    QVERIFY(header.isAdjacent());
    header.setAdjacent(false);
    QVERIFY(!header.isAdjacent());
}

void tst_StreamPayloads::payloadsAreToldApartByTheirClass()
{
    const std::vector<std::shared_ptr<HydStreamMessagePayload>> payloads{
        std::make_shared<HydStreamEventHeaderPayload>(makeHeader(1)),
        std::make_shared<HydStreamDataPayload>(nullptr, nullptr), std::make_shared<HydStreamNotifyPayload>(3),
        std::make_shared<HydStatusDataPayload>()};
    QStringList found;
    for (const auto& payload : payloads) {
        QString is;
        is += std::dynamic_pointer_cast<HydStreamEventHeaderPayload>(payload) ? 'H' : '-';
        is += std::dynamic_pointer_cast<HydStreamDataPayload>(payload) ? 'D' : '-';
        is += std::dynamic_pointer_cast<HydStreamNotifyPayload>(payload) ? 'N' : '-';
        is += std::dynamic_pointer_cast<HydStatusDataPayload>(payload) ? 'S' : '-';
        found << is;
    }
    QCOMPARE(found, (QStringList{"H---", "-D--", "--N-", "---S"}));
}

void tst_StreamPayloads::streamTypeIsWritable()
{
    HydStreamDataPayload payload(nullptr, nullptr);
    static_assert(sizeof(payload.streamType) == 1);
    payload.streamType = StreamEpoch;
    QCOMPARE(payload.streamType, StreamEpoch);
}

void tst_StreamPayloads::streamTypeStandsAtTheFront()
{
    // Right behind the pointer to the virtual functions, in every class: makers of payloads write it there.
    const auto front = [](auto& payload) {
        payload.streamType = StreamSpectrumFile;
        return reinterpret_cast<const unsigned char*>(&payload)[sizeof(void*)];
    };
    auto header = makeHeader(1);
    HydStreamDataPayload data(nullptr, nullptr);
    HydStreamNotifyPayload notify(3);
    HydStatusDataPayload status;
    QCOMPARE(int(front(header)), int(StreamSpectrumFile));
    QCOMPARE(int(front(data)), int(StreamSpectrumFile));
    QCOMPARE(int(front(notify)), int(StreamSpectrumFile));
    QCOMPARE(int(front(status)), int(StreamSpectrumFile));
}

void tst_StreamPayloads::lastEventStandsOnKeyAndPayload_data()
{
    QTest::addColumn<bool>("onKey");
    QTest::addColumn<bool>("onPayload");
    QTest::newRow("neither") << false << false;
    QTest::newRow("key") << true << false;
    QTest::newRow("payload") << false << true;
    QTest::newRow("both") << true << true;
}

void tst_StreamPayloads::lastEventStandsOnKeyAndPayload()
{
    QFETCH(bool, onKey);
    QFETCH(bool, onPayload);
    const auto key = makeKey(onKey);
    HydStreamDataPayload payload(key, nullptr);
    QCOMPARE(payload.isLastEvent(), onKey);
    payload.setLastEvent(onPayload);
    QCOMPARE(payload.isLastEvent(), onKey || onPayload);
    QVERIFY2(key->isLastEvent() == onKey, "the flag of a payload isn't that of its key");
}

void tst_StreamPayloads::noiseFilteredIsAFlag()
{
    HydStreamDataPayload payload(nullptr, nullptr);
    QVERIFY(!payload.isNoiseFiltered());
    payload.setNoiseFiltered(true);
    QVERIFY(payload.isNoiseFiltered());
    payload.setNoiseFiltered(false);
    QVERIFY(!payload.isNoiseFiltered());
}

void tst_StreamPayloads::resetDReadiesTheDoubles()
{
    const auto data = std::make_shared<HydStreamDataChunkV0 const>(0U, static_cast<unsigned char>(1),
                                                                   static_cast<unsigned char>(1),
                                                                   static_cast<unsigned short>(3), 3U, false);
    HydStreamDataPayload payload(nullptr, data);
    QVERIFY(!payload.data()->doubles());
    payload.ResetD(3);
    QVERIFY(payload.data()->doubles());
    payload.data()->doubles()[2] = 1.25;
    QCOMPARE(data->doubles()[2], 1.25);
    payload.ResetD(3);
    QCOMPARE(payload.data()->doubles()[2], 0.0);
}

void tst_StreamPayloads::notifyGivesCodeAndText()
{
    const HydStreamNotifyPayload notify(0xFFFE, "card full");
    QCOMPARE(notify.errorCode(), uint16_t(0xFFFE));
    QCOMPARE(QString::fromStdString(notify.text()), QStringLiteral("card full"));
    QCOMPARE(HydStreamNotifyPayload(3).text().size(), size_t(0));
}

void tst_StreamPayloads::statusGivesWhatWasSet()
{
    const stSTATUS_CHUNK_V0 statusRecord;
    const stHEADING_CHUNK_V0 headRecord;
    const stBATTERY_CHUNK_V0 batteryRecord;
    const stACC_MAG_CHUNK_V0 motionRecord;
    const stTIME_SYNC_CHUNK_V0 clockRecord;
    const stTRIGGER_CHUNK_V0 triggerRecord;
    const auto key = makeKey();
    const auto status = std::make_shared<HydStreamStatusChunkV0 const>(&statusRecord);
    const auto head = std::make_shared<HydStreamHeadStatusChunkV0 const>(&headRecord);
    const auto battery = std::make_shared<HydBatteryChunk const>(&batteryRecord);
    const auto motion = std::make_shared<HydAccMagChunk const>(&motionRecord);
    const auto clock = std::make_shared<HydTimeSyncChunk const>(&clockRecord);
    const auto trigger = std::make_shared<HydTriggerChunk const>(&triggerRecord);
    HydStatusDataPayload payload;
    payload.setEventKey(key);
    payload.setStatusChunk(status);
    payload.setHeadChunk(head);
    payload.setBatteryChunk(battery);
    payload.setAccMagChunk(motion);
    payload.setTimeSyncChunk(clock);
    payload.setTriggerChunk(trigger);
    QVERIFY(payload.eventKey() == key);
    QVERIFY(payload.statusChunk() == status);
    QVERIFY(payload.headChunk() == head);
    QVERIFY(payload.batteryChunk() == battery);
    QVERIFY(payload.accMagChunk() == motion);
    QVERIFY(payload.timeSyncChunk() == clock);
    QVERIFY(payload.triggerChunk() == trigger);
}

void tst_StreamPayloads::aHeaderOfNothing()
{
    const auto header = makeHeader(1);
    QVERIFY(!header.eventKey());
    QVERIFY(header.deviceInfoChunks().empty());
    QVERIFY(header.streamStatusChunks().empty());
    QVERIFY(header.amplScalingChunks().empty());
    QVERIFY(header.streamSetupChunk());
    QVERIFY(!header.streamSetupChunk()->wavSetup());
    QVERIFY(!header.streamSetupChunk()->fftSetup());
    QVERIFY(!header.arrayMasterInfo());
}

void tst_StreamPayloads::aDataPayloadOfNothing()
{
    HydStreamDataPayload payload(nullptr, nullptr);
    QVERIFY(!payload.eventKey());
    QVERIFY(!payload.data());
    QVERIFY(!payload.isLastEvent());
    payload.ResetD(10);
    QVERIFY(!payload.data());
    payload.setLastEvent(true);
    QVERIFY(payload.isLastEvent());
}

void tst_StreamPayloads::aFreshStatusIsEmpty()
{
    const HydStatusDataPayload payload;
    QVERIFY(!payload.eventKey() && !payload.statusChunk() && !payload.headChunk() &&
            !payload.batteryChunk() && !payload.accMagChunk() && !payload.timeSyncChunk() &&
            !payload.triggerChunk());
}

QTEST_APPLESS_MAIN(tst_StreamPayloads)
#include "tst_StreamPayloads.moc"
