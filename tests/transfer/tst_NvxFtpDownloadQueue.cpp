#include "NvxQtCommon/settings/OutputFolder.h"
#include "NvxQtCommon/transfer/NvxFtpDownloadQueue.h"
#include "tests/support/LogSpy.h"
#include "tests/transfer/RequestCase.h"

#include <vector>

/// The queue and the requests in it, against the packaged server.
class tst_NvxFtpDownloadQueue : public RequestCase
{
    Q_OBJECT

public:
    tst_NvxFtpDownloadQueue() : RequestCase(QStringLiteral("127.94.4.3")) {}

private Q_SLOTS:
    void init();

    // --- happy flows
    void newQueue();
    void requestsAreQueued();
    void requestsAreRemoved();
    void lookUps();
    void queueIndexes();
    void workOfTheQueue();
    void threeOfFiveStart();
    void aFinishedSlotStaysFree();
    void refilledByAQueuedCall();
    void requestsWithoutWorkStay();
    void removals();
    void destinationOfTheQueue();
    void pausedAndResumed();
    void cancelledWhilePending();
    void cancelledWhileInProgress();
    void cancelOfAnIdDoesNothing();
    void startNextAlone();
    // --- rainy day flows
    void unknownIds();
    void noSlots_data();
    void noSlots();
    void aRefusedConnectionKeepsItsSlot();
    void completeWhilePaused();
    void failuresLeaveTheQueue();
    void failuresAreLoggedByTheirWork_data();
    void failuresAreLoggedByTheirWork();
    void cancelAllBeginsAtTheFirst();
    void deletedRequestsLeave();
    void queueDeletedWhileItRuns();
    void cancelAllWithSlotsThatRemove();

private:
    using Queue = NvxFtpDownloadQueue;

    Request* add(const QString& name, Request::WorkRegime regime = Request::DownloadWork);
    QList<int> indexes() const;

    std::vector<std::unique_ptr<Request>> m_requests;
    std::unique_ptr<Queue> m_queue;
};

void tst_NvxFtpDownloadQueue::init()
{
    m_queue.reset();
    m_requests.clear();
    makeFolders();
    m_told.clear();
    m_queue = std::make_unique<Queue>();
    m_queue->setDestDir(m_client->path());
}

NvxFtpDownloadRequest* tst_NvxFtpDownloadQueue::add(const QString& name, Request::WorkRegime regime)
{
    m_requests.push_back(makeRequest(name, regime));
    m_queue->push_back(m_requests.back().get());
    return m_requests.back().get();
}

QList<int> tst_NvxFtpDownloadQueue::indexes() const
{
    QList<int> found;
    for (const auto& request : m_requests)
        found << request->queueInd();
    return found;
}

void tst_NvxFtpDownloadQueue::newQueue()
{
    QObject parent;
    const auto* queue = new Queue(&parent);
    QCOMPARE(queue->numRequests(), 0);
    QCOMPARE(queue->numPending(), 0);
    QCOMPARE(queue->numInProgress(), 0);
    QCOMPARE(queue->maxDownloads(), 3);
    QCOMPARE(queue->destDir(), defaultOutputFolder());
    QVERIFY(!queue->isRunning());
    QVERIFY(queue->downloadTaskComplete());
    QVERIFY(!queue->isAllQueueHasWork());
}

void tst_NvxFtpDownloadQueue::requestsAreQueued()
{
    QSignalSpy queued(m_queue.get(), &Queue::requestQueued);
    const Request* const a = add(QStringLiteral("a"));
    const Request* const b = add(QStringLiteral("b"));
    QCOMPARE(indexes(), QList<int>({0, 1}));
    QCOMPARE(queued.size(), 2);
    QCOMPARE(queued[0][0].toInt(), a->requestId());
    QCOMPARE(queued[1][0].toInt(), b->requestId());
    QCOMPARE(m_queue->numPending(), 2);
    QCOMPARE(m_queue->numRequests(), 2);
    QVERIFY(!m_queue->isRunning());
}

