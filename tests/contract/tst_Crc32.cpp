#include "NvxQtCommon/contract/base/Crc32.h"

#include "tests/contract/ContractSupport.h"
#include "tests/support/NvxTestCase.h"

#include <thread>

class tst_Crc32 : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void knownValues_data();
    void knownValues();
    void goesOnFromTheBytesInFront();
    void everyPieceOfARing_data();
    void everyPieceOfARing();
    void bytesComeAndGo();
    void workIsCounted();
    void piecesThatOverlapCostOnePass();
    // --- rainy day flows
    void bytesThatGoUnannounced();
    void seesEveryChangedBit();
};

namespace {

/// Bit by bit, straight from the polynomial.
uint32_t plainCrc(std::span<const uint8_t> bytes)
{
    uint32_t crc = 0xFFFFFFFFU;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
    }
    return ~crc;
}

} // namespace

void tst_Crc32::knownValues_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<quint32>("crc");
    QTest::newRow("nothing") << QByteArray() << 0U;
    QTest::newRow("check value of the standard") << QByteArray("123456789") << 0xCBF43926U;
    QTest::newRow("zeros count") << QByteArray(4, '\0') << 0x2144DF1CU;
}

void tst_Crc32::knownValues()
{
    QFETCH(QByteArray, bytes);
    QFETCH(quint32, crc);
    const Bytes held(bytes.begin(), bytes.end());
    QCOMPARE(crc32Of(held), crc);
    QCOMPARE(plainCrc(held), crc);
}

void tst_Crc32::goesOnFromTheBytesInFront()
{
    const auto bytes = noiseBytes(300, 3);
    const std::span all(bytes);
    for (const size_t cut : {0U, 1U, 150U, 299U, 300U})
        QCOMPARE(crc32Of(all.subspan(cut), crc32Of(all.first(cut))), plainCrc(bytes));
}

void tst_Crc32::everyPieceOfARing_data()
{
    QTest::addColumn<int>("head");
    QTest::newRow("in one piece") << 0;
    QTest::newRow("wrapped early") << 190;
    QTest::newRow("wrapped at a mark") << 136;
    QTest::newRow("wrapped late") << 20;
}

void tst_Crc32::everyPieceOfARing()
{
    QFETCH(int, head);
    CircularByteBuffer ring(200);
    writeAll(ring, Bytes(200, 0));
    ring.skip(static_cast<unsigned>(head));
    writeAll(ring, noiseBytes(200, 5));
    Bytes bytes(ring.byteCount());
    ring.peek(bytes.data(), bytes.size());
    RingCrc32 checksums(ring);
    // Backwards, so that an early question can't have prepared a late one.
    for (size_t offset = bytes.size(); offset-- > 0;) {
        for (const size_t size :
             {size_t{0}, size_t{1}, size_t{4}, size_t{63}, size_t{64}, size_t{65}, bytes.size() - offset}) {
            if (offset + size > bytes.size())
                continue;
            QCOMPARE(checksums.of(offset, size), plainCrc(std::span(bytes).subspan(offset, size)));
        }
    }
}

void tst_Crc32::bytesComeAndGo()
{
    const auto all = noiseBytes(40000, 31);
    CircularByteBuffer ring(1000);
    RingCrc32 checksums(ring);
    size_t written = 0;
    for (size_t step = 0; written + 700 < all.size(); ++step) {
        const auto front = written - static_cast<size_t>(ring.byteCount());
        written += writeAll(ring, std::span(all).subspan(written, all[step] * 2U));
        const auto held = static_cast<size_t>(ring.byteCount());
        const auto offset = all[step + 1] * held / 300;
        // Long and short pieces in turn: what is known reaches beyond the bytes that leave, or doesn't.
        const auto size = step % 3 == 0 ? std::min<size_t>(held - offset, 9) : held - offset;
        QCOMPARE(checksums.of(offset, size), plainCrc(std::span(all).subspan(front + offset, size)));
        const auto leaving = all[step + 2] * held / (step % 2 == 0 ? 260 : 2000);
        checksums.leave(leaving);
        QCOMPARE(ring.skip(leaving), static_cast<unsigned long long>(leaving));
    }
}

void tst_Crc32::workIsCounted()
{
    const auto before = crc32ByteCount();
    crc32Of(noiseBytes(300, 3));
    QCOMPARE(crc32ByteCount() - before, uint64_t{300});
    crc32Of({});
    QCOMPARE(crc32ByteCount() - before, uint64_t{300});
    // Each thread has its own count.
    std::thread([] { crc32Of(noiseBytes(100, 3)); }).join();
    QCOMPARE(crc32ByteCount() - before, uint64_t{300});
}

void tst_Crc32::piecesThatOverlapCostOnePass()
{
    constexpr size_t held = 20000;
    constexpr size_t half = held / 2;
    CircularByteBuffer ring(held);
    writeAll(ring, noiseBytes(held, 6));
    RingCrc32 checksums(ring);
    const auto before = crc32ByteCount();
    for (size_t offset = 0; offset < half; ++offset)
        checksums.of(offset, half);
    // One pass, and less than 64 bytes at either end of each piece.
    QVERIFY(crc32ByteCount() - before >= held - 64);
    QVERIFY(crc32ByteCount() - before < held + half * 2 * 64);
}

void tst_Crc32::bytesThatGoUnannounced()
{
    const auto all = noiseBytes(600, 32);
    CircularByteBuffer ring(400);
    RingCrc32 checksums(ring);
    writeAll(ring, std::span(all).first(400));
    QCOMPARE(checksums.of(0, 400), plainCrc(std::span(all).first(400)));
    ring.skip(70);
    QCOMPARE(checksums.of(5, 300), plainCrc(std::span(all).subspan(75, 300)));
    ring.skip(10);
    checksums.leave(20);
    ring.skip(20);
    QCOMPARE(checksums.of(0, 100), plainCrc(std::span(all).subspan(100, 100)));
    ring.clear();
    writeAll(ring, std::span(all).subspan(400));
    QCOMPARE(checksums.of(1, 150), plainCrc(std::span(all).subspan(401, 150)));
}

void tst_Crc32::seesEveryChangedBit()
{
    auto bytes = noiseBytes(40, 9);
    const auto crc = crc32Of(bytes);
    for (size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        const auto mask = static_cast<uint8_t>(1U << (bit % 8));
        bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] ^ mask);
        QVERIFY(crc32Of(bytes) != crc);
        bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] ^ mask);
    }
}

QTEST_APPLESS_MAIN(tst_Crc32)
#include "tst_Crc32.moc"
