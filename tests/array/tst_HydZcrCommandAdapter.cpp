#include "NvxQtCommon/contract/device/SkiffDevice.h"
#include "NvxQtCommon/contract/device/ZcrDevice.h"
#include "tests/array/ArrayReplies.h"
#include "tests/support/Buried.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

using Frame = CZCRWebSocket::ZCR_STREAM_STR;

namespace {

const QByteArray kStatus =
    R"({"serialNumber":600,"devs":[{"devSerial":11},{"devSerial":12},{"devSerial":13,"x":1}]})";
const QByteArray kNoManager = "nullptr == m_manager - HydZcrCommandAdapter::sendSetTime";

SkiffDevice& channel(ArrayRig& rig, size_t i)
{
    return dynamic_cast<SkiffDevice&>(*rig.adapter.hydDeviceList().at(i));
}

Frame frameOf(uint16_t serial, int16_t sensitivity = -165)
{
    Frame frame;
    frame.frameSerial = serial;
    frame.frameChannel = 7;
    frame.frameTemperature = 215;
    frame.frameBandWidth = 1024;
    frame.frameFftRef = -120;
    frame.frameSampleRate = 96000;
    frame.frameSensitivity = sensitivity;
    frame.frameFftAccum = 20;
    return frame;
}

} // namespace

/// What the command adapter of an array controller makes of replies and frames.
class tst_HydZcrCommandAdapter : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void beginsEmpty();
    void keepsTheFirstManager();
    void freshAdapterTakesTheFirstChannel();
    void takesSettings();
    void timeOfAController();
    void channelsGetTheSettings();
    void recordsOfTheChannels();
    void frameCompletesItsChannel();
    void listIsFilledWithTheLastChannel();
    // --- rainy day flows
    void adapterThatHeldChannelsTakesNone();
    void channelsOfAnotherController();
    void settingsOfAnotherController();
    void settingsWithoutASerial_data();
    void settingsWithoutASerial();
    void replyOfAllKinds();
    void serialsThatAreNone_data();
    void serialsThatAreNone();
    void disabledDropsReplies();
    void errorsAreLogged();
    void noReply();
    void longRepliesOfOthersAreLeftAlone();
    void filledWithEachFrameOnceComplete();
    void filledAtOnceWithoutChannels();
    void frameOfAChannelThatIsNotListed();
    void filledChannelStays_data();
    void filledChannelStays();
    void recordsAreAppended();
    void requestsWithoutAManager();
    void requestsWhileDisabled();
    void managerThatIsGone();
    void deletedByItsOwnSignal_data();
    void deletedByItsOwnSignal();
};

void tst_HydZcrCommandAdapter::beginsEmpty()
{
    QObject parent;
    auto* adapter = new HydZcrCommandAdapter(ConnTcp, &parent);
    QCOMPARE(adapter->parent(), &parent);
    QVERIFY(adapter->manager() == nullptr);
    QVERIFY(adapter->devIdList().empty());
    QVERIFY(adapter->hydDeviceList().empty());
    QVERIFY(adapter->isUnConnected());
    QCOMPARE(adapter->netHostInfo(), NvxNetHostInfo());
    QCOMPARE(HydZcrCommandAdapter::EnquireFile, 0);
    QCOMPARE(HydZcrCommandAdapter::EnquireCgi, 1);
    auto* socket = adapter->findChild<CZCRWebSocket*>();
    QCOMPARE(socket->version(), QWebSocketProtocol::Version13);
    adapter->setNetHostInfo(NvxNetHostInfo(0x7F510301));
    QCOMPARE(adapter->netHostInfo(), NvxNetHostInfo(0x7F510301));
    QCOMPARE(socket->hAddress(), QHostAddress(QStringLiteral("127.81.3.1")));
    // No address isn't the address of this machine.
    adapter->setNetHostInfo(NvxNetHostInfo());
    QVERIFY(socket->hAddress().isNull());
}

