#include "WavFiles.h"
#include "WavReplay.h"
#include "WavSignal.h"

#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/replay/NvxWAVDataThread.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

#include <QSemaphore>
#include <QSignalSpy>

#include <algorithm>

namespace {

/// A block as it is expected.
struct Expected
{
    unsigned count;
    unsigned sampleNumber;
    uint64_t sequence; ///< behind the file's start sample
    uint32_t second;   ///< behind the file's time
    bool isLast;
};

QByteArray fileOf(const WavSignal& signal, const WavBytes::Format& fmt, bool bigEndian = false)
{
    const auto info = makeInfo(fmt.channels);
    WavBytes file(bigEndian);
    return file.head().format(fmt).list(bytesOf(info->fileBytes())).data(signal.bytes).bytes;
}

std::vector<int32_t> firstOf(const std::vector<int32_t>& samples, size_t count)
{
    return {samples.begin(), samples.begin() + std::ptrdiff_t(std::min(count, samples.size()))};
}

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

} // namespace

/// The samples of a replayed wave file.
class tst_NvxWAVDataThread : public NvxTestCase
{
    Q_OBJECT

    FftParamsGuard m_fftParams;
    WavFolder m_dir;

    /// A mono file of 1000 Hz and 16 bits, played by blocks of 400, 400 and 200 samples a second.
    QString threeBlocksASecond(int frames)
    {
        FFT_Params_WAV.setFftLength(400);
        return m_dir.write(fileOf(makeSignal(frames, 1, 16, false), {.rate = 1000}));
    }

private Q_SLOTS:
    void cleanup() { m_fftParams.restore(); }

    // --- happy flows
    void everySampleOfEveryFormat_data()
    {
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("bits");
        QTest::addColumn<bool>("bigEndian");
        for (int bits : {8, 16, 24, 32}) {
            for (int channels : {1, 2, 3, 8}) {
                for (bool bigEndian : {false, true})
                    QTest::addRow("%d channels, %d bits, %s", channels, bits, bigEndian ? "RIFX" : "RIFF")
                        << channels << bits << bigEndian;
            }
        }
    }
    void everySampleOfEveryFormat()
    {
        QFETCH(int, channels);
        QFETCH(int, bits);
        QFETCH(bool, bigEndian);
        FFT_Params_WAV.setFftLength(400);
        const WavBytes::Format fmt{.channels = quint16(channels), .rate = 1000, .bits = quint16(bits)};
        const WavSignal signal = makeSignal(2500, channels, bits, bigEndian);
        WavReplay replay(m_dir.write(fileOf(signal, fmt, bigEndian)));
        QVERIFY(replay.prepare());
        QVERIFY(replay.play());
        QStringList events;
        for (int channel = 0; channel < channels; ++channel)
            events << QStringLiteral("device") << QStringLiteral("header");
        events << QStringLiteral("started") << QStringList(6 * channels, QStringLiteral("data"))
               << QStringLiteral("finished") << QStringLiteral("thread finished");
        QCOMPARE(replay.events, events);
        QCOMPARE(replay.blocks.size(), size_t(6 * channels));
        for (size_t i = 0; i < replay.blocks.size(); ++i) {
            const WavReplay::Block& block = replay.blocks[i];
            QCOMPARE(block.devId, replay.file.channelDevices()[qsizetype(i) % channels]);
            QCOMPARE(block.payload->streamType, StreamWaveScan);
            QCOMPARE(int(block.data().sampleFormat()), bits / 8 + (bigEndian ? 0 : 128));
            QCOMPARE(block.data().isBigEndian(), bigEndian);
            QCOMPARE(int(block.data().numChannels()), 1);
            QCOMPARE(block.data().byteSize(), size_t{block.data().numSamples()} * size_t(bits) / 8);
        }
        // Two whole seconds; the half behind them fills no tick.
        for (int channel = 0; channel < channels; ++channel)
            QVERIFY(replay.samples(channel) == firstOf(signal.channels[size_t(channel)], 2000));
    }

