#include "NvxQtCommon/contract/device/SkiffDevice.h"
#include "NvxQtCommon/contract/device/ZcrDevice.h"
#include "tests/array/ArrayReplies.h"
#include "tests/support/Buried.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"

namespace {

const QByteArray kStatus =
    R"({"serialNumber":600,"devs":[{"devSerial":11},{"devSerial":12},{"devSerial":13,"x":1}]})";
const QByteArray kNoManager = "nullptr == m_manager - HydZcrCommandAdapter::sendSetTime";

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
    void repliesOfOthersAreLeftAlone_data();
    void repliesOfOthersAreLeftAlone();
    void replyIsNotReleased();
    void heldRecordsWithoutIdentities();
    void recordsThatAreNoChannels();
    void firstChannelKnowsTheArray();
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
    // 66136 is 600 in 16 bits, and another number all the same.
    rig.reply(R"("serialNumber":66136,{"devSerial":13)");
    QCOMPARE(rig.listSerials.last(), 66136);
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
    QStringList order;
    QObject context;
    connect(&rig.adapter, &HydZcrCommandAdapter::signalZcrConfigRead, &context,
            [&] { order << QString::number(channel(rig, 0).jobSettings().wavRate()); });
    connect(&rig.adapter, &HydZcrCommandAdapter::signalZcrTime, &context, [&] { order << "time"; });
    rig.reply(R"("serialNumber":600,{"devSerial":13,"wavSampRate":48000,"currentTime":99}})");
    // The channels, their settings, and the time.
    QCOMPARE(order, (QStringList{"0", "48000", "time"}));
    QStringList others;
    connect(&rig.adapter, &HydZcrCommandAdapter::signalZCRArrayRead, &context, [&] { others << "channels"; });
    connect(&rig.adapter, &HydZcrCommandAdapter::signalZCRSetConfigRead, &context,
            [&] { others << "settings"; });
    connect(&rig.adapter, &HydZcrCommandAdapter::signalZcrTime, &context, [&] { others << "time"; });
    rig.reply(R"("currentTime":99,"wavSampRate":48000,{"devSerial":13,"serialNumber":601)");
    QCOMPARE(others, (QStringList{"channels", "settings", "time"}));
    rig.times.removeLast();
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

void tst_HydZcrCommandAdapter::repliesOfOthersAreLeftAlone_data()
{
    QTest::addColumn<qsizetype>("size");
    QTest::addColumn<int>("times");
    QTest::newRow("short") << qsizetype(100) << 1;
    QTest::newRow("longest") << qsizetype(HydZcrCommandAdapter::kMaxReplySize) << 1;
    QTest::newRow("longer") << qsizetype(HydZcrCommandAdapter::kMaxReplySize + 1) << 0;
}

void tst_HydZcrCommandAdapter::repliesOfOthersAreLeftAlone()
{
    QFETCH(qsizetype, size);
    QFETCH(int, times);
    ArrayRig rig;
    QByteArray text(R"("serialNumber":600,"currentTime":5,)");
    text.append(QByteArray(size - text.size(), 'x'));
    CannedReply reply(text);
    rig.adapter.handleNetWorkReplay(&reply);
    QCOMPARE(rig.times.count(), times);
    QVERIFY(reply.readAll() == text);
}

void tst_HydZcrCommandAdapter::replyIsNotReleased()
{
    ArrayRig rig;
    const auto text = QByteArray(R"("serialNumber":600,"currentTime":5)");
    const QPointer<CannedReply> good = new CannedReply(text);
    const QPointer<CannedReply> bad = new CannedReply(text, QNetworkReply::ContentNotFoundError, "gone");
    rig.adapter.handleNetWorkReplay(good);
    rig.adapter.handleNetWorkReplay(bad);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    // This is intended: it is the manager's owner who does.
    QVERIFY(!good.isNull());
    QVERIFY(!bad.isNull());
    delete good;
    delete bad;
}

void tst_HydZcrCommandAdapter::heldRecordsWithoutIdentities()
{
    // An adapter that held channels takes no identity out of a reply, and those that it has go. The records
    // stay, so nothing is asked for again.
    ArrayRig rig;
    rig.listChannels({11});
    rig.reply(kStatus);
    QVERIFY(rig.adapter.devIdList().empty());
    QCOMPARE(rig.adapter.hydDeviceList().size(), size_t(1));
    QCOMPARE(rig.configRead.count(), 1);
    QCOMPARE(rig.configRead.first().first().toBool(), false);
}

void tst_HydZcrCommandAdapter::recordsThatAreNoChannels()
{
    ArrayRig rig;
    rig.listChannels({11});
    auto plain = std::make_shared<HydDevice>(uint16_t{11}, DevTypeSkiff, NvxNetHostInfo(), JobTagMap());
    rig.adapter.hydDeviceList().front() = plain;
    rig.reply(R"("serialNumber":600,"wavSampRate":96000)");
    QCOMPARE(plain->jobSettings().wavRate(), SampRate{96000});
    QCOMPARE(rig.configRead.count(), 1);
    rig.adapter.FillDevIdList(frameOf(11));
    QCOMPARE(plain->sensitivity(), 0.0F);
    QVERIFY(rig.listFilled.isEmpty());
}

void tst_HydZcrCommandAdapter::firstChannelKnowsTheArray()
{
    ArrayRig rig;
    rig.listChannels({11, 12});
    const auto first = std::make_shared<ZcrDevice>(DevTypeZcr);
    const auto second = std::make_shared<ZcrDevice>(DevTypeZcr);
    std::vector<std::shared_ptr<HydDevice>> known{rig.adapter.hydDeviceList().at(1)};
    second->setDevList(&known, second);
    rig.reply(R"("serialNumber":600,"wavSampRate":96000)");
    // That of any other channel isn't asked.
    QVERIFY(second->jobSettings().map().empty());
    known = {rig.adapter.hydDeviceList().at(0)};
    first->setDevList(&known, first);
    rig.reply(R"("serialNumber":600,"wavSampRate":48000)");
    QCOMPARE(first->jobSettings().wavRate(), SampRate{48000});
    QVERIFY(second->jobSettings().map().empty());
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
    QTest::newRow("list filled") << QByteArray("frame");
    QTest::newRow("connection open") << QByteArray("open");
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
    connect(adapter, &HydZcrCommandAdapter::signalZcrDevListFilled, &context, end);
    connect(adapter, &HydZcrCommandAdapter::connectionOpen, &context, end);
    if (reply == "frame") {
        adapter->FillDevIdList(frameOf(11));
    } else if (reply == "open") {
        adapter->findChild<CZCRWebSocket*>()->webSocketConnected();
    } else {
        CannedReply canned(reply);
        adapter->handleNetWorkReplay(&canned);
    }
    QVERIFY(Grave::isGone());
    QVERIFY(Grave::isUntouched());
}

QTEST_GUILESS_MAIN(tst_HydZcrCommandAdapter)
#include "tst_HydZcrCommandAdapter.moc"
