#include "NvxQtCommon/transfer/NvxFtpDownloadHandler.h"
#include "tests/support/LogSpy.h"
#include "tests/transfer/RequestCase.h"

#include <QRegularExpression>

/// What a handler writes, and what pause, resume and cancel do to it.
class tst_NvxFtpDownloadHandler : public RequestCase
{
    Q_OBJECT

public:
    tst_NvxFtpDownloadHandler() : RequestCase(QStringLiteral("127.94.4.2")) {}

private Q_SLOTS:
    // --- happy flows
    void newHandler();
    void theFileIsMadeAnew();
    void noFileWithoutADownload_data();
    void noFileWithoutADownload();
    void writesWhatComes();
    void everyPieceIsFlushed();
    void pauseAndResume();
    void secondPauseAndResumeDoNothing();
    void cancelled();
    void bytesThatAreNotItsOwn_data();
    void bytesThatAreNotItsOwn();
    // --- rainy day flows
    void errorsAreLogged();
    void bytesBehindTheEnd();
    void pausedHandlerPassesOver();
    void fileThatCannotBeOpened();
    void fullDisk();
    void refusedName();
    void resumeAheadOfTheEndOfThePause();
    void resumedAheadOfItsDirectory();
    void resumedRemoval();

private:
    using Handler = NvxFtpDownloadHandler;

    /// Pauses the handler when its request begins this command.
    void pauseAt(Request& request, Handler& handler, QFtp::Command command);
};

void tst_NvxFtpDownloadHandler::newHandler()
{
    const auto request = makeRequest(QStringLiteral("a"));
    const Handler handler(request.get());
    QCOMPARE(handler.request(), request.get());
    QCOMPARE(handler.requestId(), request->requestId());
    QVERIFY(!handler.isPaused());
    QVERIFY(!handler.isCancelled());
}

void tst_NvxFtpDownloadHandler::theFileIsMadeAnew()
{
    QVERIFY(makeFile(local(QStringLiteral("b")), "old"));
    const auto request = makeRequest(QStringLiteral("a"), Request::DownloadWork, QStringLiteral("b"));
    const Handler handler(request.get());
    QCOMPARE(fileBytes(local(QStringLiteral("b"))), QByteArray());
}

void tst_NvxFtpDownloadHandler::noFileWithoutADownload_data()
{
    QTest::addColumn<int>("regime");
    QTest::newRow("no work") << int(Request::NoWork);
    QTest::newRow("removal") << int(Request::RemoveWork);
}

void tst_NvxFtpDownloadHandler::noFileWithoutADownload()
{
    QFETCH(const int, regime);
    QVERIFY(makeFile(local(QStringLiteral("a")), "old"));
    const auto request = makeRequest(QStringLiteral("a"), Request::WorkRegime(regime));
    Handler handler(request.get());
    handler.pause();
    handler.resume();
    handler.cancel();
    QCOMPARE(fileBytes(local(QStringLiteral("a"))), QByteArray("old"));
}

void tst_NvxFtpDownloadHandler::writesWhatComes()
{
    serve();
    QByteArray bytes(2000000, Qt::Uninitialized);
    for (qsizetype i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * i >> 3);
    QVERIFY(offer(QStringLiteral("a"), bytes));
    const auto request = makeRequest(QStringLiteral("a"), Request::DownloadWork, QStringLiteral("b"));
    Handler handler(request.get());
    QSignalSpy fileError(&handler, &Handler::fileError);
    qint64 flushed = 0;
    connect(request.get(), &Request::readyRead, this,
            [&] { flushed = QFileInfo(local(QStringLiteral("b"))).size(); });
    qint64 done = 0;
    connect(request.get(), &Request::progress, this,
            [&](int32_t, int64_t bytesDone, int64_t) { done = bytesDone; });
    request->startDownload();
    QVERIFY(waitForDone(*request, false));
    QCOMPARE(done, bytes.size());
    // Every piece was handed to the system when it had come.
    QCOMPARE(flushed, bytes.size());
    QVERIFY(fileBytes(local(QStringLiteral("b"))) == bytes);
    QCOMPARE(fileError.size(), 0);
}