    void blocks_data()
    {
        QTest::addColumn<quint32>("fftLength");
        QTest::addColumn<WavBytes::Format>("format");
        QTest::addColumn<int>("frames");
        QTest::addColumn<std::vector<Expected>>("expected");
        using Blocks = std::vector<Expected>;
        QTest::newRow("a tick is one block")
            << 256U << WavBytes::Format{.rate = 1000} << 1500
            << Blocks{{250, 0, 0, 0, false},     {250, 250, 250, 0, false},   {250, 500, 500, 0, false},
                      {250, 750, 750, 0, false}, {250, 1000, 1000, 1, false}, {250, 1250, 1250, 1, true}};
        // The sample number is that of the tick by the size of the block: intended.
        QTest::newRow("the last block of a second is shorter")
            << 400U << WavBytes::Format{.rate = 1000} << 2000
            << Blocks{{400, 0, 0, 0, false},      {400, 0, 400, 0, false},    {200, 0, 800, 0, false},
                      {400, 400, 1000, 1, false}, {400, 400, 1400, 1, false}, {200, 200, 1800, 1, true}};
        QTest::newRow("a remainder isn't played")
            << 400U << WavBytes::Format{.rate = 1000} << 1999
            << Blocks{{400, 0, 0, 0, false}, {400, 0, 400, 0, false}, {200, 0, 800, 0, false}};
        QTest::newRow("less than a tick") << 400U << WavBytes::Format{.rate = 1000} << 999 << Blocks{};
        QTest::newRow("nothing") << 400U << WavBytes::Format{.rate = 1000} << 0 << Blocks{};
        // A round has one tick more than a second; what the division lost is in it. That tick isn't counted,
        // since the frame that was added to it has nothing to hold. Both intended.
        QTest::newRow("lost bytes are put back")
            << 256U << WavBytes::Format{.rate = 1001, .bits = 24} << 2502
            << Blocks{{250, 0, 0, 0, false},       {250, 250, 250, 0, false},   {250, 500, 500, 0, false},
                      {250, 750, 750, 0, false},   {251, 1004, 1000, 1, false}, {250, 1000, 1251, 1, false},
                      {250, 1250, 1501, 1, false}, {250, 1500, 1751, 1, false}, {250, 1750, 2001, 1, false},
                      {251, 2008, 2251, 2, true}};
        // The sequence counts all channels: intended.
        QTest::newRow("sequence over all channels")
            << 1024U << WavBytes::Format{.channels = 2, .rate = 1000} << 2000
            << Blocks{{1000, 0, 0, 0, false},
                      {1000, 0, 1000, 0, false},
                      {1000, 1000, 2000, 1, true},
                      {1000, 1000, 3000, 1, true}};
        // What can't be more than one frame at the end isn't played, though it fills its tick: intended.
        QTest::newRow("the very last frame alone") << 200U << WavBytes::Format{.rate = 401} << 802
                                                   << Blocks{{200, 0, 0, 0, false},
                                                             {200, 0, 200, 0, false},
                                                             {1, 0, 400, 0, false},
                                                             {200, 200, 401, 1, false},
                                                             {200, 200, 601, 1, false}};
        QTest::newRow("largest block, in halves") << 65536U << WavBytes::Format{.rate = 131072} << 131072
                                                  << Blocks{{32768, 0, 0, 0, false},
                                                            {32768, 0, 32768, 0, false},
                                                            {32768, 65536, 65536, 0, false},
                                                            {32768, 65536, 98304, 0, true}};
        QTest::newRow("largest block of two channels")
            << 65536U << WavBytes::Format{.channels = 2, .rate = 131072} << 65536
            << Blocks{{32768, 0, 0, 0, false},
                      {32768, 0, 32768, 0, true},
                      {32768, 0, 65536, 0, false},
                      {32768, 0, 98304, 0, true}};
        QTest::newRow("one sample less than the largest block")
            << 65535U << WavBytes::Format{.rate = 65535} << 65535 << Blocks{{65535, 0, 0, 0, true}};
    }
    void blocks()
    {
        QFETCH(quint32, fftLength);
        QFETCH(WavBytes::Format, format);
        QFETCH(int, frames);
        QFETCH(std::vector<Expected>, expected);
        FFT_Params_WAV.setFftLength(fftLength);
        FFT_Params_WAV.setNumAccum(1);
        const WavSignal signal = makeSignal(frames, format.channels, format.bits, false);
        WavReplay replay(m_dir.write(fileOf(signal, format)));
        QVERIFY(replay.prepare());
        QCOMPARE(FFT_Params_WAV.fftLength(), fftLength);
        QVERIFY(replay.play());
        QCOMPARE(replay.blocks.size(), expected.size());
        size_t samples = 0;
        for (size_t i = 0; i < expected.size(); ++i) {
            const WavReplay::Block& block = replay.blocks[i];
            QCOMPARE(unsigned(block.data().numSamples()), expected[i].count);
            QCOMPARE(block.data().sampleNum(), expected[i].sampleNumber);
            QCOMPARE(uint64_t(block.key().sequence()), kStart + expected[i].sequence);
            QCOMPARE(block.key().time(), kTime + expected[i].second);
            QCOMPARE(block.payload->isLastEvent(), expected[i].isLast);
            samples += expected[i].count;
        }
        QCOMPARE(replay.file.curTime(), qint64{kTime} + (expected.empty() ? 0 : expected.back().second));
        if (format.channels == 1)
            QVERIFY(replay.samples(0) == firstOf(signal.channels[0], samples));
    }

