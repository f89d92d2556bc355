#include "tests/contract/ContractSupport.h"
#include "tests/support/NvxTestCase.h"

#include <deque>

class tst_CircularByteBuffer : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void freshRingIsEmpty();
    void readsInTheOrderWritten();
    void wrapsAroundItsEnd_data();
    void wrapsAroundItsEnd();
    void peekLeavesTheBytes();
    void skipDropsTheOldest();
    void emptiedRingStartsOverInOnePiece();
    void clearForgetsEverything();
    void piecesCoverTheContent();
    void findsAcrossTheEnd();
    void movesBetweenRings();
    void agreesWithAPlainQueue();
    // --- rainy day flows
    void fullRingTakesNothing();
    void writeTakesWhatFits();
    void readGivesWhatIsThere();
    void offsetsBehindTheContentGiveNothing();
    void moveKeepsWhatDoesNotFit();
    void moveFromNothingOrItselfDoesNothing();
    void ringWithoutCapacity();
};

namespace {

/// A ring of `capacity` whose content starts at `head` in its memory.
void turnRing(CircularByteBuffer& ring, unsigned long long head)
{
    const Bytes filler(ring.capacity(), 0xEE);
    ring.clear();
    ring.write(filler.data(), ring.capacity());
    // The last byte stays until something follows it: an empty ring would start over at the front.
    ring.skip(head);
}

} // namespace

void tst_CircularByteBuffer::freshRingIsEmpty()
{
    const CircularByteBuffer ring(16);
    QCOMPARE(ring.byteCount(), 0ULL);
    QCOMPARE(ring.capacity(), 16ULL);
    QCOMPARE(ring.freeSpace(), 16ULL);
    QVERIFY(ring.isEmpty());
    QVERIFY(ring.front().empty());
}

void tst_CircularByteBuffer::readsInTheOrderWritten()
{
    CircularByteBuffer ring(16);
    QCOMPARE(writeAll(ring, Bytes{1, 2, 3}), 3ULL);
    QCOMPARE(writeAll(ring, Bytes{4, 5}), 2ULL);
    QCOMPARE(ring.byteCount(), 5ULL);
    QCOMPARE(ring.freeSpace(), 11ULL);
    Bytes first(2);
    QCOMPARE(ring.read(first.data(), 2), 2ULL);
    QCOMPARE(hexText(first), "0102");
    QCOMPARE(hexText(drained(ring)), "030405");
    QVERIFY(ring.isEmpty());
}

void tst_CircularByteBuffer::wrapsAroundItsEnd_data()
{
    QTest::addColumn<int>("head");
    for (int head = 0; head < 8; ++head)
        QTest::addRow("content starts at %d", head) << head;
}

void tst_CircularByteBuffer::wrapsAroundItsEnd()
{
    QFETCH(int, head);
    CircularByteBuffer ring(8);
    turnRing(ring, static_cast<unsigned>(head));
    const Bytes fresh{1, 2, 3, 4, 5, 6, 7, 8};
    const auto fitted = writeAll(ring, fresh);
    QCOMPARE(fitted, static_cast<unsigned long long>(head));
    Bytes expected(8 - fitted, 0xEE);
    expected.insert(expected.end(), fresh.begin(), fresh.begin() + head);
    for (unsigned i = 0; i < 8; ++i)
        QCOMPARE(ring.at(i), expected[i]);
    QCOMPARE(hexText(drained(ring)), hexText(expected));
}

void tst_CircularByteBuffer::peekLeavesTheBytes()
{
    CircularByteBuffer ring(8);
    turnRing(ring, 6);
    writeAll(ring, Bytes{1, 2, 3, 4, 5});
    Bytes seen(5);
    QCOMPARE(ring.peek(seen.data(), 5, 1), 5ULL);
    QCOMPARE(hexText(seen), "ee01020304");
    QCOMPARE(ring.peek(seen.data(), 5, 4), 3ULL);
    QCOMPARE(hexText(std::span(seen).first(3)), "030405");
    QCOMPARE(ring.byteCount(), 7ULL);
}

void tst_CircularByteBuffer::skipDropsTheOldest()
{
    CircularByteBuffer ring(8);
    writeAll(ring, Bytes{1, 2, 3, 4});
    QCOMPARE(ring.skip(3), 3ULL);
    QCOMPARE(hexText(drained(ring)), "04");
}

void tst_CircularByteBuffer::emptiedRingStartsOverInOnePiece()
{
    CircularByteBuffer ring(8);
    writeAll(ring, Bytes{1, 2, 3, 4, 5, 6});
    ring.skip(6);
    writeAll(ring, Bytes{1, 2, 3, 4, 5, 6, 7, 8});
    QCOMPARE(ring.front().size(), size_t{8});
}

void tst_CircularByteBuffer::clearForgetsEverything()
{
    CircularByteBuffer ring(4);
    writeAll(ring, Bytes{1, 2, 3});
    ring.clear();
    QVERIFY(ring.isEmpty());
    QCOMPARE(ring.takenCount(), 3ULL);
    QCOMPARE(writeAll(ring, Bytes{5, 6, 7, 8}), 4ULL);
    QCOMPARE(hexText(drained(ring)), "05060708");
    QCOMPARE(ring.takenCount(), 7ULL);
}

void tst_CircularByteBuffer::piecesCoverTheContent()
{
    CircularByteBuffer ring(8);
    turnRing(ring, 5);
    writeAll(ring, Bytes{1, 2, 3});
    QCOMPARE(hexText(ring.front()), "eeeeee");
    QCOMPARE(hexText(ring.piece(2)), "ee");
    QCOMPARE(hexText(ring.piece(3)), "010203");
    QCOMPARE(hexText(ring.piece(5)), "03");
}

