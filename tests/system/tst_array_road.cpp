#include "NvxQtCommon/array/ZcrDeviceController.h"
#include "NvxQtCommon/array/ZcrStreamAdapter.h"
#include "NvxQtCommon/contract/device/SkiffDevice.h"
#include "NvxQtCommon/contract/job/HydJobSettingsTag.h"
#include "NvxQtCommon/logging/NvxSpecLogger.h"
#include "tests/array/ArrayFrames.h"
#include "tests/array/ArrayScripts.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"
#include "tests/transfer/FtpPeer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <memory>

namespace {

const QString kArrayAddress = QStringLiteral("127.62.40.1");
constexpr uint16_t kArraySerial = 600;
const QByteArray kConfig = "; setup\r\n$WAVE_SAMPLE_RATE=96000\n$WAVE_GAIN=6\n$ARRAY_SERIALS=11,12\n"
                           "$ARRAY_WAVE_LOG_LENGTH=30\n$FFT_SAMPLE_RATE=96000\n$FFT_WEIGHT=2\n$OWN=9\n";

/// A step that fails ends the test function.
#define STEP(call)                                                                                           \
    do {                                                                                                     \
        call;                                                                                                \
        if (QTest::currentTestFailed())                                                                      \
            return;                                                                                          \
    } while (false)

} // namespace

/// The whole road with an array controller whose servers were written in another language by others: its file
/// by FTP, its scripts by HTTP, its frames by web socket.
class tst_array_road : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<FtpPeer> m_files;
    std::unique_ptr<ArrayScripts> m_scripts;
    std::unique_ptr<ArrayFrames> m_frames;
    std::unique_ptr<QNetworkAccessManager> m_manager;
    std::shared_ptr<ZcrDevice> m_device;
    std::shared_ptr<ZcrDeviceController> m_controller;
    qsizetype m_opened = 0;

    QString pathOf(const char* name) const { return m_folder->filePath(QLatin1String(name)); }
    void startFiles(const QStringList& options = {})
    {
        m_files = std::make_unique<FtpPeer>();
        QVERIFY2(m_files->start(kArrayAddress, pathOf("served"), options), qPrintable(m_files->errorText()));
    }
    void startPeers()
    {
        STEP(startFiles());
        m_scripts = std::make_unique<ArrayScripts>();
        QVERIFY2(m_scripts->listen(kArrayAddress), qPrintable(m_scripts->errorText()));
        m_frames = std::make_unique<ArrayFrames>();
        QVERIFY2(m_frames->listen(kArrayAddress), qPrintable(m_frames->errorText()));
    }
    void makeController()
    {
        m_device = std::make_shared<ZcrDevice>(DevTypeZcr);
        m_device->setSerial(kArraySerial);
        m_device->setNetHostInfo(NvxNetHostInfo(QHostAddress(kArrayAddress).toIPv4Address()));
        m_controller = std::dynamic_pointer_cast<ZcrDeviceController>(
            NvxDeviceController::createController(m_device, ConnTcp));
        QVERIFY(m_controller);
        m_controller->setNetworkAccessManager(m_manager.get());
    }
    /// Waits for the next web socket, whose reader then gets what is sent.
    bool waitForReader() { return m_frames->waitForLines(QStringLiteral("open"), ++m_opened); }
    void sendFrame(const char* fields) { m_frames->command(QByteArray("frame ") + fields); }
    void sendChannels()
    {
        sendFrame("channel=1 serial=11 temperature=215 bandwidth=4 fftref=-120 samplerate=96000 "
                  "sensitivity=-171 accum=8 points=8 sequence=1 bins=00010203");
        sendFrame("channel=2 serial=12 temperature=216 bandwidth=4 fftref=-121 samplerate=96000 "
                  "sensitivity=-172 accum=8 points=8 sequence=1 bins=00010203");
    }
    /// checkStatus() to enquireResponse().
    void startUp()
    {
        QSignalSpy enquired(m_controller.get(), &NvxDeviceController::enquireResponse);
        m_controller->checkStatus(m_manager.get());
        QVERIFY(waitForReader());
        sendChannels();
        QTRY_COMPARE(enquired.size(), 1);
    }
    QList<uint16_t> serials() const
    {
        QList<uint16_t> list;
        for (const auto& channel : m_device->devList())
            list << channel->serial();
        return list;
    }

