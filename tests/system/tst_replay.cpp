#include "Relogger.h"
#include "RoadRig.h"

#include "NvxQtCommon/contract/stream/FftParams.h"
#include "tests/recording/WavJudge.h"
#include "tests/support/FftParamsGuard.h"
#include "tests/support/NvxTestCase.h"

#include <QFile>

namespace {

std::vector<int32_t> channelOf(const JudgedWav& wav, int channel)
{
    std::vector<int32_t> samples;
    for (size_t i = size_t(channel); i < wav.samples.size(); i += size_t(wav.channels))
        samples.push_back(wav.samples[i]);
    return samples;
}

} // namespace

/// From the simulated recorder to files, and from these by replay to files again.
class tst_replay : public NvxTestCase
{
    Q_OBJECT

    FftParamsGuard m_fftParams;

private Q_SLOTS:
    void cleanup() { m_fftParams.restore(); }

    // --- happy flows
    void everySampleComesBack_data()
    {
        QTest::addColumn<unsigned>("bits");
        QTest::addColumn<bool>("bigEndian");
        QTest::addColumn<unsigned>("channels");
        for (const unsigned bits : {16U, 24U, 32U}) {
            for (const bool bigEndian : {false, true}) {
                for (const unsigned channels : {1U, 2U, 8U})
                    QTest::addRow("%u bit, %s, %u channels", bits, bigEndian ? "big" : "little", channels)
                        << bits << bigEndian << channels;
            }
        }
    }
    void everySampleComesBack()
    {
        QFETCH(unsigned, bits);
        QFETCH(bool, bigEndian);
        QFETCH(unsigned, channels);
        RecorderSettings settings = RoadRig::settingsAt("127.94.9.1");
        settings.bitDepth = bits;
        settings.byteOrder = bigEndian ? OrderBigEndian : OrderLittleEndian;
        settings.channels = channels;
        settings.sampleRate = 2000;
        settings.streamSeconds = 2;
        RoadRig rig(settings);
        QVERIFY(rig.record());
        QCOMPARE(rig.files.size(), 1);
        const JudgedWav first = judgeWav(rig.files.front());
        // The array's files are little-endian whatever the stream is.
        QCOMPARE(first.isBigEndian, bigEndian && channels == 1);

        QTemporaryDir folder;
        Relogger relogger(folder.path());
        QVERIFY(relogger.play(rig.files.front()));
        relogger.stop();
        QCOMPARE(relogger.files.size(), size_t{channels});
        int channel = 0;
        for (const auto& [id, files] : relogger.files) {
            QCOMPARE(id.serialNo(), uint16_t(channels == 1 ? 1234 : 1235 + channel));
            QCOMPARE(id.hostDevNo(), uint16_t(channels == 1 ? 0 : 1234));
            QCOMPARE(files.size(), 1);
            QCOMPARE(wholeFileObjection(files.front()), QString());
            const JudgedWav second = judgeWav(files.front());
            QCOMPARE(second.rate, 2000);
            QCOMPARE(second.bits, int(bits));
            QCOMPARE(second.channels, 1);
            QVERIFY(!second.isBigEndian);
            QCOMPARE(second.frames, qint64{4000});
            QVERIFY(second.samples == channelOf(first, channel));
            ++channel;
        }
    }

    void tailThatFillsNoTickIsLost_data()
    {
        QTest::addColumn<quint32>("rate");
        QTest::addColumn<int>("cut");
        QTest::addColumn<int>("tail");
        // Two seconds were recorded; the file was then cut.
        QTest::newRow("whole ticks") << 8000U << 0 << 0;
        QTest::newRow("four ticks a second") << 8000U << 700 << 1300;
        QTest::newRow("one frame less than a tick") << 8000U << 1 << 1999;
        QTest::newRow("two ticks a second") << 2000U << 700 << 300;
        QTest::newRow("one tick a second") << 3000U << 700 << 2300;
        QTest::newRow("a last block of one frame") << 2049U << 0 << 1;
    }
    void tailThatFillsNoTickIsLost()
    {
        QFETCH(quint32, rate);
        QFETCH(int, cut);
        QFETCH(int, tail);
        RecorderSettings settings = RoadRig::settingsAt("127.94.9.2");
        settings.sampleRate = rate;
        settings.streamSeconds = 2;
        settings.blocksPerSecond = 10;
        RoadRig rig(settings);
        QVERIFY(rig.record());
        const JudgedWav whole = judgeWav(rig.files.front());
        QCOMPARE(whole.frames, qint64(2 * rate));
        QFile file(rig.files.front());
        QVERIFY(file.resize(file.size() - 2 * cut));

        QTemporaryDir folder;
        Relogger relogger(folder.path());
        QVERIFY(relogger.play(rig.files.front()));
        relogger.stop();
        const JudgedWav again = judgeWav(relogger.files.begin()->second.front());
        QCOMPARE(again.frames, whole.frames - cut - tail);
        QVERIFY(std::equal(again.samples.begin(), again.samples.end(), whole.samples.begin()));
    }

