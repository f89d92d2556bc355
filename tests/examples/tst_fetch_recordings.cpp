#include "tests/examples/ExampleRun.h"
#include "tests/transfer/FtpCase.h"

#include <QRegularExpression>

namespace {

const QString kFirst = QStringLiteral("127.94.7.1");
const QString kSecond = QStringLiteral("127.94.7.2");
const QString kNobody = QStringLiteral("127.94.7.99");

QString recording(int serial, int minute)
{
    return QStringLiteral("REC%1_20210304_05%2%3.wav")
        .arg(serial)
        .arg(minute, 2, 10, QLatin1Char('0'))
        .arg("00");
}

} // namespace

/// The program fetch-recordings, against packaged servers.
class tst_fetch_recordings : public FtpCase
{
    Q_OBJECT

public:
    tst_fetch_recordings() : FtpCase(kFirst) {}

private Q_SLOTS:
    // --- happy flows
    void twoRecorders();
    void addressesBehindOneHost();
    void dataFromTheRecorderItself();
    void recordingsOfAnyTime();
    void returnPausesAndGoesOn_data();
    void returnPausesAndGoesOn();
    // --- rainy day flows
    void wrongUse_data();
    void wrongUse();
    void nothingFound();
    void recorderThatIsNotThere();
    void refusedFile();
    void serverThatGoesAndComesBack();
    void directoryThatCannotBeMade();
    void endedByTheUser();
    void endedWhileItLists();

private:
    bool offer(const QString& folder, const QString& name, const QByteArray& bytes)
    {
        return QDir(folder).mkpath(QStringLiteral("Data")) && makeFile(folder + "/Data/" + name, bytes);
    }
    QStringList arguments(const QStringList& hosts) const
    {
        QStringList words{QStringLiteral("--from"), QStringLiteral("2021-03-04T05:00:00"),
                          QStringLiteral("--to"),   QStringLiteral("2021-03-04T05:59:00"),
                          QStringLiteral("--out"),  out()};
        for (const QString& host : hosts)
            words << QStringLiteral("--host") << host;
        return words;
    }
    QString out() const { return m_client->filePath(QStringLiteral("new/folder")); }
    QStringList fetched() const { return QDir(out()).entryList(QDir::Files); }
    /// Starts the program and waits until it has told of bytes that came.
    bool startUntilProgress(QProcess& program, const QStringList& words, QByteArray& output)
    {
        program.start(QStringLiteral(NVX_FETCH_RECORDINGS), words);
        return QTest::qWaitFor(
            [&] {
                output += program.readAllStandardOutput();
                return output.contains("\nin all ");
            },
            kPatienceMs);
    }
};

void tst_fetch_recordings::twoRecorders()
{
    QVERIFY(offer(m_server->path(), recording(7, 1), "one"));
    QVERIFY(offer(m_server->path(), QStringLiteral("REC7_20210304_060000.wav"), "later"));
    QTemporaryDir other;
    QVERIFY(offer(other.path(), recording(8, 1), "other"));
    serve();
    FtpPeer second;
    QVERIFY2(second.start(kSecond, other.path()), qPrintable(second.errorText()));
    const ExampleRun run = runExample(NVX_FETCH_RECORDINGS, arguments({kFirst, kSecond}));
    QCOMPARE(run.code, 0);
    QCOMPARE(run.errors, QString());
    QCOMPARE(fetched(), QStringList({recording(7, 1), recording(8, 1)}));
    QCOMPARE(fileBytes(out() + "/" + recording(7, 1)), QByteArray("one"));
    QCOMPARE(fileBytes(out() + "/" + recording(8, 1)), QByteArray("other"));
    const QStringList lines = run.output.split(u'\n');
    for (const QString& line :
         {kFirst + " has 1 recordings", kSecond + " has 1 recordings",
          kFirst + " " + recording(7, 1) + " fetched, 3 bytes",
          QStringLiteral("2 files fetched (8 bytes), 0 failed, 0 cancelled, 0 recorders not listed")})
        QVERIFY2(lines.contains(line), qPrintable(run.output));
}

void tst_fetch_recordings::addressesBehindOneHost()
{
    QVERIFY(offer(m_server->path(), recording(7, 1), "one"));
    QTemporaryDir other;
    QVERIFY(offer(other.path(), recording(8, 1), "other"));
    serve();
    FtpPeer second;
    QVERIFY2(second.start(kSecond, other.path()), qPrintable(second.errorText()));
    const ExampleRun run = runExample(NVX_FETCH_RECORDINGS, arguments({kFirst}) << kSecond);
    QCOMPARE(run.code, 0);
    QCOMPARE(fetched(), QStringList({recording(7, 1), recording(8, 1)}));
}

