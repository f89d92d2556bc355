#include "tests/array/ArrayReplies.h"
#include "tests/support/NvxTestCase.h"

#include <limits>

/// What the command adapter of an array controller makes of the frames of its channels.
class tst_HydZcrCommandAdapterFrames : public NvxTestCase
{
    Q_OBJECT

private Q_SLOTS:
    // --- happy flows
    void frameCompletesItsChannel();
    void extremesOfAFrame();
    void listIsFilledWithTheLastChannel();
    // --- rainy day flows
    void filledWithEachFrameOnceComplete();
    void filledAtOnceWithoutChannels();
    void frameOfAChannelThatIsNotListed();
    void filledChannelStays_data();
    void filledChannelStays();
    void firstOfEqualSerials();
    void frameThatTellsNoSensitivity();
};

void tst_HydZcrCommandAdapterFrames::frameCompletesItsChannel()
{
    ArrayRig rig;
    rig.listChannels({11, 12});
    rig.adapter.FillDevIdList(frameOf(12));
    const SkiffDevice& device = channel(rig, 1);
    QCOMPARE(device.zcrChannel(), 7);
    QCOMPARE(device.temperature(), 21.5F);
    QCOMPARE(device.bandWidth(), 1024U);
    QCOMPARE(device.sampleRate(), 96000U);
    QCOMPARE(device.sensitivity(), -165.0F);
    QCOMPARE(device.spectrumVRef(), -120.0F);
    const HydJobSettings& settings = device.jobSettings();
    QCOMPARE(settings.map().size(), size_t(4));
    QCOMPARE(settings.fftRate(), SampRate{96000});
    QCOMPARE(settings.wavRate(), SampRate{96000});
    QCOMPARE(settings.fftAccum(), 20U);
    QCOMPARE(settings.fftRef(), -120);
    QCOMPARE(channel(rig, 0).sensitivity(), 0.0F);
    QVERIFY(rig.listFilled.isEmpty());
}

void tst_HydZcrCommandAdapterFrames::extremesOfAFrame()
{
    ArrayRig rig;
    rig.listChannels({65535});
    CZCRWebSocket::ZCR_STREAM_STR frame = frameOf(65535, std::numeric_limits<int16_t>::max());
    frame.frameChannel = 255;
    frame.frameTemperature = 65535;
    frame.frameBandWidth = 65535;
    frame.frameFftRef = std::numeric_limits<int32_t>::min();
    frame.frameSampleRate = 4294967295;
    frame.frameFftAccum = 65535;
    rig.adapter.FillDevIdList(frame);
    const SkiffDevice& device = channel(rig, 0);
    QCOMPARE(device.zcrChannel(), 255);
    QCOMPARE(device.temperature(), 6553.5F);
    QCOMPARE(device.bandWidth(), 65535U);
    QCOMPARE(device.sampleRate(), 4294967295U);
    QCOMPARE(device.sensitivity(), 32767.0F);
    QCOMPARE(device.spectrumVRef(), -2147483648.0F);
    const HydJobSettings& settings = device.jobSettings();
    QCOMPARE(static_cast<uint32_t>(settings.fftRate()), 4294967295U);
    QCOMPARE(static_cast<uint32_t>(settings.wavRate()), 4294967295U);
    QCOMPARE(settings.fftAccum(), 65535U);
    QCOMPARE(settings.fftRef(), std::numeric_limits<int32_t>::min());
}

void tst_HydZcrCommandAdapterFrames::listIsFilledWithTheLastChannel()
{
    ArrayRig rig;
    rig.listChannels({11, 12, 13});
    rig.adapter.FillDevIdList(frameOf(13));
    rig.adapter.FillDevIdList(frameOf(11));
    QVERIFY(rig.listFilled.isEmpty());
    rig.adapter.FillDevIdList(frameOf(12));
    QCOMPARE(rig.listFilled.count(), 1);
}

