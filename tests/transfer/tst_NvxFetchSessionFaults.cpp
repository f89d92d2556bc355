#include "tests/transfer/FetchCase.h"
#include "tests/transfer/HostileNames.h"

namespace {

const QString kFirst = QStringLiteral("127.94.8.1");
const QString kSecond = QStringLiteral("127.94.8.2");
const QString kNobody = QStringLiteral("127.94.8.99");

} // namespace

/// Sessions with recorders, disks and callers that don't do what they should.
class tst_NvxFetchSessionFaults : public FetchCase
{
    Q_OBJECT

public:
    tst_NvxFetchSessionFaults() : FetchCase(kFirst) {}

private Q_SLOTS:
    // --- rainy day flows
    void recorderThatIsNotThere();
    void recorderThatComesLater();
    void refusedLogin();
    void listingThatIsNeverAnswered();
    void refusedFile();
    void silentTransferIsTriedAgain();
    void serverThatGoesAndComesBack();
    void sizeThatIsAnother();
    void hostileNames();
    void sameNameTwice();
    void folderThatIsNotThere();
    void hostsThatAreNoAddresses();
    void listingUnderWayOutlivesTheFindersSilence();
    void goodbyeThatFails_data();
    void goodbyeThatFails();
    void goodbyeIsShort();
    void recorderThatSendsOn();
    void sizesThatDontAddUp();
    void fullDisk();
    void nameThatIsTaken();
    void partOfACancelledTry();
    void listingsOfACancelledSession_data();
    void listingsOfACancelledSession();
    void startedTwice();
    void deletedWithItsRequests();
};

void tst_NvxFetchSessionFaults::recorderThatIsNotThere()
{
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    run({kNobody, kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_summaries[0].fetched, 1);
    QCOMPARE(m_summaries[0].failedHosts, QStringList(kNobody + ": Connection refused to host " + kNobody));
    QVERIFY(!m_summaries[0].isWhole());
    m_hosts.sort();
    QCOMPARE(m_hosts, QStringList({kFirst + " has 1", kNobody + ": Connection refused to host " + kNobody}));
}

void tst_NvxFetchSessionFaults::recorderThatComesLater()
{
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    m_session->setMaxAttempts(1000);
    m_session->setRetryWait(std::chrono::milliseconds(1));
    run({kFirst});
    // Meanwhile it is refused, again and again.
    serve();
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 30000);
    QCOMPARE(m_summaries[0].fetched, 1);
}

void tst_NvxFetchSessionFaults::refusedLogin()
{
    serve({QStringLiteral("--refuse"), QStringLiteral("USER")});
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_hosts, QStringList(kFirst + ": Login failed:\nRefused on demand."));
    // Each try is a connection of its own.
    QCOMPARE(m_peer->commands(QStringLiteral("USER")).size(), 3);
}

void tst_NvxFetchSessionFaults::listingThatIsNeverAnswered()
{
    serve({QStringLiteral("--silent"), QStringLiteral("LIST")});
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    m_session->setInactivityLimit(std::chrono::milliseconds(300));
    m_session->setMaxAttempts(2);
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_summaries[0].failedHosts.size(), 1);
    QCOMPARE(m_peer->commands(QStringLiteral("LIST")).size(), 2);
}

void tst_NvxFetchSessionFaults::refusedFile()
{
    serve({QStringLiteral("--refuse"), QStringLiteral("RETR")});
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    QVERIFY(makeFile(local(recording(7, 1)), "older"));
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_results.size(), 1);
    QCOMPARE(m_results[0].outcome, NvxFetchResult::Failed);
    QCOMPARE(m_results[0].attempts, 3);
    QCOMPARE(m_results[0].error, QStringLiteral("Downloading file failed:\nRefused on demand."));
    QCOMPARE(m_results[0].localPath, QString());
    QCOMPARE(m_retries.size(), 2);
    QCOMPARE(m_summaries[0].failed, 1);
    QVERIFY(!m_summaries[0].isWhole());
    QCOMPARE(m_session->bytesDone(), 0);
    // What was there stays, and nothing else is left.
    QCOMPARE(fetched(), QStringList(recording(7, 1)));
    QCOMPARE(fileBytes(local(recording(7, 1))), QByteArray("older"));
}

