#include "LogStream.h"

#include "NvxQtCommon/logging/WavBlockEvent.h"
#include "tests/support/NvxTestCase.h"

#include <limits>

namespace {

constexpr uint32_t kTime = 1709210400;

} // namespace

class tst_WavBlockEvent : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void sequenceAndTime_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("withKey");
        QTest::addColumn<qint64>("key");
        QTest::addColumn<quint32>("sampleNum");
        QTest::addColumn<quint64>("sequence");
        constexpr qint64 kLarge = 0x123456789;
        QTest::newRow("live") << int(StreamWave) << true << kLarge << 700U << quint64(kLarge);
        QTest::newRow("spectrum") << int(StreamSpectrum) << true << kLarge << 700U << quint64(kLarge);
        QTest::newRow("scan or replay")
            << int(StreamWaveScan) << true << kLarge << 700U << quint64(kLarge - 700);
        QTest::newRow("scan, first block") << int(StreamWaveScan) << true << kLarge << 0U << quint64(kLarge);
        QTest::newRow("scan, largest number")
            << int(StreamWaveScan) << true << kLarge << 0xFFFFFFFFU << quint64(kLarge - 0xFFFFFFFFLL);
        QTest::newRow("live without key") << int(StreamWave) << false << qint64{0} << 700U << quint64{0};
        QTest::newRow("scan without key")
            << int(StreamWaveScan) << false << qint64{0} << 700U << std::numeric_limits<quint64>::max() - 699;
    }
    void sequenceAndTime()
    {
        QFETCH(int, type);
        QFETCH(bool, withKey);
        QFETCH(qint64, key);
        QFETCH(quint32, sampleNum);
        QFETCH(quint64, sequence);
        LogStream stream;
        stream.streamType = static_cast<HydStreamType>(type);
        stream.withKey = withKey;
        const WavBlockEvent event(*stream.block(kTime, key, sampleNum, 10));
        QCOMPARE(quint64{event.sequence()}, sequence);
        QCOMPARE(event.timeStamp(), withKey ? int(kTime) : 0);
        QVERIFY(!event.isConsumed());
        QCOMPARE(event.data(), static_cast<const NvxWavEventData*>(&event.chunk()));
    }

    void chunkIsThatOfThePayload()
    {
        LogStream stream;
        stream.bits = 24;
        stream.channels = 3;
        for (const bool bigEndian : {false, true}) {
            stream.bigEndian = bigEndian;
            const auto payload = stream.block(kTime, 0, 4711, 123);
            const WavBlockEvent event(*payload);
            QCOMPARE(int(event.chunk().bitDepth()), 24);
            QCOMPARE(int(event.chunk().numChannels()), 3);
            QCOMPARE(int(event.chunk().numSamples()), 123);
            QCOMPARE(event.chunk().sampleNum(), 4711U);
            QCOMPARE(event.chunk().isBigEndian(), bigEndian);
            // Not a copy.
            QCOMPARE(event.chunk().data(), static_cast<const unsigned char*>(payload->data()->bytes().get()));
        }
    }

    // --- rainy day flows
    void samplesOutliveTheirPayload()
    {
        LogStream stream;
        auto payload = stream.block(kTime, 0, 0, 3);
        const std::weak_ptr<unsigned char[]> samples = payload->data()->bytes();
        {
            const WavBlockEvent event(*payload);
            payload.reset();
            QVERIFY(!samples.expired());
            QCOMPARE(int(event.chunk().data()[2]), 1);
        }
        QVERIFY(samples.expired());
    }
};

QTEST_GUILESS_MAIN(tst_WavBlockEvent)
#include "tst_WavBlockEvent.moc"
