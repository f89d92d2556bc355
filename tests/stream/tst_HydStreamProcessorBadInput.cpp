#include "NvxQtCommon/contract/stream/HydStreamProcessor.h"
#include "tests/stream/StreamFeeder.h"
#include "tests/support/NvxTestCase.h"

#include <functional>
#include <random>

class tst_HydStreamProcessorBadInput : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void lengthsUpToTheLimitAreTaken_data();
    void lengthsUpToTheLimitAreTaken();
    void junkBetweenFramesIsSkipped_data();
    void junkBetweenFramesIsSkipped();
    // --- rainy day flows
    void lengthsThatMakeNoSenseAreSkipped_data();
    void lengthsThatMakeNoSenseAreSkipped();
    void aFalseLengthIsFoundOutAtOnce_data();
    void aFalseLengthIsFoundOutAtOnce();
    void aFrameCutAtAnyByteCostsItselfAlone();
    void aWrongByteAnywhereCostsTheFrameAlone();
    void aMissingByteAnywhereCostsTheFrameAlone();
    void everyBitOfTheChecksumCounts();
    void wrongKindsAndVersionsAreSkipped_data();
    void wrongKindsAndVersionsAreSkipped();
    void manyCutFramesCostNoGoodOne();
    void unreadableFramesAreSkippedWhole_data();
    void unreadableFramesAreSkippedWhole();
    void endlessJunkIsBoundedInWorkAndMemory_data();
    void endlessJunkIsBoundedInWorkAndMemory();
    void theCreditCoversTwoFalseFramesOfTheLargestSize_data();
    void theCreditCoversTwoFalseFramesOfTheLargestSize();
    void goodFramesBetweenFalseOnesDontBuyEndlessWork();
};

