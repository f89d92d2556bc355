#include "NvxQtCommon/contract/message/HydControlPayloads.h"

#include "NvxQtCommon/contract/message/HydDataCollectCmd.h"
#include "NvxQtCommon/contract/message/HydTrigger.h"
#include "tests/contract/ControlSupport.h"
#include "tests/support/NvxTestCase.h"

#include <functional>
#include <typeinfo>

class tst_HydControlPayloads : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void replyToAnEnquiry();
    void times_data();
    void times();
    void acceptedSetup();
    void setupOfAnEnquiry();
    void clockState();
    void letterCommands_data();
    void letterCommands();
    void collectedData();
    void samplesOfAnyWidth_data();
    void samplesOfAnyWidth();
    void triggerFieldsTravel_data();
    void triggerFieldsTravel();
    void triggerList();
    // --- rainy day flows
    void refusedSetup();
    void triggersOfOtherTypesCarryTheirBytes();
    void reservedBytesOfATriggerGoBack();
    void regimeIsNotCompared();
    void triggersOfOtherClassesDiffer();
    void refusalsOfATrigger_data();
    void refusalsOfATrigger();
    void cutPayloadsAreNone_data();
    void cutPayloadsAreNone();
    void collectedChunksThatMakeNoSense_data();
    void collectedChunksThatMakeNoSense();
};

namespace {

/// Sends a payload through a frame and the processor.
template <class Payload> std::shared_ptr<Payload> travelled(const HydControlMsgPayload& sent)
{
    CircularByteBuffer ring(1 << 17);
    writeAll(ring, HydControlMessage::frame(sent));
    ControlResponseEvent event(ring);
    HydControlProcessor processor;
    processor.dispatch(&event);
    return processor.message() ? std::dynamic_pointer_cast<Payload>(processor.message()->payload()) : nullptr;
}

JobTagMap someTags()
{
    return {{JobTagWavRate, std::make_shared<HydWavSampleRateTag>(96000U)},
            {JobTagDeviceList, std::make_shared<TmiDeviceListTag>(std::vector<uint16_t>{1, 2})}};
}

HydTrigger_5_6 fullTrigger()
{
    HydTrigger_5_6 trigger;
    trigger.setTestType(TestTypeBelow);
    trigger.setTrigNum(1);
    trigger.setEnabled(2);
    trigger.setMinFreq(300000);
    trigger.setMaxFreq(400000);
    trigger.setDuration(5);
    trigger.setEventHold(6);
    trigger.setPreTrigger(7);
    trigger.setThreshold(-8);
    trigger.setThreshType(9);
    trigger.setEffect(10);
    return trigger;
}

using TriggerChange = std::function<void(HydTrigger_5_6&)>;

} // namespace

Q_DECLARE_METATYPE(TriggerChange)

void tst_HydControlPayloads::replyToAnEnquiry()
{
    HydEnquireCmd::Report report;
    report.devType = DevTypeTdRec;
    report.serial = 65535;
    report.hostDevNo = 2;
    report.battStat = BattExternal;
    report.battPercent = 100;
    report.sensitivity = -1705;
    report.temperature = -20;
    report.humidity = 999;
    report.sampleRate = 512000;
    report.timeUtc = -1;
    report.netHostInfo = NvxNetHostInfo(0x0A0B0C0D);
    report.model = "µ model";
    report.firmwareVer = "1.2";
    report.firmwareRel = "";
    const auto read = travelled<HydEnquireCmd>(HydEnquireCmd(report));
    QVERIFY(read);
    QVERIFY(read->hasReport());
    QCOMPARE(read->devType(), DevTypeTdRec);
    QCOMPARE(read->report().serial, uint16_t{65535});
    QCOMPARE(read->report().hostDevNo, uint16_t{2});
    QCOMPARE(read->report().battStat, BattExternal);
    QCOMPARE(read->report().battPercent, uint8_t{100});
    QCOMPARE(read->report().sensitivity, int16_t{-1705});
    QCOMPARE(read->report().temperature, int16_t{-20});
    QCOMPARE(read->report().humidity, uint16_t{999});
    QCOMPARE(read->report().sampleRate, 512000U);
    QCOMPARE(read->report().timeUtc, -1);
    QVERIFY(read->report().netHostInfo == report.netHostInfo);
    QCOMPARE(read->report().model, report.model);
    QCOMPARE(read->report().firmwareVer, report.firmwareVer);
    QVERIFY(read->report().firmwareRel.empty());
    const auto enquiry = travelled<HydEnquireCmd>(HydEnquireCmd());
    QVERIFY(enquiry);
    QVERIFY(!enquiry->hasReport());
    QCOMPARE(enquiry->devType(), DevTypeAny);
}

