#include "WavFiles.h"
#include "WavReplay.h"

#include "NvxQtCommon/contract/identity/HydDeviceId.h"
#include "NvxQtCommon/contract/stream/FftParams.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

#include <QPointer>
#include <QSignalSpy>

/// The header of a replayed wave file, and what is told of it.
class tst_NvxWAVFile : public NvxTestCase
{
    Q_OBJECT

    /// Offset of the first sample that the file believes in.
    static qint64 firstSample(NvxWAVFile& file)
    {
        if (!file.file().open(QIODevice::ReadOnly) || !file.seekToSec(0))
            return -1;
        const qint64 position = file.file().pos();
        file.file().close();
        return position;
    }

    FftParamsGuard m_fftParams;
    WavFolder m_dir;

private Q_SLOTS:
    void cleanup() { m_fftParams.restore(); }

    // --- happy flows
    void headerOfAnOwnFile()
    {
        const auto info = makeInfo(2);
        const QByteArray bytes = waveFile(*info, {.channels = 2, .rate = 8000, .bits = 24}, 8000 * 6 * 3 + 7);
        NvxWAVFile file(m_dir.write(bytes));
        QCOMPARE(file.length(), 0U);
        QCOMPARE(file.sampleRate(), 0U);
        QCOMPARE(file.timestamp(), 0U);
        QVERIFY(!file.header());
        QVERIFY(file.headerPrepare(true));
        QVERIFY(!file.file().isOpen());
        QCOMPARE(file.length(), 3U);
        QCOMPARE(file.sampleRate(), 8000U);
        QCOMPARE(file.timestamp(), kTime);
        QCOMPARE(file.curTime(), qint64{kTime});
        QCOMPARE(qint64{file.headerSize()}, bytes.indexOf("data") + 8);
        QCOMPARE(firstSample(file), bytes.indexOf("data") + 8);
        QCOMPARE(QString::fromStdString(file.header()->info()->fileName()), file.fileName());
        QCOMPARE(file.header()->info()->deviceType(0), deviceTypeText(DevTypeWavFile));
        QCOMPARE(file.header()->info()->deviceType(1), deviceTypeText(DevTypeSkiff));
        QVERIFY(file.file().open(QIODevice::ReadOnly));
        QVERIFY(file.seekToSec(2));
        QCOMPARE(file.file().pos(), bytes.indexOf("data") + 8 + 2 * 48000);
    }

    void nameCanBeSetLater()
    {
        NvxWAVFile file(QStringLiteral("nothing.wav"));
        const QString path = m_dir.write(waveFile(*makeInfo(1), {}, 100));
        file.setFileName(path);
        QCOMPARE(file.fileName(), path);
        QVERIFY(file.headerPrepare(true));
    }

    void channelsAndHost_data()
    {
        QTest::addColumn<int>("channels");
        for (int channels : {1, 2, 8, 255})
            QTest::addRow("%d", channels) << channels;
    }
    void channelsAndHost()
    {
        QFETCH(int, channels);
        NvxWAVFile file(
            m_dir.write(waveFile(*makeInfo(channels), {.channels = quint16(channels), .bits = 16}, 100)));
        QVERIFY(file.headerPrepare(true));
        const uint16_t host = channels == 1 ? 0 : 100;
        QCOMPARE(file.hostDevId(), HydDeviceId(DevTypeWavFile, host));
        QCOMPARE(file.channelDevices().size(), qsizetype(channels));
        for (int channel = 0; channel < channels; ++channel) {
            HydDeviceId id(DevTypeWavFile, static_cast<uint16_t>(101 + channel));
            id.setHostDevNo(host);
            QCOMPARE(file.channelDevices()[channel], id);
            QCOMPARE(*file.devId(channel), id);
            QVERIFY(file.containsDevId(id));
        }
        QCOMPARE(*file.devId(channels), HydDeviceId(DevTypeWavFile, 0));
        QCOMPARE(*file.devId(-1), HydDeviceId(DevTypeWavFile, 0));
        // The base class looks nothing up.
        QCOMPARE(file.NvxDataFile::devId(0), HydDeviceId());
    }