namespace {

Bytes headerBytes(uint8_t kind, uint64_t length)
{
    return Bytes{'0', '*', kind, 1} + bigEndian(length, 4);
}

Bytes prefixOf(const Bytes& bytes, size_t size)
{
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

void append(Bytes& bytes, const Bytes& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

/// What the makers of endless junk make: at least that many bytes of it.
using MakeJunk = std::function<Bytes(size_t)>;

Bytes repeated(size_t size, const Bytes& pattern)
{
    Bytes junk = pattern;
    junk.reserve(2 * size + pattern.size());
    while (junk.size() < size)
        junk.insert(junk.end(), junk.begin(), junk.end());
    junk.resize((size + pattern.size() - 1) / pattern.size() * pattern.size());
    return junk;
}

/// A false frame begins every 14 bytes, with chunks that fill it exactly; all end at the same byte.
Bytes nestedFrames(size_t size)
{
    constexpr size_t kStep = 14;
    constexpr size_t kLevels = HydStreamMessage::kMaxChunkBytes / kStep;
    Bytes nest;
    for (size_t level = 0; level < kLevels; ++level) {
        const size_t rest = (kLevels - 1 - level) * kStep;
        append(nest, headerBytes(2, rest + 6) + bigEndian(99, 2) + bigEndian(rest, 4));
    }
    return repeated(size, nest + Bytes(4, 0));
}

/// A false frame begins every 14 bytes; their chunks are the same small ones, and don't come out at the end.
Bytes nestedChunkRows(size_t size)
{
    return repeated(size, headerBytes(2, HydStreamMessage::kMaxChunkBytes - 5) + bigEndian(99, 2) +
                              bigEndian(8, 4));
}

/// False frames of the largest size whose chunks are empty ones.
Bytes emptyChunks(size_t size)
{
    return repeated(size, headerBytes(2, 1048572) + Bytes(1048572 + 4, 0));
}

Bytes randomBytes(size_t size)
{
    std::mt19937 random(1);
    Bytes junk(size);
    for (uint8_t& byte : junk)
        byte = static_cast<uint8_t>(random());
    return junk;
}

} // namespace

void tst_HydStreamProcessorBadInput::lengthsUpToTheLimitAreTaken_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("length");
    const int limit = int(HydStreamMessage::kMaxChunkBytes);
    QTest::newRow("status of 0") << 4 << 0;
    QTest::newRow("header of 0") << 1 << 0;
    QTest::newRow("smallest chunk") << 4 << 6;
    QTest::newRow("limit less 1") << 4 << limit - 1;
    QTest::newRow("limit") << 4 << limit;
}

void tst_HydStreamProcessorBadInput::lengthsUpToTheLimitAreTaken()
{
    QFETCH(int, kind);
    QFETCH(int, length);
    const Bytes chunks = length == 0 ? Bytes() : chunkBytes(99, Bytes(static_cast<size_t>(length) - 6, 0xAB));
    const Bytes stream = frameBytes(static_cast<uint8_t>(kind), chunks) + dataFrame(7);
    CircularByteBuffer ring(3145728);
    HydStreamProcessor processor(StreamWave);
    ring.write(stream.data(), stream.size());
    processor.notifyDataAvailable();
    StreamInputEvent event(ring);
    processor.dispatch(&event);
    QVERIFY(processor.isAtEndState());
    processor.dispatch(&event);
    QVERIFY(processor.isAtEndState());
    QVERIFY(processor.message()->frame() == dataFrame(7));
    QCOMPARE(processor.skippedBytes(), uint64_t(0));
}

void tst_HydStreamProcessorBadInput::junkBetweenFramesIsSkipped_data()
{
    QTest::addColumn<Bytes>("junk");
    const auto row = [](const char* name, const Bytes& junk) { QTest::newRow(name) << junk; };
    row("nothing", {});
    row("a byte", {'x'});
    row("first half of a mark", {'0'});
    row("second half of a mark", {'*'});
    row("marks' halves", {'0', '0', '0'});
    row("a mark", {'0', '*'});
    row("marks", {'0', '*', '0', '*', '0', '*'});
    row("a mark and a kind", {'0', '*', 2});
    row("a mark, kind and version", {'0', '*', 2, 1});
    row("a control frame", {'*', 'E', 0, 0, 1, 2, 3, 4});
    row("a text line", Bytes(100, 'a'));
    row("zeros", Bytes(1000, 0));
    row("a header of a long frame", headerBytes(2, 0x00100000));
    row("headers of too long frames", headerBytes(2, 0x00100001) + headerBytes(2, 0xFFFFFFFF));
}

void tst_HydStreamProcessorBadInput::junkBetweenFramesIsSkipped()
{
    QFETCH(Bytes, junk);
    const Bytes all = junk + dataFrame(0) + junk + dataFrame(100) + junk + junk + dataFrame(200);
    for (size_t piece : {size_t(1), size_t(5), all.size()}) {
        StreamFeeder feeder;
        feeder.feed(all, piece);
        QVERIFY(feeder.frames == (Frames{dataFrame(0), dataFrame(100), dataFrame(200)}));
        QCOMPARE(feeder.processor.skippedBytes(), uint64_t(4 * junk.size()));
    }
}

void tst_HydStreamProcessorBadInput::lengthsThatMakeNoSenseAreSkipped_data()
{
    QTest::addColumn<Bytes>("bad");
    const auto row = [](const char* name, const Bytes& bad) { QTest::newRow(name) << bad; };
    const size_t limit = HydStreamMessage::kMaxChunkBytes;
    row("1", sealed(headerBytes(4, 1) + Bytes{0}));
    row("5", sealed(headerBytes(4, 5) + Bytes(5, 0)));
    row("a chunk and 1", frameBytes(4, chunkBytes(99, {}) + Bytes{0}));
    row("a chunk and 5", frameBytes(4, chunkBytes(99, {}) + Bytes(5, 0)));
    row("limit + 1", sealed(headerBytes(4, limit + 1) + chunkBytes(99, Bytes(limit - 5, 0))));
    row("largest", sealed(headerBytes(4, 0xFFFFFFFF)));
    row("sign bit", sealed(headerBytes(4, 0x80000000)));
    row("a chunk longer by 1 than the frame", frameBytes(4, Bytes{0, 99, 0, 0, 0, 11} + Bytes(10, 0)));
    row("a chunk of the largest length", frameBytes(4, Bytes{0, 99, 0xFF, 0xFF, 0xFF, 0xFF} + Bytes(10, 0)));
}

void tst_HydStreamProcessorBadInput::lengthsThatMakeNoSenseAreSkipped()
{
    QFETCH(Bytes, bad);
    StreamFeeder feeder;
    feeder.feed(dataFrame(0) + bad + dataFrame(100), 5000);
    QVERIFY(feeder.frames == (Frames{dataFrame(0), dataFrame(100)}));
    QCOMPARE(feeder.processor.skippedBytes(), uint64_t(bad.size()));
    QCOMPARE(feeder.processor.pendingBytes(), size_t(0));
}

void tst_HydStreamProcessorBadInput::aFalseLengthIsFoundOutAtOnce_data()
{
    QTest::addColumn<int>("length");
    QTest::newRow("a byte over") << 199;
    QTest::newRow("64 KiB") << 65536;
    QTest::newRow("limit") << 1048576;
}

void tst_HydStreamProcessorBadInput::aFalseLengthIsFoundOutAtOnce()
{
    QFETCH(int, length);
    // A slow stream must not wait for the megabyte that a damaged length promises.
    const Bytes chunks = chunkBytes(1, keyBody(1, 2)) + chunkBytes(9, rampBody(0, 81));
    QCOMPARE(chunks.size(), size_t(198));
    const Bytes bad = headerBytes(2, static_cast<uint64_t>(length)) + chunks + Bytes{1, 2, 3, 4};
    StreamFeeder feeder;
    feeder.feed(bad + dataFrame(0), 10);
    QVERIFY(feeder.frames == Frames{dataFrame(0)});
    QCOMPARE(feeder.processor.skippedBytes(), uint64_t(bad.size()));
}

void tst_HydStreamProcessorBadInput::aFrameCutAtAnyByteCostsItselfAlone()
{
    const Bytes frame = dataFrame(0);
    for (size_t size = 0; size < frame.size(); ++size) {
        StreamFeeder feeder;
        feeder.feed(prefixOf(frame, size) + dataFrame(100) + dataFrame(200) + dataFrame(300));
        QVERIFY2(feeder.frames == (Frames{dataFrame(100), dataFrame(200), dataFrame(300)}),
                 qPrintable(QString::number(size)));
        QCOMPARE(feeder.processor.skippedBytes(), uint64_t(size));
    }
}

void tst_HydStreamProcessorBadInput::aWrongByteAnywhereCostsTheFrameAlone()
{
    const Bytes frame = dataFrame(0);
    for (size_t at = 0; at < frame.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            Bytes bad = frame;
            bad[at] ^= static_cast<uint8_t>(1 << bit);
            StreamFeeder feeder;
            feeder.feed(bad + dataFrame(100) + dataFrame(200));
            QVERIFY2(feeder.frames == (Frames{dataFrame(100), dataFrame(200)}),
                     qPrintable(QStringLiteral("bit %1 of byte %2").arg(bit).arg(at)));
            QCOMPARE(feeder.processor.skippedBytes(), uint64_t(frame.size()));
        }
    }
}

