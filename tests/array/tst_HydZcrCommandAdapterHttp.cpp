#include "tests/array/ArrayFrames.h"
#include "tests/array/ArrayReplies.h"
#include "tests/array/ArrayScripts.h"
#include "tests/support/LogSpy.h"
#include "tests/support/NvxTestCase.h"
#include "tests/support/OwnNetwork.h"
#include "tests/support/SpyWait.h"

namespace {

const QString kAddress = QStringLiteral("127.81.3.1");
const QString kConfiguration = QStringLiteral("DataCollection.cgi");
const QString kStatus = QStringLiteral("Status.cgi");
const QString kOperation = QStringLiteral("Operation.cgi");

/// A controller's adapter with a manager of its own.
struct Requester : ArrayRig
{
    Requester()
    {
        manager.setAutoDeleteReplies(true);
        adapter.setNetworkAccessManager(&manager);
    }

    QNetworkAccessManager manager;
    QSignalSpy finished{&manager, &QNetworkAccessManager::finished};
};

QJsonObject body(const QString& text)
{
    return {{QStringLiteral("body"), text}};
}

} // namespace

/// Requests and replies over HTTP, against a server in another language.
class tst_HydZcrCommandAdapterHttp : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    // --- happy flows
    void requestsOnTheWire_data();
    void requestsOnTheWire();
    void jobSetupOnTheWire();
    void jobSetupIsJson();
    void tagsAreMerged();
    void statusOfAFreshAdapter();
    void configurationLeadsToTheStatus();
    void repliesInPieces_data();
    void repliesInPieces();
    void longestReply();
    // --- rainy day flows
    void statusIsAskedAgainAndAgain();
    void tooLongReply();
    void replyOfAnotherUser_data();
    void replyOfAnotherUser();
    void limitsOfSilence();
    void serverThatNeverAnswers();
    void refusedWebSocketEndsRequests();
    void lostWebSocketEndsRequests();
    void adaptersShareAManager();
    void refusals_data();
    void refusals();
    void serverThatStops_data();
    void serverThatStops();
    void nobodyListens();
    void managerGoesWithARequestOnItsWay();
    void adapterGoesWithARequestOnItsWay();
    void lateReplyWhileTheWebSocketIsOpen();

private:
    std::unique_ptr<ArrayScripts> m_server;
};

void tst_HydZcrCommandAdapterHttp::initTestCase()
{
    const QString reason = whyNoHttpPort(kAddress);
    if (!reason.isEmpty())
        QSKIP(qPrintable(QStringLiteral("port 80, which array controllers have, can't be bound: ") + reason));
}

void tst_HydZcrCommandAdapterHttp::init()
{
    NvxTestCase::failOnUnexpectedWarnings();
    m_server = std::make_unique<ArrayScripts>();
    QVERIFY2(m_server->listen(kAddress), qPrintable(m_server->errorText()));
}

void tst_HydZcrCommandAdapterHttp::requestsOnTheWire_data()
{
    QTest::addColumn<int>("which");
    QTest::addColumn<qint64>("time");
    QTest::addColumn<QString>("target");
    QTest::newRow("configuration") << 0 << qint64(0) << QStringLiteral("/cgi-bin/DataCollection.cgi?");
    QTest::newRow("status") << 1 << qint64(0) << QStringLiteral("/cgi-bin/Status.cgi?");
    QTest::newRow("time") << 2 << qint64(1700000000)
                          << QStringLiteral("/cgi-bin/Operation.cgi?data=%7B%22action%22:%22synctime%22,"
                                            "%22newtime%22:1700000000%7D");
    QTest::newRow("time 1") << 2 << qint64(1)
                            << QStringLiteral("/cgi-bin/Operation.cgi?data=%7B%22action%22:%22synctime%22,"
                                              "%22newtime%22:1%7D");
    QTest::newRow("time of more than 32 bits")
        << 2 << qint64(9000000000)
        << QStringLiteral("/cgi-bin/Operation.cgi?data=%7B%22action%22:%22synctime%22,"
                          "%22newtime%22:9000000000%7D");
    QTest::newRow("time 0") << 2 << qint64(0) << QStringLiteral("/cgi-bin/Operation.cgi");
    QTest::newRow("time below 0") << 2 << qint64(-1) << QStringLiteral("/cgi-bin/Operation.cgi");
}

