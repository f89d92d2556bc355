#include "WavBytes.h"

#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/recording/NvxWavHeaderProcessor.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataTMI.h"
#include "tests/support/NvxTestCase.h"

namespace {

constexpr unsigned kBufferBytes = 1025;

/// Feeds `bytes` in pieces of at most `piece`, and dispatches as long as the processor has something to do.
void feed(NvxWavHeaderProcessor& processor, const QByteArray& bytes, qsizetype piece = kBufferBytes)
{
    CircularByteBuffer buffer(kBufferBytes);
    WavReadEvent event(&buffer);
    bool ended = false;
    for (qsizetype at = 0; at < bytes.size() && !ended; at += piece) {
        const QByteArray part = bytes.mid(at, piece);
        const auto* data = reinterpret_cast<const unsigned char*>(part.constData());
        QCOMPARE(buffer.write(data, static_cast<unsigned long long>(part.size())),
                 static_cast<unsigned long long>(part.size()));
        processor.dispatch(&event);
        QVERIFY2(buffer.isEmpty(), "a dispatch takes all that it is offered");
        QVERIFY(processor.outOfData() != processor.isAtEndState());
        ended = processor.isAtEndState();
    }
}

QByteArray bytesOf(const std::vector<uint8_t>& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), qsizetype(bytes.size())};
}

template <class Info> Info filled(Info info)
{
    info.setTimestamp(1709210096);
    info.setStartSample(0x123456789ABCULL);
    info.setSerialNo(4711, 1);
    info.setDeviceType(DevTypeSkiff, 1);
    info.setSensitivity(-170, 1);
    info.setHwRelease("Model 7", 1);
    return info;
}

QByteArray recorderRecord()
{
    return bytesOf(filled(NvxWavInfoDataHF()).fileBytes());
}

std::shared_ptr<NvxWavInfoData> makeInfo(int channels)
{
    if (channels == 1)
        return std::make_shared<NvxWavInfoDataHF>(filled(NvxWavInfoDataHF()));
    return std::make_shared<NvxWavInfoDataTMI>(
        filled(NvxWavInfoDataTMI(static_cast<unsigned char>(channels))));
}

const QByteArray kSamples(1500, 's');

} // namespace

