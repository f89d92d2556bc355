#include "CurlRun.h"
#include "NvxQtSimulator/SimulatedArray.h"
#include "tests/support/NvxTestCase.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTcpSocket>

// The web server of a simulated array controller, as curl sees it.

class tst_SimulatedArrayHttp : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<SimulatedArray> m_array;

    void startArray(const QString& fault = {})
    {
        ArraySettings settings;
        settings.address = QHostAddress(QStringLiteral("127.98.1.1"));
        settings.httpPort = 0;
        settings.roles = ArrayRoleHttp;
        settings.channels = ArraySettings::makeChannels(3, 1001);
        m_array = std::make_unique<SimulatedArray>(settings);
        if (!fault.isEmpty()) {
            FaultPlan plan(1);
            plan.add(FaultRule::fromText(fault).value());
            m_array->setFaults(plan);
        }
        QVERIFY2(m_array->start(), qPrintable(m_array->errorString()));
    }
    /// curl on a target; -g leaves braces as they are.
    CurlRun get(const QString& target, const QStringList& options = {})
    {
        return CurlRun(options + QStringList{QStringLiteral("-g"), url(target)});
    }
    QString url(const QString& target)
    {
        return QStringLiteral("http://127.98.1.1:%1%2").arg(m_array->httpPort()).arg(target);
    }
    static QJsonObject objectOf(const QByteArray& reply) { return QJsonDocument::fromJson(reply).object(); }
    static QStringList statusOption()
    {
        return {QStringLiteral("-o"), QStringLiteral("/dev/null"), QStringLiteral("-w"),
                QStringLiteral("%{http_code}")};
    }

