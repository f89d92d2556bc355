#include "NvxQtCommon/transfer/QFtp.h"
#include "tests/support/NvxTestCase.h"
#include "tests/transfer/FtpRun.h"
#include "tests/transfer/ScriptedFtpServer.h"

namespace {

const QString kWords = QStringLiteral("connect login list cd get put rename close");

/// Names and sizes that make about two thousand bytes of session.
void setSession(ScriptedFtpServer& server)
{
    server.greeting = "220-Welcome\r\n220 Ready\r\n";
    server.listing.clear();
    for (int i = 0; i < 10; ++i)
        server.listing += "-rw-r--r-- 1 ftp ftp 10 Mar 04 2021 " + QByteArray::number(i) + ".wav\r\n";
    server.file.clear();
    for (int i = 0; i < 1000; ++i)
        server.file += char(i);
}

qint64 controlBytes()
{
    ScriptedFtpServer server(QHostAddress(QStringLiteral("127.62.6.2")));
    setSession(server);
    QFtp ftp;
    FtpRun run(ftp, server.host(), server.port());
    if (!run.run(kWords) || run.doneError)
        return -1;
    return server.controlSent();
}

} // namespace

/// A session that is cut after each of its bytes: each command that began ends in exactly one result, and the
/// client is ready for the next session at once.
class tst_QFtpCut : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- rainy day flows
    void controlIsCut_data();
    void controlIsCut();
    void resetAtOnceEndsByTheLimit();
    void dataIsCut();
    void dataIsCutAndNothingFollows();
    void uploadIsCut_data();
    void uploadIsCut();
};

void tst_QFtpCut::controlIsCut_data()
{
    QTest::addColumn<bool>("isReset");
    QTest::newRow("closed") << false;
    QTest::newRow("reset") << true;
}

void tst_QFtpCut::controlIsCut()
{
    QFETCH(bool, isReset);
    const qint64 all = controlBytes();
    QVERIFY2(all > 300, qPrintable(QString::number(all)));
    ScriptedFtpServer server(QHostAddress(QStringLiteral("127.62.6.2")));
    setSession(server);
    server.isCutByReset = isReset;
    QFtp ftp;
    const QStringList words = kWords.split(u' ');
    // Qt takes a connection that is reset before it has noticed it for one to try again.
    const qint64 first = isReset ? server.greeting.size() + 1 : 0;
    for (qint64 limit = first; limit <= all; ++limit) {
        setSession(server);
        server.controlLimit = limit;
        FtpRun run(ftp, server.host(), server.port());
        QVERIFY2(run.run(kWords), qPrintable(QString::number(limit)));
        QCOMPARE(run.started.size(), run.finished.size());
        QCOMPARE(run.doneCount, 1);
        // All went well up to one, which failed, and none behind it began. What closes after its reply is
        // whole has been told to by then.
        const qsizetype good = run.finished.size() - 1;
        QVERIFY(good >= 0 && good < words.size());
        for (qsizetype i = 0; i < good; ++i)
            QCOMPARE(run.finished[i], words[i]);
        QCOMPARE(run.finished[good], words[good] + QLatin1String(run.doneError ? "!" : ""));
        QVERIFY(run.doneError || good == words.size() - 1);
        QCOMPARE(ftp.state(), QFtp::Unconnected);
        QVERIFY(!ftp.hasPendingCommands());
        QVERIFY(server.file.startsWith(run.received()));
        if (run.doneError)
            QVERIFY(run.errorText == u"Connection closed" || run.errorText == u"Not connected");
    }
}

void tst_QFtpCut::resetAtOnceEndsByTheLimit()
{
    ScriptedFtpServer server(QHostAddress(QStringLiteral("127.62.6.2")));
    server.isCutByReset = true;
    server.controlLimit = 0;
    QFtp ftp;
    ftp.setInactivityLimit(300);
    FtpRun run(ftp, server.host(), server.port());
    QVERIFY(run.run(kWords));
    QCOMPARE(run.outcome(), QStringLiteral("connect!"));
    QCOMPARE(run.doneCount, 1);
    QCOMPARE(ftp.state(), QFtp::Unconnected);
}

