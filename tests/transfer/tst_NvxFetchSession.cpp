#include "tests/transfer/FetchCase.h"

namespace {

const QString kFirst = QStringLiteral("127.94.6.1");
const QString kSecond = QStringLiteral("127.94.6.2");
const QString kNobody = QStringLiteral("127.94.6.99");

} // namespace

/// Whole sessions, against packaged servers.
class tst_NvxFetchSession : public FetchCase
{
    Q_OBJECT

public:
    tst_NvxFetchSession() : FetchCase(kFirst) {}

private Q_SLOTS:
    // --- happy flows
    void waits_data();
    void waits();
    void waitsThatAreTold_data();
    void waitsThatAreTold();
    void settingsOfEachConnection_data();
    void settingsOfEachConnection();
    void twoRecorders();
    void onlyTheRange();
    void nothingFound();
    void noHosts();
    void neverMoreThanTheSlots();
    void olderFilesAreReplaced();
    void emptyFiles();
    void pausedAndResumed();
    void pausedAheadOfTheFirstCommand();
    void pausedAtEachCommand_data();
    void pausedAtEachCommand();
    void pausedFromASlot();
    void pausedWhileNothingRuns();
    // --- rainy day flows
    void pauseThatTheServerDoesNotOutlive();
    void cancelled_data();
    void cancelled();
    void cancelledFromASlot();
    void deletedWhileItRuns();
};

void tst_NvxFetchSession::waits_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("attempts");
    QTest::addColumn<int>("wait");
    QTest::newRow("none yet") << 1000 << 0 << 1000;
    QTest::newRow("first") << 1000 << 1 << 1000;
    QTest::newRow("second") << 1000 << 2 << 2000;
    QTest::newRow("sixth") << 1000 << 6 << 32000;
    QTest::newRow("as long as it gets") << 1000 << 7 << 60000;
    QTest::newRow("and no longer") << 1000 << 1000000 << 60000;
    QTest::newRow("long ones") << 60000 << 1000000 << 60000;
    QTest::newRow("none") << 0 << 5 << 0;
}

void tst_NvxFetchSession::waits()
{
    QFETCH(const int, first);
    QFETCH(const int, attempts);
    QFETCH(const int, wait);
    QCOMPARE(NvxFetchSession::waitAfter(std::chrono::milliseconds(first), attempts).count(), wait);
}

void tst_NvxFetchSession::waitsThatAreTold_data()
{
    QTest::addColumn<int>("set");
    QTest::addColumn<QList<int>>("told");
    QTest::newRow("until set") << -1 << QList<int>{1000};
    QTest::newRow("doubled") << 2 << QList<int>{2, 4, 8, 16};
    QTest::newRow("too long") << 1000000 << QList<int>{60000};
    QTest::newRow("below none") << -5 << QList<int>{0, 0, 0, 0};
}

void tst_NvxFetchSession::waitsThatAreTold()
{
    QFETCH(const int, set);
    QFETCH(const QList<int>, told);
    serve({QStringLiteral("--refuse"), QStringLiteral("RETR")});
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    NvxFetchSession session;
    session.setDestDir(m_client->path());
    session.setMaxAttempts(5);
    if (set != -1)
        session.setRetryWait(std::chrono::milliseconds(set));
    QList<int> waitsOfFiles;
    QList<int> waitsOfHosts;
    connect(&session, &NvxFetchSession::fileRetried, this,
            [&](const QString&, const QString&, const QString&, int wait) { waitsOfFiles << wait; });
    connect(&session, &NvxFetchSession::hostRetried, this,
            [&](const QString& host, const QString& error, int wait) {
                waitsOfHosts << wait;
                QCOMPARE(host, kNobody);
                QCOMPARE(error, "Connection refused to host " + kNobody);
            });
    session.start({kFirst, kNobody}, {}, {}, true);
    QTRY_COMPARE(waitsOfFiles, told);
    QTRY_COMPARE(waitsOfHosts, told);
}

void tst_NvxFetchSession::settingsOfEachConnection_data()
{
    QTest::addColumn<bool>("isSet");
    QTest::addColumn<int>("limit");
    QTest::newRow("until set") << false << 60000;
    QTest::newRow("set") << true << 4000;
}

