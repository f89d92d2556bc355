#include "LogStream.h"
#include "MergeFiles.h"

#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "NvxQtSimulator/SignalSource.h"
#include "WavJudge.h"
#include "WavReplay.h"
#include "tests/support/NvxTestCase.h"

#include <QDir>
#include <QProcess>

namespace {

constexpr uint32_t kTime = 1709210400; // 2024-02-29 12:40:00
constexpr uint32_t kRate = 1000;
constexpr uint32_t kSeconds = 60;
const QString kOutput = QStringLiteral("MERGED_20240229_124000.wav");

SignalSettings signalOf(int channel)
{
    SignalSettings settings;
    settings.kind = static_cast<SignalSettings::Kind>(channel % 4);
    settings.frequency = 50.0 + 10.0 * channel;
    settings.endFrequency = 400.0;
    settings.levelDb = -3.0 * channel;
    settings.seed = static_cast<uint64_t>(channel + 1);
    return settings;
}

std::shared_ptr<HydStreamDataPayload> blockOf(const SignalSource& source, const SampleFormat& format,
                                              uint32_t time, uint32_t second)
{
    auto* bytes = new unsigned char[size_t{kRate} * format.bytesPerSample];
    source.fill(uint64_t{second} * kRate, kRate, format, bytes);
    const auto code = static_cast<unsigned char>(format.bytesPerSample | (format.bigEndian ? 0U : 0x80U));
    auto payload = std::make_shared<HydStreamDataPayload>(
        makeLogKey(time, int64_t{second} * kRate),
        std::make_shared<HydStreamDataChunkV0>(0U, uint8_t{1}, code, uint16_t{kRate}, bytes, false));
    payload->streamType = StreamWave;
    return payload;
}

/// All that a signal gives in a minute, as one block.
HydStreamDataChunkV0 wholeSignal(const SignalSource& source, const SampleFormat& format)
{
    constexpr unsigned count = kSeconds * kRate;
    static_assert(count <= UINT16_MAX);
    auto* bytes = new unsigned char[size_t{count} * format.bytesPerSample];
    source.fill(0, count, format, bytes);
    return {0U,    uint8_t{1}, static_cast<unsigned char>(format.bytesPerSample | 0x80U), uint16_t{count},
            bytes, false};
}

/// A minute of a simulated signal, as the wave logger records it; gives the path.
QString record(const QString& directory, uint16_t serial, int bits, const SignalSettings& settings)
{
    const SignalSource source(settings, kRate);
    const SampleFormat format{static_cast<unsigned>(bits / 8), false, 1};
    LogStream stream;
    stream.rate = kRate;
    stream.bits = static_cast<uint8_t>(bits);
    stream.devices.front().serial = serial;
    QString path;
    NvxWavLogger logger(kSeconds, directory, QStringLiteral("REC%1").arg(serial, 4, 10, QLatin1Char('0')));
    QObject::connect(&logger, &NvxWavLogger::newFileCreated, &logger,
                     [&path](const QString& name) { path = name; });
    const auto device = makeLogDevice();
    for (uint32_t second = 0; second < kSeconds; ++second) {
        logger.handleWavEventHdr(stream.header(kTime + second, int64_t{second} * kRate), device->deviceId(),
                                 device);
        logger.handleWavData(blockOf(source, format, kTime + second, second));
    }
    logger.stopLogging();
    return path;
}

} // namespace