    void listBehindTheSamples_data()
    {
        QTest::addColumn<bool>("bigEndian");
        QTest::newRow("RIFF") << false;
        QTest::newRow("RIFX") << true;
    }
    void listBehindTheSamples()
    {
        QFETCH(bool, bigEndian);
        WavBytes bytes(bigEndian);
        bytes.head()
            .format({.rate = 8000})
            .data(QByteArray(32000, 's'))
            .list(bytesOf(makeInfo(1)->fileBytes()));
        WavReplay replay(m_dir.write(bytes.bytes));
        QVERIFY(replay.prepare());
        QCOMPARE(replay.file.channelDevices().front().serialNo(), uint16_t{101});
        QCOMPARE(firstSample(replay.file), qint64{44});
        QCOMPARE(replay.file.header()->dataSize(), 32000U);
        // The list counts as a part of the header's size.
        QCOMPARE(qint64{replay.file.headerSize()}, bytes.bytes.size() - 32000);
        QVERIFY(replay.play());
        QCOMPARE(replay.samples(0), std::vector<int32_t>(16000, 0x7373));
    }

    void plainFileGetsNumber0()
    {
        NvxWAVFile file(
            m_dir.write(WavBytes().head().format({.channels = 2}).data(QByteArray(4000, 's')).bytes));
        QVERIFY(file.headerPrepare(true));
        QCOMPARE(firstSample(file), qint64{44});
        QCOMPARE(file.channelDevices(), QList<HydDeviceId>(2, HydDeviceId(DevTypeWavFile, 0)));
        QCOMPARE(file.timestamp(), 0U);
    }

