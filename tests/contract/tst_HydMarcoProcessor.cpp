#include "NvxQtCommon/contract/message/HydMarcoProcessor.h"

#include "NvxQtCommon/contract/base/Crc32.h"
#include "tests/contract/ContractSupport.h"
#include "tests/support/NvxTestCase.h"

#include <QByteArrayList>

#include <algorithm>

class tst_HydMarcoProcessor : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void payloadsTravelWhole();
    void piecesOfAnySizeGiveTheSameMessages_data();
    void piecesOfAnySizeGiveTheSameMessages();
    void splitAnywhereGivesTheSameMessages();
    void reasonsOfARefusedChange_data();
    void reasonsOfARefusedChange();
    // --- rainy day flows
    void brokenDatagramNeverSwallowsTheNext();
    void cutDatagramNeverSwallowsTheNext();
    void foreignDatagramsAreIgnored_data();
    void foreignDatagramsAreIgnored();
    void bodyLengths_data();
    void bodyLengths();
    void endlessJunk_data();
    void endlessJunk();
    void everyByteIsAccountedFor_data();
    void everyByteIsAccountedFor();
    void foreignEventsAreOutOfData();
    void messageWithoutPayloadHasNoBytes();
    void datagramThatDoesNotFitIsNotWritten_data();
    void datagramThatDoesNotFitIsNotWritten();
};

namespace {

constexpr uint64_t kMostChecksummedPerByte = 4;

template <class Payload> Bytes datagramOf(const Payload& payload)
{
    Bytes buffer(HydMarcoCommand::kMaxDatagramSize);
    unsigned long long size = 0;
    HydMarcoCommand(std::make_shared<Payload>(payload)).serialize(&size, buffer.data());
    buffer.resize(size);
    return buffer;
}

HydNetworkEnqireCmd enquiry(uint16_t serial)
{
    HydNetworkEnqireCmd payload;
    payload.setDeviceType(DevTypeZcr);
    payload.setSerialNo(serial);
    payload.setNetInfo(NvxNetHostInfo(0x0A000102));
    payload.setResponsePort(40000);
    return payload;
}

HydChangeNetworkCmd change(uint16_t error)
{
    HydChangeNetworkCmd payload(DevTypeRecorderA, 77, NvxNetHostInfo(0x0A000103));
    payload.setError(error);
    payload.setResponsePort(1);
    return payload;
}

HydResetDeviceCmd reset()
{
    return HydResetDeviceCmd(NvxMacAddr({1, 2, 3, 4, 5, 6}));
}

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// A datagram with a right checksum around anything.
Bytes rawDatagram(const QByteArray& head, const Bytes& body)
{
    ByteStream out;
    out.putBytes(bytesOfHex(head));
    out.putU16(static_cast<uint16_t>(body.size()));
    out.putBytes(body);
    out.putU32(crc32Of(out.bytes()));
    return out.take();
}

class MarcoParser
{
public:
    void feed(std::span<const uint8_t> bytes)
    {
        writeAll(ring, bytes);
        MarcoMessageEvent event(ring);
        processor.setOutOfData(false);
        do {
            processor.dispatch(&event);
            if (processor.isAtEndState())
                found.append(text(*processor.message()));
        } while (!processor.outOfData());
    }

    void feedInPieces(std::span<const uint8_t> bytes, size_t size)
    {
        for (size_t at = 0; at < bytes.size(); at += size)
            feed(bytes.subspan(at, std::min(size, bytes.size() - at)));
    }

    CircularByteBuffer ring{8192};
    HydMarcoProcessor processor;
    QByteArrayList found;

private:
    static QByteArray text(const HydMarcoCommand& message)
    {
        Bytes buffer(HydMarcoCommand::kMaxDatagramSize);
        unsigned long long size = 0;
        message.serialize(&size, buffer.data());
        return hexText(std::span(buffer).first(size));
    }
};

Bytes mixedDatagrams()
{
    return datagramOf(enquiry(5)) + bytesOfHex("4e564e56580102") + datagramOf(change(3)) +
           datagramOf(reset());
}

QByteArrayList mixedDatagramTexts()
{
    return {hexText(datagramOf(enquiry(5))), hexText(datagramOf(change(3))), hexText(datagramOf(reset()))};
}

} // namespace