void tst_NvxFetchSession::settingsOfEachConnection()
{
    QFETCH(const bool, isSet);
    QFETCH(const int, limit);
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    NvxFetchSession session;
    session.setDestDir(m_client->path());
    if (isSet) {
        session.setInactivityLimit(std::chrono::milliseconds(limit));
        session.setPassiveToPeer(true);
    }
    QSignalSpy finished(&session, &NvxFetchSession::finished);
    int started = 0;
    connect(&session, &NvxFetchSession::fileStarted, this, [&] {
        const NvxFtp& ftp = session.findChild<NvxFtpDownloadRequest*>()->ftp();
        QCOMPARE(ftp.inactivityLimit(), limit);
        QCOMPARE(ftp.isPassiveToPeer(), isSet);
        ++started;
    });
    session.start({kFirst}, {}, {}, true);
    const NvxFtp* const listing = session.findChild<HydFtpFileFinder*>()->connections().first();
    QCOMPARE(listing->inactivityLimit(), limit);
    QCOMPARE(listing->isPassiveToPeer(), isSet);
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(started, 1);
}

void tst_NvxFetchSession::twoRecorders()
{
    serve();
    FtpPeer second;
    QVERIFY2(second.start(kSecond, m_other->path()), qPrintable(second.errorText()));
    QHash<QString, QByteArray> offered;
    for (int i = 0; i < 10; ++i) {
        for (const int serial : {7, 8}) {
            const QByteArray bytes = pattern(10000 * i + serial, i + serial);
            offered.insert(recording(serial, i), bytes);
            QVERIFY(offer(serial == 7 ? m_server->path() : m_other->path(), recording(serial, i), bytes));
        }
    }
    qint64 last = 0;
    connect(m_session.get(), &NvxFetchSession::fileProgress, this,
            [&](const QString& host, const QString& name, qint64 done, qint64 size) {
                QCOMPARE(host, name.startsWith(QLatin1String("REC7")) ? kFirst : kSecond);
                QCOMPARE(size, offered[name].size());
                last = std::max(last, done);
                QVERIFY(m_session->bytesDone() <= m_session->bytesInAll());
            });
    run({kFirst, kSecond, kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 60000);
    qint64 bytes = 0;
    for (auto file = offered.cbegin(); file != offered.cend(); ++file) {
        bytes += file.value().size();
        QVERIFY2(fileBytes(local(file.key())) == file.value(), qPrintable(file.key()));
        const NvxFetchResult* const result = resultOf(file.key());
        QVERIFY(result != nullptr);
        QCOMPARE(result->outcome, NvxFetchResult::Fetched);
        QCOMPARE(result->attempts, 1);
        QCOMPARE(result->localPath, local(file.key()));
        QCOMPARE(result->size, file.value().size());
        QCOMPARE(result->error, QString());
    }
    QCOMPARE(m_results.size(), 20);
    QCOMPARE(m_started, 20);
    QCOMPARE(fetched().size(), 20);
    QCOMPARE(last, 90008);
    QCOMPARE(m_session->bytesDone(), bytes);
    QCOMPARE(m_session->bytesInAll(), bytes);
    const NvxFetchSummary summary = m_summaries.first();
    QCOMPARE(summary.fetched, 20);
    QCOMPARE(summary.files(), 20);
    QCOMPARE(summary.bytes, bytes);
    QVERIFY(summary.isWhole());
    m_hosts.sort();
    QCOMPARE(m_hosts, QStringList({kFirst + " has 10", kSecond + " has 10"}));
}

void tst_NvxFetchSession::onlyTheRange()
{
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    QVERIFY(offer(m_server->path(), QStringLiteral("REC7_20210304_060000.wav"), "1"));
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Data/directory")));
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(fetched(), QStringList(recording(7, 1)));
}

void tst_NvxFetchSession::nothingFound()
{
    serve();
    QVERIFY(QDir(m_server->path()).mkdir(QStringLiteral("Data")));
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_hosts, QStringList(kFirst + " has 0"));
    QCOMPARE(m_summaries[0].files(), 0);
    QVERIFY(m_summaries[0].isWhole());
}

void tst_NvxFetchSession::noHosts()
{
    run({});
    QCOMPARE(m_summaries.size(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QVERIFY(m_summaries[0].isWhole());
}

void tst_NvxFetchSession::neverMoreThanTheSlots()
{
    serve();
    for (int i = 0; i < 9; ++i)
        QVERIFY(offer(m_server->path(), recording(7, i), pattern(50000, i)));
    int running = 0;
    int most = 0;
    connect(m_session.get(), &NvxFetchSession::fileStarted, this, [&] { most = std::max(most, ++running); });
    connect(m_session.get(), &NvxFetchSession::fileFinished, this, [&] { --running; });
    m_session->setMaxDownloads(2);
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 30000);
    QCOMPARE(most, 2);
    QCOMPARE(m_summaries[0].fetched, 9);
    // A session with no slots would never end.
    NvxFetchSession none;
    none.setMaxDownloads(0);
    none.setMaxAttempts(0);
    none.setDestDir(m_client->path());
    QSignalSpy finished(&none, &NvxFetchSession::finished);
    none.start({kFirst}, {}, {}, true);
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 30000);
    QCOMPARE(finished[0][0].value<NvxFetchSummary>().fetched, 9);
}