void tst_QFtpCut::dataIsCut()
{
    ScriptedFtpServer server(QHostAddress(QStringLiteral("127.62.6.2")));
    setSession(server);
    const qint64 all = server.listing.size() + server.file.size();
    QFtp ftp;
    for (qint64 limit = 0; limit <= all; ++limit) {
        setSession(server);
        server.dataLimit = limit;
        FtpRun run(ftp, server.host(), server.port());
        QVERIFY2(run.run(kWords), qPrintable(QString::number(limit)));
        // Intended: a data connection that is cut ahead of the server's 226 counts as success.
        QCOMPARE(run.outcome(), kWords);
        const qint64 ofListing = qMin<qint64>(limit, server.listing.size());
        QCOMPARE(run.entryCount, server.listing.first(ofListing).count('\n'));
        QCOMPARE(run.received(), server.file.first(limit - ofListing));
        QCOMPARE(run.doneCount, 1);
    }
}

void tst_QFtpCut::dataIsCutAndNothingFollows()
{
    ScriptedFtpServer server(QHostAddress(QStringLiteral("127.62.6.2")));
    QFtp ftp;
    for (qint64 limit = 0; limit <= 10; ++limit) {
        server.dataLimit = limit;
        server.handle("RETR", [](ScriptedFtpServer& s, const QByteArray&) {
            s.reply("150 File\r\n");
            s.sendFile(s.file, "");
        });
        FtpRun run(ftp, server.host(), server.port());
        run.queue(QStringLiteral("connect login get close"));
        connect(&ftp, &QFtp::commandStarted, &run,
                [&ftp] { ftp.setInactivityLimit(ftp.currentCommand() == QFtp::Get ? 200 : 0); });
        QVERIFY(run.waitForDone());
        QCOMPARE(run.outcome(), QStringLiteral("connect login get!"));
        QCOMPARE(run.doneCount, 1);
        QCOMPARE(ftp.state(), QFtp::Unconnected);
    }
}

void tst_QFtpCut::uploadIsCut_data()
{
    QTest::addColumn<bool>("isReset");
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("closed and refused") << false << QByteArray("426 Cut\r\n");
    QTest::newRow("reset and refused") << true << QByteArray("426 Cut\r\n");
    QTest::newRow("closed and called done") << false << QByteArray("226 Taken\r\n");
    QTest::newRow("reset and called done") << true << QByteArray("226 Taken\r\n");
}

void tst_QFtpCut::uploadIsCut()
{
    QFETCH(bool, isReset);
    QFETCH(QByteArray, reply);
    ScriptedFtpServer server(QHostAddress(QStringLiteral("127.62.6.2")));
    QFtp ftp;
    FtpRun(ftp, server.host(), server.port()).run(QStringLiteral("connect login"));
    QByteArray bytes;
    for (int i = 0; i < 300; ++i)
        bytes += char(i);
    for (qsizetype limit = 0; limit <= bytes.size(); ++limit) {
        server.uploaded.clear();
        server.handle("STOR", [&](ScriptedFtpServer& s, const QByteArray&) {
            s.reply("150 Come\r\n");
            s.withData([&](QTcpSocket& data) {
                const auto take = [&] {
                    s.uploaded += data.read(limit - s.uploaded.size());
                    if (s.uploaded.size() < limit)
                        return;
                    data.disconnect(&s);
                    if (isReset)
                        ScriptedFtpServer::sendReset(data);
                    else
                        data.abort();
                    s.reply(reply);
                };
                QObject::connect(&data, &QTcpSocket::readyRead, &s, take);
                take();
            });
        });
        FtpRun run(ftp, server.host(), server.port());
        run.toPut = bytes;
        QVERIFY2(run.run(QStringLiteral("put raw:NOOP")), qPrintable(QString::number(limit)));
        QCOMPARE(server.uploaded, bytes.first(limit));
        QCOMPARE(run.doneCount, 1);
        QCOMPARE(run.started.size(), run.finished.size());
        if (reply.startsWith("426")) {
            QCOMPARE(run.outcome(), QStringLiteral("put!"));
            QCOMPARE(run.errorText, QStringLiteral("Uploading file failed:\nCut"));
        } else {
            // Bytes that have left are sent as far as the client can know.
            QVERIFY(run.outcome() == u"put raw:NOOP" ||
                    run.errorText ==
                        u"Uploading file failed:\nThe data connection was closed before all was sent");
        }
        QCOMPARE(ftp.state(), QFtp::LoggedIn);
        QVERIFY(!ftp.hasPendingCommands());
    }
    QCOMPARE(server.connections, 1);
}

QTEST_GUILESS_MAIN(tst_QFtpCut)
#include "tst_QFtpCut.moc"