class tst_NvxWavHeaderProcessor : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void kindOfTheRecordIsItsOwn_data()
    {
        QTest::addColumn<int>("recorded");
        QTest::addColumn<int>("channels");
        QTest::newRow("a recorder's record over two channels") << 1 << 2;
        QTest::newRow("an array's record of fewer channels") << 2 << 5;
    }
    void kindOfTheRecordIsItsOwn()
    {
        QFETCH(int, recorded);
        QFETCH(int, channels);
        const QByteArray record = bytesOf(makeInfo(recorded)->fileBytes());
        NvxWavHeaderProcessor processor(channels);
        feed(processor,
             WavBytes().head().format({.channels = quint16(channels)}).list(record).data(kSamples).bytes,
             1025);
        QCOMPARE(processor.errorCode(), WavHeaderGood);
        const auto info = processor.header()->info();
        QCOMPARE(dynamic_cast<NvxWavInfoDataHF*>(info.get()) != nullptr, recorded == 1);
        QCOMPARE(bytesOf(info->fileBytes()), record);
    }

    void readsWhatTheWriterWrites_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<int>("channels");
        QTest::addColumn<bool>("bigEndian");
        QTest::addColumn<qsizetype>("piece");
        for (int bits : {16, 24, 32}) {
            for (int channels : {1, 2, 8, 255}) {
                for (bool bigEndian : {false, true}) {
                    for (qsizetype piece : {1, 3, 1025})
                        QTest::addRow("%d bits, %d channels, %s, by %d", bits, channels,
                                      bigEndian ? "RIFX" : "RIFF", int(piece))
                            << bits << channels << bigEndian << piece;
                }
            }
        }
    }
    void readsWhatTheWriterWrites()
    {
        QFETCH(int, bits);
        QFETCH(int, channels);
        QFETCH(bool, bigEndian);
        QFETCH(qsizetype, piece);
        const auto fmt = std::make_shared<NvxWavFmtData>(static_cast<uint16_t>(channels), 96000,
                                                         static_cast<uint16_t>(bits));
        const auto info = makeInfo(channels);
        NvxWavHeader written(fmt, info, bigEndian);
        written.setDataSize(123456);
        const QByteArray bytes = bytesOf(written.fileBytes(12));

        NvxWavHeaderProcessor processor(channels);
        feed(processor, bytes + kSamples, piece);
        QVERIFY(processor.isAtEndState());
        QCOMPARE(processor.errorCode(), WavHeaderGood);
        QCOMPARE(processor.isBigEndian(), bigEndian);
        QCOMPARE(processor.headerSize(), quint32(bytes.size()));
        QCOMPARE(processor.listChunkSize(), 0U);
        const auto header = processor.header();
        QVERIFY(header && header->fmt() && header->info());
        QCOMPARE(header->isBigEndian(), bigEndian);
        QCOMPARE(header->dataSize(), 123456U);
        QCOMPARE(int(header->fmt()->numChannels()), channels);
        QCOMPARE(header->fmt()->sampleRate(), 96000U);
        QCOMPARE(int(header->fmt()->bitsPerSamp()), bits);
        QCOMPARE(header->fmt()->blockAlign(), fmt->blockAlign());
        QCOMPARE(header->fmt()->bytesPerSec(), fmt->bytesPerSec());
        QCOMPARE(header->info()->fileBytes(), info->fileBytes());
        QCOMPARE(dynamic_cast<NvxWavInfoDataHF*>(header->info().get()) != nullptr, channels == 1);
    }

    void anyOrderOfChunks_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const QByteArray record = recorderRecord();
        const WavBytes::Format fmt;
        QTest::newRow("list ahead of the format")
            << WavBytes().head().list(record).format(fmt).data(kSamples).bytes;
        QTest::newRow("unknown chunks") << WavBytes()
                                               .head()
                                               .chunk("bext", QByteArray(602, 'b'))
                                               .format(fmt)
                                               .chunk("fact", "1234")
                                               .list(record)
                                               .chunk("PAD ", QByteArray(5000, '\0'))
                                               .data(kSamples)
                                               .bytes;
        QTest::newRow("odd chunks") << WavBytes()
                                           .head()
                                           .chunk("odd ", "123")
                                           .format(fmt)
                                           .chunk("one ", "1")
                                           .list(record)
                                           .data(kSamples)
                                           .bytes;
        QTest::newRow("empty chunk") << WavBytes()
                                            .head()
                                            .chunk("none", "")
                                            .format(fmt)
                                            .chunk("LIST", "")
                                            .list(record)
                                            .data(kSamples)
                                            .bytes;
        QTest::newRow("another list ahead")
            << WavBytes().head().chunk("LIST", "adtllabl").format(fmt).list(record).data(kSamples).bytes;
        QTest::newRow("a foreign list ahead of ours")
            << WavBytes().head().format(fmt).list("").list(record).data(kSamples).bytes;
        QTest::newRow("a foreign list behind ours")
            << WavBytes().head().format(fmt).list(record).list("").data(kSamples).bytes;
        QTest::newRow("another list of ours behind") << WavBytes()
                                                            .head()
                                                            .format(fmt)
                                                            .list(record)
                                                            .list(bytesOf(NvxWavInfoDataHF().fileBytes()))
                                                            .data(kSamples)
                                                            .bytes;
        QTest::newRow("long format") << WavBytes()
                                            .head()
                                            .format({.extension = QByteArray(101, 'x')})
                                            .list(record)
                                            .data(kSamples)
                                            .bytes;
        QTest::newRow("second format is not looked at")
            << WavBytes().head().format(fmt).format({.tag = 3, .bits = 32}).list(record).data(kSamples).bytes;
    }
    void anyOrderOfChunks()
    {
        QFETCH(QByteArray, bytes);
        for (qsizetype piece : {1, 2, 5, 1025}) {
            NvxWavHeaderProcessor processor(1);
            feed(processor, bytes, piece);
            QCOMPARE(processor.errorCode(), WavHeaderGood);
            QCOMPARE(qsizetype(processor.headerSize()), bytes.size() - kSamples.size());
            QCOMPARE(processor.header()->info()->serialNo(1), uint16_t{4711});
            QCOMPARE(processor.header()->fmt()->bitsPerSamp(), uint16_t{16});
        }
    }

    void formatsThatPlay_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<bool>("extensible");
        QTest::addColumn<bool>("bigEndian");
        for (int bits : {8, 12, 16, 20, 24, 32}) {
            for (bool extensible : {false, true}) {
                for (bool bigEndian : {false, true})
                    QTest::addRow("%d bits%s%s", bits, extensible ? ", extensible" : "",
                                  bigEndian ? ", RIFX" : "")
                        << bits << extensible << bigEndian;
            }
        }
    }
    void formatsThatPlay()
    {
        QFETCH(int, bits);
        QFETCH(bool, extensible);
        QFETCH(bool, bigEndian);
        WavBytes file(bigEndian);
        WavBytes::Format fmt{.channels = 3, .rate = 8000, .bits = quint16(bits)};
        if (extensible) {
            fmt.tag = 0xFFFE;
            fmt.extension = file.extensible(1, fmt.bits);
        }
        file.head().format(fmt).list("").data(kSamples);
        NvxWavHeaderProcessor processor(1);
        feed(processor, file.bytes);
        QCOMPARE(processor.errorCode(), WavHeaderGood);
        QCOMPARE(int(processor.header()->fmt()->bitsPerSamp()), bits);
        QCOMPARE(processor.header()->fmt()->numChannels(), uint16_t{3});
        QCOMPARE(int(processor.header()->fmt()->blockAlign()), 3 * ((bits + 7) / 8));
        QCOMPARE(int(processor.header()->fmt()->bytesPerSec()), 8000 * 3 * ((bits + 7) / 8));
    }

    void fileWithoutOurRecordGetsADefault_data()
    {
        QTest::addColumn<bool>("foreignList");
        QTest::addColumn<int>("channels");
        for (int channels : {1, 2, 255}) {
            QTest::addRow("no list, %d channels", channels) << false << channels;
            QTest::addRow("foreign list, %d channels", channels) << true << channels;
        }
    }
    void fileWithoutOurRecordGetsADefault()
    {
        QFETCH(bool, foreignList);
        QFETCH(int, channels);
        WavBytes file;
        file.head().format({.channels = quint16(channels)});
        if (foreignList)
            file.list("");
        NvxWavHeaderProcessor processor(7);
        feed(processor, file.data(kSamples).bytes);
        QVERIFY(processor.isAtEndState());
        QCOMPARE(processor.errorCode(), foreignList ? WavHeaderGood : WavHeaderNoInfo);
        QCOMPARE(processor.headerSize(), quint32(file.bytes.size() - kSamples.size()));
        const auto info = processor.header()->info();
        QCOMPARE(dynamic_cast<NvxWavInfoDataHF*>(info.get()) != nullptr, channels == 1);
        QCOMPARE(int(info->numChannels()), channels);
        QCOMPARE(info->timestamp(), 0U);
        QCOMPARE(info->startSample(), uint64_t{0});
        for (int channel = 0; channel <= channels; ++channel) {
            QCOMPARE(info->serialNo(static_cast<unsigned char>(channel)), uint16_t{0});
            QCOMPARE(info->deviceType(static_cast<unsigned char>(channel)), deviceTypeText(DevTypeWavFile));
        }
    }

    void listAtTheTail_data()
    {
        QTest::addColumn<QByteArray>("tail");
        QTest::addColumn<bool>("isOurs");
        QTest::addColumn<bool>("bigEndian");
        const QByteArray record = recorderRecord();
        for (bool big : {false, true}) {
            QTest::addRow("of our own%s", big ? ", RIFX" : "")
                << WavBytes(big).list(record).bytes << true << big;
            QTest::addRow("foreign%s", big ? ", RIFX" : "") << WavBytes(big).list("").bytes << false << big;
        }
        QTest::newRow("odd, without padding")
            << WavBytes().chunk("LIST", "INFOabc").bytes.chopped(1) << false << false;
    }
    void listAtTheTail()
    {
        QFETCH(QByteArray, tail);
        QFETCH(bool, isOurs);
        QFETCH(bool, bigEndian);
        for (qsizetype piece : {1, 1025}) {
            WavBytes file(bigEndian);
            file.head().format({});
            const qsizetype firstSample = file.bytes.size() + 8;
            NvxWavHeaderProcessor processor(1);
            feed(processor, file.data(kSamples).bytes, piece);
            QCOMPARE(processor.errorCode(), WavHeaderNoInfo);
            QCOMPARE(qsizetype(processor.headerSize()), firstSample);
            QCOMPARE(processor.listChunkSize(), 0U);

            feed(processor, tail, piece);
            QVERIFY(processor.isAtEndState());
            QCOMPARE(processor.errorCode(), WavHeaderGood);
            QCOMPARE(qsizetype(processor.listChunkSize()), tail.size() - 8);
            QCOMPARE(qsizetype(processor.headerSize()), firstSample + tail.size());
            QCOMPARE(processor.header()->dataSize(), 1500U);
            QCOMPARE(processor.isBigEndian(), bigEndian);
            QCOMPARE(processor.header()->isBigEndian(), bigEndian);
            QCOMPARE(processor.header()->info()->serialNo(1), uint16_t(isOurs ? 4711 : 0));
        }
    }

    void tailIsLookedThroughForTheList()
    {
        // As long as the piece that the replay reads off the tail, so it needs two servings.
        WavBytes tail;
        tail.chunk("LIST", "adtllabl").chunk("odd ", "123").list(recorderRecord());
        const qsizetype listBytes = WavBytes().listContent(recorderRecord()).size();
        tail.chunk("more", QByteArray(1026 - 8 - tail.bytes.size(), 'm'));
        QCOMPARE(tail.bytes.size(), qsizetype(1026));
        NvxWavHeaderProcessor processor(1);
        feed(processor, WavBytes().head().format({}).data(kSamples).bytes);
        feed(processor, tail.bytes);
        QCOMPARE(processor.errorCode(), WavHeaderGood);
        QCOMPARE(qsizetype(processor.listChunkSize()), listBytes);
        QCOMPARE(processor.header()->info()->serialNo(1), uint16_t{4711});
    }

    void anotherFileStartsOver()
    {
        NvxWavHeaderProcessor processor(1);
        feed(processor, WavBytes(true).head().format({.channels = 2}).list("").data(kSamples).bytes);
        QVERIFY(processor.isBigEndian());
        const QByteArray plain = WavBytes().head().format({}).data(kSamples).bytes;
        feed(processor, plain);
        QCOMPARE(processor.errorCode(), WavHeaderNoInfo);
        QVERIFY(!processor.isBigEndian());
        QCOMPARE(processor.header()->fmt()->numChannels(), uint16_t{1});
        // Behind a header without a list, too.
        feed(processor, WavBytes().head().format({.rate = 8000}).list(recorderRecord()).data(kSamples).bytes);
        QCOMPARE(processor.errorCode(), WavHeaderGood);
        QCOMPARE(processor.header()->fmt()->sampleRate(), 8000U);
        QCOMPARE(processor.header()->info()->serialNo(1), uint16_t{4711});
        feed(processor, plain);
        QCOMPARE(processor.header()->info()->serialNo(1), uint16_t{0});
    }

    void sizeOfTheDataIsTakenAsItStands_data()
    {
        QTest::addColumn<quint32>("size");
        for (quint32 size : {0U, 1U, 1499U, 0x7FFFFFFFU, 0xFFFFFFFFU})
            QTest::addRow("%u", size) << size;
    }
    void sizeOfTheDataIsTakenAsItStands()
    {
        QFETCH(quint32, size);
        NvxWavHeaderProcessor processor(1);
        feed(processor, WavBytes().head().format({}).list("").data(kSamples, size).bytes);
        QCOMPARE(processor.errorCode(), WavHeaderGood);
        QCOMPARE(processor.header()->dataSize(), size);
    }

    void byteRateIsTakenAsItStands()
    {
        NvxWavHeaderProcessor processor(1);
        feed(processor, WavBytes().head().format({.bytesPerSec = 0}).list("").data(kSamples).bytes);
        QCOMPARE(processor.errorCode(), WavHeaderGood);
        QCOMPARE(processor.header()->fmt()->bytesPerSec(), 0U);
    }

    // --- rainy day flows
    void truncatedAnywhere_data()
    {
        QTest::addColumn<bool>("bigEndian");
        QTest::newRow("RIFF") << false;
        QTest::newRow("RIFX") << true;
    }
    void truncatedAnywhere()
    {
        QFETCH(bool, bigEndian);
        const QByteArray whole =
            WavBytes(bigEndian).head().chunk("odd ", "123").format({}).list(recorderRecord()).data("").bytes;
        for (qsizetype size = 0; size < whole.size(); ++size) {
            NvxWavHeaderProcessor processor(1);
            feed(processor, whole.left(size));
            QVERIFY(!processor.isAtEndState() && processor.outOfData());
            QCOMPARE(processor.errorCode(), WavHeaderTruncated);
            QVERIFY(!processor.header());
            QCOMPARE(processor.headerSize(), 0U);
        }
    }

    void tailTruncatedAnywhere()
    {
        const QByteArray tail = WavBytes().list(recorderRecord()).bytes;
        const QByteArray plain = WavBytes().head().format({}).data(kSamples).bytes;
        for (qsizetype size = 0; size < tail.size(); ++size) {
            NvxWavHeaderProcessor processor(1);
            feed(processor, plain);
            const quint32 before = processor.headerSize();
            feed(processor, tail.left(size));
            QCOMPARE(processor.errorCode(), WavHeaderNoInfo);
            QVERIFY(processor.header());
            QCOMPARE(processor.header()->info()->serialNo(1), uint16_t{0});
            QCOMPARE(processor.headerSize(), before);
            QCOMPARE(processor.listChunkSize(), 0U);
        }
    }

    void badHeaders_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("error");
        const auto file = [] { return WavBytes().head(); };
        const auto row = [](const char* name, WavBytes bytes, WavHeaderErr error) {
            QTest::newRow(name) << bytes.data(kSamples).bytes << int(error);
        };
        const auto format = [&](const char* name, const WavBytes::Format& fmt, WavHeaderErr error) {
            row(name, file().format(fmt).list(recorderRecord()), error);
        };
        row("zeros", WavBytes().raw(QByteArray(64, '\0')), WavHeaderNoWave);
        row("text", WavBytes().raw("This is a text, and no sound at all."), WavHeaderNoWave);
        row("RF64", WavBytes().raw("RF64").raw("\xff\xff\xff\xffWAVE").format({}), WavHeaderNoWave);
        row("AVI", WavBytes().raw("RIFF").raw(QByteArray(4, '\0')).raw("AVI ").format({}), WavHeaderNoWave);
        row("list of a tail alone", WavBytes().list(recorderRecord()), WavHeaderNoWave);
        row("no format", file().list(recorderRecord()), WavHeaderBadFormat);
        format("no channels", {.channels = 0}, WavHeaderBadFormat);
        format("256 channels", {.channels = 256}, WavHeaderBadFormat);
        format("65535 channels", {.channels = 65535, .bits = 8}, WavHeaderBadFormat);
        format("no rate", {.rate = 0}, WavHeaderBadFormat);
        format("0 bits", {.bits = 0}, WavHeaderBadFormat);
        format("7 bits", {.bits = 7}, WavHeaderBadFormat);
        format("33 bits", {.bits = 33}, WavHeaderBadFormat);
        format("64 bits", {.bits = 64}, WavHeaderBadFormat);
        format("65535 bits", {.bits = 65535}, WavHeaderBadFormat);
        format("floating point", {.tag = 3, .bits = 32}, WavHeaderBadFormat);
        format("compressed", {.tag = 2, .bits = 16}, WavHeaderBadFormat);
        format("tag 0", {.tag = 0}, WavHeaderBadFormat);
        format("extensible, floating point",
               {.tag = 0xFFFE, .bits = 32, .extension = WavBytes().extensible(3, 32)}, WavHeaderBadFormat);
        format("extensible, no kind", {.tag = 0xFFFE, .extension = WavBytes().extensible(0x20000, 16)},
               WavHeaderBadFormat);
        format("extensible, a kind beyond 16 bits",
               {.tag = 0xFFFE, .extension = WavBytes().extensible(0x10001, 16)}, WavHeaderBadFormat);
        format("extensible, too short", {.tag = 0xFFFE, .extension = WavBytes().extensible(1, 16).chopped(1)},
               WavHeaderBadSize);
        format("block align 0", {.blockAlign = 0}, WavHeaderBadSize);
        format("block align of another depth", {.blockAlign = 3}, WavHeaderBadSize);
        format("block align of one channel", {.channels = 2, .blockAlign = 2}, WavHeaderBadSize);
        row("format of 15 bytes", file().chunk("fmt ", WavBytes().formatContent({}).left(15)),
            WavHeaderBadSize);
        row("format of no bytes", file().chunk("fmt ", ""), WavHeaderBadSize);
        for (const char* name : {"fmt ", "LIST", "junk"}) {
            row(QByteArray(name) + " of 2^32 - 1", file().chunk(name, kSamples, 0xFFFFFFFF),
                WavHeaderBadSize);
            row(QByteArray(name) + " of 2^31", file().chunk(name, kSamples, 0x80000000), WavHeaderBadSize);
        }
    }
    void badHeaders()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, error);
        for (qsizetype piece : {1, 1025}) {
            NvxWavHeaderProcessor processor(1);
            feed(processor, bytes, piece);
            QVERIFY(processor.isAtEndState());
            QCOMPARE(int(processor.errorCode()), error);
            QVERIFY(!processor.header());
            QCOMPARE(processor.headerSize(), 0U);
        }
    }

    void listsThatHoldNothingOfOurs_data()
    {
        QTest::addColumn<QByteArray>("content");
        const QByteArray record = recorderRecord();
        const auto list = [](const QByteArray& entries) { return "INFO" + entries; };
        const auto entry = [](const QByteArray& name, const QByteArray& content, qint64 claimed = -1) {
            return WavBytes().chunk(name, content, claimed).bytes;
        };
        QTest::newRow("no entries") << list("");
        QTest::newRow("list inside a list") << list(entry("LIST", WavBytes().listContent(record)));
        QTest::newRow("record cut") << list(entry("INVX", record.chopped(1)));
        QTest::newRow("record too long") << list(entry("INVX", record + "x"));
        QTest::newRow("record of no bytes") << list(entry("INVX", ""));
        QTest::newRow("record of two bytes") << list(entry("INVX", "ab"));
        QTest::newRow("record of another version")
            << list(entry("INVX", QByteArray(record).replace(1, 1, "\2")));
        QTest::newRow("record of no kind") << list(entry("INVX", QByteArray(record).replace(2, 1, "\3")));
        QTest::newRow("record of another kind")
            << list(entry("INVX", QByteArray(record).replace(2, 1, "\2")));
        QTest::newRow("entry that claims more") << list(entry("ISFT", "abc", 5000) + entry("INVX", record));
        QTest::newRow("entry of 2^32 - 1") << list(entry("ISFT", "abc", 0xFFFFFFFF) + entry("INVX", record));
        QTest::newRow("record that claims more") << list(entry("INVX", record, record.size() + 2));
        QTest::newRow("half an entry's head") << list("INVX\x05\x00");
    }
    void listsThatHoldNothingOfOurs()
    {
        QFETCH(QByteArray, content);
        NvxWavHeaderProcessor processor(1);
        feed(processor, WavBytes().head().format({}).chunk("LIST", content).data(kSamples).bytes);
        QCOMPARE(processor.errorCode(), WavHeaderGood);
        QCOMPARE(processor.header()->info()->serialNo(1), uint16_t{0});
    }

    void brokenTailTakesNothingAway_data()
    {
        QTest::addColumn<QByteArray>("tail");
        QTest::addColumn<bool>("ends");
        QTest::newRow("claims more than there is") << WavBytes().chunk("LIST", "INFO", 5000).bytes << false;
        QTest::newRow("of 2^32 - 1") << WavBytes().chunk("LIST", "INFO", 0xFFFFFFFF).bytes << true;
        QTest::newRow("samples") << QByteArray("LISTen to this") << true;
        QTest::newRow("of no bytes") << WavBytes().chunk("LIST", "").bytes << false;
        QTest::newRow("data chunk behind") << WavBytes().chunk("LIST", "adtl").data("abcd").bytes << false;
    }
    void brokenTailTakesNothingAway()
    {
        QFETCH(QByteArray, tail);
        QFETCH(bool, ends);
        NvxWavHeaderProcessor processor(1);
        feed(processor, WavBytes().head().format({}).data(kSamples).bytes);
        const auto header = processor.header();
        feed(processor, tail);
        QCOMPARE(processor.isAtEndState(), ends);
        QCOMPARE(processor.errorCode(), WavHeaderNoInfo);
        QCOMPARE(processor.header(), header);
        QCOMPARE(processor.listChunkSize(), 0U);
    }

    void boundOfWhatStandsAhead_data()
    {
        QTest::addColumn<qint64>("excess");
        QTest::newRow("as much as is allowed") << qint64(0);
        QTest::newRow("a chunk more") << qint64(2);
    }
    void boundOfWhatStandsAhead()
    {
        QFETCH(qint64, excess);
        WavBytes file;
        file.head().format({});
        const qint64 room = NvxWavHeaderProcessor::kMaxBytesAhead - file.bytes.size() - 8;
        file.chunk("junk", QByteArray(qsizetype(room + excess), 'j')).data(kSamples);
        NvxWavHeaderProcessor processor(1);
        feed(processor, file.bytes);
        QCOMPARE(processor.errorCode(), excess == 0 ? WavHeaderNoInfo : WavHeaderBadSize);
        QCOMPARE(processor.header() != nullptr, excess == 0);
    }

    void boundOfAList_data()
    {
        QTest::addColumn<qint64>("excess");
        QTest::newRow("record just inside") << qint64(0);
        QTest::newRow("record across the border") << qint64(2);
    }
    void boundOfAList()
    {
        QFETCH(qint64, excess);
        const QByteArray record =
            recorderRecord() + (recorderRecord().size() % 2 != 0 ? QByteArray(1, '\0') : "");
        const qint64 room = NvxWavHeaderProcessor::kMaxListBytes - 4 - 8 - 8 - record.size();
        const QByteArray long_ = QByteArray(qsizetype(room + excess), 't');
        WavBytes list;
        list.raw("INFO")
            .chunk("ICMT", long_)
            .chunk("INVX", recorderRecord())
            .chunk("ICRD", QByteArray(90000, 'd'));
        NvxWavHeaderProcessor processor(1);
        WavBytes file;
        file.head().format({}).chunk("LIST", list.bytes).data(kSamples);
        feed(processor, file.bytes);
        QCOMPARE(processor.errorCode(), WavHeaderGood);
        QCOMPARE(processor.header()->info()->serialNo(1), uint16_t(excess == 0 ? 4711 : 0));
        QCOMPARE(qsizetype(processor.headerSize()), file.bytes.size() - kSamples.size());
    }

    void eventsWithoutBytesChangeNothing()
    {
        NvxWavHeaderProcessor processor(1);
        StateEvent other;
        WavReadEvent none(nullptr);
        CircularByteBuffer buffer(kBufferBytes);
        WavReadEvent empty(&buffer);
        for (StateEvent* event :
             {&other, static_cast<StateEvent*>(&none), static_cast<StateEvent*>(&empty)}) {
            processor.dispatch(event);
            QVERIFY(!processor.isAtEndState() && processor.outOfData());
            QCOMPARE(processor.errorCode(), WavHeaderTruncated);
        }
        feed(processor, WavBytes().head().format({}).list("").data(kSamples).bytes);
        QCOMPARE(processor.errorCode(), WavHeaderGood);
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavHeaderProcessor)
#include "tst_NvxWavHeaderProcessor.moc"