void tst_NvxFetchSession::olderFilesAreReplaced()
{
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), "new"));
    QVERIFY(makeFile(local(recording(7, 1)), "older one"));
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(fileBytes(local(recording(7, 1))), QByteArray("new"));
    QCOMPARE(fetched().size(), 1);
}

void tst_NvxFetchSession::emptyFiles()
{
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), QByteArray()));
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_summaries[0].fetched, 1);
    QCOMPARE(fileBytes(local(recording(7, 1))), QByteArray());
}

void tst_NvxFetchSession::pausedAndResumed()
{
    serve({QStringLiteral("--rate"), QStringLiteral("100000")});
    for (int i = 0; i < 4; ++i)
        QVERIFY(offer(m_server->path(), recording(7, i), pattern(3000000, i)));
    QSignalSpy progress(m_session.get(), &NvxFetchSession::fileProgress);
    run({kFirst});
    QTRY_VERIFY_WITH_TIMEOUT(progress.size() > 3, 20000);
    m_session->pause();
    QVERIFY(m_session->isPaused());
    // At once, ahead of the ends of the aborts; and once more behind them.
    m_session->resume();
    QVERIFY(!m_session->isPaused());
    m_session->pause();
    QCoreApplication::processEvents();
    m_peer->setRate(0);
    m_session->resume();
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 60000);
    QCOMPARE(m_summaries[0].fetched, 4);
    for (int i = 0; i < 4; ++i)
        QVERIFY(fileBytes(local(recording(7, i))) == pattern(3000000, i));
    QCOMPARE(fetched().size(), 4);
    QCOMPARE(m_session->bytesDone(), 12000000);
    for (const NvxFetchResult& result : std::as_const(m_results))
        QCOMPARE(result.attempts, 1);
}

void tst_NvxFetchSession::pausedAheadOfTheFirstCommand()
{
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    // Behind the refill that starts it, and ahead of what it starts.
    connect(
        m_session.get(), &NvxFetchSession::fileStarted, this,
        [this] {
            if (m_started == 1)
                m_session->pause();
        },
        Qt::QueuedConnection);
    run({kFirst});
    QTRY_VERIFY_WITH_TIMEOUT(m_session->isPaused(), 20000);
    m_session->resume();
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_summaries[0].fetched, 1);
    // It wasn't a failure.
    QCOMPARE(m_results[0].attempts, 1);
}

void tst_NvxFetchSession::pausedAtEachCommand_data()
{
    QTest::addColumn<int>("command");
    QTest::addColumn<int>("starts");
    // Only a download that has begun goes on over the same connection.
    QTest::newRow("connection") << int(QFtp::ConnectToHost) << 2;
    QTest::newRow("login") << int(QFtp::Login) << 2;
    QTest::newRow("directory") << int(QFtp::Cd) << 2;
    QTest::newRow("file") << int(QFtp::Get) << 1;
    QTest::newRow("goodbye") << int(QFtp::Close) << 1;
}

void tst_NvxFetchSession::pausedAtEachCommand()
{
    QFETCH(const int, command);
    QFETCH(const int, starts);
    bool wasPaused = false;
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), "right"));
    // What a download that goes on ahead of its directory would get.
    QVERIFY(makeFile(remote(recording(7, 1)), "wrong"));
    connect(m_session.get(), &NvxFetchSession::fileStarted, this, [&] {
        NvxFtp* const ftp = &m_session->findChildren<NvxFtpDownloadRequest*>().last()->ftp();
        connect(ftp, &QFtp::commandStarted, this, [&, ftp] {
            if (ftp->currentCommand() == command && !std::exchange(wasPaused, true))
                m_session->pause();
        });
    });
    run({kFirst});
    QTRY_VERIFY(m_session->isPaused());
    m_session->resume();
    QTRY_COMPARE(m_summaries.size(), 1);
    QCOMPARE(fileBytes(local(recording(7, 1))), QByteArray("right"));
    QCOMPARE(fetched().size(), 1);
    // A pause is no failure.
    QCOMPARE(m_results[0].attempts, 1);
    QCOMPARE(m_retries, QStringList());
    QCOMPARE(m_started, starts);
    QCOMPARE(m_session->bytesDone(), 5);
}