void tst_HydZcrCommandAdapter::keepsTheFirstManager()
{
    ArrayRig rig;
    QNetworkAccessManager first;
    QNetworkAccessManager second;
    rig.adapter.setNetworkAccessManager(nullptr);
    rig.adapter.setNetworkAccessManager(&first);
    rig.adapter.setNetworkAccessManager(&second);
    rig.adapter.setNetworkAccessManager(&first);
    QCOMPARE(rig.adapter.manager(), &first);
    CannedReply reply(R"("serialNumber":600,"currentTime":5)");
    Q_EMIT second.finished(&reply);
    QVERIFY(rig.times.isEmpty());
    Q_EMIT first.finished(&reply);
    QCOMPARE(rig.times.count(), 1);
}

void tst_HydZcrCommandAdapter::freshAdapterTakesTheFirstChannel()
{
    ArrayRig rig;
    rig.reply(R"({"devSerial":13,{"devSerial":14,{"devSerial":15,"serialNumber":600)");
    QCOMPARE(rig.adapter.devIdList().size(), size_t(1));
    const HydDeviceId& id = rig.adapter.devIdList().front();
    QCOMPARE(id.devType(), DevTypeSkiff);
    QCOMPARE(id.serialNo(), 13);
    QCOMPARE(id.hostDevNo(), 600);
    QCOMPARE(rig.adapter.hydDeviceList().size(), size_t(1));
    QCOMPARE(channel(rig, 0).serial(), 13);
    QCOMPARE(rig.configRead.count(), 1);
    QCOMPARE(rig.configRead.first().first().toBool(), false);
    QVERIFY(rig.lists.isEmpty());
}

void tst_HydZcrCommandAdapter::takesSettings()
{
    ArrayRig rig;
    rig.listChannels({11});
    rig.reply(
        R"({"serialNumber":600,"configuration":{"x":0,"wavSampRate":96000,"wavGain":6,"fftRef":-100,"y":0}})");
    QCOMPARE(rig.configRead.count(), 1);
    QCOMPARE(rig.configRead.first().first().toBool(), false);
    const HydJobSettings& settings = channel(rig, 0).jobSettings();
    QCOMPARE(settings.wavRate(), SampRate{96000});
    QCOMPARE(settings.wavGain(), 6U);
    QCOMPARE(settings.fftRef(), -100);
    // What the reply doesn't have is there all the same.
    QCOMPARE(settings.wavBitDepth(), HydWavBitDepth{24});
    QCOMPARE(settings.map().size(), size_t(15));
    QVERIFY(rig.settings.isEmpty());
}

void tst_HydZcrCommandAdapter::timeOfAController()
{
    ArrayRig rig;
    rig.reply(R"({"serialNumber":600,"currentTime":1700000000})");
    QCOMPARE(rig.times.takeFirst(), (QList<QVariant>{600, 1700000000LL}));
    rig.reply(R"({"serialNumber":9,"currentTime":1})");
    QCOMPARE(rig.times.takeFirst(), (QList<QVariant>{9, 1LL}));
    QVERIFY(rig.configRead.isEmpty());
}

void tst_HydZcrCommandAdapter::channelsGetTheSettings()
{
    ArrayRig rig;
    rig.listChannels({11, 12});
    const auto array = std::make_shared<ZcrDevice>(DevTypeZcr);
    array->setDevList(&rig.adapter.hydDeviceList(), array);
    rig.reply(R"("serialNumber":600,"wavSampRate":48000)");
    for (size_t i = 0; i < 2; ++i)
        QCOMPARE(channel(rig, i).jobSettings().wavRate(), SampRate{48000});
    QCOMPARE(array->jobSettings().wavRate(), SampRate{48000});
    rig.adapter.updateDevSetConfigRead(HydZcrCommandAdapter::EnquireFile);
    QCOMPARE(rig.configRead.count(), 2);
    QCOMPARE(rig.configRead.last().first().toBool(), true);
    // A file without channels is reported, too.
    rig.adapter.clearLists();
    rig.adapter.updateDevSetConfigRead(HydZcrCommandAdapter::EnquireFile);
    QCOMPARE(rig.configRead.count(), 3);
    QCOMPARE(rig.configRead.last().first().toBool(), true);
}

