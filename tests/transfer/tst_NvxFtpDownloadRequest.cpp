#include "tests/transfer/RequestCase.h"

#include <set>
#include <thread>
#include <vector>

/// A request on its own, against the packaged server.
class tst_NvxFtpDownloadRequest : public RequestCase
{
    Q_OBJECT

public:
    tst_NvxFtpDownloadRequest() : RequestCase(QStringLiteral("127.94.4.1")) {}

private Q_SLOTS:
    // --- happy flows
    void idsBeginWithOne();
    void ftpKnowsItsHost();
    void fieldsAndDefaults();
    void idsAreUnique();
    void equality();
    void percentages_data();
    void percentages();
    void download();
    void emptyFile();
    void removal();
    void cancelBeforeTheStart();
    void cancelAheadOfTheFirstCommand();
    void cancelWhileItRuns();
    void doneIsConnectedByTheCaller();
    // --- rainy day flows
    void missingFile();
    void missingFileToRemove();
    void endsThatOnlyTheConnectionTells_data();
    void endsThatOnlyTheConnectionTells();
    void refusedLocalName();
    void refusedLocalNameOfARemoval();
    void cancelBeforeTheRefusal();
    void lineBreaksInNames_data();
    void lineBreaksInNames();
};

void tst_NvxFtpDownloadRequest::idsBeginWithOne()
{
    // The first function of this program: nobody has taken one yet.
    QCOMPARE(Request::getNextId(), 1);
    QCOMPARE(makeRequest(QStringLiteral("a"))->requestId(), 2);
}

void tst_NvxFtpDownloadRequest::ftpKnowsItsHost()
{
    NvxNetHostInfo host(0x7F5E0401);
    host.setSubnetMask(0xFFFFFF00);
    NvxFtp ftp(host);
    QVERIFY(ftp.hostInfo() == host);
    QCOMPARE(ftp.address(), QStringLiteral("127.94.4.1"));
    ftp.setHostInfo(NvxNetHostInfo(0x01020304));
    QCOMPARE(ftp.address(), QStringLiteral("1.2.3.4"));
    QCOMPARE(NvxFtp(QStringLiteral("127.94.4.1")).hostInfo().ipAddress().toInt(), 0x7F5E0401u);
    QCOMPARE(NvxFtp(QStringLiteral("recorder")).address(), QStringLiteral("0.0.0.0"));
    QObject parent;
    QCOMPARE((new NvxFtp(host, &parent))->parent(), &parent);
}

void tst_NvxFtpDownloadRequest::fieldsAndDefaults()
{
    Request request(NvxNetHostInfo(0x01020304), QStringLiteral("a.wav"), QStringLiteral("Data"),
                    QStringLiteral("here"), QString(), QStringLiteral("2021"), 42);
    QCOMPARE(request.ftp().address(), QStringLiteral("1.2.3.4"));
    QCOMPARE(request.remoteName(), QStringLiteral("a.wav"));
    QCOMPARE(request.remoteDir(), QStringLiteral("Data"));
    QCOMPARE(request.localDir(), QStringLiteral("here"));
    QCOMPARE(request.localName(), QStringLiteral("a.wav"));
    QCOMPARE(request.remoteDate(), QStringLiteral("2021"));
    QCOMPARE(request.fileSize(), 42);
    QCOMPARE(request.bytesDone(), 0);
    QCOMPARE(request.queueInd(), -1);
    QCOMPARE(request.workRegime(), Request::NoWork);
    QCOMPARE(request.localPath(), QStringLiteral("here") + QDir::separator() + QStringLiteral("a.wav"));
    request.setDestDir(QStringLiteral("there"));
    QCOMPARE(request.localDir(), QStringLiteral("there"));
    request.setQueueInd(5);
    QCOMPARE(request.queueInd(), 5);
    request.setWorkRegime(Request::RemoveWork);
    QCOMPARE(request.workRegime(), Request::RemoveWork);
    QCOMPARE(int(Request::NoWork), 0);
    QCOMPARE(int(Request::DownloadWork), 1);
    QCOMPARE(int(Request::RemoveWork), 2);

    const Request named(NvxNetHostInfo(1), QStringLiteral("a"), QString(), QString(), QStringLiteral("b"),
                        QString(), 0);
    QCOMPARE(named.localName(), QStringLiteral("b"));
    QCOMPARE(named.remoteName(), QStringLiteral("a"));
}