void tst_NvxFtpDownloadQueue::requestsAreRemoved()
{
    QSignalSpy removed(m_queue.get(), &Queue::requestRemoved);
    add(QStringLiteral("a"));
    Request* const b = add(QStringLiteral("b"));
    add(QStringLiteral("c"));
    m_queue->remove(b->requestId());
    QCOMPARE(removed.size(), 1);
    QCOMPARE(removed[0][0].toInt(), b->requestId());
    QCOMPARE(m_queue->numPending(), 2);
    QCOMPARE(m_queue->requestById(b->requestId()), nullptr);
    // Neither deleted nor renumbered.
    QCOMPARE(b->remoteName(), QStringLiteral("b"));
    QCOMPARE(indexes(), QList<int>({0, 1, 2}));
}

void tst_NvxFtpDownloadQueue::lookUps()
{
    m_queue->setMaxDownloads(1);
    Request* const a = add(QStringLiteral("a"));
    Request* const b = add(QStringLiteral("b"));
    m_queue->startQueuedRequests();
    QVERIFY(m_queue->isInProgress(a->requestId()));
    QVERIFY(!m_queue->isInProgress(b->requestId()));
    for (Request* request : {a, b}) {
        QCOMPARE(m_queue->requestById(request->requestId()), request);
        QCOMPARE(m_queue->requestAtPos(request->queueInd()), request);
        QCOMPARE(m_queue->positionOf(request->requestId()), request->queueInd());
    }
    // In progress first.
    b->setQueueInd(0);
    QCOMPARE(m_queue->requestAtPos(0), a);
    QCOMPARE(m_queue->requestAtPos(1), nullptr);
    QCOMPARE(m_queue->numRequests(), 2);
    QCOMPARE(m_queue->numInProgress(), 1);
    QCOMPARE(m_queue->numPending(), 1);
    QVERIFY(!m_queue->downloadTaskComplete());
}

void tst_NvxFtpDownloadQueue::queueIndexes()
{
    m_queue->setMaxDownloads(2);
    for (const char* name : {"a", "b", "c", "d", "e"})
        add(QLatin1String(name));
    m_queue->startQueuedRequests();
    m_queue->setQueueIndexes(0);
    QCOMPARE(indexes(), QList<int>({0, 0, 1, 2, 3}));
    m_queue->setQueueIndexes(2);
    QCOMPARE(indexes(), QList<int>({0, 0, 1, 2, 2}));
    m_queue->setQueueIndexes(-1);
    QCOMPARE(indexes(), QList<int>({0, 0, 0, 1, 2}));
}

void tst_NvxFtpDownloadQueue::workOfTheQueue()
{
    add(QStringLiteral("a"), Request::NoWork);
    QVERIFY(!m_queue->isAllQueueHasWork());
    add(QStringLiteral("b"), Request::RemoveWork);
    QVERIFY(m_queue->isAllQueueHasWork());
}

void tst_NvxFtpDownloadQueue::threeOfFiveStart()
{
    for (const char* name : {"a", "b", "c", "d", "e"})
        add(QLatin1String(name));
    m_queue->startQueuedRequests();
    QVERIFY(m_queue->isRunning());
    QCOMPARE(m_queue->numInProgress(), 3);
    QCOMPARE(m_queue->numPending(), 2);
    for (size_t i = 0; i < m_requests.size(); ++i)
        QCOMPARE(m_queue->isInProgress(m_requests[i]->requestId()), i < 3);
    m_queue->startQueuedRequests();
    QCOMPARE(m_queue->numInProgress(), 3);
}

void tst_NvxFtpDownloadQueue::aFinishedSlotStaysFree()
{
    serve();
    QSignalSpy finished(m_queue.get(), &Queue::signalProcTaskComplete);
    QSignalSpy started(m_queue.get(), &Queue::downloadStarted);
    QSignalSpy ended(m_queue.get(), &Queue::downloadComplete);
    QSignalSpy progress(m_queue.get(), &Queue::progress);
    QSignalSpy error(m_queue.get(), &Queue::error);
    for (const char* name : {"a", "b", "c", "d", "e"}) {
        QVERIFY(offer(QLatin1String(name), name));
        add(QLatin1String(name));
    }
    m_queue->startQueuedRequests();
    QTRY_COMPARE_WITH_TIMEOUT(m_queue->numInProgress(), 0, 20000);
    // Intended: the two that are left don't start by themselves, and are work, so nobody is told of an end.
    QCOMPARE(m_queue->numPending(), 2);
    QVERIFY(m_queue->isRunning());
    QCOMPARE(finished.size(), 0);
    QVERIFY(m_queue->downloadTaskComplete());
    m_queue->startQueuedRequests();
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
    QCOMPARE(finished[0][0].toInt(), 0);
    for (const char* name : {"a", "b", "c", "d", "e"})
        QCOMPARE(fileBytes(local(QLatin1String(name))), QByteArray(name));
    QCOMPARE(m_told, QStringList(5, QStringLiteral("complete")));
    // Intended: these four never fire.
    for (const QSignalSpy* spy : {&started, &ended, &progress, &error})
        QCOMPARE(spy->size(), 0);
}