void tst_HydZcrCommandAdapter::recordsOfTheChannels()
{
    ArrayRig rig;
    rig.listChannels({11, 12});
    QCOMPARE(rig.adapter.hydDeviceList().size(), size_t(2));
    for (size_t i = 0; i < 2; ++i) {
        QCOMPARE(channel(rig, i).serial(), 11 + i);
        QCOMPARE(channel(rig, i).devType(), DevTypeSkiff);
        QCOMPARE(channel(rig, i).netHostInfo(), NvxNetHostInfo(0x7F510301));
        QCOMPARE(channel(rig, i).ifaceAddr(), NvxIpAddr(0x7F510301));
        QVERIFY(channel(rig, i).jobSettings().map().empty());
    }
    rig.adapter.clearLists();
    QVERIFY(rig.adapter.devIdList().empty());
    QVERIFY(rig.adapter.hydDeviceList().empty());
}

void tst_HydZcrCommandAdapter::frameCompletesItsChannel()
{
    ArrayRig rig;
    rig.listChannels({11, 12});
    rig.adapter.FillDevIdList(frameOf(12));
    const SkiffDevice& device = channel(rig, 1);
    QCOMPARE(device.zcrChannel(), 7);
    QCOMPARE(device.temperature(), 21.5F);
    QCOMPARE(device.bandWidth(), 1024U);
    QCOMPARE(device.sampleRate(), 96000U);
    QCOMPARE(device.sensitivity(), -165.0F);
    QCOMPARE(device.spectrumVRef(), -120.0F);
    const HydJobSettings& settings = device.jobSettings();
    QCOMPARE(settings.map().size(), size_t(4));
    QCOMPARE(settings.fftRate(), SampRate{96000});
    QCOMPARE(settings.wavRate(), SampRate{96000});
    QCOMPARE(settings.fftAccum(), 20U);
    QCOMPARE(settings.fftRef(), -120);
    QCOMPARE(channel(rig, 0).sensitivity(), 0.0F);
    QVERIFY(rig.listFilled.isEmpty());
}

void tst_HydZcrCommandAdapter::listIsFilledWithTheLastChannel()
{
    ArrayRig rig;
    rig.listChannels({11, 12, 13});
    rig.adapter.FillDevIdList(frameOf(13));
    rig.adapter.FillDevIdList(frameOf(11));
    QVERIFY(rig.listFilled.isEmpty());
    rig.adapter.FillDevIdList(frameOf(12));
    QCOMPARE(rig.listFilled.count(), 1);
}

void tst_HydZcrCommandAdapter::adapterThatHeldChannelsTakesNone()
{
    ArrayRig rig;
    rig.listChannels({11});
    rig.adapter.clearLists();
    LogSpy log;
    rig.reply(kStatus);
    // This is intended; the status is asked for again, here without a manager.
    QVERIFY(rig.adapter.devIdList().empty());
    QVERIFY(rig.adapter.hydDeviceList().empty());
    QVERIFY(rig.configRead.isEmpty());
    QCOMPARE(log.lines(), QStringList{QString::fromLatin1(kNoManager)});
}

void tst_HydZcrCommandAdapter::channelsOfAnotherController()
{
    ArrayRig rig;
    const QByteArray reply = R"({"serialNumber":601,"a":[{"devSerial":11,"b":[{"devSerial":12,"c":1)";
    rig.reply(reply);
    QCOMPARE(rig.listSerials, QList<int>{601});
    QCOMPARE(rig.lists.first().size(), size_t(1));
    // A colon stands ahead of the one that counts.
    QCOMPARE(rig.lists.first().front().serialNo(), 0);
    QCOMPARE(rig.lists.first().front().hostDevNo(), 601);
    QVERIFY(rig.adapter.devIdList().empty());
    QVERIFY(rig.adapter.hydDeviceList().empty());
    QVERIFY(rig.configRead.isEmpty());
    // It still never held one.
    rig.reply(R"("serialNumber":601,{"devSerial":13)");
    QCOMPARE(rig.lists.last().size(), size_t(1));
    QCOMPARE(rig.lists.last().front().serialNo(), 13);
    // The list is the receiver's to change, and goes afterwards.
    rig.listChannels({11});
    rig.reply(reply);
    QCOMPARE(rig.listSerials, (QList<int>{601, 601, 601}));
    QVERIFY(rig.lists.last().empty());
    QCOMPARE(rig.adapter.devIdList().size(), size_t(1));
}