    void halvesOfABlockFollowEachOther()
    {
        FFT_Params_WAV.setFftLength(65536);
        const WavSignal signal = makeSignal(65536, 2, 24, false);
        WavReplay replay(m_dir.write(fileOf(signal, {.channels = 2, .rate = 65536, .bits = 24})));
        QVERIFY(replay.prepare());
        QVERIFY(replay.play());
        QCOMPARE(replay.blocks.size(), size_t{4});
        for (size_t channel : {size_t{0}, size_t{1}}) {
            auto both = samplesOf(replay.blocks[2 * channel].data());
            const auto second = samplesOf(replay.blocks[2 * channel + 1].data());
            both.insert(both.end(), second.begin(), second.end());
            QVERIFY(both == signal.channels[channel]);
            QCOMPARE(replay.blocks[2 * channel + 1].devId, replay.file.channelDevices()[qsizetype(channel)]);
        }
    }

    void rateThatTheTicksDoNotDivide()
    {
        // Half of 401 samples: every other tick begins in the middle of a sample. Intended.
        FFT_Params_WAV.setFftLength(400);
        const WavSignal signal = makeSignal(802, 1, 16, false);
        WavReplay replay(m_dir.write(fileOf(signal, {.rate = 401})));
        QVERIFY(replay.prepare());
        QVERIFY(replay.play());
        QCOMPARE(replay.blocks.size(), size_t{4});
        for (size_t tick = 0; tick < 4; ++tick) {
            const HydStreamDataChunk& data = replay.blocks[tick].data();
            QCOMPARE(data.numSamples(), uint16_t{200});
            QCOMPARE(QByteArray(reinterpret_cast<const char*>(data.bytes().get()), 400),
                     signal.bytes.mid(qsizetype(401 * tick), 400));
        }
    }

    void depthsBetweenPlayByTheirWholeBytes()
    {
        // Twelve bits take two bytes in the file and play as one: intended.
        FFT_Params_WAV.setFftLength(400);
        const QByteArray bytes = makeSignal(2000, 1, 8, false).bytes;
        WavReplay replay(m_dir.write(waveFile(*makeInfo(1), {.rate = 1000, .bits = 12}, 0).chopped(8) +
                                     WavBytes().data(bytes).bytes));
        QVERIFY(replay.prepare());
        QVERIFY(replay.play());
        QCOMPARE(replay.blocks.size(), size_t{6});
        QCOMPARE(int(replay.blocks[0].data().bytesPerSample()), 1);
        QCOMPARE(*replay.blocks[0].data().bytes().get(), uchar(bytes[0]));
    }

