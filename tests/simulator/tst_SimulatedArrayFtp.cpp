#include "CurlRun.h"
#include "NvxQtSimulator/SimulatedArray.h"
#include "tests/support/NvxTestCase.h"

#include <QFile>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>

// The FTP server of a simulated array controller, as curl sees it.

class tst_SimulatedArrayFtp : public NvxTestCase
{
    Q_OBJECT

private:
    std::unique_ptr<SimulatedArray> m_array;
    QTemporaryDir m_folder;

    void startArray(const QString& fault = {})
    {
        ArraySettings settings;
        settings.address = QHostAddress(QStringLiteral("127.98.1.2"));
        settings.ftpPort = 0;
        settings.roles = ArrayRoleFtp;
        settings.channels = ArraySettings::makeChannels(3, 1001);
        m_array = std::make_unique<SimulatedArray>(settings);
        if (!fault.isEmpty()) {
            FaultPlan plan(1);
            plan.add(FaultRule::fromText(fault).value());
            m_array->setFaults(plan);
        }
        QVERIFY2(m_array->start(), qPrintable(m_array->errorString()));
    }
    QString url(const QString& path) const
    {
        return QStringLiteral("ftp://127.98.1.2:%1/%2").arg(m_array->ftpPort()).arg(path);
    }
    CurlRun fetch(const QStringList& options = {}) const
    {
        return CurlRun(options + QStringList{url(QStringLiteral("Config/JOBSETUP.CFG"))});
    }
    CurlRun store(const QByteArray& bytes)
    {
        QFile file(m_folder.filePath(QStringLiteral("new.cfg")));
        if (!file.open(QIODevice::WriteOnly))
            qFatal("no file to send");
        file.write(bytes);
        file.close();
        return CurlRun({QStringLiteral("-T"), file.fileName(), url(QStringLiteral("Config/JOBSETUP.CFG"))});
    }

private Q_SLOTS:
    // --- happy flows
    void fileIsFetched_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::newRow("extended passive") << QStringList();
        QTest::newRow("passive") << QStringList{QStringLiteral("--disable-epsv")};
        QTest::newRow("without folders")
            << QStringList{QStringLiteral("--ftp-method"), QStringLiteral("nocwd")};
        QTest::newRow("as a user") << QStringList{QStringLiteral("-u"), QStringLiteral("me:secret")};
    }
    void fileIsFetched()
    {
        QFETCH(const QStringList, options);
        startArray();
        QSignalSpy spy(m_array.get(), &SimulatedArray::configFileRead);
        const CurlRun run = fetch(options);
        QVERIFY2(run.exitCode == 0, run.errors);
        QCOMPARE(run.output, m_array->configFile());
        QVERIFY(run.output.contains("\n$ARRAY_SERIALS=1001,1002,1003\n"));
        QVERIFY(run.output.contains("\n$WAVE_SAMPLE_RATE=48000\n"));
        QTRY_COMPARE(spy.size(), 1);
        QCOMPARE(m_array->counters().fileReads, 1U);
    }

    void fileIsStored()
    {
        startArray();
        QSignalSpy spy(m_array.get(), &SimulatedArray::configFileWritten);
        const QByteArray file("; mine\r\n$WAVE_SAMPLE_RATE=192000\n$FFT_REF_LEVEL=-90\nno feed");
        const CurlRun run = store(file);
        QVERIFY2(run.exitCode == 0, run.errors);
        QTRY_COMPARE(spy.size(), 1);
        QCOMPARE(m_array->configFile(), file);
        QCOMPARE(m_array->jobSettings().wavRate(), SampRate{192000});
        QCOMPARE(m_array->jobSettings().fftRef(), -90);
        QCOMPARE(fetch().output, file);
    }

    void sizes_data()
    {
        QTest::addColumn<int>("size");
        for (const int size : {0, 1, 65536, 3000000})
            QTest::newRow(qPrintable(QString::number(size))) << size;
    }
    void sizes()
    {
        QFETCH(const int, size);
        startArray();
        QByteArray file(size, '\0');
        for (qsizetype i = 0; i < file.size(); ++i)
            file[i] = char(i * 7);
        QCOMPARE(store(file).exitCode, 0);
        QTRY_COMPARE(m_array->counters().fileWrites, 1U);
        QVERIFY(m_array->configFile() == file);
        QVERIFY(fetch().output == file);
    }

    // --- rainy day flows
    void otherFilesAreNotThere_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("name") << QStringLiteral("Config/OTHER.CFG");
        QTest::newRow("case") << QStringLiteral("Config/jobsetup.cfg");
        QTest::newRow("folder") << QStringLiteral("Data/JOBSETUP.CFG");
        QTest::newRow("root") << QStringLiteral("JOBSETUP.CFG");
        QTest::newRow("above") << QStringLiteral("%2e%2e/%2e%2e/etc/passwd");
        QTest::newRow("absolute") << QStringLiteral("%2fetc/passwd");
    }
    void otherFilesAreNotThere()
    {
        QFETCH(const QString, path);
        startArray();
        const CurlRun run({url(path)});
        QVERIFY(run.exitCode == 9 || run.exitCode == 78);
        QVERIFY(run.output.isEmpty());
    }

    void faults_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<int>("bytes");
        QTest::newRow("empty") << QStringLiteral("empty") << 18 << 0;
        QTest::newRow("malformed") << QStringLiteral("malformed:value=30") << 18 << 30;
        QTest::newRow("cut") << QStringLiteral("close:value=30") << 18 << 30;
        QTest::newRow("550") << QStringLiteral("status") << 78 << 0;
        QTest::newRow("451") << QStringLiteral("status:value=451") << 19 << 0;
        QTest::newRow("silent") << QStringLiteral("silence:after=3") << 28 << 0;
        QTest::newRow("refused") << QStringLiteral("refuse") << 56 << 0;
        QTest::newRow("late") << QStringLiteral("slow:value=50") << 0 << -1;
    }
    void faults()
    {
        QFETCH(const QString, fault);
        QFETCH(const int, exitCode);
        QFETCH(const int, bytes);
        startArray(fault + (fault.contains(u':') ? u',' : u':') + QStringLiteral("times=1"));
        const CurlRun run = fetch(
            {QStringLiteral("--max-time"), exitCode == 28 ? QStringLiteral("1") : QStringLiteral("20")});
        // A reset may come before or behind curl's first look at the connection.
        const bool isExpected = run.exitCode == exitCode || (fault == u"refuse" && run.exitCode > 0);
        QVERIFY2(isExpected, run.errors + QByteArray::number(run.exitCode));
        QCOMPARE(run.output.size(), bytes < 0 ? m_array->configFile().size() : bytes);
        QCOMPARE(m_array->counters().faults, 1U);
        // It goes on as before.
        QCOMPARE(fetch().output, m_array->configFile());
    }

    void tooLongFileIsRefused()
    {
        startArray();
        const QByteArray before = m_array->configFile();
        QVERIFY(store(QByteArray(33 * 1024 * 1024, 'x')).exitCode != 0);
        QCOMPARE(m_array->configFile(), before);
        QVERIFY(!m_array->setConfigFile(QByteArray(33 * 1024 * 1024, 'x')));
        QCOMPARE(m_array->configFile(), before);
        QCOMPARE(fetch().output, before);
    }

    void commandsOutOfOrder()
    {
        startArray();
        QTcpSocket socket;
        socket.connectToHost(QHostAddress(QStringLiteral("127.98.1.2")), m_array->ftpPort());
        QByteArray replies;
        connect(&socket, &QTcpSocket::readyRead, this, [&] { replies += socket.readAll(); });
        QTRY_VERIFY(replies.endsWith("\r\n"));
        const auto ask = [&](const QByteArray& line) {
            replies.clear();
            socket.write(line + "\r\n");
            return QTest::qWaitFor([&] { return replies.endsWith("\r\n"); }, kPatienceMs) ? replies.first(3)
                                                                                          : QByteArray();
        };
        QCOMPARE(ask("RETR /Config/JOBSETUP.CFG"), QByteArray("530"));
        QCOMPARE(ask("PASS"), QByteArray("230"));
        QCOMPARE(ask("RETR /Config/JOBSETUP.CFG"), QByteArray("425"));
        QCOMPARE(ask("SIZE /Config/JOBSETUP.CFG"), QByteArray("213"));
        QCOMPARE(ask("SIZE /Config"), QByteArray("550"));
        QCOMPARE(ask("CWD Config"), QByteArray("250"));
        QCOMPARE(ask("PWD"), QByteArray("257"));
        QCOMPARE(ask("SIZE JOBSETUP.CFG"), QByteArray("213"));
        QCOMPARE(ask("TYPE E"), QByteArray("504"));
        QCOMPARE(ask("DELE JOBSETUP.CFG"), QByteArray("502"));
        QCOMPARE(ask("PASV"), QByteArray("227"));
        QCOMPARE(ask("ABOR"), QByteArray("226"));
        QCOMPARE(ask("STOR JOBSETUP.CFG"), QByteArray("425"));
        QCOMPARE(ask("PASV"), QByteArray("227"));
        QCOMPARE(ask("RETR JOBSETUP.CFG"), QByteArray("150"));
        QCOMPARE(ask("RETR JOBSETUP.CFG"), QByteArray("425"));
        QCOMPARE(ask("QUIT"), QByteArray("221"));
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(m_array->counters().fileReads, 0U);
    }

    void lateRepliesStayInOrder()
    {
        startArray(QStringLiteral("slow:value=200,times=1"));
        QTcpSocket socket;
        socket.connectToHost(QHostAddress(QStringLiteral("127.98.1.2")), m_array->ftpPort());
        socket.write("USER a\r\nPASS b\r\nSYST\r\nQUIT\r\n");
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QByteArray codes;
        for (const QByteArray& line : socket.readAll().split('\n'))
            codes += line.first(std::min<qsizetype>(line.size(), 3)) + ' ';
        QCOMPARE(codes, QByteArray("220 331 230 215 221  "));
    }

    void heldSessionGoesOn()
    {
        startArray(QStringLiteral("slow:value=200,times=1"));
        QTcpSocket socket;
        socket.connectToHost(QHostAddress(QStringLiteral("127.98.1.2")), m_array->ftpPort());
        // Far more than the session reads at once.
        socket.write("USER a\r\nPASS b\r\n" + QByteArray("NOOP\r\n").repeated(10000) + "QUIT\r\n");
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        const QByteArray replies = socket.readAll();
        QCOMPARE(replies.count("200 "), 10000);
        QVERIFY(replies.contains("\r\n221 "));
    }

    void strangersGetNoData()
    {
        startArray();
        const QHostAddress address(QStringLiteral("127.98.1.2"));
        QTcpSocket control;
        control.connectToHost(address, m_array->ftpPort());
        control.write("USER a\r\nPASS b\r\nEPSV\r\n");
        QByteArray replies;
        connect(&control, &QTcpSocket::readyRead, this, [&] { replies += control.readAll(); });
        QTRY_VERIFY(replies.endsWith("|)\r\n"));
        const auto port = replies.mid(replies.indexOf("(|||") + 4).chopped(4).toUShort();
        QVERIFY(port != 0);
        QTcpSocket stranger;
        QVERIFY(stranger.bind(QHostAddress(QStringLiteral("127.98.1.9"))));
        QSignalSpy connected(&stranger, &QTcpSocket::connected);
        stranger.connectToHost(address, port);
        QTRY_COMPARE(connected.size(), 1);
        control.write("RETR Config/JOBSETUP.CFG\r\n");
        QTRY_COMPARE(stranger.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(stranger.bytesAvailable(), 0);
        // The one who asked still gets the file.
        QTcpSocket data;
        data.connectToHost(address, port);
        QTRY_COMPARE(data.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(data.readAll(), m_array->configFile());
    }

    void longLineEndsTheConnection()
    {
        startArray();
        QTcpSocket socket;
        socket.connectToHost(QHostAddress(QStringLiteral("127.98.1.2")), m_array->ftpPort());
        socket.write(QByteArray(100000, 'x'));
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(fetch().exitCode, 0);
    }
};

QTEST_GUILESS_MAIN(tst_SimulatedArrayFtp)
#include "tst_SimulatedArrayFtp.moc"