void tst_NvxFetchSession::pausedFromASlot()
{
    serve();
    for (int i = 0; i < 5; ++i)
        QVERIFY(offer(m_server->path(), recording(7, i), "1"));
    connect(m_session.get(), &NvxFetchSession::fileStarted, m_session.get(), &NvxFetchSession::pause);
    connect(m_session.get(), &NvxFetchSession::fileStarted, m_session.get(), &NvxFetchSession::resume,
            Qt::QueuedConnection);
    connect(m_session.get(), &NvxFetchSession::fileFinished, m_session.get(), &NvxFetchSession::pause);
    connect(m_session.get(), &NvxFetchSession::fileFinished, m_session.get(), &NvxFetchSession::resume);
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 30000);
    QCOMPARE(m_summaries[0].fetched, 5);
}

void tst_NvxFetchSession::pausedWhileNothingRuns()
{
    serve();
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    m_session->pause();
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_hosts, QStringList(kFirst + " has 1"), 20000);
    QCoreApplication::processEvents();
    QCOMPARE(m_started, 0);
    m_session->resume();
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_summaries[0].fetched, 1);
}

void tst_NvxFetchSession::pauseThatTheServerDoesNotOutlive()
{
    serve({QStringLiteral("--rate"), QStringLiteral("100000")});
    QVERIFY(offer(m_server->path(), recording(7, 1), pattern(3000000, 1)));
    m_session->setMaxAttempts(1);
    QSignalSpy progress(m_session.get(), &NvxFetchSession::fileProgress);
    run({kFirst});
    QTRY_VERIFY_WITH_TIMEOUT(!progress.isEmpty(), 20000);
    m_session->pause();
    m_peer->stop();
    serve();
    m_session->resume();
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 30000);
    // It doesn't count as a try.
    QCOMPARE(m_summaries[0].fetched, 1);
    QVERIFY(fileBytes(local(recording(7, 1))) == pattern(3000000, 1));
}

void tst_NvxFetchSession::cancelled_data()
{
    QTest::addColumn<bool>("isPaused");
    QTest::newRow("while it runs") << false;
    QTest::newRow("while it is paused") << true;
}

void tst_NvxFetchSession::cancelled()
{
    QFETCH(const bool, isPaused);
    serve({QStringLiteral("--rate"), QStringLiteral("100000")});
    for (int i = 0; i < 6; ++i)
        QVERIFY(offer(m_server->path(), recording(7, i), i == 0 ? QByteArray() : pattern(2000000, i)));
    QSignalSpy progress(m_session.get(), &NvxFetchSession::fileProgress);
    run({kFirst});
    QTRY_VERIFY_WITH_TIMEOUT(!progress.isEmpty() && m_results.size() == 1, 20000);
    if (isPaused)
        m_session->pause();
    m_session->cancel();
    QCOMPARE(m_results.size(), 6);
    QCOMPARE(m_summaries.size(), 0);
    m_session->cancel();
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_summaries[0].fetched, 1);
    QCOMPARE(m_summaries[0].cancelled, 5);
    QCOMPARE(fetched(), QStringList(recording(7, 0)));
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone"), m_peer->lines().count(QStringLiteral("open"))));
    QCOMPARE(m_summaries.size(), 1);
    QCOMPARE(m_results.size(), 6);
}

void tst_NvxFetchSession::cancelledFromASlot()
{
    serve();
    for (int i = 0; i < 6; ++i)
        QVERIFY(offer(m_server->path(), recording(7, i), "1"));
    connect(m_session.get(), &NvxFetchSession::hostListed, m_session.get(), &NvxFetchSession::cancel);
    run({kFirst, kNobody});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_summaries[0].cancelled, 6);
    QCOMPARE(m_results.size(), 6);
    QCOMPARE(m_started, 0);
}

void tst_NvxFetchSession::deletedWhileItRuns()
{
    serve({QStringLiteral("--rate"), QStringLiteral("100000")});
    for (int i = 0; i < 6; ++i)
        QVERIFY(offer(m_server->path(), recording(7, i), pattern(2000000, i)));
    QSignalSpy progress(m_session.get(), &NvxFetchSession::fileProgress);
    run({kFirst});
    QTRY_VERIFY_WITH_TIMEOUT(!progress.isEmpty(), 20000);
    m_session.reset();
    QVERIFY(m_peer->waitForLine(QStringLiteral("gone"), m_peer->lines().count(QStringLiteral("open"))));
    QCOMPARE(m_summaries.size(), 0);
}

int main(int argc, char* argv[])
{
    return runFtpTest<tst_NvxFetchSession>(argc, argv);
}

#include "tst_NvxFetchSession.moc"