void tst_HydControlPayloads::times_data()
{
    QTest::addColumn<int>("time");
    for (const int time :
         {-1, 0, 1, 1700000000, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
        QTest::addRow("%d", time) << time;
}

void tst_HydControlPayloads::times()
{
    QFETCH(int, time);
    const auto read = travelled<HydSetTimeCmd>(HydSetTimeCmd(time));
    QVERIFY(read);
    QCOMPARE(read->time(), time);
}

void tst_HydControlPayloads::acceptedSetup()
{
    const auto read = travelled<HydJobSetupCmd>(HydJobSetupCmd(someTags(), JobSetupDefault));
    QVERIFY(read);
    QVERIFY(!read->isError());
    QVERIFY(!read->error());
    QCOMPARE(static_cast<int>(read->type()), 20);
    QCOMPARE(read->jobSetup().size(), size_t{2});
    QCOMPARE(read->jobSetup().at(JobTagWavRate)->number(), int64_t{96000});
}

void tst_HydControlPayloads::setupOfAnEnquiry()
{
    const auto read = travelled<HydJobSetupEnq>(HydJobSetupEnq(someTags(), static_cast<JobSetupType>(21)));
    QVERIFY(read);
    QCOMPARE(static_cast<int>(read->type()), 21);
    QCOMPARE(read->jobSetup().at(JobTagDeviceList)->toString(), std::string("ARRAY_SERIALS=1,2"));
}

void tst_HydControlPayloads::clockState()
{
    const auto read = travelled<HydEnquireTimeSync>(HydEnquireTimeSync(2, 77, -250, 4000000000U));
    QVERIFY(read);
    QCOMPARE(read->syncState(), uint8_t{2});
    QCOMPARE(read->master(), uint16_t{77});
    QCOMPARE(read->offsetNs(), -250);
    QCOMPARE(read->lastSyncTime(), 4000000000U);
    const auto question = travelled<HydEnquireTimeSync>(HydMsgPayload('['));
    QVERIFY(question);
    QCOMPARE(question->lastSyncTime(), 0U);
}

void tst_HydControlPayloads::letterCommands_data()
{
    QTest::addColumn<char>("letter");
    for (const char letter : {'E', 'R', 'U', 'V', 'Y', '['})
        QTest::addRow("%c", letter) << letter;
}

void tst_HydControlPayloads::letterCommands()
{
    QFETCH(char, letter);
    const auto read = travelled<HydControlMsgPayload>(HydMsgPayload(static_cast<uint8_t>(letter)));
    QVERIFY(read);
    QCOMPARE(static_cast<char>(read->msgType()), letter);
    const bool ownClass = letter != 'U' && letter != 'V';
    QCOMPARE(dynamic_cast<HydMsgPayload*>(read.get()) == nullptr, ownClass);
}

void tst_HydControlPayloads::collectedData()
{
    HydDataCollectCmd sent(0xB0);
    auto wave = std::make_shared<DataCollWavChunk>();
    wave->sampleRate = 96000;
    wave->gain = -6;
    wave->format = 0x83;
    wave->channels = 2;
    wave->count = 3;
    wave->samples = noiseBytes(18, 1);
    auto spectrum = std::make_shared<DataCollSpecChunk>();
    spectrum->points = 1024;
    spectrum->refLevel = -160;
    spectrum->bins = noiseBytes(512, 2);
    sent.setChunk(DataCollWav, wave);
    sent.setChunk(DataCollSpec, spectrum);
    sent.setChunk(DataCollWavTime, std::make_shared<DataCollWavTimeChunk>(1700000000U, 5U));
    sent.setChunk(DataCollSpecTime, std::make_shared<DataCollSpecTimeChunk>(1700000001U, 6U));
    const auto read = travelled<HydDataCollectCmd>(sent);
    QVERIFY(read);
    QCOMPARE(read->scanMask(), uint8_t{0xB0});
    for (const auto name : {DataCollWav, DataCollSpec, DataCollWavTime, DataCollSpecTime})
        QCOMPARE(hexText(serialized(*read->getChunk(name))), hexText(serialized(*sent.getChunk(name))));
    const auto waveRead = std::dynamic_pointer_cast<const DataCollWavChunk>(read->getChunk(DataCollWav));
    QVERIFY(waveRead);
    QCOMPARE(waveRead->gain, int16_t{-6});
    QCOMPARE(hexText(waveRead->samples), hexText(wave->samples));
    sent.setChunk(DataCollWav, nullptr);
    QVERIFY(!sent.getChunk(DataCollWav));
    QVERIFY(!travelled<HydDataCollectCmd>(HydDataCollectCmd(1))->getChunk(DataCollSpec));
}

void tst_HydControlPayloads::samplesOfAnyWidth_data()
{
    QTest::addColumn<int>("bytes");
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("reads");
    // The stream side takes the same widths; what no wave file holds is refused where files are written.
    for (const int bytes : {1, 2, 3, 4, 5, 15})
        QTest::addRow("%d bytes", bytes) << bytes << 2 << true;
    QTest::newRow("0 bytes") << 0 << 2 << false;
    QTest::newRow("no samples") << 0 << 0 << true;
}

void tst_HydControlPayloads::samplesOfAnyWidth()
{
    QFETCH(int, bytes);
    QFETCH(int, count);
    QFETCH(bool, reads);
    auto wave = std::make_shared<DataCollWavChunk>();
    // The bits between are carried and mean nothing.
    wave->format = static_cast<uint8_t>(0xF0 | bytes);
    wave->channels = 3;
    wave->count = static_cast<uint16_t>(count);
    wave->samples = noiseBytes(static_cast<size_t>(bytes * count * 3), 3);
    HydDataCollectCmd sent(0x20);
    sent.setChunk(DataCollWav, wave);
    const auto read = travelled<HydDataCollectCmd>(sent);
    QCOMPARE(read != nullptr, reads);
    if (reads)
        QCOMPARE(hexText(serialized(*read->getChunk(DataCollWav))), hexText(serialized(*wave)));
}

void tst_HydControlPayloads::triggerFieldsTravel_data()
{
    QTest::addColumn<TriggerChange>("change");
    const auto row = [](const char* name, const TriggerChange& change) { QTest::newRow(name) << change; };
    row("test type", [](auto& trigger) { trigger.setTestType(TestTypeAbove); });
    row("number", [](auto& trigger) { trigger.setTrigNum(99); });
    row("enabled", [](auto& trigger) { trigger.setEnabled(99); });
    row("lower edge", [](auto& trigger) { trigger.setMinFreq(99); });
    row("upper edge", [](auto& trigger) { trigger.setMaxFreq(99); });
    row("duration", [](auto& trigger) { trigger.setDuration(99); });
    row("hold", [](auto& trigger) { trigger.setEventHold(99); });
    row("pre-trigger", [](auto& trigger) { trigger.setPreTrigger(99); });
    row("threshold", [](auto& trigger) { trigger.setThreshold(99); });
    row("threshold type", [](auto& trigger) { trigger.setThreshType(99); });
    row("effect", [](auto& trigger) { trigger.setEffect(99); });
}

void tst_HydControlPayloads::triggerFieldsTravel()
{
    QFETCH(TriggerChange, change);
    const auto same = fullTrigger();
    auto changed = fullTrigger();
    QVERIFY(changed.compare(&same));
    change(changed);
    QVERIFY(!changed.compare(&same));
    const auto read = travelled<HydTrigger_5_6>(changed);
    QVERIFY(read);
    QVERIFY(read->compare(&changed));
    QVERIFY(!read->compare(&same));
}

void tst_HydControlPayloads::triggerList()
{
    const auto other = HydTrigger::fromBytes(bytesOfHex("0000090003010203"));
    const HydEnquireTrigger sent({std::make_shared<HydTrigger_5_6>(fullTrigger()), nullptr, other});
    const auto read = travelled<HydEnquireTrigger>(sent);
    QVERIFY(read);
    QCOMPARE(read->triggers().size(), size_t{2});
    const auto full = fullTrigger();
    QVERIFY(read->triggers()[0]->compare(&full));
    QVERIFY(read->triggers()[1]->compare(other.get()));
    QVERIFY(travelled<HydEnquireTrigger>(HydMsgPayload('R'))->triggers().empty());
}

void tst_HydControlPayloads::refusedSetup()
{
    const auto read = travelled<HydJobSetupCmd>(HydJobSetupCmd(someTags(), JobSetupDefault, 0xFFFE));
    QVERIFY(read);
    QVERIFY(read->isError());
    QCOMPARE(read->error()->errorCode(), uint16_t{0xFFFE});
    QCOMPARE(read->jobSetup().size(), size_t{2});
    QVERIFY(!HydJobSetupCmd({}, JobSetupDefault, 0).isError());
}

void tst_HydControlPayloads::triggersOfOtherTypesCarryTheirBytes()
{
    const auto bytes = bytesOfHex("00020900050001ff2a00");
    const auto trigger = HydTrigger::fromBytes(bytes);
    QVERIFY(trigger);
    QCOMPARE(static_cast<int>(trigger->testType()), 9);
    QCOMPARE(trigger->errorCode(), uint16_t{2});
    QCOMPARE(trigger->trigNum(), uint8_t{0});
    QCOMPARE(hexText(serialized(*travelled<HydTrigger>(*trigger))), hexText(bytes));
    QVERIFY(!trigger->compare(HydTrigger::fromBytes(bytesOfHex("00020900050001ff2a01")).get()));
    // The device's answer describes no trigger.
    QVERIFY(trigger->compare(HydTrigger::fromBytes(bytesOfHex("00000900050001ff2a00")).get()));
}

void tst_HydControlPayloads::reservedBytesOfATriggerGoBack()
{
    auto bytes = serialized(fullTrigger());
    const auto reserved = bytes.size() - 2;
    bytes[reserved] = 0xAB;
    bytes[reserved + 1] = 0xCD;
    const auto trigger = HydTrigger::fromBytes(bytes);
    QVERIFY(trigger);
    QCOMPARE(hexText(serialized(*trigger)), hexText(bytes));
    // In a list, and after the trigger was copied and changed, too.
    auto changed = dynamic_cast<HydTrigger_5_6&>(*trigger);
    changed.setEffect(77);
    const auto list =
        travelled<HydEnquireTrigger>(HydEnquireTrigger({trigger, std::make_shared<HydTrigger_5_6>(changed)}));
    QVERIFY(list);
    QCOMPARE(hexText(serialized(*list->triggers()[0])), hexText(bytes));
    QVERIFY(hexText(serialized(*list->triggers()[1])).endsWith("004dabcd"));
    // They describe nothing.
    const auto plain = fullTrigger();
    QVERIFY(trigger->compare(&plain));
}

void tst_HydControlPayloads::regimeIsNotCompared()
{
    const auto idle = fullTrigger();
    auto active = fullTrigger();
    active.eventTrg().regime = 2;
    active.eventTrg().type = 1;
    active.setErrorCode(4);
    QCOMPARE(active.trgRegime(), uint8_t{2});
    QVERIFY(active.compare(&idle));
}

void tst_HydControlPayloads::triggersOfOtherClassesDiffer()
{
    HydTrigger plain;
    plain.setTestType(TestTypeAbove);
    const HydTrigger_5_6 known;
    QVERIFY(!plain.compare(&known));
    QVERIFY(!known.compare(&plain));
    QVERIFY(!known.compare(nullptr));
    QVERIFY(!plain.compare(nullptr));
}

void tst_HydControlPayloads::refusalsOfATrigger_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("out of range") << 1 << QByteArray("The trigger number is out of range.");
    QTest::newRow("band") << 2 << QByteArray("The frequency band is out of range.");
    QTest::newRow("threshold") << 3 << QByteArray("The threshold is out of range.");
    QTest::newRow("test type") << 4 << QByteArray("The test type is not supported.");
    QTest::newRow("full") << 5 << QByteArray("The trigger list is full.");
    QTest::newRow("other") << 999 << QByteArray("The device refused the trigger (code 999).");
}

void tst_HydControlPayloads::refusalsOfATrigger()
{
    QFETCH(int, code);
    QFETCH(QByteArray, text);
    auto sent = fullTrigger();
    QVERIFY(sent.errorMes(false).empty());
    QVERIFY(sent.errorMes(true).empty());
    sent.setErrorCode(static_cast<uint16_t>(code));
    const auto read = travelled<HydTrigger>(sent);
    QVERIFY(read);
    QCOMPARE(QByteArray::fromStdString(read->errorMes(false)), text);
    QCOMPARE(QByteArray::fromStdString(read->errorMes(true)), "Trigger 1: " + text);
}

void tst_HydControlPayloads::cutPayloadsAreNone_data()
{
    QTest::addColumn<char>("letter");
    QTest::addColumn<Bytes>("payload");
    HydEnquireCmd::Report report;
    report.model = "m";
    QTest::newRow("enquire") << 'E' << serialized(HydEnquireCmd(report));
    QTest::newRow("time") << 'A' << serialized(HydSetTimeCmd(1));
    QTest::newRow("setup") << 'D' << serialized(HydJobSetupCmd(someTags(), JobSetupDefault));
    QTest::newRow("setup enquiry") << 'F' << serialized(HydJobSetupEnq(someTags(), JobSetupDefault));
    QTest::newRow("trigger") << 'S' << serialized(fullTrigger());
    QTest::newRow("trigger list") << 'R'
                                  << serialized(HydEnquireTrigger(
                                         {std::make_shared<HydTrigger_5_6>(fullTrigger())}));
    QTest::newRow("clock") << '[' << serialized(HydEnquireTimeSync(1, 2, 3, 4));
}

void tst_HydControlPayloads::cutPayloadsAreNone()
{
    QFETCH(char, letter);
    QFETCH(Bytes, payload);
    // Three questions have the letter of their answer and no body.
    const size_t shortest = letter == 'E' || letter == 'R' || letter == '[' ? 1 : 0;
    for (size_t size = shortest; size < payload.size(); ++size) {
        ControlParser parser;
        parser.feed(controlFrame(letter, std::span(payload).first(size)));
        QCOMPARE(parser.found, QByteArrayList{"null"});
    }
    auto longer = payload;
    longer.push_back(0);
    ControlParser parser;
    parser.feed(controlFrame(letter, longer));
    parser.feed(controlFrame(letter, payload));
    QCOMPARE(parser.found, (QByteArrayList{"null", hexText(controlFrame(letter, payload))}));
}

void tst_HydControlPayloads::collectedChunksThatMakeNoSense_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::newRow("samples missing") << QByteArray("20 0020 000a 00017700 0000 82 01 0002");
    QTest::newRow("samples left over") << QByteArray("20 0020 000d 00017700 0000 82 01 0001 000000");
    QTest::newRow("no channels") << QByteArray("20 0020 000a 00017700 0000 82 00 0001");
    QTest::newRow("no bytes for a sample") << QByteArray("20 0020 000a 00017700 0000 80 01 0001");
    QTest::newRow("time too short") << QByteArray("20 2000 0004 00000001");
    QTest::newRow("time too long") << QByteArray("20 2000 0009 000000010000000200");
    QTest::newRow("length over the end") << QByteArray("20 2000 0009 0000000100000002");
    QTest::newRow("name alone") << QByteArray("202000");
}

void tst_HydControlPayloads::collectedChunksThatMakeNoSense()
{
    QFETCH(QByteArray, payload);
    ControlParser parser;
    parser.feed(controlFrame('C', bytesOfHex(payload.simplified().replace(" ", ""))));
    QCOMPARE(parser.found, QByteArrayList{"null"});
}

QTEST_APPLESS_MAIN(tst_HydControlPayloads)
#include "tst_HydControlPayloads.moc"