void tst_HydZcrCommandAdapterHttp::requestsOnTheWire()
{
    QFETCH(int, which);
    QFETCH(qint64, time);
    QFETCH(QString, target);
    for (const QString& script : {kConfiguration, kStatus, kOperation})
        QVERIFY(m_server->order(script, body(QStringLiteral("ok"))));
    Requester rig;
    if (which == 0)
        rig.adapter.getCgiZcrConfig();
    else if (which == 1)
        rig.adapter.getCgiZcrArray();
    else
        rig.adapter.sendSetTime(time);
    QTRY_COMPARE_WITH_TIMEOUT(rig.finished.count(), 1, 30000);
    QTRY_COMPARE_WITH_TIMEOUT(m_server->targets(), QStringList{target}, 30000);
}

void tst_HydZcrCommandAdapterHttp::jobSetupOnTheWire()
{
    QVERIFY(m_server->order(kConfiguration, body(QStringLiteral("ok"))));
    Requester rig;
    HydJobSettings settings;
    settings.setWavRate(SampRate{96000});
    settings.setFftRef(-120);
    rig.adapter.cgiWriteJobSetup(settings.map());
    QTRY_COMPARE_WITH_TIMEOUT(rig.finished.count(), 1, 30000);
    const QByteArray text =
        R"({"configuration":{"isdLoggingEnabled":1,"tmiDevType":16,"viewport":null,"btn-apply":null,)"
        R"("wavSampRate":96000,"tmiWavLogMode":0,"tmiWavLogLen":0,"tmiFFTLogMode":0,"tmiFFTLogLen":0,)"
        R"("fftProcType":0,"fftDataRate":0,"fftAccum":0,"fftRef":-120,"isdCheckBox":null,)"
        R"("delayCheckBox":null,"startCheckBox":null,"startTime":0,"stopCheckBox":null,"stopTime":0,)"
        R"("fftWeight":0,"wavGain":0,"wavFmt":128,"wavEndian":0,"wavBitDepth":0}})";
    QTRY_COMPARE_WITH_TIMEOUT(
        m_server->targets(),
        QStringList{QStringLiteral("/cgi-bin/DataCollection.cgi?data=") +
                    QString::fromLatin1(text.toPercentEncoding(QByteArrayLiteral(":,")))},
        10000);
}

void tst_HydZcrCommandAdapterHttp::jobSetupIsJson()
{
    QVERIFY(m_server->order(kConfiguration, body(QStringLiteral("ok"))));
    Requester rig;
    HydJobSettings settings;
    settings.setWavRate(SampRate{4294967295});
    settings.setWavLogMode(LogOn);
    settings.setWavLogLen(61);
    settings.setFftLogMode(HydLogMode{65535});
    settings.setFftLogLen(62);
    settings.setFftProcType(HydFftProc{4});
    settings.setFftAccum(20);
    settings.setFftRef(-2147483647 - 1);
    settings.setWavLogStartTime(2147483647);
    settings.setDutyCyclePeriod(4294967295);
    settings.setFftWeight(3);
    settings.setWavGain(6);
    settings.setWavBitDepth(HydWavBitDepth{255});
    settings.setWavByteOrder(OrderBigEndian);
    rig.adapter.cgiWriteJobSetup(settings.map());
    QVERIFY(m_server->waitForLines(QStringLiteral("json"), 1));
    QCOMPARE(m_server->lines(QStringLiteral("json")).first().join(u' '),
             QStringLiteral(
                 R"({"configuration":{"btn-apply":null,"delayCheckBox":null,"fftAccum":20,"fftDataRate":0,)"
                 R"("fftProcType":4,"fftRef":-2147483648,"fftWeight":3,"isdCheckBox":null,)"
                 R"("isdLoggingEnabled":1,"startCheckBox":null,"startTime":2147483647,"stopCheckBox":null,)"
                 R"("stopTime":6442450942,"tmiDevType":16,"tmiFFTLogLen":62,"tmiFFTLogMode":65535,)"
                 R"("tmiWavLogLen":61,"tmiWavLogMode":1,"viewport":null,"wavBitDepth":255,"wavEndian":1,)"
                 R"("wavFmt":383,"wavGain":6,"wavSampRate":4294967295}})"));
}

