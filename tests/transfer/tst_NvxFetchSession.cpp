#include "NvxQtCommon/transfer/NvxFetchSession.h"
#include "tests/transfer/FtpCase.h"

#include <algorithm>

namespace {

const QString kFirst = QStringLiteral("127.94.6.1");
const QString kSecond = QStringLiteral("127.94.6.2");
const QString kNobody = QStringLiteral("127.94.6.99");

QString recording(int serial, int minute)
{
    return QStringLiteral("REC%1_20210304_05%2%3.wav")
        .arg(serial)
        .arg(minute, 2, 10, QLatin1Char('0'))
        .arg("00");
}

QByteArray pattern(int size, int seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = static_cast<quint32>(seed);
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

} // namespace

/// Whole sessions, against packaged servers.
class tst_NvxFetchSession : public FtpCase
{
    Q_OBJECT

public:
    tst_NvxFetchSession() : FtpCase(kFirst) {}

private Q_SLOTS:
    void init();

    // --- happy flows
    void twoRecorders();
    void onlyTheRange();
    void nothingFound();
    void noHosts();
    void neverMoreThanTheSlots();
    void olderFilesAreReplaced();
    void emptyFiles();
    void pausedAndResumed();
    void pausedAheadOfTheFirstCommand();
    void pausedFromASlot();
    void pausedWhileNothingRuns();
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
    void pauseThatTheServerDoesNotOutlive();
    void cancelled_data();
    void cancelled();
    void cancelledFromASlot();
    void deletedWhileItRuns();

private:
    bool offer(const QString& folder, const QString& name, const QByteArray& bytes);
    void run(const QStringList& hosts);
    const NvxFetchResult* resultOf(const QString& name) const;
    QStringList fetched() const { return QDir(m_client->path()).entryList(QDir::Files | QDir::Hidden); }

    std::unique_ptr<QTemporaryDir> m_other;
    std::unique_ptr<NvxFetchSession> m_session;
    QList<NvxFetchResult> m_results;
    QList<NvxFetchSummary> m_summaries;
    QStringList m_hosts;
    QStringList m_retries;
    int m_started = 0;
};

void tst_NvxFetchSession::init()
{
    m_session.reset();
    makeFolders();
    m_other = std::make_unique<QTemporaryDir>();
    m_results.clear();
    m_summaries.clear();
    m_hosts.clear();
    m_retries.clear();
    m_started = 0;
    m_session = std::make_unique<NvxFetchSession>();
    m_session->setDestDir(m_client->path());
    m_session->setRetryWait(std::chrono::milliseconds(1));
    m_session->setPassiveToPeer(true);
    NvxFetchSession* const session = m_session.get();
    connect(session, &NvxFetchSession::fileFinished, this,
            [this](const NvxFetchResult& result) { m_results << result; });
    connect(session, &NvxFetchSession::finished, this,
            [this](const NvxFetchSummary& summary) { m_summaries << summary; });
    connect(session, &NvxFetchSession::hostListed, this, [this](const QString& host, int count) {
        m_hosts << QStringLiteral("%1 has %2").arg(host).arg(count);
    });
    connect(session, &NvxFetchSession::hostFailed, this,
            [this](const QString& host, const QString& error) { m_hosts << host + ": " + error; });
    connect(session, &NvxFetchSession::fileRetried, this,
            [this](const QString&, const QString&, const QString& error) { m_retries << error; });
    connect(session, &NvxFetchSession::fileStarted, this, [this] { ++m_started; });
}

bool tst_NvxFetchSession::offer(const QString& folder, const QString& name, const QByteArray& bytes)
{
    return QDir(folder).mkpath(QStringLiteral("Data")) && makeFile(folder + "/Data/" + name, bytes);
}

void tst_NvxFetchSession::run(const QStringList& hosts)
{
    m_session->start(hosts, QDateTime(QDate(2021, 3, 4), QTime(5, 0), Qt::UTC),
                     QDateTime(QDate(2021, 3, 4), QTime(5, 59), Qt::UTC), false);
}

const NvxFetchResult* tst_NvxFetchSession::resultOf(const QString& name) const
{
    const auto found =
        std::ranges::find_if(m_results, [&](const auto& result) { return result.name == name; });
    return found == m_results.cend() ? nullptr : &*found;
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
    serve({QStringLiteral("--rate"), QStringLiteral("300000")});
    for (int i = 0; i < 4; ++i)
        QVERIFY(offer(m_server->path(), recording(7, i), pattern(400000, i)));
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
    m_session->resume();
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 60000);
    QCOMPARE(m_summaries[0].fetched, 4);
    for (int i = 0; i < 4; ++i)
        QVERIFY(fileBytes(local(recording(7, i))) == pattern(400000, i));
    QCOMPARE(fetched().size(), 4);
    QCOMPARE(m_session->bytesDone(), 1600000);
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

void tst_NvxFetchSession::recorderThatIsNotThere()
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

void tst_NvxFetchSession::recorderThatComesLater()
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

void tst_NvxFetchSession::refusedLogin()
{
    serve({QStringLiteral("--refuse"), QStringLiteral("USER")});
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_hosts, QStringList(kFirst + ": Login failed:\nRefused on demand."));
    // Each try is a connection of its own.
    QCOMPARE(m_peer->commands(QStringLiteral("USER")).size(), 3);
}

