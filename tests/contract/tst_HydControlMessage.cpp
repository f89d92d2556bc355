#include "NvxQtCommon/contract/message/HydControlMessage.h"

#include "NvxQtCommon/contract/message/HydControlPayloads.h"
#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"
#include "NvxQtCommon/contract/message/HydTrigger.h"
#include "tests/contract/ControlSupport.h"
#include "tests/support/NvxTestCase.h"

class tst_HydControlMessage : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void frameIsAsDocumented();
    void letterCommandsGiveTheirOwnBytes_data();
    void letterCommandsGiveTheirOwnBytes();
    void derivedCommandsGiveTheirOwnBytes_data();
    void derivedCommandsGiveTheirOwnBytes();
    void senderMarkStaysAtHome();
    void serializeAgreesWithFrame();
    // --- rainy day flows
    void sendBufferIsNeverOverrun_data();
    void sendBufferIsNeverOverrun();
    void messageWithoutPayloadHasNoBytes();
    void largestFrame_data();
    void largestFrame();
};

namespace {

/// A payload of letter S with any number of bytes.
class SizedPayload : public HydControlMsgPayload
{
public:
    explicit SizedPayload(size_t size) : m_size(size) {}
    uint8_t msgType() const override { return 'S'; }
    void serialize(ByteStream& out) const override { out.putBytes(noiseBytes(m_size, 11)); }
    bool deserialize(ByteReader&) override { return false; }

private:
    size_t m_size;
};

/// A letter command that has a body all the same: the payload of another class.
class DerivedCommand : public HydMsgPayload
{
public:
    explicit DerivedCommand(std::shared_ptr<HydControlMsgPayload> body)
        : HydMsgPayload(body->msgType()), m_body(std::move(body))
    {
    }
    void serialize(ByteStream& out) const override { m_body->serialize(out); }

private:
    std::shared_ptr<HydControlMsgPayload> m_body;
};

using Payload = std::shared_ptr<HydControlMsgPayload>;

} // namespace

Q_DECLARE_METATYPE(Payload)

void tst_HydControlMessage::frameIsAsDocumented()
{
    const auto frame = HydControlMessage(std::make_shared<HydSetTimeCmd>(0x01020304)).frame();
    QCOMPARE(hexText(std::span(frame).first(8)), "2a41000401020304");
    QCOMPARE(frame.size(), size_t{12});
    QCOMPARE(hexText(frame), hexText(controlFrame('A', bytesOfHex("01020304"))));
}

void tst_HydControlMessage::letterCommandsGiveTheirOwnBytes_data()
{
    QTest::addColumn<char>("letter");
    for (const char letter : {'E', 'R', 'U', 'V', '['})
        QTest::addRow("%c", letter) << letter;
}

void tst_HydControlMessage::letterCommandsGiveTheirOwnBytes()
{
    QFETCH(char, letter);
    const auto payload = std::make_shared<HydMsgPayload>(static_cast<uint8_t>(letter));
    unsigned long long size = 0;
    const auto* bytes = payload->getMessage(size);
    QCOMPARE(size, 8ULL);
    QCOMPARE(hexText({bytes, size}), hexText(HydControlMessage(payload).frame()));
    QCOMPARE(hexText({bytes, size}), hexText(controlFrame(letter, {})));
}

void tst_HydControlMessage::derivedCommandsGiveTheirOwnBytes_data()
{
    QTest::addColumn<Payload>("body");
    const auto row = [](const char* name, Payload body) { QTest::newRow(name) << std::move(body); };
    HydEnquireCmd::Report report;
    report.model = "model";
    const JobTagMap tags{{JobTagWavRate, std::make_shared<HydWavSampleRateTag>(96000U)}};
    HydDataCollectCmd collected(0x20);
    collected.setChunk(DataCollWavTime, std::make_shared<DataCollWavTimeChunk>(1U, 2U));
    row("letter alone", std::make_shared<HydMsgPayload>('V'));
    row("set time", std::make_shared<HydSetTimeCmd>(7));
    row("data collect", std::make_shared<HydDataCollectCmd>(collected));
    row("job setup", std::make_shared<HydJobSetupCmd>(tags, JobSetupDefault));
    row("enquiry", std::make_shared<HydEnquireCmd>());
    row("report", std::make_shared<HydEnquireCmd>(report));
    row("job setup enquiry", std::make_shared<HydJobSetupEnq>(tags, JobSetupDefault));
    row("trigger list", std::make_shared<HydEnquireTrigger>(std::vector{std::make_shared<HydTrigger>()}));
    row("trigger", std::make_shared<HydTrigger_5_6>());
    row("trigger of another type", std::make_shared<HydTrigger>());
    row("restart", std::make_shared<HydResetCmd>());
    row("clock state", std::make_shared<HydEnquireTimeSync>(uint8_t{2}, uint16_t{7}, -5, 9U));
    row("one byte", std::make_shared<SizedPayload>(1));
    row("largest", std::make_shared<SizedPayload>(65535));
    row("too large", std::make_shared<SizedPayload>(65536));
}

