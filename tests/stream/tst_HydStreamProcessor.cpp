#include "NvxQtCommon/contract/stream/HydStreamProcessor.h"
#include "tests/stream/StreamFeeder.h"
#include "tests/support/NvxTestCase.h"

#include <random>

class tst_HydStreamProcessor : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void allKindsComeOut();
    void theSameBytesInPiecesGiveTheSame_data();
    void theSameBytesInPiecesGiveTheSame();
    void aSplitAtEveryByteGivesTheSame();
    void framesThatWrapInTheRingComeOut();
    void messagesComeOneByOne();
    void theMessageStaysUntilTheNextDispatch();
    void framesThatWaitedTogetherComeInOneRound();
    void aFrameThatIsWholeLeavesNothingBehind();
    void theLargestFrameComesOut_data();
    void theLargestFrameComesOut();
    void dataOfSpectrumStreamsHaveOneByteABin_data();
    void dataOfSpectrumStreamsHaveOneByteABin();
    // --- rainy day flows
    void nothingBeforeTheFirstByte();
    void aNullEventChangesNothing();
    void aForeignEventIsOutOfData();
    void anUnfinishedFrameIsKept();
    void resetForgetsAnUnfinishedFrame();
    void resetForgetsTheMessage();
    void randomDamageGivesTheSameInAnyPieces_data();
    void randomDamageGivesTheSameInAnyPieces();
};

namespace {

Frames oneOfEachKind()
{
    const Bytes device = Bytes{5, 0, 0, 0, 4, 210, 0xF9, 0x4A};
    return {frameBytes(1, chunkBytes(11, {1, 0}) + chunkBytes(1, keyBody(1700000000, 0)) +
                              chunkBytes(2, device) + chunkBytes(3, Bytes(8, 1)) +
                              chunkBytes(4, bigEndian(64000, 4) + Bytes{0, 6, 0x03, 1}) +
                              chunkBytes(6, Bytes{0, 24, 0, 0} + Bytes(16, 2))),
            dataFrame(0, 300), notifyFrame(2, "clock set"),
            frameBytes(4, chunkBytes(1, keyBody(1, 2)) + chunkBytes(3, Bytes(8, 1)) +
                              chunkBytes(7, Bytes(10, 3) + Bytes(2, 0)) + chunkBytes(12, Bytes(12, 4)) +
                              chunkBytes(13, Bytes(12, 5)) + chunkBytes(14, Bytes(11, 6) + Bytes{0}) +
                              chunkBytes(15, Bytes(6, 7) + Bytes{0, 0})),
            dataFrame(300, 1)};
}

Bytes joined(const Frames& frames)
{
    Bytes all;
    for (const Bytes& frame : frames)
        all.insert(all.end(), frame.begin(), frame.end());
    return all;
}

} // namespace

void tst_HydStreamProcessor::allKindsComeOut()
{
    StreamFeeder feeder;
    feeder.feed(joined(oneOfEachKind()));
    QVERIFY(feeder.frames == oneOfEachKind());
    QCOMPARE(feeder.processor.skippedBytes(), uint64_t(0));
    QCOMPARE(feeder.processor.unreadableFrames(), uint64_t(0));
}

void tst_HydStreamProcessor::theSameBytesInPiecesGiveTheSame_data()
{
    QTest::addColumn<int>("piece");
    QTest::addColumn<int>("capacity");
    for (int piece : {1, 2, 3, 7, 8, 13, 100, 1000}) {
        for (int capacity : {1, 5, 97, 1021, 100000})
            QTest::addRow("pieces of %d, ring of %d", piece, capacity) << piece << capacity;
    }
}

void tst_HydStreamProcessor::theSameBytesInPiecesGiveTheSame()
{
    QFETCH(int, piece);
    QFETCH(int, capacity);
    StreamFeeder feeder(StreamWave, static_cast<unsigned long long>(capacity));
    for (int i = 0; i < 3; ++i)
        feeder.feed(joined(oneOfEachKind()), static_cast<size_t>(piece));
    Frames expected;
    for (int i = 0; i < 3; ++i) {
        for (const Bytes& frame : oneOfEachKind())
            expected.push_back(frame);
    }
    QVERIFY(feeder.frames == expected);
    QCOMPARE(feeder.processor.skippedBytes(), uint64_t(0));
}

