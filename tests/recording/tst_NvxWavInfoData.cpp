#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/NvxWavDataChunk.h"
#include "NvxQtCommon/contract/recording/NvxWavHeader.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"
#include "NvxQtCommon/contract/recording/NvxWavSetupData.h"
#include "NvxQtCommon/contract/recording/NvxWavTestInfoData.h"
#include "tests/support/NvxTestCase.h"

#include <QtEndian>

#include <type_traits>

namespace {

QByteArray latin(const std::string& text)
{
    return QByteArray::fromStdString(text);
}

void fillCommon(NvxWavInfoData& info)
{
    info.setTimestamp(1709210096);
    info.setStartSample(0x123456789ABCULL);
    info.applyFileName("ABC0042_20240229_123456");
    info.setSoftware("Nerivox' test");
    info.setPeakVolts(2.5F);
    info.setFullScaleCount(0x800000);
}

void fillSlot(NvxWavInfoData& info, unsigned char channel, int salt)
{
    info.setDeviceType(channel == 0 ? DevTypeTmi : DevTypeSkiff, channel);
    info.setSerialNo(static_cast<uint16_t>(1000 + salt), channel);
    info.setDeviceText("version " + std::to_string(salt), channel);
    info.setSensitivity(static_cast<int16_t>(-170 - salt), channel);
    info.setTemperature(static_cast<int16_t>(-15 + salt), channel);
    info.setHumidity(static_cast<int16_t>(400 + salt), channel);
    info.setStatusExtra(static_cast<uint8_t>(7 + salt), channel);
    info.setHwRelease("Model " + std::to_string(salt), channel);
}

void compareCommon(const NvxWavInfoData& info)
{
    QCOMPARE(info.timestamp(), 1709210096U);
    QCOMPARE(info.startSample(), uint64_t{0x123456789ABC});
    QCOMPARE(latin(info.fileName()), QByteArray("ABC0042_20240229_123456"));
    QCOMPARE(latin(info.software(1)), QByteArray("Nerivox' test"));
    QCOMPARE(info.peakVolts(), 2.5F);
    QCOMPARE(info.fullScaleCount(), 0x800000);
}

void compareSlot(const NvxWavInfoData& info, unsigned char channel, int salt)
{
    QCOMPARE(info.serialNo(channel), uint16_t(1000 + salt));
    QCOMPARE(latin(info.deviceText(channel)), "version " + QByteArray::number(salt));
    QCOMPARE(info.sensitivity(channel), int16_t(-170 - salt));
    QCOMPARE(info.temperature(channel), int16_t(-15 + salt));
    QCOMPARE(info.humidity(channel), int16_t(400 + salt));
    QCOMPARE(info.statusExtra(channel), uint8_t(7 + salt));
    QCOMPARE(latin(info.hwRelease(channel)), "Model " + QByteArray::number(salt));
}

std::shared_ptr<HydStreamHeadStatusChunk> makeHeading()
{
    stHEADING_CHUNK_V0 record;
    record.time = 1709210000;
    record.heading = 3599;
    record.pitch = -123;
    record.roll = 321;
    return std::make_shared<HydStreamHeadStatusChunkV0>(&record);
}

NvxWavInfoDataHF makeRecorderInfo()
{
    NvxWavInfoDataHF info;
    fillCommon(info);
    fillSlot(info, 1, 1);
    info.setHeadStatus(makeHeading());
    return info;
}

NvxWavInfoDataTMI makeArrayInfo(unsigned char channels)
{
    NvxWavInfoDataTMI info(channels);
    fillCommon(info);
    for (unsigned channel = 0; channel <= channels; ++channel)
        fillSlot(info, static_cast<unsigned char>(channel), int(channel));
    return info;
}

} // namespace

