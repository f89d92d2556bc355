#include "LogStream.h"
#include "WavJudge.h"

#include "NvxQtCommon/contract/recording/HydUtil.h"
#include "NvxQtCommon/contract/recording/NvxWavInfoDataHF.h"
#include "NvxQtCommon/logging/NvxWavLogger.h"
#include "tests/support/NvxTestCase.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <limits>
#include <memory>

namespace {

constexpr uint32_t kTime = 1709210400; // 2024-02-29 12:40:00 UTC
const HydDeviceId kDeviceId(DevTypeRecorderA, 42);

QByteArray latin(const std::string& text)
{
    return QByteArray::fromStdString(text);
}

} // namespace

/// What the logger puts into the files: the information record field by field, and the samples.
class tst_NvxWavLoggerFiles : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        failOnUnexpectedWarnings();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        makeLogger(600, QStringLiteral("ABC0042"));
        m_stream = LogStream();
    }
    void cleanup()
    {
        m_logger.reset();
        m_dir.reset();
    }

    // --- happy flows
    void recorderFields()
    {
        m_stream.devices[0] = {DevTypeRecorderB, 4711, -1709};
        m_stream.statuses[0] = {-15, 456, 7, 1};
        const auto info = record(kTime, 0x123456789LL);
        QVERIFY(std::dynamic_pointer_cast<NvxWavInfoDataHF>(info));
        QCOMPARE(info->timestamp(), kTime);
        QCOMPARE(info->startSample(), uint64_t{0x123456789});
        QCOMPARE(latin(info->fileName()), QByteArray("ABC0042_20240229_124000"));
        QCOMPARE(latin(info->software()),
                 "Nerivox' " + QFileInfo(QCoreApplication::applicationFilePath()).fileName().toUtf8());
        QCOMPARE(info->peakVolts(), 2.5F);
        QCOMPARE(HydUtil::deviceType(info->deviceType(1)), DevTypeRecorderB);
        QCOMPARE(info->serialNo(1), uint16_t{4711});
        QCOMPARE(info->sensitivity(1), int16_t{-170}); // tenths cut off, not rounded
        QCOMPARE(info->temperature(1), int16_t{-15});
        QCOMPARE(info->humidity(1), int16_t{456});
        QCOMPARE(info->statusExtra(1), uint8_t{7});
        QCOMPARE(latin(info->hwRelease(1)), QByteArray("Model R release 77"));
        QCOMPARE(latin(info->deviceText(1)), QByteArray("version 3.1"));
        QCOMPARE(info->fullScaleCount(), 32768);
    }

    void scanStreamScalesTheStatus()
    {
        m_stream.streamType = StreamWaveScan;
        m_stream.statuses[0] = {-15, 45, 30, 0};
        const auto info = record(kTime, 0);
        QCOMPARE(info->temperature(0), int16_t{-150});
        QCOMPARE(info->humidity(0), int16_t{450});
        QCOMPARE(info->statusExtra(0), uint8_t(300 & 0xFF)); // one byte
    }

    void peakVoltsIsHalfTheRange_data()
    {
        QTest::addColumn<int>("max");
        QTest::addColumn<int>("min");
        QTest::addColumn<float>("volts");
        QTest::newRow("replay") << 3000000 << -3000000 << 3.0F;
        QTest::newRow("uneven") << 1000000 << -500000 << 0.75F;
        QTest::newRow("nothing") << 0 << 0 << 0.0F;
        QTest::newRow("the wrong way round") << -1000000 << 1000000 << -1.0F;
        QTest::newRow("beyond 32 bits") << 2000000000 << -2000000000 << 2000.0F;
    }
    void peakVoltsIsHalfTheRange()
    {
        QFETCH(int, max);
        QFETCH(int, min);
        QFETCH(float, volts);
        m_stream.maxMicrovolts = max;
        m_stream.minMicrovolts = min;
        QCOMPARE(record(kTime, 0)->peakVolts(), volts);
        m_stream.channels = 2;
        QCOMPARE(record(kTime + 1, 0)->peakVolts(), volts);
    }

    void fullScaleFollowsTheDepth_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<int>("count");
        QTest::newRow("16") << 16 << 0x8000;
        QTest::newRow("24") << 24 << 0x800000;
        QTest::newRow("32") << 32 << std::numeric_limits<int>::min();
    }
    void fullScaleFollowsTheDepth()
    {
        QFETCH(int, bits);
        QFETCH(int, count);
        m_stream.bits = static_cast<uint8_t>(bits);
        QCOMPARE(record(kTime, 0)->fullScaleCount(), count);
    }

    void newestHeadingGoesIntoEveryFileThatFollows()
    {
        auto info = std::dynamic_pointer_cast<NvxWavInfoDataHF>(record(kTime, 0));
        QVERIFY(info);
        QVERIFY(!info->headStatus());
        m_logger->handleStreamStatusData(makeHeading(900), kDeviceId);
        m_logger->handleStreamStatusData(makeHeading(1800), kDeviceId);
        info = std::dynamic_pointer_cast<NvxWavInfoDataHF>(record(kTime + 600, 0));
        QVERIFY(info && info->headStatus());
        QCOMPARE(info->headStatus()->heading(), uint16_t{1800});
        QCOMPARE(info->headStatus()->pitch(), int16_t{-20});
        QCOMPARE(info->headStatus()->roll(), int16_t{30});
        QCOMPARE(info->headStatus()->time(), 1709210000U);
        // A status without a heading leaves the last one.
        m_logger->handleStreamStatusData(std::make_shared<HydStatusDataPayload>(), kDeviceId);
        info = std::dynamic_pointer_cast<NvxWavInfoDataHF>(record(kTime + 1200, 0));
        QVERIFY(info && info->headStatus());
        QCOMPARE(info->headStatus()->heading(), uint16_t{1800});
    }

    void headingOfAFileThatBeginsWithABlock()
    {
        m_logger->handleStreamStatusData(makeHeading(900), kDeviceId);
        record(kTime, 0);
        m_logger->handleStreamStatusData(makeHeading(1800), kDeviceId);
        m_logger->handleWavData(m_stream.block(kTime + 600, 0, 300, 300));
        const auto info = std::dynamic_pointer_cast<NvxWavInfoDataHF>(infoOfFile(m_lastFile));
        QVERIFY(info && info->headStatus());
        QCOMPARE(info->timestamp(), kTime + 600);
        QCOMPARE(info->headStatus()->heading(), uint16_t{1800});
    }

    void arrayFields()
    {
        makeArray();
        const auto info = record(kTime, 555);
        QCOMPARE(int(info->numChannels()), 3);
        QCOMPARE(info->timestamp(), kTime);
        QCOMPARE(info->startSample(), uint64_t{555});
        QCOMPARE(latin(info->fileName()), QByteArray("ABC0042_20240229_124000"));
        QVERIFY(latin(info->software()).startsWith("Nerivox' "));
        QCOMPARE(info->peakVolts(), 2.5F);
        QCOMPARE(HydUtil::deviceType(info->deviceType(0)), DevTypeTmi);
        QCOMPARE(info->serialNo(0), uint16_t{9000});
        QCOMPARE(info->sensitivity(0), int16_t{0});
        for (unsigned char channel = 1; channel <= 3; ++channel) {
            QCOMPARE(HydUtil::deviceType(info->deviceType(channel)), DevTypeSkiff);
            QCOMPARE(info->serialNo(channel), uint16_t(100 + channel));
            QCOMPARE(info->sensitivity(channel), int16_t(-170 - channel));
            QCOMPARE(info->temperature(channel), int16_t(10 * channel));
            QCOMPARE(info->humidity(channel), int16_t(20 * channel));
            QCOMPARE(info->statusExtra(channel), uint8_t(channel));
        }
        // The array's record has neither texts of the device nor a full scale.
        QVERIFY(info->hwRelease(1).empty());
        QCOMPARE(info->fullScaleCount(), 0);
    }

    void arrayOfAScanScalesEachChannel()
    {
        makeArray();
        m_stream.streamType = StreamWaveScan;
        const auto info = record(kTime, 0);
        for (unsigned char channel = 1; channel <= 3; ++channel) {
            QCOMPARE(info->temperature(channel), int16_t(100 * channel));
            QCOMPARE(info->humidity(channel), int16_t(200 * channel));
            QCOMPARE(info->statusExtra(channel), uint8_t(10 * channel));
        }
        QCOMPARE(info->temperature(0), int16_t{0});
    }

    void arrayWithoutMasterTakesItsFirstChannel()
    {
        makeArray();
        m_stream.master.reset();
        const auto info = record(kTime, 0);
        QCOMPARE(HydUtil::deviceType(info->deviceType(0)), DevTypeSkiff);
        QCOMPARE(info->serialNo(0), uint16_t{101});
    }

    void masterMakesAnArrayOfOneChannel()
    {
        m_stream.master = LogDevice{DevTypeTmi, 9000, 0};
        const auto info = record(kTime, 0);
        QVERIFY(!std::dynamic_pointer_cast<NvxWavInfoDataHF>(info));
        QCOMPARE(int(info->numChannels()), 1);
        QCOMPARE(info->serialNo(0), uint16_t{9000});
        QCOMPARE(info->serialNo(1), uint16_t{42});
    }

    void byteOrderOfARecorderIsThatOfItsFile()
    {
        m_stream.bigEndian = true;
        record(kTime, 0);
        QVERIFY(viewRiff(m_lastFile).isBigEndian);
        compareRamp(m_lastFile);
        m_stream.bigEndian = false;
        record(kTime + 600, 0);
        QVERIFY(!viewRiff(m_lastFile).isBigEndian);
        compareRamp(m_lastFile);
    }

    void arrayLeavesTheByteOrderAlone()
    {
        makeArray();
        m_stream.bigEndian = true;
        record(kTime, 0);
        QVERIFY(!viewRiff(m_lastFile).isBigEndian);
        compareRamp(m_lastFile);
        // What a recorder set before stays.
        m_stream = LogStream();
        m_stream.bigEndian = true;
        record(kTime + 600, 0);
        makeArray();
        m_stream.bigEndian = false;
        record(kTime + 1200, 0);
        QVERIFY(viewRiff(m_lastFile).isBigEndian);
        compareRamp(m_lastFile);
    }

    void samplesOfManySecondsAndFiles_data()
    {
        QTest::addColumn<int>("bits");
        QTest::addColumn<int>("channels");
        QTest::addColumn<bool>("bigEndian");
        for (int bits : {16, 24, 32}) {
            for (int channels : {1, 2, 8}) {
                for (bool bigEndian : {false, true})
                    QTest::addRow("%d bits, %d channels, %s", bits, channels, bigEndian ? "big" : "little")
                        << bits << channels << bigEndian;
            }
        }
    }
    void samplesOfManySecondsAndFiles()
    {
        QFETCH(int, bits);
        QFETCH(int, channels);
        QFETCH(bool, bigEndian);
        m_stream.bits = static_cast<uint8_t>(bits);
        m_stream.channels = static_cast<uint8_t>(channels);
        m_stream.bigEndian = bigEndian;
        makeLogger(2, QStringLiteral("ABC0042"));
        for (uint32_t second = 0; second < 5; ++second) {
            m_logger->handleWavEventHdr(m_stream.header(kTime + second, 1000 * second), kDeviceId,
                                        makeLogDevice());
            for (uint32_t part = 0; part < 4; ++part)
                m_logger->handleWavData(m_stream.block(kTime + second, 1000 * second, 250 * part, 250));
        }
        m_logger->stopLogging();
        const QDir dir(m_dir->path());
        const QStringList files = dir.entryList(QDir::Files, QDir::Name);
        QCOMPARE(files.size(), 3);
        int64_t next = 0;
        for (const QString& file : files) {
            QCOMPARE(wholeFileObjection(dir.filePath(file)), QString());
            QCOMPARE(infoOfFile(dir.filePath(file))->startSample(), uint64_t(next));
            const JudgedWav wav = judgeWav(dir.filePath(file));
            QCOMPARE(wav.channels, channels);
            for (size_t i = 0; i < wav.samples.size(); ++i)
                QCOMPARE(wav.samples[i], int32_t(next + int64_t(i) / channels));
            next += wav.frames;
        }
        QCOMPARE(next, 5000);
    }

    void setupGoesIntoTheFile()
    {
        m_stream.rate = 96000;
        m_stream.gain = -6;
        m_stream.bits = 24;
        record(kTime, 0);
        const JudgedWav wav = judgeWav(m_lastFile);
        QCOMPARE(wav.rate, 96000);
        QCOMPARE(wav.bits, 24);
        QVERIFY(wav.comment.contains(QStringLiteral("gain -6 dB")));
    }

    void prefixInForeignLetters()
    {
        makeLogger(600, QStringLiteral("Wal ä海"));
        record(kTime, 0);
        QCOMPARE(QFileInfo(m_lastFile).fileName(), QStringLiteral("Wal ä海_20240229_124000.wav"));
    }

    // --- rainy day flows
    void streamWithoutKeys()
    {
        m_stream.withKey = false;
        const auto info = record(0, 0);
        QCOMPARE(info->timestamp(), 0U);
        QCOMPARE(info->startSample(), uint64_t{0});
        QCOMPARE(QFileInfo(m_lastFile).fileName(), QStringLiteral("ABC0042_19700101_000000.wav"));
    }

    void recorderWithoutDeviceRecord()
    {
        m_logger->handleWavEventHdr(m_stream.header(kTime, 0), kDeviceId, nullptr);
        m_logger->stopLogging();
        const auto info = infoOfFile(m_dir->filePath(QStringLiteral("ABC0042_20240229_124000.wav")));
        QVERIFY(info);
        QVERIFY(info->hwRelease(1).empty());
    }