void tst_NvxFtpDownloadQueue::refilledByAQueuedCall()
{
    serve();
    m_queue->setMaxDownloads(2);
    int most = 0;
    for (int i = 0; i < 20; ++i) {
        const QString name = QString::number(i);
        QVERIFY(offer(name, name.toLatin1()));
        const Request* const request = add(name);
        connect(
            request, &Request::complete, m_queue.get(),
            [&] {
                most = std::max(most, m_queue->numInProgress());
                m_queue->startQueuedRequests();
            },
            Qt::QueuedConnection);
    }
    QSignalSpy finished(m_queue.get(), &Queue::signalProcTaskComplete);
    m_queue->startQueuedRequests();
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 30000);
    for (int i = 0; i < 20; ++i)
        QCOMPARE(fileBytes(local(QString::number(i))), QByteArray::number(i));
    QVERIFY(most <= 2);
}

void tst_NvxFtpDownloadQueue::requestsWithoutWorkStay()
{
    serve();
    QVERIFY(offer(QStringLiteral("b"), "B"));
    const Request* const idle = add(QStringLiteral("a"), Request::NoWork);
    add(QStringLiteral("b"));
    const Request* const late = add(QStringLiteral("c"), Request::NoWork);
    QSignalSpy finished(m_queue.get(), &Queue::signalProcTaskComplete);
    m_queue->startQueuedRequests();
    QCOMPARE(m_queue->numInProgress(), 1);
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
    QCOMPARE(finished[0][0].toInt(), 2);
    QCOMPARE(m_queue->numPending(), 2);
    QCOMPARE(m_queue->requestById(idle->requestId()), idle);
    QCOMPARE(m_queue->requestById(late->requestId()), late);
    QCOMPARE(m_told, QStringList("complete"));
    // Given work, the first one starts with the next call.
    m_requests.front()->setWorkRegime(Request::RemoveWork);
    m_queue->startQueuedRequests();
    QVERIFY(m_queue->isInProgress(idle->requestId()));
}

void tst_NvxFtpDownloadQueue::removals()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), "A"));
    QVERIFY(offer(QStringLiteral("b"), "B"));
    add(QStringLiteral("a"), Request::RemoveWork);
    QSignalSpy finished(m_queue.get(), &Queue::signalProcTaskComplete);
    m_queue->startQueuedRequests();
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
    QCOMPARE(QDir(remote(QStringLiteral("Data"))).entryList(QDir::Files), QStringList("b"));
    QCOMPARE(QDir(m_client->path()).entryList(QDir::Files), QStringList());
    QCOMPARE(m_told, QStringList("complete"));
}

void tst_NvxFtpDownloadQueue::destinationOfTheQueue()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), "A"));
    QVERIFY(QDir(m_client->path()).mkdir(QStringLiteral("other")));
    const Request* const request = add(QStringLiteral("a"));
    m_queue->setDestDir(local(QStringLiteral("other")));
    QCOMPARE(request->localDir(), m_client->path());
    QSignalSpy finished(m_queue.get(), &Queue::signalProcTaskComplete);
    m_queue->startQueuedRequests();
    QCOMPARE(request->localDir(), local(QStringLiteral("other")));
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
    QCOMPARE(fileBytes(local(QStringLiteral("other/a"))), QByteArray("A"));
}

