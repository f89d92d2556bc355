#include "NvxQtCommon/transfer/QFtp.h"
#include "tests/array/ArrayController.h"
#include "tests/array/ArrayFrames.h"
#include "tests/array/CannedManager.h"
#include "tests/support/Buried.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"
#include "tests/transfer/ScriptedFtpServer.h"

#include <QCoreApplication>
#include <QSignalSpy>

namespace {

constexpr uint32_t kMuteIp = 0x7F510703;
constexpr uint32_t kIp = 0x7F510704;
const QByteArray kFile = "$ARRAY_SERIALS=11,12\n$WAVE_SAMPLE_RATE=96000\n";
const QStringList kOpened{QStringLiteral("open 600 0")};
const QStringList kNoArray{QStringLiteral("no array")};

std::vector<uint16_t> serialsOf(const HydDeviceId& id)
{
    std::vector<uint16_t> serials;
    for (const HydDeviceId& channel : id.devIdList())
        serials.push_back(channel.serialNo());
    return serials;
}

/// What was told at the end, behind the attempts that took too long.
QStringList lastOf(const QStringList& told, qsizetype count)
{
    return told.mid(std::max<qsizetype>(0, told.size() - count));
}

} // namespace

/// The full start-up read of an array controller: its file by FTP, its channels by frames.
class tst_ZcrDeviceControllerStartUp : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    // --- happy flows
    void fromTheFileToTheReport();
    void adapterIsSetUp();
    void managers_data();
    void managers();
    void listIsRebuiltFromNothing();
    // --- rainy day flows
    void fileWithoutChannels();
    void framesOfChannelsThatTheFileLacks();
    void logKeys_data();
    void logKeys();
    void serverThatFails_data();
    void serverThatFails();
    void disabledTrafficDoesNotEndIt();
    void withoutARecord();
    void fileIsNeverWritten();
    void deletedByItsOwnSignal_data();
    void deletedByItsOwnSignal();

private:
    /// Checks the status, and sends a frame of each of these channels, until that ends in a report: the
    /// machine may be too slow for the time limit. False where that doesn't help.
    bool collect(ZcrDeviceController* controller, const std::vector<uint16_t>& serials);

    // An array controller whose web socket is mute, and one whose isn't.
    std::unique_ptr<ScriptedFtpServer> m_muteServer;
    std::unique_ptr<ScriptedFtpServer> m_server;
    ArrayFrames m_frames;
};

bool tst_ZcrDeviceControllerStartUp::collect(ZcrDeviceController* controller,
                                             const std::vector<uint16_t>& serials)
{
    const QPointer<ZcrDeviceController> watched(controller);
    QSignalSpy done(controller, &NvxDeviceController::enquireResponse);
    QSignalSpy late(controller, &ZcrDeviceController::signalZCRErrorStream);
    const auto opened = [this] { return m_frames.lines(QStringLiteral("open")).size(); };
    const auto isOver = [&] { return !watched || !done.isEmpty(); };
    for (int attempt = 0; attempt < 10 && !isOver(); ++attempt) {
        late.clear();
        const qsizetype before = opened();
        controller->checkStatus(nullptr);
        if (!QTest::qWaitFor([&] { return opened() > before || !late.isEmpty(); }, kPatienceMs))
            return false;
        for (const uint16_t serial : serials)
            m_frames.command("frame channel=7 samplerate=48000 serial=" + QByteArray::number(serial) +
                             " sensitivity=-" + QByteArray::number(150 + serial));
        if (!QTest::qWaitFor([&] { return isOver() || !late.isEmpty(); }, kPatienceMs))
            return false;
    }
    return isOver();
}

void tst_ZcrDeviceControllerStartUp::initTestCase()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress(kIp), 21))
        QSKIP(qPrintable(QStringLiteral("port 21, which array controllers have, can't be bound: ") +
                         probe.errorString()));
    probe.close();
    m_muteServer = std::make_unique<ScriptedFtpServer>(QHostAddress(kMuteIp), 21);
    m_server = std::make_unique<ScriptedFtpServer>(QHostAddress(kIp), 21);
    QVERIFY2(m_frames.listen(QHostAddress(kIp).toString()), qPrintable(m_frames.errorText()));
}

