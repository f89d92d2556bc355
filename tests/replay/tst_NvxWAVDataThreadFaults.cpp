#include "WavReplay.h"
#include "WavSignal.h"

#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/replay/NvxWAVDataThread.h"
#include "tests/recording/FileSwap.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

#include <QEventLoop>
#include <QPointer>
#include <QSemaphore>
#include <QSignalSpy>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <thread>

namespace {

/// A reader that waits at a gate before it opens its file.
class GatedThread : public NvxWAVDataThread
{
public:
    GatedThread(const QString& name, QSemaphore& gate) : NvxWAVDataThread(name, nullptr), m_gate(gate) {}

protected:
    void run() override
    {
        m_gate.acquire();
        NvxWAVDataThread::run();
    }

private:
    QSemaphore& m_gate;
};

/// The header of a file of one channel or more, as a reader gets it.
std::shared_ptr<NvxWavHeader> headerOf(int channels, unsigned rate, int bits, unsigned dataSize)
{
    const auto fmt =
        std::make_shared<NvxWavFmtData>(static_cast<uint16_t>(channels), rate, static_cast<uint16_t>(bits));
    const auto header = std::make_shared<NvxWavHeader>(fmt, makeInfo(std::max(channels, 1)), false);
    header->setDataSize(dataSize);
    return header;
}

QByteArray bytesOf(const HydStreamDataChunk& data)
{
    return {reinterpret_cast<const char*>(data.bytes().get()), qsizetype(data.byteSize())};
}

} // namespace

/// The reader of a wave file where sizes don't fit, reads fail, and consumers do what they like.
class tst_NvxWAVDataThreadFaults : public NvxTestCase
{
    Q_OBJECT

    FftParamsGuard m_fftParams;
    WavFolder m_dir;

    /// A file of 1000 Hz and 16 bits, played by blocks of 400, 400 and 200 samples of each channel a second.
    QString threeBlocksASecond(const WavSignal& signal)
    {
        FFT_Params_WAV.setFftLength(400);
        const auto channels = static_cast<quint16>(signal.channels.size());
        return m_dir.write(fileOf(signal, {.channels = channels, .rate = 1000}));
    }

private Q_SLOTS:
    void cleanup() { m_fftParams.restore(); }

    // --- happy flows
    void allComesOnTheThreadOfTheFile_data()
    {
        QTest::addColumn<bool>("isMain");
        QTest::newRow("main thread") << true;
        QTest::newRow("a thread of the application") << false;
    }
    void allComesOnTheThreadOfTheFile()
    {
        QFETCH(bool, isMain);
        const QString path = threeBlocksASecond(makeSignal(2000, 1, 16, false));
        size_t blocks = 0;
        bool isHere = true;
        const auto play = [&] {
            // A thread that Qt didn't start has no event dispatcher until something asks for one.
            const QEventLoop loop;
            WavReplay replay(path);
            const auto look = [&] { isHere = isHere && QThread::currentThread() == replay.thread(); };
            connect(&replay.file, &NvxDataFile::streamDataReady, &replay, look, Qt::DirectConnection);
            connect(&replay.file, &NvxDataFile::streamFileFinished, &replay, look, Qt::DirectConnection);
            if (replay.prepare() && replay.play())
                blocks = replay.blocks.size();
        };
        if (isMain)
            play();
        else
            std::thread(play).join();
        QVERIFY(isHere);
        QCOMPARE(blocks, size_t{6});
    }

    void keepsNothingOfWhatItHandedOut()
    {
        const QString path = threeBlocksASecond(makeSignal(20000, 3, 16, false));
        NvxWAVFile file(path);
        QVERIFY(file.headerPrepare(true));
        file.setReplayVel(ReplayMax, 0);
        std::vector<std::weak_ptr<HydStreamDataPayload>> blocks;
        std::ptrdiff_t most = 0;
        connect(&file, &NvxDataFile::streamDataReady, this,
                [&](const std::shared_ptr<HydStreamDataPayload>& payload) {
                    blocks.push_back(payload);
                    most = std::max(most, std::count_if(blocks.begin(), blocks.end(),
                                                        [](const auto& block) { return !block.expired(); }));
                });
        QSignalSpy ended(&file, &NvxDataFile::threadFinished);
        QVERIFY(file.processData());
        QTRY_COMPARE_WITH_TIMEOUT(ended.size(), 1, 30000);
        QCOMPARE(blocks.size(), size_t{180});
        QCOMPARE(most, std::ptrdiff_t{1});
    }