void tst_HydControlMessage::derivedCommandsGiveTheirOwnBytes()
{
    QFETCH(Payload, body);
    const auto command = std::make_shared<DerivedCommand>(body);
    unsigned long long size = 77;
    // Twice: the second call takes the place of the first.
    command->getMessage(size);
    const auto* bytes = command->getMessage(size);
    QCOMPARE(hexText({bytes, size}), hexText(HydControlMessage(command).frame()));
    QCOMPARE(hexText({bytes, size}), hexText(HydControlMessage(body).frame()));
}

void tst_HydControlMessage::senderMarkStaysAtHome()
{
    HydMsgPayload ofController('U');
    HydMsgPayload ofSocket('U', 7);
    QCOMPARE(ofController.senderMark(), uint8_t{0xFE});
    QCOMPARE(ofSocket.senderMark(), uint8_t{7});
    unsigned long long size = 0;
    const auto first = hexText({ofController.getMessage(size), 8});
    QCOMPARE(hexText({ofSocket.getMessage(size), 8}), first);
}

void tst_HydControlMessage::serializeAgreesWithFrame()
{
    const HydControlMessage message(std::make_shared<HydSetTimeCmd>(-1));
    Bytes buffer(HydControlMessage::kSendBufferSize);
    unsigned long long size = 0;
    message.serialize(&size, buffer.data());
    QCOMPARE(hexText(std::span(buffer).first(size)), hexText(message.frame()));
}

void tst_HydControlMessage::sendBufferIsNeverOverrun_data()
{
    QTest::addColumn<int>("payloadSize");
    QTest::addColumn<bool>("fits");
    QTest::newRow("empty") << 0 << true;
    QTest::newRow("one byte left") << 1015 << true;
    QTest::newRow("just fits") << 1016 << true;
    QTest::newRow("one byte too long") << 1017 << false;
    QTest::newRow("far too long") << 60000 << false;
    QTest::newRow("longer than a frame can be") << 65536 << false;
}

void tst_HydControlMessage::sendBufferIsNeverOverrun()
{
    QFETCH(int, payloadSize);
    QFETCH(bool, fits);
    const HydControlMessage message(std::make_shared<SizedPayload>(static_cast<size_t>(payloadSize)));
    Bytes buffer(HydControlMessage::kSendBufferSize + 4096, 0xA5);
    unsigned long long size = 12345;
    message.serialize(&size, buffer.data());
    QCOMPARE(size, fits ? static_cast<unsigned long long>(payloadSize) + 8 : 0ULL);
    // What lies behind the frame, and behind the buffer, is as it was.
    const auto untouched = std::span(buffer).subspan(static_cast<size_t>(size));
    QVERIFY(std::ranges::all_of(untouched, [](uint8_t byte) { return byte == 0xA5; }));
}

void tst_HydControlMessage::messageWithoutPayloadHasNoBytes()
{
    const HydControlMessage message(nullptr);
    Bytes buffer(HydControlMessage::kSendBufferSize, 0xA5);
    unsigned long long size = 5;
    message.serialize(&size, buffer.data());
    QCOMPARE(size, 0ULL);
    QCOMPARE(buffer[0], uint8_t{0xA5});
    QVERIFY(message.frame().empty());
    QVERIFY(!message.payload());
}

void tst_HydControlMessage::largestFrame_data()
{
    QTest::addColumn<int>("payloadSize");
    QTest::addColumn<int>("frameSize");
    QTest::newRow("largest but one") << 65534 << 65542;
    QTest::newRow("largest") << 65535 << 65543;
    QTest::newRow("too large") << 65536 << 0;
    QTest::newRow("far too large") << 200000 << 0;
}

void tst_HydControlMessage::largestFrame()
{
    QFETCH(int, payloadSize);
    QFETCH(int, frameSize);
    const auto frame = HydControlMessage::frame(SizedPayload(static_cast<size_t>(payloadSize)));
    QCOMPARE(static_cast<int>(frame.size()), frameSize);
    if (frameSize > 0)
        QCOMPARE(int{frame[2]} * 256 + frame[3], payloadSize);
}

QTEST_APPLESS_MAIN(tst_HydControlMessage)
#include "tst_HydControlMessage.moc"
