// A HydStreamAdapter on a thread of its own, with consumers on another.
#include "tests/streaming/StreamFixture.h"
#include "tests/streaming/StreamFrames.h"

#include <QThread>

using namespace streamframes;

namespace {

const QString kAddress = QStringLiteral("127.41.7.1");

/// Shows the thread sanitizer what it can't see inside Qt: a payload that was emitted on one thread was
/// complete before the other took it. Made ahead of the connection that carries the payload over.
class Handover
{
public:
    explicit Handover(HydStreamAdapter* adapter)
    {
        QObject::connect(
            adapter, &HydStreamAdapter::streamDataReady, adapter,
            [emitted = m_emitted] { emitted->fetch_add(1, std::memory_order_release); },
            Qt::DirectConnection);
    }
    void take() const { m_emitted->load(std::memory_order_acquire); }

private:
    std::shared_ptr<std::atomic<int>> m_emitted = std::make_shared<std::atomic<int>>(0);
};

} // namespace

class TestHydStreamAdapterThread : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows

    void streamsAcrossThreads()
    {
        StreamPeer peer(kAddress);
        QThread thread;
        auto* adapter = new HydStreamAdapter(StreamWave, peer.port(), kAddress, kDevice, 50, true);
        adapter->moveToThread(&thread);
        connect(&thread, &QThread::finished, adapter, &QObject::deleteLater);
        QList<uint32_t> numbers;
        int wrongBytes = 0;
        Handover handover(adapter);
        connect(adapter, &HydStreamAdapter::streamDataReady, this,
                [&](const std::shared_ptr<HydStreamDataPayload>& payload) {
                    handover.take();
                    const auto chunk = payload->data();
                    numbers.append(chunk->sampleNum());
                    const auto sent = samples(chunk->sampleNum(), chunk->numSamples());
                    if (std::memcmp(chunk->bytes().get(), sent->bytes().get(), chunk->byteSize()) != 0)
                        ++wrongBytes;
                });
        // Not spies: those take their notes on the emitting thread.
        int started = 0;
        int stopped = 0;
        connect(adapter, &HydStreamAdapter::streamStarted, this, [&] { ++started; });
        connect(adapter, &HydStreamAdapter::streamStopped, this, [&] { ++stopped; });
        thread.start();
        QMetaObject::invokeMethod(adapter, "startStream", Qt::QueuedConnection);
        QTRY_COMPARE(started, 1);
        QTRY_COMPARE(peer.received(), kStart);

        constexpr uint32_t kBlocks = 300;
        QList<uint32_t> expected;
        QByteArray bytes;
        for (uint32_t i = 0; i < kBlocks; ++i) {
            bytes += frame(block(1, 0, i * 500, 500));
            expected.append(i * 500);
        }
        peer.send(bytes);
        QTRY_COMPARE(numbers.size(), expected.size());
        QCOMPARE(numbers, expected);
        QCOMPARE(wrongBytes, 0);

        QMetaObject::invokeMethod(adapter, "stopStream", Qt::QueuedConnection);
        QTRY_COMPARE(stopped, 1);
        thread.quit();
        QVERIFY(thread.wait(10000));
        QTRY_VERIFY(!peer.isConnected());
    }

    // --- rainy day flows

    void threadThatEndsInMidStreamClosesTheLink()
    {
        StreamPeer peer(kAddress);
        QThread thread;
        auto* adapter = new HydStreamAdapter(StreamWave, peer.port(), kAddress, kDevice, 20, true);
        adapter->moveToThread(&thread);
        connect(&thread, &QThread::finished, adapter, &QObject::deleteLater);
        int blocks = 0;
        connect(adapter, &HydStreamAdapter::streamDataReady, this, [&] { ++blocks; });
        thread.start();
        QMetaObject::invokeMethod(adapter, "startStream", Qt::QueuedConnection);
        QTRY_COMPARE(peer.received(), kStart);
        QByteArray bytes;
        for (uint32_t i = 0; i < 300; ++i)
            bytes += frame(block(1, 0, i * 500, 500));
        peer.send(bytes);
        QTRY_VERIFY(blocks > 0);
        thread.quit();
        QVERIFY(thread.wait(10000));
        QTRY_VERIFY(!peer.isConnected());
    }

    void reconnectionsHappenOnTheAdaptersThread()
    {
        StreamPeer peer(kAddress);
        QThread thread;
        auto* adapter = new HydStreamAdapter(StreamWave, peer.port(), kAddress, kDevice, 20, true);
        adapter->moveToThread(&thread);
        connect(&thread, &QThread::finished, adapter, &QObject::deleteLater);
        thread.start();
        QMetaObject::invokeMethod(adapter, "startStream", Qt::QueuedConnection);
        // The alive timer may come between a lost link and the next one, which then is made twice.
        qsizetype before = 0;
        for (int round = 0; round < 3; ++round) {
            QTRY_VERIFY(peer.connections() > before);
            before = peer.connections();
            QTRY_VERIFY(peer.received().endsWith(kStart));
            peer.takeReceived();
            peer.socket()->abort();
        }
        QTRY_VERIFY(peer.connections() > before);
        thread.quit();
        QVERIFY(thread.wait(10000));
        QTRY_VERIFY(!peer.isConnected());
    }
};

QTEST_GUILESS_MAIN(TestHydStreamAdapterThread)
#include "tst_HydStreamAdapterThread.moc"