private Q_SLOTS:
    void init();
    void cleanup();

    // --- happy flows
    void startUpListsTheChannels();
    void settingsComeByTheScript();
    void jobSetupIsJson();
    void clockIsSet();
    void spectraGoToFiles();
    // --- rainy day flows
    void silentChannelIsReported();
    void peersThatFailLeaveTheNextStartUp_data();
    void peersThatFailLeaveTheNextStartUp();
    void scriptThatFailsReportsNothing_data();
    void scriptThatFailsReportsNothing();
};

void tst_array_road::init()
{
    failOnUnexpectedWarnings();
    const QString reason = whyNoHttpPort(kArrayAddress);
    if (!reason.isEmpty())
        QSKIP(qPrintable(QStringLiteral("port 80 can't be had: ") + reason));
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid() && QDir(m_folder->path()).mkpath(QStringLiteral("served/Config")));
    QFile file(pathOf("served/Config/JOBSETUP.CFG"));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(kConfig) == kConfig.size());
    m_manager = std::make_unique<QNetworkAccessManager>();
    m_manager->setAutoDeleteReplies(true);
    m_opened = 0;
    makeController();
}

void tst_array_road::cleanup()
{
    m_controller.reset();
    m_device.reset();
    m_manager.reset();
    m_frames.reset();
    m_scripts.reset();
    m_files.reset();
    m_folder.reset();
}

void tst_array_road::startUpListsTheChannels()
{
    STEP(startPeers());
    QSignalSpy changed(m_controller.get(), &NvxDeviceController::jobSettingsChanged);
    STEP(startUp());
    QCOMPARE(serials(), (QList<uint16_t>{11, 12}));
    const auto* second = dynamic_cast<const SkiffDevice*>(m_device->devList()[1].get());
    QVERIFY(second);
    QCOMPARE(second->zcrChannel(), uint8_t{2});
    QCOMPARE(second->sensitivity(), -172.0F);
    QCOMPARE(second->temperature(), 21.6F);
    QCOMPARE(second->bandWidth(), 4U);
    QCOMPARE(second->ZCR_NVX_Dev(), m_device);
    QCOMPARE(m_device->sensitivity(), -172.0F);
    QCOMPARE(m_device->jobSettings().wavGain(), 6U);
    QCOMPARE(m_device->jobSettings().wavLogLen(), 30U);
    QCOMPARE(changed.size(), 1);
    // The web socket is closed again, in good order.
    QVERIFY(m_frames->waitForLines(QStringLiteral("closed"), 1));
    QCOMPARE(m_frames->lines(QStringLiteral("closed"))[0], QStringList{QStringLiteral("1000")});
    QVERIFY(m_scripts->targets().isEmpty());
    QCOMPARE(m_files->commands(QStringLiteral("RETR")),
             QStringList{QStringLiteral("RETR /Config/JOBSETUP.CFG")});
}

void tst_array_road::settingsComeByTheScript()
{
    STEP(startPeers());
    STEP(startUp());
    QVERIFY(m_scripts->order(
        QStringLiteral("DataCollection.cgi"),
        {{QStringLiteral("body"), QStringLiteral("{\"serialNumber\":600,\"wavSampRate\":48000,\"wavGain\":12,"
                                                 "\"fftRef\":-118,\"currentTime\":1700000000}")}}));
    QSignalSpy time(m_controller.get(), &NvxDeviceController::timeChanged);
    m_controller->sendZcrEnquire();
    QTRY_COMPARE(time.size(), 1);
    QCOMPARE(m_device->timeUtc(), 1700000000U);
    QCOMPARE(m_device->jobSettings().wavGain(), 12U);
    QCOMPARE(m_device->jobSettings().wavRate(), SampRate{48000});
    QCOMPARE(m_device->jobSettings().fftRef(), -118);
    QCOMPARE(m_scripts->targets(), QStringList{QStringLiteral("/cgi-bin/DataCollection.cgi?")});
    QCOMPARE(serials(), (QList<uint16_t>{11, 12}));
}

