#include "NvxQtCommon/contract/stream/HydStreamDataChunk.h"
#include "tests/stream/StreamBytes.h"
#include "tests/stream/VirtualOrder.h"
#include "tests/support/NvxTestCase.h"

#include <algorithm>
#include <type_traits>

class tst_HydStreamDataChunk : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void virtualFunctionsKeepTheirPlaces();
    void gettersGiveTheArguments();
    void ownershipOfTheDataPasses();
    void bytesAreWritableInPlace();
    void aPlainSizeGivesZeroBytes();
    void formatByte_data();
    void formatByte();
    void doublesAreReadied();
    void waveBlocksRead_data();
    void waveBlocksRead();
    void aSpectrumHoldsOneByteABin_data();
    void aSpectrumHoldsOneByteABin();
    void bodyGoesOverTheWireAndBack();
    // --- rainy day flows
    void allZeroMakesAChunkWithoutBytes();
    void nullDataHasNoBytes();
    void countsThatDontFitAreRefused_data();
    void countsThatDontFitAreRefused();
    void aBodyCutAtAnyByteIsRefused();
    void anEmptyBlockHasNoBytes();
};

void tst_HydStreamDataChunk::virtualFunctionsKeepTheirPlaces()
{
    static_assert(
        std::is_same_v<decltype(&HydStreamDataChunk::numSamples), uint16_t (HydStreamDataChunk::*)() const>);
    QCOMPARE(virtualPlace(&HydStreamDataChunk::numSamples), size_t(9));
    QCOMPARE(virtualPlace(&HydStreamDataChunk::bytes), size_t(10));
    QCOMPARE(virtualPlace(&HydStreamDataChunk::doubles), size_t(14));
}

void tst_HydStreamDataChunk::gettersGiveTheArguments()
{
    const HydStreamDataChunkV0 chunk(4000000000U, 8, 0x83, 65535, nullptr, false);
    QCOMPARE(chunk.sampleNum(), 4000000000U);
    QCOMPARE(chunk.numChannels(), uint8_t(8));
    QCOMPARE(chunk.sampleFormat(), uint8_t(0x83));
    QCOMPARE(chunk.numSamples(), uint16_t(65535));
    QCOMPARE(chunk.chunkType(), uint16_t(9));
}

void tst_HydStreamDataChunk::ownershipOfTheDataPasses()
{
    auto* data = new unsigned char[12];
    std::fill_n(data, 12, static_cast<unsigned char>(9));
    const HydStreamDataChunkV0 chunk(0, 2, 0x03, 2, data, false);
    QVERIFY(chunk.bytes().get() == data);
    QCOMPARE(chunk.byteSize(), size_t(12));
    // A leak or a double free ends the run under AddressSanitizer.
    const auto kept = chunk.bytes();
    QCOMPARE(kept[11], static_cast<unsigned char>(9));
}

void tst_HydStreamDataChunk::bytesAreWritableInPlace()
{
    const HydStreamDataChunkV0 chunk(0, 1, 1, 4, 4U, false);
    chunk.bytes()[2] = 200;
    QCOMPARE(chunk.bytes()[2], static_cast<unsigned char>(200));
    QCOMPARE(wireOf(chunk).at(8 + 2), uint8_t(200));
}

void tst_HydStreamDataChunk::aPlainSizeGivesZeroBytes()
{
    const HydStreamDataChunkV0 chunk(0, 1, 1, 4, 5U, false);
    QCOMPARE(chunk.byteSize(), size_t(5));
    QVERIFY(
        std::all_of(chunk.bytes().get(), chunk.bytes().get() + 5, [](unsigned char c) { return c == 0; }));
}

void tst_HydStreamDataChunk::formatByte_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<bool>("bigEndian");
    QTest::addColumn<int>("bytesPerSample");
    // Bit 7 means the opposite of the same bit of a wave setup: intended.
    QTest::newRow("16 bit big-endian") << 0x02 << true << 2;
    QTest::newRow("16 bit little-endian") << 0x82 << false << 2;
    QTest::newRow("24 bit little-endian") << 0x83 << false << 3;
    QTest::newRow("32 bit big-endian") << 0x04 << true << 4;
    QTest::newRow("bits 4 to 6 say nothing") << 0x72 << true << 2;
}

