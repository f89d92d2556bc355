#include "CurlRun.h"
#include "NvxQtSimulator/SimulatedArray.h"
#include "tests/support/NvxTestCase.h"

#include <QPointer>
#include <QTcpSocket>
#include <QThread>

class tst_SimulatedArray : public NvxTestCase
{
    Q_OBJECT

private:
    static ArraySettings settings()
    {
        ArraySettings made;
        made.address = QHostAddress(QStringLiteral("127.98.1.4"));
        made.httpPort = made.ftpPort = made.framePort = 0;
        return made;
    }
    static QString httpUrl(quint16 port)
    {
        return QStringLiteral("http://127.98.1.4:%1/cgi-bin/Status.cgi?").arg(port);
    }

private Q_SLOTS:
    // --- happy flows
    void portsAreTold()
    {
        SimulatedArray array(settings());
        QVERIFY(array.listeningTexts().isEmpty());
        QVERIFY2(array.start(), qPrintable(array.errorString()));
        QVERIFY(array.isListening());
        QVERIFY(array.httpPort() != 0 && array.ftpPort() != 0 && array.framePort() != 0);
        QCOMPARE(array.listeningTexts().size(), 3);
        QCOMPARE(array.listeningTexts()[1],
                 QStringLiteral("ftp        TCP 127.98.1.4:%1").arg(array.ftpPort()));
        const quint16 port = array.httpPort();
        QVERIFY(array.start());
        QCOMPARE(array.httpPort(), port);
        array.stop();
        QCOMPARE(array.httpPort(), quint16{0});
        QVERIFY(!array.isListening());
    }

    void settingsComeInsideTheirRanges()
    {
        ArraySettings made = settings();
        made.channels = ArraySettings::makeChannels(70);
        made.sampleRate = 0;
        made.points = 1000;
        made.framesPerSecond = 5000;
        const SimulatedArray array(made);
        QCOMPARE(array.settings().channels.size(), size_t{64});
        QCOMPARE(array.settings().sampleRate, 1U);
        QCOMPARE(array.settings().points, uint16_t{512});
        QCOMPARE(array.settings().framesPerSecond, 1000U);
    }

    void arrayWithoutChannelsHasAFile()
    {
        ArraySettings made = settings();
        made.channels.clear();
        SimulatedArray array(made);
        QVERIFY(array.start());
        QVERIFY(array.configFile().contains("$ARRAY_SERIALS=\n"));
        QVERIFY(CurlRun({httpUrl(array.httpPort())}).output.endsWith("\"devs\":[]}"));
    }

    void worksOnAThreadOfItsOwn()
    {
        QThread thread;
        auto* array = new SimulatedArray(settings());
        array->moveToThread(&thread);
        connect(&thread, &QThread::finished, array, &QObject::deleteLater);
        thread.start();
        bool isListening = false;
        quint16 port = 0;
        QMetaObject::invokeMethod(
            array,
            [&] {
                isListening = array->start();
                port = array->httpPort();
            },
            Qt::BlockingQueuedConnection);
        QVERIFY(isListening);
        QVERIFY(CurlRun({httpUrl(port)}).output.startsWith("{\"serialNumber\":600,"));
        thread.quit();
        QVERIFY(thread.wait());
    }

    // --- rainy day flows
    void takenPortIsNamed()
    {
        SimulatedArray first(settings());
        QVERIFY(first.start());
        ArraySettings made = settings();
        made.ftpPort = first.ftpPort();
        SimulatedArray second(made);
        QVERIFY(!second.start());
        QVERIFY2(second.errorString().startsWith(
                     QStringLiteral("TCP port %1 of 127.98.1.4: ").arg(first.ftpPort())),
                 qPrintable(second.errorString()));
        QVERIFY(!second.isListening());
        QCOMPARE(second.httpPort(), quint16{0});
        first.stop();
        QVERIFY2(second.start(), qPrintable(second.errorString()));
    }

    void rolesThatAreNotPlayedRefuse()
    {
        ArraySettings made = settings();
        made.roles = ArrayRoleHttp;
        SimulatedArray array(made);
        QVERIFY(array.start());
        QCOMPARE(array.listeningTexts().size(), 1);
        QCOMPARE(array.ftpPort(), quint16{0});
        QCOMPARE(array.framePort(), quint16{0});
    }

    void stopEndsEveryConnection()
    {
        SimulatedArray array(settings());
        QVERIFY(array.start());
        QTcpSocket sockets[3];
        const quint16 ports[] = {array.httpPort(), array.ftpPort(), array.framePort()};
        for (int i = 0; i < 3; ++i) {
            sockets[i].connectToHost(array.settings().address, ports[i]);
            QTRY_COMPARE(sockets[i].state(), QAbstractSocket::ConnectedState);
        }
        // A greeting means that the session stands.
        QTRY_VERIFY(sockets[1].bytesAvailable() > 0);
        array.stop();
        for (QTcpSocket& socket : sockets)
            QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    }

    void slotsMayDeleteIt_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("http") << QStringList{QStringLiteral("http://127.98.1.4:%1/")};
        QTest::newRow("ftp") << QStringList{QStringLiteral("ftp://127.98.1.4:%2/Config/JOBSETUP.CFG")};
        QTest::newRow("frames") << QStringList{
            QStringLiteral("-H"),        QStringLiteral("Upgrade: websocket"),
            QStringLiteral("-H"),        QStringLiteral("Connection: Upgrade"),
            QStringLiteral("-H"),        QStringLiteral("Sec-WebSocket-Version: 13"),
            QStringLiteral("-H"),        QStringLiteral("Sec-WebSocket-Key: MDEyMzQ1Njc4OWFiY2RlZg=="),
            QStringLiteral("-H"),        QStringLiteral("Origin: x"),
            QStringLiteral("--http1.1"), QStringLiteral("-o"),
            QStringLiteral("/dev/null"), QStringLiteral("http://127.98.1.4:%3/")};
    }
    void slotsMayDeleteIt()
    {
        QFETCH(QStringList, arguments);
        auto* array = new SimulatedArray(settings());
        const QPointer<SimulatedArray> guard(array);
        const auto end = [array] { delete array; };
        connect(array, &SimulatedArray::requestReceived, this, end);
        connect(array, &SimulatedArray::configFileRead, this, end);
        connect(array, &SimulatedArray::frameClientOpened, this, end);
        QVERIFY(array->start());
        arguments.last().replace(QStringLiteral("%1"), QString::number(array->httpPort()));
        arguments.last().replace(QStringLiteral("%2"), QString::number(array->ftpPort()));
        arguments.last().replace(QStringLiteral("%3"), QString::number(array->framePort()));
        const CurlRun run(arguments);
        QVERIFY(run.exitCode >= 0);
        QTRY_VERIFY(guard.isNull());
    }
};

QTEST_GUILESS_MAIN(tst_SimulatedArray)
#include "tst_SimulatedArray.moc"