void tst_NvxFetchSessionFaults::silentTransferIsTriedAgain()
{
    serve({QStringLiteral("--silent"), QStringLiteral("RETR")});
    for (int i = 0; i < 4; ++i)
        QVERIFY(offer(m_server->path(), recording(7, i), "1"));
    m_session->setInactivityLimit(std::chrono::milliseconds(300));
    m_session->setMaxAttempts(2);
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 30000);
    QCOMPARE(m_summaries[0].failed, 4);
    QCOMPARE(m_retries.size(), 4);
    QCOMPARE(fetched(), QStringList());
}

void tst_NvxFetchSessionFaults::serverThatGoesAndComesBack()
{
    serve({QStringLiteral("--rate"), QStringLiteral("100000")});
    for (int i = 0; i < 4; ++i)
        QVERIFY(offer(m_server->path(), recording(7, i), pattern(3000000, i)));
    m_session->setMaxAttempts(1000);
    QSignalSpy progress(m_session.get(), &NvxFetchSession::fileProgress);
    run({kFirst});
    QTRY_VERIFY_WITH_TIMEOUT(progress.size() > 3, 20000);
    m_peer->stop();
    // Those under way break off; those that follow find nobody.
    QTRY_VERIFY_WITH_TIMEOUT(
        std::ranges::any_of(
            m_retries,
            [](const QString& text) { return text.startsWith(QLatin1String("Connection refused")); }),
        20000);
    serve();
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 60000);
    QCOMPARE(m_summaries[0].fetched, 4);
    for (int i = 0; i < 4; ++i)
        QVERIFY(fileBytes(local(recording(7, i))) == pattern(3000000, i));
    QCOMPARE(fetched().size(), 4);
}

void tst_NvxFetchSessionFaults::sizeThatIsAnother()
{
    // The listing promises what isn't there.
    QVERIFY(makeFile(m_other->filePath(QStringLiteral("list")),
                     "-rw-r--r-- 1 ftp ftp 5 Mar 04 05:01 " + recording(7, 1).toLatin1() +
                         "\r\n-rw-r--r-- 1 ftp ftp 2 Mar 04 05:02 " + recording(7, 2).toLatin1() + "\r\n"));
    serve({QStringLiteral("--listing"), m_other->filePath(QStringLiteral("list"))});
    QVERIFY(offer(m_server->path(), recording(7, 1), "123"));
    QVERIFY(offer(m_server->path(), recording(7, 2), "123"));
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_summaries[0].failed, 2);
    QCOMPARE(resultOf(recording(7, 1))->error, QStringLiteral("3 bytes came instead of 5"));
    QCOMPARE(resultOf(recording(7, 2))->error, QStringLiteral("More than 2 bytes came"));
    QCOMPARE(resultOf(recording(7, 1))->attempts, 3);
    QCOMPARE(fetched(), QStringList());
}

void tst_NvxFetchSessionFaults::hostileNames()
{
    QVERIFY(QDir(m_client->path()).mkpath(QStringLiteral("in/sub")));
    QVERIFY(QDir(m_client->path()).mkpath(QStringLiteral("beside")));
    for (const char* name : {"precious.wav", "beside/precious.wav", "in/sub/precious.wav"})
        QVERIFY(makeFile(local(QLatin1String(name)), "mine"));
    QByteArray listing;
    for (QString name : namesThatWantOut()) {
        name.replace(QLatin1String("{}"), m_client->path());
        // Those with a line break would be two lines.
        if (!name.contains(u'\n') && name.isValidUtf16())
            listing += entry("4", name + ".wav");
    }
    const auto before = treeOf(m_client->path());
    serve(withListing(listing) << QStringLiteral("--any-file") << QStringLiteral("evil"));
    m_session->setDestDir(local(QStringLiteral("in")));
    m_session->start({kFirst}, {}, {}, true);
    QTRY_COMPARE(m_summaries.size(), 1);
    QCOMPARE(m_results.size(), listing.count('\n'));
    QVERIFY(m_summaries[0].failed > 40);
    auto after = treeOf(m_client->path());
    for (const NvxFetchResult& result : std::as_const(m_results)) {
        if (result.outcome == NvxFetchResult::Fetched) {
            // By its ending it has become a name like any other.
            QCOMPARE(result.localPath, local("in/" + result.name));
            QCOMPARE(after.take("in/" + result.name), QByteArray("evil"));
        } else {
            QCOMPARE(result.error, QStringLiteral("The name is not a bare file name"));
            QCOMPARE(result.attempts, 0);
        }
    }
    QCOMPARE(after, before);
    QCOMPARE(m_peer->commands(QStringLiteral("RETR")).size(), m_summaries[0].fetched);
}