void tst_HydZcrCommandAdapterHttp::tagsAreMerged()
{
    QVERIFY(m_server->order(kConfiguration, body(QStringLiteral("ok"))));
    Requester rig;
    HydJobSettings first;
    first.setWavGain(6);
    first.setFftAccum(1);
    rig.adapter.cgiWriteJobSetup(first.map());
    // Two requests at once could arrive in any order.
    QTRY_COMPARE_WITH_TIMEOUT(rig.finished.count(), 1, 30000);
    HydJobSettings second;
    second.setFftAccum(2);
    rig.adapter.cgiWriteJobSetup(second.map());
    QTRY_COMPARE_WITH_TIMEOUT(rig.finished.count(), 2, 30000);
    QTRY_COMPARE_WITH_TIMEOUT(m_server->targets().size(), 2, 30000);
    QVERIFY(m_server->targets().last().contains(QStringLiteral("%22wavGain%22:6,")));
    QVERIFY(m_server->targets().last().contains(QStringLiteral("%22fftAccum%22:2,")));
    // What is refused for the time being isn't remembered.
    rig.adapter.enableNetWork(false);
    rig.adapter.cgiWriteJobSetup(first.map());
    rig.adapter.enableNetWork(true);
    rig.adapter.cgiWriteJobSetup({});
    QTRY_COMPARE_WITH_TIMEOUT(m_server->targets().size(), 3, 30000);
    QVERIFY(m_server->targets().last().contains(QStringLiteral("%22fftAccum%22:2,")));
}

void tst_HydZcrCommandAdapterHttp::statusOfAFreshAdapter()
{
    Requester rig;
    rig.adapter.getCgiZcrArray();
    QTRY_COMPARE_WITH_TIMEOUT(rig.configRead.count(), 1, 30000);
    QCOMPARE(rig.configRead.first().first().toBool(), false);
    // The first channel stands behind another colon: its number doesn't convert. This is intended.
    QCOMPARE(rig.adapter.devIdList().size(), size_t(1));
    QCOMPARE(rig.adapter.devIdList().front().serialNo(), 0);
    QCOMPARE(rig.times.count(), 1);
    QCOMPARE(rig.times.first(), (QList<QVariant>{600, 1700000000LL}));
    // The lists go before the request.
    rig.adapter.getCgiZcrArray();
    QVERIFY(rig.adapter.devIdList().empty());
    QVERIFY(rig.adapter.hydDeviceList().empty());
    rig.adapter.enableNetWork(false);
}

void tst_HydZcrCommandAdapterHttp::configurationLeadsToTheStatus()
{
    QVERIFY(m_server->order(kConfiguration,
                            {{QStringLiteral("json"), QJsonObject{{QStringLiteral("serialNumber"), 600},
                                                                  {QStringLiteral("wavSampRate"), 96000},
                                                                  {QStringLiteral("x"), 0}}}}));
    Requester rig;
    rig.adapter.getCgiZcrConfig();
    QTRY_COMPARE_WITH_TIMEOUT(rig.configRead.count(), 1, 30000);
    const QStringList targets{QStringLiteral("/cgi-bin/DataCollection.cgi?"),
                              QStringLiteral("/cgi-bin/Status.cgi?")};
    QTRY_COMPARE_WITH_TIMEOUT(m_server->targets(), targets, 30000);
    QCOMPARE(rig.adapter.hydDeviceList().size(), size_t(1));
    QCOMPARE(rig.adapter.hydDeviceList().front()->jobSettings().wavRate(), SampRate{96000});
}

void tst_HydZcrCommandAdapterHttp::repliesInPieces_data()
{
    QTest::addColumn<int>("pieces");
    for (const int pieces : {1, 2, 3, 7, 1000})
        QTest::addRow("%d bytes at once", pieces) << pieces;
}

void tst_HydZcrCommandAdapterHttp::repliesInPieces()
{
    QFETCH(int, pieces);
    QVERIFY(m_server->order(kStatus, {{QStringLiteral("pieces"), pieces}}));
    Requester rig;
    rig.adapter.getCgiZcrArray();
    QTRY_COMPARE_WITH_TIMEOUT(rig.times.count(), 1, 30000);
    QCOMPARE(rig.times.first(), (QList<QVariant>{600, 1700000000LL}));
    QCOMPARE(rig.adapter.devIdList().size(), size_t(1));
    QCOMPARE(rig.configRead.count(), 1);
}

void tst_HydZcrCommandAdapterHttp::longestReply()
{
    QVERIFY(m_server->order(kConfiguration, {{QStringLiteral("size"), 4194304}}));
    LogSpy log;
    Requester rig;
    rig.adapter.getCgiZcrConfig();
    QTRY_COMPARE_WITH_TIMEOUT(rig.finished.count(), 1, 20000);
    QVERIFY(log.lines().isEmpty());
}