    void smallPlainFileBeginsAtItsFirstByte_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<qint64>("first");
        // Intended.
        QTest::newRow("1275 bytes") << 1275 << qint64(0);
        QTest::newRow("1276 bytes") << 1276 << qint64(44);
    }
    void smallPlainFileBeginsAtItsFirstByte()
    {
        QFETCH(int, size);
        QFETCH(qint64, first);
        QByteArray bytes = WavBytes().head().format({.bits = 8}).data(QByteArray(size - 44, 's')).bytes;
        bytes.truncate(size);
        NvxWAVFile file(m_dir.write(bytes));
        QVERIFY(file.headerPrepare(true));
        QCOMPARE(firstSample(file), first);
        QCOMPARE(file.headerSize(), 44U);
    }

    void smallFileHidesItsListBehindTheSamples()
    {
        // The list counts as samples, and so does the header: intended.
        WavBytes bytes;
        bytes.head().format({.rate = 100}).data(QByteArray(400, 's')).list(bytesOf(makeInfo(1)->fileBytes()));
        QVERIFY(bytes.bytes.size() < 1276);
        NvxWAVFile file(m_dir.write(bytes.bytes));
        QVERIFY(file.headerPrepare(true));
        QCOMPARE(file.channelDevices().front().serialNo(), uint16_t{0});
        QCOMPARE(firstSample(file), qint64{0});
    }

    void setupOfABigEndianFileSaysLittle()
    {
        // The blocks tell the order of their samples, the header always says little-endian: intended.
        WavBytes bytes(true);
        bytes.head()
            .format({.rate = 8000})
            .list(bytesOf(makeInfo(1)->fileBytes()))
            .data(QByteArray(32000, 's'));
        WavReplay replay(m_dir.write(bytes.bytes));
        QVERIFY(replay.prepare());
        QVERIFY(replay.play());
        QVERIFY(!replay.headers.front().payload->streamSetupChunk()->wavSetup()->isBigEndian());
        QVERIFY(replay.blocks.front().data().isBigEndian());
    }

    void deviceAndHeaderOfEachChannel_data()
    {
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("bits");
        QTest::addColumn<int>("maxValue");
        QTest::addColumn<bool>("adjacent");
        QTest::newRow("one, 8 bits") << 1 << 8 << 127 << false;
        QTest::newRow("one, 16 bits") << 1 << 16 << 32767 << true;
        QTest::newRow("three, 24 bits") << 3 << 24 << 8388607 << false;
        QTest::newRow("eight, 32 bits") << 8 << 32 << 2147483647 << true;
    }
    void deviceAndHeaderOfEachChannel()
    {
        QFETCH(int, channels);
        QFETCH(int, bits);
        QFETCH(int, maxValue);
        QFETCH(bool, adjacent);
        const WavBytes::Format fmt{.channels = quint16(channels), .rate = 96000, .bits = quint16(bits)};
        WavReplay replay(m_dir.write(waveFile(*makeInfo(channels), fmt, 100)));
        QVERIFY(replay.prepare());
        replay.file.setAdjacent(adjacent, 1);
        QVERIFY(replay.file.headerEventPrepare());
        QCOMPARE(replay.events.size(), 2 * channels);
        for (int channel = 0; channel < channels; ++channel) {
            QCOMPARE(replay.events[2 * channel], QStringLiteral("device"));
            QCOMPARE(replay.events[2 * channel + 1], QStringLiteral("header"));
            const WavReplay::Header& header = replay.headers[size_t(channel)];
            const HydStreamEventHeaderPayload& payload = *header.payload;
            QCOMPARE(payload.streamType, StreamWaveScan);
            QCOMPARE(payload.isAdjacent(), adjacent);
            QCOMPARE(payload.eventKey()->time(), kTime);
            QCOMPARE(payload.eventKey()->sequence(), int64_t(kStart));
            QVERIFY(!payload.isArray() && !payload.arrayMasterInfo());
            QCOMPARE(int(payload.numChannels()), 1);
            QVERIFY(payload.streamStatusChunks().empty());
            QCOMPARE(payload.deviceInfoChunks().size(), size_t{1});
            const HydDeviceInfoChunk& info = *payload.deviceInfoChunks().front();
            // The first channel's, whatever the channel: intended.
            QCOMPARE(info.serialNo(), uint16_t{101});
            QCOMPARE(info.devType(), DevTypeSkiff);
            QCOMPARE(int(info.sensitivity()), -1710 - 10 * channel);
            const auto setup = payload.streamSetupChunk()->wavSetup();
            QVERIFY(setup);
            QCOMPARE(setup->sampleRate(), 96000U);
            QCOMPARE(int(setup->bitDepth()), bits);
            QVERIFY(!setup->isBigEndian());
            QCOMPARE(payload.amplScalingChunks().size(), size_t{1});
            const HydAmplScalingChunk& scaling = *payload.amplScalingChunks().front();
            QCOMPARE(int(scaling.bitsPerSample()), bits);
            QCOMPARE(scaling.maxValue(), maxValue);
            QCOMPARE(scaling.minValue(), -maxValue - 1);
            QCOMPARE(scaling.maxMicrovolts(), 3000000);
            QCOMPARE(scaling.minMicrovolts(), -3000000);

            QCOMPARE(header.devId, replay.file.channelDevices()[channel]);
            const HydDevice& device = *header.device;
            QVERIFY(device == replay.devices[size_t(channel)]);
            QCOMPARE(device.serial(), uint16_t(101 + channel));
            QCOMPARE(device.devType(), DevTypeWavFile);
            QCOMPARE(device.firmwareVer(), "version " + std::to_string(channel + 1));
            QCOMPARE(device.firmwareRel(), std::string("Nerivox' test"));
            QCOMPARE(device.modelString(), "Model " + std::to_string(channel + 1));
            QCOMPARE(device.sensitivity(), float(-171 - channel));
            QCOMPARE(device.temperature(), float(-19 + channel));
            QCOMPARE(device.humidity(), float(401 + channel));
            const HydJobSettings& job = device.jobSettings();
            QCOMPARE(uint32_t(job.wavRate()), 96000U);
            QCOMPARE(uint32_t(job.fftRate()), 96000U);
            // Bytes of a frame: intended.
            QCOMPARE(int(job.wavBitDepth()), channels * bits / 8);
            QCOMPARE(int(job.fftProcType()), 4);
        }
    }

    void sensitivities_data()
    {
        QTest::addColumn<int>("stored");
        QTest::addColumn<int>("kept");
        QTest::addColumn<int>("chunk");
        QTest::addColumn<float>("device");
        QTest::newRow("-170") << -170 << -170 << -1700 << -170.0F;
        QTest::newRow("0") << 0 << 0 << 0 << 0.0F;
        // Two limits, intended: what stays for the record is taken as whole decibels.
        QTest::newRow("999") << 999 << 999 << 9990 << 999.0F;
        QTest::newRow("-999") << -999 << -999 << -9990 << -999.0F;
        QTest::newRow("1000") << 1000 << 100 << 1000 << 100.0F;
        QTest::newRow("-1000") << -1000 << -100 << -1000 << -100.0F;
        QTest::newRow("-1708") << -1708 << -170 << -1700 << -170.0F;
        QTest::newRow("10000") << 10000 << 1000 << 10000 << 1000.0F;
        QTest::newRow("10010") << 10010 << 1001 << 1001 << 100.1F;
        QTest::newRow("-32768") << -32768 << -3276 << -3276 << -327.6F;
    }
    void sensitivities()
    {
        QFETCH(int, stored);
        QFETCH(int, kept);
        QFETCH(int, chunk);
        QFETCH(float, device);
        const auto info = makeInfo(1);
        info->setSensitivity(static_cast<int16_t>(stored), 1);
        WavReplay replay(m_dir.write(waveFile(*info, {}, 100)));
        QVERIFY(replay.prepare());
        QCOMPARE(int(replay.file.header()->info()->sensitivity(1)), kept);
        QVERIFY(replay.file.headerEventPrepare());
        QCOMPARE(int(replay.headers[0].payload->deviceInfoChunks()[0]->sensitivity()), chunk);
        QCOMPARE(replay.headers[0].device->sensitivity(), device);
    }

    void ticksAndPeriod_data()
    {
        QTest::addColumn<quint32>("rate");
        QTest::addColumn<quint32>("fftLength");
        QTest::addColumn<int>("channels");
        QTest::addColumn<qint64>("period");
        // The period tells the ticks in a second.
        QTest::newRow("8 transforms") << 512000U << 65536U << 1 << qint64(250);
        QTest::newRow("2 transforms") << 48000U << 32768U << 1 << qint64(500);
        QTest::newRow("6 transforms") << 6000U << 1024U << 1 << qint64(500);
        QTest::newRow("5 transforms") << 5000U << 1024U << 1 << qint64(1000);
        QTest::newRow("4 transforms") << 4096U << 1024U << 1 << qint64(250);
        QTest::newRow("3 transforms") << 3000U << 1024U << 1 << qint64(1000);
        QTest::newRow("1 transform") << 1024U << 1024U << 1 << qint64(1000);
        QTest::newRow("just 2 transforms") << 1025U << 1024U << 1 << qint64(500);
        QTest::newRow("two channels") << 48000U << 32768U << 2 << qint64(500);
        // What the division by three channels cut off is missing: intended.
        QTest::newRow("three channels") << 5000U << 1024U << 3 << qint64(999);
    }
    void ticksAndPeriod()
    {
        QFETCH(quint32, rate);
        QFETCH(quint32, fftLength);
        QFETCH(int, channels);
        QFETCH(qint64, period);
        FFT_Params_WAV.setFftLength(fftLength);
        FFT_Params_WAV.setNumAccum(1);
        const WavBytes::Format fmt{.channels = quint16(channels), .rate = rate};
        WavReplay replay(m_dir.write(waveFile(*makeInfo(channels), fmt, 100)));
        QVERIFY(replay.prepare());
        QCOMPARE(replay.file.timerTime(), period);
        QCOMPARE(replay.fftChanges, 0);
        // The file's own number of channels counts.
        replay.file.setReplayVel(ReplayDouble, 77);
        QCOMPARE(replay.file.timerTime(), period / 2);
        replay.file.setReplayVel(ReplayNormal, 77);
        replay.file.setAdjacent(true, 77);
        QCOMPARE(replay.file.timerTime(), period);
        replay.file.setReplayVel(ReplayMax, 77);
        QCOMPARE(replay.file.timerTime(), qint64{20});
        replay.file.setAdjacent(false, 77);
        QCOMPARE(replay.file.timerTime(), qint64{5});
    }

    void fftLengthIsFitted_data()
    {
        QTest::addColumn<quint32>("rate");
        QTest::addColumn<quint32>("length");
        QTest::addColumn<quint32>("accum");
        QTest::addColumn<quint32>("fitted");
        QTest::addColumn<int>("emitted");
        QTest::newRow("rate is enough") << 8192U << 8192U << 1U << 8192U << 0;
        QTest::newRow("told, and nothing halved") << 8000U << 8192U << 1U << 8192U << 1;
        QTest::newRow("halved once") << 8000U << 16384U << 1U << 8192U << 1;
        QTest::newRow("halved three times") << 8000U << 65536U << 1U << 8192U << 1;
        QTest::newRow("with accumulations") << 8000U << 8192U << 20U << 256U << 1;
        QTest::newRow("never below 8") << 1U << 1024U << 1000U << 8U << 1;
        QTest::newRow("odd lengths are cut") << 10U << 1001U << 1U << 7U << 1;
    }
    void fftLengthIsFitted()
    {
        QFETCH(quint32, rate);
        QFETCH(quint32, length);
        QFETCH(quint32, accum);
        QFETCH(quint32, fitted);
        QFETCH(int, emitted);
        FFT_Params_WAV.setFftLength(length);
        FFT_Params_WAV.setNumAccum(accum);
        FFT_Params_WAV.setOverlapRatio(0.75);
        FFT_Params_WAV.setBinDivisor(3.0);
        FFT_Params_WAV.setOverlapLength(1);
        WavReplay replay(m_dir.write(waveFile(*makeInfo(1), {.rate = rate}, 100)));
        QVERIFY(replay.prepare());
        QCOMPARE(replay.fftChanges, emitted);
        QCOMPARE(FFT_Params_WAV.fftLength(), fitted);
        if (fitted == length) {
            QCOMPARE(FFT_Params_WAV.overlapLength(), 1U);
            return;
        }
        const auto overlap = static_cast<uint32_t>(fitted * 0.75);
        QCOMPARE(FFT_Params_WAV.overlapTotal(), static_cast<uint32_t>(accum * fitted * 0.75));
        QCOMPARE(FFT_Params_WAV.overlapLength(), overlap);
        QCOMPARE(FFT_Params_WAV.overlapLength2(), overlap);
        QCOMPARE(FFT_Params_WAV.overlapLength3(), overlap);
        QCOMPARE(FFT_Params_WAV.freshLength(), fitted - overlap);
        QCOMPARE(FFT_Params_WAV.numBins(), (fitted + 2) / 3);
        QCOMPARE(FFT_Params_WAV.numAccum(), accum);
    }

    void fftLengthStaysHalvedForTheNextFile()
    {
        FFT_Params_WAV.setFftLength(65536);
        WavReplay slow(m_dir.write(waveFile(*makeInfo(1), {.rate = 8000}, 100)));
        QVERIFY(slow.prepare());
        WavReplay fast(m_dir.write(waveFile(*makeInfo(1), {.rate = 512000}, 100)));
        QVERIFY(fast.prepare());
        QCOMPARE(FFT_Params_WAV.fftLength(), 8192U);
    }

    void epochLists()
    {
        NvxWAVFile file(m_dir.write(waveFile(*makeInfo(2), {.channels = 2}, 100)));
        QVERIFY(file.headerPrepare(true));
        QCOMPARE(file.epochLogLists().size(), 2);
        const HydDeviceId first = file.channelDevices()[0];
        file.addEpochMessg(first, {QStringLiteral("a line")});
        QVERIFY(file.headerPrepare(false));
        QCOMPARE(file.epochLogLists().value(first), QStringList{QStringLiteral("a line")});
        // Lists of devices of another file stay, those of its own are added.
        file.setFileName(m_dir.write(waveFile(*makeInfo(1), {}, 100)));
        QVERIFY(file.headerPrepare(false));
        QCOMPARE(file.epochLogLists().size(), 1);
        QCOMPARE(file.epochLogLists().value(file.channelDevices()[0]), QStringList());
        QVERIFY(file.headerPrepare(true));
        QCOMPARE(file.epochLogLists().size(), 1);
        file.setFileName(m_dir.write(waveFile(*makeInfo(2), {.channels = 2}, 100)));
        QVERIFY(file.headerPrepare(false));
        QCOMPARE(file.epochLogLists().value(first), QStringList());
    }

    void carriedLists()
    {
        struct OpenFile : NvxWAVFile
        {
            using NvxDataFile::m_epochCarry;
            using NvxWAVFile::NvxWAVFile;
        };
        OpenFile file(m_dir.write(waveFile(*makeInfo(2), {.channels = 2}, 100)));
        const HydDeviceId other(DevTypeWavFile, 7);
        file.m_epochCarry[other] << QStringLiteral("carried");
        QVERIFY(file.headerPrepare(false));
        QCOMPARE(file.m_epochCarry.keys(), QList<HydDeviceId>{other});
        QVERIFY(file.headerPrepare(true));
        QCOMPARE(file.m_epochCarry.keys(), file.channelDevices());
        QVERIFY(file.m_epochCarry.first().isEmpty() && file.m_epochCarry.last().isEmpty());
    }

    void carriedListsOfAnAdjacentFile()
    {
        struct OpenFile : NvxWAVFile
        {
            using NvxDataFile::m_epochCarry;
            using NvxWAVFile::NvxWAVFile;
        };
        OpenFile file(m_dir.write(waveFile(*makeInfo(2), {.channels = 2}, 100)));
        QVERIFY(file.headerPrepare(true));
        const HydDeviceId id = file.channelDevices()[1];
        file.addEpochMessg(id, {QStringLiteral("new")});
        file.m_epochCarry[id] << QStringLiteral("old");
        QVERIFY(file.headerPrepare(false));
        file.setAdjacent(true, 0);
        QCOMPARE(file.epochLogLists().value(id), (QStringList{QStringLiteral("new"), QStringLiteral("old")}));
        QVERIFY(file.m_epochCarry.value(id).isEmpty());
        // Without adjacency they go.
        file.m_epochCarry[id] << QStringLiteral("lost");
        file.setAdjacent(false, 0);
        QVERIFY(file.m_epochCarry.value(id).isEmpty());
        QCOMPARE(file.epochLogLists().value(id).size(), 2);
    }

    void impulseBecomesALine()
    {
        NvxWAVFile file(m_dir.write(waveFile(*makeInfo(1), {}, 100)));
        QVERIFY(file.headerPrepare(true));
        auto impulse = std::make_shared<SImpulseStatistics>();
        impulse->time = kTime;
        impulse->sel = 120.25F;
        impulse->splRms = 130.5F;
        impulse->splPeak = -1.0F;
        impulse->startSample = 5000000000;
        impulse->endSample = 5000000480;
        impulse->start90Sample = 5000000100;
        impulse->end90Sample = 5000000300;
        const HydDeviceId id = file.channelDevices()[0];
        file.handleImp(impulse, id);
        QCOMPARE(file.epochLogLists().value(id),
                 QStringList{QStringLiteral(
                     "2024-02-29 12:34:56, Impulse: SEL (dB)=120.250000, SPL (dB)=130.500000, Pk "
                     "(dB)=-1.000000, Duration (smpls)=480, Duration 90%=200, Sequence in "
                     "second:5000000000\n")});
        file.handleImp(impulse, HydDeviceId(DevTypeWavFile, 4));
        file.handleImp(nullptr, id);
        QCOMPARE(file.epochLogLists().value(id).size(), 1);
    }

    void sizeOfTheDataIsCutToTheFile_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<unsigned>("size");
        const auto info = makeInfo(1);
        for (qint64 claimed : {qint64(4002), qint64(0x7FFFFFFF), qint64(0xFFFFFFFF)}) {
            QTest::addRow("list ahead, %lld claimed", static_cast<long long>(claimed))
                << waveFile(*info, {}, 4000, claimed) << 4000U;
            QTest::addRow("no list, %lld claimed", static_cast<long long>(claimed))
                << WavBytes().head().format({}).data(QByteArray(4000, 's'), claimed).bytes << 4000U;
        }
        QTest::newRow("as it is") << waveFile(*info, {}, 4000) << 4000U;
        QTest::newRow("less than there is") << waveFile(*info, {}, 4000, 3000) << 3000U;
        QTest::newRow("nothing") << waveFile(*info, {}, 4000, 0) << 0U;
        // The list is taken off twice: intended.
        const WavBytes list = WavBytes().list(bytesOf(info->fileBytes()));
        QTest::newRow("list behind")
            << WavBytes().head().format({}).data(QByteArray(4000, 's'), 0xFFFFFFFF).raw(list.bytes).bytes
            << unsigned(4000 - list.bytes.size());
    }
    void sizeOfTheDataIsCutToTheFile()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(unsigned, size);
        NvxWAVFile file(m_dir.write(bytes));
        QVERIFY(file.headerPrepare(true));
        QCOMPARE(file.header()->dataSize(), size);
    }

    // --- rainy day flows
    void noByteRate()
    {
        WavReplay replay(m_dir.write(waveFile(*makeInfo(1), {.rate = 1000, .bytesPerSec = 0}, 4000)));
        QVERIFY(replay.prepare());
        QCOMPARE(replay.file.length(), 0U);
        QCOMPARE(replay.file.timerTime(), qint64{500});
        QVERIFY(replay.play());
        QCOMPARE(replay.samples(0).size(), size_t{2000});
    }

    void noFftLength()
    {
        FFT_Params_WAV.setFftLength(0);
        NvxWAVFile file(m_dir.write(waveFile(*makeInfo(1), {}, 100)));
        QVERIFY(!file.headerPrepare(true));
    }

    void slotsOnTheChangedLength_data()
    {
        QTest::addColumn<bool>("deletes");
        QTest::newRow("deletes the file") << true;
        QTest::newRow("leaves no length") << false;
    }
    void slotsOnTheChangedLength()
    {
        QFETCH(bool, deletes);
        FFT_Params_WAV.setFftLength(65536);
        QPointer<NvxWAVFile> file(new NvxWAVFile(m_dir.write(waveFile(*makeInfo(1), {.rate = 8000}, 100))));
        connect(file, &NvxWAVFile::signalFWFFTLenChanged, this, [&] {
            if (deletes)
                delete file;
            else
                FFT_Params_WAV.setFftLength(0);
        });
        QVERIFY(!file->headerPrepare(true));
        QCOMPARE(file.isNull(), deletes);
        delete file;
    }

    void fileThatItsCallerLeftOpen()
    {
        NvxWAVFile file(m_dir.write(waveFile(*makeInfo(1), {}, 100)));
        QVERIFY(file.file().open(QIODevice::ReadOnly));
        QVERIFY(file.headerPrepare(true));
        QVERIFY(!file.file().isOpen());
    }

    void deletedByItsOwnHeader_data()
    {
        QTest::addColumn<bool>("byDevice");
        QTest::newRow("device") << true;
        QTest::newRow("header") << false;
    }
    void deletedByItsOwnHeader()
    {
        QFETCH(bool, byDevice);
        auto* file = new NvxWAVFile(m_dir.write(waveFile(*makeInfo(3), {.channels = 3}, 100)));
        QVERIFY(file->headerPrepare(true));
        int count = 0;
        if (byDevice)
            connect(file, &NvxDataFile::signalDeviceReady, this, [&] { ++count, delete file; });
        else
            connect(file, &NvxDataFile::streamHeaderReady, this, [&] { ++count, delete file; });
        QVERIFY(file->processData());
        QCOMPARE(count, 1);
    }
};

QTEST_GUILESS_MAIN(tst_NvxWAVFile)
#include "tst_NvxWAVFile.moc"