void tst_NvxFetchSessionFaults::sameNameTwice()
{
    serve();
    FtpPeer second;
    QVERIFY2(second.start(kSecond, m_other->path()), qPrintable(second.errorText()));
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    QVERIFY(offer(m_other->path(), recording(7, 1), "2"));
    run({kFirst, kSecond});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_summaries[0].fetched, 1);
    QCOMPARE(m_summaries[0].failed, 1);
    const auto refused = std::ranges::find_if(
        m_results, [](const auto& result) { return result.outcome == NvxFetchResult::Failed; });
    QCOMPARE(refused->error, QStringLiteral("Another file has the same name"));
    QCOMPARE(fileBytes(local(recording(7, 1))), QByteArray(refused->host == kFirst ? "2" : "1"));
}

void tst_NvxFetchSessionFaults::folderThatIsNotThere()
{
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    m_session->setDestDir(local(QStringLiteral("missing")));
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_results.size(), 1);
    QCOMPARE(m_results[0].error, QStringLiteral("No such file or directory"));
    QCOMPARE(m_peer->commands(QStringLiteral("RETR")), QStringList());
    QCOMPARE(fetched(), QStringList());
}

void tst_NvxFetchSessionFaults::hostsThatAreNoAddresses()
{
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    serve();
    run({QStringLiteral("recorder"), kFirst, QString(), QStringLiteral("127.94.8")});
    // From the event loop.
    QCOMPARE(m_hosts, QStringList());
    QTRY_COMPARE(m_summaries.size(), 1);
    QCOMPARE(m_summaries[0].fetched, 1);
    QCOMPARE(m_summaries[0].failedHosts,
             QStringList({"recorder: Not an IPv4 address", ": Not an IPv4 address",
                          "127.94.8: Not an IPv4 address"}));
    QCOMPARE(m_hosts.mid(0, 3), m_summaries[0].failedHosts);
}

void tst_NvxFetchSessionFaults::listingUnderWayOutlivesTheFindersSilence()
{
    serve({QStringLiteral("--silent"), QStringLiteral("LIST")});
    run({kFirst});
    QTRY_COMPARE(m_peer->commands(QStringLiteral("LIST")).size(), 1);
    auto* const finder = m_session->findChild<HydFtpFileFinder*>();
    QVERIFY(finder != nullptr);
    QSignalSpy timeout(finder, &HydFtpFileFinder::timeout);
    finder->collectTimer()->start(1);
    QVERIFY(timeout.wait(kPatienceMs));
    QCoreApplication::processEvents();
    // It is neither given up nor tried again: that is the client's affair.
    QCOMPARE(m_session->findChild<HydFtpFileFinder*>(), finder);
    QCOMPARE(m_hosts, QStringList());
    m_session->cancel();
}

void tst_NvxFetchSessionFaults::goodbyeThatFails_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::newRow("refused") << QStringList({"--refuse", "QUIT"});
    QTest::newRow("cut") << QStringList({"--drop", "QUIT"});
    QTest::newRow("unanswered") << QStringList({"--silent", "QUIT"});
}

void tst_NvxFetchSessionFaults::goodbyeThatFails()
{
    QFETCH(const QStringList, options);
    serve(options);
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    QVERIFY(offer(m_server->path(), recording(7, 2), "2"));
    m_session->setMaxDownloads(1);
    m_session->setInactivityLimit(std::chrono::milliseconds(1000));
    run({kFirst});
    QTRY_COMPARE(m_summaries.size(), 1);
    QCOMPARE(m_hosts, QStringList(kFirst + " has 2"));
    QCOMPARE(m_summaries[0].fetched, 2);
    QVERIFY(m_summaries[0].isWhole());
    QCOMPARE(m_peer->commands(QStringLiteral("LIST")).size(), 1);
    QCOMPARE(m_peer->commands(QStringLiteral("RETR")).size(), 2);
}

