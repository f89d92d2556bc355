#include "NvxQtCommon/transfer/QFtp.h"
#include "tests/array/ArrayReplies.h"
#include "tests/support/Buried.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"
#include "tests/transfer/FtpPeer.h"
#include "tests/transfer/ScriptedFtpServer.h"

#include <QCoreApplication>
#include <QTemporaryDir>

namespace {

const QHostAddress kScripted(QStringLiteral("127.81.11.1"));
const QHostAddress kPackaged(QStringLiteral("127.81.11.2"));
const QByteArray kFile = "$FFT_ACCUM=20\n$ARRAY_SERIALS=11,12\n$WAVE_SAMPLE_RATE=96000\n";
const QString kRetrieve = QStringLiteral("RETR /Config/JOBSETUP.CFG");

std::vector<uint16_t> serialsOf(ArrayRig& rig)
{
    std::vector<uint16_t> serials;
    for (const HydDeviceId& id : rig.adapter.devIdList())
        serials.push_back(id.serialNo());
    return serials;
}

const std::vector<uint16_t> kBoth{11, 12};

void dropLog(QtMsgType /*type*/, const QMessageLogContext& /*context*/, const QString& /*message*/) {}

} // namespace

/// Reading the configuration file of an array controller by FTP.
class tst_HydZcrCommandAdapterRead : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    // --- happy flows
    void commandsOnTheWire();
    void channelsAndSettings();
    void packagedServer();
    // --- rainy day flows
    void fileWithoutChannels();
    void everyPieceIsTakenForTheFile();
    void finishedCommandsDoNothing();
    void serverThatFails_data();
    void serverThatFails();
    void serverThatIsSilent_data();
    void serverThatIsSilent();
    void nobodyListens();
    void endlessFile();
    void longFileInTheLog();
    void deletedByItsOwnSignal();
    void deletedWhileReading();

private:
    std::unique_ptr<ScriptedFtpServer> m_server;
};

void tst_HydZcrCommandAdapterRead::initTestCase()
{
    QTcpServer probe;
    if (!probe.listen(kScripted, 21))
        QSKIP(qPrintable(QStringLiteral("port 21, which array controllers have, can't be bound: ") +
                         probe.errorString()));
    probe.close();
    m_server = std::make_unique<ScriptedFtpServer>(kScripted, 21);
}

void tst_HydZcrCommandAdapterRead::init()
{
    failOnUnexpectedWarnings();
    m_server->reset();
    m_server->file = kFile;
}

void tst_HydZcrCommandAdapterRead::commandsOnTheWire()
{
    ArrayRig rig(kScripted.toIPv4Address());
    auto* ftp = rig.adapter.findChild<QFtp*>();
    QSignalSpy done(ftp, &QFtp::done);
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(done.count(), 1);
    QCOMPARE(done.first().first().toBool(), false);
    const QList<QByteArray>& lines = m_server->lines;
    QCOMPARE(lines.mid(0, 3), (QList<QByteArray>{"USER anonymous", "PASS anonymous@", "TYPE I"}));
    QVERIFY(lines.contains(kRetrieve.toLatin1()));
    QCOMPARE(lines.last(), "QUIT");
}

void tst_HydZcrCommandAdapterRead::channelsAndSettings()
{
    ArrayRig rig(kScripted.toIPv4Address());
    rig.listChannels({7});
    LogSpy log;
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(rig.configRead.count(), 1);
    QCOMPARE(rig.configRead.first().first().toBool(), true);
    QCOMPARE(serialsOf(rig), kBoth);
    const HydDeviceId& id = rig.adapter.devIdList().front();
    QCOMPARE(id.devType(), DevTypeSkiff);
    QCOMPARE(id.hostDevNo(), ArrayRig::kSerial);
    QCOMPARE(rig.adapter.hydDeviceList().size(), size_t(2));
    for (const auto& device : rig.adapter.hydDeviceList()) {
        QCOMPARE(device->netHostInfo(), rig.adapter.netHostInfo());
        QCOMPARE(device->jobSettings().fftAccum(), 20U);
        QCOMPARE(device->jobSettings().wavRate(), SampRate{96000});
    }
    QVERIFY(
        log.contains(QStringLiteral(R"("$FFT_ACCUM=20\n$ARRAY_SERIALS=11,12\n$WAVE_SAMPLE_RATE=96000\n")")));
    // The settings stay, whatever a later file has.
    m_server->file = "$ARRAY_SERIALS=12\n$FFT_ACCUM=30\n";
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(rig.configRead.count(), 2);
    QCOMPARE(serialsOf(rig), (std::vector<uint16_t>{12}));
    const auto device = rig.adapter.hydDeviceList().at(0);
    QCOMPARE(device->jobSettings().fftAccum(), 30U);
    QCOMPARE(device->jobSettings().wavRate(), SampRate{96000});
}