    void filesOfASeriesBecomeOneAgain()
    {
        RecorderSettings settings = RoadRig::settingsAt("127.94.9.3");
        settings.bitDepth = 24;
        settings.streamSeconds = 12;
        RoadRig rig(settings);
        QVERIFY(rig.record(5));
        QVERIFY(rig.files.size() >= 3);
        QTemporaryDir folder;
        Relogger relogger(folder.path());
        for (qsizetype i = 0; i < rig.files.size(); ++i)
            QVERIFY(relogger.play(rig.files[i], i > 0));
        relogger.stop();
        QCOMPARE(relogger.files.size(), size_t{1});
        QCOMPARE(relogger.files.begin()->second.size(), 1);
        const JudgedWav again = judgeWav(relogger.files.begin()->second.front());
        QCOMPARE(again.frames, qint64{96000});
        const uint64_t number = infoOf(rig.files.front())->startSample();
        QCOMPARE(infoOf(relogger.files.begin()->second.front())->startSample(), number);
        for (size_t i = 0; i < again.samples.size(); ++i)
            QCOMPARE(again.samples[i], SignalSource::rampValue(number + i, 0, 24));
    }

    void oneFileBecomesASeries()
    {
        // It begins inside of the five seconds at whose borders the new files end.
        RecorderSettings settings = RoadRig::settingsAt("127.94.9.4");
        settings.streamSeconds = 12;
        RoadRig rig(settings);
        QVERIFY(rig.record());
        QCOMPARE(rig.files.size(), 1);
        const uint32_t start = infoOf(rig.files.front())->timestamp();
        QTemporaryDir folder;
        Relogger relogger(folder.path(), 5);
        QVERIFY(relogger.play(rig.files.front()));
        relogger.stop();
        const QStringList files = relogger.files.begin()->second;
        const uint64_t first = infoOf(rig.files.front())->startSample();
        uint64_t number = first;
        qint64 seconds = 0;
        for (const QString& path : files) {
            const JudgedWav part = judgeWav(path);
            const auto info = infoOf(path);
            QVERIFY(info);
            QCOMPARE(info->timestamp(), uint32_t(start + seconds));
            QCOMPARE(info->startSample(), number);
            seconds += part.frames / 8000;
            QVERIFY((start + seconds) % 5 == 0 || path == files.back());
            for (const int32_t sample : part.samples)
                QCOMPARE(sample, SignalSource::rampValue(number++, 0, 16));
        }
        QCOMPARE(number, first + 96000);
        QVERIFY(files.size() == 3 || files.size() == 4);
    }

    void whatAGenerationKeeps_data()
    {
        QTest::addColumn<unsigned>("channels");
        QTest::newRow("one recorder") << 1U;
        QTest::newRow("array") << 2U;
    }
    void whatAGenerationKeeps()
    {
        QFETCH(unsigned, channels);
        RecorderSettings settings = RoadRig::settingsAt("127.94.9.5");
        settings.channels = channels;
        settings.streamSeconds = 1;
        settings.identity.model = "Model A";
        settings.identity.firmwareVersion = "2.1";
        settings.identity.firmwareRelease = "B7";
        RoadRig rig(settings);
        QVERIFY(rig.record());
        const auto first = infoOf(rig.files.front());
        QTemporaryDir folder;
        Relogger relogger(folder.path());
        QVERIFY(relogger.play(rig.files.front()));
        relogger.stop();
        for (const auto& [id, files] : relogger.files) {
            const auto again = infoOf(files.front());
            QVERIFY(again);
            QCOMPARE(again->timestamp(), first->timestamp());
            QCOMPARE(again->startSample(), first->startSample());
            QCOMPARE(again->deviceType(1), first->deviceType(1));
            QCOMPARE(int(again->sensitivity(1)), -170);
            // As docs/file-formats.md tells.
            QCOMPARE(int(again->numChannels()), 1);
            QCOMPARE(again->serialNo(1), first->serialNo(1));
            QCOMPARE(int(first->temperature(1)), 123);
            QCOMPARE(int(again->temperature(1)), 0);
            QCOMPARE(int(again->humidity(1)), 0);
            if (channels == 1) {
                QCOMPARE(again->deviceText(1), std::string("2.1"));
                QCOMPARE(again->hwRelease(1), "Model A B7 " + first->software());
            } else {
                QVERIFY(again->deviceText(1).empty());
                QCOMPARE(again->hwRelease(1), " " + first->software());
            }
        }
    }

    // --- rainy day flows
    void whatAKilledProgramLeftIsPlayed()
    {
        // The sizes in the header are those of the first second, and samples lie behind them.
        RecorderSettings settings = RoadRig::settingsAt("127.94.9.6");
        settings.streamSeconds = 3;
        RoadRig rig(settings);
        QVERIFY(rig.record());
        const RiffChunk data = *viewRiff(rig.files.front()).chunk("data");
        QFile file(rig.files.front());
        QVERIFY(file.open(QIODevice::ReadWrite) && file.seek(data.offset - 4));
        QCOMPARE(file.write(QByteArray::fromHex("803e0000")), qint64{4});
        file.close();
        QTemporaryDir folder;
        Relogger relogger(folder.path());
        QVERIFY(relogger.play(rig.files.front()));
        relogger.stop();
        QCOMPARE(judgeWav(relogger.files.begin()->second.front()).frames, qint64{8000});
    }
};

QTEST_GUILESS_MAIN(tst_replay)
#include "tst_replay.moc"
