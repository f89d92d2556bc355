#include "NvxQtCommon/contract/message/HydControlProcessor.h"

#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"
#include "tests/contract/ControlSupport.h"
#include "tests/support/NvxTestCase.h"

class tst_HydControlProcessor : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void piecesOfAnySizeGiveTheSameMessages_data();
    void piecesOfAnySizeGiveTheSameMessages();
    void splitAnywhereGivesTheSameMessages();
    void oneDispatchForEachMessage();
    void emptyBufferIsOutOfData();
    void lengthCheckSaysWhetherAFrameIsWhole();
    void payloadLengths_data();
    void payloadLengths();
    void parsesAcrossTheEndOfTheRing();
    // --- rainy day flows
    void unknownLetterIsAMessageWithoutPayload_data();
    void unknownLetterIsAMessageWithoutPayload();
    void payloadThatDoesNotReadIsNone_data();
    void payloadThatDoesNotReadIsNone();
    void junkInFrontIsSkipped_data();
    void junkInFrontIsSkipped();
    void badByteAnywhereLosesOnlyItsFrame();
    void cutFrameWaits();
    void frameCutByThePeerIsGivenUp();
    void goodFrameInsideABrokenOneIsFound();
    void longestLengthFieldInJunkWaitsNoLongerThanItSays();
    void frameLargerThanTheRingIsJunk();
    void foreignAndNullEvents();
    void endlessJunk_data();
    void endlessJunk();
    void badLengthsBetweenGoodFrames();
    void everyByteIsAccountedFor_data();
    void everyByteIsAccountedFor();
    void lengthCheckCountsWhatItDrops();
};

namespace {

constexpr uint64_t kMostChecksummedPerByte = 100;

Bytes timeFrame(int time)
{
    return HydControlMessage::frame(HydSetTimeCmd(time));
}

Bytes letterFrame(char letter)
{
    return controlFrame(letter, {});
}

/// Three messages with an asterisk inside of one and junk around them.
Bytes mixedStream()
{
    HydEnquireCmd::Report report;
    report.model = "a*C model";
    return joined({timeFrame(1), bytesOfHex("00ff"), HydControlMessage::frame(HydEnquireCmd(report)),
                   letterFrame('V'), bytesOfHex("2a000000"), timeFrame(-1)});
}

QByteArrayList mixedMessages()
{
    HydEnquireCmd::Report report;
    report.model = "a*C model";
    return {hexText(timeFrame(1)), hexText(HydControlMessage::frame(HydEnquireCmd(report))),
            hexText(letterFrame('V')), hexText(timeFrame(-1))};
}

/// A frame of letter C with a spectrum that fills the payload up to `size` bytes.
Bytes collectFrame(size_t size)
{
    ByteStream payload;
    payload.putU8(16);
    payload.putU16(0x7000);
    payload.putU16(static_cast<uint16_t>(size - 5));
    payload.putBytes(Bytes(size - 5, 0x11));
    return controlFrame('C', payload.bytes());
}

} // namespace

void tst_HydControlProcessor::piecesOfAnySizeGiveTheSameMessages_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {1, 2, 3, 7, 8, 9, 64, 100000})
        QTest::addRow("%d bytes", size) << size;
}

void tst_HydControlProcessor::piecesOfAnySizeGiveTheSameMessages()
{
    QFETCH(int, size);
    ControlParser parser;
    parser.feedInPieces(mixedStream(), static_cast<size_t>(size));
    QCOMPARE(parser.found, mixedMessages());
    QVERIFY(parser.ring.isEmpty());
}

void tst_HydControlProcessor::splitAnywhereGivesTheSameMessages()
{
    const auto stream = mixedStream();
    for (size_t cut = 0; cut <= stream.size(); ++cut) {
        ControlParser parser;
        parser.feed(std::span(stream).first(cut));
        parser.feed(std::span(stream).subspan(cut));
        QCOMPARE(parser.found, mixedMessages());
    }
}