void tst_CircularByteBuffer::findsAcrossTheEnd()
{
    CircularByteBuffer ring(8);
    turnRing(ring, 6);
    writeAll(ring, Bytes{1, 2, 3, 2});
    QCOMPARE(ring.find(0xEE, 0), 0ULL);
    QCOMPARE(ring.find(0xEE, 1), 1ULL);
    QCOMPARE(ring.find(2, 0), 3ULL);
    QCOMPARE(ring.find(2, 3), 3ULL);
    QCOMPARE(ring.find(2, 4), 5ULL);
    // What was taken out of the ring before isn't found any more.
    QCOMPARE(ring.find(0xEE, 2), 6ULL);
}

void tst_CircularByteBuffer::movesBetweenRings()
{
    CircularByteBuffer from(8);
    turnRing(from, 6);
    writeAll(from, Bytes{1, 2, 3});
    CircularByteBuffer to(16);
    writeAll(to, Bytes{9});
    QCOMPARE(to.write(&from), 5ULL);
    QVERIFY(from.isEmpty());
    QCOMPARE(hexText(drained(to)), "09eeee010203");
}

void tst_CircularByteBuffer::agreesWithAPlainQueue()
{
    CircularByteBuffer ring(61);
    std::deque<uint8_t> queue;
    const auto noise = noiseBytes(20000, 7);
    for (size_t step = 0; step + 80 < noise.size(); step += 80) {
        const auto size = noise[step] % 70U;
        const auto fitted = writeAll(ring, std::span(noise).subspan(step + 2, size));
        QCOMPARE(fitted, std::min<unsigned long long>(size, 61 - queue.size()));
        for (size_t i = 0; i < fitted; ++i)
            queue.push_back(noise[step + 2 + i]);
        Bytes out(noise[step + 1] % 70U);
        const auto expected = std::min(out.size(), queue.size());
        QCOMPARE(ring.read(out.data(), out.size()), static_cast<unsigned long long>(expected));
        for (size_t i = 0; i < expected; ++i) {
            QCOMPARE(out[i], queue.front());
            queue.pop_front();
        }
        QCOMPARE(ring.byteCount(), static_cast<unsigned long long>(queue.size()));
    }
}

void tst_CircularByteBuffer::fullRingTakesNothing()
{
    CircularByteBuffer ring(3);
    QCOMPARE(writeAll(ring, Bytes{1, 2, 3}), 3ULL);
    QCOMPARE(ring.freeSpace(), 0ULL);
    QCOMPARE(writeAll(ring, Bytes{4}), 0ULL);
    QCOMPARE(hexText(drained(ring)), "010203");
}

void tst_CircularByteBuffer::writeTakesWhatFits()
{
    CircularByteBuffer ring(4);
    writeAll(ring, Bytes{1, 2, 3});
    ring.skip(2);
    QCOMPARE(writeAll(ring, Bytes{4, 5, 6, 7, 8}), 3ULL);
    QCOMPARE(hexText(drained(ring)), "03040506");
}

void tst_CircularByteBuffer::readGivesWhatIsThere()
{
    CircularByteBuffer ring(4);
    writeAll(ring, Bytes{1, 2});
    Bytes out(4, 0xAA);
    QCOMPARE(ring.read(out.data(), 4), 2ULL);
    QCOMPARE(hexText(out), "0102aaaa");
    QCOMPARE(ring.read(out.data(), 4), 0ULL);
    QCOMPARE(ring.skip(5), 0ULL);
}

void tst_CircularByteBuffer::offsetsBehindTheContentGiveNothing()
{
    CircularByteBuffer ring(8);
    turnRing(ring, 6);
    uint8_t byte = 0xAA;
    QCOMPARE(ring.peek(&byte, 1, 2), 0ULL);
    QCOMPARE(ring.peek(&byte, 1, ~0ULL), 0ULL);
    QCOMPARE(byte, uint8_t{0xAA});
    QVERIFY(ring.piece(2).empty());
    QCOMPARE(ring.find(0xEE, 2), 2ULL);
    QCOMPARE(ring.find(0xEE, ~0ULL), 2ULL);
}

void tst_CircularByteBuffer::moveKeepsWhatDoesNotFit()
{
    CircularByteBuffer from(8);
    turnRing(from, 6);
    writeAll(from, Bytes{1, 2, 3});
    CircularByteBuffer to(4);
    writeAll(to, Bytes{9});
    QCOMPARE(to.write(&from), 3ULL);
    QCOMPARE(to.write(&from), 0ULL);
    QCOMPARE(hexText(drained(to)), "09eeee01");
    QCOMPARE(hexText(drained(from)), "0203");
}

void tst_CircularByteBuffer::moveFromNothingOrItselfDoesNothing()
{
    CircularByteBuffer ring(8);
    writeAll(ring, Bytes{1, 2});
    QCOMPARE(ring.write(nullptr), 0ULL);
    QCOMPARE(ring.write(&ring), 0ULL);
    QCOMPARE(hexText(drained(ring)), "0102");
}

void tst_CircularByteBuffer::ringWithoutCapacity()
{
    CircularByteBuffer ring(0);
    QCOMPARE(writeAll(ring, Bytes{1}), 0ULL);
    uint8_t byte = 0;
    QCOMPARE(ring.read(&byte, 1), 0ULL);
    QCOMPARE(ring.find(1, 0), 0ULL);
    QVERIFY(ring.isEmpty());
}

QTEST_APPLESS_MAIN(tst_CircularByteBuffer)
#include "tst_CircularByteBuffer.moc"