void tst_HydMarcoProcessor::payloadsTravelWhole()
{
    MarcoParser parser;
    const auto read = [&parser](const Bytes& bytes) {
        writeAll(parser.ring, bytes);
        MarcoMessageEvent event(parser.ring);
        parser.processor.dispatch(&event);
        return parser.processor.message() ? parser.processor.message()->payload() : nullptr;
    };
    const auto asked = std::dynamic_pointer_cast<HydNetworkEnqireCmd>(read(datagramOf(enquiry(5))));
    QVERIFY(asked);
    QCOMPARE(asked->deviceType(), DevTypeZcr);
    QCOMPARE(asked->serialNo(), uint16_t{5});
    QCOMPARE(asked->netInfo().ipAddress().toInt(), 0x0A000102U);
    QCOMPARE(asked->responsePort(), uint16_t{40000});
    const auto changed = std::dynamic_pointer_cast<HydChangeNetworkCmd>(read(datagramOf(change(0xFFFF))));
    QVERIFY(changed);
    QCOMPARE(changed->deviceType(), DevTypeRecorderA);
    QCOMPARE(changed->serialNo(), uint16_t{77});
    QCOMPARE(changed->error(), uint16_t{0xFFFF});
    QCOMPARE(changed->netInfo().ipAddress().toInt(), 0x0A000103U);
    const auto restarted = std::dynamic_pointer_cast<HydResetDeviceCmd>(read(datagramOf(reset())));
    QVERIFY(restarted);
    QVERIFY(restarted->macAddress() == reset().macAddress());
    QCOMPARE(restarted->responsePort(), uint16_t{0});
}

void tst_HydMarcoProcessor::piecesOfAnySizeGiveTheSameMessages_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {1, 2, 5, 13, 37, 1000})
        QTest::addRow("%d bytes", size) << size;
}

void tst_HydMarcoProcessor::piecesOfAnySizeGiveTheSameMessages()
{
    QFETCH(int, size);
    MarcoParser parser;
    parser.feedInPieces(mixedDatagrams(), static_cast<size_t>(size));
    QCOMPARE(parser.found, mixedDatagramTexts());
    QVERIFY(parser.ring.isEmpty());
}

void tst_HydMarcoProcessor::splitAnywhereGivesTheSameMessages()
{
    const auto stream = mixedDatagrams();
    for (size_t cut = 0; cut <= stream.size(); ++cut) {
        MarcoParser parser;
        parser.feed(std::span(stream).first(cut));
        parser.feed(std::span(stream).subspan(cut));
        QCOMPARE(parser.found, mixedDatagramTexts());
    }
}

void tst_HydMarcoProcessor::reasonsOfARefusedChange_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<QByteArray>("text");
    const auto row = [](int error, const char* text) {
        QTest::addRow("%d", error) << error << QByteArray(text);
    };
    row(0, "");
    row(0xFFFF, "An error occured in the device.");
    row(1, "The IP address was invalid.");
    row(2, "The subnet was invalid.");
    row(3, "The gateway address was invalid.");
    row(4, "The IP address was a broadcast address.");
    row(5, "The IP address given was the same as the device's existing address.");
    row(6, "The address acquisition mode was invalid.");
    row(7, "");
    row(0xFFFE, "");
}

void tst_HydMarcoProcessor::reasonsOfARefusedChange()
{
    QFETCH(int, error);
    QFETCH(QByteArray, text);
    QCOMPARE(QByteArray::fromStdString(HydChangeNetworkCmd::errorReason(static_cast<uint16_t>(error))), text);
}

void tst_HydMarcoProcessor::brokenDatagramNeverSwallowsTheNext()
{
    const auto good = datagramOf(enquiry(9));
    for (const auto& broken : {datagramOf(enquiry(5)), datagramOf(change(1)), datagramOf(reset())}) {
        for (size_t at = 0; at < broken.size(); ++at) {
            for (const int flip : {1, 0x80, 0xFF}) {
                auto bytes = broken;
                bytes[at] = static_cast<uint8_t>(bytes[at] ^ flip);
                MarcoParser parser;
                // Nothing behind the good one: it must not have to wait for more.
                parser.feed(bytes);
                parser.feed(good);
                QCOMPARE(parser.found, QByteArrayList{hexText(good)});
            }
        }
    }
}

