#include "WavReplay.h"
#include "WavSignal.h"

#include "NvxQtCommon/contract/stream/FftParams.h"
#include "NvxQtCommon/replay/NvxWAVDataThread.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

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

std::vector<int32_t> firstOf(const std::vector<int32_t>& samples, size_t count)
{
    return {samples.begin(), samples.begin() + std::ptrdiff_t(std::min(count, samples.size()))};
}

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
        QTest::newRow("lost bytes of two ticks are put back")
            << 256U << WavBytes::Format{.rate = 401, .bits = 8} << 1001
            << Blocks{{200, 0, 0, 0, false},
                      {200, 200, 200, 0, false},
                      {201, 402, 400, 1, false},
                      {200, 400, 601, 1, false},
                      {200, 600, 801, 1, true}};
        // What is put back fills the block, and the frame that was added for it is empty: the end of the
        // replay, however much is left. Intended.
        QTest::newRow("lost bytes that fill the block end it")
            << 1024U << WavBytes::Format{.rate = 4093} << 40930
            << Blocks{{1023, 0, 0, 0, false},
                      {1023, 1023, 1023, 0, false},
                      {1023, 2046, 2046, 0, false},
                      {1023, 3069, 3069, 0, false},
                      {1024, 4096, 4092, 1, false}};
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

    void saysWhatItStartsAndWhenItEnds()
    {
        WavReplay replay(threeBlocksASecond(2000));
        QVERIFY(replay.prepare());
        QSignalSpy started(&replay.file, &NvxDataFile::streamFileStarted);
        QSignalSpy finished(&replay.file, &NvxDataFile::streamFileFinished);
        QVERIFY(replay.play());
        QCOMPARE(started.size(), 1);
        QCOMPARE(started[0][0].toString(), replay.file.fileName());
        QCOMPARE(started[0][1].toLongLong(), qint64{kTime});
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished[0][0].toLongLong(), qint64{kTime} + 1);
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
            QTRY_COMPARE_WITH_TIMEOUT(data.size(), 3 * tick, 20000);
            QVERIFY(!data.wait(30));
            replay.file.processResume();
        }
        QTRY_COMPARE_WITH_TIMEOUT(ended.size(), 1, 20000);
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
        QTRY_COMPARE_WITH_TIMEOUT(ended.size(), 1, 20000);
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
            QTRY_COMPARE_WITH_TIMEOUT(replay.events.count(QStringLiteral("thread finished")), ends + 1,
                                      20000);
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
        QTRY_VERIFY_WITH_TIMEOUT(!thread, 20000);
        QCOMPARE(blocks, 1);
    }

    void startsAtAnotherSecond()
    {
        FFT_Params_WAV.setFftLength(400);
        const WavSignal signal = makeSignal(3000, 1, 16, false);
        WavReplay replay(m_dir.write(fileOf(signal, {.rate = 1000})));
        QVERIFY(replay.prepare());
        QSignalSpy ended(&replay.file, &NvxDataFile::threadFinished);
        QVERIFY(replay.file.processData());
        auto* thread = replay.file.findChild<NvxWAVDataThread*>();
        QVERIFY(thread);
        // No tick comes before the reader has been sent elsewhere.
        thread->setTimerTime(100000);
        QTRY_VERIFY_WITH_TIMEOUT(thread->seekToSec(2), 20000);
        replay.file.setReplayVel(ReplayMax, 0);
        QTRY_COMPARE_WITH_TIMEOUT(ended.size(), 1, 20000);
        QVERIFY(replay.samples(0) ==
                std::vector<int32_t>(signal.channels[0].begin() + 2000, signal.channels[0].end()));
    }
};

QTEST_GUILESS_MAIN(tst_NvxWAVDataThread)
#include "tst_NvxWAVDataThread.moc"