private Q_SLOTS:
    // --- happy flows
    void configurationIsToldAsJson()
    {
        startArray();
        const QJsonObject reply = objectOf(get(QStringLiteral("/cgi-bin/DataCollection.cgi?")).output);
        QCOMPARE(reply.value(QLatin1String("serialNumber")).toInt(), 600);
        QCOMPARE(reply.value(QLatin1String("wavSampRate")).toInt(), 48000);
        QCOMPARE(reply.value(QLatin1String("fftPts")).toInt(), 1024);
        QCOMPARE(reply.value(QLatin1String("fftRef")).toInt(), -100);
        QCOMPARE(reply.value(QLatin1String("wavBitDepth")).toInt(), 24);
        const qint64 now = QDateTime::currentSecsSinceEpoch();
        QVERIFY(qAbs(reply.value(QLatin1String("currentTime")).toInteger() - now) < 60);
    }

    void statusHasTheChannels()
    {
        startArray();
        const QJsonObject reply = objectOf(get(QStringLiteral("/cgi-bin/Status.cgi?")).output);
        const QJsonArray channels = reply.value(QLatin1String("devs")).toArray();
        QCOMPARE(channels.size(), 3);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(channels[i].toObject().value(QLatin1String("devSerial")).toInt(), 1001 + i);
    }

    void timeIsSet()
    {
        startArray();
        const QByteArray reply =
            get(QStringLiteral(
                    "/cgi-bin/Operation.cgi?data={\"action\":\"synctime\",\"newtime\":1700000000}"))
                .output;
        QCOMPARE(objectOf(reply).value(QLatin1String("currentTime")).toInteger(), 1700000000);
        QVERIFY(m_array->deviceTime() - 1700000000 < 60);
        // Without an order the script only tells.
        const QJsonObject later = objectOf(get(QStringLiteral("/cgi-bin/Operation.cgi")).output);
        QVERIFY(later.value(QLatin1String("currentTime")).toInteger() - 1700000000 < 60);
    }

    void jobSetupChangesTheFile()
    {
        startArray();
        const QString data =
            QStringLiteral("data=%7B%22configuration%22:%7B%22viewport%22:null,%22wavSampRate%22:"
                           "96000,%22fftRef%22:-110,%22tmiWavLogMode%22:0,%22startTime%22:100,"
                           "%22stopTime%22:160%7D%7D");
        const QJsonObject reply = objectOf(get(QStringLiteral("/cgi-bin/DataCollection.cgi?") + data).output);
        QCOMPARE(reply.value(QLatin1String("wavSampRate")).toInt(), 96000);
        QCOMPARE(m_array->jobSettings().wavRate(), SampRate{96000});
        QCOMPARE(m_array->jobSettings().fftRef(), -110);
        QCOMPARE(m_array->jobSettings().wavLogMode(), LogOff);
        QCOMPARE(m_array->jobSettings().dutyCyclePeriod(), 60U);
        // What the setup doesn't have stays.
        QCOMPARE(m_array->jobSettings().fftPoints(), 1024U);
        QVERIFY(m_array->configFile().contains("$WAVE_SAMPLE_RATE=96000\n"));
        QVERIFY(m_array->configFile().contains("$ARRAY_SERIALS=1001,1002,1003\n"));
    }

    void targetsAreKeptByteForByte()
    {
        startArray();
        const QStringList sent{QStringLiteral("/cgi-bin/Status.cgi?"),
                               QStringLiteral("/cgi-bin/Operation.cgi"),
                               QStringLiteral("/x?data=%7b%22{\"a\"}&&=%")};
        QSignalSpy spy(m_array.get(), &SimulatedArray::requestReceived);
        for (const QString& target : sent)
            get(target);
        QTRY_COMPARE(spy.size(), sent.size());
        const std::vector<QByteArray> targets = m_array->targets();
        QCOMPARE(targets.size(), size_t(sent.size()));
        for (int i = 0; i < sent.size(); ++i) {
            QCOMPARE(targets[size_t(i)], sent[i].toUtf8());
            QCOMPARE(spy[i][0].toByteArray(), sent[i].toUtf8());
        }
    }

    void oneConnectionServesManyRequests()
    {
        startArray();
        QStringList arguments{QStringLiteral("-w"), QStringLiteral("\n%{num_connects}\n")};
        for (int i = 0; i < 5; ++i)
            arguments << url(QStringLiteral("/cgi-bin/Status.cgi?"));
        const CurlRun run(arguments);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.output.count("\n0\n"), 4);
        QCOMPARE(m_array->counters().requests, 5U);
    }

    // --- rainy day flows
    void refusals_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QByteArray>("status");
        const auto setup = [](const char* row, const char* data) {
            QTest::newRow(row) << QStringLiteral("/cgi-bin/DataCollection.cgi?") + QLatin1String(data)
                               << QStringList() << QByteArray("400");
        };
        const auto order = [](const char* row, const char* data) {
            QTest::newRow(row) << QStringLiteral("/cgi-bin/Operation.cgi?") + QLatin1String(data)
                               << QStringList() << QByteArray("400");
        };
        QTest::newRow("script") << QStringLiteral("/cgi-bin/Other.cgi") << QStringList() << QByteArray("404");
        QTest::newRow("root") << QStringLiteral("/") << QStringList() << QByteArray("404");
        QTest::newRow("method") << QStringLiteral("/cgi-bin/Status.cgi?")
                                << QStringList{QStringLiteral("-d"), QStringLiteral("x")}
                                << QByteArray("405");
        setup("no data", "x=1");
        setup("no JSON", "data={\"configuration\":{");
        setup("no configuration", "data={\"wavSampRate\":96000}");
        setup("nothing known", "data={\"configuration\":{\"viewport\":null}}");
        setup("text", "data={\"configuration\":{\"wavSampRate\":\"fast\"}}");
        setup("too large", "data={\"configuration\":{\"wavSampRate\":1e300}}");
        setup("fraction", "data={\"configuration\":{\"wavSampRate\":1.5}}");
        order("other action", "data={\"action\":\"reboot\",\"newtime\":5}");
        order("no time", "data={\"action\":\"synctime\"}");
        order("time of 0", "data={\"action\":\"synctime\",\"newtime\":0}");
        order("time before 0", "data={\"action\":\"synctime\",\"newtime\":-5}");
    }
    void refusals()
    {
        QFETCH(const QString, target);
        QFETCH(const QStringList, options);
        QFETCH(const QByteArray, status);
        startArray();
        const QByteArray file = m_array->configFile();
        const CurlRun run = get(target, options + statusOption());
        QCOMPARE(run.output, status);
        QCOMPARE(m_array->configFile(), file);
        QVERIFY(qAbs(m_array->deviceTime() - QDateTime::currentSecsSinceEpoch()) < 60);
        QCOMPARE(m_array->counters().badRequests, 1U);
    }

    void faults_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("output");
        constexpr int kPartialFile = 18;
        constexpr int kEmptyReply = 52;
        constexpr int kReceiveError = 56;
        constexpr int kTimedOut = 28;
        QTest::newRow("404") << QStringLiteral("status:value=404") << 0 << QByteArray("no\n404");
        QTest::newRow("500") << QStringLiteral("status") << 0 << QByteArray("no\n500");
        QTest::newRow("empty") << QStringLiteral("empty") << 0 << QByteArray("200");
        QTest::newRow("malformed") << QStringLiteral("malformed:value=14") << 0
                                   << QByteArray("{\"serialNumber200");
        QTest::newRow("foreign") << QStringLiteral("foreign-serial:value=77") << 0
                                 << QByteArray("{\"serialNumber\":77,");
        QTest::newRow("late") << QStringLiteral("slow:value=50") << 0 << QByteArray("{\"serialNumber\":600,");
        QTest::newRow("silent") << QStringLiteral("silence") << kTimedOut << QByteArray();
        QTest::newRow("closed at once") << QStringLiteral("close:value=1") << kEmptyReply << QByteArray();
        QTest::newRow("closed within") << QStringLiteral("close:value=120") << kPartialFile << QByteArray();
        QTest::newRow("reset") << QStringLiteral("reset:value=1") << kReceiveError << QByteArray();
        QTest::newRow("refused") << QStringLiteral("refuse") << kReceiveError << QByteArray();
    }
    void faults()
    {
        QFETCH(const QString, fault);
        QFETCH(const int, exitCode);
        QFETCH(const QByteArray, output);
        startArray(fault + (fault.contains(u':') ? u',' : u':') + QStringLiteral("times=1"));
        const QStringList options{QStringLiteral("-w"), QStringLiteral("%{http_code}"),
                                  QStringLiteral("--max-time"),
                                  exitCode == 28 ? QStringLiteral("1") : QStringLiteral("20")};
        const CurlRun run = get(QStringLiteral("/cgi-bin/Status.cgi?"), options);
        QVERIFY2(run.exitCode == exitCode, run.errors + QByteArray::number(run.exitCode));
        if (exitCode == 0)
            QVERIFY2(run.output.startsWith(output), run.output);
        QCOMPARE(m_array->counters().faults, 1U);
        // It goes on as before.
        QCOMPARE(get(QStringLiteral("/cgi-bin/Status.cgi?"), statusOption()).output, QByteArray("200"));
    }

    void longHeadIsNoRequest()
    {
        startArray();
        QTcpSocket socket;
        socket.connectToHost(QHostAddress(QStringLiteral("127.98.1.1")), m_array->httpPort());
        socket.write("GET / HTTP/1.1\r\nX: " + QByteArray(20000, 'x'));
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(m_array->counters().badRequests, 1U);
        QVERIFY(m_array->targets().empty());
    }

    void connectionsAreBounded()
    {
        startArray();
        std::vector<std::unique_ptr<QTcpSocket>> sockets;
        for (int i = 0; i < 66; ++i) {
            sockets.push_back(std::make_unique<QTcpSocket>());
            sockets.back()->connectToHost(QHostAddress(QStringLiteral("127.98.1.1")), m_array->httpPort());
        }
        QTRY_COMPARE(m_array->counters().connectionsCut, 2U);
        // Who leaves makes room.
        sockets.clear();
        QTRY_COMPARE(get(QStringLiteral("/cgi-bin/Status.cgi?"), statusOption()).output, QByteArray("200"));
    }

    void readerThatTakesNoReplies()
    {
        startArray();
        QTcpSocket socket;
        socket.setReadBufferSize(1000);
        socket.connectToHost(QHostAddress(QStringLiteral("127.98.1.1")), m_array->httpPort());
        constexpr uint64_t kCount = 100000;
        QSignalSpy asked(m_array.get(), &SimulatedArray::requestReceived);
        socket.write(QByteArray("GET /cgi-bin/Status.cgi? HTTP/1.1\r\n\r\n").repeated(kCount));
        while (m_array->counters().requests < kCount && asked.wait(500)) {
        }
        QVERIFY(m_array->counters().requests > 0);
        QVERIFY2(m_array->counters().requests < kCount, "all are answered, though nobody reads");
        // Whoever reads on is served on.
        socket.setReadBufferSize(0);
        connect(&socket, &QTcpSocket::readyRead, this, [&] { socket.readAll(); });
        socket.readAll();
        QTRY_COMPARE(m_array->counters().requests, kCount);
    }

    void latestTargetsAreKept()
    {
        startArray();
        QTcpSocket socket;
        socket.connectToHost(QHostAddress(QStringLiteral("127.98.1.1")), m_array->httpPort());
        for (int i = 0; i < 4100; ++i)
            socket.write("GET /" + QByteArray::number(i) + " HTTP/1.1\r\n\r\n");
        QTRY_COMPARE(m_array->counters().requests, 4100U);
        QCOMPARE(m_array->targets().size(), size_t{4096});
        QCOMPARE(m_array->targets().front(), QByteArray("/4"));
        QCOMPARE(m_array->targets().back(), QByteArray("/4099"));
    }
};

QTEST_GUILESS_MAIN(tst_SimulatedArrayHttp)
#include "tst_SimulatedArrayHttp.moc"