void tst_HydZcrCommandAdapter::settingsOfAnotherController()
{
    ArrayRig rig;
    rig.listChannels({11});
    rig.reply(R"("serialNumber":66136,"wavSampRate":96000)");
    // 66136 is 600 in 16 bits, and another number all the same.
    QCOMPARE(rig.settingsSerials, QList<int>{66136});
    QCOMPARE(rig.settings.first().wavRate(), SampRate{96000});
    QCOMPARE(rig.settings.first().map().size(), size_t(15));
    QVERIFY(rig.configRead.isEmpty());
    QVERIFY(channel(rig, 0).jobSettings().map().empty());
}

void tst_HydZcrCommandAdapter::settingsWithoutASerial_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("reports");
    QTest::newRow("no serial") << QByteArray(R"("wavSampRate":96000)") << 0;
    QTest::newRow("no serial, but channels") << QByteArray(R"("wavSampRate":96000,"devSerial":3)") << 1;
    QTest::newRow("rate 0") << QByteArray(R"("serialNumber":7,"wavSampRate":0)") << 0;
    QTest::newRow("rate 1") << QByteArray(R"("serialNumber":7,"wavSampRate":1)") << 1;
    QTest::newRow("rate -1") << QByteArray(R"("serialNumber":7,"wavSampRate":-1)") << 0;
    QTest::newRow("no rate") << QByteArray(R"("serialNumber":7,"wavGain":1)") << 0;
    QTest::newRow("last rate counts")
        << QByteArray(R"("serialNumber":7,"wavSampRate":5,"wavSampRate":0)") << 0;
}

void tst_HydZcrCommandAdapter::settingsWithoutASerial()
{
    QFETCH(QByteArray, reply);
    QFETCH(int, reports);
    ArrayRig rig;
    rig.reply(reply);
    QCOMPARE(rig.settings.size(), reports);
    QVERIFY(rig.configRead.isEmpty());
}

void tst_HydZcrCommandAdapter::replyOfAllKinds()
{
    ArrayRig rig;
    rig.reply(R"("serialNumber":600,{"devSerial":13,"wavSampRate":48000,"currentTime":99}})");
    // Channels, settings and time, in this order.
    QCOMPARE(rig.configRead.count(), 2);
    QCOMPARE(channel(rig, 0).serial(), 13);
    QCOMPARE(channel(rig, 0).jobSettings().wavRate(), SampRate{48000});
    QCOMPARE(rig.times.count(), 1);
    QCOMPARE(rig.times.first().at(1).toLongLong(), 99);
}

void tst_HydZcrCommandAdapter::serialsThatAreNone_data()
{
    QTest::addColumn<QByteArray>("serial");
    for (const char* serial : {"0", "-1", "x", "", "600x", "2147483648", "99999999999999999999"})
        QTest::newRow(serial) << QByteArray(serial);
}

void tst_HydZcrCommandAdapter::serialsThatAreNone()
{
    QFETCH(QByteArray, serial);
    ArrayRig rig;
    rig.reply("\"serialNumber\":" + serial + R"(,"devSerial":13,"currentTime":99)");
    QVERIFY(rig.times.isEmpty());
    QVERIFY(rig.lists.isEmpty());
    QVERIFY(rig.adapter.devIdList().empty());
    QVERIFY(rig.configRead.isEmpty());
}

void tst_HydZcrCommandAdapter::disabledDropsReplies()
{
    ArrayRig rig;
    LogSpy log;
    rig.adapter.enableNetWork(false);
    CannedReply good(R"("serialNumber":600,"currentTime":5)");
    rig.adapter.handleNetWorkReplay(&good);
    CannedReply bad({}, QNetworkReply::ContentNotFoundError, QStringLiteral("gone"));
    rig.adapter.handleNetWorkReplay(&bad);
    QVERIFY(rig.times.isEmpty());
    QVERIFY(log.lines().isEmpty());
    QVERIFY(!good.rest().isEmpty());
    rig.adapter.enableNetWork(true);
    rig.adapter.handleNetWorkReplay(&good);
    QCOMPARE(rig.times.count(), 1);
}