    // --- rainy day flows
    void lostBytesOfSeveralChannels()
    {
        // Half of 401 frames of three bytes ends inside of a frame, where the next tick begins; a byte is put
        // back in every third tick. Intended.
        FFT_Params_WAV.setFftLength(256);
        FFT_Params_WAV.setNumAccum(1);
        const WavSignal signal = makeSignal(1002, 3, 8, false);
        WavReplay replay(m_dir.write(fileOf(signal, {.channels = 3, .rate = 401, .bits = 8})));
        QVERIFY(replay.prepare());
        QVERIFY(replay.play());
        const std::vector<qsizetype> starts{0, 601, 1202, 1804, 2405};
        const std::vector<unsigned> numbers{0, 200, 400, 400, 600};
        QCOMPARE(replay.blocks.size(), 3 * starts.size());
        for (size_t i = 0; i < replay.blocks.size(); ++i) {
            const size_t tick = i / 3;
            QByteArray expected;
            for (qsizetype frame = 0; frame < 200; ++frame)
                expected += signal.bytes[starts[tick] + 3 * frame + qsizetype(i % 3)];
            QCOMPARE(bytesOf(replay.blocks[i].data()), expected);
            QCOMPARE(replay.blocks[i].data().sampleNum(), numbers[tick]);
            QCOMPARE(uint64_t(replay.blocks[i].key().sequence()), kStart + 200 * i);
        }
    }

    void blockWithoutAChannelOfItsOwn()
    {
        NvxWAVDataThread thread(QStringLiteral("nothing.wav"), nullptr);
        QList<HydDeviceId> ids;
        connect(&thread, &NvxDataThread::streamDataReady, this,
                [&](const std::shared_ptr<HydStreamDataPayload>&, const HydDeviceId& id) { ids << id; });
        thread.formSignalReady(nullptr, 0);
        QVERIFY(ids.isEmpty());
        const auto fmt = std::make_shared<NvxWavFmtData>(uint16_t{2}, 1000U, uint16_t{16});
        thread.setFileHeader(std::make_shared<NvxWavHeader>(fmt, makeInfo(2), false), 44, 44, 1);
        for (int channel : {1, 2, 255, -1})
            thread.formSignalReady(nullptr, channel);
        HydDeviceId first(DevTypeWavFile, 101);
        HydDeviceId second(DevTypeWavFile, 102);
        first.setHostDevNo(100);
        second.setHostDevNo(100);
        QCOMPARE(ids, (QList<HydDeviceId>{second, first, first, first}));
        // Nothing is read of a file that run() hasn't opened.
        QVERIFY(!thread.seekToSec(1));
        thread.readRecord();
        QCOMPARE(ids.size(), 4);
    }

    void partsOfAReader_data()
    {
        QTest::addColumn<int>("ticksPerSecond");
        QTest::addColumn<unsigned>("dataSize");
        QTest::addColumn<int>("blocks");
        QTest::newRow("whole seconds") << 1 << 4000U << 6;
        QTest::newRow("0 ticks are whole seconds") << 0 << 4000U << 6;
        QTest::newRow("3 ticks are whole seconds") << 3 << 4000U << 6;
        // The end is cut to 32 bits: intended.
        QTest::newRow("end beyond 32 bits") << 1 << 0xFFFFFFFFU << 0;
    }
    void partsOfAReader()
    {
        QFETCH(int, ticksPerSecond);
        QFETCH(unsigned, dataSize);
        QFETCH(int, blocks);
        FFT_Params_WAV.setFftLength(400);
        const auto thread = std::make_unique<NvxWAVDataThread>(m_dir.write(QByteArray(40000, 's')), nullptr);
        thread->setFileHeader(headerOf(1, 1000, 16, dataSize), 44, 44, static_cast<char>(ticksPerSecond));
        thread->setTimerTime(1);
        QSignalSpy data(thread.get(), &NvxDataThread::streamDataReady);
        thread->start();
        QTRY_VERIFY_WITH_TIMEOUT(thread->isFinished(), 20000);
        QCOMPARE(data.size(), blocks);
    }