/// Merges of recordings of our own logger, before programs that others wrote.
class tst_NvxWavMergerPeers : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void soxMergesTheSame_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<int>("channels");
        for (int bits : {16, 24, 32}) {
            for (int channels : {1, 2, 3, 4, 8})
                QTest::addRow("%d bits, %d channels", bits, channels) << bits << channels;
        }
    }
    void soxMergesTheSame()
    {
        QFETCH(int, bits);
        QFETCH(int, channels);
        MergeRig rig;
        QStringList inputs;
        QList<uint16_t> serials;
        for (int channel = 0; channel < channels; ++channel) {
            serials << static_cast<uint16_t>(300 + channel);
            inputs << record(rig.inputDir(), serials.last(), bits, signalOf(channel));
            rig.merger->addFile(inputs.last());
        }
        rig.merger->setChannels(serials);
        rig.merger->startMerge();
        QCOMPARE(rig.outputs(), QStringList{kOutput});
        const QString ours = rig.outputPath(kOutput);
        QCOMPARE(wholeFileObjection(ours), QString());
        QCOMPARE(ffprobeObjection(ours), QString());

        const QString theirs = rig.outputPath(QStringLiteral("sox.wav"));
        QProcess sox;
        const QStringList mode = channels > 1 ? QStringList{QStringLiteral("-M")} : QStringList();
        sox.start(QStringLiteral("sox"),
                  QStringList{QStringLiteral("-D")} + mode + inputs + QStringList{theirs});
        QVERIFY(sox.waitForFinished(30000));
        QCOMPARE(sox.exitCode(), 0);
        const JudgedWav judged = judgeWav(ours);
        const JudgedWav expected = judgeWav(theirs);
        QCOMPARE(expected.error, QString());
        QCOMPARE(judged.channels, expected.channels);
        QCOMPARE(judged.rate, expected.rate);
        QCOMPARE(judged.bits, expected.bits);
        QCOMPARE(judged.frames, qint64{kSeconds} * kRate);
        QCOMPARE(judged.frames, expected.frames);
        QVERIFY(judged.samples == expected.samples);
    }

    void mergedFileReplaysWhatWasRecorded_data()
    {
        QTest::addColumn<int>("bits");
        for (int bits : {16, 24, 32})
            QTest::addRow("%d bits", bits) << bits;
    }
    void mergedFileReplaysWhatWasRecorded()
    {
        QFETCH(int, bits);
        constexpr int channels = 3;
        MergeRig rig;
        QList<uint16_t> serials;
        for (int channel = 0; channel < channels; ++channel) {
            serials << static_cast<uint16_t>(300 + channel);
            rig.merger->addFile(record(rig.inputDir(), serials.last(), bits, signalOf(channel)));
        }
        rig.merger->setChannels(serials);
        rig.merger->startMerge();
        QCOMPARE(rig.outputs(), QStringList{kOutput});
        WavReplay replay(rig.outputPath(kOutput));
        QVERIFY(replay.prepare());
        QVERIFY(replay.play());
        QCOMPARE(replay.file.channelDevices().size(), channels);
        const SampleFormat format{static_cast<unsigned>(bits / 8), false, 1};
        for (int channel = 0; channel < channels; ++channel) {
            QCOMPARE(replay.file.channelDevices()[channel].serialNo(), serials[channel]);
            const HydStreamDataChunkV0 source = wholeSignal(SignalSource(signalOf(channel), kRate), format);
            // Whole ticks of a second each, so there is no tail that isn't played.
            QVERIFY(replay.samples(channel) == samplesOf(source));
        }
    }

    // --- rainy day flows
    void inputsOfOtherPrograms()
    {
        MergeRig rig;
        rig.merger->setChannels({300});
        rig.merger->addFile(record(rig.inputDir(), 300, 16, signalOf(0)));
        const QString foreign = rig.inputDir() + QStringLiteral("/REC0301_20240229_124000.wav");
        QProcess sox;
        sox.start(QStringLiteral("sox"),
                  {QStringLiteral("-n"), QStringLiteral("-r"), QString::number(kRate), QStringLiteral("-b"),
                   QStringLiteral("16"), foreign, QStringLiteral("synth"), QString::number(kSeconds),
                   QStringLiteral("sine"), QStringLiteral("100")});
        QVERIFY(sox.waitForFinished(30000));
        rig.merger->addFile(foreign);
        rig.merger->startMerge();
        // Nothing in it says which recorder it is of, whatever its name.
        QVERIFY(rig.logLines().contains(
            QStringLiteral("Warning: %1 is from a device (0) that is not assigned to a channel.")
                .arg(foreign)));
        QCOMPARE(judgeWav(rig.outputPath(kOutput)).channels, 1);
    }
};

QTEST_GUILESS_MAIN(tst_NvxWavMergerPeers)
#include "tst_NvxWavMergerPeers.moc"