void tst_ZcrDeviceControllerStartUp::init()
{
    failOnUnexpectedWarnings();
    for (auto* server : {m_muteServer.get(), m_server.get()}) {
        server->reset();
        server->file = kFile;
    }
}

void tst_ZcrDeviceControllerStartUp::fromTheFileToTheReport()
{
    ArrayController array(kIp);
    QVERIFY(collect(&array.controller, {12, 11}));
    QCOMPARE(lastOf(array.told(), 3), kOpened + wholeReport());
    QCOMPARE(array.device->jobSettings().wavRate(), SampRate{96000});
    QCOMPARE(serialsOf(array.device->deviceId()), (std::vector<uint16_t>{11, 12}));
    QCOMPARE(array.device->sensitivity(), -162.0F);
    const auto& channel = dynamic_cast<SkiffDevice&>(*array.device->devList().at(0));
    QCOMPARE(channel.sensitivity(), -161.0F);
    QCOMPARE(channel.zcrChannel(), 7);
    QCOMPARE(channel.jobSettings().wavRate(), SampRate{48000});
    QCOMPARE(channel.ZCR_NVX_Dev(), array.device);
    // The web socket is closed in good order, of which nothing tells: intended.
    QTRY_COMPARE(m_frames.lines(QStringLiteral("closed")).size(),
                 m_frames.lines(QStringLiteral("open")).size());
    QCOMPARE(m_frames.lines(QStringLiteral("closed")).last(), QStringList{QStringLiteral("1000")});
    QVERIFY(array.adapter.isUnConnected());
    QCOMPARE(array.told(), QStringList());
    QCOMPARE(array.device->cmdPortStatus(), PortConnected);
}

void tst_ZcrDeviceControllerStartUp::adapterIsSetUp()
{
    MuteArrayController array(kMuteIp);
    array.adapter.setNetHostInfo(NvxNetHostInfo(0x7F5107FE));
    array.adapter.setSerial(7);
    array.listChannels({-165.0F});
    array.controller.checkStatus(nullptr);
    QCOMPARE(array.adapter.netHostInfo(), NvxNetHostInfo(kMuteIp));
    QVERIFY(array.adapter.devIdList().empty());
    QVERIFY(array.adapter.hydDeviceList().empty());
    QVERIFY(array.socket.waitForHandshake());
    QCOMPARE(array.adapter.devIdList().size(), size_t(2));
    QCOMPARE(array.adapter.devIdList()[0].hostDevNo(), ArrayController::kSerial);
    array.controller.closeAll();
}

void tst_ZcrDeviceControllerStartUp::managers_data()
{
    QTest::addColumn<bool>("adapterHasOne");
    QTest::addColumn<bool>("controllerHasOne");
    QTest::addColumn<int>("keptByTheOther");
    QTest::newRow("none yet") << false << false << 1;
    // Intended: an enquiry then goes nowhere.
    QTest::newRow("the adapter's") << true << false << 0;
    QTest::newRow("the controller's") << false << true << 0;
    QTest::newRow("both have one") << true << true << 0;
}

void tst_ZcrDeviceControllerStartUp::managers()
{
    QFETCH(bool, adapterHasOne);
    QFETCH(bool, controllerHasOne);
    QFETCH(int, keptByTheOther);
    CannedManager own;
    CannedManager given;
    MuteArrayController array(kMuteIp);
    if (adapterHasOne)
        array.adapter.setNetworkAccessManager(&own);
    if (controllerHasOne)
        array.controller.setNetworkAccessManager(&own);
    array.controller.checkStatus(&given);
    // Kept, but not handed on.
    QCOMPARE(array.adapter.manager(), adapterHasOne ? &own : nullptr);
    QVERIFY(array.socket.waitForHandshake());
    array.controller.closeAll();
    array.controller.sendZcrEnquire();
    QCOMPARE(own.asked.size(), controllerHasOne ? 1 : 0);
    QCOMPARE(given.asked.size(), keptByTheOther);
}