class tst_NvxWavInfoData : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void classesDeriveAsTheyShould()
    {
        QVERIFY((std::is_base_of_v<NvxWavEventData, NvxWavInfoData>));
        QVERIFY((std::is_base_of_v<NvxWavInfoData, NvxWavInfoDataHF>));
        QVERIFY((std::is_base_of_v<ISerializable, NvxWavInfoDataHF>));
        QVERIFY((std::is_base_of_v<DeserializationFactory<NvxWavInfoDataHF>, NvxWavInfoDataHF>));
        QVERIFY((std::is_base_of_v<NvxWavInfoData, NvxWavInfoDataTMI>));
        QVERIFY((std::is_base_of_v<ISerializable, NvxWavInfoDataTMI>));
        QVERIFY((std::is_base_of_v<DeserializationFactory<NvxWavInfoDataTMI>, NvxWavInfoDataTMI>));
        QVERIFY((std::is_base_of_v<NvxWavEventData, NvxWavSetupData>));
        QVERIFY((std::is_base_of_v<NvxWavEventData, NvxWavDataChunk>));
        QVERIFY((std::is_base_of_v<NvxWavEventData, NvxWavTestInfoData>));
        QVERIFY(std::is_abstract_v<NvxWavEventData> && std::has_virtual_destructor_v<NvxWavEventData>);
        QVERIFY(std::is_default_constructible_v<NvxWavTestInfoData>);
        QVERIFY(std::is_copy_constructible_v<NvxWavTestInfoData>);
    }

    void oneRecorderHasOneSlot()
    {
        NvxWavInfoDataHF info;
        fillSlot(info, 3, 5);
        for (unsigned char channel : {0, 1, 3, 200})
            compareSlot(info, channel, 5);
        QCOMPARE(info.numChannels(), 1);
        info.setDeviceType(DevTypeRecorderB, 0);
        QCOMPARE(HydUtil::deviceType(info.deviceType(1)), DevTypeRecorderB);
        info.setHwRelease("without a channel");
        QCOMPARE(latin(info.hwRelease(1)), QByteArray("without a channel"));
    }

    void recorderComesBackFromItsBytes()
    {
        const auto read = NvxWavInfoDataHF::fromBytes(makeRecorderInfo().fileBytes());
        QVERIFY(read);
        compareCommon(*read);
        compareSlot(*read, 1, 1);
        QCOMPARE(HydUtil::deviceType(read->deviceType(1)), DevTypeSkiff);
        QVERIFY(read->headStatus());
        QCOMPARE(read->headStatus()->time(), 1709210000U);
        QCOMPARE(read->headStatus()->heading(), uint16_t{3599});
        QCOMPARE(read->headStatus()->pitch(), int16_t{-123});
        QCOMPARE(read->headStatus()->roll(), int16_t{321});
    }

    void hostTypeStandsApartOnceRead()
    {
        const auto read = NvxWavInfoDataHF::fromBytes(makeRecorderInfo().fileBytes());
        QVERIFY(read);
        QCOMPARE(HydUtil::deviceType(read->deviceType(0)), DevTypeSkiff);
        read->setDeviceType(DevTypeWavFile, 0);
        QCOMPARE(HydUtil::deviceType(read->deviceType(0)), DevTypeWavFile);
        QCOMPARE(HydUtil::deviceType(read->deviceType(1)), DevTypeSkiff);
    }

    void recorderWithoutHeadingComesBack()
    {
        NvxWavInfoDataHF info;
        const auto read = NvxWavInfoDataHF::fromBytes(info.fileBytes());
        QVERIFY(read);
        QVERIFY(!read->headStatus());
    }

    void arrayComesBackFromItsBytes_data()
    {
        QTest::addColumn<int>("channels");
        for (int channels : {0, 1, 4, 255})
            QTest::addRow("%d channels", channels) << channels;
    }
    void arrayComesBackFromItsBytes()
    {
        QFETCH(int, channels);
        const auto read =
            NvxWavInfoDataTMI::fromBytes(makeArrayInfo(static_cast<unsigned char>(channels)).fileBytes());
        QVERIFY(read);
        QCOMPARE(int(read->numChannels()), channels);
        compareCommon(*read);
        for (int channel = 0; channel <= channels; ++channel) {
            compareSlot(*read, static_cast<unsigned char>(channel), channel);
            QCOMPARE(HydUtil::deviceType(read->deviceType(static_cast<unsigned char>(channel))),
                     channel == 0 ? DevTypeTmi : DevTypeSkiff);
        }
    }

    void arrayKeepsItsChannelsWhenResized()
    {
        NvxWavInfoDataTMI info = makeArrayInfo(2);
        info.setNumChannels(3);
        compareSlot(info, 2, 2);
        QCOMPARE(info.serialNo(3), uint16_t{0});
        info.setNumChannels(1);
        info.setNumChannels(2);
        QCOMPARE(info.serialNo(2), uint16_t{0});
    }

    void copiesAreWhole()
    {
        const NvxWavInfoDataHF recorder = makeRecorderInfo();
        QCOMPARE(recorder.clone()->fileBytes(), recorder.fileBytes());
        const NvxWavInfoDataTMI array = makeArrayInfo(3);
        QCOMPARE(array.clone()->fileBytes(), array.fileBytes());
    }

    void formatBlock()
    {
        const NvxWavFmtData fmt(4, 48000, 24);
        QCOMPARE(fmt.numChannels(), uint16_t{4});
        QCOMPARE(fmt.sampleRate(), 48000U);
        QCOMPARE(fmt.bitsPerSamp(), uint16_t{24});
        QCOMPARE(fmt.blockAlign(), uint16_t{12});
        QCOMPARE(fmt.bytesPerSec(), 576000U);
        QVERIFY(fmt.isValid());
    }

    void setupCountsBytes()
    {
        NvxWavSetupData setup;
        setup.setBitDepth(24);
        setup.setGain(-6);
        setup.setSampleRate(96000);
        setup.setBigEndian(true);
        QCOMPARE(setup.bytesPerSample(), 3U);
        QCOMPARE(setup.gain(), short{-6});
        QCOMPARE(setup.sampleRate(), 96000U);
        QVERIFY(setup.isBigEndian());
        QVERIFY(!NvxWavSetupData().isBigEndian() && !NvxWavDataChunk().isBigEndian());
    }

    void headerCarriesItsFields()
    {
        const auto fmt = std::make_shared<NvxWavFmtData>(1, 48000, 16);
        const auto info = std::make_shared<NvxWavInfoDataHF>(makeRecorderInfo());
        NvxWavHeader header(fmt, info, false);
        header.setDataSize(7);
        header.setBigEndian(true);
        QCOMPARE(header.dataSize(), 7U);
        QVERIFY(header.isBigEndian());
        QCOMPARE(header.fmt(), fmt);
        QCOMPARE(header.info().get(), info.get());
        const std::vector<uint8_t> bytes = header.fileBytes(0);
        // The last field is the data size, and the whole counts the padding of its odd number.
        QCOMPARE(std::vector<uint8_t>(bytes.end() - 4, bytes.end()), (std::vector<uint8_t>{0, 0, 0, 7}));
        const auto riff = NvxWavHeader::sizeField(static_cast<uint32_t>(bytes.size() - 8 + 8), true);
        QCOMPARE(std::vector<uint8_t>(bytes.begin() + 4, bytes.begin() + 8), riff);
    }

    void headerStandsAsDocumented_data()
    {
        QTest::addColumn<bool>("bigEndian");
        QTest::newRow("RIFF") << false;
        QTest::newRow("RIFX") << true;
    }
    void headerStandsAsDocumented()
    {
        QFETCH(bool, bigEndian);
        const NvxWavHeader header(std::make_shared<NvxWavFmtData>(1, 96000, 24),
                                  std::make_shared<NvxWavInfoDataHF>(makeRecorderInfo()), bigEndian);
        const std::vector<uint8_t> file = header.fileBytes(6);
        const QByteArray bytes(reinterpret_cast<const char*>(file.data()), qsizetype(file.size()));
        const auto u16 = [&](qsizetype at) {
            return bigEndian ? qFromBigEndian<quint16>(bytes.constData() + at)
                             : qFromLittleEndian<quint16>(bytes.constData() + at);
        };
        const auto u32 = [&](qsizetype at) {
            return bigEndian ? qFromBigEndian<quint32>(bytes.constData() + at)
                             : qFromLittleEndian<quint32>(bytes.constData() + at);
        };
        QCOMPARE(bytes.left(4), QByteArray(bigEndian ? "RIFX" : "RIFF"));
        QCOMPARE(u32(4), quint32(bytes.size() - 8));
        QCOMPARE(bytes.mid(8, 8), QByteArray("WAVEfmt "));
        QCOMPARE(u32(16), 16U);
        QCOMPARE(u16(20), quint16{1});
        QCOMPARE(u16(22), quint16{1});
        QCOMPARE(u32(24), 96000U);
        QCOMPARE(u32(28), 288000U);
        QCOMPARE(u16(32), quint16{3});
        QCOMPARE(u16(34), quint16{24});
        QCOMPARE(bytes.mid(36, 4), QByteArray("LIST"));
        QCOMPARE(bytes.mid(44, 4), QByteArray("INFO"));
        const qsizetype data = 44 + qsizetype(u32(40));
        QCOMPARE(bytes.mid(data, 4), QByteArray("data"));
        QCOMPARE(u32(data + 4), 0U);
        QCOMPARE(bytes.size(), data + 8);
        // The private entry is big-endian in both.
        const qsizetype record = bytes.indexOf("INVX") + 8;
        QCOMPARE(qsizetype(u32(record - 4)), qsizetype(header.info()->fileBytes().size()));
        QCOMPARE(bytes.mid(record, 23), QByteArray::fromHex("000101"
                                                            "65e079f0"
                                                            "0000123456789abc"
                                                            "40200000"
                                                            "00800000"));
        QCOMPARE(bytes.mid(record + 23, 24), QByteArray("\x17"
                                                        "ABC0042_20240229_123456"));
        QCOMPARE(bytes.mid(record + 47, 14), QByteArray("\x0d"
                                                        "Nerivox' test"));
        const qsizetype slot = record + 47 + 14;
        QCOMPARE(bytes.mid(slot, 10), QByteArray::fromHex("0f"
                                                          "03e9"
                                                          "ff55"
                                                          "fff2"
                                                          "0191"
                                                          "08"));
        QCOMPARE(bytes.mid(slot + 10, 10), QByteArray("\x09"
                                                      "version 1"));
        QCOMPARE(bytes.mid(slot + 20, 8), QByteArray("\x07"
                                                     "Model 1"));
        QCOMPARE(bytes.mid(slot + 28, 11), QByteArray::fromHex("01"
                                                               "65e07990"
                                                               "0e0f"
                                                               "ff85"
                                                               "0141"));
    }

    // --- rainy day flows
    void headerStaysSmallWithLongTexts()
    {
        NvxWavInfoDataHF info = makeRecorderInfo();
        const std::string longText(5000, 'x');
        info.applyFileName(longText);
        info.setSoftware(longText);
        info.setDeviceText(longText, 0);
        info.setHwRelease(longText);
        info.setSerialNo(65535, 0);
        info.setSensitivity(-32768, 0);
        info.setDeviceType(static_cast<HydDeviceType>(255), 0);
        const NvxWavHeader header(std::make_shared<NvxWavFmtData>(1, 512000, 24),
                                  std::make_shared<NvxWavInfoDataHF>(info), false);
        QVERIFY(header.fileBytes(-32768).size() < 900);
        const auto read = NvxWavInfoDataHF::fromBytes(info.fileBytes());
        QVERIFY(read);
        QCOMPARE(latin(read->fileName()), QByteArray(80, 'x'));
    }

    void longTextsAreCutAtACharacter()
    {
        NvxWavInfoDataHF info;
        info.setSoftware("a" + QStringLiteral("ä").repeated(60).toStdString());
        const auto read = NvxWavInfoDataHF::fromBytes(info.fileBytes());
        QVERIFY(read);
        QCOMPARE(latin(read->software()), "a" + QStringLiteral("ä").repeated(39).toUtf8());
    }

    void arrayIgnoresUnknownChannels()
    {
        NvxWavInfoDataTMI info = makeArrayInfo(2);
        fillSlot(info, 3, 9);
        QCOMPARE(info.fileBytes(), makeArrayInfo(2).fileBytes());
        QCOMPARE(info.serialNo(3), uint16_t{0});
        QCOMPARE(info.sensitivity(255), int16_t{0});
        QVERIFY(info.hwRelease(3).empty());
        QCOMPARE(latin(info.deviceType(3)), latin(deviceTypeText(DevTypeAny)));
    }

    void brokenBytesAreRefused()
    {
        const std::vector<uint8_t> recorder = makeRecorderInfo().fileBytes();
        const std::vector<uint8_t> array = makeArrayInfo(2).fileBytes();
        for (size_t size = 0; size < recorder.size(); ++size)
            QVERIFY(!NvxWavInfoDataHF::fromBytes({recorder.data(), size}));
        for (size_t size = 0; size < array.size(); ++size)
            QVERIFY(!NvxWavInfoDataTMI::fromBytes({array.data(), size}));
        QVERIFY(!NvxWavInfoDataHF::fromBytes(array));
        QVERIFY(!NvxWavInfoDataTMI::fromBytes(recorder));
        std::vector<uint8_t> longer = recorder;
        longer.push_back(0);
        QVERIFY(!NvxWavInfoDataHF::fromBytes(longer));
        std::vector<uint8_t> otherVersion = recorder;
        otherVersion[1] = 2;
        QVERIFY(!NvxWavInfoDataHF::fromBytes(otherVersion));
    }

    void formatsThatNoFileHolds_data()
    {
        QTest::addColumn<int>("channels");
        QTest::addColumn<quint32>("rate");
        QTest::addColumn<int>("bits");
        QTest::newRow("8 bits") << 1 << 48000U << 8;
        QTest::newRow("0 bits") << 1 << 48000U << 0;
        QTest::newRow("40 bits") << 1 << 48000U << 40;
        QTest::newRow("120 bits") << 1 << 48000U << 120;
        QTest::newRow("20 bits") << 1 << 48000U << 20;
        QTest::newRow("no channels") << 0 << 48000U << 16;
        QTest::newRow("no rate") << 1 << 0U << 16;
        QTest::newRow("byte rate too large") << 8 << 0xFFFFFFFFU << 32;
    }
    void formatsThatNoFileHolds()
    {
        QFETCH(int, channels);
        QFETCH(quint32, rate);
        QFETCH(int, bits);
        QVERIFY(!NvxWavFmtData(static_cast<uint16_t>(channels), rate, static_cast<uint16_t>(bits)).isValid());
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavInfoData)
#include "tst_NvxWavInfoData.moc"