void tst_HydStreamProcessor::aSplitAtEveryByteGivesTheSame()
{
    const Bytes all = joined(oneOfEachKind());
    for (size_t at = 1; at < all.size(); ++at) {
        StreamFeeder feeder;
        feeder.feed(Bytes(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(at)));
        feeder.feed(Bytes(all.begin() + static_cast<std::ptrdiff_t>(at), all.end()));
        QVERIFY2(feeder.frames == oneOfEachKind(), qPrintable(QString::number(at)));
    }
}

void tst_HydStreamProcessor::framesThatWrapInTheRingComeOut()
{
    const Bytes frames = dataFrame(0) + dataFrame(100);
    const Bytes filler(frames.size(), 'x');
    for (size_t head = 0; head < frames.size(); ++head) {
        StreamFeeder feeder(StreamWave, frames.size() + 1);
        // One byte stays behind while the others go, so that the ring doesn't start over at its front.
        feeder.ring.write(filler.data(), head + 1);
        feeder.ring.skip(head);
        feeder.ring.write(frames.data(), frames.size());
        feeder.round();
        QCOMPARE(feeder.frames.size(), size_t(2));
        QVERIFY(feeder.frames[0] == dataFrame(0) && feeder.frames[1] == dataFrame(100));
        QCOMPARE(feeder.processor.skippedBytes(), uint64_t(1));
    }
}

void tst_HydStreamProcessor::messagesComeOneByOne()
{
    CircularByteBuffer ring(10000);
    HydStreamProcessor processor(StreamWave);
    const Bytes frames = dataFrame(0) + dataFrame(100) + Bytes{'0'};
    ring.write(frames.data(), frames.size());
    processor.notifyDataAvailable();
    QVERIFY(!processor.outOfData());
    StreamInputEvent event(ring);

    processor.dispatch(&event);
    QVERIFY(processor.isAtEndState());
    QVERIFY(!processor.outOfData());
    QVERIFY(processor.message()->frame() == dataFrame(0));
    processor.dispatch(&event);
    QVERIFY(processor.isAtEndState());
    QVERIFY(!processor.outOfData());
    QVERIFY(processor.message()->frame() == dataFrame(100));
    processor.dispatch(&event);
    QVERIFY(!processor.isAtEndState());
    QVERIFY(processor.outOfData());
    QVERIFY(!processor.message());
    QVERIFY(ring.isEmpty());
}

void tst_HydStreamProcessor::theMessageStaysUntilTheNextDispatch()
{
    CircularByteBuffer ring(10000);
    HydStreamProcessor processor(StreamWave);
    const Bytes frame = dataFrame(0);
    ring.write(frame.data(), frame.size());
    processor.notifyDataAvailable();
    StreamInputEvent event(ring);
    processor.dispatch(&event);
    const auto first = processor.message();
    QVERIFY(first);
    QVERIFY(processor.message() == first);
    processor.notifyDataAvailable();
    QVERIFY(processor.message() == first);
    processor.dispatch(&event);
    QVERIFY(!processor.message());
    QVERIFY(first->frame() == frame);
}

void tst_HydStreamProcessor::framesThatWaitedTogetherComeInOneRound()
{
    // Good frames that seemed to be the content of another one, until its last byte showed that it's damaged.
    Bytes all = frameBytes(4, chunkBytes(99, dataFrame(0) + dataFrame(100)));
    all.back() ^= 1;
    StreamFeeder feeder;
    feeder.feed(Bytes(all.begin(), all.end() - 1));
    QVERIFY(feeder.frames.empty());
    feeder.feed({all.back()});
    QVERIFY(feeder.frames == (Frames{dataFrame(0), dataFrame(100)}));
    QCOMPARE(feeder.processor.skippedBytes(), uint64_t(all.size() - 2 * dataFrame(0).size()));
}