void tst_fetch_recordings::dataFromTheRecorderItself()
{
    QVERIFY(offer(m_server->path(), recording(7, 1), "one"));
    // It names an address where nobody is, as a recorder behind a router may.
    serve({QStringLiteral("--masquerade"), kNobody});
    const ExampleRun run = runExample(NVX_FETCH_RECORDINGS, arguments({kFirst}) << "--tries"
                                                                                << "1");
    QCOMPARE(run.code, 0);
    QCOMPARE(fetched(), QStringList(recording(7, 1)));
}

void tst_fetch_recordings::recordingsOfAnyTime()
{
    QVERIFY(offer(m_server->path(), QStringLiteral("REC7_19990304_060000.wav"), "1"));
    serve();
    const ExampleRun run =
        runExample(NVX_FETCH_RECORDINGS, {QStringLiteral("--host"), kFirst, QStringLiteral("--out"), out()});
    QCOMPARE(run.code, 0);
    QCOMPARE(fetched(), QStringList("REC7_19990304_060000.wav"));
}

void tst_fetch_recordings::returnPausesAndGoesOn_data()
{
    QTest::addColumn<bool>("byEnd");
    QTest::newRow("return") << false;
    QTest::newRow("end of the input") << true;
}

void tst_fetch_recordings::returnPausesAndGoesOn()
{
    QFETCH(const bool, byEnd);
    const QByteArray bytes(40000000, 'x');
    QVERIFY(offer(m_server->path(), recording(7, 1), bytes));
    // It would take longer than anybody waits.
    serve({QStringLiteral("--rate"), QStringLiteral("400000")});
    QProcess program;
    QByteArray output;
    QVERIFY(startUntilProgress(program, arguments({kFirst}), output));
    const QRegularExpression line("\n  " + QRegularExpression::escape(kFirst + " " + recording(7, 1)) +
                                  ": \\d+ % of 40000000 bytes\n");
    QVERIFY2(QString::fromUtf8(output).contains(line), output.constData());
    QVERIFY2(QString::fromUtf8(output).contains(
                 QRegularExpression(QStringLiteral("\nin all \\d+ % of 40000000 bytes\n"))),
             output.constData());
    program.write("\n");
    QTRY_VERIFY((output += program.readAllStandardOutput()).contains("Paused; return goes on.\n"));
    m_peer->setRate(0);
    if (!byEnd)
        program.write("\n");
    else
        program.closeWriteChannel();
    QTRY_VERIFY((output += program.readAllStandardOutput()).contains("Going on.\n"));
    QTRY_COMPARE(program.state(), QProcess::NotRunning);
    QCOMPARE(program.exitCode(), 0);
    QVERIFY(fileBytes(out() + "/" + recording(7, 1)) == bytes);
}

void tst_fetch_recordings::wrongUse_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<QString>("complaint");
    QTest::newRow("no host") << QStringList() << "--host is missing.";
    QTest::newRow("no address") << QStringList({"--host", "recorder"})
                                << "--host takes an IPv4 address, not recorder.";
    QTest::newRow("no address behind one")
        << QStringList({"--host", kFirst, "recorder"}) << "--host takes an IPv4 address, not recorder.";
    QTest::newRow("one time") << QStringList({"--host", kFirst, "--from", "2021-03-04T05:00:00"})
                              << "--from and --to take times like 2024-02-29T12:40:00, in UTC.";
    QTest::newRow("no time") << QStringList({"--host", kFirst, "--from", "now", "--to", "then"})
                             << "--from and --to take times like 2024-02-29T12:40:00, in UTC.";
    QTest::newRow("no tries") << QStringList({"--host", kFirst, "--tries", "0"})
                              << "--tries takes a number from 1 on.";
}

void tst_fetch_recordings::wrongUse()
{
    QFETCH(const QStringList, words);
    QFETCH(const QString, complaint);
    const ExampleRun run = runExample(NVX_FETCH_RECORDINGS, words);
    QCOMPARE(run.code, 1);
    QCOMPARE(run.errors, QStringLiteral("fetch-recordings: ") + complaint + u'\n');
}

void tst_fetch_recordings::nothingFound()
{
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Data")));
    serve();
    QCOMPARE(runExample(NVX_FETCH_RECORDINGS, arguments({kFirst})).code, 2);
}

void tst_fetch_recordings::recorderThatIsNotThere()
{
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    serve();
    const ExampleRun run =
        runExample(NVX_FETCH_RECORDINGS, arguments({kFirst, kNobody}) + QStringList({"--tries", "2"}));
    QCOMPARE(run.code, 3);
    QCOMPARE(fetched(), QStringList(recording(7, 1)));
    QCOMPARE(run.output.count(kNobody + " is asked once more: Connection refused to host " + kNobody + "\n"),
             1);
    QVERIFY2(run.output.contains("not listed: " + kNobody + ": Connection refused to host " + kNobody + "\n"),
             qPrintable(run.output));
    QVERIFY2(run.output.endsWith(
                 QLatin1String("1 files fetched (1 bytes), 0 failed, 0 cancelled, 1 recorders not listed\n")),
             qPrintable(run.output));
}