void tst_NvxFtpDownloadRequest::idsAreUnique()
{
    const int32_t first = Request::getNextId();
    QCOMPARE(Request::getNextId(), first + 1);
    QCOMPARE(makeRequest(QStringLiteral("a"))->requestId(), first + 2);
    std::vector<std::vector<int32_t>> taken(4);
    std::vector<std::thread> threads;
    for (auto& ids : taken) {
        threads.emplace_back([&ids] {
            for (int i = 0; i < 1000; ++i)
                ids.push_back(Request::getNextId());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::set<int32_t> all;
    for (const auto& ids : taken)
        all.insert(ids.begin(), ids.end());
    QCOMPARE(all.size(), size_t(4000));
}

void tst_NvxFtpDownloadRequest::equality()
{
    const auto one = makeRequest(QStringLiteral("a"));
    const auto other = makeRequest(QStringLiteral("a"));
    QVERIFY(*one == *one);
    QVERIFY(*one != *other);
    QVERIFY(!(*one == *other));
}

void tst_NvxFtpDownloadRequest::percentages_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<qint64>("done");
    QTest::addColumn<int>("percent");
    QTest::newRow("nothing") << qint64(1000) << qint64(0) << 0;
    QTest::newRow("cut off") << qint64(1000) << qint64(999) << 99;
    QTest::newRow("all") << qint64(1000) << qint64(1000) << 100;
    QTest::newRow("more than all") << qint64(1000) << qint64(1500) << 150;
    // Intended: 0.29 x 100 is a bit less than 29.
    QTest::newRow("in doubles") << qint64(100) << qint64(29) << 28;
    QTest::newRow("size 0") << qint64(0) << qint64(5) << 0;
    QTest::newRow("terabytes") << qint64(4) << (qint64(1) << 62) << std::numeric_limits<int>::max();
}

void tst_NvxFtpDownloadRequest::percentages()
{
    QFETCH(const qint64, size);
    QFETCH(const qint64, done);
    QFETCH(const int, percent);
    const auto request = makeRequest(QStringLiteral("a"));
    QCOMPARE(request->percentDownloaded(), 0);
    Q_EMIT request->ftp().dataTransferProgress(done, size);
    QCOMPARE(request->percentDownloaded(), percent);
    QCOMPARE(request->fileSize(), size);
    QCOMPARE(request->bytesDone(), done);
}

void tst_NvxFtpDownloadRequest::download()
{
    serve();
    const QByteArray bytes(300000, 'x');
    QVERIFY(offer(QStringLiteral("a b.wav"), bytes));
    const auto request = makeRequest(QStringLiteral("a b.wav"));
    QByteArray came;
    connect(request.get(), &Request::readyRead, this, [&] { came += request->ftp().readAll(); });
    QSignalSpy progress(request.get(), &Request::progress);
    QSignalSpy states(request.get(), &Request::newState);
    request->startDownload();
    QVERIFY(waitForDone(*request, false));
    QCOMPARE(came, bytes);
    QCOMPARE(m_told, QStringList("complete"));
    QCOMPARE(progress.last(), QVariantList({request->requestId(), QVariant::fromValue(int64_t(300000)),
                                            QVariant::fromValue(int64_t(300000))}));
    QCOMPARE(states.first()[0].toInt(), request->requestId());
    QList<int> passed;
    for (const QVariantList& state : std::as_const(states))
        passed << state[1].toInt();
    QCOMPARE(passed, QList<int>({QFtp::HostLookup, QFtp::Connecting, QFtp::Connected, QFtp::LoggedIn,
                                 QFtp::Closing, QFtp::Unconnected}));
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone")));
    QStringList commands = m_peer->commands();
    QCOMPARE(commands.mid(0, 3), QStringList({"USER anonymous", "PASS anonymous@", "CWD Data"}));
    QCOMPARE(commands.filter(QStringLiteral("TYPE")), QStringList("TYPE I"));
    QCOMPARE(commands.mid(commands.size() - 2), QStringList({"RETR a b.wav", "QUIT"}));
    // The request writes nothing by itself.
    QCOMPARE(QDir(m_client->path()).entryList(QDir::Files), QStringList());
}

void tst_NvxFtpDownloadRequest::emptyFile()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), QByteArray()));
    const auto request = makeRequest(QStringLiteral("a"));
    QSignalSpy ready(request.get(), &Request::readyRead);
    request->startDownload();
    QVERIFY(waitForDone(*request, false));
    QCOMPARE(m_told, QStringList("complete"));
    QCOMPARE(ready.size(), 0);
}