void tst_HydMarcoProcessor::cutDatagramNeverSwallowsTheNext()
{
    const auto good = datagramOf(enquiry(9));
    const auto cut = datagramOf(change(1));
    for (size_t size = 0; size < cut.size(); ++size) {
        MarcoParser parser;
        parser.feed(std::span(cut).first(size));
        QVERIFY(parser.found.isEmpty());
        parser.feed(good + good);
        QCOMPARE(parser.found, (QByteArrayList{hexText(good), hexText(good)}));
    }
}

void tst_HydMarcoProcessor::foreignDatagramsAreIgnored_data()
{
    QTest::addColumn<Bytes>("bytes");
    const Bytes body(22, 1);
    QTest::newRow("other magic") << rawDatagram("4e56584e01010000", body);
    QTest::newRow("version 0") << rawDatagram("4e56584d00010000", body);
    QTest::newRow("version 2") << rawDatagram("4e56584d02010000", body);
    QTest::newRow("kind 0") << rawDatagram("4e56584d01000000", body);
    QTest::newRow("kind 4") << rawDatagram("4e56584d01040000", body);
    QTest::newRow("text") << Bytes(200, 'N');
}

void tst_HydMarcoProcessor::foreignDatagramsAreIgnored()
{
    QFETCH(Bytes, bytes);
    MarcoParser parser;
    parser.feed(bytes + datagramOf(reset()));
    QCOMPARE(parser.found, QByteArrayList{hexText(datagramOf(reset()))});
}

void tst_HydMarcoProcessor::bodyLengths_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("size");
    for (const int kind : {1, 2, 3}) {
        for (const int size : {0, 1, 5, 6, 7, 21, 22, 23, 24, 25, 1009, 1010, 1011, 4000})
            QTest::addRow("kind %d with %d bytes", kind, size) << kind << size;
    }
}

void tst_HydMarcoProcessor::bodyLengths()
{
    QFETCH(int, kind);
    QFETCH(int, size);
    const auto head = QByteArray("4e56584d01") + QByteArray::number(kind).rightJustified(2, '0') + "0000";
    const auto bytes = rawDatagram(head, Bytes(static_cast<size_t>(size), 1));
    QByteArrayList expected{hexText(datagramOf(reset()))};
    if (size == (kind == 1 ? 22 : kind == 2 ? 24 : 6))
        expected.prepend(hexText(bytes));
    MarcoParser parser;
    parser.feed(bytes + datagramOf(reset()));
    QCOMPARE(parser.found, expected);
}

void tst_HydMarcoProcessor::endlessJunk_data()
{
    QTest::addColumn<Bytes>("pattern");
    QTest::newRow("zeros") << Bytes{0};
    QTest::newRow("first byte of the magic") << Bytes{'N'};
    QTest::newRow("magic") << bytesOfHex("4e56584d");
    QTest::newRow("headers") << bytesOfHex("4e56584d010200000018");
    QTest::newRow("noise") << noiseBytes(1 << 20, 22);
}

void tst_HydMarcoProcessor::endlessJunk()
{
    QFETCH(Bytes, pattern);
    MarcoParser parser;
    Bytes piece(1024);
    size_t at = 0;
    const auto before = crc32ByteCount();
    for (int fed = 0; fed < 1024; ++fed) {
        for (auto& byte : piece) {
            byte = pattern[at];
            at = (at + 1) % pattern.size();
        }
        parser.feed(piece);
        QVERIFY(parser.ring.byteCount() < HydMarcoCommand::kMaxDatagramSize);
    }
    // The checksum of what begins like a datagram is looked at once, whatever follows.
    const auto checksummed = crc32ByteCount() - before;
    QVERIFY2(checksummed <= kMostChecksummedPerByte * 1024 * 1024, qPrintable(QString::number(checksummed)));
    QVERIFY(parser.found.isEmpty());
    parser.feed(datagramOf(reset()));
    QCOMPARE(parser.found, QByteArrayList{hexText(datagramOf(reset()))});
}