void tst_fetch_recordings::refusedFile()
{
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    serve({QStringLiteral("--refuse"), QStringLiteral("RETR")});
    const ExampleRun run = runExample(NVX_FETCH_RECORDINGS, arguments({kFirst}) << "--tries"
                                                                                << "2");
    QCOMPARE(run.code, 3);
    const QStringList lines = run.output.split(u'\n');
    // Each on one line, though the client's text has two.
    for (const QString& line :
         {kFirst + " " + recording(7, 1) + " once more: Downloading file failed: Refused on demand.",
          kFirst + " " + recording(7, 1) + " failed: Downloading file failed: Refused on demand.",
          QStringLiteral("0 files fetched (0 bytes), 1 failed, 0 cancelled, 0 recorders not listed")})
        QVERIFY2(lines.contains(line), qPrintable(run.output));
    QCOMPARE(fetched(), QStringList());
}

void tst_fetch_recordings::serverThatGoesAndComesBack()
{
    QTemporaryDir other;
    for (int i = 0; i < 3; ++i) {
        QVERIFY(offer(m_server->path(), recording(7, i), QByteArray(9000000, char('a' + i))));
        QVERIFY(offer(other.path(), recording(8, i), QByteArray(300000, char('A' + i))));
    }
    // The first one's files can't be whole before it goes.
    serve({QStringLiteral("--rate"), QStringLiteral("200000")});
    FtpPeer second;
    QVERIFY2(second.start(kSecond, other.path(), {QStringLiteral("--rate"), QStringLiteral("200000")}),
             qPrintable(second.errorText()));
    QProcess program;
    QByteArray output;
    QVERIFY(startUntilProgress(program, arguments({kFirst, kSecond}), output));
    m_peer->stop();
    QTRY_VERIFY((output += program.readAllStandardOutput()).contains(" once more: "));
    serve();
    QTRY_COMPARE_WITH_TIMEOUT(program.state(), QProcess::NotRunning, 2 * kPatienceMs);
    output += program.readAllStandardOutput();
    QVERIFY2(
        output.endsWith("6 files fetched (27900000 bytes), 0 failed, 0 cancelled, 0 recorders not listed\n"),
        output.constData());
    QCOMPARE(program.exitCode(), 0);
    for (int i = 0; i < 3; ++i) {
        QVERIFY(fileBytes(out() + "/" + recording(7, i)) == QByteArray(9000000, char('a' + i)));
        QVERIFY(fileBytes(out() + "/" + recording(8, i)) == QByteArray(300000, char('A' + i)));
        QCOMPARE(output.count((kFirst + " " + recording(7, i) + " fetched, 9000000 bytes\n").toUtf8()), 1);
        QCOMPARE(output.count((kSecond + " " + recording(8, i) + " fetched, 300000 bytes\n").toUtf8()), 1);
    }
    QCOMPARE(fetched().size(), 6);
}

void tst_fetch_recordings::directoryThatCannotBeMade()
{
    QVERIFY(makeFile(m_client->filePath(QStringLiteral("new")), "a file"));
    QCOMPARE(runExample(NVX_FETCH_RECORDINGS, arguments({kFirst})).code, 5);
}

void tst_fetch_recordings::endedByTheUser()
{
    for (int i = 0; i < 5; ++i)
        QVERIFY(offer(m_server->path(), recording(7, i), QByteArray(3000000, 'x')));
    serve({QStringLiteral("--rate"), QStringLiteral("200000")});
    QProcess program;
    QByteArray output;
    QVERIFY(startUntilProgress(program, arguments({kFirst}), output));
    program.terminate();
    QTRY_COMPARE(program.state(), QProcess::NotRunning);
    output += program.readAllStandardOutput();
    QCOMPARE(program.exitCode(), 3);
    QVERIFY2(output.endsWith("0 files fetched (0 bytes), 0 failed, 5 cancelled, 0 recorders not listed\n"),
             output.constData());
    QVERIFY(output.contains((kFirst + " " + recording(7, 4) + " cancelled\n").toUtf8()));
    QCOMPARE(fetched(), QStringList());
}

void tst_fetch_recordings::endedWhileItLists()
{
    serve({QStringLiteral("--silent"), QStringLiteral("LIST")});
    QProcess program;
    program.start(QStringLiteral(NVX_FETCH_RECORDINGS), arguments({kFirst}));
    QTRY_COMPARE(m_peer->commands(QStringLiteral("LIST")).size(), 1);
    program.terminate();
    QTRY_COMPARE(program.state(), QProcess::NotRunning);
    QCOMPARE(program.exitCode(), 3);
    const QByteArray output = program.readAllStandardOutput();
    QVERIFY2(output.endsWith("not listed: " + kFirst.toUtf8() +
                             ": Cancelled\n0 files fetched (0 bytes), 0 failed, 0 cancelled, 1 recorders "
                             "not listed\n"),
             output.constData());
}

int main(int argc, char* argv[])
{
    return runFtpTest<tst_fetch_recordings>(argc, argv);
}

#include "tst_fetch_recordings.moc"