void tst_HydZcrCommandAdapterHttp::statusIsAskedAgainAndAgain()
{
    Requester rig;
    rig.listChannels({11});
    // An adapter that held channels takes none, and asks again: this is intended.
    rig.adapter.getCgiZcrArray();
    QTRY_VERIFY_WITH_TIMEOUT(m_server->targets().size() >= 5, 30000);
    QVERIFY(rig.configRead.isEmpty());
    rig.adapter.enableNetWork(false);
    // The last one may be on its way.
    const qsizetype asked = rig.finished.count() + 1;
    QVERIFY(!QTest::qWaitFor([&] { return rig.finished.count() > asked; }, 200));
    for (const QString& target : m_server->targets())
        QCOMPARE(target, QStringLiteral("/cgi-bin/Status.cgi?"));
}

void tst_HydZcrCommandAdapterHttp::tooLongReply()
{
    QVERIFY(m_server->order(kConfiguration, {{QStringLiteral("size"), 64 * 1024 * 1024}}));
    LogSpy log;
    Requester rig;
    rig.adapter.getCgiZcrConfig();
    QTRY_COMPARE_WITH_TIMEOUT(rig.finished.count(), 1, 20000);
    QCOMPARE(log.lines(),
             QStringList({QStringLiteral("Reply of an array controller aborted: more than 4194304 bytes"),
                          QStringLiteral("Operation canceled")}));
    // One byte is enough.
    QVERIFY(m_server->order(kConfiguration, {{QStringLiteral("size"), 4194305}}));
    rig.adapter.getCgiZcrConfig();
    QTRY_COMPARE_WITH_TIMEOUT(rig.finished.count(), 2, 20000);
    QCOMPARE(log.lines().size(), 4);
    rig.adapter.getCgiZcrArray();
    QTRY_COMPARE_WITH_TIMEOUT(rig.times.count(), 1, 30000);
}

void tst_HydZcrCommandAdapterHttp::replyOfAnotherUser_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("short") << 1000;
    QTest::newRow("longer than any that is read") << 5000000;
}

void tst_HydZcrCommandAdapterHttp::replyOfAnotherUser()
{
    QFETCH(int, size);
    QVERIFY(m_server->order(kConfiguration, {{QStringLiteral("size"), size}}));
    LogSpy log;
    Requester rig;
    QNetworkReply* reply = rig.manager.get(
        QNetworkRequest(QUrl(QStringLiteral("http://127.81.3.1/cgi-bin/DataCollection.cgi"))));
    // Its slot comes behind the adapter's.
    qsizetype read = -1;
    connect(reply, &QNetworkReply::finished, this, [&read, reply] { read = reply->readAll().size(); });
    QTRY_COMPARE(read, qsizetype(size));
    QVERIFY(log.lines().isEmpty());
}

void tst_HydZcrCommandAdapterHttp::limitsOfSilence()
{
    class Manager : public QNetworkAccessManager
    {
    public:
        QList<int> limits;

    protected:
        QNetworkReply* createRequest(Operation operation, const QNetworkRequest& request,
                                     QIODevice* data) override
        {
            limits << request.transferTimeout();
            return QNetworkAccessManager::createRequest(operation, request, data);
        }
    };
    Manager manager;
    manager.setAutoDeleteReplies(true);
    ArrayRig rig;
    rig.adapter.setNetworkAccessManager(&manager);
    rig.adapter.getCgiZcrConfig();
    QCOMPARE(manager.limits, QList<int>{HydZcrCommandAdapter::kReplySilenceMs});
    // The application's own limit holds.
    manager.setTransferTimeout(500);
    rig.adapter.sendSetTime(1);
    QVERIFY(manager.limits.last() == 0 || manager.limits.last() == 500);
}

void tst_HydZcrCommandAdapterHttp::serverThatNeverAnswers()
{
    QVERIFY(m_server->order(kConfiguration, {{QStringLiteral("stop"), QStringLiteral("silent")}}));
    LogSpy log;
    Requester rig;
    rig.manager.setTransferTimeout(500);
    // One more than there are connections to a host.
    constexpr int kRequests = 7;
    for (int i = 0; i < kRequests; ++i)
        rig.adapter.getCgiZcrConfig();
    QTRY_COMPARE(rig.finished.count(), kRequests);
    QCOMPARE(log.lines(), QStringList(kRequests, QStringLiteral("Operation canceled")));
    rig.manager.setTransferTimeout(0);
    rig.adapter.getCgiZcrArray();
    QTRY_COMPARE(rig.times.count(), 1);
}