void tst_HydControlProcessor::oneDispatchForEachMessage()
{
    ControlParser parser;
    writeAll(parser.ring, joined({timeFrame(1), timeFrame(2)}));
    ControlResponseEvent event(parser.ring);
    parser.processor.dispatch(&event);
    QVERIFY(parser.processor.isAtEndState());
    QVERIFY(!parser.processor.outOfData());
    QCOMPARE(hexText(parser.processor.message()->frame()), hexText(timeFrame(1)));
    parser.processor.dispatch(&event);
    QVERIFY(parser.processor.isAtEndState());
    QVERIFY(parser.processor.outOfData());
    QCOMPARE(hexText(parser.processor.message()->frame()), hexText(timeFrame(2)));
    parser.processor.dispatch(&event);
    QVERIFY(!parser.processor.isAtEndState());
    QVERIFY(!parser.processor.message());
}

void tst_HydControlProcessor::emptyBufferIsOutOfData()
{
    ControlParser parser;
    QVERIFY(!parser.processor.outOfData());
    QVERIFY(!parser.processor.message());
    parser.feed({});
    QVERIFY(parser.processor.outOfData());
    QVERIFY(parser.found.isEmpty());
    parser.processor.setOutOfData(false);
    QVERIFY(!parser.processor.outOfData());
}

void tst_HydControlProcessor::lengthCheckSaysWhetherAFrameIsWhole()
{
    ControlParser parser;
    ControlResponseEvent event(parser.ring);
    QVERIFY(!parser.processor.checkL(nullptr));
    QVERIFY(!parser.processor.checkL(&event));
    const auto frame = timeFrame(5);
    writeAll(parser.ring, bytesOfHex("0102"));
    for (size_t i = 0; i < frame.size(); ++i) {
        QVERIFY(!parser.processor.checkL(&event));
        writeAll(parser.ring, std::span(frame).subspan(i, 1));
    }
    QVERIFY(parser.processor.checkL(&event));
    QCOMPARE(hexText(drained(parser.ring)), hexText(frame));
}

void tst_HydControlProcessor::payloadLengths_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {5, 6, 1015, 1016, 1017, 65534, 65535})
        QTest::addRow("%d", size) << size;
}

void tst_HydControlProcessor::payloadLengths()
{
    QFETCH(int, size);
    ControlParser parser;
    const auto frame = collectFrame(static_cast<size_t>(size));
    const auto stream = joined({frame, timeFrame(1)});
    writeAll(parser.ring, std::span(stream).first(frame.size() - 1));
    parser.feed({});
    QVERIFY(parser.found.isEmpty());
    QCOMPARE(parser.ring.byteCount(), static_cast<unsigned long long>(frame.size() - 1));
    parser.feed(std::span(stream).subspan(frame.size() - 1));
    QCOMPARE(parser.found.size(), 2);
    QVERIFY(parser.found[0] != "null");
    QCOMPARE(parser.found[1], hexText(timeFrame(1)));
}

void tst_HydControlProcessor::parsesAcrossTheEndOfTheRing()
{
    const auto stream = mixedStream();
    for (unsigned long long head = 1; head < stream.size(); ++head) {
        ControlParser parser(stream.size() + 1);
        // The zero that stays keeps the ring from starting over at its front.
        writeAll(parser.ring, Bytes(head + 1));
        parser.ring.skip(head);
        parser.feed(stream);
        QCOMPARE(parser.found, mixedMessages());
    }
}

void tst_HydControlProcessor::unknownLetterIsAMessageWithoutPayload_data()
{
    QTest::addColumn<int>("letter");
    QTest::addColumn<int>("size");
    for (const int letter : std::initializer_list<int>{0, '8', 'B', 'Z', ']', 'a', '*', 255}) {
        for (const int size : {0, 1, 300})
            QTest::addRow("letter %d with %d bytes", letter, size) << letter << size;
    }
}

void tst_HydControlProcessor::unknownLetterIsAMessageWithoutPayload()
{
    QFETCH(int, letter);
    QFETCH(int, size);
    ControlParser parser;
    const auto frame = controlFrame(static_cast<char>(letter), Bytes(static_cast<size_t>(size), 3));
    parser.feed(joined({frame, timeFrame(1)}));
    QCOMPARE(parser.found, (QByteArrayList{"null", hexText(timeFrame(1))}));
}