void tst_HydStreamDataChunk::formatByte()
{
    QFETCH(int, format);
    QFETCH(bool, bigEndian);
    QFETCH(int, bytesPerSample);
    const HydStreamDataChunkV0 chunk(0, 1, static_cast<unsigned char>(format), 0, 0U, false);
    QCOMPARE(chunk.isBigEndian(), bigEndian);
    QCOMPARE(int(chunk.bytesPerSample()), bytesPerSample);
    QCOMPARE(int(chunk.bitDepth()), bytesPerSample * 8);
}

void tst_HydStreamDataChunk::doublesAreReadied()
{
    HydStreamDataChunkV0 chunk(0, 1, 1, 4, 4U, false);
    QVERIFY(!chunk.doubles());
    chunk.resetDoubles(3);
    const auto first = chunk.doubles();
    QVERIFY(first);
    for (int i = 0; i < 3; ++i)
        QCOMPARE(first[i], 0.0);
    first[1] = 4.5;
    QCOMPARE(chunk.doubles()[1], 4.5);
    chunk.resetDoubles(2);
    QCOMPARE(chunk.doubles()[1], 0.0);
    QCOMPARE(first[1], 4.5);
}

void tst_HydStreamDataChunk::waveBlocksRead_data()
{
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("format");
    QTest::addColumn<int>("count");
    QTest::newRow("one sample of 8 bit") << 1 << 0x01 << 1;
    QTest::newRow("16 bit") << 1 << 0x82 << 1000;
    QTest::newRow("24 bit, 8 channels") << 8 << 0x83 << 1000;
    QTest::newRow("32 bit") << 1 << 0x04 << 65535;
    QTest::newRow("15 bytes, 255 channels") << 255 << 0x0F << 3;
}

void tst_HydStreamDataChunk::waveBlocksRead()
{
    QFETCH(int, channels);
    QFETCH(int, format);
    QFETCH(int, count);
    Bytes samples(size_t(count * channels * (format & 15)));
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<uint8_t>(i * 7);
    const Bytes body = bigEndian(77, 4) +
                       Bytes{static_cast<uint8_t>(channels), static_cast<uint8_t>(format)} +
                       bigEndian(static_cast<uint64_t>(count), 2) + samples;
    ByteReader in(body);
    const auto chunk = HydStreamDataChunkV0::fromWire(in, false);
    QVERIFY(chunk);
    QCOMPARE(chunk->sampleNum(), 77U);
    QCOMPARE(int(chunk->numChannels()), channels);
    QCOMPARE(int(chunk->numSamples()), count);
    QCOMPARE(chunk->byteSize(), samples.size());
    QVERIFY(std::equal(samples.begin(), samples.end(), chunk->bytes().get()));
}

void tst_HydStreamDataChunk::aSpectrumHoldsOneByteABin_data()
{
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("format");
    QTest::newRow("as a wave of 8 bit") << 1 << 0x01;
    QTest::newRow("format of 24 bit") << 1 << 0x83;
    QTest::newRow("no format") << 1 << 0x00;
    QTest::newRow("no channels") << 0 << 0x82;
}

void tst_HydStreamDataChunk::aSpectrumHoldsOneByteABin()
{
    QFETCH(int, channels);
    QFETCH(int, format);
    const Bytes head = bigEndian(0, 4) + Bytes{static_cast<uint8_t>(channels), static_cast<uint8_t>(format)} +
                       bigEndian(512, 2);
    const Bytes body = head + Bytes(512, 61);
    ByteReader in(body);
    const auto chunk = HydStreamDataChunkV0::fromWire(in, true);
    QVERIFY(chunk);
    QCOMPARE(chunk->numSamples(), uint16_t(512));
    QCOMPARE(chunk->byteSize(), size_t(512));
    QCOMPARE(chunk->bytes()[511], static_cast<unsigned char>(61));
    for (size_t size : {511U, 513U}) {
        const Bytes other = head + Bytes(size, 61);
        ByteReader otherIn(other);
        QVERIFY(!HydStreamDataChunkV0::fromWire(otherIn, true));
    }
}

