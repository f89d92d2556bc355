#include "tests/contract/ContractSupport.h"
#include "tests/support/NvxTestCase.h"

class tst_ByteStream : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void writesTheMostSignificantByteFirst();
    void readsWhatWasWritten();
    void readsSignedNumbers();
    void patchesLengthFields();
    void takeHandsTheBytesOver();
    void viewsDoNotCopy();
    void textKeepsItsCharacters_data();
    void textKeepsItsCharacters();
    // --- rainy day flows
    void longTextIsCutAtACharacter_data();
    void longTextIsCutAtACharacter();
    void firstReadThatDoesNotFitEndsAllReading_data();
    void firstReadThatDoesNotFitEndsAllReading();
    void shortTextIsNoText();
    void hugeCountDoesNotWrapAround();
    void failMarksTheSource();
};

void tst_ByteStream::writesTheMostSignificantByteFirst()
{
    ByteStream out;
    out.putU8(0x01);
    out.putU16(0x0203);
    out.putU32(0x04050607);
    out.putU64(0x08090A0B0C0D0E0FULL);
    out.putBytes(Bytes{0xAA, 0xBB});
    out.putText("hi");
    QCOMPARE(hexText(out.bytes()), "0102030405060708090a0b0c0d0e0faabb026869");
    QCOMPARE(out.size(), size_t{20});
}

void tst_ByteStream::readsWhatWasWritten()
{
    const auto bytes = bytesOfHex("0102030405060708090a0b0c0d0e0faabb026869");
    ByteReader in(bytes);
    QCOMPARE(in.u8(), uint8_t{0x01});
    QCOMPARE(in.u16(), uint16_t{0x0203});
    QCOMPARE(in.u32(), uint32_t{0x04050607});
    QCOMPARE(in.u64(), uint64_t{0x08090A0B0C0D0E0FULL});
    QCOMPARE(in.remaining(), size_t{5});
    QCOMPARE(hexText(in.take(2)), "aabb");
    QCOMPARE(in.text(), std::string("hi"));
    QVERIFY(in.atEnd());
    QVERIFY(in.ok());
}

void tst_ByteStream::readsSignedNumbers()
{
    const auto bytes = bytesOfHex("ffff8000fffffffe80000000");
    ByteReader in(bytes);
    QCOMPARE(in.i16(), int16_t{-1});
    QCOMPARE(in.i16(), int16_t{-32768});
    QCOMPARE(in.i32(), -2);
    QCOMPARE(in.i32(), std::numeric_limits<int32_t>::min());
    QVERIFY(in.ok());
}

void tst_ByteStream::patchesLengthFields()
{
    ByteStream out;
    out.putU64(0);
    out.patchU16(1, 0x0102);
    out.patchU32(4, 0x03040506);
    QCOMPARE(hexText(out.bytes()), "0001020003040506");
}

void tst_ByteStream::takeHandsTheBytesOver()
{
    ByteStream out;
    out.putU16(0x1234);
    QCOMPARE(hexText(out.take()), "1234");
    out.clear();
    out.putU8(5);
    QCOMPARE(hexText(out.bytes()), "05");
}

void tst_ByteStream::viewsDoNotCopy()
{
    const Bytes bytes{1, 2, 3};
    ByteReader in(bytes);
    in.u8();
    QCOMPARE(in.take(2).data(), bytes.data() + 1);
}

void tst_ByteStream::textKeepsItsCharacters_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("one letter") << QByteArray("x");
    QTest::newRow("two-byte character") << QByteArray("µPa");
    QTest::newRow("zero byte inside") << QByteArray("a\0b", 3);
    QTest::newRow("longest") << QByteArray(255, 'z');
}

void tst_ByteStream::textKeepsItsCharacters()
{
    QFETCH(QByteArray, text);
    ByteStream out;
    out.putText(text.toStdString());
    QCOMPARE(out.size(), static_cast<size_t>(text.size()) + 1);
    ByteReader in(out.bytes());
    QCOMPARE(QByteArray::fromStdString(in.text()), text);
    QVERIFY(in.atEnd());
}

void tst_ByteStream::longTextIsCutAtACharacter_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("kept");
    QTest::newRow("one byte too long") << QByteArray(256, 'z') << 255;
    QTest::newRow("two bytes over the border") << QByteArray(254, 'z') + QByteArray("µ") << 254;
    QTest::newRow("two bytes up to the border") << QByteArray(253, 'z') + QByteArray("µµ") << 255;
    QTest::newRow("four bytes, three inside") << QByteArray(252, 'z') + QByteArray("\U0001F40B") << 252;
    QTest::newRow("continuation bytes only") << QByteArray(300, '\x80') << 0;
}

void tst_ByteStream::longTextIsCutAtACharacter()
{
    QFETCH(QByteArray, text);
    QFETCH(int, kept);
    ByteStream out;
    out.putText(text.toStdString());
    ByteReader in(out.bytes());
    QCOMPARE(QByteArray::fromStdString(in.text()), text.left(kept));
    QVERIFY(in.atEnd());
}

void tst_ByteStream::firstReadThatDoesNotFitEndsAllReading_data()
{
    QTest::addColumn<int>("held");
    QTest::addColumn<int>("width");
    for (const int width : {1, 2, 4, 8}) {
        for (int held = 0; held < width; ++held)
            QTest::addRow("%d of %d bytes", held, width) << held << width;
    }
}

void tst_ByteStream::firstReadThatDoesNotFitEndsAllReading()
{
    QFETCH(int, held);
    QFETCH(int, width);
    const Bytes bytes(static_cast<size_t>(held), 0xFF);
    ByteReader in(bytes);
    const uint64_t value = width == 1 ? in.u8() : width == 2 ? in.u16() : width == 4 ? in.u32() : in.u64();
    QCOMPARE(value, uint64_t{0});
    QVERIFY(!in.ok());
    // Bytes that are left could be read, but they would be taken for something that they aren't.
    QCOMPARE(in.u8(), uint8_t{0});
    QVERIFY(in.take(0).empty());
    QVERIFY(!in.ok());
}

void tst_ByteStream::shortTextIsNoText()
{
    const auto bytes = bytesOfHex("036869");
    ByteReader in(bytes);
    QCOMPARE(in.text(), std::string());
    QVERIFY(!in.ok());
}

void tst_ByteStream::hugeCountDoesNotWrapAround()
{
    const Bytes bytes(4);
    ByteReader in(bytes);
    in.u16();
    QVERIFY(in.take(std::numeric_limits<size_t>::max()).empty());
    QVERIFY(!in.ok());
}

void tst_ByteStream::failMarksTheSource()
{
    const Bytes bytes{7};
    ByteReader in(bytes);
    in.fail();
    QVERIFY(!in.ok());
    QCOMPARE(in.u8(), uint8_t{0});
}

QTEST_APPLESS_MAIN(tst_ByteStream)
#include "tst_ByteStream.moc"