void tst_NvxFtpDownloadRequest::removal()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), "1"));
    QVERIFY(offer(QStringLiteral("b"), "1"));
    const auto request = makeRequest(QStringLiteral("a"), Request::RemoveWork);
    request->startRemove();
    QVERIFY(waitForDone(*request, false));
    QCOMPARE(m_told, QStringList("complete"));
    QCOMPARE(QDir(remote(QStringLiteral("Data"))).entryList(QDir::Files), QStringList("b"));
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone")));
    QCOMPARE(m_peer->commands(),
             QStringList({"USER anonymous", "PASS anonymous@", "CWD Data", "DELE a", "QUIT"}));
}

void tst_NvxFtpDownloadRequest::cancelBeforeTheStart()
{
    const auto request = makeRequest(QStringLiteral("a"));
    request->cancel();
    QCOMPARE(m_told, QStringList("complete"));
}

void tst_NvxFtpDownloadRequest::cancelAheadOfTheFirstCommand()
{
    const auto request = makeRequest(QStringLiteral("a"));
    request->startDownload();
    request->cancel();
    QCOMPARE(m_told, QStringList("complete"));
    QVERIFY(!request->ftp().hasPendingCommands());
}

void tst_NvxFtpDownloadRequest::cancelWhileItRuns()
{
    serve({QStringLiteral("--rate"), QStringLiteral("100000")});
    QVERIFY(offer(QStringLiteral("a"), QByteArray(3000000, 'x')));
    const auto request = makeRequest(QStringLiteral("a"));
    QSignalSpy ready(request.get(), &Request::readyRead);
    request->startDownload();
    QVERIFY(ready.wait(20000));
    QSignalSpy done(&request->ftp(), &QFtp::done);
    request->cancel();
    QCOMPARE(m_told, QStringList("complete"));
    QTRY_COMPARE_WITH_TIMEOUT(done.size(), 1, 20000);
    // The command that was aborted is the request's no more.
    QCOMPARE(m_told, QStringList("complete"));
    QCOMPARE(m_peer->commands(QStringLiteral("ABOR")), QStringList("ABOR"));
}

void tst_NvxFtpDownloadRequest::doneIsConnectedByTheCaller()
{
    const auto request = makeRequest(QStringLiteral("a"));
    Q_EMIT request->ftp().done(true);
    QCOMPARE(m_told, QStringList());
    connect(&request->ftp(), SIGNAL(done(bool)), request.get(), SLOT(handleDone(bool)));
    Q_EMIT request->ftp().done(false);
    QCOMPARE(m_told, QStringList("complete"));
    m_told.clear();
    Q_EMIT request->ftp().done(true);
    QCOMPARE(m_told, QStringList({"failed Unknown error", "complete with error"}));
}

void tst_NvxFtpDownloadRequest::missingFile()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), "1"));
    const auto request = makeRequest(QStringLiteral("missing.wav"));
    request->startDownload();
    QVERIFY(waitForDone(*request, true));
    QCOMPARE(m_told.size(), 2);
    QVERIFY2(m_told[0].startsWith(QLatin1String("failed Downloading file failed:\n")), qPrintable(m_told[0]));
    QVERIFY2(m_told[0].endsWith(QLatin1String(", missing.wav")), qPrintable(m_told[0]));
    QCOMPARE(m_told[1], QStringLiteral("complete with error"));
}