void tst_array_road::jobSetupIsJson()
{
    STEP(startPeers());
    STEP(startUp());
    QVERIFY(m_scripts->order(
        QStringLiteral("DataCollection.cgi"),
        {{QStringLiteral("body"), QStringLiteral("{\"serialNumber\":600,\"wavSampRate\":96000,\"wavGain\":6,"
                                                 "\"fftWeight\":2,\"wavLogLen\":30,\"x\":0}")}}));
    // An adapter has no manager, and sends no setup, before the first enquiry.
    QSignalSpy replies(m_manager.get(), &QNetworkAccessManager::finished);
    m_controller->sendZcrEnquire();
    QTRY_COMPARE(replies.size(), 1);
    HydJobSettings wish;
    wish.setWavRate(SampRate{192000});
    wish.setWavLogStartTime(1000);
    wish.setDutyCyclePeriod(60);
    wish.setFftRef(-99);
    wish.setWavBitDepth(HydWavBitDepth{24});
    m_controller->sendJobSetup(wish.map(), false);
    QCOMPARE(m_device->configStat(), ConfigPending);
    QVERIFY(m_scripts->waitForLines(QStringLiteral("json"), 1));
    const QString text = m_scripts->lines(QStringLiteral("json"))[0].join(u' ');
    const QJsonObject setup =
        QJsonDocument::fromJson(text.toUtf8()).object().value(QStringLiteral("configuration")).toObject();
    QCOMPARE(setup.size(), 24);
    const std::pair<const char*, int> numbers[]{{"wavSampRate", 192000},
                                                {"startTime", 1000},
                                                {"stopTime", 1060},
                                                {"fftRef", -99},
                                                {"wavBitDepth", 24},
                                                {"wavFmt", 152},
                                                {"tmiDevType", 16},
                                                {"isdLoggingEnabled", 1},
                                                // Of the reply to the enquiry.
                                                {"wavGain", 6},
                                                {"fftWeight", 2},
                                                {"tmiWavLogLen", 30}};
    for (const auto& [name, value] : numbers)
        QCOMPARE(setup.value(QLatin1String(name)), QJsonValue(value));
    for (const char* name :
         {"viewport", "btn-apply", "isdCheckBox", "delayCheckBox", "startCheckBox", "stopCheckBox"})
        QVERIFY(setup.value(QLatin1String(name)).isNull());
}

void tst_array_road::clockIsSet()
{
    STEP(startPeers());
    STEP(startUp());
    QVERIFY(m_scripts->order(
        QStringLiteral("Operation.cgi"),
        {{QStringLiteral("body"), QStringLiteral("{\"serialNumber\":600,\"currentTime\":1700000123}")}}));
    QSignalSpy time(m_controller.get(), &NvxDeviceController::timeChanged);
    m_controller->sendSetZcrTime(1700000123, m_manager.get());
    QTRY_COMPARE(time.size(), 1);
    QCOMPARE(m_device->timeUtc(), 1700000123U);
    QCOMPARE(m_scripts->lines(QStringLiteral("json"))[0],
             QStringList{QStringLiteral("{\"action\":\"synctime\",\"newtime\":1700000123}")});
}

void tst_array_road::spectraGoToFiles()
{
    STEP(startPeers());
    STEP(startUp());
    ZcrStreamAdapter stream(StreamSpectrum, CZCRWebSocket::kPort, kArrayAddress, m_device->deviceId(), 0);
    stream.updateDeviceInfo(*m_device);
    NvxSpecLogger logger(0, m_folder->path(), QStringLiteral("SPC0012"), nullptr);
    logger.setDevId(m_device->devList()[1]->deviceId());
    QSignalSpy files(&logger, &NvxSpecLogger::newFileCreated);
    connect(&stream, &HydStreamAdapter::eventHeader, &logger, &NvxSpecLogger::handleEventHdr);
    connect(&stream, &HydStreamAdapter::streamDataReady, &logger, &NvxSpecLogger::handleData);
    QSignalSpy data(&stream, &HydStreamAdapter::streamDataReady);
    stream.startStream();
    QVERIFY(waitForReader());
    for (int i = 0; i < 3; ++i) {
        sendFrame("channel=1 serial=11 bandwidth=3 samplerate=96000 points=8 accum=8 bins=7f0201");
        sendFrame("channel=2 serial=12 bandwidth=3 fftref=-121 samplerate=96000 sensitivity=-172 points=8 "
                  "accum=8 bins=28647f");
    }
    QTRY_COMPARE(data.size(), 6);
    stream.stopStream();
    logger.stopLogging();
    QCOMPARE(files.size(), 1);
    QFile file(files[0][0].toString());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray text = file.readAll();
    QVERIFY(text.contains("\nSerial\t12\n"));
    QVERIFY(text.contains("\nReference level (dB re 1 V)\t-121\n"));
    // Half of each bin: 0x28, 0x64, 0x7f.
    QCOMPARE(text.count("\t20\t50\t63\n"), 3);
    QVERIFY(!text.contains("\t63\t1\t0\n"));
}