    void ticksThatDoNothing_data()
    {
        QTest::addColumn<int>("channels");
        QTest::addColumn<unsigned>("rate");
        QTest::addColumn<int>("bits");
        QTest::addColumn<quint32>("fftLength");
        QTest::addColumn<int>("ticksPerSecond");
        QTest::newRow("samples that are too wide") << 1 << 1000U << 64 << 400U << 1;
        QTest::newRow("samples of less than a byte") << 1 << 1000U << 7 << 400U << 1;
        QTest::newRow("no channels") << 0 << 1000U << 16 << 400U << 1;
        QTest::newRow("no rate") << 1 << 0U << 16 << 400U << 1;
        QTest::newRow("blocks without a length") << 1 << 1000U << 16 << 0U << 1;
    }
    void ticksThatDoNothing()
    {
        QFETCH(int, channels);
        QFETCH(unsigned, rate);
        QFETCH(int, bits);
        QFETCH(quint32, fftLength);
        QFETCH(int, ticksPerSecond);
        const Watchdog watchdog;
        FFT_Params_WAV.setFftLength(fftLength);
        const auto thread = std::make_unique<NvxWAVDataThread>(m_dir.write(QByteArray(40000, 's')), nullptr);
        thread->setFileHeader(headerOf(channels, rate, bits, 20000), 44, 44,
                              static_cast<char>(ticksPerSecond));
        thread->setTimerTime(1);
        QSignalSpy data(thread.get(), &NvxDataThread::streamDataReady);
        QSignalSpy ticks(thread->findChild<QTimer*>(), &QTimer::timeout);
        thread->start();
        QTRY_VERIFY_WITH_TIMEOUT(ticks.size() >= 5, 20000);
        QVERIFY(thread->isRunning());
        QVERIFY(data.isEmpty());
        thread->exitThread();
        QVERIFY(thread->wait(10000));
    }

    void ticksOfLessThanAByte_data()
    {
        QTest::addColumn<unsigned>("rate");
        QTest::addColumn<int>("ticksPerSecond");
        // So many bytes come in the last tick of each round of one tick more than a second has.
        QTest::newRow("one byte in four ticks") << 1U << 4;
        QTest::newRow("three bytes in four ticks") << 3U << 4;
        QTest::newRow("one byte in two ticks") << 1U << 2;
    }
    void ticksOfLessThanAByte()
    {
        QFETCH(unsigned, rate);
        QFETCH(int, ticksPerSecond);
        const Watchdog watchdog;
        FFT_Params_WAV.setFftLength(400);
        const QByteArray samples("0123456789");
        const auto thread =
            std::make_unique<NvxWAVDataThread>(m_dir.write(QByteArray(44, 'h') + samples), nullptr);
        thread->setFileHeader(headerOf(1, rate, 8, unsigned(samples.size())), 44, 44,
                              static_cast<char>(ticksPerSecond));
        thread->setTimerTime(1);
        QList<qsizetype> ticksOfTheBlocks;
        QByteArray played;
        QSignalSpy ticks(thread->findChild<QTimer*>(), &QTimer::timeout);
        connect(thread.get(), &NvxDataThread::streamDataReady, this,
                [&](const std::shared_ptr<HydStreamDataPayload>& payload) {
                    ticksOfTheBlocks << ticks.size();
                    played += bytesOf(*payload->data());
                });
        thread->start();
        QTRY_VERIFY_WITH_TIMEOUT(thread->isFinished(), 20000);
        // All but the very last one, which is left of a tick.
        QCOMPARE(played, samples.left(9));
        const int round = ticksPerSecond + 1;
        for (qsizetype block = 0; block < ticksOfTheBlocks.size(); ++block)
            QCOMPARE(ticksOfTheBlocks[block], round * (block + 1) - 1);
    }