void tst_HydControlProcessor::payloadThatDoesNotReadIsNone_data()
{
    QTest::addColumn<char>("letter");
    QTest::addColumn<QByteArray>("payload");
    const auto row = [](const char* name, char letter, const char* payload) {
        QTest::newRow(name) << letter << QByteArray(payload);
    };
    row("time missing", 'A', "");
    row("time too short", 'A', "010203");
    row("time too long", 'A', "0102030405");
    row("collect without mask", 'C', "");
    row("collect chunk cut", 'C', "8000");
    row("collect chunk over the end", 'C', "10001000ff00");
    row("setup missing", 'D', "");
    row("setup count too high", 'D', "001400000001");
    row("reply cut", 'E', "05");
    row("setup enquiry missing", 'F', "");
    row("setup enquiry too long", 'F', "0014000000");
    row("trigger count too high", 'R', "0001");
    row("trigger missing", 'S', "");
    row("trigger too short", 'S', "0000050000");
    row("clear with a body", 'U', "00");
    row("password with a body", 'V', "00");
    row("reset with a body", 'Y', "00");
    row("clock state cut", '[', "02");
    row("clock state too long", '[', "020000000000000000000000");
}

void tst_HydControlProcessor::payloadThatDoesNotReadIsNone()
{
    QFETCH(char, letter);
    QFETCH(QByteArray, payload);
    ControlParser parser;
    parser.feed(joined({controlFrame(letter, bytesOfHex(payload)), timeFrame(1)}));
    QCOMPARE(parser.found, (QByteArrayList{"null", hexText(timeFrame(1))}));
}

void tst_HydControlProcessor::junkInFrontIsSkipped_data()
{
    QTest::addColumn<QByteArray>("junk");
    QTest::newRow("one byte") << QByteArray("00");
    QTest::newRow("no asterisk") << QByteArray(2000, '7');
    QTest::newRow("one asterisk") << QByteArray("2a");
    QTest::newRow("asterisks") << QByteArray("2a2a2a2a2a").append(QByteArray(30000, '0'));
    QTest::newRow("header of an empty frame") << QByteArray("2a450000");
    QTest::newRow("empty frame, bad checksum") << QByteArray("2a45000000000000");
    QTest::newRow("start of a stream frame") << QByteArray("302a010100000010");
}

void tst_HydControlProcessor::junkInFrontIsSkipped()
{
    QFETCH(QByteArray, junk);
    // Enough behind the good frame for any length field that the junk may seem to have.
    const auto stream = joined({bytesOfHex(junk), timeFrame(7), Bytes(70000)});
    for (const size_t size : {size_t{1}, size_t{4096}}) {
        ControlParser parser;
        parser.feedInPieces(stream, size);
        QCOMPARE(parser.found, QByteArrayList{hexText(timeFrame(7))});
        QVERIFY(parser.ring.isEmpty());
    }
}

void tst_HydControlProcessor::badByteAnywhereLosesOnlyItsFrame()
{
    const auto broken = timeFrame(0x11121314);
    for (size_t at = 0; at < broken.size(); ++at) {
        for (const int change : {1, 0x80, 0xFF}) {
            auto frame = broken;
            frame[at] = static_cast<uint8_t>(frame[at] ^ change);
            ControlParser parser;
            parser.feed(joined({timeFrame(1), frame, timeFrame(2), Bytes(70000)}));
            QCOMPARE(parser.found, (QByteArrayList{hexText(timeFrame(1)), hexText(timeFrame(2))}));
        }
    }
}

void tst_HydControlProcessor::cutFrameWaits()
{
    const auto frame = mixedStream();
    const auto whole = timeFrame(1).size();
    for (size_t size = 0; size < whole; ++size) {
        ControlParser parser;
        parser.feed(std::span(frame).first(size));
        QVERIFY(parser.found.isEmpty());
        QVERIFY(parser.processor.outOfData());
        QVERIFY(!parser.processor.isAtEndState());
        QCOMPARE(parser.ring.byteCount(), static_cast<unsigned long long>(size));
    }
}