void tst_NvxFetchSessionFaults::goodbyeIsShort()
{
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    m_session->setInactivityLimit(std::chrono::milliseconds(0));
    QList<int> limits;
    const auto noteLimits = [&](const NvxFtp* ftp) {
        connect(ftp, &QFtp::commandStarted, this, [&, ftp] {
            if (ftp->currentCommand() == QFtp::Login || ftp->currentCommand() == QFtp::Close)
                limits << ftp->inactivityLimit();
        });
    };
    connect(m_session.get(), &NvxFetchSession::fileStarted, this,
            [&] { noteLimits(&m_session->findChild<NvxFtpDownloadRequest*>()->ftp()); });
    run({kFirst});
    noteLimits(m_session->findChild<HydFtpFileFinder*>()->connections().first());
    QTRY_COMPARE(m_summaries.size(), 1);
    // Listing and file: as long as it takes, and then no longer than a goodbye may.
    QCOMPARE(limits, QList<int>({0, 5000, 0, 5000}));
}

void tst_NvxFetchSessionFaults::recorderThatSendsOn()
{
    serve(withListing(entry("1000", recording(7, 1))) << QStringLiteral("--endless"));
    QVERIFY(offer(m_server->path(), recording(7, 1), QByteArray(1000, 'x')));
    m_session->setMaxAttempts(2);
    qint64 most = 0;
    connect(m_session.get(), &NvxFetchSession::fileProgress, this,
            [&](const QString&, const QString&, qint64 done) { most = std::max(most, done); });
    run({kFirst});
    QTRY_COMPARE(m_summaries.size(), 1);
    QCOMPARE(m_results[0].outcome, NvxFetchResult::Failed);
    QCOMPARE(m_results[0].error, QStringLiteral("More than 1000 bytes came"));
    QCOMPARE(m_results[0].attempts, 2);
    QVERIFY(most <= 1000);
    QCOMPARE(m_session->bytesDone(), 0);
    QCOMPARE(fetched(), QStringList());
}

void tst_NvxFetchSessionFaults::sizesThatDontAddUp()
{
    const QByteArray most = "9223372036854775807";
    serve(
        withListing(entry("5", QStringLiteral("sub/%1").arg(recording(7, 0))) + entry("7", recording(7, 1))));
    m_session->pause();
    m_session->start({kFirst}, {}, {}, true);
    QTRY_COMPARE(m_results.size(), 1);
    // What is refused isn't waited for.
    QTRY_COMPARE(m_session->bytesInAll(), 7);

    makeSession();
    serve(withListing(entry(most, recording(7, 1)) + entry(most, recording(7, 2))));
    m_session->pause();
    run({kFirst});
    QTRY_COMPARE(m_hosts, QStringList(kFirst + " has 2"));
    QTRY_COMPARE(m_session->bytesInAll(), std::numeric_limits<qint64>::max());
    m_session->cancel();
    QCOMPARE(m_results.size(), 2);
}

void tst_NvxFetchSessionFaults::fullDisk()
{
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), pattern(3000000, 1)));
    QVERIFY(offer(m_server->path(), recording(7, 2), "2"));
    QVERIFY(QFile::link(QStringLiteral("/dev/full"), local(recording(7, 1) + ".part")));
    QVERIFY(QFile::link(QStringLiteral("/dev/full"), local(recording(7, 2) + ".part")));
    for (const int minute : {1, 2})
        QTest::ignoreMessage(QtWarningMsg,
                             qPrintable("NvxFtpDownloadHandler: can't write " + local(recording(7, minute)) +
                                        ".part - No space left on device"));
    run({kFirst});
    QTRY_COMPARE(m_summaries.size(), 1);
    for (const int minute : {1, 2}) {
        const NvxFetchResult* const result = resultOf(recording(7, minute));
        QCOMPARE(result->outcome, NvxFetchResult::Failed);
        QCOMPARE(result->error, QStringLiteral("No space left on device"));
        // It would be full the next time as well.
        QCOMPARE(result->attempts, 1);
    }
    QCOMPARE(fetched(), QStringList());
}