void tst_NvxFtpDownloadHandler::everyPieceIsFlushed()
{
    serve();
    // Less than what a file gathers by itself.
    QVERIFY(offer(QStringLiteral("a"), QByteArray(100, 'x')));
    const auto request = makeRequest(QStringLiteral("a"));
    Handler handler(request.get());
    QList<qint64> sizes;
    connect(request.get(), &Request::readyRead, this,
            [&] { sizes << QFileInfo(request->localPath()).size(); });
    request->startDownload();
    QVERIFY(waitForDone(*request, false));
    QCOMPARE(sizes.last(), 100);
}

void tst_NvxFtpDownloadHandler::pauseAndResume()
{
    serve({QStringLiteral("--rate"), QStringLiteral("400000")});
    const QByteArray bytes(1000000, 'x');
    QVERIFY(offer(QStringLiteral("a"), bytes));
    const auto request = makeRequest(QStringLiteral("a"));
    Handler handler(request.get());
    connect(request.get(), &Request::complete, &handler, &Handler::handleDownloadComplete);
    QSignalSpy ready(request.get(), &Request::readyRead);
    request->startDownload();
    QVERIFY(ready.wait(20000));

    QSignalSpy done(&request->ftp(), &QFtp::done);
    handler.pause();
    QVERIFY(handler.isPaused());
    QVERIFY(!request->ftp().hasPendingCommands());
    QTRY_COMPARE_WITH_TIMEOUT(done.size(), 1, 20000);
    // Intended: the transfer that was aborted is reported as failed.
    QCOMPARE(m_told.size(), 2);
    QVERIFY(m_told[0].startsWith(QLatin1String("failed ")));
    QCOMPARE(m_told[1], QStringLiteral("complete with error"));
    QCOMPARE(request->ftp().state(), QFtp::LoggedIn);
    const qint64 before = QFileInfo(request->localPath()).size();
    QVERIFY(before > 0 && before < bytes.size());
    QCOMPARE(m_peer->commands(QStringLiteral("QUIT")), QStringList());

    handler.resume();
    QVERIFY(!handler.isPaused());
    // Intended: from the first byte on.
    QCOMPARE(QFileInfo(request->localPath()).size(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(done.size(), 2, 30000);
    QCOMPARE(done[1][0].toBool(), false);
    QVERIFY(fileBytes(request->localPath()) == bytes);
    // Intended: nobody tells the end of a resumed download.
    QCOMPARE(m_told.size(), 2);
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone")));
    QCOMPARE(m_peer->commands(QStringLiteral("RETR")), QStringList({"RETR a", "RETR a"}));
    QCOMPARE(m_peer->commands(QStringLiteral("USER")).size(), 1);
    QCOMPARE(m_peer->commands().last(), QStringLiteral("QUIT"));
}

void tst_NvxFtpDownloadHandler::secondPauseAndResumeDoNothing()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), "123"));
    const auto request = makeRequest(QStringLiteral("a"));
    Handler handler(request.get());
    // Not paused: no second transfer.
    handler.resume();
    QVERIFY(!request->ftp().hasPendingCommands());
    QCOMPARE(request->ftp().currentId(), 0);
    handler.pause();
    // What the caller asks of the connection meanwhile isn't dropped by a second pause.
    request->ftp().connectToHost(m_address);
    request->ftp().close();
    QVERIFY(request->ftp().hasPendingCommands());
    handler.pause();
    QVERIFY(request->ftp().hasPendingCommands());
    handler.resume();
    QVERIFY(makeFile(request->localPath(), "mine"));
    handler.resume();
    QCOMPARE(fileBytes(request->localPath()), QByteArray("mine"));
}

void tst_NvxFtpDownloadHandler::cancelled()
{
    serve({QStringLiteral("--rate"), QStringLiteral("200000")});
    QVERIFY(offer(QStringLiteral("a"), QByteArray(3000000, 'x')));
    const auto request = makeRequest(QStringLiteral("a"));
    Handler handler(request.get());
    QSignalSpy ready(request.get(), &Request::readyRead);
    request->startDownload();
    QVERIFY(ready.wait(20000));
    QSignalSpy done(&request->ftp(), &QFtp::done);
    handler.cancel();
    QVERIFY(handler.isCancelled());
    const qint64 size = QFileInfo(request->localPath()).size();
    QVERIFY(size > 0);
    QTRY_COMPARE_WITH_TIMEOUT(done.size(), 1, 20000);
    QCOMPARE(QFileInfo(request->localPath()).size(), size);
    QCOMPARE(m_told, QStringList("complete"));
}