void tst_HydStreamProcessorBadInput::aMissingByteAnywhereCostsTheFrameAlone()
{
    const Bytes frame = dataFrame(0);
    // A length without its first byte promises up to 64 KiB of the frames behind.
    Frames expected;
    Bytes good;
    for (uint32_t i = 1; good.size() < 70000; ++i) {
        expected.push_back(dataFrame(i));
        append(good, expected.back());
    }
    for (size_t at = 0; at < frame.size(); ++at) {
        Bytes bad = frame;
        bad.erase(bad.begin() + static_cast<std::ptrdiff_t>(at));
        StreamFeeder feeder;
        feeder.feed(bad + good);
        QVERIFY2(feeder.frames == expected, qPrintable(QString::number(at)));
        QCOMPARE(feeder.processor.skippedBytes(), uint64_t(bad.size()));
    }
}

void tst_HydStreamProcessorBadInput::everyBitOfTheChecksumCounts()
{
    const Bytes frame = notifyFrame(2, "text");
    for (int bit = 0; bit < 32; ++bit) {
        Bytes bad = frame;
        bad[frame.size() - 4 + size_t(bit) / 8] ^= static_cast<uint8_t>(1 << (bit % 8));
        StreamFeeder feeder;
        feeder.feed(bad + frame);
        QVERIFY(feeder.frames == Frames{frame});
        QCOMPARE(feeder.processor.skippedBytes(), uint64_t(bad.size()));
        QCOMPARE(feeder.processor.unreadableFrames(), uint64_t(0));
    }
}

void tst_HydStreamProcessorBadInput::wrongKindsAndVersionsAreSkipped_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("version");
    for (int kind : {0, 5, 6, 127, 128, 255})
        QTest::addRow("kind %d", kind) << kind << 1;
    for (int version : {0, 2, 128, 255})
        QTest::addRow("version %d", version) << 4 << version;
}