    void startsAnew()
    {
        WavReplay replay(threeBlocksASecond(3000));
        QVERIFY(replay.prepare());
        QVERIFY(replay.play());
        QVERIFY(replay.play());
        QCOMPARE(replay.blocks.size(), size_t{18});
        for (size_t i = 0; i < 9; ++i)
            QCOMPARE(replay.blocks[i].key().sequence(), replay.blocks[i + 9].key().sequence());
        QCOMPARE(replay.events.count(QStringLiteral("header")), 2);
        QCOMPARE(replay.events.count(QStringLiteral("finished")), 2);
    }

    void pausesInMidFile()
    {
        WavReplay replay(threeBlocksASecond(4000));
        QVERIFY(replay.prepare());
        replay.file.setReplayVel(ReplayMax, 0);
        connect(&replay.file, &NvxDataFile::streamDataReady, &replay, [&] { replay.file.processPause(); });
        QSignalSpy data(&replay.file, &NvxDataFile::streamDataReady);
        QSignalSpy ended(&replay.file, &NvxDataFile::threadFinished);
        QVERIFY(replay.file.processData());
        for (int tick = 1; tick <= 4; ++tick) {
            QTRY_COMPARE(data.size(), 3 * tick);
            QVERIFY(!data.wait(30));
            replay.file.processResume();
        }
        QTRY_COMPARE(ended.size(), 1);
        QCOMPARE(replay.samples(0).size(), size_t{4000});
    }

    void newSpeedCountsAtOnce()
    {
        WavReplay replay(threeBlocksASecond(3000));
        QVERIFY(replay.prepare());
        QSignalSpy ended(&replay.file, &NvxDataFile::threadFinished);
        QVERIFY(replay.file.processData());
        auto* thread = replay.file.findChild<NvxWAVDataThread*>();
        QVERIFY(thread);
        QCOMPARE(thread->timerTime(), qint64{1000});
        replay.file.setReplayVel(ReplayMax, 0);
        QCOMPARE(thread->timerTime(), qint64{5});
        QTRY_COMPARE(ended.size(), 1);
    }

    void headersAreRepeatedOnRequest()
    {
        WavReplay replay(threeBlocksASecond(1000));
        QVERIFY(replay.prepare());
        QVERIFY(replay.file.processData());
        QCOMPARE(replay.headers.size(), size_t{1});
        auto* thread = replay.file.findChild<NvxWAVDataThread*>();
        QVERIFY(thread);
        Q_EMIT thread->signalForHeader();
        QCOMPARE(replay.headers.size(), size_t{2});
    }

    // --- rainy day flows
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

    void shrinksWhileItIsReplayed_data()
    {
        QTest::addColumn<qint64>("left");
        QTest::addColumn<int>("blocks");
        // Cut under the first block, of which there are three a second.
        QTest::newRow("to three and a half seconds") << qint64(7000) << 9;
        QTest::newRow("to one second") << qint64(2000) << 3;
        QTest::newRow("into the second block") << qint64(1200) << 2;
        QTest::newRow("to less than was read") << qint64(100) << 1;
        QTest::newRow("into the header") << qint64(-100) << 1;
    }
    void shrinksWhileItIsReplayed()
    {
        QFETCH(qint64, left);
        QFETCH(int, blocks);
        const Watchdog watchdog;
        WavReplay replay(threeBlocksASecond(10000));
        QVERIFY(replay.prepare());
        const qint64 size = replay.file.headerSize() + left;
        connect(&replay.file, &NvxDataFile::streamDataReady, this,
                [&] { QVERIFY(QFile::resize(replay.file.fileName(), size)); });
        QVERIFY(replay.play());
        QCOMPARE(replay.blocks.size(), size_t(blocks));
        QCOMPARE(replay.events.last(), QStringLiteral("thread finished"));
    }

    void grownFilePlaysToWhereItEnded()
    {
        WavReplay replay(threeBlocksASecond(2000));
        QVERIFY(replay.prepare());
        QFile file(replay.file.fileName());
        QVERIFY(file.open(QIODevice::Append));
        QCOMPARE(file.write(QByteArray(10000, 'g')), qint64{10000});
        file.close();
        QVERIFY(replay.play());
        QCOMPARE(replay.samples(0).size(), size_t{2000});
    }