void tst_NvxFtpDownloadHandler::bytesThatAreNotItsOwn_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<bool>("taken");
    for (const char* what : {"cancelled", "paused", "removal", "no work", "refused name"})
        QTest::newRow(what) << QString::fromLatin1(what) << false;
    QTest::newRow("download") << QStringLiteral("download") << true;
}

void tst_NvxFtpDownloadHandler::bytesThatAreNotItsOwn()
{
    QFETCH(const QString, what);
    QFETCH(const bool, taken);
    serve();
    QVERIFY(offer(QStringLiteral("a"), "12345"));
    const bool isRefused = what == u"refused name";
    const auto request = makeRequest(QStringLiteral("a"), Request::DownloadWork,
                                     isRefused ? QStringLiteral("../a") : QString());
    // Bytes that wait, since nobody reads them, and a connection on which nothing runs that would drop them.
    request->ftp().connectToRecorder();
    request->ftp().get(QStringLiteral("Data/a"));
    QVERIFY(waitForDone(*request, false));
    QCOMPARE(request->ftp().bytesAvailable(), 5);
    Handler handler(request.get());
    if (what == u"cancelled")
        handler.cancel();
    else if (what == u"paused")
        handler.pause();
    else if (what == u"removal")
        request->setWorkRegime(Request::RemoveWork);
    else if (what == u"no work")
        request->setWorkRegime(Request::NoWork);
    Q_EMIT request->readyRead();
    QCOMPARE(request->ftp().bytesAvailable(), taken ? 0 : 5);
    QCOMPARE(fileBytes(local(QStringLiteral("a"))),
             isRefused ? QByteArray("none") : QByteArray(taken ? "12345" : ""));
}

void tst_NvxFtpDownloadHandler::errorsAreLogged()
{
    const auto request = makeRequest(QStringLiteral("a"));
    Handler handler(request.get());
    LogSpy log;
    handler.handleDownloadComplete(request->requestId(), false);
    handler.handleRemoveComplete(request->requestId(), false);
    QCOMPARE(log.lines(), QStringList());
    handler.handleDownloadComplete(request->requestId(), true);
    handler.handleRemoveComplete(request->requestId(), true);
    QCOMPARE(log.lines(), QStringList({"Download Error: Unknown error", "Remove Error: Unknown error"}));
}

void tst_NvxFtpDownloadHandler::bytesBehindTheEnd()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), "12345"));
    const auto request = makeRequest(QStringLiteral("a"));
    request->ftp().connectToRecorder();
    request->ftp().get(QStringLiteral("Data/a"));
    QVERIFY(waitForDone(*request, false));
    Handler handler(request.get());
    handler.handleDownloadComplete(request->requestId(), false);
    // The file is closed: what still comes isn't written, and nobody warns.
    Q_EMIT request->readyRead();
    QCOMPARE(fileBytes(request->localPath()), QByteArray());
    QCOMPARE(request->fileErrorString(), QString());
}

void tst_NvxFtpDownloadHandler::pausedHandlerPassesOver()
{
    const auto request = makeRequest(QStringLiteral("a"));
    Handler handler(request.get());
    handler.pause();
    LogSpy log;
    handler.handleDownloadComplete(request->requestId(), true);
    handler.handleRemoveComplete(request->requestId(), true);
    QCOMPARE(log.lines(), QStringList());
}

void tst_NvxFtpDownloadHandler::fileThatCannotBeOpened()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), QByteArray(500000, 'x')));
    const auto request = makeRequest(QStringLiteral("a"));
    request->setDestDir(local(QStringLiteral("missing")));
    QTest::ignoreMessage(
        QtWarningMsg, QRegularExpression(
                          QStringLiteral("^NvxFtpDownloadHandler: can't open .*missing.a - No such file.*")));
    Handler handler(request.get());
    LogSpy log;
    request->startDownload();
    QVERIFY(waitForDone(*request, false));
    // By design: the download itself succeeds.
    QCOMPARE(m_told, QStringList("complete"));
    QCOMPARE(request->fileErrorString(), QStringLiteral("No such file or directory"));
    QCOMPARE(log.lines(), QStringList());
    handler.pause();
    handler.resume();
    QCOMPARE(log.lines(), QStringList());
}