private:
    void makeLogger(int maxLength, const QString& prefix)
    {
        m_logger = std::make_unique<NvxWavLogger>(maxLength, m_dir->path(), prefix);
        connect(m_logger.get(), &NvxWavLogger::newFileCreated, this,
                [this](const QString& name) { m_lastFile = name; });
    }

    void makeArray()
    {
        m_stream = LogStream();
        m_stream.channels = 3;
        m_stream.devices.clear();
        m_stream.statuses.clear();
        for (int channel = 1; channel <= 3; ++channel) {
            m_stream.devices.push_back(
                {DevTypeSkiff, uint16_t(100 + channel), int16_t(-1700 - 10 * channel)});
            m_stream.statuses.push_back(
                {int16_t(10 * channel), int16_t(20 * channel), uint8_t(channel), uint8_t(channel)});
        }
        m_stream.master = LogDevice{DevTypeTmi, 9000, -1234};
    }

    /// Logs a header and a block, and gives the record of the newest file.
    std::shared_ptr<NvxWavInfoData> record(uint32_t time, int64_t sequence)
    {
        m_stream.nextRamp = 0;
        m_logger->handleWavEventHdr(m_stream.header(time, sequence), kDeviceId, makeLogDevice());
        m_logger->handleWavData(m_stream.block(time, sequence, 0, 300));
        return infoOfFile(m_lastFile);
    }

    static void compareRamp(const QString& path)
    {
        const JudgedWav wav = judgeWav(path);
        QCOMPARE(wav.frames, 300);
        for (size_t i = 0; i < wav.samples.size(); ++i)
            QCOMPARE(wav.samples[i], int32_t(i / size_t(wav.channels)));
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<NvxWavLogger> m_logger;
    LogStream m_stream;
    QString m_lastFile;
};

QTEST_GUILESS_MAIN(tst_NvxWavLoggerFiles)
#include "tst_NvxWavLoggerFiles.moc"