void tst_HydStreamProcessor::aFrameThatIsWholeLeavesNothingBehind()
{
    StreamFeeder feeder;
    const Bytes frame = dataFrame(0);
    feeder.feed(frame, 50);
    QCOMPARE(feeder.processor.pendingBytes(), size_t(0));
    QVERIFY(feeder.processor.isAtEndState());
    QVERIFY(feeder.processor.outOfData());
}

void tst_HydStreamProcessor::theLargestFrameComesOut_data()
{
    QTest::addColumn<int>("below");
    QTest::addColumn<int>("piece");
    for (int below : {0, 1}) {
        for (int piece : {1000, 65536, 2000000})
            QTest::addRow("limit less %d in pieces of %d", below, piece) << below << piece;
    }
}

void tst_HydStreamProcessor::theLargestFrameComesOut()
{
    QFETCH(int, below);
    QFETCH(int, piece);
    const Bytes block = chunkBytes(9, rampBody(0, 65535));
    const size_t length = HydStreamMessage::kMaxChunkBytes - size_t(below);
    const Bytes frame = frameBytes(2, block + chunkBytes(999, Bytes(length - block.size() - 6, '0')));
    QCOMPARE(frame.size(), HydStreamMessage::kMaxFrameSize - size_t(below));
    CircularByteBuffer ring(3145728);
    HydStreamProcessor processor(StreamWave);
    int messages = 0;
    for (size_t at = 0; at < frame.size();) {
        const size_t count = std::min(frame.size() - at, static_cast<size_t>(piece));
        at += ring.write(frame.data() + at, count);
        processor.notifyDataAvailable();
        StreamInputEvent event(ring);
        processor.dispatch(&event);
        messages += processor.isAtEndState() ? 1 : 0;
        QVERIFY(processor.outOfData());
    }
    QCOMPARE(messages, 1);
    QVERIFY(processor.message()->frame() == frameBytes(2, block));
    QCOMPARE(processor.skippedBytes(), uint64_t(0));
}

void tst_HydStreamProcessor::dataOfSpectrumStreamsHaveOneByteABin_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("oneByte");
    for (int type : {2, 17, 33})
        QTest::addRow("%d", type) << type << true;
    for (int type : {1, 3, 4, 16, 18, 32})
        QTest::addRow("%d", type) << type << false;
}

void tst_HydStreamProcessor::dataOfSpectrumStreamsHaveOneByteABin()
{
    QFETCH(int, type);
    QFETCH(bool, oneByte);
    const Bytes head = bigEndian(0, 4) + Bytes{1, 0x82} + bigEndian(10, 2);
    const Bytes spectrum = frameBytes(2, chunkBytes(9, head + Bytes(10, 1)));
    const Bytes wave = frameBytes(2, chunkBytes(9, head + Bytes(20, 1)));
    StreamFeeder feeder(static_cast<HydStreamType>(type));
    feeder.feed(spectrum + wave + spectrum);
    QVERIFY(feeder.frames == (oneByte ? Frames{spectrum, spectrum} : Frames{wave}));
    QCOMPARE(feeder.processor.unreadableFrames(), uint64_t(oneByte ? 1 : 2));
    QCOMPARE(feeder.type, static_cast<HydStreamType>(type));
}

void tst_HydStreamProcessor::nothingBeforeTheFirstByte()
{
    CircularByteBuffer ring(100);
    HydStreamProcessor processor(StreamWave);
    QVERIFY(!processor.message());
    QVERIFY(!processor.isAtEndState());
    StreamInputEvent event(ring);
    processor.notifyDataAvailable();
    processor.dispatch(&event);
    QVERIFY(!processor.message());
    QVERIFY(!processor.isAtEndState());
    QVERIFY(processor.outOfData());
    QCOMPARE(processor.skippedBytes(), uint64_t(0));
}

void tst_HydStreamProcessor::aNullEventChangesNothing()
{
    StreamFeeder feeder;
    feeder.feed(dataFrame(0));
    const auto message = feeder.processor.message();
    feeder.processor.dispatch(nullptr);
    QVERIFY(feeder.processor.isAtEndState());
    QVERIFY(feeder.processor.message() == message);
}