void tst_HydControlProcessor::frameCutByThePeerIsGivenUp()
{
    const auto frame = timeFrame(0x11121314);
    for (size_t size = 0; size < frame.size(); ++size) {
        ControlParser parser;
        parser.feed(std::span(frame).first(size));
        parser.feed(joined({timeFrame(2), timeFrame(3), Bytes(70000)}));
        QCOMPARE(parser.found, (QByteArrayList{hexText(timeFrame(2)), hexText(timeFrame(3))}));
    }
}

void tst_HydControlProcessor::goodFrameInsideABrokenOneIsFound()
{
    auto outer = controlFrame('S', joined({Bytes(3), timeFrame(9), Bytes(3)}));
    outer.back() = static_cast<uint8_t>(outer.back() + 1);
    ControlParser parser;
    parser.feed(joined({outer, timeFrame(1)}));
    QCOMPARE(parser.found, (QByteArrayList{hexText(timeFrame(9)), hexText(timeFrame(1))}));
}

void tst_HydControlProcessor::longestLengthFieldInJunkWaitsNoLongerThanItSays()
{
    ControlParser parser;
    parser.feed(joined({bytesOfHex("2a45ffff"), timeFrame(4)}));
    QVERIFY(parser.found.isEmpty());
    parser.feed(Bytes(HydControlMessage::kMaxFrameSize - parser.ring.byteCount() - 1));
    QVERIFY(parser.found.isEmpty());
    parser.feed(Bytes(1));
    QCOMPARE(parser.found, QByteArrayList{hexText(timeFrame(4))});
}

void tst_HydControlProcessor::frameLargerThanTheRingIsJunk()
{
    ControlParser parser(64);
    parser.feed(joined({bytesOfHex("2a450039"), timeFrame(4)}));
    QCOMPARE(parser.found, QByteArrayList{hexText(timeFrame(4))});
    // A frame that fills the ring to its last byte is none.
    const auto filling = controlFrame('Z', Bytes(56));
    parser.feed(filling);
    QCOMPARE(parser.found.last(), QByteArray("null"));
}

void tst_HydControlProcessor::foreignAndNullEvents()
{
    ControlParser parser;
    writeAll(parser.ring, timeFrame(1));
    StateEvent foreign;
    parser.processor.dispatch(&foreign);
    QVERIFY(parser.processor.outOfData());
    QVERIFY(!parser.processor.isAtEndState());
    parser.processor.setOutOfData(false);
    parser.processor.dispatch(nullptr);
    QVERIFY(!parser.processor.outOfData());
    parser.feed({});
    QCOMPARE(parser.found, QByteArrayList{hexText(timeFrame(1))});
}

void tst_HydControlProcessor::endlessJunk_data()
{
    QTest::addColumn<Bytes>("pattern");
    QTest::addColumn<int>("kibibytes");
    const auto row = [](const char* name, const Bytes& pattern, int kibibytes) {
        QTest::newRow(name) << pattern << kibibytes;
    };
    row("zeros", Bytes{0}, 8192);
    row("noise", noiseBytes(1 << 20, 21), 8192);
    row("asterisks", Bytes{'*'}, 256);
    row("longest length fields", bytesOfHex("2a45ffff"), 1024);
    row("empty frames with bad checksums", bytesOfHex("2a45000000000000"), 1024);
    row("long bad frame, short good frame", joined({bytesOfHex("2a45fff0"), letterFrame('V')}), 1024);
}

void tst_HydControlProcessor::endlessJunk()
{
    QFETCH(Bytes, pattern);
    QFETCH(int, kibibytes);
    constexpr size_t read = 16384;
    ControlParser parser(128 << 10);
    Bytes piece(read);
    size_t at = 0;
    const auto before = crc32ByteCount();
    for (size_t fed = 0; fed < static_cast<size_t>(kibibytes) * 1024; fed += read) {
        for (auto& byte : piece) {
            byte = pattern[at];
            at = (at + 1) % pattern.size();
        }
        parser.feed(piece);
        // No more is held than one frame can have.
        QVERIFY(parser.ring.byteCount() < HydControlMessage::kMaxFrameSize);
        parser.found.clear();
    }
    // A few passes over what is held for each read, and some 64 bytes for each start. A search that goes over
    // the same bytes for each start takes thousands.
    const auto perByte = (crc32ByteCount() - before) / (static_cast<uint64_t>(kibibytes) * 1024);
    QVERIFY2(perByte < kMostChecksummedPerByte, qPrintable(QString::number(perByte)));
    parser.feed(Bytes(70000));
    parser.found.clear();
    parser.feed(joined({timeFrame(3), timeFrame(4)}));
    QCOMPARE(parser.found, (QByteArrayList{hexText(timeFrame(3)), hexText(timeFrame(4))}));
}