void tst_HydZcrCommandAdapterHttp::refusedWebSocketEndsRequests()
{
    Requester rig;
    // Nobody listens.
    QSignalSpy refused(rig.adapter.findChild<CZCRWebSocket*>(), CZCRWebSocket::errorSignal());
    rig.adapter.openConnection();
    QTRY_COMPARE(refused.count(), 1);
    QVERIFY(rig.adapter.isUnConnected());
    rig.adapter.sendSetTime(1);
    rig.adapter.closeConnection();
    rig.adapter.getCgiZcrArray();
    QTRY_COMPARE(rig.times.count(), 1);
    QTRY_COMPARE(m_server->targets(), QStringList{QStringLiteral("/cgi-bin/Status.cgi?")});
}

void tst_HydZcrCommandAdapterHttp::lostWebSocketEndsRequests()
{
    ArrayFrames frames;
    QVERIFY2(frames.listen(kAddress), qPrintable(frames.errorText()));
    Requester rig;
    QSignalSpy opened(&rig.adapter, &HydZcrCommandAdapter::connectionOpen);
    rig.adapter.openConnection();
    QTRY_COMPARE(opened.count(), 1);
    frames.kill();
    QTRY_VERIFY(rig.adapter.isUnConnected());
    rig.adapter.sendSetTime(1);
    rig.adapter.closeConnection();
    rig.adapter.getCgiZcrArray();
    QTRY_COMPARE(rig.times.count(), 1);
    QTRY_COMPARE(m_server->targets(), QStringList{QStringLiteral("/cgi-bin/Status.cgi?")});
}

void tst_HydZcrCommandAdapterHttp::adaptersShareAManager()
{
    Requester first;
    ArrayRig second;
    second.adapter.setSerial(700);
    second.adapter.setNetworkAccessManager(&first.manager);
    second.adapter.getCgiZcrArray();
    // The first one reads the reply, whose ever it is, and tells whom it is about.
    QTRY_COMPARE_WITH_TIMEOUT(first.times.count(), 1, 30000);
    QTRY_COMPARE_WITH_TIMEOUT(first.finished.count(), 1, 30000);
    QVERIFY(second.times.isEmpty());
}

void tst_HydZcrCommandAdapterHttp::refusals_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("reason");
    QTest::newRow("404") << 404 << QStringLiteral("Not Found");
    QTest::newRow("500") << 500 << QStringLiteral("Internal Server Error");
}

void tst_HydZcrCommandAdapterHttp::refusals()
{
    QFETCH(int, status);
    QFETCH(QString, reason);
    QVERIFY(m_server->order(kStatus, {{QStringLiteral("status"), status}}));
    LogSpy log;
    Requester rig;
    rig.adapter.getCgiZcrArray();
    QTRY_COMPARE_WITH_TIMEOUT(rig.finished.count(), 1, 30000);
    QCOMPARE(log.lines().size(), 1);
    QVERIFY2(log.lines().first().endsWith(reason), qPrintable(log.lines().first()));
    QVERIFY(rig.times.isEmpty());
    QVERIFY(rig.configRead.isEmpty());
    // Nothing is asked again by itself.
    QVERIFY(!QTest::qWaitFor([&] { return m_server->targets().size() > 1; }, 100));
}

void tst_HydZcrCommandAdapterHttp::serverThatStops_data()
{
    QTest::addColumn<QJsonObject>("order");
    QTest::addColumn<QString>("line");
    QTest::newRow("ahead of its reply") << QJsonObject{{QStringLiteral("stop"), QStringLiteral("close")}}
                                        << QStringLiteral("Connection closed");
    QTest::newRow("in its reply") << QJsonObject{{QStringLiteral("stop"), QStringLiteral("half")}}
                                  << QStringLiteral("Connection closed");
    QTest::newRow("empty reply") << body(QString()) << QString();
    QTest::newRow("no reply that anyone knows")
        << body(QStringLiteral("<html>\"devSerial\"</html>,,,,:,\"serialNumber\"")) << QString();
}

void tst_HydZcrCommandAdapterHttp::serverThatStops()
{
    QFETCH(QJsonObject, order);
    QFETCH(QString, line);
    QVERIFY(m_server->order(kStatus, order));
    LogSpy log;
    Requester rig;
    rig.adapter.getCgiZcrArray();
    QTRY_COMPARE_WITH_TIMEOUT(rig.finished.count(), 1, 20000);
    QCOMPARE(log.lines(), line.isEmpty() ? QStringList() : QStringList{line});
    QVERIFY(rig.times.isEmpty());
    QVERIFY(rig.configRead.isEmpty());
    QVERIFY(m_server->order(kStatus, {}));
    rig.adapter.getCgiZcrArray();
    QTRY_COMPARE_WITH_TIMEOUT(rig.times.count(), 1, 30000);
    QCOMPARE(rig.configRead.count(), 1);
}