void tst_HydZcrCommandAdapter::errorsAreLogged()
{
    ArrayRig rig;
    LogSpy log;
    CannedReply reply(R"("serialNumber":600,"currentTime":5)", QNetworkReply::ContentNotFoundError,
                      QStringLiteral("no such \"script\""));
    rig.adapter.handleNetWorkReplay(&reply);
    QCOMPARE(log.lines(), QStringList{QStringLiteral("no such \"script\"")});
    QVERIFY(rig.times.isEmpty());
    QVERIFY(!reply.rest().isEmpty());
}

void tst_HydZcrCommandAdapter::noReply()
{
    ArrayRig rig;
    LogSpy log;
    rig.adapter.handleNetWorkReplay(nullptr);
    rig.reply({});
    CannedReply closed("\"serialNumber\":600,\"currentTime\":5");
    closed.close();
    rig.adapter.handleNetWorkReplay(&closed);
    QVERIFY(rig.times.isEmpty());
    QVERIFY(log.lines().isEmpty());
}

void tst_HydZcrCommandAdapter::longRepliesOfOthersAreLeftAlone()
{
    ArrayRig rig;
    QByteArray text(R"("serialNumber":600,"currentTime":5,)");
    text.append(QByteArray(HydZcrCommandAdapter::kMaxReplySize - text.size(), 'x'));
    CannedReply longest(text);
    rig.adapter.handleNetWorkReplay(&longest);
    QCOMPARE(rig.times.count(), 1);
    QVERIFY(longest.rest().isEmpty());
    CannedReply longer(text + 'x');
    rig.adapter.handleNetWorkReplay(&longer);
    QCOMPARE(rig.times.count(), 1);
    QCOMPARE(longer.rest().size(), qsizetype(HydZcrCommandAdapter::kMaxReplySize + 1));
}

void tst_HydZcrCommandAdapter::filledWithEachFrameOnceComplete()
{
    ArrayRig rig;
    rig.listChannels({11});
    for (int i = 1; i <= 3; ++i) {
        rig.adapter.FillDevIdList(frameOf(11));
        QCOMPARE(rig.listFilled.count(), i);
    }
    // A frame of nobody, too: this is intended.
    rig.adapter.FillDevIdList(frameOf(99));
    QCOMPARE(rig.listFilled.count(), 4);
}

void tst_HydZcrCommandAdapter::filledAtOnceWithoutChannels()
{
    ArrayRig rig;
    rig.adapter.FillDevIdList(frameOf(11));
    QCOMPARE(rig.listFilled.count(), 1);
}

void tst_HydZcrCommandAdapter::frameOfAChannelThatIsNotListed()
{
    ArrayRig rig;
    rig.listChannels({11});
    rig.adapter.FillDevIdList(frameOf(99));
    QCOMPARE(channel(rig, 0).sensitivity(), 0.0F);
    QVERIFY(rig.listFilled.isEmpty());
    // The identity decides, of this controller; a record alone doesn't.
    rig.adapter.setSerial(601);
    rig.adapter.FillDevIdList(frameOf(11));
    QCOMPARE(channel(rig, 0).sensitivity(), 0.0F);
    rig.adapter.setSerial(600);
    rig.adapter.FillDevIdList(frameOf(11));
    QCOMPARE(channel(rig, 0).sensitivity(), -165.0F);
}

void tst_HydZcrCommandAdapter::filledChannelStays_data()
{
    QTest::addColumn<float>("sensitivity");
    QTest::addColumn<bool>("stays");
    QTest::newRow("a frame's") << -170.0F << true;
    QTest::newRow("just below 0") << -0.5F << true;
    QTest::newRow("just above 0") << 0.5F << false;
    QTest::newRow("0") << 0.0F << false;
    QTest::newRow("1") << 1.0F << true;
}