void tst_HydStreamProcessor::aForeignEventIsOutOfData()
{
    StreamFeeder feeder;
    feeder.feed(dataFrame(0) + Bytes{'0', '*'});
    StateEvent foreign;
    feeder.processor.notifyDataAvailable();
    feeder.processor.dispatch(&foreign);
    QVERIFY(feeder.processor.outOfData());
    QVERIFY(!feeder.processor.isAtEndState());
    QVERIFY(!feeder.processor.message());
    QCOMPARE(feeder.processor.pendingBytes(), size_t(2));
}

void tst_HydStreamProcessor::anUnfinishedFrameIsKept()
{
    const Bytes frame = dataFrame(0);
    for (size_t size = 1; size < frame.size(); ++size) {
        StreamFeeder feeder;
        feeder.feed(Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size)));
        QVERIFY(feeder.frames.empty());
        QCOMPARE(feeder.processor.pendingBytes(), size);
        QCOMPARE(feeder.processor.skippedBytes(), uint64_t(0));
    }
}

void tst_HydStreamProcessor::resetForgetsAnUnfinishedFrame()
{
    const Bytes frame = dataFrame(0);
    for (size_t size = 1; size < frame.size(); ++size) {
        StreamFeeder feeder;
        feeder.feed(Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size)));
        feeder.processor.reset();
        QCOMPARE(feeder.processor.pendingBytes(), size_t(0));
        QCOMPARE(feeder.processor.skippedBytes(), uint64_t(size));
        feeder.feed(frame);
        QVERIFY2(feeder.frames == Frames{frame}, "what a connection left behind doesn't hurt the next");
        QCOMPARE(feeder.processor.skippedBytes(), uint64_t(size));
    }
}

void tst_HydStreamProcessor::resetForgetsTheMessage()
{
    StreamFeeder feeder;
    feeder.feed(dataFrame(0));
    QVERIFY(feeder.processor.message());
    feeder.processor.reset();
    QVERIFY(!feeder.processor.message());
    QVERIFY(feeder.processor.outOfData());
    QCOMPARE(feeder.processor.skippedBytes(), uint64_t(0));
}

void tst_HydStreamProcessor::randomDamageGivesTheSameInAnyPieces_data()
{
    QTest::addColumn<int>("seed");
    for (int seed = 1; seed <= 20; ++seed)
        QTest::addRow("seed %d", seed) << seed;
}

void tst_HydStreamProcessor::randomDamageGivesTheSameInAnyPieces()
{
    QFETCH(int, seed);
    std::mt19937 random(static_cast<unsigned>(seed));
    Bytes all;
    for (int i = 0; i < 60; ++i) {
        Bytes frame = dataFrame(static_cast<uint32_t>(i), static_cast<uint16_t>(random() % 200));
        switch (random() % 5) {
        case 0:
            frame.resize(random() % frame.size());
            break;
        case 1:
            frame[random() % frame.size()] ^= static_cast<uint8_t>(1 + random() % 255);
            break;
        case 2:
            for (size_t junk = random() % 300; junk > 0; --junk)
                frame.push_back("0*\x01\x02"[random() % 4]);
            break;
        default:
            break;
        }
        all = all + frame;
    }
    // What the last frame needs to be judged.
    all = all + Bytes(2000, 'x');
    StreamFeeder whole;
    whole.feed(all);
    QVERIFY(whole.frames.size() > 20);
    QVERIFY(whole.processor.skippedBytes() > 2000);
    for (size_t piece : {1, 3, 64, 501}) {
        for (unsigned long long capacity : {64, 1009, 100000}) {
            StreamFeeder pieces(StreamWave, capacity);
            pieces.feed(all, piece);
            QVERIFY(pieces.frames == whole.frames);
            QCOMPARE(pieces.processor.skippedBytes(), whole.processor.skippedBytes());
        }
    }
}

QTEST_APPLESS_MAIN(tst_HydStreamProcessor)
#include "tst_HydStreamProcessor.moc"