void tst_HydZcrCommandAdapterHttp::nobodyListens()
{
    LogSpy log;
    Requester rig;
    rig.adapter.setNetHostInfo(NvxNetHostInfo(0x7F510363));
    rig.adapter.getCgiZcrConfig();
    QTRY_COMPARE_WITH_TIMEOUT(rig.finished.count(), 1, 30000);
    QCOMPARE(log.lines(), QStringList{QStringLiteral("Connection refused")});
}

void tst_HydZcrCommandAdapterHttp::managerGoesWithARequestOnItsWay()
{
    QVERIFY(m_server->order(kStatus, {{QStringLiteral("stop"), QStringLiteral("silent")}}));
    ArrayRig rig;
    auto manager = std::make_unique<QNetworkAccessManager>();
    rig.adapter.setNetworkAccessManager(manager.get());
    rig.adapter.getCgiZcrArray();
    QVERIFY(m_server->waitForLines(QStringLiteral("get"), 1));
    manager.reset();
    LogSpy log;
    rig.adapter.getCgiZcrArray();
    QCOMPARE(log.lines(),
             QStringList{QStringLiteral("nullptr == m_manager - HydZcrCommandAdapter::sendSetTime")});
}

void tst_HydZcrCommandAdapterHttp::adapterGoesWithARequestOnItsWay()
{
    QVERIFY(m_server->order(kConfiguration, {{QStringLiteral("size"), 5000000}}));
    QNetworkAccessManager manager;
    manager.setAutoDeleteReplies(true);
    QSignalSpy finished(&manager, &QNetworkAccessManager::finished);
    LogSpy log;
    {
        ArrayRig rig;
        rig.adapter.setNetworkAccessManager(&manager);
        rig.adapter.getCgiZcrConfig();
    }
    // The bound of its request holds on.
    QTRY_COMPARE_WITH_TIMEOUT(finished.count(), 1, 20000);
    QCOMPARE(log.lines(),
             QStringList{QStringLiteral("Reply of an array controller aborted: more than 4194304 bytes")});
}

void tst_HydZcrCommandAdapterHttp::lateReplyWhileTheWebSocketIsOpen()
{
    ArrayFrames frames;
    QVERIFY2(frames.listen(kAddress), qPrintable(frames.errorText()));
    Requester rig;
    QSignalSpy opened(&rig.adapter, &HydZcrCommandAdapter::connectionOpen);
    QSignalSpy closed(&rig.adapter, &HydZcrCommandAdapter::connectionClosed);
    rig.listChannels({11});
    rig.adapter.getCgiZcrConfig();
    rig.adapter.openConnection();
    rig.adapter.getCgiZcrConfig();
    QTRY_COMPARE_WITH_TIMEOUT(opened.count(), 1, 30000);
    QVERIFY(!rig.adapter.isUnConnected());
    QTRY_COMPARE_WITH_TIMEOUT(rig.finished.count(), 1, 30000);
    QTRY_COMPARE_WITH_TIMEOUT(m_server->targets().size(), 1, 30000);
    QVERIFY(rig.times.isEmpty());
    frames.command("frame serial=11 sensitivity=-165");
    QTRY_COMPARE_WITH_TIMEOUT(rig.listFilled.count(), 1, 30000);
    rig.adapter.closeConnection();
    QTRY_VERIFY_WITH_TIMEOUT(rig.adapter.isUnConnected(), 30000);
    QVERIFY(closed.isEmpty());
    rig.adapter.getCgiZcrConfig();
    QTRY_COMPARE_WITH_TIMEOUT(rig.times.count(), 1, 30000);
    rig.adapter.enableNetWork(false);
    // Closing brings the requests back, also where there is nothing to close.
    rig.adapter.closeConnection();
    rig.adapter.sendSetTime(1);
    QTRY_VERIFY_WITH_TIMEOUT(!m_server->lines(QStringLiteral("json")).isEmpty(), 30000);
    rig.adapter.enableNetWork(false);
}

int main(int argc, char* argv[])
{
    enterOwnNetwork(argc, argv);
    QCoreApplication application(argc, argv);
    tst_HydZcrCommandAdapterHttp test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_HydZcrCommandAdapterHttp.moc"