void tst_NvxFtpDownloadQueue::pausedAndResumed()
{
    serve({QStringLiteral("--rate"), QStringLiteral("400000")});
    const QByteArray bytes(800000, 'x');
    QVERIFY(offer(QStringLiteral("a"), bytes));
    QVERIFY(offer(QStringLiteral("b"), "B"));
    m_queue->setMaxDownloads(1);
    Request* const a = add(QStringLiteral("a"));
    add(QStringLiteral("b"));
    QSignalSpy ready(a, &Request::readyRead);
    QSignalSpy done(&a->ftp(), &QFtp::done);
    m_queue->startQueuedRequests();
    QVERIFY(ready.wait(20000));
    m_queue->pause();
    QVERIFY(!m_queue->isRunning());
    QTRY_COMPARE_WITH_TIMEOUT(done.size(), 1, 20000);
    // It said that it failed, and it keeps its slot.
    QCOMPARE(m_told.size(), 2);
    QCOMPARE(m_told.last(), QStringLiteral("complete with error"));
    QVERIFY(m_queue->isInProgress(a->requestId()));
    // Not while it is paused.
    m_queue->startNext();
    QCOMPARE(m_queue->numPending(), 1);
    m_queue->startQueuedRequests();
    QVERIFY(m_queue->isRunning());
    QTRY_COMPARE_WITH_TIMEOUT(done.size(), 2, 30000);
    QVERIFY(fileBytes(local(QStringLiteral("a"))) == bytes);
    // Intended: its end isn't seen, so it keeps its slot until the caller frees it.
    QVERIFY(m_queue->isInProgress(a->requestId()));
    QCOMPARE(m_told.size(), 2);
    m_queue->handleDownloadComplete(a->requestId(), false);
    QVERIFY(!m_queue->isInProgress(a->requestId()));
}

void tst_NvxFtpDownloadQueue::cancelledWhilePending()
{
    add(QStringLiteral("a"));
    add(QStringLiteral("b"));
    QStringList order;
    for (const auto& request : m_requests)
        connect(request.get(), &Request::complete, this,
                [&, name = request->remoteName()] { order << name; });
    m_queue->cancelAll();
    // From the last to the first, and intended: they stay.
    QCOMPARE(order, QStringList({"b", "a"}));
    QCOMPARE(m_told, QStringList({"complete", "complete"}));
    QCOMPARE(m_queue->numPending(), 2);
}

void tst_NvxFtpDownloadQueue::cancelledWhileInProgress()
{
    serve({QStringLiteral("--rate"), QStringLiteral("100000")});
    m_queue->setMaxDownloads(2);
    for (const char* name : {"a", "b", "c"}) {
        QVERIFY(offer(QLatin1String(name), QByteArray(2000000, 'x')));
        add(QLatin1String(name));
    }
    QStringList order;
    for (const auto& request : m_requests)
        connect(request.get(), &Request::complete, this,
                [&, name = request->remoteName()] { order << name; });
    QSignalSpy ready(m_requests[0].get(), &Request::readyRead);
    m_queue->startQueuedRequests();
    QVERIFY(ready.wait(20000));
    QSignalSpy done(&m_requests[0]->ftp(), &QFtp::done);
    m_queue->cancelAll();
    QCOMPARE(order, QStringList({"c", "b", "a"}));
    QCOMPARE(m_queue->numInProgress(), 0);
    QCOMPARE(m_queue->numPending(), 1);
    QCOMPARE(m_told, QStringList(3, QStringLiteral("complete")));
    QTRY_COMPARE_WITH_TIMEOUT(done.size(), 1, 20000);
    QCOMPARE(m_told.size(), 3);
}

void tst_NvxFtpDownloadQueue::cancelOfAnIdDoesNothing()
{
    const Request* const a = add(QStringLiteral("a"));
    // Intended.
    m_queue->cancel(a->requestId());
    QCOMPARE(m_queue->numPending(), 1);
    QCOMPARE(m_told, QStringList());
}