void tst_HydStreamDataChunk::bodyGoesOverTheWireAndBack()
{
    const Bytes body = rampBody(0xFFFFFFFF, 300, 500);
    ByteReader in(body);
    const auto chunk = HydStreamDataChunkV0::fromWire(in, false);
    QVERIFY(chunk);
    QVERIFY(wireOf(*chunk) == body);
}

void tst_HydStreamDataChunk::allZeroMakesAChunkWithoutBytes()
{
    const HydStreamDataChunkV0 chunk(0, 0, 0, 0, 0U, false);
    QVERIFY(!chunk.bytes());
    QCOMPARE(chunk.byteSize(), size_t(0));
    QCOMPARE(chunk.numSamples(), uint16_t(0));
    QVERIFY(wireOf(chunk) == Bytes(8, 0));
}

void tst_HydStreamDataChunk::nullDataHasNoBytes()
{
    const HydStreamDataChunkV0 chunk(0, 1, 2, 100, nullptr, false);
    QVERIFY(!chunk.bytes());
    QCOMPARE(chunk.byteSize(), size_t(0));
    QCOMPARE(wireOf(chunk).size(), size_t(8));
}

void tst_HydStreamDataChunk::countsThatDontFitAreRefused_data()
{
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("format");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("size");
    QTest::newRow("a byte short") << 1 << 0x82 << 100 << 199;
    QTest::newRow("a byte over") << 1 << 0x82 << 100 << 201;
    QTest::newRow("bytes counted as samples") << 1 << 0x82 << 200 << 200;
    QTest::newRow("samples of all channels counted") << 2 << 0x82 << 100 << 200;
    QTest::newRow("largest of all fields") << 255 << 0x8F << 65535 << 200;
    QTest::newRow("bytes without a count") << 1 << 0x82 << 0 << 2;
    QTest::newRow("no channels") << 0 << 0x82 << 100 << 200;
    QTest::newRow("a count without channels and bytes") << 0 << 0x82 << 100 << 0;
    QTest::newRow("a count of samples without width") << 1 << 0x80 << 100 << 0;
}

void tst_HydStreamDataChunk::countsThatDontFitAreRefused()
{
    QFETCH(int, channels);
    QFETCH(int, format);
    QFETCH(int, count);
    QFETCH(int, size);
    const Bytes body = bigEndian(0, 4) + Bytes{static_cast<uint8_t>(channels), static_cast<uint8_t>(format)} +
                       bigEndian(static_cast<uint64_t>(count), 2) + Bytes(static_cast<size_t>(size), 0);
    ByteReader in(body);
    QVERIFY(!HydStreamDataChunkV0::fromWire(in, false));
}

void tst_HydStreamDataChunk::aBodyCutAtAnyByteIsRefused()
{
    const Bytes body = rampBody(5, 20);
    for (size_t size = 0; size < body.size(); ++size) {
        const Bytes cut(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(size));
        ByteReader in(cut);
        QVERIFY2(!HydStreamDataChunkV0::fromWire(in, false), qPrintable(QString::number(size)));
    }
}

void tst_HydStreamDataChunk::anEmptyBlockHasNoBytes()
{
    const Bytes body = rampBody(5, 0);
    ByteReader in(body);
    const auto chunk = HydStreamDataChunkV0::fromWire(in, false);
    QVERIFY(chunk);
    QVERIFY(!chunk->bytes());
    QCOMPARE(chunk->byteSize(), size_t(0));
    QCOMPARE(chunk->sampleNum(), 5U);
}

QTEST_APPLESS_MAIN(tst_HydStreamDataChunk)
#include "tst_HydStreamDataChunk.moc"