void tst_HydStreamProcessorBadInput::wrongKindsAndVersionsAreSkipped()
{
    QFETCH(int, kind);
    QFETCH(int, version);
    // The checksum is right; a good frame inside is found, since the false one costs one byte.
    const Bytes bad =
        frameBytes(static_cast<uint8_t>(kind), chunkBytes(99, dataFrame(0)), static_cast<uint8_t>(version));
    for (size_t piece : {size_t(1), bad.size() * 2}) {
        StreamFeeder feeder;
        feeder.feed(bad + dataFrame(100), piece);
        QVERIFY(feeder.frames == (Frames{dataFrame(0), dataFrame(100)}));
        QCOMPARE(feeder.processor.skippedBytes(), uint64_t(bad.size() - dataFrame(0).size()));
        QCOMPARE(feeder.processor.unreadableFrames(), uint64_t(0));
    }
}

void tst_HydStreamProcessorBadInput::manyCutFramesCostNoGoodOne()
{
    // A lossy bridge: every other frame lacks its end, for many frames within a megabyte.
    Bytes all;
    Frames expected;
    for (uint32_t i = 0; i < 120; ++i) {
        append(all, prefixOf(dataFrame(i, 10000), 3000 + i * 100));
        expected.push_back(dataFrame(1000 + i, 10000));
        append(all, expected.back());
    }
    for (size_t piece : {size_t(65536), size_t(3000000)}) {
        StreamFeeder feeder;
        feeder.feed(all, piece);
        QVERIFY(feeder.frames == expected);
    }
}

void tst_HydStreamProcessorBadInput::unreadableFramesAreSkippedWhole_data()
{
    QTest::addColumn<Bytes>("bad");
    const auto row = [](const char* name, const Bytes& bad) { QTest::newRow(name) << bad; };
    const Bytes inside = chunkBytes(99, dataFrame(0));
    const Bytes head = bigEndian(0, 4);
    row("a count that exceeds the bytes",
        frameBytes(2, inside + chunkBytes(9, head + Bytes{1, 2, 0, 9} + Bytes(4, 0))));
    row("a count below the bytes",
        frameBytes(2, inside + chunkBytes(9, head + Bytes{1, 2, 0, 1} + Bytes(4, 0))));
    row("oversize channel count",
        frameBytes(2, inside + chunkBytes(9, head + Bytes{255, 2, 0, 2} + Bytes(4, 0))));
    row("largest of all counts",
        frameBytes(2, inside + chunkBytes(9, head + Bytes{255, 0x8F, 255, 255} + Bytes(4, 0))));
    row("no channels", frameBytes(2, inside + chunkBytes(9, head + Bytes{0, 2, 0, 2} + Bytes(4, 0))));
    row("a count without bytes", frameBytes(2, inside + chunkBytes(9, head + Bytes{0, 2, 0, 2})));
    row("no data chunk", frameBytes(2, inside));
    row("no notification", frameBytes(3, inside));
    row("a short key", frameBytes(4, inside + chunkBytes(1, Bytes(15, 0))));
    row("256 devices", frameBytes(1, inside + repeated(256 * 14, chunkBytes(2, Bytes(8, 0)))));
}

void tst_HydStreamProcessorBadInput::unreadableFramesAreSkippedWhole()
{
    QFETCH(Bytes, bad);
    StreamFeeder feeder;
    feeder.feed(bad + dataFrame(100) + bad + dataFrame(200));
    QVERIFY(feeder.frames == (Frames{dataFrame(100), dataFrame(200)}));
    QCOMPARE(feeder.processor.skippedBytes(), uint64_t(2 * bad.size()));
    QCOMPARE(feeder.processor.unreadableFrames(), uint64_t(2));
}

void tst_HydStreamProcessorBadInput::endlessJunkIsBoundedInWorkAndMemory_data()
{
    QTest::addColumn<MakeJunk>("make");
    const auto row = [](const char* name, const MakeJunk& make) { QTest::newRow(name) << make; };
    row("random", randomBytes);
    row("first half of the mark", [](size_t size) { return Bytes(size, '0'); });
    row("marks", [](size_t size) { return repeated(size, {'0', '*'}); });
    row("headers", [](size_t size) { return repeated(size, headerBytes(2, 1048576)); });
    row("headers of length 0", [](size_t size) { return repeated(size, headerBytes(2, 0) + Bytes(4, 0)); });
    row("nested frames", nestedFrames);
    row("nested rows of chunks", nestedChunkRows);
    row("empty chunks", emptyChunks);
}