void tst_NvxFtpDownloadQueue::startNextAlone()
{
    add(QStringLiteral("a"));
    // Nothing runs yet.
    m_queue->startNext();
    QCOMPARE(m_queue->numInProgress(), 0);
    m_queue->setMaxDownloads(0);
    m_queue->startQueuedRequests();
    QCOMPARE(m_queue->numInProgress(), 0);
    // Whatever the number of slots.
    m_queue->startNext();
    QCOMPARE(m_queue->numInProgress(), 1);
    m_queue->startNext();
    QCOMPARE(m_queue->numInProgress(), 1);
    // A request without work is passed over by the cursor.
    add(QStringLiteral("b"), Request::NoWork);
    add(QStringLiteral("c"));
    m_queue->startNext();
    QCOMPARE(m_queue->numInProgress(), 1);
    m_queue->startNext();
    QCOMPARE(m_queue->numInProgress(), 2);
    QCOMPARE(m_queue->numPending(), 1);
}

void tst_NvxFtpDownloadQueue::unknownIds()
{
    QSignalSpy removed(m_queue.get(), &Queue::requestRemoved);
    const Request* const a = add(QStringLiteral("a"));
    m_queue->remove(a->requestId() + 1000);
    m_queue->remove(-1);
    QCOMPARE(removed.size(), 0);
    QCOMPARE(m_queue->numPending(), 1);
    QCOMPARE(m_queue->requestById(-1), nullptr);
    QCOMPARE(m_queue->requestAtPos(7), nullptr);
    QCOMPARE(m_queue->requestAtPos(-1), nullptr);
    QCOMPARE(m_queue->positionOf(-1), -1);
    QVERIFY(!m_queue->isInProgress(a->requestId()));
    // What is in progress can't be removed.
    m_queue->startQueuedRequests();
    m_queue->remove(a->requestId());
    QCOMPARE(removed.size(), 0);
    QCOMPARE(m_queue->numInProgress(), 1);
    m_queue->handleDownloadComplete(a->requestId() + 1000, false);
    QCOMPARE(m_queue->numInProgress(), 1);
}

void tst_NvxFtpDownloadQueue::noSlots_data()
{
    QTest::addColumn<int>("slotCount");
    QTest::newRow("none") << 0;
    QTest::newRow("negative") << -1;
}

void tst_NvxFtpDownloadQueue::noSlots()
{
    QFETCH(const int, slotCount);
    m_queue->setMaxDownloads(slotCount);
    QCOMPARE(m_queue->maxDownloads(), slotCount);
    add(QStringLiteral("a"));
    m_queue->startQueuedRequests();
    QCOMPARE(m_queue->numInProgress(), 0);
    QVERIFY(m_queue->isRunning());
}

void tst_NvxFtpDownloadQueue::aRefusedConnectionKeepsItsSlot()
{
    // Nobody serves.
    Request* const a = add(QStringLiteral("a"));
    Request* const b = add(QStringLiteral("b"), Request::RemoveWork);
    QSignalSpy finished(m_queue.get(), &Queue::signalProcTaskComplete);
    QSignalSpy doneA(&a->ftp(), &QFtp::done);
    QSignalSpy doneB(&b->ftp(), &QFtp::done);
    m_queue->startQueuedRequests();
    QTRY_COMPARE_WITH_TIMEOUT(doneA.size(), 1, 20000);
    QTRY_COMPARE_WITH_TIMEOUT(doneB.size(), 1, 20000);
    // Intended.
    QCOMPARE(m_told, QStringList());
    QCOMPARE(m_queue->numInProgress(), 2);
    m_queue->handleDownloadComplete(a->requestId(), true);
    QCOMPARE(m_queue->numInProgress(), 1);
    QCOMPARE(finished.size(), 0);
    m_queue->handleRemoveComplete(b->requestId(), true);
    QCOMPARE(m_queue->numInProgress(), 0);
    QCOMPARE(finished.size(), 1);
}

void tst_NvxFtpDownloadQueue::completeWhilePaused()
{
    Request* const a = add(QStringLiteral("a"));
    QSignalSpy finished(m_queue.get(), &Queue::signalProcTaskComplete);
    m_queue->startQueuedRequests();
    m_queue->pause();
    Q_EMIT a->complete(a->requestId(), false);
    QVERIFY(m_queue->isInProgress(a->requestId()));
    QCOMPARE(finished.size(), 0);
}