void tst_HydControlProcessor::badLengthsBetweenGoodFrames()
{
    // A length field of each kind in a frame that is otherwise right: shorter and longer than what follows.
    for (const int claimed : {0, 1, 3, 5, 100, 1016, 1017, 65534, 65535}) {
        auto frame = timeFrame(8);
        frame[2] = static_cast<uint8_t>(claimed >> 8);
        frame[3] = static_cast<uint8_t>(claimed);
        ControlParser parser;
        parser.feed(joined({timeFrame(1), frame, timeFrame(2), timeFrame(3), Bytes(70000)}));
        QCOMPARE(parser.found,
                 (QByteArrayList{hexText(timeFrame(1)), hexText(timeFrame(2)), hexText(timeFrame(3))}));
    }
}

void tst_HydControlProcessor::everyByteIsAccountedFor_data()
{
    QTest::addColumn<Bytes>("bytes");
    QTest::addColumn<int>("skipped");
    QTest::addColumn<int>("waiting");
    const auto row = [](const char* name, const Bytes& bytes, int skipped, int waiting) {
        QTest::newRow(name) << bytes << skipped << waiting;
    };
    auto broken = timeFrame(5);
    broken.back() ^= 1;
    const auto cut = bytesOfHex("2a450010ff");
    row("nothing", {}, 0, 0);
    row("messages alone", joined({timeFrame(1), letterFrame('V')}), 0, 0);
    row("message without payload", controlFrame('q', bytesOfHex("0102")), 0, 0);
    row("junk alone", Bytes(300, 7), 300, 0);
    row("junk between messages", joined({Bytes(3, 7), timeFrame(1), Bytes(4, 8), timeFrame(2)}), 7, 0);
    row("bad checksum", joined({broken, timeFrame(1)}), 12, 0);
    row("cut frame waits", joined({Bytes(2, 7), timeFrame(1), Bytes(9, 7), cut}), 11, 5);
    row("cut frame in front of messages", joined({cut, timeFrame(1), timeFrame(2)}), 5, 0);
    row("stream with everything", mixedStream(), 6, 0);
}

void tst_HydControlProcessor::everyByteIsAccountedFor()
{
    QFETCH(Bytes, bytes);
    QFETCH(int, skipped);
    QFETCH(int, waiting);
    for (const size_t size : {size_t{1}, size_t{5}, size_t{100000}}) {
        ControlParser parser;
        parser.feedInPieces(bytes, size);
        QCOMPARE(parser.processor.skippedBytes(), static_cast<uint64_t>(skipped));
        QCOMPARE(parser.ring.byteCount(), static_cast<unsigned long long>(waiting));
        // The count goes on over runs.
        parser.feedInPieces(bytes, size);
        QVERIFY(parser.processor.skippedBytes() >= 2 * static_cast<uint64_t>(skipped));
    }
}

void tst_HydControlProcessor::lengthCheckCountsWhatItDrops()
{
    ControlParser parser;
    writeAll(parser.ring, joined({Bytes(21, 7), timeFrame(1)}));
    ControlResponseEvent event(parser.ring);
    QVERIFY(parser.processor.checkL(&event));
    QCOMPARE(parser.processor.skippedBytes(), uint64_t{21});
    parser.processor.dispatch(&event);
    QCOMPARE(parser.processor.skippedBytes(), uint64_t{21});
}

QTEST_APPLESS_MAIN(tst_HydControlProcessor)
#include "tst_HydControlProcessor.moc"