void tst_HydStreamProcessorBadInput::endlessJunkIsBoundedInWorkAndMemory()
{
    QFETCH(MakeJunk, make);
    constexpr size_t kMiB = 1024 * 1024;
    const size_t most = QByteArrayView(QTest::currentDataTag()) == "random" ? 8 * kMiB : 3 * kMiB;
    for (const auto& [size, piece] : {std::pair(most, 3 * kMiB), std::pair(kMiB / 4, size_t(4099))}) {
        const Bytes junk = make(size);
        StreamFeeder feeder;
        // The feeder checks the bytes examined and the bytes kept.
        feeder.feed(junk, piece);
        QVERIFY(feeder.frames.empty());
        // A false frame at the end of the junk may still swallow one frame's worth of good ones.
        const Bytes good =
            repeated(HydStreamMessage::kMaxFrameSize, dataFrame(0, 10000)) + dataFrame(1, 10000);
        feeder.feed(good, piece);
        QVERIFY(!feeder.frames.empty());
        QVERIFY(feeder.frames.back() == dataFrame(1, 10000));
    }
}

void tst_HydStreamProcessorBadInput::theCreditCoversTwoFalseFramesOfTheLargestSize_data()
{
    QTest::addColumn<int>("falseFrames");
    QTest::addColumn<bool>("losesGoodOnes");
    QTest::newRow("one") << 1 << false;
    QTest::newRow("two") << 2 << false;
    QTest::newRow("three") << 3 << true;
}

void tst_HydStreamProcessorBadInput::theCreditCoversTwoFalseFramesOfTheLargestSize()
{
    QFETCH(int, falseFrames);
    QFETCH(bool, losesGoodOnes);
    // A head whose one chunk fits its length takes in what follows, until the checksum shows it.
    constexpr size_t kLimit = HydStreamMessage::kMaxChunkBytes;
    const Bytes falseHead = headerBytes(2, kLimit) + bigEndian(99, 2) + bigEndian(kLimit - 6, 4);
    Bytes all;
    for (int i = 0; i < falseFrames; ++i)
        append(all, falseHead);
    const size_t heads = all.size();
    Frames good;
    size_t goodBytes = 0;
    while (goodBytes < 2 * HydStreamMessage::kMaxFrameSize) {
        good.push_back(dataFrame(static_cast<uint32_t>(good.size()), 10000));
        goodBytes += good.back().size();
        append(all, good.back());
    }
    StreamFeeder feeder;
    feeder.feed(all, 65536);
    if (!losesGoodOnes) {
        QVERIFY(feeder.frames == good);
        QCOMPARE(feeder.processor.skippedBytes(), uint64_t(heads));
        return;
    }
    // The false frame goes whole, with the good ones in it and the rest of the one that it cut.
    const size_t lost = good.size() - feeder.frames.size();
    const size_t frameSize = good.front().size();
    QCOMPARE(lost, (HydStreamMessage::kMaxFrameSize - falseHead.size() + frameSize - 1) / frameSize);
    QVERIFY(feeder.frames == Frames(good.end() - std::ptrdiff_t(feeder.frames.size()), good.end()));
    QCOMPARE(feeder.processor.skippedBytes(), uint64_t(heads + lost * frameSize));
}

void tst_HydStreamProcessorBadInput::goodFramesBetweenFalseOnesDontBuyEndlessWork()
{
    // False frames of nearly a megabyte with a tiny good frame behind every few of them.
    const Bytes tiny = frameBytes(4, {});
    Bytes junk;
    while (junk.size() < 3 * 1024 * 1024 / 2) {
        for (size_t i = 0; i < 32; ++i)
            append(junk, headerBytes(2, 1000006) + bigEndian(99, 2) + bigEndian(1000000, 4));
        append(junk, tiny);
    }
    StreamFeeder feeder;
    feeder.feed(junk, 3145728);
    const uint64_t limit = HydStreamProcessor::kExaminationReserve +
                           junk.size() * (HydStreamProcessor::kExaminationsPerByte + 1);
    QVERIFY(feeder.processor.examinedBytes() <= limit);
    QVERIFY2(feeder.processor.examinedBytes() > junk.size(), "the junk was not worth a second look");
}

QTEST_APPLESS_MAIN(tst_HydStreamProcessorBadInput)
#include "tst_HydStreamProcessorBadInput.moc"