void tst_ZcrDeviceControllerStartUp::listIsRebuiltFromNothing()
{
    ArrayController array(kIp);
    const QList<std::vector<uint16_t>> lists{{11, 12}, {12, 13, 14}, {11}};
    for (const auto& list : lists) {
        m_server->file = "$ARRAY_SERIALS=";
        for (const uint16_t serial : list)
            m_server->file += QByteArray::number(serial) + ',';
        QVERIFY(collect(&array.controller, list));
        QCOMPARE(lastOf(array.told(), 3), kOpened + wholeReport());
        QCOMPARE(serialsOf(array.device->deviceId()), list);
    }
}

void tst_ZcrDeviceControllerStartUp::fileWithoutChannels()
{
    m_muteServer->file = "$WAVE_SAMPLE_RATE=96000\n";
    MuteArrayController array(kMuteIp);
    QSignalSpy noArray(&array.controller, &ZcrDeviceController::signalZCRnoArray);
    array.controller.checkStatus(nullptr);
    QTRY_COMPARE(noArray.count(), 1);
    QCOMPARE(array.told(), kNoArray);
    QVERIFY(array.adapter.isUnConnected());
    QVERIFY(array.device->jobSettings().map().empty());
}

void tst_ZcrDeviceControllerStartUp::framesOfChannelsThatTheFileLacks()
{
    m_server->file = "$ARRAY_SERIALS=13\n";
    ArrayController array(kIp);
    QVERIFY(collect(&array.controller, {11, 12, 13}));
    QCOMPARE(serialsOf(array.device->deviceId()), (std::vector<uint16_t>{13}));
    QCOMPARE(array.device->sensitivity(), -163.0F);
}

void tst_ZcrDeviceControllerStartUp::logKeys_data()
{
    QTest::addColumn<QByteArray>("lines");
    QTest::addColumn<unsigned>("wavLogLen");
    QTest::addColumn<unsigned>("fftLogLen");
    // The channels' keys count, and the controller's own are written only: intended.
    QTest::newRow("own keys") << QByteArray("$WAVE_LOG_LENGTH=5\n$FFT_LOG_LENGTH=6\n") << 0U << 0U;
    QTest::newRow("keys of the channels")
        << QByteArray("$ARRAY_WAVE_LOG_LENGTH=7\n$ARRAY_FFT_LOG_LENGTH=8\n") << 7U << 8U;
    QTest::newRow("own keys behind those of the channels")
        << QByteArray("$ARRAY_WAVE_LOG_LENGTH=7\n$ARRAY_FFT_LOG_LENGTH=8\n$WAVE_LOG_LENGTH=5\n"
                      "$FFT_LOG_LENGTH=6\n")
        << 7U << 8U;
}

void tst_ZcrDeviceControllerStartUp::logKeys()
{
    QFETCH(QByteArray, lines);
    QFETCH(unsigned, wavLogLen);
    QFETCH(unsigned, fftLogLen);
    m_muteServer->file = kFile + lines;
    MuteArrayController array(kMuteIp);
    array.controller.checkStatus(nullptr);
    QVERIFY(array.socket.waitForHandshake());
    QCOMPARE(array.device->jobSettings().wavLogLen(), wavLogLen);
    QCOMPARE(array.device->jobSettings().fftLogLen(), fftLogLen);
    array.controller.closeAll();
}

void tst_ZcrDeviceControllerStartUp::serverThatFails_data()
{
    QTest::addColumn<QByteArray>("verb");
    for (const char* verb : {"USER", "PASS", "RETR"})
        QTest::newRow(verb) << QByteArray(verb);
}