void tst_NvxFtpDownloadRequest::missingFileToRemove()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), "1"));
    const auto request = makeRequest(QStringLiteral("missing.wav"), Request::RemoveWork);
    request->startRemove();
    QVERIFY(waitForDone(*request, true));
    QCOMPARE(m_told.size(), 2);
    QVERIFY2(m_told[0].startsWith(QLatin1String("failed Removing file failed:\n")), qPrintable(m_told[0]));
    QVERIFY2(m_told[0].endsWith(QLatin1String(", missing.wav")), qPrintable(m_told[0]));
    QCOMPARE(m_told[1], QStringLiteral("complete with error"));
}

void tst_NvxFtpDownloadRequest::endsThatOnlyTheConnectionTells_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<bool>("serves");
    QTest::addColumn<QString>("error");
    QTest::newRow("connection") << QStringList() << false << "Connection refused to host 127.94.4.1";
    QTest::newRow("login") << QStringList({"--refuse", "USER"}) << true
                           << "Login failed:\nRefused on demand.";
    QTest::newRow("directory") << QStringList({"--refuse", "CWD"}) << true
                               << "Changing directory failed:\nRefused on demand.";
}

void tst_NvxFtpDownloadRequest::endsThatOnlyTheConnectionTells()
{
    QFETCH(const QStringList, options);
    QFETCH(const bool, serves);
    QFETCH(const QString, error);
    if (serves)
        serve(options);
    const auto request = makeRequest(QStringLiteral("a"));
    request->startDownload();
    QVERIFY(waitForDone(*request, true));
    // Intended: the request itself tells nothing.
    QCOMPARE(m_told, QStringList());
    QCOMPARE(request->ftp().errorString(), error);
}

void tst_NvxFtpDownloadRequest::refusedLocalName()
{
    serve();
    const auto request = makeRequest(QStringLiteral("../a.wav"));
    request->startDownload();
    QCOMPARE(m_told, QStringList());
    QTRY_COMPARE(m_told, QStringList({"failed The local name is not a bare file name, ../a.wav",
                                      "complete with error"}));
    m_peer->stop();
    QVERIFY(!m_peer->lines().contains(QStringLiteral("open")));
}

void tst_NvxFtpDownloadRequest::refusedLocalNameOfARemoval()
{
    serve();
    QVERIFY(offer(QStringLiteral("a."), "1"));
    // Nothing is written, so the local name doesn't matter.
    const auto request = makeRequest(QStringLiteral("a."), Request::RemoveWork);
    request->startRemove();
    QVERIFY(waitForDone(*request, false));
    QCOMPARE(m_told, QStringList("complete"));
}

void tst_NvxFtpDownloadRequest::cancelBeforeTheRefusal()
{
    const auto request = makeRequest(QStringLiteral("../a.wav"));
    request->startDownload();
    request->cancel();
    QCoreApplication::sendPostedEvents(request.get());
    QCOMPARE(m_told, QStringList("complete"));
}

void tst_NvxFtpDownloadRequest::lineBreaksInNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("CR LF") << "a\r\nDELE b";
    QTest::newRow("LF") << "a\nDELE b";
    QTest::newRow("NUL") << QString::fromLatin1("a\0b", 3);
}

void tst_NvxFtpDownloadRequest::lineBreaksInNames()
{
    QFETCH(const QString, name);
    serve();
    QVERIFY(offer(QStringLiteral("b"), "1"));
    const auto request = makeRequest(name, Request::DownloadWork, QStringLiteral("good"));
    request->startDownload();
    QVERIFY(waitForDone(*request, true));
    QCOMPARE(m_told.size(), 2);
    QCOMPARE(m_told[1], QStringLiteral("complete with error"));
    m_peer->stop();
    QCOMPARE(m_peer->commands(), QStringList({"USER anonymous", "PASS anonymous@", "CWD Data"}));
}

int main(int argc, char* argv[])
{
    return runFtpTest<tst_NvxFtpDownloadRequest>(argc, argv);
}

#include "tst_NvxFtpDownloadRequest.moc"