    void headerThatLacksAPart_data()
    {
        QTest::addColumn<bool>("hasFormat");
        QTest::newRow("no record") << true;
        QTest::newRow("no format") << false;
    }
    void headerThatLacksAPart()
    {
        QFETCH(bool, hasFormat);
        const Watchdog watchdog;
        const auto whole = headerOf(1, 1000, 16, 4000);
        const auto header = std::make_shared<NvxWavHeader>(hasFormat ? whole->fmt() : nullptr,
                                                           hasFormat ? nullptr : whole->info(), false);
        header->setDataSize(4000);
        const auto thread = std::make_unique<NvxWAVDataThread>(m_dir.write(QByteArray(40000, 's')), nullptr);
        thread->setFileHeader(header, 44, 44, 1);
        thread->setTimerTime(1);
        QSignalSpy data(thread.get(), &NvxDataThread::streamDataReady);
        thread->start();
        QTRY_VERIFY_WITH_TIMEOUT(thread->isFinished(), 20000);
        QVERIFY(data.isEmpty());
    }

    void tickAheadOfTheFile()
    {
        FFT_Params_WAV.setFftLength(400);
        QSemaphore gate;
        const auto thread = std::make_unique<GatedThread>(m_dir.write(QByteArray(40000, 's')), gate);
        thread->setFileHeader(headerOf(1, 1000, 16, 4000), 44, 44, 1);
        thread->setTimerTime(1);
        QSignalSpy data(thread.get(), &NvxDataThread::streamDataReady);
        thread->start();
        thread->readRecord();
        gate.release();
        QTRY_VERIFY_WITH_TIMEOUT(thread->isFinished(), 20000);
        QCOMPARE(data.size(), 6);
    }

    void failedReadCostsItsTickAlone()
    {
        WavReplay replay(threeBlocksASecond(makeSignal(2000, 1, 16, false)));
        QVERIFY(replay.prepare());
        QVERIFY(replay.file.processData());
        // No tick comes by itself.
        auto* const thread = replay.file.findChild<NvxWAVDataThread*>();
        thread->setTimerTime(100000);
        QTRY_VERIFY_WITH_TIMEOUT(thread->findChild<QTimer*>()->isActive(), 20000);
        thread->readRecord();
        QCOMPARE(replay.blocks.size(), size_t{3});
        // As large as it should be, and not to be read.
        const QString path = replay.file.fileName();
        const int readable = dup(descriptorOf(path));
        QVERIFY(readable >= 0 && swapOpenFile(path, qPrintable(path), O_WRONLY));
        thread->readRecord();
        thread->readRecord();
        QCOMPARE(replay.blocks.size(), size_t{3});
        QVERIFY(thread->isRunning());
        const bool isBack = swapOpenFile(path, readable);
        close(readable);
        QVERIFY(isBack);
        thread->readRecord();
        QCOMPARE(replay.blocks.size(), size_t{6});
        QCOMPARE(replay.blocks[3].data().sampleNum(), 400U);
        QCOMPARE(uint64_t(replay.blocks[3].key().sequence()), kStart + 1000);
        thread->readRecord();
        QTRY_COMPARE_WITH_TIMEOUT(replay.events.last(), QStringLiteral("thread finished"), 20000);
        QVERIFY(replay.samples(0).size() == 2000);
    }

    void eventLoopOfASlot()
    {
        // Its ticks are nobody's: all blocks come once, whole and in their order.
        const WavSignal signal = makeSignal(4000, 2, 16, false);
        WavReplay replay(threeBlocksASecond(signal));
        QVERIFY(replay.prepare());
        size_t inTheLoop = 0;
        int loops = 0;
        connect(&replay.file, &NvxDataFile::streamDataReady, this, [&] {
            if (replay.blocks.size() % 5 != 1)
                return;
            ++loops;
            const size_t before = replay.blocks.size();
            // A timer that is set anew ticks in the loop, too.
            replay.file.processPause();
            replay.file.processResume();
            QEventLoop loop;
            int ticks = 0;
            const auto* timer = replay.file.findChild<NvxWAVDataThread*>()->findChild<QTimer*>();
            connect(timer, &QTimer::timeout, &loop, [&] {
                if (++ticks == 3)
                    loop.quit();
            });
            loop.exec();
            inTheLoop += replay.blocks.size() - before;
        });
        QVERIFY(replay.play());
        QCOMPARE(loops, 5);
        QCOMPARE(inTheLoop, size_t{0});
        QCOMPARE(replay.blocks.size(), size_t{24});
        for (size_t i = 0; i < replay.blocks.size(); ++i)
            QCOMPARE(replay.blocks[i].devId, replay.file.channelDevices()[qsizetype(i % 2)]);
        QVERIFY(replay.samples(0) == signal.channels[0]);
        QVERIFY(replay.samples(1) == signal.channels[1]);
    }