void tst_NvxFetchSessionFaults::nameThatIsTaken()
{
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), "whole"));
    QVERIFY(QDir(m_client->path()).mkpath(recording(7, 1) + "/within"));
    run({kFirst});
    QTRY_COMPARE(m_summaries.size(), 1);
    QCOMPARE(m_results[0].outcome, NvxFetchResult::Failed);
    QCOMPARE(m_results[0].error, "It stays " + recording(7, 1) + ".part: Is a directory");
    QCOMPARE(m_results[0].attempts, 1);
    QCOMPARE(m_results[0].localPath, QString());
    QCOMPARE(m_summaries[0].failed, 1);
    // What has come isn't thrown away.
    QCOMPARE(fetched(), QStringList(recording(7, 1) + ".part"));
    QCOMPARE(fileBytes(local(recording(7, 1) + ".part")), QByteArray("whole"));
    QVERIFY(QDir(local(recording(7, 1) + "/within")).exists());
}

void tst_NvxFetchSessionFaults::partOfACancelledTry()
{
    serve({QStringLiteral("--rate"), QStringLiteral("300000")});
    QVERIFY(offer(m_server->path(), recording(7, 1), pattern(9000000, 1)));
    m_session->setRetryWait(std::chrono::hours(1));
    QSignalSpy progress(m_session.get(), &NvxFetchSession::fileProgress);
    run({kFirst});
    QTRY_VERIFY(!progress.isEmpty());
    m_session->pause();
    m_peer->stop();
    m_session->resume();
    QTRY_COMPARE(m_retries.size(), 1);
    QCOMPARE(fetched(), QStringList(recording(7, 1) + ".part"));
    m_session->cancel();
    QTRY_COMPARE(m_summaries.size(), 1);
    QCOMPARE(m_summaries[0].cancelled, 1);
    QCOMPARE(fetched(), QStringList());
}

void tst_NvxFetchSessionFaults::listingsOfACancelledSession_data()
{
    QTest::addColumn<bool>("isServed");
    QTest::newRow("under way") << true;
    QTest::newRow("waits for its next try") << false;
}

void tst_NvxFetchSessionFaults::listingsOfACancelledSession()
{
    QFETCH(const bool, isServed);
    if (isServed)
        serve({QStringLiteral("--silent"), QStringLiteral("LIST")});
    m_session->setRetryWait(std::chrono::hours(1));
    QSignalSpy retried(m_session.get(), &NvxFetchSession::hostRetried);
    run({kFirst});
    QTRY_VERIFY(isServed ? m_peer->commands(QStringLiteral("LIST")).size() == 1 : retried.size() == 1);
    m_session->cancel();
    QCOMPARE(m_hosts, QStringList(kFirst + ": Cancelled"));
    QTRY_COMPARE(m_summaries.size(), 1);
    // Nobody knows what it has, so this isn't all.
    QVERIFY(!m_summaries[0].isWhole());
    QCOMPARE(m_summaries[0].failedHosts, QStringList(kFirst + ": Cancelled"));
    QCOMPARE(m_hosts.size(), 1);
}

void tst_NvxFetchSessionFaults::startedTwice()
{
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    run({kFirst});
    run({kFirst, kNobody});
    QTRY_COMPARE(m_summaries.size(), 1);
    QCOMPARE(m_hosts, QStringList(kFirst + " has 1"));
    // Nor behind its end.
    NvxFetchSession cancelled;
    QSignalSpy finished(&cancelled, &NvxFetchSession::finished);
    cancelled.cancel();
    cancelled.start({kFirst}, {}, {}, true);
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(cancelled.findChildren<HydFtpFileFinder*>().size(), 0);
}

void tst_NvxFetchSessionFaults::deletedWithItsRequests()
{
    serve({QStringLiteral("--rate"), QStringLiteral("100000")});
    QVERIFY(offer(m_server->path(), recording(7, 1), pattern(2000000, 1)));
    QSignalSpy progress(m_session.get(), &NvxFetchSession::fileProgress);
    run({kFirst});
    QTRY_VERIFY(!progress.isEmpty());
    const QPointer<NvxFtpDownloadRequest> request = m_session->findChild<NvxFtpDownloadRequest*>();
    QVERIFY(request != nullptr);
    m_session.reset();
    QVERIFY(request.isNull());
    // As the header says.
    QCOMPARE(fetched(), QStringList(recording(7, 1) + ".part"));
}

int main(int argc, char* argv[])
{
    return runFtpTest<tst_NvxFetchSessionFaults>(argc, argv);
}

#include "tst_NvxFetchSessionFaults.moc"