void tst_ZcrDeviceControllerStartUp::serverThatFails()
{
    QFETCH(QByteArray, verb);
    m_muteServer->answer(verb, "550 No\r\n");
    MuteArrayController array(kMuteIp);
    QSignalSpy done(array.adapter.findChild<QFtp*>(), &QFtp::done);
    array.controller.checkStatus(nullptr);
    QTRY_COMPARE(done.count(), 1);
    QCOMPARE(array.told(), QStringList());
    QVERIFY(array.adapter.isUnConnected());
    // The next one works.
    m_muteServer->reset();
    m_muteServer->file = kFile;
    array.controller.checkStatus(nullptr);
    QVERIFY(array.socket.waitForHandshake());
    QCOMPARE(array.adapter.devIdList().size(), size_t(2));
    array.controller.closeAll();
}

void tst_ZcrDeviceControllerStartUp::disabledTrafficDoesNotEndIt()
{
    MuteArrayController array(kMuteIp);
    array.controller.setEnabledZcrCgiCon(false);
    array.controller.checkStatus(nullptr);
    QVERIFY(array.socket.waitForHandshake());
    QCOMPARE(array.adapter.devIdList().size(), size_t(2));
    array.controller.closeAll();
}

void tst_ZcrDeviceControllerStartUp::withoutARecord()
{
    MuteArrayController array(kMuteIp);
    array.listChannels({-165.0F});
    array.controller.setDevice(nullptr);
    QSignalSpy states(array.adapter.findChild<QFtp*>(), &QFtp::stateChanged);
    array.controller.checkStatus(nullptr);
    QVERIFY(states.isEmpty());
    QCOMPARE(array.adapter.devIdList().size(), size_t(1));
}

void tst_ZcrDeviceControllerStartUp::fileIsNeverWritten()
{
    CannedManager manager;
    manager.bodies[QStringLiteral("DataCollection.cgi")] = R"("serialNumber":600,"wavSampRate":96000)";
    MuteArrayController array(kMuteIp);
    QSignalSpy done(array.adapter.findChild<QFtp*>(), &QFtp::done);
    array.controller.checkStatus(&manager);
    QTRY_COMPARE(done.count(), 1);
    const int connections = m_muteServer->connections;
    QVERIFY(array.socket.waitForHandshake());
    for (const auto& channel : array.adapter.hydDeviceList())
        channel->setSensitivity(-165.0F);
    array.controller.handleZcrDevListFilled();
    // A setup goes by CGI alone; for the file there is the adapter's operation, which nothing here calls.
    array.controller.startUpProc();
    array.controller.sendJobSetup({}, false);
    array.controller.sendSetZcrTime(5, &manager);
    array.controller.handleResetZCR(array.device->deviceId());
    QTRY_COMPARE(manager.open, 0);
    array.controller.closeAll();
    QCOMPARE(manager.asked.size(), 3);
    QCOMPARE(m_muteServer->connections, connections);
    QVERIFY(m_muteServer->uploaded.isEmpty());
}

void tst_ZcrDeviceControllerStartUp::deletedByItsOwnSignal_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::newRow("inside the read of the file") << QByteArray("$FFT_ACCUM=20\n");
    QTest::newRow("inside a frame") << kFile;
}

void tst_ZcrDeviceControllerStartUp::deletedByItsOwnSignal()
{
    QFETCH(QByteArray, file);
    m_server->file = file;
    using Grave = Buried<ZcrDeviceController>;
    QObject context;
    const auto device = std::make_shared<ZcrDevice>(DevTypeZcr);
    device->setNetHostInfo(NvxNetHostInfo(kIp));
    auto* controller = new Grave(device, ConnTcp);
    const auto end = [controller] { delete controller; };
    connect(controller, &ZcrDeviceController::signalZCRnoArray, &context, end);
    connect(controller, &ZcrDeviceController::enquireResponse, &context, end);
    if (file == kFile)
        QVERIFY(collect(controller, {11, 12}));
    else
        controller->checkStatus(nullptr);
    QTRY_VERIFY(Grave::isGone());
    QVERIFY(Grave::isUntouched());
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    tst_ZcrDeviceControllerStartUp test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_ZcrDeviceControllerStartUp.moc"