void tst_NvxFtpDownloadQueue::failuresLeaveTheQueue()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), "A"));
    const Request* const missing = add(QStringLiteral("missing"));
    QSignalSpy finished(m_queue.get(), &Queue::signalProcTaskComplete);
    m_queue->startQueuedRequests();
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);
    QCOMPARE(m_queue->numRequests(), 0);
    QCOMPARE(m_queue->requestById(missing->requestId()), nullptr);
    QCOMPARE(m_told.last(), QStringLiteral("complete with error"));
    // There is no second try.
    m_queue->startQueuedRequests();
    QCOMPARE(m_queue->numInProgress(), 0);
}

void tst_NvxFtpDownloadQueue::failuresAreLoggedByTheirWork_data()
{
    QTest::addColumn<int>("regime");
    QTest::addColumn<QString>("line");
    QTest::newRow("download") << int(Request::DownloadWork)
                              << "Download Error: Downloading file failed:\nRefused on demand.";
    QTest::newRow("removal") << int(Request::RemoveWork)
                             << "Remove Error: Removing file failed:\nRefused on demand.";
}

void tst_NvxFtpDownloadQueue::failuresAreLoggedByTheirWork()
{
    QFETCH(const int, regime);
    QFETCH(const QString, line);
    serve({QStringLiteral("--refuse"), regime == Request::DownloadWork ? "RETR" : "DELE"});
    QVERIFY(offer(QStringLiteral("a"), "A"));
    add(QStringLiteral("a"), Request::WorkRegime(regime));
    QSignalSpy finished(m_queue.get(), &Queue::signalProcTaskComplete);
    LogSpy log;
    m_queue->startQueuedRequests();
    QTRY_COMPARE(finished.size(), 1);
    // By the handler, which is told ahead of the queue that lets it go.
    QCOMPARE(log.lines(), QStringList(line));
}

void tst_NvxFtpDownloadQueue::cancelAllBeginsAtTheFirst()
{
    m_queue->setMaxDownloads(1);
    Request* const idle = add(QStringLiteral("a"), Request::NoWork);
    add(QStringLiteral("b"));
    const Request* const late = add(QStringLiteral("c"));
    // Its look has passed over the first one.
    m_queue->startQueuedRequests();
    QCOMPARE(m_queue->numPending(), 2);
    idle->setWorkRegime(Request::DownloadWork);
    m_queue->cancelAll();
    m_queue->startNext();
    QVERIFY(m_queue->isInProgress(idle->requestId()));
    QVERIFY(!m_queue->isInProgress(late->requestId()));
}

void tst_NvxFtpDownloadQueue::deletedRequestsLeave()
{
    m_queue->setMaxDownloads(1);
    add(QStringLiteral("a"));
    add(QStringLiteral("b"));
    Request* const c = add(QStringLiteral("c"));
    m_queue->startQueuedRequests();
    m_requests.erase(m_requests.begin(), m_requests.begin() + 2);
    QCOMPARE(m_queue->numInProgress(), 0);
    QCOMPARE(m_queue->numPending(), 1);
    QCOMPARE(m_queue->requestById(c->requestId()), c);
    m_queue->pause();
    m_queue->cancelAll();
}

void tst_NvxFtpDownloadQueue::queueDeletedWhileItRuns()
{
    serve();
    QVERIFY(offer(QStringLiteral("a"), "A"));
    Request* const a = add(QStringLiteral("a"));
    m_queue->startQueuedRequests();
    m_queue.reset();
    QVERIFY(waitForDone(*a, false));
    QCOMPARE(m_told, QStringList("complete"));
}

void tst_NvxFtpDownloadQueue::cancelAllWithSlotsThatRemove()
{
    for (const char* name : {"a", "b", "c", "d"})
        add(QLatin1String(name));
    m_queue->setMaxDownloads(2);
    m_queue->startQueuedRequests();
    for (const auto& request : m_requests)
        connect(request.get(), &Request::complete, this, [&] {
            for (const auto& other : m_requests)
                m_queue->remove(other->requestId());
        });
    m_queue->cancelAll();
    QCOMPARE(m_queue->numRequests(), 0);
    QCOMPARE(m_told, QStringList(3, QStringLiteral("complete")));
}

int main(int argc, char* argv[])
{
    return runFtpTest<tst_NvxFtpDownloadQueue>(argc, argv);
}

#include "tst_NvxFtpDownloadQueue.moc"