void tst_HydMarcoProcessor::everyByteIsAccountedFor_data()
{
    QTest::addColumn<Bytes>("bytes");
    QTest::addColumn<int>("skipped");
    QTest::addColumn<int>("waiting");
    const auto row = [](const char* name, const Bytes& bytes, int skipped, int waiting) {
        QTest::newRow(name) << bytes << skipped << waiting;
    };
    auto broken = datagramOf(reset());
    broken.back() ^= 1;
    const auto cut = bytesOfHex("4e56584d0102");
    row("nothing", {}, 0, 0);
    row("messages alone", datagramOf(reset()) + datagramOf(change(1)), 0, 0);
    row("junk alone", Bytes(300, 7), 300, 0);
    row("junk between messages", Bytes(3, 7) + datagramOf(reset()) + Bytes(4, 'N') + datagramOf(reset()), 7,
        0);
    row("bad checksum", broken + datagramOf(reset()), 20, 0);
    row("cut datagram waits", Bytes(2, 7) + datagramOf(reset()) + Bytes(9, 7) + cut, 11, 6);
    row("cut datagram in front of a message", cut + datagramOf(reset()), 6, 0);
    row("stream with everything", mixedDatagrams(), 7, 0);
}

void tst_HydMarcoProcessor::everyByteIsAccountedFor()
{
    QFETCH(Bytes, bytes);
    QFETCH(int, skipped);
    QFETCH(int, waiting);
    for (const size_t size : {size_t{1}, size_t{5}, size_t{4000}}) {
        MarcoParser parser;
        parser.feedInPieces(bytes, size);
        QCOMPARE(parser.processor.skippedBytes(), static_cast<uint64_t>(skipped));
        QCOMPARE(parser.ring.byteCount(), static_cast<unsigned long long>(waiting));
        // The count goes on over runs.
        parser.feedInPieces(bytes, size);
        QVERIFY(parser.processor.skippedBytes() >= 2 * static_cast<uint64_t>(skipped));
    }
}

void tst_HydMarcoProcessor::foreignEventsAreOutOfData()
{
    MarcoParser parser;
    writeAll(parser.ring, datagramOf(reset()));
    StateEvent foreign;
    parser.processor.dispatch(&foreign);
    QVERIFY(parser.processor.outOfData());
    QVERIFY(!parser.processor.isAtEndState());
    parser.feed({});
    QCOMPARE(parser.found.size(), 1);
}

void tst_HydMarcoProcessor::messageWithoutPayloadHasNoBytes()
{
    Bytes buffer(HydMarcoCommand::kMaxDatagramSize, 0xA5);
    unsigned long long size = 4;
    HydMarcoCommand(nullptr).serialize(&size, buffer.data());
    QCOMPARE(size, 0ULL);
    QVERIFY(std::ranges::all_of(buffer, [](uint8_t byte) { return byte == 0xA5; }));
}

void tst_HydMarcoProcessor::datagramThatDoesNotFitIsNotWritten_data()
{
    QTest::addColumn<int>("bodySize");
    QTest::addColumn<int>("size");
    QTest::newRow("just fits") << 1010 << 1024;
    QTest::newRow("one byte too long") << 1011 << 0;
    QTest::newRow("far too long") << 70000 << 0;
}

void tst_HydMarcoProcessor::datagramThatDoesNotFitIsNotWritten()
{
    QFETCH(int, bodySize);
    QFETCH(int, size);
    class Sized : public HydMarcoCommandPayload
    {
    public:
        explicit Sized(int bodySize) : m_bodySize(static_cast<size_t>(bodySize)) {}
        uint8_t kind() const override { return 1; }
        void serialize(ByteStream& out) const override { out.putBytes(Bytes(m_bodySize, 1)); }
        bool deserialize(ByteReader&) override { return false; }

    private:
        size_t m_bodySize;
    };
    Bytes buffer(HydMarcoCommand::kMaxDatagramSize + 2048, 0xA5);
    unsigned long long written = 7;
    HydMarcoCommand(std::make_shared<Sized>(bodySize)).serialize(&written, buffer.data());
    QCOMPARE(static_cast<int>(written), size);
    const auto untouched = std::span(buffer).subspan(static_cast<size_t>(size));
    QVERIFY(std::ranges::all_of(untouched, [](uint8_t byte) { return byte == 0xA5; }));
}

QTEST_APPLESS_MAIN(tst_HydMarcoProcessor)
#include "tst_HydMarcoProcessor.moc"