    void goneBeforeItIsReplayed()
    {
        WavReplay replay(threeBlocksASecond(2000));
        QVERIFY(replay.prepare());
        QVERIFY(QFile::remove(replay.file.fileName()));
        QVERIFY(replay.play());
        QVERIFY(replay.blocks.empty());
        QCOMPARE(replay.order(),
                 (QStringList{QStringLiteral("device"), QStringLiteral("header"), QStringLiteral("started"),
                              QStringLiteral("finished"), QStringLiteral("thread finished")}));
    }

    void replacedUnderWay()
    {
        WavReplay replay(threeBlocksASecond(5000));
        QVERIFY(replay.prepare());
        replay.file.setReplayVel(ReplayMax, 0);
        bool again = false;
        connect(&replay.file, &NvxDataFile::streamDataReady, this, [&] {
            if (!std::exchange(again, true))
                replay.file.processData();
        });
        QVERIFY(replay.play());
        // The first reader says nothing more, not even that it has finished.
        QCOMPARE(replay.blocks.size(), size_t{1 + 15});
        QCOMPARE(replay.events.count(QStringLiteral("started")), 2);
        QCOMPARE(replay.events.count(QStringLiteral("finished")), 1);
        QVERIFY(replay.file.findChildren<NvxWAVDataThread*>().size() <= 1);
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

    void resumedBeforeTheFileIsOpen()
    {
        WavReplay replay(threeBlocksASecond(3000));
        for (int times = 0; times < 20; ++times) {
            replay.blocks.clear();
            QVERIFY(replay.prepare());
            replay.file.setReplayVel(ReplayMax, 0);
            const auto ends = replay.events.count(QStringLiteral("thread finished"));
            QVERIFY(replay.file.processData());
            replay.file.processResume();
            replay.file.findChild<NvxWAVDataThread*>()->readRecord();
            QTRY_COMPARE(replay.events.count(QStringLiteral("thread finished")), ends + 1);
            QCOMPARE(replay.blocks.size(), size_t{9});
        }
    }

    void stoppedByItsConsumer()
    {
        WavReplay replay(threeBlocksASecond(500000));
        QVERIFY(replay.prepare());
        connect(&replay.file, &NvxDataFile::streamDataReady, this, [&] { replay.file.processStop(); });
        QVERIFY(replay.play());
        QVERIFY(replay.blocks.size() >= 3 && replay.blocks.size() < 1500);
        QCOMPARE(replay.events.mid(replay.events.size() - 2),
                 (QStringList{QStringLiteral("finished"), QStringLiteral("thread finished")}));
    }

    void deletedByItsConsumer()
    {
        auto* file = new NvxWAVFile(threeBlocksASecond(5000));
        QVERIFY(file->headerPrepare(true));
        file->setReplayVel(ReplayMax, 0);
        int blocks = 0;
        connect(file, &NvxDataFile::streamDataReady, this, [&] {
            ++blocks;
            delete file;
        });
        QVERIFY(file->processData());
        const QPointer<QThread> thread(file->findChild<NvxWAVDataThread*>());
        QTRY_VERIFY(!thread);
        QCOMPARE(blocks, 1);
    }

    void partsOfAReader_data()
    {
        QTest::addColumn<int>("ticksPerSecond");
        QTest::addColumn<int>("bits");
        QTest::addColumn<unsigned>("dataSize");
        QTest::addColumn<int>("blocks");
        QTest::addColumn<bool>("ends");
        QTest::newRow("whole seconds") << 1 << 16 << 4000U << 6 << true;
        QTest::newRow("0 ticks are whole seconds") << 0 << 16 << 4000U << 6 << true;
        QTest::newRow("3 ticks are whole seconds") << 3 << 16 << 4000U << 6 << true;
        QTest::newRow("samples that are too wide do nothing") << 1 << 64 << 20000U << 0 << false;
        // The end is cut to 32 bits: intended.
        QTest::newRow("end beyond 32 bits") << 1 << 16 << 0xFFFFFFFFU << 0 << true;
    }
    void partsOfAReader()
    {
        QFETCH(int, ticksPerSecond);
        QFETCH(int, bits);
        QFETCH(unsigned, dataSize);
        QFETCH(int, blocks);
        QFETCH(bool, ends);
        FFT_Params_WAV.setFftLength(400);
        NvxWAVDataThread thread(m_dir.write(QByteArray(40000, 's')), nullptr);
        const auto fmt = std::make_shared<NvxWavFmtData>(uint16_t{1}, 1000U, static_cast<uint16_t>(bits));
        const auto header = std::make_shared<NvxWavHeader>(fmt, makeInfo(1), false);
        header->setDataSize(dataSize);
        thread.setFileHeader(header, 44, 44, static_cast<char>(ticksPerSecond));
        thread.setTimerTime(1);
        QSignalSpy data(&thread, &NvxDataThread::streamDataReady);
        QSignalSpy finished(&thread, &QThread::finished);
        thread.start();
        if (!ends) {
            QVERIFY(!finished.wait(50));
            thread.exitThread();
        }
        QTRY_COMPARE(finished.size(), 1);
        QVERIFY(thread.wait(10000));
        QCOMPARE(data.size(), blocks);
    }

    void tickAheadOfTheFile()
    {
        FFT_Params_WAV.setFftLength(400);
        QSemaphore gate;
        GatedThread thread(m_dir.write(QByteArray(40000, 's')), gate);
        const auto fmt = std::make_shared<NvxWavFmtData>(uint16_t{1}, 1000U, uint16_t{16});
        const auto header = std::make_shared<NvxWavHeader>(fmt, makeInfo(1), false);
        header->setDataSize(4000);
        thread.setFileHeader(header, 44, 44, 1);
        thread.setTimerTime(1);
        QSignalSpy data(&thread, &NvxDataThread::streamDataReady);
        QSignalSpy finished(&thread, &QThread::finished);
        thread.start();
        thread.readRecord();
        gate.release();
        QTRY_COMPARE(finished.size(), 1);
        QVERIFY(thread.wait(10000));
        QCOMPARE(data.size(), 6);
    }

    void readerGoneWithinItsBlock()
    {
        auto* file = new NvxWAVFile(threeBlocksASecond(5000));
        QVERIFY(file->headerPrepare(true));
        file->setReplayVel(ReplayMax, 0);
        int blocks = 0;
        bool isGone = false;
        connect(file, &NvxDataFile::streamDataReady, this, [&] {
            ++blocks;
            const QPointer<QThread> thread(file->findChild<NvxWAVDataThread*>());
            delete file;
            // A consumer with an event loop of its own sees the reader's deletion.
            isGone = QTest::qWaitFor([&] { return !thread; }, 10000);
        });
        QVERIFY(file->processData());
        QTRY_VERIFY(isGone);
        QCOMPARE(blocks, 1);
    }

    void startsAtAnotherSecond()
    {
        FFT_Params_WAV.setFftLength(400);
        const WavSignal signal = makeSignal(3000, 1, 16, false);
        WavReplay replay(m_dir.write(fileOf(signal, {.rate = 1000})));
        QVERIFY(replay.prepare());
        // The first tick comes half a second after the reader has begun, which leaves time to go elsewhere.
        replay.file.setReplayVel(ReplayNormal, 0);
        QSignalSpy ended(&replay.file, &NvxDataFile::threadFinished);
        QVERIFY(replay.file.processData());
        auto* thread = replay.file.findChild<NvxWAVDataThread*>();
        QVERIFY(thread);
        QTRY_VERIFY(thread->seekToSec(2));
        replay.file.setReplayVel(ReplayMax, 0);
        QTRY_COMPARE(ended.size(), 1);
        QVERIFY(replay.samples(0) ==
                std::vector<int32_t>(signal.channels[0].begin() + 2000, signal.channels[0].end()));
    }
};

QTEST_GUILESS_MAIN(tst_NvxWAVDataThread)
#include "tst_NvxWAVDataThread.moc"