void tst_HydZcrCommandAdapter::filledChannelStays()
{
    QFETCH(float, sensitivity);
    QFETCH(bool, stays);
    ArrayRig rig;
    rig.listChannels({11});
    channel(rig, 0).setSensitivity(sensitivity);
    rig.adapter.FillDevIdList(frameOf(11));
    QCOMPARE(channel(rig, 0).sensitivity(), stays ? sensitivity : -165.0F);
    QCOMPARE(channel(rig, 0).bandWidth(), stays ? 0U : 1024U);
    QCOMPARE(rig.listFilled.count(), 1);
}

void tst_HydZcrCommandAdapter::recordsAreAppended()
{
    ArrayRig rig;
    rig.listChannels({11});
    rig.adapter.fillSkiffList();
    // This is intended.
    QCOMPARE(rig.adapter.hydDeviceList().size(), size_t(2));
}

void tst_HydZcrCommandAdapter::requestsWithoutAManager()
{
    ArrayRig rig;
    rig.listChannels({11});
    LogSpy log;
    rig.adapter.getCgiZcrConfig();
    rig.adapter.getCgiZcrArray();
    rig.adapter.sendSetTime(5);
    rig.adapter.cgiWriteJobSetup({});
    QCOMPARE(log.lines(), QStringList(4, QString::fromLatin1(kNoManager)));
    QCOMPARE(rig.adapter.hydDeviceList().size(), size_t(1));
}

void tst_HydZcrCommandAdapter::requestsWhileDisabled()
{
    ArrayRig rig;
    LogSpy log;
    rig.adapter.enableNetWork(false);
    rig.adapter.getCgiZcrConfig();
    rig.adapter.getCgiZcrArray();
    rig.adapter.sendSetTime(5);
    rig.adapter.cgiWriteJobSetup({});
    QVERIFY(log.lines().isEmpty());
}

void tst_HydZcrCommandAdapter::managerThatIsGone()
{
    ArrayRig rig;
    auto first = std::make_unique<QNetworkAccessManager>();
    rig.adapter.setNetworkAccessManager(first.get());
    first.reset();
    QVERIFY(rig.adapter.manager() == nullptr);
    LogSpy log;
    rig.adapter.getCgiZcrConfig();
    QCOMPARE(log.lines(), QStringList{QString::fromLatin1(kNoManager)});
    QNetworkAccessManager second;
    rig.adapter.setNetworkAccessManager(&second);
    QCOMPARE(rig.adapter.manager(), &second);
}

void tst_HydZcrCommandAdapter::deletedByItsOwnSignal_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("config read") << QByteArray(
        R"("serialNumber":600,"devSerial":1,"wavSampRate":5,"currentTime":9)");
    QTest::newRow("settings") << QByteArray(R"("serialNumber":7,"wavSampRate":5,"currentTime":9)");
    QTest::newRow("channels") << QByteArray(
        R"("serialNumber":7,"devSerial":1,"wavSampRate":5,"currentTime":9)");
    QTest::newRow("time") << QByteArray(R"("serialNumber":7,"currentTime":9)");
}

void tst_HydZcrCommandAdapter::deletedByItsOwnSignal()
{
    QFETCH(QByteArray, reply);
    using Grave = Buried<HydZcrCommandAdapter>;
    QObject context;
    auto* adapter = new Grave(ConnTcp);
    adapter->setSerial(600);
    const auto end = [adapter] { delete adapter; };
    connect(adapter, &HydZcrCommandAdapter::signalZcrConfigRead, &context, end);
    connect(adapter, &HydZcrCommandAdapter::signalZCRSetConfigRead, &context, end);
    connect(adapter, &HydZcrCommandAdapter::signalZCRArrayRead, &context, end);
    connect(adapter, &HydZcrCommandAdapter::signalZcrTime, &context, end);
    CannedReply canned(reply);
    adapter->handleNetWorkReplay(&canned);
    QVERIFY(Grave::isGone());
    QVERIFY(Grave::isUntouched());
}

QTEST_GUILESS_MAIN(tst_HydZcrCommandAdapter)
#include "tst_HydZcrCommandAdapter.moc"