void tst_HydZcrCommandAdapterFrames::filledWithEachFrameOnceComplete()
{
    ArrayRig rig;
    rig.listChannels({11});
    for (int i = 1; i <= 3; ++i) {
        rig.adapter.FillDevIdList(frameOf(11));
        QCOMPARE(rig.listFilled.count(), i);
    }
    // A frame of nobody, too: this is intended.
    rig.adapter.FillDevIdList(frameOf(99));
    QCOMPARE(rig.listFilled.count(), 4);
}

void tst_HydZcrCommandAdapterFrames::filledAtOnceWithoutChannels()
{
    ArrayRig rig;
    rig.adapter.FillDevIdList(frameOf(11));
    QCOMPARE(rig.listFilled.count(), 1);
}

void tst_HydZcrCommandAdapterFrames::frameOfAChannelThatIsNotListed()
{
    ArrayRig rig;
    rig.listChannels({11});
    rig.adapter.FillDevIdList(frameOf(99));
    QCOMPARE(channel(rig, 0).sensitivity(), 0.0F);
    QVERIFY(rig.listFilled.isEmpty());
    // The identity decides, of this controller; a record alone doesn't.
    rig.adapter.setSerial(601);
    rig.adapter.FillDevIdList(frameOf(11));
    QCOMPARE(channel(rig, 0).sensitivity(), 0.0F);
    rig.adapter.setSerial(600);
    rig.adapter.FillDevIdList(frameOf(11));
    QCOMPARE(channel(rig, 0).sensitivity(), -165.0F);
}

void tst_HydZcrCommandAdapterFrames::filledChannelStays_data()
{
    QTest::addColumn<float>("sensitivity");
    QTest::addColumn<bool>("stays");
    QTest::newRow("a frame's") << -170.0F << true;
    QTest::newRow("just below 0") << -0.5F << true;
    QTest::newRow("just above 0") << 0.5F << false;
    QTest::newRow("0") << 0.0F << false;
    QTest::newRow("1") << 1.0F << true;
}

void tst_HydZcrCommandAdapterFrames::filledChannelStays()
{
    QFETCH(float, sensitivity);
    QFETCH(bool, stays);
    ArrayRig rig;
    rig.listChannels({11});
    channel(rig, 0).setSensitivity(sensitivity);
    rig.adapter.FillDevIdList(frameOf(11));
    QCOMPARE(channel(rig, 0).sensitivity(), stays ? sensitivity : -165.0F);
    QCOMPARE(channel(rig, 0).bandWidth(), stays ? 0U : 1024U);
    QCOMPARE(rig.listFilled.count(), 1);
}

void tst_HydZcrCommandAdapterFrames::firstOfEqualSerials()
{
    ArrayRig rig;
    rig.listChannels({11});
    rig.adapter.fillSkiffList();
    QCOMPARE(rig.adapter.hydDeviceList().size(), size_t(2));
    for (int i = 0; i < 2; ++i)
        rig.adapter.FillDevIdList(frameOf(11));
    QCOMPARE(channel(rig, 0).sensitivity(), -165.0F);
    // The second one is never found, so the list is never complete.
    QCOMPARE(channel(rig, 1).sensitivity(), 0.0F);
    QVERIFY(rig.listFilled.isEmpty());
}

void tst_HydZcrCommandAdapterFrames::frameThatTellsNoSensitivity()
{
    // Its channel takes each further frame, and is never complete: this is intended.
    ArrayRig rig;
    rig.listChannels({11});
    rig.adapter.FillDevIdList(frameOf(11, 0));
    QCOMPARE(channel(rig, 0).bandWidth(), 1024U);
    auto next = frameOf(11, 0);
    next.frameBandWidth = 512;
    rig.adapter.FillDevIdList(next);
    QCOMPARE(channel(rig, 0).bandWidth(), 512U);
    QVERIFY(rig.listFilled.isEmpty());
    rig.adapter.FillDevIdList(frameOf(11, -165));
    QCOMPARE(channel(rig, 0).bandWidth(), 1024U);
    QCOMPARE(rig.listFilled.count(), 1);
}

QTEST_GUILESS_MAIN(tst_HydZcrCommandAdapterFrames)
#include "tst_HydZcrCommandAdapterFrames.moc"