void tst_HydZcrCommandAdapterRead::packagedServer()
{
    QTemporaryDir folder;
    QVERIFY(QDir(folder.path()).mkdir(QStringLiteral("Config")));
    QFile file(folder.filePath(QStringLiteral("Config/JOBSETUP.CFG")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(kFile), kFile.size());
    file.close();
    FtpPeer peer;
    QVERIFY2(peer.start(kPackaged.toString(), folder.path()), qPrintable(peer.errorText()));
    ArrayRig rig(kPackaged.toIPv4Address());
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(rig.configRead.count(), 1);
    QCOMPARE(serialsOf(rig), kBoth);
}

void tst_HydZcrCommandAdapterRead::fileWithoutChannels()
{
    m_server->file = "$FFT_ACCUM=20\n";
    ArrayRig rig(kScripted.toIPv4Address());
    rig.listChannels({7});
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(rig.configRead.count(), 1);
    QCOMPARE(rig.configRead.first().first().toBool(), true);
    QVERIFY(rig.adapter.devIdList().empty());
    QVERIFY(rig.adapter.hydDeviceList().empty());
}

void tst_HydZcrCommandAdapterRead::everyPieceIsTakenForTheFile()
{
    ArrayRig rig(kScripted.toIPv4Address());
    QPointer<QTcpSocket> data;
    m_server->handle("RETR", [&](ScriptedFtpServer& server, const QByteArray&) {
        server.reply("150 File\r\n");
        server.withData([&](QTcpSocket& socket) {
            data = &socket;
            socket.write("$ARRAY_SERIALS=11,12\n$FFT_ACC");
        });
    });
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(rig.configRead.count(), 1);
    QCOMPARE(serialsOf(rig), kBoth);
    QVERIFY(!data.isNull());
    data->write("UM=20\n$WAVE_SAMPLE_RATE=96000\n");
    // This is intended: channels come from the last piece alone.
    QTRY_COMPARE(rig.configRead.count(), 2);
    QVERIFY(rig.adapter.devIdList().empty());
    QVERIFY(rig.adapter.hydDeviceList().empty());
    rig.listChannels({11});
    rig.adapter.updateDevSetConfigRead(HydZcrCommandAdapter::EnquireFile);
    const auto device = rig.adapter.hydDeviceList().at(0);
    QCOMPARE(device->jobSettings().wavRate(), SampRate{96000});
    QCOMPARE(device->jobSettings().map().size(), size_t(1));
}

void tst_HydZcrCommandAdapterRead::finishedCommandsDoNothing()
{
    ArrayRig rig;
    rig.listChannels({11});
    LogSpy log;
    rig.adapter.ftpCommandFinished(1, false);
    rig.adapter.ftpCommandFinished(2, true);
    QCOMPARE(serialsOf(rig), (std::vector<uint16_t>{11}));
    QVERIFY(rig.configRead.isEmpty());
    QVERIFY(log.lines().isEmpty());
}

void tst_HydZcrCommandAdapterRead::serverThatFails_data()
{
    QTest::addColumn<QByteArray>("verb");
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("greeting") << QByteArray() << QByteArray("421 Busy\r\n");
    QTest::newRow("user") << QByteArray("USER") << QByteArray("530 No\r\n");
    QTest::newRow("password") << QByteArray("PASS") << QByteArray("530 No\r\n");
    QTest::newRow("type") << QByteArray("TYPE") << QByteArray("504 No\r\n");
    QTest::newRow("no file") << QByteArray("RETR") << QByteArray("550 No\r\n");
    QTest::newRow("no protocol") << QByteArray("RETR") << QByteArray("no number at all\r\n550 No\r\n");
}

void tst_HydZcrCommandAdapterRead::serverThatFails()
{
    QFETCH(QByteArray, verb);
    QFETCH(QByteArray, answer);
    if (verb.isEmpty())
        m_server->greeting = answer;
    else
        m_server->answer(verb, answer);
    ArrayRig rig(kScripted.toIPv4Address());
    rig.listChannels({7});
    QSignalSpy done(rig.adapter.findChild<QFtp*>(), &QFtp::done);
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(done.count(), 1);
    QCOMPARE(done.first().first().toBool(), true);
    QVERIFY(rig.configRead.isEmpty());
    QCOMPARE(serialsOf(rig), (std::vector<uint16_t>{7}));
    m_server->reset();
    m_server->file = kFile;
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(rig.configRead.count(), 1);
    QCOMPARE(serialsOf(rig), kBoth);
}

void tst_HydZcrCommandAdapterRead::serverThatIsSilent_data()
{
    QTest::addColumn<QByteArray>("verb");
    for (const char* verb : {"greeting", "USER", "PASS", "TYPE", "RETR", "QUIT"})
        QTest::newRow(verb) << QByteArray(verb);
}

void tst_HydZcrCommandAdapterRead::serverThatIsSilent()
{
    QFETCH(QByteArray, verb);
    if (verb == "greeting")
        m_server->greeting.clear();
    else
        m_server->handle(verb, [](ScriptedFtpServer&, const QByteArray&) {});
    ArrayRig rig(kScripted.toIPv4Address());
    auto* ftp = rig.adapter.findChild<QFtp*>();
    QCOMPARE(ftp->inactivityLimit(), HydZcrCommandAdapter::kFtpSilenceMs);
    ftp->setInactivityLimit(200);
    QSignalSpy done(ftp, &QFtp::done);
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(done.count(), 1);
    const qsizetype read = verb == "QUIT" ? 1 : 0;
    QCOMPARE(rig.configRead.count(), read);
    m_server->reset();
    m_server->file = kFile;
    ftp->setInactivityLimit(HydZcrCommandAdapter::kFtpSilenceMs);
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(rig.configRead.count(), read + 1);
    QCOMPARE(serialsOf(rig), kBoth);
}

void tst_HydZcrCommandAdapterRead::nobodyListens()
{
    ArrayRig rig(QHostAddress(QStringLiteral("127.81.11.9")).toIPv4Address());
    QSignalSpy done(rig.adapter.findChild<QFtp*>(), &QFtp::done);
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(done.count(), 1);
    QVERIFY(rig.configRead.isEmpty());
}

void tst_HydZcrCommandAdapterRead::endlessFile()
{
    m_server->file = QByteArray(HydZcrCommandAdapter::kMaxConfigSize + (4 << 20), '\n');
    ArrayRig rig(kScripted.toIPv4Address());
    QSignalSpy done(rig.adapter.findChild<QFtp*>(), &QFtp::done);
    const QtMessageHandler handler = qInstallMessageHandler(dropLog);
    {
        LogSpy log;
        rig.adapter.getFtpZcrFileConfig();
        [&] { QTRY_COMPARE(done.count(), 1); }();
        QCOMPARE(log.count(QStringLiteral(
                     "Configuration file of an array controller given up: more than 16777216 bytes")),
                 1);
    }
    qInstallMessageHandler(handler);
    QCOMPARE(done.first().first().toBool(), true);
    m_server->reset();
    m_server->file = kFile;
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(serialsOf(rig), kBoth);
}

void tst_HydZcrCommandAdapterRead::longFileInTheLog()
{
    m_server->file = QByteArray(200000, 'x');
    ArrayRig rig(kScripted.toIPv4Address());
    QSignalSpy done(rig.adapter.findChild<QFtp*>(), &QFtp::done);
    LogSpy log;
    rig.adapter.getFtpZcrFileConfig();
    QTRY_COMPARE(done.count(), 1);
    QVERIFY(!log.lines().isEmpty());
    for (const QString& line : log.lines())
        QVERIFY(line.size() <= HydZcrCommandAdapter::kMaxConfigLogged + 2);
}

void tst_HydZcrCommandAdapterRead::deletedByItsOwnSignal()
{
    using Grave = Buried<HydZcrCommandAdapter>;
    auto* adapter = new Grave(ConnTcp);
    adapter->setNetHostInfo(NvxNetHostInfo(kScripted.toIPv4Address()));
    const QPointer<QFtp> ftp = adapter->findChild<QFtp*>();
    QObject context;
    connect(adapter, &HydZcrCommandAdapter::signalZcrConfigRead, &context, [adapter] { delete adapter; });
    adapter->getFtpZcrFileConfig();
    QTRY_VERIFY(Grave::isGone());
    QTRY_VERIFY(ftp.isNull());
    QVERIFY(Grave::isUntouched());
}

void tst_HydZcrCommandAdapterRead::deletedWhileReading()
{
    m_server->handle("RETR", [](ScriptedFtpServer&, const QByteArray&) {});
    QSignalSpy lines(m_server.get(), &ScriptedFtpServer::lineReceived);
    auto rig = std::make_unique<ArrayRig>(kScripted.toIPv4Address());
    const QPointer<QFtp> ftp = rig->adapter.findChild<QFtp*>();
    rig->adapter.getFtpZcrFileConfig();
    QTRY_VERIFY(m_server->lines.contains(kRetrieve.toLatin1()));
    rig.reset();
    QTRY_VERIFY(ftp.isNull());
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    tst_HydZcrCommandAdapterRead test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_HydZcrCommandAdapterRead.moc"