void tst_NvxFtpDownloadHandler::fullDisk()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), QByteArray(500000, 'x')));
    const auto request = makeRequest(QStringLiteral("a"), Request::DownloadWork, QStringLiteral("full"));
    request->setDestDir(QStringLiteral("/dev"));
    Handler handler(request.get());
    QTest::ignoreMessage(QtWarningMsg,
                         "NvxFtpDownloadHandler: can't write /dev/full - No space left on device");
    LogSpy log;
    request->startDownload();
    QVERIFY(waitForDone(*request, false));
    QCOMPARE(m_told, QStringList("complete"));
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(request->fileErrorString(), QStringLiteral("No space left on device"));
}

void tst_NvxFtpDownloadHandler::refusedName()
{
    QVERIFY(QDir(m_client->path()).mkdir(QStringLiteral("in")));
    const auto request = makeRequest(QStringLiteral("../evil"));
    request->setDestDir(local(QStringLiteral("in")));
    Handler handler(request.get());
    handler.pause();
    handler.resume();
    Q_EMIT request->readyRead();
    handler.handleDownloadComplete(request->requestId(), false);
    QCOMPARE(QDir(m_client->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList("in"));
}

void tst_NvxFtpDownloadHandler::resumeAheadOfTheEndOfThePause()
{
    serve({QStringLiteral("--rate"), QStringLiteral("200000")});
    QVERIFY(offer(QStringLiteral("a"), QByteArray(3000000, 'x')));
    const auto request = makeRequest(QStringLiteral("a"));
    Handler handler(request.get());
    QSignalSpy ready(request.get(), &Request::readyRead);
    request->startDownload();
    QVERIFY(ready.wait(20000));
    QSignalSpy done(&request->ftp(), &QFtp::done);
    handler.pause();
    // Intended: it is dropped with what waits behind the command that is aborted.
    handler.resume();
    QTRY_COMPARE_WITH_TIMEOUT(done.size(), 1, 20000);
    QCOMPARE(done[0][0].toBool(), true);
    QVERIFY(!request->ftp().hasPendingCommands());
    QCOMPARE(request->ftp().currentId(), 0);
}

void tst_NvxFtpDownloadHandler::pauseAt(Request& request, Handler& handler, QFtp::Command command)
{
    NvxFtp* const ftp = &request.ftp();
    connect(ftp, &QFtp::commandStarted, &handler, [ftp, &handler, command] {
        if (ftp->currentCommand() == command)
            handler.pause();
    });
}

void tst_NvxFtpDownloadHandler::resumedAheadOfItsDirectory()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), "right"));
    QVERIFY(makeFile(remote(QStringLiteral("a")), "wrong"));
    const auto request = makeRequest(QStringLiteral("a"));
    Handler handler(request.get());
    pauseAt(*request, handler, QFtp::Cd);
    request->startDownload();
    QVERIFY(waitForDone(*request, true));
    handler.resume();
    QVERIFY(waitForDone(*request, false));
    // Intended: only the download is asked for again, so it is that of the directory of the login.
    QCOMPARE(fileBytes(request->localPath()), QByteArray("wrong"));
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone")));
    QCOMPARE(m_peer->commands(QStringLiteral("CWD")), QStringList());
}

void tst_NvxFtpDownloadHandler::resumedRemoval()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), "12345"));
    const auto request = makeRequest(QStringLiteral("a"), Request::RemoveWork);
    Handler handler(request.get());
    pauseAt(*request, handler, QFtp::Remove);
    request->startRemove();
    QVERIFY(waitForDone(*request, true));
    handler.resume();
    QVERIFY(waitForDone(*request, false));
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone")));
    // Intended: it has become a download that nobody reads.
    QCOMPARE(m_peer->commands(QStringLiteral("DELE")), QStringList());
    QCOMPARE(m_peer->commands(QStringLiteral("RETR")), QStringList("RETR a"));
    QCOMPARE(request->ftp().bytesAvailable(), 5);
    QCOMPARE(fileBytes(remote(QStringLiteral("Data/a"))), QByteArray("12345"));
    QVERIFY(!QFile::exists(request->localPath()));
}

int main(int argc, char* argv[])
{
    return runFtpTest<tst_NvxFtpDownloadHandler>(argc, argv);
}

#include "tst_NvxFtpDownloadHandler.moc"