    void readerGoneWithinItsBlock_data()
    {
        QTest::addColumn<bool>("byDeletion");
        QTest::newRow("the file is deleted") << true;
        QTest::newRow("the replay is stopped") << false;
    }
    void readerGoneWithinItsBlock()
    {
        QFETCH(bool, byDeletion);
        const QPointer<NvxWAVFile> file(new NvxWAVFile(threeBlocksASecond(makeSignal(5000, 2, 16, false))));
        QVERIFY(file->headerPrepare(true));
        file->setReplayVel(ReplayMax, 0);
        QSignalSpy finished(file, &NvxDataFile::streamFileFinished);
        int blocks = 0;
        bool isGone = false;
        connect(file, &NvxDataFile::streamDataReady, this, [&] {
            ++blocks;
            const QPointer<QThread> thread(file->findChild<NvxWAVDataThread*>());
            if (byDeletion)
                delete file;
            else
                file->processStop();
            // A consumer with an event loop of its own sees the reader's deletion.
            isGone = QTest::qWaitFor([&] { return !thread; }, 10000);
        });
        QVERIFY(file->processData());
        QTRY_VERIFY_WITH_TIMEOUT(isGone, 20000);
        QCOMPARE(blocks, 1);
        QCOMPARE(finished.size(), byDeletion ? 0 : 1);
        delete file;
    }

    void readerThatIsLetGoWithinItsBlock_data()
    {
        QTest::addColumn<bool>("byDeletion");
        QTest::newRow("the file is deleted") << true;
        QTest::newRow("the replay begins anew") << false;
    }
    void readerThatIsLetGoWithinItsBlock()
    {
        QFETCH(bool, byDeletion);
        const QPointer<NvxWAVFile> file(new NvxWAVFile(threeBlocksASecond(makeSignal(5000, 2, 16, false))));
        QVERIFY(file->headerPrepare(true));
        file->setReplayVel(ReplayMax, 0);
        QSignalSpy ended(file, &NvxDataFile::threadFinished);
        QVERIFY(file->processData());
        const QPointer<NvxWAVDataThread> first(file->findChild<NvxWAVDataThread*>());
        int blocksOfTheFirst = 0;
        connect(first, &NvxDataThread::streamDataReady, this, [&] {
            if (++blocksOfTheFirst > 1)
                return;
            if (byDeletion)
                delete file;
            else
                file->processData();
        });
        QTRY_VERIFY_WITH_TIMEOUT(first.isNull(), 20000);
        // The rest of its tick, five blocks, is read for nobody.
        QCOMPARE(blocksOfTheFirst, 1);
        if (!byDeletion)
            QTRY_COMPARE_WITH_TIMEOUT(ended.size(), 1, 20000);
        delete file;
    }

    void frameOfLessThanASampleIsAnEmptyBlock()
    {
        // Every fifth tick puts two bytes back, one of them into a frame of its own.
        FFT_Params_WAV.setFftLength(1024);
        WavReplay replay(m_dir.write(fileOf(makeSignal(4095 * 3, 1, 16, false), {.rate = 4095})));
        QVERIFY(replay.prepare());
        QVERIFY(replay.play());
        const auto empty = std::count_if(replay.blocks.begin(), replay.blocks.end(),
                                         [](const auto& block) { return block.data().numSamples() == 0; });
        QCOMPARE(empty, std::ptrdiff_t{2});
    }
};

QTEST_GUILESS_MAIN(tst_NvxWAVDataThreadFaults)
#include "tst_NvxWAVDataThreadFaults.moc"