void tst_NvxFetchSession::listingThatIsNeverAnswered()
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

void tst_NvxFetchSession::refusedFile()
{
    serve({QStringLiteral("--refuse"), QStringLiteral("RETR")});
    QVERIFY(offer(m_server->path(), recording(7, 1), "1"));
    QVERIFY(makeFile(local(recording(7, 1)), "older"));
    run({kFirst});
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_results.size(), 1);
    QCOMPARE(m_results[0].outcome, NvxFetchResult::Failed);
    QCOMPARE(m_results[0].attempts, 3);
    QCOMPARE(m_results[0].error, "Downloading file failed:\nRefused on demand., " + recording(7, 1));
    QCOMPARE(m_results[0].localPath, QString());
    QCOMPARE(m_retries.size(), 2);
    QCOMPARE(m_summaries[0].failed, 1);
    QVERIFY(!m_summaries[0].isWhole());
    QCOMPARE(m_session->bytesDone(), 0);
    // What was there stays, and nothing else is left.
    QCOMPARE(fetched(), QStringList(recording(7, 1)));
    QCOMPARE(fileBytes(local(recording(7, 1))), QByteArray("older"));
}

void tst_NvxFetchSession::silentTransferIsTriedAgain()
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

void tst_NvxFetchSession::serverThatGoesAndComesBack()
{
    serve({QStringLiteral("--rate"), QStringLiteral("300000")});
    for (int i = 0; i < 4; ++i)
        QVERIFY(offer(m_server->path(), recording(7, i), pattern(300000, i)));
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
        QVERIFY(fileBytes(local(recording(7, i))) == pattern(300000, i));
    QCOMPARE(fetched().size(), 4);
}

void tst_NvxFetchSession::sizeThatIsAnother()
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
    QCOMPARE(resultOf(recording(7, 2))->error, QStringLiteral("3 bytes came instead of 2"));
    QCOMPARE(resultOf(recording(7, 1))->attempts, 3);
    QCOMPARE(fetched(), QStringList());
}

void tst_NvxFetchSession::hostileNames()
{
    QByteArray listing;
    const QByteArrayList names{"../evil.wav",
                               "/evil.wav",
                               "..\\evil.wav",
                               "C:evil.wav",
                               "NUL.wav",
                               "a/b.wav",
                               QByteArray(251, 'n') + ".wav"};
    for (const QByteArray& name : names)
        listing += "-rw-r--r-- 1 ftp ftp 4 Mar 04 05:01 " + name + "\r\n";
    QVERIFY(makeFile(m_other->filePath(QStringLiteral("list")), listing));
    serve({QStringLiteral("--listing"), m_other->filePath(QStringLiteral("list")),
           QStringLiteral("--any-file"), QStringLiteral("evil")});
    m_session->start({kFirst}, {}, {}, true);
    QTRY_COMPARE_WITH_TIMEOUT(m_summaries.size(), 1, 20000);
    QCOMPARE(m_summaries[0].failed, names.size());
    for (const NvxFetchResult& result : std::as_const(m_results)) {
        QCOMPARE(result.error, QStringLiteral("The name is not a bare file name"));
        QCOMPARE(result.attempts, 0);
    }
    QCOMPARE(fetched(), QStringList());
    QCOMPARE(m_peer->commands(QStringLiteral("RETR")), QStringList());
}

void tst_NvxFetchSession::sameNameTwice()
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

void tst_NvxFetchSession::folderThatIsNotThere()
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

void tst_NvxFetchSession::pauseThatTheServerDoesNotOutlive()
{
    serve({QStringLiteral("--rate"), QStringLiteral("300000")});
    QVERIFY(offer(m_server->path(), recording(7, 1), pattern(300000, 1)));
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
    QVERIFY(fileBytes(local(recording(7, 1))) == pattern(300000, 1));
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