void tst_array_road::silentChannelIsReported()
{
    STEP(startPeers());
    QSignalSpy failed(m_controller.get(), &ZcrDeviceController::signalZCRErrorStream);
    QSignalSpy enquired(m_controller.get(), &NvxDeviceController::enquireResponse);
    m_controller->checkStatus(m_manager.get());
    QVERIFY(waitForReader());
    sendFrame("channel=1 serial=11 sensitivity=-171 samplerate=96000");
    QTRY_COMPARE(failed.size(), 1);
    QCOMPARE(enquired.size(), 0);
    QCOMPARE(serials(), (QList<uint16_t>{11, 12}));
    QCOMPARE(m_device->devList()[1]->sensitivity(), 0.0F);
    QCOMPARE(m_device->sensitivity(), -171.0F);
}

void tst_array_road::peersThatFailLeaveTheNextStartUp_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("line");
    const auto row = [](const char* name, const char* option, const char* command, const char* line) {
        QTest::newRow(name) << QStringList{QLatin1String(option), QLatin1String(command)}
                            << QString::fromLatin1(line);
    };
    row("no login", "--refuse", "PASS", "cmd PASS");
    row("no size", "--refuse", "SIZE", "cmd SIZE");
    row("no file", "--refuse", "RETR", "cmd RETR");
    row("ended at the login", "--drop", "USER", "cmd USER");
    row("ended at the file", "--drop", "RETR", "cmd RETR");
}

void tst_array_road::peersThatFailLeaveTheNextStartUp()
{
    QFETCH(const QStringList, options);
    QFETCH(const QString, line);
    STEP(startFiles(options));
    QSignalSpy none(m_controller.get(), &ZcrDeviceController::signalZCRnoArray);
    QSignalSpy enquired(m_controller.get(), &NvxDeviceController::enquireResponse);
    m_controller->checkStatus(m_manager.get());
    QTRY_VERIFY(!m_files->lines().filter(line).isEmpty());
    QCOMPARE(none.size() + enquired.size(), 0);
    m_files->stop();
    STEP(startPeers());
    STEP(startUp());
    QCOMPARE(serials(), (QList<uint16_t>{11, 12}));
}

void tst_array_road::scriptThatFailsReportsNothing_data()
{
    QTest::addColumn<QJsonObject>("order");
    QTest::newRow("404") << QJsonObject{{QStringLiteral("status"), 404}};
    QTest::newRow("500") << QJsonObject{{QStringLiteral("status"), 500}};
    QTest::newRow("empty") << QJsonObject{{QStringLiteral("body"), QString()}};
    QTest::newRow("closed") << QJsonObject{{QStringLiteral("stop"), QStringLiteral("close")}};
    QTest::newRow("half") << QJsonObject{{QStringLiteral("stop"), QStringLiteral("half")}};
    QTest::newRow("foreign") << QJsonObject{
        {QStringLiteral("body"), QStringLiteral("{\"serialNumber\":601,\"wavSampRate\":8000,"
                                                "\"currentTime\":1600000000}")}};
}

void tst_array_road::scriptThatFailsReportsNothing()
{
    QFETCH(const QJsonObject, order);
    STEP(startPeers());
    STEP(startUp());
    QVERIFY(m_scripts->order(QStringLiteral("DataCollection.cgi"), order));
    QSignalSpy replies(m_manager.get(), &QNetworkAccessManager::finished);
    QSignalSpy time(m_controller.get(), &NvxDeviceController::timeChanged);
    QSignalSpy changed(m_controller.get(), &NvxDeviceController::jobSettingsChanged);
    m_controller->sendZcrEnquire();
    QTRY_COMPARE(replies.size(), 1);
    QCOMPARE(time.size(), 0);
    QCOMPARE(changed.size(), 0);
    QCOMPARE(m_device->jobSettings().wavRate(), SampRate{96000});
    QCOMPARE(serials(), (QList<uint16_t>{11, 12}));
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication app(argc, argv);
    tst_array_road test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_array_road.moc"
